# veltrano_generate_events(TARGET PLAN [LANGUAGE c|c++]): makes headers from a tracking plan, in C++
# unless it is told C, and makes them again when the plan changes. TARGET, and what links it, includes
# NAMESPACE.h, or NAMESPACE/EVENT.h for a single event; in C NAMESPACE_c.h.
function(veltrano_generate_events target plan)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" LANGUAGE "")
  if(NOT DEFINED arg_LANGUAGE)
    set(arg_LANGUAGE c++)
  endif()
  string(TOLOWER "${arg_LANGUAGE}" language)
  if(NOT language MATCHES "^c([+][+])?$" OR arg_UNPARSED_ARGUMENTS OR arg_KEYWORDS_MISSING_VALUES)
    message(FATAL_ERROR "veltrano_generate_events takes LANGUAGE c or LANGUAGE c++, not: ${ARGN}")
  endif()
  get_filename_component(plan ${plan} ABSOLUTE)
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/${target}_events)
  # The headers are written only when they change, so that nothing is compiled without need; and when
  # CMake runs, because Ninja looks at them before it builds anything.
  set(generate generate ${plan} --language ${language} --output ${folder})
  if(TARGET veltrano-plan)  # in the library's own build, which makes the tool first
    get_target_property(programs veltrano-plan RUNTIME_OUTPUT_DIRECTORY)
    set(tool ${programs}/veltrano-plan)
    set(stamp ${folder}/${language}.stamp)
    add_custom_command(OUTPUT ${stamp}
      COMMAND veltrano-plan ${generate}
      COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
      DEPENDS ${plan} veltrano-plan
      VERBATIM)
    string(MAKE_C_IDENTIFIER ${language} suffix)
    add_custom_target(${target}_events_${suffix} DEPENDS ${stamp})
    add_dependencies(${target} ${target}_events_${suffix})
    if(EXISTS ${tool})  # perhaps an old one: the build tells its faults
      execute_process(COMMAND ${tool} ${generate} OUTPUT_QUIET ERROR_QUIET)
    endif()
    set(tool)
  else()
    find_program(VELTRANO_PLAN veltrano-plan HINTS ${PACKAGE_PREFIX_DIR}/bin REQUIRED)
    set(tool ${VELTRANO_PLAN})
    execute_process(COMMAND ${tool} ${generate} COMMAND_ERROR_IS_FATAL ANY)
  endif()
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${plan} ${tool})
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${folder}>)
endfunction()
