// What a block raises leaves it as an exception of C++: worlds report it, and the library drops it.
#include <stdexcept>

extern "C" [[noreturn]] void veltranoThrow(const char* what) {
  throw std::runtime_error(what);
}
