// The current transformation of the interface: the procedures that change it,
// its 128-level stack, the named coordinate systems and two-sample motion
// blocks. Every change is a matrix M in xform_scratch concatenated onto the
// current record by apply_xform; shared records are copied first.
#include "ri/transforms.h"

#include <climits>
#include <cmath>
#include <cstring>

#include "math/derived_matrices.h"
#include "math/matrix.h"
#include "math/vector.h"
#include "ri/renderer.h"
#include "support/declarations.h"
#include "support/error.h"
#include "support/memory.h"

Transformation* curxform = nullptr;
int motion_level = 0;
int n_motion_levels = 0;
NamedTransformationList named_transformation_list;

namespace {

constexpr double DEG_TO_RAD = 0.017453292519943295;
constexpr double PI = 3.14159265358979323846;
constexpr double AXIS_EPSILON = 1e-12;
// The most motion times RiMotionBegin takes from its argument list.
constexpr int MOTION_TIMES_MAX = 128;

Transformation* xform_stack[XFORM_STACK_MAX];
int xform_depth = 0;
// Set by RiTranslate for finite offsets: the matrix to concatenate is a
// translation, whose determinant as the inversion computes it is positive
// (with |t| <= 1 every pivot is 1; otherwise the first pivot is the largest
// offset t after one row exchange and the last is -1/t, so the product is
// t * (1/t) > 0), so the handedness bit cannot change and the determinant
// need not be computed.
bool scratch_is_translation = false;
// Set by RiRotate and RiScale when the sign of the determinant is known
// without computing it: +1 for a rotation about a normalised axis by a
// finite angle (a proper rotation, whose determinant is 1 up to rounding),
// and for a scale with factors of moderate size the sign of their product
// (-1 flips the handedness). 0: not known, computed.
int scratch_known_sign = 0;
// Levels opened on a full stack. The overflow is severe, so this count only
// grows when the installed handler lets the program go on. Such a level saves
// nothing: RiTransformEnd closes it first and keeps the current
// transformation, so changes made inside it stay in force.
int xform_overflow = 0;

// M, its transpose, its inverse and the transpose of its inverse.
float xform_scratch[4][4];
float xform_scratch_transpose[4][4];
float xform_scratch_inverse[4][4];
float xform_scratch_normal[4][4];
// The arguments of translate, rotate and scale.
float xform_vector[3];

void mark_shared(Transformation* t) {
    if (t) t->flags |= XFORM_SHARED;
}

// The record to change: made when there is none, copied when shared. Null
// only when the record pool is exhausted (already reported).
Transformation* writable_curxform() {
    if (!curxform) {
        curxform = alloc_TRANSFORMATION(nullptr);
    } else if (curxform->flags & XFORM_SHARED) {
        Transformation* copy = alloc_TRANSFORMATION(curxform);
        if (!copy) return nullptr;
        curxform = copy;
    }
    return curxform;
}

void concat_if_present(MatrixPtr m, const float t[4][4], int premultiply) {
    if (m) concat_matrix(m, t, premultiply);
}

void concat_first_time(Transformation* t) {
    if (!t->matrix0) {
        t->matrix0 = alloc_RtMatrix(xform_scratch);
        t->inverse0 = alloc_RtMatrix(xform_scratch_inverse);
        t->normal0 = alloc_RtMatrix(xform_scratch_normal);
        t->transpose0 = alloc_RtMatrix(xform_scratch_transpose);
        return;
    }
    concat_if_present(t->matrix0, xform_scratch, 1);
    concat_if_present(t->inverse0, xform_scratch_inverse, 0);
    concat_if_present(t->normal0, xform_scratch_normal, 1);
    concat_if_present(t->transpose0, xform_scratch_transpose, 0);
}

// The first-time set of a record that is not moving, outside motion blocks:
// the matrix itself now, its derived matrices when they are read.
void concat_first_time_deferred(Transformation* t) {
    if (!t->matrix0) {
        t->matrix0 = alloc_RtMatrix(xform_scratch);
        t->inverse0 = alloc_RtMatrix(nullptr);
        t->normal0 = alloc_RtMatrix(nullptr);
        t->transpose0 = alloc_RtMatrix(nullptr);
        defer_derived_matrices(t, xform_scratch, true);
        return;
    }
    concat_if_present(t->matrix0, xform_scratch, 1);
    defer_derived_matrices(t, xform_scratch, false);
}

void concat_second_time(Transformation* t) {
    if (!t->matrix1) {
        // Unlike the first-time set, the copy of the inverse goes to
        // transpose1, where the copy of the transpose then replaces it, and
        // inverse1 keeps what it held. This asymmetry is deliberate.
        t->matrix1 = alloc_RtMatrix(xform_scratch);
        t->transpose1 = alloc_RtMatrix(xform_scratch_inverse);
        t->normal1 = alloc_RtMatrix(xform_scratch_normal);
        t->transpose1 = alloc_RtMatrix(xform_scratch_transpose);
        return;
    }
    concat_if_present(t->matrix1, xform_scratch, 1);
    concat_if_present(t->inverse1, xform_scratch_inverse, 0);
    concat_if_present(t->normal1, xform_scratch_normal, 1);
    concat_if_present(t->transpose1, xform_scratch_transpose, 0);
}

float* scratch_vector(float x, float y, float z) {
    xform_vector[0] = x;
    xform_vector[1] = y;
    xform_vector[2] = z;
    return xform_vector;
}

// Divides v by its length; false when the length is below AXIS_EPSILON (or
// not a number).
bool normalise(double v[3]) {
    double len = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    if (!(len >= AXIS_EPSILON)) return false;
    for (int i = 0; i < 3; i++) v[i] /= len;
    return true;
}

// Adds to the identity in m the shear that moves points along b in
// proportion to their component across b in the plane of a and b, turning a
// by alpha radians toward b. False when the axes are degenerate or alpha is
// out of (theta - pi, theta), theta being the angle between the axes.
bool add_skew(float m[4][4], double alpha, double a[3], double b[3]) {
    if (!normalise(a) || !normalise(b)) return false;
    double ab = a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
    if (ab > 1.0) ab = 1.0;
    if (ab < -1.0) ab = -1.0;
    double theta = std::acos(ab);
    if (!(theta > alpha && alpha > theta - PI)) return false;
    double n[3];
    for (int i = 0; i < 3; i++) n[i] = a[i] - ab * b[i];
    if (!normalise(n)) return false;  // parallel axes
    double shifted = theta - alpha;
    double k = std::cos(shifted) / std::sin(shifted) - std::cos(theta) / std::sin(theta);
    for (int i = 0; i < 3; i++)
        for (int j = 0; j < 3; j++) m[i][j] += static_cast<float>(k * n[i] * b[j]);
    return true;
}

// Departure from keeping every record until its frame ends: the record a
// closing RiTransformEnd (or RiAttributeEnd) leaves behind is given back to
// its pool at once, with its matrices, when nothing else can refer to it, so
// that a frame of a million attribute blocks runs in flat memory. A record
// that something keeps carries the shared bit (a named coordinate system, a
// record made current by RiCoordSysTransform; anything that retains a
// record, such as a stored object, must set it too) or is the camera or an
// outer level's saved record; those stay until the sweep of their tag. A
// moving record is left too: its second-time matrices may be shared with
// the record it was copied from. Records abandoned in the middle of a level
// (by RiIdentity or RiTransform) also wait for the sweep.
void give_back_if_unreferenced(Transformation* t) {
    if (t == nullptr || t == curxform) return;
    if (t->flags & (XFORM_SHARED | XFORM_MOVING)) return;
    if (t->matrix1 || t->inverse1 || t->normal1 || t->transpose1) return;
    if (renderer != nullptr && renderer->camera == t) return;
    for (int i = 0; i < xform_depth; i++) {
        if (xform_stack[i] == t) return;
    }
    free_TRANSFORMATION(t);
}

}  // namespace

