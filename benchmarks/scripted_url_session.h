#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

#include "platform/url_session.h"

namespace bench {

/// A network that takes no time: it answers on a thread of its own as soon as it is asked, or holds
/// its answers back until it is told to go on. Never destroy one.
class ScriptedURLSession final : public veltrano::internal::ZKURLSessionManager {
 public:
  enum class Answer { accept, refuse, hang };

  explicit ScriptedURLSession(Answer answer);

  void postData(veltrano::internal::PostRequest request,
                veltrano::internal::URLSessionCallback callback) override;

  /// Holds for posts that are waiting for their answer, too.
  void setAnswer(Answer answer);

  /// Returns when a post waits for its answer.
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
