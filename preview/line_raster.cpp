// Antialiased one-pixel lines: the exact area a segment's rectangle covers
// in each pixel, swept column by column, and its compositing over the
// pixels. Short segments are drawn from a coverage stamp made once per
// offset between their ends.
#include "preview/line_raster.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "math/clip_parameter.h"

namespace {

// A convex quadrilateral, corners in order around it.
struct Quad {
    float x[4], y[4];
};

// The part of a quadrilateral between two abscissae at which it has
// corners: there its cross-section at x runs from the lower edge
// lo + lo_slope * (x - x0) to the upper edge hi + hi_slope * (x - x0).
struct Piece {
    float x0, x1;
    float lo, lo_slope, hi, hi_slope;
};

// floor of a float well inside the range of int (coordinates here are held
// within a few pixels of the picture), without a library call.
inline int floor_int(float v) {
    const int t = static_cast<int>(v);
    return t - (static_cast<float>(t) > v);
}

// Integral from 0 to u of clamp(t, 0, 1) dt.
inline float ramp_integral(float u) {
    if (u <= 0.0f) return 0.0f;
    if (u >= 1.0f) return u - 0.5f;
    return 0.5f * u * u;
}

// Cuts the quadrilateral into the pieces between its corners' abscissae
// (at most three; pieces of no width are left out).
int pieces_of(const Quad& q, Piece out[3]) {
    float xs[4] = {q.x[0], q.x[1], q.x[2], q.x[3]};
    std::sort(xs, xs + 4);
    int count = 0;
    for (int p = 0; p < 3; ++p) {
        float xa = xs[p], xb = xs[p + 1];
        if (!(xb - xa > 1e-6f)) continue;
        float middle = 0.5f * (xa + xb);
        float at_middle[2], at_start[2], slope[2];
        int found = 0;
        for (int e = 0; e < 4 && found < 2; ++e) {
            float ex0 = q.x[e], ey0 = q.y[e], ex1 = q.x[(e + 1) & 3], ey1 = q.y[(e + 1) & 3];
            if (ex0 == ex1 || middle < std::min(ex0, ex1) || middle > std::max(ex0, ex1)) continue;
            slope[found] = (ey1 - ey0) / (ex1 - ex0);
            at_start[found] = ey0 + slope[found] * (xa - ex0);
            at_middle[found] = ey0 + slope[found] * (middle - ex0);
            ++found;
        }
        if (found < 2) continue;
        int lower = at_middle[0] <= at_middle[1] ? 0 : 1;
        out[count++] = {
            xa, xb, at_start[lower], slope[lower], at_start[1 - lower], slope[1 - lower]};
    }
    return count;
}

// The 8-bit coverage of a share of a pixel.
inline uint32_t coverage_byte(float share) {
    int c = static_cast<int>(share * 255.0f + 0.5f);
    return c <= 0 ? 0u : (c >= 255 ? 255u : static_cast<uint32_t>(c));
}

// Calls emit(column, row, coverage) for each pixel of one column the pieces
// cover some of, with the 8-bit share of its area they cover.
template <typename Emit>
void general_column(const Piece* pieces, int count, int column, int top, int bottom, Emit& emit) {
    constexpr int MAX_ROWS = 8;
    // An edge across part of the column, from e0 to e1 over `width`: the
    // area below it in a row is (G(e1 - r) - G(e0 - r)) * width / (e1 - e0),
    // the factor the same for every row.
    struct Edge {
        float e0, e1, factor;
        bool flat;
        float area_below(float r, float width) const {
            if (flat) {
                const float mid = 0.5f * (e0 + e1) - r;
                return width * (mid <= 0.0f ? 0.0f : (mid >= 1.0f ? 1.0f : mid));
            }
            return (ramp_integral(e1 - r) - ramp_integral(e0 - r)) * factor;
        }
    };
    auto edge = [](float e0, float e1, float width) {
        const float d = e1 - e0;
        const bool flat = std::fabs(d) < 1e-4f;
        return Edge{e0, e1, flat ? 0.0f : width / d, flat};
    };
    struct Span {
        float width;
        Edge lo, hi;
    } spans[3];
    int used = 0;
    float lowest = 1e30f, highest = -1e30f;
    for (int p = 0; p < count; ++p) {
        const Piece& piece = pieces[p];
        float s0 = std::max(static_cast<float>(column), piece.x0);
        float s1 = std::min(static_cast<float>(column) + 1.0f, piece.x1);
        if (!(s1 > s0)) continue;
        const float width = s1 - s0;
        const float lo0 = piece.lo + piece.lo_slope * (s0 - piece.x0);
        const float lo1 = piece.lo + piece.lo_slope * (s1 - piece.x0);
        const float hi0 = piece.hi + piece.hi_slope * (s0 - piece.x0);
        const float hi1 = piece.hi + piece.hi_slope * (s1 - piece.x0);
        spans[used++] = {width, edge(lo0, lo1, width), edge(hi0, hi1, width)};
        lowest = std::min({lowest, lo0, lo1});
        highest = std::max({highest, hi0, hi1});
    }
    if (used == 0) return;
    int row0 = std::max(top, floor_int(lowest));
    int row1 = std::min({bottom, floor_int(highest), row0 + MAX_ROWS - 1});
    for (int row = row0; row <= row1; ++row) {
        float coverage = 0.0f;
        const float r = static_cast<float>(row);
        for (int k = 0; k < used; ++k) {
            const Span& s = spans[k];
            coverage += s.hi.area_below(r, s.width) - s.lo.area_below(r, s.width);
        }
        if (const uint32_t c = coverage_byte(coverage)) emit(column, row, c);
    }
}

// The share of a column's pixel rows below an edge that runs across the
// column from e0 to e1 (|e1 - e0| <= 1), for the rows base .. base + 4:
// rows wholly below get 1, rows above 0, and the one or two rows the edge
// crosses what lies below it there.
void shares_below(double e0, double e1, int base, double out[5]) {
    const double d = e1 - e0;
    for (int i = 0; i < 5; ++i) {
        const double r = base + i, a0 = e0 - r, a1 = e1 - r;
        if (std::fabs(d) < 1e-9) {
            const double mid = 0.5 * (a0 + a1);
            out[i] = mid <= 0.0 ? 0.0 : (mid >= 1.0 ? 1.0 : mid);
        } else {
            out[i] = (ramp_integral(float(a1)) - ramp_integral(float(a0))) / d;
        }
    }
}

// The coverage of one column of the long middle of a segment's rectangle
// (a band one pixel wide across, its edges rising m in a column, |m| <= 1),
// by m and by where the lower edge enters the column (its phase within a
// row): rows base - 1 .. base + 3, base being the row it enters in. The
// phase and m are taken to the nearest 1/64, which moves a coverage by a
// few steps of 255 at most and leaves the lines along the axes exact; the
// long lines of a dense scene are mostly such columns, and a
// look-up is many times quicker than the sums.
class BandTable {
  public:
    static constexpr int SLOPES = 128;  // m from -1 to 1 in steps of 1/64
    static constexpr int PHASES = 64;
    static const BandTable& get() {
        static const BandTable table;
        return table;
    }
    // The rows of every phase for the slope m, by the phase's nearest
    // 1/PHASES (PHASES itself being the phase of the next row's start).
    using Rows = uint8_t[5];
    const Rows* slope(float m) const {
        const int s = static_cast<int>((m + 1.0f) * (SLOPES / 2) + 0.5f);
        return rows_[std::clamp(s, 0, SLOPES)];
    }

