// Font sets and multibyte text.
//
// On a display out of the forced Japanese mode every call is Xlib's.  A set
// of the library's own (on a printer, or on a display in the forced mode)
// splits a text into runs that one of its fonts draws: double-byte
// characters in the JIS X 0208 font, half-width kana in the JIS X 0201 font,
// all other bytes in the ISO 8859-1 font.  Runs reach a printer's font in
// Shift-JIS, EUC-JP text being converted first; on a display a double-byte
// run goes to the server's JIS X 0208 font as JIS pairs.
#include "text/fontset.h"

#include "core/driver.h"
#include "gfx/dispatch.h"
#include "gfx/gc.h"
#include "text/font.h"
#include "text/rotated.h"
#include "text/text.h"

#include <algorithm>
#include <cctype>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

int _Ql_using_sjis_hack = 0;

namespace {

using ql::kBadGC;
using ql::kBadValue;

// The text of a double-byte run on a display, as JIS pairs.
char _Ql_jisx208_buffer[4096];

constexpr const char *kAnyEncoding = "_QlAnyEncoding";
constexpr const char *kJapaneseCharsets[] = {"jisx0208.1983-0", "jisx0201.1976-0", "iso8859-1"};
constexpr size_t kMaxNameLength = 255;

struct FreeDeleter {
    void operator()(void *p) const { std::free(p); }
};
using Buffer = std::unique_ptr<char[], FreeDeleter>;

bool realDisplay(Display *handle) { return QlIsDisplay(handle) && !_Ql_using_sjis_hack; }
// Xlib's set drawn on a display.
bool passThrough(Display *handle, const QlFontSet *set) { return set->xFontSet && QlIsDisplay(handle); }
// A set of the library's own draws only with the fonts of its handle, and
// Xlib's only on a display.
bool foreign(Display *handle, const QlFontSet *set) { return set->xFontSet || set->handle != handle; }

inline bool isLead(unsigned c) { return (c >= 129 && c <= 159) || (c >= 224 && c <= 239); }
inline bool isKana(unsigned c) { return c >= 160 && c <= 223; }

// ------------------------------------------------------------ conversions

void sjis2_to_jisx208(unsigned c, unsigned d, unsigned char *out) {
    unsigned base = (c > 223 ? 2 * c - 97 : 2 * c + 31) & 255;
    if (d >= 159) {
        out[0] = static_cast<unsigned char>(base + 1);
        out[1] = static_cast<unsigned char>(d - 126);
    } else {
        out[0] = static_cast<unsigned char>(base);
        out[1] = static_cast<unsigned char>((d & 128) ? d - 32 : d - 31);
    }
}

void jisx208_to_sjis2(unsigned h, unsigned l, unsigned char *out) {
    if (h > 94) out[0] = static_cast<unsigned char>((((h & 1) ? h - 95 : h - 96) / 2 - 32) & 255);
    else out[0] = static_cast<unsigned char>(((h & 1) ? h - 33 : h - 34) / 2 + 129);
    if (!(h & 1)) out[1] = static_cast<unsigned char>(l + 126);
    else out[1] = static_cast<unsigned char>(l < 96 ? l + 31 : l + 32);
}

// ------------------------------------------------------------ fonts of a set

// The structure of font `i` of the set, fetched on first use.  A charset
// without a font has none: an X server would refuse font 0.
XFontStruct *structOf(QlFontSet *set, int i) {
    XFontStruct **slot = i == 0 ? &set->fontStruct0 : i == 1 ? &set->fontStruct1 : &set->fontStruct2;
    const Font id = i == 0 ? set->font0 : i == 1 ? static_cast<Font>(set->font1) : set->font2;
    if (!*slot && id) {
        *slot = QlQueryFont(set->handle, id);
        if (i == 0 && set->charsetCount == 1) set->font1 = reinterpret_cast<unsigned long>(*slot);
    }
    return *slot;
}

char *copyOf(std::string_view s) {
    auto *c = static_cast<char *>(std::malloc(s.size() + 1));
    if (!c) return nullptr;
    std::memcpy(c, s.data(), s.size());
    c[s.size()] = '\0';
    return c;
}

void freeList(char **list, int count) {
    for (int i = 0; list && i < count; ++i) std::free(list[i]);
    std::free(list);
}

// Frees a set of the library's own, with its fonts.
void destroyOwn(QlFontSet *set) {
    std::free(set->locale);
    std::free(set->baseNameList);
    freeList(set->charsets, set->charsetCount);
    freeList(set->fontNames, set->charsetCount);
    std::free(set->charsetFound);
    for (int i = 0; set->fontIds && i < set->charsetCount; ++i) {
        XFontStruct *fs = i == 0 ? set->fontStruct0 : i == 1 ? set->fontStruct1 : set->fontStruct2;
        if (fs) QlFreeFont(set->handle, fs);
        else if (set->fontIds[i]) QlUnloadFont(set->handle, set->fontIds[i]);
    }
    std::free(set->fontIds);
    std::free(set->fontStructList);
    std::free(set);
}

// The locale's name from its first letter on; of a locale whose categories
// differ, that of LC_CTYPE, which says how text is encoded.
std::string_view localeName(std::string_view all) {
    if (auto at = all.find("LC_CTYPE="); at != std::string_view::npos) {
        all.remove_prefix(at + 9);
        all = all.substr(0, all.find(';'));
    }
    while (!all.empty() && !std::isalpha(static_cast<unsigned char>(all.front()))) all.remove_prefix(1);
    return all;
}

// The first listed font of each charset still missing becomes its font.
void check_encoding(Display *handle, const char *pattern, QlFontSet *set) {
    int n = 0;
    char **names = QlListFonts(handle, pattern, 4096, &n);
    if (!names) return;
    for (int c = 0; c < set->charsetCount; ++c) {
        if (set->charsetFound[c]) continue;
        const bool any = !std::strcmp(set->charsets[c], kAnyEncoding);
        for (int i = 0; i < n; ++i) {
            if (!any && !std::strstr(names[i], set->charsets[c])) continue;
            set->fontNames[c] = copyOf(names[i]);
            if (!set->fontNames[c]) break;
            set->charsetFound[c] = 1;
            set->fontIds[c] = QlLoadFont(handle, names[i]);
            break;
        }
    }
    QlFreeFontNames(names);
}

// Fills a new set of the library's own; false on no memory.
bool buildOwn(QlFontSet *set, const char *names, char ***missing, int *count) {
    set->baseNameList = copyOf(names ? names : "");
    const char *current = std::setlocale(LC_ALL, nullptr);
    set->locale = copyOf(_Ql_using_sjis_hack ? "ja_JP.SJIS" : current ? current : "C");
    if (!set->baseNameList || !set->locale) return false;
    const std::string_view locale = localeName(set->locale);
    const bool japanese = locale.starts_with("ja");
    set->charsetCount = japanese ? 3 : 1;
    set->encoding = !japanese ? 0
                    : (locale.find("SJIS") != std::string_view::npos || locale.find("sjis") != std::string_view::npos)
                        ? 1
                        : 2;
    const int n = set->charsetCount;
    set->charsets = static_cast<char **>(std::calloc(n, sizeof(char *)));
    set->charsetFound = static_cast<int *>(std::calloc(n, sizeof(int)));
    set->fontNames = static_cast<char **>(std::calloc(n, sizeof(char *)));
    set->fontIds = static_cast<Font *>(std::calloc(n, sizeof(Font)));
    set->fontStructList = static_cast<XFontStruct **>(std::calloc(n, sizeof(XFontStruct *)));
    if (!set->charsets || !set->charsetFound || !set->fontNames || !set->fontIds || !set->fontStructList)
        return false;
    for (int i = 0; i < n; ++i)
        if (!(set->charsets[i] = copyOf(japanese ? kJapaneseCharsets[i] : kAnyEncoding))) return false;

    // Names are split at commas; blanks and commas in front of a name are
    // skipped, and a longer name is cut.
    std::string_view rest = set->baseNameList;
    while (!rest.empty()) {
        const size_t start = rest.find_first_not_of(" \t,");
        if (start == std::string_view::npos) break;
        rest.remove_prefix(start);
        const size_t end = std::min(rest.find(','), rest.size());
        const std::string name(rest.substr(0, std::min(end, kMaxNameLength)));
        check_encoding(set->handle, name.c_str(), set);
        rest.remove_prefix(end);
    }

    char *absent[3];
    int m = 0;
    for (int i = 0; i < n; ++i)
        if (!set->charsetFound[i]) absent[m++] = set->charsets[i];
    set->missingCount = m;
    if (count) *count = m;
    if (m > 0 && missing) {
        XTextProperty property{};
        if (XStringListToTextProperty(absent, m, &property)) {
            XTextPropertyToStringList(&property, missing, &m);
            XFree(property.value);
        }
    }
    set->font0 = set->fontIds[0];
    set->font1 = japanese ? set->fontIds[1] : 0;
    set->font2 = japanese ? set->fontIds[2] : 0;
    return true;
}

// ------------------------------------------------------------ runs

struct Run {
    int sourceBytes;  // of the text
    int bytes;        // of the buffer, as the font takes them
    int bytesPerChar;
    int font;  // 0, 1 or 2: which of the set's fonts
};

// The leading run of `string` (see _QlFirstSubstringAndFont); a run never
// goes beyond what could be converted, and a lead byte without its second
// byte stands alone as a single byte.
Run firstRun(QlFontSet *set, const char *string, int length, char *buffer) {
    if (set->encoding == 0) {
        std::memcpy(buffer, string, static_cast<size_t>(length));
        buffer[length] = '\0';
        return {length, length, 1, 0};
    }
    int n = length;
    if (set->encoding == 2) _QlEUCtoSJIS(string, length, buffer, length, &n);
    else std::memcpy(buffer, string, static_cast<size_t>(length));
    n = std::clamp(n, 0, length);
    buffer[n] = '\0';
    if (n == 0) return {length, 0, 1, 2};  // nothing of it converts
    const auto *b = reinterpret_cast<const unsigned char *>(buffer);
    int i = 0;
    if (isLead(b[0]) && n >= 2) {
        while (i + 1 < n && isLead(b[i])) i += 2;
        return {i, i, 2, 0};
    }
    if (isKana(b[0])) {
        while (i < n && isKana(b[i])) ++i;
        return {set->encoding == 2 ? 2 * i : i, i, 1, 1};
    }
    i = 1;
    while (i < n && !isKana(b[i]) && !(isLead(b[i]) && i + 1 < n)) ++i;
    return {i, i, 1, 2};
}

// Calls f(run, buffer, font, structure) for each run of the text; false on
// no memory.  Runs are measured and drawn from the buffer.
template <typename F>
bool forEachRun(QlFontSet *set, const char *text, int length, F &&f) {
    Buffer buffer(static_cast<char *>(std::malloc(static_cast<size_t>(length) + 1)));
    if (!buffer) return false;
    for (int at = 0; at < length;) {
        const Run run = firstRun(set, text + at, length - at, buffer.get());
        const Font font = run.font == 0 ? set->font0 : run.font == 1 ? static_cast<Font>(set->font1) : set->font2;
        f(run, buffer.get(), font, structOf(set, run.font));
        at += run.sourceBytes;
    }
    return true;
}

// ------------------------------------------------------------ metrics

// The cell of a character of a font, or null when the font has none.
const XCharStruct *cellOf(const XFontStruct *fs, unsigned b1, unsigned b2) {
    if (!fs->per_char || b1 < fs->min_byte1 || b1 > fs->max_byte1 || b2 < fs->min_char_or_byte2 ||
        b2 > fs->max_char_or_byte2)
        return nullptr;
    const unsigned cols = fs->max_char_or_byte2 - fs->min_char_or_byte2 + 1;
    return &fs->per_char[(b1 - fs->min_byte1) * cols + b2 - fs->min_char_or_byte2];
}

// Width and cell of one character.  A printer font's width comes from its
// float table, by QlTextWidth's rule for characters it lacks; an X
// server's from its cells, by Xlib's (the default character's width).
float charWidth(const XFontStruct *fs, unsigned b1, unsigned b2, const XCharStruct **cell) {
    const XCharStruct *c = cellOf(fs, b1, b2);
    if (c && ql::EmptyCell(*c)) c = nullptr;
    *cell = c;
    if (const float *table = ql::WidthTable(fs)) {
        const unsigned cells = ql::CellCount(fs);
        if (!fs->per_char) return table[cells];
        return c ? table[c - fs->per_char] : table[cells + 2];
    }
    if (!fs->per_char) return fs->min_bounds.width;
    if (c) return c->width;
    const XCharStruct *fallback = cellOf(fs, fs->default_char >> 8, fs->default_char & 255);
    return fallback ? fallback->width : 0;
}

// Each character of a run with its width and cell, in the codes of its
// font: a double-byte run goes to a server's JIS X 0208 font as JIS.
template <typename F>
void forEachChar(const Run &run, const char *buffer, const XFontStruct *fs, F &&f) {
    const auto *b = reinterpret_cast<const unsigned char *>(buffer);
    const bool jis = run.bytesPerChar == 2 && !ql::WidthTable(fs);
    for (int i = 0; i + run.bytesPerChar <= run.bytes; i += run.bytesPerChar) {
        unsigned char code[2] = {0, b[i]};
        if (run.bytesPerChar == 2) {
            if (jis) sjis2_to_jisx208(b[i], b[i + 1], code);
            else code[0] = b[i], code[1] = b[i + 1];
        }
        const XCharStruct *cell;
        const float w = charWidth(fs, code[0], code[1], &cell);
        f(w, cell);
    }
}

// What the extents calls collect over a text.
struct Extents {
    long double width = 0;
    int inkAscent = 0, inkDescent = 0, ascent = 0, descent = 0;
};

// Runs through a text of a set of the library's own, calling
// perChar(width, cell, font structure) for each character.
template <typename F>
bool measure(QlFontSet *set, const char *text, int length, F &&perChar) {
    return forEachRun(set, text, length, [&](const Run &run, const char *buffer, Font, XFontStruct *fs) {
        if (fs) forEachChar(run, buffer, fs, [&](float w, const XCharStruct *cell) { perChar(w, cell, fs); });
    });
}

inline int roundWidth(long double sum) { return static_cast<int>(sum + 0.5L); }

XRectangle box(int x, int ascent, int width, int height) {
    return {static_cast<short>(x), static_cast<short>(-ascent), static_cast<unsigned short>(std::max(width, 0)),
            static_cast<unsigned short>(std::max(height, 0))};
}

// ------------------------------------------------------------ drawing

// The double-byte run on a display: JIS pairs in the set's JIS X 0208
// font, as many pieces as the buffer needs.
void drawJis(Display *dpy, Drawable d, GC gc, int x, int y, const char *sjis, int bytes, Font font,
             const XFontStruct *fs) {
    while (bytes > 0) {
        const int piece = std::min(bytes, static_cast<int>(sizeof _Ql_jisx208_buffer));
        int out = 0;
        _QlSJIS2_TO_JISX208(sjis, piece, _Ql_jisx208_buffer, sizeof _Ql_jisx208_buffer, &out);
        XTextItem16 item{reinterpret_cast<XChar2b *>(_Ql_jisx208_buffer), out / 2, 0, font};
        XDrawText16(dpy, d, gc, x, y, &item, 1);
        if (fs) x += XTextWidth16(const_cast<XFontStruct *>(fs), item.chars, item.nchars);
        sjis += piece;
        bytes -= piece;
    }
}

// The escapement of one run, rounded as a whole text is.
int runWidth(const Run &run, const char *buffer, const XFontStruct *fs) {
    long double sum = 0;
    if (fs) forEachChar(run, buffer, fs, [&](float w, const XCharStruct *) { sum += w; });
    return roundWidth(sum);
}

// The runs of a text drawn one after the other.  On a printer `slot(p,
// g, x, y, bytes, count)` draws a run with the GC's font set to the run's;
// `next(e)` gives the point of the next run from the escapement e so far.
// The GC's font is as it was afterwards.  The slot's results ORed, or 11 on
// no memory.
template <typename Slot, typename Next>
int drawRuns(Display *handle, Drawable d, QlFontSet *set, GC gc, int x, int y, const char *text, int length,
             Slot &&slot, Next &&next) {
    QlPrinter *p = _QlAsPrinter(handle);
    QlGC *g = p ? reinterpret_cast<QlGC *>(gc) : nullptr;
    const Font keptFont = g ? g->values.font : 0;
    XFontStruct *keptStruct = g ? g->fontStruct : nullptr;
    int rc = 0, e = 0, px = x, py = y;
    const bool ok = forEachRun(set, text, length, [&](const Run &run, const char *buffer, Font font, XFontStruct *fs) {
        if (g) {
            g->values.font = font;
            g->fontStruct = fs;
            g->dirty |= GCFont;
            _QlSetLocaleC();
            rc |= slot(p, g, px, py, buffer, run.bytes);
            _QlResetLocale();
        } else if (font && run.bytes > 0) {  // a charset without a font draws nothing on a server
            if (run.bytesPerChar == 2) {
                drawJis(handle, d, gc, px, py, buffer, run.bytes, font, fs);
            } else {
                XSetFont(handle, gc, font);
                XDrawString(handle, d, gc, px, py, buffer, run.bytes);
            }
        }
        e += runWidth(run, buffer, fs);
        next(e, px, py);
    });
    if (g) {
        g->values.font = keptFont;
        g->fontStruct = keptStruct;
        g->dirty |= GCFont;
    }
    return ok ? rc : 11;
}

// The background of image text: the logical box, turned by theta about the
// origin, in the GC's background with a solid fill; foreground and fill
// style are as they were afterwards.
void paintBox(Display *handle, Drawable d, QlFontSet *set, GC gc, int x, int y, const char *text, int length,
              double theta) {
    unsigned long foreground, background;
    int fillStyle;
    if (QlGC *g = _QlAsPrinter(handle) ? reinterpret_cast<QlGC *>(gc) : nullptr) {
        foreground = g->values.foreground;
        background = g->values.background;
        fillStyle = g->values.fill_style;
    } else {
        XGCValues v{};
        XGetGCValues(handle, gc, GCForeground | GCBackground | GCFillStyle, &v);
        foreground = v.foreground;
        background = v.background;
        fillStyle = v.fill_style;
    }
    QlSetFillStyle(handle, gc, FillSolid);
    QlSetForeground(handle, gc, background);
    XRectangle ink{}, logical{};
    QlmbTextExtents(set, text, length, &ink, &logical);
    if (theta == 0) {
        QlFillRectangle(handle, d, gc, x + logical.x, y + logical.y, logical.width, logical.height);
    } else {
        const double cs = std::cos(theta), sn = std::sin(theta);
        const double bx[4] = {0, double(logical.width), double(logical.width), 0};
        const double by[4] = {double(logical.y), double(logical.y), double(logical.y + logical.height),
                              double(logical.y + logical.height)};
        XPoint corners[4];
        for (int i = 0; i < 4; ++i)
            corners[i] = {static_cast<short>(std::lround(x + bx[i] * cs - by[i] * sn)),
                          static_cast<short>(std::lround(y + bx[i] * sn + by[i] * cs))};
        QlFillPolygon(handle, d, gc, corners, 4, Convex, CoordModeOrigin);
    }
    QlSetFillStyle(handle, gc, fillStyle);
    QlSetForeground(handle, gc, foreground);
}

// The guard of a printer call: the printer, or null after its report.
QlPrinter *guarded(Display *handle, GC gc, const char *caller, int *rc) {
    QlGC *g;
    return ql::GuardedGC(handle, gc, caller, rc, &g);
}

// A library set's text turned on a display, by the rotated-text worker.
int rotatedOnDisplay(Display *dpy, Drawable d, QlFontSet *set, GC gc, int x, int y, const char *text, int length,
                     int angle, int image) {
    if (!text || length <= 0) return 0;
    XRectangle ink{}, logical{};
    QlmbTextExtents(set, text, length, &ink, &logical);
    RotatedText t{logical.width, -logical.y, logical.height, set->baseNameList,
                  [&](Drawable bitmap, GC textGC, int baseline) {
                      QlmbDrawImageString(dpy, bitmap, set, textGC, 0, baseline, text, length);
                  }};
    return RotatedTextDraw(dpy, d, gc, x, y, text, length, angle, image, t);
}

int mb_string_len(QlFontSet *set, const char *text, int length) {
    if (!set || !text) return -1;
    if (length <= 0) return 0;
    if (set->encoding == 0) return length;
    // EUC-JP text counts in its own bytes: a NUL stands where it stands
    // after conversion, and the count is of the text drawn.
    const void *nul = std::memchr(text, 0, static_cast<size_t>(length));
    return nul ? static_cast<int>(static_cast<const char *>(nul) - text) : length;
}

}  // namespace

