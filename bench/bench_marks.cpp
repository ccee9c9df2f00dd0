// Drawing calls on a PostScript printer: what one mark costs, end to end
// through the public API, with the page body going to a real file.
#include <benchmark/benchmark.h>

#include <qualin/Ql.h>

#include <cstdio>

namespace {

// A printer with one page open; the document is dropped at the end.
struct OpenPage {
    Display *d = nullptr;
    GC gc = nullptr;
    OpenPage() {
        QlSetErrorHandler([](QlErrorRecord *) { return 0; });
        d = QlVaOpenPrinter(nullptr, "cat >/dev/null", nullptr, 0);
        if (!d) return;
        QlSetPSColor(d, 1);
        gc = QlCreateGC(d, 0, 0, nullptr);
        QlStartDoc(d, "bench");
        QlStartPage(d);
    }
    ~OpenPage() {
        if (!d) return;
        QlAbortDoc(d);
        QlFreeGC(d, gc);
        QlClosePrinter(d);
    }
};

void BM_DrawLine(benchmark::State &state) {
    OpenPage page;
    if (!page.d) return state.SkipWithError("no printer: set QLPATH to the data directory");
    int i = 0;
    for (auto _ : state) {
        QlDrawLine(page.d, 0, page.gc, i % 2000, 100 + i % 3000, 2390 - i % 2000, 3000 - i % 2900);
        ++i;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DrawLine);

// Filled rectangles, a new colour every ten.
void BM_FillRectangleColours(benchmark::State &state) {
    OpenPage page;
    if (!page.d) return state.SkipWithError("no printer: set QLPATH to the data directory");
    unsigned long pixels[4];
    const unsigned short levels[4][3] = {{65535, 0, 0}, {0, 40000, 0}, {0, 0, 65535}, {30000, 30000, 30000}};
    for (int c = 0; c < 4; ++c) {
        XColor x{};
        x.red = levels[c][0];
        x.green = levels[c][1];
        x.blue = levels[c][2];
        QlAllocColor(page.d, 0, &x);
        pixels[c] = x.pixel;
    }
    int i = 0;
    for (auto _ : state) {
        if (i % 10 == 0) QlSetForeground(page.d, page.gc, pixels[i / 10 % 4]);
        QlFillRectangle(page.d, 0, page.gc, i % 2000, i % 3000, 40, 30);
        ++i;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FillRectangleColours);

void BM_FillArc(benchmark::State &state) {
    OpenPage page;
    if (!page.d) return state.SkipWithError("no printer: set QLPATH to the data directory");
    int i = 0;
    for (auto _ : state) {
        QlFillArc(page.d, 0, page.gc, i % 2000, i % 3000, 60 + i % 40, 60, 0, 360 * 64);
        ++i;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FillArc);

void BM_FillPolygon6(benchmark::State &state) {
    OpenPage page;
    if (!page.d) return state.SkipWithError("no printer: set QLPATH to the data directory");
    int i = 0;
    for (auto _ : state) {
        short x = static_cast<short>(i % 2000), y = static_cast<short>(i % 3000);
        XPoint pts[6] = {{x, y}, {short(x + 30), y}, {short(x + 45), short(y + 20)}, {short(x + 30), short(y + 40)},
                         {x, short(y + 40)}, {short(x - 15), short(y + 20)}};
        QlFillPolygon(page.d, 0, page.gc, pts, 6, Convex, CoordModeOrigin);
        ++i;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FillPolygon6);

}  // namespace
