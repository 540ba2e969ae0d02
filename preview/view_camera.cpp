// The free camera's moves, worked in double precision on the affine
// world-to-camera transformation, and the view written as RIB.
#include "preview/view_camera.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <initializer_list>
#include <utility>

#include "math/matrix.h"

namespace {

using Affine = double[4][3];

constexpr double DEG_TO_RAD = 0.017453292519943295;
constexpr int TRANSLATION = 1;  // the kind of make_xform_matrix
// The wheel's factor: each step moves the eye to 0.9 of its distance.
constexpr double ZOOM_FACTOR = 0.9;
// Room left around a framed box, as a share of the raster.
constexpr double FRAME_FILL = 0.95;

// Inverse of the 3 by 3 linear part; false when it is singular.
bool invert_linear(const Affine m, double inv[3][3]) {
    const double a = m[0][0], b = m[0][1], c = m[0][2];
    const double d = m[1][0], e = m[1][1], f = m[1][2];
    const double g = m[2][0], h = m[2][1], k = m[2][2];
    const double det = a * (e * k - f * h) - b * (d * k - f * g) + c * (d * h - e * g);
    if (!(std::fabs(det) > 1e-300) || !std::isfinite(det)) return false;
    inv[0][0] = (e * k - f * h) / det;
    inv[0][1] = (c * h - b * k) / det;
    inv[0][2] = (b * f - c * e) / det;
    inv[1][0] = (f * g - d * k) / det;
    inv[1][1] = (a * k - c * g) / det;
    inv[1][2] = (c * d - a * f) / det;
    inv[2][0] = (d * h - e * g) / det;
    inv[2][1] = (b * g - a * h) / det;
    inv[2][2] = (a * e - b * d) / det;
    return true;
}

// v (a row) times the linear part of m.
WorldPoint times_linear(const WorldPoint& v, const Affine m) {
    return {v.x * m[0][0] + v.y * m[1][0] + v.z * m[2][0],
            v.x * m[0][1] + v.y * m[1][1] + v.z * m[2][1],
            v.x * m[0][2] + v.y * m[1][2] + v.z * m[2][2]};
}

WorldPoint to_camera(const WorldPoint& w, const Affine m) {
    const WorldPoint c = times_linear(w, m);
    return {c.x + m[3][0], c.y + m[3][1], c.z + m[3][2]};
}

double length(const WorldPoint& v) {
    return std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
}

WorldPoint normalized(const WorldPoint& v) {
    const double l = length(v);
    return l > 1e-300 ? WorldPoint{v.x / l, v.y / l, v.z / l} : v;
}

// Row k of the inverse linear part: camera axis k in world space (the
// identity's axis when the part is singular).
WorldPoint camera_axis(const Affine m, int k) {
    double inv[3][3];
    if (!invert_linear(m, inv)) return {double(k == 0), double(k == 1), double(k == 2)};
    return normalized({inv[k][0], inv[k][1], inv[k][2]});
}

// Nine significant digits give back the float they were printed from.
void append_number(std::string& out, double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.9g", value + 0.0);  // no "-0"
    out += text;
}

void append_numbers(std::string& out, std::initializer_list<double> values) {
    bool first = true;
    for (double v : values) {
        if (!first) out += ' ';
        append_number(out, v);
        first = false;
    }
}

}  // namespace

void ViewCamera::matrix(const KeptView& scene, double m[4][3]) const {
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 3; ++j) {
            if (!on_scene_) {
                m[i][j] = m_[i][j];
            } else {
                m[i][j] = scene.camera_identity ? double(i == j) : double(scene.camera[i][j]);
            }
        }
    }
}

void ViewCamera::leave_scene(const KeptView& scene) {
    if (!on_scene_) return;
    matrix(scene, m_);
    ortho_scale_ = 1.0;
    on_scene_ = false;
}

KeptProjection ViewCamera::projection(const KeptView& scene) const {
    if (on_scene_) return scene_projection(scene);
    KeptProjection p{};
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 3; ++j) p.camera[i][j] = float(m_[i][j]);
        p.camera[i][3] = i == 3 ? 1.0f : 0.0f;
    }
    p.camera_identity = false;
    p.mapping = scene.mapping;
    if (scene.mapping.projection != 0) {
        p.mapping.xstep = float(p.mapping.xstep * ortho_scale_);
        p.mapping.ystep = float(p.mapping.ystep * ortho_scale_);
    }
    p.clip = true;
    return p;
}

WorldPoint ViewCamera::eye(const KeptView& scene) const {
    double m[4][3], inv[3][3];
    matrix(scene, m);
    if (!invert_linear(m, inv)) return {0, 0, 0};
    const WorldPoint t = {-m[3][0], -m[3][1], -m[3][2]};
    return {t.x * inv[0][0] + t.y * inv[1][0] + t.z * inv[2][0],
            t.x * inv[0][1] + t.y * inv[1][1] + t.z * inv[2][1],
            t.x * inv[0][2] + t.y * inv[1][2] + t.z * inv[2][2]};
}

WorldPoint ViewCamera::direction(const KeptView& scene) const {
    double m[4][3];
    matrix(scene, m);
    return camera_axis(m, 2);
}

