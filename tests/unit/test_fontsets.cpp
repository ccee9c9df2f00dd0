// Font sets and multibyte text: the Japanese conversions against the C
// library's, sets on a PostScript printer (runs, fonts, Ghostscript's
// picture) and on a display (the same pixels as Xlib's own drawing).
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses

#include "support/gs.h"
#include "support/raster.h"
#include "support/tempdir.h"
#include "support/xvfb.h"
#include "text/fontset.h"
#include "text/text.h"

#include <X11/Xlocale.h>
#include <clocale>
#include <cstring>
#include <filesystem>
#include <iconv.h>
#include <sstream>
#include <string>
#include <vector>

using namespace qltest;

namespace {

std::string Iconv(const char *to, const char *from, const std::string &in) {
    iconv_t cd = iconv_open(to, from);
    char out[16], *src = const_cast<char *>(in.data()), *dst = out;
    size_t inLeft = in.size(), outLeft = sizeof out;
    const bool ok = iconv(cd, &src, &inLeft, &dst, &outLeft) != size_t(-1) && inLeft == 0 &&
                    iconv(cd, nullptr, nullptr, &dst, &outLeft) != size_t(-1);
    iconv_close(cd);
    return ok ? std::string(out, dst) : "";
}

using Conv = int (*)(const char *, int, char *, int, int *);
std::string Ours(Conv f, const std::string &in) {
    char out[16];
    int n = 0;
    f(in.data(), int(in.size()), out, sizeof out, &n);
    return std::string(out, n);
}

// Japanese locales compiled once into a directory of the test's own.
bool JapaneseLocales() {
    static TempDir dir;
    static const bool ok = [] {
        const std::string d = dir.path();
        if (std::system(("localedef -i ja_JP -f EUC-JP " + d + "/ja_JP.eucJP >/dev/null 2>&1").c_str()) != 0 ||
            std::system(("localedef -c -i ja_JP -f SHIFT_JIS " + d + "/ja_JP.SJIS >/dev/null 2>&1").c_str()) > 256)
            return false;
        setenv("LOCPATH", d.c_str(), 1);
        return Exists(d + "/ja_JP.SJIS/LC_CTYPE");
    }();
    return ok;
}

}  // namespace

TEST(FontSetConversions, AgreeWithTheCLibraryOnJisX0208AndHalfWidthKana) {
    int assigned = 0, vendorOnly = 0;
    for (int r = 0x21; r <= 0x7E; ++r)
        for (int c = 0x21; c <= 0x7E; ++c) {
            const std::string jis{char(r), char(c)}, euc{char(r | 0x80), char(c | 0x80)};
            const std::string sjis = Iconv("SHIFT_JIS", "ISO-2022-JP", "\x1b$B" + jis + "\x1b(B");
            const std::string viaEuc = Iconv("SHIFT_JIS", "EUC-JP", euc);
            if (sjis.empty()) {  // outside JIS X 0208's assigned cells: the arithmetic still maps them
                vendorOnly += !viaEuc.empty();
                continue;
            }
            ++assigned;
            ASSERT_EQ(Ours(_QlJISX208_TO_SJIS2, jis), sjis) << std::hex << r << " " << c;
            ASSERT_EQ(Ours(_QlSJIS2_TO_JISX208, sjis), jis) << std::hex << r << " " << c;
            if (!viaEuc.empty()) {
                ASSERT_EQ(Ours(_QlEUCtoSJIS, euc), viaEuc) << std::hex << r << " " << c;
            }
        }
    EXPECT_GE(assigned, 6879);  // JIS X 0208's characters
    EXPECT_EQ(vendorOnly, 0) << "EUC-JP cells that ISO-2022-JP lacks";
    for (int k = 0xA1; k <= 0xDF; ++k) {
        const std::string kana(1, char(k)), euc{'\x8E', char(k)};
        ASSERT_EQ(Iconv("SHIFT_JIS", "EUC-JP", euc), kana);
        ASSERT_EQ(Ours(_QlEUCtoSJIS, euc), kana);
        ASSERT_EQ(Ours(_QlSJIS2_TO_JISX208, kana), euc);
    }
    char out[4];
    int n = 0;
    EXPECT_EQ(_QlJISX208_TO_SJIS2("\x24\x22\x24\x24", 4, out, 4, &n), 1) << "the last two bytes are never used";
    EXPECT_EQ(n, 2);
    EXPECT_EQ(_QlSJIS2_TO_JISX208("\x82\x20", 2, out, 4, &n), 1) << "second byte below 64";
}

