# Installation and Debian packages.
#   libunitydrv0   - libunitydrv.so.0 with its development symlink, the public headers and
#                    the pkg-config file (component "lib")
#   unitydrv-tools - panelhost and plcsim (component "tools")
# Build them with: cpack --config <build>/CPackConfig.cmake -B <dir>

configure_file(${PROJECT_SOURCE_DIR}/packaging/unitydrv.pc.in ${PROJECT_BINARY_DIR}/unitydrv.pc @ONLY)

install(TARGETS unitydrv
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT lib NAMELINK_COMPONENT lib)
install(FILES ${PROJECT_SOURCE_DIR}/include/unitydrv/unitydrv.h
              ${PROJECT_BINARY_DIR}/include/unitydrv/version.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/unitydrv COMPONENT lib)
install(FILES ${PROJECT_BINARY_DIR}/unitydrv.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT lib)
foreach(tool panelhost plcsim)
  if(TARGET ${tool})
    install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  endif()
endforeach()

if(CMAKE_CROSSCOMPILING AND CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
  set(UNITYDRV_DEB_ARCH armhf)
else()
  execute_process(COMMAND dpkg --print-architecture OUTPUT_VARIABLE UNITYDRV_DEB_ARCH
                  OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(NOT UNITYDRV_DEB_ARCH)
    set(UNITYDRV_DEB_ARCH amd64)
  endif()
endif()

set(CPACK_PACKAGE_NAME unitydrv)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "unitydrv developers")
set(CPACK_PACKAGE_CONTACT "unitydrv developers <unitydrv@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Symbolic-addressing driver for M340/M580 controllers")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL lib tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${UNITYDRV_DEB_ARCH})
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIB_PACKAGE_NAME libunitydrv0)
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME unitydrv-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_LIB_DESCRIPTION "libunitydrv.so.0, its header and pkg-config file")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "panelhost (command-line host) and plcsim (controller simulator)")
# Run-time needs as readelf -V shows them on the Debian 12 toolchains: dynamic, GLIBC_2.4
# (armhf) or GLIBC_2.14 (amd64, release) and GLIBCXX_3.4.29; with the runtime linked in, the
# static libstdc++ brings GLIBC_2.36 (arc4random) and no GLIBCXX.
if(UNITYDRV_STATIC_RUNTIME)
  set(CPACK_DEBIAN_LIB_PACKAGE_DEPENDS "libc6 (>= 2.36)")
elseif(UNITYDRV_DEB_ARCH STREQUAL "armhf")
  set(CPACK_DEBIAN_LIB_PACKAGE_DEPENDS "libc6 (>= 2.4), libstdc++6 (>= 11), libgcc-s1")
else()
  set(CPACK_DEBIAN_LIB_PACKAGE_DEPENDS "libc6 (>= 2.14), libstdc++6 (>= 11), libgcc-s1")
endif()
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
    "libunitydrv0 (= ${PROJECT_VERSION}), libc6 (>= 2.34), libstdc++6 (>= 11), libgcc-s1")
include(CPack)
