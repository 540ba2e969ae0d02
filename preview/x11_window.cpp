// The X11 window "Pencil Test": opening the display, the window with its
// title and close protocol, the pixmap and graphics contexts, colour
// allocation, the wait for the window to be mapped, the final wait for a key
// or button, the test lines that show what the server's thin lines do, and
// the pixmap sink that draws the picture's lines.
#include "preview/x11_window.h"

#include <X11/Xatom.h>
#include <X11/Xutil.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "driver/globals.h"
#include "math/clip_parameter.h"
#include "support/error.h"

namespace {

constexpr char WINDOW_TITLE[] = "Pencil Test";
// The events the window asks for: keys and buttons for the final wait,
// structure changes (mapping, destruction), and exposure, so that an
// uncovered window is redrawn from the pixmap.
constexpr long EVENT_MASK =
    KeyPressMask | ButtonPressMask | ButtonReleaseMask | StructureNotifyMask | ExposureMask;
// Windows and pixmaps are held to this size on each side: the protocol
// carries sizes in 16 bits, and a larger pixmap would rarely be granted.
constexpr int MAX_WINDOW_SIDE = 4096;
// Instead of sleeping a fixed second after mapping, the window's MapNotify
// is awaited, at most this long (a window manager may never map it).
constexpr int MAP_WAIT_MS = 1000;

// Displays whose connection broke. Xlib keeps calling into a broken
// connection's handlers, so such a display is never closed; it is kept here
// (reachable) until the process ends.
std::vector<Display*>& lost_displays() {
    static auto* list = new std::vector<Display*>();
    return *list;
}

// The graphics contexts of a broken connection, kept reachable with it.
std::vector<GC>& lost_gcs() {
    static auto* list = new std::vector<GC>();
    return *list;
}

bool is_lost(Display* display) {
    const auto& lost = lost_displays();
    return std::find(lost.begin(), lost.end(), display) != lost.end();
}

// A broken connection (the server went away) must not end the program with
// Xlib's exit status: the wait is ended and the run closes normally.
int on_io_error(Display*) {
    return 0;
}

void on_io_error_exit(Display* display, void*) {
    if (!is_lost(display)) lost_displays().push_back(display);
}

// A protocol error (a request the server refused) is reported as a warning
// instead of ending the program as Xlib's default handler does.
int on_x_error(Display* display, XErrorEvent* event) {
    char text[128];
    XGetErrorText(display, event->error_code, text, sizeof text);
    QuillError(RIE_SYSTEM, RIE_WARNING, "X11 request %d failed: %s", event->request_code, text);
    return 0;
}

// One colour component in 16 bits; out-of-range values are held to 0..1
// (and NaN to 0) so that the conversion is defined.
unsigned short component16(float value) {
    if (!(value > 0.0f)) return 0;
    if (value >= 1.0f) return 65535;
    return static_cast<unsigned short>(value * 65535.0);
}

int window_side(int resolution) {
    return std::clamp(resolution, 1, MAX_WINDOW_SIDE);
}

}  // namespace

unsigned long alloc_color(Display* display, const float rgb[3]) {
    XColor color{};
    color.red = component16(rgb[0]);
    color.green = component16(rgb[1]);
    color.blue = component16(rgb[2]);
    color.flags = DoRed | DoGreen | DoBlue;
    int screen = DefaultScreen(display);
    if (XAllocColor(display, DefaultColormap(display, screen), &color)) return color.pixel;
    // White is the nearer of the two exactly when the components add up to
    // more than half of their largest sum.
    double sum = double(color.red) + color.green + color.blue;
    return sum > 1.5 * 65535.0 ? WhitePixel(display, screen) : BlackPixel(display, screen);
}

std::unique_ptr<X11Window> X11Window::open(const char* display_name, int width, int height,
                                           bool report_failure) {
    Display* display = XOpenDisplay(display_name);
    if (display == nullptr) {
        if (report_failure) RMError(RIE_SYSTEM, RIE_SEVERE, "Could not open X11 display.");
        return nullptr;
    }
    XSetIOErrorHandler(on_io_error);
    XSetIOErrorExitHandler(display, on_io_error_exit, nullptr);
    XSetErrorHandler(on_x_error);
    std::unique_ptr<X11Window> w(new X11Window());
    w->display = display;
    w->width = window_side(width);
    w->height = window_side(height);
    w->create_window();
    return w;
}

