// Images and pixmaps.  A display goes straight to Xlib.  A printer has no
// server side: a pixmap is an XImage in the application's memory and the
// Pixmap value is its address, while drawable 0 is the page, which can be
// written (through the driver) but never read.
#include "gfx/image.h"

#include "core/driver.h"
#include "drivers/ps/ps.h"
#include "gfx/colour.h"
#include "gfx/dispatch.h"
#include "port/kvo.h"

#include <X11/Xutil.h>
extern "C" {  // this header of Xlib's has no C linkage of its own
#include <X11/ImUtil.h>
}

#include <algorithm>
#include <climits>
#include <cstdlib>

namespace {

using ql::kBadGC;
using ql::kBadValue;

XImage *asImage(Drawable d) { return reinterpret_cast<XImage *>(d); }

// The bytes of `lines` lines of `bits` bits each, every line rounded up to
// a multiple of `pad` bits; -1 past what an int holds.
long long paddedBytes(long long bits, int pad, long long lines) {
    if (bits < 0 || lines < 0 || pad <= 0) return -1;
    long long line = (bits + pad - 1) / pad * (pad / 8);
    if (line > INT_MAX || (line && lines > INT_MAX / line)) return -1;
    return line * lines;
}

// The part of a copy of w by h pixels from (sx, sy) of one image to (dx, dy)
// of another that lies inside both: the first offset and one past the
// last, for one axis.
struct Span {
    long from = 0, to = 0;
};

Span overlap(long s, long d, unsigned long n, long sourceSize, long destSize) {
    long from = std::max({0L, -s, -d});
    long to = std::min({static_cast<long>(std::min<unsigned long>(n, LONG_MAX / 2)), sourceSize - s, destSize - d});
    return {from, std::max(from, to)};
}


bool holdsPixel(const XImage *image, int x, int y) {
    return image && image->data && x >= 0 && y >= 0 && x < image->width && y < image->height;
}

// A slot that writes an image to the page: the guard, the GC, then the
// slot inside the locale bracket; the slot's own result is not kept.
template <auto Slot, typename... A>
int toPage(QlPrinter *p, const char *caller, GC gc, XImage *image, A... args) {
    if (!_QlForceStartDoc(p, caller)) return kBadValue;
    QlGC *g = _QlPrinterGC(gc, caller);
    if (!g) return kBadGC;
    if (!image) return kBadValue;
    _QlSetLocaleC();
    (DriverSwitch[p->driverId]->*Slot)(p, g, image, args...);
    _QlResetLocale();
    return 0;
}

}  // namespace

void _QlCopyPixels(XImage *src, int sx, int sy, XImage *dst, int dx, int dy, unsigned w, unsigned h,
                   unsigned long mask) {
    if (!src || !dst || !src->data || !dst->data) return;
    Span xs = overlap(sx, dx, w, src->width, dst->width);
    Span ys = overlap(sy, dy, h, src->height, dst->height);
    for (long i = xs.from; i < xs.to; ++i)
        for (long j = ys.from; j < ys.to; ++j)
            XPutPixel(dst, static_cast<int>(dx + i), static_cast<int>(dy + j),
                      XGetPixel(src, static_cast<int>(sx + i), static_cast<int>(sy + j)) & mask);
}

XImage *_QlNewImage(const QlPrinter *masks, unsigned depth, int format, int offset, char *data, unsigned width,
                    unsigned height, int pad, int bytesPerLine) {
    if (depth == 0 || depth > 32 || (format != XYBitmap && format != XYPixmap && format != ZPixmap) ||
        (format == XYBitmap && depth != 1) || (pad != 8 && pad != 16 && pad != 32) || offset < 0 ||
        width > INT_MAX || height > INT_MAX || bytesPerLine < 0)
        return nullptr;
    const long long bits = format == ZPixmap ? static_cast<long long>(depth) * width
                                             : static_cast<long long>(width) + offset;
    const long long planes = format == ZPixmap ? 1 : depth;
    const long long least = paddedBytes(bits, pad, 1);
    if (least < 0 || least > INT_MAX) return nullptr;
    const long long line = bytesPerLine ? bytesPerLine : least;
    // Every pixel's offset is worked out in int by Xlib's functions.
    if (line < least || (line && static_cast<long long>(height) * planes > INT_MAX / line)) return nullptr;
    auto *image = static_cast<XImage *>(std::calloc(1, sizeof(XImage)));
    if (!image) return nullptr;
    image->width = static_cast<int>(width);
    image->height = static_cast<int>(height);
    image->xoffset = offset;
    image->format = format;
    image->data = data;
    image->byte_order = LSBFirst;
    image->bitmap_unit = 8;
    image->bitmap_bit_order = LSBFirst;
    image->bitmap_pad = pad;
    image->depth = static_cast<int>(depth);
    image->bytes_per_line = static_cast<int>(line);
    image->bits_per_pixel = format == ZPixmap ? static_cast<int>(depth) : 1;
    if (depth == 24 && masks) {
        image->red_mask = masks->redMask;
        image->green_mask = masks->greenMask;
        image->blue_mask = masks->blueMask;
    }
    image->obdata = nullptr;
    _XInitImageFuncPtrs(image);
    return image;
}

