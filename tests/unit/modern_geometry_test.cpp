// Tests of the readers of subdivision meshes, curves, NURBS curves, points
// and blobbies: the sizes each list is checked against, the counts checked
// between their positional lists, and the blobby program check.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "preview/blobby.h"
#include "rib/parameters.h"
#include "state_fixture.h"

namespace {

struct Sizes {
    std::string keyword;
    long long nvertex, nvarying, nuniform;
    int first;  // faces, curves, points or leaves
    bool operator==(const Sizes& o) const {
        return keyword == o.keyword && nvertex == o.nvertex && nvarying == o.nvarying &&
               nuniform == o.nuniform && first == o.first;
    }
};

std::ostream& operator<<(std::ostream& out, const Sizes& s) {
    return out << s.keyword << " " << s.nvertex << "/" << s.nvarying << "/" << s.nuniform << " "
               << s.first;
}

std::vector<Sizes>& calls() {
    static std::vector<Sizes> recorded;
    return recorded;
}

void record(const RibGeometryCall& c) {
    calls().push_back({c.keyword, c.nvertex, c.nvarying, c.nuniform, c.ints[0]});
}

class ModernGeometryTest : public InterfaceStateTest {
  protected:
    void SetUp() override {
        InterfaceStateTest::SetUp();
        RiBegin(nullptr);
        calls().clear();
        rib_geometry_hook = record;
    }
    void TearDown() override {
        rib_geometry_hook = nullptr;
        InterfaceStateTest::TearDown();
    }
};

// A bracketed list of count ones.
std::string ones(int count) {
    std::string text = "[";
    for (int i = 0; i < count; i++) text += "1 ";
    return text + "]";
}

const char* kSquare = "\"P\" [0 0 0 1 0 0 1 1 0 0 1 0 2 0 0 2 1 0]";

TEST_F(ModernGeometryTest, SubdivisionMeshIsSizedByItsPointsAndFaces) {
    run(std::string("SubdivisionMesh \"catmull-clark\" [4 4] [0 1 2 3 1 4 5 2] "
                    "[\"interpolateboundary\" \"crease\"] [0 0 2 1] [1 2] [3.5] ") +
        kSquare + " \"Cs\" " + ones(18) + "\n" +
        "HierarchicalSubdivisionMesh \"loop\" [3] [0 1 2] [\"corner\"] [1 1 0] [0] [2] [] " +
        kSquare + "\n" +
        // Older exporters leave the tags out.
        "SubdivisionMesh \"catmull-clark\" [4] [0 1 2 3] " + kSquare + "\n");
    EXPECT_EQ(calls(), (std::vector<Sizes>{{"SubdivisionMesh", 6, 6, 2, 2},
                                           {"HierarchicalSubdivisionMesh", 6, 6, 1, 1},
                                           {"SubdivisionMesh", 6, 6, 1, 1}}));
    EXPECT_EQ(capture.messages(), std::vector<std::string>{});
}

TEST_F(ModernGeometryTest, SubdivisionMeshCountsAndTagsThatDoNotFit) {
    run(std::string("SubdivisionMesh \"catmull-clark\" [4 4] [0 1 2 3 1 4 5] [] [] [] [] ") +
        kSquare + "\n" +
        "SubdivisionMesh \"catmull-clark\" [4] [0 1 2 3] [\"crease\"] [2 1] [0 1] [] " + kSquare +
        "\n");
    EXPECT_EQ(capture.messages(),
              (std::vector<std::string>{
                  "Invalid counts in SubdivisionMesh",
                  "SubdivisionMesh: the tag arguments do not fit the tags; drawn as its control "
                  "cage"}));
    // The second mesh still goes on, to be drawn as its cage.
    EXPECT_EQ(calls().size(), 1u);
}

TEST_F(ModernGeometryTest, CurvesAreSizedByTypeWrapAndTheVStep) {
    const std::string points = " \"P\" " + ones(33);
    run("Curves \"cubic\" [7 4] \"nonperiodic\"" + points + "\n" +  // Bezier, step 3
        "Basis \"b-spline\" 1 \"b-spline\" 1\n" + "Curves \"cubic\" [7 4] \"nonperiodic\"" +
        points + "\n" + "Curves \"cubic\" [5 6] \"periodic\"" + points + "\n" +
        "Curves \"linear\" [5 6] \"periodic\"" + points + "\n" +
        "Curves \"linear\" [5 6] \"nonperiodic\"" + points +
        " \"width\" [1 2 3 4 5 6 7 8 9 10 11]\n");
    EXPECT_EQ(calls(), (std::vector<Sizes>{{"Curves", 11, 5, 2, 2},
                                           {"Curves", 11, 7, 2, 2},
                                           {"Curves", 11, 11, 2, 2},
                                           {"Curves", 11, 11, 2, 2},
                                           {"Curves", 11, 11, 2, 2}}));
}

TEST_F(ModernGeometryTest, CurvesWithTooFewValuesAreDropped) {
    RiDeclare("width", "varying float");
    run("Curves \"cubic\" [7] \"nonperiodic\" \"P\" [0 0 0 1 1 1] \n"
        "Curves \"linear\" [3] \"nonperiodic\" \"P\" [0 0 0 1 1 1 2 2 2] \"width\" [1 2]\n");
    EXPECT_TRUE(calls().empty());
    EXPECT_EQ(capture.messages(),
              (std::vector<std::string>{"vertex length mismatch: P (found 6, expected 21)",
                                        "vertex length mismatch: width (found 2, expected 3)"}));
}

TEST_F(ModernGeometryTest, NuCurvesPointsAndBlobbyAreSized) {
    run("NuCurves [4 5] [3 4] [0 0 0 1 2 2 2  0 0 0 0 1 1 1 1 1] [0 0] [2 1] \"Pw\" " + ones(36) +
        "\n" + "Points \"P\" [0 0 0 1 1 1 2 2 2]\n" + "Blobby 2 [1001 0 1001 16 0 2 0 1] " +
        ones(32) + " [\"\"]\n" + "NuCurves [4] [3] [0 0 0 1 2 2] [0] [2] \"P\" " + ones(12) + "\n");
    // NuCurves: 9 vertices, (4 - 3 + 2) + (5 - 4 + 2) varying, two curves.
    EXPECT_EQ(calls(),
              (std::vector<Sizes>{
                  {"NuCurves", 9, 6, 2, 2}, {"Points", 3, 3, 1, 3}, {"Blobby", 2, 2, 1, 2}}));
    // The last NuCurves has six knots where it needs seven.
    EXPECT_TRUE(only_report(RIE_SYNTAX, RIE_ERROR, "Invalid counts in NuCurves"));
}

// Null when the program decodes, else the reason.
const char* blobby_problem(int nleaf, const std::vector<int>& code, int nflt, int nstr) {
    std::vector<BlobbyInstruction> program;
    return decode_blobby(nleaf, int(code.size()), code.data(), nflt, nstr, &program);
}

TEST(BlobbyTest, ProgramsAreCheckedInstructionByInstruction) {
    const std::vector<int> good = {1001, 0, 1002, 16, 1003, 0, 42, 0, 3, 0, 1, 2, 6, 3};
    EXPECT_EQ(blobby_problem(3, good, 43, 1), nullptr);
    EXPECT_STREQ(blobby_problem(2, good, 43, 1), "the number of leaves is not nleaf");
    EXPECT_STREQ(blobby_problem(3, good, 42, 1), "a float index is past the floats");
    EXPECT_STREQ(blobby_problem(3, good, 43, 0), "a string index is past the strings");
    EXPECT_STREQ(blobby_problem(1, {1001, 0, 0, 2, 0, 1}, 16, 0),
                 "an operand names no earlier result");
    EXPECT_STREQ(blobby_problem(1, {1001, 0, 4, 0}, 16, 0),
                 "an instruction runs past the end of the code");
    // An unknown code is read as the code, a count and that many operands
    // of any meaning; it is one result.
    EXPECT_EQ(blobby_problem(1, {1001, 0, 9000, 2, 77, 16, 0, 2, 0, 1}, 17, 0), nullptr);
    EXPECT_STREQ(blobby_problem(1, {1001, 0, 99}, 16, 0),
                 "an instruction runs past the end of the code");
}

TEST(BlobbyTest, BoundCoversEllipsoidsAndSegments) {
    // A sphere of radius 2 at (1, 0, 0) and a segment from (0, 0, 0) to
    // (0, 3, 0) of radius 0.5 moved by (0, 0, -4).
    std::vector<float> flt = {2, 0, 0,    0, 0, 2, 0, 0, 0, 0, 2, 0, 1, 0, 0, 1, 0, 0,  0, 0,
                              3, 0, 0.5f, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, -4, 1};
    const std::vector<int> code = {1001, 0, 1002, 16, 0, 2, 0, 1};
    std::vector<BlobbyInstruction> program;
    ASSERT_EQ(decode_blobby(2, int(code.size()), code.data(), int(flt.size()), 0, &program),
              nullptr);
    float bound[6];
    ASSERT_TRUE(blobby_bound(program, flt.data(), bound));
    const float want[6] = {-1, 3, -2, 3.5f, -4.5f, 2};
    for (int k = 0; k < 6; k++) EXPECT_FLOAT_EQ(bound[k], want[k]) << k;
}

}  // namespace
