// Tests of tokens and declarations: interning, the declaration grammar, the
// redeclaration warning, sizes, and the standard identifiers.
#include "support/declarations.h"

#include <gtest/gtest.h>

#include <string>

#include "capture.h"
#include "rib/requests.h"

namespace {

TEST(Declarations, InterningReturnsOneCopy) {
    std::string name = "decltest_token";
    RtToken token = NewToken(name.c_str());
    EXPECT_NE(token, name.c_str());
    EXPECT_EQ(NewToken("decltest_token"), token);
    EXPECT_EQ(RiDeclare("decltest_token", ""), token);
    EXPECT_EQ(declaration_list.lookup("decltest_token"), nullptr);
    EXPECT_EQ(RiDeclare(nullptr, "float"), nullptr);
    RiDeclare("decltest_token", "float");
    Declaration* record = declaration_list.lookup("decltest_token");
    RiDeclare("decltest_token", "varying float");  // same record, new class
    EXPECT_EQ(declaration_list.lookup("decltest_token"), record);
    EXPECT_EQ(record->detail, CLASS_VARYING);
}

// The cached lookup gives what the table gives: nothing before a name is
// declared, then its record, which a redeclaration changes in place; names
// that share a cache slot do not answer for each other.
TEST(Declarations, CachedLookupFollowsTheTable) {
    EXPECT_EQ(find_declaration("decltest_late"), nullptr);
    RiDeclare("decltest_late", "uniform point");
    Declaration* record = find_declaration("decltest_late");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record, declaration_list.lookup("decltest_late"));
    RiDeclare("decltest_late", "varying float");
    EXPECT_EQ(find_declaration("decltest_late"), record);
    EXPECT_EQ(record->type, DECL_FLOAT);
    // Same length, first and last letter: the same cache slot.
    RiDeclare("decltest_lAte", "float");
    EXPECT_NE(find_declaration("decltest_lAte"), record);
    EXPECT_EQ(find_declaration("decltest_late"), record);
    EXPECT_EQ(find_declaration("decltest_lbte"), nullptr);
    EXPECT_EQ(find_declaration(""), declaration_list.lookup(""));
}

TEST(Declarations, GrammarQuirksAndSizes) {
    struct Case {
        const char* declaration;
        int detail, type, count, size;
    } cases[] = {
        {"varying float[2]", CLASS_VARYING, DECL_FLOAT, 2, 8},
        {"uniform  color", CLASS_UNIFORM, DECL_COLOR, 1, 12},  // blanks skipped
        {"varyingfloat", CLASS_VARYING, DECL_FLOAT, 1, 4},     // no separator needed
        {"float [2]", CLASS_UNIFORM, DECL_FLOAT, 1, 4},        // blank stops the array test
        {"vertex\tpoint", CLASS_VERTEX, DECL_NONE, 1, 0},      // tabs are not blanks
        {"constant integer[ -3", CLASS_CONSTANT, DECL_INTEGER, -3, -12},  // atoi, no ']'
        {"hpoint[4x", CLASS_UNIFORM, DECL_HPOINT, 4, 64},
        {"bogus", CLASS_UNIFORM, DECL_NONE, 1, 0},
        {"string", CLASS_UNIFORM, DECL_STRING, 1, 4},
        {"matrix", CLASS_UNIFORM, DECL_MATRIX, 1, 64},
        {"float[99999]", CLASS_UNIFORM, DECL_FLOAT, 32767, 131068},  // clamped, not wrapped
    };
    int i = 0;
    for (const Case& c : cases) {
        std::string name = "decltest_grammar_" + std::to_string(i++);
        RtToken token = RiDeclare(name.c_str(), c.declaration);
        Declaration* d = declaration_list.lookup(name.c_str());
        ASSERT_NE(d, nullptr) << c.declaration;
        EXPECT_EQ(d->name, token);
        EXPECT_EQ(d->detail, c.detail) << c.declaration;
        EXPECT_EQ(d->type, c.type) << c.declaration;
        EXPECT_EQ(d->count, c.count) << c.declaration;
        EXPECT_EQ(declaration_list.size(name.c_str()), c.size) << c.declaration;
    }
    EXPECT_EQ(declaration_list.size("decltest_never_declared"), 0);
}

// Runs with the standard identifiers declared, and declares them again at
// the end so that a redeclared standard name does not leak into other tests.
class DeclarationsStandard : public ::testing::Test {
  protected:
    void SetUp() override {
        DeclareStandardIdentifiers();
        capture.clear();
    }
    void TearDown() override { DeclareStandardIdentifiers(); }
    ScopedErrorCapture capture;
};

TEST_F(DeclarationsStandard, GlobalsPointAtDeclaredTokens) {
    DeclareStandardIdentifiers();  // a second run changes nothing
    EXPECT_EQ(capture.count(), 0u);
    EXPECT_EQ(RI_P, NewToken("P"));
    EXPECT_EQ(declaration_list.lookup(RI_P)->detail, CLASS_VERTEX);
    EXPECT_EQ(_RI_CATMULL_ROM, NewToken("catmull-rom"));  // interned only
    EXPECT_EQ(declaration_list.lookup("catmull-rom"), nullptr);
}

// Only a type or count change warns, and the record is changed in place.
TEST_F(DeclarationsStandard, RedeclarationWarning) {
    EXPECT_EQ(RiDeclare("Cs", "vertex color"), RI_CS);
    EXPECT_EQ(capture.count(), 0u);
    EXPECT_EQ(declaration_list.lookup(RI_CS)->detail, CLASS_VERTEX);

    Declaration* before = declaration_list.lookup("fov");
    EXPECT_EQ(RiDeclare("fov", "uniform float[2]"), RI_FOV);
    EXPECT_EQ(declaration_list.lookup("fov"), before);
    EXPECT_EQ(declaration_list.size("fov"), 8);
    RiDeclare("decltest_matrix", "matrix");
    RiDeclare("decltest_matrix", "float");  // a matrix prints without its type name
    ASSERT_EQ(capture.count(), 2u);
    EXPECT_EQ(capture.errors()[0].code, 43);
    EXPECT_EQ(capture.errors()[0].severity, 1);
    EXPECT_EQ(capture.errors()[0].message,
              "\"fov\" (uniform float) redeclared as uniform float[2]");
    EXPECT_EQ(capture.errors()[1].message,
              "\"decltest_matrix\" (uniform ) redeclared as uniform float");

    // The next run of the standard declarations turns a standard name back.
    RiDeclare("fov", "float");
    RiDeclare("Kd", "color[2]");
    capture.clear();
    DeclareStandardIdentifiers();
    ASSERT_EQ(capture.count(), 1u);
    EXPECT_EQ(capture.errors()[0].message, "\"Kd\" (uniform color[2]) redeclared as uniform float");
    EXPECT_EQ(declaration_list.lookup(RI_KD)->type, DECL_FLOAT);
}

}  // namespace
