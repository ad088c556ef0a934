#include "plan/names.h"

#include <algorithm>
#include <cstdio>

namespace veltrano::planning {
namespace {

// The words of C++20 and C11, and macros of their standard headers and of common compilers.
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
    "va_arg va_copy va_end va_start BUFSIZ DEBUG DOMAIN EOF HUGE_VAL I INFINITY NAN NDEBUG NULL "
    "OVERFLOW PLOSS SING TLOSS TRUE FALSE UNDERFLOW std veltrano posix ";

bool isLetterOrDigit(unsigned char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// The name's letters and digits, with "_" for each run of anything else.
std::string words(std::string_view name) {
  std::string words;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const auto c = static_cast<unsigned char>(name[i]);
    if (isLetterOrDigit(c)) {
      words += name[i];
    } else if (c >= 0xC0) {  // the first byte of a character outside ASCII
      unsigned codePoint = c >= 0xF0 ? c & 0x07 : c >= 0xE0 ? c & 0x0F : c & 0x1F;
      for (; i + 1 < name.size() && (name[i + 1] & 0xC0) == 0x80; ++i)
        codePoint = codePoint << 6 | (name[i + 1] & 0x3F);
      char text[12];
      std::snprintf(text, sizeof text, "u%04X", codePoint);
      words += text;
    } else if (!words.empty() && words.back() != '_') {
      words += '_';
    }
  }
  if (!words.empty() && words.back() == '_') words.pop_back();
  if (!words.empty() && words.front() <= '9') words.insert(words.begin(), 'n');
  return words;
}

std::string unreserved(std::string identifier) {
  std::string word(" ");
  word.append(identifier).append(" ");
  if (kReserved.find(word) != kReserved.npos) identifier += '_';
  return identifier;
}

}  // namespace

std::string memberName(std::string_view name) {
  return unreserved(words(name));
}

std::string typeName(std::string_view name) {
  std::string type;
  bool isFirst = true;
  for (const char c : words(name)) {
    if (c != '_') type += isFirst && c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    isFirst = c == '_';
  }
  return unreserved(std::move(type));
}

std::string nestedTypeName(std::string_view name) {
  const std::string type = typeName(name);
  return type == memberName(name) ? type + '_' : type;
}

std::string snakeName(std::string_view name) {
  std::string snake = words(name);
  for (char& c : snake)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return snake;
}

std::string upperCase(std::string text) {
  for (char& c : text)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return text;
}

}  // namespace veltrano::planning
