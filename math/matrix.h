// 4x4 float matrices, row-major, applied to row vectors (translation in row 3).
#ifndef TRACERY_MATH_MATRIX_H
#define TRACERY_MATH_MATRIX_H

void make_ident(float m[4][4]);
// r = a times b; r must not alias a or b.
void matrix_matrix_mult(const float a[4][4], const float b[4][4], float r[4][4]);
// premultiply 0: m = m times t; otherwise m = t times m.
void concat_matrix(float m[4][4], const float t[4][4], int premultiply);
// angle in radians; the axis is used as given.
void make_rotate_matrix(float m[4][4], float angle, const float axis[3]);
// kind 1 translation, 2 rotation by three angles in degrees, 3 scale.
void make_xform_matrix(float m[4][4], const float v[3], int kind);
// r = inverse of m by Gauss-Jordan with full pivoting; returns the determinant.
float matrix_invert(float r[4][4], const float m[4][4]);
// The determinant that matrix_invert returns for m, bit for bit, without
// forming the inverse.
float matrix_determinant(const float m[4][4]);
void matrix_transpose(float r[4][4], const float m[4][4]);
// mode 0 direction, 1 point, 2 homogeneous point read as 4 floats (w kept).
void vec3_mat4_mult_inplace(float* v, const float m[4][4], int mode);

#endif  // TRACERY_MATH_MATRIX_H
