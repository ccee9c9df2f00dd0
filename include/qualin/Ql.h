/*
 * Qualin: Xlib-shaped drawing for screens and printers.
 *
 * Every call takes a Display *.  A real X display passes the call straight
 * to Xlib; a handle made by QlOpenPrinter and friends sends it through a
 * printer driver (PostScript, PCL5 with HP-GL/2, PCL4 raster).
 *
 * This header compiles as C99 and as C++; all functions have C linkage.
 */
#ifndef QUALIN_QL_H
#define QUALIN_QL_H

#include <stdio.h>
#include <time.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#if defined(__GNUC__)
#define QL_EXPORT __attribute__((visibility("default")))
#else
#define QL_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The word that tells a printer record from an Xlib Display. */
#define QL_PRINTER_MAGIC 9898
#define QL_FILE_MAGIC 9897

/* Driver ids. */
#define QL_DRIVER_POSTSCRIPT 0
#define QL_DRIVER_PCL5 1
#define QL_DRIVER_PCL4 2

/* Tags of QlVaOpenPrinter; the list ends with 0. */
enum {
    QlTagScale = 1,             /* double */
    QlTagOrientation = 2,       /* int: 1 portrait, 2 landscape */
    QlTagPageSize = 3,          /* char * */
    QlTagCopies = 4,            /* int */
    QlTagPaperTray = 5,         /* char * */
    QlTagResolution = 6,        /* int, dots per inch */
    QlTagSettings = 8,          /* QlPrinterSettings * */
    QlTagBitmapCompression = 9, /* int */
    QlTagDuplex = 10            /* char * */
};

struct _PrinterInfo;
struct QlCustomPage;
struct QlFontRec;

/*
 * The printer form of a graphics context.  Laid out like Xlib's private GC
 * record so that its values are a whole XGCValues.
 */
typedef struct QlGC {
    void *reserved0;
    unsigned long reserved1;
    int clipIsRects;
    int dashesSet;
    unsigned long dirty;
    XGCValues values;
    XFontStruct *fontStruct;
    XRectangle *clipRects;
    int clipRectCount;
    char *dashList;
    int dashCount;
} QlGC;

/* The record behind a printer handle, cast to Display *. */
typedef struct QlPrinter {
    void *reserved0;
    void *reserved1;
    unsigned magic; /* QL_PRINTER_MAGIC, where a Display keeps its fd */
    FILE *stream;
    char *tmpName;
    char *ppdDir;
    char *docName;
    FILE *ppdFile;
    int driverId;
    int level;
    time_t creationDate;
    long debugComments;
    int numCells;
    void *cells;
    void *colorConvMap;
    int colorConvValid;
    int excludeAppFonts;
    double scale;
    int orientation;
    int width, height;
    int copies;
    float scaleX, scaleY;
    int originX, originY;
    double divisorX, divisorY;
    char *command;
    struct QlFontRec *fonts;
    QlGC *lastGC;
    QlGC *defaultGC;
    void *pageData;
    void *ppdFonts;
    struct _PrinterInfo *info;
    int pageNumber;
    int depth;
    unsigned redMask, greenMask, blueMask;
    int bitmapCompression;
    struct QlCustomPage *customPages;
    void *psPage;
    void *encodingCache;
    int encodingCacheFont;
    int pageOpen;
    int boundsXmin, boundsXmax, boundsYmin, boundsYmax;
    int paintKind;
    int pageSizeChanged;
    void *suppliedFonts;
    int suppliedFontCount;
    unsigned char flags;
    void *tileCache;
    void *pclPage;
    int pclMode;
    int hpglWindow;
    int hpglLabelMode;
    int pclPassThrough;
    int pclColorMode;
    int hpglDevice;
    int rasterThreshold;
    int rasterOnly;
    int rasterDataPos, rasterEndPos;
    int rasterDPI;
    Display *slaveDisplay;
    Pixmap slavePixmap;
    GC slaveGC;
    int slaveDirty;
    char *pageTmpName;
    FILE *pageStream, *docStream;
    Pixmap fillTile;
    int fillTileKey, fillTileSet;
    /* Private to the library from here on. */
    int docHeadWritten; /* the header and prolog of the open document went out */
} QlPrinter;

