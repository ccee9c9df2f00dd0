// The PostScript driver: opening a printer and the frame of a document
// (header, prolog, setup, pages, trailer, PJL wrapping).
#include "drivers/ps/ps.h"

#include "config/printerinfo.h"
#include "core/out.h"
#include "fontdata/pfonts.h"
#include "text/font.h"
#include "gfx/colour.h"
#include "port/kvo.h"

#include <X11/Xutil.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace ps {
namespace {

using ql::put;
using ql::write;

constexpr unsigned long kAllDirty = ~0UL;

// Sets the colour table up: 256 zeroed cells, 0 black and 1 white.
void makeColourTable(QlPrinter *p) {
    auto *cells = static_cast<QlColorCell *>(std::calloc(256, sizeof(QlColorCell)));
    p->numCells = 256;
    p->cells = cells;
    if (!cells) return;
    cells[0].allocated = 1;
    cells[1].allocated = 1;
    cells[1].red = cells[1].green = cells[1].blue = 65280;
}

// Undoes what OpenPrinter made.
void release(QlPrinter *p) {
    CleanPrinter(p);
    std::free(p->cells);
    p->cells = nullptr;
    _freePrinterInfo(p->info);
    p->info = nullptr;
}

std::string configFile(const char *name) {
    const char *dir = QlConfigDir();
    return ql::PathFromComponents(dir ? dir : "/usr/lib/Ql", nullptr, name);
}

// One font per line: PostScript name, XLFD pattern.  A font that is
// neither resident nor a soft font at hand is left out; the others keep
// the file's order.
void readFontList(QlPrinter *p, FILE *f) {
    QlFontRec **tail = &p->fonts;
    while (*tail) tail = &(*tail)->next;
    char line[128];
    while (std::fgets(line, sizeof line, f)) {
        if (line[0] == '#') continue;
        size_t n = std::strlen(line);
        if (n) line[n - 1] = '\0';
        char *save = nullptr;
        char *name = strtok_r(line, ",", &save);
        char *pattern = strtok_r(nullptr, ",", &save);
        while (name && (*name == ' ' || *name == '\t')) ++name;
        while (pattern && (*pattern == ' ' || *pattern == '\t')) ++pattern;
        if (!name || !*name || !pattern || !*pattern) continue;
        ql::LowerInPlace(pattern);
        int kind;
        if (CheckAvailFonts(p, name)) kind = 0;
        else if (CheckSoftFonts(name, 0)) kind = 1;
        else continue;
        if (QlFontRec *e = MakePSFontEntry(p, pattern, name, kind)) {
            *tail = e;
            tail = &e->next;
        }
    }
}

// The page frame: maps the body's points, origin at the top left of the
// printable area and y down, onto the sheet.
void writeFrame(QlPrinter *p, bool checkPage) {
    const double res = geometry(p)->resolution;
    const double sx = p->scaleX / p->divisorX, sy = p->scaleY / p->divisorY;
    if (p->orientation == 2) {
        write(p->stream, "90 rotate\n");
        if (checkPage) {
            put(p->stream, "%.2f %.2f sl\n", p->scaleY / p->divisorY, -(p->scaleX / p->divisorX));
            put(p->stream, "%.2f %.2f tl\n", p->originY * 72 * p->divisorY / res / p->scaleX,
                p->originY * 72 * p->divisorX / res / p->scaleX);
            return;
        }
        put(p->stream, "%.2f %.2f sl\n", sx, -sy);
        put(p->stream, "%.2f %.2f tl\n", p->originX * 72 * p->divisorX / res / p->scaleX,
            p->originY * 72 * p->divisorY / res / p->scaleY);
        return;
    }
    put(p->stream, "%.2f %.2f sl\n", sx, -sy);
    put(p->stream, "%.2f %.2f tl\n", p->originX * 72 * p->divisorX / res / p->scaleX,
        -p->originY * 72 * p->divisorY / res / p->scaleY);
}

bool isManual(const char *tray) {
    return tray && (!_kvo_strcasecmp(tray, "Manual") || !_kvo_strcasecmp(tray, "ManualFeed") ||
                    !_kvo_strcasecmp(tray, "Manual Feed"));
}

void feature(QlPrinter *p, const std::string &begin, const char *code) {
    write(p->stream, begin);
    put(p->stream, "  %s\n", code);
    write(p->stream, "%%EndFeature\n");
}

void writePageSizeFeature(QlPrinter *p, PSPageData *d) {
    const char *name = d->selectedPageSize;
    if (QlPPDOptions *sizes = d->pageSizes) {
        for (int i = 0; i < sizes->count; ++i) {
            if (std::strcmp(sizes->keywords[i], name) == 0 && sizes->values[i] &&
                std::strncmp(sizes->values[i], "CustomPage", 10) == 0) {
                feature(p, "%%BeginFeature: *CustomPageSize True\n", sizes->values[i] + 10);
                return;
            }
        }
    }
    QlPPDOptions *list = d->selectedTray ? d->pageRegions : d->pageSizes;
    const char *kind = d->selectedTray ? "PageRegion" : "PageSize";
    if (!list) return;
    for (int i = 0; i < list->count; ++i) {
        if (std::strcmp(list->keywords[i], name) == 0) {
            feature(p, ql::format("%%%%BeginFeature: *%s %s\n", kind, name), list->values[i]);
            return;
        }
    }
}

void writeSetup(QlPrinter *p) {
    write(p->stream, "%%BeginSetup\n");
    PSPageData *d = pageData(p);
    if (p->ppdFile && d) {
        QlPPDOptions *res = d->resolutions;
        if (!d->pjl && d->selectedResolution != -1 && res) {
            for (int i = 0; i < res->count; ++i) {
                int v;
                if (std::sscanf(res->keywords[i], "%d", &v) == 1 && v == d->selectedResolution) {
                    feature(p, ql::format("%%%%BeginFeature: *Resolution %s\n", res->keywords[i]), res->values[i]);
                    break;
                }
            }
        }
        if (QlPPDOptions *trays = d->trays; d->selectedTray && trays && trays->count > 0) {
            bool done = false;
            if (isManual(d->selectedTray)) {
                for (int i = 0; i < trays->count && !done; ++i) {
                    if (std::strcmp(trays->keywords[i], d->selectedTray) != 0 &&
                        _kvo_strcasecmp(trays->keywords[i], "Manual") != 0)
                        continue;
                    feature(p,
                            d->manualFeed ? std::string("%%BeginFeature: *ManualFeed True\n")
                                          : ql::format("%%%%BeginFeature: *InputSlot %s\n", trays->keywords[i]),
                            trays->values[i]);
                    done = true;
                }
            }
            for (int i = 0; i < trays->count && !done; ++i) {
                if (std::strcmp(trays->keywords[i], d->selectedTray) == 0 && trays->values[i]) {
                    feature(p, ql::format("%%%%BeginFeature: *InputSlot %s\n", trays->keywords[i]),
                            trays->values[i]);
                    done = true;
                }
            }
        }
        if (QlPPDOptions *dup = d->duplexOptions; d->selectedDuplex && dup && dup->count > 0) {
            for (int i = 0; i < dup->count; ++i) {
                if (std::strcmp(dup->keywords[i], d->selectedDuplex) == 0 && dup->values[i]) {
                    feature(p, ql::format("%%%%BeginFeature: *Duplex %s\n", dup->keywords[i]), dup->values[i]);
                    break;
                }
            }
        }
        if (d->selectedPageSize) writePageSizeFeature(p, d);
    }
    write(p->stream, "%%EndSetup\n");
}

}  // namespace

