// The wireframe renderer: the one concrete renderer class of the program. It
// owns the outputs of the picture (the sinks of line_sink.h), the X11 window
// they are shown in, and the frame pacing of -sync.
#ifndef TRACERY_PREVIEW_X11_PREVIEWER_H
#define TRACERY_PREVIEW_X11_PREVIEWER_H

#include <memory>
#include <vector>

#include "preview/line_sink.h"
#include "preview/projection.h"
#include "preview/world_sink.h"
#include "ri/renderer.h"

class X11Window;

class X11VectorPreviewer : public PreviewRenderer {
  public:
    X11VectorPreviewer();
    // Waits for a key or button in the window (unless -nowait), closes the
    // window and ends the outputs (the PostScript trailer).
    ~X11VectorPreviewer() override;
    void worldbegin() override;
    void worldend() override;
    void framebegin(long frame) override;
    void frameend() override;
    void set_color(const float rgb[3]) override;

    // Opens the display, the window and its pixmap at the first world begin
    // (and the PostScript page under -ps); clears the pixmap at every one.
    // With -png, -svg or -pdf it opens the picture files instead of a display.
    // Under -dumprib or -dumptri a display that cannot be opened is a
    // warning, and the run goes on without a window.
    void Prepare_XWindow();

    // Draws the segment between two projected points (nothing unless both
    // are visible, each coordinate inside +-2^30) on every sink, the
    // coordinates truncated toward zero.
    void X11_draw_segment(float* a, float* b);
    // The same segment as X11_draw_segment, held back to reach the sinks in
    // one batch with the ones queued before it, at the latest at the next
    // send_queued_segments. Drawers of many segments queue them and send
    // them when done; the sinks see the same segments in the same order.
    void queue_segment(const float* a, const float* b) {
        queue_segment(raster_point(a), raster_point(b));
    }
    // The same, between two points made by raster_point.
    void queue_segment(const RasterPoint& a, const RasterPoint& b) {
        if (!a.drawn || !b.drawn || sinks_.empty()) return;
        queued_[queued_count_++] = {a.x, a.y, b.x, b.y};
        if (queued_count_ == SEGMENT_BATCH) send_queued_segments();
    }
    void send_queued_segments();
    // Hands segments to every sink at once (none may be queued).
    void send_segments(const RasterSegment* s, size_t count);

    // Whether every sink knows each pixel of the box drawn in the colour in
    // force (LineSink::box_drawn), so that segments between points in it
    // would change nothing any sink makes: a drawer may leave them out.
    // Never for an empty box or without sinks.
    bool box_drawn(const RasterBox& box);
    // Whether segments known drawn may be left out of a batch anywhere,
    // with no word to the sinks: there are sinks, and each one says
    // LineSink::drawn_segments_skippable. A drawer that would do work only
    // to ask box_drawn about part of its segments skips that work otherwise.
    bool drawn_segments_skippable() const;
    // Whether every sink says LineSink::order_free (and there are sinks).
    bool drawing_order_free() const;

    // Whether count lattices whose raster points all lie in the box may be
    // left out before they are even made: lattices only reach sinks (none is
    // dumped or kept) and every sink knows the box drawn. When so, the sinks
    // are told count objects ended, as for lattices drawn.
    bool lattices_known_drawn(const RasterBox& box, size_t count);
    // Whether lattices_known_drawn may ever say yes: lattices reach sinks
    // alone, each of which may know a box drawn.
    bool lattices_only_drawn() const;

    // Draws (or, under -dumprib / -dumptri, prints) the lattice of grid rows
    // 0..nv and columns 0..nu; refuses nu or nv outside 0..GRID_CELLS_MAX.
    void draw_object(int nu, int nv);

    // Whether any output (sink) takes the segments drawn, or the
    // interactive window keeps them (preview/world_sink.h).
    bool has_outputs() const { return !sinks_.empty() || keeping_geometry(); }

    // The start-up file is read before the command-line options, so while
    // it is read the outputs are not known yet: picture files mean no
    // display at all, and -fg, -bg, -res and -ps shape the window. The
    // driver defers the outputs over it: a world block then opens none (it
    // draws into nothing, and the display is not touched), and
    // decide_outputs, called once the options are read, lets the next world
    // begin open them, or opens them at once when a world block is open.
    void defer_outputs() { outputs_deferred_ = true; }
    void decide_outputs();
    bool outputs_deferred() const { return outputs_deferred_; }

    // Adds an output for every later segment. The sink is told the colour of
    // the last RiColor at once, and world_begin when a world block is open.
    void add_sink(std::unique_ptr<LineSink> sink);

    // The colour lines are drawn in now: the last RiColor's, else fg_color.
    const float* drawing_color() const;

    void* display;  // the X11 Display*, null until a window is opened
    // The X display to open (null: the DISPLAY environment variable). Named
    // apart from the option record's display_name, the output file name.
    const char* x_display_name;

  private:
    static constexpr size_t SEGMENT_BATCH = 4096;
    RasterSegment queued_[SEGMENT_BATCH];
    size_t queued_count_ = 0;

    bool lattice_box_drawn(int nu, int nv);
    // Tells every sink that count lattices ended (drawn or left out).
    void end_objects(size_t count);
    void open_postscript();
    void prepare_pictures();
    void go_on_without_window();
    void final_wait();

    std::shared_ptr<X11Window> window_;
    std::vector<std::unique_ptr<LineSink>> sinks_;
    bool outputs_deferred_ = false;
    bool postscript_opened_ = false;  // tried once per run, failed or not
    bool pictures_added_ = false;
    bool window_given_up_ = false;  // no display, and a dump goes on without it
    bool in_world_ = false;
    int world_width_ = 0, world_height_ = 0;
    bool color_given_ = false;
    float color_[3] = {0, 0, 0};
};

// The renderer made by RiBegin as the previewer it is; null when there is none.
X11VectorPreviewer* previewer();

// The interactive mode's hold on the window (null otherwise): the window
// outlives each reading of the files, so a world block takes it from here
// (opened here at the first one) instead of opening one of its own, and the
// run ends without the final wait. A reading with draw false (the files read
// again) opens no window and paces no frame: it only keeps geometry.
struct WindowHold {
    std::shared_ptr<X11Window> window;
    bool draw = true;
};
extern WindowHold* window_hold;

// Whether world blocks open the X11 window (and with it the PostScript page).
// 1 in the program; the interface's state tests clear it so that they run
// without a display and never wait in one.
extern int x11_window_enabled;

// Lattice density of the tessellators: trunc(4 * relative detail) in 1..32.
extern int detail_level;

#endif  // TRACERY_PREVIEW_X11_PREVIEWER_H
