// What the window need not draw: a memory of recent lines, a bitmap of
// pixels known drawn, the pixels the X server's short thin lines are made
// of, the pixels its long thin lines are made of (walk_nearest_pixels), and
// the window's culler built on them.
//
// The window's contract (WindowCuller): the X server draws thin lines and
// points with a solid foreground and the copy function, so within one
// foreground drawing a pixel again changes nothing, and the order of the
// drawing does not matter. The culler takes the lines about to be sent
// (already fitted to the pixmap) and gives back the lines and points that
// draw the same pixels, less what is known drawn; it must be told when the
// foreground pixel changes or the pixmap is cleared (forget), since then what
// was drawn says nothing about what is still to draw. Anything that draws
// lines into the pixmap (the sink, a redraw of kept geometry) hands them to
// the one culler of that pixmap, in drawing order.
#ifndef TRACERY_PREVIEW_SEGMENT_CULL_H
#define TRACERY_PREVIEW_SEGMENT_CULL_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

// A memory of recent keys below 2^52: a table of 2^slots_log2 slots, each
// key in the slot its hash picks, so a key may push out an older one. It
// never answers that a key was seen when it was not since the last forget.
// A slot holds its key and the epoch it was written in, eight bytes in all,
// so that the table stays in the processor's cache and forgetting
// everything is one increment.
class RecentKeys {
  public:
    static constexpr int KEY_BITS = 52;
    explicit RecentKeys(int slots_log2);
    // Whether key was seen; remembers it either way.
    bool seen(uint64_t key) {
        uint64_t& slot = slots_[slot_of(key)];
        const bool found = slot == (key | epoch_);
        slot = key | epoch_;
        return found;
    }
    // Forgets every key at once: slots of older epochs count as empty.
    void forget();

  private:
    size_t slot_of(uint64_t key) const {
        return static_cast<size_t>((key * 0x9e3779b97f4a7c15ull) >> shift_);
    }
    std::vector<uint64_t> slots_;
    int shift_;
    uint64_t epoch_;  // the epoch number, in the bits above the key
};

// Lines are remembered by a key of 52 bits, made when their ends lie in a
// range of coordinates of 13 bits each, around a picture of up to 4096
// pixels a side.
constexpr int LINE_KEY_MIN = -2048, LINE_KEY_MAX = 6143;

inline bool line_keyable(int x0, int y0, int x1, int y1) {
    auto in = [](int v) {
        return unsigned(v - LINE_KEY_MIN) <= unsigned(LINE_KEY_MAX - LINE_KEY_MIN);
    };
    return in(x0) && in(y0) && in(x1) && in(y1);
}

inline uint64_t line_key(int x0, int y0, int x1, int y1) {
    auto field = [](int v) { return uint64_t(v - LINE_KEY_MIN); };
    return field(x0) << 39 | field(y0) << 26 | field(x1) << 13 | field(y1);
}

// The pixels the server's thin line draws for each offset between its ends
// up to REACH pixels each way, relative to the line's first end (found by
// probe_short_lines in preview/x11_window.h). The protocol promises that a
// line's pixels move with the line, so these are the pixels of every such
// line, wherever it is drawn.
struct ShortLinePatterns {
    static constexpr int REACH = 3;
    static constexpr int SIDE = 2 * REACH + 1;
    static constexpr int MAX_PIXELS = REACH + 1;  // a thin line's longer side
    struct Pattern {
        int count = 0;
        int8_t dx[MAX_PIXELS] = {}, dy[MAX_PIXELS] = {};
    };
    bool known = false;
    Pattern patterns[SIDE * SIDE];  // by (dy + REACH) * SIDE + dx + REACH
    static bool is_short(int dx, int dy) {
        return unsigned(dx + REACH) < unsigned(SIDE) && unsigned(dy + REACH) < unsigned(SIDE);
    }
    static int index(int dx, int dy) { return (dy + REACH) * SIDE + dx + REACH; }
    Pattern& of(int dx, int dy) { return patterns[index(dx, dy)]; }
};

