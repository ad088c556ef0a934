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

veltrano_object* veltrano_number(int code, int64_t value) {
  return make([&] { return HostValue(NSNumber(code, value)); });
}

veltrano_object* veltrano_number_with_double(int code, double value) {
  return make([&] { return HostValue(NSNumber(code, value)); });
}

veltrano_object* veltrano_boolean_number(bool value) {
  constexpr int kBooleanCode = 7;
  return veltrano_number(kBooleanCode, value ? 1 : 0);
}

veltrano_object* veltrano_int(int64_t value) {
  return make([&] { return HostValue(value); });
}

veltrano_object* veltrano_uint(uint64_t value) {
  return make([&] { return HostValue(value); });
}

veltrano_object* veltrano_int64(int64_t value) {
  return make([&] { return HostValue(Int64{value}); });
}

veltrano_object* veltrano_double(double value) {
  return make([&] { return HostValue(value); });
}

veltrano_object* veltrano_float(float value) {
  return make([&] { return HostValue(value); });
}

veltrano_object* veltrano_bool(bool value) {
  return make([&] { return HostValue(value); });
}

veltrano_object* veltrano_date(double seconds) {
  return make([&] { return HostValue(Date::fromSecondsSince1970(seconds)); });
}

veltrano_object* veltrano_null(void) {
  return make([] { return HostValue(NSNull()); });
}

veltrano_object* veltrano_other_object(void) {
  return make([] { return HostValue(OtherObject()); });
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
  const CancellationOff cancellationOff;
  expectHandle(object);
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
