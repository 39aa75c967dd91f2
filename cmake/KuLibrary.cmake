# libku.so and libku.a from one set of objects, plus the install rules.
#
# The shared library is linked with the C driver: the C++ inside uses the
# language only (no exceptions, no RTTI, no allocating containers), so the
# device never needs libstdc++. --no-undefined turns any accidental use of the
# C++ runtime into a link error instead of a missing library on the target.

add_library(ku_warnings INTERFACE)
target_compile_options(ku_warnings INTERFACE -Wall -Wextra $<$<BOOL:${KU_WERROR}>:-Werror>)

# ku/version.h comes from the project's version, so the two never disagree.
set(KU_GENERATED_INCLUDE_DIR ${PROJECT_BINARY_DIR}/include)
configure_file(${PROJECT_SOURCE_DIR}/cmake/version.h.in
               ${KU_GENERATED_INCLUDE_DIR}/ku/version.h @ONLY)

file(GLOB KU_SOURCES CONFIGURE_DEPENDS
     ${PROJECT_SOURCE_DIR}/src/*/*.cpp ${PROJECT_SOURCE_DIR}/src/*/*.c)
# The forwarders to libresample.so belong in libku.so only: a static link
# takes libresample itself (ku.pc's Libs.private, ku::ku_static).
set(KU_SHARED_ONLY_SOURCES ${PROJECT_SOURCE_DIR}/src/audio/resample.c)
list(REMOVE_ITEM KU_SOURCES ${KU_SHARED_ONLY_SOURCES})
file(GLOB KU_PUBLIC_HEADERS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/ku/*.h)
list(APPEND KU_PUBLIC_HEADERS ${KU_GENERATED_INCLUDE_DIR}/ku/version.h)

add_library(ku_objects OBJECT ${KU_SOURCES})
target_include_directories(ku_objects
  PUBLIC  ${PROJECT_SOURCE_DIR}/include ${KU_GENERATED_INCLUDE_DIR}
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

add_library(ku_shared SHARED $<TARGET_OBJECTS:ku_objects> ${KU_SHARED_ONLY_SOURCES})
target_include_directories(ku_shared PRIVATE ${PROJECT_SOURCE_DIR}/src)
target_compile_definitions(ku_shared PRIVATE KU_BUILDING_LIBRARY _GNU_SOURCE)
target_compile_options(ku_shared PRIVATE
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fvisibility-inlines-hidden>
  -fvisibility=hidden $<TARGET_PROPERTY:ku_warnings,INTERFACE_COMPILE_OPTIONS>)
set_target_properties(ku_shared PROPERTIES
  OUTPUT_NAME ku
  EXPORT_NAME ku
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  LINKER_LANGUAGE C)
target_include_directories(ku_shared PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<BUILD_INTERFACE:${KU_GENERATED_INCLUDE_DIR}>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
# A program compiled against the headers must agree with the library on the
# width of time_t and off_t (see the top-level CMakeLists.txt).
target_compile_definitions(ku_shared INTERFACE ${KU_WIDE_TIME_DEFINITIONS})
# libresample's functions are libku's own exports (src/audio/resample.c
# forwards them), so libresample.so stays a private, but needed, library:
# nothing in libku references it by name, so --as-needed would drop it.
target_link_libraries(ku_shared PRIVATE ${KU_PRIVATE_LIBS}
  -Wl,--push-state,--no-as-needed ku_resample -Wl,--pop-state ${CMAKE_DL_LIBS})
# Every export carries the version node KU_1, and the script exports nothing
# outside the API even if a symbol slips past the hidden visibility.
set(KU_VERSION_SCRIPT ${PROJECT_SOURCE_DIR}/cmake/ku.map)
target_link_options(ku_shared PRIVATE -Wl,--version-script=${KU_VERSION_SCRIPT})
set_property(TARGET ku_shared APPEND PROPERTY LINK_DEPENDS ${KU_VERSION_SCRIPT})
if(NOT KU_SANITIZE AND NOT KU_TSAN)
  target_link_options(ku_shared PRIVATE -Wl,--no-undefined -Wl,--as-needed)
endif()

add_library(ku_static STATIC $<TARGET_OBJECTS:ku_objects>)
set_target_properties(ku_static PROPERTIES OUTPUT_NAME ku EXPORT_NAME ku_static)
target_include_directories(ku_static PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<BUILD_INTERFACE:${KU_GENERATED_INCLUDE_DIR}>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_definitions(ku_static INTERFACE ${KU_WIDE_TIME_DEFINITIONS})
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
# A static link of libku needs libresample itself (the forwarders are in
# libku.so only) and the dependencies' own libraries, which pkg-config
# --static takes from their .pc files.
list(JOIN KU_WIDE_TIME_DEFINITIONS " -D" KU_PC_DEFINITIONS)
if(KU_PC_DEFINITIONS)
  set(KU_PC_DEFINITIONS " -D${KU_PC_DEFINITIONS}")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/ku.pc.in ${PROJECT_BINARY_DIR}/ku.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ku.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