/* Flat settings of one device on one port, or of output to a file. */
typedef struct QlPrinterSettings {
    int magic; /* QL_PRINTER_MAGIC printer, QL_FILE_MAGIC file */
    char Filename[256];
    char PPDName[64];
    int Did;
    char PaperTray[64];
    char PageSize[64];
    char Command[256];
    int portIndex;
    int Orientation;
    double Scale;
    int Copies;
    int DPI;
    int BitmapCompression;
    char DuplexOpt[64];
} QlPrinterSettings;

/* One row of the message catalog: the key (its first letter gives the
 * severity, "e" for errors) and the printf format of the text. */
typedef struct QlMessage {
    const char *key;
    const char *format;
} QlMessage;

/* What an error handler receives. */
typedef struct QlErrorRecord {
    int index;   /* row of QlMessageCatalog */
    int isError; /* 1 error, 0 warning */
} QlErrorRecord;

typedef int (*QlErrorHandlerProc)(QlErrorRecord *record);

#define QL_MESSAGE_COUNT 96
QL_EXPORT extern QlMessage QlMessageCatalog[QL_MESSAGE_COUNT];

/* Printers. */
QL_EXPORT Display *QlOpenPrinter(void);
QL_EXPORT Display *QlOpenPrtWithInfo(QlPrinterSettings *settings);
QL_EXPORT Display *QlVaOpenPrinter(const char *ppdName, const char *command, const char *driverName, ...);
QL_EXPORT int QlClosePrinter(Display *handle);
QL_EXPORT int QlCloseAbortPrinter(Display *handle);
QL_EXPORT int QlIsDisplay(Display *handle);
QL_EXPORT int QlIsPrinter(Display *handle);
QL_EXPORT int QlGetDriverID(Display *printer);
QL_EXPORT const char *QlConfigDir(void);
QL_EXPORT int QlSetDisplay(Display *printer, Display *display);
QL_EXPORT const char *QlGetVersion(void);

/* Documents. */
QL_EXPORT int QlStartDoc(Display *printer, const char *name);
QL_EXPORT int QlStartPage(Display *printer);
QL_EXPORT int QlEndPage(Display *printer);
QL_EXPORT int QlEndDoc(Display *printer);
QL_EXPORT int QlAbortDoc(Display *printer);
QL_EXPORT int QlPageEject(Display *printer);
QL_EXPORT char *QlGetTmpName(Display *handle);
QL_EXPORT int QlSetScale(Display *printer, double scale);
QL_EXPORT double QlGetScale(Display *printer);
QL_EXPORT int QlSetOrientation(Display *printer, int orientation);
QL_EXPORT int QlGetOrientation(Display *printer);
QL_EXPORT int QlSetCopies(Display *printer, int copies);
QL_EXPORT int QlGetCopies(Display *printer);
QL_EXPORT int QlSetBitmapCompression(Display *printer, int compression);
QL_EXPORT int QlPrinterEscape(Display *printer, int code, void *data);

/* Page geometry in dots (points in the built-in tables); the imageable
 * area is measured from the lower left of the sheet. */
typedef struct PSPageGeometry {
    int paperWidth, paperHeight;
    int imageLeft, imageBottom, imageRight, imageTop;
    int resolution;
} PSPageGeometry;

/* Printer settings: what a printer offers and what the job uses. */
QL_EXPORT char **QlListPageSizes(Display *printer, int *count);
QL_EXPORT char **QlListPaperTrays(Display *printer, int *count);
QL_EXPORT int QlListResolutions(Display *printer, int **resolutions);
QL_EXPORT int QlQueryPageSize(Display *printer, const char *name, PSPageGeometry *out);
QL_EXPORT int QlQueryResolution(Display *printer, int resolution);
QL_EXPORT int QlQueryPaperTray(Display *printer, const char *name);
QL_EXPORT char *QlGetPrinterProduct(Display *printer);
QL_EXPORT char *QlGetPrinterModel(Display *printer);
/* Stamps a depth-1 image on the page: where its bits are clear (set, with
   invert) the page stays as it is. */
