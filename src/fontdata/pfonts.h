// Fonts a printer has: resident in the printer, or soft fonts the library
// downloads into the document.
#pragma once

#include "core/qlint.h"

// 1 when the PPD lists `name` as a resident font; counts its use.
int CheckAvailFonts(QlPrinter *printer, const char *name);
// 1 when a soft font file for `name` exists; `end` 1 ends a scan.
int CheckSoftFonts(const char *name, int end);
