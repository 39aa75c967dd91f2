# The tests build and inspect trees with json-c's own calls.
target_link_libraries(${KU_TEST_TARGET} PRIVATE PkgConfig::KU_JSONC)
