// Rotated text on a display: the same calls on screen and on paper give the
// same picture, and the cache of finished bitmaps keeps what it should.
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses

#include "support/raster.h"
#include "support/scene.h"
#include "support/xvfb.h"
#include "text/rotated.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int kCell = 200;

// Twin faces: the printer's name and the X server's Type 1 font with the
// same outlines.
struct Twin {
    const char *printer, *screen;
};
constexpr Twin kHelvetica = {"-adobe-helvetica-medium-r-normal--40-*-*-*-p-0-iso8859-1",
                             "-urw-nimbus sans l-regular-r-normal--40-0-0-0-p-0-iso8859-1"};
constexpr Twin kTimes = {"-adobe-times-medium-r-normal--40-*-*-*-p-0-iso8859-1",
                         "-urw-nimbus roman no9 l-regular-r-normal--40-0-0-0-p-0-iso8859-1"};

// Degrees times 64: the right angles, one in between, and one that lands
// on no pixel grid at all.
constexpr int kAngles[] = {0, 30 * 64, 90 * 64, 180 * 64, 270 * 64, 8800 /* 137.5 degrees */};

unsigned long Named(Display *h, const char *name) {
    XColor screen{}, exact{};
    if (!QlAllocNamedColor(h, QlDefaultColormap(h, 0), name, &screen, &exact)) ADD_FAILURE() << "no colour " << name;
    return screen.pixel;
}

// Row 0: plain strings in Helvetica; row 1: image strings in Times, on
// gold.  Each string turns about the centre of its cell.
qltest::Scene RotatedScene() {
    return {6 * kCell, 2 * kCell, [](Display *h, Drawable d, std::vector<qltest::SceneCell> &cells) {
                GC gc = QlCreateGC(h, d, 0, nullptr);
                QlSetForeground(h, gc, Named(h, "white"));
                QlFillRectangle(h, d, gc, 0, 0, 6 * kCell, 2 * kCell);
                for (int row = 0; row < 2; ++row) {
                    const Twin &face = row == 0 ? kHelvetica : kTimes;
                    XFontStruct *font = QlLoadQueryFont(h, QlIsDisplay(h) ? face.screen : face.printer);
                    if (!font) {
                        ADD_FAILURE() << "no font for row " << row;
                        continue;
                    }
                    QlSetFont(h, gc, font->fid);
                    QlSetForeground(h, gc, Named(h, "navy"));
                    QlSetBackground(h, gc, Named(h, "gold"));
                    for (int col = 0; col < 6; ++col) {
                        const int angle = kAngles[col];
                        const int x = col * kCell, y = row * kCell;
                        cells.push_back({(row ? "image " : "plain ") + std::to_string(angle / 64.0), x, y, kCell,
                                         kCell});
                        if (row == 0)
                            QlDrawRotString(h, d, gc, x + 100, y + 100, "AVgj&", 5, angle);
                        else
                            QlDrawRotImageString(h, d, gc, x + 100, y + 100, "fQy7", 4, angle);
                    }
                    QlFreeFont(h, font);
                }
                QlFreeGC(h, gc);
            }};
}

// The screen turns a bitmap that the X server drew with the font's hints
// and moves each pixel to the turned place nearest its centre; the paper
// fills the turned outlines.  Hints move stems and edges up to 2 pixels
// (as in the unrotated text comparison), so 2 pixels of displacement are
// forgiven, and 4 stray pixels per string, where a resampled pixel of a
// slanted stem rounds to the other side of a hinted edge.
TEST(RotatedScreenEqualsPaper, PlainAndImageStringsAtSixAngles) {
    if (qltest::XvfbDisplayName().empty()) GTEST_SKIP() << qltest::XvfbFailure();
    qltest::SceneResult r = qltest::CompareScreenAndPaper("rotated", RotatedScene(), {}, 2, 4);
    EXPECT_TRUE(r.ok) << r.report << "pictures: " << r.pictures;
}

// ------------------------------------------------------------ on a display

class RotatedOnDisplay : public ::testing::Test {
  protected:
    void SetUp() override {
        if (qltest::XvfbDisplayName().empty()) GTEST_SKIP() << qltest::XvfbFailure();
        dpy = qltest::OpenTestDisplay();
        ASSERT_NE(dpy, nullptr);
        savedSize = rotTextCacheSize;
        pm = XCreatePixmap(dpy, DefaultRootWindow(dpy), kCell, kCell, DefaultDepth(dpy, 0));
        gc = XCreateGC(dpy, pm, 0, nullptr);
        font = XLoadQueryFont(dpy, kHelvetica.screen);
        ASSERT_NE(font, nullptr);
        XSetFont(dpy, gc, font->fid);
        XSetForeground(dpy, gc, BlackPixel(dpy, 0));
        XSetBackground(dpy, gc, Named(dpy, "red"));
        Clear();
    }
    void TearDown() override {
        if (!dpy) return;
        rotTextCacheSize = savedSize;
        if (font) XFreeFont(dpy, font);
        XFreeGC(dpy, gc);
        XFreePixmap(dpy, pm);
        XCloseDisplay(dpy);  // takes its cached bitmaps with it
        EXPECT_EQ(_QlRotTextCacheCount(), 0);
    }
    void Clear() {
        XGCValues white{};
        white.foreground = WhitePixel(dpy, 0);
        GC g = XCreateGC(dpy, pm, GCForeground, &white);
        XFillRectangle(dpy, pm, g, 0, 0, kCell, kCell);
        XFreeGC(dpy, g);
    }
    qltest::Raster Picture() { return qltest::CaptureDrawable(dpy, pm, 0, 0, kCell, kCell); }
    int Draw(const char *s, int angle, bool image = false) {
        return (image ? QlDrawRotImageString : QlDrawRotString)(dpy, pm, gc, 100, 100, s, int(std::strlen(s)),
                                                               angle);
    }

