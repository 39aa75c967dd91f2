# Test plug-ins, one shared object per flaw, all from test_plugin.c, in a
# directory of their own: plugins/<file>.so.
set(KU_TEST_PLUGIN_DIR ${CMAKE_CURRENT_BINARY_DIR}/plugins)
function(ku_add_test_plugin file)
  set(target ${KU_TEST_TARGET}_${file})
  add_library(${target} MODULE ${CMAKE_CURRENT_SOURCE_DIR}/plugin/test_plugin.c)
  set_target_properties(${target} PROPERTIES
    PREFIX "" SUFFIX ".so" OUTPUT_NAME ${file}
    LIBRARY_OUTPUT_DIRECTORY ${KU_TEST_PLUGIN_DIR})
  target_include_directories(${target} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  target_compile_definitions(${target} PRIVATE ${ARGN})
  target_link_libraries(${target} PRIVATE ku_warnings)
  add_dependencies(${KU_TEST_TARGET} ${target})
endfunction()

ku_add_test_plugin(kutest_good     PLUGIN_NAME="good")
ku_add_test_plugin(bare            PLUGIN_NAME="bare")
ku_add_test_plugin(kutest_wrong    PLUGIN_NAME="other")
ku_add_test_plugin(kutest_noname   PLUGIN_NAME="noname" NO_NAME_SYMBOL)
ku_add_test_plugin(kutest_nullname PLUGIN_NAME="nullname" NULL_NAME)
ku_add_test_plugin(kutest_nullops  PLUGIN_NAME="nullops" NULL_OPS)
ku_add_test_plugin(kutest_noops    PLUGIN_NAME="noops" NO_OPS_SYMBOL)

target_compile_definitions(${KU_TEST_TARGET} PRIVATE KU_TEST_PLUGIN_DIR="${KU_TEST_PLUGIN_DIR}")
