// Real PPD files: every file of a corpus (the CUPS driver archives of
// openprinting-ppds and printer-driver-postscript-hp, and the plain PPD
// files on disk) is installed as "ppds/<model>.PS" of a scratch
// configuration directory and opened as a PostScript printer.  Nothing may
// crash or leak; a file the library refuses must be refused with message 9,
// and only where the file has no PaperDimension or ImageableArea (or no
// default of one); and what an opened printer lists (page sizes with their
// geometry, resolutions, trays, duplex options, fonts, product, model) must
// be what a reading of the file's text gives.
//
// That reading is the test's own (namespace ref below), written from the
// documented rules of the PPD parser and the PostScript page device,
// quirks included: lines arrive in reads of 255 or 254
// characters, only "*End" closes a multi-line value (a value closed by a
// quote alone swallows the statements behind it), blocks of *JCLOpenUI are
// not option groups, the option search stops when its counter reaches the
// number of keys, keys match by prefix.  It does not call the parser.  The
// test counts the files that meet each rule, and those whose lists a plain
// reading (a value's closing quote ends it) would change.
//
// No real file lacks its paper tables, so copies of the first file of each
// source with PaperDimension or a default taken out stand for the refusal.
//
// The corpus comes from tests/scripts/ppd_corpus.py, which caches what it
// extracts under ${QL_BINARY_DIR}/ppd-corpus.  By default a few hundred
// files spread over both archives; QL_PPD_CORPUS=all takes every file,
// QL_PPD_CORPUS=<n> takes n of each archive.  QL_PPD_CORPUS_REPORT=<file>
// writes one line per file: source, name, outcome, rules met.  `make corpus`
// runs every file.
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses

#include "support/capture.h"
#include "support/tempdir.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <strings.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

using OptStr = std::optional<std::string>;

// ---------------------------------------------------------------------------
// The independent reading.
namespace ref {

// What a file met of the reading rules; the test counts files per rule.
enum Rule {
    kSplitLine,        // a line longer than the read size arrived in pieces
    kMultiLine,        // a multi-line value
    kSwallowed,        // a multi-line value took in statements (no "*End" after its quote)
    kUnterminated,     // a multi-line value ran to the end of the file
    kNoClosingQuote,   // a multi-line value had no quote before its "*End"
    kSyntaxLine,       // a statement with nothing before its ":"
    kNoCloseUI,        // an option group ran to the end of the file
    kEarlyStop,        // the option search stopped on its counter before the end
    kGroupReplaced,    // a later *OpenUI block for the same key replaced a group
    kPrefixGroup,      // an *OpenUI block whose name only begins with a key was taken
    kRepeatedPageSize, // PageSize came from repeated statements (e.g. a *JCLOpenUI block)
    kRepeatedOther,    // another UI group came from repeated statements
    kJCLResolution,    // the resolutions are those of JCLResolution
    kJCLCleaned,       // JCLResolution lost an entry or took Resolution's default
    kManualTray,       // ManualFeed added the tray "Manual"
    kDefaultFallback,  // a default of PageSize/PaperDimension/ImageableArea named no entry
    kUnqueryableSize,  // a listed page size without dimension or area
    kLongKeyword,      // a keyword longer than its 96-byte work area
    kInclude,          // an *Include statement
    kCarriageReturns,  // lines end in CR LF
    kTabSeparated,     // a tab, not a space, between main and option keyword
    kRuleCount
};
const char *const kRuleNames[kRuleCount] = {
    "lines longer than a read, taken in pieces",
    "multi-line values",
    "multi-line value closed by a quote alone, statements swallowed",
    "multi-line value open at end of file",
    "multi-line value with no closing quote before *End",
    "statement with an empty key",
    "option group without *CloseUI",
    "option search stopped early on its counter",
    "option group replaced by a later block",
    "option group taken by key prefix (e.g. *DuplexUnit for Duplex)",
    "PageSize from repeated statements (no *OpenUI group, e.g. *JCLOpenUI)",
    "PageRegion, InputSlot, Resolution, Duplex or JCLResolution from repeated statements",
    "resolutions from JCLResolution",
    "JCLResolution cleaned (non-numeric default)",
    "ManualFeed adds tray \"Manual\"",
    "default names no entry, first entry taken",
    "listed page size without dimension or area",
    "keyword longer than 95 characters",
    "*Include statements",
    "CR LF line ends",
    "tab between main and option keyword (split there like a space)",
};

const char *const kRuleTags[kRuleCount] = {
    "split-line", "multi-line", "swallowed", "open-at-eof", "no-quote", "empty-key", "no-closeui",
    "early-stop", "group-replaced", "prefix-group", "repeated-pagesize", "repeated-other", "jcl-resolution",
    "jcl-cleaned", "manual-tray", "default-fallback", "unqueryable-size", "long-keyword", "include", "crlf", "tab-separated",
};

struct Hits {
    std::array<bool, kRuleCount> rule{};
    void hit(Rule r) { rule[r] = true; }
};

bool StartsWith(const std::string &s, const std::string &prefix) { return s.compare(0, prefix.size(), prefix) == 0; }
bool StartsWith(const std::string &s, const char *prefix) { return s.compare(0, std::strlen(prefix), prefix) == 0; }

// A file and a read position; Gets is fgets with a buffer of `size` bytes.
struct Source {
    std::string bytes;
    size_t pos = 0;
    Hits *hits = nullptr;
    bool quoteCloses = false;  // the plain PPD reading: a value's closing quote ends it

