// The current transformation: its procedures, stack, named coordinate
// systems, motion blocks with their reports, and the motion guard as the
// primitive procedures apply it.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <vector>

#include "math/matrix.h"
#include "math/transform.h"
#include "ri/renderer.h"
#include "ri/transforms.h"
#include "state_fixture.h"

namespace {

using Vec = std::array<float, 3>;

// Starts from a fresh interface inside a frame block, with no renderer.
class Transforms : public InterfaceStateTest {
  protected:
    void SetUp() override {
        InterfaceStateTest::SetUp();
        saved_sample_time_ = sample_time;
        block_level = BLOCK_GLOBAL | BLOCK_FRAME;
    }
    void TearDown() override {
        sample_time = saved_sample_time_;
        InterfaceStateTest::TearDown();
    }

    // Where the current transformation takes the point (x, y, z).
    static Vec moved(float x, float y, float z) {
        float p[3] = {x, y, z};
        transform_p_inplace(p, curxform);
        return {p[0], p[1], p[2]};
    }

    // Whether report i has this code, severity and text (null: no text).
    bool report_is(size_t i, int code, int severity, const char* text) {
        if (i >= capture.count()) return false;
        const CapturedError& e = capture.errors()[i];
        return e.code == code && e.severity == severity && e.has_message == (text != nullptr) &&
               (!text || e.message == text);
    }

  private:
    float saved_sample_time_ = 0;
};

void expect_vec_near(const Vec& a, const Vec& b) {
    for (int i = 0; i < 3; i++) EXPECT_NEAR(a[i], b[i], 1e-5f) << "component " << i;
}

}  // namespace

TEST_F(Transforms, RequestsComposeWithTheLatestAppliedFirst) {
    RiTranslate(1, 0, 0);
    RiScale(2, 2, 2);
    expect_vec_near(moved(1, 0, 0), {3, 0, 0});  // scaled, then translated

    // After stretches and a turn that do not commute, the normal (1, 1, 0)
    // of the plane x + y = 0 stays perpendicular to the plane, and maps back.
    RiScale(1, 2, 1);
    RiRotate(30, 0, 0, 1);
    RiScale(3, 1, 1);
    float n[3] = {1, 1, 0}, along[3] = {1, -1, 0};
    transform_n_inplace(n, curxform);
    transform_v_inplace(along, curxform);
    EXPECT_NEAR(n[0] * along[0] + n[1] * along[1] + n[2] * along[2], 0.0f, 1e-5f);
    inverse_transform_n_inplace(n, curxform);
    expect_vec_near({n[0], n[1], n[2]}, {1, 1, 0});

    RtMatrix doubling = {{2, 0, 0, 0}, {0, 2, 0, 0}, {0, 0, 2, 0}, {0, 0, 0, 1}};
    RiTransform(doubling);  // replaces
    RiConcatTransform(doubling);
    expect_vec_near(moved(1, 0, 0), {4, 0, 0});
    EXPECT_EQ(capture.count(), 0u);

    block_level = 0;  // both the request and the concatenation complain
    RiIdentity();
    EXPECT_TRUE(report_is(0, RIE_NOTATTRIBS, RIE_WARNING, nullptr));
    EXPECT_TRUE(report_is(1, RIE_NOTATTRIBS, RIE_ERROR, nullptr));
}

TEST_F(Transforms, PerspectiveHandednessAndZeroAxisRotation) {
    RiPerspective(90);
    auto m = curxform->matrix0;
    EXPECT_NEAR(m[2][2], 0.6658f, 1e-4f);
    EXPECT_NEAR(m[2][3], 0.6658f, 1e-4f);
    EXPECT_EQ(m[3][2], -1.0f);
    EXPECT_EQ(m[3][3], 0.0f);

    RiIdentity();
    RiScale(-1, 1, 1);
    EXPECT_TRUE(curxform->flags & XFORM_FLIPPED);
    RiScale(-1, -1, 1);  // determinant +1: no change
    EXPECT_TRUE(curxform->flags & XFORM_FLIPPED);
    RiScale(-1, 1, 1);
    EXPECT_FALSE(curxform->flags & XFORM_FLIPPED);

    RiIdentity();
    RiRotate(90, 0, 0, 2);  // the axis is normalised
    expect_vec_near(moved(1, 0, 0), {0, 1, 0});
    RiIdentity();
    RiRotate(90, 0, 0, 0);  // used as given: cos 90 degrees times the identity
    expect_vec_near(moved(1, 1, 1), {0, 0, 0});
    EXPECT_EQ(capture.count(), 0u);
}

