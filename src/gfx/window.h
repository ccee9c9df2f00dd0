// Window printing: the search for a window manager's client window, kept
// here so that no Xmu library is needed.
#pragma once

#include "core/qlint.h"

// The client window below `window`: `window` itself when it carries
// WM_STATE (or when the server knows no such atom), else what TryChildren
// finds, else `window`.
Window XmuClientWindow(Display *display, Window window);

// The first descendant of `window` with the property `wmState`: the
// children in order, then each child's subtree in the same order; 0 when
// there is none or the tree can't be read.
Window TryChildren(Display *display, Window window, Atom wmState);
