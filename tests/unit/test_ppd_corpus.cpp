// Real PPD files: every file of a corpus (the CUPS driver archives of
// openprinting-ppds and printer-driver-postscript-hp, and the plain PPD
// files on disk) is installed as "ppds/<model>.PS" of a scratch
// configuration directory and opened as a PostScript printer.  Nothing may
// crash or leak (the sanitizers watch); a file is refused only with message
// 9 and only where it has no PaperDimension or ImageableArea (or no default
// of one); and what a plain look at the file's statements gives must be
// what the opened printer lists: its default page size, its page sizes and
// their paper, its resolutions and default, its product and model.
//
// The parser reads lines in pieces of 255 bytes and lets a multi-line value
// that a quote alone closes run on to the next "*End": files with such lines
// or values may differ from their text, up to kQuirkShare of them (test_ppd
// holds the rules); every other file must list what its text says.  No real
// file lacks its paper tables, so copies of the first file of each source
// with PaperDimension or a default taken out stand for the refusal.
//
// The corpus comes from tests/scripts/ppd_corpus.py (cached under
// ${QL_BINARY_DIR}/ppd-corpus): a few hundred files by default,
// QL_PPD_CORPUS=all every file (`make corpus`), QL_PPD_CORPUS=<n> n of each.
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses

#include "support/capture.h"
#include "support/tempdir.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

// The share of such files that may list otherwise than their text.
constexpr double kQuirkShare = 0.25;

std::string Env(const char *name, const std::string &fallback = "") {
    const char *v = std::getenv(name);
    return v && *v ? v : fallback;
}

std::string Quote(const std::string &s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

struct CorpusFile {
    std::string model, source, path, name;
};

std::vector<CorpusFile> LoadCorpus(const std::string &select, std::string &error) {
    std::string source = Env("QL_SOURCE_DIR", fs::path(__FILE__).parent_path().parent_path().parent_path().string());
    std::string cache = Env("QL_BINARY_DIR", fs::temp_directory_path().string() + "/qualin-" + std::to_string(getuid())) +
                        "/ppd-corpus";
    std::string cmd = "python3 " + Quote(source + "/tests/scripts/ppd_corpus.py") + " --cache " + Quote(cache) +
                      " --select " + Quote(select);
    FILE *p = popen(cmd.c_str(), "r");
    if (!p) {
        error = "cannot run " + cmd;
        return {};
    }
    std::string text;
    char buf[4096];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) text.append(buf, n);
    if (int status = pclose(p); status != 0) {
        error = cmd + " failed (" + std::to_string(status) + ")";
        return {};
    }
    std::vector<CorpusFile> files;
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

// The statements of a file as its text shows them, one per line that
// begins with "*": main keyword, option keyword (translation cut off), and
// the value of a one-line statement without its quotes.
struct Text {
    std::multimap<std::string, std::pair<std::string, std::string>> st;
    std::vector<std::string> Options(const std::string &main) const {
        std::vector<std::string> v;
        for (auto [it, end] = st.equal_range(main); it != end; ++it)
            if (!it->second.first.empty()) v.push_back(it->second.first);
        return v;
    }
    std::string First(const std::string &main, const std::string &option = "") const {
        for (auto [it, end] = st.equal_range(main); it != end; ++it)
            if (it->second.first == option) return it->second.second;
        return "";
    }
    bool Has(const std::string &main) const { return st.count(main) > 0; }
    // Where the parser's reading may differ from the plain one: a line longer
    // than its reads, or a multi-line value with no "*End" after its quote.
    bool quirky = false;
};

Text Read(const std::string &bytes) {
    Text t;
    std::istringstream in(bytes);
    bool open = false, closed = false;  // in a multi-line value; just after its quote
    for (std::string line; std::getline(in, line);) {
        t.quirky |= line.size() >= 254 || (closed && !line.starts_with("*End"));
        closed = false;
        if (open) {
            closed = line.find('"') != std::string::npos;
            open = !closed;
            continue;
        }
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.size() < 2 || line[0] != '*' || line[1] == '%') continue;
        size_t colon = line.find(':');
        std::string key = line.substr(1, colon == std::string::npos ? std::string::npos : colon - 1);
        size_t blank = key.find_first_of(" \t");
        std::string main = key.substr(0, blank), option;
        if (size_t o = key.find_first_not_of(" \t", blank); blank != std::string::npos && o != std::string::npos) {
            option = key.substr(o);
            option = option.substr(0, option.find('/'));
            while (!option.empty() && (option.back() == ' ' || option.back() == '\t')) option.pop_back();
        }
        std::string value = colon == std::string::npos ? "" : line.substr(colon + 1);
        value.erase(0, value.find_first_not_of(" \t"));
        while (!value.empty() && value.back() == ' ') value.pop_back();
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"') value = value.substr(1, value.size() - 2);
        else if (!value.empty() && value.front() == '"') open = true;
        t.st.emplace(main, std::make_pair(option, value));
    }
    return t;
}

