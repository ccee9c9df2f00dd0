// Encapsulated PostScript on a page: the bytes around the file, where the
// picture lands as Ghostscript renders it, the header's quirks, previews,
// and files that are not EPS at all.
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses

#include "core/qlint.h"
#include "support/capture.h"
#include "drivers/ps/ps.h"
#include "support/gs.h"
#include "support/tempdir.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace qltest;

// A PostScript printer without a PPD (300 dpi, Letter: the printable area's
// top left corner is at dots 75, 3225 from the sheet's lower left) with a
// page open.  fresh() gives what the document got since it was last asked.
struct Page {
    TempDir dir;
    std::string out = dir / "out.ps";
    Display *d = QlVaOpenPrinter(nullptr, ("cat >" + out).c_str(), "PostScript", 0);
    size_t seen = 0;
    QlPrinter *printer() const { return reinterpret_cast<QlPrinter *>(d); }

    Page() {
        EXPECT_NE(d, nullptr);
        EXPECT_EQ(QlStartDoc(d, "eps"), 1);
        EXPECT_EQ(QlStartPage(d), 1);
        fresh();
    }
    ~Page() {
        if (printer()->stream) QlAbortDoc(d);
        QlClosePrinter(d);
    }
    std::string fresh() {
        std::fflush(printer()->stream);
        std::string all = ReadFile(printer()->tmpName), tail = all.substr(std::min(seen, all.size()));
        seen = all.size();
        return tail;
    }
    std::string finish() {
        EXPECT_EQ(QlEndPage(d), 1);
        EXPECT_EQ(QlEndDoc(d), 1);
        return ReadFile(out);
    }
    // Places the file and gives what QlEPS_Put gave, or null.
    QlEPSInfo *place(const std::string &path, double x, double y, double xs = 1, double ys = 1, double rot = 0) {
        double param[5] = {x, y, xs, ys, rot};
        FILE *f = std::fopen(path.c_str(), "rb");
        QlEPSInfo *info = f ? QlEPS_Put(d, f, param) : nullptr;
        if (f) std::fclose(f);
        return info;
    }
};

// An EPS file made by Ghostscript from a PostScript program.
std::string MakeEps(const TempDir &dir, const std::string &name, const std::string &program) {
    const std::string ps = dir / (name + ".ps"), eps = dir / (name + ".eps");
    WriteFile(ps, "%!PS\n" + program + "\nshowpage\n");
    qltest::GsRun run = qltest::RunGhostscript({"-sDEVICE=eps2write", "-sOutputFile=" + eps, ps});
    EXPECT_EQ(run.exitCode, 0) << run.log;
    return eps;
}

// The ink of a one-page document holding one placement, in points.
std::optional<std::array<int, 4>> InkOf(const std::string &eps, double x, double y, double xs, double ys,
                                        double rot) {
    Page page;
    QlEPSInfo *info = page.place(eps, x, y, xs, ys, rot);
    EXPECT_NE(info, nullptr);
    ps::FreeEPSInfo(info);
    page.finish();
    EXPECT_TRUE(qltest::RendersCleanly(page.out));
    return qltest::GsInkBoundingBox(page.out);
}

void ExpectNear(const std::optional<std::array<int, 4>> &box, std::array<int, 4> want) {
    ASSERT_TRUE(box.has_value());
    for (int i = 0; i < 4; ++i) EXPECT_NEAR((*box)[i], want[i], 1) << "coordinate " << i;
}

const char kHeader[] =
    "/BEPS{\n/b4e sv d\n/dict_count countdictstack d\n/op_count count 1 s d\nuserdict b\n/showpage{}d\n"
    "0 sg 0 sc\n1 sw 0 sj\n10 setmiterlimit [] 0 setdash np\n/languagelevel where\n{pop languagelevel\n1 ne\n"
    "{false setstrokeadjust false setoverprint\n}if\n}if\n}bdf\n/rect{ \n4 2 roll t\n1 index 0 l2\n0 e l2\n"
    "neg 0 l2\ncp\n}bdf\n"
    "/EEPS{\ncount op_count s{pop} repeat\ncountdictstack dict_count s{end} repeat \nb4e rs\n}bdf\n";

const char kBox[] =
    "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 0 0 100 50\n%%Title: box\n%%Creator: test\n"
    "%%CreationDate: today\n%%EndComments\n0 0 moveto 100 50 lineto stroke\n%%EOF\n";

