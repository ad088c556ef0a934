#include "platform/posix/storage/user_defaults.h"

#include <stdio.h>

#include <utility>

#include "platform/posix/storage/files.h"

namespace veltrano {

PosixUserDefaults::PosixUserDefaults(std::string path) : path_(std::move(path)) {}

double PosixUserDefaults::doubleForKey(std::string_view key) const {
  const std::lock_guard lock(mutex_);
  return loadedList().number(std::string(key)).value_or(0);
}

void PosixUserDefaults::setDouble(double value, std::string_view key) {
  std::uint64_t version = 0;
  std::string text;
  {
    const std::lock_guard lock(mutex_);
    PropertyList& list = loadedList();
    list.setNumber(value, std::string(key));
    if (!isFileUsable_) return;
    version = ++version_;
    text = list.xml();
  }
  writeFile(version, text);
}

// Called with mutex_ held.
PropertyList& PosixUserDefaults::loadedList() const {
  if (list_) return *list_;
  if (!path_.empty()) {
    const FileContents file = readFile(path_);
    isFileUsable_ = file.contents.has_value() || !file.exists;
    if (file.contents) {
      list_ = PropertyList::parse(*file.contents);
      // What cannot be set aside is left as it is.
      if (!list_ && rename(path_.c_str(), (path_ + ".damaged").c_str()) != 0) isFileUsable_ = false;
    }
  }
  if (!list_) list_.emplace();
  return *list_;
}

// Of concurrent changes the latest is to stay, in whatever order they get here.
void PosixUserDefaults::writeFile(std::uint64_t version, const std::string& text) {
  const std::lock_guard lock(fileMutex_);
  if (version < versionInFile_) return;
  if (replaceFile(path_, text)) versionInFile_ = version;
}

}  // namespace veltrano
