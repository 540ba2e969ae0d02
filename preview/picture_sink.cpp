// Picture files drawn through cairo: each world block becomes a picture of
// the world's resolution, filled with the background colour, with every
// segment stroked as an antialiased one-pixel line in the colour in force.
// PNG pictures are drawn on an image surface and written at world end; SVG
// and PDF pictures are drawn straight onto their vector surfaces, so the
// three kinds share every drawing call.
#include "preview/picture_sink.h"

#include <cairo-pdf.h>
#include <cairo-svg.h>
#include <cairo.h>

#include <cmath>
#include <cstdio>
#include <cstring>

#include "driver/globals.h"
#include "support/error.h"

namespace {

// Segments gathered into one path before it is stroked even though the
// object has not ended, so that a huge object does not build a huge path.
constexpr long MAX_PENDING_SEGMENTS = 1 << 16;

// Longest field width honoured in a numbered name.
constexpr int MAX_NUMBER_WIDTH = 64;

// Where the "%d" conversion of a pattern is: [start, end) of its text, with
// the flags and width it carries.
struct NumberConversion {
    size_t start = std::string::npos;
    size_t end = 0;
    std::string flags;
    int width = 0;
};

NumberConversion find_conversion(const std::string& pattern) {
    NumberConversion found;
    for (size_t at = pattern.find('%'); at != std::string::npos; at = pattern.find('%', at + 1)) {
        size_t p = at + 1;
        if (p < pattern.size() && pattern[p] == '%') {
            at = p;  // "%%" is kept as written and starts no conversion
            continue;
        }
        std::string flags;
        while (p < pattern.size() && pattern[p] != '\0' && std::strchr("-+ 0#", pattern[p])) {
            flags += pattern[p++];
        }
        int width = 0;
        while (p < pattern.size() && pattern[p] >= '0' && pattern[p] <= '9') {
            if (width <= MAX_NUMBER_WIDTH) width = width * 10 + (pattern[p] - '0');
            ++p;
        }
        if (p < pattern.size() && pattern[p] == 'd') {
            found.start = at;
            found.end = p + 1;
            found.flags = flags;
            found.width = width > MAX_NUMBER_WIDTH ? MAX_NUMBER_WIDTH : width;
            return found;
        }
    }
    return found;
}

// A colour component held to 0..1 (NaN gives 0).
double unit(float c) {
    if (!(c > 0.0f)) return 0.0;
    return c >= 1.0f ? 1.0 : static_cast<double>(c);
}

void copy_rgb(float out[3], const float in[3]) {
    for (int k = 0; k < 3; ++k) out[k] = in[k];
}

const char* kind_word(PictureKind kind) {
    switch (kind) {
        case PictureKind::PNG:
            return "PNG";
        case PictureKind::SVG:
            return "SVG";
        case PictureKind::PDF:
            return "PDF";
    }
    return "picture";
}

}  // namespace

std::string picture_file_name(const std::string& pattern, int number) {
    NumberConversion c = find_conversion(pattern);
    if (c.start == std::string::npos) return pattern;
    // The format is built only from the flag characters and digits checked
    // above, so it is a single well-formed int conversion.
    char format[32];
    std::snprintf(format, sizeof format, "%%%s%dd", c.flags.c_str(), c.width);
    char digits[MAX_NUMBER_WIDTH + 16];
    std::snprintf(digits, sizeof digits, format, number);
    return pattern.substr(0, c.start) + digits + pattern.substr(c.end);
}

bool picture_name_is_numbered(const std::string& pattern) {
    return find_conversion(pattern).start != std::string::npos;
}

// The surface being drawn on and its drawing context; a surface in an error
// state (a file that cannot be written) swallows the drawing, and the
// failure is reported once when the picture is finished.
struct PictureTarget {
    cairo_surface_t* surface = nullptr;
    cairo_t* cr = nullptr;
    std::string name;
    bool reported = false;
};

PictureSink::PictureSink(PictureKind kind, const char* name_pattern, const float fg[3],
                         const float bg[3])
    : kind_(kind),
      pattern_(name_pattern ? name_pattern : ""),
      one_document_(kind == PictureKind::PDF && !picture_name_is_numbered(pattern_)),
      target_(new PictureTarget) {
    copy_rgb(fg_, fg);
    copy_rgb(bg_, bg);
}

PictureSink::~PictureSink() {
    if (target_->cr) finish_picture();
    close_document();
    delete target_;
}

void PictureSink::world_begin(int width, int height) {
    if (target_->cr) finish_picture();  // a world block that never ended
    if (width < 1 || height < 1 || static_cast<long>(width) * height > PICTURE_MAX_PIXELS) {
        QuillError(RIE_LIMIT, RIE_ERROR, "Picture of %d x %d pixels not drawn", width, height);
        ++number_;
        return;
    }
    begin_target(width, height);
    cairo_t* cr = target_->cr;
    cairo_set_source_rgb(cr, unit(bg_[0]), unit(bg_[1]), unit(bg_[2]));
    cairo_paint(cr);
    cairo_set_line_width(cr, 1.0);
    cairo_set_line_cap(cr, CAIRO_LINE_CAP_BUTT);
    cairo_set_source_rgb(cr, unit(fg_[0]), unit(fg_[1]), unit(fg_[2]));
    pending_ = 0;
}

