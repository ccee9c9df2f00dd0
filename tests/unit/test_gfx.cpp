// Graphics contexts and the drawing calls' front end: what a printer GC
// records, what reaches Xlib on a display, and the page's screen values.
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses

#include "core/driver.h"
#include "support/capture.h"
#include "support/xvfb.h"

#include <X11/Xutil.h>

#include <cstring>
#include <vector>

using qltest::MessageCapture;

namespace {

QlGC *G(GC gc) { return reinterpret_cast<QlGC *>(gc); }

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
    EXPECT_EQ(g->values.function, GXcopy);
    EXPECT_EQ(g->values.line_width, 1);
    EXPECT_EQ(g->values.cap_style, 0);
    EXPECT_EQ(g->values.arc_mode, ArcPieSlice);
    EXPECT_EQ(g->values.dashes, 4);
    EXPECT_EQ(g->values.foreground, QlBlackPixel(pr.d, 0));
    EXPECT_EQ(g->values.background, QlWhitePixel(pr.d, 0));
    EXPECT_EQ(reinterpret_cast<QlPrinter *>(pr.d)->lastGC, g);

    g->dirty = 0;
    EXPECT_EQ(QlSetForeground(pr.d, gc, 7), 0);
    EXPECT_EQ(g->dirty, 260u);  // a new foreground marks the fill style too
    g->dirty = 0;
    QlSetForeground(pr.d, gc, 7);
    EXPECT_EQ(g->dirty, 0u);
    EXPECT_EQ(QlSetLineAttributes(pr.d, gc, 0, LineOnOffDash, 9, JoinRound), 2);
    EXPECT_EQ(g->values.line_width, 1);  // 0 is kept as 1
    EXPECT_EQ(g->values.line_style, LineOnOffDash);
    EXPECT_EQ(g->values.join_style, JoinRound);
    EXPECT_EQ(g->values.cap_style, 0);
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
    EXPECT_EQ(g->values.tile, 98u);  // the tile stays beside the stipple
    EXPECT_EQ(g->values.stipple, 99u);

    // XSetState's order: foreground, background, function, plane mask.
    EXPECT_EQ(QlSetState(pr.d, gc, 1, 0, GXxor, 5), 0);
    EXPECT_EQ(g->values.foreground, 1u);
    EXPECT_EQ(g->values.background, 0u);
    EXPECT_EQ(g->values.function, GXxor);
    EXPECT_EQ(g->values.plane_mask, 5u);

