// The reencoding glyph table: the ASCII block and the repair rows,
// StandardEncoding codes as the PostScript Language Reference lists them,
// and every ISO column against the C library's own character maps (iconv).
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <iconv.h>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "drivers/ps/latincode.h"

using ps::LatinCode;
using ps::NUM_CODES;
// The listed glyphs; three of ISO 8859-2 follow them.
constexpr int kListed = 481;

namespace {

constexpr int kAsciiRows = 95;
constexpr int kRepairRows = 8;
constexpr int kFirstRepair = kListed - kRepairRows;

// The ISO columns 1..7 and the iconv names of their character sets.
const char *const kCharsets[8] = {nullptr,      "ISO-8859-1", "ISO-8859-2", "ISO-8859-3",
                                  "ISO-8859-4", "ISO-8859-5", "ISO-8859-7", "ISO-8859-9"};

std::string Row(int i) {
    std::string s = std::to_string(i) + " " + LatinCode[i].name + " {";
    for (int c = 0; c < 8; c++) s += (c ? "," : "") + std::to_string(LatinCode[i].code[c]);
    return s + "}";
}

// The byte that the charset gives the UTF-8 text, or -1 when it has none.
int IsoByte(const char *charset, const std::string &utf8) {
    iconv_t cd = iconv_open(charset, "UTF-8");
    if (cd == reinterpret_cast<iconv_t>(-1)) {
        ADD_FAILURE() << "iconv lacks " << charset;
        return -2;
    }
    std::string in = utf8;
    char out[8];
    char *ip = in.data(), *op = out;
    size_t il = in.size(), ol = sizeof out;
    size_t rc = iconv(cd, &ip, &il, &op, &ol);
    int err = errno;
    iconv_close(cd);
    if (rc == static_cast<size_t>(-1)) {
        EXPECT_EQ(err, EILSEQ) << charset << " " << utf8;
        return -1;
    }
    EXPECT_EQ(op - out, 1) << charset << " " << utf8;
    return static_cast<unsigned char>(out[0]);
}

// The first alternative the charset has: a glyph that stands for two
// characters (micro sign and Greek mu) is found under either.
int IsoByte(const char *charset, const std::vector<std::string> &alternatives) {
    for (const auto &a : alternatives) {
        int b = IsoByte(charset, a);
        if (b != -1) return b;
    }
    return -1;
}

// Glyphs across all the sets, with the characters they stand for.
const std::map<std::string, std::vector<std::string>> kGlyphChars = {
    // Latin-1 and accents
    {"eacute", {"é"}}, {"germandbls", {"ß"}}, {"ydieresis", {"ÿ"}}, {"Eth", {"Ð"}},
    {"thorn", {"þ"}}, {"multiply", {"×"}}, {"brokenbar", {"¦"}}, {"currency", {"¤"}},
    {"section", {"§"}}, {"degree", {"°"}}, {"periodcentered", {"·"}},
    {"acute", {"´"}}, {"macron", {"¯"}}, {"cedilla", {"¸"}}, {"breve", {"˘"}},
    {"dotaccent", {"˙"}}, {"caron", {"ˇ"}}, {"ogonek", {"˛"}}, {"hungarumlaut", {"˝"}},
    {"ring", {"˚"}}, {"emdash", {"—"}}, {"fraction", {"⁄"}},
    // Latin-2, -3, -4 and -9
    {"Aogonek", {"Ą"}}, {"Scaron", {"Š"}}, {"scedilla", {"ş"}}, {"Tcedilla", {"Ţ"}},
    {"Lslash", {"Ł"}}, {"Odoubleacute", {"Ő"}}, {"udoubleacute", {"ű"}}, {"Dslash", {"Đ"}},
    {"dslash", {"đ"}}, {"Gbreve", {"Ğ"}}, {"gbreve", {"ğ"}}, {"Idot", {"İ"}},
    {"dotlessi", {"ı"}}, {"Hslash", {"Ħ"}}, {"hcircumflex", {"ĥ"}}, {"Cdot", {"Ċ"}},
    {"gdot", {"ġ"}}, {"Ksmall", {"ĸ"}}, {"gtopcedilla", {"ģ"}}, {"Tslash", {"Ŧ"}},
    {"eng", {"ŋ"}}, {"Edot", {"Ė"}}, {"islash", {"ɨ"}},
    // Cyrillic
    {"CyrA", {"А"}}, {"Cyrya", {"я"}}, {"CyrIO", {"Ё"}}, {"Cyrdze", {"џ"}},
    {"SerCyrDIE", {"Ђ"}}, {"MacCyrKIE", {"Ќ"}}, {"UkrCyryi", {"ї"}}, {"BieCyr_shortu", {"ў"}},
    {"CyrLatI", {"І"}}, {"Cyr_shortI", {"Й"}}, {"CyrE", {"Э"}}, {"Cyrie", {"е"}},
    // Greek
    {"alpha", {"α"}}, {"sigma1", {"ς"}}, {"Tones", {"΄"}}, {"AlphaTonos", {"Ά"}},
    {"EdaTonos", {"Ή"}}, {"iotaDialytikaTonos", {"ΐ"}}, {"upsilonDialytika", {"ϋ"}},
    // Glyphs for two characters: the sign first (Latin-1), the Greek letter second.
    {"mu", {"\u00b5", "\u03bc"}}, {"Omega", {"\u2126", "\u03a9"}}, {"Delta", {"\u2206", "\u0394"}},
};

}  // namespace