TEST_F(Transforms, SkewShearsAlongTheSecondAxis) {
    RiSkew(45, 0, 1, 0, 1, 0, 0);
    expect_vec_near(moved(0, 1, 0), {1, 1, 0});
    expect_vec_near(moved(1, 0, 0), {1, 0, 0});

    // Axes 45 degrees apart, skewed by 30: the first axis ends 15 degrees
    // from the second, and points on the second axis stay put.
    RiIdentity();
    RiSkew(30, 0, 1, 0, 1, 1, 0);
    Vec a = moved(0, 1, 0);
    double cosine = (a[0] + a[1]) / std::sqrt(2.0) / std::hypot(a[0], a[1]);
    EXPECT_NEAR(std::acos(cosine) * 180 / 3.14159265358979, 15.0, 1e-3);
    expect_vec_near(moved(2, 2, 0), {2, 2, 0});
    EXPECT_EQ(capture.count(), 0u);

    const struct {
        float angle, a[3], b[3];
    } bad[] = {
        {90, {0, 1, 0}, {1, 0, 0}},   // as large as the angle between the axes
        {-90, {0, 1, 0}, {1, 0, 0}},  // that angle minus 180 degrees
        {10, {1, 0, 0}, {2, 0, 0}},   // parallel axes
        {10, {0, 0, 0}, {1, 0, 0}},   // zero axis
    };
    for (const auto& s : bad) {
        capture.clear();
        RiIdentity();
        RiTranslate(1, 2, 3);
        RiSkew(s.angle, s.a[0], s.a[1], s.a[2], s.b[0], s.b[1], s.b[2]);
        EXPECT_EQ(capture.count(), 1u) << s.angle;
        EXPECT_TRUE(report_is(0, RIE_RANGE, RIE_ERROR, "RiSkew angle too large for the axes"));
        expect_vec_near(moved(0, 1, 0), {1, 3, 3});  // the identity was concatenated
    }
}

TEST_F(Transforms, StackHolds128LevelsAndReportsTheNext) {
    RiTranslate(1, 0, 0);
    Transformation* outer = curxform;
    for (int i = 0; i < XFORM_STACK_MAX; i++) RiTransformBegin();
    EXPECT_EQ(capture.count(), 0u);
    EXPECT_NE(curxform, outer);  // a copy, so the saved record stays untouched
    RiTranslate(1, 0, 0);

    RiTransformBegin();
    EXPECT_EQ(capture.count(), 1u);
    EXPECT_TRUE(report_is(0, RIE_LIMIT, RIE_SEVERE, "Transformation stack overflow"));
    EXPECT_EQ(transform_stack_depth(), XFORM_STACK_MAX + 1);

    // The level past the stack closes first; the rest unwind to the start.
    for (int i = 0; i <= XFORM_STACK_MAX; i++) RiTransformEnd();
    EXPECT_EQ(capture.count(), 1u);
    EXPECT_EQ(curxform, outer);

    RiTransformEnd();
    EXPECT_TRUE(report_is(1, RIE_NESTING, RIE_ERROR, "Transformation stack underflow"));
    EXPECT_EQ(curxform, outer);
    EXPECT_EQ(transform_stack_depth(), 0);
}

TEST_F(Transforms, NamedSystemsAreSharedAndReplacedAndUnknownOnesReported) {
    RiCoordinateSystem("origin");  // no transformation yet: the identity
    RiTranslate(0, 5, 0);
    RiCoordinateSystem("a");
    Transformation* named = curxform;
    EXPECT_TRUE(named->flags & XFORM_SHARED);
    RiTranslate(1, 0, 0);  // works on a copy
    EXPECT_NE(curxform, named);
    RiCoordSysTransform("a");
    EXPECT_EQ(curxform, named);
    expect_vec_near(moved(0, 0, 0), {0, 5, 0});

    RiTranslate(2, 0, 0);
    RiCoordinateSystem("a");  // replaces the first "a"
    RiIdentity();
    RiCoordSysTransform("a");
    expect_vec_near(moved(0, 0, 0), {2, 5, 0});
    RiCoordSysTransform("origin");
    expect_vec_near(moved(0, 0, 0), {0, 0, 0});
    EXPECT_EQ(capture.count(), 0u);

    RiTranslate(1, 0, 0);
    Transformation* current = curxform;
    RiCoordSysTransform("camera");  // no predefined spaces besides "world"
    RiCoordSysTransform("world");   // "world" outside the world block
    EXPECT_TRUE(
        report_is(0, RIE_BADTOKEN, RIE_ERROR, "RiCoordSysTransform: space \"camera\" unknown"));
    EXPECT_TRUE(
        report_is(1, RIE_BADTOKEN, RIE_ERROR, "RiCoordSysTransform: space \"world\" unknown"));
    EXPECT_EQ(curxform, current);

    RiCoordinateSystem("world");  // once declared, found outside the world
    RiTranslate(1, 0, 0);
    RiCoordSysTransform("world");
    EXPECT_EQ(curxform, current);

    block_level = 0;
    RiCoordSysTransform("world");
    EXPECT_EQ(capture.count(), 3u);
    EXPECT_TRUE(report_is(2, RIE_NOTATTRIBS, RIE_ERROR, nullptr));
}

