// Printer handles: telling a printer from a display, opening and closing,
// the printer cache, the configuration directory.
#include "config/ppd.h"
#include "config/printerinfo.h"
#include "core/driver.h"
#include "core/out.h"
#include "port/kvo.h"

#include <X11/Xutil.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>
#include <unistd.h>
#include <vector>

// A printer keeps its magic where an Xlib Display keeps its connection's
// descriptor, so that one word tells the two apart.
using XlibDisplayRecord = std::remove_pointer_t<_XPrivDisplay>;
static_assert(offsetof(QlPrinter, magic) == offsetof(XlibDisplayRecord, fd),
              "QlPrinter.magic must overlay Display.fd");
static_assert(sizeof(QlPrinter::magic) == sizeof(XlibDisplayRecord::fd));
static_assert(std::is_standard_layout_v<QlPrinter>);

const QlDrawDriver *const DriverSwitch[3] = {&ps::PSDriver, &pcl5::PCLDriver, &pcl4::PCL4Driver};
const QlPageDriver *const PDDriverSwitch[3] = {&ps::PSPDDriver, &pcl5::PCLPDDriver, &pcl5::PCLPDDriver};

QlPrtNode *_QlPrtList = nullptr;

namespace {

// Every record this library ever handed out as a printer.  Closed records
// are kept for the next open instead of going back to malloc, so that a
// stale handle is never mistaken for a display, and its memory is never
// read after it was freed.
struct Registry {
    std::vector<QlPrinter *> live;
    std::vector<QlPrinter *> closed;
    ~Registry() {
        for (QlPrinter *p : closed) std::free(p);
    }
    bool isLive(const void *p) const { return std::find(live.begin(), live.end(), p) != live.end(); }
    bool isClosed(const void *p) const { return std::find(closed.begin(), closed.end(), p) != closed.end(); }
};

Registry &registry() {
    static Registry r;
    return r;
}

QlPrinter *allocPrinter() {
    Registry &r = registry();
    QlPrinter *p;
    if (!r.closed.empty()) {
        p = r.closed.back();
        r.closed.pop_back();
    } else {
        p = static_cast<QlPrinter *>(std::malloc(sizeof(QlPrinter)));
        if (!p) return nullptr;
    }
    std::memset(p, 0, sizeof *p);
    r.live.push_back(p);
    return p;
}

void releasePrinter(QlPrinter *p) {
    Registry &r = registry();
    r.live.erase(std::remove(r.live.begin(), r.live.end(), p), r.live.end());
    std::memset(p, 0, sizeof *p);
    r.closed.push_back(p);
}

void addPrinterCache(QlPrinter *printer) {
    if (!printer) return;
    if (!_QlPrtList) {
        _QlPrtList = new QlPrtNode{printer, nullptr};
        return;
    }
    // A non-empty list moves on to its next node, and the new printer is
    // not listed.
    QlPrtNode *old = _QlPrtList;
    _QlPrtList = old->next;
    delete old;
}

void deletePrinterFromCache(QlPrinter *printer) {
    for (QlPrtNode **pp = &_QlPrtList; *pp; pp = &(*pp)->next) {
        if ((*pp)->printer == printer) {
            QlPrtNode *dead = *pp;
            *pp = dead->next;
            delete dead;
            return;
        }
    }
}

int driverIdOf(const char *name) {
    if (!name) return QL_DRIVER_POSTSCRIPT;
    if (!_kvo_strcasecmp(name, "POSTSCRIPT")) return QL_DRIVER_POSTSCRIPT;
    if (!_kvo_strcasecmp(name, "PCL") || !_kvo_strcasecmp(name, "PCL5")) return QL_DRIVER_PCL5;
    if (!_kvo_strcasecmp(name, "PCL4")) return QL_DRIVER_PCL4;
    return -1;
}

const char *driverNameOfSettings(int did) {
    switch (did) {
    case 0:
    case 3: return "PostScript";
    case 1: return "PCL";
    case 2: return "PCL4";
    default: return nullptr;
    }
}

struct OpenParams {
    FILE *ppdFile;
    int driverId;
    double scale;
    int orientation;
    int copies;
    char *command;
    char *ppdDir;
    int bitmapCompression;
};

char copiesText[32];

QlPrinter *openPrinterRecord(const OpenParams &op) {
    QlPrinter *p = allocPrinter();
    if (!p) return nullptr;
    p->magic = QL_PRINTER_MAGIC;
    p->driverId = op.driverId;
    p->scale = op.scale;
    p->orientation = op.orientation;
    p->copies = op.copies;
    p->command = op.command;
    p->bitmapCompression = op.bitmapCompression;
    p->ppdFile = op.ppdFile;
    p->ppdDir = op.ppdDir;
    _QlLoadCustomPageDefintions(p);
    p->pageNumber = 1;
    p->depth = 8;
    p->redMask = 255;
    p->greenMask = 65280;
    p->blueMask = 16711680;
    std::snprintf(copiesText, sizeof copiesText, "QlCopies=%d", op.copies);
    int rc;
    {
        ql::CLocale numbers;
        _QlSetLocaleC();
        rc = DriverSwitch[op.driverId]->OpenPrinter(p, 1);
        _QlResetLocale();
    }
    if (rc == -1) {
        // What the driver left open stays with the caller's copies; the
        // record itself goes.
        _QlFreeCustomPages(p->customPages);
        if (p->ppdFile) fclose(p->ppdFile);
        std::free(p->ppdDir);
        std::free(p->command);
        releasePrinter(p);
        return nullptr;
    }
    addPrinterCache(p);
    return p;
}

// Replaces fileName of the printer's info by `name` (taken over).
void setOutputFileName(QlPrinter *p, char *name) {
    if (p->info) {
        std::free(p->info->fileName);
        p->info->fileName = name;
    } else {
        std::free(name);
    }
}

Display *openFileOutput(const QlPrinterSettings &s, const char *driverName, const char *caller) {
    (void)caller;
    char *fileName = _kvo_strdup(_QlDefaultOutfile(s.Filename[0] ? s.Filename : nullptr));
    std::string command = _QlOSCopyFileCommand(fileName);
    Display *d = QlVaOpenPrinter(nullptr, command.c_str(), driverName, QlTagSettings, &s, 0);
    if (d) setOutputFileName(reinterpret_cast<QlPrinter *>(d), fileName);
    else std::free(fileName);
    return d;
}

}  // namespace