// --- ASCII block and repair rows ------------------------------------------

TEST(LatinCodeFixed, AsciiBlockInCodeOrder) {
    static_assert(sizeof LatinCode / sizeof LatinCode[0] == NUM_CODES && NUM_CODES == kListed + 3);
    for (int i = 0; i < NUM_CODES; i++)
        for (short c : LatinCode[i].code) EXPECT_TRUE(c >= -1 && c <= 255) << Row(i);
    // StandardEncoding's names of 32..126, but 'minus' at 45.
    const char *const names[kAsciiRows] = {
        "space", "exclam", "quotedbl", "numbersign", "dollar", "percent", "ampersand",
        "quoteright", "parenleft", "parenright", "asterisk", "plus", "comma", "minus", "period",
        "slash", "zero", "one", "two", "three", "four", "five", "six", "seven", "eight", "nine",
        "colon", "semicolon", "less", "equal", "greater", "question", "at", "A", "B", "C", "D",
        "E", "F", "G", "H", "I", "J", "K", "L", "M", "N", "O", "P", "Q", "R", "S", "T", "U", "V",
        "W", "X", "Y", "Z", "bracketleft", "backslash", "bracketright", "asciicircum",
        "underscore", "quoteleft", "a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k", "l",
        "m", "n", "o", "p", "q", "r", "s", "t", "u", "v", "w", "x", "y", "z", "braceleft", "bar",
        "braceright", "asciitilde"};
    for (int i = 0; i < kAsciiRows; i++) {
        EXPECT_STREQ(LatinCode[i].name, names[i]) << i;
        for (short c : LatinCode[i].code) EXPECT_EQ(c, 32 + i) << Row(i);
    }
}

TEST(LatinCodeFixed, RepairCodesAreTheCharsetsOwn) {
    // No-break space and soft hyphen take the glyphs space and hyphen in every
    // ISO set; the Greek quotes are 8859-7's.
    for (int c = 1; c < 8; c++) {
        EXPECT_EQ(LatinCode[kFirstRepair].code[c], IsoByte(kCharsets[c], "\u00a0")) << c;
        EXPECT_EQ(LatinCode[kFirstRepair + 1].code[c], IsoByte(kCharsets[c], "\u00ad")) << c;
    }
    EXPECT_EQ(LatinCode[kListed - 2].code[6], IsoByte("ISO-8859-7", "\u2018"));
    EXPECT_EQ(LatinCode[kListed - 1].code[6], IsoByte("ISO-8859-7", "\u2019"));
}

// --- StandardEncoding -----------------------------------------------------

TEST(LatinCodeStandard, CodesOfTheReferenceTable) {
    // The upper half of StandardEncoding that the table carries.
    const std::map<std::string, int> codes = {
        {"exclamdown", 161},     {"cent", 162},           {"sterling", 163},
        {"fraction", 164},       {"yen", 165},            {"florin", 166},
        {"section", 167},        {"currency", 168},       {"guillemotleft", 171},
        {"periodcentered", 180}, {"paragraph", 182},      {"guillemotright", 187},
        {"questiondown", 191},   {"grave", 193},          {"acute", 194},
        {"circumflex", 195},     {"tilde", 196},          {"macron", 197},
        {"breve", 198},          {"dotaccent", 199},      {"dieresis", 200},
        {"ring", 202},           {"cedilla", 203},        {"hungarumlaut", 205},
        {"ogonek", 206},         {"caron", 207},          {"emdash", 208},
        {"AE", 225},             {"ordfeminine", 227},    {"Lslash", 232},
        {"Oslash", 233},         {"ordmasculine", 235},   {"ae", 241},
        {"dotlessi", 245},       {"oslash", 249},         {"germandbls", 251},
        // and the rows of the lower half that are not ASCII
        {"quoteright", 39},      {"quoteleft", 96},       {"hyphen", 45},
        {"space", 32},
    };
    std::set<std::string> found;
    for (int i = 0; i < kListed; i++) {
        auto it = codes.find(LatinCode[i].name);
        if (it != codes.end()) {
            EXPECT_EQ(LatinCode[i].code[0], it->second) << Row(i);
            found.insert(it->first);
        } else if (i >= kAsciiRows) {
            EXPECT_EQ(LatinCode[i].code[0], -1) << Row(i);  // not in StandardEncoding
        }
    }
    EXPECT_EQ(found.size(), codes.size());
}

