// AFM reader: token by token over an open stream, keys looked up in a
// sorted table.  A bad key or value sets -1 and the reading goes on, so
// that a file with one fault still gives everything else; only the end of
// the file and a failed allocation stop a parse early.
#include "fontdata/parseafm.h"

#include "core/qlint.h"

#include <algorithm>
#include <cerrno>
#include <cfloat>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {

// Keys, in the order of keyStrings.
enum Key {
    ASCENDER, CHARBBOX, CODE, COMPCHAR, CODEHEX, CAPHEIGHT, CHARWIDTH, CHARACTERS, COMMENT, DESCENDER,
    ENCODINGSCHEME, ENDCHARMETRICS, ENDDIRECTION, ENDCOMPOSITES, ENDFONTMETRICS, ENDKERNDATA, ENDKERNPAIRS,
    ENDTRACK, FAMILYNAME, FONTBBOX, FONTNAME, FULLNAME, ISBASEFONT, ISFIXEDPITCH, ITALICANGLE, KERNPAIR,
    KERNPAIRXAMT, LIGATURE, MAPPINGSCHEME, METRICSSETS, CHARNAME, NOTICE, COMPCHARPIECE, STARTCHARMETRICS,
    STARTCOMPOSITES, STARTDIRECTION, STARTFONTMETRICS, STARTKERNDATA, STARTKERNPAIRS, STARTTRACK, TRACKKERN,
    UNDERLINEPOSITION, UNDERLINETHICKNESS, VVECTOR, VERSION, XYWIDTH, XWIDTH0, XWIDTH, WEIGHT, XHEIGHT,
    NOPE
};

// Sorted for the binary search, except that "EndDirection" stands before
// "EndComposites".  The search is left as it is: it never finds
// "EndComposites", so a composites section only ends at "EndFontMetrics".
const char *const keyStrings[] = {
    "Ascender", "B", "C", "CC", "CH", "CapHeight", "CharWidth", "Characters", "Comment", "Descender",
    "EncodingScheme", "EndCharMetrics", "EndDirection", "EndComposites", "EndFontMetrics", "EndKernData",
    "EndKernPairs", "EndTrackKern", "FamilyName", "FontBBox", "FontName", "FullName", "IsBaseFont",
    "IsFixedPitch", "ItalicAngle", "KP", "KPX", "L", "MappingScheme", "MetricsSets", "N", "Notice", "PCC",
    "StartCharMetrics", "StartComposites", "StartDirection", "StartFontMetrics", "StartKernData",
    "StartKernPairs", "StartTrackKern", "TrackKern", "UnderlinePosition", "UnderlineThickness", "V", "Version",
    "W", "W0X", "WX", "Weight", "XHeight", nullptr};
static_assert(sizeof keyStrings / sizeof keyStrings[0] == NOPE + 1);

// Counts come from the file and are not trusted.  A count below 0, above
// these limits, or above what the rest of the file can hold (every record
// takes its key and a separator, two bytes at least) can only end in -1;
// such a count is a parse error at once: its records are not allocated and
// its section is only read past.  So the records of a parse never take
// more than a few times the size of the file, and a stream whose size is
// unknown (a pipe) stays within the limits, a few megabytes that calloc
// takes lazily.  The limits are far above any real font, which has at
// most 65536 glyphs.
constexpr long kMaxChars = 65536;
constexpr long kMaxPairs = 1L << 20;
constexpr long kMaxTracks = 1024;
constexpr long kMaxComps = 65536;
constexpr long kMaxPieces = 1024;
constexpr long kMinRecordBytes = 2;

// The token in hand; allocated for the life of a parse.
char *ident = nullptr;
// Writing direction of the metrics being read; -1 until "StartDirection".
int direction = -1;
// Offset of the end of the stream being parsed, or -1 when unknown.
long streamEnd = -1;

// The character that ended the last token, held back for the next read
// here rather than pushed back into the stream (which would take the
// stream's lock once a token); returned to the stream when a parse ends.
FILE *heldStream = nullptr;
int held = EOF;