TEST(EpsPlacement, BytesAroundTheFileAndWhatTheHeaderKeeps) {
    MessageCapture messages;
    Page page;
    ASSERT_EQ(page.printer()->originX, 75);
    ASSERT_EQ(page.printer()->originY, 3225);
    WriteFile(page.dir / "box.eps", kBox);
    QlEPSInfo *info = page.place(page.dir / "box.eps", 300, 2400);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(page.fresh(), std::string(kHeader) +
                                "BEPS\n-18.00 774.00 translate\n1 -1 scale\n0.00 rotate\n1.00 1.00 sl\n"
                                "90.00 148.00 tl\n0.00 0.00 100.00 50.00 rect clip np\n"
                                "%%Title: box\n%%Creator: test\n%%CreationDate: today\n"
                                "0 0 moveto 100 50 lineto stroke\n%%EOF\nEEPS\n");
    EXPECT_EQ(std::string(info->title) + "|" + info->creator + "|" + info->creationDate, " box| test| today");
    EXPECT_DOUBLE_EQ(info->boundingBox[2], 100 * 300 / 72.0);
    EXPECT_DOUBLE_EQ(info->boundingBox[3], 50 * 300 / 72.0);
    ps::FreeEPSInfo(info);
    // The page's box holds the placed file: points from the sheet's lower
    // left, the placement's corner at 90, 198.
    std::string doc = page.finish();
    size_t box = doc.find("%%BoundingBox: ", doc.find("%%PageTrailer"));
    ASSERT_NE(box, std::string::npos);
    int l, b, r, t;
    ASSERT_EQ(std::sscanf(doc.c_str() + box, "%%%%BoundingBox: %d %d %d %d", &l, &b, &r, &t), 4);
    EXPECT_TRUE(l <= 90 && b <= 148 && r >= 190 && t >= 198) << l << " " << b << " " << r << " " << t;
    EXPECT_TRUE(qltest::RendersCleanly(page.out));
    EXPECT_TRUE(messages.indices.empty());
}

TEST(EpsPlacement, GhostscriptFilesLandScaledRotatedAndClipped) {
    TempDir dir;
    // A 100 by 50 point block; Ghostscript's box is its ink, 20 30 120 80.
    std::string block = MakeEps(dir, "block", "20 30 moveto 100 0 rlineto 0 50 rlineto -100 0 rlineto closepath fill");
    ASSERT_NE(ReadFile(block).find("%%BoundingBox: 20 30 120 80"), std::string::npos);
    // Its upper left corner at 300, 300 dots: 90, 702 on the sheet.
    ExpectNear(InkOf(block, 300, 300, 1, 1, 0), {90, 652, 190, 702});
    ExpectNear(InkOf(block, 300, 300, 2, 0.5, 0), {90, 677, 290, 702});
    // A quarter turn to the left about that corner, here 90, 486.
    ExpectNear(InkOf(block, 300, 1200, 1, 1, 90), {90, 486, 140, 586});
    // Ink outside the box the file declares is cut away.
    std::string over = dir / "over.eps";
    WriteFile(over, "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 0 0 50 50\n%%EndComments\n0 0 100 100 rectfill\n");
    ExpectNear(InkOf(over, 300, 300, 1, 1, 0), {90, 652, 140, 702});

    // Tk's logos: Illustrator files with their own prologs.
    for (const char *name : {"logo.eps", "pwrdLogo.eps"}) {
        std::string path = std::string("/usr/share/tcltk/tk8.6/images/") + name;
        if (!qltest::Exists(path)) continue;
        Page page;
        QlEPSInfo *info = page.place(path, 300, 300);
        ASSERT_NE(info, nullptr) << name;
        double w = (info->boundingBox[2] - info->boundingBox[0]) * 72 / 300;
        double h = (info->boundingBox[3] - info->boundingBox[1]) * 72 / 300;
        ps::FreeEPSInfo(info);
        page.finish();
        EXPECT_TRUE(qltest::RendersCleanly(page.out)) << name;
        auto ink = qltest::GsInkBoundingBox(page.out);
        ASSERT_TRUE(ink.has_value()) << name;
        const auto [il, ib, ir, it] = *ink;
        EXPECT_TRUE(il >= 89 && ib >= 702 - h - 1 && ir <= 90 + w + 1 && it <= 703 && ir - il > w / 2)
            << name << ": " << il << " " << ib << " " << ir << " " << it << " for " << w << "x" << h;
    }
}

