// The PostScript driver's built-in prolog and its font and tile helpers.
#include "drivers/ps/ps.h"

#include "core/encode.h"
#include "core/out.h"
#include "gfx/colour.h"
#include "gfx/gc.h"
#include "config/ppd.h"
#include "drivers/ps/latincode.h"
#include "fontdata/parseafm.h"
#include "fontdata/pfonts.h"
#include "fontdata/pfonts2.h"
#include "port/kvo.h"
#include "text/font.h"
#include "text/regexp.h"

#include "drivers/pcl5/raster.h"

#include <X11/Xutil.h>

#include <algorithm>
#include <array>
#include <bit>
#include <span>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <tuple>
#include <vector>
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
/fcd{ff dup l z b{1 index /FID ne{d}{pop pop}ifelse}forall /Encoding ISOLatin1Encoding dup l a copy dup 45 /hyphen put d currentdict end}bdf
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

// Fonts.  The printer keeps a list of font entries: the lines of the font
// list file, and fonts of the X font directories.  A scalable entry is a
// master; each size asked for becomes an instance chained under it.  An
// entry's metrics come from its AFM file the first time they are asked
// for, turned into an XFontStruct in dots; a font whose XLFD name asks for
// another encoding than its AFM file has is reencoded in the document.

namespace {

int resolutionOf(QlPrinter *p) { return p->psPage ? geometry(p)->resolution : 300; }

void copyText(char *dst, size_t size, const char *src) { std::snprintf(dst, size, "%s", src ? src : ""); }


// Compiled patterns are freed by whoever asked for them.
struct RegexpFree {
    void operator()(regexp *r) const { std::free(r); }
};
using Pattern = std::unique_ptr<regexp, RegexpFree>;

bool matches(regexp *re, const char *name) { return re && Qlregexec(re, name, 1); }

bool scalable(const QlFontRec *f) { return f->pixelSize <= 0.1f; }

// Sizes come from names anyone can write: a size in dots stays within
// what a page can hold, so that arithmetic on it can't overflow.
constexpr long long kLargestSize = 100000;
int sizeInDots(long long v) { return static_cast<int>(std::clamp(v, 0LL, kLargestSize)); }

// The pattern with its size fields set to 0, compiled; null for a pattern
// that isn't a full name.
Pattern sizedZero(const char *pattern) {
    if (pattern[0] != '-') return nullptr;
    char *zero = FontSetPPASize(pattern, 0, 0, 0);
    if (!zero) return nullptr;
    Pattern re(mrFixFontName(zero));
    std::free(zero);
    return re;
}

}  // namespace

int mrQlIsSpecial(int c) { return c == '(' || c == ')' || c == '\\'; }

regexp *mrFixFontName(const char *pattern) {
    static char buffer[512];
    size_t n = 0;
    for (const char *c = pattern ? pattern : ""; *c && n + 2 < sizeof buffer; ++c) {
        if (*c == '*') {
            buffer[n++] = '.';
            buffer[n++] = '*';
        } else {
            buffer[n++] = *c == '?' ? '.' : *c;
        }
    }
    buffer[n] = '\0';
    return Qlregcomp(buffer);
}

QlFontRec *MakePSFontEntry(QlPrinter *p, const char *xlfd, const char *file, int kind) {
    auto *f = static_cast<QlFontRec *>(std::calloc(1, sizeof(QlFontRec)));
    int *shared[4] = {};
    for (int *&s : shared) s = static_cast<int *>(std::calloc(1, sizeof(int)));
    if (!f || !shared[0] || !shared[1] || !shared[2] || !shared[3]) {
        std::free(f);
        for (int *s : shared) std::free(s);
        return nullptr;
    }
    f->fontType = shared[0];
    f->loadState = shared[1];
    f->isoEncoded = shared[2];
    f->recodeShared = shared[3];
    *f->fontType = *f->loadState = kind;
    if (file) copyText(ql::FontFileName(f), ql::kFontNameHalf, file);
    const int res = resolutionOf(p);
    if (xlfd && std::strstr(xlfd, "%d")) {
        // A scalable name: its size fields are formatted, its size stays 0.
        copyText(f->xlfdName, sizeof f->xlfdName, ql::format(xlfd, 0, 0, res, res).c_str());
        return f;
    }
    int pixel = -1, point = -1;
    FontGetPPSize(xlfd, &pixel, &point);
    f->pixelSize = pixel >= 1 ? sizeInDots(pixel) : point >= 1 ? sizeInDots(1LL * point * res / 720) : 1.0f;
    copyText(f->xlfdName, sizeof f->xlfdName, xlfd);
    return f;
}

char **ListFonts(QlPrinter *p, const char *pattern, int maximum, int *count) {
    if (count) *count = 0;
    if (!pattern) return nullptr;
    int pixel = -1, point = -1;
    if (pattern[0] == '-') FontGetPPSize(pattern, &pixel, &point);
    Pattern zero = sizedZero(pattern);
    Pattern re(mrFixFontName(pattern));
    const int res = resolutionOf(p);

    std::vector<std::string> names;
    for (QlFontRec *f = p->fonts; f && static_cast<int>(names.size()) < maximum; f = f->next) {
        if (p->excludeAppFonts && *f->fontType == 4) continue;
        if (scalable(f) && zero) {
            if (!matches(zero.get(), f->xlfdName)) continue;
            if (pixel != -1 && pixel != 0 && point != -1 && point != 0 && pixel != point * res / 720) continue;
            char *sized = pixel != -1 && point != -1 ? FontSetPPSize(f->xlfdName, pixel, point)
                          : pixel != -1              ? _QlFontSetPixelSize(f->xlfdName, pixel)
                          : point != -1              ? FontSetPointSize(f->xlfdName, point)
                                                     : nullptr;
            names.emplace_back(sized ? sized : f->xlfdName);
            std::free(sized);
        } else if (matches(re.get(), f->xlfdName)) {
            names.emplace_back(f->xlfdName);
        }
    }
    if (names.empty()) return nullptr;
    // One block of 128-byte rows behind a first byte of 1, the layout that
    // XFreeFontNames releases.
    const size_t n = names.size();
    auto *block = static_cast<char *>(std::calloc(1, 1 + n * 128));
    auto **list = static_cast<char **>(std::calloc(n + 1, sizeof(char *)));
    if (!block || !list) {
        std::free(block);
        std::free(list);
        return nullptr;
    }
    block[0] = 1;
    for (size_t i = 0; i < n; ++i) {
        list[i] = block + 1 + i * 128;
        copyText(list[i], 128, names[i].c_str());
    }
    if (count) *count = static_cast<int>(n);
    return list;
}

Font _LoadFont(QlPrinter *p, const char *name) {
    if (!name) return 0;
    QlFontRec *master = nullptr;
    {
        Pattern zero = sizedZero(name);
        Pattern re(mrFixFontName(name));
        for (QlFontRec *f = p->fonts; f && !master; f = f->next)
            if (matches(scalable(f) && zero ? zero.get() : re.get(), f->xlfdName)) master = f;
    }
    if (!master) return 0;
    if (!scalable(master)) return reinterpret_cast<Font>(master);

    const int res = resolutionOf(p);
    int pixel = -1, point = -1;
    FontGetPPSize(name, &pixel, &point);
    int size;
    if (pixel >= 1) {
        size = sizeInDots(pixel);
    } else if (point > 0) {
        size = sizeInDots(1LL * point * res / 720);
        if (p->divisorX != 1.0) size = sizeInDots(static_cast<long long>(std::min(p->divisorX * size, 1e9)));
    } else {
        size = res * 12 / 72;
    }
    QlFontRec *last = master;
    for (QlFontRec *s = master->scaled; s; s = s->scaled) {
        if (static_cast<int>(s->pixelSize) == size) return reinterpret_cast<Font>(s);
        last = s;
    }
    auto *f = static_cast<QlFontRec *>(std::calloc(1, sizeof(QlFontRec)));
    if (!f) return 0;
    f->pixelSize = static_cast<float>(size);
    f->pointSize = static_cast<float>(point);
    if (point == 0)
        f->pointSize = static_cast<float>(p->divisorX != 1.0 ? size * 720 / (p->divisorX * res) : size * 720.0 / res);
    f->fontType = master->fontType;
    f->loadState = master->loadState;
    f->isoEncoded = master->isoEncoded;
    f->recodeShared = master->recodeShared;
    f->appCallback = last->appCallback;
    f->appData = last->appData == reinterpret_cast<XPointer>(last) ? reinterpret_cast<XPointer>(f) : last->appData;
    std::memcpy(f->printerName, last->printerName, sizeof f->printerName);
    std::memcpy(f->xlfdName, last->xlfdName, sizeof f->xlfdName);
    last->scaled = f;
    return reinterpret_cast<Font>(f);
}

