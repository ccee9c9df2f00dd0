// Documents end to end: the PostScript frame, the spool pipeline and what
// reaches the output file, judged byte for byte and by Ghostscript.
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses

#include "core/driver.h"
#include "support/capture.h"
#include "support/gs.h"
#include "support/tempdir.h"

#include <clocale>
#include <csignal>
#include <filesystem>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using qltest::Exists;
using qltest::MessageCapture;
using qltest::ReadFile;
using qltest::ScopedEnv;
using qltest::TempDir;
using qltest::WriteFile;

namespace {

QlPrinter *P(Display *d) { return reinterpret_cast<QlPrinter *>(d); }

const char *kTestPPD = R"PPD(*PPD-Adobe: "4.3"
*ModelName: "Qualin Test Printer"
*Product: "(Qualin Test)"
*LanguageLevel: "1"
*ColorDevice: False
*OpenUI *PageSize: PickOne
*DefaultPageSize: Letter
*PageSize Letter/US Letter: "<</PageSize[612 792]>>setpagedevice"
*PageSize A4/A4: "<</PageSize[595 842]>>setpagedevice"
*CloseUI: *PageSize
*OpenUI *PageRegion: PickOne
*DefaultPageRegion: Letter
*PageRegion Letter: "<</PageSize[612 792]>>setpagedevice"
*PageRegion A4: "<</PageSize[595 842]>>setpagedevice"
*CloseUI: *PageRegion
*DefaultImageableArea: Letter
*ImageableArea Letter: "18 19 593 774"
*ImageableArea A4: "18 19 577 823"
*DefaultPaperDimension: Letter
*PaperDimension Letter: "612 792"
*PaperDimension A4: "595 842"
*OpenUI *InputSlot: PickOne
*DefaultInputSlot: Upper
*InputSlot Upper: "statusdict begin 0 setpapertray end"
*InputSlot Lower: "statusdict begin 1 setpapertray end"
*CloseUI: *InputSlot
*OpenUI *Resolution: PickOne
*DefaultResolution: 300dpi
*Resolution 300dpi: "<</HWResolution[300 300]>>setpagedevice"
*Resolution 600dpi: "<</HWResolution[600 600]>>setpagedevice"
*CloseUI: *Resolution
)PPD";

// A configuration directory of its own: the shipped font list and prolog,
// and a test PPD.
struct Config : qltest::ConfigDir {
    explicit Config(bool prolog = true) : ConfigDir(prolog) { WriteFile(dir / "ppds/TestModel.PS", kTestPPD); }
};

// Runs a document of `pages` empty pages into `out`.
void printPages(Display *d, int pages, const char *name = "test") {
    ASSERT_EQ(QlStartDoc(d, name), 1);
    for (int i = 0; i < pages; ++i) {
        ASSERT_EQ(QlStartPage(d), 1);
        ASSERT_EQ(QlEndPage(d), 1);
    }
    ASSERT_EQ(QlEndDoc(d), 1);
}

std::string copyCommand(const std::string &file) { return "cat >" + file; }

TEST(Document, EncapsulatedWithoutPPD) {
    Config cfg;
    TempDir out;
    std::string file = out / "doc.eps";
    Display *d = QlVaOpenPrinter(nullptr, copyCommand(file).c_str(), nullptr, 0);
    ASSERT_NE(d, nullptr);
    QlSetCreationDate(d, 946728000);  // 2000-01-01 12:00 UTC
    printPages(d, 2);
    QlClosePrinter(d);

    std::string doc = ReadFile(file);
    // The placeholder became the box of the last page.
    EXPECT_EQ(doc.rfind("%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 18 774 18 774\n%%Creator: Morva Qualin Version "
                        "3.3.0 (linux_x86) (Compile Date: ",
                        0),
              0u)
        << doc.substr(0, 200);
    EXPECT_EQ(doc.find("BoUnDiNgBoX"), std::string::npos);
    EXPECT_EQ(doc.find("%QlPrinter-Model"), std::string::npos);
    EXPECT_NE(doc.find("%%Title: \n%%CreationDate:Sat Jan  1 "), std::string::npos);
    const char *frame =
        "%%EndProlog\n%%BeginSetup\n%%EndSetup\n%%Page: 1\n%%BeginPageSetup\n/#copies 1 def\nsv\n"
        "1.00 -1.00 sl\n18.00 -774.00 tl\n%%EndPageSetup\n%%BoundingBox: (atend)\ngs\ngr\n%%PageTrailer\nrs\n"
        "%%BoundingBox: 18 774 18 774\nshowpage\n%%Page: 2\n%%BeginPageSetup\n/#copies 1 def\nsv\n";
    EXPECT_NE(doc.find(frame), std::string::npos);
    EXPECT_TRUE(doc.ends_with("showpage\n%%Trailer\n%%Pages: 2\nend\n%%DocumentSuppliedResources: \n%%EOF\n"));
    // The external prolog at level 1 neutralises setpagedevice.
    EXPECT_NE(doc.find("}bdf\n/setpagedevice {} def\n\n%%EndProlog"), std::string::npos);
    EXPECT_TRUE(qltest::RendersCleanly(file));
}

