#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "platform/platform.h"
#include "platform/simulated/timeline.h"
#include "veltrano/testing.h"

namespace veltrano::testing {

/// The network. Chooses each answer when it is asked to post, on the main thread.
class WorldNetwork final : public internal::ZKURLSessionManager {
 public:
  using Choose = std::function<Answer(const internal::PostRequest&)>;
  struct Post {
    std::string path;
    std::size_t bytes = 0;  // of the body
    Duration at{0};
    internal::URLSessionCallback callback;
  };
  using Arrive = std::function<void(const Post&, const Answer&)>;

  /// `choose` returns the answer to a post; `arrive` is called before the library gets it.
  WorldNetwork(internal::Timeline& timeline, Choose choose, Arrive arrive)
      : timeline_(timeline), choose_(std::move(choose)), arrive_(std::move(arrive)) {}

  void postData(internal::PostRequest request, internal::URLSessionCallback callback) override;

  bool isIdle() const { return underWay_.empty(); }

  /// Fails unanswered posts.
  void fail();

  /// Drops unanswered posts.
  void drop();

 private:
  void finish(std::uint64_t number, const Answer& answer);

  internal::Timeline& timeline_;
  const Choose choose_;
  const Arrive arrive_;
  std::map<std::uint64_t, Post> underWay_;  // main thread
  std::uint64_t posts_ = 0;                 // main thread
};

/// The session token, from the host's function.
struct HostsToken final : internal::SessionTokenProvider {
  std::optional<std::string> sessionToken() const override;

  std::function<std::optional<std::string>()> function;  // main thread
};

}  // namespace veltrano::testing
