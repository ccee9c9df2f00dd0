#include "core/out.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace ql {
namespace {

// A small stack buffer that spills into a sink when full.
template <typename Sink>
class Buffer {
public:
    explicit Buffer(Sink &sink) : sink_(sink) {}
    ~Buffer() { flush(); }
    void append(const char *p, size_t n) {
        if (n > sizeof buf_ - len_) {
            flush();
            if (n > sizeof buf_) {
                sink_(p, n);
                return;
            }
        }
        std::memcpy(buf_ + len_, p, n);
        len_ += n;
    }
    void push(char c) {
        if (len_ == sizeof buf_) flush();
        buf_[len_++] = c;
    }
    void fill(char c, size_t n) {
        while (n--) push(c);
    }
    // Room for `n` bytes at the end, written by the caller, who then
    // passes the new end to grown().
    char *room(size_t n) {
        if (n > sizeof buf_ - len_) flush();
        return buf_ + len_;
    }
    void grown(const char *end) { len_ = static_cast<size_t>(end - buf_); }
    void flush() {
        if (len_) sink_(buf_, len_);
        len_ = 0;
    }

private:
    Sink &sink_;
    char buf_[512];
    size_t len_ = 0;
};

struct Directive {
    bool left = false, zero = false, plus = false, space = false;
    int width = 0;
    int precision = -1;
    char conv = 0;
};

// Digits of `v`, at least `precision` of them.
char *digits(char *p, char *end, unsigned long long v, int base, int precision) {
    char tmp[64];
    char *e = std::to_chars(tmp, tmp + sizeof tmp, v, base).ptr;
    int n = static_cast<int>(e - tmp);
    if (precision > 60) precision = 60;
    for (int i = n; i < precision && p < end; ++i) *p++ = '0';
    if (precision == 0 && v == 0) return p;
    for (char *q = tmp; q < e && p < end; ++q) *p++ = *q;
    return p;
}

// Formats one number without padding into `tmp`; returns its length.
size_t number(char (&tmp)[128], const Directive &sp, const FmtArg &a) {
    char *p = tmp, *end = tmp + sizeof tmp;
    switch (sp.conv) {
    case 'd':
    case 'i': {
        long long v = a.kind == FmtArg::Int    ? a.i
                      : a.kind == FmtArg::Uint ? static_cast<long long>(a.u)
                      : a.kind == FmtArg::Real ? (std::isfinite(a.d) ? static_cast<long long>(a.d) : 0)
                                               : 0;
        if (v < 0) *p++ = '-';
        else if (sp.plus) *p++ = '+';
        else if (sp.space) *p++ = ' ';
        unsigned long long mag = v < 0 ? 0ULL - static_cast<unsigned long long>(v) : static_cast<unsigned long long>(v);
        return digits(p, end, mag, 10, sp.precision) - tmp;
    }
    case 'u':
    case 'o':
    case 'x':
    case 'X': {
        unsigned long long v = a.kind == FmtArg::Uint  ? a.u
                               : a.kind == FmtArg::Int ? static_cast<unsigned long long>(a.i)
                                                       : 0;
        // A plain int printed with %x or %u shows its 32-bit pattern, as printf does.
        if (a.kind == FmtArg::Int && a.i < 0 && a.i >= INT32_MIN) v &= 0xffffffffULL;
        p = digits(p, end, v, sp.conv == 'u' ? 10 : sp.conv == 'o' ? 8 : 16, sp.precision);
        if (sp.conv == 'X')
            for (char *q = tmp; q < p; ++q)
                if (*q >= 'a' && *q <= 'f') *q -= 'a' - 'A';
        return p - tmp;
    }
    default: {  // f e g
        double v = a.kind == FmtArg::Real  ? a.d
                   : a.kind == FmtArg::Int ? static_cast<double>(a.i)
                   : a.kind == FmtArg::Uint ? static_cast<double>(a.u)
                                            : 0.0;
        if (sp.conv == 'f' && !sp.plus && !sp.space && sp.precision >= 0 && sp.precision <= 4)
            if (char *e = FormatFixed(p, v, sp.precision)) return e - tmp;
        if (!std::isfinite(v)) v = 0.0;
        if (!std::signbit(v) && sp.plus) *p++ = '+';
        else if (!std::signbit(v) && sp.space) *p++ = ' ';
        int prec = sp.precision < 0 ? 6 : (sp.precision > 60 ? 60 : sp.precision);
        auto fmt = sp.conv == 'f' ? std::chars_format::fixed
                   : sp.conv == 'e' ? std::chars_format::scientific
                                    : std::chars_format::general;
        // Fixed notation of a huge value would not fit; such values never
        // make sense on a page, so they print as 0.
        if (fmt == std::chars_format::fixed && std::fabs(v) >= 1e40) v = 0.0;
        auto r = std::to_chars(p, end, v, fmt, prec);
        return (r.ec == std::errc() ? r.ptr : p) - tmp;
    }
    }
}

constexpr size_t kFixedRoom = 24;  // the longest FormatFixed writes, and more

template <typename Sink>
void run(Sink &sink, std::string_view fmt, std::span<const FmtArg> args) {
    Buffer<Sink> out(sink);
    size_t next = 0;
    const FmtArg none(static_cast<const char *>(nullptr));
    for (size_t i = 0; i < fmt.size();) {
        // The text up to a directive, a byte at a time: the pieces are short.
        while (i < fmt.size() && fmt[i] != '%') out.push(fmt[i++]);
        if (i >= fmt.size()) break;
        ++i;
        if (i < fmt.size() && fmt[i] == '%') {
            out.append("%", 1);
            ++i;
            continue;
        }
        // The drivers' usual directive, "%.2f" and the like, on a double.
        if (i + 2 < fmt.size() && fmt[i] == '.' && fmt[i + 2] == 'f' && fmt[i + 1] >= '0' && fmt[i + 1] <= '4' &&
            next < args.size() && args[next].kind == FmtArg::Real) {
            if (char *end = FormatFixed(out.room(kFixedRoom), args[next].d, fmt[i + 1] - '0')) {
                out.grown(end);
                ++next;
                i += 3;
                continue;
            }
        }
        Directive sp;
        for (; i < fmt.size(); ++i) {
            char c = fmt[i];
            if (c == '-') sp.left = true;
            else if (c == '0') sp.zero = true;
            else if (c == '+') sp.plus = true;
            else if (c == ' ') sp.space = true;
            else if (c == '#') continue;
            else break;
        }
        // Widths and precisions beyond any real use are held at 4096.
        auto digitsOf = [&](int &v) {
            while (i < fmt.size() && fmt[i] >= '0' && fmt[i] <= '9') v = std::min(v * 10 + (fmt[i++] - '0'), 4096);
        };
        digitsOf(sp.width);
        if (i < fmt.size() && fmt[i] == '.') {
            sp.precision = 0;
            ++i;
            digitsOf(sp.precision);
        }
        while (i < fmt.size() && std::strchr("hlLqjzt", fmt[i])) ++i;
        if (i >= fmt.size()) break;
        sp.conv = fmt[i++];
        if (sp.width > 4096) sp.width = 4096;
        const bool known = std::strchr("sciduoxXfeg", sp.conv) != nullptr;
        const FmtArg &a = known && next < args.size() ? args[next++] : none;

        char tmp[128];
        const char *text = tmp;
        size_t len;
        bool numeric = true;
        switch (sp.conv) {
        case 's':
            numeric = false;
            if (a.kind == FmtArg::Text) {
                text = a.s ? a.s : "(null)";
                len = std::strlen(text);
                if (sp.precision >= 0 && static_cast<size_t>(sp.precision) < len) len = sp.precision;
            } else {
                Directive d;
                d.conv = a.kind == FmtArg::Real ? 'g' : (a.kind == FmtArg::Uint ? 'u' : 'd');
                len = number(tmp, d, a);
            }
            break;
        case 'c':
            numeric = false;
            tmp[0] = static_cast<char>(a.kind == FmtArg::Int ? a.i : a.kind == FmtArg::Uint ? a.u : 0);
            len = 1;
            break;
        case 'd': case 'i': case 'u': case 'o': case 'x': case 'X': case 'f': case 'e': case 'g':
            len = number(tmp, sp, a);
            break;
        default:  // an unknown directive prints as it stands
            numeric = false;
            tmp[0] = '%';
            tmp[1] = sp.conv;
            len = 2;
            break;
        }
        size_t pad = sp.width > 0 && static_cast<size_t>(sp.width) > len ? sp.width - len : 0;
        if (pad && !sp.left && sp.zero && numeric) {
            size_t sign = (len && (text[0] == '-' || text[0] == '+' || text[0] == ' ')) ? 1 : 0;
            out.append(text, sign);
            out.fill('0', pad);
            out.append(text + sign, len - sign);
        } else {
            if (!sp.left) out.fill(' ', pad);
            out.append(text, len);
            if (sp.left) out.fill(' ', pad);
        }
    }
}

}  // namespace

