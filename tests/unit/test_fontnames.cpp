// Font names and soft fonts: XLFD fields rewritten byte for byte, plain
// sizes, encoding lookups, soft font directories, and fonts downloaded into
// a document (checked against t1utils and run by Ghostscript).
#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "core/qlint.h"
#include "drivers/ps/ps.h"
#include "fontdata/pfonts.h"
#include "fontdata/pfonts2.h"
#include "support/capture.h"
#include "support/gs.h"
#include "support/tempdir.h"

using qltest::ReadFile;
using qltest::WriteFile;

namespace {

const char *kTimes = "-adobe-times-medium-r-normal--12-120-75-75-p-64-iso8859-1";
const char *kUrwFont = "/usr/share/fonts/type1/urw-base35/NimbusSans-Regular.t1";

// A new name as text, freed; "null" for none.
std::string Take(char *s) {
    std::string r = s ? s : "null";
    std::free(s);
    return r;
}

// The suffix and the encoding id of a name, as "suffix/id".
std::string Scheme(const char *name) {
    int id = -1;
    std::string suffix = Take(_QlGetEncodingSchemeOfFull(name, &id));
    return suffix + "/" + std::to_string(id);
}

// A printer record that only writes to a file.
struct Sink {
    QlPrinter p{};
    std::string path;
    explicit Sink(const std::string &file) : path(file) { p.stream = std::fopen(file.c_str(), "w+"); }
    ~Sink() {
        if (p.stream) std::fclose(p.stream);
        auto **names = static_cast<char **>(p.suppliedFonts);
        for (int i = 0; i < p.suppliedFontCount; ++i) std::free(names[i]);
        std::free(names);
    }
    std::string text() {
        std::fflush(p.stream);
        return ReadFile(path);
    }
};

int Shell(const std::string &command) { return std::system(command.c_str()); }

// Hex digits decoded; white space between them is skipped.
std::string HexBytes(const std::string &hex) {
    std::string digits, bytes;
    for (char c : hex)
        if (!std::isspace(static_cast<unsigned char>(c))) digits += c;
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    return bytes;
}

// The URW fonts glue their trailer of 512 zeros to the encrypted part, with
// carriage returns between its lines, so t1utils can't tell where the
// encrypted part ends and would put the zeros into the binary segment.  On
// lines of their own they make a segment of their own, as in fonts from
// other sources.
std::string TrailerOnItsOwnLines(std::string font) {
    size_t at = font.rfind("cleartomark");
    for (int zeros = 0; at != std::string::npos && at > 0 && zeros < 512;)
        if (font[--at] == '0') ++zeros;
    for (size_t i = at; i < font.size(); ++i)
        if (font[i] == '\r') font[i] = '\n';
    return font.insert(at, "\n");
}

}  // namespace

TEST(FontNames, FieldsAndDigitStrings) {
    const char *s = "a-b-c";
    EXPECT_EQ(Qlstrnchr(s, '-', 2), s + 4);
    EXPECT_EQ(Qlstrnchr(s, '-', 0), s);
    EXPECT_EQ(Qlstrnchr(s, '-', 3), nullptr);
    for (const char *yes : {"", "12", "*", "1*?"}) EXPECT_EQ(QlIsDigitString(yes), 1) << yes;
    for (const char *no : {"1a", "-1"}) EXPECT_EQ(QlIsDigitString(no), 0) << no;

    struct { const char *name; int result, pixel, point; } cases[] = {
        {kTimes, 1, 12, 120},
        {"-a-b-c-d-e-f-*-120", 1, -1, 120},
        {"-a-b-c-d-e-f-12", 1, 12, -1},
        {"-a-b-c-d-e-f--120", 0, -1, -1},
        {"-a-b-c-d-e-f-12-x", 0, 12, -1},
        {"-a-b", 1, -1, -1},
        {"-a-b-c-d-e-f-99999999999999999999-7", 1, 2147483647, 7},
    };
    for (auto &c : cases) {
        int pixel = 5, point = 5;
        EXPECT_EQ(FontGetPPSize(c.name, &pixel, &point), c.result) << c.name;
        EXPECT_EQ(pixel, c.pixel) << c.name;
        EXPECT_EQ(point, c.point) << c.name;
    }
}