// ------------------------------------------------------------ conversions

int _QlSJIS2_TO_JISX208(const char *source, int length, char *destination, int limit, int *outLength) {
    const auto *src = reinterpret_cast<const unsigned char *>(source);
    auto *dst = reinterpret_cast<unsigned char *>(destination);
    int out = 0, rc = 0;
    for (int i = 0; i < length; ++i) {
        const unsigned c = src[i];
        if (out >= limit) {
            rc = 1;
            break;
        }
        if (c <= 127) {
            dst[out++] = static_cast<unsigned char>(c);
        } else if (c <= 159 || (c >= 224 && c <= 239)) {
            if (i + 1 >= length || src[i + 1] < 64 || src[i + 1] > 252 || out + 2 > limit) {
                rc = 1;
                break;
            }
            sjis2_to_jisx208(c, src[++i], dst + out);
            out += 2;
        } else if (c <= 223) {
            if (out + 2 > limit) {
                rc = 1;
                break;
            }
            dst[out++] = 142;
            dst[out++] = static_cast<unsigned char>(c);
        } else {
            rc = 1;
            break;
        }
    }
    if (outLength) *outLength = out;
    return rc;
}

int _QlJISX208_TO_SJIS2(const char *source, int length, char *destination, int limit, int *outLength) {
    const auto *src = reinterpret_cast<const unsigned char *>(source);
    auto *dst = reinterpret_cast<unsigned char *>(destination);
    int out = 0, rc = 0;
    for (int i = 0; i < length; i += 2) {
        if (i + 1 >= length || out >= limit || out + 2 >= limit) {
            rc = 1;
            break;
        }
        jisx208_to_sjis2(src[i], src[i + 1], dst + out);
        out += 2;
    }
    if (outLength) *outLength = out;
    return rc;
}

