// Halftones and bit pictures shared by the raster drivers and the
// PostScript tiles of level 1.
#include "drivers/pcl5/raster.h"

#include "gfx/colour.h"
#include "gfx/image.h"

#include <climits>
#include <cstdio>
#include <cstdlib>

namespace ql_pcl {

const int halftonematrix8x8[64] = {
    28, 18, 14, 5,  9,  16, 19, 21,  //
    29, 27, 1,  2,  6,  10, 22, 32,  //
    30, 26, 3,  4,  7,  11, 23, 31,  //
    25, 20, 13, 8,  12, 15, 17, 24,  //
    9,  16, 19, 21, 28, 18, 14, 5,   //
    6,  10, 22, 32, 29, 27, 1,  2,   //
    7,  11, 23, 31, 30, 26, 3,  4,   //
    12, 15, 17, 24, 25, 20, 13, 8,
};

namespace {

// h rows of `rowBytes` zeroed bytes; null on a size of 0 or no memory.
unsigned char **newRows(int rowBytes, int h) {
    if (rowBytes <= 0 || h <= 0) return nullptr;
    auto **rows = static_cast<unsigned char **>(std::calloc(static_cast<size_t>(h), sizeof(unsigned char *)));
    if (!rows) return nullptr;
    for (int i = 0; i < h; ++i) {
        rows[i] = static_cast<unsigned char *>(std::calloc(static_cast<size_t>(rowBytes), 1));
        if (!rows[i]) {
            FreeBitmapRows(rows, i);
            return nullptr;
        }
    }
    return rows;
}

bool inside(const XImage *image, long x, long y) {
    return x >= 0 && y >= 0 && x < image->width && y < image->height;
}

unsigned long pixelAt(XImage *image, long x, long y) {
    return QlGetPixel(image, static_cast<int>(x), static_cast<int>(y));
}

// The 0..255 channels of a pixel: red, green, blue.
struct Rgb {
    int r = 0, g = 0, b = 0;
};

Rgb channels(QlPrinter *p, unsigned long pixel) {
    int rgb[3];
    _QlPixelRGB(p, pixel, rgb);
    return {rgb[0], rgb[1], rgb[2]};
}

// The grey of the 3x3 cells, 0 (black) to 255 (white).
double cellGrey(const Rgb &c) { return 0.114 * c.b + 0.587 * c.g + 0.299 * c.r; }

// The level of the 8x8 dither, 0 (black) to 32 (white).
int ditherLevel(const Rgb &c) {
    int level = static_cast<int>((0.11 * c.b + 0.3 * c.r + 0.59 * c.g) * 0.12549019607843137 + 0.5);
    return level > 32 ? 32 : level;
}

int mod8(long v) { return static_cast<int>(((v % 8) + 8) % 8); }

// The order in which a 3x3 cell fills with black as it darkens: (row, col).
constexpr int kCellOrder[9][2] = {{1, 1}, {1, 0}, {2, 1}, {1, 2}, {0, 2}, {2, 0}, {0, 0}, {2, 2}, {0, 1}};

// The grey scale of the cells.  Greys are 8-bit whatever the depth of the
// image, so a cell counts on that scale: white sets no dot and black all
// nine at every depth.
constexpr int kGreyMax = 255;

long roundUp3(long v) { return (v + 2) / 3 * 3; }

}  // namespace

unsigned char **XImageToHalftone_edge(QlPrinter *p, XImage *image, int x0, int y0, int w, int h) {
    if (!image || image->depth == 0 || (image->depth > 1 && !p)) return nullptr;
    unsigned char **map = newRows(w, h);
    if (!map) return nullptr;
    for (int row = 0; row < h && row < image->height; ++row) {
        for (int col = 0; col < w && col < image->width; ++col) {
            unsigned long pixel = pixelAt(image, col, row);
            if (image->depth == 1) {
                map[row][col] = pixel == 0;
                continue;
            }
            int threshold = halftonematrix8x8[mod8(static_cast<long>(y0) + row) + mod8(static_cast<long>(x0) + col) * 8];
            map[row][col] = ditherLevel(channels(p, pixel)) < threshold;
        }
    }
    return map;
}

unsigned char **XImageToHalftone(QlPrinter *p, XImage *image, int x0, int y0, int w, int h) {
    if (!image || image->depth == 0 || (image->depth > 1 && !p)) return nullptr;
    unsigned char **map = newRows(w, h);
    if (!map) return nullptr;
    if (image->depth == 1) {
        for (int row = 0; row < h; ++row)
            for (int col = 0; col < w; ++col) {
                long x = static_cast<long>(x0) + col, y = static_cast<long>(y0) + row;
                if (inside(image, x, y)) map[row][col] = pixelAt(image, x, y) == 0;
            }
        return map;
    }
    // Pixels outside the image are white.
    auto grey = [&](long x, long y) { return inside(image, x, y) ? cellGrey(channels(p, pixelAt(image, x, y))) : kGreyMax; };
    if (w / 3 == 0 || h / 3 == 0) {
        for (int row = 0; row < h; ++row)
            for (int col = 0; col < w; ++col)
                map[row][col] = grey(static_cast<long>(x0) + col, static_cast<long>(y0) + row) < (kGreyMax + 1) / 2;
        return map;
    }
    if (image->width <= 0 || image->height <= 0) return map;
    auto clamp = [](long v, long hi) { return v < 0 ? 0 : (v > hi ? hi : v); };
    const long xEnd = roundUp3(static_cast<long>(x0) + w), yEnd = roundUp3(static_cast<long>(y0) + h);
    for (long by = static_cast<long>(y0) / 3 * 3; by < yEnd; by += 3) {
        for (long bx = static_cast<long>(x0) / 3 * 3; bx < xEnd; bx += 3) {
            int v = 0;
            for (int r = 0; r < 3; ++r)
                for (int c = 0; c < 3; ++c)
                    v = static_cast<int>(kGreyMax - grey(clamp(bx + c, image->width - 1), clamp(by + r, image->height - 1)) + v);
            int count = v / kGreyMax;
            for (int i = 0; i < count && i < 9; ++i) {
                long row = by + kCellOrder[i][0] - y0, col = bx + kCellOrder[i][1] - x0;
                if (row >= 0 && row < h && col >= 0 && col < w) map[row][col] = 1;
            }
        }
    }
    return map;
}

unsigned char **BitimageToAscii(unsigned char **map, int w, int h) {
    if (!map || w <= 0 || h <= 0) return nullptr;
    const int rowBytes = static_cast<int>((static_cast<long>(w) + 7) / 8);
    unsigned char **packed = newRows(rowBytes, h);
    if (!packed) {
        std::fputs("Function BitimageToAscii, could not allocate memory\n", stderr);
        return nullptr;
    }
    for (int row = 0; row < h; ++row)
        for (int col = 0; col < w; ++col)
            if (map[row][col]) packed[row][col / 8] |= static_cast<unsigned char>(0x80 >> (col % 8));
    return packed;
}

XImage *BitimageToXImage(unsigned char **map, int w, int h) {
    if (!map || w <= 0 || h <= 0) return nullptr;
    const long rowBytes = (static_cast<long>(w) + 7) / 8;
    if (rowBytes * h > INT_MAX) return nullptr;
    char *data = static_cast<char *>(std::calloc(static_cast<size_t>(rowBytes * h), 1));
    if (!data) return nullptr;
    XImage *image = _QlNewImage(nullptr, 1, XYPixmap, 0, data, static_cast<unsigned>(w), static_cast<unsigned>(h), 8,
                                static_cast<int>(rowBytes));
    if (!image) {
        std::free(data);
        return nullptr;
    }
    for (int row = 0; row < h; ++row)
        for (int col = 0; col < w; ++col) QlPutPixel(image, col, row, map[row][col]);
    return image;
}

void FreeBitmapRows(unsigned char **map, int h) {
    if (!map) return;
    for (int i = 0; i < h; ++i) std::free(map[i]);
    std::free(map);
}

}  // namespace ql_pcl