    bool Gets(size_t size, std::string &out) {
        if (pos >= bytes.size()) return false;
        const char *b = bytes.data() + pos;
        size_t limit = std::min(bytes.size() - pos, size - 1);
        const char *nl = static_cast<const char *>(std::memchr(b, '\n', limit));
        size_t len = nl ? static_cast<size_t>(nl - b) + 1 : limit;
        if (!nl && pos + len < bytes.size()) hits->hit(kSplitLine);
        pos += len;
        const char *nul = static_cast<const char *>(std::memchr(b, '\0', len));
        out.assign(b, nul ? static_cast<size_t>(nul - b) : len);  // as a C string
        return true;
    }
};

struct Statement {
    OptStr main, option, value;
};

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

// The first blank-delimited word of [b, e), within a 96-byte work area.
OptStr Word(const char *b, const char *e, Hits &hits) {
    while (b < e && IsSpace(*b)) ++b;
    const char *w = b;
    while (w < e && !IsSpace(*w)) ++w;
    if (w == b) return std::nullopt;
    if (w - b > 95) {
        hits.hit(kLongKeyword);
        w = b + 95;
    }
    return std::string(b, w);
}

const char *Find(const char *b, const char *e, char c) {
    const char *p = static_cast<const char *>(std::memchr(b, c, static_cast<size_t>(e - b)));
    return p ? p : e;
}

// One statement from the line just read; continuation lines of a multi-line
// value are read from `src` (256-byte reads).
std::optional<Statement> Parse(Source &src, const std::string &line) {
    Hits &hits = *src.hits;
    if (line.empty() || line[0] != '*' || (line.size() > 1 && line[1] == '%')) return std::nullopt;
    const char *body = line.data() + 1, *end = line.data() + line.size();
    const char *colon = Find(body, end, ':');
    const char *keyEnd = colon;
    if (colon == end) {
        keyEnd = body;
        while (keyEnd < end && *keyEnd != '\r' && *keyEnd != '\n') ++keyEnd;
    }
    if (keyEnd == body) {
        hits.hit(kSyntaxLine);
        return std::nullopt;
    }
    Statement st;
    bool multi = false;
    std::string joined;
    if (colon != end) {
        const char *t = colon + 1, *te = Find(t, end, '\n');
        while (t < te && (*t == ' ' || *t == '\t')) ++t;
        while (te > t && (te[-1] == ' ' || te[-1] == '\r' || te[-1] == '\n')) --te;
        if (t == te || *t != '"') {
            te = Find(t, te, '/');
            if (te > t) st.value = std::string(t, te);
        } else if (const char *q = Find(t + 1, te, '"'); q != te) {
            if (q > t + 1) st.value = std::string(t + 1, q);
        } else {
            multi = true;
            joined.assign(t + 1, te);
            joined += '\n';
        }
    }
    const char *blank = body;
    while (blank < keyEnd && *blank != ' ' && *blank != '\t') ++blank;
    if (blank < keyEnd && *blank == '\t') hits.hit(kTabSeparated);
    st.main = Word(body, blank, hits);
    if (blank < keyEnd) st.option = Word(blank + 1, Find(blank + 1, keyEnd, '/'), hits);
    if (multi) {
        hits.hit(kMultiLine);
        std::string more;
        bool ended = false;
        while (src.Gets(256, more)) {
            if (more.compare(0, 4, "*End") == 0) {
                ended = true;
                break;
            }
            if (more.size() > 1 && more[0] == '*' && (std::isalpha(static_cast<unsigned char>(more[1])) || more[1] == '?'))
                hits.hit(kSwallowed);
            joined += more;
            if (src.quoteCloses && more.find('"') != std::string::npos) {
                ended = true;
                break;
            }
        }
        if (!ended) {
            hits.hit(kUnterminated);
        } else if (size_t q = joined.rfind('"'); q != std::string::npos) {
            joined.resize(q);
        } else {
            hits.hit(kNoClosingQuote);
        }
        st.value = std::move(joined);
    }
    return st;
}

struct Group {
    int uiType = 0;
    OptStr deflt, query;
    std::vector<std::string> keywords, values;
    bool Has(const std::string &k) const { return std::find(keywords.begin(), keywords.end(), k) != keywords.end(); }
    OptStr ValueOf(const std::string &k) const {
        for (size_t i = 0; i < keywords.size(); ++i)
            if (keywords[i] == k) return values[i];
        return std::nullopt;
    }
};
using OptGroup = std::optional<Group>;

std::string Small(const std::string &prefix, const std::string &key) { return (prefix + key).substr(0, 63); }

// The parser's three queries over one file, with *Include resolved in the
// directory `ppds` as the library does.
class Reader {
public:
    Reader(std::string path, std::string ppds, Hits &hits, bool quoteCloses = false)
        : path_(std::move(path)), ppds_(std::move(ppds)), hits_(hits), quoteCloses_(quoteCloses) {}

    bool Load() { return Slurp(path_, top_); }
    void Take(const std::string &bytes) {
        top_.bytes = bytes;
        top_.pos = 0;
        top_.hits = &hits_;
        top_.quoteCloses = quoteCloses_;
    }

