// The XML form of property lists. Expat parses the XML; this builds the tree from it.
#include <expat.h>

#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "platform/posix/storage/property_list_tree.h"

namespace veltrano::internal {
namespace {

using Kind = PropertyListNode::Kind;

constexpr std::string_view kSpace = " \t\r\n";

struct Element {
  std::string_view name;
  Kind kind;
};
constexpr Element kElements[] = {
    {"array", Kind::array},     {"data", Kind::data},     {"date", Kind::date},
    {"dict", Kind::dictionary}, {"false", Kind::boolean}, {"integer", Kind::integer},
    {"key", Kind::key},         {"real", Kind::real},     {"string", Kind::string},
    {"true", Kind::boolean},
};

std::string_view nameOf(const PropertyListNode& node) {
  if (node.kind == Kind::boolean) return node.text;
  for (const Element& element : kElements)
    if (element.kind == node.kind) return element.name;
  return {};
}

bool isContainer(Kind kind) {
  return kind == Kind::array || kind == Kind::dictionary;
}

void require(bool condition) {
  if (!condition) throw UnusablePropertyList();
}

class XMLReader {
 public:
  XMLReader() : parser_(XML_ParserCreate(nullptr), XML_ParserFree) {
    if (parser_ == nullptr) throw std::bad_alloc();
    XML_SetUserData(parser_.get(), this);
    XML_SetElementHandler(parser_.get(), &XMLReader::started, &XMLReader::ended);
    XML_SetCharacterDataHandler(parser_.get(), &XMLReader::found);
    // Rejects entity declarations: an entity can expand to any amount of text.
    XML_SetEntityDeclHandler(parser_.get(), [](void* self, auto...) {
      static_cast<XMLReader*>(self)->attempt([](XMLReader&) { throw UnusablePropertyList(); });
    });
  }

  PropertyListNode read(std::string_view text) {
    const auto status =
        XML_Parse(parser_.get(), text.data(), static_cast<int>(text.size()), XML_TRUE);
    if (failure_) std::rethrow_exception(failure_);
    if (XML_GetErrorCode(parser_.get()) == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
    require(status == XML_STATUS_OK && root_);
    return std::move(*root_);
  }

 private:
  static void started(void* self, const char* name, const char**) {
    static_cast<XMLReader*>(self)->attempt([&](XMLReader& reader) { reader.start(name); });
  }
  static void ended(void* self, const char* name) {
    static_cast<XMLReader*>(self)->attempt([&](XMLReader& reader) { reader.end(name); });
  }
  static void found(void* self, const char* text, int size) {
    static_cast<XMLReader*>(self)->attempt([&](XMLReader& reader) {
      reader.find({text, static_cast<std::size_t>(size)});
    });
  }

  // Exceptions must not cross the parser, which is written in C.
  template <class Work>
  void attempt(Work work) noexcept {
    if (failure_) return;
    try {
      work(*this);
    } catch (...) {
      failure_ = std::current_exception();
      XML_StopParser(parser_.get(), XML_FALSE);
    }
  }

  void start(std::string_view name) {
    require(open_.empty() || isContainer(open_.back().kind));
    if (name == "plist" && open_.empty()) return;
    for (const Element& element : kElements) {
      if (element.name != name) continue;
      budget_.spendNode(static_cast<int>(open_.size()));
      open_.push_back({element.kind, {}, {}});
      return;
    }
    throw UnusablePropertyList();
  }

  void find(std::string_view text) {
    if (open_.empty() || isContainer(open_.back().kind)) {
      require(text.find_first_not_of(kSpace) == std::string_view::npos);
      return;
    }
    budget_.spendBytes(text.size());
    open_.back().text += text;
  }

  // Expat has checked that this closes the innermost open element.
  void end(std::string_view name) {
    if (open_.empty()) return;  // "plist"
    PropertyListNode node = std::move(open_.back());
    open_.pop_back();
    if (node.kind == Kind::boolean) node.text = name;
    if (node.kind != Kind::string && node.kind != Kind::key) trim(node.text);
    require(node.kind != Kind::dictionary || node.items.size() % 2 == 0);
    if (open_.empty()) {
      require(!root_ && node.kind != Kind::key);
      root_ = std::move(node);
      return;
    }
    PropertyListNode& container = open_.back();
    const bool isKeysTurn = container.kind == Kind::dictionary && container.items.size() % 2 == 0;
    require(isKeysTurn == (node.kind == Kind::key));
    container.items.push_back(std::move(node));
  }

  static void trim(std::string& text) {
    text.erase(0, text.find_first_not_of(kSpace));
    text.erase(text.find_last_not_of(kSpace) + 1);
  }

  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser_;
  PropertyListBudget budget_;
  std::vector<PropertyListNode> open_;  // open elements, outermost first
  std::optional<PropertyListNode> root_;
  std::exception_ptr failure_;
};

void appendEscaped(std::string_view text, std::string& xml) {
  for (const char c : text) {
    switch (c) {
      case '&':
        xml += "&amp;";
        break;
      case '<':
        xml += "&lt;";
        break;
      case '>':
        xml += "&gt;";
        break;
      case '\r':  // would otherwise be read back as a line feed
        xml += "&#13;";
        break;
      default:
        xml += c;
    }
  }
}

void append(const PropertyListNode& node, std::size_t depth, std::string& xml) {
  const std::string_view name = nameOf(node);
  xml.append(depth, '\t').append("<").append(name);
  if (node.kind == Kind::boolean) {
    xml += "/>\n";
    return;
  }
  xml += '>';
  if (isContainer(node.kind)) {
    xml += '\n';
    for (const PropertyListNode& item : node.items) append(item, depth + 1, xml);
    xml.append(depth, '\t');
  } else {
    appendEscaped(node.text, xml);
  }
  xml.append("</").append(name).append(">\n");
}

}  // namespace

PropertyListNode readXMLPropertyList(std::string_view text) {
  require(text.size() <= std::numeric_limits<int>::max());
  return XMLReader().read(text);
}

std::string xmlOf(const PropertyListNode& root) {
  std::string xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<plist version=\"1.0\">\n";
  append(root, 0, xml);
  xml += "</plist>\n";
  return xml;
}

}  // namespace veltrano::internal
