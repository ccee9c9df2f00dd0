// One drawing, made through the library's Xlib-shaped calls, that the
// screen-equals-paper tests run on a display and on a printer.
#pragma once

// gtest before Xlib: X.h's None and Bool macros break gtest's headers.
#include <gtest/gtest.h>
#include <qualin/Ql.h>

#include <functional>
#include <string>
#include <vector>

namespace qltest {

// A named part of a scene, in the scene's pixels (device dots on paper).
struct SceneCell {
  std::string name;
  int x, y, w, h;
};

// A scene: its size and a function that draws it through `handle` on
// drawable `d` (0 on a printer); the function names its cells as it goes.
struct Scene {
  int width, height;
  std::function<void(Display *handle, Drawable d, std::vector<SceneCell> &cells)> draw;
};

// Every primitive family of the drawing calls: lines of widths 0, 1 and
// thick with all caps, joins and dash styles; rectangles; arcs in all
// quadrants with negative extents, pie and chord fills; polygons under both
// fill rules and in relative coordinates; points; clip rectangles; colours.
Scene PrimitivesScene();

// Glyphs of twelve standard faces at 40 pixels, each on a grid of its own
// origins, named on the screen after the X server's Type 1 twins of the
// printer's faces.
Scene TextScene();

// What comparing a scene's two pictures found.
struct SceneResult {
  bool ok = false;
  std::string report;  // per failing cell: its name and how many pixels differ
  std::string pictures;  // side by side and difference PNG files
};

// Draws `scene` on an Xvfb pixmap and on a PostScript printer at 300 dpi
// (Letter, printable area from 75, 75), renders the document with
// Ghostscript and compares the rasters, by default with a 1-pixel tolerance, leaving
// PNG files named after `name` in ArtifactDir().  `ignore` names areas where
// the two imaging models differ by design, each with its reason.
struct Rect;
// `tolerance` is the displacement in pixels that the comparison forgives,
// `strays` the number of pixels per cell that may differ all the same.
SceneResult CompareScreenAndPaper(const std::string &name, const Scene &scene,
                                  const std::vector<Rect> &ignore = {}, int tolerance = 1, long strays = 0);

}  // namespace qltest