TEST(Document, WithPPD) {
    Config cfg;
    TempDir out;
    std::string file = out / "doc.ps";
    Display *d = QlVaOpenPrinter("TestModel", copyCommand(file).c_str(), "PostScript", QlTagPageSize, "A4",
                                 QlTagCopies, 2, 0);
    ASSERT_NE(d, nullptr);
    EXPECT_STREQ(QlGetPrinterModel(d), "Qualin Test Printer");
    EXPECT_STREQ(QlGetPageSize(d), "A4");
    printPages(d, 2);
    std::string doc = ReadFile(file);
    EXPECT_EQ(doc.rfind("%!PS-Adobe-3.0\n%QlPrinter-Model: Qualin Test Printer\n%%Creator:", 0), 0u);
    EXPECT_NE(doc.find("%%BeginSetup\n%%BeginFeature: *PageSize A4\n  <</PageSize[595 842]>>setpagedevice\n"
                       "%%EndFeature\n%%EndSetup\n"),
              std::string::npos);
    EXPECT_NE(doc.find("/#copies 2 def\nsv\n1.00 -1.00 sl\n18.00 -822.96 tl\n"), std::string::npos);
    EXPECT_NE(doc.find("%%Trailer\n%%Pages: 2\nend\n"), std::string::npos);
    EXPECT_EQ(doc.find("%%BeginSetup"), doc.rfind("%%BeginSetup"));
    EXPECT_TRUE(qltest::RendersCleanly(file));

    // With a tray the size goes out as a page region.
    ASSERT_EQ(QlSetPaperTray(d, "Lower"), 1);
    printPages(d, 1);
    doc = ReadFile(file);
    EXPECT_NE(doc.find("%%BeginFeature: *InputSlot Lower\n  statusdict begin 1 setpapertray end\n%%EndFeature\n"
                       "%%BeginFeature: *PageRegion A4\n"),
              std::string::npos);
    EXPECT_EQ(doc.find("*PageSize"), std::string::npos);

    MessageCapture msgs;
    EXPECT_EQ(QlSetPaperTray(d, "Middle"), 0);
    EXPECT_EQ(QlSetPageSize(d, "B5"), 0);
    EXPECT_EQ(msgs.indices, (std::vector<int>{wInvalidTray, wInvalidPageS}));
    QlClosePrinter(d);
}

TEST(Document, EveryDocumentRenders) {
    Config cfg(false);  // the built-in prolog, with its warning
    TempDir out;
    MessageCapture msgs;
    std::string file = out / "none.ps";
    Display *d = QlVaOpenPrinter(nullptr, copyCommand(file).c_str(), nullptr, QlTagOrientation, 2, 0);
    ASSERT_NE(d, nullptr);
    printPages(d, 0);  // a document with no page
    EXPECT_NE(ReadFile(file).find("%%Pages: 0\n"), std::string::npos);
    EXPECT_TRUE(qltest::RendersCleanly(file));

    QlPrinterEscape(d, 0, reinterpret_cast<void *>(1L));
    printPages(d, 1);  // landscape, built-in prolog, debug comments
    std::string doc = ReadFile(file);
    EXPECT_TRUE(msgs.has(wProlog));
    EXPECT_NE(doc.find("%QualinDebug: QlStartDoc()\n"), std::string::npos);
    EXPECT_NE(doc.find("sv\n90 rotate\n1.00 -1.00 sl\n18.96 18.00 tl\n"), std::string::npos);
    EXPECT_NE(doc.find("%QualinDebug: EndPage()\ngr\n"), std::string::npos);
    EXPECT_EQ(doc.find("/setpagedevice {} def"), std::string::npos);
    EXPECT_TRUE(qltest::RendersCleanly(file));
    QlClosePrinter(d);
}

