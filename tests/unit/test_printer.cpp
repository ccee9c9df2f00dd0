// Printer handles: the display test, opening with tags and settings,
// closing, the cache and the configuration directory.
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses

#include "config/printerinfo.h"
#include "core/driver.h"
#include "support/capture.h"
#include "support/tempdir.h"
#include "support/xvfb.h"

#include <type_traits>

using qltest::MessageCapture;

namespace {

QlPrinter *P(Display *d) { return reinterpret_cast<QlPrinter *>(d); }

// Scale, orientation, copies, compression, command and file name of a printer.
std::string Settings(Display *d) {
    char buf[256];
    std::snprintf(buf, sizeof buf, "%.3f %d %d %d %s|%s", QlGetScale(d), QlGetOrientation(d), QlGetCopies(d),
                  P(d)->bitmapCompression, P(d)->command, P(d)->info ? P(d)->info->fileName : "-");
    return buf;
}

TEST(Handle, TellsPrintersFromRealDisplays) {
    EXPECT_EQ(QlIsDisplay(nullptr), 0);
    EXPECT_EQ(QlIsPrinter(nullptr), 0);

    Display *dpy = qltest::OpenTestDisplay();
    ASSERT_NE(dpy, nullptr);
    EXPECT_EQ(QlIsDisplay(dpy) * 10 + QlIsPrinter(dpy), 10);
    // The magic word overlays the connection's descriptor.
    EXPECT_EQ(offsetof(QlPrinter, magic), offsetof(std::remove_pointer_t<_XPrivDisplay>, fd));
    EXPECT_NE(ConnectionNumber(dpy), QL_PRINTER_MAGIC);
    // Closing a display through the printer call touches nothing.
    EXPECT_EQ(QlClosePrinter(dpy), 0);
    XSync(dpy, False);

    Display *prn = QlVaOpenPrinter(nullptr, nullptr, nullptr, 0);
    ASSERT_NE(prn, nullptr);
    EXPECT_EQ(QlIsDisplay(prn) * 10 + QlIsPrinter(prn), 1);
    EXPECT_EQ(ConnectionNumber(prn), QL_PRINTER_MAGIC);
    EXPECT_EQ(QlGetDriverID(prn), QL_DRIVER_POSTSCRIPT);
    QlClosePrinter(prn);
    // A closed handle is neither, and calls on it fail quietly.
    EXPECT_EQ(QlIsDisplay(prn) * 10 + QlIsPrinter(prn), 0);
    EXPECT_EQ(QlClosePrinter(prn), 0);
    EXPECT_EQ(QlStartDoc(prn, "x"), 0);
    EXPECT_EQ(QlGetScale(prn), -1.0);
    XCloseDisplay(dpy);
}

TEST(Open, DriverNamesAndTags) {
    MessageCapture msgs;
    for (const char *name : {"PostScript", "postscript", "POSTSCRIPT"}) {
        Display *d = QlVaOpenPrinter(nullptr, nullptr, name, 0);
        ASSERT_NE(d, nullptr) << name;
        QlClosePrinter(d);
    }
    EXPECT_EQ(QlVaOpenPrinter(nullptr, nullptr, "HPGL", 0), nullptr);
    EXPECT_TRUE(msgs.has(eUnknownDrv));
    // The PCL drivers say they are not offered, and the open fails.
    msgs.clear();
    EXPECT_EQ(QlVaOpenPrinter(nullptr, nullptr, "PCL5", 0), nullptr);
    EXPECT_TRUE(msgs.has(wNotSupport));

    msgs.clear();
    EXPECT_EQ(QlVaOpenPrinter(nullptr, "lpr", nullptr, 7, 0), nullptr);
    EXPECT_EQ(QlVaOpenPrinter(nullptr, "lpr", nullptr, 11, 1, 0), nullptr);
    EXPECT_EQ(msgs.indices, (std::vector<int>{eIllegalArg, eIllegalArg}));

    Display *d = QlVaOpenPrinter(nullptr, "lpr", nullptr, QlTagOrientation, 0, QlTagCopies, 0, QlTagScale, -2.0,
                                 QlTagBitmapCompression, 0, 0);
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(Settings(d).substr(0, Settings(d).find('|')), "1.000 2 1 0 lpr");
    // Without a PPD: Letter at 300 dots per inch, here turned.
    const QlPrinter *p = P(d);
    EXPECT_EQ(std::vector<int>({p->width, p->height, p->originX, p->originY, p->depth, p->numCells}),
              std::vector<int>({3146, 2395, 79, 75, 8, 256}));
    QlClosePrinter(d);
}

TEST(Open, MissingPPDAndConfigDir) {
    qltest::TempDir dir;
    MessageCapture msgs;
    {
        qltest::ScopedEnv path("QLPATH", dir.path().c_str());
        EXPECT_STREQ(QlConfigDir(), dir.path().c_str());
        EXPECT_EQ(QlVaOpenPrinter("NoSuchModel", nullptr, nullptr, 0), nullptr);
        ASSERT_EQ(msgs.indices, std::vector<int>{eUnknownPrt});
        EXPECT_NE(msgs.texts[0].find(dir.path() + "/ppds/NoSuchModel.PS"), std::string::npos);
        // Without "psstd.fonts" a PostScript printer does not open: the
        // message comes twice.
        msgs.clear();
        EXPECT_EQ(QlVaOpenPrinter(nullptr, nullptr, nullptr, 0), nullptr);
        EXPECT_EQ(msgs.indices, (std::vector<int>{ePSFont, ePSFont}));
    }
    qltest::ScopedEnv path("QLPATH", nullptr);
    {
        qltest::ScopedEnv home("QLHOME", "/opt/ql/");
        EXPECT_STREQ(QlConfigDir(), "/opt/ql/qualin");
    }
    qltest::ScopedEnv home("QLHOME", nullptr);
    ASSERT_NE(QlConfigDir(), nullptr);
    EXPECT_STREQ(QlConfigDir(), "");
}

TEST(Open, CacheListsOnlyEveryOtherPrinter) {
    Display *a = QlVaOpenPrinter(nullptr, nullptr, nullptr, 0);
    ASSERT_NE(_QlPrtList, nullptr);
    EXPECT_EQ(_QlPrtList->printer, P(a));
    Display *b = QlVaOpenPrinter(nullptr, nullptr, nullptr, 0);
    EXPECT_EQ(_QlPrtList, nullptr);
    Display *c = QlVaOpenPrinter(nullptr, nullptr, nullptr, 0);
    ASSERT_NE(_QlPrtList, nullptr);
    EXPECT_EQ(_QlPrtList->printer, P(c));
    EXPECT_EQ(_QlPrtList->next, nullptr);
    QlClosePrinter(a);
    QlClosePrinter(b);
    QlClosePrinter(c);
    EXPECT_EQ(_QlPrtList, nullptr);
}

TEST(Open, SettingsRecords) {
    QlPrinterSettings s{};
    s.magic = QL_FILE_MAGIC;
    s.Did = 3;
    s.Scale = 0.001;  // not above the threshold: the scale stays
    s.Orientation = 2;
    s.Copies = 3;
    s.BitmapCompression = -1;
    std::snprintf(s.Filename, sizeof s.Filename, "!lpr -h");
    Display *d = QlOpenPrtWithInfo(&s);
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(Settings(d), "1.000 2 3 1 lpr -h|lpr -h");
    QlClosePrinter(d);

    // A file: the copy command of the name.
    std::snprintf(s.Filename, sizeof s.Filename, "out.ps");
    s.Scale = 2.0;
    d = QlOpenPrtWithInfo(&s);
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(Settings(d), "2.000 2 3 1 csh -f -c 'cat >out.ps'|out.ps");
    QlClosePrinter(d);

    EXPECT_EQ(QlOpenPrtWithInfo(nullptr), nullptr);
    s.Did = 9;
    EXPECT_EQ(QlOpenPrtWithInfo(&s), nullptr);
    s.magic = QL_PRINTER_MAGIC;
    s.Did = 0;
    s.PPDName[0] = '\0';
    EXPECT_EQ(QlOpenPrtWithInfo(&s), nullptr);
}

TEST(Open, DefaultPrinterWithoutConfiguration) {
    Display *d = QlOpenPrinter();
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(QlGetDriverID(d), 0);
    EXPECT_EQ(Settings(d).substr(Settings(d).find("csh")), "csh -f -c 'cat >qualin.out'|qualin.out");
    EXPECT_EQ(QlSetDisplay(d, nullptr), 0);
    QlClosePrinter(d);
}

TEST(Slots, EveryUnbuiltSlotSaysSo) {
    MessageCapture msgs;
    Display *d = QlVaOpenPrinter(nullptr, nullptr, nullptr, 0);
    ASSERT_NE(d, nullptr);
    QlPrinter *p = P(d);
    EXPECT_EQ(DriverSwitch[1]->PutImage(p, nullptr, nullptr, 0, 0, 0, 0, 1, 1), 2);
    EXPECT_EQ(PDDriverSwitch[2]->StartDoc(p), 0);
    EXPECT_EQ(msgs.indices, (std::vector<int>{wNotSupport, wNotSupport}));
    EXPECT_NE(msgs.texts[0].find("PutImage: not supported"), std::string::npos);
    QlClosePrinter(d);
}

}  // namespace
