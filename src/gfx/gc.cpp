// Graphics contexts: Xlib's on a display, QlGC records on a printer.
//
// A printer GC remembers its values and, in `dirty`, which of them the
// output has not seen yet; nothing is written when a value changes.
#include "gfx/gc.h"

#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <unordered_set>

// Xlib's private records come last: their macros clash with the library's.
#include <X11/Xlibint.h>
#include <X11/Xregion.h>

// The printer GC has the layout of Xlib's own GC record.
static_assert(offsetof(QlGC, dirty) == offsetof(_XGC, dirty));
static_assert(offsetof(QlGC, values) == offsetof(_XGC, values));
static_assert(offsetof(QlGC, clipIsRects) == offsetof(_XGC, rects));
static_assert(offsetof(QlGC, dashesSet) == offsetof(_XGC, dashes));
static_assert(offsetof(QlGC, fontStruct) == sizeof(_XGC));
static_assert(std::is_standard_layout_v<QlGC>);

namespace {

// The GCs made on printers and not yet freed: a GC of a display, or a
// freed one, is refused rather than read as a printer GC.
std::unordered_set<const QlGC *> &liveGCs() {
    static std::unordered_set<const QlGC *> set;
    return set;
}

// The GC found live last: drawing calls ask about the same GC again and
// again.  Freeing it clears this.
const QlGC *lastLiveGC = nullptr;

constexpr int kBadValue = 2, kBadFont = 7, kBadGC = 13;

// The frame every setter shares on a printer: the GC, or a report and
// the code to give.
struct Target {
    QlPrinter *printer = nullptr;
    QlGC *gc = nullptr;
    int error = 0;
};

Target target(Display *handle, GC gc, const char *caller) {
    Target t;
    t.printer = _QlAsPrinter(handle);
    if (!t.printer) {
        t.error = kBadValue;
        return t;
    }
    t.gc = _QlPrinterGC(gc, caller);
    if (!t.gc) t.error = kBadGC;
    return t;
}

int badValue(const char *caller) {
    _QlError(wBadValue, caller);
    return kBadValue;
}

// Stores a value and marks its bits when it differs from the stored one.
template <typename F, typename V>
void storeIfChanged(QlGC *g, F &field, V value, unsigned long bits) {
    if (field == static_cast<F>(value)) return;
    field = static_cast<F>(value);
    g->dirty |= bits;
}

// Copies the values that mask names, all but the font, whose id goes
// with its font structure.
void copyValues(XGCValues &d, const XGCValues &s, unsigned long mask) {
    if (mask & GCFunction) d.function = s.function;
    if (mask & GCPlaneMask) d.plane_mask = s.plane_mask;
    if (mask & GCForeground) d.foreground = s.foreground;
    if (mask & GCBackground) d.background = s.background;
    if (mask & GCLineWidth) d.line_width = s.line_width;
    if (mask & GCLineStyle) d.line_style = s.line_style;
    if (mask & GCCapStyle) d.cap_style = s.cap_style;
    if (mask & GCJoinStyle) d.join_style = s.join_style;
    if (mask & GCFillStyle) d.fill_style = s.fill_style;
    if (mask & GCFillRule) d.fill_rule = s.fill_rule;
    if (mask & GCTile) d.tile = s.tile;
    if (mask & GCStipple) d.stipple = s.stipple;
    if (mask & GCTileStipXOrigin) d.ts_x_origin = s.ts_x_origin;
    if (mask & GCTileStipYOrigin) d.ts_y_origin = s.ts_y_origin;
    if (mask & GCSubwindowMode) d.subwindow_mode = s.subwindow_mode;
    if (mask & GCGraphicsExposures) d.graphics_exposures = s.graphics_exposures;
    if (mask & GCClipXOrigin) d.clip_x_origin = s.clip_x_origin;
    if (mask & GCClipYOrigin) d.clip_y_origin = s.clip_y_origin;
    if (mask & GCClipMask) d.clip_mask = s.clip_mask;
    if (mask & GCDashOffset) d.dash_offset = s.dash_offset;
    if (mask & GCDashList) d.dashes = s.dashes;
    if (mask & GCArcMode) d.arc_mode = s.arc_mode;
}

int setFontId(Display *handle, QlGC *g, Font font) {
    g->values.font = font;
    g->fontStruct = QlQueryFont(handle, font);
    return g->fontStruct ? 0 : kBadFont;
}

const char *defaultFontPattern(int driverId) {
    switch (driverId) {
    case QL_DRIVER_POSTSCRIPT: return "-adobe-helvetica-medium-r-normal--*-120-*";
    case QL_DRIVER_PCL5: return "-agfa-cg times-medium-r-normal--*-120-*";
    case QL_DRIVER_PCL4: return "-*-courier-medium-r-normal--*-120-*";
    default: return nullptr;
    }
}

}  // namespace

