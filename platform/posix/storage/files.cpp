#include "platform/posix/storage/files.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace veltrano {
namespace {

constexpr off_t kLargestFile = 4 << 20;

class Descriptor {
 public:
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  ~Descriptor() {
    if (isOpen()) close(descriptor_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  bool isOpen() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }

 private:
  const int descriptor_;
};

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// Makes a rename in the directory of `path` durable. Some file systems cannot; that is no failure.
void syncDirectory(const std::string& path) {
  const auto slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const Descriptor descriptor(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (descriptor.isOpen()) fsync(descriptor.get());
}

}  // namespace

FileContents readFile(const std::string& path) {
  // Non-blocking, for whatever may stand there in the place of a file.
  const Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!file.isOpen()) return {errno != ENOENT && errno != ENOTDIR, std::nullopt};
  struct stat status;
  if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
      status.st_size > kLargestFile) {
    return {true, std::nullopt};
  }
  std::string contents(static_cast<std::size_t>(status.st_size), '\0');
  std::size_t size = 0;
  while (size < contents.size()) {
    const ssize_t count = read(file.get(), contents.data() + size, contents.size() - size);
    if (count < 0 && errno != EINTR) return {true, std::nullopt};
    if (count == 0) break;
    if (count > 0) size += static_cast<std::size_t>(count);
  }
  contents.resize(size);
  return {true, std::move(contents)};
}

bool replaceFile(const std::string& path, std::string_view contents) {
  std::string temporary = path + ".XXXXXX";
  bool isWritten = false;
  {
    const Descriptor file(mkostemp(temporary.data(), O_CLOEXEC));
    if (!file.isOpen()) return false;
    struct stat replaced;
    if (stat(path.c_str(), &replaced) == 0) fchmod(file.get(), replaced.st_mode & 07777);
    isWritten = writeAll(file.get(), contents) && fsync(file.get()) == 0;
  }
  if (!isWritten || rename(temporary.c_str(), path.c_str()) != 0) {
    unlink(temporary.c_str());
    return false;
  }
  syncDirectory(path);
  return true;
}

}  // namespace veltrano
