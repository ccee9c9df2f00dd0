#include "support/raster.h"

#include "support/gs.h"

#include <X11/Xutil.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <unordered_map>

#include "support/tempdir.h"

namespace qltest {

Raster::Raster(int w, int h, uint32_t fill) : width(std::max(w, 0)), height(std::max(h, 0)) {
  rgb.resize(static_cast<size_t>(width) * height * 3);
  this->fill(0, 0, width, height, fill);
}

void Raster::fill(int x, int y, int w, int h, uint32_t c) {
  int x0 = std::max(x, 0), y0 = std::max(y, 0);
  int x1 = std::min(x + w, width), y1 = std::min(y + h, height);
  if (x0 >= x1) return;
  const uint8_t r = uint8_t(c >> 16), g = uint8_t(c >> 8), b = uint8_t(c);
  for (int yy = y0; yy < y1; ++yy) {
    uint8_t *p = at(x0, yy);
    if (r == g && g == b) {
      std::memset(p, r, static_cast<size_t>(x1 - x0) * 3);
      continue;
    }
    for (int xx = x0; xx < x1; ++xx, p += 3) {
      p[0] = r;
      p[1] = g;
      p[2] = b;
    }
  }
}

long Raster::count(uint32_t c) const {
  const uint8_t r = uint8_t(c >> 16), g = uint8_t(c >> 8), b = uint8_t(c);
  long n = 0;
  for (size_t i = 0; i + 2 < rgb.size(); i += 3) n += rgb[i] == r && rgb[i + 1] == g && rgb[i + 2] == b;
  return n;
}

Raster Crop(const Raster &r, int x, int y, int w, int h) {
  Raster out(w, h);
  for (int yy = 0; yy < out.height; ++yy)
    for (int xx = 0; xx < out.width; ++xx)
      if (r.contains(x + xx, y + yy)) std::memcpy(out.at(xx, yy), r.at(x + xx, y + yy), 3);
  return out;
}

// ---------------------------------------------------------------------------
// PPM and Ghostscript

std::optional<Raster> ParsePpm(const std::string &bytes, std::string *err) {
  auto fail = [&](const std::string &why) -> std::optional<Raster> {
    if (err) *err = why;
    return std::nullopt;
  };
  if (bytes.size() < 2 || bytes[0] != 'P' || bytes[1] != '6') return fail("not a binary PPM (P6)");
  size_t pos = 2;
  // Header: width, height, maxval, each preceded by whitespace and comments.
  auto number = [&](long *value) {
    while (pos < bytes.size()) {
      if (bytes[pos] == '#') {
        while (pos < bytes.size() && bytes[pos] != '\n' && bytes[pos] != '\r') ++pos;
      } else if (std::isspace(static_cast<unsigned char>(bytes[pos]))) {
        ++pos;
      } else {
        break;
      }
    }
    size_t start = pos;
    *value = 0;
    while (pos < bytes.size() && bytes[pos] >= '0' && bytes[pos] <= '9' && pos - start < 9)
      *value = *value * 10 + (bytes[pos++] - '0');
    return pos > start && (pos >= bytes.size() || !std::isdigit(static_cast<unsigned char>(bytes[pos])));
  };
  long w, h, maxval;
  if (!number(&w) || !number(&h) || !number(&maxval)) return fail("malformed PPM header");
  if (w <= 0 || h <= 0 || w > 100000 || h > 100000) return fail("unreasonable PPM size");
  if (maxval <= 0 || maxval > 255) return fail("unsupported PPM maxval " + std::to_string(maxval));
  // Exactly one whitespace byte separates the header from the samples.
  if (pos >= bytes.size() || !std::isspace(static_cast<unsigned char>(bytes[pos])))
    return fail("malformed PPM header");
  ++pos;
  size_t need = static_cast<size_t>(w) * h * 3;
  if (bytes.size() - pos < need)
    return fail("PPM data cut short: " + std::to_string(bytes.size() - pos) + " of " + std::to_string(need) +
                " bytes");
  Raster r(static_cast<int>(w), static_cast<int>(h));
  const uint8_t *src = reinterpret_cast<const uint8_t *>(bytes.data()) + pos;
  if (maxval == 255) {
    std::memcpy(r.rgb.data(), src, need);
  } else {
    for (size_t i = 0; i < need; ++i)
      r.rgb[i] = static_cast<uint8_t>((std::min<long>(src[i], maxval) * 255 + maxval / 2) / maxval);
  }
  return r;
}

namespace {

int RunGsTalkative(const std::vector<std::string> &args, std::string *log) {
  GsRun run = RunGhostscriptTalkative(args);
  *log += run.log;
  return run.exitCode;
}

}  // namespace

std::optional<Raster> RenderPostScript(const std::string &psPath, int dpi, int cropX, int cropY, int cropW,
                                       int cropH, std::string *log) {
  std::string scratch;
  std::string &out = log ? *log : scratch;
  out.clear();
  TempDir dir;
  const std::string ppm = dir / "page.ppm";
  int status = RunGsTalkative({"-sDEVICE=ppmraw", "-r" + std::to_string(dpi), "-sPAPERSIZE=letter", "-dFIXEDMEDIA",
                               "-dTextAlphaBits=1", "-dGraphicsAlphaBits=1", "-dFirstPage=1", "-dLastPage=1",
                               "-sOutputFile=" + ppm, psPath},
                              &out);
  if (status != 0) {
    out += "gs exited with " + std::to_string(status) + "\n";
    return std::nullopt;
  }
  for (const char *bad : {"Error", "Substituting font"}) {
    if (out.find(bad) != std::string::npos) return std::nullopt;
  }
  if (!Exists(ppm)) {
    out += "gs made no page\n";
    return std::nullopt;
  }
  std::string err;
  std::optional<Raster> page = ParsePpm(ReadFile(ppm), &err);
  if (!page) {
    out += "reading gs's output: " + err + "\n";
    return std::nullopt;
  }
  return Crop(*page, cropX, cropY, cropW, cropH);
}

// ---------------------------------------------------------------------------
// X drawables

namespace {

int g_xError = 0;

int RecordXError(Display *, XErrorEvent *event) {
  g_xError = event->error_code;
  return 0;
}

// One mask of a TrueColor visual: where its bits are and how many.
struct Channel {
  unsigned long mask;
  int shift = 0;
  unsigned long max = 0;
  explicit Channel(unsigned long m) : mask(m) {
    if (m == 0) return;
    while (!((m >> shift) & 1)) ++shift;
    max = m >> shift;
  }
  uint8_t operator()(unsigned long pixel) const {
    if (max == 0) return 0;
    return static_cast<uint8_t>((((pixel & mask) >> shift) * 255 + max / 2) / max);
  }
};

}  // namespace

Raster CaptureDrawable(Display *dpy, Drawable d, int x, int y, int w, int h) {
  if (w <= 0 || h <= 0) return Raster();
  // The default handler would end the process on a bad rectangle.
  XSync(dpy, False);
  g_xError = 0;
  XErrorHandler previous = XSetErrorHandler(RecordXError);
  XImage *image = XGetImage(dpy, d, x, y, static_cast<unsigned>(w), static_cast<unsigned>(h), AllPlanes, ZPixmap);
  XSync(dpy, False);
  XSetErrorHandler(previous);
  if (image == nullptr || g_xError != 0) {
    if (image) XDestroyImage(image);
    ADD_FAILURE() << "XGetImage of " << w << "x" << h << "+" << x << "+" << y << " failed (X error "
                  << g_xError << ")";
    return Raster();
  }

  int screen = DefaultScreen(dpy);
  Visual *visual = DefaultVisual(dpy, screen);
  Raster r(w, h);
  if (visual->c_class == TrueColor && image->depth == DefaultDepth(dpy, screen)) {
    Channel red(visual->red_mask), green(visual->green_mask), blue(visual->blue_mask);
    for (int yy = 0; yy < h; ++yy)
      for (int xx = 0; xx < w; ++xx) {
        unsigned long p = XGetPixel(image, xx, yy);
        uint8_t *out = r.at(xx, yy);
        out[0] = red(p);
        out[1] = green(p);
        out[2] = blue(p);
      }
  } else {
    // Ask the server what the distinct pixel values stand for, all at once.
    std::unordered_map<unsigned long, size_t> index;
    std::vector<XColor> colours;
    for (int yy = 0; yy < h; ++yy)
      for (int xx = 0; xx < w; ++xx) {
        unsigned long p = XGetPixel(image, xx, yy);
        if (index.emplace(p, colours.size()).second) {
          XColor c{};
          c.pixel = p;
          colours.push_back(c);
        }
      }
    XQueryColors(dpy, DefaultColormap(dpy, screen), colours.data(), static_cast<int>(colours.size()));
    for (int yy = 0; yy < h; ++yy)
      for (int xx = 0; xx < w; ++xx) {
        const XColor &c = colours[index[XGetPixel(image, xx, yy)]];
        uint8_t *out = r.at(xx, yy);
        out[0] = static_cast<uint8_t>(c.red >> 8);
        out[1] = static_cast<uint8_t>(c.green >> 8);
        out[2] = static_cast<uint8_t>(c.blue >> 8);
      }
  }
  XDestroyImage(image);
  return r;
}

// ---------------------------------------------------------------------------
// Comparison

namespace {

// The pixels of a raster as 0xRRGGBB over a w x h area; kAbsent beyond the
// raster's own edges.  (The loops here are written for unoptimised
// sanitizer builds too, which compare whole pages.)
constexpr uint32_t kAbsent = 0xFF000000;

std::vector<uint32_t> Unpack(const Raster &r, int w, int h) {
  std::vector<uint32_t> out(static_cast<size_t>(w) * h, kAbsent);
  const uint8_t *p = r.rgb.data();
  for (int y = 0; y < r.height; ++y) {
    uint32_t *row = out.data() + static_cast<size_t>(y) * w;
    for (int x = 0; x < r.width; ++x, p += 3) row[x] = uint32_t(p[0]) << 16 | uint32_t(p[1]) << 8 | p[2];
  }
  return out;
}

bool Near(uint32_t a, uint32_t b, int tol) {
  if (a == kAbsent || b == kAbsent) return false;
  const int dr = int(a >> 16) - int(b >> 16), dg = int((a >> 8) & 0xFF) - int((b >> 8) & 0xFF),
            db = int(a & 0xFF) - int(b & 0xFF);
  return dr <= tol && dr >= -tol && dg <= tol && dg >= -tol && db <= tol && db >= -tol;
}

// Whether colour c has a match in `in` (W x H) in the square of radius t
// around (x, y).
bool Matched(uint32_t c, const uint32_t *in, int W, int H, int x, int y, int t, int colourTolerance) {
  if (c == kAbsent) return true;
  const int x0 = x > t ? x - t : 0, x1 = x + t < W ? x + t : W - 1;
  const int y0 = y > t ? y - t : 0, y1 = y + t < H ? y + t : H - 1;
  for (int yy = y0; yy <= y1; ++yy) {
    const uint32_t *row = in + static_cast<size_t>(yy) * W;
    for (int xx = x0; xx <= x1; ++xx)
      if (row[xx] == c) return true;
    if (colourTolerance > 0)
      for (int xx = x0; xx <= x1; ++xx)
        if (Near(c, row[xx], colourTolerance)) return true;
  }
  return false;
}

void Paint(uint8_t *p, uint32_t c) {
  p[0] = uint8_t(c >> 16);
  p[1] = uint8_t(c >> 8);
  p[2] = uint8_t(c);
}

}  // namespace

RasterDiff CompareRasters(const Raster &a, const Raster &b, int tolerance, int colourTolerance,
                          const std::vector<Rect> &ignore) {
  const int W = std::max(a.width, b.width), H = std::max(a.height, b.height);
  const int t = std::max(tolerance, 0);
  RasterDiff d;
  d.diff = Raster(W, H);
  if (W <= 0 || H <= 0) return d;
  const std::vector<uint32_t> pa = Unpack(a, W, H), pb = Unpack(b, W, H);
  std::vector<uint8_t> ignored(static_cast<size_t>(W) * H, 0);
  for (const Rect &r : ignore) {
    for (int y = std::max(r.y, 0); y < std::min(r.y + r.h, H); ++y)
      for (int x = std::max(r.x, 0); x < std::min(r.x + r.w, W); ++x) ignored[static_cast<size_t>(y) * W + x] = 1;
  }

  constexpr size_t kSamples = 16;
  const uint32_t *rowA = pa.data(), *rowB = pb.data();
  const uint8_t *skip = ignored.data();
  uint8_t *out = d.diff.rgb.data();
  for (int y = 0; y < H; ++y) {
    for (int x = 0; x < W; ++x, ++rowA, ++rowB, ++skip, out += 3) {
      if (*skip) {
        Paint(out, kDiffIgnored);
        continue;
      }
      const uint32_t ca = *rowA, cb = *rowB;
      const bool inkA = ca != kAbsent && ca != 0xFFFFFF, inkB = cb != kAbsent && cb != 0xFFFFFF;
      d.inkA += inkA;
      d.inkB += inkB;
      // Nearly all pixels agree in place; only the others need a search.
      bool okA = true, okB = true;
      if (ca != cb) {
        okA = Matched(ca, pb.data(), W, H, x, y, t, colourTolerance);
        okB = Matched(cb, pa.data(), W, H, x, y, t, colourTolerance);
      }
      if (okA && okB) {
        if (inkA || inkB) Paint(out, kDiffAgreeInk);
        continue;
      }
      ++d.differing;
      if (d.samples.size() < kSamples) d.samples.emplace_back(x, y);
      Paint(out, !okA && !okB ? kDiffBoth : !okA ? kDiffOnlyA : kDiffOnlyB);
    }
  }
  return d;
}

std::string Describe(const RasterDiff &d) {
  std::string s = std::to_string(d.differing) + " differing pixels (ink " + std::to_string(d.inkA) + " vs " +
                  std::to_string(d.inkB) + ")";
  if (!d.samples.empty()) {
    s += ", first at";
    for (const auto &[x, y] : d.samples) s += " (" + std::to_string(x) + "," + std::to_string(y) + ")";
  }
  return s;
}

// ---------------------------------------------------------------------------
// PNG

namespace {

uint32_t Crc32(const uint8_t *data, size_t n, uint32_t crc = 0) {
  static const auto table = [] {
    std::vector<uint32_t> t(256);
    for (uint32_t i = 0; i < 256; ++i) {
      uint32_t c = i;
      for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
      t[i] = c;
    }
    return t;
  }();
  const uint32_t *t = table.data();
  crc = ~crc;
  for (size_t i = 0; i < n; ++i) crc = t[(crc ^ data[i]) & 0xFF] ^ (crc >> 8);
  return ~crc;
}

uint32_t Adler32(const uint8_t *data, size_t n) {
  uint32_t s1 = 1, s2 = 0;
  while (n > 0) {
    // 5552 bytes is the most that can be summed before s2 could overflow.
    const size_t run = std::min<size_t>(n, 5552);
    for (size_t i = 0; i < run; ++i) {
      s1 += data[i];
      s2 += s1;
    }
    s1 %= 65521;
    s2 %= 65521;
    data += run;
    n -= run;
  }
  return s2 << 16 | s1;
}

void PutBE32(std::string &out, uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<char>((v >> shift) & 0xFF));
}

void PutChunk(std::string &out, const char *type, const std::string &data) {
  PutBE32(out, static_cast<uint32_t>(data.size()));
  out.append(type, 4);
  out += data;
  uint32_t crc = Crc32(reinterpret_cast<const uint8_t *>(type), 4);
  PutBE32(out, Crc32(reinterpret_cast<const uint8_t *>(data.data()), data.size(), crc));
}

}  // namespace

