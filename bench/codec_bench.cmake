# OpenSSL's EVP_EncodeBlock / EVP_DecodeBlock are the peers.
target_link_libraries(${KU_BENCH_TARGET} PRIVATE PkgConfig::KU_CRYPTO)
