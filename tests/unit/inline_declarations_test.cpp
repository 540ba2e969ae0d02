// Tests of inline declarations: the grammar of "[class] type[[n]] name",
// lists read by such a declaration for that list only, and the checks and
// option values that go by it.
#include "support/inline_declarations.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "ri/options.h"
#include "ri/renderer.h"
#include "ri/user_values.h"
#include "rib/parameters.h"
#include "rib/tokenizer.h"
#include "state_fixture.h"

namespace {

TEST(InlineDeclarationGrammar, EveryTypeAndClassWithItsSize) {
    struct Case {
        const char* written;
        int detail, type, count, bytes;
        const char* name;
    } cases[] = {
        {"float Kd", CLASS_UNIFORM, DECL_FLOAT, 1, 4, "Kd"},
        {"uniform float[3] k", CLASS_UNIFORM, DECL_FLOAT, 3, 12, "k"},
        {"vertex point P", CLASS_VERTEX, DECL_POINT, 1, 12, "P"},
        {"varying color Cs", CLASS_VARYING, DECL_COLOR, 1, 12, "Cs"},
        {"constant string[2] names", CLASS_CONSTANT, DECL_STRING, 2, 8, "names"},
        {"int n", CLASS_UNIFORM, DECL_INTEGER, 1, 4, "n"},
        {"integer[2] res", CLASS_UNIFORM, DECL_INTEGER, 2, 8, "res"},
        {"bool on", CLASS_UNIFORM, DECL_INTEGER, 1, 4, "on"},
        {"vector dir", CLASS_UNIFORM, DECL_VECTOR, 1, 12, "dir"},
        {"varying normal N", CLASS_VARYING, DECL_NORMAL, 1, 12, "N"},
        {"vertex hpoint Pw", CLASS_VERTEX, DECL_HPOINT, 1, 16, "Pw"},
        {"constant matrix m", CLASS_CONSTANT, DECL_MATRIX, 1, 64, "m"},
        {"facevarying float[2] st", CLASS_FACEVARYING, DECL_FLOAT, 2, 8, "st"},
        {"facevertex normal  Nf", CLASS_FACEVERTEX, DECL_NORMAL, 1, 12, "Nf"},
        {"\tconstant\tcolor\tCemit1", CLASS_CONSTANT, DECL_COLOR, 1, 12, "Cemit1"},
        {"reference color baseColor", CLASS_UNIFORM, DECL_STRING, 1, 4, "baseColor"},
        {"uniform reference float[2] uv", CLASS_UNIFORM, DECL_STRING, 2, 8, "uv"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.written);
        InlineDeclaration parsed;
        ASSERT_TRUE(split_inline_declaration(c.written, &parsed));
        EXPECT_EQ(parsed.declaration.detail, c.detail);
        EXPECT_EQ(parsed.declaration.type, c.type);
        EXPECT_EQ(parsed.declaration.count, c.count);
        EXPECT_EQ(parsed.declaration.count * param_sizes[parsed.declaration.type], c.bytes);
        EXPECT_STREQ(parsed.name, c.name);
    }
}

TEST(InlineDeclarationGrammar, PlainNamesAndMalformedDeclarations) {
    // Plain names, words that are no declaration, and declarations that are
    // not whole: all of them stay names as written.
    const char* names[] = {"Cs",
                           "float",
                           "float ",
                           "enable gaussian",
                           "uniformfloat x",
                           "float[2]x",
                           "float [2] x",
                           "float[0] x",
                           "float[-1] x",
                           "float[2 x",
                           "float x y",
                           "constant x",
                           "floats x",
                           "varying varying float x",
                           "",
                           "float[99999999999] x"};
    for (const char* written : names) {
        SCOPED_TRACE(written);
        InlineDeclaration parsed;
        EXPECT_FALSE(split_inline_declaration(written, &parsed));
    }
    EXPECT_FALSE(split_inline_declaration(nullptr, nullptr));
}

class InlineListTest : public InterfaceStateTest {
  protected:
    void SetUp() override {
        InterfaceStateTest::SetUp();
        RiBegin(nullptr);
    }
    void TearDown() override {
        RIBparse_close_stream();
        if (stream_) fclose(stream_);
        RiEnd();
        InterfaceStateTest::TearDown();
    }
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
    static const float* as_floats(RtPointer value) { return static_cast<const float*>(value); }
    static const int* as_ints(RtPointer value) { return static_cast<const int*>(value); }
    static const char* string_at(RtPointer value, int k) {
        return static_cast<char* const*>(value)[k];
    }

