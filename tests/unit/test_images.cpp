// Images and pixmaps on both kinds of handle, and the halftones made of
// images for raster output and level-1 tiles.
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses

#include "drivers/pcl5/raster.h"
#include "gfx/image.h"
#include "support/capture.h"
#include "support/xvfb.h"

#include <X11/Xutil.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using qltest::MessageCapture;

namespace {

struct Printer {
    Display *d = QlVaOpenPrinter(nullptr, "cat >/dev/null", "PostScript", 0);
    ~Printer() {
        if (reinterpret_cast<QlPrinter *>(d)->stream) QlAbortDoc(d);
        QlClosePrinter(d);
    }
    QlPrinter *p() const { return reinterpret_cast<QlPrinter *>(d); }
    unsigned long colour(unsigned short r, unsigned short g, unsigned short b) {
        XColor c{0, r, g, b, DoRed | DoGreen | DoBlue, 0};
        return QlAllocColor(d, 0, &c) ? c.pixel : 0;
    }
};

XImage *Img(Pixmap p) { return reinterpret_cast<XImage *>(p); }
using V = std::vector<unsigned long>;

// A bit map as text, one string per row.
std::vector<std::string> Rows(unsigned char **map, int w, int h) {
    std::vector<std::string> rows;
    for (int y = 0; y < h; ++y) {
        std::string r;
        for (int x = 0; x < w; ++x) r += map[y][x] ? '1' : '0';
        rows.push_back(r);
    }
    return rows;
}

// A printer pixmap painted row by row from text: '#' black, '.' white.
Pixmap Paint(Printer &pr, const std::vector<std::string> &rows) {
    int w = static_cast<int>(rows[0].size()), h = static_cast<int>(rows.size());
    Pixmap pm = QlCreatePixmap(pr.d, 0, w, h, 8);
    unsigned long black = pr.colour(0, 0, 0), white = pr.colour(65535, 65535, 65535);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) QlPutPixel(Img(pm), x, y, rows[y][x] == '#' ? black : white);
    return pm;
}

