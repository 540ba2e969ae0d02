// Tests that the texture-making, geometry and archive requests accept long
// parameter lists silently.
#include <gtest/gtest.h>

#include "capture.h"
#include "ri/ri.h"

namespace {

TEST(TextureRequests, ArrayFormsAreSilent) {
    ScopedErrorCapture capture;
    float value = 1.0f;
    RtToken tokens[25];
    RtPointer values[25];
    for (int i = 0; i < 25; ++i) tokens[i] = "width", values[i] = &value;
    testing::internal::CaptureStderr();
    RiGeometryV("teapot", 25, tokens, values);
    RiMakeTextureV("a.tif", "a.tx", "periodic", "clamp", nullptr, 1, 1, 25, tokens, values);
    RiMakeCubeFaceEnvironmentV("px", "nx", "py", "ny", "pz", "nz", "c.env", 95, nullptr, 1, 1, 25,
                               tokens, values);
    RiMakeBumpV("b.tif", "b.tx", "black", "black", nullptr, 2, 2, 25, tokens, values);
    RiMakeLatLongEnvironmentV("l.tif", "l.env", nullptr, 1, 1, 25, tokens, values);
    RiMakeShadowV("z.zfile", "z.shad", 25, tokens, values);
    RiArchiveRecordV("comment", "hello", 0, tokens, values);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(capture.count(), 0u);
}

}  // namespace