TEST(FontNames, SizeRewrites) {
    struct { const char *name, *both, *withWidth; } cases[] = {
        {kTimes, "-adobe-times-medium-r-normal--7-70-75-75-p-64-iso8859-1",
         "-adobe-times-medium-r-normal--7-70-75-75-p-9-iso8859-1"},
        {"-*-times-*-*-*-*-*-*-*-*-*-*-*-*", "-*-times-*-*-*-*-7-70-*-*-*-*-*-*", "-*-times-*-*-*-*-7-70-*-*-*-9-*-*"},
        {"-a-b-c-d-e-f-12", "-a-b-c-d-e-f-7", "-a-b-c-d-e-f-7"},
        {"-a-b-c-d-e-f-1-2-", "-a-b-c-d-e-f-7-70-", "-a-b-c-d-e-f-7-70-"},
        {"-a-b-c-d-e-f-1-2-75-75", "-a-b-c-d-e-f-7-70-75-75", "-a-b-c-d-e-f-7-70-75-75"},
        {"-a-b-c-d-e-f-1-2-75-75-p-64-", "-a-b-c-d-e-f-7-70-75-75-p-64-", "-a-b-c-d-e-f-7-70-75-75-p-9-"},
        {"-a-b-c-d-e-f-1-2--75", "-a-b-c-d-e-f-7-70--75", "-a-b-c-d-e-f-7-70--75"},
        {"-a-b-c-d-e-f-1-2-75-75-p-x-z", "-a-b-c-d-e-f-7-70-75-75-p-x-z", "null"},
        {"-a-b", "-a-b", "-a-b"},
        {"-a-b-c-d-e-f--12", "null", "null"},
    };
    for (auto &c : cases) {
        EXPECT_EQ(Take(FontSetPPSize(c.name, 7, 70)), c.both) << c.name;
        EXPECT_EQ(Take(FontSetPPASize(c.name, 7, 70, 9)), c.withWidth) << c.name;
    }
    EXPECT_EQ(Take(_QlFontSetPixelSize(kTimes, 5)), "-adobe-times-medium-r-normal--5-120-75-75-p-64-iso8859-1");
    EXPECT_EQ(Take(FontSetPointSize(kTimes, 5)), "-adobe-times-medium-r-normal--12-5-75-75-p-64-iso8859-1");
    EXPECT_EQ(Take(FontSetPointSize("-a-b-c-d-e-f-12-120-", 5)), "-a-b-c-d-e-f-12-5-");
    EXPECT_EQ(Take(FontSetPointSize("-a-b-c-d-e-f-12-p", 5)), "null");
    EXPECT_EQ(Take(_QlFontSetPixelSize("-a-b-c-d-e-f--1", 5)), "null");

    EXPECT_EQ(Take(FontReplaceResol(kTimes, 300)), "-adobe-times-medium-r-normal--12-120-300-300-p-64-iso8859-1");
    EXPECT_EQ(Take(FontReplaceResol("-a-b-c-d-e-f-1-2-3", 300)), "null");

    // The width is the fifth token: the spacing of a full name, unless a field is empty.
    EXPECT_EQ(FontGetAWidth(kTimes), 0);
    EXPECT_EQ(FontGetAWidth("-a-b-c-d-e-f-12-120-75-75--64-iso8859-1"), 64);
    EXPECT_EQ(FontGetAWidth("-a-b-c-d-e-f-12-120-75-75"), 0);

    char name[] = "-adobe-times-medium-r-normal--0-0-75-75-p-0-iso8859-1";
    EXPECT_EQ(SoftFontMakeFullXLFD(name, 12.4, 120.5, 0), name);
    EXPECT_EQ(Take(SoftFontMakeFullXLFD(name, 12.4, 120.5, 1)),
              "-adobe-times-medium-r-normal--12-121-75-75-p-0-iso8859-1");
    EXPECT_EQ(Take(SoftFontMakeFullXLFD(name, NAN, 1e30, 1)),
              "-adobe-times-medium-r-normal--0-2147483647-75-75-p-0-iso8859-1");

    EXPECT_EQ(Take(FontSetSize("courier12-bold", 14)), "courier14-bold");
    EXPECT_EQ(Take(FontReplaceSizeI("courier12x", 8)), "courier8");
    EXPECT_EQ(Take(FontReplaceSizeC("a10-b-2", "*")), "a*-b-2");
    EXPECT_EQ(Take(FontSetSize("courier", 8)), "null");
    EXPECT_EQ(FontGetSize("x-7y3"), 7);
    EXPECT_EQ(FontGetSize("courier"), -1);
}

