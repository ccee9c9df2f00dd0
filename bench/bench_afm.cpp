// The AFM reader over a real font: Helvetica's metrics (855 characters,
// 3838 kerning pairs), parsed from memory as the font driver asks for them,
// and read past keeping nothing.
#include <benchmark/benchmark.h>

#include "fontdata/parseafm.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace {

// The generated file of the configuration directory, or the URW original.
std::string HelveticaMetrics() {
    const char *dir = std::getenv("QLPATH");
    for (std::string path : {std::string(dir ? dir : ".") + "/fontmetrics/afm/Helvetica.afm",
                             std::string("/usr/share/fonts/type1/urw-base35/NimbusSans-Regular.afm")}) {
        std::ifstream in(path, std::ios::binary);
        if (in) return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }
    return {};
}

void BM_ParseAfm(benchmark::State &state, int flags) {
    std::string text = HelveticaMetrics();
    if (text.empty()) {
        state.SkipWithError("no Helvetica metrics: set QLPATH to the build's share/qualin");
        return;
    }
    long records = 0;
    for (auto _ : state) {
        FILE *fp = fmemopen(text.data(), text.size(), "r");
        FontInfo *fi = nullptr;
        if (parseFile(fp, &fi, flags) != 0) state.SkipWithError("parse failed");
        records += fi->numOfChars + fi->numOfPairs + fi->numOfTracks;
        freeStorage(fi);
        std::fclose(fp);
    }
    // Records kept: characters, pairs and tracks of each parse.
    if (flags) state.SetItemsProcessed(records);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}

}  // namespace

// What the font driver asks for: globals, metrics, pairs and tracks (the
// widths bit gives way to the metrics).
BENCHMARK_CAPTURE(BM_ParseAfm, driver, kAfmGlobals | kAfmMetrics | kAfmPairs | kAfmTracks)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_ParseAfm, nothing_kept, 0)->Unit(benchmark::kMicrosecond);
