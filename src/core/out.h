// The one writer of numbers and texts that all drivers print through.
//
// ql::put(stream, "%.2f %.2f sl\n", x, y) takes printf's format strings but
// formats every number with std::to_chars: the bytes never depend on the
// application's locale, and no float ever reaches the file as "inf" or
// "nan" (a non-finite value prints as 0).  Arguments are typed, so a
// directive can't read a value of the wrong kind.
//
// Directives: %% %d %i %u %o %x %X %c %s %f %e %g, with the flags "-", "0",
// "+", " ", a width and a precision (".*" is not supported); length
// modifiers (l, ll, h, z) are accepted and ignored.
#pragma once

#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace ql {

struct FmtArg {
    enum Kind : unsigned char { Int, Uint, Real, Text } kind;
    union {
        long long i;
        unsigned long long u;
        double d;
        const char *s;
    };
    FmtArg(const char *v) : kind(Text), s(v) {}
    FmtArg(char *v) : kind(Text), s(v) {}
    FmtArg(const std::string &v) : kind(Text), s(v.c_str()) {}
    FmtArg(double v) : kind(Real), d(v) {}
    FmtArg(float v) : kind(Real), d(v) {}
    template <typename T, std::enable_if_t<std::is_integral_v<T> && std::is_signed_v<T>, int> = 0>
    FmtArg(T v) : kind(Int), i(v) {}
    template <typename T, std::enable_if_t<std::is_integral_v<T> && std::is_unsigned_v<T>, int> = 0>
    FmtArg(T v) : kind(Uint), u(v) {}
};

// Writes v with `decimals` (0 to 4) decimals, byte for byte as "%.*f"
// does in the C locale (the exact value rounded, a tie to even; "-0.00" for
// a small negative value); returns the end.  Null, with nothing written,
// for a value it leaves to the general path: |v| >= 1e14, or not finite.
// At most 20 bytes.
char *FormatFixed(char *p, double v, int decimals);

// Each number as "%.*f " with `decimals` (0 to 4), then `tail`: the bytes
// put() writes for such a format, without reading one.
void PutFixed(FILE *stream, std::initializer_list<double> numbers, int decimals, std::string_view tail);

// Formats into `out` (appending).
void vformat(std::string &out, std::string_view fmt, std::span<const FmtArg> args);
// Formats straight into the stream's buffer.
void vput(FILE *stream, std::string_view fmt, std::span<const FmtArg> args);

template <typename... A>
inline std::string format(std::string_view fmt, const A &...args) {
    std::string s;
    if constexpr (sizeof...(A) == 0) {
        vformat(s, fmt, {});
    } else {
        const FmtArg a[] = {FmtArg(args)...};
        vformat(s, fmt, a);
    }
    return s;
}

template <typename... A>
inline void put(FILE *stream, std::string_view fmt, const A &...args) {
    if constexpr (sizeof...(A) == 0) {
        vput(stream, fmt, {});
    } else {
        const FmtArg a[] = {FmtArg(args)...};
        vput(stream, fmt, a);
    }
}

// Raw bytes, no directives.  Where the stream's buffer has room they are
// copied in as putc_unlocked does (glibc keeps the buffer's write position
// in the FILE); else fwrite takes them.
inline void write(FILE *stream, std::string_view text) {
#ifdef __GLIBC__
    if (text.size() && text.size() <= static_cast<size_t>(stream->_IO_write_end - stream->_IO_write_ptr)) {
        std::memcpy(stream->_IO_write_ptr, text.data(), text.size());
        stream->_IO_write_ptr += text.size();
        return;
    }
#endif
    fwrite_unlocked(text.data(), 1, text.size(), stream);
}

}  // namespace ql
