// What the configuration knows: installed devices and ports, the default
// device, and the flat settings of one of them.
#pragma once

#include "core/qlint.h"

#include <cstdio>

struct _PrinterInfo {
    int magic;        // QL_PRINTER_MAGIC: a device is the default; QL_FILE_MAGIC: output to a file
    int currentP;     // index of the default device
    int currentPort;  // its port index, -1 for FILE:
    char *fileName;   // output file, when magic is QL_FILE_MAGIC
    int fileDid;      // driver of file output
    int num_printer;
    char **names;      // model of each device entry: the PPD's base name
    char **nicknames;  // "<device> on <port>"
    int *Dids;
    int *portIndices;  // -1 for FILE:
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

// The "port" word of a default line that sends output to a file.
extern char _Qlport[256];

_PrinterInfo *_QlGetPrinterInfo();  // never null
int _freePrinterInfo(_PrinterInfo *info);
_PrinterInfo *_pInfoParser();
int _QlGetCommonPrinterInfo(_PrinterInfo *info, QlPrinterSettings *out, int device, int driver);
int _QlWriteCommonPrinterInfo(_PrinterInfo *info, QlPrinterSettings *settings, const char *path);
int _QlGetPortsInfo(char **lines, int count, char **names, char **commands);
int _QlParseOneSectionString(char **lines, int count, const char *key, const char *deflt, char *dst, unsigned len);
double _QlParseOneSectionDouble(char **lines, int count, const char *key, double deflt);
int _QlParseOneSectionInt(char **lines, int count, const char *key, int deflt);
char *get_ports_of_currentP(const char *deviceKey, _PrinterInfo *info);
void _QlWritePrinterOutputSec(FILE *fp, QlPrinterSettings *s);
void _QlWriteFileOutputSec(FILE *fp, QlPrinterSettings *s);
void _QlLoadCustomPageDefintions(QlPrinter *printer);
void _QlFreeCustomPages(QlCustomPage *list);
int _QlStrcmpCaseless(const char *a, const char *b);
int bDebugCheck();

// Driver words of the profile: "PS" and "PostScript" 0, "PCL" and "PCL5" 1,
// "PCL4" 2, without regard to case; -1 for anything else.
int _QlDriverOfWord(const char *word);
