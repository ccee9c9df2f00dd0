// Fuzz target for the AFM reader: the input is parsed keeping everything,
// then in the widths-only form, then keeping nothing, and released.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>

#include "fontdata/parseafm.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    FILE *fp = fmemopen(const_cast<uint8_t *>(data), size, "r");
    if (!fp) return 0;
    for (int flags : {63, 63 & ~kAfmMetrics, 0}) {
        std::rewind(fp);
        FontInfo *fi = nullptr;
        int rc = parseFile(fp, &fi, flags);
        if (rc < -3 || rc > 0 || !fi) std::abort();
        // Every record a count promises must be there to read.
        volatile int sink = 0;
        for (int i = 0; fi->cmi && i < fi->numOfChars; ++i) sink = sink ^ fi->cmi[i].wx;
        for (int i = 0; fi->pkd && i < fi->numOfPairs; ++i) sink = sink ^ fi->pkd[i].xamt;
        for (int i = 0; fi->tkd && i < fi->numOfTracks; ++i) sink = sink ^ fi->tkd[i].degree;
        for (int i = 0; fi->ccd && i < fi->numOfComps; ++i) {
            const CompCharData &c = fi->ccd[i];
            for (int j = 0; c.pieces && j < c.numOfPieces; ++j) sink = sink ^ c.pieces[j].deltax;
        }
        freeStorage(fi);
    }
    std::rewind(fp);
    int widths[256];
    initializeArray(fp, widths);
    std::fclose(fp);
    return 0;
}
