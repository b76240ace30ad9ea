# kesta_netns_test: a CTest test that runs a command beside simulated
# cameras, inside network namespaces made for that run (run-with-camera).
#
#   kesta_netns_test(NAME <name> [CAMERAS <n>] [SIM_ARGS <arg>...]
#                    [CAMERA_ARGS "<i> <arg>..."...] [JUMBO] [SECOND_HOST]
#                    [TIMEOUT <s>] [LABELS <label>...] COMMAND <command> [<arg>...])
#
# CAMERAS defaults to 1, TIMEOUT to 60 seconds. SIM_ARGS go to every camera
# (gev-camera-sim --help lists them); each CAMERA_ARGS string gives camera i
# (from 0) arguments of its own, so that one test bed holds several kinds. The command sees the test bed in
# environment variables (KESTA_CAMERA_IP, KESTA_NETNS_HOST_IP, ...; see the
# top of run-with-camera). Tests are labelled netns and skipped (exit 77)
# where namespaces cannot be made. They share one resource lock, so that
# timing-sensitive network tests do not compete for the two CI cores.
include_guard(GLOBAL)

set(KESTA_RUN_WITH_CAMERA ${CMAKE_CURRENT_LIST_DIR}/run-with-camera)

function(kesta_netns_test)
  cmake_parse_arguments(T "JUMBO;SECOND_HOST" "NAME;CAMERAS;TIMEOUT" "SIM_ARGS;CAMERA_ARGS;LABELS;COMMAND"
                        ${ARGN})
  if(NOT T_NAME OR NOT T_COMMAND)
    message(FATAL_ERROR "kesta_netns_test needs NAME and COMMAND")
  endif()
  if(NOT DEFINED T_CAMERAS)
    set(T_CAMERAS 1)
  endif()
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 60)
  endif()
  set(args --sim $<TARGET_FILE:gev-camera-sim> --cameras ${T_CAMERAS})
  if(T_JUMBO)
    list(APPEND args --jumbo)
  endif()
  if(T_SECOND_HOST)
    list(APPEND args --second-host)
  endif()
  foreach(a IN LISTS T_SIM_ARGS)
    list(APPEND args --sim-arg ${a})
  endforeach()
  foreach(camera IN LISTS T_CAMERA_ARGS)
    separate_arguments(words UNIX_COMMAND "${camera}")
    list(POP_FRONT words i)
    foreach(a IN LISTS words)
      list(APPEND args --camera-arg ${i} ${a})
    endforeach()
  endforeach()
  add_test(NAME ${T_NAME} COMMAND ${KESTA_RUN_WITH_CAMERA} ${args} -- ${T_COMMAND})
  set_tests_properties(${T_NAME} PROPERTIES
    LABELS "netns;${T_LABELS}"
    SKIP_RETURN_CODE 77
    TIMEOUT ${T_TIMEOUT}
    RESOURCE_LOCK kesta_netns)
endfunction()
