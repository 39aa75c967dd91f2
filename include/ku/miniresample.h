/* Integer PCM resampler: signed 16-bit interleaved input in, mono signed
 * 16-bit output at a new rate, block by block, without floating point.
 *
 * Each block is first reduced to one channel, then resampled by two-point
 * linear interpolation at a 32.32 fixed-point position carried from block to
 * block. Samples are in native byte order and sizes are in bytes; the input
 * and output must be aligned for 16-bit samples and may be the same memory.
 *
 * Stream behaviour a caller should know:
 *  - the step is floor(in_rate * 2^32 / out_rate) + 1, so output positions
 *    drift ahead by 2^-32 of a sample per output sample, even for exact
 *    ratios, and interpolation rounds toward negative infinity;
 *  - when an output position falls on the last sample of a block, that
 *    sample is made at the start of the next call between the two blocks,
 *    and the stream's time line then moves on one input sample later than a
 *    single large block would: output depends on where blocks are cut,
 *    except at cuts that no output position reaches within the last sample;
 *  - a block that the position jumps over yields no output.
 *
 * The output room is the caller's: with n mono samples in a block (n =
 * frames for 2 or 3 channels, whole samples for 1 channel), at most
 * floor(n * out_rate / in_rate) + 2 samples are written. With equal rates
 * the output is exactly the mono block.
 *
 * Threads: no locks. A record is used by one thread at a time; separate
 * records are independent and may run on different threads at once. */
#ifndef KU_MINIRESAMPLE_H
#define KU_MINIRESAMPLE_H

#include <stdint.h>

#include "ku/export.h"

KU_BEGIN_DECLS

/* One stream's converter state; opaque. */
typedef struct ku_miniresample ku_miniresample;

/* Starts a stream from in_rate to out_rate (only their ratio matters).
 * channels: samples per input frame, 1, 2 or 3. channel_select, for 2 or 3
 * channels: 1 keeps the first sample of a frame, 2 the second, any other value
 * their average truncated toward zero; the third sample is never read.
 * Returns null when the allocation fails, and also (refusing rather than
 * dividing by zero later) when a rate is not positive or channels is not
 * 1, 2 or 3. Release with miniresample_deinit. */
KU_API ku_miniresample *miniresample_init(int32_t in_rate, int32_t out_rate, int32_t channels,
                                          int32_t channel_select) KU_NOEXCEPT;

/* Converts one block of input_size bytes and stores the number of bytes
 * written to output in *output_size. Returns 0, or -1 for a null converter
 * (nothing else touched) and when the scratch copy of the block cannot be
 * allocated (*output_size is then 0 and the stream is unchanged).
 * The block is copied whole into the converter's scratch area before any
 * output is written; that area grows to the largest raw input size seen and
 * never shrinks, so a stream of equal blocks allocates only on its first call.
 * A part-frame at the end of a block is dropped, not carried over. A block
 * should hold 1 to 32768 mono samples when the rates differ; an empty block
 * (or a negative size) writes nothing and leaves the stream as it was, and a
 * larger block is still resampled whole. With equal rates any size goes, and
 * a 1-channel block of odd size is passed through with its odd byte. */
KU_API int miniresample_process(ku_miniresample *resampler, const void *input, int32_t input_size,
                                void *output, int32_t *output_size) KU_NOEXCEPT;

/* Frees the converter and its scratch area. Null is ignored. */
KU_API void miniresample_deinit(ku_miniresample *resampler) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_MINIRESAMPLE_H */