TEST(FontNames, Encodings) {
    EXPECT_EQ(Scheme(kTimes), "iso8859-1/3");
    EXPECT_EQ(Scheme("-a-b-c-d-e-f-0-0-0-0-p-0-iso8859-5"), "iso8859-5/7");
    EXPECT_EQ(Scheme("-a-b-c-d-e-f-0-0-0-0-p-0-koi8-r"), "koi8-r/0");
    {
        qltest::MessageCapture messages;
        EXPECT_EQ(Scheme("-a-b-c-d-e-f-0-0-0-0-p-0"), "null/0");
        EXPECT_EQ(messages.texts, std::vector<std::string>{"wFontFormat: _QlGetEncodingSchemeOfFull: font "
                                                           "-a-b-c-d-e-f-0-0-0-0-p-0 does not have correct XLFD format"});
    }
    EXPECT_STREQ(_QlGetEncodingScheme(7), "ISO8859-5");
    EXPECT_EQ(_QlGetEncodingScheme(0), nullptr);
    EXPECT_STREQ(_QlGetEncodeNameofAFMEncode(8), "ISOLatin7Encoding");
    EXPECT_EQ(_QlGetEncodeNameofAFMEncode(10), nullptr);
    EXPECT_EQ(_QlGetEncodeOfAFMString("isolatingreekencoding"), 8);
    EXPECT_EQ(_QlGetEncodeOfAFMString("Unknown"), 0);
    EXPECT_EQ(Take(_QlGetTypefaceOfFull("-adobe-zapf dingbats-medium-r")), "zapf dingbats");
    EXPECT_EQ(Take(_QlGetTypefaceOfFull("-adobe")), "null");
}

TEST(FontNames, PathsAndBoundingBox) {
    char out[1024];
    EXPECT_STREQ(_QlMakeFontName(out, "/etc/q", "afm", "Times.Roman.x"), "/etc/q/fontmetrics/afm/Times-Roman-x.afm");
    EXPECT_STREQ(_QlMakeFontName(out, "/etc/q/", "tfm", "cour.tfm"), "/etc/q/fontmetrics/tfm/cour.tfm");
    char small[8] = "xxxxxxx";
    EXPECT_EQ(_QlMakeFontName(small, "/etc/q", "afm", "T", sizeof small), nullptr);
    EXPECT_STREQ(small, "");
    EXPECT_EQ(_QlMakeFontName(out, "/etc/q", "afm", std::string(2000, 'a').c_str()), nullptr);

    qltest::TempDir dir;
    Sink sink(dir / "box.ps");
    sink.p.boundsXmin = 1, sink.p.boundsYmin = 2, sink.p.boundsXmax = 30, sink.p.boundsYmax = 40;
    _QlDrawBoundingBox(&sink.p);
    sink.p.driverId = QL_DRIVER_PCL5;
    _QlDrawBoundingBox(&sink.p);
    EXPECT_EQ(sink.text(), "gs np 1 2 t 1 40 lo 30 40 lo 30 2 lo cp st gr\n");
}

TEST(SoftFonts, ResidentFontsIgnoreCase) {
    char a[] = "Times-Roman", b[] = "Courier";
    char *names[] = {a, b};
    int uses[] = {0, 0};
    ps::PSFontList list{2, nullptr, names, uses};
    QlPrinter p{};
    p.ppdFonts = &list;
    EXPECT_EQ(CheckAvailFonts(&p, "COURIER") + CheckAvailFonts(&p, "courier"), 2);
    EXPECT_EQ(CheckAvailFonts(&p, "Helvetica"), 0);
    EXPECT_EQ(uses[1], 2);
}

