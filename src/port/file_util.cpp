// File helpers: copy, move (also across file systems), open without regard
// to the case of the name.
#include "port/kvo.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

struct FileCloser {
  void operator()(FILE *f) const { fclose(f); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

}  // namespace

int _kvoCopyTextFile(const char *from, const char *to) {
  if (from == nullptr || to == nullptr) return 1;
  FilePtr in(fopen(from, "r"));
  if (!in) return 1;
  FilePtr out(fopen(to, "w"));
  if (!out) return 1;
  char buf[8192];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, in.get())) > 0)
    if (fwrite(buf, 1, n, out.get()) != n) return 2;
  if (ferror(in.get())) return 3;
  if (fclose(out.release()) != 0) return 2;
  return 0;
}

int _kvoRenameTextFile(const char *from, const char *to) {
  if (from == nullptr || to == nullptr) return -1;
  if (strcmp(from, to) == 0) return 0;
  int rc = rename(from, to);
  if (rc == 0) return rc;
  // rename can't cross file systems: copy, then drop the source.
  if (_kvoCopyTextFile(from, to) != 0) return rc;
  int removed = remove(from);
  if (removed != 0) remove(to);
  return removed;
}

FILE *_kvoCaselessfopen(const char *path, const char *mode) {
  if (path == nullptr || mode == nullptr) return nullptr;
  FILE *f = fopen(path, mode);
  if (f != nullptr) return f;
  char *found = _kvoConvertPathCase(path);
  if (found == nullptr) return nullptr;
  f = fopen(found, mode);
  free(found);
  return f;
}
