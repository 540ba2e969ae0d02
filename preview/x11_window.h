// The X11 window "Pencil Test": the display connection, the window, its
// off-screen pixmap with the two graphics contexts, and the final wait for a
// key or a mouse button. X11PixmapSink draws the picture's lines into it.
#ifndef TRACERY_PREVIEW_X11_WINDOW_H
#define TRACERY_PREVIEW_X11_WINDOW_H

#include <X11/Xlib.h>

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "preview/line_sink.h"

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
    void set_foreground(const float rgb[3]);
    // Draws a line into the pixmap; the ends must fit in 16 bits. Lines are
    // sent in batches, before anything else is done with the window.
    void draw_line(int x0, int y0, int x1, int y1) {
        XSegment* line = line_space(1);
        *line = {short(x0), short(y0), short(x1), short(y1)};
        lines_written(line + 1);
    }
    // Room for up to count lines to be written in place of draw_line calls;
    // lines_written then takes the end of the lines written.
    XSegment* line_space(size_t count) {
        if (pending_count_ + count > pending_lines_.size()) {
            send_lines();
            if (count > pending_lines_.size()) pending_lines_.resize(count);
        }
        return pending_lines_.data() + pending_count_;
    }
    void lines_written(const XSegment* end) {
        pending_count_ = size_t(end - pending_lines_.data());
        if (pending_count_ >= LINE_BATCH) send_lines();
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
    // Lines drawn and not yet sent: one XDrawSegments call sends them all,
    // where a call per line would take Xlib's lock and check its buffer for
    // each. The server draws them exactly as it draws the lines one by one.
    static constexpr size_t LINE_BATCH = 8192;  // 64 KiB of protocol
    std::vector<XSegment> pending_lines_ = std::vector<XSegment>(LINE_BATCH);
    size_t pending_count_ = 0;
    void send_lines();
};

// The sink that draws into the window's pixmap; the window is shown at each
// world end.
class X11PixmapSink final : public LineSink {
  public:
    explicit X11PixmapSink(X11Window& window) : window_(window) {}
    void world_begin(int width, int height) override;
    void segment(int x0, int y0, int x1, int y1) override;
    void segments(const RasterSegment* s, size_t count) override;
    void color(const float rgb[3]) override;
    void world_end() override;

  private:
    bool fit_to_pixmap(int* x0, int* y0, int* x1, int* y1) const;
    X11Window& window_;
};

#endif  // TRACERY_PREVIEW_X11_WINDOW_H
