// Options: the raster mapping derived at world begin, the value rules of the
// option procedures and RiOptionV families, search paths and find_path.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include <unistd.h>

#include "preview/x11_previewer.h"
#include "ri/options.h"
#include "ri/renderer.h"
#include "state_fixture.h"

namespace {

class Options : public InterfaceStateTest {
  protected:
    void SetUp() override {
        InterfaceStateTest::SetUp();
        RiBegin(RI_NULL);
    }
    GOptions& o() { return *renderer; }
};

void int_option(const char* family, const char* key, int value) {
    RiOption(family, key, &value, RI_NULL);
}

void int_pair_option(const char* family, const char* key, int a, int b) {
    int pair[2] = {a, b};
    RiOption(family, key, pair, RI_NULL);
}

void string_option(const char* family, const char* key, const char* value) {
    RiOption(family, key, &value, RI_NULL);
}

}  // namespace

TEST_F(Options, DefaultsOnlyWorld) {
    RiWorldBegin();
    const GOptions& r = o();
    EXPECT_EQ((std::vector<int>{r.out_xres, r.out_yres, r.crop_x0, r.crop_x1, r.crop_y0, r.crop_y1,
                                r.pad_x0, r.pad_x1, r.pad_y0, r.pad_y1, detail_level}),
              (std::vector<int>{640, 480, 0, 639, 0, 479, -1, 640, -1, 480, 4}));
    const float window[] = {r.frame_aspect,  r.screen_left, r.screen_right,
                            r.screen_bottom, r.screen_top,  xstep * 640};
    const float expected[] = {4.0f / 3, -4.0f / 3, 4.0f / 3, -1, 1, 8.0f / 3};
    for (int i = 0; i < 6; i++) EXPECT_FLOAT_EQ(window[i], expected[i]) << i;
    EXPECT_EQ(capture.count(), 0u);
}

TEST_F(Options, FrameAspectCutsTheOutputToFit) {
    RiFrameBegin(1);  // the frame's pop forgets the derived screen window
    RiFrameAspectRatio(1);
    RiWorldBegin();
    EXPECT_EQ(o().out_xres, 480);  // floor(1 * 480 / 1 + 0.5)
    EXPECT_EQ(o().out_yres, 480);
    EXPECT_FLOAT_EQ(o().screen_left, -1);
    RiWorldEnd();
    RiFrameEnd();
    RiFrameBegin(2);
    RiFormat(200, 400, 1);  // a tall format: the window is (-1, 1, -1/f, 1/f)
    RiWorldBegin();
    EXPECT_FLOAT_EQ(o().screen_top, 2);
    RiWorldEnd();
    RiFrameEnd();
    RiFormat(400, 400, 1);
    RiFrameAspectRatio(2);
    RiWorldBegin();
    EXPECT_EQ(o().out_yres, 200);  // floor(1 * 400 / 2 + 0.5)
    EXPECT_FLOAT_EQ(o().screen_left, -2);
}

TEST_F(Options, CropWindowLowersTheHeightForLaterWorlds) {
    RiCropWindow(0, 1, 0, 0.5f);
    RiWorldBegin();
    // This world still maps the full height.
    EXPECT_EQ((std::vector<int>{o().crop_y1, o().crop_height, o().yres, o().out_yres}),
              (std::vector<int>{239, 240, 240, 480}));
    RiWorldEnd();
    RiWorldBegin();
    EXPECT_EQ(o().out_yres, 240);
}

TEST_F(Options, PerspectiveScalesTheScreenWindow) {
    float fov = 90;
    RiProjection("perspective", "fov", &fov, RI_NULL);
    RiWorldBegin();
    EXPECT_EQ(o().projection, 0);
    EXPECT_FLOAT_EQ(o().persp_scale, 1);
    EXPECT_FLOAT_EQ(o().screen_top, 1);
    RiWorldEnd();
    fov = 60;
    RiProjection("perspective", "fov", &fov, RI_NULL);
    RiScreenWindow(-1, 1, -1, 1);
    RiWorldBegin();
    EXPECT_NEAR(o().persp_scale, 0.57735f, 1e-5);
    EXPECT_NEAR(o().screen_top, 0.57735f, 1e-5);
}

