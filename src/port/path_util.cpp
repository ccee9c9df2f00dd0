// Path helpers: joining and splitting, full paths, the search along a path
// variable, name checks, and the lookup of a path without regard to case.
#include "port/kvo.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace {

// The size of the result buffer that callers of the search hand in.
constexpr size_t kSearchBufSize = 1024;

bool Empty(const char *s) { return s == nullptr || *s == '\0'; }

// Puts text into the caller's buffer or, without one, into a static buffer
// that grows to fit.
char *Deliver(std::string_view text, char *out, std::string &fallback) {
  if (out == nullptr) {
    fallback.assign(text);
    return fallback.data();
  }
  memcpy(out, text.data(), text.size());
  out[text.size()] = '\0';
  return out;
}

std::optional<std::string> CurrentDir() {
  std::vector<char> buf(1024);
  for (;;) {
    if (getcwd(buf.data(), buf.size()) != nullptr) return std::string(buf.data());
    if (errno != ERANGE || buf.size() > (1u << 20)) return std::nullopt;
    buf.resize(buf.size() * 2);
  }
}

std::optional<std::string> FullpathOf(const char *path) {
  if (isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':') path += 2;
  if (path[0] == '/') return std::string(path);
  std::optional<std::string> result = CurrentDir();
  if (!result) return std::nullopt;
  std::string &r = *result;
  std::string_view rest = path;
  while (!rest.empty()) {
    size_t cut = rest.find('/');
    std::string_view comp = rest.substr(0, cut);
    rest = cut == std::string_view::npos ? std::string_view() : rest.substr(cut + 1);
    if (comp.empty() || comp == ".") continue;
    if (comp == "..") {
      size_t last = r.rfind('/');
      if (last == std::string::npos || last == 0)
        r = "/";
      else
        r.resize(last);
      continue;
    }
    if (r != "/") r += '/';
    r += comp;
  }
  if (r.empty()) r = "/";
  return result;
}

// Where the extension of a base name starts (behind its dot), or npos.
// A leading dot doesn't start one, and a name ending in a dot has none.
size_t ExtensionStart(std::string_view name) {
  size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return std::string_view::npos;
  return dot + 1;
}

void Copy(char *out, std::string_view text) {
  if (out == nullptr) return;
  memcpy(out, text.data(), text.size());
  out[text.size()] = '\0';
}

int ValidName(const char *name, int wildcardsOk) {
  static constexpr std::string_view wild_card_chars = "*?";
  static constexpr std::string_view invalid = "[]";
  static constexpr std::string_view invalid_start = "";
  static constexpr std::string_view invalid_end = ":";
  if (Empty(name)) return 0;
  std::string_view n = name;
  if (!wildcardsOk && n.find_first_of(wild_card_chars) != std::string_view::npos) return 0;
  if (invalid_start.find(n.front()) != std::string_view::npos) return 0;
  if (n.find_first_of(invalid) != std::string_view::npos) return 0;
  if (invalid_end.find(n.back()) != std::string_view::npos) return 0;
  return 1;
}

// A descriptor that closes itself.
class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  Fd(const Fd &) = delete;
  Fd &operator=(const Fd &) = delete;
  Fd &operator=(Fd &&other) noexcept {
    if (this != &other) {
      Reset();
      fd_ = other.fd_;
      other.fd_ = -1;
    }
    return *this;
  }
  ~Fd() { Reset(); }
  int get() const { return fd_; }
  int release() {
    int fd = fd_;
    fd_ = -1;
    return fd;
  }

 private:
  void Reset() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }
  int fd_;
};

struct DirCloser {
  void operator()(DIR *d) const { closedir(d); }
};

