#include "plan/names.h"
#include "tools/plan/generate.h"

namespace veltrano::planning {
namespace {

std::string typeOf(const Schema& schema, const std::string& nested) {
  if (!schema.values.empty() || !schema.properties.empty()) return nested;
  if (schema.type == Type::list)
    return "veltrano::plan::List<" + typeOf(schema.element[0], nested) + '>';
  constexpr const char* kTypes[] = {"Anything", "Text", "Integer", "Number", "Boolean",
                                    "Time",     "Link", "",        "Map"};  // by `Type`
  return std::string("veltrano::plan::") + kTypes[static_cast<int>(schema.type)];
}

// The declaration of a struct, and the specialisations for it and for what it contains.
struct Struct {
  std::string declaration;
  std::string specialisations;
};

Struct structOf(const Schema& schema, const std::string& name, const std::string& scope,
                const std::string& indent, const std::string& eventName, bool isSuper = false) {
  const std::string inner = indent + "  ", path = scope + "::" + name;
  std::string nestedTypes, members, entries, specialisations;
  for (const auto& [key, held, isRequired] : schema.properties) {
    const std::string nested = nestedTypeName(key, name), member = memberName(key);
    const Schema& bottom = held.innermost();
    std::string names, texts;
    for (const std::string& value : bottom.values) {
      names += (names.empty() ? "" : ", ") + memberName(value);
      texts += (texts.empty() ? "" : ", ") + literal(value);
    }
    if (!bottom.values.empty()) {
      nestedTypes += filled("$0enum class $1 { $2 };\n", {inner, nested, names});
      specialisations += filled(
          "\ntemplate <>\nstruct veltrano::plan::Values<$0::$1> {\n"
          "  static constexpr std::string_view texts[] = {$2};\n};\n",
          {path, nested, texts});
    } else if (!bottom.properties.empty()) {
      const Struct object = structOf(bottom, nested, path, inner, "");
      nestedTypes += object.declaration;
      specialisations += object.specialisations;
    }
    const bool isNeeded = isRequired && !isSuper;
    members += filled("$0$1veltrano::plan::$2<$3, struct property_$4> $4$5;\n",
                      {comment(held.description, inner), inner, isNeeded ? "Required" : "Optional",
                       typeOf(held, nested), member, isNeeded ? "" : "{}"});
    entries += filled("\n         {$0, object.$1.argument()},", {literal(key), member});
  }
  const std::string nameLine =
      filled("  static constexpr std::string_view name = $0;\n", {literal(eventName)});
  return {filled("$0$1struct $2 {\n$3$4$1};\n",
                 {comment(schema.description, indent), indent, name, nestedTypes, members}),
          specialisations +
              filled("\ntemplate <>\nstruct veltrano::plan::Definition<$0> {\n$1"
                     "  template <class Use>\n"
                     "  static void list([[maybe_unused]] const $0& object, const Use& use) {\n"
                     "    use({$2});\n  }\n};\n",
                     {path, eventName.empty() ? "" : nameLine, entries})};
}

std::string header(const std::string& space, const Struct& event, const std::string& function) {
  return std::string(kMark) +
         filled(
             "#pragma once\n\n#include \"veltrano/plan.h\"\n\nnamespace $0 {\n\n$1"
             "\n}  // namespace $0\n$2\nnamespace $0 {\n\n$3\n}  // namespace $0\n",
             {space, event.declaration, event.specialisations, function});
}

}  // namespace

Headers headersForCPP(const Plan& plan) {
  Headers headers;
  const std::string& space = plan.nameSpace;
  for (const Event& event : plan.events)
    headers[space + '/' + snakeName(event.name) + ".h"] =
        header(space, structOf(event.schema, typeName(event.name), "::" + space, "", event.name),
               "using veltrano::plan::track;\n");
  headers[space + "/super_properties.h"] =
      header(space, structOf(plan.superProperties, "SuperProperties", "::" + space, "", "", true),
             "/// Adds these properties to every later event.\n"
             "inline void setSuperProperties(const SuperProperties& properties) {\n"
             "  ::Veltrano::shared().setSuperProperties(\n"
             "      veltrano::HostMapView(veltrano::plan::argumentOf(properties)));\n}\n");
  addHeaderOfAll(headers, space + ".h");
  return headers;
}

}  // namespace veltrano::planning
