#pragma once

namespace veltrano::internal {

/// Keeps the library's threads out of the host's code, libcurl and OpenSSL while the process exits
/// and their state may be destroyed. Exit waits for the threads inside, two seconds at most. Code
/// of the host passes through `HostCode`, libcurl and OpenSSL through `Inside`.
class ExitGate {
 public:
  /// Registers the gate to close at exit. Thread-safe; call it before starting a thread. Throws
  /// std::bad_alloc if memory runs out; the next call then tries again.
  static void closeAtExit();

  /// Exists while its thread is inside libcurl or OpenSSL, which never wait for a peer there. Forks
  /// wait for it, too: a child must not inherit locks of theirs. The constructor and the end of
  /// `wait` never return while the process exits.
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
