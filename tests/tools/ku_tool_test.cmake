# The ku tool's tests run the built `ku` as a child process.
if(TARGET ku)
  set(KU_TOOL_RUN "$<TARGET_FILE:ku>")
  # The kernel cannot start a cross-built tool: tests start a wrapper, also
  # named ku, that hands it to the emulator.
  if(CMAKE_CROSSCOMPILING AND CMAKE_CROSSCOMPILING_EMULATOR)
    set(KU_TOOL_RUN ${CMAKE_CURRENT_BINARY_DIR}/emulated/ku)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
    file(GENERATE OUTPUT ${KU_TOOL_RUN}
         CONTENT "#!/bin/sh\nexec ${emulator} \"$<TARGET_FILE:ku>\" \"$@\"\n"
         FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
  endif()
  add_dependencies(${KU_TEST_TARGET} ku)
endif()
# The plock stand-in, preloaded in front of `ku lock`; `ku plugin` loads plugin_test's plug-ins.
add_library(ku_plock_preload MODULE ${PROJECT_SOURCE_DIR}/tests/support/plock/plock_device.cpp)
target_link_libraries(ku_plock_preload PRIVATE ku_warnings)
add_dependencies(${KU_TEST_TARGET} ku_plock_preload plugin_test_good plugin_test_wrong
                 plugin_test_nullops)
target_compile_definitions(${KU_TEST_TARGET} PRIVATE KU_TOOL_PATH="${KU_TOOL_RUN}"
  KU_PLOCK_PRELOAD="$<TARGET_FILE:ku_plock_preload>"
  KU_TEST_PLUGIN_DIR="$<TARGET_FILE_DIR:plugin_test_good>")
set(KU_TEST_PROPERTIES LABELS tool)
