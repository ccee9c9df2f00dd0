// AFM reader: every metric file of fonts-urw-base35 and every generated
// standard font, value for value against fontTools' reader; small files;
// composites, counts that do not match, cut-off files and hostile input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <span>
#include <string>
#include <unistd.h>
#include <vector>

#include "fontdata/parseafm.h"

namespace fs = std::filesystem;

namespace {

constexpr int kDriverFlags = kAfmGlobals | kAfmWidths | kAfmMetrics | kAfmPairs | kAfmTracks;

struct Parsed {
    int rc = 0;
    FontInfo *fi = nullptr;
    Parsed() = default;
    Parsed(const Parsed &) = delete;
    Parsed &operator=(const Parsed &) = delete;
    ~Parsed() { freeStorage(fi); }
    const CharMetricInfo &c(int i) const { return fi->cmi[i]; }
};

// Parses a file, or the text itself when no path is given.
void Parse(Parsed &p, const std::string &text, int flags = 63, const fs::path &path = {}) {
    FILE *fp = path.empty() ? fmemopen(const_cast<char *>(text.data()), text.size(), "r")
                            : std::fopen(path.c_str(), "r");
    ASSERT_NE(fp, nullptr) << path;
    p.rc = parseFile(fp, &p.fi, flags);
    std::fclose(fp);
}
void ParsePath(Parsed &p, const fs::path &path, int flags) { Parse(p, "", flags, path); }

std::string Str(const char *s) { return s ? s : "-"; }

fs::path UrwDir() {
    const char *d = std::getenv("QL_URW_AFM_DIR");
    return d ? d : "/usr/share/fonts/type1/urw-base35";
}
fs::path GeneratedDir() { return fs::path(std::getenv("QLPATH")) / "fontmetrics" / "afm"; }

std::vector<std::string> StandardFonts() {
    std::ifstream in(fs::path(std::getenv("QL_SOURCE_DIR")) / "data" / "psstd.fonts");
    std::vector<std::string> names;
    for (std::string line; std::getline(in, line);)
        if (!line.empty() && line[0] != '#' && line.find(',') != std::string::npos)
            names.push_back(line.substr(0, line.find(',')));
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());  // once per encoding
    return names;
}

// The values both readers give: the globals on one line, then characters
// and pairs by name (fontTools keeps no order), sorted.
std::vector<std::string> Dump(const FontInfo *fi) {
    const GlobalFontInfo *g = fi->gfi;
    std::vector<std::string> out;
    char buf[3 * kAfmTokenSize];
    std::snprintf(buf, sizeof buf, "G %s|%s|%s|%s|%s|%s|%s|%g|%d|%d %d %d %d|%d %d %d %d %d %d",
                  Str(g->fontName).c_str(), Str(g->fullName).c_str(), Str(g->familyName).c_str(),
                  Str(g->weight).c_str(), Str(g->version).c_str(), Str(g->notice).c_str(),
                  Str(g->encodingScheme).c_str(), g->italicAngle, g->isFixedPitch, g->fontBBox.llx, g->fontBBox.lly,
                  g->fontBBox.urx, g->fontBBox.ury, g->underlinePosition, g->underlineThickness, g->capHeight,
                  g->xHeight, g->ascender, g->descender);
    out.push_back(buf);
    for (const CharMetricInfo &c : std::span(fi->cmi, fi->numOfChars)) {
        std::snprintf(buf, sizeof buf, "C %s %d %d %d %d %d %d", Str(c.name).c_str(), c.code, c.wx,
                      c.charBBox.llx, c.charBBox.lly, c.charBBox.urx, c.charBBox.ury);
        out.push_back(buf);
    }
    for (const PairKernData &k : std::span(fi->pkd, fi->numOfPairs))
        out.push_back(std::string("K ") + k.name1 + " " + k.name2 + " " + std::to_string(k.xamt));
    std::sort(out.begin(), out.end());
    return out;
}

