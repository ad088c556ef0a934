// The wire format that the library must keep to, checked to the letter.
#pragma once

#include <httplib.h>
#include <rapidjson/document.h>

#include <optional>
#include <string>

namespace collector {

/// A request as HTTP delivers it.
struct WireRequest {
  std::string method;
  std::string path;
  httplib::Params parameters;
  httplib::Headers headers;
  std::string body;
};

/// What a request says.
struct WireMessage {
  std::string uid;
  std::string json;
  rapidjson::Document body;  // of `json`
};

/// Reads a request to "/track" or "/heartbeat". Returns, in one line, what is wrong with it;
/// nothing when it keeps to the format.
std::optional<std::string> readRequest(const WireRequest& request, WireMessage& message);

}  // namespace collector
