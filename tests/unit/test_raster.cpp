// The raster side of the screen-versus-paper checks: PNG files, the
// comparison, Ghostscript rendering and capture from the X server.
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses
#include <gtest/gtest-spi.h>

#include <cstdlib>

#include "support/raster.h"
#include "support/tempdir.h"
#include "support/xvfb.h"

using qltest::Raster;
using qltest::TempDir;

namespace {

// Decodes a PNG independently: checks every chunk's CRC (zlib.decompress
// checks the Adler-32), allows only filter type 0, prints "width height"
// and writes the pixels to a file.
const char *kPngDecoder = R"PY(
import struct, sys, zlib
data = open(sys.argv[1], 'rb').read()
assert data[:8] == b'\x89PNG\r\n\x1a\n', 'signature'
pos, idat, ihdr, end = 8, b'', None, False
while pos < len(data):
    n, kind = struct.unpack('>I4s', data[pos:pos + 8])
    body = data[pos + 8:pos + 8 + n]
    assert struct.unpack('>I', data[pos + 8 + n:pos + 12 + n])[0] == zlib.crc32(kind + body), kind
    if kind == b'IHDR': ihdr = struct.unpack('>IIBBBBB', body)
    if kind == b'IDAT': idat += body
    if kind == b'IEND': end = True
    pos += 12 + n
w, h, depth, ctype, _, _, _ = ihdr
assert end and depth == 8 and ctype == 2
raw = zlib.decompress(idat)
assert len(raw) == h * (3 * w + 1)
rows = [raw[y * (3 * w + 1):(y + 1) * (3 * w + 1)] for y in range(h)]
assert all(r[0] == 0 for r in rows)
open(sys.argv[2], 'wb').write(b''.join(r[1:] for r in rows))
print(w, h)
)PY";

using U = std::vector<uint32_t>;
U Pixels(const Raster &r, std::initializer_list<std::pair<int, int>> at) {
  U v;
  for (auto [x, y] : at) v.push_back(r.pixel(x, y));
  return v;
}

}  // namespace

TEST(Raster, PngSideBySideAndCrop) {
  TempDir dir;
  // Over 65535 bytes of image data: more than one stored block.
  Raster r(150, 160);
  for (int y = 0; y < r.height; ++y)
    for (int x = 0; x < r.width; ++x) r.setPixel(x, y, uint32_t(x) << 16 | uint32_t(y) << 8 | uint32_t(x ^ y));
  ASSERT_TRUE(qltest::WritePng(dir / "a.png", r));
  EXPECT_FALSE(qltest::WritePng(dir / "empty.png", Raster()));
  qltest::WriteFile(dir / "decode.py", kPngDecoder);
  std::string cmd =
      "python3 " + dir / "decode.py" + " " + dir / "a.png" + " " + dir / "a.rgb" + " >" + dir / "out 2>&1";
  ASSERT_EQ(std::system(cmd.c_str()), 0) << qltest::ReadFile(dir / "out");
  EXPECT_EQ(qltest::ReadFile(dir / "out"), "150 160\n");
  EXPECT_TRUE(qltest::ReadFile(dir / "a.rgb") == std::string(r.rgb.begin(), r.rgb.end()));

  Raster side = qltest::SideBySide(Raster(10, 5, 0x000000), Raster(7, 9, 0x0000FF), Raster(3, 2, 0xFF0000));
  EXPECT_EQ(std::make_pair(side.width, side.height), std::make_pair(10 + 7 + 3 + 8, 9));
  EXPECT_EQ(Pixels(side, {{10, 0}, {14, 8}, {25, 1}, {25, 2}}), U({0x808080, 0x0000FF, 0xFF0000, 0x808080}));

  Raster small(5, 4, 0x000000);
  small.setPixel(3, 2, 0x123456);
  Raster crop = qltest::Crop(small, 2, 1, 4, 4);
  EXPECT_EQ(crop.pixel(1, 1), 0x123456u);
  EXPECT_EQ(crop.count(0x000000), 8);  // the rest of (2..4, 1..3); the part off the raster is white
}