void X11Window::create_window() {
    screen = DefaultScreen(display);
    foreground_pixel = alloc_color(display, fg_color);
    background_pixel = alloc_color(display, bg_color);
    window = XCreateSimpleWindow(display, RootWindow(display, screen), 0, 0, width, height, 0,
                                 foreground_pixel, background_pixel);
    XSelectInput(display, window, EVENT_MASK);
    XChangeProperty(display, window, XA_WM_NAME, XA_STRING, 8, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(WINDOW_TITLE), sizeof WINDOW_TITLE - 1);
    // Being closed by the window manager arrives as a message instead of a
    // broken connection.
    wm_protocols_ = XInternAtom(display, "WM_PROTOCOLS", False);
    wm_delete_window_ = XInternAtom(display, "WM_DELETE_WINDOW", False);
    XSetWMProtocols(display, window, &wm_delete_window_, 1);
    XMapRaised(display, window);

    XGCValues values{};
    values.foreground = foreground_pixel;
    values.background = background_pixel;
    // No GraphicsExpose / NoExpose events for the pixmap copies: nothing
    // reads them, and they would pile up over a long animation.
    values.graphics_exposures = False;
    unsigned long mask = GCForeground | GCBackground | GCGraphicsExposures;
    foreground_gc = XCreateGC(display, window, mask, &values);
    values.foreground = background_pixel;
    background_gc = XCreateGC(display, window, mask, &values);
    XClearWindow(display, window);
    pixmap = XCreatePixmap(display, window, width, height, DefaultDepth(display, screen));
    XFlush(display);
    drawing_pixel_ = foreground_pixel;
    short_lines = probe_short_lines(display, window, DefaultDepth(display, screen));
    wait_until_mapped();
}

void X11Window::wait_until_mapped() {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(MAP_WAIT_MS);
    XEvent event;
    while (!is_lost(display)) {
        if (XCheckTypedWindowEvent(display, window, MapNotify, &event)) return;
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) return;
        pollfd fd{ConnectionNumber(display), POLLIN, 0};
        poll(&fd, 1, static_cast<int>(left.count()));
    }
}

X11Window::~X11Window() {
    if (display == nullptr) return;
    send_pending();
    if (is_lost(display)) {
        lost_gcs().push_back(foreground_gc);
        lost_gcs().push_back(background_gc);
        return;
    }
    XFreePixmap(display, pixmap);
    XFreeGC(display, foreground_gc);
    XFreeGC(display, background_gc);
    XDestroySubwindows(display, window);
    XDestroyWindow(display, window);
    XCloseDisplay(display);
}

void X11Window::clear() {
    send_pending();
    if (is_lost(display)) return;
    XFillRectangle(display, pixmap, background_gc, 0, 0, width, height);
}

void X11Window::show() {
    send_pending();
    if (is_lost(display)) return;
    XCopyArea(display, pixmap, window, foreground_gc, 0, 0, width, height, 0, 0);
    XFlush(display);
}

namespace {

// Whether mask is eight contiguous bits; *shift receives the lowest.
bool eight_bit_channel(unsigned long mask, int* shift) {
    if (mask == 0) return false;
    *shift = __builtin_ctzl(mask);
    return mask >> *shift == 0xff;
}

}  // namespace

bool truecolor_pixel(const Visual* visual, const float rgb[3], unsigned long* pixel) {
    int shift[3];
    if (visual->c_class != TrueColor || visual->bits_per_rgb != 8 ||
        !eight_bit_channel(visual->red_mask, &shift[0]) ||
        !eight_bit_channel(visual->green_mask, &shift[1]) ||
        !eight_bit_channel(visual->blue_mask, &shift[2])) {
        return false;
    }
    *pixel = 0;
    for (int c = 0; c < 3; c++) *pixel |= (unsigned long)(component16(rgb[c]) >> 8) << shift[c];
    return true;
}

unsigned long X11Window::cached_pixel(const float rgb[3]) {
    unsigned long pixel;
    if (truecolor_pixel(DefaultVisual(display, screen), rgb, &pixel)) return pixel;
    const uint64_t key = uint64_t(component16(rgb[0])) << 32 | uint64_t(component16(rgb[1])) << 16 |
                         component16(rgb[2]);
    auto found = pixel_cache_.find(key);
    if (found != pixel_cache_.end()) return found->second;
    pixel = alloc_color(display, rgb);
    pixel_cache_.emplace(key, pixel);
    return pixel;
}

