#include "c_interface/handles.h"
#include "encoding/utf8.h"

using namespace veltrano;
using namespace veltrano::internal;

namespace {

// A handle to an object with the result of `content`.
template <class Function>
veltrano_object* make(Function content) {
  return guarded<veltrano_object*>(nullptr, [&] { return makeHandle(Object(content())); });
}

template <class Block, class... Arguments>
veltrano_object* makeBlock(void (*function)(void*, Arguments...), void* context,
                           void (*release)(void*)) {
  return make([&]() -> Block {
    Callback<Arguments...> callback(function, context, release);
    if (function == nullptr) return nullptr;
    return callback;
  });
}

}  // namespace

veltrano_text veltrano_c_string(const char* string) {
  return {string, string != nullptr ? std::char_traits<char>::length(string) : 0};
}

veltrano_object* veltrano_string(veltrano_text text) {
  if (text.bytes == nullptr) return nullptr;
  return make([&] { return HostValue(wellFormedUTF8(view(text))); });
}

veltrano_object* veltrano_url(veltrano_text text) {
  if (text.bytes == nullptr) return nullptr;
  return make([&] { return HostValue(URL(view(text))); });
}

// Defines veltrano_KIND, which makes an object of VALUE, an expression of its parameters.
#define VELTRANO_MAKES(KIND, VALUE, ...)           \
  veltrano_object* veltrano_##KIND(__VA_ARGS__) {  \
    return make([&] { return HostValue(VALUE); }); \
  }

VELTRANO_MAKES(int, value, int64_t value)
VELTRANO_MAKES(uint, value, uint64_t value)
VELTRANO_MAKES(int64, Int64{value}, int64_t value)
VELTRANO_MAKES(double, value, double value)
VELTRANO_MAKES(float, value, float value)
VELTRANO_MAKES(bool, value, bool value)
VELTRANO_MAKES(date, Date::fromSecondsSince1970(seconds), double seconds)
VELTRANO_MAKES(null, NSNull(), void)
VELTRANO_MAKES(number, NSNumber(code, value), int code, int64_t value)
VELTRANO_MAKES(number_with_double, NSNumber(code, value), int code, double value)
VELTRANO_MAKES(other_object, OtherObject(), void)

veltrano_object* veltrano_boolean_number(bool value) {
  constexpr int kBooleanCode = 7;
  return veltrano_number(kBooleanCode, value ? 1 : 0);
}

veltrano_object* veltrano_block(void (*function)(void*), void* context, void (*release)(void*)) {
  return makeBlock<Object::Block>(function, context, release);
}

veltrano_object* veltrano_boolean_block(void (*function)(void*, bool), void* context,
                                        void (*release)(void*)) {
  return makeBlock<Object::BooleanBlock>(function, context, release);
}

veltrano_object* veltrano_copy(const veltrano_object* object) {
  return make([&] { return objectOf(object); });
}

void veltrano_release(veltrano_object* object) {
  if (object == nullptr) return;
  expectHandle(object);
  // Only an object may hold a block, which calls the host as it goes.
  std::optional<CancellationOff> cancellationOff;
  if (std::holds_alternative<Object>(object->content)) cancellationOff.emplace();
  delete object;
}

veltrano_text veltrano_string_text(const veltrano_object* object) {
  if (object == nullptr) return {};
  expectHandle(object);
  const auto* immutable = std::get_if<Object>(&object->content);
  const auto text = immutable != nullptr ? immutable->text() : std::nullopt;
  if (!text) return {};
  return {text->data(), text->size()};
}

bool veltrano_is_valid_nested_type(const veltrano_object* object) {
  return guarded(false, [&] {
    const Object checked = objectOf(object);
    return checked.member() != nullptr && checked.member()->isValidNestedType();
  });
}
