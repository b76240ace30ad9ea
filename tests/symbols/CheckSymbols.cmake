# Compares the defined dynamic symbols of CTI (demangled, without version
# suffixes or the version node itself) with the list in EXPECTED.
execute_process(COMMAND ${NM} -D --defined-only --demangle ${CTI}
                OUTPUT_VARIABLE nm_output RESULT_VARIABLE nm_result)
if(NOT nm_result EQUAL 0)
  message(FATAL_ERROR "nm failed on ${CTI}")
endif()

string(REPLACE "\n" ";" nm_lines "${nm_output}")
set(actual "")
foreach(line IN LISTS nm_lines)
  # "<address> <type> <name>[@@version]"
  if(line MATCHES "^[0-9a-fA-F]* +([A-Za-z]) (.+)$")
    set(type "${CMAKE_MATCH_1}")
    set(name "${CMAKE_MATCH_2}")
    if(type STREQUAL "A")
      continue() # the version node
    endif()
    string(REGEX REPLACE "@.*$" "" name "${name}")
    list(APPEND actual "${name}")
  endif()
endforeach()

file(STRINGS ${EXPECTED} expected REGEX "^[^#]")
list(SORT actual)
list(SORT expected)
list(REMOVE_DUPLICATES actual)

set(missing ${expected})
list(REMOVE_ITEM missing ${actual})
set(extra ${actual})
list(REMOVE_ITEM extra ${expected})

if(missing OR extra)
  string(REPLACE ";" "\n  " missing_text "${missing}")
  string(REPLACE ";" "\n  " extra_text "${extra}")
  message(FATAL_ERROR "export list of ${CTI} differs\nmissing:\n  ${missing_text}\n"
                      "not expected:\n  ${extra_text}")
endif()
list(LENGTH actual count)
message(STATUS "${count} exported symbols, as expected")
