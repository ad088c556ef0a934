// Checks requests strictly against the wire format.
#pragma once

#include <httplib.h>
#include <rapidjson/document.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace collector {

/// The contents of a request.
struct WireMessage {
  std::string uid;
  std::string json;
  rapidjson::Document body;  // `json`, parsed
};

/// What is not as planned in each event of a request; empty without a plan.
using Violations = std::vector<std::vector<std::string>>;

bool isUTF8(std::string_view text);

std::string jsonOf(const rapidjson::Value& value);

/// Parses a request to "/track" or "/heartbeat". Returns a one-line error message, or nothing if
/// the request is valid.
std::optional<std::string> readRequest(const httplib::Request& request, WireMessage& message);

/// The elements of a valid and compact array, as they were sent. Copying them value by value could
/// overflow the stack.
std::vector<std::string_view> elementsOf(std::string_view array);

}  // namespace collector
