// The PostScript driver's built-in prolog and its font and tile helpers.
#include "drivers/ps/ps.h"

#include "core/out.h"
#include "gfx/colour.h"
#include "gfx/gc.h"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string>

namespace ps {

// The prolog: a dictionary of short operator names that stays open to the
// end of the document, the screen and pattern procedures of level 1 tile
// fills, and the text operators.  Written byte for byte.
const char QlShortID[] = R"(/QualinDict dup 200 dict def load begin
/bdf{bind def}bind def
/ldf{load def}bdf
/m/rmoveto ldf
/l2/rlineto ldf
/gs/gsave ldf
/gr/grestore ldf
/np/newpath ldf
/sv/save ldf
/rs/restore ldf
/tl/translate ldf
/mt/matrix ldf
/l/length ldf
/z/dict ldf
/d/def ldf
/e/exch ldf
/a/array ldf
/ac/arc ldf
/an/arcn ldf
/b/begin ldf
/pi/putinterval ldf
/t/moveto ldf
/lo/lineto ldf
/st/stroke ldf
/p/add ldf
/s/sub ldf
/c/mul ldf
/v/div ldf
/cp/closepath ldf
/sl/scale ldf
/ff/findfont ldf
/mf/makefont ldf
/sf/setfont ldf
/f/fill ldf
/sw/setlinewidth ldf
/sc/setlinecap ldf
/sj/setlinejoin ldf
/sg/setgray ldf
/ski/ISOLatin1Encoding where{pop true}{false}ifelse d
/fcd{ff dup l z b{1 index /FID ne{d}{pop pop}ifelse}forall /Encoding ISOLatin1Encoding d currentdict end}bdf
/fdf{e definefont pop}bdf
)";

const char QlBitmapHeader1[] = R"(/sdt 22 z d
sdt b
/tpm mt d
/tpt mt d
/tps mt d
/cps
{/pr2 e cvlit d
/pr1 e cvlit d
/npc pr1 l pr2 l p a d
npc 0 pr1 pi
npc pr1 l pr2 pi
npc cvx
}bdf
/rmx mt d
/frs
{72 0 rmx defaultmatrix dtransform
/yres e d /xres e d
xres dup c yres dup c p sqrt
}bdf
end
/sus 
{sdt b
/spf e d
/sag e d 
/ces e d
300 ces v sag /spf load
setscreen
end
}bdf
)";

const char QlBitmapHeader2[] = R"(/spt 18 z d
spt b
/bts
{/ybit e d /xbit e d
/byv bstr ybit bwd c xbit 8 idiv
p get d
/mask 1 7 xbit 8 mod s bitshift d
byv mask and 0 ne
}bdf
end
/bsf
{spt b
/y e d /x e d
/xix x 1 p 2 v bpx c cvi d
/yix y 1 p 2 v bpy c cvi d
xix yix bts
{/onb onb 1 p d 1}
{/ofb ofb 1 p d 0}
ifelse
end
}bdf
/setpattern
{spt b
/csz e d
/agl e d
/bwd e d
/bpy e d
/bpx e d
/bstr e d
/onb 0 d /ofb 0 d
csz agl /bsf load
sus
{ }settransfer
ofb ofb onb p v setgray
end
}bdf
/picstr 500 string d
/inch{72 c}bdf
/DP{gs np 0 360 ac cp f gr}bdf
/DL{gs np t lo st gr}bdf
/RGB{setrgbcolor}bdf
/C{gs t show gr}bdf
/ren 12 z d
/REn
{ren b
/nwc e d
/nwf e d
/bft e d
/bfd bft ff d
/nf bfd maxlength z d
bfd
{e dup /FID ne
{dup /Encoding eq
{e dup l a copy
nf 3 1 roll put}
{e nf 3 1 roll put}
ifelse
}
{pop pop}
ifelse
}forall
nf /FontName nwf put
nwc aload pop
nwc l 2 idiv
{nf /Encoding get 3 1 roll put}
repeat
nwf nf definefont pop
end
}d
/rots{gs t rotate show gr}bdf
)";