int _QlFirstSubstringAndFont(QlFontSet *set, const char *string, int length, char *buffer, int *runLength,
                             Font *font, XFontStruct **fontStruct, int *bytesPerChar) {
    const Run run = firstRun(set, string, length, buffer);
    if (runLength) *runLength = run.sourceBytes;
    if (font) *font = run.font == 0 ? set->font0 : run.font == 1 ? static_cast<Font>(set->font1) : set->font2;
    if (fontStruct) *fontStruct = structOf(set, run.font);
    if (bytesPerChar) *bytesPerChar = run.bytesPerChar;
    return 0;
}

// ------------------------------------------------------------ sets

QlFontSet *QlCreateFontSet(Display *handle, const char *names, char ***missing, int *count, char **def) {
    if (missing) *missing = nullptr;
    if (count) *count = 0;
    if (def) *def = nullptr;
    if (!handle || !names) return nullptr;
    auto *set = static_cast<QlFontSet *>(std::calloc(1, sizeof(QlFontSet)));
    if (!set) return nullptr;
    set->handle = handle;
    if (realDisplay(handle)) {
        char **m = nullptr;
        int n = 0;
        char *dflt = nullptr;
        set->xFontSet = XCreateFontSet(handle, names, &m, &n, &dflt);
        if (missing) *missing = m;
        else if (m) XFreeStringList(m);
        if (count) *count = n;
        if (def) *def = dflt;
        if (set->xFontSet) return set;
        std::free(set);
        return nullptr;
    }
    if (!_QlAsPrinter(handle) && !QlIsDisplay(handle)) {
        std::free(set);
        return nullptr;
    }
    if (!buildOwn(set, names, missing, count)) {
        if (missing && *missing) XFreeStringList(*missing), *missing = nullptr;
        destroyOwn(set);
        return nullptr;
    }
    return set;
}

