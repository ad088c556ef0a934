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
class ClientSession final : public ZKURLSessionManager {
 public:
  ClientSession(SimulatedClock& clock, Timeline& timeline, CollectionHost& host, std::uint32_t seed)
      : clock_(clock), timeline_(timeline), host_(host), random_(seed) {}

  void postData(PostRequest request, URLSessionCallback callback) override;

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
  struct PendingPost {
    EndpointPath path;
    Urgency urgency;
    std::string body;
    URLSessionCallback callback;
    Duration deadline;
    RetryRules rules;
    int retries = 0;
    bool wasPutOff = false;
    CollectionHost::Reply reply;           // to the latest attempt
    std::optional<Connection> connection;  // of an attempt that is under way
  };
  using Pointer = std::shared_ptr<PendingPost>;
  struct Line {
    std::deque<Pointer> due;
    bool isBusy = false;
  };

  void attempt(const Pointer& post);
  void attemptNext(Line& line);
  CollectionHost::Reply send(PendingPost& post);
  std::optional<Connection> takeIdle();
  void close(const Connection& connection);
  std::optional<Duration> delayBeforeRetry(const PendingPost& post);
  void end(const Pointer& post);
  void report(const PendingPost& post);

  SimulatedClock& clock_;
  Timeline& timeline_;
  CollectionHost& host_;
  std::minstd_rand random_;
  std::array<Line, kEndpointPathCount> lines_;
  RestsByPath rests_;
  std::vector<Connection> idle_;  // the latest one last; at most one for each endpoint
  bool hasEnded_ = false;
};

}  // namespace fleet