Font LoadFont(QlPrinter *p, const char *name) { return _LoadFont(p, name); }

int UnloadFont(QlPrinter *, XID) { return 0; }

namespace {

// The XExtData chain of a printer font: the width table, then the tracks,
// then the pairs.
XExtData *newExtData(int number, XPointer data) {
    auto *e = static_cast<XExtData *>(std::calloc(1, sizeof(XExtData)));
    if (!e) return nullptr;
    e->number = number;
    e->private_data = data;
    return e;
}

ql::KernBlock *kernBlock(long size, long scale72, long count, void *records) {
    auto *b = static_cast<ql::KernBlock *>(std::calloc(1, sizeof(ql::KernBlock)));
    if (b) *b = {size, scale72, count, records};
    return b;
}

void freeKernBlock(XExtData *e, bool pairs) {
    if (!e) return;
    if (e->free_private) {
        e->free_private(e);
    } else if (auto *b = reinterpret_cast<ql::KernBlock *>(e->private_data)) {
        if (pairs) {
            auto *pk = static_cast<PairKernData *>(b->records);
            for (long i = 0; pk && i < b->count; ++i) {
                std::free(pk[i].name1);
                std::free(pk[i].name2);
            }
        }
        std::free(b->records);
        std::free(b);
    }
    std::free(e);
}

void freeFontStruct(XFontStruct *fs) {
    if (!fs) return;
    XExtData *widths = fs->ext_data;
    XExtData *tracks = widths ? widths->next : nullptr;
    XExtData *pairs = tracks ? tracks->next : nullptr;
    if (widths) {
        if (widths->free_private) widths->free_private(widths);
        else std::free(widths->private_data);
        std::free(widths);
    }
    freeKernBlock(tracks, false);
    freeKernBlock(pairs, true);
    std::free(fs->per_char);
    std::free(fs);
}

// An AFM value in thousandths of the size, in dots.
int dots(double v, int size) { return static_cast<int>(v * size / 1000.0 + 0.5); }

struct Bounds {
    XCharStruct lo{32767, 32767, 0, 32767, 32767, 0};
    XCharStruct hi{-32768, -32768, 0, -32768, -32768, 0};
    float wmin = 32727, wmax = 0;
    bool any = false;
    void add(const XCharStruct &c, float w) {
        any = true;
        lo.lbearing = std::min(lo.lbearing, c.lbearing);
        lo.rbearing = std::min(lo.rbearing, c.rbearing);
        lo.ascent = std::min(lo.ascent, c.ascent);
        lo.descent = std::min(lo.descent, c.descent);
        hi.lbearing = std::max(hi.lbearing, c.lbearing);
        hi.rbearing = std::max(hi.rbearing, c.rbearing);
        hi.ascent = std::max(hi.ascent, c.ascent);
        hi.descent = std::max(hi.descent, c.descent);
        wmin = std::min(wmin, w);
        wmax = std::max(wmax, w);
    }
};

const char *afmPath(QlFontRec *f, char (&buf)[1024]) {
    const char *file = ql::FontFileName(f);
    switch (*f->fontType) {
    case 2: std::snprintf(buf, sizeof buf, "%s/afm/%s.afm", QL_X_FONT_DIR_MIT, file); break;
    case 3: std::snprintf(buf, sizeof buf, "%s/afm/%s.afm", QL_X_FONT_DIR_TYPE1, file); break;
    default: {
        const char *dir = QlConfigDir();
        _QlMakeFontName(buf, dir ? dir : "/usr/lib/Ql", "afm", file);
    }
    }
    return buf;
}

XFontStruct *queryAppFont(QlPrinter *p, QlFontRec *f) {
    const int res = resolutionOf(p);
    const char *full = SoftFontMakeFullXLFD(f->xlfdName, f->pixelSize, f->pixelSize / res * 720, 1);
    XFontStruct *fs = nullptr;
    int ok = f->appCallback ? f->appCallback(reinterpret_cast<Display *>(p), f->appData, full, 0, 0, &fs, 2) : 0;
    if (full != f->xlfdName) std::free(const_cast<char *>(full));
    if (!ok || !fs) {
        _QlError(eBadAppSoftFont, "PS:QueryFont", ql::FontAlias(f));
        return nullptr;
    }
    fs->fid = reinterpret_cast<Font>(f);
    f->fontStruct = fs;
    f->fontStructSet = 1;
    *f->isoEncoded = 0;
    std::free(_QlGetEncodingSchemeOfFull(f->xlfdName, &f->encodingScheme));
    return fs;
}

}  // namespace

