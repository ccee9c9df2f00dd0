// The PostScript page device: what a printer's PPD (or, without one, the
// built-in table) says about media, trays, resolutions and duplex.
#include "drivers/ps/ps.h"

#include "config/printerinfo.h"
#include "core/out.h"
#include "port/kvo.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace ps {

const char *const PSPageSize[kBuiltinPages] = {"Letter", "Legal", "Executive", "A4",
                                               "Comm10", "Monarch", "DL",       "C5"};
const PSPageGeometry PSPageInfo[kBuiltinPages] = {
    {612, 792, 18, 19, 593, 774, 300}, {612, 1008, 18, 19, 593, 990, 300}, {522, 756, 18, 19, 501, 738, 300},
    {595, 842, 18, 19, 578, 824, 300}, {297, 684, 18, 19, 278, 666, 300},  {279, 540, 18, 19, 259, 522, 300},
    {312, 624, 18, 19, 294, 605, 300}, {459, 649, 18, 19, 440, 630, 300},
};

namespace {

const char *const PSAvailFonts[] = {
    "Courier",          "Courier-Oblique",       "Courier-Bold",          "Courier-BoldOblique",
    "Bookman-Light",    "Bookman-LightItalic",   "Bookman-Demi",          "Bookman-DemiItalic",
    "Helvetica",        "Helvetica-Oblique",     "Helvetica-Bold",        "Helvetica-BoldOblique",
    "NewCenturySchlbk-Bold", "NewCenturySchlbk-BoldItalic", "NewCenturySchlbk-Italic",
    "NewCenturySchlbk-Roman", "Symbol",          "Times-Bold",            "Times-BoldItalic",
    "Times-Italic",     "Times-Roman"};
constexpr int num_PSAvailFonts = sizeof PSAvailFonts / sizeof PSAvailFonts[0];

template <typename T>
T *zalloc(size_t n = 1) {
    return static_cast<T *>(std::calloc(n, sizeof(T)));
}

bool hasGuard(QlPrinter *p) { return p && p->magic == QL_PRINTER_MAGIC && p->driverId == 0 && p->pageData; }
bool hasPPD(QlPrinter *p) { return hasGuard(p) && p->ppdFile; }

int findKeyword(const QlPPDOptions *o, const char *name) {
    if (!o || !name) return -1;
    for (int i = 0; i < o->count; ++i)
        if (o->keywords[i] && std::strcmp(o->keywords[i], name) == 0) return i;
    return -1;
}

const char *valueOf(const QlPPDOptions *o, const char *name) {
    int i = findKeyword(o, name);
    return i >= 0 ? o->values[i] : nullptr;
}

// Sheet and imageable area of `name` from the PPD's tables, in points.
bool readPageValues(const PSPageData *d, const char *name, float (&v)[6]) {
    const char *dim = valueOf(d->paperDimensions, name);
    const char *area = valueOf(d->imageableAreas, name);
    return dim && area && std::sscanf(dim, "%f%f", &v[0], &v[1]) == 2 &&
           std::sscanf(area, "%f%f%f%f", &v[2], &v[3], &v[4], &v[5]) == 4;
}

void setSizes(PSPageGeometry *g, const float (&v)[6], int resolution) {
    int *f[6] = {&g->paperWidth, &g->paperHeight, &g->imageLeft, &g->imageBottom, &g->imageRight, &g->imageTop};
    for (int i = 0; i < 6; ++i) *f[i] = static_cast<int>(v[i] * resolution / 72.0);
}

QlPPDOptions *newPickOne(const char *deflt) {
    auto *o = zalloc<QlPPDOptions>();
    o->uiType = 1;
    o->defaultValue = _kvo_strdup(deflt);
    return o;
}

QlPPDOptions *AddManualFeed(QlPPDOptions *trays, QlPPDOptions *manualFeed) {
    if (!manualFeed) return trays;
    int t = -1;
    for (int i = 0; i < manualFeed->count; ++i)
        if (manualFeed->keywords[i] && !_kvo_strcasecmp(manualFeed->keywords[i], "True")) {
            t = i;
            break;
        }
    if (t < 0) return trays;
    if (!trays) trays = newPickOne("Manual");
    return _AddStringToOptionList(trays, "Manual", manualFeed->values[t]);
}

int firstNumber(const char *s, int fallback) {
    int v;
    return s && std::sscanf(s, "%d", &v) == 1 ? v : fallback;
}

void readCustomRange(QlPrinter *p, PSPageData *d) {
    char **v = PPDGetValues(1, p->ppdFile, p->ppdDir, "MaxMediaWidth", "CustomPageSize", nullptr);
    if (!v) return;
    unsigned long maxWidth;
    if (!v[0] || !v[1] || std::sscanf(v[0], "%lu", &maxWidth) != 1) {
        freeDString(v, 2);
        return;
    }
    auto *r = zalloc<PSCustomRange>();
    r->maxMediaWidth = maxWidth;
    r->customCode = v[1];
    std::free(v[0]);
    std::free(v);
    int found = 0;
    if (QlPPDOptions *params = PPDGetMultiples(p->ppdFile, p->ppdDir, "ParamCustomPageSize")) {
        static const char *const names[5] = {"Width", "Height", "WidthOffset", "HeightOffset", "Orientation"};
        int *ranges[5] = {r->width, r->height, r->widthOffset, r->heightOffset, r->orientation};
        for (int k = 0; k < 5; ++k) {
            const char *val = valueOf(params, names[k]);
            char type[64];
            if (val && std::sscanf(val, "%d %63s %d %d", &r->order[k], type, &ranges[k][0], &ranges[k][1]) == 4)
                ++found;
        }
        _QlFreeOptions(params);
    }
    r->valid = found == 5;
    d->customRange = r;
}

void addCustomPages(QlPrinter *p, PSPageData *d) {
    PSCustomRange *r = d->customRange;
    if (!r || !r->valid) return;
    for (QlCustomPage *c = p->customPages; c; c = c->next) {
        if (c->width < r->width[0] || c->width > r->width[1] || c->height < r->height[0] ||
            c->height > r->height[1])
            continue;
        std::string value = "CustomPage";
        for (int pos = 1; pos <= 5; ++pos) {
            if (r->order[2] == pos) value += ql::format(" %g", 0.0);
            if (r->order[0] == pos) value += ql::format(" %g", c->width);
            if (r->order[3] == pos) value += ql::format(" %g", 0.0);
            if (r->order[1] == pos) value += ql::format(" %g", c->height);
            if (r->order[4] == pos) value += ql::format(" %d", r->orientation[0]);
        }
        value += " ";
        value += r->customCode;
        d->pageSizes = _AddStringToOptionList(d->pageSizes, c->name, value.c_str());
        d->paperDimensions =
            _AddStringToOptionList(d->paperDimensions, c->name, ql::format("%g %g", c->width, c->height).c_str());
        d->imageableAreas = _AddStringToOptionList(
            d->imageableAreas, c->name, ql::format("%g %g %g %g", c->left, c->bottom, c->right, c->top).c_str());
    }
}

// A "JCLResolution" group whose default is not a number takes the default
// of "Resolution", and loses its first keyword that is not a number.
void cleanJCLResolution(QlPPDOptions *jcl, const QlPPDOptions *res) {
    if (!jcl) return;
    int n;
    if (jcl->defaultValue && std::sscanf(jcl->defaultValue, "%d", &n) == 1) return;
    if (res && res->defaultValue) {
        std::free(jcl->defaultValue);
        jcl->defaultValue = _kvo_strdup(res->defaultValue);
    }
    for (int i = 0; i < jcl->count; ++i) {
        if (jcl->keywords[i] && std::sscanf(jcl->keywords[i], "%d", &n) == 1) continue;
        std::free(jcl->keywords[i]);
        std::free(jcl->values[i]);
        for (int j = i + 1; j < jcl->count; ++j) {
            jcl->keywords[j - 1] = jcl->keywords[j];
            jcl->values[j - 1] = jcl->values[j];
        }
        --jcl->count;
        break;
    }
}

// Makes the default of `o` one of its keywords, the first if need be; gives
// the default's value.
const char *settleDefault(QlPPDOptions *o) {
    if (!o || o->count == 0) return nullptr;
    int i = findKeyword(o, o->defaultValue);
    if (i < 0) {
        std::free(o->defaultValue);
        o->defaultValue = _kvo_strdup(o->keywords[0]);
        i = 0;
    }
    return o->values[i];
}

int pageReadBuiltin(QlPrinter *p) {
    auto *d = zalloc<PSPageData>();
    auto *g = zalloc<PSPageGeometry>();
    auto *fonts = zalloc<PSFontList>();
    *g = PSPageInfo[0];
    QlPPDOptions *sizes = newPickOne("Letter");
    sizes->count = kBuiltinPages;
    sizes->keywords = zalloc<char *>(kBuiltinPages);
    sizes->values = zalloc<char *>(kBuiltinPages);
    for (int i = 0; i < kBuiltinPages; ++i) {
        sizes->keywords[i] = _kvo_strdup(PSPageSize[i]);
        sizes->values[i] = _kvo_strdup("");
    }
    d->pageSizes = sizes;
    fonts->count = num_PSAvailFonts;
    fonts->names = zalloc<char *>(num_PSAvailFonts);
    fonts->useCount = zalloc<int>(num_PSAvailFonts);
    for (int i = 0; i < num_PSAvailFonts; ++i) fonts->names[i] = _kvo_strdup(PSAvailFonts[i]);
    fonts->defaultFont = _kvo_strdup(PSAvailFonts[0]);
    p->ppdFonts = fonts;
    p->psPage = g;
    p->pageData = d;
    const float v[6] = {float(g->paperWidth), float(g->paperHeight), float(g->imageLeft),
                        float(g->imageBottom), float(g->imageRight), float(g->imageTop)};
    setSizes(g, v, g->resolution);
    return 1;
}

int pageReadPPD(QlPrinter *p) {
    auto *d = zalloc<PSPageData>();
    auto *g = zalloc<PSPageGeometry>();
    d->selectedResolution = -1;
    p->pageData = d;
    p->psPage = g;

    enum { kPageSize, kImageableArea, kPageRegion, kPaperDimension, kInputSlot, kResolution, kDuplex,
           kJCLResolution, kManualFeed, kGroups };
    static const char *const keys[kGroups] = {"PageSize",   "ImageableArea", "PageRegion",
                                              "PaperDimension", "InputSlot", "Resolution",
                                              "Duplex",     "JCLResolution", "ManualFeed"};
    QlPPDOptions *group[kGroups] = {};
    if (QlPPDOptions **opts = PPDGetOptions(1, p->ppdFile, p->ppdDir, keys[0], keys[1], keys[2], keys[3], keys[4],
                                            keys[5], keys[6], keys[7], keys[8], nullptr)) {
        for (int i = 0; i < kGroups; ++i) group[i] = opts[i];
        std::free(opts);
    }
    for (int i = 0; i < kManualFeed; ++i)
        if (!group[i]) group[i] = PPDGetMultiples(p->ppdFile, p->ppdDir, keys[i]);

    auto *fonts = zalloc<PSFontList>();
    if (QlPPDOptions *f = PPDGetMultiples(p->ppdFile, p->ppdDir, "Font")) {
        fonts->count = f->count;
        fonts->defaultFont = f->defaultValue;
        fonts->names = f->keywords;
        for (int i = 0; i < f->count; ++i) std::free(f->values[i]);
        std::free(f->values);
        std::free(f->query);
        std::free(f->order);
        if (f->orderSet && f->section) {
            std::free(f->section[0]);
            std::free(f->section);
        }
        std::free(f);
        fonts->useCount = zalloc<int>(fonts->count > 0 ? fonts->count : 1);
    }
    p->ppdFonts = fonts;

    d->pageSizes = group[kPageSize];
    d->paperDimensions = group[kPaperDimension];
    d->imageableAreas = group[kImageableArea];
    readCustomRange(p, d);
    addCustomPages(p, d);
    group[kPageSize] = d->pageSizes;
    group[kPaperDimension] = d->paperDimensions;
    group[kImageableArea] = d->imageableAreas;

    cleanJCLResolution(group[kJCLResolution], group[kResolution]);
    QlPPDOptions *res = group[kResolution], *jcl = group[kJCLResolution];
    if (res && res->count == 0 && jcl && jcl->count > 0) {
        d->resolutions = jcl;
        _QlFreeOptions(res);
    } else {
        d->resolutions = res;
        _QlFreeOptions(jcl);
    }
    d->pageRegions = group[kPageRegion];
    d->duplexOptions = group[kDuplex];
    d->manualFeed = group[kManualFeed];
    d->trays = AddManualFeed(group[kInputSlot], group[kManualFeed]);

    if (char **v = PPDGetValues(1, p->ppdFile, p->ppdDir, "Product", "Model", "LanguageLevel", "PJLanguage",
                                "ColorDevice", "Protocols", nullptr)) {
        d->product = v[0];
        d->modelName = v[1];
        int level = firstNumber(v[2], 1);
        if (level == 1 || level == 2) p->level = level;
        if (!v[4] || _kvo_strcasecmp(v[4], "false") != 0) p->flags |= 1;
        else p->flags &= ~1u;
        d->pjl = (v[3] && !_kvo_strcasecmp(v[3], "True")) || (v[5] && std::strstr(v[5], "PJL "));
        for (int i = 2; i < 6; ++i) std::free(v[i]);
        std::free(v);
    }

    if (!d->paperDimensions || !d->imageableAreas || !d->paperDimensions->defaultValue ||
        !d->imageableAreas->defaultValue || d->paperDimensions->count == 0 || d->imageableAreas->count == 0) {
        _QlError(ePPDPaper, "PDPageRead");
        return 0;
    }
    if (d->pageSizes && d->pageSizes->count > 0 && findKeyword(d->pageSizes, d->pageSizes->defaultValue) < 0) {
        std::free(d->pageSizes->defaultValue);
        d->pageSizes->defaultValue = _kvo_strdup(d->pageSizes->keywords[0]);
    }
    float v[6] = {};
    const char *dim = settleDefault(d->paperDimensions);
    const char *area = settleDefault(d->imageableAreas);
    if (!dim || std::sscanf(dim, "%f%f", &v[0], &v[1]) != 2 ||
        std::sscanf(area ? area : "", "%f%f%f%f", &v[2], &v[3], &v[4], &v[5]) != 4) {
        _QlError(ePPDPaper, "PDPageRead");
        return 0;
    }
    g->resolution = d->resolutions ? firstNumber(d->resolutions->defaultValue, 300) : 300;
    if (g->resolution <= 0) g->resolution = 300;
    setSizes(g, v, g->resolution);
    return 1;
}

void freeFontList(PSFontList *f) {
    if (!f) return;
    for (int i = 0; i < f->count; ++i) std::free(f->names[i]);
    std::free(f->names);
    std::free(f->defaultFont);
    std::free(f->useCount);
    std::free(f);
}

char **listOf(QlPPDOptions *o, int *count) {
    if (o && o->count > 0) {
        if (count) *count = o->count;
        return o->keywords;
    }
    if (o && o->defaultValue) {
        if (count) *count = 1;
        return &o->defaultValue;
    }
    if (count) *count = 0;
    return nullptr;
}

bool listed(char **list, int n, const char *name) {
    for (int i = 0; name && i < n; ++i)
        if (list[i] && std::strcmp(list[i], name) == 0) return true;
    return false;
}

// Selects `name` in `o` (a keyword, or the default): a copy goes to *slot.
bool selectOption(QlPPDOptions *o, const char *name, char **slot) {
    if (!o || !name) return false;
    if (findKeyword(o, name) < 0 && !(o->defaultValue && std::strcmp(o->defaultValue, name) == 0)) return false;
    std::free(*slot);
    *slot = _kvo_strdup(name);
    return true;
}

// --- Slots ---

char **ListPageSize(QlPrinter *p, int *count) {
    if (count) *count = 0;
    if (!hasGuard(p) || !pageData(p)->pageSizes) return nullptr;
    if (count) *count = pageData(p)->pageSizes->count;
    return pageData(p)->pageSizes->keywords;
}

char **ListPaperTrays(QlPrinter *p, int *count) {
    if (!hasPPD(p)) {
        if (count) *count = 0;
        return nullptr;
    }
    return listOf(pageData(p)->trays, count);
}

int ListResolutions(QlPrinter *p, int **out) {
    if (out) *out = nullptr;
    if (!hasGuard(p)) return 0;
    QlPPDOptions *r = pageData(p)->resolutions;
    if (!p->ppdFile || !r) {
        if (out && (*out = zalloc<int>())) **out = 300;
        return 1;
    }
    int n = r->count > 0 ? r->count : (r->defaultValue ? 1 : 0);
    if (n == 0) return 0;
    int *v = zalloc<int>(n);
    if (!v) return 0;
    for (int i = 0; i < n; ++i) v[i] = firstNumber(r->count > 0 ? r->keywords[i] : r->defaultValue, 0);
    if (out) *out = v;
    else std::free(v);
    return n;
}

int QueryPageSize(QlPrinter *p, const char *name, PSPageGeometry *out) {
    if (!out) return 0;
    std::memset(out, 0, sizeof *out);
    if (!hasGuard(p)) return 0;
    PSPageData *d = pageData(p);
    PSPageGeometry row{};
    if (!p->ppdFile) {
        int i = findKeyword(d->pageSizes, name);
        if (i < 0 || i >= kBuiltinPages) return 0;
        const PSPageGeometry &t = PSPageInfo[i];
        const float v[6] = {float(t.paperWidth),  float(t.paperHeight), float(t.imageLeft),
                            float(t.imageBottom), float(t.imageRight),  float(t.imageTop)};
        setSizes(&row, v, t.resolution);
        row.resolution = t.resolution;
    } else {
        float v[6];
        if (!readPageValues(d, name, v)) return 0;
        row.resolution = geometry(p)->resolution;
        setSizes(&row, v, row.resolution);
    }
    if (p->orientation == 1) {
        *out = row;
    } else {
        out->paperWidth = row.paperHeight;
        out->paperHeight = row.paperWidth;
        out->imageLeft = out->paperWidth - row.imageTop;
        out->imageBottom = row.imageLeft;
        out->imageRight = out->paperWidth - row.imageBottom;
        out->imageTop = row.imageRight;
        out->resolution = row.resolution;
    }
    return 1;
}

int QueryResolution(QlPrinter *p, int r) {
    int *list = nullptr;
    int n = ListResolutions(p, &list);
    bool found = false;
    for (int i = 0; i < n; ++i) found = found || list[i] == r;
    std::free(list);
    return found;
}

int QueryPaperTray(QlPrinter *p, const char *name) {
    int n;
    char **list = ListPaperTrays(p, &n);
    return listed(list, n, name);
}

char *GetPrinterProduct(QlPrinter *p) { return hasGuard(p) ? pageData(p)->product : nullptr; }

int GetResolution(QlPrinter *p) {
    if (!hasGuard(p)) return -1;
    PSPageData *d = pageData(p);
    if (!p->ppdFile) return 300;
    if (d->selectedResolution != -1) return d->selectedResolution;
    return d->resolutions ? firstNumber(d->resolutions->defaultValue, 300) : 300;
}

char *GetPaperTray(QlPrinter *p) {
    if (!hasPPD(p)) return nullptr;
    PSPageData *d = pageData(p);
    return d->selectedTray ? d->selectedTray : (d->trays ? d->trays->defaultValue : nullptr);
}

char *GetPageSize(QlPrinter *p) {
    if (!hasGuard(p)) return nullptr;
    PSPageData *d = pageData(p);
    return d->selectedPageSize ? d->selectedPageSize : (d->pageSizes ? d->pageSizes->defaultValue : nullptr);
}

// After a new resolution: the sheet of the present page size, in dots.
int ResetPageInfo(QlPrinter *p) {
    PSPageData *d = pageData(p);
    float v[6];
    if (!d || !readPageValues(d, GetPageSize(p), v)) return 0;
    setSizes(geometry(p), v, geometry(p)->resolution);
    return 1;
}

int SetResolution(QlPrinter *p, int r) {
    if (!hasPPD(p)) return 0;
    PSPageData *d = pageData(p);
    QlPPDOptions *res = d->resolutions;
    if (!res) return 0;
    if (res->count > 0) {
        bool known = false;
        for (int i = 0; i < res->count && !known; ++i) known = firstNumber(res->keywords[i], -1) == r;
        if (!known) return 0;
        if (d->selectedResolution == r) return 1;
        d->selectedResolution = r;
        geometry(p)->resolution = r;
        ResetPageInfo(p);
        return 1;
    }
    if (firstNumber(res->defaultValue, -1) != r) _QlError(wResolution, "SetResolution", r);
    return 0;
}

int SetPaperTray(QlPrinter *p, const char *name) {
    if (!hasPPD(p)) return 0;
    if (selectOption(pageData(p)->trays, name, &pageData(p)->selectedTray)) return 1;
    _QlError(wInvalidTray, "SetPaperTray", name);
    return 0;
}

int SetPageSize(QlPrinter *p, const char *name) {
    if (!hasGuard(p)) return 0;
    PSPageData *d = pageData(p);
    if (findKeyword(d->pageSizes, name) >= 0) {
        std::free(d->selectedPageSize);
        d->selectedPageSize = _kvo_strdup(name);
        p->pageSizeChanged = 1;
        return 1;
    }
    _QlError(wInvalidPageS, "SetPageSize", name);
    return 0;
}

char **ListAvailableFonts(QlPrinter *p, int *count) {
    if (count) *count = 0;
    if (!hasPPD(p) || !p->ppdFonts) return nullptr;
    auto *f = static_cast<PSFontList *>(p->ppdFonts);
    if (count) *count = f->count;
    return f->names;
}

char *GetDefaultFont(QlPrinter *p) {
    return hasPPD(p) && p->ppdFonts ? static_cast<PSFontList *>(p->ppdFonts)->defaultFont : nullptr;
}

char **ListDuplexOpts(QlPrinter *p, int *count) {
    if (!hasPPD(p)) {
        if (count) *count = 0;
        return nullptr;
    }
    return listOf(pageData(p)->duplexOptions, count);
}

int QueryDuplexOpt(QlPrinter *p, const char *name) {
    int n;
    char **list = ListDuplexOpts(p, &n);
    return listed(list, n, name);
}

char *GetDuplexOpt(QlPrinter *p) {
    if (!hasPPD(p)) return nullptr;
    PSPageData *d = pageData(p);
    return d->selectedDuplex ? d->selectedDuplex : (d->duplexOptions ? d->duplexOptions->defaultValue : nullptr);
}

int SetDuplexOpt(QlPrinter *p, const char *name) {
    if (!hasPPD(p)) return 0;
    if (selectOption(pageData(p)->duplexOptions, name, &pageData(p)->selectedDuplex)) return 1;
    _QlError(wInvalidDuplex, "SetDuplexOpt", name);
    return 0;
}

}  // namespace

