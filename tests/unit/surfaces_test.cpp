// The lattices of quadrics, bicubic patches and NURBS surfaces, checked
// against evaluations made another way (implicit equations, de Casteljau,
// the recursive definition of B-spline basis functions), and the checks of
// NuPatch, PatchMesh and TrimCurve.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "preview/lattice.h"
#include "preview/nurbs.h"
#include "preview/patches.h"
#include "preview/quadrics.h"
#include "preview/trims.h"
#include "ri/attributes.h"
#include "ri/ri.h"
#include "state_fixture.h"

namespace {

double length(const float* p) {
    return std::sqrt(double(p[0]) * p[0] + double(p[1]) * p[1] + double(p[2]) * p[2]);
}

// ---- Quadrics ----

TEST(QuadricLattice, SphereSizesFollowDetailAndPointsLieOnTheRadius) {
    for (int d : {1, 4, 32}) {
        const LatticeSize size = fill_sphere(2.0f, -2.0f, 2.0f, 360.0f, d);
        EXPECT_EQ(size.nu, 2 * d);
        EXPECT_EQ(size.nv, d);
        for (int j = 0; j <= size.nv; ++j) {
            for (int i = 0; i <= size.nu; ++i) EXPECT_NEAR(length(grid[j][i]), 2.0, 1e-5);
        }
    }
    // Poles at rows 0 and D, the seam closes.
    fill_sphere(1.0f, -1.0f, 1.0f, 360.0f, 4);
    EXPECT_NEAR(grid[0][3][2], -1.0f, 1e-6);
    EXPECT_NEAR(grid[4][5][2], 1.0f, 1e-6);
    EXPECT_NEAR(grid[2][8][0], grid[2][0][0], 1e-5);
    EXPECT_NEAR(grid[2][8][1], grid[2][0][1], 1e-5);
}

TEST(QuadricLattice, PartialAndDegenerateSpheres) {
    fill_sphere(1.0f, 0.0f, 1.0f, 90.0f, 4);  // upper quarter
    for (int i = 0; i <= 8; ++i) {
        EXPECT_GE(grid[0][i][0], -1e-6f);
        EXPECT_GE(grid[0][i][1], -1e-6f);
        EXPECT_NEAR(grid[0][i][2], 0.0f, 1e-6);
    }
    // zmin beyond the radius: its angle is not a number, nor is the step
    // between parallels, so every point is (and is drawn invisible).
    fill_sphere(1.0f, -2.0f, 1.0f, 360.0f, 4);
    EXPECT_TRUE(std::isnan(grid[0][0][0]));
    EXPECT_TRUE(std::isnan(grid[4][3][2]));
    // thetamax 0: every column on one meridian.
    fill_sphere(1.0f, -1.0f, 1.0f, 0.0f, 4);
    for (int i = 0; i <= 8; ++i) EXPECT_EQ(grid[2][i][1], 0.0f);
}

TEST(QuadricLattice, TorusAtDetail32FillsTheWholeGrid) {
    const LatticeSize size = fill_torus(3.0f, 1.0f, 0.0f, 360.0f, 360.0f, 32);
    EXPECT_EQ(size.nu, 128);
    EXPECT_EQ(size.nv, 64);
    for (int j = 0; j <= size.nv; j += 7) {
        for (int i = 0; i <= size.nu; i += 5) {
            const float* p = grid[j][i];
            const double ring = std::hypot(p[0], p[1]) - 3.0;
            EXPECT_NEAR(ring * ring + double(p[2]) * p[2], 1.0, 1e-4);
        }
    }
}

TEST(QuadricLattice, OtherQuadricsMeetTheirEquations) {
    LatticeSize s = fill_cone(2.0f, 1.0f, 360.0f, 4);
    EXPECT_EQ(s.nu, 8);
    EXPECT_EQ(s.nv, 1);
    EXPECT_EQ(grid[1][5][2], 2.0f);  // apex
    EXPECT_EQ(grid[1][5][0], 0.0f);
    s = fill_cylinder(1.5f, -1.0f, 1.0f, 360.0f, 4);
    EXPECT_NEAR(std::hypot(grid[1][3][0], grid[1][3][1]), 1.5, 1e-6);
    EXPECT_EQ(grid[1][3][2], 1.0f);
    s = fill_paraboloid(1.0f, 0.0f, 4.0f, 360.0f, 4);
    EXPECT_EQ(s.nv, 4);
    for (int j = 0; j <= 4; ++j) {
        const float* p = grid[j][1];
        EXPECT_NEAR(double(p[0]) * p[0] + double(p[1]) * p[1], p[2] / 4.0, 1e-5);
    }
    s = fill_disk(0.5f, 1.0f, 360.0f, 4);
    EXPECT_EQ(grid[0][4][0], 0.0f);
    EXPECT_EQ(grid[1][4][2], 0.5f);
    const float p1[3] = {1, 0, -1}, p2[3] = {0, 1, 1};
    s = fill_hyperboloid(p1, p2, 360.0f, 1);
    EXPECT_EQ(s.nv, 1);  // D / 2 at least 1
    // Every point of a row keeps the distance of its generator point from the axis.
    for (int i = 0; i <= s.nu; ++i)
        EXPECT_NEAR(std::hypot(grid[1][i][0], grid[1][i][1]), 1.0, 1e-6);
}

// ---- Bicubic patches ----

// De Casteljau on the 4 x 4 Bezier control points, in double.
void de_casteljau(const float* cp, double u, double v, double out[3]) {
    double rows[4][3];
    for (int r = 0; r < 4; ++r) {
        double pts[4][3];
        for (int c = 0; c < 4; ++c)
            for (int k = 0; k < 3; ++k) pts[c][k] = cp[(4 * r + c) * 3 + k];
        for (int level = 3; level > 0; --level)
            for (int c = 0; c < level; ++c)
                for (int k = 0; k < 3; ++k) pts[c][k] = (1 - u) * pts[c][k] + u * pts[c + 1][k];
        for (int k = 0; k < 3; ++k) rows[r][k] = pts[0][k];
    }
    for (int level = 3; level > 0; --level)
        for (int r = 0; r < level; ++r)
            for (int k = 0; k < 3; ++k) rows[r][k] = (1 - v) * rows[r][k] + v * rows[r + 1][k];
    for (int k = 0; k < 3; ++k) out[k] = rows[0][k];
}

std::vector<float> wavy_control_points() {
    std::vector<float> cp;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) {
            cp.push_back(float(c));
            cp.push_back(float(r) + 0.25f * c);
            cp.push_back(std::sin(float(r * 4 + c)));
        }
    return cp;
}