XFontStruct *QueryFont(QlPrinter *p, XID font) {
    auto *f = reinterpret_cast<QlFontRec *>(font);
    if (!f) return nullptr;
    if (f->fontStruct) {
        ++f->fontStructSet;
        return f->fontStruct;
    }
    if (*f->fontType == 4) return queryAppFont(p, f);

    char path[1024];
    afmPath(f, path);
    const int size = static_cast<int>(f->pixelSize);
    FontInfo *fi = nullptr;
    int rc;
    {
        FILE *fp = _QlfopenTryBothCases(path, "r");
        if (!fp) {
            std::perror(path);
            return nullptr;
        }
        rc = parseFile(fp, &fi, kAfmGlobals | kAfmWidths | kAfmMetrics | kAfmPairs | kAfmTracks);
        std::fclose(fp);
    }
    struct Release {
        FontInfo *&fi;
        ~Release() { freeStorage(fi); }
    } release{fi};
    if (rc != 0 || !fi || !fi->gfi) {
        if (rc == kAfmNoMemory || !fi) _QlError(eLMem, "QueryFont");
        else if (rc == kAfmEarlyEof) _QlError(eAFMPremature, "QueryFont", path);
        else if (rc == kAfmParseError) _QlError(eAFMParse, "QueryFont", path);
        else _QlError(ePFBadReturn, "QueryFont", rc);
        return nullptr;
    }

    // The code range: the high and low bytes of every encoded character.
    int lo1 = 255, lo2 = 255, hi1 = 0, hi2 = 0;
    bool anyCode = false;
    for (int i = 0; i < fi->numOfChars; ++i) {
        const int code = fi->cmi[i].code;
        if (code < 0 || code > 65535) continue;
        anyCode = true;
        lo1 = std::min(lo1, code >> 8);
        hi1 = std::max(hi1, code >> 8);
        lo2 = std::min(lo2, code & 255);
        hi2 = std::max(hi2, code & 255);
    }
    if (!anyCode || (hi1 == 0 && lo1 == 0)) {
        lo1 = hi1 = 0;
        lo2 = 0;
        hi2 = 255;
    }
    const int cols = hi2 - lo2 + 1, cells = cols * (hi1 - lo1 + 1);

    auto *fs = static_cast<XFontStruct *>(std::calloc(1, sizeof(XFontStruct)));
    auto *widths = static_cast<float *>(std::calloc(cells + 3, sizeof(float)));
    auto *perChar = static_cast<XCharStruct *>(std::calloc(cells, sizeof(XCharStruct)));
    auto *tracks = fi->numOfTracks > 0 ? static_cast<TrackKernData *>(std::calloc(fi->numOfTracks, sizeof(TrackKernData)))
                                       : nullptr;
    auto *pairs = fi->numOfPairs > 0 ? static_cast<PairKernData *>(std::calloc(fi->numOfPairs, sizeof(PairKernData)))
                                     : nullptr;
    if (tracks) std::memcpy(tracks, fi->tkd, fi->numOfTracks * sizeof(TrackKernData));
    for (int i = 0; pairs && i < fi->numOfPairs; ++i) {
        pairs[i] = fi->pkd[i];
        pairs[i].name1 = _kvo_strdup(fi->pkd[i].name1);
        pairs[i].name2 = _kvo_strdup(fi->pkd[i].name2);
    }
    const long scale72 = static_cast<long>(72 * p->scale);
    XExtData *e1 = newExtData(ql::kPrinterFontMark, reinterpret_cast<XPointer>(widths));
    XExtData *e2 = newExtData(0, reinterpret_cast<XPointer>(kernBlock(size, scale72, tracks ? fi->numOfTracks : 0, tracks)));
    XExtData *e3 = newExtData(0, reinterpret_cast<XPointer>(kernBlock(size, scale72, pairs ? fi->numOfPairs : 0, pairs)));
    if (fs) {
        fs->ext_data = e1;
        fs->per_char = perChar;
    }
    if (e1) e1->next = e2;
    if (e2) e2->next = e3;
    if (!fs || !widths || !perChar || !e1 || !e2 || !e3 || !e2->private_data || !e3->private_data) {
        _QlError(eLMem, "QueryFont");
        if (fs) freeFontStruct(fs);
        return nullptr;
    }

    fs->fid = font;
    fs->min_byte1 = static_cast<unsigned>(lo1);
    fs->max_byte1 = static_cast<unsigned>(hi1);
    fs->min_char_or_byte2 = static_cast<unsigned>(lo2);
    fs->max_char_or_byte2 = static_cast<unsigned>(hi2);
    fs->default_char = static_cast<unsigned>(lo2 | (lo1 << 8));
    const BBox &box = fi->gfi->fontBBox;
    fs->ascent = dots(box.ury, size);
    fs->descent = dots(-box.lly, size);
    copyText(ql::FontAlias(f), ql::kFontNameHalf, fi->gfi->fontName);

    char *suffix = _QlGetEncodingSchemeOfFull(f->xlfdName, &f->encodingScheme);
    if (!suffix) {
        _QlError(eXLFDError, "QueryFont", "PSstd.font");
        freeFontStruct(fs);
        return nullptr;
    }
    const char *afmScheme = fi->gfi->encodingScheme ? fi->gfi->encodingScheme : "";
    f->recodeState = _QlGetEncodeOfAFMString(afmScheme);
    const int want = f->encodingScheme, have = static_cast<int>(f->recodeState);
    if (want == have && want != 0) *f->isoEncoded = 0;
    else *f->isoEncoded = std::strcmp(suffix, afmScheme) != 0 && have >= 2 && have <= 9 && want >= 2 && want <= 9;
    std::free(suffix);

    Bounds bounds;
    auto fill = [&](int code, const CharMetricInfo &m) {
        const int b1 = code >> 8, b2 = code & 255;
        if (b1 < lo1 || b1 > hi1 || b2 < lo2 || b2 > hi2) return;
        const int cell = (b1 - lo1) * cols + (b2 - lo2);
        XCharStruct &c = perChar[cell];
        c.lbearing = static_cast<short>(dots(m.charBBox.llx, size));
        c.rbearing = static_cast<short>(dots(m.charBBox.urx, size));
        c.ascent = static_cast<short>(dots(m.charBBox.ury, size));
        c.descent = static_cast<short>(dots(-m.charBBox.lly, size));
        widths[cell] = static_cast<float>(m.wx * size / 1000.0);
        c.width = static_cast<short>(widths[cell] + 0.5);
        bounds.add(c, widths[cell]);
    };
    if (!*f->isoEncoded) {
        for (int i = 0; i < fi->numOfChars; ++i)
            if (fi->cmi[i].code != -1) fill(fi->cmi[i].code, fi->cmi[i]);
    } else {
        auto byCode = [&](int code) -> const CharMetricInfo * {
            for (int i = 0; i < fi->numOfChars; ++i)
                if (fi->cmi[i].code == code) return &fi->cmi[i];
            return nullptr;
        };
        for (const LatinGlyph &row : LatinCode) {
            const int target = row.code[want - 2], source = row.code[have - 2];
            if (target == -1) continue;
            const CharMetricInfo *m = nullptr;
            if (source != -1) {
                m = byCode(source);
            } else {
                for (int i = 0; i < fi->numOfChars && !m; ++i)
                    if (fi->cmi[i].code == -1 && fi->cmi[i].name && !std::strcmp(fi->cmi[i].name, row.glyph))
                        m = &fi->cmi[i];
            }
            if (!m) m = byCode(target == 45 ? 45 : 32);
            if (!m || target > 255) continue;
            fill(target, *m);
        }
    }
    if (!bounds.any) bounds = Bounds{{0, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 0}, 0, 0, false};
    fs->min_bounds = bounds.lo;
    fs->max_bounds = bounds.hi;
    fs->min_bounds.width = static_cast<short>(bounds.wmin + 0.5);
    fs->max_bounds.width = static_cast<short>(bounds.wmax + 0.5);
    fs->min_bounds.attributes = fs->max_bounds.attributes = 0;
    widths[cells] = bounds.wmin;
    widths[cells + 1] = bounds.wmax;
    widths[cells + 2] = widths[0];

    f->fontStruct = fs;
    f->fontStructSet = 1;
    return fs;
}

int FreeFont(QlPrinter *p, XFontStruct *fs) {
    if (!fs) return 1;
    auto *f = reinterpret_cast<QlFontRec *>(fs->fid);
    if (f && --f->fontStructSet > 0) return 0;
    if (f) f->fontStruct = nullptr;
    if (f && *f->fontType == 4) {
        XFontStruct *given = fs;
        if (f->appCallback)
            f->appCallback(reinterpret_cast<Display *>(p), f->appData, f->xlfdName, 0, 0, &given, 8);
        return 0;
    }
    freeFontStruct(fs);
    return 0;
}

int RegisterFont(QlPrinter *p, XPointer data, const char *name, QlFontLoader callback) {
    if (!name || !callback) return 0;
    QlFontRec *f = MakePSFontEntry(p, ql::Lowered(name).c_str(), nullptr, 4);
    if (!f) return 0;
    f->appCallback = callback;
    f->appData = data;
    f->next = p->fonts;
    p->fonts = f;
    return 1;
}

void CleanFontStruct(QlPrinter *p, QlFontRec *entry, int scaled) {
    // The main list is walked, its instances recursed into.
    while (entry) {
        QlFontRec *next = scaled ? nullptr : entry->next;
        if (entry->scaled) CleanFontStruct(p, entry->scaled, 1);
        if (entry->fontStruct) {
            entry->fontStructSet = 1;
            DriverSwitch[p->driverId]->FreeFont(p, entry->fontStruct);
        }
        if (!scaled) {
            std::free(entry->fontType);
            std::free(entry->loadState);
            std::free(entry->isoEncoded);
            std::free(entry->recodeShared);
        }
        std::free(entry);
        entry = next;
    }
}

int DestroyRegisteredFont(QlPrinter *p, QlFontRec *entry, int mainList) {
    if (!entry) return 1;
    if (!mainList) entry->scaled = nullptr;
    entry->next = nullptr;
    CleanFontStruct(p, entry, !mainList);
    return 1;
}

int FixUSLFont(QlPrinter *p, char *name, char *fixed, size_t fixedSize, int *pixel, int *point) {
    if (!name || std::strlen(name) < 2 || name[0] != '-') return 0;
    ql::LowerInPlace(name);
    char *fields = Qlstrnchr(name, '-', 7);
    if (!fields) return 0;
    int v[4];
    const char *c = fields;
    for (int &x : v) {
        const char *end = std::strchr(c, '-');
        if (!end || end == c) return 0;
        std::string field(c, end);
        if (!QlIsDigitString(field.c_str()) || field.find_first_not_of("0123456789") != std::string::npos) return 0;
        x = static_cast<int>(std::min(std::strtoll(field.c_str(), nullptr, 10), 1000000LL));
        c = end + 1;
    }
    const int res = QlGetResolution(reinterpret_cast<Display *>(p));
    if ((v[2] != 0 && v[2] != res) || (v[3] != 0 && v[3] != res)) return 0;
    int px = v[0], pt = v[1];
    int kind = 1;
    if (px == 0 && pt == 0) {
        kind = 2;
    } else if (px && pt) {
        if (res != px * 720 / pt) return 0;
        pt = px * 720 / res;
    } else if (px) {
        pt = px * 720 / res;
    } else {
        px = pt * res / 720;
    }
    *pixel = px;
    *point = pt;
    std::snprintf(fixed, fixedSize, "%.*s%d-%d-%d-%d-%s", static_cast<int>(fields - name), name, px, pt, res, res, c);
    return kind;
}

