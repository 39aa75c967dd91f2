include(${CMAKE_CURRENT_LIST_DIR}/ku_tool.cmake)
# The plock stand-in as an LD_PRELOAD module in front of the ku runs.
add_library(ku_plock_preload MODULE ${PROJECT_SOURCE_DIR}/tests/support/plock/plock_device.cpp)
target_link_libraries(ku_plock_preload PRIVATE ku_warnings)
add_dependencies(${KU_TEST_TARGET} ku_plock_preload)
target_compile_definitions(${KU_TEST_TARGET} PRIVATE KU_PLOCK_PRELOAD="$<TARGET_FILE:ku_plock_preload>")
