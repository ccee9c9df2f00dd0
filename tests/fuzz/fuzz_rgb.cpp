// Fuzz target for the colour name file: the input becomes rgb.txt of a
// configuration directory of its own, and a printer looks names up in it.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "core/qlint.h"

namespace {

int Silent(QlErrorRecord *) { return 0; }

std::string gBase;
Display *gPrinter = nullptr;

void CleanUp() {
    if (gPrinter) QlClosePrinter(gPrinter);
    gPrinter = nullptr;
    std::error_code ec;
    if (!gBase.empty()) std::filesystem::remove_all(gBase, ec);
}

// One printer for the whole run, opened in a directory that has an empty
// font list (all the driver needs) and, later, the input as rgb.txt.
Display *Printer() {
    if (gPrinter) return gPrinter;
    char tmpl[] = "/tmp/qlfuzzrgb.XXXXXX";
    if (!mkdtemp(tmpl)) std::abort();
    gBase = tmpl;
    std::ofstream(gBase + "/psstd.fonts").flush();
    setenv("QLPATH", gBase.c_str(), 1);
    QlSetErrorHandler(Silent);
    gPrinter = QlVaOpenPrinter(nullptr, "cat >/dev/null", "PostScript", 0);
    if (!gPrinter) std::abort();
    // Registered after the open, so that it runs before the library's own
    // statics go away.
    std::atexit(CleanUp);
    return gPrinter;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Display *d = Printer();
    {
        std::ofstream out(gBase + "/rgb.txt", std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
    }
    static const std::string longName(255, 'a');
    XColor exact, screen;
    for (const char *name : {"ghost white", "GhostWhite", "red", "navy", "x", "", longName.c_str()}) {
        QlLookupColor(d, 0, name, &exact, &screen);
        QlParseColor(d, 0, name, &exact);
    }
    unsigned long pixel = 0;
    if (QlAllocNamedColor(d, 0, "red", &screen, &exact) == 1) {
        pixel = exact.pixel;
        if (pixel >= 256) std::abort();
    }
    QlStoreNamedColor(d, 0, "navy", pixel, DoRed | DoGreen | DoBlue);
    QlStoreNamedColor(d, 0, "navy", 256, DoRed | DoGreen | DoBlue);
    QlFreeColors(d, 0, &pixel, 1, 0);
    return 0;
}
