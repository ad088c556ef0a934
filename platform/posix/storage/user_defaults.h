#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/posix/storage/files.h"
#include "platform/posix/storage/property_list.h"
#include "platform/user_defaults.h"

namespace veltrano::internal {

/// User defaults in a property-list file. The file is reread when it has changed and replaced
/// atomically on each write; its other entries are preserved. Before replacing a damaged file, it
/// is renamed to "NAME.damaged". A value that cannot be written still applies to this process, and
/// is written together with the next one.
class PosixUserDefaults final : public UserDefaults {
 public:
  /// An empty path means no file: values last as long as the process.
  explicit PosixUserDefaults(std::string path);

  double doubleForKey(std::string_view key) const override;
  bool isStored(double value, std::string_view key) const override;

  /// Blocks until the value is on disk or writing has failed. Readers do not wait for that.
  void setDouble(double value, std::string_view key) override;

 private:
  using Numbers = std::map<std::string, double, std::less<>>;

  double numberInFile(std::string_view key) const;
  void writeFile();

  const std::string path_;

  std::mutex writing_;  // taken before mutex_
  mutable std::mutex mutex_;
  Numbers unwritten_;                           // guarded by mutex_, like the following
  mutable std::optional<PropertyList> list_;    // as last read; none if unusable
  mutable std::optional<FileStamp> readStamp_;  // of the file as last read
};

}  // namespace veltrano::internal
