// Antialiased one-pixel lines drawn straight into a 32-bit pixel buffer (the
// memory of a cairo image surface): the picture files' own line drawing,
// which cairo's general stroker does a hundred times slower for lines this
// thin.
//
// A segment between the raster points (x0, y0) and (x1, y1) is the
// rectangle one pixel wide centred on the line through the pixel centres
// (x + 0.5, y + 0.5), lengthened by half a pixel at each end so that both end
// pixels are covered as an X11 line covers them; a segment of zero length is
// its one pixel. Each pixel takes the colour in the share of its area the
// rectangle covers, computed exactly (to 8 bits), composited over what is
// there (cairo's OVER operator, on premultiplied pixels).
#ifndef TRACERY_PREVIEW_LINE_RASTER_H
#define TRACERY_PREVIEW_LINE_RASTER_H

#include <cstdint>
#include <vector>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

class LineRaster {
  public:
    // Draws into width x height pixels, rows stride pixels apart (cairo's
    // CAIRO_FORMAT_RGB24 or ARGB32 memory). The buffer outlives the raster or
    // is replaced by another attach (or detach).
    void attach(uint32_t* pixels, int width, int height, int stride);
    // The same with each row where rows[y] says (a picture kept in strips).
    void attach(const std::vector<uint32_t*>& rows, int width);
    void detach() { rows_.clear(); }
    // The colour of the lines that follow, opaque; components held to 0..1
    // and made 8 bits wide as cairo makes them.
    void set_colour(const float rgb[3]);
    // One segment; the coordinates may lie anywhere an int reaches. It
    // touches no pixel more than one pixel beyond the box of its ends.
    void draw(int x0, int y0, int x1, int y1);
    // Whether every pixel of the box from (x0, y0) to (x1, y1), ends
    // included, that lies in the picture is of the colour: a line drawn over
    // such pixels leaves them as they are.
    bool box_is_colour(long x0, long y0, long x1, long y1) const;

    // The 8-bit byte cairo makes of a colour component (0..1).
    static uint32_t colour_byte(float component);

    // The colour at coverage c (0..255) over a pixel: colour * c / 255 +
    // pixel * (255 - c) / 255 for each of the four bytes, each product
    // rounded as cairo's compositing (pixman) rounds it.
    uint32_t composite(uint32_t pixel, uint32_t c) const {
#ifdef __SSE2__
        const __m128i zero = _mm_setzero_si128(), round = _mm_set1_epi16(0x80);
        const __m128i d = _mm_unpacklo_epi8(_mm_cvtsi32_si128(static_cast<int>(pixel)), zero);
        __m128i a = _mm_add_epi16(_mm_mullo_epi16(colour16_, _mm_set1_epi16(short(c))), round);
        __m128i b = _mm_add_epi16(_mm_mullo_epi16(d, _mm_set1_epi16(short(255 - c))), round);
        a = _mm_srli_epi16(_mm_add_epi16(a, _mm_srli_epi16(a, 8)), 8);
        b = _mm_srli_epi16(_mm_add_epi16(b, _mm_srli_epi16(b, 8)), 8);
        return static_cast<uint32_t>(
            _mm_cvtsi128_si32(_mm_packus_epi16(_mm_add_epi16(a, b), zero)));
#else
        auto scale = [](uint32_t pairs, uint32_t by) {
            uint32_t t = pairs * by + 0x00800080u;
            return ((t + ((t >> 8) & 0x00ff00ffu)) >> 8) & 0x00ff00ffu;
        };
        const uint32_t rest = 255 - c;
        const uint32_t rb = scale(colour_ & 0x00ff00ffu, c) + scale(pixel & 0x00ff00ffu, rest);
        const uint32_t ag =
            scale((colour_ >> 8) & 0x00ff00ffu, c) + scale((pixel >> 8) & 0x00ff00ffu, rest);
        return rb | ag << 8;
#endif
    }

  private:
    // The coverage of a short segment, relative to its first end: most
    // segments of a dense scene span a few pixels, and a segment's coverage
    // depends only on the offset between its ends, so each offset's is
    // worked out once and then only composited.
    struct StampPixel {
        int8_t dx, dy;
        uint8_t coverage;
    };
    struct Stamp {
        bool made = false;
        int16_t left, top, right, bottom;  // box of the pixels, from the first end
        std::vector<StampPixel> pixels;
    };
    static constexpr int STAMP_REACH = 7;  // offsets up to this far each way
    static constexpr int STAMP_SIDE = 2 * STAMP_REACH + 1;

    const Stamp& stamp(int dx, int dy);
    void draw_stamp(const Stamp& s, int x0, int y0);
    void draw_long(int x0, int y0, int x1, int y1);
    bool over_colour(double ax, double ay, double bx, double by);
    bool row_is_colour(const uint32_t* row, long low, long high, long width) const;
    bool column_is_colour(long column, long low, long high) const;
    // The tiles of TILE x TILE pixels known to hold only the colour: a line
    // blends only the colour, so a tile stays so until the colour changes
    // or another picture is attached, and a long line whose pixels lie in
    // such tiles changes nothing. A tile is known while its number is
    // colour_epoch_, which a change of colour moves on.
    static constexpr int TILE = 8;
    bool tiles_of_colour(long x0, long y0, long x1, long y1) const;
    void learn_tiles(long x0, long y0, long x1, long y1);
    std::vector<uint32_t> tile_epochs_;
    int tiles_wide_ = 0;
    uint32_t colour_epoch_ = 1;
    // A pixel already of the colour stays so (dense scenes are mostly such
    // pixels).
    void blend(int x, int y, uint32_t coverage) {
        uint32_t* p = rows_[y] + x;
        if (*p != colour_) *p = coverage >= 255 ? colour_ : composite(*p, coverage);
    }
    std::vector<uint32_t*> rows_;  // empty when there is nothing to draw on
    int width_ = 0, height_ = 0;
    uint32_t colour_ = 0xffffffff;
#ifdef __SSE2__
    __m128i colour16_ = _mm_set1_epi16(255);  // colour_'s bytes in 16-bit lanes
#endif
    Stamp stamps_[STAMP_SIDE * STAMP_SIDE];
};

#endif  // TRACERY_PREVIEW_LINE_RASTER_H
