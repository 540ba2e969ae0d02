// Applying a transformation record to points, vectors, normals and lengths.
// A moving record is evaluated at sample_time (or an explicit time) by a
// linear blend of its two matrices, element by element.
#include "math/transform.h"

#include <cmath>
#include <cstring>

#include "math/derived_matrices.h"
#include "math/matrix.h"

float sample_time = 0.0f;

namespace {

// Which matrix pair of the record a transform reads.
enum MatrixKind { POINT_MATRIX, INVERSE_MATRIX, NORMAL_MATRIX, INVERSE_NORMAL_MATRIX };

void pick_pair(const Transformation* t, MatrixKind kind, const float (**start)[4],
               const float (**end)[4]) {
    if (kind != POINT_MATRIX) settle_derived_matrices(t);
    switch (kind) {
        case POINT_MATRIX:
            *start = t->matrix0;
            *end = t->matrix1;
            break;
        case INVERSE_MATRIX:
            *start = t->inverse0;
            *end = t->inverse1;
            break;
        case NORMAL_MATRIX:
            *start = t->normal0;
            *end = t->normal1;
            break;
        case INVERSE_NORMAL_MATRIX:
            // The transpose of the matrix is the inverse of its normal matrix.
            *start = t->transpose0;
            *end = t->transpose1;
            break;
    }
}

float element(const float (*m)[4], int i, int j) {
    if (m) return m[i][j];
    return (i == j) ? 1.0f : 0.0f;
}

// The matrix of the pair at the given time, or null for the identity.
// A blended matrix is built in scratch.
const float (*select_matrix(const Transformation* t, MatrixKind kind, float time,
                            float scratch[4][4]))[4] {
    const float(*start)[4];
    const float(*end)[4];
    pick_pair(t, kind, &start, &end);
    if (!(t->flags & XFORM_MOVING)) return start;
    if (time <= t->time0) return start;
    if (time >= t->time1) return end;
    float u = (time - t->time0) / (t->time1 - t->time0);
    for (int i = 0; i < 4; i++)
        for (int j = 0; j < 4; j++)
            scratch[i][j] = (1.0f - u) * element(start, i, j) + u * element(end, i, j);
    return scratch;
}

// out = in through the chosen matrix; mode as vec3_mat4_mult_inplace.
void apply(const float* in, const Transformation* t, float* out, MatrixKind kind, int mode) {
    float moved[3] = {in[0], in[1], in[2]};
    if (t) {
        float scratch[4][4];
        vec3_mat4_mult_inplace(moved, select_matrix(t, kind, sample_time, scratch), mode);
    }
    std::memcpy(out, moved, sizeof moved);
}

float measure(float d, const Transformation* t, MatrixKind kind) {
    if (!t) return d;
    float scratch[4][4];
    const float(*m)[4] = select_matrix(t, kind, sample_time, scratch);
    if (!m) return d;
    float sum = 0.0f;
    for (int i = 0; i < 3; i++)
        for (int j = 0; j < 3; j++) sum += m[i][j] * m[i][j];
    return d * std::sqrt(sum / 3.0f);
}

}  // namespace

void transform_p(const float* in, const Transformation* t, float* out) {
    apply(in, t, out, POINT_MATRIX, 1);
}
void inverse_transform_p(const float* in, const Transformation* t, float* out) {
    apply(in, t, out, INVERSE_MATRIX, 1);
}
void transform_v(const float* in, const Transformation* t, float* out) {
    apply(in, t, out, POINT_MATRIX, 0);
}
void inverse_transform_v(const float* in, const Transformation* t, float* out) {
    apply(in, t, out, INVERSE_MATRIX, 0);
}
void transform_n(const float* in, const Transformation* t, float* out) {
    apply(in, t, out, NORMAL_MATRIX, 0);
}
void inverse_transform_n(const float* in, const Transformation* t, float* out) {
    apply(in, t, out, INVERSE_NORMAL_MATRIX, 0);
}
float transform_measure(float d, const Transformation* t) {
    return measure(d, t, POINT_MATRIX);
}
float inverse_transform_measure(float d, const Transformation* t) {
    return measure(d, t, INVERSE_MATRIX);
}

const float (*point_matrix_at(const Transformation* t, float time, float scratch[4][4]))[4] {
    if (t == nullptr) return nullptr;
    return select_matrix(t, POINT_MATRIX, time, scratch);
}

void transform_p_inplace(float* p, const Transformation* t) {
    transform_p(p, t, p);
}
void inverse_transform_p_inplace(float* p, const Transformation* t) {
    inverse_transform_p(p, t, p);
}
void transform_v_inplace(float* v, const Transformation* t) {
    transform_v(v, t, v);
}
void inverse_transform_v_inplace(float* v, const Transformation* t) {
    inverse_transform_v(v, t, v);
}
void transform_n_inplace(float* n, const Transformation* t) {
    transform_n(n, t, n);
}
void inverse_transform_n_inplace(float* n, const Transformation* t) {
    inverse_transform_n(n, t, n);
}

void spacetime_transform_p(const float* in, const Transformation* t, float* out, float time,
                           int use_inverse, int mode) {
    if (!t) {
        std::memmove(out, in, 3 * sizeof(float));
        return;
    }
    float scratch[4][4];
    const float(*m)[4] =
        select_matrix(t, use_inverse ? INVERSE_MATRIX : POINT_MATRIX, time, scratch);
    if (mode < 0 || mode > 2) mode = 0;
    float x = in[0], y = in[1], z = in[2];
    float w = (mode == 1) ? 1.0f : (mode == 2) ? in[3] : 0.0f;
    int count = (mode == 2) ? 4 : 3;
    float result[4];
    for (int j = 0; j < count; j++)
        result[j] = x * element(m, 0, j) + y * element(m, 1, j) + z * element(m, 2, j) +
                    w * element(m, 3, j);
    std::memcpy(out, result, count * sizeof(float));
}