TEST(BicubicPatch, BezierLatticeMatchesDeCasteljauAndCornersAreControlPoints) {
    const std::vector<float> cp = wavy_control_points();
    fill_bicubic_patch({POSITION_P, cp.data()}, RiBezierBasis, RiBezierBasis, 3, 3, 4);
    for (int j = 0; j <= 4; ++j)
        for (int i = 0; i <= 4; ++i) {
            double expect[3];
            de_casteljau(cp.data(), i / 4.0, j / 4.0, expect);
            for (int k = 0; k < 3; ++k) EXPECT_NEAR(grid[j][i][k], expect[k], 1e-5);
        }
    const int corners[4][3] = {{0, 0, 0}, {0, 4, 3}, {4, 0, 12}, {4, 4, 15}};
    for (const auto& c : corners)
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(grid[c[0]][c[1]][k], cp[c[2] * 3 + k], 1e-6);
}

TEST(BicubicPatch, FlatBezierGridHasItsCentreAtOneAndAHalf) {
    std::vector<float> cp;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) cp.insert(cp.end(), {float(c), float(r), 0.0f});
    fill_bicubic_patch({POSITION_P, cp.data()}, RiBezierBasis, RiBezierBasis, 3, 3, 2);
    EXPECT_NEAR(grid[1][1][0], 1.5f, 1e-6);
    EXPECT_NEAR(grid[1][1][1], 1.5f, 1e-6);
}

