// Bit pictures made from images: the halftones that raster output and
// level-1 PostScript tiles are made of, and their packed and XImage forms.
//
// A bit map is an array of h row pointers to w bytes of 0 or 1, 1 being a
// black dot; FreeBitmapRows releases one.  A packed map has rows of
// (w + 7) / 8 bytes, most significant bit first.
#pragma once

#include "core/qlint.h"

namespace ql_pcl {

// The ordered 8x8 dither: 64 thresholds from 1 to 32, each twice.
extern const int halftonematrix8x8[64];

// The 8x8 dither of the image's w by h pixels from its top left corner,
// phased to the page by x0, y0 so that neighbouring images meet without a
// seam.  Null for depth 0, a size of 0 or failed allocation.
unsigned char **XImageToHalftone_edge(QlPrinter *printer, XImage *image, int x0, int y0, int w, int h);

// The 3x3 cell halftone of the image's rectangle at x0, y0 of w by h,
// on the grid of cells of the whole image.  Null as above.
unsigned char **XImageToHalftone(QlPrinter *printer, XImage *image, int x0, int y0, int w, int h);

// The packed form of a bit map; null for no map or a size of 0.
unsigned char **BitimageToAscii(unsigned char **map, int w, int h);

// A depth-1 XYPixmap image of a bit map (pixel 1 for a black dot), to be
// released with QlDestroyImage; null for no map, a size of 0 or no memory.
XImage *BitimageToXImage(unsigned char **map, int w, int h);

// Frees the h rows of a bit map or packed map, and the map.
void FreeBitmapRows(unsigned char **map, int h);

}  // namespace ql_pcl
