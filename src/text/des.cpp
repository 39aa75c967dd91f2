// Triple DES in ECB mode over OpenSSL's single-block primitive, with fresh key
// schedules on every call: nothing is cached, so a change to KEY_ENC counts at
// the next call and concurrent calls share no state.

// DES_set_key_unchecked and DES_ecb3_encrypt are deprecated in OpenSSL 3 but
// still shipped; they are the primitive this codec is defined over, and the
// EVP replacement would need a cipher context and a provider fetch per call.
// The deprecation attributes are switched off for this one file only, so a
// new use of a deprecated API anywhere else still fails the -Werror build.
#define OPENSSL_SUPPRESS_DEPRECATED 1

#include "ku/des.h"

#include <openssl/crypto.h>
#include <openssl/des.h>

#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t kBlock = 8;
constexpr size_t kKeyBytes = 24;

// A malloc block freed on every path. It holds plaintext in one direction or
// the other, so it is wiped before the allocator may hand it to anyone else;
// OPENSSL_cleanse, because a memset before free may be optimised away.
struct WorkArea {
    explicit WorkArea(size_t size) noexcept
        : bytes(static_cast<unsigned char *>(std::malloc(size))), size(size)
    {
    }
    ~WorkArea()
    {
        if (bytes != nullptr) {
            OPENSSL_cleanse(bytes, size);
        }
        std::free(bytes);
    }
    WorkArea(const WorkArea &) = delete;
    WorkArea &operator=(const WorkArea &) = delete;
    unsigned char *bytes;
    size_t size;
};

// The schedules are the key in another form: wiped when the call ends, so
// that no later stack frame can find them.
struct KeySchedules {
    DES_key_schedule ks1;
    DES_key_schedule ks2;
    DES_key_schedule ks3;
    KeySchedules() = default;
    ~KeySchedules() { OPENSSL_cleanse(this, sizeof *this); }
    KeySchedules(const KeySchedules &) = delete;
    KeySchedules &operator=(const KeySchedules &) = delete;
};

void make_schedules(const unsigned char *key, KeySchedules &schedules) noexcept
{
    // KEY_ENC is read here, at every call, never copied ahead of time.
    const unsigned char *bytes = key != nullptr ? key : KEY_ENC;
    DES_key_schedule *targets[3] = {&schedules.ks1, &schedules.ks2, &schedules.ks3};
    for (size_t i = 0; i < 3; ++i) {
        DES_cblock block;
        std::memcpy(block, bytes + i * kBlock, kBlock);
        DES_set_key_unchecked(&block, targets[i]);
        OPENSSL_cleanse(block, sizeof block);
    }
}

// Transforms `blocks` whole blocks from `from` to `to` (separate areas) with
// ks1, ks2, ks3 in this order, which the primitive expects in both directions.
// `from` is not const because OpenSSL's const_DES_cblock is not.
void transform(unsigned char *from, unsigned char *to, size_t blocks, KeySchedules &schedules,
               int direction) noexcept
{
    for (size_t i = 0; i < blocks; ++i) {
        DES_ecb3_encrypt(reinterpret_cast<const_DES_cblock *>(from + i * kBlock),
                         reinterpret_cast<DES_cblock *>(to + i * kBlock), &schedules.ks1,
                         &schedules.ks2, &schedules.ks3, direction);
    }
}

// The common path of both directions: `padded` is the work size (a multiple
// of the block), of which `len` bytes come from `in`. The input is copied away
// before anything is written, so in == out is safe.
void run(const unsigned char *key, const void *in, size_t len, size_t padded, void *out,
         int direction) noexcept
{
    WorkArea source(padded);
    WorkArea result(padded);
    if (source.bytes == nullptr || result.bytes == nullptr) {
        return;
    }
    // An empty plaintext may come as a null pointer, which memcpy must not see.
    if (len != 0) {
        std::memcpy(source.bytes, in, len);
    }
    // Only the padding needs clearing: one pass over the data is enough.
    std::memset(source.bytes + len, 0, padded - len);
    KeySchedules schedules;
    make_schedules(key, schedules);
    transform(source.bytes, result.bytes, padded / kBlock, schedules, direction);
    std::memcpy(out, result.bytes, padded);
}

}  // namespace

extern "C" {

KU_API unsigned char KEY_ENC[kKeyBytes] = {
    0x3c, 0xa9, 0x57, 0xe1, 0x06, 0xd4, 0x8b, 0x72,  // K1
    0x91, 0x2e, 0xf0, 0x4d, 0x68, 0xb7, 0x1a, 0xc5,  // K2
    0x3c, 0xa9, 0x57, 0xe1, 0x06, 0xd4, 0x8b, 0x72,  // K3 = K1
};

KU_API void ku_des_encode3(const unsigned char *key, const void *in, int32_t len, void *out) noexcept
{
    if (len < 0) {
        return;
    }
    const auto length = static_cast<size_t>(len);
    // One block more than the whole blocks: at least one zero byte follows
    // the plaintext, a whole zero block when len is a multiple of 8.
    run(key, in, length, (length / kBlock + 1) * kBlock, out, DES_ENCRYPT);
}

KU_API void ku_des_decode3(const unsigned char *key, const void *in, int32_t len, void *out) noexcept
{
    if (len < 0) {
        return;
    }
    const size_t padded = static_cast<size_t>(len) / kBlock * kBlock;
    if (padded == 0) {
        return;
    }
    run(key, in, padded, padded, out, DES_DECRYPT);
}

}  // extern "C"
