"""A Python model of the library's time-zone rule lookups (src/lib/misc/tz_*).

gen_tzfile.py --check uses it to prove, zone by zone, that the shipped
data/tz/zones.profile converts exactly as the compiled tz database does.  It
mirrors the C code step by step: entry for a year, date of a change, interval
of a year, type at a wall-clock time (with its one-hour skipped and doubled
hours), UTC to local time (first guess at standard time, then s -= 60 or
s -= 120) and local time to UTC.  Times are minutes since 1 January 1991
00:00, adjusts are UTC - local in minutes.

An entry is a tuple (from_day, from_month, from_year, to_day, to_month,
to_year, time, weekday, adjust) with months 1..12 and weekday 99 for "on the
from day itself".  A rule is (standard_adjust_from_name, begins, ends).
"""

import datetime

STANDARD = 10
DAYLIGHT = 11
EITHER = 12
E_WRONG_TYPE = 0x15702
E_NO_TYPE = 0x15703
E_SKIPPED = 0x15704
E_NO_YEAR = 0x15709

_EPOCH = datetime.date(1991, 1, 1).toordinal()


class TzError(Exception):
    def __init__(self, code):
        super().__init__(hex(code))
        self.code = code


def parse_adjust(text):
    """An adjust as the reader takes it: optional '-', hours, optional ':minutes'."""
    neg = text.startswith("-")
    if neg:
        text = text[1:]
    hours, _, minutes = text.partition(":")
    value = int(hours or 0) * 60 + int(minutes or 0)
    return -value if neg else value


def name_offset(zone_name):
    """The standard adjust read from a zone name after its leading capitals."""
    i = 0
    while i < len(zone_name) and zone_name[i].isupper():
        i += 1
    j = i
    if j < len(zone_name) and zone_name[j] == "-":
        j += 1
    while j < len(zone_name) and (zone_name[j].isdigit() or zone_name[j] == ":"):
        j += 1
    return parse_adjust(zone_name[i:j])


def _day_number(y, m, d):
    return datetime.date(y, m, d).toordinal() - _EPOCH


def _entry_for_year(entries, year):
    for e in entries:
        if e[2] <= year <= e[5]:
            return e
    raise TzError(E_NO_YEAR)


def _change(entry, year):
    """(day number, time, adjust) of an entry's change in a year."""
    day = _day_number(year, entry[1], entry[0])
    if entry[7] < 7:
        while (day + _EPOCH) % 7 != entry[7]:  # ordinal % 7: 0 = Sunday
            day += 1
    return day, entry[6], entry[8]


class Rule:
    def __init__(self, std, begins, ends):
        self.std = std
        self.begins = begins
        self.ends = ends
        self._cache = {}

    def interval(self, year):
        hit = self._cache.get(year)
        if hit is None:
            b = _change(_entry_for_year(self.begins, year), year)
            e = _change(_entry_for_year(self.ends, year), year)
            if b[2] < e[2]:
                hit = (b, e, b[2], e[2], True)
            else:
                hit = (b, e, e[2], b[2], False)
            self._cache[year] = hit
        return hit

    def type_at(self, t):
        """(type, daylight adjust, standard adjust) at wall-clock minute t."""
        day, m = divmod(t, 1440)
        year = datetime.date.fromordinal(day + _EPOCH).year
        (bday, btime, _), (eday, etime, _), dst, std, normal = self.interval(year)
        if dst == std:
            return STANDARD, dst, std
        cb = (bday > day) - (bday < day)
        if cb == 0:
            cb = -1 if btime < m else (1 if btime > m else 0)
        cd = (day > eday) - (day < eday)
        if cd == 0:
            cd = -1 if m < etime else (1 if m > etime else 0)
        if normal and day == bday and btime - 60 <= m < btime:
            raise TzError(E_SKIPPED)
        if normal and day == eday and etime <= m < etime + 60:
            return EITHER, dst, std
        if not normal and day == eday and etime - 60 <= m < etime:
            raise TzError(E_SKIPPED)
        if not normal and day == bday and btime <= m < btime + 60:
            return EITHER, dst, std
        if normal and cb <= 0 and cd < 0:
            return DAYLIGHT, dst, std
        if not normal and (cb > 0 or cd >= 0):
            return DAYLIGHT, dst, std
        return STANDARD, dst, std

    def time_adjust(self, t, want=0):
        found, dst, std = self.type_at(t)
        if want:
            if found == EITHER:
                found = want
            elif found != want:
                raise TzError(E_WRONG_TYPE)
        if found == DAYLIGHT:
            return dst
        if found == STANDARD:
            return std
        raise TzError(E_NO_TYPE)

    def utc_to_local(self, utc):
        """(local minutes, type) as DX_TZFromUTCToLocalTime gives them."""
        s = self.std
        try:
            typ = self.type_at(utc - s)[0]
            if typ == EITHER:
                s -= 120
                typ = STANDARD
        except TzError as err:
            if err.code != E_SKIPPED:
                raise
            s -= 60
            typ = self.type_at(utc - s)[0]
        return utc - self.time_adjust(utc - s, typ), typ

    def local_to_utc(self, local, want=0):
        return local + self.time_adjust(local, want)