bool X11Window::set_foreground(const float rgb[3]) {
    if (is_lost(display)) return false;
    const unsigned long pixel = cached_pixel(rgb);
    if (pixel == drawing_pixel_) return false;
    send_pending();
    drawing_pixel_ = pixel;
    XGCValues values{};
    values.foreground = pixel;
    XChangeGC(display, foreground_gc, GCForeground, &values);
    return true;
}

void X11Window::set_line_width(int width) {
    send_pending();
    if (is_lost(display)) return;
    if (width > 0) {
        XSetLineAttributes(display, foreground_gc, width, LineSolid, CapRound, JoinRound);
    } else {
        XSetLineAttributes(display, foreground_gc, 0, LineSolid, CapButt, JoinMiter);
    }
}

void X11Window::send_pending() {
    if (!is_lost(display)) {
        if (line_count_ > 0) {
            XDrawSegments(display, pixmap, foreground_gc, pending_lines_.data(),
                          static_cast<int>(line_count_));
        }
        if (point_count_ > 0) {
            XDrawPoints(display, pixmap, foreground_gc, pending_points_.data(),
                        static_cast<int>(point_count_), CoordModeOrigin);
        }
    }
    line_count_ = point_count_ = 0;
}

// Any key ends the wait; a button asks for the files to be read again. The
// wait also ends, with no repeat, when the window manager closes the window,
// the window is destroyed, or the connection is lost, so the program never
// waits on a window that is gone.
X11Window::WaitEnd X11Window::wait_for_key_or_button() {
    send_pending();
    WaitEnd end;
    while (!is_lost(display)) {
        // Only queued events are taken: Xlib cannot return from a blocking
        // XNextEvent on a broken connection, but XPending reports it.
        while (XPending(display) > 0 && !is_lost(display)) {
            if (handle_wait_event(&end)) return end;
        }
        if (is_lost(display)) break;
        pollfd fd{ConnectionNumber(display), POLLIN, 0};
        poll(&fd, 1, -1);
        // The server going away wakes the poll; XPending then notices.
        if (fd.revents & (POLLHUP | POLLERR)) XPending(display);
    }
    return WaitEnd::CLOSED;
}

bool X11Window::handle_wait_event(WaitEnd* end) {
    XEvent event;
    XNextEvent(display, &event);
    switch (event.type) {
        case KeyPress:
            *end = WaitEnd::KEY;
            return true;
        case ButtonPress:
            *end = WaitEnd::BUTTON;
            return true;
        case Expose:
            if (event.xexpose.count == 0) show();
            return false;
        case DestroyNotify:
            *end = WaitEnd::CLOSED;
            return event.xdestroywindow.window == window;
        case ClientMessage:
            *end = WaitEnd::CLOSED;
            return event.xclient.message_type == wm_protocols_ &&
                   static_cast<Atom>(event.xclient.data.l[0]) == wm_delete_window_;
        default:
            return false;
    }
}

// ---- Test lines ----

namespace {

// Each offset is drawn in a cell of its own, from a point far enough from
// the cell's edges that a line keeping to the box of its ends stays inside.
constexpr int PROBE_CELL = 2 * ShortLinePatterns::REACH + 5;
constexpr int PROBE_START = ShortLinePatterns::REACH + 2;

}  // namespace

