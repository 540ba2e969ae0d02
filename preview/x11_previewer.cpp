// The wireframe renderer X11VectorPreviewer: its outputs (the sinks) and the
// forwarding of world, colour and segment events to them, the window opened
// at the first world begin, the detail level of the tessellators, the frame
// pacing of -sync, the frame-end release of the frame's allocations, and the
// final wait.
#include "preview/x11_previewer.h"

#include <chrono>
#include <climits>
#include <cmath>
#include <thread>

#include "driver/globals.h"
#include "preview/picture_sink.h"
#include "preview/world_sink.h"
#include "preview/postscript.h"
#include "preview/x11_window.h"
#include "ri/attributes.h"
#include "rib/requests.h"
#include "support/error.h"
#include "support/memory.h"

int detail_level = 1;
int x11_window_enabled = 1;
WindowHold* window_hold = nullptr;

namespace {

constexpr int MIN_DETAIL = 1;
constexpr int MAX_DETAIL = 32;

// trunc(4 * relative detail) held to 1..32 (NaN gives 1).
int detail_for(float relative_detail) {
    double d = 4.0 * static_cast<double>(relative_detail);
    if (!(d >= MIN_DETAIL)) return MIN_DETAIL;
    if (d > MAX_DETAIL) return MAX_DETAIL;
    return static_cast<int>(d);
}

// ---- Frame pacing ----

// One tick of the pacing loop: the frame waits for its slot in sleeps of
// about a hundredth of a second.
constexpr auto PACING_TICK = std::chrono::milliseconds(10);

// Seconds on a clock that never jumps (the wall clock may be set back).
double current_time() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

// The schedule lives as long as the process: it is never reset, so after a
// long stall every frame still late is dropped until the schedule catches up.
double frame_period = 0.0;
double next_frame_time = 0.0;

// Waits for the next slot of a schedule of sync_times frames a second and
// drops (drawing_on = 0) a frame that begins more than half a period late.
void pace_frame() {
    if (frame_period == 0.0) {
        next_frame_time = current_time();
        frame_period = 1.0 / sync_times;
    }
    next_frame_time += frame_period;
    double now = current_time();
    while (now < next_frame_time) {
        std::this_thread::sleep_for(PACING_TICK);
        now = current_time();
    }
    drawing_on = next_frame_time + frame_period / 2 < now ? 0 : 1;
}

// The last renderer found to be a previewer: previewer() is asked for at
// every primitive, and a cast each time was a measurable share of drawing
// small patches. Only a previewer is remembered, and it is forgotten as it
// is destroyed, so no other renderer made later at its address is taken for
// it.
Renderer* known_renderer = nullptr;
X11VectorPreviewer* known_previewer = nullptr;

}  // namespace

X11VectorPreviewer* previewer() {
    if (renderer != nullptr && renderer == known_renderer) return known_previewer;
    X11VectorPreviewer* p = dynamic_cast<X11VectorPreviewer*>(renderer);
    if (p != nullptr) {
        known_renderer = renderer;
        known_previewer = p;
    }
    return p;
}

X11VectorPreviewer::X11VectorPreviewer() : display(nullptr), x_display_name(nullptr) {}

X11VectorPreviewer::~X11VectorPreviewer() {
    if (window_) final_wait();
    // The PostScript trailer is written when its sink goes.
    sinks_.clear();
    window_.reset();
    display = nullptr;
    if (known_previewer == this) {
        known_renderer = nullptr;
        known_previewer = nullptr;
    }
}

// In the interactive mode the window waits after the run, in the hands of
// the interactive view.
void X11VectorPreviewer::final_wait() {
    if (!wait_for_last_frame || window_hold != nullptr) return;
    if (window_->wait_for_key_or_button() == X11Window::WaitEnd::BUTTON) repeat_file = 1;
}

void X11VectorPreviewer::add_sink(std::unique_ptr<LineSink> sink) {
    if (color_given_) sink->color(color_);
    if (in_world_) sink->world_begin(world_width_, world_height_);
    sinks_.push_back(std::move(sink));
}

// The window is made once, at the size of the first world; the PostScript
// page is opened right after it, once per run, so that every frame goes onto
// the one page.
void X11VectorPreviewer::Prepare_XWindow() {
    if (outputs_deferred_) return;
    if (pictures_wanted()) {
        prepare_pictures();
        return;
    }
    if (window_ || !x11_window_enabled || window_given_up_) return;
    // The dumps print geometry and need no window: without a display they
    // go on, which departs from ending the program at a display that cannot
    // be opened. Without a dump the display stays required.
    const bool dumping = dump_diced_rib != 0;
    if (window_hold == nullptr) {
        window_ = X11Window::open(x_display_name, xres, yres, !dumping);
    } else if (window_hold->draw) {
        // The interactive window is kept across readings of the files.
        if (!window_hold->window)
            window_hold->window = X11Window::open(x_display_name, xres, yres, !dumping);
        window_ = window_hold->window;
    } else {
        return;  // a reading again only refills the store; the window draws it
    }
    if (!window_) {
        if (dumping) go_on_without_window();
        return;
    }
    display = window_->display;
    add_sink(std::make_unique<X11PixmapSink>(*window_));
    if (dump_postscript) open_postscript();
}

