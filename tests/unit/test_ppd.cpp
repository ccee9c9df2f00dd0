// PPD parser: statement forms, multi-line values, include names, the three
// queries, and a sweep over PPD files from the system's driver packages.
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include "config/ppd.h"
#include "core/qlint.h"

namespace fs = std::filesystem;

namespace {

struct Message {
    int index;
    std::string text;
};
std::vector<Message> gMessages;

int CaptureError(QlErrorRecord *record) {
    char buf[1024];
    QlGetErrorText(buf, sizeof buf);
    gMessages.push_back({record->index, buf});
    return 0;
}

std::string Str(const char *s) { return s ? s : "<null>"; }

using File = std::unique_ptr<FILE, int (*)(FILE *)>;

// A configuration directory with its "ppds" below it; errors are captured.
class PPD : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/qlppd.XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        base = tmpl;
        ppds = base + "/ppds";
        fs::create_directories(ppds);
        gMessages.clear();
        QlSetErrorHandler(CaptureError);
    }
    void TearDown() override {
        QlSetErrorHandler(nullptr);
        std::error_code ec;
        fs::remove_all(base, ec);
    }

    // Writes a file below "ppds" and opens it.
    File Open(const std::string &name, const std::string &text) {
        Write(name, text);
        return File(fopen((ppds + "/" + name).c_str(), "r"), fclose);
    }
    void Write(const std::string &name, const std::string &text) {
        fs::create_directories(fs::path(ppds + "/" + name).parent_path());
        std::ofstream(ppds + "/" + name, std::ios::binary) << text;
    }

    std::string Value(FILE *fp, const char *key) {
        char **v = PPDGetValues(1, fp, base.c_str(), key, nullptr);
        std::string s = v ? Str(v[0]) : "<no array>";
        freeDString(v, 1);
        return s;
    }

    std::vector<std::string> Texts() const {
        std::vector<std::string> t;
        for (auto &m : gMessages) t.push_back(m.text);
        return t;
    }

    std::string base, ppds;
};

// Parses one line through parseLine, with fp supplying continuation lines.
struct Parsed {
    std::string main, option, value;
    bool ok = false;
};
Parsed Parse(const std::string &line, FILE *fp = nullptr) {
    std::vector<char> buf(line.begin(), line.end());
    buf.push_back('\0');
    QlPPDLine *l = parseLine(fp, buf.data());
    Parsed p;
    if (l) {
        p = {Str(l->main), Str(l->option), Str(l->value), true};
        freeLine(l);
    }
    return p;
}

std::vector<std::string> Keywords(const QlPPDOptions *o) {
    std::vector<std::string> k;
    for (int i = 0; o && i < o->count; ++i) k.push_back(std::string(o->keywords[i]) + "=" + o->values[i]);
    return k;
}

std::string Decode(const char *value) {
    char *n = parseFName(value);
    std::string s = Str(n);
    free(n);
    return s;
}

}  // namespace

TEST_F(PPD, ParsesStatementForms) {
    for (const char *skip : {"*% comment: \"x\"\n", "\n", "PageSize A4: \"x\"\n", " *PageSize A4: \"x\"\n"})
        EXPECT_FALSE(Parse(skip).ok) << skip;
    EXPECT_TRUE(gMessages.empty());

    Parsed p = Parse("*PageSize Letter/US Letter: \"x\"\n");
    EXPECT_EQ(p.main + "|" + p.option + "|" + p.value, "PageSize|Letter|x");
    p = Parse("*DefaultPageSize: Letter/US Letter\r\n");
    EXPECT_EQ(p.main + "|" + p.option + "|" + p.value, "DefaultPageSize|<null>|Letter");
    p = Parse("*OpenUI *PageSize/Page Size: PickOne\n");
    EXPECT_EQ(p.main + "|" + p.option + "|" + p.value, "OpenUI|*PageSize|PickOne");
    // Quotes keep slashes; the translation behind the closing quote goes.
    p = Parse("*Resolution 300dpi/300 DPI: \"a/b c\"/ignored \"y\"\n");
    EXPECT_EQ(p.value, "a/b c");
    p = Parse("*ModelName:\t  Acme 42   \r\n");
    EXPECT_EQ(p.value, "Acme 42");
    p = Parse("*Foo Bar: \"\"\n");
    EXPECT_EQ(p.option + "|" + p.value, "Bar|<null>");
    p = Parse("*CloseUI\n");
    EXPECT_EQ(p.main + "|" + p.value, "CloseUI|<null>");
    p = Parse("*Key A/x:y: 1\n");  // a ":" in the translation ends the key part
    EXPECT_EQ(p.option + "|" + p.value, "A|y: 1");
    // Long keywords are kept to their 95-character work area.
    p = Parse("*" + std::string(150, 'M') + " " + std::string(150, 'o') + ": v\n");
    EXPECT_EQ(p.main, std::string(95, 'M'));
    EXPECT_EQ(p.option, std::string(95, 'o'));
    EXPECT_TRUE(gMessages.empty());

    EXPECT_FALSE(Parse("*: value\n").ok);
    ASSERT_EQ(gMessages.size(), 1u);
    EXPECT_EQ(gMessages[0].index, ePPDSyntax2);
    EXPECT_EQ(gMessages[0].text, "ePPDSyntax2: parseLine: PPD Syntax error: *: value\n");
}

