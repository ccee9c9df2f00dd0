// Window printing.  A window of a real display is read back with
// XGetImage and put on the current page of a printer, one screen pixel to
// a dot.  Screens whose pixels index a colormap lend the printer their
// colormap and the pixels go on paper as they are.  On screens whose
// pixels hold their channels (TrueColor, what every server runs today)
// each pixel is read through the visual's masks and written the way the
// printer keeps colours: the colour itself at depth 24, a cell of its
// table otherwise.
#include "gfx/window.h"

#include "gfx/colour.h"
#include "gfx/image.h"

#include <X11/Intrinsic.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace {

constexpr const char *kCaller = "QlPrintWindow";

struct XFreeDeleter {
    void operator()(void *p) const {
        if (p) XFree(p);
    }
};

struct ImageDeleter {
    void operator()(XImage *image) const { QlDestroyImage(image); }
};
using ImagePtr = std::unique_ptr<XImage, ImageDeleter>;

// Keeps the dump of one display from ending the program through Xlib's
// default handlers.  A protocol error (the window destroyed or unmapped
// under the dump) is noted for failed(); a lost connection is noted for
// lost(), and the calls then fail instead of exiting (every later call on
// that display fails at once), so the application gets control back to
// finish its document.  Errors of other displays go on to the handlers
// that were there.  The syncs keep the application's own earlier requests
// out of the trap and this code's requests inside it.  Xlib can't tell
// which exit handler a display had: a display still connected gets the
// default one back, a lost one keeps this one.
class DumpTrap {
public:
    explicit DumpTrap(Display *display) : display_(display), outer_(current_) {
        current_ = this;
        previousIO_ = XSetIOErrorHandler(&DumpTrap::ioHandler);
        XSetIOErrorExitHandler(display_, &DumpTrap::carryOn, nullptr);
        XSync(display_, False);  // finds a connection already lost
        previous_ = XSetErrorHandler(&DumpTrap::handler);
    }
    ~DumpTrap() {
        XSync(display_, False);
        XSetErrorHandler(previous_);
        if (!lost_) XSetIOErrorExitHandler(display_, nullptr, nullptr);
        XSetIOErrorHandler(previousIO_);
        current_ = outer_;
    }
    DumpTrap(const DumpTrap &) = delete;
    DumpTrap &operator=(const DumpTrap &) = delete;

    // True when any request so far failed.
    bool failed() {
        XSync(display_, False);
        return failed_;
    }
    // True once the connection is gone: what the calls gave since then
    // (replies Xlib never filled in) must not be looked at.
    bool lost() const { return lost_; }

private:
    static int handler(Display *display, XErrorEvent *event) {
        DumpTrap *trap = current_;
        if (trap && display == trap->display_) {
            trap->failed_ = true;
            return 0;
        }
        XErrorHandler next = trap ? trap->previous_ : nullptr;
        return next ? next(display, event) : 0;
    }
    static int ioHandler(Display *display) {
        DumpTrap *trap = current_;
        if (trap && display == trap->display_) {
            trap->lost_ = true;
            return 0;
        }
        XIOErrorHandler next = trap ? trap->previousIO_ : nullptr;
        return next ? next(display) : 0;
    }
    static void carryOn(Display *, void *) {}

    static inline DumpTrap *current_ = nullptr;
    Display *display_;
    DumpTrap *outer_;
    XErrorHandler previous_ = nullptr;
    XIOErrorHandler previousIO_ = nullptr;
    bool failed_ = false, lost_ = false;
};

// Whether `window` has the property `atom`, of any type.
bool hasProperty(Display *display, Window window, Atom atom) {
    Atom type = None;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char *data = nullptr;
    int rc = XGetWindowProperty(display, window, atom, 0, 0, False, AnyPropertyType, &type, &format, &count,
                                &after, &data);
    std::unique_ptr<unsigned char, XFreeDeleter> hold(data);
    return rc == Success && type != None;
}

// The area of a window that lies on its screen, in the window's own
// coordinates.
struct Area {
    int x, y, width, height;
};

std::optional<Area> onScreen(Display *display, int screen, Window window, const XWindowAttributes &attr) {
    int rootX = 0, rootY = 0;
    Window child;
    if (!XTranslateCoordinates(display, window, RootWindow(display, screen), 0, 0, &rootX, &rootY, &child))
        return std::nullopt;
    long x = rootX, y = rootY, width = attr.width, height = attr.height;
    if (x < 0) {
        width += x;
        x = 0;
    }
    if (y < 0) {
        height += y;
        y = 0;
    }
    width = std::min(width, DisplayWidth(display, screen) - x);
    height = std::min(height, DisplayHeight(display, screen) - y);
    // A window wholly off the screen has nothing that XGetImage could read.
    if (width <= 0 || height <= 0) return std::nullopt;
    return Area{static_cast<int>(x - rootX), static_cast<int>(y - rootY), static_cast<int>(width),
                static_cast<int>(height)};
}