TEST(DisplayImages, EveryCallIsXlibs) {
    Display *dpy = qltest::OpenTestDisplay();
    if (!dpy) GTEST_SKIP() << qltest::XvfbFailure();
    MessageCapture messages;
    const int screen = DefaultScreen(dpy);
    Visual *visual = DefaultVisual(dpy, screen);
    const unsigned depth = DefaultDepth(dpy, screen);
    Window root = RootWindow(dpy, screen);

    XImage *mine = QlCreateImage(dpy, visual, depth, ZPixmap, 0, nullptr, 13, 7, 32, 0);
    XImage *theirs = XCreateImage(dpy, visual, depth, ZPixmap, 0, nullptr, 13, 7, 32, 0);
    ASSERT_TRUE(mine && theirs);
    EXPECT_EQ(V({unsigned(mine->bytes_per_line), unsigned(mine->bits_per_pixel)}),
              V({unsigned(theirs->bytes_per_line), unsigned(theirs->bits_per_pixel)}));
    mine->data = static_cast<char *>(std::calloc(mine->bytes_per_line * 7, 1));
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 13; ++x) QlPutPixel(mine, x, y, (x * 40 + y * 7) & 0xFFFFFF);
    EXPECT_EQ(QlGetPixel(mine, 3, 4), XGetPixel(mine, 3, 4));
    EXPECT_EQ(QlAddPixel(mine, 1), 0);
    EXPECT_EQ(XGetPixel(mine, 3, 4), static_cast<unsigned long>(3 * 40 + 4 * 7 + 1));

    Pixmap pm = QlCreatePixmap(dpy, root, 20, 10, depth);
    GC gc = XCreateGC(dpy, pm, 0, nullptr);
    XSetForeground(dpy, gc, 0);
    XFillRectangle(dpy, pm, gc, 0, 0, 20, 10);
    QlPutImage(dpy, pm, gc, mine, 1, 1, 5, 2, 10, 5);
    XImage *back = QlGetImage(dpy, pm, 0, 0, 20, 10, AllPlanes, ZPixmap);
    XImage *direct = XGetImage(dpy, pm, 0, 0, 20, 10, AllPlanes, ZPixmap);
    ASSERT_TRUE(back && direct);
    EXPECT_EQ(std::memcmp(back->data, direct->data, direct->bytes_per_line * 10), 0);
    EXPECT_EQ(V({QlGetPixel(back, 5, 2), QlGetPixel(back, 4, 2)}), V({XGetPixel(mine, 1, 1), 0}));
    // Into an image of the caller's, masked.
    XImage *into = XSubImage(direct, 0, 0, 20, 10);
    XImage *got = QlGetSubImage(dpy, pm, 5, 2, 4, 4, 0xFF, ZPixmap, into, 0, 0);
    EXPECT_EQ(got, into);
    EXPECT_EQ(QlGetPixel(into, 1, 1), XGetPixel(mine, 2, 2) & 0xFF);
    XImage *sub = QlSubImage(mine, 2, 3, 4, 2);
    ASSERT_NE(sub, nullptr);
    EXPECT_EQ(QlGetPixel(sub, 1, 1), XGetPixel(mine, 3, 4));

    unsigned w = 0, h = 0, xw = 0, xh = 0;
    EXPECT_EQ(QlQueryBestSize(dpy, TileShape, root, 5, 5, &w, &h), XQueryBestSize(dpy, TileShape, root, 5, 5, &xw, &xh));
    EXPECT_EQ(V({w, h}), V({xw, xh}));
    EXPECT_EQ(QlExtIsShmImage(dpy, mine), 0);
    EXPECT_EQ(QlStretchPutImage(dpy, pm, gc, mine, 0, 0, 2, 2, 0, 0, 4, 4), 0);
    ASSERT_EQ(messages.indices, std::vector<int>{wNotSupport});
    EXPECT_EQ(messages.texts[0], "wNotSupport: QlStretchPutImage: to screen: not supported by Qualin");

    for (XImage *i : {mine, theirs, back, direct, into, sub}) QlDestroyImage(i);
    XFreeGC(dpy, gc);
    QlFreePixmap(dpy, pm);
    XSync(dpy, False);
    XCloseDisplay(dpy);
}