TEST_F(Transforms, WorldInsideTheWorldIsTheCamera) {
    renderer = new Renderer;  // deleted with the interface state
    RiTranslate(0, 0, 10);
    Transformation* camera = curxform;
    renderer->camera = camera;
    block_level = BLOCK_GLOBAL | BLOCK_FRAME | BLOCK_WORLD;
    RiIdentity();
    capture.clear();

    RiCoordSysTransform("world");
    EXPECT_EQ(curxform, camera);
    RiTranslate(1, 0, 0);
    float p[3] = {0, 0, 0};
    transform_p_inplace(p, camera);
    EXPECT_EQ(p[0], 0.0f);  // the camera itself is unchanged

    renderer->camera = nullptr;  // no recorded camera: the identity
    RiCoordSysTransform("world");
    EXPECT_EQ(curxform, nullptr);
    EXPECT_EQ(capture.count(), 0u);
}

TEST_F(Transforms, TwoSampleMotionBlocks) {
    RiMotionBegin(2, 0.0, 1.0);
    RiTranslate(0, 0, 0);
    RiTranslate(1, 0, 0);
    EXPECT_EQ(motion_level, 3);
    RiMotionEnd();
    EXPECT_EQ(motion_level, 0);
    EXPECT_FALSE(block_level & BLOCK_MOTION);
    EXPECT_EQ(capture.count(), 0u);

    RiTranslate(0, 1, 0);  // outside the block: into both samples
    for (float t : {0.0f, 0.5f, 1.0f}) {
        sample_time = t;
        expect_vec_near(moved(0, 0, 0), {t, 1, 0});
    }

    // A second sample on a fresh record fills the second set asymmetrically.
    RiMotionBegin(2, 0.0, 1.0);
    RtMatrix doubling = {{2, 0, 0, 0}, {0, 2, 0, 0}, {0, 0, 2, 0}, {0, 0, 0, 1}};
    RtMatrix shift = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {1, 2, 3, 1}};
    RiTransform(doubling);  // first sample: replaces, so a fresh record, not moving
    RiTransform(shift);     // second sample: concatenated into the second set
    RiMotionEnd();
    EXPECT_EQ(capture.count(), 0u);
    EXPECT_FALSE(curxform->flags & XFORM_MOVING);
    EXPECT_EQ(curxform->inverse1, nullptr);
    // The second set holds the shift, its transpose (not the inverse) and the normal matrix.
    EXPECT_EQ((std::vector<float>{curxform->matrix0[0][0], curxform->matrix1[3][0],
                                  curxform->transpose1[0][3], curxform->normal1[0][3]}),
              (std::vector<float>{2, 1, 1, -1}));
}

TEST_F(Transforms, MotionBlockReports) {
    RiMotionBegin(2, 0.0, 1.0);
    RiTranslate(0, 0, 0);
    RiTranslate(1, 0, 0);
    RiTranslate(5, 0, 0);
    EXPECT_TRUE(report_is(0, RIE_BADMOTION, RIE_ERROR, "Only two motion times are available"));
    EXPECT_EQ(motion_level, 3);
    RiMotionEnd();  // two samples were taken: no complaint
    EXPECT_EQ(capture.count(), 1u);

    RiMotionBegin(2, 0.0, 2.0);  // the moving record has other times
    EXPECT_TRUE(report_is(1, RIE_BADMOTION, RIE_ERROR, "Times do not match"));
    RiMotionBegin(2, 0.0, 1.0);  // nested
    EXPECT_TRUE(report_is(2, RIE_BADMOTION, RIE_ERROR, nullptr));
    RiMotionEnd();

    RiIdentity();  // a record that is not moving yet
    capture.clear();
    RiMotionBegin(3, 0.0, 0.5, 1.0);
    EXPECT_TRUE(report_is(0, RIE_LIMIT, RIE_ERROR, "Only two motion times allowed"));
    RiTranslate(0, 0, 0);
    RiTranslate(1, 0, 0);
    RiMotionEnd();
    EXPECT_EQ(capture.count(), 2u);
    EXPECT_TRUE(report_is(1, RIE_BADMOTION, RIE_ERROR, "Wrong number of motion specifications"));

    capture.clear();
    RiMotionEnd();  // no block open
    EXPECT_TRUE(report_is(0, RIE_BADMOTION, RIE_ERROR, nullptr));
}

