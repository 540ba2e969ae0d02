// Projection of one object-space point to raster coordinates through the
// current transformation and the camera of the option record.
#ifndef TRACERY_PREVIEW_PROJECTION_H
#define TRACERY_PREVIEW_PROJECTION_H

// Overwrites p (x, y, z in object space) with (raster x, raster y, visible),
// visible being exactly 1.0 when the point may be drawn and 0.0 when not.
void toscreen(float* p);

#endif  // TRACERY_PREVIEW_PROJECTION_H
