// Printer info: the default device and the settings of devices and of file
// output.  Without a profile everything falls back to PostScript output to
// the default file.
#include "config/printerinfo.h"

#include "port/kvo.h"

#include <cstdlib>
#include <cstring>

_PrinterInfo *_QlGetPrinterInfo() {
    auto *info = static_cast<_PrinterInfo *>(std::calloc(1, sizeof(_PrinterInfo)));
    if (!info) return nullptr;
    // Fallback: PostScript output to the default file.
    info->magic = QL_FILE_MAGIC;
    info->fileDid = QL_DRIVER_POSTSCRIPT;
    info->currentPort = -1;
    info->fileName = _kvo_strdup(_QlDefaultOutfile(nullptr));
    return info;
}

static void freeStrings(char **list, int n) {
    if (!list) return;
    for (int i = 0; i < n; ++i) std::free(list[i]);
    std::free(list);
}

int _freePrinterInfo(_PrinterInfo *info) {
    if (!info) return 0;
    std::free(info->fileName);
    freeStrings(info->names, info->num_printer);
    freeStrings(info->nicknames, info->num_printer);
    std::free(info->Dids);
    std::free(info->portIndices);
    freeStrings(info->commands, info->num_port);
    freeStrings(info->ports, info->num_port);
    std::free(info);
    return 0;
}

int _QlGetCommonPrinterInfo(int device, int driver, QlPrinterSettings *s, _PrinterInfo *info) {
    std::memset(s, 0, sizeof *s);
    s->BitmapCompression = -1;
    if (device >= 0) {
        s->magic = QL_PRINTER_MAGIC;
        if (!info || device >= info->num_printer) {
            _QlError(eUnknownPrt, "_QlGetCommonPrinterInfo", "");
            return 0;
        }
        s->portIndex = info->portIndices[device];
        s->Did = info->Dids[device];
        int port = s->portIndex;
        if (port >= 0 && port < info->num_port && info->commands[port])
            std::strncpy(s->Command, info->commands[port], sizeof s->Command - 1);
        std::strncpy(s->PPDName, info->names[device], sizeof s->PPDName - 1);
        return 0;
    }
    s->magic = QL_FILE_MAGIC;
    s->Did = driver;
    s->portIndex = -1;
    if (driver < 0 || driver > 2) return 0;
    std::strncpy(s->Filename, _QlDefaultOutfile(nullptr), sizeof s->Filename - 1);
    return 0;
}

void _QlLoadCustomPageDefintions(QlPrinter *printer) { printer->customPages = nullptr; }

void _QlFreeCustomPages(QlCustomPage *list) {
    while (list) {
        QlCustomPage *next = list->next;
        std::free(list->name);
        std::free(list);
        list = next;
    }
}
