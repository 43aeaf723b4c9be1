#!/usr/bin/env python3
"""Expands recurrences with dateutil's rrule for test_recur.

Reads one case per line on stdin:
  kind interval startYMD endYMD maxCount days exclWeekdays exclDates
where days, exclWeekdays and exclDates are comma lists ("-" for none); days
hold the generator's codes (kind 2: weekday 0 = Sunday; kind 3: day of month
from 0; kind 4: week * 7 + weekday, 28..34 the last such weekday).  Prints
one line per case: the dates as YYYYMMDD separated by blanks.

The rule maps onto rrule as follows:
  kind 1: DAILY, kind 2: WEEKLY with the week starting on the start's
  weekday, kind 3: MONTHLY BYMONTHDAY (only starts on the 1st are sent:
  other starts slide the month), kind 4: MONTHLY BYDAY with +n for weeks
  0..3 and -1 for codes 28..34, kind 5: YEARLY.
Excluded weekdays and dates are filtered afterwards, and maxCount is applied
to whole periods: a period's dates are all kept when the count before it was
below maxCount.  A monthly period runs only when its anchor (the start's day,
clamped month by month, so drifting to the shortest month-end met) is not
after the end: a last month whose wanted days come before the anchor's day is
not generated.
"""
import calendar
import sys
from datetime import date

from dateutil import rrule as rr

WEEKDAYS = [rr.SU, rr.MO, rr.TU, rr.WE, rr.TH, rr.FR, rr.SA]


def ymd(text):
    return date(int(text[0:4]), int(text[4:6]), int(text[6:8]))


def ints(text):
    return [] if text == "-" else [int(x) for x in text.split(",")]


def sunday_based(d):
    return (d.weekday() + 1) % 7


def months_between(a, b):
    return (b.year - a.year) * 12 + (b.month - a.month)


def expand(kind, interval, start, end, days):
    common = dict(dtstart=start, until=end, interval=interval)
    if kind == 1:
        return rr.rrule(rr.DAILY, **common)
    if kind == 2:
        byday = [WEEKDAYS[d] for d in sorted(set(days)) if d < 7]
        return rr.rrule(rr.WEEKLY, byweekday=byday, wkst=start.weekday(), **common) if byday else []
    if kind == 3:
        bymd = sorted({d + 1 for d in days if d < 31})
        return rr.rrule(rr.MONTHLY, bymonthday=bymd, **common) if bymd else []
    if kind == 4:
        byday = set()
        for code in days:
            if code < 28:
                byday.add(WEEKDAYS[code % 7](code // 7 + 1))
            elif code < 35:
                byday.add(WEEKDAYS[code - 28](-1))
        return rr.rrule(rr.MONTHLY, byweekday=sorted(byday, key=repr), **common) if byday else []
    return rr.rrule(rr.YEARLY, **common)


def period(kind, interval, start, d):
    if kind == 1:
        return (d - start).days // interval
    if kind == 2:
        return (d - start).days // (7 * interval)
    if kind in (3, 4):
        return months_between(start, d) // interval
    return (d.year - start.year) // interval


def anchor_ok(start, interval, end, p):
    """Whether the anchor of monthly period p (> 0) is not after end."""
    y, m, d = start.year, start.month, start.day
    for _ in range(p):
        m += interval
        y, m = y + (m - 1) // 12, (m - 1) % 12 + 1
        d = min(d, calendar.monthrange(y, m)[1])
    return date(y, m, d) <= end


def main():
    for line in sys.stdin:
        f = line.split()
        if not f:
            continue
        kind, interval = int(f[0]), int(f[1])
        start, end, max_count = ymd(f[2]), ymd(f[3]), int(f[4]) or 2**32 - 1
        days, excl_wd = ints(f[5]), set(ints(f[6]))
        excl = {ymd(x) for x in f[7].split(",")} if f[7] != "-" else set()
        count, last_period, out = 0, None, []
        for dt in expand(kind, interval, start, end, days):
            d = dt.date()
            p = period(kind, interval, start, d)
            if p != last_period:
                if count >= max_count:
                    break
                if kind in (3, 4) and p > 0 and not anchor_ok(start, interval, end, p):
                    break
                last_period = p
            if sunday_based(d) in excl_wd or d in excl:
                continue
            out.append(d.strftime("%Y%m%d"))
            count += 1
        print(" ".join(out))
        sys.stdout.flush()


if __name__ == "__main__":
    main()