TEST(PrinterImages, RecordsAreFilledAndBadSizesRefused) {
    MessageCapture messages;
    Printer pr;
    XImage *bits = Img(QlCreatePixmap(pr.d, 0, 8, 8, 1));
    ASSERT_NE(bits, nullptr);
    EXPECT_EQ(V({unsigned(bits->format), unsigned(bits->bytes_per_line), unsigned(bits->bits_per_pixel)}),
              V({XYPixmap, 1, 1}));
    EXPECT_EQ(std::string(bits->data, 8), std::string(8, '\0'));
    XImage *deep = Img(QlCreatePixmap(pr.d, 0, 5, 3, 24));
    ASSERT_NE(deep, nullptr);
    EXPECT_EQ(V({unsigned(deep->bytes_per_line), unsigned(deep->bits_per_pixel), deep->red_mask, deep->green_mask,
                 deep->blue_mask}),
              V({15, 24, 255, 65280, 16711680}));
    QlPutPixel(deep, 4, 2, 0x123456);
    EXPECT_EQ(QlGetPixel(deep, 4, 2), 0x123456u);
    EXPECT_EQ(QlFreePixmap(pr.d, reinterpret_cast<Pixmap>(bits)), 0);
    EXPECT_EQ(QlFreePixmap(pr.d, reinterpret_cast<Pixmap>(deep)), 0);

    // Bytes per line from the pad: 8 x 10 bits in 32-bit units; 10 + 3
    // offset bits in 16-bit units.
    XImage *z = QlCreateImage(pr.d, nullptr, 8, ZPixmap, 0, nullptr, 10, 2, 32, 0);
    XImage *xy = QlCreateImage(pr.d, nullptr, 8, XYPixmap, 3, nullptr, 10, 2, 16, 0);
    ASSERT_TRUE(z && xy);
    EXPECT_EQ(V({unsigned(z->bytes_per_line), unsigned(xy->bytes_per_line)}), V({12, 2}));
    QlDestroyImage(z);
    QlDestroyImage(xy);

    // Nothing an image function could overrun or divide by.
    // depth, format, offset, width, height, pad, bytes per line (9: too short)
    const struct { unsigned depth; int format, offset; unsigned w, h; int pad, line; } refused[] = {
        {8, ZPixmap, 0, 10, 2, 0, 0},          {8, ZPixmap, 0, 10, 2, 7, 0},        {0, ZPixmap, 0, 10, 2, 8, 0},
        {8, ZPixmap, -1, 10, 2, 8, 0},         {8, ZPixmap, 0, 10, 2, 8, 9},        {32, ZPixmap, 0, 1u << 30, 1, 8, 0},
        {8, ZPixmap, 0, 70000, 70000, 8, 0}, {1, XYPixmap, 0, UINT_MAX, 1, 8, 0}};
    for (const auto &c : refused)
        EXPECT_EQ(QlCreateImage(pr.d, nullptr, c.depth, c.format, c.offset, nullptr, c.w, c.h, c.pad, c.line), nullptr)
            << c.depth << " " << c.w << "x" << c.h << " pad " << c.pad << " line " << c.line;
    EXPECT_EQ(QlCreatePixmap(pr.d, 0, 100000, 100000, 24), 0u);
    EXPECT_EQ(QlCreatePixmap(pr.d, 0, 8, 8, 0), 0u);
    int size = -1;
    EXPECT_EQ(_QlFormat_Image(nullptr, &size), nullptr);
    EXPECT_EQ(size, 0);
    EXPECT_TRUE(messages.indices.empty());
}

