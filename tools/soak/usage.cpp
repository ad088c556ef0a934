#include "tools/soak/usage.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

namespace soak {
namespace {

namespace fs = std::filesystem;

long entries(const fs::path& directory) {
  std::error_code error;  // if the thread has just ended
  const fs::directory_iterator list(directory, error);
  return error ? 0 : std::distance(begin(list), end(list));
}

}  // namespace

Usage most(const std::vector<Usage>& samples, double begin, double end) {
  const auto at = [&](double share) {
    return samples.begin() + static_cast<std::ptrdiff_t>(share * double(samples.size()));
  };
  Usage result;
  std::for_each(at(begin), at(end), [&](const Usage& sample) {
    result.descriptors = std::max(result.descriptors, sample.descriptors);
    result.threads = std::max(result.threads, sample.threads);
    result.kibibytes = std::max(result.kibibytes, sample.kibibytes);
  });
  return result;
}

Usage usageNow() {
  Usage usage;
  usage.descriptors = entries("/proc/self/fd");
  for (const auto& thread : fs::directory_iterator("/proc/self/task")) {
    ++usage.threads;
    std::string name;
    std::getline(std::ifstream(thread.path() / "comm"), name);
    if (name == "veltrano.net") usage.descriptors += entries(thread.path() / "fd");
  }
  long pages = 0;
  std::ifstream("/proc/self/statm") >> pages >> pages;  // the second field is the resident size
  usage.kibibytes = pages * sysconf(_SC_PAGESIZE) / 1024;
  return usage;
}

}  // namespace soak
