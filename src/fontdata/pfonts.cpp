// Resident and soft fonts of a printer: the PPD's font list, the soft font
// directories and the download of a font file into the document.
#include "fontdata/pfonts.h"

#include "config/ppd.h"
#include "core/out.h"
#include "drivers/ps/ps.h"
#include "port/kvo.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

// The X font directories of the fonts of kinds 2 and 3; the build may name
// others, and the font lists are read from the same places.
#ifndef QL_X_FONT_DIR_MIT
#define QL_X_FONT_DIR_MIT "/usr/X/lib/fonts/mitType1"
#endif
#ifndef QL_X_FONT_DIR_TYPE1
#define QL_X_FONT_DIR_TYPE1 "/usr/X/lib/fonts/type1"
#endif

namespace {

constexpr const char *kSystemDir = "/usr/lib/Ql";

// The files of one soft font directory, read on the first call after a
// reset.  The rows grow with the directory.
struct SoftFontTable {
    const char *subdir;
    bool retryWithoutDirectory;  // keep the first-use flag when no directory opens
    std::vector<std::string> names;
    std::vector<char> used;
    DIR *dir = nullptr;
    bool firstUse = true;
};

SoftFontTable gPSSoftFonts{"pssoftfonts", false, {}, {}};
SoftFontTable gPCLSoftFonts{"pclsoftfonts", true, {}, {}};

void closeDirectory(SoftFontTable &t) {
    // The handle is dropped as it is closed: a DIR of a later scan may come
    // back at the same address, and must not be closed for this one.
    if (t.dir) _kvo_closedir(t.dir);
    t.dir = nullptr;
}

void readDirectory(SoftFontTable &t) {
    t.names.clear();
    t.used.clear();
    t.dir = _kvo_opendir(ql::PathFromComponents(QlConfigDir(), t.subdir, nullptr).c_str());
    if (!t.dir) t.dir = _kvo_opendir(ql::PathFromComponents(kSystemDir, t.subdir, nullptr).c_str());
    if (t.dir) {
        try {
            while (const char *entry = _kvo_readdir(t.dir)) {
                if (std::strcmp(entry, ".") == 0 || std::strcmp(entry, "..") == 0) continue;
                t.names.emplace_back(entry);
            }
        } catch (...) {
            // Out of memory: the names read so far are all there is.
        }
        t.used.assign(t.names.size(), 0);
    }
    if (t.dir || !t.retryWithoutDirectory) t.firstUse = false;
}

int claimSoftFont(SoftFontTable &t, const char *name, int reset) {
    if (reset) {
        closeDirectory(t);
        t.firstUse = true;
        return 1;
    }
    if (t.firstUse) readDirectory(t);
    int found = 0;
    for (size_t i = 0; name && i < t.names.size(); ++i) {
        if (!t.used[i] && _kvo_strcasecmp(t.names[i].c_str(), name) == 0) {
            t.used[i] = 1;
            found = 1;
            break;
        }
    }
    closeDirectory(t);
    return found;
}

// A PCL font name without the ".TFM" (or else ".tfm") of its metric file.
std::string withoutTfm(const char *name) {
    std::string s = name;
    size_t cut = s.find(".TFM");
    if (cut == std::string::npos) cut = s.find(".tfm");
    if (cut != std::string::npos) s.resize(cut);
    return s;
}

// A soft font file under the configuration directory if it is there,
// otherwise under the system directory.
std::string softFontPath(const char *subdir, const char *file) {
    std::string path = ql::PathFromComponents(QlConfigDir(), subdir, file);
    if (_QlaccessTryBothCases(path.c_str(), 4) == 0) return path;
    return ql::PathFromComponents(kSystemDir, subdir, file);
}

struct FileCloser {
    void operator()(FILE *f) const { std::fclose(f); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

void addSuppliedFont(QlPrinter *printer, const char *alias) {
    char *copy = _kvo_strdup(alias);
    if (!copy) return;
    size_t count = static_cast<size_t>(std::max(printer->suppliedFontCount, 0));
    auto **list = static_cast<char **>(std::realloc(printer->suppliedFonts, (count + 1) * sizeof(char *)));
    if (!list) {
        std::free(copy);
        return;
    }
    list[count] = copy;
    printer->suppliedFonts = list;
    printer->suppliedFontCount = static_cast<int>(count + 1);
}

void copyRaw(FILE *from, FILE *to, size_t block) {
    std::vector<char> buf(block);
    size_t n;
    while ((n = std::fread(buf.data(), 1, block, from)) > 0) std::fwrite(buf.data(), 1, n, to);
}

// One segment of a segmented font file: `length` bytes at most, as they
// are (type 1) or in hexadecimal without line breaks (type 2).  A short
// read ends it early.
void copySegment(FILE *from, FILE *to, uint32_t length, bool hex) {
    static const char digits[] = "0123456789abcdef";
    unsigned char buf[256];
    char text[2 * sizeof buf];
    while (length > 0) {
        size_t want = std::min<size_t>(length, sizeof buf);
        size_t got = std::fread(buf, 1, want, from);
        if (hex) {
            for (size_t i = 0; i < got; ++i) {
                text[2 * i] = digits[buf[i] >> 4];
                text[2 * i + 1] = digits[buf[i] & 15];
            }
            std::fwrite(text, 1, 2 * got, to);
        } else {
            std::fwrite(buf, 1, got, to);
        }
        length -= static_cast<uint32_t>(got);
        if (got < want) break;
    }
}

// The body of a font resource.  A file in segments starts each segment
// with 128, its type, and its length in four bytes, low byte first; type 3
// ends the file.  Every turn of the loop consumes a head of six bytes or
// ends, so no content of the file can keep it going.
int writeFontBody(FILE *from, FILE *to) {
    for (;;) {
        unsigned char head[6];
        size_t got = std::fread(head, 1, sizeof head, from);
        if (got < sizeof head) {
            ql::write(to, "%%EndResource\n");
            return got >= 2 && head[0] == 128 && head[1] == 3 ? 1 : 0;
        }
        if (head[0] != 128) {
            // Not in segments: the whole file as it is.
            std::rewind(from);
            copyRaw(from, to, 256);
            ql::write(to, "%%EndResource\n");
            return 1;
        }
        const int type = head[1];
        if (type == 3) {
            ql::write(to, "%%EndResource\n");
            return 1;
        }
        if (type != 1 && type != 2) continue;
        uint32_t length = static_cast<uint32_t>(head[2]) | static_cast<uint32_t>(head[3]) << 8 |
                          static_cast<uint32_t>(head[4]) << 16 | static_cast<uint32_t>(head[5]) << 24;
        copySegment(from, to, length, type == 2);
        ql::write(to, "\n");
    }
}

}  // namespace

int CheckAvailFonts(QlPrinter *printer, const char *name) {
    if (!printer || !name) return 0;
    auto *list = static_cast<ps::PSFontList *>(printer->ppdFonts);
    if (!list) return 0;
    for (int i = 0; i < list->count; ++i) {
        if (list->names[i] && _kvo_strcasecmp(list->names[i], name) == 0) {
            list->useCount[i]++;
            return 1;
        }
    }
    return 0;
}

int CheckSoftFonts(const char *name, int reset) { return claimSoftFont(gPSSoftFonts, name, reset); }

int PCL_CheckSoftFonts(const char *name, int reset) {
    if (reset || !name) return claimSoftFont(gPCLSoftFonts, name, reset);
    return claimSoftFont(gPCLSoftFonts, withoutTfm(name).c_str(), 0);
}

int DownLoadFont(QlPrinter *printer, const char *file, int kind, const char *alias) {
    if (!file || !printer || !printer->stream) return 0;
    if (!alias) alias = file;
    std::string path;
    switch (kind) {
    case 2: path = ql::format(QL_X_FONT_DIR_MIT "/%s.pfa", file); break;
    case 3: path = ql::format(QL_X_FONT_DIR_TYPE1 "/%s.pfa", file); break;
    case 4: path = file; break;
    default: path = softFontPath("pssoftfonts", file); break;
    }
    FilePtr font(_QlfopenTryBothCases(path.c_str(), "r"));
    if (!font) {
        _QlError(eNoSoftFont, "DownLoadFont", file);
        return 0;
    }
    addSuppliedFont(printer, alias);
    ql::put(printer->stream, "%%%%BeginResource: font %s\n", alias);
    return writeFontBody(font.get(), printer->stream);
}

int PCL_DownLoadFont(QlPrinter *printer, const char *name, int kind, const char * /*alias*/, int fontId) {
    if (!name || !printer || !printer->stream) return 0;
    std::string path = kind == 4 ? std::string(name) : softFontPath("pclsoftfonts", withoutTfm(name).c_str());
    FilePtr font(_QlfopenTryBothCases(path.c_str(), "r"));
    if (!font) {
        _QlError(eNoSoftFont, "DownLoadFont", name);
        return 0;
    }
    ql::put(printer->stream, "%c*c%dD", 27, fontId);
    std::rewind(font.get());
    copyRaw(font.get(), printer->stream, 1024);
    return 1;
}
