#include "test_kit/threaded_platform.h"

#include <algorithm>

#include "platform/host_callback.h"

namespace veltrano::testing {

void ThreadedQueue::async(std::unique_ptr<internal::Block> block) {
  {
    const std::lock_guard lock(mutex_);
    if (!mainThread_.isCurrent() || !submissions_.empty()) {
      submissions_.push_back({std::move(block), {}, nullptr});
      return;
    }
  }
  queue_.async(std::move(block));
}

void ThreadedQueue::asyncAfter(Duration delay, std::shared_ptr<internal::WorkItem> item) {
  {
    const std::lock_guard lock(mutex_);
    if (!mainThread_.isCurrent() || !submissions_.empty()) {
      submissions_.push_back({nullptr, delay, std::move(item)});
      return;
    }
  }
  queue_.asyncAfter(delay, std::move(item));
}

bool ThreadedQueue::isNewest(const internal::Block& block) const {
  const std::lock_guard lock(mutex_);
  if (!submissions_.empty()) return submissions_.back().block.get() == &block;
  return mainThread_.isCurrent() && queue_.isNewest(block);
}

bool ThreadedQueue::takeSubmissions(Duration now) {
  // Threads that submit faster than this takes would hold the time for ever.
  constexpr std::size_t kPerInstant = 1'000;
  const bool isFirst = std::exchange(latestTaken_, now) != now;
  if (isFirst) takenAgain_ = 0;
  if (takenAgain_ > kPerInstant) return false;
  std::deque<Submission> taken;
  {
    const std::lock_guard lock(mutex_);
    taken.swap(submissions_);
  }
  if (!isFirst) takenAgain_ += taken.size();
  for (Submission& submission : taken) {
    if (submission.block != nullptr)
      queue_.async(std::move(submission.block));
    else
      queue_.asyncAfter(submission.delay, std::move(submission.item));
  }
  return !taken.empty();
}

void ThreadedNotifications::addObserver(std::string_view name, std::function<void()> observer) {
  bool isFirst = false;
  {
    const std::lock_guard lock(mutex_);
    isFirst = !std::exchange(isUsed_, true);
  }
  if (isFirst) onFirstUse();
  const std::lock_guard lock(mutex_);
  observers_[std::string(name)].push_back(std::move(observer));
}

void ThreadedNotifications::post(const std::string& name) {
  std::vector<std::function<void()>> called;
  {
    const std::lock_guard lock(mutex_);
    if (const auto registered = observers_.find(name); registered != observers_.end())
      called = registered->second;
  }
  for (const auto& observer : called) observer();
}

void ThreadedNotifications::drop() {
  const std::lock_guard lock(mutex_);
  observers_.clear();
}

std::shared_ptr<internal::Timer> ThreadedTimers::schedule(Duration delay, Duration tolerance,
                                                          std::function<void()> action) {
  // As in production, a timer that reschedules itself fires at most once per tolerance.
  if (mainThread_.isCurrent())
    return timers_.schedule(std::max(delay, tolerance), tolerance, std::move(action));
  onLostTimer();
  return std::make_shared<internal::Timer>();
}

void ThreadedNetwork::postData(internal::PostRequest request,
                               internal::URLSessionCallback callback) {
  const Answer answer = choose_(request);
  const std::uint64_t number = posts_++;
  underWay_.emplace(
      number, Post{request.path(), request.httpBody.size(), timeline_.now(), std::move(callback)});
  timeline_.schedule(answer.latency, [this, number, answer] { finish(number, answer); });
}

void ThreadedNetwork::finish(std::uint64_t number, const Answer& answer) {
  const auto node = underWay_.extract(number);
  if (node.empty()) return;
  const Post& post = node.mapped();
  arrive_(post, answer);
  if (answer.isTransportError)
    post.callback(std::nullopt, std::nullopt, internal::TransportError{"simulated"});
  else
    post.callback(answer.body, internal::URLResponse{answer.status}, std::nullopt);
}

void ThreadedNetwork::fail() {
  Answer failure;
  failure.isTransportError = true;
  while (!isIdle()) finish(underWay_.begin()->first, failure);
}

void ThreadedNetwork::drop() {
  // One at a time: destroying a callback might post again.
  while (!underWay_.empty()) underWay_.extract(underWay_.begin());
}

std::optional<std::string> ThreadedToken::sessionToken() const {
  std::optional<std::string> token;
  if (function) internal::callHost([&] { token = function(); });
  return token;
}

}  // namespace veltrano::testing
