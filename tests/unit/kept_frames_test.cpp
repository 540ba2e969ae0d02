// Tests of the kept frames of the interactive window: what the store keeps,
// drawn again through the scene's camera, gives the drawing's very segments
// and colours; the free camera's moves and its cut at the eye plane, checked
// against points worked out another way; the memory budget.
#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <string>
#include <vector>

#include "preview/frame_store.h"
#include "preview/kept_drawing.h"
#include "preview/view_camera.h"
#include "preview/x11_previewer.h"
#include "state_fixture.h"

namespace {

// Records colours and segments in order, as one list of words.
class LogSink : public LineSink {
  public:
    explicit LogSink(std::vector<long>* log) : log_(log) {}
    void segment(int x0, int y0, int x1, int y1) override {
        log_->insert(log_->end(), {x0, y0, x1, y1});
    }
    void color(const float rgb[3]) override {
        log_->push_back(-1);
        for (int c = 0; c < 3; ++c) log_->push_back(std::lround(rgb[c] * 1000));
    }

  private:
    std::vector<long>* log_;
};

// Every kind of primitive, in colours, under a turned perspective camera
// that some of the sphere lies behind, a moving transformation, and a second
// frame with another camera and an orthographic projection.
const char kScene[] = R"(Format 320 240 1
Projection "perspective" "fov" [50]
Translate 0 0.2 3
Rotate 20 1 0 0
Shutter 0 1
FrameBegin 1
WorldBegin
Color [1 0 0]
Sphere 3.5 -3.5 3.5 300
Color [0 1 0]
Polygon "P" [-1 -1 0  1 -1 0.2  0.8 1 0  -1 0.9 0.1]
GeneralPolygon [4 3] "P" [-2 -2 1  2 -2 1  2 2 1  -2 2 1  0 0 1  0.5 0 1  0 0.5 1]
PointsPolygons [3 3] [0 1 2 2 1 3] "P" [0 0 0  1 0 0  0 1 0  1 1 0.5]
PointsPolygons [3] [0 5 9] "P" [0 0 0 1 0 0 2 0 0 3 0 0 4 0 0 0 1 0 0 2 0 0 3 0 0 4 0 1 1 1]
Curves "linear" [4] "periodic" "P" [0 0 0  1 0 0  1 1 0  0 1 0]
Curves "cubic" [7] "nonperiodic" "P" [0 0 0 1 1 0 2 0 0 3 1 0 4 0 0 5 1 0 6 0 0]
SubdivisionMesh "catmull-clark" [4 4] [0 1 2 3 3 2 4 5] [] [] [] [] "P" [0 0 0 1 0 0 1 1 0 0 1 0 1 2 0 0 2 0]
Points "P" [0.1 0.2 0.3  -0.5 0.5 0]
Procedural "RunProgram" ["gen" ""] [-1 1 -1 1 -1 1]
Color [0.2 0.4 1]
Patch "bilinear" "P" [0 0 0  1 0 0  0 1 1  1 1 0]
MotionBegin [0 1]
Translate 0.5 0 0
Translate 1.5 0 0
MotionEnd
Torus 1 0.3 0 360 360
Cylinder 0.5 -1 1 360
WorldEnd
FrameEnd
FrameBegin 2
Projection "orthographic"
Identity
Translate 0 0 5
WorldBegin
Color [1 1 0]
Cone 1 1 270
WorldEnd
FrameEnd
)";

class KeptFramesTest : public InterfaceStateTest {
  protected:
    void SetUp() override {
        InterfaceStateTest::SetUp();
        kept_frames = &store;
    }
    void TearDown() override {
        kept_frames = nullptr;
        InterfaceStateTest::TearDown();
    }
    FrameStore store{~size_t(0)};
};

TEST_F(KeptFramesTest, KeptFramesGiveBackTheDrawingThroughTheirCamera) {
    std::vector<long> drawn, again;
    RiBegin(RI_NULL);
    previewer()->add_sink(std::make_unique<LogSink>(&drawn));
    run(kScene);
    RiEnd();
    ASSERT_EQ(store.frame_count(), 2u);
    // The drawing's colour events include one given before anything is
    // drawn in it; the kept frame gives the colour of each primitive. So the
    // segments are compared colour by colour, as the pixels would show them.
    auto by_colour = [](const std::vector<long>& log) {
        std::vector<long> out;
        long colour[3] = {-2, -2, -2};
        for (size_t k = 0; k < log.size();) {
            if (log[k] == -1) {
                std::copy(&log[k + 1], &log[k + 4], colour);
                k += 4;
                continue;
            }
            out.insert(out.end(), {colour[0], colour[1], colour[2]});
            out.insert(out.end(), &log[k], &log[k + 4]);
            k += 4;
        }
        return out;
    };
    LogSink sink(&again);
    for (size_t f = 0; f < store.frame_count(); ++f) {
        draw_kept_frame(store.frame(f), scene_projection(store.frame(f).view), sink);
    }
    const std::vector<long> expected = by_colour(drawn), got = by_colour(again);
    EXPECT_GT(expected.size(), 7u * 400);
    std::set<KeptKind> kinds;
    for (const KeptPrimitive& p : store.frame(0).primitives) kinds.insert(p.kind);
    EXPECT_EQ(kinds.size(), 4u);
    EXPECT_EQ(got, expected);
    EXPECT_EQ(store.name(store.frame(1).file), "test.rib");
}