TEST(SoftFonts, ClaimedOncePerScan) {
    qltest::TempDir dir;
    qltest::ScopedEnv env("QLPATH", dir.path().c_str());
    WriteFile(dir / "pssoftfonts/Alpha", "x");
    WriteFile(dir / "pssoftfonts/beta", "x");
    for (int i = 0; i < 400; ++i) WriteFile(dir / ("pssoftfonts/f" + std::to_string(i)), "");
    EXPECT_EQ(CheckSoftFonts(nullptr, 1), 1);
    EXPECT_EQ(CheckSoftFonts("alpha", 0), 1);
    EXPECT_EQ(CheckSoftFonts("ALPHA", 0), 0);  // a second font line for the same file
    EXPECT_EQ(CheckSoftFonts("Beta", 0) + CheckSoftFonts("f399", 0), 2);
    EXPECT_EQ(CheckSoftFonts("gamma", 0), 0);
    WriteFile(dir / "pssoftfonts/gamma", "x");
    EXPECT_EQ(CheckSoftFonts("gamma", 0), 0);  // the directory is read once per scan
    EXPECT_EQ(CheckSoftFonts(nullptr, 1), 1);
    EXPECT_EQ(CheckSoftFonts("gamma", 0) + CheckSoftFonts("Alpha", 0), 2);

    // Without a directory PostScript waits for the next scan; PCL looks again.
    std::filesystem::remove_all(dir / "pssoftfonts");
    CheckSoftFonts(nullptr, 1);
    PCL_CheckSoftFonts(nullptr, 1);
    EXPECT_EQ(CheckSoftFonts("Alpha", 0), 0);
    EXPECT_EQ(PCL_CheckSoftFonts("Font.TFM", 0), 0);
    WriteFile(dir / "pssoftfonts/Alpha", "x");
    WriteFile(dir / "pclsoftfonts/Font", "x");
    EXPECT_EQ(CheckSoftFonts("Alpha", 0), 0);
    EXPECT_EQ(PCL_CheckSoftFonts("Font.TFM", 0), 1);
    EXPECT_EQ(PCL_CheckSoftFonts("font.tfm", 0), 0);
    CheckSoftFonts(nullptr, 1);
    EXPECT_EQ(CheckSoftFonts("Alpha", 0), 1);
}

TEST(DownLoadFont, SegmentsAndTruncation) {
    qltest::TempDir dir;
    auto seg = [](int type, uint32_t length, const std::string &data = "") {
        std::string h = {'\x80', static_cast<char>(type), static_cast<char>(length), static_cast<char>(length >> 8),
                         static_cast<char>(length >> 16), static_cast<char>(length >> 24)};
        return h + data;
    };
    const std::string odd = seg(1, 2, "ab") + "zzzzzz";
    struct { std::string file; int result; std::string body; } cases[] = {
        {seg(1, 3, "abc") + seg(2, 3, std::string("\x00\xff\x10", 3)) + seg(7, 3) + seg(1, 1, "x") + "\x80\x03", 1,
         "abc\n00ff10\nx\n"},
        {seg(1, 0) + seg(3, 0) + "junk", 1, "\n"},
        {seg(2, 0xffffffff, "\x01\x02"), 0, "0102\n"},
        {seg(1, 1000, "abcd") + "\x80", 0, "abcd\x80\n"},
        {odd, 1, "ab\n" + odd},  // a head without 128 turns to a plain copy
        {"\x80", 0, ""},
    };
    for (auto &c : cases) {
        WriteFile(dir / "font.pfb", c.file);
        Sink sink(dir / "out.ps");
        EXPECT_EQ(DownLoadFont(&sink.p, (dir / "font.pfb").c_str(), 4, "F"), c.result);
        EXPECT_EQ(sink.text(), "%%BeginResource: font F\n" + c.body + "%%EndResource\n");
    }

    qltest::ScopedEnv env("QLPATH", dir.path().c_str());
    WriteFile(dir / "pssoftfonts/myfont", "%!FontType1 soft\n");
    WriteFile(dir / "pclsoftfonts/Cour", "PCLDATA");
    Sink sink(dir / "out.ps");
    EXPECT_EQ(DownLoadFont(&sink.p, "MyFont", 1, "My-Alias"), 1);
    EXPECT_EQ(PCL_DownLoadFont(&sink.p, "Cour.tfm", 1, "Cour", 12), 1);
    {
        qltest::MessageCapture messages;
        EXPECT_EQ(DownLoadFont(&sink.p, "Missing", 1, "Other"), 0);
        EXPECT_EQ(PCL_DownLoadFont(&sink.p, "Gone.TFM", 1, "Gone", 1), 0);
        EXPECT_EQ(messages.indices, (std::vector<int>{eNoSoftFont, eNoSoftFont}));
        EXPECT_EQ(messages.texts[0], "eNoSoftFont: DownLoadFont: can not find the downloadable font Missing");
    }
    EXPECT_EQ(sink.text(), "%%BeginResource: font My-Alias\n%!FontType1 soft\n%%EndResource\n\x1b*c12DPCLDATA");
    ASSERT_EQ(sink.p.suppliedFontCount, 1);
    EXPECT_STREQ(static_cast<char **>(sink.p.suppliedFonts)[0], "My-Alias");
}