    Display *dpy = nullptr;
    Pixmap pm = 0;
    GC gc = nullptr;
    XFontStruct *font = nullptr;
    int savedSize = 10;
};

// The painted box of a picture: left, top, right, bottom, inclusive.
struct Bounds {
    int x0 = 1 << 30, y0 = 1 << 30, x1 = -1, y1 = -1;
};
Bounds InkBounds(const qltest::Raster &r) {
    Bounds b;
    for (int y = 0; y < r.height; ++y)
        for (int x = 0; x < r.width; ++x)
            if (r.pixel(x, y) != 0xFFFFFF) {
                b.x0 = std::min(b.x0, x), b.y0 = std::min(b.y0, y);
                b.x1 = std::max(b.x1, x), b.y1 = std::max(b.y1, y);
            }
    return b;
}

TEST_F(RotatedOnDisplay, ImageStringFillsItsTurnedBoxPlainStringOnlyItsGlyphs) {
    const int width = XTextWidth(font, "Wg", 2), height = font->ascent + font->descent;
    EXPECT_NE(Draw("Wg", 90 * 64, true), 0);
    qltest::Raster image = Picture();
    // A quarter turn on square pixels: the box's width is the text's height.
    Bounds b = InkBounds(image);
    EXPECT_NEAR(b.x1 - b.x0 + 1, height, 1);
    EXPECT_NEAR(b.y1 - b.y0 + 1, width, 1);
    // It runs upwards from the origin, with the ascent to its left.
    EXPECT_NEAR(b.y1, 100, 1);
    EXPECT_NEAR(b.x0, 100 - font->ascent, 1);
    const long box = static_cast<long>(width) * height;
    EXPECT_NEAR(image.count(0xFF0000) + image.count(0x000000), box, box / 20);
    EXPECT_GT(image.count(0xFF0000), 0);
    EXPECT_GT(image.count(0x000000), 0);

    Clear();
    EXPECT_NE(Draw("Wg", 90 * 64), 0);
    qltest::Raster plain = Picture();
    EXPECT_EQ(plain.count(0xFF0000), 0) << "a plain string paints no background";
    EXPECT_EQ(plain.count(0x000000), image.count(0x000000)) << "the same glyphs in both forms";
}

// Half a turn puts the glyphs upside down, left of the origin and above the
// baseline; a full turn comes back to the unrotated text.
TEST_F(RotatedOnDisplay, HalfTurnMirrorsThroughTheOrigin) {
    Draw("Tj", 180 * 64);
    Bounds b = InkBounds(Picture());
    EXPECT_LE(b.x1, 101);
    EXPECT_LT(b.y0, 100);       // the j's tail stands above the baseline
    EXPECT_GT(b.y1, 100 + 20);  // the T's bar hangs below it

    Clear();
    XDrawString(dpy, pm, gc, 100, 100, "Tj", 2);
    qltest::Raster straight = Picture();
    Clear();
    Draw("Tj", 360 * 64);
    qltest::Raster full = Picture();
    EXPECT_EQ(qltest::CompareRasters(straight, full, 0).differing, 0);
}

TEST_F(RotatedOnDisplay, EmptyStringsAndBadDrawablesDrawNothingAndDoNotEndTheProgram) {
    EXPECT_EQ(QlDrawRotString(dpy, pm, gc, 100, 100, "", 0, 30 * 64), 0);
    EXPECT_EQ(QlDrawRotImageString(dpy, pm, gc, 100, 100, nullptr, 3, 30 * 64), 0);
    EXPECT_EQ(InkBounds(Picture()).x1, -1);
    // No such drawable: the server's errors are the call's, not fatal.
    QlDrawRotString(dpy, 0x7ffffff, gc, 100, 100, "A", 1, 30 * 64);
    QlDrawRotImageString(dpy, 0x7ffffff, gc, 100, 100, "A", 1, 30 * 64);
    XSync(dpy, False);
    EXPECT_EQ(_QlRotTextCacheCount(), 0);
}

// ------------------------------------------------------------ the cache