void PageGeometry(QlPrinter *p) {
    const PSPageGeometry *g = geometry(p);
    if (p->orientation != 2) {
        p->width = g->imageRight - g->imageLeft;
        p->height = g->imageTop - g->imageBottom;
        p->originX = g->imageLeft;
        p->originY = g->imageTop;
    } else {
        p->width = g->imageTop - g->imageBottom;
        p->height = g->imageRight - g->imageLeft;
        p->originX = g->imageBottom;
        p->originY = g->imageLeft;
    }
}

int OpenPrinter(QlPrinter *p, int full) {
    if (full) {
        p->pageOpen = 0;
        p->level = 1;
        p->creationDate = std::time(nullptr);
        makeColourTable(p);
    }
    p->info = _QlGetPrinterInfo();
    if (p->info) p->info->magic = p->ppdFile && p->info->num_printer != 0 ? QL_PRINTER_MAGIC : QL_FILE_MAGIC;
    if (!PDPageRead(p)) {
        _QlError(ePPD, "OpenPrinter");
        release(p);
        return -1;
    }
    if (!full) {
        LoadUSLFonts(p);
        return 0;
    }
    p->scaleX = p->scaleY = static_cast<float>(p->scale);
    p->divisorX = p->divisorY = 1.0;
    PageGeometry(p);
    p->fonts = nullptr;
    std::string path = configFile("psstd.fonts");
    FILE *f = std::fopen(path.c_str(), "r");
    if (!f) {
        _QlError(ePSFont, "OpenPrinter", path);
        _QlError(ePSFont, "OpenPrinter", path);
        release(p);
        return -1;
    }
    readFontList(p, f);
    CheckSoftFonts(nullptr, 1);
    LoadUSLFonts(p);
    std::fclose(f);
    return 0;
}

int ClosePrinter(QlPrinter *p) {
    PS2CleanTileCache(p);
    release(p);
    return 0;
}

int StartDoc(QlPrinter *p) {
    if (!p || p->magic != QL_PRINTER_MAGIC) return 0;
    std::free(p->tmpName);
    p->tmpName = _QlTempnam(nullptr, "Ql");
    p->stream = p->tmpName ? std::fopen(p->tmpName, "w") : nullptr;
    if (!p->stream) {
        _QlError(eOpenFileW, "StartDoc", p->tmpName);
        std::free(p->tmpName);
        p->tmpName = nullptr;
        QlClosePrinter(reinterpret_cast<Display *>(p));
        return 0;
    }
    setvbuf(p->stream, nullptr, _IOFBF, 1 << 18);
    p->pageNumber = 1;
    p->pageOpen = 0;
    p->docHeadWritten = 0;
    if (p->lastGC) p->lastGC->dirty = kAllDirty;
    ForgetPageDefinitions(p);
    std::fseek(p->stream, 0, SEEK_SET);
    PSPageData *d = pageData(p);
    if (!d || !d->pjl) return 1;
    write(p->stream, "\x1b%-12345X@PJL JOB\n");
    if (QlPPDOptions *res = d->resolutions; res && res->count > 1) {
        for (int i = 0; i < res->count; ++i) {
            int v;
            if (std::sscanf(res->keywords[i], "%d", &v) == 1 && v == d->selectedResolution) {
                put(p->stream, "%s\n", res->values[i]);
                break;
            }
        }
    }
    char **v = PPDGetValues(1, p->ppdFile, p->ppdDir, "JCLToPSInterpreter", nullptr);
    if (v && v[0]) put(p->stream, "%s\n", v[0]);
    else write(p->stream, "@PJL ENTER LANGUAGE=POSTSCRIPT\n");
    freeDString(v, 1);
    return 1;
}

