// The page that shows what arrives, and the same for scripts, over plain HTTP.
#pragma once

#include <httplib.h>

#include <string>
#include <thread>

#include "tools/collector/collector.h"
#include "tools/collector/journal.h"

namespace collector {

/// Serves the page on the loopback interface until it is destroyed.
class Page {
 public:
  /// Port 0 picks a free one. Throws std::runtime_error if the port cannot be listened on.
  Page(Collector& collector, Journal& journal, int port);
  ~Page();

  std::string url() const { return "http://localhost:" + std::to_string(port_) + '/'; }

 private:
  bool isTrustworthy(const httplib::Request& request) const;
  void serveFiles();
  void serveStream();
  void serveScripts();

  Collector& collector_;
  Journal& journal_;
  httplib::Server server_;
  int port_;
  std::thread listening_;
};

/// Binds the server to the port on the loopback interface, or to a free one if it is 0. Returns the
/// port. Throws std::runtime_error if it cannot be listened on.
int bindToLoopback(httplib::Server& server, int port);

}  // namespace collector