    std::vector<OptGroup> Options(const std::vector<std::string> &keys) {
        budget_ = 512;
        count_ = 0;
        top_.pos = 0;
        return OptionsIn(top_, keys, 0);
    }
    OptGroup Multiples(const std::string &key) {
        budget_ = 512;
        if (!streamRead_) {  // every search of this kind reads the same statements
            top_.pos = 0;
            std::string line;
            while (top_.Gets(256, line))
                if (auto st = Parse(top_, line); st && st->main) stream_.push_back(std::move(*st));
            streamRead_ = true;
        }
        return MultiplesOf(stream_, key, 0);
    }
    std::vector<OptStr> Values(const std::vector<std::string> &keys) {
        budget_ = 512;
        count_ = 0;
        top_.pos = 0;
        return ValuesIn(top_, keys, 0);
    }
    const std::string &Text() const { return top_.bytes; }

private:
    bool Slurp(const std::string &path, Source &src) {
        std::ifstream in(path, std::ios::binary);
        if (!in) return false;
        std::stringstream ss;
        ss << in.rdbuf();
        src.bytes = ss.str();
        src.pos = 0;
        src.hits = &hits_;
        src.quoteCloses = quoteCloses_;
        return true;
    }

    // *Include: hex runs decoded, opened as named or with its file part in
    // lower case, relative to the ppds directory.
    std::optional<Source> Open(const OptStr &value, int depth) {
        hits_.hit(kInclude);
        if (!value) return std::nullopt;
        std::string work = value->substr(0, 255), name;
        for (size_t i = 0; i < work.size() && name.size() < 255;) {
            if (work[i] != '<') {
                name += work[i++];
                continue;
            }
            ++i;
            std::string run;
            while (i < work.size() && work[i] != '>') run += work[i++];
            if (i < work.size()) ++i;
            if (run.size() % 2) return std::nullopt;
            for (size_t k = 0; k + 1 < run.size(); k += 2) name += static_cast<char>(std::strtol(run.substr(k, 2).c_str(), nullptr, 16));
        }
        name = name.substr(0, std::strlen(name.c_str()));
        if (name.empty() || depth >= 32 || budget_ <= 0) return std::nullopt;
        --budget_;
        std::string full = name[0] == '/' ? name : ppds_ + "/" + name;
        Source src;
        if (Slurp(full, src)) return src;
        size_t slash = full.rfind('/');
        for (size_t i = slash + 1; i < full.size(); ++i) full[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(full[i])));
        if (Slurp(full, src)) return src;
        return std::nullopt;
    }

    static void SkipOpenUI(Source &src) {
        std::string line;
        while (src.Gets(255, line))
            if (StartsWith(line, "*CloseUI")) return;
    }

    OptGroup ReadGroup(Source &src, const Statement &openUi) {
        if (!openUi.option || openUi.option->size() < 2) return std::nullopt;
        std::string key = openUi.option->substr(1);
        std::string defaultKey = Small("Default", key), queryKey = Small("?", key);
        Group g;
        if (openUi.value) {
            if (StartsWith(*openUi.value, "PickOne")) g.uiType = 1;
            else if (StartsWith(*openUi.value, "PickMany")) g.uiType = 2;
            else if (StartsWith(*openUi.value, "Boolean")) g.uiType = 3;
        }
        std::string line;
        bool closed = false;
        while (src.Gets(255, line)) {
            auto st = Parse(src, line);
            if (!st || !st->main) continue;
            const std::string &main = *st->main;
            if (StartsWith(main, "CloseUI")) {
                closed = true;
                break;
            }
            if (StartsWith(main, key)) {
                if (st->option) {
                    g.keywords.push_back(*st->option);
                    g.values.push_back(st->value.value_or(""));
                }
            } else if (StartsWith(main, defaultKey)) {
                g.deflt = st->value;
            } else if (StartsWith(main, "OrderDependency")) {
                // Not part of what the page device lists.
            } else if (StartsWith(main, queryKey)) {
                g.query = st->value;
            }
        }
        if (!closed) hits_.hit(kNoCloseUI);
        return g;
    }

    std::vector<OptGroup> OptionsIn(Source &src, const std::vector<std::string> &keys, int depth) {
        const int n = static_cast<int>(keys.size());
        std::vector<OptGroup> result(n);
        std::string line;
        while (count_ != n && src.Gets(256, line)) {
            auto st = Parse(src, line);
            if (!st || !st->main) continue;
            if (StartsWith(*st->main, "OpenUI") && st->option) {
                std::string name = st->option->substr(1);
                int match = -1;
                for (int i = 0; i < n && match < 0; ++i)
                    if (StartsWith(name, keys[i])) match = i;
                if (match < 0) {
                    SkipOpenUI(src);
                    continue;
                }
                if (name != keys[match]) hits_.hit(kPrefixGroup);
                if (result[match]) hits_.hit(kGroupReplaced);
                result[match] = ReadGroup(src, *st);
                ++count_;
            } else if (StartsWith(*st->main, "Include")) {
                auto inc = Open(st->value, depth);
                if (!inc) continue;
                auto found = OptionsIn(*inc, keys, depth + 1);
                for (int i = 0; i < n; ++i)
                    if (found[i] && !result[i]) {
                        result[i] = std::move(found[i]);
                        ++count_;
                    }
            }
        }
        if (depth == 0 && src.pos < src.bytes.size()) hits_.hit(kEarlyStop);
        return result;
    }

