#include "platform/posix/http/url_session.h"

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "platform/posix/http/urls_and_headers.h"
#include "tests/support/directory.h"
#include "tests/support/posting.h"

namespace veltrano::internal {
namespace {

using namespace std::chrono_literals;

// Longer than a label may be, so that the C library refuses it without asking for it.
const std::string kNoName = std::string(64, 'a') + ".invalid";

bool hasTimedOut(const std::string& reason) {
  return reason.find("imed out") != reason.npos ||
         reason == curl_easy_strerror(CURLE_OPERATION_TIMEDOUT);
}

// An environment that lowers security: OpenSSL and libcurl read it when they are initialised.
const struct LaxEnvironment : Directory {
  LaxEnvironment() {
    const std::string configuration =
        write("openssl",
              "openssl_conf = all\n[all]\nssl_conf = ssl\n[ssl]\nsystem_default = lax\n"
              "[lax]\nMinProtocol = TLSv1\nCipherString = ALL:@SECLEVEL=0\n");
    setenv("OPENSSL_CONF", configuration.c_str(), 1);
    setenv("SSLKEYLOGFILE", (*this / "keys").c_str(), 1);
  }
} laxEnvironment;

TEST(HTTPURL, EncodesEverythingButUnreservedCharacters) {
  const std::string hard("A z&=+%/?#\0\r\xC3\xA9~-._0", 19);
  EXPECT_EQ(urlWithQuery("https://h", {{"k y", hard}, {"z", ""}}),
            "https://h?k%20y=A%20z%26%3D%2B%25%2F%3F%23%00%0D%C3%A9~-._0&z=");
}

TEST(HTTPHeaders, CannotBeForged) {
  using Lines = std::vector<std::string>;
  EXPECT_EQ(headerLines({{"a\r\nb:c;\0", "\tx\x01\x7F y \xC3\xA9"},
                         {"\r\n", "gone"},
                         {"v", {'1', '\0', '\r', '\n', '2'}},
                         {"e", ""},
                         {"s", " \t"}}),
            (Lines{"abc: x y \xC3\xA9", "e;", "s;", "v: 12"}));
}

TEST(URLSession, RepeatsOnlyWhatTheServerPutsOffOrNeverGot) {
  const struct {
    std::vector<TLSReply> replies;
    std::optional<std::set<int>> dontRetry;
    int status;
    std::size_t requests;
    int resets = 0;
  } cases[] = {
      {{answer("200 OK")}, {}, 200, 1, 2},
      {{answer("503 Busy", "", "Retry-After: 0\r\n"), answer("200 OK")}, {}, 200, 2},
      {{answer("502 Bad"), answer("504 Late"), answer("503 Busy")}, {}, 503, 3},
      {{answer("503 Busy")}, {{503}}, 503, 1},
      // An hour ahead by the session's clock, which stands still at 1970.
      {{answer("503 Busy", "", "Retry-After: Thu, 01 Jan 1970 01:00:00 GMT\r\n")}, {}, 503, 1},
      {{answer("307 Moved", "", "Location: /elsewhere\r\n")}, {}, 307, 1},
  };
  for (const auto& c : cases) {
    TLSServer server([&](int number) { return c.replies.at(number - 1); }, {.resets = c.resets});
    auto request = requestTo(server.url());
    request.dontRetryStatusCodesSet = c.dontRetry;
    EXPECT_EQ(post(trusting(server.authorities()), request).status(), c.status) << &c - cases;
    EXPECT_EQ(server.requests().size(), c.requests) << &c - cases;
  }
}

// Why nothing arrives: each cause reads differently.
TEST(URLSession, ReportsEveryAttempt) {
  std::vector<TransferReport> reports;  // changed by the calling-back thread, before each outcome
  const auto observed = [&](URLSessionOptions options, const std::string& url) {
    options.onTransfer = [&](const TransferReport& report) {
      reports.push_back(report);
      throw 1;
    };
    auto request = requestTo(url);
    request.qsParameters = {{"uid", "secret"}};
    reports.clear();
    const auto outcome = post(options, request);
    EXPECT_EQ(outcome.error ? outcome.error->reason : "", reports.back().reason);
    for (const TransferReport& report : reports) {
      EXPECT_EQ(report.attempt, &report - reports.data() + 1);
      EXPECT_EQ(report.willRetry, &report != &reports.back());
      EXPECT_EQ(report.reason.find("secret"), std::string::npos);
    }
  };
  TLSServer server([](int number) {
    if (number == 1) return answer("503 Busy", "wait");
    if (number == 2) return answer("200 OK", std::string(500, ' '));
    return number == 3 ? TLSReply{.bytes = "HTTP/1.1 200 OK\r\n", .endsConnection = true}
                       : TLSReply{};
  });
  observed(trusting(server.authorities()), server.url());
  ASSERT_EQ(reports.size(), 2U);
  EXPECT_EQ(reports[0].status, 503);
  EXPECT_EQ(reports[1].status, 200);
  EXPECT_EQ(reports[1].path, "/track");
  EXPECT_EQ(reports[1].reason, "");
  EXPECT_EQ(reports[1].bytesSent, server.requests().at(1).size());
  EXPECT_GT(reports[1].bytesReceived, 500U);
  EXPECT_GT(reports[1].duration, 0us);

  std::set<std::string> reasons;
  const auto fails = [&](const URLSessionOptions& options, const std::string& url) {
    observed(options, url);
    EXPECT_EQ(reports.back().status, 0);
    EXPECT_TRUE(reasons.insert(reports.back().reason).second) << reports.back().reason;
  };
  fails(trusting(server.authorities()), server.url());  // cut off
  auto impatient = trusting(server.authorities());
  impatient.attemptTimeout = 5s;
  fails(impatient, server.url());  // hanging
  EXPECT_GE(reports.back().duration, 1s);
  EXPECT_TRUE(hasTimedOut(reports.back().reason));
  EXPECT_EQ(reports.size(), 1U) << "retried what may have been read";
  fails(trusting(TLSServer([](int) { return TLSReply(); }).authorities()), server.url());
  fails(trusting("/nonexistent.pem"), server.url());
  fails({.firstBackOff = 1ms}, "https://127.0.0.1:1/track");
  EXPECT_EQ(reports.size(), 3U);
  fails({.firstBackOff = 1ms}, "https://" + kNoName + "/track");
  EXPECT_FALSE(hasTimedOut(reports.back().reason));
  fails({.firstBackOff = 1ms}, "http://127.0.0.1:1/track");
  fails({}, "not a URL");
}

// What the rules decide is in upload_rules_test; here, that the session asks and obeys them.
TEST(URLSession, RestsAfterTrouble) {
  std::atomic<bool> isFine{false};
  TLSServer server([&](int number) {
    if (isFine) return answer("200 OK");
    if (number < 9) return answer("500 Broken");
    // The ninth would be tried again at once without the trouble before.
    return answer("503 Busy", "", number == 9 ? "Retry-After: 0\r\n" : "Retry-After: 600\r\n");
  });
  auto options = trusting(server.authorities());
  TransferReport last;  // written before the outcome is reported
  options.onTransfer = [&](const TransferReport& report) { last = report; };
  PosixURLSession session(options);
  auto upload = requestTo(server.url());
  upload.urgency = Urgency::enteringBackground;
  for (int i = 0; i < 9; ++i) {
    EXPECT_TRUE(i >= 3 || !session.restOf(EndpointPath::track));
    EXPECT_EQ(post(session, upload).status(), i < 8 ? 500 : 503) << "our own rest is skipped";
  }
  EXPECT_EQ(session.restOf(EndpointPath::track)->cause, RestCause::trouble);
  EXPECT_TRUE(last.putOffUntil);
  last = {};
  upload.urgency = Urgency::ordinary;
  const auto putOff = post(session, upload);
  EXPECT_TRUE(putOff.isTransportError() && putOff.error->wasPutOff);
  EXPECT_NE(putOff.calledOn, std::this_thread::get_id());
  EXPECT_EQ(last.path, "") << "nothing was attempted";
  EXPECT_EQ(server.requests().size(), 9U);
  EXPECT_EQ(post(session, requestTo(server.url("/heartbeat"))).status(), 503)
      << "a path of its own";

  upload.urgency = Urgency::enteringBackground;
  EXPECT_EQ(post(session, upload).status(), 503);
  EXPECT_EQ(session.restOf(EndpointPath::track)->cause, RestCause::server);
  EXPECT_TRUE(post(session, upload).error->wasPutOff) << "the server's is not skipped";
  EXPECT_EQ(server.requests().size(), 11U) << "attempted once each";
  isFine = true;
  session.ignoreRetryAfter();
  EXPECT_EQ(post(session, upload).status(), 200);
}

TEST(URLSession, InterceptsEveryAttemptAndSurvivesTheHostsExceptions) {
  TLSServer server([](int number) { return answer(number == 1 ? "503 Busy" : "200 OK"); });
  PosixURLSession session(trusting(server.authorities()));
  auto request = requestTo(server.url());
  request.qsParameters = {{"uid", "u"}};
  request.interceptor = interceptor([count = std::make_shared<std::atomic<int>>(0)](URLRequest& r) {
    r.headers["attempt"] = std::to_string(++*count) + r.url.substr(r.url.find('?'));
    if (*count == 3) throw std::runtime_error("no token");
  });
  std::promise<void> called;
  session.postData(request, [&](auto, auto, auto) {
    called.set_value();
    throw std::runtime_error("host");
  });
  called.get_future().wait();
  EXPECT_EQ(post(session, request).status(), 200);
  const auto requests = server.requests();
  EXPECT_NE(requests.at(0).find("\r\nattempt: 1?uid=u\r\n"), std::string::npos);
  EXPECT_NE(requests.at(1).find("\r\nattempt: 2?uid=u\r\n"), std::string::npos);
  EXPECT_EQ(requests.at(2).find("\r\nattempt:"), std::string::npos);
}

TEST(URLSession, TrustsNoServerThatItShouldNot) {
  TLSServer good(accept);
  TLSServer expired(accept, {.certificate = {.lifetimeSeconds = -3600}});
  TLSServer other(accept, {.certificate = {.name = "DNS:other.example"}});
  TLSServer weak(accept, {.certificate = {.rsaBits = 1024}});
  TLSServer old(accept, {.newestProtocol = TLS1_1_VERSION});
  const auto expectDistrust = [](const TLSServer& server, const std::string& authorities,
                                 const std::string& pin = "") {
    const int before = server.connections();
    auto options = trusting(authorities);
    options.pinnedPublicKey = pin;
    const auto outcome = post(options, requestTo(server.url()));
    EXPECT_TRUE(outcome.isTransportError() &&
                outcome.error->reason.find("SSL") != std::string::npos)
        << authorities;
    EXPECT_TRUE(server.requests().empty());
    EXPECT_LE(server.connections(), before + 1) << "retried";
  };
  expectDistrust(good, "");
  expectDistrust(good, other.authorities());
  expectDistrust(expired, expired.authorities());
  expectDistrust(other, other.authorities());
  expectDistrust(weak, weak.authorities());
  expectDistrust(old, old.authorities());
  expectDistrust(good, good.authorities(), other.pin());

  auto options = trusting(good.authorities());
  options.pinnedPublicKey = other.pin() + ";" + good.pin();
  EXPECT_EQ(post(options, requestTo(good.url())).status(), 200);
  EXPECT_EQ(contentsOf(laxEnvironment / "keys"), "");
}

TEST(URLSession, ConnectsThroughAProxy) {
  TLSServer proxy(accept, {.certificate = {.name = "DNS:" + kNoName},
                           .asProxy = TLSReply{.bytes = "HTTP/1.1 200 Fine\r\nVia: x\r\n\r\n"}});
  const std::string address = "http://127.0.0.1:" + std::to_string(proxy.port());
  auto options = trusting(proxy.authorities());
  options.proxy = address;
  options.noProxy = "elsewhere." + kNoName;
  const auto request = requestTo("https://" + kNoName + "/track");
  {
    PosixURLSession session(options);
    EXPECT_EQ(post(session, request).status(), 200);
    EXPECT_EQ(proxy.requests().at(0), "CONNECT " + kNoName + ":443 HTTP/1.1\r\nHost: " + kNoName +
                                          ":443\r\n"
                                          "Proxy-Connection: Keep-Alive\r\n\r\n");
    EXPECT_TRUE(post(session, requestTo("https://elsewhere." + kNoName + "/")).isTransportError());
    EXPECT_EQ(proxy.connections(), 1);
  }
  options.proxy.insert(7, "user:secret@");
  EXPECT_EQ(post(options, request).status(), 200);
  EXPECT_NE(proxy.requests().at(2).find("Proxy-Authorization: Basic dXNlcjpzZWNyZXQ=\r\n"),
            std::string::npos);
  setenv("https_proxy", address.c_str(), 1);
  for (const char* const noProxy : {"", "127.0.0.1, .invalid"}) {
    setenv("no_proxy", noProxy, 1);
    options = trusting(proxy.authorities());
    options.proxyFromEnvironment = true;
    EXPECT_EQ(post(options, request).status(), *noProxy == '\0' ? 200 : 0);
  }
  unsetenv("no_proxy");
  TLSServer direct(accept);
  EXPECT_EQ(post(trusting(direct.authorities()), requestTo(direct.url())).status(), 200)
      << "the environment was asked";
}

TEST(URLSession, LeavesAProxyThatRefusesAtOnce) {
  const TLSReply refusals[] = {
      {.bytes = "HTTP/1.1 407 Who?\r\nTransfer-Encoding: chunked\r\n\r\n",
       .endsConnection = true,
       .endless = "1\r\nx\r\n"},
      {.bytes = "HTTP/1.1 200 OK\r\n", .endsConnection = true, .endless = "Via: a proxy\r\n"},
      {.bytes = "", .endsConnection = true, .endless = "HTTP/1.1 103 Wait\r\nVia: x\r\n\r\n"},
  };
  for (const auto& refusal : refusals) {
    TLSServer proxy(accept, {.asProxy = refusal});
    auto options = trusting(proxy.authorities());
    options.proxy = "http://127.0.0.1:" + std::to_string(proxy.port());
    const auto outcome = post(options, requestTo("https://collector.invalid/track"));
    ASSERT_TRUE(outcome.isTransportError()) << &refusal - refusals;
    const std::string& reason = outcome.error->reason;
    EXPECT_EQ(reason == "The proxy answered with status 407", &refusal == refusals) << reason;
    EXPECT_FALSE(hasTimedOut(reason)) << reason;
  }
}

TEST(URLSession, DecidesByTheStatusAndNeverRepeatsWhatWasCutOff) {
  const std::string oneMiB(1 << 20, 'x'), more = oneMiB + "x";
  const std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nx\r\n";
  const struct {
    TLSReply reply;
    int status;
    bool isHeadTooLarge = false;
    bool isBodyTooLong = false;  // which is no error
  } cuts[] = {
      {{.bytes = "", .endsConnection = true}, 0},
      {{.bytes = "HTTP/1.1 200 OK\r\nContent-Le", .endsConnection = true}, 0},
      {{.bytes = "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf", .endsConnection = true}, 200},
      {{.bytes = "HTTP/1.1 400 No\r\nContent-Length: 10\r\n\r\nhalf", .endsConnection = true}, 400},
      {answer("200 OK", more), 200, false, true},
      {{.bytes = "HTTP/1.0 200 OK\r\n\r\n" + more, .endsConnection = true}, 200, false, true},
      {{.bytes = "HTTP/1.1 200 OK\r\n", .endless = "More: and more\r\n"}, 0, true},
      {answer("200 OK", "{}", "More: " + std::string(70'000, 'x') + "\r\n"), 0, true},
      {{.bytes = "HTTP/1.1 200 OK\r\n", .endless = std::string(1 << 14, 'x')}, 0, true},
      {{.bytes = "", .endless = "HTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\n"}, 0, true},
      {{.bytes = chunked + "0\r\n", .endless = "Trailer: and more\r\n"}, 200, true},
      {{.bytes = chunked + "1;", .endless = std::string(1 << 14, 'x')}, 200, false, true},
  };
  for (const auto& cut : cuts) {
    TLSServer server([&](int number) { return number == 2 ? cut.reply : answer("200 OK"); });
    auto options = trusting(server.authorities());
    std::string reason;  // written before the outcome is reported
    options.onTransfer = [&](const TransferReport& report) { reason = report.reason; };
    PosixURLSession session(options);
    const auto request = requestTo(server.url());
    ASSERT_EQ(post(session, request).status(), 200) << &cut - cuts;
    // On a reused connection, because there libcurl would retry by itself.
    const auto outcome = post(session, request);
    EXPECT_EQ(reason.find("exceeds 64 KiB") != reason.npos, cut.isHeadTooLarge)
        << &cut - cuts << ": " << reason;
    EXPECT_EQ(outcome.status(), cut.status) << &cut - cuts;
    EXPECT_EQ(outcome.error.has_value(), !cut.isBodyTooLong) << &cut - cuts;
    EXPECT_TRUE(!outcome.data && !reason.empty() && !hasTimedOut(reason)) << &cut - cuts;
    for (const char* const other :
         {"SSL", "Couldn't connect", "memory", "initialization", "callback"})
      EXPECT_EQ(reason.find(other), std::string::npos) << &cut - cuts << ": " << other;
    EXPECT_EQ(server.requests().size(), 2u) << &cut - cuts;
    EXPECT_EQ(post(session, request).status(), 200) << &cut - cuts;
  }
  TLSServer server([&](int) { return answer("200 OK", oneMiB); });
  EXPECT_EQ(post(trusting(server.authorities()), requestTo(server.url())).data, oneMiB);
}

TEST(URLSession, TakesNoAnswerToHalfARequest) {
  TLSServer server(accept, {.readsBodies = false});
  auto request = requestTo(server.url());
  request.httpBody.assign(1 << 24, 'x');
  EXPECT_TRUE(post(trusting(server.authorities()), request).isTransportError());
  EXPECT_EQ(server.requests().size(), 1u);
}

TEST(URLSession, ARequestsTimeIncludesTheWaitForItsTurn) {
  TLSServer server([](int) { return TLSReply{}; });
  auto options = trusting(server.authorities());
  options.requestTimeout = 500ms;
  PosixURLSession session(options);
  auto request = requestTo(server.url());
  request.urgency = Urgency::enteringBackground;  // not put off
  for (int i = 1; i < 20; ++i) start(session, request);
  EXPECT_TRUE(post(session, request).isTransportError());
  EXPECT_LT(server.requests().size(), 10U) << "whose turn never came";
}

TEST(URLSession, NoticesThatAnIdleConnectionHasEnded) {
  TLSServer server([&](int number) {
    auto reply = answer("200 OK");
    reply.endsConnection = number == 1;  // without "Connection: close"
    return reply;
  });
  PosixURLSession session(trusting(server.authorities()));
  for (int connections = 1; connections <= 2; ++connections) {
    ASSERT_EQ(post(session, requestTo(server.url())).status(), 200);
    EXPECT_EQ(server.connections(), connections);
    while (server.endedConnections() == 0) std::this_thread::yield();
  }
}

TEST(URLSession, IsForAnyThreadAndReusesConnections) {
  TLSServer server(accept);
  PosixURLSession session(trusting(server.authorities()));
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < 8; ++thread)
    threads.emplace_back([&] {
      for (const char* const path : {"/track", "/heartbeat", "/track"})
        EXPECT_EQ(post(session, requestTo(server.url(path))).status(), 200);
    });
  threads.clear();
  EXPECT_EQ(server.requests().size(), 24U);
  EXPECT_LE(server.connections(), 2) << "one for each path";
}

}  // namespace
}  // namespace veltrano::internal
