// How every tool reads its command line.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

namespace tools {

/// Adds --version and reads the command line. Returns the status to exit with, if the tool is to
/// exit: 0 after --help and --version, 2 after an error, which has been printed.
inline std::optional<int> parse(CLI::App& app, const std::string& name, int argc, char** argv) {
  app.name(name);
  app.set_version_flag("--version", name + " " VELTRANO_RELEASE);
  try {
    app.parse(argc, argv);
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
}

}  // namespace tools