  private:
    BandTable() {
        for (int s = 0; s <= SLOPES; ++s) {
            const double m = -1.0 + 2.0 * s / SLOPES, thickness = std::sqrt(1.0 + m * m);
            for (int p = 0; p <= PHASES; ++p) {
                const double lo = double(p) / PHASES, hi = lo + thickness;
                double below_lo[5], below_hi[5];
                shares_below(lo, lo + m, -1, below_lo);
                shares_below(hi, hi + m, -1, below_hi);
                for (int i = 0; i < 5; ++i) {
                    rows_[s][p][i] =
                        static_cast<uint8_t>(coverage_byte(float(below_hi[i] - below_lo[i])));
                }
            }
        }
    }
    uint8_t rows_[SLOPES + 1][PHASES + 1][5];
};

// The columns wholly inside one piece whose two edges are parallel (the
// long middle of a segment's rectangle), from the band table.
template <typename Emit>
void band_columns(const Piece& band, int first, int last, int top, int bottom, Emit& emit) {
    const float m = band.lo_slope;
    const BandTable::Rows* const by_phase = BandTable::get().slope(m);
    // The lower edge, stepped from column to column in fixed point with 32
    // bits of fraction: exact sums, where adding a float thousands of times
    // would drift.
    constexpr double ONE = 4294967296.0;
    const int64_t step = static_cast<int64_t>(std::llround(static_cast<double>(m) * ONE));
    int64_t lo = static_cast<int64_t>(
        std::llround((static_cast<double>(band.lo) + m * (double(first) - band.x0)) * ONE));
    const int64_t lo_last = lo + step * (last - first);
    const bool inside =
        (std::min(lo, lo_last) >> 32) - 1 >= top && (std::max(lo, lo_last) >> 32) + 3 <= bottom;
    constexpr int PHASE_SHIFT = 32 - 6;  // BandTable::PHASES is 2^6
    static_assert(BandTable::PHASES == 1 << 6, "the phase is the top bits of the fraction");
    for (int column = first; column <= last; ++column, lo += step) {
        const int base = static_cast<int>(lo >> 32);
        const int64_t fraction = lo & 0xffffffff;
        const uint8_t* rows =
            by_phase[(fraction + (int64_t(1) << (PHASE_SHIFT - 1))) >> PHASE_SHIFT];
        if (inside) {
            for (int i = 0; i < 5; ++i) {
                if (rows[i] != 0) emit(column, base - 1 + i, rows[i]);
            }
            continue;
        }
        for (int i = 0; i < 5; ++i) {
            const int row = base - 1 + i;
            if (rows[i] != 0 && row >= top && row <= bottom) emit(column, row, rows[i]);
        }
    }
}

// Calls emit(column, row, coverage) for every pixel of columns first..last
// and rows top..bottom the quadrilateral covers some of, with the share of
// the pixel's area it covers. The quadrilateral should be wider than high
// in each column (the sweep goes along its longer side), so that a column
// holds a few rows of it. Columns wholly inside a piece with parallel edges
// take the quicker way.
template <typename Emit>
void sweep(const Quad& q, int first, int last, int top, int bottom, Emit emit) {
    Piece pieces[3];
    const int count = pieces_of(q, pieces);
    if (count == 0) return;
    first = std::max(first, floor_int(pieces[0].x0));
    last = std::min(last, floor_int(pieces[count - 1].x1));
    int band_first = last + 1, band_last = last;
    const Piece* band = nullptr;
    for (int p = 0; p < count; ++p) {
        const Piece& piece = pieces[p];
        const int inner_first = std::max(first, static_cast<int>(std::ceil(piece.x0)));
        const int inner_last = std::min(last, floor_int(piece.x1) - 1);
        if (inner_last >= inner_first && std::fabs(piece.lo_slope - piece.hi_slope) < 1e-5f) {
            band = &piece;
            band_first = inner_first;
            band_last = inner_last;
            break;
        }
    }
    for (int column = first; column < band_first; ++column) {
        general_column(pieces, count, column, top, bottom, emit);
    }
    if (band) band_columns(*band, band_first, band_last, top, bottom, emit);
    for (int column = band ? band_last + 1 : last + 1; column <= last; ++column) {
        general_column(pieces, count, column, top, bottom, emit);
    }
}

// The rectangle of the segment between two points (pixel-centre coordinates),
// lengthened by half a pixel at each end, its direction given apart (a
// segment of no length is taken as pointing right), with x and y swapped
// when swap is set.
Quad segment_quad(double ax, double ay, double bx, double by, double ux, double uy, bool swap) {
    ax -= 0.5 * ux;
    ay -= 0.5 * uy;
    bx += 0.5 * ux;
    by += 0.5 * uy;
    const double nx = -0.5 * uy, ny = 0.5 * ux;
    const double cx[4] = {ax + nx, bx + nx, bx - nx, ax - nx};
    const double cy[4] = {ay + ny, by + ny, by - ny, ay - ny};
    Quad q;
    for (int k = 0; k < 4; ++k) {
        q.x[k] = static_cast<float>(swap ? cy[k] : cx[k]);
        q.y[k] = static_cast<float>(swap ? cx[k] : cy[k]);
    }
    return q;
}

}  // namespace

