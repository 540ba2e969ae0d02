// Tests of the option parser: the words each option takes, its effect on the
// settings or the interface, and where the list of files begins.
#include <gtest/gtest.h>

#include <vector>

#include "driver/command_line.h"
#include "driver/globals.h"
#include "ri/attributes.h"
#include "state_fixture.h"
#include "support/report_output.h"

namespace {

class CommandLineTest : public InterfaceStateTest {
  protected:
    void SetUp() override {
        InterfaceStateTest::SetUp();
        saved_start = start_frame;
        saved_end = end_frame;
        RiBegin(RI_NULL);
    }
    void TearDown() override {
        start_frame = saved_start;
        end_frame = saved_end;
        dump_postscript = 0;
        postscript_filename = nullptr;
        dump_diced_rib = 0;
        sync_times = 0;
        verbose = 0;
        wait_for_last_frame = 1;
        use_colors = 1;
        RMDEBUG = 1;
        png_filename = svg_filename = pdf_filename = nullptr;
        InterfaceStateTest::TearDown();
    }
    // Parses the words (the program name is added in front).
    int parse(std::vector<const char*> words) {
        args.assign(1, const_cast<char*>("tracery"));
        for (const char* w : words) args.push_back(const_cast<char*>(w));
        return parse_options(static_cast<int>(args.size()), args.data());
    }
    std::vector<char*> args;
    long saved_start = 0, saved_end = 0;
};

TEST_F(CommandLineTest, PictureOptionsNameTheirFiles) {
    EXPECT_FALSE(pictures_wanted());
    EXPECT_EQ(parse({"-svg", "a.svg", "-png", "f%04d.png", "-ps", "p.ps", "scene.rib"}), 7);
    EXPECT_STREQ(png_filename, "f%04d.png");
    EXPECT_STREQ(svg_filename, "a.svg");
    EXPECT_EQ(pdf_filename, nullptr);
    EXPECT_TRUE(pictures_wanted());
    EXPECT_EQ(parse({"-pdf", "b.pdf", "-png", "last.png"}), 5);
    EXPECT_STREQ(pdf_filename, "b.pdf");
    EXPECT_STREQ(png_filename, "last.png");
}

TEST_F(CommandLineTest, OptionsTakeTheirWordsAndSetTheirGlobals) {
    float saved_bg[3] = {bg_color[0], bg_color[1], bg_color[2]};
    EXPECT_EQ(parse({"-frames", "2",        "3",        "-ps",    "out.ps", "-sync",    "10",
                     "-nowait", "-dumptri", "-nocolor", "-debug", "-bg",    "0",        "0",
                     "0.3",     "-fg",      "1",        "x",      "0.5",    "scene.rib"}),
              20);
    EXPECT_EQ((std::vector<long>{start_frame, end_frame, dump_postscript, sync_times,
                                 wait_for_last_frame, dump_diced_rib, use_colors, RMDEBUG}),
              (std::vector<long>{2, 3, 1, 10, 0, 2, 0, 2}));
    EXPECT_STREQ(postscript_filename, "out.ps");
    EXPECT_EQ((std::vector<float>{bg_color[0], bg_color[2], fg_color[1]}),
              (std::vector<float>{0, 0.3f, 0}));  // a word that is not a number reads as 0
    for (int i = 0; i < 3; ++i) bg_color[i] = saved_bg[i];
    for (float& c : fg_color) c = 1.0f;
}

TEST_F(CommandLineTest, SomeOptionsCallTheInterfaceAndTheFirstNonOptionStartsTheFiles) {
    parse({"-res", "320", "200", "-rd", "2.5", "-v"});
    EXPECT_EQ(renderer->xres, 320);
    EXPECT_EQ(renderer->yres, 200);
    EXPECT_FLOAT_EQ(renderer->relative_detail, 2.5f);
    EXPECT_EQ(verbose, 1);
    EXPECT_EQ(renderer->verbosity & 2, 2);
    EXPECT_EQ(capture.count(), 0u);

    verbose = 0;
    EXPECT_EQ(parse({}), 1);
    EXPECT_EQ(parse({"-x", "-v"}), 1);
    EXPECT_EQ(verbose, 0);
    EXPECT_EQ(parse({"-color", "a.rib", "-nowait"}), 2);
    EXPECT_EQ(wait_for_last_frame, 1);
    EXPECT_EQ(parse({"-Res", "1", "1"}), 1);  // options are case-sensitive
}

// (The usage text is shown on the command line.)
TEST_F(CommandLineTest, MissingOrBadArgumentsEndWithADiagnostic) {
    EXPECT_EXIT(parse({"-bg", "1", "1"}), testing::ExitedWithCode(2), "-bg needs 3 arguments");
    EXPECT_EXIT(parse({"-ps"}), testing::ExitedWithCode(2), "-ps needs 1 argument\n");
    EXPECT_EXIT(parse({"-report", "xml"}), testing::ExitedWithCode(2),
                "-report takes text or json, not \"xml\"\n");
    for (const char* count : {"-1", "", "5x", "99999999999999999999"}) {
        EXPECT_EXIT(parse({"-maxreports", count}), testing::ExitedWithCode(2),
                    "-maxreports takes a number of reports");
    }
}

TEST_F(CommandLineTest, ReportOptionsSetFormatAndLimit) {
    EXPECT_EQ(parse({"-check", "-report", "json", "-maxreports", "0", "-report", "text", "a.rib"}),
              8);
    EXPECT_EQ(check_only, 1);
    EXPECT_EQ(report_format, ReportFormat::Text);
    EXPECT_EQ(report_limit, 0);
    check_only = 0;
    report_format = ReportFormat::Classic;
    report_limit = -1;
}

}  // namespace
