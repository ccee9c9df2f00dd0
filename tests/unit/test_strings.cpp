// Strings: widths, extents and kerning of printer fonts, EUC-JP to
// Shift-JIS, and the string calls on a display and on a printer.
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses

#include "core/driver.h"
#include "fontdata/parseafm.h"
#include "support/capture.h"
#include "support/tempdir.h"
#include "support/xvfb.h"
#include "text/font.h"
#include "text/text.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

using qltest::MessageCapture;
using V = std::vector<int>;

namespace {

// A printer font as a driver builds it: columns lo..hi of row 0, each
// cell `width` wide, one width 7, default width 3, size 12; its entry is
// a resident font, already queried.
struct PrinterFont {
    QlFontRec rec{};
    int shared[4] = {};
    std::vector<XCharStruct> cells;
    std::vector<float> table;
    XExtData ext[3]{};
    ql::KernBlock tracks{}, pairs{12, 72, 0, nullptr};
    std::vector<PairKernData> kerns;
    XFontStruct fs{};
    PrinterFont(unsigned lo, unsigned hi, float width)
        : cells(hi - lo + 1, {0, 5, 6, 8, 2, 0}), table(hi - lo + 4, width) {
        table[hi - lo + 1] = 7, table[hi - lo + 3] = 3;
        fs.min_char_or_byte2 = lo, fs.max_char_or_byte2 = hi, fs.per_char = cells.data();
        fs.min_bounds = {-1, 1, 1, 1, 0, 0}, fs.max_bounds = {2, 9, 9, 10, 3, 0};
        fs.direction = FontRightToLeft;
        fs.fid = reinterpret_cast<Font>(&rec);
        ext[0] = {ql::kPrinterFontMark, &ext[1], nullptr, reinterpret_cast<XPointer>(table.data())};
        ext[1] = {0, &ext[2], nullptr, reinterpret_cast<XPointer>(&tracks)};
        ext[2] = {0, nullptr, nullptr, reinterpret_cast<XPointer>(&pairs)};
        fs.ext_data = ext;
        rec.fontType = &shared[0], rec.loadState = &shared[1], rec.isoEncoded = &shared[2];
        rec.recodeShared = &shared[3], rec.pixelSize = 12, rec.fontStruct = &fs;
        std::strcpy(ql::FontAlias(&rec), "Hand");
    }
    float &w(unsigned char c) { return table[c - fs.min_char_or_byte2]; }
    XCharStruct &cell(unsigned char c) { return cells[c - fs.min_char_or_byte2]; }
    void kern(const char *a, const char *b, int x, int y) {
        kerns.push_back({const_cast<char *>(a), const_cast<char *>(b), x, y});
        pairs.records = kerns.data(), pairs.count = static_cast<long>(kerns.size());
    }
    int width(const char *s) { return QlTextWidth(&fs, s, static_cast<int>(std::strlen(s))); }
};

TEST(PrinterTextWidth, RoundsOnceAtTheEnd) {
    PrinterFont f('a', 'z', 1);
    f.w('a') = 5.25f, f.w('b') = 5.25f, f.w('c') = 5.24f, f.w('d') = 10.5f, f.w('e') = 0.49999997f;
    EXPECT_EQ(V({f.width("ab"), f.width("ac"), f.width("ab\n"), f.width("\ra\nb"), f.width("\n")}),
              V({11, 10, 11, 11, 0}));
    EXPECT_EQ(QlTextWidth(&f.fs, nullptr, 4), 0);
    // A sum a float's error short of 11 is 11.
    EXPECT_EQ(f.width("de"), 11);
}

TEST(PrinterTextWidth, DefaultAndFixedWidths) {
    PrinterFont f('a', 'z', 2);
    f.cell('b') = XCharStruct{};  // all zeroes: not in the font
    EXPECT_EQ(V({f.width("a~a"), f.width("ab")}), V({7, 5}));  // '~' lies beyond 'z'
    f.fs.per_char = nullptr;  // the one width, within the range
    EXPECT_EQ(f.width("ab~"), 17);
    f.fs.per_char = f.cells.data(), f.fs.min_byte1 = f.fs.max_byte1 = 1;  // no row 0
    EXPECT_EQ(f.width("ab"), 6);

    PrinterFont pcl(' ', 'z', 9);
    struct { int symbolSet = 0, fixedPitch = 1; } head;  // how the PCL font record begins
    pcl.rec.pclFont = &head, pcl.w(' ') = 2.5f;
    EXPECT_EQ(pcl.width("ab~\n"), 8);  // three spaces' widths
}

TEST(PrinterTextExtents, BearingsFromTheFirstExtremeCharacter) {
    PrinterFont f('a', 'z', 1);
    f.w('a') = 2.5f, f.w('b') = 3, f.w('c') = 4;
    f.cell('a') = {0, 5, 3, 4, 1, 0}, f.cell('b') = {-2, 4, 3, 9, 0, 0}, f.cell('c') = {-2, 8, 4, 2, 4, 0};
    int dir = -1, asc = -1, desc = -1;
    XCharStruct o{11, 12, 13, 14, 15, 16};
    auto all = [&] { return V({o.lbearing, o.rbearing, o.width, o.ascent, o.descent, asc, desc}); };
    EXPECT_EQ(QlTextExtents(&f.fs, "abc", 0, &dir, &asc, &desc, &o), 0);  // o is left alone
    EXPECT_EQ(QlTextExtents(&f.fs, nullptr, 3, nullptr, nullptr, nullptr, &o), 0);
    EXPECT_EQ(dir, FontRightToLeft);
    EXPECT_EQ(all(), V({11, 12, 13, 14, 15, 10, 3}));
    // 'b' after width("a") = 3 has the left bearing, 'c' after width("ab") = 6 the right.
    EXPECT_EQ(QlTextExtents(&f.fs, "abca", 4, &dir, &asc, &desc, &o), 1);
    EXPECT_EQ(all(), V({1, 14, 12, 9, 4, 10, 3}));
    EXPECT_EQ(QlTextExtents(&f.fs, "~a", 2, &dir, &asc, &desc, &o), 1);  // '~' has no cell
    EXPECT_EQ(all(), V({0, 8, 6, 4, 1, 10, 3}));
    f.fs.per_char = nullptr;
    EXPECT_EQ(QlTextExtents(&f.fs, "b", 1, &dir, &asc, &desc, &o), 1);
    EXPECT_EQ(all(), V({-1, 9, 7, 10, 3, 10, 3}));
}

TEST(PrinterCharWidths, WholeWidthsAddUpToTheTotal) {
    PrinterFont f(0, 255, 1.4f);
    int w[5] = {};
    EXPECT_EQ(QlCharWidthOfString(&f.fs, "aaaaa", 5, w), 7);
    EXPECT_EQ(V(w, w + 5), V({1, 2, 1, 2, 1}));
    EXPECT_EQ(QlTextWidth(&f.fs, "aaaaa", 5), 7);  // 6.99999988
    // The table is read at the raw byte: in a font from 32, 'A' (65) reads
    // the cell of 'a'; a byte past the table has the default width.
    PrinterFont g(' ', '~', 1);
    g.w('a') = 4.4f;
    EXPECT_EQ(QlCharWidthOfString(&g.fs, "A~", 2, w), 7);
    EXPECT_EQ(V(w, w + 2), V({4, 3}));
}

TEST(PrinterKerning, PairsInEitherOrderByFirstCharacter) {
    PrinterFont f(0, 255, 1);
    f.kern("Aring", "V", -80, 0), f.kern("T", "o", -40, 10);
    EXPECT_DOUBLE_EQ(QlKernPairX(&f.fs, 'A', 'V'), -0.96);
    EXPECT_DOUBLE_EQ(QlKernPairX(&f.fs, 'V', 'A'), -0.96);
    EXPECT_DOUBLE_EQ(QlKernPairY(&f.fs, 'o', 'T'), 0.12);
    EXPECT_EQ(QlKernPairX(&f.fs, 'A', 'W'), 0.0);
    double *xy = QlKernPairXY(&f.fs, 'o', 'T');
    ASSERT_NE(xy, nullptr);
    EXPECT_EQ(std::vector<double>(xy, xy + 2), std::vector<double>({-40 * 12 / 1000.0, 10 * 12 / 1000.0}));
    std::free(xy);
    EXPECT_EQ(QlKernPairXY(&f.fs, 'T', 'T'), nullptr);
    f.ext[1].next = nullptr;  // no third record
    EXPECT_EQ(QlKernPairX(&f.fs, 'A', 'V'), 0.0);
    EXPECT_EQ(QlKernPairXY(&f.fs, 'A', 'V'), nullptr);
}

// The pairs of real fonts, read from their metric files by this test's own
// reading of the KPX lines, at the size the font was loaded at.  (Pairs are
// found by the first letters of their glyph names, so a pair such as "P A"
// meets "A Phi" first in these fonts, which also name Greek glyphs.)
TEST(PrinterKerning, RealFontsKernAsTheirMetricFilesSay) {
    Display *p = QlVaOpenPrinter(nullptr, "cat >/dev/null", "PostScript", 0);
    ASSERT_NE(p, nullptr);
    for (const char *face : {"Helvetica", "Times-Roman"}) {
        std::map<std::string, int> kpx;
        std::ifstream afm(qltest::BuildConfigDir() + "/fontmetrics/afm/" + face + ".afm");
        for (std::string line; std::getline(afm, line);) {
            std::istringstream in(line);
            std::string key, a, b;
            int amount = 0;
            if (in >> key >> a >> b >> amount && key == "KPX") kpx.emplace(a + " " + b, amount);
        }
        ASSERT_GT(kpx.size(), 100u) << face;
        const std::string name = std::string("-adobe-") + (face[0] == 'H' ? "helvetica" : "times") +
                                 "-medium-r-normal--50-*-*-*-p-0-iso8859-1";
        XFontStruct *fs = QlLoadQueryFont(p, name.c_str());
        ASSERT_NE(fs, nullptr) << name;
        for (const char *pair : {"A V", "F A", "L T", "T o", "Y o"}) {
            ASSERT_TRUE(kpx.count(pair)) << face << " " << pair;
            EXPECT_DOUBLE_EQ(QlKernPairX(fs, pair[0], pair[2]), kpx[pair] * 50 / 1000.0) << face << " " << pair;
            EXPECT_EQ(QlKernPairY(fs, pair[0], pair[2]), 0.0);
        }
        QlFreeFont(p, fs);
    }
    QlClosePrinter(p);
}

// The destination as the call leaves it ('.' where nothing was written),
// allocated at its exact size so that ASan sees an overrun; then the result.
std::string sjis(const std::string &euc, int limit) {
    std::vector<char> out(static_cast<size_t>(limit) + 1, '.');
    int n = -1;
    int rc = _QlEUCtoSJIS(euc.data(), static_cast<int>(euc.size()), out.data() + 1, limit, &n);
    return std::string(out.data() + 1, static_cast<size_t>(limit)) + "=" + std::to_string(rc);
}

TEST(EucToSjis, KanaKanjiAndBrokenInput) {
    EXPECT_EQ(sjis("\xA4\xA2", 2), "\x82\xA0=0");
    EXPECT_EQ(sjis("a\x8E\xB1\xB0\xA1z", 5), "a\xB1\x88\x9Fz=0");
    EXPECT_EQ(sjis("a\xA4", 3), "a..=1");  // cut in the middle
    EXPECT_EQ(sjis("\xA4\x41", 2), "..=1");
    EXPECT_EQ(sjis("\x8E", 2), "..=1");
    EXPECT_EQ(sjis("a\xA4\xA2", 2), "a.=1");  // no room for both bytes
    EXPECT_EQ(sjis("ab", 1), "a=1");
    EXPECT_EQ(sjis("", 0), "=0");
}

TEST(DisplayStrings, SameAsXlib) {
    Display *dpy = qltest::OpenTestDisplay();
    if (!dpy) GTEST_SKIP() << qltest::XvfbFailure();
    XFontStruct *fixed = XLoadQueryFont(dpy, "fixed"), *bold = XLoadQueryFont(dpy, "-misc-fixed-bold-r-normal--13-*");
    ASSERT_TRUE(fixed && bold);
    std::string all;
    for (int c = 1; c < 256; ++c) all += static_cast<char>(c);
    EXPECT_EQ(QlTextWidth(fixed, all.data(), 255), XTextWidth(fixed, all.data(), 255));
    int d1, a1, e1, d2, a2, e2, w[40];
    XCharStruct o1{}, o2{};
    EXPECT_EQ(QlTextExtents(bold, "Wig", 3, &d1, &a1, &e1, &o1), XTextExtents(bold, "Wig", 3, &d2, &a2, &e2, &o2));
    EXPECT_EQ(V({d1, a1, e1, o1.lbearing, o1.rbearing, o1.width, o1.ascent, o1.descent}),
              V({d2, a2, e2, o2.lbearing, o2.rbearing, o2.width, o2.ascent, o2.descent}));
    const char text[] = "The quick brown fox, 0123456789!";
    EXPECT_EQ(QlCharWidthOfString(bold, text, 32, w), XTextWidth(bold, text, 32));
    for (int i = 0; i < 32; ++i) EXPECT_EQ(w[i], XTextWidth(bold, text + i, 1)) << i;

    XChar2b wide[3] = {{0, 'Q'}, {0, 'l'}, {1, 'x'}};
    char hello[] = "Hello", world[] = "world";
    XTextItem items[2] = {{hello, 5, 3, bold->fid}, {world, 5, 7, None}};
    XTextItem16 items16[1] = {{wide, 3, 2, fixed->fid}};
    auto paint = [&](bool ql) {  // each call through Ql... or through X...
        Pixmap pm = XCreatePixmap(dpy, DefaultRootWindow(dpy), 320, 100, DefaultDepth(dpy, 0));
        GC gc = XCreateGC(dpy, pm, 0, nullptr);
        XSetForeground(dpy, gc, WhitePixel(dpy, 0));
        XFillRectangle(dpy, pm, gc, 0, 0, 320, 100);
        XSetForeground(dpy, gc, BlackPixel(dpy, 0)), XSetBackground(dpy, gc, 0x336699), XSetFont(dpy, gc, fixed->fid);
        ql ? QlDrawString(dpy, pm, gc, 5, 15, all.data(), 40) : XDrawString(dpy, pm, gc, 5, 15, all.data(), 40);
        ql ? QlDrawImageString(dpy, pm, gc, 5, 35, &all[40], 40) : XDrawImageString(dpy, pm, gc, 5, 35, &all[40], 40);
        ql ? QlDrawRotString(dpy, pm, gc, 5, 55, "rot", 3, 0) : XDrawString(dpy, pm, gc, 5, 55, "rot", 3);
        ql ? QlDrawRotImageString(dpy, pm, gc, 50, 55, "im", 2, 0) : XDrawImageString(dpy, pm, gc, 50, 55, "im", 2);
        ql ? QlDrawString16(dpy, pm, gc, 150, 55, wide, 3) : XDrawString16(dpy, pm, gc, 150, 55, wide, 3);
        ql ? QlDrawImageString16(dpy, pm, gc, 200, 55, wide, 3) : XDrawImageString16(dpy, pm, gc, 200, 55, wide, 3);
        ql ? QlDrawText16(dpy, pm, gc, 250, 55, items16, 1) : XDrawText16(dpy, pm, gc, 250, 55, items16, 1);
        ql ? QlDrawText(dpy, pm, gc, 5, 80, items, 2) : XDrawText(dpy, pm, gc, 5, 80, items, 2);
        XImage *img = XGetImage(dpy, pm, 0, 0, 320, 100, AllPlanes, ZPixmap);
        std::string bytes(img->data, static_cast<size_t>(img->bytes_per_line) * 100);
        XDestroyImage(img), XFreeGC(dpy, gc), XFreePixmap(dpy, pm);
        return bytes;
    };
    std::string ql = paint(true);
    EXPECT_TRUE(ql == paint(false));
    EXPECT_NE(ql.find_first_not_of(ql[0]), std::string::npos);
    XFreeFont(dpy, fixed), XFreeFont(dpy, bold), XCloseDisplay(dpy);
}

// A PostScript printer writing to a file, with a GC and two hand-made
// fonts at the head of its font list; open() starts a page whose state
// has gone out once.
struct Printer {
    PrinterFont wide{0, 255, 5.25f}, narrow{0, 255, 2};
    qltest::TempDir dir;
    Display *d = QlVaOpenPrinter(nullptr, ("cat >" + dir / "out.ps").c_str(), "PostScript", 0);
    GC gc = QlCreateGC(d, 0, 0, nullptr);
    QlGC *g = reinterpret_cast<QlGC *>(gc);
    QlPrinter *p = reinterpret_cast<QlPrinter *>(d);
    QlFontRec *listed = p->fonts;
    long at = 0;
    Printer() { wide.rec.next = p->fonts, narrow.rec.next = &wide.rec, p->fonts = &narrow.rec; }
    ~Printer() {
        if (p->stream) QlAbortDoc(d);
        p->fonts = listed;
        QlFreeGC(d, gc), QlClosePrinter(d);
    }
    void open() {
        EXPECT_EQ(QlStartDoc(d, "t") + QlStartPage(d), 2);
        QlSetBackground(d, gc, QlWhitePixel(d, 0)), QlDrawPoint(d, 0, gc, 0, 0);
        EXPECT_EQ(QlSetFont(d, gc, wide.fs.fid), 0);
        QlSetForeground(d, gc, 5), QlSetFillStyle(d, gc, FillOpaqueStippled);
        std::fflush(p->stream), at = std::ftell(p->stream);
    }
    std::string since() {
        std::fflush(p->stream);
        return qltest::ReadFile(p->tmpName).substr(static_cast<size_t>(at));
    }
};

// Each call writes what its plain equivalents write: image text is a solid
// box in the background, then the text with the GC as it was; unrotated
// text is plain text; items advance by their widths on paper.
TEST(PrinterStrings, CallsWriteWhatTheirPlainEquivalentsWrite) {
    MessageCapture messages;
    Printer a, b;
    ASSERT_TRUE(a.gc && b.gc);
    messages.clear();
    EXPECT_EQ(QlDrawImageString(a.d, 0, a.gc, 10, 20, "ab", 2) + QlDrawString(a.d, 0, a.gc, 10, 20, "ab", 2), 4);
    EXPECT_EQ(messages.indices, V({wStartDoc, wStartDoc}));  // no page yet

    a.open(), b.open();
    char ab[] = "ab", c[] = "c", d[] = "d";
    XTextItem items[3] = {{ab, 2, 3, a.wide.fs.fid}, {c, 1, 5, a.narrow.fs.fid}, {d, 1, -1, None}};
    EXPECT_EQ(QlDrawImageString(a.d, 0, a.gc, 10, 20, ab, 2), 0);
    EXPECT_EQ(V({static_cast<int>(a.g->values.foreground), a.g->values.fill_style}), V({5, FillOpaqueStippled}));
    QlDrawRotString(a.d, 0, a.gc, 30, 40, ab, 2, 0);
    QlDrawRotImageString(a.d, 0, a.gc, 50, 60, "a", 1, 0);
    EXPECT_EQ(QlDrawText(a.d, 0, a.gc, 100, 80, items, 3), 0);

    auto box = [&](int x, int y, unsigned w) {  // ascent 10, descent 3
        QlSetFillStyle(b.d, b.gc, FillSolid), QlSetForeground(b.d, b.gc, QlWhitePixel(b.d, 0));
        QlFillRectangle(b.d, 0, b.gc, x, y - 10, w, 13);
        QlSetFillStyle(b.d, b.gc, FillOpaqueStippled), QlSetForeground(b.d, b.gc, 5);
    };
    box(10, 20, 11), QlDrawString(b.d, 0, b.gc, 10, 20, ab, 2);  // 10.5 wide
    QlDrawString(b.d, 0, b.gc, 30, 40, ab, 2);
    box(50, 60, 5), QlDrawString(b.d, 0, b.gc, 50, 60, "a", 1);
    QlDrawString(b.d, 0, b.gc, 103, 80, ab, 2);  // then x = 100 + 11 + 3
    QlSetFont(b.d, b.gc, b.narrow.fs.fid);
    QlDrawString(b.d, 0, b.gc, 119, 80, c, 1);  // then x = 114 + 2 + 5
    QlDrawString(b.d, 0, b.gc, 120, 80, d, 1);  // no font: the GC's stays
    std::string want = b.since();
    EXPECT_NE(want, "");
    EXPECT_EQ(a.since(), want);
    EXPECT_EQ(a.g->dirty, b.g->dirty);
    EXPECT_EQ(a.g->values.font, a.narrow.fs.fid);

    messages.clear();
    EXPECT_EQ(QlDrawText16(a.d, 0, a.gc, 0, 0, nullptr, 1) + QlTextExtents16(&a.wide.fs, nullptr, 0, 0, 0, 0, 0), 0);
    EXPECT_EQ(messages.indices, V({wNotSupport, wNotSupport}));
}

}  // namespace
