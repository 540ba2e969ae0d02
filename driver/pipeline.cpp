// The options for scripts and packagers (-check, -report, -maxreports,
// --version) and the check run: every file read and checked by an interface
// of its own, nothing drawn, one summary line and an exit status.
#include "driver/pipeline.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "driver/command_line.h"
#include "driver/globals.h"
#include "preview/x11_previewer.h"
#include "ri/renderer.h"
#include "rib/requests.h"
#include "support/error.h"
#include "support/report_output.h"

#ifndef TRACERY_VERSION
#define TRACERY_VERSION "unknown"
#endif

namespace {

[[noreturn]] void bad_argument(const char* option, const char* wanted, const char* given) {
    std::fprintf(stderr, "tracery: %s takes %s, not \"%s\"\n", option, wanted, given);
    std::exit(2);
}

void set_report_format(const char* word) {
    if (std::strcmp(word, "text") == 0) {
        report_format = ReportFormat::Text;
    } else if (std::strcmp(word, "json") == 0) {
        report_format = ReportFormat::Json;
    } else {
        bad_argument("-report", "text or json", word);
    }
}

// A count of reports: a whole non-negative decimal number.
void set_report_limit(const char* word) {
    char* end = nullptr;
    errno = 0;
    const long limit = std::strtol(word, &end, 10);
    if (end == word || *end != '\0' || errno == ERANGE || limit < 0) {
        bad_argument("-maxreports", "a number of reports", word);
    }
    report_limit = limit;
}

// The outputs a check leaves out, set again after each parse of the options:
// no window, no pictures, no PostScript page, no dumps, no frame pacing and
// no wait. The primitives are still carried out, so that their own checks
// report as they do when drawing.
void draw_nothing() {
    x11_window_enabled = 0;
    wait_for_last_frame = 0;
    sync_times = 0;
    dump_postscript = 0;
    dump_diced_rib = 0;
    png_filename = svg_filename = pdf_filename = nullptr;
}

// A report that would end the program (a severe one, or an error under the
// "abort" handler) ends the check of the file being read instead: the reading
// stops before its next request and the next file is checked.
void stop_checking_file(int) {
    RIBparse_stop_reading();
}

// Each file starts as if it were named alone: a fresh interface (the caller
// begins it), the printing handler, the duplicate suppression forgotten and
// every frame drawn until the file selects frames.
void prepare_file() {
    draw_nothing();
    RiErrorHandler(RiErrorPrint);
    reset_error_state();
    drawing_on = 1;
    RIBparse_resume_reading();
}

// Ends the file's interface and forgets what the file left behind: open
// blocks (reported by RiEnd), object and light numbers, inline archives.
void end_file() {
    RiEnd();
    reset_interface_state();
    release_rib_tables();
}

std::string counted(long n, const char* singular, const char* plural) {
    return std::to_string(n) + " " + (n == 1 ? singular : plural);
}

void write_summary(long files) {
    const ReportCounts& counts = report_counts();
    const long errors = counts.by_severity[RIE_ERROR] + counts.by_severity[RIE_SEVERE];
    const long warnings = counts.by_severity[RIE_WARNING];
    write_program_line(counted(errors, "error", "errors") + ", " +
                           counted(warnings, "warning", "warnings") + " in " +
                           counted(files, "file", "files"),
                       {{"errors", errors}, {"warnings", warnings}, {"files", files}});
}

}  // namespace

int apply_pipeline_option(int argc, char** argv, int i) {
    const char* word = argv[i];
    if (std::strcmp(word, "-check") == 0) {
        check_only = 1;
        return 1;
    }
    if (std::strcmp(word, "-report") == 0 || std::strcmp(word, "-maxreports") == 0) {
        require_arguments(argc, i, 1, word);
        if (word[1] == 'r') {
            set_report_format(argv[i + 1]);
        } else {
            set_report_limit(argv[i + 1]);
        }
        return 2;
    }
    if (std::strcmp(word, "--version") == 0) {
        std::printf("tracery %s\n", TRACERY_VERSION);
        std::fflush(stdout);
        std::exit(0);
    }
    return 0;
}

int check_files(int argc, char** argv, int first_file) {
    std::vector<const char*> files(argv + first_file, argv + argc);
    if (files.empty() && !background) files.push_back(nullptr);  // standard input
    error_exit = stop_checking_file;
    long unopened = 0;
    for (size_t k = 0; k < files.size(); ++k) {
        if (k > 0) begin_run(argc, argv);
        prepare_file();
        open_chosen_outputs();  // none: prepare_file left every output out
        if (read_named_file(files[k]) != 0 && files[k] != nullptr) ++unopened;
        end_file();
    }
    if (files.empty()) end_file();
    write_reports_not_shown();
    write_summary(static_cast<long>(files.size()));
    if (unopened > 0) return 2;
    const ReportCounts& counts = report_counts();
    return counts.by_severity[RIE_ERROR] + counts.by_severity[RIE_SEVERE] > 0 ? 1 : 0;
}
