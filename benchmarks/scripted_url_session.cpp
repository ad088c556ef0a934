#include "benchmarks/scripted_url_session.h"

#include <thread>
#include <utility>

namespace bench {

ScriptedURLSession::ScriptedURLSession(Answer answer) : answer_(answer) {
  std::thread([this] { answerPosts(); }).detach();
}

void ScriptedURLSession::postData(veltrano::internal::PostRequest request,
                                  veltrano::internal::URLSessionCallback callback) {
  {
    const std::lock_guard lock(mutex_);
    lastBodySize_ = request.httpBody.size();
    posts_.push_back(std::move(callback));
  }
  changed_.notify_all();
}

void ScriptedURLSession::setAnswer(Answer answer) {
  {
    const std::lock_guard lock(mutex_);
    answer_ = answer;
  }
  changed_.notify_all();
}

void ScriptedURLSession::awaitPost() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return !posts_.empty(); });
}

std::size_t ScriptedURLSession::lastBodySize() const {
  const std::lock_guard lock(mutex_);
  return lastBodySize_;
}

void ScriptedURLSession::answerPosts() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [this] { return answer_ != Answer::hang && !posts_.empty(); });
    const auto posts = std::exchange(posts_, {});
    const bool accepts = answer_ == Answer::accept;
    lock.unlock();
    for (const auto& callback : posts) {
      if (accepts)
        callback("", veltrano::internal::URLResponse{200}, std::nullopt);
      else
        callback(std::nullopt, std::nullopt, veltrano::internal::TransportError{"no network"});
    }
    lock.lock();
  }
}

}  // namespace bench