void QlFreeFontSet(Display *handle, QlFontSet *set) {
    if (!set) return;
    if (set->xFontSet) {
        XFreeFontSet(handle, set->xFontSet);
        set->xFontSet = nullptr;
        return;
    }
    destroyOwn(set);
}

void _QlForceJapaneseSJISMode(void) { _Ql_using_sjis_hack = 1; }

XFontSet QlExtGetXFontSet(QlFontSet *set) { return set ? set->xFontSet : nullptr; }

int QlFontsOfFontSet(QlFontSet *set, XFontStruct ***fonts, char ***names) {
    if (!set) return 0;
    if (set->xFontSet) return XFontsOfFontSet(set->xFontSet, fonts, names);
    for (int i = 0; i < set->charsetCount; ++i) set->fontStructList[i] = structOf(set, i);
    if (fonts) *fonts = set->fontStructList;
    if (names) *names = set->fontNames;
    return set->charsetCount == 3 ? 3 : 1;
}

char *QlBaseFontNameListOfFontSet(QlFontSet *set) {
    if (!set) return nullptr;
    return set->xFontSet ? XBaseFontNameListOfFontSet(set->xFontSet) : set->baseNameList;
}

char *QlLocaleOfFontSet(QlFontSet *set) {
    if (!set) return nullptr;
    return set->xFontSet ? XLocaleOfFontSet(set->xFontSet) : set->locale;
}

