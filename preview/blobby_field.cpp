// Sampling a blobby's field on a grid. Every field here is zero outside a
// box of grid points: a leaf outside the region its element reaches (the
// unit sphere, or the capsule around the segment, through its matrix), and
// each operator outside the union of its operands' boxes (their
// intersection for a product, the dividend's box for a quotient), since
// every operator gives 0 when its operands are 0. So each field is kept as
// the values inside its box only, and a sum of thousands of small elements
// costs the points their boxes hold, not thousands of whole grids.
//
// The instructions are evaluated in order. A leaf is evaluated when an
// operator uses it and dropped at once; an operator's result is kept until
// its last use. Work (points stepped over) and memory (floats held) are
// counted against BLOBBY_WORK_MAX and BLOBBY_FLOATS_MAX.
#include "preview/blobby_field.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

#include "math/matrix.h"

bool blobby_is_leaf(int code) {
    return code >= BLOBBY_CONSTANT && code <= BLOBBY_REPELLER;
}

bool blobby_is_operator(int code) {
    return code >= BLOBBY_ADD && code <= BLOBBY_IDENTITY;
}

namespace {

// Grid points lo[a] .. hi[a] on each axis a, inclusive.
struct Box {
    int lo[3] = {0, 0, 0};
    int hi[3] = {-1, -1, -1};

    bool empty() const { return hi[0] < lo[0] || hi[1] < lo[1] || hi[2] < lo[2]; }
    long long points() const {
        if (empty()) return 0;
        return (hi[0] - lo[0] + 1LL) * (hi[1] - lo[1] + 1LL) * (hi[2] - lo[2] + 1LL);
    }
    bool holds(int i, int j, int k) const {
        return i >= lo[0] && i <= hi[0] && j >= lo[1] && j <= hi[1] && k >= lo[2] && k <= hi[2];
    }
};

Box box_union(const Box& a, const Box& b) {
    if (a.empty()) return b;
    if (b.empty()) return a;
    Box u;
    for (int k = 0; k < 3; ++k) {
        u.lo[k] = std::min(a.lo[k], b.lo[k]);
        u.hi[k] = std::max(a.hi[k], b.hi[k]);
    }
    return u;
}

Box box_intersection(const Box& a, const Box& b) {
    Box u;
    for (int k = 0; k < 3; ++k) {
        u.lo[k] = std::max(a.lo[k], b.lo[k]);
        u.hi[k] = std::min(a.hi[k], b.hi[k]);
    }
    return u;
}

// Values at the points of a box, x fastest; 0 outside it.
struct Field {
    Box box;
    std::vector<float> values;

    long index(int i, int j, int k) const {
        return (i - box.lo[0]) +
               (box.hi[0] - box.lo[0] + 1L) *
                   ((j - box.lo[1]) + (box.hi[1] - box.lo[1] + 1L) * (k - box.lo[2]));
    }
    float at(int i, int j, int k) const {
        return box.holds(i, j, k) ? values[size_t(index(i, j, k))] : 0.0f;
    }
};

// Calls visit(i, j, k, position) for each point of box, position the
// point's place in object space.
template <typename Visit>
void for_each_point(const Box& box, const SampledGrid& grid, Visit visit) {
    long n = 0;
    for (int k = box.lo[2]; k <= box.hi[2]; ++k) {
        for (int j = box.lo[1]; j <= box.hi[1]; ++j) {
            for (int i = box.lo[0]; i <= box.hi[0]; ++i, ++n) {
                const float p[3] = {grid.origin[0] + grid.cell * float(i),
                                    grid.origin[1] + grid.cell * float(j),
                                    grid.origin[2] + grid.cell * float(k)};
                visit(n, i, j, k, p);
            }
        }
    }
}

// A leaf's element in its own space: the matrix taking it to object space
// and the inverse taking points back.
struct LeafSpace {
    float matrix[4][4];
    float inverse[4][4];
    bool usable;
};

LeafSpace leaf_space(const float* m) {
    LeafSpace s;
    for (int r = 0; r < 4; ++r) {
        for (int c = 0; c < 4; ++c) s.matrix[r][c] = m[4 * r + c];
    }
    const float determinant = matrix_invert(s.inverse, s.matrix);
    s.usable = determinant != 0.0f && std::isfinite(determinant);
    for (const auto& row : s.inverse) {
        for (float v : row) s.usable = s.usable && std::isfinite(v);
    }
    return s;
}

// The point p of object space in the leaf's own space.
void to_leaf_space(const LeafSpace& s, const float p[3], float q[3]) {
    float w = s.inverse[3][3];
    for (int c = 0; c < 3; ++c) q[c] = s.inverse[3][c];
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) q[c] += p[r] * s.inverse[r][c];
        w += p[r] * s.inverse[r][3];
    }
    if (w != 1.0f && w != 0.0f) {
        for (int c = 0; c < 3; ++c) q[c] /= w;
    }
}

