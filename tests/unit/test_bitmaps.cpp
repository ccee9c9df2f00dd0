// Bitmap files and pixmap data on a printer, checked against Xlib's own
// reader and a screen: Debian's bitmaps and pixmaps, then broken files.
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses

#include "gfx/bitmap.h"
#include "support/capture.h"
#include "support/tempdir.h"
#include "support/xvfb.h"

#include <X11/Xutil.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <algorithm>
#include <array>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

using qltest::MessageCapture;
using qltest::ReadFile;
using qltest::TempDir;
using qltest::WriteFile;

namespace {

const char *const kBitmapDir = "/usr/include/X11/bitmaps";

struct Printer {
    Display *d = QlVaOpenPrinter(nullptr, "cat >/dev/null", "PostScript", 0);
    explicit Printer(int depth = 8) { QlSetColorDepth(d, depth); }
    ~Printer() { QlClosePrinter(d); }
};

XImage *Img(Pixmap p) { return reinterpret_cast<XImage *>(p); }

// What a reader makes of a file.
struct ReadBitmap {
    int rc = -1;
    unsigned w = 0, h = 0;
    int xh = 0, yh = 0;
    std::string bits;
};

// Xlib's reader.
struct XlibBitmap : ReadBitmap {
    explicit XlibBitmap(const std::string &path) {
        unsigned char *data = nullptr;
        rc = XReadBitmapFileData(path.c_str(), &w, &h, &data, &xh, &yh);
        if (rc == BitmapSuccess) bits.assign(reinterpret_cast<char *>(data), (w + 7) / 8 * h);
        if (data) XFree(data);
    }
};

// What the printer reads, in the same form.
struct OurBitmap : ReadBitmap {
    Pixmap pm = 0;
    OurBitmap(Display *printer, const std::string &path) {
        rc = QlReadBitmapFile(printer, 0, path.c_str(), &w, &h, &pm, &xh, &yh);
        if (rc == BitmapSuccess) bits.assign(Img(pm)->data, static_cast<size_t>(Img(pm)->bytes_per_line) * h);
    }
};

void ExpectSame(const XlibBitmap &x, const OurBitmap &q, const std::string &what) {
    ASSERT_EQ(q.rc, x.rc) << what;
    if (x.rc != BitmapSuccess) return;
    EXPECT_TRUE(q.w == x.w && q.h == x.h && q.xh == x.xh && q.yh == x.yh)
        << what << ": " << q.w << "x" << q.h << " hot " << q.xh << "," << q.yh << ", Xlib " << x.w << "x" << x.h << " hot "
        << x.xh << "," << x.yh;
    EXPECT_EQ(q.bits, x.bits) << what;
}

// Rows of bits with the bits past the width cleared.
std::string PixelBits(std::string bits, unsigned width) {
    const unsigned row = (width + 7) / 8;
    if (width % 8)
        for (size_t i = row - 1; i < bits.size(); i += row) bits[i] &= static_cast<char>((1u << (width % 8)) - 1);
    return bits;
}

std::vector<std::string> BitmapFiles() {
    std::vector<std::string> files;
    std::error_code ec;
    for (auto &e : std::filesystem::directory_iterator(kBitmapDir, ec))
        if (e.is_regular_file()) files.push_back(e.path().string());
    return files;
}

TEST(BitmapFiles, EveryXbitmapsFileReadsAndWritesAsXlibReadsIt) {
    const auto files = BitmapFiles();
    if (files.empty()) GTEST_SKIP() << "xbitmaps is not installed";
    Printer pr;
    TempDir dir;
    for (const std::string &path : files) {
        XlibBitmap x(path);
        OurBitmap q(pr.d, path);
        ExpectSame(x, q, path);
        if (q.rc != BitmapSuccess) continue;
        EXPECT_EQ(Img(q.pm)->depth, 1);
        const std::string copy = dir / std::filesystem::path(path).filename().string();
        ASSERT_EQ(QlWriteBitmapFile(pr.d, copy.c_str(), q.pm, q.w, q.h, q.xh, q.yh), 0) << path;
        // Both readers take the written file back as it was.
        XlibBitmap x2(copy);
        OurBitmap q2(pr.d, copy);
        // Bits past the width aren't pixels, and aren't written.
        const std::string pixels = PixelBits(x.bits, x.w);
        EXPECT_EQ(PixelBits(q2.bits, q2.w), pixels) << copy;
        EXPECT_EQ(x2.bits, pixels) << copy;
        EXPECT_TRUE(q2.w == x.w && q2.h == x.h && q2.xh == x.xh && q2.yh == x.yh && x2.xh == x.xh) << copy;
        QlFreePixmap(pr.d, q2.pm);
        QlFreePixmap(pr.d, q.pm);
    }
}

// The pixels of a display pixmap, as rows of 0 and 1.
std::string DisplayBits(Display *dpy, Pixmap pm, unsigned w, unsigned h) {
    XImage *im = XGetImage(dpy, pm, 0, 0, w, h, 1, ZPixmap);
    std::string s;
    for (unsigned y = 0; y < h; ++y)
        for (unsigned x = 0; x < w; ++x) s += XGetPixel(im, x, y) ? '1' : '0';
    XDestroyImage(im);
    return s;
}

TEST(BitmapFiles, OnADisplayTheCallIsXlibs) {
    const auto files = BitmapFiles();
    if (files.empty()) GTEST_SKIP() << "xbitmaps is not installed";
    Display *dpy = qltest::OpenTestDisplay();
    if (!dpy) GTEST_SKIP() << qltest::XvfbFailure();
    const Window root = DefaultRootWindow(dpy);
    for (const std::string &path : files) {
        unsigned w[2] = {}, h[2] = {};
        int xh[2] = {}, yh[2] = {};
        Pixmap pm[2] = {};
        const int r1 = QlReadBitmapFile(dpy, root, path.c_str(), &w[0], &h[0], &pm[0], &xh[0], &yh[0]);
        const int r2 = XReadBitmapFile(dpy, root, path.c_str(), &w[1], &h[1], &pm[1], &xh[1], &yh[1]);
        ASSERT_EQ(r1, r2) << path;
        if (r1 != BitmapSuccess) continue;
        EXPECT_TRUE(w[0] == w[1] && h[0] == h[1] && xh[0] == xh[1] && yh[0] == yh[1]) << path;
        EXPECT_EQ(DisplayBits(dpy, pm[0], w[0], h[0]), DisplayBits(dpy, pm[1], w[1], h[1])) << path;
        const Pixmap a = pm[0], b = pm[1];
        XFreePixmap(dpy, a);
        XFreePixmap(dpy, b);
    }
    XCloseDisplay(dpy);
}

// Small files that Xlib's reader and the printer's must take alike.
TEST(BitmapFiles, OddFilesReadAsXlibReadsThem) {
    Printer pr;
    TempDir dir;
    const std::string longLine(253, ' ');
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"version10-width8", "#define v_width 8\n#define v_height 2\nstatic short v_bits[] = {\n 0x1234, 0xabcd};\n"},
        {"version10-width20",
         "#define v_width 20\n#define v_height 2\nstatic short v_bits[] = {\n 0x1234, 0x5678, 0x9abc, 0xdef0};\n"},
        {"version10-width16", "#define v_width 16\n#define v_height 2\nstatic short v_bits[] = {\n 0x1234, 0xabcd};\n"},
        {"no-underscore", "#define width 3\n#define height 1\nstatic char bits[] = { 0x05 };\n"},
        {"hot-spot", "#define h_width 3\n#define h_height 1\n#define h_x_hot 2\n#define h_y_hot 0\n"
                     "static unsigned char h_bits[] = {\n0x07};\n"},
        {"prefixes-and-high-bytes", "#define p_width 8\n#define p_height 3\nstatic char p_bits[] = {\n"
                                    "0X1f, \xe9x2e\xff, $3d}\n"},
        {"two-declarations-first-wins", "#define t_width 8\n#define t_height 1\nstatic char t_bits[] = {\n0x01};\n"
                             "static char t_bits[] = {\n0x80};\n"},
        {"no-bits", "#define n_width 8\n#define n_height 1\n"},
        {"missing-width", "#define m_height 1\nstatic char m_bits[] = {\n0x01};\n"},
        {"zero-height", "#define z_width 8\n#define z_height 0\nstatic char z_bits[] = {\n0x01};\n"},
        {"truncated", "#define t_width 16\n#define t_height 2\nstatic char t_bits[] = {\n0x01, 0x02, 0x03"},
        {"cut-in-a-number", "#define t_width 8\n#define t_height 1\nstatic char t_bits[] = {\n0x0"},
        {"negative-value", "#define b_width 8\n#define b_height 1\nstatic char b_bits[] = {\n0xffffffff};\n"},
        {"line-of-253", "#define l_width 8\n" + longLine + "\n#define l_height 1\nstatic char l_bits[] = {\n1};\n"},
        {"line-of-254", "#define l_width 8\n" + longLine + " \n#define l_height 1\nstatic char l_bits[] = {\n1};\n"},
        {"long-last-line", "#define l_width 8\n#define l_height 1\nstatic char l_bits[] = {\n1};\n" +
                               std::string(400, 'x')},
        {"empty", ""},
    };
    for (const auto &[name, text] : cases) {
        const std::string path = dir / name;
        WriteFile(path, text);
        XlibBitmap x(path);
        OurBitmap q(pr.d, path);
        ExpectSame(x, q, name);
        if (q.pm) QlFreePixmap(pr.d, q.pm);
    }
}

