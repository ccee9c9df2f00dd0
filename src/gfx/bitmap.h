// Readers of X bitmap files and of pixmap data, shared by the public calls
// and the fuzz targets.
#pragma once

#include "core/qlint.h"

#include <cstdio>
#include <vector>

// Fills a table of 256 entries: "0".."9" and "a".."f" (either case) give
// their value, blank, tab, newline, comma and "}" give -1, all else 0.
void _QlinitHexTable(short *table);

// The next hexadecimal number of the stream; -1 at end of file.
int _QlNextInt(FILE *stream, const short *table);

// What a bitmap file holds: rows of (width + 7) / 8 bytes, lowest bit
// first, as Xlib's XReadBitmapFileData gives them.
struct QlBitmapData {
    unsigned width = 0, height = 0;
    int xHot = -1, yHot = -1;
    std::vector<unsigned char> bits;
};

// Reads a bitmap file from `stream`: 0, 2 (BitmapFileInvalid) or 3
// (BitmapNoMemory).
int _QlReadBitmapStream(FILE *stream, QlBitmapData &out);

// QlCreatePixmapFromData for a real display, which Xlib has no call for:
// colours from XParseColor and XAllocColor, pixels drawn one by one.
Pixmap XCreatePixmapFromData(Display *display, Drawable d, Colormap colormap, unsigned width, unsigned height,
                             unsigned depth, int ncolors, int charsPerPixel, const char *const *colours,
                             const char *const *rows);
