// Encapsulated PostScript placed on a page of a PostScript document.
//
// The file is copied between BEPS and EEPS, which save and restore the
// interpreter's state around it; its comment header is filtered on the
// way, its preview dropped.  Lines are read in pieces of at most 1023
// bytes, the line size of the format.
#include "core/out.h"
#include "drivers/ps/ps.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <vector>

#include "config/profile.h"  // stripspace
#include "port/kvo.h"

namespace ps {

extern const char QlEPSHeader[];
extern const char QlEPSTrailer[];

const char QlEPSHeader[] =
    "/BEPS{\n"
    "/b4e sv d\n"
    "/dict_count countdictstack d\n"
    "/op_count count 1 s d\n"
    "userdict b\n"
    "/showpage{}d\n"
    "0 sg 0 sc\n"
    "1 sw 0 sj\n"
    "10 setmiterlimit [] 0 setdash np\n"
    "/languagelevel where\n"
    "{pop languagelevel\n"
    "1 ne\n"
    "{false setstrokeadjust false setoverprint\n"
    "}if\n"
    "}if\n"
    "}bdf\n"
    "/rect{ \n"
    "4 2 roll t\n"
    "1 index 0 l2\n"
    "0 e l2\n"
    "neg 0 l2\n"
    "cp\n"
    "}bdf\n";

const char QlEPSTrailer[] =
    "/EEPS{\n"
    "count op_count s{pop} repeat\n"
    "countdictstack dict_count s{end} repeat \n"
    "b4e rs\n"
    "}bdf\n";

namespace {

constexpr int kLineSize = 1024;

enum Token { kTitle = 1, kCreator = 2, kCreationDate = 3, kBeginPreview = 4, kEndPreview = 5, kEndComments = 6,
             kComment = 10, kHeaderOver = -1 };

// One piece of a line as fgets reads it, with its length (NUL bytes
// count) and whether it ended its line.
struct Piece {
    char text[kLineSize];
    size_t length = 0;
    bool newline = false;      // the piece ended its line; the newline is taken off
    bool atLineStart = true;   // the piece begins a line
    bool lineOpen = false;     // the last piece left its line open

