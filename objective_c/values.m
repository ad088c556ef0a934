#import "objective_c/values.h"

// A collection whose elements are being converted, and those around it.
typedef struct Enclosing {
  id collection;
  const struct Enclosing* outer;
} Enclosing;

static veltrano_object* handleIn(const Enclosing* outer, id object);

// Events hold no deeper collections, and none can contain itself.
static bool canEnclose(const Enclosing* outer, id collection) {
  int remaining = 128;
  for (; outer != NULL; outer = outer->outer)
    if (outer->collection == collection || --remaining == 0) return false;
  return true;
}

// UTF-8 in autoreleased memory. Foundation's own conversions fail for lone surrogates.
static veltrano_text textOf(NSString* string) {
  const NSUInteger length = [string length];
  unichar* units = [[NSMutableData dataWithLength:(length + 1) * sizeof(unichar)] mutableBytes];
  unsigned char* bytes = [[NSMutableData dataWithLength:length * 3 + 1] mutableBytes];
  unsigned char* end = bytes;
  [string getCharacters:units range:NSMakeRange(0, length)];
  for (NSUInteger i = 0; i < length; ++i) {
    uint32_t point = units[i];
    // The buffer ends with an additional 0.
    if ((point & 0xFC00U) == 0xD800 && (units[i + 1] & 0xFC00U) == 0xDC00)
      point = 0x10000 + ((point & 0x3FFU) << 10U) + (units[++i] & 0x3FFU);
    else if ((point & 0xF800U) == 0xD800)
      point = 0xFFFD;

    if (point < 0x80) {
      *end++ = (unsigned char)point;
      continue;
    }
    const unsigned char kLead[] = {0, 0xC0, 0xE0, 0xF0};
    unsigned following = point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
    *end++ = (unsigned char)(kLead[following] | point >> 6 * following);
    while (following-- > 0) *end++ = (unsigned char)(0x80U | (point >> 6 * following & 0x3FU));
  }
  return (veltrano_text){(const char*)bytes, (size_t)(end - bytes)};
}

// By the code of the storage type: unsigned numbers are stored as the next larger signed type.
static veltrano_object* numberHandle(NSNumber* number) {
  if ([number isKindOfClass:[[NSNumber numberWithBool:YES] class]])
    return veltrano_boolean_number([number boolValue]);
  const int kSInt128 = 17;
  switch (*[number objCType]) {
    case 'B':
      return veltrano_boolean_number([number boolValue]);
    case 'c':
      return veltrano_number(1, [number longLongValue]);
    case 'C':
    case 's':
      return veltrano_number(2, [number longLongValue]);
    case 'S':
    case 'i':
      return veltrano_number(3, [number longLongValue]);
    case 'L':
    case 'Q':
      if ([number unsignedLongLongValue] > INT64_MAX)
        return veltrano_number_with_double(kSInt128, [number doubleValue]);
      return veltrano_number(4, [number longLongValue]);
    case 'I':
    case 'l':
    case 'q':
      return veltrano_number(4, [number longLongValue]);
    case 'f':
      return veltrano_number_with_double(5, [number doubleValue]);
    default:
      return veltrano_number_with_double(6, [number doubleValue]);
  }
}

static veltrano_object* arrayHandle(const Enclosing* path, NSArray* elements) {
  SCOPED_HANDLE array = veltrano_array();
  for (id each in elements) {
    SCOPED_HANDLE element = handleIn(path, each);
    veltrano_array_append(array, element);
  }
  return veltrano_copy(array);
}

static veltrano_object* dictionaryHandle(const Enclosing* path, NSDictionary* entries) {
  SCOPED_HANDLE dictionary = veltrano_dictionary();
  // Not `in entries`: in GNUstep, that needs more than a subclass has to implement.
  for (id each in [entries keyEnumerator]) {
    SCOPED_HANDLE key = handleIn(path, each);
    SCOPED_HANDLE value = handleIn(path, [entries objectForKey:each]);
    veltrano_dictionary_set(dictionary, key, value);
  }
  return veltrano_copy(dictionary);
}

static veltrano_object* handleIn(const Enclosing* outer, id object) {
  if (object == nil) return NULL;
  if ([object isKindOfClass:[NSString class]]) return veltrano_string(textOf(object));
  if ([object isKindOfClass:[NSNumber class]]) return numberHandle(object);
  if ([object isKindOfClass:[NSDate class]]) return veltrano_date([object timeIntervalSince1970]);
  if ([object isKindOfClass:[NSURL class]]) return veltrano_url(textOf([object absoluteString]));
  if ([object isKindOfClass:[NSNull class]]) return veltrano_null();
  const bool isArray = [object isKindOfClass:[NSArray class]];
  if (!isArray && ![object isKindOfClass:[NSDictionary class]]) return veltrano_other_object();
  if (!canEnclose(outer, object)) return NULL;
  const Enclosing path = {object, outer};
  return isArray ? arrayHandle(&path, object) : dictionaryHandle(&path, object);
}

veltrano_object* makeHandle(id object) {
  return handleIn(NULL, object);
}
