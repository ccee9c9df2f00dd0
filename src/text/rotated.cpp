// Rotated text on a real display, done in software.
//
// The string is drawn into a depth-1 pixmap, read back, and every inked
// pixel is moved to its turned place in a bitmap of the turned box.  That
// bitmap goes onto the drawable through a clip mask: the glyphs alone for
// a plain string, the whole box for an image string.  The turn is worked
// in millimetres of the screen, so that text keeps its shape on screens
// whose pixels aren't square.
//
// X's coordinates name pixel centres: a source pixel is turned by its
// centre and lands on the pixel whose centre is nearest.
#include "text/rotated.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

extern "C" {
QL_EXPORT int rotTextCacheSize = 10;

// Xlib's hook at the closing of a display, from its internal header, which
// is not included for this one declaration.
using QlCloseDisplayProc = int (*)(Display *, XExtCodes *);
QlCloseDisplayProc XESetCloseDisplay(Display *display, int extension, QlCloseDisplayProc proc);
}

namespace {

// ------------------------------------------------------------ screen scale

// Millimetres per pixel of the default screen, set at each call.
float xscale = 1, yscale = 1, oneoverxscale = 1, oneoveryscale = 1;

void setScreenScale(Display *display) {
    const int s = DefaultScreen(display);
    const int w = DisplayWidth(display, s), h = DisplayHeight(display, s);
    const int mw = DisplayWidthMM(display, s), mh = DisplayHeightMM(display, s);
    // A screen that doesn't know its size is taken as square.
    if (w <= 0 || h <= 0 || mw <= 0 || mh <= 0) {
        xscale = yscale = oneoverxscale = oneoveryscale = 1;
        return;
    }
    xscale = static_cast<float>(mw) / w;
    yscale = static_cast<float>(mh) / h;
    oneoverxscale = 1 / xscale;
    oneoveryscale = 1 / yscale;
}

// The turn of a point (dx, dy) about the reference point, in pixels.  The
// turn keeps the sign of dx, so that points left of the reference point
// turn like all others.
struct Turn {
    double cs, sn;
    explicit Turn(int angle) {
        const double theta = angle / 23040.0 * 2 * std::acos(-1.0);
        cs = std::cos(theta);
        sn = std::sin(theta);
    }
    void operator()(double dx, double dy, double &ox, double &oy) const {
        const double mx = dx * xscale, my = dy * yscale;
        ox = (mx * cs + my * sn) * oneoverxscale;
        oy = (my * cs - mx * sn) * oneoveryscale;
    }
};

int RoundDown(float v) { return static_cast<int>(v < 0 ? v - 0.5f : v); }
int RoundUp(float v) { return static_cast<int>(v > 0 ? v + 0.5f : v); }

// The largest turned box drawn: its corners must fit the shorts of an
// XPoint, and its area is what the cache's bound speaks of.
constexpr int kMaxBoxSide = 32767;
constexpr long kMaxCachedArea = 1000000;

// ------------------------------------------------------------ X errors

// X errors of the calls made here are counted, not fatal: the default
// handler would end the application.  Errors still pending from earlier
// calls go to the application's handler first.
int trappedErrors = 0;
int countError(Display *, XErrorEvent *) {
    ++trappedErrors;
    return 0;
}
class ErrorTrap {
  public:
    explicit ErrorTrap(Display *display) : display_(display) {
        XSync(display_, False);
        previous_ = XSetErrorHandler(countError);
    }
    ~ErrorTrap() {
        XSync(display_, False);
        XSetErrorHandler(previous_);
    }
    ErrorTrap(const ErrorTrap &) = delete;
    ErrorTrap &operator=(const ErrorTrap &) = delete;

