// Portability layer: thin wrappers over the system, and the path helpers.
#pragma once

#include <cstddef>
#include <cstdio>
#include <dirent.h>
#include <pwd.h>
#include <sys/stat.h>

enum { MR_UNIX_STYLE_PATH = 1, MR_VMS_STYLE_PATH = 2, MR_MIXED_STYLE_PATH = 3, MR_NOTSURE_STYLE_PATH = 4 };

// Pass-through family.
int _kvo_chdir(const char *path);
int _kvo_stat(const char *path, struct stat *st);
int _kvo_access(const char *path, int mode);
char *_kvo_tempnam(const char *dir, const char *prefix);  // malloc'ed, or null
int _kvo_putenv(char *text);
char *_kvo_getlogin();
long _kvo_gethostid();
int _kvo_readdir_r(DIR *dir, struct dirent *entry, struct dirent **result);
long _kvo_telldir(DIR *dir);
void _kvo_seekdir(DIR *dir, long pos);
void _kvo_rewinddir(DIR *dir);
struct passwd *_kvo_getpwnam(const char *name);
int _kvo_getpwnam_r(const char *name, struct passwd *pwd, char *buf, size_t buflen, struct passwd **result);

// Directory list.
DIR *_kvo_opendir(const char *path);
char *_kvo_readdir(DIR *dir);
int _kvo_closedir(DIR *dir);

// Strings.
char *_kvo_strdup(const char *s);  // malloc'ed; null for null
int _kvo_strcasecmp(const char *a, const char *b);
int _kvo_strncasecmp(const char *a, const char *b, size_t n);
char *_kvoTokenize(char *s, const char *delimiters, char **save);

// Files.
int _kvoCopyTextFile(const char *from, const char *to);
int _kvoRenameTextFile(const char *from, const char *to);
FILE *_kvoCaselessfopen(const char *path, const char *mode);

// Paths.
char *_kvoCreatePathFromComponents(const char *dir, const char *subdir, const char *file, char *out);
int _kvoIsPathSpec(const char *path, int absoluteOnly);
const char *_kvoBasename(const char *path);
char *_kvoDirname(const char *path);
char *_kvoFullpath(const char *path, char *out);
char *_kvoSearchenv(const char *name, const char *variable, char *out);
char *_kvoCaseSearchenv(const char *name, const char *variable, char *out, int tryCase);
char *_kvoGetComponentsFromPath(const char *path, char *drive, char *dir, int dirSlash, char *base, char *ext,
                                int dotInExt, int flags);
char *_kvoGetComponentsFromPathW(const char *path, char *drive, char *dir, int dirSlash, char *base, char *ext,
                                 int dotInExt, int flags);
int _kvoGetComponentsOffsetFromPath(const char *path, int ignored, int *dirOff, int *baseOff, int *extOff);
int _kvoValidPathname(const char *path, int wildcardsOk);
int _kvoValidFilename(const char *name, int wildcardsOk);
char *_kvoConvertPathCase(const char *path);  // malloc'ed
int GetNextSubPath(char **cursor, char *out);

// Xlib's image calls, for the front end's display form.
#include <X11/Xlib.h>
XImage *_QlXCreateImage(Display *display, Visual *visual, unsigned depth, int format, int offset, char *data,
                        unsigned width, unsigned height, int pad, int bytesPerLine);
int _QlXDestroyImage(XImage *image);
int _QlXPutImage(Display *display, Drawable d, GC gc, XImage *image, int sx, int sy, int dx, int dy,
                 unsigned width, unsigned height);
XImage *_QlXGetImage(Display *display, Drawable d, int x, int y, unsigned width, unsigned height,
                     unsigned long planeMask, int format);

#include <string>
namespace ql {
// The path builder's worker: the same rules as _kvoCreatePathFromComponents,
// into a string of its own size.
std::string PathFromComponents(const char *dir, const char *subdir, const char *file);
// Lower case, byte by byte, as font names and file names are compared.
void LowerInPlace(char *s);
std::string Lowered(const char *s);  // "" for null
}  // namespace ql
