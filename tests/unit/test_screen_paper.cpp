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

}  // namespace