void LineRaster::attach(uint32_t* pixels, int width, int height, int stride) {
    std::vector<uint32_t*> rows(pixels ? height : 0);
    for (int y = 0; y < static_cast<int>(rows.size()); ++y) rows[y] = pixels + long(y) * stride;
    attach(rows, width);
}

void LineRaster::attach(const std::vector<uint32_t*>& rows, int width) {
    rows_ = rows;
    width_ = rows_.empty() ? 0 : width;
    height_ = static_cast<int>(rows_.size());
    tiles_wide_ = (width_ + TILE - 1) / TILE;
    tile_epochs_.assign(size_t(tiles_wide_) * size_t((height_ + TILE - 1) / TILE), 0);
    colour_epoch_ = 1;
}

uint32_t LineRaster::colour_byte(float component) {
    double c = component > 0.0f ? (component >= 1.0f ? 1.0 : component) : 0.0;
    return static_cast<uint32_t>(c * 65535.0 + 0.5) >> 8;
}

void LineRaster::set_colour(const float rgb[3]) {
    const uint32_t colour =
        0xff000000u | colour_byte(rgb[0]) << 16 | colour_byte(rgb[1]) << 8 | colour_byte(rgb[2]);
    if (colour != colour_ && ++colour_epoch_ == 0) {
        // The epochs wrapped round (once in four billion colours): forget for real.
        std::fill(tile_epochs_.begin(), tile_epochs_.end(), 0);
        colour_epoch_ = 1;
    }
    colour_ = colour;
#ifdef __SSE2__
    colour16_ =
        _mm_unpacklo_epi8(_mm_cvtsi32_si128(static_cast<int>(colour_)), _mm_setzero_si128());
#endif
}

