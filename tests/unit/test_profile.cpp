// Profiles: reading values and sections, rewriting them in place, replacing
// files whole or not at all, which of the two files counts, what the
// sections mean for the default printer and its settings, and opening the
// default printer from them.
#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "config/printerinfo.h"
#include "config/profile.h"
#include "support/capture.h"
#include "support/gs.h"
#include "support/tempdir.h"

using namespace qltest;
namespace fs = std::filesystem;

namespace {

std::string Value(const char *section, const char *key, const std::string &path, int *length = nullptr) {
    char buf[64] = {};
    int n = _QlGetPrivateProfileString(section, key, "dflt", buf, sizeof buf - 1, path.c_str());
    if (length) *length = n;
    return buf;
}

std::vector<std::string> Lines(const char *section, const std::string &path) {
    int count = -1;
    char **lines = _QlGetPrivateProfileSection(section, &count, path.c_str());
    std::vector<std::string> v(lines, lines + count);
    _QlFreeProfileSection(lines, count);
    return v;
}

// Rewrites `before` with one value and gives the file afterwards.
std::string Rewrite(const std::string &before, const char *section, const char *key, const char *value) {
    TempDir dir;
    WriteFile(dir / "p", before);
    EXPECT_EQ(_QlWritePrivateProfileString(section, key, value, (dir / "p").c_str()), 1);
    return ReadFile(dir / "p");
}

// Files in a directory whose names begin with `prefix`.
int Count(const std::string &dir, const std::string &prefix) {
    int n = 0;
    for (auto &e : fs::directory_iterator(dir)) n += e.path().filename().string().rfind(prefix, 0) == 0;
    return n;
}

const char *kPPD = "*PPD-Adobe: \"4.3\"\n*ModelName: \"Office\"\n"
                   "*OpenUI *PageSize: PickOne\n*DefaultPageSize: Letter\n"
                   "*PageSize Letter: \"<</PageSize[612 792]>>setpagedevice\"\n"
                   "*PageSize A4: \"<</PageSize[595 842]>>setpagedevice\"\n*CloseUI: *PageSize\n"
                   "*DefaultImageableArea: Letter\n*ImageableArea Letter: \"18 19 593 774\"\n"
                   "*ImageableArea A4: \"18.5 19.25 577 823\"\n*DefaultPaperDimension: Letter\n"
                   "*PaperDimension Letter: \"612 792\"\n*PaperDimension A4: \"595 842\"\n";

const char *kProfile = "[windows]\ndevice=LJ,PCL5,lp2\n\n"
                       "[ports]\nlp = lpr -Plp\nlp2=lpr -Plp2\nbad\n=nocmd\n\n"
                       "[devices]\nOffice=LJ PCL5,lp, lp2,unknown,FILE:\nGone=Missing PostScript,lp\n"
                       "Lower=Lower PS,lp\n\n"
                       "[LJ,PCL5,lp2]\ncopies=3\nScale= 0.75\nOrientation=landscape\nPaperTray=Lower\n";

// A configuration directory with PPDs, a system profile and a user profile
// (neither written yet), and the library pointed at them.
struct Config : ConfigDir {
    std::string system = dir / "Qldefaults", user = dir / "home/.Qldefaults";
    Config() {
        WriteFile(dir / "ppds/LJ.PCL", "*PPD-Adobe: \"4.3\"\n");
        WriteFile(dir / "ppds/lower.ps", kPPD);  // found for the model "Lower"
        WriteFile(dir / "ppds/Office.PS", kPPD);
        fs::create_directories(dir / "home");
        _QlSetQlProfile(system.c_str(), user.c_str());
    }
};

std::string Info(_PrinterInfo *i) {
    std::string s = std::to_string(i->magic) + " cur=" + std::to_string(i->currentP) + "/" +
                    std::to_string(i->currentPort) + " file=" + (i->fileName ? i->fileName : "-") + "/" +
                    std::to_string(i->fileDid);
    for (int k = 0; k < i->num_printer; ++k)
        s += " [" + std::string(i->names[k]) + "|" + i->nicknames[k] + "|" + std::to_string(i->Dids[k]) + "|" +
             std::to_string(i->portIndices[k]) + "]";
    for (int k = 0; k < i->num_port; ++k) s += " " + std::string(i->ports[k]) + ":" + i->commands[k];
    return s;
}

std::string Settings(const QlPrinterSettings &s) {
    char buf[1200];
    std::snprintf(buf, sizeof buf, "%d %s|%s|%d|%s|%s|%s|%d|%d|%.2f|%d|%d|%d|%s", s.magic, s.Filename, s.PPDName, s.Did,
                  s.PaperTray, s.PageSize, s.Command, s.portIndex, s.Orientation, s.Scale, s.Copies, s.DPI,
                  s.BitmapCompression, s.DuplexOpt);
    return buf;
}

}  // namespace