bool WritePng(const std::string &path, const Raster &r) {
  if (r.empty() || r.rgb.size() != static_cast<size_t>(r.width) * r.height * 3) return false;

  // The image data: each row behind a filter-type byte of 0 (none).
  const size_t rowBytes = static_cast<size_t>(r.width) * 3;
  std::vector<uint8_t> raw;
  raw.reserve((rowBytes + 1) * r.height);
  for (int y = 0; y < r.height; ++y) {
    raw.push_back(0);
    raw.insert(raw.end(), r.at(0, y), r.at(0, y) + rowBytes);
  }

  // A zlib stream of stored deflate blocks.
  std::string z = {char(0x78), char(0x01)};
  for (size_t at = 0; at < raw.size();) {
    const size_t n = std::min<size_t>(raw.size() - at, 65535);
    const bool last = at + n == raw.size();
    z.push_back(last ? 1 : 0);
    z.push_back(static_cast<char>(n & 0xFF));
    z.push_back(static_cast<char>(n >> 8));
    z.push_back(static_cast<char>(~n & 0xFF));
    z.push_back(static_cast<char>((~n >> 8) & 0xFF));
    z.append(reinterpret_cast<const char *>(raw.data()) + at, n);
    at += n;
  }
  PutBE32(z, Adler32(raw.data(), raw.size()));

  std::string header;
  PutBE32(header, static_cast<uint32_t>(r.width));
  PutBE32(header, static_cast<uint32_t>(r.height));
  header += std::string("\x08\x02\x00\x00\x00", 5);  // 8 bits, RGB, deflate, no filter, no interlace

  std::string png("\x89PNG\r\n\x1a\n", 8);
  PutChunk(png, "IHDR", header);
  PutChunk(png, "IDAT", z);
  PutChunk(png, "IEND", "");

  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(png.data(), static_cast<std::streamsize>(png.size()));
  file.close();
  return !file.fail();
}

