#include "examples/collector_control.h"

#include <rapidjson/document.h>

#include <stdexcept>

namespace {

std::string bodyOf(const httplib::Result& result) {
  if (!result) throw std::runtime_error("The collector does not answer.");
  if (result->status != 200) throw std::runtime_error("The collector says: " + result->body);
  return result->body;
}

}  // namespace

CollectorControl::CollectorControl(const std::string& address, const std::string& certificate)
    : client_("https://" + address) {
  client_.set_ca_cert_path(certificate);
  client_.set_connection_timeout(2);
  client_.set_read_timeout(2);
}

void CollectorControl::misbehave(const std::string& path, int status) {
  const std::string fault = R"({"path":")" + path + R"(","status":)" + std::to_string(status) + '}';
  bodyOf(client_.Post("/control", fault, "application/json"));
}

void CollectorControl::behave(const std::string& path) {
  bodyOf(client_.Post("/control", R"({"path":")" + path + R"("})", "application/json"));
}

CollectorControl::Counters CollectorControl::counters() {
  rapidjson::Document counters;
  counters.Parse(bodyOf(client_.Get("/control/counters")).c_str());
  return {counters["events_accepted"].GetUint64(), counters["heartbeat"]["accepted"].GetUint64()};
}
