#include "plan/names.h"
#include "tools/plan/generate.h"

namespace veltrano::planning {
namespace {

// What a type is in C, by `Type`, and how a function that takes it ends. A date is its seconds
// since 1970; zero and a null pointer are absent where they are no values.
constexpr struct {
  std::string_view type;
  std::string_view function;
} kForms[] = {{"const veltrano_object*", "object"},
              {"const char*", "text"},
              {"int64_t", "int"},
              {"double", "double"},
              {"bool", "bool"},
              {"double", "date"},
              {"const char*", "url"},
              {"const veltrano_object*", "object"},
              {"const veltrano_object*", "object"}};

const auto& formOf(const Schema& schema) {
  return kForms[static_cast<int>(schema.type)];
}

class Header {
 public:
  explicit Header(const std::string& space) : prefix_(space + '_') {}

  std::string text() const {
    return std::string(kMark) +
           "#pragma once\n\n#include <stdbool.h>\n#include <stddef.h>\n#include <stdint.h>\n\n"
           "#include \"veltrano/veltrano_c.h\"\n" +
           text_;
  }

  // Declares the struct for an object and the function that makes a dictionary of one.
  void addObject(const Schema& schema, const std::string& name, bool isSuper) {
    std::string members, sets;
    for (const auto& [key, held, isRequired] : schema.properties) {
      const std::string member = memberName(key), inner = name + '_' + snakeName(key);
      const bool isList = held.type == Type::list && isTyped(held.element[0]);
      const Schema& one = isList ? held.element[0] : held;
      const bool isPointer = isList || !one.properties.empty();
      const bool hasFlag = !isPointer && one.values.empty() && formOf(one).type.back() != '*' &&
                           (!isRequired || isSuper);
      members += filled("$0  $1$2 $3;\n", {comment(held.description, "  "), declared(one, inner),
                                           isPointer ? " const*" : "", member});
      if (isList) members += "  size_t " + member + "_count;\n";
      if (hasFlag) members += "  bool has_" + member + ";\n";
      const std::string given = "object->" + member, target = "properties, " + literal(key);
      std::string set =
          isList ? filled(
                       "    veltrano_object* const list = veltrano_array();\n"
                       "    for (size_t i = 0; i < $0_count; ++i) {\n$1    }\n"
                       "    veltrano_dictionary_set_object($2, list);\n"
                       "    veltrano_release(list);\n",
                       {given, adding("      ", "array_append", "list", one, inner, given + "[i]"),
                        target})
                 : adding(isPointer || hasFlag ? "    " : "  ", "dictionary_set", target, one,
                          inner, (isPointer ? "*" : "") + given);
      if (isPointer) set = filled("  if ($0 != NULL) {\n$1  }\n", {given, set});
      sets += hasFlag ? filled("  if (object->has_$0) {\n$1  }\n", {member, set}) : set;
    }
    if (members.empty()) members = "  char unused;\n", sets = "  (void)object;\n";
    text_ += filled(
        "\n$0typedef struct $1$2 {\n$3} $1$2;\n\n"
        "static inline veltrano_object* $1make_$2(const $1$2* object) {\n"
        "  veltrano_object* const properties = veltrano_dictionary();\n$4  return properties;\n}\n",
        {comment(schema.description, ""), prefix_, name, members, sets});
  }

  void addFunction(const std::string& verb, const std::string& name, const std::string& more,
                   const std::string& call) {
    text_ += filled(
        "\nstatic inline bool $0$1$2(const $0$2* object$3) {\n"
        "  veltrano_object* const properties = $0make_$2(object);\n  const bool is_done = $4;\n"
        "  veltrano_release(properties);\n  return is_done;\n}\n",
        {prefix_, verb, name, more, call});
  }

 private:
  // Anything else is an object of the library's.
  static bool isTyped(const Schema& schema) {
    return !schema.properties.empty() || formOf(schema).function != "object";
  }

  // Declares what a value needs, and returns its type.
  std::string declared(const Schema& schema, const std::string& name) {
    if (!schema.properties.empty()) return addObject(schema, name, false), prefix_ + name;
    if (schema.values.empty()) return std::string(formOf(schema).type);
    std::string constants, cases;
    for (const std::string& value : schema.values) {
      const std::string constant = upperCase(prefix_ + name + '_' + snakeName(value));
      constants += constants.empty() ? "  " + constant + " = 1" : ",\n  " + constant;
      cases += filled("    case $0:\n      return $1;\n", {constant, literal(value)});
    }
    text_ += filled(
        "\nenum $0$1 {\n$2\n};\n\nstatic inline const char* $0text_of_$1(enum $0$1 value) {\n"
        "  switch (value) {\n$3  }\n  return NULL;\n}\n",
        {prefix_, name, constants, cases});
    return "enum " + prefix_ + name;
  }

  // The lines that add a value to a collection.
  std::string adding(const std::string& indent, const std::string& function,
                     const std::string& target, const Schema& schema, const std::string& name,
                     const std::string& value) const {
    const bool isObject = !isTyped(schema) || !schema.properties.empty();
    const std::string call =
        indent + "veltrano_" + function +
        (isObject && function == "array_append" ? "" : "_" + std::string(formOf(schema).function)) +
        '(' + target + ", ";
    if (!schema.values.empty())
      return filled("$0$1text_of_$2($3));\n", {call, prefix_, name, value});
    if (schema.properties.empty()) return call + value + ");\n";
    return filled(
        "$4veltrano_object* const nested = $0make_$1(&$2);\n$3nested);\n"
        "$4veltrano_release(nested);\n",
        {prefix_, name, value, call, indent});
  }

  const std::string prefix_;
  std::string text_;
};

}  // namespace

Headers headersForC(const Plan& plan) {
  Headers headers;
  const std::string& space = plan.nameSpace;
  for (const Event& event : plan.events) {
    const std::string name = snakeName(event.name);
    Header header(space);
    header.addObject(event.schema, name, false);
    header.addFunction(
        "track_", name, ",\n    void (*completion)(void* context, bool accepted), void* context",
        "veltrano_track(" + literal(event.name) + ", properties, completion, context)");
    headers[filled("$0_c/$1.h", {space, name})] = header.text();
  }
  Header super(space);
  super.addObject(plan.superProperties, "super_properties", true);
  super.addFunction("set_", "super_properties", "", "veltrano_set_super_properties(properties)");
  headers[space + "_c/super_properties.h"] = super.text();
  addHeaderOfAll(headers, space + "_c.h");
  return headers;
}

}  // namespace veltrano::planning