class Evaluator {
  public:
    Evaluator(const std::vector<BlobbyInstruction>& program, const int code[], const float flt[],
              const SampledGrid& grid)
        : program_(program), code_(code), flt_(flt), grid_(grid) {
        for (int k = 0; k < 3; ++k) full_.hi[k] = grid.cells[k];
    }

    // The field of the last instruction, or null past the bounds.
    std::unique_ptr<Field> run() {
        const int root = int(program_.size()) - 1;
        if (root < 0) return std::make_unique<Field>();
        count_uses();
        results_.resize(program_.size());
        for (int i = 0; i < root && !over_; ++i) {
            if (blobby_is_operator(program_[size_t(i)].code) && uses_[size_t(i)] > 0) {
                results_[size_t(i)] = combine(i);
            }
        }
        if (over_) return nullptr;
        std::unique_ptr<Field> field =
            blobby_is_operator(program_[size_t(root)].code) ? combine(root) : leaf(root);
        return over_ ? nullptr : std::move(field);
    }

  private:
    const std::vector<BlobbyInstruction>& program_;
    const int* code_;
    const float* flt_;
    const SampledGrid& grid_;
    Box full_;
    std::vector<int> uses_;
    std::vector<std::unique_ptr<Field>> results_;
    long long work_ = 0;
    long long floats_held_ = 0;
    bool over_ = false;

    void count_uses() {
        uses_.assign(program_.size(), 0);
        for (const BlobbyInstruction& ins : program_) {
            if (!blobby_is_operator(ins.code)) continue;
            for (int k = 0; k < ins.count; ++k) uses_[size_t(code_[ins.first + k])]++;
        }
    }

    // Counts work and memory; false once a bound is passed.
    bool afford(long long steps, long long floats) {
        work_ += steps;
        if (work_ > BLOBBY_WORK_MAX || floats_held_ + floats > BLOBBY_FLOATS_MAX) over_ = true;
        return !over_;
    }

    // A field over box filled with fill; over the bounds, an empty one.
    std::unique_ptr<Field> make_field(const Box& box, float fill) {
        auto field = std::make_unique<Field>();
        if (!afford(box.points(), box.points())) return field;
        field->box = box;
        field->values.assign(size_t(box.points()), fill);
        return field;
    }

    // The grid points whose place lies in the object-space box lo..hi.
    Box points_in(const float lo[3], const float hi[3]) const {
        Box box;
        for (int k = 0; k < 3; ++k) {
            const float last = float(grid_.cells[k]);
            const float a = std::ceil((lo[k] - grid_.origin[k]) / grid_.cell);
            const float b = std::floor((hi[k] - grid_.origin[k]) / grid_.cell);
            if (!(a <= b)) return Box();
            box.lo[k] = int(std::clamp(a, 0.0f, last + 1.0f));
            box.hi[k] = int(std::clamp(b, -1.0f, last));
        }
        return box;
    }

    // The grid points inside the box lo..hi of the leaf's own space, carried
    // to object space by its matrix.
    Box points_of_leaf(const LeafSpace& s, const float lo[3], const float hi[3]) const {
        float olo[3], ohi[3];
        for (int k = 0; k < 3; ++k) {
            olo[k] = std::numeric_limits<float>::infinity();
            ohi[k] = -olo[k];
        }
        for (int corner = 0; corner < 8; ++corner) {
            const float p[4] = {(corner & 1) ? hi[0] : lo[0], (corner & 2) ? hi[1] : lo[1],
                                (corner & 4) ? hi[2] : lo[2], 1.0f};
            float q[4];
            for (int c = 0; c < 4; ++c) {
                q[c] = p[0] * s.matrix[0][c] + p[1] * s.matrix[1][c] + p[2] * s.matrix[2][c] +
                       s.matrix[3][c];
            }
            if (!(q[3] > 0.0f)) return full_;  // a projective matrix: every point may count
            for (int k = 0; k < 3; ++k) {
                olo[k] = std::min(olo[k], q[k] / q[3]);
                ohi[k] = std::max(ohi[k], q[k] / q[3]);
            }
        }
        return points_in(olo, ohi);
    }

    Box ellipsoid_box(const LeafSpace& s) const {
        const float lo[3] = {-1, -1, -1}, hi[3] = {1, 1, 1};
        return points_of_leaf(s, lo, hi);
    }