TEST_F(PPD, JoinsMultiLineValues) {
    auto value = [&](const std::string &first, const std::string &rest) {
        File f = Open("ml", rest);
        return Parse(first, f.get()).value;
    };
    EXPECT_EQ(value("*Q: \"\n", "line1\nline2\"\n*End\n*X: 1\n"), "\nline1\nline2");
    EXPECT_EQ(value("*Q: \"abc  \r\n", "def\n\"\n*End\n"), "abc\ndef\n");
    // A quote at the end of a line does not close; only *End does.
    EXPECT_EQ(value("*Q: \"a\n", "b\"\n*X: \"y\"\n*End\n"), "a\nb\"\n*X: \"y");
    EXPECT_TRUE(gMessages.empty());

    EXPECT_EQ(value("*Q: \"a\n", "b\n*End\n"), "a\nb\n");
    EXPECT_EQ(value("*Q: \"a\n", "b\nc"), "a\nb\nc");
    EXPECT_EQ(Texts(), (std::vector<std::string>{
                           "ePPDSyntax3: parseLine: PPD Syntax error: no \" ends it: Q",
                           "ePPDSyntax3: parseLine: PPD Syntax error: no *End for mutiline strings: Q"}));

    // A value that is not closed swallows the statements behind it.
    File f = Open("swallow.ppd", "*A: \"x\n\"\n*B: \"b\"\n*End\n*C: c\n");
    char **v = PPDGetValues(1, f.get(), base.c_str(), "A", "B", "C", nullptr);
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(Str(v[0]) + "|" + Str(v[1]) + "|" + Str(v[2]), "x\n\"\n*B: \"b|<null>|c");
    freeDString(v, 3);
}

