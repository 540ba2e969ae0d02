// Polygon outlines: drawn vertex to vertex from the "P" positions, without
// the grid; under -dumprib / -dumptri simple and general polygons are
// printed as triangle fans instead.
#ifndef TRACERY_PREVIEW_POLYGONS_H
#define TRACERY_PREVIEW_POLYGONS_H

#include "ri/ri.h"

// Draws (or, in either dump mode, prints as a fan) one closed polygon of n
// vertices, three floats each; reports "No \"P\" list found" when P is null.
// The caller's array is never changed.
void draw_polygon(int n, const float* P);

// Draws each polygon of a PointsPolygons as a closed outline through its
// vertex indices; always drawn, never printed.
void draw_points_polygons(int npolys, const RtInt nverts[], const RtInt verts[], const float* P);

#endif  // TRACERY_PREVIEW_POLYGONS_H
