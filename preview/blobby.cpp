// Blobby: the implicit surface of field elements combined by operators. A
// wireframe cannot afford to polygonize the field, so a blobby is checked and
// drawn as one box: the bound of its ellipsoids and segment blobs, the
// region where their fields are not zero (repelling planes and constants add
// nothing to it). The box is drawn only, never dumped, like the bound of a
// procedural, since it is not the surface.
#include "preview/blobby.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstring>

#include "preview/bound_box.h"
#include "ri/ri.h"
#include "ri/transforms.h"
#include "support/error.h"

namespace {

// Instruction codes of a blobby program.
enum BlobbyOp {
    OP_ADD = 0,
    OP_MULTIPLY = 1,
    OP_MAXIMUM = 2,
    OP_MINIMUM = 3,
    OP_SUBTRACT = 4,
    OP_DIVIDE = 5,
    OP_NEGATE = 6,
    OP_IDENTITY = 7,
    LEAF_CONSTANT = 1000,
    LEAF_ELLIPSOID = 1001,
    LEAF_SEGMENT = 1002,
    LEAF_REPELLER = 1003
};

// Floats a leaf reads at its float index.
int leaf_floats(int op) {
    switch (op) {
        case LEAF_CONSTANT:
            return 1;
        case LEAF_ELLIPSOID:
            return 16;
        case LEAF_SEGMENT:
            return 23;
        default:
            // The repelling plane's parameters start there; how many it
            // reads varies between renderers, so only the first is checked.
            return 1;
    }
}

bool is_leaf(int op) {
    return op >= LEAF_CONSTANT && op <= LEAF_REPELLER;
}

// Fixed operand count of an operator; 0 for those that give their count.
int fixed_operands(int op) {
    if (op == OP_SUBTRACT || op == OP_DIVIDE) return 2;
    if (op == OP_NEGATE || op == OP_IDENTITY) return 1;
    return 0;
}

bool index_fits(long long index, long long count, long long width) {
    return index >= 0 && index + width <= count;
}

// Checks one leaf at pc; returns the next pc, or -1 with *why set.
long long check_leaf(const int code[], long long pc, int ncode, int nflt, int nstr,
                     const char** why) {
    const int op = code[pc];
    const long long operands = op == LEAF_REPELLER ? 2 : 1;
    if (pc + operands >= ncode) {
        *why = "an instruction runs past the end of the code";
        return -1;
    }
    const long long float_index = code[pc + operands];
    if (op == LEAF_REPELLER && !index_fits(code[pc + 1], nstr, 1)) {
        *why = "a string index is past the strings";
        return -1;
    }
    if (!index_fits(float_index, nflt, leaf_floats(op))) {
        *why = "a float index is past the floats";
        return -1;
    }
    return pc + operands + 1;
}

// Checks one operator at pc whose operands must name one of the results
// made so far; returns the next pc, or -1 with *why set.
long long check_operator(const int code[], long long pc, int ncode, long long results,
                         const char** why) {
    long long count = fixed_operands(code[pc]);
    long long first = pc + 1;
    if (count == 0) {
        if (pc + 1 >= ncode || code[pc + 1] < 1) {
            *why = "an operator has no operand count";
            return -1;
        }
        count = code[pc + 1];
        first = pc + 2;
    }
    if (first + count > ncode) {
        *why = "an instruction runs past the end of the code";
        return -1;
    }
    for (long long k = first; k < first + count; k++) {
        if (code[k] < 0 || code[k] >= results) {
            *why = "an operand names no earlier result";
            return -1;
        }
    }
    return first + count;
}

void grow_bound(float bound[6], const float p[3]) {
    for (int k = 0; k < 3; k++) {
        bound[2 * k] = std::min(bound[2 * k], p[k]);
        bound[2 * k + 1] = std::max(bound[2 * k + 1], p[k]);
    }
}

// p times the row-vector matrix m (translation in row 3).
void transform_row(const float p[3], const float* m, float out[3]) {
    for (int c = 0; c < 3; c++)
        out[c] = p[0] * m[c] + p[1] * m[4 + c] + p[2] * m[8 + c] + m[12 + c];
}

// The unit sphere through the matrix: half-extent along each axis is the
// length of that column of the upper 3 x 3 part.
void ellipsoid_bound(const float* m, float bound[6]) {
    for (int c = 0; c < 3; c++) {
        const float half = std::sqrt(m[c] * m[c] + m[4 + c] * m[4 + c] + m[8 + c] * m[8 + c]);
        const float low[3] = {c == 0 ? m[12] - half : m[12], c == 1 ? m[13] - half : m[13],
                              c == 2 ? m[14] - half : m[14]};
        const float high[3] = {c == 0 ? m[12] + half : m[12], c == 1 ? m[13] + half : m[13],
                               c == 2 ? m[14] + half : m[14]};
        grow_bound(bound, low);
        grow_bound(bound, high);
    }
}

// A segment blob: endpoints, radius, then its matrix; the corners of the
// box around the capsule go through the matrix.
void segment_bound(const float* f, float bound[6]) {
    const float r = std::fabs(f[6]);
    for (int corner = 0; corner < 8; corner++) {
        float p[3];
        for (int k = 0; k < 3; k++) {
            const float lo = std::min(f[k], f[3 + k]) - r;
            const float hi = std::max(f[k], f[3 + k]) + r;
            p[k] = (corner >> k) & 1 ? hi : lo;
        }
        float out[3];
        transform_row(p, f + 7, out);
        grow_bound(bound, out);
    }
}

}  // namespace

