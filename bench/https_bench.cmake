# The benchmark serves its files with the tests' nginx fixture.
target_sources(${KU_BENCH_TARGET} PRIVATE
  ${PROJECT_SOURCE_DIR}/tests/support/nginx_server.cpp
  ${PROJECT_SOURCE_DIR}/tests/support/script_server.cpp)
target_include_directories(${KU_BENCH_TARGET} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
target_compile_definitions(${KU_BENCH_TARGET} PRIVATE _GNU_SOURCE)