    Box segment_box(const LeafSpace& s, const float* f) const {
        const float r = std::fabs(f[6]);
        float lo[3], hi[3];
        for (int k = 0; k < 3; ++k) {
            lo[k] = std::min(f[k], f[3 + k]) - r;
            hi[k] = std::max(f[k], f[3 + k]) + r;
        }
        return points_of_leaf(s, lo, hi);
    }

    // The box a result's field is zero outside.
    Box box_of(int i) {
        const BlobbyInstruction& ins = program_[size_t(i)];
        if (blobby_is_operator(ins.code)) return results_[size_t(i)]->box;
        switch (ins.code) {
            case BLOBBY_CONSTANT:
                return full_;
            case BLOBBY_ELLIPSOID: {
                const LeafSpace s = leaf_space(flt_ + ins.first);
                return s.usable ? ellipsoid_box(s) : Box();
            }
            case BLOBBY_SEGMENT: {
                const LeafSpace s = leaf_space(flt_ + ins.first + 7);
                return s.usable ? segment_box(s, flt_ + ins.first) : Box();
            }
            default:
                return Box();  // repelling planes and unknown instructions
        }
    }

    std::unique_ptr<Field> leaf(int i) {
        const BlobbyInstruction& ins = program_[size_t(i)];
        std::unique_ptr<Field> field = make_field(box_of(i), 0.0f);
        if (over_ || field->box.empty()) return field;
        const float* f = flt_ + ins.first;
        std::vector<float>& v = field->values;
        if (ins.code == BLOBBY_CONSTANT) {
            std::fill(v.begin(), v.end(), f[0]);
        } else if (ins.code == BLOBBY_ELLIPSOID) {
            const LeafSpace s = leaf_space(f);
            for_each_point(field->box, grid_, [&](long n, int, int, int, const float* p) {
                float q[3];
                to_leaf_space(s, p, q);
                v[size_t(n)] = blobby_falloff(q[0] * q[0] + q[1] * q[1] + q[2] * q[2]);
            });
        } else if (ins.code == BLOBBY_SEGMENT) {
            segment_values(f, field.get());
        }
        return field;
    }

    // Distance to the segment from f[0..2] to f[3..5], over the radius f[6].
    void segment_values(const float* f, Field* field) {
        const LeafSpace s = leaf_space(f + 7);
        const float r2 = f[6] * f[6];
        const float d[3] = {f[3] - f[0], f[4] - f[1], f[5] - f[2]};
        const float dd = d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
        std::vector<float>& v = field->values;
        for_each_point(field->box, grid_, [&](long n, int, int, int, const float* p) {
            float q[3];
            to_leaf_space(s, p, q);
            const float w[3] = {q[0] - f[0], q[1] - f[1], q[2] - f[2]};
            float t = dd > 0.0f ? (w[0] * d[0] + w[1] * d[1] + w[2] * d[2]) / dd : 0.0f;
            t = std::clamp(t, 0.0f, 1.0f);
            float dist2 = 0.0f;
            for (int k = 0; k < 3; ++k) dist2 += (w[k] - t * d[k]) * (w[k] - t * d[k]);
            v[size_t(n)] = r2 > 0.0f ? blobby_falloff(dist2 / r2) : 0.0f;
        });
    }

    // Operand k of an operator: its kept result, or the leaf evaluated into
    // scratch.
    const Field& operand(const BlobbyInstruction& ins, int k, std::unique_ptr<Field>* scratch) {
        const int o = code_[ins.first + k];
        if (blobby_is_operator(program_[size_t(o)].code)) return *results_[size_t(o)];
        *scratch = leaf(o);
        floats_held_ += (*scratch)->box.points();
        return **scratch;
    }

    void release(std::unique_ptr<Field>* scratch) {
        if (*scratch) floats_held_ -= (*scratch)->box.points();
        scratch->reset();
    }

    // Drops the results this operator was the last to use.
    void used(const BlobbyInstruction& ins) {
        for (int k = 0; k < ins.count; ++k) {
            const int o = code_[ins.first + k];
            if (!blobby_is_operator(program_[size_t(o)].code) || --uses_[size_t(o)] > 0) continue;
            floats_held_ -= results_[size_t(o)]->box.points();
            results_[size_t(o)].reset();
        }
    }

    Box result_box(const BlobbyInstruction& ins) {
        Box box = box_of(code_[ins.first]);
        for (int k = 1; k < ins.count; ++k) {
            const Box b = box_of(code_[ins.first + k]);
            box = ins.code == BLOBBY_MULTIPLY ? box_intersection(box, b) : box_union(box, b);
        }
        if (ins.code == BLOBBY_DIVIDE) box = box_of(code_[ins.first]);
        return box;
    }

