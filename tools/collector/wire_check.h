// Checks requests strictly against the wire format.
#pragma once

#include <httplib.h>
#include <rapidjson/document.h>

#include <optional>
#include <string>
#include <string_view>

namespace collector {

/// An HTTP request.
struct WireRequest {
  std::string method;
  std::string path;
  httplib::Params parameters;
  httplib::Headers headers;
  std::string body;
};

/// The contents of a request.
struct WireMessage {
  std::string uid;
  std::string json;
  rapidjson::Document body;  // `json`, parsed
};

bool isUTF8(std::string_view text);

/// Parses a request to "/track" or "/heartbeat". Returns a one-line error message, or nothing if
/// the request is valid.
std::optional<std::string> readRequest(const WireRequest& request, WireMessage& message);

}  // namespace collector