// ------------------------------------------------------------ on a printer

namespace {

// Text of three runs: ASCII, half-width kana, kanji and hiragana.
const std::string kEuc = "Qualin\x8E\xB1\x8E\xB2\xC6\xFC\xCB\xDC\xA4\xA2";

// A printer whose Japanese font is the composite font of a Shift-JIS CMap
// that Japanese printers have resident; Ghostscript makes it from its
// fallback CID font.  Its metrics are Ghostscript's own widths.
const char *kResident = "/Ryumin-Light-90ms-RKSJ-H /90ms-RKSJ-H [/CIDFallBack /CIDFont findresource] composefont pop";
const char *kJapanese = "-morisawa-ryumin light-medium-r-normal--%d-%d-%d-%d-c-0-";

struct JapanesePrinter : ConfigDir {
    JapanesePrinter()
        : ConfigDir(true, std::string("Ryumin-Light-90ms-RKSJ-H,") + kJapanese + "jisx0208.1983-0\n" +
                              "Ryumin-Light-90ms-RKSJ-H," + kJapanese + "jisx0201.1976-0\n") {
        WriteFile(dir / "ppds/Ja.PS", "*PPD-Adobe: \"4.3\"\n*ModelName: \"Ja\"\n*LanguageLevel: \"2\"\n"
                                      "*DefaultImageableArea: Letter\n*ImageableArea Letter: \"18 18 594 774\"\n"
                                      "*DefaultPaperDimension: Letter\n*PaperDimension Letter: \"612 792\"\n"
                                      "*Font Courier: Standard \"(002.004)\" Standard ROM\n"
                                      "*Font Ryumin-Light-90ms-RKSJ-H: RKSJ \"(003.000)\" ExtendedRoman ROM\n");
        // The build's metric files, linked one by one beside ours.
        const std::string afmDir = dir / "fontmetrics/afm";
        std::filesystem::remove(dir / "fontmetrics");
        std::filesystem::create_directories(afmDir);
        for (auto &f : std::filesystem::directory_iterator(BuildConfigDir() + "/fontmetrics/afm"))
            std::filesystem::create_symlink(f.path(), afmDir + "/" + f.path().filename().string());
        // One width per line, in the order the codes are asked for.
        std::string codes = "[ 32 1 126 {} for 161 1 223 {} for 129 1 239 {dup 160 ge 1 index 223 le and "
                            "{pop}{256 mul 64 1 252 {1 index add exch} for pop} ifelse} for ]";
        GsRun run = RunGhostscript({"-sDEVICE=nullpage", "-c", std::string(kResident) +
                                    " /Ryumin-Light-90ms-RKSJ-H findfont 1000 scalefont setfont " + codes +
                                    " {dup 255 gt {2 string dup 0 3 index -8 bitshift put dup 1 4 -1 roll 255 "
                                    "and put}{1 string dup 0 4 -1 roll put} ifelse stringwidth pop round cvi =} forall"});
        std::istringstream widths(run.log);
        std::string afm;
        int n = 0;
        auto add = [&](int code) {
            int w = 0;
            widths >> w;
            afm += "C " + std::to_string(code) + " ; WX " + std::to_string(w) + " ; N c" + std::to_string(code) +
                   " ; B 0 -120 " + std::to_string(w) + " 880 ;\n";
            ++n;
        };
        for (int c = 32; c <= 126; ++c) add(c);
        for (int c = 161; c <= 223; ++c) add(c);
        for (int l = 129; l <= 239; ++l)
            if (l < 160 || l > 223)
                for (int t = 64; t <= 252; ++t) add(l * 256 + t);
        WriteFile(dir / "fontmetrics/afm/Ryumin-Light-90ms-RKSJ-H.afm",
                  "StartFontMetrics 4.1\nFontName Ryumin-Light-90ms-RKSJ-H\nFontBBox 0 -120 1000 880\n"
                  "StartCharMetrics " + std::to_string(n) + "\n" + afm + "EndCharMetrics\nEndFontMetrics\n");
    }
};

}  // namespace

