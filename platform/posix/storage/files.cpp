#include "platform/posix/storage/files.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

namespace veltrano::internal {
namespace {

constexpr std::size_t kLargestFile = 4 << 20;

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

// Repeats a system call while signals interrupt it.
template <class Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

// O_CLOEXEC: executed programs do not inherit the descriptor.
int openForReading(const std::string& path, int flags) {
  return uninterrupted([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC | flags); });
}

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written =
        uninterrupted([&] { return write(descriptor, bytes.data(), bytes.size()); });
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool isSynced(int descriptor) {
  return uninterrupted([&] { return fsync(descriptor); }) == 0;
}

// Makes a rename in the directory of `path` durable. Best effort: some file systems cannot.
void syncDirectory(const std::string& path) {
  const auto slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const Descriptor descriptor(openForReading(directory, O_DIRECTORY));
  if (descriptor.isOpen()) isSynced(descriptor.get());
}

}  // namespace

FileContents readFile(const std::string& path) {
  // Non-blocking, because there may be a FIFO or a device at the path.
  const Descriptor file(openForReading(path, O_NONBLOCK));
  if (!file.isOpen())
    return {errno != ENOENT && errno != ENOTDIR, std::nullopt, errno == EMFILE || errno == ENFILE};
  struct stat status;
  if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {.exists = true};
  // Reads to the end: files in /proc report no size.
  std::string contents;
  char part[16 * 1024];
  for (;;) {
    const ssize_t count = uninterrupted([&] { return read(file.get(), part, sizeof part); });
    if (count == 0) return {.exists = true, .contents = std::move(contents)};
    if (count < 0 || contents.size() + static_cast<std::size_t>(count) > kLargestFile)
      return {.exists = true};
    contents.append(part, static_cast<std::size_t>(count));
  }
}

std::string linkTarget(const std::string& path) {
  std::filesystem::path target(path);
  std::error_code error;
  for (int links = 0; links < 40 && std::filesystem::is_symlink(target, error); ++links)
    target = target.parent_path() / std::filesystem::read_symlink(target, error);
  return target.string();
}

bool isWritable(const std::string& directory) {
  return faccessat(AT_FDCWD, directory.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

bool replaceFile(const std::string& path, std::string_view contents) {
  if (contents.size() > kLargestFile) return false;  // readFile would refuse it
  std::string temporary = path + ".XXXXXX";
  bool isWritten = false;
  {
    const Descriptor file(mkostemp(temporary.data(), O_CLOEXEC));
    if (!file.isOpen()) return false;
    struct stat replaced;
    if (stat(path.c_str(), &replaced) == 0) fchmod(file.get(), replaced.st_mode & 07777);
    isWritten = writeAll(file.get(), contents) && isSynced(file.get());
  }
  if (!isWritten || rename(temporary.c_str(), path.c_str()) != 0) {
    unlink(temporary.c_str());
    return false;
  }
  syncDirectory(path);
  return true;
}

}  // namespace veltrano::internal
