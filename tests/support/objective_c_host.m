// A host that makes the same calls in Objective-C or in C, for objective_c_test.py.
//
//     objective_c_host objects|c HOST:PORT CERTIFICATE
#import <stdatomic.h>
#import <string.h>

#import "veltrano/VeltranoObjC.h"

static bool hasFailed = false;
#define EXPECT(condition)                                         \
  do {                                                            \
    if (condition) break;                                         \
    fprintf(stderr, "line %d: %s fails\n", __LINE__, #condition); \
    hasFailed = true;                                             \
  } while (0)

// Counts its instances.
@interface Witness : NSObject
@end
static atomic_int witnesses;
@implementation Witness
- (instancetype)init {
  ++witnesses;
  return [super init];
}
- (void)dealloc {
  --witnesses;
  [super dealloc];
}
@end

// Cannot be read.
@interface BadArray : NSArray
@end
@implementation BadArray
- (NSUInteger)count {
  return 1;
}
- (id)objectAtIndex:(NSUInteger)index {
  [[[Witness alloc] init] autorelease];
  return [NSException raise:NSRangeException format:@"%lu", (unsigned long)index], nil;
}
@end

// As on systems that keep the type of such a number.
@interface UnsignedShort : NSNumber
@end
@implementation UnsignedShort
- (const char*)objCType {
  return @encode(unsigned short);
}
- (long long)longLongValue {
  return 60000;
}
@end

// Implements only what a subclass has to.
@interface LeastDictionary : NSDictionary
@end
@implementation LeastDictionary
- (NSUInteger)count {
  return 1;
}
- (id)objectForKey:(id)key {
  return [key isEqual:@"k"] ? @"v" : nil;
}
- (NSEnumerator*)keyEnumerator {
  return [@[ @"k" ] objectEnumerator];
}
@end

// What throws an int in C++.
void* __cxa_allocate_exception(size_t size);
void __cxa_throw(void* exception, void* type, void (*destroy)(void*));
extern char _ZTIi[];
static void throwInCpp(void) {
  int* exception = __cxa_allocate_exception(sizeof *exception);
  *exception = 1;
  __cxa_throw(exception, _ZTIi, NULL);
}

static int refreshes;

static void stop(void* context, const veltrano_transfer* transfer) {
  (void)context, (void)transfer;
  veltrano_run_loop_stop(veltrano_main_run_loop());
}

static veltrano_object* token(void* context) {
  return (void)context, veltrano_string(veltrano_c_string("demo-token"));
}

static void waitForTransfer(void) {
  EXPECT(veltrano_run_loop_run_for(veltrano_main_run_loop(), 86400));
}

// ---- In C ----

static void countRefresh(void* context) {
  (void)context;
  ++refreshes;
}

static void finish(void* context, bool accepted) {
  (void)context;
  EXPECT(accepted);
}

static void sendInC(const char* selector) {
  EXPECT(veltrano_send(selector, NULL, 0, NULL, NULL) == VELTRANO_DONE);
}

static veltrano_object* nestedInC(int depth) {
  veltrano_object* array = veltrano_array();
  while (--depth > 0) {
    veltrano_object* outer = veltrano_array();
    veltrano_array_append(outer, array);
    veltrano_release(array);
    array = outer;
  }
  return array;
}

static void setAndRelease(veltrano_object* dictionary, const char* key, veltrano_object* value) {
  veltrano_dictionary_set_object(dictionary, key, value);
  veltrano_release(value);
}

static veltrano_object* kindsInC(void) {
  veltrano_object *all = veltrano_dictionary(), *list = veltrano_array(), *one = veltrano_array();
  veltrano_object *map = veltrano_dictionary(), *cycle = veltrano_dictionary();
  setAndRelease(all, "text", veltrano_string((veltrano_text){"a\0å😀", 8}));
  veltrano_dictionary_set_text(all, "lone", "\uFFFDx\uFFFD");
  veltrano_dictionary_set_number(all, "yes", 7, 1);
  veltrano_dictionary_set_number(all, "char", 1, -1);
  veltrano_dictionary_set_number(all, "byte", 2, 200);
  veltrano_dictionary_set_number(all, "short", 2, -300);
  veltrano_dictionary_set_number(all, "unsignedShort", 3, 60000);
  veltrano_dictionary_set_number(all, "unsigned", 4, 4000000000);
  veltrano_dictionary_set_number(all, "least", 4, INT64_MIN);
  veltrano_dictionary_set_number_with_double(all, "largest", 17, 18446744073709551615.0);
  veltrano_dictionary_set_number_with_double(all, "float", 5, 0.1F);
  veltrano_dictionary_set_number_with_double(all, "decimal", 13, 1.5);
  veltrano_dictionary_set_date(all, "date", 1.5);
  veltrano_dictionary_set_url(all, "relative", "http://x/a/c");
  veltrano_dictionary_set_null(all, "null");
  setAndRelease(all, "deep", nestedInC(200));
  setAndRelease(all, "other", veltrano_other_object());
  veltrano_array_append_text(one, "ö");
  veltrano_array_append(list, one);
  setAndRelease(map, "k", one);
  setAndRelease(all, "map", map);
  setAndRelease(all, "list", list);
  veltrano_dictionary_set_int(cycle, "n", 1);
  setAndRelease(cycle, "self", veltrano_array());
  setAndRelease(all, "cycle", cycle);
  veltrano_object* least = veltrano_dictionary();
  veltrano_dictionary_set_text(least, "k", "v");
  setAndRelease(all, "leastSubclass", least);
  return all;
}

static void callInC(void) {
  veltrano_set_app_id("app");
  veltrano_set_lib_version("lib");
  veltrano_set_publisher_uid("pub");
  veltrano_set_idfa();
  veltrano_object* properties = veltrano_dictionary();
  veltrano_dictionary_set_number(properties, "kept", 3, 1);
  veltrano_dictionary_set_number(properties, "gone", 3, 2);
  veltrano_set_super_properties(properties);
  veltrano_remove_super_property("gone");
  veltrano_release(properties);
  properties = veltrano_dictionary();
  const char* triggers[] = {"First", "Ünd"};
  veltrano_set_refresh_triggers(triggers, 2, countRefresh, NULL);
  veltrano_set_collecting(false);
  veltrano_track("First", properties, NULL, NULL);
  veltrano_set_collecting(true);
  veltrano_track("Ünd", NULL, NULL, NULL);
  veltrano_set_refresh_triggers(NULL, 0, NULL, NULL);
  veltrano_track("First", properties, NULL, NULL);
  veltrano_set_publisher_uid(NULL);
  sendInC("handleDidChangeStatusBarOrientation");
  sendInC("handleDidChangeDeviceOrientation");
  sendInC("setScreenOrientation");
  veltrano_dictionary_set_text(properties, "screen", veltrano_screen_orientation());
  veltrano_dictionary_set_text(properties, "device", veltrano_device_orientation());
  veltrano_track("Oriented", properties, NULL, NULL);
  veltrano_release(properties);

  properties = kindsInC();
  veltrano_track("Kinds", properties, finish, NULL);
  waitForTransfer();
  veltrano_set_super_properties(properties);
  veltrano_track("Last", NULL, NULL, NULL);
  sendInC("handleDidEnterBackground");
  waitForTransfer();
  sendInC("handleWillEnterForeground");
  veltrano_release(properties);
  properties = veltrano_dictionary();
  veltrano_object *map = veltrano_dictionary(), *number = veltrano_number(3, 1);
  veltrano_dictionary_set(map, number, number);
  setAndRelease(properties, "map", map);
  veltrano_release(number);
  veltrano_track("Undeliverable", properties, finish, NULL);
  veltrano_release(properties);
  veltrano_set_user_id("user");
}

// ---- In Objective-C ----

static NSArray* nested(int depth) {
  return depth == 1 ? @[] : @[ nested(depth - 1) ];
}

static NSDictionary* kinds(void) {
  NSMutableString* lone = [NSMutableString stringWithFormat:@"%Cx", (unichar)0xDC00];
  [lone appendFormat:@"%C", (unichar)0xD800];
  NSMutableDictionary* cycle = [NSMutableDictionary dictionaryWithObject:@1 forKey:@"n"];
  [cycle setObject:[NSMutableArray arrayWithObject:cycle] forKey:@"self"];
  NSURL* base = [NSURL URLWithString:@"http://x/a/b"];
  return @{
    @"text" : [NSString stringWithFormat:@"a%Cå😀", (unichar)0],
    @"lone" : lone,
    @"yes" : [NSNumber numberWithBool:YES],
    @"char" : [NSNumber numberWithChar:-1],
    @"byte" : [NSNumber numberWithUnsignedChar:200],
    @"short" : [NSNumber numberWithShort:-300],
    @"unsignedShort" : [[UnsignedShort new] autorelease],
    @"unsigned" : @4000000000U,
    @"least" : [NSNumber numberWithLongLong:INT64_MIN],
    @"largest" : @(UINT64_MAX),
    @"float" : @0.1F,
    @"decimal" : [NSDecimalNumber decimalNumberWithString:@"1.5"],
    @"date" : [NSDate dateWithTimeIntervalSince1970:1.5],
    @"relative" : [NSURL URLWithString:@"c" relativeToURL:base],
    @"null" : [NSNull null],
    @"deep" : nested(200),
    @"other" : [NSSet setWithObject:@1],
    @"list" : @[ @[ @"ö" ], [[[NSObject alloc] init] autorelease], [NSString class] ],
    @"map" : @{@"k" : @[ @"ö" ], @"other" : [NSValue valueWithPointer:NULL]},
    @"cycle" : cycle,
    @"leastSubclass" : [[LeastDictionary new] autorelease],
  };
}

// Has no effect.
static void callWrongly(Veltrano* tracker) {
  id wrong[] = {
    nil,
    @1,
    @[ @1 ],
    @{@1 : @"other key"},
    [NSNull null],
    [[BadArray new] autorelease]
  };
  [tracker addObserver:tracker
            forKeyPath:@"userId"
               options:NSKeyValueObservingOptionNew
               context:NULL];
  for (size_t i = 0; i < sizeof wrong / sizeof *wrong; ++i) {
    [tracker trackWithEventName:wrong[i] eventProperties:@{}];
    [tracker trackWithEventName:@"Wrong" eventProperties:wrong[i]];
    [tracker setSuperPropertiesWithProperties:wrong[i]];
    [tracker setUserId:wrong[i]];
    [tracker removeSuperPropertyWithKey:wrong[i]];
  }
  [tracker removeObserver:tracker forKeyPath:@"userId"];
  [tracker trackWithEventName:@"Wrong" eventProperties:@{@"a" : @[ @1, wrong[5] ]}];

  // Key-value coding reaches nothing.
  for (NSString* key in @[ @"userId", @"screenOrientation" ]) {
    for (NSString* selector in @[
           @"valueForKey:", @"storedValueForKey:", @"setValue:forKey:", @"takeValue:forKey:",
           @"takeStoredValue:forKey:", @"mutableArrayValueForKey:", @"mutableSetValueForKey:"
         ]) {
      const bool sets = [selector hasSuffix:@":forKey:"];
      NSString* raised = nil;
      @try {
        [tracker performSelector:NSSelectorFromString(selector)
                      withObject:sets ? @"x" : key
                      withObject:sets ? key : nil];
      } @catch (NSException* exception) {
        raised = [exception name];
      }
      EXPECT([raised isEqual:NSUndefinedKeyException]);
    }
  }
}

// The block and what it captures outlive this call.
static void trackForced(NSString* name, NSDictionary* properties) {
  Witness* witness = [[Witness alloc] init];
  [[Veltrano shared] trackWithEventName:name
                        eventProperties:properties
                   forceFlushCompletion:^(BOOL accepted) {
                     [[witness retain] autorelease];
                     [[[Witness alloc] init] autorelease];
                     EXPECT(accepted);
                     throwInCpp();
                   }];
  [witness release];
}

static void call(void) {
  Veltrano* tracker = [Veltrano shared];
  SEL forced = @selector(trackWithEventName:eventProperties:forceFlushCompletion:);
  EXPECT([[tracker methodSignatureForSelector:forced] numberOfArguments] == 5);
  [tracker setAppId:@"app"];
  [tracker performSelector:@selector(setLibVersion:) withObject:@"lib"];
  [tracker setPublisherUid:@"pub"];
  [tracker performSelector:@selector(setIdfa)];
  NSMutableDictionary* properties = [NSMutableDictionary dictionary];
  [properties setObject:@1 forKey:@"kept"];
  [properties setObject:@2 forKey:@"gone"];
  [tracker setSuperPropertiesWithProperties:properties];
  [tracker removeSuperPropertyWithKey:@"gone"];
  [properties removeAllObjects];
  Witness* witness = [[Witness alloc] init];
  NSMutableArray* triggers = [NSMutableArray arrayWithObjects:@"First", @"Ünd", nil];
  [tracker setRefreshTriggersWithHandlerWithTriggers:triggers
                                             handler:^{
                                               [[witness retain] autorelease];
                                               ++refreshes;
                                               [NSException raise:@"Any" format:@"at all"];
                                             }];
  [triggers removeAllObjects];
  [witness release];
  EXPECT(witnesses == 1);
  [tracker setCollecting:NO];
  [tracker trackWithEventName:@"First" eventProperties:properties];
  [tracker setCollecting:YES];
  [tracker trackWithEventName:@"Ünd" eventProperties:nil forceFlushCompletion:nil];
  [tracker setRefreshTriggersWithHandlerWithTriggers:nil handler:nil];
  EXPECT(witnesses == 0);
  [tracker trackWithEventName:@"First" eventProperties:properties forceFlushCompletion:nil];
  [tracker setPublisherUid:nil];
  SEL setOrientation = NSSelectorFromString(@"setScreenOrientation");
  [tracker performSelector:NSSelectorFromString(@"handleDidChangeStatusBarOrientation")];
  [tracker performSelector:NSSelectorFromString(@"handleDidChangeDeviceOrientation")];
  [tracker performSelector:setOrientation];
  [properties setObject:[tracker getScreenOrientation] forKey:@"screen"];
  [properties setObject:[tracker performSelector:@selector(getDeviceOrientation)] forKey:@"device"];
  [tracker trackWithEventName:@"Oriented" eventProperties:properties];
  callWrongly(tracker);

  trackForced(@"Kinds", kinds());
  waitForTransfer();
  [tracker setSuperPropertiesWithProperties:kinds()];
  [tracker trackWithEventName:@"Last" eventProperties:@{}];
  [tracker performSelector:NSSelectorFromString(@"handleDidEnterBackground")];
  waitForTransfer();
  [tracker performSelector:NSSelectorFromString(@"handleWillEnterForeground")];
  trackForced(
      @"Undeliverable",
      @{@"map" : @{@1 : @1}});
  [tracker setUserId:@"user"];
}

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  @autoreleasepool {
    veltrano_options options = {.size = sizeof options, .interface_orientation = 3};
    options.collection_host = veltrano_c_string(argv[2]);
    options.certificate_authorities = veltrano_c_string(argv[3]);
    options.advertising_identifier = veltrano_c_string("00000000-0000-0000-0000-00000000000a");
    options.device_orientation = 5;
    options.session_token = token;
    options.on_transfer = stop;
    EXPECT(veltrano_install_posix_platform(&options, NULL));
    @autoreleasepool {
      if (strcmp(argv[1], "c") == 0)
        callInC();
      else
        call();
    }
    waitForTransfer();
    EXPECT(refreshes == 2);
    EXPECT(veltrano_shut_down(60));
    veltrano_statistics counts = {.size = sizeof counts};
    EXPECT(veltrano_get_statistics(&counts) && counts.dropped_as_not_encodable == 1);
  }
  EXPECT(witnesses == 0);
  return hasFailed ? 1 : 0;
}