Bool QlContextDependentDrawing(QlFontSet *set) {
    return set && set->xFontSet ? XContextDependentDrawing(set->xFontSet) : True;
}

// Over all fonts of the set: the least left bearing, the greatest right
// bearing, ascent and descent.
XFontSetExtents *QlExtentsOfFontSet(QlFontSet *set) {
    if (!set) return nullptr;
    if (set->xFontSet) return XExtentsOfFontSet(set->xFontSet);
    int lbearing = 0, rbearing = 0, inkAscent = 0, inkDescent = 0, ascent = 0, descent = 0;
    bool any = false;
    for (int i = 0; i < set->charsetCount; ++i) {
        const XFontStruct *fs = structOf(set, i);
        if (!fs) continue;
        lbearing = any ? std::min<int>(lbearing, fs->min_bounds.lbearing) : fs->min_bounds.lbearing;
        rbearing = std::max<int>(rbearing, fs->max_bounds.rbearing);
        inkAscent = std::max<int>(inkAscent, fs->max_bounds.ascent);
        inkDescent = std::max<int>(inkDescent, fs->max_bounds.descent);
        ascent = std::max(ascent, fs->ascent);
        descent = std::max(descent, fs->descent);
        any = true;
    }
    set->extents.max_ink_extent = box(lbearing, inkAscent, rbearing - lbearing, inkAscent + inkDescent);
    set->extents.max_logical_extent = box(0, ascent, rbearing, ascent + descent);
    return &set->extents;
}

