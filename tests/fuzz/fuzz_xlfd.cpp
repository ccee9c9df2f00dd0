// Fuzz target for font names and font files: every name function over the
// input as a name (whole, and split into a number and a name), and the
// input as a font file downloaded into a document.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "core/qlint.h"
#include "fontdata/pfonts.h"
#include "fontdata/pfonts2.h"

#include "scratch.h"

namespace {

void Check(bool ok) {
    if (!ok) std::abort();
}

void Drop(char *s, const char *name) {
    if (s != name) std::free(s);
}

// The size setters keep the head of the name, so the new name reads back
// with the pixel size put in.
void CheckSizes(char *made, int pixel, int point) {
    if (!made) return;
    int p, q;
    if (FontGetPPSize(made, &p, &q) == 1 && Qlstrnchr(made, '-', 7) && *Qlstrnchr(made, '-', 7)) {
        Check(p == pixel);
        Check(q == point || q == -1);
    }
    std::free(made);
}

void Names(const char *name, int n, double d1, double d2) {
    const int size = n < 0 ? -(n + 1) : n;  // never negative, so it reads back as written
    Check(Qlstrnchr(name, '-', n % 20) == nullptr || Qlstrnchr(name, '-', n % 20) <= name + std::strlen(name));
    QlIsDigitString(name);
    int pixel, point;
    FontGetPPSize(name, &pixel, &point);
    CheckSizes(FontSetPPSize(name, size, size / 2), size, size / 2);
    CheckSizes(FontSetPPASize(name, size, size / 3, n), size, size / 3);
    CheckSizes(_QlFontSetPixelSize(name, size), size, point);
    std::free(FontSetPointSize(name, n));
    FontGetAWidth(name);
    std::free(FontReplaceResol(name, n));
    std::free(FontSetSize(name, n));
    std::free(FontReplaceSizeI(name, n));
    std::free(FontReplaceSizeC(name, name));
    FontGetSize(name);
    Drop(SoftFontMakeFullXLFD(const_cast<char *>(name), d1, d2, 1), name);
    int id;
    std::free(_QlGetEncodingSchemeOfFull(name, &id));
    Check(id >= 0 && id <= 11);
    std::free(_QlGetTypefaceOfFull(name));
    _QlGetEncodingScheme(n);
    _QlGetEncodeNameofAFMEncode(n);
    _QlGetEncodeOfAFMString(name);
    char path[64];
    const size_t room = 1 + static_cast<unsigned>(n) % sizeof path;
    if (_QlMakeFontName(path, name, "afm", name, room)) Check(std::strlen(path) < room);
    std::string lower = name;
    _QlLowerCaseFileName(lower.data());
    CheckSoftFonts(name, 0);
    PCL_CheckSoftFonts(name, 0);
}

// The input as a font file: a PFB with any heads and lengths, or a plain file.
void FontFile(const uint8_t *data, size_t size) {
    const std::string file = qlfuzz::Scratch() + "/font";
    std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char *>(data), size);
    static FILE *sink = std::fopen("/dev/null", "w");
    QlPrinter printer{};
    printer.stream = sink;
    DownLoadFont(&printer, file.c_str(), 4, "Fuzz");
    PCL_DownLoadFont(&printer, file.c_str(), 4, "Fuzz", 3);
    auto **names = static_cast<char **>(printer.suppliedFonts);
    for (int i = 0; i < printer.suppliedFontCount; ++i) std::free(names[i]);
    std::free(names);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    qlfuzz::Scratch();
    const std::string whole(reinterpret_cast<const char *>(data), size);
    Names(whole.c_str(), 7, 12.4, 120.5);
    if (size >= 4) {
        int32_t n;
        std::memcpy(&n, data, 4);
        double d1 = n / 3.0, d2 = n * 7.5;
        if (size >= 20) {
            std::memcpy(&d1, data + 4, 8);
            std::memcpy(&d2, data + 12, 8);
        }
        Names(whole.c_str() + 4, n, d1, d2);
    }
    FontFile(data, size);
    return 0;
}
