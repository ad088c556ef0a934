#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

#include "platform/url_session.h"

namespace bench {

/// A network without latency: answers at once, on its own thread, or holds its answers back until
/// told to continue. Never destroyed.
class ScriptedURLSession final : public veltrano::internal::ZKURLSessionManager {
 public:
  enum class Answer { accept, refuse, hang };

  explicit ScriptedURLSession(Answer answer);

  void postData(veltrano::internal::PostRequest request,
                veltrano::internal::URLSessionCallback callback) override;

  /// Applies to pending posts, too.
  void setAnswer(Answer answer);

  /// Blocks until a post is pending.
  void awaitPost();

  std::size_t lastBodySize() const;

 private:
  void answerPosts();

  mutable std::mutex mutex_;  // guards everything below
  std::condition_variable changed_;
  Answer answer_;
  std::vector<veltrano::internal::URLSessionCallback> posts_;
  std::size_t lastBodySize_ = 0;
};

}  // namespace bench