// Results Xlib's reader cannot be asked for: a missing file, a negative
// width, a size past memory.
TEST(BitmapFiles, ResultsOfBrokenFiles) {
    Printer pr;
    TempDir dir;
    unsigned w = 0, h = 0;
    Pixmap pm = 0;
    EXPECT_EQ(QlReadBitmapFile(pr.d, 0, (dir / "absent").c_str(), &w, &h, &pm, nullptr, nullptr), 1);
    for (auto [size, rc] : {std::pair{"-8\n#define a_height 1", 2}, {"2000000000\n#define a_height 2000000000", 3}}) {
        WriteFile(dir / "f", std::string("#define a_width ") + size + "\nstatic char a_bits[] = {\n0x01};\n");
        pm = 0;
        EXPECT_EQ(QlReadBitmapFile(pr.d, 0, (dir / "f").c_str(), &w, &h, &pm, nullptr, nullptr), rc) << size;
        if (pm) QlFreePixmap(pr.d, pm);
    }
}

TEST(BitmapFiles, WrittenText) {
    Printer pr;
    TempDir dir;
    const char bits[] = {'\xff', '\x1f', '\x01', '\x10'};
    const Pixmap pm = QlCreateBitmapFromData(pr.d, 0, bits, 13, 2);
    const std::string path = dir / "b.xbm";
    ASSERT_EQ(QlWriteBitmapFile(pr.d, path.c_str(), pm, 13, 2, -1, -1), 0);
    EXPECT_EQ(ReadFile(path), "#define b.xbm_width 13\n#define b.xbm_height 2\n"
                              "static char b.xbm_bits[] = {\n   0xff, 0x1f, 0x01, 0x10};\n");
    // The pixmap stays the caller's, and the file's mode is kept.
    chmod(path.c_str(), 0640);
    ASSERT_EQ(QlWriteBitmapFile(pr.d, path.c_str(), pm, 13, 2, 4, 1), 0);
    EXPECT_NE(ReadFile(path).find("#define b.xbm_x_hot 4\n#define b.xbm_y_hot 1\nstatic"), std::string::npos);
    struct stat st {};
    stat(path.c_str(), &st);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
    QlFreePixmap(pr.d, pm);

    // Twelve values to a line.
    std::string many(26, '\x5a');
    const Pixmap tall = QlCreateBitmapFromData(pr.d, 0, many.data(), 8, 26);
    ASSERT_EQ(QlWriteBitmapFile(pr.d, path.c_str(), tall, 8, 26, -1, -1), 0);
    const std::string text = ReadFile(path);
    EXPECT_NE(text.find("{\n   0x5a, 0x5a"), std::string::npos);
    EXPECT_NE(text.find("0x5a,\n   0x5a"), std::string::npos);
    const auto lines = std::count(text.begin(), text.end(), '\n');
    EXPECT_EQ(lines, 2 + 1 + 3);
    QlFreePixmap(pr.d, tall);

    // Nothing is left beside the files, and a directory that isn't there gives 1.
    int entries = 0;
    for (auto &e : std::filesystem::directory_iterator(dir.path())) entries += e.is_regular_file();
    EXPECT_EQ(entries, 1);
    const Pixmap one = QlCreateBitmapFromData(pr.d, 0, bits, 8, 1);
    EXPECT_EQ(QlWriteBitmapFile(pr.d, (dir / "no/such").c_str(), one, 8, 1, -1, -1), 1);
    QlFreePixmap(pr.d, one);
}