float (*xform_scratch_matrix())[4] {
    return xform_scratch;
}

namespace {

// The sign of sx * sy * sz when every factor lies between 1e-10 and 1e10 in
// size, where the product neither underflows nor overflows and so has the
// sign the elimination gives; 0 (compute it) otherwise.
int scale_sign(float sx, float sy, float sz) {
    int negative = 0;
    for (float s : {sx, sy, sz}) {
        const float size = std::fabs(s);
        if (!(size >= 1e-10f && size <= 1e10f)) return 0;
        if (s < 0.0f) ++negative;
    }
    return negative % 2 ? -1 : 1;
}

}  // namespace

// The determinant decides the handedness bit at once; the inverse, normal
// and transpose of M are only needed at once inside motion blocks and for
// moving records, and are otherwise deferred (math/derived_matrices.h).
void apply_xform(int rotation_flag) {
    const bool translation = scratch_is_translation;
    const int known_sign = scratch_known_sign;
    scratch_is_translation = false;
    scratch_known_sign = 0;
    if (block_level < 1) RMError(RIE_NOTATTRIBS, RIE_ERROR, nullptr);
    Transformation* t = writable_curxform();
    if (!t) return;
    const bool deferred = motion_level <= 0 && !(t->flags & XFORM_MOVING);
    float det;
    if (deferred) {
        if (translation) {
            det = 1.0f;
        } else if (known_sign != 0) {
            det = static_cast<float>(known_sign);
        } else {
            det = matrix_determinant(xform_scratch);
        }
    } else {
        settle_derived_matrices(t);
        matrix_transpose(xform_scratch_transpose, xform_scratch);
        det = matrix_invert(xform_scratch_inverse, xform_scratch);
        matrix_transpose(xform_scratch_normal, xform_scratch_inverse);
    }
    if (!rotation_flag) t->flags &= ~XFORM_ROTATION;
    // As the steps run in this order, a sample refused below still toggles
    // the handedness bit.
    if (det < 0.0f) t->flags ^= XFORM_FLIPPED;

    if (deferred) {
        concat_first_time_deferred(t);
    } else if (motion_level <= 0) {
        concat_first_time(t);
        if (t->flags & XFORM_MOVING) concat_second_time(t);
    } else if (motion_level == 1) {
        concat_first_time(t);
        motion_level++;
    } else if (motion_level == 2) {
        concat_second_time(t);
        motion_level++;
    } else {
        RMError(RIE_BADMOTION, RIE_ERROR, "Only two motion times are available");
    }
}