TEST_F(KeptFramesTest, AClickFindsTheRequestThroughItsArchives) {
    RiBegin(RI_NULL);
    renderer->xres = 200;
    renderer->yres = 200;
    run("Projection \"orthographic\"\n"
        "WorldBegin\n"
        "# a comment: lines are counted as an editor counts them\n"
        "ArchiveBegin \"square\"\n"
        "  Polygon \"P\" [-0.5 -0.5 1  0.5 -0.5 1  0.5 0.5 1  -0.5 0.5 1]\n"
        "ArchiveEnd\n"
        "Translate 0 0 1\n"
        "ReadArchive \"square\"\n"
        "Sphere 0.2 -0.2 0.2 360\n"
        "WorldEnd\n");
    RiEnd();
    ASSERT_EQ(store.frame_count(), 1u);
    const KeptFrame& frame = store.frame(0);
    const KeptProjection projection = scene_projection(frame.view);
    // The square's left edge is at x = -0.5: raster 100 - 50 = 50.
    EXPECT_EQ(origin_text(store, frame, pick_kept_origin(frame, projection, 52, 100, 4.0)),
              "test.rib:5: Polygon (from test.rib:8)");
    EXPECT_EQ(origin_text(store, frame, pick_kept_origin(frame, projection, 100, 100, 4.0)),
              "test.rib:9: Sphere");
    EXPECT_EQ(pick_kept_origin(frame, projection, 75, 75, 4.0), NO_ORIGIN);
}

// A view of the world from (0, 0, -5) looking down z, 200 by 100 raster.
KeptView perspective_view() {
    KeptView v{};
    for (int i = 0; i < 4; ++i) v.camera[i][i] = 1.0f;
    v.camera[3][2] = 5.0f;
    v.mapping = {0, 1e-10f, 1e38f, 0.01f, 0.01f, 100.0f, 50.0f};
    v.xres = 200;
    v.yres = 100;
    v.fov = 90.0f;
    return v;
}

// The raster point of a world point through a projection, worked out here.
std::pair<double, double> raster_of(const KeptProjection& p, double x, double y, double z) {
    double c[3];
    for (int j = 0; j < 3; ++j) {
        c[j] = x * p.camera[0][j] + y * p.camera[1][j] + z * p.camera[2][j] + p.camera[3][j];
    }
    if (p.mapping.projection == 0) {
        c[0] /= c[2];
        c[1] /= c[2];
    }
    return {c[0] / p.mapping.xstep + p.mapping.half_x, p.mapping.half_y - c[1] / p.mapping.ystep};
}

TEST(ViewCameraTest, MovesKeepWhatTheyPromise) {
    const KeptView scene = perspective_view();
    const WorldPoint pivot = {0.3, -0.2, 0.5};
    ViewCamera start, camera;
    // Orbit: the pivot stays where it was on the raster.
    camera.orbit(start, scene, pivot, 33.0, -21.0);
    const auto before = raster_of(start.projection(scene), pivot.x, pivot.y, pivot.z);
    auto after = raster_of(camera.projection(scene), pivot.x, pivot.y, pivot.z);
    EXPECT_NEAR(after.first, before.first, 1e-3);
    EXPECT_NEAR(after.second, before.second, 1e-3);
    // Pan: what lies at the pivot's depth follows the pointer.
    camera.pan(scene, pivot, 17.0, -9.0);
    const auto panned = raster_of(camera.projection(scene), pivot.x, pivot.y, pivot.z);
    EXPECT_NEAR(panned.first - after.first, 17.0, 1e-3);
    EXPECT_NEAR(panned.second - after.second, -9.0, 1e-3);
    // Wheel: three steps in bring the eye to 0.729 of its distance, three
    // out take it back.
    auto distance = [&](const ViewCamera& c) {
        const WorldPoint e = c.eye(scene);
        return std::hypot(e.x - pivot.x, e.y - pivot.y, e.z - pivot.z);
    };
    const double far = distance(camera);
    camera.zoom(scene, pivot, 3);
    EXPECT_NEAR(distance(camera), 0.729 * far, 1e-9 * far);
    camera.zoom(scene, pivot, -3);
    EXPECT_NEAR(distance(camera), far, 1e-9 * far);
}

