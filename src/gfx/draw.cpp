// The drawing calls.  A display goes straight to Xlib with the same
// arguments; a printer passes the guard and reaches its driver's slot.
#include "core/driver.h"
#include "drivers/ps/ps.h"
#include "gfx/dispatch.h"
#include "gfx/gc.h"
#include "gfx/image.h"

#include <X11/Xutil.h>

#include <algorithm>

int _QlScanConvertPolygons = 0;

namespace {

using ql::kBadGC;
using ql::kBadValue;

// The loop forms: one guard, then the slot once per element, without the
// bracket; the slots' results are not kept.
template <typename T, typename F>
int each(Display *handle, const char *caller, GC gc, const T *items, int count, F call) {
    QlPrinter *p = ql::Guarded(handle, caller);
    if (!p) return kBadValue;
    if (count <= 0) return 0;
    if (!items) return kBadValue;
    QlGC *g = _QlPrinterGC(gc, caller);
    if (!g) return kBadGC;
    const QlDrawDriver *drv = DriverSwitch[p->driverId];
    for (int i = 0; i < count; ++i) call(drv, p, g, items[i]);
    return 0;
}

// Brings width, height, origin and scale up to date with the page.
void resetPage(QlPrinter *p) {
    if (p->driverId == QL_DRIVER_POSTSCRIPT) ps::PSResetPage(p);
}

int pageResolution(QlPrinter *p) {
    if (p->driverId == QL_DRIVER_POSTSCRIPT && p->psPage) return ps::geometry(p)->resolution;
    return 0;
}

bool outsideBand(double divisor) { return divisor > 1.001 || divisor < 0.99; }

int toAppUnits(int extent, double divisor, float scale) {
    if (outsideBand(divisor)) extent = static_cast<int>(divisor * extent);
    return scale > 0 ? static_cast<int>(extent / scale) : extent;
}

}  // namespace

int QlDrawArc(Display *handle, Drawable d, GC gc, int x, int y, unsigned width, unsigned height, int angle1,
              int angle2) {
    if (QlIsDisplay(handle)) return XDrawArc(handle, d, gc, x, y, width, height, angle1, angle2);
    return ql::Draw<&QlDrawDriver::DrawArc>(handle, "QlDrawArc", d, gc, x, y, width, height, angle1, angle2);
}

int QlDrawArcs(Display *handle, Drawable d, GC gc, XArc *arcs, int count) {
    if (QlIsDisplay(handle)) return XDrawArcs(handle, d, gc, arcs, count);
    return each(handle, "QlDrawArcs", gc, arcs, count, [d](auto *drv, QlPrinter *p, QlGC *g, const XArc &a) {
        drv->DrawArc(p, d, g, a.x, a.y, a.width, a.height, a.angle1, a.angle2);
    });
}

int QlDrawLine(Display *handle, Drawable d, GC gc, int x1, int y1, int x2, int y2) {
    if (QlIsDisplay(handle)) return XDrawLine(handle, d, gc, x1, y1, x2, y2);
    return ql::Draw<&QlDrawDriver::DrawLine>(handle, "QlDrawLine", d, gc, x1, y1, x2, y2);
}

int QlDrawLines(Display *handle, Drawable d, GC gc, XPoint *points, int count, int mode) {
    if (QlIsDisplay(handle)) return XDrawLines(handle, d, gc, points, count, mode);
    if (count > 0 && !points) return kBadValue;
    return ql::Draw<&QlDrawDriver::DrawLines>(handle, "QlDrawLines", d, gc, points, count, mode);
}

int QlDrawPoint(Display *handle, Drawable d, GC gc, int x, int y) {
    if (QlIsDisplay(handle)) return XDrawPoint(handle, d, gc, x, y);
    return ql::Draw<&QlDrawDriver::DrawPoint>(handle, "QlDrawPoint", d, gc, x, y);
}