int motion_guard() {
    if (motion_level <= 0) return 0;
    if (motion_level < INT_MAX) motion_level++;
    return motion_level >= 3 ? 1 : 0;
}

RtVoid RiIdentity() {
    if (block_level < 1) RMError(RIE_NOTATTRIBS, RIE_WARNING, nullptr);
    curxform = nullptr;
    make_ident(xform_scratch);
    apply_xform(0);
}

// A null matrix (possible only from a direct call) is ignored.
RtVoid RiTransform(RtMatrix transform) {
    if (!transform) return;
    if (motion_level == 0 || motion_level == 1) curxform = nullptr;
    std::memcpy(xform_scratch, transform, sizeof xform_scratch);
    apply_xform(0);
}

RtVoid RiConcatTransform(RtMatrix transform) {
    if (!transform) return;
    std::memcpy(xform_scratch, transform, sizeof xform_scratch);
    apply_xform(0);
}

RtVoid RiPerspective(RtFloat fov) {
    float u = std::atan(static_cast<float>(fov / 2 * DEG_TO_RAD));
    make_ident(xform_scratch);
    xform_scratch[2][2] = u;
    xform_scratch[2][3] = u;
    xform_scratch[3][2] = -1.0f;
    xform_scratch[3][3] = 0.0f;
    apply_xform(0);
}