QL_EXPORT int QlPutBitmapTrans(Display *printer, XImage *image, int invert, int sx, int sy, int dx, int dy,
                               unsigned int width, unsigned int height);
QL_EXPORT int QlGetResolution(Display *printer);
QL_EXPORT char *QlGetPaperTray(Display *printer);
QL_EXPORT char *QlGetPageSize(Display *printer);
QL_EXPORT int QlSetResolution(Display *printer, int resolution);
QL_EXPORT int QlSetPaperTray(Display *printer, const char *name);
QL_EXPORT int QlSetPageSize(Display *printer, const char *name);
QL_EXPORT char **QlListAvailableFonts(Display *printer, int *count);
QL_EXPORT char *QlGetDefaultFont(Display *printer);
QL_EXPORT char **QlDuplexOpts(Display *printer, int *count);
QL_EXPORT int QlQueryDuplexOpt(Display *printer, const char *name);
QL_EXPORT char *QlGetDuplexOpt(Display *printer);
QL_EXPORT int QlSetDuplexOpt(Display *printer, const char *name);
QL_EXPORT void QlSetCreationDate(Display *printer, time_t date);
QL_EXPORT int QlSetPSLevel(Display *printer, int level);
QL_EXPORT int QlGetPSLevel(Display *printer);

/* More settings of a printer. */
QL_EXPORT int QlSetColorDepth(Display *handle, int depth);
QL_EXPORT int QlSetPSColor(Display *printer, int flag);
QL_EXPORT int QlGetPSColor(Display *printer);
QL_EXPORT int QlGetPrinterColorMode(Display *printer);
QL_EXPORT int QlIsOutputSet(Display *handle);
QL_EXPORT int QlSetOutputFile(Display *handle, const char *name);
QL_EXPORT char *QlGetCommand(Display *handle);
QL_EXPORT int QlSetPSPrinterEscapePolicy(int flag);
QL_EXPORT void QlPSComment(Display *printer, const char *text);
QL_EXPORT int QlRasterOnlyMode(Display *handle);

/*
 * Graphics contexts.  On a display these are Xlib's; on a printer a GC is
 * a QlGC cast to GC.  A GC belongs to the handle it was made with.
 */
QL_EXPORT GC QlCreateGC(Display *handle, Drawable drawable, unsigned long mask, XGCValues *values);
QL_EXPORT int QlChangeGC(Display *handle, GC gc, unsigned long mask, XGCValues *values);
QL_EXPORT int QlCopyGC(Display *handle, GC source, unsigned long mask, GC destination);
QL_EXPORT int QlFreeGC(Display *handle, GC gc);
QL_EXPORT GC QlDefaultGC(Display *handle, int screen);
QL_EXPORT int QlCheckGC(Display *handle, GC gc);
QL_EXPORT int QlSetArcMode(Display *handle, GC gc, int mode);
QL_EXPORT int QlSetClipOrigin(Display *handle, GC gc, int x, int y);
QL_EXPORT int QlSetClipMask(Display *handle, GC gc, Pixmap pixmap);
QL_EXPORT int QlSetClipRectangles(Display *handle, GC gc, int x, int y, XRectangle *rectangles, int count,
                                  int ordering);
