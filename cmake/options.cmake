# Settings of all targets of this project. They do not affect a consumer's targets.

option(VELTRANO_DEVELOPER "Build tests, tools and examples"
       ${PROJECT_IS_TOP_LEVEL})
set(VELTRANO_SANITIZER "" CACHE STRING "Sanitizers to build with, such as address,undefined")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)

option(VELTRANO_INSTALL "Install the library with its headers and package; without, a shared library
is still installed for the programs that need it" ${PROJECT_IS_TOP_LEVEL})

# Undefined, BUILD_SHARED_LIBS would mean a static library.
if(DEFINED BUILD_SHARED_LIBS AND NOT BUILD_SHARED_LIBS)
  set(VELTRANO_LIBRARY STATIC)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION OFF)  # so that any compiler and linker can use the archive
else()
  set(VELTRANO_LIBRARY SHARED)
endif()

# What Linux offers beyond POSIX has a twin that needs POSIX alone. Each brings its linker's options.
include(CMakeDependentOption)
string(COMPARE EQUAL "${CMAKE_SYSTEM_NAME}" Linux is_linux)
cmake_dependent_option(VELTRANO_PORTABLE "Use nothing beyond POSIX" OFF is_linux ON)
set(VELTRANO_SYSTEM ${PROJECT_SOURCE_DIR}/platform/posix/system/linux)
if(VELTRANO_PORTABLE)
  set(VELTRANO_SYSTEM ${PROJECT_SOURCE_DIR}/platform/posix/system/portable)
endif()
include(${VELTRANO_SYSTEM}/linking.cmake)

if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "" FORCE)
endif()

# For code that runs at most once per upload, and for the POSIX platform: the little of it that each
# call runs, such as submitting to the work queue, is short.
set(VELTRANO_SMALL $<$<CONFIG:Release>:-Os>)

# The same commit is the same bytes, wherever it is built. Debuggers find the sources of other builds
# where they are.
add_compile_options($<$<CONFIG:Release>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>)
# Link-time optimisation writes paths, too.
add_link_options(
  $<$<AND:$<CONFIG:Release>,$<CXX_COMPILER_ID:GNU>>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>)

# For --gc-sections, which removes unused code from the shared library.
add_compile_options(-ffunction-sections -fdata-sections)

if(VELTRANO_DEVELOPER)
  add_compile_options(-Wall -Wextra -Wpedantic -Wshadow)
  if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
    add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wthread-safety> -Werror=thread-safety)
  endif()
endif()
if(VELTRANO_SANITIZER)
  add_compile_options(-fsanitize=${VELTRANO_SANITIZER} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
    add_compile_options(
      -fsanitize-ignorelist=${PROJECT_SOURCE_DIR}/cmake/sanitizer_ignorelist.txt)
  endif()
  add_link_options(-fsanitize=${VELTRANO_SANITIZER})
endif()
