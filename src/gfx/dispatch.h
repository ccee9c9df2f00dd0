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

// The guard, then the GC: the printer and its GC in *g, or null after the
// report, with the call's result in *rc.
inline QlPrinter *GuardedGC(Display *handle, GC gc, const char *caller, int *rc, QlGC **g) {
    QlPrinter *p = Guarded(handle, caller);
    if (!p) {
        *rc = kBadValue;
        return nullptr;
    }
    if (!(*g = _QlPrinterGC(gc, caller))) {
        *rc = kBadGC;
        return nullptr;
    }
    return p;
}

// Guard, GC, then the slot inside the locale bracket.
template <auto Slot, typename... A>
int Draw(Display *handle, const char *caller, Drawable d, GC gc, A... args) {
    int rc;
    QlGC *g;
    QlPrinter *p = GuardedGC(handle, gc, caller, &rc, &g);
    if (!p) return rc;
    _QlSetLocaleC();
    rc = (DriverSwitch[p->driverId]->*Slot)(p, d, g, args...);
    _QlResetLocale();
    return rc;
}

}  // namespace ql