QlGC *_QlPrinterGC(GC gc, const char *caller) {
    auto *g = reinterpret_cast<QlGC *>(gc);
    if (g && (g == lastLiveGC || liveGCs().count(g))) {
        lastLiveGC = g;
        return g;
    }
    _QlError(wBadGC, caller);
    return nullptr;
}

GC QlCreateGC(Display *handle, Drawable drawable, unsigned long mask, XGCValues *values) {
    if (QlIsDisplay(handle)) return XCreateGC(handle, drawable, mask, values);
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return nullptr;
    auto *g = static_cast<QlGC *>(std::calloc(1, sizeof(QlGC)));
    if (!g) return nullptr;
    liveGCs().insert(g);
    g->dirty = ql::gcbit::All;
    g->values.function = GXcopy;
    g->values.plane_mask = ~0UL;
    g->values.foreground = QlBlackPixel(handle, 0);
    g->values.background = QlWhitePixel(handle, 0);
    g->values.line_width = 1;
    g->values.arc_mode = ArcPieSlice;
    g->values.dashes = 4;
    char *name = nullptr;
    if (const char *pattern = defaultFontPattern(p->driverId)) name = _QlTryToFindADefaultFont(p, pattern);
    XFontStruct *fs = name ? QlLoadQueryFont(handle, name) : nullptr;
    if (fs) {
        g->fontStruct = fs;
        g->values.font = fs->fid;
    } else {
        _QlError(wNoDefFont, "QlCreateGC");
    }
    std::free(name);
    GC result = reinterpret_cast<GC>(g);
    if (values) QlChangeGC(handle, result, mask, values);
    p->lastGC = g;
    return result;
}

int QlChangeGC(Display *handle, GC gc, unsigned long mask, XGCValues *values) {
    if (QlIsDisplay(handle)) return XChangeGC(handle, gc, mask, values);
    Target t = target(handle, gc, "QlChangeGC");
    if (t.error) return t.error;
    if (!values) return badValue("QlChangeGC");
    // A zero dash length is refused, as X does: no interpreter accepts it.
    if ((mask & GCDashList) && values->dashes == 0) return badValue("QlChangeGC");
    QlGC *g = t.gc;
    XGCValues &v = g->values;
    g->dirty |= mask;
    copyValues(v, *values, mask);
    if (mask & GCClipMask) g->clipIsRects = 0;
    if (mask & GCDashList) g->dashesSet = 0;
    if (mask & GCFont) {
        if (values->font == 0) return kBadFont;
        if (values->font != v.font) return setFontId(handle, g, values->font);
    }
    return 0;
}

// Copies in Xlib's direction: the values named by mask go from `source`
// into `destination`, whose dirty bits take the mask.
int QlCopyGC(Display *handle, GC source, unsigned long mask, GC destination) {
    if (QlIsDisplay(handle)) return XCopyGC(handle, source, mask, destination);
    Target from = target(handle, source, "QlCopyGC");
    if (from.error) return from.error;
    Target to = target(handle, destination, "QlCopyGC");
    if (to.error) return to.error;
    const XGCValues &s = from.gc->values;
    XGCValues &d = to.gc->values;
    copyValues(d, s, mask);
    if (mask & GCFont) d.font = s.font;
    to.gc->dirty |= mask;
    if (mask & GCForeground) to.gc->dirty |= GCFillStyle;
    return 0;
}

