// Deferred derived matrices. A transformation request concatenates its
// matrix M onto the current record's matrix and M's inverse, normal and
// transpose onto the record's derived matrices. Most records are read only
// through their matrix (points are moved, not normals) and many live only
// for one attribute block, so the derived updates wait in a queue of the
// matrices given, for the one record changed last, and are replayed in
// order when the record is read, copied, or another record is changed. The
// replay performs the very operations the immediate update would have, in
// the same order, so the matrices come out the same to the bit.
#include "math/derived_matrices.h"

#include <cstring>

#include "math/matrix.h"

namespace {

constexpr int QUEUE_MAX = 16;

struct Deferred {
    float m[4][4];
    bool first;
};

Transformation* owner = nullptr;
Deferred queue[QUEUE_MAX];
int queued = 0;

void concat_if_present(MatrixPtr m, const float t[4][4], int premultiply) {
    if (m) concat_matrix(m, t, premultiply);
}

void apply(Transformation* t, const Deferred& d) {
    float transpose[4][4], inverse[4][4], normal[4][4];
    matrix_transpose(transpose, d.m);
    matrix_invert(inverse, d.m);
    matrix_transpose(normal, inverse);
    if (d.first) {
        if (t->inverse0) std::memcpy(t->inverse0, inverse, sizeof inverse);
        if (t->normal0) std::memcpy(t->normal0, normal, sizeof normal);
        if (t->transpose0) std::memcpy(t->transpose0, transpose, sizeof transpose);
        return;
    }
    concat_if_present(t->inverse0, inverse, 0);
    concat_if_present(t->normal0, normal, 1);
    concat_if_present(t->transpose0, transpose, 0);
}

void replay() {
    for (int i = 0; i < queued; i++) apply(owner, queue[i]);
    queued = 0;
    owner = nullptr;
}

}  // namespace

void defer_derived_matrices(Transformation* t, const float m[4][4], bool first) {
    if (owner != t || queued == QUEUE_MAX) replay();
    owner = t;
    std::memcpy(queue[queued].m, m, sizeof queue[queued].m);
    queue[queued].first = first;
    queued++;
}

void settle_derived_matrices(const Transformation* t) {
    if (queued > 0 && (t == nullptr || t == owner)) replay();
}

void forget_derived_matrices(const Transformation* t) {
    if (t != nullptr && t == owner) {
        queued = 0;
        owner = nullptr;
    }
}
