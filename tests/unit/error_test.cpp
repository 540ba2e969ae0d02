// Tests of the error printer (format, duplicate suppression, severities and
// the exits of severe reports), QuillError and the variadic-list converters.
#include <gtest/gtest.h>

#include <string>

#include "support/error.h"
#include "support/report_output.h"

namespace {

class ErrorPrintTest : public ::testing::Test {
  protected:
    void SetUp() override { at(nullptr, 0); }
    void TearDown() override { at(nullptr, 0); }
    static void at(const char* file, int line) {
        reset_error_state();
        RIB_filename = file;
        RIB_lineno = line;
    }
    static std::string print(int code, int severity, const char* message) {
        testing::internal::CaptureStderr();
        RiErrorPrint(code, severity, message);
        return testing::internal::GetCapturedStderr();
    }
};

TEST_F(ErrorPrintTest, Format) {
    at("scene.rib", 12);
    EXPECT_EQ(print(RIE_BADTOKEN, RIE_ERROR, "bad"),
              "ERROR: scene.rib (12): Invalid token\n    --> bad\n");
    EXPECT_EQ(RiLastError, RIE_BADTOKEN);
    // No position outside a file, no arrow without a message, and a number
    // for codes that have no text.
    at(nullptr, 0);
    EXPECT_EQ(print(RIE_NOFILE, RIE_WARNING, nullptr), "WARNING: File not found\n");
    EXPECT_EQ(print(RIE_NESTING, RIE_INFO, nullptr), "INFO: Nesting error\n");
    EXPECT_EQ(print(5, RIE_ERROR, nullptr), "ERROR: code 5\n");
    EXPECT_EQ(print(0, RIE_ERROR, "m"), "ERROR: code 0\n    --> m\n");
    EXPECT_EQ(print(48, RIE_ERROR, nullptr), "ERROR: code 48\n");
}

TEST_F(ErrorPrintTest, SameCodeOnSameLineIsPrintedOnceAndIgnoreRecordsTheCode) {
    at("a.rib", 3);
    EXPECT_NE(print(RIE_SYNTAX, RIE_ERROR, "one"), "");
    EXPECT_EQ(print(RIE_SYNTAX, RIE_ERROR, "two"), "");
    EXPECT_NE(print(RIE_RANGE, RIE_ERROR, "other code"), "");
    RIB_lineno = 4;
    EXPECT_NE(print(RIE_RANGE, RIE_ERROR, "next line"), "");
    // An invalid token with a message is never suppressed.
    EXPECT_NE(print(RIE_BADTOKEN, RIE_WARNING, "first"), "");
    EXPECT_NE(print(RIE_BADTOKEN, RIE_WARNING, "second"), "");
    EXPECT_EQ(print(RIE_BADTOKEN, RIE_WARNING, nullptr), "");
    // Line zero (outside a file) suppresses too.
    at(nullptr, 0);
    EXPECT_NE(print(RIE_NOFILE, RIE_ERROR, "x.rib"), "");
    EXPECT_EQ(print(RIE_NOFILE, RIE_ERROR, "y.rib"), "");

    // RiErrorIgnore prints nothing but records the code.
    EXPECT_EQ(print(RIE_SYNTAX, RIE_ERROR, nullptr), "ERROR: Syntax error\n");  // no exit
    testing::internal::CaptureStderr();
    RiErrorIgnore(RIE_MATH, RIE_SEVERE, "ignored");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(RiLastError, RIE_MATH);
}

TEST(ErrorExitTest, SevereOrAbortedErrorEndsWithStatus255) {
    EXPECT_EXIT(RiErrorPrint(RIE_NESTING, RIE_SEVERE, "end"), testing::ExitedWithCode(255),
                "SEVERE ERROR: Nesting error\n    --> end\n");
    EXPECT_EXIT(RiErrorAbort(RIE_SYNTAX, RIE_ERROR, nullptr), testing::ExitedWithCode(255),
                "ERROR: Syntax error");
    reset_error_state();
    testing::internal::CaptureStderr();
    RiErrorAbort(RIE_RANGE, RIE_WARNING, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "WARNING: Parameter out of range\n");
}

std::string last_message;
void recording_handler(RtInt, RtInt, const char* message) {
    last_message = message;
}

TEST(QuillErrorTest, FormatsThroughTheInstalledHandler) {
    RtErrorHandler saved = RMError;
    RiErrorHandler(recording_handler);
    QuillError(RIE_BADHANDLE, RIE_ERROR, "Unknown object handle %d", 7);
    EXPECT_EQ(last_message, "Unknown object handle 7");
    std::string long_name(2000, 'x');
    QuillError(RIE_BADTOKEN, RIE_ERROR, "name %s", long_name.c_str());
    EXPECT_EQ(last_message.size(), 511u);
    RiErrorHandler(saved);
}

int call_v_to_array(int dummy, ...) {
    va_list ap;
    va_start(ap, dummy);
    int n = _v_to_array(ap);
    va_end(ap);
    return n;
}

TEST(VariadicListTest, ConvertersBoundTheirLists) {
    int a = 1, b = 2;
    EXPECT_EQ(call_v_to_array(0, RI_NULL), 0);
    EXPECT_EQ(call_v_to_array(0, "P", &a, "Cs", &b, RI_NULL), 2);
    EXPECT_STREQ(_V_names[0], "P");
    EXPECT_EQ(_V_params[1], &b);
    const char* t = "t";
#define TEN t, &a, t, &a, t, &a, t, &a, t, &a, t, &a, t, &a, t, &a, t, &a, t, &a
    EXPECT_EQ(call_v_to_array(0, TEN, TEN, TEN, TEN, TEN, TEN, TEN, TEN, TEN, TEN, t, &a, RI_NULL),
              100);
#undef TEN

    RtToken tokens[150];
    RtPointer values[150];
    for (int i = 0; i < 150; ++i) tokens[i] = "t", values[i] = i % 2 ? &b : &a;
    void** end = _array_to_v(2, tokens, values);
    void** list = _array_to_v_list();
    EXPECT_EQ(end, list + 4);
    EXPECT_EQ(list[0], tokens[0]);
    EXPECT_EQ(list[3], &b);
    EXPECT_EQ(end[0], nullptr);

    _V_names[0] = "kept";
    EXPECT_EQ(_array_to_v(150, tokens, values), _array_to_v_list() + 198);
    EXPECT_STREQ(_V_names[0], "kept");  // the interleaved list has room of its own
}

std::string json(const std::string& text) {
    std::string out;
    append_json_string(out, text.data(), text.size());
    return out;
}

TEST(JsonStringTest, EscapesWhatJsonNeedsAndEachByteThatIsNotUtf8) {
    EXPECT_EQ(json("a\"b\\c/"), "\"a\\\"b\\\\c/\"");
    EXPECT_EQ(json(std::string("\n\t\r\x01\x1f\x7f\0", 7)),
              "\"\\n\\t\\r\\u0001\\u001f\x7f\\u0000\"");
    // Valid sequences of two, three and four bytes pass as they are, at the
    // edges of their ranges too.
    const std::string valid =
        "\xc3\xa9 \xe2\x82\xac \xf0\x9f\x99\x82 \xed\x9f\xbf \xf4\x8f\xbf\xbf";
    EXPECT_EQ(json(valid), "\"" + valid + "\"");
    // Stray continuation bytes, overlong forms, surrogates, code points past
    // U+10FFFF, bytes that never start a sequence and a sequence cut short:
    // each byte that is not part of a valid sequence is escaped on its own.
    EXPECT_EQ(json("\x80\xbf"), "\"\\udc80\\udcbf\"");
    EXPECT_EQ(json("\xc0\xaf\xe0\x80\xaf"), "\"\\udcc0\\udcaf\\udce0\\udc80\\udcaf\"");
    EXPECT_EQ(json("\xed\xa0\x80"), "\"\\udced\\udca0\\udc80\"");
    EXPECT_EQ(json("\xf4\x90\x80\x80"), "\"\\udcf4\\udc90\\udc80\\udc80\"");
    EXPECT_EQ(json("\xff\xfe"), "\"\\udcff\\udcfe\"");
    EXPECT_EQ(json("x\xe2\x82"), "\"x\\udce2\\udc82\"");
    EXPECT_EQ(json("\xe2\x82x"), "\"\\udce2\\udc82x\"");
}

// The formats and the limit, through the printing handler as the program
// uses it: the limit counts reports and notes, a report that ends the program
// shows past it, and the count of those held back is written once.
class ReportOutputTest : public ::testing::Test {
  protected:
    void SetUp() override {
        reset_error_state();
        reset_report_counts();
        RIB_filename = "in.rib";
        RIB_lineno = 4;
    }
    void TearDown() override {
        while (archive_read_depth() > 0) leave_archive_read();
        report_format = ReportFormat::Classic;
        report_limit = -1;
        reset_report_counts();
        reset_error_state();
        RIB_filename = nullptr;
        RIB_lineno = 0;
    }
};

TEST_F(ReportOutputTest, TextNamesTheArchiveChainInnermostFirstAndJsonOutermostFirst) {
    enter_archive_read("top.rib", 7);
    enter_archive_read("mid.rib", 2);
    testing::internal::CaptureStderr();
    RiErrorPrint(RIE_SYNTAX, RIE_WARNING, "m");
    report_format = ReportFormat::Text;
    RiErrorPrint(RIE_RANGE, RIE_WARNING, nullptr);
    report_format = ReportFormat::Json;
    RiErrorPrint(5, -1, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "WARNING: in.rib (4): Syntax error\n    --> m\n"
              "WARNING: in.rib (4): Parameter out of range\n"
              "    (read from mid.rib:2)\n    (read from top.rib:7)\n"
              "{\"file\":\"in.rib\",\"line\":4,\"severity\":\"UNKNOWN\",\"code\":5,"
              "\"name\":null,\"message\":null,\"from\":[{\"file\":\"top.rib\",\"line\":7},"
              "{\"file\":\"mid.rib\",\"line\":2}]}\n");
    EXPECT_EQ(report_counts().by_severity[RIE_WARNING], 2);
}

TEST_F(ReportOutputTest, LimitCountsReportsAndNotesAndShowsAReportThatEndsTheProgram) {
    report_limit = 1;
    testing::internal::CaptureStderr();
    RiErrorPrint(RIE_SYNTAX, RIE_ERROR, "shown");
    write_note("read character 93  \"]\"", 22);
    RiErrorPrint(RIE_RANGE, RIE_ERROR, "held back");
    RiErrorPrint(RIE_RANGE, RIE_ERROR, "repeat: neither shown nor counted");
    RiErrorIgnore(RIE_MATH, RIE_WARNING, nullptr);  // counted, never printed
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ERROR: in.rib (4): Syntax error\n    --> shown\n");
    EXPECT_EQ(report_counts().by_severity[RIE_ERROR], 2);
    EXPECT_EQ(report_counts().by_severity[RIE_WARNING], 1);
    EXPECT_EQ(report_counts().notes, 1);
    EXPECT_EXIT(
        RiErrorAbort(RIE_BADHANDLE, RIE_ERROR, "ends"), testing::ExitedWithCode(255),
        "ERROR: in.rib \\(4\\): Bad handle\n    --> ends\ntracery: 2 more reports not shown\n");
    testing::internal::CaptureStderr();
    write_reports_not_shown();
    write_reports_not_shown();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "tracery: 2 more reports not shown\n");
}

}  // namespace
