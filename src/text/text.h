// Text helpers shared inside the library: what the string calls and the
// font sets both need.
#pragma once

// Converts EUC-JP text to Shift-JIS.  `length` bytes of `source` go into
// `destination`, which takes at most `limit` bytes; *outLength counts the
// bytes written (for a run that does not fit, it has already counted the
// character that failed).  Bytes up to 127 are copied, 0x8E with a byte
// above 127 is a half-width kana and becomes that byte alone, and two
// bytes above 127 are a JIS X 0208 character.  Gives 0 when all was
// converted, 1 on a broken sequence or when the destination is full.
// The destination is not terminated.
int _QlEUCtoSJIS(const char *source, int length, char *destination, int limit, int *outLength);
