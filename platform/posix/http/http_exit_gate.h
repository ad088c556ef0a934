// Keeps network threads out of libcurl and OpenSSL once the process exits, when what these use may
// be torn down.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace veltrano {

/// What one network thread passes whenever it is about to do something. Never destroyed once open.
class ExitGate {
 public:
  virtual ~ExitGate() = default;

  /// Has OpenSSL leave its state alone at exit and registers the gate, which is closed at exit. For
  /// the thread that makes the network thread, before it does.
  void open();

  /// For the network thread: returns at once, or never when the process is exiting.
  void pass();

 protected:
  /// Makes the network thread, should it be waiting, come to the gate soon. From any thread.
  virtual void wake() = 0;

 private:
  static void closeAll();

  void park();
  void waitUntilParked(std::chrono::steady_clock::time_point deadline);

  std::atomic<bool> closed_{false};
  std::mutex mutex_;
  std::condition_variable parkedChanged_;
  bool parked_ = false;       // guarded by mutex_
  ExitGate* next_ = nullptr;  // set before the gate is registered
};

}  // namespace veltrano
