#include "platform/posix/http/endpoint.h"

#include <algorithm>
#include <utility>

#include "platform/host_callback.h"
#include "platform/posix/http/client.h"
#include "platform/posix/http/exit_gate.h"
#include "platform/posix/http/request_text.h"
#include "platform/posix/system/background_thread.h"

namespace veltrano::internal {
namespace {

constexpr std::size_t kMaxPosts = 256;    // later ones fail
constexpr std::size_t kMaxReports = 256;  // later ones are dropped while the host is slow
// How long after its deadline a transfer that libcurl has not ended is reported as timed out.
constexpr std::chrono::milliseconds kGrace{250};

URLRequest outgoingRequest(const PostRequest& post) {
  URLRequest request{urlWithQuery(post.baseURL, post.qsParameters), post.headerParameters};
  if (!post.interceptor) return request;
  URLRequest intercepted = request;
  bool isIntercepted = false;
  dropExceptions([&] {
    post.interceptor->intercept(intercepted);
    isIntercepted = true;
  });
  return isIntercepted ? intercepted : request;
}

std::string reasonOf(const TransferResult& result) {
  const bool isPlain = result.error == CURLE_OK || !result.reason.empty();
  return isPlain ? result.reason : curl_easy_strerror(result.error);
}

TransportError transportError(const TransferResult& result) noexcept {
  try {
    return {reasonOf(result)};
  } catch (...) {
    return {"out of memory"};  // short enough not to allocate
  }
}

void callBack(const URLSessionCallback& callback, TransferResult& result) {
  std::optional<std::string> data;
  std::optional<URLResponse> response;
  std::optional<TransportError> error;
  if (result.attempt.httpStatusCode) response = URLResponse{result.attempt.httpStatusCode};
  if (result.error == CURLE_OK) {
    data = std::move(result.body);
  } else {
    error = transportError(result);
  }
  dropExceptions([&] { callback(std::move(data), response, std::move(error)); });
}

}  // namespace

Endpoint::Endpoint(const URLSessionOptions& options)
    : options_(options),
      spare_(1),
      random_(static_cast<unsigned>(Clock::now().time_since_epoch().count())),
      looksUpHost_(options.proxy.empty()) {}

bool Endpoint::start() {
  const std::lock_guard lock(mutex_);
  return ensureThread(reporterRuns_, "veltrano.reply", &Endpoint::reportOutcomes);
}

void Endpoint::post(PostRequest& request, URLSessionCallback& callback) noexcept {
  ExitGate::closeAtExit();
  Posts added;
  try {
    added.emplace_back();
  } catch (...) {
    // Out of memory; there may be a spare one.
  }
  {
    const std::lock_guard lock(mutex_);
    if (isStopped_) return;  // nobody would report it
    CURLcode failure = CURLE_OK;
    const bool canReport = ensureThread(reporterRuns_, "veltrano.reply", &Endpoint::reportOutcomes);
    if (canReport && added.empty()) {
      added.splice(added.end(), spare_);
      failure = CURLE_OUT_OF_MEMORY;
    }
    if (canReport && !added.empty()) {
      if (isClosed_ || posts_.size() >= kMaxPosts) failure = CURLE_NO_CONNECTION_AVAILABLE;
      if (failure == CURLE_OK &&
          !(ensureThread(preparerRuns_, "veltrano.prep", &Endpoint::prepareAttempts) &&
            ensureThread(senderRuns_, "veltrano.net", &Endpoint::sendAttempts)))
        failure = CURLE_FAILED_INIT;
      Post& post = added.back();
      post.callback = std::move(callback);
      if (failure == CURLE_OK) {
        post.due = Clock::now();
        post.limit = post.deadline = post.due + options_.requestTimeout;
        post.rules.firstBackOff = options_.firstBackOff;
        if (request.maxRetries) post.rules.maxRetries = *request.maxRetries;
        if (request.dontRetryStatusCodesSet)
          post.rules.dontRetryStatusCodes = std::move(*request.dontRetryStatusCodesSet);
        post.request = std::move(request);
      } else {
        post.stage = Stage::over;
        post.result.error = failure;
      }
      posts_.splice(posts_.end(), added);
      changed_.notify_all();
      return;
    }
  }
  // Without memory or a thread, the callback cannot be deferred.
  TransferResult result{{}, {}, CURLE_OUT_OF_MEMORY};
  callBack(callback, result);
}

void Endpoint::ignoreRetryAfter() {
  const std::lock_guard lock(mutex_);
  ignoresRetryAfter_ = true;
  const auto latest = Clock::now() + options_.firstBackOff;
  for (Post& post : posts_) post.due = std::min(post.due, latest);
  changed_.notify_all();
}

void Endpoint::close() {
  const std::lock_guard lock(mutex_);
  isClosed_ = true;
}

bool Endpoint::shutDown(Clock::time_point deadline) {
  Lock lock(mutex_);
  const bool isComplete = changed_.wait_until(lock, deadline, [&] { return isFinished(); });
  isStopped_ = true;  // the remaining posts fail now
  changed_.notify_all();
  changed_.wait_until(lock, Clock::now() + kGrace, [&] {
    return isFinished() && !preparerRuns_ && !senderRuns_ && !reporterRuns_;
  });
  isSilent_ = true;
  // The host's code still runs on the reporting thread. What waits for it is dropped.
  for (auto post = unreported(); post != posts_.end(); post = unreported()) {
    Post removed;
    URLSessionCallback callback = takeCallback(post, removed);
    lock.unlock();
    callback = nullptr;
    removed = Post();
    lock.lock();
  }
  return isComplete;
}

// Starts the thread unless it is running. Called with mutex_ held.
bool Endpoint::ensureThread(bool& isRunning, std::string_view name, void (Endpoint::*work)()) {
  if (isRunning || isStopped_) return isRunning;
  try {
    isRunning = startBackgroundThread(name, [self = shared_from_this(), &isRunning, name, work] {
      struct End {
        ~End() { endpoint.endThread(isRunning, name, work); }
        Endpoint& endpoint;
        bool& isRunning;
        const std::string_view name;
        void (Endpoint::*const work)();
      };
      const End end{*self, isRunning, name, work};
      (self.get()->*work)();
    });
  } catch (const std::bad_alloc&) {
    // The next post tries again.
  }
  return isRunning;
}

// Replaces a thread that the host's code ended with pthread_exit.
void Endpoint::endThread(bool& isRunning, std::string_view name, void (Endpoint::*work)()) {
  if (isForkedChild()) return;
  const std::lock_guard lock(mutex_);
  isRunning = false;
  ensureThread(isRunning, name, work);
  changed_.notify_all();
}

void Endpoint::prepareAttempts() {
  Lock lock(mutex_);
  while (Post* const post = take(lock, Stage::preparing)) {
    post->spent = {};
    lock.unlock();
    TransferResult result;
    result.error = prepare(*post);
    if (isForkedChild()) return;  // the interceptor forked, and this is the child
    result.attempt.failedToConnect =
        result.error == CURLE_COULDNT_RESOLVE_HOST || result.error == CURLE_COULDNT_RESOLVE_PROXY;
    lock.lock();
    if (result.error != CURLE_OK) {
      putBack(lock, *post, settle(*post, std::move(result)));
    } else {
      post->spent = Clock::now() - post->began;
      putBack(lock, *post, Stage::sending);
    }
  }
}

void Endpoint::sendAttempts() {
  HTTPClient client(options_);
  Lock lock(mutex_);
  while (Post* const post = take(lock, Stage::sending)) {
    post->attempt.deadline = std::min(post->deadline, Clock::now() + options_.attemptTimeout);
    post->limit = post->attempt.deadline + kGrace;
    changed_.notify_all();
    lock.unlock();
    TransferResult result;
    try {
      result = client.send(post->attempt, isStopped_);
    } catch (const std::exception&) {
      result.error = CURLE_OUT_OF_MEMORY;
    }
    lock.lock();
    putBack(lock, *post, settle(*post, std::move(result)));
  }
}

void Endpoint::reportOutcomes() {
  Lock lock(mutex_);
  isCallingBack_ = false;
  while (!isSilent_) {
    const auto now = Clock::now();
    auto wakeUp = Clock::time_point::max();
    const auto next = std::find_if(posts_.begin(), posts_.end(), [&](const Post& post) {
      if (post.isReported) return false;
      wakeUp = std::min(wakeUp, post.limit);
      return post.stage == Stage::over || post.limit <= now || isStopped_;
    });
    if (!reports_.empty()) {
      if (!reportTransfer(lock)) return;
    } else if (next != posts_.end()) {
      if (!reportOutcome(lock, next)) return;
    } else if (isStopped_) {
      return;
    } else {
      wait(lock, wakeUp);
    }
  }
}

// Waits for the next post that is due in `stage`. The calling thread may use it without the lock.
// Null when the thread must end.
Endpoint::Post* Endpoint::take(Lock& lock, Stage stage) {
  while (!isStopped_) {
    const auto now = Clock::now();
    auto wakeUp = Clock::time_point::max();
    for (Post& post : posts_) {
      if (post.stage != stage || post.isInUse || post.isReported) continue;
      if (post.due <= now) {
        post.began = now;
        post.isInUse = true;
        return &post;
      }
      wakeUp = std::min(wakeUp, post.due);
    }
    wait(lock, wakeUp);
  }
  return nullptr;
}

void Endpoint::putBack(Lock& lock, Post& post, Stage next) {
  post.isInUse = false;
  post.stage = next;
  post.limit = post.deadline;
  if (post.isReported) {
    const auto isThis = [&](const Post& other) { return &other == &post; };
    Post removed = remove(std::find_if(posts_.begin(), posts_.end(), isThis));
    lock.unlock();
    removed = Post();
    lock.lock();
  }
  changed_.notify_all();
}

CURLcode Endpoint::prepare(Post& post) {
  try {
    ExitGate::pass();
    post.attempt.request = outgoingRequest(post.request);
    if (isForkedChild()) return CURLE_OK;
    post.attempt.method = post.request.httpMethod;
    post.attempt.body = &post.request.httpBody;
    return lookUp(post);
  } catch (const std::exception&) {
    return CURLE_OUT_OF_MEMORY;
  }
}

CURLcode Endpoint::lookUp(Post& post) {
  bool looksUpHost = true;
  {
    const std::lock_guard lock(mutex_);
    post.limit = std::min(post.deadline, Clock::now() + options_.connectTimeout);
    changed_.notify_all();
    looksUpHost = looksUpHost_;
  }
  auto& addresses = post.attempt.addresses;
  addresses.clear();
  if (!options_.proxy.empty()) {
    const bool isHTTPS = options_.proxy.rfind("https:", 0) == 0;
    auto found = names_.addresses(options_.proxy, isHTTPS ? "443" : "1080");
    if (!found) return CURLE_COULDNT_RESOLVE_PROXY;
    addresses.push_back(*std::move(found));
  }
  if (looksUpHost) {
    auto found = names_.addresses(post.request.baseURL, "443");
    if (!found) return CURLE_COULDNT_RESOLVE_HOST;
    addresses.push_back(*std::move(found));
  }
  return CURLE_OK;
}

// The stage that follows an attempt. Called with mutex_ held.
Endpoint::Stage Endpoint::settle(Post& post, TransferResult result) {
  const auto now = Clock::now();
  if (result.lacksAddresses && !std::exchange(looksUpHost_, true)) return Stage::preparing;
  if (ignoresRetryAfter_) result.attempt.retryAfter.reset();
  const double random = std::uniform_real_distribution<double>(0, 1)(random_);
  const auto timeLeft = std::chrono::duration_cast<Duration>(post.deadline - now);
  if (const auto delay =
          delayBeforeRetry(result.attempt, post.rules, post.retries, timeLeft, random)) {
    reports_.splice(reports_.end(), reportsOf(post, result, true));
    ++post.retries;
    post.due = now + *delay;
    return Stage::preparing;
  }
  reports_.splice(reports_.end(), reportsOf(post, result, false));
  post.result = std::move(result);
  return Stage::over;
}

// The report on an attempt, if the host wants one. Called with mutex_ held.
std::list<TransferReport> Endpoint::reportsOf(const Post& post, const TransferResult& result,
                                              bool willRetry) const {
  std::list<TransferReport> reports;
  if (!options_.onTransfer || post.isReported || reports_.size() >= kMaxReports) return reports;
  const auto spent = post.spent + (post.isInUse ? Clock::now() - post.began : Clock::duration());
  dropExceptions([&] {
    TransferReport report;
    report.path = post.request.path();
    report.attempt = post.retries + 1;
    report.duration = std::chrono::duration_cast<std::chrono::microseconds>(spent);
    report.bytesSent = result.bytesSent;
    report.bytesReceived = result.bytesReceived;
    report.status = result.attempt.httpStatusCode.value_or(0);
    report.reason = reasonOf(result);
    report.willRetry = willRetry;
    reports.push_back(std::move(report));
  });
  return reports;
}

// Calls the host with the oldest report. False in a child that the callback forked.
bool Endpoint::reportTransfer(Lock& lock) {
  std::list<TransferReport> taken;
  taken.splice(taken.end(), reports_, reports_.begin());
  isCallingBack_ = true;
  lock.unlock();
  ExitGate::pass();
  if (!callHost(options_.onTransfer, taken.front())) return false;
  lock.lock();
  isCallingBack_ = false;
  changed_.notify_all();
  return true;
}

// False in a child that the callback forked.
bool Endpoint::reportOutcome(Lock& lock, Posts::iterator post) {
  std::list<TransferReport> reports;
  TransferResult result;
  if (post->stage == Stage::over) {
    result = std::move(post->result);
  } else {
    result.error = CURLE_OPERATION_TIMEDOUT;
    reports = reportsOf(*post, result, false);
  }
  Post removed;
  URLSessionCallback callback = takeCallback(post, removed);
  isCallingBack_ = true;
  lock.unlock();

  ExitGate::pass();
  for (const TransferReport& report : reports)
    if (!callHost(options_.onTransfer, report)) return false;
  callBack(callback, result);
  callback = nullptr;
  removed = Post();
  if (isForkedChild()) return false;
  lock.lock();
  isCallingBack_ = false;
  changed_.notify_all();
  return true;
}

// Called with mutex_ held.
Endpoint::Posts::iterator Endpoint::unreported() {
  return std::find_if(posts_.begin(), posts_.end(),
                      [](const Post& post) { return !post.isReported; });
}

// Marks the post as reported and returns its callback. Moves the post to `removed` unless its
// thread still uses it. Destroy both without the lock. Called with mutex_ held.
URLSessionCallback Endpoint::takeCallback(Posts::iterator post, Post& removed) {
  URLSessionCallback callback = std::move(post->callback);
  post->isReported = true;
  if (!post->isInUse) removed = remove(post);
  return callback;
}

// Removes a post. The caller destroys it without the lock. Called with mutex_ held.
Endpoint::Post Endpoint::remove(Posts::iterator post) {
  Post removed = std::exchange(*post, Post());
  if (spare_.empty()) {
    spare_.splice(spare_.end(), posts_, post);
  } else {
    posts_.erase(post);
  }
  return removed;
}

// Called with mutex_ held.
bool Endpoint::isFinished() {
  return !isCallingBack_ && reports_.empty() && unreported() == posts_.end();
}

void Endpoint::wait(Lock& lock, Clock::time_point until) {
  if (until == Clock::time_point::max()) {
    changed_.wait(lock);
  } else {
    changed_.wait_until(lock, until);
  }
}

}  // namespace veltrano::internal
