// Asks a top-level window to close the way a window manager does when its close button
// is pressed: a WM_PROTOCOLS client message carrying WM_DELETE_WINDOW. The program may
// refuse. (xdotool's windowclose destroys the window instead, which no user can do.)
//
//   bv_wmdelete <window id>        on the display named by DISPLAY

#include <X11/Xlib.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char *argv[])
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: bv_wmdelete <window id>\n");
        return 2;
    }
    char *end = nullptr;
    const unsigned long window = std::strtoul(argv[1], &end, 0);
    if (end == argv[1] || *end != '\0' || window == 0) {
        std::fprintf(stderr, "bv_wmdelete: not a window id: %s\n", argv[1]);
        return 2;
    }
    Display *display = XOpenDisplay(nullptr);
    if (!display) {
        std::fprintf(stderr, "bv_wmdelete: cannot open the display\n");
        return 1;
    }

    XEvent event {};
    event.xclient.type = ClientMessage;
    event.xclient.window = Window(window);
    event.xclient.message_type = XInternAtom(display, "WM_PROTOCOLS", False);
    event.xclient.format = 32;
    event.xclient.data.l[0] = long(XInternAtom(display, "WM_DELETE_WINDOW", False));
    event.xclient.data.l[1] = CurrentTime;
    // An unknown window makes the default error handler end this program with a message.
    const Status sent = XSendEvent(display, Window(window), False, NoEventMask, &event);
    XSync(display, False);
    XCloseDisplay(display);
    return sent ? 0 : 1;
}
