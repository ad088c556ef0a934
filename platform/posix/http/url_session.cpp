#include "platform/posix/http/url_session.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/posix/http/http_exit_gate.h"
#include "platform/posix/http/http_transfer.h"
#include "platform/posix/http/http_url.h"
#include "platform/posix/threads/background_thread.h"
#include "platform/posix/threads/fork.h"

namespace veltrano {
namespace {

using Clock = std::chrono::steady_clock;

constexpr Duration kRequestTimeout = std::chrono::seconds(60);  // with all retries
// At a time, each perhaps on a connection of its own. No more than libcurl is ready to find dead,
// one after the other, before it gives a transfer up.
constexpr std::size_t kMostTransfers = 4;
constexpr std::size_t kMostPosts = 256;  // later ones fail

/// One post on its way to its outcome.
struct Post {
  ~Post() {
    // Lost for want of memory: whoever waits for the outcome must not wait for ever.
    if (callback && !isForkedChild()) report(TransferResult{{}, {}, CURLE_OUT_OF_MEMORY});
  }

  /// Calls back, the first time only.
  void report(TransferResult result) noexcept {
    const auto call = std::exchange(callback, nullptr);
    if (!call) return;
    try {
      if (const auto status = result.attempt.httpStatusCode) {
        call(std::move(result.body), URLResponse{status}, std::nullopt);
      } else {
        call(std::nullopt, std::nullopt, TransportError{curl_easy_strerror(result.error)});
      }
    } catch (...) {
      // The host's affair.
    }
  }

  PostRequest request;
  URLSessionCallback callback;
  RetryRules rules;
  Clock::time_point deadline;
  Clock::time_point due;  // of the next attempt
  std::int32_t retries = 0;
  std::unique_ptr<HTTPTransfer> transfer;  // the attempt that runs
};

Duration timeFrom(Clock::time_point now, Clock::time_point later) {
  return std::chrono::duration_cast<Duration>(later - now);
}

URLRequest outgoingRequest(const PostRequest& post) {
  URLRequest request{urlWithQuery(post.baseURL, post.qsParameters), post.headerParameters};
  if (!post.interceptor) return request;
  try {
    URLRequest intercepted = request;
    post.interceptor->intercept(intercepted);
    return intercepted;
  } catch (...) {
    return request;  // as if there was no token
  }
}

}  // namespace

/// The network thread and what it works on.
class PosixURLSession::Network final : public ExitGate {
 public:
  explicit Network(URLSessionOptions options) : options_(std::move(options)) {}

  /// From any thread.
  void add(std::unique_ptr<Post> post);

  /// Whether a post has come, so that threads and the process's end count on this object.
  bool isInUse() {
    const std::lock_guard lock(mutex_);
    return opened_;
  }

  const URLSessionOptions& options() const { return options_; }

 private:
  void wake() override;

  void run();
  void work();
  void takeIncoming();
  void settleFinished();
  void settle(std::unique_ptr<Post> post, TransferResult result);
  Clock::time_point startWhatIsDue();
  void start(std::unique_ptr<Post> post);
  void finish(std::unique_ptr<Post> post, TransferResult result);
  void waitUntil(Clock::time_point wakeUp);

  const URLSessionOptions options_;
  std::atomic<CURLM*> multi_{nullptr};  // set once, by the network thread

  std::mutex mutex_;
  std::vector<std::unique_ptr<Post>> incoming_;  // guarded by mutex_
  bool started_ = false;                         // guarded by mutex_
  bool opened_ = false;                          // guarded by mutex_