TEST_F(Options, CameraFrameAndDetailLevelAreDerivedAtWorldBegin) {
    RiRotate(90, 0, 1, 0);
    RiTranslate(0, 0, 5);
    RiWorldBegin();
    EXPECT_NEAR(o().eye[0], 0, 1e-5);
    EXPECT_NEAR(o().eye[2], -5, 1e-5);
    EXPECT_NEAR(std::hypot(o().view_dir[0], o().view_dir[1], o().view_dir[2]), 1, 1e-5);
    EXPECT_NEAR(std::fabs(o().view_dir[0]), 1, 1e-5);  // turned onto the x axis
    RiWorldEnd();

    // The relative detail sets a clamped detail level.
    RiRelativeDetail(0.1f);
    RiWorldBegin();
    EXPECT_EQ(detail_level, 1);  // trunc(0.4) raised to 1
    RiWorldEnd();
    RiRelativeDetail(100);
    RiWorldBegin();
    EXPECT_EQ(detail_level, 32);
}

TEST_F(Options, OptionsInsideTheWorldWarnButAreStored) {
    RiWorldBegin();
    RiFormat(100, 80, 1);
    EXPECT_TRUE(only_report(25, 1, ""));
    EXPECT_FALSE(capture.errors()[0].has_message);
    EXPECT_EQ(o().xres, 100);
    capture.clear();
    RiProjection("orthographic", RI_NULL);
    EXPECT_TRUE(only_report(25, 1, "RiProjection called at bad level"));
}

TEST_F(Options, ValueRules) {
    RiFormat(0, 0, -1);  // each value only when positive
    EXPECT_EQ(o().xres, 640);
    EXPECT_FLOAT_EQ(o().pixel_aspect, 1);
    RiPixelSamples(0.5f, 3.7f);
    EXPECT_EQ(o().xsamples, 1);
    EXPECT_EQ(o().ysamples, 3);
    RiDepthOfField(RI_INFINITY, 50, 10);
    EXPECT_EQ(o().depth_of_field, 0);
    RiDepthOfField(2, 50, 10);
    EXPECT_FLOAT_EQ(o().lens_radius, 12.5f);
}

TEST_F(Options, DisplayTypeModeParametersAndLongName) {
    RiDisplay("out.tif", "printer", "rgbq", RI_NULL);
    EXPECT_EQ(capture.messages(),
              (std::vector<std::string>{"RiDisplay given invalid type: \"printer\"",
                                        "RiDisplay given invalid mode: \"rgbq\""}));
    EXPECT_EQ(capture.errors()[1].severity, 2);
    EXPECT_EQ(o().display_type, DISPLAY_FILE);
    EXPECT_EQ(o().display_mode, 1);
    EXPECT_STREQ(o().display_name, "out.tif");
    capture.clear();
    int origin[2] = {10, 20};
    RiDisplay("x", "ascii", "rgbaz", "origin", origin, "quality", origin, RI_NULL);
    EXPECT_TRUE(only_report(41, 1, "RiDisplay: Unknown parameter \"quality\""));
    EXPECT_EQ(o().origin_y, 20);
    EXPECT_EQ(o().display_mode, 7);
    EXPECT_EQ(o().verbosity, 0);  // ascii silences the run
    capture.clear();
    std::string long_name(300, 'n');
    RiDisplay(long_name.c_str(), "file", "rgb", RI_NULL);
    EXPECT_EQ(capture.errors().at(0).code, 13);
    EXPECT_EQ(std::string(o().display_name), long_name.substr(0, 255));
}

TEST_F(Options, QuantizeAndProjectionRules) {
    RiQuantize("rgba", 1023, 1, 1000, 0.25f);
    RiQuantize("z", 7, 2, 3, 0.75f);
    RiQuantize("alpha", 1, 2, 3, 4);
    EXPECT_TRUE(only_report(41, 1, "RiQuantize given bad type \"alpha\""));
    const GOptions& r = o();
    EXPECT_EQ((std::vector<float>{r.color_one, r.color_min, r.color_max, r.color_dither,
                                  r.depth_one, r.depth_max, r.depth_dither}),
              (std::vector<float>{1023, 1, 1000, 0.25f, 7, 3, 0.75f}));

    capture.clear();
    float fov = 30;
    RiProjection("perspective", "fov", &fov, "near", &fov, RI_NULL);
    EXPECT_TRUE(only_report(41, 2, "RiProjection: Invalid parameter for \"perspective\""));
    EXPECT_FLOAT_EQ(o().fov, 30);
    capture.clear();
    RiProjection("fisheye", RI_NULL);
    EXPECT_TRUE(only_report(41, 2, "RiProjection: Invalid projection \"fisheye\""));
    EXPECT_EQ(o().projection, 0);

    // Only the first sample of a moving projection counts; the second is
    // ignored before the level check, so the world warns once.
    capture.clear();
    RiWorldBegin();
    RiMotionBegin(2, 0.0, 1.0);
    RiProjection("orthographic", RI_NULL);
    RiProjection("perspective", RI_NULL);
    RiMotionEnd();
    RiWorldEnd();
    EXPECT_TRUE(only_report(25, 1, "RiProjection called at bad level"));
    EXPECT_EQ(o().projection, 1);
}

