// Arrays and dictionaries, which take plain values or objects.
#include "c_interface/handles.h"

using namespace veltrano;
using namespace veltrano::internal;

namespace {

// The mutable `T` behind `handle`; null, and tells a test, if there is none or its key is missing.
// Not inlined, because 27 functions call it.
template <class T, class... Key>
[[gnu::noinline]] T* collectionOf(veltrano_object* handle, Key... key) {
  if (handle != nullptr) expectHandle(handle);
  T* const collection = handle != nullptr ? std::get_if<T>(&handle->content) : nullptr;
  if (collection != nullptr && ((key != nullptr) && ...)) return collection;
  noteRefusal(
      std::is_same_v<T, MutableArray> ? "veltrano_array_append..." : "veltrano_dictionary_set...",
      collection != nullptr);
  return nullptr;
}

// Calls `change` with the collection if `handle` is a mutable `T` and there is a key, where it
// needs one. False if not, or when memory runs out.
template <class T, class Function, class... Key>
bool changed(veltrano_object* handle, Function change, const Key*... key) {
  return guardedInMemory(false, [&] {
    T* const collection = collectionOf<T>(handle, static_cast<const void*>(key)...);
    if (collection != nullptr) change(*collection);
    return collection != nullptr;
  });
}

template <class T>
veltrano_object* newObject() {
  return guardedInMemory<veltrano_object*>(
      nullptr, [] { return new veltrano_object(std::in_place_type<T>); });
}

std::optional<URL> optionalURL(const char* text) {
  return text != nullptr ? std::optional(URL(text)) : std::nullopt;
}

}  // namespace

veltrano_object* veltrano_array(void) {
  return newObject<MutableArray>();
}

veltrano_object* veltrano_dictionary(void) {
  return newObject<MutableDictionary>();
}

bool veltrano_array_append(veltrano_object* array, const veltrano_object* element) {
  return changed<MutableArray>(array, [&](auto& it) { it.append(argumentOf(element)); });
}

bool veltrano_dictionary_set(veltrano_object* dictionary, const veltrano_object* key,
                             const veltrano_object* value) {
  return changed<MutableDictionary>(
      dictionary, [&](auto& it) { it.set(objectOf(key), argumentOf(value)); }, key);
}

bool veltrano_dictionary_set_object(veltrano_object* dictionary, const char* key,
                                    const veltrano_object* value) {
  return changed<MutableDictionary>(
      dictionary, [&](auto& it) { it.set(key, argumentOf(value)); }, key);
}

// Defines the two functions that add one kind of value; `VALUE` makes it from the parameters.
#define VELTRANO_ADDS(KIND, VALUE, ...)                                                  \
  bool veltrano_array_append_##KIND(veltrano_object* array __VA_OPT__(, ) __VA_ARGS__) { \
    return changed<MutableArray>(array, [&](auto& it) { it.append(VALUE); });            \
  }                                                                                      \
  bool veltrano_dictionary_set_##KIND(veltrano_object* dictionary,                       \
                                      const char* key __VA_OPT__(, ) __VA_ARGS__) {      \
    return changed<MutableDictionary>(                                                   \
        dictionary, [&](auto& it) { it.set(key, VALUE); }, key);                         \
  }

VELTRANO_ADDS(text, value, const char* value)
VELTRANO_ADDS(int, value, int64_t value)
VELTRANO_ADDS(uint, value, uint64_t value)
VELTRANO_ADDS(int64, Int64{value}, int64_t value)
VELTRANO_ADDS(double, value, double value)
VELTRANO_ADDS(float, value, float value)
VELTRANO_ADDS(bool, value, bool value)
VELTRANO_ADDS(date, Date::fromSecondsSince1970(seconds), double seconds)
VELTRANO_ADDS(url, optionalURL(value), const char* value)
VELTRANO_ADDS(null, NSNull())
VELTRANO_ADDS(number, NSNumber(code, value), int code, int64_t value)
VELTRANO_ADDS(number_with_double, NSNumber(code, value), int code, double value)
