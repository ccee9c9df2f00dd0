// Fuzz target for the font name pattern engine.  The input is a pattern, a
// newline and a text.  The pattern is compiled with o_magic on and off and
// matched with o_ignorecase off and on and both line-start flags; inside
// the syntax it shares with POSIX basic expressions, the answer must be the
// C library's.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <regex.h>
#include <string>

#include "text/regexp.h"

namespace {

// Whether regcomp without REG_EXTENDED reads the pattern as this engine does
// with o_magic on: literals, ".", "[...]", "*", "\+", "\?", groups, "^" first
// and "$" last.  Shapes where the two differ are left out: "*" with nothing
// before it, a class opening with "]", ranges of high or unordered bytes,
// "^" after "\(" and "$" before "\)" (anchors there for the C library),
// and escapes other than of the operator characters.
bool InSharedSyntax(const std::string &p) {
    const size_t n = p.size();
    if (n == 0) return false;
    size_t i = 0;
    int depth = 0, groups = 0;
    bool canRepeat = false;  // the last token is a literal, "." or a class
    if (p[0] == '^') i = 1;
    while (i < n) {
        unsigned char c = p[i];
        if (c == '\\') {
            if (i + 1 == n) return false;
            char e = p[i + 1];
            i += 2;
            if (e == '(') {
                if (++groups > 9) return false;
                ++depth;
                if (i < n && p[i] == '^') return false;
                canRepeat = false;
            } else if (e == ')') {
                if (depth-- == 0) return false;
                canRepeat = false;
            } else if (e == '+' || e == '?') {
                if (!canRepeat) return false;
                canRepeat = false;
            } else if (std::strchr(".*[\\^$", e)) {
                canRepeat = true;
            } else {
                return false;
            }
        } else if (c == '*') {
            if (!canRepeat) return false;
            canRepeat = false;
            ++i;
        } else if (c == '[') {
            size_t j = i + 1;
            if (j < n && p[j] == '^') ++j;
            if (j < n && p[j] == ']') return false;
            size_t itemStart = j;
            while (j < n && p[j] != ']') {
                unsigned char lo = p[j];
                if (lo == '[') return false;
                // "-" only first or last, where it is itself for both.
                if (lo == '-' && j != itemStart && j + 1 < n && p[j + 1] != ']') return false;
                if (j + 2 < n && p[j + 1] == '-' && p[j + 2] != ']') {
                    unsigned char hi = p[j + 2];
                    if (lo >= 0x80 || hi >= 0x80 || lo > hi || hi == '[') return false;
                    j += 3;
                } else {
                    ++j;
                }
            }
            if (j >= n) return false;
            i = j + 1;
            canRepeat = true;
        } else if (c == '$' && i + 1 < n) {
            if (p.compare(i + 1, 2, "\\)") == 0) return false;
            canRepeat = true;
            ++i;
        } else {
            canRepeat = c != '$';
            ++i;
        }
    }
    return depth == 0;
}

bool HasUpperCase(const char *s) {
    for (; *s; ++s)
        if (*s >= 'A' && *s <= 'Z') return true;
    return false;
}

// Matches with the group pointers cleared first, and checks where they point.
int Exec(regexp *re, const char *text, int atStart) {
    for (int g = 0; g < 10; ++g) re->startp[g] = re->endp[g] = nullptr;
    int got = Qlregexec(re, text, atStart);
    if (got != 0 && got != 1) std::abort();
    if (!got) return 0;
    const char *end = text + std::strlen(text);
    if (!re->startp[0] || !re->endp[0]) std::abort();
    for (int g = 0; g < 10; ++g) {
        if (!re->startp[g] != !re->endp[g]) std::abort();
        if (re->startp[g] && (re->startp[g] < text || re->startp[g] > re->endp[g] || re->endp[g] > end)) std::abort();
    }
    return got;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string input(reinterpret_cast<const char *>(data), size);
    size_t nl = input.find('\n');
    std::string pattern = input.substr(0, nl);
    std::string text = nl == std::string::npos ? std::string() : input.substr(nl + 1);
    pattern.resize(std::strlen(pattern.c_str()));  // both are C strings
    text.resize(std::strlen(text.c_str()));

    // Null arguments are refused, not followed.
    if (Qlregexec(nullptr, text.c_str(), 1) != 0) std::abort();

    for (unsigned char magic : {1, 0}) {
        o_magic = magic;
        o_ignorecase = 0;
        regexp *re = Qlregcomp(pattern.c_str());
        if (!re) continue;
        if (Qlregexec(re, nullptr, 1) != 0) std::abort();
        int atStart = Exec(re, text.c_str(), 1);
        const char *start = atStart ? re->startp[0] : nullptr;
        int notAtStart = Exec(re, text.c_str(), 0);
        if (notAtStart != (re->bol ? 0 : atStart)) std::abort();

        o_ignorecase = 1;
        int folded = Exec(re, text.c_str(), 1);
        Exec(re, text.c_str(), 0);
        if (!HasUpperCase(text.c_str()) && folded != atStart) std::abort();
        o_ignorecase = 0;

        if (magic && InSharedSyntax(pattern)) {
            regex_t posix;
            if (regcomp(&posix, pattern.c_str(), 0) == 0) {
                regmatch_t m[1];
                int want = regexec(&posix, text.c_str(), 1, m, 0) == 0;
                if (want != atStart || (want && start - text.c_str() != m[0].rm_so)) std::abort();
                want = regexec(&posix, text.c_str(), 1, m, REG_NOTBOL) == 0;
                if (want != notAtStart) std::abort();
                regfree(&posix);
            } else {
                std::abort();  // the shared syntax must compile in both
            }
        }
        std::free(re);
    }
    o_magic = 1;
    o_ignorecase = 0;
    return 0;
}