void LineRaster::draw(int x0, int y0, int x1, int y1) {
    if (rows_.empty()) return;
    const long long dx = static_cast<long long>(x1) - x0, dy = static_cast<long long>(y1) - y0;
    if (std::llabs(dx) <= STAMP_REACH && std::llabs(dy) <= STAMP_REACH) {
        draw_stamp(stamp(static_cast<int>(dx), static_cast<int>(dy)), x0, y0);
    } else {
        draw_long(x0, y0, x1, y1);
    }
}

bool LineRaster::box_is_colour(long x0, long y0, long x1, long y1) const {
    x0 = std::max(x0, 0L);
    y0 = std::max(y0, 0L);
    x1 = std::min(x1, long(width_) - 1);
    y1 = std::min(y1, long(height_) - 1);
    for (long y = y0; y <= y1; ++y) {
        const uint32_t* row = rows_[y];
        for (long x = x0; x <= x1; ++x) {
            if (row[x] != colour_) return false;
        }
    }
    return true;
}

const LineRaster::Stamp& LineRaster::stamp(int dx, int dy) {
    Stamp& s = stamps_[(dy + STAMP_REACH) * STAMP_SIDE + dx + STAMP_REACH];
    if (s.made) return s;
    s.made = true;
    const double length = std::sqrt(double(dx) * dx + double(dy) * dy);
    const double ux = length > 0 ? dx / length : 1.0, uy = length > 0 ? dy / length : 0.0;
    const bool swap = std::abs(dy) > std::abs(dx);
    const Quad q = segment_quad(0.5, 0.5, dx + 0.5, dy + 0.5, ux, uy, swap);
    constexpr int FAR = STAMP_REACH + 3;
    s.left = s.top = FAR;
    s.right = s.bottom = -FAR;
    sweep(q, -FAR, FAR, -FAR, FAR, [&](int column, int row, uint32_t c) {
        const int px = swap ? row : column, py = swap ? column : row;
        s.pixels.push_back(
            {static_cast<int8_t>(px), static_cast<int8_t>(py), static_cast<uint8_t>(c)});
        s.left = std::min<int16_t>(s.left, px);
        s.right = std::max<int16_t>(s.right, px);
        s.top = std::min<int16_t>(s.top, py);
        s.bottom = std::max<int16_t>(s.bottom, py);
    });
    return s;
}

