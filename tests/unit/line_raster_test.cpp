// The picture files' line drawing: each pixel's coverage compared with the
// area of the line's rectangle over the pixel worked out another way
// (clipping the rectangle to the pixel), within the 4 of 255 that the band
// table's steps allow (none for lines along the axes), and
// the compositing compared with cairo's own.
#include "preview/line_raster.h"

#include <cairo.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace {

struct Point {
    double x, y;
};

// Keeps the part of a convex polygon on the side of the line through a with
// direction d where cross(d, p - a) >= 0 (Sutherland-Hodgman, one edge).
std::vector<Point> clip(const std::vector<Point>& polygon, Point a, Point d) {
    auto side = [&](Point p) { return d.x * (p.y - a.y) - d.y * (p.x - a.x); };
    std::vector<Point> out;
    for (size_t k = 0; k < polygon.size(); ++k) {
        Point p = polygon[k], q = polygon[(k + 1) % polygon.size()];
        double sp = side(p), sq = side(q);
        if (sp >= 0) out.push_back(p);
        if ((sp >= 0) != (sq >= 0)) {
            double t = sp / (sp - sq);
            out.push_back({p.x + t * (q.x - p.x), p.y + t * (q.y - p.y)});
        }
    }
    return out;
}

double area(const std::vector<Point>& polygon) {
    double twice = 0;
    for (size_t k = 0; k < polygon.size(); ++k) {
        Point p = polygon[k], q = polygon[(k + 1) % polygon.size()];
        twice += p.x * q.y - q.x * p.y;
    }
    return std::fabs(twice) / 2;
}

// The share of pixel (px, py) covered by the rectangle one pixel wide around
// the line through the centres of the ends, lengthened by half a pixel at
// each end (a segment of no length is its pixel).
double exact_coverage(int x0, int y0, int x1, int y1, int px, int py) {
    double dx = x1 - x0, dy = y1 - y0, length = std::hypot(dx, dy);
    double ux = length > 0 ? dx / length : 1, uy = length > 0 ? dy / length : 0;
    Point a{x0 + 0.5 - ux / 2, y0 + 0.5 - uy / 2}, b{x1 + 0.5 + ux / 2, y1 + 0.5 + uy / 2};
    Point n{-uy / 2, ux / 2};
    std::vector<Point> pixel = {{double(px), double(py)},
                                {px + 1.0, double(py)},
                                {px + 1.0, py + 1.0},
                                {double(px), py + 1.0}};
    // The rectangle's four sides, each direction keeping the inside.
    pixel = clip(pixel, {a.x + n.x, a.y + n.y}, {-ux, -uy});
    pixel = clip(pixel, {b.x - n.x, b.y - n.y}, {ux, uy});
    pixel = clip(pixel, a, {uy, -ux});
    pixel = clip(pixel, b, {-uy, ux});
    return pixel.size() < 3 ? 0 : area(pixel);
}

TEST(LineRaster, CoverageIsTheRectanglesAreaInEachPixel) {
    constexpr int W = 48, H = 40;
    std::mt19937 random(7);
    std::uniform_int_distribution<int> near(-6, W + 5), offset(-9, 9);
    const float white[3] = {1, 1, 1};
    int checked = 0;
    for (int n = 0; n < 600; ++n) {
        // Short and long segments in every direction, some reaching out of
        // the picture, a few of them very far out.
        int x0 = near(random), y0 = near(random), x1, y1;
        if (n % 3 == 0) {
            x1 = x0 + offset(random);
            y1 = y0 + offset(random);
        } else {
            x1 = near(random);
            y1 = near(random);
        }
        if (n % 50 == 0) x1 = x0 + (x1 - x0) * 1000000;
        // Lines along the axes, whose coverage is exact.
        const bool exact = n % 5 == 1;
        if (exact) (n % 2 ? x1 : y1) = n % 2 ? x0 : y0;
        std::vector<uint32_t> pixels(W * H, 0);
        LineRaster raster;
        raster.attach(pixels.data(), W, H, W);
        raster.set_colour(white);
        raster.draw(x0, y0, x1, y1);
        for (int y = 0; y < H; ++y) {
            for (int x = 0; x < W; ++x) {
                // On black, a white line leaves its coverage in each byte.
                int got = pixels[y * W + x] & 0xff;
                int want =
                    static_cast<int>(std::lround(255 * exact_coverage(x0, y0, x1, y1, x, y)));
                ASSERT_LE(std::abs(got - want), exact ? 0 : 4)
                    << "segment " << x0 << "," << y0 << " " << x1 << "," << y1 << " pixel " << x
                    << "," << y;
                // Nothing beyond a pixel past the box of the ends is touched:
                // a lattice inside a box of pixels of its colour is left out.
                if (x < std::min(x0, x1) - 1 || x > std::max(x0, x1) + 1 ||
                    y < std::min(y0, y1) - 1 || y > std::max(y0, y1) + 1) {
                    ASSERT_EQ(got, 0) << "segment " << x0 << "," << y0 << " " << x1 << "," << y1
                                      << " pixel " << x << "," << y;
                }
                checked += want > 0;
            }
        }
    }
    EXPECT_GT(checked, 10000);
}

