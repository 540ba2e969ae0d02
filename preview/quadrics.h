// Lattices of the seven quadrics. Each fill function writes the object-space
// points of one quadric, diced at detail d, into grid rows 0..nv and columns
// 0..nu and returns (nu, nv); the Ri procedures add the motion guard and the
// drawing. Spheres and tori, the quadrics of many lattice points, also have
// a raster box found before their lattice is made, so that one known drawn
// (off the picture, or on pixels already in its colour) is never made.
#ifndef TRACERY_PREVIEW_QUADRICS_H
#define TRACERY_PREVIEW_QUADRICS_H

#include "preview/projection.h"

struct LatticeSize {
    int nu;
    int nv;
};

LatticeSize fill_sphere(float radius, float zmin, float zmax, float thetamax, int d);
LatticeSize fill_cone(float height, float radius, float thetamax, int d);
LatticeSize fill_cylinder(float radius, float zmin, float zmax, float thetamax, int d);
LatticeSize fill_paraboloid(float rmax, float zmin, float zmax, float thetamax, int d);
LatticeSize fill_disk(float height, float radius, float thetamax, int d);
LatticeSize fill_hyperboloid(const float point1[3], const float point2[3], float thetamax, int d);
LatticeSize fill_torus(float majorrad, float minorrad, float phimin, float phimax, float thetamax,
                       int d);

// A raster box holding every drawn raster point of any lattice that
// fill_sphere (fill_torus) makes with these radii, whatever its sweep and
// detail, as ScreenProjection projects it now; false when none can be given
// (ControlHull: a point near the depth limits, or too much rounding).
bool sphere_raster_box(float radius, RasterBox* box);
bool torus_raster_box(float majorrad, float minorrad, RasterBox* box);

#endif  // TRACERY_PREVIEW_QUADRICS_H
