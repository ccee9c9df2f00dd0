// One process prints many documents of mixed content, opening and closing
// its printers as it goes.  Nothing may pile up: live heap, open file
// descriptors and files in the temporary directory stay where they were
// once the process has warmed up, and every document renders.
//
// QL_SOAK_DOCUMENTS sets the number of documents (10000 by default).
#include <gtest/gtest.h>

#include <qualin/Ql.h>

#include <dirent.h>
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
// The sanitizer runtime's count of live bytes (its header comes with clang only).
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

#include "support/capture.h"
#include "drivers/ps/ps.h"
#include "support/gs.h"
#include "support/tempdir.h"

namespace {

// Bytes the program holds on the heap now (freed blocks that the address
// sanitizer keeps in quarantine don't count).
size_t LiveHeap() {
#if defined(__SANITIZE_ADDRESS__)
    return __sanitizer_get_current_allocated_bytes();
#else
    return mallinfo2().uordblks;
#endif
}

int Entries(const std::string &dir) {
    int n = 0;
    if (DIR *d = opendir(dir.c_str())) {
        while (dirent *e = readdir(d))
            if (e->d_name[0] != '.') ++n;
        closedir(d);
    }
    return n;
}

// A document with every kind of mark: two pages of lines, shapes, text,
// an image, a stippled fill, rotated text and a placed EPS file.
bool PrintDocument(Display *p, int serial, const std::string &eps) {
    if (!QlStartDoc(p, serial % 3 ? "soak" : "soak $(not a command) 'quoted'")) return false;
    GC gc = QlCreateGC(p, 0, 0, nullptr);
    XFontStruct *font = QlLoadQueryFont(p, serial % 2 ? "-adobe-times-medium-r-normal--50-*-*-*-p-*-iso8859-1"
                                                        : "-adobe-helvetica-bold-o-normal--40-*-*-*-p-*-iso8859-2");
    QlStartPage(p);
    char dashes[] = {12, 6, 3, 6};
    QlSetLineAttributes(p, gc, 5, LineOnOffDash, CapRound, JoinBevel);
    QlSetDashes(p, gc, serial % 7, dashes, 4);
    for (int i = 0; i < 20; ++i) QlDrawLine(p, 0, gc, 50 + i * 10, 100, 400, 300 + i * 7);
    XColor c{};
    c.red = static_cast<unsigned short>(serial * 977);
    c.green = 30000;
    c.blue = 65535;
    QlAllocColor(p, 0, &c);
    QlSetForeground(p, gc, c.pixel);
    QlFillArc(p, 0, gc, 500, 100, 300, 200, 64 * (serial % 360), 64 * 270);
    XPoint star[5] = {{700, 400}, {760, 580}, {610, 470}, {790, 470}, {640, 580}};
    QlFillPolygon(p, 0, gc, star, 5, Complex, CoordModeOrigin);
    if (font) {
        QlSetFont(p, gc, font->fid);
        QlDrawImageString(p, 0, gc, 100, 700, "Soak \xe9t\xe9 AVAWAY", 15);
    }
    XImage *image = QlCreateImage(p, nullptr, 24, ZPixmap, 0, nullptr, 32, 16, 32, 0);
    if (image) {
        image->data = static_cast<char *>(std::calloc(image->bytes_per_line, 16));
        for (int y = 0; y < 16; ++y)
            for (int x = 0; x < 32; ++x) QlPutPixel(image, x, y, static_cast<unsigned long>(x * 8 + y * 4096 + serial));
        QlPutImage(p, 0, gc, image, 0, 0, 100, 800, 32, 16);
        QlDestroyImage(image);
    }
    QlEndPage(p);

    QlStartPage(p);
    static const char bits[] = {0x55, 0x00, 0x55, 0x00, 0x55, 0x00, 0x55, 0x00};
    Pixmap stipple = QlCreateBitmapFromData(p, 0, bits, 8, 8);
    QlSetStipple(p, gc, stipple);
    QlSetFillStyle(p, gc, FillStippled);
    QlFillRectangle(p, 0, gc, 100, 100, 400, 300);
    QlSetFillStyle(p, gc, FillSolid);
    QlFreePixmap(p, stipple);
    if (font) QlDrawRotString(p, 0, gc, 300, 900, "turned", 6, 64 * (serial % 360));
    if (FILE *f = std::fopen(eps.c_str(), "r")) {
        double where[5] = {600, 600, 1, 1, static_cast<double>(serial % 90)};
        ps::FreeEPSInfo(QlEPS_Put(p, f, where));
        std::fclose(f);
    }
    QlEndPage(p);
    if (font) QlFreeFont(p, font);
    QlFreeGC(p, gc);
    return QlEndDoc(p) == 1;
}

TEST(Soak, ManyDocumentsLeaveNothingBehind) {
    qltest::TempDir dir;
    const std::string tmp = dir / "tmp", out = dir / "out";
    std::filesystem::create_directories(tmp);
    std::filesystem::create_directories(out);
    setenv("QLTMPDIR", tmp.c_str(), 1);
    const std::string eps = dir / "mark.eps";
    qltest::WriteFile(eps,
                      "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 0 0 100 100\n%%Title: mark\n%%EndComments\n"
                      "0 0 moveto 100 100 lineto 0 100 lineto closepath fill\n%%EOF\n");
    const char *env = std::getenv("QL_SOAK_DOCUMENTS");
    const int documents = env ? std::atoi(env) : 10000;
    const std::string command = "cat >" + out + "/doc.ps";

    qltest::MessageCapture messages;
    Display *p = nullptr;
    size_t heapAtWarm = 0;
    int fdsAtWarm = 0;
    std::vector<std::string> batch;
    auto render = [&] {
        std::vector<std::string> args{"-sDEVICE=nullpage"};
        args.insert(args.end(), batch.begin(), batch.end());
        const qltest::GsRun run = qltest::RunGhostscriptTalkative(args);
        ASSERT_EQ(run.exitCode, 0) << run.log;
        EXPECT_EQ(run.log.find("Error"), std::string::npos) << run.log;
        for (const std::string &f : batch) std::remove(f.c_str());
        batch.clear();
    };
    for (int n = 0; n < documents; ++n) {
        if (n % 10 == 0) {
            if (p) QlClosePrinter(p);
            p = QlVaOpenPrinter(nullptr, command.c_str(), nullptr, QlTagCopies, 1 + n / 10 % 2, 0);
            ASSERT_NE(p, nullptr);
            QlSetPSColor(p, n / 10 % 3 != 0);
            QlSetPSLevel(p, n / 10 % 2 ? 1 : 2);
        }
        ASSERT_TRUE(PrintDocument(p, n, eps)) << "document " << n;
        ASSERT_EQ(Entries(tmp), 0) << "temporary files left behind by document " << n;
        batch.push_back(out + "/doc-" + std::to_string(n) + ".ps");
        std::filesystem::rename(out + "/doc.ps", batch.back());
        if (batch.size() == 500) render();
        if (n == documents / 10) {
            heapAtWarm = LiveHeap();
            fdsAtWarm = Entries("/proc/self/fd");
        }
    }
    QlClosePrinter(p);
    if (!batch.empty()) render();
    // The printer open at the end is closed, so the heap may only shrink.
    EXPECT_LE(LiveHeap(), heapAtWarm + 64 * 1024) << "the heap grew over " << documents << " documents";
    EXPECT_LE(Entries("/proc/self/fd"), fdsAtWarm);
    EXPECT_EQ(Entries(tmp), 0);
    EXPECT_TRUE(messages.indices.empty()) << messages.indices.size() << " messages, the first " << messages.indices[0];
    unsetenv("QLTMPDIR");
}

}  // namespace
