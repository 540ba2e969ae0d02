// Test fixture for drawing: a previewer made by RiBegin with a 640 by 480
// raster of 1/64 screen units a pixel and identity transformations, and a
// sink that records every segment and object end it is handed.
#ifndef TRACERY_TESTS_UNIT_DRAWING_FIXTURE_H
#define TRACERY_TESTS_UNIT_DRAWING_FIXTURE_H

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "preview/line_sink.h"
#include "preview/projection.h"
#include "preview/x11_previewer.h"
#include "ri/options.h"
#include "ri/transforms.h"
#include "state_fixture.h"

using Segment = std::array<int, 4>;

// Records segments; an object end is recorded as the segment {-1, -1, -1, -1}.
class RecordingSink : public LineSink {
  public:
    explicit RecordingSink(std::vector<Segment>* log) : log_(log) {}
    void segment(int x0, int y0, int x1, int y1) override { log_->push_back({x0, y0, x1, y1}); }
    void object_end() override { log_->push_back({-1, -1, -1, -1}); }

  private:
    std::vector<Segment>* log_;
};

class DrawingTest : public InterfaceStateTest {
  protected:
    static constexpr float PIXEL = 1.0f / 64;  // exact in binary

    void SetUp() override {
        InterfaceStateTest::SetUp();
        RiBegin(RI_NULL);
        renderer->xres = 640;
        renderer->yres = 480;
        renderer->projection = 1;
        renderer->camera = nullptr;
        xstep = ystep = PIXEL;
        previewer()->add_sink(std::make_unique<RecordingSink>(&segments));
    }

    // Projects (x, y, z) and returns the projected triple.
    static std::array<float, 3> project(float x, float y, float z) {
        float p[3] = {x, y, z};
        toscreen(p);
        return {p[0], p[1], p[2]};
    }

    std::vector<Segment> segments;
};

#endif  // TRACERY_TESTS_UNIT_DRAWING_FIXTURE_H
