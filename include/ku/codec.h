/* Hexadecimal and Base64 codecs between bytes and text.
 *
 * Names read from the text's side: ku_hex2ascii decodes hex text into bytes,
 * ku_ascii2hex encodes bytes as hex text. Mind the argument orders: the Base64
 * encoder takes dst first, every other function src first. Only the Base64
 * decoder keeps to a destination limit; for the others the caller provides
 * the room stated below. Nothing allocates and nothing logs.
 *
 * Threads: every function may run on several threads at once; they keep no
 * state, and the digit table and the alphabet are constant. Only the caller's
 * buffers are written, so two calls must not share a destination. */
#ifndef KU_CODEC_H
#define KU_CODEC_H

#include <stdint.h>

#include "ku/export.h"

KU_BEGIN_DECLS

/* Decodes src_len hex characters from src into dst, two per byte, after
 * clearing dst_size bytes of dst (dst_size is no limit: dst needs room for
 * (src_len + 1) / 2 bytes). Digits are 0-9, A-F, a-f and also the six
 * characters : ; < = > ? (values 10 to 15). With an odd src_len the byte
 * behind src_len is read as the last low digit (a terminator there makes the
 * call fail). Returns the number of bytes decoded; 0 for an invalid pair, in
 * which case the bytes of earlier pairs stay in dst. */
KU_API uint32_t ku_hex2ascii(const char *src, void *dst, uint32_t src_len,
                             uint32_t dst_size) KU_NOEXCEPT;

/* Encodes src_len bytes of src as upper-case hex into dst, high half first,
 * after clearing dst_size bytes of dst. dst needs room for 2 * src_len
 * characters; no terminator is written, so the text ends in a zero byte only
 * when dst_size > 2 * src_len. Returns 2 * src_len, or 0 for a negative
 * src_len (dst still cleared). */
KU_API int32_t ku_ascii2hex(const void *src, char *dst, int32_t src_len,
                            uint32_t dst_size) KU_NOEXCEPT;

/* Reads up to the first 8 characters of str as one hex number (0-9, A-F,
 * a-f). Other characters are skipped but use up one of the 8 positions, so
 * "0x12" is 0x12 and "1 2" is 0x12. No error result: a text without digits
 * gives 0. */
KU_API uint32_t ku_a2hex(const char *str) KU_NOEXCEPT;

/* Decodes the terminated Base64 text src (standard alphabet, '=' padding)
 * into dst. Blanks, tabs, CR and LF are skipped anywhere, so folded text is
 * fine. At most dst_size - 1 bytes are decoded: a group that would reach
 * dst + dst_size fails, so 3 bytes of output need dst_size 4. No terminator
 * is written. Returns the byte count, or -1 for any failure (character outside
 * the alphabet, misplaced padding, non-zero bits under padding, data behind a
 * padded group, incomplete last group, no room); groups before the failure
 * stay in dst. */
KU_API int32_t ku_string_base64_decode(const char *src, void *dst, uint32_t dst_size) KU_NOEXCEPT;

/* Encodes src_len bytes of src as Base64 into dst, with '=' padding, no line
 * breaks and a terminator. dst needs 4 characters per 3 bytes or part of
 * them, plus 1. Returns the number of characters before the terminator; a
 * src_len of 0 or less writes the terminator alone and gives 0. */
KU_API int32_t ku_string_base64_encode(char *dst, const void *src, int32_t src_len) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_CODEC_H */
