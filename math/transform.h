// Applying a transformation record to points, vectors, normals and lengths,
// with moving records interpolated at sample_time.
#ifndef TRACERY_MATH_TRANSFORM_H
#define TRACERY_MATH_TRANSFORM_H

#include "math/transformation.h"

// The time at which moving transformations are evaluated.
extern float sample_time;

void transform_p(const float* in, const Transformation* t, float* out);
void inverse_transform_p(const float* in, const Transformation* t, float* out);
void transform_v(const float* in, const Transformation* t, float* out);
void inverse_transform_v(const float* in, const Transformation* t, float* out);
void transform_n(const float* in, const Transformation* t, float* out);
void inverse_transform_n(const float* in, const Transformation* t, float* out);
float transform_measure(float d, const Transformation* t);
float inverse_transform_measure(float d, const Transformation* t);

void transform_p_inplace(float* p, const Transformation* t);
void inverse_transform_p_inplace(float* p, const Transformation* t);
void transform_v_inplace(float* v, const Transformation* t);
void inverse_transform_v_inplace(float* v, const Transformation* t);
void transform_n_inplace(float* n, const Transformation* t);
void inverse_transform_n_inplace(float* n, const Transformation* t);

// The point matrix of t at the given time: null for the identity (t null or
// without a matrix), a matrix of the record, or for a moving record the blend
// of its two written into scratch. Points carried through it with
// transform_point_by come out exactly as transform_p makes them, so a caller
// moving many points picks the matrix once.
const float (*point_matrix_at(const Transformation* t, float time, float scratch[4][4]))[4];

// out = in through m (null: the identity) as a point (w = 1); the arithmetic
// of transform_p, in the same order.
inline void transform_point_by(const float (*m)[4], const float* in, float* out) {
    if (m == nullptr) {
        out[0] = in[0];
        out[1] = in[1];
        out[2] = in[2];
        return;
    }
    const float x = in[0], y = in[1], z = in[2];
    for (int j = 0; j < 3; j++) out[j] = x * m[0][j] + y * m[1][j] + z * m[2][j] + 1.0f * m[3][j];
}

// Transforms at an explicit time; use_inverse picks the inverse pair; mode as
// vec3_mat4_mult_inplace (2 also writes the fourth component).
void spacetime_transform_p(const float* in, const Transformation* t, float* out, float time,
                           int use_inverse, int mode);

#endif  // TRACERY_MATH_TRANSFORM_H
