// The projection of points to the raster and the drawing of segments: the
// depth floor, the screen bound, the raster centre and truncation.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "drawing_fixture.h"
#include "preview/postscript.h"

using Projection = DrawingTest;

TEST_F(Projection, DepthFloorHoldsWhateverTheNearClippingDistance) {
    renderer->near_clip = 0.0f;
    for (int perspective = 0; perspective <= 1; ++perspective) {
        renderer->projection = perspective ? 0 : 1;
        EXPECT_EQ(project(0, 0, 0.1f)[2], 1.0f);
        EXPECT_EQ(project(0, 0, 0.0999f)[2], 0.0f);
        EXPECT_EQ(project(0, 0, -1)[2], 0.0f);
    }
}

TEST_F(Projection, ClippingDistancesReject) {
    renderer->near_clip = 2;
    renderer->far_clip = 4;
    EXPECT_EQ(project(0, 0, 1.9f)[2], 0.0f);
    EXPECT_EQ(project(0, 0, 3)[2], 1.0f);
    EXPECT_EQ(project(0, 0, 4.1f)[2], 0.0f);
}

TEST_F(Projection, ScreenBoundIsOnTheDividedValuesUnderPerspective) {
    renderer->projection = 0;
    xstep = ystep = 0.5f;
    EXPECT_EQ(project(21, 0, 2)[2], 0.0f);  // x / z = 10.5
    EXPECT_EQ(project(0, -21, 2)[2], 0.0f);
    EXPECT_EQ(project(20, -20, 2)[2], 1.0f);  // exactly 10 passes
    renderer->projection = 1;
    EXPECT_EQ(project(10.5f, 0, 2)[2], 0.0f);
    EXPECT_EQ(project(10, 10, 2)[2], 1.0f);
}

TEST_F(Projection, ViewAxisLandsOnTheIntegerHalvedRawResolution) {
    auto p = project(0, 0, 5);
    EXPECT_EQ(p[0], 320.0f);
    EXPECT_EQ(p[1], 240.0f);
    renderer->xres = 641;
    renderer->yres = 481;
    p = project(0, 0, 5);
    EXPECT_EQ(p[0], 320.0f);
    EXPECT_EQ(p[1], 240.0f);
}

TEST_F(Projection, RasterMappingRoundsUpAndFlipsY) {
    // 2.5 pixels right, 1.5 pixels up: ceil gives 3 and 2.
    auto p = project(2.5f * PIXEL, 1.5f * PIXEL, 1);
    EXPECT_EQ(p[0], 323.0f);
    EXPECT_EQ(p[1], 238.0f);
}

TEST_F(Projection, PerspectiveDividesByDepth) {
    renderer->projection = 0;
    auto p = project(8 * PIXEL, 4 * PIXEL, 2);
    EXPECT_EQ(p[0], 324.0f);
    EXPECT_EQ(p[1], 238.0f);
}

TEST_F(Projection, CurrentTransformationAndCameraApply) {
    RiTranslate(3 * PIXEL, 0, 0);  // object to world
    Transformation* object = curxform;
    RiIdentity();
    RiTranslate(0, 5 * PIXEL, 1);  // world to camera
    renderer->camera = curxform;
    curxform = object;
    auto p = project(0, 0, 1);
    EXPECT_EQ(p[0], 323.0f);
    EXPECT_EQ(p[1], 235.0f);
}

TEST_F(Projection, NotANumberIsInvisible) {
    EXPECT_EQ(project(NAN, 0, 1)[2], 0.0f);
    renderer->projection = 0;  // the divide carries a bad depth into x and y
    EXPECT_EQ(project(0, 0, NAN)[2], 0.0f);
}

TEST_F(Projection, SegmentNeedsBothEndsVisible) {
    float a[3] = {10, 20, 1}, b[3] = {30, 40, 0};
    previewer()->X11_draw_segment(a, b);
    previewer()->X11_draw_segment(b, a);
    EXPECT_TRUE(segments.empty());
    b[2] = 1;
    previewer()->X11_draw_segment(a, b);
    ASSERT_EQ(segments.size(), 1u);
    EXPECT_EQ(segments[0], (Segment{10, 20, 30, 40}));
}

TEST_F(Projection, HalfVisibleSegmentThroughToscreenDrawsNothing) {
    float a[3] = {0, 0, 5}, b[3] = {0.5f, 0, 0.05f};
    toscreen(a);
    toscreen(b);
    previewer()->X11_draw_segment(a, b);
    EXPECT_TRUE(segments.empty());
}

TEST_F(Projection, RasterCoordinatesAreTruncatedTowardZero) {
    float a[3] = {-0.7f, -1.9f, 1}, b[3] = {5.9f, 7.2f, 1};
    previewer()->X11_draw_segment(a, b);
    ASSERT_EQ(segments.size(), 1u);
    EXPECT_EQ(segments[0], (Segment{0, -1, 5, 7}));
}

TEST_F(Projection, UnrepresentableRasterCoordinatesAreNotDrawn) {
    float a[3] = {1e30f, 0, 1}, b[3] = {0, 0, 1}, c[3] = {INFINITY, 0, 1};
    previewer()->X11_draw_segment(a, b);
    previewer()->X11_draw_segment(b, c);
    EXPECT_TRUE(segments.empty());
}

