// The shapes of the Geometry request: the classic teapot, drawn as its
// Bezier patches.
#ifndef TRACERY_PREVIEW_TEAPOT_H
#define TRACERY_PREVIEW_TEAPOT_H

constexpr int TEAPOT_PATCHES = 32;
constexpr int TEAPOT_POINTS = 306;

// The 16 control points of teapot patch 0..31, u fastest.
void teapot_patch_points(int patch, float points[16][3]);

// Draws (or dumps) the 32 patches through the current transformation.
void draw_teapot();

// Forgets which Geometry kinds were reported as not drawn (a fresh run).
void forget_reported_geometry();

#endif  // TRACERY_PREVIEW_TEAPOT_H
