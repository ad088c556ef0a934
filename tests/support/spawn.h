// Runs a program and waits for its end.
#pragma once

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace veltrano::internal {

/// The status that the program of the first word ends with, as `waitpid` gives it.
inline int statusOf(std::vector<std::string> words,
                    const posix_spawn_file_actions_t* actions = nullptr) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t process = -1;
  int status = -1;
  if (posix_spawn(&process, arguments[0], actions, nullptr, arguments.data(), environ) == 0)
    waitpid(process, &status, 0);
  return status;
}

}  // namespace veltrano::internal
