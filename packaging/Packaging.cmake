# The Debian package, made with CPack from a finished build (cpack -G DEB in
# the build folder): the producer and its log library in a folder of their
# own, GENICAM_GENTL64_PATH set for login shells, kesta-gentl in /usr/bin and
# the header for developers. Its dependencies are what dpkg-shlibdeps finds
# that the binaries link.
set(KESTA_PRODUCER_DIR /usr/lib/kesta-gentl)
configure_file(${CMAKE_CURRENT_LIST_DIR}/kesta-gentl.sh ${PROJECT_BINARY_DIR}/packaging/kesta-gentl.sh
               @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/packaging/kesta-gentl.sh DESTINATION /etc/profile.d)
file(WRITE ${PROJECT_BINARY_DIR}/packaging/conffiles "/etc/profile.d/kesta-gentl.sh\n")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kesta-gentl)
set(CPACK_PACKAGE_VENDOR "Kesta Optic Works")
set(CPACK_PACKAGE_CONTACT "Kesta Optic Works <gentl@kesta.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "GenICam GenTL producer for GigE Vision cameras")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
       "GenTL_KESTA.cti, a GenTL producer that finds GigE Vision cameras, reads and writes\n"
       "their registers and receives their images with packet resend; kesta-gentl, its\n"
       "command-line consumer; kesta-log-listen for its logs; and the GenTL header.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/packaging/conffiles)
if(CMAKE_CROSSCOMPILING AND CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
endif()
include(CPack)