// The pixels of a thin line longer than the patterns reach, as servers draw
// them (Bresenham's lines and their variants): one pixel for each step along
// the line's longer side, both ends included, the pixel nearest the line
// across it, or either of the two nearest where the line passes exactly
// halfway between them. The protocol leaves thin lines to the server, so the
// window relies on this only once probe_long_lines has seen the server draw
// a set of long lines so.
//
// Calls visit(x, y, other_x, other_y) for the steps whose longer-side
// coordinate lies in the width x height pixmap, in order from (x0, y0):
// (x, y) is the nearest pixel, and (other_x, other_y) the other candidate of
// a tie, or (x, y) again. Stops, returning false, when visit returns false.
template <typename Visit>
bool walk_nearest_pixels(int x0, int y0, int x1, int y1, int width, int height, Visit visit) {
    const int dx = x1 - x0, dy = y1 - y0;
    const bool x_major = std::abs(dx) >= std::abs(dy);
    const long long a = x_major ? std::abs(dx) : std::abs(dy);
    const long long b = x_major ? std::abs(dy) : std::abs(dx);
    const int major_step = (x_major ? dx : dy) < 0 ? -1 : 1;
    const int minor_step = (x_major ? dy : dx) < 0 ? -1 : 1;
    const long long major0 = x_major ? x0 : y0, minor0 = x_major ? y0 : x0;
    const long long major_size = x_major ? width : height;
    // The steps whose longer-side coordinate major0 + i * major_step is inside.
    const long long first = std::max(0LL, major_step > 0 ? -major0 : major0 - (major_size - 1));
    const long long last = std::min(a, major_step > 0 ? major_size - 1 - major0 : major0);
    if (first > last) return true;
    // At step i the line lies i * b / a steps across from minor0; the nearest
    // pixel is q steps across (a half rounding to the farther), and
    // e = 2ib - 2qa, in [-a, a), is where the line passes: e = -a exactly
    // halfway between q - 1 and q.
    const long long q = a == 0 ? 0 : (2 * first * b + a) / (2 * a);
    long long e = 2 * first * b - 2 * q * a;
    int major = int(major0 + first * major_step), minor = int(minor0 + q * minor_step);
    for (long long i = first; i <= last; ++i) {
        const int other = a > 0 && e == -a ? minor - minor_step : minor;
        if (!(x_major ? visit(major, minor, major, other) : visit(minor, major, other, major))) {
            return false;
        }
        major += major_step;
        e += 2 * b;
        if (e >= a) {
            e -= 2 * a;
            minor += minor_step;
        }
    }
    return true;
}

// Whether a thin line from (0, 0) to (dx, dy) was drawn as walk_nearest_pixels
// allows, drawn(x, y) telling the pixels at offsets from its first end and
// drawn_count how many there are in all: one candidate of every step, and no
// other pixel. (The steps' candidates differ in their longer-side
// coordinate, so a candidate of each step and no more pixels than steps
// leaves no room for any other.)
template <typename Drawn>
bool drawn_as_nearest(int dx, int dy, long drawn_count, Drawn drawn) {
    // Walked about a centre far enough from the walk's edges for every step.
    const int centre = std::abs(dx) + std::abs(dy) + 1, side = 2 * centre + 1;
    long steps = 0;
    const bool each_step = walk_nearest_pixels(
        centre, centre, centre + dx, centre + dy, side, side, [&](int x, int y, int ox, int oy) {
            ++steps;
            return drawn(x - centre, y - centre) || drawn(ox - centre, oy - centre);
        });
    return each_step && drawn_count == steps;
}

class WindowCuller {
  public:
    // For a pixmap of width x height pixels, drawn by a server whose short
    // lines are the given patterns (when known).
    WindowCuller(int width, int height, const ShortLinePatterns& patterns);
    // The foreground pixel changed or the pixmap was cleared.
    void forget();

    // Splits lines about to be sent into what is to be sent instead: a
    // short line (when the patterns are known) becomes the points of its
    // pattern not drawn since the last forget, which the server draws far
    // faster than a line; a longer line is kept, in order at the front of
    // the lines, unless it was sent in the same direction since the last
    // forget (the other direction may draw other pixels), or, once many long
    // lines have been sent in one foreground, when every pixel it may draw is
    // known drawn (those sent from then on are marked). Line has X11's
    // fields x1, y1, x2, y2 and Point x, y; points has room for MAX_PIXELS
    // points a line. Returns the end of the lines kept and moves points past
    // those added. Written with few branches on the outcome, which is as good
    // as random.
    // Whether every pixel of the box from (x0, y0) to (x1, y1), ends
    // included, that lies in the pixmap is known drawn since the last forget.
    bool box_drawn(int x0, int y0, int x1, int y1) const;