// Steps from the directory `at` into `component` the way chdir would: the
// component must be a directory that may be searched. Looking up "." inside
// it asks for exactly that permission.
Fd EnterDirectory(int at, const std::string &component) {
  std::string probe = component;
  if (probe.back() != '/') probe += '/';
  probe += '.';
  return Fd(openat(at, probe.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

// The entry of directory `at` named like `name` without regard to case: an
// exact match wins at once, otherwise the last one read.
std::optional<std::string> MatchEntry(int at, std::string_view name) {
  Fd fd(openat(at, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.get() < 0) return std::nullopt;
  std::unique_ptr<DIR, DirCloser> dir(fdopendir(fd.get()));
  if (!dir) return std::nullopt;
  fd.release();
  std::optional<std::string> found;
  while (struct dirent *entry = readdir(dir.get())) {
    std::string_view entryName = entry->d_name;
    if (entryName.size() != name.size()) continue;
    if (entryName == name) return std::string(entryName);
    if (_kvo_strncasecmp(entry->d_name, name.data(), name.size()) == 0) found = std::string(entryName);
  }
  return found;
}

std::string ConvertCase(const char *path) {
  std::string result;
  std::string rest(path);
  size_t skip = 0;
  Fd dir;
  if (path[0] == '/') {
    result = "/";
    while (rest[skip] == '/') ++skip;
    dir = Fd(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  } else {
    dir = Fd(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  }
  char *cursor = rest.data() + skip;
  if (dir.get() < 0) return result + cursor;

  std::vector<char> component(rest.size() + 1);
  while (GetNextSubPath(&cursor, component.data())) {
    std::string comp = component.data();
    bool special = comp == "." || comp == ".." || comp == "./" || comp == "../";
    if (!special) {
      bool slash = comp.back() == '/';
      std::string_view name(comp.data(), comp.size() - (slash ? 1 : 0));
      if (std::optional<std::string> match = MatchEntry(dir.get(), name)) {
        comp = *match;
        if (slash) comp += '/';
      }
    }
    result += comp;
    Fd next = EnterDirectory(dir.get(), comp);
    if (next.get() < 0) {
      result += cursor;
      break;
    }
    dir = std::move(next);
  }
  return result;
}

}  // namespace

std::string ql::PathFromComponents(const char *dir, const char *subdir, const char *file) {
  const bool hasDir = !Empty(dir), hasSubdir = !Empty(subdir), hasFile = !Empty(file);
  std::string r;
  if (hasDir) {
    r = dir;
    bool rootAlone = r == "/" && !hasSubdir && !hasFile;
    if (r.back() == '/' && !rootAlone) r.pop_back();
  }
  if (hasSubdir) {
    if (!hasDir)
      r = "./";
    else if (r.empty() || r.back() != '/')
      r += '/';
    r += subdir;
    if (r.back() != '/') r += '/';
  }
  if (!hasFile) {
    if (r.size() > 1 && r.back() == '/') r.pop_back();
    return r;
  }
  if (hasDir && !hasSubdir && (r.empty() || r.back() != '/')) r += '/';
  r += file;
  return r;
}

char *_kvoCreatePathFromComponents(const char *dir, const char *subdir, const char *file, char *out) {
  static std::string buffer;
  try {
    // The whole path is built before anything is written, so `out` may be
    // one of the parts.
    return Deliver(ql::PathFromComponents(dir, subdir, file), out, buffer);
  } catch (...) {
    return nullptr;
  }
}

int _kvoIsPathSpec(const char *path, int absoluteOnly) {
  if (path == nullptr) return 0;
  if (absoluteOnly) return path[0] == '/';
  return strchr(path, '/') != nullptr;
}

const char *_kvoBasename(const char *path) {
  if (path == nullptr) return nullptr;
  const char *slash = strrchr(path, '/');
  return slash != nullptr ? slash + 1 : path;
}

char *_kvoDirname(const char *path) {
  static std::string buffer;
  if (path == nullptr) return nullptr;
  try {
    std::string_view p = path;
    size_t slash = p.rfind('/');
    if (slash == std::string_view::npos)
      buffer.clear();
    else if (slash == 0)
      buffer = "/";
    else
      buffer.assign(p.substr(0, slash));
  } catch (...) {
    return nullptr;
  }
  return buffer.data();
}

char *_kvoFullpath(const char *path, char *out) {
  static std::string buffer;
  if (path == nullptr) return nullptr;
  try {
    std::optional<std::string> full = FullpathOf(path);
    if (!full) return nullptr;
    return Deliver(*full, out, buffer);
  } catch (...) {
    return nullptr;
  }
}

char *_kvoSearchenv(const char *name, const char *variable, char *out) {
  return _kvoCaseSearchenv(name, variable, out, 0);
}

char *_kvoCaseSearchenv(const char *name, const char *variable, char *out, int tryCase) {
  static std::string buffer;
  if (Empty(name)) return nullptr;
  try {
    // The caller's buffer holds kSearchBufSize bytes; a longer result isn't
    // given at all rather than cut.
    auto give = [&](std::string_view text) -> char * {
      if (out != nullptr && text.size() >= kSearchBufSize) return nullptr;
      return Deliver(text, out, buffer);
    };
    if (_kvoIsPathSpec(name, 1)) {
      std::optional<std::string> full = FullpathOf(name);
      return full ? give(*full) : nullptr;
    }
    if (Empty(variable)) return nullptr;
    const char *value = getenv(variable);
    if (value == nullptr) return nullptr;
    std::string dirs = value;
    std::string_view rest = dirs;
    while (!rest.empty()) {
      size_t cut = rest.find(':');
      std::string dir(rest.substr(0, cut));
      rest = cut == std::string_view::npos ? std::string_view() : rest.substr(cut + 1);
      if (dir.empty()) continue;
      std::string candidate = ql::PathFromComponents(dir.c_str(), nullptr, name);
      struct stat st;
      if (stat(candidate.c_str(), &st) == 0) {
        std::optional<std::string> full = FullpathOf(candidate.c_str());
        return full ? give(*full) : nullptr;
      }
      if (tryCase) {
        std::string converted = ConvertCase(candidate.c_str());
        if (stat(converted.c_str(), &st) == 0) return give(converted);
      }
    }
  } catch (...) {
    return nullptr;
  }
  return nullptr;
}

char *_kvoGetComponentsFromPath(const char *path, char *drive, char *dir, int dirSlash, char *base, char *ext,
                                int dotInExt, int /*flags*/) {
  static std::string copy;
  for (char *out : {drive, dir, base, ext})
    if (out != nullptr) out[0] = '\0';
  if (Empty(path)) return nullptr;
  try {
    copy = path;
  } catch (...) {
    return nullptr;
  }
  std::string_view p = copy;
  std::string_view name = p;
  size_t slash = p.rfind('/');
  if (slash != std::string_view::npos) {
    // A path whose only "/" leads it gives the whole path as its directory.
    std::string_view d = slash == 0 ? p : p.substr(0, slash);
    name = p.substr(slash + 1);
    if (dir != nullptr) {
      Copy(dir, d);
      if (dirSlash) strcat(dir, "/");
    }
  }
  size_t extStart = ExtensionStart(name);
  if (extStart == std::string_view::npos) {
    Copy(base, name);
  } else {
    Copy(base, name.substr(0, extStart - 1));
    Copy(ext, name.substr(dotInExt ? extStart - 1 : extStart));
  }
  return copy.data();
}

char *_kvoGetComponentsFromPathW(const char *path, char *drive, char *dir, int dirSlash, char *base, char *ext,
                                 int dotInExt, int flags) {
  return _kvoGetComponentsFromPath(path, drive, dir, dirSlash, base, ext, dotInExt, flags);
}

int _kvoGetComponentsOffsetFromPath(const char *path, int /*ignored*/, int *dirOff, int *baseOff, int *extOff) {
  int d = -1, b = -1, e = -1;
  bool ok = !Empty(path);
  if (ok) {
    std::string_view p = path;
    size_t slash = p.rfind('/');
    d = slash == std::string_view::npos ? -1 : 0;
    size_t nameStart = slash == std::string_view::npos ? 0 : slash + 1;
    b = static_cast<int>(nameStart);
    size_t extStart = ExtensionStart(p.substr(nameStart));
    if (extStart != std::string_view::npos) e = static_cast<int>(nameStart + extStart);
  }
  if (dirOff != nullptr) *dirOff = d;
  if (baseOff != nullptr) *baseOff = b;
  if (extOff != nullptr) *extOff = e;
  return ok ? 1 : 0;
}

int _kvoValidPathname(const char *path, int wildcardsOk) { return ValidName(path, wildcardsOk); }

int _kvoValidFilename(const char *name, int wildcardsOk) { return ValidName(name, wildcardsOk); }

int GetNextSubPath(char **cursor, char *out) {
  if (cursor == nullptr || *cursor == nullptr || out == nullptr) return 0;
  char *p = *cursor;
  size_t n = 0;
  while (*p != '\0' && *p != '/') out[n++] = *p++;
  if (*p == '/') {
    out[n++] = *p++;
    while (*p == '/') ++p;
  }
  out[n] = '\0';
  *cursor = p;
  return n > 0;
}

char *_kvoConvertPathCase(const char *path) {
  if (path == nullptr) return nullptr;
  try {
    return _kvo_strdup(ConvertCase(path).c_str());
  } catch (...) {
    return nullptr;
  }
}