TEST(PrinterImages, PutGetAndTheirMessages) {
    MessageCapture messages;
    Printer pr;
    GC gc = QlCreateGC(pr.d, 0, 0, nullptr);
    XImage *src = Img(QlCreatePixmap(pr.d, 0, 4, 3, 8));
    XImage *dst = Img(QlCreatePixmap(pr.d, 0, 5, 5, 8));
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x) QlPutPixel(src, x, y, 16 * y + x + 1);

    // Into a pixmap before any document, cut at both images' edges.
    EXPECT_EQ(QlPutImage(pr.d, reinterpret_cast<Drawable>(dst), gc, src, 1, 0, 3, -1, 10, 10), 0);
    EXPECT_EQ(V({QlGetPixel(dst, 3, 0), QlGetPixel(dst, 4, 1), QlGetPixel(dst, 2, 0), QlGetPixel(dst, 3, 2)}),
              V({16 + 2, 32 + 3, 0, 0}));
    EXPECT_TRUE(messages.indices.empty());
    // To the page it needs a page.
    EXPECT_EQ(QlPutImage(pr.d, 0, gc, src, 0, 0, 0, 0, 4, 3), 2);
    EXPECT_EQ(QlStretchPutImage(pr.d, 0, gc, src, 0, 0, 4, 3, 0, 0, 8, 6), 2);
    EXPECT_EQ(messages.indices, (std::vector<int>{wStartDoc, wStartDoc}));
    ASSERT_EQ(QlStartDoc(pr.d, "images"), 1);
    ASSERT_EQ(QlStartPage(pr.d), 1);
    EXPECT_EQ(QlPutImage(pr.d, 0, gc, src, 0, 0, 0, 0, 4, 3), 0);
    EXPECT_EQ(QlStretchPutImage(pr.d, 0, gc, src, 0, 0, 4, 3, 0, 0, 8, 6), 0);
    EXPECT_EQ(QlPutImage(pr.d, 0, gc, nullptr, 0, 0, 0, 0, 4, 3), 2);
    EXPECT_EQ(QlPutImage(pr.d, 0, reinterpret_cast<GC>(src), src, 0, 0, 0, 0, 4, 3), 13);

    messages.clear();
    EXPECT_EQ(QlStretchPutImage(pr.d, reinterpret_cast<Drawable>(dst), gc, src, 0, 0, 4, 3, 0, 0, 8, 6), 0);
    EXPECT_EQ(QlGetImage(pr.d, 0, 0, 0, 4, 4, AllPlanes, ZPixmap), nullptr);
    EXPECT_EQ(QlGetSubImage(pr.d, 0, 0, 0, 4, 4, AllPlanes, ZPixmap, dst, 0, 0), nullptr);
    EXPECT_EQ(messages.indices, (std::vector<int>{wNotSupport, ePrtImage, ePrtImage}));
    EXPECT_EQ(messages.texts, (std::vector<std::string>{
                                  "wNotSupport: QlStretchPutImage: to pixmap: not supported by Qualin",
                                  "ePrtImage: QlGetImage: attemp to get an image from a printer",
                                  "ePrtImage: QlGetSubImage: attemp to get an image from a printer"}));

    // Reading a pixmap keeps the planes asked for, in either format.
    XImage *low = QlGetImage(pr.d, reinterpret_cast<Drawable>(src), 1, 1, 3, 2, 1, ZPixmap);
    ASSERT_NE(low, nullptr);
    EXPECT_EQ(V({QlGetPixel(low, 0, 0), QlGetPixel(low, 1, 0), QlGetPixel(low, 2, 1)}),
              V({(16 + 2) & 1, (16 + 3) & 1, (32 + 4) & 1}));
    XImage *planes = QlGetImage(pr.d, reinterpret_cast<Drawable>(src), 0, 0, 4, 3, 0xF0, XYPixmap);
    ASSERT_NE(planes, nullptr);
    EXPECT_EQ(QlGetPixel(planes, 3, 2), (32u + 4) & 0xF0);
    // Past the pixmap's edge there is nothing to read.
    XImage *wide = QlGetImage(pr.d, reinterpret_cast<Drawable>(src), 2, 0, 5, 1, AllPlanes, ZPixmap);
    ASSERT_NE(wide, nullptr);
    EXPECT_EQ(V({QlGetPixel(wide, 1, 0), QlGetPixel(wide, 2, 0)}), V({4, 0}));

    XImage *into = Img(QlCreatePixmap(pr.d, 0, 3, 3, 8));
    EXPECT_EQ(QlGetSubImage(pr.d, reinterpret_cast<Drawable>(src), 2, 1, 9, 9, 0x0F, ZPixmap, into, 1, 1), into);
    EXPECT_EQ(V({QlGetPixel(into, 1, 1), QlGetPixel(into, 2, 2), QlGetPixel(into, 0, 0)}),
              V({(16 + 3) & 0x0F, (32 + 4) & 0x0F, 0}));

    // Pixels outside an image are neither read nor written.
    EXPECT_EQ(V({QlGetPixel(src, 4, 0), QlGetPixel(src, -1, 0)}), V({0, 0}));
    QlPutPixel(src, 0, 3, 99);
    EXPECT_EQ(QlSubImage(src, -1, 0, 2, 2), nullptr);
    XImage *sub = QlSubImage(src, 1, 1, 2, 2);
    ASSERT_NE(sub, nullptr);
    EXPECT_EQ(QlGetPixel(sub, 1, 1), 32u + 3);

    for (XImage *i : {low, planes, wide, sub}) QlDestroyImage(i);
    for (XImage *i : {src, dst, into}) QlFreePixmap(pr.d, reinterpret_cast<Pixmap>(i));
    QlFreeGC(pr.d, gc);
}

