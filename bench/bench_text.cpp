// String metrics on a printer font: what measuring a string costs, and a
// kerning lookup.  The font is made by hand as a driver makes it: 256
// cells, a width table and a list of kerning pairs.
#include <benchmark/benchmark.h>

#include "fontdata/parseafm.h"
#include "text/font.h"

#include <qualin/Ql.h>

#include <vector>

namespace {

struct HandFont {
    QlFontRec rec{};
    std::vector<XCharStruct> cells = std::vector<XCharStruct>(256, XCharStruct{0, 5, 6, 8, 2, 0});
    std::vector<float> table = std::vector<float>(259);
    std::vector<PairKernData> pairs;
    ql::KernBlock tracks{}, kerns{12, 72, 0, nullptr};
    XExtData ext[3]{};
    XFontStruct fs{};
    // Names of the pairs: every capital before every small letter.
    std::vector<char> names;

    HandFont() {
        for (int c = 0; c < 256; ++c) table[c] = 4.0f + static_cast<float>(c % 13) * 0.37f;
        table[256] = 4, table[257] = 8.44f, table[258] = table[0];
        fs.min_char_or_byte2 = 0;
        fs.max_char_or_byte2 = 255;
        fs.per_char = cells.data();
        fs.fid = reinterpret_cast<Font>(&rec);
        for (int c = 0; c < 256; ++c) names.push_back(static_cast<char>(c)), names.push_back(0);
        for (int a = 'A'; a <= 'Z'; ++a)
            for (int b = 'a'; b <= 'z'; ++b) pairs.push_back({&names[2 * a], &names[2 * b], -(a + b) % 90, 0});
        kerns.count = static_cast<long>(pairs.size());
        kerns.records = pairs.data();
        ext[0] = {ql::kPrinterFontMark, &ext[1], nullptr, reinterpret_cast<XPointer>(table.data())};
        ext[1] = {0, &ext[2], nullptr, reinterpret_cast<XPointer>(&tracks)};
        ext[2] = {0, nullptr, nullptr, reinterpret_cast<XPointer>(&kerns)};
        fs.ext_data = ext;
    }
};

void BM_TextWidth20(benchmark::State &state) {
    HandFont font;
    const char text[] = "Printed at 300 dpi.\n";  // 20 characters
    for (auto _ : state) {
        benchmark::DoNotOptimize(text);
        benchmark::DoNotOptimize(QlTextWidth(&font.fs, text, 20));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TextWidth20);

// A pair near the end of 676, looked up in the reverse order.
void BM_KernPairX(benchmark::State &state) {
    HandFont font;
    int first = 'y', second = 'W';
    for (auto _ : state) {
        benchmark::DoNotOptimize(first);
        benchmark::DoNotOptimize(QlKernPairX(&font.fs, first, second));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_KernPairX);

}  // namespace
