// Tests of curve evaluation against an independent evaluation: the cubic
// curves drawn through a basis matrix, and the NURBS curves drawn by de
// Boor's algorithm, are compared with B-spline basis functions computed by
// the Cox-de Boor recursion (spline_reference.h).
#include <gtest/gtest.h>

#include <vector>

#include "preview/curves.h"
#include "spline_reference.h"
#include "ri/ri.h"

namespace {

void expect_point(const std::vector<float>& line, size_t index, const std::vector<double>& want) {
    ASSERT_LE(3 * index + 3, line.size());
    for (int k = 0; k < 3; k++) EXPECT_NEAR(line[3 * index + k], want[size_t(k)], 1e-4) << index;
}

const std::vector<float> kControl = {0, 0, 0, 1, 2, 0, 3, 2, 1, 4, -1,
                                     0, 6, 0, 2, 7, 3, 1, 9, 1, 0};  // seven points

TEST(CurvesTest, CubicBSplineMatchesCoxDeBoorOnUniformKnots) {
    const int steps = 5;
    std::vector<float> line;
    cubic_curve_polyline(kControl.data(), 3, 7, false, RiBSplineBasis, 1, steps, line);
    // Four segments, shared ends written once.
    ASSERT_EQ(line.size(), size_t(3 * (4 * steps + 1)));
    // The uniform cubic B-spline over seven points lives on u in [3, 7].
    const std::vector<double> knots = uniform_knots(11);
    for (int k = 0; k < 4 * steps; k++) {
        expect_point(line, size_t(k), spline_point(knots, 4, kControl, 3, 3.0 + k / double(steps)));
    }
}

TEST(CurvesTest, PeriodicBSplineWrapsItsControlPointsAndCloses) {
    const int steps = 4;
    const std::vector<float> square = {0, 0, 0, 2, 0, 0, 2, 2, 0, 0, 2, 0, -1, 1, 0};
    std::vector<float> line;
    cubic_curve_polyline(square.data(), 3, 5, true, RiBSplineBasis, 1, steps, line);
    ASSERT_EQ(line.size(), size_t(3 * (5 * steps + 1)));
    // The periodic curve is the open one over the points repeated: 0..4, 0, 1, 2.
    std::vector<float> wrapped = square;
    wrapped.insert(wrapped.end(), square.begin(), square.begin() + 9);
    const std::vector<double> knots = uniform_knots(12);
    for (int k = 0; k < 5 * steps; k++) {
        expect_point(line, size_t(k), spline_point(knots, 4, wrapped, 3, 3.0 + k / double(steps)));
    }
    for (int c = 0; c < 3; c++) EXPECT_NEAR(line[line.size() - 3 + c], line[size_t(c)], 1e-5);
}

TEST(CurvesTest, BezierCurveStepsThreeAndEndsOnItsControlPoints) {
    std::vector<float> line;
    cubic_curve_polyline(kControl.data(), 3, 7, false, RiBezierBasis, 3, 2, line);
    ASSERT_EQ(line.size(), size_t(3 * 5));
    expect_point(line, 0, {0, 0, 0});
    expect_point(line, 2, {4, -1, 0});  // control point 3 ends the first segment
    expect_point(line, 4, {9, 1, 0});
}

TEST(CurvesTest, SegmentAndVaryingCountsFollowTypeWrapAndStep) {
    EXPECT_EQ(curve_segments(true, false, 7, 1), 4);
    EXPECT_EQ(curve_varying(true, false, 7, 1), 5);
    EXPECT_EQ(curve_segments(true, false, 7, 3), 2);
    EXPECT_EQ(curve_varying(true, false, 7, 3), 3);
    EXPECT_EQ(curve_segments(true, true, 6, 3), 2);
    EXPECT_EQ(curve_varying(true, true, 6, 3), 2);
    EXPECT_EQ(curve_segments(false, false, 4, 3), 3);
    EXPECT_EQ(curve_varying(false, false, 4, 3), 4);
    EXPECT_EQ(curve_varying(false, true, 4, 3), 4);
    // Counts that do not fit.
    EXPECT_EQ(curve_segments(true, false, 6, 3), -1);
    EXPECT_EQ(curve_segments(true, false, 3, 1), -1);
    EXPECT_EQ(curve_segments(true, true, 7, 3), -1);
    EXPECT_EQ(curve_segments(false, false, 1, 1), -1);
    EXPECT_EQ(curve_segments(false, false, -5, 1), -1);
    // Steps per span: twice the detail, fewer for a huge request.
    EXPECT_EQ(curve_steps_per_span(4, 10), 8);
    EXPECT_EQ(curve_steps_per_span(4, CURVE_POINTS_MAX / 2), 2);
    EXPECT_EQ(curve_steps_per_span(32, CURVE_POINTS_MAX * 3), 1);
}

TEST(CurvesTest, RationalNurbsCurveMatchesCoxDeBoor) {
    // A quadratic curve of five homogeneous points over clamped, uneven knots.
    const std::vector<float> cps = {0, 0, 0, 1, 2, 4, 0, 2, 3, 0, 1, 1, 8, 2, 0, 2, 5, -1, 2, 1};
    const std::vector<float> knots = {0, 0, 0, 0.3f, 1.5f, 2, 2, 2};
    const std::vector<double> dknots(knots.begin(), knots.end());
    const NurbsCurve curve = {5, 3, knots.data(), 0.0f, 2.0f, cps.data(), 4};
    ASSERT_EQ(nurbs_curve_problem(curve), nullptr);
    for (double u : {0.0, 0.1, 0.3, 0.7, 1.2, 1.5, 1.99}) {
        float p[3];
        nurbs_curve_point(curve, float(u), p);
        const std::vector<double> want = spline_point(dknots, 3, cps, 4, u);
        for (int k = 0; k < 3; k++) EXPECT_NEAR(p[k], want[size_t(k)], 1e-4) << u;
    }
    // The top of the range is the last control point (clamped knots).
    float end[3];
    nurbs_curve_point(curve, 2.0f, end);
    EXPECT_NEAR(end[0], 5.0f, 1e-5);
    EXPECT_NEAR(end[1], -1.0f, 1e-5);
    // Three non-empty spans, steps lines each.
    std::vector<float> line;
    nurbs_curve_polyline(curve, 4, line);
    EXPECT_EQ(line.size(), size_t(3 * 13));
}

TEST(CurvesTest, InconsistentNurbsCurvesAreRefused) {
    const std::vector<float> cps(12, 1.0f);
    const std::vector<float> knots = {0, 0, 1, 1, 2, 3, 4};
    EXPECT_STREQ(nurbs_curve_problem({4, 1, knots.data(), 0, 1, cps.data(), 3}),
                 "order out of range");
    EXPECT_STREQ(nurbs_curve_problem({2, 3, knots.data(), 0, 1, cps.data(), 3}),
                 "fewer control points than its order");
    const std::vector<float> falling = {0, 0, 2, 1, 3, 3};
    EXPECT_STREQ(nurbs_curve_problem({4, 2, falling.data(), 0, 1, cps.data(), 3}),
                 "knots decrease");
    EXPECT_STREQ(nurbs_curve_problem({4, 2, knots.data(), 0, 5, cps.data(), 3}),
                 "range outside its knots");
}

}  // namespace