int PDSet(QlPrinter *p) {
    FILE *s = p->stream;
    if (!s) return 0;
    if (p->ppdDir || p->ppdFile) {
        write(s, "%!PS-Adobe-3.0\n");
        put(s, "%%QlPrinter-Model: %s\n", GetPrinterModel(p));
    } else {
        write(s, "%!PS-Adobe-3.0 EPSF-3.0\n");
        write(s, "BoUnDiNgBoX\n");
    }
    if (p->debugComments) write(s, "%QualinDebug: QlStartDoc()\n");
    const char *login = _kvo_getlogin();
    put(s, "%%%%Creator: Morva Qualin Version %s (Compile Date: %s) ", QlGetVersion(), QlCompiledDate);
    put(s, "(%s)\n", login ? login : "unknown");
    write(s, "%%Title: \n");
    char date[64] = "";
    if (const char *c = std::ctime(&p->creationDate)) {
        std::strncpy(date, c, sizeof date - 1);
        date[std::strcspn(date, "\n")] = '\0';
    }
    put(s, "%%%%CreationDate:%s\n", date);
    write(s, "%%DocumentSuppliedResources: (atend)\n");
    write(s, "%%Pages: (atend)\n");
    put(s, "%%%%LanguageLevel: %d\n", p->level);
    write(s, "%%EndComments\n");
    write(s, "%%BeginProlog\n");
    std::string path = configFile("qualin.prolog");
    if (FILE *f = std::fopen(path.c_str(), "r")) {
        char buf[500];
        size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) std::fwrite(buf, 1, n, s);
        std::fclose(f);
        if (p->level == 1) write(s, "/setpagedevice {} def\n");
        write(s, "\n");
    } else {
        _QlError(wProlog, "PDSet");
        write(s, QlShortID);
        write(s, QlBitmapHeader1);
        write(s, QlBitmapHeader2);
    }
    write(s, "%%EndProlog\n");
    p->docHeadWritten = 1;
    return 1;
}

int ReadPageSetup(QlPrinter *p) {
    p->scaleX = p->scaleY = static_cast<float>(p->scale);
    PSPageData *d = pageData(p);
    if (!d) return 1;
    if (d->selectedPageSize || (p->ppdFile && d->selectedResolution != -1)) ReadSelectedPage(p);
    bool newGeometry = d->selectedPageSize || d->orientationChanged || (p->ppdFile && d->selectedResolution != -1);
    if (newGeometry) PageGeometry(p);
    return 1;
}

int _StartPage(QlPrinter *p) {
    ReadPageSetup(p);
    const int q = 72 / geometry(p)->resolution;
    p->boundsXmin = static_cast<int>(q * p->width * p->divisorX / p->scaleX);
    p->boundsYmin = static_cast<int>(q * p->height * p->divisorY / p->scaleY);
    p->boundsXmax = p->boundsYmax = 0;
    if (p->pageNumber == 1) writeSetup(p);
    put(p->stream, "%%%%Page: %d\n", p->pageNumber);
    write(p->stream, "%%BeginPageSetup\n");
    put(p->stream, "/#copies %d def\n", p->copies);
    write(p->stream, "sv\n");
    writeFrame(p, false);
    write(p->stream, "%%EndPageSetup\n");
    write(p->stream, "%%BoundingBox: (atend)\n");
    write(p->stream, "gs\n");
    ResetEncodingCache(p);
    return 1;
}

int PSResetPage(QlPrinter *p) { return ReadPageSetup(p); }

void DumpScale(QlPrinter *p) { writeFrame(p, true); }

int StartPage(QlPrinter *p) {
    if (!p || p->magic != QL_PRINTER_MAGIC) return 0;
    if (p->pageOpen) {
        _QlError(eNewPage, "StartPage");
        return 0;
    }
    _StartPage(p);
    p->pageOpen = 1;
    return 1;
}

int PSCheckPage(QlPrinter *p) {
    if (p->pageOpen) return 1;
    put(p->stream, "%%%%Page: %d\n", p->pageNumber);
    write(p->stream, "%%BeginPageSetup\n");
    write(p->stream, "sv\n");
    DumpScale(p);
    write(p->stream, "%%EndPageSetup\n");
    write(p->stream, "%%BoundingBox: (atend)\n");
    p->pageOpen = 1;
    return 1;
}

namespace {

// Ends the open page: its trailer and box; 0 when no page is open.
int finishPage(QlPrinter *p, const char *debugText, bool manualFeedOff) {
    if (p->debugComments) write(p->stream, debugText);
    if (!p->pageOpen) return 0;
    const double res = geometry(p)->resolution;
    const double a = p->originX * 72 / res, b = p->originY * 72 / res;
    const double sx = p->scaleX / p->divisorX, sy = p->scaleY / p->divisorY;
    int left, right, top, bottom;
    if (p->orientation == 2) {
        bottom = static_cast<int>(p->boundsXmin * sx + a);
        top = static_cast<int>(p->boundsXmax * sx + a);
        left = static_cast<int>(p->boundsYmin * sy + b);
        right = static_cast<int>(p->boundsYmax * sy + b);
    } else {
        left = static_cast<int>(p->boundsXmin * sx + a);
        right = static_cast<int>(p->boundsXmax * sx + a);
        top = static_cast<int>(b - p->boundsYmin * sy);
        bottom = static_cast<int>(b - p->boundsYmax * sy);
    }
    write(p->stream, "gr\n%%PageTrailer\nrs\n");
    put(p->stream, "%%%%BoundingBox: %d %d %d %d\n", left, bottom, right, top);
    write(p->stream, "showpage\n");
    BoundsXmin = left;
    BoundsYmin = bottom;
    BoundsXmax = right;
    BoundsYmax = top;
    if (manualFeedOff) CheckSetManualFeed(p);
    p->pageOpen = 0;
    if (p->lastGC) p->lastGC->dirty = kAllDirty;
    ForgetPageDefinitions(p);
    return 1;
}

}  // namespace

int EndPage(QlPrinter *p) {
    if (!p || p->magic != QL_PRINTER_MAGIC) return 0;
    return finishPage(p, "%QualinDebug: EndPage()\n", true);
}

int PageEject(QlPrinter *p) {
    finishPage(p, "%QualinDebug: QlPageEject()\n", false);
    return 0;
}

void CheckSetManualFeed(QlPrinter *p) {
    PSPageData *d = pageData(p);
    if (!p->ppdFile || !d || !d->manualFeed || !isManual(d->selectedTray)) return;
    QlPPDOptions *m = d->manualFeed;
    for (int i = 0; i < m->count; ++i) {
        if (m->keywords[i] && !_kvo_strcasecmp(m->keywords[i], "False")) {
            feature(p, "%%BeginFeature: *ManualFeed False\n", m->values[i]);
            return;
        }
    }
}

