// Rotated text on a real display.  X has no rotated text: the string is
// drawn into a bitmap, resampled onto the turned box, and stamped onto the
// drawable through a clip mask.  Finished bitmaps are kept in a small cache.
#pragma once

#include <qualin/Ql.h>

#include <functional>

extern "C" {

// Both give 0 for an empty string or text of no size, otherwise what
// XFreeGC gave.  Angles are in 64ths of a degree, counter-clockwise.
QL_EXPORT int XDrawRotString(Display *display, Drawable d, GC gc, int x, int y, const char *string, int length,
                             int angle);
QL_EXPORT int XDrawRotImageString(Display *display, Drawable d, GC gc, int x, int y, const char *string,
                                  int length, int angle);
// The same for multibyte text in an Xlib font set.
QL_EXPORT int XmbDrawRotString(Display *display, Drawable d, XFontSet set, GC gc, int x, int y, const char *text,
                               int length, int angle);
QL_EXPORT int XmbDrawRotImageString(Display *display, Drawable d, XFontSet set, GC gc, int x, int y,
                                    const char *text, int length, int angle);

}  // extern "C"

// The workers: `image` 1 paints the whole turned box.
int RotatedStringDraw(Display *display, Drawable d, GC gc, int x, int y, const char *string, int length, int angle,
                      int image);
int mbRotatedStringDraw(Display *display, Drawable d, XFontSet set, GC gc, int x, int y, const char *text,
                        int length, int angle, int image);

// A text as the common worker sees it: its box, the distance from the box's
// top to the baseline, the name its fonts have in the cache, and how to
// paint it in 1 on 0 into a depth-1 bitmap with the GC given, its baseline
// at `baseline`.
struct RotatedText {
    int width, ascent, height;
    const char *cacheKey;
    std::function<void(Drawable bitmap, GC gc, int baseline)> paint;
};
// Turns `text` about (x, y) onto d in the colours of gc; `string` and
// `length` key the cache.  What XFreeGC gave, or 0 when nothing is drawn.
int RotatedTextDraw(Display *display, Drawable d, GC gc, int x, int y, const char *string, int length, int angle,
                    int image, const RotatedText &text);

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
