// ControlHull: control points projected in double precision, and the raster
// box of the convex blends of some of them, widened by a bound of the single
// precision arithmetic that makes and projects a lattice.
#include "preview/control_hull.h"

#include <algorithm>
#include <cmath>

namespace {

// One coordinate of a point through a matrix in single precision, three
// products and three sums, is within this many unit roundoffs of the sum of
// the magnitudes of its terms (the classic bound is a little over 4).
constexpr double AFFINE_ROUNDINGS = 5.0;
// The raster coordinates the box may reach: far inside the range where the
// ceiling and the raster centre's offset are exact in single precision.
constexpr double RASTER_REACH = double(1 << 22);
// What the double precision arithmetic of the control points may miss by,
// relative to the magnitudes involved (a wide allowance).
constexpr double DOUBLE_SLACK = 1e-9;

// A matrix of transform_point_by as doubles: null is the identity.
void load_matrix(const float (*m)[4], double out[4][3]) {
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 3; ++j) out[i][j] = m != nullptr ? m[i][j] : (i == j ? 1.0 : 0.0);
    }
}

void transform(const double m[4][3], const double in[3], double out[3]) {
    for (int j = 0; j < 3; ++j) {
        out[j] = in[0] * m[0][j] + in[1] * m[1][j] + in[2] * m[2][j] + m[3][j];
    }
}

// out = a, then b: the exact arithmetic of the two (the double precision
// of the product is within the slack allowed for).
void combine(const double a[4][3], const double b[4][3], double out[4][3]) {
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 3; ++j) {
            out[i][j] = a[i][0] * b[0][j] + a[i][1] * b[1][j] + a[i][2] * b[2][j];
            if (i == 3) out[i][j] += b[3][j];
        }
    }
}

}  // namespace

// How much the matrix can stretch an error bound given in each coordinate.
double ControlHull::MatrixBound::norm() const {
    return std::max({linear[0], linear[1], linear[2]});
}

// A bound of the sum of the magnitudes of a transformed coordinate's terms,
// for points whose coordinates are at most magnitude.
double ControlHull::MatrixBound::terms(double magnitude) const {
    return std::max({linear[0] * magnitude + offset[0], linear[1] * magnitude + offset[1],
                     linear[2] * magnitude + offset[2]});
}

ControlHull::MatrixBound ControlHull::matrix_bound(const float (*m)[4]) {
    MatrixBound bound;
    if (m == nullptr) return bound;
    bound.rounds = true;
    for (int j = 0; j < 3; ++j) {
        bound.linear[j] =
            std::fabs(double(m[0][j])) + std::fabs(double(m[1][j])) + std::fabs(double(m[2][j]));
        bound.offset[j] = std::fabs(double(m[3][j]));
    }
    return bound;
}

ControlHull::ControlHull(const ScreenProjection& projection, double excess)
    : valid_(projection.valid()), mapping_(projection.mapping()), excess_(excess) {
    double object[4][3], camera[4][3];
    load_matrix(projection.object_matrix(), object);
    load_matrix(projection.camera_matrix(), camera);
    combine(object, camera, to_camera_);
    object_bound_ = matrix_bound(projection.object_matrix());
    camera_bound_ = matrix_bound(projection.camera_matrix());
    inverse_xstep_ = 1.0 / double(mapping_.xstep);
    inverse_ystep_ = 1.0 / double(mapping_.ystep);
    inverse_pixel_ = std::max(std::fabs(inverse_xstep_), std::fabs(inverse_ystep_));
    valid_ = valid_ && std::isfinite(inverse_pixel_) && std::fabs(mapping_.half_x) < RASTER_REACH &&
             std::fabs(mapping_.half_y) < RASTER_REACH;
}

// The camera-space error of a blend of control points no larger than
// magnitude: its distance from their hull carried through both matrices,
// plus each matrix's own single precision rounding (none for an identity,
// which the projection skips).
double ControlHull::camera_error(double magnitude) const {
    const double object_error = magnitude * excess_;
    const double world_terms = object_bound_.terms(magnitude + object_error);
    double world_error = object_bound_.norm() * object_error;
    if (object_bound_.rounds) world_error += AFFINE_ROUNDINGS * FLOAT_UNIT * world_terms;
    const double camera_terms = camera_bound_.terms(world_terms + world_error);
    double camera_error = camera_bound_.norm() * world_error;
    if (camera_bound_.rounds) camera_error += AFFINE_ROUNDINGS * FLOAT_UNIT * camera_terms;
    return camera_error + DOUBLE_SLACK * camera_terms;
}