int PDPageRead(QlPrinter *p) { return p->ppdFile ? pageReadPPD(p) : pageReadBuiltin(p); }

char *GetPrinterModel(QlPrinter *p) { return hasGuard(p) ? pageData(p)->modelName : nullptr; }

void OrientationChanged(QlPrinter *p) {
    if (p->driverId == 0 && p->pageData) pageData(p)->orientationChanged = 1;
}

int ReadSelectedPage(QlPrinter *p) {
    PSPageData *d = pageData(p);
    PSPageGeometry *g = geometry(p);
    if (!p->ppdFile) {
        int i = findKeyword(d->pageSizes, d->selectedPageSize);
        if (i < 0 || i >= kBuiltinPages) return 0;
        const PSPageGeometry &t = PSPageInfo[i];
        const float v[6] = {float(t.paperWidth),  float(t.paperHeight), float(t.imageLeft),
                            float(t.imageBottom), float(t.imageRight),  float(t.imageTop)};
        setSizes(g, v, t.resolution);
        g->resolution = t.resolution;
        return 1;
    }
    float v[6];
    bool ok = d->selectedPageSize && readPageValues(d, d->selectedPageSize, v);
    if (d->selectedResolution != -1 && d->selectedResolution > 0) g->resolution = d->selectedResolution;
    // A size the PPD's tables don't hold keeps the previous sheet.
    if (ok) setSizes(g, v, g->resolution);
    return ok;
}

