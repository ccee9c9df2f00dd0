// Portability layer: paths, names, files, tokens and the directory list.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <tuple>
#include <unistd.h>

#include "port/kvo.h"
#include "support/tempdir.h"

namespace fs = std::filesystem;

namespace {

// A fresh directory below `parent`, removed at the end of the test.
struct TempDir {
  explicit TempDir(const char *parent = "/tmp") {
    std::string tmpl = std::string(parent) + "/qlport.XXXXXX";
    if (mkdtemp(tmpl.data()) != nullptr) path = tmpl;
  }
  ~TempDir() {
    std::error_code ec;
    if (!path.empty()) fs::remove_all(path, ec);
  }
  std::string path;
};

// Changes the working directory for the scope of a test.
struct InDir {
  explicit InDir(const std::string &dir) : saved(fs::current_path()) { fs::current_path(dir); }
  ~InDir() { fs::current_path(saved); }
  fs::path saved;
};

using qltest::ReadFile;
using qltest::WriteFile;

std::string Str(const char *s) { return s != nullptr ? s : "<null>"; }

std::string ConvertCase(const char *path) {
  char *r = _kvoConvertPathCase(path);
  std::string s = Str(r);
  free(r);
  return s;
}

}  // namespace

TEST(PortPath, BuildsPathsFromComponents) {
  const char *cases[][4] = {{"/a/", "b", "c", "/a/b/c"}, {"", "ppds", "x", "./ppds/x"}, {"/a", nullptr, nullptr, "/a"},
                            {nullptr, nullptr, "x", "x"},  {"/", nullptr, "x", "/x"},    {"/", nullptr, nullptr, "/"},
                            {"/", "b", nullptr, "/b"},     {"a", "b/", nullptr, "a/b"},  {nullptr, "b", nullptr, "./b"},
                            {"", "", "", ""}};
  for (auto &c : cases) EXPECT_EQ(Str(_kvoCreatePathFromComponents(c[0], c[1], c[2], nullptr)), c[3]) << c[3];

  // The output buffer may be one of the components.
  char buf[64] = "name.ps";
  EXPECT_EQ(_kvoCreatePathFromComponents("/cfg", "ppds", buf, buf), buf);
  EXPECT_STREQ(buf, "/cfg/ppds/name.ps");
  strcpy(buf, "/cfg/");
  _kvoCreatePathFromComponents(buf, nullptr, "x", buf);
  EXPECT_STREQ(buf, "/cfg/x");

  // The static result grows to fit, and may be fed back in.
  std::string longDir = "/" + std::string(5000, 'd');
  std::string longFile(3000, 'f');
  char *r = _kvoCreatePathFromComponents(longDir.c_str(), "s", longFile.c_str(), nullptr);
  EXPECT_EQ(Str(r), longDir + "/s/" + longFile);
  r = _kvoCreatePathFromComponents(r, "t", "u", nullptr);
  EXPECT_EQ(Str(r), longDir + "/s/" + longFile + "/t/u");
}

TEST(PortPath, DirnameBasenameAndSpecs) {
  EXPECT_STREQ(_kvoDirname("a"), "");
  EXPECT_STREQ(_kvoDirname("/a"), "/");
  EXPECT_STREQ(_kvoDirname("a/b"), "a");
  EXPECT_EQ(_kvoDirname(nullptr), nullptr);
  std::string longPath(4000, 'p');
  longPath += "/tail";
  EXPECT_EQ(Str(_kvoDirname(longPath.c_str())), std::string(4000, 'p'));

  const char *p = "/usr/lib/libc.so";
  EXPECT_EQ(_kvoBasename(p), p + 9);
  EXPECT_STREQ(_kvoBasename("dir/"), "");

  EXPECT_EQ(_kvoIsPathSpec("/a", 1), 1);
  EXPECT_EQ(_kvoIsPathSpec("a/b", 1), 0);
  EXPECT_EQ(_kvoIsPathSpec("a/b", 0), 1);
}