TEST_F(Projection, PostScriptShiftsXAndFlipsYAgainstTheHeight) {
    char* text = nullptr;
    size_t size = 0;
    FILE* f = open_memstream(&text, &size);
    {
        PostScriptSink sink(f);
        sink.world_begin(640, 480);
        auto p = project(0, 0, 5);
        sink.segment(int(p[0]), int(p[1]), 0, 0);
        sink.object_end();
    }  // the sink writes the trailer and closes the stream
    EXPECT_EQ(std::string(text, size), "321 240 1 480 Li\nstroke\n\nstroke\nshowpage\n");
    free(text);
}

// Many points projected together come out bit for bit as each projected on
// its own: random points over a wide range of magnitudes, points on and
// half-way between pixel boundaries of either sign, and values that are not
// finite, under both projections, a rotated camera and object, clipping
// distances, and a pixel size that is not a power of two.
TEST_F(Projection, PointsProjectedTogetherEqualPointsProjectedAlone) {
    RiRotate(33, 1, 2, 3);
    RiTranslate(0.25f, -0.5f, 0.125f);
    Transformation* object = curxform;
    RiIdentity();
    RiRotate(-12, 0, 1, 0);
    RiTranslate(0, 0, 6);
    renderer->camera = curxform;
    curxform = object;
    renderer->far_clip = 40.0f;
    std::vector<float> points;
    uint32_t state = 12345;
    auto random_unit = [&state]() {
        state = state * 1664525u + 1013904223u;
        return float(state >> 8) / float(1 << 24);
    };
    for (int k = 0; k < 3000; ++k) {
        for (int c = 0; c < 3; ++c) {
            const float sign = random_unit() < 0.5f ? -1.0f : 1.0f;
            points.push_back(sign * std::pow(10.0f, 8.0f * random_unit() - 4.0f));
        }
    }
    for (int k = -40; k <= 40; ++k) {
        for (float half : {0.0f, 0.5f}) {
            points.insert(points.end(), {(k + half) * PIXEL, -(k + half) * PIXEL, 1.0f});
        }
    }
    const float odd[] = {NAN,
                         INFINITY,
                         -INFINITY,
                         1e30f,
                         -1e30f,
                         0.0f,
                         -0.0f,
                         0.1f,
                         0.5f,
                         40.0f,
                         std::nextafter(0.1f, 0.0f),
                         std::nextafter(0.5f, 0.0f),
                         std::nextafter(40.0f, 41.0f)};
    for (float a : odd) {
        for (float b : odd) points.insert(points.end(), {a, b, 1.0f, 0.0f, a, b, a, 1.0f, b});
    }
    // Without the transformations (and with no near clipping distance) the
    // odd values reach the depth tests as they are.
    Transformation* camera = renderer->camera;
    for (int moved = 0; moved <= 3; ++moved) {
        renderer->projection = moved & 1 ? 0 : 1;
        renderer->camera = moved & 2 ? camera : nullptr;
        curxform = moved & 2 ? object : nullptr;
        renderer->near_clip = moved & 2 ? 0.5f : 0.0f;
        // The smallest step puts visible points beyond the raster limit.
        // Runs cut short leave one, two and three points past the last four.
        for (float step : {PIXEL, 0.0031f, 1e-9f})
            for (size_t cut : {0, 1, 3}) {
                xstep = ystep = step;
                const size_t count = points.size() / 3 - cut;
                std::vector<float> together = points, alone = points;
                std::vector<RasterPoint> raster_together(count), raster_each(count);
                ScreenProjection().project_points(together.data(), count, raster_together.data());
                // Found through pointers, in another order.
                std::vector<float> scattered = points;
                std::vector<float*> each;
                for (size_t i = count; i > 0; --i) each.push_back(&scattered[3 * (i - 1)]);
                ScreenProjection().project_each(each.data(), each.size(), raster_each.data());
                // Raster points only, the points left alone.
                std::vector<float> untouched = points;
                std::vector<RasterPoint> raster_only(count);
                ScreenProjection().rasterize_points(untouched.data(), count, raster_only.data());
                ASSERT_EQ(memcmp(untouched.data(), points.data(), 4 * points.size()), 0);
                ASSERT_EQ(memcmp(scattered.data(), together.data(), 4 * together.size()), 0);
                // Points past the run are not written.
                ASSERT_EQ(memcmp(&together[3 * count], &points[3 * count], 12 * cut), 0);
                for (size_t i = 0; i < alone.size(); i += 3) toscreen(&alone[i]);
                for (size_t k = 0; k < count; ++k) {
                    ASSERT_EQ(memcmp(&together[3 * k], &alone[3 * k], 3 * sizeof(float)), 0)
                        << "point " << k << " (" << points[3 * k] << ", " << points[3 * k + 1]
                        << ", " << points[3 * k + 2] << ")";
                    const RasterPoint expected = raster_point(&alone[3 * k]);
                    for (const RasterPoint& r :
                         {raster_together[k], raster_each[count - 1 - k], raster_only[k]}) {
                        ASSERT_EQ(r.drawn, expected.drawn) << "point " << k;
                        ASSERT_EQ(r.x, expected.x) << "point " << k;
                        ASSERT_EQ(r.y, expected.y) << "point " << k;
                    }
                }
            }
    }
    curxform = object;
}
