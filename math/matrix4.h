// Value classes over the matrix helpers: 3-float and 3-double points, 3x3
// matrices in both precisions and the 4x4 float Matrix4, with operators and
// stream input/output. Row-vector convention as in math/matrix.h.
#ifndef TRACERY_MATH_MATRIX4_H
#define TRACERY_MATH_MATRIX4_H

#include <iosfwd>

class Point {
  public:
    Point() : x(0.0f), y(0.0f), z(0.0f) {}
    Point(float x_, float y_, float z_) : x(x_), y(y_), z(z_) {}

    Point operator+(const Point& o) const { return Point(x + o.x, y + o.y, z + o.z); }
    Point operator-(const Point& o) const { return Point(x - o.x, y - o.y, z - o.z); }
    Point operator-() const { return Point(-x, -y, -z); }
    Point operator*(float s) const { return Point(x * s, y * s, z * s); }
    float dot(const Point& o) const { return x * o.x + y * o.y + z * o.z; }
    Point cross(const Point& o) const;
    float length() const;

    static const Point Zero, X, Y, Z;
    float x, y, z;
};

class DPoint {
  public:
    DPoint() : x(0.0), y(0.0), z(0.0) {}
    DPoint(double x_, double y_, double z_) : x(x_), y(y_), z(z_) {}

    DPoint operator+(const DPoint& o) const { return DPoint(x + o.x, y + o.y, z + o.z); }
    DPoint operator-(const DPoint& o) const { return DPoint(x - o.x, y - o.y, z - o.z); }
    DPoint operator-() const { return DPoint(-x, -y, -z); }
    DPoint operator*(double s) const { return DPoint(x * s, y * s, z * s); }
    double dot(const DPoint& o) const { return x * o.x + y * o.y + z * o.z; }
    DPoint cross(const DPoint& o) const;
    double length() const;

    static const DPoint Zero, X, Y, Z;
    double x, y, z;
};

// Output as "x y z"; input reads three whitespace-separated numbers.
std::ostream& operator<<(std::ostream& out, const Point& p);
std::istream& operator>>(std::istream& in, Point& p);
std::ostream& operator<<(std::ostream& out, const DPoint& p);
std::istream& operator>>(std::istream& in, DPoint& p);

// Normalises v in place and builds two unit vectors a and b perpendicular to
// it: a = unit(v.z - v.y, v.x - v.z, v.y - v.x), b = unit(a x v). A length
// below 1e-12 gives the zero vector at each step, so a v along (1, 1, 1)
// yields zero a and b.
void gen_orthos(Point& v, Point& a, Point& b);
void gen_orthos(DPoint& v, DPoint& a, DPoint& b);

struct Matrix3 {
    Matrix3();  // identity
    float m[3][3];
};

struct DMatrix3 {
    DMatrix3();  // identity
    double m[3][3];
};

class Matrix4 {
  public:
    Matrix4();  // zero
    Matrix4(float m00, float m01, float m02, float m03, float m10, float m11, float m12, float m13,
            float m20, float m21, float m22, float m23, float m30, float m31, float m32, float m33);
    explicit Matrix4(const float* values);  // 16 floats, row-major
    // The 3x3 block upper left, the rest from the identity.
    explicit Matrix4(const Matrix3& rotation);
    // As above, with the point as translation: in row 3 (row vectors) when
    // column_vectors is 0, in column 3 (for matrices written for column
    // vectors) otherwise.
    Matrix4(const Matrix3& rotation, const Point& translation, int column_vectors);
    Matrix4(const DMatrix3& rotation, const DPoint& translation, int column_vectors);

    Matrix4 operator+(const Matrix4& o) const;
    Matrix4 operator-(const Matrix4& o) const;
    Matrix4 operator-() const;
    Matrix4 operator*(const Matrix4& o) const;  // this applied first, then o
    Matrix4 operator*(float s) const;
    Matrix4& operator+=(const Matrix4& o);
    Matrix4& operator-=(const Matrix4& o);
    bool operator==(const Matrix4& o) const;

    Matrix4 transpose() const;
    // The inverse by Gauss-Jordan elimination; a singular matrix gives
    // non-finite elements.
    Matrix4 inverse() const;

    float* operator[](int row) { return m[row]; }
    const float* operator[](int row) const { return m[row]; }

    static const Matrix4 Zero, Identity;
    float m[4][4];
};

Matrix4 operator*(float s, const Matrix4& a);
Matrix4 transpose(const Matrix4& a);
// Four lines of four numbers.
std::ostream& operator<<(std::ostream& out, const Matrix4& a);

#endif  // TRACERY_MATH_MATRIX4_H
