// Attributes: the 128-level stack with its overflow and underflow, the
// graphics state pool, copy on write, objects, RiBasis, RiColor and the
// statistics report.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "preview/x11_previewer.h"
#include "ri/attributes.h"
#include "ri/renderer.h"
#include "ri/transforms.h"
#include "state_fixture.h"

namespace {

// A previewer that records the colours it is asked to draw in.
class ColorRecorder : public X11VectorPreviewer {
  public:
    void set_color(const float rgb[3]) override { colors.push_back(rgb[0] * 100 + rgb[2]); }
    std::vector<float> colors;  // red * 100 + blue, one per call
};

class Attributes : public InterfaceStateTest {
  protected:
    void SetUp() override {
        InterfaceStateTest::SetUp();
        RiBegin(RI_NULL);
    }
    // Puts a recorder in place of the renderer made by RiBegin.
    ColorRecorder* install_recorder() {
        GState* root = renderer->gstate;
        delete renderer;
        auto* recorder = new ColorRecorder();
        recorder->gstate = root;
        renderer = recorder;
        return recorder;
    }
};

}  // namespace

TEST_F(Attributes, StackHolds128LevelsOfCopiedStates) {
    GState* root = renderer->gstate;
    for (int i = 0; i < ATTRIBUTE_STACK_MAX; ++i) RiAttributeBegin();
    EXPECT_EQ(capture.count(), 0u);
    RiAttributeBegin();
    ASSERT_GE(capture.count(), 1u);
    EXPECT_EQ(capture.errors()[0].code, 13);
    EXPECT_EQ(capture.errors()[0].severity, 3);
    EXPECT_EQ(capture.errors()[0].message, "Attribute stack overflow");
    EXPECT_EQ(attribute_stack_depth(), 129);
    capture.clear();
    for (int i = 0; i < 129; ++i) RiAttributeEnd();
    EXPECT_EQ(capture.count(), 0u);
    EXPECT_EQ(renderer->gstate, root);
    EXPECT_EQ(transform_stack_depth(), 0);
    // Underflow changes nothing, not even an open transformation level.
    RiTransformBegin();
    RiAttributeEnd();
    EXPECT_TRUE(only_report(24, 2, "Attribute stack underflow"));
    EXPECT_EQ(renderer->gstate, root);
    EXPECT_EQ(transform_stack_depth(), 1);

    // Each level copies the state; RiBasis takes a standard basis by address, others by copy.
    RiAttributeBegin();
    EXPECT_NE(renderer->gstate, root);
    RtBasis custom = {{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 12}, {13, 14, 15, 16}};
    RiBasis(RiBSplineBasis, 1, custom, 300);
    GState* state = renderer->gstate;
    EXPECT_EQ(state->ubasis, RiBSplineBasis);
    EXPECT_NE(state->vbasis, custom);
    EXPECT_FLOAT_EQ(state->vbasis[3][2], 15);
    EXPECT_EQ(state->ustep, 1);
    EXPECT_EQ(state->vstep, 300 - 256);  // steps wrap as bytes
    EXPECT_EQ(root->ubasis, RiBezierBasis);
    float(*stored)[4] = state->vbasis;
    RiBasis(RiBSplineBasis, 1, custom, 3);  // the same values again keep the copy
    EXPECT_EQ(state->vbasis, stored);
    custom[0][0] = -1;
    RiBasis(custom, 1, RiBSplineBasis, 3);  // other values make a new one
    EXPECT_FLOAT_EQ(state->ubasis[0][0], -1);
    EXPECT_FLOAT_EQ(stored[0][0], 1);
    RiAttributeEnd();
    EXPECT_EQ(renderer->gstate, root);
    EXPECT_EQ(renderer->gstate->ustep, 3);
}

TEST_F(Attributes, ReadyGStateCopiesASharedState) {
    GState* shared = renderer->gstate;
    shared->flags |= GSTATE_SHARED | 0x18000u;
    GState* ready = renderer->ready_gstate();
    EXPECT_NE(ready, shared);
    EXPECT_EQ(ready->flags, 0x602u);  // shared bit and bits 15..19 cleared
    EXPECT_NE(shared->flags & GSTATE_SHARED, 0u);
    EXPECT_EQ(renderer->ready_gstate(), ready);  // no second copy
}

