// Controls a veltrano-collector (see tools/README.md).
#pragma once

#include <httplib.h>
#include <rapidjson/document.h>

#include <cstdint>
#include <stdexcept>
#include <string>

/// Throws std::runtime_error when the collector does not answer.
class CollectorControl {
 public:
  struct Counters {
    std::uint64_t events = 0;
    std::uint64_t heartbeats = 0;
  };

  /// `address` is "host:port", `certificate` a PEM file.
  CollectorControl(const std::string& address, const std::string& certificate)
      : client_("https://" + address) {
    client_.set_ca_cert_path(certificate);
    client_.set_connection_timeout(2);
    client_.set_read_timeout(2);
  }

  /// Answers requests to `path` with `status` until `behave`.
  void misbehave(const std::string& path, int status) {
    setFault(R"({"path":")" + path + R"(","status":)" + std::to_string(status) + '}');
  }
  void behave(const std::string& path) { setFault(R"({"path":")" + path + R"("})"); }

  /// What the collector has accepted so far.
  Counters counters() {
    rapidjson::Document counters;
    counters.Parse(bodyOf(client_.Get("/control/counters")).c_str());
    return {counters["events_accepted"].GetUint64(), counters["heartbeat"]["accepted"].GetUint64()};
  }

 private:
  static std::string bodyOf(const httplib::Result& result) {
    if (!result) throw std::runtime_error("The collector does not answer.");
    if (result->status != 200) throw std::runtime_error("The collector says: " + result->body);
    return result->body;
  }

  void setFault(const std::string& fault) {
    bodyOf(client_.Post("/control", fault, "application/json"));
  }

  httplib::Client client_;
};