  private:
    Display *display_;
    XErrorHandler previous_;
};

// ------------------------------------------------------------ resources

// The server's resources made for one call, freed on every way out.
struct Resources {
    Display *display;
    Pixmap text = 0, mask = 0, bits = 0;
    GC textGC = nullptr, maskGC = nullptr, bitsGC = nullptr, drawGC = nullptr;
    XImage *source = nullptr, *target = nullptr;
    bool keepBits = false;  // the cache took the bitmap
    int freed = 0;          // what freeing the drawing GC gave
    ~Resources() {
        if (source) XDestroyImage(source);
        if (target) XDestroyImage(target);  // frees the zeroed data as well
        for (GC g : {textGC, maskGC, bitsGC}) {
            if (g) XFreeGC(display, g);
        }
        if (text) XFreePixmap(display, text);
        if (mask) XFreePixmap(display, mask);
        if (bits && !keepBits) XFreePixmap(display, bits);
    }
};

// ------------------------------------------------------------ the cache

struct CacheEntry {
    Display *display;
    int angle;
    std::string fontNames;
    std::string text;
    int length;
    Pixmap pixmap;
};

struct RotTextCache {
    std::vector<CacheEntry> entries;  // the front is the most used
    bool initialised = false;
    std::vector<Display *> watched;  // displays whose closing empties their entries
};
RotTextCache rotTextCache;

void freeEntry(const CacheEntry &e) { XFreePixmap(e.display, e.pixmap); }

// Drops entries beyond `keep`, freeing their pixmaps.
void trimCache(size_t keep) {
    auto &v = rotTextCache.entries;
    while (v.size() > keep) {
        freeEntry(v.back());
        v.pop_back();
    }
}

// A closed display takes its pixmaps with it: its entries go before the
// Display record does, so no later eviction touches a dead connection.
int forgetDisplay(Display *display, XExtCodes *) {
    auto &v = rotTextCache.entries;
    for (auto it = v.begin(); it != v.end();) {
        if (it->display == display) {
            freeEntry(*it);
            it = v.erase(it);
        } else {
            ++it;
        }
    }
    auto &w = rotTextCache.watched;
    w.erase(std::remove(w.begin(), w.end(), display), w.end());
    return 0;
}

void watchDisplay(Display *display) {
    auto &w = rotTextCache.watched;
    if (std::find(w.begin(), w.end(), display) != w.end()) return;
    XExtCodes *codes = XAddExtension(display);
    if (!codes) return;
    XESetCloseDisplay(display, codes->extension, forgetDisplay);
    w.push_back(display);
}

bool sameKey(const CacheEntry &e, Display *display, int angle, const char *fontNames, const char *string,
             int length) {
    return e.display == display && e.angle == angle && e.length == length &&
           e.text.compare(0, std::string::npos, string, static_cast<size_t>(length)) == 0 &&
           e.fontNames == (fontNames ? fontNames : "");
}

// ------------------------------------------------------------ drawing

void putBit(XImage *image, long x, long y) {
    if (x < 0 || y < 0 || x >= image->width || y >= image->height) return;
    XPutPixel(image, static_cast<int>(x), static_cast<int>(y), 1);
}

// The font of the GC as the cache names it; the server's default font
// (never set by the application) has no id.
std::string fontKey(Font font) {
    if (font == 0 || font == ~0UL) return "";
    return std::to_string(font);
}

// Paints the text into a bitmap and turns it onto the box.  Gives the
// bitmap, or 0 when the server refused.
Pixmap turnedBitmap(Resources &r, Drawable d, const RotatedText &text, int angle, int left, int top, int boxWidth,
                    int boxHeight) {
    Display *display = r.display;
    const int width = text.width, ascent = text.ascent, height = text.height;
    r.text = XCreatePixmap(display, d, static_cast<unsigned>(width), static_cast<unsigned>(height), 1);
    XGCValues values{};
    values.foreground = 1;
    values.background = 0;
    r.textGC = XCreateGC(display, r.text, GCForeground | GCBackground, &values);
    text.paint(r.text, r.textGC, ascent);
    r.source = XGetImage(display, r.text, 0, 0, static_cast<unsigned>(width), static_cast<unsigned>(height), 1,
                         ZPixmap);
    if (!r.source) return 0;

    const int s = DefaultScreen(display);
    r.target = XCreateImage(display, DefaultVisual(display, s), 1, ZPixmap, 0, nullptr,
                            static_cast<unsigned>(boxWidth), static_cast<unsigned>(boxHeight), 8, 0);
    if (!r.target) return 0;
    r.target->data = static_cast<char *>(std::calloc(static_cast<size_t>(r.target->bytes_per_line), boxHeight));
    if (!r.target->data) return 0;

    // One source column further is one step along the turned baseline;
    // half a step back fills the holes a diagonal would leave.
    const Turn turn(angle);
    double x0, y0, x1, y1;
    turn(0, -ascent, x0, y0);
    turn(width, -ascent, x1, y1);
    const double dx = (x1 - x0) / width, dy = (y1 - y0) / width;
    const double halfX = dx * 0.5, halfY = dy * 0.5;
    std::vector<unsigned char> row(static_cast<size_t>(width) + 1);
    for (int sy = 0; sy < height; ++sy) {
        double px, py;
        turn(0, sy - ascent, px, py);
        px -= left;
        py += ascent - top;
        for (int sx = 0; sx < width; ++sx) row[sx + 1] = XGetPixel(r.source, sx, sy) ? 1 : 0;
        for (int sx = 0; sx < width; ++sx, px += dx, py += dy) {
            if (!row[sx + 1]) continue;
            putBit(r.target, std::lround(px), std::lround(py));
            if (row[sx]) putBit(r.target, std::lround(px - halfX), std::lround(py - halfY));
        }
    }

    r.bits = XCreatePixmap(display, d, static_cast<unsigned>(boxWidth), static_cast<unsigned>(boxHeight), 1);
    r.bitsGC = XCreateGC(display, r.bits, GCForeground | GCBackground, &values);
    XPutImage(display, r.bits, r.bitsGC, r.target, 0, 0, 0, 0, static_cast<unsigned>(boxWidth),
              static_cast<unsigned>(boxHeight));
    return r.bits;
}

}  // namespace

