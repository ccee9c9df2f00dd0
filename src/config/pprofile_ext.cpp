// Printer info: what the profile's sections mean.  [ports] names spool
// commands, [devices] the installed models on their ports, [windows] the
// default, and one section per device and port (or per driver, for output
// to a file) keeps its settings.  Without a usable profile everything falls
// back to PostScript output to the default file.
#include "config/printerinfo.h"

#include "config/ppd.h"
#include "config/profile.h"
#include "core/out.h"
#include "port/kvo.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

char _Qlport[256];

static int bDebugMode = 0;

namespace {

// The word that writers use for a driver id; null for an unknown id.
const char *wordOfDid(int did) {
    switch (did) {
    case 0:
    case 3: return "PostScript";
    case 1: return "PCL5";
    case 2: return "PCL4";
    default: return nullptr;
    }
}

bool same(const char *a, const char *b) { return a && b && _kvo_strcasecmp(a, b) == 0; }

// A text field of the settings record, up to its terminator or its end.
template <size_t N>
std::string text(const char (&field)[N]) {
    return std::string(field, strnlen(field, N));
}

template <size_t N>
void setText(char (&field)[N], const char *value) {
    std::strncpy(field, value ? value : "", N - 1);
    field[N - 1] = '\0';
}

template <typename T>
void append(T *&array, int n, T value) {
    array = static_cast<T *>(std::realloc(array, (n + 1) * sizeof(T)));
    array[n] = value;
}

// The lines of a section of the file that reads use.
struct Section {
    char **lines = nullptr;
    int count = 0;
    Section(const char *name, const char *profile) {
        if (profile) lines = _QlGetPrivateProfileSection(name, &count, profile);
    }
    ~Section() { _QlFreeProfileSection(lines, count); }
    Section(const Section &) = delete;
    Section &operator=(const Section &) = delete;
};

// One [devices] line: key=model driver,port[,port...].  Each port that is
// known, with a PPD file that is there, becomes one device entry.
void addDevices(_PrinterInfo *info, const char *line) {
    std::string work = line;
    char *s = work.data();
    char *eq = std::strchr(s, '=');
    if (!eq) return;
    *eq = '\0';
    char *key = stripspace(s);
    char *model = eq + 1;
    char *driverWord = std::strchr(model, ' ');
    if (driverWord) *driverWord++ = '\0';
    else driverWord = model + std::strlen(model);
    char *ports = std::strchr(driverWord, ',');
    if (ports) *ports++ = '\0';
    model = stripspace(model);
    int did = _QlDriverOfWord(stripspace(driverWord));
    if (!ports || did < 0 || !*model) return;

    std::string file = ql::format(did == 0 ? "%s.PS" : "%s.PCL", model);
    std::string path = ql::PathFromComponents(QlConfigDir(), "ppds", file.c_str());
    // A device whose PPD is gone is not listed, and is no error.
    if (_QlaccessTryBothCases(path.c_str(), R_OK) != 0) return;

    int words = 0;
    for (char *save = nullptr, *w = _kvoTokenize(ports, ",", &save); w && words < 100;
         w = _kvoTokenize(nullptr, ",", &save), ++words) {
        w = stripspace(w);
        int port = -1;
        if (!same(w, "FILE:")) {
            while (++port < info->num_port && !same(info->ports[port], w)) {
            }
            if (!*w || port == info->num_port) continue;
        }
        int n = info->num_printer;
        append(info->names, n, _kvo_strdup(model));
        append(info->nicknames, n, _kvo_strdup(ql::format("%s on %s", key, w).c_str()));
        append(info->Dids, n, did);
        append(info->portIndices, n, port);
        info->num_printer = n + 1;
    }
}

// Takes the default line of [windows]: model,driver word,port.  False when
// it names nothing usable.
bool takeDefault(_PrinterInfo *info, char *value) {
    char *model = value;
    char *driverWord = std::strchr(model, ',');
    if (!driverWord) return false;
    *driverWord++ = '\0';
    char *port = std::strchr(driverWord, ',');
    if (!port) return false;
    *port++ = '\0';
    port[std::strcspn(port, "\r\n")] = '\0';
    model = stripspace(model);
    driverWord = stripspace(driverWord);
    port = stripspace(port);
    if (!*model || !*driverWord || !*port) return false;
    int did = _QlDriverOfWord(driverWord);
    if (did < 0) return false;
    if (same(model, "NULL")) {
        info->magic = QL_FILE_MAGIC;
        info->fileDid = did;
        info->fileName = _kvo_strdup(port);
        std::snprintf(_Qlport, sizeof _Qlport, "%s", port);
        return true;
    }
    info->magic = QL_PRINTER_MAGIC;
    bool toFile = same(port, "FILE:");
    for (int i = 0; i < info->num_printer; ++i) {
        int pi = info->portIndices[i];
        if (!same(info->names[i], model) || info->Dids[i] != did) continue;
        if (toFile ? pi >= 0 : pi < 0 || !same(info->ports[pi], port)) continue;
        info->currentP = i;
        info->currentPort = pi;
        return true;
    }
    return false;
}

const char *portName(const _PrinterInfo *info, int port) {
    return port >= 0 && port < info->num_port ? info->ports[port] : "FILE:";
}

// The keys of a settings section.
void readSettings(const Section &sec, QlPrinterSettings *out, bool toFile) {
    char **l = sec.lines;
    int n = sec.count;
    out->Scale = _QlParseOneSectionDouble(l, n, "Scale", 0.0);
    out->Copies = _QlParseOneSectionInt(l, n, "copies", 0);
    out->BitmapCompression = _QlParseOneSectionInt(l, n, "BitmapCompression", -1);
    _QlParseOneSectionString(l, n, "PaperTray", "", out->PaperTray, sizeof out->PaperTray - 1);
    _QlParseOneSectionString(l, n, "PageSize", "", out->PageSize, sizeof out->PageSize - 1);
    char orientation[64] = {};
    _QlParseOneSectionString(l, n, "Orientation", "", orientation, sizeof orientation - 1);
    out->Orientation = same(orientation, "LandScape") ? 2 : same(orientation, "Portrait") ? 1 : 0;
    out->DPI = _QlParseOneSectionInt(l, n, "DPI", 0);
    _QlParseOneSectionString(l, n, "Duplex", "", out->DuplexOpt, sizeof out->DuplexOpt - 1);
    if (toFile) _QlParseOneSectionString(l, n, "Filename", "", out->Filename, sizeof out->Filename - 1);
}

// The value of the first line whose key is `key`, in a work area of 512
// bytes; null when no line has it with a value.
const char *findKey(char **lines, int count, const char *key, char (&work)[512]) {
    for (int i = 0; i < count; ++i) {
        if (!lines[i]) continue;
        std::strncpy(work, lines[i], sizeof work - 1);
        work[sizeof work - 1] = '\0';
        char *eq = std::strchr(work, '=');
        if (!eq) continue;
        *eq = '\0';
        char *value = eq + 1;
        value[std::strcspn(value, "\n")] = '\0';
        value = stripspace(value);
        if (*value && same(stripspace(work), key)) return value;
    }
    return nullptr;
}

}  // namespace