void PageSizeClip(QlPrinter *p) {
    if (!p->ppdFile && !p->pageSizeChanged) return;
    const double k = 72.0 / geometry(p)->resolution;
    const float w = static_cast<float>(p->width * p->divisorX * k / p->scaleX);
    const float h = static_cast<float>(p->height * p->divisorY * k / p->scaleY);
    ql::put(p->stream, "0 0 t 0 %.2f lo %.2f %.2f lo %.2f 0 lo cp clip np\n", h, w, h, w);
}

void FreePageData(QlPrinter *p) {
    if (auto *d = pageData(p)) {
        QlPPDOptions *groups[] = {d->resolutions, d->imageableAreas, d->pageRegions, d->pageSizes,
                                  d->paperDimensions, d->trays, d->manualFeed, d->duplexOptions};
        for (QlPPDOptions *o : groups) _QlFreeOptions(o);
        std::free(d->selectedPageSize);
        std::free(d->selectedTray);
        std::free(d->selectedDuplex);
        std::free(d->product);
        std::free(d->modelName);
        if (d->customRange) std::free(d->customRange->customCode);
        std::free(d->customRange);
        std::free(d);
        p->pageData = nullptr;
    }
    std::free(p->psPage);
    p->psPage = nullptr;
    freeFontList(static_cast<PSFontList *>(p->ppdFonts));
    p->ppdFonts = nullptr;
}

