#!/usr/bin/env python3
"""Generate data/tz/zones.profile, the time-zone definition file, from the
system's tz database, for the years 1991-2037.

Inputs (Debian package "tzdata")
  * /usr/share/zoneinfo/tzdata.zi: the version and the zone and link names.
  * /usr/share/zoneinfo/<name>: the compiled zone files (TZif), read for every
    UTC transition and the offset and daylight flag after it.  Debian's files
    are "fat": they list every transition up to 2037, so no POSIX rule string
    has to be expanded.
  * zone1970.tab, zone.tab, iso3166.tab: countries and the preferred names.

Output
  One section per distinct rule set.  The rule set of a zone is found year by
  year from what the database does: the changes whose wall-clock time after
  the change falls in a year become that year's begin (the first change) and
  end (the second) entry, written as "first weekday on or after day d of the
  month" when consecutive years share such a rule, or as a fixed date, and
  consecutive years with the same entries share one year range (begin and
  end keys pair up when that fits in the twelve keys that can be read, else
  each list is merged on its own, exceptions first and the usual rule last,
  since the reader takes the first entry whose years hold the year).  A year
  without a change gets two entries with the same adjust (always standard).
  Zones whose rule sets are equal share a section; "name" holds the preferred
  tz name (see PREFERRED and preference_key) and a comment lists the others.

  Zones the entry format cannot express are left out and listed, with the
  reason, at the end of the file.  Run with --check to prove, with the Python
  model of the library's lookups in tzmodel.py, that every shipped zone
  converts every instant 1991-2037 as the tz database does.

Regenerate (from the repository's top directory):
    python3 tools/gen_tzfile.py            # writes data/tz/zones.profile
    python3 tools/gen_tzfile.py --check    # also verifies it zone by zone
"""

import argparse
import bisect
import datetime
import os
import re
import struct
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import tzmodel  # noqa: E402

ZONEINFO = "/usr/share/zoneinfo"
FIRST_YEAR = 1991
LAST_YEAR = 2037
MAX_ENTRIES = 12       # keys begin1..begin9, begin:, begin;, begin< ("begin=" cannot be read)
MAX_ZONE_NAME = 19
MAX_LINE = 200         # the profile reader takes 214 characters per line

# Names a user looks for first; among zones of one rule set the earliest in
# this list names the section.  Other zones are ranked by preference_key.
PREFERRED = [
    "America/New_York", "America/Chicago", "America/Denver", "America/Phoenix",
    "America/Los_Angeles", "America/Anchorage", "Pacific/Honolulu", "America/Toronto",
    "America/Vancouver", "America/Halifax", "America/St_Johns", "America/Mexico_City",
    "America/Sao_Paulo", "America/Argentina/Buenos_Aires", "America/Santiago",
    "Europe/London", "Europe/Paris", "Europe/Berlin", "Europe/Rome", "Europe/Madrid",
    "Europe/Amsterdam", "Europe/Zurich", "Europe/Vienna", "Europe/Stockholm",
    "Europe/Warsaw", "Europe/Prague", "Europe/Athens", "Europe/Helsinki",
    "Europe/Istanbul", "Europe/Moscow", "Europe/Lisbon", "Europe/Dublin",
    "Africa/Cairo", "Africa/Johannesburg", "Africa/Lagos", "Africa/Nairobi",
    "Asia/Jerusalem", "Asia/Dubai", "Asia/Karachi", "Asia/Kolkata", "Asia/Dhaka",
    "Asia/Bangkok", "Asia/Shanghai", "Asia/Hong_Kong", "Asia/Singapore", "Asia/Tokyo",
    "Asia/Seoul", "Asia/Tehran", "Australia/Sydney", "Australia/Melbourne",
    "Australia/Brisbane", "Australia/Adelaide", "Australia/Perth", "Pacific/Auckland",
    "Etc/UTC",
]


# ---------------------------------------------------------------- inputs

def read_version():
    with open(os.path.join(ZONEINFO, "tzdata.zi"), encoding="utf-8") as f:
        first = f.readline()
    m = re.match(r"#\s*version\s+(\S+)", first)
    return m.group(1) if m else "unknown"


