// Fonts a printer has: resident in the printer, or soft fonts the library
// downloads into the document.
#pragma once

#include "core/qlint.h"

// 1 when the PPD lists `name` as a resident font (without regard to case);
// counts its use.
int CheckAvailFonts(QlPrinter *printer, const char *name);

// Soft fonts are the files of "pssoftfonts" (PostScript) and "pclsoftfonts"
// (PCL) under QlConfigDir(), or under "/usr/lib/Ql" when the first has no
// such directory.  The directory is read on the first call after a reset,
// and each file can be claimed once until the next reset, so that two font
// list lines naming one file don't download it twice.
//
// 1 when an unclaimed file named `name` (without regard to case) was there
// and is now claimed; 0 when not.  A non-zero `reset` ends the scan and
// gives 1: the next call reads the directory afresh.  When no directory
// opens, the PostScript table stays empty until the next reset, while the
// PCL table tries again on each call.
int CheckSoftFonts(const char *name, int reset);
// The same for PCL; a ".TFM" (or else ".tfm") in the name is cut there.
int PCL_CheckSoftFonts(const char *name, int reset);

// Copies a Type 1 font into the printer's stream as a DSC resource named
// alias, and adds alias to the printer's supplied fonts.  kind 2 and 3 are
// fonts of the X font directories, 4 a path the application gave, others
// the soft font directory.  A file in segments (".pfb") has its binary
// segments written in hexadecimal; any other file is copied as it is.
// 1 on success; 0 (after eNoSoftFont when the file doesn't open) on failure.
int DownLoadFont(QlPrinter *printer, const char *file, int kind, const char *alias);
// PCL: the soft font file after the escape that gives it `fontId`.  Kind 4
// is a path the application gave; others are looked for in "pclsoftfonts",
// with a ".TFM" or ".tfm" in the name cut there.
int PCL_DownLoadFont(QlPrinter *printer, const char *name, int kind, const char *alias, int fontId);
