// Graphics contexts and the drawing calls' front end: what a printer GC
// records, what reaches Xlib on a display, and the page's screen values.
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses

#include "core/driver.h"
#include "support/capture.h"
#include "support/tempdir.h"
#include "support/xvfb.h"

#include <X11/Xutil.h>

#include <cstring>
#include <vector>

using qltest::MessageCapture;

namespace {

QlGC *G(GC gc) { return reinterpret_cast<QlGC *>(gc); }
using V = std::vector<int>;

struct Printer {
    Display *d = QlVaOpenPrinter(nullptr, "cat >/dev/null", "PostScript", 0);
    ~Printer() { QlClosePrinter(d); }
};

TEST(PrinterGC, DefaultsAndDirtyBits) {
    MessageCapture messages;
    Printer pr;
    GC gc = QlCreateGC(pr.d, 0, 0, nullptr);
    ASSERT_NE(gc, nullptr);
    QlGC *g = G(gc);
    EXPECT_EQ(g->dirty, ~0UL);
    const XGCValues &v = g->values;
    EXPECT_EQ(V({v.function, v.line_width, v.cap_style, v.arc_mode, v.dashes}), V({GXcopy, 1, 0, ArcPieSlice, 4}));
    EXPECT_EQ(std::vector<unsigned long>({v.foreground, v.background}),
              std::vector<unsigned long>({QlBlackPixel(pr.d, 0), QlWhitePixel(pr.d, 0)}));
    EXPECT_EQ(reinterpret_cast<QlPrinter *>(pr.d)->lastGC, g);

    g->dirty = 0;
    EXPECT_EQ(QlSetForeground(pr.d, gc, 7), 0);
    EXPECT_EQ(g->dirty, 260u);  // a new foreground marks the fill style too
    g->dirty = 0;
    QlSetForeground(pr.d, gc, 7);
    EXPECT_EQ(g->dirty, 0u);
    EXPECT_EQ(QlSetLineAttributes(pr.d, gc, 0, LineOnOffDash, 9, JoinRound), 2);
    // 0 is kept as 1; the bad cap style is left out.
    EXPECT_EQ(V({v.line_width, v.line_style, v.join_style, v.cap_style}), V({1, LineOnOffDash, JoinRound, 0}));
    EXPECT_EQ(g->dirty, 16u | 32u | 128u);
    EXPECT_EQ(messages.indices.back(), wBadValue);

    EXPECT_EQ(QlSetArcMode(pr.d, gc, 2), 2);
    EXPECT_EQ(QlSetFillRule(pr.d, gc, -1), 2);
    EXPECT_EQ(QlSetFillStyle(pr.d, gc, 4), 2);
    g->dirty = 0;
    messages.clear();
    EXPECT_EQ(QlSetTSOrigin(pr.d, gc, 3, 4), 0);
    EXPECT_EQ(QlSetPlaneMask(pr.d, gc, 1), 0);
    EXPECT_EQ(QlSetSubwindowMode(pr.d, gc, IncludeInferiors), 0);
    EXPECT_EQ(messages.indices, (std::vector<int>{wNotSupport, wNotSupport, wNotSupport}));
    EXPECT_EQ(g->dirty, 4096u | 8192u | 2u | 32768u);
    QlSetTile(pr.d, gc, 98);
    EXPECT_EQ(QlSetStipple(pr.d, gc, 99), 0);
    EXPECT_EQ(v.tile + v.stipple * 1000, 98u + 99000u);  // the tile stays beside the stipple

    // XSetState's order: foreground, background, function, plane mask.
    EXPECT_EQ(QlSetState(pr.d, gc, 1, 0, GXxor, 5), 0);
    EXPECT_EQ(std::vector<unsigned long>({v.foreground, v.background, (unsigned long)v.function, v.plane_mask}),
              std::vector<unsigned long>({1, 0, GXxor, 5}));

    // Clip lists and dash lists are the GC's own copies.
    XRectangle r[2] = {{1, 2, 3, 4}, {5, 6, 7, 8}};
    EXPECT_EQ(QlSetClipRectangles(pr.d, gc, 9, 9, r, 2, Unsorted), 0);
    r[0].x = 100;
    EXPECT_EQ(V({g->clipRects[0].x, g->clipRectCount, g->clipIsRects}), V({1, 2, 1}));
    EXPECT_EQ(QlSetClipRectangles(pr.d, gc, 0, 0, nullptr, 0, Unsorted), 0);
    EXPECT_EQ(g->clipRects, nullptr);
    EXPECT_EQ(QlSetClipRectangles(pr.d, gc, 0, 0, nullptr, 2, Unsorted), 2);
    Region region = XCreateRegion();
    XRectangle a{0, 0, 10, 10}, b{20, 20, 5, 5};
    XUnionRectWithRegion(&a, region, region);
    XUnionRectWithRegion(&b, region, region);
    EXPECT_EQ(QlSetRegion(pr.d, gc, region), 0);
    ASSERT_EQ(g->clipRectCount, 2);
    EXPECT_EQ(V({g->clipRects[1].x, g->clipRects[1].width}), V({20, 5}));
    XDestroyRegion(region);
    const char dashes[] = {3, 1};
    EXPECT_EQ(QlSetDashes(pr.d, gc, 2, dashes, 2), 0);
    EXPECT_EQ(g->dashesSet, 1);
    EXPECT_EQ(std::memcmp(g->dashList, dashes, 2), 0);
    EXPECT_EQ(QlSetDashes(pr.d, gc, 0, nullptr, 1), 2);

    // Fonts: id 0 is refused before the GC is looked at.
    EXPECT_EQ(QlSetFont(pr.d, nullptr, 0), 7);
    EXPECT_EQ(QlFreeGC(pr.d, gc), 0);
}

TEST(PrinterGC, CopyDefaultFreeAndForeignGCs) {
    MessageCapture messages;
    Printer pr;
    GC a = QlCreateGC(pr.d, 0, 0, nullptr), b = QlCreateGC(pr.d, 0, 0, nullptr);
    QlSetForeground(pr.d, a, 5);
    G(a)->dirty = G(b)->dirty = 0;
    // Xlib's direction: from the first GC into the second, which is marked.
    EXPECT_EQ(QlCopyGC(pr.d, a, GCForeground, b), 0);
    EXPECT_EQ(std::vector<unsigned long>({G(b)->values.foreground, G(b)->dirty, G(a)->dirty}),
              std::vector<unsigned long>({5, 260, 0}));

    EXPECT_EQ(QlCheckGC(pr.d, a), 0);
    EXPECT_EQ(reinterpret_cast<QlPrinter *>(pr.d)->lastGC, G(a));
    EXPECT_EQ(G(a)->dirty, ~0UL);

    GC def = QlDefaultGC(pr.d, 0);
    EXPECT_EQ(QlDefaultGC(pr.d, 0), def);
    EXPECT_EQ(QlDefaultGC(nullptr, 0), nullptr);

    messages.clear();
    EXPECT_EQ(QlSetForeground(pr.d, nullptr, 1), 13);
    EXPECT_EQ(QlChangeGC(pr.d, a, GCForeground, nullptr), 2);
    EXPECT_EQ(QlFreeGC(pr.d, b), 0);
    // A freed GC, or one that no printer made, is refused, not read.
    XGCValues stack{};
    EXPECT_EQ(QlSetForeground(pr.d, b, 1), 13);
    EXPECT_EQ(QlFreeGC(pr.d, reinterpret_cast<GC>(&stack)), 13);
    EXPECT_EQ(messages.indices, (std::vector<int>{wBadGC, wBadValue, wBadGC, wBadGC}));
    EXPECT_EQ(QlFreeGC(pr.d, a), 0);
    // The default GC goes with the printer.
}

TEST(DrawFrontEnd, LoopsPixmapsAndPageValues) {
    MessageCapture messages;
    Printer pr;
    QlPrinter *p = reinterpret_cast<QlPrinter *>(pr.d);
    GC gc = QlCreateGC(pr.d, 0, 0, nullptr);
    ASSERT_EQ(QlStartDoc(pr.d, "x"), 1);
    ASSERT_EQ(QlStartPage(pr.d), 1);
    EXPECT_EQ(QlDrawArcs(pr.d, 0, gc, nullptr, 0), 0);
    EXPECT_EQ(QlDrawPoints(pr.d, 0, gc, nullptr, 5, 0), 2);

    // CoordModePrevious points add up, as on a display.
    std::fflush(p->stream);
    long before = std::ftell(p->stream);
    XPoint pts[] = {{100, 100}, {100, 0}};
    EXPECT_EQ(QlDrawPoints(pr.d, 0, gc, pts, 2, CoordModePrevious), 0);
    std::fflush(p->stream);
    std::string tail = qltest::ReadFile(p->tmpName).substr(static_cast<size_t>(before));
    EXPECT_LT(tail.find("24.00 24.00 0.12 DP\n"), tail.find("48.00 24.00 0.12 DP\n")) << tail;
    EXPECT_NE(tail.find("48.00 24.00 0.12 DP\n"), std::string::npos) << tail;

    // Pixmap to pixmap copies pixels and writes nothing to the page.
    std::vector<char> s(16 * 16 * 4, 0), t(16 * 16 * 4, 0);
    auto image = [](std::vector<char> &data) {
        XImage img{};
        img.width = img.height = 16;
        img.format = ZPixmap;
        img.data = data.data();
        img.byte_order = img.bitmap_bit_order = LSBFirst;
        img.bitmap_unit = img.bitmap_pad = img.bits_per_pixel = 32;
        img.depth = 24;
        img.bytes_per_line = 64;
        XInitImage(&img);
        return img;
    };
    XImage srcImage = image(s), dstImage = image(t);
    XImage *src = &srcImage, *dst = &dstImage;
    XPutPixel(src, 3, 4, 0x123456);
    std::fflush(p->stream);
    before = std::ftell(p->stream);
    EXPECT_EQ(QlCopyArea(pr.d, reinterpret_cast<Drawable>(src), reinterpret_cast<Drawable>(dst), gc, 0, 0, 40, 40,
                         10, 10),
              0);  // clipped to both images
    EXPECT_EQ(XGetPixel(dst, 13, 14), 0x123456u);
    std::fflush(p->stream);
    EXPECT_EQ(std::ftell(p->stream), before);

    // Clearing the window is a new sheet.
    int page = p->pageNumber;
    EXPECT_EQ(QlClearWindow(pr.d, 0), 0);
    EXPECT_EQ(p->pageNumber, page + 1);

    // The page in application units: Letter at 300 dpi, 2395 x 3146 dots.
    EXPECT_EQ(V({QlDisplayWidth(pr.d, 0), QlDisplayHeight(pr.d, 0), QlDisplayWidth(pr.d, 1),
                 QlDisplayWidthMM(pr.d, 0), static_cast<int>(QlRootWindow(pr.d, 0)), QlDefaultDepth(pr.d, 0),
                 QlDisplayCells(pr.d, 0)}),
              V({2395, 3146, 0, 202, 0, 8, 256}));
    Window root;
    int x, y;
    unsigned w, h, border, depth;
    EXPECT_EQ(QlGetGeometry(pr.d, 0, &root, &x, &y, &w, &h, &border, &depth), 1);
    EXPECT_EQ(V({static_cast<int>(w), static_cast<int>(depth)}), V({2395, 1}));
    QlEndPage(pr.d);
    QlSetScale(pr.d, 2.0);
    EXPECT_EQ(QlDisplayWidth(pr.d, 0), 1197);
    QlAbortDoc(pr.d);
    QlFreeGC(pr.d, gc);
}

// The same calls through Ql... and through X... leave the same pixels.
TEST(DrawFrontEnd, DisplayPassThroughIsExact) {
    Display *dpy = qltest::OpenTestDisplay();
    if (!dpy) GTEST_SKIP() << qltest::XvfbFailure();
    const int W = 200, H = 160;
    Window root = DefaultRootWindow(dpy);
// Each call through Ql... or through X...
#define CALL(f, ...) (viaQl ? Ql##f(__VA_ARGS__) : X##f(__VA_ARGS__))
    auto paint = [&](bool viaQl) {
        Pixmap pm = XCreatePixmap(dpy, root, W, H, DefaultDepth(dpy, 0));
        GC gc = CALL(CreateGC, dpy, pm, 0, nullptr);
        XColor red{};
        CALL(AllocNamedColor, dpy, CALL(DefaultColormap, dpy, 0), "orange red", &red, &red);
        XPoint poly[] = {{10, 10}, {60, 20}, {30, 70}, {5, 40}};
        XArc arcs[] = {{100, 10, 50, 30, 0, 200 * 64}, {120, 60, 40, 40, 90 * 64, -270 * 64}};
        XSegment segs[] = {{0, 150, 199, 100}, {10, 100, 90, 159}};
        const char dash[] = {5, 2, 1};
        XRectangle clip{0, 0, 150, 150};
        CALL(SetForeground, dpy, gc, CALL(WhitePixel, dpy, 0));
        CALL(FillRectangle, dpy, pm, gc, 0, 0, W, H);
        CALL(SetForeground, dpy, gc, red.pixel);
        CALL(SetLineAttributes, dpy, gc, 3, LineOnOffDash, CapRound, JoinBevel);
        CALL(SetDashes, dpy, gc, 1, dash, 3);
        CALL(SetClipRectangles, dpy, gc, 0, 0, &clip, 1, Unsorted);
        CALL(FillPolygon, dpy, pm, gc, poly, 4, Complex, CoordModeOrigin);
        CALL(DrawArcs, dpy, pm, gc, arcs, 2);
        CALL(DrawSegments, dpy, pm, gc, segs, 2);
        CALL(SetForeground, dpy, gc, CALL(BlackPixel, dpy, 0));
        CALL(DrawLines, dpy, pm, gc, poly, 4, CoordModeOrigin);
        CALL(FillArc, dpy, pm, gc, 150, 100, 40, 40, 0, 90 * 64);
        CALL(DrawPoint, dpy, pm, gc, 190, 5);
        XImage *img = XGetImage(dpy, pm, 0, 0, W, H, AllPlanes, ZPixmap);
        std::string bytes(img->data, static_cast<size_t>(img->bytes_per_line) * H);
        XDestroyImage(img);
        CALL(FreeGC, dpy, gc);
        XFreePixmap(dpy, pm);
        return bytes;
    };
#undef CALL
    std::string ql = paint(true), x = paint(false);
    EXPECT_TRUE(ql == x);
    EXPECT_NE(ql.find_first_not_of(ql[0]), std::string::npos);  // something was drawn
    EXPECT_EQ(QlDisplayWidth(dpy, 0), DisplayWidth(dpy, 0));
    EXPECT_EQ(QlDisplayWidth(dpy, 7), 0);
    EXPECT_EQ(QlRootWindow(dpy, 0), root);
    XCloseDisplay(dpy);
}

}  // namespace
