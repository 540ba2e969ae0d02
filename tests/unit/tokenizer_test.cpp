// Tests of the RIB tokenizer: token recognition in ASCII and binary form,
// comments and line counting, push-back, end of input, long tokens, the
// number, string and vector readers, and the number conversions.
#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "capture.h"
#include "rib/token_scan.h"
#include "rib/tokenizer.h"
#include "support/error.h"
#include "support/memory.h"

using namespace std::string_literals;

namespace {

// Feeds bytes to the tokenizer through an in-memory stream.
class TokenizerTest : public ::testing::Test {
  protected:
    void TearDown() override {
        RIBparse_close_stream();
        if (stream_) fclose(stream_);
    }
    // Through fmemopen (read with stdio), or through a temporary file (read
    // from its descriptor) when through_file is set or the input is empty.
    void feed(const std::string& bytes, bool through_file = false) {
        RIBparse_close_stream();
        if (stream_) fclose(stream_);
        input_ = bytes;
        if (through_file || input_.empty()) {
            stream_ = tmpfile();
            fwrite(input_.data(), 1, input_.size(), stream_);
            fflush(stream_);
            rewind(stream_);
        } else {
            stream_ = fmemopen(&input_[0], input_.size(), "r");
        }
        ASSERT_NE(stream_, nullptr);
        ASSERT_EQ(RIBparse_open_stream(stream_, "test.rib"), 0);
    }
    // The next token as (code, text).
    std::pair<int, std::string> next() {
        char text[RIB_TOKEN_MAX] = "";
        int code = read_RIB_token(text);
        return {code, text};
    }
    // The remaining tokens: their codes as one string, their texts joined by '|'.
    std::pair<std::string, std::string> rest() {
        std::pair<std::string, std::string> out;
        for (auto token = next(); token.first != TOKEN_EOF; token = next()) {
            if (!out.first.empty()) out.second += '|';
            out.first += static_cast<char>(token.first);
            out.second += token.second;
        }
        return out;
    }