QL_EXPORT int QlSetRegion(Display *handle, GC gc, Region region);
QL_EXPORT int QlSetDashes(Display *handle, GC gc, int offset, const char *list, int count);
QL_EXPORT int QlSetLineAttributes(Display *handle, GC gc, unsigned int width, int style, int cap, int join);
QL_EXPORT int QlSetFillRule(Display *handle, GC gc, int rule);
QL_EXPORT int QlSetFillStyle(Display *handle, GC gc, int style);
QL_EXPORT int QlSetTile(Display *handle, GC gc, Pixmap tile);
QL_EXPORT int QlSetStipple(Display *handle, GC gc, Pixmap stipple);
QL_EXPORT int QlSetTSOrigin(Display *handle, GC gc, int x, int y);
QL_EXPORT int QlSetForeground(Display *handle, GC gc, unsigned long pixel);
QL_EXPORT int QlSetBackground(Display *handle, GC gc, unsigned long pixel);
QL_EXPORT int QlSetFunction(Display *handle, GC gc, int function);
QL_EXPORT int QlSetPlaneMask(Display *handle, GC gc, unsigned long mask);
QL_EXPORT int QlSetState(Display *handle, GC gc, unsigned long foreground, unsigned long background, int function,
                         unsigned long planeMask);
QL_EXPORT int QlSetSubwindowMode(Display *handle, GC gc, int mode);
QL_EXPORT int QlSetFont(Display *handle, GC gc, Font font);

/* Drawing.  On a printer the page is drawable 0 and a pixmap is an XImage *. */
QL_EXPORT int QlDrawArc(Display *handle, Drawable d, GC gc, int x, int y, unsigned int width, unsigned int height,
                        int angle1, int angle2);
QL_EXPORT int QlDrawArcs(Display *handle, Drawable d, GC gc, XArc *arcs, int count);
QL_EXPORT int QlDrawLine(Display *handle, Drawable d, GC gc, int x1, int y1, int x2, int y2);
QL_EXPORT int QlDrawLines(Display *handle, Drawable d, GC gc, XPoint *points, int count, int mode);
QL_EXPORT int QlDrawPoint(Display *handle, Drawable d, GC gc, int x, int y);
QL_EXPORT int QlDrawPoints(Display *handle, Drawable d, GC gc, XPoint *points, int count, int mode);
QL_EXPORT int QlDrawRectangle(Display *handle, Drawable d, GC gc, int x, int y, unsigned int width,
                              unsigned int height);
QL_EXPORT int QlDrawRectangles(Display *handle, Drawable d, GC gc, XRectangle *rectangles, int count);
QL_EXPORT int QlDrawSegments(Display *handle, Drawable d, GC gc, XSegment *segments, int count);
QL_EXPORT int QlFillArc(Display *handle, Drawable d, GC gc, int x, int y, unsigned int width, unsigned int height,
                        int angle1, int angle2);
QL_EXPORT int QlFillArcs(Display *handle, Drawable d, GC gc, XArc *arcs, int count);
QL_EXPORT int QlFillPolygon(Display *handle, Drawable d, GC gc, XPoint *points, int count, int shape, int mode);
QL_EXPORT int QlFillRectangle(Display *handle, Drawable d, GC gc, int x, int y, unsigned int width,
                              unsigned int height);
QL_EXPORT int QlFillRectangles(Display *handle, Drawable d, GC gc, XRectangle *rectangles, int count);
QL_EXPORT int QlClearArea(Display *handle, Window w, int x, int y, unsigned int width, unsigned int height,
                          Bool exposures);
QL_EXPORT int QlClearWindow(Display *handle, Window w);
QL_EXPORT int QlCopyArea(Display *handle, Drawable source, Drawable destination, GC gc, int sx, int sy,
                         unsigned int width, unsigned int height, int dx, int dy);
QL_EXPORT int QlCopyPlane(Display *handle, Drawable source, Drawable destination, GC gc, int sx, int sy,
                          unsigned int width, unsigned int height, int dx, int dy, unsigned long plane);

/* Polygons are scan-converted into rectangles when this is set. */
QL_EXPORT extern int _QlScanConvertPolygons;

