// ControlHull: a box of raster pixels that holds the raster point of every
// point blended from some control points with weights that are all >= 0 and
// sum to 1, found from the control points alone. A patch mesh seen from afar
// puts most of its patches on pixels already drawn; with this box such a
// patch is known drawn before its lattice is filled and projected.
//
// Why the box holds. A convex blend lies in the convex hull of its control
// points. The object and camera matrices are affine and keep hulls; the
// perspective division keeps them too while every control point lies in
// front of the eye; the screen mapping (a division by the pixel size, a
// ceiling, an offset) is monotone in each coordinate. So in exact arithmetic
// the raster point of a blend lies in the box of the control points' raster
// coordinates. The lattice and its projection are worked in single
// precision, which moves each point by a bounded amount: the box is widened
// by a bound of that, derived from the largest coordinate, the matrices and
// the nearest depth, and no box is given where the bound reaches half a
// pixel or a control point lies near the depth limits.
#ifndef TRACERY_PREVIEW_CONTROL_HULL_H
#define TRACERY_PREVIEW_CONTROL_HULL_H

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "preview/projection.h"

// The unit roundoff of single precision, in which lattices are made and
// projected.
constexpr double FLOAT_UNIT = 1.0 / (1 << 24);

class ControlHull {
  public:
    // Where some control points fall: the ranges of their screen
    // coordinates over the pixel size and of their camera depths, and their
    // largest screen and object coordinates (infinite when any of these is
    // not a finite number). Every figure is kept as a largest value, lows
    // negated, so that extents are joined by one run of maxima.
    struct Extent {
        enum Figure { LOW_X, LOW_Y, NEAREST, HIGH_X, HIGH_Y, FARTHEST, SCREEN, MAGNITUDE, FIGURES };
        double largest[FIGURES] = {-HUGE_VAL, -HUGE_VAL, -HUGE_VAL, -HUGE_VAL,
                                   -HUGE_VAL, -HUGE_VAL, 0.0,       0.0};
        void add(const Extent& e) {
            for (int k = 0; k < FIGURES; ++k) largest[k] = std::max(largest[k], e.largest[k]);
        }
        double low_x() const { return -largest[LOW_X]; }
        double low_y() const { return -largest[LOW_Y]; }
        double nearest() const { return -largest[NEAREST]; }
        double high_x() const { return largest[HIGH_X]; }
        double high_y() const { return largest[HIGH_Y]; }
        double farthest() const { return largest[FARTHEST]; }
        double screen() const { return largest[SCREEN]; }
        double magnitude() const { return largest[MAGNITUDE]; }
    };

    // excess: how far, in each coordinate and in units of the largest
    // coordinate of its control points, a blended point as the lattice makes
    // it may lie from their hull (the rounding of the blend, and weights
    // that do not sum to exactly 1).
    ControlHull(const ScreenProjection& projection, double excess);

    // The extents of count control points stored one after another (x, y,
    // z each), projected in double precision, into out; returns them joined.
    Extent extents(const float* points, size_t count, Extent* out) const;

    // The box for the blends of control points of the given extent; false
    // when none can be given: a point near the depth limits, or a rounding
    // bound of half a pixel or more.
    bool raster_box(const Extent& e, RasterBox* box) const;

  private:
    // What a matrix does to bounds: each output coordinate's sum of linear
    // magnitudes and its offset, and whether single precision rounds in it.
    struct MatrixBound {
        double linear[3] = {1.0, 1.0, 1.0}, offset[3] = {0.0, 0.0, 0.0};
        bool rounds = false;
        double norm() const;
        double terms(double magnitude) const;
    };
    static MatrixBound matrix_bound(const float (*m)[4]);
    double camera_error(double magnitude) const;
    Extent extent(const float* p) const;

    bool valid_;
    ScreenMapping mapping_;
    double excess_;
    double to_camera_[4][3];  // the object matrix, then the camera's
    MatrixBound object_bound_, camera_bound_;
    double inverse_xstep_, inverse_ystep_, inverse_pixel_;
};

// The raster box of every point of the object-space box from low to high,
// projected as lattice points and mesh vertices are: each such point is a
// convex blend of the box's eight corners, so a hull of the corners with no
// excess holds it. False when no box can be given.
bool object_box_raster_box(const float low[3], const float high[3], RasterBox* box);

#endif  // TRACERY_PREVIEW_CONTROL_HULL_H
