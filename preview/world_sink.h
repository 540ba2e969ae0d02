// The world seam: in the interactive mode (-i) every primitive drawn inside a
// world block is also kept in world space, in the FrameStore kept_frames
// (preview/frame_store.h), so that the window can draw it again through
// another camera. It sits where the dumps sit, beside the drawing: the
// drawers hand the points of their one tessellation both to the projection
// (line_sink.h) and, through the functions below, to the store. There is no
// second drawing path: the kept points, projected through the world block's
// camera, give back the very segments the drawing gave.
//
// What the code on either side of the seam can rely on:
// - Drawers: before projecting its object-space points (the projection may
//   overwrite them in place), a drawer calls the keep function that matches
//   what it draws: keep_lattice for the grid of draw_object, keep_outline and
//   KeptLoops for polygon outlines (each loop closed), KeptPolylines for
//   curves, keep_edges for edge lists, keep_markers for points drawn as
//   crosses. Each call (or object) keeps one primitive. Keeping costs nothing
//   but a test when no store is installed or no world block is being kept.
// - Segments: a kept primitive gives the segments of its drawing in the same
//   order: a lattice rows then columns cell by cell, as draw_object; a loop
//   of n points the n segments (k, k + 1) and (n - 1, 0), one point giving
//   one segment to itself; a polyline its n - 1 segments, and the closing one
//   when it is closed; an edge list its pairs in order; a marker the two arms
//   of its cross. A segment is drawn only when both its ends are.
// - Points: carried from object to world space by the current transformation
//   at the sample time, with the arithmetic of the projection (transform
//   point by point matrix), so that world then camera gives the projection's
//   camera-space point bit for bit.
// - Provenance: each primitive keeps the drawing colour in force (the last
//   RiColor, else the foreground colour) and the request being carried out,
//   with the requests that read its archives (rib/request_place.h).
// - World blocks: the previewer calls keep_world_begin at every world begin,
//   after the camera and screen mapping are derived, and keep_world_end at
//   every world end. Under the dump options nothing is drawn and nothing is
//   kept, nor while the outputs are deferred (the start-up file).
// - Work: X11VectorPreviewer::has_outputs is true while geometry is kept,
//   so that drawers that skip their work when nothing takes their lines
//   still hand it to the store (a reading again opens no window).
#ifndef TRACERY_PREVIEW_WORLD_SINK_H
#define TRACERY_PREVIEW_WORLD_SINK_H

#include <cstddef>
#include <cstdint>

// Whether primitives drawn now are kept.
bool keeping_geometry();

void keep_world_begin();
void keep_world_end();

// The lattice of grid rows 0..nv, columns 0..nu (object space).
void keep_lattice(int nu, int nv);
// The closed outline of the n points P (x, y, z each).
void keep_outline(const float* P, int n);
// count points P joined by npairs segments between the point indices
// pairs[2k] and pairs[2k + 1].
void keep_edges(const float* P, size_t count, const uint32_t* pairs, size_t npairs);
// count points drawn as crosses.
void keep_markers(const float* P, size_t count);

// The closed outlines of one request's polygons, by index into its shared
// points, or with their own points.
class KeptLoops {
  public:
    // shared: the number of points of P that loops index (0 when each loop
    // brings its points).
    KeptLoops(const float* P, size_t shared);
    ~KeptLoops();
    KeptLoops(const KeptLoops&) = delete;
    KeptLoops& operator=(const KeptLoops&) = delete;
    // The loop through P[verts[0]], ..., P[verts[n - 1]].
    void loop(const int* verts, int n);
    // Whether loops are kept (the interactive mode, memory allowing).
    bool on() const { return on_; }

  private:
    const float* P_;
    bool shared_;
    bool on_;
};

// The polylines of one curves request, their points given one by one.
class KeptPolylines {
  public:
    KeptPolylines();
    ~KeptPolylines();
    KeptPolylines(const KeptPolylines&) = delete;
    KeptPolylines& operator=(const KeptPolylines&) = delete;
    void point(const float p[3]);
    // Ends the polyline of the points since the last end; closed adds the
    // segment back to its first point.
    void end(bool closed);

  private:
    bool on_;
    size_t first_ = 0;
    // The current transformation at the sample time (null: the identity).
    float matrix_[4][4];
    const float (*to_world_)[4] = nullptr;
};

#endif  // TRACERY_PREVIEW_WORLD_SINK_H