int _QlDriverOfWord(const char *word) {
    if (same(word, "PS") || same(word, "PostScript")) return 0;
    if (same(word, "PCL") || same(word, "PCL5")) return 1;
    if (same(word, "PCL4")) return 2;
    return -1;
}

int _QlGetPortsInfo(char **lines, int count, char **names, char **commands) {
    int n = 0;
    for (int i = 0; i < count; ++i) {
        if (!lines[i]) continue;
        std::string work = lines[i];
        char *eq = std::strchr(work.data(), '=');
        if (!eq) continue;
        *eq = '\0';
        char *name = stripspace(work.data()), *command = stripspace(eq + 1);
        if (!*name || !*command) continue;
        names[n] = _kvo_strdup(name);
        commands[n] = _kvo_strdup(command);
        ++n;
    }
    return n;
}

_PrinterInfo *_QlGetPrinterInfo() {
    auto *info = static_cast<_PrinterInfo *>(std::calloc(1, sizeof(_PrinterInfo)));
    if (!info) return nullptr;
    if (const char *profile = _QlProfileName()) {
        Section ports("ports", profile);
        if (ports.lines) {
            info->ports = static_cast<char **>(std::calloc(ports.count, sizeof(char *)));
            info->commands = static_cast<char **>(std::calloc(ports.count, sizeof(char *)));
            info->num_port = _QlGetPortsInfo(ports.lines, ports.count, info->ports, info->commands);
        }
        Section devices("devices", profile);
        if (devices.lines) {
            for (int i = 0; i < devices.count; ++i) addDevices(info, devices.lines[i]);
            char device[500] = {};
            _QlGetProfileString("windows", "device", "", device, sizeof device - 1);
            if (device[0] && takeDefault(info, device)) return info;
        }
    }
    // Output to the default file, through PostScript.
    info->magic = QL_FILE_MAGIC;
    info->fileDid = 0;
    info->currentPort = -1;
    std::free(info->fileName);
    info->fileName = _kvo_strdup(_QlDefaultOutfile(nullptr));
    return info;
}