int EndDoc(QlPrinter *p) {
    FILE *s = p->stream;
    if (p->debugComments) write(s, "%QualinDebug: QlEndDoc()\n");
    write(s, "%%Trailer\n");
    put(s, "%%%%Pages: %d\n", p->pageNumber - 1);
    // The prolog's dictionary is open only if the prolog went out: a
    // document without a page never wrote it.
    if (p->docHeadWritten) write(s, "end\n");
    write(s, "%%DocumentSuppliedResources: ");
    if (p->suppliedFontCount) {
        write(s, "font ");
        auto **names = static_cast<char **>(p->suppliedFonts);
        for (int i = 0; names && i < p->suppliedFontCount; ++i) put(s, "%s ", names[i]);
    }
    write(s, "\n%%EOF\n");
    PSPageData *d = pageData(p);
    if (d && d->pjl) {
        char **v = PPDGetValues(1, p->ppdFile, p->ppdDir, "JCLEnd", nullptr);
        if (v && v[0]) put(s, "%s\n", v[0]);
        else write(s, "\x04\x1b%-12345X\n");
        freeDString(v, 1);
    }
    return 1;
}

int AbortDoc(QlPrinter *p) {
    p->pageNumber = 1;
    p->pageOpen = 0;
    p->docHeadWritten = 0;
    if (p->lastGC) p->lastGC->dirty = kAllDirty;
    ForgetPageDefinitions(p);
    return 1;
}

// The drawing slots.  A coordinate arrives in dots of the page's
// resolution and is written in points (dots times k), two decimals.

namespace {

// X's GC bits that each kind of mark needs flushed.
constexpr unsigned long kArcMask = 3673396 | GCCapStyle, kLineMask = 3673460, kLinesMask = 3673588,
                        kRectangleMask = 2625012 | GCDashOffset, kPointMask = 527620, kFillArcMask = 527604,
                        kFillMask = 527860, kTextMask = 540676;

double unitsPerDot(QlPrinter *p) { return 72.0 / geometry(p)->resolution; }

// The first four steps of every mark: page, state, comment, paint.
void beginMark(QlPrinter *p, QlGC *gc, unsigned long mask, const char *comment) {
    PSCheckPage(p);
    PSFlushGC(p, gc, mask);
    if (p->debugComments) write(p->stream, comment);
    CheckTile(p, gc);
}

// How far a stroke's ink reaches beyond its path, in emitted units:
// half the line width across it, more where a square or round cap or a
// mitre sticks out.
double halfWidth(QlPrinter *p, QlGC *gc) { return gc->values.line_width * unitsPerDot(p) / 2; }

double strokeReach(QlPrinter *p, QlGC *gc, bool polyline) {
    const double h = halfWidth(p, gc);
    if (polyline && gc->values.join_style == JoinMiter) return 10 * h;
    return gc->values.cap_style == CapProjecting ? h * 1.4143 : h;
}

void renewPadded(QlPrinter *p, double x1, double y1, double x2, double y2, double pad) {
    RenewBoundingBox(p, std::min(x1, x2) - pad, std::min(y1, y2) - pad, std::max(x1, x2) + pad,
                     std::max(y1, y2) + pad);
}

// floor and ceil for |v| < 2^31.
int floorIn(double v) {
    const int t = static_cast<int>(v);
    return t - (t > v);
}

int ceilIn(double v) {
    const int t = static_cast<int>(v);
    return t + (t < v);
}

int clampToInt(double v) {
    if (!(v > -2e9)) return -2000000000;
    if (!(v < 2e9)) return 2000000000;
    return static_cast<int>(v);
}

// clampToInt(std::floor(v)) and of std::ceil, without the calls where v
// is well inside the range of int.
int floorToInt(double v) { return std::fabs(v) < 1e9 ? floorIn(v) : clampToInt(std::floor(v)); }

int ceilToInt(double v) { return std::fabs(v) < 1e9 ? ceilIn(v) : clampToInt(std::ceil(v)); }

// A straight line's ink: its ends, widened across the line and, with round
// or square caps, along it.
void renewLine(QlPrinter *p, QlGC *gc, double x1, double y1, double x2, double y2) {
    const double h = halfWidth(p, gc);
    const double minX = std::min(x1, x2), minY = std::min(y1, y2), maxX = std::max(x1, x2), maxY = std::max(y1, y2);
    // Butt ends reach at most h beyond the line's ends, across it: where
    // the box rounds the same with h and without, the length is not needed.
    const bool butt = gc->values.cap_style != CapProjecting && gc->values.cap_style != CapRound;
    if (h == 0 || (butt && std::fabs(minX) + std::fabs(minY) + std::fabs(maxX) + std::fabs(maxY) + h < 1e9 &&
                   floorIn(minX - h) == floorIn(minX) && floorIn(minY - h) == floorIn(minY) &&
                   ceilIn(maxX + h) == ceilIn(maxX) && ceilIn(maxY + h) == ceilIn(maxY))) {
        RenewBoundingBox(p, minX, minY, maxX, maxY);
        return;
    }
    const double len = std::hypot(x2 - x1, y2 - y1);
    const double ux = len > 0 ? std::fabs(x2 - x1) / len : 1, uy = len > 0 ? std::fabs(y2 - y1) / len : 1;
    double px = h * uy, py = h * ux;
    if (gc->values.cap_style == CapProjecting) px = py = h * (ux + uy);
    else if (gc->values.cap_style == CapRound) px = py = h;
    RenewBoundingBox(p, minX - px, minY - py, maxX + px, maxY + py);
}

// X takes at most a full turn of an arc.
int clampAngle(int angle2) { return std::clamp(angle2, -360 * 64, 360 * 64); }

void rectanglePath(QlPrinter *p, double x, double y, double x2, double y2) {
    put(p->stream, "gs np %.2f %.2f t %.2f %.2f lo %.2f %.2f lo %.2f %.2f lo ", x, y, x, y2, x2, y2, x2, y);
}

}  // namespace

void RenewBoundingBox(QlPrinter *p, double x1, double y1, double x2, double y2) {
    if (x1 > x2) std::swap(x1, x2);
    if (y1 > y2) std::swap(y1, y2);
    // Outward to whole units, so that the box holds the mark.
    p->boundsXmin = std::min(p->boundsXmin, floorToInt(x1));
    p->boundsYmin = std::min(p->boundsYmin, floorToInt(y1));
    p->boundsXmax = std::max(p->boundsXmax, ceilToInt(x2));
    p->boundsYmax = std::max(p->boundsYmax, ceilToInt(y2));
}

