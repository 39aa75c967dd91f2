# plugins/kutest_<name>.so from test_plugin.c, with the flaw that names it.
set(KU_TEST_PLUGIN_DIR ${CMAKE_CURRENT_BINARY_DIR}/plugins)
foreach(name good wrong noname nullname nullops noops)
  set(target ${KU_TEST_TARGET}_${name})
  add_library(${target} MODULE ${CMAKE_CURRENT_SOURCE_DIR}/plugin/test_plugin.c)
  set_target_properties(${target} PROPERTIES PREFIX "" OUTPUT_NAME kutest_${name}
    LIBRARY_OUTPUT_DIRECTORY ${KU_TEST_PLUGIN_DIR})
  target_compile_definitions(${target} PRIVATE PLUGIN_NAME="${name}" FLAW_${name})
  target_link_libraries(${target} PRIVATE ku_warnings)
  add_dependencies(${KU_TEST_TARGET} ${target})
endforeach()
target_compile_definitions(${KU_TEST_TARGET} PRIVATE KU_TEST_PLUGIN_DIR="${KU_TEST_PLUGIN_DIR}")
