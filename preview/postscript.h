// The one-page PostScript output of -ps: the prologue written when the file
// is opened, the sink that writes each segment as a "Li" path and strokes
// after each object, and the trailer written when the sink is destroyed.
#ifndef TRACERY_PREVIEW_POSTSCRIPT_H
#define TRACERY_PREVIEW_POSTSCRIPT_H

#include <cstdio>

#include "preview/line_sink.h"

// Opens filename for writing (standard output when it is null), announces it
// on standard error and writes the prologue for the current resolution, with
// up to two centred titles. Returns null, after reporting code 2 severity 2
// with the file's name, when the file cannot be created.
FILE* OpenPostFile(const char* filename, const char* title1, const char* title2);

class PostScriptSink : public LineSink {
  public:
    // Writes to file, which it closes at the end unless it is standard output.
    explicit PostScriptSink(FILE* file) : file_(file) {}
    // Writes the trailer ("stroke", "showpage") and closes the file.
    ~PostScriptSink() override;
    PostScriptSink(const PostScriptSink&) = delete;
    PostScriptSink& operator=(const PostScriptSink&) = delete;

    void world_begin(int width, int height) override;
    void segment(int x0, int y0, int x1, int y1) override;
    void object_end() override;

  private:
    FILE* file_;
    int height_ = 0;
};

#endif  // TRACERY_PREVIEW_POSTSCRIPT_H