TEST(FontSetsOnPrinter, LocalesRunsAndGhostscriptsPicture) {
    if (!JapaneseLocales()) GTEST_SKIP() << "localedef could not compile ja_JP";
    TempDir tmp;
    JapanesePrinter config;
    const std::string out = tmp / "ja.ps";
    Display *p = QlVaOpenPrinter("Ja", ("cat >" + out).c_str(), "PostScript", 0);
    ASSERT_NE(p, nullptr);
    GC gc = QlCreateGC(p, 0, 0, nullptr);
    ASSERT_EQ(QlStartDoc(p, "ja"), 1);
    ASSERT_EQ(QlStartPage(p), 1);
    const char *names = "nomatch, -*-ryumin light-*-*-*--40-*-*-*-*-*-jisx0208.1983-0,,"
                        "-*-ryumin light-*-*-*--40-*-*-*-*-*-jisx0201.1976-0";
    const std::string latin = ",-adobe-courier-medium-r-normal--40-*-*-*-*-*-iso8859-1";

    ASSERT_TRUE(std::setlocale(LC_ALL, "C"));
    char **missing = nullptr;
    int count = -1;
    QlFontSet *c = QlCreateFontSet(p, "-adobe-courier-medium-r-normal--40-*", &missing, &count, nullptr);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->encoding, 0);
    EXPECT_EQ(QlFontsOfFontSet(c, nullptr, nullptr), 1);
    EXPECT_EQ(count, 0);
    QlFreeFontSet(p, c);
    for (auto [locale, encoding] : {std::pair{"ja_JP.SJIS", 1}, {"ja_JP.eucJP", 2}}) {
        ASSERT_TRUE(std::setlocale(LC_ALL, locale)) << locale;
        QlFontSet *s = QlCreateFontSet(p, names, &missing, &count, nullptr);
        ASSERT_NE(s, nullptr);
        EXPECT_EQ(s->encoding, encoding);
        ASSERT_EQ(count, 1) << "the names behind the empty one were tried";
        EXPECT_STREQ(missing[0], "iso8859-1");
        QlFreeStringList(missing);
        QlFreeFontSet(p, s);
    }
    EXPECT_EQ(QlmbDrawString(p, 0, nullptr, gc, 0, 0, "a", 1), 2);

    QlFontSet *set = QlCreateFontSet(p, (names + latin).c_str(), &missing, &count, nullptr);
    ASSERT_EQ(count, 0);
    auto *g = reinterpret_cast<QlGC *>(gc);
    const Font before = g->values.font;
    const int x = 100, y = 200;
    ASSERT_EQ(QlmbDrawString(p, 0, set, gc, x, y, kEuc.data(), int(kEuc.size())), 0);
    EXPECT_EQ(g->values.font, before);
    int e[4] = {0, QlmbTextEscapement(set, kEuc.data(), 6), QlmbTextEscapement(set, kEuc.data(), 10), 0};
    e[3] = QlmbTextEscapement(set, kEuc.data(), int(kEuc.size()));
    XRectangle ink{}, logical{};
    EXPECT_EQ(QlmbTextExtents(set, kEuc.data(), int(kEuc.size()), &ink, &logical), e[3]);
    QlFreeFontSet(p, set);
    QlFreeGC(p, gc);
    ASSERT_EQ(QlEndPage(p), 1);
    ASSERT_EQ(QlEndDoc(p), 1);
    QlClosePrinter(p);
    std::setlocale(LC_ALL, "C");

    const std::string doc = ReadFile(out);
    int shows = 0;
    for (size_t i = doc.find(" C\n"); i != std::string::npos; i = doc.find(" C\n", i + 1)) ++shows;
    EXPECT_EQ(shows, 3) << "three runs, three driver calls";
    EXPECT_NE(doc.find("<b1b2>"), std::string::npos) << "kana in Shift-JIS";
    EXPECT_NE(doc.find("<93fa967b82a0>"), std::string::npos) << "kanji and hiragana in Shift-JIS";

    GsRun run = RunGhostscript({"-sDEVICE=ppmraw", "-r300", "-sPAPERSIZE=letter", "-dFIXEDMEDIA", "-sOutputFile=" + (tmp / "ja.ppm"), "-c", kResident,
                                "-f", out});
    ASSERT_EQ(run.exitCode, 0) << run.log;
    EXPECT_EQ(run.log.find("Error"), std::string::npos) << run.log;
    // Ghostscript's width of each run shown, in points of 300-dpi dots.
    GsRun widths = RunGhostscript({"-sDEVICE=nullpage", "-r1200", "-c", std::string(kResident) +
                                   " /show {dup stringwidth pop (W ) print == show} bind def", "-f", out});
    std::istringstream shown(widths.log);
    int r = 0;
    for (std::string line; std::getline(shown, line);) {
        if (line.rfind("W ", 0) != 0 || r >= 3) continue;
        EXPECT_NEAR(std::stod(line.substr(2)) / 0.24, e[r + 1] - e[r], 1.0) << "run " << r;
        ++r;
    }
    EXPECT_EQ(r, 3) << widths.log;
    std::string err;
    auto page = ParsePpm(ReadFile(tmp / "ja.ppm"), &err);
    ASSERT_TRUE(page) << err << run.log;
    // Device pixels are dots from the imageable area's corner (75, 75).
    auto inkIn = [&](int x0, int x1) {
        long n = 0;
        for (int px = 75 + x + x0; px < 75 + x + x1; ++px)
            for (int py = 75 + y - 45; py < 75 + y + 15; ++py) n += page->pixel(px, py) != 0xFFFFFF;
        return n;
    };
    for (int r = 0; r < 3; ++r) EXPECT_GT(inkIn(e[r] + 1, e[r + 1] - 1), 20) << "run " << r;
    EXPECT_EQ(inkIn(e[3] + 1, e[3] + 200), 0) << "nothing beyond the escapement";
    EXPECT_EQ(inkIn(-100, 0), 0);
}

