// The X11 window "Pencil Test": the display connection, the window, its
// off-screen pixmap with the two graphics contexts, and the final wait for a
// key or a mouse button. X11PixmapSink draws the picture's lines into it,
// leaving out those that cannot change a pixel.
#ifndef TRACERY_PREVIEW_X11_WINDOW_H
#define TRACERY_PREVIEW_X11_WINDOW_H

#include <X11/Xlib.h>

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "preview/line_sink.h"
#include "preview/segment_cull.h"

// The pixels the server's thin lines draw for every offset between the ends
// up to ShortLinePatterns::REACH pixels each way, found by drawing one line
// of each offset into a scratch pixmap of the given depth and reading it
// back. Unknown (known false) when the test cannot be made.
ShortLinePatterns probe_short_lines(Display* display, Drawable drawable, int depth);

// Whether the server draws thin lines of every slope, tens and more than a
// hundred pixels long, as walk_nearest_pixels walks them, found by drawing a
// set of them into a scratch pixmap of the given depth and reading it back.
bool probe_long_lines(Display* display, Drawable drawable, int depth);

// A pixel of the default colormap for an RGB colour (components 0..1);
// when the colour cannot be allocated, the screen's white or black pixel,
// whichever is nearer.
unsigned long alloc_color(Display* display, const float rgb[3]);

// On a TrueColor visual with eight bits a channel (nearly every screen today,
// the virtual ones included) the pixel of a colour is the top eight bits of
// each 16-bit component put in its channel, which is what the server's
// XAllocColor answers there. Returns false, leaving *pixel alone, for any
// other visual. Making the pixel here saves a round trip to the server per
// colour, and a scene may give a new colour to every object.
bool truecolor_pixel(const Visual* visual, const float rgb[3], unsigned long* pixel);

class X11Window {
  public:
    // Opens the display and maps a window of width x height in the colours
    // fg_color and bg_color. Returns null when the display cannot be opened,
    // after reporting "Could not open X11 display." (code 2, severity 3)
    // unless report_failure is false.
    static std::unique_ptr<X11Window> open(const char* display_name, int width, int height,
                                           bool report_failure = true);
    // Frees the pixmap, destroys the window and closes the display (a lost
    // connection is left alone).
    ~X11Window();
    X11Window(const X11Window&) = delete;
    X11Window& operator=(const X11Window&) = delete;

    // Fills the pixmap with the background colour.
    void clear();
    // Copies the pixmap into the window and flushes.
    void show();
    // Sets the colour of the lines that follow; false when its pixel is the
    // one already in use (nothing is sent then).
    bool set_foreground(const float rgb[3]);
    // Sets the width of the lines that follow (0: thin lines, the drawing's;
    // wider ones with round ends), after sending what was drawn before.
    void set_line_width(int width);
    // Lines and points for the pixmap are written in place into batches,
    // sent before anything else is done with the window: room_for gives
    // room for up to the given numbers of each (coordinates must fit in 16
    // bits), and written takes the ends of what was written there.
    struct Room {
        XSegment* lines;
        XPoint* points;
    };
    Room room_for(size_t lines, size_t points) {
        if (line_count_ + lines > pending_lines_.size() ||
            point_count_ + points > pending_points_.size()) {
            send_pending();
            if (lines > pending_lines_.size()) pending_lines_.resize(lines);
            if (points > pending_points_.size()) pending_points_.resize(points);
        }
        return {pending_lines_.data() + line_count_, pending_points_.data() + point_count_};
    }
    void written(const XSegment* lines_end, const XPoint* points_end) {
        line_count_ = size_t(lines_end - pending_lines_.data());
        point_count_ = size_t(points_end - pending_points_.data());
        if (line_count_ >= LINE_BATCH || point_count_ >= POINT_BATCH) send_pending();
    }

    // What ended the final wait.
    enum class WaitEnd { KEY, BUTTON, CLOSED };
    // Reads events until a key or button press, the window being closed, or
    // the connection being lost; redraws the window when it is uncovered.
    WaitEnd wait_for_key_or_button();

