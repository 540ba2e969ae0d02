// Tests of parameter lists and geometry requests: typed lists sized by
// declarations, untyped primitive lists and their length checks, the sizes
// each primitive is checked against, and bad or hostile input.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "driver/globals.h"
#include "ri/renderer.h"
#include "rib/parameters.h"
#include "rib/requests.h"
#include "rib/tokenizer.h"
#include "state_fixture.h"

namespace {

// What the drawing code is handed for one geometry request.
struct RecordedCall {
    long long nvertex, nvarying, nuniform;
    std::vector<int> ints;
    std::vector<float> floats;
    std::vector<std::string> names;
};

std::vector<RecordedCall>& recorded() {
    static std::vector<RecordedCall> calls;
    return calls;
}

void record_call(const RibGeometryCall& c) {
    recorded().push_back({c.nvertex,
                          c.nvarying,
                          c.nuniform,
                          {c.ints, c.ints + 4},
                          {c.floats, c.floats + 7},
                          {c.tokens, c.tokens + c.n}});
}

using Names = std::vector<std::string>;

std::string floats(int count) {
    std::string text = "[";
    for (int i = 0; i < count; i++) text += std::to_string(i) + " ";
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
    std::string next_token() {
        char text[RIB_TOKEN_MAX];
        read_RIB_token(text);
        return text;
    }
    const float* as_floats(RtPointer value) { return static_cast<const float*>(value); }

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
    EXPECT_EQ(capture.messages(),
              (Names{"Undeclared token \"foo\"", "Undeclared token \"empty\""}));
}

// (The typed list's case is shown on the command line.)
TEST_F(ParametersTest, PrimitiveListsLongerThanTheArraysAreReadToTheEndAndDropped) {
    std::string list;
    for (int i = 0; i < 120; i++) list += "\"Kd\" 1 ";
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

// Too few values are an error and drop the request; too many are a warning.
TEST_F(ParametersTest, PrimitiveListLengthsAreChecked) {
    RiDeclare("c", "constant float");
    RiDeclare("u", "uniform float");
    RiDeclare("v", "varying float");
    const std::string polygon = "Polygon \"P\" [0 0 0 1 0 0 1 1 0 0 1 0] \"Cs\" ";
    run(polygon + floats(9) + "\n" + polygon + floats(15) + "\n" +
        // Without a position vector the checks assume 4 vertices.
        "Polygon \"Cs\" " + floats(12) + "\nPolygon \"Cs\" " + floats(9) + "\n" +
        // Quadrics take one uniform (or constant) value and four varying ones.
        "Sphere 1 -1 1 360 \"c\" [2] \"u\" [3]\nSphere 1 -1 1 360 \"v\" [1 2 3]\n" +
        "Sphere 1 -1 1 360 \"foo\" [1 2]\n");
    EXPECT_EQ(capture.messages(), (Names{"vertex length mismatch: Cs (found 9, expected 12)",
                                         "vertex length mismatch: Cs (found 15, expected 12)",
                                         "vertex length mismatch: Cs (found 9, expected 12)",
                                         "vertex length mismatch: v (found 3, expected 4)",
                                         "vertex variable unknown: foo"}));
    for (const CapturedError& e : capture.errors()) EXPECT_EQ(e.code, RIE_SYNTAX);
    EXPECT_EQ(capture.errors().at(0).severity, RIE_ERROR);
    EXPECT_EQ(capture.errors().at(1).severity, RIE_WARNING);
    ASSERT_EQ(recorded().size(), 4u);
    EXPECT_EQ(recorded()[0].ints[0], 4);
    EXPECT_EQ(recorded()[1].nvertex, 4);
    EXPECT_EQ(recorded()[2].floats, (std::vector<float>{1, -1, 1, 360, 0, 0, 0}));
    EXPECT_EQ(recorded()[2].names, (Names{"c", "u"}));
    EXPECT_EQ(recorded()[3].names, Names{"foo"});  // an unknown name is passed on
}

// The vertex, varying and uniform counts the lists are checked against
// follow the basis steps, the wrap modes and the indices.
TEST_F(ParametersTest, PrimitiveSizes) {
    struct Case {
        std::string request;
        long long nvertex, nvarying, nuniform;
    } cases[] = {
        {"Patch \"bicubic\"", 16, 4, 1},
        {"Patch \"bilinear\"", 4, 4, 1},
        {"NuPatch 4 4 [0 0 0 0 1 1 1 1] 0 1 3 2 [0 0 1 2 2] 0.5 1", 12, 6, 2},
        {"PointsPolygons [3 3] [0 1 2 2 1 4]", 5, 5, 2},
        {"PointsGeneralPolygons [2] [3 3] [0 1 2 3 4 5]", 6, 6, 1},
        {"Basis \"bezier\" 3 \"bezier\" 3\nPatchMesh \"bicubic\" 7 \"nonperiodic\" 4 "
         "\"nonperiodic\"",
         28, 6, 2},
        {"Basis \"b-spline\" 1 \"b-spline\" 1\nPatchMesh \"bicubic\" 6 \"periodic\" 5 "
         "\"nonperiodic\"",
         30, 6 * 3, 6 * 2},
        {"PatchMesh \"bilinear\" 3 \"periodic\" 2 \"nonperiodic\"", 6, 6, 3},
    };
    for (const Case& c : cases) {
        size_t calls = recorded().size();
        run(c.request + " \"P\" " + floats(3 * int(c.nvertex)) + "\n");
        ASSERT_EQ(recorded().size(), calls + 1) << c.request;
        const RecordedCall& r = recorded().back();
        EXPECT_EQ((std::vector<long long>{r.nvertex, r.nvarying, r.nuniform}),
                  (std::vector<long long>{c.nvertex, c.nvarying, c.nuniform}))
            << c.request;
    }
    EXPECT_EQ(capture.count(), 0u);
    EXPECT_EQ(recorded()[2].ints, (std::vector<int>{4, 4, 3, 2}));  // NuPatch
    EXPECT_EQ(recorded()[2].floats[2], 0.5f);                       // vmin
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

// Hostile counts are reported (the texts are shown on the command line) and
// dropped; a huge mesh size neither overflows nor grows the scratch without
// bound.
TEST_F(ParametersTest, HostileCountsAreDropped) {
    const std::string P = " \"P\" " + floats(12) + "\n";
    for (const char* request : {
             "PointsPolygons [-1 4] [0 1 2 3]",
             "PointsPolygons [2000000000 2000000000] [0]",
             "PointsPolygons [4] [0 1 2 2000000000]",
             "NuPatch 2000000000 2000000000 [0] 0 1",
             "PatchMesh \"bilinear\" 100000 \"nonperiodic\" 100000 \"nonperiodic\"",
         }) {
        capture.clear();
        run(request + P);
        EXPECT_EQ(capture.errors().at(0).code, RIE_SYNTAX) << request;
    }
    EXPECT_EQ(capture.messages().at(0),
              "vertex length mismatch: P (found 12, expected 30000000000)");
    EXPECT_LE(RIBparse_scratch_size, 256 << 20);
    EXPECT_TRUE(recorded().empty());
}

TEST_F(ParametersTest, PositionsMustCoverWhatThePrimitiveReads) {
    // The drawers read positions by their own counts, whatever "P" is declared.
    RiDeclare("P", "constant point");
    run("GeneralPolygon [5] \"P\" " + floats(12) + "\n");
    run("Patch \"foo\" \"P\" " + floats(12) + "\n");  // any type but bilinear is drawn bicubic
    EXPECT_EQ(capture.messages(), (Names{"vertex length mismatch: P (found 12, expected 3)",
                                         "Too few values in \"P\" for GeneralPolygon",
                                         "vertex length mismatch: P (found 12, expected 3)",
                                         "Too few values in \"P\" for Patch"}));
    EXPECT_TRUE(recorded().empty());
}

}  // namespace
