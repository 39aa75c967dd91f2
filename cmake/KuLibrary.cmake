# libku.so and libku.a from one set of objects, plus the install rules.
#
# The shared library is linked with the C driver: the C++ inside uses the
# language only (no exceptions, no RTTI, no allocating containers), so the
# device never needs libstdc++. --no-undefined turns any accidental use of the
# C++ runtime into a link error instead of a missing library on the target.

add_library(ku_warnings INTERFACE)
target_compile_options(ku_warnings INTERFACE -Wall -Wextra -Werror)

file(GLOB KU_SOURCES CONFIGURE_DEPENDS
     ${PROJECT_SOURCE_DIR}/src/*/*.cpp ${PROJECT_SOURCE_DIR}/src/*/*.c)
file(GLOB KU_PUBLIC_HEADERS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/ku/*.h)

add_library(ku_objects OBJECT ${KU_SOURCES})
target_include_directories(ku_objects
  PUBLIC  ${PROJECT_SOURCE_DIR}/include
  PRIVATE ${PROJECT_SOURCE_DIR}/src)
target_compile_definitions(ku_objects PRIVATE KU_BUILDING_LIBRARY _GNU_SOURCE)
target_compile_options(ku_objects PRIVATE
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fvisibility-inlines-hidden>
  -fvisibility=hidden)
target_link_libraries(ku_objects PRIVATE ku_warnings
  PkgConfig::KU_CURL PkgConfig::KU_JSONC PkgConfig::KU_CRYPTO ku_resample
  Threads::Threads)

set(KU_PRIVATE_LIBS PkgConfig::KU_CURL PkgConfig::KU_JSONC PkgConfig::KU_CRYPTO
    Threads::Threads ${CMAKE_DL_LIBS} m)

add_library(ku_shared SHARED $<TARGET_OBJECTS:ku_objects>)
set_target_properties(ku_shared PROPERTIES
  OUTPUT_NAME ku
  EXPORT_NAME ku
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  LINKER_LANGUAGE C)
target_include_directories(ku_shared PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
# libresample is public: applications call its functions through libku.
target_link_libraries(ku_shared PRIVATE ${KU_PRIVATE_LIBS} PUBLIC ku_resample)
if(NOT KU_SANITIZE AND NOT KU_TSAN)
  target_link_options(ku_shared PRIVATE -Wl,--no-undefined -Wl,--as-needed)
endif()

add_library(ku_static STATIC $<TARGET_OBJECTS:ku_objects>)
set_target_properties(ku_static PROPERTIES OUTPUT_NAME ku EXPORT_NAME ku_static)
target_include_directories(ku_static PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(ku_static PUBLIC ${KU_PRIVATE_LIBS} ku_resample)

add_library(ku::ku ALIAS ku_shared)
add_library(ku::ku_static ALIAS ku_static)

# --- install -----------------------------------------------------------------
set(KU_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ku)

install(FILES ${PROJECT_SOURCE_DIR}/include/ku.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${KU_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ku)
install(TARGETS ku_shared ku_static EXPORT kuTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(EXPORT kuTargets NAMESPACE ku:: DESTINATION ${KU_CMAKE_DIR})

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/kuConfig.cmake.in
  ${PROJECT_BINARY_DIR}/kuConfig.cmake INSTALL_DESTINATION ${KU_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kuConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kuConfig.cmake
              ${PROJECT_BINARY_DIR}/kuConfigVersion.cmake
              ${PROJECT_SOURCE_DIR}/cmake/KuDependencies.cmake
        DESTINATION ${KU_CMAKE_DIR})

# The pkg-config file locates the prefix from its own place, so that an
# installed tree can be moved (a staging root, a device image).
file(RELATIVE_PATH KU_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" KU_PC_TO_PREFIX "${KU_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/ku.pc.in ${PROJECT_BINARY_DIR}/ku.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ku.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
