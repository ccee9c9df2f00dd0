// Documents: start, pages, end, the spool pipeline that hands the finished
// file on, and the scale, orientation and copies of a printer.
#include "config/printerinfo.h"
#include "core/driver.h"
#include "core/out.h"
#include "port/kvo.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <pwd.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

int BoundsXmin, BoundsYmin, BoundsXmax, BoundsYmax;

namespace {

const char *defaultOutfile = "qualin.out";

// Characters that mean nothing to sh or csh, so that a name made only of
// them goes into a command line as it stands.
bool isPlainWord(std::string_view s, std::string_view extra = {}) {
    if (s.empty()) return false;
    for (unsigned char c : s) {
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) continue;
        if (std::string_view("_./+,:@%=-").find(c) != std::string_view::npos) continue;
        if (extra.find(c) != std::string_view::npos) continue;
        return false;
    }
    return true;
}

// The text as one sh word: single quotes, with each ' written as '\''.
std::string shellQuote(std::string_view s) {
    std::string q = "'";
    for (char c : s) {
        if (c == '\'') q += "'\\''";
        else q += c;
    }
    q += '\'';
    return q;
}

std::string shellWord(std::string_view s) { return isPlainWord(s) ? std::string(s) : shellQuote(s); }

// QLDOCNAME="name" for names that double quotes keep literal; anything that
// sh would expand inside double quotes goes in single quotes instead.
std::string docNameAssignment(const char *name) {
    std::string_view n(name);
    if (n.find_first_of("\"$`\\\n!") == std::string_view::npos) return ql::format("QLDOCNAME=\"%s\"", name);
    return "QLDOCNAME=" + shellQuote(n);
}

bool isDirectory(const char *path) {
    struct stat st;
    return path && *path && stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

int unix_print(QlPrinter *p) {
    std::string pipeline = _QlSpoolPipeline(p);
    if (_QlCheckSpace() == -1) {
        int saved = errno;
        if (p->tmpName) unlink(p->tmpName);
        errno = saved;
        return 0;
    }
    const char *outName = p->info ? p->info->fileName : nullptr;
    char *path = _QlReplaceTilde(outName);
    if (path) {
        // Make sure the output can be written before the pipeline runs.
        // Opened for appending: an existing file is not cut short here.
        FILE *f = std::fopen(path, "a");
        if (!f) {
            _QlError(eWriteFile, "unix_print", "");
            std::free(path);
            return 0;
        }
        std::fclose(f);
        std::free(path);
    }
    if (!pipeline.empty()) {
        std::fflush(nullptr);
        int rc = std::system(pipeline.c_str());
        (void)rc;
    }
    if (p->tmpName) unlink(p->tmpName);
    if (!outName) return 1;
    std::string text = ql::format("Output is in %s\n", outName);
    QlMessageBox(text.c_str(), "Qualin Information");
    return 1;
}

}  // namespace

std::string _QlSpoolPipeline(QlPrinter *p) {
    if (!p->tmpName || !p->command) return {};
    std::string name = docNameAssignment(p->docName ? p->docName : "qualin");
    std::string tmp = shellWord(p->tmpName);
    if (p->driverId == QL_DRIVER_POSTSCRIPT && !p->ppdDir && !p->ppdFile) {
        // A document of its own: the header's placeholder becomes the
        // bounding box of the last page.
        std::string sed = ql::format("sed \"s/BoUnDiNgBoX/%%%%BoundingBox: %d %d %d %d/\"", BoundsXmin, BoundsYmin,
                                     BoundsXmax, BoundsYmax);
        return ql::format("%s;cat %s|%s|%s", name, tmp, sed, p->command);
    }
    return ql::format("%s;cat %s|%s", name, tmp, p->command);
}

char *_QlReplaceTilde(const char *name) {
    if (!name || !*name) return nullptr;
    if (name[0] != '~') return _kvo_strdup(name);
    const char *rest = std::strchr(name, '/');
    std::string user(name + 1, rest ? rest - name - 1 : std::strlen(name + 1));
    const char *home = nullptr;
    if (user.empty()) {
        home = std::getenv("HOME");
        if (!home) {
            struct passwd *pw = getpwuid(getuid());
            home = pw ? pw->pw_dir : nullptr;
        }
    } else {
        struct passwd *pw = getpwnam(user.c_str());
        home = pw ? pw->pw_dir : nullptr;
    }
    if (!home) return _kvo_strdup(name);
    std::string out = std::string(home) + (rest ? rest : "");
    return _kvo_strdup(out.c_str());
}

const char *_QlDefaultOutfile(const char *name) { return name ? name : defaultOutfile; }

std::string _QlOSCopyFileCommand(const char *name) {
    const char *file = _QlDefaultOutfile(name);
    if (isPlainWord(file, "~")) return ql::format("csh -f -c 'cat >%s'", file);
    // A name that a shell would read as more than a file name: expand "~"
    // here and hand the file to a plain redirection, quoted.
    char *expanded = _QlReplaceTilde(file);
    std::string command = "cat >" + shellQuote(expanded ? expanded : file);
    std::free(expanded);
    return command;
}

