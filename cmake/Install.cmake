# Install layout and Debian packages.
#   cmake --install build [--prefix DIR]
#   cpack --config build/CPackConfig.cmake      (zebkit_<version>_<arch>.deb)
include(GNUInstallDirs)

install(TARGETS zebconv RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(TARGET zebscan)
  install(TARGETS zebscan RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(TARGETS zebkit ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
# Headers keep their subsystem folders, so "signal/bitstream.h" etc. resolve
# against <prefix>/include/zebkit as they do against src/.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/src/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zebkit
        FILES_MATCHING PATTERN "*.h")

# Man pages are installed gzipped, as Debian packages carry them; -n keeps the
# name and time stamp out, so the bytes depend on the page alone.
find_program(ZEBKIT_GZIP gzip REQUIRED)
set(_zk_man_gz)
foreach(page zebconv.1 zebscan.1)
  set(_gz ${CMAKE_CURRENT_BINARY_DIR}/man/${page}.gz)
  add_custom_command(OUTPUT ${_gz}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_CURRENT_BINARY_DIR}/man
    COMMAND ${ZEBKIT_GZIP} -9nc ${PROJECT_SOURCE_DIR}/doc/${page} > ${_gz}
    DEPENDS ${PROJECT_SOURCE_DIR}/doc/${page}
    VERBATIM)
  list(APPEND _zk_man_gz ${_gz})
endforeach()
add_custom_target(manpages ALL DEPENDS ${_zk_man_gz})
install(FILES ${_zk_man_gz} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${PROJECT_SOURCE_DIR}/doc/copyright DESTINATION ${CMAKE_INSTALL_DOCDIR})

# Debian architecture of the target, not of the build machine, so that cross
# builds package for the board they were built for.
string(TOLOWER "${CMAKE_SYSTEM_PROCESSOR}" _zk_proc)
if(_zk_proc MATCHES "^(x86_64|amd64)$")
  set(_zk_deb_arch amd64)
elseif(_zk_proc MATCHES "^(aarch64|arm64)")
  set(_zk_deb_arch arm64)
elseif(_zk_proc MATCHES "^arm")
  set(_zk_deb_arch armhf)
elseif(_zk_proc MATCHES "^i[3-6]86$")
  set(_zk_deb_arch i386)
else()
  set(_zk_deb_arch ${_zk_proc})
endif()
set(ZEBKIT_DEB_ARCH ${_zk_deb_arch} CACHE STRING "Debian architecture of the package")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zebkit)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "ZEBKIT developers")
set(CPACK_PACKAGE_CONTACT "ZEBKIT developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Floppy disk image converter (zebconv) and inspector (zebscan)")
set(CPACK_PACKAGE_DESCRIPTION
    "zebconv converts floppy disk images between the track-level ZEB, HFE and\nMFI formats, SCP and KryoFlux flux captures, and sector images (D88/D77/D68/D98,\nDIM, FDI, FDD, NFD and plain headerless images). zebscan lists the tracks\nand sectors of any of these images with their errors, as text, JSON, CSV or\na picture. The static library libzebkit and its headers are included.")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "ZEBKIT developers")
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${ZEBKIT_DEB_ARCH})
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Listed by hand: dpkg-shlibdeps cannot inspect binaries of a foreign
# architecture without that architecture's package database.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libstdc++6 (>= 12), libgcc-s1 (>= 3.0), zlib1g (>= 1:1.2.0)")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
include(CPack)
