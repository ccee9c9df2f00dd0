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

// Raw bytes, no directives.
inline void write(FILE *stream, std::string_view text) {
    fwrite_unlocked(text.data(), 1, text.size(), stream);
}

}  // namespace ql
