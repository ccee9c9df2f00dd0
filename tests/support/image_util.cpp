#include "support/image_util.h"

#include <cstdlib>

namespace qltest {

XImage *MakeImage(Display *handle, int depth, int format, int width, int height,
                  const std::function<unsigned long(int x, int y)> &fill) {
  XImage *image = QlCreateImage(handle, nullptr, static_cast<unsigned>(depth), depth == 1 ? format : ZPixmap, 0,
                                nullptr, static_cast<unsigned>(width), static_cast<unsigned>(height), 8, 0);
  if (!image) return nullptr;
  const size_t planes = image->format == ZPixmap ? 1 : static_cast<size_t>(depth);
  image->data = static_cast<char *>(std::calloc(static_cast<size_t>(image->bytes_per_line) * height * planes + 1, 1));
  if (!image->data) {
    QlDestroyImage(image);
    return nullptr;
  }
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) QlPutPixel(image, x, y, fill(x, y));
  return image;
}

void ImageDeleter::operator()(XImage *image) const { QlDestroyImage(image); }

PrintedPage::PrintedPage(int level, bool colour, int compression) {
  d = QlVaOpenPrinter(nullptr, ("cat >" + out).c_str(), "PostScript", QlTagBitmapCompression, compression, 0);
  EXPECT_NE(d, nullptr);
  QlSetPSLevel(d, level);
  QlSetPSColor(d, colour);
  QlSetCreationDate(d, 0);
  gc = QlCreateGC(d, 0, 0, nullptr);
  EXPECT_EQ(QlStartDoc(d, "images"), 1);
  EXPECT_EQ(QlStartPage(d), 1);
  Since();
}

PrintedPage::~PrintedPage() {
  if (QlGetTmpName(d)) QlAbortDoc(d);
  QlFreeGC(d, gc);
  QlClosePrinter(d);
}

std::string PrintedPage::Since() {
  const char *name = QlGetTmpName(d);
  if (!name) return "";
  std::fflush(reinterpret_cast<QlPrinter *>(d)->stream);
  const std::string all = ReadFile(name);
  const std::string tail = all.substr(std::min(at_, all.size()));
  at_ = all.size();
  return tail;
}

std::string PrintedPage::Finish() {
  EXPECT_EQ(QlEndPage(d), 1);
  EXPECT_EQ(QlEndDoc(d), 1);
  return ReadFile(out);
}

unsigned long PrintedPage::Colour(int r, int g, int b) {
  XColor c{};
  c.red = static_cast<unsigned short>(r * 257);
  c.green = static_cast<unsigned short>(g * 257);
  c.blue = static_cast<unsigned short>(b * 257);
  QlAllocColor(d, 0, &c);
  return c.pixel;
}

}  // namespace qltest