// The colours of a picture (0xRRGGBB each) in at most `limit` cells of a
// printer's table.  Exact when the picture has that few colours;
// otherwise the low bits of every channel are dropped, one more at a time,
// until the groups of colours that then agree fit, and a cell holds the
// mean colour of its group's pixels.
class Palette {
public:
    Palette(const std::vector<uint32_t> &pixels, size_t limit) {
        std::unordered_map<uint32_t, unsigned long> counts;
        for (uint32_t c : pixels) ++counts[c];
        while (drop_ < 8 && groups(counts) > limit) ++drop_;
        struct Sum {
            unsigned long long r = 0, g = 0, b = 0, n = 0;
        };
        std::vector<Sum> sums;
        for (const auto &[c, n] : counts) {
            auto [at, fresh] = index_.try_emplace(group(c), sums.size());
            if (fresh) sums.emplace_back();
            Sum &s = sums[at->second];
            s.r += (c >> 16 & 0xFF) * n;
            s.g += (c >> 8 & 0xFF) * n;
            s.b += (c & 0xFF) * n;
            s.n += n;
        }
        auto mean = [](unsigned long long sum, unsigned long long n) {
            return static_cast<unsigned short>((sum + n / 2) / n * 257);
        };
        for (size_t i = 0; i < sums.size(); ++i) {
            XColor cell{};
            cell.pixel = i;
            cell.red = mean(sums[i].r, sums[i].n);
            cell.green = mean(sums[i].g, sums[i].n);
            cell.blue = mean(sums[i].b, sums[i].n);
            cell.flags = DoRed | DoGreen | DoBlue;
            cells.push_back(cell);
        }
    }
    unsigned long pixelOf(uint32_t c) const {
        auto at = index_.find(group(c));
        return at == index_.end() ? 0 : at->second;
    }

    std::vector<XColor> cells;

private:
    uint32_t group(uint32_t c) const {
        const uint32_t m = 0xFFu << drop_ & 0xFF;
        return c & (m << 16 | m << 8 | m);
    }
    size_t groups(const std::unordered_map<uint32_t, unsigned long> &counts) const {
        std::unordered_set<uint32_t> seen;
        for (const auto &entry : counts) seen.insert(group(entry.first));
        return seen.size();
    }

    int drop_ = 0;
    std::unordered_map<uint32_t, size_t> index_;
};

// A printer image of width by height pixels at `depth`, zeroed.
ImagePtr newImage(Display *printer, unsigned depth, const XImage &like) {
    ImagePtr image(QlCreateImage(printer, nullptr, depth, ZPixmap, 0, nullptr, static_cast<unsigned>(like.width),
                                 static_cast<unsigned>(like.height), 8, 0));
    if (!image) throw std::bad_alloc();
    image->data = static_cast<char *>(
        std::calloc(static_cast<size_t>(image->bytes_per_line) * static_cast<size_t>(image->height) + 1, 1));
    if (!image->data) throw std::bad_alloc();
    return image;
}

// A window of a screen whose pixels hold their channels, rewritten as the
// printer keeps colours.  A depth-24 printer gets the colours themselves,
// laid out by its own masks; any other gets the picture's colours in its
// table (overwritten, as for indexed screens) and their cells as pixels.
ImagePtr forPrinter(Display *printer, QlPrinter *p, const XImage &screen, const Visual &visual) {
    QlPrinter masks{};
    masks.redMask = static_cast<unsigned>(visual.red_mask);
    masks.greenMask = static_cast<unsigned>(visual.green_mask);
    masks.blueMask = static_cast<unsigned>(visual.blue_mask);
    const int w = screen.width, h = screen.height;
    std::vector<uint32_t> colours(static_cast<size_t>(w) * static_cast<size_t>(h));
    auto *in = const_cast<XImage *>(&screen);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int rgb[3];
            _QlTrueRGB(&masks, XGetPixel(in, x, y), rgb);
            colours[static_cast<size_t>(y) * w + x] = static_cast<uint32_t>(rgb[0] << 16 | rgb[1] << 8 | rgb[2]);
        }
    if (p->depth == 24) {
        ImagePtr out = newImage(printer, 24, screen);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const uint32_t c = colours[static_cast<size_t>(y) * w + x];
                XColor colour{};
                colour.red = static_cast<unsigned short>((c >> 16 & 0xFF) * 257);
                colour.green = static_cast<unsigned short>((c >> 8 & 0xFF) * 257);
                colour.blue = static_cast<unsigned short>((c & 0xFF) * 257);
                QlAllocColor(printer, 0, &colour);
                XPutPixel(out.get(), x, y, colour.pixel);
            }
        return out;
    }
    // An 8-bit image indexes no more than 256 cells.
    Palette palette(colours, static_cast<size_t>(std::clamp(p->numCells, 0, 256)));
    QlStoreColors(printer, 0, palette.cells.data(), static_cast<int>(palette.cells.size()));
    // The cells are taken, so that the black and white that the page's GC
    // and the driver allocate next find a cell of their own (or the
    // nearest) instead of overwriting one of the picture's.
    auto *cells = static_cast<QlColorCell *>(p->cells);
    for (const XColor &c : palette.cells) {
        if (!cells || c.pixel >= static_cast<unsigned long>(p->numCells)) break;
        cells[c.pixel].allocated = 1;
        cells[c.pixel].refCount = std::max(cells[c.pixel].refCount, 1u);
    }
    ImagePtr out = newImage(printer, 8, screen);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) XPutPixel(out.get(), x, y, palette.pixelOf(colours[static_cast<size_t>(y) * w + x]));
    return out;
}

