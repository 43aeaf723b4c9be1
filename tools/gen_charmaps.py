#!/usr/bin/env python3
"""Generate the character-set map files under data/charmaps/.

Inputs
  * glibc's charmaps, /usr/share/i18n/charmaps/<NAME>.gz (Debian package
    "locales"): the first choice for every set glibc has a charmap for.
  * Python's codecs (the interpreter running this script), for the sets glibc
    has no charmap for.

Output
  One file per set, named as CHARMAP_generateCharacterSetFileName names it:
  the canonical name with everything but letters and digits dropped, letters
  raised, and ".MAP" appended (ISO-8859-1 -> ISO88591.MAP, Shift_JIS ->
  SHIFTJIS.MAP).  Each line maps one native byte sequence to the Unicode
  sequence it stands for, both written as hexadecimal numbers joined by "+"
  ("41 0041", "81+40 3000"); "#" lines are comments.  Characters beyond the
  16-bit range are written as their UTF-16 surrogate pair, since converters
  work in 16-bit units.  Lines are in native byte order and no byte sequence
  appears twice: where a source lists one twice, the first entry is kept.

  The 94x94 sets that ISO-2022 converters switch into (JIS_C6226-1983,
  GB2312-80, CNS11643-P1/P2) are written in their 7-bit form ("21+21 3000"),
  taken from the EUC charmap that carries them.

Sets of the character-set table that neither source knows are not written:
hp-arabic8, hp-hebrew8, hp-kana8, hp-roman, MAC-JAPANESE, GSM0338,
TELEPATHSMSC, JIS_C6226-1978, HP15CN.  EUC-TW is left out for its size (a
four-byte set of some 50 000 characters, over 1 MB); its planes 1 and 2 are
written as CNS11643-P1 and CNS11643-P2.  UTF-8, ISO-2022-JP and ISO-2022-CN
need no map.

Regenerate (from the repository's top directory):
    python3 tools/gen_charmaps.py                 # writes data/charmaps/*.MAP
    python3 tools/gen_charmaps.py --check-iconv   # and reports every byte
                                                  # sequence glibc's iconv
                                                  # converts differently
"""

import argparse
import codecs
import gzip
import os
import re
import sys

# canonical name, character-set identifier, source.  A source is
#   ("glibc", charmap)                  the charmap as it stands
#   ("python", codec)                   Python's codec, decoded byte by byte
#   ("glibc94", charmap, prefix)        the 94x94 set behind `prefix` in an EUC
#                                       charmap, in its 7-bit form
SETS = [
    ("US-ASCII", 3, ("glibc", "ANSI_X3.4-1968")),
    ("ISO-8859-1", 4, ("glibc", "ISO-8859-1")),
    ("ISO-8859-2", 5, ("glibc", "ISO-8859-2")),
    ("ISO-8859-3", 6, ("glibc", "ISO-8859-3")),
    ("ISO-8859-4", 7, ("glibc", "ISO-8859-4")),
    ("ISO-8859-5", 8, ("glibc", "ISO-8859-5")),
    ("ISO-8859-6", 9, ("glibc", "ISO-8859-6")),
    ("ISO-8859-7", 10, ("glibc", "ISO-8859-7")),
    ("ISO-8859-8", 11, ("glibc", "ISO-8859-8")),
    ("ISO-8859-9", 12, ("glibc", "ISO-8859-9")),
    ("hp-greek8", 5002, ("glibc", "HP-GREEK8")),
    ("hp-roman8", 5005, ("glibc", "HP-ROMAN8")),
    ("hp-turkish8", 5006, ("glibc", "HP-TURKISH8")),
    ("Shift_JIS", 17, ("glibc", "SHIFT_JIS")),
    ("Big5", 2026, ("glibc", "BIG5")),
    ("5601", 36, ("python", "ks_c_5601_1987")),
    ("EUC-KR", 38, ("glibc", "EUC-KR")),
    ("EUC-JP", 18, ("glibc", "EUC-JP")),
    ("EUC-CN", 5009, ("glibc", "GB2312")),
    ("tis620", 5008, ("glibc", "TIS-620")),
    ("T61", 76, ("glibc", "T.61-8BIT")),
    ("MSCP1250", 5100, ("glibc", "CP1250")),
    ("MSCP1251", 5101, ("glibc", "CP1251")),
    ("MSCP1252", 5102, ("glibc", "CP1252")),
    ("MSCP1253", 5103, ("glibc", "CP1253")),
    ("MSCP1254", 5104, ("glibc", "CP1254")),
    ("MSCP1255", 5105, ("glibc", "CP1255")),
    ("MSCP1256", 5106, ("glibc", "CP1256")),
    ("MSCP1257", 5107, ("glibc", "CP1257")),
    ("MSCP1258", 5108, ("glibc", "CP1258")),
    ("MSCP932", 5109, ("glibc", "WINDOWS-31J")),
    ("MSCP936", 5110, ("glibc", "GBK")),
    ("MSCP949", 5111, ("glibc", "CP949")),
    ("MSCP950", 5112, ("python", "cp950")),
    ("MAC-ROMAN", 5501, ("glibc", "MACINTOSH")),
    ("MAC-CNTEURO", 5503, ("glibc", "MAC-CENTRALEUROPE")),
    ("MAC-CROATIAN", 5504, ("python", "mac_croatian")),
    ("MAC-CYRILLIC", 5505, ("glibc", "MAC-CYRILLIC")),
    ("MAC-GREEK", 5507, ("python", "mac_greek")),
    ("MAC-ICELAND", 5509, ("glibc", "MAC-IS")),
    ("MAC-TURKISH", 5513, ("python", "mac_turkish")),
    ("MAC-UKRAINE", 5514, ("glibc", "MAC-UK")),
    ("MSCP437", 2011, ("glibc", "IBM437")),
    ("JIS_X0201", 15, ("glibc", "JIS_X0201")),
    ("JIS_C6226-1983", 63, ("glibc94", "EUC-JP", b"")),
    ("GB2312-80", 57, ("glibc94", "GB2312", b"")),
    ("CN-GB", 5532, ("glibc", "GB2312")),
    ("CN-BIG5", 5533, ("glibc", "BIG5")),
    ("CNS11643-P1", 5530, ("glibc94", "EUC-TW", b"")),
    ("CNS11643-P2", 5531, ("glibc94", "EUC-TW", b"\x8e\xa2")),
    # Not in the character-set table: the sets the sample charmap.config adds.
    ("ISO-8859-15", 111, ("glibc", "ISO-8859-15")),
    ("KOI8-R", 2084, ("glibc", "KOI8-R")),
]


