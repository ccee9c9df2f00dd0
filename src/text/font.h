// Printer fonts: the entry a printer keeps per font and per sized instance,
// and the marks that tell a printer's XFontStruct from an X server's.
#pragma once

#include "core/driver.h"

#include <X11/Xlib.h>

// One font of a printer, or one sized instance of a scalable font.  A
// printer's Font id is the address of its entry.
struct QlFontRec {
    QlFontRec *next;
    char printerName[128];  // PostScript: file name (64 bytes), then the AFM's FontName (64)
    char xlfdName[128];
    float pixelSize;  // dots; 0.1 or less marks a scalable master
    float pointSize;  // tenths of a point
    QlFontRec *scaled;
    void *pclFont;
    XFontStruct *fontStruct;
    int fontStructSet;  // reference count of fontStruct
    int *fontType;      // 0 resident, 1 soft font, 2 and 3 from the X font directories, 4 the application's
    int *loadState;     // as fontType until the font is in the document
    int encodingScheme;
    long recodeState;
    int *isoEncoded;
    int *recodeShared;
    QlFontLoader appCallback;
    XPointer appData;
};

namespace ql {

// The two halves of a PostScript entry's printerName.
inline char *FontFileName(QlFontRec *f) { return f->printerName; }
inline char *FontAlias(QlFontRec *f) { return f->printerName + 64; }
inline constexpr size_t kFontNameHalf = 64;

// The number of XExtData that marks a printer font; its private_data is
// the float width table.
inline constexpr int kPrinterFontMark = 9898;

// The entry behind a printer font, or null for an X server's font.
inline QlFontRec *PrinterFontOf(const XFontStruct *fs) {
    if (!fs || !fs->ext_data || fs->ext_data->number != kPrinterFontMark) return nullptr;
    return reinterpret_cast<QlFontRec *>(fs->fid);
}

// Font width table of a printer font: cells + 3 floats, or null.
inline const float *WidthTable(const XFontStruct *fs) {
    if (!fs || !fs->ext_data || fs->ext_data->number != kPrinterFontMark) return nullptr;
    return reinterpret_cast<const float *>(fs->ext_data->private_data);
}

// Cells of a font's character grid; a printer font's width table has
// three extra entries behind them: the font's one width, an unused word,
// and the default width.
inline unsigned CellCount(const XFontStruct *fs) {
    const unsigned cols = fs->max_char_or_byte2 - fs->min_char_or_byte2 + 1;
    const unsigned rows = fs->max_byte1 - fs->min_byte1 + 1;
    return cols * rows;
}

// A cell of all zeroes: the font has no such character.
inline bool EmptyCell(const XCharStruct &c) {
    return (c.lbearing | c.rbearing | c.width | c.ascent | c.descent) == 0;
}

// The block behind the second and third XExtData of a printer font: the
// size in dots, 72·scale, a count, and a copy of the AFM's track or pair
// records.
struct KernBlock {
    long size;
    long scale72;
    long count;
    void *records;
};

}  // namespace ql

// The font front end's cache of names (see font.cpp).
XID mrCheckFontCache(const char *name, long key);
void mrAddFontToCache(const char *name, long key, XID value);
void mrQlCacheFreeFont(XID value);
char *_QlTryToFindADefaultFont(QlPrinter *printer, const char *pattern);
// True when `id` is a font entry of this printer (or one of its sizes).
bool _QlIsPrinterFont(QlPrinter *printer, XID id);
