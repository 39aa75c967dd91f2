target_link_libraries(${KU_TEST_TARGET} PRIVATE PkgConfig::KU_CRYPTO)  # EVP des-ede3-ecb oracle
