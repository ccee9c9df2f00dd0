// PPD parser: statement forms, multi-line values, include names and the
// three queries.  Real files are read by the corpus test.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#include "config/ppd.h"
#include "core/qlint.h"

namespace fs = std::filesystem;

namespace {

std::vector<std::string> gMessages;

int CaptureError(QlErrorRecord *) {
    char buf[1024];
    QlGetErrorText(buf, sizeof buf);
    gMessages.push_back(buf);
    return 0;
}

std::string Str(const char *s) { return s ? s : "-"; }

using File = std::unique_ptr<FILE, int (*)(FILE *)>;

// "main|option|value" of one statement, or "none".
std::string Parse(const std::string &line, FILE *fp = nullptr) {
    std::string buf = line;
    QlPPDLine *l = parseLine(fp, buf.data());
    if (!l) return "none";
    std::string s = Str(l->main) + "|" + Str(l->option) + "|" + Str(l->value);
    freeLine(l);
    return s;
}

// One option record on one line.
std::string Sum(const QlPPDOptions *o) {
    if (!o) return "none";
    std::string s = std::to_string(o->uiType) + " def=" + Str(o->defaultValue) + " q=" + Str(o->query);
    if (o->orderSet == 1) s += " order=" + std::to_string(*o->order) + "/" + o->section[0];
    if (o->orderSet != 1 && (o->order || o->section)) s += " stray-order";
    for (int i = 0; i < o->count; ++i) s += std::string(" ") + o->keywords[i] + "=" + o->values[i];
    return s;
}

std::string Decode(const char *value) {
    char *n = parseFName(value);
    std::string s = Str(n);
    free(n);
    return s;
}

// A configuration directory with "ppds" below it; messages are captured.
class PPD : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/qlppd.XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        base = tmpl;
        fs::create_directories(base + "/ppds");
        gMessages.clear();
        QlSetErrorHandler(CaptureError);
    }
    void TearDown() override {
        QlSetErrorHandler(nullptr);
        std::error_code ec;
        fs::remove_all(base, ec);
    }
    void Write(const std::string &name, const std::string &text) {
        std::ofstream(base + "/ppds/" + name, std::ios::binary) << text;
    }
    File Open(const std::string &name, const std::string &text) {
        Write(name, text);
        return File(fopen((base + "/ppds/" + name).c_str(), "r"), fclose);
    }
    // Values of up to five keys, joined by "|".
    std::string Values(FILE *fp, std::initializer_list<const char *> keys, const char *dir = "") {
        const char *k[5] = {};
        std::copy(keys.begin(), keys.end(), k);
        char **v = PPDGetValues(1, fp, *dir ? dir : base.c_str(), k[0], k[1], k[2], k[3], k[4], nullptr);
        std::string s;
        for (size_t i = 0; v && i < keys.size(); ++i) s += (i ? "|" : "") + Str(v[i]);
        freeDString(v, static_cast<int>(keys.size()));
        return s;
    }
    std::vector<std::string> Options(FILE *fp, std::initializer_list<const char *> keys) {
        const char *k[5] = {};
        std::copy(keys.begin(), keys.end(), k);
        QlPPDOptions **o = PPDGetOptions(1, fp, base.c_str(), k[0], k[1], k[2], k[3], k[4], nullptr);
        std::vector<std::string> s;
        for (size_t i = 0; o && i < keys.size(); ++i) s.push_back(Sum(o[i]));
        freeDOptions(o, static_cast<int>(keys.size()));
        return s;
    }
    std::string Multiples(FILE *fp, const char *key) {
        QlPPDOptions *m = PPDGetMultiples(fp, base.c_str(), key);
        std::string s = Sum(m);
        _QlFreeOptions(m);
        return s;
    }

    std::string base;
};

using Strings = std::vector<std::string>;

}  // namespace

TEST_F(PPD, ParsesStatements) {
    const std::pair<std::string, std::string> cases[] = {
        {"*% comment: \"x\"\n", "none"},
        {"\n", "none"},
        {"PageSize A4: \"x\"\n", "none"},
        {"*PageSize Letter/US Letter: \"x\"\n", "PageSize|Letter|x"},
        {"*DefaultPageSize: Letter/US Letter\r\n", "DefaultPageSize|-|Letter"},
        {"*OpenUI *PageSize/Page Size: PickOne\n", "OpenUI|*PageSize|PickOne"},
        {"*Resolution 300dpi/300 DPI: \"a/b c\"/ignored \"y\"\n", "Resolution|300dpi|a/b c"},
        {"*ModelName:\t  Acme 42   \r\n", "ModelName|-|Acme 42"},
        {"*Foo Bar: \"\"\n", "Foo|Bar|-"},
        {"*CloseUI\n", "CloseUI|-|-"},
        {"*Key A/x:y: 1\n", "Key|A|y: 1"},  // a ":" in a translation ends the key part
        {"*" + std::string(150, 'M') + " " + std::string(150, 'o') + ": v\n",
         std::string(95, 'M') + "|" + std::string(95, 'o') + "|v"},
    };
    for (auto &[line, want] : cases) EXPECT_EQ(Parse(line), want) << line;
    EXPECT_TRUE(gMessages.empty());
    EXPECT_EQ(Parse("*: value\n"), "none");
    EXPECT_EQ(gMessages, Strings{"ePPDSyntax2: parseLine: PPD Syntax error: *: value\n"});
}

