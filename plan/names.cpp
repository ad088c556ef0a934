#include "plan/names.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <utility>

#include "plan/plan.h"

namespace veltrano::planning {
namespace {

// The words of C++20 and C11, and macros of their standard headers and of common compilers, without
// those in capitals.
constexpr std::string_view kReserved =
    " alignas alignof and and_eq asm auto bitand bitor bool break case catch char char8_t char16_t "
    "char32_t class compl concept const consteval constexpr constinit const_cast continue "
    "co_await co_return co_yield decltype default delete do double dynamic_cast else enum explicit "
    "export extern false float for friend goto if inline int long mutable namespace new noexcept "
    "not not_eq nullptr operator or or_eq private protected public register reinterpret_cast "
    "requires restrict return short signed sizeof static static_assert static_cast struct switch "
    "template this thread_local throw true try typedef typeid typename typeof union unsigned using "
    "virtual void volatile wchar_t while xor xor_eq "
    "assert complex errno i386 imaginary linux noreturn offsetof setjmp stderr stdin stdout unix "
    "va_arg va_copy va_end va_start I std veltrano posix ";

// What common headers of C, which a host includes, declare outside every namespace.
constexpr std::string_view kGlobal =
    " Veltrano abort abs accept access alarm atoi bind brk calloc ceil clock close connect cos "
    "daylight div dup environ exit exp floor fork free gamma getc gets index ioctl j0 j1 jn kill "
    "labs link listen log malloc nice open optarg pause pipe pow printf putc puts raise rand "
    "random "
    "read recv remove rename round scanf select send setenv shutdown signal sin sleep socket sqrt "
    "stat strtol sync system tan time timezone truncate trunc unlink wait write y0 y1 yn ";

// The name's letters and digits, with "_" for each run of anything else.
std::string words(std::string_view name) {
  std::string words;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const auto c = static_cast<unsigned char>(name[i]);
    if (c >= 0xC0) {  // the first byte of a character outside ASCII
      unsigned codePoint = c >= 0xF0 ? c & 0x07 : c >= 0xE0 ? c & 0x0F : c & 0x1F;
      for (; i + 1 < name.size() && (name[i + 1] & 0xC0) == 0x80; ++i)
        codePoint = codePoint << 6 | (name[i + 1] & 0x3F);
      char text[12];
      std::snprintf(text, sizeof text, "u%04X", codePoint);
      words += text;
    } else if (std::isalnum(c) != 0) {
      words += name[i];
    } else if (!words.empty() && words.back() != '_') {
      words += '_';
    }
  }
  if (!words.empty() && words.back() == '_') words.pop_back();
  if (!words.empty() && words.front() <= '9') words.insert(words.begin(), 'n');
  return words;
}

std::string unreserved(std::string identifier) {
  const bool isReserved = kReserved.find(' ' + identifier + ' ') != kReserved.npos;
  // Most macros are all capitals, such as ENOENT.
  const bool isMacro = identifier.size() > 1 && upperCase(identifier) == identifier;
  if (isReserved || isMacro) identifier += '_';
  return identifier;
}

}  // namespace

std::string faultOfName(std::string_view name) {
  if (std::any_of(name.begin(), name.end(), [](unsigned char c) { return std::iscntrl(c) != 0; }))
    return inQuotes(name) + " has control characters";
  // Letters with marks of their own could be spelt in two ways, which the library takes for one.
  for (std::size_t i = 0; i + 1 < name.size(); ++i)
    if (name[i] == '\xCC' || (name[i] == '\xCD' && name[i + 1] < '\xB0'))
      return inQuotes(name) + " has combining marks; write composed letters";
  return words(name).empty() ? inQuotes(name) + " has no letter or digit to make an identifier of"
                             : "";
}

bool isGlobal(const std::string& identifier) {
  return kGlobal.find(' ' + identifier + ' ') != kGlobal.npos;
}

std::string memberName(std::string_view name) {
  return unreserved(words(name));
}

std::string typeName(std::string_view name) {
  std::string type;
  bool isFirst = true;
  for (const char c : words(name)) {
    if (c != '_') type += isFirst ? upperCase({c}) : std::string{c};
    isFirst = c == '_';
  }
  return unreserved(std::move(type));
}

std::string nestedTypeName(std::string_view name, std::string_view enclosing) {
  const std::string type = typeName(name);
  return type == memberName(name) || type == enclosing ? type + '_' : type;
}

std::string snakeName(std::string_view name) {
  std::string text = words(name);
  for (char& c : text) c = static_cast<char>(std::tolower(c));
  return text;
}

std::string upperCase(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(c));
  return text;
}

}  // namespace veltrano::planning
