# OpenSSL's EVP_EncodeBlock is the independent oracle for random inputs.
target_link_libraries(${KU_TEST_TARGET} PRIVATE PkgConfig::KU_CRYPTO)
