// The window's culler: what it leaves out (lines sent again, points drawn)
// and what it never may (the other direction, anything after a forget, lines
// beyond its keys).
#include "preview/segment_cull.h"

#include <gtest/gtest.h>

#include <set>
#include <utility>
#include <vector>

namespace {

struct Line {
    short x1, y1, x2, y2;
};
struct Pixel {
    short x, y;
};

// Short lines drawn as the pixels nearest the line, one per step along the
// longer side (the culler takes whatever the server was seen to draw).
ShortLinePatterns stepped_patterns() {
    ShortLinePatterns patterns;
    const int reach = ShortLinePatterns::REACH;
    for (int dy = -reach; dy <= reach; ++dy) {
        for (int dx = -reach; dx <= reach; ++dx) {
            auto& pattern = patterns.of(dx, dy);
            const int steps = std::max(std::abs(dx), std::abs(dy));
            for (int k = 0; k <= steps; ++k) {
                pattern.dx[k] = static_cast<int8_t>(steps ? (dx * k * 2 + steps) / (2 * steps) : 0);
                pattern.dy[k] = static_cast<int8_t>(steps ? (dy * k * 2 + steps) / (2 * steps) : 0);
            }
            pattern.count = steps + 1;
        }
    }
    patterns.known = true;
    return patterns;
}

class CullerTest : public ::testing::Test {
  protected:
    // Culls the lines; returns the lines kept and sets points to the points.
    std::vector<Line> cull(std::vector<Line> lines) {
        std::vector<Pixel> room(lines.size() * ShortLinePatterns::MAX_PIXELS);
        Pixel* end = room.data();
        Line* kept = culler.cull(lines.data(), lines.data() + lines.size(), &end);
        points.assign(room.data(), end);
        return std::vector<Line>(lines.data(), kept);
    }
    std::set<std::pair<int, int>> point_set() const {
        std::set<std::pair<int, int>> out;
        for (const Pixel& p : points) out.insert({p.x, p.y});
        return out;
    }
    ShortLinePatterns patterns = stepped_patterns();
    WindowCuller culler{64, 48, patterns};
    std::vector<Pixel> points;
};

TEST_F(CullerTest, LongLinesAreLeftOutOnlyWhenSentTheSameWaySinceTheLastForget) {
    const Line line{0, 0, 20, 10}, back{20, 10, 0, 0}, far{7000, 5, 7020, 9};
    EXPECT_EQ(cull({line, line, back, far, far}).size(), 4u);  // one repeat left out
    EXPECT_EQ(cull({line, back}).size(), 0u);
    EXPECT_EQ(cull({far}).size(), 1u);  // beyond the keys: always sent
    culler.forget();
    EXPECT_EQ(cull({line}).size(), 1u);
    // The memory's epochs wrap round after 4095 forgets; nothing old comes back.
    for (int k = 0; k < 5000; ++k) culler.forget();
    EXPECT_EQ(cull({line}).size(), 1u);
}

TEST_F(CullerTest, ShortLinesBecomeTheirPointsNotYetDrawn) {
    EXPECT_TRUE(cull({{5, 5, 7, 6}}).empty());
    EXPECT_EQ(point_set(), (std::set<std::pair<int, int>>{{5, 5}, {6, 6}, {7, 6}}));
    // The same pixels again, either way round or as a point, send nothing.
    cull({{7, 6, 5, 5}, {6, 6, 6, 6}, {5, 5, 7, 6}});
    EXPECT_TRUE(points.empty());
    cull({{7, 6, 8, 6}});
    EXPECT_EQ(point_set(), (std::set<std::pair<int, int>>{{8, 6}}));
    // Pixels outside the pixmap are not sent.
    cull({{-1, 0, 1, 0}, {63, 47, 65, 49}});
    EXPECT_EQ(point_set(), (std::set<std::pair<int, int>>{{0, 0}, {1, 0}, {63, 47}}));
    culler.forget();
    cull({{5, 5, 5, 5}});
    EXPECT_EQ(point_set(), (std::set<std::pair<int, int>>{{5, 5}}));
}

TEST_F(CullerTest, ForgetClearsEveryPixelAfterManyMarks) {
    // More pixels than the list of marked words holds: the whole bitmap is
    // cleared then.
    std::vector<Line> all;
    for (short y = 0; y < 48; ++y) {
        for (short x = 0; x < 64; x += 2) all.push_back({x, y, short(x + 1), y});
    }
    cull(all);
    EXPECT_EQ(points.size(), 64u * 48u);
    culler.forget();
    cull(all);
    EXPECT_EQ(points.size(), 64u * 48u);
}

TEST_F(CullerTest, BoxDrawnOnlyWhenEveryPixelInsideThePixmapIs) {
    // A pixmap three words wide, so that boxes cross the words' edges.
    WindowCuller wide(150, 20, patterns);
    std::vector<Line> rows;
    for (short y = 2; y <= 9; ++y) {
        for (short x = 60; x <= 140; x += 2) rows.push_back({x, y, short(x + 1), y});
    }
    std::vector<Pixel> room(rows.size() * ShortLinePatterns::MAX_PIXELS);
    Pixel* end = room.data();
    wide.cull(rows.data(), rows.data() + rows.size(), &end);
    // Drawn: x 60..141, y 2..9.
    EXPECT_TRUE(wide.box_drawn(60, 2, 141, 9));
    EXPECT_TRUE(wide.box_drawn(63, 5, 64, 5));
    EXPECT_TRUE(wide.box_drawn(127, 3, 128, 3));
    EXPECT_FALSE(wide.box_drawn(59, 2, 141, 9));
    EXPECT_FALSE(wide.box_drawn(60, 1, 141, 9));
    EXPECT_FALSE(wide.box_drawn(60, 2, 142, 9));
    EXPECT_FALSE(wide.box_drawn(60, 2, 141, 10));
    // A pixel in the middle of a word taken away is missed.
    WindowCuller holed(150, 20, patterns);
    for (Line& row : rows) {
        if (row.y1 == 6 && row.x1 == 100) row = {60, 2, 60, 2};
    }
    end = room.data();
    holed.cull(rows.data(), rows.data() + rows.size(), &end);
    EXPECT_FALSE(holed.box_drawn(60, 2, 141, 9));
    EXPECT_TRUE(holed.box_drawn(102, 2, 141, 9));
    // Pixels outside the pixmap do not count; nothing drawn inside is asked.
    cull(std::vector<Line>(1, Line{0, 0, 1, 0}));
    EXPECT_TRUE(culler.box_drawn(-5, -3, 1, 0));
    EXPECT_TRUE(culler.box_drawn(70, 50, 90, 60));
    culler.forget();
    EXPECT_FALSE(culler.box_drawn(0, 0, 1, 0));
    // An unknown server's culler knows no pixel.
    EXPECT_FALSE(WindowCuller(64, 48, ShortLinePatterns()).box_drawn(70, 50, 90, 60));
}

TEST(WindowCullerUnknownServer, SendsEveryLineButRepeats) {
    ShortLinePatterns unknown;
    WindowCuller culler(64, 48, unknown);
    std::vector<Line> lines = {{1, 1, 2, 2}, {1, 1, 2, 2}, {3, 3, 3, 3}};
    Pixel room[16];
    Pixel* end = room;
    Line* kept = culler.cull(lines.data(), lines.data() + lines.size(), &end);
    EXPECT_EQ(kept - lines.data(), 2);
    EXPECT_EQ(end, room);
}

}  // namespace
