// Images for the printer and screen tests, filled from a function of the
// pixel's position, and a PostScript page to put them on.
#pragma once

// gtest before Xlib: X.h's None and Bool macros break gtest's headers.
#include <gtest/gtest.h>
#include <qualin/Ql.h>

#include "support/tempdir.h"

#include <functional>
#include <memory>
#include <string>

namespace qltest {

// An image made by QlCreateImage on `handle` (a printer or a display) of
// `depth` in `format` (depth 1 as XYBitmap or XYPixmap, deeper ones as
// ZPixmap), rows padded to 8 bits, its pixels from `fill`.
XImage *MakeImage(Display *handle, int depth, int format, int width, int height,
                  const std::function<unsigned long(int x, int y)> &fill);

struct ImageDeleter {
  void operator()(XImage *image) const;  // QlDestroyImage
};
using ImagePtr = std::unique_ptr<XImage, ImageDeleter>;

// A PostScript printer without a PPD (300 dpi, Letter, printable area
// from 75, 75) at `level`, in colour or grey, with the given bitmap
// compression, a fixed creation date, and its first page open.
struct PrintedPage {
  TempDir dir;
  std::string out = dir / "out.ps";
  Display *d = nullptr;
  GC gc = nullptr;

  PrintedPage(int level, bool colour, int compression = 1);
  ~PrintedPage();
  PrintedPage(const PrintedPage &) = delete;
  PrintedPage &operator=(const PrintedPage &) = delete;
  // What was written since the last call (or the page's start).
  std::string Since();
  // Ends the page and the document; the file.
  std::string Finish();
  // A pixel of the colour given in 8-bit channels.
  unsigned long Colour(int r, int g, int b);

private:
  size_t at_ = 0;
};

}  // namespace qltest