std::vector<std::string> Strings(char **list, int n) {
    std::vector<std::string> v;
    for (int i = 0; list && i < n; ++i) v.push_back(list[i] ? list[i] : "(null)");
    return v;
}

bool Contains(const std::vector<std::string> &v, const std::string &s) { return std::find(v.begin(), v.end(), s) != v.end(); }

// What an opened printer lists against the text: one entry per check that fails.
std::vector<std::string> Differences(Display *d, const Text &t) {
    std::vector<std::string> diff;
    int n = 0;
    char **list = QlListPageSizes(d, &n);  // n is set by the call
    std::vector<std::string> sizes = Strings(list, n);
    std::string want = t.First("DefaultPageSize"), got = QlGetPageSize(d) ? QlGetPageSize(d) : "(null)";
    // A default that names no size of the file gives way to one that does.
    if (Contains(t.Options("PageSize"), want) && got != want) diff.push_back("default page size: " + got + ", file " + want);
    for (const std::string &k : t.Options("PageSize"))
        if (!Contains(sizes, k)) diff.push_back("page size " + k + " not listed");
    // The paper of each listed size, in dots at the printer's resolution.
    for (const std::string &k : sizes) {
        double w = 0, h = 0;
        PSPageGeometry g;
        if (std::sscanf(t.First("PaperDimension", k).c_str(), "%lf %lf", &w, &h) != 2 || t.First("ImageableArea", k).empty())
            continue;
        if (!QlQueryPageSize(d, k.c_str(), &g))
            diff.push_back("paper of " + k + ": none");
        else if (std::fabs(g.paperWidth - w * g.resolution / 72) > 1 || std::fabs(g.paperHeight - h * g.resolution / 72) > 1)
            diff.push_back("paper of " + k + ": " + std::to_string(g.paperWidth) + "x" + std::to_string(g.paperHeight) +
                           " at " + std::to_string(g.resolution));
    }
    int *res = nullptr;
    int rn = QlListResolutions(d, &res);
    std::vector<int> resolutions(res, res + (res ? rn : 0));
    std::free(res);
    if (std::string want = t.First("DefaultResolution"); Contains(t.Options("Resolution"), want) &&
                                                         QlGetResolution(d) != std::atoi(want.c_str()))
        diff.push_back("default resolution: " + std::to_string(QlGetResolution(d)) + ", file " + want);
    for (const std::string &k : t.Options("Resolution"))
        if (std::find(resolutions.begin(), resolutions.end(), std::atoi(k.c_str())) == resolutions.end())
            diff.push_back("resolution " + k + " not listed");
    using Getter = char *(*)(Display *);
    for (auto [key, call] : {std::pair<const char *, Getter>{"Product", QlGetPrinterProduct}, {"ModelName", QlGetPrinterModel}})
        if (t.Has(key) && std::string(call(d) ? call(d) : "(null)") != t.First(key))
            diff.push_back(std::string(key) + ": " + (call(d) ? call(d) : "(null)") + ", file " + t.First(key));
    return diff;
}

// The build's configuration directory, for the scratch one.
std::string DataDir() {
    if (std::string d = Env("QLPATH"); !d.empty()) return d;
    if (std::string b = Env("QL_BINARY_DIR"); !b.empty()) return b + "/share/qualin";
    return fs::path(__FILE__).parent_path().parent_path().parent_path().string() + "/data";
}

