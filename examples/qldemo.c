/* The sample document of `make demo`: five pages that show what a printer
 * handle draws.
 *
 *   1  lines, shapes and colours     every primitive, line styles, fills
 *   2  text                          the printer's fonts, kerning, encodings
 *   3  images, patterns and EPS      QlPutImage, tiles, stipples, QlEPS_Put
 *   4  rotated and Japanese text     QlDrawRotString, font sets
 *   5  a window of the X display     QlPrintWindow
 *
 * Build:  cc qldemo.c $(pkg-config --cflags --libs qualin) -o qldemo
 * Run:    ./qldemo      (prints on the default printer; with no configuration
 *                        at all, PostScript into "qualin.out")
 *
 * Page 4 needs a Japanese locale (ja_JP.eucJP) and printer fonts for JIS X
 * 0208 and JIS X 0201; page 5 needs an X display (DISPLAY).  Without them
 * the page says what is missing.  scripts/demo provides all three.
 *
 * On a printer, coordinates are dots from the top left corner of the
 * printable area, y growing downwards.  This program lays its pages out in
 * points (1/72 inch) and turns them into dots with P(). */
#include <qualin/Ql.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define PAGES 5

/* What every page needs: the printer, its units and the fonts of titles
 * and captions. */
struct demo {
    Display *printer;
    Colormap cmap;
    double unit;         /* dots per point at the current scale */
    int width, height;   /* printable area, in points */
    int page;
    XFontStruct *title, *heading, *caption;
    XFontStruct *fonts[64]; /* loaded on this page, freed when it ends */
    int nfonts;
};

/* Points to dots. */
static int P(const struct demo *d, double points)
{
    return (int)(points * d->unit + (points < 0 ? -0.5 : 0.5));
}

/* A colour by name, or black when the name is unknown. */
static unsigned long colour(struct demo *d, const char *name)
{
    XColor near, exact;
    if (QlAllocNamedColor(d->printer, d->cmap, name, &near, &exact))
        return near.pixel;
    return QlBlackPixel(d->printer, 0);
}

/* A colour by its red, green and blue (0 to 255). */
static unsigned long rgb(struct demo *d, int r, int g, int b)
{
    XColor c;
    c.red = (unsigned short)(r * 257);
    c.green = (unsigned short)(g * 257);
    c.blue = (unsigned short)(b * 257);
    c.flags = DoRed | DoGreen | DoBlue;
    return QlAllocColor(d->printer, d->cmap, &c) ? c.pixel : QlBlackPixel(d->printer, 0);
}

/* A font of the printer by the start of its XLFD name ("adobe-times-medium-r")
 * at a size in points, in a charset ("iso8859-1"); null if there is none. */
static XFontStruct *font(struct demo *d, const char *face, double points, const char *charset)
{
    char name[256];
    snprintf(name, sizeof name, "-%s-normal--%d-*-*-*-*-*-%s", face, P(d, points), charset);
    XFontStruct *f = QlLoadQueryFont(d->printer, name);
    if (!f) {
        fprintf(stderr, "qldemo: no font %s\n", name);
        return NULL;
    }
    if (d->nfonts == (int)(sizeof d->fonts / sizeof d->fonts[0])) {
        QlFreeFont(d->printer, f);
        return NULL;
    }
    d->fonts[d->nfonts++] = f;
    return f;
}

/* A fresh GC: black, solid lines of width 0, no clipping. */
static GC new_gc(struct demo *d)
{
    GC gc = QlCreateGC(d->printer, 0, 0, NULL);
    QlSetForeground(d->printer, gc, QlBlackPixel(d->printer, 0));
    QlSetBackground(d->printer, gc, QlWhitePixel(d->printer, 0));
    return gc;
}

/* A string in a font and colour at x, y (points, on the baseline). */
static void text(struct demo *d, XFontStruct *f, unsigned long pixel, double x, double y, const char *s)
{
    if (!f)
        return;
    GC gc = new_gc(d);
    QlSetFont(d->printer, gc, f->fid);
    QlSetForeground(d->printer, gc, pixel);
    QlDrawString(d->printer, 0, gc, P(d, x), P(d, y), s, (int)strlen(s));
    QlFreeGC(d->printer, gc);
}

/* The caption under a sample: one or two lines separated by '\n'. */
static void caption(struct demo *d, double x, double y, const char *s)
{
    char line[256];
    const char *nl = strchr(s, '\n');
    size_t n = nl ? (size_t)(nl - s) : strlen(s);
    snprintf(line, sizeof line, "%.*s", (int)n, s);
    text(d, d->caption, rgb(d, 60, 60, 60), x, y, line);
    if (nl)
        text(d, d->caption, rgb(d, 60, 60, 60), x, y + 10, nl + 1);
}

/* The heading of a section at y; gives where the section's content starts. */
static double heading(struct demo *d, double y, const char *s)
{
    text(d, d->heading, rgb(d, 20, 60, 140), 0, y, s);
    return y + 12;
}

/* A sample is finished: its caption under it, and its GC freed. */
static void sample_done(struct demo *d, GC gc, double x, double y, const char *what)
{
    caption(d, x, y, what);
    QlFreeGC(d->printer, gc);
}

/* The fonts every page uses, at the current scale. */
static void page_fonts(struct demo *d)
{
    d->title = font(d, "adobe-helvetica-bold-r", 20, "iso8859-1");
    d->heading = font(d, "adobe-helvetica-bold-r", 11, "iso8859-1");
    d->caption = font(d, "adobe-helvetica-medium-r", 8, "iso8859-1");
}

/* Opens a page with its title, a rule under it and a footer.  `scale`
 * enlarges everything drawn on the page (page 5 prints screen pixels). */
static void start_page(struct demo *d, const char *title, double scale)
{
    /* A scale applies from the next page on, so it is set before it. */
    QlSetScale(d->printer, scale);
    QlStartPage(d->printer);
    d->page++;
    d->unit = QlGetResolution(d->printer) / 72.0 / scale;
    d->width = (int)(QlDisplayWidth(d->printer, 0) / d->unit);
    d->height = (int)(QlDisplayHeight(d->printer, 0) / d->unit);
    page_fonts(d);

    char number[64];
    snprintf(number, sizeof number, "Page %d of %d", d->page, PAGES);
    text(d, d->title, rgb(d, 20, 60, 140), 0, 22, title);
    text(d, d->caption, QlBlackPixel(d->printer, 0), d->width - 50, 22, number);
    GC gc = new_gc(d);
    QlSetForeground(d->printer, gc, rgb(d, 20, 60, 140));
    QlFillRectangle(d->printer, 0, gc, 0, P(d, 30), (unsigned)P(d, d->width), (unsigned)P(d, 1.5));
    QlFreeGC(d->printer, gc);

    char footer[128];
    snprintf(footer, sizeof footer, "Qualin %s - printed through a printer handle: every mark on this page "
             "is a Ql call", QlGetVersion());
    caption(d, 0, d->height - 4, footer);
}

