// Picture files: a LineSink that draws every world block into a PNG, SVG or
// PDF file written by cairo, and the numbering of picture file names.
#ifndef TRACERY_PREVIEW_PICTURE_SINK_H
#define TRACERY_PREVIEW_PICTURE_SINK_H

#include <memory>
#include <string>
#include <vector>

#include "preview/line_sink.h"

enum class PictureKind { PNG, SVG, PDF };

// The file name of picture number `number` (counted from 0 in the run): the
// first "%d" conversion of the pattern, with its optional flags and width
// ("%04d"), is replaced by the number; every other character, other '%'
// sequences included, is kept as written. A pattern without a conversion is
// returned unchanged.
std::string picture_file_name(const std::string& pattern, int number);
// Whether the pattern holds a "%d" conversion.
bool picture_name_is_numbered(const std::string& pattern);

// Largest picture drawn, in pixels; a world block above it is reported and
// makes no picture (an image surface of that size is 256 MB already).
constexpr long PICTURE_MAX_PIXELS = 8192L * 8192L;

// Lines of one world block an SVG or PDF picture holds as lines. cairo keeps
// a page's drawing in memory until the page is written (an SVG file's whole
// text), some 60 bytes a line; the lines past this many are drawn into an
// image laid over the page instead, so that memory stays bounded however
// many lines a world block has. Reported once per picture.
constexpr long VECTOR_LINES_MAX = 250000;

struct PictureTarget;  // the surfaces, file and raster of one picture

class PictureSink : public LineSink {
  public:
    // fg is the colour lines start in (RiColor changes it through color());
    // bg fills each picture before anything is drawn.
    PictureSink(PictureKind kind, const char* name_pattern, const float fg[3], const float bg[3]);
    ~PictureSink() override;
    PictureSink(const PictureSink&) = delete;
    PictureSink& operator=(const PictureSink&) = delete;

    void world_begin(int width, int height) override;
    void segment(int x0, int y0, int x1, int y1) override;
    void segments(const RasterSegment* s, size_t count) override;
    bool box_drawn(int x0, int y0, int x1, int y1) override;
    bool may_know_drawn() const override { return true; }
    void object_end() override;
    void color(const float rgb[3]) override;
    void world_end() override;

    // Pictures written (or begun) so far: the number the next one gets.
    int pictures() const { return number_; }

  private:
    bool begin_target(int width, int height);
    void draw_vector(int x0, int y0, int x1, int y1);
    void draw_raster(int x0, int y0, int x1, int y1);
    void start_overlay();
    void end_stroke();
    void finish_picture();
    void finish_png();
    void finish_vector();
    void close_document();
    void report_failure(const char* reason);

    PictureKind kind_;
    std::string pattern_;
    // A PDF whose name has no number holds every world block as a page of
    // one document, kept open for the whole run.
    bool one_document_;
    float fg_[3];
    float bg_[3];
    int number_ = 0;
    std::unique_ptr<PictureTarget> target_;
};

// The picture sinks the command line asks for (-png, -svg, -pdf), lines
// starting in fg_color on bg_color; empty when none is asked for.
std::vector<std::unique_ptr<LineSink>> make_picture_sinks();

#endif  // TRACERY_PREVIEW_PICTURE_SINK_H