ShortLinePatterns probe_short_lines(Display* display, Drawable drawable, int depth) {
    using Patterns = ShortLinePatterns;
    Patterns patterns;
    if (is_lost(display)) return patterns;
    const int width = Patterns::SIDE * PROBE_CELL, height = Patterns::SIDE * PROBE_CELL;
    Pixmap scratch = XCreatePixmap(display, drawable, width, height, depth);
    XGCValues values{};
    values.foreground = 0;
    values.graphics_exposures = False;
    GC gc = XCreateGC(display, scratch, GCForeground | GCGraphicsExposures, &values);
    XFillRectangle(display, scratch, gc, 0, 0, width, height);
    XSetForeground(display, gc, 1);
    std::vector<XSegment> lines;
    for (int row = 0; row < Patterns::SIDE; ++row) {
        for (int column = 0; column < Patterns::SIDE; ++column) {
            const int x = column * PROBE_CELL + PROBE_START, y = row * PROBE_CELL + PROBE_START;
            const int dx = column - Patterns::REACH, dy = row - Patterns::REACH;
            lines.push_back({short(x), short(y), short(x + dx), short(y + dy)});
        }
    }
    XDrawSegments(display, scratch, gc, lines.data(), static_cast<int>(lines.size()));
    XImage* image = XGetImage(display, scratch, 0, 0, width, height, AllPlanes, ZPixmap);
    XFreeGC(display, gc);
    XFreePixmap(display, scratch);
    if (image == nullptr) return patterns;
    // A pixel beyond the box of a line's ends (one pixel of slack) means the
    // cells may have run into each other, and more pixels than the longer
    // side of that box make no thin line: nothing is known then.
    bool plausible = true;
    for (int row = 0; row < Patterns::SIDE; ++row) {
        for (int column = 0; column < Patterns::SIDE; ++column) {
            const int dx = column - Patterns::REACH, dy = row - Patterns::REACH;
            Patterns::Pattern& pattern = patterns.of(dx, dy);
            const int most = std::max(std::abs(dx), std::abs(dy)) + 1;
            for (int y = 0; y < PROBE_CELL; ++y) {
                for (int x = 0; x < PROBE_CELL; ++x) {
                    if (XGetPixel(image, column * PROBE_CELL + x, row * PROBE_CELL + y) == 0)
                        continue;
                    const int ox = x - PROBE_START, oy = y - PROBE_START;
                    if (ox < std::min(0, dx) - 1 || ox > std::max(0, dx) + 1 ||
                        oy < std::min(0, dy) - 1 || oy > std::max(0, dy) + 1 ||
                        pattern.count == most) {
                        plausible = false;
                        continue;
                    }
                    pattern.dx[pattern.count] = int8_t(ox);
                    pattern.dy[pattern.count] = int8_t(oy);
                    ++pattern.count;
                }
            }
        }
    }
    XDestroyImage(image);
    patterns.known = plausible;
    return patterns;
}

namespace {

// The long lines probed: each of these (longer side, shorter side) pairs in
// each of the eight octants. Around 48 pixels the steps across fall at every
// fraction of a pixel, halves included, near halves on both sides, and at
// 130 a rule that drifts along the line (one rounding the line's slope, say)
// shows.
constexpr int PROBED_SIDES[][2] = {{47, 0},  {47, 1},  {47, 5},   {47, 11}, {47, 16}, {47, 23},
                                   {47, 24}, {47, 31}, {47, 46},  {47, 47}, {48, 1},  {48, 5},
                                   {48, 11}, {48, 16}, {48, 23},  {48, 24}, {48, 25}, {48, 31},
                                   {48, 47}, {130, 1}, {130, 37}, {130, 65}};
constexpr int LONG_PROBE_MARGIN = 3;
constexpr int LONG_PROBE_WIDTH = 640;

struct LongProbeLine {
    int dx, dy;  // the line's offset
    int x, y;    // its first end in its shelf
    int cell_x, cell_width, cell_height;
};

// Every probed line in a cell of its own, the cells side by side in shelves
// LONG_PROBE_WIDTH wide, lines along x before lines along y so that a shelf
// holds cells of like heights. Each shelf is drawn and read back in turn.
std::vector<std::vector<LongProbeLine>> long_probe_shelves() {
    std::vector<std::vector<LongProbeLine>> shelves(1);
    int x = 0;
    for (int y_major = 0; y_major < 2; ++y_major) {
        for (const auto& sides : PROBED_SIDES) {
            for (int signs = 0; signs < 4; ++signs) {
                const int along = (signs & 1) ? -sides[0] : sides[0];
                const int across = (signs & 2) ? -sides[1] : sides[1];
                LongProbeLine line{};
                line.dx = y_major ? across : along;
                line.dy = y_major ? along : across;
                line.cell_width = std::abs(line.dx) + 2 * LONG_PROBE_MARGIN + 1;
                line.cell_height = std::abs(line.dy) + 2 * LONG_PROBE_MARGIN + 1;
                if (x + line.cell_width > LONG_PROBE_WIDTH) {
                    shelves.emplace_back();
                    x = 0;
                }
                line.cell_x = x;
                line.x = x + LONG_PROBE_MARGIN + std::max(0, -line.dx);
                line.y = LONG_PROBE_MARGIN + std::max(0, -line.dy);
                x += line.cell_width;
                shelves.back().push_back(line);
            }
        }
    }
    return shelves;
}

bool probed_as_nearest(XImage* image, const LongProbeLine& line) {
    long count = 0;
    for (int y = 0; y < line.cell_height; ++y) {
        for (int x = 0; x < line.cell_width; ++x) {
            count += XGetPixel(image, line.cell_x + x, y) != 0;
        }
    }
    return drawn_as_nearest(line.dx, line.dy, count, [&](int ox, int oy) {
        return XGetPixel(image, line.x + ox, line.y + oy) != 0;
    });
}

// Draws one shelf's lines into the cleared scratch pixmap and reads them back.
bool shelf_as_nearest(Display* display, Pixmap scratch, GC gc,
                      const std::vector<LongProbeLine>& shelf) {
    int height = 0;
    std::vector<XSegment> lines;
    for (const LongProbeLine& l : shelf) {
        height = std::max(height, l.cell_height);
        lines.push_back({short(l.x), short(l.y), short(l.x + l.dx), short(l.y + l.dy)});
    }
    XSetForeground(display, gc, 0);
    XFillRectangle(display, scratch, gc, 0, 0, LONG_PROBE_WIDTH, height);
    XSetForeground(display, gc, 1);
    XDrawSegments(display, scratch, gc, lines.data(), static_cast<int>(lines.size()));
    XImage* image = XGetImage(display, scratch, 0, 0, LONG_PROBE_WIDTH, height, AllPlanes, ZPixmap);
    if (image == nullptr) return false;
    bool nearest = true;
    for (const LongProbeLine& line : shelf) nearest = nearest && probed_as_nearest(image, line);
    XDestroyImage(image);
    return nearest;
}

}  // namespace

