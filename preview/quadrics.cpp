// The seven quadrics (sphere, cone, cylinder, paraboloid, disk, hyperboloid,
// torus) in their variadic and array forms: each fills the shared grid with
// a (u, v) lattice whose density is a multiple of detail_level and hands it
// to draw_object. The parameter lists do not change the figure.
//
// Angles and row parameters are built by repeated single-precision addition
// of their step, starting from the first value, so that the lattice points
// are exactly those of the long-standing drawing. Every lattice size goes
// through capped_cells before the grid is filled.
#include "preview/quadrics.h"

#include <cmath>
#include <cstring>

#include "preview/control_hull.h"
#include "preview/lattice.h"
#include "preview/variadic_forms.h"
#include "preview/x11_previewer.h"
#include "ri/ri.h"
#include "ri/transforms.h"
#include "support/error.h"

namespace {

constexpr double DEG_TO_RAD = 0.017453292519943295;

// cos and sin of count + 1 angles from first, growing by step; the last
// table made is kept, since scenes draw many quadrics of one sweep and
// detail, and the same angles give the same values.
struct AngleTable {
    float first = 0.0f, step = 0.0f;
    int count = -1;
    float cos_angle[GRID_POINTS];
    float sin_angle[GRID_POINTS];
};

bool same_bits(float a, float b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

const AngleTable& angle_table(AngleTable* last, float first, float step, int count) {
    if (last->count == count && same_bits(last->first, first) && same_bits(last->step, step)) {
        return *last;
    }
    float angle = first;
    for (int i = 0; i <= count; ++i) {
        last->cos_angle[i] = std::cos(angle);
        last->sin_angle[i] = std::sin(angle);
        angle += step;
    }
    last->first = first;
    last->step = step;
    last->count = count;
    return *last;
}

// cos and sin of theta for columns 0..nu, theta growing by thetamax / nu.
const AngleTable& columns(float thetamax, int nu) {
    static AngleTable last;
    return angle_table(&last, 0.0f, static_cast<float>(thetamax * DEG_TO_RAD / nu), nu);
}

// The rows of a sphere or a torus: cos and sin of nv + 1 angles.
const AngleTable& row_angles(float first, float step, int nv) {
    static AngleTable last;
    return angle_table(&last, first, step, nv);
}

void set_point(int row, int column, float x, float y, float z) {
    grid[row][column][0] = x;
    grid[row][column][1] = y;
    grid[row][column][2] = z;
}

// One row of a surface of revolution: the circle of radius r at height z.
void fill_circle_row(const AngleTable& c, int row, int nu, float r, float z) {
    for (int i = 0; i <= nu; ++i) set_point(row, i, r * c.cos_angle[i], r * c.sin_angle[i], z);
}

}  // namespace

LatticeSize fill_sphere(float radius, float zmin, float zmax, float thetamax, int d) {
    const int nu = capped_cells(2LL * d);
    const int nv = capped_cells(d);
    const AngleTable& c = columns(thetamax, nu);
    const float phimin = std::asin(zmin / radius);
    const float phimax = std::asin(zmax / radius);
    const AngleTable& rows = row_angles(phimin, (phimax - phimin) / nv, nv);
    for (int j = 0; j <= nv; ++j) {
        fill_circle_row(c, j, nu, radius * rows.cos_angle[j], radius * rows.sin_angle[j]);
    }
    return {nu, nv};
}

LatticeSize fill_cone(float height, float radius, float thetamax, int d) {
    const int nu = capped_cells(2LL * d);
    const AngleTable& c = columns(thetamax, nu);
    fill_circle_row(c, 0, nu, radius, 0.0f);
    fill_circle_row(c, 1, nu, 0.0f, height);  // every column at the apex
    return {nu, 1};
}

LatticeSize fill_cylinder(float radius, float zmin, float zmax, float thetamax, int d) {
    const int nu = capped_cells(2LL * d);
    const AngleTable& c = columns(thetamax, nu);
    fill_circle_row(c, 0, nu, radius, zmin);
    fill_circle_row(c, 1, nu, radius, zmax);
    return {nu, 1};
}

LatticeSize fill_paraboloid(float rmax, float zmin, float zmax, float thetamax, int d) {
    const int nu = capped_cells(2LL * d);
    const int nv = capped_cells(d);
    const AngleTable& c = columns(thetamax, nu);
    const float step = 1.0f / nv;
    float t = 0.0f;
    for (int j = 0; j <= nv; ++j) {
        const float z = zmin + t * (zmax - zmin);
        fill_circle_row(c, j, nu, rmax * std::sqrt(z / zmax), z);
        t += step;
    }
    return {nu, nv};
}

LatticeSize fill_disk(float height, float radius, float thetamax, int d) {
    const int nu = capped_cells(2LL * d);
    const AngleTable& c = columns(thetamax, nu);
    fill_circle_row(c, 0, nu, 0.0f, height);  // every column at the centre
    fill_circle_row(c, 1, nu, radius, height);
    return {nu, 1};
}

LatticeSize fill_hyperboloid(const float point1[3], const float point2[3], float thetamax, int d) {
    const int nu = capped_cells(2LL * d);
    const int nv = capped_cells(d / 2);
    const AngleTable& c = columns(thetamax, nu);
    const float step = 1.0f / nv;
    float t = 0.0f;
    for (int j = 0; j <= nv; ++j) {
        const float px = (1.0f - t) * point1[0] + t * point2[0];
        const float py = (1.0f - t) * point1[1] + t * point2[1];
        const float pz = (1.0f - t) * point1[2] + t * point2[2];
        for (int i = 0; i <= nu; ++i) {
            set_point(j, i, px * c.cos_angle[i] - py * c.sin_angle[i],
                      px * c.sin_angle[i] + py * c.cos_angle[i], pz);
        }
        t += step;
    }
    return {nu, nv};
}

LatticeSize fill_torus(float majorrad, float minorrad, float phimin, float phimax, float thetamax,
                       int d) {
    const int nu = capped_cells(4LL * d);
    const int nv = capped_cells(2LL * d);
    const AngleTable& c = columns(thetamax, nu);
    const AngleTable& rows =
        row_angles(static_cast<float>(phimin * DEG_TO_RAD),
                   static_cast<float>((phimax - phimin) * DEG_TO_RAD / nv), nv);
    for (int j = 0; j <= nv; ++j) {
        fill_circle_row(c, j, nu, majorrad + minorrad * rows.cos_angle[j],
                        minorrad * rows.sin_angle[j]);
    }
    return {nu, nv};
}

namespace {

void draw_lattice(LatticeSize size) {
    draw_grid(size.nu, size.nv);
}

// Whether a lattice may be left out before it is made, given a box that
// will hold it: lattices only reach sinks, and every sink knows the box
// drawn. In a scene of many objects, most of those off the picture were
// filled and projected only to be found so. (A cylinder, cone or disk has
// two rows of points: finding its box costs about what it saves.)
template <typename BoxOf>
bool left_out_before_filling(BoxOf box_of) {
    X11VectorPreviewer* drawer = previewer();
    RasterBox box;
    return drawer != nullptr && drawer->lattices_only_drawn() && box_of(&box) &&
           drawer->lattices_known_drawn(box, 1);
}

// The raster box of the object-space box from -reach to reach in x and y and
// from z_low to z_high.
bool symmetric_box_raster_box(float reach, float z_low, float z_high, RasterBox* box) {
    const float low[3] = {-reach, -reach, z_low}, high[3] = {reach, reach, z_high};
    return object_box_raster_box(low, high, box);
}

}  // namespace

// The lattice points lie in the object-space box exactly as the fill
// computes them in single precision: each coordinate is a radius (for the
// torus, a sum of radii bounded by the sum of their magnitudes) times sines
// and cosines of magnitude at most 1, and rounding is monotone, so no
// coordinate passes the bound.
bool sphere_raster_box(float radius, RasterBox* box) {
    const float reach = std::fabs(radius);
    return symmetric_box_raster_box(reach, -reach, reach, box);
}

bool torus_raster_box(float majorrad, float minorrad, RasterBox* box) {
    const float tube = std::fabs(minorrad);
    return symmetric_box_raster_box(std::fabs(majorrad) + tube, -tube, tube, box);
}

RtVoid RiSphere(RtFloat radius, RtFloat zmin, RtFloat zmax, RtFloat thetamax, ...) {
    if (motion_guard()) return;
    if (left_out_before_filling([=](RasterBox* box) { return sphere_raster_box(radius, box); })) {
        return;
    }
    draw_lattice(fill_sphere(radius, zmin, zmax, thetamax, detail_level));
}

RtVoid RiSphereV(RtFloat radius, RtFloat zmin, RtFloat zmax, RtFloat thetamax, RtInt n,
                 RtToken tokens[], RtPointer params[]) {
    _array_to_v(n, tokens, params);
    void** l = _array_to_v_list();
    RiSphere(radius, zmin, zmax, thetamax, FIRST_40_WORDS(l));
}

RtVoid RiCone(RtFloat height, RtFloat radius, RtFloat thetamax, ...) {
    if (motion_guard()) return;
    draw_lattice(fill_cone(height, radius, thetamax, detail_level));
}

RtVoid RiConeV(RtFloat height, RtFloat radius, RtFloat thetamax, RtInt n, RtToken tokens[],
               RtPointer params[]) {
    _array_to_v(n, tokens, params);
    void** l = _array_to_v_list();
    RiCone(height, radius, thetamax, FIRST_40_WORDS(l));
}

RtVoid RiCylinder(RtFloat radius, RtFloat zmin, RtFloat zmax, RtFloat thetamax, ...) {
    if (motion_guard()) return;
    draw_lattice(fill_cylinder(radius, zmin, zmax, thetamax, detail_level));
}

RtVoid RiCylinderV(RtFloat radius, RtFloat zmin, RtFloat zmax, RtFloat thetamax, RtInt n,
                   RtToken tokens[], RtPointer params[]) {
    _array_to_v(n, tokens, params);
    void** l = _array_to_v_list();
    RiCylinder(radius, zmin, zmax, thetamax, FIRST_40_WORDS(l));
}

RtVoid RiHyperboloid(RtPoint point1, RtPoint point2, RtFloat thetamax, ...) {
    if (motion_guard()) return;
    draw_lattice(fill_hyperboloid(point1, point2, thetamax, detail_level));
}

RtVoid RiHyperboloidV(RtPoint point1, RtPoint point2, RtFloat thetamax, RtInt n, RtToken tokens[],
                      RtPointer params[]) {
    _array_to_v(n, tokens, params);
    void** l = _array_to_v_list();
    RiHyperboloid(point1, point2, thetamax, FIRST_40_WORDS(l));
}

RtVoid RiParaboloid(RtFloat rmax, RtFloat zmin, RtFloat zmax, RtFloat thetamax, ...) {
    if (motion_guard()) return;
    draw_lattice(fill_paraboloid(rmax, zmin, zmax, thetamax, detail_level));
}

RtVoid RiParaboloidV(RtFloat rmax, RtFloat zmin, RtFloat zmax, RtFloat thetamax, RtInt n,
                     RtToken tokens[], RtPointer params[]) {
    _array_to_v(n, tokens, params);
    void** l = _array_to_v_list();
    RiParaboloid(rmax, zmin, zmax, thetamax, FIRST_40_WORDS(l));
}

RtVoid RiDisk(RtFloat height, RtFloat radius, RtFloat thetamax, ...) {
    if (motion_guard()) return;
    draw_lattice(fill_disk(height, radius, thetamax, detail_level));
}

RtVoid RiDiskV(RtFloat height, RtFloat radius, RtFloat thetamax, RtInt n, RtToken tokens[],
               RtPointer params[]) {
    _array_to_v(n, tokens, params);
    void** l = _array_to_v_list();
    RiDisk(height, radius, thetamax, FIRST_40_WORDS(l));
}

RtVoid RiTorus(RtFloat majorrad, RtFloat minorrad, RtFloat phimin, RtFloat phimax, RtFloat thetamax,
               ...) {
    if (motion_guard()) return;
    if (left_out_before_filling(
            [=](RasterBox* box) { return torus_raster_box(majorrad, minorrad, box); })) {
        return;
    }
    draw_lattice(fill_torus(majorrad, minorrad, phimin, phimax, thetamax, detail_level));
}

RtVoid RiTorusV(RtFloat majorrad, RtFloat minorrad, RtFloat phimin, RtFloat phimax,
                RtFloat thetamax, RtInt n, RtToken tokens[], RtPointer params[]) {
    _array_to_v(n, tokens, params);
    void** l = _array_to_v_list();
    RiTorus(majorrad, minorrad, phimin, phimax, thetamax, FIRST_40_WORDS(l));
}
