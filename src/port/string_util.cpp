// String helpers: copies, comparisons without regard to case, tokens.
#include "core/qlint.h"
#include "port/kvo.h"

#include <clocale>
#include <locale.h>

#include <cctype>
#include <cstdlib>
#include <cstring>

char *_kvo_strdup(const char *s) {
  if (s == nullptr) return nullptr;
  size_t len = strlen(s) + 1;
  auto *copy = static_cast<char *>(malloc(len));
  if (copy == nullptr) return nullptr;
  memcpy(copy, s, len);
  return copy;
}

namespace {

int Lower(char c) { return tolower(static_cast<unsigned char>(c)); }

// A null string sorts before every other string.
int CompareNulls(const char *a, const char *b) {
  if (a == b) return 0;
  return a == nullptr ? -1 : 1;
}

}  // namespace

int _kvo_strcasecmp(const char *a, const char *b) {
  if (a == nullptr || b == nullptr) return CompareNulls(a, b);
  for (;; ++a, ++b) {
    int ca = Lower(*a), cb = Lower(*b);
    if (ca != cb || ca == 0) return ca - cb;
  }
}

int _kvo_strncasecmp(const char *a, const char *b, size_t n) {
  if (n == 0) return 0;
  if (a == nullptr || b == nullptr) return CompareNulls(a, b);
  for (; n > 0; --n, ++a, ++b) {
    int ca = Lower(*a), cb = Lower(*b);
    if (ca != cb || ca == 0) return ca - cb;
  }
  return 0;
}

char *_kvoTokenize(char *s, const char *delimiters, char **save) {
  if (delimiters == nullptr) return nullptr;
  if (save == nullptr) {
    // The classic form, with its own hidden position.
    static char *position = nullptr;
    if (s == nullptr && position == nullptr) return nullptr;
    return strtok_r(s, delimiters, &position);
  }
  char *token = s != nullptr ? s : *save;
  if (token == nullptr) return nullptr;
  char *cut = strpbrk(token, delimiters);
  if (cut != nullptr) {
    *cut = '\0';
    *save = cut + 1;
  } else {
    *save = nullptr;
  }
  return token;
}

namespace ql {

CLocale::CLocale() : saved_(nullptr) {
    static const locale_t c = newlocale(LC_ALL_MASK, "C", locale_t(nullptr));
    if (c) saved_ = uselocale(c);
}

CLocale::~CLocale() {
    if (saved_) uselocale(static_cast<locale_t>(saved_));
}

}  // namespace ql

namespace ql {

void LowerInPlace(char *s) {
    for (; s && *s; ++s) *s = static_cast<char>(Lower(*s));
}

std::string Lowered(const char *s) {
    std::string out = s ? s : "";
    LowerInPlace(out.data());
    return out;
}

}  // namespace ql