/* Screen-shaped values; on a printer they describe the page. */
QL_EXPORT unsigned long QlBlackPixel(Display *handle, int screen);
QL_EXPORT unsigned long QlWhitePixel(Display *handle, int screen);
QL_EXPORT int QlDefaultDepth(Display *handle, int screen);
QL_EXPORT int QlDefaultScreen(Display *handle);
QL_EXPORT Colormap QlDefaultColormap(Display *handle, int screen);
QL_EXPORT int QlDisplayCells(Display *handle, int screen);
QL_EXPORT Window QlRootWindow(Display *handle, int screen);
QL_EXPORT Window QlDefaultRootWindow(Display *handle);
QL_EXPORT int QlDisplayWidth(Display *handle, int screen);
QL_EXPORT int QlDisplayHeight(Display *handle, int screen);
QL_EXPORT int QlDisplayWidthMM(Display *handle, int screen);
QL_EXPORT int QlDisplayHeightMM(Display *handle, int screen);
QL_EXPORT int QlFlush(Display *handle);
QL_EXPORT Status QlGetGeometry(Display *handle, Drawable d, Window *root, int *x, int *y, unsigned int *width,
                               unsigned int *height, unsigned int *border, unsigned int *depth);
QL_EXPORT int QlMatch(Display *display, int screen, Display *printer);

/* Colours.  A printer keeps a table of 256 cells; at depth 24 a pixel is
 * the colour itself, red in the lowest byte unless QlSetDisplay gave the
 * masks of a TrueColor screen. */
QL_EXPORT Status QlAllocColor(Display *handle, Colormap colormap, XColor *colour);
QL_EXPORT Status QlAllocNamedColor(Display *handle, Colormap colormap, const char *name, XColor *screen,
                                   XColor *exact);
QL_EXPORT Status QlLookupColor(Display *handle, Colormap colormap, const char *name, XColor *exact,
                               XColor *screen);
QL_EXPORT Status QlParseColor(Display *handle, Colormap colormap, const char *text, XColor *colour);
QL_EXPORT int QlQueryColor(Display *handle, Colormap colormap, XColor *colour);
QL_EXPORT int QlQueryColors(Display *handle, Colormap colormap, XColor *colours, int count);
QL_EXPORT int QlStoreColor(Display *handle, Colormap colormap, XColor *colour);
QL_EXPORT int QlStoreColors(Display *handle, Colormap colormap, XColor *colours, int count);
QL_EXPORT int QlStoreNamedColor(Display *handle, Colormap colormap, const char *name, unsigned long pixel,
                                int flags);
QL_EXPORT int QlFreeColors(Display *handle, Colormap colormap, unsigned long *pixels, int count,
                           unsigned long planes);
QL_EXPORT void QlSetRGBShiftValues(unsigned long redMask, unsigned long greenMask, unsigned long blueMask,
                                   int *redShift, int *greenShift, int *blueShift);

/* Fonts: Xlib's on a display, the printer's own fonts on a printer. */
typedef int (*QlFontLoaderProc)(Display *printer, XPointer appData, const char *xlfd, int a, int b,
                                XFontStruct **fontStruct, int mode);
QL_EXPORT Font QlLoadFont(Display *handle, const char *name);
QL_EXPORT int QlUnloadFont(Display *handle, Font font);
QL_EXPORT XFontStruct *QlQueryFont(Display *handle, XID font);
QL_EXPORT XFontStruct *QlLoadQueryFont(Display *handle, const char *name);
QL_EXPORT int QlFreeFont(Display *handle, XFontStruct *font);
QL_EXPORT char **QlListFonts(Display *handle, const char *pattern, int maximum, int *count);
QL_EXPORT int QlFreeFontNames(char **list);
QL_EXPORT int QlRegisterFont(Display *handle, XPointer appData, const char *xlfd, QlFontLoaderProc loader);
QL_EXPORT int QlChangeRegisteredFont(Display *handle, XFontStruct *font, XPointer appData,
                                     QlFontLoaderProc loader);