    Display* display = nullptr;
    int screen = 0;
    Window window = 0;
    Pixmap pixmap = 0;
    GC foreground_gc = nullptr;
    GC background_gc = nullptr;
    unsigned long foreground_pixel = 0, background_pixel = 0;
    int width = 0, height = 0;
    // What probe_short_lines found when the window opened.
    ShortLinePatterns short_lines;
    // What probe_long_lines finds, asked the first time it is needed: only
    // a scene with many long lines in one colour needs it.
    bool long_lines_drawn_nearest();

  private:
    X11Window() = default;
    void create_window();
    void wait_until_mapped();
    // Takes one queued event of the final wait; true when it ends the wait.
    bool handle_wait_event(WaitEnd* end);
    Atom wm_protocols_ = 0;
    Atom wm_delete_window_ = 0;
    // Pixels already allocated, by their 16-bit red, green and blue: a scene
    // that gives Color before every primitive would otherwise wait for the
    // server's answer to XAllocColor each time. Allocating a colour again
    // gives the pixel it gave before, so the cache changes no pixel.
    std::unordered_map<uint64_t, unsigned long> pixel_cache_;
    unsigned long cached_pixel(const float rgb[3]);
    unsigned long drawing_pixel_ = 0;  // the foreground GC's foreground
    enum class Probed { NOT_YET, NEAREST, OTHER };
    Probed long_lines_ = Probed::NOT_YET;
    // Lines and points drawn and not yet sent: one XDrawSegments and one
    // XDrawPoints call send them all, where a call for each would take
    // Xlib's lock and check its buffer for each. The server draws them
    // exactly as it draws them one by one.
    static constexpr size_t LINE_BATCH = 8192;    // 64 KiB of protocol
    static constexpr size_t POINT_BATCH = 16384;  // 64 KiB of protocol
    std::vector<XSegment> pending_lines_ = std::vector<XSegment>(LINE_BATCH);
    std::vector<XPoint> pending_points_ = std::vector<XPoint>(POINT_BATCH);
    size_t line_count_ = 0, point_count_ = 0;
    void send_pending();
};

// The sink that draws into the window's pixmap; the window is shown at each
// world end. What the lines would draw is sent as WindowCuller makes it
// (short lines as their points, nothing already drawn), unless the
// environment variable TRACERY_WINDOW_CULLING is "off": the pixels are the
// same either way, and the tests compare the two.
class X11PixmapSink final : public LineSink {
  public:
    explicit X11PixmapSink(X11Window& window);
    void world_begin(int width, int height) override;
    void segment(int x0, int y0, int x1, int y1) override;
    void segments(const RasterSegment* s, size_t count) override;
    void color(const float rgb[3]) override;
    bool box_drawn(int x0, int y0, int x1, int y1) override;
    bool may_know_drawn() const override { return true; }
    // The pixmap's pixels do not depend on which lines reach the culler:
    // a line left out in a box known drawn would only have drawn there.
    bool drawn_segments_skippable() const override { return culling_; }
    // Each pixel a line draws takes the foreground, whatever came before.
    bool order_free() const override { return true; }
    void world_end() override;
    // Lines from here on are width pixels wide (0: the thin lines of the
    // drawing). The culler knows only thin lines, so it stands aside while
    // lines are wide.
    void set_line_width(int width);
    // The culler never learns the pixels of long lines. Testing a long
    // line's pixels costs about what the server takes to draw it; it pays
    // where the drawer first leaves out whole faces known drawn (the
    // drawing of a mesh does), not where every line of a frame comes (a
    // redraw of kept geometry: twice as slow on mesh.rib with it).
    void leave_long_lines_unknown();

  private:
    bool fit_to_pixmap(int* x0, int* y0, int* x1, int* y1) const;
    void apply_color();
    X11Window& window_;
    bool culling_allowed_;  // not turned off in the environment
    bool culling_;          // allowed, and the lines are thin
    WindowCuller culler_;
    // The last colour given, not yet made the window's foreground: it is
    // applied when the next lines are drawn, so colours that nothing is drawn
    // in cost no pixel lookup and no GC change.
    float pending_color_[3] = {0, 0, 0};
    bool color_pending_ = false;
};

#endif  // TRACERY_PREVIEW_X11_WINDOW_H
