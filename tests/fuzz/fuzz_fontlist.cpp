// Fuzz target for the font list readers: the input is a printer's font
// list file (opened, listed and loaded from), and each of its lines is a
// fonts.dir entry's name for the X font directory reader.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "drivers/ps/ps.h"
#include "scratch.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    bool fresh;
    const std::string &base = qlfuzz::Scratch(&fresh);
    if (fresh) setenv("QLPATH", base.c_str(), 1);
    const std::string text(reinterpret_cast<const char *>(data), size);
    std::ofstream(base + "/psstd.fonts", std::ios::binary) << text;

    Display *d = QlVaOpenPrinter(nullptr, "cat >/dev/null", "PostScript", 0);
    if (!d) return 0;
    int count = 0;
    char **names = QlListFonts(d, "*", 50, &count);
    for (int i = 0; i < count && i < 3; ++i) QlFreeFont(d, QlLoadQueryFont(d, names[i]));
    QlFreeFontNames(names);

    auto *p = reinterpret_cast<QlPrinter *>(d);
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        std::string line = text.substr(start, end == std::string::npos ? std::string::npos : end - start);
        char fixed[300];
        int pixel = 0, point = 0;
        ps::FixUSLFont(p, line.data(), fixed, sizeof fixed, &pixel, &point);
        if (end == std::string::npos) break;
        start = end + 1;
    }
    QlClosePrinter(d);
    return 0;
}
