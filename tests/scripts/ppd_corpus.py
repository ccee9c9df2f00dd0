#!/usr/bin/env python3
"""The real-PPD corpus of test_ppd_corpus: picks PPD files from the CUPS
driver archives of Debian (openprinting-ppds, printer-driver-postscript-hp)
and from the plain PPD files on disk, extracts the archive members into a
cache, and prints one line per file:

    <model>\t<source>\t<path of the file>\t<name in its source>

Usage: ppd_corpus.py --cache DIR [--select default|all|N] [--via-cat]

The archives are driver programs that answer "list" and "cat <name>".
Every "cat" unpacks the archive from its start (about 0.7 s for
openprinting-ppds), so the members are taken in one pass instead: the
program is loaded as a module (its own top-level code, not run as a
command), its own load() gives the index, and one streaming decompression
of its archive hands out the members in the order they lie there.  The
names come from the program's "list"; the first and the last member taken
from each archive are compared byte for byte with what "cat" prints, and if
anything of this does not hold, every member is taken with "cat", two at a
time.  --via-cat (or QL_PPD_EXTRACT=cat in the environment) takes that
road from the start.

The cache (DIR/<program>/) is keyed on the program's size and time, so a
rerun extracts only what it does not yet hold."""

import argparse
import base64
import glob
import lzma
import os
import re
import runpy
import shutil
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor

ARCHIVES = [
    # (source tag, driver program)
    ("op", "/usr/lib/cups/driver/openprinting-ppds"),
    ("hp", "/usr/lib/cups/driver/postscript-hp"),
]
PLAIN = [
    ("sys", "/usr/share/ppd/**/*.ppd"),
    ("gs", "/usr/share/ghostscript/*/lib/*.ppd"),
]
DEFAULT_PER_ARCHIVE = 150

# Files the default run takes besides its spread, because each meets one of
# the reading rules of the parser that few files meet (multi-line values
# that a quote alone closes, groups in *JCLOpenUI blocks, refusals...).
# Names that an archive does not hold are passed over.
PINNED = {
    "op": [
        # *InputSlot group swallowed to the end of the file: no *CloseUI.
        "ppd/openprinting/Samsung/PXL/Samsung_K2200_Series_PXL.ppd",
        # *Resolution 1200dpi swallowed by the multi-line value before it.
        "ppd/openprinting/Gestetner/PS/Gestetner-F9199_9199nf_PS.ppd",
        # *OpenUI *DuplexUnit... taken for the key Duplex (prefix match).
        "ppd/openprinting/KONICA_MINOLTA/KOC250UX.ppd",
    ],
    "hp": [
        # Lines longer than 255 characters.
        "ppd/hplip/HP/hp-designjet_z6_pro_64in_ps-ps.ppd",
    ],
}


def log(msg):
    print("ppd_corpus: " + msg, file=sys.stderr)


def stamp_of(program):
    st = os.stat(program)
    return "%s %d %d\n" % (program, st.st_size, int(st.st_mtime))


def member_key(listed):
    """'openprinting-ppds:0/ppd/x.ppd' -> 'ppd/x.ppd' (what cat takes, less its index)."""
    name = listed.split(":", 1)[-1]
    return name[name.find("/") + 1:]


def list_names(program, cache):
    """Distinct member names in the order "list" gives them, cached."""
    names_file = os.path.join(cache, "names.txt")
    stamp_file = os.path.join(cache, "stamp")
    stamp = stamp_of(program)
    if os.path.exists(names_file) and os.path.exists(stamp_file):
        with open(stamp_file) as f:
            if f.read() == stamp:
                with open(names_file) as f:
                    return [l.rstrip("\n") for l in f if l.strip()]
    out = subprocess.run([program, "list"], stdout=subprocess.PIPE, check=True).stdout.decode("utf-8", "replace")
    names, seen = [], set()
    for line in out.splitlines():
        m = re.match(r'"([^"]*)"', line)
        if not m:
            continue
        key = member_key(m.group(1))
        if key not in seen:
            seen.add(key)
            names.append(key)
    os.makedirs(cache, exist_ok=True)
    # A new program invalidates what was extracted from the old one.
    if os.path.exists(stamp_file):
        shutil.rmtree(os.path.join(cache, "files"), ignore_errors=True)
    write_atomic(names_file, ("\n".join(names) + "\n").encode())
    write_atomic(stamp_file, stamp.encode())
    return names


def write_atomic(path, data):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    tmp = path + ".tmp%d" % os.getpid()
    with open(tmp, "wb") as f:
        f.write(data)
    os.replace(tmp, path)


def cached_path(cache, key):
    return os.path.join(cache, "files", key)