// Fonts: the printer's font list stays empty until font metrics are read;
// these keep the document frame's calls in place.
void LoadUSLFonts(QlPrinter *) {}
void MakePSFontEntry(QlPrinter *, const char *, const char *, int) {}
void ResetEncodingCache(QlPrinter *p) { p->encodingCacheFont = 0; }
void ResetFontDownloads(QlPrinter *) {}
void PS2CleanTileCache(QlPrinter *) {}

void CleanPrinter(QlPrinter *p) {
    FreePageData(p);
}

// The graphics state: PSFlushGC writes, before a mark, the values of the
// GC that the mark needs and the interpreter doesn't hold yet.

namespace {

using namespace ql::gcbit;
using ql::put;
using ql::write;

double unitsPerDot(QlPrinter *p) { return 72.0 / geometry(p)->resolution; }

// A colour level of 0 to 1 whose 8-bit value is `level255`.  One decimal
// where that says the level exactly, more where it doesn't, so that the
// colour on paper is the one the application asked for.  (The writer's
// "%.Nf" is this same conversion.)
void writeLevel(FILE *s, double value, int level255) {
    char text[32];
    for (int digits : {1, 2, 3}) {
        auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, digits).ptr;
        double back = 0;
        std::from_chars(text, end, back);
        if (digits == 3 || static_cast<int>(back * 255 + 0.5) == level255) {
            write(s, std::string_view(text, static_cast<size_t>(end - text)));
            return;
        }
    }
}

// A pixel as "RGB" on a colour printer, as "setgray" on a grey one; the
// text ends with `end`.  True when a colour was set.
bool writePixel(QlPrinter *p, unsigned long pixel, std::string_view end) {
    int rgb[3];
    _QlPixelRGB(p, pixel, rgb);
    FILE *s = p->stream;
    if (p->flags & 1) {
        for (int i = 0; i < 3; ++i) {
            writeLevel(s, rgb[i] / 255.0, rgb[i]);
            write(s, " ");
        }
        write(s, "RGB");
        write(s, end);
        return true;
    }
    const double grey = 0.3 * rgb[0] / 255 + 0.59 * rgb[1] / 255 + 0.11 * rgb[2] / 255;
    writeLevel(s, grey, static_cast<int>(grey * 255 + 0.5));
    write(s, " setgray");
    write(s, end);
    return false;
}

void writeForeground(QlPrinter *p, QlGC *gc) {
    if (writePixel(p, gc->values.foreground, "\n")) p->paintKind = 1;
}

// Dash lengths are X's unsigned bytes.
void writeDashPattern(QlPrinter *p, QlGC *gc, double offsetDots) {
    const float c = static_cast<float>(unitsPerDot(p));
    FILE *s = p->stream;
    write(s, "[");
    const int n = gc->dashList ? gc->dashCount : 0;
    for (int pass = 0; pass < (n % 2 ? 2 : 1); ++pass)
        for (int i = 0; i < n; ++i) put(s, "%g ", static_cast<unsigned char>(gc->dashList[i]) * c);
    put(s, "] %g setdash\n", offsetDots * c);
}

