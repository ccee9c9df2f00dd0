// PostScript marks and the graphics state written before them, byte for
// byte, and what Ghostscript makes of pages of them.
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses

#include "core/driver.h"
#include "support/capture.h"
#include "support/gs.h"
#include "support/tempdir.h"

#include <cstdio>
#include <string>
#include <vector>

using qltest::MessageCapture;
using qltest::ReadFile;
using qltest::TempDir;

namespace {

QlPrinter *P(Display *d) { return reinterpret_cast<QlPrinter *>(d); }

// A PostScript printer (no PPD: 300 dpi, Letter) with a page open.  since()
// gives what was written after the last call of mark().
struct Page {
    TempDir dir;
    std::string out = dir / "out.ps";
    Display *d = nullptr;
    GC gc = nullptr;
    long at = 0;

    explicit Page(bool colour = true) {
        d = QlVaOpenPrinter(nullptr, ("cat >" + out).c_str(), "PostScript", 0);
        EXPECT_NE(d, nullptr);
        QlSetPSColor(d, colour);
        gc = QlCreateGC(d, 0, 0, nullptr);
        EXPECT_EQ(QlStartDoc(d, "test"), 1);
        EXPECT_EQ(QlStartPage(d), 1);
        mark();
    }
    ~Page() {
        if (P(d)->stream) QlAbortDoc(d);
        QlFreeGC(d, gc);
        QlClosePrinter(d);
    }
    void mark() {
        std::fflush(P(d)->stream);
        at = std::ftell(P(d)->stream);
    }
    std::string since() {
        std::fflush(P(d)->stream);
        std::string all = ReadFile(P(d)->tmpName);
        std::string tail = all.substr(static_cast<size_t>(at));
        mark();
        return tail;
    }
    // Ends the document and gives the file.
    std::string finish() {
        EXPECT_EQ(QlEndPage(d), 1);
        EXPECT_EQ(QlEndDoc(d), 1);
        return ReadFile(out);
    }
    unsigned long colour(unsigned short r, unsigned short g, unsigned short b) {
        XColor c{};
        c.red = r;
        c.green = g;
        c.blue = b;
        QlAllocColor(d, 0, &c);
        return c.pixel;
    }
};

TEST(PSMarks, FirstLineWritesTheWholeStateThenOnlyWhatChanged) {
    MessageCapture messages;
    Page grey(false);
    QlDrawLine(grey.d, 0, grey.gc, 100, 100, 200, 100);
    // Grey printers write the level again behind the flush before each mark.
    EXPECT_EQ(grey.since(),
              "gr gs\n0.0 setgray\n0.240 sw\n[] 0 setdash\n0 sc\n0.0 setgray\n48.00 24.00 24.00 24.00 DL\n");
    QlDrawLine(grey.d, 0, grey.gc, 0, 0, 10, 10);
    EXPECT_EQ(grey.since(), "0.0 setgray\n2.40 2.40 0.00 0.00 DL\n");

    Page colour;
    GC twin = QlCreateGC(colour.d, 0, 0, nullptr);
    QlDrawLine(colour.d, 0, colour.gc, 100, 100, 200, 100);
    EXPECT_EQ(colour.since(), "gr gs\n0.0 0.0 0.0 RGB\n0.240 sw\n[] 0 setdash\n0 sc\n48.00 24.00 24.00 24.00 DL\n");
    // Join style waits for a mark that needs it.
    QlDrawRectangle(colour.d, 0, colour.gc, 0, 0, 10, 20);
    EXPECT_EQ(colour.since(), "0 sj\ngs np 0.00 0.00 t 0.00 4.80 lo 2.40 4.80 lo 2.40 0.00 lo cp st gr\n");
    // A second GC with the same values writes nothing but its mark.
    QlFillRectangle(colour.d, 0, twin, 0, 0, 10, 20);
    EXPECT_EQ(colour.since(), "gs np 0.00 0.00 t 0.00 4.80 lo 2.40 4.80 lo 2.40 0.00 lo cp f st gr\n");
    // One that differs in its clip only: "gr gs" loses everything else too.
    XRectangle r{10, 20, 30, 40};
    QlSetClipRectangles(colour.d, twin, 5, 5, &r, 1, Unsorted);
    QlDrawLine(colour.d, 0, twin, 0, 0, 10, 0);
    EXPECT_EQ(colour.since(),
              "gr gs\n 3.60 6.00 t 3.60 15.60 lo 10.80 15.60 lo 10.80 6.00 lo\ncp clip np\n"
              "0.0 0.0 0.0 RGB\n0.240 sw\n[] 0 setdash\n0 sc\n2.40 0.00 0.00 0.00 DL\n");
    QlFreeGC(colour.d, twin);
}

TEST(PSMarks, ColoursAreExactAndFollowThePixelLayout) {
    MessageCapture messages;
    Page page;
    QlSetForeground(page.d, page.gc, page.colour(65535, 42405, 0));  // orange: 255 165 0
    QlDrawPoint(page.d, 0, page.gc, 10, 10);
    EXPECT_NE(page.since().find("1.0 0.647 0.0 RGB\n"), std::string::npos);

    // Depth 24 with the default layout, red in the lowest byte.
    Page deep;
    QlSetColorDepth(deep.d, 24);
    QlSetForeground(deep.d, deep.gc, 255);
    QlDrawPoint(deep.d, 0, deep.gc, 0, 0);
    EXPECT_NE(deep.since().find("1.0 0.0 0.0 RGB\n"), std::string::npos);
    // On a grey printer the same red is the luminance of red.
    Page deepGrey(false);
    QlSetColorDepth(deepGrey.d, 24);
    QlSetForeground(deepGrey.d, deepGrey.gc, 255);
    QlDrawPoint(deepGrey.d, 0, deepGrey.gc, 0, 0);
    EXPECT_NE(deepGrey.since().find("0.3 setgray\n"), std::string::npos);
    // A pixel outside the 256 cells reads as black, never past the table.
    Page wild;
    QlSetForeground(wild.d, wild.gc, 256);
    QlDrawPoint(wild.d, 0, wild.gc, 0, 0);
    EXPECT_NE(wild.since().find("0.0 0.0 0.0 RGB\n"), std::string::npos);
}

TEST(PSMarks, DashesAndStyles) {
    MessageCapture messages;
    Page page;
    const char three[] = {1, 2, 3};
    QlSetDashes(page.d, page.gc, 0, three, 3);
    QlSetLineAttributes(page.d, page.gc, 0, LineOnOffDash, CapProjecting, JoinBevel);
    QlDrawLine(page.d, 0, page.gc, 0, 0, 100, 0);
    // An odd list is written twice over; the dash bits are written again
    // by the dash step.
    EXPECT_EQ(page.since(),
              "gr gs\n0.0 0.0 0.0 RGB\n0.240 sw\n[0.24 0.48 0.72 0.24 0.48 0.72 ] 0 setdash\n2 sc\n"
              "[0.24 0.48 0.72 0.24 0.48 0.72 ] 0 setdash\n24.00 0.00 0.00 0.00 DL\n");

    // The single dash value, two decimals from the style, three from the
    // dash step; dash lengths are unsigned bytes (255, not -1).
    Page single;
    XGCValues v{};
    v.line_style = LineOnOffDash;
    v.dashes = static_cast<char>(255);
    QlChangeGC(single.d, single.gc, GCLineStyle | GCDashList, &v);
    QlDrawLine(single.d, 0, single.gc, 0, 0, 1, 0);
    std::string first = single.since();
    EXPECT_NE(first.find("[61.20 61.20] 0.00 setdash\n"), std::string::npos) << first;
    EXPECT_NE(first.find("[61.200 61.200] 0.000 setdash\n"), std::string::npos) << first;
    v.dash_offset = 10;
    QlChangeGC(single.d, single.gc, GCDashOffset, &v);
    QlDrawLine(single.d, 0, single.gc, 0, 0, 1, 0);
    EXPECT_EQ(single.since(), "[61.200 61.200] 2.400 setdash\n0.24 0.00 0.00 0.00 DL\n");

    // Zero dashes are refused as X refuses them: no interpreter takes them.
    const char zero[] = {4, 0};
    EXPECT_EQ(QlSetDashes(page.d, page.gc, 0, zero, 2), 2);
    v.dashes = 0;
    EXPECT_EQ(QlChangeGC(page.d, page.gc, GCDashList, &v), 2);

    // Caps 0 and 1 print alike.
    QlSetLineAttributes(page.d, page.gc, 0, LineSolid, CapButt, JoinMiter);
    QlDrawLine(page.d, 0, page.gc, 0, 0, 1, 0);
    EXPECT_NE(page.since().find("0 sc\n"), std::string::npos);

    // An opaque stipple paints without changing the GC's own values.
    auto *g = reinterpret_cast<QlGC *>(page.gc);
    QlSetFillStyle(page.d, page.gc, FillOpaqueStippled);
    Pixmap stipple = QlCreatePixmap(page.d, 0, 8, 8, 1);
    QlSetStipple(page.d, page.gc, stipple);
    QlDrawLine(page.d, 0, page.gc, 0, 0, 1, 0);
    EXPECT_EQ(g->values.fill_style, FillOpaqueStippled);
    EXPECT_EQ(g->values.stipple, stipple);
    QlSetFillStyle(page.d, page.gc, FillSolid);
    QlFreePixmap(page.d, stipple);

    // Double dashes: the gaps in the background, then the dashes.
    QlSetFillStyle(page.d, page.gc, FillSolid);
    QlSetLineAttributes(page.d, page.gc, 0, LineDoubleDash, CapButt, JoinMiter);
    page.mark();
    QlDrawLine(page.d, 0, page.gc, 0, 0, 1, 0);
    std::string dd = page.since();
    EXPECT_NE(dd.find("gs np 0.00 0.00 t 0.24 0.00 lo gs 1.0 1.0 1.0 RGB [] 0 setdash st gr st gr\n"),
              std::string::npos) << dd;
    messages.clear();
    v.line_style = 3;
    QlChangeGC(page.d, page.gc, GCLineStyle, &v);
    QlDrawLine(page.d, 0, page.gc, 0, 0, 1, 0);
    EXPECT_TRUE(messages.has(wLineStyle));
}

TEST(PSMarks, LinesArcsAndPolygons) {
    MessageCapture messages;
    Page page;
    QlDrawPoint(page.d, 0, page.gc, 0, 0);  // flushes the state
    page.mark();
    std::vector<XPoint> pts(31);
    for (int i = 0; i < 31; ++i) pts[i] = {static_cast<short>(i * 10), static_cast<short>(i % 2 * 10)};
    QlDrawLines(page.d, 0, page.gc, pts.data(), 30, CoordModeOrigin);
    std::string one = page.since();
    one = one.substr(one.find("gs np"));
    EXPECT_EQ(one.rfind("gs np 0.00 0.00 t 0.00 0.00 lo 2.40 2.40 lo", 0), 0u) << one;
    EXPECT_EQ(std::count(one.begin(), one.end(), '\n'), 1);
    QlDrawLines(page.d, 0, page.gc, pts.data(), 31, CoordModeOrigin);
    std::string two = page.since();
    EXPECT_NE(two.find("st gr\ngs np 69.60 2.40 t 72.00 0.00 lo st gr\n"), std::string::npos) << two;

    // Relative points add up from the first point, as on a display.
    XPoint rel[] = {{10, 10}, {5, 0}, {0, 5}};
    QlDrawLines(page.d, 0, page.gc, rel, 3, CoordModePrevious);
    EXPECT_EQ(page.since(), "gs np 2.40 2.40 t 2.40 2.40 lo 1.20 0.00 l2 0.00 1.20 l2 st gr\n");
    // A closed outline is joined where it closes.
    XPoint tri[] = {{0, 0}, {10, 0}, {0, 10}, {0, 0}};
    QlDrawLines(page.d, 0, page.gc, tri, 4, CoordModeOrigin);
    EXPECT_EQ(page.since(), "gs np 0.00 0.00 t 0.00 0.00 lo 2.40 0.00 lo 0.00 2.40 lo 0.00 0.00 lo cp st gr\n");

    QlDrawArc(page.d, 0, page.gc, 10, 10, 0, 40, 0, 90 * 64);
    EXPECT_EQ(page.since(), "2.40 2.40 2.40 12.00 DL\n");
    QlDrawArc(page.d, 0, page.gc, 0, 0, 100, 100, 90 * 64, 720 * 64);
    EXPECT_EQ(page.since(), "gs np 12.00 12.00 tl\n1 -1.000000 sl\n0 0 12.00 90.00 450.00 ac st gr\n");
    // An ellipse is stroked back in the page's scale.
    QlDrawArc(page.d, 0, page.gc, 0, 0, 100, 50, 0, -90 * 64);
    EXPECT_EQ(page.since(),
              "gs np 12.00 6.00 tl\n1 -0.500000 sl\n0 0 12.00 0.00 -90.00 an 1 -2.000000 sl st gr\n");
    QlSetArcMode(page.d, page.gc, ArcChord);
    QlFillArc(page.d, 0, page.gc, 0, 0, 100, 100, 0, 23040);
    EXPECT_EQ(page.since(), "gs np 12.00 12.00 tl\n1 -1.000000 sl\n0 0 12.00 0.00 360.00 ac\ncp f st gr\n");
    QlSetArcMode(page.d, page.gc, ArcPieSlice);
    QlFillArc(page.d, 0, page.gc, 0, 0, 100, 100, 0, 90 * 64);
    EXPECT_EQ(page.since(), "gs np 12.00 12.00 tl\n0 0 t\n1 -1.000000 sl\n0 0 12.00 0.00 90.00 ac\n0 0 t\ncp f st gr\n");
    QlFillArc(page.d, 0, page.gc, 0, 0, 0, 100, 0, 90 * 64);
    EXPECT_EQ(page.since(), "");

    QlFillPolygon(page.d, 0, page.gc, rel, 3, Complex, CoordModePrevious);
    EXPECT_EQ(page.since(), "gs np 2.40 2.40 t 1.20 0.00 l2 0.00 1.20 l2 eofill st gr\n");
    QlSetFillRule(page.d, page.gc, WindingRule);
    QlFillPolygon(page.d, 0, page.gc, rel, 1, Complex, CoordModeOrigin);
    EXPECT_EQ(page.since(), "gs np 2.40 2.40 t f st gr\n");
    QlFillPolygon(page.d, 0, page.gc, rel, 0, Complex, CoordModeOrigin);
    EXPECT_EQ(page.since(), "");

    // Scan conversion: one rectangle per span, "rectfill" at level 2.
    QlSetPSLevel(page.d, 2);
    _QlScanConvertPolygons = 1;
    XPoint square[] = {{0, 0}, {4, 0}, {4, 2}, {0, 2}};
    QlFillPolygon(page.d, 0, page.gc, square, 4, Convex, CoordModeOrigin);
    _QlScanConvertPolygons = 0;
    EXPECT_EQ(page.since(), "0.00 0.00 0.96 0.24 rectfill\n0.00 0.24 0.96 0.24 rectfill\n");

    QlClearArea(page.d, 0, 10, 10, 10, 10, False);
    EXPECT_EQ(page.since(), "gs 1 sg np 2.40 2.40 t 2.40 4.80 lo 4.80 4.80 lo 4.80 2.40 lo cp f gr\n");
}

TEST(PSMarks, OutsideAPageNothingIsWritten) {
    TempDir dir;
    MessageCapture messages;
    Display *d = QlVaOpenPrinter(nullptr, ("cat >" + (dir / "o.ps")).c_str(), "PostScript", 0);
    GC gc = QlCreateGC(d, 0, 0, nullptr);
    XPoint pt{1, 1};
    XArc arc{0, 0, 10, 10, 0, 64};
    XRectangle rect{0, 0, 1, 1};
    XSegment seg{0, 0, 1, 1};
    auto calls = [&] {
        return std::vector<int>{QlDrawLine(d, 0, gc, 0, 0, 1, 1), QlDrawArc(d, 0, gc, 0, 0, 5, 5, 0, 64),
                                QlDrawArcs(d, 0, gc, &arc, 1), QlDrawLines(d, 0, gc, &pt, 1, 0),
                                QlDrawPoint(d, 0, gc, 1, 1), QlDrawPoints(d, 0, gc, &pt, 1, 0),
                                QlDrawRectangle(d, 0, gc, 0, 0, 1, 1), QlDrawRectangles(d, 0, gc, &rect, 1),
                                QlDrawSegments(d, 0, gc, &seg, 1), QlFillArc(d, 0, gc, 0, 0, 5, 5, 0, 64),
                                QlFillArcs(d, 0, gc, &arc, 1), QlFillPolygon(d, 0, gc, &pt, 1, 0, 0),
                                QlFillRectangle(d, 0, gc, 0, 0, 1, 1), QlFillRectangles(d, 0, gc, &rect, 1),
                                QlClearArea(d, 0, 0, 0, 1, 1, False), QlClearWindow(d, 0),
                                QlCopyArea(d, 1, 0, gc, 0, 0, 1, 1, 0, 0)};
    };
    std::vector<int> before = calls();  // no document at all
    ASSERT_EQ(QlStartDoc(d, "x"), 1);
    messages.clear();
    std::vector<int> between = calls();  // a document, no page
    for (int rc : before) EXPECT_EQ(rc, 2);
    for (int rc : between) EXPECT_EQ(rc, 2);
    EXPECT_EQ(messages.indices, std::vector<int>(between.size(), wStartDoc));
    std::fflush(P(d)->stream);
    EXPECT_EQ(ReadFile(P(d)->tmpName), "");
    QlAbortDoc(d);
    QlClosePrinter(d);
}

TEST(PSMarks, ExtremeInputKeepsTheDocumentSound) {
    MessageCapture messages;
    Page page;
    QlSetLineAttributes(page.d, page.gc, 40, LineOnOffDash, CapProjecting, JoinMiter);
    QlDrawLine(page.d, 0, page.gc, -32768, -32768, 32767, 32767);
    QlDrawRectangle(page.d, 0, page.gc, 32767, 32767, 65535, 65535);
    QlDrawRectangle(page.d, 0, page.gc, 5, 5, 0, 0);
    QlFillRectangle(page.d, 0, page.gc, 5, 5, 0, 0);
    QlDrawArc(page.d, 0, page.gc, 5, 5, 0, 0, 0, 0);
    QlDrawArc(page.d, 0, page.gc, 5, 5, 10, 1, 0, 64);
    QlFillArc(page.d, 0, page.gc, 5, 5, 1, 65535, 0, -23040 * 3);
    std::vector<XPoint> many(5000);
    for (size_t i = 0; i < many.size(); ++i)
        many[i] = {static_cast<short>(i % 2 ? 32767 : -32768), static_cast<short>((i * 37) % 600)};
    QlDrawLines(page.d, 0, page.gc, many.data(), static_cast<int>(many.size()), CoordModeOrigin);
    QlDrawLines(page.d, 0, page.gc, many.data(), static_cast<int>(many.size()), CoordModePrevious);
    QlFillPolygon(page.d, 0, page.gc, many.data(), static_cast<int>(many.size()), Complex, CoordModeOrigin);
    QlDrawPoints(page.d, 0, page.gc, many.data(), 100, CoordModePrevious);
    std::string doc = page.finish();
    EXPECT_EQ(doc.find("inf"), std::string::npos);
    EXPECT_EQ(doc.find("nan"), std::string::npos);
    EXPECT_TRUE(qltest::RendersCleanly(page.out));
}

// An encapsulated page's box holds all of its ink.  The bbox device counts
// a pixel that a fill edge touches, up to a hundredth of a point beyond the
// edge: the comparison allows that much.
TEST(PSMarks, BoundingBoxHoldsTheInk) {
    MessageCapture messages;
    Page page;
    QlSetLineAttributes(page.d, page.gc, 30, LineSolid, CapProjecting, JoinMiter);
    QlDrawLine(page.d, 0, page.gc, 400, 300, 900, 310);
    XPoint zigzag[] = {{300, 900}, {600, 960}, {300, 1020}};  // a sharp mitre to the right
    QlDrawLines(page.d, 0, page.gc, zigzag, 3, CoordModeOrigin);
    QlFillArc(page.d, 0, page.gc, 1000, 500, 300, 200, 0, 23040);
    QlDrawArc(page.d, 0, page.gc, 200, 1200, 300, 100, 0, 23040);
    std::string doc = page.finish();
    size_t at = doc.find("%%BoundingBox: ", doc.find("%%PageTrailer"));
    ASSERT_NE(at, std::string::npos);
    int box[4];
    ASSERT_EQ(std::sscanf(doc.c_str() + at, "%%%%BoundingBox: %d %d %d %d", &box[0], &box[1], &box[2], &box[3]), 4);
    auto ink = qltest::GsInkBoundingBoxHiRes(page.out);
    ASSERT_TRUE(ink.has_value());
    constexpr double kEdge = 0.05;
    EXPECT_LE(box[0], (*ink)[0] + kEdge);
    EXPECT_LE(box[1], (*ink)[1] + kEdge);
    EXPECT_GE(box[2], (*ink)[2] - kEdge);
    EXPECT_GE(box[3], (*ink)[3] - kEdge);
}

}  // namespace