def cat_member(program, key):
    return subprocess.run([program, "cat", "0/" + key], stdout=subprocess.PIPE, check=True).stdout


def extract_via_cat(program, cache, keys):
    def one(key):
        write_atomic(cached_path(cache, key), cat_member(program, key))
    with ThreadPoolExecutor(max_workers=2) as pool:
        list(pool.map(one, keys))


def extract_in_one_pass(program, cache, keys):
    """Takes the members out of the program's archive with its own index.
    Gives False when the program's form is not the one expected."""
    try:
        module = runpy.run_path(program, run_name="ppd_archive")
        index = module["load"]()
    except Exception as e:  # not the expected program
        log("%s: cannot load as a module (%s)" % (program, e))
        return False
    spans = []
    for key in keys:
        entry = index.get("0/" + key)
        if not entry:
            log("%s: %s is not in its index" % (program, key))
            return False
        spans.append((int(entry[0]), int(entry[1]), key))
    spans.sort()
    archive = base64.b64decode(index["ARCHIVE"].encode("ASCII"))
    del index
    unpacker = lzma.LZMADecompressor()
    window, window_start = bytearray(), 0  # bytes [window_start, +len) of the unpacked archive
    chunk = 1 << 24
    pending = archive
    for start, length, key in spans:
        while window_start + len(window) < start + length:
            if unpacker.eof:
                log("%s: archive ends before %s" % (program, key))
                return False
            part = unpacker.decompress(pending, chunk)
            pending = b""
            # Drop what lies before the member in hand.
            if start > window_start:
                drop = min(start - window_start, len(window))
                del window[:drop]
                window_start += drop
            window += part
            if not part and unpacker.needs_input:
                log("%s: archive ends before %s" % (program, key))
                return False
        if start < window_start:
            log("%s: members overlap at %s" % (program, key))
            return False
        off = start - window_start
        write_atomic(cached_path(cache, key), bytes(window[off:off + length]))
    # The first and the last member, as "cat" gives them.
    for _, _, key in (spans[0], spans[-1]):
        with open(cached_path(cache, key), "rb") as f:
            if f.read() != cat_member(program, key):
                log("%s: %s differs from what cat prints" % (program, key))
                return False
    return True


def spread(names, count):
    if count >= len(names):
        return list(names)
    return [names[(2 * i + 1) * len(names) // (2 * count)] for i in range(count)]


def safe(name):
    return re.sub(r"[^A-Za-z0-9._+-]", "_", name)


def model_of(tag, path, used):
    base = os.path.basename(path)
    if base.lower().endswith(".ppd"):
        base = base[:-4]
    model = "%s-%s" % (tag, safe(base))
    n, candidate = 1, model
    while candidate.lower() in used:
        n += 1
        candidate = "%s-%d" % (model, n)
    used.add(candidate.lower())
    return candidate


def is_ppd(path):
    try:
        with open(path, "rb") as f:
            return f.read(10) == b"*PPD-Adobe"
    except OSError:
        return False


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--cache", required=True)
    ap.add_argument("--select", default="default")
    ap.add_argument("--via-cat", action="store_true")
    args = ap.parse_args()
    if os.environ.get("QL_PPD_EXTRACT") == "cat":
        args.via_cat = True
    if args.select == "all":
        per_archive = None
    elif args.select in ("", "default"):
        per_archive = DEFAULT_PER_ARCHIVE
    else:
        per_archive = int(args.select)

    rows, used = [], set()
    for tag, program in ARCHIVES:
        if not os.access(program, os.X_OK):
            log("%s is not installed; passed over" % program)
            continue
        cache = os.path.join(args.cache, os.path.basename(program))
        names = list_names(program, cache)
        chosen = names if per_archive is None else spread(names, per_archive)
        if per_archive is not None:
            for pin in PINNED.get(tag, []):
                if pin in names and pin not in chosen:
                    chosen.append(pin)
        missing = [k for k in chosen if not os.path.exists(cached_path(cache, k))]
        if missing:
            log("%s: extracting %d of %d files" % (program, len(missing), len(chosen)))
            if args.via_cat or not extract_in_one_pass(program, cache, missing):
                extract_via_cat(program, cache, missing)
        for key in chosen:
            rows.append((model_of(tag, key, used), tag, cached_path(cache, key), key))
    for tag, pattern in PLAIN:
        for path in sorted(glob.glob(pattern, recursive=True)):
            if os.path.isfile(path) and is_ppd(path):
                rows.append((model_of(tag, path, used), tag, path, path))
    out = sys.stdout
    for row in rows:
        out.write("\t".join(row) + "\n")


if __name__ == "__main__":
    main()