// Stamps a bitmap through imagemask in black, leaving the page where the
// mask doesn't paint: with invert the set bits paint, without it the clear
// ones.
int PutBitmapTrans(QlPrinter *p, XImage *bitmap, int invert, int sx, int sy, int dx, int dy, unsigned width,
                   unsigned height) {
    if (!bitmap) return 0;
    // An empty mask would leave its data unread in the file.
    if (width == 0 || height == 0) return 1;
    const int w = static_cast<int>(std::min(width, 1U << 24)), h = static_cast<int>(std::min(height, 1U << 24));
    Display *handle = reinterpret_cast<Display *>(p);
    GC gc = QlCreateGC(handle, 0, 0, nullptr);
    PSCheckPage(p);
    FILE *s = p->stream;
    if (p->debugComments) ql::write(s, "%% PutBitmapTrans\n");
    const double k = 72.0 / geometry(p)->resolution;
    ql::put(s, "gs\n%.2f %.2f sl\n", k, k);
    ql::put(s, "%d %d tl\n", dx, dy);
    ql::write(s, "0 setgray\n");
    RenewBoundingBox(p, dx * k, dy * k, (dx + static_cast<double>(w)) * k, (dy + static_cast<double>(h)) * k);
    ql::put(s, invert ? "%d %d true [1 0 0 1 0 0]\n" : "%d %d false [1 0 0 1 0 0]\n", w, h);
    WriteMaskSource(p, CalculateEightFactor(w));
    ql::write(s, "imagemask\n");
    DumpBitmap(p, reinterpret_cast<QlGC *>(gc), s, bitmap, 0, sx, sy, w, h, 0, p->bitmapCompression);
    ql::write(s, "gr\n");
    RenewBoundingBox(p, dx * k, dy * k, (dx + static_cast<double>(w)) * k, (dy + static_cast<double>(h)) * k);
    if (gc) QlFreeGC(handle, gc);
    return 1;
}