TEST(ViewCameraTest, FramingPutsEveryCornerOnTheRaster) {
    for (int projection : {0, 1}) {
        KeptView scene = perspective_view();
        scene.mapping.projection = projection;
        ViewCamera camera;
        camera.orbit(ViewCamera(), scene, {0, 0, 0}, 40.0, 25.0);
        const WorldPoint min = {10, -3, 40}, max = {16, 9, 41};
        camera.frame_all(scene, min, max);
        const KeptProjection p = camera.projection(scene);
        double widest = 0.0;
        for (int k = 0; k < 8; ++k) {
            const auto r = raster_of(p, (k & 1) ? max.x : min.x, (k & 2) ? max.y : min.y,
                                     (k & 4) ? max.z : min.z);
            EXPECT_GE(r.first, 0.0);
            EXPECT_LE(r.first, 200.0);
            EXPECT_GE(r.second, 0.0);
            EXPECT_LE(r.second, 100.0);
            widest = std::max({widest, std::fabs(r.first - 100), std::fabs(r.second - 50) * 2});
        }
        EXPECT_GT(widest, 80.0) << "projection " << projection;  // filled, not lost in the middle
        const auto centre = raster_of(p, 13, 3, 40.5);
        EXPECT_NEAR(centre.first, 100.0, 1e-3);
        EXPECT_NEAR(centre.second, 50.0, 1e-3);
    }
}

TEST(ViewCameraTest, SegmentsThroughTheEyePlaneAreCutThere) {
    KeptView scene = perspective_view();
    scene.mapping.near_clip = 0.5f;
    ViewCamera camera;
    camera.zoom(scene, {0, 0, 0}, 0);  // the free camera, where the scene's is
    const KeptProjection p = camera.projection(scene);
    // From (1, 1, 0) (depth 5) to (1, 1, -10) (depth -5): the part in front
    // of the plane at depth 0.5 ends at world z = -4.5.
    const float a[3] = {1, 1, 0}, b[3] = {1, 1, -10};
    RasterSegment s;
    ASSERT_TRUE(clip_kept_segment(a, b, p, &s));
    const auto near_end = raster_of(p, 1, 1, -4.5);
    EXPECT_NEAR(s.x1, near_end.first, 1.0);
    EXPECT_NEAR(s.y1, near_end.second, 1.0);
    EXPECT_EQ(s.x0, 121);  // ceil(0.2 / 0.01) + 100
    const float c[3] = {1, 1, -6}, d[3] = {0, 1, -7};
    EXPECT_FALSE(clip_kept_segment(c, d, p, &s));  // wholly behind
}

TEST(FrameStoreTest, OldFramesGiveTheirGeometryUpPastTheBudget) {
    FrameStore store(3000);
    const float rgb[3] = {1, 1, 1};
    for (int f = 0; f < 4; ++f) {
        store.world_begin(perspective_view(), "a.rib");
        store.begin_primitive(KeptKind::MARKERS, rgb);
        float* p = store.add_points(100);  // 1200 bytes
        for (int k = 0; k < 300; ++k) p[k] = float(k);
        store.end_primitive();
        store.world_end();
    }
    store.end_reading();
    ASSERT_EQ(store.frame_count(), 4u);
    EXPECT_TRUE(store.frame(0).dropped && store.frame(1).dropped);
    EXPECT_FALSE(store.frame(2).dropped || store.frame(3).dropped);
    EXPECT_LE(store.bytes(), 3000u);
    // Read again, frame 0 comes back and the oldest other gives way.
    store.refill(0);
    for (int f = 0; f < 4; ++f) {
        store.world_begin(perspective_view(), "a.rib");
        if (store.recording()) {
            store.begin_primitive(KeptKind::MARKERS, rgb);
            store.add_points(100);
            store.end_primitive();
        }
        store.world_end();
    }
    store.end_reading();
    EXPECT_FALSE(store.frame(0).dropped);
    EXPECT_EQ(store.frame(0).segment_count(), 200u);
    EXPECT_TRUE(store.frame(2).dropped);
    EXPECT_FALSE(store.frame(3).dropped);
}

}  // namespace
