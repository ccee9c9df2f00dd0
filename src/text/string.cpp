// String drawing, and the metric calls that need only a font.
//
// On a display everything is Xlib's.  A printer font is measured from the
// float width table its driver hangs on ext_data: widths on paper keep the
// precision of the font's metrics and are rounded once, at the end.
#include "text/text.h"

#include "core/driver.h"
#include "fontdata/parseafm.h"
#include "gfx/dispatch.h"
#include "gfx/gc.h"
#include "text/font.h"
#include "text/rotated.h"

#include <cstdlib>

namespace {

using ql::kBadGC;
using ql::kBadValue;

// The head of the PCL drivers' font record (QlFontRec::pclFont): the
// symbol set, then the fixed-pitch flag.
struct PclFontHead {
    int symbolSet;
    int fixedPitch;
};

// A printer font: the mark, with its width table behind it.
inline bool isPrinterFont(const XFontStruct *fs) { return ql::WidthTable(fs) != nullptr; }

inline bool isLineEnd(unsigned char c) { return c == '\n' || c == '\r'; }

// A fixed-pitch PCL font advances every character by the same width: that
// of its space, which is what the PCL driver takes as the font's pitch.
bool fixedPitchWidth(const XFontStruct *fs, const float *table, float *width) {
    const QlFontRec *rec = ql::PrinterFontOf(fs);
    if (!rec || !rec->pclFont || !static_cast<const PclFontHead *>(rec->pclFont)->fixedPitch) return false;
    const unsigned cells = ql::CellCount(fs);
    const unsigned lo = fs->min_char_or_byte2, hi = fs->max_char_or_byte2;
    *width = (fs->min_byte1 == 0 && lo <= ' ' && ' ' <= hi) ? table[' ' - lo] : table[cells + 2];
    return true;
}

// The end of every printer width: a fraction below one half is cut, any
// other rounds up.  Rounding up goes by the sum itself: a sum a float's
// error short of a whole number is that number, not the next one.
inline int roundWidth(long double sum) { return static_cast<int>(sum + 0.5L); }

// The cell QlTextExtents reads for a byte; a byte outside the font's
// columns has no cell and measures as all zeroes.
inline const XCharStruct &extentCell(const XFontStruct *fs, unsigned char c) {
    static const XCharStruct none{};
    if (c < fs->min_char_or_byte2 || c > fs->max_char_or_byte2) return none;
    return fs->per_char[c - fs->min_char_or_byte2];
}

// The per_char width of a byte of an X font.  A font without per_char has
// one width for all; a byte outside its columns has no cell and counts 0.
inline int xCharWidth(const XFontStruct *fs, unsigned char c) {
    if (c < fs->min_char_or_byte2 || c > fs->max_char_or_byte2) return 0;
    return fs->per_char ? fs->per_char[c - fs->min_char_or_byte2].width : fs->min_bounds.width;
}

// The pair record of a printer font for two characters, in either order;
// `size` receives the font's size.  Null when the font has no pairs or
// none matches.
const PairKernData *findPair(const XFontStruct *fs, int first, int second, long *size) {
    if (!isPrinterFont(fs)) return nullptr;
    const XExtData *e = fs->ext_data->next;
    if (!e || !(e = e->next) || !e->private_data) return nullptr;
    const auto *block = reinterpret_cast<const ql::KernBlock *>(e->private_data);
    const auto *pairs = static_cast<const PairKernData *>(block->records);
    if (!pairs) return nullptr;
    const auto a = static_cast<unsigned char>(first), b = static_cast<unsigned char>(second);
    for (long i = 0; i < block->count; ++i) {
        const PairKernData &k = pairs[i];
        if (!k.name1 || !k.name2) continue;
        const auto n1 = static_cast<unsigned char>(k.name1[0]), n2 = static_cast<unsigned char>(k.name2[0]);
        if ((n1 == a && n2 == b) || (n1 == b && n2 == a)) {
            *size = block->size;
            return &k;
        }
    }
    return nullptr;
}

// Slot 9 of the printer's driver, in the locale bracket.
int drawStringSlot(QlPrinter *p, Drawable d, QlGC *g, int x, int y, const char *string, int length) {
    _QlSetLocaleC();
    int rc = DriverSwitch[p->driverId]->DrawString(p, d, g, x, y, string, length);
    _QlResetLocale();
    return rc;
}

}  // namespace

// ---------------------------------------------------------------- drawing