static void end_page(struct demo *d)
{
    QlEndPage(d->printer);
    for (int i = 0; i < d->nfonts; i++)
        QlFreeFont(d->printer, d->fonts[i]);
    d->nfonts = 0;
    d->title = d->heading = d->caption = NULL;
}

/* ------------------------------------------------------------------ page 1 */

/* The samples of page 1 sit in rows of four cells, each CELL_W points wide;
 * a caption under each sample names the calls. */
#define CELL_W 143.0
#define CELL_H 165.0

static void page_shapes(struct demo *d)
{
    Display *p = d->printer;
    start_page(d, "Lines, shapes and colours", 1.0);
    double top = 50;

    /* Row 1: widths, caps, joins, dashes. */
    top = heading(d, top, "Lines");
    {
        /* Widths 0 (the thinnest line the printer makes), 1 dot, 2 and 6 points. */
        GC gc = new_gc(d);
        static const double widths[] = {0, -1, 2, 6};
        static const char *labels[] = {"width 0", "width 1 dot", "2 pt", "6 pt"};
        for (int i = 0; i < 4; i++) {
            unsigned w = widths[i] < 0 ? 1u : (unsigned)P(d, widths[i]);
            QlSetLineAttributes(p, gc, w, LineSolid, CapButt, JoinMiter);
            QlDrawLine(p, 0, gc, P(d, 0), P(d, top + 15 + 25 * i), P(d, 80), P(d, top + 15 + 25 * i));
            caption(d, 88, top + 18 + 25 * i, labels[i]);
        }
        sample_done(d, gc, 0, top + CELL_H - 28, "QlSetLineAttributes: line\nwidths");
    }
    {
        /* Caps on a thick line, with the thin line they are drawn along. */
        double x = CELL_W;
        GC gc = new_gc(d), guide = new_gc(d);
        QlSetForeground(p, guide, colour(d, "red"));
        static const int caps[] = {CapButt, CapRound, CapProjecting};
        static const char *labels[] = {"CapButt", "CapRound", "CapProjecting"};
        QlSetForeground(p, gc, colour(d, "steel blue"));
        for (int i = 0; i < 3; i++) {
            double y = top + 15 + 32 * i;
            QlSetLineAttributes(p, gc, (unsigned)P(d, 14), LineSolid, caps[i], JoinMiter);
            QlDrawLine(p, 0, gc, P(d, x + 12), P(d, y), P(d, x + 62), P(d, y));
            QlDrawLine(p, 0, guide, P(d, x + 12), P(d, y), P(d, x + 62), P(d, y));
            caption(d, x + 80, y + 3, labels[i]);
        }
        caption(d, x, top + CELL_H - 28, "Cap styles, 14 pt lines;\nthe red line is the path");
        QlFreeGC(p, gc);
        QlFreeGC(p, guide);
    }
    {
        /* Joins where a polyline turns. */
        double x = 2 * CELL_W;
        GC gc = new_gc(d);
        static const int joins[] = {JoinMiter, JoinRound, JoinBevel};
        static const char *labels[] = {"Miter", "Round", "Bevel"};
        QlSetForeground(p, gc, colour(d, "dark green"));
        for (int i = 0; i < 3; i++) {
            double x0 = x + 8 + 44 * i;
            XPoint v[3] = {{(short)P(d, x0), (short)P(d, top + 80)},
                           {(short)P(d, x0 + 15), (short)P(d, top + 15)},
                           {(short)P(d, x0 + 30), (short)P(d, top + 80)}};
            QlSetLineAttributes(p, gc, (unsigned)P(d, 9), LineSolid, CapButt, joins[i]);
            QlDrawLines(p, 0, gc, v, 3, CoordModeOrigin);
            caption(d, x0 + 2, top + 95, labels[i]);
        }
        sample_done(d, gc, x, top + CELL_H - 28, "Join styles of QlDrawLines");
    }
    {
        /* Dash lists, a dash offset, and double dashes whose gaps are
         * painted in the background colour. */
        double x = 3 * CELL_W;
        GC gc = new_gc(d);
        char dash1[] = {(char)P(d, 6), (char)P(d, 3)};
        char dash2[] = {(char)P(d, 12), (char)P(d, 3), (char)P(d, 2), (char)P(d, 3)};
        QlSetLineAttributes(p, gc, (unsigned)P(d, 1), LineOnOffDash, CapButt, JoinMiter);
        QlSetDashes(p, gc, 0, dash1, 2);
        QlDrawLine(p, 0, gc, P(d, x), P(d, top + 12), P(d, x + 130), P(d, top + 12));
        QlSetDashes(p, gc, P(d, 4), dash1, 2); /* the same, 4 points further on */
        QlDrawLine(p, 0, gc, P(d, x), P(d, top + 24), P(d, x + 130), P(d, top + 24));
        QlSetLineAttributes(p, gc, (unsigned)P(d, 2), LineOnOffDash, CapButt, JoinMiter);
        QlSetDashes(p, gc, 0, dash2, 4);
        QlDrawLine(p, 0, gc, P(d, x), P(d, top + 38), P(d, x + 130), P(d, top + 38));
        QlSetLineAttributes(p, gc, (unsigned)P(d, 4), LineDoubleDash, CapButt, JoinMiter);
        QlSetDashes(p, gc, 0, dash1, 2);
        QlSetForeground(p, gc, colour(d, "navy"));
        QlSetBackground(p, gc, colour(d, "gold"));
        QlDrawLine(p, 0, gc, P(d, x), P(d, top + 54), P(d, x + 130), P(d, top + 54));
        /* A dashed rectangle and a dashed circle. */
        QlSetLineAttributes(p, gc, (unsigned)P(d, 1.5), LineOnOffDash, CapRound, JoinRound);
        QlSetForeground(p, gc, colour(d, "firebrick"));
        QlDrawRectangle(p, 0, gc, P(d, x), P(d, top + 66), (unsigned)P(d, 60), (unsigned)P(d, 40));
        QlDrawArc(p, 0, gc, P(d, x + 75), P(d, top + 64), (unsigned)P(d, 44), (unsigned)P(d, 44), 0, 360 * 64);
        sample_done(d, gc, x, top + CELL_H - 28, "QlSetDashes: on-off, offset,\nfour-part, LineDoubleDash");
    }

    /* Row 2: rectangles and arcs. */
    top += CELL_H;
    top = heading(d, top, "Rectangles and arcs");
    {
        GC gc = new_gc(d);
        QlSetForeground(p, gc, colour(d, "light sky blue"));
        QlFillRectangle(p, 0, gc, P(d, 0), P(d, top), (unsigned)P(d, 70), (unsigned)P(d, 50));
        QlSetForeground(p, gc, colour(d, "navy"));
        QlSetLineAttributes(p, gc, (unsigned)P(d, 2), LineSolid, CapButt, JoinMiter);
        QlDrawRectangle(p, 0, gc, P(d, 0), P(d, top), (unsigned)P(d, 70), (unsigned)P(d, 50));
        /* Several at once. */
        XRectangle r[4];
        for (int i = 0; i < 4; i++) {
            r[i].x = (short)P(d, 80 + 6 * i);
            r[i].y = (short)P(d, top + 8 * i);
            r[i].width = (unsigned short)P(d, 40 - 6 * i);
            r[i].height = (unsigned short)P(d, 40 - 6 * i);
        }
        QlSetLineAttributes(p, gc, 0, LineSolid, CapButt, JoinMiter);
        QlDrawRectangles(p, 0, gc, r, 4);
        for (int i = 0; i < 4; i++) {
            r[i].x = (short)P(d, 10 * i);
            r[i].y = (short)P(d, top + 62 + 8 * i);
            r[i].width = (unsigned short)P(d, 24);
            r[i].height = (unsigned short)P(d, 20);
        }
        QlSetForeground(p, gc, colour(d, "orange"));
        QlFillRectangles(p, 0, gc, r, 4);
        sample_done(d, gc, 0, top + CELL_H - 40, "QlFillRectangle, QlDrawRectangle,\nQlDrawRectangles, QlFillRectangles");
    }
    {
        /* Arcs: angles in 64ths of a degree, counter-clockwise from 3 o'clock. */
        double x = CELL_W;
        GC gc = new_gc(d);
        QlSetLineAttributes(p, gc, (unsigned)P(d, 3), LineSolid, CapRound, JoinRound);
        QlSetForeground(p, gc, colour(d, "purple"));
        QlDrawArc(p, 0, gc, P(d, x), P(d, top), (unsigned)P(d, 60), (unsigned)P(d, 60), 0, 270 * 64);
        QlSetForeground(p, gc, colour(d, "dark orange"));
        QlDrawArc(p, 0, gc, P(d, x + 66), P(d, top + 10), (unsigned)P(d, 60), (unsigned)P(d, 30), 45 * 64,
                  -270 * 64);
        XArc arcs[3];
        for (int i = 0; i < 3; i++) {
            arcs[i].x = (short)P(d, x + 10 * i);
            arcs[i].y = (short)P(d, top + 70 + 5 * i);
            arcs[i].width = (unsigned short)P(d, 120 - 20 * i);
            arcs[i].height = (unsigned short)P(d, 30 - 5 * i);
            arcs[i].angle1 = 0;
            arcs[i].angle2 = 180 * 64;
        }
        QlSetLineAttributes(p, gc, 0, LineSolid, CapButt, JoinMiter);
        QlSetForeground(p, gc, colour(d, "black"));
        QlDrawArcs(p, 0, gc, arcs, 3);
        sample_done(d, gc, x, top + CELL_H - 40, "QlDrawArc (270 degrees, an ellipse\nclockwise), QlDrawArcs");
    }
    {
        /* Pie slices: a chart of four values. */
        double x = 2 * CELL_W;
        GC gc = new_gc(d);
        static const char *colours[] = {"tomato", "gold", "yellow green", "cornflower blue"};
        static const int degrees[] = {130, 80, 90, 60};
        int start = 90 * 64;
        QlSetArcMode(p, gc, ArcPieSlice);
        for (int i = 0; i < 4; i++) {
            QlSetForeground(p, gc, colour(d, colours[i]));
            QlFillArc(p, 0, gc, P(d, x + 10), P(d, top), (unsigned)P(d, 100), (unsigned)P(d, 100), start,
                      degrees[i] * 64);
            start += degrees[i] * 64;
        }
        sample_done(d, gc, x, top + CELL_H - 40, "QlFillArc with ArcPieSlice");
    }
    {
        /* Chords: the same arcs closed by a straight line. */
        double x = 3 * CELL_W;
        GC gc = new_gc(d);
        QlSetArcMode(p, gc, ArcChord);
        QlSetForeground(p, gc, colour(d, "medium sea green"));
        QlFillArc(p, 0, gc, P(d, x), P(d, top), (unsigned)P(d, 70), (unsigned)P(d, 70), 30 * 64, 240 * 64);
        QlSetForeground(p, gc, colour(d, "sienna"));
        XArc arcs[2] = {{(short)P(d, x + 70), (short)P(d, top + 50), (unsigned short)P(d, 60),
                         (unsigned short)P(d, 60), 200 * 64, 140 * 64},
                        {(short)P(d, x + 70), (short)P(d, top + 50), (unsigned short)P(d, 60),
                         (unsigned short)P(d, 60), 20 * 64, 140 * 64}};
        QlFillArcs(p, 0, gc, arcs, 2);
        sample_done(d, gc, x, top + CELL_H - 40, "QlFillArc, QlFillArcs with\nArcChord");
    }

    /* Row 3: polygons, points, clipping. */
    top += CELL_H - 12;
    top = heading(d, top, "Polygons, points and clipping");
    /* A five-pointed star through every second corner of a pentagon: the
     * centre is wound twice. */
    static const double star[5][2] = {{50, 0}, {79.4, 90.5}, {2.5, 34.5}, {97.5, 34.5}, {20.6, 90.5}};
    static const int rules[] = {EvenOddRule, WindingRule};
    static const char *rule_captions[] = {"QlFillPolygon, EvenOddRule:\nthe centre is left out",
                                          "QlFillPolygon, WindingRule:\nthe centre is filled"};
    for (int k = 0; k < 2; k++) {
        double x = k * CELL_W + 10;
        GC gc = new_gc(d);
        XPoint v[5];
        for (int i = 0; i < 5; i++) {
            v[i].x = (short)P(d, x + star[i][0]);
            v[i].y = (short)P(d, top + star[i][1]);
        }
        QlSetFillRule(p, gc, rules[k]);
        QlSetForeground(p, gc, colour(d, k ? "dark violet" : "dodger blue"));
        QlFillPolygon(p, 0, gc, v, 5, Complex, CoordModeOrigin);
        QlSetForeground(p, gc, colour(d, "black"));
        XPoint closed[6];
        memcpy(closed, v, sizeof v);
        closed[5] = v[0];
        QlDrawLines(p, 0, gc, closed, 6, CoordModeOrigin);
        sample_done(d, gc, x - 10, top + CELL_H - 40, rule_captions[k]);
    }
    {
        /* Points: a grid whose spacing grows, and a parabola of points
         * given relative to each other (CoordModePrevious). */
        double x = 2 * CELL_W;
        GC gc = new_gc(d);
        XPoint pts[400];
        int n = 0;
        for (int i = 0; i < 20; i++)
            for (int j = 0; j < 20; j++) {
                pts[n].x = (short)(P(d, x) + i * i * P(d, 50) / 361);
                pts[n].y = (short)(P(d, top) + j * P(d, 50) / 19);
                n++;
            }
        QlDrawPoints(p, 0, gc, pts, n, CoordModeOrigin);
        n = 0;
        pts[n].x = (short)P(d, x + 60);
        pts[n++].y = (short)P(d, top + 52);
        for (int i = -20; i < 20; i++) {
            pts[n].x = (short)P(d, 1.5);
            pts[n++].y = (short)(P(d, 0.25) * (2 * i + 1) / 2);
        }
        QlSetForeground(p, gc, colour(d, "red"));
        QlDrawPoints(p, 0, gc, pts, n, CoordModePrevious);
        /* Segments: a fan of unconnected lines. */
        XSegment seg[9];
        for (int i = 0; i < 9; i++) {
            seg[i].x1 = (short)P(d, x + 5);
            seg[i].y1 = (short)P(d, top + 100);
            seg[i].x2 = (short)P(d, x + 120);
            seg[i].y2 = (short)P(d, top + 60 + 5 * i);
        }
        QlSetForeground(p, gc, colour(d, "dark slate gray"));
        QlDrawSegments(p, 0, gc, seg, 9);
        caption(d, x, top + CELL_H - 40, "QlDrawPoints, a dot each;\nQlDrawSegments");
        QlFreeGC(p, gc);
    }
    {
        /* Clip rectangles: rings drawn through two windows. */
        double x = 3 * CELL_W;
        GC gc = new_gc(d);
        XRectangle clip[2] = {{(short)P(d, x), (short)P(d, top), (unsigned short)P(d, 50), (unsigned short)P(d, 100)},
                              {(short)P(d, x + 60), (short)P(d, top + 30), (unsigned short)P(d, 60),
                               (unsigned short)P(d, 40)}};
        GC frame = new_gc(d);
        QlSetForeground(p, frame, rgb(d, 180, 180, 180));
        QlDrawRectangles(p, 0, frame, clip, 2);
        QlFreeGC(p, frame);
        QlSetClipRectangles(p, gc, 0, 0, clip, 2, Unsorted);
        QlSetLineAttributes(p, gc, (unsigned)P(d, 3), LineSolid, CapButt, JoinMiter);
        for (int i = 0; i < 8; i++) {
            QlSetForeground(p, gc, rgb(d, 30 * i, 40, 240 - 30 * i));
            int r = 8 + 8 * i;
            QlDrawArc(p, 0, gc, P(d, x + 60 - r), P(d, top + 50 - r), (unsigned)P(d, 2 * r), (unsigned)P(d, 2 * r),
                      0, 360 * 64);
        }
        sample_done(d, gc, x, top + CELL_H - 40, "QlSetClipRectangles: rings seen\nthrough two rectangles");
    }

    /* Row 4: colours. */
    top += CELL_H - 12;
    top = heading(d, top, "Colours") - 2;
    {
        GC gc = new_gc(d);
        static const char *names[] = {"red", "orange", "gold", "yellow green", "forest green", "turquoise",
                                      "steel blue", "navy", "blue violet", "magenta", "brown", "gray50"};
        for (int i = 0; i < 12; i++) {
            QlSetForeground(p, gc, colour(d, names[i]));
            QlFillRectangle(p, 0, gc, P(d, 48 * i), P(d, top), (unsigned)P(d, 44), (unsigned)P(d, 26));
            caption(d, 48 * i, top + 35, names[i]);
        }
        /* A ramp of 96 steps from red through green to blue. */
        for (int i = 0; i < 96; i++) {
            int r = i < 48 ? 255 - i * 255 / 47 : 0, g = i < 48 ? i * 255 / 47 : 255 - (i - 48) * 255 / 47,
                b = i < 48 ? 0 : (i - 48) * 255 / 47;
            QlSetForeground(p, gc, rgb(d, r, g, b));
            QlFillRectangle(p, 0, gc, P(d, 6 * i), P(d, top + 44), (unsigned)P(d, 6) + 1, (unsigned)P(d, 16));
        }
        caption(d, 0, top + 70, "QlAllocNamedColor by name (above); QlAllocColor by red, green and blue (the "
                "ramp); colour PostScript after QlSetPSColor(printer, 1)");
        QlFreeGC(p, gc);
    }
    end_page(d);
}

