#include "core/encode.h"

#include "core/out.h"

#include <algorithm>

namespace ql {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

// Equal bytes in a row that end a changed stretch: fewer would cost more in
// a new stretch's head (6 digits) than they save.
constexpr int kEqualRun = 13;
constexpr size_t kLongestStretch = 255;
// The largest offset that 4 hexadecimal digits hold.
constexpr size_t kLargestOffset = 0xFFFF;

}  // namespace

void PutHex(FILE *stream, std::span<const uint8_t> bytes) {
    char buf[512];
    size_t n = 0;
    for (uint8_t b : bytes) {
        if (n + 2 > sizeof buf) {
            write(stream, {buf, n});
            n = 0;
        }
        buf[n++] = kHexDigits[b >> 4];
        buf[n++] = kHexDigits[b & 15];
    }
    write(stream, {buf, n});
}

void PutHex(FILE *stream, uint8_t byte) {
    const char two[2] = {kHexDigits[byte >> 4], kHexDigits[byte & 15]};
    write(stream, {two, 2});
}

void Ascii85Output(FILE *stream, const uint8_t (&group)[4], int n) {
    const uint32_t v = uint32_t(group[0]) << 24 | uint32_t(group[1]) << 16 | uint32_t(group[2]) << 8 | group[3];
    if (n == 4 && v == 0) {
        write(stream, "z");
        return;
    }
    static constexpr uint32_t kDivisors[5] = {52200625, 614125, 7225, 85, 1};
    char digits[5];
    uint32_t rest = v;
    for (int i = 0; i < 5; ++i) {
        digits[i] = static_cast<char>(rest / kDivisors[i] + 33);
        rest %= kDivisors[i];
    }
    write(stream, {digits, static_cast<size_t>(std::clamp(n, 1, 4) + 1)});
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

void Ascii85Writer::Add(std::span<const uint8_t> bytes) {
    for (uint8_t b : bytes) Add(b);
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

void RunLengthRow::Flush() {
    switch (state_) {
    case 1:
        out_.Add(0);
        out_.Add(last_);
        break;
    case 2:
        out_.Add(static_cast<uint8_t>(count_ - 1));
        out_.Add({buf_, static_cast<size_t>(count_)});
        break;
    case 3:
        out_.Add(static_cast<uint8_t>(257 - count_));
        out_.Add(last_);
        break;
    default: break;
    }
    state_ = 0;
    count_ = 0;
}

void RunLengthRow::EndRow() { Flush(); }

void RunLengthRow::EndData() {
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

void RowDeltaWriter::Segment(size_t offset, size_t length) {
    ++segments_;
    char head[6];
    const unsigned v = static_cast<unsigned>(offset);
    for (int i = 0; i < 4; ++i) head[i] = kHexDigits[(v >> (12 - 4 * i)) & 15];
    head[4] = kHexDigits[(length >> 4) & 15];
    head[5] = kHexDigits[length & 15];
    text_.append(head, 6);
    column_ += 6;
    for (size_t i = offset; i < offset + length; ++i) {
        text_ += kHexDigits[row_[i] >> 4];
        text_ += kHexDigits[row_[i] & 15];
        column_ += 2;
        if (column_ % 80 > 77) text_ += '\n';
    }
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
            while (i < n && row_[i] == previous_[i]) ++i;
            if (i == n) break;
            size_t end = i;
            int equal = 0;
            while (end < width_ && equal < kEqualRun) {
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
    put(stream_, "%.4x", segments_);
    write(stream_, text_);
    firstRow_ = false;
    row_.swap(previous_);
}

}  // namespace ql
