// Picture files: the numbering of names, and PNG pictures read back pixel by
// pixel (background, foreground along segments, colour changes, end pixels).
#include "preview/picture_sink.h"

#include <cairo.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "capture.h"

namespace {

TEST(PictureFileName, ReplacesTheFirstNumberConversion) {
    EXPECT_EQ(picture_file_name("frame%04d.png", 3), "frame0003.png");
    EXPECT_EQ(picture_file_name("f%d-%d.png", 12), "f12-%d.png");
    EXPECT_EQ(picture_file_name("%-3d|", 7), "7  |");
    EXPECT_EQ(picture_file_name("still.png", 5), "still.png");
    EXPECT_EQ(picture_file_name("100%%d.png", 5), "100%%d.png");
    EXPECT_EQ(picture_file_name("50%.png", 5), "50%.png");
    EXPECT_FALSE(picture_name_is_numbered("a%s.pdf"));
    EXPECT_TRUE(picture_name_is_numbered("a%2d.pdf"));
}

TEST(PictureFileName, BoundsTheWidth) {
    std::string name = picture_file_name("%99999999999d", 1);
    EXPECT_LE(name.size(), 70u);
    EXPECT_EQ(name.back(), '1');
}

struct Rgb {
    int r, g, b;
};

// A PNG file read back through cairo.
class Png {
  public:
    explicit Png(const std::string& path)
        : surface_(cairo_image_surface_create_from_png(path.c_str())) {}
    ~Png() { cairo_surface_destroy(surface_); }
    bool ok() const { return cairo_surface_status(surface_) == CAIRO_STATUS_SUCCESS; }
    int width() const { return cairo_image_surface_get_width(surface_); }
    int height() const { return cairo_image_surface_get_height(surface_); }
    Rgb at(int x, int y) const {
        const unsigned char* row =
            cairo_image_surface_get_data(surface_) + y * cairo_image_surface_get_stride(surface_);
        uint32_t pixel = reinterpret_cast<const uint32_t*>(row)[x];
        return {static_cast<int>((pixel >> 16) & 0xff), static_cast<int>((pixel >> 8) & 0xff),
                static_cast<int>(pixel & 0xff)};
    }

  private:
    cairo_surface_t* surface_;
};

::testing::AssertionResult is_colour(Rgb got, int r, int g, int b) {
    if (got.r == r && got.g == g && got.b == b) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "(" << got.r << "," << got.g << "," << got.b
                                         << ") instead of (" << r << "," << g << "," << b << ")";
}

class PictureSinkTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/tracery-pictures-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override {
        std::string command = "rm -rf '" + dir_ + "'";
        ASSERT_EQ(std::system(command.c_str()), 0);
    }
    std::string path(const std::string& name) const { return dir_ + "/" + name; }

    const float red_[3] = {1, 0, 0};
    const float blue_[3] = {0, 0, 1};
    std::string dir_;
};

TEST_F(PictureSinkTest, PngHasTheLinesOnTheBackground) {
    {
        PictureSink sink(PictureKind::PNG, path("a.png").c_str(), red_, blue_);
        sink.world_begin(20, 10);
        sink.segment(2, 5, 17, 5);   // horizontal
        sink.segment(1, 0, 1, 9);    // vertical, end to end
        sink.segment(18, 8, 18, 8);  // one point
        sink.object_end();
        sink.world_end();
    }
    Png png(path("a.png"));
    ASSERT_TRUE(png.ok());
    EXPECT_EQ(png.width(), 20);
    EXPECT_EQ(png.height(), 10);
    for (int x = 2; x <= 17; ++x) EXPECT_TRUE(is_colour(png.at(x, 5), 255, 0, 0)) << "x " << x;
    for (int y = 0; y <= 9; ++y) EXPECT_TRUE(is_colour(png.at(1, y), 255, 0, 0)) << "y " << y;
    EXPECT_TRUE(is_colour(png.at(18, 8), 255, 0, 0));
    EXPECT_TRUE(is_colour(png.at(10, 2), 0, 0, 255));
    EXPECT_TRUE(is_colour(png.at(10, 7), 0, 0, 255));
    EXPECT_TRUE(is_colour(png.at(19, 5), 0, 0, 255));
}

