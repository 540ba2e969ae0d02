// libFuzzer entry for the whole path of a preview: each input is read as one
// RIB file by a freshly begun interface, exactly as the program reads a file
// named on its command line (plain or gzip-compressed), and everything it
// draws goes to every output at once: the PostScript page, PNG, SVG and PDF
// pictures (all written to /dev/null) and, chosen by the input's length, the
// diced RIB or triangle dump (to standard output, which the fuzzer closes).
// No X display is opened (the window is the one output left out: opening a
// display per input would measure the X server); the sinks the window would
// have opened are added to the previewer directly. Every frame is also kept,
// as the interactive window (-i) keeps it, and drawn again through its own
// camera and through a free camera turned, moved in and cut at the eye
// plane, and a click is looked up in it. One input length in four instead
// draws to the pictures alone, nothing kept or dumped: the outputs under
// which lattices may be left out before they are made. Inputs are taken up
// to 1 MB.
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
#include "preview/frame_store.h"
#include "preview/kept_drawing.h"
#include "preview/picture_sink.h"
#include "preview/view_camera.h"
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
void set_options(size_t size, bool pictures_alone) {
    wait_for_last_frame = 0;
    x11_window_enabled = 0;
    dump_postscript = 0;  // the page is added below, without a window
    png_filename = svg_filename = pdf_filename = null_file;
    dump_diced_rib = pictures_alone ? 0 : static_cast<int>(size % 3);
    drawing_on = 1;
    // Objects that each instance the one before twice are cut off by the
    // run's budget; a small one keeps such inputs within the time limit.
    object_nested_instances_max = 2000;
    object_nested_bytes_max = 16 << 20;
}

// The outputs the window and the command line would give the previewer.
void add_outputs(bool pictures_alone) {
    X11VectorPreviewer* p = previewer();
    if (p == nullptr) return;
    FILE* page = pictures_alone ? nullptr : OpenPostFile(null_file, nullptr, nullptr);
    if (page != nullptr) p->add_sink(std::make_unique<PostScriptSink>(page));
    for (auto& sink : make_picture_sinks()) p->add_sink(std::move(sink));
}

// Lines drawn again go nowhere.
class NullSink : public LineSink {
  public:
    void segment(int, int, int, int) override {}
};

// What the interactive window does with the kept frames, without a window.
void draw_kept_frames(const FrameStore& store) {
    NullSink sink;
    for (size_t k = 0; k < store.frame_count(); ++k) {
        const KeptFrame& frame = store.frame(k);
        if (frame.dropped) continue;
        draw_kept_frame(frame, scene_projection(frame.view), sink);
        float min[3], max[3];
        if (!frame.bound(min, max)) continue;
        const WorldPoint pivot = {(min[0] + max[0]) / 2.0, (min[1] + max[1]) / 2.0,
                                  (min[2] + max[2]) / 2.0};
        ViewCamera camera;
        camera.orbit(ViewCamera(), frame.view, pivot, 70.0, -30.0);
        camera.zoom(frame.view, pivot, 12);
        camera.pan(frame.view, pivot, 5.0, -3.0);
        draw_kept_frame(frame, camera.projection(frame.view), sink);
        const uint32_t origin = pick_kept_origin(frame, camera.projection(frame.view),
                                                 frame.view.xres / 2, frame.view.yres / 2, 4.0);
        origin_text(store, frame, origin);
        camera.frame_all(frame.view, {min[0], min[1], min[2]}, {max[0], max[1], max[2]});
        camera.rib(frame.view);
    }
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
    const bool pictures_alone = size % 4 == 3;
    set_options(size, pictures_alone);
    FrameStore store(size_t(64) << 20);
    kept_frames = pictures_alone ? nullptr : &store;
    RiBegin(nullptr);
    add_outputs(pictures_alone);
    FILE* stream = fmemopen(input.data(), input.size(), "r");
    if (stream != nullptr) {
        ParseRIB_stream(stream, "fuzz.rib", renderer ? renderer->include_path : nullptr,
                        renderer ? renderer->verbosity : 0);
        std::fclose(stream);
    }
    RiEnd();
    store.end_reading();
    kept_frames = nullptr;
    draw_kept_frames(store);
    reset_interface_state();
    release_rib_tables();
    return 0;
}
