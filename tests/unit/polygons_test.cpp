// Polygon outlines: the closing segment, the caller's positions left as
// given, indexed loops in the order given, and bad counts and indices.
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "drawing_fixture.h"
#include "preview/polygons.h"

namespace {

// Screen-plane positions of a raster pixel (orthographic, 1/64 a pixel).
constexpr float px(int pixels) {
    return pixels / 64.0f;
}

}  // namespace

using Polygons = DrawingTest;

TEST_F(Polygons, OutlineClosesBackToTheFirstVertexAndLeavesPositionsAlone) {
    float P[] = {px(0), px(0), 1, px(8), px(0), 1, px(8), px(8), 1};
    const float original[9] = {P[0], P[1], P[2], P[3], P[4], P[5], P[6], P[7], P[8]};
    draw_polygon(3, P);
    std::vector<Segment> expected = {
        {320, 240, 328, 240}, {328, 240, 328, 232}, {328, 232, 320, 240}};
    EXPECT_EQ(segments, expected);
    for (int k = 0; k < 9; ++k) EXPECT_EQ(P[k], original[k]);
}

TEST_F(Polygons, SingleVertexIsOnePointAndNoVertexNothing) {
    float P[] = {px(4), px(4), 1};
    draw_polygon(1, P);
    draw_polygon(0, P);
    draw_polygon(-3, P);
    ASSERT_EQ(segments.size(), 1u);
    EXPECT_EQ(segments[0], (Segment{324, 236, 324, 236}));
}

TEST_F(Polygons, IndexedPolygonsDrawSharedEdgesOncePerPolygon) {
    float P[] = {px(0), px(0), 1, px(8), px(0), 1, px(8), px(8), 1, px(0), px(8), 1};
    RtInt nverts[] = {3, 3};
    RtInt verts[] = {0, 1, 2, 0, 2, 3};
    draw_points_polygons(2, nverts, verts, P);
    std::vector<Segment> expected = {{320, 240, 328, 240}, {328, 240, 328, 232},
                                     {328, 232, 320, 240}, {320, 240, 328, 232},
                                     {328, 232, 320, 232}, {320, 232, 320, 240}};
    EXPECT_EQ(segments, expected);
}

TEST_F(Polygons, GeneralIndexedLoopsInTheOrderGiven) {
    float P[] = {px(0), px(0), 1, px(8), px(0), 1, px(8), px(8), 1, px(2), px(2), 1};
    RtInt nloops[] = {2};
    RtInt nverts[] = {3, 2};
    RtInt verts[] = {0, 1, 2, 3, 0};
    RtToken tokens[] = {RI_P};
    RtPointer params[] = {P};
    RiPointsGeneralPolygonsV(1, nloops, nverts, verts, 1, tokens, params);
    std::vector<Segment> expected = {{320, 240, 328, 240},
                                     {328, 240, 328, 232},
                                     {328, 232, 320, 240},
                                     {322, 238, 320, 240},
                                     {320, 240, 322, 238}};
    EXPECT_EQ(segments, expected);
}

TEST_F(Polygons, NegativeIndexSkipsThatPolygonOnly) {
    float P[] = {px(0), px(0), 1, px(8), px(0), 1};
    RtInt nverts[] = {2, 2};
    RtInt verts[] = {0, -1, 1, 0};
    draw_points_polygons(2, nverts, verts, P);
    std::vector<Segment> expected = {{328, 240, 320, 240}, {320, 240, 328, 240}};
    EXPECT_EQ(segments, expected);
}

TEST_F(Polygons, LastPositionsListWinsAndMissingOneIsReported) {
    float first[] = {px(1), px(1), 1}, last[] = {px(2), px(2), 1};
    RtToken tokens[] = {RI_P, RI_P};
    RtPointer params[] = {first, last};
    RiPolygonV(1, 2, tokens, params);
    ASSERT_EQ(segments.size(), 1u);
    EXPECT_EQ(segments[0], (Segment{322, 238, 322, 238}));
    RiPolygonV(1, 0, tokens, params);
    EXPECT_TRUE(only_report(RIE_MISSINGDATA, RIE_ERROR, "No \"P\" list found"));
}

// A mesh whose segments fill several of the batches the sinks are handed:
// every segment arrives, in polygon order, each vertex where its position
// says.
TEST_F(Polygons, LargeMeshArrivesWholeAndInOrder) {
    constexpr int SIDE = 61;  // 60 x 60 quadrilaterals, 14400 segments
    std::vector<float> P;
    for (int j = 0; j < SIDE; ++j) {
        for (int i = 0; i < SIDE; ++i) P.insert(P.end(), {px(i), px(j), 1});
    }
    std::vector<RtInt> nverts, verts;
    std::vector<Segment> expected;
    auto raster = [](int vertex) {
        return std::array<int, 2>{320 + vertex % SIDE, 240 - vertex / SIDE};
    };
    for (int j = 0; j + 1 < SIDE; ++j) {
        for (int i = 0; i + 1 < SIDE; ++i) {
            const RtInt quad[4] = {j * SIDE + i, j * SIDE + i + 1, (j + 1) * SIDE + i + 1,
                                   (j + 1) * SIDE + i};
            nverts.push_back(4);
            for (int k = 0; k < 4; ++k) {
                verts.push_back(quad[k]);
                auto a = raster(quad[k]), b = raster(quad[(k + 1) % 4]);
                expected.push_back({a[0], a[1], b[0], b[1]});
            }
        }
    }
    draw_points_polygons(int(nverts.size()), nverts.data(), verts.data(), P.data());
    EXPECT_EQ(segments, expected);
}

// Polygons naming few of many vertices have each of their own projected as
// they are drawn: the same segments, up to a negative count.
TEST_F(Polygons, FewIndicesIntoManyVerticesAndANegativeCount) {
    std::vector<float> P;
    for (int k = 0; k < 40; ++k) P.insert(P.end(), {px(k), px(2 * k), 1});
    RtInt nverts[] = {3, 2, -1, 3};
    RtInt verts[] = {39, 5, 20, 7, 7, 1, 2, 3};
    draw_points_polygons(4, nverts, verts, P.data());
    std::vector<Segment> expected = {{359, 162, 325, 230},
                                     {325, 230, 340, 200},
                                     {340, 200, 359, 162},
                                     {327, 226, 327, 226},
                                     {327, 226, 327, 226}};
    EXPECT_EQ(segments, expected);
}

// The indices of a polygon skipped for a negative index are never followed,
// however far they point (the sanitizer build catches a read past P).
TEST_F(Polygons, SkippedPolygonsIndicesAreNeverFollowed) {
    std::vector<float> P = {px(0), px(0), 1, px(4), px(0), 1, px(4), px(4), 1};
    RtInt nverts[] = {2, 3};
    RtInt verts[] = {-1, 5000000, 0, 1, 2};
    draw_points_polygons(2, nverts, verts, P.data());
    std::vector<Segment> expected = {
        {320, 240, 324, 240}, {324, 240, 324, 236}, {324, 236, 320, 240}};
    EXPECT_EQ(segments, expected);
}
