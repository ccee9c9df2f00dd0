// Profile files.  Every read opens the file anew and reads it line by line
// with short fixed reads; a write copies the file into a replacement with
// the one edit made on the way, and renames the replacement over it.
#include "config/profile.h"

#include "config/ppd.h"
#include "core/out.h"
#include "core/qlint.h"
#include "port/kvo.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

struct FileCloser {
    void operator()(FILE *f) const { std::fclose(f); }
};
using File = std::unique_ptr<FILE, FileCloser>;

char *gSystemProfile = nullptr;
char *gUserProfile = nullptr;
bool gHomeLooked = false;

// The name of a header line "[name]...", cut at its "]", against `section`.
bool isSection(char *line, const char *section) {
    if (line[0] != '[') return false;
    char *name = line + 1;
    if (char *end = std::strchr(name, ']')) *end = '\0';
    return _kvo_strcasecmp(name, section) == 0;
}

// The key of a key line, the text before its first "=", against `key`.
bool isKey(const char *line, const char *key) {
    size_t n = std::strcspn(line, "=");
    return std::strlen(key) == n && _kvo_strncasecmp(line, key, n) == 0;
}

int copyDefault(const char *deflt, char *dst, unsigned len) {
    if (!dst || !len) return 0;
    std::strncpy(dst, deflt ? deflt : "", len);
    return static_cast<int>(strnlen(dst, len));
}

void replaceName(char *&slot, const char *name) {
    std::free(slot);
    slot = _kvo_strdup(name);
}

bool exists(const char *path) { return path && access(path, F_OK) == 0; }

}  // namespace

namespace ql {

bool ReadProfileLine(FILE *f, char *buf, int size) {
    if (!std::fgets(buf, size, f)) return false;
    if (size_t n = std::strlen(buf)) buf[n - 1] = '\0';
    return true;
}

FileReplacement::FileReplacement(const char *path) {
    if (!path || !*path) return;
    // Write beside the file a symbolic link names, not over the link.
    if (char *real = realpath(path, nullptr)) {
        target_ = real;
        std::free(real);
    } else {
        target_ = path;
    }
    size_t slash = target_.rfind('/');
    std::string dir = slash == std::string::npos ? "." : target_.substr(0, slash + 1);
    std::string base = slash == std::string::npos ? target_ : target_.substr(slash + 1);
    temp_ = dir + (slash == std::string::npos ? "/." : ".") + base + ".XXXXXX";
    int fd = mkstemp(temp_.data());
    if (fd < 0) {
        temp_.clear();
        return;
    }
    struct stat st;
    if (stat(target_.c_str(), &st) == 0) {
        if (geteuid() == 0) (void)fchown(fd, st.st_uid, st.st_gid);
        fchmod(fd, st.st_mode & 07777);
    } else {
        mode_t mask = umask(0);
        umask(mask);
        fchmod(fd, 0666 & ~mask);
    }
    out_ = fdopen(fd, "w");
    if (!out_) {
        close(fd);
        unlink(temp_.c_str());
        temp_.clear();
    }
}

FileReplacement::~FileReplacement() {
    if (out_) std::fclose(out_);
    if (!temp_.empty()) unlink(temp_.c_str());
}

bool FileReplacement::commit() {
    if (!out_) return false;
    bool ok = std::fflush(out_) == 0 && !std::ferror(out_) && fsync(fileno(out_)) == 0;
    ok = std::fclose(out_) == 0 && ok;
    out_ = nullptr;
    if (ok && std::rename(temp_.c_str(), target_.c_str()) == 0) {
        temp_.clear();
        return true;
    }
    return false;
}

}  // namespace ql

char *stripspace(char *s) {
    if (!s) return nullptr;
    while (*s == ' ') ++s;
    size_t n = std::strlen(s);
    while (n && s[n - 1] == ' ') s[--n] = '\0';
    return s;
}

int _QlGetPrivateProfileString(const char *section, const char *key, const char *deflt, char *dst, unsigned len,
                               const char *path) {
    File f(path ? std::fopen(path, "r") : nullptr);
    if (!f) {
        copyDefault(deflt, dst, len);
        return 0;
    }
    if (!section || !key) return copyDefault(deflt, dst, len);
    char line[256];
    // End of file is tested right after each read: a last line without a
    // newline is not there for this reader.
    auto next = [&] { return ql::ReadProfileLine(f.get(), line, sizeof line) && !std::feof(f.get()); };
    for (;;) {
        if (!next()) return copyDefault(deflt, dst, len);
        if (isSection(line, section)) break;
    }
    for (;;) {
        if (!next() || line[0] == '[') return copyDefault(deflt, dst, len);
        if (!line[0] || !isKey(line, key)) continue;
        const char *eq = std::strchr(line, '=');
        const char *value = eq ? eq + 1 : "";
        if (!*value) {
            if (dst && len) dst[0] = '\0';
            return 0;
        }
        if (!dst || !len) return 0;
        std::strncpy(dst, value, len);
        return static_cast<int>(strnlen(dst, len));
    }
}

int _QlGetProfileString(const char *section, const char *key, const char *deflt, char *dst, unsigned len) {
    const char *path = _QlProfileName();
    if (!path) {
        copyDefault(deflt, dst, len);
        return 0;
    }
    return _QlGetPrivateProfileString(section, key, deflt, dst, len, path);
}

int _QlGetPrivateProfileInt(const char *section, const char *key, int deflt, const char *path) {
    char value[257] = {};
    _QlGetPrivateProfileString(section, key, "", value, 256, path);
    if (!value[0]) return static_cast<unsigned short>(deflt);
    return static_cast<unsigned short>(std::strtol(value, nullptr, 10));
}

