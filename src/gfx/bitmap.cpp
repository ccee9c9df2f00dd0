// X bitmap files and pixmap data.  A display goes to Xlib, except for
// pixmap data, which Xlib has no call for: XCreatePixmapFromData below
// serves there.  On a printer the results are the in-memory images of
// image.cpp, so the reader and the writer of bitmap files are here.
#include "gfx/bitmap.h"

#include "config/profile.h"
#include "core/out.h"
#include "gfx/image.h"

#include <X11/Xutil.h>

#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <algorithm>
#include <memory>
#include <new>
#include <string>
#include <utility>

namespace {

// Xlib's results of the bitmap file calls.
constexpr int kFileOpenFailed = BitmapOpenFailed;
constexpr int kFileInvalid = BitmapFileInvalid;
constexpr int kNoMemory = BitmapNoMemory;

// Lines of a bitmap file are read into buffers of this size; a line that
// fills one is too long.
constexpr int kLineSize = 255;

// At 8650 colours and up, the colour tables of pixmap data are refused.
constexpr int kMostColours = 8650;

// The code characters allowed at two characters per pixel.
constexpr const char kPrintable[] =
    " .XoO+@#$%&*=-;:?>,<1234567890qwertyuipasdfghjklzxcvbnmMNBVCZASDFGHJKLPIUYTREWQ!~^/()_`'][{}|";

XImage *asImage(Pixmap pm) { return reinterpret_cast<XImage *>(pm); }

struct FileCloser {
    void operator()(FILE *f) const { std::fclose(f); }
};
using File = std::unique_ptr<FILE, FileCloser>;

// The part of a name behind its last underscore, or all of it.
const char *lastPart(const char *name) {
    const char *u = std::strrchr(name, '_');
    return u ? u + 1 : name;
}

// A "#define name value" line: width, height or a hot spot coordinate.
void takeDefine(const char *name, int value, QlBitmapData &out) {
    const char *type = lastPart(name);
    if (!std::strcmp(type, "width")) out.width = static_cast<unsigned>(value);
    else if (!std::strcmp(type, "height")) out.height = static_cast<unsigned>(value);
    else if (!std::strcmp(type, "hot") && type - name >= 2) {
        // "x_hot" or "y_hot": the letter before the underscore.
        if (type[-2] == 'x') out.xHot = value;
        else if (type[-2] == 'y') out.yHot = value;
    }
}

// The values behind a "bits[]" declaration, straight from the stream.
// Version 10 files hold 16-bit words, whose high byte is dropped at the
// end of a row that was padded out to a whole word.
int readBits(FILE *f, const short *table, bool version10, QlBitmapData &out) {
    if (static_cast<int>(out.width) <= 0 || static_cast<int>(out.height) <= 0) return kFileInvalid;
    const long long rowBytes = (static_cast<long long>(out.width) + 7) / 8;
    const int padding = version10 && (out.width % 16) >= 1 && (out.width % 16) <= 8 ? 1 : 0;
    const long long perLine = rowBytes + padding;
    if (perLine * out.height > INT_MAX) return kNoMemory;
    const long long size = perLine * out.height;
    std::vector<unsigned char> bits;
    // Grown as values arrive, so that a short file with a large size asks
    // for no more memory than it fills.
    bits.reserve(static_cast<size_t>(std::min(size, 1LL << 16)));
    if (version10) {
        for (long long bytes = 0; bytes < size; bytes += 2) {
            const int value = _QlNextInt(f, table);
            if (value < 0) return kFileInvalid;
            bits.push_back(static_cast<unsigned char>(value));
            if (!padding || (bytes + 2) % perLine) bits.push_back(static_cast<unsigned char>(value >> 8));
        }
    } else {
        for (long long bytes = 0; bytes < size; ++bytes) {
            const int value = _QlNextInt(f, table);
            if (value < 0) return kFileInvalid;
            bits.push_back(static_cast<unsigned char>(value));
        }
    }
    bits.resize(static_cast<size_t>(rowBytes * out.height));
    out.bits.swap(bits);
    return 0;
}

int writeBitmap(const char *path, XImage *image, unsigned width, unsigned height, int xHot, int yHot) {
    const char *slash = std::strrchr(path, '/');
    const char *name = slash ? slash + 1 : path;
    // A half-written file never stands where the caller's file was.
    ql::FileReplacement out(path);
    FILE *s = out.stream();
    if (!s) return kFileOpenFailed;
    int size = 0;
    std::unique_ptr<char, decltype(&std::free)> data(_QlFormat_Image(image, &size), &std::free);
    if (!data) return kNoMemory;
    ql::put(s, "#define %s_width %d\n", name, width);
    ql::put(s, "#define %s_height %d\n", name, height);
    if (xHot != -1) {
        ql::put(s, "#define %s_x_hot %d\n", name, xHot);
        ql::put(s, "#define %s_y_hot %d\n", name, yHot);
    }
    ql::put(s, "static char %s_bits[] = {", name);
    for (int i = 0; i < size; ++i) {
        ql::write(s, i == 0 ? "\n   " : i % 12 == 0 ? ",\n   " : ", ");
        ql::put(s, "0x%02x", static_cast<unsigned char>(data.get()[i]));
    }
    ql::write(s, "};\n");
    return out.commit() ? 0 : kFileOpenFailed;
}

// Pixmap data: what differs between a printer and a display is behind
// this interface; the walk over colours and rows is shared.
class PixmapTarget {
public:
    virtual ~PixmapTarget() = default;
    // The name under which the messages before the pixel walk go out.
    virtual const char *caller() const = 0;
    virtual bool create(unsigned width, unsigned height, unsigned depth) = 0;
    // The pixel of a colour definition; false if it can't be had.
    virtual bool colour(const char *definition, unsigned long *pixel) = 0;
    virtual void put(int x, int y, unsigned long pixel) = 0;
    virtual Pixmap release() = 0;  // the finished pixmap
    virtual void discard() = 0;    // frees what create made
};

class PrinterTarget final : public PixmapTarget {
public:
    PrinterTarget(Display *handle, Drawable d) : handle_(handle), d_(d) {}
    const char *caller() const override { return "QlCreatePixmapFromData"; }
    bool create(unsigned width, unsigned height, unsigned depth) override {
        pm_ = QlCreatePixmap(handle_, d_, width, height, depth);
        return pm_ != 0;
    }
    bool colour(const char *definition, unsigned long *pixel) override {
        XColor c{};
        // Only 1 is a colour: a missing colour file gives 23.
        if (QlParseColor(handle_, 0, definition, &c) != 1) return false;
        c.flags = DoRed | DoGreen | DoBlue;
        if (!QlAllocColor(handle_, 0, &c)) return false;
        *pixel = c.pixel;
        return true;
    }
    void put(int x, int y, unsigned long pixel) override { QlPutPixel(asImage(pm_), x, y, pixel); }
    Pixmap release() override { return std::exchange(pm_, 0); }
    void discard() override {
        if (pm_) QlFreePixmap(handle_, std::exchange(pm_, 0));
    }

private:
    Display *handle_;
    Drawable d_;
    Pixmap pm_ = 0;
};

class DisplayTarget final : public PixmapTarget {
public:
    DisplayTarget(Display *dpy, Drawable d, Colormap cmap) : dpy_(dpy), d_(d), cmap_(cmap) {}
    const char *caller() const override { return "XCreatePixmapFromData"; }
    bool create(unsigned width, unsigned height, unsigned depth) override {
        pm_ = XCreatePixmap(dpy_, d_, width, height, depth);
        if (!pm_) return false;
        gc_ = XCreateGC(dpy_, pm_, 0, nullptr);
        if (gc_) return true;
        discard();
        return false;
    }
    bool colour(const char *definition, unsigned long *pixel) override {
        XColor c{};
        if (!XParseColor(dpy_, cmap_, definition, &c) || !XAllocColor(dpy_, cmap_, &c)) return false;
        *pixel = c.pixel;
        return true;
    }
    void put(int x, int y, unsigned long pixel) override {
        XSetForeground(dpy_, gc_, pixel);
        XDrawPoint(dpy_, pm_, gc_, x, y);
    }
    Pixmap release() override {
        if (gc_) XFreeGC(dpy_, std::exchange(gc_, nullptr));
        return std::exchange(pm_, 0);
    }
    void discard() override {
        if (gc_) XFreeGC(dpy_, std::exchange(gc_, nullptr));
        if (pm_) XFreePixmap(dpy_, std::exchange(pm_, 0));
    }

private:
    Display *dpy_;
    Drawable d_;
    Colormap cmap_;
    Pixmap pm_ = 0;
    GC gc_ = nullptr;
};

// One colour of pixmap data: its code and its pixel.
struct CodeEntry {
    char code[2];
    unsigned long pixel;
};

// A code character as a message argument.
int charOf(char c) { return static_cast<unsigned char>(c); }

// The code of colour pair i, or a message number on a bad entry.
int codeOf(const char *text, int charsPerPixel, char code[2]) {
    if (!text) return eBadColorEntry;
    code[0] = text[0];
    code[1] = 0;
    if (charsPerPixel == 1) return 0;
    if (!text[0] || !text[1]) return eBadColorEntry;
    code[1] = text[1];
    // The terminating zero isn't one of the allowed characters.
    for (char c : {code[0], code[1]})
        if (!std::memchr(kPrintable, c, sizeof kPrintable - 1)) return eBadPixelValue;
    return 0;
}

Pixmap pixmapFromData(PixmapTarget &t, unsigned width, unsigned height, unsigned depth, int ncolors,
                      int charsPerPixel, const char *const *colours, const char *const *rows) {
    if (ncolors < 0 || ncolors >= kMostColours) {
        _QlError(eNumColors, t.caller());
        return 0;
    }
    if (charsPerPixel != 1 && charsPerPixel != 2) {
        _QlError(eNumChars, t.caller());
        return 0;
    }
    std::unique_ptr<CodeEntry[]> table(new (std::nothrow) CodeEntry[ncolors ? ncolors : 1]);
    if (!table) return static_cast<Pixmap>(kNoMemory);
    if (!colours) {
        _QlError(eUndefineColor, t.caller());
        return 0;
    }
    if (width > INT_MAX || height > INT_MAX || !t.create(width, height, depth)) return 0;
    // Entries filled so far; at depth 1 none are, and a pixel is 1 for any
    // code but a blank.
    int known = 0;
    for (int i = 0; depth != 1 && i < ncolors; ++i, ++known) {
        CodeEntry &e = table[i];
        const int bad = codeOf(colours[2 * i], charsPerPixel, e.code);
        if (bad) {
            t.discard();
            _QlError(bad, t.caller());
            return 0;
        }
        if (!colours[2 * i + 1] || !t.colour(colours[2 * i + 1], &e.pixel)) {
            t.discard();
            _QlError(eBadRGB, t.caller());
            return 0;
        }
    }
    if (!rows) {
        t.discard();
        _QlError(eUndefinedPixel, t.caller());
        return 0;
    }
    const size_t rowLength = static_cast<size_t>(charsPerPixel) * width;
    for (unsigned y = 0; y < height; ++y) {
        const char *row = rows[y];
        const size_t length = row ? strnlen(row, rowLength) : 0;
        if (length < rowLength) {
            t.discard();
            _QlError(eBadLineLen, t.caller(), static_cast<long>(length), static_cast<long>(rowLength));
            return 0;
        }
        for (unsigned x = 0; x < width; ++x) {
            const char *px = row + static_cast<size_t>(charsPerPixel) * x;
            unsigned long pixel = 0;
            if (depth == 1 && charsPerPixel == 1) {
                pixel = *px != ' ';
            } else {
                int i = 0;
                while (i < known && (table[i].code[0] != px[0] || (charsPerPixel == 2 && table[i].code[1] != px[1])))
                    ++i;
                if (i == known) {
                    t.discard();
                    if (charsPerPixel == 1) _QlError(eBadPixel, "XCreatePixmapFromData", charOf(px[0]));
                    else _QlError(eBadPixel2, "XCreatePixmapFromData", charOf(px[0]), charOf(px[1]));
                    return 0;
                }
                pixel = table[i].pixel;
            }
            t.put(static_cast<int>(x), static_cast<int>(y), pixel);
        }
    }
    return t.release();
}

}  // namespace

