// The two driver tables every printer call goes through.  Each driver fills
// every slot, in this order; a slot a driver does not offer reports
// wNotSupport and answers with its failure value (see NotSupported below).
#pragma once

#include "core/qlint.h"

#include <type_traits>

struct QlFontRec;
struct PSPageGeometry;

using QlFontLoader = QlFontLoaderProc;

// Drawing driver: 25 slots.
struct QlDrawDriver {
    int (*OpenPrinter)(QlPrinter *, int full);  // -1 is failure
    int (*ClosePrinter)(QlPrinter *);
    int (*ClearArea)(QlPrinter *, int x, int y, unsigned width, unsigned height);
    int (*CopyArea)(QlPrinter *, QlGC *, Drawable src, int sx, int sy, unsigned width, unsigned height, int dx,
                    int dy);
    int (*DrawArc)(QlPrinter *, Drawable, QlGC *, int x, int y, unsigned width, unsigned height, int angle1,
                   int angle2);
    int (*DrawLine)(QlPrinter *, Drawable, QlGC *, int x1, int y1, int x2, int y2);
    int (*DrawLines)(QlPrinter *, Drawable, QlGC *, XPoint *points, int count, int mode);
    int (*DrawPoint)(QlPrinter *, Drawable, QlGC *, int x, int y);
    int (*DrawRectangle)(QlPrinter *, Drawable, QlGC *, int x, int y, unsigned width, unsigned height);
    int (*DrawString)(QlPrinter *, Drawable, QlGC *, int x, int y, const char *string, int length);
    int (*DrawString16)(QlPrinter *, Drawable, QlGC *, int x, int y, const XChar2b *string, int length);
    int (*FillArc)(QlPrinter *, Drawable, QlGC *, int x, int y, unsigned width, unsigned height, int angle1,
                   int angle2);
    int (*FillPolygon)(QlPrinter *, Drawable, QlGC *, XPoint *points, int count, int shape, int mode);
    int (*FillRectangle)(QlPrinter *, Drawable, QlGC *, int x, int y, unsigned width, unsigned height);
    int (*FreeFont)(QlPrinter *, XFontStruct *);
    char **(*ListFonts)(QlPrinter *, const char *pattern, int maximum, int *count);
    Font (*LoadFont)(QlPrinter *, const char *name);
    int (*PutImage)(QlPrinter *, QlGC *, XImage *, int sx, int sy, int dx, int dy, unsigned width,
                    unsigned height);
    XFontStruct *(*QueryFont)(QlPrinter *, XID font);
    int (*UnloadFont)(QlPrinter *, Font);
    int (*DrawRotString)(QlPrinter *, Drawable, QlGC *, int x, int y, const char *string, int length, int angle);
    int (*DrawRotImageString)(QlPrinter *, Drawable, QlGC *, int x, int y, const char *string, int length,
                              int angle);
    int (*StretchPutImage)(QlPrinter *, QlGC *, XImage *, int sx, int sy, unsigned sw, unsigned sh, int dx,
                           int dy, unsigned dw, unsigned dh);
    int (*RegisterFont)(QlPrinter *, XPointer appData, const char *xlfd, QlFontLoader loader);
    int (*DestroyRegisteredFont)(QlPrinter *, QlFontRec *, int mainList);
};

// Page device: 29 slots.
struct QlPageDriver {
    int (*PageRead)(QlPrinter *);  // PDPageRead, PCLPageRead
    int (*Set)(QlPrinter *);       // PDSet, PCLSet
    char **(*ListPageSize)(QlPrinter *, int *count);
    char **(*ListPaperTrays)(QlPrinter *, int *count);
    int (*ListResolutions)(QlPrinter *, int **resolutions);
    int (*QueryPageSize)(QlPrinter *, const char *name, PSPageGeometry *out);
    int (*QueryResolution)(QlPrinter *, int resolution);
    int (*QueryPaperTray)(QlPrinter *, const char *name);
    char *(*GetPrinterProduct)(QlPrinter *);
    char *(*GetPrinterModel)(QlPrinter *);
    int (*GetResolution)(QlPrinter *);
    char *(*GetPaperTray)(QlPrinter *);
    char *(*GetPageSize)(QlPrinter *);
    int (*SetResolution)(QlPrinter *, int resolution);
    int (*SetPaperTray)(QlPrinter *, const char *name);
    int (*SetPageSize)(QlPrinter *, const char *name);
    char **(*ListAvailableFonts)(QlPrinter *, int *count);
    char *(*GetDefaultFont)(QlPrinter *);
    int (*StartDoc)(QlPrinter *);
    int (*EndDoc)(QlPrinter *);
    int (*StartPage)(QlPrinter *);
    int (*EndPage)(QlPrinter *);
    int (*AbortDoc)(QlPrinter *);
    int (*PageEject)(QlPrinter *);
    int (*PutBitmapTrans)(QlPrinter *, XImage *, int invert, int sx, int sy, int dx, int dy, unsigned width,
                          unsigned height);
    char **(*ListDuplexOpts)(QlPrinter *, int *count);
    int (*QueryDuplexOpt)(QlPrinter *, const char *name);
    char *(*GetDuplexOpt)(QlPrinter *);
    int (*SetDuplexOpt)(QlPrinter *, const char *name);
};

