#include "tools/plan/commands.h"

namespace veltrano::planning {
namespace {

// Text in a cell, without what Markdown or HTML would take for markup.
std::string cell(std::string_view text) {
  std::string cell;
  for (const char c : text) {
    if (std::string_view("\\`*_[]<>|#&").find(c) != std::string_view::npos) cell += '\\';
    cell += c == '\n' || c == '\r' ? ' ' : c;
  }
  return cell;
}

void addRows(std::string& text, const Schema& schema, const std::string& path) {
  for (const auto& [name, held, isRequired] : schema.properties) {
    text += "| " + cell(path + name) + " | " + cell(held.text()) +
            (isRequired ? " | yes | " : " | no | ") + cell(held.description) + " |\n";
    addRows(text, held.innermost(), path + name + (held.type == Type::list ? "[]." : "."));
  }
}

void addTable(std::string& text, const std::string& name, const Schema& schema) {
  text += "\n## " + cell(name) + '\n';
  if (!schema.description.empty()) text += '\n' + cell(schema.description) + '\n';
  if (!schema.properties.empty())
    text += "\n| property | type | required | description |\n|---|---|---|---|\n";
  addRows(text, schema, "");
  if (schema.isOpen) text += "\nFurther properties are allowed.\n";
}

}  // namespace

std::string document(const Plan& plan) {
  std::string text = "# Events of " + cell(plan.nameSpace) + '\n';
  if (!plan.description.empty()) text += '\n' + cell(plan.description) + '\n';
  if (!plan.superProperties.properties.empty())
    addTable(text, "Properties of every event", plan.superProperties);
  for (const Event& event : plan.events) addTable(text, event.name, event.schema);
  return text;
}

}  // namespace veltrano::planning
