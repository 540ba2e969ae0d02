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

// The pixel nearest the line at each step along its longer side, computed in
// exact fractions, halves rounding toward larger coordinates: at a tie (a
// half exactly) the other candidate is the one a pixel lower across.
struct Step {
    int x, y;
    bool tie;
};
std::vector<Step> nearest_steps(int x0, int y0, int x1, int y1) {
    const int dx = x1 - x0, dy = y1 - y0;
    const bool x_major = std::abs(dx) >= std::abs(dy);
    const int steps = std::max(std::abs(dx), std::abs(dy));
    std::vector<Step> out;
    for (int i = 0; i <= steps; ++i) {
        // Across = i * d_minor / steps, rounded to nearest, halves upward.
        const long num = long(i) * (x_major ? dy : dx), den = steps;
        const long twice = 2 * num + den;  // floor((2 num + den) / (2 den))
        long q = twice >= 0 ? twice / (2 * den) : -((-twice + 2 * den - 1) / (2 * den));
        const bool tie = (2 * num) % (2 * den) != 0 && std::abs((2 * num) % (2 * den)) == den;
        const int along = x_major ? (dx < 0 ? -i : i) : (dy < 0 ? -i : i);
        out.push_back(x_major ? Step{x0 + along, y0 + int(q), tie}
                              : Step{x0 + int(q), y0 + along, tie});
    }
    return out;
}

TEST(NearestPixels, WalkMeetsExactFractionsInEveryOctantAndClipsToThePixmap) {
    const int ends[][2] = {{40, 20},  {-40, 20}, {40, -20},  {-40, -20}, {20, 40},
                           {-20, 40}, {20, -40}, {-20, -40}, {47, 23},   {-13, 48},
                           {130, 37}, {9, 0},    {0, -9}};
    for (const auto& end : ends) {
        const int x0 = 60, y0 = 70;
        // Each step's candidates, the lower first: one pixel, or a tie's two.
        using Candidates = std::set<std::pair<int, int>>;
        std::vector<Candidates> walked, expected;
        walk_nearest_pixels(x0, y0, x0 + end[0], y0 + end[1], 300, 300,
                            [&](int x, int y, int ox, int oy) {
                                walked.push_back({{x, y}, {ox, oy}});
                                return true;
                            });
        const bool x_major = std::abs(end[0]) >= std::abs(end[1]);
        for (const Step& s : nearest_steps(x0, y0, x0 + end[0], y0 + end[1])) {
            expected.push_back({{s.x, s.y}});
            if (s.tie) expected.back().insert({s.x - !x_major, s.y - x_major});
        }
        EXPECT_EQ(walked, expected) << end[0] << " " << end[1];
    }
    // Only the steps whose longer-side coordinate is inside are walked, with
    // the pixels they have on the whole line.
    const std::vector<Step> whole = nearest_steps(-50, 10, 90, 45);
    std::vector<Step> clipped;
    walk_nearest_pixels(-50, 10, 90, 45, 64, 48, [&](int x, int y, int, int) {
        clipped.push_back({x, y, false});
        return true;
    });
    ASSERT_EQ(clipped.size(), 64u);
    EXPECT_EQ(clipped.front().x, 0);
    EXPECT_EQ(clipped.front().y, whole[50].y);
    EXPECT_EQ(clipped.back().y, whole[113].y);
}

TEST(NearestPixels, ProbeAcceptsEitherTieAndRejectsOtherLines) {
    const int dx = 48, dy = -23;  // ties at every other step
    for (int up = 0; up < 2; ++up) {
        std::set<std::pair<int, int>> drawn;
        for (const Step& s : nearest_steps(0, 0, dx, dy)) drawn.insert({s.x, s.y - (s.tie && up)});
        auto at = [&](int x, int y) { return drawn.count({x, y}) > 0; };
        EXPECT_TRUE(drawn_as_nearest(dx, dy, long(drawn.size()), at));
        // A stray pixel anywhere (counted, not on the line) is refused.
        EXPECT_FALSE(drawn_as_nearest(dx, dy, long(drawn.size()) + 1, at));
        // So is a line without its last end, or with one pixel moved across.
        std::set<std::pair<int, int>> short_end = drawn, moved = drawn;
        short_end.erase({dx, dy});
        moved.erase({10, nearest_steps(0, 0, dx, dy)[10].y});
        moved.insert({10, nearest_steps(0, 0, dx, dy)[10].y + 1});
        EXPECT_FALSE(drawn_as_nearest(dx, dy, long(short_end.size()), [&](int x, int y) {
            return short_end.count({x, y}) > 0;
        }));
        EXPECT_FALSE(drawn_as_nearest(dx, dy, long(moved.size()), [&](int x, int y) {
            return moved.count({x, y}) > 0;
        }));
    }
}

