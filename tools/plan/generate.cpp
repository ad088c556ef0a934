#include "tools/plan/generate.h"

#include <cstdio>

namespace veltrano::planning {

std::string literal(std::string_view text) {
  std::string literal = "\"";
  for (const char c : text) {
    char octal[5] = {c};
    if (c < ' ' || c == '"' || c == '\\' || c == '?')  // also bytes of UTF-8, and trigraphs
      std::snprintf(octal, sizeof octal, "\\%03o",
                    static_cast<unsigned>(static_cast<unsigned char>(c)));
    literal += octal;
  }
  return literal + '"';
}

std::string comment(std::string_view description, std::string_view indent) {
  std::string lines;
  while (!description.empty()) {
    const std::size_t end = std::min(description.find_first_of("\n\r"), description.size());
    std::string line(description.substr(0, end));
    // A backslash at the end of a line would continue the comment.
    while (!line.empty() && (line.back() == '\\' || line.back() == ' ')) line.pop_back();
    if (line.size() > 2 && line.compare(line.size() - 3, 3, "?\?/") == 0) line += '.';
    lines.append(indent).append(line.empty() ? "///" : "/// ").append(line).append("\n");
    description.remove_prefix(std::min(end + 1, description.size()));
  }
  return lines;
}

void addHeaderOfAll(Headers& headers, const std::string& name) {
  std::string all(kMark);
  all += "#pragma once\n\n";
  for (const auto& [header, content] : headers) all += "#include \"" + header + "\"\n";
  headers[name] = std::move(all);
}

}  // namespace veltrano::planning
