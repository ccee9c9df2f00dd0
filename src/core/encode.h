// The image data encoders that all drivers write through: hexadecimal text,
// ASCII85, PackBits runs and the row delta form that the prolog's imdecode
// reads back.  Each encoder writes straight into a stdio stream and holds
// at most one row of data, so an image of any size streams in constant
// memory.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <vector>

namespace ql {

// Two lower-case hexadecimal digits per byte, as "%.2x" writes them.
void PutHex(FILE *stream, std::span<const uint8_t> bytes);
void PutHex(FILE *stream, uint8_t byte);

// Hexadecimal digits and pairs of them, by value.
inline constexpr char kHexDigits[] = "0123456789abcdef";
inline constexpr std::array<char, 512> kHexPairs = [] {
    std::array<char, 512> t{};
    for (int i = 0; i < 256; ++i) t[2 * i] = kHexDigits[i >> 4], t[2 * i + 1] = kHexDigits[i & 15];
    return t;
}();

// One ASCII85 group: the four bytes read big-endian, "z" for a whole group
// of zeros, otherwise n + 1 digits (5 for a whole group).
void Ascii85Output(FILE *stream, const uint8_t (&group)[4], int n);

// ASCII85 text in groups of four bytes: "z" for a whole group of zeros, a
// newline after every 64 bytes taken in, and "~>\n" at the end.
class Ascii85Writer {
public:
    // Starts a new text on `stream`; nothing is written.
    void Reset(FILE *stream);
    void Add(uint8_t byte);
    void Add(std::span<const uint8_t> bytes);
    // Writes the partial group, if any, and the end marker "~>\n".
    void Finish();

private:
    FILE *stream_ = nullptr;
    uint8_t group_[4] = {};
    int index_ = 0;
    unsigned long total_ = 0;
};

// PackBits runs over one row at a time, into an ASCII85 text: a run of up
// to 128 equal bytes is 257 - n and the byte, a literal run of n bytes is
// n - 1 and the bytes.  Runs never cross a row.
class RunLengthRow {
public:
    explicit RunLengthRow(Ascii85Writer &out) : out_(out) {}
    void StartRow();
    void Add(uint8_t byte);
    void Add(std::span<const uint8_t> bytes);
    // Flushes what is held: the end of a row.
    void EndRow();
    // The RunLengthDecode end marker (128), then the end of the ASCII85 text.
    void EndData();

private:
    void Flush();
    void Emit();
    void Begin(uint8_t byte);
    Ascii85Writer &out_;
    std::vector<uint8_t> packed_;
    int state_ = 0;  // 0 nothing held, 1 one byte, 2 a literal run, 3 a repeat
    int count_ = 0;
    uint8_t last_ = 0;
    uint8_t buf_[256] = {};
};

// The row delta form: each row is the number of changed stretches as 4
// hexadecimal digits, then per stretch its offset (4 digits), its length
// (2 digits, at most 255) and its bytes, against the row before.  The first
// row is sent whole, in stretches of at most 255 bytes.  A row's text is
// made in memory, so that its count can go first: the stream need not be
// seekable.
class RowDeltaWriter {
public:
    // A new image with rows of `rowSize` bytes; nothing is written.
    void Start(FILE *stream, int rowSize);
    void StartRow();
    void Add(uint8_t byte);
    void Add(std::span<const uint8_t> bytes);
    // Writes the row and keeps it as the base of the next.
    void EndRow();

private:
    void Segment(size_t offset, size_t length);
    FILE *stream_ = nullptr;
    size_t width_ = 0;
    bool firstRow_ = true;
    std::vector<uint8_t> row_, previous_;
    size_t count_ = 0;
    std::string text_;
    int segments_ = 0;
    unsigned long column_ = 0;
};

}  // namespace ql
