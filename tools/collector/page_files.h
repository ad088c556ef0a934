// The files of the page, compiled into the program.
#pragma once

#include <array>
#include <string>

namespace collector {

struct PageFile {
  const char* path;
  const char* type;
  std::string content;
};

extern const std::array<PageFile, 3> kPageFiles;

}  // namespace collector