int ClearArea(QlPrinter *p, int x, int y, unsigned width, unsigned height) {
    PSCheckPage(p);
    if (p->debugComments) write(p->stream, "%% ClearArea\n");
    const double k = unitsPerDot(p);
    const double x1 = x * k, y1 = y * k, x2 = (x + static_cast<double>(width)) * k,
                 y2 = (y + static_cast<double>(height)) * k;
    put(p->stream, "gs 1 sg np %.2f %.2f t %.2f %.2f lo %.2f %.2f lo %.2f %.2f lo cp f gr\n", x1, y1, x1, y2, x2, y2,
        x2, y1);
    return 0;
}

int DrawLine(QlPrinter *p, Drawable, QlGC *gc, int x1, int y1, int x2, int y2) {
    beginMark(p, gc, kLineMask, "%% DrawLine\n");
    const double k = unitsPerDot(p);
    if (gc->values.line_style == LineDoubleDash) {
        put(p->stream, "gs np %.2f %.2f t %.2f %.2f lo ", x1 * k, y1 * k, x2 * k, y2 * k);
        WriteStroke(p, gc, " gr\n");
    } else {
        ql::PutFixed(p->stream, {x2 * k, y2 * k, x1 * k, y1 * k}, 2, "DL\n");
    }
    renewLine(p, gc, x1 * k, y1 * k, x2 * k, y2 * k);
    return 0;
}

// A point is one dot, whatever the line width, as on a display.
int DrawPoint(QlPrinter *p, Drawable, QlGC *gc, int x, int y) {
    PSCheckPage(p);
    if (p->debugComments) write(p->stream, "%% DrawPoint\n");
    PSFlushGC(p, gc, kPointMask);
    CheckTile(p, gc);
    const double k = unitsPerDot(p);
    put(p->stream, "%.2f %.2f %.2f DP\n", x * k, y * k, k * 0.5);
    renewPadded(p, x * k, y * k, x * k, y * k, k * 0.5);
    return 0;
}

int DrawRectangle(QlPrinter *p, Drawable, QlGC *gc, int x, int y, unsigned width, unsigned height) {
    beginMark(p, gc, kRectangleMask, "%% DrawRectangle\n");
    const double k = unitsPerDot(p);
    const double x2 = (x + static_cast<double>(width)) * k, y2 = (y + static_cast<double>(height)) * k;
    // Dashes run round the outline the way a display draws it: right from
    // the top left corner.
    if (gc->values.line_style != LineSolid)
        put(p->stream, "gs np %.2f %.2f t %.2f %.2f lo %.2f %.2f lo %.2f %.2f lo ", x * k, y * k, x2, y * k, x2, y2,
            x * k, y2);
    else
        rectanglePath(p, x * k, y * k, x2, y2);
    write(p->stream, "cp ");
    WriteStroke(p, gc, " gr\n");
    renewPadded(p, x * k, y * k, x2, y2, halfWidth(p, gc));
    return 0;
}

int FillRectangle(QlPrinter *p, Drawable, QlGC *gc, int x, int y, unsigned width, unsigned height) {
    beginMark(p, gc, kFillMask, "%% FillRectangle\n");
    const double k = unitsPerDot(p);
    const double x2 = (x + static_cast<double>(width)) * k, y2 = (y + static_cast<double>(height)) * k;
    rectanglePath(p, x * k, y * k, x2, y2);
    write(p->stream, "cp f st gr\n");
    RenewBoundingBox(p, x * k, y * k, x2, y2);
    return 0;
}

// The path goes out in groups of 30 points, so that no path overflows a
// level 1 interpreter.  Relative points add up from the first point, as
// on a display.  A group after the first repeats the segment before it
// where the stroke is wide or dashed, so that the join and the dash phase
// come out as in one path.
int DrawLines(QlPrinter *p, Drawable, QlGC *gc, XPoint *points, int count, int mode) {
    if (count <= 0) {
        PSCheckPage(p);
        return 0;
    }
    beginMark(p, gc, kLinesMask, "%% DrawLines\n");
    const double k = unitsPerDot(p);
    FILE *s = p->stream;
    const bool relative = mode != CoordModeOrigin;
    const bool dashed = gc->values.line_style != LineSolid;
    const bool carryOver = dashed || gc->values.line_width > 1;
    long cx = points[0].x, cy = points[0].y;  // the current point, absolute
    long px = cx, py = cy;                    // the point before it
    long minX = cx, maxX = cx, minY = cy, maxY = cy;
    double travelled = 0, travelledToPrevious = 0;
    for (int start = 0; start < count; start += 30) {
        const int end = std::min(start + 30, count);
        if (start > 0 && carryOver) {
            write(s, "gs\n");
            if (dashed) WriteDashes(p, gc, gc->values.dash_offset + travelledToPrevious, true);
            put(s, "np %.2f %.2f t %.2f %.2f lo ", px * k, py * k, cx * k, cy * k);
        } else {
            put(s, "gs np %.2f %.2f t ", cx * k, cy * k);
        }
        for (int i = start; i < end; ++i) {
            long nx = points[i].x, ny = points[i].y;
            if (relative && i > 0) {
                nx += cx;
                ny += cy;
                put(s, "%.2f %.2f l2 ", points[i].x * k, points[i].y * k);
            } else {
                put(s, "%.2f %.2f lo ", nx * k, ny * k);
            }
            travelledToPrevious = travelled;
            travelled += std::hypot(static_cast<double>(nx - cx), static_cast<double>(ny - cy));
            px = cx;
            py = cy;
            cx = nx;
            cy = ny;
            minX = std::min(minX, cx);
            maxX = std::max(maxX, cx);
            minY = std::min(minY, cy);
            maxY = std::max(maxY, cy);
        }
        // A closed outline is joined where it closes, as on a display.
        const bool closed = count > 2 && count <= 30 && cx == points[0].x &&
                            cy == points[0].y;
        if (closed) write(s, "cp ");
        WriteStroke(p, gc, " gr\n");
    }
    renewPadded(p, minX * k, minY * k, maxX * k, maxY * k, strokeReach(p, gc, true));
    return 0;
}