const QlPageDriver PSPDDriver = {
    .PageRead = PDPageRead,
    .Set = PDSet,
    .ListPageSize = ListPageSize,
    .ListPaperTrays = ListPaperTrays,
    .ListResolutions = ListResolutions,
    .QueryPageSize = QueryPageSize,
    .QueryResolution = QueryResolution,
    .QueryPaperTray = QueryPaperTray,
    .GetPrinterProduct = GetPrinterProduct,
    .GetPrinterModel = GetPrinterModel,
    .GetResolution = GetResolution,
    .GetPaperTray = GetPaperTray,
    .GetPageSize = GetPageSize,
    .SetResolution = SetResolution,
    .SetPaperTray = SetPaperTray,
    .SetPageSize = SetPageSize,
    .ListAvailableFonts = ListAvailableFonts,
    .GetDefaultFont = GetDefaultFont,
    .StartDoc = StartDoc,
    .EndDoc = EndDoc,
    .StartPage = StartPage,
    .EndPage = EndPage,
    .AbortDoc = AbortDoc,
    .PageEject = PageEject,
    .PutBitmapTrans = PutBitmapTrans,
    .ListDuplexOpts = ListDuplexOpts,
    .QueryDuplexOpt = QueryDuplexOpt,
    .GetDuplexOpt = GetDuplexOpt,
    .SetDuplexOpt = SetDuplexOpt,
};

}  // namespace ps
