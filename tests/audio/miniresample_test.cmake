# The resampler's object code must stay free of floating point.
if(CMAKE_OBJDUMP)
  add_test(NAME miniresample_test.object_has_no_floating_point
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/audio/check_integer_only.sh ${CMAKE_OBJDUMP}
            "$<TARGET_OBJECTS:ku_objects>" "/miniresample\\.cpp\\.o$")
endif()
