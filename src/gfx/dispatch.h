// How a drawing call reaches a printer: the document guard, the GC check,
// then the driver's slot inside the locale bracket.
#pragma once

#include "core/driver.h"
#include "gfx/gc.h"

namespace ql {

inline constexpr int kBadValue = 2, kBadGC = 13;

// The printer behind a handle that is not a display, with the guard of
// every draw call passed; null after the guard's report.
inline QlPrinter *Guarded(Display *handle, const char *caller) {
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || !_QlForceStartDoc(p, caller)) return nullptr;
    return p;
}

// Guard, GC, then the slot inside the locale bracket.
template <auto Slot, typename... A>
int Draw(Display *handle, const char *caller, Drawable d, GC gc, A... args) {
    QlPrinter *p = Guarded(handle, caller);
    if (!p) return kBadValue;
    QlGC *g = _QlPrinterGC(gc, caller);
    if (!g) return kBadGC;
    _QlSetLocaleC();
    int rc = (DriverSwitch[p->driverId]->*Slot)(p, d, g, args...);
    _QlResetLocale();
    return rc;
}

}  // namespace ql
