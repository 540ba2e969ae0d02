// The transformation record: the current matrix with its inverse, normal and
// transpose matrices at up to two motion times, plus the flags that mark it
// moving, flipped in handedness, shared, or built of rotations only.
#ifndef TRACERY_MATH_TRANSFORMATION_H
#define TRACERY_MATH_TRANSFORMATION_H

#include <cstdint>

typedef float (*MatrixPtr)[4];

// Bits of Transformation::flags.
constexpr uint32_t XFORM_MOVING = 0x80000000u;    // the second-time matrices are valid
constexpr uint32_t XFORM_FLIPPED = 0x40000000u;   // handedness toggled by a negative determinant
constexpr uint32_t XFORM_SHARED = 0x20000000u;    // referenced elsewhere: copy before changing
constexpr uint32_t XFORM_ROTATION = 0x10000000u;  // ANDed with each concatenation's rotation flag
// Set by RiPointsPolygons on the transformation its polygons were drawn
// under; recorded for the interface's sake, read by nothing.
constexpr uint32_t XFORM_POINTS_POLYGONS = 0x08000000u;

// Four matrix pairs; each pair is (matrix, its inverse) for the deep copy:
// (matrix0, inverse0), (matrix1, inverse1), (normal0, transpose0),
// (normal1, transpose1). normal is the transpose of the inverse, so the
// transpose of the matrix is the inverse of the normal matrix.
//
// The inverse, normal and transpose matrices of the first time may lag
// behind matrix0 (math/derived_matrices.h): read them through math/transform
// or after settle_derived_matrices.
struct Transformation {
    MatrixPtr matrix0;
    MatrixPtr inverse0;
    MatrixPtr matrix1;
    MatrixPtr inverse1;
    MatrixPtr normal0;
    MatrixPtr transpose0;
    MatrixPtr normal1;
    MatrixPtr transpose1;
    float time0;
    float time1;
    uint32_t flags;
};

#endif  // TRACERY_MATH_TRANSFORMATION_H
