// The box drawn in place of geometry that is not made here: the bound of a
// procedural whose program is never run.
#ifndef TRACERY_PREVIEW_BOUND_BOX_H
#define TRACERY_PREVIEW_BOUND_BOX_H

// Draws the twelve edges of the box xmin xmax ymin ymax zmin zmax (object
// space). Drawn only: the box is no geometry of the scene, so the diced
// dumps leave it out.
void draw_bound_box(const float bound[6]);

#endif  // TRACERY_PREVIEW_BOUND_BOX_H
