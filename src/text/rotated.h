// Rotated text on a real display.  X has no rotated text: the string is
// drawn into a bitmap, resampled onto the turned box, and stamped onto the
// drawable through a clip mask.  Finished bitmaps are kept in a small cache.
#pragma once

#include <qualin/Ql.h>

extern "C" {

// Both give 0 for an empty string or text of no size, otherwise what
// XFreeGC gave.  Angles are in 64ths of a degree, counter-clockwise.
QL_EXPORT int XDrawRotString(Display *display, Drawable d, GC gc, int x, int y, const char *string, int length,
                             int angle);
QL_EXPORT int XDrawRotImageString(Display *display, Drawable d, GC gc, int x, int y, const char *string,
                                  int length, int angle);

}  // extern "C"

// The worker of both: `image` 1 paints the whole turned box.
int RotatedStringDraw(Display *display, Drawable d, GC gc, int x, int y, const char *string, int length, int angle,
                      int image);

// Turns the box of width by height about its reference point (x, y) inside
// it.  Gives the bounds (left, top, width, height) and the four corners as
// a polygon relative to left and top.
void RotateBox(int width, int height, int x, int y, int angle, int *left, int *top, int *boxWidth, int *boxHeight,
               short corners[8]);

// The cache of finished bitmaps, keyed by display, angle, font names and
// the text.  `size` is the bitmap's area; above 1000000 nothing is kept.
int QlGetCachedRotText(Display *display, int angle, const char *fontNames, const char *string, int length,
                       Pixmap *pixmap, long size);
int QlSetCachedRotText(Display *display, int angle, const char *fontNames, const char *string, int length,
                       Pixmap pixmap, long size);

// What the cache holds now: the number of entries, and the pixmap and
// angle of entry `index` (0 when there is no such entry).
int _QlRotTextCacheCount();
Pixmap _QlRotTextCacheEntry(int index, int *angle);
