// Regular expressions for font names: a compiler from a pattern to a compact
// byte program, and a backtracking matcher over that program.
//
// Program encoding: a token below 256 is a literal and takes one byte; a
// token of 256 or more is a 0 byte followed by the token less 256.  A
// repetition stands ahead of its atom.  The program opens with group 0
// (274) and ends with its close (284), which is where a match succeeds.
#include "text/regexp.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <unordered_set>
#include <vector>

unsigned char o_magic = 1;
unsigned char o_ignorecase = 0;

namespace {

// Tokens.  Below 256 a token is the literal character.
constexpr int kStart = 256;      // "^" at the pattern start: sets bol, never stored
constexpr int kEnd = 257;        // "$" at the pattern end
constexpr int kWordStart = 258;  // "\<"
constexpr int kWordEnd = 259;    // "\>"
constexpr int kAny = 260;        // "."
constexpr int kStar = 261;       // zero or more
constexpr int kPlus = 262;       // one or more
constexpr int kQuestion = 263;   // zero or one
constexpr int kClass = 264;      // 264..273: classes 0..9
constexpr int kOpen = 274;       // 274..283: open group 0..9
constexpr int kClose = 284;      // 284..293: close group 0..9
constexpr int kError = -1;       // from gettoken: bad pattern, already reported

constexpr int kMaxClasses = 10;
constexpr int kMaxGroups = 10;  // group 0 is the whole match; "\(" numbers 1..9
constexpr size_t kClassBytes = 32;

bool isLiteral(int t) { return t > 0 && t < 256; }
bool isRepetition(int t) { return t >= kStar && t <= kQuestion; }
bool isClass(int t) { return t >= kClass && t < kClass + kMaxClasses; }
bool isOpen(int t) { return t >= kOpen && t < kOpen + kMaxGroups; }
bool isClose(int t) { return t >= kClose && t < kClose + kMaxGroups; }

// Letters, digits and "_" of ASCII; bytes with the high bit set never are.
bool isWordChar(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

// Compiler state, reset before each of the two passes over a pattern.
const unsigned char *gPatternStart;  // "^" anchors only here
unsigned char *gClassArea;           // where classes are stored; null while sizing
int gClassCount;
int gNextGroup;
int gGroupStack[kMaxGroups];
int gGroupDepth;
std::string gPrevious;  // the last non-empty pattern

void resetCounters(const unsigned char *pattern, unsigned char *classArea) {
    gPatternStart = pattern;
    gClassArea = classArea;
    gClassCount = 0;
    gNextGroup = 1;
    gGroupDepth = 0;
}

void setBit(unsigned char *bits, unsigned char c) { bits[c >> 3] |= static_cast<unsigned char>(1u << (c & 7)); }

// Fills the 32 bytes of a class from the text after "[".  Gives the text
// after the closing "]", or null after reporting the fault.
const unsigned char *makeclass(const unsigned char *s, unsigned char *bits) {
    std::memset(bits, 0, kClassBytes);
    bool negate = false;
    if (*s == '^') {
        negate = true;
        ++s;
    }
    // A "]" straight after the opening (and "^") closes an empty class.
    while (*s && *s != ']') {
        if (s[1] == '-' && s[2] && s[2] != ']') {
            // Bounds are ordered by signed character value, as they always were.
            int lo = static_cast<signed char>(s[0]);
            int hi = static_cast<signed char>(s[2]);
            if (lo > hi) {
                Qlregerror("Backwards span in []");
                return nullptr;
            }
            for (int c = lo; c <= hi; ++c) setBit(bits, static_cast<unsigned char>(c));
            s += 3;
        } else {
            setBit(bits, *s++);
        }
    }
    if (*s != ']') {
        Qlregerror("] missing");
        return nullptr;
    }
    if (negate)
        for (size_t i = 0; i < kClassBytes; ++i) bits[i] = static_cast<unsigned char>(~bits[i]);
    return s + 1;
}

int openGroup() {
    if (gNextGroup >= kMaxGroups) {
        Qlregerror("Too many \\(s");
        return kError;
    }
    gGroupStack[gGroupDepth++] = gNextGroup;
    return kOpen + gNextGroup++;
}

int closeGroup() {
    if (gGroupDepth == 0) {
        Qlregerror("Mismatched \\)");
        return kError;
    }
    return kClose + gGroupStack[--gGroupDepth];
}

// Reads one token at *sp and moves past it; 0 at the end of the pattern.
int gettoken(const unsigned char **sp) {
    const unsigned char *s = *sp;
    int c = *s;
    if (c == 0) return 0;
    int tok;
    if (c == '\\') {
        int e = s[1];
        if (e == 0) {
            tok = '\\';  // a trailing backslash stands for itself
            s += 1;
        } else {
            s += 2;
            switch (e) {
            case '+': tok = kPlus; break;
            case '?': tok = kQuestion; break;
            case '<': tok = kWordStart; break;
            case '>': tok = kWordEnd; break;
            case '(': tok = openGroup(); break;
            case ')': tok = closeGroup(); break;
            case '.': tok = o_magic ? '.' : kAny; break;
            case '*': tok = o_magic ? '*' : kStar; break;
            default: tok = e; break;
            }
        }
    } else if (c == '^' && s == gPatternStart) {
        tok = kStart;
        ++s;
    } else if (c == '$' && s[1] == 0) {
        tok = kEnd;
        ++s;
    } else if (o_magic && c == '.') {
        tok = kAny;
        ++s;
    } else if (o_magic && c == '*') {
        tok = kStar;
        ++s;
    } else if (o_magic && c == '[') {
        if (gClassCount >= kMaxClasses) {
            Qlregerror("Too many []s");
            return kError;
        }
        unsigned char scratch[kClassBytes];
        unsigned char *bits = gClassArea ? gClassArea + kClassBytes * gClassCount : scratch;
        s = makeclass(s + 1, bits);
        if (!s) return kError;
        tok = kClass + gClassCount++;
    } else {
        tok = c;
        ++s;
    }
    *sp = s;
    return tok;
}

// Bytes the program and classes of a pattern need: 5, plus 1 per literal,
// 2 per other token and 34 per class.  The emitting pass stores at most
// this: group 0's open and close take 4, and "^" is counted but not stored.
bool calcsize(const unsigned char *pattern, size_t *size, int *classes) {
    resetCounters(pattern, nullptr);
    size_t n = 5;
    const unsigned char *s = pattern;
    for (int t; (t = gettoken(&s)) != 0;) {
        if (t == kError) return false;
        n += isLiteral(t) ? 1 : isClass(t) ? 2 + kClassBytes : 2;
    }
    *size = n;
    *classes = gClassCount;
    return true;
}

// Writes tokens into the program area, which calcsize has sized.
struct Emitter {
    unsigned char *p, *end;
    bool overflow = false;

    void byte(int b) {
        assert(p < end);
        if (p < end) *p++ = static_cast<unsigned char>(b);
        else overflow = true;
    }
    void put(int tok) {
        if (tok < 256) {
            byte(tok);
        } else {
            byte(0);
            byte(tok - 256);
        }
    }
};

const unsigned char *classesOf(const regexp *re) { return reinterpret_cast<const unsigned char *>(re + 1); }
const unsigned char *programOf(const regexp *re) { return classesOf(re) + kClassBytes * re->nclasses; }

int fetch(const unsigned char *&pc) {
    int b = *pc++;
    return b ? b : 256 + *pc++;
}

// 0 if the character matches the atom, 1 if not.  The end of the text
// matches nothing.
int match1(const regexp *re, unsigned char c, int tok) {
    if (c == 0) return 1;
    if (tok == kAny) return 0;
    if (isClass(tok)) {
        const unsigned char *bits = classesOf(re) + kClassBytes * static_cast<size_t>(tok - kClass);
        return (bits[c >> 3] >> (c & 7)) & 1 ? 0 : 1;
    }
    if (c == tok) return 0;
    if (o_ignorecase && c >= 'A' && c <= 'Z' && c - 'A' + 'a' == tok) return 0;
    return 1;
}

// The state of one Qlregexec call.
//
// The matcher backtracks with a stack of its own instead of recursing, so
// its depth is bounded by memory, not by the thread's stack: one frame per
// repetition of the pattern.  Whether the program from a repetition onwards
// matches at a given offset depends on nothing else, so a failed pair is
// remembered and never explored again; that keeps patterns such as
// "a*a*a*a*a*b" polynomial instead of exponential in the text length.
struct Search {
    struct Frame {
        const unsigned char *resume;  // program after the repetition's atom
        const char *base;             // where the repetition started
        ptrdiff_t next;               // count of characters to try next
        ptrdiff_t min;                // fewest it may take
        size_t rep;                   // which repetition
    };

    // Bit budget of the table of failed pairs; larger searches remember
    // their failures in a hash set instead.
    static constexpr size_t kTableBits = size_t{1} << 24;

    regexp *re;
    const char *text;
    size_t len;
    const unsigned char *program;
    std::vector<const unsigned char *> reps;  // the repetitions, in program order
    std::vector<uint64_t> table;              // bit rep * (len + 1) + offset
    std::unordered_set<uint64_t> spill;
    bool useTable;
    std::vector<Frame> stack;

    Search(regexp *r, const char *t, size_t n) : re(r), text(t), len(n), program(programOf(r)) {
        for (int pass = 0; pass < 2; ++pass) {  // count, then record
            size_t count = 0;
            for (const unsigned char *pc = program;;) {
                const unsigned char *at = pc;
                int tok = fetch(pc);
                if (tok == kClose) break;
                if (isRepetition(tok)) {
                    if (pass) reps.push_back(at);
                    ++count;
                    fetch(pc);
                }
            }
            if (!pass) {
                reps.reserve(count);
                stack.reserve(count);
            }
        }
        useTable = reps.empty() || (len + 1) <= kTableBits / reps.size();
    }

    size_t repIndex(const unsigned char *at) const {
        return static_cast<size_t>(std::lower_bound(reps.begin(), reps.end(), at) - reps.begin());
    }
    uint64_t key(size_t rep, const char *at) const {
        return static_cast<uint64_t>(rep) * (len + 1) + static_cast<uint64_t>(at - text);
    }
    bool hasFailed(size_t rep, const char *at) const {
        uint64_t k = key(rep, at);
        if (useTable) return !table.empty() && (table[k >> 6] >> (k & 63)) & 1;
        return spill.count(k) != 0;
    }
    void markFailed(size_t rep, const char *at) {
        uint64_t k = key(rep, at);
        if (useTable) {
            if (table.empty()) table.assign((reps.size() * (len + 1) + 63) / 64, 0);
            table[k >> 6] |= uint64_t{1} << (k & 63);
        } else {
            spill.insert(k);
        }
    }
};

enum class Step { kMatched, kFailed, kBranch };

// Runs the program from pc at pos up to a success, a failure, or a
// repetition, for which it pushes a frame to be tried by the caller.
Step run(Search &s, const unsigned char *pc, const char *pos) {
    for (;;) {
        const unsigned char *at = pc;
        int tok = fetch(pc);
        if (tok == kEnd) {
            if (*pos) return Step::kFailed;
        } else if (tok == kWordStart) {
            if (pos != s.text && isWordChar(static_cast<unsigned char>(pos[-1]))) return Step::kFailed;
        } else if (tok == kWordEnd) {
            if (isWordChar(static_cast<unsigned char>(*pos))) return Step::kFailed;
        } else if (isOpen(tok)) {
            s.re->startp[tok - kOpen] = const_cast<char *>(pos);
        } else if (isClose(tok)) {
            s.re->endp[tok - kClose] = const_cast<char *>(pos);
            if (tok == kClose) return Step::kMatched;
        } else if (isRepetition(tok)) {
            int atom = fetch(pc);
            size_t rep = s.repIndex(at);
            if (s.hasFailed(rep, pos)) return Step::kFailed;
            ptrdiff_t n = 0;
            ptrdiff_t limit = tok == kQuestion ? 1 : PTRDIFF_MAX;
            while (n < limit && match1(s.re, static_cast<unsigned char>(pos[n]), atom) == 0) ++n;
            s.stack.push_back({pc, pos, n, tok == kPlus ? 1 : 0, rep});
            return Step::kBranch;
        } else {
            if (match1(s.re, static_cast<unsigned char>(*pos), tok)) return Step::kFailed;
            ++pos;
        }
    }
}

// 0 if the program matches at pos, 1 if not.  Each repetition takes as
// many characters as it can, then gives them back one at a time.
int match(Search &s, const unsigned char *pc, const char *pos) {
    s.stack.clear();
    for (;;) {
        if (run(s, pc, pos) == Step::kMatched) {
            s.stack.clear();
            return 0;
        }
        // Next count of the innermost repetition that has one left.
        for (;;) {
            if (s.stack.empty()) return 1;
            Search::Frame &f = s.stack.back();
            if (f.next >= f.min) {
                pc = f.resume;
                pos = f.base + f.next;
                --f.next;
                // A literal right after the repetition rules out most counts
                // without running the program.
                if (*pc && match1(s.re, static_cast<unsigned char>(*pos), *pc)) continue;
                break;
            }
            s.markFailed(f.rep, f.base);
            s.stack.pop_back();
        }
    }
}

}  // namespace

void Qlregerror(const char *message) { std::fprintf(stderr, "RE error: %s\n", message ? message : ""); }

regexp *Qlregcomp(const char *pattern) {
    try {
        if (pattern && *pattern) gPrevious.assign(pattern);
    } catch (const std::bad_alloc &) {
        Qlregerror("Not enough memory for this RE");
        return nullptr;
    }
    if (gPrevious.empty()) {
        Qlregerror("No previous RE");
        return nullptr;
    }
    const unsigned char *pat = reinterpret_cast<const unsigned char *>(gPrevious.c_str());

    size_t size;
    int nclasses;
    if (!calcsize(pat, &size, &nclasses)) return nullptr;
    size_t total = sizeof(regexp) + size;
    auto *re = static_cast<regexp *>(std::malloc(total));
    if (!re) {
        Qlregerror("Not enough memory for this RE");
        return nullptr;
    }
    std::memset(re, 0, total);
    unsigned char *area = reinterpret_cast<unsigned char *>(re + 1);
    resetCounters(pat, area);
    Emitter out{area + kClassBytes * static_cast<size_t>(nclasses), area + size};

    const unsigned char *s = pat;
    int prev = kOpen;
    int tok = gettoken(&s);
    bool firstOpen = true;
    for (;;) {
        if (tok == kError) break;
        if (isRepetition(tok)) {
            if (isOpen(prev)) {
                Qlregerror("* or \\+ or \\? follows nothing");
                break;
            }
            if (!isLiteral(prev) && prev != kAny && !isClass(prev)) {
                Qlregerror("* or \\+ or \\? can only follow a normal character or . or []");
                break;
            }
            out.put(tok);
            if (firstOpen && tok == kPlus && isLiteral(prev)) re->first = static_cast<unsigned char>(prev);
            firstOpen = false;
            tok = gettoken(&s);
            if (tok == kError) break;
            if (isRepetition(tok)) {
                Qlregerror("* or \\+ or \\? doubled up");
                break;
            }
        } else if (isLiteral(prev)) {
            if (firstOpen) re->first = static_cast<unsigned char>(prev);
            firstOpen = false;
            re->minlen++;
        } else if (prev == kAny || isClass(prev)) {
            re->minlen++;
            firstOpen = false;
        }
        if (prev == kStart) re->bol = 1;
        else out.put(prev);

        prev = tok;
        if (prev == 0) {
            out.put(kClose);
            if (gGroupDepth > 0) {
                Qlregerror("Not enough \\)s");
                break;
            }
            if (out.overflow) break;
            re->nclasses = static_cast<unsigned char>(gClassCount);
            gClassArea = nullptr;
            return re;
        }
        tok = gettoken(&s);
    }
    gClassArea = nullptr;
    std::free(re);
    return nullptr;
}

int Qlregexec(regexp *re, const char *text, int atStart) {
    if (!re || !text) return 0;
    if (re->bol && !atStart) return 0;
    try {
        size_t len = std::strlen(text);
        size_t minlen = re->minlen > 0 ? static_cast<size_t>(re->minlen) : 0;
        Search s(re, text, len);
        if (re->bol) {
            if (re->first && match1(re, static_cast<unsigned char>(text[0]), re->first)) return 0;
            if (len < minlen) return 0;
            return match(s, s.program, text) == 0;
        }
        for (size_t at = 0;; ++at) {
            if (len - at < minlen) return 0;
            if (!re->first || match1(re, static_cast<unsigned char>(text[at]), re->first) == 0)
                if (match(s, s.program, text + at) == 0) return 1;
            if (at == len) return 0;
        }
    } catch (const std::bad_alloc &) {
        return 0;
    }
}
