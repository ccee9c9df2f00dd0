// Colours.  A real display gets Xlib's calls unchanged.  A printer has no
// colormap, so it keeps a table of 256 cells of its own (made by the driver
// at a full open); at depth 24 no table is used and a pixel is the colour,
// laid out by the printer's channel masks.  The colormap argument is there
// for Xlib's sake and is not looked at on a printer.
#include "gfx/colour.h"

#include "port/kvo.h"

#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <span>
#include <string>

namespace {

constexpr unsigned kGreyBits = 0xFC00;  // greys agree in their top 6 bits
constexpr unsigned kHueBits = 0xF000;   // other colours in their top 4
constexpr int64_t kNearEnough = 100000; // largest distance a full table accepts, exclusive
constexpr int kRGBFile = 23;            // QlLookupColor's result when rgb.txt does not open

// The cells of a printer; empty when the table could not be made.
std::span<QlColorCell> table(QlPrinter *p) {
    if (!p->cells || p->numCells <= 0) return {};
    return {static_cast<QlColorCell *>(p->cells), static_cast<size_t>(p->numCells)};
}

QlColorCell *cellOf(QlPrinter *p, unsigned long pixel) {
    std::span<QlColorCell> cells = table(p);
    return pixel < cells.size() ? &cells[pixel] : nullptr;
}

// Where a channel lies in a pixel: the lowest bit of its mask and the
// number of bits from there on.
struct Field {
    int shift = 0, width = 0;
    explicit Field(unsigned long mask) {
        if (!mask) return;
        shift = std::countr_zero(mask);
        width = std::countr_one(mask >> shift);
    }
};

// A 16-bit channel's top bits at their place in a pixel.
unsigned long toPixel(unsigned value, unsigned long mask) {
    Field f(mask);
    if (!f.width) return 0;
    unsigned long v = f.width <= 16 ? value >> (16 - f.width) : static_cast<unsigned long>(value) << (f.width - 16);
    return (v << f.shift) & mask;
}

// A channel of a pixel, widened (or cut) to `bits` bits.
unsigned fromPixel(unsigned long pixel, unsigned long mask, int bits) {
    Field f(mask);
    if (!f.width) return 0;
    unsigned long v = (pixel & mask) >> f.shift;
    v = f.width <= bits ? v << (bits - f.width) : v >> (f.width - bits);
    return static_cast<unsigned>(v);
}

unsigned long truePixel(const QlPrinter *p, const XColor &c) {
    return toPixel(c.red, p->redMask) | toPixel(c.green, p->greenMask) | toPixel(c.blue, p->blueMask);
}

bool isGrey(const QlColorCell &cell) { return cell.red == cell.green && cell.green == cell.blue; }

bool matches(const QlColorCell &cell, const XColor &c) {
    if (isGrey(cell)) {
        unsigned v = cell.red & kGreyBits;
        return (c.red & kGreyBits) == v && (c.green & kGreyBits) == v && (c.blue & kGreyBits) == v;
    }
    return (cell.red & kHueBits) == (c.red & kHueBits) && (cell.green & kHueBits) == (c.green & kHueBits) &&
           (cell.blue & kHueBits) == (c.blue & kHueBits);
}

int64_t distance(const QlColorCell &cell, const XColor &c) {
    auto d = [](uint32_t a, unsigned short b) {
        int64_t v = static_cast<int64_t>(a) - b;
        return v < 0 ? -v : v;
    };
    return d(cell.red, c.red) + d(cell.green, c.green) + d(cell.blue, c.blue);
}

Status allocCell(QlPrinter *p, XColor *c) {
    if (p->depth == 24) {
        c->pixel = truePixel(p, *c);
        return 1;
    }
    std::span<QlColorCell> cells = table(p);
    if (cells.empty()) return 0;
    for (size_t i = 0; i < cells.size(); ++i) {
        if (cells[i].allocated && matches(cells[i], *c)) {
            ++cells[i].refCount;
            c->pixel = i;
            return 1;
        }
    }
    for (size_t i = 0; i < cells.size(); ++i) {
        if (!cells[i].allocated) {
            cells[i] = {1, c->red, c->green, c->blue, 1};
            c->pixel = i;
            return 1;
        }
    }
    // A full table gives the nearest cell, or cell 0 when none is near.
    size_t best = 0;
    int64_t bestDistance = kNearEnough;
    for (size_t i = 0; i < cells.size(); ++i) {
        int64_t d = distance(cells[i], *c);
        if (d < bestDistance) {
            bestDistance = d;
            best = i;
        }
    }
    ++cells[best].refCount;
    c->pixel = best;
    return 1;
}

// Case-blind comparison of plain ASCII, whatever the locale.
bool sameName(const char *a, const char *b) {
    auto lower = [](unsigned char ch) { return ch >= 'A' && ch <= 'Z' ? ch + ('a' - 'A') : ch; };
    for (; *a && *b; ++a, ++b)
        if (lower(static_cast<unsigned char>(*a)) != lower(static_cast<unsigned char>(*b))) return false;
    return *a == *b;
}

constexpr size_t kLineSize = 256;

// Reads one line, without its end, into `line`.  False at end of file.  A
// line too long for the buffer is read to its end; `whole` then is false.
bool readLine(FILE *f, char (&line)[kLineSize], bool &whole) {
    size_t n = 0;
    int ch;
    whole = true;
    while ((ch = getc_unlocked(f)) != EOF && ch != '\n') {
        if (n + 1 < kLineSize) line[n++] = static_cast<char>(ch);
        else whole = false;
    }
    line[n] = '\0';
    return ch != EOF || n > 0;
}

// One record of rgb.txt: "%d %d %d", blanks and tabs, then the name.
// Lines that are not records (comments, blank lines) are passed over.
bool findRecord(FILE *f, const char *wanted, int rgb[3]) {
    char line[kLineSize];
    char name[kLineSize];
    bool whole;
    while (readLine(f, line, whole)) {
        if (!whole) continue;
        int used = 0;
        if (std::sscanf(line, "%d %d %d%n", &rgb[0], &rgb[1], &rgb[2], &used) != 3) continue;
        const char *rest = line + used;
        while (*rest == ' ' || *rest == '\t') ++rest;
        // The name buffer is as large as the line, so a name is never cut.
        if (std::sscanf(rest, "%255[a-zA-Z0-9# ]", name) != 1) continue;
        if (sameName(name, wanted)) return true;
    }
    return false;
}
static_assert(kLineSize == 256, "the name's field width above is kLineSize - 1");

unsigned short channelOfRecord(int v) { return static_cast<unsigned short>(static_cast<unsigned>(v) << 8); }

Status lookupName(const char *name, XColor *exact, XColor *screen) {
    std::string path;
    try {
        path = ql::PathFromComponents(QlConfigDir(), nullptr, "rgb.txt");
    } catch (...) {
        return 0;
    }
    FILE *f = std::fopen(path.c_str(), "r");
    if (!f) {
        _QlError(eRGB, "QlLookupColor");
        return kRGBFile;
    }
    int rgb[3];
    bool found = findRecord(f, name, rgb);
    std::fclose(f);
    if (!found) return 0;
    for (XColor *c : {exact, screen}) {
        if (!c) continue;
        c->red = channelOfRecord(rgb[0]);
        c->green = channelOfRecord(rgb[1]);
        c->blue = channelOfRecord(rgb[2]);
    }
    return 1;
}

void queryCell(QlPrinter *p, XColor *c) {
    if (p->depth == 24) {
        c->red = static_cast<unsigned short>(fromPixel(c->pixel, p->redMask, 8) << 8);
        c->green = static_cast<unsigned short>(fromPixel(c->pixel, p->greenMask, 8) << 8);
        c->blue = static_cast<unsigned short>(fromPixel(c->pixel, p->blueMask, 8) << 8);
    } else if (const QlColorCell *cell = cellOf(p, c->pixel)) {
        c->red = static_cast<unsigned short>(cell->red);
        c->green = static_cast<unsigned short>(cell->green);
        c->blue = static_cast<unsigned short>(cell->blue);
    } else {
        c->red = c->green = c->blue = 0;
    }
    c->flags = DoRed | DoGreen | DoBlue;
}

int storeCell(QlPrinter *p, const XColor &c, int flags) {
    if (p->depth == 24) return 1;
    QlColorCell *cell = cellOf(p, c.pixel);
    if (!cell) return 2;
    if (flags & DoRed) cell->red = c.red;
    if (flags & DoGreen) cell->green = c.green;
    if (flags & DoBlue) cell->blue = c.blue;
    return 1;
}

}  // namespace

