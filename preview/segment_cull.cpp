// The memory of recent lines, the bitmap of drawn pixels and the window's
// culler.
#include "preview/segment_cull.h"

#include <algorithm>

namespace {

// 2^12 slots of eight bytes: 32 KB, which stays in the processor's cache.
// Neighbouring patches share their edges a few thousand lines apart; a
// table sixteen times larger caught a few more repeats on the benchmark
// scenes and cost more in cache misses than the server saved.
constexpr int LINE_SLOTS_LOG2 = 12;

constexpr uint64_t FIRST_EPOCH = uint64_t(1) << RecentKeys::KEY_BITS;

}  // namespace

RecentKeys::RecentKeys(int slots_log2)
    : slots_(size_t(1) << slots_log2, 0), shift_(64 - slots_log2), epoch_(FIRST_EPOCH) {}

void RecentKeys::forget() {
    epoch_ += FIRST_EPOCH;
    if (epoch_ != 0) return;
    // The epoch wrapped round (once in 4095 forgets): clear for real.
    std::fill(slots_.begin(), slots_.end(), 0);
    epoch_ = FIRST_EPOCH;
}

WindowCuller::WindowCuller(int width, int height, const ShortLinePatterns& patterns)
    : short_known_(patterns.known),
      lines_(LINE_SLOTS_LOG2),
      width_(patterns.known ? std::max(width, 0) : 0),
      height_(patterns.known ? std::max(height, 0) : 0),
      words_per_row_((size_t(width_) + 63) / 64),
      bits_(words_per_row_ * height_, 0),
      marked_(bits_.size() / 8 + ShortLinePatterns::MAX_PIXELS + 1),
      list_limit_(bits_.size() / 8) {
    const long row_bits = long(words_per_row_) * 64;
    for (int k = 0; k < ShortLinePatterns::SIDE * ShortLinePatterns::SIDE; ++k) {
        const ShortLinePatterns::Pattern& pattern = patterns.patterns[k];
        step_counts_[k] = pattern.count;
        for (int p = 0; p < pattern.count; ++p) {
            steps_[k][p] = {pattern.dy[p] * row_bits + pattern.dx[p], pattern.dx[p], pattern.dy[p]};
        }
    }
}

void WindowCuller::forget() {
    lines_.forget();
    if (all_marked_) {
        std::fill(bits_.begin(), bits_.end(), 0);
    } else {
        for (size_t k = 0; k < listed_; ++k) *marked_[k] = 0;
    }
    listed_ = 0;
    all_marked_ = false;
    long_lines_sent_ = 0;
    if (bands_marked_) std::fill(bands_.begin(), bands_.end(), 0);
    bands_marked_ = false;
}

// A row at a time, a word at a time: the box of a lattice spans few words.
// A tall box, once long lines have been marked, is first asked of the
// bands it meets, a word a band: every row of those bands must be drawn
// then, which inside a mesh drawn over itself they are.
bool WindowCuller::box_drawn(int x0, int y0, int x1, int y1) const {
    if (!short_known_) return false;
    x0 = std::max(x0, 0);
    y0 = std::max(y0, 0);
    x1 = std::min(x1, width_ - 1);
    y1 = std::min(y1, height_ - 1);
    if (x0 > x1 || y0 > y1) return true;
    if (bands_marked_ && y1 - y0 >= 2 * BAND_ROWS &&
        bands_drawn(x0, y0 / BAND_ROWS, x1, y1 / BAND_ROWS)) {
        return true;
    }
    return rows_drawn(x0, y0, x1, y1);
}

// Whether each word of the rows (or bands) from first_row to last_row,
// words_per_row_ apart in words, has every bit of columns x0..x1 set.
bool WindowCuller::words_all_set(const uint64_t* words, int first_row, int last_row, int x0,
                                 int x1) const {
    const size_t first = size_t(x0) / 64, last = size_t(x1) / 64;
    const uint64_t first_mask = ~uint64_t(0) << (x0 & 63);
    const uint64_t last_mask = ~uint64_t(0) >> (63 - (x1 & 63));
    for (int y = first_row; y <= last_row; ++y) {
        const uint64_t* row = words + size_t(y) * words_per_row_;
        if (first == last) {
            const uint64_t mask = first_mask & last_mask;
            if ((row[first] & mask) != mask) return false;
            continue;
        }
        if ((row[first] & first_mask) != first_mask) return false;
        for (size_t w = first + 1; w < last; ++w) {
            if (row[w] != ~uint64_t(0)) return false;
        }
        if ((row[last] & last_mask) != last_mask) return false;
    }
    return true;
}

