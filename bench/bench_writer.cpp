// The cost of a document's frame.  The number writer against printf is in
// bench_vs_cairo.
#include <benchmark/benchmark.h>

#include "core/qlint.h"

#include <cstdio>

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
