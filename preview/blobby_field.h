// The field of a blobby program: its instructions decoded, and the field
// they make sampled at the points of a grid.
#ifndef TRACERY_PREVIEW_BLOBBY_FIELD_H
#define TRACERY_PREVIEW_BLOBBY_FIELD_H

#include <vector>

#include "preview/isosurface.h"

// Instruction codes of a blobby program. The numbering followed is the
// RenderMan standard's, which is the one exporters' RIB files use: their
// ellipsoids are 1001 with the index of a 16-float matrix, joined by 0 (add)
// with a count of operands. Operators 0 to 7 combine earlier results; leaves
// 1000 to 1003 make fields. Numberings that put the operators at 1004 and
// up do not match those files and are not followed. Any other code is an
// instruction this program does not know (renderers add plug-in fields, at
// 1004 and up, or 9000): it is read as the code, a count and that many
// operands, and stands for no field.
enum BlobbyCode {
    BLOBBY_ADD = 0,       // count, operands: their sum
    BLOBBY_MULTIPLY = 1,  // count, operands: their product
    BLOBBY_MAXIMUM = 2,   // count, operands
    BLOBBY_MINIMUM = 3,   // count, operands
    BLOBBY_SUBTRACT = 4,  // a, b: a - b
    BLOBBY_DIVIDE = 5,    // a, b: a / b (0 where b is 0)
    BLOBBY_NEGATE = 6,    // a: -a
    BLOBBY_IDENTITY = 7,  // a: a
    BLOBBY_CONSTANT = 1000,
    BLOBBY_ELLIPSOID = 1001,  // float index of a 16-float matrix
    BLOBBY_SEGMENT = 1002,    // float index of two end points, a radius and a matrix (23)
    BLOBBY_REPELLER = 1003    // string index (a depth file), float index
};

// One instruction. Operators: their operands (earlier results) are
// code[first .. first + count). Leaves: the float index in first, and for a
// repelling plane the string index in count. Unknown instructions: first
// and count as for operators (the operands are not results).
struct BlobbyInstruction {
    int code;
    int first;
    int count;
};

bool blobby_is_leaf(int code);
bool blobby_is_operator(int code);

// The value of a leaf's field at distance d (in the leaf's own space: from
// the centre of the unit sphere, or from the segment over its radius):
// (1 - d^2)^3 inside d < 1, 0 outside. It is 1 at the centre and falls to 0
// with zero slope at d = 1; a lone element's surface, where the field is
// 0.5, lies at d = sqrt(1 - 0.5^(1/3)), about 0.454.
inline float blobby_falloff(float d2) {
    if (!(d2 < 1.0f)) return 0.0f;
    const float s = 1.0f - d2;
    return s * s * s;
}

// Samples the field of the program (its last instruction) at every point of
// grid, which gives the grid's placement and size; fills grid->values, and
// the cells where the field is not zero (empty, last before first, when it
// is zero everywhere). False, with the values unset, when the evaluation
// would need more than BLOBBY_WORK_MAX point steps or BLOBBY_FLOATS_MAX
// floats held at once.
constexpr long long BLOBBY_WORK_MAX = 1LL << 30;
constexpr long long BLOBBY_FLOATS_MAX = 1LL << 25;
bool sample_blobby_field(const std::vector<BlobbyInstruction>& program, const int code[],
                         const float flt[], SampledGrid* grid);

#endif  // TRACERY_PREVIEW_BLOBBY_FIELD_H
