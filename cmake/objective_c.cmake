# Sets VELTRANO_OBJECTIVE_C if Objective-C can be built: with Clang, GNUstep's Foundation, the GNU
# runtime and a runtime for blocks.
include(CheckSourceCompiles)

set(VELTRANO_OBJECTIVE_C OFF)
find_program(CMAKE_OBJC_COMPILER clang)
if(CMAKE_OBJC_COMPILER AND NOT CMAKE_CROSSCOMPILING)
  # Clang does not search the runtime's headers, which are among those of GCC.
  execute_process(COMMAND ${CMAKE_OBJC_COMPILER} --print-libgcc-file-name
                  OUTPUT_VARIABLE gcc_directory OUTPUT_STRIP_TRAILING_WHITESPACE)
  cmake_path(GET gcc_directory PARENT_PATH gcc_directory)
  find_path(VELTRANO_FOUNDATION Foundation/Foundation.h PATH_SUFFIXES GNUstep)
  set(VELTRANO_OBJECTIVE_C_FLAGS
    -fblocks -fconstant-string-class=NSConstantString -fexceptions -fobjc-exceptions
    -fobjc-runtime=gcc "SHELL:-idirafter ${gcc_directory}/include"
    "SHELL:-isystem ${VELTRANO_FOUNDATION}")
  # In this order, or else GNUstep's own blocks runtime takes over, which copies nothing.
  set(VELTRANO_OBJECTIVE_C_LIBRARIES
    -Wl,--push-state,--no-as-needed,-lBlocksRuntime,--pop-state gnustep-base objc)

  enable_language(OBJC)
  string(REPLACE "SHELL:" "" CMAKE_REQUIRED_FLAGS "${VELTRANO_OBJECTIVE_C_FLAGS}")
  list(JOIN CMAKE_REQUIRED_FLAGS " " CMAKE_REQUIRED_FLAGS)
  set(VELTRANO_OBJECTIVE_C_CFLAGS ${CMAKE_REQUIRED_FLAGS})  # for pkg-config
  set(CMAKE_REQUIRED_INCLUDES ${PROJECT_SOURCE_DIR}/objective_c/gnustep)
  set(CMAKE_REQUIRED_LIBRARIES ${VELTRANO_OBJECTIVE_C_LIBRARIES})
  check_source_compiles(OBJC "
    #import <Foundation/Foundation.h>
    int main(void) { return Block_copy(^{ return [@{@\"a\" : @1} count]; })() == 1 ? 0 : 1; }"
    VELTRANO_FINDS_FOUNDATION)
  foreach(kind FLAGS INCLUDES LIBRARIES)
    unset(CMAKE_REQUIRED_${kind})
  endforeach()
  set(VELTRANO_OBJECTIVE_C ${VELTRANO_FINDS_FOUNDATION})
  # Foundation and the runtime keep memory, and take their locks in any order.
  set(VELTRANO_OBJECTIVE_C_TEST_ENVIRONMENT
    LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/cmake/gnustep_leaks.txt
    TSAN_OPTIONS=detect_deadlocks=0)
endif()
if(NOT VELTRANO_OBJECTIVE_C)
  message(STATUS "Leaving out Objective-C, which needs Clang, GNUstep's Foundation, the GNU runtime "
                 "and a runtime for blocks")
endif()