// c = ((w - P) R + P) V: the rotations are concatenated in single precision
// in the order and with the arithmetic of RiTranslate and RiRotate, so that
// a turn about a pivot at the origin gives the very matrix a scene would
// make with Rotate before its camera translation.
void ViewCamera::orbit(const ViewCamera& start, const KeptView& scene, const WorldPoint& pivot,
                       double turn, double tilt) {
    double a[4][3];
    start.matrix(scene, a);
    float v[4][4];
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 3; ++j) v[i][j] = float(a[i][j]);
        v[i][3] = i == 3 ? 1.0f : 0.0f;
    }
    const float p[3] = {float(pivot.x), float(pivot.y), float(pivot.z)};
    const float minus_p[3] = {-p[0], -p[1], -p[2]};
    float step[4][4];
    make_xform_matrix(step, p, TRANSLATION);
    concat_matrix(v, step, 1);
    const std::pair<WorldPoint, double> turns[2] = {{camera_axis(a, 0), tilt},
                                                    {camera_axis(a, 1), turn}};
    for (const auto& [axis, degrees] : turns) {
        const float f_axis[3] = {float(axis.x), float(axis.y), float(axis.z)};
        make_rotate_matrix(step, float(degrees * DEG_TO_RAD), f_axis);
        concat_matrix(v, step, 1);
    }
    make_xform_matrix(step, minus_p, TRANSLATION);
    concat_matrix(v, step, 1);
    on_scene_ = false;
    ortho_scale_ = start.on_scene_ ? 1.0 : start.ortho_scale_;
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 3; ++j) m_[i][j] = v[i][j];
    }
}

// A pixel is xstep wide on the screen plane: at depth z under perspective
// that is xstep z in camera space, under orthographic projection xstep
// times the magnification. Raster y grows downward.
void ViewCamera::pan(const KeptView& scene, const WorldPoint& pivot, double dx, double dy) {
    leave_scene(scene);
    double size = ortho_scale_;
    if (scene.mapping.projection == 0) {
        const double depth = to_camera(pivot, m_).z;
        size = std::fabs(depth) > 1e-9 ? std::fabs(depth) : 1.0;
    }
    m_[3][0] += dx * double(scene.mapping.xstep) * size;
    m_[3][1] -= dy * double(scene.mapping.ystep) * size;
}

// Moving the eye by v moves every point by -v relative to it: the
// translation becomes t - v A.
void ViewCamera::zoom(const KeptView& scene, const WorldPoint& pivot, int steps) {
    leave_scene(scene);
    for (; steps != 0; steps += steps > 0 ? -1 : 1) {
        const double share = steps > 0 ? 1.0 - ZOOM_FACTOR : 1.0 - 1.0 / ZOOM_FACTOR;
        const WorldPoint e = eye(scene);
        WorldPoint toward = {pivot.x - e.x, pivot.y - e.y, pivot.z - e.z};
        const WorldPoint move =
            times_linear({share * toward.x, share * toward.y, share * toward.z}, m_);
        m_[3][0] -= move.x;
        m_[3][1] -= move.y;
        m_[3][2] -= move.z;
        if (scene.mapping.projection != 0) {
            ortho_scale_ *= steps > 0 ? ZOOM_FACTOR : 1.0 / ZOOM_FACTOR;
        }
    }
}

// In camera space the linear part is kept and the translation chosen: the
// box's centre on the axis of view, and the eye far enough back that every
// corner lies inside the raster and in front of the eye plane.
void ViewCamera::frame_all(const KeptView& scene, const WorldPoint& min, const WorldPoint& max) {
    leave_scene(scene);
    const ScreenMapping& map = scene.mapping;
    const WorldPoint centre = {(min.x + max.x) / 2, (min.y + max.y) / 2, (min.z + max.z) / 2};
    const WorldPoint c = times_linear(centre, m_);
    const double half_w = FRAME_FILL * std::fabs(double(map.xstep)) * std::max(1.0f, map.half_x);
    const double half_h = FRAME_FILL * std::fabs(double(map.ystep)) * std::max(1.0f, map.half_y);
    const double near = std::max(double(map.near_clip), DEPTH_FLOOR);
    const double margin = 0.05 * length({max.x - min.x, max.y - min.y, max.z - min.z}) + near;
    double depth = -1e300, scale = 0.0;
    for (int k = 0; k < 8; ++k) {
        const WorldPoint corner = {(k & 1) ? max.x : min.x, (k & 2) ? max.y : min.y,
                                   (k & 4) ? max.z : min.z};
        const WorldPoint p = times_linear(corner, m_);
        const double x = std::fabs(p.x - c.x), y = std::fabs(p.y - c.y);
        depth = std::max(depth, margin - p.z);
        if (map.projection == 0) {
            depth = std::max({depth, x / half_w - p.z, y / half_h - p.z});
        } else {
            scale = std::max({scale, x / half_w, y / half_h});
        }
    }
    m_[3][0] = -c.x;
    m_[3][1] = -c.y;
    m_[3][2] = depth;
    if (map.projection != 0 && scale > 0.0 && std::isfinite(scale)) ortho_scale_ = scale;
}

std::string ViewCamera::rib(const KeptView& scene) const {
    const KeptProjection p = projection(scene);
    const WorldPoint e = eye(scene), d = direction(scene);
    std::string out = "# view: position ";
    append_numbers(out, {e.x, e.y, e.z});
    out += ", direction ";
    append_numbers(out, {d.x, d.y, d.z});
    if (scene.mapping.projection == 0) {
        out += ", field of view ";
        append_number(out, scene.fov);
        out += "\nProjection \"perspective\" \"fov\" [";
        append_number(out, scene.fov);
        out += "]\n";
    } else {
        // The pixel size is the screen window's width over the resolution,
        // so a magnified view is the window scaled about its centre line.
        const double s = on_scene_ ? 1.0 : ortho_scale_;
        out += "\nProjection \"orthographic\"\nScreenWindow ";
        append_numbers(out, {scene.screen[0] * s, scene.screen[1] * s, scene.screen[2] * s,
                             scene.screen[3] * s});
        out += '\n';
    }
    out += "Transform [";
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 4; ++j) {
            if (i + j > 0) out += ' ';
            append_number(out, p.camera_identity ? double(i == j) : double(p.camera[i][j]));
        }
    }
    out += "]\n";
    return out;
}
