// Tests of parameter lists and geometry requests: typed lists sized by
// declarations, untyped primitive lists and their length checks, the sizes
// each primitive is checked against, and bad or hostile input.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "capture.h"
#include "driver/globals.h"
#include "ri/renderer.h"
#include "rib/parameters.h"
#include "rib/requests.h"
#include "rib/tokenizer.h"
#include "state_fixture.h"

namespace {

struct RecordedCall {
    std::string keyword;
    long long nvertex, nvarying, nuniform;
    std::vector<int> ints;
    std::vector<float> floats;
    std::vector<std::string> names;
    std::vector<int> counts;
};

std::vector<RecordedCall>& recorded() {
    static std::vector<RecordedCall> calls;
    return calls;
}

void record_call(const RibGeometryCall& c) {
    RecordedCall r{c.keyword,
                   c.nvertex,
                   c.nvarying,
                   c.nuniform,
                   std::vector<int>(c.ints, c.ints + 4),
                   std::vector<float>(c.floats, c.floats + 7),
                   {},
                   {}};
    for (int i = 0; i < c.n; i++) {
        r.names.push_back(c.tokens[i]);
        r.counts.push_back(c.counts[i]);
    }
    recorded().push_back(r);
}

std::string floats(int count, int first = 0) {
    std::string text = "[";
    for (int i = 0; i < count; i++) text += std::to_string(first + i) + " ";
    return text + "]";
}

class ParametersTest : public InterfaceStateTest {
  protected:
    void SetUp() override {
        InterfaceStateTest::SetUp();
        wait_for_last_frame = 0;
        RiBegin(nullptr);
        recorded().clear();
        rib_geometry_hook = record_call;
    }
    void TearDown() override {
        rib_geometry_hook = nullptr;
        RIBparse_close_stream();
        if (stream_) fclose(stream_);
        InterfaceStateTest::TearDown();
    }
    // Opens text as the tokenizer's stream, for calling a list reader.
    void open(const std::string& text) {
        input_ = text;
        stream_ = fmemopen(&input_[0], input_.size(), "r");
        ASSERT_EQ(RIBparse_open_stream(stream_, "test.rib"), 0);
    }
    // Reads text as a whole RIB file.
    void run(const std::string& text) {
        input_ = text;
        FILE* f = fmemopen(&input_[0], input_.size(), "r");
        ParseRIB_stream(f, "test.rib", "", 0);
        fclose(f);
    }
    std::vector<std::string> messages() const {
        std::vector<std::string> out;
        for (const CapturedError& e : capture.errors()) out.push_back(e.message);
        return out;
    }
    std::string next_token() {
        char text[RIB_TOKEN_MAX];
        read_RIB_token(text);
        return text;
    }
    const float* as_floats(RtPointer value) { return static_cast<const float*>(value); }

