// Internal declarations shared by every part of the library.  Nothing here
// is exported from libqualin.so.
#pragma once

#include <qualin/Ql.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

// Rows of QlMessageCatalog, by key.
enum QlMsg : int {
    ePPD = 0, ePCLFont, ePSFont, eLMem, eTFMOpen, eTFMHeader, ePCLPage, ePCLDefPage,
    ePCLPImage, ePPDPaper, ePPDPaperDim, ePPDImage, eTile, eUnknownPrt, eSyntax,
    eNoSoftFont, eUnknownDrv, eNoInstalledPrt, eAFMParse, eAFMPremature, ePFBadReturn,
    eNoPrinterInfo, eIllegalArg, eRGB, eEPSFormat, ePrtImage, eNumColors, eNumChars,
    eUndefineColor, eBadColorEntry, eBadRGB, eBadPixelValue, eUndefinedPixel,
    eBadLineLen, eBadPixel, eBadPixel2, ePPDSyntax2, ePPDSyntax3, ePrinterB,
    ePrinterBArg, ePrinterBOpen, eMalInstall, eOpenFileW, eDocStart, eNewPage,
    eNoWAttr, eUnMapped, eWrongPort, eXLFDError, ePrinterBOpen2, eOpenFile,
    eWriteFile, eBadQLPATH, eBadAppSoftFont, wUnknownEncode, wNotSupport, wNoCmd,
    wUnknownArcMode, wUnknownCoord, wNoFont, wLatin1, wUnknownSSet,
    wTFMUnknownEncode, wPCLNotSupport, wInvalidTray, wInvalidPageS, wLineStyle,
    wFillStyle, wFillRule, wDashList, wProlog, wResolution, wEPSpreview,
    wUnknownOrient, wNoDefFont, wPCL5Clip, wPCL5ClipRect, wFontFormat, wBadGC,
    wBadValue, wNoSysFile, wNoPermis, wNoHelp, wBadInstall, wBadPrinter, wBadFile,
    wNotReg, wNoPermis2, wOverWrite, wWrongDepth, wStartDoc, wFSLostConnection,
    wFSReconnecting, wFSLostConnectionNoMoreRetries, wFSError, wInvalidDuplex
};
static_assert(wInvalidDuplex == QL_MESSAGE_COUNT - 1);

namespace ql {

// One argument of a catalog format: a text or a number.  The formatter
// takes each "%" directive's argument by its own type, so a row that an
// application replaced can never read an argument as the wrong kind.
struct MsgArg {
    const char *str = nullptr;
    long num = 0;
    bool isStr = false;
    MsgArg(const char *s) : str(s), isStr(true) {}
    MsgArg(char *s) : str(s), isStr(true) {}
    MsgArg(const std::string &s) : str(s.c_str()), isStr(true) {}
    MsgArg(int n) : num(n) {}
    MsgArg(long n) : num(n) {}
    MsgArg(unsigned n) : num(static_cast<long>(n)) {}
};

}  // namespace ql

// The worker: formats row `index` with up to six arguments, stores the
// text and calls the handler.  Returns what the handler returns.
int QlError_(int index, std::initializer_list<ql::MsgArg> args);

// The one way to report: _QlError(eUnknownDrv, "QlVaOpenPrinter").
template <typename... A>
inline int _QlError(int index, const A &...args) {
    static_assert(sizeof...(A) <= 6, "a catalog row takes at most six arguments");
    return QlError_(index, {ql::MsgArg(args)...});
}

// Handle tests.  A printer handle is a QlPrinter made by this library and
// not yet closed; a display is any other non-null handle whose third word
// is not the printer magic.
QlPrinter *_QlAsPrinter(Display *handle);  // the printer, or null

// Locale bracket around driver calls.  Drivers write every number through
// ql::put, which never looks at the locale, so the bracket stays empty and
// costs nothing on the drawing path.
inline void _QlSetLocaleC() {}
inline void _QlResetLocale() {}

namespace ql {
// Reads numbers in the C locale for the life of the scope, whatever locale
// the application set (a Motif application usually sets all of it): PPD
// and profile values such as "0.5" mean the same everywhere.  Only this
// thread's locale changes.
class CLocale {
public:
    CLocale();
    ~CLocale();
    CLocale(const CLocale &) = delete;
    CLocale &operator=(const CLocale &) = delete;

private:
    void *saved_;
};
}  // namespace ql

int _QlCheckSpace();
int _QlForceStartDoc(QlPrinter *printer, const char *name);
char *_QlTempnam(const char *directory, const char *prefix);
const char *_QlDefaultOutfile(const char *name);
std::string _QlOSCopyFileCommand(const char *name);
// The shell pipeline that hands a finished document to its command.
std::string _QlSpoolPipeline(QlPrinter *printer);
int _QlSlaveInitialized(QlPrinter *printer);
// Expands "~" and "~user"; null for a null or empty name.  malloc'ed.
char *_QlReplaceTilde(const char *name);

// The printer cache.
struct QlPrtNode {
    QlPrinter *printer;
    QlPrtNode *next;
};
extern QlPrtNode *_QlPrtList;

// Globals of the encapsulated bounding box of the page that ended last.
extern int BoundsXmin, BoundsYmin, BoundsXmax, BoundsYmax;
// Text of QlGetVersion's date part.
extern const char QlCompiledDate[];