    OptGroup MultiplesOf(const std::vector<Statement> &stream, const std::string &key, int depth) {
        std::string defaultKey = Small("Default", key), queryKey = Small("?", key);
        Group g;
        for (const Statement &st : stream) {
            const std::string &main = *st.main;
            if (StartsWith(main, key) && st.option) {
                g.keywords.push_back(*st.option);
                g.values.push_back(st.value.value_or(""));
            } else if (StartsWith(main, defaultKey)) {
                if (!g.deflt) g.deflt = st.value;
            } else if (StartsWith(main, queryKey)) {
                if (!g.query) g.query = st.value;
            } else if (StartsWith(main, "Include")) {
                auto inc = Open(st.value, depth);
                if (!inc) continue;
                std::vector<Statement> sub;
                std::string line;
                while (inc->Gets(256, line))
                    if (auto s2 = Parse(*inc, line); s2 && s2->main) sub.push_back(std::move(*s2));
                auto found = MultiplesOf(sub, key, depth + 1);
                if (!found) continue;
                g.keywords.insert(g.keywords.end(), found->keywords.begin(), found->keywords.end());
                g.values.insert(g.values.end(), found->values.begin(), found->values.end());
                if (!g.deflt) g.deflt = found->deflt;
                if (!g.query) g.query = found->query;
            }
        }
        if (g.keywords.empty() && !g.deflt) return std::nullopt;
        return g;
    }

    std::vector<OptStr> ValuesIn(Source &src, const std::vector<std::string> &keys, int depth) {
        const int n = static_cast<int>(keys.size());
        std::vector<OptStr> result(n);
        std::string line;
        while (count_ != n && src.Gets(256, line)) {
            auto st = Parse(src, line);
            if (!st || !st->main) continue;
            if (StartsWith(*st->main, "OpenUI")) {
                SkipOpenUI(src);
            } else if (StartsWith(*st->main, "Include")) {
                auto inc = Open(st->value, depth);
                if (!inc) continue;
                auto found = ValuesIn(*inc, keys, depth + 1);
                for (int i = 0; i < n; ++i)
                    if (!result[i] && found[i]) {
                        result[i] = found[i];
                        ++count_;
                    }
            } else if (st->value) {
                for (int i = 0; i < n; ++i)
                    if (!result[i] && StartsWith(*st->main, keys[i])) {
                        result[i] = st->value;
                        ++count_;
                        break;
                    }
            }
        }
        return result;
    }

    std::string path_, ppds_;
    Hits &hits_;
    bool quoteCloses_;
    Source top_;
    std::vector<Statement> stream_;
    bool streamRead_ = false;
    int count_ = 0;
    int budget_ = 512;
};

// sscanf "%d": an optional sign and digits after blanks.
std::optional<int> ScanInt(const OptStr &s) {
    if (!s) return std::nullopt;
    const char *p = s->c_str();
    char *end = nullptr;
    long v = std::strtol(p, &end, 10);
    if (end == p) return std::nullopt;
    return static_cast<int>(v);
}

// sscanf "%f" n times: floats after blanks.
bool ScanFloats(const OptStr &s, int n, double *out) {
    if (!s) return false;
    const char *p = s->c_str();
    for (int i = 0; i < n; ++i) {
        char *end = nullptr;
        float v = std::strtof(p, &end);
        if (end == p) return false;
        out[i] = v;
        p = end;
    }
    return true;
}

struct Geometry {
    std::array<double, 6> dots{};  // exact: points times resolution over 72
    int resolution = 0;
};

// What the PostScript page device makes of a file.
struct Expected {
    std::string refusal;  // empty when the file opens
    std::vector<std::string> pageSizes, trays, duplex, fonts;
    OptStr pageSize, tray, duplexDefault, defaultFont, product, model;
    std::vector<int> resolutions;
    int resolution = 300;
    std::map<std::string, std::optional<Geometry>> geometry;
};