TEST_F(PPD, JoinsMultiLineValues) {
    auto value = [&](const std::string &first, const std::string &rest) {
        File f = Open("ml", rest);
        return Parse(first, f.get());
    };
    EXPECT_EQ(value("*Q: \"\n", "line1\nline2\"\n*End\n*X: 1\n"), "Q|-|\nline1\nline2");
    EXPECT_EQ(value("*Q: \"abc  \r\n", "def\n\"\n*End\n"), "Q|-|abc\ndef\n");
    // A quote at the end of a line does not close; only *End does.
    EXPECT_EQ(value("*Q: \"a\n", "b\"\n*X: \"y\"\n*End\n"), "Q|-|a\nb\"\n*X: \"y");
    EXPECT_TRUE(gMessages.empty());
    EXPECT_EQ(value("*Q: \"a\n", "b\n*End\n"), "Q|-|a\nb\n");
    EXPECT_EQ(value("*Q: \"a\n", "b\nc"), "Q|-|a\nb\nc");
    EXPECT_EQ(gMessages, (Strings{"ePPDSyntax3: parseLine: PPD Syntax error: no \" ends it: Q",
                                  "ePPDSyntax3: parseLine: PPD Syntax error: no *End for mutiline strings: Q"}));

    File f = Open("swallow.ppd", "*A: \"x\n\"\n*B: \"b\"\n*End\n*C: c\n");
    EXPECT_EQ(Values(f.get(), {"A", "B", "C"}), "x\n\"\n*B: \"b|-|c");
}