// Bitmap data on a printer gives the pixels a screen gives.
TEST(BitmapData, PrinterPixelsAreTheScreens) {
    Printer pr;
    const char data[] = {'\x01', '\x82', '\x7f', '\x00', '\x55', '\x03'};
    const Pixmap bm = QlCreateBitmapFromData(pr.d, 0, data, 10, 3);
    std::string ours;
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 10; ++x) ours += QlGetPixel(Img(bm), x, y) ? '1' : '0';
    EXPECT_EQ(ours, "1000000001" "1111111000" "1010101011");
    const unsigned long black = QlBlackPixel(pr.d, 0), white = QlWhitePixel(pr.d, 0);
    const Pixmap deep = QlCreatePixmapFromBitmapData(pr.d, 0, const_cast<char *>(data), 10, 3, black, white, 8);
    const Pixmap mono = QlCreatePixmapFromBitmapData(pr.d, 0, const_cast<char *>(data), 10, 3, white, black, 1);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 10; ++x) {
            const bool set = ours[y * 10 + x] == '1';
            EXPECT_EQ(QlGetPixel(Img(deep), x, y), set ? black : white);
            EXPECT_EQ(QlGetPixel(Img(mono), x, y), set ? 1u : 0u);
        }
    for (Pixmap p : {bm, deep, mono}) QlFreePixmap(pr.d, p);

    Display *dpy = qltest::OpenTestDisplay();
    if (!dpy) GTEST_SKIP() << qltest::XvfbFailure();
    const Pixmap theirs = QlCreateBitmapFromData(dpy, DefaultRootWindow(dpy), data, 10, 3);
    EXPECT_EQ(DisplayBits(dpy, theirs, 10, 3), ours);
    XFreePixmap(dpy, theirs);
    XCloseDisplay(dpy);
}