TEST(BicubicPatch, BSplineLatticeMatchesTheUniformBlendingFunctions) {
    const std::vector<float> cp = wavy_control_points();
    fill_bicubic_patch({POSITION_P, cp.data()}, RiBSplineBasis, RiBSplineBasis, 1, 1, 4);
    auto blend = [](double t, int k) {
        const double s = 1 - t;
        const double b[4] = {s * s * s / 6, (3 * t * t * t - 6 * t * t + 4) / 6,
                             (-3 * t * t * t + 3 * t * t + 3 * t + 1) / 6, t * t * t / 6};
        return b[k];
    };
    for (int j = 0; j <= 4; ++j)
        for (int i = 0; i <= 4; ++i)
            for (int k = 0; k < 3; ++k) {
                double sum = 0;
                for (int r = 0; r < 4; ++r)
                    for (int c = 0; c < 4; ++c)
                        sum += blend(j / 4.0, r) * blend(i / 4.0, c) * cp[(4 * r + c) * 3 + k];
                EXPECT_NEAR(grid[j][i][k], sum, 1e-5);
            }
}

TEST(BicubicPatch, RationalPatchIsDividedBilinearIsNot) {
    std::vector<float> cp;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) cp.insert(cp.end(), {2.0f * c, 2.0f * r, 2.0f, 2.0f});
    fill_bicubic_patch({POSITION_PW, cp.data()}, RiBezierBasis, RiBezierBasis, 3, 3, 1);
    EXPECT_NEAR(grid[1][1][0], 3.0f, 1e-6);
    EXPECT_NEAR(grid[1][1][2], 1.0f, 1e-6);
    fill_bilinear_patch({POSITION_PW, cp.data()});
    EXPECT_EQ(grid[0][1][0], 2.0f);
    EXPECT_EQ(grid[0][1][2], 2.0f);
}

TEST(BicubicPatch, HeightFieldsArePlacedByTheirMeshIndex) {
    const float z[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    mesh_place = {1, 2, 0, 1};
    fill_bilinear_patch({POSITION_PZ, z});
    EXPECT_EQ(grid[0][0][0], 0.5f);
    EXPECT_EQ(grid[1][1][0], 1.0f);
    EXPECT_EQ(grid[1][1][1], 1.0f);
    EXPECT_EQ(grid[0][2][0], 1.0f);  // height 1 kept beside the drawn cell
    EXPECT_EQ(grid[1][2][0], 3.0f);
    mesh_place = {0, 1, 0, 1};
}

TEST(BicubicPatch, PositionNamesIncludingInlineDeclarations) {
    EXPECT_EQ(position_kind("P"), POSITION_P);
    EXPECT_EQ(position_kind("vertex hpoint Pw"), POSITION_PW);
    EXPECT_EQ(position_kind("Pz"), POSITION_PZ);
    EXPECT_EQ(position_kind("vertex point Pref"), POSITION_NONE);
}

// ---- NURBS ----

// The recursive definition of the basis function N(i, k) at t (order k).
double cox_de_boor(const std::vector<float>& knot, int i, int k, double t) {
    if (k == 1) return knot[i] <= t && t < knot[i + 1] ? 1.0 : 0.0;
    double a = 0, b = 0;
    if (knot[i + k - 1] > knot[i])
        a = (t - knot[i]) / (knot[i + k - 1] - knot[i]) * cox_de_boor(knot, i, k - 1, t);
    if (knot[i + k] > knot[i + 1])
        b = (knot[i + k] - t) / (knot[i + k] - knot[i + 1]) * cox_de_boor(knot, i + 1, k - 1, t);
    return a + b;
}

TEST(NurbsSurface, CubicWithInteriorKnotsMatchesTheRecursiveDefinition) {
    const std::vector<float> uknot = {0, 0, 0, 0, 0.3f, 0.6f, 1, 1, 1, 1};  // 6 points, order 4
    const std::vector<float> vknot = {0, 0, 0, 0.5f, 1, 1, 1};              // 4 points, order 3
    std::vector<float> cp;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 6; ++c)
            cp.insert(cp.end(), {float(c), float(r), std::cos(float(c * r))});
    NurbsSurface s{
        {6, 4, uknot.data(), 0.1f, 0.95f}, {4, 3, vknot.data(), 0.0f, 1.0f}, cp.data(), false};
    int nu = 0, nv = 0;
    fill_nurbs_lattice(s, &nu, &nv);
    float up[GRID_POINTS], vp[GRID_POINTS];
    int spans[GRID_POINTS];
    ASSERT_EQ(parameter_lattice(s.u, SURFACE_CELLS_PER_SPAN, up, spans), nu);
    ASSERT_EQ(parameter_lattice(s.v, SURFACE_CELLS_PER_SPAN, vp, spans), nv);
    for (int j = 0; j <= nv; ++j)
        for (int i = 0; i <= nu; ++i) {
            // The recursive definition is zero at the top end; evaluate just below it.
            const double u = std::min<double>(up[i], 1 - 1e-9),
                         v = std::min<double>(vp[j], 1 - 1e-9);
            for (int k = 0; k < 3; ++k) {
                double sum = 0;
                for (int r = 0; r < 4; ++r)
                    for (int c = 0; c < 6; ++c)
                        sum += cox_de_boor(vknot, r, 3, v) * cox_de_boor(uknot, c, 4, u) *
                               cp[(r * 6 + c) * 3 + k];
                EXPECT_NEAR(grid[j][i][k], sum, 2e-5) << i << " " << j << " " << k;
            }
        }
}

