#include "platform/posix/http/url_session.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <latch>
#include <stdexcept>
#include <thread>

#include "platform/posix/http/http_headers.h"
#include "platform/posix/http/http_retry.h"
#include "platform/posix/http/http_url.h"
#include "tests/support/tls_server.h"

namespace veltrano {
namespace {

using namespace std::chrono_literals;
using Reply = TLSServer::Reply;

struct Outcome {
  std::optional<std::string> data;
  std::optional<URLResponse> response;
  std::optional<TransportError> error;

  int status() const { return response ? response->httpStatusCode.value_or(0) : 0; }
  bool isTransportError() const { return error && !error->reason.empty() && !data && !response; }
};

std::future<Outcome> start(PosixURLSession& session, PostRequest request) {
  auto promise = std::make_shared<std::promise<Outcome>>();
  session.postData(std::move(request), [promise](auto data, auto response, auto error) {
    promise->set_value({std::move(data), response, error});
  });
  return promise->get_future();
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

// Comes first: once this process has posted, its forked children no longer do. Every child exits
// at another point: connecting, with answers coming in, waiting for more, or in a callback.
TEST(URLSessionExit, LetsTheProcessExitDuringTransfers) {
  for (int round = 0; round < 24; ++round) {
    int toChild[2];
    ASSERT_EQ(pipe(toChild), 0);
    const pid_t child = fork();  // while there are no threads yet
    if (child == 0) {
      alarm(20);  // ends a child that hangs
      char text[256] = {};
      if (read(toChild[0], text, sizeof text - 1) <= 0) _exit(9);
      const std::string line = text;
      OPENSSL_init_ssl(0, nullptr);  // as a host might have, so that OpenSSL cleans up at exit
      PosixURLSession session(trusting(line.substr(line.find('\n') + 1)));
      std::atomic<int> done{0};
      for (int i = 0; i < 8; ++i) {
        session.postData(requestTo(line.substr(0, line.find('\n'))), [&](auto, auto, auto) {
          if (++done == 4 && round % 6 == 5) std::exit(0);
        });
      }
      while (round % 6 > done) std::this_thread::yield();
      std::exit(0);
    }
    TLSServer server([](int number) { return number <= 4 ? answer("200 OK") : Reply{}; });
    const std::string line = server.url() + "\n" + server.authorities();
    EXPECT_EQ(write(toChild[1], line.data(), line.size()), static_cast<ssize_t>(line.size()));
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << round;
    close(toChild[0]);
    close(toChild[1]);
  }
}

TEST(HTTPURL, EncodesEverythingButUnreservedCharacters) {
  const std::string hard("A z&=+%/?#\0\r\xC3\xA9~-._0", 19);
  EXPECT_EQ(urlWithQuery("https://h", {{"k y", hard}, {"z", ""}}),
            "https://h?k%20y=A%20z%26%3D%2B%25%2F%3F%23%00%0D%C3%A9~-._0&z=");
}

TEST(HTTPHeaders, CannotBeForged) {
  using Lines = std::vector<std::string>;
  EXPECT_EQ(headerLines({{"lib_version", "ios_1\r\nEvil: 1"}, {"e", ""}, {"s", " \t"}}),
            (Lines{"e;", "lib_version: ios_1Evil: 1", "s;"}));
  EXPECT_EQ(
      headerLines(
          {{"a\r\nb:c;\0", "\tx\x01\x7F y \xC3\xA9"}, {"\r\n", "gone"}, {"v", {'1', '\0', '2'}}}),
      (Lines{"abc: x y \xC3\xA9", "v: 12"}));
}

TEST(HTTPRetry, ParsesBothFormsOfRetryAfter) {
  const WallTime now{std::chrono::seconds(784111777)};  // Sun, 06 Nov 1994 08:49:37 GMT
  EXPECT_EQ(parseRetryAfter("120", now), 120s);
  EXPECT_EQ(parseRetryAfter("99999999999999999999999", now), 24h);
  EXPECT_EQ(parseRetryAfter("Sunday, 06-Nov-94 08:50:07 GMT", now), 30s);
  EXPECT_EQ(parseRetryAfter("Sun, 06 Nov 1994 08:00:00 GMT", now), 0s);
  EXPECT_EQ(parseRetryAfter("soon", now), std::nullopt);
  EXPECT_EQ(parseRetryAfter("-5", now), std::nullopt);
}

TEST(HTTPRetry, BacksOff) {
  const auto delay = [](AttemptResult attempt, std::int32_t retries, Duration timeLeft = 60s) {
    return delayBeforeRetry(attempt, {1000, {}, 200ms}, retries, timeLeft, 0.5);
  };
  const AttemptResult unconnected{true, {}, {}};
  EXPECT_EQ(delay(unconnected, 0), 100ms);
  EXPECT_EQ(delay(unconnected, 1), 200ms);
  EXPECT_EQ(delay(unconnected, 0, 100ms), std::nullopt);
  EXPECT_EQ(delay(unconnected, 999), std::nullopt);
  EXPECT_EQ(delay({false, 504, 5s}, 0), 5s);
  EXPECT_EQ(delay({false, 504, 1ms}, 0), 100ms);
  EXPECT_EQ(delay({false, 500, 1s}, 0), std::nullopt);
}

TEST(URLSession, SendsWhatItIsGivenAndNothingOfItsOwn) {
  TLSServer server([](int) { return answer("200 OK", "{\"a\":1}"); });
  PosixURLSession session(trusting(server.authorities()));
  auto request = requestTo(server.url());
  request.headerParameters = {{"lib_version", "ios_1.0"}, {"empty", ""}};
  request.qsParameters = {{"uid", "a b"}};
  const auto outcome = post(session, request);
  EXPECT_EQ(outcome.status(), 200);
  EXPECT_EQ(outcome.data, "{\"a\":1}");
  EXPECT_FALSE(outcome.error);
  EXPECT_EQ(server.requests().at(0),
            "POST /path?uid=a%20b HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) +
                "\r\nAccept: */*\r\nempty:\r\nlib_version: ios_1.0\r\nContent-Length: 9\r\n\r\n"
                "data=W10=");
}

TEST(URLSession, RepeatsOnlyWhatTheServerPutsOff) {
  const struct {
    std::vector<Reply> replies;
    std::optional<std::set<int>> dontRetry;
    int status;
    std::size_t requests;
  } cases[] = {
      {{answer("503 Busy", "", "Retry-After: 0\r\n"), answer("200 OK")}, {}, 200, 2},
      {{answer("502 Bad"), answer("504 Late"), answer("503 Busy")}, {}, 503, 3},
      {{answer("503 Busy")}, {{503}}, 503, 1},
      {{answer("503 Busy", "", "Retry-After: 3600\r\n")}, {}, 503, 1},
      {{answer("307 Moved", "", "Location: /elsewhere\r\n")}, {}, 307, 1},
  };
  for (const auto& c : cases) {
    TLSServer server([&](int number) { return c.replies.at(number - 1); });
    PosixURLSession session(trusting(server.authorities()));
    auto request = requestTo(server.url());
    request.dontRetryStatusCodesSet = c.dontRetry;
    EXPECT_EQ(post(session, request).status(), c.status) << &c - cases;
    EXPECT_EQ(server.requests().size(), c.requests) << &c - cases;
  }
}

TEST(URLSession, InterceptsEveryAttemptAndSurvivesTheHostsExceptions) {
  TLSServer server([](int number) { return answer(number == 1 ? "503 Busy" : "200 OK"); });
  PosixURLSession session(trusting(server.authorities()));
  auto request = requestTo(server.url());
  request.qsParameters = {{"uid", "u"}};
  request.interceptor = std::make_shared<CountingInterceptor>();
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

TEST(URLSession, ReportsWhatCannotBeReached) {
  std::string nobodyListens;
  {
    TLSServer server([](int) { return answer("200 OK"); });
    nobodyListens = server.url();
  }
  PosixURLSession session(trusting(""));
  auto request = requestTo(nobodyListens);
  request.qsParameters = {{"uid", "secret"}};
  const auto counter = std::make_shared<CountingInterceptor>();
  request.interceptor = counter;
  request.maxRetries = 1;
  const auto outcome = post(session, request);
  EXPECT_TRUE(outcome.isTransportError());
  EXPECT_EQ(outcome.error->reason.find("secret"), std::string::npos);
  EXPECT_EQ(counter->count, 2);

  request.baseURL.replace(0, 5, "http");
  EXPECT_TRUE(post(session, request).isTransportError());
  EXPECT_EQ(counter->count, 3) << "retried";
  EXPECT_TRUE(post(session, requestTo("https://no-such-host.invalid/track")).isTransportError());
  EXPECT_TRUE(post(session, requestTo("not a URL")).isTransportError());
}

TEST(URLSession, TrustsNoCertificateThatItShouldNot) {
  const auto ok = [](int) { return answer("200 OK"); };
  TLSServer good(ok);
  TLSServer expired(ok, {.lifetimeSeconds = -3600});
  TLSServer other(ok, {.name = "DNS:other.example"});
  const auto expectDistrust = [](const TLSServer& server, const std::string& authorities) {
    const int before = server.connections();
    PosixURLSession session(trusting(authorities));
    EXPECT_TRUE(post(session, requestTo(server.url())).isTransportError()) << authorities;
    EXPECT_TRUE(server.requests().empty());
    EXPECT_LE(server.connections(), before + 1) << "retried";
  };
  expectDistrust(good, "");
  expectDistrust(good, other.authorities());
  expectDistrust(expired, expired.authorities());
  expectDistrust(other, other.authorities());
}

TEST(URLSession, NeverRepeatsARequestThatWasCutOff) {
  const std::string oneMiB(1 << 20, 'x');
  const Reply cuts[] = {
      {.bytes = "", .endsConnection = true},
      {.bytes = "HTTP/1.1 200 OK\r\nContent-Le", .endsConnection = true},
      {.bytes = "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf", .endsConnection = true},
      answer("200 OK", oneMiB + "x"),
      {.bytes = "HTTP/1.0 200 OK\r\n\r\n" + oneMiB + "x", .endsConnection = true},
  };
  for (const auto& cut : cuts) {
    TLSServer server([&](int number) { return number == 2 ? cut : answer("200 OK"); });
    PosixURLSession session(trusting(server.authorities()));
    const auto request = requestTo(server.url());
    ASSERT_EQ(post(session, request).status(), 200);
    // On a connection that has been used before: that is where libcurl would try again by itself.
    EXPECT_TRUE(post(session, request).isTransportError()) << &cut - cuts;
    EXPECT_EQ(server.requests().size(), 2u) << &cut - cuts;
    EXPECT_EQ(post(session, request).status(), 200);
  }
  TLSServer server([&](int) { return answer("200 OK", oneMiB); });
  PosixURLSession session(trusting(server.authorities()));
  EXPECT_EQ(post(session, requestTo(server.url())).data, oneMiB);
}

TEST(URLSession, ReusesConnectionsWhileTheyLast) {
  std::latch together(4);
  TLSServer server([&](int number) {
    auto reply = answer("200 OK");
    reply.endsConnection = number > 2 && number <= 6;  // without saying so
    if (reply.endsConnection) together.arrive_and_wait();
    return reply;
  });
  PosixURLSession session(trusting(server.authorities()));
  for (int i = 0; i < 2; ++i) ASSERT_EQ(post(session, requestTo(server.url())).status(), 200);
  EXPECT_EQ(server.connections(), 1);
  std::vector<std::future<Outcome>> outcomes;
  for (int i = 0; i < 4; ++i) outcomes.push_back(start(session, requestTo(server.url())));
  for (auto& outcome : outcomes) ASSERT_EQ(outcome.get().status(), 200);
  server.waitForConnectionEnds(4);
  EXPECT_EQ(post(session, requestTo(server.url())).status(), 200);
  EXPECT_EQ(server.connections(), 5);
}

TEST(URLSession, CallsBackOncePerPost) {
  TLSServer server([](int) { return answer("200 OK"); });
  PosixURLSession session(trusting(server.authorities()));
  constexpr int kCalls = 8 * 12 * 2;
  std::atomic<int> calls{0};
  std::promise<void> all;
  const auto count = [&](auto, auto response, auto) {
    EXPECT_TRUE(response);
    if (++calls == kCalls) all.set_value();
  };
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&] {
      for (int i = 0; i < 12; ++i) {
        session.postData(requestTo(server.url()), [&](auto data, auto response, auto error) {
          session.postData(requestTo(server.url()), count);
          count(data, response, error);
        });
      }
    });
  }
  for (auto& thread : threads) thread.join();
  all.get_future().wait();
  post(session, requestTo(server.url()));
  EXPECT_EQ(calls, kCalls);
  EXPECT_LE(server.connections(), 4);
}

TEST(URLSession, DropsPostsInAForkedChild) {
  TLSServer server([](int) { return answer("200 OK"); });
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
