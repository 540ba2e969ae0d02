// The raster box of a patch's control points, and of a sphere's or torus's
// bounds, against the raster points of the lattice that fill_bicubic_patch,
// fill_sphere or fill_torus makes and ScreenProjection projects, both in
// single precision.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "drawing_fixture.h"
#include "preview/control_hull.h"
#include "preview/grid.h"
#include "preview/patches.h"
#include "preview/quadrics.h"

namespace {

class ControlHullTest : public DrawingTest {
  protected:
    // A camera turned about a slanted axis and moved off the view axis (the
    // fixture's camera is the identity).
    void turn_camera(float degrees) {
        Transformation* object = curxform;
        RiIdentity();
        RiTranslate(0.01f, -0.02f, 0.03f);
        RiRotate(degrees, 0.3f, 1.0f, 0.2f);
        renderer->camera = curxform;
        curxform = object;
    }

    // Whether the control points give a box; when they do, every drawn
    // raster point of their lattice must lie in it.
    bool box_holds_lattice(const std::vector<float>& control, const float basis[4][4], int step,
                           int n) {
        const ControlHull hull(ScreenProjection(), bicubic_hull_excess(basis, basis, n));
        ControlHull::Extent points[16];
        const ControlHull::Extent extent = hull.extents(control.data(), 16, points);
        RasterBox box;
        if (!hull.raster_box(extent, &box)) return false;
        fill_bicubic_patch({POSITION_P, control.data()}, basis, basis, step, step, n);
        expect_lattice_in({n, n}, box);
        return true;
    }

