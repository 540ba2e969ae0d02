// Memory given back at the end of attribute and transformation levels: a
// frame of many blocks stays in the same pool chunks, the statistics count
// only the live states, and records that something still refers to (a named
// coordinate system, the camera, an outer level) survive their level.
#include <gtest/gtest.h>

#include "math/transform.h"
#include "ri/attributes.h"
#include "ri/renderer.h"
#include "ri/transforms.h"
#include "state_fixture.h"
#include "support/memory.h"

namespace {

class ScopeMemory : public InterfaceStateTest {
  protected:
    void SetUp() override {
        InterfaceStateTest::SetUp();
        RiBegin(RI_NULL);
        RiFrameBegin(1);
    }
    // Where the current transformation takes the point (1, 2, 3).
    static float moved_x() {
        float p[3] = {1, 2, 3};
        transform_p_inplace(p, curxform);
        return p[0];
    }
};

}  // namespace

TEST_F(ScopeMemory, ManyBlocksInOneFrameReuseTheSameSlots) {
    RiTranslate(1, 0, 0);
    const long outstanding = GState::memstats[2];
    for (int i = 0; i < 5000; ++i) {
        RiAttributeBegin();
        RiTranslate(float(i), 0, 0);
        RiRotate(30, 0, 1, 0);
        RiTransformBegin();
        RiScale(2, 2, 2);
        RiTransformEnd();
        RiAttributeEnd();
    }
    EXPECT_EQ(capture.count(), 0u);
    // 5000 blocks would take five chunks of records and twenty of matrices
    // if nothing came back before the frame's end.
    EXPECT_EQ(transformation_pool().chunk_count(), 1);
    EXPECT_EQ(matrix_pool().chunk_count(), 1);
    EXPECT_EQ(gstate_pool_blocks(), 1);
    EXPECT_EQ(GState::memstats[2], outstanding);
    EXPECT_EQ(GState::memstats[1], outstanding + 1);  // peak: one block open at a time
    EXPECT_FLOAT_EQ(moved_x(), 2.0f);                 // the outer translation is intact
}

TEST_F(ScopeMemory, ReferencedRecordsOutliveTheirLevel) {
    RiAttributeBegin();
    RiTranslate(10, 0, 0);
    RiCoordinateSystem("inner");
    RiTranslate(5, 0, 0);
    RiAttributeEnd();
    // New blocks must not be handed the named system's record or matrices.
    for (int i = 0; i < 100; ++i) {
        RiAttributeBegin();
        RiTranslate(-100, 0, 0);
        RiAttributeEnd();
    }
    RiCoordSysTransform("inner");
    EXPECT_FLOAT_EQ(moved_x(), 11.0f);

    // The camera survives the level that made it.
    RiTransformBegin();
    RiTranslate(3, 0, 0);
    Transformation* camera = curxform;
    renderer->camera = camera;
    RiTransformEnd();
    for (int i = 0; i < 100; ++i) {
        RiTransformBegin();
        RiScale(7, 7, 7);
        RiTransformEnd();
    }
    float p[3] = {1, 2, 3};
    transform_p_inplace(p, camera);
    EXPECT_FLOAT_EQ(p[0], 14.0f);  // the named system's 10, then 3
    EXPECT_EQ(capture.count(), 0u);
}