namespace {

constexpr char kDecimalPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

[[gnu::always_inline]] inline char *decimal(char *p, uint64_t v) {
    // Coordinates are mostly below 10000: up to four digits without a loop.
    if (v < 100) {
        if (v < 10) {
            *p = static_cast<char>('0' + v);
            return p + 1;
        }
        std::memcpy(p, kDecimalPairs + 2 * v, 2);
        return p + 2;
    }
    if (v < 10000) {
        const auto high = static_cast<uint32_t>(v / 100), low = static_cast<uint32_t>(v % 100);
        if (high < 10) *p++ = static_cast<char>('0' + high);
        else std::memcpy(p, kDecimalPairs + 2 * high, 2), p += 2;
        std::memcpy(p, kDecimalPairs + 2 * low, 2);
        return p + 2;
    }
    char tmp[20];
    char *const end = tmp + sizeof tmp;
    char *q = end;
    for (; v >= 100; v /= 100) std::memcpy(q -= 2, kDecimalPairs + 2 * (v % 100), 2);
    if (v >= 10) std::memcpy(q -= 2, kDecimalPairs + 2 * v, 2);
    else *--q = static_cast<char>('0' + v);
    std::memcpy(p, q, static_cast<size_t>(end - q));
    return p + (end - q);
}

// n / 10^D, the point and D digits.
template <int D>
char *fixedDigits(char *p, uint64_t n) {
    if constexpr (D == 0) {
        return decimal(p, n);
    } else {
        constexpr uint32_t kTen = D == 1 ? 10 : D == 2 ? 100 : D == 3 ? 1000 : 10000;
        p = decimal(p, n / kTen);
        *p = '.';
        uint32_t part = static_cast<uint32_t>(n % kTen);
        if constexpr (D == 2) {
            std::memcpy(p + 1, kDecimalPairs + 2 * part, 2);
        } else {
            for (int i = D; i > 0; --i, part /= 10) p[i] = static_cast<char>('0' + part % 10);
        }
        return p + D + 1;
    }
}

// round(m * 10^D / 2^shift), a tie to even, for 0 < shift.  Up to three
// decimals m * 10^D takes at most 53 + 10 bits and fits in 64.
template <int D>
uint64_t roundedQuotient(uint64_t m, int shift) {
    constexpr uint32_t kTen = D == 0 ? 1 : D == 1 ? 10 : D == 2 ? 100 : D == 3 ? 1000 : 10000;
    using Wide = std::conditional_t<(D <= 3), uint64_t, unsigned __int128>;
    constexpr int kBits = sizeof(Wide) * 8;
    const Wide scaled = static_cast<Wide>(m) * kTen;
    // Below half a unit (the scaled value has fewer bits than the shift) all
    // rounds to 0.
    if (shift >= kBits) return 0;
    const uint64_t n = static_cast<uint64_t>(scaled >> shift);
    const Wide rest = scaled & ((Wide{1} << shift) - 1), half = Wide{1} << (shift - 1);
    return n + (rest > half || (rest == half && (n & 1)));
}

template <int D>
char *fixed(char *p, uint64_t m, int e) {
    // e >= 0 means |v| >= 2^52, beyond the range taken here.
    return fixedDigits<D>(p, roundedQuotient<D>(m, -e));
}

}  // namespace