TEST(LatinCodeStandard, BlockFollowsCodeOrder) {
    // exclamdown .. germandbls are StandardEncoding's upper half in code order.
    for (int i = kAsciiRows + 1; i <= 130; i++)
        EXPECT_GT(LatinCode[i].code[0], LatinCode[i - 1].code[0]) << Row(i);
}

// --- ISO columns ----------------------------------------------------------

TEST(LatinCodeIso, ColumnsAgreeWithIconv) {
    std::set<std::string> checked;
    int comparisons = 0;
    for (int i = kAsciiRows; i < NUM_CODES; i++) {
        std::string name = LatinCode[i].name;
        // Rows the table fixes by hand are tested above.
        if (i >= kFirstRepair && name != "acute" && name != "macron") continue;
        auto it = kGlyphChars.find(name);
        if (it == kGlyphChars.end()) continue;
        for (int c = 1; c < 8; c++) {
            EXPECT_EQ(LatinCode[i].code[c], IsoByte(kCharsets[c], it->second))
                << Row(i) << " column " << kCharsets[c];
            comparisons++;
        }
        checked.insert(name);
    }
    for (const auto &[name, chars] : kGlyphChars) EXPECT_TRUE(checked.count(name)) << name;
    EXPECT_GE(comparisons, 7 * int(kGlyphChars.size()));
}

TEST(LatinCodeIso, EachCharsetLetterHasOneGlyph) {
    // Outside the repair rows no code of a column belongs to two names.
    for (int c = 0; c < 8; c++) {
        std::map<int, std::string> owner;
        for (int i = kAsciiRows; i < kFirstRepair; i++) {
            int code = LatinCode[i].code[c];
            if (code == -1) continue;
            auto [it, fresh] = owner.emplace(code, LatinCode[i].name);
            EXPECT_TRUE(fresh || it->second == LatinCode[i].name)
                << Row(i) << " column " << c << " also " << it->second;
        }
    }
}

TEST(LatinCodeIso, CyrillicAndGreekSetsAreCovered) {
    // Every code of 8859-5 from 0xA1 up has a row but the soft hyphen and the
    // numero sign; so has every code of 8859-7 from its tonos on, but the
    // dialytika tonos 0xB5 and the gap at 0xD2.
    std::set<int> cyr, greek;
    for (int i = kAsciiRows; i < kFirstRepair; i++) {
        if (LatinCode[i].code[5] >= 0) cyr.insert(LatinCode[i].code[5]);
        if (LatinCode[i].code[6] >= 0) greek.insert(LatinCode[i].code[6]);
    }
    for (int b = 0xA1; b <= 0xFF; b++) {
        if (b == 0xAD || b == 0xF0) continue;
        EXPECT_TRUE(cyr.count(b)) << "8859-5 " << b;
    }
    for (int b = 0xB4; b <= 0xFE; b++) {
        if (b == 0xB5 || b == 0xD2) continue;
        EXPECT_TRUE(greek.count(b)) << "8859-7 " << b;
    }
}

// Behind the list: the ISO 8859-2 letters it lacks, and the names fonts
// use where the list has older ones; 0x60 stays quoteleft, not grave.
TEST(LatinCodeExtra, Latin2LettersAndFontNames) {
    const std::map<std::string, std::string> extra = {{"Lcaron", "\u013d"}, {"lslash", "\u0142"}, {"lcaron", "\u013e"}};
    for (int i = kListed; i < NUM_CODES; i++) {
        const auto it = extra.find(LatinCode[i].name);
        ASSERT_NE(it, extra.end()) << LatinCode[i].name;
        EXPECT_EQ(LatinCode[i].code[2], IsoByte("ISO-8859-2", it->second.c_str())) << it->first;
    }
    std::map<std::string, std::string> glyph;
    for (int i = 0; i < NUM_CODES; i++) glyph[LatinCode[i].name] = LatinCode[i].glyph;
    EXPECT_EQ(glyph["Zdot"], "Zdotaccent");
    EXPECT_EQ(glyph["Odoubleacute"], "Ohungarumlaut");
    EXPECT_EQ(glyph["Hslash"], "Hbar");
    EXPECT_EQ(glyph["gtopcedilla"], "gcommaaccent");
    EXPECT_EQ(glyph["eacute"], "eacute");
    for (int i = 0; i < NUM_CODES; i++) {
        if (std::string(LatinCode[i].name) == "grave") {
            EXPECT_EQ(LatinCode[i].code[1], -1);
        }
    }
}