TEST(Profile, ReadsValuesAndSections) {
    TempDir dir;
    std::string p = dir / "p";
    WriteFile(p, "[Windows]\nDEVICE=x\n;key=1\nkey=a=b\nempty=\n   [Indented]\n[Sec]\n\nCopies = 2\n"
                 "[Sec]\nlate=1\n[n]\nbig=70000\nneg=-1\n[Last]\nCopies=2");
    int n;
    EXPECT_EQ(Value("windows", "device", p, &n), "x");
    EXPECT_EQ(n, 1);
    EXPECT_EQ(Value("windows", ";key", p), "1");  // only the section reader knows comments
    EXPECT_EQ(Value("windows", "key", p, &n), "a=b");
    EXPECT_EQ(n, 3);
    EXPECT_EQ(Value("windows", "empty", p, &n), "");  // present but empty: no default
    EXPECT_EQ(n, 0);
    EXPECT_EQ(Value("windows", "missing", p, &n), "dflt");
    EXPECT_EQ(n, 4);
    EXPECT_EQ(Value("sec", "late", p), "dflt");    // only the first [Sec] counts
    EXPECT_EQ(Value("sec", "Copies", p), "dflt");  // its key is "Copies "
    EXPECT_EQ(Value("last", "Copies", p), "dflt");  // a last line without newline isn't there
    EXPECT_EQ(Value("windows", "device", dir / "none", &n), "dflt");
    EXPECT_EQ(n, 0);

    EXPECT_EQ(Lines("windows", p), (std::vector<std::string>{"DEVICE=x", "key=a=b", "empty="}));
    EXPECT_EQ(Lines("indented", p), std::vector<std::string>{});
    EXPECT_EQ(Lines("Sec", p), (std::vector<std::string>{"", "Copies = 2"}));
    EXPECT_EQ(Lines("last", p), std::vector<std::string>{"Copies="});  // seen, short of its last character
    EXPECT_EQ(Lines("none", p), std::vector<std::string>{});

    EXPECT_EQ(_QlGetPrivateProfileInt("n", "big", 0, p.c_str()), 4464);
    EXPECT_EQ(_QlGetPrivateProfileInt("n", "neg", 0, p.c_str()), 65535);
    EXPECT_EQ(_QlGetPrivateProfileInt("n", "none", 7, p.c_str()), 7);
    EXPECT_EQ(_QlGetPrivateProfileInt("n", "none", 70000, p.c_str()), 4464);

    // Lines of a section are read with blanks stripped, keys without case.
    char *lines[] = {const_cast<char *>(" copies = 2 "), const_cast<char *>("Scale="),
                     const_cast<char *>("name=  a b ")};
    char buf[8];
    EXPECT_EQ(_QlParseOneSectionInt(lines, 3, "COPIES", 0), 2);
    EXPECT_EQ(_QlParseOneSectionDouble(lines, 3, "scale", 9.5), 9.5);  // no value: the line doesn't count
    EXPECT_EQ(_QlParseOneSectionString(lines, 3, "Name", "", buf, sizeof buf), 1);
    EXPECT_STREQ(buf, "a b");
    EXPECT_EQ(_QlParseOneSectionString(lines, 3, "none", nullptr, buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "");
}

TEST(Profile, RewritesInPlace) {
    EXPECT_EQ(Rewrite("", "sec", "key", "val"), "\n[sec]\nkey=val\n\n");
    // Headers ahead of the section lose their tails, blank lines ahead of
    // the key go, the rest stays, but for a last line without newline.
    EXPECT_EQ(Rewrite("[a] tail\nx=1\n[sec]\n\n\nold=1\nkey=old\n\nafter=2\n[b] tail\nlast", "SEC", "KEY", "new"),
              "[a]\nx=1\n[sec]\nold=1\nKEY=new\n\nafter=2\n[b] tail\n");
    std::string once = Rewrite("[sec]\nx=1\n\n[b]\ny=2\n", "sec", "k", "v");
    EXPECT_EQ(once, "[sec]\nx=1\nk=v\n\n[b]\ny=2\n");
    EXPECT_EQ(Rewrite(once, "sec", "k", "w"), "[sec]\nx=1\nk=w\n\n[b]\ny=2\n");
    EXPECT_EQ(Rewrite("[sec]\nx=1\ny=2\n[b]\nz=3\n", "sec", nullptr, nullptr), "[sec]\n\n[b]\nz=3\n");
    EXPECT_EQ(Rewrite("[sec]\nx=1\nk=v\n[b]\n", "sec", "k", nullptr), "[sec]\nx=1\n[b]\n");

    TempDir dir;
    EXPECT_EQ(_QlWritePrivateProfileString("sec", "k", "v", (dir / "none").c_str()), 0);
    EXPECT_FALSE(Exists(dir / "none"));
}

// A write that fails or is killed halfway leaves the old file as it was;
// one that succeeds keeps the file's mode and its symbolic link.
TEST(Profile, ReplacesFilesWholeOrNotAtAll) {
    TempDir dir;
    std::string real = dir / "real", link = dir / "link";
    const std::string old = "[sec]\nk=1\n[other]\n" + std::string(2000, 'x') + "\n";
    WriteFile(real, old);
    chmod(real.c_str(), 0640);
    fs::create_symlink(real, link);
    ASSERT_EQ(_QlWritePrivateProfileString("sec", "k", "2", link.c_str()), 1);
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(fs::status(real).permissions(), fs::perms(0640));
    EXPECT_EQ(Value("sec", "k", real), "2");
    WriteFile(real, old);

    // No space: a file size limit stops the write after a few bytes.
    for (bool killed : {false, true}) {
        pid_t pid = fork();
        if (pid == 0) {
            if (!killed) std::signal(SIGXFSZ, SIG_IGN);
            rlimit limit{100, 100};
            setrlimit(RLIMIT_FSIZE, &limit);
            QlPrinterSettings s{};
            s.magic = QL_FILE_MAGIC;
            s.portIndex = -1;
            _exit(_QlWritePrivateProfileString("sec", "k", "2", real.c_str()) * 10 +
                  (_QlWriteCommonPrinterInfo(nullptr, &s, real.c_str()) == -2));
        }
        int status;
        waitpid(pid, &status, 0);
        if (killed) {
            EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGXFSZ) << status;
        } else {
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
            EXPECT_EQ(Count(dir.path(), ".real."), 0);  // nothing left behind
        }
        EXPECT_EQ(ReadFile(real), old);
    }
    EXPECT_EQ(_QlWritePrivateProfileString("sec", "k", "2", (dir / "no/dir/p").c_str()), 0);
}

