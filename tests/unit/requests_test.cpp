// Tests of the request table and the reading loop: keyword lookup, argument
// codes and their failures, the special requests, and the bounds on the
// archive reads of a file. (Frame selection, stray tokens, archives,
// structure comments and the reports seen on the command line are covered
// by the golden cases.)
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "driver/globals.h"
#include "ri/attributes.h"
#include "math/transformation.h"
#include "ri/renderer.h"
#include "ri/transforms.h"
#include "rib/archive_reads.h"
#include "rib/modern_geometry.h"
#include "rib/modern_requests.h"
#include "rib/objects.h"
#include "rib/requests.h"
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
        release_rib_tables();
        InterfaceStateTest::TearDown();
    }
};

using Messages = std::vector<std::string>;

TEST(RequestTable, EveryKeywordIsFoundInItsOwnSlot) {
    make_RIB_hash_table();
    int rows = 0, newer_rows = 0, drawn_rows = 0;
    for (const REACTION* r = reactions; r->keyword; ++r) {
        if (r->parse == RIBparse_modern_request) {
            newer_rows++;
        } else if (r->parse == RIB_parse_modern_geometry) {
            drawn_rows++;
        } else {
            rows++;
        }
        REACTION* slot = match_identifier(r->keyword);
        ASSERT_NE(slot, nullptr) << r->keyword;
        EXPECT_STREQ(slot->keyword, r->keyword);
        EXPECT_EQ(slot->function, r->function);
        EXPECT_EQ(slot->code, r->code);
        EXPECT_EQ(slot, &RIB_hash_table[slot->slot]);
    }
    EXPECT_EQ(rows, 95);
    EXPECT_EQ(drawn_rows, 6);
    EXPECT_EQ(newer_rows, 33);
    EXPECT_EQ(match_identifier("sphere"), nullptr);
    EXPECT_EQ(match_identifier("Spheres"), nullptr);
    EXPECT_EQ(match_identifier(""), nullptr);
    ASSERT_NE(rxnPolygon, nullptr);
    EXPECT_STREQ(rxnPolygon->keyword, "Polygon");
    EXPECT_STREQ(rxnHyperboloid->keyword, "Hyperboloid");
    EXPECT_EQ(rxnCurve, nullptr);
}

// A failed argument adds the request's own report after the reader's.
TEST_F(RequestsTest, ArgumentFailuresAreReported) {
    const std::pair<const char*, Messages> cases[] = {
        {"Sides \"two\"\nFormat 640 \"x\" 1\nMatte [1]\n",
         {"Number expected", "Integer expected after Sides", "Number expected",
          "Syntax error on Format"}},
        {"LightSource spot 1\nLightSource \"spot\" [1]\nLightSource \"spot\" 2 \"intensity\" 3\n"
         "AreaLightSource \"area\" [4]\nIlluminate 2 1\nIlluminate 9 0\n",
         {"Light source shader name missing", "Light id number missing"}},
        {"ColorSamples [1 2 3] [4 5 6]\nColorSamples [1 2] [3]\n",
         {"ColorSamples not currently implemented", "Number expected"}},
        {"Basis [1 2] 3 \"power\" 4\n", {"Number expected", "Bad basis"}},
    };
    for (const auto& c : cases) {
        capture.clear();
        run(c.first);
        EXPECT_EQ(capture.messages(), c.second) << c.first;
    }
}

// Each argument code hands its values over in order (bracketed single
// numbers included). (Bad basis and filter names are shown on the command
// line.)
TEST_F(RequestsTest, ArgumentCodesPassTheirValuesInOrder) {
    run("Format 640 [480] 1.5\nClipping 0.5 [20]\nDepthOfField 8 0.1 3\n"
        "ScreenWindow -2 2 -1 1\nPixelFilter \"box\" 3 4\n"
        "Basis \"b-spline\" 1 [1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1] 2\n"
        "Transform [1 0 0 0 0 2 0 0 0 0 3 0 5 6 7 1]\n");
    EXPECT_EQ(capture.count(), 0u);
    const Renderer& r = *renderer;
    // The matrix is read row by row: the translation lands in row 3.
    EXPECT_EQ(
        (std::vector<float>{float(r.xres), float(r.yres), r.pixel_aspect, r.near_clip, r.far_clip,
                            r.focal_distance, r.screen_left, r.screen_top, r.filter_xwidth,
                            r.filter_ywidth, curxform->matrix0[1][1], curxform->matrix0[3][0]}),
        (std::vector<float>{640, 480, 1.5f, 0.5f, 20, 3, -2, 1, 3, 4, 2, 5}));
    EXPECT_EQ(r.filter, RiBoxFilter);
    EXPECT_EQ(r.gstate->ubasis[0][0], RiBSplineBasis[0][0]);
    EXPECT_EQ((std::vector<int>{r.gstate->ustep, r.gstate->vstep}), (std::vector<int>{1, 2}));
}

