# The peer is json-c itself, called directly.
target_link_libraries(${KU_BENCH_TARGET} PRIVATE PkgConfig::KU_JSONC)
