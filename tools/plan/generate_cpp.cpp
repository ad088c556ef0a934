#include "plan/names.h"
#include "tools/plan/generate.h"

namespace veltrano::planning {
namespace {

std::string typeOf(const Schema& schema, const std::string& nested) {
  const std::string types = "veltrano::plan::";
  if (!schema.values.empty() || !schema.properties.empty()) return nested;
  switch (schema.type) {
    case Type::text:
      return types + "Text";
    case Type::integer:
      return types + "Integer";
    case Type::number:
      return types + "Number";
    case Type::boolean:
      return types + "Boolean";
    case Type::date:
      return types + "Time";
    case Type::uri:
      return types + "Link";
    case Type::list:
      return types + "List<" + typeOf(schema.element[0], nested) + '>';
    case Type::object:
      return types + "Map";
    case Type::any:
      break;
  }
  return types + "Anything";
}

// The declaration of a struct, and the specialisations for it and for what it contains.
struct Struct {
  std::string declaration;
  std::string specialisations;
};

Struct structOf(const Schema& schema, const std::string& name, const std::string& scope,
                const std::string& eventName, const std::string& indent, bool isSuper) {
  const std::string inner = indent + "  ", path = scope + "::" + name;
  Struct result;
  std::string members, writes;
  result.declaration = comment(schema.description, indent) + indent + "struct " + name + " {\n";
  for (const auto& [key, held, isRequired] : schema.properties) {
    const std::string nested = nestedTypeName(key), member = memberName(key);
    const Schema* bottom = &held;
    while (!bottom->element.empty()) bottom = &bottom->element[0];
    if (!bottom->values.empty()) {
      std::string names, texts;
      for (const std::string& value : bottom->values) {
        names += (names.empty() ? "" : ", ") + memberName(value);
        texts += (texts.empty() ? "" : ", ") + literal(value);
      }
      result.declaration += inner + "enum class " + nested + " { " + names + " };\n";
      result.specialisations +=
          "\ntemplate <>\nstruct veltrano::plan::Values<" + path + "::" + nested +
          "> {\n  static constexpr std::string_view texts[] = {" + texts + "};\n};\n";
    } else if (!bottom->properties.empty()) {
      const Struct object = structOf(*bottom, nested, path, "", inner, false);
      result.declaration += object.declaration;
      result.specialisations += object.specialisations;
    }
    const bool isNeeded = isRequired && !isSuper;
    members += comment(held.description, inner) + inner +
               "veltrano::plan::" + (isNeeded ? "Required<" : "Optional<") + typeOf(held, nested) +
               ", struct property_" + member + "> " + member + (isNeeded ? ";\n" : "{};\n");
    writes += "    object." + member + ".write(writer, " + literal(key) + ");\n";
  }
  result.declaration += members + indent + "};\n";
  result.specialisations += "\ntemplate <>\nstruct veltrano::plan::Definition<" + path + "> {\n";
  if (!eventName.empty())
    result.specialisations +=
        "  static constexpr std::string_view name = " + literal(eventName) + ";\n";
  result.specialisations +=
      std::string("  static void write(FlatWriter&") +
      (writes.empty() ? ", const " + path + "&) {}\n};\n"
                      : " writer, const " + path + "& object) {\n" + writes + "  }\n};\n");
  return result;
}

std::string header(const std::string& nameSpace, const Struct& event, const std::string& start,
                   const std::string& end) {
  return std::string(kMark) + "#pragma once\n\n#include \"veltrano/plan.h\"\n\nnamespace " +
         nameSpace + " {\n\n" + event.declaration + start + "\n}  // namespace " + nameSpace +
         '\n' + event.specialisations + end;
}

}  // namespace

Headers headersForCPP(const Plan& plan) {
  Headers headers;
  const std::string& space = plan.nameSpace;
  for (const Event& event : plan.events)
    headers[space + '/' + snakeName(event.name) + ".h"] =
        header(space, structOf(event.schema, typeName(event.name), space, event.name, "", false),
               "\nusing veltrano::plan::track;\n", "");
  headers[space + "/super_properties.h"] =
      header(space, structOf(plan.superProperties, "SuperProperties", space, "", "", true), "",
             "\nnamespace " + space +
                 " {\n\n/// Adds these properties to every later event.\n"
                 "inline void setSuperProperties(const SuperProperties& properties) {\n"
                 "  ::Veltrano::shared().setSuperProperties(\n"
                 "      veltrano::HostMapView(veltrano::plan::argumentOf(properties)));\n}\n\n"
                 "}  // namespace " +
                 space + '\n');
  addHeaderOfAll(headers, space + ".h");
  return headers;
}

}  // namespace veltrano::planning