TEST(NurbsSurface, RationalCylinderPointsLieOnTheRadius) {
    // A quarter circle of radius 2 as a rational quadratic in u, straight in v.
    const float h = std::sqrt(0.5f);
    const float circle[3][3] = {{2, 0, 1}, {2 * h, 2 * h, h}, {0, 2, 1}};  // x w, y w, w
    std::vector<float> cp;
    for (int r = 0; r < 2; ++r)
        for (const auto& c : circle) cp.insert(cp.end(), {c[0], c[1], float(r) * c[2], c[2]});
    const std::vector<float> uknot = {0, 0, 0, 1, 1, 1}, vknot = {0, 0, 1, 1};
    NurbsSurface s{{3, 3, uknot.data(), 0, 1}, {2, 2, vknot.data(), 0, 1}, cp.data(), true};
    int nu = 0, nv = 0;
    fill_nurbs_lattice(s, &nu, &nv);
    EXPECT_EQ(nu, 2);
    for (int j = 0; j <= nv; ++j)
        for (int i = 0; i <= nu; ++i)
            EXPECT_NEAR(std::hypot(grid[j][i][0], grid[j][i][1]), 2.0, 1e-5);
    EXPECT_NEAR(grid[nv][0][2], 1.0f, 1e-6);
}

TEST(NurbsLattice, TwoCellsPerSpanReachingBothEnds) {
    const std::vector<float> knot = {0, 0, 1, 1,
                                     2, 3, 3};  // order 2, 5 points: spans 0-1, 1-2, 2-3
    float params[GRID_POINTS];
    int spans[GRID_POINTS];
    KnotDirection d = {5, 2, knot.data(), 0.5f, 3.0f};
    const int cells = parameter_lattice(d, SURFACE_CELLS_PER_SPAN, params, spans);
    EXPECT_EQ(cells, 6);
    const float expect[7] = {0.5f, 0.75f, 1.0f, 1.5f, 2.0f, 2.5f, 3.0f};
    for (int k = 0; k <= cells; ++k) EXPECT_FLOAT_EQ(params[k], expect[k]);
    EXPECT_EQ(spans[6], 4);  // the top end on the last non-empty span
}

TEST(NurbsLattice, ManySpansAreCappedAtTheGrid) {
    std::vector<float> knot;
    for (int i = 0; i < 302; ++i) knot.push_back(float(i));  // order 2, 300 points
    float params[GRID_POINTS];
    int spans[GRID_POINTS];
    KnotDirection d = {300, 2, knot.data(), 1.0f, 300.0f};
    EXPECT_EQ(parameter_lattice(d, SURFACE_CELLS_PER_SPAN, params, spans), GRID_CELLS_MAX);
    EXPECT_EQ(params[0], 1.0f);
    EXPECT_EQ(params[GRID_CELLS_MAX], 300.0f);
    d.min = 200.0f;  // 100 spans: one cell each
    EXPECT_EQ(parameter_lattice(d, SURFACE_CELLS_PER_SPAN, params, spans), 100);
}

