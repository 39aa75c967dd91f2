# Shared set-up of the ku tool's integration tests: each test program runs the
# built `ku` binary as a child process and learns from ku_tool_features which
# subcommands the binary holds.
if(TARGET ku)
  target_compile_definitions(${KU_TEST_TARGET} PRIVATE
    KU_TOOL_PATH="$<TARGET_FILE:ku>"
    KU_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  target_link_libraries(${KU_TEST_TARGET} PRIVATE ku_tool_features)
  add_dependencies(${KU_TEST_TARGET} ku)
else()
  target_compile_definitions(${KU_TEST_TARGET} PRIVATE KU_TOOL_PATH=""
    KU_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
endif()
set(KU_TEST_PROPERTIES LABELS tool)