namespace ps {
extern const QlDrawDriver PSDriver;
extern const QlPageDriver PSPDDriver;
// Marks the page data so that the next page works out its geometry anew.
void OrientationChanged(QlPrinter *printer);
}  // namespace ps
namespace pcl5 {
extern const QlDrawDriver PCLDriver;
extern const QlPageDriver PCLPDDriver;
}  // namespace pcl5
namespace pcl4 {
extern const QlDrawDriver PCL4Driver;
}  // namespace pcl4

// Indexed by driverId: 0 PostScript, 1 PCL5, 2 PCL4 (which shares the PCL5
// page device).
extern const QlDrawDriver *const DriverSwitch[3];
extern const QlPageDriver *const PDDriverSwitch[3];

namespace ql {

// A slot's name as a template argument.
template <size_t N>
struct SlotName {
    char text[N];
    constexpr SlotName(const char (&s)[N]) {
        for (size_t i = 0; i < N; ++i) text[i] = s[i];
    }
};

// What a slot that a driver does not offer answers: a report of
// wNotSupport with the slot's name, then the slot's failure value (null for
// slots that give a pointer).
template <SlotName Name, auto Failure, typename Sig>
struct NotSupportedSlot;

template <SlotName Name, auto Failure, typename R, typename... A>
struct NotSupportedSlot<Name, Failure, R (*)(A...)> {
    static R call(A...) {
        _QlError(wNotSupport, Name.text);
        if constexpr (std::is_pointer_v<R>) return nullptr;
        else return static_cast<R>(Failure);
    }
};

}  // namespace ql