int QlFreeGC(Display *handle, GC gc) {
    if (QlIsDisplay(handle)) return XFreeGC(handle, gc);
    Target t = target(handle, gc, "QlFreeGC");
    if (t.error) return t.error;
    QlGC *g = t.gc;
    liveGCs().erase(g);
    if (lastLiveGC == g) lastLiveGC = nullptr;
    std::free(g->clipRects);
    std::free(g->dashList);
    if (t.printer->lastGC == g) t.printer->lastGC = nullptr;
    if (t.printer->defaultGC == g) t.printer->defaultGC = nullptr;
    std::free(g);
    return 0;
}

GC QlDefaultGC(Display *handle, int screen) {
    if (QlIsDisplay(handle)) {
        if (screen < 0 || screen >= ScreenCount(handle)) return nullptr;
        return DefaultGC(handle, screen);
    }
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return nullptr;
    if (!p->defaultGC) p->defaultGC = reinterpret_cast<QlGC *>(QlCreateGC(handle, 0, 0, nullptr));
    return reinterpret_cast<GC>(p->defaultGC);
}

int QlCheckGC(Display *handle, GC gc) {
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || !gc) return 0;
    QlGC *g = _QlPrinterGC(gc, "QlCheckGC");
    if (g && p->lastGC != g) {
        p->lastGC = g;
        g->dirty = ql::gcbit::All;
    }
    return 0;
}

int QlSetArcMode(Display *handle, GC gc, int mode) {
    if (QlIsDisplay(handle)) return XSetArcMode(handle, gc, mode);
    Target t = target(handle, gc, "QlSetArcMode");
    if (t.error) return t.error;
    if (static_cast<unsigned>(mode) > 1) return badValue("QlSetArcMode");
    t.gc->values.arc_mode = mode;
    t.gc->dirty |= GCArcMode;
    return 0;
}

int QlSetClipOrigin(Display *handle, GC gc, int x, int y) {
    if (QlIsDisplay(handle)) return XSetClipOrigin(handle, gc, x, y);
    Target t = target(handle, gc, "QlSetClipOrigin");
    if (t.error) return t.error;
    t.gc->values.clip_x_origin = x;
    t.gc->values.clip_y_origin = y;
    return 0;
}

int QlSetClipMask(Display *handle, GC gc, Pixmap pixmap) {
    if (QlIsDisplay(handle)) return XSetClipMask(handle, gc, pixmap);
    Target t = target(handle, gc, "QlSetClipMask");
    if (t.error) return t.error;
    if (t.printer->driverId == QL_DRIVER_PCL5 || t.printer->driverId == QL_DRIVER_PCL4)
        _QlError(wPCL5Clip, "QlSetClipMask");
    t.gc->values.clip_mask = pixmap;
    t.gc->clipIsRects = 0;
    t.gc->dirty |= GCClipMask;
    return 0;
}

int QlSetClipRectangles(Display *handle, GC gc, int x, int y, XRectangle *rectangles, int count, int ordering) {
    if (QlIsDisplay(handle)) return XSetClipRectangles(handle, gc, x, y, rectangles, count, ordering);
    Target t = target(handle, gc, "QlSetClipRectangles");
    if (t.error) return t.error;
    if (count > 0 && !rectangles) return badValue("QlSetClipRectangles");
    XRectangle *copy = nullptr;
    if (count > 0) {
        copy = static_cast<XRectangle *>(std::malloc(sizeof(XRectangle) * static_cast<size_t>(count)));
        if (!copy) return 11;
        std::memcpy(copy, rectangles, sizeof(XRectangle) * static_cast<size_t>(count));
    }
    QlGC *g = t.gc;
    std::free(g->clipRects);
    g->dirty |= ql::gcbit::ClipSet;
    g->clipIsRects = 1;
    g->values.clip_x_origin = x;
    g->values.clip_y_origin = y;
    g->clipRects = copy;
    g->clipRectCount = copy ? count : 0;
    if (t.printer->driverId == QL_DRIVER_PCL5 && count > 1) _QlError(wPCL5ClipRect, "QlSetClipRectangles");
    return 0;
}

