// Lattices of the seven quadrics. Each fill function writes the object-space
// points of one quadric, diced at detail d, into grid rows 0..nv and columns
// 0..nu and returns (nu, nv); the Ri procedures add the motion guard and the
// drawing.
#ifndef TRACERY_PREVIEW_QUADRICS_H
#define TRACERY_PREVIEW_QUADRICS_H

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

#endif  // TRACERY_PREVIEW_QUADRICS_H
