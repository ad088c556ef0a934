#include "test_kit/version_check.h"

#include <string>

#include "test_kit/substitute.h"
#include "veltrano/testing.h"

namespace veltrano::testing {

void expectLibraryOfThisRelease() {
  const std::string library = internal::Substitute::version();
  if (library != VELTRANO_RELEASE)
    throw Error("The test kit of Veltrano " VELTRANO_RELEASE " does not work with the library " +
                library + "; link those of one release.");
}

}  // namespace veltrano::testing