// Pixmap data as the calls take it: colour pairs and rows.
struct PixmapData {
    unsigned w = 0, h = 0;
    int ncolors = 0, cpp = 0;
    std::vector<std::string> colours, rows;  // colours: code, definition, ...
    static std::vector<const char *> Ptrs(const std::vector<std::string> &strings) {
        std::vector<const char *> v;
        for (auto &s : strings) v.push_back(s.c_str());
        return v;
    }
    Pixmap make(Display *d, unsigned depth, Drawable drawable = 0, Colormap cmap = 0) const {
        auto c = Ptrs(colours), r = Ptrs(rows);
        return QlCreatePixmapFromData(d, drawable, cmap, w, h, depth, ncolors, cpp, c.data(), r.data());
    }
};

// The quoted strings of an XPM file: values, colours ("c" key), rows.
PixmapData ParseXpm(const std::string &path) {
    const std::string text = ReadFile(path);
    std::vector<std::string> strings;
    for (size_t at = text.find('"'); at != std::string::npos; at = text.find('"', at + 1)) {
        const size_t end = text.find('"', at + 1);
        strings.push_back(text.substr(at + 1, end - at - 1));
        at = end;
    }
    PixmapData p;
    int w = 0, h = 0;
    std::sscanf(strings.at(0).c_str(), "%d %d %d %d", &w, &h, &p.ncolors, &p.cpp);
    p.w = w;
    p.h = h;
    for (int i = 1; i <= p.ncolors; ++i) {
        const std::string &s = strings.at(i);
        p.colours.push_back(s.substr(0, p.cpp));
        const size_t key = s.find("c ", p.cpp);
        p.colours.push_back(s.substr(s.find_first_not_of(" \t", key + 1)));
    }
    p.rows.assign(strings.begin() + 1 + p.ncolors, strings.begin() + 1 + p.ncolors + h);
    return p;
}