const char *kFontToolsDump = R"PY(
import sys
from fontTools.afmLib import AFM
out = open(sys.argv[1], "w")
for path in sys.argv[2:]:
    a = AFM(path)
    v = lambda k, d=0: getattr(a, k, d)
    out.write("F %s\n" % path)
    out.write("G %s|%s|%s|%s|%s|%s|%s|%g|%d|%d %d %d %d|%d %d %d %d %d %d\n" % (
        (v("FontName", "-"), v("FullName", "-"), v("FamilyName", "-"), v("Weight", "-"), v("Version", "-"),
         v("Notice", "-"), v("EncodingScheme", "-"), float(v("ItalicAngle")),
         str(v("IsFixedPitch", "false")) != "false") + tuple(v("FontBBox", (0, 0, 0, 0))) +
        tuple(v(k) for k in ("UnderlinePosition", "UnderlineThickness", "CapHeight", "XHeight", "Ascender",
                             "Descender"))))
    for name in a.chars():
        code, wx, bb = a[name]
        out.write("C %s %d %d %d %d %d %d\n" % ((name, code, wx) + tuple(bb)))
    for pair in a.kernpairs():
        out.write("K %s %s %d\n" % (pair[0], pair[1], a[pair]))
)PY";

// fontTools' values of each file, by path.
std::map<std::string, std::vector<std::string>> FontToolsValues(const std::vector<fs::path> &files) {
    fs::path dir = fs::temp_directory_path() / ("ql-afm-" + std::to_string(getpid()));
    fs::create_directories(dir);
    std::ofstream(dir / "dump.py") << kFontToolsDump;
    std::string cmd = "/usr/bin/python3 " + (dir / "dump.py").string() + " " + (dir / "out.txt").string();
    for (const fs::path &f : files) cmd += " '" + f.string() + "'";
    std::map<std::string, std::vector<std::string>> values;
    if (std::system(cmd.c_str()) == 0) {
        std::ifstream in(dir / "out.txt");
        std::vector<std::string> *cur = nullptr;
        for (std::string line; std::getline(in, line);) {
            if (line.rfind("F ", 0) == 0) cur = &values[line.substr(2)];
            else if (cur) cur->push_back(line);
        }
        for (auto &[path, v] : values) std::sort(v.begin(), v.end());
    }
    fs::remove_all(dir);
    return values;
}