    std::string input_;
    FILE* stream_ = nullptr;
    RtToken tokens[RIB_PARAM_MAX];
    RtPointer values[RIB_PARAM_MAX];
    int counts[RIB_PARAM_MAX];
};

TEST_F(ParametersTest, TypedListReadsEachValueByItsDeclaration) {
    open(
        "\"Kd\" 0.5 \"from\" [1 2 3] \"texturename\" [\"wood.tx\"] \"origin\" [1.6 -2.5] "
        "\"shader\" \"s\" \"texturename\" \"\" \"Kd\" [2] Sphere\n");
    ASSERT_EQ(RIBparse_parameter_list(tokens, values), 7);
    EXPECT_STREQ(tokens[0], "Kd");
    EXPECT_EQ(as_floats(values[0])[0], 0.5f);
    EXPECT_EQ(as_floats(values[1])[2], 3.0f);
    EXPECT_STREQ(*static_cast<char**>(values[2]), "wood.tx");
    EXPECT_EQ(static_cast<int*>(values[3])[0], 2);
    EXPECT_EQ(static_cast<int*>(values[3])[1], -3);
    EXPECT_STREQ(*static_cast<char**>(values[4]), "s");
    // An empty string is a value like any other.
    EXPECT_STREQ(*static_cast<char**>(values[5]), "");
    EXPECT_STREQ(tokens[6], "Kd");
    EXPECT_EQ(as_floats(values[6])[0], 2.0f);
    EXPECT_EQ(tokens[7], nullptr);
    EXPECT_EQ(values[7], nullptr);
    EXPECT_EQ(next_token(), "Sphere");
    EXPECT_EQ(capture.count(), 0u);
}

TEST_F(ParametersTest, TypedListKeepsUndeclaredValuesAndFlagsUnsizableTypes) {
    RiDeclare("mat", "matrix");
    open("\"foo\" [1 2] \"empty\" [] \"mat\" [1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1]\n");
    testing::internal::CaptureStderr();
    ASSERT_EQ(RIBparse_parameter_list(tokens, values), 2);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error: no good decl on mat uniform 9\n");
    EXPECT_STREQ(tokens[0], "foo");
    EXPECT_EQ(as_floats(values[0])[1], 2.0f);
    EXPECT_STREQ(tokens[1], "mat");
    EXPECT_EQ(next_token(), "[");  // a matrix's values are left unread
    ASSERT_EQ(capture.count(), 2u);
    EXPECT_EQ(capture.errors()[0].code, RIE_BADTOKEN);
    EXPECT_EQ(capture.errors()[0].severity, RIE_WARNING);
    EXPECT_EQ(messages(),
              (std::vector<std::string>{"Undeclared token \"foo\"", "Undeclared token \"empty\""}));
}

TEST_F(ParametersTest, ListsLongerThanTheArraysAreReadToTheEndAndDropped) {
    std::string list;
    for (int i = 0; i < 120; i++) list += "\"Kd\" 1 ";
    open(list + "Sphere\n");
    EXPECT_EQ(RIBparse_parameter_list(tokens, values), -1);
    EXPECT_TRUE(only_report(RIE_SYNTAX, RIE_ERROR, "Too many parameters"));
    EXPECT_EQ(next_token(), "Sphere");
    capture.clear();
    int n = 0;
    open(list + "Sphere\n");
    EXPECT_EQ(RIBparse_read_primvars(&n, tokens, values, counts), -1);
    EXPECT_TRUE(only_report(RIE_SYNTAX, RIE_ERROR, "Too many parameters"));
    EXPECT_EQ(next_token(), "Sphere");
}

TEST_F(ParametersTest, ValuesSurviveScratchGrowth) {
    // A string first (its pointer must follow the buffer when it moves), then
    // values far beyond the initial scratch size.
    RiDeclare("big", "float[30000]");
    std::string big = floats(30000);
    open("\"texturename\" \"t.tx\" \"big\" " + big + " \"big\" " + big + " \"big\" " + big +
         " \"from\" [7 8 9]\n");
    ASSERT_EQ(RIBparse_parameter_list(tokens, values), 5);
    EXPECT_STREQ(*static_cast<char**>(values[0]), "t.tx");
    EXPECT_EQ(as_floats(values[3])[29999], 29999.0f);
    EXPECT_EQ(as_floats(values[4])[0], 7.0f);

    int n = 0;
    open("\"Cs\" [1 2 3] \"P\" " + floats(900000) + " \"Pz\" [5]\n");
    EXPECT_EQ(RIBparse_read_primvars(&n, tokens, values, counts), 1);  // the last position wins
    ASSERT_EQ(n, 3);
    EXPECT_EQ(counts[1], 900000);
    EXPECT_EQ(as_floats(values[0])[2], 3.0f);
    EXPECT_EQ(as_floats(values[1])[899999], 899999.0f);
    EXPECT_EQ(as_floats(values[2])[0], 5.0f);
    EXPECT_EQ(capture.count(), 0u);
}

TEST_F(ParametersTest, PolygonVertexLengthsAreCheckedAgainstP) {
    const std::string P = "\"P\" [0 0 0 1 0 0 1 1 0 0 1 0]";
    run("Polygon " + P + " \"Cs\" " + floats(9) + "\n");
    EXPECT_TRUE(
        only_report(RIE_SYNTAX, RIE_ERROR, "vertex length mismatch: Cs (found 9, expected 12)"));
    EXPECT_TRUE(recorded().empty());
    capture.clear();
    run("Polygon " + P + " \"Cs\" " + floats(15) + "\n");
    EXPECT_TRUE(
        only_report(RIE_SYNTAX, RIE_WARNING, "vertex length mismatch: Cs (found 15, expected 12)"));
    ASSERT_EQ(recorded().size(), 1u);
    EXPECT_EQ(recorded()[0].ints[0], 4);
    // Without a position vector the checks assume 4 vertices.
    capture.clear();
    run("Polygon \"Cs\" " + floats(12) + "\nPolygon \"Cs\" " + floats(9) + "\n");
    EXPECT_TRUE(
        only_report(RIE_SYNTAX, RIE_ERROR, "vertex length mismatch: Cs (found 9, expected 12)"));
    ASSERT_EQ(recorded().size(), 2u);
    EXPECT_EQ(recorded()[1].nvertex, 4);
}

TEST_F(ParametersTest, QuadricListsUseOneUniformValueAndFourVarying) {
    RiDeclare("c", "constant float");
    RiDeclare("u", "uniform float");
    RiDeclare("v", "varying float");
    run("Sphere 1 -1 1 360 \"c\" [2] \"u\" [3]\nSphere 1 -1 1 360 \"v\" [1 2 3]\n");
    EXPECT_TRUE(
        only_report(RIE_SYNTAX, RIE_ERROR, "vertex length mismatch: v (found 3, expected 4)"));
    ASSERT_EQ(recorded().size(), 1u);
    EXPECT_EQ(recorded()[0].floats, (std::vector<float>{1, -1, 1, 360, 0, 0, 0}));
    EXPECT_EQ(recorded()[0].names, (std::vector<std::string>{"c", "u"}));
}

TEST_F(ParametersTest, UnknownPrimitiveVariablesAreReportedAndPassedOn) {
    run("Sphere 1 -1 1 360 \"foo\" [1 2]\n");
    EXPECT_TRUE(only_report(RIE_SYNTAX, RIE_ERROR, "vertex variable unknown: foo"));
    ASSERT_EQ(recorded().size(), 1u);
    EXPECT_EQ(recorded()[0].names, std::vector<std::string>{"foo"});
}

TEST_F(ParametersTest, PatchMeshSizesFollowBasisStepAndWrap) {
    struct Case {
        std::string request;
        long long nvertex, nvarying, nuniform;
    } cases[] = {
        {"Basis \"bezier\" 3 \"bezier\" 3\nPatchMesh \"bicubic\" 7 \"nonperiodic\" 4 "
         "\"nonperiodic\"",
         28, 6, 2},
        {"Basis \"b-spline\" 1 \"b-spline\" 1\nPatchMesh \"bicubic\" 6 \"periodic\" 5 "
         "\"nonperiodic\"",
         30, 6 * 3, 6 * 2},
        {"PatchMesh \"bilinear\" 3 \"periodic\" 2 \"nonperiodic\"", 6, 6, 3},
    };
    for (const Case& c : cases) {
        recorded().clear();
        run(c.request + " \"P\" " + floats(3 * int(c.nvertex)) + "\n");
        ASSERT_EQ(recorded().size(), 1u) << c.request;
        EXPECT_EQ(recorded()[0].nvertex, c.nvertex) << c.request;
        EXPECT_EQ(recorded()[0].nvarying, c.nvarying) << c.request;
        EXPECT_EQ(recorded()[0].nuniform, c.nuniform) << c.request;
    }
    EXPECT_EQ(capture.count(), 0u);
}

TEST_F(ParametersTest, PatchAndNuPatchSizes) {
    run("Patch \"bicubic\" \"P\" " + floats(48) + "\nPatch \"bilinear\" \"P\" " + floats(12) +
        "\nNuPatch 4 4 [0 0 0 0 1 1 1 1] 0 1 3 2 [0 0 1 2 2] 0.5 1 \"P\" " + floats(36) + "\n");
    EXPECT_EQ(capture.count(), 0u);
    ASSERT_EQ(recorded().size(), 3u);
    EXPECT_EQ(recorded()[0].nvertex, 16);
    EXPECT_EQ(recorded()[0].nvarying, 4);
    EXPECT_EQ(recorded()[1].nvertex, 4);
    const RecordedCall& nu = recorded()[2];
    EXPECT_EQ(nu.ints, (std::vector<int>{4, 4, 3, 2}));
    EXPECT_EQ(nu.nvertex, 12);
    EXPECT_EQ(nu.nvarying, 2 * 3);
    EXPECT_EQ(nu.nuniform, 1 * 2);
    EXPECT_EQ(nu.floats[2], 0.5f);  // vmin
}

// Hyperboloid and Torus take their numbers as one list of any length.
TEST_F(ParametersTest, HyperboloidAndTorusReadOneFloatList) {
    run("Hyperboloid 1 0 0 0 1 1 270\nTorus 1 .25 0 360 180\nHyperboloid 1 2\n");
    EXPECT_EQ(capture.count(), 0u);
    ASSERT_EQ(recorded().size(), 3u);
    EXPECT_EQ(recorded()[0].floats, (std::vector<float>{1, 0, 0, 0, 1, 1, 270}));
    EXPECT_EQ(recorded()[1].floats, (std::vector<float>{1, .25f, 0, 360, 180, 0, 0}));
    EXPECT_EQ(recorded()[2].floats, (std::vector<float>{1, 2, 0, 0, 0, 0, 0}));
}

TEST_F(ParametersTest, IndexedPolygonsTakeTheirSizesFromTheIndices) {
    run("PointsPolygons [3 3] [0 1 2 2 1 4] \"P\" " + floats(15) + "\n");
    run("PointsGeneralPolygons [2] [3 3] [0 1 2 3 4 5] \"P\" " + floats(18) + "\n");
    EXPECT_EQ(capture.count(), 0u);
    ASSERT_EQ(recorded().size(), 2u);
    EXPECT_EQ(recorded()[0].keyword, "PointsPolygons");
    EXPECT_EQ(recorded()[0].nvertex, 5);
    EXPECT_EQ(recorded()[0].nuniform, 2);
    EXPECT_EQ(recorded()[1].keyword, "PointsGeneralPolygons");
    EXPECT_EQ(recorded()[1].nvertex, 6);
    EXPECT_EQ(recorded()[1].nuniform, 1);
}

TEST_F(ParametersTest, TrimCurveFailuresPrintInvalidTrim) {
    const std::string good = "TrimCurve [1] [2] [0 0 1 1] [0] [1] [2] [0 1] [0 1] [1 1]\n";
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    run(good);
    run("TrimCurve [1] [2] [0 0 1 1] [0] [1] [2] [0 1] [0 1] [1]\n");  // w too short
    run("TrimCurve [2] [2] \"x\"\n");                                  // order list cut short
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Invalid trim\nInvalid trim\n");
    ASSERT_EQ(recorded().size(), 1u);
    EXPECT_EQ(recorded()[0].ints[0], 1);
}

TEST_F(ParametersTest, HostileCountsAreReportedAndDropped) {
    const std::string P = " \"P\" " + floats(12) + "\n";
    testing::internal::CaptureStderr();  // dropped requests leave stray brackets
    const char* requests[] = {
        "PointsPolygons [-1 4] [0 1 2 3]",
        "PointsPolygons [2000000000 2000000000] [0]",
        "PointsGeneralPolygons [1] [-4] [0 1 2 3]",
        "PatchMesh \"bilinear\" 0 \"nonperiodic\" -3 \"nonperiodic\"",
        "NuPatch 2 0 [0 0] 0 1 2 2 [0 0 1 1] 0 1",
        "NuPatch 2000000000 2000000000 [0] 0 1",
    };
    for (const char* request : requests) {
        capture.clear();
        run(std::string(request) + P);
        ASSERT_GE(capture.count(), 1u) << request;
        EXPECT_EQ(capture.errors()[0].message.rfind("Invalid counts in ", 0), 0u) << request;
    }
    capture.clear();
    run("PointsPolygons [4] [0 1 -2 3]" + P);
    EXPECT_TRUE(only_report(RIE_SYNTAX, RIE_ERROR, "Invalid vertex index in PointsPolygons"));
    capture.clear();
    run("PointsPolygons [4] [0 1 2 2000000000]" + P);
    EXPECT_TRUE(only_report(RIE_SYNTAX, RIE_ERROR,
                            "vertex length mismatch: P (found 12, expected 6000000003)"));
    // A huge mesh size neither overflows nor grows the scratch without bound.
    capture.clear();
    run("PatchMesh \"bilinear\" 100000 \"nonperiodic\" 100000 \"nonperiodic\"" + P);
    EXPECT_TRUE(only_report(RIE_SYNTAX, RIE_ERROR,
                            "vertex length mismatch: P (found 12, expected 30000000000)"));
    EXPECT_LE(RIBparse_scratch_size, 256 << 20);
    EXPECT_TRUE(recorded().empty());
    testing::internal::GetCapturedStderr();
}

TEST_F(ParametersTest, PositionsMustCoverWhatThePrimitiveReads) {
    // The drawers read positions by their own counts, whatever "P" is declared.
    RiDeclare("P", "constant point");
    run("GeneralPolygon [5] \"P\" " + floats(12) + "\n");
    run("Patch \"foo\" \"P\" " + floats(12) + "\n");  // any type but bilinear is drawn bicubic
    EXPECT_EQ(messages(),
              (std::vector<std::string>{"vertex length mismatch: P (found 12, expected 3)",
                                        "Too few values in \"P\" for GeneralPolygon",
                                        "vertex length mismatch: P (found 12, expected 3)",
                                        "Too few values in \"P\" for Patch"}));
    EXPECT_TRUE(recorded().empty());
}

}  // namespace
