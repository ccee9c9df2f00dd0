// The font name pattern engine: compile faults, the compiled block, matching
// rules, and agreement with the C library's basic regular expressions.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <regex.h>
#include <string>
#include <tuple>

#include "text/regexp.h"

namespace {

struct FreeRe {
    void operator()(regexp *r) const { std::free(r); }
};
using Re = std::unique_ptr<regexp, FreeRe>;

// What compiling prints, or "ok".
std::string CompileFault(const std::string &pattern) {
    testing::internal::CaptureStderr();
    Re re(Qlregcomp(pattern.c_str()));
    std::string err = testing::internal::GetCapturedStderr();
    return re ? "ok" + err : err;
}

// Offsets of group g of the match, "-" for none.
std::string Span(const char *pattern, const char *text, int atStart = 1, int g = 0) {
    Re re(Qlregcomp(pattern));
    if (!re) return "fault";
    if (!Qlregexec(re.get(), text, atStart)) return "-";
    return std::to_string(re->startp[g] - text) + "," + std::to_string(re->endp[g] - text);
}

}  // namespace

TEST(RegexpCompile, EmptyPatternWithoutPreviousIsRefused) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // a fresh process: nothing compiled yet
    EXPECT_EXIT(std::exit(Qlregcomp("") ? 1 : 0), testing::ExitedWithCode(0), "^RE error: No previous RE\n$");
}

TEST(RegexpCompile, FaultsAreReportedOnce) {
    const std::string groups = "\\(\\(\\(\\(\\(\\(\\(\\(\\(\\(a\\)\\)\\)\\)\\)\\)\\)\\)\\)\\)";
    const char *follows = "* or \\+ or \\? follows nothing", *doubled = "* or \\+ or \\? doubled up";
    const char *only = "* or \\+ or \\? can only follow a normal character or . or []";
    const std::pair<std::string, std::string> cases[] = {
        {"\\+a", follows}, {"\\(*a\\)", follows}, {"a**", doubled}, {"a*\\?", doubled}, {"^*", only},
        {"\\(a\\)*", only}, {"[z-a]", "Backwards span in []"}, {"[a-\xff]", "Backwards span in []"},
        {"[ab", "] missing"}, {"[^", "] missing"}, {"\\(a\\)\\)", "Mismatched \\)"}, {"\\(a", "Not enough \\)s"},
        {"[a][a][a][a][a][a][a][a][a][a][a]", "Too many []s"}, {groups, "Too many \\(s"},
        {"", "Too many \\(s"},  // the previous pattern, even a faulty one
    };
    for (const auto &[pattern, message] : cases)
        EXPECT_EQ(CompileFault(pattern), "RE error: " + message + "\n") << pattern;
    EXPECT_EQ(CompileFault("[a][a][a][a][a][a][a][a][a][a]"), "ok");
    EXPECT_EQ(CompileFault(groups.substr(2, groups.size() - 4)), "ok");
    Re ab(Qlregcomp("ab"));
    EXPECT_EQ(Span("", "xaby"), "1,3");
    EXPECT_EQ(Span(nullptr, "ba"), "-");
}

TEST(RegexpCompile, BlockHoldsHintsClassesAndProgram) {
    Re re(Qlregcomp("x\\+[0-9]\\(.\\)$"));
    ASSERT_TRUE(re);
    EXPECT_EQ(re->bol, 0);
    EXPECT_EQ(re->first, 'x');
    EXPECT_EQ(re->minlen, 2);
    ASSERT_EQ(re->nclasses, 1);
    const auto *bytes = reinterpret_cast<const unsigned char *>(re.get() + 1);
    for (int i = 0; i < 32; ++i) EXPECT_EQ(bytes[i], i == 6 ? 0xff : i == 7 ? 0x03 : 0) << i;
    const unsigned char program[] = {0, 18, 0, 6, 'x', 0, 8, 0, 19, 0, 4, 0, 29, 0, 1, 0, 28};
    EXPECT_EQ(std::basic_string<unsigned char>(bytes + 32, sizeof program),
              std::basic_string<unsigned char>(program, sizeof program));
    for (auto [pattern, bol, first, minlen] : {std::tuple{"^ab*c", 1, 'a', 2}, {"a*b", 0, 0, 1}}) {
        Re r(Qlregcomp(pattern));
        EXPECT_EQ(r->bol, bol);
        EXPECT_EQ(r->first, first) << pattern;
        EXPECT_EQ(r->minlen, minlen) << pattern;
    }
}