void _QlinitHexTable(short *table) {
    for (int i = 0; i < 256; ++i) table[i] = 0;
    for (int i = 0; i < 10; ++i) table['0' + i] = static_cast<short>(i);
    for (int i = 0; i < 6; ++i) {
        table['a' + i] = static_cast<short>(10 + i);
        table['A' + i] = static_cast<short>(10 + i);
    }
    for (unsigned char c : {' ', '\t', '\n', ',', '}'}) table[c] = -1;
}

int _QlNextInt(FILE *stream, const short *table) {
    unsigned value = 0;
    bool digits = false;
    for (;;) {
        const int ch = std::getc(stream);
        if (ch == EOF) return -1;
        if (ch < 128 && std::isxdigit(ch)) {
            value = value * 16 + static_cast<unsigned>(table[ch]);
            digits = true;
        } else if (table[ch] < 0 && digits) {
            return static_cast<int>(value);
        }
    }
}

int _QlReadBitmapStream(FILE *stream, QlBitmapData &out) {
    out = QlBitmapData{};
    short table[256];
    _QlinitHexTable(table);
    char line[kLineSize], name[kLineSize];
    // Reading stops with the first "bits[]" values, as Xlib's reader does:
    // what follows them is never looked at.
    while (std::fgets(line, sizeof line, stream)) {
        if (std::strlen(line) == kLineSize - 1) return kFileInvalid;
        int value = 0;
        if (std::sscanf(line, "#define %254s %d", name, &value) == 2) {
            takeDefine(name, value, out);
            continue;
        }
        bool version10;
        if (std::sscanf(line, "static short %254s = {", name) == 1) version10 = true;
        else if (std::sscanf(line, "static unsigned char %254s = {", name) == 1) version10 = false;
        else if (std::sscanf(line, "static char %254s = {", name) == 1) version10 = false;
        else continue;
        if (std::strcmp(lastPart(name), "bits[]")) continue;
        try {
            return readBits(stream, table, version10, out);
        } catch (const std::bad_alloc &) {
            return kNoMemory;
        }
    }
    return kFileInvalid;
}

