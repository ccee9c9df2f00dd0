// The font front end: Xlib's fonts on a display, the driver's font
// entries on a printer.
#include "core/driver.h"
#include "gfx/gc.h"

XFontStruct *QlQueryFont(Display *handle, XID font) {
    if (QlIsDisplay(handle)) return XQueryFont(handle, font);
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return nullptr;
    _QlSetLocaleC();
    XFontStruct *fs = DriverSwitch[p->driverId]->QueryFont(p, font);
    _QlResetLocale();
    return fs;
}

XFontStruct *QlLoadQueryFont(Display *handle, const char *name) {
    if (QlIsDisplay(handle)) return XLoadQueryFont(handle, name);
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || !name) return nullptr;
    _QlSetLocaleC();
    Font id = DriverSwitch[p->driverId]->LoadFont(p, name);
    _QlResetLocale();
    return id ? QlQueryFont(handle, id) : nullptr;
}

// No font tables yet: a new GC goes without a font.
char *_QlTryToFindADefaultFont(QlPrinter *, const char *) { return nullptr; }
