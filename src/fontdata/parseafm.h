// Adobe Font Metrics files: a token reader and plain C records for the
// PostScript driver.  The caller says which parts of the file to keep; the
// rest is read past.  Not re-entrant: the token buffer is process-wide.
#pragma once

#include <cstdio>

// What parseFile keeps, as a bit set.
constexpr int kAfmGlobals = 1;      // GlobalFontInfo
constexpr int kAfmWidths = 2;       // 256 widths by code, when metrics are not asked for
constexpr int kAfmMetrics = 4;      // CharMetricInfo records
constexpr int kAfmPairs = 8;        // PairKernData records
constexpr int kAfmTracks = 16;      // TrackKernData records
constexpr int kAfmComposites = 32;  // CompCharData records

// Results of parseFile and of the section parsers.
constexpr int kAfmOk = 0;
constexpr int kAfmParseError = -1;  // the parse went on as far as it could
constexpr int kAfmEarlyEof = -2;    // end of file before "EndFontMetrics"
constexpr int kAfmNoMemory = -3;
constexpr int kAfmEndOfFont = 1;    // between parsers only: "EndFontMetrics" seen

// The longest token or line kept, with its terminator; longer ones are cut.
constexpr int kAfmTokenSize = 4096;

struct BBox {
    int llx, lly, urx, ury;
};

struct GlobalFontInfo {
    char *afmVersion;
    char *fontName;
    char *fullName;
    char *familyName;
    char *weight;
    float italicAngle;
    bool isFixedPitch;
    BBox fontBBox;
    int underlinePosition;
    int underlineThickness;
    char *version;
    char *notice;
    char *encodingScheme;
    int capHeight;
    int xHeight;
    int ascender;
    int descender;
    int charWidth;  // "CharWidth": one width for every character, or 0
};

struct Ligature {
    char *succ;
    char *lig;
    Ligature *next;
};

struct CharMetricInfo {
    int code;      // -1 for a character outside the encoding
    int wx;
    int reserved;  // stays 0
    int wy;
    char *name;
    BBox charBBox;
    Ligature *ligs;
};

struct TrackKernData {
    int degree;
    float minPtSize;
    float minKernAmt;
    float maxPtSize;
    float maxKernAmt;
};

struct PairKernData {
    char *name1;
    char *name2;
    int xamt;
    int yamt;
};

struct Pcc {
    char *pccName;
    int deltax;
    int deltay;
};

struct CompCharData {
    char *ccName;
    int numOfPieces;
    Pcc *pieces;
};

// Everything one parse keeps; all of it malloc'ed, released by freeStorage.
struct FontInfo {
    GlobalFontInfo *gfi;
    int *cwi;  // 256 widths, with kAfmWidths alone
    int numOfChars;
    CharMetricInfo *cmi;
    int numOfTracks;
    TrackKernData *tkd;
    int numOfPairs;
    PairKernData *pkd;
    int numOfComps;
    CompCharData *ccd;
};

// Reads a whole AFM file from where the stream stands.  *fi receives the
// records, also when the result is not 0 (it is null only for a null
// stream and when out of memory); the caller releases them with
// freeStorage either way.
int parseFile(FILE *fp, FontInfo **fi, int flags);
// Releases a FontInfo and everything in it; null is allowed.  Gives 0.
int freeStorage(FontInfo *fi);

// The steps parseFile is made of.  token and linetoken read into the
// process-wide buffer and give null when no parse is running.
char *token(FILE *stream);      // next token, or null at end of file
char *linetoken(FILE *stream);  // the rest of the line
int recognize(const char *ident);  // key code, 50 for none
int parseGlobals(FILE *fp, GlobalFontInfo *gfi);
int parseCharWidths(FILE *fp, int *cwi);
int parseCharMetrics(FILE *fp, FontInfo *fi);
int parseTrackKernData(FILE *fp, FontInfo *fi);
int parsePairKernData(FILE *fp, FontInfo *fi);
int parseCompCharData(FILE *fp, FontInfo *fi);
// Fills 256 widths with the width of "space" (250 without one), leaving
// the stream where it was.
void initializeArray(FILE *fp, int *cwi);
