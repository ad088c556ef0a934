# veltrano_generate_events(TARGET PLAN [LANGUAGE c]): makes headers from a tracking plan, in C++ or in
# C, and makes them again when the plan changes. TARGET, and what links it, includes NAMESPACE.h, or
# NAMESPACE/EVENT.h for a single event; in C NAMESPACE_c.h.
function(veltrano_generate_events target plan)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" LANGUAGE "")
  set(language c++)
  if(arg_LANGUAGE STREQUAL "c")
    set(language c)
  endif()
  if(TARGET veltrano-plan)  # in the library's own build
    set(tool veltrano-plan)
  else()
    find_program(VELTRANO_PLAN veltrano-plan HINTS ${PACKAGE_PREFIX_DIR}/bin REQUIRED)
    set(tool ${VELTRANO_PLAN})
  endif()
  get_filename_component(plan ${plan} ABSOLUTE)
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/${target}_events)
  # The headers are written only when they change, so that nothing is compiled without need.
  set(stamp ${folder}/${language}.stamp)
  add_custom_command(OUTPUT ${stamp}
    COMMAND ${tool} generate ${plan} --language ${language} --output ${folder}
    COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
    DEPENDS ${plan} ${tool}
    VERBATIM)
  string(MAKE_C_IDENTIFIER ${language} suffix)
  add_custom_target(${target}_events_${suffix} DEPENDS ${stamp})
  add_dependencies(${target} ${target}_events_${suffix})
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${folder}>)
endfunction()
