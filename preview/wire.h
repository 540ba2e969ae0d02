// Line drawing shared by the primitives that are not grid objects
// (subdivision meshes, curves, points, blobby bounds): object-space points
// projected once each, then joined by segments, and world-space polygons
// printed under the dump options.
#ifndef TRACERY_PREVIEW_WIRE_H
#define TRACERY_PREVIEW_WIRE_H

#include <cstdint>
#include <vector>

// Projects count object-space points (x, y, z each) in place with toscreen.
void project_points(float* points, long count);
// Draws the segment between two projected points.
void draw_projected_segment(float* a, float* b);
// Draws the segment between projected points a and b of each pair.
void draw_projected_edges(const float* points, const std::vector<uint64_t>& edges);
// Edge key of two point indices, the same whichever way round they come.
uint64_t edge_key(uint32_t a, uint32_t b);
// Whether the dump options print surfaces instead of drawing them.
bool dumping_surfaces();
// Prints the object-space polygon of count points as world-space RIB: one
// polygon under -dumprib, a fan of triangles under -dumptri.
void dump_object_polygon(const float* points, int count);

#endif  // TRACERY_PREVIEW_WIRE_H