// Relative points add up as they do on a display.
int QlDrawPoints(Display *handle, Drawable d, GC gc, XPoint *points, int count, int mode) {
    if (QlIsDisplay(handle)) return XDrawPoints(handle, d, gc, points, count, mode);
    int x = 0, y = 0;
    bool first = true;
    return each(handle, "QlDrawPoints", gc, points, count, [&](auto *drv, QlPrinter *p, QlGC *g, const XPoint &pt) {
        if (mode == CoordModePrevious && !first) {
            x += pt.x;
            y += pt.y;
        } else {
            x = pt.x;
            y = pt.y;
        }
        first = false;
        drv->DrawPoint(p, d, g, x, y);
    });
}

int QlDrawRectangle(Display *handle, Drawable d, GC gc, int x, int y, unsigned width, unsigned height) {
    if (QlIsDisplay(handle)) return XDrawRectangle(handle, d, gc, x, y, width, height);
    return ql::Draw<&QlDrawDriver::DrawRectangle>(handle, "QlDrawRectangle", d, gc, x, y, width, height);
}

int QlDrawRectangles(Display *handle, Drawable d, GC gc, XRectangle *rects, int count) {
    if (QlIsDisplay(handle)) return XDrawRectangles(handle, d, gc, rects, count);
    return each(handle, "QlDrawRectangles", gc, rects, count,
                [d](auto *drv, QlPrinter *p, QlGC *g, const XRectangle &r) {
                    drv->DrawRectangle(p, d, g, r.x, r.y, r.width, r.height);
                });
}

int QlDrawSegments(Display *handle, Drawable d, GC gc, XSegment *segments, int count) {
    if (QlIsDisplay(handle)) return XDrawSegments(handle, d, gc, segments, count);
    return each(handle, "QlDrawSegments", gc, segments, count,
                [d](auto *drv, QlPrinter *p, QlGC *g, const XSegment &s) {
                    drv->DrawLine(p, d, g, s.x1, s.y1, s.x2, s.y2);
                });
}

int QlFillArc(Display *handle, Drawable d, GC gc, int x, int y, unsigned width, unsigned height, int angle1,
              int angle2) {
    if (QlIsDisplay(handle)) return XFillArc(handle, d, gc, x, y, width, height, angle1, angle2);
    return ql::Draw<&QlDrawDriver::FillArc>(handle, "QlFillArc", d, gc, x, y, width, height, angle1, angle2);
}

int QlFillArcs(Display *handle, Drawable d, GC gc, XArc *arcs, int count) {
    if (QlIsDisplay(handle)) return XFillArcs(handle, d, gc, arcs, count);
    return each(handle, "QlFillArcs", gc, arcs, count, [d](auto *drv, QlPrinter *p, QlGC *g, const XArc &a) {
        drv->FillArc(p, d, g, a.x, a.y, a.width, a.height, a.angle1, a.angle2);
    });
}

int QlFillPolygon(Display *handle, Drawable d, GC gc, XPoint *points, int count, int shape, int mode) {
    if (QlIsDisplay(handle)) return XFillPolygon(handle, d, gc, points, count, shape, mode);
    if (count > 0 && !points) return kBadValue;
    return ql::Draw<&QlDrawDriver::FillPolygon>(handle, "QlFillPolygon", d, gc, points, count, shape, mode);
}

int QlFillRectangle(Display *handle, Drawable d, GC gc, int x, int y, unsigned width, unsigned height) {
    if (QlIsDisplay(handle)) return XFillRectangle(handle, d, gc, x, y, width, height);
    return ql::Draw<&QlDrawDriver::FillRectangle>(handle, "QlFillRectangle", d, gc, x, y, width, height);
}

int QlFillRectangles(Display *handle, Drawable d, GC gc, XRectangle *rects, int count) {
    if (QlIsDisplay(handle)) return XFillRectangles(handle, d, gc, rects, count);
    return each(handle, "QlFillRectangles", gc, rects, count,
                [d](auto *drv, QlPrinter *p, QlGC *g, const XRectangle &r) {
                    drv->FillRectangle(p, d, g, r.x, r.y, r.width, r.height);
                });
}

