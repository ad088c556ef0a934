# veltrano_shared_library(TARGET EXPORTS SOURCE...): the whole library in one shared library that
# exports what the version script EXPORTS of the calling folder names.
function(veltrano_shared_library target exports)
  add_library(${target} SHARED
    ${ARGN}
    $<TARGET_OBJECTS:veltrano_core>
    $<TARGET_OBJECTS:veltrano_posix>
    $<TARGET_OBJECTS:veltrano_text>
  )
  add_library(Veltrano::${target} ALIAS ${target})
  # For what the objects need from outside; the archives themselves add nothing.
  target_link_libraries(${target} PRIVATE veltrano_posix)
  # Its threads never end, so its code must stay.
  target_link_options(${target} PRIVATE
    LINKER:-z,nodelete
    LINKER:--gc-sections
    LINKER:--version-script=${CMAKE_CURRENT_SOURCE_DIR}/${exports}
  )
  if(NOT VELTRANO_SANITIZER)  # whose run-time library only the program has
    target_link_options(${target} PRIVATE LINKER:-z,defs)
  endif()
  set_target_properties(${target} PROPERTIES
    LINKER_LANGUAGE CXX
    LINK_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${exports}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    VERSION ${PROJECT_VERSION}
  )
endfunction()