const char* blobby_problem(int nleaf, int ncode, const int code[], int nflt, int nstr) {
    const char* why = nullptr;
    long long results = 0;
    long long leaves = 0;
    for (long long pc = 0; pc < ncode;) {
        const int op = code[pc];
        if (is_leaf(op)) {
            pc = check_leaf(code, pc, ncode, nflt, nstr, &why);
            leaves++;
        } else if (op >= OP_ADD && op <= OP_IDENTITY) {
            pc = check_operator(code, pc, ncode, results, &why);
        } else {
            return "an instruction code is unknown";
        }
        if (pc < 0) return why;
        results++;
    }
    if (leaves != nleaf) return "the number of leaves is not nleaf";
    return nullptr;
}

bool blobby_bound(int ncode, const int code[], const float flt[], float bound[6]) {
    for (int k = 0; k < 3; k++) {
        bound[2 * k] = INFINITY;
        bound[2 * k + 1] = -INFINITY;
    }
    bool any = false;
    for (long long pc = 0; pc < ncode;) {
        const int op = code[pc];
        if (op == LEAF_ELLIPSOID) ellipsoid_bound(flt + code[pc + 1], bound);
        if (op == LEAF_SEGMENT) segment_bound(flt + code[pc + 1], bound);
        any = any || op == LEAF_ELLIPSOID || op == LEAF_SEGMENT;
        if (is_leaf(op)) {
            pc += op == LEAF_REPELLER ? 3 : 2;
        } else {
            pc += fixed_operands(op) != 0 ? fixed_operands(op) + 1 : code[pc + 1] + 2;
        }
    }
    return any && std::isfinite(bound[0] + bound[1] + bound[2] + bound[3] + bound[4] + bound[5]);
}

RtVoid RiBlobbyV(RtInt nleaf, RtInt ncode, RtInt code[], RtInt nflt, RtFloat flt[], RtInt nstr,
                 RtToken[], RtInt, RtToken[], RtPointer[]) {
    if (motion_guard()) return;
    if (ncode < 0 || nflt < 0 || nstr < 0) {
        QuillError(RIE_CONSISTENCY, RIE_ERROR, "Blobby: negative counts");
        return;
    }
    if (const char* problem = blobby_problem(nleaf, ncode, code, nflt, nstr)) {
        QuillError(RIE_CONSISTENCY, RIE_ERROR, "Blobby: %s", problem);
        return;
    }
    float bound[6];
    if (blobby_bound(ncode, code, flt, bound)) draw_bound_box(bound);
}

RtVoid RiBlobby(RtInt nleaf, RtInt ncode, RtInt code[], RtInt nflt, RtFloat flt[], RtInt nstr,
                RtToken str[], ...) {
    va_list ap;
    va_start(ap, str);
    int n = _v_to_array(ap);
    va_end(ap);
    RiBlobbyV(nleaf, ncode, code, nflt, flt, nstr, str, n, _V_names, _V_params);
}
