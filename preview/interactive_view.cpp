// InteractiveView: the event loop of the interactive window (keys, buttons,
// drags and the wheel), the redraw of the frame shown through the camera,
// picking, the title, and the wait for edits of the files read.
#include "preview/interactive_view.h"

#include <X11/Xlib.h>
#include <X11/keysym.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "preview/kept_drawing.h"
#include "preview/x11_window.h"
#include "support/file_watch.h"

namespace {

// The window's own events and those of the drags.
constexpr long VIEW_EVENTS = KeyPressMask | ButtonPressMask | ButtonReleaseMask | ButtonMotionMask |
                             StructureNotifyMask | ExposureMask;
// A press and release closer than this (in pixels either way) is a click.
constexpr int CLICK_SLACK = 3;
// A click picks the nearest line within this many pixels.
constexpr double PICK_RADIUS = 4.0;
// Edits are read once the files have been quiet this long, and at the
// latest this long after the first change.
constexpr double QUIET_SECONDS = 0.1;
constexpr double LATEST_SECONDS = 0.4;
// The highlighted request is drawn over the frame in this colour, this wide.
constexpr float HIGHLIGHT_RGB[3] = {1.0f, 0.85f, 0.1f};
constexpr int HIGHLIGHT_WIDTH = 3;

enum Button { LEFT = 1, MIDDLE = 2, WHEEL_UP = 4, WHEEL_DOWN = 5 };

double now_seconds() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

}  // namespace

InteractiveView::InteractiveView(X11Window& window, FrameStore& store, ViewCamera& camera,
                                 FileWatch* watch)
    : window_(window), store_(store), camera_(camera), watch_(watch) {
    Display* d = window_.display;
    XSelectInput(d, window_.window, VIEW_EVENTS);
    protocols_atom_ = XInternAtom(d, "WM_PROTOCOLS", False);
    delete_atom_ = XInternAtom(d, "WM_DELETE_WINDOW", False);
}

// The frames may have been read again since the last run: a highlight
// would name an origin of the old reading.
ViewEnd InteractiveView::run(size_t* frame) {
    first_change_ = last_change_ = -1.0;
    button_ = 0;
    highlight_ = NO_ORIGIN;
    if (store_.frame_count() > 0) {
        frame_ = std::min(*frame, store_.frame_count() - 1);
        if (shown().dropped) {
            *frame = frame_;
            return ViewEnd::REFILL;
        }
    }
    set_title();
    redraw();
    Display* d = window_.display;
    ViewEnd end = ViewEnd::QUIT;
    for (;;) {
        while (XPending(d) > 0) {
            if (handle_event(&end) == Step::END) {
                *frame = frame_;
                return end;
            }
        }
        int timeout = -1;
        if (first_change_ >= 0.0) {
            const double due =
                std::min(first_change_ + LATEST_SECONDS, last_change_ + QUIET_SECONDS);
            const double left = due - now_seconds();
            if (left <= 0.0) {
                *frame = frame_;
                return ViewEnd::RELOAD;
            }
            timeout = int(std::ceil(left * 1000.0));
        }
        pollfd fds[2] = {{ConnectionNumber(d), POLLIN, 0},
                         {watch_ != nullptr ? watch_->descriptor() : -1, POLLIN, 0}};
        poll(fds, 2, timeout);
        // The server going away: XPending notices and the view ends.
        if (fds[0].revents & (POLLHUP | POLLERR)) {
            XPending(d);
            return ViewEnd::QUIT;
        }
        if ((fds[1].revents & POLLIN) && watch_->take_events()) {
            last_change_ = now_seconds();
            if (first_change_ < 0.0) first_change_ = last_change_;
        }
    }
}

InteractiveView::Step InteractiveView::handle_event(ViewEnd* end) {
    XEvent event;
    XNextEvent(window_.display, &event);
    switch (event.type) {
        case KeyPress:
            return handle_key(XLookupKeysym(&event.xkey, 0), end);
        case ButtonPress:
            handle_press(int(event.xbutton.button), event.xbutton.x, event.xbutton.y);
            return Step::GO_ON;
        case MotionNotify: {
            // Only the latest position of a run of moves is drawn.
            while (XCheckTypedWindowEvent(window_.display, window_.window, MotionNotify, &event)) {
            }
            handle_motion(event.xmotion.x, event.xmotion.y);
            return Step::GO_ON;
        }
        case ButtonRelease:
            handle_release(int(event.xbutton.button), event.xbutton.x, event.xbutton.y);
            return Step::GO_ON;
        case Expose:
            if (event.xexpose.count == 0) window_.show();
            return Step::GO_ON;
        case DestroyNotify:
            *end = ViewEnd::QUIT;
            return event.xdestroywindow.window == window_.window ? Step::END : Step::GO_ON;
        case ClientMessage:
            *end = ViewEnd::QUIT;
            return event.xclient.message_type == protocols_atom_ &&
                           static_cast<unsigned long>(event.xclient.data.l[0]) == delete_atom_
                       ? Step::END
                       : Step::GO_ON;
        default:
            return Step::GO_ON;
    }
}

