# The ku tool's tests run the built `ku` as a child process.
if(TARGET ku)
  set(KU_TOOL_RUN "$<TARGET_FILE:ku>")
  # The kernel cannot start a cross-built tool: tests start a wrapper, also
  # named ku, that hands it to the emulator.
  if(CMAKE_CROSSCOMPILING AND CMAKE_CROSSCOMPILING_EMULATOR)
    set(KU_TOOL_RUN ${CMAKE_CURRENT_BINARY_DIR}/emulated/ku)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
    if(NOT KU_TOOL_WRAPPER_WRITTEN)
      file(GENERATE OUTPUT ${KU_TOOL_RUN}
           CONTENT "#!/bin/sh\nexec ${emulator} \"$<TARGET_FILE:ku>\" \"$@\"\n"
           FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
      set(KU_TOOL_WRAPPER_WRITTEN TRUE)
    endif()
  endif()
  add_dependencies(${KU_TEST_TARGET} ku)
endif()
target_compile_definitions(${KU_TEST_TARGET} PRIVATE KU_TOOL_PATH="${KU_TOOL_RUN}")
set(KU_TEST_PROPERTIES LABELS tool)
