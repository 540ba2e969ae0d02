// Tests of the request table and the reading loop: keyword lookup, frame
// selection, end of input, argument-code failures and the special requests.
// (Stray tokens, archives, structure comments and the reports seen on the
// command line are covered by the golden cases.)
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "driver/globals.h"
#include "ri/attributes.h"
#include "math/transformation.h"
#include "ri/renderer.h"
#include "ri/transforms.h"
#include "rib/requests.h"
#include "rib/tokenizer.h"
#include "state_fixture.h"

namespace {

class RequestsTest : public InterfaceStateTest {
  protected:
    void SetUp() override {
        InterfaceStateTest::SetUp();
        wait_for_last_frame = 0;
        RiBegin(nullptr);
        capture.clear();
    }
    void TearDown() override {
        start_frame = 0;
        end_frame = 1000000;
        drawing_on = 1;
        release_rib_tables();
        InterfaceStateTest::TearDown();
    }
    // Reads text as a whole RIB stream; returns what went to standard error.
    std::string run(const std::string& text) {
        input_ = text;
        FILE* f = fmemopen(&input_[0], input_.size(), "r");
        testing::internal::CaptureStderr();
        ParseRIB_stream(f, "test.rib", nullptr, 0);
        fclose(f);
        return testing::internal::GetCapturedStderr();
    }
    std::vector<std::string> messages() const {
        std::vector<std::string> out;
        for (const CapturedError& e : capture.errors()) out.push_back(e.message);
        return out;
    }

