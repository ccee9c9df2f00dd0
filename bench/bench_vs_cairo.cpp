// The library's PostScript output against cairo's PostScript surface: the
// same workloads through both, each a whole document written to a real
// file (removed afterwards), in one run.  Prints one table: items per
// second, their ratio, bytes per item and each engine's peak memory, the
// latter measured in a child process of its own (this binary run again
// with --peak), so that no workload's peak hides another's.  Then the cost
// of one line record through three formatters against a QlDrawLine, and
// the peak memory of a million lines on one page and on a thousand.
#include <benchmark/benchmark.h>

#include "core/out.h"

#include <qualin/Ql.h>

#include <cairo-ps.h>
#include <cairo.h>

#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr int kSide = 2000;  // the image is kSide x kSide

std::string TempPath() {
    const char *dir = std::getenv("TMPDIR");
    std::string path = std::string(dir && *dir ? dir : "/tmp") + "/qlbench-XXXXXX";
    int fd = mkstemp(path.data());
    if (fd >= 0) close(fd);
    return path;
}

long FileSize(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : 0;
}

// 0x00BBGGRR: smooth with some grain, as a photograph gives an encoder.
uint32_t Pixel(int x, int y) {
    const uint32_t grain = (static_cast<uint32_t>(x * 7919 + y * 104729) >> 3) & 7;
    const uint32_t r = (x * 255 / kSide + grain) & 0xFF, g = (y * 255 / kSide) & 0xFF, b = ((x + y) / 16) & 0xFF;
    return r | g << 8 | b << 16;
}

const char kText[] = "Printed at 300 dpi. ";  // 20 characters

// A document through the public API; the calls of each workload.
class QualinDoc {
public:
    explicit QualinDoc(const std::string &path, int level = 1) {
        QlSetErrorHandler([](QlErrorRecord *) { return 0; });
        d_ = QlVaOpenPrinter(nullptr, ("cat >" + path).c_str(), "PostScript", 0);
        if (!d_) return;
        QlSetPSColor(d_, 1);
        QlSetPSLevel(d_, level);
        gc_ = QlCreateGC(d_, 0, 0, nullptr);
        const unsigned short levels[4][3] = {{65535, 0, 0}, {0, 40000, 0}, {0, 0, 65535}, {30000, 30000, 30000}};
        for (int c = 0; c < 4; ++c) {
            XColor x{};
            x.red = levels[c][0], x.green = levels[c][1], x.blue = levels[c][2];
            QlAllocColor(d_, 0, &x);
            pixels_[c] = x.pixel;
        }
        QlStartDoc(d_, "bench");
        QlStartPage(d_);
    }
    ~QualinDoc() {
        if (!d_) return;
        QlEndPage(d_);
        QlEndDoc(d_);
        QlFreeGC(d_, gc_);
        QlClosePrinter(d_);
    }
    bool ok() const { return d_ != nullptr; }
    void page() {
        QlEndPage(d_);
        QlStartPage(d_);
    }
    void line(int i) { QlDrawLine(d_, 0, gc_, i % 2000, 100 + i % 3000, 2390 - i % 2000, 3000 - i % 2900); }
    void rect(int i) {
        if (i % 10 == 0) QlSetForeground(d_, gc_, pixels_[i / 10 % 4]);
        QlFillRectangle(d_, 0, gc_, i % 2000, i % 3000, 40, 30);
    }
    void arc(int i) { QlDrawArc(d_, 0, gc_, i % 2000, i % 3000, 60 + (i & 1) * (i % 40), 60, 0, 360 * 64); }
    void polygon(int i) {
        const short x = static_cast<short>(i % 2000), y = static_cast<short>(i % 3000);
        XPoint pts[6] = {{x, y}, {short(x + 30), y}, {short(x + 45), short(y + 20)}, {short(x + 30), short(y + 40)},
                         {x, short(y + 40)}, {short(x - 15), short(y + 20)}};
        QlFillPolygon(d_, 0, gc_, pts, 6, Convex, CoordModeOrigin);
    }
    void text(int i) {
        if (!font_) QlSetFont(d_, gc_, font_ = QlLoadFont(d_, "-adobe-helvetica-medium-r-normal--*-120-*"));
        QlDrawString(d_, 0, gc_, i % 2000, 50 + i % 3000, kText, 20);
    }
    // The picture is made once, by the first document, and kept.
    void image() {
        static XImage *image = [this] {
            auto *data = static_cast<char *>(std::malloc(size_t{kSide} * kSide * 4));
            XImage *im = QlCreateImage(d_, nullptr, 24, ZPixmap, 0, data, kSide, kSide, 32, 0);
            for (int y = 0; y < kSide; ++y)
                for (int x = 0; x < kSide; ++x) QlPutPixel(im, x, y, Pixel(x, y));
            return im;
        }();
        QlPutImage(d_, 0, gc_, image, 0, 0, 0, 0, kSide, kSide);
    }

private:
    Display *d_ = nullptr;
    GC gc_ = nullptr;
    unsigned long pixels_[4] = {};
    Font font_ = 0;
};

