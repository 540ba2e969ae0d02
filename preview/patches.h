// Bilinear and bicubic patches and patch meshes: the fill functions behind
// RiPatch and the placement of a patch inside the mesh it came from.
#ifndef TRACERY_PREVIEW_PATCHES_H
#define TRACERY_PREVIEW_PATCHES_H

// Where the patch being drawn sits in its mesh, for height-field ("Pz")
// control points: u index iu of nu patches across, v index iv of nv down.
// A lone patch is patch 0 of 1 each way; RiPatch restores that after every
// patch it draws, and RiPatchMesh sets it before each patch.
struct MeshPlacement {
    int iu;
    int nu;
    int iv;
    int nv;
};
extern MeshPlacement mesh_place;

// The position parameter of a patch: which of "P", "Pw", "Pz" and its values
// (3, 4 or 1 floats a control point).
enum PositionKind { POSITION_NONE, POSITION_P, POSITION_PW, POSITION_PZ };
struct PatchPositions {
    PositionKind kind;
    const float* values;
};

// Floats per control point of a position kind (0 for none).
int position_floats(PositionKind kind);
// The kind a parameter name stands for ("P", "Pw", "Pz", also as the last
// word of an inline declaration such as "vertex hpoint Pw"), else none.
PositionKind position_kind(const char* token);

// Writes the four corners of a bilinear patch into grid rows 0 and 1,
// columns 0 and 1 (with the long-standing placement of height fields).
void fill_bilinear_patch(PatchPositions p);

// Evaluates a bicubic patch through the two bases on the lattice of n x n
// cells (n already capped) into grid rows and columns 0..n.
void fill_bicubic_patch(PatchPositions p, const float ubasis[4][4], const float vbasis[4][4],
                        int ustep, int vstep, int n);

// How far, in each coordinate and in units of the largest control
// coordinate, a lattice point made by fill_bicubic_patch with these bases
// and n cells may lie from the convex hull of its sixteen control points.
double bicubic_hull_excess(const float ubasis[4][4], const float vbasis[4][4], int n);

#endif  // TRACERY_PREVIEW_PATCHES_H