bool probe_long_lines(Display* display, Drawable drawable, int depth) {
    if (is_lost(display)) return false;
    const std::vector<std::vector<LongProbeLine>> shelves = long_probe_shelves();
    int height = 0;
    for (const auto& shelf : shelves) {
        for (const LongProbeLine& l : shelf) height = std::max(height, l.cell_height);
    }
    Pixmap scratch = XCreatePixmap(display, drawable, LONG_PROBE_WIDTH, height, depth);
    XGCValues values{};
    values.graphics_exposures = False;
    GC gc = XCreateGC(display, scratch, GCGraphicsExposures, &values);
    bool nearest = true;
    for (const auto& shelf : shelves) {
        nearest = nearest && shelf_as_nearest(display, scratch, gc, shelf);
    }
    XFreeGC(display, gc);
    XFreePixmap(display, scratch);
    return nearest;
}

bool X11Window::long_lines_drawn_nearest() {
    if (long_lines_ == Probed::NOT_YET) {
        const bool nearest = probe_long_lines(display, window, DefaultDepth(display, screen));
        long_lines_ = nearest ? Probed::NEAREST : Probed::OTHER;
    }
    return long_lines_ == Probed::NEAREST;
}

// ---- The pixmap sink ----

namespace {

// X11 carries line ends as 16-bit numbers. A segment reaching past them is
// first cut (Liang-Barsky) to a square well inside that range, which leaves
// every pixel inside the window where it was.
constexpr double X_COORD_LIMIT = 16384.0;

bool fits_x_protocol(int v) {
    return v >= -32768 && v <= 32767;
}

// Cuts the segment to the square |x|, |y| <= X_COORD_LIMIT; false when
// nothing of it is left.
bool clip_to_protocol_range(int* x0, int* y0, int* x1, int* y1) {
    double ax = *x0, ay = *y0, dx = double(*x1) - ax, dy = double(*y1) - ay;
    double t0 = 0.0, t1 = 1.0;
    const double L = X_COORD_LIMIT;
    if (!clip_parameter(-dx, ax + L, &t0, &t1) || !clip_parameter(dx, L - ax, &t0, &t1) ||
        !clip_parameter(-dy, ay + L, &t0, &t1) || !clip_parameter(dy, L - ay, &t0, &t1)) {
        return false;
    }
    *x0 = static_cast<int>(std::lround(ax + t0 * dx));
    *y0 = static_cast<int>(std::lround(ay + t0 * dy));
    *x1 = static_cast<int>(std::lround(ax + t1 * dx));
    *y1 = static_cast<int>(std::lround(ay + t1 * dy));
    return true;
}

}  // namespace