// The same drawing on cairo's surface, in the same units: dots of 300 dpi.
class CairoDoc {
public:
    explicit CairoDoc(const std::string &path, int = 1) {
        s_ = cairo_ps_surface_create(path.c_str(), 612, 792);
        cr_ = cairo_create(s_);
        cairo_scale(cr_, 72.0 / 300, 72.0 / 300);
        cairo_set_line_width(cr_, 1);
        cairo_select_font_face(cr_, "Helvetica", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_font_size(cr_, 50);
    }
    ~CairoDoc() {
        cairo_show_page(cr_);
        cairo_destroy(cr_);
        cairo_surface_finish(s_);
        cairo_surface_destroy(s_);
    }
    bool ok() const { return cairo_surface_status(s_) == CAIRO_STATUS_SUCCESS; }
    void page() { cairo_show_page(cr_); }
    void line(int i) {
        cairo_move_to(cr_, i % 2000, 100 + i % 3000);
        cairo_line_to(cr_, 2390 - i % 2000, 3000 - i % 2900);
        cairo_stroke(cr_);
    }
    void rect(int i) {
        static const double levels[4][3] = {{1, 0, 0}, {0, 0.61, 0}, {0, 0, 1}, {0.46, 0.46, 0.46}};
        if (i % 10 == 0) cairo_set_source_rgb(cr_, levels[i / 10 % 4][0], levels[i / 10 % 4][1], levels[i / 10 % 4][2]);
        cairo_rectangle(cr_, i % 2000, i % 3000, 40, 30);
        cairo_fill(cr_);
    }
    void arc(int i) {
        const double w = 60 + (i & 1) * (i % 40), h = 60;
        cairo_save(cr_);
        cairo_translate(cr_, i % 2000 + w / 2, i % 3000 + h / 2);
        cairo_scale(cr_, w / 2, h / 2);
        cairo_new_path(cr_);
        cairo_arc(cr_, 0, 0, 1, 0, 2 * M_PI);
        cairo_restore(cr_);
        cairo_stroke(cr_);
    }
    void polygon(int i) {
        const double x = i % 2000, y = i % 3000;
        cairo_move_to(cr_, x, y);
        const double d[5][2] = {{30, 0}, {45, 20}, {30, 40}, {0, 40}, {-15, 20}};
        for (auto &p : d) cairo_line_to(cr_, x + p[0], y + p[1]);
        cairo_close_path(cr_);
        cairo_fill(cr_);
    }
    void text(int i) {
        cairo_move_to(cr_, i % 2000, 50 + i % 3000);
        cairo_show_text(cr_, kText);
    }
    void image() {
        static cairo_surface_t *src = [] {
            cairo_surface_t *im = cairo_image_surface_create(CAIRO_FORMAT_RGB24, kSide, kSide);
            cairo_surface_flush(im);
            unsigned char *px = cairo_image_surface_get_data(im);
            const int stride = cairo_image_surface_get_stride(im);
            for (int y = 0; y < kSide; ++y)
                for (int x = 0; x < kSide; ++x) {
                    const uint32_t p = Pixel(x, y);
                    reinterpret_cast<uint32_t *>(px + y * stride)[x] = (p & 0xFF) << 16 | (p & 0xFF00) | p >> 16;
                }
            cairo_surface_mark_dirty(im);
            return im;
        }();
        cairo_set_source_surface(cr_, src, 0, 0);
        cairo_paint(cr_);
    }

private:
    cairo_surface_t *s_ = nullptr;
    cairo_t *cr_ = nullptr;
};

// A workload: what one item is, and how many make one document.
struct Workload {
    const char *name;
    int items;     // per document
    int perItem;   // units of work per item: pixels for the image
    int pages;     // the items are spread over this many pages
    int level = 1; // the printer's language level (cairo writes level 3)
};

const Workload kWorkloads[] = {
    {"lines", 20000, 1, 1},   {"rectangles", 20000, 1, 1}, {"arcs", 10000, 1, 1}, {"polygons", 10000, 1, 1},
    {"strings", 10000, 1, 1}, {"image", 1, kSide * kSide, 1}, {"image-L2", 1, kSide * kSide, 1, 2},
    {"mixed", 20000, 1, 1},
};

// One document of a workload: n items on `pages` pages; the file's size.
template <typename Doc>
long Document(const Workload &w, int n, int pages) {
    const std::string path = TempPath();
    {
        Doc doc(path, w.level);
        if (!doc.ok()) return -1;
        const std::string_view name = w.name;
        const int perPage = std::max(n / std::max(pages, 1), 1);
        for (int i = 0; i < n; ++i) {
            if (i && i % perPage == 0) doc.page();
            if (name == "lines") doc.line(i);
            else if (name == "rectangles") doc.rect(i);
            else if (name == "arcs") doc.arc(i);
            else if (name == "polygons") doc.polygon(i);
            else if (name.starts_with("image")) doc.image();
            else if (name == "strings") doc.text(i);
            else switch (i % 5) {  // a mixed page
                case 0: doc.line(i); break;
                case 1: doc.rect(i); break;
                case 2: doc.arc(i); break;
                case 3: doc.polygon(i); break;
                default: doc.text(i); break;
                }
        }
    }
    const long size = FileSize(path);
    std::remove(path.c_str());
    return size;
}

long Run(bool cairo, const Workload &w, int n, int pages) {
    return cairo ? Document<CairoDoc>(w, n, pages) : Document<QualinDoc>(w, n, pages);
}

template <bool Cairo>
void BM_Workload(benchmark::State &state, const Workload *w) {
    long size = 0;
    for (auto _ : state) size = Run(Cairo, *w, w->items, w->pages);
    if (size < 0) return state.SkipWithError("no printer: set QLPATH to the data directory");
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * w->items * w->perItem);
    state.counters["bytes_per_item"] = static_cast<double>(size) / (double(w->items) * w->perItem);
}

