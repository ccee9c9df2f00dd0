#!/usr/bin/env bash
# The shared library exports the public API and nothing else, its header
# compiles as C99 and as C++, and a C program builds with nothing but
# pkg-config and prints a document.
set -euo pipefail
build=${QL_BINARY_DIR:?}
src=${QL_SOURCE_DIR:?}
lib="$build/libqualin.so"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

# Exported symbols: Ql... calls and data only; no driver or helper names.
nm -D --defined-only "$lib" | awk '{print $3}' | sort >"$work/exports"
[ -s "$work/exports" ] || fail "no exports"
bad=$(grep -v -E '^(Ql[A-Za-z0-9_]*|_QlScanConvertPolygons|_QlForceJapaneseSJISMode|_init|_fini|_edata|_end|__bss_start)$' "$work/exports" || true)
[ -z "$bad" ] || fail "unexpected exports: $bad"
for must in QlOpenPrinter QlVaOpenPrinter QlOpenPrtWithInfo QlClosePrinter QlStartDoc QlEndDoc \
            QlMessageCatalog QlSetErrorHandler QlIsDisplay QlConfigDir; do
  grep -qx "$must" "$work/exports" || fail "$must is not exported"
done
for hidden in DrawLine StartDoc OpenPrinter unix_print fatal _QlOpenPrinter _QlError QlError_ PSDriver; do
  if nm -D --defined-only "$lib" | awk '{print $3}' | grep -q -E "(^|::)$hidden"; then fail "$hidden is exported"; fi
done

# The header alone, as C99 and as C++.
echo '#include <qualin/Ql.h>' >"$work/h.c"
cc -std=c99 -pedantic -Wall -Werror -fsyntax-only -I"$src/include" "$work/h.c"
c++ -std=c++17 -Wall -Werror -fsyntax-only -x c++ -I"$src/include" "$work/h.c"

# Install, then build the example with pkg-config only.
cmake --install "$build" --prefix "$work/prefix" >/dev/null
pcdir=$(dirname "$(find "$work/prefix" -name qualin.pc | head -1)")
export PKG_CONFIG_PATH="$pcdir"
flags=$(pkg-config --cflags --libs qualin)
case "$flags" in *"$work/prefix"*) ;; *) fail "pkg-config flags do not point at the install: $flags" ;; esac
san=""
if ldd "$lib" | grep libasan >/dev/null; then san="-fsanitize=address,undefined"; fi
cc -std=c99 $san "$src/examples/qlhello.c" $flags -o "$work/qlhello"
datadir=$(pkg-config --variable=datadir qualin)
mkdir -p "$work/run" && cd "$work/run"
LD_LIBRARY_PATH="$(dirname "$(find "$work/prefix" -name 'libqualin.so' | head -1)")" QLPATH="$datadir" \
  "$work/qlhello" 2>"$work/run.log" || { cat "$work/run.log"; fail "qlhello"; }
head -2 qualin.out | grep -q '^%%BoundingBox: ' || fail "the placeholder did not become a bounding box"
grep -q '^%%Pages: 2$' qualin.out || fail "not two pages"
gs -q -dBATCH -dNOPAUSE -dSAFER -sDEVICE=nullpage qualin.out >"$work/gs.log" 2>&1 || { cat "$work/gs.log"; fail "gs"; }
if grep -q -E 'Error|Warning|Substituting' "$work/gs.log"; then cat "$work/gs.log"; fail "gs complained"; fi

# The examples a user copies build the way their comments say, and print
# documents that Ghostscript renders.
for ex in shapes "screen_or_paper -print"; do
  prog=${ex%% *}
  cc -std=c99 $san "$src/examples/$prog.c" $flags -lm -o "$work/$prog"
  rm -f qualin.out
  LD_LIBRARY_PATH="$(dirname "$(find "$work/prefix" -name 'libqualin.so' | head -1)")" QLPATH="$datadir" \
    "$work/"$ex 2>"$work/run.log" || { cat "$work/run.log"; fail "$prog"; }
  gs -q -dBATCH -dNOPAUSE -dSAFER -sDEVICE=nullpage qualin.out >"$work/gs.log" 2>&1 || { cat "$work/gs.log"; fail "gs of $prog"; }
  if grep -q -E 'Error|Warning|Substituting' "$work/gs.log"; then cat "$work/gs.log"; fail "gs complained of $prog"; fi
done
# Printing a window needs a display: built only.
cc -std=c99 $san "$src/examples/print_window.c" $flags -o "$work/print_window"
echo "1 passed, 0 failed"
