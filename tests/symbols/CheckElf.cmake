# Checks that CTI is a shared object for MACHINE (a word of readelf's
# "Machine:" line) with the soname that consumers and packages refer to.
execute_process(COMMAND ${READELF} -h -d ${CTI} OUTPUT_VARIABLE out RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "readelf failed on ${CTI}")
endif()
if(NOT out MATCHES "Machine: +[^\n]*${MACHINE}")
  string(REGEX MATCH "Machine: +[^\n]*" found "${out}")
  message(FATAL_ERROR "${CTI} is not built for ${MACHINE}: ${found}")
endif()
if(NOT out MATCHES "\\(SONAME\\) +Library soname: \\[GenTL_KESTA\\.cti\\.0\\]")
  message(FATAL_ERROR "${CTI} lacks the soname GenTL_KESTA.cti.0")
endif()
message(STATUS "${MACHINE} shared object, soname GenTL_KESTA.cti.0")
