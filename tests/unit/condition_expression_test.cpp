// Tests of the conditions of IfBegin and ElseIf: every operator, values and
// their comparison rules, variables and defined(), glob matching, and the
// expressions that do not parse.
#include "rib/condition_expression.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

// Variables for the tests: $Frame is 7, $user:pass is 'beauty', $user:n 3.
bool test_variables(const std::string& name, ConditionValue* value) {
    static const std::map<std::string, ConditionValue> known = {
        {"Frame", {false, "", 7}},
        {"user:pass", {true, "beauty", 0}},
        {"user:n", {false, "", 3}},
        {"user:numtext", {true, "12", 0}},
    };
    auto found = known.find(name);
    if (found == known.end()) return false;
    *value = found->second;
    return true;
}

ConditionResult eval(const std::string& text) {
    std::string error;
    return evaluate_condition(text, test_variables, &error);
}

bool holds(const std::string& text) {
    ConditionResult result = eval(text);
    EXPECT_NE(result, ConditionResult::Malformed) << text;
    return result == ConditionResult::True;
}

TEST(ConditionExpression, ComparisonsOfNumbersAndStrings) {
    struct Case {
        const char* text;
        bool expected;
    } cases[] = {
        {"1 == 1", true},
        {"1 == 2", false},
        {"1 != 2", true},
        {"2 < 10", true},
        {"'2' < '10'", true},  // both read as numbers
        {"'b' < 'a'", false},
        {"'abc' < 'abd'", true},
        {"3 > 2.5", true},
        {"2 <= 2", true},
        {"3 >= 4", false},
        {"'29' == 29", true},
        {"1 + 4 * 7.0 == '29'", true},
        {"(1 + 4) * 7 == 35", true},
        {"10 / 4 == 2.5", true},
        {"-3 + 1 == -2", true},
        {"'x' == 'x'", true},
        {"\"dq\" == 'dq'", true},
        {"'it\\'s' == \"it's\"", true},
    };
    for (const Case& c : cases) EXPECT_EQ(holds(c.text), c.expected) << c.text;
}

TEST(ConditionExpression, LogicAndPrecedence) {
    EXPECT_TRUE(holds("true"));
    EXPECT_FALSE(holds("false"));
    EXPECT_TRUE(holds("!false"));
    EXPECT_TRUE(holds("true || false && false"));  // && binds tighter
    EXPECT_FALSE(holds("(true || false) && false"));
    EXPECT_FALSE(holds("!(1 == 1)"));
    EXPECT_TRUE(holds("1 == 2 || 2 == 2"));
    EXPECT_FALSE(holds("0"));
    EXPECT_TRUE(holds("0.5"));
    EXPECT_FALSE(holds("''"));
    EXPECT_TRUE(holds("'x'"));
    EXPECT_FALSE(holds("1 + 4 * 7.0 == '29' && false"));
}

TEST(ConditionExpression, VariablesAndDefined) {
    EXPECT_TRUE(holds("$Frame == 7"));
    EXPECT_TRUE(holds("${Frame} > 6 && $(Frame) < 8"));
    EXPECT_TRUE(holds("$user:pass == 'beauty'"));
    EXPECT_TRUE(holds("${user:pass} =~ 'beau*'"));
    EXPECT_TRUE(holds("$user:n * 2 == 6"));
    EXPECT_TRUE(holds("$user:numtext > 9"));
    EXPECT_TRUE(holds("defined($user:pass) && defined(user:n)"));
    EXPECT_FALSE(holds("defined($user:missing)"));
    // An undefined variable is the empty string.
    EXPECT_TRUE(holds("$user:missing == ''"));
    EXPECT_FALSE(holds("$user:missing"));
}

TEST(ConditionExpression, GlobMatches) {
    EXPECT_TRUE(glob_match("val*", "value"));
    EXPECT_TRUE(glob_match("*", ""));
    EXPECT_TRUE(glob_match("v?lue", "value"));
    EXPECT_FALSE(glob_match("v?lue", "vlue"));
    EXPECT_TRUE(glob_match("[a-c]x", "bx"));
    EXPECT_FALSE(glob_match("[!a-c]x", "bx"));
    EXPECT_TRUE(glob_match("\\*abc", "*abc"));
    EXPECT_FALSE(glob_match("\\*abc", "xabc"));
    EXPECT_TRUE(glob_match("*a*b*c*", "xxaxxbxxcxx"));
    EXPECT_FALSE(glob_match("*a*b*c*d", "xxaxxbxxcxx"));
    EXPECT_TRUE(glob_match("[x", "[x"));  // a set not closed is a plain "["
    EXPECT_TRUE(holds("'Another value' =~ 'Another value'"));
    EXPECT_FALSE(holds("'value' =~ 'Another value'"));
    EXPECT_TRUE(holds("12 =~ '1?'"));
    // Many stars against a long text end quickly.
    EXPECT_FALSE(glob_match("*a*a*a*a*a*a*a*a*b", std::string(2000, 'a').c_str()));
}

TEST(ConditionExpression, MalformedExpressionsAreDescribed) {
    const char* bad[] = {"1 +",       "(1 == 1",   "'open", "1 == 2 == 3", "foo == 1",
                         "defined(x", "defined x", "$",     "${Frame",     "'a' + 1",
                         "1 / 0",     "",          "== 1",  "1 2",         "#"};
    for (const char* text : bad) {
        std::string error;
        EXPECT_EQ(evaluate_condition(text, test_variables, &error), ConditionResult::Malformed)
            << text;
        EXPECT_FALSE(error.empty()) << text;
    }
    std::string deep(5000, '(');
    EXPECT_EQ(eval(deep + "1" + std::string(5000, ')')), ConditionResult::Malformed);
    EXPECT_EQ(eval(std::string(5000, '!') + "1"), ConditionResult::Malformed);
}

}  // namespace