/* ------------------------------------------------------------------ page 2 */

/* A string drawn letter by letter with QlDrawText, each letter moved by
 * the font's kerning of the pair it ends. */
static void kerned(struct demo *d, XFontStruct *f, double x, double y, const char *s)
{
    XTextItem items[64];
    int n = 0;
    for (int i = 0; s[i] && n < 64; i++, n++) {
        items[n].chars = (char *)&s[i];
        items[n].nchars = 1;
        items[n].delta = i ? (int)(QlKernPairX(f, (unsigned char)s[i - 1], (unsigned char)s[i]) + 0.5) : 0;
        if (items[n].delta < 0) /* round half away from zero */
            items[n].delta = (int)(QlKernPairX(f, (unsigned char)s[i - 1], (unsigned char)s[i]) - 0.5);
        items[n].font = i ? None : f->fid;
    }
    GC gc = new_gc(d);
    QlSetFont(d->printer, gc, f->fid);
    QlDrawText(d->printer, 0, gc, P(d, x), P(d, y), items, n);
    QlFreeGC(d->printer, gc);
}

static void page_text(struct demo *d)
{
    Display *p = d->printer;
    start_page(d, "Text", 1.0);
    double y = 50;

    /* Every face the printer has in ISO 8859-1, from its font list. */
    heading(d, y, "The printer's fonts");
    int count = 0, resident = 0;
    char **names = QlListFonts(p, "-adobe-*-*-*-*--*-*-*-*-*-*-iso8859-1", 200, &count);
    /* The fonts that the printer's description (PPD) names; a printer
     * without one has the library's built-in list and names none here. */
    char **available = QlListAvailableFonts(p, &resident);
    char line[300];
    int n = snprintf(line, sizeof line, "QlListFonts(printer, \"-adobe-*-iso8859-1\") names %d faces", count);
    if (available && resident > 0)
        snprintf(line + n, sizeof line - (size_t)n, "; QlListAvailableFonts: %d in the printer, the first %s",
                 resident, available[0]);
    caption(d, 150, y, line);
    y += 16;
    for (int i = 0; i < count; i++) {
        char *sized = QlChangeFontSize(names[i], P(d, 11));
        XFontStruct *f = sized ? QlLoadQueryFont(p, sized) : NULL;
        if (f) {
            /* Family, weight and slant: fields 2 to 4 of the name. */
            char face[80] = "";
            const char *s = names[i];
            for (int dash = 0; *s && dash < 2; s++)
                dash += *s == '-';
            snprintf(face, sizeof face, "%s", s);
            char *cut = face;
            for (int dash = 0; *cut && dash < 3; cut++)
                dash += *cut == '-';
            if (cut > face)
                cut[-1] = '\0';
            text(d, d->caption, rgb(d, 60, 60, 60), 0, y, face);
            GC gc = new_gc(d);
            QlSetFont(p, gc, f->fid);
            const char *sample = "The quick brown fox jumps over the lazy dog 0123456789";
            QlDrawString(p, 0, gc, P(d, 150), P(d, y), sample, (int)strlen(sample));
            QlFreeGC(p, gc);
            QlFreeFont(p, f);
            y += 14;
        }
        if (sized != names[i])
            free(sized);
    }
    if (names)
        QlFreeFontNames(names);

    /* Kerning: the same words without and with the font's pairs. */
    y += 16;
    y = heading(d, y, "Kerning") + 24;
    XFontStruct *times = font(d, "adobe-times-medium-r", 28, "iso8859-1");
    if (times) {
        const char *words = "AVAST! To Wave, Yo-yo, LT";
        text(d, times, QlBlackPixel(p, 0), 0, y, words);
        caption(d, 400, y - 8, "QlDrawString: each letter at its\nown width");
        y += 38;
        kerned(d, times, 0, y, words);
        char kern[160];
        snprintf(kern, sizeof kern, "QlDrawText moved by QlKernPairX:\n\"AV\" %.1f, \"To\" %.1f dots",
                 QlKernPairX(times, 'A', 'V'), QlKernPairX(times, 'T', 'o'));
        caption(d, 400, y - 8, kern);
    }

    /* Reencoding: the fonts are reencoded for the charset their name asks. */
    y += 26;
    y = heading(d, y, "Encodings") + 8;
    static const struct {
        const char *face, *charset, *text, *what;
    } samples[] = {
        {"adobe-times-medium-r", "iso8859-1",
         "\307a va ? D\351j\340 vu, na\357ve fa\347ade, Gr\366\337e, sm\370rrebr\370d", "Latin-1, Times"},
        {"adobe-times-medium-r", "iso8859-2",
         "Za\277\363\263\346 g\352\266l\261 ja\274\361; P\370\355li\271 \276lu\273ou\350k\375 k\371\362",
         "ISO 8859-2 (Polish, Czech), Times"},
        {"adobe-helvetica-medium-r", "iso8859-5",
         "\301\352\325\350\354 \326\325 \325\351\361 \355\342\330\345 \334\357\323\332\330\345 "
         "\344\340\320\335\346\343\327\341\332\330\345 \321\343\333\336\332",
         "ISO 8859-5 (Cyrillic), Helvetica"},
        {"adobe-new century schoolbook-medium-r", "iso8859-7",
         "\312\341\353\347\354\335\361\341 \352\374\363\354\345, \345\353\353\347\355\351\352\334",
         "ISO 8859-7 (Greek), New Century Schoolbook"},
        {"adobe-symbol-medium-r", "adobe-*", "abgdepqlmsw ABGDPSW \245 \326 \362 \273",
         "Symbol, in its own encoding"},
    };
    for (int i = 0; i < 5; i++) {
        XFontStruct *f = font(d, samples[i].face, 14, samples[i].charset);
        text(d, f, QlBlackPixel(p, 0), 0, y, samples[i].text);
        char what[160];
        snprintf(what, sizeof what, "%s: ...-%s", samples[i].what, samples[i].charset);
        caption(d, 360, y, what);
        y += 20;
    }

    /* Image strings and text items. */
    y += 12;
    y = heading(d, y, "Text calls") + 10;
    {
        XFontStruct *courier = font(d, "adobe-courier-bold-r", 14, "iso8859-1");
        XFontStruct *helv = font(d, "adobe-helvetica-medium-o", 14, "iso8859-1");
        GC gc = new_gc(d);
        if (courier) {
            QlSetFont(p, gc, courier->fid);
            QlSetForeground(p, gc, colour(d, "white"));
            QlSetBackground(p, gc, colour(d, "dark slate blue"));
            const char *s = " QlDrawImageString: text on its background ";
            QlDrawImageString(p, 0, gc, 0, P(d, y), s, (int)strlen(s));
        }
        XFontStruct *roman = font(d, "adobe-times-bold-r", 16, "iso8859-1");
        if (courier && helv && roman) {
            XTextItem items[3] = {{"QlDrawText: ", 12, 0, courier->fid},
                                  {"three fonts", 11, P(d, 4), helv->fid},
                                  {" in one call", 12, P(d, 4), roman->fid}};
            QlSetForeground(p, gc, colour(d, "dark red"));
            QlDrawText(p, 0, gc, 0, P(d, y + 24), items, 3);
        }
        QlFreeGC(p, gc);
    }
    end_page(d);
}