void LineRaster::draw_stamp(const Stamp& s, int x0, int y0) {
    if (s.pixels.empty()) return;
    const long left = long(x0) + s.left, right = long(x0) + s.right;
    const long top = long(y0) + s.top, bottom = long(y0) + s.bottom;
    if (right < 0 || bottom < 0 || left >= width_ || top >= height_) return;
    if (left >= 0 && top >= 0 && right < width_ && bottom < height_) {
        for (const StampPixel& p : s.pixels) blend(x0 + p.dx, y0 + p.dy, p.coverage);
        return;
    }
    for (const StampPixel& p : s.pixels) {
        const long x = long(x0) + p.dx, y = long(y0) + p.dy;
        if (x >= 0 && y >= 0 && x < width_ && y < height_) blend(int(x), int(y), p.coverage);
    }
}

// Whether every pixel the rectangle of the segment from a to b (pixel-centre
// coordinates) may touch is of the colour, so that drawing it changes
// nothing: in a dense scene most long segments are drawn over their own
// colour, and looking costs a few times less than sweeping. Along its longer
// side the rectangle, lengthened by half a pixel at each end, reaches at
// most 0.71 past an end; within a column it lies within 0.71 of its centre
// line across (half its width over the cosine of its slope), and the centre
// line moves at most half a pixel from where it crosses the column's
// middle. So the pixels within 1.21 of that crossing hold all it touches; a
// margin of 1.5 also holds the band table's roundings (a 64th of a pixel).
bool LineRaster::over_colour(double ax, double ay, double bx, double by) {
    const bool steep = std::fabs(by - ay) > std::fabs(bx - ax);
    double major_a = steep ? ay : ax, major_b = steep ? by : bx;
    double minor_a = steep ? ax : ay, minor_b = steep ? bx : by;
    if (major_a > major_b) {
        std::swap(major_a, major_b);
        std::swap(minor_a, minor_b);
    }
    if (!(major_b - major_a > 0.0)) return false;
    const double slope = (minor_b - minor_a) / (major_b - major_a);
    const long major_size = steep ? height_ : width_, minor_size = steep ? width_ : height_;
    // The ends lie within a few pixels of the picture, so the centre line
    // does too where it is looked at: raised by SHIFT, their floors and its
    // are truncations.
    constexpr long SHIFT = 64;
    const long first = std::max(0L, static_cast<long>(major_a - 1.0 + double(SHIFT)) - SHIFT);
    const long last =
        std::min(major_size - 1, static_cast<long>(major_b + 1.0 + double(SHIFT)) - SHIFT);
    double middle = minor_a + slope * (double(first) + 0.5 - major_a) + double(SHIFT);
    // The box of every pixel looked at below: known of the colour by its
    // tiles, or learned so once its pixels are found of the colour.
    const double middle_last = middle + slope * double(last - first);
    const long box_low =
        std::max(0L, static_cast<long>(std::min(middle, middle_last) - 1.5) - SHIFT);
    const long box_high =
        std::min(minor_size - 1, static_cast<long>(std::max(middle, middle_last) + 1.5) - SHIFT);
    if (first > last || box_low > box_high) return true;
    const long x0 = steep ? box_low : first, x1 = steep ? box_high : last;
    const long y0 = steep ? first : box_low, y1 = steep ? last : box_high;
    if (tiles_of_colour(x0, y0, x1, y1)) return true;
    for (long k = first; k <= last; ++k, middle += slope) {
        const long low = std::max(0L, static_cast<long>(middle - 1.5) - SHIFT);
        const long high = std::min(minor_size - 1, static_cast<long>(middle + 1.5) - SHIFT);
        if (!(steep ? row_is_colour(rows_[k], low, high, minor_size)
                    : column_is_colour(k, low, high))) {
            return false;
        }
    }
    learn_tiles(x0, y0, x1, y1);
    return true;
}

bool LineRaster::tiles_of_colour(long x0, long y0, long x1, long y1) const {
    for (long ty = y0 / TILE; ty <= y1 / TILE; ++ty) {
        const uint32_t* const row = tile_epochs_.data() + size_t(ty) * size_t(tiles_wide_);
        for (long tx = x0 / TILE; tx <= x1 / TILE; ++tx) {
            if (row[tx] != colour_epoch_) return false;
        }
    }
    return true;
}

