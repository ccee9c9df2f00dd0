/* One drawing function, two destinations: a window on the screen, or the
 * default printer, chosen at run time.
 *
 * Build:  cc screen_or_paper.c $(pkg-config --cflags --libs qualin) -lm -o screen_or_paper
 * Run:    ./screen_or_paper          draws in a window (close it with a key)
 *         ./screen_or_paper -print   prints the same picture
 *
 * draw() doesn't know where it draws: it takes the Display * and the
 * drawable, and on a printer the drawable is 0, the page. */
#include <qualin/Ql.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

static const double pi = 3.14159265358979323846;

/* A sine wave in a box, with axes and a label, scaled to width by height. */
static void draw(Display *handle, Drawable d, GC gc, int width, int height)
{
    QlSetLineAttributes(handle, gc, 0, LineSolid, CapButt, JoinMiter);
    QlDrawRectangle(handle, d, gc, 0, 0, (unsigned)width - 1, (unsigned)height - 1);
    QlDrawLine(handle, d, gc, 0, height / 2, width, height / 2);

    XPoint wave[101];
    for (int i = 0; i <= 100; i++) {
        wave[i].x = (short)(i * (width - 1) / 100);
        wave[i].y = (short)(height / 2 - sin(i * 2 * pi / 100) * height * 0.4);
    }
    QlSetLineAttributes(handle, gc, (unsigned)(width / 200), LineSolid, CapRound, JoinRound);
    QlDrawLines(handle, d, gc, wave, 101, CoordModeOrigin);

    const char *label = "y = sin x";
    QlDrawString(handle, d, gc, width / 20, height / 8, label, (int)strlen(label));
}

static int on_paper(void)
{
    Display *printer = QlOpenPrinter();
    if (!printer) {
        fprintf(stderr, "screen_or_paper: the default printer does not open\n");
        return 1;
    }
    GC gc = QlCreateGC(printer, 0, 0, NULL);
    int dpi = QlGetResolution(printer), ok = 0;
    if (QlStartDoc(printer, "sine") && QlStartPage(printer)) {
        draw(printer, 0, gc, 6 * dpi, 4 * dpi); /* six inches by four */
        QlEndPage(printer);
        ok = QlEndDoc(printer);
    }
    QlFreeGC(printer, gc);
    QlClosePrinter(printer);
    return ok ? 0 : 1;
}

static int on_screen(void)
{
    Display *display = XOpenDisplay(NULL);
    if (!display) {
        fprintf(stderr, "screen_or_paper: no X display\n");
        return 1;
    }
    int screen = DefaultScreen(display);
    Window w = XCreateSimpleWindow(display, RootWindow(display, screen), 0, 0, 600, 400, 0,
                                   BlackPixel(display, screen), WhitePixel(display, screen));
    XSelectInput(display, w, ExposureMask | KeyPressMask);
    XMapWindow(display, w);
    /* The same calls as on paper: QlCreateGC and friends pass to Xlib. */
    GC gc = QlCreateGC(display, w, 0, NULL);
    QlSetForeground(display, gc, BlackPixel(display, screen));
    for (;;) {
        XEvent e;
        XNextEvent(display, &e);
        if (e.type == Expose && e.xexpose.count == 0)
            draw(display, w, gc, 600, 400);
        if (e.type == KeyPress)
            break;
    }
    QlFreeGC(display, gc);
    XCloseDisplay(display);
    return 0;
}

int main(int argc, char **argv)
{
    return argc > 1 && strcmp(argv[1], "-print") == 0 ? on_paper() : on_screen();
}
