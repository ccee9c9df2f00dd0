// PPD parser: answers value, option-group and repeated-statement queries by
// rereading the file from the top on every call.  Nothing is cached; the
// only state kept between calls is the pair of match counters.
#include "config/ppd.h"

#include "core/qlint.h"
#include "fontdata/pfonts2.h"
#include "port/kvo.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

// Keys found by the running value search and option search.  Shared by
// every level of inclusion of one query; each public call resets its own.
int PPD_Count0 = 0;
int PPD_Count1 = 0;

namespace {

// Line sizes of the format.
constexpr int kLineRead = 256;     // statement lines and continuation lines
constexpr int kUiLineRead = 255;   // lines inside *OpenUI ... *CloseUI
constexpr size_t kKeywordArea = 96;
constexpr size_t kSmallArea = 64;  // Default<key>, ?<key>, OrderDependency words
constexpr size_t kNameArea = 256;  // *Include names: 255 characters

// Guards against *Include loops: deeper levels, or more opens than this in
// one query, are treated as files that cannot be opened.
constexpr int kMaxIncludeDepth = 32;
constexpr int kIncludeBudget = 512;
int gIncludeBudget = kIncludeBudget;

bool startsWith(const char *s, const char *prefix) {
    return s && std::strncmp(s, prefix, std::strlen(prefix)) == 0;
}

char *dupOrNull(const char *s) {
    if (!s) return nullptr;
    size_t n = std::strlen(s) + 1;
    char *p = static_cast<char *>(std::malloc(n));
    std::memcpy(p, s, n);
    return p;
}

char *dupView(std::string_view s) {
    char *p = static_cast<char *>(std::malloc(s.size() + 1));
    std::memcpy(p, s.data(), s.size());
    p[s.size()] = '\0';
    return p;
}

bool isSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

// The first whitespace-delimited word of s, cut to fit an area of `area`
// bytes with its terminator.
std::string_view firstWord(std::string_view s, size_t area) {
    size_t b = 0;
    while (b < s.size() && isSpace(s[b])) ++b;
    size_t e = b;
    while (e < s.size() && !isSpace(s[e])) ++e;
    return s.substr(b, std::min(e - b, area - 1));
}

// "<prefix><key>" in a work area of 64 bytes.
std::string smallKey(const char *prefix, const char *key) {
    std::string k = std::string(prefix) + key;
    if (k.size() > kSmallArea - 1) k.resize(kSmallArea - 1);
    return k;
}

QlPPDOptions *newOptions() { return static_cast<QlPPDOptions *>(std::calloc(1, sizeof(QlPPDOptions))); }

// Growing keyword/value lists, handed to a record as malloc'ed arrays.
struct EntryList {
    std::vector<char *> keywords, values;