char *FormatFixed(char *p, double v, int decimals) {
#ifdef __SIZEOF_INT128__
    if (decimals < 0 || decimals > 4 || !(std::fabs(v) < 1e14)) return nullptr;
    // v is m times 2^e exactly; the rounding works on m in integers.
    uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    const int biased = static_cast<int>(bits >> 52 & 0x7FF);
    uint64_t m = bits & ((uint64_t{1} << 52) - 1);
    if (biased) m |= uint64_t{1} << 52;
    const int e = (biased ? biased : 1) - 1075;
    if (bits >> 63) *p++ = '-';
    switch (decimals) {
    case 0: return fixed<0>(p, m, e);
    case 1: return fixed<1>(p, m, e);
    case 2: return fixed<2>(p, m, e);
    case 3: return fixed<3>(p, m, e);
    default: return fixed<4>(p, m, e);
    }
#else
    (void)p, (void)v, (void)decimals;
    return nullptr;
#endif
}

void PutFixed(FILE *stream, std::initializer_list<double> numbers, int decimals, std::string_view tail) {
    if (!stream) return;
    char buf[512];
    char *o = buf;
    for (const double v : numbers) {
        if (o + 2 * kFixedRoom + tail.size() > buf + sizeof buf) {
            write(stream, {buf, static_cast<size_t>(o - buf)});
            o = buf;
        }
        char *end = FormatFixed(o, v, decimals);
        if (!end) {  // beyond the fixed writer's range: as put() writes it
            Directive d;
            d.conv = 'f';
            d.precision = decimals;
            char tmp[128];
            const size_t n = number(tmp, d, FmtArg(v));
            write(stream, {buf, static_cast<size_t>(o - buf)});
            write(stream, {tmp, n});
            end = o = buf;
        }
        *end = ' ';
        o = end + 1;
    }
    if (tail.size() <= static_cast<size_t>(buf + sizeof buf - o)) {
        std::memcpy(o, tail.data(), tail.size());
        o += tail.size();
        tail = {};
    }
    write(stream, {buf, static_cast<size_t>(o - buf)});
    write(stream, tail);
}

void vformat(std::string &s, std::string_view fmt, std::span<const FmtArg> args) {
    auto sink = [&s](const char *p, size_t n) { s.append(p, n); };
    run(sink, fmt, args);
}

void vput(FILE *stream, std::string_view fmt, std::span<const FmtArg> args) {
    if (!stream) return;
    auto sink = [stream](const char *p, size_t n) { write(stream, {p, n}); };
    run(sink, fmt, args);
}

}  // namespace ql
