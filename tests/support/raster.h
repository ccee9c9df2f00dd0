// Rasters for comparing what the library draws on the screen with what it
// prints: capture of X drawables, rendering of PostScript with Ghostscript,
// a comparison that forgives small displacements, and PNG files for people
// to look at when a comparison fails.
#pragma once

// gtest before Xlib: X.h's None and Bool macros break gtest's headers.
#include <gtest/gtest.h>
#include <X11/Xlib.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qltest {

// An RGB image, 8 bits per channel.  Colours given as one number are
// 0xRRGGBB.
struct Raster {
  int width = 0, height = 0;
  std::vector<uint8_t> rgb;  // 3 bytes per pixel, rows top to bottom

  Raster() = default;
  Raster(int w, int h, uint32_t fill = 0xFFFFFF);

  bool empty() const { return width <= 0 || height <= 0; }
  bool contains(int x, int y) const { return x >= 0 && y >= 0 && x < width && y < height; }
  uint8_t *at(int x, int y) { return rgb.data() + 3 * (static_cast<size_t>(y) * width + x); }
  const uint8_t *at(int x, int y) const { return rgb.data() + 3 * (static_cast<size_t>(y) * width + x); }
  uint32_t pixel(int x, int y) const {
    const uint8_t *p = at(x, y);
    return uint32_t(p[0]) << 16 | uint32_t(p[1]) << 8 | p[2];
  }
  void setPixel(int x, int y, uint32_t c) {
    uint8_t *p = at(x, y);
    p[0] = uint8_t(c >> 16);
    p[1] = uint8_t(c >> 8);
    p[2] = uint8_t(c);
  }
  // Fills the part of the rectangle that lies inside the raster.
  void fill(int x, int y, int w, int h, uint32_t c);
  // Pixels of exactly this colour.
  long count(uint32_t c) const;
};

// The rectangle (x, y, w, h) of r; parts outside r come out white.
Raster Crop(const Raster &r, int x, int y, int w, int h);

// Parses a binary PPM (P6) file's bytes: header comments are allowed and a
// maxval below 255 is scaled up; 16-bit PPMs are refused.  Nothing on a
// malformed file, with the reason in *err.
std::optional<Raster> ParsePpm(const std::string &bytes, std::string *err = nullptr);

// Renders the first page of a PostScript file as a US Letter sheet at dpi
// without anti-aliasing, and returns the rectangle (cropX, cropY, cropW,
// cropH) of it in device pixels from the sheet's top-left corner (parts
// off the sheet come out white).  Nothing if gs fails, makes no page, or
// prints "Error" or "Substituting font"; *log gets gs's output either way.
std::optional<Raster> RenderPostScript(const std::string &psPath, int dpi, int cropX, int cropY, int cropW,
                                       int cropH, std::string *log = nullptr);

// The rectangle (x, y, w, h) of a window or pixmap as RGB, with pixel
// values read through the default screen's visual: masks for TrueColor,
// the default colormap for other classes.  An empty raster, and a test
// failure, if the server refuses the request (e.g. the rectangle isn't
// inside the drawable).
Raster CaptureDrawable(Display *dpy, Drawable d, int x, int y, int w, int h);

struct Rect {
  int x, y, w, h;
  std::string reason;  // why the area doesn't count, for the record
};

// The outcome of CompareRasters.
//
// diff is as large as the larger of the two rasters and shows, per pixel:
//   white       both agree on paper colour
//   light grey  both agree on ink (any other colour), for orientation
//   red         A's pixel has no match in B ("only in A")
//   blue        B's pixel has no match in A ("only in B")
//   magenta     neither has a match in the other (e.g. a changed colour)
//   pale yellow ignored
struct RasterDiff {
  long differing = 0;                         // pixels with no match within tolerance, either way
  long inkA = 0, inkB = 0;                    // non-white pixels of each, outside the ignored areas
  std::vector<std::pair<int, int>> samples;   // the first few differing pixels (x, y), in row order
  Raster diff;
};

inline constexpr uint32_t kDiffAgreeInk = 0xD0D0D0, kDiffOnlyA = 0xFF0000, kDiffOnlyB = 0x0000FF,
                          kDiffBoth = 0xFF00FF, kDiffIgnored = 0xFFFFC0;

// Compares two rasters pixel by pixel, forgiving a displacement of up to
// `tolerance` pixels in each direction: a pixel of A matches when B has a
// pixel of the same colour (each channel within colourTolerance) in the
// (2 * tolerance + 1)^2 square around it, and likewise for B against A.
// Rasters of different sizes are compared over the larger size; a pixel
// beyond the edge of one raster has no counterpart there.  Pixels inside
// an `ignore` rectangle are not judged (they may still serve as matches).
RasterDiff CompareRasters(const Raster &a, const Raster &b, int tolerance = 1, int colourTolerance = 0,
                          const std::vector<Rect> &ignore = {});

// "12 differing pixels (ink 3400 vs 3390), first at (10,4) (11,4) ..."
std::string Describe(const RasterDiff &d);

// Writes r as an 8-bit RGB PNG (uncompressed).  False if r is empty or the
// file can't be written.
bool WritePng(const std::string &path, const Raster &r);

// a, b and diff next to each other, left to right, with a grey gutter.
Raster SideBySide(const Raster &a, const Raster &b, const Raster &diff);

// Where tests leave images for people: $QL_BINARY_DIR/test-artifacts
// (created on demand), or /tmp when QL_BINARY_DIR is unset.
std::string ArtifactDir();

// Writes SideBySide(a, b, d.diff) to ArtifactDir()/<name>.png and returns
// the path, or an empty string if that fails.
std::string WriteComparisonPng(const std::string &name, const Raster &a, const Raster &b, const RasterDiff &d);

}  // namespace qltest
