// The Point, DPoint, Matrix3, DMatrix3 and Matrix4 value classes: their
// constants, constructors, operators, streams and gen_orthos.
#include "math/matrix4.h"

#include <cmath>
#include <cstring>
#include <istream>
#include <ostream>

#include "math/matrix.h"

const Point Point::Zero(0.0f, 0.0f, 0.0f);
const Point Point::X(1.0f, 0.0f, 0.0f);
const Point Point::Y(0.0f, 1.0f, 0.0f);
const Point Point::Z(0.0f, 0.0f, 1.0f);

const DPoint DPoint::Zero(0.0, 0.0, 0.0);
const DPoint DPoint::X(1.0, 0.0, 0.0);
const DPoint DPoint::Y(0.0, 1.0, 0.0);
const DPoint DPoint::Z(0.0, 0.0, 1.0);

Point Point::cross(const Point& o) const {
    return Point(y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x);
}

float Point::length() const {
    return std::sqrt(dot(*this));
}

DPoint DPoint::cross(const DPoint& o) const {
    return DPoint(y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x);
}

double DPoint::length() const {
    return std::sqrt(dot(*this));
}

std::ostream& operator<<(std::ostream& out, const Point& p) {
    return out << p.x << ' ' << p.y << ' ' << p.z;
}

std::istream& operator>>(std::istream& in, Point& p) {
    return in >> p.x >> p.y >> p.z;
}

std::ostream& operator<<(std::ostream& out, const DPoint& p) {
    return out << p.x << ' ' << p.y << ' ' << p.z;
}

std::istream& operator>>(std::istream& in, DPoint& p) {
    return in >> p.x >> p.y >> p.z;
}

namespace {

constexpr double ORTHO_EPSILON = 1e-12;

template <typename P>
P unit_or_zero(const P& v) {
    auto len = v.length();
    if (len < ORTHO_EPSILON) return P::Zero;
    return v * (1 / len);
}

template <typename P>
void gen_orthos_any(P& v, P& a, P& b) {
    v = unit_or_zero(v);
    a = unit_or_zero(P(v.z - v.y, v.x - v.z, v.y - v.x));
    b = unit_or_zero(a.cross(v));
}

}  // namespace

void gen_orthos(Point& v, Point& a, Point& b) {
    gen_orthos_any(v, a, b);
}

void gen_orthos(DPoint& v, DPoint& a, DPoint& b) {
    gen_orthos_any(v, a, b);
}

Matrix3::Matrix3() {
    for (int i = 0; i < 3; i++)
        for (int j = 0; j < 3; j++) m[i][j] = (i == j) ? 1.0f : 0.0f;
}

DMatrix3::DMatrix3() {
    for (int i = 0; i < 3; i++)
        for (int j = 0; j < 3; j++) m[i][j] = (i == j) ? 1.0 : 0.0;
}

const Matrix4 Matrix4::Zero;
const Matrix4 Matrix4::Identity(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1);

Matrix4::Matrix4() {
    std::memset(m, 0, sizeof m);
}

Matrix4::Matrix4(float m00, float m01, float m02, float m03, float m10, float m11, float m12,
                 float m13, float m20, float m21, float m22, float m23, float m30, float m31,
                 float m32, float m33)
    : m{{m00, m01, m02, m03}, {m10, m11, m12, m13}, {m20, m21, m22, m23}, {m30, m31, m32, m33}} {}

Matrix4::Matrix4(const float* values) {
    std::memcpy(m, values, sizeof m);
}

Matrix4::Matrix4(const Matrix3& rotation) {
    make_ident(m);
    for (int i = 0; i < 3; i++)
        for (int j = 0; j < 3; j++) m[i][j] = rotation.m[i][j];
}

Matrix4::Matrix4(const Matrix3& rotation, const Point& translation, int column_vectors)
    : Matrix4(rotation) {
    const float t[3] = {translation.x, translation.y, translation.z};
    for (int i = 0; i < 3; i++) {
        if (column_vectors)
            m[i][3] = t[i];
        else
            m[3][i] = t[i];
    }
}

Matrix4::Matrix4(const DMatrix3& rotation, const DPoint& translation, int column_vectors) {
    make_ident(m);
    for (int i = 0; i < 3; i++)
        for (int j = 0; j < 3; j++) m[i][j] = static_cast<float>(rotation.m[i][j]);
    const double t[3] = {translation.x, translation.y, translation.z};
    for (int i = 0; i < 3; i++) {
        if (column_vectors)
            m[i][3] = static_cast<float>(t[i]);
        else
            m[3][i] = static_cast<float>(t[i]);
    }
}

Matrix4 Matrix4::operator+(const Matrix4& o) const {
    Matrix4 r(*this);
    return r += o;
}

Matrix4 Matrix4::operator-(const Matrix4& o) const {
    Matrix4 r(*this);
    return r -= o;
}

Matrix4 Matrix4::operator-() const {
    return *this * -1.0f;
}

Matrix4 Matrix4::operator*(const Matrix4& o) const {
    Matrix4 r;
    matrix_matrix_mult(m, o.m, r.m);
    return r;
}

Matrix4 Matrix4::operator*(float s) const {
    Matrix4 r;
    for (int i = 0; i < 4; i++)
        for (int j = 0; j < 4; j++) r.m[i][j] = m[i][j] * s;
    return r;
}

Matrix4& Matrix4::operator+=(const Matrix4& o) {
    for (int i = 0; i < 4; i++)
        for (int j = 0; j < 4; j++) m[i][j] += o.m[i][j];
    return *this;
}

Matrix4& Matrix4::operator-=(const Matrix4& o) {
    for (int i = 0; i < 4; i++)
        for (int j = 0; j < 4; j++) m[i][j] -= o.m[i][j];
    return *this;
}

bool Matrix4::operator==(const Matrix4& o) const {
    for (int i = 0; i < 4; i++)
        for (int j = 0; j < 4; j++)
            if (m[i][j] != o.m[i][j]) return false;
    return true;
}

Matrix4 Matrix4::transpose() const {
    Matrix4 r;
    matrix_transpose(r.m, m);
    return r;
}

Matrix4 Matrix4::inverse() const {
    Matrix4 r;
    matrix_invert(r.m, m);
    return r;
}

Matrix4 operator*(float s, const Matrix4& a) {
    return a * s;
}

Matrix4 transpose(const Matrix4& a) {
    return a.transpose();
}

std::ostream& operator<<(std::ostream& out, const Matrix4& a) {
    for (int i = 0; i < 4; i++)
        out << a.m[i][0] << ' ' << a.m[i][1] << ' ' << a.m[i][2] << ' ' << a.m[i][3] << '\n';
    return out;
}
