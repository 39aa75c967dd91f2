# Third-party libraries, all from the distribution. libresample ships a
# pkg-config file without its own -l flag, so it is found by name.
#
# The installed package includes this file too, and a project may call
# find_package(ku) in a parent directory and again in a subdirectory, where
# the parent's imported targets are already visible: each is made once.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
foreach(module IN ITEMS CURL:libcurl JSONC:json-c CRYPTO:libcrypto)
  string(REPLACE ":" ";" module ${module})
  list(GET module 0 prefix)
  list(GET module 1 name)
  if(NOT TARGET PkgConfig::KU_${prefix})
    pkg_check_modules(KU_${prefix} REQUIRED IMPORTED_TARGET ${name})
  endif()
endforeach()

if(NOT TARGET ku_resample)
  find_path(KU_RESAMPLE_INCLUDE_DIR libresample.h REQUIRED)
  find_library(KU_RESAMPLE_LIBRARY resample REQUIRED)
  add_library(ku_resample UNKNOWN IMPORTED)
  set_target_properties(ku_resample PROPERTIES
    IMPORTED_LOCATION "${KU_RESAMPLE_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${KU_RESAMPLE_INCLUDE_DIR}"
    # libresample.so uses libm without recording it as needed.
    INTERFACE_LINK_LIBRARIES m)
endif()