    FILE* stream_ = nullptr;
    RtToken tokens[RIB_PARAM_MAX];
    RtPointer values[RIB_PARAM_MAX];
    int counts[RIB_PARAM_MAX];
};

TEST_F(InlineListTest, TypedListTakesTheValuesEachDeclarationSays) {
    open(
        "\"int n\" [2.6] \"bool on\" 1 \"constant string[2] names\" [\"a\" \"bc\"] "
        "\"uniform matrix m\" [1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 9] \"hpoint h\" [1 2 3 4] "
        "\"normal nn\" [0 0 1] \"color[2] two\" [1 2 3 4 5 6] \"string str\" \"x\" Sphere\n");
    ASSERT_EQ(RIBparse_parameter_list(tokens, values), 8);
    EXPECT_EQ(capture.count(), 0u);
    EXPECT_STREQ(tokens[0], "n");
    EXPECT_EQ(as_ints(values[0])[0], 3);
    EXPECT_EQ(as_ints(values[1])[0], 1);
    EXPECT_STREQ(tokens[2], "names");
    EXPECT_STREQ(string_at(values[2], 0), "a");
    EXPECT_STREQ(string_at(values[2], 1), "bc");
    EXPECT_EQ(as_floats(values[3])[15], 9.0f);
    EXPECT_EQ(as_floats(values[4])[3], 4.0f);
    EXPECT_EQ(as_floats(values[5])[2], 1.0f);
    EXPECT_EQ(as_floats(values[6])[5], 6.0f);
    EXPECT_STREQ(string_at(values[7], 0), "x");
    EXPECT_EQ(next_token(), "Sphere");
    // The declarations belonged to the list: the names stay undeclared.
    for (const char* name : {"n", "on", "names", "m", "h", "nn", "two", "str"}) {
        EXPECT_EQ(declaration_list.lookup(name), nullptr) << name;
    }
    EXPECT_EQ(parameter_declaration(tokens[2])->count, 2);
    EXPECT_EQ(parameter_declaration("names"), nullptr);
}

TEST_F(InlineListTest, InlineDeclarationOverridesTheDeclaredOneForItsListOnly) {
    // "Kd" is declared a float; written as a color it takes three values.
    open("\"color Kd\" [1 2 3] \"Kd\" [4] \"float Kd\" 7 2\n");
    ASSERT_EQ(RIBparse_parameter_list(tokens, values), 3);
    EXPECT_EQ(as_floats(values[0])[2], 3.0f);
    EXPECT_EQ(as_floats(values[1])[0], 4.0f);
    EXPECT_EQ(parameter_declaration(tokens[0])->type, DECL_COLOR);
    EXPECT_EQ(parameter_declaration(tokens[1])->type, DECL_FLOAT);
    EXPECT_EQ(declaration_list.lookup("Kd")->type, DECL_FLOAT);
    // The third pair takes one float; the 2 that follows ends the list.
    EXPECT_EQ(next_token(), "2");
}

TEST_F(InlineListTest, PrimitiveListIsCheckedByItsInlineDeclarations) {
    open(
        "\"P\" [0 0 0 1 0 0 1 1 0 0 1 0] \"varying float foo\" [1 2 3] "
        "\"constant string name\" [\"x\"] \"facevarying float[2] st\" [1 2 3]\n"
        "Polygon \"P\" [0 0 0 1 0 0 1 1 0 0 1 0] \"foo\" [1 2 3 4]\n");
    int n = 0;
    ASSERT_EQ(RIBparse_read_primvars(&n, tokens, values, counts), 4);
    ASSERT_EQ(n, 4);
    EXPECT_STREQ(tokens[1], "foo");
    EXPECT_STREQ(tokens[2], "name");
    EXPECT_EQ(counts[2], 1);
    EXPECT_STREQ(string_at(values[2], 0), "x");
    // foo is varying: 4 values wanted, 3 given; st (face-varying) is not
    // checked.
    EXPECT_EQ(RIBparse_check_primvars(n, tokens, values, counts, 4, 4, 1), 1);
    ASSERT_EQ(capture.count(), 1u);
    EXPECT_EQ(capture.messages()[0], "vertex length mismatch: foo (found 3, expected 4)");
    capture.clear();
    // The next list knows nothing of foo.
    EXPECT_EQ(next_token(), "Polygon");
    ASSERT_EQ(RIBparse_read_primvars(&n, tokens, values, counts), 4);
    EXPECT_EQ(RIBparse_check_primvars(n, tokens, values, counts, 4, 4, 1), 0);
    EXPECT_EQ(capture.messages(), std::vector<std::string>{"vertex variable unknown: foo"});
}

TEST_F(InlineListTest, OptionsGoByTheInlineDeclaration) {
    run("Option \"searchpath\" \"string archive\" [\"/a\"]\n"
        "Option \"searchpath\" \"archive\" [\"&:/b\"] \"procedural\" [\"/p\"]\n"
        "Option \"user\" \"string pass\" [\"beauty\"] \"int level\" [3] \"float f\" [0.5]\n");
    EXPECT_EQ(capture.count(), 0u);
    EXPECT_STREQ(renderer->include_path, "/a:/b");
    UserValue value;
    ASSERT_TRUE(find_user_value("pass", &value));
    EXPECT_TRUE(value.is_string);
    EXPECT_EQ(value.text, "beauty");
    ASSERT_TRUE(find_user_value("level", &value));
    EXPECT_EQ(value.number, 3.0);
    ASSERT_TRUE(find_user_value("f", &value));
    EXPECT_EQ(value.number, 0.5);
}

TEST_F(InlineListTest, UserAttributesEndWithTheirBlock) {
    run("Option \"user\" \"string pass\" [\"option\"]\n"
        "AttributeBegin Attribute \"user\" \"string pass\" [\"inner\"]\n");
    UserValue value;
    ASSERT_TRUE(find_user_value("pass", &value));
    EXPECT_EQ(value.text, "inner");
    run("AttributeEnd\n");
    ASSERT_TRUE(find_user_value("pass", &value));
    EXPECT_EQ(value.text, "option");
    EXPECT_FALSE(find_user_value("other", &value));
    EXPECT_EQ(capture.count(), 0u);
}

}  // namespace