TEST_F(PPD, DecodesIncludeNames) {
    EXPECT_EQ(Decode("a<2F>b"), "a/b");
    EXPECT_EQ(Decode("a<2f"), "a/");
    EXPECT_EQ(Decode("<41 42>"), "<null>");  // three characters: odd
    EXPECT_EQ(Decode("x<>y<4142>"), "xyAB");
    EXPECT_EQ(Decode("<>"), "<null>");
    EXPECT_EQ(Decode(""), "<null>");
    EXPECT_EQ(Decode(std::string(400, 'n').c_str()), std::string(255, 'n'));
    EXPECT_EQ(Texts(), (std::vector<std::string>{
                           "ePPDSyntax3: parseFName: PPD Syntax error: odd number of hexical number:  41 42"}));
    gMessages.clear();

    Write("a/b", "*Found: yes\n");
    File f = Open("main.ppd", "*Include: \"<2>\"\n*Include: \"nosuch.ppd\"\n*Include: \"a<2F>b\"\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(Value(f.get(), "Found"), "yes");
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(Texts(), (std::vector<std::string>{
                           "ePPDSyntax3: parseFName: PPD Syntax error: odd number of hexical number:  2",
                           "ePPDSyntax3: _PPDGetValues: PPD Syntax error: invalid file name: nosuch.ppd"}));
    EXPECT_NE(err.find("nosuch.ppd: No such file or directory"), std::string::npos) << err;
    // A quoted value keeps its brackets: hex is decoded only in names.
    File g = Open("hex.ppd", "*Text: \"<2F>\"\n");
    EXPECT_EQ(Value(g.get(), "Text"), "<2F>");
}

TEST_F(PPD, ValueSearchSkipsUIBlocks) {
    File f = Open("v.ppd",
                  "*PPD-Adobe: \"4.3\"\n"
                  "*OpenUI *InputSlot: PickOne\n"
                  "*DefaultInputSlot: Upper\n"
                  "*InputSlot Upper: \"u\"\n"
                  "*CloseUI: *InputSlot\n"
                  "*JCLOpenUI *JCLRes: PickOne\n"
                  "*DefaultJCLRes: 600\n"
                  "*JCLCloseUI: *JCLRes\n"
                  "*Empty: \"\"\n"
                  "*Empty: second\n"
                  "*PageSizeNote: first\n"
                  "*PageSize: second\n"
                  "*ModelName: \"Acme\"\n"
                  "*ModelName: \"Other\"\n");
    char **v = PPDGetValues(1, f.get(), nullptr, "InputSlot", "DefaultJCLRes", "Empty", "PageSize",
                            "ModelName", "Missing", nullptr);
    ASSERT_NE(v, nullptr);
    std::vector<std::string> got;
    for (int i = 0; i < 6; ++i) got.push_back(Str(v[i]));
    EXPECT_EQ(got, (std::vector<std::string>{"<null>", "600", "second", "first", "Acme", "<null>"}));
    freeDString(v, 6);
    // Every query rewinds: asking again gives the same answer.
    EXPECT_EQ(Value(f.get(), "ModelName"), "Acme");
    EXPECT_EQ(Value(f.get(), "ModelName"), "Acme");

    // The repeated-statement search reads the blocks as ordinary lines.
    QlPPDOptions *m = PPDGetMultiples(f.get(), nullptr, "InputSlot");
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(Keywords(m), (std::vector<std::string>{"Upper=u"}));
    EXPECT_EQ(Str(m->defaultValue), "Upper");
    _QlFreeOptions(m);

    EXPECT_EQ(PPDGetValues(1, nullptr, nullptr, "A", nullptr), nullptr);
    EXPECT_EQ(PPDGetValues(1, f.get(), nullptr, nullptr), nullptr);
    EXPECT_TRUE(gMessages.empty());
}

TEST_F(PPD, ValueSearchThroughIncludes) {
    Write("inc.ppd", "*A: ina\n*B: inb\n");
    File f = Open("outer.ppd", "*B: outb\n*Include: \"inc.ppd\"\n*C: c\n");
    // A from the inclusion counts there and again here, which ends the
    // search of two keys before C.
    char **v = PPDGetValues(1, f.get(), base.c_str(), "A", "C", nullptr);
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(Str(v[0]) + "|" + Str(v[1]), "ina|<null>");
    freeDString(v, 2);
    // The outer B stands first.
    v = PPDGetValues(1, f.get(), base.c_str(), "A", "B", "C", "D", "E", nullptr);
    EXPECT_EQ(Str(v[0]) + "|" + Str(v[1]) + "|" + Str(v[2]), "ina|outb|c");
    freeDString(v, 5);
    EXPECT_TRUE(gMessages.empty());
}

TEST_F(PPD, ReadsOptionGroups) {
    File f = Open("o.ppd",
                  "*OpenUI *PageSize/Media Size: PickOne\n"
                  "*OrderDependency: 20 AnySetup *PageSize Letter\n"
                  "*OrderDependency: 30 AnySetup *PageSize\n"
                  "*DefaultPageSize: Letter\n"
                  "*PageSize Letter/US Letter: \"<</PageSize[612 792]>>setpagedevice\"\n"
                  "*PageSize A4: \"\"\n"
                  "*PageSizeX Big: \"big\"\n"
                  "*PageSize: \"no option\"\n"
                  "*OrderDependency: 10 Prolog *PageSize\n"
                  "*?PageSize: \"\n  query\n\"\n*End\n"
                  "*DefaultPageSize: A4\n"
                  "*CloseUI: *PageSize\n"
                  "*OpenUI *Duplex: Boolean\n"
                  "*OrderDependency: 50 AnySetup *Duplex True\n"
                  "*Duplex True: \"t\"\n"
                  "*CloseUI: *Duplex\n"
                  "*OpenUI *Finish: PickManyMore\n*CloseUI: *Finish\n"
                  "*OpenUI *Odd: Custom\n*CloseUI: *Odd\n");
    QlPPDOptions **o = PPDGetOptions(1, f.get(), base.c_str(), "PageSize", "Duplex", "Finish", "Odd", "Tray", nullptr);
    ASSERT_NE(o, nullptr);
    QlPPDOptions *ps = o[0];
    ASSERT_NE(ps, nullptr);
    EXPECT_EQ(ps->uiType, 1);
    EXPECT_EQ(Str(ps->defaultValue), "A4");
    EXPECT_EQ(Str(ps->query), "\n  query\n");
    EXPECT_EQ(Keywords(ps), (std::vector<std::string>{"Letter=<</PageSize[612 792]>>setpagedevice", "A4=", "Big=big"}));
    EXPECT_EQ(ps->orderSet, 1);
    ASSERT_NE(ps->order, nullptr);
    EXPECT_EQ(*ps->order, 30.0);
    ASSERT_NE(ps->section, nullptr);
    EXPECT_EQ(Str(ps->section[0]), "AnySetup");
    EXPECT_EQ(Str(PPDGetOptionValue(ps, "A4")), "");
    EXPECT_EQ(PPDGetOptionValue(ps, "Let"), ps->values[0]);

    ASSERT_NE(o[1], nullptr);
    EXPECT_EQ(o[1]->uiType, 3);
    EXPECT_EQ(o[1]->orderSet, 0);
    EXPECT_EQ(o[1]->order, nullptr);
    EXPECT_EQ(o[1]->section, nullptr);
    ASSERT_NE(o[2], nullptr);
    EXPECT_EQ(o[2]->uiType, 2);
    EXPECT_EQ(o[2]->count, 0);
    EXPECT_EQ(PPDGetOptionValue(o[2], "x"), nullptr);
    ASSERT_NE(o[3], nullptr);
    EXPECT_EQ(o[3]->uiType, 0);
    EXPECT_EQ(o[4], nullptr);
    EXPECT_TRUE(gMessages.empty());

    // Entries added by hand land at the end of a new record.
    QlPPDOptions *grown = _AddStringToOptionList(o[1], "False", "f");
    o[1] = grown;
    EXPECT_EQ(Keywords(grown), (std::vector<std::string>{"True=t", "False=f"}));
    EXPECT_EQ(grown->uiType, 3);
    EXPECT_EQ(_AddStringToOptionList(nullptr, "a", "b"), nullptr);
    freeDOptions(o, 5);
}

TEST_F(PPD, UnclosedGroupAndIncludedGroups) {
    Write("inc.ppd", "*OpenUI *Tray: PickOne\n*DefaultTray: T2\n*Tray T2: \"2\"\n*CloseUI: *Tray\n"
                     "*OpenUI *Color: Boolean\n*Color True: \"in\"\n*CloseUI: *Color\n");
    File f = Open("g.ppd",
                  "*OpenUI *Color: Boolean\n*Color False: \"out\"\n*CloseUI: *Color\n"
                  "*Include: \"inc.ppd\"\n"
                  "*OpenUI *Resolution: PickOne\n*Resolution 300: \"r\"\n");
    QlPPDOptions **o = PPDGetOptions(1, f.get(), base.c_str(), "Color", "Tray", "Resolution", "Later", "Other", nullptr);
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(Keywords(o[0]), (std::vector<std::string>{"False=out"}));
    ASSERT_NE(o[1], nullptr);
    EXPECT_EQ(Keywords(o[1]), (std::vector<std::string>{"T2=2"}));
    EXPECT_EQ(Str(o[1]->defaultValue), "T2");
    ASSERT_NE(o[2], nullptr);
    EXPECT_EQ(Keywords(o[2]), (std::vector<std::string>{"300=r"}));
    EXPECT_EQ(o[3], nullptr);
    EXPECT_EQ(o[4], nullptr);
    EXPECT_EQ(Texts(), (std::vector<std::string>{"ePPDSyntax3: getOptions: PPD Syntax error: no CloseUI for  Resolution"}));
    freeDOptions(o, 5);
}

TEST_F(PPD, CollectsRepeatedStatements) {
    Write("inc.ppd", "*DefaultImageableArea: Inner\n*ImageableArea B5: \"5\"\n*?ImageableArea: \"iq\"\n");
    File f = Open("m.ppd",
                  "*ImageableArea Letter/US: \"1 2 3 4\"\n"
                  "*OpenUI *PageSize: PickOne\n*ImageableArea Legal: \"\"\n*CloseUI: *PageSize\n"
                  "*Include: \"inc.ppd\"\n"
                  "*ImageableArea: \"no option\"\n"
                  "*DefaultImageableArea: Letter\n"
                  "*ImageableArea A4: \"a4\"\n");
    QlPPDOptions *m = PPDGetMultiples(f.get(), base.c_str(), "ImageableArea");
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(Keywords(m), (std::vector<std::string>{"Letter=1 2 3 4", "Legal=", "B5=5", "A4=a4"}));
    EXPECT_EQ(Str(m->defaultValue), "Inner");
    EXPECT_EQ(Str(m->query), "iq");
    EXPECT_EQ(m->uiType + m->orderSet, 0);
    char *def = m->defaultValue, *query = m->query;
    freeMultiple(m);  // leaves the two strings to the caller
    free(def);
    free(query);

    EXPECT_EQ(PPDGetMultiples(f.get(), base.c_str(), "PaperDimension"), nullptr);
    File d = Open("d.ppd", "*DefaultPaperDimension: A4\n");
    m = PPDGetMultiples(d.get(), base.c_str(), "PaperDimension");
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->count, 0);
    EXPECT_EQ(Str(m->defaultValue), "A4");
    _QlFreeOptions(m);
    EXPECT_TRUE(gMessages.empty());
}

