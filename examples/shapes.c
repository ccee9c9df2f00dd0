/* Prints one page with shapes and text on the default printer.
 *
 * Build:  cc shapes.c $(pkg-config --cflags --libs qualin) -o shapes
 * Run:    ./shapes            (no configuration: PostScript into qualin.out)
 *
 * A printer handle is a Display *: every drawing call below has the shape
 * of its Xlib twin, and coordinates are the printer's dots with the origin
 * at the top left of the printable area, y growing downwards. */
#include <qualin/Ql.h>
#include <stdio.h>
#include <string.h>

/* A colour by name, or black when the name is unknown. */
static unsigned long colour(Display *printer, const char *name)
{
    XColor exact, near;
    if (QlAllocNamedColor(printer, QlDefaultColormap(printer, 0), name, &near, &exact))
        return near.pixel;
    return QlBlackPixel(printer, 0);
}

int main(void)
{
    Display *printer = QlOpenPrinter();
    if (!printer) {
        fprintf(stderr, "shapes: the default printer does not open\n");
        return 1;
    }
    QlSetPSColor(printer, 1); /* colour PostScript; grey by default */
    int dpi = QlGetResolution(printer);

    GC gc = QlCreateGC(printer, 0, 0, NULL);
    if (!QlStartDoc(printer, "shapes") || !QlStartPage(printer)) {
        QlClosePrinter(printer);
        return 1;
    }

    /* A title in a standard font, sized in dots: 24 points here. */
    char name[128];
    snprintf(name, sizeof name, "-adobe-helvetica-bold-r-normal--%d-*-*-*-p-*-iso8859-1", 24 * dpi / 72);
    XFontStruct *title = QlLoadQueryFont(printer, name);
    if (title)
        QlSetFont(printer, gc, title->fid);
    const char *text = "Shapes and text";
    QlDrawString(printer, 0, gc, dpi / 2, dpi / 2, text, (int)strlen(text));

    /* A thick dashed outline, then filled shapes in colour. */
    char dashes[] = {20, 10};
    QlSetLineAttributes(printer, gc, dpi / 50, LineOnOffDash, CapButt, JoinMiter);
    QlSetDashes(printer, gc, 0, dashes, 2);
    QlDrawRectangle(printer, 0, gc, dpi / 2, dpi, 6 * dpi, 3 * dpi);

    QlSetForeground(printer, gc, colour(printer, "steel blue"));
    QlFillArc(printer, 0, gc, dpi, dpi + dpi / 2, 2 * dpi, 2 * dpi, 0, 360 * 64);

    QlSetForeground(printer, gc, colour(printer, "orange"));
    XPoint star[5];
    for (int i = 0; i < 5; i++) {
        static const short sx[5] = {0, 60, -95, 95, -60}, sy[5] = {-100, 80, -30, -30, 80};
        star[i].x = (short)(4 * dpi + sx[i] * dpi / 100);
        star[i].y = (short)(2 * dpi + dpi / 2 + sy[i] * dpi / 100);
    }
    QlFillPolygon(printer, 0, gc, star, 5, Complex, CoordModeOrigin);

    QlEndPage(printer);
    int ok = QlEndDoc(printer);
    if (title)
        QlFreeFont(printer, title);
    QlFreeGC(printer, gc);
    QlClosePrinter(printer);
    return ok ? 0 : 1;
}