QlPrinter *_QlAsPrinter(Display *handle) {
    if (!handle || !registry().isLive(handle)) return nullptr;
    return reinterpret_cast<QlPrinter *>(handle);
}

int QlIsPrinter(Display *handle) { return _QlAsPrinter(handle) != nullptr; }

int QlIsDisplay(Display *handle) {
    if (!handle || registry().isLive(handle) || registry().isClosed(handle)) return 0;
    int fd;
    std::memcpy(&fd, reinterpret_cast<const char *>(handle) + offsetof(XlibDisplayRecord, fd), sizeof fd);
    return fd != QL_PRINTER_MAGIC;
}

int QlGetDriverID(Display *printer) {
    QlPrinter *p = _QlAsPrinter(printer);
    return p ? p->driverId : -1;
}

const char *QlConfigDir() {
    if (const char *dir = std::getenv("QLPATH")) return dir;
    if (const char *home = std::getenv("QLHOME")) {
        static std::string path;
        path = ql::PathFromComponents(home, nullptr, "qualin");
        return path.c_str();
    }
    return "";
}

Display *QlVaOpenPrinter(const char *ppdName, const char *command, const char *driverName, ...) {
    int driverId = driverIdOf(driverName);
    if (driverId < 0) {
        _QlError(eUnknownDrv, "QlVaOpenPrinter");
        return nullptr;
    }
    OpenParams op{nullptr, driverId, 1.0, 1, 1, command ? _kvo_strdup(command) : nullptr, nullptr, 1};

    bool scaleGiven = false, orientationGiven = false, copiesGiven = false, compressionGiven = false;
    const char *pageSize = nullptr, *tray = nullptr, *duplex = nullptr;
    int resolution = 0;
    const QlPrinterSettings *settings = nullptr;

    va_list ap;
    va_start(ap, driverName);
    for (int tag; (tag = va_arg(ap, int)) != 0;) {
        switch (tag) {
        case QlTagScale: {
            double v = va_arg(ap, double);
            op.scale = v > 0 ? v : 1.0;
            scaleGiven = true;
            break;
        }
        case QlTagOrientation: {
            int v = va_arg(ap, int);
            op.orientation = (v == 1 || v == 2) ? v : 2;
            orientationGiven = true;
            break;
        }
        case QlTagPageSize: pageSize = va_arg(ap, const char *); break;
        case QlTagCopies: {
            int v = va_arg(ap, int);
            op.copies = v < 1 ? 1 : v;
            copiesGiven = true;
            break;
        }
        case QlTagPaperTray: tray = va_arg(ap, const char *); break;
        case QlTagResolution: resolution = va_arg(ap, int); break;
        case QlTagSettings: settings = va_arg(ap, const QlPrinterSettings *); break;
        case QlTagBitmapCompression:
            op.bitmapCompression = va_arg(ap, int);
            compressionGiven = true;
            break;
        case QlTagDuplex: duplex = va_arg(ap, const char *); break;
        default:
            va_end(ap);
            _QlError(eIllegalArg, "QlVaOpenPrinter");
            std::free(op.command);
            return nullptr;
        }
    }
    va_end(ap);

    if (ppdName) {
        std::string file = ql::format(driverId == QL_DRIVER_POSTSCRIPT ? "%s.PS" : "%s.PCL", ppdName);
        std::string path = ql::PathFromComponents(QlConfigDir(), "ppds", file.c_str());
        op.ppdDir = _kvo_strdup(QlConfigDir());
        op.ppdFile = _QlfopenTryBothCases(path.c_str(), "r");
        if (!op.ppdFile) {
            _QlError(eUnknownPrt, "QlVaOpenPrinter", path);
            std::free(op.ppdDir);
            std::free(op.command);
            return nullptr;
        }
    }

    QlPrinter *p = openPrinterRecord(op);
    if (!p) return nullptr;
    Display *handle = reinterpret_cast<Display *>(p);
    // Output goes to the command given, not to the configuration's file.
    if (command && p->info) {
        std::free(p->info->fileName);
        p->info->fileName = nullptr;
    }

    if (settings) {
        if (!scaleGiven && settings->Scale > 0.001) QlSetScale(handle, settings->Scale);
        if (!orientationGiven && settings->Orientation != p->orientation)
            QlSetOrientation(handle, settings->Orientation);
        if (!copiesGiven && settings->Copies > 1) QlSetCopies(handle, settings->Copies);
        if (!pageSize && settings->PageSize[0]) QlSetPageSize(handle, settings->PageSize);
        if (!tray && settings->PaperTray[0]) QlSetPaperTray(handle, settings->PaperTray);
        if (!duplex && settings->DuplexOpt[0]) QlSetDuplexOpt(handle, settings->DuplexOpt);
        if (!compressionGiven && settings->BitmapCompression >= 0)
            QlSetBitmapCompression(handle, settings->BitmapCompression);
    }
    if (pageSize) QlSetPageSize(handle, pageSize);
    if (resolution > 0) QlSetResolution(handle, resolution);
    if (tray) QlSetPaperTray(handle, tray);
    if (duplex) QlSetDuplexOpt(handle, duplex);

    if (!p->info || !ppdName) return handle;
    _PrinterInfo *info = p->info;
    for (int i = 0; i < info->num_printer; ++i) {
        if (!info->names[i] || std::strcmp(info->names[i], ppdName) != 0 || info->Dids[i] != driverId) continue;
        if (settings && info->portIndices[i] != settings->portIndex) continue;
        info->currentP = i;
        break;
    }
    if (settings && settings->Command[0]) {
        std::free(p->command);
        p->command = _kvo_strdup(settings->Command);
    }
    return handle;
}