int QlSetRegion(Display *handle, GC gc, Region region) {
    if (QlIsDisplay(handle)) return XSetRegion(handle, gc, region);
    if (!_QlAsPrinter(handle)) return kBadValue;
    if (!region) return badValue("QlSetRegion");
    const long n = region->numRects;
    auto *rects = static_cast<XRectangle *>(std::malloc(sizeof(XRectangle) * static_cast<size_t>(n > 0 ? n : 1)));
    if (!rects) return 11;
    for (long i = 0; i < n; ++i) {
        const BOX &b = region->rects[i];
        rects[i] = {b.x1, b.y1, static_cast<unsigned short>(b.x2 - b.x1), static_cast<unsigned short>(b.y2 - b.y1)};
    }
    int rc = QlSetClipRectangles(handle, gc, 0, 0, rects, static_cast<int>(n), YXBanded);
    std::free(rects);
    return rc;
}

int QlSetDashes(Display *handle, GC gc, int offset, const char *list, int count) {
    if (QlIsDisplay(handle)) return XSetDashes(handle, gc, offset, list, count);
    Target t = target(handle, gc, "QlSetDashes");
    if (t.error) return t.error;
    if (count < 0 || (count > 0 && !list)) return badValue("QlSetDashes");
    // A dash of length zero is refused, as X does: no interpreter accepts it.
    for (int i = 0; i < count; ++i)
        if (list[i] == 0) return badValue("QlSetDashes");
    auto *copy = static_cast<char *>(std::malloc(static_cast<size_t>(count > 0 ? count : 1)));
    if (!copy) return 11;
    if (count > 0) std::memcpy(copy, list, static_cast<size_t>(count));
    QlGC *g = t.gc;
    g->dirty |= GCDashList;
    g->dashesSet = 1;
    g->values.dash_offset = offset;
    std::free(g->dashList);
    g->dashList = copy;
    g->dashCount = count;
    return 0;
}

int QlSetLineAttributes(Display *handle, GC gc, unsigned int width, int style, int cap, int join) {
    if (QlIsDisplay(handle)) return XSetLineAttributes(handle, gc, width, style, cap, join);
    Target t = target(handle, gc, "QlSetLineAttributes");
    if (t.error) return t.error;
    XGCValues &v = t.gc->values;
    bool bad = false;
    if (static_cast<unsigned>(v.line_width) != width) {
        v.line_width = width ? static_cast<int>(width) : 1;
        t.gc->dirty |= GCLineWidth;
    }
    // A changed value below its limit is stored and marked; one at or above
    // it is a bad value, and the others are kept all the same.
    auto setChecked = [&](int &field, int value, unsigned limit, unsigned long bit) {
        if (static_cast<unsigned>(value) >= limit) bad = bad || field != value;
        else storeIfChanged(t.gc, field, value, bit);
    };
    setChecked(v.line_style, style, 3, GCLineStyle);
    setChecked(v.cap_style, cap, 4, GCCapStyle);
    setChecked(v.join_style, join, 3, GCJoinStyle);
    return bad ? badValue("QlSetLineAttributes") : 0;
}

int QlSetFillRule(Display *handle, GC gc, int rule) {
    if (QlIsDisplay(handle)) return XSetFillRule(handle, gc, rule);
    Target t = target(handle, gc, "QlSetFillRule");
    if (t.error) return t.error;
    if (static_cast<unsigned>(rule) > 1) return badValue("QlSetFillRule");
    t.gc->values.fill_rule = rule;
    t.gc->dirty |= GCFillRule;
    return 0;
}

int QlSetFillStyle(Display *handle, GC gc, int style) {
    if (QlIsDisplay(handle)) return XSetFillStyle(handle, gc, style);
    Target t = target(handle, gc, "QlSetFillStyle");
    if (t.error) return t.error;
    if (static_cast<unsigned>(style) > 3) return badValue("QlSetFillStyle");
    t.gc->values.fill_style = style;
    t.gc->dirty |= GCFillStyle;
    return 0;
}

int QlSetTile(Display *handle, GC gc, Pixmap tile) {
    if (QlIsDisplay(handle)) return XSetTile(handle, gc, tile);
    Target t = target(handle, gc, "QlSetTile");
    if (t.error) return t.error;
    t.gc->values.tile = tile;
    t.gc->dirty |= GCTile;
    return 0;
}