    std::unique_ptr<Field> combine(int i) {
        const BlobbyInstruction& ins = program_[size_t(i)];
        const float start = ins.code == BLOBBY_MULTIPLY ? 1.0f : 0.0f;
        std::unique_ptr<Field> result = make_field(result_box(ins), start);
        floats_held_ += result->box.points();
        if (over_) return result;
        if (ins.code == BLOBBY_MAXIMUM || ins.code == BLOBBY_MINIMUM) {
            extreme(ins, result.get());
        } else {
            for (int k = 0; k < ins.count && !over_; ++k) {
                std::unique_ptr<Field> scratch;
                const Field& a = operand(ins, k, &scratch);
                apply(ins.code, k, a, result.get());
                release(&scratch);
            }
        }
        used(ins);
        return result;
    }

    // Folds operand number k into result, over the points both hold (for a
    // product, a quotient, a negation and an identity, every point of the
    // result; for a sum or difference, the operand's box).
    void apply(int code, int k, const Field& a, Field* result) {
        const bool whole = code == BLOBBY_MULTIPLY || code == BLOBBY_DIVIDE ||
                           code == BLOBBY_NEGATE || code == BLOBBY_IDENTITY;
        const Box box = whole ? result->box : box_intersection(a.box, result->box);
        if (!afford(box.points(), 0)) return;
        std::vector<float>& r = result->values;
        for_each_point(box, grid_, [&](long, int x, int y, int z, const float*) {
            float& out = r[size_t(result->index(x, y, z))];
            const float value = a.at(x, y, z);
            switch (code) {
                case BLOBBY_ADD:
                    out += value;
                    break;
                case BLOBBY_MULTIPLY:
                    out *= value;
                    break;
                case BLOBBY_SUBTRACT:
                    out += k == 0 ? value : -value;
                    break;
                case BLOBBY_DIVIDE:
                    out = k == 0 ? value : (value != 0.0f ? out / value : 0.0f);
                    break;
                case BLOBBY_NEGATE:
                    out = -value;
                    break;
                default:
                    out = value;
                    break;
            }
        });
    }

    // Maximum or minimum: each operand over its own box, then 0 (the value
    // of the operands outside their boxes) wherever some operand's box does
    // not reach.
    void extreme(const BlobbyInstruction& ins, Field* result) {
        const bool maximum = ins.code == BLOBBY_MAXIMUM;
        std::vector<int> covered(result->values.size(), 0);
        if (!afford(0, static_cast<long long>(covered.size()))) return;
        for (int k = 0; k < ins.count && !over_; ++k) {
            std::unique_ptr<Field> scratch;
            const Field& a = operand(ins, k, &scratch);
            if (afford(a.box.points(), 0)) {
                for_each_point(a.box, grid_, [&](long n, int x, int y, int z, const float*) {
                    const size_t at = size_t(result->index(x, y, z));
                    const float value = a.values[size_t(n)];
                    float& out = result->values[at];
                    out = covered[at]++ == 0
                              ? value
                              : (maximum ? std::max(out, value) : std::min(out, value));
                });
            }
            release(&scratch);
        }
        for (size_t at = 0; at < covered.size(); ++at) {
            if (covered[at] == ins.count) continue;
            float& out = result->values[at];
            out = covered[at] == 0 ? 0.0f : (maximum ? std::max(out, 0.0f) : std::min(out, 0.0f));
        }
    }
};

}  // namespace

bool sample_blobby_field(const std::vector<BlobbyInstruction>& program, const int code[],
                         const float flt[], SampledGrid* grid) {
    std::unique_ptr<Field> field = Evaluator(program, code, flt, *grid).run();
    if (!field) return false;
    const long long points =
        (grid->cells[0] + 1LL) * (grid->cells[1] + 1LL) * (grid->cells[2] + 1LL);
    grid->values.assign(size_t(points), 0.0f);
    for (int k = 0; k < 3; ++k) {
        grid->first_cell[k] = std::max(field->box.lo[k] - 1, 0);
        grid->last_cell[k] = std::min(field->box.hi[k], grid->cells[k] - 1);
    }
    if (field->box.empty()) {
        for (int k = 0; k < 3; ++k) grid->last_cell[k] = grid->first_cell[k] - 1;
        return true;
    }
    for_each_point(field->box, *grid, [&](long n, int i, int j, int k, const float*) {
        grid->values[size_t(grid->index(i, j, k))] = field->values[size_t(n)];
    });
    return true;
}
