#pragma once

#include <curl/curl.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "platform/posix/http/call_threads.h"
#include "platform/posix/http/name_lookup.h"
#include "platform/posix/http/transfer.h"
#include "platform/posix/http/url_session.h"
#include "platform/posix/system/system.h"
#include "upload/rules/rests.h"

namespace veltrano::internal {

/// The thread that drives the posts to all endpoints, with one multi handle, and watches the
/// network. It waits for nothing but input and time; what may block or run code of the host is for
/// `CallThreads`:
///
///     waiting --> preparing --> looking up --> sending --> over
///        ^      (interceptor)   (resolver)        |     (report, callback)
///        +------------------- retry --------------+
///
/// An endpoint has one post between waiting and over. A post ends when its time limit expires, at
/// any stage; a stuck interceptor or lookup continues by itself.
class NetworkThread : public std::enable_shared_from_this<NetworkThread> {
 public:
  using Clock = std::chrono::steady_clock;

  explicit NetworkThread(URLSessionOptions options);
  ~NetworkThread();

  /// Starts the threads. Throws std::system_error when that fails.
  void start();

  /// As `ZKURLSessionManager::postData`.
  void post(PostRequest& request, URLSessionCallback& callback) noexcept;
  std::optional<Rest> restOf(EndpointPath path);

  /// As in `PosixURLSession`.
  void ignoreRetryAfter();
  bool shutDown(Clock::time_point deadline);

 private:
  enum class Stage { waiting, preparing, lookingUp, sending };
  struct Post;
  struct Preparation;
  using Posts = std::list<std::unique_ptr<Post>>;

  struct Endpoint {
    EndpointPath path;
    int unfinished = 0;  // posts that have not been called back; guarded by mutex_

    Posts posts;  // network thread, as is what follows
    Post* current = nullptr;
    std::unique_ptr<HTTPTransfer> transfer = {};  // of `current`, while it is being sent
    std::optional<CURLcode> ended = {};           // how the transfer did
  };

  /// What is known about a host's name. Guarded by mutex_.
  struct Name {
    std::string addresses;
    Clock::time_point since;    // of the addresses
    Clock::time_point triedAt;  // the end of the last lookup
    bool isBeingLookedUp = false;
  };

  void run();
  void noteNetwork();
  Clock::time_point step();
  void perform();
  void wait(Clock::time_point until);
  void advance(Endpoint& endpoint);
  bool takeNextStep(Endpoint& endpoint, Post& post);
  std::optional<Rest> restThatPutsOff(Endpoint& endpoint, Post& post);
  void prepare(const Endpoint& endpoint, Post& post);
  void startLookingUp(Post& post);
  CURLcode lookUpNames(Post& post);
  void lookUp(const HostName& host, Name& name);
  CURLcode addAddresses(Post& post, const std::optional<HostName>& host, CURLcode failure);
  CURLcode send(Endpoint& endpoint, Post& post);
  TransferResult endTransfer(Endpoint& endpoint, CURLcode code) noexcept;
  void endAttempt(Endpoint& endpoint, Post& post, TransferResult result);
  void end(std::unique_ptr<Post> post);
  bool callsHost(const PostRequest& request) const;
  void report(const Endpoint& endpoint, const Post& post, const TransferResult& result,
              bool willRetry, const std::optional<Rest>& rest);

  const URLSessionOptions options_;
  const std::shared_ptr<CallThreads> calls_;
  std::atomic<bool> isStopped_{false};  // changed under mutex_
  std::atomic<bool> wasIdle_{false};    // when it was stopped
  std::atomic<bool> ignoresRetryAfter_{false};

  Mutex mutex_;
  std::condition_variable changed_;
  std::optional<WakeUp> wakeUp_ GUARDED_BY(mutex_);
  bool hasOwnDescriptors_ GUARDED_BY(mutex_) = false;
  Posts incoming_ GUARDED_BY(mutex_);
  Posts spare_ GUARDED_BY(mutex_);  // one post made in advance, for when memory runs out
  std::map<std::string, Name> names_ GUARDED_BY(mutex_);
  RestsByPath rests_ GUARDED_BY(mutex_);
  bool isClosed_ GUARDED_BY(mutex_) = false;
  bool isRunning_ GUARDED_BY(mutex_) = false;

  std::array<Endpoint, kEndpointPathCount> endpoints_;

  // Network thread.
  int wakeUpDescriptor_ = -1;
  std::optional<NetworkChanges> networkChanges_;
  bool hasNetworkChanged_ = false;
  std::string interface_;               // of the default route; empty without one
  std::vector<curl_socket_t> sockets_;  // of its connections
  std::unique_ptr<CURLM, CURLMcode (*)(CURLM*)> multi_{nullptr, curl_multi_cleanup};
  // False after a failure to connect: the handle caches the certificate authorities, even those
  // that memory ran out for.
  bool keepsMulti_ = true;
  std::minstd_rand random_;
  bool looksUpHost_;  // in addition to the proxy
};

}  // namespace veltrano::internal