    std::string input_;
};

using Messages = std::vector<std::string>;

TEST(RequestTable, EveryKeywordIsFoundInItsOwnSlot) {
    make_RIB_hash_table();
    int rows = 0;
    for (const REACTION* r = reactions; r->keyword; ++r, ++rows) {
        REACTION* slot = match_identifier(r->keyword);
        ASSERT_NE(slot, nullptr) << r->keyword;
        EXPECT_STREQ(slot->keyword, r->keyword);
        EXPECT_EQ(slot->function, r->function);
        EXPECT_EQ(slot->code, r->code);
        EXPECT_EQ(slot, &RIB_hash_table[slot->slot]);
    }
    EXPECT_EQ(rows, 95);
    EXPECT_EQ(match_identifier("sphere"), nullptr);
    EXPECT_EQ(match_identifier("Spheres"), nullptr);
    EXPECT_EQ(match_identifier(""), nullptr);
    ASSERT_NE(rxnPolygon, nullptr);
    EXPECT_STREQ(rxnPolygon->keyword, "Polygon");
    EXPECT_STREQ(rxnHyperboloid->keyword, "Hyperboloid");
    EXPECT_EQ(rxnCurve, nullptr);
}

TEST_F(RequestsTest, IntegerArgumentFailuresAddTheirOwnReport) {
    run("Sides \"two\"\nFormat 640 \"x\" 1\nMatte [1]\n");
    EXPECT_EQ(messages(), (Messages{"Number expected", "Integer expected after Sides",
                                    "Number expected", "Syntax error on Format"}));
}

// Each argument code hands its values over in order (bracketed single
// numbers included).
TEST_F(RequestsTest, ArgumentCodesPassTheirValuesInOrder) {
    run("Format 640 [480] 1.5\nClipping 0.5 [20]\nDepthOfField 8 0.1 3\n"
        "ScreenWindow -2 2 -1 1\n"
        "Transform [1 0 0 0 0 2 0 0 0 0 3 0 5 6 7 1]\n");
    EXPECT_EQ(capture.count(), 0u);
    EXPECT_EQ(renderer->xres, 640);
    EXPECT_EQ(renderer->yres, 480);
    EXPECT_EQ(renderer->pixel_aspect, 1.5f);
    EXPECT_EQ(renderer->near_clip, 0.5f);
    EXPECT_EQ(renderer->far_clip, 20.0f);
    EXPECT_EQ(renderer->focal_distance, 3.0f);
    EXPECT_EQ(renderer->screen_left, -2.0f);
    EXPECT_EQ(renderer->screen_top, 1.0f);
    EXPECT_EQ(curxform->matrix0[1][1], 2.0f);
    EXPECT_EQ(curxform->matrix0[3][0], 5.0f);  // row by row: translation in row 3
}

TEST_F(RequestsTest, ErrorHandlerNamesSelectTheStandardHandlers) {
    run("ErrorHandler \"Abort\"\n");
    EXPECT_TRUE(only_report(RIE_BADTOKEN, RIE_WARNING, "Invalid error handler name"));
    EXPECT_EQ(RMError, capture_handler);
    const std::pair<const char*, RtErrorHandler> handlers[] = {
        {"ignore", RiErrorIgnore}, {"print", RiErrorPrint}, {"abort", RiErrorAbort}};
    for (const auto& handler : handlers) {
        run(std::string("ErrorHandler \"") + handler.first + "\"\n");
        EXPECT_EQ(RMError, handler.second) << handler.first;
    }
    RiErrorHandler(capture_handler);
}

TEST_F(RequestsTest, FrameSelection) {
    const std::string frames =
        "Hider \"before\"\n"
        "FrameBegin 1\nHider \"f0\"\nFrameEnd\n"
        "FrameBegin 2\nHider \"f1\"\nFrameEnd\n"
        "FrameBegin 3\nHider \"f2\"\nFrameEnd\n"
        "Hider \"after\"\n";
    auto hiders = [&] {
        Messages names;
        for (const std::string& m : messages()) names.push_back(m.substr(m.find('"')));
        return names;
    };
    run(frames);
    EXPECT_EQ(hiders(), (Messages{"\"before\"", "\"f0\"", "\"f1\"", "\"f2\"", "\"after\""}));

    capture.clear();
    start_frame = end_frame = 1;
    run(frames);
    EXPECT_EQ(hiders(), (Messages{"\"before\"", "\"f1\""}));

    capture.clear();
    start_frame = 0;
    end_frame = -5;
    EXPECT_EQ(run(frames + "[\n"), "");
    EXPECT_EQ(capture.count(), 0u);
}

TEST_F(RequestsTest, EndOfInputAndEndByteStopTheReading) {
    run("WorldBegin");  // read together with the end of input: dropped
    EXPECT_EQ(block_level, 1);
    run("Hider \"a\"\n\xff Hider \"b\"\n");
    EXPECT_EQ(messages(), Messages{"RiHider given bad type \"a\""});
}

TEST_F(RequestsTest, HiderIsCalledWithoutItsParameters) {
    run("Hider \"paint\"\nHider \"hidden\" \"jitter\" [1]\n");
    EXPECT_EQ(renderer->hider, HIDER_HIDDEN);
    ASSERT_GE(capture.count(), 1u);
    EXPECT_EQ(capture.errors()[0].message, "Painter's algorithm for hidden surface not supported");
}

TEST_F(RequestsTest, LightSourceNeedsAStringAndAPlainNumber) {
    run("LightSource spot 1\nLightSource \"spot\" [1]\nLightSource \"spot\" 2 \"intensity\" 3\n"
        "AreaLightSource \"area\" [4]\nIlluminate 2 1\nIlluminate 9 0\n");
    EXPECT_EQ(messages(),
              (Messages{"Light source shader name missing", "Light id number missing"}));
}

TEST_F(RequestsTest, BasisByNameOrMatrix) {
    std::string matrix = "[1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1]";
    run("Basis \"bezier\" 3 \"bogus\" 2\nBasis \"b-spline\" 1 " + matrix + " 2\n");
    ASSERT_EQ(messages(), Messages{"Bad basis name: \"bogus\""});
    EXPECT_EQ(renderer->gstate->ustep, 1);
    EXPECT_EQ(renderer->gstate->vstep, 2);
    EXPECT_EQ(renderer->gstate->ubasis[0][0], RiBSplineBasis[0][0]);

    capture.clear();
    run("Basis [1 2] 3 \"power\" 4\n");
    EXPECT_EQ(messages(), (Messages{"Number expected", "Bad basis"}));
    EXPECT_EQ(renderer->gstate->ustep, 1);
}

TEST_F(RequestsTest, FiltersOfPixelFilterAndTextureMaking) {
    run("PixelFilter \"box\" 3 4\nPixelFilter \"mitchell\" 1 1\n"
        "MakeTexture \"a.tif\" \"a.tx\" \"periodic\" \"clamp\" \"mitchell\" 2 2\n"
        "MakeShadow \"z.zfile\" \"z.shd\"\n"
        "MakeCubeFaceEnvironment \"1\" \"2\" \"3\" \"4\" \"5\" \"6\" \"e.env\" 90 \"sinc\" 1 1\n");
    EXPECT_EQ(renderer->filter, RiBoxFilter);
    EXPECT_EQ(renderer->filter_xwidth, 3.0f);
    EXPECT_EQ(renderer->filter_ywidth, 4.0f);
    ASSERT_EQ(capture.count(), 2u);
    for (const CapturedError& e : capture.errors()) {
        EXPECT_EQ(e.code, RIE_BADTOKEN);
        EXPECT_EQ(e.severity, RIE_ERROR);
        EXPECT_FALSE(e.has_message);
    }
}

TEST_F(RequestsTest, ColorSamplesReadsNThenNValues) {
    run("ColorSamples [1 2 3] [4 5 6]\nColorSamples [1 2] [3]\n");
    EXPECT_EQ(messages(), (Messages{"ColorSamples not currently implemented", "Number expected"}));
}

}  // namespace