// Marks the tiles over the box that hold only the colour; a line found over
// its colour is where the next lines are likely to be (a dense scene drawn
// over itself).
void LineRaster::learn_tiles(long x0, long y0, long x1, long y1) {
    for (long ty = y0 / TILE; ty <= y1 / TILE; ++ty) {
        uint32_t* const row = tile_epochs_.data() + size_t(ty) * size_t(tiles_wide_);
        const long bottom = std::min(long(height_) - 1, ty * TILE + TILE - 1);
        for (long tx = x0 / TILE; tx <= x1 / TILE; ++tx) {
            if (row[tx] == colour_epoch_) continue;
            const long left = tx * TILE, right = std::min(long(width_) - 1, left + TILE - 1);
            bool all = true;
            for (long y = ty * TILE; y <= bottom && all; ++y) {
                all = row_is_colour(rows_[y], left, std::min(right, left + 3), width_) &&
                      (right < left + 4 || row_is_colour(rows_[y], left + 4, right, width_));
            }
            if (all) row[tx] = colour_epoch_;
        }
    }
}

// Whether pixels low..high (at most four) of a row of width pixels are of
// the colour: four at once where four from low lie in the row.
bool LineRaster::row_is_colour(const uint32_t* row, long low, long high, long width) const {
#ifdef __SSE2__
    if (high >= low && low + 3 < width) {
        const __m128i got = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + low));
        const __m128i same = _mm_cmpeq_epi32(got, _mm_set1_epi32(static_cast<int>(colour_)));
        const int wanted = (1 << (high - low + 1)) - 1;
        return (_mm_movemask_ps(_mm_castsi128_ps(same)) & wanted) == wanted;
    }
#else
    (void)width;
#endif
    for (long j = low; j <= high; ++j) {
        if (row[j] != colour_) return false;
    }
    return true;
}

bool LineRaster::column_is_colour(long column, long low, long high) const {
    for (long j = low; j <= high; ++j) {
        if (rows_[j][column] != colour_) return false;
    }
    return true;
}

// A longer segment is swept along its longer side straight into the pixels.
// Ends far outside the picture are first brought to a margin around it
// along the segment's own line (the cut ends lie outside the picture, so
// that what is inside is drawn as the whole segment would be).
void LineRaster::draw_long(int x0, int y0, int x1, int y1) {
    double ax = x0 + 0.5, ay = y0 + 0.5, bx = x1 + 0.5, by = y1 + 0.5;
    const double dx = bx - ax, dy = by - ay;
    constexpr double MARGIN = 4.0;
    const double left = -MARGIN, top = -MARGIN, right = width_ + MARGIN, bottom = height_ + MARGIN;
    if (std::min(ax, bx) < left || std::max(ax, bx) > right || std::min(ay, by) < top ||
        std::max(ay, by) > bottom) {
        double t0 = 0.0, t1 = 1.0;
        if (!clip_parameter(-dx, ax - left, &t0, &t1) ||
            !clip_parameter(dx, right - ax, &t0, &t1) || !clip_parameter(-dy, ay - top, &t0, &t1) ||
            !clip_parameter(dy, bottom - ay, &t0, &t1)) {
            return;
        }
        const double sx = ax, sy = ay;
        ax = sx + t0 * dx;
        ay = sy + t0 * dy;
        bx = sx + t1 * dx;
        by = sy + t1 * dy;
    }
    if (over_colour(ax, ay, bx, by)) return;
    const double length = std::sqrt(dx * dx + dy * dy);
    const double ux = dx / length, uy = dy / length;
    if (std::fabs(dy) > std::fabs(dx)) {
        sweep(segment_quad(ax, ay, bx, by, ux, uy, true), 0, height_ - 1, 0, width_ - 1,
              [this](int column, int row, uint32_t c) { blend(row, column, c); });
    } else {
        sweep(segment_quad(ax, ay, bx, by, ux, uy, false), 0, width_ - 1, 0, height_ - 1,
              [this](int column, int row, uint32_t c) { blend(column, row, c); });
    }
}