int QlDrawString(Display *handle, Drawable d, GC gc, int x, int y, const char *string, int length) {
    if (QlIsDisplay(handle)) return XDrawString(handle, d, gc, x, y, string, length);
    return ql::Draw<&QlDrawDriver::DrawString>(handle, "QlDrawString", d, gc, x, y, string, length);
}

int QlDrawString16(Display *handle, Drawable d, GC gc, int x, int y, const XChar2b *string, int length) {
    if (QlIsDisplay(handle)) return XDrawString16(handle, d, gc, x, y, string, length);
    return ql::Draw<&QlDrawDriver::DrawString16>(handle, "QlDrawString16", d, gc, x, y, string, length);
}

// Image text paints its background box first: a solid fill in the GC's
// background over the font's ascent and descent, then the string.  The
// GC's foreground and fill style are as they were afterwards; its dirty
// bits show that they were changed.
int QlDrawImageString(Display *handle, Drawable d, GC gc, int x, int y, const char *string, int length) {
    if (QlIsDisplay(handle)) return XDrawImageString(handle, d, gc, x, y, string, length);
    QlPrinter *p = ql::Guarded(handle, "QlDrawImageString");
    if (!p) return kBadValue;
    QlGC *g = _QlPrinterGC(gc, "QlDrawImageString");
    if (!g) return kBadGC;
    const unsigned long foreground = g->values.foreground;
    const int fillStyle = g->values.fill_style;
    QlSetFillStyle(handle, gc, FillSolid);
    QlSetForeground(handle, gc, g->values.background);
    if (XFontStruct *fs = g->fontStruct) {  // without a font there is no box to paint
        int direction = 0, ascent = 0, descent = 0;
        XCharStruct overall{};
        QlTextExtents(fs, string, length, &direction, &ascent, &descent, &overall);
        int width = QlTextWidth(fs, string, length);
        QlFillRectangle(handle, d, gc, x, y - ascent, static_cast<unsigned>(width),
                        static_cast<unsigned>(ascent + descent));
    }
    QlSetFillStyle(handle, gc, fillStyle);
    QlSetForeground(handle, gc, foreground);
    return drawStringSlot(p, d, g, x, y, string, length);
}

// On a printer the 16-bit form draws its bytes as they are, without a box.
int QlDrawImageString16(Display *handle, Drawable d, GC gc, int x, int y, const XChar2b *string, int length) {
    if (QlIsDisplay(handle)) return XDrawImageString16(handle, d, gc, x, y, string, length);
    return ql::Draw<&QlDrawDriver::DrawString>(handle, "QlDrawImageString16", d, gc, x, y,
                                               reinterpret_cast<const char *>(string), length);
}

// Each item switches the GC's font when it names another, is drawn at its
// delta, and moves x on by its width on paper.
int QlDrawText(Display *handle, Drawable d, GC gc, int x, int y, XTextItem *items, int count) {
    if (QlIsDisplay(handle)) return XDrawText(handle, d, gc, x, y, items, count);
    if (!ql::Guarded(handle, "QlDrawText")) return kBadValue;
    if (count <= 0) return 0;
    if (!items) return kBadValue;
    QlGC *g = _QlPrinterGC(gc, "QlDrawText");
    if (!g) return kBadGC;
    for (int i = 0; i < count; ++i) {
        const XTextItem &item = items[i];
        if (item.font != g->values.font) QlSetFont(handle, gc, item.font);
        QlDrawString(handle, d, gc, x + item.delta, y, item.chars, item.nchars);
        x += QlTextWidth(g->fontStruct, item.chars, item.nchars) + item.delta;
    }
    return 0;
}

int QlDrawText16(Display *handle, Drawable d, GC gc, int x, int y, XTextItem16 *items, int count) {
    if (QlIsDisplay(handle)) return XDrawText16(handle, d, gc, x, y, items, count);
    _QlError(wNotSupport, "QlDrawText16");
    return 0;
}

// Angles are in 64ths of a degree.  Unrotated text is plain text.
int QlDrawRotString(Display *handle, Drawable d, GC gc, int x, int y, const char *string, int length, int angle) {
    if (QlIsDisplay(handle)) {
        if (angle == 0) return XDrawString(handle, d, gc, x, y, string, length);
        return XDrawRotString(handle, d, gc, x, y, string, length, angle);
    }
    if (angle == 0)
        return ql::Draw<&QlDrawDriver::DrawString>(handle, "QlDrawRotString", d, gc, x, y, string, length);
    return ql::Draw<&QlDrawDriver::DrawRotString>(handle, "QlDrawRotString", d, gc, x, y, string, length, angle);
}

