// Image data: each encoder's throughput over a 2000x2000 RGB picture.  The
// whole QlPutImage against cairo is in bench_vs_cairo.
#include <benchmark/benchmark.h>

#include "core/encode.h"

#include <cstdint>
#include <cstdio>
#include <vector>

namespace {

constexpr int kSide = 2000;

// A smooth picture with some grain: what a photograph or a rendered chart
// gives an encoder, neither all runs nor all noise.  0x00BBGGRR per pixel.
uint32_t Pixel(int x, int y) {
    const uint32_t grain = (static_cast<uint32_t>(x * 7919 + y * 104729) >> 3) & 7;
    const uint32_t r = (x * 255 / kSide + grain) & 0xFF, g = (y * 255 / kSide) & 0xFF, b = ((x + y) / 16) & 0xFF;
    return r | g << 8 | b << 16;
}

const std::vector<uint8_t> &Rows() {  // kSide rows of kSide RGB pixels
    static const std::vector<uint8_t> rows = [] {
        std::vector<uint8_t> v;
        v.reserve(size_t{kSide} * kSide * 3);
        for (int y = 0; y < kSide; ++y)
            for (int x = 0; x < kSide; ++x) {
                const uint32_t p = Pixel(x, y);
                v.insert(v.end(), {uint8_t(p), uint8_t(p >> 8), uint8_t(p >> 16)});
            }
        return v;
    }();
    return rows;
}

struct DevNull {
    FILE *f = std::fopen("/dev/null", "w");
    ~DevNull() { std::fclose(f); }
};

void Encoded(benchmark::State &state, int bytesIn) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * bytesIn);
}

void BM_EncodeHex(benchmark::State &state) {
    DevNull out;
    const auto &rows = Rows();
    for (auto _ : state) ql::PutHex(out.f, rows);
    Encoded(state, static_cast<int>(rows.size()));
}

// The picture's rows through a row encoder, a byte at a time, as the
// driver feeds it.
template <typename Encoder>
void FeedRows(Encoder &encoder) {
    const auto &rows = Rows();
    for (size_t at = 0; at < rows.size(); at += kSide * 3) {
        encoder.StartRow();
        for (size_t i = at; i < at + kSide * 3; ++i) encoder.Add(rows[i]);
        encoder.EndRow();
    }
}

void BM_EncodeAscii85RunLength(benchmark::State &state) {
    DevNull out;
    for (auto _ : state) {
        ql::Ascii85Writer a85;
        a85.Reset(out.f);
        ql::RunLengthRow runs(a85);
        FeedRows(runs);
        runs.EndData();
    }
    Encoded(state, static_cast<int>(Rows().size()));
}

void BM_EncodeRowDelta(benchmark::State &state) {
    DevNull out;
    for (auto _ : state) {
        ql::RowDeltaWriter delta;
        delta.Start(out.f, kSide * 3);
        FeedRows(delta);
    }
    Encoded(state, static_cast<int>(Rows().size()));
}

BENCHMARK(BM_EncodeHex)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EncodeAscii85RunLength)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EncodeRowDelta)->Unit(benchmark::kMillisecond);

}  // namespace