TEST(PrinterImages, PackedBitmapsAndLightness) {
    Printer pr;
    XImage *img = Img(QlCreatePixmap(pr.d, 0, 9, 2, 8));
    QlPutPixel(img, 0, 0, 5);
    QlPutPixel(img, 8, 0, 1);
    QlPutPixel(img, 3, 1, 200);
    int size = 0;
    char *packed = _QlFormat_Image(img, &size);
    ASSERT_NE(packed, nullptr);
    EXPECT_EQ(size, 4);
    EXPECT_EQ(std::string(packed, 4), std::string("\x01\x01\x08\x00", 4));
    std::free(packed);
    QlFreePixmap(pr.d, reinterpret_cast<Pixmap>(img));

    auto mono = [&](V pixels) {
        std::string s;
        for (unsigned long px : pixels) s += char('0' + _QlRGBToMono(pr.p(), px));
        return s;
    };
    EXPECT_EQ(mono({QlWhitePixel(pr.d, 0), QlBlackPixel(pr.d, 0), pr.colour(40000, 40000, 40000),
                    pr.colour(0, 0, 65535), 999}),
              "10100");
    // At depth 24 light and dark mean what they mean at depth 8.
    QlSetColorDepth(pr.d, 24);
    EXPECT_EQ(mono({0xFFFFFF, 0xA0A0A0, 0x202020}), "110");
}

TEST(Halftone, EightByEightDitherFollowsTheMatrixAndThePagePhase) {
    Printer pr;
    unsigned long mid = pr.colour(128 << 8, 128 << 8, 128 << 8);  // level 16: thresholds above 16 print
    XImage *grey = Img(QlCreatePixmap(pr.d, 0, 8, 2, 8));
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 8; ++x) QlPutPixel(grey, x, y, mid);
    QlPutPixel(grey, 0, 1, QlWhitePixel(pr.d, 0));
    unsigned char **map = ql_pcl::XImageToHalftone_edge(pr.p(), grey, 0, 0, 8, 2);
    ASSERT_NE(map, nullptr);
    // Row y, column x reads the matrix at y + 8x: its column y.
    EXPECT_EQ(Rows(map, 8, 2), (std::vector<std::string>{"11110000", "01110000"}));
    ql_pcl::FreeBitmapRows(map, 2);
    map = ql_pcl::XImageToHalftone_edge(pr.p(), grey, 3, 1, 8, 2);
    EXPECT_EQ(Rows(map, 8, 2), (std::vector<std::string>{"10000111", "01111000"}));
    ql_pcl::FreeBitmapRows(map, 2);
    // Past the image nothing is set; a map of a deeper size is still whole.
    map = ql_pcl::XImageToHalftone_edge(pr.p(), grey, 0, 0, 10, 3);
    EXPECT_EQ(Rows(map, 10, 3)[2], "0000000000");
    ql_pcl::FreeBitmapRows(map, 3);
    // Depth 1: a dot for pixel 0.
    XImage *bits = Img(QlCreatePixmap(pr.d, 0, 3, 1, 1));
    QlPutPixel(bits, 1, 0, 1);
    map = ql_pcl::XImageToHalftone_edge(pr.p(), bits, -5, -5, 3, 1);
    EXPECT_EQ(Rows(map, 3, 1)[0], "101");
    ql_pcl::FreeBitmapRows(map, 1);
    EXPECT_EQ(ql_pcl::XImageToHalftone_edge(pr.p(), bits, 0, 0, 0, 1), nullptr);
    XImage empty{};
    EXPECT_EQ(ql_pcl::XImageToHalftone_edge(pr.p(), &empty, 0, 0, 3, 3), nullptr);
    EXPECT_EQ(ql_pcl::XImageToHalftone(pr.p(), &empty, 0, 0, 3, 3), nullptr);
    QlFreePixmap(pr.d, reinterpret_cast<Pixmap>(grey));
    QlFreePixmap(pr.d, reinterpret_cast<Pixmap>(bits));
}