/* ------------------------------------------------------------------ page 3 */

/* A pixmap of the printer filled pixel by pixel: pick(x, y) gives each
 * pixel.  Depth 1 gives a bitmap (a stipple); its image is an XYPixmap so
 * that the bits go in as they are. */
static Pixmap make_pixmap(struct demo *d, int depth, int w, int h, unsigned long (*pick)(struct demo *, int, int))
{
    Display *p = d->printer;
    XImage *image = QlCreateImage(p, NULL, (unsigned)depth, depth == 1 ? XYPixmap : ZPixmap, 0, NULL,
                                  (unsigned)w, (unsigned)h, 32, 0);
    if (!image)
        return None;
    image->data = calloc((size_t)image->bytes_per_line * (size_t)h, 1); /* one plane or ZPixmap */
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++)
            QlPutPixel(image, x, y, pick(d, x, y));
    Pixmap pm = QlCreatePixmap(p, 0, (unsigned)w, (unsigned)h, (unsigned)depth);
    GC gc = QlCreateGC(p, pm, 0, NULL);
    QlPutImage(p, pm, gc, image, 0, 0, 0, 0, (unsigned)w, (unsigned)h);
    QlFreeGC(p, gc);
    QlDestroyImage(image);
    return pm;
}

/* A tile of 40 by 40 dots: four coloured squares and a dark diagonal. */
static unsigned long tile_pixel(struct demo *d, int x, int y)
{
    if (x == y || x == y + 1)
        return rgb(d, 20, 20, 80);
    if (x < 20)
        return y < 20 ? rgb(d, 230, 60, 50) : rgb(d, 250, 200, 40);
    return y < 20 ? rgb(d, 255, 255, 255) : rgb(d, 60, 150, 80);
}

