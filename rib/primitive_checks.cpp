// Checks of a primitive's untyped list: each vector's length against the
// primitive's vertex, varying and uniform counts, and the positions the
// primitive itself will read.
#include <algorithm>
#include <climits>
#include <cstring>

#include "rib/parameter_lists.h"
#include "rib/parameters.h"
#include "support/declarations.h"
#include "support/error.h"
#include "support/inline_declarations.h"

using rib_lists::PrimitiveList;

namespace rib_lists {

// a * b, saturating instead of overflowing: sizes come from the file.
long long saturating_product(long long a, long long b) {
    long long product;
    if (__builtin_mul_overflow(a, b, &product)) return (a < 0) != (b < 0) ? LLONG_MIN : LLONG_MAX;
    return product;
}

}  // namespace rib_lists

namespace {

using rib_lists::saturating_product;

long long storage_multiplier(int detail, long long nvertex, long long nvarying,
                             long long nuniform) {
    switch (detail) {
        case CLASS_UNIFORM:
            return nuniform;
        case CLASS_VARYING:
            return nvarying;
        case CLASS_VERTEX:
            return nvertex;
        default:
            return 1;
    }
}

// The check on 64-bit sizes, so that sizes taken from the file cannot
// overflow the expected lengths.
int check_list(int n, RtToken tokens[], const int counts[], long long nvertex, long long nvarying,
               long long nuniform) {
    int rejected = 0;
    for (int i = 0; i < n; i++) {
        const Declaration* decl = parameter_declaration(tokens[i]);
        if (decl == nullptr) {
            QuillError(RIE_SYNTAX, RIE_ERROR, "vertex variable unknown: %s", tokens[i]);
            continue;
        }
        // One value per corner of each face: the primitives do not pass
        // their corner counts here, so these lengths are not checked.
        if (decl->detail == CLASS_FACEVARYING || decl->detail == CLASS_FACEVERTEX) continue;
        const long long expected = saturating_product(
            decl->bytesize() / 4, storage_multiplier(decl->detail, nvertex, nvarying, nuniform));
        if (counts[i] < expected) {
            QuillError(RIE_SYNTAX, RIE_ERROR,
                       "vertex length mismatch: %s (found %d, expected %lld)", tokens[i], counts[i],
                       expected);
            rejected = 1;
        } else if (counts[i] > expected) {
            QuillError(RIE_SYNTAX, RIE_WARNING,
                       "vertex length mismatch: %s (found %d, expected %lld)", tokens[i], counts[i],
                       expected);
        }
    }
    return rejected;
}

// The previewer reads as many positions as the primitive's own counts say,
// whatever the declarations say: a redeclared "P", or loop sizes of a
// GeneralPolygon past the end of its "P", must not let it read past the
// vector. Polygons read "P" only; patches "P", "Pw" or "Pz".
bool positions_cover(const char* keyword, const PrimitiveList& list, long long vertices,
                     bool patch_positions) {
    for (int i = 0; i < list.n; i++) {
        const char* name = list.tokens[i];
        int width = 0;
        if (std::strcmp(name, "P") == 0) {
            width = 3;
        } else if (patch_positions && std::strcmp(name, "Pw") == 0) {
            width = 4;
        } else if (patch_positions && std::strcmp(name, "Pz") == 0) {
            width = 1;
        }
        if (width > 0 && list.counts[i] < saturating_product(vertices, width)) {
            QuillError(RIE_SYNTAX, RIE_ERROR, "Too few values in \"%s\" for %s", name, keyword);
            return false;
        }
    }
    return true;
}

}  // namespace

namespace rib_lists {

bool accept_list(const char* keyword, PrimitiveList& list, CheckSizes sizes,
                 long long positions_read, bool patch_positions) {
    sizes.nvertex = std::max(sizes.nvertex, 0LL);
    sizes.nvarying = std::max(sizes.nvarying, 0LL);
    sizes.nuniform = std::max(sizes.nuniform, 0LL);
    if (check_list(list.n, list.tokens, list.counts, sizes.nvertex, sizes.nvarying,
                   sizes.nuniform) != 0) {
        return false;
    }
    return positions_cover(keyword, list, positions_read, patch_positions);
}

}  // namespace rib_lists

int RIBparse_check_primvars(int n, RtToken tokens[], RtPointer /*values*/[], int counts[],
                            int nvertex, int nvarying, int nuniform) {
    return check_list(n, tokens, counts, nvertex, nvarying, nuniform);
}
