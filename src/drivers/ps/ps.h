// The PostScript driver's records and the functions its units share.
#pragma once

#include "config/ppd.h"
#include "core/driver.h"

#include <cstdint>
#include <cstdio>
#include <string_view>

struct regexp;

namespace ps {

// The limits of custom page sizes a PPD allows.
struct PSCustomRange {
    int16_t valid;
    char *customCode;
    unsigned long maxMediaWidth;
    int width[2], height[2], widthOffset[2], heightOffset[2], orientation[2];  // minimum, maximum
    int order[5];  // width, height, widthOffset, heightOffset, orientation
};

// What the page device made of the PPD, behind QlPrinter::pageData.
struct PSPageData {
    int selectedResolution;  // -1 with a PPD until set; 0 without a PPD
    char *selectedPageSize;
    char *selectedTray;
    long orientationChanged;
    QlPPDOptions *resolutions;
    QlPPDOptions *imageableAreas;
    QlPPDOptions *pageRegions;
    QlPPDOptions *pageSizes;
    QlPPDOptions *paperDimensions;
    QlPPDOptions *trays;
    QlPPDOptions *manualFeed;
    char *product;
    char *modelName;
    int16_t pjl;
    PSCustomRange *customRange;
    char *selectedDuplex;
    QlPPDOptions *duplexOptions;
};

// The fonts the PPD names, behind QlPrinter::ppdFonts.
struct PSFontList {
    int count;
    char *defaultFont;
    char **names;
    int *useCount;
};

inline PSPageData *pageData(QlPrinter *p) { return static_cast<PSPageData *>(p->pageData); }
inline PSPageGeometry *geometry(QlPrinter *p) { return static_cast<PSPageGeometry *>(p->psPage); }

// Built-in page tables, used without a PPD.
inline constexpr int kBuiltinPages = 8;
extern const char *const PSPageSize[kBuiltinPages];
extern const PSPageGeometry PSPageInfo[kBuiltinPages];

// Built-in prolog texts.
extern const char QlShortID[];
extern const char QlBitmapHeader1[];
extern const char QlBitmapHeader2[];

// Document frame (ps.cpp).
int StartDoc(QlPrinter *);
int EndDoc(QlPrinter *);
int StartPage(QlPrinter *);
int EndPage(QlPrinter *);
int AbortDoc(QlPrinter *);
int PageEject(QlPrinter *);
int PDSet(QlPrinter *);
int _StartPage(QlPrinter *);
int PSCheckPage(QlPrinter *);
void DumpScale(QlPrinter *);
int PSResetPage(QlPrinter *);
int ReadPageSetup(QlPrinter *);
void CheckSetManualFeed(QlPrinter *);

// Page device (pspd.cpp).
int PDPageRead(QlPrinter *);
char *GetPrinterModel(QlPrinter *);
void FreePageData(QlPrinter *);
// Reads the selected page size's sheet and area at the present resolution
// into psPage; 0 when the PPD's tables don't hold it.
int ReadSelectedPage(QlPrinter *);
void PageGeometry(QlPrinter *);

// Graphics state (ps_support.cpp).
int PSFlushGC(QlPrinter *, QlGC *, unsigned long mask);
void CheckOldGC(QlPrinter *, QlGC *);
void CheckTile(QlPrinter *, QlGC *);
int DumpDashes(QlPrinter *, QlGC *);
// The dash pattern of gc with its phase at offsetDots.
void WriteDashes(QlPrinter *, QlGC *, double offsetDots, bool threeDecimals);
// Strokes the current path (double dashes in two colours), then `end`.
void WriteStroke(QlPrinter *, QlGC *, std::string_view end);
// Tile and font state: true when written.
bool WriteTile(QlPrinter *, QlGC *);
bool WriteFont(QlPrinter *, QlGC *);
// Keeps marks inside the printable area (pspd.cpp).
void PageSizeClip(QlPrinter *);

// Widens the page's box by a mark's corners, in emitted units.
void RenewBoundingBox(QlPrinter *, double x1, double y1, double x2, double y2);

// Fonts (ps_support.cpp).
regexp *mrFixFontName(const char *pattern);
int mrQlIsSpecial(int c);
QlFontRec *MakePSFontEntry(QlPrinter *, const char *xlfd, const char *file, int kind);
int LoadUSLFonts(QlPrinter *);
int FixUSLFont(QlPrinter *, char *name, char *fixed, size_t fixedSize, int *pixel, int *point);
char **ListFonts(QlPrinter *, const char *pattern, int maximum, int *count);
Font _LoadFont(QlPrinter *, const char *name);
Font LoadFont(QlPrinter *, const char *name);
int UnloadFont(QlPrinter *, XID font);
XFontStruct *QueryFont(QlPrinter *, XID font);
int FreeFont(QlPrinter *, XFontStruct *);
int RegisterFont(QlPrinter *, XPointer data, const char *name, QlFontLoader callback);
int DestroyRegisteredFont(QlPrinter *, QlFontRec *entry, int mainList);
void CleanFontStruct(QlPrinter *, QlFontRec *entry, int scaled);
void QlRecodeISO(QlPrinter *, QlFontRec *font);
void ResetEncodingCache(QlPrinter *);
// What a page's restore takes away: fonts downloaded into the page go back
// to needing a download, and the page's patterns are forgotten.
void ForgetPageDefinitions(QlPrinter *);
void CleanPrinter(QlPrinter *);

// Images (ps_support.cpp).  The image operators of a document: hexadecimal
// rows, or compressed (level 2: PackBits runs in ASCII85; level 1: rows
// as changes against the row before, read back by the prolog's imdecode).
// One image at a time is in progress in the whole process.
int CalculateEightFactor(int width);
void StartImage(QlPrinter *, XImage *, int width, int height);
// The head of a bitmap painted in a GC's colours: its background over the
// whole area, then the set bits in its foreground through imagemask.  The
// data follows from DumpBitmap with isPut set; EndImage closes it.
void StartBitmapMask(QlPrinter *, QlGC *, int width, int height);
// The data source of an imagemask in operand form, for rows of `rowBytes`.
void WriteMaskSource(QlPrinter *, int rowBytes);
void EndImage(QlPrinter *);
int DumpBitmap(QlPrinter *, QlGC *, FILE *, XImage *, int isPut, int x, int y, int width, int height, int invert,
               int compression);
int DumpArea(QlPrinter *, FILE *, XImage *, int x, int y, int width, int height, int compression, int indexed);
void _Ql_ps_init_compress(QlPrinter *, int size);
void start_compressed_row();
void add_data_to_row(QlPrinter *, FILE *, int size, int byte);
void end_compressed_row(QlPrinter *, FILE *);
void flush_compressed_data(QlPrinter *, FILE *);
// mode 0 starts a text, 1 adds a byte, 2 ends the text.
void ASCII85_Encode(FILE *, int byte, int mode);
void ASCII85_Output(FILE *, const unsigned char (&group)[4], int n);

// Image slots (ps.cpp, pspd.cpp).
int CopyArea(QlPrinter *, QlGC *, Drawable source, int sx, int sy, unsigned width, unsigned height, int dx, int dy);
int PutImage(QlPrinter *, QlGC *, XImage *, int sx, int sy, int dx, int dy, unsigned width, unsigned height);
int StretchPutImage(QlPrinter *, QlGC *, XImage *, int sx, int sy, unsigned sw, unsigned sh, int dx, int dy,
                    unsigned dw, unsigned dh);
int PutBitmapTrans(QlPrinter *, XImage *, int invert, int sx, int sy, int dx, int dy, unsigned width,
                   unsigned height);

// The pattern cache (level 2).  A tile, or a stipple, becomes a pattern
// defined once in a page and selected by name ("tile-<n>", n a number of
// the printer's that stays with the image and what it paints); the cache
// keeps the sixteen-odd newest and takes the oldest back when it grows.
// A pattern is keyed by its image, how it paints (the tile's own pixels,
// the set bits of a stipple in the current colour, or a stipple in the
// GC's two colours) and its origin.
struct PS2PatternKey {
    enum Kind : int { Tile, Stipple, OpaqueStipple };
    XImage *image = nullptr;
    int kind = Tile;
    unsigned long foreground = 0, background = 0;
    int x = 0, y = 0;
    bool operator==(const PS2PatternKey &) const = default;
};
struct PS2TileNode;
void PS2MakePattern(QlPrinter *, QlGC *, XImage *tile);
int PS2SetPattern(QlPrinter *, QlGC *);
PS2TileNode *PS2MatchTileToCache(QlPrinter *, const PS2PatternKey &);
void PS2AddTile(QlPrinter *, const PS2PatternKey &);
void PS2CleanLRUTileCache(QlPrinter *);
void PS2DumpTile(QlPrinter *, QlGC *, XImage *tile);
void PS2CleanTileCache(QlPrinter *);
// 1 when the tile was cached and its definition is taken back.
int PS2CheckDeleteCacheTile(QlPrinter *, XImage *tile);
int PS2CheckDeleteCacheTileGlobal(XImage *tile);
// The page's save has gone: nothing it defined is in the document now.
void PS2PageDefinitionsLost(QlPrinter *);

// Frees what QlEPS_Put gives back: the record and its texts.
void FreeEPSInfo(QlEPSInfo *);

}  // namespace ps
