// The pixel made without asking the server must be the one XAllocColor
// answers, or the window would show other colours than it did. Runs against
// the X server of the test run (ctest runs under Xvfb); skipped without one.
// gtest comes first: Xlib's macros (None, Bool, ...) would break it.
#include <gtest/gtest.h>

#include <random>

#include "preview/x11_window.h"

TEST(X11Colour, TrueColorPixelIsTheServersAnswer) {
    Display* display = XOpenDisplay(nullptr);
    if (display == nullptr) GTEST_SKIP() << "no X display";
    const Visual* visual = DefaultVisual(display, DefaultScreen(display));
    unsigned long pixel = 0;
    const float black[3] = {0, 0, 0};
    if (!truecolor_pixel(visual, black, &pixel)) {
        XCloseDisplay(display);
        GTEST_SKIP() << "the screen is not eight-bit TrueColor";
    }
    std::mt19937 random(7);
    std::uniform_real_distribution<float> component(-0.1f, 1.1f);
    for (int i = 0; i < 2000; i++) {
        const float rgb[3] = {component(random), component(random), component(random)};
        ASSERT_TRUE(truecolor_pixel(visual, rgb, &pixel));
        EXPECT_EQ(pixel, alloc_color(display, rgb))
            << "colour " << rgb[0] << " " << rgb[1] << " " << rgb[2];
    }
    XCloseDisplay(display);
}
