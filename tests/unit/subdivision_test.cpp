// Tests of subdivision meshes: the level rule, refinement of a cube with its
// tags (creases, corners, holes, boundary interpolation) checked against
// values computed by hand from the Catmull-Clark rules, and meshes that do
// not fit, which are reported and give their control cage.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "capture.h"
#include "preview/subdivision.h"

namespace {

const std::vector<int> kCubeSizes = {4, 4, 4, 4, 4, 4};
const std::vector<int> kCubeFaces = {0, 1, 2, 3, 4, 7, 6, 5, 0, 4, 5, 1,
                                     1, 5, 6, 2, 2, 6, 7, 3, 4, 0, 3, 7};
const std::vector<float> kCubePoints = {-1, -1, -1, 1, -1, -1, 1, 1, -1, -1, 1, -1,
                                        -1, -1, 1,  1, -1, 1,  1, 1, 1,  -1, 1, 1};

struct Mesh {
    std::vector<const char*> tags;
    std::vector<int> nargs, ints;
    std::vector<float> floats;
    std::vector<int> sizes = kCubeSizes;
    std::vector<int> faces = kCubeFaces;
    std::vector<float> points = kCubePoints;
    const char* scheme = "catmull-clark";

    SubdivisionInput input() const {
        return {"SubdivisionMesh",
                scheme,
                int(sizes.size()),
                sizes.data(),
                faces.data(),
                int(tags.size()),
                tags.data(),
                nargs.data(),
                2,
                ints.data(),
                floats.data(),
                points.data(),
                int(points.size() / 3),
                false};
    }
};

// Whether the refined mesh has a point within 1e-5 of p.
bool has_point(const RefinedMesh& m, float x, float y, float z) {
    for (size_t i = 0; i + 2 < m.points.size(); i += 3) {
        if (std::fabs(m.points[i] - x) < 1e-5f && std::fabs(m.points[i + 1] - y) < 1e-5f &&
            std::fabs(m.points[i + 2] - z) < 1e-5f) {
            return true;
        }
    }
    return false;
}

TEST(SubdivisionTest, LevelFollowsDetailAndIsCappedByTheRefinedFaces) {
    EXPECT_EQ(subdivision_level(1, 24), 0);
    EXPECT_EQ(subdivision_level(3, 24), 0);
    EXPECT_EQ(subdivision_level(4, 24), 1);  // the default relative detail
    EXPECT_EQ(subdivision_level(7, 24), 1);
    EXPECT_EQ(subdivision_level(8, 24), 2);
    EXPECT_EQ(subdivision_level(32, 24), 4);
    // 2^17 faces after one level: a second level would pass the cap.
    EXPECT_EQ(subdivision_level(8, 1 << 16), 2);
    EXPECT_EQ(subdivision_level(8, 1 << 17), 1);
    EXPECT_EQ(subdivision_level(32, 1 << 19), 0);
}

TEST(SubdivisionTest, CubeRefinedOnceHasTwentyFourQuadsAtTheCatmullClarkPoints) {
    ScopedErrorCapture capture;
    RefinedMesh m;
    refine_subdivision_mesh(Mesh().input(), 4, &m);
    EXPECT_EQ(m.face_sizes, std::vector<int>(24, 4));
    EXPECT_EQ(m.points.size(), size_t(3 * 26));
    // Corner (1, 1, 1): (Q + 2R + (n - 3)S) / n with n = 3, Q the average of
    // the face points (2/3 each), R of the edge midpoints (2/3 each).
    EXPECT_TRUE(has_point(m, 5 / 9.f, 5 / 9.f, 5 / 9.f));
    // Edge point of the edge (1, 1, -1)-(1, 1, 1): the average of its ends
    // and its two face points (1, 0, 0) and (0, 1, 0).
    EXPECT_TRUE(has_point(m, 0.75f, 0.75f, 0));
    EXPECT_TRUE(has_point(m, 0, 0, 1));  // face point of the top face
    EXPECT_EQ(capture.count(), 0u);
}

TEST(SubdivisionTest, CreaseKeepsItsEdgeSharpAndHoleDropsItsFaces) {
    ScopedErrorCapture capture;
    Mesh mesh;
    mesh.tags = {"crease", "hole", "corner"};
    mesh.nargs = {2, 1, 1, 0, 1, 1};
    mesh.ints = {0, 1, 1, 6};
    mesh.floats = {10, 10};
    RefinedMesh m;
    refine_subdivision_mesh(mesh.input(), 4, &m);
    EXPECT_EQ(m.face_sizes.size(), 20u);   // face 1 (the top) is a hole
    EXPECT_TRUE(has_point(m, 0, -1, -1));  // the crease's edge point is its midpoint
    EXPECT_TRUE(has_point(m, 1, 1, 1));    // the corner stays where it is
    EXPECT_EQ(capture.count(), 0u);
}

TEST(SubdivisionTest, LevelTwoAndLoopAndBilinearSchemes) {
    RefinedMesh m;
    refine_subdivision_mesh(Mesh().input(), 8, &m);
    EXPECT_EQ(m.face_sizes.size(), 96u);
    Mesh bilinear;
    bilinear.scheme = "bilinear";
    refine_subdivision_mesh(bilinear.input(), 4, &m);
    EXPECT_TRUE(has_point(m, 1, 1, 1));  // bilinear keeps the corners
    EXPECT_TRUE(has_point(m, 1, 1, 0));  // and puts edge points at midpoints
    Mesh loop;
    loop.scheme = "loop";
    loop.sizes = {3, 3, 3, 3};
    loop.faces = {0, 1, 2, 0, 3, 1, 1, 3, 2, 2, 3, 0};
    loop.points = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};
    refine_subdivision_mesh(loop.input(), 4, &m);
    EXPECT_EQ(m.face_sizes, std::vector<int>(16, 3));
}

