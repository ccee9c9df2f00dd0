// Ghostscript as a judge of the PostScript that the library writes.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace qltest {

struct GsRun {
  int exitCode;     // the exit status; 128 + signal if gs was killed, 127 if it could not run
  std::string log;  // standard output and standard error together
};

// Runs "gs -q -dBATCH -dNOPAUSE -dSAFER <args...>" without a shell.
GsRun RunGhostscript(const std::vector<std::string> &args);
// The same without -q: gs's reports of font substitutions show in the log.
GsRun RunGhostscriptTalkative(const std::vector<std::string> &args);

// Renders a file with the png16m device to pngOut at dpi (or with the
// nullpage device when pngOut is empty).  Fails on a non-zero exit and on
// any error, warning or font substitution in gs's output, which is then
// part of the failure message.  (gs runs without -q here: quiet mode hides
// font substitutions.)
::testing::AssertionResult RendersCleanly(const std::string &psPath, const std::string &pngOut = "",
                                          int dpi = 72);

// The bounding box of the ink on the first page, in points, as the bbox
// device reports it; nothing if gs fails or reports none.
std::optional<std::array<int, 4>> GsInkBoundingBox(const std::string &psPath);
// The same, unrounded (the device's %%HiResBoundingBox).
std::optional<std::array<double, 4>> GsInkBoundingBoxHiRes(const std::string &psPath);

}  // namespace qltest
