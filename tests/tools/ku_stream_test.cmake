include(${CMAKE_CURRENT_LIST_DIR}/ku_tool.cmake)