    ScopedErrorCapture errors_;
    std::string input_;
    FILE* stream_ = nullptr;
};

using Tokens = std::pair<std::string, std::string>;
using Messages = std::vector<std::string>;

TEST_F(TokenizerTest, SplitsARequestAndCopiesNumbersAsWritten) {
    feed("Sphere 1 -1 360 [1]\r\n{");
    EXPECT_EQ(rest(), Tokens("A111[1]{", "Sphere|1|-1|360|[|1|]|{"));
    EXPECT_EQ(errors_.count(), 0u);

    feed("-.5e+2 1.2.3 - . 7e 3E-2x +4 a_1b2 _u\n");
    EXPECT_EQ(rest(), Tokens("1111111A+1A_A", "-.5e+2|1.2|.3|-|.|7e|3E-2|x|+|4|a_1b2|_|u"));
}

// Line ends are LF, CR LF or a lone CR, each counted once, also inside
// strings and after comments (whose own line end is not counted).
TEST_F(TokenizerTest, CarriageReturnsAreWhiteSpaceAndEndLines) {
    feed("A\r\nB\rC\nD\r\r\nE # c\r\nF");
    std::vector<int> lines;
    for (auto token = next(); token.first != TOKEN_EOF; token = next()) {
        if (token.first == 'A') lines.push_back(RIB_lineno);
    }
    EXPECT_EQ(lines, (std::vector<int>{1, 2, 3, 4, 6, 6}));
    feed("x\r");
    RIBparse_skip_line();
    EXPECT_EQ(RIBparse_lookahead(), '\r');
}

TEST_F(TokenizerTest, StringsSpanLinesAndDecodeEscapes) {
    feed(
        "\"a\\nb\\r\\t\\b\\f\\\\\\\"\" \"\\101\\0611\\7x\\q\" \"over\nthree\r\nlines\" "
        "\"joined\\\nhere\\\r\nand here\" Next\n");
    EXPECT_EQ(next().second, "a\nb\r\t\b\f\\\"");
    EXPECT_EQ(next().second, "A11\ax\\q");
    EXPECT_EQ(next().second, "over\nthree\r\nlines");
    EXPECT_EQ(next().second, "joinedhereand here");
    EXPECT_EQ(next().second, "Next");
    EXPECT_EQ(RIB_lineno, 5);
    EXPECT_EQ(errors_.count(), 0u);

    // Unterminated: read to the end and reported once, on its first line.
    feed("A\n\"open\nB\n");
    EXPECT_EQ(next().second, "A");
    EXPECT_EQ(next(), std::make_pair(int('"'), std::string("open\nB\n")));
    EXPECT_EQ(next().first, TOKEN_EOF);
    ASSERT_EQ(errors_.messages(), Messages{"String not closed before the end of input"});
    EXPECT_EQ(RIB_lineno, 4);
}

// A comment's newline is not counted; the character after a comment is
// classified without skipping blanks, so a second '#' (a structure comment
// "##") is a plain token.
TEST_F(TokenizerTest, Comments) {
    feed("# comment\n  Sphere\nCone\n");
    EXPECT_EQ(next(), std::make_pair(int(' '), std::string(" ")));
    EXPECT_EQ(next(), std::make_pair(int('A'), std::string("Sphere")));
    EXPECT_EQ(RIB_lineno, 1);
    EXPECT_EQ(next(), std::make_pair(int('A'), std::string("Cone")));
    EXPECT_EQ(RIB_lineno, 2);  // one behind the real line 3

    feed("#one\n#two\nWorld\n#x\n\nA");
    EXPECT_EQ(next().first, '#');
    EXPECT_EQ(RIBparse_lookahead(), 't');
    RIBparse_skip_line();
    EXPECT_EQ(next().second, "World");
    EXPECT_EQ(next(), std::make_pair(int('\n'), std::string("\n")));

    feed("##RenderMan RIB\n");
    EXPECT_EQ(next(), std::make_pair(int('#'), std::string("#")));
    EXPECT_EQ(RIBparse_lookahead(), '#');
    RIBparse_advance();
    EXPECT_EQ(next(), std::make_pair(int('A'), std::string("RenderMan")));
}

// Every number form: the bytes are unsigned, most significant first, and
// the values are exact (a binary number is not rounded through its text).
TEST_F(TokenizerTest, BinaryNumbersAreExact) {
    const std::string bytes =
        "\x80\x07"                                    // one byte: 7
        "\x81\xff\xfe"                                // two bytes, unsigned: 65534
        "\x83\xff\xff\xff\xfe"                        // four bytes, unsigned
        "\x85\x01\x80"                                // one fraction byte: 1.5
        "\x8a\x03\x07\xae"                            // two of three bytes fraction: 3.03
        "\x8f\x00\x00\x00\x01"                        // four bytes, three of them fraction
        "\xa4\x3d\xcc\xcc\xcd"                        // single 0.1f
        "\xa5\x3f\xb9\x99\x99\x99\x99\x99\x9a"        // double 0.1
        "\xc8\x02\xbf\xc0\x00\x00\x7f\x80\x00\x00"s;  // [-1.5 inf]
    feed(bytes);
    const double expected[] = {7,       65534, 4294967294.0, 1.5,  0x0307ae / 65536.0,
                               0x1p-24, 0.1f,  0.1,          -1.5, HUGE_VAL};
    RibTokenView token;
    ASSERT_EQ(scan_RIB_token(&token), TOKEN_NUMBER);
    for (size_t i = 0; i < 10; ++i) {
        if (i > 0) {
            if (i == 8) {
                ASSERT_EQ(scan_RIB_token(&token), '[');
            }
            ASSERT_EQ(scan_RIB_token(&token), TOKEN_NUMBER) << i;
        }
        EXPECT_TRUE(token.numeric);
        EXPECT_EQ(token.number, expected[i]) << i;
        EXPECT_EQ(token_atof(token), static_cast<float>(expected[i])) << i;
    }
    EXPECT_EQ(scan_RIB_token(&token), ']');
    EXPECT_EQ(RIBparse_at_eof(), 1);
    EXPECT_EQ(scan_RIB_token(&token), TOKEN_EOF);

    // Copied out as text that reads back as the same value; pushed back
    // with the value itself.
    feed("\xa4\x3d\xcc\xcc\xcd\x85\x01\x80 x"s);
    EXPECT_EQ(next().second, "0.10000000149011612");
    ASSERT_EQ(scan_RIB_token(&token), TOKEN_NUMBER);
    return_token_view(token);
    EXPECT_EQ(token_atoi(token), 1);
    RibTokenView again;
    ASSERT_EQ(scan_RIB_token(&again), TOKEN_NUMBER);
    EXPECT_TRUE(again.numeric);
    EXPECT_EQ(again.number, 1.5);
}

// Strings of both forms, request and string definitions and their uses,
// mixed with ASCII tokens; definitions belong to the stream.
TEST_F(TokenizerTest, BinaryStringsAndDefinitions) {
    std::string long_text(300, 'l');
    feed(
        "\x93"
        "abc"
        "\x90"
        "\xa0\x03"
        "xyz"
        "\xa1\x01\x2c"s +
        long_text +
        "\xcc\x07\x96Sphere \xa6\x07 1 \"q\" \xcd\x01\"named\" \xcf\x01\xce\x01\x00"
        "\x92st\xd0\x01\x00\xa6\x07"s);
    EXPECT_EQ(rest(),
              Tokens("\"\"\"\"A1\"\"\"A", "abc||xyz|" + long_text + "|Sphere|1|q|named|st|Sphere"));
    EXPECT_EQ(errors_.count(), 0u);
    RibStreamState saved;
    RIBparse_save_state(&saved);
    std::string inner("\xa6\x07", 2);
    FILE* other = fmemopen(&inner[0], inner.size(), "r");
    ASSERT_EQ(RIBparse_open_stream(other, "inner.rib"), 0);
    EXPECT_EQ(next().first, TOKEN_EOF);  // code 7 is not defined in this stream
    RIBparse_close_stream();
    fclose(other);
    RIBparse_restore_state(&saved);
    EXPECT_EQ(errors_.messages(), Messages{"Request code 7 used before it is defined at byte 0"});
}

// Each error is one report with its byte offset; the form is skipped and
// reading goes on, except at a cut, which ends the stream.
TEST_F(TokenizerTest, BinaryErrorsAreReportedWithTheirOffset) {
    feed("A \xa6\x09 B \xcf\x05 C \xcc\x01 D \xcd\x02\x80\x01 E \xb0 F \xff G \x92x"s);
    EXPECT_EQ(rest(), Tokens("AAAA1AAA", "A|B|C|D|1|E|F|G"));
    EXPECT_EQ(errors_.messages(),
              (Messages{"Request code 9 used before it is defined at byte 2",
                        "String number 5 used before it is defined at byte 7",
                        "Definition without its string at byte 12",
                        "Definition without its string at byte 17", "Reserved byte 176 at byte 24",
                        "Reserved byte 255 at byte 28",
                        "Binary token cut off by the end of input at byte 32"}));
    EXPECT_EQ(RIBparse_at_eof(), 1);
}

TEST_F(TokenizerTest, EndFlagIsSetByTheTokenThatMeetsEndOfInput) {
    feed("WorldBegin\n\x01");
    EXPECT_EQ(next().second, "WorldBegin");
    EXPECT_EQ(RIBparse_at_eof(), 0);
    EXPECT_EQ(next().first, 1);
    EXPECT_EQ(RIBparse_at_eof(), 1);
    EXPECT_EQ(RIBparse_lookahead(), 255);
    EXPECT_EQ(next().first, TOKEN_EOF);

    feed("Sphere  \n\n");
    EXPECT_EQ(next().second, "Sphere");
    EXPECT_EQ(next().first, TOKEN_EOF);  // met while skipping white space

    feed("");
    EXPECT_EQ(RIBparse_at_eof(), 1);
    EXPECT_EQ(next().first, TOKEN_EOF);
}

TEST_F(TokenizerTest, PushBackReturnsOneTokenAndIsDroppedAtEnd) {
    feed("a b c");
    auto a = next();
    RIBparse_return_token("first", '"');
    RIBparse_return_token(a.second.c_str(), a.first);  // overwrites the first
    EXPECT_EQ(next(), a);
    EXPECT_EQ(next().second, "b");
    EXPECT_EQ(next().second, "c");
    RIBparse_return_token("c", 'A');  // at end of input: emptied
    EXPECT_EQ(next().first, TOKEN_EOF);
}

TEST_F(TokenizerTest, LongTokensAreCutAndReportedOnce) {
    std::string word(RIB_TOKEN_MAX + 500, 'w');
    feed(word + " \"" + std::string(3 * RIB_TOKEN_MAX, 's') + "\" 1\n");
    EXPECT_EQ(next().second, std::string(RIB_TOKEN_MAX - 1, 'w'));
    EXPECT_EQ(next(), std::make_pair(int('"'), std::string(RIB_TOKEN_MAX - 1, 's')));
    EXPECT_EQ(next().second, "1");
    ASSERT_EQ(errors_.count(), 2u);
    EXPECT_EQ(errors_.errors()[0].code, RIE_SYNTAX);
}

TEST_F(TokenizerTest, SaveAndRestoreKeepTheWholeState) {
    feed("one two\nthree");
    EXPECT_EQ(next().second, "one");
    RIBparse_return_token("pushed", 'A');
    RibStreamState saved;
    RIBparse_save_state(&saved);

    std::string inner = "inner\n\n";
    FILE* other = fmemopen(&inner[0], inner.size(), "r");
    ASSERT_EQ(RIBparse_open_stream(other, "inner.rib"), 0);
    EXPECT_EQ(next().second, "inner");
    RIBparse_close_stream();
    fclose(other);

    RIBparse_restore_state(&saved);
    EXPECT_EQ(std::string(RIB_filename), "test.rib");
    EXPECT_EQ(RIB_lineno, 1);
    EXPECT_EQ(next().second, "pushed");
    EXPECT_EQ(next().second, "two");
    EXPECT_EQ(next().second, "three");
    EXPECT_EQ(RIB_lineno, 2);
}

// ---- Readers ----

TEST_F(TokenizerTest, ReadNumberAcceptsABracketedSingleNumber) {
    feed("4 [ 5 ] [6 7] \"s\"");
    char text[RIB_TOKEN_MAX];
    std::string read;
    for (int i = 0; i < 4; ++i) read += RIBparse_read_number(text) == 0 ? text : "-";
    EXPECT_EQ(read, "45--");  // the ']' left behind fails too
    EXPECT_EQ(RIBparse_quoted_string(text), 0);
    EXPECT_STREQ(text, "s");
    EXPECT_NE(RIBparse_quoted_string(text), 0);
    EXPECT_EQ(errors_.messages(),
              (Messages{"Number expected", "Number expected", "Quoted string expected"}));
    EXPECT_EQ(errors_.errors()[2].code, RIE_SYNTAX);
}

TEST_F(TokenizerTest, SizedVectors) {
    feed("[1 2 3] 4 [5] 6 \"s\" 7 8 [1 2] 9");
    float v[3];
    EXPECT_EQ(RIBparse_fvector(3, v), 0);
    EXPECT_EQ(std::vector<float>(v, v + 3), (std::vector<float>{1, 2, 3}));
    EXPECT_EQ(RIBparse_fvector(3, v), 0);  // bare, second element bracketed
    EXPECT_EQ(std::vector<float>(v, v + 3), (std::vector<float>{4, 5, 6}));
    // The first element is taken without a type check.
    EXPECT_EQ(RIBparse_fvector(3, v), 0);
    EXPECT_EQ(std::vector<float>(v, v + 3), (std::vector<float>{0, 7, 8}));
    EXPECT_EQ(errors_.count(), 0u);
    // Two numbers in brackets when three are wanted: fails on the ']'.
    EXPECT_EQ(RIBparse_fvector(3, v), -1);
    EXPECT_EQ(errors_.messages(), Messages{"Number expected"});

    // In growable buffers.
    int* ints = nullptr;
    int int_capacity = 0;
    feed("[1 2 3 4]");
    EXPECT_EQ(RIBparse_ivector(3, &ints, &int_capacity), -1);
    EXPECT_EQ(errors_.messages(), (Messages{"Number expected", "Missing ']'"}));
    feed("[9.7] -2");
    EXPECT_EQ(RIBparse_ivector(0, &ints, &int_capacity), 0);  // one element even for n = 0
    EXPECT_EQ(ints[0], 9);                                    // atoi truncates
    EXPECT_EQ(RIBparse_ivector(1, &ints, &int_capacity), 0);
    EXPECT_EQ(ints[0], -2);
    myfree(ints);
}

TEST_F(TokenizerTest, UnsizedVectors) {
    float* floats = nullptr;
    int capacity = 0;
    int n = -1;
    feed("[1 2 3] 4 5 6 Sphere 7 8 ] [1 2 \"s\"");
    EXPECT_EQ(RIBparse_unsized_fvector(&n, &floats, &capacity), 0);
    EXPECT_EQ(n, 3);
    EXPECT_EQ(RIBparse_unsized_fvector(&n, &floats, &capacity), 0);
    EXPECT_EQ(std::vector<float>(floats, floats + n), (std::vector<float>{4, 5, 6}));
    EXPECT_EQ(next().second, "Sphere");  // pushed back
    EXPECT_EQ(errors_.count(), 0u);
    EXPECT_EQ(RIBparse_unsized_fvector(&n, &floats, &capacity), -1);
    EXPECT_EQ(RIBparse_unsized_fvector(&n, &floats, &capacity), -1);
    EXPECT_EQ(errors_.messages(), (Messages{"Extra ']'", "Missing ']'"}));

    // Growth keeps the elements read so far, those read in a run included.
    std::string many = "[";
    for (int i = 0; i < 300; ++i) many += std::to_string(i) + " ";
    feed(many + "]");
    EXPECT_EQ(RIBparse_unsized_fvector(&n, &floats, &capacity), 0);
    ASSERT_EQ(n, 300);
    for (int i = 0; i < 300; ++i) ASSERT_EQ(floats[i], float(i));
    feed(many + "]");
    int* ints = nullptr;
    int int_capacity = 0;
    EXPECT_EQ(RIBparse_unsized_ivector(&n, &ints, &int_capacity), 0);
    ASSERT_EQ(n, 300);
    for (int i = 0; i < 300; ++i) ASSERT_EQ(ints[i], i);
    myfree(floats);
    myfree(ints);

    // The fixed-array form reads a longer list to its end and fails.
    float out[4] = {};
    feed("[1 2 3 4 5 6] 8 9");
    EXPECT_EQ(RIBparse_unsized_fvector(&n, out, 4), -1);
    EXPECT_EQ(n, 4);
    EXPECT_EQ(RIBparse_unsized_fvector(&n, out, 4), 0);
    EXPECT_EQ(n, 2);
    EXPECT_EQ(out[1], 9.0f);
}

TEST_F(TokenizerTest, ValueLists) {
    char out[16];
    feed("[1 \"ab\" 2] \"x\" 3 [] ] Sphere [1 2 3 4 5]");
    ASSERT_EQ(RIBparse_value_list(out, sizeof out), 11);  // a float, "ab\0", a float
    float second;
    memcpy(&second, out + 7, 4);
    EXPECT_STREQ(out + 4, "ab");
    EXPECT_EQ(second, 2.0f);
    EXPECT_EQ(RIBparse_value_list(out, sizeof out), 2);
    EXPECT_EQ(RIBparse_value_list(out, sizeof out), 4);
    EXPECT_EQ(RIBparse_value_list(out, sizeof out), 0);
    EXPECT_EQ(errors_.count(), 0u);
    EXPECT_EQ(RIBparse_value_list(out, sizeof out), -1);
    EXPECT_EQ(RIBparse_value_list(out, sizeof out), -1);
    EXPECT_EQ(RIBparse_value_list(out, sizeof out), -1);  // 20 bytes do not fit in 16
    EXPECT_EQ(errors_.messages(),
              (Messages{"Extra ']'", "Unexpected token", "Parameter values exceed 16 bytes"}));
    EXPECT_EQ(next().first, TOKEN_EOF);
}

TEST_F(TokenizerTest, ScratchGrowsToTwiceTheNeedAndKeepsItsContents) {
    RIBparse_release_scratch();
    EXPECT_EQ(RIBparse_check_scratchsize(1000), 0);
    RIBparse_scratch[1999] = 'e';
    EXPECT_EQ(RIBparse_check_scratchsize(2000), 0);
    EXPECT_EQ(RIBparse_scratch_size, 4000);
    EXPECT_EQ(RIBparse_scratch[1999], 'e');
    EXPECT_EQ(RIBparse_check_scratchsize(RIB_SCRATCH_MAX + 1), -1);
    EXPECT_EQ(RIBparse_scratch_size, 4000);
    RIBparse_release_scratch();
}

TEST_F(TokenizerTest, ReadsAcrossBufferRefillsFromStdioAndDescriptors) {
    std::string text;
    for (int i = 0; i < 40000; ++i) text += "Translate " + std::to_string(i) + " \"s\"\n";
    for (bool through_file : {false, true}) {
        feed(text, through_file);
        long sum = 0;
        for (auto token = next(); token.first != TOKEN_EOF; token = next()) {
            if (token.first == '1') sum += rib_atoi(token.second.c_str());
        }
        EXPECT_EQ(sum, 40000L * 39999 / 2);
        EXPECT_EQ(RIB_lineno, 40001);
    }
}

// Tokens are taken in place from the read buffer unless they reach its end:
// every token kind is placed across the 64 KiB refill at every offset, and
// must come out as it does away from the boundary, with the same line count
// (the comment's newline uncounted).
TEST_F(TokenizerTest, TokensAcrossTheRefillBoundaryMatchTokensInsideTheBuffer) {
    const std::string tail =
        "Sphere_2 -1.5e+3 \"quoted s\" # comment\r\n  [7] .5E-2\r\n\"two\r\nlines\\t\\101\" "
        "\xc8\x01\x3f\xc0\x00\x00\xcd\x00\x92"
        "ab\xcf\x00\xa5\x40\x04\x00\x00\x00\x00\x00\x00"
        "\r\"x\" -"s;
    const Tokens expected(
        "A1\" [1]1\"[1]\"1\"1",
        "Sphere_2|-1.5e+3|quoted s| |[|7|]|.5E-2|two\r\nlines\tA|[|1.5|]|ab|2.5|x|-");
    const int chunk = 64 * 1024;
    for (int shift = 1; shift < static_cast<int>(tail.size()); ++shift) {
        feed(std::string(chunk - shift, '\n') + tail, true);
        ASSERT_EQ(rest(), expected) << "shift " << shift;
        ASSERT_EQ(RIB_lineno, chunk - shift + 4) << "shift " << shift;
    }
    EXPECT_EQ(errors_.count(), 0u);

    std::vector<float> floats(3);
    feed(std::string(chunk - 4, ' ') + "[1.25 -2e1 3]", true);
    EXPECT_EQ(RIBparse_fvector(3, floats.data()), 0);
    EXPECT_EQ(floats, (std::vector<float>{1.25f, -20.0f, 3.0f}));
}

// ---- Conversions ----

TEST(RibNumberConversion, AtofAndAtoiMatchTheCLibraryAndSaturate) {
    std::istringstream words(
        "-.5e+2 0.1 1e+ -. 3.4028236e38 1e39 1e-40 1e-400 inf -Infinity 0x1p3 +5 7abc abc "
        "123456789012345678901234567890");
    for (std::string text; words >> text;) {
        EXPECT_EQ(rib_atof(text.c_str()), static_cast<float>(std::atof(text.c_str()))) << text;
    }
    EXPECT_EQ(rib_atof(" 12"), 12.0f);
    EXPECT_EQ(rib_atof(""), 0.0f);
    EXPECT_TRUE(std::isnan(rib_atof("nan")));

    EXPECT_EQ(rib_atoi(" \t-7x"), -7);
    EXPECT_EQ(rib_atoi("1.9"), 1);
    EXPECT_EQ(rib_atoi("-2147483648"), -2147483647 - 1);
    EXPECT_EQ(rib_atoi("2147483648"), 2147483647);
    EXPECT_EQ(rib_atoi("-99999999999999999999"), -2147483647 - 1);
}

// Numbers are converted straight from the token, short decimals without the
// general conversion, and numbers scanned inside the read buffer while their
// end is found: every form, taken either way, must give the very float the
// text's atof gives, bit for bit.
TEST_F(TokenizerTest, TokenConversionMatchesAtofBitForBit) {
    auto scans_as_number = [](const std::string& text) {
        return !text.empty() && (std::isdigit(static_cast<unsigned char>(text[0])) ||
                                 text[0] == '-' || text[0] == '.');
    };
    std::mt19937 random(14);
    auto digits = [&](int n) {
        std::string out;
        for (int i = 0; i < n; ++i) out += char('0' + random() % 10);
        return out;
    };
    std::vector<std::string> texts = {"0",
                                      "-0",
                                      "-0.0",
                                      ".5",
                                      "5.",
                                      "-.",
                                      "-",
                                      ".",
                                      "1e",
                                      "1e+",
                                      "7e22",
                                      "7e23",
                                      "1e-22",
                                      "1e-23",
                                      "00012",
                                      "9007199254740993",
                                      "123456789012345",
                                      "0.1e1",
                                      "3E-2",
                                      "1e001",
                                      "2.5e-0005",
                                      "-4E+100",
                                      "123456789012345678901234"};
    for (int i = 0; i < 200000; ++i) {
        std::string text = (random() % 2) ? "-" : "";
        text += digits(random() % 10);
        if (random() % 3) text += "." + digits(random() % 12);
        if (random() % 3 == 0) {
            text += (random() % 2) ? "e" : "E";
            if (random() % 2) text += (random() % 2) ? "-" : "+";
            text += std::to_string(random() % 40);
        }
        texts.push_back(text);
    }
    std::string scanned;
    for (const std::string& text : texts) {
        const RibTokenView token{TOKEN_NUMBER, text.data(), static_cast<int>(text.size())};
        const float fast = token_atof(token), slow = rib_atof(text.c_str());
        ASSERT_EQ(std::memcmp(&fast, &slow, sizeof fast), 0) << text;
        ASSERT_EQ(token_atoi(token), rib_atoi(text.c_str())) << text;
        if (scans_as_number(text)) scanned += text + (text.size() % 2 ? " " : "\n");
    }
    feed(scanned);
    for (const std::string& text : texts) {
        if (!scans_as_number(text)) continue;
        RibTokenView token;
        ASSERT_EQ(scan_RIB_token(&token), TOKEN_NUMBER) << text;
        ASSERT_EQ(std::string(token.text, size_t(token.length)), text);
        const float fast = token_atof(token), slow = rib_atof(text.c_str());
        ASSERT_EQ(std::memcmp(&fast, &slow, sizeof fast), 0) << text;
        ASSERT_EQ(token_atoi(token), rib_atoi(text.c_str())) << text;
    }
}

}  // namespace
