"""Checks the examples' output for the stored recording: check_examples.py OUTPUTS RECORDINGS."""
import array
import sys

BLOCK = 320
DELAY = 192  # of the signal at hop 192
REFERENCE_START = 256  # output sample that the first reference sample belongs to
PART = 25 * BLOCK  # samples that switch_modes stays in a mode


def read(path):
    samples = array.array("h")
    with open(path, "rb") as file:
        samples.frombytes(file.read())
    if sys.byteorder == "big":
        samples.byteswap()
    return samples


def energy(samples):
    return sum(x * x for x in samples)


def main():
    outputs, recordings = sys.argv[1:]
    microphones = read(f"{recordings}/pcm_in_multi.s16")
    reference = read(f"{recordings}/pcm_bf_mvdr.s16")
    minimal = read(f"{outputs}/minimal.s16")
    frames = len(microphones) // 2
    assert len(minimal) == frames
    assert minimal[REFERENCE_START:] == reference[:frames - REFERENCE_START], "minimal: reference"

    for length in (1, 480, 1000):
        late = read(f"{outputs}/any-{length}.s16")
        assert len(late) == frames and not any(late[:BLOCK])
        assert late[BLOCK:] == minimal[:-BLOCK], f"any_block_size {length}: late minimal output"

    modes = read(f"{outputs}/modes.s16")
    assert len(modes) == frames
    assert modes[:PART] == minimal[:PART], "switch_modes: the beamformer comes first"
    first, mono = 3 * PART, slice(2 * 3 * PART, 2 * 4 * PART, 2)
    assert modes[first:first + PART] == microphones[mono], "switch_modes: one microphone, no delay"
    start, end = 2 * PART + BLOCK, 3 * PART  # a block after the change the old frames have left
    mean = [(microphones[2 * n] + microphones[2 * n + 1]) / 2
            for n in range(start - DELAY, end - DELAY)]
    error = energy(a - b for a, b in zip(modes[start:end], mean))
    # 16-bit rounding and the fixed-point transform leave about 40 dB.
    assert error < 1e-3 * energy(mean), f"switch_modes: mean, error {error / energy(mean):.1e}"
    print(f"examples agree with the stored reference; error of the mean {error / energy(mean):.1e}")


if __name__ == "__main__":
    main()