// For screens whose pixels index a colormap: the
// screen's colormap goes into the printer's table, and the window's
// pixels are read in XYPixmap form to go on paper as they are.
ImagePtr readIndexed(Display *printer, Display *display, int screen, Window window, const Area &a) {
    const int n = std::max(QlDisplayCells(display, screen), 0);
    std::vector<XColor> colours(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        colours[i].pixel = static_cast<unsigned long>(i);
        colours[i].flags = DoRed | DoGreen | DoBlue;
    }
    QlQueryColors(display, DefaultColormap(display, screen), colours.data(), n);
    QlStoreColors(printer, 0, colours.data(), n);
    return ImagePtr(XGetImage(display, window, a.x, a.y, static_cast<unsigned>(a.width),
                              static_cast<unsigned>(a.height), AllPlanes, XYPixmap));
}

// Reads the window as the printer will take it; null after a report.
ImagePtr readWindow(Display *printer, QlPrinter *p, Display *display, int screen, Window window) {
    DumpTrap trap(display);
    if (!trap.lost()) window = XmuClientWindow(display, window);
    if (trap.lost()) {
        _QlError(eUnMapped, kCaller);
        return nullptr;
    }
    XWindowAttributes attr;
    if (!XGetWindowAttributes(display, window, &attr)) {
        _QlError(eNoWAttr, kCaller);
        return nullptr;
    }
    if (attr.map_state != IsViewable) {
        _QlError(eUnMapped, "QlPrinterWindow");
        return nullptr;
    }
    ImagePtr image;
    if (std::optional<Area> area = onScreen(display, screen, window, attr)) {
        const Visual *v = attr.visual;
        if (v && (v->c_class == TrueColor || v->c_class == DirectColor)) {
            ImagePtr read(XGetImage(display, window, area->x, area->y, static_cast<unsigned>(area->width),
                                    static_cast<unsigned>(area->height), AllPlanes, ZPixmap));
            if (read && !trap.failed()) image = forPrinter(printer, p, *read, *v);
        } else {
            image = readIndexed(printer, display, screen, window, *area);
        }
    }
    // The window went away, was unmapped or lies off the screen between
    // the test above and the read.
    if (!image || trap.failed()) {
        _QlError(eUnMapped, kCaller);
        return nullptr;
    }
    return image;
}

int printWindow(Display *printer, QlPrinter *p, Display *display, int screen, Window window, int x, int y) {
    ImagePtr image = readWindow(printer, p, display, screen, window);
    if (!image) return 0;
    GC gc = QlCreateGC(printer, 0, 0, nullptr);
    // The put's own result isn't the caller's: outside a page it reports.
    QlPutImage(printer, 0, gc, image.get(), 0, 0, x, y, static_cast<unsigned>(image->width),
               static_cast<unsigned>(image->height));
    if (gc) QlFreeGC(printer, gc);
    return 1;
}

}  // namespace

Window TryChildren(Display *display, Window window, Atom wmState) {
    Window root, parent, *children = nullptr;
    unsigned count = 0;
    if (!XQueryTree(display, window, &root, &parent, &children, &count)) return 0;
    std::unique_ptr<Window, XFreeDeleter> hold(children);
    for (unsigned i = 0; i < count; ++i)
        if (hasProperty(display, children[i], wmState)) return children[i];
    for (unsigned i = 0; i < count; ++i)
        if (Window found = TryChildren(display, children[i], wmState)) return found;
    return 0;
}

Window XmuClientWindow(Display *display, Window window) {
    Atom wmState = XInternAtom(display, "WM_STATE", True);
    if (wmState == None || hasProperty(display, window, wmState)) return window;
    Window client = TryChildren(display, window, wmState);
    return client ? client : window;
}

int QlPrintWindow(Display *printer, Display *display, int screen, Window window, int x, int y) {
    QlPrinter *p = _QlAsPrinter(printer);
    if (!p || !QlIsDisplay(display) || screen < 0 || screen >= ScreenCount(display)) return 0;
    try {
        return printWindow(printer, p, display, screen, window, x, y);
    } catch (const std::bad_alloc &) {
        _QlError(eLMem, kCaller);
        return 0;
    }
}

int QlPrintWidget(Display *printer, Widget widget, int x, int y) {
    if (!_QlAsPrinter(printer) || !widget) return 0;
    // A gadget has no window of its own to read.
    if (!XtIsWidget(widget)) {
        _QlError(eIllegalArg, "QlPrintWidget");
        return 0;
    }
    return QlPrintWindow(printer, XtDisplay(widget), XScreenNumberOfScreen(XtScreen(widget)), XtWindow(widget), x,
                         y);
}