InteractiveView::Step InteractiveView::handle_key(unsigned long keysym, ViewEnd* end) {
    const size_t count = store_.frame_count();
    size_t next = frame_;
    switch (keysym) {
        case XK_q:
        case XK_Escape:
            *end = ViewEnd::QUIT;
            return Step::END;
        case XK_r:
            *end = ViewEnd::RELOAD;
            return Step::END;
        case XK_Left:
            next = frame_ > 0 ? frame_ - 1 : 0;
            break;
        case XK_Right:
            next = frame_ + 1 < count ? frame_ + 1 : frame_;
            break;
        case XK_Home:
            next = 0;
            break;
        case XK_End:
            next = count > 0 ? count - 1 : 0;
            break;
        case XK_c:
            camera_.use_scene_camera();
            redraw();
            return Step::GO_ON;
        case XK_f:
            if (count > 0) {
                float min[3], max[3];
                if (!shown().bound(min, max)) return Step::GO_ON;
                camera_.frame_all(shown().view, {min[0], min[1], min[2]}, {max[0], max[1], max[2]});
                redraw();
            }
            return Step::GO_ON;
        case XK_i:
            if (count > 0) {
                std::fputs(camera_.rib(shown().view).c_str(), stdout);
                std::fflush(stdout);
            }
            return Step::GO_ON;
        default:
            return Step::GO_ON;
    }
    if (count == 0 || next == frame_) return Step::GO_ON;
    if (!show_frame(next)) {
        *end = ViewEnd::REFILL;
        return Step::END;
    }
    return Step::GO_ON;
}

// False when the frame gave its geometry up: it must be read again first.
bool InteractiveView::show_frame(size_t k) {
    frame_ = k;
    highlight_ = NO_ORIGIN;
    if (shown().dropped) return false;
    set_title();
    redraw();
    return true;
}

void InteractiveView::handle_press(int button, int x, int y) {
    if (store_.frame_count() == 0) return;
    if (button == WHEEL_UP || button == WHEEL_DOWN) {
        camera_.zoom(shown().view, pivot(), button == WHEEL_UP ? 1 : -1);
        redraw();
        return;
    }
    if (button != LEFT && button != MIDDLE) return;
    button_ = button;
    press_x_ = last_x_ = x;
    press_y_ = last_y_ = y;
    moved_ = false;
    start_ = camera_;
}

void InteractiveView::handle_motion(int x, int y) {
    if (button_ == 0 || store_.frame_count() == 0) return;
    if (!moved_ && std::abs(x - press_x_) < CLICK_SLACK && std::abs(y - press_y_) < CLICK_SLACK) {
        return;
    }
    moved_ = true;
    if (button_ == LEFT) {
        // A drag across the whole width turns the view once around; one down
        // the whole height tilts it half around. The scene follows the
        // pointer, as if held.
        const double turn = -360.0 * (x - press_x_) / window_.width;
        const double tilt = -180.0 * (y - press_y_) / window_.height;
        camera_.orbit(start_, shown().view, pivot(), turn, tilt);
    } else {
        camera_.pan(shown().view, pivot(), x - last_x_, y - last_y_);
    }
    last_x_ = x;
    last_y_ = y;
    redraw();
}

void InteractiveView::handle_release(int button, int x, int y) {
    if (button != button_) return;
    button_ = 0;
    if (button == LEFT && !moved_ && store_.frame_count() > 0) pick(x, y);
}

void InteractiveView::pick(int x, int y) {
    const uint32_t origin =
        pick_kept_origin(shown(), camera_.projection(shown().view), x, y, PICK_RADIUS);
    if (origin != NO_ORIGIN) {
        std::printf("%s\n", origin_text(store_, shown(), origin).c_str());
        std::fflush(stdout);
    }
    if (origin == highlight_) return;
    highlight_ = origin;
    redraw();
}

WorldPoint InteractiveView::pivot() const {
    float min[3], max[3];
    if (!shown().bound(min, max)) return {0.0, 0.0, 0.0};
    return {(double(min[0]) + max[0]) / 2, (double(min[1]) + max[1]) / 2,
            (double(min[2]) + max[2]) / 2};
}

void InteractiveView::set_title() const {
    std::string title = "Pencil Test";
    const size_t count = store_.frame_count();
    if (count > 0) {
        title += ": " + store_.name(shown().file) + " (frame " + std::to_string(frame_ + 1) +
                 " of " + std::to_string(count) + ")";
    }
    XStoreName(window_.display, window_.window, title.c_str());
}

void InteractiveView::redraw() {
    X11PixmapSink sink(window_);
    sink.leave_long_lines_unknown();
    if (store_.frame_count() == 0) {
        sink.world_begin(window_.width, window_.height);
        sink.world_end();
        return;
    }
    const KeptFrame& frame = shown();
    const KeptProjection projection = camera_.projection(frame.view);
    sink.world_begin(frame.view.xres, frame.view.yres);
    draw_kept_frame(frame, projection, sink);
    if (highlight_ != NO_ORIGIN) {
        sink.color(HIGHLIGHT_RGB);
        sink.set_line_width(HIGHLIGHT_WIDTH);
        draw_kept_frame(frame, projection, sink, highlight_, HIGHLIGHT_RGB);
        sink.set_line_width(0);
    }
    sink.world_end();
    XSync(window_.display, False);
}