int DrawArc(QlPrinter *p, Drawable, QlGC *gc, int x, int y, unsigned width, unsigned height, int angle1,
            int angle2) {
    PSCheckPage(p);
    PSFlushGC(p, gc, kArcMask);
    const double k = unitsPerDot(p);
    const double x1 = x * k, y1 = y * k, x2 = (x + static_cast<double>(width)) * k,
                 y2 = (y + static_cast<double>(height)) * k;
    const double reach = strokeReach(p, gc, false);
    if (width == 0 || height == 0) {
        put(p->stream, "%.2f %.2f %.2f %.2f DL\n", x1, y1, x2, y2);
        renewLine(p, gc, x1, y1, x2, y2);
        return 0;
    }
    if (p->debugComments) write(p->stream, "%% DrawArc\n");
    CheckTile(p, gc);
    angle2 = clampAngle(angle2);
    FILE *s = p->stream;
    const double ratio = (y2 - y1) / (x2 - x1);
    put(s, "gs np %.2f %.2f tl\n", (x1 + x2) / 2, (y1 + y2) / 2);
    put(s, "1 -%f sl\n", ratio);
    put(s, "0 0 %.2f %.2f %.2f %s ", (x2 - x1) / 2, angle1 / 64.0, (angle1 + angle2) / 64.0, angle2 > 0 ? "ac" : "an");
    // An ellipse is stroked in the page's own scale, so that its line keeps
    // one width all round.  (For whole dots the ratio prints as 1 exactly
    // when the sides are equal.)
    if (width != height) put(s, "1 -%f sl ", 1 / ratio);
    WriteStroke(p, gc, " gr\n");
    renewPadded(p, x1, y1, x2, y2, reach);
    return 0;
}

int FillArc(QlPrinter *p, Drawable, QlGC *gc, int x, int y, unsigned width, unsigned height, int angle1,
            int angle2) {
    // An arc without area paints nothing.
    if (width == 0 || height == 0) {
        PSCheckPage(p);
        return 0;
    }
    beginMark(p, gc, kFillArcMask, "%% FillArc\n");
    angle2 = clampAngle(angle2);
    const double k = unitsPerDot(p);
    const double x1 = x * k, y1 = y * k, x2 = (x + static_cast<double>(width)) * k,
                 y2 = (y + static_cast<double>(height)) * k;
    FILE *s = p->stream;
    const bool pie = gc->values.arc_mode == ArcPieSlice;
    put(s, "gs np %.2f %.2f tl\n", (x1 + x2) / 2, (y1 + y2) / 2);
    if (pie) write(s, "0 0 t\n");
    put(s, "1 -%f sl\n", (y2 - y1) / (x2 - x1));
    put(s, "0 0 %.2f %.2f %.2f %s\n", (x2 - x1) / 2, angle1 / 64.0, (angle1 + angle2) / 64.0,
        angle1 + angle2 > angle1 ? "ac" : "an");
    if (pie) write(s, "0 0 t\n");
    write(s, "cp f st gr\n");
    RenewBoundingBox(p, x1, y1, x2, y2);
    return 0;
}

int FillPolygon0(QlPrinter *p, Drawable, QlGC *gc, XPoint *points, int count, int, int mode) {
    if (count <= 0) {
        PSCheckPage(p);
        return 0;
    }
    beginMark(p, gc, kLinesMask, "%% FillPolygon\n");
    const double k = unitsPerDot(p);
    FILE *s = p->stream;
    long cx = points[0].x, cy = points[0].y;
    long minX = cx, maxX = cx, minY = cy, maxY = cy;
    put(s, "gs np %.2f %.2f t ", cx * k, cy * k);
    for (int i = 1; i < count; ++i) {
        if (mode == CoordModeOrigin) {
            cx = points[i].x;
            cy = points[i].y;
            ql::PutFixed(s, {cx * k, cy * k}, 2, "lo ");
        } else {
            cx += points[i].x;
            cy += points[i].y;
            ql::PutFixed(s, {points[i].x * k, points[i].y * k}, 2, "l2 ");
        }
        minX = std::min(minX, cx);
        maxX = std::max(maxX, cx);
        minY = std::min(minY, cy);
        maxY = std::max(maxY, cy);
    }
    write(s, gc->values.fill_rule == WindingRule ? "f st gr\n" : "eofill st gr\n");
    RenewBoundingBox(p, minX * k, minY * k, maxX * k, maxY * k);
    return 0;
}

int _QlDrawPolyScanRect(QlPrinter *p, Drawable d, QlGC *gc, Region region, int y, int x, int width, double dx,
                        double dy) {
    const int in = XRectInRegion(region, x, y, static_cast<unsigned>(width), 1);
    if (in == RectangleIn || (in == RectanglePart && width <= 1)) {
        beginMark(p, gc, kFillMask, "%% FillRectangle\n");
        const double k = unitsPerDot(p);
        const double X = x * dx * k, Y = y * dy * k, W = width * dx * k, H = dy * k;
        if (p->level == 2) {
            put(p->stream, "%.2f %.2f %.2f %.2f rectfill\n", X, Y, W, H);
        } else {
            rectanglePath(p, X, Y, X + W, Y + H);
            write(p->stream, "cp f st gr\n");
        }
        RenewBoundingBox(p, X, Y, X + W, Y + H);
        return 0;
    }
    if (in != RectanglePart) return in;
    const int h = width / 2;
    _QlDrawPolyScanRect(p, d, gc, region, y, x, h, dx, dy);
    return _QlDrawPolyScanRect(p, d, gc, region, y, x + h, width - h, dx, dy);
}