// A string key whose token was redeclared brings a number, not a string:
// it is refused instead of being followed as a pointer.
TEST_F(Options, StringKeysRedeclaredAsNumbersAreRefused) {
    string_option("searchpath", "shader", "/s");
    RiDeclare("shader", "integer");
    RiDeclare("resource", "integer");
    RiDeclare("verbosity", "float");
    capture.clear();
    int_option("searchpath", "shader", 5);
    int_option("searchpath", "resource", 7);
    int_option("runtime", "verbosity", 9);
    EXPECT_EQ(capture.messages(),
              (std::vector<std::string>{"searchpath option \"shader\" needs a string value",
                                        "searchpath option \"resource\" needs a string value",
                                        "runtime option \"verbosity\" needs a string value"}));
    EXPECT_EQ(capture.errors()[0].code, 43);
    EXPECT_EQ(capture.errors()[0].severity, 2);
    EXPECT_STREQ(o().shader_path, "/s");
    EXPECT_EQ(o().texture_path, nullptr);
    EXPECT_EQ(o().verbosity, 1);
    RiDeclare("shader", "string");
    RiDeclare("resource", "string");
    RiDeclare("verbosity", "string");
}

TEST_F(Options, LimitsRenderAndRuntimeOptions) {
    int_pair_option("limits", "bucketsize", 20, 40);
    EXPECT_EQ(o().bucket_xsize, 64);
    int_pair_option("limits", "bucketsize", 16, 8);
    EXPECT_EQ(o().bucket_ysize, 16);
    int_pair_option("limits", "bucketsize", 33, 0);
    EXPECT_EQ(o().bucket_xsize, 64);
    int_option("render", "maxsamples", 300);
    EXPECT_EQ(o().maxsamples, 256);
    int_option("render", "minsamples", 8);
    int_option("render", "maxsamples", 2);
    EXPECT_EQ(o().maxsamples, 8);
    int_option("render", "minsamples", 1);
    EXPECT_EQ(o().minsamples, 4);
    int_option("limits", "texturememory", 2);
    EXPECT_EQ(o().texture_memory, 2048);
    string_option("runtime", "verbosity", "verbose");  // as the driver's -v does
    EXPECT_EQ(o().verbosity, 3);
    string_option("runtime", "verbosity", "silent");
    string_option("runtime", "verbosity", "stats");
    EXPECT_EQ(o().verbosity, 10);
    int_option("render", "bogus", 1);
    int_option("nonsense", "x", 1);
    EXPECT_EQ(capture.messages(),
              (std::vector<std::string>{"Unknown render option \"bogus\"",
                                        "RiOption: Unknown option type: \"nonsense\""}));
}

TEST_F(Options, SearchPathAmpersandTakesThePreviousPathWithinItsBuffer) {
    string_option("searchpath", "shader", "&:/a");
    EXPECT_STREQ(o().shader_path, ":/a");
    string_option("searchpath", "shader", "&:/a");
    EXPECT_STREQ(o().shader_path, ":/a:/a");
    string_option("searchpath", "resource", "/r:&");
    EXPECT_STREQ(o().texture_path, "/r:");
    EXPECT_STREQ(o().shader_path, "/r::/a:/a");
    EXPECT_STREQ(o().include_path, "/r:");
    std::string part(6000, 'p');
    string_option("searchpath", "include", part.c_str());
    string_option("searchpath", "include", "&&");
    EXPECT_TRUE(only_report(13, 1, "Search path too long; truncated"));
    EXPECT_EQ(std::string(o().include_path).size(), 9999u);
}

TEST(FindPath, SearchesEachElementWithinTheResultBuffer) {
    char dir_template[] = "/tmp/tracery_findXXXXXX";
    ASSERT_NE(mkdtemp(dir_template), nullptr);
    std::string dir = dir_template, file = dir + "/scene.rib";
    FILE* f = std::fopen(file.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fclose(f);
    char result[256], small[8];
    std::string path = "/nonexistent:" + dir + "/";
    EXPECT_EQ(find_path("scene.rib", path.c_str(), result, sizeof result), 1);
    EXPECT_EQ(std::string(result), file);  // no doubled '/'
    EXPECT_EQ(find_path("other.rib", path.c_str(), result, sizeof result), 0);
    EXPECT_EQ(find_path("scene.rib", path.c_str(), small, sizeof small), 0);
    std::remove(file.c_str());
    rmdir(dir.c_str());
}