/* A stipple of 36 by 36 dots: a ring. */
static unsigned long stipple_bit(struct demo *d, int x, int y)
{
    (void)d;
    int r2 = (x - 18) * (x - 18) + (y - 18) * (y - 18);
    return r2 >= 7 * 7 && r2 <= 14 * 14;
}

/* The small figure that the program places as Encapsulated PostScript. */
static const char *figure_eps =
    "%!PS-Adobe-3.0 EPSF-3.0\n"
    "%%BoundingBox: 0 0 144 96\n"
    "%%Title: qldemo figure\n"
    "%%Creator: qldemo\n"
    "%%EndComments\n"
    "gsave\n"
    "0.95 0.93 0.80 setrgbcolor 0 0 144 96 rectfill\n"
    "0 0 0.5 setrgbcolor 2 setlinewidth 1 1 142 94 rectstroke\n"
    "0 1 11 { /i exch def i 12 div 1 0.6 sethsbcolor\n"
    "  newpath 72 40 moveto 72 40 30 i 30 mul i 30 mul 30 add arc closepath fill } for\n"
    "0 0 0.5 setrgbcolor /Helvetica-Bold findfont 14 scalefont setfont\n"
    "10 78 moveto (EPS figure) show\n"
    "grestore\n"
    "%%EOF\n";