Raster SideBySide(const Raster &a, const Raster &b, const Raster &diff) {
  constexpr int kGutter = 4;
  constexpr uint32_t kGrey = 0x808080;
  const Raster *parts[] = {&a, &b, &diff};
  int w = 2 * kGutter, h = 0;
  for (const Raster *p : parts) {
    w += p->width;
    h = std::max(h, p->height);
  }
  Raster out(w, h, kGrey);
  int left = 0;
  for (const Raster *p : parts) {
    if (!p->empty())
      for (int y = 0; y < p->height; ++y)
        std::memcpy(out.at(left, y), p->at(0, y), static_cast<size_t>(p->width) * 3);
    left += p->width + kGutter;
  }
  return out;
}

std::string ArtifactDir() {
  const char *bin = std::getenv("QL_BINARY_DIR");
  if (bin == nullptr || *bin == '\0') return "/tmp";
  std::string dir = std::string(bin) + "/test-artifacts";
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  return ec ? "/tmp" : dir;
}

std::string WriteComparisonPng(const std::string &name, const Raster &a, const Raster &b, const RasterDiff &d) {
  std::string path = ArtifactDir() + "/" + name + ".png";
  return WritePng(path, SideBySide(a, b, d.diff)) ? path : std::string();
}

}  // namespace qltest
