set(KU_TEST_PROPERTIES LABELS concurrency)
# Options records are filled by designated initializers: the fields not named are zero.
target_compile_options(${KU_TEST_TARGET} PRIVATE -Wno-missing-field-initializers)
