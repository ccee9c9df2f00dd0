// Profile files: sections of key=value lines in a system file and a user
// file, read and rewritten in place.
#pragma once

#include <cstdio>
#include <string>

// Reading.  Results in `dst` come by strncpy(dst, ..., len).
int _QlGetPrivateProfileString(const char *section, const char *key, const char *deflt, char *dst, unsigned len,
                               const char *path);
int _QlGetProfileString(const char *section, const char *key, const char *deflt, char *dst, unsigned len);
int _QlGetPrivateProfileInt(const char *section, const char *key, int deflt, const char *path);
int _QlGetProfileInt(const char *section, const char *key, int deflt);
// The lines of a section, stripped; null and 0 when there are none.
char **_QlGetPrivateProfileSection(const char *section, int *count, const char *path);
void _QlFreeProfileSection(char **lines, int count);

// Writing: 1 done, 0 when `path` can't be read or its replacement can't be
// made.  A null key empties the section; a null value removes the key.
int _QlWritePrivateProfileString(const char *section, const char *key, const char *value, const char *path);
int _QlWriteProfileString(const char *section, const char *key, const char *value);

// Where the files are.
void _QlSetQlProfile(const char *systemFile, const char *userFile);
const char *_QlSystemProfile();
const char *_QlUserProfile();
const char *_QlProfileName();  // the file reads use, or null
int _QlCreateUserProfileIfNecessary();

// Moves past leading spaces and cuts trailing ones (tabs are kept).
char *stripspace(char *s);

namespace ql {

// Reads one line as every profile reader does: at most size - 1 bytes, and
// the last byte read is dropped unseen (it is taken to be the newline).
// False at end of file.
bool ReadProfileLine(FILE *f, char *buf, int size);

// The replacement of a file, written beside it and renamed over it only
// when every byte of it was written: a failure or a crash at any point
// leaves the old file as it was.  The new file keeps the old one's mode
// and owner; a symbolic link keeps pointing at the file it named.
class FileReplacement {
public:
    explicit FileReplacement(const char *path);
    ~FileReplacement();  // removes the new file unless committed
    FileReplacement(const FileReplacement &) = delete;
    FileReplacement &operator=(const FileReplacement &) = delete;

    FILE *stream() const { return out_; }  // null when it couldn't be made
    bool commit();                         // true once the new file is in place

private:
    std::string target_, temp_;
    FILE *out_ = nullptr;
};

}  // namespace ql
