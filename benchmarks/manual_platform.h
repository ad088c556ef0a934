// A work queue and a network that run only on request, so that the work for one event can be timed.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <utility>

#include "platform/url_session.h"
#include "platform/work_queue.h"

namespace bench {

/// Keeps a post until it is answered. Not thread-safe.
class ManualURLSession final : public veltrano::internal::ZKURLSessionManager {
 public:
  void postData(veltrano::internal::PostRequest request,
                veltrano::internal::URLSessionCallback callback) override {
    request_ = std::move(request);
    callback_ = std::move(callback);
  }

  const std::string& body() const { return request_.httpBody; }

  /// Fails the post, if there is one.
  void refuse() {
    const auto callback = std::exchange(callback_, nullptr);
    if (callback)
      callback(std::nullopt, std::nullopt, veltrano::internal::TransportError{"no network"});
  }

 private:
  veltrano::internal::PostRequest request_;
  veltrano::internal::URLSessionCallback callback_;
};

/// Drops delayed work. Not thread-safe.
class ManualWorkQueue final : public veltrano::internal::WorkQueue {
 public:
  explicit ManualWorkQueue(ManualURLSession& session) : session_(session) {}

  using WorkQueue::async;
  void async(std::unique_ptr<veltrano::internal::Block> block) override {
    blocks_.push_back(std::move(block));
  }

  void asyncAfter(veltrano::internal::Duration delay,
                  std::shared_ptr<veltrano::internal::WorkItem> item) override {
    if (delay <= veltrano::internal::Duration::zero())
      async([item = std::move(item)] { item->run(); });
  }

  /// The queue only ever waits for the network, which fails at once.
  void wait(veltrano::internal::DispatchGroup& group, std::function<void()> then) override {
    session_.refuse();
    group.notify(std::move(then));
  }

  void runAll() {
    while (!blocks_.empty()) {
      const auto block = std::move(blocks_.front());
      blocks_.pop_front();
      block->run();
    }
  }

 private:
  ManualURLSession& session_;
  std::deque<std::unique_ptr<veltrano::internal::Block>> blocks_;
};

}  // namespace bench