bool WindowCuller::rows_drawn(int x0, int y0, int x1, int y1) const {
    return words_all_set(bits_.data(), y0, y1, x0, x1);
}

bool WindowCuller::bands_drawn(int x0, int band0, int x1, int band1) const {
    return words_all_set(bands_.data(), band0, band1, x0, x1);
}

// A line is left out when each step's candidates are drawn (both, at a tie)
// or outside the pixmap. A line sent marks the pixels it certainly draws;
// those marks are not listed (forget clears the whole bitmap), since a
// dense mesh soon marks more words than the list holds.
bool WindowCuller::long_line_known_drawn(int x0, int y0, int x1, int y1) {
    const auto inside = [this](int x, int y) {
        return unsigned(x) < unsigned(width_) && unsigned(y) < unsigned(height_);
    };
    const auto known = [&](int x, int y) { return !inside(x, y) || pixel_marked(x, y); };
    if (inside(x0, y0) && inside(x1, y1)) {
        if (steps_marked(x0, y0, x1, y1)) return true;
    } else if (walk_nearest_pixels(
                   x0, y0, x1, y1, width_, height_, [&](int x, int y, int ox, int oy) {
                       return known(x, y) && ((x == ox && y == oy) || known(ox, oy));
                   })) {
        return true;
    }
    walk_nearest_pixels(x0, y0, x1, y1, width_, height_, [&](int x, int y, int ox, int oy) {
        if (x == ox && y == oy && inside(x, y)) {
            const size_t at = bit_of(x, y);
            bits_[at / 64] |= uint64_t(1) << (at % 64);
        }
        return true;
    });
    all_marked_ = true;
    mark_bands(std::min(x0, x1), std::min(y0, y1), std::max(x0, x1), std::max(y0, y1));
    return false;
}

// walk_nearest_pixels's test for a line inside the pixmap, stepping through
// the bitmap's bits with no bounds to check: most long lines of a dense mesh
// are inside and tested whole, and the general walk took three times as
// long over them (the tests walk lines of both kinds).
bool WindowCuller::steps_marked(int x0, int y0, int x1, int y1) const {
    const int dx = x1 - x0, dy = y1 - y0;
    const bool x_major = std::abs(dx) >= std::abs(dy);
    const long row_bits = long(words_per_row_) * 64;
    const long a = x_major ? std::abs(dx) : std::abs(dy), b = x_major ? std::abs(dy) : std::abs(dx);
    const long x_bit = dx < 0 ? -1 : 1, y_bit = dy < 0 ? -row_bits : row_bits;
    const long major_bit = x_major ? x_bit : y_bit, minor_bit = x_major ? y_bit : x_bit;
    const uint64_t* const bits = bits_.data();
    const auto marked = [bits](long at) { return (bits[at >> 6] >> (at & 63)) & 1; };
    long at = long(y0) * row_bits + x0, e = 0;
    for (long i = 0; i <= a; ++i) {
        if (!marked(at) || (e == -a && !marked(at - minor_bit))) return false;
        at += major_bit;
        e += 2 * b;
        if (e >= a) {
            e -= 2 * a;
            at += minor_bit;
        }
    }
    return true;
}

// Brings the bands over the box up to date with the pixels.
void WindowCuller::mark_bands(int x0, int y0, int x1, int y1) {
    x0 = std::max(x0, 0);
    y0 = std::max(y0, 0);
    x1 = std::min(x1, width_ - 1);
    y1 = std::min(y1, height_ - 1);
    if (x0 > x1 || y0 > y1) return;
    if (bands_.empty()) {
        bands_.assign(words_per_row_ * ((size_t(height_) + BAND_ROWS - 1) / BAND_ROWS), 0);
    }
    bands_marked_ = true;
    for (int band = y0 / BAND_ROWS; band <= y1 / BAND_ROWS; ++band) {
        const int end_row = std::min((band + 1) * BAND_ROWS, height_);
        for (size_t w = size_t(x0) / 64; w <= size_t(x1) / 64; ++w) {
            uint64_t all = ~uint64_t(0);
            for (int y = band * BAND_ROWS; y < end_row; ++y) {
                all &= bits_[size_t(y) * words_per_row_ + w];
            }
            bands_[size_t(band) * words_per_row_ + w] = all;
        }
    }
}