TEST(PortPath, FullpathWalksRelativeComponents) {
  TempDir tmp;
  ASSERT_FALSE(tmp.path.empty());
  fs::create_directories(tmp.path + "/a/b");
  std::string base = fs::canonical(tmp.path).string();
  {
    InDir in(base + "/a/b");
    EXPECT_EQ(Str(_kvoFullpath("../x", nullptr)), base + "/a/x");
    EXPECT_EQ(Str(_kvoFullpath("./c//d/.", nullptr)), base + "/a/b/c/d");
    EXPECT_EQ(Str(_kvoFullpath("../../../../../../../../../../..", nullptr)), "/");
    EXPECT_EQ(Str(_kvoFullpath("../../../../../../../../../../../etc", nullptr)), "/etc");
    char out[1024];
    EXPECT_EQ(_kvoFullpath("C:y", out), out);
    EXPECT_EQ(std::string(out), base + "/a/b/y");
  }
  {
    InDir in("/");
    EXPECT_STREQ(_kvoFullpath("..", nullptr), "/");
  }
  EXPECT_STREQ(_kvoFullpath("/a/../b/./c", nullptr), "/a/../b/./c");
  EXPECT_STREQ(_kvoFullpath("c:/x", nullptr), "/x");
  EXPECT_EQ(_kvoFullpath(nullptr, nullptr), nullptr);

  // A working directory longer than 1024 bytes.
  std::string deep = base;
  for (int i = 0; i < 8; ++i) deep += "/" + std::string(200, 'a' + i);
  fs::create_directories(deep);
  InDir in(deep);
  EXPECT_EQ(Str(_kvoFullpath("z", nullptr)), deep + "/z");
  EXPECT_EQ(Str(_kvoFullpath("../z", nullptr)), deep.substr(0, deep.rfind('/')) + "/z");
}

TEST(PortPath, SearchesAlongVariable) {
  TempDir tmp;
  ASSERT_FALSE(tmp.path.empty());
  std::string base = fs::canonical(tmp.path).string();
  fs::create_directories(base + "/one");
  fs::create_directories(base + "/Two");
  WriteFile(base + "/Two/Data.TXT", "x");
  WriteFile(base + "/one/plain", "x");
  setenv("QL_PORT_SEARCH", ("/nonexistent-dir::" + base + "/one:" + base + "/two").c_str(), 1);

  EXPECT_EQ(Str(_kvoSearchenv("plain", "QL_PORT_SEARCH", nullptr)), base + "/one/plain");
  EXPECT_EQ(_kvoSearchenv("data.txt", "QL_PORT_SEARCH", nullptr), nullptr);
  EXPECT_EQ(Str(_kvoCaseSearchenv("data.txt", "QL_PORT_SEARCH", nullptr, 1)), base + "/Two/Data.TXT");
  char out[1024];
  EXPECT_EQ(_kvoCaseSearchenv("plain", "QL_PORT_SEARCH", out, 1), out);
  EXPECT_EQ(std::string(out), base + "/one/plain");

  // An absolute name is its own answer, whether it exists or not.
  EXPECT_STREQ(_kvoSearchenv("/no/such/file", "QL_PORT_SEARCH", nullptr), "/no/such/file");
  EXPECT_EQ(_kvoSearchenv("", "QL_PORT_SEARCH", nullptr), nullptr);
  unsetenv("QL_PORT_SEARCH_UNSET");
  EXPECT_EQ(_kvoSearchenv("plain", "QL_PORT_SEARCH_UNSET", nullptr), nullptr);
  // A result too long for the caller's 1024 bytes is withheld.
  std::string longName = "/" + std::string(2000, 'n');
  EXPECT_EQ(_kvoSearchenv(longName.c_str(), "QL_PORT_SEARCH", out), nullptr);
  EXPECT_EQ(Str(_kvoSearchenv(longName.c_str(), "QL_PORT_SEARCH", nullptr)), longName);
  unsetenv("QL_PORT_SEARCH");
}

