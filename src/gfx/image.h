// Images as the printers keep them: XImage records in the application's
// memory, read and written through the image's own functions.
#pragma once

#include "core/qlint.h"

// A new image filled the printer way: LSBFirst bytes and bits, unit 8,
// depth-24 channel masks from `masks` (which may be null).  bytesPerLine 0
// is worked out from width, depth and pad.  Null when the arguments make
// no image Xlib's functions can work on (depth 0 or above 32, a format
// other than XYBitmap, XYPixmap, ZPixmap, a pad other than 8, 16, 32, a
// negative offset, a line shorter than its pixels, a size past what an int
// offset reaches) or on no memory.  `data` becomes the image's.
XImage *_QlNewImage(const QlPrinter *masks, unsigned depth, int format, int offset, char *data, unsigned width,
                    unsigned height, int pad, int bytesPerLine);

// Packs any image into a depth-1 bitmap: rows of (width + 7) / 8 bytes,
// lowest bit first, a bit set for every non-zero pixel.  The size goes to
// *size when size isn't null.  malloc'ed, or null.
char *_QlFormat_Image(XImage *image, int *size);

// 1 for a light pixel of the printer, 0 for a dark one.
int _QlRGBToMono(QlPrinter *printer, unsigned long pixel);

// Copies w by h pixels from (sx, sy) of one image to (dx, dy) of another,
// each AND-ed with `mask`; only the part that lies inside both images is
// copied, as X clips to the drawables.
void _QlCopyPixels(XImage *src, int sx, int sy, XImage *dst, int dx, int dy, unsigned w, unsigned h,
                   unsigned long mask);
