// Text on PostScript printers: every standard face in each encoding the
// font list offers, at several sizes, sits on paper where the metrics say
// (Ghostscript measures every string the document shows), soft fonts are
// downloaded into the page that uses them, and font calls on a display are
// Xlib's own.
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses

#include "core/driver.h"
#include "support/capture.h"
#include "support/gs.h"
#include "support/tempdir.h"
#include "support/xvfb.h"
#include "text/font.h"

#include <cmath>
#include <strings.h>
#include <map>
#include <sstream>
#include <string>
#include <vector>

using namespace qltest;

namespace {

const char *kFaces[] = {"AvantGarde-Book", "AvantGarde-BookOblique", "AvantGarde-Demi", "AvantGarde-DemiOblique",
                        "Bookman-Light", "Bookman-LightItalic", "Bookman-Demi", "Bookman-DemiItalic", "Courier",
                        "Courier-Oblique", "Courier-Bold", "Courier-BoldOblique", "Helvetica", "Helvetica-Oblique",
                        "Helvetica-Bold", "Helvetica-BoldOblique", "Helvetica-Narrow", "Helvetica-Narrow-Oblique",
                        "Helvetica-Narrow-Bold", "Helvetica-Narrow-BoldOblique", "NewCenturySchlbk-Roman",
                        "NewCenturySchlbk-Italic", "NewCenturySchlbk-Bold", "NewCenturySchlbk-BoldItalic",
                        "Palatino-Roman", "Palatino-Italic", "Palatino-Bold", "Palatino-BoldItalic", "Symbol",
                        "Times-Roman", "Times-Italic", "Times-Bold", "Times-BoldItalic", "ZapfChancery-MediumItalic",
                        "ZapfDingbats"};

// A printer that has all 35 faces resident, and a configuration with the
// shipped font list, prolog and metrics.
struct Config : ConfigDir {
    explicit Config(const std::string &extraFonts = "") : ConfigDir(true, extraFonts) {
        std::string ppd = "*PPD-Adobe: \"4.3\"\n*ModelName: \"Fonts\"\n*LanguageLevel: \"2\"\n"
                          "*DefaultImageableArea: Letter\n*ImageableArea Letter: \"18 18 594 774\"\n"
                          "*DefaultPaperDimension: Letter\n*PaperDimension Letter: \"612 792\"\n"
                          "*DefaultFont: Courier\n";
        for (const char *face : kFaces) ppd += std::string("*Font ") + face + ": Standard \"(001.000)\" Standard ROM\n";
        WriteFile(dir / "ppds/Fonts.PS", ppd);
    }
};

struct Printer {
    Display *d;
    GC gc;
    std::string out;
    Printer(const std::string &file, const char *ppd = "Fonts") : out(file) {
        d = QlVaOpenPrinter(ppd, ("cat >" + file).c_str(), "PostScript", 0);
        EXPECT_NE(d, nullptr);
        gc = QlCreateGC(d, 0, 0, nullptr);
        EXPECT_EQ(QlStartDoc(d, "fonts"), 1);
        EXPECT_EQ(QlStartPage(d), 1);
    }
    ~Printer() {
        QlFreeGC(d, gc);
        QlClosePrinter(d);
    }
};

// The widths Ghostscript gives every string the document shows, in order:
// `show` reports its string's width before it shows it.  Ghostscript puts
// each glyph's advance on its device grid, so it measures at 1200 dpi,
// where that costs at most 0.03 of a 300-dpi dot per string.
std::vector<double> ShownWidths(const std::string &ps, std::string *log) {
    GsRun run = RunGhostscriptTalkative(
        {"-sDEVICE=nullpage", "-r1200", "-c", "/show {dup stringwidth pop (W ) print == show} bind def", "-f", ps});
    *log = run.log;
    std::vector<double> widths;
    std::istringstream in(run.log);
    for (std::string line; std::getline(in, line);)
        if (line.rfind("W ", 0) == 0) widths.push_back(std::stod(line.substr(2)));
    return widths;
}

// Every byte an encoding defines from 32 up: printable ASCII, then the
// upper half of the ISO parts (the font list's encodings all share ASCII;
// ISO 8859-3 leaves seven codes unassigned, and the glyph table lacks the
// numero sign of 8859-5 and a few signs of 8859-7).
std::string Repertoire(const std::string &encoding) {
    std::string s;
    for (int c = 32; c < 127; ++c) s += static_cast<char>(c);
    if (encoding.rfind("iso8859", 0) != 0) return s;
    const std::string unassigned = encoding == "iso8859-3"   ? "\xa5\xae\xbe\xc3\xd0\xe3\xf0"
                                   : encoding == "iso8859-5" ? "\xf0"
                                   : encoding == "iso8859-7" ? "\xa4\xa5\xaa\xae\xaf\xb5\xd2\xff"
                                                             : "";
    for (int c = 0xA1; c < 0x100; ++c)
        if (c != 0xAD && unassigned.find(static_cast<char>(c)) == std::string::npos) s += static_cast<char>(c);
    return s;
}

}  // namespace

