# Third-party libraries, all from the distribution. libresample ships a
# pkg-config file without its own -l flag, so it is found by name.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
pkg_check_modules(KU_CURL   REQUIRED IMPORTED_TARGET libcurl)
pkg_check_modules(KU_JSONC  REQUIRED IMPORTED_TARGET json-c)
pkg_check_modules(KU_CRYPTO REQUIRED IMPORTED_TARGET libcrypto)

find_path(KU_RESAMPLE_INCLUDE_DIR libresample.h REQUIRED)
find_library(KU_RESAMPLE_LIBRARY resample REQUIRED)
add_library(ku_resample UNKNOWN IMPORTED)
set_target_properties(ku_resample PROPERTIES
  IMPORTED_LOCATION "${KU_RESAMPLE_LIBRARY}"
  INTERFACE_INCLUDE_DIRECTORIES "${KU_RESAMPLE_INCLUDE_DIR}"
  # libresample.so uses libm without recording it as needed.
  INTERFACE_LINK_LIBRARIES m)
