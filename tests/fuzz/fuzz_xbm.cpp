// Fuzz target for the bitmap file reader: the input is read as a bitmap
// file, and whatever it gives must be whole.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "gfx/bitmap.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    FILE *fp = fmemopen(const_cast<uint8_t *>(data), size, "r");
    if (!fp) return 0;
    QlBitmapData bitmap;
    const int rc = _QlReadBitmapStream(fp, bitmap);
    std::fclose(fp);
    if (rc != 0 && rc != BitmapFileInvalid && rc != BitmapNoMemory) std::abort();
    if (rc == 0) {
        // Every row of the size read is there.
        if (bitmap.width == 0 || bitmap.height == 0) std::abort();
        if (bitmap.bits.size() != (bitmap.width + 7ULL) / 8 * bitmap.height) std::abort();
        volatile unsigned char sink = 0;
        for (unsigned char b : bitmap.bits) sink = sink ^ b;
    }
    return 0;
}