TEST(PSFonts, StringsSitWhereTheMetricsSay) {
    Config cfg;
    TempDir out;
    MessageCapture msgs;
    Printer pr(out / "faces.ps");
    const std::vector<std::string> encodings = {"iso8859-1", "iso8859-2", "iso8859-3", "iso8859-4",
                                                "iso8859-5", "iso8859-7", "iso8859-9", "adobe-standard"};
    std::vector<int> expected;
    std::vector<std::string> labels;
    int y = 40;
    for (const char *face : kFaces) {
        const bool symbolic = std::string(face) == "Symbol" || std::string(face) == "ZapfDingbats";
        for (const std::string &enc : symbolic ? std::vector<std::string>{"adobe-fontspecific"} : encodings) {
            for (int points : {7, 12, 31}) {
                // The face's own XLFD name in the font list, at this size.
                std::string name;
                for (QlFontRec *f = reinterpret_cast<QlPrinter *>(pr.d)->fonts; f && name.empty(); f = f->next) {
                    std::string xlfd = f->xlfdName;
                    if (std::string(ql::FontFileName(f)) != face || xlfd.size() < enc.size() ||
                        xlfd.compare(xlfd.size() - enc.size(), enc.size(), enc) != 0)
                        continue;
                    name = xlfd.replace(xlfd.find("--0-0-300-300-"), 14, "--*-" + std::to_string(points * 10) + "-*-*-");
                }
                ASSERT_FALSE(name.empty()) << face << " " << enc;
                XFontStruct *fs = QlLoadQueryFont(pr.d, name.c_str());
                ASSERT_NE(fs, nullptr) << name;
                QlSetFont(pr.d, pr.gc, fs->fid);
                const std::string text = Repertoire(enc);
                // Short pieces, so that each sits on the page.
                for (size_t at = 0; at < text.size(); at += 24) {
                    const std::string piece = text.substr(at, 24);
                    QlDrawString(pr.d, 0, pr.gc, 40, y, piece.data(), static_cast<int>(piece.size()));
                    expected.push_back(QlTextWidth(fs, piece.data(), static_cast<int>(piece.size())));
                    labels.push_back(name + " @" + std::to_string(at));
                    y = y > 3000 ? 40 : y + 20;
                }
            }
        }
    }
    QlEndPage(pr.d);
    ASSERT_EQ(QlEndDoc(pr.d), 1);
    EXPECT_TRUE(msgs.texts.empty()) << msgs.texts.front();

    std::string log;
    std::vector<double> shown = ShownWidths(pr.out, &log);
    EXPECT_EQ(log.find("Substituting font"), std::string::npos) << log.substr(0, 2000);
    EXPECT_EQ(log.find("Error"), std::string::npos) << log.substr(0, 2000);
    ASSERT_EQ(shown.size(), expected.size());
    int off = 0;
    for (size_t i = 0; i < shown.size(); ++i) {
        // Points in the document; dots at 300 dpi for the library, whose
        // width is the metric sum rounded: within half a dot of it.
        const double dots = shown[i] * 300 / 72;
        if (std::fabs(dots - expected[i]) > 0.5 + 0.03 && ++off <= 40)
            ADD_FAILURE() << labels[i] << ": Ghostscript " << dots << " dots, QlTextWidth " << expected[i];
    }
    EXPECT_EQ(off, 0) << "of " << shown.size() << " strings";
}

