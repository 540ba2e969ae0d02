// Tests of the RIB tokenizer: token recognition in ASCII and binary form,
// comments and line counting, push-back, end of input, long tokens, the
// number, string and vector readers, and the number conversions.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "capture.h"
#include "rib/tokenizer.h"
#include "support/error.h"
#include "support/memory.h"

namespace {

// Feeds bytes to the tokenizer through an in-memory stream.
class TokenizerTest : public ::testing::Test {
  protected:
    void TearDown() override {
        RIBparse_close_stream();
        if (stream_) fclose(stream_);
        RIB_echo = 0;
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
    std::vector<std::pair<int, std::string>> all_tokens() {
        std::vector<std::pair<int, std::string>> tokens;
        for (auto token = next(); token.first != TOKEN_EOF; token = next()) tokens.push_back(token);
        return tokens;
    }

    ScopedErrorCapture errors_;
    std::string input_;
    FILE* stream_ = nullptr;
};

using Tokens = std::vector<std::pair<int, std::string>>;

TEST_F(TokenizerTest, SplitsARequestIntoIdentifierAndNumbers) {
    feed("Sphere 1 -1 1 360\n");
    EXPECT_EQ(all_tokens(),
              (Tokens{{'A', "Sphere"}, {'1', "1"}, {'1', "-1"}, {'1', "1"}, {'1', "360"}}));
    EXPECT_EQ(errors_.count(), 0u);
}

TEST_F(TokenizerTest, NumbersAreCopiedAsWritten) {
    feed("-.5e+2 1.2.3 - . 7e 3E-2x +4 a_1b2 _u\n");
    EXPECT_EQ(all_tokens(), (Tokens{{'1', "-.5e+2"},
                                    {'1', "1.2"},
                                    {'1', ".3"},
                                    {'1', "-"},
                                    {'1', "."},
                                    {'1', "7e"},
                                    {'1', "3E-2"},
                                    {'A', "x"},
                                    {'+', "+"},
                                    {'1', "4"},
                                    {'A', "a_1b2"},
                                    {'_', "_"},
                                    {'A', "u"}}));
}

TEST_F(TokenizerTest, StringsKeepBackslashesAndEndAtLineEnds) {
    feed("\"a\\nb\" \"\" \"open\nnext \"cr\rx\n");
    EXPECT_EQ(
        all_tokens(),
        (Tokens{{'"', "a\\nb"}, {'"', ""}, {'"', "open"}, {'A', "next"}, {'"', "cr"}, {'A', "x"}}));
    // The newline that ends the unclosed string is not counted.
    EXPECT_EQ(RIB_lineno, 2);
}

TEST_F(TokenizerTest, SingleCharactersAndCarriageReturn) {
    feed("[1]\r\n{");
    EXPECT_EQ(all_tokens(), (Tokens{{'[', "["}, {'1', "1"}, {']', "]"}, {'\r', "\r"}, {'{', "{"}}));
}

TEST_F(TokenizerTest, CommentNewlineIsNotCountedAndLeadingBlankComesBack) {
    feed("# comment\n  Sphere\nCone\n");
    EXPECT_EQ(next(), std::make_pair(int(' '), std::string(" ")));
    EXPECT_EQ(next(), std::make_pair(int('A'), std::string("Sphere")));
    EXPECT_EQ(RIB_lineno, 1);
    EXPECT_EQ(next(), std::make_pair(int('A'), std::string("Cone")));
    EXPECT_EQ(RIB_lineno, 2);  // one behind the real line 3
}

TEST_F(TokenizerTest, CharacterAfterCommentIsClassifiedWithoutSkipping) {
    feed("#one\n#two\nWorld\n#x\n\nA");
    // The second '#' directly after a comment is a plain '#' token.
    EXPECT_EQ(next().first, '#');
    EXPECT_EQ(RIBparse_lookahead(), 't');
    RIBparse_skip_line();
    EXPECT_EQ(next().second, "World");
    EXPECT_EQ(next(), std::make_pair(int('\n'), std::string("\n")));
}

TEST_F(TokenizerTest, StructureCommentLeavesSecondHash) {
    feed("##RenderMan RIB\n");
    EXPECT_EQ(next(), std::make_pair(int('#'), std::string("#")));
    EXPECT_EQ(RIBparse_lookahead(), '#');
    RIBparse_advance();
    EXPECT_EQ(next(), std::make_pair(int('A'), std::string("RenderMan")));
}

TEST_F(TokenizerTest, BinaryNumbers) {
    // Fixed point: 0x85 = two value bytes and one fraction byte; 0x80 one byte.
    // 0x83: four bytes, signed; 0x81: two bytes, not sign-extended.
    feed(
        std::string("\x85\x01\x80 \x80\x07\x83\xff\xff\xff\xfe\x81\xff\xfe"
                    "\xa4\x3f\xc0\x00\x00\xa5\xc0\x09\x00\x00\x00\x00\x00\x00 ",
                    29));
    EXPECT_EQ(
        all_tokens(),
        (Tokens{
            {'1', "1.5"}, {'1', "7"}, {'1', "-2"}, {'1', "65534"}, {'1', "1.5"}, {'1', "-3.125"}}));
}

TEST_F(TokenizerTest, BinaryStrings) {
    // 0x90: a 16-byte string that starts with the 0x90 byte itself; 0xa1: a
    // length of 0xa1 (the byte itself) followed by that many bytes.
    std::string short_form = "\x90" + std::string(15, 's');
    std::string long_form = "\xa1" + std::string(0xa1, 'l');
    feed(short_form + long_form + " x");
    auto first = next();
    EXPECT_EQ(first.first, '"');
    EXPECT_EQ(first.second, short_form);
    EXPECT_EQ(next(), std::make_pair(int('"'), std::string(0xa1, 'l')));
    EXPECT_EQ(next().second, "x");
}

TEST_F(TokenizerTest, ZeroLengthBinaryStringDoesNotStall) {
    feed("\xa0\xa0 Sphere");
    EXPECT_EQ(next(), std::make_pair(int('"'), std::string()));
    EXPECT_EQ(next(), std::make_pair(int('"'), std::string()));
    EXPECT_EQ(next().second, "Sphere");
}

TEST_F(TokenizerTest, OtherBinaryBytesAreSingleCharacters) {
    feed("\xa6\xff\x01");
    EXPECT_EQ(next().first, 0xa6);
    EXPECT_EQ(next().first, 0xff);  // a 255 byte that is not end of input
    EXPECT_EQ(RIBparse_at_eof(), 0);
    EXPECT_EQ(next().first, 1);
    EXPECT_EQ(RIBparse_at_eof(), 1);
}

TEST_F(TokenizerTest, EndFlagIsSetByTheTokenThatMeetsEndOfInput) {
    feed("WorldBegin\nWorldEnd");
    EXPECT_EQ(next().second, "WorldBegin");
    EXPECT_EQ(RIBparse_at_eof(), 0);
    EXPECT_EQ(next().second, "WorldEnd");
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
    auto identifier = next();
    EXPECT_EQ(identifier.second, std::string(RIB_TOKEN_MAX - 1, 'w'));
    auto string = next();
    EXPECT_EQ(string.first, '"');
    EXPECT_EQ(string.second.size(), size_t(RIB_TOKEN_MAX - 1));
    EXPECT_EQ(next().second, "1");
    ASSERT_EQ(errors_.count(), 2u);
    EXPECT_EQ(errors_.errors()[0].code, RIE_SYNTAX);
    EXPECT_EQ(errors_.errors()[0].severity, RIE_ERROR);
}

TEST_F(TokenizerTest, LineCounterAndProgressReport) {
    feed(std::string(4001, '\n') + "x");
    RIB_echo = 2;
    testing::internal::CaptureStderr();
    EXPECT_EQ(next().second, "x");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Read line [2000]\nRead line [4000]\n");
    EXPECT_EQ(RIB_lineno, 4002);
}

TEST_F(TokenizerTest, SaveAndRestoreKeepTheWholeState) {
    feed("one two\nthree");
    EXPECT_EQ(next().second, "one");
    RIBparse_return_token("pushed", 'A');
    RibStreamState saved;
    RIBparse_save_state(&saved);
    EXPECT_EQ(RIB_filename, std::string("test.rib"));

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
    EXPECT_EQ(RIBparse_read_number(text), 0);
    EXPECT_STREQ(text, "4");
    EXPECT_EQ(RIBparse_read_number(text), 0);
    EXPECT_STREQ(text, "5");
    EXPECT_EQ(RIBparse_read_number(text), -1);
    EXPECT_EQ(RIBparse_read_number(text), -1);  // the ']' left behind
    EXPECT_EQ(RIBparse_quoted_string(text), 0);
    EXPECT_STREQ(text, "s");
    EXPECT_NE(RIBparse_quoted_string(text), 0);
    ASSERT_EQ(errors_.count(), 3u);
    EXPECT_EQ(errors_.errors()[0].message, "Number expected");
    EXPECT_EQ(errors_.errors()[2].message, "Quoted string expected");
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
    ASSERT_EQ(errors_.count(), 1u);
    EXPECT_EQ(errors_.errors()[0].message, "Number expected");
}

TEST_F(TokenizerTest, SizedVectorsInGrowableBuffers) {
    int* ints = nullptr;
    int int_capacity = 0;
    feed("[1 2 3 4]");
    EXPECT_EQ(RIBparse_ivector(3, &ints, &int_capacity), -1);
    ASSERT_EQ(errors_.count(), 1u);
    EXPECT_EQ(errors_.errors()[0].message, "Missing ']'");
    EXPECT_EQ(int_capacity, 64);

    feed("[9.7] -2");  // at least one element even for n = 0; atoi truncates
    EXPECT_EQ(RIBparse_ivector(0, &ints, &int_capacity), 0);
    EXPECT_EQ(ints[0], 9);
    EXPECT_EQ(RIBparse_ivector(1, &ints, &int_capacity), 0);
    EXPECT_EQ(ints[0], -2);

    float* floats = nullptr;
    int float_capacity = 0;
    std::string many;
    for (int i = 0; i < 100; ++i) many += std::to_string(i) + " ";
    feed("[" + many + "]");
    EXPECT_EQ(RIBparse_fvector(100, &floats, &float_capacity), 0);
    EXPECT_EQ(float_capacity, 200);
    EXPECT_EQ(floats[99], 99.0f);
    myfree(ints);
    myfree(floats);
}

TEST_F(TokenizerTest, UnsizedVectors) {
    float* floats = nullptr;
    int capacity = 0;
    int n = -1;
    feed("[1 2 3] 4 5 6 Sphere 7 8 ] [1 2 \"s\"");
    EXPECT_EQ(RIBparse_unsized_fvector(&n, &floats, &capacity), 0);
    EXPECT_EQ(n, 3);
    EXPECT_EQ(capacity, 64);
    EXPECT_EQ(RIBparse_unsized_fvector(&n, &floats, &capacity), 0);
    EXPECT_EQ(std::vector<float>(floats, floats + n), (std::vector<float>{4, 5, 6}));
    EXPECT_EQ(next().second, "Sphere");  // pushed back
    EXPECT_EQ(errors_.count(), 0u);
    EXPECT_EQ(RIBparse_unsized_fvector(&n, &floats, &capacity), -1);
    EXPECT_EQ(RIBparse_unsized_fvector(&n, &floats, &capacity), -1);
    ASSERT_EQ(errors_.count(), 2u);
    EXPECT_EQ(errors_.errors()[0].message, "Extra ']'");
    EXPECT_EQ(errors_.errors()[1].message, "Missing ']'");

    // Growth keeps the elements read so far.
    std::string many = "[";
    for (int i = 0; i < 300; ++i) many += std::to_string(i) + " ";
    feed(many + "]");
    int* ints = nullptr;
    int int_capacity = 0;
    EXPECT_EQ(RIBparse_unsized_ivector(&n, &ints, &int_capacity), 0);
    ASSERT_EQ(n, 300);
    EXPECT_EQ(int_capacity, 512);
    for (int i = 0; i < 300; ++i) ASSERT_EQ(ints[i], i);
    myfree(floats);
    myfree(ints);
}

TEST_F(TokenizerTest, FixedArrayUnsizedReaderIsBounded) {
    float out[4] = {};
    int n = 0;
    feed("[1 2 3 4 5 6] 8 9");
    EXPECT_EQ(RIBparse_unsized_fvector(&n, out, 4), -1);
    EXPECT_EQ(n, 4);
    ASSERT_EQ(errors_.count(), 1u);
    EXPECT_EQ(RIBparse_unsized_fvector(&n, out, 4), 0);  // the list was read to its end
    EXPECT_EQ(n, 2);
    EXPECT_EQ(out[1], 9.0f);
}

TEST_F(TokenizerTest, ValueLists) {
    char out[16];
    feed("[1 \"ab\" 2] \"x\" 3 [] ] Sphere [1 2 3 4 5]");
    ASSERT_EQ(RIBparse_value_list(out, sizeof out), 11);
    float first, second;
    memcpy(&first, out, 4);
    memcpy(&second, out + 7, 4);
    EXPECT_EQ(first, 1.0f);
    EXPECT_STREQ(out + 4, "ab");
    EXPECT_EQ(second, 2.0f);
    EXPECT_EQ(RIBparse_value_list(out, sizeof out), 2);
    EXPECT_EQ(RIBparse_value_list(out, sizeof out), 4);
    EXPECT_EQ(RIBparse_value_list(out, sizeof out), 0);
    EXPECT_EQ(errors_.count(), 0u);
    EXPECT_EQ(RIBparse_value_list(out, sizeof out), -1);
    EXPECT_EQ(RIBparse_value_list(out, sizeof out), -1);
    EXPECT_EQ(RIBparse_value_list(out, sizeof out), -1);  // 20 bytes do not fit in 16
    ASSERT_EQ(errors_.count(), 3u);
    EXPECT_EQ(errors_.errors()[0].message, "Extra ']'");
    EXPECT_EQ(errors_.errors()[1].message, "Unexpected token");
    EXPECT_EQ(next().first, TOKEN_EOF);
}

TEST_F(TokenizerTest, ScratchGrowsToTwiceTheNeedAndKeepsItsContents) {
    RIBparse_release_scratch();
    EXPECT_EQ(RIBparse_check_scratchsize(1000), 0);
    EXPECT_EQ(RIBparse_scratch_size, 2000);
    RIBparse_scratch[0] = 'k';
    RIBparse_scratch[1999] = 'e';
    EXPECT_EQ(RIBparse_check_scratchsize(1999), 0);
    EXPECT_EQ(RIBparse_scratch_size, 2000);
    EXPECT_EQ(RIBparse_check_scratchsize(2000), 0);
    EXPECT_EQ(RIBparse_scratch_size, 4000);
    EXPECT_EQ(RIBparse_scratch[0], 'k');
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
        int numbers = 0;
        long sum = 0;
        for (auto token = next(); token.first != TOKEN_EOF; token = next()) {
            if (token.first == '1') {
                ++numbers;
                sum += rib_atoi(token.second.c_str());
            }
        }
        EXPECT_EQ(numbers, 40000);
        EXPECT_EQ(sum, 40000L * 39999 / 2);
        EXPECT_EQ(RIB_lineno, 40001);
    }
}

// ---- Conversions ----

TEST(RibNumberConversion, AtofMatchesTheCLibrary) {
    for (const char* text : {"-.5e+2",
                             "1",
                             "-1",
                             "360",
                             "0.1",
                             "1e",
                             "1e+",
                             "-",
                             ".",
                             "-.",
                             "3.4028236e38",
                             "1e39",
                             "1e400",
                             "1e-40",
                             "1e-400",
                             "inf",
                             "-Infinity",
                             "0x1p3",
                             " 12",
                             "+5",
                             "7abc",
                             "",
                             "abc",
                             "123456789012345678901234567890",
                             "2.7182818284590452353602874"}) {
        EXPECT_EQ(rib_atof(text), static_cast<float>(std::atof(text))) << text;
    }
    EXPECT_TRUE(std::isnan(rib_atof("nan")));
}

TEST(RibNumberConversion, AtoiReadsLikeAtoiAndSaturates) {
    EXPECT_EQ(rib_atoi("12"), 12);
    EXPECT_EQ(rib_atoi(" \t-7x"), -7);
    EXPECT_EQ(rib_atoi("+3"), 3);
    EXPECT_EQ(rib_atoi("1.9"), 1);
    EXPECT_EQ(rib_atoi("abc"), 0);
    EXPECT_EQ(rib_atoi("2147483647"), 2147483647);
    EXPECT_EQ(rib_atoi("-2147483648"), -2147483647 - 1);
    EXPECT_EQ(rib_atoi("2147483648"), 2147483647);
    EXPECT_EQ(rib_atoi("-99999999999999999999"), -2147483647 - 1);
}

}  // namespace
