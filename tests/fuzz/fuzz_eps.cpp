// Fuzz target for the EPS reader: the input is an EPS file whose preview is
// read, whose bounding box is looked up, and which is placed on a page of
// a PostScript document, header, preview and body alike.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "drivers/ps/ps.h"
#include "scratch.h"

namespace {

// One printer with a page open for the whole run; its document is thrown
// away now and then so that the temporary file stays small.
Display *Printer() {
    static Display *printer = nullptr;
    static bool tried = false;
    static int placed = 0;
    if (!tried) {
        tried = true;
        setenv("QLTMPDIR", qlfuzz::Scratch().c_str(), 1);
        printer = QlVaOpenPrinter(nullptr, "cat >/dev/null", "PostScript", 0);
        if (printer) std::atexit([] {
                QlAbortDoc(printer);
                QlClosePrinter(printer);
            });
    }
    if (printer && placed++ % 64 == 0) {
        QlAbortDoc(printer);
        if (!QlStartDoc(printer, "fuzz") || !QlStartPage(printer)) return nullptr;
    }
    return printer;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    qlfuzz::Scratch();
    if (size == 0) return 0;
    FILE *fp = fmemopen(const_cast<uint8_t *>(data), size, "rb");
    if (!fp) return 0;
    if (QlEPSPreview *preview = QlEPS_GetPreview(fp)) {
        std::free(preview->data);
        std::free(preview);
    }
    if (Display *printer = Printer()) {
        std::free(QlEPS_GetBoundingBox(printer, fp));
        // Placement values from the input's first bytes, so that rotations
        // and odd scales come up too.
        double param[5] = {100, 200, 1, 1, 0};
        const double step[5] = {50, 50, 0.5, 0.5, 30};
        for (size_t i = 0; i < 5 && i < size; ++i) param[i] += (static_cast<int8_t>(data[i]) % 7) * step[i];
        ps::FreeEPSInfo(QlEPS_Put(printer, fp, param));
    }
    std::fclose(fp);
    return 0;
}