// A slot filler that reports wNotSupport with the slot's name and gives
// `failure`:  .DrawArc = QL_NOT_SUPPORTED(QlDrawDriver, DrawArc, 2)
#define QL_NOT_SUPPORTED(Table, Slot, Failure) \
    (&ql::NotSupportedSlot<ql::SlotName(#Slot), Failure, decltype(Table::Slot)>::call)

namespace ql {
// The tables of a driver that offers nothing yet: every slot reports
// wNotSupport and gives its failure value.
inline constexpr QlDrawDriver kUnsupportedDrawDriver = {
    .OpenPrinter = QL_NOT_SUPPORTED(QlDrawDriver, OpenPrinter, -1),
    .ClosePrinter = QL_NOT_SUPPORTED(QlDrawDriver, ClosePrinter, 0),
    .ClearArea = QL_NOT_SUPPORTED(QlDrawDriver, ClearArea, 2),
    .CopyArea = QL_NOT_SUPPORTED(QlDrawDriver, CopyArea, 2),
    .DrawArc = QL_NOT_SUPPORTED(QlDrawDriver, DrawArc, 2),
    .DrawLine = QL_NOT_SUPPORTED(QlDrawDriver, DrawLine, 2),
    .DrawLines = QL_NOT_SUPPORTED(QlDrawDriver, DrawLines, 2),
    .DrawPoint = QL_NOT_SUPPORTED(QlDrawDriver, DrawPoint, 2),
    .DrawRectangle = QL_NOT_SUPPORTED(QlDrawDriver, DrawRectangle, 2),
    .DrawString = QL_NOT_SUPPORTED(QlDrawDriver, DrawString, 2),
    .DrawString16 = QL_NOT_SUPPORTED(QlDrawDriver, DrawString16, 2),
    .FillArc = QL_NOT_SUPPORTED(QlDrawDriver, FillArc, 2),
    .FillPolygon = QL_NOT_SUPPORTED(QlDrawDriver, FillPolygon, 2),
    .FillRectangle = QL_NOT_SUPPORTED(QlDrawDriver, FillRectangle, 2),
    .FreeFont = QL_NOT_SUPPORTED(QlDrawDriver, FreeFont, 0),
    .ListFonts = QL_NOT_SUPPORTED(QlDrawDriver, ListFonts, 0),
    .LoadFont = QL_NOT_SUPPORTED(QlDrawDriver, LoadFont, 0),
    .PutImage = QL_NOT_SUPPORTED(QlDrawDriver, PutImage, 2),
    .QueryFont = QL_NOT_SUPPORTED(QlDrawDriver, QueryFont, 0),
    .UnloadFont = QL_NOT_SUPPORTED(QlDrawDriver, UnloadFont, 0),
    .DrawRotString = QL_NOT_SUPPORTED(QlDrawDriver, DrawRotString, 2),
    .DrawRotImageString = QL_NOT_SUPPORTED(QlDrawDriver, DrawRotImageString, 2),
    .StretchPutImage = QL_NOT_SUPPORTED(QlDrawDriver, StretchPutImage, 2),
    .RegisterFont = QL_NOT_SUPPORTED(QlDrawDriver, RegisterFont, 0),
    .DestroyRegisteredFont = QL_NOT_SUPPORTED(QlDrawDriver, DestroyRegisteredFont, 0),
};
inline constexpr QlPageDriver kUnsupportedPageDriver = {
    .PageRead = QL_NOT_SUPPORTED(QlPageDriver, PageRead, 0),
    .Set = QL_NOT_SUPPORTED(QlPageDriver, Set, 0),
    .ListPageSize = QL_NOT_SUPPORTED(QlPageDriver, ListPageSize, 0),
    .ListPaperTrays = QL_NOT_SUPPORTED(QlPageDriver, ListPaperTrays, 0),
    .ListResolutions = QL_NOT_SUPPORTED(QlPageDriver, ListResolutions, 0),
    .QueryPageSize = QL_NOT_SUPPORTED(QlPageDriver, QueryPageSize, 0),
    .QueryResolution = QL_NOT_SUPPORTED(QlPageDriver, QueryResolution, 0),
    .QueryPaperTray = QL_NOT_SUPPORTED(QlPageDriver, QueryPaperTray, 0),
    .GetPrinterProduct = QL_NOT_SUPPORTED(QlPageDriver, GetPrinterProduct, 0),
    .GetPrinterModel = QL_NOT_SUPPORTED(QlPageDriver, GetPrinterModel, 0),
    .GetResolution = QL_NOT_SUPPORTED(QlPageDriver, GetResolution, -1),
    .GetPaperTray = QL_NOT_SUPPORTED(QlPageDriver, GetPaperTray, 0),
    .GetPageSize = QL_NOT_SUPPORTED(QlPageDriver, GetPageSize, 0),
    .SetResolution = QL_NOT_SUPPORTED(QlPageDriver, SetResolution, 0),
    .SetPaperTray = QL_NOT_SUPPORTED(QlPageDriver, SetPaperTray, 0),
    .SetPageSize = QL_NOT_SUPPORTED(QlPageDriver, SetPageSize, 0),
    .ListAvailableFonts = QL_NOT_SUPPORTED(QlPageDriver, ListAvailableFonts, 0),
    .GetDefaultFont = QL_NOT_SUPPORTED(QlPageDriver, GetDefaultFont, 0),
    .StartDoc = QL_NOT_SUPPORTED(QlPageDriver, StartDoc, 0),
    .EndDoc = QL_NOT_SUPPORTED(QlPageDriver, EndDoc, 0),
    .StartPage = QL_NOT_SUPPORTED(QlPageDriver, StartPage, 0),
    .EndPage = QL_NOT_SUPPORTED(QlPageDriver, EndPage, 0),
    .AbortDoc = QL_NOT_SUPPORTED(QlPageDriver, AbortDoc, 1),
    .PageEject = QL_NOT_SUPPORTED(QlPageDriver, PageEject, 0),
    .PutBitmapTrans = QL_NOT_SUPPORTED(QlPageDriver, PutBitmapTrans, 0),
    .ListDuplexOpts = QL_NOT_SUPPORTED(QlPageDriver, ListDuplexOpts, 0),
    .QueryDuplexOpt = QL_NOT_SUPPORTED(QlPageDriver, QueryDuplexOpt, 0),
    .GetDuplexOpt = QL_NOT_SUPPORTED(QlPageDriver, GetDuplexOpt, 0),
    .SetDuplexOpt = QL_NOT_SUPPORTED(QlPageDriver, SetDuplexOpt, 0),
};
}  // namespace ql
