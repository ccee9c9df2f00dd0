// Font name matching: compiling a pattern of the kind the drivers build
// from an X font name, matching it, and the C library's regcomp/regexec on
// the same work.
#include <benchmark/benchmark.h>

#include "text/regexp.h"

#include <cstdlib>
#include <regex.h>

namespace {

const char *const kPattern = "^-adobe-helvetica-bold-r-normal--.*-.*-.*-.*-.*-.*-iso8859-1$";
const char *const kName = "-adobe-helvetica-bold-r-normal--12-120-75-75-p-70-iso8859-1";
const char *const kOtherName = "-adobe-helvetica-bold-r-normal--12-120-75-75-p-70-iso10646-1";

void BM_Compile(benchmark::State &state) {
    for (auto _ : state) {
        regexp *re = Qlregcomp(kPattern);
        benchmark::DoNotOptimize(re);
        std::free(re);
    }
}
BENCHMARK(BM_Compile);

// A matching name, then one that fails only at its last field.
void BM_Match(benchmark::State &state) {
    regexp *re = Qlregcomp(kPattern);
    const char *name = state.range(0) ? kName : kOtherName;
    for (auto _ : state) benchmark::DoNotOptimize(Qlregexec(re, name, 1));
    std::free(re);
}
BENCHMARK(BM_Match)->Arg(1)->Arg(0);

void BM_CompileAndMatch(benchmark::State &state) {
    for (auto _ : state) {
        regexp *re = Qlregcomp(kPattern);
        benchmark::DoNotOptimize(Qlregexec(re, kName, 1));
        std::free(re);
    }
}
BENCHMARK(BM_CompileAndMatch);

void BM_PosixCompileAndMatch(benchmark::State &state) {
    for (auto _ : state) {
        regex_t re;
        regcomp(&re, kPattern, REG_NOSUB);
        benchmark::DoNotOptimize(regexec(&re, kName, 0, nullptr, 0));
        regfree(&re);
    }
}
BENCHMARK(BM_PosixCompileAndMatch);

}  // namespace