int _freePrinterInfo(_PrinterInfo *info) {
    if (!info) return 0;
    std::free(info->fileName);
    freeDString(info->names, info->num_printer);
    freeDString(info->nicknames, info->num_printer);
    std::free(info->Dids);
    std::free(info->portIndices);
    freeDString(info->commands, info->num_port);
    freeDString(info->ports, info->num_port);
    std::free(info);
    return 0;
}

int _QlGetCommonPrinterInfo(_PrinterInfo *info, QlPrinterSettings *out, int device, int driver) {
    if (!out) return 0;
    std::memset(out, 0, sizeof *out);
    out->BitmapCompression = -1;
    const char *profile = _QlProfileName();
    if (device >= 0) {
        out->magic = QL_PRINTER_MAGIC;
        if (!info || device >= info->num_printer) {
            _QlError(eUnknownPrt, "_QlGetCommonPrinterInfo", "");
            return 0;
        }
        int port = info->portIndices[device];
        out->portIndex = port;
        out->Did = info->Dids[device];
        const char *word = wordOfDid(out->Did);
        std::string section = ql::format("%s,%s,%s", info->names[device], word ? word : "", portName(info, port));
        if (port >= 0 && port < info->num_port) setText(out->Command, info->commands[port]);
        setText(out->PPDName, info->names[device]);
        if (!profile) return 0;
        Section sec(section.c_str(), profile);
        if (!sec.lines) {
            // A device never saved prints one copy at natural size, upright.
            out->Copies = 1;
            out->Scale = 1.0;
            out->Orientation = 1;
            return 1;
        }
        readSettings(sec, out, false);
        return 1;
    }
    out->magic = QL_FILE_MAGIC;
    out->Did = driver;
    out->portIndex = -1;
    if (driver < 0 || driver > 2) return 0;
    std::string section = ql::format("Qualin,%s", wordOfDid(driver));
    Section sec(section.c_str(), profile);
    if (!sec.lines) {
        setText(out->Filename, _QlDefaultOutfile(nullptr));
        return 0;
    }
    readSettings(sec, out, true);
    return 1;
}

int _QlParseOneSectionString(char **lines, int count, const char *key, const char *deflt, char *dst, unsigned len) {
    char work[512];
    const char *value = lines && key ? findKey(lines, count, key, work) : nullptr;
    if (dst && len) std::strncpy(dst, value ? value : deflt ? deflt : "", len);
    return value ? 1 : 0;
}

double _QlParseOneSectionDouble(char **lines, int count, const char *key, double deflt) {
    char work[512];
    const char *value = lines && key ? findKey(lines, count, key, work) : nullptr;
    ql::CLocale numbers;
    double v;
    return value && std::sscanf(value, "%lf", &v) == 1 ? v : deflt;
}

int _QlParseOneSectionInt(char **lines, int count, const char *key, int deflt) {
    char work[512];
    const char *value = lines && key ? findKey(lines, count, key, work) : nullptr;
    return value ? static_cast<int>(std::strtol(value, nullptr, 10)) : deflt;
}

