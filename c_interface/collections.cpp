// Arrays and dictionaries, which take plain values or objects.
#include "c_interface/handles.h"

using namespace veltrano;
using namespace veltrano::internal;

namespace {

// Calls `change` with the collection if `handle` is a mutable one of that kind and there is a key,
// where it needs one. If not, tells a test. False then, or when memory runs out.
template <class Function>
bool changed(veltrano_object* handle, Kind kind, bool hasKey, Function change) {
  return guardedInMemory(false, [&] {
    if (handle != nullptr) expectHandle(handle);
    auto* const collection =
        handle != nullptr ? std::get_if<MutableCollection>(&handle->content) : nullptr;
    const bool isOfKind = collection != nullptr && collection->kind() == kind;
    if (isOfKind && hasKey) return change(*collection), true;
    noteRefusal(kind == Kind::Array ? "veltrano_array_append..." : "veltrano_dictionary_set...",
                isOfKind);
    return false;
  });
}

bool append(veltrano_object* array, const detail::Argument& element) {
  return changed(array, Kind::Array, true, [&](auto& it) { it.append(element); });
}

bool set(veltrano_object* dictionary, const char* key, const detail::Argument& value) {
  return changed(dictionary, Kind::Dictionary, key != nullptr,
                 [&](auto& it) { it.set(key, value); });
}

veltrano_object* newCollection(Kind kind) {
  return guardedInMemory<veltrano_object*>(
      nullptr, [&] { return new veltrano_object(std::in_place_type<MutableCollection>, kind); });
}

}  // namespace

veltrano_object* veltrano_array(void) {
  return newCollection(Kind::Array);
}

veltrano_object* veltrano_dictionary(void) {
  return newCollection(Kind::Dictionary);
}

bool veltrano_array_append(veltrano_object* array, const veltrano_object* element) {
  return append(array, argumentOf(element));
}

bool veltrano_dictionary_set(veltrano_object* dictionary, const veltrano_object* key,
                             const veltrano_object* value) {
  return changed(dictionary, Kind::Dictionary, key != nullptr,
                 [&](auto& it) { it.set(objectOf(key), argumentOf(value)); });
}

bool veltrano_dictionary_set_object(veltrano_object* dictionary, const char* key,
                                    const veltrano_object* value) {
  return set(dictionary, key, argumentOf(value));
}

// Defines the two functions that add one kind of value; `VALUE` makes it from the parameters.
#define VELTRANO_ADDS(KIND, VALUE, ...)                                                  \
  bool veltrano_array_append_##KIND(veltrano_object* array __VA_OPT__(, ) __VA_ARGS__) { \
    return append(array, VALUE);                                                         \
  }                                                                                      \
  bool veltrano_dictionary_set_##KIND(veltrano_object* dictionary,                       \
                                      const char* key __VA_OPT__(, ) __VA_ARGS__) {      \
    return set(dictionary, key, VALUE);                                                  \
  }

VELTRANO_ADDS(text, value, const char* value)
VELTRANO_ADDS(int, value, int64_t value)
VELTRANO_ADDS(uint, value, uint64_t value)
VELTRANO_ADDS(int64, Int64{value}, int64_t value)
VELTRANO_ADDS(double, value, double value)
VELTRANO_ADDS(float, value, float value)
VELTRANO_ADDS(bool, value, bool value)
VELTRANO_ADDS(date, Date::fromSecondsSince1970(seconds), double seconds)
VELTRANO_ADDS(url, detail::FlatAccess::url(value), const char* value)
VELTRANO_ADDS(null, NSNull())
VELTRANO_ADDS(number, NSNumber(code, value), int code, int64_t value)
VELTRANO_ADDS(number_with_double, NSNumber(code, value), int code, double value)