static void page_images(struct demo *d)
{
    Display *p = d->printer;
    start_page(d, "Images, patterns and Encapsulated PostScript", 1.0);
    double y = 50;

    /* A depth-24 picture made pixel by pixel: a colour gradient with a
     * shaded disc; put at its size (one pixel a dot) and stretched. */
    y = heading(d, y, "Images");
    enum { IW = 160, IH = 120 };
    XImage *image = QlCreateImage(p, NULL, 24, ZPixmap, 0, NULL, IW, IH, 32, 0);
    if (image) {
        image->data = malloc((size_t)image->bytes_per_line * IH);
        for (int j = 0; j < IH; j++)
            for (int i = 0; i < IW; i++) {
                int dx = i - 100, dy = j - 55, r2 = dx * dx + dy * dy;
                int r = i * 255 / (IW - 1), g = j * 255 / (IH - 1), b = 255 - r / 2;
                if (r2 < 40 * 40) { /* the disc, lighter towards its upper left */
                    int shade = 255 - ((i - 88) * (i - 88) + (j - 43) * (j - 43)) / 12;
                    r = g = b = shade < 40 ? 40 : shade;
                }
                QlPutPixel(image, i, j, rgb(d, r, g, b));
            }
        GC gc = new_gc(d);
        QlPutImage(p, 0, gc, image, 0, 0, P(d, 0), P(d, y), IW, IH);
        caption(d, 0, y + IH * 72.0 / QlGetResolution(p) + 12, "QlPutImage: 160 x 120,\ndepth 24, a pixel a dot");
        QlStretchPutImage(p, 0, gc, image, 0, 0, IW, IH, P(d, 130), P(d, y), (unsigned)P(d, 240),
                          (unsigned)P(d, 180));
        caption(d, 130, y + 192, "QlStretchPutImage: the same image on 240 x 180 points");
        /* A piece of it: the disc alone, from a source rectangle. */
        QlStretchPutImage(p, 0, gc, image, 60, 15, 80, 80, P(d, 400), P(d, y), (unsigned)P(d, 120),
                          (unsigned)P(d, 120));
        sample_done(d, gc, 400, y + 132, "A source rectangle of it,\nstretched to 120 points");
        QlDestroyImage(image);
    }

    /* Tiles and stipples: pixmaps as fill patterns. */
    y += 220;
    y = heading(d, y, "Tiles and stipples");
    Pixmap tile = make_pixmap(d, QlDefaultDepth(p, 0), 40, 40, tile_pixel);
    Pixmap stipple = make_pixmap(d, 1, 36, 36, stipple_bit);
    {
        GC gc = new_gc(d);
        QlSetTile(p, gc, tile);
        QlSetFillStyle(p, gc, FillTiled);
        QlFillRectangle(p, 0, gc, P(d, 0), P(d, y), (unsigned)P(d, 100), (unsigned)P(d, 80));
        QlFillArc(p, 0, gc, P(d, 110), P(d, y), (unsigned)P(d, 80), (unsigned)P(d, 80), 0, 360 * 64);
        QlSetLineAttributes(p, gc, (unsigned)P(d, 10), LineSolid, CapRound, JoinRound);
        QlDrawLine(p, 0, gc, P(d, 8), P(d, y + 98), P(d, 180), P(d, y + 98));
        sample_done(d, gc, 0, y + 122, "QlSetTile + FillTiled: a 40-dot pixmap fills a rectangle,\nan ellipse and a 10 pt line");
    }
    {
        double x = 220;
        GC gc = new_gc(d);
        QlSetForeground(p, gc, colour(d, "light steel blue"));
        QlFillRectangle(p, 0, gc, P(d, x + 20), P(d, y + 15), (unsigned)P(d, 90), (unsigned)P(d, 60));
        QlSetStipple(p, gc, stipple);
        QlSetFillStyle(p, gc, FillStippled);
        QlSetForeground(p, gc, colour(d, "crimson"));
        QlFillRectangle(p, 0, gc, P(d, x), P(d, y), (unsigned)P(d, 80), (unsigned)P(d, 90));
        caption(d, x, y + 122, "FillStippled: the bits paint,\nthe rest shows through");
        x += 180;
        QlSetFillStyle(p, gc, FillOpaqueStippled);
        QlSetForeground(p, gc, colour(d, "navy"));
        QlSetBackground(p, gc, colour(d, "gold"));
        XPoint tri[3] = {{(short)P(d, x), (short)P(d, y + 100)},
                         {(short)P(d, x + 60), (short)P(d, y)},
                         {(short)P(d, x + 120), (short)P(d, y + 100)}};
        QlFillPolygon(p, 0, gc, tri, 3, Convex, CoordModeOrigin);
        sample_done(d, gc, x, y + 122, "FillOpaqueStippled: bits in the\nforeground, the rest background");
    }
    QlFreePixmap(p, tile);
    QlFreePixmap(p, stipple);

    /* Encapsulated PostScript: the program writes a small EPS file and
     * places it three times. */
    y += 150;
    y = heading(d, y, "Encapsulated PostScript") + 2;
    FILE *f = fopen("qldemo-figure.eps", "w");
    if (f) {
        fputs(figure_eps, f);
        fclose(f);
    }
    static const struct {
        double x, y, xs, ys, degrees;
        const char *what;
    } places[] = {
        {0, 0, 1, 1, 0, "QlEPS_Put at its size"},
        {180, 0, 0.6, 0.6, 0, "scaled 0.6"},
        {280, 35, 1.0, 0.7, 25, "scaled 1 x 0.7,\nrotated 25 degrees"},
        {450, 20, 0.6, 0.6, -20, "scaled 0.6,\nrotated -20 degrees"},
    };
    for (int i = 0; i < 4; i++) {
        f = fopen("qldemo-figure.eps", "r");
        if (!f)
            break;
        /* x, y in dots, the two scales, the angle in degrees. */
        double where[5] = {P(d, places[i].x), P(d, y + places[i].y), places[i].xs, places[i].ys,
                           places[i].degrees};
        QlEPSInfo *info = QlEPS_Put(p, f, where);
        fclose(f);
        caption(d, places[i].x, y + 125, places[i].what);
        if (info) {
            free(info->title);
            free(info->creator);
            free(info->creationDate);
            free(info->boundingBox);
            free(info);
        }
    }
    end_page(d);
}

/* ------------------------------------------------------------------ page 4 */

/* Japanese text in EUC-JP, the encoding of the locale ja_JP.eucJP, written
 * as bytes so that this file stays ASCII. */
static const char ja_sentence[] = /* Japanese text: kana, katakana, kanji */
    "\xC6\xFC\xCB\xDC\xB8\xEC\xA4\xCE\xA5\xC6\xA5\xAD\xA5\xB9\xA5\xC8\xA1\xA7"
    "\xA4\xAB\xA4\xCA\xA1\xA2\xA5\xAB\xA5\xCA\xA1\xA2\xB4\xC1\xBB\xFA";