// The 8-bit channels a definition names.
std::array<int, 3> Channels(const std::string &definition) {
    XColor c{};
    EXPECT_TRUE(XParseColor(nullptr, 0, definition.c_str(), &c)) << definition;
    return {c.red >> 8, c.green >> 8, c.blue >> 8};
}

std::array<int, 3> PrinterChannels(Display *d, unsigned long pixel) {
    XColor c{};
    c.pixel = pixel;
    QlQueryColor(d, 0, &c);
    return {c.red >> 8, c.green >> 8, c.blue >> 8};
}

// The definition of the code at column x of row y.
const std::string &DefinitionAt(const PixmapData &p, unsigned x, unsigned y) {
    const std::string code = p.rows[y].substr(x * p.cpp, p.cpp);
    for (int i = 0; i < p.ncolors; ++i)
        if (p.colours[2 * i] == code) return p.colours[2 * i + 1];
    ADD_FAILURE() << "no colour " << code;
    return p.colours[1];
}

std::vector<std::string> PixmapFiles() {
    std::vector<std::string> files;
    std::error_code ec;
    for (auto &e : std::filesystem::directory_iterator("/usr/share/pixmaps", ec))
        if (e.path().extension() == ".xpm") files.push_back(e.path().string());
    return files;
}

TEST(PixmapData, DebianPixmapsOnAPrinter) {
    const auto files = PixmapFiles();
    if (files.empty()) GTEST_SKIP() << "no pixmaps in /usr/share/pixmaps";
    for (const std::string &path : files) {
        PixmapData p = ParseXpm(path);
        {
            // "None" is no colour to either reader.
            Printer pr(24);
            MessageCapture m;
            EXPECT_EQ(p.make(pr.d, 24), 0u) << path;
            EXPECT_TRUE(m.has(eBadRGB)) << path;
        }
        for (size_t i = 1; i < p.colours.size(); i += 2)
            if (p.colours[i] == "None") p.colours[i] = "#FFFFFF";
        Printer pr(24);
        MessageCapture m;
        const Pixmap pm = p.make(pr.d, 24);
        ASSERT_GT(pm, 3u) << path;
        EXPECT_TRUE(m.indices.empty());
        for (unsigned y = 0; y < p.h; ++y)
            for (unsigned x = 0; x < p.w; ++x)
                ASSERT_EQ(PrinterChannels(pr.d, QlGetPixel(Img(pm), x, y)), Channels(DefinitionAt(p, x, y)))
                    << path << " at " << x << "," << y;
        QlFreePixmap(pr.d, pm);

        // In cells: a colour is its cell's, or the nearest one once the
        // table is full; never a pixel beyond it.
        Printer cells(8);
        const Pixmap pm8 = p.make(cells.d, 8);
        ASSERT_GT(pm8, 3u) << path;
        for (unsigned y = 0; y < p.h; ++y)
            for (unsigned x = 0; x < p.w; ++x) {
                const unsigned long px = QlGetPixel(Img(pm8), x, y);
                ASSERT_LT(px, 256u);
                const auto want = Channels(DefinitionAt(p, x, y)), got = PrinterChannels(cells.d, px);
                if (p.ncolors <= 200) {
                    for (int k = 0; k < 3; ++k) EXPECT_EQ(got[k] >> 4, want[k] >> 4) << path;
                }
            }
        QlFreePixmap(cells.d, pm8);
    }
}