// The four numbers of a line record, "%.2f %.2f %.2f %.2f DL\n", formatted
// three ways into a buffer; and the whole QlDrawLine that writes it.
double Coordinate(int i) { return (i % 2400) * (72.0 / 300); }

void BM_RecordSnprintf(benchmark::State &state) {
    char buf[128];
    int i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(std::snprintf(buf, sizeof buf, "%.2f %.2f %.2f %.2f DL\n", Coordinate(i),
                                               Coordinate(i + 7), Coordinate(i + 500), Coordinate(i + 900)));
        ++i;
    }
    state.SetItemsProcessed(state.iterations());
}

template <typename Number>
void Record(benchmark::State &state, Number number) {
    char buf[128];
    int i = 0;
    for (auto _ : state) {
        char *p = buf;
        for (int k : {0, 7, 500, 900}) {
            p = number(p, buf + sizeof buf, Coordinate(i + k));
            *p++ = ' ';
        }
        std::memcpy(p, "DL\n", 3);
        benchmark::DoNotOptimize(p);
        benchmark::ClobberMemory();
        ++i;
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_RecordToChars(benchmark::State &state) {
    Record(state, [](char *p, char *end, double v) { return std::to_chars(p, end, v, std::chars_format::fixed, 2).ptr; });
}

void BM_RecordFixed(benchmark::State &state) {
    Record(state, [](char *p, char *, double v) { return ql::FormatFixed(p, v, 2); });
}

void BM_QlDrawLine(benchmark::State &state) {
    const std::string path = TempPath();
    {
        QualinDoc doc(path);
        if (!doc.ok()) return state.SkipWithError("no printer: set QLPATH to the data directory");
        int i = 0;
        for (auto _ : state) doc.line(i++);
    }
    std::remove(path.c_str());
    state.SetItemsProcessed(state.iterations());
}

// Child mode: one document, then this process's peak (VmHWM, kB) on stdout.
int PeakChild(char **argv) {
    const bool cairo = std::strcmp(argv[2], "cairo") == 0;
    const std::string_view name = argv[3];
    for (const Workload &w : kWorkloads)
        if (name == w.name) Run(cairo, w, std::atoi(argv[4]), std::atoi(argv[5]));
    FILE *status = std::fopen("/proc/self/status", "r");
    char line[256];
    while (status && std::fgets(line, sizeof line, status))
        if (std::strncmp(line, "VmHWM:", 6) == 0) std::fputs(line + 6, stdout);
    if (status) std::fclose(status);
    return 0;
}

// Peak resident memory of a fresh process that runs one document, in MiB.
double PeakMiB(const char *engine, const char *workload, int n, int pages) {
    char self[4096];
    const ssize_t len = readlink("/proc/self/exe", self, sizeof self - 1);
    if (len <= 0) return -1;
    self[len] = 0;
    const std::string command = std::string(self) + " --peak " + engine + " " + workload + " " +
                                std::to_string(n) + " " + std::to_string(pages);
    FILE *child = popen(command.c_str(), "r");
    long kb = -1;
    if (child && std::fscanf(child, "%ld", &kb) != 1) kb = -1;
    if (child) pclose(child);
    return kb / 1024.0;
}

// Collects the medians instead of printing the runs.
class Collector : public benchmark::BenchmarkReporter {
public:
    std::map<std::string, benchmark::BenchmarkReporter::Run> runs;
    bool ReportContext(const Context &) override { return true; }
    void ReportRuns(const std::vector<Run> &rs) override {
        for (const Run &r : rs)
            if (r.aggregate_name == "median") runs[r.run_name.function_name] = r;
    }
    double counter(const std::string &name, const char *key) {
        auto it = runs.find(name);
        if (it == runs.end() || it->second.error_occurred) return 0;
        auto c = it->second.counters.find(key);
        return c == it->second.counters.end() ? 0 : double(c->second);
    }
    double nsPerItem(const std::string &name) {
        const double rate = counter(name, "items_per_second");
        return rate > 0 ? 1e9 / rate : 0;
    }
};

std::string Rate(double v) {
    char buf[32];
    if (v >= 1e6) std::snprintf(buf, sizeof buf, "%.2fM", v / 1e6);
    else std::snprintf(buf, sizeof buf, "%.1fk", v / 1e3);
    return buf;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 6 && std::strcmp(argv[1], "--peak") == 0) return PeakChild(argv);
    // A filtered run (for a profiler) leaves out the child processes.
    bool peaks = true;
    for (int i = 1; i < argc; ++i) peaks = peaks && std::strncmp(argv[i], "--benchmark_filter", 18) != 0;
    if (!std::getenv("QLPATH")) std::fprintf(stderr, "bench_vs_cairo: QLPATH should name the data directory\n");
    for (const Workload &w : kWorkloads) {
        for (bool cairo : {false, true})
            benchmark::RegisterBenchmark((std::string(cairo ? "cairo/" : "qualin/") + w.name).c_str(),
                                         cairo ? BM_Workload<true> : BM_Workload<false>, &w)
                ->Unit(benchmark::kMillisecond)
                ->Repetitions(3)
                ->ReportAggregatesOnly(true);
    }
    // The machine is shared: each figure is the median of repeated runs.
    using Bench = void (*)(benchmark::State &);
    const std::pair<const char *, Bench> records[] = {{"record/snprintf", BM_RecordSnprintf},
                                                      {"record/to_chars", BM_RecordToChars},
                                                      {"record/fixed", BM_RecordFixed},
                                                      {"record/QlDrawLine", BM_QlDrawLine}};
    for (auto [name, fn] : records) benchmark::RegisterBenchmark(name, fn)->Repetitions(5)->ReportAggregatesOnly(true);
    benchmark::Initialize(&argc, argv);
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);

    std::printf("\nPostScript output, qualin vs cairo (one run, medians; a shared machine: compare within the run)\n");
    std::printf("%-11s %12s %12s %8s %12s %12s %10s %10s\n", "workload", "qualin/s", "cairo/s", "ratio",
                "B/item ql", "B/item cairo", "peak ql", "peak cairo");
    for (const Workload &w : kWorkloads) {
        const double q = collector.counter(std::string("qualin/") + w.name, "items_per_second");
        const double c = collector.counter(std::string("cairo/") + w.name, "items_per_second");
        const double qb = collector.counter(std::string("qualin/") + w.name, "bytes_per_item");
        const double cb = collector.counter(std::string("cairo/") + w.name, "bytes_per_item");
        std::printf("%-11s %12s %12s %7.1fx %12.2f %12.2f %7.1fMiB %7.1fMiB\n", w.name, Rate(q).c_str(),
                    Rate(c).c_str(), c > 0 ? q / c : 0.0, qb, cb, peaks ? PeakMiB("qualin", w.name, w.items, 1) : 0,
                    peaks ? PeakMiB("cairo", w.name, w.items, 1) : 0);
    }
    std::printf("(image: items are pixels, grey at level 1 as that level writes it, colour at level 2; peak memory\n"
                " of a child process running one document)\n\n");

    double fastest = 0;
    for (auto [name, fn] : records) {
        if (fn == BM_QlDrawLine) continue;
        const double ns = collector.nsPerItem(name);
        std::printf("line record via %-9s %8.1f ns\n", name + 7, ns);
        if (ns > 0 && (fastest == 0 || ns < fastest)) fastest = ns;
    }
    const double line = collector.nsPerItem("record/QlDrawLine");
    std::printf("QlDrawLine on a printer    %8.1f ns  = %.2fx the fastest formatter\n\n", line,
                fastest > 0 ? line / fastest : 0.0);

    const Workload &lines = kWorkloads[0];
    if (!peaks) return 0;
    std::printf("peak memory, qualin: 1,000,000 lines on 1 page %.1f MiB, on 1000 pages %.1f MiB; "
                "10,000 lines on 1 page %.1f MiB\n",
                PeakMiB("qualin", lines.name, 1000000, 1), PeakMiB("qualin", lines.name, 1000000, 1000),
                PeakMiB("qualin", lines.name, 10000, 1));
    std::printf("peak memory, cairo:  1,000,000 lines on 1 page %.1f MiB; 10,000 lines on 1 page %.1f MiB\n",
                PeakMiB("cairo", lines.name, 1000000, 1), PeakMiB("cairo", lines.name, 10000, 1));
    benchmark::Shutdown();
    return 0;
}
