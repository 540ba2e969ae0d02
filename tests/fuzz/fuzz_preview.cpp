// libFuzzer entry for the whole path of a preview: each input is read as one
// RIB file by a freshly begun interface, exactly as the program reads a file
// named on its command line (plain or gzip-compressed), and everything it
// draws goes to every output at once: the PostScript page, PNG, SVG and PDF
// pictures (all written to /dev/null) and, chosen by the input's length, the
// diced RIB or triangle dump (to standard output, which the fuzzer closes).
// No X display is opened (the window is the one output left out: opening a
// display per input would measure the X server); the sinks the window would
// have opened are added to the previewer directly. Inputs are taken up to
// 1 MB.
//
// The error handlers stay live: an input may install "print", "abort" or
// "ignore" through its ErrorHandler requests, as in the program. Those
// handlers end the program after a report that ends it; here they end it
// through error_exit, which this harness replaces by a function that notes
// the end and returns. The handler then returns as one that lets the
// program go on does, and reading goes on to the end of the input: every
// state reached that way is one the program reaches with ErrorHandler
// "ignore" and the same input, so nothing is found that the program cannot
// meet. Turning the exit into an exception or a long jump instead would cut
// through frames that own open files and buffers, and would report those
// leaks as findings. Only the harness's own exit path is intercepted; a real
// crash or abort still ends the run and is reported.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "driver/globals.h"
#include "preview/picture_sink.h"
#include "preview/postscript.h"
#include "preview/x11_previewer.h"
#include "ri/renderer.h"
#include "rib/objects.h"
#include "rib/requests.h"
#include "support/error.h"

namespace {

constexpr size_t MAX_INPUT = 1 << 20;

char null_file[] = "/dev/null";
int exits_intercepted = 0;

void note_exit(int) {
    ++exits_intercepted;
}

// The program's options, set as the command line would set them; the dump
// mode varies with the input so that every output is exercised.
void set_options(size_t size) {
    wait_for_last_frame = 0;
    x11_window_enabled = 0;
    dump_postscript = 0;  // the page is added below, without a window
    png_filename = svg_filename = pdf_filename = null_file;
    dump_diced_rib = static_cast<int>(size % 3);
    drawing_on = 1;
    // Objects that each instance the one before twice are cut off by the
    // run's budget; a small one keeps such inputs within the time limit.
    object_nested_instances_max = 2000;
    object_nested_bytes_max = 16 << 20;
}

// The outputs the window and the command line would give the previewer.
void add_outputs() {
    X11VectorPreviewer* p = previewer();
    if (p == nullptr) return;
    if (FILE* page = OpenPostFile(null_file, nullptr, nullptr)) {
        p->add_sink(std::make_unique<PostScriptSink>(page));
    }
    for (auto& sink : make_picture_sinks()) p->add_sink(std::move(sink));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    unsetenv("DISPLAY");
    error_exit = note_exit;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0 || size > MAX_INPUT) return 0;
    std::vector<char> input(data, data + size);
    error_exit = note_exit;
    reset_interface_state();
    reset_error_state();
    RiErrorHandler(RiErrorPrint);
    set_options(size);
    RiBegin(nullptr);
    add_outputs();
    FILE* stream = fmemopen(input.data(), input.size(), "r");
    if (stream != nullptr) {
        ParseRIB_stream(stream, "fuzz.rib", renderer ? renderer->include_path : nullptr,
                        renderer ? renderer->verbosity : 0);
        std::fclose(stream);
    }
    RiEnd();
    reset_interface_state();
    release_rib_tables();
    return 0;
}
