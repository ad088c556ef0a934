// A host ends at once, with its own status and without output, whatever the library is doing.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/posting.h"

namespace veltrano::internal {
namespace {

// Anything longer is a hang. Exit waits two seconds for a callback that does not return; any other
// ending takes about 2 ms.
constexpr std::chrono::seconds kLongest{20};

// A port that neither accepts nor refuses connections, because its backlog is full for good.
int blackHole() {
  const auto makeSocket = [] {
    return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  };
  sockaddr_in address{};
  socklen_t size = sizeof address;
  const int listening = makeSocket();
  listen(listening, 0);
  getsockname(listening, reinterpret_cast<sockaddr*>(&address), &size);
  for (int i = 0; i < 3; ++i) connect(makeSocket(), reinterpret_cast<sockaddr*>(&address), size);
  return ntohs(address.sin_port);
}

void runHost(const std::string& state, const std::string& ending) {
  const std::string context = state + ", " + ending;
  const Directory directory;
  const std::string input = directory / "input", output = directory / "output";
  EXPECT_EQ(mkfifo(input.c_str(), S_IRUSR | S_IWUSR), 0) << context;
  TLSServer server([&](int) {
    if (state == "idle" || state == "tracking" || state == "inCompletion" || state == "callingBack")
      return answer("200 OK");
    EXPECT_TRUE(std::fstream(input) << '!' << std::flush) << context;
    return state == "backOff" ? answer("503 Busy", "", "Retry-After: 20\r\n") : TLSReply{};
  });
  static const int hole = blackHole();
  const std::string host =
      "127.0.0.1:" + std::to_string(state == "blackHole" ? hole : server.port());
  const std::string command = "exec '" ENDING_HOST "' '" + state + "' '" + ending + "' " +
                              (state == "resolving" ? "stuck.invalid" : host) + " '" +
                              server.authorities() + "' <>'" + input + "' >'" + output + "' 2>'" +
                              directory / "errors" + "'";
  const int status = std::system(command.c_str());

  std::chrono::steady_clock::time_point begin;  // the same clock in all processes
  EXPECT_TRUE(std::ifstream(output).read(reinterpret_cast<char*>(&begin), sizeof begin)) << context;
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kLongest) << context;
  EXPECT_EQ(status, ending == "signal" ? SIGTERM : 7 << 8) << context;
  EXPECT_EQ(contentsOf(directory / "errors"), "") << context;
}

class Ending : public testing::TestWithParam<const char*> {};

TEST_P(Ending, IsAtOnceAndTheHostsOwn) {
  std::vector<std::jthread> hosts;
  static int number = 0;  // goes on, so each state has other endings
  for (const char* ending : {"return", "exit", "_exit", "quick_exit", "signal", "thread",
                             "main thread", "destructor", "fork"})
    if (++number % VELTRANO_STRIDE == 0) hosts.emplace_back(runHost, GetParam(), ending);
}

INSTANTIATE_TEST_SUITE_P(While, Ending,
                         testing::Values("idle", "flushHanging", "resolving", "blackHole",
                                         "backOff", "heartbeat", "inCompletion", "inTokenFunction",
                                         "inSink", "inRefreshHandler", "tracking", "callingBack"),
                         [](const auto& each) { return std::string(each.param); });

}  // namespace
}  // namespace veltrano::internal
