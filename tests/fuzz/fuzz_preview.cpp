// libFuzzer entry for the whole path of a preview: each input is read as one
// RIB file by a freshly begun interface, exactly as the program reads a file
// named on its command line, and everything it draws goes through every
// output at once: the window's drawing path (no X display is opened, as
// DISPLAY is unset), the PostScript sink (to /dev/null) and, chosen by the
// input's length, the diced RIB or triangle dump (to standard output, which
// the fuzzer closes). Inputs are taken up to 1 MB.
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
#include <vector>

#include "driver/globals.h"
#include "ri/renderer.h"
#include "rib/requests.h"
#include "support/error.h"

namespace {

constexpr size_t MAX_INPUT = 1 << 20;

char postscript_sink[] = "/dev/null";
int exits_intercepted = 0;

void note_exit(int) {
    ++exits_intercepted;
}

// The program's options, set as the command line would set them; the dump
// mode varies with the input so that every output is exercised.
void set_options(size_t size) {
    wait_for_last_frame = 0;
    dump_postscript = 1;
    postscript_filename = postscript_sink;
    dump_diced_rib = static_cast<int>(size % 3);
    drawing_on = 1;
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