void _QlTrueRGB(const QlPrinter *p, unsigned long pixel, int rgb[3]) {
    rgb[0] = static_cast<int>(fromPixel(pixel, p->redMask, 8));
    rgb[1] = static_cast<int>(fromPixel(pixel, p->greenMask, 8));
    rgb[2] = static_cast<int>(fromPixel(pixel, p->blueMask, 8));
}

bool _QlCellRGB(QlPrinter *p, unsigned long pixel, int rgb[3]) {
    const QlColorCell *cell = cellOf(p, pixel);
    if (!cell) {
        rgb[0] = rgb[1] = rgb[2] = 0;
        return false;
    }
    rgb[0] = static_cast<int>(cell->red >> 8 & 0xFF);
    rgb[1] = static_cast<int>(cell->green >> 8 & 0xFF);
    rgb[2] = static_cast<int>(cell->blue >> 8 & 0xFF);
    return true;
}

bool _QlPixelRGB(QlPrinter *p, unsigned long pixel, int rgb[3]) {
    if (p->depth != 24) return _QlCellRGB(p, pixel, rgb);
    _QlTrueRGB(p, pixel, rgb);
    return true;
}

Status QlAllocColor(Display *handle, Colormap colormap, XColor *colour) {
    if (QlIsDisplay(handle)) return XAllocColor(handle, colormap, colour);
    QlPrinter *p = _QlAsPrinter(handle);
    return p && colour ? allocCell(p, colour) : 0;
}

