// A work queue and a network that run only when they are told to, so that what one event costs
// there can be timed by itself.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <utility>

#include "platform/url_session.h"
#include "platform/work_queue.h"

namespace bench {

/// Keeps each post until it is answered. For one thread.
class ManualURLSession final : public veltrano::internal::ZKURLSessionManager {
 public:
  void postData(veltrano::internal::PostRequest request,
                veltrano::internal::URLSessionCallback callback) override {
    request_ = std::move(request);
    callback_ = std::move(callback);
  }

  const std::string& body() const { return request_.httpBody; }

  /// Lets the post fail when there is one.
  void refuse() {
    const auto callback = std::exchange(callback_, nullptr);
    if (callback)
      callback(std::nullopt, std::nullopt, veltrano::internal::TransportError{"no network"});
  }

 private:
  veltrano::internal::PostRequest request_;
  veltrano::internal::URLSessionCallback callback_;
};

/// Drops work that is to wait. For one thread.
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

  /// What the queue waits for is the network, which fails at once.
  void wait(std::shared_ptr<veltrano::internal::DispatchGroup> group,
            std::function<void()> then) override {
    session_.refuse();
    group->wait();
    then();
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