int QlClearArea(Display *handle, Window w, int x, int y, unsigned width, unsigned height, Bool exposures) {
    if (QlIsDisplay(handle)) return XClearArea(handle, w, x, y, width, height, exposures);
    QlPrinter *p = ql::Guarded(handle, "QlClearArea");
    if (!p) return kBadValue;
    if (width == 0) width = static_cast<unsigned>(std::max(QlDisplayWidth(handle, 0), 0));
    if (height == 0) height = static_cast<unsigned>(std::max(QlDisplayHeight(handle, 0), 0));
    _QlSetLocaleC();
    int rc = DriverSwitch[p->driverId]->ClearArea(p, x, y, width, height);
    _QlResetLocale();
    return rc;
}

// On paper, clearing the window means a new sheet.
int QlClearWindow(Display *handle, Window w) {
    if (QlIsDisplay(handle)) return XClearWindow(handle, w);
    QlPrinter *p = ql::Guarded(handle, "QlClearWindow");
    if (!p) return kBadValue;
    QlPageEject(handle);
    if (p->lastGC) p->lastGC->dirty = ql::gcbit::All;
    return 0;
}

int QlCopyArea(Display *handle, Drawable source, Drawable destination, GC gc, int sx, int sy, unsigned width,
               unsigned height, int dx, int dy) {
    if (QlIsDisplay(handle)) return XCopyArea(handle, source, destination, gc, sx, sy, width, height, dx, dy);
    QlPrinter *p = ql::Guarded(handle, "QlCopyArea");
    if (!p) return kBadValue;
    if (destination == 0) {
        QlGC *g = _QlPrinterGC(gc, "QlCopyArea");
        if (!g) return kBadGC;
        _QlSetLocaleC();
        int rc = DriverSwitch[p->driverId]->CopyArea(p, g, source, sx, sy, width, height, dx, dy);
        _QlResetLocale();
        return rc;
    }
    // Pixmap to pixmap: both are images in memory.
    auto *src = reinterpret_cast<XImage *>(source);
    if (src) _QlCopyPixels(src, sx, sy, reinterpret_cast<XImage *>(destination), dx, dy, width, height, ~0UL);
    return 0;
}

int QlCopyPlane(Display *handle, Drawable source, Drawable destination, GC gc, int sx, int sy, unsigned width,
                unsigned height, int dx, int dy, unsigned long plane) {
    if (QlIsDisplay(handle))
        return XCopyPlane(handle, source, destination, gc, sx, sy, width, height, dx, dy, plane);
    return QlCopyArea(handle, source, destination, gc, sx, sy, width, height, dx, dy);
}

// Screen-shaped values.  On a display they are the screen's (an unknown
// screen number gives 0); on a printer they come from the page.
namespace {
bool validScreen(Display *handle, int screen) { return screen >= 0 && screen < ScreenCount(handle); }

unsigned long greyPixel(Display *handle, unsigned short level) {
    XColor c{};
    c.red = c.green = c.blue = level;
    QlAllocColor(handle, 0, &c);
    return c.pixel;
}
}  // namespace

unsigned long QlBlackPixel(Display *handle, int screen) {
    if (QlIsDisplay(handle)) return validScreen(handle, screen) ? BlackPixel(handle, screen) : 0;
    return _QlAsPrinter(handle) ? greyPixel(handle, 0) : 0;
}

unsigned long QlWhitePixel(Display *handle, int screen) {
    if (QlIsDisplay(handle)) return validScreen(handle, screen) ? WhitePixel(handle, screen) : 0;
    return _QlAsPrinter(handle) ? greyPixel(handle, 65535) : 0;
}

int QlDefaultDepth(Display *handle, int screen) {
    if (QlIsDisplay(handle)) return validScreen(handle, screen) ? DefaultDepth(handle, screen) : 0;
    QlPrinter *p = _QlAsPrinter(handle);
    return p ? p->depth : 0;
}

int QlDefaultScreen(Display *handle) { return QlIsDisplay(handle) ? DefaultScreen(handle) : 0; }

Colormap QlDefaultColormap(Display *handle, int screen) {
    if (QlIsDisplay(handle)) return validScreen(handle, screen) ? DefaultColormap(handle, screen) : 0;
    return 0;
}

