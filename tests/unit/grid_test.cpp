// The lattice drawer: the order of its segments, the object boundary, the
// refusal of lattices larger than the grid, and the diced-RIB dumps with
// their number text.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <sstream>
#include <string>

#include "driver/globals.h"
#include "drawing_fixture.h"
#include "preview/dump.h"
#include "preview/grid.h"

namespace {

const Segment OBJECT_END = {-1, -1, -1, -1};

// Fills rows 0..nv, columns 0..nu so that point (j, i) lands on raster
// (320 + 8i, 240 - 8j).
void fill_lattice(int nu, int nv) {
    for (int j = 0; j <= nv; ++j) {
        for (int i = 0; i <= nu; ++i) {
            grid[j][i][0] = i / 8.0f;
            grid[j][i][1] = j / 8.0f;
            grid[j][i][2] = 1.0f;
        }
    }
}

// The raster segment between lattice points (j0, i0) and (j1, i1).
Segment lattice_segment(int j0, int i0, int j1, int i1) {
    return {320 + 8 * i0, 240 - 8 * j0, 320 + 8 * i1, 240 - 8 * j1};
}

std::string ostream_text(float value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

class Grid : public DrawingTest {
  protected:
    void TearDown() override {
        dump_diced_rib = 0;
        DrawingTest::TearDown();
    }
    // Runs draw_object and returns what it printed.
    std::string dumped(int nu, int nv) {
        testing::internal::CaptureStdout();
        previewer()->draw_object(nu, nv);
        fflush(stdout);
        return testing::internal::GetCapturedStdout();
    }
};

}  // namespace

TEST_F(Grid, SingleRowIsOnePolyline) {
    fill_lattice(3, 0);
    previewer()->draw_object(3, 0);
    std::vector<Segment> expected = {lattice_segment(0, 0, 0, 1), lattice_segment(0, 1, 0, 2),
                                     lattice_segment(0, 2, 0, 3), OBJECT_END};
    EXPECT_EQ(segments, expected);
}

TEST_F(Grid, TwoByTwoLatticeInRowOrder) {
    fill_lattice(2, 2);
    previewer()->draw_object(2, 2);
    std::vector<Segment> expected = {
        // row 0: along the row and down from each point, then down the last column
        lattice_segment(0, 0, 0, 1), lattice_segment(0, 0, 1, 0), lattice_segment(0, 1, 0, 2),
        lattice_segment(0, 1, 1, 1), lattice_segment(0, 2, 1, 2),
        // row 1
        lattice_segment(1, 0, 1, 1), lattice_segment(1, 0, 2, 0), lattice_segment(1, 1, 1, 2),
        lattice_segment(1, 1, 2, 1), lattice_segment(1, 2, 2, 2),
        // the last row
        lattice_segment(2, 0, 2, 1), lattice_segment(2, 1, 2, 2), OBJECT_END};
    EXPECT_EQ(segments, expected);
}

TEST_F(Grid, SingleColumnDrawsOnlyColumnSegments) {
    fill_lattice(0, 2);
    previewer()->draw_object(0, 2);
    std::vector<Segment> expected = {lattice_segment(0, 0, 1, 0), lattice_segment(1, 0, 2, 0),
                                     OBJECT_END};
    EXPECT_EQ(segments, expected);
}

TEST_F(Grid, LargestLatticeDrawsAndLargerIsRefused) {
    fill_lattice(GRID_CELLS_MAX, 1);
    for (int i = 0; i <= GRID_CELLS_MAX; ++i) grid[0][i][0] = grid[1][i][0] = i / 64.0f;
    previewer()->draw_object(GRID_CELLS_MAX, 1);
    EXPECT_EQ(segments.size(), size_t(3 * GRID_CELLS_MAX + 1 + 1));
    EXPECT_EQ(capture.count(), 0u);
    segments.clear();
    previewer()->draw_object(GRID_CELLS_MAX + 1, 0);
    previewer()->draw_object(0, GRID_CELLS_MAX + 1);
    previewer()->draw_object(-1, 0);
    EXPECT_TRUE(segments.empty());
    ASSERT_EQ(capture.count(), 3u);
    EXPECT_EQ(capture.errors()[0].code, RIE_LIMIT);
    EXPECT_EQ(capture.errors()[0].severity, RIE_ERROR);
}

TEST_F(Grid, DumpRibPrintsQuadrilateralsInWorldSpace) {
    dump_diced_rib = 1;
    fill_lattice(2, 1);
    RiTranslate(1, 2, 3);
    EXPECT_EQ(dumped(2, 1),
              "Polygon \"P\" [1 2 4 1.125 2 4 1.125 2.125 4 1 2.125 4]\n"
              "Polygon \"P\" [1.125 2 4 1.25 2 4 1.25 2.125 4 1.125 2.125 4]\n");
    EXPECT_TRUE(segments.empty());
}

TEST_F(Grid, DumpTriPrintsTwoTrianglesPerCell) {
    dump_diced_rib = 2;
    fill_lattice(1, 1);
    RiScale(2, 2, 2);
    EXPECT_EQ(dumped(1, 1),
              "Polygon \"P\" [0 0 2 0.25 0 2 0 0.25 2]\n"
              "Polygon \"P\" [0.25 0 2 0.25 0.25 2 0 0.25 2]\n");
    EXPECT_TRUE(segments.empty());
}

TEST_F(Grid, DumpNumbersAreTheStandardStreamText) {
    const float values[] = {
        0.0f,     -0.0f,     1.0f,       -2.5f,      0.1f,
        1.0f / 3, 123456.0f, 1234567.0f, 1e-5f,      0.0001f,
        3.0e38f,  1e-40f,    999999.5f,  -7.25e-12f, std::numeric_limits<float>::infinity()};
    for (float v : values) {
        std::string text;
        append_dump_number(text, v);
        EXPECT_EQ(text, ostream_text(v)) << v;
    }
}

TEST_F(Grid, DumpPolygonLineHasNoSpaceInsideTheBrackets) {
    const float a[3] = {1, 2, 3}, b[3] = {4, 5, 6};
    const float* points[2] = {a, b};
    std::string text;
    append_dump_polygon(text, points, 2);
    EXPECT_EQ(text, "Polygon \"P\" [1 2 3 4 5 6]\n");
}