TEST(Document, NumbersIgnoreTheLocale) {
    Config cfg;
    TempDir out, locales;
    // A comma-decimal locale of our own, built from the system's sources.
    std::string build = "localedef -i de_DE -f UTF-8 " + (locales / "de_DE.UTF-8") + " >/dev/null 2>&1";
    if (std::system(build.c_str()) != 0) GTEST_SKIP() << "localedef cannot build de_DE.UTF-8 here";
    ScopedEnv locpath("LOCPATH", locales.path().c_str());
    ASSERT_NE(std::setlocale(LC_ALL, "de_DE.UTF-8"), nullptr);
    char probe[16];
    std::snprintf(probe, sizeof probe, "%.2f", 1.5);
    ASSERT_STREQ(probe, "1,50");

    std::string file = out / "doc.eps";
    Display *d = QlVaOpenPrinter(nullptr, copyCommand(file).c_str(), nullptr, QlTagScale, 1.5, 0);
    printPages(d, 1);
    std::setlocale(LC_ALL, "C");
    QlClosePrinter(d);
    EXPECT_NE(ReadFile(file).find("1.50 -1.50 sl\n12.00 -516.00 tl\n"), std::string::npos);
}

TEST(Lifecycle, OutOfOrderCalls) {
    Config cfg;
    TempDir out;
    MessageCapture msgs;
    Display *d = QlVaOpenPrinter(nullptr, copyCommand(out / "x").c_str(), nullptr, 0);
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(QlStartPage(d), 0);
    EXPECT_EQ(QlEndPage(d), 0);
    EXPECT_EQ(QlEndDoc(d), 0);
    EXPECT_EQ(P(d)->pageNumber, 1);
    EXPECT_EQ(msgs.indices, std::vector<int>{eDocStart});
    EXPECT_EQ(QlStartDoc(nullptr, "x"), 0);
    EXPECT_EQ(QlStartPage(nullptr), 0);
    EXPECT_EQ(QlEndDoc(nullptr), 0);

    ASSERT_EQ(QlStartDoc(d, "x"), 1);
    // A draw call outside a page is refused by the guard.
    msgs.clear();
    EXPECT_EQ(_QlForceStartDoc(P(d), "QlDrawLine"), 0);
    ASSERT_EQ(msgs.indices, std::vector<int>{wStartDoc});
    EXPECT_NE(msgs.texts[0].find("QlDrawLine: function should be called after StartDoc and StartPage"),
              std::string::npos);
    ASSERT_EQ(QlStartPage(d), 1);
    EXPECT_EQ(_QlForceStartDoc(P(d), "QlDrawLine"), 1);
    msgs.clear();
    EXPECT_EQ(QlStartPage(d), 0);
    EXPECT_EQ(msgs.indices, std::vector<int>{eNewPage});
    EXPECT_EQ(QlPageEject(d), 1);
    EXPECT_EQ(P(d)->pageNumber, 2);

    // Aborting throws the file away; closing with a document open too.
    std::string tmp = QlGetTmpName(d);
    EXPECT_TRUE(Exists(tmp));
    EXPECT_EQ(QlAbortDoc(d), 1);
    EXPECT_FALSE(Exists(tmp));
    EXPECT_EQ(QlGetTmpName(d), nullptr);
    ASSERT_EQ(QlStartDoc(d, "x"), 1);
    tmp = QlGetTmpName(d);
    EXPECT_TRUE(Exists(tmp));
    QlClosePrinter(d);
    EXPECT_FALSE(Exists(tmp));

    EXPECT_EQ(QlSetScale(d, 2.0), -1);  // closed
}

