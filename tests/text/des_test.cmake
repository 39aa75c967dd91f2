# OpenSSL's EVP des-ede3-ecb is the independent oracle; one case runs several
# threads at once, so the file also goes into the ThreadSanitizer run.
target_link_libraries(${KU_TEST_TARGET} PRIVATE PkgConfig::KU_CRYPTO)
set(KU_TEST_PROPERTIES LABELS concurrency)
