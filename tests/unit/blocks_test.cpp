// Block structure: nesting errors and the state they leave, frames saving
// and restoring options, and the null hider.
#include <gtest/gtest.h>

#include <cstring>
#include <new>

#include "preview/x11_previewer.h"
#include "ri/attributes.h"
#include "ri/renderer.h"
#include "ri/transforms.h"
#include "state_fixture.h"

using BlockStructure = InterfaceStateTest;

TEST_F(BlockStructure, LegalSequenceReportsNothing) {
    RiBegin(RI_NULL);
    RiWorldBegin();  // a world right after RiBegin, without a frame, is legal
    EXPECT_EQ(block_level, BLOCK_GLOBAL | BLOCK_WORLD);
    RiWorldEnd();
    EXPECT_EQ(block_level, BLOCK_GLOBAL);
    RiFrameBegin(1);
    RiWorldBegin();
    EXPECT_EQ(block_level, BLOCK_GLOBAL | BLOCK_FRAME | BLOCK_WORLD);
    RiWorldEnd();
    RiFrameEnd();
    EXPECT_EQ(attribute_stack_depth(), 0);
    EXPECT_EQ(transform_stack_depth(), 0);
    RiEnd();
    EXPECT_EQ(block_level, 0);
    EXPECT_EQ(renderer, nullptr);
    EXPECT_EQ(capture.count(), 0u);
}

// Each misuse is reported as a severe nesting error and then carried out.
TEST_F(BlockStructure, MisuseIsReportedAndCarriedOut) {
    struct Case {
        void (*calls)();
        const char* text;
        int level_after;
    };
    const Case cases[] = {
        {[] { RiBegin(RI_NULL), RiBegin(RI_NULL); }, "RiBegin must be called at the NULL level", 1},
        {[] { RiBegin(RI_NULL), RiFrameBegin(1), RiWorldBegin(), RiEnd(); },
         "RiEnd called at inappropriate level", 0},
        {[] { RiBegin(RI_NULL), RiFrameBegin(1), RiWorldBegin(), RiFrameEnd(); },
         "RiFrameEnd called inside world level", 5},
        // The frame bit is toggled, so an unmatched end sets it (and then
        // finds no attribute level to close).
        {[] { RiBegin(RI_NULL), RiFrameEnd(); },
         "RiFrameEnd called without corresponding RiFrameBegin", 3},
        {[] { RiBegin(RI_NULL), RiFrameBegin(1), RiFrameBegin(2); },
         "RiFrameBegin must be called at the GLOBAL level", 3},
        {[] { RiWorldBegin(); }, "RiWorldBegin called at inappropriate level", 4},
        {[] { RiBegin(RI_NULL), RiWorldBegin(), RiMotionBegin(2, 0.0, 1.0), RiWorldEnd(); },
         "RiWorldEnd called at inappropriate level", 9},
    };
    for (const Case& c : cases) {
        reset_interface_state();
        capture.clear();
        c.calls();
        ASSERT_GE(capture.count(), 1u) << c.text;
        EXPECT_EQ(capture.errors()[0].code, 24);
        EXPECT_EQ(capture.errors()[0].severity, 3);
        EXPECT_EQ(capture.errors()[0].message, c.text);
        EXPECT_EQ(block_level, c.level_after) << c.text;
    }
}

// The renderer's option record starts clean, whatever its memory held: the
// link of the option stack is null, not left over.
TEST_F(BlockStructure, NewRendererStartsWithANullOptionLink) {
    alignas(X11VectorPreviewer) unsigned char storage[sizeof(X11VectorPreviewer)];
    std::memset(storage, 0xab, sizeof storage);
    block_level = BLOCK_GLOBAL;
    auto* fresh = new (storage) X11VectorPreviewer();
    EXPECT_EQ(fresh->next, nullptr);
    EXPECT_EQ(fresh->xres, 640);
    fresh->~X11VectorPreviewer();
}

TEST_F(BlockStructure, FrameOptionsAreUndoneAtFrameEnd) {
    RiBegin(RI_NULL);
    RiFormat(320, 240, 1.0f);
    RiFrameBegin(1);
    RiFormat(100, 50, 1.0f);
    RiFrameEnd();
    EXPECT_EQ(renderer->xres, 320);
    EXPECT_EQ(renderer->yres, 240);
    // The frame number was stored before the record was pushed.
    EXPECT_EQ(renderer->frame_number, 1);
    RiFrameBegin(2);
    EXPECT_EQ(renderer->xres, 320);
    RiFrameEnd();
    EXPECT_EQ(goption_stack, nullptr);
}

TEST_F(BlockStructure, NullHiderWorldOpensNoLevelAndEndClosesTheFrames) {
    RiBegin(RI_NULL);
    RiFrameBegin(1);
    RiHider("NULL", RI_NULL);
    RiTranslate(1, 2, 3);
    Transformation* before = curxform;
    RiWorldBegin();
    EXPECT_EQ(attribute_stack_depth(), 1);
    EXPECT_EQ(curxform, before);           // no reset to the identity
    EXPECT_EQ(renderer->camera, nullptr);  // no camera set-up
    RiWorldEnd();
    EXPECT_EQ(attribute_stack_depth(), 0);
    EXPECT_EQ(capture.count(), 0u);
    RiFrameEnd();
    EXPECT_TRUE(only_report(24, 2, "Attribute stack underflow"));
}

// Everything allocated in a frame is released at its end, so the frame ends
// no earlier than the blocks opened in it (they are closed with one report),
// and its requests never close the blocks around it: no state that outlives
// the frame can hold what the frame's end releases.
TEST_F(BlockStructure, FrameEndClosesWhatTheFrameLeftOpen) {
    RiBegin(RI_NULL);
    RiAttributeBegin();
    GState* outer = renderer->gstate;
    RiFrameBegin(1);
    RiAttributeBegin();
    RiAttributeBegin();
    RiTransformBegin();
    EXPECT_EQ(capture.count(), 0u);
    RiFrameEnd();
    EXPECT_TRUE(
        only_report(RIE_NESTING, RIE_ERROR, "FrameEnd closes the blocks left open in the frame"));
    EXPECT_EQ(attribute_stack_depth(), 1);
    EXPECT_EQ(transform_stack_depth(), 1);
    EXPECT_EQ(renderer->gstate, outer);
}

TEST_F(BlockStructure, RequestsInAFrameCannotCloseTheBlocksAroundIt) {
    RiBegin(RI_NULL);
    RiAttributeBegin();
    RiFrameBegin(1);
    GState* frame_state = renderer->gstate;
    RiAttributeEnd();  // the frame's own level
    RiAttributeEnd();  // the level around the frame
    EXPECT_EQ(capture.count(), 2u);
    for (const CapturedError& e : capture.errors())
        EXPECT_EQ(e.message, "Attribute stack underflow");
    EXPECT_EQ(renderer->gstate, frame_state);
    capture.clear();
    RiFrameEnd();
    RiAttributeEnd();
    EXPECT_EQ(attribute_stack_depth(), 0);
    EXPECT_EQ(capture.count(), 0u);
}
