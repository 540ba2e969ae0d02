// The one-page PostScript output of -ps: OpenPostFile with its prologue, the
// sink that turns segments into "Li" lines and objects into strokes, and the
// trailer. Every frame of a run goes onto the one page.
#include "preview/postscript.h"

#include "ri/renderer.h"
#include "support/error.h"

FILE* OpenPostFile(const char* filename, const char* title1, const char* title2) {
    FILE* f = filename ? fopen(filename, "w") : stdout;
    if (f == nullptr) {
        QuillError(RIE_SYSTEM, RIE_ERROR, "Could not create PostScript file \"%s\"", filename);
        return nullptr;
    }
    fprintf(stderr, "Writing file (%s)\n", filename ? filename : "standard output");
    // The page is one pixel larger than the picture: x is shifted by one and
    // y flipped against the height (see PostScriptSink::segment).
    int h = (renderer ? renderer->xres : 0) + 1;
    int v = (renderer ? renderer->yres : 0) + 1;
    fputs("%!\n", f);
    fprintf(f, "%%%%Creator: tracery\n%%%%Title: ");
    fprintf(f, "file:(%s): ", RIB_filename ? RIB_filename : "");
    fputs("RIB file previewer PostScript output\n\n", f);
    fprintf(f, "%%%%BoundingBox: 1 1 %d %d\n%%%%EndComments\n\n", h, v);
    fputs("1 setlinewidth\n\n", f);
    fputs("/Tr{moveto lineto lineto closepath stroke} def\n", f);
    fputs("/Li{moveto lineto} def\n", f);
    fputs("/Ar{moveto lineto lineto lineto lineto stroke} def\n", f);
    fputs("/centershow{dup stringwidth pop 576 exch sub 2 div 50 ", f);
    fputs("moveto show} def\n\n", f);
    fputs("/centershow2{dup stringwidth pop 576 exch sub 2 div 90 ", f);
    fputs("moveto show} def\n\n", f);
    fputs("/Times-Roman findfont 15 scalefont setfont\n", f);
    if (title1) fprintf(f, "(\"%s\") centershow\n\n", title1);
    if (title2) fprintf(f, "(\"%s\") centershow2\n\n", title2);
    fprintf(f, "newpath 1 1 moveto\n%d 0 rlineto\n0 %d rlineto\n", h, v);
    fprintf(f, "-%d 0 rlineto\nclosepath clip\n", h);
    return f;
}

PostScriptSink::~PostScriptSink() {
    fputs("\nstroke\nshowpage\n", file_);
    if (file_ == stdout) {
        fflush(file_);
    } else {
        fclose(file_);
    }
}

// The height of the world block in force flips y (raster y grows down, page
// y grows up).
void PostScriptSink::world_begin(int, int height) {
    height_ = height;
}

// x + 1 and H - y (not H - 1 - y) match the bounding box and clip path of the
// prologue. "Li" only builds the path; object_end strokes it.
void PostScriptSink::segment(int x0, int y0, int x1, int y1) {
    fprintf(file_, "%d %d %d %d Li\n", x0 + 1, height_ - y0, x1 + 1, height_ - y1);
}

void PostScriptSink::object_end() {
    fputs("stroke\n", file_);
}