XImage *QlCreateImage(Display *handle, Visual *visual, unsigned depth, int format, int offset, char *data,
                      unsigned width, unsigned height, int pad, int bytesPerLine) {
    if (QlIsDisplay(handle))
        return _QlXCreateImage(handle, visual, depth, format, offset, data, width, height, pad, bytesPerLine);
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return nullptr;
    return _QlNewImage(p, depth, format, offset, data, width, height, pad, bytesPerLine);
}

int QlDestroyImage(XImage *image) {
    if (!image) return 0;
    ps::PS2CheckDeleteCacheTileGlobal(image);
    return _QlXDestroyImage(image);
}

int QlPutImage(Display *handle, Drawable d, GC gc, XImage *image, int sx, int sy, int dx, int dy, unsigned width,
               unsigned height) {
    if (QlIsDisplay(handle)) return _QlXPutImage(handle, d, gc, image, sx, sy, dx, dy, width, height);
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return kBadValue;
    if (d) {
        // Pixmap to pixmap needs neither a page nor a GC.
        if (image) _QlCopyPixels(image, sx, sy, asImage(d), dx, dy, width, height, ~0UL);
        return 0;
    }
    return toPage<&QlDrawDriver::PutImage>(p, "QlPutImage", gc, image, sx, sy, dx, dy, width, height);
}

int QlStretchPutImage(Display *handle, Drawable d, GC gc, XImage *image, int sx, int sy, unsigned sw, unsigned sh,
                      int dx, int dy, unsigned width, unsigned height) {
    if (QlIsDisplay(handle)) {
        _QlError(wNotSupport, "QlStretchPutImage: to screen");
        return 0;
    }
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return kBadValue;
    if (d) {
        _QlError(wNotSupport, "QlStretchPutImage: to pixmap");
        return 0;
    }
    return toPage<&QlDrawDriver::StretchPutImage>(p, "QlStretchPutImage", gc, image, sx, sy, sw, sh, dx, dy, width,
                                                   height);
}

XImage *QlGetImage(Display *handle, Drawable d, int x, int y, unsigned width, unsigned height,
                   unsigned long planeMask, int format) {
    if (QlIsDisplay(handle)) return _QlXGetImage(handle, d, x, y, width, height, planeMask, format);
    if (!_QlAsPrinter(handle)) return nullptr;
    if (!d) {
        _QlError(ePrtImage, "QlGetImage");
        return nullptr;
    }
    XImage *src = asImage(d);
    const long long size = format == ZPixmap
                               ? paddedBytes(static_cast<long long>(src->depth) * width, src->bitmap_pad, height)
                               : paddedBytes(width, src->bitmap_pad, static_cast<long long>(height) * src->depth);
    if (size < 0) return nullptr;
    char *data = static_cast<char *>(std::calloc(static_cast<size_t>(std::max(size, 1LL)), 1));
    if (!data) return nullptr;
    XImage *image = QlCreateImage(handle, nullptr, static_cast<unsigned>(src->depth), format, 0, data, width, height,
                                  src->bitmap_pad, 0);
    if (!image) {
        std::free(data);
        return nullptr;
    }
    _QlCopyPixels(src, x, y, image, 0, 0, width, height, planeMask);
    return image;
}

XImage *QlGetSubImage(Display *handle, Drawable d, int x, int y, unsigned width, unsigned height,
                      unsigned long planeMask, int format, XImage *dest, int dx, int dy) {
    if (QlIsDisplay(handle)) return XGetSubImage(handle, d, x, y, width, height, planeMask, format, dest, dx, dy);
    if (!_QlAsPrinter(handle)) return nullptr;
    if (!d) {
        _QlError(ePrtImage, "QlGetSubImage");
        return nullptr;
    }
    if (!dest) return nullptr;
    _QlCopyPixels(asImage(d), x, y, dest, dx, dy, width, height, planeMask);
    return dest;
}

