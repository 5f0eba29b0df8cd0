# Installation and Debian packages, one install component per package:
#   runtime -> libunitydrv0     libunitydrv.so.0 in the multiarch library directory
#   dev     -> libunitydrv-dev  the headers, unitydrv.pc and the libunitydrv.so link
#   tools   -> unitydrv-tools   panelhost and plcsim with their manual pages
# `cmake --build <build> --target deb` writes the three packages to <build>/debs
# (packaging/deb/build-debs.sh); the release presets install to /usr and the multiarch
# directory, as the packages need.

file(RELATIVE_PATH UNITYDRV_PC_PREFIX_FROM_PCFILEDIR
     /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" UNITYDRV_PC_PREFIX_FROM_PCFILEDIR "${UNITYDRV_PC_PREFIX_FROM_PCFILEDIR}")
configure_file(${PROJECT_SOURCE_DIR}/packaging/unitydrv.pc.in ${PROJECT_BINARY_DIR}/unitydrv.pc @ONLY)

install(TARGETS unitydrv
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
install(FILES ${PROJECT_SOURCE_DIR}/include/unitydrv/unitydrv.h
              ${PROJECT_BINARY_DIR}/include/unitydrv/version.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/unitydrv COMPONENT dev)
install(FILES ${PROJECT_BINARY_DIR}/unitydrv.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
foreach(tool panelhost plcsim)
  if(TARGET ${tool})
    install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    configure_file(${PROJECT_SOURCE_DIR}/packaging/man/${tool}.1.in ${PROJECT_BINARY_DIR}/man/${tool}.1 @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/man/${tool}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
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
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-multiarch OUTPUT_VARIABLE UNITYDRV_MULTIARCH
                OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)

set(UNITYDRV_DEB_REVISION 1 CACHE STRING "Debian revision of the packages (VERSION-REVISION)")
# Run-time needs as readelf -V shows them on the Debian 12 toolchains, named as Debian's
# symbols files of libc6, libstdc++6 and libgcc-s1 name them: GLIBC_2.4 (armhf) or
# GLIBC_2.14 (amd64) and GLIBCXX_3.4.29, GCC_3.5 (armhf) or GCC_3.0; with the runtime linked
# in, the static libstdc++ brings GLIBC_2.36 (arc4random) and needs no libstdc++6.
# The tools need GLIBC_2.34 on both. (dpkg-shlibdeps gives the same for amd64; it cannot
# run for armhf without the armhf libraries' symbols files.)
if(UNITYDRV_DEB_ARCH STREQUAL "armhf")
  set(UNITYDRV_DEB_LIBGCC "libgcc-s1 (>= 3.5)")
  set(UNITYDRV_DEB_RUNTIME_DEPENDS "libc6 (>= 2.4), ${UNITYDRV_DEB_LIBGCC}, libstdc++6 (>= 11)")
else()
  set(UNITYDRV_DEB_LIBGCC "libgcc-s1 (>= 3.0)")
  set(UNITYDRV_DEB_RUNTIME_DEPENDS "libc6 (>= 2.14), ${UNITYDRV_DEB_LIBGCC}, libstdc++6 (>= 11)")
endif()
if(UNITYDRV_STATIC_RUNTIME)
  set(UNITYDRV_DEB_RUNTIME_DEPENDS "libc6 (>= 2.36)")
endif()
set(UNITYDRV_DEB_TOOLS_DEPENDS "libc6 (>= 2.34), ${UNITYDRV_DEB_LIBGCC}, libstdc++6 (>= 11)")

if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr" OR NOT CMAKE_INSTALL_LIBDIR STREQUAL "lib/${UNITYDRV_MULTIARCH}"
   OR NOT TARGET panelhost OR NOT TARGET plcsim)
  add_custom_target(deb
    COMMAND ${CMAKE_COMMAND} -E echo "The packages need -DCMAKE_INSTALL_PREFIX=/usr, CMAKE_INSTALL_LIBDIR=lib/${UNITYDRV_MULTIARCH} and the tools (the *-release presets)"
    COMMAND ${CMAKE_COMMAND} -E false VERBATIM)
  return()
endif()
add_custom_target(deb
  COMMAND ${CMAKE_COMMAND} -E env
    "SOURCE_DIR=${PROJECT_SOURCE_DIR}" "ARCH=${UNITYDRV_DEB_ARCH}" "MULTIARCH=${UNITYDRV_MULTIARCH}"
    "VERSION=${PROJECT_VERSION}-${UNITYDRV_DEB_REVISION}" "UPSTREAM_VERSION=${PROJECT_VERSION}"
    "REVISION=${UNITYDRV_DEB_REVISION}" "SONAME_MAJOR=${PROJECT_VERSION_MAJOR}"
    "MAINTAINER=unitydrv maintainers <maintainers@unitydrv.org>"
    "RUNTIME_DEPENDS=${UNITYDRV_DEB_RUNTIME_DEPENDS}" "TOOLS_DEPENDS=${UNITYDRV_DEB_TOOLS_DEPENDS}"
    bash ${PROJECT_SOURCE_DIR}/packaging/deb/build-debs.sh ${PROJECT_BINARY_DIR} ${PROJECT_BINARY_DIR}/debs
  VERBATIM USES_TERMINAL)
add_dependencies(deb unitydrv panelhost plcsim)