def squish(name):
    """The library's squishing rule: letters raised, digits kept, the rest dropped."""
    return "".join(c.upper() for c in name if c.isascii() and c.isalnum())


def map_file_name(canonical):
    return squish(canonical) + ".MAP"


def read_glibc_charmap(directory, name):
    """(bytes, code points) pairs of a glibc charmap, in file order."""
    path = os.path.join(directory, name + ".gz")
    with gzip.open(path, "rt", encoding="ascii", errors="strict") as f:
        lines = f.read().splitlines()
    comment, escape = "%", "/"
    pairs = []
    in_map = False
    entry = re.compile(r"^((?:<U[0-9A-Fa-f]+>)+)\s+((?:\S\S*?)(?=\s|$))")
    for line in lines:
        m = re.match(r"^<comment_char>\s+(\S)", line)
        if m and not in_map:
            comment = m.group(1)
        m = re.match(r"^<escape_char>\s+(\S)", line)
        if m and not in_map:
            escape = m.group(1)
        # A few charmaps (MAC-CENTRALEUROPE) start their entries without the
        # CHARMAP line.
        if line.strip() == "CHARMAP" or re.match(r"^<U[0-9A-Fa-f]+>", line):
            in_map = True
        if not in_map or line.strip() == "CHARMAP":
            continue
        if line.strip() == "END CHARMAP":
            break
        # Byte-to-Unicode-only entries are still byte-to-Unicode entries.
        irreversible = comment + "IRREVERSIBLE" + comment
        if line.startswith(irreversible):
            line = line[len(irreversible):]
        if not line.strip() or line.startswith(comment):
            continue
        m = entry.match(line)
        if not m or "..." in line.split()[0] or ".." in line.split()[0]:
            raise SystemExit("%s: unexpected line: %r" % (name, line))
        codepoints = [int(u, 16) for u in re.findall(r"<U([0-9A-Fa-f]+)>", m.group(1))]
        raw = m.group(2)
        parts = raw.split(escape)[1:]
        if not parts or not all(re.fullmatch(r"x[0-9A-Fa-f]{2}", p) for p in parts):
            raise SystemExit("%s: unexpected byte sequence: %r" % (name, line))
        pairs.append((bytes(int(p[1:], 16) for p in parts), codepoints))
    return pairs


def read_python_codec(codec):
    """(bytes, code points) pairs of every one- and two-byte sequence the codec decodes."""
    pairs = []
    single = set()
    for b in range(256):
        try:
            text = bytes([b]).decode(codec)
        except UnicodeDecodeError:
            continue
        single.add(b)
        pairs.append((bytes([b]), [ord(c) for c in text]))
    if codecs.lookup(codec).name in ("euc_kr", "cp950"):
        for lead in range(0x81, 0x100):
            if lead in single:
                continue
            for trail in range(0x21, 0x100):
                seq = bytes([lead, trail])
                try:
                    text = seq.decode(codec)
                except UnicodeDecodeError:
                    continue
                if len(text) == 1:
                    pairs.append((seq, [ord(text)]))
    return pairs


def ninety_four(pairs, prefix):
    """The 94x94 set behind `prefix` in EUC pairs, in its 7-bit form."""
    out = []
    for seq, cps in pairs:
        rest = seq[len(prefix):]
        if seq.startswith(prefix) and len(rest) == 2 and all(0xA1 <= b <= 0xFE for b in rest):
            out.append((bytes(b - 0x80 for b in rest), cps))
    return out


