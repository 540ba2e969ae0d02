// Tests of what the subdivision meshes, curves, points and blobbies draw:
// the segments that reach the outputs, counted and placed.
#include <gtest/gtest.h>

#include <algorithm>

#include "drawing_fixture.h"
#include "preview/x11_previewer.h"
#include "spline_reference.h"

namespace {

class ModernDrawingTest : public DrawingTest {
  protected:
    // Segments drawn, object ends left out.
    size_t drawn() const {
        return size_t(std::count_if(segments.begin(), segments.end(),
                                    [](const Segment& s) { return s[0] >= 0; }));
    }
};

RtInt kCubeSizes[] = {4, 4, 4, 4, 4, 4};
RtInt kCubeFaces[] = {0, 1, 2, 3, 4, 7, 6, 5, 0, 4, 5, 1, 1, 5, 6, 2, 2, 6, 7, 3, 4, 0, 3, 7};
RtFloat kCubePoints[] = {-1, -1, 1, 1, -1, 1, 1, 1, 1, -1, 1, 1,
                         -1, -1, 3, 1, -1, 3, 1, 1, 3, -1, 1, 3};

TEST_F(ModernDrawingTest, RefinedCubeDrawsEachEdgeOnceAndLeavesTheHoleOut) {
    detail_level = 4;
    RtToken tags[] = {"hole"};
    RtInt nargs[] = {1, 0};
    RtInt hole[] = {1};
    RiSubdivisionMesh("catmull-clark", 6, kCubeSizes, kCubeFaces, 1, tags, nargs, hole, nullptr,
                      "P", kCubePoints, RI_NULL);
    // One level: 26 points, 24 quads, 48 edges; the hole's four quads take
    // the four edges inside the top face with them (a drawing face by face
    // would draw 80 segments).
    EXPECT_EQ(drawn(), 44u);
    EXPECT_EQ(capture.count(), 0u);
}

TEST_F(ModernDrawingTest, LinearCurvesArePolylinesAndPeriodicOnesClose) {
    RtFloat p[] = {0, 0, 1, 64 * PIXEL, 0, 1, 64 * PIXEL, 64 * PIXEL, 1};
    RtInt nv[] = {3};
    RiCurves("linear", 1, nv, "nonperiodic", "P", p, RI_NULL);
    EXPECT_EQ(segments, (std::vector<Segment>{{320, 240, 384, 240}, {384, 240, 384, 176}}));
    segments.clear();
    RiCurves("linear", 1, nv, "periodic", "P", p, RI_NULL);
    ASSERT_EQ(segments.size(), 3u);
    EXPECT_EQ(segments[2], (Segment{384, 176, 320, 240}));
}

TEST_F(ModernDrawingTest, CubicCurveDrawsTwiceTheDetailLinesPerSegment) {
    detail_level = 4;
    RtFloat p[] = {0, 0, 1, 1, 0, 1, 2, 1, 1, 3, 1, 1, 4, 0, 1, 5, 0, 1, 6, 1, 1};
    RtInt nv[] = {7};
    RiCurves("cubic", 1, nv, "nonperiodic", "P", p, RI_NULL);  // Bezier: two segments
    EXPECT_EQ(drawn(), 16u);
    EXPECT_EQ(segments.front()[0], 320);          // starts on the first control point
    EXPECT_EQ(segments.back()[2], 320 + 6 * 64);  // ends on the last
}

TEST_F(ModernDrawingTest, DrawnBSplineFollowsCoxDeBoorOnTheRaster) {
    detail_level = 4;  // eight lines a segment
    RiBasis(RiBSplineBasis, RI_BSPLINESTEP, RiBSplineBasis, RI_BSPLINESTEP);
    const std::vector<float> cps = {0, 0, 1, 1, 2, 1, 3, 2, 1, 4, -1, 1, 6, 0, 1, 7, 3, 1, 9, 1, 1};
    RtInt nv[] = {7};
    RiCurves("cubic", 1, nv, "nonperiodic", "P", cps.data(), RI_NULL);
    ASSERT_EQ(segments.size(), 32u);
    // The uniform cubic B-spline of seven points lives on u in [3, 7]; each
    // segment ends at u = 3 + (k + 1) / 8, mapped as the raster maps it.
    const std::vector<double> knots = uniform_knots(11);
    for (int k = 0; k < 32; k++) {
        const std::vector<double> p = spline_point(knots, 4, cps, 3, 3 + (k + 1) / 8.0);
        EXPECT_NEAR(segments[size_t(k)][2], 320 + p[0] / PIXEL, 1.0) << k;
        EXPECT_NEAR(segments[size_t(k)][3], 240 - p[1] / PIXEL, 1.0) << k;
    }
}

TEST_F(ModernDrawingTest, PointsAreSmallCrosses) {
    RtFloat p[] = {0, 0, 1, 64 * PIXEL, 0, 1, 0, 0, -5};
    RiPoints(3, "P", p, RI_NULL);
    // The third point is behind the eye: nothing.
    EXPECT_EQ(segments, (std::vector<Segment>{{318, 240, 322, 240},
                                              {320, 238, 320, 242},
                                              {382, 240, 386, 240},
                                              {384, 238, 384, 242}}));
}

TEST_F(ModernDrawingTest, InsideAMotionBlockOnlyTheFirstSampleIsDrawn) {
    RtFloat first[] = {0, 0, 1};
    RtFloat second[] = {64 * PIXEL, 0, 1};
    RiMotionBegin(2, 0.0, 1.0);
    RiPoints(1, "P", first, RI_NULL);
    RiPoints(1, "P", second, RI_NULL);
    RiMotionEnd();
    EXPECT_EQ(segments, (std::vector<Segment>{{318, 240, 322, 240}, {320, 238, 320, 242}}));
    EXPECT_EQ(capture.count(), 0u);
}

}  // namespace
