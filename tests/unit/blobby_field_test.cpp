// Tests of the blobby field sampled on a grid (every operator, against the
// field written out here point by point) and of the level-set extraction
// (a sphere: its points on the sphere, the mesh closed and facing out).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>
#include <vector>

#include "preview/blobby.h"
#include "preview/blobby_field.h"
#include "preview/isosurface.h"

namespace {

SampledGrid grid_around_origin(int cells, float side) {
    SampledGrid grid;
    grid.cell = side / float(cells);
    for (int k = 0; k < 3; ++k) {
        grid.cells[k] = cells;
        grid.origin[k] = -0.5f * side;
        grid.first_cell[k] = 0;
        grid.last_cell[k] = cells - 1;
    }
    return grid;
}

float falloff(float d2) {
    return d2 < 1 ? (1 - d2) * (1 - d2) * (1 - d2) : 0;
}

// A sphere of radius r at (cx, 0, 0), as the matrix of an ellipsoid.
std::vector<float> sphere(float r, float cx) {
    return {r, 0, 0, 0, 0, r, 0, 0, 0, 0, r, 0, cx, 0, 0, 1};
}

TEST(BlobbyFieldTest, EveryOperatorMatchesTheFieldPointByPoint) {
    // Leaves: two spheres (results 0 and 1), a segment from (0, -0.5, 0) to
    // (0, 0.5, 0) of radius 0.4 (2) and the constant 0.25 (3), then each
    // operator over them.
    std::vector<float> flt = sphere(0.8f, -0.3f);
    const std::vector<float> b = sphere(0.6f, 0.4f);
    flt.insert(flt.end(), b.begin(), b.end());
    const float segment[7] = {0, -0.5f, 0, 0, 0.5f, 0, 0.4f};
    flt.insert(flt.end(), segment, segment + 7);
    const std::vector<float> identity = sphere(1, 0);
    flt.insert(flt.end(), identity.begin(), identity.end());
    flt.push_back(0.25f);
    const std::vector<int> code = {1001, 0, 1001, 16, 1002, 32, 1000, 55,       // results 0..3
                                   0,    3, 0,    1,  2,                        // 4: a + b + s
                                   1,    2, 0,    1,                            // 5: a * b
                                   2,    2, 0,    2,                            // 6: max(a, s)
                                   3,    2, 1,    3,                            // 7: min(b, c)
                                   4,    0, 2,                                  // 8: a - s
                                   5,    5, 0,                                  // 9: (a * b) / a
                                   6,    8,                                     // 10: -(a - s)
                                   7,    6,                                     // 11: max(a, s)
                                   0,    7, 4,    5,  6,    7,  9,    10, 11};  // 12: their sum
    std::vector<BlobbyInstruction> program;
    ASSERT_EQ(decode_blobby(4, int(code.size()), code.data(), int(flt.size()), 0, &program),
              nullptr);
    SampledGrid grid = grid_around_origin(24, 4.0f);
    ASSERT_TRUE(sample_blobby_field(program, code.data(), flt.data(), &grid));
    int checked = 0;
    for (int k = 0; k <= 24; ++k) {
        for (int j = 0; j <= 24; ++j) {
            for (int i = 0; i <= 24; ++i) {
                const float x = grid.origin[0] + grid.cell * float(i);
                const float y = grid.origin[1] + grid.cell * float(j);
                const float z = grid.origin[2] + grid.cell * float(k);
                const float a = falloff(((x + 0.3f) * (x + 0.3f) + y * y + z * z) / 0.64f);
                const float bb = falloff(((x - 0.4f) * (x - 0.4f) + y * y + z * z) / 0.36f);
                const float t = std::clamp(y, -0.5f, 0.5f);
                const float s = falloff((x * x + (y - t) * (y - t) + z * z) / 0.16f);
                const float c = 0.25f;
                const float sum = a + bb + s, product = a * bb;
                const float quotient = a != 0 ? product / a : 0;
                const float want = sum + product + std::max(a, s) + std::min(bb, c) + quotient -
                                   (a - s) + std::max(a, s);
                const float got = grid.values[size_t(grid.index(i, j, k))];
                ASSERT_NEAR(got, want, 1e-5f) << i << " " << j << " " << k;
                checked += a > 0 ? 1 : 0;
            }
        }
    }
    EXPECT_GT(checked, 100);  // the elements reach a good part of the grid
}

TEST(BlobbyFieldTest, SphereLevelSetIsClosedOnTheSphereAndFacesOut) {
    SampledGrid grid = grid_around_origin(20, 3.0f);
    grid.values.resize(21 * 21 * 21);
    for (int k = 0; k <= 20; ++k) {
        for (int j = 0; j <= 20; ++j) {
            for (int i = 0; i <= 20; ++i) {
                const float p[3] = {grid.origin[0] + grid.cell * float(i),
                                    grid.origin[1] + grid.cell * float(j),
                                    grid.origin[2] + grid.cell * float(k)};
                // Linear in the distance from the centre, so the crossing
                // found by interpolation lies on the sphere up to the chord.
                grid.values[size_t(grid.index(i, j, k))] =
                    1.0f - std::sqrt(p[0] * p[0] + p[1] * p[1] + p[2] * p[2]);
            }
        }
    }
    TriangleMesh mesh;
    extract_level_set(grid, 0.0f, &mesh);  // the unit sphere
    ASSERT_GT(mesh.triangles.size(), 300u);
    for (size_t n = 0; n < mesh.points.size(); n += 3) {
        const float r =
            std::sqrt(mesh.points[n] * mesh.points[n] + mesh.points[n + 1] * mesh.points[n + 1] +
                      mesh.points[n + 2] * mesh.points[n + 2]);
        ASSERT_NEAR(r, 1.0f, 0.01f);
    }
    std::map<std::pair<uint32_t, uint32_t>, int> edge_uses;
    for (size_t t = 0; t < mesh.triangles.size(); t += 3) {
        const float* p[3];
        for (int c = 0; c < 3; ++c) p[c] = &mesh.points[3 * size_t(mesh.triangles[t + c])];
        const float u[3] = {p[1][0] - p[0][0], p[1][1] - p[0][1], p[1][2] - p[0][2]};
        const float v[3] = {p[2][0] - p[0][0], p[2][1] - p[0][1], p[2][2] - p[0][2]};
        const float normal[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2],
                                 u[0] * v[1] - u[1] * v[0]};
        EXPECT_GT(normal[0] * p[0][0] + normal[1] * p[0][1] + normal[2] * p[0][2], 0.0f) << t;
        for (int c = 0; c < 3; ++c) {
            const uint32_t a = mesh.triangles[t + c], b = mesh.triangles[t + (c + 1) % 3];
            edge_uses[{std::min(a, b), std::max(a, b)}]++;
        }
    }
    for (const auto& edge : edge_uses) ASSERT_EQ(edge.second, 2);
}

}  // namespace
