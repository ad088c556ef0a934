#include "platform/posix/url_session.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <stdexcept>
#include <thread>

#include "platform/posix/http_headers.h"
#include "platform/posix/http_retry.h"
#include "platform/posix/http_url.h"
#include "tests/support/tls_server.h"

namespace veltrano {
namespace {

using namespace std::chrono_literals;
using Reply = TLSServer::Reply;

struct Outcome {
  std::optional<std::string> data;
  std::optional<URLResponse> response;
  std::optional<TransportError> error;
  std::thread::id thread;

  int status() const { return response ? response->httpStatusCode.value_or(0) : 0; }
  bool isTransportError() const { return error && !error->reason.empty() && !data && !response; }
};

std::future<Outcome> start(PosixURLSession& session, PostRequest request) {
  auto promise = std::make_shared<std::promise<Outcome>>();
  auto future = promise->get_future();
  session.postData(std::move(request), [promise](auto data, auto response, auto error) {
    promise->set_value({std::move(data), response, error, std::this_thread::get_id()});
  });
  return future;
}

Outcome post(PosixURLSession& session, PostRequest request) {
  return start(session, std::move(request)).get();
}

URLSessionOptions trusting(const std::string& authorities) {
  return {.certificateAuthorities = authorities, .firstBackOff = 1ms};
}

PostRequest requestTo(const std::string& url) {
  PostRequest request;
  request.baseURL = url;
  request.httpBody = "data=W10=";
  return request;
}

Reply answer(const std::string& status, const std::string& body = "",
             const std::string& head = "") {
  return {.bytes = "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) +
                   "\r\n" + head + "\r\n" + body};
}

struct CountingInterceptor final : ZKInterceptor {
  void intercept(URLRequest& request) const override {
    request.headers["attempt"] =
        std::to_string(++count) + request.url.substr(request.url.find('?'));
    if (count == 3) throw std::runtime_error("no token");
  }
  mutable std::atomic<int> count{0};
};

/// Forks a child that posts to a server of this process, and returns how the child ended.
int runInChild(
    const std::function<void(const std::string& url, const std::string& authorities)>& body,
    TLSServer::Handler handler) {
  int toChild[2];
  EXPECT_EQ(pipe(toChild), 0);
  const pid_t child = fork();  // while there are no threads yet
  if (child == 0) {
    alarm(20);  // ends a child that hangs
    char text[256] = {};
    if (read(toChild[0], text, sizeof text - 1) <= 0) _exit(9);
    const std::string line = text;
    body(line.substr(0, line.find('\n')), line.substr(line.find('\n') + 1));
    _exit(8);
  }
  TLSServer server(std::move(handler));
  const std::string line = server.url() + "\n" + server.authorities();
  EXPECT_EQ(write(toChild[1], line.data(), line.size()), static_cast<ssize_t>(line.size()));
  int status = -1;
  waitpid(child, &status, 0);
  close(toChild[0]);
  close(toChild[1]);
  return status;
}

// Comes first: once this process has posted, its forked children no longer do.
TEST(URLSessionExit, LetsTheProcessExitDuringTransfers) {
  const auto ok = [](int, const std::string&) { return answer("200 OK", std::string(5000, 'x')); };
  const auto held = [](int, const std::string&) { return Reply{.bytes = "", .isHeldBack = true}; };
  for (int round = 0; round < 20; ++round) {
    // The host has used OpenSSL before, so OpenSSL's own clean-up runs at exit.
    const auto exitAmidst = [&](const std::string& url, const std::string& authorities) {
      OPENSSL_init_ssl(0, nullptr);
      PosixURLSession session(trusting(authorities));
      std::atomic<int> done{0};
      for (int i = 0; i < 8; ++i)
        session.postData(requestTo(url), [&](auto, auto, auto) { ++done; });
      while (round % 4 > done) std::this_thread::yield();
      std::exit(0);
    };
    EXPECT_EQ(runInChild(exitAmidst, ok), 0) << round;
  }
  const auto exitWhileWaiting = [](const std::string& url, const std::string& authorities) {
    PosixURLSession session(trusting(authorities));
    auto request = requestTo(url);
    const auto counter = std::make_shared<CountingInterceptor>();
    request.qsParameters = {{"uid", "u"}};
    request.interceptor = counter;
    session.postData(request, [](auto, auto, auto) {});
    while (counter->count == 0) std::this_thread::yield();
    std::exit(0);
  };
  EXPECT_EQ(runInChild(exitWhileWaiting, held), 0);
  const auto exitInCallback = [](const std::string& url, const std::string& authorities) {
    PosixURLSession session(trusting(authorities));
    session.postData(requestTo(url), [](auto, auto, auto) { std::exit(0); });
    for (;;) pause();
  };
  EXPECT_EQ(runInChild(exitInCallback, ok), 0);
}

TEST(HTTPURL, EncodesEverythingButUnreservedCharacters) {
  EXPECT_EQ(urlWithQuery("https://h/p", {}), "https://h/p");
  EXPECT_EQ(urlWithQuery("https://h/p", {{"uid", ""}}), "https://h/p?uid=");
  const std::string hard("A z&=+%/?#\0\r\xC3\xA9~-._0", 19);
  EXPECT_EQ(urlWithQuery("https://h", {{"k y", hard}, {"z", "1"}}),
            "https://h?k%20y=A%20z%26%3D%2B%25%2F%3F%23%00%0D%C3%A9~-._0&z=1");
}

TEST(HTTPHeaders, CannotBeForged) {
  using Lines = std::vector<std::string>;
  EXPECT_EQ(headerLines({{"lib_version", "ios_1\r\nEvil: 1\0x"}, {"e", ""}, {"s", " \t"}}),
            (Lines{"e;", "lib_version: ios_1Evil: 1", "s;"}));
  EXPECT_EQ(headerLines({{"a\r\nb:c;\0", "\tx\x01\x7F y \xC3\xA9"}, {"\r\n", "gone"}}),
            (Lines{"abc: x y \xC3\xA9"}));
  EXPECT_EQ(headerLines({{"v", std::string("1\0"
                                           "2",
                                           3)}}),
            (Lines{"v: 12"}));
}

TEST(HTTPRetry, ParsesBothFormsOfRetryAfter) {
  const WallTime now{std::chrono::seconds(784111777)};  // Sun, 06 Nov 1994 08:49:37 GMT
  const std::pair<const char*, std::optional<Duration>> cases[] = {
      {"0", 0s},
      {"120", 120s},
      {"99999999999999999999999", 24h},
      {"Sun, 06 Nov 1994 08:50:07 GMT", 30s},
      {"Sunday, 06-Nov-94 08:50:07 GMT", 30s},
      {"Sun, 06 Nov 1994 08:00:00 GMT", 0s},
      {"Fri, 06 Nov 2094 08:00:00 GMT", 24h},
      {"", std::nullopt},
      {"soon", std::nullopt},
      {"-5", std::nullopt},
      {"1.5", std::nullopt},
  };
  for (const auto& [text, expected] : cases)
    EXPECT_EQ(parseRetryAfter(text, now), expected) << text;
}

TEST(HTTPRetry, DecidesWhetherAndWhen) {
  struct Case {
    AttemptResult attempt;
    std::int32_t retries;
    Duration timeLeft;
    std::optional<Duration> expected;
  };
  const RetryRules rules{2, {503}, 200ms};
  const AttemptResult unconnected{true, {}, {}};
  const Case cases[] = {
      {unconnected, 0, 60s, 100ms},
      {unconnected, 1, 60s, 200ms},
      {unconnected, 2, 60s, std::nullopt},
      {unconnected, 0, 100ms, std::nullopt},
      {{false, {}, {}}, 0, 60s, std::nullopt},
      {{false, 502, {}}, 0, 60s, 100ms},
      {{false, 503, {}}, 0, 60s, std::nullopt},
      {{false, 504, 5s}, 0, 60s, 5s},
      {{false, 504, 1ms}, 0, 60s, 100ms},
      {{false, 504, 61s}, 0, 60s, std::nullopt},
      {{false, 500, 1s}, 0, 60s, std::nullopt},
      {{false, 200, {}}, 0, 60s, std::nullopt},
      {{false, 429, 1s}, 0, 60s, std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(delayBeforeRetry(c.attempt, rules, c.retries, c.timeLeft, 0.5), c.expected)
        << &c - cases;
  }
  EXPECT_EQ(delayBeforeRetry(unconnected, {-1, {}, 1s}, 0, 60s, 0.5), std::nullopt);
  EXPECT_EQ(delayBeforeRetry(unconnected, {1000, {}, 1s}, 999, 60s, 0), 0s);
}

TEST(URLSession, SendsWhatItIsGivenAndNothingOfItsOwn) {
  TLSServer server([](int, const std::string&) { return answer("200 OK", "{\"a\":1}"); });
  PosixURLSession session(trusting(server.authorities()));
  auto request = requestTo(server.url());
  request.headerParameters = {{"lib_version", "ios_1.0"}, {"empty", ""}};
  request.qsParameters = {{"uid", "a b"}};
  const auto outcome = post(session, request);
  EXPECT_EQ(outcome.status(), 200);
  EXPECT_EQ(outcome.data, "{\"a\":1}");
  EXPECT_FALSE(outcome.error);
  EXPECT_NE(outcome.thread, std::this_thread::get_id());
  EXPECT_EQ(server.requests().at(0),
            "POST /path?uid=a%20b HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) +
                "\r\nAccept: */*\r\nempty:\r\nlib_version: ios_1.0\r\nContent-Length: 9\r\n\r\n"
                "data=W10=");

  request.httpBody =
      std::string(1'100'000, 'x');  // enough for libcurl to ask "Expect: 100-continue"
  request.headerParameters = {{"Content-Type", "text/plain"}};
  EXPECT_EQ(post(session, request).status(), 200);
  EXPECT_EQ(server.requests().at(1).find("Expect"), std::string::npos);
  EXPECT_NE(server.requests().at(1).find("\r\nContent-Type: text/plain\r\n"), std::string::npos);
  EXPECT_NE(server.requests().at(1).find("\r\n\r\n" + request.httpBody), std::string::npos);
}

TEST(URLSession, RepeatsOnlyWhatTheServerPutsOff) {
  struct Case {
    std::vector<Reply> replies;
    std::optional<std::int32_t> maxRetries;
    std::optional<std::set<int>> dontRetry;
    int status;
    std::size_t requests;
  };
  const Case cases[] = {
      {{answer("503 Busy", "", "Retry-After: 0\r\n"), answer("200 OK")}, {}, {}, 200, 2},
      {{answer("502 Bad"), answer("504 Late"), answer("503 Busy"), answer("200 OK")},
       {},
       {},
       503,
       3},
      {{answer("503 Busy"), answer("200 OK")}, 0, {}, 503, 1},
      {{answer("503 Busy"), answer("200 OK")}, {}, {{503}}, 503, 1},
      {{answer("503 Busy", "", "Retry-After: 3600\r\n")}, {}, {}, 503, 1},
      {{answer("500 Broken"), answer("200 OK")}, {}, {}, 500, 1},
      {{answer("307 Moved", "", "Location: /elsewhere\r\n")}, {}, {}, 307, 1},
      {{answer("204 Nothing")}, {}, {}, 204, 1},
  };
  for (const auto& c : cases) {
    TLSServer server([&](int number, const std::string&) { return c.replies.at(number - 1); });
    PosixURLSession session(trusting(server.authorities()));
    auto request = requestTo(server.url());
    request.maxRetries = c.maxRetries;
    request.dontRetryStatusCodesSet = c.dontRetry;
    EXPECT_EQ(post(session, request).status(), c.status) << &c - cases;
    EXPECT_EQ(server.requests().size(), c.requests) << &c - cases;
  }
}

TEST(URLSession, InterceptsEveryAttemptAndSurvivesTheHostsExceptions) {
  TLSServer server(
      [](int number, const std::string&) { return answer(number == 1 ? "503 Busy" : "200 OK"); });
  PosixURLSession session(trusting(server.authorities()));
  auto request = requestTo(server.url());
  request.qsParameters = {{"uid", "u"}};
  request.interceptor = std::make_shared<CountingInterceptor>();
  session.postData(request, [](auto, auto, auto) { throw std::runtime_error("host"); });
  server.waitForRequests(2);
  EXPECT_EQ(post(session, request).status(), 200);
  const auto requests = server.requests();
  EXPECT_NE(requests.at(0).find("\r\nattempt: 1?uid=u\r\n"), std::string::npos);
  EXPECT_NE(requests.at(1).find("\r\nattempt: 2?uid=u\r\n"), std::string::npos);
  EXPECT_EQ(requests.at(2).find("\r\nattempt:"), std::string::npos);
}

TEST(URLSession, ReportsWhatCannotBeReached) {
  std::string nobodyListens;
  {
    TLSServer server([](int, const std::string&) { return answer("200 OK"); });
    nobodyListens = server.url();
  }
  PosixURLSession session(trusting(""));
  auto secret = requestTo(nobodyListens);
  secret.qsParameters = {{"uid", "secret"}};
  const auto counter = std::make_shared<CountingInterceptor>();
  secret.interceptor = counter;
  const auto outcome = post(session, secret);
  EXPECT_TRUE(outcome.isTransportError());
  EXPECT_EQ(outcome.error->reason.find("secret"), std::string::npos);
  EXPECT_EQ(outcome.error->reason.find("127.0.0.1"), std::string::npos);
  EXPECT_EQ(counter->count, 3);

  EXPECT_TRUE(post(session, requestTo("https://no-such-host.invalid/track")).isTransportError());
  EXPECT_TRUE(post(session, requestTo("not a URL")).isTransportError());
  EXPECT_TRUE(post(session, requestTo("")).isTransportError());

  auto plain = requestTo("http" + nobodyListens.substr(5));
  const auto unasked = std::make_shared<CountingInterceptor>();
  plain.qsParameters = secret.qsParameters;
  plain.interceptor = unasked;
  EXPECT_TRUE(post(session, plain).isTransportError());
  EXPECT_EQ(unasked->count, 1);
}

TEST(URLSession, TrustsNoCertificateThatItShouldNot) {
  const auto ok = [](int, const std::string&) { return answer("200 OK"); };
  TLSServer good(ok);
  TLSServer expired(ok, {.lifetimeSeconds = -3600});
  TLSServer other(ok, {.name = "DNS:other.example"});
  const std::pair<const TLSServer&, std::string> cases[] = {{good, ""},
                                                            {good, other.authorities()},
                                                            {good, "/no/such/file"},
                                                            {expired, expired.authorities()},
                                                            {other, other.authorities()}};
  for (const auto& [server, authorities] : cases) {
    const int before = server.connections();
    PosixURLSession session(trusting(authorities));
    EXPECT_TRUE(post(session, requestTo(server.url())).isTransportError()) << authorities;
    EXPECT_TRUE(server.requests().empty());
    EXPECT_LE(server.connections(), before + 1) << "retried";
  }
}

TEST(URLSession, NeverRepeatsARequestThatWasCutOff) {
  const std::string oneMiB(1 << 20, 'x');
  const Reply cuts[] = {
      {.bytes = "", .endsConnection = true},
      {.bytes = "HTTP/1.1 200 OK\r\nContent-Le", .endsConnection = true},
      {.bytes = "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf", .endsConnection = true},
      {.bytes = "HTTP/1.1 503 Busy\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nhalf\r\n",
       .endsConnection = true},
      {.bytes = "no HTTP at all\r\n\r\n", .endsConnection = true},
      answer("200 OK", oneMiB + "x"),
      {.bytes = "HTTP/1.0 200 OK\r\n\r\n" + oneMiB + "x", .endsConnection = true},
  };
  for (const auto& cut : cuts) {
    for (const auto method : {HTTPMethod::post, HTTPMethod::get}) {
      TLSServer server(
          [&](int number, const std::string&) { return number == 2 ? cut : answer("200 OK"); });
      PosixURLSession session(trusting(server.authorities()));
      auto request = requestTo(server.url());
      ASSERT_EQ(post(session, request).status(), 200);
      request.httpMethod = method;
      // On a connection that has been used before: that is where libcurl would try again by itself.
      EXPECT_TRUE(post(session, request).isTransportError()) << &cut - cuts;
      EXPECT_EQ(server.requests().size(), 2u) << &cut - cuts;
      EXPECT_EQ(post(session, request).status(), 200);
    }
  }
  TLSServer server([&](int, const std::string&) { return answer("200 OK", oneMiB); });
  PosixURLSession session(trusting(server.authorities()));
  EXPECT_EQ(post(session, requestTo(server.url())).data, oneMiB);
}

TEST(URLSession, ReusesConnectionsWhileTheyLast) {
  TLSServer server([](int number, const std::string&) {
    auto reply = answer("200 OK");
    reply.endsConnection = number == 3;  // without saying so
    return reply;
  });
  PosixURLSession session(trusting(server.authorities()));
  for (int i = 0; i < 3; ++i) ASSERT_EQ(post(session, requestTo(server.url())).status(), 200);
  EXPECT_EQ(server.connections(), 1);
  server.waitForConnectionEnds(1);
  EXPECT_EQ(post(session, requestTo(server.url())).status(), 200);
  EXPECT_EQ(server.connections(), 2);

  int sockets = 0;
  for (int descriptor = 0; descriptor < 256; ++descriptor) {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) != 0) continue;
    if (peer.sin_family != AF_INET || ntohs(peer.sin_port) != server.port()) continue;
    ++sockets;
    EXPECT_TRUE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC);
  }
  EXPECT_GE(sockets, 1);
}