static const char ja_mixed[] = /* "Qualin", half-width katakana, "printing" */
    "Qualin \x8E\xB6\x8E\xC0\x8E\xB6\x8E\xC5 \xB0\xF5\xBA\xFE";

static void japanese(struct demo *d, double y)
{
    Display *p = d->printer;
    y = heading(d, y, "Japanese text (font sets)");
    /* Font sets choose their charsets by the locale. */
    if (!setlocale(LC_ALL, "ja_JP.eucJP")) {
        caption(d, 0, y + 10, "Japanese text needs a Japanese locale: ja_JP.eucJP is not there.");
        return;
    }
    char names[512];
    snprintf(names, sizeof names,
             "-*-ryumin light-*-*-*--%d-*-*-*-*-*-jisx0208.1983-0,"
             "-*-ryumin light-*-*-*--%d-*-*-*-*-*-jisx0201.1976-0,"
             "-adobe-helvetica-medium-r-normal--%d-*-*-*-*-*-iso8859-1",
             P(d, 20), P(d, 20), P(d, 20));
    char **missing = NULL, *def = NULL;
    int nmissing = 0;
    QlFontSet *set = QlCreateFontSet(p, names, &missing, &nmissing, &def);
    int japanese_fonts = set != NULL;
    for (int i = 0; i < nmissing; i++)
        if (strstr(missing[i], "jisx"))
            japanese_fonts = 0;
    if (missing)
        QlFreeStringList(missing);
    if (!japanese_fonts) {
        caption(d, 0, y + 10, "Japanese text needs Japanese printer fonts: psstd.fonts has none for "
                "jisx0208.1983-0 and jisx0201.1976-0.");
    } else {
        GC gc = new_gc(d);
        QlmbDrawString(p, 0, set, gc, 0, P(d, y + 22), ja_sentence, (int)strlen(ja_sentence));
        QlSetForeground(p, gc, colour(d, "dark red"));
        QlmbDrawString(p, 0, set, gc, 0, P(d, y + 52), ja_mixed, (int)strlen(ja_mixed));
        caption(d, 0, y + 70, "QlmbDrawString in the locale ja_JP.eucJP: kanji and kana in the JIS X 0208 font, "
                "half-width katakana in\nthe JIS X 0201 font, \"Qualin\" in Helvetica; one font set, three fonts");
        /* Eight characters, sixteen bytes, running up and down. */
        QlSetForeground(p, gc, colour(d, "navy"));
        QlmbDrawRotString(p, 0, set, gc, P(d, 24), P(d, y + 280), ja_sentence, 16, 90 * 64);
        QlmbDrawRotString(p, 0, set, gc, P(d, 40), P(d, y + 110), ja_sentence, 16, -90 * 64);
        caption(d, 80, y + 270, "QlmbDrawRotString at 90 and -90 degrees");
        QlSetForeground(p, gc, colour(d, "white"));
        QlSetBackground(p, gc, colour(d, "sea green"));
        QlmbDrawImageString(p, 0, set, gc, P(d, 200), P(d, y + 150), ja_sentence, 16);
        sample_done(d, gc, 200, y + 170, "QlmbDrawImageString: the text on its background");
    }
    if (set)
        QlFreeFontSet(p, set);
    setlocale(LC_ALL, "C");
}

static void page_rotated(struct demo *d)
{
    Display *p = d->printer;
    start_page(d, "Rotated and Japanese text", 1.0);
    double y = 50;
    heading(d, y, "Rotated text");

    /* A wheel of strings around one point, every 30 degrees. */
    XFontStruct *helv = font(d, "adobe-helvetica-bold-r", 11, "iso8859-1");
    const double cx = 150, cy = y + 150;
    GC gc = new_gc(d);
    if (helv) {
        QlSetFont(p, gc, helv->fid);
        for (int a = 0; a < 360; a += 30) {
            char s[32];
            snprintf(s, sizeof s, "          Qualin %d\260", a);
            QlSetForeground(p, gc, rgb(d, 200 - a / 2, 40 + a / 3, a * 2 / 3));
            QlDrawRotString(p, 0, gc, P(d, cx), P(d, cy), s, (int)strlen(s), a * 64);
        }
    }
    caption(d, 40, y + 300, "QlDrawRotString: angles in 64ths of a degree,\ncounter-clockwise, every 30 degrees");

    /* Other fonts and angles; the image form paints its background. */
    XFontStruct *times = font(d, "adobe-times-bold-i", 18, "iso8859-1");
    XFontStruct *courier = font(d, "adobe-courier-medium-r", 12, "iso8859-1");
    if (times) {
        QlSetFont(p, gc, times->fid);
        QlSetForeground(p, gc, colour(d, "dark green"));
        const char *s = "Times Bold Italic, 15\260";
        QlDrawRotString(p, 0, gc, P(d, 330), P(d, y + 110), s, (int)strlen(s), 15 * 64);
        s = "Standing up, 90\260";
        QlSetForeground(p, gc, colour(d, "purple"));
        QlDrawRotString(p, 0, gc, P(d, 560), P(d, y + 250), s, (int)strlen(s), 90 * 64);
    }
    if (courier) {
        QlSetFont(p, gc, courier->fid);
        QlSetForeground(p, gc, colour(d, "white"));
        QlSetBackground(p, gc, colour(d, "firebrick"));
        const char *s = " QlDrawRotImageString, -30\260 ";
        QlDrawRotImageString(p, 0, gc, P(d, 330), P(d, y + 150), s, (int)strlen(s), -30 * 64);
        QlSetForeground(p, gc, colour(d, "black"));
        s = "Upside down, 180\260";
        QlDrawRotString(p, 0, gc, P(d, 510), P(d, y + 290), s, (int)strlen(s), 180 * 64);
    }
    QlFreeGC(p, gc);

    japanese(d, y + 340);
    end_page(d);
}

/* ------------------------------------------------------------------ page 5 */

/* A string of the window, drawn with Xlib. */
static void xstring(Display *x, Window w, GC gc, int px, int py, const char *s)
{
    XDrawString(x, w, gc, px, py, s, (int)strlen(s));
}

/* Draws a little application window with Xlib: a title strip, a bar chart,
 * a pie and some text in the server's fixed fonts. */
