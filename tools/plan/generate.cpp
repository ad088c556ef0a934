#include "tools/plan/generate.h"

#include <cctype>

namespace veltrano::planning {

std::string filled(std::string_view form, std::initializer_list<std::string> values) {
  std::string text;
  for (auto c = form.begin(); c != form.end(); ++c)
    text += *c == '$' ? values.begin()[*++c - '0'] : std::string{*c};
  return text;
}

std::string literal(std::string_view text) {
  std::string literal;
  for (const char c : inQuotes(text))              // a name has no control characters
    literal += c == '?' ? "\\?" : std::string{c};  // no trigraphs
  return literal;
}

std::string comment(std::string_view description, const std::string& indent) {
  if (description.empty()) return {};
  std::string line = indent + "/// ";
  for (const char c : description)
    line += std::iscntrl(static_cast<unsigned char>(c)) != 0 ? ' ' : c;
  // A backslash at the end, or its trigraph, would continue the comment.
  return line + (line.back() == '\\' || line.back() == '/' ? ".\n" : "\n");
}

void addHeaderOfAll(Headers& headers, const std::string& name) {
  std::string all(kMark);
  all += "#pragma once\n\n";
  for (const auto& [header, content] : headers) all += "#include \"" + header + "\"\n";
  headers[name] = std::move(all);
}

}  // namespace veltrano::planning
