// The font front end: Xlib's fonts on a display, the driver's font entries
// on a printer.  A printer's font id is the address of its entry, so every
// id that comes from the application is looked up in the printer's list
// before the driver reads it.
#include "text/font.h"

#include "fontdata/pfonts2.h"
#include "gfx/gc.h"
#include "port/kvo.h"

#include <X11/Xatom.h>

#include <cstdlib>
#include <cstring>
#include <string>

struct QlFontCacheEntry {
    int refCount;
    long key;
    char name[132];
    XID value;
};
QlFontCacheEntry QlFontCache[32];
int QlFontCacheCount = 0;

namespace {


// The entry behind a font id of this printer, or null for an id the
// printer never gave out.
QlFontRec *entryOf(QlPrinter *p, XID id) {
    if (!p || !id) return nullptr;
    for (QlFontRec *f = p->fonts; f; f = f->next) {
        for (QlFontRec *s = f; s; s = s->scaled)
            if (reinterpret_cast<XID>(s) == id) return s;
    }
    return nullptr;
}

const QlDrawDriver *driverOf(QlPrinter *p) { return DriverSwitch[p->driverId]; }

}  // namespace

bool _QlIsPrinterFont(QlPrinter *p, XID id) { return entryOf(p, id) != nullptr; }

XID mrCheckFontCache(const char *name, long key) {
    for (int i = 0; name && i < QlFontCacheCount; ++i) {
        QlFontCacheEntry &e = QlFontCache[i];
        if (e.refCount > 0 && e.key == key && std::strcmp(e.name, name) == 0) {
            ++e.refCount;
            return e.value;
        }
    }
    return 0;
}

void mrAddFontToCache(const char *name, long key, XID value) {
    if (!name || QlFontCacheCount >= 32) return;
    QlFontCacheEntry &e = QlFontCache[QlFontCacheCount++];
    e.refCount = 1;
    e.key = key;
    std::snprintf(e.name, sizeof e.name, "%s", name);
    e.value = value;
}

void mrQlCacheFreeFont(XID value) {
    for (int i = 0; i < QlFontCacheCount; ++i)
        if (QlFontCache[i].value == value) QlFontCache[i].refCount = 0;
}

Font QlLoadFont(Display *handle, const char *name) {
    if (QlIsDisplay(handle)) return XLoadFont(handle, name);
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || !name) return 0;
    return driverOf(p)->LoadFont(p, ql::Lowered(name).c_str());
}

int QlUnloadFont(Display *handle, Font font) {
    if (QlIsDisplay(handle)) return XUnloadFont(handle, font);
    QlPrinter *p = _QlAsPrinter(handle);
    return p ? driverOf(p)->UnloadFont(p, font) : 0;
}

XFontStruct *QlQueryFont(Display *handle, XID font) {
    if (QlIsDisplay(handle)) return XQueryFont(handle, font);
    QlPrinter *p = _QlAsPrinter(handle);
    if (!entryOf(p, font)) return nullptr;
    return driverOf(p)->QueryFont(p, font);
}

XFontStruct *QlLoadQueryFont(Display *handle, const char *name) {
    if (QlIsDisplay(handle)) return XLoadQueryFont(handle, name);
    Font id = QlLoadFont(handle, name);
    return id ? QlQueryFont(handle, id) : nullptr;
}

int QlFreeFont(Display *handle, XFontStruct *font) {
    if (QlIsDisplay(handle)) return XFreeFont(handle, font);
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return 0;
    if (font && !entryOf(p, font->fid)) return 0;
    return driverOf(p)->FreeFont(p, font);
}

char **QlListFonts(Display *handle, const char *pattern, int maximum, int *count) {
    if (QlIsDisplay(handle)) return XListFonts(handle, pattern, maximum, count);
    if (count) *count = 0;
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || !pattern) return nullptr;
    return driverOf(p)->ListFonts(p, ql::Lowered(pattern).c_str(), maximum, count);
}

int QlFreeFontNames(char **list) {
    // Printer lists are laid out as Xlib's: one block behind a first byte.
    if (list) XFreeFontNames(list);
    return 0;
}

int QlRegisterFont(Display *handle, XPointer appData, const char *xlfd, QlFontLoaderProc loader) {
    QlPrinter *p = _QlAsPrinter(handle);
    return p ? driverOf(p)->RegisterFont(p, appData, xlfd, loader) : 0;
}

int QlChangeRegisteredFont(Display *handle, XFontStruct *font, XPointer appData, QlFontLoaderProc loader) {
    QlPrinter *p = _QlAsPrinter(handle);
    QlFontRec *f = p && font ? entryOf(p, font->fid) : nullptr;
    if (!f) return 0;
    f->appData = appData;
    if (loader) f->appCallback = loader;
    return 1;
}

