#include "platform/posix/storage/user_defaults.h"

#include <stdio.h>

#include <charconv>
#include <new>
#include <optional>
#include <utility>

#include "encoding/numbers.h"
#include "platform/posix/storage/files.h"

namespace veltrano::internal {
namespace {

using Numbers = std::map<std::string, double, std::less<>>;

double numberIn(const Numbers& numbers, std::string_view key) {
  const auto number = numbers.find(key);
  return number == numbers.end() ? 0 : number->second;
}

// None if `text` has another form.
std::optional<Numbers> numbersIn(std::string_view text) {
  Numbers numbers;
  while (!text.empty()) {
    const auto space = text.find(' ');
    const auto end = text.find('\n');
    if (end == std::string_view::npos || space == 0 || space > end) return std::nullopt;
    const auto number = decimalNumber(text.substr(space + 1, end - space - 1));
    if (!number) return std::nullopt;
    numbers.insert_or_assign(std::string(text.substr(0, space)), *number);
    text.remove_prefix(end + 1);
  }
  return numbers;
}

std::string textOf(const Numbers& numbers) {
  std::string text;
  for (const auto& [key, number] : numbers) {
    char digits[32];
    const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    text.append(key).append(" ").append(digits, end).append("\n");
  }
  return text;
}

}  // namespace

PosixUserDefaults::PosixUserDefaults(std::string path) : path_(std::move(path)) {
  const FileContents file = readFile(path_);
  auto numbers = numbersIn(file.contents.value_or(""));
  isDamaged_ = !numbers || (file.exists && !file.contents);
  if (numbers) numbers_ = stored_ = std::move(*numbers);
}

double PosixUserDefaults::doubleForKey(std::string_view key) const {
  const Lock lock(mutex_);
  return numberIn(numbers_, key);
}

bool PosixUserDefaults::isStored(double value, std::string_view key) const {
  const Lock lock(mutex_);
  return numberIn(numbers_, key) == value && (path_.empty() || numberIn(stored_, key) == value);
}

void PosixUserDefaults::setDouble(double value, std::string_view key) {
  try {
    {
      const Lock lock(mutex_);
      numbers_.insert_or_assign(std::string(key), value);
    }
    if (!path_.empty()) writeFile();
  } catch (const std::bad_alloc&) {
    // The value still applies to this process.
  }
}

// Concurrent callers wait for the one that writes.
void PosixUserDefaults::writeFile() {
  const Lock onlyWriter(writing_);
  Numbers numbers;
  {
    const Lock lock(mutex_);
    if (numbers_ == stored_) return;
    numbers = numbers_;
  }
  if (isDamaged_ && rename(path_.c_str(), (path_ + ".damaged").c_str()) != 0) return;
  isDamaged_ = false;
  if (!replaceFile(path_, textOf(numbers))) return;

  const Lock lock(mutex_);
  stored_ = std::move(numbers);
}

}  // namespace veltrano::internal
