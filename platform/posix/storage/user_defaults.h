#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "platform/mutex.h"
#include "platform/user_defaults.h"

namespace veltrano::internal {

/// User defaults in a text file of the library's own, with a key and its number on each line. The
/// file is read once and replaced atomically on each write. Before replacing one in any other form,
/// it is renamed to "NAME.damaged". A value that cannot be written still applies to this process,
/// and is written together with the next one.
class PosixUserDefaults final : public UserDefaults {
 public:
  /// Reads the file. An empty path means no file: values last as long as the process.
  explicit PosixUserDefaults(std::string path);

  double doubleForKey(std::string_view key) const override;
  bool isStored(double value, std::string_view key) const override;

  /// Blocks until the value is on disk or writing has failed. Readers do not wait for that.
  void setDouble(double value, std::string_view key) override;

 private:
  using Numbers = std::map<std::string, double, std::less<>>;

  void writeFile();

  const std::string path_;

  Mutex writing_;                        // taken before mutex_
  bool isDamaged_ GUARDED_BY(writing_);  // the file
  mutable Mutex mutex_;
  Numbers stored_ GUARDED_BY(mutex_);   // in the file
  Numbers numbers_ GUARDED_BY(mutex_);  // that apply
};

}  // namespace veltrano::internal
