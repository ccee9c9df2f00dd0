// PPD files: single values, option groups and repeated statements.
#pragma once

#include <cstdio>

// One parsed statement.
struct QlPPDLine {
    char *main;    // main keyword without "*"
    char *option;  // option keyword, as the file gives it
    char *value;   // value without quotes, or null
};

// The answer for one option group.
struct QlPPDOptions {
    int uiType;          // 0 other, 1 PickOne, 2 PickMany, 3 Boolean
    char *defaultValue;  // value of Default<key>, or null
    int count;
    char **keywords;
    char **values;       // "" for an entry without a value, never null
    char *query;         // value of ?<key>, or null
    int orderSet;
    double *order;
    char **section;
};

// Keys are a null-terminated list.  Results are malloc'ed and the caller's.
char **PPDGetValues(int ignored, FILE *fp, const char *baseDir, const char *key, ...);
QlPPDOptions **PPDGetOptions(int ignored, FILE *fp, const char *baseDir, const char *key, ...);
QlPPDOptions *PPDGetMultiples(FILE *fp, const char *baseDir, const char *key);
char *PPDGetOptionValue(QlPPDOptions *rec, const char *name);
QlPPDOptions *_AddStringToOptionList(QlPPDOptions *rec, const char *keyword, const char *value);

void _QlFreeOptions(QlPPDOptions *rec);
void freeDString(char **array, int n);
void freeDOptions(QlPPDOptions **array, int n);
void freeMultiple(QlPPDOptions *rec);

// Internal steps, kept apart because inclusion recurses through them.
QlPPDLine *parseLine(FILE *fp, char *line);
void freeLine(QlPPDLine *line);
char *parseFName(const char *value);

// Opens a file as named, then with its file part in lower case.
FILE *_QlfopenTryBothCases(const char *path, const char *mode);
int _QlaccessTryBothCases(const char *path, int mode);