int QlReadBitmapFile(Display *handle, Drawable d, const char *path, unsigned *width, unsigned *height,
                     Pixmap *bitmap, int *xHot, int *yHot) {
    if (QlIsDisplay(handle)) return XReadBitmapFile(handle, d, path, width, height, bitmap, xHot, yHot);
    if (!_QlAsPrinter(handle) || !path) return kFileOpenFailed;
    File f(std::fopen(path, "r"));
    if (!f) return kFileOpenFailed;
    QlBitmapData data;
    if (const int rc = _QlReadBitmapStream(f.get(), data)) return rc;
    const Pixmap pm = QlCreatePixmap(handle, d, data.width, data.height, 1);
    if (!pm) return kNoMemory;
    std::memcpy(asImage(pm)->data, data.bits.data(), data.bits.size());
    if (width) *width = data.width;
    if (height) *height = data.height;
    if (bitmap) *bitmap = pm;
    else QlFreePixmap(handle, pm);
    if (xHot) *xHot = data.xHot;
    if (yHot) *yHot = data.yHot;
    return 0;
}

int QlWriteBitmapFile(Display *handle, const char *path, Pixmap bitmap, unsigned width, unsigned height, int xHot,
                      int yHot) {
    if (QlIsDisplay(handle)) return XWriteBitmapFile(handle, path, bitmap, width, height, xHot, yHot);
    if (!_QlAsPrinter(handle) || !path || !bitmap) return kFileOpenFailed;
    try {
        return writeBitmap(path, asImage(bitmap), width, height, xHot, yHot);
    } catch (...) {
        return kNoMemory;
    }
}