def utf16(codepoints):
    units = []
    for cp in codepoints:
        if cp > 0xFFFF:
            cp -= 0x10000
            units += [0xD800 + (cp >> 10), 0xDC00 + (cp & 0x3FF)]
        else:
            units.append(cp)
    return units


def write_map(path, canonical, ident, source, pairs):
    seen = {}
    for seq, cps in pairs:
        seen.setdefault(seq, cps)
    rows = sorted(seen.items(), key=lambda kv: (len(kv[0]), kv[0]))
    described = {
        "glibc": "glibc's charmap %s" % source[1] if source[0] == "glibc" else "",
        "python": "Python's codec %s" % source[1] if source[0] == "python" else "",
        "glibc94": "the 94x94 set %sof glibc's charmap %s, in 7-bit form"
        % (("behind " + "+".join("%02X" % b for b in source[2]) + " ") if source[2] else "", source[1])
        if source[0] == "glibc94" else "",
    }[source[0]]
    with open(path, "w", encoding="ascii", newline="\n") as f:
        f.write("# %s: %s (character-set identifier %d), native bytes to Unicode.\n"
                % (os.path.basename(path), canonical, ident))
        f.write("# Generated by tools/gen_charmaps.py from %s.\n" % described)
        for seq, cps in rows:
            f.write("%s %s\n" % ("+".join("%02X" % b for b in seq),
                                 "+".join("%04X" % u for u in utf16(cps))))
    return len(rows)


def check_iconv(path, charmap_label):
    """Differences between a written map and glibc's iconv; returns how many."""
    import ctypes
    libc = ctypes.CDLL(None, use_errno=True)
    libc.iconv_open.restype = ctypes.c_void_p
    libc.iconv_open.argtypes = [ctypes.c_char_p, ctypes.c_char_p]
    libc.iconv.argtypes = [ctypes.c_void_p] + [ctypes.c_void_p] * 4
    libc.iconv.restype = ctypes.c_size_t
    libc.iconv_close.argtypes = [ctypes.c_void_p]
    cd = libc.iconv_open(b"UTF-16BE", charmap_label.encode())
    if cd in (None, ctypes.c_void_p(-1).value):
        print("  iconv does not know %s" % charmap_label)
        return 0
    differences = 0
    with open(path, encoding="ascii") as f:
        for line in f:
            if line.startswith("#"):
                continue
            native, uni = line.split()
            src = bytes(int(x, 16) for x in native.split("+"))
            want = b"".join(int(x, 16).to_bytes(2, "big") for x in uni.split("+"))
            inbuf = ctypes.create_string_buffer(src, len(src))
            outbuf = ctypes.create_string_buffer(64)
            inptr = ctypes.c_char_p(ctypes.addressof(inbuf))
            outptr = ctypes.c_char_p(ctypes.addressof(outbuf))
            inleft = ctypes.c_size_t(len(src))
            outleft = ctypes.c_size_t(64)
            libc.iconv(cd, None, None, None, None)
            rc = libc.iconv(cd, ctypes.byref(inptr), ctypes.byref(inleft), ctypes.byref(outptr),
                            ctypes.byref(outleft))
            if rc != ctypes.c_size_t(-1).value:
                # Sets with combining characters hold a base character back
                # until they see what follows; flush it.
                rc = libc.iconv(cd, None, None, ctypes.byref(outptr), ctypes.byref(outleft))
            got = outbuf.raw[:64 - outleft.value] if rc != ctypes.c_size_t(-1).value else None
            if got != want:
                differences += 1
                if differences <= 5:
                    print("  %s: map %s, iconv %s" % (native, uni, got.hex().upper() if got else "error"))
    libc.iconv_close(cd)
    return differences


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--out", default=os.path.join(here, "..", "data", "charmaps"))
    parser.add_argument("--charmaps", default="/usr/share/i18n/charmaps")
    parser.add_argument("--check-iconv", action="store_true")
    args = parser.parse_args()
    os.makedirs(args.out, exist_ok=True)

    cache = {}
    total = 0
    for canonical, ident, source in SETS:
        kind = source[0]
        if kind == "python":
            pairs = read_python_codec(source[1])
        else:
            if source[1] not in cache:
                cache[source[1]] = read_glibc_charmap(args.charmaps, source[1])
            pairs = cache[source[1]]
            if kind == "glibc94":
                pairs = ninety_four(pairs, source[2])
        path = os.path.join(args.out, map_file_name(canonical))
        rows = write_map(path, canonical, ident, source, pairs)
        if rows < 100:
            raise SystemExit("%s: only %d entries read from %s" % (canonical, rows, source[1]))
        size = os.path.getsize(path)
        total += size
        print("%-16s %6d lines %9d bytes  %s" % (map_file_name(canonical), rows, size, canonical))
        if args.check_iconv and kind != "glibc94":
            label = source[1] if kind == "glibc" else codecs.lookup(source[1]).name.upper().replace("_", "-")
            n = check_iconv(path, label)
            if n:
                print("  %d sequences differ from iconv %s" % (n, label))
    print("total %d bytes" % total)


if __name__ == "__main__":
    main()