    void add(const char *keyword, const char *value) {
        keywords.push_back(dupOrNull(keyword));
        values.push_back(dupOrNull(value ? value : ""));
    }
    // Appends the strings of a record, which this list now owns.
    void take(QlPPDOptions *rec) {
        for (int i = 0; i < rec->count; ++i) {
            keywords.push_back(rec->keywords[i]);
            values.push_back(rec->values[i]);
        }
    }
    void store(QlPPDOptions *rec) const {
        rec->count = static_cast<int>(keywords.size());
        if (keywords.empty()) return;
        size_t bytes = keywords.size() * sizeof(char *);
        rec->keywords = static_cast<char **>(std::malloc(bytes));
        rec->values = static_cast<char **>(std::malloc(bytes));
        std::memcpy(rec->keywords, keywords.data(), bytes);
        std::memcpy(rec->values, values.data(), bytes);
    }
    void release() {
        for (char *p : keywords) std::free(p);
        for (char *p : values) std::free(p);
        keywords.clear();
        values.clear();
    }
};

// Frees a record and its two arrays, but none of the strings.
void halffreeMultiple(QlPPDOptions *rec) {
    if (!rec) return;
    std::free(rec->keywords);
    std::free(rec->values);
    std::free(rec);
}

// Remembers the working directory and moves to <baseDir>/ppds for the
// life of a query, so that relative *Include names resolve there.
class PpdDirectory {
public:
    explicit PpdDirectory(const char *baseDir) {
        if (!baseDir) return;
#ifdef O_PATH
        fd_ = ::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
#else
        fd_ = ::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
#endif
        if (fd_ < 0) haveSaved_ = ::getcwd(saved_, sizeof saved_) != nullptr;
        std::string dir(baseDir);
        if (dir.empty() || dir.back() != '/') dir += '/';
        dir += "ppds";
        changed_ = _kvo_chdir(dir.c_str()) == 0;  // a failed change is ignored
    }
    ~PpdDirectory() {
        if (changed_) {
            if (fd_ >= 0) {
                if (::fchdir(fd_) != 0) { /* nothing better to do */ }
            } else if (haveSaved_) {
                if (::chdir(saved_) != 0) { /* nothing better to do */ }
            }
        }
        if (fd_ >= 0) ::close(fd_);
    }
    PpdDirectory(const PpdDirectory &) = delete;
    PpdDirectory &operator=(const PpdDirectory &) = delete;

private:
    int fd_ = -1;
    bool changed_ = false;
    bool haveSaved_ = false;
    char saved_[256] = {};
};

// What every public query holds for its length: numbers read in the C
// locale, the working directory at <baseDir>/ppds, a fresh budget of
// inclusions.
struct QueryScope {
    ql::CLocale numbers;
    PpdDirectory dir;
    explicit QueryScope(const char *baseDir) : dir(baseDir) { gIncludeBudget = kIncludeBudget; }
};

// Line-owning wrapper for parseLine's result.
struct LinePtr {
    QlPPDLine *p;
    explicit LinePtr(QlPPDLine *line) : p(line) {}
    ~LinePtr() { freeLine(p); }
    LinePtr(const LinePtr &) = delete;
    LinePtr &operator=(const LinePtr &) = delete;
    QlPPDLine *operator->() const { return p; }
    explicit operator bool() const { return p != nullptr; }
};

// Opens the file an *Include statement names.  Reports and gives null when
// it cannot be opened; a name that does not decode gives null silently
// (parseFName has said why, where there was something to say).
FILE *openInclude(const char *function, const char *value, int depth) {
    char *name = parseFName(value);
    if (!name) return nullptr;
    FILE *f = nullptr;
    if (depth < kMaxIncludeDepth && gIncludeBudget > 0) {
        --gIncludeBudget;
        f = _QlfopenTryBothCases(name, "r");
    } else {
        errno = ELOOP;
    }
    if (!f) {
        int saved = errno;
        _QlError(ePPDSyntax3, function, "invalid file name:", value);
        errno = saved;
        std::perror(name);
    }
    std::free(name);
    return f;
}

// Reads on to the line that begins with "*CloseUI", or to the end.
void skipOpenUI(FILE *fp) {
    char buf[kUiLineRead];
    while (std::fgets(buf, sizeof buf, fp))
        if (std::strncmp(buf, "*CloseUI", 8) == 0) return;
}

char **_PPDGetValues(FILE *fp, const char **keys, int n, int depth) {
    char **result = static_cast<char **>(std::calloc(n, sizeof(char *)));
    char buf[kLineRead];
    while (PPD_Count0 != n && std::fgets(buf, sizeof buf, fp)) {
        LinePtr line(parseLine(fp, buf));
        if (!line || !line->main) continue;
        if (startsWith(line->main, "OpenUI")) {
            skipOpenUI(fp);
        } else if (startsWith(line->main, "Include")) {
            FILE *inc = openInclude("_PPDGetValues", line->value, depth);
            if (!inc) continue;
            char **found = _PPDGetValues(inc, keys, n, depth + 1);
            for (int i = 0; i < n; ++i) {
                if (!result[i] && found[i]) {
                    result[i] = dupOrNull(found[i]);
                    ++PPD_Count0;
                }
            }
            freeDString(found, n);
            std::fclose(inc);
        } else if (line->value) {
            for (int i = 0; i < n; ++i) {
                if (!result[i] && startsWith(line->main, keys[i])) {
                    result[i] = dupOrNull(line->value);
                    ++PPD_Count0;
                    break;
                }
            }
        }
    }
    return result;
}

// Reads one option group, called with the parsed *OpenUI line.
QlPPDOptions *getOptions(FILE *fp, QlPPDLine *openUi) {
    if (!openUi || !openUi->option || std::strlen(openUi->option) < 2) return nullptr;
    const char *key = openUi->option + 1;
    std::string defaultKey = smallKey("Default", key);
    std::string queryKey = smallKey("?", key);
    QlPPDOptions *rec = newOptions();
    if (const char *v = openUi->value) {
        if (std::strncmp(v, "PickOne", 7) == 0) rec->uiType = 1;
        else if (std::strncmp(v, "PickMany", 8) == 0) rec->uiType = 2;
        else if (std::strncmp(v, "Boolean", 7) == 0) rec->uiType = 3;
    }
    EntryList list;
    char buf[kUiLineRead];
    bool closed = false;
    while (std::fgets(buf, sizeof buf, fp)) {
        LinePtr line(parseLine(fp, buf));
        if (!line || !line->main) continue;
        const char *main = line->main;
        if (startsWith(main, "CloseUI")) {
            closed = true;
            break;
        }
        if (startsWith(main, key)) {
            if (line->option && *line->option) list.add(line->option, line->value);
        } else if (startsWith(main, defaultKey.c_str())) {
            std::free(rec->defaultValue);
            rec->defaultValue = dupOrNull(line->value);
        } else if (startsWith(main, "OrderDependency")) {
            if (rec->orderSet == 1 || !line->value) continue;
            // A number and then words, as "%lf%s%s%s" would take them: only
            // the three-item form (number, section, keyword) is taken.
            double number = 0;
            int used = 0;
            if (std::sscanf(line->value, "%lf%n", &number, &used) != 1) continue;
            std::string_view rest(line->value + used);
            std::string_view words[3];
            int count = 0;
            while (count < 3) {
                std::string_view w = firstWord(rest, SIZE_MAX);
                if (w.empty()) break;
                rest.remove_prefix(static_cast<size_t>(w.data() - rest.data()) + w.size());
                words[count++] = w;
            }
            if (count != 2) continue;
            rec->orderSet = 1;
            rec->order = static_cast<double *>(std::malloc(sizeof(double)));
            *rec->order = number;
            rec->section = static_cast<char **>(std::malloc(sizeof(char *)));
            rec->section[0] = dupView(words[0].substr(0, kSmallArea - 1));
        } else if (startsWith(main, queryKey.c_str())) {
            std::free(rec->query);
            rec->query = dupOrNull(line->value);
        }
    }
    if (!closed) _QlError(ePPDSyntax3, "getOptions", "no CloseUI for ", key);
    list.store(rec);
    return rec;
}

QlPPDOptions **_PPDGetOptions(FILE *fp, const char **keys, int n, int depth) {
    auto **result = static_cast<QlPPDOptions **>(std::calloc(n, sizeof(QlPPDOptions *)));
    char buf[kLineRead];
    while (PPD_Count1 != n && std::fgets(buf, sizeof buf, fp)) {
        LinePtr line(parseLine(fp, buf));
        if (!line || !line->main) continue;
        if (startsWith(line->main, "OpenUI") && line->option) {
            const char *name = line->option + 1;
            int match = -1;
            for (int i = 0; i < n && match < 0; ++i)
                if (startsWith(name, keys[i])) match = i;
            if (match < 0) {
                skipOpenUI(fp);
                continue;
            }
            // A later group for the same key replaces the earlier one.
            _QlFreeOptions(result[match]);
            result[match] = getOptions(fp, line.p);
            ++PPD_Count1;
        } else if (startsWith(line->main, "Include")) {
            FILE *inc = openInclude("_PPDGetOptions", line->value, depth);
            if (!inc) continue;
            QlPPDOptions **found = _PPDGetOptions(inc, keys, n, depth + 1);
            for (int i = 0; i < n; ++i) {
                if (!found[i]) continue;
                if (!result[i]) {
                    result[i] = found[i];
                    ++PPD_Count1;
                } else {
                    _QlFreeOptions(found[i]);
                }
            }
            std::free(found);
            std::fclose(inc);
        }
    }
    return result;
}

QlPPDOptions *getMultiples(FILE *fp, const char *key, int depth) {
    std::rewind(fp);
    std::string defaultKey = smallKey("Default", key);
    std::string queryKey = smallKey("?", key);
    QlPPDOptions *rec = newOptions();
    EntryList list;
    char buf[kLineRead];
    while (std::fgets(buf, sizeof buf, fp)) {
        LinePtr line(parseLine(fp, buf));
        if (!line || !line->main) continue;
        const char *main = line->main;
        if (startsWith(main, key) && line->option) {
            list.add(line->option, line->value);
        } else if (startsWith(main, defaultKey.c_str())) {
            if (!rec->defaultValue) rec->defaultValue = dupOrNull(line->value);
        } else if (startsWith(main, queryKey.c_str())) {
            if (!rec->query) rec->query = dupOrNull(line->value);
        } else if (startsWith(main, "Include")) {
            FILE *inc = openInclude("PPDGetMultiples", line->value, depth);
            if (!inc) continue;
            QlPPDOptions *found = getMultiples(inc, key, depth + 1);
            std::fclose(inc);
            if (!found) continue;
            list.take(found);
            if (!rec->defaultValue) rec->defaultValue = found->defaultValue;
            else std::free(found->defaultValue);
            if (!rec->query) rec->query = found->query;
            else std::free(found->query);
            halffreeMultiple(found);
        }
    }
    if (list.keywords.empty() && !rec->defaultValue) {
        _QlFreeOptions(rec);
        return nullptr;
    }
    list.store(rec);
    return rec;
}

// Collects a null-terminated argument list of keys.
std::vector<const char *> gatherKeys(const char *first, va_list ap) {
    std::vector<const char *> keys;
    for (const char *k = first; k; k = va_arg(ap, const char *)) keys.push_back(k);
    return keys;
}

}  // namespace