QL_EXPORT int QlUnregisterFont(Display *handle, XFontStruct *font);
QL_EXPORT int QlUnregisterAllFonts(Display *handle);
QL_EXPORT int QlIsAppSoftFont(Display *handle, XFontStruct *font);
QL_EXPORT int QlExcludeAppSoftFontsFromList(Display *printer, int flag);
QL_EXPORT char *QlGetXLFDName(Display *handle, XFontStruct *font);
QL_EXPORT char *QlChangeFontSize(const char *xlfd, int pixelSize);

/* Strings: drawing, and metrics that need only the font. */
QL_EXPORT int QlDrawString(Display *handle, Drawable d, GC gc, int x, int y, const char *string, int length);
QL_EXPORT int QlDrawString16(Display *handle, Drawable d, GC gc, int x, int y, const XChar2b *string,
                             int length);
QL_EXPORT int QlDrawImageString(Display *handle, Drawable d, GC gc, int x, int y, const char *string,
                                int length);
QL_EXPORT int QlDrawImageString16(Display *handle, Drawable d, GC gc, int x, int y, const XChar2b *string,
                                  int length);
QL_EXPORT int QlDrawText(Display *handle, Drawable d, GC gc, int x, int y, XTextItem *items, int count);
QL_EXPORT int QlDrawText16(Display *handle, Drawable d, GC gc, int x, int y, XTextItem16 *items, int count);
QL_EXPORT int QlDrawRotString(Display *handle, Drawable d, GC gc, int x, int y, const char *string, int length,
                              int angle);
QL_EXPORT int QlDrawRotImageString(Display *handle, Drawable d, GC gc, int x, int y, const char *string,
                                   int length, int angle);
QL_EXPORT extern int rotTextCacheSize; /* finished rotated bitmaps kept per process; 10 */
QL_EXPORT int QlTextWidth(XFontStruct *font, const char *string, int length);
QL_EXPORT int QlTextWidth16(XFontStruct *font, const XChar2b *string, int length);
QL_EXPORT int QlTextExtents(XFontStruct *font, const char *string, int length, int *direction, int *ascent,
                            int *descent, XCharStruct *overall);
QL_EXPORT int QlTextExtents16(XFontStruct *font, const XChar2b *string, int length, int *direction, int *ascent,
                              int *descent, XCharStruct *overall);
QL_EXPORT int QlCharWidthOfString(XFontStruct *font, const char *string, int length, int *widths);
QL_EXPORT double QlKernPairX(XFontStruct *font, int first, int second);
QL_EXPORT double QlKernPairY(XFontStruct *font, int first, int second);
QL_EXPORT double *QlKernPairXY(XFontStruct *font, int first, int second);

/* Font sets and multibyte text.  On a display a font set wraps Xlib's;
 * on a printer (or on a display after _QlForceJapaneseSJISMode) the library
 * keeps its own: for a Japanese locale a JIS X 0208, a JIS X 0201 and an
 * ISO 8859-1 font, drawing Shift-JIS or EUC-JP text by the locale, and a
 * single font for any other.  Results are Xlib's; a null set draws nothing
 * and gives 2.  QlFreeFontSet on a set of a display frees Xlib's set but
 * leaves the record, which the caller then releases with free(). */
typedef struct QlFontSet QlFontSet;

/* XmbTextItem with the library's font set. */
typedef struct {
    char *chars;
    int nchars;
    int delta;
    QlFontSet *font_set;
} QlmbTextItem;

QL_EXPORT QlFontSet *QlCreateFontSet(Display *handle, const char *base_font_name_list, char ***missing_charsets,
                                     int *missing_count, char **def_string);
QL_EXPORT void QlFreeFontSet(Display *handle, QlFontSet *set);
/* From now on displays get the library's own sets too, in the locale
 * "ja_JP.SJIS".  Call it before the first font set; nothing turns it off. */