TEST_F(PPD, SelfIncludeEnds) {
    File f = Open("self.ppd", "*Include: \"self.ppd\"\n*OpenUI *K: PickOne\n*K a: \"1\"\n*CloseUI: *K\n"
                              "*Include: \"SELF.PPD\"\n*V: v\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(Value(f.get(), "V"), "v");
    QlPPDOptions **o = PPDGetOptions(1, f.get(), base.c_str(), "K", nullptr);
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(Keywords(o[0]), (std::vector<std::string>{"a=1"}));
    freeDOptions(o, 1);
    QlPPDOptions *m = PPDGetMultiples(f.get(), base.c_str(), "K");
    ASSERT_NE(m, nullptr);
    EXPECT_GT(m->count, 1);
    _QlFreeOptions(m);
    testing::internal::GetCapturedStderr();
    ASSERT_FALSE(gMessages.empty());
    for (auto &m : gMessages) EXPECT_NE(m.text.find("invalid file name: "), std::string::npos) << m.text;
}

TEST_F(PPD, LongLinesArriveInTwoReads) {
    std::string fill(300, 'x');
    File f = Open("long.ppd",
                  "*Long: " + fill + "\n" +                                    // cut at 255 characters
                  "*Fits: " + std::string(248, 'y') + "\n" +                   // 255 characters and newline
                  "*Split: \"" + std::string(250, 'z') + "\"\n*End\n" +      // quote behind the cut
                  "*OpenUI *Opt: PickOne\n"
                  "*Opt a: \"" + std::string(244, 'a') + "\"\n" +  // 254 characters and newline
                  "*Opt b: " + std::string(250, 'b') + "*Opt c: c\n" +    // remainder is not a statement
                  "*CloseUI: *Opt\n");
    char **v = PPDGetValues(1, f.get(), nullptr, "Long", "Fits", "Split", nullptr);
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(Str(v[0]), std::string(248, 'x'));
    EXPECT_EQ(Str(v[1]), std::string(248, 'y'));
    EXPECT_EQ(Str(v[2]), std::string(246, 'z') + "\n" + std::string(4, 'z'));
    freeDString(v, 3);
    QlPPDOptions **o = PPDGetOptions(1, f.get(), nullptr, "Opt", nullptr);
    ASSERT_NE(o, nullptr);
    ASSERT_NE(o[0], nullptr);
    ASSERT_EQ(o[0]->count, 2);
    EXPECT_EQ(Str(o[0]->values[0]), std::string(244, 'a'));
    EXPECT_EQ(Str(o[0]->values[1]), std::string(246, 'b'));
    freeDOptions(o, 1);
}

TEST_F(PPD, RestoresWorkingDirectory) {
    // A working directory deeper than a 256-byte buffer must come back too.
    std::string deep = base + "/deep";
    while (deep.size() < 400) deep += "/ddddddddddddddddddddddddddddd";
    fs::create_directories(deep);
    Write("w.ppd", "*Include: \"w2.ppd\"\n");
    Write("w2.ppd", "*W: found\n");
    auto saved = fs::current_path();
    fs::current_path(deep);
    File f(fopen((ppds + "/w.ppd").c_str(), "r"), fclose);
    EXPECT_EQ(Value(f.get(), "W"), "found");
    EXPECT_EQ(fs::current_path(), fs::path(deep));
    QlPPDOptions *m = PPDGetMultiples(f.get(), base.c_str(), "W");
    EXPECT_EQ(fs::current_path(), fs::path(deep));
    _QlFreeOptions(m);
    testing::internal::CaptureStderr();
    char **v = PPDGetValues(1, f.get(), (base + "/missing").c_str(), "W", nullptr);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(fs::current_path(), fs::path(deep));
    EXPECT_EQ(Str(v[0]), "<null>");  // w2.ppd is not looked for here
    freeDString(v, 1);
    fs::current_path(saved);
}

TEST_F(PPD, OpensInEitherCase) {
    Write("Dir/lower.ps", "x");
    std::string upper = ppds + "/Dir/LOWER.PS";
    FILE *f = _QlfopenTryBothCases(upper.c_str(), "r");
    EXPECT_NE(f, nullptr);
    if (f) fclose(f);
    EXPECT_EQ(_QlfopenTryBothCases((ppds + "/DIR/lower.ps").c_str(), "r"), nullptr);
    EXPECT_EQ(_QlaccessTryBothCases(upper.c_str(), R_OK), 0);
    EXPECT_NE(_QlaccessTryBothCases((ppds + "/Dir/none.ps").c_str(), R_OK), 0);
}

// PPD files of the printer driver packages: every page-size group comes
// back with a default, and the imageable areas and paper dimensions match.
TEST_F(PPD, ReadsInstalledPPDs) {
    std::vector<std::string> files;
    // Files whose page sizes stand in an *OpenUI group (not *JCLOpenUI),
    // that state imageable areas at all, and that close every multi-line
    // value with *End (a value closed by its quote alone runs on).
    auto keepIfPPD = [&](const std::string &path) {
        std::ifstream in(path, std::ios::binary);
        std::string text((std::istreambuf_iterator<char>(in)), {});
        if (!text.starts_with("*PPD-Adobe") || text.find("\n*OpenUI *PageSize") == std::string::npos ||
            text.find("\n*ImageableArea ") == std::string::npos)
            return;
        std::istringstream lines(text);
        bool open = false;
        for (std::string l; std::getline(lines, l);) {
            if (open) {
                if (l.starts_with("*End")) open = false;
                else if (l.starts_with("*")) return;
                continue;
            }
            size_t q = l.find(": \"");
            if (l.starts_with("*") && !l.starts_with("*%") && l.size() < 250 && q != std::string::npos)
                open = l.find('"', q + 3) == std::string::npos;
        }
        files.push_back(path);
    };
    std::error_code ec;
    if (fs::is_directory("/usr/share/ppd", ec)) {
        for (auto &e : fs::recursive_directory_iterator("/usr/share/ppd", ec)) {
            if (!e.is_regular_file() || e.file_size() < 100) continue;
            std::string out = ppds + "/share" + std::to_string(files.size()) + ".ppd";
            std::string cmd = "gzip -dcf '" + e.path().string() + "' > '" + out + "' 2>/dev/null";
            if (std::system(cmd.c_str()) == 0) keepIfPPD(out);
            if (files.size() >= 12) break;
        }
    }
    // The driver archive of openprinting-ppds hands its files out by name;
    // take two of every maker, two extractions at a time.
    const char *archive = "/usr/lib/cups/driver/openprinting-ppds";
    if (access(archive, X_OK) == 0) {
        std::map<std::string, std::vector<std::string>> byMaker;
        if (FILE *p = popen((std::string(archive) + " list 2>/dev/null").c_str(), "r")) {
            char line[1024];
            while (fgets(line, sizeof line, p)) {
                const char *end = line[0] == '"' ? std::strchr(line + 1, '"') : nullptr;
                if (!end) continue;
                std::string name(line + 1, static_cast<size_t>(end - line - 1));
                size_t at = name.find("/openprinting/");
                if (at == std::string::npos || name.find_first_of("'\\ ") != std::string::npos) continue;
                byMaker[name.substr(at + 14, name.find('/', at + 14) - at - 14)].push_back(name);
            }
            pclose(p);
        }
        std::string dir = base + "/archive", list = base + "/names";
        fs::create_directories(dir);
        {
            std::ofstream out(list);
            for (auto &[maker, names] : byMaker) out << names.front() << "\n" << names[names.size() / 2] << "\n";
        }
        std::string cmd = "xargs -P 2 -n 1 sh -c '\"$0\" cat \"$1\" > \"" + dir + "/$(basename \"$1\")\"' " +
                          archive + " < " + list + " 2>/dev/null";
        if (std::system(cmd.c_str()) == 0) {
            for (auto &e : fs::directory_iterator(dir)) keepIfPPD(e.path().string());
        }
    }
    if (files.size() < 5) GTEST_SKIP() << "no PPD files installed (openprinting-ppds)";

    int checked = 0;
    for (const auto &path : files) {
        SCOPED_TRACE(path);
        File f(fopen(path.c_str(), "r"), fclose);
        ASSERT_NE(f, nullptr);
        char **v = PPDGetValues(1, f.get(), nullptr, "ModelName", "NickName", nullptr);
        ASSERT_NE(v, nullptr);
        EXPECT_NE(v[0], nullptr);
        EXPECT_NE(v[1], nullptr);
        freeDString(v, 2);

        QlPPDOptions **o = PPDGetOptions(1, f.get(), nullptr, "PageSize", nullptr);
        QlPPDOptions *area = PPDGetMultiples(f.get(), nullptr, "ImageableArea");
        QlPPDOptions *dim = PPDGetMultiples(f.get(), nullptr, "PaperDimension");
        if (!o || !o[0] || !area || !dim) {
            ADD_FAILURE() << "missing group";
            freeDOptions(o, 1);
            _QlFreeOptions(area);
            _QlFreeOptions(dim);
            continue;
        }
        EXPECT_EQ(o[0]->uiType, 1);
        EXPECT_GT(o[0]->count, 0);
        EXPECT_NE(o[0]->defaultValue, nullptr);
        EXPECT_NE(area->defaultValue, nullptr);
        EXPECT_NE(dim->defaultValue, nullptr);
        EXPECT_EQ(area->count, dim->count);
        std::set<std::string> areaNames(area->keywords, area->keywords + area->count);
        for (int i = 0; i < dim->count; ++i) {
            EXPECT_TRUE(areaNames.count(dim->keywords[i])) << dim->keywords[i];
            EXPECT_NE(std::strchr(dim->values[i], ' '), nullptr) << dim->values[i];
        }
        for (int i = 0; i < o[0]->count; ++i) {
            EXPECT_TRUE(areaNames.count(o[0]->keywords[i])) << o[0]->keywords[i];
        }
        freeDOptions(o, 1);
        _QlFreeOptions(area);
        _QlFreeOptions(dim);
        ++checked;
    }
    EXPECT_GE(checked, 5);
}
