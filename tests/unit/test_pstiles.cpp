// Tiles and stipples on PostScript printers: the pattern cache of level 2
// and the halftone tiles of level 1, and fills that look on paper as they
// do on a TrueColor screen.
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses

#include "drivers/ps/ps.h"
#include "support/capture.h"
#include "support/gs.h"
#include "support/image_util.h"
#include "support/raster.h"
#include "support/scene.h"
#include "support/tempdir.h"
#include "support/xvfb.h"

#include <string>
#include <vector>

using qltest::ImagePtr;
using qltest::MakeImage;
using qltest::MessageCapture;
using qltest::ReadFile;

namespace {

unsigned long Named(Display *h, const char *name) {
  XColor screen{}, exact{};
  QlAllocNamedColor(h, QlDefaultColormap(h, 0), name, &screen, &exact);
  return screen.pixel;
}

// A pixmap of the handle's kind (an X pixmap, or an image on a printer)
// with the pixels of `fill`; the caller frees it with QlFreePixmap.
Pixmap MakePixmap(Display *h, Drawable d, int depth, int w, int height,
                  const std::function<unsigned long(int, int)> &fill) {
  Pixmap pm = QlCreatePixmap(h, d, static_cast<unsigned>(w), static_cast<unsigned>(height),
                             static_cast<unsigned>(depth));
  // XYPixmap: the bits themselves, not the GC's colours.
  ImagePtr image(MakeImage(h, depth, depth == 1 ? XYPixmap : ZPixmap, w, height, fill));
  GC gc = QlCreateGC(h, pm, 0, nullptr);
  QlPutImage(h, pm, gc, image.get(), 0, 0, 0, 0, static_cast<unsigned>(w), static_cast<unsigned>(height));
  QlFreeGC(h, gc);
  return pm;
}

constexpr int kCell = 200;

// Fills with tiles and stipples through the same calls on both handles.
void DrawPatterns(Display *h, Drawable d, std::vector<qltest::SceneCell> &cells) {
  if (!QlIsDisplay(h)) QlSetPSLevel(h, 2);
  const int depth = QlDefaultDepth(h, 0);
  const unsigned long red = Named(h, "red"), navy = Named(h, "navy"), gold = Named(h, "gold"),
                      green = Named(h, "forest green"), blue = Named(h, "steel blue"), white = Named(h, "white");
  // A tile whose four quarters and diagonal show any flip or shift.
  const Pixmap tile = MakePixmap(h, d, depth, 16, 12, [&](int x, int y) {
    if (x == y) return navy;
    return x < 8 ? (y < 6 ? red : gold) : (y < 6 ? white : green);
  });
  const Pixmap stipple = MakePixmap(h, d, 1, 12, 10, [](int x, int y) {
    return static_cast<unsigned long>((x < 3 && y < 8) || (y > 6 && x < 10) || (x == 9 && y == 2));
  });
  GC bg = QlCreateGC(h, d, 0, nullptr);
  QlSetForeground(h, bg, white);
  QlFillRectangle(h, d, bg, 0, 0, 3 * kCell, 2 * kCell);
  QlFreeGC(h, bg);
  int at = 0;
  auto cell = [&](const std::string &name, auto body) {
    const int x0 = at % 3 * kCell, y0 = at / 3 * kCell;
    ++at;
    cells.push_back({name, x0, y0, kCell, kCell});
    GC gc = QlCreateGC(h, d, 0, nullptr);
    body(gc, x0, y0);
    QlFreeGC(h, gc);
  };
  cell("tiled fills", [&](GC gc, int x, int y) {
    QlSetTile(h, gc, tile);
    QlSetFillStyle(h, gc, FillTiled);
    QlFillRectangle(h, d, gc, x + 10, y + 10, 90, 70);
    QlFillArc(h, d, gc, x + 110, y + 10, 80, 80, 0, 360 * 64);
    XPoint tri[] = {{short(x + 10), short(y + 190)}, {short(x + 100), short(y + 100)}, {short(x + 190), short(y + 190)}};
    QlFillPolygon(h, d, gc, tri, 3, Convex, CoordModeOrigin);
  });
  cell("tile origin and a thick line", [&](GC gc, int x, int y) {
    QlSetTile(h, gc, tile);
    QlSetFillStyle(h, gc, FillTiled);
    QlSetTSOrigin(h, gc, x + 5, y + 7);
    QlFillRectangle(h, d, gc, x + 10, y + 10, 180, 90);
    QlSetLineAttributes(h, gc, 24, LineSolid, CapButt, JoinMiter);
    QlDrawLine(h, d, gc, x + 20, y + 150, x + 180, y + 150);
  });
  cell("stipples in the foreground", [&](GC gc, int x, int y) {
    QlSetForeground(h, gc, blue);
    QlFillRectangle(h, d, gc, x + 40, y + 40, 120, 120);
    QlSetStipple(h, gc, stipple);
    QlSetFillStyle(h, gc, FillStippled);
    QlSetForeground(h, gc, red);
    QlFillRectangle(h, d, gc, x + 10, y + 10, 180, 90);
    QlSetForeground(h, gc, green);
    QlSetTSOrigin(h, gc, 3, 4);
    // Upright edges: at a curve or a slant the two rasterizers may differ
    // by a pixel, which a sparse stipple doesn't hide.
    XPoint ell[] = {{short(x + 20), short(y + 110)}, {short(x + 180), short(y + 110)},
                    {short(x + 180), short(y + 150)}, {short(x + 90), short(y + 150)},
                    {short(x + 90), short(y + 190)}, {short(x + 20), short(y + 190)}};
    QlFillPolygon(h, d, gc, ell, 6, Nonconvex, CoordModeOrigin);
  });
  cell("opaque stipples", [&](GC gc, int x, int y) {
    QlSetStipple(h, gc, stipple);
    QlSetFillStyle(h, gc, FillOpaqueStippled);
    QlSetForeground(h, gc, navy);
    QlSetBackground(h, gc, gold);
    QlFillRectangle(h, d, gc, x + 10, y + 10, 180, 80);
    QlSetBackground(h, gc, white);
    QlSetForeground(h, gc, red);
    QlFillRectangle(h, d, gc, x + 10, y + 110, 180, 80);
  });
  cell("tile, solid, stipple, tile", [&](GC gc, int x, int y) {
    // The tile and the stipple side by side.
    XGCValues v{};
    v.tile = tile;
    v.stipple = stipple;
    QlChangeGC(h, gc, GCTile | GCStipple, &v);
    QlSetForeground(h, gc, green);
    QlSetFillStyle(h, gc, FillTiled);
    QlFillRectangle(h, d, gc, x + 10, y + 10, 180, 40);
    QlSetFillStyle(h, gc, FillSolid);
    QlFillRectangle(h, d, gc, x + 10, y + 55, 180, 40);
    QlSetFillStyle(h, gc, FillStippled);
    QlFillRectangle(h, d, gc, x + 10, y + 100, 180, 40);
    QlSetFillStyle(h, gc, FillTiled);
    QlFillRectangle(h, d, gc, x + 10, y + 145, 180, 45);
  });
  cell("bitmap and pixmap images", [&](GC gc, int x, int y) {
    ImagePtr bits(MakeImage(h, 1, XYBitmap, 60, 50, [](int px, int py) { return static_cast<unsigned long>((px / 5 + py / 7) % 2); }));
    ImagePtr colours(MakeImage(h, depth, ZPixmap, 70, 60, [&](int px, int py) {
      return px < 35 ? (py < 30 ? red : gold) : (py < 30 ? navy : green);
    }));
    QlSetForeground(h, gc, red);
    QlSetBackground(h, gc, navy);
    QlPutImage(h, d, gc, bits.get(), 0, 0, x + 10, y + 10, 60, 50);
    QlPutImage(h, d, gc, colours.get(), 0, 0, x + 100, y + 100, 70, 60);
    // Only what lies inside the image is drawn, over what is there.
    QlPutImage(h, d, gc, colours.get(), 50, 40, x + 20, y + 120, 70, 60);
  });
  QlFreePixmap(h, tile);
  QlFreePixmap(h, stipple);
}

TEST(PSTiles, PatternsOnPaperAreTheScreensPatterns) {
  if (qltest::XvfbDisplayName().empty()) GTEST_SKIP() << qltest::XvfbFailure();
  MessageCapture messages;
  qltest::SceneResult r = qltest::CompareScreenAndPaper("patterns", {3 * kCell, 2 * kCell, DrawPatterns});
  EXPECT_TRUE(r.ok) << r.report << "pictures: " << r.pictures;
}

// A level 2 colour page, unless told, with tiles to fill with.
struct Doc : qltest::PrintedPage {
  explicit Doc(int level = 2, bool colour = true) : PrintedPage(level, colour) {}
  std::string since() { return Since(); }
  Pixmap Tile(int seed, int depth = 8) {
    return MakePixmap(d, 0, depth, 4, 2, [seed](int x, int y) { return static_cast<unsigned long>((x + y + seed) % 2); });
  }
  void Fill(Pixmap tile) {
    QlSetTile(d, gc, tile);
    QlSetFillStyle(d, gc, FillTiled);
    QlFillRectangle(d, 0, gc, 0, 0, 10, 10);
  }
};

size_t Count(const std::string &text, const std::string &what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

TEST(PSTiles, TheCacheDefinesEachPatternOnceAndTakesTheOldestBack) {
  MessageCapture messages;
  Doc doc;
  std::vector<Pixmap> tiles;
  for (int i = 0; i < 18; ++i) tiles.push_back(doc.Tile(i));
  doc.Fill(tiles[0]);
  EXPECT_EQ(doc.since(),
            "gr gs\n0.0 0.0 0.0 RGB\n0.240 sw\n[] 0 setdash\n0 sc\n0 sj\n"
            "<</PaintType 1/PatternType 1/TilingType 3/BBox [0 0 1 1]/XStep 1/YStep 1\n/tile-image-1 <\n"
            "000000ffffff000000ffffff\nffffff000000ffffff000000\n>def\n"
            "/PaintProc{begin 4 2 8[4 0 0 -2 0 2]{tile-image-1}false 3 colorimage\nend}\n"
            ">> [0.96 0 0 -0.48 0 0] makepattern /tile-1 exch def\n"
            "/Pattern setcolorspace tile-1 setcolor\n"
            "gs np 0.00 0.00 t 0.00 2.40 lo 2.40 2.40 lo 2.40 0.00 lo cp f st gr\n");
  // Another GC with the same tile uses the same definition.
  GC twin = QlCreateGC(doc.d, 0, 0, nullptr);
  QlSetTile(doc.d, twin, tiles[0]);
  QlSetFillStyle(doc.d, twin, FillTiled);
  QlFillRectangle(doc.d, 0, twin, 0, 0, 10, 10);
  EXPECT_EQ(Count(doc.since(), "makepattern"), 0u);
  QlFreeGC(doc.d, twin);
  // Sixteen tiles fill the list; the seventeenth takes the oldest back.
  for (int i = 1; i < 16; ++i) doc.Fill(tiles[i]);
  EXPECT_EQ(Count(doc.since(), "undef"), 0u);
  doc.Fill(tiles[16]);
  EXPECT_NE(doc.since().find("currentdict /tile-1 undef\n"), std::string::npos);
  // A tile that fell out with it is defined again under its own name; the
  // newest is still listed.
  doc.Fill(tiles[4]);
  EXPECT_NE(doc.since().find("makepattern /tile-5 exch def\n/Pattern setcolorspace tile-5 setcolor\n"),
            std::string::npos);
  doc.Fill(tiles[16]);
  EXPECT_EQ(doc.since(), "/Pattern setcolorspace tile-17 setcolor\ngs np 0.00 0.00 t 0.00 2.40 lo 2.40 2.40 lo 2.40 0.00 lo cp f st gr\n");
  // Freeing a listed tile takes its definition back; an unlisted one
  // writes nothing.
  QlFreePixmap(doc.d, tiles[16]);
  EXPECT_EQ(doc.since(), "currentdict /tile-17 undef\n");
  QlFreePixmap(doc.d, tiles[17]);
  EXPECT_EQ(doc.since(), "");
  // Destroying the image does the same, for every printer.
  QlDestroyImage(reinterpret_cast<XImage *>(tiles[4]));
  EXPECT_EQ(doc.since(), "currentdict /tile-5 undef\n");
  for (int i = 0; i < 16; ++i)
    if (i != 4) QlFreePixmap(doc.d, tiles[i]);
  doc.Finish();
  EXPECT_TRUE(qltest::RendersCleanly(doc.out));
}

// Rendered without the screen harness's registration (rectangles with
// whole-dot corners need none under X's pixel rule), a pattern's pixels lie
// exactly where X puts the tile's: pixel (x, y) of the drawable shows the
// tile's pixel at x and y less the tile origin, modulo its size.
TEST(PSTiles, PatternPhaseIsTheTileOrigin) {
  MessageCapture messages;
  Doc doc;
  const unsigned long red = Named(doc.d, "red"), blue = Named(doc.d, "blue"), white = Named(doc.d, "white");
  Pixmap tile = MakePixmap(doc.d, 0, 8, 7, 5, [&](int x, int y) { return x == y ? blue : x < 3 && y < 4 ? red : white; });
  Pixmap stipple = MakePixmap(doc.d, 0, 1, 5, 3, [](int x, int y) { return static_cast<unsigned long>(x + y == 3); });
  QlSetTSOrigin(doc.d, doc.gc, 3, -2);
  doc.Fill(tile);
  XGCValues v{};
  v.stipple = stipple;
  v.fill_style = FillOpaqueStippled;
  v.foreground = blue;
  v.background = red;
  QlChangeGC(doc.d, doc.gc, GCStipple | GCFillStyle | GCForeground | GCBackground, &v);
  QlFillRectangle(doc.d, 0, doc.gc, 0, 20, 30, 10);
  doc.Finish();
  qltest::WriteFile(doc.dir / "plain.ps", "%!PS\n0 0 .setfilladjust2\n" + ReadFile(doc.out));
  std::optional<qltest::Raster> paper = qltest::RenderPostScript(doc.dir / "plain.ps", 300, 75, 75, 30, 30);
  ASSERT_TRUE(paper);
  const uint32_t R = 0xFF0000, B = 0x0000FF, W = 0xFFFFFF;
  auto mod = [](int a, int n) { return (a % n + n) % n; };
  long wrong = 0;
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 10; ++x) {
      const int tx = mod(x - 3, 7), ty = mod(y + 2, 5);
      wrong += paper->pixel(x, y) != (tx == ty ? B : tx < 3 && ty < 4 ? R : W);
      // The opaque stipple in the GC's two colours.
      wrong += paper->pixel(x, y + 20) != (mod(x - 3, 5) + mod(y + 20 + 2, 3) == 3 ? B : R);
    }
  EXPECT_EQ(wrong, 0);
  QlFreePixmap(doc.d, tile);
  QlFreePixmap(doc.d, stipple);
}

// What a program of tiled fills over two pages writes.
std::string TwoPages(const std::string &out, bool grey) {
  Display *d = QlVaOpenPrinter(nullptr, ("cat >" + out).c_str(), "PostScript", 0);
  QlSetPSLevel(d, 2);
  QlSetPSColor(d, !grey);
  QlSetCreationDate(d, 0);
  GC gc = QlCreateGC(d, 0, 0, nullptr);
  const unsigned long red = Named(d, "red"), blue = Named(d, "blue");
  Pixmap tile = MakePixmap(d, 0, 8, 4, 4, [&](int x, int) { return x < 2 ? red : blue; });
  Pixmap stipple = MakePixmap(d, 0, 1, 2, 2, [](int x, int y) { return static_cast<unsigned long>(x == y); });
  QlStartDoc(d, "pages");
  for (int page = 0; page < 2; ++page) {
    QlStartPage(d);
    QlSetTile(d, gc, tile);
    QlSetFillStyle(d, gc, FillTiled);
    QlFillRectangle(d, 0, gc, 0, 0, 40, 20);
    QlSetFillStyle(d, gc, FillSolid);
    QlFillRectangle(d, 0, gc, 0, 20, 40, 20);
    QlSetFillStyle(d, gc, FillTiled);
    QlFillRectangle(d, 0, gc, 0, 40, 40, 20);
    QlSetStipple(d, gc, stipple);
    QlSetFillStyle(d, gc, FillOpaqueStippled);
    QlFillRectangle(d, 0, gc, 0, 60, 40, 20);
    QlEndPage(d);
  }
  QlEndDoc(d);
  QlFreeGC(d, gc);
  QlFreePixmap(d, tile);
  QlFreePixmap(d, stipple);
  QlClosePrinter(d);
  return ReadFile(out);
}

TEST(PSTiles, PatternsLastThroughPagesAndRunsWriteTheSameBytes) {
  MessageCapture messages;
  qltest::TempDir dir;
  for (bool grey : {false, true}) {
    SCOPED_TRACE(grey ? "grey" : "colour");
    const std::string first = TwoPages(dir / "a.ps", grey), second = TwoPages(dir / "b.ps", grey);
    EXPECT_EQ(first, second);
    // The page's restore takes its patterns away: the second page defines
    // them again.
    EXPECT_EQ(Count(first, "makepattern /tile-1 exch def"), 2u);
    // The solid fill between the tiled ones doesn't leave the pattern
    // unselected, in grey as in colour.
    EXPECT_EQ(Count(first, "/Pattern setcolorspace tile-1 setcolor"), 4u);
    EXPECT_TRUE(qltest::RendersCleanly(dir / "a.ps"));
    // The second page alone.
    qltest::WriteFile(dir / "second.ps", "%!PS\n<< /EndPage {exch 1 eq exch 0 eq and} >> setpagedevice\n" + first);
    std::optional<qltest::Raster> paper = qltest::RenderPostScript(dir / "second.ps", 300, 75, 75, 40, 80);
    ASSERT_TRUE(paper);
    const uint32_t r = grey ? 0x4C4C4C : 0xFF0000, b = grey ? 0x1D1D1D : 0x0000FF;
    for (int y : {0, 10, 41, 59})
      for (int x = 0; x < 8; ++x) EXPECT_EQ(paper->pixel(x, y), x % 4 < 2 ? r : b) << x << "," << y;
    EXPECT_EQ(paper->pixel(0, 30), 0u);
  }
}

TEST(PSTiles, LevelOneTilesAreHalftoneScreens) {
  MessageCapture messages;
  Doc doc(1, false);
  Pixmap bits = doc.Tile(0, 1);
  doc.Fill(bits);
  EXPECT_NE(doc.since().find("/tile_1 <\na0\n50\n> d\ntile_1 4 2 1 90 4 2 c sqrt 1.000 c setpattern\n"
                             "gs np 0.00 0.00 t 0.00 2.40 lo 2.40 2.40 lo 2.40 0.00 lo cp f st gr\n"),
            std::string::npos);
  // A deeper tile is halftoned to its bits first, black as black.
  Pixmap deep = MakePixmap(doc.d, 0, 8, 3, 3, [](int, int) { return 0UL; });
  doc.Fill(deep);
  EXPECT_NE(doc.since().find("/tile_2 <\ne0\ne0\ne0\n> d\ntile_2 3 3 1 90 3 3 c sqrt 1.000 c setpattern\n"),
            std::string::npos);
  QlFreePixmap(doc.d, bits);
  QlFreePixmap(doc.d, deep);
  doc.Finish();
  EXPECT_TRUE(qltest::RendersCleanly(doc.out));
}

}  // namespace
