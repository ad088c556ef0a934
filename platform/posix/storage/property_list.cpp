#include "platform/posix/storage/property_list.h"

#include <expat.h>

#include <limits>
#include <memory>
#include <new>
#include <string>
#include <utility>

namespace veltrano::internal {
namespace {

constexpr int kMostElements = 100'000;
constexpr int kMostLevels = 64;

class Reader {
 public:
  Reader() : parser_(XML_ParserCreate(nullptr), XML_ParserFree) {
    if (parser_ == nullptr) throw std::bad_alloc();
    XML_SetUserData(parser_.get(), this);
    XML_SetElementHandler(parser_.get(), &Reader::started, &Reader::ended);
    XML_SetCharacterDataHandler(parser_.get(), &Reader::found);
    // An entity can expand to any amount of text.
    XML_SetEntityDeclHandler(parser_.get(), [](void* self, auto...) {
      static_cast<Reader*>(self)->attempt([](Reader&) { return false; });
    });
  }

  std::optional<HostMap> read(std::string_view text) {
    const auto status =
        XML_Parse(parser_.get(), text.data(), static_cast<int>(text.size()), XML_TRUE);
    if (ranOutOfMemory_ || XML_GetErrorCode(parser_.get()) == XML_ERROR_NO_MEMORY)
      throw std::bad_alloc();
    if (status != XML_STATUS_OK || !isComplete_) return std::nullopt;
    return std::move(entries_);
  }

 private:
  static void started(void* self, const char* name, const char**) {
    static_cast<Reader*>(self)->attempt([&](Reader& reader) { return reader.start(name); });
  }
  static void ended(void* self, const char* name) {
    static_cast<Reader*>(self)->attempt([&](Reader& reader) { return reader.end(name); });
  }
  static void found(void* self, const char* text, int size) {
    static_cast<Reader*>(self)->attempt([&](Reader& reader) {
      if (reader.level_ == 2) reader.text_.append(text, static_cast<std::size_t>(size));
      return true;
    });
  }

  // Stops the parser when `work` returns false or throws: exceptions must not cross C.
  template <class Work>
  void attempt(Work work) noexcept {
    if (isRefused_) return;  // the parser may still call after it was stopped
    try {
      isRefused_ = !work(*this);
    } catch (const std::bad_alloc&) {
      isRefused_ = ranOutOfMemory_ = true;
    }
    if (isRefused_) XML_StopParser(parser_.get(), XML_FALSE);
  }

  bool start(std::string_view name) {
    if (level_ == 0 && name == "plist") return true;
    if (++elements_ > kMostElements || level_ == kMostLevels) return false;
    if (level_ == 0 && (name != "dict" || isComplete_)) return false;
    if (level_ == 1 && (name == "key") == key_.has_value()) return false;
    ++level_;
    text_.clear();
    return true;
  }

  bool end(std::string_view name) {
    if (level_ == 0) return true;  // "plist"
    --level_;
    if (level_ == 0) isComplete_ = true;
    if (level_ == 0) return !key_;
    if (level_ > 1) return true;
    if (name == "key") {
      key_ = std::move(text_);
    } else {
      entries_.set(*key_, name == "string" ? HostValue(text_) : HostValue(OtherObject{}));
      key_.reset();
    }
    return true;
  }

  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser_;
  HostMap entries_;
  std::optional<std::string> key_;  // of the entry whose value follows
  std::string text_;                // of the open entry's key or value
  int elements_ = 0;
  int level_ = 0;  // open elements, without "plist"
  bool isComplete_ = false;
  bool isRefused_ = false;
  bool ranOutOfMemory_ = false;
};

}  // namespace

std::optional<HostMap> readPropertyList(std::string_view text) {
  if (text.size() > std::numeric_limits<int>::max()) return std::nullopt;
  return Reader().read(text);
}

}  // namespace veltrano::internal
