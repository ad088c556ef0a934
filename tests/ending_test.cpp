// A host ends at once, with its own status and without output, whatever the library is doing.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <future>
#include <string>
#include <vector>

#include "tests/support/posting.h"

namespace veltrano::internal {
namespace {

// Anything longer is a hang. Exit waits two seconds for a callback that does not return; any other
// ending takes about 2 ms. The result records the longest of a state.
constexpr double kMaxMilliseconds = 20'000;

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
  const Directory directory;
  const std::string input = directory / "input", output = directory / "output";
  EXPECT_EQ(mkfifo(input.c_str(), S_IRUSR | S_IWUSR), 0) << context;
  TLSServer server([&](int) {
    if (state == "idle" || state == "tracking" || state == "in a completion" ||
        state == "calling back")
      return answer("200 OK");
    EXPECT_TRUE(std::fstream(input) << '!' << std::flush) << context;
    return state == "back-off" ? answer("503 Busy", "", "Retry-After: 20\r\n") : TLSReply{};
  });
  const BlackHole hole;
  const std::string host =
      "127.0.0.1:" + std::to_string(state == "black hole" ? hole.port : server.port());
  const std::string command = "exec '" ENDING_HOST "' '" + state + "' '" + ending + "' " +
                              (state == "resolving" ? "stuck.invalid" : host) + " '" +
                              server.authorities() + "' <>'" + input + "' >'" + output + "' 2>'" +
                              directory / "errors" + "'";
  const int status = std::system(command.c_str());

  std::chrono::steady_clock::time_point begin;  // the same clock in all processes
  EXPECT_TRUE(std::ifstream(output).read(reinterpret_cast<char*>(&begin), sizeof begin)) << context;
  const std::chrono::duration<double, std::milli> length = std::chrono::steady_clock::now() - begin;
  EXPECT_EQ(status, ending == "signal" ? SIGTERM : 7 << 8) << context;
  EXPECT_EQ(contentsOf(directory / "errors"), "") << context;
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