TEST(PPDCorpus, OpensEveryFileAsItsTextSays) {
    const std::string select = Env("QL_PPD_CORPUS", "default");
    std::string error;
    std::vector<CorpusFile> files = LoadCorpus(select, error);
    ASSERT_TRUE(error.empty()) << error;
    if (files.empty()) GTEST_SKIP() << "no PPD files (install openprinting-ppds and printer-driver-postscript-hp)";

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
    // The refusal, on copies of the first file of each source.
    static const std::vector<std::pair<std::string, std::vector<std::string>>> cuts = {
        {"no-paperdimension", {"*PaperDimension", "*DefaultPaperDimension"}},
        {"no-default-paperdimension", {"*DefaultPaperDimension"}},
        {"no-default-imageablearea", {"*DefaultImageableArea"}},
    };
    std::map<std::string, int> perSource;
    for (const CorpusFile &f : files) perSource[f.source]++;
    size_t derived = 0;
    for (const auto &[source, count] : perSource) {
        const CorpusFile &f = *std::find_if(files.begin(), files.end(), [&](auto &c) { return c.source == source; });
        std::istringstream in(qltest::ReadFile(f.path));
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) lines.push_back(line + "\n");
        for (const auto &[cut, prefixes] : cuts) {
            std::string text;
            for (const std::string &line : lines)
                if (std::none_of(prefixes.begin(), prefixes.end(), [&](auto &p) { return line.starts_with(p); }))
                    text += line;
            std::string model = "derived-" + cut + "-" + f.model;
            qltest::WriteFile(ppds + "/" + model + ".PS", text);
            files.push_back({model, "derived", ppds + "/" + model + ".PS", cut + " of " + f.name});
            ++derived;
        }
    }

    qltest::ScopedEnv qlpath("QLPATH", config.path().c_str());
    ASSERT_STREQ(QlMessageCatalog[9].key, "ePPDPaper");
    int opened = 0, refused = 0, wrongRefusals = 0, derivedRefused = 0, shown = 0;
    int mismatched = 0, quirky = 0, quirkyDiffering = 0;  // differences; files read apart, those that differ
    std::string quirkyExample;
    qltest::MessageCapture msgs;
    for (const CorpusFile &f : files) {
        const Text t = Read(qltest::ReadFile(f.path));
        const bool complete = t.Has("PaperDimension") && t.Has("ImageableArea") && t.Has("DefaultPaperDimension") &&
                              t.Has("DefaultImageableArea");
        msgs.clear();
        Display *d = QlVaOpenPrinter(f.model.c_str(), nullptr, "PostScript", 0);
        auto fail = [&](const std::string &what) {
            ++wrongRefusals;
            if (++shown <= 40) ADD_FAILURE() << f.path << " (" << f.name << "): " << what;
        };
        if (!d) {
            ++refused;
            derivedRefused += f.source == "derived";
            std::string text;
            for (size_t i = 0; i < msgs.indices.size(); ++i)
                if (msgs.indices[i] == 9) text = msgs.texts[i];
            if (text.find("PPD") == std::string::npos || text.find("PaperDimension") == std::string::npos) {
                std::string all;
                for (const std::string &m : msgs.texts) all += " [" + m + "]";
                fail("refused without message 9:" + all);
            } else if (complete) {
                fail("refused with message 9, but the file has PaperDimension and ImageableArea with defaults");
            }
            continue;
        }
        ++opened;
        if (!complete) fail("opened without PaperDimension or ImageableArea or a default of one");
        std::vector<std::string> diff = Differences(d, t);
        for (const std::string &what : diff)
            if (!t.quirky) {
                ++mismatched;
                if (++shown <= 40) ADD_FAILURE() << f.path << " (" << f.name << "): " << what;
            }
        quirky += t.quirky;
        if (t.quirky && !diff.empty() && !quirkyDiffering++) quirkyExample = f.name + ": " + diff[0];
        QlClosePrinter(d);
    }

    std::ostringstream out;
    out << "PPD corpus (" << select << "): " << files.size() << " files";
    for (auto &[source, n] : perSource) out << ", " << source << " " << n;
    out << ", derived " << derived << "\n  opened " << opened << ", refused " << refused << ", wrong open/refuse "
        << wrongRefusals << "\n";
    out << "  lists differing from the text " << mismatched << "; files the parser reads apart from their text "
        << quirky << ", differing " << quirkyDiffering << (quirky ? " (e.g. " + quirkyExample + ")" : "") << "\n";
    std::cout << out.str() << std::flush;

    EXPECT_EQ(wrongRefusals, 0);
    EXPECT_EQ(opened + refused, static_cast<int>(files.size()));
    EXPECT_EQ(derivedRefused, static_cast<int>(derived));
    EXPECT_EQ(mismatched, 0);
    EXPECT_LE(quirkyDiffering, kQuirkShare * quirky);
}

}  // namespace