TEST_F(RotatedOnDisplay, SecondIdenticalCallUsesTheCachedBitmap) {
    Draw("Hi", 30 * 64);
    ASSERT_EQ(_QlRotTextCacheCount(), 1);
    int angle = 0;
    const Pixmap cached = _QlRotTextCacheEntry(0, &angle);
    EXPECT_EQ(angle, 30 * 64);
    qltest::Raster first = Picture();

    // Ink the whole cached bitmap: a call that uses it paints its box.
    GC ones = XCreateGC(dpy, cached, 0, nullptr);
    XSetForeground(dpy, ones, 1);
    Window root;
    int x, y;
    unsigned w, h, border, depth;
    XGetGeometry(dpy, cached, &root, &x, &y, &w, &h, &border, &depth);
    XFillRectangle(dpy, cached, ones, 0, 0, w, h);
    XFreeGC(dpy, ones);
    Clear();
    Draw("Hi", 30 * 64);
    EXPECT_EQ(_QlRotTextCacheCount(), 1);
    EXPECT_EQ(_QlRotTextCacheEntry(0, nullptr), cached);
    EXPECT_EQ(Picture().count(0x000000), long(w) * h) << "the cached bitmap, stamped whole";
    EXPECT_LT(first.count(0x000000), long(w) * h / 2);

    // Another angle, another font or other text: each a bitmap of its own.
    Draw("Hi", 31 * 64);
    Draw("Ho", 30 * 64);
    XFontStruct *times = XLoadQueryFont(dpy, kTimes.screen);
    ASSERT_NE(times, nullptr);
    XSetFont(dpy, gc, times->fid);
    Draw("Hi", 30 * 64);
    XSetFont(dpy, gc, font->fid);
    XFreeFont(dpy, times);
    EXPECT_EQ(_QlRotTextCacheCount(), 4);
}

TEST_F(RotatedOnDisplay, CacheHoldsAtMostItsSizeAndFollowsChangesOfIt) {
    EXPECT_EQ(rotTextCacheSize, 10);
    const char *texts[] = {"a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k"};
    for (const char *t : texts) Draw(t, 45 * 64);
    EXPECT_EQ(_QlRotTextCacheCount(), 10) << "the eleventh pushes out the oldest";
    const Pixmap newest = _QlRotTextCacheEntry(0, nullptr);
    Draw("k", 45 * 64);
    EXPECT_EQ(_QlRotTextCacheEntry(0, nullptr), newest);
    Draw("a", 45 * 64);  // pushed out: drawn afresh, at the front
    EXPECT_NE(_QlRotTextCacheEntry(0, nullptr), newest);
    EXPECT_EQ(_QlRotTextCacheEntry(1, nullptr), newest);

    rotTextCacheSize = 3;
    Draw("x", 45 * 64);
    EXPECT_EQ(_QlRotTextCacheCount(), 3);
    rotTextCacheSize = 0;
    Draw("y", 45 * 64);
    EXPECT_EQ(_QlRotTextCacheCount(), 0);
    EXPECT_GT(InkBounds(Picture()).x1, 0) << "drawn all the same";
    rotTextCacheSize = 5;
    Draw("z", 45 * 64);
    EXPECT_EQ(_QlRotTextCacheCount(), 1);
}

// A hit moves its entry one place forward, no further; big bitmaps and
// other keys miss.
TEST_F(RotatedOnDisplay, HitMovesOnePlaceAndBigBitmapsAreNotKept) {
    Pixmap p = 0, made[4] = {};
    EXPECT_EQ(QlGetCachedRotText(dpy, 0, "f", "s", 1, &p, 10), 0);
    for (Pixmap &m : made) m = XCreatePixmap(dpy, pm, 1, 1, 1);
    EXPECT_EQ(QlSetCachedRotText(dpy, 64, "f", "big", 3, made[0], 1000001), 0);
    XFreePixmap(dpy, made[0]);
    // Entries by angle: 3 at the front, then 2, then 1.
    for (int i = 1; i <= 3; ++i) EXPECT_EQ(QlSetCachedRotText(dpy, i, "f", "s", 1, made[i], 10), 1);
    EXPECT_EQ(QlGetCachedRotText(dpy, 1, "f", "s", 1, &p, 10), 1);
    EXPECT_EQ(p, made[1]);
    EXPECT_EQ(_QlRotTextCacheEntry(1, nullptr), made[1]);
    EXPECT_EQ(_QlRotTextCacheEntry(2, nullptr), made[2]);
    EXPECT_EQ(QlGetCachedRotText(dpy, 1, "g", "s", 1, &p, 10), 0) << "other font";
    EXPECT_EQ(QlGetCachedRotText(dpy, 1, "f", "t", 1, &p, 10), 0) << "other text";
    EXPECT_EQ(QlGetCachedRotText(dpy, 1, "f", "s", 1, &p, 1000001), 0) << "too big to be kept";
    EXPECT_EQ(_QlRotTextCacheCount(), 3);
}

}  // namespace
