// 4x4 float matrices for row vectors: identity, products, rotation,
// translation and scale builders, Gauss-Jordan inversion and the transform
// of one vector by one matrix.
#include "math/matrix.h"

#include <cmath>
#include <cstring>
#include <utility>

namespace {

constexpr double DEG_TO_RAD = 0.017453292519943295;
// 2 pi as the angle reduction uses it, in single precision.
constexpr float TWO_PI_F = 6.283185307f;

}  // namespace

void make_ident(float m[4][4]) {
    for (int i = 0; i < 4; i++)
        for (int j = 0; j < 4; j++) m[i][j] = (i == j) ? 1.0f : 0.0f;
}

// Each element is summed in a local, starting from 0 and adding the four
// products in order, so the result is the same to the bit as summing in r,
// while r, which may be a or b, is written only once the product is known.
void matrix_matrix_mult(const float a[4][4], const float b[4][4], float r[4][4]) {
    float product[4][4];
    for (int i = 0; i < 4; i++)
        for (int j = 0; j < 4; j++) {
            float sum = 0.0f;
            for (int k = 0; k < 4; k++) sum += a[i][k] * b[k][j];
            product[i][j] = sum;
        }
    std::memcpy(r, product, sizeof product);
}

void concat_matrix(float m[4][4], const float t[4][4], int premultiply) {
    float product[4][4];
    if (premultiply)
        matrix_matrix_mult(t, m, product);
    else
        matrix_matrix_mult(m, t, product);
    std::memcpy(m, product, sizeof product);
}

void make_rotate_matrix(float m[4][4], float angle, const float axis[3]) {
    angle -= TWO_PI_F * std::floor(angle / TWO_PI_F);
    float c = std::cos(angle);
    float s = std::sin(angle);
    float t = 1.0f - c;
    float x = axis[0], y = axis[1], z = axis[2];

    m[0][0] = x * x + (1.0f - x * x) * c;
    m[0][1] = x * y * t + z * s;
    m[0][2] = x * z * t - y * s;
    m[0][3] = 0.0f;

    m[1][0] = x * y * t - z * s;
    m[1][1] = y * y + (1.0f - y * y) * c;
    m[1][2] = y * z * t + x * s;
    m[1][3] = 0.0f;

    m[2][0] = x * z * t + y * s;
    m[2][1] = y * z * t - x * s;
    m[2][2] = z * z + (1.0f - z * z) * c;
    m[2][3] = 0.0f;

    m[3][0] = m[3][1] = m[3][2] = 0.0f;
    m[3][3] = 1.0f;
}

// Rotation by the three angles (degrees) of v about x, y and z.
static void make_euler_matrix(float m[4][4], const float v[3]) {
    float ax = static_cast<float>(v[0] * DEG_TO_RAD);
    float ay = static_cast<float>(v[1] * DEG_TO_RAD);
    float az = static_cast<float>(v[2] * DEG_TO_RAD);
    float cx = std::cos(ax), sx = std::sin(ax);
    float cy = std::cos(ay), sy = std::sin(ay);
    float cz = std::cos(az), sz = std::sin(az);

    m[0][0] = cy * cz;
    m[0][1] = -cy * sz;
    m[0][2] = sy;
    m[1][0] = cz * sx * sy + cx * sz;
    m[1][1] = -sz * sx * sy + cz * cx;
    m[1][2] = -sx * cy;
    m[2][0] = -cz * cx * sy + sx * sz;
    m[2][1] = cx * sz * sy + cz * sx;
    m[2][2] = cx * cy;
}

void make_xform_matrix(float m[4][4], const float v[3], int kind) {
    make_ident(m);
    switch (kind) {
        case 1:
            m[3][0] = v[0];
            m[3][1] = v[1];
            m[3][2] = v[2];
            break;
        case 2:
            make_euler_matrix(m, v);
            break;
        case 3:
            m[0][0] = v[0];
            m[1][1] = v[1];
            m[2][2] = v[2];
            break;
        default:
            break;
    }
}

