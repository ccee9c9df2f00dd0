// Printer settings: the calls that forward to a page-device slot, and the
// few that work on the printer record itself.
#include "config/printerinfo.h"
#include "core/driver.h"
#include "core/out.h"
#include "port/kvo.h"

#include <cstdlib>
#include <string>

const char QlCompiledDate[] = __DATE__;
int QlRelease = 330;
const char *QlArch = "linux_x86";

namespace {

// The page device of a printer handle, or null for anything else.
const QlPageDriver *pageDevice(Display *handle, QlPrinter *&p) {
    p = _QlAsPrinter(handle);
    return p ? PDDriverSwitch[p->driverId] : nullptr;
}

// Forwards to a page-device slot; a handle that is not a printer gets the
// slot's failure value.
template <auto Slot, typename R, typename... A>
R forward(Display *handle, R failure, A... args) {
    QlPrinter *p;
    const QlPageDriver *pd = pageDevice(handle, p);
    if (!pd) return failure;
    ql::CLocale numbers;  // page devices read sizes out of the PPD's text
    return (pd->*Slot)(p, args...);
}

}  // namespace

char **QlListPageSizes(Display *h, int *count) {
    if (count) *count = 0;
    return forward<&QlPageDriver::ListPageSize, char **>(h, nullptr, count);
}
char **QlListPaperTrays(Display *h, int *count) {
    if (count) *count = 0;
    return forward<&QlPageDriver::ListPaperTrays, char **>(h, nullptr, count);
}
int QlListResolutions(Display *h, int **resolutions) {
    return forward<&QlPageDriver::ListResolutions, int>(h, 0, resolutions);
}
int QlQueryPageSize(Display *h, const char *name, PSPageGeometry *out) {
    return forward<&QlPageDriver::QueryPageSize, int>(h, 0, name, out);
}
int QlQueryResolution(Display *h, int r) { return forward<&QlPageDriver::QueryResolution, int>(h, 0, r); }
int QlQueryPaperTray(Display *h, const char *name) {
    return forward<&QlPageDriver::QueryPaperTray, int>(h, 0, name);
}
char *QlGetPrinterProduct(Display *h) { return forward<&QlPageDriver::GetPrinterProduct, char *>(h, nullptr); }
char *QlGetPrinterModel(Display *h) { return forward<&QlPageDriver::GetPrinterModel, char *>(h, nullptr); }

// Stamps a bitmap: the page keeps what lies under its clear bits.
int QlPutBitmapTrans(Display *h, XImage *image, int invert, int sx, int sy, int dx, int dy, unsigned width,
                     unsigned height) {
    if (QlIsDisplay(h)) {
        _QlError(wNotSupport, "QlPutBitmapTrans: Output to Screen");
        return 0;
    }
    QlPrinter *p = _QlAsPrinter(h);
    if (!p || !_QlForceStartDoc(p, "QlPutBitmapTrans")) return 0;
    if (!image || image->depth != 1) {
        _QlError(wWrongDepth, "QlPutBitmapTrans");
        return 0;
    }
    return PDDriverSwitch[p->driverId]->PutBitmapTrans(p, image, invert, sx, sy, dx, dy, width, height);
}
int QlGetResolution(Display *h) { return forward<&QlPageDriver::GetResolution, int>(h, -1); }
char *QlGetPaperTray(Display *h) { return forward<&QlPageDriver::GetPaperTray, char *>(h, nullptr); }
char *QlGetPageSize(Display *h) { return forward<&QlPageDriver::GetPageSize, char *>(h, nullptr); }
int QlSetResolution(Display *h, int r) { return forward<&QlPageDriver::SetResolution, int>(h, 0, r); }
int QlSetPaperTray(Display *h, const char *name) { return forward<&QlPageDriver::SetPaperTray, int>(h, 0, name); }
int QlSetPageSize(Display *h, const char *name) { return forward<&QlPageDriver::SetPageSize, int>(h, 0, name); }
char **QlListAvailableFonts(Display *h, int *count) {
    if (count) *count = 0;
    return forward<&QlPageDriver::ListAvailableFonts, char **>(h, nullptr, count);
}
char *QlGetDefaultFont(Display *h) { return forward<&QlPageDriver::GetDefaultFont, char *>(h, nullptr); }
char **QlDuplexOpts(Display *h, int *count) {
    if (count) *count = 0;
    return forward<&QlPageDriver::ListDuplexOpts, char **>(h, nullptr, count);
}
int QlQueryDuplexOpt(Display *h, const char *name) {
    return forward<&QlPageDriver::QueryDuplexOpt, int>(h, 0, name);
}
char *QlGetDuplexOpt(Display *h) { return forward<&QlPageDriver::GetDuplexOpt, char *>(h, nullptr); }
int QlSetDuplexOpt(Display *h, const char *name) { return forward<&QlPageDriver::SetDuplexOpt, int>(h, 0, name); }