TEST(Lifecycle, Setters) {
    Config cfg;
    MessageCapture msgs;
    Display *d = QlVaOpenPrinter(nullptr, "cat >/dev/null", nullptr, 0);
    using V = std::vector<int>;
    // A zero scale is refused; orientation 0 reads as 1 (portrait); unlike
    // the open tag, the call keeps zero copies.
    EXPECT_EQ(V({QlSetScale(d, 0.0), QlSetScale(d, 0.5), QlSetOrientation(d, 2), QlSetOrientation(d, 0),
                 QlGetOrientation(d), QlSetOrientation(d, 3), QlSetCopies(d, 0), QlGetCopies(d)}),
              V({-1, 1, 1, 1, 1, -1, 1, 0}));
    EXPECT_EQ(msgs.indices, std::vector<int>{wUnknownOrient});
    EXPECT_EQ(V({QlSetBitmapCompression(nullptr, 0), QlGetOrientation(nullptr), QlGetCopies(nullptr)}), V({1, 1, -1}));
    EXPECT_EQ(QlGetScale(nullptr), -1.0);
    // Without a PPD: eight sizes, one resolution, no trays.
    int n = -1;
    char **sizes = QlListPageSizes(d, &n);
    ASSERT_EQ(n, 8);
    EXPECT_STREQ(sizes[7], "C5");
    int *res = nullptr;
    EXPECT_EQ(QlListResolutions(d, &res), 1);
    EXPECT_EQ(res[0], 300);
    std::free(res);
    EXPECT_EQ(QlSetResolution(d, 300), 0);
    EXPECT_EQ(QlListPaperTrays(d, &n), nullptr);
    PSPageGeometry g;
    ASSERT_EQ(QlQueryPageSize(d, "A4", &g), 1);
    EXPECT_EQ(V({n, g.paperWidth, g.imageTop}), V({0, 2479, 3433}));
    QlClosePrinter(d);
}

TEST(Spool, PipelineText) {
    Config cfg;
    Display *eps = QlVaOpenPrinter(nullptr, "lpr -Pps", nullptr, 0);
    Display *dsc = QlVaOpenPrinter("TestModel", "lpr -Pps", nullptr, 0);
    ASSERT_TRUE(eps && dsc);
    for (Display *d : {eps, dsc}) {
        std::free(P(d)->tmpName);
        P(d)->tmpName = strdup("/tmp/QlAbc123");
    }
    BoundsXmin = 18, BoundsYmin = 700, BoundsXmax = 66, BoundsYmax = 774;
    EXPECT_EQ(_QlSpoolPipeline(P(eps)), "QLDOCNAME=\"qualin\";cat /tmp/QlAbc123|sed \"s/BoUnDiNgBoX/"
                                        "%%BoundingBox: 18 700 66 774/\"|lpr -Pps");
    P(dsc)->docName = strdup("Quarterly report");
    EXPECT_EQ(_QlSpoolPipeline(P(dsc)), "QLDOCNAME=\"Quarterly report\";cat /tmp/QlAbc123|lpr -Pps");
    // Names a shell would expand go in single quotes, unchanged.
    std::free(P(dsc)->docName);
    P(dsc)->docName = strdup("it's $(rm -rf ~) `x`\n\"q\"");
    EXPECT_EQ(_QlSpoolPipeline(P(dsc)), "QLDOCNAME='it'\\''s $(rm -rf ~) `x`\n\"q\"';cat /tmp/QlAbc123|lpr -Pps");
    QlClosePrinter(eps);
    QlClosePrinter(dsc);

    EXPECT_EQ(_QlOSCopyFileCommand(nullptr), "csh -f -c 'cat >qualin.out'");
    EXPECT_EQ(_QlOSCopyFileCommand("~/out/doc.ps"), "csh -f -c 'cat >~/out/doc.ps'");
    EXPECT_EQ(_QlOSCopyFileCommand("/tmp/a b;c"), "cat >'/tmp/a b;c'");
}