Pixmap QlCreatePixmapFromBitmapData(Display *handle, Drawable d, char *data, unsigned width, unsigned height,
                                    unsigned long foreground, unsigned long background, unsigned depth) {
    if (QlIsDisplay(handle))
        return XCreatePixmapFromBitmapData(handle, d, data, width, height, foreground, background, depth);
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || !data) return 0;
    XImage *bits = _QlNewImage(p, 1, XYPixmap, 0, data, width, height, 8, 0);
    if (!bits) return 0;
    const Pixmap pm = QlCreatePixmap(handle, d, width, height, depth);
    if (pm) {
        if (depth == 1) {
            foreground = static_cast<unsigned long>(_QlRGBToMono(p, foreground));
            background = static_cast<unsigned long>(_QlRGBToMono(p, background));
        }
        for (int y = 0; y < bits->height; ++y)
            for (int x = 0; x < bits->width; ++x)
                QlPutPixel(asImage(pm), x, y, XGetPixel(bits, x, y) ? foreground : background);
    }
    bits->data = nullptr;  // the caller's
    QlDestroyImage(bits);
    return pm;
}

Pixmap QlCreateBitmapFromData(Display *handle, Drawable d, const char *data, unsigned width, unsigned height) {
    if (QlIsDisplay(handle)) return XCreateBitmapFromData(handle, d, data, width, height);
    if (!_QlAsPrinter(handle) || !data) return 0;
    const Pixmap pm = QlCreatePixmap(handle, d, width, height, 1);
    if (pm) {
        XImage *image = asImage(pm);
        std::memcpy(image->data, data, static_cast<size_t>(image->bytes_per_line) * height);
    }
    return pm;
}

Pixmap QlCreatePixmapFromData(Display *handle, Drawable d, Colormap colormap, unsigned width, unsigned height,
                              unsigned depth, int ncolors, int charsPerPixel, const char *const *colours,
                              const char *const *rows) {
    if (QlIsDisplay(handle))
        return XCreatePixmapFromData(handle, d, colormap, width, height, depth, ncolors, charsPerPixel, colours,
                                     rows);
    if (!_QlAsPrinter(handle)) return 0;
    PrinterTarget target(handle, d);
    return pixmapFromData(target, width, height, depth, ncolors, charsPerPixel, colours, rows);
}

Pixmap XCreatePixmapFromData(Display *display, Drawable d, Colormap colormap, unsigned width, unsigned height,
                             unsigned depth, int ncolors, int charsPerPixel, const char *const *colours,
                             const char *const *rows) {
    if (!display) return 0;
    DisplayTarget target(display, d, colormap);
    return pixmapFromData(target, width, height, depth, ncolors, charsPerPixel, colours, rows);
}