void writeClip(QlPrinter *p, QlGC *gc) {
    const double k = unitsPerDot(p);
    FILE *s = p->stream;
    const XGCValues &v = gc->values;
    write(s, "gr gs\n");
    if (!gc->clipIsRects && v.clip_mask) {
        // Only the mask's size counts: it clips as its rectangle.
        const auto *mask = reinterpret_cast<const XImage *>(v.clip_mask);
        const double x = v.clip_x_origin * k, y = v.clip_y_origin * k, w = mask->width * k, h = mask->height * k;
        put(s, "%.2f %.2f t %.2f %.2f lo %.2f %.2f lo %.2f %.2f lo cp\n", x, y, x, y + h, x + w, y + h, x + w, y);
        write(s, "clip np\n");
        PageSizeClip(p);
    } else if (gc->clipIsRects) {
        PageSizeClip(p);
        for (int i = 0; i < gc->clipRectCount; ++i) {
            const XRectangle &r = gc->clipRects[i];
            const double x = (v.clip_x_origin + r.x) * k, y = (v.clip_y_origin + r.y) * k;
            const double w = r.width * k, h = r.height * k;
            put(s, " %.2f %.2f t %.2f %.2f lo %.2f %.2f lo %.2f %.2f lo\n", x, y, x, y + h, x + w, y + h, x + w,
                y);
        }
        write(s, "cp clip np\n");
    } else {
        PageSizeClip(p);
    }
    gc->dirty = AllButClip;
}

bool clipDiffers(const QlGC *a, const QlGC *b) {
    if (a->clipIsRects != b->clipIsRects) return true;
    const XGCValues &x = a->values, &y = b->values;
    if (!a->clipIsRects)
        return x.clip_mask != y.clip_mask ||
               (x.clip_mask && (x.clip_x_origin != y.clip_x_origin || x.clip_y_origin != y.clip_y_origin));
    if (a->clipRectCount != b->clipRectCount) return true;
    for (int i = 0; i < a->clipRectCount; ++i) {
        const XRectangle &r = a->clipRects[i], &q = b->clipRects[i];
        if (r.x != q.x || r.y != q.y || r.width != q.width || r.height != q.height) return true;
    }
    return false;
}

bool dashesDiffer(const QlGC *a, const QlGC *b) {
    const XGCValues &x = a->values, &y = b->values;
    if (x.line_style != y.line_style) return true;
    if (x.line_style == LineSolid) return false;
    if (a->dashesSet != b->dashesSet) return true;
    if (a->dashesSet)
        return a->dashCount != b->dashCount ||
               (a->dashCount > 0 && std::memcmp(a->dashList, b->dashList, static_cast<size_t>(a->dashCount)) != 0);
    return x.dashes != y.dashes || x.dash_offset != y.dash_offset;
}

}  // namespace

void CheckOldGC(QlPrinter *p, QlGC *gc) {
    QlGC *last = p->lastGC;
    if (!last) {
        p->lastGC = gc;
        gc->dirty = All;
        return;
    }
    gc->dirty = last->dirty;
    if (gc == last) return;
    const XGCValues &a = gc->values, &b = last->values;
    unsigned long d = 0;
    if (clipDiffers(gc, last)) d |= ClipMask;
    if (dashesDiffer(gc, last)) d |= DashSet;
    if (a.foreground != b.foreground) d |= Foreground;
    if (a.line_width != b.line_width) d |= LineWidth;
    if (a.line_style != b.line_style) d |= LineStyle;
    if (a.dashes != b.dashes) d |= DashList;
    if (a.cap_style != b.cap_style) d |= CapStyle;
    if (a.join_style != b.join_style) d |= JoinStyle;
    if (a.fill_style != b.fill_style) d |= FillStyle;
    if (a.tile != b.tile) d |= Tile;
    if (a.stipple != b.stipple) d |= Stipple;
    if (a.font != b.font) d |= FontBit;
    if (a.fill_rule != b.fill_rule) d |= FillRule;
    if (a.arc_mode != b.arc_mode) d |= ArcMode;
    gc->dirty |= d;
    p->lastGC = gc;
}

int DumpDashes(QlPrinter *p, QlGC *gc) {
    writeDashPattern(p, gc, gc->values.dash_offset);
    return 0;
}

void WriteDashes(QlPrinter *p, QlGC *gc, double offsetDots, bool threeDecimals) {
    if (gc->dashesSet) {
        writeDashPattern(p, gc, offsetDots);
        return;
    }
    const double k = unitsPerDot(p);
    const double dash = static_cast<unsigned char>(gc->values.dashes) * k;
    put(p->stream, threeDecimals ? "[%.3f %.3f] %.3f setdash\n" : "[%.2f %.2f] %.2f setdash\n", dash, dash,
        offsetDots * k);
}

