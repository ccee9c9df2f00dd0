// Fuzz target for pixmap data: the input's first line is "width height
// ncolors chars_per_pixel", then one line per colour (its code, blanks, an
// optional "c" key, the definition), then one line per row.  Missing rows
// are passed as null.  Each printer depth that matters is tried.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "core/qlint.h"
#include "scratch.h"

namespace {

// A printer opened in a scratch directory holding the empty font list the
// driver needs; no colour names are known there.  It stays open, and
// reachable, for the whole run.
Display *Printer() {
    static Display *const printer = [] {
        const std::string &dir = qlfuzz::Scratch();
        std::ofstream(dir + "/psstd.fonts").flush();
        setenv("QLPATH", dir.c_str(), 1);
        return QlVaOpenPrinter(nullptr, "cat >/dev/null", "PostScript", 0);
    }();
    if (!printer) std::abort();
    return printer;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Display *d = Printer();
    std::istringstream in(std::string(reinterpret_cast<const char *>(data), size));
    std::string line;
    if (!std::getline(in, line)) return 0;
    long width = 0, height = 0, ncolors = 0, cpp = 0;
    if (std::sscanf(line.c_str(), "%ld %ld %ld %ld", &width, &height, &ncolors, &cpp) != 4) return 0;
    // Small pictures are enough to reach every path.
    if (width < 0 || height < 0 || width > 64 || height > 64 || ncolors < 0 || ncolors > 300) return 0;
    std::vector<std::string> texts;
    for (long i = 0; i < ncolors && std::getline(in, line); ++i) {
        const size_t n = cpp == 2 ? 2 : 1;
        std::string code = line.substr(0, n);
        size_t at = line.find_first_not_of(" \t", std::min(n, line.size()));
        std::string def = at == std::string::npos ? "" : line.substr(at);
        if (def.size() > 2 && def[0] == 'c' && (def[1] == ' ' || def[1] == '\t')) def = def.substr(2);
        texts.push_back(code);
        texts.push_back(def);
    }
    const int colours = static_cast<int>(texts.size() / 2);
    std::vector<std::string> rowTexts;
    while (static_cast<long>(rowTexts.size()) < height && std::getline(in, line)) rowTexts.push_back(line);
    std::vector<const char *> colourPtrs, rowPtrs(static_cast<size_t>(height), nullptr);
    for (const std::string &t : texts) colourPtrs.push_back(t.c_str());
    for (size_t i = 0; i < rowTexts.size(); ++i) rowPtrs[i] = rowTexts[i].c_str();
    for (unsigned depth : {1u, 8u, 24u}) {
        QlSetColorDepth(d, depth == 24 ? 24 : 8);
        const Pixmap pm = QlCreatePixmapFromData(d, 0, 0, static_cast<unsigned>(width), static_cast<unsigned>(height),
                                                 depth, colours, static_cast<int>(cpp), colourPtrs.data(),
                                                 rowPtrs.data());
        if (pm == 3 || !pm) continue;
        XImage *image = reinterpret_cast<XImage *>(pm);
        if (image->width != width || image->height != height || image->depth != static_cast<int>(depth))
            std::abort();
        QlFreePixmap(d, pm);
    }
    return 0;
}
