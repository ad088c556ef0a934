#include "plan/names.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <utility>

#include "plan/plan.h"

namespace veltrano::planning {
namespace {

// The words of C++20 and C11, and macros of common headers and compilers and of Qt, without
// those in capitals.
constexpr std::string_view kReserved =
    " alignas alignof and and_eq asm auto bitand bitor bool break case catch char char8_t char16_t "
    "char32_t class compl concept const consteval constexpr constinit const_cast continue co_await "
    "co_return co_yield decltype default delete do double dynamic_cast else enum explicit export "
    "extern false float for friend goto if inline int long mutable namespace new noexcept not "
    "not_eq nullptr operator or or_eq private protected public register reinterpret_cast requires "
    "restrict return short signed sizeof static static_assert static_cast struct switch template "
    "this thread_local throw true try typedef typeid typename typeof union unsigned using virtual "
    "void volatile wchar_t while xor xor_eq assert complex errno i386 imaginary linux noreturn "
    "offsetof setjmp stderr stdin stdout unix va_arg va_copy va_end va_start I std veltrano posix "
    "emit signals slots s_addr sa_handler si_pid st_atime st_ctime st_mtime ";

// What common headers of C, which a host includes, declare outside every namespace; and their own
// names, because the namespace's header would be found in their place.
constexpr std::string_view kGlobal =
    " abort abs accept access alarm alloca atoi bind brk calloc ceil clock close complex connect "
    "cos ctype daylight div dlfcn dup endian environ exit exp fcntl features fenv floor fork free "
    "gamma getc gets index inttypes ioctl j0 j1 jn kill labs limits link listen locale log malloc "
    "math memory netdb nice open optarg pause pipe poll pow printf pthread putc puts pwd raise "
    "rand random read recv regex remove rename round scanf sched search select semaphore send "
    "setenv setjmp shutdown signal sin sleep socket spawn sqrt stat stdarg stdbool stddef stdint "
    "stdio stdlib string strings strtol sync syslog system tan termios tgmath threads time "
    "timezone trunc truncate uchar unistd unlink Veltrano wait wchar wctype write y0 y1 yn ";

// The name's letters and digits, with "_" for each run of anything else.
std::string words(std::string_view name) {
  std::string words;
  for (const wchar_t c : codePoints(name)) {
    if (c >= 0x80) {
      char text[12];
      std::snprintf(text, sizeof text, "u%04X", static_cast<unsigned>(c));
      words += text;
    } else if (std::isalnum(static_cast<unsigned char>(c)) != 0) {
      words += static_cast<char>(c);
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
  // A letter and its combining mark look like the composed letter, but are another name.
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
