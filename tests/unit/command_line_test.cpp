// Tests of the option parser: the words each option takes, its effect on the
// settings or the interface, and where the list of files begins.
#include <gtest/gtest.h>

#include <vector>

#include "driver/command_line.h"
#include "driver/globals.h"
#include "ri/attributes.h"
#include "state_fixture.h"

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

TEST_F(CommandLineTest, OptionsTakeTheirWordsAndSetTheirGlobals) {
    EXPECT_EQ(parse({"-frames", "2", "3", "-ps", "out.ps", "-sync", "10", "-nowait", "-dumptri",
                     "-nocolor", "-debug", "scene.rib"}),
              12);
    EXPECT_EQ(start_frame, 2);
    EXPECT_EQ(end_frame, 3);
    EXPECT_EQ(dump_postscript, 1);
    EXPECT_STREQ(postscript_filename, "out.ps");
    EXPECT_EQ(sync_times, 10);
    EXPECT_EQ(wait_for_last_frame, 0);
    EXPECT_EQ(dump_diced_rib, 2);
    EXPECT_EQ(use_colors, 0);
    EXPECT_EQ(RMDEBUG, 2);
}

TEST_F(CommandLineTest, ColoursAreThreeNumbers) {
    float saved_bg[3] = {bg_color[0], bg_color[1], bg_color[2]};
    EXPECT_EQ(parse({"-bg", "0", "0", "0.3", "-fg", "1", "x", "0.5"}), 9);
    EXPECT_FLOAT_EQ(bg_color[2], 0.3f);
    EXPECT_FLOAT_EQ(bg_color[0], 0.0f);
    EXPECT_FLOAT_EQ(fg_color[1], 0.0f);  // a word that is not a number reads as 0
    for (int i = 0; i < 3; ++i) bg_color[i] = saved_bg[i];
    for (float& c : fg_color) c = 1.0f;
}

TEST_F(CommandLineTest, SomeOptionsCallTheInterfaceAtOnce) {
    parse({"-res", "320", "200", "-rd", "2.5", "-v"});
    EXPECT_EQ(renderer->xres, 320);
    EXPECT_EQ(renderer->yres, 200);
    EXPECT_FLOAT_EQ(renderer->relative_detail, 2.5f);
    EXPECT_EQ(verbose, 1);
    EXPECT_EQ(renderer->verbosity & 2, 2);
    EXPECT_EQ(capture.count(), 0u);
}

TEST_F(CommandLineTest, TheFirstWordThatIsNoOptionStartsTheFiles) {
    EXPECT_EQ(parse({}), 1);
    EXPECT_EQ(parse({"-x", "-v"}), 1);
    EXPECT_EQ(verbose, 0);
    EXPECT_EQ(parse({"-color", "a.rib", "-nowait"}), 2);
    EXPECT_EQ(wait_for_last_frame, 1);
    EXPECT_EQ(parse({"-Res", "1", "1"}), 1);  // options are case-sensitive
}

TEST_F(CommandLineTest, MissingArgumentsEndWithADiagnostic) {
    EXPECT_EXIT(parse({"-bg", "1", "1"}), testing::ExitedWithCode(2), "-bg needs 3 arguments");
    EXPECT_EXIT(parse({"-ps"}), testing::ExitedWithCode(2), "-ps needs 1 argument\n");
}

TEST_F(CommandLineTest, UsageGoesToStandardErrorAndExitsWithZero) {
    EXPECT_EXIT(parse({"-nowait", "-h", "scene.rib"}), testing::ExitedWithCode(0),
                "Usage: tracery \\[options\\] file1 ... fileN");
}

}  // namespace
