// Font names: XLFD fields read and rewritten, plain sizes, the encoding
// table and metric file paths.  All work is done on string_views of the
// caller's name; results are built in std::string and handed out as
// malloc'ed copies, so no name can overrun anything.
#include "fontdata/pfonts2.h"

#include "core/out.h"
#include "port/kvo.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

const PSEncode PSEncodes[Num_PSEncodes] = {
    {0, nullptr, nullptr},
    {1, "adobe-fontspecific", "FontSpecific"},
    {2, "adobe-standard", "AdobeStandardEncoding"},
    {3, "ISO8859-1", "ISOLatin1Encoding"},
    {4, "ISO8859-2", "ISOLatin2Encoding"},
    {5, "ISO8859-3", "ISOLatin3Encoding"},
    {6, "ISO8859-4", "ISOLatin4Encoding"},
    {7, "ISO8859-5", "ISOLatin5Encoding"},
    {8, "ISO8859-7", "ISOLatin7Encoding"},
    {9, "ISO8859-9", "ISOLatin9Encoding"},
    {7, "ISO8859-5", "ISOLatinCyrillicEncoding"},
    {8, "ISO8859-7", "ISOLatinGreekEncoding"},
    {10, "jisx0208.1983-0", nullptr},
    {11, "jisx0201.1976-0", nullptr},
};

namespace {

using std::string_view;

char *dup(string_view s) {
    char *p = static_cast<char *>(std::malloc(s.size() + 1));
    if (!p) return nullptr;
    std::memcpy(p, s.data(), s.size());
    p[s.size()] = '\0';
    return p;
}

char *dup(const std::string &s) { return dup(string_view(s)); }

// Offset just behind the nth c in s, or npos.
size_t afterNth(string_view s, char c, int n) {
    size_t at = 0;
    for (int i = 0; i < n; ++i) {
        size_t hit = s.find(c, at);
        if (hit == string_view::npos) return string_view::npos;
        at = hit + 1;
    }
    return at;
}

bool isDigitString(string_view s) {
    for (char c : s)
        if (!std::isdigit(static_cast<unsigned char>(c)) && c != '*' && c != '?') return false;
    return true;
}

// What sscanf's "%d" reads at the start of s: blanks, a sign, digits.
// Values beyond an int stop at its limits.  Nothing when no digit comes.
std::optional<int> scanInt(string_view s) {
    size_t i = 0;
    while (i < s.size() && std::isspace(static_cast<unsigned char>(s[i]))) ++i;
    bool negative = false;
    if (i < s.size() && (s[i] == '-' || s[i] == '+')) negative = s[i++] == '-';
    if (i >= s.size() || !std::isdigit(static_cast<unsigned char>(s[i]))) return std::nullopt;
    long long v = 0;
    for (; i < s.size() && std::isdigit(static_cast<unsigned char>(s[i])); ++i)
        v = std::min(v * 10 + (s[i] - '0'), static_cast<long long>(INT_MAX) + 1);
    if (negative) v = -v;
    return static_cast<int>(std::clamp(v, static_cast<long long>(INT_MIN), static_cast<long long>(INT_MAX)));
}

// A double rounded the way a size is given to the rewriters: cut toward
// zero, held within an int (NaN counts as 0).
int cutToInt(double v) {
    if (!(v == v)) return 0;
    if (v >= static_cast<double>(INT_MAX)) return INT_MAX;
    if (v <= static_cast<double>(INT_MIN)) return INT_MIN;
    return static_cast<int>(v);
}

// Dash-separated tokens as strtok reads them: a run of dashes separates
// once, and a token ends at the first dash behind it.
class DashTokens {
public:
    explicit DashTokens(string_view s) : s_(s) {}

    std::optional<string_view> next() {
        size_t b = pos_;
        while (b < s_.size() && s_[b] == '-') ++b;
        if (b >= s_.size()) {
            pos_ = s_.size();
            return std::nullopt;
        }
        size_t e = s_.find('-', b);
        if (e == string_view::npos) {
            pos_ = s_.size();
            return s_.substr(b);
        }
        pos_ = e + 1;
        return s_.substr(b, e - b);
    }

