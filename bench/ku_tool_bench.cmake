# Runs the built ku tool as a child process, beside coreutils and xxd.
if(TARGET ku)
  add_dependencies(${KU_BENCH_TARGET} ku)
  target_compile_definitions(${KU_BENCH_TARGET} PRIVATE KU_TOOL_PATH="$<TARGET_FILE:ku>")
else()
  target_compile_definitions(${KU_BENCH_TARGET} PRIVATE KU_TOOL_PATH="")
endif()
