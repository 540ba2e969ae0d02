// Deferred derived matrices of transformation records: the inverse, normal
// and transpose matrices of the first motion time are brought up to date
// when something reads them, not at every transformation request.
#ifndef TRACERY_MATH_DERIVED_MATRICES_H
#define TRACERY_MATH_DERIVED_MATRICES_H

#include "math/transformation.h"

// Records that m was concatenated onto t's matrix0; t's inverse0, normal0 and
// transpose0 are to take m's inverse, the transpose of that inverse and m's
// transpose in turn, exactly as if done now. With first set, t's matrix0 was
// made from m and the three are set to them instead (they must already be
// allocated). Only the latest record changed has deferred matrices; queuing
// for another record settles that one first.
void defer_derived_matrices(Transformation* t, const float m[4][4], bool first);
// Brings t's derived matrices up to date (all deferred ones when t is null).
// Everything that reads inverse0, normal0 or transpose0 of a record, or
// copies it, must call this first.
void settle_derived_matrices(const Transformation* t);
// Drops what was deferred for t, which is about to be freed.
void forget_derived_matrices(const Transformation* t);

#endif  // TRACERY_MATH_DERIVED_MATRICES_H