int _QlGetProfileInt(const char *section, const char *key, int deflt) {
    const char *path = _QlProfileName();
    if (!path) return static_cast<unsigned short>(deflt);
    return _QlGetPrivateProfileInt(section, key, deflt, path);
}

char **_QlGetPrivateProfileSection(const char *section, int *count, const char *path) {
    int dummy;
    if (!count) count = &dummy;
    *count = 0;
    File f(path && section ? std::fopen(path, "r") : nullptr);
    if (!f) return nullptr;
    char line[255];
    for (;;) {
        if (!ql::ReadProfileLine(f.get(), line, sizeof line)) return nullptr;
        if (isSection(stripspace(line), section)) break;
    }
    std::vector<char *> lines;
    while (ql::ReadProfileLine(f.get(), line, sizeof line)) {
        char *s = stripspace(line);
        if (s[0] == ';') continue;
        if (s[0] == '[') break;
        lines.push_back(_kvo_strdup(s));
    }
    if (lines.empty()) return nullptr;
    auto **out = static_cast<char **>(std::malloc(lines.size() * sizeof(char *)));
    std::memcpy(out, lines.data(), lines.size() * sizeof(char *));
    *count = static_cast<int>(lines.size());
    return out;
}

void _QlFreeProfileSection(char **lines, int count) { freeDString(lines, count); }

int _QlWritePrivateProfileString(const char *section, const char *key, const char *value, const char *path) {
    if (!section || !path) return 0;
    File in(std::fopen(path, "r"));
    if (!in) return 0;
    ql::FileReplacement replacement(path);
    FILE *out = replacement.stream();
    if (!out) return 0;

    char line[256];
    auto next = [&] { return ql::ReadProfileLine(in.get(), line, sizeof line) && !std::feof(in.get()); };
    auto finish = [&] { return !std::ferror(in.get()) && replacement.commit() ? 1 : 0; };

    // Up to the section; every header met on the way loses what follows
    // its "]".
    bool found = false;
    while (!found && next()) {
        if (line[0] == '[') {
            found = isSection(line, section);
            ql::put(out, "[%s]\n", line + 1);
        } else {
            ql::put(out, "%s\n", line);
        }
    }
    if (!found) {
        if (!key) {
            ql::put(out, "\n[%s]\n\n", section);
        } else if (value) {
            ql::put(out, "\n[%s]\n", section);
            ql::put(out, "%s=%s\n\n", key, value);
        }
        return finish();
    }

    if (!key) {
        // The section is emptied; its header stays.
        ql::write(out, "\n");
        while (next()) {
            if (line[0] == '[') {
                ql::put(out, "%s\n", line);
                break;
            }
        }
    } else {
        for (;;) {
            if (!next()) {
                if (value) ql::put(out, "%s=%s\n", key, value);
                return finish();
            }
            if (line[0] == '[') {
                if (value) ql::put(out, "%s=%s\n\n", key, value);
                ql::put(out, "%s\n", line);
                break;
            }
            if (isKey(line, key)) {
                if (value) ql::put(out, "%s=%s\n", key, value);
                break;
            }
            // Blank and one-character lines ahead of the key are dropped.
            if (std::strlen(line) >= 2) ql::put(out, "%s\n", line);
        }
    }
    // The rest as it stands, but for a last line without a newline.
    while (std::fgets(line, sizeof line, in.get()) && !std::feof(in.get())) ql::write(out, line);
    return finish();
}

int _QlWriteProfileString(const char *section, const char *key, const char *value) {
    return _QlWritePrivateProfileString(section, key, value, _QlProfileName());
}

void _QlSetQlProfile(const char *systemFile, const char *userFile) {
    if (systemFile) replaceName(gSystemProfile, systemFile);
    if (userFile) replaceName(gUserProfile, userFile);
}

const char *_QlSystemProfile() {
    if (!gSystemProfile) replaceName(gSystemProfile, ql::PathFromComponents(QlConfigDir(), nullptr, "Qldefaults").c_str());
    return gSystemProfile;
}

const char *_QlUserProfile() {
    if (gUserProfile || gHomeLooked) return gUserProfile;
    gHomeLooked = true;
    if (const char *home = std::getenv("HOME"))
        replaceName(gUserProfile, ql::PathFromComponents(home, nullptr, ".Qldefaults").c_str());
    return gUserProfile;
}

const char *_QlProfileName() {
    if (const char *user = _QlUserProfile(); exists(user)) return user;
    if (const char *system = _QlSystemProfile(); exists(system)) return system;
    return nullptr;
}

int _QlCreateUserProfileIfNecessary() {
    const char *user = _QlUserProfile();
    if (!user || !*user || std::strlen(user) >= 1023) return 0;
    if (exists(user)) return access(user, W_OK) == 0 ? 1 : 0;
    File system(std::fopen(_QlSystemProfile(), "r"));
    if (!system) {
        // The new, empty file stays, and shadows the system file from now on.
        int fd = open(user, O_WRONLY | O_CREAT | O_EXCL, 0666);
        if (fd >= 0) close(fd);
        return 0;
    }
    // The copy appears whole or not at all.
    ql::FileReplacement copy(user);
    if (!copy.stream()) return 0;
    char buf[256];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, system.get())) > 0) std::fwrite(buf, 1, n, copy.stream());
    return !std::ferror(system.get()) && copy.commit() ? 1 : 0;
}