    // Long lines are known by their pixels only in a foreground that has
    // sent LONG_LINES_BEFORE_KNOWING of them (a dense mesh of one colour,
    // whose lines cross each other's pixels hundreds of times): marking and
    // testing their pixels costs about what the server takes to draw them,
    // which pays only where most are then found drawn. Before the first
    // such foreground the server's long lines must be tested: while
    // long_lines_untested, the owner runs probe_long_lines and tells the
    // culler whether the server draws them as walk_nearest_pixels walks them.
    static constexpr size_t LONG_LINES_BEFORE_KNOWING = 4096;
    bool long_lines_untested() const {
        return long_lines_ == LongLines::UNTESTED && long_lines_sent_ >= LONG_LINES_BEFORE_KNOWING;
    }
    void long_lines_tested(bool drawn_nearest) {
        long_lines_ = drawn_nearest ? LongLines::NEAREST : LongLines::OTHER;
    }

    template <typename Line, typename Point>
    Line* cull(Line* first, Line* last, Point** points) {
        constexpr int REACH = ShortLinePatterns::REACH;
        Line* kept = first;
        Point* point = *points;
        // Kept in locals: the bitmap's words are of the list's index type,
        // and members would be reloaded after every store.
        uint64_t* const bits = bits_.data();
        uint64_t** const marked = marked_.data();
        size_t listed = listed_;
        const size_t list_limit = list_limit_;
        const int width = width_, height = height_;
        const long row_bits = long(words_per_row_) * 64;
        const bool knowing = knows_long_lines();
        const bool look_up = skipped_batches_ == 0 || knowing;
        size_t looked_up = 0, repeats = 0;
        for (Line* line = first; line != last; ++line) {
            const int x0 = line->x1, y0 = line->y1, dx = line->x2 - x0, dy = line->y2 - y0;
            if (!short_known_ || !ShortLinePatterns::is_short(dx, dy)) {
                *kept = *line;
                bool left_out = false;
                if (look_up) {
                    ++looked_up;
                    left_out = repeats_sent_line(x0, y0, line->x2, line->y2);
                    repeats += left_out;
                }
                if (!left_out) {
                    ++long_lines_sent_;
                    if (knowing && long_line_known_drawn(x0, y0, line->x2, line->y2)) {
                        left_out = true;
                        remember_way_back(x0, y0, line->x2, line->y2);
                    }
                }
                kept += !left_out;
                continue;
            }
            const int offset = ShortLinePatterns::index(dx, dy);
            const PixelStep* step = steps_[offset];
            const PixelStep* const end = step + step_counts_[offset];
            if (unsigned(x0 - REACH) < unsigned(width - 2 * REACH) &&
                unsigned(y0 - REACH) < unsigned(height - 2 * REACH)) {
                // The whole pattern is inside: no pixel needs a bounds check.
                const long base = y0 * row_bits + x0;
                for (; step != end; ++step) {
                    const long at = base + step->bit;
                    uint64_t* const word = bits + (at >> 6);
                    const uint64_t bit = uint64_t(1) << (at & 63), old = *word;
                    *word = old | bit;
                    marked[listed] = word;
                    listed += old == 0;
                    *point = {short(x0 + step->dx), short(y0 + step->dy)};
                    point += (old & bit) == 0;
                }
            } else {
                for (; step != end; ++step) {
                    const int x = x0 + step->dx, y = y0 + step->dy;
                    if (unsigned(x) >= unsigned(width) || unsigned(y) >= unsigned(height)) continue;
                    uint64_t* const word = bits + (y * row_bits + x) / 64;
                    const uint64_t bit = uint64_t(1) << (x & 63), old = *word;
                    *word = old | bit;
                    marked[listed] = word;
                    listed += old == 0;
                    *point = {short(x), short(y)};
                    point += (old & bit) == 0;
                }
            }
            if (listed > list_limit) {
                all_marked_ = true;
                listed = 0;
            }
        }
        listed_ = listed;
        *points = point;
        judge_look_ups(looked_up, repeats);
        return kept;
    }

