// The reference for the PNG pictures: the lines of a scene stroked by
// cairo's own antialiasing stroker, as the pictures were drawn before they
// had a rasterizer of their own, and the share of a PNG picture's pixels
// that differ from it.
//
//   stroke_reference SCENE.rib PICTURE.png REFERENCE.png
//
// reads the scene through the interface (no display; from the scene's
// folder, so that its archives are found), strokes the lines of its last
// world block into REFERENCE.png as the pictures were stroked (one path per
// object, stroked at the object's end, at a colour change and every 65536
// lines; one-pixel antialiased lines with butt caps, lengthened by half a
// pixel at each end), then prints
//
//   pixels N changed C over8 E over32 F
//
// N being the pixels compared, and C, E and F the pixels of PICTURE.png
// whose largest difference from the reference in any channel is above 0, 8
// and 32 (of 255). Exit status 1 when a picture cannot be read or the sizes
// differ.
#include <cairo.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "driver/globals.h"
#include "preview/line_sink.h"
#include "preview/x11_previewer.h"
#include "ri/renderer.h"
#include "rib/requests.h"

namespace {

constexpr long MAX_STROKE_LINES = 1 << 16;

double unit(float c) {
    return c > 0.0f ? (c >= 1.0f ? 1.0 : c) : 0.0;
}

class StrokeSink : public LineSink {
  public:
    explicit StrokeSink(std::string name) : name_(std::move(name)) {}
    ~StrokeSink() override { end_picture(); }
    void world_begin(int width, int height) override {
        end_picture();
        surface_ = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
        cr_ = cairo_create(surface_);
        cairo_set_source_rgb(cr_, unit(bg_color[0]), unit(bg_color[1]), unit(bg_color[2]));
        cairo_paint(cr_);
        cairo_set_line_width(cr_, 1.0);
        cairo_set_line_cap(cr_, CAIRO_LINE_CAP_BUTT);
        cairo_set_source_rgb(cr_, unit(colour_[0]), unit(colour_[1]), unit(colour_[2]));
    }
    void segment(int x0, int y0, int x1, int y1) override {
        if (!cr_) return;
        double dx = double(x1) - x0, dy = double(y1) - y0;
        const double length = std::sqrt(dx * dx + dy * dy);
        dx = length > 0 ? 0.5 * dx / length : 0.5;
        dy = length > 0 ? 0.5 * dy / length : 0.0;
        cairo_move_to(cr_, x0 + 0.5 - dx, y0 + 0.5 - dy);
        cairo_line_to(cr_, x1 + 0.5 + dx, y1 + 0.5 + dy);
        if (++pending_ >= MAX_STROKE_LINES) stroke();
    }
    void object_end() override { stroke(); }
    void color(const float rgb[3]) override {
        stroke();
        for (int k = 0; k < 3; ++k) colour_[k] = rgb[k];
        if (cr_) cairo_set_source_rgb(cr_, unit(rgb[0]), unit(rgb[1]), unit(rgb[2]));
    }

  private:
    void stroke() {
        if (cr_ && pending_ > 0) cairo_stroke(cr_);
        pending_ = 0;
    }
    void end_picture() {
        if (!cr_) return;
        stroke();
        cairo_destroy(cr_);
        cr_ = nullptr;
        cairo_surface_write_to_png(surface_, name_.c_str());
        cairo_surface_destroy(surface_);
    }
    std::string name_;
    cairo_surface_t* surface_ = nullptr;
    cairo_t* cr_ = nullptr;
    long pending_ = 0;
    float colour_[3] = {fg_color[0], fg_color[1], fg_color[2]};
};

std::string absolute(const std::string& path) {
    if (!path.empty() && path[0] == '/') return path;
    char here[4096];
    return std::string(getcwd(here, sizeof here) ? here : ".") + "/" + path;
}

uint32_t pixel(cairo_surface_t* s, int x, int y) {
    const unsigned char* row =
        cairo_image_surface_get_data(s) + y * cairo_image_surface_get_stride(s);
    return reinterpret_cast<const uint32_t*>(row)[x];
}

int largest_difference(uint32_t a, uint32_t b) {
    int most = 0;
    for (int shift = 0; shift < 24; shift += 8) {
        most = std::max(most, std::abs(int(a >> shift & 0xff) - int(b >> shift & 0xff)));
    }
    return most;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: stroke_reference SCENE.rib PICTURE.png REFERENCE.png\n");
        return 2;
    }
    const std::string scene = absolute(argv[1]), picture = absolute(argv[2]),
                      reference = absolute(argv[3]);
    const std::string folder = scene.substr(0, scene.rfind('/'));
    if (chdir(folder.c_str()) != 0) return 1;
    x11_window_enabled = 0;
    RiBegin(RI_NULL);
    previewer()->add_sink(std::make_unique<StrokeSink>(reference));
    ParseRIB(scene.c_str(), renderer->include_path, 0, 1);
    RiEnd();

    cairo_surface_t* a = cairo_image_surface_create_from_png(picture.c_str());
    cairo_surface_t* b = cairo_image_surface_create_from_png(reference.c_str());
    if (cairo_surface_status(a) != CAIRO_STATUS_SUCCESS ||
        cairo_surface_status(b) != CAIRO_STATUS_SUCCESS ||
        cairo_image_surface_get_width(a) != cairo_image_surface_get_width(b) ||
        cairo_image_surface_get_height(a) != cairo_image_surface_get_height(b)) {
        std::fprintf(stderr, "the pictures cannot be compared\n");
        return 1;
    }
    const int width = cairo_image_surface_get_width(a), height = cairo_image_surface_get_height(a);
    long changed = 0, over8 = 0, over32 = 0;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const int d = largest_difference(pixel(a, x, y), pixel(b, x, y));
            changed += d > 0;
            over8 += d > 8;
            over32 += d > 32;
        }
    }
    std::printf("pixels %ld changed %ld over8 %ld over32 %ld\n", long(width) * height, changed,
                over8, over32);
    cairo_surface_destroy(a);
    cairo_surface_destroy(b);
    return 0;
}