Expected Read(Reader &reader, Hits &hits) {
    Expected e;
    static const std::vector<std::string> keys = {"PageSize", "ImageableArea", "PageRegion", "PaperDimension", "InputSlot",
                                                  "Resolution", "Duplex", "JCLResolution", "ManualFeed"};
    enum { kPageSize, kImageableArea, kPageRegion, kPaperDimension, kInputSlot, kResolution, kDuplex, kJCL, kManualFeed };
    std::vector<OptGroup> g = reader.Options(keys);
    for (int i = 0; i < kManualFeed; ++i) {
        if (g[i]) continue;
        g[i] = reader.Multiples(keys[i]);
        // PaperDimension and ImageableArea stand outside the UI blocks as a rule.
        if (g[i] && i != kPaperDimension && i != kImageableArea)
            hits.hit(i == kPageSize ? kRepeatedPageSize : kRepeatedOther);
    }
    if (OptGroup f = reader.Multiples("Font")) {
        e.fonts = f->keywords;
        e.defaultFont = f->deflt;
    }

    // JCLResolution with a default that is not a number.
    OptGroup &jcl = g[kJCL], &res = g[kResolution];
    if (jcl && !ScanInt(jcl->deflt)) {
        if (res && res->deflt) {
            jcl->deflt = res->deflt;
            hits.hit(kJCLCleaned);
        }
        for (size_t i = 0; i < jcl->keywords.size(); ++i) {
            if (ScanInt(jcl->keywords[i])) continue;
            jcl->keywords.erase(jcl->keywords.begin() + i);
            jcl->values.erase(jcl->values.begin() + i);
            hits.hit(kJCLCleaned);
            break;
        }
    }
    OptGroup resolutions = res;
    if (res && res->keywords.empty() && jcl && !jcl->keywords.empty()) {
        resolutions = jcl;
        hits.hit(kJCLResolution);
    }

    // Trays: InputSlot, and "Manual" when ManualFeed has "True".
    OptGroup trays = g[kInputSlot];
    if (const OptGroup &mf = g[kManualFeed]) {
        for (size_t i = 0; i < mf->keywords.size(); ++i) {
            if (strcasecmp(mf->keywords[i].c_str(), "True") != 0) continue;
            if (!trays) {
                trays = Group{};
                trays->uiType = 1;
                trays->deflt = "Manual";
            }
            trays->keywords.push_back("Manual");
            trays->values.push_back(mf->values[i]);
            hits.hit(kManualTray);
            break;
        }
    }

    std::vector<OptStr> v = reader.Values({"Product", "Model", "LanguageLevel", "PJLanguage", "ColorDevice", "Protocols"});
    e.product = v[0];
    e.model = v[1];

    const OptGroup &dim = g[kPaperDimension], &area = g[kImageableArea];
    if (!dim) e.refusal = "no PaperDimension";
    else if (!area) e.refusal = "no ImageableArea";
    else if (!dim->deflt) e.refusal = "no default PaperDimension";
    else if (!area->deflt) e.refusal = "no default ImageableArea";
    else if (dim->keywords.empty()) e.refusal = "PaperDimension without entries";
    else if (area->keywords.empty()) e.refusal = "ImageableArea without entries";
    if (!e.refusal.empty()) return e;

    OptGroup &sizes = g[kPageSize];
    if (sizes && !sizes->keywords.empty() && !(sizes->deflt && sizes->Has(*sizes->deflt))) {
        sizes->deflt = sizes->keywords[0];
        hits.hit(kDefaultFallback);
    }
    double d[6];
    auto settled = [&](const Group &grp) {
        if (grp.deflt && grp.Has(*grp.deflt)) return grp.ValueOf(*grp.deflt);
        hits.hit(kDefaultFallback);
        return OptStr(grp.values[0]);
    };
    if (!ScanFloats(settled(*dim), 2, d) || !ScanFloats(settled(*area), 4, d + 2)) {
        e.refusal = "default PaperDimension or ImageableArea not numbers";
        return e;
    }
    e.resolution = resolutions ? ScanInt(resolutions->deflt).value_or(300) : 300;
    if (e.resolution <= 0) e.resolution = 300;

    if (sizes) {
        e.pageSizes = sizes->keywords;
        e.pageSize = sizes->deflt;
    }
    for (const std::string &name : e.pageSizes) {
        double s[6];
        if (ScanFloats(dim->ValueOf(name), 2, s) && ScanFloats(area->ValueOf(name), 4, s + 2)) {
            Geometry geo;
            for (int i = 0; i < 6; ++i) geo.dots[i] = s[i] * e.resolution / 72.0;
            geo.resolution = e.resolution;
            e.geometry[name] = geo;
        } else {
            e.geometry[name] = std::nullopt;
            hits.hit(kUnqueryableSize);
        }
    }
    if (resolutions) {
        if (!resolutions->keywords.empty())
            for (const std::string &k : resolutions->keywords) e.resolutions.push_back(ScanInt(k).value_or(0));
        else if (resolutions->deflt)
            e.resolutions.push_back(ScanInt(resolutions->deflt).value_or(0));
    } else {
        e.resolutions = {300};  // no group: the one resolution of a printer without a PPD
    }
    auto listOf = [](const OptGroup &grp, std::vector<std::string> &list, OptStr &deflt) {
        if (!grp) return;
        deflt = grp->deflt;
        if (!grp->keywords.empty()) list = grp->keywords;
        else if (grp->deflt) list = {*grp->deflt};
    };
    listOf(trays, e.trays, e.tray);
    listOf(g[kDuplex], e.duplex, e.duplexDefault);
    return e;
}

// What two readings of a file list differently.
std::vector<std::string> Differences(const Expected &a, const Expected &b) {
    std::vector<std::string> d;
    if (a.refusal != b.refusal) d.push_back("refusal");
    if (a.pageSizes != b.pageSizes || a.pageSize != b.pageSize) d.push_back("page sizes");
    if (a.resolutions != b.resolutions || a.resolution != b.resolution) d.push_back("resolutions");
    if (a.trays != b.trays || a.tray != b.tray) d.push_back("trays");
    if (a.duplex != b.duplex || a.duplexDefault != b.duplexDefault) d.push_back("duplex options");
    if (a.fonts != b.fonts || a.defaultFont != b.defaultFont) d.push_back("fonts");
    if (a.product != b.product || a.model != b.model) d.push_back("product or model");
    return d;
}

}  // namespace ref

// ---------------------------------------------------------------------------

struct CorpusFile {
    std::string model, source, path, name;
};

std::string Env(const char *name, const std::string &fallback = "") {
    const char *v = std::getenv(name);
    return v && *v ? v : fallback;
}