// Codes of two printable characters, as many as asked.
PixmapData ManyColours(int n, unsigned w) {
    static const std::string printable =
        " .XoO+@#$%&*=-;:?>,<1234567890qwertyuipasdfghjklzxcvbnmMNBVCZASDFGHJKLPIUYTREWQ!~^/()_`'][{}|";
    PixmapData p;
    p.w = w;
    p.h = 1;
    p.ncolors = n;
    p.cpp = 2;
    std::string row;
    for (int i = 0; i < n; ++i) {
        std::string code{printable[i / 93 % 93], printable[i % 93]};
        char def[16];
        // Every colour in a cell of its own: the top 4 bits differ.
        std::snprintf(def, sizeof def, "#%02x%02x%02x", i % 16 * 16 + 8, i / 16 % 16 * 16 + 8, i / 256 % 16 * 16 + 8);
        p.colours.push_back(code);
        p.colours.push_back(def);
        if (row.size() < 2 * w) row += code;
    }
    p.rows.push_back(row);
    return p;
}

TEST(PixmapData, MoreColoursThanCells) {
    Printer pr(8);
    const PixmapData p = ManyColours(300, 300);
    const Pixmap pm = p.make(pr.d, 8);
    ASSERT_GT(pm, 3u);
    // Black and white hold cells 0 and 1; the next 254 colours fill the
    // rest, and later ones get the nearest cell, or 0.
    std::set<unsigned long> used;
    for (unsigned x = 0; x < 300; ++x) {
        const unsigned long px = QlGetPixel(Img(pm), x, 0);
        ASSERT_LT(px, 256u);
        const auto want = Channels(p.colours[2 * x + 1]), got = PrinterChannels(pr.d, px);
        int distance = 0;
        for (int k = 0; k < 3; ++k) distance += std::abs(want[k] - got[k]);
        used.insert(px);
        if (x < 254) {
            EXPECT_EQ(px, x + 2);
            EXPECT_EQ(distance, 0) << x;
        } else if (px != 0) {
            EXPECT_LT(distance * 256, 100000) << x;
        }
    }
    EXPECT_EQ(used.size(), 254u);
    QlFreePixmap(pr.d, pm);
}

TEST(PixmapData, ColourLimit) {
    Printer pr(24);
    MessageCapture m;
    PixmapData p = ManyColours(93 * 93, 4);
    const Pixmap pm = p.make(pr.d, 24);
    EXPECT_GT(pm, 3u);
    EXPECT_TRUE(m.indices.empty());
    QlFreePixmap(pr.d, pm);
    p.colours.push_back("zz");
    p.colours.push_back("#000000");
    p.ncolors = 8650;
    EXPECT_EQ(p.make(pr.d, 24), 0u);
    EXPECT_TRUE(m.has(eNumColors));
}

TEST(PixmapData, Failures) {
    Printer pr(24);
    const char *ok[] = {".", "#ff0000", "X", "#0000ff"};
    const char *rows[] = {".X.", "X.X"};
    struct Case {
        const char *name;
        int cpp;
        std::vector<const char *> colours, rows;
        bool nullColours, nullRows;
        int message;
        const char *text;
    };
    const std::vector<Case> cases = {
        {"three chars", 3, {ok, ok + 4}, {rows, rows + 2}, false, false, eNumChars, nullptr},
        {"no colours", 1, {}, {rows, rows + 2}, true, false, eUndefineColor, nullptr},
        {"no rows", 1, {ok, ok + 4}, {}, false, true, eUndefinedPixel, nullptr},
        {"bad definition", 1, {".", "#ff00", "X", "#0000ff"}, {rows, rows + 2}, false, false, eBadRGB, nullptr},
        {"short code", 2, {".", "#ff0000", "XX", "#0000ff"}, {"..XX..", "XX..XX"}, false, false, eBadColorEntry,
         nullptr},
        {"unprintable code", 2, {".\x01", "#ff0000", "XX", "#0000ff"}, {"XXXXXX", "XXXXXX"}, false, false,
         eBadPixelValue, nullptr},
        {"unknown pixel", 1, {ok, ok + 4}, {".X.", "XqX"}, false, false, eBadPixel,
         "XCreatePixmapFromData: pixel \"q\" not in previous colormap"},
        {"unknown pixel of two", 2, {"..", "#ff0000", "XX", "#0000ff"}, {"..XX..", "XXqq.."}, false, false,
         eBadPixel2, "XCreatePixmapFromData: pixel \"qq\" not in previous colormap"},
        {"short row", 1, {ok, ok + 4}, {".X.", "X"}, false, false, eBadLineLen, nullptr},
        {"missing row", 1, {ok, ok + 4}, {".X.", nullptr}, false, false, eBadLineLen, nullptr},
    };
    for (const Case &c : cases) {
        MessageCapture m;
        const Pixmap pm = QlCreatePixmapFromData(pr.d, 0, 0, 3, 2, 24, 2, c.cpp,
                                                 c.nullColours ? nullptr : c.colours.data(),
                                                 c.nullRows ? nullptr : c.rows.data());
        EXPECT_EQ(pm, 0u) << c.name;
        ASSERT_EQ(m.indices.size(), 1u) << c.name;
        EXPECT_EQ(m.indices[0], c.message) << c.name;
        if (c.text) {
            EXPECT_NE(m.texts[0].find(c.text), std::string::npos) << m.texts[0];
        }
    }
}

