// The PostScript driver: opening a printer and the frame of a document
// (header, prolog, setup, pages, trailer, PJL wrapping).
#include "drivers/ps/ps.h"

#include "config/printerinfo.h"
#include "core/out.h"
#include "fontdata/pfonts.h"
#include "port/kvo.h"

#include <cctype>
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
    auto *cells = static_cast<unsigned long(*)[5]>(std::calloc(256, sizeof(unsigned long[5])));
    p->numCells = 256;
    p->cells = cells;
    if (!cells) return;
    cells[0][0] = 1;
    cells[1][0] = 1;
    cells[1][1] = cells[1][2] = cells[1][3] = 65280;
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

// One font per line: PostScript name, XLFD pattern.
void readFontList(QlPrinter *p, FILE *f) {
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
        for (char *c = pattern; *c; ++c) *c = static_cast<char>(std::tolower(static_cast<unsigned char>(*c)));
        int kind;
        if (CheckAvailFonts(p, name)) kind = 0;
        else if (CheckSoftFonts(name, 0)) kind = 1;
        else continue;
        MakePSFontEntry(p, pattern, name, kind);
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
    setvbuf(p->stream, nullptr, _IOFBF, 1 << 16);
    p->pageNumber = 1;
    p->pageOpen = 0;
    p->docHeadWritten = 0;
    if (p->lastGC) p->lastGC->dirty = kAllDirty;
    ResetFontDownloads(p);
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
    ResetFontDownloads(p);
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
    ResetFontDownloads(p);
    return 1;
}

// The drawing slots: open and close so far; every other slot says it is
// not offered yet.
constexpr QlDrawDriver makeDriver() {
    QlDrawDriver d = ql::kUnsupportedDrawDriver;
    d.OpenPrinter = OpenPrinter;
    d.ClosePrinter = ClosePrinter;
    return d;
}
const QlDrawDriver PSDriver = makeDriver();

}  // namespace ps
