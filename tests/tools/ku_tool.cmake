# The ku tool's tests run the built `ku` as a child process; ku_tool_features
# tells them which commands it holds.
if(TARGET ku)
  set(KU_TOOL_RUN "$<TARGET_FILE:ku>")
  if(CMAKE_CROSSCOMPILING AND CMAKE_CROSSCOMPILING_EMULATOR)
    # The kernel cannot start a cross-built tool: tests and their shell lines
    # start a wrapper, also named ku, that hands it to the emulator.
    set(KU_TOOL_RUN ${CMAKE_CURRENT_BINARY_DIR}/emulated/ku)
    if(NOT KU_TOOL_WRAPPER_WRITTEN)
      list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
      file(GENERATE OUTPUT ${KU_TOOL_RUN}
        CONTENT "#!/bin/sh\nexec ${emulator} \"$<TARGET_FILE:ku>\" \"$@\"\n"
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                         WORLD_READ WORLD_EXECUTE)
      set(KU_TOOL_WRAPPER_WRITTEN TRUE)
    endif()
  endif()
  target_link_libraries(${KU_TEST_TARGET} PRIVATE ku_tool_features)
  add_dependencies(${KU_TEST_TARGET} ku)
endif()
target_compile_definitions(${KU_TEST_TARGET} PRIVATE KU_TOOL_PATH="${KU_TOOL_RUN}"
                           KU_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
set(KU_TEST_PROPERTIES LABELS tool)