TEST(PixmapData, DepthOneNeedsNoColours) {
    Printer pr(8);
    MessageCapture m;
    const char *none[] = {nullptr, nullptr};
    const char *rows[] = {" x ", "## "};
    const Pixmap pm = QlCreatePixmapFromData(pr.d, 0, 0, 3, 2, 1, 1, 1, none, rows);
    ASSERT_GT(pm, 3u);
    EXPECT_TRUE(m.indices.empty());
    std::string bits;
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x) bits += QlGetPixel(Img(pm), x, y) ? '1' : '0';
    // As on a screen: set bits draw in the foreground.
    EXPECT_EQ(bits, "010110");
    QlFreePixmap(pr.d, pm);

    Display *dpy = qltest::OpenTestDisplay();
    if (!dpy) GTEST_SKIP() << qltest::XvfbFailure();
    const Pixmap theirs = QlCreatePixmapFromData(dpy, DefaultRootWindow(dpy), 0, 3, 2, 1, 1, 1, none, rows);
    ASSERT_NE(theirs, 0u);
    EXPECT_EQ(DisplayBits(dpy, theirs, 3, 2), bits);
    XFreePixmap(dpy, theirs);
    XCloseDisplay(dpy);
}

// The same data on a TrueColor screen and a depth-24 printer gives the
// same colours.
TEST(PixmapData, ScreenAndPaperAgree) {
    Display *dpy = qltest::OpenTestDisplay();
    if (!dpy) GTEST_SKIP() << qltest::XvfbFailure();
    const int screen = DefaultScreen(dpy);
    PixmapData p = ManyColours(40, 40);
    Printer pr(24);
    const Pixmap paper = p.make(pr.d, 24);
    const Pixmap scr = p.make(dpy, DefaultDepth(dpy, screen), DefaultRootWindow(dpy), DefaultColormap(dpy, screen));
    ASSERT_GT(paper, 3u);
    ASSERT_NE(scr, 0u);
    XImage *im = XGetImage(dpy, scr, 0, 0, 40, 1, AllPlanes, ZPixmap);
    for (int x = 0; x < 40; ++x) {
        XColor c{};
        c.pixel = XGetPixel(im, x, 0);
        XQueryColor(dpy, DefaultColormap(dpy, screen), &c);
        const std::array<int, 3> onScreen{c.red >> 8, c.green >> 8, c.blue >> 8};
        EXPECT_EQ(PrinterChannels(pr.d, QlGetPixel(Img(paper), x, 0)), onScreen) << x;
        EXPECT_EQ(onScreen, Channels(p.colours[2 * x + 1])) << x;
    }
    XDestroyImage(im);
    XFreePixmap(dpy, scr);
    QlFreePixmap(pr.d, paper);
    XCloseDisplay(dpy);
}

}  // namespace