// ------------------------------------------------------------ on a display

namespace {

struct TestScreen {
    Display *dpy = OpenTestDisplay();
    Pixmap pm = XCreatePixmap(dpy, DefaultRootWindow(dpy), 300, 300, DefaultDepth(dpy, 0));
    GC gc = XCreateGC(dpy, pm, 0, nullptr);
    ~TestScreen() {
        XFreeGC(dpy, gc);
        XFreePixmap(dpy, pm);
        XCloseDisplay(dpy);
    }
    void Clear() {
        XSetForeground(dpy, gc, WhitePixel(dpy, 0));
        XFillRectangle(dpy, pm, gc, 0, 0, 300, 300);
        XSetForeground(dpy, gc, BlackPixel(dpy, 0));
    }
    Raster Picture() { return CaptureDrawable(dpy, pm, 0, 0, 300, 300); }
};

constexpr const char *kFixed14 = "-misc-fixed-medium-r-normal--14-*";

}  // namespace

TEST(FontSetsOnDisplay, EucShiftJisAndJisDrawAsXlibDraws) {
    if (XvfbDisplayName().empty()) GTEST_SKIP() << XvfbFailure();
    if (!JapaneseLocales()) GTEST_SKIP() << "localedef could not compile ja_JP";
    TestScreen s;
    XFontStruct *k14 = XLoadQueryFont(s.dpy, "-misc-fixed-medium-r-normal--14-*-jisx0208.1983-0");
    ASSERT_NE(k14, nullptr) << "xfonts-intl-japanese";
    const std::string euc = "\xC6\xFC\xCB\xDC\xA4\xA2\xA5\xA2", jis = "\x46\x7C\x4B\x5C\x24\x22\x25\x22";
    char sjis[16];
    int n = 0;
    _QlEUCtoSJIS(euc.data(), int(euc.size()), sjis, sizeof sjis, &n);
    s.Clear();
    XSetFont(s.dpy, s.gc, k14->fid);
    XDrawString16(s.dpy, s.pm, s.gc, 20, 40, reinterpret_cast<const XChar2b *>(jis.data()), 4);
    const Raster want = s.Picture();

    auto drawn = [&](const char *locale, const std::string &text) {
        EXPECT_TRUE(std::setlocale(LC_ALL, locale) && XSupportsLocale()) << locale;
        char **missing = nullptr;
        int count = 0;
        QlFontSet *set = QlCreateFontSet(s.dpy, kFixed14, &missing, &count, nullptr);
        EXPECT_NE(set, nullptr) << locale;
        if (missing) QlFreeStringList(missing);
        s.Clear();
        QlmbDrawString(s.dpy, s.pm, set, s.gc, 20, 40, text.data(), int(text.size()));
        Raster r = s.Picture();
        if (!set) return r;
        EXPECT_EQ(QlmbTextEscapement(set, text.data(), int(text.size())), 4 * 14);
        const bool real = QlExtGetXFontSet(set) != nullptr;
        QlFreeFontSet(s.dpy, set);
        if (real) std::free(set);  // the record of Xlib's set stays the caller's
        return r;
    };
    EXPECT_EQ(CompareRasters(want, drawn("ja_JP.eucJP", euc), 0).differing, 0) << "EUC-JP, Xlib's set";
    EXPECT_EQ(CompareRasters(want, drawn("ja_JP.SJIS", std::string(sjis, n)), 0).differing, 0) << "Shift-JIS";
    _Ql_using_sjis_hack = 1;
    _QlJISX208_TO_SJIS2(jis.data(), int(jis.size()), sjis, sizeof sjis, &n);
    EXPECT_EQ(CompareRasters(want, drawn("C", std::string(sjis, n)), 0).differing, 0) << "JIS, the library's set";

    // Three runs in the library's set: each in its own font, one after the other.
    const std::string mixed = "Ab\xB1\xB2" + std::string(sjis, n);
    char **names = nullptr;
    XFontStruct **fonts = nullptr;
    QlFontSet *set = QlCreateFontSet(s.dpy, kFixed14, nullptr, nullptr, nullptr);
    ASSERT_EQ(QlFontsOfFontSet(set, &fonts, &names), 3);
    s.Clear();
    XSetFont(s.dpy, s.gc, fonts[2]->fid);
    XDrawString(s.dpy, s.pm, s.gc, 20, 40, "Ab", 2);
    XSetFont(s.dpy, s.gc, fonts[1]->fid);
    XDrawString(s.dpy, s.pm, s.gc, 20 + XTextWidth(fonts[2], "Ab", 2), 40, "\xB1\xB2", 2);
    XSetFont(s.dpy, s.gc, fonts[0]->fid);
    const int x3 = 20 + XTextWidth(fonts[2], "Ab", 2) + XTextWidth(fonts[1], "\xB1\xB2", 2);
    XDrawString16(s.dpy, s.pm, s.gc, x3, 40, reinterpret_cast<const XChar2b *>(jis.data()), 4);
    const Raster three = s.Picture();
    s.Clear();
    QlmbDrawString(s.dpy, s.pm, set, s.gc, 20, 40, mixed.data(), int(mixed.size()));
    EXPECT_EQ(CompareRasters(three, s.Picture(), 0).differing, 0) << "mixed runs";
    EXPECT_EQ(QlmbTextEscapement(set, mixed.data(), int(mixed.size())), x3 - 20 + 4 * 14);
    QlFreeFontSet(s.dpy, set);
    _Ql_using_sjis_hack = 0;
    XFreeFont(s.dpy, k14);
    std::setlocale(LC_ALL, "C");
}