char *get_ports_of_currentP(const char *deviceKey, _PrinterInfo *info) {
    int cur = info ? info->currentP : -1;
    if (!deviceKey || cur < 0 || cur >= info->num_printer) return _kvo_strdup("FILE:");
    std::string list = portName(info, info->portIndices[cur]);
    std::vector<std::string_view> listed{portName(info, info->portIndices[cur])};
    size_t keyLength = std::strlen(deviceKey);
    for (int i = 0; i < info->num_printer; ++i) {
        if (i == cur || info->Dids[i] != info->Dids[cur] || std::strcmp(info->names[i], info->names[cur]) != 0 ||
            std::strncmp(info->nicknames[i], deviceKey, keyLength) != 0)
            continue;
        std::string_view port = portName(info, info->portIndices[i]);
        bool seen = false;
        for (auto p : listed) seen = seen || p == port;
        if (seen || list.size() + 1 + port.size() > 1023) continue;
        list += ',';
        list += port;
        listed.push_back(port);
    }
    auto *out = static_cast<char *>(std::malloc(1024));
    if (!out) return _kvo_strdup("FILE:");
    std::memcpy(out, list.c_str(), list.size() + 1);
    return out;
}

void _QlWritePrinterOutputSec(FILE *fp, QlPrinterSettings *s) {
    if (s->Scale > 0.0001) ql::put(fp, "Scale=%.2f\n", s->Scale);
    if (s->Copies > 0) ql::put(fp, "Copies=%d\n", s->Copies);
    if (s->PaperTray[0]) ql::put(fp, "PaperTray=%s\n", text(s->PaperTray));
    if (s->PageSize[0]) ql::put(fp, "PageSize=%s\n", text(s->PageSize));
    if (s->Orientation == 1) ql::write(fp, "Orientation=Portrait\n");
    if (s->Orientation == 2) ql::write(fp, "Orientation=LandScape\n");
    if (s->DPI != 0) ql::put(fp, "DPI=%d\n", s->DPI);
    if (s->BitmapCompression >= 0 && s->BitmapCompression != 1)
        ql::put(fp, "BitmapCompression=%d\n", s->BitmapCompression);
    if (s->DuplexOpt[0]) ql::put(fp, "Duplex=%s\n", text(s->DuplexOpt));
}

void _QlWriteFileOutputSec(FILE *fp, QlPrinterSettings *s) {
    if (s->Filename[0]) ql::put(fp, "Filename=%s\n", text(s->Filename));
    if (s->Scale > 0.0001) ql::put(fp, "Scale=%.2f\n", s->Scale);
    if (s->Copies > 0) ql::put(fp, "Copies=%d\n", s->Copies);
    if (s->Orientation == 1) ql::write(fp, "Orientation=Portrait\n");
    if (s->Orientation == 2) ql::write(fp, "Orientation=LandScape\n");
    if (s->PageSize[0]) ql::put(fp, "PageSize=%s\n", text(s->PageSize));
    if (s->DPI != 0) ql::put(fp, "DPI=%d\n", s->DPI);
    if (s->BitmapCompression >= 0 && s->BitmapCompression != 1)
        ql::put(fp, "BitmapCompression=%d\n", s->BitmapCompression);
}

