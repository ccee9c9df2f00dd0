// The number writer against the C library's printf, and the cost of a
// document's frame.
#include <benchmark/benchmark.h>

#include "core/out.h"
#include "core/qlint.h"

#include <cstdio>

// One line of two points, through the library's writer or through fprintf.
template <bool Writer>
static void BM_Points(benchmark::State &state) {
    FILE *f = std::fopen("/dev/null", "w");
    double x = 12.345;
    for (auto _ : state) {
        if constexpr (Writer) ql::put(f, "%.2f %.2f lo\n", x, x * 3.7);
        else std::fprintf(f, "%.2f %.2f lo\n", x, x * 3.7);
        x += 0.01;
    }
    std::fclose(f);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Points<true>)->Name("BM_WriterPoints");
BENCHMARK(BM_Points<false>)->Name("BM_PrintfPoints");

// Start, ten empty pages, end; spooled into /dev/null.
static void BM_DocumentFrame(benchmark::State &state) {
    QlSetErrorHandler([](QlErrorRecord *) { return 0; });
    Display *d = QlVaOpenPrinter(nullptr, "cat >/dev/null", nullptr, 0);
    if (!d) {
        state.SkipWithError("no printer: set QLPATH to the data directory");
        return;
    }
    for (auto _ : state) {
        QlStartDoc(d, "bench");
        for (int i = 0; i < 10; ++i) {
            QlStartPage(d);
            QlEndPage(d);
        }
        QlEndDoc(d);
    }
    QlClosePrinter(d);
}
BENCHMARK(BM_DocumentFrame)->Unit(benchmark::kMillisecond);