QL_EXPORT void _QlForceJapaneseSJISMode(void);
QL_EXPORT XFontSet QlExtGetXFontSet(QlFontSet *set);
QL_EXPORT int QlFontsOfFontSet(QlFontSet *set, XFontStruct ***fonts, char ***names);
QL_EXPORT char *QlBaseFontNameListOfFontSet(QlFontSet *set);
QL_EXPORT char *QlLocaleOfFontSet(QlFontSet *set);
QL_EXPORT Bool QlContextDependentDrawing(QlFontSet *set);
QL_EXPORT XFontSetExtents *QlExtentsOfFontSet(QlFontSet *set);
QL_EXPORT int QlmbDrawString(Display *handle, Drawable d, QlFontSet *set, GC gc, int x, int y, const char *text,
                             int length);
QL_EXPORT int QlmbDrawImageString(Display *handle, Drawable d, QlFontSet *set, GC gc, int x, int y,
                                  const char *text, int length);
QL_EXPORT int QlmbDrawText(Display *handle, Drawable d, GC gc, int x, int y, QlmbTextItem *items, int count);
QL_EXPORT int QlmbTextEscapement(QlFontSet *set, const char *text, int length);
QL_EXPORT int QlmbTextExtents(QlFontSet *set, const char *text, int length, XRectangle *ink, XRectangle *logical);
QL_EXPORT Status QlmbTextPerCharExtents(QlFontSet *set, const char *text, int length, XRectangle *ink_array,
                                        XRectangle *logical_array, int array_size, int *count,
                                        XRectangle *overall_ink, XRectangle *overall_logical);
/* Angles in 64ths of a degree, counter-clockwise. */
QL_EXPORT int QlmbDrawRotString(Display *handle, Drawable d, QlFontSet *set, GC gc, int x, int y,
                                const char *text, int length, int angle);
QL_EXPORT int QlmbDrawRotImageString(Display *handle, Drawable d, QlFontSet *set, GC gc, int x, int y,
                                     const char *text, int length, int angle);
QL_EXPORT void QlFreeStringList(char **list);
QL_EXPORT Status QlStringListToTextProperty(char **list, int count, XTextProperty *property);
QL_EXPORT Status QlTextPropertyToStringList(XTextProperty *property, char ***list, int *count);

/* Images and pixmaps.  On a printer a pixmap is an XImage in the
   application's memory, and the Pixmap value is its address; drawable 0 is
   the page. */
QL_EXPORT XImage *QlCreateImage(Display *handle, Visual *visual, unsigned int depth, int format, int offset,
                                char *data, unsigned int width, unsigned int height, int pad,
                                int bytes_per_line);
QL_EXPORT int QlDestroyImage(XImage *image);
QL_EXPORT int QlPutImage(Display *handle, Drawable d, GC gc, XImage *image, int sx, int sy, int dx, int dy,
                         unsigned int width, unsigned int height);
QL_EXPORT int QlStretchPutImage(Display *handle, Drawable d, GC gc, XImage *image, int sx, int sy,
                                unsigned int source_width, unsigned int source_height, int dx, int dy,
                                unsigned int width, unsigned int height);
QL_EXPORT XImage *QlGetImage(Display *handle, Drawable d, int x, int y, unsigned int width, unsigned int height,
                             unsigned long plane_mask, int format);
QL_EXPORT XImage *QlGetSubImage(Display *handle, Drawable d, int x, int y, unsigned int width,
                                unsigned int height, unsigned long plane_mask, int format, XImage *dest,
                                int dx, int dy);
QL_EXPORT XImage *QlSubImage(XImage *image, int x, int y, unsigned int width, unsigned int height);
QL_EXPORT unsigned long QlGetPixel(XImage *image, int x, int y);
QL_EXPORT int QlPutPixel(XImage *image, int x, int y, unsigned long pixel);
QL_EXPORT int QlAddPixel(XImage *image, long value);
QL_EXPORT Pixmap QlCreatePixmap(Display *handle, Drawable d, unsigned int width, unsigned int height,
                                unsigned int depth);