// ------------------------------------------------------------ drawing

int QlmbDrawString(Display *handle, Drawable d, QlFontSet *set, GC gc, int x, int y, const char *text, int length) {
    if (!set) return kBadValue;
    if (passThrough(handle, set)) {
        XmbDrawString(handle, d, set->xFontSet, gc, x, y, text, length);
        return 0;
    }
    int rc = 0;
    if (!QlIsDisplay(handle) && !guarded(handle, gc, "QlmbDrawString", &rc)) return rc;
    if (foreign(handle, set)) return kBadValue;
    if (!text || length <= 0) return 0;
    return drawRuns(
        handle, d, set, gc, x, y, text, length,
        [&](QlPrinter *p, QlGC *g, int px, int py, const char *bytes, int count) {
            return DriverSwitch[p->driverId]->DrawString(p, d, g, px, py, bytes, count);
        },
        [&](int e, int &px, int &) { px = x + e; });
}

int QlmbDrawImageString(Display *handle, Drawable d, QlFontSet *set, GC gc, int x, int y, const char *text,
                        int length) {
    if (!set) return kBadValue;
    if (passThrough(handle, set)) {
        XmbDrawImageString(handle, d, set->xFontSet, gc, x, y, text, length);
        return 0;
    }
    int rc = 0;
    if (!QlIsDisplay(handle) && !guarded(handle, gc, "QlDrawImageString", &rc)) return rc;
    if (foreign(handle, set)) return kBadValue;
    paintBox(handle, d, set, gc, x, y, text, length, 0);
    return QlmbDrawString(handle, d, set, gc, x, y, text, length);
}