int LoadUSLFonts(QlPrinter *p) {
    QlFontRec **tail = &p->fonts;
    while (*tail) tail = &(*tail)->next;
    const char *const lists[2] = {QL_X_FONT_DIR_MIT "/fonts.dir", QL_X_FONT_DIR_TYPE1 "/fonts.dir"};
    int opened = 0;
    for (int k = 0; k < 2; ++k) {
        FILE *f = std::fopen(lists[k], "r");
        if (!f) continue;
        opened = 1;
        const int kind = k + 2;
        char line[258];
        while (std::fgets(line, sizeof line, f)) {
            if (line[0] == '#') continue;
            if (size_t n = std::strlen(line)) line[n - 1] = '\0';
            char *s = line;
            while (*s == ' ' || *s == '\t') ++s;
            char *file = s;
            while (*s && *s != ' ' && *s != '\t') ++s;
            if (*s) *s++ = '\0';
            // The file must be a .pfa; its name without it is the font's.
            size_t n = std::strlen(file);
            if (n < 5 || std::strcmp(file + n - 4, ".pfa") != 0) continue;
            file[n - 4] = '\0';
            while (*s == ' ' || *s == '\t') ++s;
            char *xlfd = s;
            for (size_t m = std::strlen(xlfd); m && xlfd[m - 1] == ' ';) xlfd[--m] = '\0';
            char fixed[300];
            int pixel = 0, point = 0;
            const int how = FixUSLFont(p, xlfd, fixed, sizeof fixed, &pixel, &point);
            if (!how) continue;
            QlFontRec *e = MakePSFontEntry(p, nullptr, file, kind);
            if (!e) continue;
            const int res = resolutionOf(p);
            e->pixelSize = how == 2 ? 0.0f
                           : pixel >= 1 ? static_cast<float>(pixel)
                           : point * res / 720 >= 1 ? static_cast<float>(point) * res / 720
                                                    : 1.0f;
            copyText(e->xlfdName, sizeof e->xlfdName, fixed);
            *tail = e;
            tail = &e->next;
        }
        std::fclose(f);
    }
    return opened;
}

void QlRecodeISO(QlPrinter *p, QlFontRec *f) {
    const char *s = _QlGetEncodingScheme(f->encodingScheme);
    const char *m = _QlGetEncodeNameofAFMEncode(static_cast<int>(f->recodeState));
    if (!s || !m || f->encodingScheme < 2 || f->encodingScheme > 9 || f->recodeState < 2 || f->recodeState > 9) return;
    const std::string key = ql::format("%s-%s", s, m);
    FILE *out = p->stream;
    auto **cache = static_cast<char **>(p->encodingCache);
    bool cached = false;
    for (int i = 0; i < p->encodingCacheFont && !cached; ++i) cached = !_kvo_strcasecmp(cache[i], key.c_str());
    if (!cached) {
        const int a = f->encodingScheme - 2, b = static_cast<int>(f->recodeState) - 2;
        ql::put(out, "/%s-%s[\n", s, m);
        for (const LatinGlyph &row : LatinCode) {
            if (row.code[a] == row.code[b]) continue;
            if (row.code[a] != -1) {
                ql::put(out, "8#%o /%s\n", row.code[a], row.glyph);
                continue;
            }
            // A code of the font's own encoding that the wanted one lacks
            // is cleared, unless another glyph of the table takes it.
            bool taken = false;
            for (const LatinGlyph &other : LatinCode) taken = taken || other.code[a] == row.code[b];
            if (!taken) ql::put(out, "8#%o /.notdef\n", row.code[b]);
        }
        ql::write(out, "]d\n");
        auto **grown = static_cast<char **>(std::realloc(cache, (p->encodingCacheFont + 1) * sizeof(char *)));
        if (grown) {
            grown[p->encodingCacheFont++] = _kvo_strdup(key.c_str());
            p->encodingCache = grown;
        }
    }
    const char *file = ql::FontFileName(f);
    ql::put(out, "/%s /%s-%s %s-%s REn\n", file, file, s, s, m);
}

void ResetEncodingCache(QlPrinter *p) {
    for (QlFontRec *f = p->fonts; f; f = f->next)
        if (f->recodeShared) *f->recodeShared = 0;
    auto **cache = static_cast<char **>(p->encodingCache);
    for (int i = 0; cache && i < p->encodingCacheFont; ++i) std::free(cache[i]);
    std::free(cache);
    p->encodingCache = nullptr;
    p->encodingCacheFont = 0;
}

void ForgetPageDefinitions(QlPrinter *p) {
    for (QlFontRec *f = p->fonts; f; f = f->next)
        if (f->loadState && f->fontType) *f->loadState = *f->fontType;
    PS2PageDefinitionsLost(p);
}

void CleanPrinter(QlPrinter *p) {
    FreePageData(p);
    CleanFontStruct(p, p->fonts, 0);
    p->fonts = nullptr;
    ResetEncodingCache(p);
    auto **supplied = static_cast<char **>(p->suppliedFonts);
    for (int i = 0; supplied && i < p->suppliedFontCount; ++i) std::free(supplied[i]);
    std::free(supplied);
    p->suppliedFonts = nullptr;
    p->suppliedFontCount = 0;
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
// "%.Nf" is this same conversion.)  A level that is a whole 8-bit value
// takes no text that lies half way between two values, which an
// interpreter may round either way.
void appendLevel(std::string &out, double value, int level255) {
    const bool whole = std::fabs(value * 255 - level255) < 1e-6;
    char text[32];
    for (int digits : {1, 2, 3}) {
        auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, digits).ptr;
        double back = 0;
        std::from_chars(text, end, back);
        const bool near = whole ? std::fabs(back * 255 - level255) < 0.25
                                : static_cast<int>(back * 255 + 0.5) == level255;
        if (digits == 3 || near) {
            out.append(text, static_cast<size_t>(end - text));
            return;
        }
    }
}

// A pixel's levels: "r g b" on a colour printer, the grey on a grey one.
// True for colour.
bool appendLevels(QlPrinter *p, std::string &out, unsigned long pixel) {
    int rgb[3];
    _QlPixelRGB(p, pixel, rgb);
    if (p->flags & 1) {
        for (int i = 0; i < 3; ++i) {
            if (i) out += ' ';
            appendLevel(out, rgb[i] / 255.0, rgb[i]);
        }
        return true;
    }
    const double grey = 0.3 * rgb[0] / 255 + 0.59 * rgb[1] / 255 + 0.11 * rgb[2] / 255;
    appendLevel(out, grey, static_cast<int>(grey * 255 + 0.5));
    return false;
}

// A pixel as "RGB" on a colour printer, as "setgray" on a grey one; the
// text ends with `end`.  True when a colour was set.
bool writePixel(QlPrinter *p, unsigned long pixel, std::string_view end) {
    // One buffer for all calls: no allocation per colour.
    static thread_local std::string text;
    text.clear();
    const bool colour = appendLevels(p, text, pixel);
    text += colour ? " RGB" : " setgray";
    text += end;
    write(p->stream, text);
    return colour;
}