// Rewrites the default device line, the device's settings section and, for
// a printer, its [devices] line, copying everything else.  The file is
// replaced whole, or left as it was.
int _QlWriteCommonPrinterInfo(_PrinterInfo *info, QlPrinterSettings *s, const char *path) {
    if (!s || !path) return -2;
    bool existed = access(path, F_OK) == 0;
    if (existed && access(path, W_OK) != 0) return -2;
    if (existed && access(path, R_OK) != 0) return -3;
    // A command changed by hand matches no port.
    if (s->portIndex != -1) {
        int pi = s->portIndex;
        bool known = info && pi >= 0 && pi < info->num_port && info->commands[pi] &&
                     text(s->Command) == info->commands[pi];
        if (!known) {
            _QlError(eWrongPort, "_QlWriteCommonPrinterInfo");
            return 1;
        }
    }
    if (!existed) {
        FILE *created = std::fopen(path, "w+");
        if (!created) return -2;
        std::fclose(created);
    }
    const char *word = wordOfDid(s->Did);
    if (!word) return -5;
    bool printer = s->magic == QL_PRINTER_MAGIC;
    const char *port = s->portIndex == -1 ? "FILE:" : info->ports[s->portIndex];
    std::string model = text(s->PPDName);
    std::string section = printer ? ql::format("%s,%s,%s", model, word, port) : ql::format("Qualin,%s", word);
    std::string deviceLine;
    if (printer) {
        if (model.empty()) return -6;
        deviceLine = ql::format("device=%s,%s,%s\n", model, word,
                                s->Command[0] && s->portIndex >= 0 ? port : "FILE:");
    } else {
        deviceLine = ql::format("device=NULL,%s,FILE:\n", word);
    }

    FILE *in = std::fopen(path, "r");
    if (!in) return -3;
    ql::FileReplacement replacement(path);
    FILE *out = replacement.stream();
    if (!out) {
        std::fclose(in);
        return -4;
    }
    auto writeSettings = [&] { printer ? _QlWritePrinterOutputSec(out, s) : _QlWriteFileOutputSec(out, s); };

    bool deviceDone = false, settingsDone = false;
    bool devicesDone = !info || info->magic != QL_PRINTER_MAGIC;
    char line[256];
    bool pending = false;  // `line` holds a header to be read again
    auto read = [&] { return ql::ReadProfileLine(in, line, sizeof line); };
    auto next = [&] {
        if (pending) {
            pending = false;
            return true;
        }
        return read();
    };

    while (next()) {
        if (!line[0]) {
            ql::write(out, "\n");
            continue;
        }
        if (line[0] != '[' || (deviceDone && settingsDone && devicesDone)) {
            ql::put(out, "%s\n", line);
            continue;
        }
        std::string name(line + 1, std::strcspn(line + 1, "]"));
        if (name.empty()) {
            ql::put(out, "%s\n", line);
            continue;
        }
        ql::put(out, "[%s]\n", name);

        if (!deviceDone && same(name.c_str(), "windows")) {
            bool written = false;
            while (read()) {
                if (line[0] == '[') {
                    pending = true;
                    break;
                }
                char *l = stripspace(line);
                if (!*l) continue;
                std::string_view key(l, std::strcspn(l, "="));
                if (key.size() == 6 && !_kvo_strncasecmp(l, "device", 6)) {
                    if (!written) ql::write(out, deviceLine);
                    written = true;
                } else {
                    ql::put(out, "%s\n", l);
                }
            }
            if (!written) ql::write(out, deviceLine);
            ql::write(out, "\n");
            deviceDone = true;
            // With the other two edits made, the header that ended this
            // section is not read again: what follows joins [windows].
            if (settingsDone && devicesDone) pending = false;
        } else if (!settingsDone && same(name.c_str(), section.c_str())) {
            while (read()) {
                if (line[0] == '[') {
                    pending = true;
                    break;
                }
            }
            writeSettings();
            if (pending) ql::write(out, "\n");
            settingsDone = true;
        } else if (!devicesDone && same(name.c_str(), "devices")) {
            std::string prefix;
            int cur = info->currentP;
            if (cur >= 0 && cur < info->num_printer) {
                std::string nick = info->nicknames[cur];
                size_t on = nick.rfind(" on ");
                std::string key = on == std::string::npos ? nick : nick.substr(0, on);
                const char *deviceWord = wordOfDid(info->Dids[cur]);
                if (!deviceWord) deviceWord = word;
                char *ports = get_ports_of_currentP(key.c_str(), info);
                ql::put(out, "%s=%s %s,%s\n", key, info->names[cur], deviceWord, ports);
                std::free(ports);
                prefix = ql::format("%s=%s %s", key, info->names[cur], deviceWord);
            }
            // The device's old line goes; with no current device every
            // line that is not empty goes.
            while (read()) {
                if (!line[0]) {
                    ql::write(out, "\n");
                    continue;
                }
                if (std::strncmp(line, prefix.c_str(), prefix.size()) == 0) continue;
                if (line[0] == '[') {
                    pending = true;
                    break;
                }
                ql::put(out, "%s\n", line);
            }
            devicesDone = true;
        }
    }
    if (!deviceDone) {
        ql::write(out, "\n[windows]\n");
        ql::write(out, deviceLine);
    }
    if (!settingsDone) {
        ql::put(out, "\n[%s]\n", section);
        writeSettings();
    }
    bool readOk = !std::ferror(in);
    std::fclose(in);
    if (!readOk) return -3;
    return replacement.commit() ? 1 : -2;
}