int QlDrawRotImageString(Display *handle, Drawable d, GC gc, int x, int y, const char *string, int length,
                         int angle) {
    if (QlIsDisplay(handle)) {
        if (angle == 0) return XDrawImageString(handle, d, gc, x, y, string, length);
        return XDrawRotImageString(handle, d, gc, x, y, string, length, angle);
    }
    if (angle == 0) return QlDrawImageString(handle, d, gc, x, y, string, length);
    return ql::Draw<&QlDrawDriver::DrawRotImageString>(handle, "QlDrawRotImageString", d, gc, x, y, string,
                                                       length, angle);
}

// ---------------------------------------------------------------- metrics

// Runs for every string measured and every image string drawn: no
// allocation, one pass.  Line ends have no width.  A character outside the
// font, or one whose per_char cell is all zeroes, has the default width.
int QlTextWidth(XFontStruct *font, const char *string, int length) {
    if (!isPrinterFont(font)) return font ? XTextWidth(font, string, length) : 0;
    if (!string || length <= 0) return 0;
    const auto *s = reinterpret_cast<const unsigned char *>(string);
    const float *table = ql::WidthTable(font);
    long double sum = 0;
    float fixed;
    if (fixedPitchWidth(font, table, &fixed)) {
        for (int i = 0; i < length; ++i)
            if (!isLineEnd(s[i])) sum = static_cast<float>(sum + fixed);
        return roundWidth(sum);
    }
    const unsigned cells = ql::CellCount(font);
    const float one = table[cells], fallback = table[cells + 2];
    const XCharStruct *perChar = font->per_char;
    // A font whose rows begin above 0 has no cell for a byte: all default.
    const unsigned lo = font->min_byte1 == 0 ? font->min_char_or_byte2 : 1u;
    const unsigned hi = font->min_byte1 == 0 ? font->max_char_or_byte2 : 0u;
    for (int i = 0; i < length; ++i) {
        const unsigned c = s[i];
        if (isLineEnd(static_cast<unsigned char>(c))) continue;
        float w = fallback;
        if (c >= lo && c <= hi) {
            if (!perChar) w = one;
            else if (!ql::EmptyCell(perChar[c - lo])) w = table[c - lo];
        }
        if (w != 0) sum += w;
    }
    return roundWidth(sum);
}

int QlTextWidth16(XFontStruct *font, const XChar2b *string, int length) {
    return font ? XTextWidth16(font, string, length) : 0;
}

// The font's direction, ascent and descent are those of max_bounds.  The
// bearings of a string are those of its first character with the least
// left bearing and its first with the greatest right bearing, placed at
// their distance from the start.
int QlTextExtents(XFontStruct *font, const char *string, int length, int *direction, int *ascent, int *descent,
                  XCharStruct *overall) {
    if (!isPrinterFont(font)) {
        if (!font) return 0;
        return XTextExtents(font, string, length, direction, ascent, descent, overall);
    }
    auto storeFont = [&] {
        if (direction) *direction = static_cast<int>(font->direction);
        if (ascent) *ascent = font->max_bounds.ascent;
        if (descent) *descent = font->max_bounds.descent;
    };
    if (length <= 0 || !string) {
        storeFont();
        return 0;
    }
    if (overall) {
        overall->width = static_cast<short>(QlTextWidth(font, string, length));
        if (!font->per_char) {
            overall->lbearing = font->min_bounds.lbearing;
            overall->rbearing = font->max_bounds.rbearing;
            overall->ascent = font->max_bounds.ascent;
            overall->descent = font->max_bounds.descent;
        } else {
            const auto *s = reinterpret_cast<const unsigned char *>(string);
            const XCharStruct &first = extentCell(font, s[0]);
            short up = first.ascent, down = first.descent, left = first.lbearing, right = first.rbearing;
            int leftAt = 0, rightAt = 0;
            for (int i = 1; i < length; ++i) {
                const XCharStruct &c = extentCell(font, s[i]);
                if (c.ascent > up) up = c.ascent;
                if (c.descent > down) down = c.descent;
                if (c.lbearing < left) left = c.lbearing, leftAt = i;
                if (c.rbearing > right) right = c.rbearing, rightAt = i;
            }
            overall->ascent = up;
            overall->descent = down;
            overall->lbearing = static_cast<short>(QlTextWidth(font, string, leftAt) + left);
            overall->rbearing = static_cast<short>(QlTextWidth(font, string, rightAt) + right);
        }
    }
    storeFont();
    return 1;
}

