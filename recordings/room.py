"""Impulse responses of a simulated shoebox room with two microphones in it.

Microphone 0 lies at x = -spacing/2 and microphone 1 at x = +spacing/2 from the middle of the array.
Directions are angles from the line of the microphones: 0 on the side of microphone 0, 90 broadside,
180 on the side of microphone 1.
"""
import sys

import numpy as np

RATE_HZ = 16000
SOUND_M_S = 343.0
ROOM_M = np.array([5.0, 4.0, 2.7])
ARRAY_CENTRE_M = np.array([2.2, 1.5, 1.3])
SINC_HALF_WIDTH = 40  # samples on either side of a reflection


def direction_vector(angle_deg):
    """Unit vector from the array towards a horizontal direction."""
    angle = np.deg2rad(angle_deg)
    return np.array([-np.cos(angle), np.sin(angle), 0.0])


def microphone_positions(spacing_m):
    return ARRAY_CENTRE_M + np.array([[-0.5 * spacing_m, 0.0, 0.0], [0.5 * spacing_m, 0.0, 0.0]])


def source_position(angle_deg, distance_m):
    position = ARRAY_CENTRE_M + distance_m * direction_vector(angle_deg)
    if np.any(position < 0.2) or np.any(position > ROOM_M - 0.2):
        sys.exit(f"make_recording: a source at {angle_deg} degrees and {distance_m} m is outside"
                 " the room; choose an angle from 0 to 180 or a smaller distance")
    return position


def wall_reflection(rt60_s):
    """Pressure reflection factor of the walls for a reverberation time (C. F. Eyring,
    "Reverberation time in 'dead' rooms", 1930)."""
    if rt60_s <= 0.0:
        return 0.0
    volume = np.prod(ROOM_M)
    surface = 2.0 * (ROOM_M[0] * ROOM_M[1] + ROOM_M[1] * ROOM_M[2] + ROOM_M[0] * ROOM_M[2])
    return float(np.sqrt(np.exp(-0.161 * volume / (surface * rt60_s))))


def room_response(source, microphone, rt60_s):
    """Impulse response of a shoebox room by the image method (J. B. Allen, D. A. Berkley, "Image
    method for efficiently simulating small-room acoustics", 1979). Every reflection is a windowed
    sinc at its exact delay (P. M. Peterson, "Simulating the response of multiple microphones to a
    single acoustic source in a reverberant room", 1986)."""
    reach_m = SOUND_M_S * max(rt60_s, 0.05)
    counts = np.ceil(reach_m / (2.0 * ROOM_M)).astype(int)
    cells = np.stack(np.meshgrid(*[np.arange(-n, n + 1) for n in counts], indexing="ij"), axis=-1)
    cells = cells.reshape(-1, 3)
    response = np.zeros(int(reach_m / SOUND_M_S * RATE_HZ) + 2 * SINC_HALF_WIDTH)
    offsets = np.arange(-SINC_HALF_WIDTH, SINC_HALF_WIDTH + 1)
    for mirror in np.ndindex(2, 2, 2):
        mirror = np.array(mirror)
        path = (1 - 2 * mirror) * source + 2.0 * cells * ROOM_M - microphone
        distance_m = np.sqrt(np.sum(path**2, axis=1))
        bounces = np.sum(np.abs(cells - mirror) + np.abs(cells), axis=1)
        strength = wall_reflection(rt60_s)**bounces / (4.0 * np.pi * distance_m)
        near = (distance_m < reach_m) & (strength > 0.0)
        delay = distance_m[near, None] / SOUND_M_S * RATE_HZ
        tap = np.round(delay).astype(int) + offsets
        lag = tap - delay
        window = 0.5 + 0.5 * np.cos(np.pi * lag / (SINC_HALF_WIDTH + 1))
        value = strength[near, None] * np.sinc(lag) * window
        kept = tap >= 0
        response += np.bincount(tap[kept], value[kept], minlength=len(response))[:len(response)]
    return response