TEST(EpsPlacement, HeaderQuirks) {
    MessageCapture messages;
    Page page;
    const std::string longTitle(1500, 't'), longComment(1500, 'c'), longString(3000, 'a');
    const std::string path = page.dir / "quirks.eps";
    // A leading Control-D, the box at the end, a long title, a long comment,
    // the standard end of comments (dropped) and the one with a colon (kept).
    WriteFile(path, "\x04%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: (atend)\n%%Title: " + longTitle +
                        "\n%%Note: " + longComment + "\n%%EndComments\n%%EndComments: here\n"
                        "/s (" + longString + ") def\n\x04 junk\n0 0 10 10 rectfill\n"
                        "%%Trailer\n%%BoundingBox: 0 0 10 10\n%%EOF\n");
    QlEPSInfo *info = page.place(path, 0, 0);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->boundingBox[2], 10 * 300 / 72.0);
    ASSERT_NE(info->title, nullptr);
    EXPECT_EQ(std::string(info->title), " " + longTitle.substr(0, 1023 - 9));
    std::string out = page.fresh();
    EXPECT_EQ(out.find('\x04'), std::string::npos);
    EXPECT_EQ(out.find("ccc"), std::string::npos);
    EXPECT_NE(out.find("\n%%Title: " + longTitle + "\n"), std::string::npos);
    EXPECT_NE(out.find("rect clip np\n%%Title: "), std::string::npos);
    EXPECT_NE(out.find("\n%%EndComments: here\n/s (" + longString + ") def\n0 0 10 10 rectfill\n"),
              std::string::npos);
    EXPECT_EQ(out.find("%%EndComments\n"), std::string::npos);
    ps::FreeEPSInfo(info);

    // "% " and a letter ends the header: what follows is body, as it is.
    WriteFile(path, "%!PS-Adobe-3.0\n%%BoundingBox: 0 0 10 10\n% x\n%%Title: late\n0 0 10 10 rectfill\n");
    info = page.place(path, 0, 0);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->title, nullptr);
    out = page.fresh();
    EXPECT_NE(out.find("np\n% x\n%%Title: late\n0 0 10 10 rectfill\nEEPS\n"), std::string::npos);
    ps::FreeEPSInfo(info);
    page.finish();
    EXPECT_TRUE(qltest::RendersCleanly(page.out));
    EXPECT_TRUE(messages.indices.empty());
}

TEST(EpsPlacement, FilesThatAreNotEps) {
    MessageCapture messages;
    Page page;
    const std::string path = page.dir / "bad.eps";
    auto tryFile = [&](const std::string &bytes) {
        WriteFile(path, bytes);
        messages.clear();
        QlEPSInfo *info = page.place(path, 10, 10);
        EXPECT_EQ(info, nullptr);
        ps::FreeEPSInfo(info);
        return messages.indices;
    };
    const std::vector<int> format{eEPSFormat}, none;
    EXPECT_EQ(tryFile("%!PS-Adobe-2.0 EPSF-2.0\n%%BoundingBox: 0 0 1 1\n"), format);
    EXPECT_EQ(messages.texts[0], "eEPSFormat: QlEPS_Put: EPS file is not PS-Adobe-3.0 format");
    EXPECT_EQ(tryFile(std::string("\xC5\xD0\xD3\xC6\x1E\0\0\0%!PS-Adobe-3.0\n", 24)), format);
    EXPECT_EQ(tryFile(std::string("%!PS-Ad\0obe-3.0\n", 16)), format);
    EXPECT_EQ(tryFile(""), none);
    EXPECT_EQ(page.fresh(), "");
    EXPECT_EQ(tryFile("%!PS-Adobe-3.0\n%%Title: no box\n0 0 1 1 rectfill\n"), none);
    EXPECT_EQ(tryFile("%!PS-Adobe-3.0\n%%BoundingBox: 0 0 1 nan\n%%BoundingBox: 1 2 3\n"), none);
    EXPECT_EQ(page.fresh(), "");
    // Cut off inside the header: the state saved for the file goes back.
    static const char cut[] = "%!PS-Adobe-3.0\n%%BoundingBox: 0 0 10 10\n%%Title: a\0b\n%%Creat";
    EXPECT_EQ(tryFile(std::string(cut, sizeof cut - 1)), none);
    std::string out = page.fresh();
    EXPECT_NE(out.find("rect clip np\n%%Title: a\nEEPS\n"), std::string::npos) << out;

    // A DOS binary file as epstool makes it.
    std::string small = page.dir / "small.eps", dos = page.dir / "dos.eps";
    WriteFile(small, "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 0 0 40 20\n%%EndComments\n0 0 20 20 rectfill\n");
    if (std::system(("epstool --add-tiff4-preview " + small + " " + dos + " >/dev/null 2>&1").c_str()) == 0) {
        messages.clear();
        EXPECT_EQ(page.place(dos, 0, 0), nullptr);
        EXPECT_EQ(messages.indices, format);
    }

    // Not a PostScript page to put it on.
    FILE *f = std::fopen(small.c_str(), "rb");
    double param[5] = {0, 0, 1, 1, 0};
    EXPECT_EQ(QlEPS_Put(nullptr, f, param), nullptr);
    EXPECT_EQ(QlEPS_GetBoundingBox(nullptr, f), nullptr);
    EXPECT_EQ(QlEndPage(page.d), 1);
    messages.clear();
    EXPECT_EQ(QlEPS_Put(page.d, f, param), nullptr);
    EXPECT_EQ(messages.indices, std::vector<int>{wStartDoc});
    // The box alone needs no page, and the file stays where it was.
    std::fseek(f, 5, SEEK_SET);
    double *box = QlEPS_GetBoundingBox(page.d, f);
    ASSERT_NE(box, nullptr);
    EXPECT_DOUBLE_EQ(box[2], 40 * 300 / 72.0);
    EXPECT_EQ(std::ftell(f), 5);
    std::free(box);
    std::fclose(f);
    EXPECT_EQ(QlEndDoc(page.d), 1);
    EXPECT_TRUE(qltest::RendersCleanly(page.out));
}

