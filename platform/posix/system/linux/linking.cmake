# The library's threads never end, so its code stays loaded.
set(VELTRANO_STAY_LOADED LINKER:-z,nodelete)

# The shared library exports its interface only, and contains no unused code.
set(VELTRANO_LINK_SHARED ${VELTRANO_STAY_LOADED} LINKER:--gc-sections
  LINKER:-Bsymbolic-functions  # calls within the library need no detour
  LINKER:--version-script=${PROJECT_SOURCE_DIR}/packaging/veltrano.map)
if(NOT VELTRANO_SANITIZER)  # only programs link the sanitizer's runtime
  list(APPEND VELTRANO_LINK_SHARED LINKER:-z,defs)
endif()
# Packs the relative relocations, a twenty-fifth of the library, where that runs: loaders before
# glibc 2.36 do not understand it, and some linkers omit what the loader asks for.
if(NOT CMAKE_CROSSCOMPILING)
  include(CheckCXXSourceRuns)
  set(CMAKE_REQUIRED_LINK_OPTIONS LINKER:-z,pack-relative-relocs LINKER:--fatal-warnings)
  check_cxx_source_runs("int number;
                         int* pointer = &number;
                         int main() { return pointer != &number; }" VELTRANO_CAN_PACK_RELOCATIONS)
  unset(CMAKE_REQUIRED_LINK_OPTIONS)
endif()
if(VELTRANO_CAN_PACK_RELOCATIONS)
  list(APPEND VELTRANO_LINK_SHARED LINKER:-z,pack-relative-relocs)
endif()

# A program or library that contains the archive does not export it: every copy is of its own. Also
# for pkg-config, which does not know LINKER.
set(VELTRANO_LINK_STATIC -Wl,-z,nodelete -Wl,--exclude-libs,libveltrano.a)