char *_QlTempnam(const char *directory, const char *prefix) {
    // The directory asked for (or QLTMPDIR) wins over TMPDIR.
    const char *dir = directory ? directory : std::getenv("QLTMPDIR");
    if (!isDirectory(dir)) dir = std::getenv("TMPDIR");
    if (!isDirectory(dir)) dir = "/tmp";
    std::string templ = ql::PathFromComponents(dir, nullptr, (std::string(prefix ? prefix : "") + "XXXXXX").c_str());
    char *name = _kvo_strdup(templ.c_str());
    if (!name) return nullptr;
    int fd = mkstemp(name);
    if (fd < 0) {
        // Not writable: no file, but the caller gets a name whose open fails.
        return name;
    }
    close(fd);
    return name;
}

int _QlForceStartDoc(QlPrinter *printer, const char *name) {
    if (printer->stream && printer->pageOpen) return 1;
    _QlError(wStartDoc, name);
    return 0;
}

int QlStartDoc(Display *handle, const char *name) {
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return 0;
    if (!p->command) {
        _QlError(wNoCmd, "QlStartDoc", _QlDefaultOutfile(nullptr));
        p->command = _kvo_strdup(_QlOSCopyFileCommand(nullptr).c_str());
    }
    std::free(p->docName);
    p->docName = name && *name ? _kvo_strdup(name) : nullptr;
    if (_QlCheckSpace() == -1) return 0;
    _QlSetLocaleC();
    int rc = PDDriverSwitch[p->driverId]->StartDoc(p);
    _QlResetLocale();
    return rc;
}

int QlStartPage(Display *handle) {
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return 0;
    if (!p->stream) {
        _QlError(eDocStart, "QlStartPage");
        return 0;
    }
    if (p->driverId == QL_DRIVER_POSTSCRIPT && p->pageNumber == 1 && !p->docHeadWritten)
        PDDriverSwitch[p->driverId]->Set(p);
    if (_QlCheckSpace() == -1) return 0;
    _QlSetLocaleC();
    int rc = PDDriverSwitch[p->driverId]->StartPage(p);
    _QlResetLocale();
    return rc;
}

int QlEndPage(Display *handle) {
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || !p->stream) return 0;
    p->pageNumber++;
    _QlSetLocaleC();
    int rc = PDDriverSwitch[p->driverId]->EndPage(p);
    _QlResetLocale();
    // A page that didn't reach the temporary file (its disk filled up on
    // the way) is as good as lost.
    return _QlCheckSpace() == -1 || std::ferror(p->stream) ? 0 : rc;
}

int QlEndDoc(Display *handle) {
    if (!handle) return 0;
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return QlIsDisplay(handle) ? 1 : 0;
    if (!p->stream) return 0;
    _QlSetLocaleC();
    PDDriverSwitch[p->driverId]->EndDoc(p);
    _QlResetLocale();
    const bool written = !std::ferror(p->stream);
    const bool closed = std::fclose(p->stream) == 0;
    p->stream = nullptr;
    if (!written || !closed) {
        // A document cut short by a full disk is never spooled: the
        // printer or the output file would get half of it.
        _QlError(eWriteFile, "QlEndDoc", p->tmpName ? p->tmpName : "");
        if (p->tmpName) unlink(p->tmpName);
        return 0;
    }
    return unix_print(p);
}

int QlAbortDoc(Display *handle) {
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return 0;
    if (p->stream) {
        std::fclose(p->stream);
        p->stream = nullptr;
        if (p->tmpName) unlink(p->tmpName);
    }
    _QlSetLocaleC();
    PDDriverSwitch[p->driverId]->AbortDoc(p);
    _QlResetLocale();
    return 1;
}

int QlPageEject(Display *handle) {
    if (!_QlAsPrinter(handle)) return 0;
    QlPrinter *p = _QlAsPrinter(handle);
    if (p->pageOpen && QlEndPage(handle) == 0) return 0;
    return QlStartPage(handle);
}

char *QlGetTmpName(Display *handle) {
    QlPrinter *p = _QlAsPrinter(handle);
    return p && p->stream ? p->tmpName : nullptr;
}

int QlSetScale(Display *handle, double value) {
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p || !(value > 0)) return -1;
    p->scale = value;
    return 1;
}

double QlGetScale(Display *handle) {
    QlPrinter *p = _QlAsPrinter(handle);
    return p ? p->scale : -1.0;
}

int QlSetOrientation(Display *handle, int value) {
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return -1;
    if (value < 0 || value > 2) {
        _QlError(wUnknownOrient, "QlSetOrientation");
        return -1;
    }
    if (value == 0) value = 1;
    if (value == p->orientation) return 1;
    p->orientation = value;
    if (p->driverId == QL_DRIVER_POSTSCRIPT) ps::OrientationChanged(p);
    return 1;
}

int QlGetOrientation(Display *handle) {
    QlPrinter *p = _QlAsPrinter(handle);
    return p ? p->orientation : 1;
}

int QlSetCopies(Display *handle, int copies) {
    QlPrinter *p = _QlAsPrinter(handle);
    if (!p) return -1;
    p->copies = copies;
    return 1;
}

int QlGetCopies(Display *handle) {
    QlPrinter *p = _QlAsPrinter(handle);
    return p ? p->copies : -1;
}

int QlSetBitmapCompression(Display *handle, int compression) {
    if (QlPrinter *p = _QlAsPrinter(handle)) p->bitmapCompression = compression;
    return 1;
}
