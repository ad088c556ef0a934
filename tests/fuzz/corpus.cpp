// Passes the files of a directory to a fuzzer's function.
#include <cstdint>
#include <filesystem>
#include <string>

#include "tests/support/directory.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int, char** arguments) {
  for (const auto& entry : std::filesystem::directory_iterator(arguments[1])) {
    const std::string bytes = veltrano::internal::contentsOf(entry.path());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  }
}