TEST(Halftone, ThreeByThreeCellsDarkenInTheirOrderOnTheImagesGrid) {
    Printer pr;
    // Four black pixels of nine: the first four places of the order.
    Pixmap pm = Paint(pr, {"#.#...", "##....", "......"});
    unsigned char **map = ql_pcl::XImageToHalftone(pr.p(), Img(pm), 0, 0, 6, 3);
    ASSERT_NE(map, nullptr);
    EXPECT_EQ(Rows(map, 6, 3), (std::vector<std::string>{"000000", "111000", "010000"}));
    ql_pcl::FreeBitmapRows(map, 3);
    // A window from x 1 keeps the cells of the whole image's grid.
    map = ql_pcl::XImageToHalftone(pr.p(), Img(pm), 1, 0, 4, 3);
    EXPECT_EQ(Rows(map, 4, 3), (std::vector<std::string>{"0000", "1100", "1000"}));
    ql_pcl::FreeBitmapRows(map, 3);
    QlFreePixmap(pr.d, pm);

    // Seven dark pixels, then a block of all nine; a part block at the edge
    // counts its clamped pixels.
    pm = Paint(pr, {"####", "###.", "#...", "####"});
    map = ql_pcl::XImageToHalftone(pr.p(), Img(pm), 0, 0, 4, 4);
    EXPECT_EQ(Rows(map, 4, 4), (std::vector<std::string>{"1010", "1111", "1100", "1111"}));
    ql_pcl::FreeBitmapRows(map, 4);
    // Under three pixels a side: dot by dot, dark pixels black.
    map = ql_pcl::XImageToHalftone(pr.p(), Img(pm), 2, 1, 2, 4);
    EXPECT_EQ(Rows(map, 2, 4), (std::vector<std::string>{"10", "00", "11", "00"}));
    ql_pcl::FreeBitmapRows(map, 4);
    QlFreePixmap(pr.d, pm);

    // Depth 24 counts on the same scale: white sets nothing, black all.
    QlSetColorDepth(pr.d, 24);
    XImage *deep = Img(QlCreatePixmap(pr.d, 0, 6, 3, 24));
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 6; ++x) QlPutPixel(deep, x, y, x < 3 ? 0 : 0xFFFFFF);
    map = ql_pcl::XImageToHalftone(pr.p(), deep, 0, 0, 6, 3);
    EXPECT_EQ(Rows(map, 6, 3), (std::vector<std::string>(3, "111000")));
    ql_pcl::FreeBitmapRows(map, 3);
    QlFreePixmap(pr.d, reinterpret_cast<Pixmap>(deep));
}

TEST(Halftone, PackedAndImageFormsOfABitMap) {
    std::vector<std::string> rows = {"1000000001", "0110000000"};
    unsigned char **map = static_cast<unsigned char **>(std::calloc(2, sizeof(unsigned char *)));
    for (int y = 0; y < 2; ++y) {
        map[y] = static_cast<unsigned char *>(std::malloc(10));
        for (int x = 0; x < 10; ++x) map[y][x] = rows[y][x] == '1';
    }
    unsigned char **packed = ql_pcl::BitimageToAscii(map, 10, 2);
    ASSERT_NE(packed, nullptr);
    EXPECT_EQ(V({packed[0][0], packed[0][1], packed[1][0], packed[1][1]}), V({0x80, 0x40, 0x60, 0x00}));
    ql_pcl::FreeBitmapRows(packed, 2);
    EXPECT_EQ(ql_pcl::BitimageToAscii(map, 0, 2), nullptr);
    EXPECT_EQ(ql_pcl::BitimageToAscii(nullptr, 10, 2), nullptr);

    XImage *img = ql_pcl::BitimageToXImage(map, 10, 2);
    ASSERT_NE(img, nullptr);
    EXPECT_EQ(img->depth, 1);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 10; ++x) EXPECT_EQ(QlGetPixel(img, x, y), map[y][x] ? 1u : 0u) << x << "," << y;
    QlDestroyImage(img);
    EXPECT_EQ(ql_pcl::BitimageToXImage(map, 10, 0), nullptr);
    ql_pcl::FreeBitmapRows(map, 2);
}

}  // namespace
