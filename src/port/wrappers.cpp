// Thin wrappers over the C library and POSIX, and the open directory list.
#include "port/kvo.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

// ---------------------------------------------------------------------------
// Pass-through family.

int _kvo_chdir(const char *path) { return chdir(path); }

int _kvo_stat(const char *path, struct stat *st) { return stat(path, st); }

int _kvo_access(const char *path, int mode) { return access(path, mode); }

char *_kvo_tempnam(const char *dir, const char *prefix) { return tempnam(dir, prefix); }

int _kvo_putenv(char *text) { return putenv(text); }

char *_kvo_getlogin() { return getlogin(); }

long _kvo_gethostid() { return gethostid(); }

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
int _kvo_readdir_r(DIR *dir, struct dirent *entry, struct dirent **result) { return readdir_r(dir, entry, result); }
#pragma GCC diagnostic pop

long _kvo_telldir(DIR *dir) { return telldir(dir); }

void _kvo_seekdir(DIR *dir, long pos) { seekdir(dir, pos); }

void _kvo_rewinddir(DIR *dir) { rewinddir(dir); }

namespace {

// The copy handed out by _kvo_getpwnam: the record and the text it points at.
struct PasswdCopy {
  struct passwd rec {};
  std::string name, passwd, gecos, dir, shell;
};

char *Keep(std::string &slot, const char *text) {
  if (text == nullptr) return nullptr;
  slot.assign(text);
  return slot.data();
}

}  // namespace

struct passwd *_kvo_getpwnam(const char *name) {
  if (name == nullptr) return nullptr;
  struct passwd *pw = getpwnam(name);
  if (pw == nullptr) return nullptr;
  static PasswdCopy copy;
  try {
    copy.rec.pw_name = Keep(copy.name, pw->pw_name);
    copy.rec.pw_passwd = Keep(copy.passwd, pw->pw_passwd);
    copy.rec.pw_uid = pw->pw_uid;
    copy.rec.pw_gid = pw->pw_gid;
    copy.rec.pw_gecos = Keep(copy.gecos, pw->pw_gecos);
    copy.rec.pw_dir = Keep(copy.dir, pw->pw_dir);
    copy.rec.pw_shell = Keep(copy.shell, pw->pw_shell);
  } catch (...) {
    return nullptr;
  }
  return &copy.rec;
}

int _kvo_getpwnam_r(const char *name, struct passwd *pwd, char *buf, size_t buflen, struct passwd **result) {
  if (name == nullptr || pwd == nullptr || buf == nullptr || result == nullptr) {
    if (result != nullptr) *result = nullptr;
    return EINVAL;
  }
  return getpwnam_r(name, pwd, buf, buflen, result);
}

// Xlib's image calls.  Destroying goes through the image's own function,
// as XDestroyImage does.
XImage *_QlXCreateImage(Display *display, Visual *visual, unsigned depth, int format, int offset, char *data,
                        unsigned width, unsigned height, int pad, int bytesPerLine) {
  return XCreateImage(display, visual, depth, format, offset, data, width, height, pad, bytesPerLine);
}

int _QlXDestroyImage(XImage *image) { return image && image->f.destroy_image ? image->f.destroy_image(image) : 0; }

int _QlXPutImage(Display *display, Drawable d, GC gc, XImage *image, int sx, int sy, int dx, int dy,
                 unsigned width, unsigned height) {
  return XPutImage(display, d, gc, image, sx, sy, dx, dy, width, height);
}

XImage *_QlXGetImage(Display *display, Drawable d, int x, int y, unsigned width, unsigned height,
                     unsigned long planeMask, int format) {
  return XGetImage(display, d, x, y, width, height, planeMask, format);
}

// ---------------------------------------------------------------------------
// Open directory list. Each open directory has a record holding the name of
// the entry last read from it; _kvo_readdir hands out a pointer to that name.

namespace {

struct DirRecord {
  DIR *handle = nullptr;
  char name[256] = {};
  size_t length = 0;
};

// Records live on the heap so that a name handed out stays where it is while
// other directories are opened and closed.
std::vector<std::unique_ptr<DirRecord>> dirlst;
DirRecord *lastdir = nullptr;

DirRecord *FindRecord(DIR *dir) {
  if (dir == nullptr) return nullptr;
  if (lastdir != nullptr && lastdir->handle == dir) return lastdir;
  for (auto &rec : dirlst)
    if (rec->handle == dir) return rec.get();
  return nullptr;
}

}  // namespace

DIR *_kvo_opendir(const char *path) {
  if (path == nullptr) return nullptr;
  DIR *dir = opendir(path);
  if (dir == nullptr) return nullptr;
  try {
    auto rec = std::make_unique<DirRecord>();
    rec->handle = dir;
    dirlst.push_back(std::move(rec));
  } catch (...) {
    closedir(dir);
    errno = ENOMEM;
    return nullptr;
  }
  lastdir = dirlst.back().get();
  return dir;
}

char *_kvo_readdir(DIR *dir) {
  DirRecord *rec = FindRecord(dir);
  if (rec == nullptr) rec = lastdir;
  if (rec == nullptr) return nullptr;
  lastdir = rec;
  struct dirent *entry = readdir(rec->handle);
  if (entry == nullptr) return nullptr;
  size_t len = strnlen(entry->d_name, sizeof rec->name - 1);
  memcpy(rec->name, entry->d_name, len);
  rec->name[len] = '\0';
  rec->length = len;
  return rec->name;
}

int _kvo_closedir(DIR *dir) {
  DirRecord *rec = FindRecord(dir);
  if (rec == nullptr) {
    // Not one of ours: leave it alone rather than risk closing it twice.
    errno = EBADF;
    return -1;
  }
  int rc = closedir(rec->handle);
  if (lastdir == rec) lastdir = nullptr;
  for (auto it = dirlst.begin(); it != dirlst.end(); ++it) {
    if (it->get() == rec) {
      dirlst.erase(it);
      break;
    }
  }
  return rc;
}