    // The next piece; false at end of file.
    bool read(FILE *f) {
        atLineStart = !lineOpen;
        length = 0;
        newline = false;
        int ch;
        while (length + 1 < sizeof text && (ch = std::getc(f)) != EOF) {
            if (ch == '\n') {
                newline = true;
                break;
            }
            text[length++] = static_cast<char>(ch);
        }
        text[length] = '\0';
        lineOpen = !newline;
        return length > 0 || newline;
    }
};

bool isBlank(char c) { return c == ' ' || c == '\t'; }

// Where `prefix` and then, behind blanks, `keyword` open the line; null
// when they don't.
char *behind(char *line, const char *prefix, const char *keyword) {
    if (!line || !prefix || !keyword) return nullptr;
    const size_t n = std::strlen(prefix);
    if (std::strlen(line) <= n || std::strncmp(line, prefix, n) != 0) return nullptr;
    char *s = line + n;
    while (isBlank(*s)) ++s;
    const size_t k = std::strlen(keyword);
    return std::strncmp(s, keyword, k) == 0 ? s + k : nullptr;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// What sscanf with "%s" gives on a text: 1 for a word, EOF for none.
int scanWord(const char *s) {
    while (*s == ' ' || (*s >= '\t' && *s <= '\r')) ++s;
    return *s ? 1 : EOF;
}

// Cuts toward zero, inside the range of an int.
double cut(double v) {
    if (!(v == v)) return 0;
    return std::trunc(std::fmax(std::fmin(v, 2147483647.0), -2147483648.0));
}

int resolutionOf(QlPrinter *p) { return p->psPage ? geometry(p)->resolution : 0; }

// The rest of the file, as it comes, behind the header; `lineGoesOn` says
// that the first piece continues a line already written.  Lines that begin
// with a Control-D are left out.
void copyBody(QlPrinter *p, FILE *file, bool lineGoesOn) {
    Piece piece;
    piece.lineOpen = lineGoesOn;
    bool dropping = false;
    while (piece.read(file)) {
        if (piece.atLineStart) dropping = piece.length > 0 && piece.text[0] == 4;
        if (dropping) continue;
        ql::write(p->stream, std::string_view(piece.text, piece.length));
        if (piece.newline) ql::write(p->stream, "\n");
    }
}

void replace(char *&field, const char *text) {
    std::free(field);
    field = _kvo_strdup(text);
}

}  // namespace

char *GetLine(char *buffer, int size, FILE *file) {
    if (!buffer || size <= 0 || !file || !std::fgets(buffer, size, file)) return nullptr;
    size_t n = std::strlen(buffer);
    if (n && buffer[n - 1] == '\n') buffer[n - 1] = '\0';
    return buffer;
}

int s2match(char *line, const char *prefix, const char *keyword, char **rest) {
    char *after = behind(line, prefix, keyword);
    if (!after) return 0;
    if (rest) *rest = after;
    return 1;
}

int s3match(char *line, const char *prefix, const char *word1, const char *word2) {
    char *after = behind(line, prefix, word1);
    if (!after || !isBlank(*after) || !word2) return 0;
    while (isBlank(*after)) ++after;
    const size_t k = std::strlen(word2);
    return std::strncmp(after, word2, k) == 0 && (after[k] == '\0' || isBlank(after[k]));
}

int CheckToken(char *line, char **rest) {
    static const struct {
        const char *prefix, *keyword;
        int code;
    } kTokens[] = {{"%%", "Title:", kTitle},           {"%%", "Creator:", kCreator},
                   {"%%", "CreationDate:", kCreationDate}, {"%%", "BeginPreview:", kBeginPreview},
                   {"%%", "EndPreview", kEndPreview},  {"%%", "EndComments:", kEndComments},
                   {"%", "!", kComment},               {"%", "%", kComment}};
    for (const auto &t : kTokens)
        if (s2match(line, t.prefix, t.keyword, rest)) return t.code;
    return kHeaderOver;
}

double *GetBoundingBox(FILE *file) {
    auto *box = static_cast<double *>(std::malloc(4 * sizeof(double)));
    if (!box) return nullptr;
    char line[kLineSize];
    while (GetLine(line, sizeof line, file)) {
        char *rest = nullptr;
        if (!s2match(line, "%%", "BoundingBox:", &rest)) continue;
        rest = stripspace(rest);
        if (!*rest || _kvo_strcasecmp(rest, "(atend)") == 0) continue;
        if (std::sscanf(rest, "%lf %lf %lf %lf", &box[0], &box[1], &box[2], &box[3]) != 4) continue;
        // A box that is not four finite numbers places nothing.
        if (!std::isfinite(box[0] + box[1] + box[2] + box[3])) continue;
        return box;
    }
    std::free(box);
    return nullptr;
}

void SkipPreview(FILE *file) {
    char line[kLineSize];
    while (GetLine(line, sizeof line, file))
        if (s2match(line, "%%", "EndPreview", nullptr)) return;
}

QlEPSPreview *GetPreview(FILE *file) {
    auto *preview = static_cast<QlEPSPreview *>(std::calloc(1, sizeof(QlEPSPreview)));
    if (!preview) return nullptr;
    char line[kLineSize];
    bool found = false;
    while (!found && GetLine(line, sizeof line, file)) {
        char *rest = nullptr;
        int code = CheckToken(line, &rest);
        if (code == kHeaderOver) {
            std::free(preview);
            return nullptr;
        }
        if (code != kBeginPreview) continue;
        found = true;
        if (std::sscanf(rest, "%d%d%d%d", &preview->width, &preview->height, &preview->depth, &preview->lines) != 4)
            _QlError(wEPSpreview, "GetPreview");
    }
    // The data, up to "%%EndPreview" or the end of the file.
    std::vector<char> bytes;
    try {
        while (found && GetLine(line, sizeof line, file)) {
            if (s2match(line, "%%", "EndPreview", nullptr)) break;
            if (line[0] != '%') {
                std::free(preview);
                return nullptr;
            }
            // Two hexadecimal digits a byte, behind the "%" and its blanks
            // (the interchange form writes one), to the first that is not one.
            const char *at = line + 1;
            while (isBlank(*at)) ++at;
            for (int hi, lo; (hi = hexDigit(at[0])) >= 0 && (lo = hexDigit(at[1])) >= 0; at += 2)
                bytes.push_back(static_cast<char>(hi << 4 | lo));
        }
    } catch (const std::bad_alloc &) {
        std::free(preview);
        return nullptr;
    }
    if (!bytes.empty()) {
        preview->data = static_cast<char *>(std::malloc(bytes.size() + 1));
        if (!preview->data) {
            std::free(preview);
            return nullptr;
        }
        std::memcpy(preview->data, bytes.data(), bytes.size());
        preview->data[bytes.size()] = '\0';
    }
    return preview;
}

void PutEPS(QlPrinter *p, FILE *file) { copyBody(p, file, false); }

void FreeEPSInfo(QlEPSInfo *info) {
    if (!info) return;
    std::free(info->title);
    std::free(info->creator);
    std::free(info->creationDate);
    std::free(info->boundingBox);
    std::free(info);
}

}  // namespace ps

using namespace ps;

double *QlEPS_GetBoundingBox(Display *printer, FILE *file) {
    QlPrinter *p = _QlAsPrinter(printer);
    if (!p || p->driverId != QL_DRIVER_POSTSCRIPT || !file) return nullptr;
    const int resolution = resolutionOf(p);
    if (resolution <= 0) return nullptr;
    const long at = std::ftell(file);
    std::rewind(file);
    double *box = GetBoundingBox(file);
    if (!box) return nullptr;
    for (int i = 0; i < 4; ++i) box[i] = box[i] * resolution / 72;
    std::fseek(file, at, SEEK_SET);
    return box;
}

QlEPSPreview *QlEPS_GetPreview(FILE *file) {
    if (!file) return nullptr;
    const long at = std::ftell(file);
    std::rewind(file);
    QlEPSPreview *preview = GetPreview(file);
    std::fseek(file, at, SEEK_SET);
    return preview;
}

namespace {

// The numbers of a placement: the page's frame undone to the sheet's
// points, then the rotation, the scales, and the file's upper left corner
// put at x, y.
struct Placement {
    double frame[2], rotation, scale[2], offset[2], clip[4];
    double tx, ty, a;  // the corner in dots on the sheet, y up; the angle

