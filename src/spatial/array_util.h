// Microphone positions and far-field steering vectors.
//
// Geometry: three floats (x, y, z) per microphone, in metres. Steering vectors: [bins][channels]
// se_complex, of unit norm in each bin. The sampling rate of 16 kHz and the speed of sound, 343
// m/s, are constants. Pure functions; results are single precision.
#ifndef TM_SE_BF_SPATIAL_ARRAY_UTIL_H
#define TM_SE_BF_SPATIAL_ARRAY_UTIL_H

#include <cstdint>

#include "support/se_maths.h"

// Entry of the steering vector that prefers no direction: 1/sqrt(channels), computed in double
// precision and rounded to single.
float uniform_steering(int32_t channels);

// Uniform linear array along x, centred on the origin: two microphones are at -spacing/2 and
// +spacing/2. geometry: room for 3 * channels floats. Does nothing for channels < 1.
void get_ULA_geometry(int32_t channels, float spacing, float *geometry);

// Fills `bins` steering vectors for a plane wave from `doa_degrees`:
//   d_m(k) = exp(-i 2 pi f_k p_m / 343) / sqrt(channels),  p_m = x_m cos(doa) + y_m sin(doa),
// with f_k = 16000 k / (2 (bins - 1)) Hz (Van Trees, "Optimum array processing", 2002, chapter 2).
// Sines, cosines and the projection p_m are computed in double precision and rounded to single.
// With these signs the phase of microphone 0, at negative x, leads for doa = 0. So 0 is a talker on
// the side of microphone 0, 90 is broadside, and 180 is the side of microphone 1.
void get_steering_vector_by_doa(float doa_degrees, const float *geometry, int32_t channels,
                                se_complex *steering, int32_t bins);

// Euclidean distance between two points; scalar product of two vectors. Only tests call them.
float Distance(float x1, float y1, float z1, float x2, float y2, float z2);
float DotProduct(float x1, float y1, float z1, float x2, float y2, float z2);

#endif  // TM_SE_BF_SPATIAL_ARRAY_UTIL_H