def read_names():
    zones, links = [], {}
    with open(os.path.join(ZONEINFO, "tzdata.zi"), encoding="utf-8") as f:
        for line in f:
            fields = line.split()
            if fields and fields[0] == "Z" and fields[1] != "Factory":
                zones.append(fields[1])
            elif fields and fields[0] == "L":
                links[fields[2]] = fields[1]
    return sorted(zones), links


def read_tab(name):
    rows = []
    path = os.path.join(ZONEINFO, name)
    if not os.path.exists(path):
        return rows
    with open(path, encoding="utf-8") as f:
        for line in f:
            if line.strip() and not line.startswith("#"):
                rows.append(line.rstrip("\n").split("\t"))
    return rows


def read_tzif(name):
    """[(utc seconds, utc offset seconds, isdst, abbreviation)], the first at -inf."""
    with open(os.path.join(ZONEINFO, name), "rb") as f:
        data = f.read()
    if data[:4] != b"TZif":
        raise ValueError("not a TZif file")

    def header(at):
        return struct.unpack(">6l", data[at + 20:at + 44])

    isut, isstd, leap, timecnt, typecnt, charcnt = header(0)
    at = 44 + timecnt * 5 + typecnt * 6 + charcnt + leap * 8 + isstd + isut
    if data[4] < ord("2"):
        raise ValueError("version 1 TZif file")
    isut, isstd, leap, timecnt, typecnt, charcnt = header(at)
    at += 44
    times = struct.unpack(">%dq" % timecnt, data[at:at + 8 * timecnt])
    at += 8 * timecnt
    index = data[at:at + timecnt]
    at += timecnt
    types = []
    for i in range(typecnt):
        types.append(struct.unpack(">lBB", data[at + 6 * i:at + 6 * i + 6]))
    at += 6 * typecnt
    chars = data[at:at + charcnt]

    def abbr(i):
        return chars[i:chars.index(b"\0", i)].decode("ascii")

    # Before the first transition the first non-daylight type holds (TZif rule).
    first = next((t for t in types if not t[1]), types[0])
    out = [(-(1 << 62), first[0], first[1], abbr(first[2]))]
    for t, i in zip(times, index):
        off, dst, ai = types[i]
        out.append((t, off, dst, abbr(ai)))
    return out


# ---------------------------------------------------------------- timelines

EPOCH = datetime.datetime(1991, 1, 1)
EPOCH_UNIX = int((EPOCH - datetime.datetime(1970, 1, 1)).total_seconds())


class Unexpressible(Exception):
    pass