    // Every drawn raster point of the lattice in the grid lies in the box.
    static void expect_lattice_in(LatticeSize size, const RasterBox& box) {
        std::vector<float> lattice;
        for (int j = 0; j <= size.nv; ++j) {
            for (int i = 0; i <= size.nu; ++i) {
                lattice.insert(lattice.end(), grid[j][i], grid[j][i] + 3);
            }
        }
        std::vector<RasterPoint> raster(lattice.size() / 3);
        ScreenProjection().rasterize_points(lattice.data(), raster.size(), raster.data());
        for (const RasterPoint& p : raster) {
            if (!p.drawn) continue;
            EXPECT_TRUE(p.x >= box.x0 && p.x <= box.x1 && p.y >= box.y0 && p.y <= box.y1)
                << "(" << p.x << ", " << p.y << ") outside [" << box.x0 << ", " << box.x1 << "] x ["
                << box.y0 << ", " << box.y1 << "]";
        }
    }
};

// Random patches of every size, under both projections and turned cameras,
// in both convex bases at several densities; patches squeezed to one point
// whose screen coordinates are whole pixels, where only the rounding of the
// blend decides which pixel the ceiling gives; and patches thousands of
// units from the origin, moved back by the object transformation, where the
// rounding of single precision reaches tenths of a pixel.
TEST_F(ControlHullTest, BoxHoldsEveryRasterPointOfTheLattice) {
    std::mt19937 random(20261124);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    // Sixteen control points within size of a centre on whole pixels at
    // depth 4, moved offset along x.
    auto random_patch = [&](float offset, float size) {
        const float centre[3] = {offset + 4.0f * float(int(unit(random) * 64)) * PIXEL,
                                 4.0f * float(int(unit(random) * 64)) * PIXEL, 4.0f};
        std::vector<float> control;
        for (int k = 0; k < 48; ++k) control.push_back(centre[k % 3] + size * unit(random));
        return control;
    };
    const struct {
        const float (*basis)[4];
        int step;
    } bases[] = {{RiBezierBasis, 3}, {RiBSplineBasis, 1}};
    int boxes[2] = {0, 0}, patches[2] = {0, 0};  // near the origin, far from it
    for (int view = 0; view < 4; ++view) {
        renderer->projection = view & 1;
        if (view == 2) turn_camera(17.0f);
        for (int far = 0; far <= 1; ++far) {
            const float offset = far ? 6000.0f : 0.0f;
            RiIdentity();
            RiTranslate(-offset, 0, 0);
            for (const auto& b : bases) {
                for (int n : {1, 4, 7, GRID_CELLS_MAX}) {
                    for (float size : {0.0f, 1e-3f, 0.05f, 1.0f}) {
                        for (int trial = 0; trial < 8; ++trial) {
                            ++patches[far];
                            boxes[far] +=
                                box_holds_lattice(random_patch(offset, size), b.basis, b.step, n);
                        }
                    }
                }
            }
        }
    }
    // Near the origin the rounding never comes near half a pixel; far from
    // it, it often does, but not for the smaller patches.
    EXPECT_EQ(boxes[0], patches[0]);
    EXPECT_GT(boxes[1], patches[1] / 3);
}

// Spheres and tori of random radii (negative ones too) and sweeps, at
// random detail, under both projections and a turned camera, moved so that
// their centres fall on whole pixels or anywhere: every lattice point lies
// in the box found from the radii alone. Spheres of radius 0 are single
// points, where only rounding decides the pixel.
TEST_F(ControlHullTest, SphereAndTorusBoxesHoldTheirLattices) {
    std::mt19937 random(20261125);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    auto place = [&](bool on_pixel) {
        RiIdentity();
        const float x = on_pixel ? 4.0f * float(int(unit(random) * 64)) * PIXEL : unit(random);
        const float y = on_pixel ? 4.0f * float(int(unit(random) * 64)) * PIXEL : unit(random);
        RiTranslate(x, y, 4.0f + unit(random));
        RiRotate(180.0f * unit(random), unit(random), unit(random), 1.0f);
    };
    int boxes = 0, quadrics = 0;
    for (int view = 0; view < 3; ++view) {
        renderer->projection = view & 1;
        if (view == 2) turn_camera(23.0f);
        for (int trial = 0; trial < 200; ++trial) {
            const int detail = 1 + trial % 24;
            const float scale = (trial % 5 == 0) ? 0.0f : (trial % 5 == 1) ? 1e-3f : 0.8f;
            place(trial % 2 == 0);
            const float radius = scale * unit(random);
            RasterBox box;
            quadrics += 2;
            if (sphere_raster_box(radius, &box)) {
                ++boxes;
                expect_lattice_in(fill_sphere(radius, radius * unit(random), radius * unit(random),
                                              360.0f * unit(random), detail),
                                  box);
            }
            place(trial % 2 == 1);
            const float major = scale * unit(random), minor = scale * 0.5f * unit(random);
            if (torus_raster_box(major, minor, &box)) {
                ++boxes;
                expect_lattice_in(
                    fill_torus(major, minor, 360.0f * unit(random), 360.0f * unit(random),
                               360.0f * unit(random), std::max(1, detail / 2)),
                    box);
            }
        }
    }
    EXPECT_EQ(boxes, quadrics);  // all lie well in front of the eye

    // Tori seen square on, whose outermost point (major + minor, 0, 0) lies
    // a five-thousandth of a pixel past a pixel's edge: a box any narrower misses
    // its pixel.
    renderer->projection = 1;
    renderer->camera = nullptr;
    RiIdentity();
    RiTranslate(0.0f, 0.0f, 4.0f);
    for (int pixels = 1; pixels <= 40; ++pixels) {
        const float major = (float(pixels) * 0.75f + 0.0002f) * PIXEL;
        const float minor = float(pixels) * 0.25f * PIXEL;
        RasterBox box;
        ASSERT_TRUE(torus_raster_box(major, minor, &box));
        expect_lattice_in(fill_torus(major, minor, 0.0f, 360.0f, 360.0f, 4), box);
    }
}

// No box where the hull says nothing or the rounding is too coarse to bound
// within half a pixel: a control point behind the eye, coordinates of a
// million seen from close by; and no basis with negative weights is tried.
TEST_F(ControlHullTest, NoBoxWhereItCouldMiss) {
    renderer->projection = 0;
    std::vector<float> control(48, 0.0f);
    for (int k = 0; k < 16; ++k) control[3 * k + 2] = 4.0f;
    EXPECT_TRUE(box_holds_lattice(control, RiBSplineBasis, 1, 4));
    control[2] = -1.0f;
    EXPECT_FALSE(box_holds_lattice(control, RiBSplineBasis, 1, 4));

    RiTranslate(-1e6f, 0, 0);
    for (int k = 0; k < 16; ++k) control[3 * k] = 1e6f + 0.01f * float(k);
    control[2] = 4.0f;
    EXPECT_FALSE(box_holds_lattice(control, RiBSplineBasis, 1, 4));

    EXPECT_LT(bicubic_hull_excess(RiBSplineBasis, RiBezierBasis, GRID_CELLS_MAX), 1e-5);
    EXPECT_GT(bicubic_hull_excess(RiCatmullRomBasis, RiBezierBasis, 4), 0.01);
}

}  // namespace
