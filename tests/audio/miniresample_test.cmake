# The resampler runs on a CPU without an FPU: its object code must hold no
# floating-point instruction (x86 SSE/AVX/x87, MIPS coprocessor 1).
string(CONCAT float "^ *[0-9a-f]+: *\t(v?(add|sub|mul|div|sqrt|min|max|rcp|rsqrt|round|u?comi|hadd"
       "|hsub|addsub|dp|fn?m(add|sub)[0-9]*)(ss|sd|ps|pd|sh)|v?cvt[a-z0-9]*|f[a-z0-9]+"
       "|[a-z0-9]+\\.(s|d|ps)|[ls][wd]x?c1|m[tf]h?c1|[cb]c1[a-z]*)(\\s|$)")
if(CMAKE_OBJDUMP)
  add_test(NAME miniresample_test.object_has_no_floating_point
    COMMAND sh -c "test -f \"$1\" && ! \"$0\" -d --no-show-raw-insn \"$1\" | grep -E \"$2\""
    ${CMAKE_OBJDUMP} "$<FILTER:$<TARGET_OBJECTS:ku_objects>,INCLUDE,/miniresample\\.cpp\\.o$>"
    "${float}")
endif()
