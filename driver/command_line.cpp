// The command line: option parsing, the usage text, the start-up file and one
// complete run of the interface over the files named.
#include "driver/command_line.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "driver/globals.h"
#include "driver/pipeline.h"
#include "preview/x11_previewer.h"
#include "ri/attributes.h"
#include "ri/renderer.h"
#include "rib/requests.h"
#include "support/error.h"
#include "support/report_output.h"

namespace {

// The usage text stands as the program has always printed it, so scripts that
// read it see no change; the picture options (-png, -svg, -pdf), like the
// working switches -debug, -dumprib and -dumptri, are documented in the
// README instead.
const char usage_text[] =
    "tracery - X11 vector previewer for RIB files\n"
    "Quill Rendering Tools (Adheres to the RenderMan Standard)\n"
    "\n"
    "Usage: tracery [options] file1 ... fileN\n"
    "   options:\n"
    "\t  -res x y           Specify image resolution (if not in RIB)\n"
    "\t  -frames f1 f2      Specify frame interval\n"
    "\t  -sync n            Synchronize frames times to <n> per second\n"
    "\t  -nowait            Do not wait for ESC when finished\n"
    "\t  -rd det            Multiply level of detail by <det>\n"
    "\t  -ps psfile         Dump vector preview to PostScript file\n"
    "\t  -color | -nocolor  Force color (or b&w) display\n"
    "\t  {-fg | -bg} color  Specify fg or bg colors for vector display\n"
    "\t  -v                 Verbose mode\n"
    "\n";

// The string value of the "-v" option; RiOption takes string values as a
// pointer to an array of strings.
const char* verbose_value = "verbose";

// The search path and echo level ParseRIB gets: fields of the current options.
const char* current_searchpath() {
    return renderer ? renderer->include_path : nullptr;
}
int current_echo() {
    return renderer ? renderer->verbosity : 0;
}

void read_colour(char** argv, int i, float rgb[3]) {
    for (int k = 0; k < 3; ++k) rgb[k] = static_cast<float>(std::atof(argv[i + 1 + k]));
}

// The global that holds the file name of a picture option.
char*& picture_filename(const char* option) {
    if (std::strcmp(option, "-png") == 0) return png_filename;
    if (std::strcmp(option, "-svg") == 0) return svg_filename;
    return pdf_filename;
}

// Carries out the option at argv[i]; returns the number of words it takes
// (the option included), or 0 when the word is not an option.
int apply_option(int argc, char** argv, int i) {
    const char* word = argv[i];
    auto is = [word](const char* option) { return std::strcmp(word, option) == 0; };
    if (is("-") || is("-h") || is("-help")) usage();
    if (is("-debug")) {
        RMDEBUG = 2;
        return 1;
    }
    if (is("-frames")) {
        require_arguments(argc, i, 2, word);
        start_frame = std::atol(argv[i + 1]);
        end_frame = std::atol(argv[i + 2]);
        return 3;
    }
    if (is("-ps")) {
        require_arguments(argc, i, 1, word);
        dump_postscript = 1;
        postscript_filename = argv[i + 1];
        return 2;
    }
    if (is("-png") || is("-svg") || is("-pdf")) {
        require_arguments(argc, i, 1, word);
        picture_filename(word) = argv[i + 1];
        return 2;
    }
    if (is("-dumprib") || is("-dumptri")) {
        dump_diced_rib = is("-dumprib") ? 1 : 2;
        return 1;
    }
    if (is("-res")) {
        require_arguments(argc, i, 2, word);
        RiFormat(std::atoi(argv[i + 1]), std::atoi(argv[i + 2]), 1.0f);
        return 3;
    }
    if (is("-sync")) {
        require_arguments(argc, i, 1, word);
        sync_times = std::atoi(argv[i + 1]);
        return 2;
    }
    if (is("-v")) {
        verbose = 1;
        RiOption("runtime", "verbosity", &verbose_value, RI_NULL);
        return 1;
    }
    if (is("-nowait")) {
        wait_for_last_frame = 0;
        return 1;
    }
    if (is("-rd")) {
        require_arguments(argc, i, 1, word);
        RiRelativeDetail(static_cast<float>(std::atof(argv[i + 1])));
        return 2;
    }
    if (is("-color") || is("-nocolor")) {
        use_colors = is("-color") ? 1 : 0;
        return 1;
    }
    if (is("-bg") || is("-fg")) {
        require_arguments(argc, i, 3, word);
        read_colour(argv, i, is("-bg") ? bg_color : fg_color);
        return 4;
    }
    return apply_pipeline_option(argc, argv, i);
}

}  // namespace

void require_arguments(int argc, int i, int count, const char* option) {
    if (i + count < argc) return;
    std::fprintf(stderr, "tracery: %s needs %d argument%s\n", option, count, count == 1 ? "" : "s");
    std::exit(2);
}

[[noreturn]] void usage() {
    std::fputs(usage_text, stderr);
    std::fflush(stderr);
    std::exit(0);
}

int parse_options(int argc, char** argv) {
    int i = 1;
    while (i < argc) {
        // Each option's report (from -res or -rd, made outside any file)
        // is its own, not a repeat of the one before.
        forget_reported_line();
        int taken = apply_option(argc, argv, i);
        if (taken == 0) break;
        i += taken;
    }
    return i;
}

void read_startup_file() {
    const char* home = std::getenv("HOME");
    if (home == nullptr) return;
    std::string path = std::string(home) + "/.traceryrc";
    ParseRIB(path.c_str(), current_searchpath(), current_echo(), 0);
}

int read_named_file(const char* filename) {
    return ParseRIB(filename, current_searchpath(), current_echo(), filename ? 1 : 0);
}

// The outputs (window, pictures, PostScript) are chosen by the options,
// which are read after the start-up file: they are deferred over it.
int begin_run(int argc, char** argv) {
    RiBegin(RI_NULL);
    if (X11VectorPreviewer* outputs = previewer()) outputs->defer_outputs();
    read_startup_file();
    return parse_options(argc, argv);
}

void open_chosen_outputs() {
    if (X11VectorPreviewer* outputs = previewer()) outputs->decide_outputs();
}

int run_once(int argc, char** argv) {
    int first_file = begin_run(argc, argv);
    if (check_only) return check_files(argc, argv, first_file);
    open_chosen_outputs();
    if (first_file >= argc) {
        if (!background) read_named_file(nullptr);
    } else {
        for (int i = first_file; i < argc; ++i) read_named_file(argv[i]);
    }
    RiEnd();
    return 0;
}

int run_program(int argc, char** argv) {
    int status = 0;
    repeat_file = 1;
    while (repeat_file) {
        repeat_file = 0;
        status = run_once(argc, argv);
    }
    release_rib_tables();
    write_reports_not_shown();
    return status;
}
