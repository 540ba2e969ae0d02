// Picture files: each world block becomes a picture of the world's
// resolution, filled with the background colour, with every segment drawn
// as an antialiased one-pixel line in the colour in force.
//
// PNG pictures are drawn by LineRaster straight into a cairo image surface,
// which cairo writes as the PNG file at world end. SVG and PDF pictures are
// drawn as lines on cairo's vector surfaces, a stroke per object (and per
// colour); past VECTOR_LINES_MAX lines in one world block the rest are drawn
// by LineRaster into an image laid over the page. A stroke covers a pixel
// once however many of its lines cover it, so a line repeated within one
// stroke is left out (cairo's own strokes did that for the PNG pictures).
// Every file is written through a PictureFile, so a failure is reported with
// the system's reason.
#include "preview/picture_sink.h"

#include <cairo-pdf.h>
#include <cairo-svg.h>
#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "driver/globals.h"
#include "preview/line_raster.h"
#include "preview/picture_file.h"
#include "preview/segment_cull.h"
#include "support/error.h"

namespace {

// Lines gathered into one stroke even though the object has not ended, so
// that a huge object does not build a huge path.
constexpr long MAX_STROKE_LINES = 1 << 16;

// Rows in each strip of the image over a page past VECTOR_LINES_MAX.
constexpr int OVERLAY_STRIP_ROWS = 256;

// The memory of the lines of one stroke: 2^12 slots, 32 KB.
constexpr int STROKE_MEMORY_SLOTS_LOG2 = 12;

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

// One picture being drawn (or the one PDF document of the run).
struct PictureTarget {
    std::string name;
    PictureFile file;                    // SVG, PDF: what the surface writes through
    cairo_surface_t* surface = nullptr;  // PNG: the image; SVG, PDF: the vector surface
    cairo_t* cr = nullptr;               // SVG, PDF: the page being drawn
    // SVG, PDF: the image of the lines past the limit, in strips of rows
    // painted one by one, so that cairo converts one strip at a time.
    std::vector<cairo_surface_t*> overlay;
    LineRaster raster;  // draws into the PNG image or the overlay
    RecentKeys stroke_lines{STROKE_MEMORY_SLOTS_LOG2};
    bool drawing = false;  // a world block is being drawn
    int width = 0, height = 0;
    long stroke_count = 0;         // lines of the stroke being drawn
    long path_lines = 0;           // lines in the path not yet stroked
    long vector_lines = 0;         // lines on the page as lines
    bool document_failed = false;  // the one PDF document's failure is reported
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
    if (target_->drawing) finish_picture();
    close_document();
}

void PictureSink::world_begin(int width, int height) {
    if (target_->drawing) finish_picture();  // a world block that never ended
    if (width < 1 || height < 1 || static_cast<long>(width) * height > PICTURE_MAX_PIXELS) {
        QuillError(RIE_LIMIT, RIE_ERROR, "Picture of %d x %d pixels not drawn", width, height);
        ++number_;
        return;
    }
    if (!begin_target(width, height)) ++number_;
}

namespace {

void paint_background(cairo_t* cr, const float bg[3]) {
    cairo_set_source_rgb(cr, unit(bg[0]), unit(bg[1]), unit(bg[2]));
    cairo_paint(cr);
}

}  // namespace

// Makes the surface of the next picture and fills it with the background;
// false (reported) when the picture cannot be made.
bool PictureSink::begin_target(int width, int height) {
    PictureTarget& t = *target_;
    t.name = picture_file_name(pattern_, number_);
    t.width = width;
    t.height = height;
    t.stroke_count = t.path_lines = t.vector_lines = 0;
    t.stroke_lines.forget();
    if (kind_ == PictureKind::PNG) {
        t.surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
        if (cairo_surface_status(t.surface) != CAIRO_STATUS_SUCCESS) {
            report_failure(cairo_status_to_string(cairo_surface_status(t.surface)));
            cairo_surface_destroy(t.surface);
            t.surface = nullptr;
            return false;
        }
        cairo_t* cr = cairo_create(t.surface);
        paint_background(cr, bg_);
        cairo_destroy(cr);
        cairo_surface_flush(t.surface);
        t.raster.attach(reinterpret_cast<uint32_t*>(cairo_image_surface_get_data(t.surface)), width,
                        height, cairo_image_surface_get_stride(t.surface) / 4);
        t.raster.set_colour(fg_);
        t.drawing = true;
        return true;
    }
    if (one_document_ && t.document_failed) return false;
    if (one_document_ && t.surface) {
        cairo_pdf_surface_set_size(t.surface, width, height);  // the next page's size
    } else {
        if (!t.file.open(t.name)) {
            report_failure(t.file.reason().c_str());
            t.document_failed = one_document_;
            return false;
        }
        t.surface =
            kind_ == PictureKind::SVG
                ? cairo_svg_surface_create_for_stream(PictureFile::write, &t.file, width, height)
                : cairo_pdf_surface_create_for_stream(PictureFile::write, &t.file, width, height);
    }
    t.cr = cairo_create(t.surface);
    paint_background(t.cr, bg_);
    cairo_set_line_width(t.cr, 1.0);
    cairo_set_line_cap(t.cr, CAIRO_LINE_CAP_BUTT);
    cairo_set_source_rgb(t.cr, unit(fg_[0]), unit(fg_[1]), unit(fg_[2]));
    t.drawing = true;
    return true;
}

void PictureSink::segment(int x0, int y0, int x1, int y1) {
    PictureTarget& t = *target_;
    if (!t.drawing) return;
    // The same line either way round covers the same pixels.
    const bool forward = x0 < x1 || (x0 == x1 && y0 <= y1);
    const uint64_t key = forward ? line_key(x0, y0, x1, y1) : line_key(x1, y1, x0, y0);
    if (line_keyable(x0, y0, x1, y1) && t.stroke_lines.seen(key)) return;
    if (kind_ == PictureKind::PNG) {
        t.raster.draw(x0, y0, x1, y1);
    } else if (t.vector_lines < VECTOR_LINES_MAX) {
        draw_vector(x0, y0, x1, y1);
    } else {
        if (t.overlay.empty()) start_overlay();
        t.raster.draw(x0, y0, x1, y1);
    }
    if (++t.stroke_count >= MAX_STROKE_LINES) end_stroke();
}

void PictureSink::segments(const RasterSegment* s, size_t count) {
    for (size_t k = 0; k < count; ++k) PictureSink::segment(s[k].x0, s[k].y0, s[k].x1, s[k].y1);
}

// Segment ends are pixel indices; the centre of pixel (x, y) is at
// (x + 0.5, y + 0.5). An X11 line sets both of its end pixels, so the line is
// lengthened by half a pixel at each end (as a square cap would) and stroked
// with butt caps; a segment of zero length becomes its one pixel, which cairo
// would not stroke at all. LineRaster draws the same rectangle.
void PictureSink::draw_vector(int x0, int y0, int x1, int y1) {
    cairo_t* cr = target_->cr;
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
    ++target_->vector_lines;
    ++target_->path_lines;
}

// The page has as many lines as it holds: the rest of the world block is
// drawn into an image of the page's size, painted over the page at its end.
void PictureSink::start_overlay() {
    PictureTarget& t = *target_;
    end_stroke();
    std::vector<uint32_t*> rows;
    for (int top = 0; top < t.height; top += OVERLAY_STRIP_ROWS) {
        const int rows_here = std::min(OVERLAY_STRIP_ROWS, t.height - top);
        cairo_surface_t* strip =
            cairo_image_surface_create(CAIRO_FORMAT_ARGB32, t.width, rows_here);
        t.overlay.push_back(strip);
        if (cairo_surface_status(strip) != CAIRO_STATUS_SUCCESS) continue;
        cairo_surface_flush(strip);
        auto* pixels = reinterpret_cast<uint32_t*>(cairo_image_surface_get_data(strip));
        const int stride = cairo_image_surface_get_stride(strip) / 4;
        for (int y = 0; y < rows_here; ++y) rows.push_back(pixels + long(y) * stride);
    }
    if (static_cast<int>(rows.size()) == t.height) t.raster.attach(rows, t.width);
    t.raster.set_colour(fg_);
    forget_reported_line();  // each picture's report is its own
    QuillError(RIE_LIMIT, RIE_WARNING,
               "%s file %s: more than %ld lines in one world block; the rest are drawn as an image",
               kind_word(kind_), t.name.c_str(), VECTOR_LINES_MAX);
}

// Lines drawn as pixels (a PNG picture, the image over a full page) change
// nothing where every pixel they can touch, up to a pixel beyond the box,
// already has their colour; lines on a vector page always add to it. With
// no picture being drawn, lines are not drawn at all. A lattice left out is
// a stroke of its own, so no other line's repeat is caught otherwise for it.
bool PictureSink::box_drawn(int x0, int y0, int x1, int y1) {
    const PictureTarget& t = *target_;
    if (!t.drawing) return true;
    if (kind_ != PictureKind::PNG && t.overlay.empty()) return false;
    return t.raster.box_is_colour(long(x0) - 1, long(y0) - 1, long(x1) + 1, long(y1) + 1);
}

void PictureSink::end_stroke() {
    PictureTarget& t = *target_;
    if (t.cr && t.path_lines > 0) cairo_stroke(t.cr);
    t.path_lines = 0;
    t.stroke_count = 0;
    t.stroke_lines.forget();
}

void PictureSink::object_end() {
    end_stroke();
}

// The colour stays in force across world blocks until the next change, as
// the window's foreground does.
void PictureSink::color(const float rgb[3]) {
    end_stroke();
    copy_rgb(fg_, rgb);
    PictureTarget& t = *target_;
    t.raster.set_colour(rgb);
    if (t.cr) cairo_set_source_rgb(t.cr, unit(rgb[0]), unit(rgb[1]), unit(rgb[2]));
}

void PictureSink::world_end() {
    if (target_->drawing) finish_picture();
}

// Writes the picture of the world block that ends.
void PictureSink::finish_picture() {
    end_stroke();
    target_->drawing = false;
    ++number_;
    if (kind_ == PictureKind::PNG) {
        finish_png();
    } else {
        finish_vector();
    }
}

void PictureSink::finish_png() {
    PictureTarget& t = *target_;
    cairo_surface_mark_dirty(t.surface);
    PictureFile file;
    if (!file.open(t.name)) {
        report_failure(file.reason().c_str());
    } else {
        cairo_status_t status =
            cairo_surface_write_to_png_stream(t.surface, PictureFile::write, &file);
        file.close();
        if (file.failed()) {
            report_failure(file.reason().c_str());
        } else if (status != CAIRO_STATUS_SUCCESS) {
            report_failure(cairo_status_to_string(status));
        }
    }
    t.raster.detach();
    cairo_surface_destroy(t.surface);
    t.surface = nullptr;
}

// Paints the image of the lines past the limit over the page, then ends
// the page: the SVG or numbered PDF file is written and closed, or the page
// is added to the one PDF document.
void PictureSink::finish_vector() {
    PictureTarget& t = *target_;
    int top = 0;
    for (cairo_surface_t* strip : t.overlay) {
        cairo_surface_mark_dirty(strip);
        cairo_set_source_surface(t.cr, strip, 0, top);
        cairo_pattern_set_filter(cairo_get_source(t.cr), CAIRO_FILTER_NEAREST);
        cairo_paint(t.cr);
        top += OVERLAY_STRIP_ROWS;
        cairo_surface_destroy(strip);  // the page holds it now
    }
    t.overlay.clear();
    t.raster.detach();
    if (one_document_) cairo_show_page(t.cr);
    cairo_destroy(t.cr);
    t.cr = nullptr;
    if (one_document_) {
        // The page is written now: a disk that is full says so at this
        // world block rather than at the end of the run.
        t.file.flush();
        cairo_status_t status = cairo_surface_status(t.surface);
        if ((status != CAIRO_STATUS_SUCCESS || t.file.failed()) && !t.document_failed) {
            report_failure(t.file.failed() ? t.file.reason().c_str()
                                           : cairo_status_to_string(status));
            t.document_failed = true;
        }
        return;  // the document stays open for the next page
    }
    cairo_surface_finish(t.surface);
    cairo_status_t status = cairo_surface_status(t.surface);
    cairo_surface_destroy(t.surface);
    t.surface = nullptr;
    t.file.close();
    if (t.file.failed()) {
        report_failure(t.file.reason().c_str());
    } else if (status != CAIRO_STATUS_SUCCESS) {
        report_failure(cairo_status_to_string(status));
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
    t.file.close();
    if ((status != CAIRO_STATUS_SUCCESS || t.file.failed()) && !t.document_failed) {
        report_failure(t.file.failed() ? t.file.reason().c_str() : cairo_status_to_string(status));
    }
}

// Each failure is about a picture file of its own, so it is reported even
// when another picture's failure was just reported from the same line.
void PictureSink::report_failure(const char* reason) {
    forget_reported_line();
    QuillError(RIE_SYSTEM, RIE_ERROR, "Could not write %s file %s: %s", kind_word(kind_),
               target_->name.c_str(), reason);
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