// (An unknown name is shown on the command line.)
TEST_F(RequestsTest, ErrorHandlerNamesSelectTheStandardHandlers) {
    const std::pair<const char*, RtErrorHandler> handlers[] = {
        {"ignore", RiErrorIgnore}, {"print", RiErrorPrint}, {"abort", RiErrorAbort}};
    for (const auto& handler : handlers) {
        run(std::string("ErrorHandler \"") + handler.first + "\"\n");
        EXPECT_EQ(RMError, handler.second) << handler.first;
    }
    RiErrorHandler(capture_handler);
}

// The archive reads of one file are bounded in number and in the bytes
// they read (a replayed archive's text counts), over all its ReadArchive
// requests; the read that would pass a bound is reported, and it and every
// later one are skipped. Each file starts afresh.
TEST_F(RequestsTest, ArchiveReadsOfAFileAreBoundedInNumberAndBytes) {
    struct RestoreBounds {
        long long reads = archive_reads_max, bytes = archive_bytes_max;
        ~RestoreBounds() {
            archive_reads_max = reads;
            archive_bytes_max = bytes;
        }
    } restore;
    // A replay of "t" reads " Translate 1 0 0" and a newline: 17 bytes.
    std::string text = "ArchiveBegin \"t\" Translate 1 0 0 ArchiveEnd\nIdentity\n";
    for (int i = 0; i < 5; i++) text += "ReadArchive \"t\"\n";
    const auto reads_made = [&] {
        capture.clear();
        run(text);
        return curxform->matrix0[3][0];
    };
    archive_reads_max = 2;
    EXPECT_EQ(reads_made(), 2.0f);
    EXPECT_TRUE(
        only_report(RIE_LIMIT, RIE_ERROR,
                    "ReadArchive: the archives read for test.rib would pass 2 reads or "
                    "2500000000 bytes; t and every later archive read of the file skipped"));
    archive_reads_max = 100;
    archive_bytes_max = 3 * 17;
    EXPECT_EQ(reads_made(), 3.0f);
    EXPECT_EQ(capture.count(), 1u);
    archive_bytes_max = 3 * 17 - 1;
    EXPECT_EQ(reads_made(), 2.0f);
}

// Objects that each instance the one before twice would draw 2^k copies:
// instances inside instances stop at the run's budget with one report, and
// a new run has a budget of its own. Objects that would pass the memory
// bound are not kept (one report), and instancing them is then silent.
TEST_F(RequestsTest, ObjectBoundsAreReportedOnce) {
    const long long saved_instances = object_nested_instances_max;
    const size_t saved_bytes = object_bytes_max;
    object_nested_instances_max = 50;
    std::string doubling = "ObjectBegin 0 leaf ObjectEnd\n";
    for (int k = 1; k <= 12; ++k) {
        doubling += "ObjectBegin " + std::to_string(k) + " ObjectInstance " +
                    std::to_string(k - 1) + " ObjectInstance " + std::to_string(k - 1) +
                    " ObjectEnd\n";
    }
    auto leaves = [&] {
        int n = 0;
        for (const std::string& m : capture.messages()) n += m == "Could not identify token leaf";
        return n;
    };
    run(doubling + "ObjectInstance 12\nObjectInstance 12\nObjectInstance 0\n");
    const Messages budget = {
        "ObjectInstance: instances inside instances exceed 50 instances or 1073741824 bytes in "
        "this run; 0 and all later ones inside instances skipped"};
    Messages reports = capture.messages();
    reports.erase(std::remove(reports.begin(), reports.end(), "Could not identify token leaf"),
                  reports.end());
    EXPECT_EQ(reports, budget);
    // The leaves drawn inside instances are some of the first 50 instances
    // inside instances; the last leaf stands in the file.
    const int first_run = leaves();
    EXPECT_GT(first_run, 10);
    EXPECT_LT(first_run, 50);
    RiEnd();
    RiBegin(nullptr);
    capture.clear();
    run("ObjectInstance 12\n");
    EXPECT_EQ(leaves(), first_run - 1);

    // "a" takes 85 bytes (its text, handle and record) and its file name 80;
    // "b" 103 more would pass 250, "c" 71 more does not. After that an
    // unknown handle may be one not kept, and is not reported.
    release_objects();
    capture.clear();
    object_bytes_max = 250;
    run("ObjectBegin \"a\" Sphere 1 -1 1 360 ObjectEnd\n"
        "ObjectBegin \"b\" Sphere 1 -1 1 360 Sphere 2 -2 2 360 ObjectEnd\n"
        "ObjectBegin \"c\" leaf ObjectEnd\n"
        "ObjectInstance \"b\" ObjectInstance \"c\" ObjectInstance \"a\" ObjectInstance \"z\"\n");
    EXPECT_EQ(capture.messages(),
              (Messages{"Object \"b\" not kept: objects would hold more than 250 bytes (later ones "
                        "that do not fit are not kept either)",
                        "Could not identify token leaf"}));
    object_nested_instances_max = saved_instances;
    object_bytes_max = saved_bytes;
}

}  // namespace
