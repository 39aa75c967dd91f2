# Debian packages of libku, made by CPack from the installed tree:
#
#   libku1     the shared library
#   libku-dev  headers, libku.a, the libku.so link, ku.pc, the CMake package
#   ku-tools   bin/ku, its manual page and its bash completion
#
#   cmake -S . -B build-dist -G Ninja -DCMAKE_INSTALL_PREFIX=/usr [-DCMAKE_TOOLCHAIN_FILE=...]
#   cmake --build build-dist --target deb      # build-dist/packages/*.deb
#
# The install rules carry no components, so the target installs the whole
# tree once into a staging root and splits it by path, which keeps the
# package contents in this one file. A cross build packages for the target's
# Debian architecture; dpkg-shlibdeps reads the target's multiarch libraries.
# The packages live in /usr: configure with CMAKE_INSTALL_PREFIX=/usr so that
# the library lands in Debian's multiarch directory (GNUInstallDirs does not
# pick it for a cross build: add -DCMAKE_INSTALL_LIBDIR=lib/mipsel-linux-gnu).
#
# Run as a script (cmake -P) by the deb target, this file does the staging.

if(CMAKE_SCRIPT_MODE_FILE)
  # Given: KU_BINARY_DIR KU_STAGE KU_LIBDIR KU_STRIP KU_VERSION KU_MAINTAINER
  # and KU_LIBPACKAGE, the runtime package named after the soname (libku1).
  file(REMOVE_RECURSE ${KU_STAGE})
  # DESTDIR (set by the caller) puts the /usr tree under the staging root.
  execute_process(COMMAND ${CMAKE_COMMAND} --install ${KU_BINARY_DIR} --prefix /usr
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  set(all ${KU_STAGE}/all)
  file(MAKE_DIRECTORY ${all})
  file(RENAME ${KU_STAGE}/usr ${all}/usr)

  # The tree is split by path: each pattern names what one package takes.
  set(parts_${KU_LIBPACKAGE} "usr/${KU_LIBDIR}/libku.so.*")
  set(parts_libku-dev "usr/include/*" "usr/${KU_LIBDIR}/libku.so" "usr/${KU_LIBDIR}/libku.a"
                      "usr/${KU_LIBDIR}/pkgconfig/*" "usr/${KU_LIBDIR}/cmake/*")
  set(parts_ku-tools  "usr/bin/*" "usr/share/man/*" "usr/share/bash-completion/*")
  foreach(package ${KU_LIBPACKAGE} libku-dev ku-tools)
    file(MAKE_DIRECTORY ${KU_STAGE}/${package})
    foreach(pattern IN LISTS parts_${package})
      file(GLOB_RECURSE files LIST_DIRECTORIES false RELATIVE ${all} ${all}/${pattern})
      foreach(file IN LISTS files)
        get_filename_component(dir ${KU_STAGE}/${package}/${file} DIRECTORY)
        file(MAKE_DIRECTORY ${dir})
        file(RENAME ${all}/${file} ${KU_STAGE}/${package}/${file})
      endforeach()
    endforeach()
  endforeach()
  file(GLOB_RECURSE left LIST_DIRECTORIES false RELATIVE ${all} ${all}/*)
  if(left)
    message(FATAL_ERROR "KuPackaging: no package takes ${left}")
  endif()

  # Debian's loader finds libku in the multiarch directory: no run path.
  file(GLOB binaries ${KU_STAGE}/${KU_LIBPACKAGE}/usr/${KU_LIBDIR}/libku.so.*.*
                     ${KU_STAGE}/ku-tools/usr/bin/ku)
  foreach(binary IN LISTS binaries)
    file(RPATH_REMOVE FILE ${binary})
    execute_process(COMMAND ${KU_STRIP} --strip-unneeded --remove-section=.comment
                            --remove-section=.note ${binary} COMMAND_ERROR_IS_FATAL ANY)
  endforeach()
  execute_process(COMMAND ${KU_STRIP} --strip-debug
    ${KU_STAGE}/libku-dev/usr/${KU_LIBDIR}/libku.a COMMAND_ERROR_IS_FATAL ANY)
  file(GLOB pages ${KU_STAGE}/ku-tools/usr/share/man/man1/*.1)
  foreach(page IN LISTS pages)
    execute_process(COMMAND gzip -9n ${page} COMMAND_ERROR_IS_FATAL ANY)
  endforeach()

  # Every package carries its copyright and Debian changelog.
  string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
  foreach(package ${KU_LIBPACKAGE} libku-dev ku-tools)
    set(doc ${KU_STAGE}/${package}/usr/share/doc/${package})
    file(MAKE_DIRECTORY ${doc})
    file(WRITE ${doc}/copyright
      "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/\n"
      "Upstream-Name: libku\n"
      "Upstream-Contact: ${KU_MAINTAINER}\n\n"
      "Files: *\n"
      "Copyright: (C) the libku developers\n"
      "License: libku\n"
      " The terms are those that come with the libku sources.\n")
    file(WRITE ${doc}/changelog.Debian
      "libku (${KU_VERSION}-1) unstable; urgency=medium\n\n"
      "  * Package libku ${KU_VERSION}.\n\n"
      " -- ${KU_MAINTAINER}  ${date}\n")
    execute_process(COMMAND gzip -9n ${doc}/changelog.Debian COMMAND_ERROR_IS_FATAL ANY)
  endforeach()
  file(REMOVE_RECURSE ${all})
  return()
endif()

# A project that builds libku inside its own tree packages itself.
if(NOT PROJECT_IS_TOP_LEVEL)
  return()
endif()

set(KU_PACKAGE_MAINTAINER "libku maintainers <maintainers@libku.example.org>"
    CACHE STRING "Maintainer field of the Debian packages")

find_program(KU_DPKG dpkg)
if(NOT KU_DPKG)
  return()
endif()
if(CMAKE_CROSSCOMPILING AND CMAKE_LIBRARY_ARCHITECTURE)
  execute_process(COMMAND dpkg-architecture -t ${CMAKE_LIBRARY_ARCHITECTURE} -qDEB_HOST_ARCH
    OUTPUT_VARIABLE KU_DEB_ARCH OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
else()
  execute_process(COMMAND ${KU_DPKG} --print-architecture
    OUTPUT_VARIABLE KU_DEB_ARCH OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()
if(NOT KU_DEB_ARCH)
  message(STATUS "KuPackaging: no Debian architecture for this build, no deb target")
  return()
endif()

set(KU_DEB_STAGE ${PROJECT_BINARY_DIR}/deb-stage)
set(KU_DEB_OUTPUT ${PROJECT_BINARY_DIR}/packages)
set(KU_DEB_VERSION ${PROJECT_VERSION})
set(KU_DEB_LIBPACKAGE libku${PROJECT_VERSION_MAJOR})
set(KU_DEB_LIBDIR ${CMAKE_INSTALL_LIBDIR})
if(IS_ABSOLUTE KU_DEB_LIBDIR)
  file(RELATIVE_PATH KU_DEB_LIBDIR /usr ${KU_DEB_LIBDIR})
endif()
if(CMAKE_LIBRARY_ARCHITECTURE AND NOT KU_DEB_LIBDIR STREQUAL "lib/${CMAKE_LIBRARY_ARCHITECTURE}")
  message(STATUS "KuPackaging: the packages will hold the library in ${KU_DEB_LIBDIR}, "
                 "not in Debian's lib/${CMAKE_LIBRARY_ARCHITECTURE}")
endif()

# libresample of a cross build may be unpacked by hand rather than installed
# as a package: dpkg-shlibdeps then finds no package for it, so it is named.
set(KU_DEB_LIBKU1_DEPENDS "")
get_filename_component(resample_real "${KU_RESAMPLE_LIBRARY}" REALPATH)
execute_process(COMMAND ${KU_DPKG} -S ${resample_real} RESULT_VARIABLE resample_unpackaged
                OUTPUT_QUIET ERROR_QUIET)
if(resample_unpackaged)
  set(KU_DEB_LIBKU1_DEPENDS "libresample1")
endif()

# One CPack configuration per package, each packing its staged directory.
function(ku_deb_config package section summary description depends)
  set(text "")
  macro(ku_deb_set name value)
    string(APPEND text "set(${name} [==[${value}]==])\n")
  endmacro()
  ku_deb_set(CPACK_GENERATOR DEB)
  ku_deb_set(CPACK_PACKAGE_NAME ${package})
  ku_deb_set(CPACK_PACKAGE_VERSION ${KU_DEB_VERSION})
  ku_deb_set(CPACK_PACKAGE_DIRECTORY ${KU_DEB_OUTPUT})
  ku_deb_set(CPACK_PACKAGE_FILE_NAME ${package}_${KU_DEB_VERSION}-1_${KU_DEB_ARCH})
  ku_deb_set(CPACK_INSTALL_CMAKE_PROJECTS "")
  ku_deb_set(CPACK_INSTALLED_DIRECTORIES "${KU_DEB_STAGE}/${package};/")
  ku_deb_set(CPACK_PACKAGE_CONTACT "${KU_PACKAGE_MAINTAINER}")
  ku_deb_set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${KU_PACKAGE_MAINTAINER}")
  ku_deb_set(CPACK_DEBIAN_PACKAGE_NAME ${package})
  ku_deb_set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
  ku_deb_set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  ku_deb_set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${KU_DEB_ARCH})
  ku_deb_set(CPACK_DEBIAN_PACKAGE_SECTION ${section})
  ku_deb_set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
  ku_deb_set(CPACK_DEBIAN_PACKAGE_SOURCE libku)
  ku_deb_set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${summary}")
  # CPack puts the summary first and indents the text; an empty line
  # separates paragraphs.
  ku_deb_set(CPACK_PACKAGE_DESCRIPTION "${description}")
  ku_deb_set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "${description}")
  ku_deb_set(CPACK_DEBIAN_PACKAGE_DEPENDS "${depends}")
  ku_deb_set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  # ku finds the runtime package's library here; the dependency on that
  # package is named, as dpkg-shlibdeps knows no package for it yet.
  ku_deb_set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
             "${KU_DEB_STAGE}/${KU_DEB_LIBPACKAGE}/usr/${KU_DEB_LIBDIR}")
  if(package STREQUAL KU_DEB_LIBPACKAGE)
    ku_deb_set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
    ku_deb_set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
    # dpkg runs ldconfig once through its trigger after all packages.
    file(WRITE ${PROJECT_BINARY_DIR}/deb-control/triggers "activate-noawait ldconfig\n")
    ku_deb_set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/deb-control/triggers)
    ku_deb_set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
  endif()
  file(WRITE ${PROJECT_BINARY_DIR}/CPackConfig-${package}.cmake "${text}")
endfunction()

string(CONCAT KU_DEB_ABOUT
  "libku is the toolbox of the applications on small Linux devices: a\n"
  "diagnostic log, clocks, threads and locks, string, hex, Base64 and\n"
  "Triple-DES codecs, byte and pointer containers, JSON, table and INI\n"
  "files, network interface queries, sockets, mDNS publication, HTTP and\n"
  "HTTPS downloads, an integer PCM resampler and a plug-in loader, behind\n"
  "a plain C interface.\n\n")
set(KU_DEB_EXACT "(= ${KU_DEB_VERSION}-1)")
ku_deb_config(${KU_DEB_LIBPACKAGE} libs "toolbox library for small Linux devices"
  "${KU_DEB_ABOUT}This package contains the shared library."
  "${KU_DEB_LIBKU1_DEPENDS}")
ku_deb_config(libku-dev libdevel "toolbox library for small Linux devices - development files"
  "${KU_DEB_ABOUT}This package contains the headers, the static library, the\npkg-config file and the CMake package."
  "${KU_DEB_LIBPACKAGE} ${KU_DEB_EXACT}, libcurl4-openssl-dev | libcurl-dev, libjson-c-dev, libssl-dev, libresample1-dev")
ku_deb_config(ku-tools utils "command-line front end of libku"
  "${KU_DEB_ABOUT}This package contains the ku command, which runs the library's\nfunctions from the shell, with its manual page and bash completion."
  "${KU_DEB_LIBPACKAGE} ${KU_DEB_EXACT}")

set(KU_DEB_STRIP ${CMAKE_STRIP})
if(NOT KU_DEB_STRIP)
  set(KU_DEB_STRIP strip)
endif()
set(KU_DEB_COMMANDS
  COMMAND ${CMAKE_COMMAND} -E rm -rf ${KU_DEB_OUTPUT}
  COMMAND ${CMAKE_COMMAND} -E env DESTDIR=${KU_DEB_STAGE}
          ${CMAKE_COMMAND} -DKU_BINARY_DIR=${PROJECT_BINARY_DIR} -DKU_STAGE=${KU_DEB_STAGE}
          -DKU_LIBDIR=${KU_DEB_LIBDIR} -DKU_STRIP=${KU_DEB_STRIP} -DKU_VERSION=${KU_DEB_VERSION}
          "-DKU_MAINTAINER=${KU_PACKAGE_MAINTAINER}" -DKU_LIBPACKAGE=${KU_DEB_LIBPACKAGE}
          -P ${CMAKE_CURRENT_LIST_FILE})
set(KU_DEB_PACKAGES ${KU_DEB_LIBPACKAGE} libku-dev)
if(TARGET ku)
  list(APPEND KU_DEB_PACKAGES ku-tools)
endif()
foreach(package IN LISTS KU_DEB_PACKAGES)
  list(APPEND KU_DEB_COMMANDS COMMAND ${CMAKE_COMMAND} -E chdir ${PROJECT_BINARY_DIR}
       ${CMAKE_CPACK_COMMAND} --config ${PROJECT_BINARY_DIR}/CPackConfig-${package}.cmake)
endforeach()
add_custom_target(deb ${KU_DEB_COMMANDS}
  COMMENT "Making the Debian packages in ${KU_DEB_OUTPUT}"
  VERBATIM)
add_dependencies(deb ku_shared ku_static)
if(TARGET ku)
  add_dependencies(deb ku)
endif()
