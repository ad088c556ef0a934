// What docs/wire-format.md shows is what the library sends.
#include <gtest/gtest.h>

#include <fstream>

#include "encoding/base64.h"
#include "platform/simulated/simulated_platform.h"
#include "tests/support/posting.h"
#include "tracker/library.h"

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
  SimulatedPlatform platform;
  platform.bundles.mainInfo =
      HostMap{{"CFBundleShortVersionString", "2.4"}, {"CFBundleVersion", "241"}};
  std::vector<PostRequest> posts;
  platform.network.onPost = [&](const PostRequest& request) { posts.push_back(request); };
  Token token;
  Platform services = platform.services();
  services.sessionTokenProvider = &token;
  Library library(services);
  Library* const replaced = Library::exchangeCurrent(&library);
  Veltrano::shared().setAppId("shop");
  Veltrano::shared().setUserId("user 17");
  Veltrano::shared().track("Bought", {{"plan", "pro"}, {"items", 3}});
  platform.timeline.runUntil(std::chrono::milliseconds(20500));  // both have been answered
  Library::exchangeCurrent(replaced);
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
    request.baseURL = without(request.baseURL, services.collectionHost, local);
    post(session, request);
    const std::string sent = without(server.requests().at(i), local, services.collectionHost);
    EXPECT_EQ(without(sent, "\r\n", "\n") + "\n", requests[i]);
    EXPECT_EQ(decodedBase64(sent.substr(sent.rfind("data=") + 5)),
              without(without(bodies[i], "\n"), "  "));
  }
}

}  // namespace
}  // namespace veltrano::internal