std::string Quote(const std::string &s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

std::vector<CorpusFile> LoadCorpus(const std::string &select, std::string &error) {
    std::string source = Env("QL_SOURCE_DIR", fs::path(__FILE__).parent_path().parent_path().parent_path().string());
    std::string cache = Env("QL_BINARY_DIR", fs::temp_directory_path().string() + "/qualin-" + std::to_string(getuid())) +
                        "/ppd-corpus";
    std::string cmd = "python3 " + Quote(source + "/tests/scripts/ppd_corpus.py") + " --cache " + Quote(cache) +
                      " --select " + Quote(select);
    std::vector<CorpusFile> files;
    FILE *p = popen(cmd.c_str(), "r");
    if (!p) {
        error = "cannot run " + cmd;
        return files;
    }
    std::string text;
    char buf[4096];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) text.append(buf, n);
    int status = pclose(p);
    if (status != 0) {
        error = cmd + " failed (" + std::to_string(status) + ")";
        return {};
    }
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        CorpusFile f;
        std::istringstream fields(line);
        if (std::getline(fields, f.model, '\t') && std::getline(fields, f.source, '\t') &&
            std::getline(fields, f.path, '\t') && std::getline(fields, f.name))
            files.push_back(f);
    }
    return files;
}

// A list call's names; the count is read after the call.
template <typename Call>
std::vector<std::string> Strings(Call call) {
    int n = 0;
    char **list = call(&n);
    std::vector<std::string> v;
    for (int i = 0; list && i < n; ++i) v.push_back(list[i] ? list[i] : "(null)");
    return v;
}

OptStr Opt(const char *s) { return s ? OptStr(s) : std::nullopt; }

std::string Show(const std::vector<std::string> &v) {
    std::string s = "[";
    for (size_t i = 0; i < v.size(); ++i) s += (i ? ", " : "") + v[i];
    return s + "]";
}
std::string Show(const OptStr &s) { return s ? "\"" + *s + "\"" : "(null)"; }
std::string Show(const std::vector<int> &v) {
    std::string s = "[";
    for (size_t i = 0; i < v.size(); ++i) s += (i ? ", " : "") + std::to_string(v[i]);
    return s + "]";
}

// A dot count the library may give for an exact value: the value cut toward
// zero; one less where the exact value is within float rounding of a whole
// number (the file's numbers are read as floats).
bool DotsAgree(int got, double exact) {
    double cut = std::trunc(exact);
    if (got == static_cast<long long>(cut)) return true;
    double nearest = std::round(exact);
    return std::fabs(exact - nearest) < 1e-3 * std::max(1.0, std::fabs(exact)) + 1e-3 &&
           (got == static_cast<long long>(nearest) || got == static_cast<long long>(nearest) - 1);
}

// Compares what the printer lists with the reading; gives the differences.
std::vector<std::string> Compare(Display *d, const ref::Expected &e) {
    std::vector<std::string> diff;
    auto check = [&](const char *what, const auto &got, const auto &want) {
        if (!(got == want)) diff.push_back(std::string(what) + ": library " + Show(got) + ", file " + Show(want));
    };
    std::vector<std::string> sizes = Strings([d](int *n) { return QlListPageSizes(d, n); });
    check("page sizes", sizes, e.pageSizes);
    check("default page size", Opt(QlGetPageSize(d)), e.pageSize);
    // A printer opens in portrait (orientation 1): the geometry is not turned.
    if (QlGetOrientation(d) != 1) diff.push_back("orientation " + std::to_string(QlGetOrientation(d)));
    for (const std::string &name : sizes) {
        PSPageGeometry g;
        int ok = QlQueryPageSize(d, name.c_str(), &g);
        auto it = e.geometry.find(name);
        if (it == e.geometry.end()) continue;  // reported as a list difference
        if (!it->second) {
            if (ok) diff.push_back("page size " + name + ": library gives a geometry, file has no dimension or area");
            continue;
        }
        if (!ok) {
            diff.push_back("page size " + name + ": library gives none");
            continue;
        }
        const std::array<double, 6> &want = it->second->dots;
        int got[6] = {g.paperWidth, g.paperHeight, g.imageLeft, g.imageBottom, g.imageRight, g.imageTop};
        bool agree = g.resolution == it->second->resolution;
        for (int i = 0; i < 6; ++i) agree = agree && DotsAgree(got[i], want[i]);
        if (!agree) {
            std::ostringstream s;
            s << "page size " << name << ": library " << got[0] << " " << got[1] << " " << got[2] << " " << got[3] << " "
              << got[4] << " " << got[5] << " at " << g.resolution << ", file " << want[0] << " " << want[1] << " "
              << want[2] << " " << want[3] << " " << want[4] << " " << want[5] << " at " << it->second->resolution;
            diff.push_back(s.str());
        }
    }
    int *res = nullptr;
    int rn = QlListResolutions(d, &res);
    std::vector<int> resolutions(res, res + (res ? rn : 0));
    std::free(res);
    check("resolutions", resolutions, e.resolutions);
    if (QlGetResolution(d) != e.resolution)
        diff.push_back("resolution: library " + std::to_string(QlGetResolution(d)) + ", file " +
                       std::to_string(e.resolution));
    check("trays", Strings([d](int *n) { return QlListPaperTrays(d, n); }), e.trays);
    check("default tray", Opt(QlGetPaperTray(d)), e.tray);
    check("duplex options", Strings([d](int *n) { return QlDuplexOpts(d, n); }), e.duplex);
    check("default duplex option", Opt(QlGetDuplexOpt(d)), e.duplexDefault);
    check("fonts", Strings([d](int *n) { return QlListAvailableFonts(d, n); }), e.fonts);
    check("default font", Opt(QlGetDefaultFont(d)), e.defaultFont);
    check("product", Opt(QlGetPrinterProduct(d)), e.product);
    check("model", Opt(QlGetPrinterModel(d)), e.model);
    return diff;
}