// The weights U x B the standard bases give their four control points at u.
TEST_F(Attributes, StandardBasesWeighTheirControlPoints) {
    const struct {
        RtBasis& basis;
        float u, w[4];
    } cases[] = {
        {RiBezierBasis, 0.5f, {0.125f, 0.375f, 0.375f, 0.125f}},
        {RiBezierBasis, 1, {0, 0, 0, 1}},
        {RiBSplineBasis, 0, {1.0f / 6, 4.0f / 6, 1.0f / 6, 0}},
        {RiCatmullRomBasis, 1, {0, 0, 1, 0}},
        {RiHermiteBasis, 1, {0, 0, 1, 0}},
        {RiPowerBasis, 0.5f, {0.125f, 0.25f, 0.5f, 1}},
    };
    for (const auto& c : cases) {
        const float powers[4] = {c.u * c.u * c.u, c.u * c.u, c.u, 1};
        for (int col = 0; col < 4; ++col) {
            float w = 0;
            for (int row = 0; row < 4; ++row) w += powers[row] * c.basis[row][col];
            EXPECT_NEAR(w, c.w[col], 1e-6) << "u " << c.u << " column " << col;
        }
    }
}

TEST_F(Attributes, ObjectHandlesCountAndInstanceWarnsOnce) {
    RiObjectBegin();
    RiObjectEnd();
    RtObjectHandle second = RiObjectBegin();  // handles count from 0
    RiObjectEnd();
    EXPECT_EQ(second, reinterpret_cast<RtObjectHandle>(1));
    EXPECT_EQ(attribute_stack_depth(), 0);
    RiObjectInstance(second);
    RiObjectInstance(second);
    EXPECT_TRUE(only_report(12, 1, "ObjectInstance not supported in tracery"));
}

TEST_F(Attributes, ColorTakesTheFirstMotionSampleAndOutlivesItsLevel) {
    ColorRecorder* recorder = install_recorder();
    RiWorldBegin();
    RtColor red = {1, 0, 0}, blue = {0, 0, 1};
    RiMotionBegin(2, 0.0, 1.0);
    RiColor(red);
    RiColor(blue);
    RiMotionEnd();
    EXPECT_EQ(capture.count(), 0u);
    EXPECT_EQ(recorder->colors, std::vector<float>{100});
    RiAttributeBegin();
    RiColor(blue);
    RiAttributeEnd();  // no colour is restored
    EXPECT_EQ(recorder->colors, (std::vector<float>{100, 1}));
    use_colors = 0;
    RiColor(red);
    use_colors = 1;
    EXPECT_EQ(recorder->colors.size(), 2u);
}

TEST_F(Attributes, AcceptedRequestsCountMotionSamples) {
    RiWorldBegin();
    RiMotionBegin(2, 0.0, 1.0);
    RiOpacity(nullptr);
    RiSurfaceV("plastic", 0, nullptr, nullptr);
    EXPECT_EQ(motion_level, 3);
    RiMotionEnd();
    EXPECT_EQ(capture.count(), 0u);
    EXPECT_EQ(RiLightSource("ambientlight", RI_NULL), nullptr);
}

TEST_F(Attributes, PoolTakesFirstFreeStateReleasesByTagAndGrows) {
    GState* root = renderer->gstate;
    RiFrameBegin(1);
    GState* frame_state = renderer->gstate;
    EXPECT_EQ(frame_state, root + 1);
    RiFrameEnd();                       // releases the states tagged with the frame bit
    EXPECT_EQ(GState::memstats[2], 1);  // the root (tag 1) survives
    RiAttributeBegin();
    EXPECT_EQ(renderer->gstate, frame_state);
    RiAttributeEnd();
    const int states = 128 * 512 + 1;
    for (int i = 0; i < states; ++i) ASSERT_NE(new GState(nullptr), nullptr);
    EXPECT_EQ(gstate_pool_blocks(), 129);  // grown past 128 blocks
    EXPECT_EQ(capture.count(), 0u);
}

TEST_F(Attributes, PrintStatsReportsPeakInKilobytes) {
    GState::memstats[0] = 1000;  // requested
    GState::memstats[1] = 700;   // peak
    GState::memstats[2] = 600;   // outstanding
    testing::internal::CaptureStderr();
    GState::printstats();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Graphics State stats:\n"
              "    GStates allocated: 1000 requested, 600 outstanding, 700 peak (196 kb)\n");
}
