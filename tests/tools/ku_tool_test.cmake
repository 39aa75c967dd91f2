include(${CMAKE_CURRENT_LIST_DIR}/ku_tool.cmake)
# Plug-ins for `ku plugin`: kuplug_echo.so is what it says, kuplug_empty.so
# has no operations table.
set(ku_plugin_dir ${CMAKE_CURRENT_BINARY_DIR}/ku_tool_plugins)
foreach(variant echo empty)
  add_library(kuplug_${variant} MODULE ${CMAKE_CURRENT_LIST_DIR}/test_plugin.c)
  set_target_properties(kuplug_${variant} PROPERTIES PREFIX ""
                        LIBRARY_OUTPUT_DIRECTORY ${ku_plugin_dir})
  target_link_libraries(kuplug_${variant} PRIVATE ku_warnings)
  add_dependencies(${KU_TEST_TARGET} kuplug_${variant})
endforeach()
target_compile_definitions(kuplug_echo PRIVATE KU_TEST_MODULE_NAME="echo" KU_TEST_OPS=&ku_test_ops)
target_compile_definitions(kuplug_empty PRIVATE KU_TEST_MODULE_NAME="empty" KU_TEST_OPS=0)
target_compile_definitions(${KU_TEST_TARGET} PRIVATE KU_TEST_PLUGIN_DIR="${ku_plugin_dir}")