namespace {

// The unused row and column that hold the element of largest magnitude.
void find_pivot(const float a[4][4], const bool used[4], int* row, int* col) {
    float biggest = -1.0f;
    int first_unused = 0;
    while (first_unused < 3 && used[first_unused]) first_unused++;
    *row = *col = first_unused;  // also the choice when every candidate is NaN
    for (int j = 0; j < 4; j++) {
        if (used[j]) continue;
        for (int k = 0; k < 4; k++) {
            if (used[k]) continue;
            float magnitude = std::fabs(a[j][k]);
            if (magnitude > biggest) {
                biggest = magnitude;
                *row = j;
                *col = k;
            }
        }
    }
}

void swap_rows(float a[4][4], int r1, int r2) {
    for (int k = 0; k < 4; k++) std::swap(a[r1][k], a[r2][k]);
}

void swap_columns(float a[4][4], int c1, int c2) {
    for (int k = 0; k < 4; k++) std::swap(a[k][c1], a[k][c2]);
}

}  // namespace

// Gauss-Jordan elimination in place with full pivoting. A zero pivot is not
// tested for: a singular matrix yields infinities or NaNs. Its determinant
// stays exactly 0 (the later, non-finite pivots are not multiplied in).
float matrix_invert(float r[4][4], const float m[4][4]) {
    std::memcpy(r, m, 16 * sizeof(float));
    bool used[4] = {false, false, false, false};
    int pivot_row[4], pivot_col[4];
    float det = 1.0f;

    for (int i = 0; i < 4; i++) {
        int row, col;
        find_pivot(r, used, &row, &col);
        used[col] = true;
        if (row != col) {
            swap_rows(r, row, col);
            det = -det;
        }
        pivot_row[i] = row;
        pivot_col[i] = col;

        float pivot = r[col][col];
        if (det != 0.0f) det *= pivot;
        float inverse_pivot = 1.0f / pivot;
        r[col][col] = 1.0f;
        for (int k = 0; k < 4; k++) r[col][k] *= inverse_pivot;

        for (int j = 0; j < 4; j++) {
            if (j == col) continue;
            float factor = r[j][col];
            r[j][col] = 0.0f;
            for (int k = 0; k < 4; k++) r[j][k] -= r[col][k] * factor;
        }
    }
    for (int i = 3; i >= 0; i--)
        if (pivot_row[i] != pivot_col[i]) swap_columns(r, pivot_row[i], pivot_col[i]);
    return det;
}

// The elimination of matrix_invert restricted to what its determinant reads:
// the rows and columns not yet pivoted. Each of those elements goes through
// the same operations in the same order as there, so the pivots, and with
// them the determinant, are the same to the bit (non-finite values included),
// at about a third of the work.
float matrix_determinant(const float m[4][4]) {
    float r[4][4];
    std::memcpy(r, m, sizeof r);
    bool used[4] = {false, false, false, false};
    float det = 1.0f;

    for (int i = 0; i < 4; i++) {
        int row, col;
        find_pivot(r, used, &row, &col);
        used[col] = true;
        if (row != col) {
            swap_rows(r, row, col);
            det = -det;
        }
        float pivot = r[col][col];
        if (det != 0.0f) det *= pivot;
        float inverse_pivot = 1.0f / pivot;
        for (int k = 0; k < 4; k++) {
            if (!used[k]) r[col][k] *= inverse_pivot;
        }
        for (int j = 0; j < 4; j++) {
            if (used[j]) continue;
            float factor = r[j][col];
            for (int k = 0; k < 4; k++) {
                if (!used[k]) r[j][k] -= r[col][k] * factor;
            }
        }
    }
    return det;
}

void matrix_transpose(float r[4][4], const float m[4][4]) {
    float t[4][4];  // so that r may be m
    for (int i = 0; i < 4; i++)
        for (int j = 0; j < 4; j++) t[i][j] = m[j][i];
    std::memcpy(r, t, sizeof t);
}

void vec3_mat4_mult_inplace(float* v, const float m[4][4], int mode) {
    if (!m) return;
    float w = (mode == 1) ? 1.0f : (mode == 2) ? v[3] : 0.0f;
    float out[4];
    for (int j = 0; j < 4; j++)
        out[j] = v[0] * m[0][j] + v[1] * m[1][j] + v[2] * m[2][j] + w * m[3][j];
    v[0] = out[0];
    v[1] = out[1];
    v[2] = out[2];
}