  // For the network thread alone.
  HTTPSockets sockets_;
  std::deque<std::unique_ptr<Post>> waiting_;  // for their next attempt
  std::unordered_map<CURL*, std::unique_ptr<Post>> running_;
  std::minstd_rand random_;
};

void PosixURLSession::Network::add(std::unique_ptr<Post> post) {
  {
    const std::lock_guard lock(mutex_);
    incoming_.push_back(std::move(post));
    if (!started_) {
      if (!opened_) open();
      opened_ = true;
      // Without a thread now, the next post tries again.
      started_ = startBackgroundThread("veltrano.net", [this] { run(); });
    }
  }
  wake();
}

void PosixURLSession::Network::wake() {
  if (CURLM* const multi = multi_.load()) curl_multi_wakeup(multi);
}

void PosixURLSession::Network::run() {
  pass();
  curl_global_init(CURL_GLOBAL_DEFAULT);  // when this fails, so does every transfer's set-up
  CURLM* multi;
  while (!(multi = curl_multi_init())) {
    pass();
    std::this_thread::sleep_for(std::chrono::seconds(1));  // memory is short
  }
  multi_.store(multi);
  random_.seed(static_cast<unsigned>(Clock::now().time_since_epoch().count()));
  while (!isForkedChild()) {  // a callback may have forked, and gone on in the child
    try {
      work();
    } catch (...) {
      // Memory is short.
    }
  }
}

void PosixURLSession::Network::work() {
  takeIncoming();
  pass();
  if (isForkedChild()) return;
  int running;
  curl_multi_perform(multi_, &running);
  settleFinished();
  const auto wakeUp = startWhatIsDue();
  pass();
  if (!isForkedChild()) waitUntil(wakeUp);
}

void PosixURLSession::Network::takeIncoming() {
  std::vector<std::unique_ptr<Post>> incoming;
  {
    const std::lock_guard lock(mutex_);
    incoming.swap(incoming_);
  }
  for (auto& post : incoming) {
    if (isForkedChild()) return;
    if (waiting_.size() + running_.size() < kMostPosts) {
      waiting_.push_back(std::move(post));
    } else {
      finish(std::move(post), TransferResult{{}, {}, CURLE_NO_CONNECTION_AVAILABLE});
    }
  }
}

void PosixURLSession::Network::settleFinished() {
  int left;
  while (!isForkedChild()) {
    const CURLMsg* const message = curl_multi_info_read(multi_, &left);
    if (message == nullptr) break;
    if (message->msg != CURLMSG_DONE) continue;
    CURL* const easy = message->easy_handle;
    const CURLcode code = message->data.result;  // the message goes with the next call
    curl_multi_remove_handle(multi_, easy);
    auto post = std::move(running_.extract(easy).mapped());
    auto result = post->transfer->result(code);
    post->transfer.reset();
    settle(std::move(post), std::move(result));
  }
}

void PosixURLSession::Network::settle(std::unique_ptr<Post> post, TransferResult result) {
  const auto now = Clock::now();
  const double random = std::uniform_real_distribution<double>(0, 1)(random_);
  const auto delay = delayBeforeRetry(result.attempt, post->rules, post->retries,
                                      timeFrom(now, post->deadline), random);
  if (!delay) return finish(std::move(post), std::move(result));
  ++post->retries;
  post->due = now + *delay;
  waiting_.push_back(std::move(post));
}

/// Returns when to come back, should no transfer end before.
Clock::time_point PosixURLSession::Network::startWhatIsDue() {
  auto wakeUp = Clock::time_point::max();
  for (auto left = waiting_.size(); left > 0 && !isForkedChild(); --left) {
    auto post = std::move(waiting_.front());
    waiting_.pop_front();
    const auto now = Clock::now();
    const bool hasRoom = running_.size() < kMostTransfers;
    if (post->deadline <= now) {
      finish(std::move(post), TransferResult{{}, {}, CURLE_OPERATION_TIMEDOUT});
    } else if (hasRoom && post->due <= now) {
      start(std::move(post));
    } else {
      wakeUp = std::min(wakeUp, hasRoom ? post->due : post->deadline);
      waiting_.push_back(std::move(post));
    }
  }
  return wakeUp;
}

void PosixURLSession::Network::start(std::unique_ptr<Post> post) {
  pass();
  try {
    URLRequest request = outgoingRequest(post->request);
    if (isForkedChild()) return;
    post->transfer = std::make_unique<HTTPTransfer>(
        sockets_, options_, std::move(request), post->request.httpMethod, post->request.httpBody,
        timeFrom(Clock::now(), post->deadline));
    CURL* const easy = post->transfer->handle();
    if (easy && curl_multi_add_handle(multi_, easy) == CURLM_OK) {
      running_.emplace(easy, std::move(post));
      return;
    }
  } catch (...) {
    // Memory is short.
  }
  if (post) finish(std::move(post), TransferResult{{}, {}, CURLE_FAILED_INIT});
}

void PosixURLSession::Network::finish(std::unique_ptr<Post> post, TransferResult result) {
  pass();
  post->report(std::move(result));
}

void PosixURLSession::Network::waitUntil(Clock::time_point wakeUp) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(wakeUp - Clock::now()).count();
  const auto timeout = std::clamp<decltype(left)>(left, 0, std::numeric_limits<int>::max());
  if (curl_multi_poll(multi_, nullptr, 0, static_cast<int>(timeout), nullptr) != CURLM_OK)
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // rather than spin
}

PosixURLSession::PosixURLSession(URLSessionOptions options)
    : network_(*new Network(std::move(options))) {}

PosixURLSession::~PosixURLSession() {
  if (!network_.isInUse()) delete &network_;
}

void PosixURLSession::postData(PostRequest request, URLSessionCallback callback) {
  watchForks();
  if (isForkedChild()) return;

  auto post = std::make_unique<Post>();
  post->due = Clock::now();
  post->deadline = post->due + kRequestTimeout;
  post->rules.firstBackOff = network_.options().firstBackOff;
  if (request.maxRetries) post->rules.maxRetries = *request.maxRetries;
  if (request.dontRetryStatusCodesSet)
    post->rules.dontRetryStatusCodes = std::move(*request.dontRetryStatusCodesSet);
  post->request = std::move(request);
  post->callback = std::move(callback);
  network_.add(std::move(post));
}

}  // namespace veltrano
