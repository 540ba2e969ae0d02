// Blobby: the check and decoding of its program, the bound of its field
// elements, and the drawing of its surface.
#ifndef TRACERY_PREVIEW_BLOBBY_H
#define TRACERY_PREVIEW_BLOBBY_H

#include <vector>

#include "preview/blobby_field.h"

// The level of the field that is the surface.
constexpr float BLOBBY_LEVEL = 0.5f;
// Where a lone element's surface lies, in units of its size: the field
// (1 - d^2)^3 is 0.5 at d = sqrt(1 - 0.5^(1/3)).
constexpr float BLOBBY_SURFACE_RADIUS = 0.4542f;
// Grid cells along the longest side of the bound per unit of relative
// detail (32 at the default detail), at most BLOBBY_CELLS_MAX; more when the
// thinnest element needs them to be seen.
constexpr float BLOBBY_CELLS_PER_DETAIL = 32.0f;
constexpr int BLOBBY_CELLS_MAX = 128;

// Decodes the program into one instruction per result. Null when it fits:
// every operand inside the code, float and string indices inside flt and
// str, each operator's operands naming earlier results, and exactly nleaf
// leaf instructions. Otherwise the reason, for a report.
const char* decode_blobby(int nleaf, int ncode, const int code[], int nflt, int nstr,
                          std::vector<BlobbyInstruction>* program);

// The bound (xmin, xmax, ymin, ymax, zmin, zmax) in object space of the
// ellipsoids and segments of a decoded program; false when it has none.
bool blobby_bound(const std::vector<BlobbyInstruction>& program, const float flt[], float bound[6]);

// Forgets which unknown instruction codes were reported (a fresh run).
void forget_reported_blobby_codes();

#endif  // TRACERY_PREVIEW_BLOBBY_H