TEST(PSFonts, ListsLoadsAndFreesByPattern) {
    Config cfg;
    TempDir out;
    MessageCapture msgs;
    Printer pr(out / "list.ps");
    int count = 0;
    // Upper-case patterns find what lower-case ones do; sizes asked for
    // are written into scalable names.
    char **names = QlListFonts(pr.d, "-ADOBE-HELVETICA-BOLD-R-NORMAL--*-140-*-ISO8859-2", 10, &count);
    ASSERT_EQ(count, 1);
    EXPECT_STREQ(names[0], "-adobe-helvetica-bold-r-normal--0-140-300-300-p-0-iso8859-2");
    QlFreeFontNames(names);
    names = QlListFonts(pr.d, "-*-courier-*", 1000, &count);
    EXPECT_EQ(count, 4 * 8);  // four faces in eight encodings
    QlFreeFontNames(names);
    EXPECT_EQ(QlListFonts(pr.d, "-*-nonesuch-*", 10, &count), nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(QlLoadQueryFont(pr.d, "-*-nonesuch-*"), nullptr);

    // One instance per size in dots; the same size is the same font.
    Font a = QlLoadFont(pr.d, "-adobe-times-medium-r-normal--*-120-*-iso8859-1");
    Font b = QlLoadFont(pr.d, "-adobe-times-medium-r-normal--50-*-*-iso8859-1");
    Font c = QlLoadFont(pr.d, "-adobe-times-medium-r-normal--51-*-*-iso8859-1");
    EXPECT_EQ(a, b);
    EXPECT_NE(a, c);
    XFontStruct *fs = QlQueryFont(pr.d, a);
    ASSERT_NE(fs, nullptr);
    EXPECT_EQ(QlQueryFont(pr.d, a), fs);  // counted, not read again
    // Times-Roman's metrics: FontBBox -168 -281 1000 1053, at 50 dots.
    EXPECT_EQ(fs->ascent, 53);
    EXPECT_EQ(fs->descent, 14);
    EXPECT_EQ(fs->min_char_or_byte2, 0u);
    EXPECT_EQ(fs->max_char_or_byte2, 255u);
    // Sizes from the instance, the average width (which the name leaves
    // to the spacing field) from the widths.
    char *xlfd = QlGetXLFDName(pr.d, fs);
    EXPECT_STREQ(xlfd, "-adobe-times-medium-r-normal--50-120-300-300-p-25-iso8859-1");
    std::free(xlfd);
    EXPECT_EQ(QlFreeFont(pr.d, fs), 0);
    EXPECT_EQ(QlFreeFont(pr.d, fs), 0);
    EXPECT_EQ(QlQueryFont(pr.d, 12345), nullptr);  // not a font of this printer

    // The default font of a new GC is 12-point Helvetica.
    EXPECT_TRUE(msgs.texts.empty());
    QlGC *g = reinterpret_cast<QlGC *>(pr.gc);
    ASSERT_NE(g->fontStruct, nullptr);
    EXPECT_STREQ(ql::FontFileName(reinterpret_cast<QlFontRec *>(g->fontStruct->fid)), "Helvetica");
}

TEST(PSFonts, EncodingsSelectAndReencode) {
    Config cfg;
    TempDir out;
    MessageCapture msgs;
    Printer pr(out / "enc.ps");
    auto use = [&](const char *name) {
        XFontStruct *fs = QlLoadQueryFont(pr.d, name);
        ASSERT_NE(fs, nullptr) << name;
        QlSetFont(pr.d, pr.gc, fs->fid);
        QlDrawString(pr.d, 0, pr.gc, 100, 100, "\xe6\xb1", 2);
    };
    use("-adobe-helvetica-medium-r-normal--*-120-*-iso8859-1");
    use("-adobe-helvetica-medium-r-normal--*-100-*-iso8859-1");
    use("-adobe-helvetica-medium-r-normal--*-120-*-iso8859-2");
    use("-adobe-times-medium-r-normal--*-120-*-iso8859-2");
    use("-adobe-helvetica-medium-r-normal--*-120-*-adobe-standard");
    use("-adobe-symbol-medium-r-normal--*-120-*-adobe-fontspecific");
    QlEndPage(pr.d);
    QlEndDoc(pr.d);
    const std::string doc = ReadFile(pr.out);
    // Latin-1 through the prolog's copy, once per face and page.
    EXPECT_NE(doc.find("ski{/Helvetica fcd /Helvetica-ISO8859-1 fdf}if\n"
                       "ski{/Helvetica-ISO8859-1}{/Helvetica}ifelse ff [12.00 0 0 -12.00 0 0] mf sf\n"),
              std::string::npos);
    // 10 points are 41 dots at 300 dpi, cut: 9.84 points.
    EXPECT_NE(doc.find("ski{/Helvetica-ISO8859-1}{/Helvetica}ifelse ff [9.84 0 0 -9.84 0 0] mf sf\n"),
              std::string::npos);
    EXPECT_EQ(doc.find("/Helvetica fcd"), doc.rfind("/Helvetica fcd"));
    // Latin-2: one vector of differences for the encoding pair, reused.
    size_t vec = doc.find("/ISO8859-2-AdobeStandardEncoding[\n");
    ASSERT_NE(vec, std::string::npos);
    EXPECT_EQ(vec, doc.rfind("/ISO8859-2-AdobeStandardEncoding["));
    EXPECT_NE(doc.find("8#261 /aogonek\n", vec), std::string::npos);
    EXPECT_NE(doc.find("/Helvetica /Helvetica-ISO8859-2 ISO8859-2-AdobeStandardEncoding REn\n"
                       "/Helvetica-ISO8859-2 ff [12.00 0 0 -12.00 0 0] mf sf\n"),
              std::string::npos);
    EXPECT_NE(doc.find("/Times-Roman /Times-Roman-ISO8859-2 ISO8859-2-AdobeStandardEncoding REn\n"),
              std::string::npos);
    // The font's own encoding needs nothing.
    EXPECT_NE(doc.find("/Helvetica ff [12.00 0 0 -12.00 0 0] mf sf\n<e6b1>"), std::string::npos);
    EXPECT_NE(doc.find("/Symbol ff [12.00 0 0 -12.00 0 0] mf sf\n"), std::string::npos);
    EXPECT_TRUE(RendersCleanly(pr.out));
    EXPECT_TRUE(msgs.texts.empty());
}

// A Type 1 font the printer doesn't have goes into the page that uses it.
TEST(PSFonts, SoftFontsAreDownloaded) {
    const std::string urw = "/usr/share/fonts/type1/urw-base35";
    Config cfg("C059-Roman,-urw-c059-medium-r-normal--%d-%d-%d-%d-p-0-iso8859-1\n");
    WriteFile(cfg.dir / "pssoftfonts/C059-Roman", ReadFile(urw + "/C059-Roman.t1"));
    std::filesystem::remove(cfg.dir / "fontmetrics");
    std::filesystem::copy(BuildConfigDir() + "/fontmetrics", cfg.dir / "fontmetrics",
                          std::filesystem::copy_options::recursive);
    WriteFile(cfg.dir / "fontmetrics/afm/C059-Roman.afm", ReadFile(urw + "/C059-Roman.afm"));
    TempDir out;
    MessageCapture msgs;
    Printer pr(out / "soft.ps");
    XFontStruct *fs = QlLoadQueryFont(pr.d, "-urw-c059-*-*-*--*-240-*");
    ASSERT_NE(fs, nullptr);
    QlSetFont(pr.d, pr.gc, fs->fid);
    for (int page = 0; page < 2; ++page) {
        if (page) QlStartPage(pr.d);
        QlDrawString(pr.d, 0, pr.gc, 100, 200, "Soft", 4);
        QlDrawString(pr.d, 0, pr.gc, 100, 300, "font", 4);
        QlEndPage(pr.d);
    }
    QlEndDoc(pr.d);
    const std::string doc = ReadFile(pr.out);
    size_t first = doc.find("%%BeginResource: font C059-Roman\n");
    ASSERT_NE(first, std::string::npos);
    size_t second = doc.find("%%BeginResource: font C059-Roman\n", first + 1);
    ASSERT_NE(second, std::string::npos);  // each page downloads it once
    EXPECT_EQ(doc.find("%%BeginResource: font C059-Roman\n", second + 1), std::string::npos);
    EXPECT_GT(doc.find("%%Page: 2"), first);
    EXPECT_LT(doc.find("%%Page: 2"), second);
    EXPECT_TRUE(RendersCleanly(pr.out));
    std::string log;
    EXPECT_EQ(ShownWidths(pr.out, &log).size(), 4u);
    EXPECT_TRUE(msgs.texts.empty());
}

// On a display the font calls are Xlib's.
TEST(PSFonts, DisplayFontsAreXlibs) {
    Display *dpy = OpenTestDisplay();
    if (!dpy) GTEST_SKIP() << XvfbFailure();
    int n1 = 0, n2 = 0;
    char **a = QlListFonts(dpy, "-misc-fixed-*", 500, &n1);
    char **b = XListFonts(dpy, "-misc-fixed-*", 500, &n2);
    ASSERT_GT(n1, 0);
    ASSERT_EQ(n1, n2);
    for (int i = 0; i < n1; ++i) EXPECT_STREQ(a[i], b[i]);
    QlFreeFontNames(a);
    XFreeFontNames(b);
    XFontStruct *q = QlLoadQueryFont(dpy, "fixed"), *x = XLoadQueryFont(dpy, "fixed");
    ASSERT_TRUE(q && x);
    const char text[] = "Display text, 0123";
    EXPECT_EQ(QlTextWidth(q, text, sizeof text - 1), XTextWidth(x, text, sizeof text - 1));
    EXPECT_EQ(q->ascent, x->ascent);
    char *name = QlGetXLFDName(dpy, q);
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(strncasecmp(name, "-misc-fixed-", 12), 0) << name;
    std::free(name);
    EXPECT_EQ(QlIsAppSoftFont(dpy, q), 0);
    QlFreeFont(dpy, q);
    XFreeFont(dpy, x);
    XCloseDisplay(dpy);
}
