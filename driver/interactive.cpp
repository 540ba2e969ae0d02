// The interactive session: the store of kept frames, the window held across
// readings, the free camera and the watch on the files read; the loop that
// hands the window to the interactive view and reads everything again when
// it asks.
#include "driver/interactive.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <limits>

#include "driver/command_line.h"
#include "preview/frame_store.h"
#include "preview/interactive_view.h"
#include "preview/x11_previewer.h"
#include "rib/rib_files.h"
#include "support/error.h"
#include "support/file_watch.h"

namespace {

// Bytes of geometry kept over all frames before the oldest give theirs up
// (the environment variable TRACERY_KEEP_KB sets another number of
// kilobytes). At 4 to 12 bytes a segment this keeps tens of millions.
constexpr size_t DEFAULT_KEEP_BYTES = size_t(512) << 20;

size_t keep_budget() {
    const char* text = std::getenv("TRACERY_KEEP_KB");
    if (text == nullptr || *text == '\0') return DEFAULT_KEEP_BYTES;
    const long long kb = std::atoll(text);
    return kb > 0 ? size_t(kb) << 10 : DEFAULT_KEEP_BYTES;
}

struct Session {
    FrameStore store{keep_budget()};
    WindowHold hold;
    ViewCamera camera;
    FileWatch watch;
};

// Made by the -i option and kept to the end of the process.
Session* session = nullptr;
// How the program ended after a report that ends it, before -i.
void (*exit_before)(int status) = nullptr;

// Once the window is open it must stay for the user to see what could be
// read and to mend the file: a severe report then no longer ends the
// program. Before it opens (a display that cannot be opened, a fault before
// the first world) the program ends as it always does.
void end_unless_window_open(int status) {
    if (session == nullptr || !session->hold.window) exit_before(status);
}

// Reads every file again without showing the frames; with quiet the reports
// (already printed by the reading that made the frames) are not printed.
void read_again(int argc, char** argv, bool quiet) {
    session->hold.draw = false;
    std::fflush(stderr);
    const int saved = quiet ? dup(STDERR_FILENO) : -1;
    if (saved >= 0) {
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (null >= 0) {
            dup2(null, STDERR_FILENO);
            close(null);
        }
    }
    clear_opened_rib_files();
    run_once(argc, argv);
    session->store.end_reading();
    if (saved >= 0) {
        std::fflush(stderr);
        dup2(saved, STDERR_FILENO);
        close(saved);
    }
}

}  // namespace

void begin_interactive_mode() {
    if (session != nullptr) return;
    session = new Session();
    kept_frames = &session->store;
    window_hold = &session->hold;
    exit_before = error_exit;
    error_exit = end_unless_window_open;
}

bool interactive_mode() {
    return session != nullptr;
}

int run_interactive(int argc, char** argv) {
    Session& s = *session;
    s.store.end_reading();
    // Standard input cannot be read again: there is then nothing to watch,
    // and r shows the frames already kept.
    const bool files_named = !standard_input_read();
    size_t frame = std::numeric_limits<size_t>::max();
    if (s.hold.window) {
        if (files_named) s.watch.watch(opened_rib_files());
        InteractiveView view(*s.hold.window, s.store, s.camera, files_named ? &s.watch : nullptr);
        for (;;) {
            const ViewEnd end = view.run(&frame);
            if (end == ViewEnd::QUIT) break;
            if (end == ViewEnd::REFILL) {
                s.store.refill(frame);
                read_again(argc, argv, true);
                // The files changed under it: everything is read again.
                if (frame >= s.store.frame_count() || !s.store.frame(frame).dropped) continue;
            }
            if (files_named) {
                s.store.clear();
                read_again(argc, argv, false);
                s.watch.watch(opened_rib_files());
            }
        }
    }
    kept_frames = nullptr;
    window_hold = nullptr;
    error_exit = exit_before;
    delete session;
    session = nullptr;
    return 0;
}