// A culler of a 200 x 120 pixmap whose server draws long lines nearest, after
// enough long lines in one foreground (far below the place tested) that
// their pixels are known.
class KnownLongLinesTest : public CullerTest {
  protected:
    void SetUp() override {
        send_long_lines_below();
        ASSERT_TRUE(wide.long_lines_untested());
        wide.long_lines_tested(true);
    }
    void send_long_lines_below() {
        std::vector<Line> lines;
        for (size_t k = 0; k < WindowCuller::LONG_LINES_BEFORE_KNOWING; ++k) {
            const short x = short(k % 64), y = short(80 + k / 64 % 40);
            lines.push_back({x, y, short(x + 10 + k / 2560), y});
        }
        EXPECT_EQ(cull_wide(lines).size(), lines.size());
    }
    std::vector<Line> cull_wide(std::vector<Line> lines) {
        std::vector<Pixel> room(lines.size() * ShortLinePatterns::MAX_PIXELS);
        Pixel* end = room.data();
        Line* kept = wide.cull(lines.data(), lines.data() + lines.size(), &end);
        return std::vector<Line>(lines.data(), kept);
    }
    WindowCuller wide{200, 120, patterns};
};

TEST_F(KnownLongLinesTest, MarksTheCertainPixelsAndLeavesOutLinesOverThem) {
    // Sent, since nothing is marked there: its pixels, but not the two
    // candidates of each tie, become known.
    const Line line{10, 10, 50, 30};
    EXPECT_EQ(cull_wide({line}).size(), 1u);
    std::set<std::pair<int, int>> certain;
    for (const Step& s : nearest_steps(10, 10, 50, 30)) {
        if (!s.tie) certain.insert({s.x, s.y});
    }
    for (int y = 0; y < 45; ++y) {
        for (int x = 0; x < 70; ++x) {
            EXPECT_EQ(wide.box_drawn(x, y, x, y), certain.count({x, y}) > 0) << x << "," << y;
        }
    }
    // The other way round, with one candidate of each tie drawn (as points),
    // it may still draw the other: kept.
    std::vector<Line> one_of_each_tie;
    for (const Step& s : nearest_steps(10, 10, 50, 30)) {
        if (s.tie)
            one_of_each_tie.push_back({short(s.x), short(s.y - 1), short(s.x), short(s.y - 1)});
    }
    cull_wide(one_of_each_tie);
    const Line back{50, 30, 10, 10};
    EXPECT_EQ(cull_wide({back}).size(), 1u);
    // Rows drawn over the whole place: every candidate is known then, and the
    // line is left out, as is one reaching out of the pixmap over them.
    // Row 20 has a hole at x = 100, which tall boxes (asked band by band)
    // must not miss.
    std::vector<Line> rows;
    for (short y = 0; y <= 47; ++y) {
        if (y == 20) {
            rows.push_back({0, y, 99, y});
            rows.push_back({101, y, 199, y});
        } else {
            rows.push_back({0, y, 199, y});
        }
    }
    cull_wide(rows);
    EXPECT_FALSE(wide.box_drawn(0, 0, 199, 47));
    EXPECT_FALSE(wide.box_drawn(100, 3, 100, 44));
    EXPECT_TRUE(wide.box_drawn(0, 0, 99, 47));
    EXPECT_TRUE(wide.box_drawn(101, 3, 199, 44));
    EXPECT_FALSE(wide.box_drawn(101, 3, 199, 48));
    EXPECT_TRUE(cull_wide({back, {-300, 20, 150, 25}}).empty());
    EXPECT_EQ(cull_wide({{10, 50, 60, 41}}).size(), 1u);  // partly below the rows
    // After a forget nothing is known, nor are long lines marked until many
    // have been sent again.
    wide.forget();
    EXPECT_EQ(cull_wide({back}).size(), 1u);
    EXPECT_FALSE(wide.box_drawn(10, 10, 10, 10));
}

TEST_F(KnownLongLinesTest, ALineKnownDrawnIsKnownDrawnTheOtherWayRound) {
    // Every candidate of the line drawn as points, and nothing else.
    std::vector<Line> points;
    for (const Step& s : nearest_steps(20, 5, 60, 25)) {
        points.push_back({short(s.x), short(s.y), short(s.x), short(s.y)});
        if (s.tie) points.push_back({short(s.x), short(s.y - 1), short(s.x), short(s.y - 1)});
    }
    cull_wide(points);
    EXPECT_TRUE(cull_wide({{20, 5, 60, 25}}).empty());
    EXPECT_TRUE(cull_wide({{60, 25, 20, 5}}).empty());
    // The same line a pixel lower or to the side, either way round, is sent.
    EXPECT_EQ(cull_wide({{60, 26, 20, 6}, {20, 6, 60, 26}, {61, 25, 21, 5}}).size(), 3u);
}

TEST(WindowCullerUnknownServer, LongLinesOfAnotherShapeAreNeverLeftOut) {
    WindowCuller culler(64, 48, stepped_patterns());
    std::vector<Line> lines;
    for (size_t k = 0; k <= WindowCuller::LONG_LINES_BEFORE_KNOWING; ++k) {
        lines.push_back(
            {short(k % 40), short(k / 40 % 48), short(k % 40 + 20), short(k / 40 % 48)});
    }
    Pixel room[8];
    Pixel* end = room;
    culler.cull(lines.data(), lines.data() + lines.size(), &end);
    culler.long_lines_tested(false);
    // New lines over pixels drawn, the second the first's way back, the
    // third within the first: all sent.
    std::vector<Line> again = {{0, 0, 25, 0}, {25, 0, 0, 0}, {1, 0, 24, 0}};
    end = room;
    EXPECT_EQ(culler.cull(again.data(), again.data() + again.size(), &end) - again.data(), 3);
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