Display *QlOpenPrinter() {
    _PrinterInfo *info = _QlGetPrinterInfo();
    if (!info) {
        _QlError(eNoPrinterInfo, "QlOpenPrinter");
        return nullptr;
    }
    QlPrinterSettings s;
    if (info->magic == QL_PRINTER_MAGIC) {
        int did = info->currentP >= 0 && info->currentP < info->num_printer ? info->Dids[info->currentP] : 0;
        _QlGetCommonPrinterInfo(info, &s, info->currentP, did);
        _freePrinterInfo(info);
        const char *driverName = driverNameOfSettings(s.Did);
        if (!driverName) {
            _QlError(eUnknownDrv, "QlOpenPrinter");
            return nullptr;
        }
        return QlVaOpenPrinter(s.PPDName, s.Command[0] ? s.Command : nullptr, driverName, QlTagSettings, &s, 0);
    }
    const char *driverName = info->fileDid == 0 || info->fileDid == 3 ? "PostScript"
                             : info->fileDid == 2                     ? "PCL4"
                                                                      : "PCL";
    _QlGetCommonPrinterInfo(info, &s, -1, info->fileDid);
    _freePrinterInfo(info);
    return openFileOutput(s, driverName, "QlOpenPrinter");
}

Display *QlOpenPrtWithInfo(QlPrinterSettings *settings) {
    if (!settings) return nullptr;
    const char *driverName = driverNameOfSettings(settings->Did);
    if (settings->magic == QL_PRINTER_MAGIC) {
        if (!settings->PPDName[0] || !driverName) return nullptr;
        return QlVaOpenPrinter(settings->PPDName, settings->Command[0] ? settings->Command : nullptr, driverName,
                               QlTagSettings, settings, 0);
    }
    if (!driverName) return nullptr;
    if (settings->Filename[0] == '!') {
        // The rest of the name is a command of its own.
        const char *command = settings->Filename + 1;
        Display *d = QlVaOpenPrinter(nullptr, command, driverName, QlTagSettings, settings, 0);
        if (d) setOutputFileName(reinterpret_cast<QlPrinter *>(d), _kvo_strdup(command));
        return d;
    }
    return openFileOutput(*settings, driverName, "QlOpenPrtWithInfo");
}