// Xlib's sub-image reads from x, y onward without a test of either.
XImage *QlSubImage(XImage *image, int x, int y, unsigned width, unsigned height) {
    if (!image || x < 0 || y < 0 || width > INT_MAX || height > INT_MAX) return nullptr;
    const long long bits = image->format == ZPixmap ? static_cast<long long>(image->bits_per_pixel) * width
                                                    : static_cast<long long>(width) + image->xoffset;
    const long long planes = image->format == ZPixmap ? 1 : image->depth;
    if (paddedBytes(bits, image->bitmap_pad, static_cast<long long>(height) * planes) < 0) return nullptr;
    return XSubImage(image, x, y, width, height);
}

// The image's own functions, for pixels that lie inside it.
unsigned long QlGetPixel(XImage *image, int x, int y) {
    return holdsPixel(image, x, y) ? XGetPixel(image, x, y) : 0;
}

int QlPutPixel(XImage *image, int x, int y, unsigned long pixel) {
    return holdsPixel(image, x, y) ? XPutPixel(image, x, y, pixel) : 0;
}

int QlAddPixel(XImage *image, long value) { return image && image->data ? XAddPixel(image, value) : 0; }

Pixmap QlCreatePixmap(Display *handle, Drawable d, unsigned width, unsigned height, unsigned depth) {
    if (QlIsDisplay(handle)) return XCreatePixmap(handle, d, width, height, depth);
    if (!_QlAsPrinter(handle) || depth == 0 || depth > 32) return 0;
    const long long bytesPerLine = (static_cast<long long>(depth) * width + 7) / 8;
    if (bytesPerLine > INT_MAX || (bytesPerLine && height > INT_MAX / bytesPerLine)) return 0;
    char *data = static_cast<char *>(std::calloc(static_cast<size_t>(std::max(bytesPerLine * height, 1LL)), 1));
    if (!data) return 0;
    XImage *image = QlCreateImage(handle, nullptr, depth, depth < 2 ? XYPixmap : ZPixmap, 0, data, width, height, 8,
                                  static_cast<int>(bytesPerLine));
    if (!image) {
        std::free(data);
        return 0;
    }
    return reinterpret_cast<Pixmap>(image);
}

int QlFreePixmap(Display *handle, Pixmap pixmap) {
    if (QlIsDisplay(handle)) return XFreePixmap(handle, pixmap);
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || !pixmap) return 0;
    XImage *image = asImage(pixmap);
    ps::PS2CheckDeleteCacheTile(p, image);
    std::free(image->data);
    std::free(image);
    return 0;
}

Status QlQueryBestSize(Display *handle, int class_, Drawable d, unsigned width, unsigned height,
                       unsigned *widthReturn, unsigned *heightReturn) {
    if (QlIsDisplay(handle)) return XQueryBestSize(handle, class_, d, width, height, widthReturn, heightReturn);
    if (widthReturn) *widthReturn = width;
    if (heightReturn) *heightReturn = height;
    return 0;
}

// Shared-memory images are not offered on either kind of handle.
int QlExtIsShmImage(Display *, XImage *) { return 0; }

int QlExtSetShmUsage(Display *, int) { return 0; }

char *_QlFormat_Image(XImage *image, int *size) {
    if (size) *size = 0;
    if (!image || image->width < 0 || image->height < 0) return nullptr;
    const long long line = (static_cast<long long>(image->width) + 7) / 8;
    if (line && image->height > INT_MAX / line) return nullptr;
    const long long total = line * image->height;
    auto *data = static_cast<unsigned char *>(std::calloc(static_cast<size_t>(std::max(total, 1LL)), 1));
    if (!data) return nullptr;
    for (int y = 0; y < image->height; ++y)
        for (int x = 0; x < image->width; ++x)
            if (QlGetPixel(image, x, y)) data[y * line + x / 8] |= static_cast<unsigned char>(1u << (x % 8));
    if (size) *size = static_cast<int>(total);
    return reinterpret_cast<char *>(data);
}

// The channels of a cell are 16 bits wide; a depth-24 pixel's are taken
// up to the same width, so that light and dark mean the same at every
// depth.
int _QlRGBToMono(QlPrinter *p, unsigned long pixel) {
    if (!p) return 0;
    double r, g, b;
    if (p->depth == 24) {
        int rgb[3];
        _QlPixelRGB(p, pixel, rgb);
        r = rgb[0] * 257.0;
        g = rgb[1] * 257.0;
        b = rgb[2] * 257.0;
    } else {
        if (!p->cells || pixel >= static_cast<unsigned long>(std::max(p->numCells, 0))) return 0;
        const QlColorCell &cell = static_cast<const QlColorCell *>(p->cells)[pixel];
        r = cell.red;
        g = cell.green;
        b = cell.blue;
    }
    return 0.3 * r + 0.59 * g + 0.11 * b > 32767.0 ? 1 : 0;
}