Status QlLookupColor(Display *handle, Colormap colormap, const char *name, XColor *exact, XColor *screen) {
    if (QlIsDisplay(handle)) return XLookupColor(handle, colormap, name, exact, screen);
    if (!_QlAsPrinter(handle) || !name) return 0;
    return lookupName(name, exact, screen);
}

Status QlAllocNamedColor(Display *handle, Colormap colormap, const char *name, XColor *screen, XColor *exact) {
    if (QlIsDisplay(handle)) return XAllocNamedColor(handle, colormap, name, screen, exact);
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || !name) return 0;
    XColor local{};
    XColor *e = exact ? exact : &local;
    if (lookupName(name, e, e) != 1) return 0;
    Status rc = allocCell(p, e);
    if (screen) {
        screen->pixel = e->pixel;
        screen->red = e->red;
        screen->green = e->green;
        screen->blue = e->blue;
    }
    return rc;
}

Status QlParseColor(Display *handle, Colormap colormap, const char *text, XColor *colour) {
    if (QlIsDisplay(handle)) return XParseColor(handle, colormap, text, colour);
    if (!_QlAsPrinter(handle) || !text || !colour) return 0;
    if (text[0] != '#') return lookupName(text, colour, colour);
    // Xlib reads "#" forms without going near the display.
    return XParseColor(handle, colormap, text, colour);
}

int QlQueryColor(Display *handle, Colormap colormap, XColor *colour) {
    if (QlIsDisplay(handle)) return XQueryColor(handle, colormap, colour);
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || !colour) return 0;
    queryCell(p, colour);
    return 1;
}

int QlQueryColors(Display *handle, Colormap colormap, XColor *colours, int count) {
    if (QlIsDisplay(handle)) return XQueryColors(handle, colormap, colours, count);
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || (!colours && count > 0)) return 0;
    for (int i = 0; i < count; ++i) {
        if (p->depth != 24 && !cellOf(p, colours[i].pixel)) return 12;  // BadColor
        queryCell(p, &colours[i]);
    }
    return 1;
}

int QlStoreColor(Display *handle, Colormap colormap, XColor *colour) {
    if (QlIsDisplay(handle)) return XStoreColor(handle, colormap, colour);
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || !colour) return 0;
    return storeCell(p, *colour, colour->flags);
}

int QlStoreColors(Display *handle, Colormap colormap, XColor *colours, int count) {
    if (QlIsDisplay(handle)) return XStoreColors(handle, colormap, colours, count);
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || (!colours && count > 0)) return 0;
    if (p->depth == 24) return 1;
    for (int i = count - 1; i >= 0; --i)
        if (storeCell(p, colours[i], colours[i].flags) == 0) break;
    return 1;
}

int QlStoreNamedColor(Display *handle, Colormap colormap, const char *name, unsigned long pixel, int flags) {
    if (QlIsDisplay(handle)) return XStoreNamedColor(handle, colormap, name, pixel, flags);
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || !name) return 0;
    XColor c{};
    if (lookupName(name, &c, &c) != 1) return 0;
    c.pixel = pixel;
    return storeCell(p, c, flags);
}

int QlFreeColors(Display *handle, Colormap colormap, unsigned long *pixels, int count, unsigned long planes) {
    if (QlIsDisplay(handle)) return XFreeColors(handle, colormap, pixels, count, planes);
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || (!pixels && count > 0)) return 0;
    for (int i = 0; i < count; ++i) {
        QlColorCell *cell = cellOf(p, pixels[i]);
        if (!cell) continue;
        if (cell->refCount > 0) --cell->refCount;
        if (cell->refCount == 0) cell->allocated = 0;
    }
    return 1;
}

void QlSetRGBShiftValues(unsigned long redMask, unsigned long greenMask, unsigned long blueMask, int *redShift,
                         int *greenShift, int *blueShift) {
    if (redShift) *redShift = Field(redMask).shift;
    if (greenShift) *greenShift = Field(greenMask).shift;
    if (blueShift) *blueShift = Field(blueMask).shift;
}