// ------------------------------------------------------------ the box

void RotateBox(int width, int height, int x, int y, int angle, int *left, int *top, int *boxWidth, int *boxHeight,
               short corners[8]) {
    const Turn turn(angle);
    const double dx[4] = {-double(x), double(width - x), double(width - x), -double(x)};
    const double dy[4] = {-double(y), -double(y), double(height - y), double(height - y)};
    double cx[4], cy[4];
    for (int i = 0; i < 4; ++i) {
        turn(dx[i], dy[i], cx[i], cy[i]);
        cx[i] += x;
        cy[i] += y;
    }
    const float minX = static_cast<float>(*std::min_element(cx, cx + 4));
    const float minY = static_cast<float>(*std::min_element(cy, cy + 4));
    const float maxX = static_cast<float>(*std::max_element(cx, cx + 4));
    const float maxY = static_cast<float>(*std::max_element(cy, cy + 4));
    *left = RoundDown(minX);
    *top = RoundDown(minY);
    *boxWidth = RoundUp(maxX) - *left + 1;
    *boxHeight = RoundUp(maxY) - *top + 1;
    // Rounded, not cut: a cut corner would move the painted box of an image
    // string up to a pixel up and left of the box on paper.
    for (int i = 0; i < 4; ++i) {
        corners[2 * i] = static_cast<short>(std::lround(std::clamp(cx[i] - *left, -32768.0, 32767.0)));
        corners[2 * i + 1] = static_cast<short>(std::lround(std::clamp(cy[i] - *top, -32768.0, 32767.0)));
    }
}

// ------------------------------------------------------------ the cache

