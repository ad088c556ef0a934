#pragma once

#include <atomic>
#include <charconv>
#include <concepts>
#include <string>
#include <string_view>

#include "platform/clock.h"
#include "platform/host_callback.h"
#include "platform/standard_output.h"

namespace veltrano::internal {

// render: appends a value to a diagnostic line. Other types add their own overloads.

template <std::convertible_to<std::string_view> Text>
void render(std::string& line, const Text& text) {
  line += std::string_view(text);
}

template <std::integral Integer>
requires(!std::same_as<Integer, bool>) void render(std::string& line, Integer number) {
  char digits[24];
  line.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

template <std::same_as<bool> Bool>
void render(std::string& line, Bool flag) {
  line += flag ? "true" : "false";
}

/// The diagnostic log. Thread-safe.
class Log {
 public:
  /// Writes to `output` while `isEnabled` is true. All three must outlive the log.
  Log(const WallClock& clock, StandardOutput& output, const std::atomic<bool>& isEnabled)
      : clock_(clock), output_(output), isEnabled_(isEnabled) {}

  bool isEnabled() const { return isEnabled_.load(std::memory_order_relaxed); }
  const std::atomic<bool>& enabled() const { return isEnabled_; }

  /// Writes one line: the library's name, the time of day and the rendered `pieces`. The line is
  /// dropped when memory runs out, and on the thread that drives the transfers, where the host's
  /// code may not run: an outcome runs there if it began while the log was disabled. Costs one load
  /// while the log is disabled.
  template <class... Pieces>
  void operator()(const Pieces&... pieces) const {
    if (!isEnabled() || !HostCode::mayRunHere) return;
    dropExceptions([&] {
      std::string message;
      (render(message, pieces), ...);
      write(message);
    });
  }

 private:
  void write(const std::string& message) const;

  const WallClock& clock_;
  StandardOutput& output_;
  const std::atomic<bool>& isEnabled_;
};

}  // namespace veltrano::internal
