// Fuzz target for the image encoders: the input's first byte chooses a row
// length, the rest are the rows' bytes.  Each encoder writes them into
// memory, and a small reference decoder of the form reads them back; any
// difference aborts.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "../support/decode_ref.h"

namespace {

using qltest::Bytes;

void Check(bool ok) {
    if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    // Rows of 1 to 255 bytes, or the whole input as one row.
    const size_t width = data[0] == 0 ? size - 1 : data[0];
    const Bytes all(data + 1, data + size);
    std::vector<Bytes> rows;
    for (size_t at = 0; width > 0 && at + width <= all.size(); at += width)
        rows.emplace_back(all.begin() + static_cast<long>(at), all.begin() + static_cast<long>(at + width));
    Bytes whole;
    for (const Bytes &r : rows) whole.insert(whole.end(), r.begin(), r.end());

    Check(qltest::DecodeHex(qltest::EncodeHex(all)) == all);
    Check(qltest::DecodeAscii85(qltest::EncodeAscii85(all)) == all);
    const std::string runs = qltest::EncodeRuns(rows);
    std::optional<Bytes> packed = qltest::DecodeAscii85(runs);
    Check(packed && qltest::DecodeRunLength(*packed) == whole);
    // Whole rows at once make the same text as a byte at a time.
    Check(qltest::EncodeRuns(rows, true) == runs);
    if (!rows.empty()) {
        const std::string delta = qltest::EncodeDelta(rows);
        Check(qltest::DecodeRowDelta(delta, width, rows.size()) == rows);
        Check(qltest::EncodeDelta(rows, true) == delta);
    }
    return 0;
}
