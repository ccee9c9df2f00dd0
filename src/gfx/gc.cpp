// Graphics contexts: Xlib's on a display, QlGC records on a printer.
#include "core/qlint.h"

#include <cstdlib>

int QlFreeGC(Display *handle, GC gc) {
    if (QlIsDisplay(handle)) return XFreeGC(handle, gc);
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return 13;
    auto *g = reinterpret_cast<QlGC *>(gc);
    if (!g) {
        _QlError(wBadGC, "QlFreeGC");
        return 13;
    }
    std::free(g->clipRects);
    std::free(g->dashList);
    if (p->lastGC == g) p->lastGC = nullptr;
    if (p->defaultGC == g) p->defaultGC = nullptr;
    std::free(g);
    return 0;
}