// Said once; the dumps and the PostScript page are written as with a window,
// and no later world tries the display again.
void X11VectorPreviewer::go_on_without_window() {
    window_given_up_ = true;
    QuillError(RIE_SYSTEM, RIE_WARNING,
               "Could not open X11 display; the dump goes on without a window.");
    if (dump_postscript) open_postscript();
}

void X11VectorPreviewer::decide_outputs() {
    outputs_deferred_ = false;
    if (in_world_) Prepare_XWindow();
}

// With picture files asked for, the pictures (and the PostScript page) are
// the outputs and no display is opened, so there is no window to pace or to
// wait in. The sinks are made once per run, at the first world begin.
void X11VectorPreviewer::prepare_pictures() {
    if (pictures_added_) return;
    pictures_added_ = true;
    for (auto& sink : make_picture_sinks()) add_sink(std::move(sink));
    if (dump_postscript) open_postscript();
}

// A file that cannot be created has been reported; the run goes on without
// PostScript.
void X11VectorPreviewer::open_postscript() {
    if (postscript_opened_) return;
    postscript_opened_ = true;
    FILE* f = OpenPostFile(postscript_filename, nullptr, nullptr);
    if (f) add_sink(std::make_unique<PostScriptSink>(f));
}

void X11VectorPreviewer::worldbegin() {
    PreviewRenderer::worldbegin();
    Prepare_XWindow();
    keep_world_begin();
    detail_level = detail_for(relative_detail);
    in_world_ = true;
    world_width_ = xres;
    world_height_ = yres;
    for (auto& sink : sinks_) sink->world_begin(xres, yres);
}

void X11VectorPreviewer::worldend() {
    keep_world_end();
    for (auto& sink : sinks_) sink->world_end();
    in_world_ = false;
    PreviewRenderer::worldend();
}

void X11VectorPreviewer::framebegin(long frame) {
    PreviewRenderer::framebegin(frame);
    const bool reading_again = window_hold != nullptr && !window_hold->draw;
    if (sync_times > 0 && !pictures_wanted() && !reading_again) pace_frame();
}

void X11VectorPreviewer::frameend() {
    PreviewRenderer::frameend();
    free_myallocs(2);
    GState::release_memory(2);
}

// The colour stays in force until the next RiColor, across attribute blocks
// and frames. A colour given before the window exists is kept and applied
// when the window (or any other sink) arrives.
void X11VectorPreviewer::set_color(const float rgb[3]) {
    for (int c = 0; c < 3; ++c) color_[c] = rgb[c];
    color_given_ = true;
    for (auto& sink : sinks_) sink->color(color_);
}

const float* X11VectorPreviewer::drawing_color() const {
    return color_given_ ? color_ : fg_color;
}

// A segment is drawn whole or not at all: both ends must be visible. Raster
// coordinates are truncated toward zero. Without any sink (no world block has
// opened the window yet) nothing is drawn.
void X11VectorPreviewer::X11_draw_segment(float* a, float* b) {
    queue_segment(a, b);
    send_queued_segments();
}

void X11VectorPreviewer::send_queued_segments() {
    size_t count = queued_count_;
    queued_count_ = 0;
    send_segments(queued_, count);
}

bool X11VectorPreviewer::box_drawn(const RasterBox& box) {
    if (box.empty() || sinks_.empty()) return false;
    for (auto& sink : sinks_) {
        if (!sink->box_drawn(box.x0, box.y0, box.x1, box.y1)) return false;
    }
    return true;
}

bool X11VectorPreviewer::drawn_segments_skippable() const {
    if (sinks_.empty()) return false;
    for (const auto& sink : sinks_) {
        if (!sink->drawn_segments_skippable()) return false;
    }
    return true;
}

bool X11VectorPreviewer::drawing_order_free() const {
    if (sinks_.empty()) return false;
    for (const auto& sink : sinks_) {
        if (!sink->order_free()) return false;
    }
    return true;
}

void X11VectorPreviewer::send_segments(const RasterSegment* s, size_t count) {
    if (count == 0) return;
    for (auto& sink : sinks_) sink->segments(s, count);
}