QlPPDLine *parseLine(FILE *fp, char *line) {
    if (!line || line[0] != '*' || line[1] == '%') return nullptr;
    char *body = line + 1;
    char *colon = std::strchr(body, ':');
    char *keyEnd = colon ? colon : body + std::strcspn(body, "\r\n");
    if (keyEnd == body) {
        _QlError(ePPDSyntax2, "parseLine", line);
        return nullptr;
    }

    // The value text: behind the ":" up to the newline, trimmed.
    char *text = nullptr;
    if (colon) {
        text = colon + 1;
        text[std::strcspn(text, "\n")] = '\0';
        while (*text == ' ' || *text == '\t') ++text;
        size_t len = std::strlen(text);
        while (len > 0 && (text[len - 1] == ' ' || text[len - 1] == '\r' || text[len - 1] == '\n')) --len;
        text[len] = '\0';
    }
    *keyEnd = '\0';

    const char *single = nullptr;
    bool multiLine = false;
    std::string joined;
    if (text) {
        if (*text != '"') {
            text[std::strcspn(text, "/")] = '\0';  // drop a translation
            single = text;
        } else if (char *close = std::strchr(text + 1, '"')) {
            *close = '\0';
            single = text + 1;
        } else {
            multiLine = true;
            joined = text + 1;
            joined += '\n';
        }
    }

    // Main keyword up to the first blank; the option keyword is the first
    // word behind it, before any translation.
    std::string_view key(body);
    size_t blank = key.find_first_of(" \t");
    std::string_view mainPart = key.substr(0, blank);
    std::string_view rest = blank == std::string_view::npos ? std::string_view() : key.substr(blank + 1);
    rest = rest.substr(0, rest.find('/'));
    std::string_view mainWord = firstWord(mainPart, kKeywordArea);
    std::string_view optionWord = firstWord(rest, kKeywordArea);

    auto *rec = static_cast<QlPPDLine *>(std::calloc(1, sizeof(QlPPDLine)));
    if (!mainWord.empty()) rec->main = dupView(mainWord);
    if (!optionWord.empty()) rec->option = dupView(optionWord);
    const char *mainName = rec->main ? rec->main : "";

    if (multiLine) {
        char buf[kLineRead];
        bool ended = false;
        while (fp && std::fgets(buf, sizeof buf, fp)) {
            if (std::strncmp(buf, "*End", 4) == 0) {
                ended = true;
                break;
            }
            joined += buf;
        }
        if (!ended) {
            _QlError(ePPDSyntax3, "parseLine", "no *End for mutiline strings:", mainName);
        } else if (size_t q = joined.rfind('"'); q != std::string::npos) {
            joined.resize(q);
        } else {
            _QlError(ePPDSyntax3, "parseLine", "no \" ends it:", mainName);
        }
        rec->value = dupView(joined);
    } else if (single && *single) {
        rec->value = dupOrNull(single);
    }
    return rec;
}

