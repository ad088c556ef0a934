#include "plan/names.h"
#include "tools/plan/generate.h"

namespace veltrano::planning {
namespace {

// What a value is in C: its type, the function that sets it, and whether zero means that it is
// absent.
struct Form {
  std::string type;
  std::string function;
  bool hasAbsence;
};

class Header {
 public:
  explicit Header(const std::string& space) : prefix_(space + '_') {}

  std::string text() const { return text_; }

  // Declares the struct for an object and the function that makes a dictionary of one.
  void addObject(const Schema& schema, const std::string& name, bool isSuper) {
    std::string members, sets;
    for (const auto& [key, held, isRequired] : schema.properties) {
      const std::string member = memberName(key), given = "object->" + member;
      const std::string inner = name + '_' + snakeName(key);
      members += comment(held.description, "  ");
      if (held.type == Type::list && isScalarOrObject(held.element[0])) {
        const Form form = formOf(held.element[0], inner);
        members +=
            (form.type == "const char*" ? "  const char* const* " : "  const " + form.type + "* ") +
            member + ";\n  size_t " + member + "_count;\n";
        sets += "  if (" + given +
                " != NULL) {\n    veltrano_object* const list = veltrano_array();\n"
                "    for (size_t i = 0; i < " +
                given + "_count; ++i) {\n" +
                call("array_append_", "list", "", held.element[0], form, given + "[i]", "      ") +
                "    }\n" + set("object", key, "list", "    ") +
                "    veltrano_release(list);\n  }\n";
        continue;
      }
      const Form form = formOf(held, inner);
      const bool isObject =
          form.function == "object" && held.type == Type::object && !held.properties.empty();
      const bool needsFlag = !form.hasAbsence && !isObject && (!isRequired || isSuper);
      members += "  " + (isObject ? "const " + form.type + '*' : form.type) + ' ' + member + ";\n";
      if (needsFlag) members += "  bool has_" + member + ";\n";
      std::string line = call("dictionary_set_", "properties", literal(key), held, form,
                              isObject ? '*' + given : given, "  ");
      const std::string condition = needsFlag  ? "object->has_" + member
                                    : isObject ? given + " != NULL"
                                               : "";
      sets += condition.empty() ? line : "  if (" + condition + ") {\n" + line + "  }\n";
    }
    if (members.empty()) members = "  char unused;\n";
    text_ += '\n' + comment(schema.description, "") + "typedef struct " + prefix_ + name + " {\n" +
             members + "} " + prefix_ + name + ";\n\nstatic inline veltrano_object* " + prefix_ +
             "make_" + name + "(const " + prefix_ + name +
             "* object) {\n  veltrano_object* const properties = veltrano_dictionary();\n" + sets +
             (sets.empty() ? "  (void)object;\n" : "") + "  return properties;\n}\n";
  }

  void addFunction(const std::string& signature, const std::string& name, const std::string& call) {
    text_ += "\nstatic inline bool " + prefix_ + signature +
             " {\n  veltrano_object* const properties = " + prefix_ + "make_" + name +
             "(object);\n  const bool is_done = " + call +
             ";\n  veltrano_release(properties);\n  return is_done;\n}\n";
  }

 private:
  static bool isScalarOrObject(const Schema& schema) {
    return schema.type != Type::any && schema.type != Type::list &&
           (schema.type != Type::object || !schema.properties.empty());
  }

  Form formOf(const Schema& schema, const std::string& name) {
    if (!schema.values.empty()) {
      addEnumeration(schema, name);
      return {"enum " + prefix_ + name, "text", true};
    }
    switch (schema.type) {
      case Type::text:
        return {"const char*", "text", true};
      case Type::uri:
        return {"const char*", "url", true};
      case Type::integer:
        return {"int64_t", "int", false};
      case Type::number:
        return {"double", "double", false};
      case Type::boolean:
        return {"bool", "bool", false};
      case Type::date:  // seconds since 1970
        return {"double", "date", false};
      default:
        if (schema.properties.empty()) return {"const veltrano_object*", "object", true};
        addObject(schema, name, false);
        return {prefix_ + name, "object", false};
    }
  }

  void addEnumeration(const Schema& schema, const std::string& name) {
    const std::string type = "enum " + prefix_ + name;
    std::string constants, cases;
    for (const std::string& value : schema.values) {
      const std::string constant = upperCase(prefix_ + name + '_' + snakeName(value));
      // Zero is absent.
      constants += "  " + constant + (constants.empty() ? " = 1,\n" : ",\n");
      cases += "    case " + constant + ":\n      return " + literal(value) + ";\n";
    }
    constants.erase(constants.size() - 2, 1);
    text_ += '\n' + type + " {\n" + constants + "};\n\nstatic inline const char* " + prefix_ +
             "text_of_" + name + '(' + type + " value) {\n  switch (value) {\n" + cases +
             "  }\n  return NULL;\n}\n";
  }

  static std::string set(const std::string& function, std::string_view key,
                         const std::string& value, const std::string& indent) {
    return indent + "veltrano_dictionary_set_" + function + "(properties, " + literal(key) + ", " +
           value + ");\n";
  }

  std::string call(const std::string& start, const std::string& target, const std::string& key,
                   const Schema& schema, const Form& form, const std::string& value,
                   const std::string& indent) const {
    std::string function = form.function, given = value, before, after;
    if (!schema.values.empty())
      given =
          prefix_ + "text_of_" + form.type.substr(("enum " + prefix_).size()) + '(' + value + ')';
    if (!schema.properties.empty()) {
      before = indent + "veltrano_object* const nested = " + prefix_ + "make_" +
               form.type.substr(prefix_.size()) + "(&" + value + ");\n";
      after = indent + "veltrano_release(nested);\n";
      given = "nested";
    }
    if (start == "array_append_" && function == "object") function.clear();
    return before + indent + "veltrano_" +
           (function.empty() ? start.substr(0, start.size() - 1) : start + function) + '(' +
           target + ", " + (key.empty() ? "" : key + ", ") + given + ");\n" + after;
  }

  const std::string prefix_;
  std::string text_;
};

std::string finished(const Header& header) {
  return std::string(kMark) +
         "#pragma once\n\n#include <stdbool.h>\n#include <stddef.h>\n"
         "#include <stdint.h>\n\n#include \"veltrano/veltrano_c.h\"\n" +
         header.text();
}

}  // namespace

Headers headersForC(const Plan& plan) {
  Headers headers;
  const std::string& space = plan.nameSpace;
  for (const Event& event : plan.events) {
    const std::string name = snakeName(event.name);
    Header header(space);
    header.addObject(event.schema, name, false);
    header.addFunction(
        "track_" + name + "(const " + space + '_' + name +
            "* object,\n    void (*completion)(void* context, bool accepted), void* context)",
        name, "veltrano_track(" + literal(event.name) + ", properties, completion, context)");
    headers[space + "_c/" + name + ".h"] = finished(header);
  }
  Header super(space);
  super.addObject(plan.superProperties, "super_properties", true);
  super.addFunction("set_super_properties(const " + space + "_super_properties* object)",
                    "super_properties", "veltrano_set_super_properties(properties)");
  headers[space + "_c/super_properties.h"] = finished(super);
  addHeaderOfAll(headers, space + "_c.h");
  return headers;
}

}  // namespace veltrano::planning
