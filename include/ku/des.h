/* Triple DES (EDE, three 8-byte keys) in ECB mode over byte strings, with
 * zero padding and no record of the true length.
 *
 * There is no IV, no chaining and no authentication: equal 8-byte plaintext
 * blocks give equal ciphertext blocks. Both functions report nothing: when
 * memory runs out they leave out unchanged and return.
 *
 * Threads: both functions work on their own memory and may run on several
 * threads at once. KEY_ENC is the one shared value (see below). */
#ifndef KU_DES_H
#define KU_DES_H

#include <stdint.h>

#include "ku/export.h"

KU_BEGIN_DECLS

/* The default key, K1 K2 K1 (48 hex digits
 * 3ca957e106d48b72912ef04d68b71ac53ca957e106d48b72). Writable: a change takes
 * effect at the next call that passes a null key. No lock: change it only
 * while no call runs. */
KU_API extern unsigned char KEY_ENC[24];

/* Encrypts len bytes of in with the 24-byte key (null: KEY_ENC), after
 * padding them with zero bytes to whole 8-byte blocks. There is always at
 * least one zero byte of padding: a len that is a multiple of 8, 0 included,
 * gets a whole block of zeros. Writes (len / 8 + 1) * 8 bytes to out. in and
 * out may be the same area (it must then have room for the padded size). A
 * negative len writes nothing. Key bytes are used as they are: no parity or
 * weak-key test, and K3 need not equal K1. */
KU_API void ku_des_encode3(const unsigned char *key, const void *in, int32_t len, void *out) KU_NOEXCEPT;

/* Decrypts the whole 8-byte blocks of len bytes of in with the 24-byte key
 * (null: KEY_ENC) and writes (len / 8) * 8 bytes to out; a tail of len % 8
 * bytes is ignored. The padding zeros stay in the output: the caller knows
 * the true length or reads the result as a terminated text. in and out may be
 * the same area. A wrong key is not detected: it gives other bytes. */
KU_API void ku_des_decode3(const unsigned char *key, const void *in, int32_t len, void *out) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_DES_H */
