// The page device on paper: a document for a PPD printer selects its page
// with the PPD's own code, and Ghostscript renders it at that size, with
// the drawing inside the imageable area, upright or turned.
#include <gtest/gtest.h>  // first: Xlib defines names gtest uses

#include "config/profile.h"
#include "core/driver.h"
#include "support/capture.h"
#include "support/gs.h"
#include "support/raster.h"
#include "support/tempdir.h"

#include <array>
#include <string>

using namespace qltest;

namespace {

// Letter, A4 and Legal, and custom sizes up to 1000 by 1400 points.
const char *kPPD = R"(*PPD-Adobe: "4.3"
*ModelName: "Pages"
*LanguageLevel: "2"
*OpenUI *PageSize: PickOne
*DefaultPageSize: Letter
*PageSize Letter: "<</PageSize[612 792]>>setpagedevice"
*PageSize A4: "<</PageSize[595 842]>>setpagedevice"
*PageSize Legal: "<</PageSize[612 1008]>>setpagedevice"
*CloseUI: *PageSize
*DefaultImageableArea: Letter
*ImageableArea Letter: "18 36 594 756"
*ImageableArea A4: "24 30 571 812"
*ImageableArea Legal: "18 36 594 972"
*DefaultPaperDimension: Letter
*PaperDimension Letter: "612 792"
*PaperDimension A4: "595 842"
*PaperDimension Legal: "612 1008"
*MaxMediaWidth: "1000"
*CustomPageSize True: "pop pop pop <</PageSize [ 5 -2 roll ] /ImagingBBox null>>setpagedevice"
*ParamCustomPageSize Width: 1 points 72 1000
*ParamCustomPageSize Height: 2 points 72 1400
*ParamCustomPageSize WidthOffset: 3 points 0 0
*ParamCustomPageSize HeightOffset: 4 points 0 0
*ParamCustomPageSize Orientation: 5 int 0 3
)";

struct Config : ConfigDir {
    Config() {
        WriteFile(dir / "ppds/Pages.PS", kPPD);
        WriteFile(dir / "Qldefaults", "[CustomPageSizes]\nCard=288,432,18,18,270,414\nHuge=1200,1300,0,0,1200,1300\n");
        _QlSetQlProfile((dir / "Qldefaults").c_str(), (dir / "no-user-profile").c_str());
    }
};

// The extent of the non-white pixels: left, top, right, bottom (inclusive).
std::array<int, 4> Ink(const Raster &r) {
    std::array<int, 4> box{r.width, r.height, -1, -1};
    for (int y = 0; y < r.height; ++y)
        for (int x = 0; x < r.width; ++x)
            if (r.pixel(x, y) != 0xFFFFFF) box = {std::min(box[0], x), std::min(box[1], y), std::max(box[2], x),
                                                  std::max(box[3], y)};
    return box;
}

struct Size {
    const char *name, *feature;
    int width, height, left, bottom, right, top;  // points
};

}  // namespace

TEST(PageDevice, RendersAtThePPDsPageSizes) {
    Config cfg;
    MessageCapture msgs;
    TempDir out;
    const Size sizes[] = {{"Letter", "*PageSize Letter", 612, 792, 18, 36, 594, 756},
                          {"A4", "*PageSize A4", 595, 842, 24, 30, 571, 812},
                          {"Legal", "*PageSize Legal", 612, 1008, 18, 36, 594, 972},
                          {"Card", "*CustomPageSize True", 288, 432, 18, 18, 270, 414}};
    for (const Size &size : sizes) {
        for (int orientation : {1, 2}) {
            SCOPED_TRACE(std::string(size.name) + (orientation == 1 ? " portrait" : " landscape"));
            std::string file = out / (std::string(size.name) + std::to_string(orientation) + ".ps");
            Display *d = QlVaOpenPrinter("Pages", ("cat >" + file).c_str(), "PostScript", QlTagPageSize, size.name,
                                         QlTagOrientation, orientation, 0);
            ASSERT_NE(d, nullptr);
            GC gc = QlCreateGC(d, 0, 0, nullptr);
            ASSERT_EQ(QlStartDoc(d, size.name), 1);
            // Page 1 covers the whole page the application sees; page 2
            // has a bar along its top edge.
            ASSERT_EQ(QlStartPage(d), 1);
            int w = QlDisplayWidth(d, 0), h = QlDisplayHeight(d, 0);
            EXPECT_EQ(orientation == 1 ? w > h : w < h, false) << w << "x" << h;
            QlFillRectangle(d, 0, gc, 0, 0, w, h);
            QlEndPage(d);
            QlStartPage(d);
            QlFillRectangle(d, 0, gc, 0, 0, w, h / 10);
            QlEndPage(d);
            ASSERT_EQ(QlEndDoc(d), 1);
            QlFreeGC(d, gc);
            QlClosePrinter(d);

            std::string doc = ReadFile(file);
            size_t setup = doc.find("%%BeginSetup\n"), end = doc.find("%%EndSetup\n");
            ASSERT_NE(end, std::string::npos);
            EXPECT_NE(doc.substr(setup, end - setup).find("%%BeginFeature: " + std::string(size.feature) + "\n"),
                      std::string::npos);

            // Rendered at 36 dpi (half a pixel per point), at the document's own size.
            std::string ppm = out / "page%d.ppm";
            GsRun gs = RunGhostscript({"-sDEVICE=ppmraw", "-r36", "-sOutputFile=" + ppm, file});
            ASSERT_EQ(gs.exitCode, 0) << gs.log;
            auto full = ParsePpm(ReadFile(out / "page1.ppm")), bar = ParsePpm(ReadFile(out / "page2.ppm"));
            ASSERT_TRUE(full && bar);
            EXPECT_NEAR(full->width, size.width / 2.0, 1);
            EXPECT_NEAR(full->height, size.height / 2.0, 1);
            // The whole page is the imageable area, on the sheet, either way round.
            auto ink = Ink(*full);
            std::array<double, 4> area{size.left / 2.0, (size.height - size.top) / 2.0, size.right / 2.0,
                                       (size.height - size.bottom) / 2.0};
            for (int k = 0; k < 4; ++k) EXPECT_NEAR(ink[k], area[k], 1.5) << k;
            // The top edge runs across the sheet upright, and along it turned.
            auto b = Ink(*bar);
            int across = b[2] - b[0], along = b[3] - b[1];
            if (orientation == 1) {
                EXPECT_NEAR(b[1], area[1], 1.5);
                EXPECT_GT(across, 5 * along);
            } else {
                EXPECT_GT(along, 5 * across);
                EXPECT_TRUE(std::abs(b[0] - area[0]) <= 1.5 || std::abs(b[2] - area[2]) <= 1.5);
            }
        }
    }
    // The custom page the printer can't take isn't offered.
    Display *d = QlVaOpenPrinter("Pages", "cat >/dev/null", "PostScript", 0);
    int n = 0;
    char **names = QlListPageSizes(d, &n);
    std::string listed;
    for (int i = 0; i < n; ++i) listed += std::string(names[i]) + " ";
    EXPECT_EQ(listed, "Letter A4 Legal Card ");
    QlClosePrinter(d);
}