TEST(URLSession, OutlivesAllItsConnections) {
  TLSServer server([&](int number, const std::string&) {
    server.waitForRequests(4);
    auto reply = answer("200 OK");
    reply.endsConnection = number <= 4;
    return reply;
  });
  PosixURLSession session(trusting(server.authorities()));
  std::vector<std::future<Outcome>> outcomes;
  for (int i = 0; i < 4; ++i) outcomes.push_back(start(session, requestTo(server.url())));
  for (auto& outcome : outcomes) ASSERT_EQ(outcome.get().status(), 200);
  server.waitForConnectionEnds(4);
  EXPECT_EQ(post(session, requestTo(server.url())).status(), 200);
}

TEST(URLSession, CallsBackOncePerPostOnOneThread) {
  TLSServer server([](int, const std::string&) { return answer("200 OK"); });
  PosixURLSession session(trusting(server.authorities()));
  constexpr int kThreads = 8;
  constexpr int kPosts = 12;  // each followed by one from its callback
  std::atomic<int> calls[kThreads][kPosts]{};
  std::atomic<int> missing{2 * kThreads * kPosts};
  std::promise<void> all;
  std::vector<std::thread> threads;
  for (auto& row : calls) {
    threads.emplace_back([&] {
      for (auto& call : row) {
        const auto count = [&](auto, auto response, auto) {
          if (response && response->httpStatusCode == 200) ++call;
          if (--missing == 0) all.set_value();
        };
        session.postData(requestTo(server.url()), [&, count](auto data, auto response, auto error) {
          session.postData(requestTo(server.url()), count);
          count(data, response, error);
        });
      }
    });
  }
  for (auto& thread : threads) thread.join();
  all.get_future().wait();
  for (const auto& row : calls)
    for (const auto& call : row) EXPECT_EQ(call, 2);
  EXPECT_LE(server.connections(), 4);
}

TEST(URLSession, DropsPostsInAForkedChild) {
  TLSServer server([](int, const std::string&) { return answer("200 OK"); });
  PosixURLSession session(trusting(server.authorities()));
  ASSERT_EQ(post(session, requestTo(server.url())).status(), 200);
  std::atomic<bool> stopping{false};
  std::thread busy([&] {
    while (!stopping) post(session, requestTo(server.url()));
  });
  for (int round = 0; round < 30; ++round) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(20);
      auto captured = std::make_shared<int>();
      const std::weak_ptr<int> watched = captured;
      session.postData(requestTo(server.url()),
                       [captured = std::move(captured)](auto, auto, auto) { _exit(7); });
      _exit(watched.expired() ? 0 : 8);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  stopping = true;
  busy.join();
  EXPECT_EQ(post(session, requestTo(server.url())).status(), 200);
}

}  // namespace
}  // namespace veltrano