void _QlLoadCustomPageDefintions(QlPrinter *printer) {
    const char *profile = _QlProfileName();
    Section sec("CustomPageSizes", profile);
    if (!sec.lines) {
        printer->customPages = nullptr;
        return;
    }
    ql::CLocale numbers;
    QlCustomPage **tail = &printer->customPages;
    while (*tail) tail = &(*tail)->next;
    for (int i = 0; i < sec.count; ++i) {
        const char *line = sec.lines[i];
        const char *eq = std::strchr(line, '=');
        float v[6];
        if (!eq || std::sscanf(eq + 1, "%g,%g,%g,%g,%g,%g", &v[0], &v[1], &v[2], &v[3], &v[4], &v[5]) != 6) continue;
        auto *page = static_cast<QlCustomPage *>(std::calloc(1, sizeof(QlCustomPage)));
        page->name = static_cast<char *>(std::malloc(eq - line + 1));
        std::memcpy(page->name, line, eq - line);
        page->name[eq - line] = '\0';
        page->width = v[0];
        page->height = v[1];
        page->left = v[2];
        page->bottom = v[3];
        page->right = v[4];
        page->top = v[5];
        *tail = page;
        tail = &page->next;
    }
}

void _QlFreeCustomPages(QlCustomPage *list) {
    while (list) {
        QlCustomPage *next = list->next;
        std::free(list->name);
        std::free(list);
        list = next;
    }
}

// The printer list file: name:description:driver[:command] per line.
_PrinterInfo *_pInfoParser() {
    auto *info = static_cast<_PrinterInfo *>(std::calloc(1, sizeof(_PrinterInfo)));
    if (!info) return nullptr;
    FILE *f = nullptr;
    if (const char *home = std::getenv("HOME")) {
        std::string path = ql::PathFromComponents(home, nullptr, ".PrinterList");
        if (access(path.c_str(), R_OK) == 0) f = std::fopen(path.c_str(), "r");
    }
    if (!f) f = std::fopen(ql::PathFromComponents(QlConfigDir(), nullptr, "PrinterList").c_str(), "r");
    if (!f) return info;

    char *buf = nullptr;
    size_t cap = 0;
    int lineNo = 0;
    while (getline(&buf, &cap, f) != -1) {
        ++lineNo;
        char *s = buf;
        while (*s == ' ') ++s;
        s[std::strcspn(s, "\r\n")] = '\0';
        if (!*s) continue;
        auto fault = [&] { _QlError(eSyntax, "_pInfoParser", "PrinterList", lineNo); };
        char *colon = s[0] == ':' ? nullptr : std::strchr(s, ':');
        if (!colon || !colon[1]) {
            fault();
            continue;
        }
        *colon = '\0';
        char *rest = colon + 1;
        while (*rest == ' ') ++rest;
        char *description = nullptr;
        if (*rest == ':') {
            ++rest;
        } else {
            description = rest;
            rest += std::strcspn(rest, ":");
            if (*rest) *rest++ = '\0';
        }
        char *driverWord = rest;
        rest += std::strcspn(rest, ":");
        if (*rest) *rest++ = '\0';
        char *name = stripspace(s);
        driverWord = stripspace(driverWord);
        description = description ? stripspace(description) : nullptr;
        int did = _QlDriverOfWord(driverWord);
        if (!*name || !*driverWord || did < 0) {
            fault();
            continue;
        }
        int n = info->num_printer;
        append(info->names, n, _kvo_strdup(name));
        append(info->nicknames, n, _kvo_strdup(description && *description ? description : name));
        append(info->Dids, n, did);
        append(info->portIndices, n, -1);  // no ports here; -1 keeps readers of the entry safe
        info->num_printer = n + 1;
    }
    std::free(buf);
    std::fclose(f);
    if (info->num_printer) info->magic = QL_PRINTER_MAGIC;
    return info;
}

int _QlStrcmpCaseless(const char *a, const char *b) {
    auto ia = reinterpret_cast<uintptr_t>(a), ib = reinterpret_cast<uintptr_t>(b);
    if (ia < 65535 || ib < 65535) {
        // Small integers and null stand in for names: their difference.
        long long d = static_cast<long long>(ia) - static_cast<long long>(ib);
        return d > INT_MAX ? INT_MAX : d < INT_MIN ? INT_MIN : static_cast<int>(d);
    }
    return _kvo_strcasecmp(a, b);
}

int bDebugCheck() { return bDebugMode; }