int QlmbDrawText(Display *handle, Drawable d, GC gc, int x, int y, QlmbTextItem *items, int count) {
    if (!items || count <= 0) return 0;
    if (realDisplay(handle)) {
        auto *copy = static_cast<XmbTextItem *>(std::malloc(sizeof(XmbTextItem) * static_cast<size_t>(count)));
        if (!copy) {
            _QlError(eLMem, "QlmbDrawText");
            return 3;
        }
        for (int i = 0; i < count; ++i)
            copy[i] = {items[i].chars, items[i].nchars, items[i].delta,
                       items[i].font_set ? items[i].font_set->xFontSet : nullptr};
        XmbDrawText(handle, d, gc, x, y, copy, count);
        std::free(copy);
        return 0;
    }
    QlFontSet *set = items[0].font_set;
    int offset = 0;
    for (int i = 0; i < count; ++i) {
        if (items[i].font_set) set = items[i].font_set;
        const int n = mb_string_len(set, items[i].chars, items[i].nchars);
        if (n > 0) QlmbDrawString(handle, d, set, gc, x + offset + items[i].delta, y, items[i].chars, n);
        offset += (n > 0 ? QlmbTextEscapement(set, items[i].chars, n) : 0) + items[i].delta;
    }
    return 0;
}

namespace {

// What both rotated calls do before a printer turns the runs: unturned text
// is plain text, a display turns it in software, and the printer's guard.
// True when the call is done, with its result in *rc.
bool rotatedFront(Display *handle, Drawable d, QlFontSet *set, GC gc, int x, int y, const char *text, int length,
                  int angle, int image, const char *caller, int *rc) {
    if (angle == 0) {
        *rc = (image ? QlmbDrawImageString : QlmbDrawString)(handle, d, set, gc, x, y, text, length);
        return true;
    }
    *rc = kBadValue;
    if (!set) return true;
    if (QlIsDisplay(handle)) {
        if (set->xFontSet) *rc = mbRotatedStringDraw(handle, d, set->xFontSet, gc, x, y, text, length, angle, image);
        else if (!foreign(handle, set)) *rc = rotatedOnDisplay(handle, d, set, gc, x, y, text, length, angle, image);
        return true;
    }
    return !guarded(handle, gc, caller, rc) || foreign(handle, set);
}

}  // namespace

