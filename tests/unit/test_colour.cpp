// Colours: a printer's table of cells, pixels at depth 24, colour names
// from rgb.txt, the pass-through to a real display; and the colour and
// output settings of a printer.
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses

#include "config/printerinfo.h"
#include "gfx/colour.h"
#include "support/capture.h"
#include "support/tempdir.h"
#include "support/xvfb.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

using qltest::MessageCapture;
using qltest::ReadFile;
using qltest::ScopedEnv;
using qltest::TempDir;
using qltest::WriteFile;

namespace {

QlPrinter *P(Display *d) { return reinterpret_cast<QlPrinter *>(d); }
QlColorCell *Cells(Display *d) { return static_cast<QlColorCell *>(P(d)->cells); }

struct Printer {
    Display *d = QlVaOpenPrinter(nullptr, "cat >/dev/null", "PostScript", 0);
    Printer() { EXPECT_NE(d, nullptr); }
    ~Printer() { QlClosePrinter(d); }
};

XColor Rgb(unsigned short r, unsigned short g, unsigned short b, unsigned long pixel = 0) {
    XColor c{};
    c.red = r, c.green = g, c.blue = b, c.pixel = pixel, c.flags = DoRed | DoGreen | DoBlue;
    return c;
}

using V = std::vector<int>;
V Channels(const XColor &c) { return {c.red, c.green, c.blue}; }

unsigned long Alloc(Display *d, unsigned short r, unsigned short g, unsigned short b) {
    XColor c = Rgb(r, g, b);
    EXPECT_EQ(QlAllocColor(d, 0, &c), 1);
    return c.pixel;
}

TEST(Cells, BlackWhiteGreysAndColoursShare) {
    Printer p;
    Display *d = p.d;
    EXPECT_EQ(P(d)->depth, 8);
    EXPECT_EQ(Alloc(d, 0, 0, 0), 0u);
    EXPECT_EQ(Alloc(d, 65535, 65535, 65535), 1u);  // same top 6 bits as 65280
    EXPECT_EQ(Cells(d)[1].refCount, 1u);

    // Greys share down to their top 6 bits.
    EXPECT_EQ(Alloc(d, 0x8000, 0x8000, 0x8000), 2u);
    EXPECT_EQ(Alloc(d, 0x83FF, 0x83FF, 0x83FF), 2u);
    EXPECT_EQ(Cells(d)[2].refCount, 2u);
    EXPECT_EQ(Alloc(d, 0x8400, 0x8400, 0x8400), 3u);
    // Colours only down to their top 4; the request keeps its channels.
    // (Two equal channels don't make a grey.)
    EXPECT_EQ(Alloc(d, 0x1000, 0x1000, 0x3000), 4u);
    XColor c = Rgb(0x1FFF, 0x1FFF, 0x3FFF);
    EXPECT_EQ(QlAllocColor(d, 0, &c), 1);
    EXPECT_EQ(V({int(c.pixel), c.red, int(Cells(d)[4].refCount)}), V({4, 0x1FFF, 2}));
    EXPECT_EQ(Alloc(d, 0x1000, 0x1000, 0x4000), 5u);

    XColor q{};
    q.pixel = 4;
    EXPECT_EQ(QlQueryColor(d, 0, &q), 1);
    EXPECT_EQ(V({q.red, q.blue, q.flags}), V({0x1000, 0x3000, DoRed | DoGreen | DoBlue}));
    int rgb[3];
    EXPECT_TRUE(_QlPixelRGB(P(d), 1, rgb));
    EXPECT_EQ(rgb[0] + rgb[1] + rgb[2], 3 * 255);
}

TEST(Cells, FullTableGivesNearestOrPixelZero) {
    Printer p;
    Display *d = p.d;
    for (unsigned i = 2; i < 256; ++i)
        ASSERT_EQ(Alloc(d, (i & 15) << 12, (i >> 4) << 12, 0x4000), i);
    // Cell 100 holds 0x4000 0x6000 0x4000: this differs in the top bits of
    // blue, so it doesn't match, but it is nearest.
    EXPECT_EQ(Alloc(d, 0x4000, 0x6000, 0x3FFF), 100u);
    EXPECT_EQ(Cells(d)[100].refCount, 2u);

    // Storing leaves allocation alone.  Nothing within 100000 gives pixel
    // 0, though cell 5 is nearer than 0 (110589 against 196605).
    std::vector<XColor> all(256);
    for (unsigned i = 0; i < 256; ++i) all[i] = Rgb(0, 0, 0, i);
    all[5] = Rgb(0x7000, 0x7000, 0x7000, 5);
    EXPECT_EQ(QlStoreColors(d, 0, all.data(), 256), 1);
    EXPECT_EQ(Alloc(d, 65535, 65535, 65535), 0u);
    EXPECT_EQ(Cells(d)[0].refCount, 1u);
    EXPECT_EQ(Cells(d)[255].allocated, 1u);
    // Ties go to the first cell.
    XColor grey = Rgb(0x9000, 0x9000, 0x9000, 9);
    EXPECT_EQ(QlStoreColor(d, 0, &grey), 1);
    grey.pixel = 7;
    EXPECT_EQ(QlStoreColor(d, 0, &grey), 1);
    EXPECT_EQ(Alloc(d, 0x9000, 0x9000, 0x8000), 7u);
}

TEST(Cells, RangesFreeingAndBadHandles) {
    Printer p;
    Display *d = p.d;
    // The pixel equal to the table's size is outside it too.
    for (unsigned long bad : {256ul, 300ul}) {
        XColor c = Rgb(1, 2, 3, bad);
        EXPECT_EQ(QlStoreColor(d, 0, &c), 2) << bad;
        c.red = 77;
        EXPECT_EQ(QlQueryColor(d, 0, &c), 1);
        EXPECT_EQ(c.red + c.green + c.blue, 0);
    }
    XColor only = Rgb(0xAB00, 0xCD00, 0xEF00, 255);
    only.flags = DoGreen;
    EXPECT_EQ(QlStoreColor(d, 0, &only), 1);
    EXPECT_EQ(V({int(Cells(d)[255].red), int(Cells(d)[255].green)}), V({0, 0xCD00}));

    XColor list[4] = {Rgb(0, 0, 0, 1), Rgb(0, 0, 0, 0), Rgb(5, 5, 5, 256), Rgb(5, 5, 5, 3)};
    EXPECT_EQ(QlQueryColors(d, 0, list, 4), 12);
    EXPECT_EQ(V({list[0].red, list[2].red, list[3].red}), V({65280, 5, 5}));  // the loop stopped before [3]

    unsigned long px = Alloc(d, 0x4000, 0x2000, 0x1000);
    EXPECT_EQ(Alloc(d, 0x4000, 0x2000, 0x1000), px);
    unsigned long pixels[] = {px, 256, ~0ul};
    EXPECT_EQ(QlFreeColors(d, 0, pixels, 3, 0), 1);
    EXPECT_EQ(Cells(d)[px].allocated, 1u);
    EXPECT_EQ(QlFreeColors(d, 0, pixels, 1, 0), 1);
    EXPECT_EQ(QlFreeColors(d, 0, pixels, 1, 0), 1);
    EXPECT_EQ(Cells(d)[px].refCount + Cells(d)[px].allocated, 0u);
    EXPECT_EQ(Alloc(d, 0x0100, 0xF000, 0x0100), px);
    // Black is freed like any other cell and then reused.
    unsigned long black = 0;
    EXPECT_EQ(QlFreeColors(d, 0, &black, 1, 0), 1);
    EXPECT_EQ(Alloc(d, 0x7000, 0x0100, 0x0100), 0u);

    // A table that could not be made is empty.
    void *saved = P(d)->cells;
    P(d)->cells = nullptr;
    XColor c = Rgb(1, 2, 3, 0);
    EXPECT_EQ(QlAllocColor(d, 0, &c), 0);
    EXPECT_EQ(QlStoreColor(d, 0, &c), 2);
    EXPECT_EQ(QlQueryColor(d, 0, &c), 1);
    EXPECT_EQ(c.red, 0);
    int rgb[3] = {9, 9, 9};
    EXPECT_FALSE(_QlPixelRGB(P(d), 0, rgb));
    EXPECT_EQ(rgb[0], 0);
    P(d)->cells = saved;

    // Neither a display nor a printer: nothing is touched.
    EXPECT_EQ(QlAllocColor(nullptr, 0, &c), 0);
    Display *closed = QlVaOpenPrinter(nullptr, nullptr, nullptr, 0);
    QlClosePrinter(closed);
    EXPECT_EQ(QlAllocColor(closed, 0, &c), 0);
    EXPECT_EQ(QlQueryColor(closed, 0, &c), 0);
    EXPECT_EQ(QlFreeColors(closed, 0, &black, 1, 0), 0);
}

TEST(Depth24, PixelIsTheColourThroughTheMasks) {
    int r, g, b;
    QlSetRGBShiftValues(0xFF0000, 0xFF00, 0xFF, &r, &g, &b);
    EXPECT_EQ(V({r, g, b}), V({16, 8, 0}));
    QlSetRGBShiftValues(0, 0xF0, 0x8000, &r, &g, &b);
    EXPECT_EQ(V({r, g, b}), V({0, 4, 15}));

    Printer p;
    Display *d = p.d;
    EXPECT_EQ(QlSetColorDepth(d, 24), 24);
    EXPECT_EQ(Alloc(d, 0x1234, 0x5678, 0x9ABC), 0x9A5612u);
    XColor q = Rgb(1, 1, 1, 0x9A5612);
    EXPECT_EQ(QlQueryColor(d, 0, &q), 1);
    EXPECT_EQ(Channels(q), V({0x1200, 0x5600, 0x9A00}));
    XColor far = Rgb(1, 2, 3, 0x123456);
    EXPECT_EQ(QlStoreColor(d, 0, &far), 1);
    EXPECT_EQ(QlQueryColors(d, 0, &far, 1), 1);
    EXPECT_EQ(far.red, 0x5600);
    int rgb[3];
    EXPECT_TRUE(_QlPixelRGB(P(d), 0x9A5612, rgb));
    EXPECT_EQ(V(rgb, rgb + 3), V({0x12, 0x56, 0x9A}));

    // A colour printer takes a TrueColor screen's layout, and its pixels.
    Display *dpy = qltest::OpenTestDisplay();
    ASSERT_NE(dpy, nullptr);
    Printer colour;
    ASSERT_EQ(QlSetPSColor(colour.d, 1), 1);
    ASSERT_EQ(QlSetDisplay(colour.d, dpy), 1);
    ASSERT_EQ(P(colour.d)->depth, 24);
    XColor screen = Rgb(0x1234, 0x5678, 0x9ABC);
    ASSERT_TRUE(XAllocColor(dpy, DefaultColormap(dpy, 0), &screen));
    EXPECT_EQ(Alloc(colour.d, 0x1234, 0x5678, 0x9ABC), screen.pixel);
    EXPECT_EQ(screen.pixel, 0x12569Aul);
    EXPECT_TRUE(_QlPixelRGB(P(colour.d), screen.pixel, rgb));
    EXPECT_EQ(V(rgb, rgb + 3), V({0x12, 0x56, 0x9A}));
    XCloseDisplay(dpy);
}

TEST(Names, FromTheColourFile) {
    Printer p;
    Display *d = p.d;
    XColor exact{}, screen{};
    for (const char *name : {"ghost white", "GhostWhite", "GHOST WHITE"}) {
        exact = screen = XColor{};
        ASSERT_EQ(QlLookupColor(d, 0, name, &exact, &screen), 1) << name;
        EXPECT_EQ(V({exact.red, exact.green, exact.blue, exact.flags, screen.blue}),
                  V({248 << 8, 248 << 8, 255 << 8, 0, 65280}));
    }
    EXPECT_EQ(QlLookupColor(d, 0, "NoSuchColor", &exact, &screen), 0);

    XColor ex{}, scr{};
    ASSERT_EQ(QlAllocNamedColor(d, 0, "red", &scr, &ex), 1);
    EXPECT_EQ(V({int(ex.pixel), int(scr.pixel), scr.red}), V({2, 2, 65280}));
    EXPECT_EQ(QlAllocNamedColor(d, 0, "NoSuchColor", &scr, &ex), 0);
    EXPECT_EQ(QlStoreNamedColor(d, 0, "navy", 5, DoBlue), 1);
    EXPECT_EQ(Cells(d)[5].blue, 128u << 8);
    EXPECT_EQ(QlStoreNamedColor(d, 0, "navy", 256, DoBlue), 2);
    XColor c{};
    EXPECT_EQ(QlParseColor(d, 0, "Navy", &c), 1);
    EXPECT_EQ(c.blue, 128 << 8);

    // Our own file: comments and overlong lines are no records, and the
    // tail of a long line is not read as one.
    TempDir dir;
    std::string tabs(80, '\t');
    std::string overlong = "1 2 3 " + std::string(249, 'a') + std::string(60, 'b');
    WriteFile(dir / "rgb.txt", "! comment\n\n1 2 3 x" + tabs + "10 20 30 decoy\n" + overlong + "\n  7 8 9\t after 1\n");
    ScopedEnv qlpath("QLPATH", dir.path().c_str());
    EXPECT_EQ(QlLookupColor(d, 0, "decoy", &exact, &screen), 0);
    // The line is longer than a line may be: its cut-off start isn't a name.
    EXPECT_EQ(QlLookupColor(d, 0, std::string(249, 'a').c_str(), &exact, &screen), 0);
    ASSERT_EQ(QlLookupColor(d, 0, "AFTER 1", &exact, &screen), 1);
    EXPECT_EQ(exact.blue, 9 << 8);

    // Without the file: message 23, and "#" forms still parse.
    std::remove((dir / "rgb.txt").c_str());
    MessageCapture msgs;
    EXPECT_EQ(QlLookupColor(d, 0, "red", &exact, &screen), 23);
    EXPECT_EQ(msgs.indices, std::vector<int>{eRGB});
    EXPECT_NE(msgs.texts.at(0).find("QlLookupColor: can not find or open rgb.txt file"), std::string::npos);
    EXPECT_EQ(QlAllocNamedColor(d, 0, "red", &scr, &ex), 0);
    msgs.clear();
    c = XColor{};
    EXPECT_EQ(QlParseColor(d, 0, "#ff0000", &c), 1);
    EXPECT_EQ(V({c.red, c.green, c.blue, c.flags}), V({0xFF00, 0, 0, 7}));
    EXPECT_EQ(QlParseColor(d, 0, "#ff00", &c), 0);
    EXPECT_TRUE(msgs.indices.empty());
}

TEST(Display, CallsPassThroughToXlib) {
    Display *dpy = qltest::OpenTestDisplay();
    ASSERT_NE(dpy, nullptr);
    Colormap cmap = DefaultColormap(dpy, 0);
    XColor s1{}, e1{}, s2{}, e2{};
    ASSERT_EQ(QlAllocNamedColor(dpy, cmap, "ghost white", &s1, &e1),
              XAllocNamedColor(dpy, cmap, "ghost white", &s2, &e2));
    EXPECT_EQ(V({int(s1.pixel), e1.red}), V({int(s2.pixel), e2.red}));
    XColor q{};
    q.pixel = s1.pixel;
    EXPECT_EQ(QlQueryColor(dpy, cmap, &q), 1);
    EXPECT_EQ(q.red, s2.red);
    XColor parsed{};
    EXPECT_EQ(QlParseColor(dpy, cmap, "rgb:12/34/56", &parsed), 1);  // a form only Xlib knows
    EXPECT_EQ(parsed.green, 0x3434);
    EXPECT_EQ(QlFreeColors(dpy, cmap, &s1.pixel, 1, 0), XFreeColors(dpy, cmap, &s2.pixel, 1, 0));

    EXPECT_EQ(V({QlIsOutputSet(dpy), QlSetOutputFile(dpy, "/tmp/x"), QlRasterOnlyMode(dpy)}), V({1, 0, 0}));
    EXPECT_EQ(QlGetCommand(dpy), nullptr);
    EXPECT_NE(QlSetColorDepth(dpy, 8), 0);
    XSync(dpy, False);
    XCloseDisplay(dpy);
}

TEST(Settings, ColourModeOutputFileAndComments) {
    EXPECT_EQ(V({QlIsOutputSet(nullptr), QlGetPrinterColorMode(nullptr), QlSetPSColor(nullptr, 1)}), V({0, 0, 0}));

    Display *d = QlVaOpenPrinter(nullptr, nullptr, nullptr, 0);
    ASSERT_NE(d, nullptr);
    // Only a level-2 printer says it prints in colour.
    EXPECT_EQ(V({QlSetPSColor(d, 1), QlGetPSColor(d), QlGetPrinterColorMode(d)}), V({1, 0, 1}));
    ASSERT_EQ(QlSetPSLevel(d, 2), 1);
    EXPECT_EQ(QlGetPSColor(d), 1);
    EXPECT_EQ(V({QlSetPSColor(d, 0), QlGetPSColor(d), QlGetPrinterColorMode(d), QlRasterOnlyMode(d)}),
              V({1, 0, 2, 0}));
    EXPECT_EQ(V({QlSetPSPrinterEscapePolicy(5), QlSetPSPrinterEscapePolicy(0)}), V({1, 0}));
    QlSetPSPrinterEscapePolicy(1);

    EXPECT_EQ(QlIsOutputSet(d), 0);
    EXPECT_EQ(QlGetCommand(d), nullptr);
    TempDir out;
    std::string file = out / "doc.ps";
    EXPECT_EQ(QlSetOutputFile(d, nullptr), 0);
    ASSERT_EQ(QlSetOutputFile(d, file.c_str()), 1);
    EXPECT_EQ(QlIsOutputSet(d), 1);
    char *a = QlGetCommand(d), *b = QlGetCommand(d);
    ASSERT_NE(a, nullptr);
    EXPECT_NE(a, b);
    EXPECT_STREQ(a, b);
    EXPECT_EQ(a, _QlOSCopyFileCommand(file.c_str()));
    std::free(a);
    std::free(b);
    if (P(d)->info) {
        EXPECT_STREQ(P(d)->info->fileName, file.c_str());
    }

    MessageCapture msgs;  // the note on where the output went
    QlPSComment(d, "no-document-yet\n");  // no document: nothing to write to
    ASSERT_EQ(QlStartDoc(d, "c"), 1);
    ASSERT_EQ(QlStartPage(d), 1);
    QlPSComment(d, "hello 100%\n");
    ASSERT_EQ(QlEndPage(d), 1);
    ASSERT_EQ(QlEndDoc(d), 1);
    QlClosePrinter(d);
    std::string doc = ReadFile(file);
    EXPECT_NE(doc.find("\n%User's Comment:  hello 100%\n"), std::string::npos) << doc.substr(0, 300);
    EXPECT_EQ(doc.find("no-document-yet"), std::string::npos);
}

}  // namespace