TEST_F(Transforms, MotionGuardCountsOneSamplePerPrimitiveRequest) {
    RtFloat square[12] = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0}, knots[4] = {0, 0, 1, 1};
    RtToken tokens[1] = {"P"};
    RtPointer values[1] = {square};
    RtInt nverts[1] = {4}, verts[4] = {0, 1, 2, 3}, nloops[1] = {1};
    RtPoint p1 = {1, 0, 0}, p2 = {0, 1, 1};

    EXPECT_EQ(motion_guard(), 0);
    RiSphere(1, -1, 1, 360, RI_NULL);
    EXPECT_EQ(motion_level, 0);  // outside a block nothing counts
    RiMotionBegin(2, 0.0, 1.0);
    EXPECT_EQ(motion_guard(), 0);  // only the first sample gets through
    EXPECT_EQ(motion_guard(), 1);
    EXPECT_EQ(motion_level, 3);
    RiPolygon(4, "P", square, RI_NULL);  // the variadic forms call the array forms
    RiGeneralPolygon(1, nverts, "P", square, RI_NULL);
    RiPointsPolygons(1, nverts, verts, "P", square, RI_NULL);
    RiPointsGeneralPolygonsV(1, nloops, nverts, verts, 1, tokens, values);
    RiPatchV(RI_BILINEAR, 1, tokens, values);  // and the other way round
    RiPatchMesh(RI_BILINEAR, 2, RI_NONPERIODIC, 2, RI_NONPERIODIC, "P", square, RI_NULL);
    RiNuPatch(2, 2, knots, 0, 1, 2, 2, knots, 0, 1, "P", square, RI_NULL);
    RiSphereV(1, -1, 1, 360, 0, nullptr, nullptr);
    RiConeV(1, 1, 360, 1, tokens, values);
    RiCylinder(1, 0, 1, 360, RI_NULL);
    RiHyperboloidV(p1, p2, 360, 0, nullptr, nullptr);
    RiParaboloid(1, 0, 1, 360, RI_NULL);
    RiDiskV(0, 1, 360, 0, nullptr, nullptr);
    RiTorus(1, 0.25f, 0, 360, 360, RI_NULL);
    RiTrimCurve(0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                nullptr);  // takes no part in motion
    EXPECT_EQ(motion_level, 3 + 14);
}

// The derived matrices wait until they are read, and must then hold exactly
// what updating them at each request gives: M's inverse, normal and
// transpose concatenated in request order.
TEST_F(Transforms, DeferredDerivedMatricesMatchImmediateUpdatesBitForBit) {
    float inverse[4][4], normal[4][4], transpose[4][4];
    make_ident(inverse);
    make_ident(normal);
    make_ident(transpose);
    auto expect_applied = [&](const float m[4][4]) {
        float mi[4][4], mit[4][4], mt[4][4];
        matrix_invert(mi, m);
        matrix_transpose(mit, mi);
        matrix_transpose(mt, m);
        concat_matrix(inverse, mi, 0);
        concat_matrix(normal, mit, 1);
        concat_matrix(transpose, mt, 0);
    };
    RiIdentity();
    const float identity[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};
    expect_applied(identity);
    // More requests than the queue holds, and a copy in the middle, which
    // must carry every update made before it.
    for (int i = 0; i < 40; i++) {
        float m[4][4];
        if (i % 3 == 0) {
            RiTranslate(0.1f * i, -2.5f, 1e3f / (i + 1));
        } else if (i % 3 == 1) {
            RiRotate(17.0f * i, 1, 0.5f, -0.25f);
        } else {
            RiScale(1.5f, -0.75f, 1.0f + i);
        }
        std::memcpy(m, xform_scratch_matrix(), sizeof m);
        expect_applied(m);
        if (i == 20) RiTransformBegin();
    }
    const float(*got[3])[4] = {curxform->inverse0, curxform->normal0, curxform->transpose0};
    float point[3] = {1, 2, 3};
    inverse_transform_p_inplace(point, curxform);  // a read settles the record
    EXPECT_EQ(std::memcmp(got[0], inverse, sizeof inverse), 0);
    EXPECT_EQ(std::memcmp(got[1], normal, sizeof normal), 0);
    EXPECT_EQ(std::memcmp(got[2], transpose, sizeof transpose), 0);
    EXPECT_EQ(capture.count(), 0u);
}