int QlDisplayCells(Display *handle, int screen) {
    if (QlIsDisplay(handle)) return validScreen(handle, screen) ? DisplayCells(handle, screen) : 0;
    QlPrinter *p = _QlAsPrinter(handle);
    return p ? p->numCells : 0;
}

Window QlRootWindow(Display *handle, int screen) {
    if (QlIsDisplay(handle)) return validScreen(handle, screen) ? RootWindow(handle, screen) : 0;
    return 0;
}

Window QlDefaultRootWindow(Display *handle) { return QlIsDisplay(handle) ? DefaultRootWindow(handle) : 0; }

int QlDisplayWidth(Display *handle, int screen) {
    if (QlIsDisplay(handle)) return validScreen(handle, screen) ? DisplayWidth(handle, screen) : 0;
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return 0;
    resetPage(p);
    if (screen != 0) return 0;
    return toAppUnits(p->width, p->divisorX, p->scaleX);
}

int QlDisplayHeight(Display *handle, int screen) {
    if (QlIsDisplay(handle)) return validScreen(handle, screen) ? DisplayHeight(handle, screen) : 0;
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || screen != 0) return 0;
    resetPage(p);
    return toAppUnits(p->height, p->divisorY, p->scaleY);
}

int QlDisplayWidthMM(Display *handle, int screen) {
    if (QlIsDisplay(handle)) return validScreen(handle, screen) ? DisplayWidthMM(handle, screen) : 0;
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return 0;
    resetPage(p);
    int res = pageResolution(p);
    return res > 0 ? static_cast<int>(p->width * 25.4 / res) : 0;
}

int QlDisplayHeightMM(Display *handle, int screen) {
    if (QlIsDisplay(handle)) return validScreen(handle, screen) ? DisplayHeightMM(handle, screen) : 0;
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return 0;
    resetPage(p);
    int res = pageResolution(p);
    return res > 0 ? static_cast<int>(p->height * 25.4 / res) : 0;
}

int QlFlush(Display *handle) { return QlIsDisplay(handle) ? XFlush(handle) : 0; }

Status QlGetGeometry(Display *handle, Drawable d, Window *root, int *x, int *y, unsigned *width, unsigned *height,
                     unsigned *border, unsigned *depth) {
    if (QlIsDisplay(handle)) return XGetGeometry(handle, d, root, x, y, width, height, border, depth);
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || !root || !x || !y || !width || !height || !border || !depth) return 0;
    *root = 0;
    *x = *y = 0;
    *border = 0;
    *depth = 1;
    if (d) {
        const auto *image = reinterpret_cast<const XImage *>(d);
        *width = static_cast<unsigned>(image->width);
        *height = static_cast<unsigned>(image->height);
        return 1;
    }
    PSPageGeometry g{};
    char *size = QlGetPageSize(handle);
    QlQueryPageSize(handle, size, &g);
    int w = g.imageRight - g.imageLeft, h = g.imageTop - g.imageBottom;
    if (outsideBand(p->divisorX)) w = static_cast<int>(p->divisorX * w);
    if (outsideBand(p->divisorY)) h = static_cast<int>(p->divisorY * h);
    *width = static_cast<unsigned>(std::max(w, 0));
    *height = static_cast<unsigned>(std::max(h, 0));
    return 1;
}

// Screen pixels keep their physical size on paper.
int QlMatch(Display *display, int screen, Display *printer) {
    QlPrinter *p = _QlAsPrinter(printer);
    if (!p || !QlIsDisplay(display) || !validScreen(display, screen)) return 0;
    int r = QlGetResolution(printer);
    int mmw = DisplayWidthMM(display, screen), mmh = DisplayHeightMM(display, screen);
    if (r <= 0 || mmw <= 0 || mmh <= 0) return 0;
    p->divisorX = DisplayWidth(display, screen) * 25.4 / mmw / r;
    p->divisorY = DisplayHeight(display, screen) * 25.4 / mmh / r;
    return 1;
}