    // Clip lists and dash lists are the GC's own copies.
    XRectangle r[2] = {{1, 2, 3, 4}, {5, 6, 7, 8}};
    EXPECT_EQ(QlSetClipRectangles(pr.d, gc, 9, 9, r, 2, Unsorted), 0);
    r[0].x = 100;
    EXPECT_EQ(g->clipRects[0].x, 1);
    EXPECT_EQ(g->clipRectCount, 2);
    EXPECT_EQ(g->clipIsRects, 1);
    EXPECT_EQ(QlSetClipRectangles(pr.d, gc, 0, 0, nullptr, 0, Unsorted), 0);
    EXPECT_EQ(g->clipRects, nullptr);
    EXPECT_EQ(QlSetClipRectangles(pr.d, gc, 0, 0, nullptr, 2, Unsorted), 2);
    Region region = XCreateRegion();
    XRectangle a{0, 0, 10, 10}, b{20, 20, 5, 5};
    XUnionRectWithRegion(&a, region, region);
    XUnionRectWithRegion(&b, region, region);
    EXPECT_EQ(QlSetRegion(pr.d, gc, region), 0);
    ASSERT_EQ(g->clipRectCount, 2);
    EXPECT_EQ(g->clipRects[1].x, 20);
    EXPECT_EQ(g->clipRects[1].width, 5);
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
    EXPECT_EQ(G(b)->values.foreground, 5u);
    EXPECT_EQ(G(b)->dirty, 260u);
    EXPECT_EQ(G(a)->dirty, 0u);

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
    std::string all;
    {
        FILE *f = std::fopen(p->tmpName, "r");
        char buf[4096];
        size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) all.append(buf, n);
        std::fclose(f);
    }
    std::string tail = all.substr(static_cast<size_t>(before));
    EXPECT_NE(tail.find("24.00 24.00 0.12 DP\n"), std::string::npos) << tail;
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
    EXPECT_EQ(QlDisplayWidth(pr.d, 0), 2395);
    EXPECT_EQ(QlDisplayHeight(pr.d, 0), 3146);
    EXPECT_EQ(QlDisplayWidth(pr.d, 1), 0);
    EXPECT_EQ(QlDisplayWidthMM(pr.d, 0), 202);
    EXPECT_EQ(QlRootWindow(pr.d, 0), 0u);
    EXPECT_EQ(QlDefaultDepth(pr.d, 0), 8);
    EXPECT_EQ(QlDisplayCells(pr.d, 0), 256);
    Window root;
    int x, y;
    unsigned w, h, border, depth;
    EXPECT_EQ(QlGetGeometry(pr.d, 0, &root, &x, &y, &w, &h, &border, &depth), 1);
    EXPECT_EQ(w, 2395u);
    EXPECT_EQ(depth, 1u);
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
    auto paint = [&](bool viaQl) {
        Pixmap pm = XCreatePixmap(dpy, root, W, H, DefaultDepth(dpy, 0));
        GC gc = viaQl ? QlCreateGC(dpy, pm, 0, nullptr) : XCreateGC(dpy, pm, 0, nullptr);
        XColor red{};
        if (viaQl) QlAllocNamedColor(dpy, QlDefaultColormap(dpy, 0), "orange red", &red, &red);
        else XAllocNamedColor(dpy, DefaultColormap(dpy, 0), "orange red", &red, &red);
        XPoint poly[] = {{10, 10}, {60, 20}, {30, 70}, {5, 40}};
        XArc arcs[] = {{100, 10, 50, 30, 0, 200 * 64}, {120, 60, 40, 40, 90 * 64, -270 * 64}};
        XSegment segs[] = {{0, 150, 199, 100}, {10, 100, 90, 159}};
        const char dash[] = {5, 2, 1};
        XRectangle clip{0, 0, 150, 150};
        if (viaQl) {
            QlSetForeground(dpy, gc, QlWhitePixel(dpy, 0));
            QlFillRectangle(dpy, pm, gc, 0, 0, W, H);
            QlSetForeground(dpy, gc, red.pixel);
            QlSetLineAttributes(dpy, gc, 3, LineOnOffDash, CapRound, JoinBevel);
            QlSetDashes(dpy, gc, 1, dash, 3);
            QlSetClipRectangles(dpy, gc, 0, 0, &clip, 1, Unsorted);
            QlFillPolygon(dpy, pm, gc, poly, 4, Complex, CoordModeOrigin);
            QlDrawArcs(dpy, pm, gc, arcs, 2);
            QlDrawSegments(dpy, pm, gc, segs, 2);
            QlSetForeground(dpy, gc, QlBlackPixel(dpy, 0));
            QlDrawLines(dpy, pm, gc, poly, 4, CoordModeOrigin);
            QlFillArc(dpy, pm, gc, 150, 100, 40, 40, 0, 90 * 64);
            QlDrawPoint(dpy, pm, gc, 190, 5);
        } else {
            XSetForeground(dpy, gc, WhitePixel(dpy, 0));
            XFillRectangle(dpy, pm, gc, 0, 0, W, H);
            XSetForeground(dpy, gc, red.pixel);
            XSetLineAttributes(dpy, gc, 3, LineOnOffDash, CapRound, JoinBevel);
            XSetDashes(dpy, gc, 1, dash, 3);
            XSetClipRectangles(dpy, gc, 0, 0, &clip, 1, Unsorted);
            XFillPolygon(dpy, pm, gc, poly, 4, Complex, CoordModeOrigin);
            XDrawArcs(dpy, pm, gc, arcs, 2);
            XDrawSegments(dpy, pm, gc, segs, 2);
            XSetForeground(dpy, gc, BlackPixel(dpy, 0));
            XDrawLines(dpy, pm, gc, poly, 4, CoordModeOrigin);
            XFillArc(dpy, pm, gc, 150, 100, 40, 40, 0, 90 * 64);
            XDrawPoint(dpy, pm, gc, 190, 5);
        }
        XImage *img = XGetImage(dpy, pm, 0, 0, W, H, AllPlanes, ZPixmap);
        std::string bytes(img->data, static_cast<size_t>(img->bytes_per_line) * H);
        XDestroyImage(img);
        if (viaQl) QlFreeGC(dpy, gc);
        else XFreeGC(dpy, gc);
        XFreePixmap(dpy, pm);
        return bytes;
    };
    std::string ql = paint(true), x = paint(false);
    EXPECT_TRUE(ql == x);
    EXPECT_NE(ql.find_first_not_of(ql[0]), std::string::npos);  // something was drawn
    EXPECT_EQ(QlDisplayWidth(dpy, 0), DisplayWidth(dpy, 0));
    EXPECT_EQ(QlDisplayWidth(dpy, 7), 0);
    EXPECT_EQ(QlRootWindow(dpy, 0), root);
    XCloseDisplay(dpy);
}

}  // namespace