TEST_F(PPD, DecodesIncludeNames) {
    EXPECT_EQ(Decode("a<2F>b"), "a/b");
    EXPECT_EQ(Decode("a<2f"), "a/");
    EXPECT_EQ(Decode("x<>y<4142>"), "xyAB");
    EXPECT_EQ(Decode("<>"), "-");
    EXPECT_EQ(Decode(std::string(400, 'n').c_str()), std::string(255, 'n'));
    EXPECT_TRUE(gMessages.empty());
    EXPECT_EQ(Decode("<41 42>"), "-");
    EXPECT_EQ(gMessages, Strings{"ePPDSyntax3: parseFName: PPD Syntax error: odd number of hexical number:  41 42"});
    gMessages.clear();

    fs::create_directories(base + "/ppds/a");
    Write("a/b", "*Found: yes\n");
    File f = Open("main.ppd", "*Text: \"<2F>\"\n*Include: \"<2>\"\n*Include: \"nosuch.ppd\"\n*Include: \"a<2F>b\"\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(Values(f.get(), {"Found", "Text"}), "yes|<2F>");  // hex only in names
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(gMessages, (Strings{"ePPDSyntax3: parseFName: PPD Syntax error: odd number of hexical number:  2",
                                  "ePPDSyntax3: _PPDGetValues: PPD Syntax error: invalid file name: nosuch.ppd"}));
    EXPECT_NE(err.find("nosuch.ppd: No such file or directory"), std::string::npos) << err;
}

TEST_F(PPD, ValueSearch) {
    File f = Open("v.ppd",
                  "*OpenUI *InputSlot: PickOne\n*DefaultInputSlot: Upper\n*InputSlot Upper: \"u\"\n"
                  "*CloseUI: *InputSlot\n"
                  "*JCLOpenUI *JCLRes: PickOne\n*DefaultJCLRes: 600\n*JCLCloseUI: *JCLRes\n"
                  "*Empty: \"\"\n*Empty: second\n"
                  "*PageSizeNote: first\n*PageSize: second\n");
    // Blocks hide their statements from this search, *JCLOpenUI does not;
    // keys match as prefixes and the first statement with a value wins.
    EXPECT_EQ(Values(f.get(), {"InputSlot", "DefaultJCLRes", "Empty", "PageSize"}), "-|600|second|first");
    EXPECT_EQ(Values(f.get(), {"DefaultInputSlot", "Missing"}), "-|-");
    EXPECT_EQ(Multiples(f.get(), "InputSlot"), "0 def=Upper q=- Upper=u");
    EXPECT_EQ(PPDGetValues(1, nullptr, nullptr, "A", nullptr), nullptr);
    EXPECT_EQ(PPDGetValues(1, f.get(), nullptr, nullptr), nullptr);

    Write("inc.ppd", "*A: ina\n*B: inb\n");
    File g = Open("outer.ppd", "*B: outb\n*Include: \"inc.ppd\"\n*C: c\n");
    // A from the inclusion counts there and again here, which ends a search
    // for two keys before C; with more keys the count runs past and on.
    EXPECT_EQ(Values(g.get(), {"A", "C"}), "ina|-");
    EXPECT_EQ(Values(g.get(), {"A", "B", "C", "D", "E"}), "ina|outb|c|-|-");
    EXPECT_EQ(Values(g.get(), {"A", "B", "C", "D", "E"}), "ina|outb|c|-|-");  // every query rewinds
    EXPECT_TRUE(gMessages.empty());
}

TEST_F(PPD, ReadsOptionGroups) {
    Write("inc.ppd", "*OpenUI *Tray: PickOne\n*DefaultTray: T2\n*Tray T2: \"2\"\n*CloseUI: *Tray\n"
                     "*OpenUI *Duplex: Boolean\n*Duplex In: \"in\"\n*CloseUI: *Duplex\n");
    File f = Open("o.ppd",
                  "*OpenUI *PageSize/Media Size: PickOne\n"
                  "*OrderDependency: 20 AnySetup *PageSize Letter\n"
                  "*OrderDependency: 30 AnySetup *PageSize\n"
                  "*DefaultPageSize: Letter\n"
                  "*PageSize Letter/US Letter: \"<</PageSize[612 792]>>setpagedevice\"\n"
                  "*PageSize A4: \"\"\n*PageSizeX Big: \"big\"\n*PageSize: \"no option\"\n"
                  "*OrderDependency: 10 Prolog *PageSize\n"
                  "*?PageSize: \"\n  query\n\"\n*End\n"
                  "*DefaultPageSize: A4\n"
                  "*CloseUI: *PageSize\n"
                  "*OpenUI *Duplex: Boolean\n*OrderDependency: 50 AnySetup *Duplex True\n*Duplex True: \"t\"\n"
                  "*CloseUI: *Duplex\n"
                  "*OpenUI *Finish: PickManyMore\n*CloseUI: *Finish\n"
                  "*Include: \"inc.ppd\"\n"
                  "*OpenUI *Res: Custom\n*Res 300: \"r\"\n"
                  "*OpenUI *Later: PickOne\n*Later x: \"1\"\n");
    EXPECT_EQ(Options(f.get(), {"PageSize", "Duplex", "Finish", "Tray", "Res"}),
              (Strings{"1 def=A4 q=\n  query\n order=30.000000/AnySetup Letter=<</PageSize[612 792]>>setpagedevice "
                       "A4= Big=big",
                       "3 def=- q=- True=t", "2 def=- q=-", "1 def=T2 q=- T2=2", "0 def=- q=- 300=r"}));
    EXPECT_EQ(gMessages, Strings{"ePPDSyntax3: getOptions: PPD Syntax error: no CloseUI for  Res"});
    // The group left open swallowed the rest of the file, *Later included.
    EXPECT_EQ(Options(f.get(), {"Res", "Later"}), (Strings{"0 def=- q=- 300=r", "none"}));

    QlPPDOptions **o = PPDGetOptions(1, f.get(), nullptr, "PageSize", "Finish", nullptr);
    ASSERT_TRUE(o && o[0] && o[1]);
    EXPECT_EQ(PPDGetOptionValue(o[0], "Let"), o[0]->values[0]);
    EXPECT_EQ(Str(PPDGetOptionValue(o[0], "A4")), "");
    EXPECT_EQ(PPDGetOptionValue(o[1], "A4"), nullptr);
    o[1] = _AddStringToOptionList(o[1], "Staple", "s");
    o[1] = _AddStringToOptionList(o[1], "Punch", nullptr);
    EXPECT_EQ(o[1]->count, 2);
    EXPECT_EQ(Str(o[1]->keywords[0]) + Str(o[1]->values[0]) + Str(o[1]->keywords[1]), "StaplesPunch");
    EXPECT_EQ(_AddStringToOptionList(nullptr, "a", "b"), nullptr);
    freeDOptions(o, 2);
}

TEST_F(PPD, CollectsRepeatedStatements) {
    Write("inc.ppd", "*DefaultImageableArea: Inner\n*ImageableArea B5: \"5\"\n*?ImageableArea: \"iq\"\n");
    File f = Open("m.ppd",
                  "*ImageableArea Letter/US: \"1 2 3 4\"\n"
                  "*OpenUI *PageSize: PickOne\n*ImageableArea Legal: \"\"\n*CloseUI: *PageSize\n"
                  "*Include: \"inc.ppd\"\n*ImageableArea: \"no option\"\n"
                  "*DefaultImageableArea: Letter\n*ImageableArea A4: \"a4\"\n"
                  "*DefaultPaperDimension: A4\n");
    EXPECT_EQ(Multiples(f.get(), "ImageableArea"), "0 def=Inner q=iq Letter=1 2 3 4 Legal= B5=5 A4=a4");
    EXPECT_EQ(Multiples(f.get(), "PaperDimension"), "0 def=A4 q=-");
    EXPECT_EQ(Multiples(f.get(), "PaperSize"), "none");
    QlPPDOptions *m = PPDGetMultiples(f.get(), base.c_str(), "ImageableArea");
    ASSERT_NE(m, nullptr);
    char *def = m->defaultValue, *query = m->query;
    freeMultiple(m);  // leaves these two to the caller
    EXPECT_EQ(Str(def) + Str(query), "Inneriq");
    free(def);
    free(query);
    EXPECT_TRUE(gMessages.empty());
}

TEST_F(PPD, BoundsLoopsLinesAndDirectories) {
    // Including itself twice over: the search ends, reporting the opens it refuses.
    File self = Open("self.ppd", "*Include: \"self.ppd\"\n*OpenUI *K: PickOne\n*K a: \"1\"\n*CloseUI: *K\n"
                                 "*Include: \"SELF.PPD\"\n*V: v\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(Values(self.get(), {"V"}), "v");
    EXPECT_EQ(Options(self.get(), {"K"}), Strings{"1 def=- q=- a=1"});
    EXPECT_NE(Multiples(self.get(), "K").find("a=1 a=1"), std::string::npos);
    testing::internal::GetCapturedStderr();
    ASSERT_FALSE(gMessages.empty());
    for (auto &m : gMessages) EXPECT_NE(m.find("invalid file name: "), std::string::npos) << m;

    // Lines longer than a read arrive in two; the remainder is no statement.
    File f = Open("long.ppd", "*Long: " + std::string(300, 'x') + "\n*Fits: " + std::string(248, 'y') + "\n" +
                                  "*Split: \"" + std::string(250, 'z') + "\"\n*End\n" +
                                  "*OpenUI *Opt: PickOne\n*Opt a: \"" + std::string(244, 'a') + "\"\n" +
                                  "*Opt b: " + std::string(250, 'b') + "*Opt c: c\n*CloseUI: *Opt\n");
    EXPECT_EQ(Values(f.get(), {"Long", "Fits", "Split"}),
              std::string(248, 'x') + "|" + std::string(248, 'y') + "|" + std::string(246, 'z') + "\nzzzz");
    EXPECT_EQ(Options(f.get(), {"Opt"}),
              Strings{"1 def=- q=- a=" + std::string(244, 'a') + " b=" + std::string(246, 'b')});

    // The working directory comes back, also when it is too deep to name
    // in 256 bytes; relative includes resolve in <base>/ppds meanwhile.
    std::string deep = base + "/deep";
    while (deep.size() < 400) deep += "/ddddddddddddddddddddddddddddd";
    fs::create_directories(deep);
    Write("w.ppd", "*Include: \"w2.ppd\"\n");
    Write("w2.ppd", "*W: found\n");
    auto saved = fs::current_path();
    fs::current_path(deep);
    File w(fopen((base + "/ppds/w.ppd").c_str(), "r"), fclose);
    EXPECT_EQ(Values(w.get(), {"W"}), "found");
    EXPECT_EQ(Multiples(w.get(), "W"), "none");
    EXPECT_EQ(fs::current_path(), fs::path(deep));
    testing::internal::CaptureStderr();
    EXPECT_EQ(Values(w.get(), {"W"}, (base + "/missing").c_str()), "-");
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(fs::current_path(), fs::path(deep));
    fs::current_path(saved);

    // Files open as named, else with the file part in lower case.
    fs::create_directories(base + "/Dir");
    std::ofstream(base + "/Dir/lower.ps") << "x";
    File up(_QlfopenTryBothCases((base + "/Dir/LOWER.PS").c_str(), "r"), fclose);
    EXPECT_NE(up, nullptr);
    EXPECT_EQ(_QlfopenTryBothCases((base + "/DIR/lower.ps").c_str(), "r"), nullptr);
    EXPECT_EQ(_QlaccessTryBothCases((base + "/Dir/LOWER.PS").c_str(), R_OK), 0);
    EXPECT_NE(_QlaccessTryBothCases((base + "/Dir/none.ps").c_str(), R_OK), 0);
}
