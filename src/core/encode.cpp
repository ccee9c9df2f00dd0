#include "core/encode.h"

#include "core/out.h"

#include <algorithm>
#include <cstring>

namespace ql {

namespace {

// Equal bytes in a row that end a changed stretch: fewer would cost more in
// a new stretch's head (6 digits) than they save.
constexpr int kEqualRun = 13;
constexpr size_t kLongestStretch = 255;
// The largest offset that 4 hexadecimal digits hold.
constexpr size_t kLargestOffset = 0xFFFF;

// Whether any of the eight bytes of `v` is zero.
constexpr bool hasZeroByte(uint64_t v) {
    return ((v - 0x0101010101010101ULL) & ~v & 0x8080808080808080ULL) != 0;
}

char *hexPair(char *o, uint8_t b) {
    std::memcpy(o, &kHexPairs[2 * b], 2);
    return o + 2;
}

// One ASCII85 group of the four bytes of `v` into `o`; returns the end.
char *ascii85Group(char *o, uint32_t v, int n) {
    if (n == 4 && v == 0) {
        *o = 'z';
        return o + 1;
    }
    // The five base-85 digits as two short chains of division, which can
    // run side by side: v is below 85^5, so its top part below 85^2.
    const uint32_t top = v / 614125u, low = v % 614125u, mid = low / 85;
    const char digits[5] = {static_cast<char>(top / 85 + 33), static_cast<char>(top % 85 + 33),
                            static_cast<char>(mid / 85 + 33), static_cast<char>(mid % 85 + 33),
                            static_cast<char>(low % 85 + 33)};
    const int count = std::clamp(n, 1, 4) + 1;
    std::memcpy(o, digits, static_cast<size_t>(count));
    return o + count;
}

}  // namespace

void PutHex(FILE *stream, std::span<const uint8_t> bytes) {
    char buf[4096];
    for (size_t at = 0; at < bytes.size(); at += sizeof buf / 2) {
        const size_t n = std::min(bytes.size() - at, sizeof buf / 2);
        for (size_t i = 0; i < n; ++i) hexPair(buf + 2 * i, bytes[at + i]);
        write(stream, {buf, 2 * n});
    }
}

void PutHex(FILE *stream, uint8_t byte) {
    char two[2];
    hexPair(two, byte);
    write(stream, {two, 2});
}

void Ascii85Output(FILE *stream, const uint8_t (&group)[4], int n) {
    const uint32_t v = uint32_t(group[0]) << 24 | uint32_t(group[1]) << 16 | uint32_t(group[2]) << 8 | group[3];
    char out[5];
    write(stream, {out, static_cast<size_t>(ascii85Group(out, v, n) - out)});
}

void Ascii85Writer::Reset(FILE *stream) {
    stream_ = stream;
    index_ = 0;
    total_ = 0;
}

void Ascii85Writer::Add(uint8_t byte) {
    group_[index_++] = byte;
    ++total_;
    if (index_ == 4) {
        Ascii85Output(stream_, group_, 4);
        index_ = 0;
        if (total_ % 64 == 0) write(stream_, "\n");
    }
}

// Whole groups go straight from the span into a buffer.
void Ascii85Writer::Add(std::span<const uint8_t> bytes) {
    size_t i = 0;
    for (; i < bytes.size() && index_ != 0; ++i) Add(bytes[i]);
    char buf[4096];
    char *o = buf;
    for (; i + 4 <= bytes.size(); i += 4) {
        if (o > buf + sizeof buf - 8) {
            write(stream_, {buf, static_cast<size_t>(o - buf)});
            o = buf;
        }
        const uint8_t *g = &bytes[i];
        o = ascii85Group(o, uint32_t(g[0]) << 24 | uint32_t(g[1]) << 16 | uint32_t(g[2]) << 8 | g[3], 4);
        total_ += 4;
        if (total_ % 64 == 0) *o++ = '\n';
    }
    write(stream_, {buf, static_cast<size_t>(o - buf)});
    for (; i < bytes.size(); ++i) Add(bytes[i]);
}

void Ascii85Writer::Finish() {
    if (index_ != 0) {
        // The bytes behind a partial group are zero, as a decoder assumes:
        // what the group before left there could carry into its own bytes.
        std::fill(group_ + index_, group_ + 4, uint8_t{0});
        Ascii85Output(stream_, group_, index_);
    }
    index_ = 0;
    write(stream_, "~>\n");
}

void RunLengthRow::StartRow() {
    Emit();
    state_ = 0;
    count_ = 0;
}

void RunLengthRow::Begin(uint8_t byte) {
    last_ = byte;
    count_ = 1;
    state_ = 1;
}

void RunLengthRow::Add(uint8_t c) {
    switch (state_) {
    case 0: Begin(c); break;
    case 1:
        if (c == last_) {
            state_ = 3;
            count_ = 2;
        } else {
            buf_[0] = last_;
            buf_[1] = c;
            count_ = 2;
            last_ = c;
            state_ = 2;
        }
        break;
    case 2:
        if (count_ == 128) {
            Flush();
            Begin(c);
        } else if (c != last_) {
            buf_[count_++] = c;
            last_ = c;
        } else {
            // The literal run gives its last byte to a repeat.
            count_ = std::max(count_ - 1, 0);
            Flush();
            Begin(c);
            state_ = 3;
            count_ = 2;
        }
        break;
    default:
        if (count_ == 128 || c != last_) {
            Flush();
            Begin(c);
        } else {
            ++count_;
        }
        break;
    }
}

// The same runs as byte by byte, with the inner loops of the two long
// states taken over a stretch at a time.
void RunLengthRow::Add(std::span<const uint8_t> bytes) {
    const uint8_t *b = bytes.data(), *end = b + bytes.size();
    while (b < end) {
        if (state_ == 3 && *b == last_ && count_ < 128) {
            const uint8_t *stop = b + std::min<ptrdiff_t>(end - b, 128 - count_);
            const uint8_t *q = b;
            while (q < stop && *q == last_) ++q;
            count_ += static_cast<int>(q - b);
            b = q;
        } else if (state_ == 2 && *b != last_ && count_ < 128) {
            const uint8_t *stop = b + std::min<ptrdiff_t>(end - b, 128 - count_);
            uint8_t prev = last_;
            const uint8_t *q = b;
            while (q < stop && *q != prev) prev = *q++;
            std::memcpy(buf_ + count_, b, static_cast<size_t>(q - b));
            count_ += static_cast<int>(q - b);
            last_ = prev;
            b = q;
        } else {
            Add(*b++);
        }
    }
}

void RunLengthRow::Flush() {
    switch (state_) {
    case 1:
        packed_.push_back(0);
        packed_.push_back(last_);
        break;
    case 2:
        packed_.push_back(static_cast<uint8_t>(count_ - 1));
        packed_.insert(packed_.end(), buf_, buf_ + count_);
        break;
    case 3:
        packed_.push_back(static_cast<uint8_t>(257 - count_));
        packed_.push_back(last_);
        break;
    default: break;
    }
    state_ = 0;
    count_ = 0;
}

// The runs of a row go to the ASCII85 text together.
void RunLengthRow::Emit() {
    out_.Add(packed_);
    packed_.clear();
}

void RunLengthRow::EndRow() {
    Flush();
    Emit();
}

void RunLengthRow::EndData() {
    Emit();
    out_.Add(128);
    out_.Finish();
}

void RowDeltaWriter::Start(FILE *stream, int rowSize) {
    stream_ = stream;
    width_ = static_cast<size_t>(std::max(rowSize, 0));
    firstRow_ = true;
    row_.assign(width_, 0);
    previous_.assign(width_, 0);
    count_ = 0;
}

void RowDeltaWriter::StartRow() { count_ = 0; }

void RowDeltaWriter::Add(uint8_t byte) {
    // Bytes beyond the row's size have no place in the decoder's row.
    if (count_ < width_) row_[count_++] = byte;
}

void RowDeltaWriter::Add(std::span<const uint8_t> bytes) {
    const size_t n = std::min(bytes.size(), width_ - count_);
    std::copy_n(bytes.begin(), n, row_.begin() + static_cast<long>(count_));
    count_ += n;
}

void RowDeltaWriter::Segment(size_t offset, size_t length) {
    ++segments_;
    // The head, the bytes, and a newline at most every 40 bytes.
    const size_t at = text_.size();
    text_.resize(at + 6 + 2 * length + length / 39 + 2);
    char *o = text_.data() + at;
    const unsigned v = static_cast<unsigned>(offset);
    o = hexPair(o, static_cast<uint8_t>(v >> 8));
    o = hexPair(o, static_cast<uint8_t>(v));
    o = hexPair(o, static_cast<uint8_t>(length));
    column_ += 6;
    // A newline goes after the byte that takes the column (mod 80) past
    // 77: bytes go out in runs up to the next such byte.
    unsigned column = column_ % 80;
    for (size_t i = offset, end = offset + length; i < end;) {
        const unsigned target = column % 2 ? 79 : 78;
        const size_t toNewline = (target - column + 80) % 80 / 2 ? (target - column + 80) % 80 / 2 : 40;
        const size_t run = std::min(toNewline, end - i);
        for (size_t k = 0; k < run; ++k) o = hexPair(o, row_[i + k]);
        i += run;
        column = static_cast<unsigned>((column + 2 * run) % 80);
        if (run == toNewline) *o++ = '\n';
    }
    column_ += 2 * length;
    text_.resize(static_cast<size_t>(o - text_.data()));
}

void RowDeltaWriter::EndRow() {
    // A short row keeps the rest of the row before.
    if (firstRow_) std::fill(row_.begin() + static_cast<long>(count_), row_.end(), uint8_t{0});
    else std::copy(previous_.begin() + static_cast<long>(count_), previous_.end(), row_.begin() + static_cast<long>(count_));
    text_.clear();
    segments_ = 0;
    column_ = 4;
    const size_t n = std::min(width_, kLargestOffset + 1);
    if (firstRow_) {
        for (size_t at = 0; at < n; at += kLongestStretch) Segment(at, std::min(kLongestStretch, width_ - at));
    } else {
        size_t i = 0;
        while (i < n) {
            // Equal bytes, eight at a time while they last.
            for (uint64_t a, b; i + 8 <= n; i += 8) {
                std::memcpy(&a, &row_[i], 8);
                std::memcpy(&b, &previous_[i], 8);
                if (a != b) break;
            }
            while (i < n && row_[i] == previous_[i]) ++i;
            if (i == n) break;
            // Past the longest stretch and a run's length the stretch is
            // cut at its longest whatever comes after.
            const size_t limit = std::min(width_, i + kLongestStretch + kEqualRun);
            size_t end = i;
            int equal = 0;
            while (end < limit && equal < kEqualRun) {
                // Eight bytes that all differ from the row before leave no
                // equal run behind them.
                if (uint64_t a, b; end + 8 <= limit) {
                    std::memcpy(&a, &row_[end], 8);
                    std::memcpy(&b, &previous_[end], 8);
                    if (!hasZeroByte(a ^ b)) {
                        equal = 0;
                        end += 8;
                        continue;
                    }
                }
                equal = row_[end] == previous_[end] ? equal + 1 : 0;
                ++end;
            }
            if (equal >= kEqualRun) end -= static_cast<size_t>(equal);
            const size_t length = std::min(end - i, kLongestStretch);
            Segment(i, length);
            i += length;
        }
    }
    text_ += '\n';
    if (segments_ <= 0xFFFF) {
        char count[4];
        hexPair(hexPair(count, static_cast<uint8_t>(segments_ >> 8)), static_cast<uint8_t>(segments_));
        write(stream_, {count, 4});
    } else {
        put(stream_, "%.4x", segments_);
    }
    write(stream_, text_);
    firstRow_ = false;
    row_.swap(previous_);
}

}  // namespace ql