// A grey replaces a pattern as well: the next tiled mark selects its
// pattern again.
void writeForeground(QlPrinter *p, QlGC *gc) {
    if (writePixel(p, gc->values.foreground, "\n")) p->paintKind = 1;
    else if (p->paintKind == 2) p->paintKind = 0;
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

// Images.  StartImage writes the image operator's head, DumpBitmap or
// DumpArea the rows, EndImage the end of the data.  The rows go out as
// hexadecimal text or, with compression, through the process's one set of
// row encoders.

namespace {

struct Compressor {
    ql::Ascii85Writer ascii85;
    ql::RunLengthRow runs{ascii85};
    ql::RowDeltaWriter delta;
};

Compressor &compressor() {
    static Compressor c;
    return c;
}

// The rows of one image: hexadecimal lines, or the compressed form of the
// printer's level.
class RowWriter {
public:
    RowWriter(QlPrinter *p, FILE *s, int compression) : p_(p), s_(s), compressed_(compression > 0) {}
    void startRow() {
        if (compressed_) start_compressed_row();
        else hex_.clear();
    }
    void add(uint8_t byte) {
        if (compressed_) add_data_to_row(p_, s_, 0, byte);
        else hex_.push_back(byte);
    }
    void add(std::span<const uint8_t> bytes) {
        if (!compressed_) hex_.insert(hex_.end(), bytes.begin(), bytes.end());
        else if (p_->level == 2) compressor().runs.Add(bytes);
        else compressor().delta.Add(bytes);
    }
    void endRow() {
        if (compressed_) {
            end_compressed_row(p_, s_);
            return;
        }
        ql::PutHex(s_, hex_);
        write(s_, "\n");
    }
    // After the last row: the RunLength end marker and the end of the
    // ASCII85 text.
    void finish() {
        if (!compressed_ || p_->level != 2) return;
        ASCII85_Encode(s_, 128, 1);
        ASCII85_Encode(s_, 0, 2);
    }

private:
    QlPrinter *p_;
    FILE *s_;
    bool compressed_;
    std::vector<uint8_t> hex_;
};

// An image without data has no pixels to read: all its pixels count as
// outside.
bool inside(const XImage *image, long x, long y) {
    return image->data && x >= 0 && y >= 0 && x < image->width && y < image->height;
}

int grey(const int rgb[3]) { return static_cast<int>(0.299 * rgb[0] + 0.587 * rgb[1] + 0.114 * rgb[2]); }

// The data source of the dictionary form.
void writeDataSource(QlPrinter *p, int rowBytes) {
    if (p->bitmapCompression < 1) {
        write(p->stream, " /DataSource currentfile /ASCIIHexDecode filter\n");
        return;
    }
    _Ql_ps_init_compress(p, rowBytes);
    write(p->stream, " /DataSource currentfile /ASCII85Decode filter /RunLengthDecode filter\n");
}

// An image dictionary of level 2 and its operator.  The image space has
// its rows top down like the page's, so the matrix is the identity.
void writeImageDict(QlPrinter *p, int width, int height, int bits, const char *decode, int rowBytes,
                    const char *op) {
    FILE *s = p->stream;
    write(s, "<<\n /ImageType 1\n /ImageMatrix [1 0 0 1 0 0]\n");
    put(s, " /Width %d /Height %d\n", width, height);
    put(s, " /BitsPerComponent %d\n", bits);
    put(s, " /Decode %s\n", decode);
    writeDataSource(p, rowBytes);
    put(s, ">>\n%s\n", op);
}

void writeIndexedSpace(QlPrinter *p) {
    FILE *s = p->stream;
    write(s, "[/Indexed /DeviceRGB 255\n<");
    for (int line = 0; line < 32; ++line) {
        for (int i = 0; i < 8; ++i) {
            int rgb[3];
            _QlCellRGB(p, static_cast<unsigned long>(line * 8 + i), rgb);
            put(s, " %.2x%.2x%.2x", rgb[0], rgb[1], rgb[2]);
        }
        write(s, "\n");
    }
    write(s, "> ] setcolorspace\n");
}

}  // namespace

int CalculateEightFactor(int width) { return static_cast<int>((std::max(width, 0) + 7L) / 8); }

void StartImage(QlPrinter *p, XImage *image, int width, int height) {
    FILE *s = p->stream;
    const bool deep = image->depth >= 2, colour = p->flags & 1;
    if (p->level == 2) {
        if (!deep) {
            write(s, "/DeviceGray setcolorspace\n");
            writeImageDict(p, width, height, 1, "[0 1]", CalculateEightFactor(width), "image");
            return;
        }
        const char *decode = "[0 1]";
        if (colour && image->depth != 24) {
            writeIndexedSpace(p);
            decode = "[0 255]";
        } else if (colour) {
            write(s, "/DeviceRGB setcolorspace\n");
            decode = "[0 1 0 1 0 1]";
        } else {
            // The colour space may still be a pattern's.
            write(s, "/DeviceGray setcolorspace\n");
        }
        writeImageDict(p, width, height, 8, decode, width, "image");
        return;
    }
    if (!deep) {
        put(s, "%d %d 1 [1 0 0 1 0 0]\n", width, height);
        if (p->bitmapCompression < 1) put(s, "{currentfile %d string readhexstring pop}\n", CalculateEightFactor(width));
        else _Ql_ps_init_compress(p, CalculateEightFactor(width));
    } else {
        put(s, "%d %d 8 [1 0 0 1 0 0]\n", width, height);
        if (p->bitmapCompression < 1) put(s, "{currentfile %d string readhexstring pop }\n", width);
        else _Ql_ps_init_compress(p, width);
    }
    write(s, "image\n");
}

void WriteMaskSource(QlPrinter *p, int rowBytes) {
    if (p->bitmapCompression < 1) {
        put(p->stream, "{currentfile %d string readhexstring pop}\n", rowBytes);
        return;
    }
    _Ql_ps_init_compress(p, rowBytes);
    if (p->level == 2) write(p->stream, "currentfile /ASCII85Decode filter /RunLengthDecode filter\n");
}

void StartBitmapMask(QlPrinter *p, QlGC *gc, int width, int height) {
    FILE *s = p->stream;
    writePixel(p, gc->values.background, "\n");
    put(s, "np 0 0 t 0 %d lo %d %d lo %d 0 lo cp f\n", height, width, height, width);
    writePixel(p, gc->values.foreground, "\n");
    if (p->level == 2) {
        writeImageDict(p, width, height, 1, "[1 0]", CalculateEightFactor(width), "imagemask");
        return;
    }
    put(s, "%d %d true [1 0 0 1 0 0]\n", width, height);
    WriteMaskSource(p, CalculateEightFactor(width));
    write(s, "imagemask\n");
}

void EndImage(QlPrinter *p) {
    if (p->level == 2 && p->bitmapCompression == 0) write(p->stream, ">\n");
}

int DumpBitmap(QlPrinter *p, QlGC *, FILE *s, XImage *image, int isPut, int x, int y, int width, int height,
               int invert, int compression) {
    // A bitmap put with a GC's colours goes out as a mask of its set bits;
    // all others as the pixels' bits, 1 for a pixel outside the image.
    const bool mask = isPut && image->format != ZPixmap && !invert;
    const int bytes = CalculateEightFactor(width);
    RowWriter rows(p, s, compression);
    for (long row = y; row < static_cast<long>(y) + std::max(height, 0); ++row) {
        rows.startRow();
        for (long b = 0; b < bytes; ++b) {
            unsigned bits = 0;
            for (int k = 0; k < 8; ++k) {
                const long px = x + 8 * b + k;
                bool bit = inside(image, px, row) ? XGetPixel(image, static_cast<int>(px), static_cast<int>(row)) != 0
                                                  : !mask;
                if (invert) bit = !bit;
                bits = bits << 1 | (bit ? 1u : 0u);
            }
            rows.add(static_cast<uint8_t>(bits));
        }
        rows.endRow();
    }
    rows.finish();
    return 0;
}

// Where a channel of a true colour pixel lies, when it is a whole byte:
// its shift, or -1.
int byteChannel(unsigned long mask) {
    for (int shift = 0; shift <= 16; shift += 8)
        if (mask == 0xFFUL << shift) return shift;
    return -1;
}

// Reads a depth 24 image's rows straight from its data, where XGetPixel
// would give the same: Xlib's own reader of the image, 24 bits per pixel
// least significant byte first or 32 in this machine's byte order, and
// channels that are whole bytes.
class DirectRows {
public:
    DirectRows(const QlPrinter *p, const XImage *image)
        : red_(byteChannel(p->redMask)), green_(byteChannel(p->greenMask)), blue_(byteChannel(p->blueMask)),
          bytes_(image->bits_per_pixel / 8) {
        const int native = std::endian::native == std::endian::little ? LSBFirst : MSBFirst;
        const bool layout = (bytes_ == 4 && image->byte_order == native) || (bytes_ == 3 && image->byte_order == LSBFirst);
        ok_ = layout && image->data && image->depth == 24 && image->format == ZPixmap && red_ >= 0 && green_ >= 0 &&
              blue_ >= 0 && image->f.get_pixel == xlibReader(image->bits_per_pixel, image->byte_order);
    }
    // Whether pixels x to x + width - 1 of `row` can be read here.
    bool covers(const XImage *image, long x, long row, long width) const {
        return ok_ && row >= 0 && row < image->height && x >= 0 && x + width <= image->width;
    }
    // The row's pixels as RGB bytes, or as greys.
    uint8_t *rgb(const XImage *image, long x, long row, long width, uint8_t *o) const {
        return bytes_ == 3 ? convert<3, false>(image, x, row, width, o) : convert<4, false>(image, x, row, width, o);
    }
    uint8_t *greys(const XImage *image, long x, long row, long width, uint8_t *o) const {
        return bytes_ == 3 ? convert<3, true>(image, x, row, width, o) : convert<4, true>(image, x, row, width, o);
    }

private:
    // 299, 587 and 114 times each channel value: loads instead of three
    // multiplications a pixel.
    static constexpr auto kWeights = [] {
        std::array<std::array<uint32_t, 256>, 3> w{};
        for (uint32_t v = 0; v < 256; ++v) w[0][v] = 299 * v, w[1][v] = 587 * v, w[2][v] = 114 * v;
        return w;
    }();
    // Where each channel's byte lies in a pixel's bytes.
    template <int Bytes>
    int at(int shift) const {
        return Bytes == 4 && std::endian::native == std::endian::big ? 3 - shift / 8 : shift / 8;
    }
    template <int Bytes, bool Grey>
    uint8_t *convert(const XImage *image, long x, long row, long width, uint8_t *o) const {
        const auto *px = reinterpret_cast<const uint8_t *>(image->data + row * image->bytes_per_line + x * Bytes);
        const int r = at<Bytes>(red_), g = at<Bytes>(green_), b = at<Bytes>(blue_);
        for (long i = 0; i < width; ++i, px += Bytes) {
            const int rgb[3] = {px[r], px[g], px[b]};
            if constexpr (Grey) {
                // grey() in integers: its sum in doubles is within 1e-12 of
                // the exact one, so it truncates the same unless the exact
                // sum is whole (checked for all 2^24 colours).
                const unsigned thousandths = kWeights[0][rgb[0]] + kWeights[1][rgb[1]] + kWeights[2][rgb[2]];
                *o++ = static_cast<uint8_t>(thousandths % 1000 ? thousandths / 1000 : grey(rgb));
            } else {
                *o++ = static_cast<uint8_t>(rgb[0]);
                *o++ = static_cast<uint8_t>(rgb[1]);
                *o++ = static_cast<uint8_t>(rgb[2]);
            }
        }
        return o;
    }
    // The reader Xlib gives an image of this layout.
    static decltype(XImage::f.get_pixel) xlibReader(int bitsPerPixel, int order) {
        static const auto readers = [] {
            std::array<decltype(XImage::f.get_pixel), 4> r{};
            for (int i = 0; i < 4; ++i) {
                XImage probe{};
                probe.width = probe.height = 1;
                probe.format = ZPixmap;
                probe.byte_order = probe.bitmap_bit_order = i & 1 ? MSBFirst : LSBFirst;
                probe.bitmap_unit = 8;
                probe.bitmap_pad = 32;
                probe.bits_per_pixel = i & 2 ? 32 : 24;
                probe.depth = 24;
                probe.bytes_per_line = 4;
                XInitImage(&probe);
                r[i] = probe.f.get_pixel;
            }
            return r;
        }();
        return readers[(order == MSBFirst ? 1 : 0) | (bitsPerPixel == 32 ? 2 : 0)];
    }
    int red_, green_, blue_, bytes_;
    bool ok_ = false;
};

int DumpArea(QlPrinter *p, FILE *s, XImage *image, int x, int y, int width, int height, int compression,
             int indexed) {
    const bool deep24 = image->depth == 24, compressed = compression > 0;
    const bool colour = p->level == 2 && (p->flags & 1);
    const unsigned long outside = deep24 ? 16777215UL : QlWhitePixel(reinterpret_cast<Display *>(p), 0);
    const bool cells = colour && !deep24 && indexed;
    const long w = std::max(width, 0);
    RowWriter rows(p, s, compression);
    const DirectRows direct(p, image);
    std::vector<uint8_t> line(static_cast<size_t>(w) * (colour && !cells ? 3 : 1));
    for (long row = y; row < static_cast<long>(y) + std::max(height, 0); ++row) {
        rows.startRow();
        uint8_t *o = line.data();
        if (direct.covers(image, x, row, w)) {
            o = colour ? direct.rgb(image, x, row, w, o) : direct.greys(image, x, row, w, o);
        } else {
            for (long col = x; col < x + w; ++col) {
                const bool in = inside(image, col, row);
                const unsigned long pixel =
                    in ? XGetPixel(image, static_cast<int>(col), static_cast<int>(row)) : outside;
                if (cells) {
                    *o++ = static_cast<uint8_t>(pixel & 0xFF);
                    continue;
                }
                // A pixel outside the image reads as white.
                int rgb[3] = {255, 255, 255};
                if (in && deep24) _QlTrueRGB(p, pixel, rgb);
                else if (in) _QlCellRGB(p, pixel, rgb);
                if (colour && (deep24 || !compressed)) {
                    for (int c : rgb) *o++ = static_cast<uint8_t>(c);
                } else if (colour) {
                    // Never reached: a cell's colours go out only for a
                    // tile, and tiles are not compressed.
                    for (int i = 0; i < 3; ++i) *o++ = 0;
                } else {
                    *o++ = static_cast<uint8_t>(grey(rgb));
                }
            }
        }
        rows.add({line.data(), static_cast<size_t>(o - line.data())});
        rows.endRow();
    }
    rows.finish();
    return 0;
}

void _Ql_ps_init_compress(QlPrinter *p, int size) {
    Compressor &c = compressor();
    if (p->level == 2) {
        c.ascii85.Reset(p->stream);
        return;
    }
    c.delta.Start(p->stream, size);
    put(p->stream, "/imdata %d string def\n{imdecode}\n", size);
}

void start_compressed_row() {
    compressor().runs.StartRow();
    compressor().delta.StartRow();
}

void add_data_to_row(QlPrinter *p, FILE *, int, int byte) {
    if (p->level == 2) compressor().runs.Add(static_cast<uint8_t>(byte));
    else compressor().delta.Add(static_cast<uint8_t>(byte));
}

void end_compressed_row(QlPrinter *p, FILE *s) {
    if (p->level == 2) flush_compressed_data(p, s);
    else compressor().delta.EndRow();
}

void flush_compressed_data(QlPrinter *, FILE *) { compressor().runs.EndRow(); }

void ASCII85_Encode(FILE *s, int byte, int mode) {
    ql::Ascii85Writer &a = compressor().ascii85;
    if (mode == 0) a.Reset(s);
    else if (mode == 1) a.Add(static_cast<uint8_t>(byte));
    else if (mode == 2) a.Finish();
}

void ASCII85_Output(FILE *s, const unsigned char (&group)[4], int n) { ql::Ascii85Output(s, group, n); }

// The pattern cache.  tileCache holds the list of patterns that the
// document defines, newest first, and the numbers that name them.

struct PS2TileNode {
    PS2PatternKey key;
    unsigned long time;  // order of addition
    unsigned long page;  // the page whose save holds the definition
    PS2TileNode *next;
};

namespace {

// Keys in order of their image first, so that one image's keys stand
// together.
struct KeyOrder {
    static auto tied(const PS2PatternKey &k) {
        return std::tuple(reinterpret_cast<uintptr_t>(k.image), k.kind, k.foreground, k.background, k.x, k.y);
    }
    bool operator()(const PS2PatternKey &a, const PS2PatternKey &b) const { return tied(a) < tied(b); }
};

struct TileCache {
    PS2TileNode *head = nullptr;
    // A pattern's number stays with it while its image lives, so that a
    // pattern that fell out of the list is defined again under its name,
    // and two runs of a program write the same document.
    std::map<PS2PatternKey, int, KeyOrder> serials;
    int nextSerial = 1;
    unsigned long clock = 0;
    unsigned long page = 0;
    // What the last pattern selection wrote, while paintKind is 2.
    std::string selected;
};

void dumpPattern(QlPrinter *p, QlGC *gc, const PS2PatternKey &key);

TileCache *cacheOf(QlPrinter *p) {
    if (!p->tileCache) p->tileCache = new (std::nothrow) TileCache;
    return static_cast<TileCache *>(p->tileCache);
}

int serialOf(QlPrinter *p, const PS2PatternKey &key) {
    TileCache *c = cacheOf(p);
    if (!c) return 0;
    auto [it, fresh] = c->serials.try_emplace(key, c->nextSerial);
    if (fresh) ++c->nextSerial;
    return it->second;
}

PS2PatternKey tileKey(QlGC *gc, XImage *image, int kind) {
    PS2PatternKey key;
    key.image = image;
    key.kind = kind;
    key.x = gc->values.ts_x_origin;
    key.y = gc->values.ts_y_origin;
    if (kind == PS2PatternKey::OpaqueStipple) {
        key.foreground = gc->values.foreground;
        key.background = gc->values.background;
    }
    return key;
}

bool usable(const XImage *image) { return image && image->width > 0 && image->height > 0; }

// The pattern a mark of this GC paints with: a tile, or a stipple (at
// level 1 an opaque stipple is a tile made of it, and a plain stipple paints
// solid); nothing for solid paint or a missing pixmap.
std::optional<PS2PatternKey> paintPattern(QlPrinter *p, QlGC *gc) {
    const XGCValues &v = gc->values;
    auto *tile = reinterpret_cast<XImage *>(v.tile);
    auto *stipple = reinterpret_cast<XImage *>(v.stipple);
    const bool two = p->level == 2;
    PS2PatternKey key;
    if (v.fill_style == FillTiled && usable(tile)) key = tileKey(gc, tile, PS2PatternKey::Tile);
    else if (v.fill_style == FillStippled && usable(stipple) && two) key = tileKey(gc, stipple, PS2PatternKey::Stipple);
    else if (v.fill_style == FillOpaqueStippled && usable(stipple))
        key = tileKey(gc, stipple, two ? PS2PatternKey::OpaqueStipple : PS2PatternKey::Tile);
    else return std::nullopt;
    if (!two) key.x = key.y = 0;
    return key;
}

// The pattern of `key` in the document: defined unless the list has it
// from this page.
void ensurePattern(QlPrinter *p, QlGC *gc, const PS2PatternKey &key) {
    TileCache *c = cacheOf(p);
    if (!c) return;
    if (PS2TileNode *node = PS2MatchTileToCache(p, key)) {
        if (node->page == c->page) return;
        node->page = c->page;
    } else {
        PS2AddTile(p, key);
    }
    dumpPattern(p, gc, key);
}

// What selects the pattern of `key` as the current paint.
std::string selection(QlPrinter *p, QlGC *gc, const PS2PatternKey &key) {
    const int n = serialOf(p, key);
    const XImage *image = key.image;
    if (p->level != 2)
        return ql::format("tile_%x %d %d %d %d %d %d c sqrt %0.3f c setpattern\n", n, image->width, image->height,
                          CalculateEightFactor(image->width), p->orientation == 2 ? 0 : 90, image->width,
                          image->height, p->scaleX / p->divisorX);
    if (key.kind != PS2PatternKey::Stipple) return ql::format("/Pattern setcolorspace tile-%d setcolor\n", n);
    std::string levels;
    const bool colour = appendLevels(p, levels, gc->values.foreground);
    return ql::format("[/Pattern /Device%s] setcolorspace %s tile-%d setcolor\n", colour ? "RGB" : "Gray", levels, n);
}

void selectPattern(QlPrinter *p, QlGC *gc, const PS2PatternKey &key) {
    TileCache *c = cacheOf(p);
    if (!c) return;
    std::string text = selection(p, gc, key);
    if (p->paintKind != 2 || c->selected != text) {
        if (p->level == 2) ensurePattern(p, gc, key);
        write(p->stream, text);
    }
    p->paintKind = 2;
    c->selected = std::move(text);
}

// A level 1 tile: hexadecimal rows, inverted, that setpattern turns into
// a halftone screen.  A deeper tile is halftoned to depth 1 first.
void writeLevel1Tile(QlPrinter *p, QlGC *gc, XImage *tile) {
    if (!usable(tile)) return;
    FILE *s = p->stream;
    PS2PatternKey key;
    key.image = tile;
    put(s, "/tile_%x <\n", serialOf(p, key));
    XImage *image = tile, *copy = nullptr;
    if (tile->depth > 1) {
        if (unsigned char **map = ql_pcl::XImageToHalftone(p, tile, 0, 0, tile->width, tile->height)) {
            // The halftone marks black dots with 1; here, as in a bitmap
            // tile, black is pixel 0.
            for (int y = 0; y < tile->height; ++y)
                for (int x = 0; x < tile->width; ++x) map[y][x] = !map[y][x];
            copy = ql_pcl::BitimageToXImage(map, tile->width, tile->height);
            ql_pcl::FreeBitmapRows(map, tile->height);
        }
        if (copy) image = copy;
    }
    DumpBitmap(p, gc, s, image, 0, 0, 0, image->width, image->height, 1, 0);
    if (copy) QlDestroyImage(copy);
    write(s, "> d\n");
}

// The definition of a pattern: its pixels as a hexadecimal string, a paint
// procedure that images them into a unit square, and the matrix that
// makes the square the pixmap's size on paper, at the GC's tile origin.
void dumpPattern(QlPrinter *p, QlGC *gc, const PS2PatternKey &key) {
    XImage *tile = key.image;
    if (!usable(tile)) return;
    FILE *s = p->stream;
    const int n = serialOf(p, key), w = tile->width, h = tile->height;
    const bool deep = tile->depth != 1 && key.kind == PS2PatternKey::Tile;
    put(s, "<</PaintType %d/PatternType 1/TilingType 3/BBox [0 0 1 1]/XStep 1/YStep 1\n",
        key.kind == PS2PatternKey::Stipple ? 2 : 1);
    put(s, "/tile-image-%d <\n", n);
    if (deep) DumpArea(p, s, tile, 0, 0, w, h, 0, 0);
    else DumpBitmap(p, gc, s, tile, 0, 0, 0, w, h, 0, 0);
    write(s, ">def\n");
    if (key.kind == PS2PatternKey::Tile) {
        put(s, "/PaintProc{begin %d %d %d[%d 0 0 -%d 0 %d]{tile-image-%d}", w, h, deep ? 8 : 1, w, h, h, n);
        write(s, deep && (p->flags & 1) ? "false 3 colorimage\n" : "image\n");
    } else {
        // A stipple paints its set bits, in the current colour or in the
        // foreground over the background.
        write(s, "/PaintProc{begin ");
        if (key.kind == PS2PatternKey::OpaqueStipple) {
            writePixel(p, key.background, " 0 0 1 1 rectfill ");
            writePixel(p, key.foreground, " ");
        }
        put(s, "%d %d true[%d 0 0 -%d 0 %d]{tile-image-%d}imagemask\n", w, h, w, h, h, n);
    }
    write(s, "end}\n");
    const double k = unitsPerDot(p);
    if (key.x || key.y)
        put(s, ">> [%.2f 0 0 -%.2f %.2f %.2f] makepattern /tile-%d exch def\n", w * k, h * k, key.x * k, key.y * k, n);
    else put(s, ">> [%.2f 0 0 -%.2f 0 0] makepattern /tile-%d exch def\n", w * k, h * k, n);
}

void undefine(QlPrinter *p, const PS2TileNode *node) {
    if (!p->stream) return;
    put(p->stream, "currentdict /tile-%d undef\n", serialOf(p, node->key));
}

}  // namespace

void PS2MakePattern(QlPrinter *p, QlGC *gc, XImage *tile) {
    if (usable(tile)) ensurePattern(p, gc, tileKey(gc, tile, PS2PatternKey::Tile));
}

int PS2SetPattern(QlPrinter *p, QlGC *gc) {
    auto *tile = reinterpret_cast<XImage *>(gc->values.tile);
    if (!usable(tile)) return 0;
    put(p->stream, "/Pattern setcolorspace tile-%d setcolor\n", serialOf(p, tileKey(gc, tile, PS2PatternKey::Tile)));
    return 1;
}

PS2TileNode *PS2MatchTileToCache(QlPrinter *p, const PS2PatternKey &key) {
    TileCache *c = static_cast<TileCache *>(p->tileCache);
    for (PS2TileNode *node = c ? c->head : nullptr; node; node = node->next)
        if (node->key == key) return node;
    return nullptr;
}

void PS2AddTile(QlPrinter *p, const PS2PatternKey &key) {
    TileCache *c = cacheOf(p);
    if (!c) return;
    // A list of one node isn't counted.
    int count = 0;
    if (c->head && c->head->next)
        for (PS2TileNode *node = c->head; node; node = node->next) ++count;
    if (count > 15) PS2CleanLRUTileCache(p);
    auto *node = new (std::nothrow) PS2TileNode{key, ++c->clock, c->page, c->head};
    if (node) c->head = node;
}

// Takes the oldest pattern out of the list, and with it all that stand
// between the head and it: those stay defined in the document, unlisted,
// and are defined again when used.
void PS2CleanLRUTileCache(QlPrinter *p) {
    TileCache *c = static_cast<TileCache *>(p->tileCache);
    if (!c || !c->head) return;
    PS2TileNode *oldest = c->head;
    for (PS2TileNode *node = c->head; node; node = node->next)
        if (node->time < oldest->time) oldest = node;
    PS2TileNode *gone;
    if (oldest == c->head) {
        c->head = oldest->next;
        gone = oldest;
        oldest->next = nullptr;
    } else {
        gone = c->head->next;
        c->head->next = oldest->next;
        oldest->next = nullptr;
    }
    if (oldest->key.image) undefine(p, oldest);
    while (gone) {
        PS2TileNode *next = gone->next;
        delete gone;
        gone = next;
    }
}

void PS2DumpTile(QlPrinter *p, QlGC *gc, XImage *tile) {
    if (usable(tile)) dumpPattern(p, gc, tileKey(gc, tile, PS2PatternKey::Tile));
}

void PS2CleanTileCache(QlPrinter *p) {
    auto *c = static_cast<TileCache *>(p->tileCache);
    if (!c) return;
    for (PS2TileNode *node = c->head; node;) {
        PS2TileNode *next = node->next;
        delete node;
        node = next;
    }
    delete c;
    p->tileCache = nullptr;
}

// Every pattern made of the image goes: its node with an "undef", and the
// numbers that named them.
int PS2CheckDeleteCacheTile(QlPrinter *p, XImage *tile) {
    auto *c = static_cast<TileCache *>(p->tileCache);
    if (!tile || !c) return 0;
    int removed = 0;
    for (PS2TileNode **link = &c->head; *link;) {
        PS2TileNode *node = *link;
        if (node->key.image != tile) {
            link = &node->next;
            continue;
        }
        *link = node->next;
        undefine(p, node);
        delete node;
        removed = 1;
    }
    PS2PatternKey first;
    first.image = tile;
    first.kind = std::numeric_limits<int>::min();
    first.x = first.y = std::numeric_limits<int>::min();
    auto it = c->serials.lower_bound(first);
    while (it != c->serials.end() && it->first.image == tile) it = c->serials.erase(it);
    return removed;
}

// Every printer drops the image: another printer's list keeping it would
// take a new image at the same address for it.
int PS2CheckDeleteCacheTileGlobal(XImage *tile) {
    int removed = 0;
    for (QlPrtNode *n = _QlPrtList; n; n = n->next)
        if (n->printer && n->printer->driverId == QL_DRIVER_POSTSCRIPT && PS2CheckDeleteCacheTile(n->printer, tile))
            removed = 1;
    return removed;
}

void PS2PageDefinitionsLost(QlPrinter *p) {
    if (auto *c = static_cast<TileCache *>(p->tileCache)) {
        ++c->page;
        c->selected.clear();
    }
}

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
    // An opaque stipple paints as a tile made of it, without the GC's own
    // tile and fill style changing: at level 1 the stipple's halftone is
    // defined here, at level 2 CheckTile defines its pattern.
    if (wanted(Stipple) && v.stipple && v.fill_style == FillOpaqueStippled && p->level == 1) {
        writeLevel1Tile(p, gc, reinterpret_cast<XImage *>(v.stipple));
        clean(Stipple);
        if (p->paintKind == 2) p->paintKind = 0;
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
    if (std::optional<PS2PatternKey> key = paintPattern(p, gc)) {
        selectPattern(p, gc, *key);
        return;
    }
    // Solid paint; also a fill style whose pixmap is missing, as X paints
    // with a default tile or stipple of the foreground.
    if (p->paintKind != 1) {
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

// The GC's tile: at level 2 a pattern of the cache, at level 1 a halftone
// that setpattern of the prolog uses.
bool WriteTile(QlPrinter *p, QlGC *gc) {
    auto *tile = reinterpret_cast<XImage *>(gc->values.tile);
    if (p->level == 2) PS2MakePattern(p, gc, tile);
    else writeLevel1Tile(p, gc, tile);
    return true;
}

// Makes the GC's font current: downloads it if the document lacks it,
// reencodes it where its name asks for another encoding, and selects it at
// its size, with y flipped as the page's axis is.
bool WriteFont(QlPrinter *p, QlGC *gc) {
    if (!_QlIsPrinterFont(p, gc->values.font)) return false;
    auto *f = reinterpret_cast<QlFontRec *>(gc->values.font);
    FILE *s = p->stream;
    const char *alias = ql::FontAlias(f);
    if (*f->loadState == 4) {
        // An application's font: its loader puts the font into the document.
        XFontStruct *fs = f->fontStruct;
        if (!f->appCallback ||
            !f->appCallback(reinterpret_cast<Display *>(p), f->appData, f->xlfdName, 0, 0, &fs, 4))
            _QlError(eBadAppSoftFont, "PSFlushGC", alias);
    } else if (*f->loadState != 0) {
        DownLoadFont(p, ql::FontFileName(f), *f->fontType, alias);
    }
    *f->loadState = 0;
    const double size = f->pixelSize * 72.0 / geometry(p)->resolution;
    if (f->encodingScheme == 3) {
        if (!*f->recodeShared) {
            *f->recodeShared = 1;
            put(s, "ski{/%s fcd /%s-ISO8859-1 fdf}if\n", alias, alias);
        }
        put(s, "ski{/%s-ISO8859-1}{/%s}ifelse ff [%.2f 0 0 -%.2f 0 0] mf sf\n", alias, alias, size, size);
    } else if (*f->isoEncoded) {
        if (!*f->recodeShared) {
            *f->recodeShared = 1;
            QlRecodeISO(p, f);
        }
        const char *suffix = _QlGetEncodingScheme(f->encodingScheme);
        put(s, "/%s-%s ff [%.2f 0 0 -%.2f 0 0] mf sf\n", alias, suffix ? suffix : "", size, size);
    } else {
        put(s, "/%s ff [%.2f 0 0 -%.2f 0 0] mf sf\n", alias, size, size);
    }
    return true;
}

}  // namespace ps