void freeLine(QlPPDLine *line) {
    if (!line) return;
    std::free(line->main);
    std::free(line->option);
    std::free(line->value);
    std::free(line);
}

char *parseFName(const char *value) {
    if (!value) return nullptr;
    char work[kNameArea];
    std::snprintf(work, sizeof work, "%s", value);
    std::string name;
    for (const char *p = work; *p && name.size() < kNameArea - 1;) {
        if (*p != '<') {
            name += *p++;
            continue;
        }
        ++p;
        std::string run;
        while (*p && *p != '>' && run.size() < kNameArea - 1) run += *p++;
        if (*p == '>') ++p;
        if (run.size() % 2 != 0) {
            _QlError(ePPDSyntax3, "parseFName", "odd number of hexical number: ", run.c_str());
            return nullptr;
        }
        for (size_t i = 0; i + 1 < run.size() && name.size() < kNameArea - 1; i += 2) {
            char pair[3] = {run[i], run[i + 1], '\0'};
            name += static_cast<char>(std::strtol(pair, nullptr, 16));
        }
    }
    // A decoded zero byte ends the name.
    name.resize(std::strlen(name.c_str()));
    if (name.empty()) return nullptr;
    return dupView(name);
}

char **PPDGetValues(int, FILE *fp, const char *baseDir, const char *key, ...) {
    if (!fp || !key) return nullptr;
    va_list ap;
    va_start(ap, key);
    std::vector<const char *> keys = gatherKeys(key, ap);
    va_end(ap);
    QueryScope scope(baseDir);
    PPD_Count0 = 0;
    std::rewind(fp);
    return _PPDGetValues(fp, keys.data(), static_cast<int>(keys.size()), 0);
}