TEST(FontSetsOnDisplay, QuarterTurnIsTheStraightTextTurned) {
    if (XvfbDisplayName().empty()) GTEST_SKIP() << XvfbFailure();
    if (!JapaneseLocales()) GTEST_SKIP() << "localedef could not compile ja_JP";
    ASSERT_TRUE(std::setlocale(LC_ALL, "ja_JP.eucJP") && XSupportsLocale());
    TestScreen s;
    char **missing = nullptr;
    int count = 0;
    QlFontSet *set = QlCreateFontSet(s.dpy, kFixed14, &missing, &count, nullptr);
    ASSERT_NE(set, nullptr);
    if (missing) QlFreeStringList(missing);
    const std::string text = "Ql\xC6\xFC\xCB\xDC";
    s.Clear();
    EXPECT_EQ(QlmbDrawRotString(s.dpy, s.pm, set, s.gc, 150, 150, text.data(), int(text.size()), 0), 0);
    const Raster straight = s.Picture();
    s.Clear();
    EXPECT_NE(QlmbDrawRotString(s.dpy, s.pm, set, s.gc, 150, 150, text.data(), int(text.size()), 90 * 64), 0);
    const Raster turned = s.Picture();
    // A quarter turn counter-clockwise takes (dx, dy) from the origin to (dy, -dx).
    Raster want(300, 300);
    for (int y = 0; y < 300; ++y)
        for (int x = 0; x < 300; ++x)
            if (straight.pixel(x, y) != 0xFFFFFF) want.setPixel(150 + (y - 150), 150 - (x - 150), 0);
    EXPECT_GT(want.count(0), 50);
    EXPECT_EQ(CompareRasters(want, turned, 0).differing, 0) << Describe(CompareRasters(want, turned, 0));
    QlFreeFontSet(s.dpy, set);
    std::free(set);
    std::setlocale(LC_ALL, "C");
}