TEST(Profile, UserFileShadowsSystemFile) {
    Config cfg;
    char buf[16];
    EXPECT_EQ(_QlProfileName(), nullptr);
    EXPECT_EQ(_QlGetProfileString("s", "k", "d", buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "d");
    EXPECT_EQ(_QlWriteProfileString("s", "k", "v"), 0);  // nothing is created

    WriteFile(cfg.system, "[s]\nk=system\nonly=1\n");
    EXPECT_STREQ(_QlProfileName(), cfg.system.c_str());
    EXPECT_EQ(_QlGetProfileInt("s", "only", 0), 1);

    EXPECT_EQ(_QlCreateUserProfileIfNecessary(), 1);
    EXPECT_EQ(ReadFile(cfg.user), ReadFile(cfg.system));
    ASSERT_EQ(_QlWriteProfileString("s", "k", "user"), 1);  // goes to the user's copy
    ASSERT_EQ(_QlWriteProfileString("s", "only", nullptr), 1);
    EXPECT_STREQ(_QlProfileName(), cfg.user.c_str());
    EXPECT_EQ(_QlGetProfileString("s", "k", "", buf, sizeof buf), 4);
    EXPECT_STREQ(buf, "user");
    EXPECT_EQ(_QlGetProfileInt("s", "only", 0), 0);  // by file, not by key
    EXPECT_EQ(ReadFile(cfg.system), "[s]\nk=system\nonly=1\n");
    EXPECT_EQ(_QlCreateUserProfileIfNecessary(), 1);

    fs::remove(cfg.user);
    EXPECT_EQ(_QlGetProfileInt("s", "only", 0), 1);
}

TEST(PrinterInfo, FindsDevicesAndTheDefault) {
    Config cfg;
    _PrinterInfo *i = _QlGetPrinterInfo();
    EXPECT_EQ(Info(i), "9897 cur=0/-1 file=qualin.out/0");
    _freePrinterInfo(i);

    WriteFile(cfg.system, kProfile);
    i = _QlGetPrinterInfo();
    EXPECT_EQ(Info(i), "9898 cur=1/1 file=-/0 [LJ|Office on lp|1|0] [LJ|Office on lp2|1|1] "
                       "[LJ|Office on FILE:|1|-1] [Lower|Lower on lp|0|0] lp:lpr -Plp lp2:lpr -Plp2");
    // One section per device and port; a device never saved gets one
    // copy at natural size, upright; a saved one gets what it says.
    QlPrinterSettings s;
    EXPECT_EQ(_QlGetCommonPrinterInfo(i, &s, 0, 1), 1);
    EXPECT_EQ(Settings(s), "9898 |LJ|1|||lpr -Plp|0|1|1.00|1|0|-1|");
    EXPECT_EQ(_QlGetCommonPrinterInfo(i, &s, 1, 1), 1);
    EXPECT_EQ(Settings(s), "9898 |LJ|1|Lower||lpr -Plp2|1|2|0.75|3|0|-1|");
    WriteFile(cfg.system, std::string(kProfile) + "[LJ,PCL5,FILE:]\nDPI=600\n[Qualin,PCL5]\nFilename=out.pcl\n");
    EXPECT_EQ(_QlGetCommonPrinterInfo(i, &s, 2, 1), 1);
    EXPECT_EQ(Settings(s), "9898 |LJ|1||||-1|0|0.00|0|600|-1|");
    EXPECT_EQ(_QlGetCommonPrinterInfo(i, &s, -1, 1), 1);
    EXPECT_EQ(Settings(s), "9897 out.pcl||1||||-1|0|0.00|0|0|-1|");
    EXPECT_EQ(_QlGetCommonPrinterInfo(i, &s, -1, 0), 0);
    EXPECT_EQ(Settings(s), "9897 qualin.out||0||||-1|0|0.00|0|0|-1|");
    EXPECT_EQ(_QlGetCommonPrinterInfo(i, &s, -1, 3), 0);
    MessageCapture msgs;
    EXPECT_EQ(_QlGetCommonPrinterInfo(i, &s, 4, 1), 0);
    EXPECT_EQ(msgs.texts, std::vector<std::string>{"eUnknownPrt: _QlGetCommonPrinterInfo: unknown Printer ()"});
    _freePrinterInfo(i);

    // The default line: file output, a port no device has, a missing
    // [devices] section.
    auto withDefault = [&](const std::string &device, bool devices = true) {
        std::string text = kProfile;
        text.replace(text.find("LJ,PCL5,lp2"), 11, device);
        if (!devices) text.replace(text.find("[devices]"), 9, "[none]");
        WriteFile(cfg.system, text);
        _PrinterInfo *d = _QlGetPrinterInfo();
        std::string s = Info(d);
        s.resize(s.find(' ', s.find("file=")));  // magic, current entry and file
        _freePrinterInfo(d);
        return s;
    };
    EXPECT_EQ(withDefault("NULL,PCL5,my.out"), "9897 cur=0/0 file=my.out/1");
    EXPECT_STREQ(_Qlport, "my.out");
    EXPECT_EQ(withDefault("lower,ps, lp "), "9898 cur=3/0 file=-/0");
    EXPECT_EQ(withDefault("LJ,PCL5,FILE:"), "9898 cur=2/-1 file=-/0");
    EXPECT_EQ(withDefault("LJ,PCL5,lp3"), "9897 cur=0/-1 file=qualin.out/0");
    EXPECT_EQ(withDefault("LJ,PCL9,lp"), "9897 cur=0/-1 file=qualin.out/0");
    EXPECT_EQ(withDefault("LJ,PCL5"), "9897 cur=0/-1 file=qualin.out/0");
    EXPECT_EQ(withDefault("NULL,PCL5,my.out", false), "9897 cur=0/-1 file=qualin.out/0");
}

TEST(PrinterInfo, WritesTheDefaultDevice) {
    Config cfg;
    WriteFile(cfg.system, kProfile);
    _PrinterInfo *i = _QlGetPrinterInfo();
    QlPrinterSettings s;
    _QlGetCommonPrinterInfo(i, &s, 1, 1);
    s.Copies = 2;
    s.BitmapCompression = 1;  // the default: not written

    // A new file: the default line and the section, no [devices].
    std::string fresh = cfg.dir / "fresh";
    EXPECT_EQ(_QlWriteCommonPrinterInfo(i, &s, fresh.c_str()), 1);
    EXPECT_EQ(ReadFile(fresh), "\n[windows]\ndevice=LJ,PCL5,lp2\n\n[LJ,PCL5,lp2]\nScale=0.75\nCopies=2\n"
                               "PaperTray=Lower\nOrientation=LandScape\n");

    // In place: the device's line moves to the top of [devices] with all
    // its ports, the section is written anew.
    EXPECT_EQ(_QlWriteCommonPrinterInfo(i, &s, cfg.system.c_str()), 1);
    EXPECT_EQ(ReadFile(cfg.system), "[windows]\ndevice=LJ,PCL5,lp2\n\n"
                                    "[ports]\nlp = lpr -Plp\nlp2=lpr -Plp2\nbad\n=nocmd\n\n"
                                    "[devices]\nOffice=LJ PCL5,lp2,lp,FILE:\nGone=Missing PostScript,lp\n"
                                    "Lower=Lower PS,lp\n\n"
                                    "[LJ,PCL5,lp2]\nScale=0.75\nCopies=2\nPaperTray=Lower\nOrientation=LandScape\n");
    QlPrinterSettings back;
    _QlGetCommonPrinterInfo(i, &back, 1, 1);
    s.BitmapCompression = -1;
    EXPECT_EQ(Settings(back), Settings(s));

    // A command changed by hand matches no port; unknown drivers and
    // nameless models are refused.
    std::string before = ReadFile(cfg.system);
    MessageCapture msgs;
    QlPrinterSettings bad = s;
    std::strcpy(bad.Command, "lpr -Plp2; rm -rf ~");
    EXPECT_EQ(_QlWriteCommonPrinterInfo(i, &bad, cfg.system.c_str()), 1);
    EXPECT_EQ(msgs.texts, std::vector<std::string>{"eWrongPort: _QlWriteCommonPrinterInfo: no such device with specified port"});
    bad = s;
    bad.Did = 7;
    EXPECT_EQ(_QlWriteCommonPrinterInfo(i, &bad, cfg.system.c_str()), -5);
    bad = s;
    bad.PPDName[0] = '\0';
    EXPECT_EQ(_QlWriteCommonPrinterInfo(i, &bad, cfg.system.c_str()), -6);
    EXPECT_EQ(ReadFile(cfg.system), before);

    // File output drops the tray; with [windows] behind the settings
    // section, the header that follows [windows] is lost and its lines
    // join [windows].
    QlPrinterSettings f;
    _QlGetCommonPrinterInfo(i, &f, -1, 0);
    std::strcpy(f.PaperTray, "Lower");
    f.Copies = 2;
    i->magic = QL_FILE_MAGIC;
    WriteFile(cfg.system, "[Qualin,PostScript]\nPaperTray=Upper\n[Windows]\ndevice=x\n[keep]\nk=1\n");
    EXPECT_EQ(_QlWriteCommonPrinterInfo(i, &f, cfg.system.c_str()), 1);
    EXPECT_EQ(ReadFile(cfg.system), "[Qualin,PostScript]\nFilename=qualin.out\nCopies=2\n\n"
                                    "[Windows]\ndevice=NULL,PostScript,FILE:\n\nk=1\n");
    _freePrinterInfo(i);
}

// The default printer is the device the profile names, with its saved
// settings and its port's command.
TEST(PrinterInfo, OpensTheDefaultPrinter) {
    Config cfg;
    TempDir work;
    std::string out = work / "office.ps";
    WriteFile(cfg.user, "[windows]\ndevice=Office,PostScript,spool\n[ports]\nspool=cat >" + out +
                            "\n[devices]\nOffice=Office PostScript,spool\n[Office,PostScript,spool]\nPageSize=A4\n"
                            "Copies=2\n");
    Display *d = QlOpenPrinter();
    ASSERT_NE(d, nullptr);
    EXPECT_STREQ(QlGetPageSize(d), "A4");
    ASSERT_EQ(QlStartDoc(d, "office"), 1);
    ASSERT_EQ(QlStartPage(d), 1);
    QlEndPage(d);
    QlEndDoc(d);
    QlClosePrinter(d);
    std::string doc = ReadFile(out);
    EXPECT_NE(doc.find("%%BeginFeature: *PageSize A4\n  <</PageSize[595 842]>>setpagedevice\n"), std::string::npos);
    EXPECT_NE(doc.find("/#copies 2 def"), std::string::npos);
    EXPECT_TRUE(RendersCleanly(out));
}

// Numbers in profiles and PPDs mean the same in an application that set a
// locale with a decimal comma.
TEST(PrinterInfo, ReadsNumbersInTheCLocale) {
    TempDir locales;
    ScopedEnv locpath("LOCPATH", locales.path().c_str());
    std::string cmd = "localedef -i de_DE -f UTF-8 " + (locales / "de_DE.UTF-8") + " >/dev/null 2>&1";
    if (std::system(cmd.c_str()) != 0 || !std::setlocale(LC_ALL, "de_DE.UTF-8"))
        GTEST_SKIP() << "no de_DE locale can be made here";
    double probe = 0;
    std::sscanf("1.5", "%lf", &probe);
    EXPECT_EQ(probe, 1.0);  // the locale is in force

    Config cfg;
    WriteFile(cfg.system, "[windows]\ndevice=Office,PS,FILE:\n[devices]\nOffice=Office PS,FILE:\n"
                          "[Office,PostScript,FILE:]\nScale=1.5\n[CustomPageSizes]\nCard=288.5,432,9.5,10,278,422\n");
    _PrinterInfo *i = _QlGetPrinterInfo();
    QlPrinterSettings s;
    _QlGetCommonPrinterInfo(i, &s, 0, 0);
    EXPECT_EQ(s.Scale, 1.5);
    std::string fresh = cfg.dir / "fresh";
    _QlWriteCommonPrinterInfo(i, &s, fresh.c_str());
    EXPECT_NE(ReadFile(fresh).find("Scale=1.50\n"), std::string::npos);
    _freePrinterInfo(i);

    Display *d = QlVaOpenPrinter("Office", "cat >/dev/null", "PostScript", QlTagPageSize, "A4", 0);
    ASSERT_NE(d, nullptr);
    PSPageGeometry g;
    ASSERT_EQ(QlQueryPageSize(d, "A4", &g), 1);
    EXPECT_EQ(g.imageLeft, 77);     // 18.5 points at 300 dpi
    EXPECT_EQ(g.imageBottom, 80);   // 19.25
    auto *p = reinterpret_cast<QlPrinter *>(d);
    ASSERT_NE(p->customPages, nullptr);
    EXPECT_EQ(p->customPages->width, 288.5f);
    EXPECT_EQ(p->customPages->left, 9.5f);
    QlClosePrinter(d);
    std::setlocale(LC_ALL, "C");
}

// Empty, binary, truncated and overlong files: a profile that makes no
// sense leads to the default file, a PPD that names no paper is refused
// with its message, and nothing crashes.
TEST(PrinterInfo, BadFilesFallBackOrAreRefused) {
    Config cfg;
    std::string binary;
    for (int i = 0; i < 4096; ++i) binary += static_cast<char>((i * 7919) & 0xFF);
    std::string ports;
    for (int i = 0; i < 300; ++i) ports += ",p" + std::to_string(i);
    const std::string profiles[] = {"", binary, std::string(100000, '['), "[windows]\ndevice=" + std::string(9000, 'x'),
                                    "[ports]\np0=cat\n[devices]\nd=Office PS" + ports + "\n[windows]\ndevice=Office,PS,p0",
                                    "[devices\n[windows\ndevice=Office,PS,FILE:\n"};
    for (const std::string &text : profiles) {
        WriteFile(cfg.system, text);
        _PrinterInfo *i = _QlGetPrinterInfo();
        EXPECT_EQ(i->magic, QL_FILE_MAGIC);
        EXPECT_STREQ(i->fileName, "qualin.out");
        _freePrinterInfo(i);
        Display *d = QlOpenPrinter();
        EXPECT_NE(d, nullptr);
        QlClosePrinter(d);
    }

    std::string ppd = kPPD;
    const std::string ppds[] = {"", binary, ppd.substr(0, ppd.find("*DefaultImageableArea")),
                                "*PPD-Adobe: \"4.3\"\n*Cut: \"" + std::string(70000, 'x')};
    MessageCapture msgs;
    for (const std::string &text : ppds) {
        WriteFile(cfg.dir / "ppds/Bad.PS", text);
        msgs.clear();
        EXPECT_EQ(QlVaOpenPrinter("Bad", "cat >/dev/null", "PostScript", 0), nullptr);
        EXPECT_TRUE(msgs.has(ePPDPaper));
    }
    // An overlong line is passed over; a value cut off before its end is
    // reported, and what came before it still counts.
    for (const std::string &text : {std::string(70000, '*') + "\n" + ppd, ppd + "*Cut: \"" + std::string(70000, 'x')}) {
        WriteFile(cfg.dir / "ppds/Bad.PS", text);
        msgs.clear();
        Display *d = QlVaOpenPrinter("Bad", "cat >/dev/null", "PostScript", QlTagPageSize, "A4", 0);
        ASSERT_NE(d, nullptr);
        EXPECT_STREQ(QlGetPageSize(d), "A4");
        QlClosePrinter(d);
    }
    ASSERT_FALSE(msgs.texts.empty());  // once for each query that reads the file
    for (auto &t : msgs.texts) EXPECT_EQ(t, "ePPDSyntax3: parseLine: PPD Syntax error: no *End for mutiline strings: Cut");
}

TEST(PrinterInfo, ReadsThePrinterList) {
    Config cfg;
    ScopedEnv home("HOME", (cfg.dir / "home").c_str());
    _PrinterInfo *i = _pInfoParser();
    EXPECT_EQ(Info(i), "0 cur=0/0 file=-/0");  // no list at all
    _freePrinterInfo(i);
    WriteFile(cfg.dir / "PrinterList", "lp:Laser:PCL5:lpr\n");
    WriteFile(cfg.dir / "home/.PrinterList",
              "  lp : Office laser : pcl : lpr -Plp\r\n:x:PS\nname:\nps::PS\nodd:y:PCL6:cmd\n\nq:z:pcl4\n");
    MessageCapture msgs;
    i = _pInfoParser();
    EXPECT_EQ(Info(i), "9898 cur=0/0 file=-/0 [lp|Office laser|1|-1] [ps|ps|0|-1] [q|z|2|-1]");
    EXPECT_EQ(msgs.texts, (std::vector<std::string>{"eSyntax: _pInfoParser: Syntax error, file PrinterList: line 2",
                                                    "eSyntax: _pInfoParser: Syntax error, file PrinterList: line 3",
                                                    "eSyntax: _pInfoParser: Syntax error, file PrinterList: line 5"}));
    _freePrinterInfo(i);
}