int QlGetCachedRotText(Display *display, int angle, const char *fontNames, const char *string, int length,
                       Pixmap *pixmap, long size) {
    if (size > kMaxCachedArea || !rotTextCache.initialised || !string || length < 0) return 0;
    trimCache(static_cast<size_t>(std::max(rotTextCacheSize, 0)));
    auto &v = rotTextCache.entries;
    for (size_t i = 0; i < v.size(); ++i) {
        if (!sameKey(v[i], display, angle, fontNames, string, length)) continue;
        if (pixmap) *pixmap = v[i].pixmap;
        if (i > 0) std::swap(v[i], v[i - 1]);
        return 1;
    }
    return 0;
}

int QlSetCachedRotText(Display *display, int angle, const char *fontNames, const char *string, int length,
                       Pixmap pixmap, long size) {
    rotTextCache.initialised = true;
    if (size > kMaxCachedArea || rotTextCacheSize <= 0 || !string || length < 0) return 0;
    // The size may have been changed since the last call: the entries
    // beyond it go, and room is made for the new one.
    trimCache(static_cast<size_t>(rotTextCacheSize - 1));
    try {
        watchDisplay(display);
        auto &v = rotTextCache.entries;
        v.insert(v.begin(), CacheEntry{display, angle, fontNames ? fontNames : "",
                                       std::string(string, static_cast<size_t>(length)), length, pixmap});
    } catch (const std::bad_alloc &) {
        return 0;
    }
    return 1;
}

int _QlRotTextCacheCount() { return static_cast<int>(rotTextCache.entries.size()); }

Pixmap _QlRotTextCacheEntry(int index, int *angle) {
    const auto &v = rotTextCache.entries;
    if (index < 0 || static_cast<size_t>(index) >= v.size()) return 0;
    if (angle) *angle = v[index].angle;
    return v[index].pixmap;
}

// ------------------------------------------------------------ drawing

int RotatedTextDraw(Display *display, Drawable d, GC gc, int x, int y, const char *string, int length, int angle,
                    int image, const RotatedText &text) {
    const int width = text.width, ascent = text.ascent, height = text.height;
    if (width <= 0 || height <= 0 || width > kMaxBoxSide || height > kMaxBoxSide) return 0;
    try {
        ErrorTrap trap(display);
        setScreenScale(display);
        int left, top, boxWidth, boxHeight;
        short corners[8];
        RotateBox(width, height, 0, ascent, angle, &left, &top, &boxWidth, &boxHeight, corners);
        if (boxWidth <= 0 || boxHeight <= 0 || boxWidth > kMaxBoxSide || boxHeight > kMaxBoxSide) return 0;
        const long area = static_cast<long>(boxWidth) * boxHeight;

        Resources r{display};
        Pixmap bits = 0;
        if (!QlGetCachedRotText(display, angle, text.cacheKey, string, length, &bits, area)) {
            bits = turnedBitmap(r, d, text, angle, left, top, boxWidth, boxHeight);
            if (!bits) return 0;
            r.keepBits = QlSetCachedRotText(display, angle, text.cacheKey, string, length, bits, area) == 1;
        }

        // The mask: the glyphs, or the whole box for an image string.
        r.mask = XCreatePixmap(display, d, static_cast<unsigned>(boxWidth), static_cast<unsigned>(boxHeight), 1);
        XGCValues zero{};
        zero.foreground = 0;
        zero.background = 0;
        zero.graphics_exposures = False;
        r.maskGC = XCreateGC(display, r.mask, GCForeground | GCBackground | GCGraphicsExposures, &zero);
        XFillRectangle(display, r.mask, r.maskGC, 0, 0, static_cast<unsigned>(boxWidth),
                       static_cast<unsigned>(boxHeight));
        if (image) {
            XPoint points[4];
            for (int i = 0; i < 4; ++i) points[i] = {corners[2 * i], corners[2 * i + 1]};
            XSetForeground(display, r.maskGC, 1);
            XFillPolygon(display, r.mask, r.maskGC, points, 4, Convex, CoordModeOrigin);
        } else {
            XSetForeground(display, r.maskGC, 1);
            XCopyPlane(display, bits, r.mask, r.maskGC, 0, 0, static_cast<unsigned>(boxWidth),
                       static_cast<unsigned>(boxHeight), 0, 0, 1);
        }

        // Foreground and background of the user's GC, through the mask.
        GC draw = XCreateGC(display, d, 0, nullptr);
        XCopyGC(display, gc, ~0UL, draw);
        XSetGraphicsExposures(display, draw, False);
        XSetClipMask(display, draw, r.mask);
        const int ox = x + left, oy = y - ascent + top;
        XSetClipOrigin(display, draw, ox, oy);
        XCopyPlane(display, bits, d, draw, 0, 0, static_cast<unsigned>(boxWidth), static_cast<unsigned>(boxHeight),
                   ox, oy, 1);
        return XFreeGC(display, draw);
    } catch (const std::bad_alloc &) {
        return BadAlloc;
    }
}