X11PixmapSink::X11PixmapSink(X11Window& window)
    : window_(window),
      culling_allowed_(true),
      culling_(true),
      culler_(window.width, window.height, window.short_lines) {
    const char* setting = std::getenv("TRACERY_WINDOW_CULLING");
    if (setting && std::strcmp(setting, "off") == 0) culling_allowed_ = culling_ = false;
}

// Every world block clears the pixmap. A later world with another
// resolution keeps the first window and pixmap, whose whole area is cleared.
void X11PixmapSink::world_begin(int, int) {
    window_.clear();
    culler_.forget();
}

// A line's pixels lie inside the box of its ends, so a segment whose ends
// are both beyond one edge of the pixmap leaves it untouched and is not sent:
// in a scene seen from close by most segments are, and each costs protocol.
// A segment reaching past the 16 bits of the protocol is cut first. False
// when nothing is left to draw.
bool X11PixmapSink::fit_to_pixmap(int* x0, int* y0, int* x1, int* y1) const {
    const auto width = unsigned(window_.width), height = unsigned(window_.height);
    if (unsigned(*x0) < width && unsigned(*x1) < width && unsigned(*y0) < height &&
        unsigned(*y1) < height) {
        return true;  // the common case: both ends inside the pixmap
    }
    if ((*x0 < 0 && *x1 < 0) || (*y0 < 0 && *y1 < 0) ||
        (*x0 >= window_.width && *x1 >= window_.width) ||
        (*y0 >= window_.height && *y1 >= window_.height)) {
        return false;
    }
    bool inside = fits_x_protocol(*x0) && fits_x_protocol(*y0) && fits_x_protocol(*x1) &&
                  fits_x_protocol(*y1);
    return inside || clip_to_protocol_range(x0, y0, x1, y1);
}

void X11PixmapSink::segment(int x0, int y0, int x1, int y1) {
    const RasterSegment s{x0, y0, x1, y1};
    segments(&s, 1);
}

// The lines are fitted straight into the window's batch, and the culler
// turns them into the lines and points to send.
void X11PixmapSink::segments(const RasterSegment* s, size_t count) {
    apply_color();
    constexpr size_t PART = 4096;
    constexpr size_t POINTS_A_LINE = ShortLinePatterns::MAX_PIXELS;
    while (count > 0) {
        const size_t part = std::min(count, PART);
        if (culling_ && culler_.long_lines_untested()) {
            culler_.long_lines_tested(window_.long_lines_drawn_nearest());
        }
        X11Window::Room room = window_.room_for(part, culling_ ? part * POINTS_A_LINE : 0);
        XSegment* line = room.lines;
        for (size_t k = 0; k < part; ++k) {
            int x0 = s[k].x0, y0 = s[k].y0, x1 = s[k].x1, y1 = s[k].y1;
            if (fit_to_pixmap(&x0, &y0, &x1, &y1)) {
                *line++ = {short(x0), short(y0), short(x1), short(y1)};
            }
        }
        XPoint* point = room.points;
        if (culling_) line = culler_.cull(room.lines, line, &point);
        window_.written(line, point);
        s += part;
        count -= part;
    }
}

// The culler's bitmap knows the pixels of the short lines drawn in the
// foreground since it last forgot; the colour asked about is the next
// lines' colour, so a pending one is applied first.
bool X11PixmapSink::box_drawn(int x0, int y0, int x1, int y1) {
    if (!culling_) return false;
    apply_color();
    return culler_.box_drawn(x0, y0, x1, y1);
}

void X11PixmapSink::color(const float rgb[3]) {
    std::copy(rgb, rgb + 3, pending_color_);
    color_pending_ = true;
}

void X11PixmapSink::apply_color() {
    if (!color_pending_) return;
    color_pending_ = false;
    if (window_.set_foreground(pending_color_)) culler_.forget();
}

// What was sent so far goes with the old width; a wide line covers pixels
// that no thin-line pattern or memory of drawn pixels describes.
void X11PixmapSink::set_line_width(int width) {
    window_.set_line_width(width);
    culling_ = culling_allowed_ && width == 0;
    culler_.forget();
}

void X11PixmapSink::leave_long_lines_unknown() {
    culler_.long_lines_tested(false);
}

void X11PixmapSink::world_end() {
    window_.show();
}
