#!/usr/bin/env python3
"""Writes chime.wav, the sample sound of the ku tour: half a second of 16-bit
stereo PCM at 8000 Hz, a 440 Hz triangle tone on the left and 660 Hz on the
right, fading out. Integer arithmetic only, so every machine writes the same
bytes.

    examples/data/make_chime.py [OUT]      (default: chime.wav beside this file)
"""
import os
import struct
import sys

RATE = 8000
FRAMES = RATE // 2
PEAK = 12000


def triangle(frame, frequency):
    # Position within the period in units of 1/RATE periods, 0 .. RATE-1.
    phase = (frame * frequency) % RATE
    quarter = RATE // 4
    if phase < quarter:
        return PEAK * phase // quarter
    if phase < 3 * quarter:
        return PEAK - 2 * PEAK * (phase - quarter) // (2 * quarter)
    return -PEAK + PEAK * (phase - 3 * quarter) // quarter


def main():
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(os.path.abspath(__file__)), "chime.wav")
    samples = bytearray()
    for frame in range(FRAMES):
        fade = FRAMES - frame
        left = triangle(frame, 440) * fade // FRAMES
        right = triangle(frame, 660) * fade // FRAMES
        samples += struct.pack("<hh", left, right)
    header = struct.pack("<4sI4s4sIHHIIHH4sI", b"RIFF", 36 + len(samples), b"WAVE", b"fmt ", 16, 1, 2, RATE,
                         RATE * 4, 4, 16, b"data", len(samples))
    with open(out, "wb") as wav:
        wav.write(header + bytes(samples))


if __name__ == "__main__":
    main()
