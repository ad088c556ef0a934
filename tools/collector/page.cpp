#include "tools/collector/page.h"

#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <stdexcept>

#include "encoding/json_text.h"
#include "encoding/numbers.h"
#include "tools/collector/page_files.h"

namespace collector {
namespace {

using namespace veltrano::internal;

constexpr std::chrono::seconds kHeartbeatOfStream{15};
constexpr std::uint64_t kLongestWait = 3600;

void answer(httplib::Response& response, int status, const std::string& text) {
  response.status = status;
  response.set_content(text + '\n', "text/plain; charset=utf-8");
}

// The parameter as an integer up to the maximum, or nothing if it is none.
std::optional<std::uint64_t> integer(const httplib::Request& request, const char* name,
                                     std::uint64_t otherwise, std::uint64_t maximum) {
  if (!request.has_param(name)) return otherwise;
  const auto value = wholeNumber<std::uint64_t>(request.get_param_value(name));
  return value <= maximum ? value : std::nullopt;
}

// Refuses a request with another parameter than these, such as a misspelt one.
bool hasOthers(const httplib::Request& request, httplib::Response& response,
               const std::set<std::string>& known) {
  for (const auto& [name, value] : request.params) {
    if (known.count(name) > 0) continue;
    answer(response, 400, request.path + " takes no parameter \"" + name + '"');
    return true;
  }
  return false;
}

}  // namespace

int bindToLoopback(httplib::Server& server, int port) {
  // The default, SO_REUSEPORT, would let two collectors share a port.
  server.set_socket_options([](int socket) {
    const int yes = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  const std::string host = "127.0.0.1";
  const int bound =
      port == 0 ? server.bind_to_any_port(host) : (server.bind_to_port(host, port) ? port : -1);
  if (bound < 0)
    throw std::runtime_error("the port " + std::to_string(port) +
                             " cannot be listened on; is it in use?");
  return bound;
}

Page::Page(Collector& collector, Journal& journal, int port)
    : collector_(collector), journal_(journal), port_(bindToLoopback(server_, port)) {
  // A stream or a waiting script occupies its thread.
  server_.new_task_queue = [] { return new httplib::ThreadPool(32); };
  server_.set_tcp_nodelay(true);
  // One request a connection: what follows a refused one is never read as another.
  server_.set_keep_alive_max_count(1);
  server_.set_default_headers({
      {"Cache-Control", "no-store"},
      {"Content-Security-Policy",
       "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
       "img-src data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
      {"Cross-Origin-Resource-Policy", "same-origin"},
      {"Referrer-Policy", "no-referrer"},
      {"X-Content-Type-Options", "nosniff"},
  });
  server_.set_pre_routing_handler(
      [this](const httplib::Request& request, httplib::Response& response) {
        if (isTrustworthy(request)) return httplib::Server::HandlerResponse::Unhandled;
        answer(response, 403, "only for this machine's own page and scripts");
        return httplib::Server::HandlerResponse::Handled;
      });
  server_.set_error_handler([](const httplib::Request& request, httplib::Response& response) {
    if (!response.body.empty()) return;
    answer(response, response.status,
           response.status == 404 ? "there is no " + request.method + ' ' + request.path +
                                        "; the page is /, scripts GET /events, /heartbeats, "
                                        "/refused, /violations and /wait, and "
                                        "POST to /reset and /control"
                                  : "the request is malformed; does it lack a body?");
  });
  serveFiles();
  serveStream();
  serveScripts();
  listening_ = std::thread([this] { server_.listen_after_bind(); });
  // `stop` has no effect on a server that is not running yet.
  while (!server_.is_running()) std::this_thread::yield();
}

Page::~Page() {
  journal_.stop();
  server_.stop();
  listening_.join();
}

// Other sites must not reach the page through the developer's browser: neither under a name of
// theirs that resolves to this machine, nor by posting to it.
bool Page::isTrustworthy(const httplib::Request& request) const {
  for (const std::string name : {"localhost:", "127.0.0.1:"}) {
    const std::string host = name + std::to_string(port_);
    if (request.get_header_value("Host") == host && request.get_header_value_count("Host") == 1)
      return !request.has_header("Origin") ||
             request.get_header_value("Origin") == "http://" + host;
  }
  return false;
}

void Page::serveFiles() {
  for (const PageFile& file : kPageFiles)
    server_.Get(file.path, [&file](const httplib::Request&, httplib::Response& response) {
      response.set_content(file.content, file.type);
    });
}

void Page::serveStream() {
  server_.Get("/stream", [this](const httplib::Request&, httplib::Response& response) {
    // A browser that reconnects gets everything again, because the collector may be another one.
    const auto position = std::make_shared<Journal::Position>();
    const auto provide = [this, position](std::size_t, httplib::DataSink& sink) {
      const std::string part = journal_.next(*position, kHeartbeatOfStream);
      if (journal_.isStopped()) return false;
      // A comment, which fails if the browser has gone.
      const std::string text = part.empty() ? ":\n\n" : part;
      return sink.write(text.data(), text.size());
    };
    response.set_chunked_content_provider("text/event-stream", provide);
  });
}

void Page::serveScripts() {
  using Kind = Journal::Kind;
  const struct {
    const char* path;
    Kind kind;
    bool onlyViolations = false;
  } lists[] = {{"/events", Kind::event},
               {"/heartbeats", Kind::heartbeat},
               {"/refused", Kind::refused},
               {"/violations", Kind::event, true}};
  for (const auto& list : lists)
    server_.Get(
        list.path, [this, list](const httplib::Request& request, httplib::Response& response) {
          if (hasOthers(request, response, {})) return;
          response.set_content(journal_.list(list.kind, list.onlyViolations), "application/json");
        });
  // Takes the reader, because the server refuses a request without a body otherwise.
  server_.Post("/reset", [this](const httplib::Request&, httplib::Response& response,
                                const httplib::ContentReader&) {
    journal_.clear();
    response.set_content("{}\n", "application/json");
  });
  server_.Post("/control", [this](const httplib::Request& request, httplib::Response& response) {
    collector_.handle(request, response);
  });
  server_.Get("/wait", [this](const httplib::Request& request, httplib::Response& response) {
    if (hasOthers(request, response, {"event", "count", "timeout"})) return;
    const std::string name = request.get_param_value("event");
    const auto count = integer(request, "count", 1, UINT64_MAX);
    const auto timeout = integer(request, "timeout", 10, kLongestWait);
    if (name.empty() || !count || !timeout)
      return answer(response, 400,
                    "say /wait?event=NAME&count=N&timeout=S; the timeout is at most " +
                        std::to_string(kLongestWait) + " seconds");
    const std::uint64_t seen = journal_.wait(name, *count, std::chrono::seconds(*timeout));
    response.status = seen >= *count ? 200 : 504;
    response.set_content(jsonObject({{"event", json(name)}, {"count", json(seen)}}) + '\n',
                         "application/json");
  });
}

}  // namespace collector