// A line covers pixels up to one beyond the box of its ends, so a box is
// drawn only when those pixels too have the colour; a vector page always
// takes its lines.
TEST_F(PictureSinkTest, BoxDrawnTakesThePixelsALineCanReach) {
    PictureSink png(PictureKind::PNG, path("box.png").c_str(), red_, blue_);
    png.world_begin(20, 10);
    for (int y = 2; y <= 7; ++y) png.segment(4, y, 14, y);
    EXPECT_TRUE(png.box_drawn(5, 3, 13, 6));
    EXPECT_FALSE(png.box_drawn(4, 2, 14, 7));  // its own pixels are red, not those around
    png.color(blue_);
    EXPECT_FALSE(png.box_drawn(5, 3, 13, 6));
    PictureSink svg(PictureKind::SVG, path("box.svg").c_str(), red_, blue_);
    svg.world_begin(20, 10);
    EXPECT_FALSE(svg.box_drawn(-100, -100, -90, -90));
}

TEST_F(PictureSinkTest, ColourChangesLastAcrossWorldBlocks) {
    const float green[3] = {0, 1, 0};
    PictureSink sink(PictureKind::PNG, path("c%d.png").c_str(), red_, blue_);
    sink.world_begin(8, 8);
    sink.segment(0, 1, 7, 1);
    sink.color(green);
    sink.segment(0, 6, 7, 6);
    sink.world_end();
    sink.world_begin(8, 8);
    sink.segment(0, 3, 7, 3);
    sink.world_end();
    Png first(path("c0.png"));
    Png second(path("c1.png"));
    ASSERT_TRUE(first.ok() && second.ok());
    EXPECT_TRUE(is_colour(first.at(4, 1), 255, 0, 0));
    EXPECT_TRUE(is_colour(first.at(4, 6), 0, 255, 0));
    EXPECT_TRUE(is_colour(second.at(4, 3), 0, 255, 0));
    EXPECT_EQ(sink.pictures(), 2);
}

TEST_F(PictureSinkTest, UnnumberedNameKeepsTheLastPicture) {
    {
        PictureSink sink(PictureKind::PNG, path("last.png").c_str(), red_, blue_);
        for (int size : {4, 6, 9}) {
            sink.world_begin(size, size);
            sink.world_end();
        }
    }
    Png png(path("last.png"));
    ASSERT_TRUE(png.ok());
    EXPECT_EQ(png.width(), 9);
    EXPECT_EQ(access(path("last0.png").c_str(), F_OK), -1);
}

TEST_F(PictureSinkTest, UnwritableFilesAreReportedNotFatal) {
    ScopedErrorCapture capture;
    for (PictureKind kind : {PictureKind::PNG, PictureKind::SVG, PictureKind::PDF}) {
        PictureSink sink(kind, path("missing/dir/x").c_str(), red_, blue_);
        sink.world_begin(10, 10);
        sink.segment(0, 0, 9, 9);
        sink.world_end();
    }
    ASSERT_EQ(capture.count(), 3u);
    for (const CapturedError& e : capture.errors()) {
        EXPECT_EQ(e.code, RIE_SYSTEM);
        EXPECT_EQ(e.severity, RIE_ERROR);
        EXPECT_NE(e.message.find("missing/dir/x"), std::string::npos) << e.message;
    }
}

TEST_F(PictureSinkTest, OversizedWorldIsReportedAndSkipped) {
    ScopedErrorCapture capture;
    PictureSink sink(PictureKind::PNG, path("big%d.png").c_str(), red_, blue_);
    sink.world_begin(100000, 100000);
    sink.segment(0, 0, 5, 5);
    sink.world_end();
    sink.world_begin(0, 10);
    sink.world_end();
    EXPECT_EQ(capture.count(), 2u);
    EXPECT_EQ(access(path("big0.png").c_str(), F_OK), -1);
    EXPECT_EQ(sink.pictures(), 2);
}

}  // namespace
