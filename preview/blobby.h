// Blobby: the check of its code, floats and strings, and the bound of its
// field elements.
#ifndef TRACERY_PREVIEW_BLOBBY_H
#define TRACERY_PREVIEW_BLOBBY_H

// Null when the program fits: every instruction known, its operands inside
// the code, its float and string indices inside flt and str, each operator's
// operands naming earlier results, and exactly nleaf leaf instructions.
// Otherwise the reason, for a report.
const char* blobby_problem(int nleaf, int ncode, const int code[], int nflt, int nstr);

// The bound (xmin, xmax, ymin, ymax, zmin, zmax) in object space of the
// ellipsoids and segments of a program that fits; false when it has none.
bool blobby_bound(int ncode, const int code[], const float flt[], float bound[6]);

#endif  // TRACERY_PREVIEW_BLOBBY_H
