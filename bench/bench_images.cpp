// Image data: each encoder's throughput, and a 2000x2000 TrueColor image
// put on a PostScript page by the library and by cairo's PostScript surface.
#include <benchmark/benchmark.h>

#include "core/encode.h"

#include <qualin/Ql.h>

#include <cairo-ps.h>
#include <cairo.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
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

// The same picture as a printer's depth-24 image (red in the low byte).
XImage *PrinterImage(Display *printer) {
    auto *data = static_cast<char *>(std::malloc(size_t{kSide} * kSide * 4));
    XImage *image = QlCreateImage(printer, nullptr, 24, ZPixmap, 0, data, kSide, kSide, 32, 0);
    for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x) QlPutPixel(image, x, y, Pixel(x, y));
    return image;
}

// A whole one-page document with the image, as an application prints it:
// range(0) is the language level, range(1) 1 for compressed data.
void BM_QualinPutImage(benchmark::State &state) {
    QlSetErrorHandler([](QlErrorRecord *) { return 0; });
    Display *printer = QlVaOpenPrinter(nullptr, "cat >/dev/null", nullptr, 0);
    if (!printer) {
        state.SkipWithError("no printer: set QLPATH to the data directory");
        return;
    }
    auto *p = reinterpret_cast<QlPrinter *>(printer);
    QlSetPSColor(printer, 1);
    XImage *image = PrinterImage(printer);
    GC gc = QlCreateGC(printer, 0, 0, nullptr);
    for (auto _ : state) {
        p->level = static_cast<int>(state.range(0));
        p->bitmapCompression = static_cast<int>(state.range(1));
        QlStartDoc(printer, "bench");
        QlStartPage(printer);
        QlPutImage(printer, 0, gc, image, 0, 0, 0, 0, kSide, kSide);
        QlEndPage(printer);
        QlEndDoc(printer);
    }
    QlFreeGC(printer, gc);
    QlDestroyImage(image);
    QlClosePrinter(printer);
    Encoded(state, kSide * kSide * 3);
}
BENCHMARK(BM_QualinPutImage)
    ->ArgNames({"level", "compressed"})
    ->Args({2, 0})
    ->Args({2, 1})
    ->Args({1, 1})
    ->Unit(benchmark::kMillisecond);

// cairo's PostScript surface painting the same pixels, one page.
void BM_CairoPaintImage(benchmark::State &state) {
    const auto &rows = Rows();
    cairo_surface_t *src = cairo_image_surface_create(CAIRO_FORMAT_RGB24, kSide, kSide);
    cairo_surface_flush(src);
    unsigned char *px = cairo_image_surface_get_data(src);
    const int stride = cairo_image_surface_get_stride(src);
    for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x) {
            const uint8_t *rgb = &rows[(size_t{static_cast<size_t>(y)} * kSide + x) * 3];
            reinterpret_cast<uint32_t *>(px + y * stride)[x] = uint32_t{rgb[0]} << 16 | uint32_t{rgb[1]} << 8 | rgb[2];
        }
    cairo_surface_mark_dirty(src);
    for (auto _ : state) {
        cairo_surface_t *ps = cairo_ps_surface_create("/dev/null", 612, 792);
        cairo_t *cr = cairo_create(ps);
        cairo_scale(cr, 72.0 / 300, 72.0 / 300);
        cairo_set_source_surface(cr, src, 0, 0);
        cairo_paint(cr);
        cairo_show_page(cr);
        cairo_destroy(cr);
        cairo_surface_finish(ps);
        cairo_surface_destroy(ps);
    }
    cairo_surface_destroy(src);
    Encoded(state, kSide * kSide * 3);
}
BENCHMARK(BM_CairoPaintImage)->Unit(benchmark::kMillisecond);

}  // namespace