int PSFlushGC(QlPrinter *p, QlGC *gc, unsigned long mask) {
    CheckOldGC(p, gc);
    FILE *s = p->stream;
    XGCValues &v = gc->values;
    auto wanted = [&](unsigned long bits) { return (gc->dirty & mask & bits) != 0; };
    auto clean = [&](unsigned long bits) { gc->dirty &= ~bits; };
    if (wanted(ClipSet)) writeClip(p, gc);
    if (wanted(Foreground)) {
        writeForeground(p, gc);
        clean(Foreground);
    }
    if (wanted(LineWidth)) {
        put(s, "%.3f sw\n", v.line_width * unitsPerDot(p));
        clean(LineWidth);
    }
    if (wanted(LineStyle)) {
        if (v.line_style == LineSolid) write(s, "[] 0 setdash\n");
        else if (v.line_style == LineOnOffDash || v.line_style == LineDoubleDash)
            WriteDashes(p, gc, v.dash_offset, false);
        else _QlError(wLineStyle, "PSFlushGC");
        clean(LineStyle);
    }
    if (wanted(CapStyle)) {
        static constexpr const char *kCaps[] = {"0 sc\n", "0 sc\n", "1 sc\n", "2 sc\n"};
        if (static_cast<unsigned>(v.cap_style) < 4) write(s, kCaps[v.cap_style]);
        clean(CapStyle);
    }
    if (wanted(Stipple) && v.stipple && v.fill_style == FillOpaqueStippled) {
        v.fill_style = FillTiled;
        v.tile = v.stipple;
        v.stipple = 0;
        gc->dirty |= Tile;
        clean(Stipple);
    }
    if (wanted(JoinStyle)) {
        static constexpr const char *kJoins[] = {"0 sj\n", "1 sj\n", "2 sj\n"};
        if (static_cast<unsigned>(v.join_style) < 3) write(s, kJoins[v.join_style]);
        clean(JoinStyle);
    }
    if (wanted(FillStyle)) clean(FillStyle);
    if (wanted(Tile) && v.tile && WriteTile(p, gc)) {
        clean(Tile);
        if (p->paintKind == 2) p->paintKind = 0;
    }
    if (wanted(FontBit) && WriteFont(p, gc)) clean(FontBit);
    if (wanted(DashSet) && v.line_style != LineSolid) {
        WriteDashes(p, gc, v.dash_offset, true);
        clean(DashSet);
    }
    return 0;
}

void CheckTile(QlPrinter *p, QlGC *gc) {
    const int style = gc->values.fill_style;
    if (style == FillTiled && p->paintKind != 2 && SetTilePaint(p, gc)) {
        p->paintKind = 2;
        return;
    }
    // A tile the driver can't paint yet is painted in the foreground.
    if ((style == FillSolid || style == FillTiled) && p->paintKind != 1) {
        writeForeground(p, gc);
        gc->dirty &= ~Foreground;
    }
}

// A stroke of the current path.  Double dashes paint the gaps in the
// background first, as a display does.
void WriteStroke(QlPrinter *p, QlGC *gc, std::string_view end) {
    if (gc->values.line_style == LineDoubleDash) {
        write(p->stream, "gs ");
        writePixel(p, gc->values.background, " [] 0 setdash st gr ");
    }
    write(p->stream, "st");
    write(p->stream, end);
}

// Tiles and fonts arrive with the pattern cache and the font tables; until
// then a tile paints in the foreground and text isn't offered.
bool WriteTile(QlPrinter *, QlGC *) { return false; }
bool SetTilePaint(QlPrinter *, QlGC *) { return false; }
bool WriteFont(QlPrinter *, QlGC *) { return false; }

}  // namespace ps
