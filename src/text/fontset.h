// Font sets and multibyte text: the record behind a QlFontSet, and the
// conversions between Shift-JIS and JIS X 0208 that the runs need.
#pragma once

#include <qualin/Ql.h>

// A font set.  On a display out of the forced Japanese mode it only wraps
// Xlib's; otherwise the library keeps its own fonts: three for a Japanese
// locale (JIS X 0208, JIS X 0201, ISO 8859-1), one for any other.
struct QlFontSet {
    Display *handle;
    XFontSet xFontSet;  // 0 for a set of the library's own
    char *baseNameList;
    char *locale;
    int encoding;  // 0 any, 1 Shift-JIS, 2 EUC-JP
    int charsetCount;
    char **charsets;
    int *charsetFound;
    char **fontNames;
    Font *fontIds;
    int missingCount;
    Font font0;
    unsigned long font1;  // JIS X 0201 font; in a set of one font the cached XFontStruct * of font0
    Font font2;
    XFontStruct *fontStruct0, *fontStruct1, *fontStruct2;
    XFontStruct **fontStructList;
    XFontSetExtents extents;
};

// 1 once _QlForceJapaneseSJISMode ran: displays get the library's own sets
// too, in the locale "ja_JP.SJIS".
extern int _Ql_using_sjis_hack;

// Shift-JIS to JIS X 0208 pairs; single bytes are copied and a half-width
// kana becomes 0x8E and itself.  0 when all was converted, 1 on a broken
// sequence or when `limit` bytes would not hold the next character.
int _QlSJIS2_TO_JISX208(const char *source, int length, char *destination, int limit, int *outLength);
// JIS X 0208 pairs to Shift-JIS.  The last two bytes of `limit` are never
// used.  0 when all was converted, 1 on an odd byte or lack of room.
int _QlJISX208_TO_SJIS2(const char *source, int length, char *destination, int limit, int *outLength);

// The longest leading run of `string` that one font of the set draws.
// `buffer` (length + 1 bytes) receives the run's bytes as the font takes
// them: Shift-JIS for a Japanese set.  The run length counts bytes of the
// source.  Always 0.
int _QlFirstSubstringAndFont(QlFontSet *set, const char *string, int length, char *buffer, int *runLength,
                             Font *font, XFontStruct **fontStruct, int *bytesPerChar);