    // What stands behind the dash that ended the last token.
    string_view rest() const { return s_.substr(pos_); }

private:
    string_view s_;
    size_t pos_ = 0;
};

bool endsWithDash(string_view s) { return !s.empty() && s.back() == '-'; }

// The pixel and point fields behind the 7th dash, shared by the two
// setters of both sizes.
struct SizeFields {
    enum Kind { Copy, Bad, One, Two } kind;
    string_view head;  // up to and with the 7th dash
    string_view rest;  // behind the dash that ends the point field
};

SizeFields readSizes(string_view name) {
    size_t at = afterNth(name, '-', 7);
    if (at == string_view::npos) return {SizeFields::Copy, {}, {}};
    if (at < name.size() && name[at] == '-') return {SizeFields::Bad, {}, {}};
    string_view head = name.substr(0, at);
    DashTokens t(name.substr(at));
    auto pixel = t.next();
    if (!pixel) return {SizeFields::Copy, head, {}};
    if (!isDigitString(*pixel)) return {SizeFields::Bad, head, {}};
    auto point = t.next();
    if (!point) return {SizeFields::One, head, {}};
    if (!isDigitString(*point)) return {SizeFields::Bad, head, {}};
    return {SizeFields::Two, head, t.rest()};
}

char *setBoth(const char *xlfd, int pixel, int point, const int *width) {
    if (!xlfd) return nullptr;
    string_view name(xlfd);
    SizeFields f = readSizes(name);
    const std::string head(f.head);
    const bool dash = endsWithDash(name);
    switch (f.kind) {
    case SizeFields::Copy: return dup(name);
    case SizeFields::Bad: return nullptr;
    case SizeFields::One: return dup(ql::format(dash ? "%s%d-" : "%s%d", head, pixel));
    case SizeFields::Two: break;
    }
    if (f.rest.empty()) return dup(ql::format(dash ? "%s%d-%d-" : "%s%d-%d", head, pixel, point));
    const std::string rest(f.rest);
    if (!width) return dup(ql::format("%s%d-%d-%s", head, pixel, point, rest));

    // The average width stands behind three more dashes.
    size_t at = afterNth(f.rest, '-', 3);
    if (at == string_view::npos) return dup(ql::format("%s%d-%d-%s", head, pixel, point, rest));
    const std::string mid(f.rest.substr(0, at));
    DashTokens t(f.rest.substr(at));
    auto old = t.next();
    if (old && !isDigitString(*old)) return nullptr;
    string_view tail = t.rest();
    if (!tail.empty())
        return dup(ql::format("%s%d-%d-%s%d-%s", head, pixel, point, mid, *width, std::string(tail)));
    return dup(ql::format(dash ? "%s%d-%d-%s%d-" : "%s%d-%d-%s%d", head, pixel, point, mid, *width));
}

// One size field, behind the nth dash, set to value.
char *setOne(const char *xlfd, int n, int value) {
    if (!xlfd) return nullptr;
    string_view name(xlfd);
    size_t at = afterNth(name, '-', n);
    if (at == string_view::npos) return dup(name);
    if (at < name.size() && name[at] == '-') return nullptr;
    const std::string head(name.substr(0, at));
    DashTokens t(name.substr(at));
    auto field = t.next();
    if (!field) return dup(name);
    if (!isDigitString(*field)) return nullptr;
    string_view rest = t.rest();
    if (!rest.empty()) return dup(ql::format("%s%d-%s", head, value, std::string(rest)));
    return dup(ql::format(endsWithDash(name) ? "%s%d-" : "%s%d", head, value));
}

// The plain-size rewrite: the first digit up to the next dash becomes text.
char *replacePlainSize(const char *name, string_view text) {
    if (!name) return nullptr;
    string_view s(name);
    size_t digit = 0;
    while (digit < s.size() && !std::isdigit(static_cast<unsigned char>(s[digit]))) ++digit;
    if (digit == s.size()) return nullptr;
    size_t dash = s.find('-', digit);
    std::string r(s.substr(0, digit));
    r += text;
    if (dash != string_view::npos) r += s.substr(dash);
    return dup(r);
}

const PSEncode *rowOfId(int id) {
    for (const PSEncode &e : PSEncodes)
        if (e.id == id) return &e;
    return nullptr;
}

}  // namespace

const char *Qlstrnchr(const char *s, int c, int n) {
    if (!s || n < 1) return s;
    if (static_cast<char>(c) == '\0') return nullptr;
    size_t at = afterNth(s, static_cast<char>(c), n);
    return at == string_view::npos ? nullptr : s + at;
}

char *Qlstrnchr(char *s, int c, int n) {
    return const_cast<char *>(Qlstrnchr(static_cast<const char *>(s), c, n));
}

int QlIsDigitString(const char *s) { return s && isDigitString(s) ? 1 : 0; }

int FontGetPPSize(const char *xlfd, int *pixel, int *point) {
    int dummyPixel, dummyPoint;
    if (!pixel) pixel = &dummyPixel;
    if (!point) point = &dummyPoint;
    *pixel = *point = -1;
    if (!xlfd) return 0;
    string_view name(xlfd);
    size_t at = afterNth(name, '-', 7);
    if (at == string_view::npos) return 1;
    if (at < name.size() && name[at] == '-') return 0;
    DashTokens t(name.substr(at));
    for (int *out : {pixel, point}) {
        auto token = t.next();
        if (!token) return 1;
        if (!isDigitString(*token)) return 0;
        if (auto v = scanInt(*token)) *out = *v;
    }
    return 1;
}

char *FontSetPPSize(const char *xlfd, int pixel, int point) { return setBoth(xlfd, pixel, point, nullptr); }

char *FontSetPPASize(const char *xlfd, int pixel, int point, int averageWidth) {
    return setBoth(xlfd, pixel, point, &averageWidth);
}

char *_QlFontSetPixelSize(const char *xlfd, int pixel) { return setOne(xlfd, 7, pixel); }

char *FontSetPointSize(const char *xlfd, int point) { return setOne(xlfd, 8, point); }

