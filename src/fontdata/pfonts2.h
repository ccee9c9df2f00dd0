// Font names: the fields of XLFD names read and rewritten, the older names
// with one size in them, the encoding table that ties XLFD suffixes to AFM
// encoding schemes, and the paths of font metric files.
//
// Names come from applications and from font list files, so every function
// here takes a name of any length and content.  A name the function can't
// parse gives 0 (or null) and writes nothing.  New names are malloc'ed and
// the caller's to free().
//
// An XLFD name is read by counting dashes: the pixel size stands behind the
// 7th, the point size behind the 8th, the resolutions behind the 9th and
// 10th, the average width behind the 12th, and registry and encoding behind
// the 13th.  Where fields are read as tokens, runs of dashes count as one
// separator (so an empty field is skipped, not read as empty).
#pragma once

#include "core/qlint.h"

#include <cstddef>

// One row of the encoding table.
struct PSEncode {
    int id;
    const char *xlfd;  // registry and encoding, the last two fields of an XLFD name
    const char *afm;   // an AFM EncodingScheme
};

// Ids 7 and 8 have two rows each, so that two AFM names lead to one id.
// Row 0 stands for "no encoding" and has neither name.
inline constexpr int Num_PSEncodes = 14;
extern const PSEncode PSEncodes[Num_PSEncodes];

// Pointer just behind the nth occurrence of c in s; s itself for a null s
// or n below 1; null when s has fewer.  A c of '\0' never occurs.
const char *Qlstrnchr(const char *s, int c, int n);
char *Qlstrnchr(char *s, int c, int n);

// 1 when every character is a digit, "*" or "?"; 1 for "", 0 for null.
int QlIsDigitString(const char *s);
inline int _QlIsDigitString(const char *s) { return QlIsDigitString(s); }

// Pixel and point size of an XLFD name.  Both become -1 first, and a field
// of "*" or "?" leaves its -1.  0 for a null name or a field that isn't a
// digit string (an empty pixel field counts as one); 1 otherwise, also when
// the name ends before the fields.
int FontGetPPSize(const char *xlfd, int *pixel, int *point);

// New names with sizes put in.  A name that ends before the fields comes
// back as a copy; a size field that isn't a digit string, or an empty one
// where a size is put, gives null.  With the average width, what stands
// where the width should is checked as well.
char *FontSetPPSize(const char *xlfd, int pixel, int point);
char *FontSetPPASize(const char *xlfd, int pixel, int point, int averageWidth);
char *_QlFontSetPixelSize(const char *xlfd, int pixel);
char *FontSetPointSize(const char *xlfd, int point);

// The fifth token behind the 7th dash as a number, when the first, second
// and fifth tokens are digit strings; 0 otherwise.  In a full name whose
// fields are all filled in, the fifth token is the spacing, so the result is
// 0: only a name with an empty field gives a width here.
int FontGetAWidth(const char *xlfd);

// The two resolution fields (between the 9th and the 11th dash) set to
// `resolution`; null when either dash is missing.
char *FontReplaceResol(const char *xlfd, int resolution);

// Names of the older style with one number in them ("courier12-bold"): the
// first run of digits is the size.  The text from the first digit up to the
// next dash is replaced; null for a name without a digit.
char *FontSetSize(const char *name, int size);
char *FontReplaceSizeI(const char *name, int size);
char *FontReplaceSizeC(const char *name, const char *text);
// The first run of digits as a number, or -1.
int FontGetSize(const char *name);

// With a flag of 0, xlfd itself.  Otherwise a new name with the sizes
// rounded and the average width 0, or xlfd itself when the name has a bad
// field.  The caller frees the result when it differs from xlfd.
char *SoftFontMakeFullXLFD(char *xlfd, double pixel, double point, int flag);
const char *SoftFontMakeFullXLFD(const char *xlfd, double pixel, double point, int flag);

// Encoding lookups.  The two taking a name give new copies; the others
// give the table's own strings, not to be freed.
//
// A copy of what follows the 13th dash, and in *id the id of the table row
// with that suffix (compared without regard to case), or 0 when none has it.
// A name without a 13th dash reports wFontFormat and gives null.
char *_QlGetEncodingSchemeOfFull(const char *xlfd, int *id);
// A copy of the family field (between the 2nd and the 3rd dash, or to the
// end of a name without a 3rd), or null for a name without a 2nd dash.
char *_QlGetTypefaceOfFull(const char *xlfd);
const char *_QlGetEncodingScheme(int id);          // XLFD suffix of the id, or null
const char *_QlGetEncodeNameofAFMEncode(int id);   // AFM name of the id, or null
int _QlGetEncodeOfAFMString(const char *afmName);  // id, or 0; without regard to case

// The path "<directory>/fontmetrics/<type>/<name>" in result, which holds
// `size` bytes (1024 when not given: callers that leave size out must pass a
// buffer of at least that much).  For the type "afm" each "." of the name
// becomes "-" and ".afm" is added.  A path that doesn't fit gives null and
// leaves result empty: a path is never cut.
inline constexpr size_t kQlFontNameSize = 1024;
char *_QlMakeFontName(char *result, const char *directory, const char *type, const char *name,
                      size_t size = kQlFontNameSize);

// Lowers the file part (behind the last "/") of path in place.
void _QlLowerCaseFileName(char *path);

// A PostScript printer draws the page's bounding box, to see it on paper.
void _QlDrawBoundingBox(QlPrinter *printer);
