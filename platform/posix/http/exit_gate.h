#pragma once

namespace veltrano::internal {

/// Keeps the library's threads out of libcurl, OpenSSL and the host's code while the process exits
/// and their state may be destroyed. Exit waits only for a thread inside libcurl, which never waits
/// for a peer there.
class ExitGate {
 public:
  /// Registers the gate to close at exit, and keeps OpenSSL from cleaning up then. Thread-safe;
  /// call it before starting a network thread.
  static void closeAtExit() noexcept;

  /// Whether the process exits, so that nothing is sent any more.
  static bool isClosed();

  /// Call before calling the host. Returns at once, or never while the process exits.
  static void pass();

  /// Exists while its thread is inside libcurl. The constructor and the end of `wait` never return
  /// while the process exits.
  class Inside {
   public:
    Inside() { enter(); }
    ~Inside() { leave(); }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

    /// Calls `function` outside the gate: exit does not wait for it.
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
