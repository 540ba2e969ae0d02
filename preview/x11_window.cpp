// The X11 window "Pencil Test": opening the display, the window with its
// title and close protocol, the pixmap and graphics contexts, colour
// allocation, the wait for the window to be mapped, the final wait for a key
// or button, and the pixmap sink that draws the picture's lines.
#include "preview/x11_window.h"

#include <X11/Xatom.h>
#include <X11/Xutil.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <vector>

#include "driver/globals.h"
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
    send_lines();
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
    send_lines();
    if (is_lost(display)) return;
    XFillRectangle(display, pixmap, background_gc, 0, 0, width, height);
}

void X11Window::show() {
    send_lines();
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

void X11Window::set_foreground(const float rgb[3]) {
    send_lines();
    if (is_lost(display)) return;
    XGCValues values{};
    values.foreground = cached_pixel(rgb);
    XChangeGC(display, foreground_gc, GCForeground, &values);
}

void X11Window::send_lines() {
    if (pending_count_ == 0) return;
    if (!is_lost(display)) {
        XDrawSegments(display, pixmap, foreground_gc, pending_lines_.data(),
                      static_cast<int>(pending_count_));
    }
    pending_count_ = 0;
}

// Any key ends the wait; a button asks for the files to be read again. The
// wait also ends, with no repeat, when the window manager closes the window,
// the window is destroyed, or the connection is lost, so the program never
// waits on a window that is gone.
X11Window::WaitEnd X11Window::wait_for_key_or_button() {
    send_lines();
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

// ---- The pixmap sink ----

namespace {

// X11 carries line ends as 16-bit numbers. A segment reaching past them is
// first cut (Liang-Barsky) to a square well inside that range, which leaves
// every pixel inside the window where it was.
constexpr double X_COORD_LIMIT = 16384.0;

bool fits_x_protocol(int v) {
    return v >= -32768 && v <= 32767;
}

bool clip_parameter(double p, double q, double* t0, double* t1) {
    if (p == 0.0) return q >= 0.0;
    double r = q / p;
    if (p < 0.0) {
        if (r > *t1) return false;
        *t0 = std::max(*t0, r);
    } else {
        if (r < *t0) return false;
        *t1 = std::min(*t1, r);
    }
    return true;
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

// Every world block clears the pixmap. A later world with another
// resolution keeps the first window and pixmap, whose whole area is cleared.
void X11PixmapSink::world_begin(int, int) {
    window_.clear();
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
    if (fit_to_pixmap(&x0, &y0, &x1, &y1)) window_.draw_line(x0, y0, x1, y1);
}

// The lines are written straight into the window's batch.
void X11PixmapSink::segments(const RasterSegment* s, size_t count) {
    while (count > 0) {
        const size_t part = std::min<size_t>(count, 4096);
        XSegment* line = window_.line_space(part);
        for (size_t k = 0; k < part; ++k) {
            int x0 = s[k].x0, y0 = s[k].y0, x1 = s[k].x1, y1 = s[k].y1;
            if (fit_to_pixmap(&x0, &y0, &x1, &y1)) {
                *line++ = {short(x0), short(y0), short(x1), short(y1)};
            }
        }
        window_.lines_written(line);
        s += part;
        count -= part;
    }
}

void X11PixmapSink::color(const float rgb[3]) {
    window_.set_foreground(rgb);
}

void X11PixmapSink::world_end() {
    window_.show();
}
