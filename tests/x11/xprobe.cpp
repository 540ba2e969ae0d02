// A small X11 client for the window tests: finds a top-level window by its
// title, reads its contents back with XGetImage, and sends it the events a
// user would (a key, a mouse button, the window manager's close message), or
// covers and uncovers it.
//
//   xprobe find TITLE SECONDS           prints "ID WIDTH HEIGHT" of a mapped
//                                       window titled TITLE
//   xprobe capture ID                   prints "WIDTH HEIGHT", then one line
//                                       per row of RRGGBB words
//   xprobe key ID | button ID | close ID | cover ID
//   xprobe fill-colormap SECONDS        takes every free cell of the default
//                                       colormap for that long (prints
//                                       "ready" once it holds them)
//   xprobe button ID SECONDS            presses a button and waits for ID
//                                       to go and a new window titled like
//                                       it to be mapped (the server may give
//                                       it the same number); prints
//                                       "ID WIDTH HEIGHT" of the new one
//
// Exit status 0 on success, 1 when the window is not found or gone, 2 on
// bad usage.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

namespace {

int ignore_errors(Display*, XErrorEvent*) {
    return 0;
}

bool has_title(Display* d, Window w, const char* title) {
    char* name = nullptr;
    if (!XFetchName(d, w, &name) || name == nullptr) return false;
    bool same = strcmp(name, title) == 0;
    XFree(name);
    return same;
}

// Searches the whole tree under root (a window manager may reparent).
Window find_in(Display* d, Window parent, const char* title) {
    Window root, up, *children = nullptr;
    unsigned int n = 0;
    if (!XQueryTree(d, parent, &root, &up, &children, &n)) return 0;
    Window found = 0;
    for (unsigned int k = 0; k < n && found == 0; ++k) {
        if (has_title(d, children[k], title)) found = children[k];
    }
    for (unsigned int k = 0; k < n && found == 0; ++k) found = find_in(d, children[k], title);
    if (children) XFree(children);
    return found;
}

int find(Display* d, const char* title, double seconds) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (std::chrono::steady_clock::now() < deadline) {
        Window w = find_in(d, DefaultRootWindow(d), title);
        XWindowAttributes a;
        if (w != 0 && XGetWindowAttributes(d, w, &a) && a.map_state == IsViewable) {
            printf("%lu %d %d\n", w, a.width, a.height);
            return 0;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return 1;
}

// One component of a pixel as 8 bits, by the visual's mask.
unsigned component(unsigned long pixel, unsigned long mask) {
    if (mask == 0) return 0;
    int shift = 0;
    while (!((mask >> shift) & 1)) ++shift;
    unsigned long max = mask >> shift;
    return static_cast<unsigned>(((pixel & mask) >> shift) * 255 / max);
}

int capture(Display* d, Window w) {
    XWindowAttributes a;
    if (!XGetWindowAttributes(d, w, &a)) return 1;
    XImage* image = XGetImage(d, w, 0, 0, a.width, a.height, AllPlanes, ZPixmap);
    if (image == nullptr) return 1;
    printf("%d %d\n", a.width, a.height);
    // A colormapped visual has no masks: its pixels are looked up instead.
    bool mapped = image->red_mask == 0;
    std::string row;
    char word[8];
    for (int y = 0; y < a.height; ++y) {
        row.clear();
        for (int x = 0; x < a.width; ++x) {
            unsigned long p = XGetPixel(image, x, y);
            if (mapped) {
                XColor c{};
                c.pixel = p;
                XQueryColor(d, a.colormap, &c);
                snprintf(word, sizeof word, "%02x%02x%02x", c.red >> 8, c.green >> 8, c.blue >> 8);
            } else {
                snprintf(word, sizeof word, "%02x%02x%02x", component(p, image->red_mask),
                         component(p, image->green_mask), component(p, image->blue_mask));
            }
            if (x) row += ' ';
            row += word;
        }
        puts(row.c_str());
    }
    XDestroyImage(image);
    return 0;
}

int send_input(Display* d, Window w, int type) {
    XEvent e{};
    e.type = type;
    if (type == KeyPress) {
        e.xkey.window = w;
        e.xkey.root = DefaultRootWindow(d);
        e.xkey.keycode = XKeysymToKeycode(d, 'q');
        e.xkey.same_screen = True;
    } else {
        e.xbutton.window = w;
        e.xbutton.root = DefaultRootWindow(d);
        e.xbutton.button = Button1;
        e.xbutton.same_screen = True;
    }
    long mask = type == KeyPress ? KeyPressMask : ButtonPressMask;
    if (!XSendEvent(d, w, True, mask, &e)) return 1;
    XSync(d, False);
    return 0;
}

int send_close(Display* d, Window w) {
    XEvent e{};
    e.xclient.type = ClientMessage;
    e.xclient.window = w;
    e.xclient.message_type = XInternAtom(d, "WM_PROTOCOLS", False);
    e.xclient.format = 32;
    e.xclient.data.l[0] = static_cast<long>(XInternAtom(d, "WM_DELETE_WINDOW", False));
    e.xclient.data.l[1] = CurrentTime;
    if (!XSendEvent(d, w, False, NoEventMask, &e)) return 1;
    XSync(d, False);
    return 0;
}

// Maps a window of its own over the whole of w for a moment and takes it
// away again, so that w is uncovered (and must redraw itself).
int cover(Display* d, Window w) {
    XWindowAttributes a;
    if (!XGetWindowAttributes(d, w, &a)) return 1;
    int x = 0, y = 0;
    Window child;
    XTranslateCoordinates(d, w, DefaultRootWindow(d), 0, 0, &x, &y, &child);
    XSetWindowAttributes sa{};
    sa.override_redirect = True;
    sa.background_pixel = BlackPixel(d, DefaultScreen(d));
    Window c = XCreateWindow(d, DefaultRootWindow(d), x, y, a.width, a.height, 0, CopyFromParent,
                             InputOutput, CopyFromParent, CWOverrideRedirect | CWBackPixel, &sa);
    XMapRaised(d, c);
    XSync(d, False);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    XDestroyWindow(d, c);
    XSync(d, False);
    return 0;
}

// Watches the root's children from before the button is sent, so that the
// old window's destruction and the new one's mapping are both seen.
int button_and_new_window(Display* d, Window w, double seconds) {
    char* title = nullptr;
    if (!XFetchName(d, w, &title) || title == nullptr) return 1;
    std::string name = title;
    XFree(title);
    XSelectInput(d, DefaultRootWindow(d), SubstructureNotifyMask);
    XSync(d, False);
    if (send_input(d, w, ButtonPress) != 0) return 1;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    bool old_gone = false;
    while (std::chrono::steady_clock::now() < deadline) {
        while (XPending(d) > 0) {
            XEvent e;
            XNextEvent(d, &e);
            if (e.type == DestroyNotify && e.xdestroywindow.window == w) old_gone = true;
            if (e.type == MapNotify && old_gone && has_title(d, e.xmap.window, name.c_str())) {
                XWindowAttributes a;
                if (!XGetWindowAttributes(d, e.xmap.window, &a)) return 1;
                printf("%lu %d %d\n", e.xmap.window, a.width, a.height);
                return 0;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return 1;
}

// Allocates read/write cells until none is left, so that every later
// XAllocColor of a colour not yet in the map fails.
int fill_colormap(Display* d, double seconds) {
    Colormap map = DefaultColormap(d, DefaultScreen(d));
    unsigned long pixel, planes;
    int cells = 0;
    while (XAllocColorCells(d, map, False, &planes, 0, &pixel, 1)) ++cells;
    XSync(d, False);
    printf("ready %d\n", cells);
    fflush(stdout);
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: xprobe find TITLE SECONDS | capture|key|button|close|cover ID\n");
        return 2;
    }
    Display* d = XOpenDisplay(nullptr);
    if (d == nullptr) {
        fprintf(stderr, "xprobe: no display\n");
        return 1;
    }
    XSetErrorHandler(ignore_errors);
    std::string command = argv[1];
    int status = 2;
    if (command == "fill-colormap") {
        status = fill_colormap(d, atof(argv[2]));
    } else if (command == "find" && argc >= 4) {
        status = find(d, argv[2], atof(argv[3]));
    } else {
        Window w = strtoul(argv[2], nullptr, 10);
        if (command == "capture") status = capture(d, w);
        if (command == "key") status = send_input(d, w, KeyPress);
        if (command == "button" && argc == 3) status = send_input(d, w, ButtonPress);
        if (command == "button" && argc >= 4) status = button_and_new_window(d, w, atof(argv[3]));
        if (command == "close") status = send_close(d, w);
        if (command == "cover") status = cover(d, w);
    }
    XCloseDisplay(d);
    return status;
}