TEST(Raster, CompareForgivesSmallShiftsOnly) {
  Raster a(40, 30), b(40, 30);
  a.fill(10, 10, 8, 6, 0x000000);
  b.fill(11, 10, 8, 6, 0x000000);
  EXPECT_EQ(qltest::CompareRasters(a, b, 1).differing, 0);
  qltest::RasterDiff d = qltest::CompareRasters(a, b, 0);
  EXPECT_EQ(d.differing, 12) << qltest::Describe(d);  // the column left behind and the one gained
  EXPECT_EQ(d.inkA, 48);
  ASSERT_FALSE(d.samples.empty());
  EXPECT_EQ(d.samples[0], std::make_pair(10, 10));
  EXPECT_EQ(Pixels(d.diff, {{10, 12}, {12, 12}}), U({qltest::kDiffBoth, qltest::kDiffAgreeInk}));

  // A stray dot on either side, and a rectangle that shifted by two.
  a.setPixel(30, 25, 0x00FF00);
  b.setPixel(3, 3, 0x00FF00);
  b.fill(11, 10, 8, 6, 0xFFFFFF);
  b.fill(12, 10, 8, 6, 0x000000);
  d = qltest::CompareRasters(a, b, 1);
  // Columns 10 and 19 wholly, 11 and 18 but for the rows at the edges.
  EXPECT_EQ(d.differing, 2 + 6 + 4 + 4 + 6) << qltest::Describe(d);
  EXPECT_EQ(Pixels(d.diff, {{30, 25}, {3, 3}, {10, 12}, {11, 12}, {19, 12}}),
            U({qltest::kDiffOnlyA, qltest::kDiffOnlyB, qltest::kDiffOnlyA, qltest::kDiffOnlyB, qltest::kDiffOnlyB}));
  EXPECT_EQ(qltest::CompareRasters(a, b, 2).differing, 2);

  // Ignored areas are not judged and count no ink.
  d = qltest::CompareRasters(a, b, 2, 0, {{28, 24, 5, 5, "dot"}, {0, 0, 5, 5, "other dot"}});
  EXPECT_EQ(d.differing, 0) << qltest::Describe(d);
  EXPECT_EQ(d.inkA, 48);
  EXPECT_EQ(d.diff.pixel(30, 25), qltest::kDiffIgnored);

  // A colour that changed is caught unless it is within colourTolerance.
  Raster c = a;
  c.fill(10, 10, 8, 6, 0x020000);
  d = qltest::CompareRasters(a, c, 1, 1);
  EXPECT_EQ(d.differing, 48);
  EXPECT_EQ(d.diff.pixel(12, 12), qltest::kDiffBoth);
  EXPECT_EQ(qltest::CompareRasters(a, c, 1, 2).differing, 0);

  // A smaller raster lacks the pixels beyond its edge.
  EXPECT_EQ(qltest::CompareRasters(Raster(10, 10), Raster(12, 10), 1).differing, 10);

  TempDir dir;
  qltest::ScopedEnv env("QL_BINARY_DIR", dir.path().c_str());
  EXPECT_EQ(qltest::WriteComparisonPng("shift", a, b, d), dir / "test-artifacts/shift.png");
  EXPECT_TRUE(qltest::Exists(dir / "test-artifacts/shift.png"));
  qltest::ScopedEnv unset("QL_BINARY_DIR", nullptr);
  EXPECT_EQ(qltest::ArtifactDir(), "/tmp");
}

