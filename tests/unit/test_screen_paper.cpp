// Screen equals paper: one drawing, made through the same calls on an X
// pixmap and on a PostScript printer, gives the same picture.
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses

#include "support/capture.h"
#include "support/raster.h"
#include "support/scene.h"
#include "support/xvfb.h"

namespace {

TEST(ScreenEqualsPaper, EveryPrimitiveFamily) {
  if (qltest::XvfbDisplayName().empty()) GTEST_SKIP() << qltest::XvfbFailure();
  qltest::MessageCapture messages;  // no default font yet: GCs go without
  qltest::SceneResult r = qltest::CompareScreenAndPaper("primitives", qltest::PrimitivesScene());
  EXPECT_TRUE(r.ok) << r.report << "pictures: " << r.pictures;
}

// The X server's Type 1 rasterizer and Ghostscript fill the same outlines at
// the same origins, but the X server follows the fonts' hints: it moves
// stems, cap heights and the ends of serifs to whole pixels, up to 2 pixels
// away from where Ghostscript's plain fill of the outline puts them at this
// size.  So the comparison forgives 2 pixels of displacement, and 4 stray
// pixels per face of 20 glyphs, where a hinted hairline or ball terminal
// ends a pixel further still.
TEST(ScreenEqualsPaper, TextInTheStandardFaces) {
  if (qltest::XvfbDisplayName().empty()) GTEST_SKIP() << qltest::XvfbFailure();
  qltest::SceneResult r = qltest::CompareScreenAndPaper("text", qltest::TextScene(), {}, 2, 4);
  EXPECT_TRUE(r.ok) << r.report << "pictures: " << r.pictures;
}

}  // namespace