    Placement(QlPrinter *p, const double *box, const double *param, double k) {
        const double llx = box[0], lly = box[1], urx = box[2], ury = box[3];
        const double x = param[0], y = param[1], xs = param[2], ys = param[3];
        frame[0] = -p->originX * k;
        frame[1] = p->originY * k;
        rotation = param[4];
        scale[0] = xs;
        scale[1] = ys;
        a = rotation * 3.141592 / 180;
        tx = p->originX + x;
        ty = p->originY - y;
        const double X = std::cos(a) * tx + std::sin(a) * ty, Y = std::cos(a) * ty - std::sin(a) * tx;
        // A scale near 0 divides as 0.000001, keeping its sign.
        auto divisor = [](double s) { return std::fabs(s) < 0.000001 ? (s < 0 ? -0.000001 : 0.000001) : s; };
        offset[0] = (X / divisor(xs) - llx) * k;
        offset[1] = (Y / divisor(ys) - ury) * k;
        clip[0] = llx * k;
        clip[1] = lly * k;
        clip[2] = (urx - llx) * k;
        clip[3] = (ury - lly) * k;
    }

    // Whether an interpreter takes the numbers: each finite and short
    // enough to read, and the scales not 0 as written (a singular matrix
    // makes text and strokes of the file fail; such a file shows nothing).
    bool printable() const {
        for (double v : {frame[0], frame[1], rotation, scale[0], scale[1], offset[0], offset[1], clip[0], clip[1],
                         clip[2], clip[3]})
            if (!std::isfinite(v) || std::fabs(v) >= 1e15) return false;
        return std::fabs(scale[0]) >= 0.005 && std::fabs(scale[1]) >= 0.005;
    }

    void write(QlPrinter *p) const {
        ql::write(p->stream, QlEPSHeader);
        ql::write(p->stream, QlEPSTrailer);
        ql::write(p->stream, "BEPS\n");
        ql::put(p->stream, "%.2f %.2f translate\n", frame[0], frame[1]);
        ql::write(p->stream, "1 -1 scale\n");
        ql::put(p->stream, "%.2f rotate\n", rotation);
        ql::put(p->stream, "%.2f %.2f sl\n", scale[0], scale[1]);
        ql::put(p->stream, "%.2f %.2f tl\n", offset[0], offset[1]);
        ql::put(p->stream, "%.2f %.2f %.2f %.2f rect clip np\n", clip[0], clip[1], clip[2], clip[3]);
    }

