# The library's threads never end, so its code stays loaded.
set(VELTRANO_STAY_LOADED LINKER:-z,nodelete)

# The shared library exports its interface only, and contains no unused code.
set(VELTRANO_LINK_SHARED ${VELTRANO_STAY_LOADED} LINKER:--gc-sections
  LINKER:--version-script=${PROJECT_SOURCE_DIR}/packaging/veltrano.map)
if(NOT VELTRANO_SANITIZER)  # only programs link the sanitizer's runtime
  list(APPEND VELTRANO_LINK_SHARED LINKER:-z,defs)
endif()

# A program or library that contains the archive does not export it: every copy is of its own. Also
# for pkg-config, which does not know LINKER.
set(VELTRANO_LINK_STATIC -Wl,-z,nodelete -Wl,--exclude-libs,libveltrano.a)
