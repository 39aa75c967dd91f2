# OpenSSL's EVP des-ede3-ecb is the peer.
target_link_libraries(${KU_BENCH_TARGET} PRIVATE PkgConfig::KU_CRYPTO)