std::vector<fs::path> AfmFiles(const fs::path &dir) {
    std::vector<fs::path> files;
    for (const auto &e : fs::directory_iterator(dir))
        if (e.path().extension() == ".afm") files.push_back(e.path());
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

// Every URW file and every generated file: result 0 with the flags of the
// font driver and with all flags, the values fontTools reads, and the
// widths-only form agreeing with the metrics.
TEST(AfmFiles, AllParseAndMatchFontTools) {
    std::vector<fs::path> urw = AfmFiles(UrwDir());
    std::vector<fs::path> generated = AfmFiles(GeneratedDir());
    ASSERT_EQ(urw.size(), 35u) << "fonts-urw-base35 missing from " << UrwDir();
    ASSERT_EQ(generated.size(), StandardFonts().size());
    std::vector<fs::path> all = urw;
    all.insert(all.end(), generated.begin(), generated.end());
    auto reference = FontToolsValues(all);
    ASSERT_EQ(reference.size(), all.size()) << "/usr/bin/python3 with fontTools (python3-fonttools) failed";

    for (const fs::path &f : all) {
        SCOPED_TRACE(f.string());
        Parsed p;
        ParsePath(p, f, kDriverFlags);
        ASSERT_EQ(p.rc, 0);
        EXPECT_GT(p.fi->numOfChars, 100);
        std::vector<std::string> ours = Dump(p.fi), &theirs = reference[f.string()];
        auto [here, there] = std::mismatch(ours.begin(), ours.end(), theirs.begin(), theirs.end());
        EXPECT_TRUE(here == ours.end() && there == theirs.end())
            << "here: " << (here == ours.end() ? "(end)" : *here)
            << "\nfontTools: " << (there == theirs.end() ? "(end)" : *there);

        Parsed all63, widths;
        ParsePath(all63, f, 63);
        EXPECT_EQ(all63.rc, 0);
        ParsePath(widths, f, kAfmGlobals | kAfmWidths);
        ASSERT_EQ(widths.rc, 0);
        ASSERT_NE(widths.fi->cwi, nullptr);
        EXPECT_EQ(widths.fi->cmi, nullptr);
        int encoded = 0;
        for (int i = 0; i < p.fi->numOfChars; ++i) {
            if (p.c(i).code < 0 || p.c(i).code > 255) continue;
            EXPECT_EQ(widths.fi->cwi[p.c(i).code], p.c(i).wx) << p.c(i).name;
            ++encoded;
        }
        EXPECT_GT(encoded, 90);
    }
}

// The generated files: one per listed font, named as the list names it,
// with the metrics of the URW font standing for it.
TEST(AfmFiles, GeneratedStandardFonts) {
    for (const std::string &name : StandardFonts()) {
        Parsed p;
        ParsePath(p, GeneratedDir() / (name + ".afm"), kDriverFlags);
        ASSERT_EQ(p.rc, 0) << name;
        EXPECT_EQ(Str(p.fi->gfi->fontName), name);
    }
    struct Case {
        const char *name, *urw, *full, *family;
    };
    for (const Case &c : {Case{"Helvetica-Bold", "NimbusSans-Bold", "Helvetica Bold", "Helvetica"},
                          Case{"Helvetica-Narrow-BoldOblique", "NimbusSansNarrow-BoldOblique",
                               "Helvetica Narrow Bold Oblique", "Helvetica Narrow"},
                          Case{"Times-Roman", "NimbusRoman-Regular", "Times Roman", "Times"},
                          Case{"ZapfDingbats", "D050000L", "ITC Zapf Dingbats", "ITC Zapf Dingbats"}}) {
        SCOPED_TRACE(c.name);
        Parsed gen, urw;
        ParsePath(gen, GeneratedDir() / (std::string(c.name) + ".afm"), kDriverFlags);
        ParsePath(urw, UrwDir() / (std::string(c.urw) + ".afm"), kDriverFlags);
        EXPECT_EQ(Str(gen.fi->gfi->fullName), c.full);
        EXPECT_EQ(Str(gen.fi->gfi->familyName), c.family);
        std::vector<std::string> a = Dump(gen.fi), b = Dump(urw.fi);
        auto globals = [](const std::string &line) { return line[0] == 'G'; };
        std::erase_if(a, globals), std::erase_if(b, globals);
        EXPECT_EQ(a.size(), b.size());
        EXPECT_TRUE(a == b);
    }
    // From a pipe, whose size is unknown.
    FILE *pipe = popen(("cat '" + (GeneratedDir() / "Helvetica.afm").string() + "'").c_str(), "r");
    FontInfo *fi = nullptr;
    EXPECT_EQ(parseFile(pipe, &fi, kDriverFlags), 0);
    EXPECT_EQ(fi->numOfPairs, 3838);
    freeStorage(fi);
    pclose(pipe);
}

// "EndComposites" is never found as a key, so a composites section runs to
// "EndFontMetrics", which ends the parse with what was read: the
// composites are kept, but whatever follows them is not read.
TEST(AfmReader, Composites) {
    const std::string text = "StartFontMetrics 2.0\nStartCharMetrics 1\nC 65 ; WX 600 ; N A ; B 0 0 1 1 ;\n"
                             "EndCharMetrics\nStartComposites 1\nCC Aacute 2 ; PCC A 0 0 ; PCC acute 100 200 ;\n"
                             "EndComposites\nStartKernPairs 1\nKPX A A -5\nEndKernPairs\nEndFontMetrics\n";
    Parsed with, without;
    Parse(with, text, 63);
    EXPECT_EQ(with.rc, 0);
    EXPECT_EQ(with.fi->numOfPairs, 0);
    ASSERT_EQ(with.fi->numOfComps, 1);
    const CompCharData &cc = with.fi->ccd[0];
    EXPECT_EQ(Str(cc.ccName), "Aacute");
    ASSERT_EQ(cc.numOfPieces, 2);
    EXPECT_EQ(Str(cc.pieces[1].pccName), "acute");
    EXPECT_EQ(cc.pieces[1].deltax, 100);
    EXPECT_EQ(cc.pieces[1].deltay, 200);
    Parse(without, text, 31);
    EXPECT_EQ(without.rc, 0);
    EXPECT_EQ(without.fi->ccd, nullptr);
    EXPECT_EQ(without.fi->numOfPairs, 0);
}

// Records and globals of a small file: the code -1 record beside encoded
// ones, CharWidth applied and overridden, ligatures in order, tokens split
// at ";" and ":" and commas before a token skipped, lines with CR LF, and
// the two kerning forms and tracks.
TEST(AfmReader, RecordsAndGlobals) {
    const std::string text =
        "StartFontMetrics 4.1\r\nComment made: by hand; EndFontMetrics\r\nFontName: Test-Bold\r\nWeight :\r\n"
        "FullName   Test Bold  Face\r\nIsFixedPitch true\r\nItalicAngle -12.5\r\nFontBBox -10 ,-20 ,900 ,800\r\n"
        "StartDirection 0\r\nCharWidth 600 0\r\nEndDirection\r\nEncodingScheme AdobeStandardEncoding\r\n"
        "StartCharMetrics 4\r\nC 32 ; N space ; B 0 0 0 0 ;\r\nC -1 ; WX 500 ; N Euro ; B 1 2 3 4 ;\r\n"
        "CH <41> ; W 610 5 ; N A ; L f ff ; L i fi ;\r\nC 66;WX 620;N B;B 5 6 7 8;\r\nEndCharMetrics\r\n"
        "StartKernData\r\nStartTrackKern 1\r\nTrackKern -1 9.5 -0.25 36 -1.5\r\nEndTrackKern\r\n"
        "StartKernPairs 2\r\nKP A B -30 5\r\nKPX B A -40\r\nEndKernPairs\r\nEndKernData\r\nEndFontMetrics\r\n";
    Parsed p;
    Parse(p, text, kDriverFlags);
    ASSERT_EQ(p.rc, 0);
    const GlobalFontInfo *g = p.fi->gfi;
    EXPECT_EQ(Str(g->afmVersion), "4.1");
    EXPECT_EQ(g->charWidth, 600);
    // A colon ends a token and goes, unless it starts one; CharWidth gives
    // the width of records without WX.
    EXPECT_EQ(Dump(p.fi), (std::vector<std::string>{
                              "C A 65 610 0 0 0 0", "C B 66 620 5 6 7 8", "C Euro -1 500 1 2 3 4", "C space 32 600 0 0 0 0",
                              "G Test-Bold|Test Bold  Face|-|:|-|-|AdobeStandardEncoding|-12.5|1|-10 -20 900 800|0 0 0 0 0 0",
                              "K A B -30", "K B A -40"}));
    EXPECT_EQ(p.c(2).wy, 5);
    ASSERT_NE(p.c(2).ligs, nullptr);
    EXPECT_EQ(Str(p.c(2).ligs->succ) + Str(p.c(2).ligs->lig), "fff");
    ASSERT_NE(p.c(2).ligs->next, nullptr);
    EXPECT_EQ(Str(p.c(2).ligs->next->lig), "fi");
    ASSERT_EQ(p.fi->numOfTracks, 1);
    EXPECT_EQ(p.fi->tkd[0].degree, -1);
    EXPECT_FLOAT_EQ(p.fi->tkd[0].minKernAmt, -0.25f);
    EXPECT_FLOAT_EQ(p.fi->tkd[0].maxPtSize, 36.0f);
    EXPECT_EQ(p.fi->pkd[0].yamt, 5);
    EXPECT_EQ(p.fi->pkd[1].yamt, 0);

    // IsFixedPitch: only "false" is false.  CharWidth counts only in
    // direction 0.
    for (auto [word, fixed] : {std::pair{"false", false}, {"False", true}, {"0", true}}) {
        Parsed q;
        Parse(q, std::string("IsFixedPitch ") + word + "\nCharWidth 700 0\nStartCharMetrics 0\n"
                                                         "EndCharMetrics\nEndFontMetrics\n");
        EXPECT_EQ(q.rc, 0);
        EXPECT_EQ(q.fi->gfi->isFixedPitch, fixed) << word;
        EXPECT_EQ(q.fi->gfi->charWidth, 0);
    }
    // The widths-only form: a position by code, WX only within 0..255.
    Parsed w;
    Parse(w, "StartCharMetrics 3\nC 65 ; WX 610 ; N A ;\nC -1 ; WX 1 ;\nC 300 ; WX 2 ;\nEndCharMetrics\n"
                 "EndFontMetrics\n",
              kAfmWidths);
    EXPECT_EQ(w.rc, 0);
    EXPECT_EQ(w.fi->cwi[65], 610);
    EXPECT_EQ(std::count(w.fi->cwi, w.fi->cwi + 256, 0), 255);
}

// Counts that do not match keep the records that fit and give -1; a file
// cut off gives -2, which a later fault does not replace; unknown keys
// give -1 with everything else read.
TEST(AfmReader, CountsAndEndOfFile) {
    const std::string head = "StartFontMetrics 2.0\nFontName X\n";
    Parsed few, many, unknown;
    Parse(few, head + "StartCharMetrics 3\nC 1 ; WX 10 ; N a ;\nC 2 ; WX 20 ; N b ;\nEndCharMetrics\n"
                          "EndFontMetrics\n");
    EXPECT_EQ(few.rc, -1);
    ASSERT_EQ(few.fi->numOfChars, 3);
    EXPECT_EQ(few.c(1).wx, 20);
    EXPECT_EQ(few.c(2).name, nullptr);

    Parse(many, head + "StartCharMetrics 1\nC 1 ; WX 10 ; N a ;\nC 2 ; WX 20 ; N b ; L x y ;\n"
                           "EndCharMetrics\nStartKernPairs 1\nKPX a b 5\nKPX b a 6\nEndKernPairs\nEndFontMetrics\n");
    EXPECT_EQ(many.rc, -1);
    EXPECT_EQ(many.c(0).wx, 10);
    EXPECT_EQ(Str(many.c(0).name), "a");
    ASSERT_EQ(many.fi->numOfPairs, 1);
    EXPECT_EQ(many.fi->pkd[0].xamt, 5);

    Parse(unknown, head + "Foo bar\nStartCharMetrics 1\nC 1 ; WX 10 ; N a ;\nEndCharMetrics\n"
                              "StartKernPairs 1\nKPX a a -5\nEndKernPairs\nEndFontMetrics\n");
    EXPECT_EQ(unknown.rc, -1);
    EXPECT_EQ(Str(unknown.fi->gfi->fontName), "X");
    EXPECT_EQ(unknown.fi->pkd[0].xamt, -5);

    for (const char *tail : {"", "StartCharMetrics 1\nC 1 ; WX 10", "StartCharMetrics 1\nC 1 ;\nEndCharMetrics\n",
                             "StartCharMetrics 0\nEndCharMetrics\nStartKernPairs 2\nKPX a b 1\n",
                             "Bad key\nStartCharMetrics 0\nEndCharMetrics\nStartTrackKern 1\nTrackKern 1 2"}) {
        Parsed cut;
        Parse(cut, head + tail);
        EXPECT_EQ(cut.rc, -2) << tail;
    }
}

// Hostile input never crashes: bytes, overlong tokens (cut at 4095
// characters, the rest of the token dropped), and counts that are
// negative, absurd or not numbers.
TEST(AfmReader, MalformedInput) {
    std::string bytes;
    for (int i = 0; i < 4096; ++i) bytes += static_cast<char>((i * 7919) & 0xff);
    for (int flags : {0, kDriverFlags, kAfmWidths, 63}) {
        Parsed p;
        Parse(p, bytes, flags);
        EXPECT_LT(p.rc, 0);
    }

    Parsed longName;
    Parse(longName, "FontName " + std::string(10000, 'x') + "\nWeight Bold\nStartCharMetrics 0\n"
                        "EndCharMetrics\nEndFontMetrics\n");
    EXPECT_EQ(longName.rc, 0);
    EXPECT_EQ(std::strlen(longName.fi->gfi->fontName), size_t(kAfmTokenSize - 1));
    EXPECT_EQ(Str(longName.fi->gfi->weight), "Bold");
    Parsed longLine;
    Parse(longLine, "Notice " + std::string(10000, 'n') + "\nStartCharMetrics 0\nEndCharMetrics\n"
                        "EndFontMetrics\n");
    EXPECT_EQ(longLine.rc, 0);
    EXPECT_EQ(std::strlen(longLine.fi->gfi->notice), size_t(kAfmTokenSize - 1));

    // Refused: no records, each section read past.  100 is more than the
    // rest of this file can hold.
    for (const char *count : {"-1", "-2147483648", "99999999999", "2147483647", "1048577", "100"}) {
        SCOPED_TRACE(count);
        std::string c = count;
        Parsed p;
        Parse(p, "StartCharMetrics " + c + "\nC 1 ; WX 5 ; N a ;\nEndCharMetrics\nStartKernPairs " + c +
                     "\nKPX a a 1\nEndKernPairs\nStartTrackKern " + c + "\nTrackKern 1 1 1 1 1\nEndTrackKern\n"
                     "StartComposites " + c + "\nCC a 1 ; PCC a 1 1 ;\nEndFontMetrics\n");
        EXPECT_EQ(p.rc, -1);
        EXPECT_EQ(p.fi->numOfChars + p.fi->numOfPairs + p.fi->numOfTracks + p.fi->numOfComps, 0);
        EXPECT_TRUE(!p.fi->cmi && !p.fi->pkd && !p.fi->tkd && !p.fi->ccd);
    }
    Parsed nums;
    Parse(nums, "ItalicAngle 1e999\nFontBBox 99999999999 -99999999999 0 0\nStartCharMetrics 1\n"
                    "CH <fffffffff> ; WX 1e5 ;\nEndCharMetrics\nEndFontMetrics\n");
    EXPECT_EQ(nums.rc, -1);  // the angle is out of range
    EXPECT_EQ(nums.fi->gfi->fontBBox.llx, 2147483647);
    EXPECT_EQ(nums.fi->gfi->fontBBox.lly, -2147483647 - 1);
    EXPECT_EQ(nums.c(0).wx, 1);
}

// initializeArray: the width of "space" in every cell, the stream left
// where it was.
TEST(AfmReader, InitializeArray) {
    std::string text = "StartCharMetrics 2\nC 33 ; WX 333 ; N exclam ;\nC 32 ; WX 278 ; N space ;\n";
    FILE *fp = fmemopen(text.data(), text.size(), "r");
    ASSERT_NE(fp, nullptr);
    std::fseek(fp, 17, SEEK_SET);
    int cwi[256];
    initializeArray(fp, cwi);
    EXPECT_EQ(std::ftell(fp), 17);
    EXPECT_EQ(cwi[0], 278);
    EXPECT_EQ(cwi[255], 278);
    std::fseek(fp, static_cast<long>(text.find("space") + 5), SEEK_SET);
    initializeArray(fp, cwi);
    EXPECT_EQ(cwi[100], 250);
    std::fclose(fp);
}