TEST(EpsPreview, NumbersAndBytes) {
    MessageCapture messages;
    TempDir dir;
    auto preview = [&](const std::string &bytes) {
        WriteFile(dir / "p.eps", bytes);
        FILE *f = std::fopen((dir / "p.eps").c_str(), "rb");
        std::fseek(f, 3, SEEK_SET);
        QlEPSPreview *p = QlEPS_GetPreview(f);
        EXPECT_EQ(std::ftell(f), 3);
        std::fclose(f);
        return p;
    };
    auto release = [](QlEPSPreview *p) {
        if (p) std::free(p->data);
        std::free(p);
    };
    QlEPSPreview *p = preview("%!PS-Adobe-3.0\n%%BeginPreview: 12 2 1 2\n%FFF0\n%80a1\n%%EndPreview\n0 0 moveto\n");
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(std::vector<int>({p->width, p->height, p->depth, p->lines}), std::vector<int>({12, 2, 1, 2}));
    ASSERT_NE(p->data, nullptr);
    EXPECT_EQ(std::string(p->data, 5), std::string("\xFF\xF0\x80\xA1\0", 5));
    release(p);
    EXPECT_TRUE(messages.indices.empty());
    // Fewer than four numbers: a warning, and the bytes are read all the same.
    p = preview("%!PS-Adobe-3.0\n%%BeginPreview: 8 1\n%7E\n");
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(messages.indices, std::vector<int>{wEPSpreview});
    EXPECT_EQ(messages.texts[0], "wEPSpreview: GetPreview: EPS file preview-data not correct");
    EXPECT_STREQ(p->data, "\x7E");
    release(p);
    EXPECT_EQ(preview("%!PS-Adobe-3.0\n%%EndComments\n0 0 moveto\n%%BeginPreview: 1 1 1 1\n"), nullptr);
    EXPECT_EQ(preview("%!PS-Adobe-3.0\n%%BeginPreview: 8 1 1 1\n00\n%%EndPreview\n"), nullptr);

    // An interchange preview made by epstool: 40 by 20 dots, the left half
    // black, each row "% FFFFF00000".
    std::string plain = dir / "plain.eps", epsi = dir / "epsi.eps";
    WriteFile(plain, "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 0 0 40 20\n%%EndComments\n0 0 20 20 rectfill\n");
    if (std::system(("epstool --add-interchange-preview " + plain + " " + epsi + " >/dev/null 2>&1").c_str()) != 0)
        GTEST_SKIP() << "epstool could not make a preview";
    FILE *f = std::fopen(epsi.c_str(), "rb");
    p = QlEPS_GetPreview(f);
    std::fclose(f);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(std::vector<int>({p->width, p->height, p->depth}), std::vector<int>({40, 20, 1}));
    EXPECT_EQ(std::string(p->data, 10), std::string("\xFF\xFF\xF0\0\0\xFF\xFF\xF0\0\0", 10));
    release(p);
    // Placed, the preview is left out and the square lands at 90, 702.
    Page page;
    QlEPSInfo *info = page.place(epsi, 300, 300);
    ASSERT_NE(info, nullptr);
    ps::FreeEPSInfo(info);
    std::string out = page.fresh();
    EXPECT_EQ(out.find("Preview"), std::string::npos);
    EXPECT_EQ(out.find("FFFFF"), std::string::npos);
    page.finish();
    EXPECT_TRUE(qltest::RendersCleanly(page.out));
    ExpectNear(qltest::GsInkBoundingBox(page.out), {90, 682, 110, 702});
}

}  // namespace