// A long line over pixels of its colour is left out, since it would change
// nothing (as are lines over tiles of pixels found of its colour before);
// one pixel of another colour anywhere it touches (as drawing it on black
// shows) must still take its share.
TEST(LineRaster, ALineOverItsColourChangesExactlyThePixelsItTouches) {
    constexpr int W = 40, H = 36;
    const float white[3] = {1, 1, 1}, red[3] = {1, 0, 0};
    std::mt19937 random(11);
    std::uniform_int_distribution<int> near(-3, W + 2);
    int touched_checked = 0;
    for (int n = 0; n < 300; ++n) {
        const int x0 = near(random), y0 = near(random), x1 = near(random), y1 = near(random);
        if (std::max(std::abs(x1 - x0), std::abs(y1 - y0)) < 9) continue;  // long lines only
        std::vector<uint32_t> black(W * H, 0);
        LineRaster on_black;
        on_black.attach(black.data(), W, H, W);
        on_black.set_colour(white);
        on_black.draw(x0, y0, x1, y1);
        std::vector<uint32_t> red_pixels(W * H, 0);
        LineRaster raster;
        raster.attach(red_pixels.data(), W, H, W);
        raster.set_colour(red);
        for (int k = 0; k < W * H; ++k) raster.draw(k % W, k / W, k % W, k / W);
        const uint32_t red_pixel = red_pixels[0];
        // One white pixel on or beside the line, up to 3 pixels away.
        for (int y = std::max(0, std::min(y0, y1) - 3); y <= std::min(H - 1, std::max(y0, y1) + 3);
             ++y) {
            for (int x = std::max(0, std::min(x0, x1) - 3);
                 x <= std::min(W - 1, std::max(x0, x1) + 3); x += 2) {
                std::vector<uint32_t> pixels(W * H, red_pixel);
                pixels[y * W + x] = 0xffffffff;
                raster.attach(pixels.data(), W, H, W);
                // A line two columns off, over red only, looks at the tiles
                // around the white pixel first (they must not be taken for
                // red ones).
                raster.draw(x + 2, 0, x + 2, H - 1);
                raster.draw(x0, y0, x1, y1);
                const bool touched = black[y * W + x] != 0;
                ASSERT_EQ(pixels[y * W + x] != 0xffffffff, touched)
                    << "segment " << x0 << "," << y0 << " " << x1 << "," << y1 << " pixel " << x
                    << "," << y;
                touched_checked += touched;
            }
        }
    }
    EXPECT_GT(touched_checked, 1000);
}

// Tiles found of one colour say nothing of the next colour's lines.
TEST(LineRaster, ALineOfAnotherColourIsDrawnOverTilesFoundOfTheFirst) {
    constexpr int W = 32, H = 32;
    const float red[3] = {1, 0, 0}, blue[3] = {0, 0, 1};
    std::vector<uint32_t> pixels(W * H, 0);
    LineRaster raster;
    raster.attach(pixels.data(), W, H, W);
    raster.set_colour(red);
    for (int k = 0; k < W * H; ++k) raster.draw(k % W, k / W, k % W, k / W);
    const uint32_t red_pixel = pixels[0];
    raster.draw(10, 0, 12, 31);  // over red only: the tiles it crosses are found red
    raster.set_colour(blue);
    raster.draw(10, 0, 12, 31);
    EXPECT_NE(pixels[16 * W + 11], red_pixel);
}

TEST(LineRaster, BoxIsColourOnlyWhenEveryPixelInsideThePictureIs) {
    constexpr int W = 20, H = 10;
    const float red[3] = {1, 0, 0}, blue[3] = {0, 0, 1};
    std::vector<uint32_t> pixels(W * H, 0);
    LineRaster raster;
    raster.attach(pixels.data(), W, H, W);
    raster.set_colour(red);
    for (int y = 2; y <= 6; ++y) {
        for (int x = 3; x <= 12; ++x) raster.draw(x, y, x, y);
    }
    EXPECT_TRUE(raster.box_is_colour(3, 2, 12, 6));
    EXPECT_FALSE(raster.box_is_colour(2, 2, 12, 6));
    EXPECT_FALSE(raster.box_is_colour(3, 2, 12, 7));
    EXPECT_TRUE(raster.box_is_colour(40, 2, 50, 6));  // no pixel of it in the picture
    raster.set_colour(blue);
    EXPECT_FALSE(raster.box_is_colour(3, 2, 12, 6));
}

// cairo composites the colour through a mask of each coverage onto each of a
// few backgrounds; the raster must give the same bytes.
TEST(LineRaster, CompositesAsCairoDoes) {
    const float colours[][3] = {{1, 0.5f, 0.25f}, {0.1f, 0.9f, 0.33f}, {0, 0, 0}, {1, 1, 1}};
    const uint32_t backgrounds[] = {0xff1a1a1a, 0xff00ff80, 0xffffffff, 0xff000000};
    cairo_surface_t* mask = cairo_image_surface_create(CAIRO_FORMAT_A8, 256, 1);
    cairo_surface_flush(mask);
    for (int c = 0; c < 256; ++c) cairo_image_surface_get_data(mask)[c] = static_cast<uint8_t>(c);
    cairo_surface_mark_dirty(mask);
    for (const auto& colour : colours) {
        for (uint32_t background : backgrounds) {
            cairo_surface_t* row = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 256, 1);
            auto* pixels = reinterpret_cast<uint32_t*>(cairo_image_surface_get_data(row));
            for (int c = 0; c < 256; ++c) pixels[c] = background;
            cairo_surface_mark_dirty(row);
            cairo_t* cr = cairo_create(row);
            cairo_set_source_rgb(cr, colour[0], colour[1], colour[2]);
            cairo_mask_surface(cr, mask, 0, 0);
            cairo_destroy(cr);
            cairo_surface_flush(row);
            LineRaster raster;
            raster.set_colour(colour);
            for (uint32_t c = 0; c < 256; ++c) {
                EXPECT_EQ(raster.composite(background, c) & 0xffffff, pixels[c] & 0xffffff)
                    << "coverage " << c << " background " << std::hex << background;
            }
            cairo_surface_destroy(row);
        }
    }
    cairo_surface_destroy(mask);
}

}  // namespace