TEST(PortPath, ConvertsCaseAgainstRealDirectories) {
  std::string cwd = fs::current_path().string();
  if (fs::is_directory("/usr/lib")) {
    EXPECT_EQ(ConvertCase("/USR/LIB"), "/usr/lib");
    EXPECT_EQ(ConvertCase("/USR/LIB/"), "/usr/lib/");
    EXPECT_EQ(ConvertCase("//Usr//Lib"), "/usr/lib");
    EXPECT_EQ(ConvertCase("/usr/../USR/./lib"), "/usr/../usr/./lib");
  }
  EXPECT_EQ(ConvertCase("/usr/NOPE/x"), "/usr/NOPE/x");
  EXPECT_EQ(_kvoConvertPathCase(nullptr), nullptr);

  TempDir tmp;
  ASSERT_FALSE(tmp.path.empty());
  fs::create_directories(tmp.path + "/Sub/abc");
  fs::create_directories(tmp.path + "/Sub/ABC");
  WriteFile(tmp.path + "/Sub/abc/File.Txt", "hello");
  WriteFile(tmp.path + "/Sub/Plain", "");
  {
    InDir in(tmp.path);
    EXPECT_EQ(ConvertCase("sub/abc/FILE.TXT"), "Sub/abc/File.Txt");
    EXPECT_EQ(ConvertCase("SUB/ABC"), "Sub/ABC");  // the exact name wins
    EXPECT_EQ(ConvertCase("sub/plain/more/STUFF"), "Sub/Plain/more/STUFF");
    FILE *f = _kvoCaselessfopen("SUB/abc/file.txt", "r");
    ASSERT_NE(f, nullptr);
    char buf[8] = {};
    EXPECT_EQ(fread(buf, 1, sizeof buf - 1, f), 5u);
    EXPECT_STREQ(buf, "hello");
    fclose(f);
    EXPECT_EQ(_kvoCaselessfopen("sub/nothing", "r"), nullptr);
    EXPECT_EQ(fs::current_path(), fs::path(tmp.path));
  }
  EXPECT_EQ(fs::current_path().string(), cwd);

  std::string longPath = "/usr/" + std::string(3000, 'Q') + "/x";
  EXPECT_EQ(ConvertCase(longPath.c_str()), longPath);
}

// "drive|dir|base|ext" of a path as the splitter leaves them, or "null:"
// and the base when it gives no result.
std::string Parts(const char *path, int dirSlash, int dotInExt, bool wide = false) {
  char drive[8] = "junk", dir[64] = "junk", base[64] = "junk", ext[64] = "junk";
  const char *r = (wide ? _kvoGetComponentsFromPathW : _kvoGetComponentsFromPath)(path, drive, dir, dirSlash, base,
                                                                                   ext, dotInExt, 0);
  return r ? std::string(drive) + "|" + dir + "|" + base + "|" + ext : "null:" + std::string(base);
}

std::string Offsets(const char *path) {
  int d = 9, b = 9, e = 9;
  const int r = _kvoGetComponentsOffsetFromPath(path, 0, &d, &b, &e);
  return std::to_string(r) + ":" + std::to_string(d) + "," + std::to_string(b) + "," + std::to_string(e);
}

TEST(PortPath, SplitsAndValidatesNames) {
  EXPECT_EQ(Parts("/x/y/file.tar.gz", 1, 0), "|/x/y/|file.tar|gz");
  EXPECT_EQ(Parts("x/.profile", 0, 1, true), "|x|.profile|");
  EXPECT_EQ(Parts("name.ps", 1, 1), "||name|.ps");
  EXPECT_EQ(Parts("/top.c", 0, 0), "|/top.c|top|c");
  EXPECT_EQ(Parts("", 0, 0), "null:");
  EXPECT_EQ(Offsets("a/b.c/name.ps"), "1:0,6,11");
  EXPECT_EQ(Offsets("a.d/.rc"), "1:0,4,-1");
  EXPECT_EQ(Offsets("name."), "1:-1,0,-1");

  for (auto [name, wild, ok] : {std::tuple{"a[1]", 1, 0}, {"a:", 0, 0}, {"a:b", 0, 1}, {"a*", 0, 0}, {"a*", 1, 1},
                                 {"", 1, 0}, {nullptr, 1, 0}})
    EXPECT_EQ(_kvoValidFilename(name, wild), ok) << Str(name) << wild;
  EXPECT_EQ(_kvoValidPathname("/usr/l]b", 0), 0);

  char path[] = "usr//lib/x";
  char *cursor = path;
  char comp[sizeof path];
  for (const char *want : {"usr/", "lib/", "x"}) {
    ASSERT_EQ(GetNextSubPath(&cursor, comp), 1);
    EXPECT_STREQ(comp, want);
  }
  EXPECT_EQ(GetNextSubPath(&cursor, comp), 0);
}

// Empty fields between delimiters come back only with a save pointer.
TEST(PortString, Tokenizes) {
  char text[] = "a,,b";
  char *save = nullptr;
  EXPECT_STREQ(_kvoTokenize(text, ",", &save), "a");
  EXPECT_STREQ(_kvoTokenize(nullptr, ",", &save), "");
  EXPECT_STREQ(_kvoTokenize(nullptr, ",", &save), "b");
  EXPECT_EQ(save, nullptr);
  EXPECT_EQ(_kvoTokenize(nullptr, ",", &save), nullptr);

  char classic[] = ",a,,b";
  EXPECT_STREQ(_kvoTokenize(classic, ",", nullptr), "a");
  EXPECT_STREQ(_kvoTokenize(nullptr, ",", nullptr), "b");
  EXPECT_EQ(_kvoTokenize(nullptr, ",", nullptr), nullptr);
  EXPECT_EQ(_kvoTokenize(text, nullptr, &save), nullptr);
}

