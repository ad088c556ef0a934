# parsed_once(TARGET GROUP HEADER...): in a quick build, the programs of the group share one precompiled
# header with these headers. GCC reads its own form of it hardly faster than the headers.
function(parsed_once target group)
  if(NOT CMAKE_UNITY_BUILD OR NOT CMAKE_CXX_COMPILER_ID MATCHES Clang)
    return()
  endif()
  get_property(first GLOBAL PROPERTY parsed_once_${group})
  if(first)
    target_precompile_headers(${target} REUSE_FROM ${first})
  else()
    set_property(GLOBAL PROPERTY parsed_once_${group} ${target})
    target_precompile_headers(${target} PRIVATE ${ARGN})
  endif()
endfunction()
