# Installation and Debian packages, one install component per package:
#   runtime -> libunitydrv0     libunitydrv.so.0 in the multiarch library directory
#   dev     -> libunitydrv-dev  the headers, unitydrv.pc, the libunitydrv.so link, unitydrv(3)
#                               and the examples
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
configure_file(${PROJECT_SOURCE_DIR}/packaging/man/unitydrv.3.in ${PROJECT_BINARY_DIR}/man/unitydrv.3 @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/man/unitydrv.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT dev)
install(FILES examples/host.c examples/two_devices.c examples/guarded_host.c examples/guarded_calls.h
              examples/guarded_calls.cpp examples/plant.json examples/plant_tags.txt
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/libunitydrv-dev/examples COMPONENT dev)
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
# The run-time Depends of the library and the tools are computed by dpkg-shlibdeps when the
# packages are built (packaging/deb/shlibdeps.sh); cross-built, it reads the cross
# compiler's C and C++ runtimes.
set(UNITYDRV_DEB_OBJDUMP "${CMAKE_OBJDUMP}")
set(UNITYDRV_DEB_RUNTIME_LIBDIR "")
if(CMAKE_CROSSCOMPILING)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libc.so.6 OUTPUT_VARIABLE libc_path
                  OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  get_filename_component(libc_path "${libc_path}" REALPATH)
  get_filename_component(UNITYDRV_DEB_RUNTIME_LIBDIR "${libc_path}" DIRECTORY)
endif()

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
    "OBJDUMP=${UNITYDRV_DEB_OBJDUMP}" "RUNTIME_LIBDIR=${UNITYDRV_DEB_RUNTIME_LIBDIR}"
    bash ${PROJECT_SOURCE_DIR}/packaging/deb/build-debs.sh ${PROJECT_BINARY_DIR} ${PROJECT_BINARY_DIR}/debs
  VERBATIM USES_TERMINAL)
add_dependencies(deb unitydrv panelhost plcsim)