TEST(Spool, HostileNamesRunNothing) {
    Config cfg;
    TempDir out;
    const std::string names[] = {"a\"b$(touch " + (out / "pwned1") + ")", "x`touch " + (out / "pwned2") + "`",
                                 "n;touch " + (out / "pwned3"), "line1\nline2 '$HOME'"};
    std::string nameFile = out / "name.txt";
    for (const std::string &name : names) {
        std::string cmd = "{ printf %s \"$QLDOCNAME\" >" + nameFile + "; cat >/dev/null; }";
        Display *d = QlVaOpenPrinter(nullptr, cmd.c_str(), nullptr, 0);
        printPages(d, 1, name.c_str());
        QlClosePrinter(d);
        EXPECT_EQ(ReadFile(nameFile), name);
    }
    // Output files with such names get the document, and run nothing.
    for (const char *base : {"o'q.ps", "o;touch pwned4.ps", "o $(touch pwned5).ps", "o\nx.ps"}) {
        QlPrinterSettings s{};
        s.magic = QL_FILE_MAGIC;
        s.BitmapCompression = -1;
        std::snprintf(s.Filename, sizeof s.Filename, "%s", (out / base).c_str());
        Display *d = QlOpenPrtWithInfo(&s);
        ASSERT_NE(d, nullptr);
        printPages(d, 1);
        QlClosePrinter(d);
        EXPECT_NE(ReadFile(out / base).find("%%EOF"), std::string::npos) << base;
    }
    for (const char *f : {"pwned1", "pwned2", "pwned3", "pwned4.ps", "pwned5).ps"}) EXPECT_FALSE(Exists(out / f));
    EXPECT_FALSE(Exists("pwned4.ps"));
    EXPECT_FALSE(Exists("pwned5"));

    // A long name does not overflow anything.
    std::string longName(5000, 'n');
    std::string cmd = "{ printf %s \"$QLDOCNAME\" >" + nameFile + "; cat >/dev/null; }";
    Display *d = QlVaOpenPrinter(nullptr, cmd.c_str(), nullptr, 0);
    printPages(d, 1, longName.c_str());
    QlClosePrinter(d);
    EXPECT_EQ(ReadFile(nameFile), longName);
}

TEST(Spool, EmptyNameMissingDirectoryFailingCommand) {
    Config cfg;
    TempDir out;
    std::string nameFile = out / "name.txt";
    Display *d = QlVaOpenPrinter(nullptr, ("printf %s \"$QLDOCNAME\" >" + nameFile).c_str(), nullptr, 0);
    printPages(d, 1, "");
    EXPECT_EQ(P(d)->docName, nullptr);
    EXPECT_EQ(ReadFile(nameFile), "qualin");
    QlClosePrinter(d);

    // A failing spool command still ends the document, and the file goes.
    d = QlVaOpenPrinter(nullptr, "false", nullptr, 0);
    ASSERT_EQ(QlStartDoc(d, "x"), 1);
    std::string tmp = QlGetTmpName(d);
    EXPECT_EQ(QlEndDoc(d), 1);
    EXPECT_FALSE(Exists(tmp));
    QlClosePrinter(d);

    // An output directory that doesn't exist fails before the pipeline
    // runs, and keeps the temporary file.
    MessageCapture msgs;
    QlPrinterSettings s{};
    s.magic = QL_FILE_MAGIC;
    s.BitmapCompression = -1;
    std::snprintf(s.Filename, sizeof s.Filename, "%s", (out / "no/such/dir/out.ps").c_str());
    d = QlOpenPrtWithInfo(&s);
    ASSERT_EQ(QlStartDoc(d, "x"), 1);
    tmp = QlGetTmpName(d);
    EXPECT_EQ(QlEndDoc(d), 0);
    EXPECT_EQ(msgs.indices, std::vector<int>{eWriteFile});
    EXPECT_TRUE(Exists(tmp));
    std::remove(tmp.c_str());
    QlClosePrinter(d);

    // No command at all: a warning, and output to "qualin.out".
    msgs.clear();
    d = QlVaOpenPrinter(nullptr, nullptr, nullptr, 0);
    ASSERT_EQ(QlStartDoc(d, "x"), 1);
    EXPECT_EQ(msgs.indices, std::vector<int>{wNoCmd});
    EXPECT_STREQ(P(d)->command, "csh -f -c 'cat >qualin.out'");
    QlAbortDoc(d);
    QlClosePrinter(d);
}

