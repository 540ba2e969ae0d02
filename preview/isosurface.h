// Extraction of a level set from values sampled on a regular grid of points
// (marching tetrahedra), as a mesh of triangles.
#ifndef TRACERY_PREVIEW_ISOSURFACE_H
#define TRACERY_PREVIEW_ISOSURFACE_H

#include <cstdint>
#include <vector>

// Values at the points of a grid of cells[0] x cells[1] x cells[2] cubic
// cells of side cell, its first point at origin; point (i, j, k) is at
// origin + cell x (i, j, k) and its value at values[i + points_x x (j +
// points_y x k)], points_x = cells[0] + 1 and so on. Only the cells
// first_cell[a] .. last_cell[a] (inclusive, on each axis a) are looked at:
// the level set lies inside them.
struct SampledGrid {
    float origin[3];
    float cell;
    int cells[3];
    int first_cell[3];
    int last_cell[3];
    std::vector<float> values;

    long index(int i, int j, int k) const {
        return i + (cells[0] + 1L) * (j + (cells[1] + 1L) * k);
    }
};

// Triangles as three indices each into points (x, y, z each). Triangles that
// meet share their points, and each faces the side where the values are
// below the level.
// Each point also names the grid edge it lies on: the indices of its two
// grid points, the higher one in the upper 32 bits.
struct TriangleMesh {
    std::vector<float> points;
    std::vector<uint32_t> triangles;
    std::vector<uint64_t> grid_edges;
};

// Appends to mesh the triangles of the surface where the sampled values
// cross level (a value equal to it counts as above). Each cell is cut into
// six tetrahedra around its diagonal from point (0, 0, 0) to (1, 1, 1), the
// same way in every cell, so the triangles of neighbouring cells meet edge
// to edge; the crossing on an edge is placed by linear interpolation.
void extract_level_set(const SampledGrid& grid, float level, TriangleMesh* mesh);

#endif  // TRACERY_PREVIEW_ISOSURFACE_H