static void draw_window(Display *x, Window w, int width, int height)
{
    int screen = DefaultScreen(x);
    Colormap cmap = DefaultColormap(x, screen);
    GC gc = XCreateGC(x, w, 0, NULL);
    XFontStruct *big = XLoadQueryFont(x, "-misc-fixed-bold-r-normal--18-*-*-*-*-*-iso8859-1");
    XFontStruct *small = XLoadQueryFont(x, "-misc-fixed-medium-r-normal--13-*-*-*-*-*-iso8859-1");
    if (!big)
        big = XLoadQueryFont(x, "fixed");
    if (!small)
        small = XLoadQueryFont(x, "fixed");
#define PIXEL(name) (XAllocNamedColor(x, cmap, name, &c, &exact) ? c.pixel : BlackPixel(x, screen))
    XColor c, exact;

    XSetForeground(x, gc, PIXEL("#f4f1e8"));
    XFillRectangle(x, w, gc, 0, 0, (unsigned)width, (unsigned)height);
    XSetForeground(x, gc, PIXEL("#1d3d78"));
    XFillRectangle(x, w, gc, 0, 0, (unsigned)width, 40);
    XSetForeground(x, gc, WhitePixel(x, screen));
    if (big) {
        XSetFont(x, gc, big->fid);
        xstring(x, w, gc, 14, 27, "Quarterly sales - an X window");
    }

    /* The bar chart, with its axis and labels. */
    static const char *colours[] = {"#d9482b", "#f0b429", "#3f9b58", "#3a6fc4"};
    static const int values[] = {120, 180, 150, 210};
    static const char *labels[] = {"Q1", "Q2", "Q3", "Q4"};
    XSetForeground(x, gc, BlackPixel(x, screen));
    XDrawLine(x, w, gc, 50, 400, 380, 400);
    XDrawLine(x, w, gc, 50, 400, 50, 70);
    if (small)
        XSetFont(x, gc, small->fid);
    for (int i = 0; i < 4; i++) {
        int h = values[i] * 3 / 2;
        XSetForeground(x, gc, PIXEL(colours[i]));
        XFillRectangle(x, w, gc, 75 + 75 * i, 400 - h, 50, (unsigned)h);
        XSetForeground(x, gc, BlackPixel(x, screen));
        XDrawRectangle(x, w, gc, 75 + 75 * i, 400 - h, 50, (unsigned)h);
        xstring(x, w, gc, 92 + 75 * i, 420, labels[i]);
    }

    /* The pie of the same values, and its legend. */
    int start = 90 * 64;
    for (int i = 0; i < 4; i++) {
        int extent = values[i] * 360 * 64 / 660;
        XSetForeground(x, gc, PIXEL(colours[i]));
        XFillArc(x, w, gc, 430, 70, 240, 240, start, extent);
        XFillRectangle(x, w, gc, 440, 330 + 20 * i, 14, 14);
        XSetForeground(x, gc, BlackPixel(x, screen));
        char legend[32];
        snprintf(legend, sizeof legend, "%s  %3d units", labels[i], values[i]);
        xstring(x, w, gc, 462, 342 + 20 * i, legend);
        start += extent;
    }
    XDrawArc(x, w, gc, 430, 70, 240, 240, 0, 360 * 64);

    /* A status line and a button. */
    XSetForeground(x, gc, PIXEL("#d8d4c8"));
    XFillRectangle(x, w, gc, 0, height - 34, (unsigned)width, 34);
    XSetForeground(x, gc, PIXEL("#ffffff"));
    XFillRectangle(x, w, gc, width - 100, height - 30, 90, 26);
    XSetForeground(x, gc, BlackPixel(x, screen));
    XDrawRectangle(x, w, gc, width - 100, height - 30, 90, 26);
    xstring(x, w, gc, 10, height - 12, "Drawn with Xlib on the X server, read back by QlPrintWindow");
    xstring(x, w, gc, width - 73, height - 12, "Print");
#undef PIXEL
    if (big)
        XFreeFont(x, big);
    if (small)
        XFreeFont(x, small);
    XFreeGC(x, gc);
}

static void page_window(struct demo *d)
{
    Display *p = d->printer;
    /* At a scale of 3 a printer dot (1/300 inch) becomes 1/100 inch: the
     * window's pixels print at about the size a screen shows them. */
    const double scale = QlGetResolution(p) / 100.0;
    start_page(d, "A window of the X display", scale);
    heading(d, 50, "QlPrintWindow");

    Display *x = XOpenDisplay(NULL);
    if (!x) {
        caption(d, 0, 70, "No X display: this page prints a window of the screen that DISPLAY names.");
        end_page(d);
        return;
    }
    int screen = DefaultScreen(x);
    const int width = 720, height = 480;
    Window w = XCreateSimpleWindow(x, RootWindow(x, screen), 20, 20, width, height, 0, BlackPixel(x, screen),
                                   WhitePixel(x, screen));
    XSelectInput(x, w, ExposureMask);
    XMapWindow(x, w);
    XEvent e;
    do /* only a mapped, viewable window can be read back */
        XNextEvent(x, &e);
    while (e.type != Expose);
    draw_window(x, w, width, height);
    XSync(x, False);

    /* The page's units are now screen pixels: a point is 100/72 of them. */
    const int at_x = P(d, 20), at_y = P(d, 70);
    GC gc = new_gc(d);
    QlSetForeground(p, gc, rgb(d, 120, 120, 120));
    QlDrawRectangle(p, 0, gc, at_x - 1, at_y - 1, width + 1, height + 1);
    QlFreeGC(p, gc);
    if (QlPrintWindow(p, x, screen, w, at_x, at_y)) {
        char what[320];
        snprintf(what, sizeof what, "QlPrintWindow(printer, display, screen, window, x, y): a %d x %d window "
                 "read back from the X server,\none screen pixel to a printer dot; QlSetScale(printer, %.0f) "
                 "before the page makes a pixel 1/100 inch.", width, height, scale);
        caption(d, 20, 70 + height * 72.0 / 100 + 16, what);
        static const char *steps[] = {
            "How this page was made:",
            "1. XOpenDisplay(NULL) opens the display that DISPLAY names (scripts/demo starts an Xvfb server).",
            "2. XCreateSimpleWindow and XMapWindow, then the first Expose: only a viewable window can be read.",
            "3. Xlib draws the window's picture; XSync waits until the server has drawn it.",
            "4. QlPrintWindow reads the window back and puts it on the page, colours and all.",
        };
        for (int i = 0; i < 5; i++)
            text(d, d->caption, QlBlackPixel(p, 0), 20, 70 + height * 72.0 / 100 + 50 + 12 * i, steps[i]);
    } else {
        caption(d, 20, 80, "QlPrintWindow could not read the window back.");
    }
    XDestroyWindow(x, w);
    XCloseDisplay(x);
    end_page(d);
}

int main(void)
{
    struct demo d;
    memset(&d, 0, sizeof d);
    d.printer = QlOpenPrinter();
    if (!d.printer) {
        fprintf(stderr, "qldemo: the default printer does not open\n");
        return 1;
    }
    QlSetPSLevel(d.printer, 2);      /* colour images, tiles as patterns */
    QlSetPSColor(d.printer, 1);      /* colour PostScript; grey by default */
    QlSetColorDepth(d.printer, 24);  /* a pixel is its colour: no table of 256 cells to fill up */
    d.cmap = QlDefaultColormap(d.printer, 0);
    if (!QlStartDoc(d.printer, "Qualin demo")) {
        fprintf(stderr, "qldemo: the document does not start\n");
        QlClosePrinter(d.printer);
        return 1;
    }
    page_shapes(&d);
    page_text(&d);
    page_images(&d);
    page_rotated(&d);
    page_window(&d);
    int ok = QlEndDoc(d.printer);
    QlClosePrinter(d.printer);
    return ok ? 0 : 1;
}
