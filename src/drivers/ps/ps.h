// The PostScript driver's records and the functions its units share.
#pragma once

#include "config/ppd.h"
#include "core/driver.h"

#include <cstdint>
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
bool SetTilePaint(QlPrinter *, QlGC *);
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
void ResetFontDownloads(QlPrinter *);
void CleanPrinter(QlPrinter *);
void PS2CleanTileCache(QlPrinter *);

// The pattern cache of tiles (level 2): 1 when the tile was cached and its
// definition is taken back.
int PS2CheckDeleteCacheTile(QlPrinter *, XImage *tile);
int PS2CheckDeleteCacheTileGlobal(XImage *tile);

}  // namespace ps
