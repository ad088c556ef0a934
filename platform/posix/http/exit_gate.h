#pragma once

namespace veltrano::internal {

/// Keeps the library's threads out of libcurl, OpenSSL and the host once the process exits, when
/// what these use may be torn down. Exit waits only for a thread that is in libcurl, and that works
/// without waiting for a peer.
class ExitGate {
 public:
  /// Closes the gate when the process exits, and has OpenSSL leave its state alone then. From any
  /// thread, before a network thread is started.
  static void closeAtExit() noexcept;

  /// Whether the process exits, so that nothing is sent any more.
  static bool isClosed();

  /// Before the host is called: returns at once, or never when the process is exiting.
  static void pass();

  /// Exists while its thread is in libcurl. The constructor and the end of `wait` block for good
  /// when the process is exiting.
  class Inside {
   public:
    Inside() { enter(); }
    ~Inside() { leave(); }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

    /// Calls `function`, for which exit does not wait.
    template <class Function>
    void wait(Function function) {
      leave();
      function();
      enter();
    }
  };

 private:
  static void enter();
  static void leave();
  static void close();
};

}  // namespace veltrano::internal
