// A scratch directory for a fuzz target: made once, removed at exit.  The
// library's messages are silenced while the target runs.
#pragma once

#include <qualin/Ql.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace qlfuzz {

inline std::string &ScratchPath() {
    static std::string path;
    return path;
}

// The directory, and whether it was made just now.
inline const std::string &Scratch(bool *fresh = nullptr) {
    std::string &path = ScratchPath();
    if (fresh) *fresh = path.empty();
    if (!path.empty()) return path;
    char tmpl[] = "/tmp/qlfuzz.XXXXXX";
    if (!mkdtemp(tmpl)) std::abort();
    path = tmpl;
    std::atexit([] {
        std::error_code ec;
        std::filesystem::remove_all(ScratchPath(), ec);
    });
    QlSetErrorHandler([](QlErrorRecord *) { return 0; });
    return path;
}

}  // namespace qlfuzz