RtVoid RiTranslate(RtFloat dx, RtFloat dy, RtFloat dz) {
    make_xform_matrix(xform_scratch, scratch_vector(dx, dy, dz), 1);
    scratch_is_translation = std::isfinite(dx) && std::isfinite(dy) && std::isfinite(dz);
    apply_xform(0);
}

RtVoid RiScale(RtFloat sx, RtFloat sy, RtFloat sz) {
    make_xform_matrix(xform_scratch, scratch_vector(sx, sy, sz), 3);
    scratch_known_sign = scale_sign(sx, sy, sz);
    apply_xform(0);
}

RtVoid RiRotate(RtFloat angle, RtFloat dx, RtFloat dy, RtFloat dz) {
    float* axis = scratch_vector(dx, dy, dz);
    float len = vlen(axis);
    if (len >= AXIS_EPSILON) vscalar(axis, 1.0f / len);
    make_rotate_matrix(xform_scratch, static_cast<float>(angle * DEG_TO_RAD), axis);
    if (len >= AXIS_EPSILON && std::isfinite(len) && std::isfinite(angle)) scratch_known_sign = 1;
    apply_xform(1);
}

RtVoid RiSkew(RtFloat angle, RtFloat dx1, RtFloat dy1, RtFloat dz1, RtFloat dx2, RtFloat dy2,
              RtFloat dz2) {
    double a[3] = {dx1, dy1, dz1};
    double b[3] = {dx2, dy2, dz2};
    make_ident(xform_scratch);
    if (!add_skew(xform_scratch, angle * DEG_TO_RAD, a, b)) {
        RMError(RIE_RANGE, RIE_ERROR, "RiSkew angle too large for the axes");
        make_ident(xform_scratch);
    }
    apply_xform(0);
}

RtVoid RiTransformBegin() {
    if (xform_depth >= XFORM_STACK_MAX) {
        RMError(RIE_LIMIT, RIE_SEVERE, "Transformation stack overflow");
        if (xform_overflow < INT_MAX) xform_overflow++;
        return;
    }
    xform_stack[xform_depth++] = curxform;
    if (curxform) {
        Transformation* copy = alloc_TRANSFORMATION(curxform);
        if (copy) curxform = copy;
    }
}

RtVoid RiTransformEnd() {
    if (xform_overflow > 0) {
        xform_overflow--;
        return;
    }
    if (xform_depth == 0) {
        RMError(RIE_NESTING, RIE_ERROR, "Transformation stack underflow");
        return;
    }
    Transformation* abandoned = curxform;
    curxform = xform_stack[--xform_depth];
    give_back_if_unreferenced(abandoned);
}

int transform_stack_depth() {
    return xform_depth + xform_overflow;
}

void reset_transform_state() {
    for (Transformation*& saved : xform_stack) saved = nullptr;
    xform_depth = 0;
    xform_overflow = 0;
    curxform = nullptr;
    motion_level = 0;
    n_motion_levels = 0;
    named_transformation_list.clear();
}

NamedTransformation::NamedTransformation(const char* name_, Transformation* xform_)
    : name(name_), xform(xform_), next(nullptr) {
    mark_shared(xform);
}

NamedTransformationList::~NamedTransformationList() {
    clear();
}

void NamedTransformationList::clear() {
    while (head) {
        NamedTransformation* next = head->next;
        delete head;
        head = next;
    }
}

void NamedTransformationList::add(const char* name, Transformation* xform) {
    if (!name) return;
    RtToken token = NewToken(name);
    for (NamedTransformation* e = head; e; e = e->next) {
        if (e->name == token) {
            e->xform = xform;
            mark_shared(xform);
            return;
        }
    }
    NamedTransformation* entry = new NamedTransformation(token, xform);
    entry->next = head;
    head = entry;
}