// For interpreters that can't fill a complex path: the polygon is filled
// span by span.
int FillPolygon(QlPrinter *p, Drawable d, QlGC *gc, XPoint *points, int count, int shape, int mode) {
    if (!_QlScanConvertPolygons || count <= 0) return FillPolygon0(p, d, gc, points, count, shape, mode);
    auto *device = static_cast<XPoint *>(std::calloc(static_cast<size_t>(count), sizeof(XPoint)));
    if (!device) return 11;
    const double dx = p->divisorX, dy = p->divisorY;
    p->divisorX = p->divisorY = 1.0;
    long sx = 0, sy = 0;
    for (int i = 0; i < count; ++i) {
        if (mode == CoordModePrevious && i > 0) {
            sx += points[i].x;
            sy += points[i].y;
        } else {
            sx = points[i].x;
            sy = points[i].y;
        }
        device[i].x = static_cast<short>(std::clamp(static_cast<long>(sx * (1 / dx) + 0.5), -32768L, 32767L));
        device[i].y = static_cast<short>(std::clamp(static_cast<long>(sy * (1 / dy) + 0.5), -32768L, 32767L));
    }
    Region region = XPolygonRegion(device, count, gc->values.fill_rule);
    std::free(device);
    if (region) {
        XRectangle box;
        XClipBox(region, &box);
        for (int row = box.y; row < box.y + box.height; ++row)
            _QlDrawPolyScanRect(p, d, gc, region, row, box.x, box.width, dx, dy);
        XDestroyRegion(region);
    }
    p->divisorX = dx;
    p->divisorY = dy;
    return 0;
}

// Text in 16-bit characters is not printed.
// Text: the string goes out in hexadecimal, so that no byte needs an
// escape, and is shown at its baseline origin.
int DrawString(QlPrinter *p, Drawable, QlGC *gc, int x, int y, const char *string, int length) {
    XFontStruct *fs = gc->fontStruct;
    const int width = fs && string ? QlTextWidth(fs, string, length) : 0;
    beginMark(p, gc, kTextMask, "%% DrawString\n");
    FILE *s = p->stream;
    const double k = unitsPerDot(p);
    static constexpr char hex[] = "0123456789abcdef";
    char buf[256];
    size_t n = 0;
    buf[n++] = '<';
    for (int i = 0; string && i < length; ++i) {
        if (n + 2 > sizeof buf) {
            ql::write(s, {buf, n});
            n = 0;
        }
        const auto c = static_cast<unsigned char>(string[i]);
        buf[n++] = hex[c >> 4];
        buf[n++] = hex[c & 15];
    }
    ql::write(s, {buf, n});
    put(s, "> %.2f %.2f C\n", x * k, y * k);
    const int ascent = fs ? fs->ascent : 0, descent = fs ? fs->descent : 0;
    RenewBoundingBox(p, x * k, (y - ascent) * k, (x + width) * k, (y + descent) * k);
    return 0;
}

// A string turned by `angle` (64ths of a degree) about its origin.
int DrawRotString(QlPrinter *p, Drawable, QlGC *gc, int x, int y, const char *string, int length, int angle) {
    XFontStruct *fs = gc->fontStruct;
    const double w = fs && string ? QlTextWidth(fs, string, length) : 0;
    const double pi = std::acos(-1.0), degrees = angle / 64.0;
    const double sn = std::sin(degrees * pi / 180), cs = std::cos(degrees * pi / 180);
    beginMark(p, gc, kTextMask, "%% DrawRotString\n");
    FILE *s = p->stream;
    write(s, "(");
    for (int i = 0; string && i < length; ++i) {
        const auto c = static_cast<unsigned char>(string[i]);
        if (c < 32 || c > 127) put(s, "\\%o", static_cast<int>(c));
        else if (mrQlIsSpecial(c)) put(s, "\\%c", static_cast<int>(c));
        else std::fputc(c, s);
    }
    const double k = unitsPerDot(p);
    put(s, ") %.2f %.2f %.2f rots\n", -degrees, x * k, y * k);
    const double A = fs ? fs->ascent : 0, D = fs ? fs->descent : 0, h = A + D;
    double x1, y1, x2, y2;
    if (sn >= 0 && cs >= 0) {
        x1 = x - h * sn, y1 = y + D, x2 = x + w * cs + h * sn, y2 = y - A * cs - w * sn;
    } else if (sn < 0 && cs >= 0) {
        x1 = x + h * sn, y1 = y - A, x2 = x + w * cs - h * sn, y2 = y + D * cs - w * sn;
    } else if (sn >= 0) {
        x1 = x + h * sn, y1 = y + A, x2 = x + w * cs - h * sn, y2 = y + D * cs - w * sn;
    } else {
        x1 = x - h * sn, y1 = y - D, x2 = x + w * cs + h * sn, y2 = y - A * cs - w * sn;
    }
    RenewBoundingBox(p, x1 * k, y1 * k, x2 * k, y2 * k);
    return 0;
}

// The same on its background box.
int DrawRotImageString(QlPrinter *p, Drawable d, QlGC *gc, int x, int y, const char *string, int length,
                       int angle) {
    Display *handle = reinterpret_cast<Display *>(p);
    GC g = reinterpret_cast<GC>(gc);
    const unsigned long foreground = gc->values.foreground;
    QlSetForeground(handle, g, gc->values.background);
    int direction = 0, a = 0, dsc = 0;
    XCharStruct overall{};
    int width = 0;
    if (XFontStruct *fs = gc->fontStruct; fs && string) {
        QlTextExtents(fs, string, length, &direction, &a, &dsc, &overall);
        width = QlTextWidth(fs, string, length);
    }
    const int res = geometry(p)->resolution;
    const double h = (a + dsc) * 72.0 / res, w = width * 72.0 / res, t = -a * 72.0 / res;
    beginMark(p, gc, kFillMask, "%% DrawRotImageString\n");
    const double k = unitsPerDot(p);
    FILE *s = p->stream;
    put(s, "gs %.2f %.2f translate %.2f rotate\n", x * k, y * k, -angle / 64.0);
    put(s, "np 0 %.2f t 0 %.2f lo %.2f %.2f lo %.2f %.2f lo ", t, h + t, w, h + t, w, t);
    write(s, "cp f st gr\n");
    QlSetForeground(handle, g, foreground);
    return DrawRotString(p, d, gc, x, y, string, length, angle);
}

