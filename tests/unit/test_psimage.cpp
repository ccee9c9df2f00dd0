// Images on PostScript printers: the encoders' bytes, their round trip
// through Ghostscript's own filters and the prolog's imdecode, and images
// that Ghostscript renders back to exactly their pixels.
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses

#include "core/encode.h"
#include "drivers/ps/ps.h"
#include "support/capture.h"
#include "support/decode_ref.h"
#include "support/gs.h"
#include "support/image_util.h"
#include "support/raster.h"
#include "support/tempdir.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

using qltest::Bytes;
using qltest::ImagePtr;
using qltest::MakeImage;
using qltest::MessageCapture;
using qltest::ReadFile;
using qltest::TempDir;

namespace {

QlPrinter *P(Display *d) { return reinterpret_cast<QlPrinter *>(d); }
QlGC *G(GC gc) { return reinterpret_cast<QlGC *>(gc); }

using qltest::EncodeAscii85;
using qltest::EncodeDelta;
using qltest::EncodeHex;
using qltest::EncodeRuns;

Bytes PackBits(const std::vector<Bytes> &rows) { return *qltest::DecodeAscii85(EncodeRuns(rows)); }

Bytes Concat(const std::vector<Bytes> &rows) {
  Bytes all;
  for (const Bytes &r : rows) all.insert(all.end(), r.begin(), r.end());
  return all;
}

TEST(PSImageEncoders, WriteTheBytesOfEachForm) {
  const uint8_t A = 'A', B = 'B';
  // PackBits: a literal run gives its last byte to a repeat.
  EXPECT_EQ(PackBits({{A, B, B}}), (Bytes{0, A, 255, B, 128}));
  EXPECT_EQ(PackBits({Bytes(128, 7)}), (Bytes{129, 7, 128}));
  EXPECT_EQ(PackBits({Bytes(129, 7)}), (Bytes{129, 7, 0, 7, 128}));
  Bytes literal(130);
  for (size_t i = 0; i < literal.size(); ++i) literal[i] = static_cast<uint8_t>(i);
  Bytes expected{127};
  expected.insert(expected.end(), literal.begin(), literal.begin() + 128);
  expected.insert(expected.end(), {1, 128, 129, 128});
  EXPECT_EQ(PackBits({literal}), expected);
  // Runs never cross a row.
  EXPECT_EQ(PackBits({{A}, {A}}), (Bytes{0, A, 0, A, 128}));

  // ASCII85: "z" for a whole group of zeros only; a newline after every
  // 64 bytes; a partial group carries zeros behind its own bytes, never
  // what the group before left there.
  EXPECT_EQ(EncodeAscii85({0, 0, 0, 0, 0, 0}), "z!!!~>\n");
  EXPECT_EQ(EncodeAscii85({0xFF, 0xFF, 0xFF, 0xFF, 0x01}), "s8W-!!<~>\n");
  EXPECT_EQ(*qltest::DecodeAscii85(EncodeAscii85({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF})),
            (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
  const std::string sixtyFour = EncodeAscii85(Bytes(64, 0));
  EXPECT_EQ(sixtyFour, std::string(16, 'z') + "\n~>\n");

  // Row delta: the first row whole in stretches of 255; an equal row is
  // "0000"; a change is its offset, length and bytes.
  Bytes wide(300, 0x11);
  const std::string first = EncodeDelta({wide});
  EXPECT_EQ(first.substr(0, 10), "00020000ff");
  EXPECT_NE(first.find("00ff2d"), std::string::npos);
  Bytes changed = wide;
  changed[5] = 0xAB;
  const std::string rows = EncodeDelta({wide, wide, changed});
  EXPECT_EQ(rows.substr(first.size()), "0000\n00010005" "01ab\n");
  // Twelve equal bytes inside a stretch keep it whole; thirteen end it.
  Bytes twelve = wide, thirteen = wide;
  twelve[0] = twelve[13] = 0;
  thirteen[0] = thirteen[14] = 0;
  EXPECT_EQ(EncodeDelta({wide, twelve}).substr(first.size()), "000100000e" "00" + std::string(24, '1') + "00\n");
  EXPECT_EQ(EncodeDelta({wide, thirteen}).substr(first.size()), "00020000" "0100" "000e0100\n");
  EXPECT_EQ(EncodeHex({0x00, 0x0F, 0xA0, 0xFF}), "000fa0ff");
}

// Rows of test data of several kinds.
std::vector<Bytes> Rows(const std::string &kind, size_t width, size_t height) {
  std::mt19937 rng(static_cast<unsigned>(width * 31 + height));
  std::vector<Bytes> rows(height, Bytes(width));
  for (size_t y = 0; y < height; ++y)
    for (size_t x = 0; x < width; ++x) {
      uint8_t v = 0;
      if (kind == "random") v = static_cast<uint8_t>(rng());
      else if (kind == "smooth") v = static_cast<uint8_t>((x / 7 + y * 3) & 0xFF);
      else if (kind == "constant") v = 0x5A;
      else if (kind == "sparse") v = rng() % 40 == 0 ? static_cast<uint8_t>(rng()) : 0;
      rows[y][x] = v;
    }
  return rows;
}

// A PostScript program that decodes `data` with `filters` and prints the
// bytes in hexadecimal between markers.
std::string DecodedByGhostscript(const TempDir &dir, const std::string &name, const std::string &filters,
                                 const std::string &data) {
  const std::string ps = dir / (name + ".ps");
  qltest::WriteFile(ps, "%!PS\n/out (%stdout) (w) file def (<<) print\n/buf 4096 string def\n{/in currentfile " +
                            filters + " def {in buf readstring exch out exch writehexstring not {exit} if} loop"
                            " (>>) print flush} exec\n" + data + "\n");
  qltest::GsRun run = qltest::RunGhostscript({"-sDEVICE=nullpage", ps});
  const size_t a = run.log.find("<<"), b = run.log.find(">>");
  if (run.exitCode != 0 || a == std::string::npos || b == std::string::npos) return "gs failed: " + run.log;
  return run.log.substr(a + 2, b - a - 2);
}

// Rows written in the delta form and read back by the prolog's imdecode.
std::string ImdecodedByGhostscript(const TempDir &dir, const std::string &name, const std::vector<Bytes> &rows) {
  const std::string ps = dir / (name + ".ps");
  const std::string prolog = ReadFile(std::string(std::getenv("QLPATH")) + "/qualin.prolog");
  qltest::WriteFile(ps, "%!PS\n" + prolog + "\n/out (%stdout) (w) file def (<<) print\n/imdata " +
                            std::to_string(rows[0].size()) + " string def\n" + std::to_string(rows.size()) +
                            " {out imdecode writehexstring} repeat\n" + EncodeDelta(rows) + "(>>) print flush\nend\n");
  qltest::GsRun run = qltest::RunGhostscript({"-sDEVICE=nullpage", ps});
  const size_t a = run.log.find("<<"), b = run.log.find(">>");
  if (run.exitCode != 0 || a == std::string::npos || b == std::string::npos) return "gs failed: " + run.log;
  return run.log.substr(a + 2, b - a - 2);
}

TEST(PSImageEncoders, RoundTripThroughIndependentDecoders) {
  TempDir dir;
  struct Case {
    std::string kind;
    size_t width, height;
  };
  const Case cases[] = {{"random", 61, 9}, {"smooth", 300, 12}, {"constant", 40, 6},
                        {"sparse", 500, 8}, {"random", 1, 1},   {"smooth", 20000, 3}};
  for (const Case &c : cases) {
    SCOPED_TRACE(c.kind + " " + std::to_string(c.width) + "x" + std::to_string(c.height));
    const std::vector<Bytes> rows = Rows(c.kind, c.width, c.height);
    const Bytes all = Concat(rows);
    const std::string name = c.kind + std::to_string(c.width);
    // The test's own decoders.
    EXPECT_EQ(qltest::DecodeRunLength(PackBits(rows)), all);
    EXPECT_EQ(qltest::DecodeAscii85(EncodeAscii85(all)), all);
    EXPECT_EQ(qltest::DecodeHex(EncodeHex(all)), all);
    EXPECT_EQ(qltest::DecodeRowDelta(EncodeDelta(rows), c.width, c.height), rows);
    // Ghostscript's filters, and the shipped prolog's imdecode.
    const std::string expected = EncodeHex(all);
    EXPECT_EQ(DecodedByGhostscript(dir, name + "-hex", "/ASCIIHexDecode filter", EncodeHex(all) + ">"), expected);
    EXPECT_EQ(DecodedByGhostscript(dir, name + "-85", "/ASCII85Decode filter", EncodeAscii85(all)), expected);
    EXPECT_EQ(DecodedByGhostscript(dir, name + "-rl", "/ASCII85Decode filter /RunLengthDecode filter", EncodeRuns(rows)),
              expected);
    EXPECT_EQ(ImdecodedByGhostscript(dir, name + "-delta", rows), expected);
  }
}

using Doc = qltest::PrintedPage;

using Rgb = std::array<int, 3>;

int Grey(const Rgb &c) { return static_cast<int>(0.299 * c[0] + 0.587 * c[1] + 0.114 * c[2]); }

// Compares a rendered area with what each pixel should be.
void ExpectPixels(const qltest::Raster &paper, int x0, int y0, int w, int h,
                  const std::function<Rgb(int x, int y)> &expected, const std::string &what) {
  long wrong = 0;
  std::string first;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const Rgb e = expected(x, y);
      const uint32_t want = uint32_t(e[0]) << 16 | uint32_t(e[1]) << 8 | uint32_t(e[2]);
      const uint32_t got = paper.pixel(x0 + x, y0 + y);
      if (got != want && wrong++ < 3)
        first += " (" + std::to_string(x) + "," + std::to_string(y) + ") " + std::to_string(got) + " not " +
                 std::to_string(want);
    }
  EXPECT_EQ(wrong, 0) << what << ":" << first;
}

TEST(PSImages, UnscaledImagesPrintTheirOwnPixels) {
  MessageCapture messages;
  std::mt19937 rng(7);
  for (int level : {1, 2})
    for (int compression : {0, 1})
      for (bool colour : {false, true}) {
        const std::string what = "level " + std::to_string(level) + (compression ? " compressed" : " hex") +
                                 (colour ? " colour" : " grey");
        SCOPED_TRACE(what);
        Doc doc(level, colour, compression);
        std::vector<unsigned long> palette;
        std::vector<Rgb> rgbOf(256);
        for (int i = 0; i < 12; ++i) {
          const Rgb c{static_cast<int>(rng() % 256), static_cast<int>(rng() % 256), static_cast<int>(rng() % 256)};
          palette.push_back(doc.Colour(c[0], c[1], c[2]));
          rgbOf[palette.back()] = c;
        }
        const Rgb fgRgb = colour ? Rgb{255, 165, 0} : Rgb{0, 0, 0}, bgRgb = colour ? Rgb{0, 0, 128} : Rgb{255, 255, 255};
        QlSetForeground(doc.d, doc.gc, doc.Colour(fgRgb[0], fgRgb[1], fgRgb[2]));
        QlSetBackground(doc.d, doc.gc, doc.Colour(bgRgb[0], bgRgb[1], bgRgb[2]));
        std::vector<unsigned long> bits, index, trueColour;
        ImagePtr bitmap(MakeImage(doc.d, 1, XYBitmap, 45, 19, [&](int, int) {
          bits.push_back(rng() & 1);
          return bits.back();
        }));
        ImagePtr indexed(MakeImage(doc.d, 8, ZPixmap, 37, 23, [&](int, int) {
          index.push_back(palette[rng() % palette.size()]);
          return index.back();
        }));
        ImagePtr deep(MakeImage(doc.d, 24, ZPixmap, 41, 17, [&](int, int) {
          trueColour.push_back(rng() & 0xFFFFFF);
          return trueColour.back();
        }));
        QlPutImage(doc.d, 0, doc.gc, bitmap.get(), 0, 0, 10, 10, 45, 19);
        QlPutImage(doc.d, 0, doc.gc, indexed.get(), 0, 0, 100, 10, 37, 23);
        QlPutImage(doc.d, 0, doc.gc, deep.get(), 0, 0, 200, 10, 41, 17);
        const std::string text = doc.Finish();
        if (level == 1 && compression) {
          EXPECT_NE(text.find("{imdecode}\nimage\n"), std::string::npos);
        }
        std::string log;
        std::optional<qltest::Raster> paper = qltest::RenderPostScript(doc.out, 300, 75, 75, 300, 60, &log);
        ASSERT_TRUE(paper) << log;
        const bool inColour = colour && level == 2;
        auto shade = [&](Rgb c) { return inColour ? c : Rgb{Grey(c), Grey(c), Grey(c)}; };
        ExpectPixels(*paper, 10, 10, 45, 19, [&](int x, int y) { return bits[y * 45 + x] ? fgRgb : bgRgb; },
                     what + ": bitmap");
        ExpectPixels(*paper, 100, 10, 37, 23, [&](int x, int y) { return shade(rgbOf[index[y * 37 + x]]); },
                     what + ": indexed");
        ExpectPixels(*paper, 200, 10, 41, 17,
                     [&](int x, int y) {
                       const unsigned long v = trueColour[y * 41 + x];
                       return shade({int(v & 255), int(v >> 8 & 255), int(v >> 16 & 255)});
                     },
                     what + ": true colour");
        // Nothing around the images.
        ExpectPixels(*paper, 0, 0, 300, 10, [](int, int) { return Rgb{255, 255, 255}; }, what + ": above");
        ExpectPixels(*paper, 9, 10, 1, 19, [](int, int) { return Rgb{255, 255, 255}; }, what + ": left");
      }
}

// A display's TrueColor masks, red in the high byte, say where a 24-bit
// pixel's channels lie; hexadecimal and compressed rows agree.
TEST(PSImages, TrueColourPixelsFollowThePrintersMasks) {
  for (int compression : {0, 1})
    for (bool colour : {false, true}) {
      Doc doc(2, colour, compression);
      QlSetColorDepth(doc.d, 24);
      P(doc.d)->redMask = 0xFF0000;
      P(doc.d)->greenMask = 0xFF00;
      P(doc.d)->blueMask = 0xFF;
      ImagePtr deep(MakeImage(doc.d, 24, ZPixmap, 3, 1, [](int x, int) { return std::array{0xFF0000UL, 0x00A5FFUL, 0x123456UL}[x]; }));
      QlPutImage(doc.d, 0, doc.gc, deep.get(), 0, 0, 0, 0, 3, 1);
      doc.Finish();
      std::optional<qltest::Raster> paper = qltest::RenderPostScript(doc.out, 300, 75, 75, 3, 1);
      ASSERT_TRUE(paper);
      const Rgb want[3] = {{255, 0, 0}, {0, 165, 255}, {0x12, 0x34, 0x56}};
      ExpectPixels(*paper, 0, 0, 3, 1, [&](int x, int) { return colour ? want[x] : Rgb{Grey(want[x]), Grey(want[x]), Grey(want[x])}; },
                   colour ? "colour" : "grey");
    }
}

TEST(PSImages, SlotsWriteTheirFrames) {
  MessageCapture messages;
  Doc doc(2, true, 0);
  QlPrinter *p = P(doc.d);
  ImagePtr deep(MakeImage(doc.d, 24, ZPixmap, 2, 1, [](int x, int) { return x ? 0xFF00UL : 0xFFUL; }));
  auto since = [&] { return doc.Since(); };
  QlPutImage(doc.d, 0, doc.gc, deep.get(), 0, 0, 10, 20, 2, 1);
  EXPECT_EQ(since(),
            "gr gs\ngs\n0.24 0.24 sl\n10 20 tl\n/DeviceRGB setcolorspace\n<<\n /ImageType 1\n"
            " /ImageMatrix [1 0 0 1 0 0]\n /Width 2 /Height 1\n /BitsPerComponent 8\n /Decode [0 1 0 1 0 1]\n"
            " /DataSource currentfile /ASCIIHexDecode filter\n>>\nimage\nff000000ff00\n>\ngr\n");
  // As on a display, only what lies in the image is drawn.
  QlPutImage(doc.d, 0, doc.gc, deep.get(), -1, 0, 10, 20, 5, 9);
  EXPECT_NE(since().find("11 20 tl\n"), std::string::npos);
  QlPutImage(doc.d, 0, doc.gc, deep.get(), 2, 0, 10, 20, 5, 9);
  QlPutImage(doc.d, 0, doc.gc, deep.get(), 0, 0, 10, 20, 0, 1);
  EXPECT_EQ(since(), "");
  // A stretch: the translation stands inside the scale.
  EXPECT_EQ(ps::StretchPutImage(p, G(doc.gc), deep.get(), 0, 0, 2, 1, 10, 20, 0, 3), 1);
  EXPECT_EQ(ps::StretchPutImage(p, G(doc.gc), deep.get(), 0, 0, 0, 1, 10, 20, 4, 3), 1);
  EXPECT_EQ(since(), "");
  EXPECT_EQ(QlStretchPutImage(doc.d, 0, doc.gc, deep.get(), 0, 0, 2, 1, 10, 20, 4, 3), 0);
  EXPECT_EQ(since().substr(0, 36), "gs\n0.4800 0.7200 sl\n5.0000 6.6667 tl");
  // A bitmap stamped through imagemask: at level 2 compressed its data
  // source is named.
  ImagePtr mask(MakeImage(doc.d, 1, XYBitmap, 9, 2, [](int x, int) { return x % 2; }));
  p->bitmapCompression = 1;
  messages.clear();
  EXPECT_EQ(QlPutBitmapTrans(doc.d, deep.get(), 1, 0, 0, 30, 40, 9, 2), 0);
  EXPECT_EQ(messages.indices, std::vector<int>{wWrongDepth});
  EXPECT_EQ(QlPutBitmapTrans(doc.d, mask.get(), 1, 0, 0, 30, 40, 9, 2), 1);
  EXPECT_NE(since().find("9 2 true [1 0 0 1 0 0]\ncurrentfile /ASCII85Decode filter /RunLengthDecode filter\n"
                         "imagemask\n"),
            std::string::npos);
  // A pixmap copied to the page is put as it is, a bitmap in the GC's
  // colours as QlCopyPlane paints it on a display.
  ImagePtr bits(MakeImage(doc.d, 1, XYPixmap, 9, 2, [](int x, int) { return x % 2; }));
  for (XImage *source : {deep.get(), bits.get()}) {
    QlPutImage(doc.d, 0, doc.gc, source, 0, 0, 30, 50, 2, 2);
    since();  // the GC's state, once
    QlPutImage(doc.d, 0, doc.gc, source, 0, 0, 30, 50, 2, 2);
    const std::string put = since();
    EXPECT_EQ(QlCopyArea(doc.d, reinterpret_cast<Drawable>(source), 0, doc.gc, 0, 0, 2, 2, 30, 50), 0);
    EXPECT_EQ(since(), put);
    EXPECT_EQ(QlCopyPlane(doc.d, reinterpret_cast<Drawable>(source), 0, doc.gc, 0, 0, 2, 2, 30, 50, 1), 0);
    EXPECT_EQ(since(), put);
  }
  doc.Finish();
  std::optional<qltest::Raster> paper = qltest::RenderPostScript(doc.out, 300, 75, 75, 60, 60);
  ASSERT_TRUE(paper);
  ExpectPixels(*paper, 30, 40, 9, 2, [](int x, int) { return x % 2 ? Rgb{0, 0, 0} : Rgb{255, 255, 255}; },
               "stamped");
  ExpectPixels(*paper, 10, 20, 4, 3, [](int x, int) { return x < 2 ? Rgb{255, 0, 0} : Rgb{0, 255, 0}; },
               "stretched");
}


// The row delta form written plainly, a byte at a time, as its comment in
// encode.h has it: the driver's writer must give these bytes exactly,
// newlines included, which no decoder checks.
std::string PlainDelta(const std::vector<Bytes> &rows) {
  std::string out;
  const char *hex = "0123456789abcdef";
  auto digits = [&](std::string &t, unsigned v, int n) {
    for (int i = n - 1; i >= 0; --i) t += hex[v >> (4 * i) & 15];
  };
  for (size_t r = 0; r < rows.size(); ++r) {
    const Bytes &row = rows[r];
    std::string text;
    int count = 0;
    unsigned long column = 4;
    auto stretch = [&](size_t at, size_t n) {
      ++count;
      digits(text, static_cast<unsigned>(at), 4), digits(text, static_cast<unsigned>(n), 2), column += 6;
      for (size_t i = at; i < at + n; ++i) {
        digits(text, row[i], 2), column += 2;
        if (column % 80 > 77) text += '\n';
      }
    };
    for (size_t i = 0; i < row.size();) {
      if (r > 0 && row[i] == rows[r - 1][i]) {
        ++i;
        continue;
      }
      size_t end = i, equal = 0;
      while (r > 0 && end < row.size() && equal < 13) equal = row[end] == rows[r - 1][end] ? equal + 1 : 0, ++end;
      if (r == 0 || equal < 13) end = r == 0 ? row.size() : end;
      else end -= equal;
      const size_t n = std::min<size_t>(end - i, 255);
      stretch(i, n);
      i += n;
    }
    digits(out, static_cast<unsigned>(count), 4);
    out += text + "\n";
  }
  return out;
}

TEST(PSImageEncoders, RowDeltaMatchesAPlainWriter) {
  for (const char *kind : {"random", "smooth", "sparse", "constant"})
    for (size_t width : {1, 39, 40, 41, 300, 700}) {
      std::vector<Bytes> rows = Rows(kind, width, 12);
      for (size_t y = 1; y < rows.size(); y += 3) rows[y] = rows[y - 1];  // some rows unchanged
      for (size_t y = 2; y < rows.size(); y += 3)
        for (size_t x = 0; x < width; x += 17) rows[y][x] = rows[y - 1][x];  // some bytes unchanged
      ASSERT_EQ(EncodeDelta(rows), PlainDelta(rows)) << kind << " " << width;
    }
}

// Rows read straight from a 24-bit image's data come out as XGetPixel's:
// the same image read through a reader of its own (which the driver must
// call pixel by pixel) gives the same document, 24 and 32 bits per pixel,
// both channel orders, every form, a source partly outside the image.
decltype(XImage::f.get_pixel) xlibGetPixel = nullptr;
unsigned long ThroughXlib(XImage *image, int x, int y) { return xlibGetPixel(image, x, y); }

TEST(PSImages, DirectRowsMatchPixelByPixel) {
  std::mt19937 rng(11);
  std::vector<uint32_t> words(53 * 29);
  for (uint32_t &w : words) w = static_cast<uint32_t>(rng());
  for (int bits : {24, 32})
    for (bool redHigh : {false, true})
      for (int level : {1, 2})
        for (int compression : {0, 1})
          for (bool colour : {false, true}) {
            std::string text[2];
            for (int through = 0; through < 2; ++through) {
              Doc doc(level, colour, compression);
              if (redHigh) {
                QlSetColorDepth(doc.d, 24);
                P(doc.d)->redMask = 0xFF0000, P(doc.d)->greenMask = 0xFF00, P(doc.d)->blueMask = 0xFF;
              }
              XImage image{};
              image.width = 53, image.height = 29, image.format = ZPixmap, image.depth = 24;
              image.byte_order = image.bitmap_bit_order = LSBFirst;
              image.bitmap_unit = 8, image.bitmap_pad = 32, image.bits_per_pixel = bits;
              image.bytes_per_line = (53 * bits / 8 + 3) / 4 * 4;
              std::vector<char> data(static_cast<size_t>(image.bytes_per_line) * 29);
              std::memcpy(data.data(), words.data(), std::min(data.size(), words.size() * 4));
              image.data = data.data();
              ASSERT_TRUE(XInitImage(&image));
              if (through) {
                xlibGetPixel = image.f.get_pixel;
                image.f.get_pixel = ThroughXlib;
              }
              QlPutImage(doc.d, 0, doc.gc, &image, 0, 0, 10, 10, 53, 29);
              QlPutImage(doc.d, 0, doc.gc, &image, -3, 5, 100, 10, 40, 40);
              text[through] = doc.Finish();
            }
            ASSERT_EQ(text[0], text[1]) << bits << " bits, level " << level << ", compression " << compression
                                        << (colour ? ", colour" : ", grey") << (redHigh ? ", red high" : "");
          }
}

}  // namespace
