#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <utility>

#include "platform/mutex.h"
#include "platform/platform.h"
#include "platform/simulated/timeline.h"
#include "upload/rules/rests.h"
#include "veltrano/testing.h"

namespace veltrano::testing {

inline Answer transportError() {
  Answer answer;
  answer.isTransportError = true;
  return answer;
}

/// The network. Chooses each answer when it is asked to post, on the main thread. Lets a failing
/// collection host rest as production does, but without jitter.
class WorldNetwork final : public internal::ZKURLSessionManager {
 public:
  using Choose = std::function<Answer(const internal::PostRequest&, bool isPutOff)>;
  struct PendingPost {
    internal::EndpointPath path;
    std::size_t bytes = 0;  // of the body
    Duration at{0};
    bool isPutOff = false;
    internal::URLSessionCallback callback;
  };
  using Arrive =
      std::function<void(const PendingPost&, const Answer&, std::optional<internal::Rest>)>;

  /// `choose` returns the answer to a post. `arrive` is called before the library gets it, with the
  /// rest that it begins; not for a post that was put off.
  WorldNetwork(internal::Timeline& timeline, const internal::WallClock& clock, Choose choose,
               Arrive arrive)
      : timeline_(timeline),
        clock_(clock),
        choose_(std::move(choose)),
        arrive_(std::move(arrive)) {}

  void postData(internal::PostRequest request, internal::URLSessionCallback callback) override;

  /// Also for other threads.
  std::optional<internal::Rest> restOf(internal::EndpointPath path) override;

  void routeReturned();
  void endRests();

  bool isIdle() const { return underWay_.empty(); }

  /// Fails unanswered posts.
  void fail();

  /// Drops unanswered posts.
  void drop();

 private:
  void finish(std::uint64_t number, const Answer& answer);
  std::optional<internal::Rest> requestEnded(const PendingPost& post, const Answer& answer);

  internal::Timeline& timeline_;
  const internal::WallClock& clock_;
  const Choose choose_;
  const Arrive arrive_;
  std::map<std::uint64_t, PendingPost> underWay_;  // main thread
  std::uint64_t posts_ = 0;                        // main thread
  internal::Mutex mutex_;
  internal::RestsByPath rests_ GUARDED_BY(mutex_);
};

}  // namespace veltrano::testing