int RotatedStringDraw(Display *display, Drawable d, GC gc, int x, int y, const char *string, int length, int angle,
                      int image) {
    if (!display || !gc || !string || length <= 0) return 0;
    try {
        ErrorTrap trap(display);
        int direction = 0, fontAscent = 0, fontDescent = 0;
        XCharStruct overall{};
        if (!XQueryTextExtents(display, XGContextFromGC(gc), string, length, &direction, &fontAscent,
                               &fontDescent, &overall))
            return 0;
        XGCValues user{};
        XGetGCValues(display, gc, GCFont, &user);
        const std::string key = fontKey(user.font);
        RotatedText text{overall.width, fontAscent, fontAscent + fontDescent, key.c_str(),
                         [&](Drawable bitmap, GC textGC, int baseline) {
                             if (!key.empty()) XSetFont(display, textGC, user.font);
                             XDrawImageString(display, bitmap, textGC, 0, baseline, string, length);
                         }};
        return RotatedTextDraw(display, d, gc, x, y, string, length, angle, image, text);
    } catch (const std::bad_alloc &) {
        return BadAlloc;
    }
}

// Metrics and drawing are the font set's; the cache knows the set by its
// base names.
int mbRotatedStringDraw(Display *display, Drawable d, XFontSet set, GC gc, int x, int y, const char *text,
                        int length, int angle, int image) {
    if (!display || !set || !gc || !text || length <= 0) return 0;
    try {
        ErrorTrap trap(display);
        XRectangle ink{}, logical{};
        XmbTextExtents(set, text, length, &ink, &logical);
        const char *names = XBaseFontNameListOfFontSet(set);
        RotatedText box{logical.width, -logical.y, logical.height, names ? names : "",
                        [&](Drawable bitmap, GC textGC, int baseline) {
                            XmbDrawImageString(display, bitmap, set, textGC, 0, baseline, text, length);
                        }};
        return RotatedTextDraw(display, d, gc, x, y, text, length, angle, image, box);
    } catch (const std::bad_alloc &) {
        return BadAlloc;
    }
}

int XDrawRotString(Display *display, Drawable d, GC gc, int x, int y, const char *string, int length, int angle) {
    return RotatedStringDraw(display, d, gc, x, y, string, length, angle, 0);
}

int XDrawRotImageString(Display *display, Drawable d, GC gc, int x, int y, const char *string, int length,
                        int angle) {
    return RotatedStringDraw(display, d, gc, x, y, string, length, angle, 1);
}

int XmbDrawRotString(Display *display, Drawable d, XFontSet set, GC gc, int x, int y, const char *text, int length,
                     int angle) {
    return mbRotatedStringDraw(display, d, set, gc, x, y, text, length, angle, 0);
}

int XmbDrawRotImageString(Display *display, Drawable d, XFontSet set, GC gc, int x, int y, const char *text,
                          int length, int angle) {
    return mbRotatedStringDraw(display, d, set, gc, x, y, text, length, angle, 1);
}
