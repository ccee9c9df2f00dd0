// What the configuration knows: installed devices and ports, the default
// device, and the flat settings of one of them.
#pragma once

#include "core/qlint.h"

struct _PrinterInfo {
    int magic;        // QL_PRINTER_MAGIC: a device is the default; QL_FILE_MAGIC: output to a file
    int currentP;     // index of the default device
    int currentPort;  // its port index, -1 for FILE:
    char *fileName;   // output file, when magic is QL_FILE_MAGIC
    int fileDid;      // driver of file output
    int num_printer;
    char **names;
    char **nicknames;
    int *Dids;
    int *portIndices;
    int num_port;
    char **commands;
    char **ports;
};

// A page size of the profile's [CustomPageSizes].
struct QlCustomPage {
    char *name;
    float width, height;
    float left, bottom, right, top;
    QlCustomPage *next;
};

_PrinterInfo *_QlGetPrinterInfo();
int _freePrinterInfo(_PrinterInfo *info);
int _QlGetCommonPrinterInfo(int device, int driver, QlPrinterSettings *settings, _PrinterInfo *info);
void _QlLoadCustomPageDefintions(QlPrinter *printer);
void _QlFreeCustomPages(QlCustomPage *list);