class SurfaceRequests : public InterfaceStateTest {
  protected:
    void SetUp() override {
        InterfaceStateTest::SetUp();
        RiBegin(RI_NULL);
    }
};

TEST_F(SurfaceRequests, NuPatchConsistencyErrorsAreReported) {
    float knot[] = {0, 0, 1, 1, 2};
    float p[12] = {};
    RiNuPatch(2, 3, knot, 0, 1, 2, 2, knot, 0, 1, "P", p, RI_NULL);
    EXPECT_TRUE(only_report(RIE_CONSISTENCY, RIE_ERROR,
                            "NuPatch: u order 3 is greater than its 2 control points"));
    capture.clear();
    float falling[] = {0, 1, 0, 1};
    RiNuPatch(2, 2, knot, 0, 1, 2, 2, falling, 0, 1, "P", p, RI_NULL);
    EXPECT_TRUE(only_report(RIE_CONSISTENCY, RIE_ERROR,
                            "NuPatch: v knot 2 (0) is less than the one before (1)"));
    capture.clear();
    RiNuPatch(2, 2, knot, 0.5f, 0.5f, 2, 2, knot, 0, 1, "P", p, RI_NULL);
    EXPECT_TRUE(only_report(RIE_RANGE, RIE_ERROR,
                            "NuPatch: u range [0.5, 0.5] is not a non-empty part of [0, 1]"));
    capture.clear();
    RiNuPatch(2, 2, knot, 0, 1, 2, 2, knot, 0, 1, RI_NULL);
    EXPECT_TRUE(only_report(RIE_MISSINGDATA, RIE_ERROR, "No \"P\" list found"));
}

TEST_F(SurfaceRequests, PatchMeshWithABadCountIsReported) {
    float p[5 * 4 * 3] = {};
    RiPatchMesh(RI_BICUBIC, 5, RI_NONPERIODIC, 4, RI_NONPERIODIC, "P", p, RI_NULL);
    EXPECT_TRUE(only_report(RIE_CONSISTENCY, RIE_ERROR,
                            "PatchMesh: nu 5 does not make whole nonperiodic bicubic patches "
                            "with step 3"));
    capture.clear();
    RiPatchMesh(RI_BILINEAR, 1, RI_PERIODIC, 4, RI_NONPERIODIC, "P", p, RI_NULL);
    EXPECT_TRUE(only_report(RIE_CONSISTENCY, RIE_ERROR,
                            "PatchMesh: nu 1 does not make whole periodic bilinear patches"));
}

TEST_F(SurfaceRequests, TrimCurveIsKeptWithTheAttributesOfItsScope) {
    int ncurves[] = {1}, order[] = {2}, n[] = {2};
    float knot[] = {0, 0, 1, 1}, mn[] = {0}, mx[] = {1}, u[] = {0.2f, 0.8f}, v[] = {0.5f, 0.5f},
          w[] = {1, 1};
    RiAttributeBegin();
    RiTrimCurve(1, ncurves, order, knot, mn, mx, n, u, v, w);
    ASSERT_NE(renderer->gstate->trim_loops, nullptr);
    EXPECT_EQ(renderer->gstate->trim_loops->ncurves_total, 1);
    EXPECT_EQ(renderer->gstate->trim_loops->u[1], 0.8f);
    RiAttributeBegin();
    EXPECT_NE(renderer->gstate->trim_loops, nullptr);  // inherited
    RiAttributeEnd();
    RiAttributeEnd();
    EXPECT_EQ(renderer->gstate->trim_loops, nullptr);
    EXPECT_EQ(capture.count(), 0u);
    // An inconsistent curve is reported and not kept.
    float bad_knot[] = {0, 1, 0, 1};
    RiTrimCurve(1, ncurves, order, bad_knot, mn, mx, n, u, v, w);
    EXPECT_TRUE(only_report(RIE_CONSISTENCY, RIE_ERROR,
                            "TrimCurve: curve 0 knot 2 (0) is less than the one before (1)"));
    EXPECT_EQ(renderer->gstate->trim_loops, nullptr);
}

}  // namespace
