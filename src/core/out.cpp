#include "core/out.h"

#include <algorithm>
#include <charconv>
#include <cmath>
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
    void fill(char c, size_t n) {
        while (n--) append(&c, 1);
    }
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

template <typename Sink>
void run(Sink &sink, std::string_view fmt, std::span<const FmtArg> args) {
    Buffer<Sink> out(sink);
    size_t next = 0;
    const FmtArg none(static_cast<const char *>(nullptr));
    for (size_t i = 0; i < fmt.size();) {
        size_t pct = fmt.find('%', i);
        if (pct == std::string_view::npos) pct = fmt.size();
        out.append(fmt.data() + i, pct - i);
        if (pct >= fmt.size()) break;
        i = pct + 1;
        if (i < fmt.size() && fmt[i] == '%') {
            out.append("%", 1);
            ++i;
            continue;
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

void vformat(std::string &s, std::string_view fmt, std::span<const FmtArg> args) {
    auto sink = [&s](const char *p, size_t n) { s.append(p, n); };
    run(sink, fmt, args);
}

void vput(FILE *stream, std::string_view fmt, std::span<const FmtArg> args) {
    if (!stream) return;
    auto sink = [stream](const char *p, size_t n) { fwrite_unlocked(p, 1, n, stream); };
    run(sink, fmt, args);
}

}  // namespace ql