inline int readChar(FILE *fp) {
    if (held != EOF && heldStream == fp) {
        int c = held;
        held = EOF;
        return c;
    }
    return getc_unlocked(fp);
}

// Returns the held character to its stream.
void settle() {
    if (held != EOF) ungetc(held, heldStream);
    held = EOF;
    heldStream = nullptr;
}

inline void unread(FILE *fp, int c) {
    if (held != EOF) settle();
    held = c;
    heldStream = fp;
}

// Owns ident for a parse, unless an outer parse owns it already, and holds
// the stream's lock so that the unlocked reads are safe.
class ParseScope {
public:
    explicit ParseScope(FILE *fp) : fp_(fp) {
        flockfile(fp_);
        if (!ident) {
            ident = static_cast<char *>(std::calloc(kAfmTokenSize, 1));
            owner_ = true;
        }
    }
    ~ParseScope() {
        settle();
        if (owner_) {
            std::free(ident);
            ident = nullptr;
        }
        funlockfile(fp_);
    }
    ParseScope(const ParseScope &) = delete;
    ParseScope &operator=(const ParseScope &) = delete;
    bool ok() const { return ident != nullptr; }

private:
    FILE *fp_;
    bool owner_ = false;
};

inline bool isSkipped(int c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t' || c == ',' || c == ';'; }
inline bool endsToken(int c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t' || c == ':' || c == ';'; }

// The next token as an argument: an empty one at the end of the file, which
// the caller's next key read then reports.
const char *arg(FILE *fp) {
    const char *t = token(fp);
    return t ? t : "";
}

void drop(FILE *fp, int n) {
    while (n-- > 0) token(fp);
}

int clampInt(long v) { return v < INT_MIN ? INT_MIN : v > INT_MAX ? INT_MAX : static_cast<int>(v); }

int intArg(FILE *fp) { return clampInt(std::strtol(arg(fp), nullptr, 10)); }

// "<hex>", as "CH" gives a code.  Anything else reads as 0.
int hexArg(FILE *fp) {
    const char *t = arg(fp);
    return t[0] == '<' ? clampInt(std::strtol(t + 1, nullptr, 16)) : 0;
}

// A real number; out of range (of float as well as of double) sets -1.
float floatArg(FILE *fp, int *error) {
    errno = 0;
    double v = std::strtod(arg(fp), nullptr);
    if (errno == ERANGE) *error = kAfmParseError;
    if (v > FLT_MAX || v < -FLT_MAX) {
        *error = kAfmParseError;
        v = v > 0 ? FLT_MAX : -FLT_MAX;
    }
    return static_cast<float>(v);
}

// Replaces a kept string; false when out of memory.
bool setString(char *&field, const char *value) {
    char *copy = strdup(value);
    if (!copy) return false;
    std::free(field);
    field = copy;
    return true;
}

// A section count: false for one below 0 or above limit.
bool countArg(FILE *fp, long limit, int *count) {
    long n = std::strtol(arg(fp), nullptr, 10);
    long here = streamEnd >= 0 ? std::ftell(fp) : -1;
    if (here > 0 && held != EOF && heldStream == fp) --here;
    if (here >= 0 && here <= streamEnd) limit = std::min(limit, (streamEnd - here) / kMinRecordBytes);
    if (n < 0 || n > limit) return false;
    *count = static_cast<int>(n);
    return true;
}

template <typename T>
T *allocRecords(int n) {
    return static_cast<T *>(std::calloc(n > 0 ? n : 1, sizeof(T)));
}

// The head of a kerning or composite section: its count, and its records
// when they are wanted (the count's own line is skipped otherwise).  False
// only when the records can't be had; a bad count gives a parse error to
// `note`.
template <typename T, typename Note>
bool startSection(FILE *fp, bool wanted, long limit, int *count, T **records, Note note) {
    if (!wanted) {
        drop(fp, 1);
        return true;
    }
    if (!countArg(fp, limit, count)) note(kAfmParseError);
    else if (!(*records = allocRecords<T>(*count))) return false;
    return true;
}

// Records counted in a section; stops growing once past any real limit.
inline void countUp(int *count) {
    if (*count <= INT_MAX - 1) ++*count;
}

int sectionEnd(int error, int count, int expected) {
    if (error) return error;
    return count == expected ? kAfmOk : kAfmParseError;
}

void freeLigatures(Ligature *l) {
    while (l) {
        Ligature *next = l->next;
        std::free(l->succ);
        std::free(l->lig);
        std::free(l);
        l = next;
    }
}

void freeMetrics(FontInfo *fi) {
    if (fi->cmi) {
        for (int i = 0; i < fi->numOfChars; ++i) {
            std::free(fi->cmi[i].name);
            freeLigatures(fi->cmi[i].ligs);
        }
        std::free(fi->cmi);
        fi->cmi = nullptr;
    }
}

void freePairs(FontInfo *fi) {
    if (fi->pkd) {
        for (int i = 0; i < fi->numOfPairs; ++i) {
            std::free(fi->pkd[i].name1);
            std::free(fi->pkd[i].name2);
        }
        std::free(fi->pkd);
        fi->pkd = nullptr;
    }
    fi->numOfPairs = 0;
}

void freeTracks(FontInfo *fi) {
    std::free(fi->tkd);
    fi->tkd = nullptr;
    fi->numOfTracks = 0;
}

void freeComposites(FontInfo *fi) {
    if (fi->ccd) {
        for (int i = 0; i < fi->numOfComps; ++i) {
            CompCharData &c = fi->ccd[i];
            std::free(c.ccName);
            for (int j = 0; c.pieces && j < c.numOfPieces; ++j) std::free(c.pieces[j].pccName);
            std::free(c.pieces);
        }
        std::free(fi->ccd);
        fi->ccd = nullptr;
    }
    fi->numOfComps = 0;
}

void freeGlobals(GlobalFontInfo *g) {
    if (!g) return;
    for (char *s : {g->afmVersion, g->fontName, g->fullName, g->familyName, g->weight, g->version, g->notice,
                    g->encodingScheme})
        std::free(s);
    std::free(g);
}

// strncmp(word, key, kAfmTokenSize), for a key far shorter than that: the
// first differing byte decides, unsigned.
inline int compareKey(const char *word, const char *key) {
    while (*word && *word == *key) ++word, ++key;
    return static_cast<unsigned char>(*word) - static_cast<unsigned char>(*key);
}

// Reads past a section that keeps nothing: only its end keys count, and
// all of them begin with "E".
int skipSection(FILE *fp, int end1, int end2) {
    for (;;) {
        const char *t = token(fp);
        if (!t) return kAfmEarlyEof;
        if (t[0] != 'E') continue;
        int key = recognize(t);
        if (key == ENDFONTMETRICS) return kAfmEndOfFont;
        if (key == end1 || key == end2) return kAfmOk;
    }
}

}  // namespace

char *token(FILE *stream) {
    if (!ident || !stream) return nullptr;
    int ch;
    do ch = readChar(stream);
    while (ch != EOF && isSkipped(ch));
    if (ch == EOF) return nullptr;
    if (ch == ':') {
        ident[0] = ':';
        ident[1] = '\0';
        return ident;
    }
    // Characters past the buffer are read and dropped, so that an overlong
    // token stays one token.
    int n = 0;
    while (ch != EOF && !endsToken(ch)) {
        if (n < kAfmTokenSize - 1) ident[n++] = static_cast<char>(ch);
        ch = getc_unlocked(stream);
    }
    ident[n] = '\0';
    if (ch != EOF && ch != ':') unread(stream, ch);
    return ident;
}

char *linetoken(FILE *stream) {
    if (!ident || !stream) return nullptr;
    int ch;
    do ch = readChar(stream);
    while (ch == ' ' || ch == '\t');
    int n = 0;
    while (ch != EOF && ch != '\n' && ch != '\r') {
        if (n < kAfmTokenSize - 1) ident[n++] = static_cast<char>(ch);
        ch = getc_unlocked(stream);
    }
    ident[n] = '\0';
    if (ch != EOF) unread(stream, ch);
    return ident;
}

int recognize(const char *word) {
    if (!word) return NOPE;
    int low = 0, high = NOPE;
    while (low <= high) {
        int mid = (low + high) / 2;
        if (!keyStrings[mid]) break;
        int cmp = compareKey(word, keyStrings[mid]);
        if (cmp == 0) return mid;
        if (cmp < 0) high = mid - 1;
        else low = mid + 1;
    }
    return NOPE;
}

int parseGlobals(FILE *fp, GlobalFontInfo *gfi) {
    int error = kAfmOk;
    for (;;) {
        const char *t = token(fp);
        if (!t) return kAfmEarlyEof;
        int key = recognize(t);
        if (key == STARTCHARMETRICS) return error;
        if (key == ENDFONTMETRICS) return kAfmEndOfFont;
        if (!gfi) continue;
        char **text = nullptr;  // a string the key sets
        bool line = false;      // ... from the rest of the line
        switch (key) {
        case ASCENDER: gfi->ascender = intArg(fp); break;
        case CAPHEIGHT: gfi->capHeight = intArg(fp); break;
        case DESCENDER: gfi->descender = intArg(fp); break;
        case XHEIGHT: gfi->xHeight = intArg(fp); break;
        case UNDERLINEPOSITION: gfi->underlinePosition = intArg(fp); break;
        case UNDERLINETHICKNESS: gfi->underlineThickness = intArg(fp); break;
        case FONTBBOX:
            gfi->fontBBox.llx = intArg(fp);
            gfi->fontBBox.lly = intArg(fp);
            gfi->fontBBox.urx = intArg(fp);
            gfi->fontBBox.ury = intArg(fp);
            break;
        case CHARWIDTH: {
            int w = intArg(fp);
            if (direction == 0) gfi->charWidth = w;
            drop(fp, 1);
            break;
        }
        case STARTDIRECTION: direction = intArg(fp); break;
        case ENDDIRECTION: break;
        case CHARACTERS:
        case ISBASEFONT:
        case MAPPINGSCHEME:
        case METRICSSETS: drop(fp, 1); break;
        case COMMENT: linetoken(fp); break;
        case STARTFONTMETRICS: text = &gfi->afmVersion; break;
        case FONTNAME: text = &gfi->fontName; break;
        case WEIGHT: text = &gfi->weight; break;
        case VERSION: text = &gfi->version; break;
        case ENCODINGSCHEME: text = &gfi->encodingScheme; break;
        case FULLNAME: text = &gfi->fullName, line = true; break;
        case FAMILYNAME: text = &gfi->familyName, line = true; break;
        case NOTICE: text = &gfi->notice, line = true; break;
        case ISFIXEDPITCH: gfi->isFixedPitch = std::strcmp(arg(fp), "false") != 0; break;
        case ITALICANGLE: gfi->italicAngle = floatArg(fp, &error); break;
        default: error = kAfmParseError; break;
        }
        if (text) {
            const char *value = line ? linetoken(fp) : arg(fp);
            if (!setString(*text, value)) return kAfmNoMemory;
        }
    }
}

int parseCharWidths(FILE *fp, int *cwi) {
    if (!cwi) return skipSection(fp, ENDCHARMETRICS, ENDCHARMETRICS);
    int error = kAfmOk;
    int pos = -1;
    for (;;) {
        const char *t = token(fp);
        if (!t) return kAfmEarlyEof;
        int key = recognize(t);
        if (key == ENDCHARMETRICS) return error;
        if (key == ENDFONTMETRICS) return kAfmEndOfFont;
        switch (key) {
        case CODE: pos = intArg(fp); break;
        case CODEHEX: pos = hexArg(fp); break;
        case XWIDTH: {
            int w = intArg(fp);
            if (pos >= 0 && pos < 256) cwi[pos] = w;
            break;
        }
        case XYWIDTH:
            drop(fp, 2);
            error = kAfmParseError;
            break;
        // A ligature is read past with four tokens, as a box is.
        case CHARBBOX:
        case LIGATURE: drop(fp, 4); break;
        case VVECTOR: drop(fp, 2); break;
        case CHARNAME:
        case XWIDTH0: drop(fp, 1); break;
        default: error = kAfmParseError; break;
        }
    }
}

int parseCharMetrics(FILE *fp, FontInfo *fi) {
    if (!fi->cmi) return skipSection(fp, ENDCHARMETRICS, ENDCHARMETRICS);
    int error = kAfmOk;
    int count = 0;
    const int charWidth = fi->gfi ? fi->gfi->charWidth : 0;
    // The record in hand: the first until a second "C"; null once the
    // records are used up, so that what follows is dropped.
    CharMetricInfo *rec = fi->numOfChars > 0 ? &fi->cmi[0] : nullptr;
    for (;;) {
        const char *t = token(fp);
        if (!t) return kAfmEarlyEof;
        int key = recognize(t);
        switch (key) {
        case CODE:
        case CODEHEX: {
            int code = key == CODE ? intArg(fp) : hexArg(fp);
            if (count >= fi->numOfChars) {
                error = kAfmParseError;
                rec = nullptr;
            } else {
                rec = &fi->cmi[count];
                rec->code = code;
                if (charWidth != 0) rec->wx = charWidth;
            }
            countUp(&count);
            break;
        }
        case XWIDTH:
        case XWIDTH0: {
            int wx = intArg(fp);
            if (rec) rec->wx = wx;
            break;
        }
        case XYWIDTH: {
            int wx = intArg(fp);
            int wy = intArg(fp);
            if (rec) rec->wx = wx, rec->wy = wy;
            break;
        }
        case CHARBBOX: {
            BBox b;
            b.llx = intArg(fp);
            b.lly = intArg(fp);
            b.urx = intArg(fp);
            b.ury = intArg(fp);
            if (rec) rec->charBBox = b;
            break;
        }
        case CHARNAME: {
            const char *name = arg(fp);
            if (rec && !setString(rec->name, name)) return kAfmNoMemory;
            break;
        }
        case LIGATURE: {
            if (!rec) {
                drop(fp, 2);
                break;
            }
            auto *node = static_cast<Ligature *>(std::calloc(1, sizeof(Ligature)));
            if (!node) return kAfmNoMemory;
            Ligature **tail = &rec->ligs;
            while (*tail) tail = &(*tail)->next;
            *tail = node;
            if (!setString(node->succ, arg(fp)) || !setString(node->lig, arg(fp))) return kAfmNoMemory;
            break;
        }
        case VVECTOR: drop(fp, 2); break;
        case ENDCHARMETRICS: return sectionEnd(error, count, fi->numOfChars);
        case ENDFONTMETRICS: return kAfmEndOfFont;
        default: error = kAfmParseError; break;
        }
    }
}

int parseTrackKernData(FILE *fp, FontInfo *fi) {
    if (!fi->tkd) return skipSection(fp, ENDTRACK, ENDKERNDATA);
    int error = kAfmOk;
    int count = 0;
    for (;;) {
        const char *t = token(fp);
        if (!t) return kAfmEarlyEof;
        switch (recognize(t)) {
        case COMMENT: linetoken(fp); break;
        case TRACKKERN: {
            TrackKernData k;
            k.degree = intArg(fp);
            k.minPtSize = floatArg(fp, &error);
            k.minKernAmt = floatArg(fp, &error);
            k.maxPtSize = floatArg(fp, &error);
            k.maxKernAmt = floatArg(fp, &error);
            if (count < fi->numOfTracks) fi->tkd[count] = k;
            else error = kAfmParseError;
            countUp(&count);
            break;
        }
        case ENDTRACK:
        case ENDKERNDATA: return sectionEnd(error, count, fi->numOfTracks);
        case ENDFONTMETRICS: return kAfmEndOfFont;
        default: error = kAfmParseError; break;
        }
    }
}

int parsePairKernData(FILE *fp, FontInfo *fi) {
    if (!fi->pkd) return skipSection(fp, ENDKERNPAIRS, ENDKERNDATA);
    int error = kAfmOk;
    int count = 0;
    for (;;) {
        const char *t = token(fp);
        if (!t) return kAfmEarlyEof;
        int key = recognize(t);
        switch (key) {
        case COMMENT: linetoken(fp); break;
        case KERNPAIR:
        case KERNPAIRXAMT: {
            PairKernData *p = count < fi->numOfPairs ? &fi->pkd[count] : nullptr;
            if (!p) error = kAfmParseError;
            const char *name1 = arg(fp);
            if (p && !setString(p->name1, name1)) return kAfmNoMemory;
            const char *name2 = arg(fp);
            if (p && !setString(p->name2, name2)) return kAfmNoMemory;
            int x = intArg(fp);
            int y = key == KERNPAIR ? intArg(fp) : 0;
            if (p) p->xamt = x, p->yamt = y;
            countUp(&count);
            break;
        }
        case ENDKERNPAIRS:
        case ENDKERNDATA: return sectionEnd(error, count, fi->numOfPairs);
        case ENDFONTMETRICS: return kAfmEndOfFont;
        default: error = kAfmParseError; break;
        }
    }
}

int parseCompCharData(FILE *fp, FontInfo *fi) {
    if (!fi->ccd) return skipSection(fp, ENDCOMPOSITES, ENDCOMPOSITES);
    int error = kAfmOk;
    int count = 0;
    int pieces = 0;  // pieces read of the composite in hand
    CompCharData *cc = nullptr;
    for (;;) {
        const char *t = token(fp);
        if (!t) return kAfmEarlyEof;
        switch (recognize(t)) {
        case COMMENT: linetoken(fp); break;
        case COMPCHAR: {
            cc = count < fi->numOfComps ? &fi->ccd[count] : nullptr;
            if (!cc) error = kAfmParseError;
            const char *name = arg(fp);
            if (cc && !setString(cc->ccName, name)) return kAfmNoMemory;
            int n = 0;
            if (!countArg(fp, kMaxPieces, &n)) error = kAfmParseError;
            else if (cc && n > 0) {
                cc->pieces = allocRecords<Pcc>(n);
                if (!cc->pieces) return kAfmNoMemory;
                cc->numOfPieces = n;
            }
            pieces = 0;
            countUp(&count);
            break;
        }
        case COMPCHARPIECE: {
            Pcc *p = cc && pieces < cc->numOfPieces ? &cc->pieces[pieces] : nullptr;
            if (!p) error = kAfmParseError;
            const char *name = arg(fp);
            if (p && !setString(p->pccName, name)) return kAfmNoMemory;
            int dx = intArg(fp);
            int dy = intArg(fp);
            if (p) p->deltax = dx, p->deltay = dy;
            countUp(&pieces);
            break;
        }
        case ENDCOMPOSITES: return sectionEnd(error, count, fi->numOfComps);
        case ENDFONTMETRICS: return kAfmEndOfFont;
        default: error = kAfmParseError; break;
        }
    }
}

void initializeArray(FILE *fp, int *cwi) {
    if (!fp || !cwi) return;
    int width = 250;
    {
        ParseScope scope(fp);
        settle();
        long start = std::ftell(fp);
        if (scope.ok() && start >= 0) {
            int wx = 0;
            bool found = false;
            while (!found) {
                const char *t = token(fp);
                if (!t) break;
                switch (recognize(t)) {
                case CODE: drop(fp, 1), wx = 0; break;
                case CODEHEX: hexArg(fp), wx = 0; break;
                case XWIDTH: wx = intArg(fp); break;
                case CHARNAME:
                    if (std::strcmp(arg(fp), "space") == 0) width = wx, found = true;
                    break;
                case ENDCHARMETRICS:
                case ENDFONTMETRICS: found = true; break;
                default: break;
                }
            }
            settle();
            std::fseek(fp, start, SEEK_SET);
        }
    }
    for (int i = 0; i < 256; ++i) cwi[i] = width;
}

int parseFile(FILE *fp, FontInfo **out, int flags) {
    if (!out) return kAfmParseError;
    *out = nullptr;
    if (!fp) return kAfmParseError;
    ParseScope scope(fp);
    if (!scope.ok()) return kAfmNoMemory;
    ql::CLocale numbers;  // "12.5" whatever locale the application set
    direction = -1;
    streamEnd = -1;
    if (long start = std::ftell(fp); start >= 0 && std::fseek(fp, 0, SEEK_END) == 0) {
        long end = std::ftell(fp);
        if (std::fseek(fp, start, SEEK_SET) == 0) streamEnd = end;
    }

    auto *fi = static_cast<FontInfo *>(std::calloc(1, sizeof(FontInfo)));
    if (!fi) return kAfmNoMemory;
    *out = fi;
    if (flags & kAfmGlobals) {
        fi->gfi = static_cast<GlobalFontInfo *>(std::calloc(1, sizeof(GlobalFontInfo)));
        if (!fi->gfi) return kAfmNoMemory;
    }

    int r = parseGlobals(fp, fi->gfi);
    int result = r < 0 ? r : kAfmOk;
    // The last error wins, except that an early end of the file stays.
    auto note = [&result](int code) {
        if (code < 0 && result != kAfmEarlyEof) result = code;
    };
    if (r == kAfmNoMemory) return r;

    if (r != kAfmEndOfFont && r != kAfmEarlyEof) {
        int n = 0;
        bool valid = countArg(fp, kMaxChars, &n);
        fi->numOfChars = n;
        if (flags & kAfmMetrics) {
            if (!valid) note(kAfmParseError);
            else if (!(fi->cmi = allocRecords<CharMetricInfo>(n))) return kAfmNoMemory;
            r = parseCharMetrics(fp, fi);
        } else {
            if (flags & kAfmWidths) {
                fi->cwi = allocRecords<int>(256);
                if (!fi->cwi) return kAfmNoMemory;
            }
            r = parseCharWidths(fp, fi->cwi);
        }
        if (r == kAfmNoMemory) return r;
        note(r);
    }

    while (r != kAfmEndOfFont && r != kAfmEarlyEof) {
        const char *t = token(fp);
        if (!t) {
            r = kAfmEarlyEof;
            note(r);
            break;
        }
        switch (recognize(t)) {
        case ENDFONTMETRICS: r = kAfmEndOfFont; break;
        case STARTKERNDATA:
        case ENDKERNDATA: break;
        case STARTKERNPAIRS:
            freePairs(fi);
            if (!startSection(fp, flags & kAfmPairs, kMaxPairs, &fi->numOfPairs, &fi->pkd, note)) return kAfmNoMemory;
            r = parsePairKernData(fp, fi);
            break;
        case STARTTRACK:
            freeTracks(fi);
            if (!startSection(fp, flags & kAfmTracks, kMaxTracks, &fi->numOfTracks, &fi->tkd, note)) return kAfmNoMemory;
            r = parseTrackKernData(fp, fi);
            break;
        case STARTCOMPOSITES:
            freeComposites(fi);
            if (!startSection(fp, flags & kAfmComposites, kMaxComps, &fi->numOfComps, &fi->ccd, note)) return kAfmNoMemory;
            r = parseCompCharData(fp, fi);
            break;
        default: r = kAfmParseError; break;
        }
        if (r == kAfmNoMemory) return r;
        note(r);
    }
    return result;
}

int freeStorage(FontInfo *fi) {
    if (!fi) return 0;
    freeGlobals(fi->gfi);
    std::free(fi->cwi);
    freeMetrics(fi);
    freeTracks(fi);
    freePairs(fi);
    freeComposites(fi);
    std::free(fi);
    return 0;
}
