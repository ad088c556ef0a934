#include "platform/posix/http/http_headers.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

namespace veltrano {
namespace {

// The token characters of HTTP.
bool canStandInName(char c) {
  constexpr std::string_view kMarks = "!#$%&'*+-.^_`|~";
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
         kMarks.find(c) != kMarks.npos;
}

bool canStandInValue(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte == '\t' || (byte >= 0x20 && byte != 0x7F);
}

std::string filtered(std::string_view text, bool (*isKept)(char)) {
  std::string kept;
  std::copy_if(text.begin(), text.end(), std::back_inserter(kept), isKept);
  return kept;
}

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

}  // namespace

std::vector<std::string> headerLines(const std::map<std::string, std::string>& headers) {
  std::vector<std::string> lines;
  for (const auto& [name, value] : headers) {
    std::string line = filtered(name, canStandInName);
    if (line.empty()) continue;
    const std::string kept = filtered(value, canStandInValue);
    const auto text = trimmed(kept);
    // "Name:" would tell libcurl to leave the header out; "Name;" is a header without a value.
    if (text.empty()) {
      line += ';';
    } else {
      line.append(": ").append(text);
    }
    lines.push_back(std::move(line));
  }
  return lines;
}

}  // namespace veltrano
