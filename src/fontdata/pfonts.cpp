// Resident and soft fonts of a printer.
#include "fontdata/pfonts.h"

#include "drivers/ps/ps.h"

#include <cstring>

int CheckAvailFonts(QlPrinter *printer, const char *name) {
    auto *list = static_cast<ps::PSFontList *>(printer->ppdFonts);
    if (!list || !name) return 0;
    for (int i = 0; i < list->count; ++i) {
        if (list->names[i] && std::strcmp(list->names[i], name) == 0) {
            list->useCount[i]++;
            return 1;
        }
    }
    return 0;
}

// Soft font directories are not searched yet.
int CheckSoftFonts(const char *, int) { return 0; }
