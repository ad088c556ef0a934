#pragma once

#include <array>
#include <deque>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/simulated/simulated_platform.h"
#include "tools/fleet/collection_host.h"
#include "upload/rules/rests.h"

namespace fleet {

/// Posts to the collection host in virtual time, with the retries, rests, time limits and
/// connections of the POSIX platform. Each endpoint makes one attempt at a time.
class ClientSession final : public veltrano::internal::ZKURLSessionManager {
 public:
  ClientSession(veltrano::internal::SimulatedClock& clock, veltrano::internal::Timeline& timeline,
                CollectionHost& host, std::uint32_t seed)
      : clock_(clock), timeline_(timeline), host_(host), random_(seed) {}

  void postData(veltrano::internal::PostRequest request,
                veltrano::internal::URLSessionCallback callback) override;

  /// Closes those that are idle.
  void closeConnections();

  /// From now on nothing is sent and no answer arrives.
  void silence();

 private:
  struct Connection {
    Duration openedAt{0};
    Duration usedAt{0};
    bool isToFailingServer = false;
  };
  struct Post {
    EndpointPath path;
    veltrano::internal::Urgency urgency;
    std::string body;
    veltrano::internal::URLSessionCallback callback;
    Duration deadline;
    veltrano::internal::RetryRules rules;
    int retries = 0;
    bool wasPutOff = false;
    CollectionHost::Reply reply;           // to the latest attempt
    std::optional<Connection> connection;  // of an attempt that is under way
  };
  using Pointer = std::shared_ptr<Post>;
  struct Line {
    std::deque<Pointer> due;
    bool isBusy = false;
  };

  void attempt(const Pointer& post);
  void attemptNext(Line& line);
  CollectionHost::Reply send(Post& post);
  std::optional<Connection> takeIdle();
  void close(const Connection& connection);
  std::optional<Duration> delayBeforeRetry(const Post& post);
  void end(const Pointer& post);
  void report(const Post& post);

  veltrano::internal::SimulatedClock& clock_;
  veltrano::internal::Timeline& timeline_;
  CollectionHost& host_;
  std::minstd_rand random_;
  std::array<Line, kEndpointPathCount> lines_;
  veltrano::internal::RestsByPath rests_;
  std::vector<Connection> idle_;  // the latest one last; at most one for each endpoint
  bool hasEnded_ = false;
};

}  // namespace fleet
