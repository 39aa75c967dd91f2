# Shared set-up of the ku tool's integration tests: each test program runs the
# built `ku` binary as a child process and learns from ku_tool_features which
# subcommands the binary holds.
if(TARGET ku)
  set(KU_TOOL_RUN "$<TARGET_FILE:ku>")
  if(CMAKE_CROSSCOMPILING AND CMAKE_CROSSCOMPILING_EMULATOR)
    # The kernel cannot start a cross-built tool: the tests (and the shell
    # lines they run) start a wrapper that hands it to the emulator.
    set(KU_TOOL_RUN ${CMAKE_CURRENT_BINARY_DIR}/ku-emulated)
    if(NOT KU_TOOL_WRAPPER_WRITTEN)
      list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
      file(GENERATE OUTPUT ${KU_TOOL_RUN}
        CONTENT "#!/bin/sh\nexec ${emulator} \"$<TARGET_FILE:ku>\" \"$@\"\n"
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                         WORLD_READ WORLD_EXECUTE)
      set(KU_TOOL_WRAPPER_WRITTEN TRUE)
    endif()
  endif()
  target_compile_definitions(${KU_TEST_TARGET} PRIVATE
    KU_TOOL_PATH="${KU_TOOL_RUN}"
    KU_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  target_link_libraries(${KU_TEST_TARGET} PRIVATE ku_tool_features)
  add_dependencies(${KU_TEST_TARGET} ku)
else()
  target_compile_definitions(${KU_TEST_TARGET} PRIVATE KU_TOOL_PATH=""
    KU_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
endif()
set(KU_TEST_PROPERTIES LABELS tool)
