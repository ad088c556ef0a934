// The objects behind the handles of the C interface.
#pragma once

#include <pthread.h>

#include <cassert>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "c_interface/host_object.h"
#include "platform/host_callback.h"
#include "veltrano/veltrano_c.h"

/// What a handle points to.
struct veltrano_object {
  using Content = std::variant<veltrano::internal::Object, veltrano::internal::MutableCollection>;

  /// Makes the content in place: two moves cost 5 % of making and releasing a short collection.
  template <class Alternative, class... Arguments>
  explicit veltrano_object(std::in_place_type_t<Alternative> alternative, Arguments&&... arguments)
      : content(alternative, std::forward<Arguments>(arguments)...) {}

#ifndef NDEBUG
  ~veltrano_object() {
    mark = 0;
  }

  static constexpr unsigned kMark = 0x56656c74;
  volatile unsigned mark = kMark;  // first, because what is not a handle may be smaller
#endif

  Content content;
};

namespace veltrano::internal {

/// Defers cancellation of the calling thread: the library has frames that cancellation cannot
/// unwind.
class CancellationOff {
 public:
  CancellationOff() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
  ~CancellationOff() { pthread_setcancelstate(before_, nullptr); }
  CancellationOff(const CancellationOff&) = delete;
  CancellationOff& operator=(const CancellationOff&) = delete;

 private:
  int before_ = PTHREAD_CANCEL_ENABLE;
};

/// Returns the result of `function`, or `otherwise` if it throws. Forced unwinding continues: an
/// exited interpreter terminates threads that call into it. For functions that only use memory: no
/// thread is cancelled in them.
template <class Result, class Function>
Result guardedInMemory(Result otherwise, Function function) {
  try {
    return function();
  } catch (...) {
    if (isForcedUnwinding()) throw;
    return otherwise;
  }
}

/// The same for any function.
template <class Result, class Function>
Result guarded(Result otherwise, Function function) {
  const CancellationOff cancellationOff;
  return guardedInMemory(std::move(otherwise), std::move(function));
}

/// In debug builds, aborts a host that passes another pointer than a handle. AddressSanitizer finds
/// handles that have been released.
inline void expectHandle([[maybe_unused]] const veltrano_object* handle) {
  assert(handle->mark == veltrano_object::kMark && "not a handle, or a released one");
}

/// Null for nil.
inline veltrano_object* makeHandle(Object object) {
  if (object.isNil()) return nullptr;
  return new veltrano_object(std::in_place_type<Object>, std::move(object));
}

/// The object behind a handle; for a mutable collection, an immutable copy.
inline Object objectOf(const veltrano_object* handle) {
  if (handle == nullptr) return Object();
  expectHandle(handle);
  const auto* object = std::get_if<Object>(&handle->content);
  return object != nullptr ? *object : std::get<MutableCollection>(handle->content).copy();
}

/// The object behind a handle as a property value. Refers to the object.
inline detail::Argument argumentOf(const veltrano_object* handle) {
  if (handle == nullptr) return {};
  expectHandle(handle);
  return std::visit([](const auto& object) { return object.argument(); }, handle->content);
}

/// The contents of a dictionary with only string keys; none for any other handle. Refers to the
/// object.
inline std::optional<HostMapView> propertiesOf(const veltrano_object* handle) {
  if (handle == nullptr) return std::nullopt;
  expectHandle(handle);
  return std::visit([](const auto& object) { return object.properties(); }, handle->content);
}

inline std::string_view view(veltrano_text text) {
  return text.bytes != nullptr ? std::string_view(text.bytes, text.length) : std::string_view();
}

inline std::optional<std::string> optionalText(veltrano_text text) {
  if (text.bytes == nullptr) return std::nullopt;
  return std::string(view(text));
}

/// Tells a test that `operation` did nothing: see `CallObserver::refused`.
void noteRefusal(std::string_view operation, std::size_t argument);

/// A C function and its context. Releases the context when the last copy is destroyed, or when the
/// constructor throws.
template <class... Arguments>
class Callback {
 public:
  using Function = void (*)(void* context, Arguments...);

  Callback(Function function, void* context, void (*release)(void*))
      : function_(function), context_(context, [release](void* released) {
          if (release != nullptr) dropExceptions(release, released);
        }) {}

  void operator()(Arguments... arguments) const { function_(context_.get(), arguments...); }

 private:
  Function function_;
  std::shared_ptr<void> context_;
};

}  // namespace veltrano::internal
