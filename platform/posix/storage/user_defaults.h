#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/posix/storage/property_list.h"
#include "platform/user_defaults.h"

namespace veltrano {

/// User defaults in one property-list file, which is read at the first use and replaced as a whole
/// with every change; the file's other entries stay. A damaged file is set aside, as
/// "NAME.damaged". Without a file, or with one that cannot be read, values live in memory.
class PosixUserDefaults final : public UserDefaults {
 public:
  /// An empty path means no file.
  explicit PosixUserDefaults(std::string path);

  double doubleForKey(std::string_view key) const override;

  /// Returns when the value is on the disk. Readers do not wait for that.
  void setDouble(double value, std::string_view key) override;

 private:
  PropertyList& loadedList() const;
  void writeFile(std::uint64_t version, const std::string& text);

  const std::string path_;

  mutable std::mutex mutex_;
  mutable std::optional<PropertyList> list_;  // guarded by mutex_
  mutable bool isFileUsable_ = false;         // guarded by mutex_, as are the following
  std::uint64_t version_ = 0;

  std::mutex fileMutex_;             // taken without mutex_
  std::uint64_t versionInFile_ = 0;  // guarded by fileMutex_
};

}  // namespace veltrano
