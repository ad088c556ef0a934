// A test kit of another release than the library: it must not link.
#include "test_kit/substitute.h"

int main() {
  return veltrano::internal::Substitute::isInCallback() ? 1 : 0;
}
