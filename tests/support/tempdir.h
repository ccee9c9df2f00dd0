// A scratch directory that goes away with the test, and file helpers.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace qltest {

class TempDir {
public:
    TempDir() {
        std::string t = (std::filesystem::temp_directory_path() / "qltestXXXXXX").string();
        path_ = mkdtemp(t.data());
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    const std::string &path() const { return path_; }
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

inline std::string ReadFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

inline void WriteFile(const std::string &path, const std::string &text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

inline bool Exists(const std::string &path) { return std::filesystem::exists(path); }

// Sets an environment variable for the life of the object.
class ScopedEnv {
public:
    ScopedEnv(const char *name, const char *value) : name_(name) {
        if (const char *old = std::getenv(name)) {
            had_ = true;
            old_ = old;
        }
        if (value) setenv(name, value, 1);
        else unsetenv(name);
    }
    ~ScopedEnv() {
        if (had_) setenv(name_.c_str(), old_.c_str(), 1);
        else unsetenv(name_.c_str());
    }

private:
    std::string name_, old_;
    bool had_ = false;
};

// The build's configuration directory: font list, prolog, metric files.
inline std::string BuildConfigDir() { return std::string(std::getenv("QL_BINARY_DIR")) + "/share/qualin"; }

// A configuration directory of the test's own, named by QLPATH for the
// object's life: the build's prolog (unless left out), its font list with
// any extra lines, and its metric files.
struct ConfigDir {
    TempDir dir;
    ScopedEnv qlpath{"QLPATH", dir.path().c_str()};
    explicit ConfigDir(bool prolog = true, const std::string &extraFonts = "") {
        const std::string data = BuildConfigDir();
        if (prolog) WriteFile(dir / "qualin.prolog", ReadFile(data + "/qualin.prolog"));
        WriteFile(dir / "psstd.fonts", ReadFile(data + "/psstd.fonts") + extraFonts);
        std::filesystem::create_symlink(data + "/fontmetrics", dir / "fontmetrics");
    }
};

}  // namespace qltest
