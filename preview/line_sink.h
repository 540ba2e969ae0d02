// The drawing seam: every line the previewer draws reaches its outputs (the
// X11 pixmap, the PostScript page, picture files) through this interface.
// Tessellators and polygon drawers never see a sink: they hand projected
// points to X11VectorPreviewer::X11_draw_segment and lattices to draw_object,
// which forward each visible segment, in raster pixels, to every sink.
#ifndef TRACERY_PREVIEW_LINE_SINK_H
#define TRACERY_PREVIEW_LINE_SINK_H

class LineSink {
  public:
    virtual ~LineSink() = default;
    // A world block begins: a picture of width x height raster pixels,
    // cleared to the background colour.
    virtual void world_begin(int /*width*/, int /*height*/) {}
    // One segment between two raster points (x right, y down), the
    // coordinates already truncated toward zero.
    virtual void segment(int x0, int y0, int x1, int y1) = 0;
    // One grid object has been drawn (the PostScript page strokes here).
    virtual void object_end() {}
    // The drawing colour changes (RiColor while colours are in use).
    virtual void color(const float /*rgb*/[3]) {}
    // The world block ends: show or write the picture.
    virtual void world_end() {}
};

#endif  // TRACERY_PREVIEW_LINE_SINK_H
