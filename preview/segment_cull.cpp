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
}

// A row at a time, a word at a time: the box of a lattice spans few words.
bool WindowCuller::box_drawn(int x0, int y0, int x1, int y1) const {
    if (!short_known_) return false;
    x0 = std::max(x0, 0);
    y0 = std::max(y0, 0);
    x1 = std::min(x1, width_ - 1);
    y1 = std::min(y1, height_ - 1);
    if (x0 > x1 || y0 > y1) return true;
    const size_t first = size_t(x0) / 64, last = size_t(x1) / 64;
    const uint64_t first_mask = ~uint64_t(0) << (x0 & 63);
    const uint64_t last_mask = ~uint64_t(0) >> (63 - (x1 & 63));
    for (int y = y0; y <= y1; ++y) {
        const uint64_t* row = bits_.data() + size_t(y) * words_per_row_;
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
