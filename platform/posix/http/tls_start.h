#pragma once

namespace veltrano::internal {

/// Starts OpenSSL and libcurl, once in a process. Throws std::bad_alloc if there is too little
/// memory, and std::system_error if OpenSSL does not work; the next call then tries again.
/// Thread-safe.
void startTLS();

}  // namespace veltrano::internal