TEST(SubdivisionTest, OpenMeshWithoutBoundaryInterpolationStillShowsItsFaces) {
    Mesh quad;
    quad.sizes = {4};
    quad.faces = {0, 1, 2, 3};
    quad.points = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};
    RefinedMesh m;
    refine_subdivision_mesh(quad.input(), 8, &m);
    EXPECT_EQ(m.face_sizes.size(), 16u);
    quad.sizes.clear();  // no faces: nothing to refine, nothing reported
    ScopedErrorCapture capture;
    refine_subdivision_mesh(quad.input(), 8, &m);
    EXPECT_TRUE(m.face_sizes.empty());
    EXPECT_EQ(capture.count(), 0u);
}

TEST(SubdivisionTest, MeshesThatDoNotFitAreReportedAndGiveTheirCage) {
    struct Case {
        const char* why;
        Mesh mesh;
    };
    std::vector<Case> cases(6);
    cases[0].why = "vertex index 8 of face 5 is not one of the 8 points of P";
    cases[0].mesh.faces[21] = 8;
    cases[1].why = "crease 0-6 is not an edge of the mesh";
    cases[1].mesh.tags = {"crease"};
    cases[1].mesh.nargs = {2, 1};
    cases[1].mesh.ints = {0, 6};
    cases[1].mesh.floats = {2};
    cases[2].why = "hole names face 6 of 6";
    cases[2].mesh.tags = {"hole"};
    cases[2].mesh.nargs = {1, 0};
    cases[2].mesh.ints = {6};
    cases[3].why = "face 0 has 4 vertices";
    cases[3].mesh.scheme = "loop";
    cases[4].why = "unknown scheme \"sqrt3\"";
    cases[4].mesh.scheme = "sqrt3";
    cases[5].why = "face 2 uses vertex 4 twice";
    cases[5].mesh.faces[10] = 4;
    for (const Case& c : cases) {
        ScopedErrorCapture capture;
        RefinedMesh m;
        refine_subdivision_mesh(c.mesh.input(), 4, &m);
        // The cage: the control points and the faces whose indices fit; the
        // report says which are left out.
        const bool face_left_out = c.mesh.faces[21] == 8;
        ASSERT_EQ(capture.count(), 1u) << c.why;
        EXPECT_EQ(capture.errors()[0].severity, RIE_ERROR);
        EXPECT_EQ(capture.messages()[0], std::string("SubdivisionMesh: ") + c.why +
                                             "; drawn as its control cage" +
                                             (face_left_out ? ", 1 of its 6 faces left out" : ""));
        EXPECT_EQ(m.points, c.mesh.points) << c.why;
        EXPECT_EQ(m.face_sizes.size(), face_left_out ? 5u : 6u) << c.why;
    }
}

TEST(SubdivisionTest, VertexOfTooManyFacesIsNotHandedToTheRefiner) {
    // A fan of 5000 triangles round vertex 0: the library would spend time
    // growing with the square of that valence.
    Mesh fan;
    fan.sizes.assign(5000, 3);
    fan.faces.clear();
    fan.points = {0, 0, 0};
    for (int i = 0; i < 5000; i++) {
        fan.faces.insert(fan.faces.end(), {0, i + 1, (i + 1) % 5000 + 1});
        fan.points.insert(fan.points.end(), {float(i), 1, 0});
    }
    ScopedErrorCapture capture;
    RefinedMesh m;
    refine_subdivision_mesh(fan.input(), 4, &m);
    EXPECT_EQ(capture.messages(),
              std::vector<std::string>{"SubdivisionMesh: vertex 0 is shared by more than 4096 "
                                       "faces; drawn as its control cage"});
    EXPECT_EQ(m.face_sizes.size(), 5000u);
}

TEST(SubdivisionTest, UnknownTagIsAWarningAndTheMeshIsStillRefined) {
    ScopedErrorCapture capture;
    Mesh mesh;
    mesh.tags = {"stitch", "facevaryinginterpolateboundary", "interpolateboundary"};
    mesh.nargs = {1, 0, 1, 0, 0, 0};
    mesh.ints = {3, 1};
    RefinedMesh m;
    refine_subdivision_mesh(mesh.input(), 4, &m);
    EXPECT_EQ(m.face_sizes.size(), 24u);
    ASSERT_EQ(capture.count(), 1u);
    EXPECT_EQ(capture.errors()[0].severity, RIE_WARNING);
    EXPECT_EQ(capture.messages()[0], "SubdivisionMesh: unknown tag \"stitch\" ignored");
}

}  // namespace
