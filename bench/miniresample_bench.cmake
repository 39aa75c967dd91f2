# Peers: libsamplerate (SRC_LINEAR) and the speexdsp resampler.
find_package(PkgConfig REQUIRED)
pkg_check_modules(KU_BENCH_SAMPLERATE REQUIRED IMPORTED_TARGET samplerate)
pkg_check_modules(KU_BENCH_SPEEXDSP REQUIRED IMPORTED_TARGET speexdsp)
target_link_libraries(${KU_BENCH_TARGET} PRIVATE PkgConfig::KU_BENCH_SAMPLERATE PkgConfig::KU_BENCH_SPEEXDSP)
