// Writing reports to standard error in the format chosen on the command
// line, the report limit and counts, the chain of archive reads, and the
// JSON string escaping.
#include "support/report_output.h"

#include <cstdio>
#include <cstring>

#include "ri/ri.h"
#include "support/error.h"

ReportFormat report_format = ReportFormat::Classic;
long report_limit = -1;

namespace {

ReportCounts counts = {};
long shown = 0;  // reports and notes printed
bool not_shown_written = false;

// One level of archive reading: the file and line of the request that read
// the archive. The reader bounds the nesting of archives, so this stays short.
struct ArchiveLevel {
    std::string file;
    int line;
};
std::vector<ArchiveLevel> chain;

const char* const classic_severity_names[4] = {"INFO", "WARNING", "ERROR", "SEVERE ERROR"};
const char* const json_severity_names[4] = {"INFO", "WARNING", "ERROR", "SEVERE"};

const char* severity_name(const char* const names[4], int severity) {
    return severity >= 0 && severity <= 3 ? names[severity] : "UNKNOWN";
}

void put_line(const std::string& line) {
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}

// Whether one more report or note may be printed; counts it either way.
bool take_a_place(bool always) {
    if (always || report_limit < 0 || shown < report_limit) {
        ++shown;
        return true;
    }
    ++counts.not_shown;
    return false;
}

void append_json_text(std::string& out, const char* text) {
    if (text == nullptr) {
        out += "null";
    } else {
        append_json_string(out, text, std::strlen(text));
    }
}

// The position fields and the chain: where the reader is (null outside a
// file) and the archive reads that led there, outermost first.
void append_json_position(std::string& out) {
    out += "{\"file\":";
    if (RIB_lineno > 0) {
        append_json_text(out, RIB_filename ? RIB_filename : "");
        out += ",\"line\":" + std::to_string(RIB_lineno);
    } else {
        out += "null,\"line\":null";
    }
}

void append_json_chain(std::string& out) {
    out += ",\"from\":[";
    for (size_t i = 0; i < chain.size(); ++i) {
        if (i > 0) out += ',';
        out += "{\"file\":";
        append_json_string(out, chain[i].file.data(), chain[i].file.size());
        out += ",\"line\":" + std::to_string(chain[i].line) + "}";
    }
    out += ']';
}

// One report as a JSON object, left open (no closing brace) so that the
// caller may add fields.
std::string json_report(int code, const char* severity, const char* name, const char* message,
                        size_t message_length, bool with_position) {
    std::string out;
    if (with_position) {
        append_json_position(out);
    } else {
        out += "{\"file\":null,\"line\":null";
    }
    out += ",\"severity\":\"";
    out += severity;
    out += "\",\"code\":" + std::to_string(code) + ",\"name\":";
    append_json_text(out, name);
    out += ",\"message\":";
    if (message == nullptr) {
        out += "null";
    } else {
        append_json_string(out, message, message_length);
    }
    if (with_position) {
        append_json_chain(out);
    } else {
        out += ",\"from\":[]";
    }
    return out;
}

// The classic text: "SEVERITY: FILE (LINE): Code text", then the message
// after an arrow on a line of its own.
std::string classic_report(int code, int severity, const char* message) {
    std::string out = severity_name(classic_severity_names, severity);
    out += ": ";
    if (RIB_lineno > 0) {
        out += RIB_filename ? RIB_filename : "";
        out += " (" + std::to_string(RIB_lineno) + "): ";
    }
    if (const char* text = error_code_text(code)) {
        out += text;
    } else {
        out += "code " + std::to_string(code);
    }
    if (message != nullptr) {
        out += "\n    --> ";
        out += message;
    }
    out += '\n';
    return out;
}

// Innermost level first: each line names the file and line that read the
// file of the line above it.
void append_read_from_lines(std::string& out) {
    for (size_t i = chain.size(); i-- > 0;) {
        out += "    (read from " + chain[i].file + ":" + std::to_string(chain[i].line) + ")\n";
    }
}

// Length of the valid UTF-8 sequence at text[0] (at most length bytes), or
// 0 when the bytes there are not one: overlong forms, surrogates and code
// points past U+10FFFF are not valid.
size_t utf8_sequence_length(const unsigned char* text, size_t length) {
    const unsigned char lead = text[0];
    size_t size;
    unsigned char low = 0x80, high = 0xBF;  // range of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) {
        size = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        size = 3;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        size = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return 0;
    }
    if (length < size || text[1] < low || text[1] > high) return 0;
    for (size_t i = 2; i < size; ++i) {
        if ((text[i] & 0xC0) != 0x80) return 0;
    }
    return size;
}

void append_escape(std::string& out, unsigned code) {
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\u%04x", code);
    out += escape;
}

}  // namespace

const ReportCounts& report_counts() {
    return counts;
}

void reset_report_counts() {
    counts = {};
    shown = 0;
    not_shown_written = false;
}

void count_report(int severity) {
    if (severity >= 0 && severity <= 3) ++counts.by_severity[severity];
}

void write_report(int code, int severity, const char* message, bool ends_program) {
    count_report(severity);
    if (!take_a_place(ends_program)) return;
    if (report_format == ReportFormat::Json) {
        put_line(json_report(code, severity_name(json_severity_names, severity),
                             error_code_text(code), message, message ? std::strlen(message) : 0,
                             true) +
                 "}\n");
        return;
    }
    std::string out = classic_report(code, severity, message);
    if (report_format == ReportFormat::Text) append_read_from_lines(out);
    put_line(out);
}

void write_note(const char* text, size_t length) {
    ++counts.notes;
    if (!take_a_place(false)) return;
    if (report_format == ReportFormat::Json) {
        put_line(json_report(0, "INFO", nullptr, text, length, true) + "}\n");
    } else {
        put_line(std::string(text, length) + "\n");
    }
}

void write_program_line(const std::string& text,
                        const std::vector<std::pair<const char*, long>>& numbers) {
    if (report_format != ReportFormat::Json) {
        put_line("tracery: " + text + "\n");
        return;
    }
    std::string out = json_report(0, "INFO", nullptr, text.data(), text.size(), false);
    for (const auto& number : numbers) {
        out += ",\"";
        out += number.first;
        out += "\":" + std::to_string(number.second);
    }
    put_line(out + "}\n");
}

void write_reports_not_shown() {
    if (counts.not_shown == 0 || not_shown_written) return;
    not_shown_written = true;
    const long n = counts.not_shown;
    write_program_line(
        std::to_string(n) + (n == 1 ? " more report" : " more reports") + " not shown",
        {{"not_shown", n}});
}

void enter_archive_read(const char* file, int line) {
    chain.push_back({file ? file : "", line});
}

void leave_archive_read() {
    if (!chain.empty()) chain.pop_back();
}

size_t archive_read_depth() {
    return chain.size();
}

void append_json_string(std::string& out, const char* text, size_t length) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
    out += '"';
    for (size_t i = 0; i < length;) {
        const unsigned char c = bytes[i];
        if (c >= 0x80) {
            const size_t size = utf8_sequence_length(bytes + i, length - i);
            if (size == 0) {
                append_escape(out, 0xDC00u + c);
                ++i;
            } else {
                out.append(text + i, size);
                i += size;
            }
            continue;
        }
        ++i;
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\t':
                out += "\\t";
                break;
            case '\r':
                out += "\\r";
                break;
            default:
                if (c < 0x20) {
                    append_escape(out, c);
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    out += '"';
}