static int escapePolicy = 1;

int QlPrinterEscape(Display *handle, int code, void *data) {
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return 2;
    switch (code) {
    case 0:
        p->debugComments = reinterpret_cast<long>(data);
        return 0;
    case 1: {
        // A word count, then a pointer to the bytes.
        struct Bytes {
            long count;
            const char *bytes;
        };
        const auto *b = static_cast<const Bytes *>(data);
        if (!p->stream || !b || !b->bytes || b->count <= 0) return 0;
        bool bracket = p->driverId == QL_DRIVER_POSTSCRIPT && escapePolicy;
        if (bracket) ql::write(p->stream, "end\n");
        fwrite(b->bytes, 1, static_cast<size_t>(b->count), p->stream);
        if (bracket) ql::write(p->stream, "QualinDict begin\n");
        return 0;
    }
    default: return 2;
    }
}

void QlSetCreationDate(Display *handle, time_t date) {
    if (QlPrinter *p = _QlAsPrinter(handle)) p->creationDate = date;
}

int QlSetPSLevel(Display *handle, int level) {
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || p->driverId != QL_DRIVER_POSTSCRIPT) return 0;
    if (level != 1 && level != 2) {
        _QlError(wBadValue, "QlSetPSLevel");
        return 0;
    }
    p->level = level;
    return 1;
}

int QlGetPSLevel(Display *handle) {
    QlPrinter *p = _QlAsPrinter(handle);
    return p && p->driverId == QL_DRIVER_POSTSCRIPT ? p->level : 0;
}

int QlSetPSPrinterEscapePolicy(int flag) {
    escapePolicy = flag != 0;
    return escapePolicy;
}

void QlPSComment(Display *handle, const char *text) {
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || p->driverId != QL_DRIVER_POSTSCRIPT || !p->stream) return;
    // One percent sign on the page; the caller ends the line.
    ql::put(p->stream, "%%User's Comment:  %s", text ? text : "");
}

int QlIsOutputSet(Display *handle) {
    if (QlIsDisplay(handle)) return 1;
    QlPrinter *p = _QlAsPrinter(handle);
    return p && p->command ? 1 : 0;
}

int QlSetOutputFile(Display *handle, const char *name) {
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || !name) return 0;
    char *command;
    try {
        command = _kvo_strdup(_QlOSCopyFileCommand(name).c_str());
    } catch (...) {
        return 0;
    }
    std::free(p->command);
    p->command = command;
    if (p->info) {
        std::free(p->info->fileName);
        p->info->fileName = _kvo_strdup(name);
    }
    return 1;
}

char *QlGetCommand(Display *handle) {
    QlPrinter *p = _QlAsPrinter(handle);
    return p && p->command ? _kvo_strdup(p->command) : nullptr;
}

int QlSetColorDepth(Display *handle, int depth) {
    if (QlIsDisplay(handle)) return depth ? depth : 1;
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return 0;
    p->depth = depth;
    return depth;
}

int QlSetPSColor(Display *handle, int flag) {
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || p->driverId != QL_DRIVER_POSTSCRIPT) return 0;
    if (flag) p->flags |= 1;
    else p->flags &= static_cast<unsigned char>(~1u);
    return 1;
}

int QlGetPSColor(Display *handle) {
    QlPrinter *p = _QlAsPrinter(handle);
    return p && p->driverId == QL_DRIVER_POSTSCRIPT && p->level == 2 ? p->flags & 1 : 0;
}

int QlGetPrinterColorMode(Display *handle) {
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return 0;
    switch (p->driverId) {
    case QL_DRIVER_POSTSCRIPT: return p->flags == 1 ? 1 : 2;
    case QL_DRIVER_PCL5:
    case QL_DRIVER_PCL4: return p->pclColorMode > 0 ? 1 : p->pclColorMode == 0 ? 2 : 0;
    default: return 0;
    }
}

int QlRasterOnlyMode(Display *handle) {
    QlPrinter *p = _QlAsPrinter(handle);
    return p && p->rasterOnly ? 1 : 0;
}

const char *QlGetVersion() {
    static const std::string version =
        ql::format("%d.%d.%d (%s)", QlRelease / 100, QlRelease / 10 % 10, QlRelease % 10, QlArch);
    return version.c_str();
}
