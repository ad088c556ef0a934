#include "tools/collector/collector.h"

#include <sys/socket.h>

#include <iostream>
#include <stdexcept>
#include <utility>

#include "encoding/json_text.h"
#include "tools/collector/report.h"

namespace collector {
namespace {

using namespace veltrano::internal;

constexpr char kJSON[] = "application/json";

// All other paths share one counter.
std::string counterName(const std::string& path) {
  return path == "/track" || path == "/heartbeat" ? path.substr(1) : "other";
}

}  // namespace

Collector::Collector(CollectorOptions options, std::ostream& output, Journal& journal,
                     std::function<void()> requestShutdown)
    : requiredToken_(std::move(options.requiredToken)),
      isReadable_(options.isReadable),
      plan_(std::move(options.plan)),
      requestShutdown_(std::move(requestShutdown)),
      journal_(journal),
      output_(output),
      faults_(std::move(options.faults)),
      counters_{{"track", {}}, {"heartbeat", {}}, {"other", {}}} {
  journal_.setFaults(faultsJSON(faults_));
}

void Collector::handle(const httplib::Request& request, httplib::Response& response) {
  if (request.path == "/control" || request.path.starts_with("/control/"))
    return control(request, response);
  collect(request, response);
}

void Collector::stopWaiting() {
  const Lock lock(mutex_);
  isStopping_ = true;
  stopping_.notify_all();
}

bool Collector::hasViolations() {
  const Lock lock(mutex_);
  return hasViolations_;
}

void Collector::control(const httplib::Request& request, httplib::Response& response) {
  const std::string command = request.method + ' ' + request.path;
  if (command == "GET /control/counters") {
    response.set_content(countersJSON(), kJSON);
  } else if (command == "POST /control/shutdown") {
    response.set_content("{}", kJSON);
    requestShutdown_();
  } else if (command == "POST /control") {
    try {
      FaultsByPath faults = parseFaults(request.body);
      const Lock lock(mutex_);
      for (auto& [path, ofPath] : faults) faults_[path] = std::move(ofPath);
      const std::string json = faultsJSON(faults_);
      journal_.setFaults(json);
      response.set_content(json, kJSON);
    } catch (const std::invalid_argument& error) {
      response.status = 400;
      response.set_content(error.what() + std::string("\n"), "text/plain");
    }
  } else {
    response.status = 404;
    response.set_content("there is no such control\n", "text/plain");
  }
}

void Collector::collect(const httplib::Request& request, httplib::Response& response) {
  {
    const Lock lock(mutex_);
    ++counters_[counterName(request.path)].received;
  }
  // Malformed requests are refused even while a fault is set, so that none goes unnoticed.
  WireMessage message;
  if (const auto reason = readRequest(request, message))
    return refuse(request, message, 400, *reason, response);
  if (requiredToken_ && request.path == "/heartbeat") {
    const auto header = request.headers.find("Authorization");
    if (header == request.headers.end() || header->second != "Bearer " + *requiredToken_)
      return refuse(request, message, 401, "the heartbeat lacks the required token", response);
  }

  Fault fault;
  {
    const Lock lock(mutex_);
    fault = takeFault(faults_, request.path);
    if (fault.count) journal_.setFaults(faultsJSON(faults_));
    const int answer = fault.drop ? 0 : fault.status.value_or(200);
    if (fault.accept) accept(request, message, answer);
    journal_.addRequest(request, answer, fault.accept);
  }
  answer(fault, request.ssl, response);
}

void Collector::refuse(const httplib::Request& request, const WireMessage& message, int status,
                       const std::string& reason, httplib::Response& response) {
  const std::string name = counterName(request.path);
  const Lock lock(mutex_);
  ++counters_[name].refused;
  std::cerr << "refused (" << name << "): " << reason << std::endl;
  journal_.addRefused(request, message, status, reason);
  response.status = status;
  response.set_content(reason + '\n', "text/plain");
}

// One lock covers all of it, so that requests are reported in the order in which they are counted.
void Collector::accept(const httplib::Request& request, const WireMessage& message, int answer) {
  ++counters_[counterName(request.path)].accepted;
  if (message.body.IsArray()) eventsAccepted_ += message.body.Size();
  Violations violations;
  if (plan_ && message.body.IsArray())
    for (const std::string_view record : elementsOf(message.json)) {
      veltrano::planning::Checked none;
      violations.push_back(plan_->check(record, none));
      hasViolations_ |= !violations.back().empty();
    }
  output_ << (isReadable_ ? readableLines(request, message, violations)
                          : jsonLine(request, message, std::chrono::system_clock::now(), answer))
          << std::endl;
  journal_.addAccepted(request, message, answer, violations);
}

void Collector::answer(const Fault& fault, const SSL* connection, httplib::Response& response) {
  {
    Lock lock(mutex_);
    stopping_.wait_for(lock.standard(), fault.latency,
                       [&]() REQUIRES(mutex_) { return isStopping_; });
  }
  if (fault.drop) {
    // The server's response is lost with the connection.
    ::shutdown(SSL_get_fd(connection), SHUT_RDWR);
    return;
  }
  response.status = fault.status.value_or(200);
  if (fault.retryAfter) response.set_header("Retry-After", *fault.retryAfter);
  const std::string body = fault.body.value_or("{}");
  if (fault.truncate) {
    const auto writeHalf = [body](std::size_t, std::size_t, httplib::DataSink& sink) {
      sink.write(body.data(), body.size() / 2);
      return false;
    };
    response.set_content_provider(body.size() + 1, kJSON, writeHalf);
  } else if (response.status != 204 && response.status != 304) {
    response.set_content(body, kJSON);
  }
}

std::string Collector::countersJSON() {
  const Lock lock(mutex_);
  JSONMembers members;
  for (const auto& [name, counters] : counters_)
    members.emplace_back(name, jsonObject({{"received", json(counters.received)},
                                           {"accepted", json(counters.accepted)},
                                           {"refused", json(counters.refused)}}));
  members.emplace_back("events_accepted", json(eventsAccepted_));
  return jsonObject(members);
}

}  // namespace collector
