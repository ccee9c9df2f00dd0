// Small reference decoders of the image data forms a PostScript document
// carries: hexadecimal text, ASCII85, RunLengthDecode (PackBits) and the
// row delta form of the prolog's imdecode.  Written from the PostScript
// filters' definitions, independently of the library's encoders, which
// the Encode... functions at the end run over rows into text.  Header only
// and without gtest, so that the fuzz targets use them too.
#pragma once

#include "core/encode.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qltest {

using Bytes = std::vector<uint8_t>;

inline int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

inline bool IsPsSpace(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t' || c == '\f' || c == '\0'; }

// ASCIIHexDecode: pairs of digits, white space between them ignored, up to
// '>' or the end; an odd last digit counts as followed by 0.
inline std::optional<Bytes> DecodeHex(std::string_view text, size_t *used = nullptr) {
  Bytes out;
  int high = -1;
  size_t i = 0;
  for (; i < text.size() && text[i] != '>'; ++i) {
    if (IsPsSpace(text[i])) continue;
    int v = HexValue(text[i]);
    if (v < 0) return std::nullopt;
    if (high < 0) {
      high = v;
    } else {
      out.push_back(static_cast<uint8_t>(high << 4 | v));
      high = -1;
    }
  }
  if (high >= 0) out.push_back(static_cast<uint8_t>(high << 4));
  if (used) *used = i < text.size() ? i + 1 : i;
  return out;
}

// ASCII85Decode up to "~>": "z" is four zeros; a final group of n + 1
// digits is padded with 'u' and gives n bytes.
inline std::optional<Bytes> DecodeAscii85(std::string_view text, size_t *used = nullptr) {
  Bytes out;
  uint64_t value = 0;
  int n = 0;
  size_t i = 0;
  bool ended = false;
  for (; i < text.size(); ++i) {
    const char c = text[i];
    if (IsPsSpace(c)) continue;
    if (c == '~') {
      if (i + 1 >= text.size() || text[i + 1] != '>') return std::nullopt;
      i += 2;
      ended = true;
      break;
    }
    if (c == 'z' && n == 0) {
      out.insert(out.end(), 4, 0);
      continue;
    }
    if (c < '!' || c > 'u') return std::nullopt;
    value = value * 85 + static_cast<uint64_t>(c - '!');
    if (++n == 5) {
      if (value > 0xFFFFFFFFULL) return std::nullopt;
      for (int s = 24; s >= 0; s -= 8) out.push_back(static_cast<uint8_t>(value >> s));
      value = 0;
      n = 0;
    }
  }
  if (!ended) return std::nullopt;
  if (n == 1) return std::nullopt;
  if (n > 1) {
    for (int k = n; k < 5; ++k) value = value * 85 + 84;
    if (value > 0xFFFFFFFFULL) return std::nullopt;
    for (int k = 0; k < n - 1; ++k) out.push_back(static_cast<uint8_t>(value >> (24 - 8 * k)));
  }
  if (used) *used = i;
  return out;
}

// RunLengthDecode up to the end marker 128 (required).
inline std::optional<Bytes> DecodeRunLength(const Bytes &in) {
  Bytes out;
  for (size_t i = 0; i < in.size();) {
    const uint8_t n = in[i++];
    if (n == 128) return out;
    if (n < 128) {
      if (i + n + 1 > in.size()) return std::nullopt;
      out.insert(out.end(), in.begin() + static_cast<long>(i), in.begin() + static_cast<long>(i + n + 1));
      i += n + 1;
    } else {
      if (i >= in.size()) return std::nullopt;
      out.insert(out.end(), 257 - n, in[i++]);
    }
  }
  return std::nullopt;
}

// The row delta form: per row a count of stretches (4 hexadecimal digits),
// per stretch its offset (4), its length (2) and its bytes, written into
// the row kept from before.  Gives `rows` rows of `rowSize` bytes.
inline std::optional<std::vector<Bytes>> DecodeRowDelta(std::string_view text, size_t rowSize, size_t rows) {
  size_t at = 0;
  auto next = [&](int digits) -> std::optional<unsigned> {
    unsigned v = 0;
    for (int d = 0; d < digits; ++d) {
      while (at < text.size() && IsPsSpace(text[at])) ++at;
      if (at >= text.size()) return std::nullopt;
      int h = HexValue(text[at++]);
      if (h < 0) return std::nullopt;
      v = v << 4 | static_cast<unsigned>(h);
    }
    return v;
  };
  std::vector<Bytes> out;
  Bytes row(rowSize, 0);
  for (size_t r = 0; r < rows; ++r) {
    std::optional<unsigned> count = next(4);
    if (!count) return std::nullopt;
    for (unsigned s = 0; s < *count; ++s) {
      std::optional<unsigned> offset = next(4), length = next(2);
      if (!offset || !length || *offset + *length > rowSize) return std::nullopt;
      for (unsigned k = 0; k < *length; ++k) {
        std::optional<unsigned> b = next(2);
        if (!b) return std::nullopt;
        row[*offset + k] = static_cast<uint8_t>(*b);
      }
    }
    out.push_back(row);
  }
  return out;
}

// What `body` writes into a stdio stream, as text.
template <typename F>
std::string Written(F body) {
  char *buf = nullptr;
  size_t size = 0;
  FILE *f = open_memstream(&buf, &size);
  if (!f) std::abort();
  body(f);
  std::fclose(f);
  std::string s(buf, size);
  std::free(buf);
  return s;
}

inline std::string EncodeHex(const Bytes &bytes) {
  return Written([&](FILE *f) { ql::PutHex(f, bytes); });
}

inline std::string EncodeAscii85(const Bytes &bytes) {
  return Written([&](FILE *f) {
    ql::Ascii85Writer a;
    a.Reset(f);
    a.Add(bytes);
    a.Finish();
  });
}

// Rows through PackBits into ASCII85, with the end marker; a byte at a
// time, or each row at once.
inline std::string EncodeRuns(const std::vector<Bytes> &rows, bool wholeRows = false) {
  return Written([&](FILE *f) {
    ql::Ascii85Writer a;
    a.Reset(f);
    ql::RunLengthRow r(a);
    for (const Bytes &row : rows) {
      r.StartRow();
      if (wholeRows) r.Add(row);
      else for (uint8_t b : row) r.Add(b);
      r.EndRow();
    }
    r.EndData();
  });
}

// Rows in the delta form, the first row's length being the rows' size.
inline std::string EncodeDelta(const std::vector<Bytes> &rows, bool wholeRows = false) {
  return Written([&](FILE *f) {
    ql::RowDeltaWriter w;
    w.Start(f, rows.empty() ? 0 : static_cast<int>(rows[0].size()));
    for (const Bytes &row : rows) {
      w.StartRow();
      if (wholeRows) w.Add(row);
      else for (uint8_t b : row) w.Add(b);
      w.EndRow();
    }
  });
}

}  // namespace qltest