int QlTextExtents16(XFontStruct *font, const XChar2b *string, int length, int *direction, int *ascent,
                    int *descent, XCharStruct *overall) {
    if (isPrinterFont(font)) {
        _QlError(wNotSupport, "QlTextExtents16");
        return 0;
    }
    if (!font) return 0;
    return XTextExtents16(font, string, length, direction, ascent, descent, overall);
}

// Whole widths per character whose sum is the rounded total: each
// character spans from its start, rounded, to its end, rounded, so the
// rounding errors do not add up.  The width table is read at the raw byte.
int QlCharWidthOfString(XFontStruct *font, const char *string, int length, int *widths) {
    if (!font || !string || length <= 0) return 0;
    const auto *s = reinterpret_cast<const unsigned char *>(string);
    if (!isPrinterFont(font)) {
        if (widths)
            for (int i = 0; i < length; ++i) widths[i] = xCharWidth(font, s[i]);
        return XTextWidth(font, string, length);
    }
    const float *table = ql::WidthTable(font);
    const unsigned entries = ql::CellCount(font) + 3;
    const float fallback = table[entries - 1];
    float x = 0;
    for (int i = 0; i < length; ++i) {
        const int start = static_cast<int>(x + 0.5);
        x += s[i] < entries ? table[s[i]] : fallback;
        if (widths) widths[i] = static_cast<int>(x + 0.5) - start;
    }
    return static_cast<int>(x + 0.5);
}

// ---------------------------------------------------------------- kerning

// Kerns are in thousandths of the font's size.
double QlKernPairX(XFontStruct *font, int first, int second) {
    long size = 0;
    const PairKernData *k = findPair(font, first, second, &size);
    return k ? static_cast<double>(k->xamt * size) / 1000.0 : 0.0;
}

double QlKernPairY(XFontStruct *font, int first, int second) {
    long size = 0;
    const PairKernData *k = findPair(font, first, second, &size);
    return k ? static_cast<double>(k->yamt * size) / 1000.0 : 0.0;
}

// Both kerns of a pair, malloc'ed, or null when the font has no such pair.
double *QlKernPairXY(XFontStruct *font, int first, int second) {
    long size = 0;
    const PairKernData *k = findPair(font, first, second, &size);
    if (!k) return nullptr;
    auto *xy = static_cast<double *>(std::malloc(2 * sizeof(double)));
    if (!xy) return nullptr;
    xy[0] = static_cast<double>(k->xamt * size) / 1000.0;
    xy[1] = static_cast<double>(k->yamt * size) / 1000.0;
    return xy;
}

// ---------------------------------------------------------------- EUC-JP

int _QlEUCtoSJIS(const char *source, int length, char *destination, int limit, int *outLength) {
    int out = 0;
    int rc = 0;
    const auto *src = reinterpret_cast<const unsigned char *>(source);
    auto *dst = reinterpret_cast<unsigned char *>(destination);
    for (int i = 0; i < length; ++i) {
        const unsigned c = src[i];
        if (c <= 127) {
            if (out >= limit) {  // no room for even one byte
                rc = 1;
                break;
            }
            dst[out++] = static_cast<unsigned char>(c);
            continue;
        }
        if (out >= limit || i + 1 >= length || src[i + 1] < 128) {
            rc = 1;
            break;
        }
        const unsigned d = src[++i];
        if (c == 0x8E) {  // half-width kana: the second byte alone
            dst[out++] = static_cast<unsigned char>(d);
            continue;
        }
        out += 2;
        if (out > limit) {
            rc = 1;
            break;
        }
        const int h = static_cast<int>(c & 0x7F), l = static_cast<int>(d & 0x7F);
        dst[out - 2] = static_cast<unsigned char>((h - 33) / 2 + (h < 95 ? 129 : 193));
        if (c & 1) dst[out - 1] = static_cast<unsigned char>(l > 95 ? l + 32 : l + 31);
        else dst[out - 1] = static_cast<unsigned char>(l + 126);
    }
    if (outLength) *outLength = out;
    return rc;
}
