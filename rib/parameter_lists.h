// Internals shared by the RIB reader's parameter lists, the checks of a
// primitive's list and the geometry requests: the reader buffers kept for the
// run, and a primitive's untyped list with the check it passes before its call.
#ifndef TRACERY_RIB_PARAMETER_LISTS_H
#define TRACERY_RIB_PARAMETER_LISTS_H

#include "rib/parameters.h"
#include "support/memory.h"

namespace rib_lists {

// A staging buffer that grew beyond this many elements is given back after
// its list, so that one huge mesh does not pin the memory for the run.
constexpr int STAGING_KEEP = 1 << 22;

// A growable reader buffer (data, capacity in elements) kept for the run.
template <typename T>
struct RunBuffer {
    T* data = nullptr;
    int cap = 0;

    // The reader frees the old block when it grows one, so start with a
    // block of our own rather than a null pointer.
    bool prepare() {
        if (data == nullptr) {
            data = static_cast<T*>(myalloc(64 * sizeof(T)));
            cap = data ? 64 : 0;
        }
        return data != nullptr;
    }
    void shrink() {
        if (cap > STAGING_KEEP) {
            myfree(data);
            data = nullptr;
            cap = 0;
        }
    }
};

// a * b, saturating instead of overflowing: sizes come from the file.
long long saturating_product(long long a, long long b);

// A primitive's untyped list with its float counts.
struct PrimitiveList {
    int n = 0;
    int vertices = 4;  // implied by P, Pz or Pw
    RtToken tokens[RIB_PARAM_MAX];
    RtPointer values[RIB_PARAM_MAX];
    int counts[RIB_PARAM_MAX];

    bool read() {
        vertices = RIBparse_read_primvars(&n, tokens, values, counts);
        return vertices >= 0;
    }
};

// Sizes checked against, clamped at zero (sizes of a malformed request can
// come out negative; the primitive reports the request itself).
struct CheckSizes {
    long long nvertex, nvarying, nuniform;
};

// Checks the list against the sizes (vertex, varying and uniform lengths,
// and the positions the primitive reads); false after a report.
bool accept_list(const char* keyword, PrimitiveList& list, CheckSizes sizes,
                 long long positions_read, bool patch_positions);

// The call the geometry hook is handed instead of the primitive: the keyword,
// the sizes checked against (clamped at zero) and the list (n may be 0 with
// null arrays).
RibGeometryCall make_call(const char* keyword, int n, RtToken tokens[], RtPointer values[],
                          int counts[], CheckSizes sizes);

// Hands the call to the geometry hook when one is set (tests, benchmarks),
// else runs the primitive.
template <typename Primitive>
void emit(const RibGeometryCall& call, Primitive&& primitive) {
    if (rib_geometry_hook != nullptr) {
        rib_geometry_hook(call);
    } else {
        primitive();
    }
}

}  // namespace rib_lists

#endif  // TRACERY_RIB_PARAMETER_LISTS_H
