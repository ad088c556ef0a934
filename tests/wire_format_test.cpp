// What docs/wire-format.md shows is what the library sends.
#include <gtest/gtest.h>

#include <regex>

#include "encoding/base64.h"
#include "tests/support/posting.h"
#include "tests/support/simulation.h"

namespace veltrano::internal {
namespace {

// The document's blocks of a language, in order.
std::vector<std::string> blocks(const std::string& language) {
  const std::string text = contentsOf(WIRE_FORMAT);
  const std::regex block("```" + language + "\n([^`]*)```");
  using Found = std::sregex_token_iterator;
  return {Found(text.begin(), text.end(), block, 1), Found()};
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
  TLSServer server(accept);
  const std::string local = "127.0.0.1:" + std::to_string(server.port());
  const auto requests = blocks("http");
  const auto bodies = blocks("json");
  ASSERT_EQ(requests.size(), 2U);
  ASSERT_GE(bodies.size(), 2U);
  const std::size_t order[] = {1, 0};  // the heartbeat comes first
  for (std::size_t i = 0; i < 2; ++i) {
    PostRequest request = posts.at(order[i]);
    request.baseURL =
        std::regex_replace(request.baseURL, std::regex(kSimulatedCollectionHost), local);
    post(trusting(server.authorities()), request);
    const std::string sent =
        std::regex_replace(server.requests().at(i), std::regex(local), kSimulatedCollectionHost);
    EXPECT_EQ(std::regex_replace(sent, std::regex("\r\n"), "\n") + "\n", requests[i]);
    EXPECT_EQ(decodedBase64(sent.substr(sent.rfind("data=") + 5)),
              std::regex_replace(bodies[i], std::regex("\n *"), ""));
  }
}

}  // namespace
}  // namespace veltrano::internal