TEST(RegexpMatch, Rules) {
    const struct {
        int magic, icase, atStart, group;
        const char *pattern, *text, *span;
    } cases[] = {
        // Anchors only at the pattern's ends; a trailing backslash is itself.
        {1, 0, 1, 0, "a$b", "xa$by", "1,4"}, {1, 0, 1, 0, "a^b", "ab", "-"}, {1, 0, 0, 0, "^ab", "abc", "-"},
        {1, 0, 0, 0, "b$", "ab", "1,2"}, {1, 0, 1, 0, "$", "abc", "3,3"}, {1, 0, 1, 0, "a\\", "a\\", "0,2"},
        // Repetitions take all they can and give back.
        {1, 0, 1, 0, "a*", "", "0,0"}, {1, 0, 1, 0, ".*", "abc", "0,3"}, {1, 0, 1, 0, "a\\+ab", "xaaab", "1,5"},
        {1, 0, 1, 0, "xa\\?b", "xb", "0,2"}, {1, 0, 1, 0, "xa\\?b", "xaab", "-"}, {1, 0, 1, 0, "x.\\+", "x", "-"},
        {1, 0, 1, 2, "\\(a\\(b\\)c\\)", "abc", "1,2"},
        {1, 0, 1, 1, "\\(a*\\)\\(a\\)", "aaa", "0,2"}, {1, 0, 1, 2, "-\\(.*\\)-\\(.*\\)-", "-ab-cd-ef-", "7,9"},
        // Word boundaries; high bytes are not word characters.
        {1, 0, 1, 0, "\\<foo", "xfoo foo", "5,8"}, {1, 0, 1, 0, "foo\\>", "foo_ foo9 foo-", "10,13"},
        {1, 0, 1, 0, "\\<foo\\>", "\xe9" "foo\xe9", "1,4"}, {1, 0, 1, 0, "\\<foo", "xfoo" + 1, "0,3"},
        // Classes: "[]" is empty, ranges are signed, bits unsigned.
        {1, 0, 1, 0, "[]a]", "]a]", "-"}, {1, 0, 1, 0, "[^]", "q", "0,1"}, {1, 0, 1, 0, "[a-]", "x-", "1,2"},
        {1, 0, 1, 0, "[\x80-\xff]", "a\xe9", "1,2"}, {1, 0, 1, 0, "[^\xe9]", "\xe9\x69", "1,2"},
        // Without magic "\." and "\*" are operators, ".", "*" and "[" literals.
        {0, 0, 1, 0, "a.c", "abc", "-"}, {0, 0, 1, 0, "a\\.c", "abc", "0,3"}, {0, 0, 1, 0, "ab*", "abbb", "-"},
        {0, 0, 1, 0, "ab\\*", "abbb", "0,4"}, {0, 0, 1, 0, "[ab]", "b[ab]", "1,5"},
        // Ignoring case folds upper case text onto lower case literals only.
        {1, 1, 1, 0, "abc", "xxABC", "2,5"}, {1, 1, 1, 0, "^helv", "HelV", "0,4"}, {1, 1, 1, 0, "ABC", "abc", "-"},
        {1, 1, 1, 0, "[a]", "A", "-"}, {1, 1, 1, 0, "-.*bold", "-xBOLD", "0,6"},
    };
    for (const auto &c : cases) {
        o_magic = static_cast<unsigned char>(c.magic);
        o_ignorecase = static_cast<unsigned char>(c.icase);
        EXPECT_EQ(Span(c.pattern, c.text, c.atStart, c.group), c.span) << c.pattern << " on " << c.text;
    }
    o_magic = 1;
    o_ignorecase = 0;
    Re re(Qlregcomp("a*"));
    EXPECT_EQ(Qlregexec(re.get(), nullptr, 1), 0);
    EXPECT_EQ(Qlregexec(nullptr, "a", 1), 0);
}

TEST(RegexpMatch, LongAndPathologicalInputs) {
    std::string text(4096, 'a');
    EXPECT_EQ(Span(".*b", text.c_str()), "-");
    EXPECT_EQ(Span("a*a*a*b", (text + "b").c_str()), "0,4097");
    std::string many, huge;  // exponential without remembering failed branches
    for (int i = 0; i < 30; ++i) many += "a*";
    EXPECT_EQ(Span((many + "c").c_str(), std::string(300, 'a').c_str()), "-");
    for (int i = 0; i < 50000; ++i) huge += "a\\?";  // one backtracking frame each, off the stack
    EXPECT_EQ(Span((huge + "b").c_str(), "aab"), "0,3");
}

// Random patterns of the syntax shared with POSIX basic expressions: no
// "*" after nothing, no class opening with "]", "^" and "$" inside only
// where they are literals for both.
TEST(RegexpDifferential, AgreesWithPosixBasicExpressions) {
    std::mt19937 rng(20240611);
    auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
    int groups = 0;
    std::function<std::string(int)> sequence = [&](int depth) {
        std::string s;
        for (int i = 0, n = pick(5); i < n; ++i) {
            if (int kind = pick(10); kind == 0 && depth < 2 && groups < 9) {
                ++groups;
                s += "\\(" + sequence(depth + 1) + "\\)";
            } else if (kind == 1 && i > 0 && i < n - 1) {
                s += "^$"[pick(2)];
            } else {
                const char *atoms[] = {".", "\\.", "[ab]", "[^a-b]", "[c-]", "a", "b", "c", "-"};
                s += std::string(atoms[pick(9)]) + (pick(3) ? "" : "*");
            }
        }
        return s;
    };
    int compared = 0, matched = 0;
    for (int i = 0; i < 3000; ++i) {
        groups = 0;
        std::string pattern = (pick(4) ? "" : "^") + sequence(0) + (pick(4) ? "" : "$");
        if (pattern.empty()) pattern = "a";
        regex_t posix;
        ASSERT_EQ(regcomp(&posix, pattern.c_str(), 0), 0) << pattern;
        Re re(Qlregcomp(pattern.c_str()));
        ASSERT_TRUE(re) << pattern;
        for (int j = 0; j < 8; ++j) {
            std::string text;
            for (int n = pick(9); n > 0; --n) text += "aabbc-$^."[pick(9)];
            int atStart = j & 1;
            regmatch_t m[1];
            bool want = regexec(&posix, text.c_str(), 1, m, atStart ? 0 : REG_NOTBOL) == 0;
            ASSERT_EQ(Qlregexec(re.get(), text.c_str(), atStart), want) << pattern << " on " << text << " " << atStart;
            // Both find the leftmost start; the ends may differ.
            if (want) {
                ASSERT_EQ(re->startp[0] - text.c_str(), m[0].rm_so) << pattern << " on " << text;
            }
            ++compared;
            matched += want;
        }
        regfree(&posix);
    }
    EXPECT_EQ(compared, 24000);
    EXPECT_GT(matched, compared / 5);  // the generator makes both answers often
    EXPECT_LT(matched, compared * 4 / 5);
}