TEST(Raster, RenderPostScriptCropsTheSheet) {
  TempDir dir;
  // One inch square, a quarter inch from the top and left edges of a
  // Letter sheet, which stays Letter when the document asks for A4.
  qltest::WriteFile(dir / "red.ps",
                    "%!PS\n<</PageSize [595 842]>> setpagedevice\n1 0 0 setrgbcolor 18 702 72 72 rectfill showpage\n");
  std::string log;
  std::optional<Raster> sheet = qltest::RenderPostScript(dir / "red.ps", 300, 0, 0, 2550, 3300, &log);
  ASSERT_TRUE(sheet) << log;
  Raster want(2550, 3300);
  want.fill(75, 75, 300, 300, 0xFF0000);
  qltest::RasterDiff d = qltest::CompareRasters(*sheet, want, 1);
  EXPECT_EQ(d.differing, 0) << qltest::Describe(d);
  EXPECT_EQ(sheet->count(0xFF0000) + sheet->count(0xFFFFFF), 2550L * 3300);  // no anti-aliasing

  std::optional<Raster> crop = qltest::RenderPostScript(dir / "red.ps", 300, 70, 60, 320, 400, &log);
  ASSERT_TRUE(crop) << log;
  EXPECT_TRUE(crop->rgb == qltest::Crop(*sheet, 70, 60, 320, 400).rgb);
  crop = qltest::RenderPostScript(dir / "red.ps", 300, 2540, 3290, 20, 20, &log);
  ASSERT_TRUE(crop) << log;
  EXPECT_EQ(crop->count(0xFFFFFF), 400);

  qltest::WriteFile(dir / "bad.ps", "%!PS\nnosuchoperator showpage\n");
  EXPECT_FALSE(qltest::RenderPostScript(dir / "bad.ps", 72, 0, 0, 10, 10, &log));
  EXPECT_NE(log.find("/undefined in nosuchoperator"), std::string::npos) << log;
  qltest::WriteFile(dir / "font.ps",
                    "%!PS\n/NoSuchFont findfont 12 scalefont setfont 72 72 moveto (Hi) show showpage\n");
  EXPECT_FALSE(qltest::RenderPostScript(dir / "font.ps", 72, 0, 0, 10, 10, &log));
  EXPECT_NE(log.find("Substituting font"), std::string::npos) << log;
}

TEST(Raster, CaptureDrawableReadsTrueColour) {
  Display *dpy = qltest::OpenTestDisplay();
  if (dpy == nullptr) GTEST_SKIP() << "no X server: " << qltest::XvfbFailure();
  int screen = DefaultScreen(dpy);
  Pixmap pm = XCreatePixmap(dpy, RootWindow(dpy, screen), 40, 30, DefaultDepth(dpy, screen));
  GC gc = XCreateGC(dpy, pm, 0, nullptr);
  XColor colour{};
  colour.red = 0x1212, colour.green = 0x3434, colour.blue = 0x5656;
  ASSERT_TRUE(XAllocColor(dpy, DefaultColormap(dpy, screen), &colour));
  XSetForeground(dpy, gc, WhitePixel(dpy, screen));
  XFillRectangle(dpy, pm, gc, 0, 0, 40, 30);
  XSetForeground(dpy, gc, colour.pixel);
  XFillRectangle(dpy, pm, gc, 10, 5, 8, 4);

  Raster r = qltest::CaptureDrawable(dpy, pm, 2, 1, 30, 20);
  ASSERT_EQ(std::make_pair(r.width, r.height), std::make_pair(30, 20));
  EXPECT_EQ(Pixels(r, {{8, 4}, {15, 7}, {7, 4}}), U({0x123456, 0x123456, 0xFFFFFF}));
  EXPECT_EQ(std::make_pair(r.count(0x123456), r.count(0xFFFFFF)), std::make_pair(32L, 30L * 20 - 32));

  // A rectangle outside the pixmap is a test failure, not the end of the process.
  EXPECT_NONFATAL_FAILURE(r = qltest::CaptureDrawable(dpy, pm, 30, 0, 20, 20), "XGetImage");
  EXPECT_TRUE(r.empty());
  XFreeGC(dpy, gc);
  XFreePixmap(dpy, pm);
  XCloseDisplay(dpy);
}