// The stipple has its own field beside the tile, as in X, so that a GC
// that holds both paints with the one its fill style names.
int QlSetStipple(Display *handle, GC gc, Pixmap stipple) {
    if (QlIsDisplay(handle)) return XSetStipple(handle, gc, stipple);
    Target t = target(handle, gc, "QlSetStipple");
    if (t.error) return t.error;
    t.gc->values.stipple = stipple;
    t.gc->dirty |= GCStipple;
    return 0;
}

int QlSetTSOrigin(Display *handle, GC gc, int x, int y) {
    if (QlIsDisplay(handle)) return XSetTSOrigin(handle, gc, x, y);
    Target t = target(handle, gc, "QlSetTSOrigin");
    if (t.error) return t.error;
    _QlError(wNotSupport, "QlSetTSOrigin");
    storeIfChanged(t.gc, t.gc->values.ts_x_origin, x, GCTileStipXOrigin);
    storeIfChanged(t.gc, t.gc->values.ts_y_origin, y, GCTileStipYOrigin);
    return 0;
}

int QlSetForeground(Display *handle, GC gc, unsigned long pixel) {
    if (QlIsDisplay(handle)) return XSetForeground(handle, gc, pixel);
    Target t = target(handle, gc, "QlSetForeground");
    if (t.error) return t.error;
    storeIfChanged(t.gc, t.gc->values.foreground, pixel, GCForeground | GCFillStyle);
    return 0;
}

int QlSetBackground(Display *handle, GC gc, unsigned long pixel) {
    if (QlIsDisplay(handle)) return XSetBackground(handle, gc, pixel);
    Target t = target(handle, gc, "QlSetBackground");
    if (t.error) return t.error;
    storeIfChanged(t.gc, t.gc->values.background, pixel, GCBackground);
    return 0;
}

int QlSetFunction(Display *handle, GC gc, int function) {
    if (QlIsDisplay(handle)) return XSetFunction(handle, gc, function);
    Target t = target(handle, gc, "QlSetFunction");
    if (t.error) return t.error;
    storeIfChanged(t.gc, t.gc->values.function, function, GCFunction);
    return 0;
}

int QlSetPlaneMask(Display *handle, GC gc, unsigned long mask) {
    if (QlIsDisplay(handle)) return XSetPlaneMask(handle, gc, mask);
    Target t = target(handle, gc, "QlSetPlaneMask");
    if (t.error) return t.error;
    _QlError(wNotSupport, "QlSetPlaneMask");
    storeIfChanged(t.gc, t.gc->values.plane_mask, mask, GCPlaneMask);
    return 0;
}

// The arguments mean on a printer what they mean to XSetState, so that
// one call sets the same state on both.
int QlSetState(Display *handle, GC gc, unsigned long foreground, unsigned long background, int function,
               unsigned long planeMask) {
    if (QlIsDisplay(handle)) return XSetState(handle, gc, foreground, background, function, planeMask);
    Target t = target(handle, gc, "QlSetState");
    if (t.error) return t.error;
    XGCValues &v = t.gc->values;
    storeIfChanged(t.gc, v.function, function, GCFunction);
    storeIfChanged(t.gc, v.plane_mask, planeMask, GCPlaneMask);
    storeIfChanged(t.gc, v.foreground, foreground, GCForeground | GCFillStyle);
    storeIfChanged(t.gc, v.background, background, GCBackground);
    return 0;
}

int QlSetSubwindowMode(Display *handle, GC gc, int mode) {
    if (QlIsDisplay(handle)) return XSetSubwindowMode(handle, gc, mode);
    Target t = target(handle, gc, "QlSetSubwindowMode");
    if (t.error) return t.error;
    _QlError(wNotSupport, "QlSetSubwindowMode");
    storeIfChanged(t.gc, t.gc->values.subwindow_mode, mode, GCSubwindowMode);
    return 0;
}

int QlSetFont(Display *handle, GC gc, Font font) {
    if (QlIsDisplay(handle)) return XSetFont(handle, gc, font);
    if (font == 0) return kBadFont;
    Target t = target(handle, gc, "QlSetFont");
    if (t.error) return t.error;
    t.gc->dirty |= GCFont;
    return setFontId(handle, t.gc, font);
}