TEST(PortFile, CopiesAndRenames) {
  TempDir tmp;
  ASSERT_FALSE(tmp.path.empty());
  std::string src = tmp.path + "/src", dst = tmp.path + "/dst";
  std::string bytes("line 1\n\0binary\r\n", 16);
  bytes += std::string(20000, 'z');
  WriteFile(src, bytes);

  EXPECT_EQ(_kvoCopyTextFile(src.c_str(), dst.c_str()), 0);
  EXPECT_EQ(ReadFile(dst), bytes);
  EXPECT_EQ(_kvoCopyTextFile((tmp.path + "/missing").c_str(), dst.c_str()), 1);
  EXPECT_NE(_kvoCopyTextFile(src.c_str(), (tmp.path + "/no/dir/x").c_str()), 0);

  EXPECT_EQ(_kvoRenameTextFile(nullptr, dst.c_str()), -1);
  EXPECT_EQ(_kvoRenameTextFile(src.c_str(), src.c_str()), 0);
  EXPECT_TRUE(fs::exists(src));
  EXPECT_EQ(_kvoRenameTextFile(src.c_str(), (tmp.path + "/moved").c_str()), 0);
  EXPECT_FALSE(fs::exists(src));
  EXPECT_EQ(ReadFile(tmp.path + "/moved"), bytes);
  EXPECT_EQ(_kvoRenameTextFile(src.c_str(), (tmp.path + "/never").c_str()), -1);
  EXPECT_FALSE(fs::exists(tmp.path + "/never"));
}

TEST(PortFile, RenameAcrossFileSystemsCopies) {
  TempDir shm("/dev/shm");
  TempDir tmp;
  if (shm.path.empty() || tmp.path.empty()) GTEST_SKIP() << "no /dev/shm";
  struct stat a, b;
  ASSERT_EQ(stat(shm.path.c_str(), &a), 0);
  ASSERT_EQ(stat(tmp.path.c_str(), &b), 0);
  if (a.st_dev == b.st_dev) GTEST_SKIP() << "/dev/shm and /tmp share a file system";
  std::string src = shm.path + "/doc.ps", dst = tmp.path + "/doc.ps";
  WriteFile(src, "%!PS\n");
  EXPECT_EQ(_kvoRenameTextFile(src.c_str(), dst.c_str()), 0);
  EXPECT_FALSE(fs::exists(src));
  EXPECT_EQ(ReadFile(dst), "%!PS\n");
}

TEST(PortWrappers, DirectoryList) {
  TempDir one, two;
  ASSERT_FALSE(one.path.empty());
  ASSERT_FALSE(two.path.empty());
  std::string longName(255, 'L');
  WriteFile(one.path + "/" + longName, "");
  WriteFile(two.path + "/f2", "");

  DIR *d1 = _kvo_opendir(one.path.c_str());
  DIR *d2 = _kvo_opendir(two.path.c_str());
  ASSERT_NE(d1, nullptr);
  ASSERT_NE(d2, nullptr);
  std::set<std::string> names1, names2;
  while (char *n = _kvo_readdir(d1)) names1.insert(n);
  EXPECT_EQ(names1, (std::set<std::string>{".", "..", longName}));
  EXPECT_EQ(_kvo_closedir(d1), 0);
  // An unknown handle reads from the directory last used.
  DIR *unknown = reinterpret_cast<DIR *>(&names1);
  while (char *n = _kvo_readdir(unknown)) names2.insert(n);
  EXPECT_TRUE(names2.empty());  // d1 was last used, and is closed
  while (char *n = _kvo_readdir(d2)) names2.insert(n);
  EXPECT_EQ(names2, (std::set<std::string>{".", "..", "f2"}));
  _kvo_rewinddir(d2);
  EXPECT_NE(_kvo_readdir(unknown), nullptr);
  EXPECT_EQ(_kvo_closedir(unknown), -1);
  EXPECT_EQ(_kvo_closedir(d2), 0);
  EXPECT_EQ(_kvo_closedir(d2), -1);
  EXPECT_EQ(_kvo_opendir((one.path + "/none").c_str()), nullptr);
}
