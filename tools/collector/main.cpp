// veltrano-collector: a collection server on the developer's own machine.
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "tools/collector/certificate.h"
#include "tools/collector/collector.h"
#include "tools/collector/journal.h"
#include "tools/collector/page.h"
#include "tools/command_line.h"
#include "tools/temporary_directory.h"

namespace collector {
namespace {

constexpr int kNotAsPlanned = 3;

struct Arguments {
  int port = 0;
  int pagePort = 0;
  std::string certificateFile;
  std::string keyFile;
  std::string outputFile;
  CollectorOptions options;
};

void describe(CLI::App& app, Arguments& arguments) {
  app.add_option("--port", arguments.port, "Port to listen on; 0 picks a free one")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  app.add_option("--page-port", arguments.pagePort,
                 "Port of the page that shows what arrives; 0 picks a free one")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  app.add_option("--certificate", arguments.certificateFile,
                 "Where to write the certificate to trust; by default a temporary file, removed on "
                 "exit");
  app.add_option("--key", arguments.keyFile,
                 "Where to store the certificate's key; restart with both files to keep the "
                 "certificate")
      ->needs("--certificate");
  app.add_option("--output", arguments.outputFile,
                 "Where to append accepted requests; by default the standard output");
  app.add_option_function<std::string>(
         "--format",
         [&arguments](const std::string& name) { arguments.options.isReadable = name != "json"; },
         "json (one JSON object per line) or readable (one event per line)")
      ->check(CLI::IsMember({"json", "readable"}))
      ->default_str("json");
  app.add_option("--require-token", arguments.options.requiredToken,
                 "Refuse heartbeats without this token");
  app.add_option_function<std::string>(
      "--plan",
      [&arguments](const std::string& file) {
        arguments.options.plan = veltrano::planning::Plan::read(file);
      },
      "Compare events with this tracking plan; exit with 3 if one was not as planned");
  app.add_option_function<std::string>(
      "--misbehave",
      [&arguments](const std::string& json) { arguments.options.faults = parseFaults(json); },
      "Faults as for /control, such as {\"path\":\"/track\",\"status\":503,\"count\":2}");
}

void route(httplib::SSLServer& server, Collector& collector, const std::string& page) {
  const auto handle = [&collector](const httplib::Request& request, httplib::Response& response,
                                   std::string body) {
    httplib::Request sent = request;
    sent.body = std::move(body);
    // Added by the server.
    for (const char* name : {"REMOTE_ADDR", "REMOTE_PORT", "LOCAL_ADDR", "LOCAL_PORT"})
      sent.headers.erase(name);
    collector.handle(sent, response);
  };
  const auto withoutBody = [handle, page](const httplib::Request& request,
                                          httplib::Response& response) {
    handle(request, response, {});
    if (request.path == "/")
      response.set_content("this is the collection server; the page is " + page + '\n',
                           "text/plain");
  };
  // Reads the raw body: otherwise the server would parse a body that claims to be a form, or refuse
  // it for its size, before the check.
  const auto withBody = [handle](const httplib::Request& request, httplib::Response& response,
                                 const httplib::ContentReader& read) {
    std::string body;
    // Multipart bodies would be parsed, and without a length the reader waits until the connection
    // closes.
    const bool hasBody =
        !request.is_multipart_form_data() &&
        (request.has_header("Content-Length") || request.has_header("Transfer-Encoding"));
    if (hasBody && !read([&body](const char* data, std::size_t length) {
          body.append(data, length);
          return true;
        }))
      return;
    handle(request, response, std::move(body));
  };
  server.Get(".*", withoutBody).Options(".*", withoutBody);
  server.Post(".*", withBody).Put(".*", withBody).Patch(".*", withBody).Delete(".*", withBody);
}

// Returns the status to exit with.
int run(const Arguments& arguments) {
  // Inherited by all threads, so that only `sigwait` below receives the signals.
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGINT);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);

  std::optional<tools::TemporaryDirectory> directory;
  std::filesystem::path certificateFile = arguments.certificateFile;
  if (certificateFile.empty())
    certificateFile = directory.emplace("veltrano-collector").path() / "certificate.pem";
  Certificate certificate;
  if (!arguments.keyFile.empty()) certificate = readPEM(certificateFile, arguments.keyFile);
  if (!certificate.key) {
    certificate = makeCertificate();
    writePEM(certificate, certificateFile, arguments.keyFile);
  }

  std::ofstream file;
  if (!arguments.outputFile.empty()) {
    file.open(arguments.outputFile, std::ios::app);
    if (!file) throw std::runtime_error("cannot append to " + arguments.outputFile);
  }
  Journal journal;
  Collector collector(arguments.options, file.is_open() ? file : std::cout, journal,
                      [] { ::kill(::getpid(), SIGTERM); });

  httplib::SSLServer server(certificate.certificate.get(), certificate.key.get());
  // A delayed request occupies its thread.
  server.new_task_queue = [] { return new httplib::ThreadPool(32); };
  server.set_tcp_nodelay(true);
  server.set_keep_alive_max_count(1'000'000);
  // Also limits how long an idle connection can delay the shutdown. Not one second: the heartbeat
  // that follows activation by a second would race with the closing of the connection.
  server.set_keep_alive_timeout(3);
  server.set_payload_max_length(std::size_t{256} << 20);

  const int port = bindToLoopback(server, arguments.port);
  const Page page(collector, journal, arguments.pagePort);
  route(server, collector, page.url());
  std::thread listening([&server] {
    server.listen_after_bind();
    ::kill(::getpid(), SIGTERM);
  });
  // `stop` has no effect on a server that is not running yet.
  while (!server.is_running()) std::this_thread::yield();

  std::cerr
      << "A collection server for developers. It listens on this machine's loopback interface "
         "only, and is not meant for production."
      << std::endl;
  std::cout << "url=https://localhost:" << port
            << "\ncertificate=" << std::filesystem::absolute(certificateFile).string()
            << "\npage=" << page.url() << "\nready" << std::endl;

  int signal = 0;
  sigwait(&ends, &signal);
  collector.stopWaiting();
  server.stop();
  listening.join();
  return collector.hasViolations() ? kNotAsPlanned : EXIT_SUCCESS;
}

}  // namespace
}  // namespace collector

#ifdef __has_feature
#if __has_feature(thread_sanitizer)
// The library of the servers is not instrumented, so the thread sanitizer misses how the two
// servers' threads share its initialised constants.
extern "C" const char* __tsan_default_suppressions() {
  return "called_from_lib:libcpp-httplib.so\n";
}
#endif
#endif

int main(int argc, char** argv) {
  collector::Arguments arguments;
  CLI::App app(
      "A collection server for developers. It listens on the loopback interface only, checks every "
      "request against the wire format, shows on a page what arrives, and injects faults on "
      "request.");
  collector::describe(app, arguments);
  try {
    if (const auto status = tools::parse(app, "veltrano-collector", argc, argv)) return *status;
    return collector::run(arguments);
  } catch (const veltrano::planning::Faults& faults) {
    std::cerr << faults.what() << std::endl;
    return EXIT_FAILURE;
  } catch (const std::invalid_argument& error) {
    std::cerr << "veltrano-collector: " << error.what() << std::endl;
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "veltrano-collector: " << error.what() << std::endl;
    return EXIT_FAILURE;
  }
}
