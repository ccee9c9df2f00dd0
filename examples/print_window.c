/* Prints a window of the screen: here a window of our own, drawn with
 * Xlib, put on the page as it looks, colours included.
 *
 * Build:  cc print_window.c $(pkg-config --cflags --libs qualin) -o print_window
 * Run:    ./print_window         (needs an X display; prints on the default printer)
 *
 * An Xt or Motif program prints a widget the same way with
 * QlPrintWidget(printer, widget, x, y). */
#include <qualin/Ql.h>
#include <stdio.h>

int main(void)
{
    Display *display = XOpenDisplay(NULL);
    if (!display) {
        fprintf(stderr, "print_window: no X display\n");
        return 1;
    }
    int screen = DefaultScreen(display);
    Window w = XCreateSimpleWindow(display, RootWindow(display, screen), 0, 0, 320, 200, 0,
                                   BlackPixel(display, screen), WhitePixel(display, screen));
    XSelectInput(display, w, ExposureMask);
    XMapWindow(display, w);
    XEvent e;
    do /* only a mapped, viewable window can be read back */
        XNextEvent(display, &e);
    while (e.type != Expose);

    XColor red, exact;
    XAllocNamedColor(display, DefaultColormap(display, screen), "red", &red, &exact);
    GC gc = XCreateGC(display, w, 0, NULL);
    XSetForeground(display, gc, red.pixel);
    XFillArc(display, w, gc, 60, 20, 200, 160, 0, 360 * 64);
    XSync(display, False);

    Display *printer = QlOpenPrinter();
    if (!printer) {
        fprintf(stderr, "print_window: the default printer does not open\n");
        return 1;
    }
    QlSetPSColor(printer, 1);
    int ok = 0;
    if (QlStartDoc(printer, "window") && QlStartPage(printer)) {
        /* One screen pixel becomes one printer dot, at the top left of
         * the printable area. */
        ok = QlPrintWindow(printer, display, screen, w, 0, 0);
        QlEndPage(printer);
        ok = QlEndDoc(printer) && ok;
    }
    QlClosePrinter(printer);
    XFreeGC(display, gc);
    XCloseDisplay(display);
    return ok ? 0 : 1;
}
