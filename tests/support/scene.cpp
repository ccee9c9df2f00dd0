#include "support/scene.h"

#include "support/raster.h"
#include "support/tempdir.h"
#include "support/xvfb.h"

#include <cmath>
#include <cstdio>
#include <sstream>

namespace qltest {
namespace {

constexpr int kCell = 200;

unsigned long Named(Display *h, const char *name) {
  XColor screen{}, exact{};
  if (!QlAllocNamedColor(h, QlDefaultColormap(h, 0), name, &screen, &exact)) ADD_FAILURE() << "no colour " << name;
  return screen.pixel;
}

// Draws one cell: a fresh GC, the cell's origin, and its name.
struct Painter {
  Display *h;
  Drawable d;
  std::vector<SceneCell> &cells;
  int col = 0, row = 0;

  template <typename F>
  void cell(const std::string &name, F body) {
    const int x0 = col * kCell, y0 = row * kCell;
    cells.push_back({name, x0, y0, kCell, kCell});
    GC gc = QlCreateGC(h, d, 0, nullptr);
    QlSetForeground(h, gc, Named(h, "black"));
    body(gc, x0, y0);
    QlFreeGC(h, gc);
    if (++col == 6) {
      col = 0;
      ++row;
    }
  }
};

// A white ground under `rows` rows of cells.
void Whiten(Display *h, Drawable d, int rows) {
  GC bg = QlCreateGC(h, d, 0, nullptr);
  QlSetForeground(h, bg, Named(h, "white"));
  QlFillRectangle(h, d, bg, 0, 0, 6 * kCell, static_cast<unsigned>(rows * kCell));
  QlFreeGC(h, bg);
}

void DrawPrimitives(Display *h, Drawable d, std::vector<SceneCell> &cells) {
  Whiten(h, d, 5);
  Painter p{h, d, cells};
  const int caps[] = {CapButt, CapRound, CapProjecting};
  const int joins[] = {JoinMiter, JoinRound, JoinBevel};

  // Row 0: lines of every width and cap, in all directions.
  for (unsigned width : {0u, 1u, 12u}) {
    p.cell("lines width " + std::to_string(width), [&](GC gc, int x, int y) {
      for (int i = 0; i < 3; ++i) {
        QlSetLineAttributes(h, gc, width, LineSolid, caps[i], JoinMiter);
        QlDrawLine(h, d, gc, x + 20, y + 20 + 50 * i, x + 180, y + 30 + 50 * i);
      }
      QlDrawLine(h, d, gc, x + 30, y + 170, x + 30, y + 140);
      QlDrawLine(h, d, gc, x + 60, y + 140, x + 170, y + 185);
    });
  }
  p.cell("segments and points", [&](GC gc, int x, int y) {
    XSegment segs[] = {{short(x + 10), short(y + 10), short(x + 190), short(y + 100)},
                       {short(x + 190), short(y + 10), short(x + 10), short(y + 100)}};
    QlSetLineAttributes(h, gc, 4, LineSolid, CapButt, JoinMiter);
    QlDrawSegments(h, d, gc, segs, 2);
    QlSetForeground(h, gc, Named(h, "blue"));
    for (int i = 0; i < 10; ++i) QlDrawPoint(h, d, gc, x + 20 + 16 * i, y + 150);
    XPoint rel[] = {{short(x + 20), short(y + 180)}, {20, 0}, {20, 0}, {20, -10}};
    QlDrawPoints(h, d, gc, rel, 4, CoordModePrevious);
  });
  p.cell("rectangles", [&](GC gc, int x, int y) {
    QlDrawRectangle(h, d, gc, x + 10, y + 10, 80, 60);
    QlSetLineAttributes(h, gc, 10, LineSolid, CapButt, JoinMiter);
    QlDrawRectangle(h, d, gc, x + 110, y + 20, 70, 50);
    QlSetForeground(h, gc, Named(h, "dark green"));
    QlFillRectangle(h, d, gc, x + 20, y + 100, 60, 80);
    XRectangle rs[] = {{short(x + 100), short(y + 100), 30, 30}, {short(x + 140), short(y + 140), 40, 40}};
    QlFillRectangles(h, d, gc, rs, 2);
  });
  p.cell("colours", [&](GC gc, int x, int y) {
    const char *names[] = {"red", "orange", "yellow", "lime green", "steel blue", "purple", "gray50", "saddle brown"};
    for (int i = 0; i < 8; ++i) {
      QlSetForeground(h, gc, Named(h, names[i]));
      QlFillRectangle(h, d, gc, x + 10 + (i % 4) * 45, y + 20 + (i / 4) * 80, 40, 70);
    }
  });

  // Row 1: joins, and polylines in both coordinate modes.
  for (int j = 0; j < 3; ++j) {
    p.cell("joins " + std::to_string(j), [&](GC gc, int x, int y) {
      QlSetLineAttributes(h, gc, 16, LineSolid, caps[j], joins[j]);
      XPoint zig[] = {{short(x + 20), short(y + 30)}, {short(x + 100), short(y + 80)}, {short(x + 170), short(y + 30)},
                      {short(x + 150), short(y + 170)}, {short(x + 40), short(y + 120)}};
      QlDrawLines(h, d, gc, zig, 5, CoordModeOrigin);
    });
  }
  p.cell("relative polyline and closed outline", [&](GC gc, int x, int y) {
    QlSetLineAttributes(h, gc, 6, LineSolid, CapButt, JoinRound);
    XPoint rel[] = {{short(x + 20), short(y + 20)}, {60, 0}, {0, 40}, {60, 20}};
    QlDrawLines(h, d, gc, rel, 4, CoordModePrevious);
    QlSetLineAttributes(h, gc, 10, LineSolid, CapButt, JoinMiter);
    XPoint tri[] = {{short(x + 40), short(y + 110)}, {short(x + 160), short(y + 110)}, {short(x + 100), short(y + 180)},
                    {short(x + 40), short(y + 110)}};
    QlDrawLines(h, d, gc, tri, 4, CoordModeOrigin);
  });
  p.cell("long polyline", [&](GC gc, int x, int y) {
    QlSetLineAttributes(h, gc, 5, LineSolid, CapButt, JoinMiter);
    std::vector<XPoint> wave;
    for (int i = 0; i < 75; ++i)
      wave.push_back({short(x + 10 + i * 180 / 74), short(y + 100 + 70 * std::sin(i * 0.35))});
    QlDrawLines(h, d, gc, wave.data(), static_cast<int>(wave.size()), CoordModeOrigin);
  });
  p.cell("dashes", [&](GC gc, int x, int y) {
    QlSetLineAttributes(h, gc, 1, LineOnOffDash, CapButt, JoinMiter);
    QlDrawLine(h, d, gc, x + 10, y + 20, x + 190, y + 20);
    const char list[] = {20, 6, 4, 6};
    QlSetDashes(h, gc, 7, list, 4);
    QlSetLineAttributes(h, gc, 6, LineOnOffDash, CapButt, JoinMiter);
    QlDrawLine(h, d, gc, x + 10, y + 60, x + 190, y + 60);
    QlDrawLine(h, d, gc, x + 20, y + 80, x + 20, y + 190);
    const char odd[] = {12, 5, 3};
    QlSetDashes(h, gc, 0, odd, 3);
    QlSetLineAttributes(h, gc, 4, LineOnOffDash, CapRound, JoinRound);
    QlDrawRectangle(h, d, gc, x + 50, y + 100, 120, 70);
  });

  // Row 2: arcs in every quadrant, negative extents, ellipses.
  p.cell("arcs width 1", [&](GC gc, int x, int y) {
    QlSetLineAttributes(h, gc, 1, LineSolid, CapButt, JoinMiter);
    QlDrawArc(h, d, gc, x + 10, y + 10, 80, 80, 0, 90 * 64);
    QlDrawArc(h, d, gc, x + 110, y + 10, 80, 80, 90 * 64, 135 * 64);
    QlDrawArc(h, d, gc, x + 10, y + 110, 80, 80, 200 * 64, -100 * 64);
    QlDrawArc(h, d, gc, x + 110, y + 110, 80, 60, -45 * 64, 360 * 64);
  });
  p.cell("arcs thick", [&](GC gc, int x, int y) {
    QlSetLineAttributes(h, gc, 10, LineSolid, CapButt, JoinMiter);
    QlDrawArc(h, d, gc, x + 15, y + 15, 70, 70, 45 * 64, 270 * 64);
    QlSetLineAttributes(h, gc, 8, LineSolid, CapRound, JoinMiter);
    QlDrawArc(h, d, gc, x + 110, y + 20, 80, 40, 300 * 64, -200 * 64);
    QlSetForeground(h, gc, Named(h, "red"));
    QlSetLineAttributes(h, gc, 12, LineSolid, CapButt, JoinMiter);
    QlDrawArc(h, d, gc, x + 20, y + 110, 160, 80, 0, 360 * 64);
  });
  p.cell("pie slices", [&](GC gc, int x, int y) {
    QlSetForeground(h, gc, Named(h, "orange"));
    QlFillArc(h, d, gc, x + 10, y + 10, 80, 80, 30 * 64, 120 * 64);
    QlFillArc(h, d, gc, x + 110, y + 10, 80, 80, 0, -270 * 64);
    QlFillArc(h, d, gc, x + 10, y + 110, 180, 80, 100 * 64, 200 * 64);
  });
  p.cell("chords", [&](GC gc, int x, int y) {
    QlSetArcMode(h, gc, ArcChord);
    QlSetForeground(h, gc, Named(h, "purple"));
    QlFillArc(h, d, gc, x + 10, y + 10, 80, 80, 30 * 64, 200 * 64);
    QlFillArc(h, d, gc, x + 110, y + 10, 80, 120, 300 * 64, -150 * 64);
    QlFillArc(h, d, gc, x + 20, y + 140, 160, 50, 0, 360 * 64);
  });
  p.cell("polygons even-odd", [&](GC gc, int x, int y) {
    XPoint star[] = {{short(x + 100), short(y + 10)}, {short(x + 150), short(y + 180)}, {short(x + 10), short(y + 70)},
                     {short(x + 190), short(y + 70)}, {short(x + 50), short(y + 180)}};
    QlSetForeground(h, gc, Named(h, "steel blue"));
    QlFillPolygon(h, d, gc, star, 5, Complex, CoordModeOrigin);
  });
  p.cell("polygons winding, relative", [&](GC gc, int x, int y) {
    XPoint star[] = {{short(x + 100), short(y + 10)}, {short(x + 150), short(y + 120)}, {short(x + 10), short(y + 50)},
                     {short(x + 190), short(y + 50)}, {short(x + 50), short(y + 120)}};
    QlSetFillRule(h, gc, WindingRule);
    QlFillPolygon(h, d, gc, star, 5, Complex, CoordModeOrigin);
    XPoint rel[] = {{short(x + 20), short(y + 140)}, {60, 0}, {20, 50}, {-80, 0}};
    QlSetForeground(h, gc, Named(h, "dark green"));
    QlFillPolygon(h, d, gc, rel, 4, Convex, CoordModePrevious);
  });

  // Row 3: clipping.
  p.cell("clip rectangles", [&](GC gc, int x, int y) {
    XRectangle clip[] = {{0, 0, 80, 80}, {100, 60, 90, 130}};
    QlSetClipRectangles(h, gc, x + 10, y + 10, clip, 2, Unsorted);
    QlSetForeground(h, gc, Named(h, "red"));
    QlFillArc(h, d, gc, x + 20, y + 20, 160, 160, 0, 360 * 64);
    QlSetForeground(h, gc, Named(h, "black"));
    QlSetLineAttributes(h, gc, 6, LineSolid, CapButt, JoinMiter);
    QlDrawLine(h, d, gc, x, y + 200, x + 200, y);
  });
  p.cell("clip moved and cleared", [&](GC gc, int x, int y) {
    XRectangle clip{0, 0, 100, 100};
    QlSetClipRectangles(h, gc, x + 50, y + 50, &clip, 1, Unsorted);
    QlFillRectangle(h, d, gc, x, y, 200, 200);
    QlSetClipMask(h, gc, 0);
    QlSetForeground(h, gc, Named(h, "blue"));
    QlFillRectangle(h, d, gc, x + 10, y + 10, 30, 30);
  });
  p.cell("double dashes", [&](GC gc, int x, int y) {
    QlSetBackground(h, gc, Named(h, "gold"));
    QlSetForeground(h, gc, Named(h, "navy"));
    const char list[] = {16, 8};
    QlSetDashes(h, gc, 0, list, 2);
    QlSetLineAttributes(h, gc, 8, LineDoubleDash, CapButt, JoinMiter);
    QlDrawLine(h, d, gc, x + 10, y + 20, x + 190, y + 20);
    XPoint bend[] = {{short(x + 30), short(y + 120)}, {short(x + 30), short(y + 60)}, {short(x + 170), short(y + 60)},
                     {short(x + 170), short(y + 110)}};
    QlDrawLines(h, d, gc, bend, 4, CoordModeOrigin);
    QlDrawArc(h, d, gc, x + 40, y + 130, 120, 60, 0, 300 * 64);
  });
}

// One face in two names: the printer's font list and the X server's Type 1
// directory, which holds the same outlines under the foundry's names.
struct TwinFace {
  const char *printer, *screen;
};
// A printer without a PPD has 21 resident faces; twelve of them here.
constexpr TwinFace kTwinFaces[] = {
    {"-adobe-helvetica-medium-r-normal--%d-*-*-*-p-0-iso8859-1", "-urw-nimbus sans l-regular-r-normal--%d-0-0-0-p-0-iso8859-1"},
    {"-adobe-helvetica-bold-r-normal--%d-*-*-*-p-0-iso8859-1", "-urw-nimbus sans l-bold-r-normal--%d-0-0-0-p-0-iso8859-1"},
    {"-adobe-helvetica-medium-o-normal--%d-*-*-*-p-0-iso8859-1", "-urw-nimbus sans l-regular-i-normal--%d-0-0-0-p-0-iso8859-1"},
    {"-adobe-times-medium-r-normal--%d-*-*-*-p-0-iso8859-1", "-urw-nimbus roman no9 l-regular-r-normal--%d-0-0-0-p-0-iso8859-1"},
    {"-adobe-times-medium-i-normal--%d-*-*-*-p-0-iso8859-1", "-urw-nimbus roman no9 l-regular-i-normal--%d-0-0-0-p-0-iso8859-1"},
    {"-adobe-times-bold-r-normal--%d-*-*-*-p-0-iso8859-1", "-urw-nimbus roman no9 l-medium-r-normal-medium-%d-0-0-0-p-0-iso8859-1"},
    {"-adobe-courier-medium-r-normal--%d-*-*-*-m-0-iso8859-1", "-urw-nimbus mono l-regular-r-normal--%d-0-0-0-p-0-iso8859-1"},
    {"-adobe-courier-bold-o-normal--%d-*-*-*-m-0-iso8859-1", "-urw-nimbus mono l-bold-o-normal--%d-0-0-0-p-0-iso8859-1"},
    {"-adobe-new century schoolbook-medium-r-normal--%d-*-*-*-p-0-iso8859-1", "-urw-century schoolbook l-regular-r-normal--%d-0-0-0-p-0-iso8859-1"},
    {"-adobe-new century schoolbook-medium-i-normal--%d-*-*-*-p-0-iso8859-1", "-urw-century schoolbook l-medium-i-normal--%d-0-0-0-p-0-iso8859-1"},
    {"-adobe-bookman-light-r-normal--%d-*-*-*-p-0-iso8859-1", "-urw-urw bookman l-light-r-normal--%d-0-0-0-p-0-iso8859-1"},
    {"-adobe-bookman-demi-i-normal--%d-*-*-*-p-0-iso8859-1", "-urw-urw bookman l-demibold-i-normal--%d-0-0-0-p-0-iso8859-1"},
};
constexpr int kTextPixels = 40;

void DrawText(Display *h, Drawable d, std::vector<SceneCell> &cells) {
  Whiten(h, d, 2);
  Painter p{h, d, cells};
  // Every glyph stands at its own origin on a grid, so that the screen's
  // whole-pixel advances don't add up along a line: what is compared is
  // each glyph's outline and where its origin puts it.
  static const char *const kLines[] = {"AVWag", "fi&Q7", "\xe9\xdf\xe6\xd8?", "yjp{@"};
  for (const TwinFace &face : kTwinFaces) {
    char name[160];
    std::snprintf(name, sizeof name, QlIsDisplay(h) ? face.screen : face.printer, kTextPixels);
    p.cell(name, [&](GC gc, int x, int y) {
      XFontStruct *font = QlLoadQueryFont(h, name);
      if (!font) {
        ADD_FAILURE() << "no font " << name;
        return;
      }
      QlSetFont(h, gc, font->fid);
      for (int row = 0; row < 4; ++row)
        for (int i = 0; i < 5; ++i)
          QlDrawString(h, d, gc, x + 6 + 36 * i, y + 42 + 46 * row, kLines[row] + i, 1);
      QlFreeFont(h, font);
    });
  }
}

}  // namespace

Scene PrimitivesScene() { return {6 * kCell, 4 * kCell, DrawPrimitives}; }
Scene TextScene() { return {6 * kCell, 2 * kCell, DrawText}; }

SceneResult CompareScreenAndPaper(const std::string &name, const Scene &scene, const std::vector<Rect> &ignore,
                                   int tolerance, long strays) {
  SceneResult result;
  Display *dpy = OpenTestDisplay();
  if (!dpy) {
    result.report = "no X server: " + XvfbFailure();
    return result;
  }
  std::vector<SceneCell> cells;
  Pixmap pm = XCreatePixmap(dpy, DefaultRootWindow(dpy), static_cast<unsigned>(scene.width),
                            static_cast<unsigned>(scene.height), static_cast<unsigned>(DefaultDepth(dpy, 0)));
  scene.draw(dpy, pm, cells);
  Raster screen = CaptureDrawable(dpy, pm, 0, 0, scene.width, scene.height);
  XFreePixmap(dpy, pm);
  XCloseDisplay(dpy);

  TempDir dir;
  const std::string ps = dir / (name + ".ps");
  Display *printer = QlVaOpenPrinter(nullptr, ("cat >" + ps).c_str(), "PostScript", 0);
  if (!printer) {
    result.report = "no printer";
    return result;
  }
  QlSetPSColor(printer, 1);
  QlStartDoc(printer, name.c_str());
  QlStartPage(printer);
  std::vector<SceneCell> paperCells;
  scene.draw(printer, 0, paperCells);
  QlEndPage(printer);
  QlEndDoc(printer);
  QlClosePrinter(printer);
  // Two differences of the imaging models, made good by how the document
  // is rendered, not by what it says:
  // - X's coordinates name pixel centres, PostScript's pixel corners: the
  //   document is rendered almost half a device pixel right and down (0.11
  //   point at 300 dpi), so that the two pictures lie on the same grid.
  //   Not quite half: Ghostscript snaps a pattern's phase to whole pixels,
  //   and from a half it would move every pattern a pixel off its fill;
  // - X paints a pixel when its centre lies inside a shape, Ghostscript by
  //   default when any part of it does: Ghostscript is asked for X's rule.
  const std::string shifted = dir / (name + "-registered.ps");
  WriteFile(shifted, "%!PS\n0.11 -0.11 translate 0 0 .setfilladjust2\n" + ReadFile(ps));
  std::string log;
  std::optional<Raster> paper = RenderPostScript(shifted, 300, 75, 75, scene.width, scene.height, &log);
  if (!paper) {
    result.report = "Ghostscript failed:\n" + log;
    return result;
  }
  // With X's rule Ghostscript can leave one pixel unpainted where two
  // pieces of a stroke meet, a hole with the same ink all round it.  That is
  // the renderer's, not the document's: such holes are filled and counted.
  long holes = 0;
  for (int y = 1; y + 1 < paper->height; ++y)
    for (int x = 1; x + 1 < paper->width; ++x) {
      const uint32_t ink = paper->pixel(x - 1, y - 1);
      if (paper->pixel(x, y) != 0xFFFFFF || ink == 0xFFFFFF) continue;
      bool surrounded = true;
      for (int dy = -1; dy <= 1 && surrounded; ++dy)
        for (int dx = -1; dx <= 1 && surrounded; ++dx)
          if ((dx || dy) && paper->pixel(x + dx, y + dy) != ink) surrounded = false;
      if (surrounded) {
        paper->setPixel(x, y, ink);
        ++holes;
      }
    }
  const std::string base = ArtifactDir() + "/" + name;
  std::ostringstream report;
  result.ok = true;
  for (const SceneCell &c : cells) {
    Raster a = Crop(screen, c.x, c.y, c.w, c.h), b = Crop(*paper, c.x, c.y, c.w, c.h);
    std::vector<Rect> local;
    for (const Rect &r : ignore) local.push_back({r.x - c.x, r.y - c.y, r.w, r.h, r.reason});
    RasterDiff diff = CompareRasters(a, b, tolerance, 2, local);
    if (diff.differing > strays) {
      result.ok = false;
      report << "cell \"" << c.name << "\" at " << c.x << "," << c.y << ": " << diff.differing
             << " pixels differ";
      if (!diff.samples.empty()) report << ", first at " << diff.samples[0].first + c.x << "," << diff.samples[0].second + c.y;
      report << "\n";
    }
  }
  RasterDiff whole = CompareRasters(screen, *paper, tolerance, 2, ignore);
  WritePng(base + "-side-by-side.png", SideBySide(screen, *paper, whole.diff));
  WritePng(base + "-difference.png", whole.diff);
  result.pictures = base + "-side-by-side.png, " + base + "-difference.png";
  if (holes) report << holes << " single-pixel holes in Ghostscript's strokes filled\n";
  result.report = report.str();
  if (screen.count(0xFFFFFF) == static_cast<long>(screen.width) * screen.height) {
    result.ok = false;
    result.report += "the screen picture is blank\n";
  }
  return result;
}

}  // namespace qltest