int QlUnregisterFont(Display *handle, XFontStruct *font) {
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || !font || !font->fid) return 0;
    auto *target = reinterpret_cast<QlFontRec *>(font->fid);
    for (QlFontRec *f = p->fonts; f; f = f->next) {
        for (QlFontRec *prev = f; prev->scaled; prev = prev->scaled) {
            if (prev->scaled != target) continue;
            prev->scaled = target->scaled;
            driverOf(p)->DestroyRegisteredFont(p, target, 0);
            return 1;
        }
        if (f == target) {
            // The entry behind the match is the one taken out; the match
            // itself stays listed.  A match at the end has no follower.
            QlFontRec *follower = f->next;
            if (!follower) return 0;
            f->next = follower->next;
            driverOf(p)->DestroyRegisteredFont(p, follower, 1);
            return 1;
        }
    }
    return 0;
}

int QlUnregisterAllFonts(Display *handle) {
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return 0;
    QlFontRec *prev = nullptr;
    QlFontRec *f = p->fonts;
    while (f) {
        QlFontRec *next = f->next;
        if (*f->fontType == 4) {
            if (prev) prev->next = next;
            else p->fonts = next;
            driverOf(p)->DestroyRegisteredFont(p, f, 1);
        } else {
            prev = f;
        }
        f = next;
    }
    return 1;
}

int QlIsAppSoftFont(Display *handle, XFontStruct *font) {
    QlPrinter *p = _QlAsPrinter(handle);
    QlFontRec *f = p && font ? entryOf(p, font->fid) : nullptr;
    return f && *f->fontType == 4 ? 1 : 0;
}

int QlExcludeAppSoftFontsFromList(Display *printer, int flag) {
    QlPrinter *p = _QlAsPrinter(printer);
    if (!p) return 0;
    p->excludeAppFonts = flag;
    return 1;
}

char *QlGetXLFDName(Display *handle, XFontStruct *font) {
    if (!font) return nullptr;
    if (QlIsDisplay(handle)) {
        for (int i = 0; i < font->n_properties; ++i) {
            if (font->properties[i].name != XA_FONT) continue;
            char *name = XGetAtomName(handle, font->properties[i].card32);
            if (!name) continue;
            char *copy = _kvo_strdup(name);
            XFree(name);
            return copy;
        }
        return nullptr;
    }
    QlPrinter *p = _QlAsPrinter(handle);
    QlFontRec *f = entryOf(p, font->fid);
    if (!f) return nullptr;
    char name[256];
    std::snprintf(name, sizeof name, "%s", f->xlfdName);

    int average = 0;
    if (FontGetAWidth(name) < 1 && font->per_char) {
        const long cells = (static_cast<long>(font->max_char_or_byte2) - font->min_char_or_byte2 + 1) *
                           (static_cast<long>(font->max_byte1) - font->min_byte1 + 1);
        long sum = 0, n = 0;
        for (long i = 0; i < cells; ++i) {
            sum += font->per_char[i].width;
            n += font->per_char[i].width != 0;
        }
        average = n ? static_cast<int>(sum / n) : 0;
    }
    int pixel = -1, point = -1;
    FontGetPPSize(name, &pixel, &point);
    if (pixel >= 1 && point >= 1) return _kvo_strdup(name);
    if (pixel < 1 && point < 1) {
        pixel = static_cast<int>(f->pixelSize);
        point = static_cast<int>(f->pointSize + 0.5);
    } else if (pixel >= 1) {
        point = static_cast<int>(f->pointSize + 0.5);
    } else {
        pixel = static_cast<int>(point * p->divisorX * QlGetResolution(handle) / 720 + 0.5);
    }
    char *result = FontSetPPASize(name, pixel, point, average);
    return result ? result : _kvo_strdup(name);
}

char *_QlTryToFindADefaultFont(QlPrinter *p, const char *pattern) {
    Display *handle = reinterpret_cast<Display *>(p);
    auto found = [&](const char *pat, bool givePattern) -> char * {
        int count = 0;
        char **list = QlListFonts(handle, pat, 100, &count);
        char *result = nullptr;
        if (list && count > 0) result = _kvo_strdup(givePattern ? pat : list[0]);
        QlFreeFontNames(list);
        return result;
    };
    if (pattern)
        if (char *r = found(pattern, true)) return r;
    for (const char *pat : {"-*-helvetica-*", "-*-courier-*", "-*-times-*", "-*-cg times-*", "*"})
        if (char *r = found(pat, false)) return r;
    return nullptr;
}

char *QlChangeFontSize(const char *xlfd, int pixelSize) { return _QlFontSetPixelSize(xlfd, pixelSize); }
