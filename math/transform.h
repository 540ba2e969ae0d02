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

// Transforms at an explicit time; use_inverse picks the inverse pair; mode as
// vec3_mat4_mult_inplace (2 also writes the fourth component).
void spacetime_transform_p(const float* in, const Transformation* t, float* out, float time,
                           int use_inverse, int mode);

#endif  // TRACERY_MATH_TRANSFORM_H
