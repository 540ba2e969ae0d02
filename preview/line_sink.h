// The drawing seam: every line the previewer draws reaches its outputs (the
// X11 pixmap, the PostScript page, picture files) through this interface.
// Tessellators and polygon drawers never see a sink: they hand projected
// points to X11VectorPreviewer::X11_draw_segment and lattices to draw_object,
// which forward each visible segment, in raster pixels, to every sink.
//
// What the code on either side of the seam can rely on:
// - Drawing: fill grid[j][i] (rows 0..nv, columns 0..nu, object space) and
//   call previewer()->draw_object(nu, nv), or project points with toscreen
//   and call previewer()->X11_draw_segment(a, b) for single segments.
//   A drawer of many segments projects its points together through one
//   ScreenProjection, queues the segments with queue_segment and calls
//   send_queued_segments before it returns, so that no other sink event
//   comes between. draw_object ends each lattice with object_end()
//   ("stroke" on the PostScript page); segments drawn straight through
//   X11_draw_segment are stroked with the next object or the trailer. A
//   lattice above GRID_CELLS_MAX cells either way is refused with a report.
//   A lattice whose box of raster points every sink answers box_drawn for
//   reaches the sinks as object_end alone: a sink answers true only when
//   the lines would change nothing it makes. Segments of a batch whose box
//   every sink knows drawn may be left out alone, without object_end, only
//   when every sink says drawn_segments_skippable.
// - Dumps: under -dumprib / -dumptri draw_object prints the lattice instead
//   of drawing it; polygon-like faces are printed with dump_polygon_fan or
//   print_dump_polygon (preview/dump.h), whose text is the standard stream
//   text of the floats. Dumps need no display.
// - Sinks: X11VectorPreviewer::add_sink(std::make_unique<MySink>(...)) adds
//   an output; it is told the colour of the last RiColor at once, and
//   world_begin at once when added inside a world block. The previewer owns
//   its sinks and destroys them at the end of the run, after the final wait
//   and before the display is closed: a file sink writes its trailer and
//   closes its file in its destructor. Segments reach each sink in the
//   order they are drawn, in batches (segments), each batch reaching the
//   sinks in the order they were added (the window first, then the
//   PostScript page).
// - No display: the X11 sink exists only while the window is open, and the
//   PostScript page is opened right after the window; before that (or when
//   the display cannot be opened) a segment reaches only the sinks added by
//   other code, so drawing outside every world block never touches X11.
// - Coordinates are ints truncated toward zero and may lie far outside the
//   picture (up to about 2^30 either way): a sink clips for itself.
// - world_begin comes at every RiWorldBegin with the resolution of that
//   world (a later frame may have another one); world_end at RiWorldEnd.
#ifndef TRACERY_PREVIEW_LINE_SINK_H
#define TRACERY_PREVIEW_LINE_SINK_H

#include <cstddef>

// One segment between two raster points, as handed to LineSink::segments.
struct RasterSegment {
    int x0, y0, x1, y1;
};

class LineSink {
  public:
    virtual ~LineSink() = default;
    // A world block begins: a picture of width x height raster pixels,
    // cleared to the background colour.
    virtual void world_begin(int /*width*/, int /*height*/) {}
    // One segment between two raster points (x right, y down), the
    // coordinates already truncated toward zero.
    virtual void segment(int x0, int y0, int x1, int y1) = 0;
    // Segments in order, as many calls to segment: the drawers of large
    // objects hand them over in batches, and a sink may take a batch faster.
    virtual void segments(const RasterSegment* s, size_t count) {
        for (size_t k = 0; k < count; ++k) segment(s[k].x0, s[k].y0, s[k].x1, s[k].y1);
    }
    // Whether every pixel of the box from (x0, y0) to (x1, y1), ends
    // included, that lies in the picture is known drawn in the current
    // colour, so that lines with both ends in the box would change nothing.
    // A sink that cannot tell answers false.
    virtual bool box_drawn(int /*x0*/, int /*y0*/, int /*x1*/, int /*y1*/) { return false; }
    // Whether box_drawn may ever answer true: a drawer that would do work
    // only to ask it skips that work when some sink never can.
    virtual bool may_know_drawn() const { return false; }
    // Whether segments it knows drawn (box_drawn) may be left out of the
    // middle of a batch with no word to it: it makes the same whether given
    // them or not. A sink that counts or remembers the segments it is given
    // in a way that shapes what it makes (a picture ends its strokes after
    // so many lines) says no.
    virtual bool drawn_segments_skippable() const { return false; }
    // Whether what it makes of the segments of one colour is the same in
    // whatever order they come, so that a drawer may hand them over in an
    // order that finds more of them known drawn. A picture that blends
    // lines, or a page that lists them, says no.
    virtual bool order_free() const { return false; }
    // One grid object has been drawn (the PostScript page strokes here).
    virtual void object_end() {}
    // The drawing colour changes (RiColor while colours are in use).
    virtual void color(const float /*rgb*/[3]) {}
    // The world block ends: show or write the picture.
    virtual void world_end() {}
};

#endif  // TRACERY_PREVIEW_LINE_SINK_H