int FontGetAWidth(const char *xlfd) {
    if (!xlfd) return 0;
    string_view name(xlfd);
    size_t at = afterNth(name, '-', 7);
    if (at == string_view::npos) return 0;
    DashTokens t(name.substr(at));
    std::optional<string_view> tokens[5];
    for (auto &token : tokens) {
        token = t.next();
        if (!token) return 0;
    }
    if (!isDigitString(*tokens[0]) || !isDigitString(*tokens[1]) || !isDigitString(*tokens[4])) return 0;
    return scanInt(*tokens[4]).value_or(0);
}

char *FontReplaceResol(const char *xlfd, int resolution) {
    if (!xlfd) return nullptr;
    string_view name(xlfd);
    size_t from = afterNth(name, '-', 9);
    size_t to = afterNth(name, '-', 11);
    if (from == string_view::npos || to == string_view::npos) return nullptr;
    return dup(ql::format("%s%d-%d-%s", std::string(name.substr(0, from)), resolution, resolution,
                          std::string(name.substr(to))));
}

char *FontSetSize(const char *name, int size) { return replacePlainSize(name, std::to_string(size)); }

char *FontReplaceSizeI(const char *name, int size) { return replacePlainSize(name, std::to_string(size)); }

char *FontReplaceSizeC(const char *name, const char *text) {
    if (!text) return nullptr;
    return replacePlainSize(name, text);
}

int FontGetSize(const char *name) {
    if (!name) return -1;
    string_view s(name);
    size_t digit = 0;
    while (digit < s.size() && !std::isdigit(static_cast<unsigned char>(s[digit]))) ++digit;
    if (digit == s.size()) return -1;
    return scanInt(s.substr(digit)).value_or(-1);
}

char *SoftFontMakeFullXLFD(char *xlfd, double pixel, double point, int flag) {
    if (!flag) return xlfd;
    char *made = FontSetPPASize(xlfd, cutToInt(pixel + 0.5), cutToInt(point + 0.5), 0);
    return made ? made : xlfd;
}

const char *SoftFontMakeFullXLFD(const char *xlfd, double pixel, double point, int flag) {
    return SoftFontMakeFullXLFD(const_cast<char *>(xlfd), pixel, point, flag);
}

char *_QlGetEncodingSchemeOfFull(const char *xlfd, int *id) {
    int dummy;
    if (!id) id = &dummy;
    *id = 0;
    if (!xlfd) return nullptr;
    const char *suffix = Qlstrnchr(xlfd, '-', 13);
    if (!suffix) {
        _QlError(wFontFormat, "_QlGetEncodingSchemeOfFull", xlfd);
        return nullptr;
    }
    for (const PSEncode &e : PSEncodes) {
        if (e.xlfd && _kvo_strcasecmp(e.xlfd, suffix) == 0) {
            *id = e.id;
            break;
        }
    }
    return dup(string_view(suffix));
}

char *_QlGetTypefaceOfFull(const char *xlfd) {
    if (!xlfd) return nullptr;
    string_view name(xlfd);
    size_t at = afterNth(name, '-', 2);
    if (at == string_view::npos) return nullptr;
    string_view family = name.substr(at);
    return dup(family.substr(0, family.find('-')));
}

const char *_QlGetEncodingScheme(int id) {
    const PSEncode *e = rowOfId(id);
    return e ? e->xlfd : nullptr;
}

const char *_QlGetEncodeNameofAFMEncode(int id) {
    const PSEncode *e = rowOfId(id);
    return e ? e->afm : nullptr;
}

int _QlGetEncodeOfAFMString(const char *afmName) {
    if (!afmName) return 0;
    for (const PSEncode &e : PSEncodes)
        if (e.afm && _kvo_strcasecmp(e.afm, afmName) == 0) return e.id;
    return 0;
}

char *_QlMakeFontName(char *result, const char *directory, const char *type, const char *name, size_t size) {
    if (!result || size == 0) return nullptr;
    result[0] = '\0';
    std::string file = name ? name : "";
    if (type && std::strcmp(type, "afm") == 0) {
        for (char &c : file)
            if (c == '.') c = '-';
        file += ".afm";
    }
    std::string base = ql::PathFromComponents(directory, "fontmetrics", nullptr);
    std::string path = ql::PathFromComponents(base.c_str(), type, file.c_str());
    if (path.size() >= size) return nullptr;
    std::memcpy(result, path.c_str(), path.size() + 1);
    return result;
}

void _QlLowerCaseFileName(char *path) {
    if (!path) return;
    char *file = std::strrchr(path, '/');
    ql::LowerInPlace(file ? file + 1 : path);
}

void _QlDrawBoundingBox(QlPrinter *printer) {
    if (!printer || printer->driverId != QL_DRIVER_POSTSCRIPT || !printer->stream) return;
    const int x0 = printer->boundsXmin, y0 = printer->boundsYmin;
    const int x1 = printer->boundsXmax, y1 = printer->boundsYmax;
    ql::put(printer->stream, "gs np %d %d t %d %d lo %d %d lo %d %d lo cp st gr\n", x0, y0, x0, y1, x1, y1, x1,
            y0);
}