  private:
    bool knows_long_lines() const {
        return long_lines_ == LongLines::NEAREST && long_lines_sent_ >= LONG_LINES_BEFORE_KNOWING;
    }
    // Whether every pixel the long line may draw is known drawn; if not, the
    // pixels it certainly draws are marked, since it is sent.
    bool long_line_known_drawn(int x0, int y0, int x1, int y1);
    bool steps_marked(int x0, int y0, int x1, int y1) const;
    void mark_bands(int x0, int y0, int x1, int y1);
    static constexpr int BAND_ROWS = 8;
    bool words_all_set(const uint64_t* words, int first_row, int last_row, int x0, int x1) const;
    bool rows_drawn(int x0, int y0, int x1, int y1) const;
    bool bands_drawn(int x0, int band0, int x1, int band1) const;
    size_t bit_of(int x, int y) const { return size_t(y) * words_per_row_ * 64 + size_t(x); }
    bool pixel_marked(int x, int y) const {
        return (bits_[bit_of(x, y) / 64] >> (bit_of(x, y) % 64)) & 1;
    }
    // A line known drawn is known drawn the other way round too: its
    // candidate pixels are the same (the nearest at each step, both at a
    // tie), so it is remembered as sent that way. Each edge of a mesh is
    // drawn once by each face beside it.
    void remember_way_back(int x0, int y0, int x1, int y1) {
        if (line_keyable(x0, y0, x1, y1)) lines_.seen(line_key(x1, y1, x0, y0));
    }
    bool repeats_sent_line(int x0, int y0, int x1, int y1) {
        return line_keyable(x0, y0, x1, y1) && lines_.seen(line_key(x0, y0, x1, y1));
    }
    // Looking lines up costs about what the server saves on a repeat; when a
    // batch finds few repeats (a scene of long lines drawn once, as a mesh
    // is), the next batches send their longer lines unlooked-up.
    void judge_look_ups(size_t looked_up, size_t repeats) {
        if (skipped_batches_ > 0) {
            --skipped_batches_;
        } else if (looked_up >= MIN_LOOK_UPS && repeats * REPEAT_SHARE < looked_up) {
            skipped_batches_ = BATCHES_SKIPPED;
        }
    }
    static constexpr size_t MIN_LOOK_UPS = 1024, REPEAT_SHARE = 16, BATCHES_SKIPPED = 15;
    size_t skipped_batches_ = 0;
    const bool short_known_;
    // Each pattern's pixels, with their place in the bitmap relative to the
    // line's first end (which the pixels' bits are, row by row).
    struct PixelStep {
        long bit;
        int dx, dy;
    };
    PixelStep steps_[ShortLinePatterns::SIDE * ShortLinePatterns::SIDE]
                    [ShortLinePatterns::MAX_PIXELS];
    int step_counts_[ShortLinePatterns::SIDE * ShortLinePatterns::SIDE];
    RecentKeys lines_;
    // The pixels drawn since the last forget, one bit each, and the words
    // made non-zero since then (up to an eighth of the bitmap), so that
    // clearing after a small object costs little; past an eighth, clearing
    // them one by one would cost about as much as clearing the whole bitmap.
    int width_, height_;
    size_t words_per_row_;  // the bits of a row are padded to whole words
    std::vector<uint64_t> bits_;
    std::vector<uint64_t*> marked_;
    size_t listed_ = 0, list_limit_;
    bool all_marked_ = false;  // too many to list: clear the whole bitmap
    enum class LongLines { UNTESTED, NEAREST, OTHER };
    LongLines long_lines_ = LongLines::UNTESTED;
    size_t long_lines_sent_ = 0;  // since the last forget
    // For each band of eight pixel rows, a bit for each column whose eight
    // pixels were all marked when a long line was last marked across it:
    // a tall box is asked about a word a band instead of a word a row. The
    // short lines' pixels are not gathered into it, so it may lag the
    // pixels; empty until a long line is marked.
    std::vector<uint64_t> bands_;
    bool bands_marked_ = false;  // since the last forget
};

#endif  // TRACERY_PREVIEW_SEGMENT_CULL_H
