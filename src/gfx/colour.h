// A printer's colour table, shared by the colour calls and the drivers.
#pragma once

#include "core/qlint.h"

#include <cstdint>

// One cell of the table behind QlPrinter::cells (256 of them, made by the
// driver at a full open).  Channels are 16 bits wide, each in its own word.
struct QlColorCell {
    uint32_t allocated;  // non-zero while the cell is in use
    uint32_t red, green, blue;
    uint32_t refCount;  // allocations holding the cell
};
static_assert(sizeof(QlColorCell) == 5 * sizeof(uint32_t));

// The 0..255 channels of a pixel of `p`: at depth 24 read through the
// printer's channel masks, otherwise the high bytes of the cell.  False,
// with all three 0, for a pixel outside the table.
bool _QlPixelRGB(QlPrinter *p, unsigned long pixel, int rgb[3]);
// The two halves of it, for images whose own depth decides: a 24-bit pixel
// through the printer's masks, and a pixel's cell (false and black beyond
// the table).
void _QlTrueRGB(const QlPrinter *p, unsigned long pixel, int rgb[3]);
bool _QlCellRGB(QlPrinter *p, unsigned long pixel, int rgb[3]);
