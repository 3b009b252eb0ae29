"""Impulse responses of a simulated shoebox room with two microphones in it.

Microphone 0 lies at x = -spacing/2 and microphone 1 at x = +spacing/2 from the middle of the array.
Directions are angles from the line of the microphones: 0 on the side of microphone 0, 90 broadside,
180 on the side of microphone 1, 270 behind.
"""
import dataclasses

import numpy as np
from scipy import signal

RATE_HZ = 16000
SOUND_M_S = 343.0
SINC_HALF_WIDTH = 40  # samples on either side of a reflection
LEAST_TO_WALL_M = 0.2
GRID = 16  # steps of a sample to which quick_response() interpolates delays
GRID_HALF_WIDTH = 32  # samples, of the filter that leads back from this grid


@dataclasses.dataclass(frozen=True)
class Room:
    """A room, and the place of the array in it."""
    rt60_s: float  # reverberation time; 0: no walls
    size_m: tuple = (5.0, 4.0, 2.7)
    centre_m: tuple = (2.2, 1.5, 1.3)  # of the array


def direction_vector(angle_deg):
    """Unit vector from the array towards a horizontal direction."""
    angle = np.deg2rad(angle_deg)
    return np.array([-np.cos(angle), np.sin(angle), 0.0])


def microphone_positions(room, spacing_m):
    return np.array(room.centre_m) + np.array([[-0.5 * spacing_m, 0.0, 0.0],
                                               [0.5 * spacing_m, 0.0, 0.0]])


def source_position(room, angle_deg, distance_m):
    """Where a source is; None when that is in a wall or outside the room."""
    position = np.array(room.centre_m) + distance_m * direction_vector(angle_deg)
    outside = np.any(position < LEAST_TO_WALL_M) or np.any(
        position > np.array(room.size_m) - LEAST_TO_WALL_M)
    return None if outside else position


def wall_reflection(room):
    """Pressure reflection factor of the walls for the reverberation time (C. F. Eyring,
    "Reverberation time in 'dead' rooms", 1930)."""
    if room.rt60_s <= 0.0:
        return 0.0
    size = room.size_m
    volume = np.prod(size)
    surface = 2.0 * (size[0] * size[1] + size[1] * size[2] + size[0] * size[2])
    return float(np.sqrt(np.exp(-0.161 * volume / (surface * room.rt60_s))))


def reach(room):
    """Metres that the last reflection travels."""
    return SOUND_M_S * max(room.rt60_s, 0.05)


def reflections(room, source, microphone):
    """Yields delays in samples and strengths of the reflections, an eighth of them at a time, by
    the image method (J. B. Allen, D. A. Berkley, "Image method for efficiently simulating
    small-room acoustics", 1979)."""
    size_m = np.array(room.size_m)
    reach_m = reach(room)
    counts = np.ceil(reach_m / (2.0 * size_m)).astype(int)
    cells = np.stack(np.meshgrid(*[np.arange(-n, n + 1) for n in counts], indexing="ij"), axis=-1)
    cells = cells.reshape(-1, 3)
    for mirror in np.ndindex(2, 2, 2):
        mirror = np.array(mirror)
        path = (1 - 2 * mirror) * source + 2.0 * cells * size_m - microphone
        distance_m = np.sqrt(np.sum(path**2, axis=1))
        bounces = np.sum(np.abs(cells - mirror) + np.abs(cells), axis=1)
        strength = wall_reflection(room)**bounces / (4.0 * np.pi * distance_m)
        near = (distance_m < reach_m) & (strength > 0.0)
        yield distance_m[near] / SOUND_M_S * RATE_HZ, strength[near]


def response_length(room):
    return int(reach(room) / SOUND_M_S * RATE_HZ) + 2 * SINC_HALF_WIDTH


def room_response(room, source, microphone):
    """Impulse response. Every reflection is a windowed sinc at its exact delay (P. M. Peterson,
    "Simulating the response of multiple microphones to a single acoustic source in a reverberant
    room", 1986)."""
    response = np.zeros(response_length(room))
    offsets = np.arange(-SINC_HALF_WIDTH, SINC_HALF_WIDTH + 1)
    for delay, strength in reflections(room, source, microphone):
        tap = np.round(delay[:, None]).astype(int) + offsets
        lag = tap - delay[:, None]
        window = 0.5 + 0.5 * np.cos(np.pi * lag / (SINC_HALF_WIDTH + 1))
        value = strength[:, None] * np.sinc(lag) * window
        kept = tap >= 0
        response += np.bincount(tap[kept], value[kept], minlength=len(response))[:len(response)]
    return response


def quick_response(room, source, microphone):
    """The same response up to 7 kHz within -55 dB, much faster where reverberation is long: the
    reflections are laid on a grid of 1/GRID sample, between whose points they are interpolated, and
    one filter brings them all to RATE_HZ."""
    length = response_length(room)
    grid = np.zeros(length * GRID + 1)
    for delay, strength in reflections(room, source, microphone):
        below = np.floor(delay * GRID).astype(int)
        share = delay * GRID - below
        grid += np.bincount(below, strength * (1.0 - share), minlength=len(grid))
        grid += np.bincount(below + 1, strength * share, minlength=len(grid))
    lag = np.arange(-GRID_HALF_WIDTH * GRID, GRID_HALF_WIDTH * GRID + 1) / GRID
    lowpass = np.sinc(lag) * (0.5 + 0.5 * np.cos(np.pi * lag / GRID_HALF_WIDTH))
    return signal.fftconvolve(grid, lowpass, mode="same")[:length * GRID:GRID]