void PictureSink::begin_target(int width, int height) {
    PictureTarget& t = *target_;
    t.name = picture_file_name(pattern_, number_);
    if (kind_ == PictureKind::PNG) {
        t.surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
    } else if (kind_ == PictureKind::SVG) {
        t.surface = cairo_svg_surface_create(t.name.c_str(), width, height);
    } else if (!one_document_ || !t.surface) {
        t.surface = cairo_pdf_surface_create(t.name.c_str(), width, height);
    } else {
        cairo_pdf_surface_set_size(t.surface, width, height);  // the next page's size
    }
    t.cr = cairo_create(t.surface);
}

// Segment ends are pixel indices; the centre of pixel (x, y) is at
// (x + 0.5, y + 0.5). An X11 line sets both of its end pixels, so the line is
// lengthened by half a pixel at each end (as a square cap would) and stroked
// with butt caps; a segment of zero length becomes its one pixel, which cairo
// would not stroke at all.
void PictureSink::segment(int x0, int y0, int x1, int y1) {
    cairo_t* cr = target_->cr;
    if (!cr) return;
    double dx = static_cast<double>(x1) - x0;
    double dy = static_cast<double>(y1) - y0;
    double length = std::sqrt(dx * dx + dy * dy);
    if (length > 0.0) {
        dx = 0.5 * dx / length;
        dy = 0.5 * dy / length;
    } else {
        dx = 0.5;
    }
    cairo_move_to(cr, x0 + 0.5 - dx, y0 + 0.5 - dy);
    cairo_line_to(cr, x1 + 0.5 + dx, y1 + 0.5 + dy);
    if (++pending_ >= MAX_PENDING_SEGMENTS) stroke_pending();
}

void PictureSink::stroke_pending() {
    if (target_->cr && pending_ > 0) cairo_stroke(target_->cr);
    pending_ = 0;
}

void PictureSink::object_end() {
    stroke_pending();
}

// The colour stays in force across world blocks until the next change, as
// the window's foreground does.
void PictureSink::color(const float rgb[3]) {
    stroke_pending();
    copy_rgb(fg_, rgb);
    if (target_->cr) cairo_set_source_rgb(target_->cr, unit(rgb[0]), unit(rgb[1]), unit(rgb[2]));
}

void PictureSink::world_end() {
    if (target_->cr) finish_picture();
}

// Writes the picture of the world block that ends: the PNG file, the SVG or
// numbered PDF file, or the page of the one PDF document.
void PictureSink::finish_picture() {
    PictureTarget& t = *target_;
    stroke_pending();
    if (kind_ == PictureKind::PDF && one_document_) cairo_show_page(t.cr);
    cairo_destroy(t.cr);
    t.cr = nullptr;
    cairo_status_t status = cairo_surface_status(t.surface);
    if (kind_ == PictureKind::PNG && status == CAIRO_STATUS_SUCCESS) {
        status = cairo_surface_write_to_png(t.surface, t.name.c_str());
    }
    ++number_;
    if (one_document_) {
        if (status != CAIRO_STATUS_SUCCESS && !t.reported) {
            QuillError(RIE_SYSTEM, RIE_ERROR, "Could not write %s file %s: %s", kind_word(kind_),
                       t.name.c_str(), cairo_status_to_string(status));
            t.reported = true;
        }
        return;  // the document stays open for the next page
    }
    cairo_surface_finish(t.surface);
    if (status == CAIRO_STATUS_SUCCESS) status = cairo_surface_status(t.surface);
    cairo_surface_destroy(t.surface);
    t.surface = nullptr;
    if (status != CAIRO_STATUS_SUCCESS) {
        QuillError(RIE_SYSTEM, RIE_ERROR, "Could not write %s file %s: %s", kind_word(kind_),
                   t.name.c_str(), cairo_status_to_string(status));
    }
}

// Ends the one PDF document of the run, if there is one.
void PictureSink::close_document() {
    PictureTarget& t = *target_;
    if (!t.surface) return;
    cairo_surface_finish(t.surface);
    cairo_status_t status = cairo_surface_status(t.surface);
    cairo_surface_destroy(t.surface);
    t.surface = nullptr;
    if (status != CAIRO_STATUS_SUCCESS && !t.reported) {
        QuillError(RIE_SYSTEM, RIE_ERROR, "Could not write %s file %s: %s", kind_word(kind_),
                   t.name.c_str(), cairo_status_to_string(status));
    }
}

std::vector<std::unique_ptr<LineSink>> make_picture_sinks() {
    std::vector<std::unique_ptr<LineSink>> sinks;
    auto add = [&sinks](PictureKind kind, const char* name) {
        if (name) sinks.push_back(std::make_unique<PictureSink>(kind, name, fg_color, bg_color));
    };
    add(PictureKind::PNG, png_filename);
    add(PictureKind::SVG, svg_filename);
    add(PictureKind::PDF, pdf_filename);
    return sinks;
}