int QlClosePrinter(Display *handle) {
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || p->driverId < 0 || p->driverId > 2) return 0;
    deletePrinterFromCache(p);
    _QlSetLocaleC();
    DriverSwitch[p->driverId]->ClosePrinter(p);
    _QlResetLocale();
    if (p->stream) {
        fclose(p->stream);
        p->stream = nullptr;
        if (p->tmpName) unlink(p->tmpName);
    }
    std::free(p->tmpName);
    std::free(p->command);
    if (p->lastGC) QlFreeGC(handle, reinterpret_cast<GC>(p->lastGC));
    if (p->defaultGC) QlFreeGC(handle, reinterpret_cast<GC>(p->defaultGC));
    std::free(p->docName);
    std::free(p->ppdDir);
    if (p->ppdFile) fclose(p->ppdFile);
    _QlFreeCustomPages(p->customPages);
    _freePrinterInfo(p->info);
    releasePrinter(p);
    return 0;
}

int QlCloseAbortPrinter(Display *handle) { return QlClosePrinter(handle); }

int QlSetDisplay(Display *printer, Display *display) {
    if (!display) return 0;
    QlPrinter *p = _QlAsPrinter(printer);
    if (!p) return 1;
    if (p->driverId == QL_DRIVER_PCL4 && !p->slaveDisplay && QlIsDisplay(display)) {
        unsigned size = static_cast<unsigned>(std::max(std::max(p->width, p->height), 1));
        Window root = DefaultRootWindow(display);
        p->slaveDisplay = display;
        p->slavePixmap = XCreatePixmap(display, root, size, size, 1);
        p->slaveGC = XCreateGC(display, p->slavePixmap, 0, nullptr);
        XSetForeground(display, p->slaveGC, 0);
        XFillRectangle(display, p->slavePixmap, p->slaveGC, 0, 0, size, size);
        XSetForeground(display, p->slaveGC, 1);
        XSetBackground(display, p->slaveGC, 0);
        p->fillTile = XCreatePixmap(display, root, 8, 8, 1);
        p->fillTileKey = p->fillTileSet = p->slaveDirty = 0;
    }
    if (QlIsDisplay(display) && (p->flags & 1)) {
        XWindowAttributes attr;
        if (XGetWindowAttributes(display, DefaultRootWindow(display), &attr) && attr.visual &&
            attr.visual->c_class == TrueColor) {
            p->depth = attr.depth;
            p->redMask = static_cast<unsigned>(attr.visual->red_mask);
            p->greenMask = static_cast<unsigned>(attr.visual->green_mask);
            p->blueMask = static_cast<unsigned>(attr.visual->blue_mask);
        }
    }
    return 1;
}

int _QlSlaveInitialized(QlPrinter *printer) { return printer->slaveDisplay && printer->slavePixmap; }

int _QlCheckSpace() {
    char *name = _QlTempnam(nullptr, "QlSp");
    if (!name) return -1;
    FILE *f = std::fopen(name, "w");
    if (!f) {
        std::free(name);
        return -1;
    }
    bool ok = std::fputc('x', f) != EOF;
    ok = (std::fflush(f) == 0) && ok;
    int saved = errno;
    std::fclose(f);
    unlink(name);
    std::free(name);
    if (!ok) errno = saved;
    return ok ? 1 : -1;
}