    // The page's box grows by the placed file.  The corners on the sheet,
    // in dots with y up, each cut, go back to the page's own units: from
    // the printable area's top left corner, y down.
    void renewBox(QlPrinter *p, const double *box, double k) const {
        const double w = cut(box[2] - box[0]), h = cut(box[3] - box[1]);
        const double W = cut(w * scale[0]), H = cut(h * scale[1]);
        const double d = std::sqrt(W * W + H * H), b = std::atan2(H, W), a2 = a - 1.570796;
        const double cx[4] = {cut(tx), cut(std::cos(a) * W + tx), cut(std::cos(a - b) * d + tx),
                              cut(std::cos(a2) * H + tx)};
        const double cy[4] = {cut(ty), cut(std::sin(a) * W + ty), cut(std::sin(a - b) * d + ty),
                              cut(std::sin(a2) * H + ty)};
        double minX = cx[0], maxX = cx[0], minY = cy[0], maxY = cy[0];
        for (int i = 1; i < 4; ++i) {
            minX = std::fmin(minX, cx[i]);
            maxX = std::fmax(maxX, cx[i]);
            minY = std::fmin(minY, cy[i]);
            maxY = std::fmax(maxY, cy[i]);
        }
        RenewBoundingBox(p, (minX - p->originX) * k, (p->originY - maxY) * k, (maxX - p->originX) * k,
                         (p->originY - minY) * k);
    }
};

}  // namespace

QlEPSInfo *QlEPS_Put(Display *printer, FILE *file, double *parameters) {
    QlPrinter *p = _QlAsPrinter(printer);
    if (!p || p->driverId != QL_DRIVER_POSTSCRIPT || !file || !parameters) return nullptr;
    if (!_QlForceStartDoc(p, "QlEPS_Put")) return nullptr;
    PSCheckPage(p);
    if (p->debugComments) ql::put(p->stream, "%% QlEPS_Put\n");

    std::rewind(file);
    char line[kLineSize];
    if (!std::fgets(line, sizeof line, file)) return nullptr;
    const bool controlD = line[0] == 4;
    if (!s2match(line + (controlD ? 1 : 0), "%!", "PS-Adobe-3.0", nullptr)) {
        _QlError(eEPSFormat, "QlEPS_Put");
        return nullptr;
    }
    double *box = QlEPS_GetBoundingBox(printer, file);
    if (!box) return nullptr;
    const double k = 72.0 / resolutionOf(p);
    const Placement place(p, box, parameters, k);
    auto *info = place.printable() ? static_cast<QlEPSInfo *>(std::calloc(1, sizeof(QlEPSInfo))) : nullptr;
    if (!info) {
        std::free(box);
        return nullptr;
    }
    info->boundingBox = box;

    _QlSetLocaleC();
    place.write(p);
    place.renewBox(p, box, k);
    std::fseek(file, controlD ? 1 : 0, SEEK_SET);

    // The header: what it says of the file is kept, its other comments and
    // the preview are left out; the first line that is not a comment ends
    // it.  The pieces that continue a long comment line go with it.
    Piece piece;
    bool keepLine = false;
    while (piece.read(file)) {
        if (!piece.atLineStart) {
            if (keepLine) ql::write(p->stream, piece.text);
            if (keepLine && piece.newline) ql::write(p->stream, "\n");
            continue;
        }
        char *rest = nullptr;
        const int code = CheckToken(piece.text, &rest);
        keepLine = false;
        switch (code) {
        case kTitle:  // sscanf's "%s" never gives 0, so a title always stays
            if (scanWord(rest) == 0) continue;
            replace(info->title, rest);
            keepLine = true;
            break;
        case kCreator:
        case kCreationDate:
            if (scanWord(rest) != 1) continue;
            replace(code == kCreator ? info->creator : info->creationDate, rest);
            keepLine = true;
            break;
        case kBeginPreview:
            SkipPreview(file);
            continue;
        case kEndComments:
            keepLine = true;
            break;
        case kHeaderOver:
            ql::write(p->stream, std::string_view(piece.text, piece.length));
            if (piece.newline) ql::write(p->stream, "\n");
            copyBody(p, file, !piece.newline);
            ql::write(p->stream, "EEPS\n");
            _QlResetLocale();
            return info;
        default:  // kEndPreview, kComment
            continue;
        }
        // The kept comment, up to its first NUL byte as "%s\n" has it.
        ql::write(p->stream, piece.text);
        if (piece.newline) ql::write(p->stream, "\n");
    }
    // The file ended inside its header: the state saved for it goes back,
    // so that what the page draws next stays where it belongs.
    ql::write(p->stream, "EEPS\n");
    _QlResetLocale();
    FreeEPSInfo(info);
    return nullptr;
}