TEST(DownLoadFont, Type1FontsFromT1utils) {
    qltest::TempDir dir;
    const std::string pfb = dir / "f.pfb", pfa = dir / "f.pfa", ref = dir / "ref.pfa";
    WriteFile(dir / "f.t1", TrailerOnItsOwnLines(ReadFile(kUrwFont)));
    ASSERT_EQ(Shell("t1binary " + dir / "f.t1" + " " + pfb), 0);
    ASSERT_EQ(Shell("t1ascii " + dir / "f.t1" + " " + pfa), 0);
    ASSERT_EQ(Shell("t1ascii " + pfb + " " + ref), 0);
    const std::string head = "%%BeginResource: font NimbusSans-Regular\n", tail = "%%EndResource\n";
    {  // a PFA goes in as it is
        Sink sink(dir / "a.ps");
        EXPECT_EQ(DownLoadFont(&sink.p, pfa.c_str(), 4, "NimbusSans-Regular"), 1);
        EXPECT_EQ(sink.text(), head + ReadFile(pfa) + tail);
    }
    // A PFB: clear text as it is, the binary part in hex on one line, the
    // trailer as it is.
    Sink sink(dir / "b.ps");
    EXPECT_EQ(DownLoadFont(&sink.p, pfb.c_str(), 4, "NimbusSans-Regular"), 1);
    const std::string resource = sink.text(), theirs = ReadFile(ref);
    ASSERT_TRUE(resource.starts_with(head) && resource.ends_with(tail));
    const std::string font = resource.substr(head.size(), resource.size() - head.size() - tail.size());
    const size_t clear = font.find("currentfile eexec\n") + 18, lineEnd = font.find('\n', clear + 1);
    ASSERT_GT(clear, 18u);
    EXPECT_EQ(font.substr(0, clear + 1), theirs.substr(0, clear) + "\n");
    const std::string line = font.substr(clear + 1, lineEnd - clear - 1);
    EXPECT_EQ(line.find_first_not_of("0123456789abcdef"), std::string::npos);
    std::string trailer = font.substr(lineEnd + 1);
    ASSERT_TRUE(trailer.starts_with(std::string(64, '0')) && trailer.ends_with("cleartomark\n\n"));
    trailer.pop_back();
    ASSERT_TRUE(theirs.ends_with(trailer));
    EXPECT_GT(line.size(), 200000u);
    EXPECT_EQ(HexBytes(line), HexBytes(theirs.substr(clear, theirs.size() - clear - trailer.size())));

    const std::string doc = "%!PS-Adobe-3.0\n"
                            "FontDirectory /NimbusSans-Regular known { font_loaded_before_resource } if\n" +
                            resource +
                            "FontDirectory /NimbusSans-Regular get 24 scalefont setfont\n"
                            "72 72 moveto (Hello) show showpage\n";
    WriteFile(dir / "doc.ps", doc);
    auto gs = qltest::RunGhostscript({"-sDEVICE=nullpage", dir / "doc.ps"});
    EXPECT_EQ(gs.exitCode, 0) << gs.log;
    EXPECT_EQ(gs.log, "");
}
