// The library's own small regular expression engine, used to match font
// names.  A pattern compiles into one malloc'ed block: the fixed part below,
// then `nclasses` character classes of 32 bytes each, then the byte program.
// The caller frees the block with free().
#pragma once

struct regexp {
    char *startp[10];        // start of each group after a match (group 0: the whole match)
    char *endp[10];          // end of each group
    int minlen;              // no match is shorter than this
    unsigned char first;     // a literal every match begins with, 0 if none
    unsigned char bol;       // anchored to the start of the text
    unsigned char nclasses;  // classes stored after the fixed part
};

// Compiles a pattern; an empty (or null) pattern means the previous one.
// Null after printing the reason with Qlregerror.  Not thread-safe.
regexp *Qlregcomp(const char *pattern);

// 1 if the text holds a match, 0 if not.  `atStart` says that the text is
// at the start of a line; without it an anchored pattern never matches.
// On a match, startp/endp point into `text`.
int Qlregexec(regexp *re, const char *text, int atStart);

// Writes "RE error: <message>" and a newline to standard error.
void Qlregerror(const char *message);

// With o_magic off, ".", "*" and "[" are literals and "\." and "\*" are
// operators.  With o_ignorecase on, an upper case letter of the text matches
// the lower case literal of the pattern.
extern unsigned char o_magic, o_ignorecase;