Transformation* NamedTransformationList::find(const char* name) {
    if (!name) return nullptr;
    for (NamedTransformation* e = head; e; e = e->next)
        if (std::strcmp(e->name, name) == 0) return e->xform;
    return nullptr;
}

// With no current transformation yet, the identity record is made first so
// that the name stands for the identity.
RtVoid RiCoordinateSystem(RtToken space) {
    if (!curxform) curxform = alloc_TRANSFORMATION(nullptr);
    named_transformation_list.add(space, curxform);
}

// "world" inside the world block is the camera transformation recorded at
// RiWorldBegin; when none was recorded (no renderer, or no transformation
// before the world) the camera is the identity and so is the result.
RtVoid RiCoordSysTransform(RtToken space) {
    if (block_level == 0) {
        RMError(RIE_NOTATTRIBS, RIE_ERROR, nullptr);
        return;
    }
    if (!space) space = "";
    RtToken token = NewToken(space);
    Transformation* found;
    if (std::strcmp(token, RI_WORLD) == 0 && block_level >= BLOCK_WORLD) {
        found = renderer ? renderer->camera : nullptr;
    } else {
        found = named_transformation_list.find(token);
        if (!found) {
            QuillError(RIE_BADTOKEN, RIE_ERROR, "RiCoordSysTransform: space \"%s\" unknown", space);
            return;
        }
    }
    curxform = found;
    mark_shared(curxform);
}

RtPoint* RiTransformPoints(RtToken, RtToken, RtInt, RtPoint[]) {
    RMError(RIE_UNIMPLEMENT, RIE_WARNING, "RiTransformPoints not implemented\n");
    return nullptr;
}

// A block of other than two times still opens; with fewer than two the
// record is not made moving, with more only the first two are used.
RtVoid RiMotionBeginV(RtInt n, RtFloat times[]) {
    if (block_level & BLOCK_MOTION) RMError(RIE_BADMOTION, RIE_ERROR, nullptr);
    if (n != 2) RMError(RIE_LIMIT, RIE_ERROR, "Only two motion times allowed");
    if (!curxform) curxform = alloc_TRANSFORMATION(nullptr);
    if (curxform && times && n >= 2) {
        Transformation* t = curxform;
        if (t->flags & XFORM_MOVING) {
            if (t->time0 != times[0] || t->time1 != times[1])
                RMError(RIE_BADMOTION, RIE_ERROR, "Times do not match");
        } else {
            // Changed in place even when shared.
            settle_derived_matrices(t);
            t->matrix1 = alloc_RtMatrix(t->matrix0);
            t->inverse1 = alloc_RtMatrix(t->inverse0);
            t->normal1 = alloc_RtMatrix(t->normal0);
            t->transpose1 = alloc_RtMatrix(t->transpose0);
            t->time0 = times[0];
            t->time1 = times[1];
            t->flags |= XFORM_MOVING;
        }
    }
    block_level |= BLOCK_MOTION;
    motion_level = 1;
    n_motion_levels = n;
}

RtVoid RiMotionBegin(RtInt n, ...) {
    float times[MOTION_TIMES_MAX];
    int count = n < 0 ? 0 : (n > MOTION_TIMES_MAX ? MOTION_TIMES_MAX : n);
    va_list ap;
    va_start(ap, n);
    for (int i = 0; i < count; i++) times[i] = static_cast<float>(va_arg(ap, double));
    va_end(ap);
    RiMotionBeginV(n, times);
}

// The motion bit is toggled, not cleared: after a stray RiMotionEnd (which
// is reported) it is set, and the next RiMotionBegin reports a nested block.
RtVoid RiMotionEnd() {
    if (!(block_level & BLOCK_MOTION)) RMError(RIE_BADMOTION, RIE_ERROR, nullptr);
    if (static_cast<long long>(n_motion_levels) + 1 != motion_level)
        RMError(RIE_BADMOTION, RIE_ERROR, "Wrong number of motion specifications");
    motion_level = 0;
    block_level ^= BLOCK_MOTION;
}