int DrawString16(QlPrinter *p, Drawable, QlGC *, int, int, const XChar2b *, int) {
    PSCheckPage(p);
    if (p->debugComments) write(p->stream, "%% DrawString16\n");
    return 0;
}

// Images.  Inside the image's frame one unit is one dot, so that an image
// pixel covers a device dot at the printer's resolution.

namespace {

// Sizes beyond what a page could hold are cut, so that no arithmetic on
// them overflows.
constexpr long kLargestImageSide = 1L << 24;

int side(unsigned v) { return static_cast<int>(std::min<long>(v, kLargestImageSide)); }

// The image's rows: a bitmap put in the GC's colours, a bitmap of bits, or
// bytes of greys or colours.
void writeImage(QlPrinter *p, QlGC *gc, XImage *image, int sx, int sy, int w, int h,
                bool bitmapInColours = false) {
    const bool bitmap = image->depth < 2;
    const bool inColours = bitmap && (bitmapInColours || image->format != ZPixmap);
    if (inColours) StartBitmapMask(p, gc, w, h);
    else StartImage(p, image, w, h);
    if (bitmap) DumpBitmap(p, gc, p->stream, image, 1, sx, sy, w, h, 0, p->bitmapCompression);
    else DumpArea(p, p->stream, image, sx, sy, w, h, p->bitmapCompression, 1);
    EndImage(p);
}

// Puts the part of the source rectangle that lies in the image, as a
// display does, one image pixel to a dot.
int placeImage(QlPrinter *p, QlGC *gc, XImage *image, int sx, int sy, int dx, int dy, unsigned width,
               unsigned height, bool copy) {
    if (!image || !gc) return 0;
    // As on a display, only the part of the source rectangle that lies in
    // the image is drawn.
    long x = sx, y = sy, X = dx, Y = dy, w = side(width), h = side(height);
    if (x < 0) {
        w += x;
        X -= x;
        x = 0;
    }
    if (y < 0) {
        h += y;
        Y -= y;
        y = 0;
    }
    w = std::min(w, image->width - x);
    h = std::min(h, image->height - y);
    if (w <= 0 || h <= 0) return 0;
    const int ox = clampToInt(X), oy = clampToInt(Y);
    PSCheckPage(p);
    PSFlushGC(p, gc, GCClipMask);
    FILE *s = p->stream;
    if (p->debugComments) {
        if (copy) put(s, "%% CopyArea %d %d\n", dx, dy);
        else write(s, "%% PutImage\n");
    }
    const double k = unitsPerDot(p);
    put(s, "gs\n%.2f %.2f sl\n", k, k);
    put(s, "%d %d tl\n", ox, oy);
    RenewBoundingBox(p, ox * k, oy * k, (ox + w) * k, (oy + h) * k);
    writeImage(p, gc, image, static_cast<int>(x), static_cast<int>(y), static_cast<int>(w), static_cast<int>(h),
               copy);
    write(s, "gr\n");
    if (!copy) RenewBoundingBox(p, ox * k, oy * k, (ox + w) * k, (oy + h) * k);
    return 0;
}

}  // namespace

int PutImage(QlPrinter *p, QlGC *gc, XImage *image, int sx, int sy, int dx, int dy, unsigned width,
             unsigned height) {
    return placeImage(p, gc, image, sx, sy, dx, dy, width, height, false);
}

// A pixmap onto the page.  A bitmap source paints in the GC's colours, as
// QlCopyPlane, the one call that copies a bitmap to a deeper drawable, does
// on a display.
int CopyArea(QlPrinter *p, QlGC *gc, Drawable source, int sx, int sy, unsigned width, unsigned height, int dx,
             int dy) {
    return placeImage(p, gc, reinterpret_cast<XImage *>(source), sx, sy, dx, dy, width, height, true);
}

int StretchPutImage(QlPrinter *p, QlGC *gc, XImage *image, int sx, int sy, unsigned sw, unsigned sh, int dx,
                    int dy, unsigned dw, unsigned dh) {
    if (sw == 0 || sh == 0 || dw == 0 || dh == 0) return 1;
    if (!image || !gc) return 0;
    const int w = side(sw), h = side(sh);
    const double rx = static_cast<double>(dw) / sw, ry = static_cast<double>(dh) / sh;
    PSCheckPage(p);
    PSFlushGC(p, gc, GCClipMask);
    FILE *s = p->stream;
    if (p->debugComments) write(s, "%% PutImage\n");
    const double k = unitsPerDot(p);
    put(s, "gs\n%.4f %.4f sl\n", k * rx, k * ry);
    put(s, "%.4f %.4f tl\n", dx / rx, dy / ry);
    writeImage(p, gc, image, sx, sy, w, h);
    write(s, "gr\n");
    RenewBoundingBox(p, dx * k, dy * k, (dx + static_cast<double>(dw)) * k, (dy + static_cast<double>(dh)) * k);
    return 0;
}

const QlDrawDriver PSDriver = {
    .OpenPrinter = OpenPrinter,
    .ClosePrinter = ClosePrinter,
    .ClearArea = ClearArea,
    .CopyArea = CopyArea,
    .DrawArc = DrawArc,
    .DrawLine = DrawLine,
    .DrawLines = DrawLines,
    .DrawPoint = DrawPoint,
    .DrawRectangle = DrawRectangle,
    .DrawString = DrawString,
    .DrawString16 = DrawString16,
    .FillArc = FillArc,
    .FillPolygon = FillPolygon,
    .FillRectangle = FillRectangle,
    .FreeFont = FreeFont,
    .ListFonts = ListFonts,
    .LoadFont = LoadFont,
    .PutImage = PutImage,
    .QueryFont = QueryFont,
    .UnloadFont = UnloadFont,
    .DrawRotString = DrawRotString,
    .DrawRotImageString = DrawRotImageString,
    .StretchPutImage = StretchPutImage,
    .RegisterFont = RegisterFont,
    .DestroyRegisteredFont = DestroyRegisteredFont,
};

}  // namespace ps
