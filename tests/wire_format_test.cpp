// What docs/wire-format.md shows is what the library sends.
#include <gtest/gtest.h>

#include <fstream>

#include "encoding/base64.h"
#include "tests/support/posting.h"
#include "tests/support/simulation.h"

namespace veltrano::internal {
namespace {

// The document's blocks of a language, in order.
std::vector<std::string> blocks(const std::string& language) {
  std::ifstream file(WIRE_FORMAT);
  std::vector<std::string> found;
  bool isInside = false;
  for (std::string line; std::getline(file, line);) {
    const bool begins = line == "```" + language;
    if (begins) found.emplace_back();
    if (isInside && line != "```") found.back() += line + "\n";
    isInside = begins || (isInside && line != "```");
  }
  return found;
}

std::string without(std::string text, const std::string& part, const std::string& instead = "") {
  for (auto at = text.find(part); at != text.npos; at = text.find(part, at + instead.size()))
    text.replace(at, part.size(), instead);
  return text;
}

struct Token final : SessionTokenProvider {
  std::optional<std::string> sessionToken() const override { return "b3f1c9"; }
};

TEST(WireFormat, IsDocumentedByteByByte) {
  Token token;
  Simulation simulation([&](Platform& services) { services.sessionTokenProvider = &token; });
  simulation.platform.bundles.mainInfo =
      HostMap{{"CFBundleShortVersionString", "2.4"}, {"CFBundleVersion", "241"}};
  std::vector<PostRequest> posts;
  simulation.platform.network.onPost = [&](const auto& request) { posts.push_back(request); };
  Veltrano::shared().setAppId("shop");
  Veltrano::shared().setUserId("user 17");
  Veltrano::shared().track("Bought", {{"plan", "pro"}, {"items", 3}});
  simulation.runUntil(20.5);  // both have been answered
  ASSERT_EQ(posts.size(), 2U);

  // The POSIX platform puts the requests on the wire.
  TLSServer server([](int) { return answer("200 OK"); });
  PosixURLSession session(trusting(server.authorities()));
  const std::string local = "127.0.0.1:" + std::to_string(server.port());
  const auto requests = blocks("http");
  const auto bodies = blocks("json");
  ASSERT_EQ(requests.size(), 2U);
  ASSERT_GE(bodies.size(), 2U);
  const std::size_t order[] = {1, 0};  // the heartbeat comes first
  for (std::size_t i = 0; i < 2; ++i) {
    PostRequest request = posts.at(order[i]);
    request.baseURL = without(request.baseURL, kSimulatedCollectionHost, local);
    post(session, request);
    const std::string sent = without(server.requests().at(i), local, kSimulatedCollectionHost);
    EXPECT_EQ(without(sent, "\r\n", "\n") + "\n", requests[i]);
    EXPECT_EQ(decodedBase64(sent.substr(sent.rfind("data=") + 5)),
              without(without(bodies[i], "\n"), "  "));
  }
}

}  // namespace
}  // namespace veltrano::internal