QL_EXPORT int QlFreePixmap(Display *handle, Pixmap pixmap);
QL_EXPORT Status QlQueryBestSize(Display *handle, int class_, Drawable d, unsigned int width,
                                 unsigned int height, unsigned int *width_return, unsigned int *height_return);
QL_EXPORT int QlExtIsShmImage(Display *handle, XImage *image);
QL_EXPORT int QlExtSetShmUsage(Display *handle, int use);

/* Encapsulated PostScript placed on a page of a PostScript document. */
typedef struct {
    char *title;        /* text behind "%%Title:", with its leading blank */
    char *creator;      /* the same for "%%Creator:" */
    char *creationDate; /* the same for "%%CreationDate:" */
    double *boundingBox; /* llx, lly, urx, ury in dots */
} QlEPSInfo;

typedef struct {
    char *data; /* the preview's bytes */
    int width, height, depth, lines;
} QlEPSPreview;

/* parameters: x, y in dots, x scale, y scale, rotation in degrees. */
QL_EXPORT QlEPSInfo *QlEPS_Put(Display *printer, FILE *file, double *parameters);
QL_EXPORT double *QlEPS_GetBoundingBox(Display *printer, FILE *file);
QL_EXPORT QlEPSPreview *QlEPS_GetPreview(FILE *file);

/* Bitmap and pixmap files.  Results of the file calls are Xlib's: 0
 * success, 1 file not opened, 2 invalid file, 3 no memory.  Pixmap data
 * is given as ncolors pairs of texts (code, then "#RGB" form or colour
 * name) in `colors`, and `height` rows of chars_per_pixel * width code
 * characters in `rows`.  QlCreatePixmapFromData gives 0 on a reported
 * failure and 3 on no memory. */
QL_EXPORT int QlReadBitmapFile(Display *handle, Drawable d, const char *filename, unsigned int *width_return,
                               unsigned int *height_return, Pixmap *bitmap_return, int *x_hot_return,
                               int *y_hot_return);
QL_EXPORT int QlWriteBitmapFile(Display *handle, const char *filename, Pixmap bitmap, unsigned int width,
                                unsigned int height, int x_hot, int y_hot);
QL_EXPORT Pixmap QlCreatePixmapFromBitmapData(Display *handle, Drawable d, char *data, unsigned int width,
                                              unsigned int height, unsigned long foreground,
                                              unsigned long background, unsigned int depth);
QL_EXPORT Pixmap QlCreateBitmapFromData(Display *handle, Drawable d, const char *data, unsigned int width,
                                        unsigned int height);
QL_EXPORT Pixmap QlCreatePixmapFromData(Display *handle, Drawable d, Colormap colormap, unsigned int width,
                                        unsigned int height, unsigned int depth, int ncolors,
                                        int chars_per_pixel, const char *const *colors, const char *const *rows);

/* Window printing.  The part of a viewable window of a real display that
 * lies on its screen (a window manager's frame stands for its client) is
 * read back and put on the current page of `printer` at x, y, one screen
 * pixel to a dot.  1 on success; 0 after a message: 45 when the window's
 * attributes can't be read, 46 when it isn't viewable or goes away during
 * the read.  QlPrintWidget prints an Xt widget's window (a Widget). */
struct _WidgetRec;
QL_EXPORT int QlPrintWindow(Display *printer, Display *display, int screen, Window window, int x, int y);
QL_EXPORT int QlPrintWidget(Display *printer, struct _WidgetRec *widget, int x, int y);

/* Errors and messages. */
QL_EXPORT int QlErrorHandler(QlErrorRecord *record);
QL_EXPORT void QlSetErrorHandler(QlErrorHandlerProc handler);
QL_EXPORT void QlGetErrorText(char *buffer, int length);
QL_EXPORT void QlMessageBox(const char *text, const char *title);
QL_EXPORT void QlSetDisplayForMesgBox(Display *display);

#ifdef __cplusplus
}
#endif

#endif /* QUALIN_QL_H */
