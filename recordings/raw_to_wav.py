#!/usr/bin/env python3
"""Puts a WAV header before raw signed 16-bit little-endian samples: raw_to_wav.py RAW WAV."""
import argparse
import wave


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("raw")
    parser.add_argument("wav")
    parser.add_argument("--channels", type=int, default=2)
    parser.add_argument("--rate", type=int, default=16000, help="in Hz")
    arguments = parser.parse_args()
    with open(arguments.raw, "rb") as raw, wave.open(arguments.wav, "wb") as wav:
        wav.setnchannels(arguments.channels)
        wav.setsampwidth(2)
        wav.setframerate(arguments.rate)
        wav.writeframes(raw.read())


if __name__ == "__main__":
    main()
