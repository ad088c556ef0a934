#include "platform/posix/storage/user_defaults.h"

#include <stdio.h>

#include <new>
#include <utility>

namespace veltrano::internal {

PosixUserDefaults::PosixUserDefaults(std::string path) : path_(std::move(path)) {}

double PosixUserDefaults::doubleForKey(std::string_view key) const {
  const std::lock_guard lock(mutex_);
  const auto unwritten = unwritten_.find(key);
  return unwritten != unwritten_.end() ? unwritten->second : numberInFile(key);
}

bool PosixUserDefaults::isStored(double value, std::string_view key) const {
  if (path_.empty()) return doubleForKey(key) == value;
  const std::lock_guard lock(mutex_);
  return unwritten_.find(key) == unwritten_.end() && numberInFile(key) == value;
}

void PosixUserDefaults::setDouble(double value, std::string_view key) {
  try {
    {
      const std::lock_guard lock(mutex_);
      unwritten_.insert_or_assign(std::string(key), value);
    }
    if (!path_.empty()) writeFile();
  } catch (const std::bad_alloc&) {
    // The value still applies to this process.
  }
}

// Called with mutex_ held.
double PosixUserDefaults::numberInFile(std::string_view key) const {
  if (path_.empty()) return 0;
  // Taken before reading: a change in between is noticed the next time.
  const auto stamp = stampOf(path_);
  if (stamp != readStamp_) {
    try {
      // Keeps the last contents while the file cannot be read.
      const FileContents file = readFile(path_);
      if (file.contents || !file.exists) {
        list_ = file.contents ? PropertyList::parse(*file.contents) : std::nullopt;
        readStamp_ = stamp;
      }
    } catch (const std::bad_alloc&) {
      // Keeps the last contents when memory runs out, too.
    }
  }
  return list_ ? list_->number(key).value_or(0) : 0;
}

// Writes all unwritten values. Concurrent callers wait for the one that writes.
void PosixUserDefaults::writeFile() {
  const std::lock_guard onlyWriter(writing_);
  Numbers numbers;
  {
    const std::lock_guard lock(mutex_);
    numbers = unwritten_;
  }
  if (numbers.empty()) return;
  const FileContents file = readFile(path_);
  if (file.exists && !file.contents) return;  // does not replace what it cannot read
  std::optional<PropertyList> list;
  if (file.contents) {
    list = PropertyList::parse(*file.contents);
    if (!list && rename(path_.c_str(), (path_ + ".damaged").c_str()) != 0) return;
  }
  if (!list) list.emplace();
  for (const auto& [key, number] : numbers) list->setNumber(number, key);
  if (!replaceFile(path_, list->xml())) return;

  const std::lock_guard lock(mutex_);
  list_.reset();
  readStamp_.reset();
  for (const auto& [key, number] : numbers) {
    const auto unwritten = unwritten_.find(key);
    if (unwritten->second == number) unwritten_.erase(unwritten);
  }
}

}  // namespace veltrano::internal