// Behind the eye the screen coordinates mean nothing; such a point is
// taken as not finite, and no box is given for it.
inline ControlHull::Extent ControlHull::extent(const float* p) const {
    const double object[3] = {p[0], p[1], p[2]};
    double camera[3];
    transform(to_camera_, object, camera);
    const double z = camera[2];
    double x = camera[0], y = camera[1];
    bool finite = true;
    if (mapping_.projection == 0) {
        const double inverse_z = 1.0 / z;
        x *= inverse_z;
        y *= inverse_z;
        finite = z > DEPTH_FLOOR;
    }
    const double sx = x * inverse_xstep_, sy = y * inverse_ystep_;
    const double magnitude =
        std::max({std::fabs(object[0]), std::fabs(object[1]), std::fabs(object[2])});
    finite = finite && std::isfinite(sx) && std::isfinite(sy) && std::isfinite(z) &&
             std::isfinite(magnitude);
    Extent e;
    e.largest[Extent::LOW_X] = -sx;
    e.largest[Extent::HIGH_X] = sx;
    e.largest[Extent::LOW_Y] = -sy;
    e.largest[Extent::HIGH_Y] = sy;
    e.largest[Extent::NEAREST] = -z;
    e.largest[Extent::FARTHEST] = z;
    e.largest[Extent::SCREEN] = std::max(std::fabs(x), std::fabs(y));
    e.largest[Extent::MAGNITUDE] = finite ? magnitude : HUGE_VAL;
    return e;
}

// The depths of the lattice points are within the camera error of the
// control points' range. A lattice point's screen coordinate differs from
// its hull point's by at most `drift`: under perspective, an error e in
// camera x and z moves x / z by at most e (1 + |x / z|) / (z - e). The
// single precision divisions by z and by the pixel size add a unit roundoff
// each. The ceiling of a value within `error` of [low, high] lies in
// [ceil(low - error), ceil(high + error)], and raster y runs against
// screen y.
bool ControlHull::raster_box(const Extent& x, RasterBox* box) const {
    if (!valid_ || !std::isfinite(x.magnitude()) || !(x.low_x() <= x.high_x())) return false;
    const double e = camera_error(x.magnitude());
    const double nearest_drawn = std::max(double(mapping_.near_clip), DEPTH_FLOOR);
    if (!(x.nearest() - e > nearest_drawn && x.farthest() + e < double(mapping_.far_clip))) {
        return false;
    }
    const double screen = x.screen();
    const double drift = mapping_.projection == 0 ? e * (1.0 + screen) / (x.nearest() - e) : e;
    const double reach = std::max(
        {std::fabs(x.low_x()), std::fabs(x.high_x()), std::fabs(x.low_y()), std::fabs(x.high_y())});
    const double error = (drift + 2.01 * FLOAT_UNIT * (screen + drift)) * inverse_pixel_ +
                         DOUBLE_SLACK * (1.0 + reach);
    if (!(error < 0.5) || !(reach < RASTER_REACH)) return false;
    box->x0 = static_cast<int>(std::ceil(x.low_x() - error) + mapping_.half_x);
    box->x1 = static_cast<int>(std::ceil(x.high_x() + error) + mapping_.half_x);
    box->y0 = static_cast<int>(mapping_.half_y - std::ceil(x.high_y() + error));
    box->y1 = static_cast<int>(mapping_.half_y - std::ceil(x.low_y() - error));
    return true;
}

ControlHull::Extent ControlHull::extents(const float* points, size_t count, Extent* out) const {
    Extent joined;
    for (size_t k = 0; k < count; ++k) {
        const Extent e = extent(points + 3 * k);
        out[k] = e;
        joined.add(e);
    }
    return joined;
}

bool object_box_raster_box(const float low[3], const float high[3], RasterBox* box) {
    float corners[8][3];
    for (int k = 0; k < 8; ++k) {
        for (int c = 0; c < 3; ++c) corners[k][c] = (k >> c) & 1 ? high[c] : low[c];
    }
    const ControlHull hull(ScreenProjection(), 0.0);
    ControlHull::Extent each[8];
    return hull.raster_box(hull.extents(&corners[0][0], 8, each), box);
}
