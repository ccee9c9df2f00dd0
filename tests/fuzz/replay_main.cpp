// Runs a fuzz target over every file of a corpus directory (or the files
// named), so that the corpus is replayed in each ordinary test run.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

static int runFile(const std::filesystem::path &p) {
    std::ifstream in(p, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::vector<uint8_t> data(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(data.data(), data.size());
    return 1;
}

int main(int argc, char **argv) {
    int n = 0;
    for (int i = 1; i < argc; ++i) {
        std::filesystem::path p(argv[i]);
        if (std::filesystem::is_directory(p)) {
            for (auto &e : std::filesystem::recursive_directory_iterator(p))
                if (e.is_regular_file()) n += runFile(e.path());
        } else {
            n += runFile(p);
        }
    }
    std::printf("replayed %d inputs\n", n);
    return n > 0 ? 0 : 1;
}
