#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <random>
#include <string_view>

#include "platform/posix/http/name_lookup.h"
#include "platform/posix/http/transfer.h"
#include "platform/posix/http/url_session.h"

namespace veltrano::internal {

/// The posts to one endpoint, on three threads. The first prepares attempts and may block in the
/// interceptor or in a name lookup. The second sends them one at a time. The third calls back, and
/// reports a timeout for a post that is stuck on one of the others.
class Endpoint : public std::enable_shared_from_this<Endpoint> {
 public:
  explicit Endpoint(const URLSessionOptions& options);

  /// Starts the thread that calls back, until `shutDown`. False when no thread can be started.
  bool start();

  /// As `ZKURLSessionManager::postData`.
  void post(PostRequest& request, URLSessionCallback& callback) noexcept;

  /// As `PosixURLSession::ignoreRetryAfter`.
  void ignoreRetryAfter();

  /// New posts fail from now on.
  void close();

  /// As `PosixURLSession::shutDown`; `close` comes first.
  bool shutDown(std::chrono::steady_clock::time_point deadline);

 private:
  using Clock = std::chrono::steady_clock;
  using Lock = std::unique_lock<std::mutex>;
  enum class Stage { preparing, sending, over };

  struct Post {
    PostRequest request;
    URLSessionCallback callback;
    RetryRules rules;
    std::int32_t retries = 0;
    Clock::time_point deadline;  // of the whole request
    Clock::time_point limit;     // when a timeout is reported, even if the post is in use
    Clock::time_point due;       // when the stage may start
    Clock::time_point began;     // when the stage's thread took the post
    Clock::duration spent{};     // in the earlier stages of this attempt
    Stage stage = Stage::preparing;
    bool isInUse = false;     // by the stage's thread, without the lock
    bool isReported = false;  // called back; removed once it is no longer in use
    Attempt attempt;
    TransferResult result;
  };
  using Posts = std::list<Post>;

  bool ensureThread(bool& isRunning, std::string_view name, void (Endpoint::*work)());
  void endThread(bool& isRunning, std::string_view name, void (Endpoint::*work)());
  void prepareAttempts();
  void sendAttempts();
  void reportOutcomes();

  Post* take(Lock& lock, Stage stage);
  void putBack(Lock& lock, Post& post, Stage next);
  CURLcode prepare(Post& post);
  CURLcode lookUp(Post& post);
  Stage settle(Post& post, TransferResult result);
  std::list<TransferReport> reportsOf(const Post& post, const TransferResult& result,
                                      bool willRetry) const;
  bool reportTransfer(Lock& lock);
  bool reportOutcome(Lock& lock, Posts::iterator post);
  Posts::iterator unreported();
  URLSessionCallback takeCallback(Posts::iterator post, Post& removed);
  Post remove(Posts::iterator post);
  bool isFinished();
  void wait(Lock& lock, Clock::time_point until);

  const URLSessionOptions options_;
  NameLookup names_;                    // preparing thread
  std::atomic<bool> isStopped_{false};  // changed under mutex_

  std::mutex mutex_;  // guards everything below
  std::condition_variable changed_;
  Posts posts_;
  Posts spare_;                        // one node, for a post that arrives when memory runs out
  std::list<TransferReport> reports_;  // for the host, oldest first
  std::minstd_rand random_;
  bool looksUpHost_;  // in addition to the proxy
  bool ignoresRetryAfter_ = false;
  bool isClosed_ = false;
  bool isSilent_ = false;  // no more callbacks
  bool isCallingBack_ = false;
  bool preparerRuns_ = false;
  bool senderRuns_ = false;
  bool reporterRuns_ = false;
};

}  // namespace veltrano::internal
