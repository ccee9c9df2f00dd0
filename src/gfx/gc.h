// Graphics contexts as the drivers see them.
#pragma once

#include "core/qlint.h"

// The printer GC behind a GC handle: null, after a wBadGC report naming
// `caller`, when gc is not a live GC made on a printer.
QlGC *_QlPrinterGC(GC gc, const char *caller);

// Xlib's GC bits, as the flush functions test them.
namespace ql::gcbit {
inline constexpr unsigned long Foreground = GCForeground, LineWidth = GCLineWidth, LineStyle = GCLineStyle,
                               CapStyle = GCCapStyle, JoinStyle = GCJoinStyle, FillStyle = GCFillStyle,
                               FillRule = GCFillRule, Tile = GCTile, Stipple = GCStipple, FontBit = GCFont,
                               ClipXOrigin = GCClipXOrigin, ClipYOrigin = GCClipYOrigin, ClipMask = GCClipMask,
                               DashOffset = GCDashOffset, DashList = GCDashList, ArcMode = GCArcMode;
inline constexpr unsigned long ClipSet = ClipXOrigin | ClipYOrigin | ClipMask;
inline constexpr unsigned long DashSet = DashOffset | DashList;
inline constexpr unsigned long All = ~0UL;
// Everything but the clip: what a "gr gs" throws away.
inline constexpr unsigned long AllButClip = 4294049791UL;
}  // namespace ql::gcbit

// Finds a default font for a new GC; malloc'ed name or null.
char *_QlTryToFindADefaultFont(QlPrinter *printer, const char *pattern);
