// A host ends at once, with its own status and without output, whatever the library is doing.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <string>
#include <vector>

#include "tests/support/posting.h"
#include "tests/support/spawn.h"

namespace veltrano::internal {
namespace {

// Anything longer is a hang. Exit waits two seconds for a callback that does not return; any other
// ending takes about 2 ms. The result records the longest of a state.
constexpr double kMaxMilliseconds = 20'000;

struct Pipe {
  Pipe() { EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0); }
  ~Pipe() {
    for (const int end : ends) close(end);
  }
  int ends[2];
};

// A port that neither accepts nor refuses connections, because its backlog is full.
class BlackHole {
 public:
  BlackHole() {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    for (int& socket : sockets_)
      socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    listen(sockets_[0], 0);
    getsockname(sockets_[0], reinterpret_cast<sockaddr*>(&address), &size);
    for (std::size_t i = 1; i < std::size(sockets_); ++i)
      connect(sockets_[i], reinterpret_cast<sockaddr*>(&address), size);
    port = ntohs(address.sin_port);
  }
  ~BlackHole() {
    for (const int socket : sockets_) close(socket);
  }
  int port;

 private:
  int sockets_[4];
};

// Returns how long the host took to end.
double runHost(const std::string& state, const std::string& ending) {
  const std::string context = state + ", " + ending;
  Pipe input, output, errors;
  TLSServer server([&](int) {
    if (state == "idle" || state == "tracking" || state == "in a completion" ||
        state == "calling back")
      return answer("200 OK");
    EXPECT_EQ(write(input.ends[1], "!", 1), 1);
    return state == "back-off" ? answer("503 Busy", "", "Retry-After: 20\r\n") : TLSReply{};
  });
  const BlackHole hole;
  const std::string host =
      "127.0.0.1:" + std::to_string(state == "black hole" ? hole.port : server.port());
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input.ends[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output.ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, errors.ends[1], STDERR_FILENO);
  const int status = statusOf({ENDING_HOST, state, ending,
                               state == "resolving" ? "stuck.invalid" : host, server.authorities()},
                              &actions);
  posix_spawn_file_actions_destroy(&actions);

  std::chrono::steady_clock::time_point begin;  // the same clock in all processes
  fcntl(output.ends[0], F_SETFL, O_NONBLOCK);
  EXPECT_EQ(read(output.ends[0], &begin, sizeof begin), ssize_t{sizeof begin}) << context;
  const std::chrono::duration<double, std::milli> length = std::chrono::steady_clock::now() - begin;
  EXPECT_EQ(status, ending == "signal" ? SIGTERM : 7 << 8) << context;
  fcntl(errors.ends[0], F_SETFL, O_NONBLOCK);
  std::string said(4096, '\0');
  EXPECT_LE(read(errors.ends[0], said.data(), said.size()), 0) << context << ": " << said;
  return length.count();
}

class Ending : public testing::TestWithParam<const char*> {};

TEST_P(Ending, IsAtOnceAndTheHostsOwn) {
  std::vector<std::future<double>> lengths;
  static int number = 0;  // goes on, so each state has other endings
  for (const char* ending : {"return", "exit", "_exit", "quick_exit", "signal", "thread",
                             "main thread", "destructor", "fork"})
    if (++number % VELTRANO_STRIDE == 0)
      lengths.push_back(
          std::async(std::launch::async, [=] { return runHost(GetParam(), ending); }));
  double longest = 0;
  for (auto& length : lengths) longest = std::max(longest, length.get());
  RecordProperty("milliseconds", std::to_string(longest));
  EXPECT_LT(longest, kMaxMilliseconds);
}

INSTANTIATE_TEST_SUITE_P(While, Ending,
                         testing::Values("idle", "flush hanging", "resolving", "black hole",
                                         "back-off", "heartbeat", "in a completion",
                                         "in a token function", "in a sink", "in a refresh handler",
                                         "tracking", "calling back"),
                         [](const auto& each) {
                           std::string name = each.param;
                           std::erase_if(name, [](char c) { return !std::isalpha(c); });
                           return name;
                         });

}  // namespace
}  // namespace veltrano::internal
