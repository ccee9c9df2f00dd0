// A private X server for the tests of one test binary.
//
// The server (Xvfb, 1280x1024, depth 24, no TCP) starts on first use on a
// display number that it picks itself, and is stopped when the process
// ends; it also dies with the test binary if that crashes.
#pragma once

// gtest before Xlib: X.h's None and Bool macros break gtest's headers.
#include <gtest/gtest.h>
#include <X11/Xlib.h>
#include <sys/types.h>

#include <string>

namespace qltest {

// True if the Xvfb program can be found on PATH.
bool HaveXvfb();

// The server's display name, e.g. ":17"; starts the server if needed.
// Empty if it could not be started (see XvfbFailure).
const std::string &XvfbDisplayName();

// Why the server could not be started; empty when it runs.
const std::string &XvfbFailure();

// The server's process id, or -1 if it isn't running.
pid_t XvfbPid();

// A new connection to the server, or null if it isn't running.  The
// caller closes it with XCloseDisplay.
Display *OpenTestDisplay();

// A connection to a second server of the process, 640x480 at depth 8,
// whose default visual is PseudoColor; null if it can't be started.
Display *OpenPseudoColorTestDisplay();

}  // namespace qltest