def timeline(name):
    """[(utc minute, adjust, isdst, abbreviation)] over 1990-2038, merged where
    neither the adjust nor the daylight flag changes."""
    lo = EPOCH_UNIX - 2 * 86400
    hi = int((datetime.datetime(2038, 1, 2) - datetime.datetime(1970, 1, 1)).total_seconds())
    raw = read_tzif(name)
    out = []
    for i, (t, off, dst, abbr) in enumerate(raw):
        end = raw[i + 1][0] if i + 1 < len(raw) else 1 << 62
        if end <= lo or t >= hi:
            continue
        start = max(t, lo)
        if off % 60 or (start - EPOCH_UNIX) % 60:
            raise Unexpressible("offsets of seconds")
        item = ((start - EPOCH_UNIX) // 60, -off // 60, bool(dst), abbr)
        if out and out[-1][1:3] == item[1:3]:
            out[-1] = out[-1][:3] + (abbr,)  # keep the latest abbreviation
            continue
        out.append(item)
    return out


def wall_date(minute):
    return (EPOCH + datetime.timedelta(minutes=minute))


def year_plan(tl):
    """Per year: the changes whose wall-clock time after the change falls in
    it, each (utc minute, adjust before, adjust after, dst before, dst after)."""
    years = {y: [] for y in range(FIRST_YEAR, LAST_YEAR + 1)}
    for prev, cur in zip(tl, tl[1:]):
        after = wall_date(cur[0] - cur[1])
        if FIRST_YEAR <= after.year <= LAST_YEAR:
            years[after.year].append((cur[0], prev[1], cur[1], prev[2], cur[2]))
    return years


def abbreviations(tl, country):
    """(standard, daylight or None) abbreviations: the latest of each kind,
    upper-cased when alphabetic, else made of the country code + T / ST."""
    std = next((x[3] for x in reversed(tl) if not x[2]), None)
    dst = next((x[3] for x in reversed(tl) if x[2]), None)
    prefix = country or "GMT"

    def fix(a, daylight):
        if a and re.fullmatch(r"[A-Za-z]{3,6}", a):
            return a.upper()
        if not country:
            return "GMT" if not daylight else "GMTS"
        return prefix + ("ST" if daylight else "T")

    return fix(std, False), (fix(dst, True) if dst is not None else None)


def format_adjust(adj):
    sign = "-" if adj < 0 else ""
    h, m = divmod(abs(adj), 60)
    return "%s%d:%02d" % (sign, h, m) if m else "%s%d" % (sign, h)


# ---------------------------------------------------------------- entries

def change_desc(minute, adjust):
    """Candidate descriptions of a change at wall-clock minute (after it)."""
    w = wall_date(minute)
    d, m = w.day, w.month
    weekday = (w.weekday() + 1) % 7
    lo, hi = max(1, d - 6), d
    if m == 2:
        hi = min(hi, 28)
    return {"time": w.hour * 60 + w.minute, "month": m, "adjust": adjust,
            "wd": (weekday, lo, hi) if lo <= hi else None,
            "fix": d if not (m == 2 and d == 29) else None}


def sentinel(month, day, time, adjust):
    return {"time": time, "month": month, "adjust": adjust, "wd": None, "fix": day}


def year_entries(year, changes, start):
    """(begin, end) descriptions for one year, or raise Unexpressible."""
    for c in changes:
        if c[3] == c[4]:
            kind = "standard" if not c[4] else "daylight"
            raise Unexpressible("%s offset changes within a year (%d)" % (kind, year))
        dst_adj, std_adj = (c[2], c[1]) if c[4] else (c[1], c[2])
        if std_adj == dst_adj:
            raise Unexpressible("daylight flag changes without an offset change (%d)" % year)
        if std_adj - dst_adj != 60:
            raise Unexpressible("daylight and standard time %d minutes apart (%d)" % (std_adj - dst_adj, year))
        after = (c[0] - c[2]) % 1440
        if c[4] and after < 60:
            raise Unexpressible("the skipped hour starts the day before the change (%d)" % year)
        if not c[4] and after > 1380:
            raise Unexpressible("the doubled hour runs into the next day (%d)" % year)
    if len(changes) > 2:
        raise Unexpressible("more than two changes in a year (%d)" % year)
    start_adj, start_dst = start[1], start[2]
    if not changes:
        if not start_dst:
            return (sentinel(1, 1, 0, start_adj), sentinel(1, 1, 0, start_adj))
        # daylight time all year: from 1 January 0:00 to after 31 December
        return (sentinel(1, 1, 0, start_adj), sentinel(12, 31, 1440, start_adj + 60))
    first = changes[0]
    b = change_desc(first[0] - first[2], first[2])
    if len(changes) == 2:
        second = changes[1]
        return b, change_desc(second[0] - second[2], second[2])
    if first[4]:  # standard to daylight, kept to the year's end
        return b, sentinel(12, 31, 1440, first[1])
    # daylight from 1 January until the change to standard
    return sentinel(1, 1, 0, first[1]), b


def merge(a, b):
    """The description common to a (possibly merged) and b, or None."""
    if (a["time"], a["month"], a["adjust"]) != (b["time"], b["month"], b["adjust"]):
        return None
    wd = None
    if a["wd"] and b["wd"] and a["wd"][0] == b["wd"][0]:
        lo, hi = max(a["wd"][1], b["wd"][1]), min(a["wd"][2], b["wd"][2])
        wd = (a["wd"][0], lo, hi) if lo <= hi else None
    fix = a["fix"] if a["fix"] is not None and a["fix"] == b["fix"] else None
    if wd is None and fix is None:
        return None
    return dict(a, wd=wd, fix=fix)


def choose_day(desc):
    """(day, weekday or None)."""
    if desc["wd"]:
        w, lo, hi = desc["wd"]
        last = (datetime.date(2001 if desc["month"] == 2 else 2000, desc["month"] % 12 + 1, 1)
                - datetime.timedelta(days=1)).day if desc["month"] != 12 else 31
        for d in (1, 8, 15, 22, last - 6):
            if lo <= d <= hi:
                return d, w
        if desc["fix"] is None:
            return lo, w
    return desc["fix"], None


def entry_text(desc, y1, y2, abbr):
    day, weekday = choose_day(desc)
    h, m = divmod(desc["time"], 60)
    years = "%d" % y1 if y1 == y2 else "%d-%d" % (y1, y2)
    wd = "0-6" if weekday is None else "%d" % weekday
    return "%d %d %d %d %s %s %s%s" % (m, h, day, desc["month"], years, wd, abbr,
                                       format_adjust(desc["adjust"]))


def model_entry(desc, y1, y2):
    day, weekday = choose_day(desc)
    return (day, desc["month"], y1, day, desc["month"], y2, desc["time"],
            99 if weekday is None else weekday, desc["adjust"])


def model_rule(zone, runs):
    begins, ends = runs
    return tzmodel.Rule(tzmodel.name_offset(zone), [model_entry(d, y1, y2) for y1, y2, d in begins],
                        [model_entry(d, y1, y2) for y1, y2, d in ends])


def merge_years(per_year):
    """[(y1, y2, description)] from one description per year, consecutive
    years merged while a common description exists."""
    runs = []
    for year, desc in per_year:
        if runs and runs[-1][1] + 1 == year:
            common = merge(runs[-1][2], desc)
            if common:
                runs[-1] = (runs[-1][0], year, common)
                continue
        runs.append((year, year, desc))
    return runs


def build(name):
    """(standard adjust, (begin runs, end runs), timeline) or raise Unexpressible.
    Begin and end entries share their year ranges when that fits in the keys
    that can be read; otherwise each list is merged on its own."""
    tl = timeline(name)
    plan = year_plan(tl)
    years = []
    for year in range(FIRST_YEAR, LAST_YEAR + 1):
        b, e = year_entries(year, plan[year], wall_state(tl, year))
        years.append((year, (b, e)))
    joint = []
    for y1, y2, (b, e) in merge_years_pairs(years):
        joint.append((y1, y2, b, e))
    if len(joint) <= MAX_ENTRIES:
        runs = ([(y1, y2, b) for y1, y2, b, e in joint], [(y1, y2, e) for y1, y2, b, e in joint])
    else:
        runs = (fewest_entries([(y, p[0]) for y, p in years]), fewest_entries([(y, p[1]) for y, p in years]))
        need = max(len(runs[0]), len(runs[1]))
        if need > MAX_ENTRIES:
            raise Unexpressible("needs %d entries, at most %d can be read" % (need, MAX_ENTRIES))
    std = next(x[1] for x in reversed(tl) if not x[2])
    return std, runs, tl


def fewest_entries(per_year):
    """Consecutive runs, or, when shorter, the runs of the years that do not
    follow the most common rule followed by one entry for that rule over the
    whole span: the reader takes the first entry whose years hold the year,
    so the exceptions listed first win."""
    best = merge_years(per_year)
    for _, seed in per_year:
        common, covered = seed, []
        for year, desc in per_year:
            joined = merge(common, desc)
            if joined:
                common = joined
                covered.append(year)
        rest = [(y, d) for y, d in per_year if y not in covered]
        runs = merge_years(rest) + [(covered[0], covered[-1], common)]
        if len(runs) < len(best):
            best = runs
    return best


def merge_years_pairs(years):
    runs = []
    for year, (b, e) in years:
        if runs:
            mb, me = merge(runs[-1][2][0], b), merge(runs[-1][2][1], e)
            if mb and me:
                runs[-1] = (runs[-1][0], year, (mb, me))
                continue
        runs.append((year, year, (b, e)))
    return runs


def tzmodel_minute(year):
    return (datetime.datetime(year, 1, 1) - EPOCH) // datetime.timedelta(minutes=1)


def wall_state(tl, year):
    """The state in force at the wall-clock start of a year (before its first change)."""
    w = tzmodel_minute(year)
    for prev, cur in zip(tl, tl[1:]):
        if cur[0] - cur[1] >= w:  # first change whose after-time is in this year or later
            return prev
    return tl[-1]


# ---------------------------------------------------------------- check

def truth_utc(tl, starts, utc):
    x = tl[bisect.bisect_right(starts, utc) - 1]
    return x[1], x[2]


def truth_local(tl, local):
    """[(utc, adjust, isdst)] of the instants showing wall-clock minute local."""
    out = []
    for i, x in enumerate(tl):
        end = tl[i + 1][0] if i + 1 < len(tl) else 1 << 60
        u = local + x[1]
        if x[0] <= u < end:
            out.append((u, x[1], x[2]))
    return out


def check(rule, tl):
    """None, or a text telling the first disagreement with the tz database."""
    starts = [x[0] for x in tl]
    lo = tzmodel_minute(FIRST_YEAR) + 1440
    hi = tzmodel_minute(LAST_YEAR) + 364 * 1440
    walls, utcs = set(), set()
    for year in range(FIRST_YEAR, LAST_YEAR + 1):
        walls.add(tzmodel_minute(year))
        try:
            (bd, bt, _), (ed, et, _), dst, std, _ = rule.interval(year)
        except tzmodel.TzError:
            return "no entry for %d" % year
        for w in (bd * 1440 + bt, ed * 1440 + et):
            walls.update((w - 60, w, w + 60))
    adjusts = {x[1] for x in tl}
    for w in list(walls):
        for s in adjusts | {rule.std, rule.std - 60, rule.std - 120}:
            utcs.add(w + s)
    for prev, cur in zip(tl, tl[1:]):
        utcs.add(cur[0])
        walls.update((cur[0] - prev[1], cur[0] - cur[1]))
    walls.update(range(lo, hi, 24 * 60 * 97))
    utcs.update(range(lo, hi, 24 * 60 * 97))

    def points(cands):
        c = sorted(x for x in cands if lo <= x < hi)
        pts = set()
        for i, v in enumerate(c):
            pts.update((v - 1, v, v + 1))
            if i + 1 < len(c):
                pts.add((v + c[i + 1]) // 2)
        return sorted(p for p in pts if lo <= p < hi)

    for u in points(utcs):
        adj, dst = truth_utc(tl, starts, u)
        try:
            local, typ = rule.utc_to_local(u)
        except tzmodel.TzError as err:
            return "UTC %s: library fails with %s" % (wall_date(u), hex(err.code))
        if local != u - adj or (typ == tzmodel.DAYLIGHT) != dst:
            return "UTC %s: library %s type %d, tz %s%s" % (
                wall_date(u), wall_date(local), typ, wall_date(u - adj), " daylight" if dst else "")
    for t in points(walls):
        sols = truth_local(tl, t)
        try:
            typ = rule.type_at(t)[0]
        except tzmodel.TzError as err:
            if err.code == tzmodel.E_SKIPPED and not sols:
                continue
            return "local %s: library fails with %s, tz has %d instants" % (
                wall_date(t), hex(err.code), len(sols))
        if not sols:
            return "local %s: skipped in tz, library type %d" % (wall_date(t), typ)
        if typ == tzmodel.EITHER:
            if len(sols) != 2 or sols[0][2] == sols[1][2]:
                return "local %s: library repeats it, tz %d instants" % (wall_date(t), len(sols))
            for want in (tzmodel.DAYLIGHT, tzmodel.STANDARD):
                sol = next(s for s in sols if s[2] == (want == tzmodel.DAYLIGHT))
                if rule.local_to_utc(t, want) != sol[0]:
                    return "local %s type %d: wrong UTC" % (wall_date(t), want)
            continue
        if len(sols) != 1 or sols[0][2] != (typ == tzmodel.DAYLIGHT) or rule.local_to_utc(t) != sols[0][0]:
            return "local %s: library type %d UTC %s, tz %s" % (
                wall_date(t), typ, wall_date(rule.local_to_utc(t)),
                [(str(wall_date(s[0])), s[2]) for s in sols])
    return None


def cross_check(named, hourly):
    """Compare the model with Python's zoneinfo (independent of the TZif reader
    above): every hour 1991-2037 for the zones named in hourly, every 25 hours
    (so every hour of the day is met) for all others.  Returns disagreements."""
    import zoneinfo
    utc0 = datetime.datetime(1991, 1, 1, tzinfo=datetime.timezone.utc)
    lo = tzmodel_minute(FIRST_YEAR) + 1440
    hi = tzmodel_minute(LAST_YEAR) + 364 * 1440
    bad, count = [], 0
    for zone, key, members, sa, da in named:
        rule = model_rule(zone, members[0][1])
        for name, _, _, _ in members:
            zi = zoneinfo.ZoneInfo(name)
            step = 60 if name in hourly else 25 * 60
            for u in range(lo, hi, step):
                count += 1
                local = (utc0 + datetime.timedelta(minutes=u)).astimezone(zi)
                adj = -int(local.utcoffset().total_seconds()) // 60
                lm, typ = rule.utc_to_local(u)
                if lm != u - adj or (typ == tzmodel.DAYLIGHT) != bool(local.dst()):
                    bad.append("%s UTC %s: library %s type %d, zoneinfo %s" % (
                        name, wall_date(u), wall_date(lm), typ, local.isoformat()))
                    break
    return bad, count


# ---------------------------------------------------------------- output

def preference_key(name, tab1970, tabzone):
    """Smaller is preferred: the PREFERRED list, then zones of zone1970.tab
    (those standing for more countries first), then zones of zone.tab, then
    other canonical names, then links; ties by name."""
    if name in PREFERRED:
        return (0, PREFERRED.index(name), 0, "")
    if name in tab1970:
        return (1, -len(tab1970[name]), 0, name)
    if name in tabzone:
        return (2, 0, 0, name)
    legacy = "/" not in name or name.split("/")[0] in ("Etc", "US", "Canada", "Mexico", "Brazil", "Chile")
    return (3, 1 if legacy else 0, 0, name)


def wrap(prefix, words, width=100):
    lines, cur = [], prefix
    for w in words:
        if len(cur) + 1 + len(w) > width and cur != prefix:
            lines.append(cur)
            cur = "#  "
        cur += " " + w
    lines.append(cur)
    return lines


def generate():
    version = read_version()
    zones, links = read_names()
    tab1970 = {r[2]: r[0].split(",") for r in read_tab("zone1970.tab")}
    tabzone = {r[2]: r[0] for r in read_tab("zone.tab")}
    iso = {r[0]: r[1] for r in read_tab("iso3166.tab")}

    def country_code(name):
        target = links.get(name, name)
        if name in tabzone:
            return tabzone[name]
        if target in tabzone and name == target:
            return tabzone[target]
        if name in tab1970:
            return tab1970[name][0]
        return tabzone.get(target) or (tab1970.get(target) or [None])[0]

    groups, left_out = {}, []
    for name in sorted(set(zones) | set(links)):
        try:
            std, runs, tl = build(name)
        except Unexpressible as why:
            left_out.append((name, str(why)))
            continue
        key = (std, tuple(tuple(entry_text(d, y1, y2, "") for y1, y2, d in lst) for lst in runs))
        groups.setdefault(key, []).append((name, runs, tl, country_code(name)))

    sections = []
    for key, members in groups.items():
        members.sort(key=lambda m: preference_key(m[0], tab1970, tabzone))
        sections.append((key, members))
    sections.sort(key=lambda s: preference_key(s[1][0][0], tab1970, tabzone))

    used, named = set(), []
    for key, members in sections:
        std = key[0]
        rep, cc = members[0][0], members[0][3]
        sa, da = abbreviations(members[0][2], cc)
        suffixes = [""] + ([cc] if cc else []) + [(cc or "X") + c for c in "ABCDEFGHIJKLMNOPQRSTUVWXYZ"]
        for suf in suffixes:
            zone = sa + suf + format_adjust(std) + ((da + suf) if da else "")
            if zone not in used:
                break
        if len(zone) > MAX_ZONE_NAME:
            raise SystemExit("zone name too long: " + zone)
        used.add(zone)
        named.append((zone, key, members, sa, da))

    # A zone the library would convert wrongly is not shipped.
    failed, kept = [], []
    for zone, key, members, sa, da in named:
        rule = model_rule(zone, members[0][1])
        bad = []
        for name, runs, tl, cc in members:
            why = check(rule, tl)
            if why:
                bad.append((name, "library disagrees: " + why))
        if bad:
            failed.extend(bad)
            members = [m for m in members if m[0] not in {b[0] for b in bad}]
        if members:
            kept.append((zone, key, members, sa, da))
    named = kept
    left_out.extend(failed)

    named.sort(key=lambda n: (n[1][0], n[0]))
    out = [
        "# Time-zone definition file, generated by tools/gen_tzfile.py from the tz",
        "# database version %s for the years %d-%d; do not edit, regenerate." % (version, FIRST_YEAR, LAST_YEAR),
        "#",
        "# One section per rule set; the section name is the zone name: the standard",
        "# abbreviation, the standard adjust (UTC - local in hours, \":mm\" for minutes),",
        "# then the daylight abbreviation.  Numeric tz abbreviations (\"+03\") become the",
        "# country code + \"T\" (standard) or + \"ST\" (daylight), or \"GMT\" without a country.",
        "# Rule sets that would get the same zone name are told apart by the country code",
        "# of their preferred zone, then a letter, after both abbreviations (EETBG-2EESTBG).",
        "# \"name\" is the preferred tz name: a well-known principal zone, then zones of",
        "# zone1970.tab (those standing for more countries first), then zone.tab, then",
        "# other names; the comment above each section lists the other tz names it covers.",
        "# Entries: minute hour day month year weekday ABBRadjust; the time is the wall",
        "# clock after the change; weekday = first such day on or after the day, 0-6 = on",
        "# the day itself; begin is the year's first change, end its second.  The first",
        "# entry whose years hold a year is taken: a zone with many irregular years lists",
        "# those first and its usual rule last, over the whole span.  Hour 24 on 31 December",
        "# is a change that never comes within the year.",
        "",
    ]
    covered = 0
    for zone, key, members, sa, da in named:
        name, runs, tl, cc = members[0]
        std = key[0]
        others = [m[0] for m in members[1:]]
        covered += len(members)
        if others:
            out.extend(wrap("# also:", others))
        out.append("[%s]" % zone)
        out.append("name = %s" % name)
        country = iso.get(cc) if cc else None
        if country:
            out.append("country = %s" % country)
        for i in range(max(len(runs[0]), len(runs[1]))):
            for word, lst in (("begin", runs[0]), ("end", runs[1])):
                if i < len(lst):
                    y1, y2, d = lst[i]
                    abbr = da if d["adjust"] != std and da else sa
                    out.append("%s%s = %s" % (word, chr(49 + i), entry_text(d, y1, y2, abbr)))
        out.append("")
    out.append("# Left out (the entry format cannot express them), by reason:")
    by_reason = {}
    for name, why in left_out:
        m = re.fullmatch(r"(.*) \((\d{4})\)", why)
        if why.startswith("library"):
            by_reason.setdefault("the library's lookups disagree (see --check)", []).append(name)
        elif m:
            by_reason.setdefault(m.group(1), []).append("%s(%s)" % (name, m.group(2)))
        else:
            by_reason.setdefault(why, []).append(name)
    for reason in sorted(by_reason):
        out.extend(wrap("# %s:" % reason, sorted(by_reason[reason])))
    for line in out:
        if len(line) > MAX_LINE:
            raise SystemExit("line too long: " + line)
    stats = {"sections": len(named), "covered": covered, "left_out": len(left_out),
             "reasons": {r: len(v) for r, v in by_reason.items()}, "failed": failed,
             "named": named}
    return "\n".join(out) + "\n", stats


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--check", action="store_true",
                    help="verify every zone against the tz database with the library model")
    ap.add_argument("--out", default=os.path.join(os.path.dirname(os.path.abspath(__file__)),
                                                  "..", "data", "tz", "zones.profile"))
    args = ap.parse_args()
    text, stats = generate()
    os.makedirs(os.path.dirname(args.out), exist_ok=True)
    with open(args.out, "w", encoding="utf-8") as f:
        f.write(text)
    print("sections %d, tz names %d, left out %d" % (stats["sections"], stats["covered"], stats["left_out"]))
    for r, n in sorted(stats["reasons"].items()):
        print("  %4d  %s" % (n, r))
    if args.check:
        for name, why in stats["failed"]:
            print("  left out: %s: %s" % (name, why))
        hourly = [n for n in PREFERRED[:8]] + ["Australia/Sydney", "Pacific/Chatham", "Pacific/Tongatapu"]
        bad, count = cross_check(stats["named"], set(hourly))
        print("zoneinfo cross-check: %d instants, %d zones disagree" % (count, len(bad)))
        for line in bad:
            print("  " + line)


if __name__ == "__main__":
    main()