TEST(Spool, TemporaryFilesGoWhereAsked) {
    Config cfg;
    TempDir tmpdir, other;
    ScopedEnv t("TMPDIR", other.path().c_str());
    ScopedEnv q("QLTMPDIR", tmpdir.path().c_str());
    Display *d = QlVaOpenPrinter(nullptr, "cat >/dev/null", nullptr, 0);
    ASSERT_EQ(QlStartDoc(d, "x"), 1);
    EXPECT_EQ(std::string(QlGetTmpName(d)).rfind(tmpdir.path() + "/Ql", 0), 0u);
    QlAbortDoc(d);

    // A temporary directory that can't be written: the document can't start.
    ScopedEnv q2("QLTMPDIR", "/proc");
    ScopedEnv t2("TMPDIR", "/proc");
    EXPECT_EQ(QlStartDoc(d, "x"), 0);
    QlClosePrinter(d);
}

// The temporary disk fills up (a file size limit stands in for it, in a
// child process): a document that can't start says so, and one cut short in
// the middle never reaches the output, whose old contents stay; no
// temporary file is left either way.
TEST(Faults, FullTemporaryDisk) {
    Config cfg;
    TempDir out, tmpdir;
    ScopedEnv q("QLTMPDIR", tmpdir.path().c_str());
    const std::string target = out / "out.ps";
    WriteFile(target, "the user's file\n");
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        int failures = 0;
        MessageCapture msgs;
        Display *d = QlVaOpenPrinter(nullptr, copyCommand(target).c_str(), nullptr, 0);
        rlimit none{0, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &none);
        failures |= QlStartDoc(d, "x") != 0;
        rlimit some{20000, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &some);
        failures |= (QlStartDoc(d, "x") != 1 || QlStartPage(d) != 1) << 1;
        GC gc = QlCreateGC(d, 0, 0, nullptr);
        for (int i = 0; i < 2000; ++i) QlDrawLine(d, 0, gc, i, 0, 0, i);
        failures |= (QlEndPage(d) != 0) << 2;
        failures |= (QlEndDoc(d) != 0) << 3;
        failures |= (msgs.indices != std::vector<int>{eWriteFile}) << 4;
        _exit(failures);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(WEXITSTATUS(status), 0) << "failed checks, as bits";
    EXPECT_TRUE(ReadFile(target) == "the user's file\n") << "the output was overwritten";
    EXPECT_TRUE(std::filesystem::is_empty(tmpdir.path()));
}

// Files the printer was opened with go away before it prints: the PPD is
// held open and still serves; a font whose metrics are gone doesn't load
// (perror names the file), and the page prints all the same.
TEST(Faults, FilesRemovedBetweenOpenAndPrint) {
    Config cfg;
    TempDir out;
    const std::string target = out / "out.ps";
    // The metrics as files of this configuration, not the shared link.
    std::filesystem::remove(cfg.dir / "fontmetrics");
    std::filesystem::copy(qltest::BuildConfigDir() + "/fontmetrics", cfg.dir / "fontmetrics",
                          std::filesystem::copy_options::recursive);
    Display *d = QlVaOpenPrinter("TestModel", copyCommand(target).c_str(), nullptr, 0);
    ASSERT_NE(d, nullptr);
    std::filesystem::remove(cfg.dir / "ppds/TestModel.PS");
    ASSERT_TRUE(std::filesystem::remove(cfg.dir / "fontmetrics/afm/Times-Roman.afm"));
    MessageCapture msgs;
    ASSERT_EQ(QlStartDoc(d, "x"), 1);
    ASSERT_EQ(QlStartPage(d), 1);
    EXPECT_EQ(QlLoadQueryFont(d, "-adobe-times-medium-r-normal--40-*-*-*-p-*-iso8859-1"), nullptr);
    EXPECT_TRUE(msgs.indices.empty());
    GC gc = QlCreateGC(d, 0, 0, nullptr);
    EXPECT_EQ(QlDrawString(d, 0, gc, 100, 100, "default font", 12), 0);
    QlFreeGC(d, gc);
    ASSERT_EQ(QlEndPage(d), 1);
    ASSERT_EQ(QlEndDoc(d), 1);
    QlClosePrinter(d);
    EXPECT_TRUE(qltest::RendersCleanly(target));
}

}  // namespace