// The data files of the build's configuration directory, for the scratch one.
std::string DataDir() {
    std::string d = Env("QLPATH");
    if (d.empty() && !Env("QL_BINARY_DIR").empty()) d = Env("QL_BINARY_DIR") + "/share/qualin";
    if (d.empty()) d = fs::path(__FILE__).parent_path().parent_path().parent_path().string() + "/data";
    return d;
}

TEST(PPDCorpus, OpensEveryFileAsItsTextSays) {
    const std::string select = Env("QL_PPD_CORPUS", "default");
    const auto start = std::chrono::steady_clock::now();
    std::string error;
    std::vector<CorpusFile> files = LoadCorpus(select, error);
    ASSERT_TRUE(error.empty()) << error;
    if (files.empty()) GTEST_SKIP() << "no PPD files (install openprinting-ppds and printer-driver-postscript-hp)";
    const double extractSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    // The scratch configuration directory: the build's data, and the corpus
    // as ppds/<model>.PS.
    qltest::TempDir config;
    const std::string ppds = config / "ppds";
    fs::create_directories(ppds);
    std::error_code ec;
    for (auto &entry : fs::directory_iterator(DataDir(), ec))
        if (entry.path().filename() != "ppds")
            fs::create_symlink(fs::absolute(entry.path()), config / entry.path().filename().string(), ec);
    ASSERT_TRUE(qltest::Exists(config / "psstd.fonts")) << "no psstd.fonts in " << DataDir();
    for (const CorpusFile &f : files) {
        fs::create_symlink(f.path, ppds + "/" + f.model + ".PS", ec);
        ASSERT_FALSE(ec) << f.model << ": " << ec.message();
    }
    // No file of the archives lacks its paper tables, so the refusal is
    // met on copies of real files with statements taken out: the first file
    // of each source, without PaperDimension, without the default
    // PaperDimension, without the default ImageableArea.
    static const std::vector<std::pair<std::string, std::vector<std::string>>> cuts = {
        {"no-paperdimension", {"*PaperDimension", "*DefaultPaperDimension"}},
        {"no-default-paperdimension", {"*DefaultPaperDimension"}},
        {"no-default-imageablearea", {"*DefaultImageableArea"}},
    };
    std::vector<CorpusFile> derived;
    std::map<std::string, bool> sourceSeen;
    for (const CorpusFile &f : files) {
        if (sourceSeen[f.source]) continue;
        sourceSeen[f.source] = true;
        std::istringstream in(qltest::ReadFile(f.path));
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) lines.push_back(line + "\n");
        for (const auto &[cut, prefixes] : cuts) {
            std::string text;
            for (const std::string &line : lines)
                if (std::none_of(prefixes.begin(), prefixes.end(), [&](const std::string &p) { return line.compare(0, p.size(), p) == 0; }))
                    text += line;
            CorpusFile d{"derived-" + cut + "-" + f.model, "derived", ppds + "/derived-" + cut + "-" + f.model + ".PS",
                         cut + " of " + f.name};
            qltest::WriteFile(d.path, text);
            derived.push_back(d);
        }
    }
    files.insert(files.end(), derived.begin(), derived.end());

    qltest::ScopedEnv qlpath("QLPATH", config.path().c_str());
    ASSERT_STREQ(QlMessageCatalog[9].key, "ePPDPaper");

    std::map<std::string, int> perSource, refusals, messageKinds;
    std::array<int, ref::kRuleCount> ruleFiles{}, ruleChecked{};
    std::array<std::string, ref::kRuleCount> ruleExample;
    double readerSeconds = 0, librarySeconds = 0;
    int quoteRuleMatters = 0, derivedRefused = 0;
    std::map<std::string, int> quoteRuleFields;
    std::string quoteRuleExample;
    int opened = 0, refused = 0, checked = 0, mismatched = 0, wrongRefusals = 0, shown = 0;
    std::map<std::string, std::string> refusalExample;
    // QL_PPD_CORPUS_REPORT=<file>: one line per PPD, its outcome and rules.
    std::ofstream report;
    if (std::string r = Env("QL_PPD_CORPUS_REPORT"); !r.empty()) report.open(r);
    qltest::MessageCapture msgs;
    for (const CorpusFile &f : files) {
        ++perSource[f.source];
        ref::Hits hits;
        auto t0 = std::chrono::steady_clock::now();
        ref::Reader reader(ppds + "/" + f.model + ".PS", ppds, hits);
        ASSERT_TRUE(reader.Load()) << f.path;
        if (reader.Text().find("\r\n") != std::string::npos) hits.hit(ref::kCarriageReturns);
        ref::Expected want = ref::Read(reader, hits);
        // The plain reading, where a value's closing quote ends it: how
        // many files the documented rule changes.
        bool plainDiffers = false;
        ref::Hits plainHits;
        ref::Reader plain(f.path, ppds, plainHits, true);
        if (hits.rule[ref::kSwallowed] || hits.rule[ref::kUnterminated]) {
            plain.Take(reader.Text());
            std::vector<std::string> d = ref::Differences(ref::Read(plain, plainHits), want);
            if (!d.empty()) {
                ++quoteRuleMatters;
                if (quoteRuleExample.empty()) quoteRuleExample = f.name;
                plainDiffers = true;
                for (const std::string &what : d) ++quoteRuleFields[what];
            }
        }
        auto t1 = std::chrono::steady_clock::now();
        readerSeconds += std::chrono::duration<double>(t1 - t0).count();

        msgs.clear();
        Display *d = QlVaOpenPrinter(f.model.c_str(), nullptr, "PostScript", 0);
        librarySeconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - t1).count();
        for (size_t i = 0; i < msgs.indices.size(); ++i) {
            std::string kind = QlMessageCatalog[msgs.indices[i]].key;
            if (msgs.texts[i].find("Syntax error") != std::string::npos) {
                std::string t = msgs.texts[i];
                size_t colon = t.find("error: ");
                kind += ": " + t.substr(colon + 7, t.find_first_of(":", colon + 7) - colon - 7);
            }
            ++messageKinds[kind];
        }
        auto fail = [&](const std::string &what) {
            if (++shown <= 40) ADD_FAILURE() << f.path << " (" << f.name << "): " << what;
        };
        for (int r = 0; r < ref::kRuleCount; ++r) {
            ruleFiles[r] += hits.rule[r];
            if (hits.rule[r] && ruleExample[r].empty()) ruleExample[r] = f.name;
        }
        if (report.is_open()) {
            report << f.source << "\t" << f.name << "\t" << (d ? "opened" : "refused") << "\t" << want.refusal << "\t";
            for (int r = 0; r < ref::kRuleCount; ++r)
                if (hits.rule[r]) report << ref::kRuleTags[r] << " ";
            if (plainDiffers) report << "quote-rule-matters";
            report << "\n";
        }
        if (!d) {
            ++refused;
            bool nine = msgs.has(9);
            std::string text;
            for (size_t i = 0; i < msgs.indices.size(); ++i)
                if (msgs.indices[i] == 9) text = msgs.texts[i];
            std::string why = want.refusal.empty() ? "(file reads as complete)" : want.refusal;
            if (!refusals[why]++) refusalExample[why] = f.name;
            derivedRefused += f.source == "derived";
            if (!nine || text.find("PPD") == std::string::npos || text.find("PaperDimension") == std::string::npos) {
                ++wrongRefusals;
                std::string all;
                for (const std::string &t : msgs.texts) all += " [" + t + "]";
                fail("refused without message 9:" + all);
            } else if (want.refusal.empty()) {
                ++wrongRefusals;
                fail("refused with message 9, but the file has PaperDimension and ImageableArea with defaults");
            }
            continue;
        }
        ++opened;
        if (!want.refusal.empty()) {
            ++wrongRefusals;
            fail("opened, but the file reads as refused: " + want.refusal);
        } else {
            ++checked;
            for (int r = 0; r < ref::kRuleCount; ++r) ruleChecked[r] += hits.rule[r];
            std::vector<std::string> diff = Compare(d, want);
            if (!diff.empty()) {
                ++mismatched;
                std::string all;
                for (size_t i = 0; i < diff.size() && i < 6; ++i) all += "\n    " + diff[i];
                fail("lists differ from the file's text:" + all);
            }
        }
        QlClosePrinter(d);
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    std::ostringstream out;
    out << "PPD corpus (" << select << "): " << files.size() << " files";
    for (auto &[source, n] : perSource) out << ", " << source << " " << n;
    out << "\n  opened " << opened << ", refused " << refused << ", checked against the text " << checked
        << ", lists differing " << mismatched << ", wrong open/refuse " << wrongRefusals << "\n";
    for (auto &[why, n] : refusals) out << "  refused, " << why << ": " << n << " (e.g. " << refusalExample[why] << ")\n";
    out << "  files per reading rule (all / opened and checked):\n";
    for (int r = 0; r < ref::kRuleCount; ++r)
        out << "    " << ref::kRuleNames[r] << ": " << ruleFiles[r] << " / " << ruleChecked[r]
            << (ruleExample[r].empty() ? "" : " (e.g. " + ruleExample[r] + ")") << "\n";
    out << "  files whose lists would differ if a closing quote ended a multi-line value: " << quoteRuleMatters
        << (quoteRuleExample.empty() ? "" : " (e.g. " + quoteRuleExample + ")") << "\n";
    for (auto &[what, n] : quoteRuleFields) out << "    in " << what << ": " << n << "\n";
    out << "  messages reported:\n";
    for (auto &[kind, n] : messageKinds) out << "    " << kind << ": " << n << "\n";
    out << "  " << extractSeconds << " s to list and extract, " << readerSeconds << " s reading, " << librarySeconds
        << " s opening, " << seconds << " s in all\n";
    std::cout << out.str() << std::flush;
    RecordProperty("files", static_cast<int>(files.size()));
    RecordProperty("opened", opened);
    RecordProperty("refused", refused);
    RecordProperty("checked", checked);
    RecordProperty("mismatched", mismatched);

    EXPECT_EQ(mismatched, 0);
    EXPECT_EQ(wrongRefusals, 0);
    EXPECT_EQ(opened + refused, static_cast<int>(files.size()));
    EXPECT_EQ(derivedRefused, static_cast<int>(derived.size()));
}

}  // namespace
