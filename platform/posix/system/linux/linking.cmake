# The library's threads never end, so its code stays loaded.
set(VELTRANO_STAY_LOADED LINKER:-z,nodelete)

# The shared library exports its interface only, and contains no unused code.
set(VELTRANO_LINK_SHARED ${VELTRANO_STAY_LOADED} LINKER:--gc-sections
  LINKER:--version-script=${PROJECT_SOURCE_DIR}/packaging/veltrano.map)
if(NOT VELTRANO_SANITIZER)  # only programs link the sanitizer's runtime
  list(APPEND VELTRANO_LINK_SHARED LINKER:-z,defs)
endif()
# Packs the relative relocations, a twenty-fifth of the library, for loaders that understand that.
include(CheckCXXSourceCompiles)
set(CMAKE_REQUIRED_LINK_OPTIONS LINKER:-z,pack-relative-relocs LINKER:--fatal-warnings)
check_cxx_source_compiles("#include <features.h>
                           #if !__GLIBC_PREREQ(2, 36)
                           #error
                           #endif
                           int main() {}" VELTRANO_CAN_PACK_RELOCATIONS)
unset(CMAKE_REQUIRED_LINK_OPTIONS)
if(VELTRANO_CAN_PACK_RELOCATIONS)
  list(APPEND VELTRANO_LINK_SHARED LINKER:-z,pack-relative-relocs)
endif()

# A program or library that contains the archive does not export it: every copy is of its own. Also
# for pkg-config, which does not know LINKER.
set(VELTRANO_LINK_STATIC -Wl,-z,nodelete -Wl,--exclude-libs,libveltrano.a)