int QlmbDrawRotString(Display *handle, Drawable d, QlFontSet *set, GC gc, int x, int y, const char *text,
                      int length, int angle) {
    int rc = 0;
    if (rotatedFront(handle, d, set, gc, x, y, text, length, angle, 0, "QlmbDrawRotString", &rc)) return rc;
    if (!text || length <= 0) return 0;
    const double theta = -std::acos(-1.0) * angle / 11520;
    const double cs = std::cos(theta), sn = std::sin(theta);
    return drawRuns(
        handle, d, set, gc, x, y, text, length,
        [&](QlPrinter *p, QlGC *g, int px, int py, const char *bytes, int count) {
            return DriverSwitch[p->driverId]->DrawRotString(p, d, g, px, py, bytes, count, angle);
        },
        [&](int e, int &px, int &py) {
            px = static_cast<int>(x + e * cs);
            py = static_cast<int>(y + e * sn);
        });
}

int QlmbDrawRotImageString(Display *handle, Drawable d, QlFontSet *set, GC gc, int x, int y, const char *text,
                           int length, int angle) {
    int rc = 0;
    if (rotatedFront(handle, d, set, gc, x, y, text, length, angle, 1, "QlmbDrawRotImageString", &rc)) return rc;
    paintBox(handle, d, set, gc, x, y, text, length, -std::acos(-1.0) * angle / 11520);
    return QlmbDrawRotString(handle, d, set, gc, x, y, text, length, angle);
}

// ------------------------------------------------------------ metrics

int QlmbTextEscapement(QlFontSet *set, const char *text, int length) {
    if (!set || !text || length <= 0) return 0;
    if (set->xFontSet) return XmbTextEscapement(set->xFontSet, text, length);
    long double sum = 0;
    measure(set, text, length, [&](float w, const XCharStruct *, const XFontStruct *) {
        if (w != 0) sum += w;
    });
    return roundWidth(sum);
}

int QlmbTextExtents(QlFontSet *set, const char *text, int length, XRectangle *ink, XRectangle *logical) {
    if (set && set->xFontSet) return XmbTextExtents(set->xFontSet, text, length, ink, logical);
    if (ink) *ink = {};
    if (logical) *logical = {};
    if (!set || !text || length <= 0) return 0;
    Extents x;
    measure(set, text, length, [&](float w, const XCharStruct *cell, const XFontStruct *fs) {
        if (w != 0) x.width += w;
        if (cell) {
            x.inkAscent = std::max<int>(x.inkAscent, cell->ascent);
            x.inkDescent = std::max<int>(x.inkDescent, cell->descent);
        }
        x.ascent = std::max(x.ascent, fs->ascent);
        x.descent = std::max(x.descent, fs->descent);
    });
    const int width = roundWidth(x.width);
    if (ink) *ink = box(0, x.inkAscent, width, x.inkAscent + x.inkDescent);
    if (logical) *logical = box(0, x.ascent, width, x.ascent + x.descent);
    return width;
}

// A box per character: the logical box spans the character's advance,
// rounded at both ends, and the font's height; the ink box its bearings and
// its own height.
Status QlmbTextPerCharExtents(QlFontSet *set, const char *text, int length, XRectangle *inkArray,
                              XRectangle *logicalArray, int arraySize, int *count, XRectangle *overallInk,
                              XRectangle *overallLogical) {
    if (set && set->xFontSet)
        return XmbTextPerCharExtents(set->xFontSet, text, length, inkArray, logicalArray, arraySize, count,
                                     overallInk, overallLogical);
    if (count) *count = 0;
    if (!set || !text || length <= 0) {
        if (overallInk) *overallInk = {};
        if (overallLogical) *overallLogical = {};
        return set && text ? 1 : 0;
    }
    int n = 0;
    long double x = 0;
    measure(set, text, length, [&](float w, const XCharStruct *cell, const XFontStruct *fs) {
        const int start = roundWidth(x);
        x += w;
        if (n < arraySize && inkArray && logicalArray) {
            logicalArray[n] = box(start, fs->ascent, roundWidth(x) - start, fs->ascent + fs->descent);
            inkArray[n] = cell ? box(start + cell->lbearing, cell->ascent, cell->rbearing - cell->lbearing,
                                     cell->ascent + cell->descent)
                               : box(start, 0, 0, 0);
        }
        ++n;
    });
    if (count) *count = n;
    QlmbTextExtents(set, text, length, overallInk, overallLogical);
    return n <= arraySize ? 1 : 0;
}

// ------------------------------------------------------------ text properties

void QlFreeStringList(char **list) {
    if (list) XFreeStringList(list);
}

Status QlStringListToTextProperty(char **list, int count, XTextProperty *property) {
    return XStringListToTextProperty(list, count, property);
}

Status QlTextPropertyToStringList(XTextProperty *property, char ***list, int *count) {
    return XTextPropertyToStringList(property, list, count);
}