QlPPDOptions **PPDGetOptions(int, FILE *fp, const char *baseDir, const char *key, ...) {
    if (!fp || !key) return nullptr;
    va_list ap;
    va_start(ap, key);
    std::vector<const char *> keys = gatherKeys(key, ap);
    va_end(ap);
    QueryScope scope(baseDir);
    PPD_Count1 = 0;
    std::rewind(fp);
    return _PPDGetOptions(fp, keys.data(), static_cast<int>(keys.size()), 0);
}

QlPPDOptions *PPDGetMultiples(FILE *fp, const char *baseDir, const char *key) {
    if (!fp || !key) return nullptr;
    QueryScope scope(baseDir);
    return getMultiples(fp, key, 0);
}

char *PPDGetOptionValue(QlPPDOptions *rec, const char *name) {
    if (!rec || !name || rec->count <= 0 || !rec->keywords) return nullptr;
    size_t len = std::strlen(name);
    int last = 0;
    for (int i = 0; i < rec->count; ++i) {
        if (!rec->keywords[i]) continue;
        last = std::strncmp(rec->keywords[i], name, len);
        if (last == 0) return rec->values ? rec->values[i] : nullptr;
    }
    // Callers ask only for what the record holds.  Without a match the
    // answer is the non-zero result of the last comparison, not a null
    // pointer; it must not be used as a string.
    return reinterpret_cast<char *>(static_cast<intptr_t>(last));
}

QlPPDOptions *_AddStringToOptionList(QlPPDOptions *rec, const char *keyword, const char *value) {
    if (!rec) return nullptr;
    QlPPDOptions *grown = newOptions();
    *grown = *rec;
    int n = rec->count < 0 ? 0 : rec->count;
    grown->keywords = static_cast<char **>(std::malloc((n + 1) * sizeof(char *)));
    grown->values = static_cast<char **>(std::malloc((n + 1) * sizeof(char *)));
    for (int i = 0; i < n; ++i) {
        grown->keywords[i] = rec->keywords[i];
        grown->values[i] = rec->values[i];
    }
    grown->keywords[n] = _kvo_strdup(keyword);
    grown->values[n] = _kvo_strdup(value);
    grown->count = n + 1;
    // The strings moved over; only the old arrays and the record go.
    halffreeMultiple(rec);
    return grown;
}

void _QlFreeOptions(QlPPDOptions *rec) {
    if (!rec) return;
    std::free(rec->defaultValue);
    std::free(rec->query);
    std::free(rec->order);
    for (int i = 0; i < rec->count; ++i) {
        if (rec->keywords) std::free(rec->keywords[i]);
        if (rec->values) std::free(rec->values[i]);
    }
    std::free(rec->keywords);
    std::free(rec->values);
    if (rec->orderSet == 1 && rec->section) {
        std::free(rec->section[0]);
        std::free(rec->section);
    }
    std::free(rec);
}

void freeDString(char **array, int n) {
    if (!array) return;
    for (int i = 0; i < n; ++i) std::free(array[i]);
    std::free(array);
}

void freeDOptions(QlPPDOptions **array, int n) {
    if (!array) return;
    for (int i = 0; i < n; ++i) _QlFreeOptions(array[i]);
    std::free(array);
}

void freeMultiple(QlPPDOptions *rec) {
    if (!rec) return;
    for (int i = 0; i < rec->count; ++i) {
        if (rec->keywords) std::free(rec->keywords[i]);
        if (rec->values) std::free(rec->values[i]);
    }
    halffreeMultiple(rec);
}

FILE *_QlfopenTryBothCases(const char *path, const char *mode) {
    if (!path || !mode) return nullptr;
    if (FILE *f = std::fopen(path, mode)) return f;
    std::string lower = path;
    _QlLowerCaseFileName(lower.data());
    return std::fopen(lower.c_str(), mode);
}

int _QlaccessTryBothCases(const char *path, int mode) {
    if (!path) return -1;
    int r = _kvo_access(path, mode);
    if (r == 0) return r;
    std::string lower = path;
    _QlLowerCaseFileName(lower.data());
    return _kvo_access(lower.c_str(), mode);
}
