# Runs the built ku tool as a child process, beside coreutils and xxd, with
# the tests' child-process helper.
target_sources(${KU_BENCH_TARGET} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support/subprocess.cpp)
target_include_directories(${KU_BENCH_TARGET} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
if(TARGET ku)
  add_dependencies(${KU_BENCH_TARGET} ku)
  target_compile_definitions(${KU_BENCH_TARGET} PRIVATE KU_TOOL_PATH="$<TARGET_FILE:ku>")
else()
  target_compile_definitions(${KU_BENCH_TARGET} PRIVATE KU_TOOL_PATH="")
endif()
