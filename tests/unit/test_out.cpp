// The number writer: the same bytes as printf in the C locale, without
// ever printing "inf" or "nan".
#include <gtest/gtest.h>

#include "core/out.h"

#include <cmath>
#include <cstdio>
#include <random>

namespace {

std::string c(const char *fmt, double v) {
    char buf[128];
    std::snprintf(buf, sizeof buf, fmt, v);
    return buf;
}

TEST(Writer, FixedAndGeneralMatchPrintf) {
    std::mt19937_64 rng(42);
    std::uniform_real_distribution<double> wide(-1e7, 1e7), narrow(-2, 2);
    for (int i = 0; i < 20000; ++i) {
        double v = (i % 2) ? wide(rng) : narrow(rng);
        if (i % 7 == 0) v = std::round(v * 1000) / 1000 + 0.005;  // ties at the second decimal
        for (const char *f : {"%.2f", "%.3f", "%.1f", "%f", "%g", "%e"})
            ASSERT_EQ(ql::format(f, v), c(f, v)) << f << " of " << v;
    }
    for (double v : {0.0, -0.0, 0.125, 0.375, -0.005, 1e-9, 2.5, 1e15, 612.0 * 300 / 72})
        for (const char *f : {"%.2f", "%g", "%.0f"}) EXPECT_EQ(ql::format(f, v), c(f, v)) << f << " of " << v;
}

TEST(Writer, IntegersTextsAndPadding) {
    EXPECT_EQ(ql::format("%d %i %u", -42, 7, 3u), "-42 7 3");
    EXPECT_EQ(ql::format("%.2x%.2x|%04X|%x", 10, 255, 48879, -1), "0aff|BEEF|ffffffff");
    EXPECT_EQ(ql::format("%.4x", 0), "0000");
    EXPECT_EQ(ql::format("[%5d][%-5d][%05d][%+d]", 42, 42, -42, 42), "[   42][42   ][-0042][+42]");
    EXPECT_EQ(ql::format("%s/%.3s/%5s/%-5s|", "abc", "abcdef", "ab", "ab"), "abc/abc/   ab/ab   |");
    EXPECT_EQ(ql::format("%%%%Page: %d\n", 3), "%%Page: 3\n");
    EXPECT_EQ(ql::format("%c%c", 'A', 66), "AB");
    EXPECT_EQ(ql::format("%s", static_cast<const char *>(nullptr)), "(null)");
    // Missing arguments and unknown directives do no harm.
    EXPECT_EQ(ql::format("%d %s %y"), "0 (null) %y");
    EXPECT_EQ(ql::format("%ld %lu %zu", 5L, 6UL, size_t(7)), "5 6 7");
    std::string big(3000, 'x');
    EXPECT_EQ(ql::format("<%s>", big), "<" + big + ">");
}

TEST(Writer, NonFiniteValuesPrintAsZero) {
    EXPECT_EQ(ql::format("%.2f %.2f %.2f", INFINITY, -INFINITY, NAN), "0.00 0.00 0.00");
    EXPECT_EQ(ql::format("%g %d", NAN, NAN), "0 0");
    EXPECT_EQ(ql::format("%.2f", 1e300), "0.00");
}

TEST(Writer, StreamAndStringAgree) {
    char *buf = nullptr;
    size_t len = 0;
    FILE *f = open_memstream(&buf, &len);
    ql::put(f, "%.2f %.2f sl\n", 1.0, -1.0);
    ql::write(f, "gs\n");
    std::fclose(f);
    EXPECT_EQ(std::string(buf, len), "1.00 -1.00 sl\ngs\n");
    std::free(buf);
}

}  // namespace

namespace {

std::string fixed(double v, int decimals) {
    char buf[32];
    char *end = ql::FormatFixed(buf, v, decimals);
    return end ? std::string(buf, end) : "(none)";
}

std::string printed(double v, int decimals) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.*f", decimals, v);
    return buf;
}

// Every coordinate a mark can carry at the usual resolutions: whole and
// half dots times 72/resolution, in all precisions the drivers use.
TEST(FixedWriter, PageCoordinatesMatchPrintf) {
    for (int res : {72, 75, 100, 150, 300, 360, 600, 1200, 2400}) {
        const double k = 72.0 / res;
        for (int i = -15000; i <= 15000; ++i)
            for (double v : {i * k, (i + 0.5) * k, i / 64.0})
                for (int d = 0; d <= 4; ++d) ASSERT_EQ(fixed(v, d), printed(v, d)) << v << " at " << res;
    }
}

// Ties and their neighbours, small negatives, all magnitudes up to the
// limit, and what is left to the general path.
TEST(FixedWriter, RoundingEdgesAndRangeMatchPrintf) {
    std::mt19937_64 rng(7);
    std::uniform_real_distribution<double> mantissa(1, 10);
    std::uniform_int_distribution<int> exponent(-12, 13);
    for (int i = 0; i < 100000; ++i) {
        double v = mantissa(rng) * std::pow(10.0, exponent(rng)) * (i % 2 ? -1 : 1);
        const int d = i % 5;
        if (i % 3 == 0) v = (std::round(v * std::pow(10.0, d)) + 0.5) / std::pow(10.0, d);  // a tie, near enough
        for (double w : {v, std::nextafter(v, 0.0), std::nextafter(v, 1e300)}) {
            if (std::fabs(w) < 1e14) {
                ASSERT_EQ(fixed(w, d), printed(w, d)) << w << " with " << d;
            }
        }
    }
    for (double v : {0.0, -0.0, 0.5, 1.5, 2.5, 0.125, -0.125, 0.375, 1.0625, -0.001, -0.004999, 99999999999999.98})
        for (int d = 0; d <= 4; ++d) EXPECT_EQ(fixed(v, d), printed(v, d)) << v << " with " << d;
    for (double v : {1e14, -1e14, HUGE_VAL, -HUGE_VAL, double(NAN)}) EXPECT_EQ(fixed(v, 2), "(none)");
    EXPECT_EQ(fixed(1.0, 5), "(none)");
    EXPECT_EQ(fixed(1.0, -1), "(none)");
}

}  // namespace
