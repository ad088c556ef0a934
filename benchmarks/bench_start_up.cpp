// Measures what the library adds to the start of a program.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "benchmarks/figures.h"

namespace {

struct Run {
  double nanoseconds = 0;
  std::string output;
};

[[noreturn]] void fail(const std::string& program) {
  std::fprintf(stderr, "%s could not be run\n", program.c_str());
  std::exit(1);
}

// Times a process from before it is spawned until it has been waited for.
Run runProgram(const std::string& program) {
  int pipeEnds[2];
  if (pipe2(pipeEnds, O_CLOEXEC) != 0) fail(program);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
  std::string name = program;
  char* arguments[] = {name.data(), nullptr};

  Run run;
  run.nanoseconds = bench::timeOf([&] {
    pid_t process = 0;
    int status = 0;
    if (posix_spawn(&process, program.c_str(), &actions, nullptr, arguments, environ) != 0 ||
        waitpid(process, &status, 0) < 0 || status != 0)
      fail(program);
  });

  posix_spawn_file_actions_destroy(&actions);
  close(pipeEnds[1]);
  std::array<char, 256> buffer;
  for (ssize_t size; (size = read(pipeEnds[0], buffer.data(), buffer.size())) > 0;)
    run.output.append(buffer.data(), static_cast<std::size_t>(size));
  close(pipeEnds[0]);
  return run;
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 300;
  const auto directory = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  constexpr const char* kPrograms[] = {"bench_host_plain", "bench_host_linked", "bench_host_curl",
                                       "bench_host_touching"};

  std::vector<double> times[std::size(kPrograms)], tlsTimes, installTimes, touchTimes;
  for (int round = -1; round < rounds; ++round)
    for (std::size_t i = 0; i < std::size(kPrograms); ++i) {
      const Run run = runProgram(directory / kPrograms[i]);
      if (round < 0) continue;  // warm-up
      times[i].push_back(run.nanoseconds);
      if (i + 1 < std::size(kPrograms)) continue;
      char* rest = nullptr;
      tlsTimes.push_back(std::strtod(run.output.c_str(), &rest));
      installTimes.push_back(tlsTimes.back() + std::strtod(rest, &rest));
      touchTimes.push_back(std::strtod(rest, &rest));
    }

  using bench::median;
  using bench::timeText;
  const auto& [plainTimes, linkedTimes, curlTimes, touchingTimes] = times;
  const double plainTime = median(plainTimes);
  bench::printRatio("start and end of a program that only links the library",
                    timeText(median(linkedTimes)), timeText(plainTime),
                    median(linkedTimes) / plainTime);
  bench::printRatio("the same of one that links libcurl alone", timeText(median(curlTimes)),
                    timeText(plainTime), median(curlTimes) / plainTime);
  bench::printRatio("the same of one that installs the POSIX platform and touches `shared`",
                    timeText(median(touchingTimes)), timeText(plainTime),
                    median(touchingTimes) / plainTime);
  bench::print("installing the POSIX platform", timeText(median(installTimes)), "reported");
  bench::print("of this, starting OpenSSL and libcurl", timeText(median(tlsTimes)), "reported");
  bench::print("first touch of `shared` on it", timeText(median(touchTimes)), "reported");
  return 0;
}
