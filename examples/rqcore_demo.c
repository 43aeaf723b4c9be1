/*
 * rqcore demo: the library's typical request.  A server receives an e-mail
 * invitation with a calendar attachment, reads its structure, decodes the
 * calendar and converts it to UTF-8, checks the sender's address, turns the
 * event's local start time into UTC with the shipped zone file, expands its
 * recurrence and prints every occurrence in local time and in UTC, and writes
 * a reply that carries the calendar back as a base64 attachment.
 *
 * Usage: rqcore_demo [message-file]   (default: the shipped sample)
 */
#include "rqcore/rqcore.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#ifndef RQ_DATA_DIR
#define RQ_DATA_DIR "data"
#endif

/* Installed, the data sits at this path from the program's own directory
 * (bin/../share/rqcore); in the build tree it is RQ_DATA_DIR. */
#ifndef RQ_INSTALLED_DATA_DIR
#define RQ_INSTALLED_DATA_DIR "../share/rqcore"
#endif

#define REPLY_BOUNDARY_SIZE 25

/* Occurrences shown of a rule that has neither COUNT nor UNTIL. */
#define SHOWN_WITHOUT_END 10
/* The shipped zone file covers the years up to this one. */
#define LAST_ZONE_YEAR 2037

static char dataDir[4096] = RQ_DATA_DIR;
static char charmapDir[4096 + 16];

/* Prefers the data installed beside the program, so that an installed demo
 * does not depend on the tree it was built in. */
static void findDataDir(void)
{
    char exe[4096];
    char installed[4096 + 64];
    ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
    char *slash;
    if (n > 0) {
        exe[n] = '\0';
        slash = strrchr(exe, '/');
        if (slash != NULL) {
            *slash = '\0';
            int length = snprintf(installed, sizeof installed, "%s/%s/charmaps/charmap.config", exe, RQ_INSTALLED_DATA_DIR);
            if (length > 0 && (size_t)length < sizeof installed && access(installed, R_OK) == 0
                && snprintf(dataDir, sizeof dataDir, "%s/%s", exe, RQ_INSTALLED_DATA_DIR) >= (int)sizeof dataDir)
                strcpy(dataDir, RQ_DATA_DIR);
        }
    }
    snprintf(charmapDir, sizeof charmapDir, "%s/charmaps", dataDir);
}

static char *readWholeFile(const char *path, U32 *size)
{
    FILE *f = fopen(path, "rb");
    char *data = NULL;
    long length;
    if (f == NULL)
        return NULL;
    if (fseek(f, 0, SEEK_END) == 0 && (length = ftell(f)) >= 0 && fseek(f, 0, SEEK_SET) == 0) {
        data = malloc((size_t)length + 1);
        if (data != NULL && fread(data, 1, (size_t)length, f) == (size_t)length) {
            data[length] = '\0';
            *size = (U32)length;
        } else {
            free(data);
            data = NULL;
        }
    }
    fclose(f);
    return data;
}

static const char *tokenText(MIME_CONTEXT *ctx, U32 id)
{
    const char *text = "?";
    MIME_getTokenString(ctx, id, &text);
    return text;
}

static MIME_FIELD *findField(MIME_PART *part, U32 nameId)
{
    MIME_FIELD *field;
    for (field = part->fields; field != NULL; field = field->next)
        if (field->nameId == nameId)
            return field;
    return NULL;
}

/* The parts' content types, each once, in a DX_List keyed by the type text. */
static void listContentTypes(MIME_CONTEXT *ctx, MIME_WRAPPER *wrapper)
{
    HLIST list = 0;
    MIME_PART *part;
    char type[64];
    U32 count = 0;
    if (DX_ListCreate(&list, sizeof type, sizeof(U32), DX_LIST_STRING_ID | DX_LIST_IGNORE_DUP, NULL, NULL) != 0) {
        printf("content types: list not available\n");
        return;
    }
    for (part = wrapper->parts; part != NULL; part = part->next) {
        snprintf(type, sizeof type, "%s/%s", tokenText(ctx, part->type), tokenText(ctx, part->subtype));
        DX_ListAddLast(list, type, &count);
        ++count;
    }
    printf("content types:");
    if (DX_ListGetFirst(list, type, &count) == 0) {
        do
            printf(" %s", type);
        while (DX_ListGetNext(list, type, &count) == 0);
    }
    printf("\n");
    DX_ListDestroy(&list);
}

/* The calendar text in UTF-8 through the converter its charset names; the
 * result is the caller's (UNICODE_BufferFree), or NULL. */
static char *calendarToUtf8(const char *calendar, const char *charset)
{
    UNICODE_CONVERTER *in = NULL;
    UNICODE_CONVERTER *out = NULL;
    char *utf8 = NULL;
    const char *end = NULL;
    U32 status = UNICODE_AutoConverterCreate(0, &in, charmapDir, charset);
    if (status == 0)
        status = UNICODE_AutoConverterCreate(0, &out, charmapDir, "UTF-8");
    if (status == 0)
        status = UNICODE_FullyAutoConvert(0, 0, in, calendar, out, &utf8, &end);
    if (status != 0)
        printf("conversion from %s to UTF-8 skipped (status 0x%X)\n", charset, (unsigned)status);
    if (in != NULL)
        UNICODE_AutoConverterDestroy(0, &in);
    if (out != NULL)
        UNICODE_AutoConverterDestroy(0, &out);
    return status == 0 ? utf8 : NULL;
}

/* ---- The event: its start in UTC and its occurrences ---------------------- */

/* Copies text into a buffer of size bytes, cut to fit and terminated. */
static void copyText(char *buffer, size_t size, const char *text)
{
    size_t length = strlen(text);
    if (length >= size)
        length = size - 1;
    memcpy(buffer, text, length);
    buffer[length] = '\0';
}

/* The first content line of the calendar named name ("DTSTART"): its
 * parameters (between the name and the ':', "TZID=Europe/Paris") and its
 * value.  A line break followed by a blank continues the line (folding).
 * Returns 1 when the line is there. */
static int calendarLine(const char *text, const char *name, char *params, size_t paramsSize, char *value,
                        size_t valueSize)
{
    size_t nameLength = strlen(name);
    const char *line = text;
    while (line != NULL && *line != '\0') {
        if (strncmp(line, name, nameLength) == 0 && (line[nameLength] == ';' || line[nameLength] == ':')) {
            char logical[1024];
            size_t n = 0;
            const char *p;
            char *colon;
            for (p = line + nameLength; *p != '\0' && n + 1 < sizeof logical; ++p) {
                if (*p == '\r' || *p == '\n') {
                    const char *next = p + (p[0] == '\r' && p[1] == '\n' ? 2 : 1);
                    if (*next != ' ' && *next != '\t')
                        break;
                    p = next; /* the loop's ++p drops the blank */
                    continue;
                }
                logical[n++] = *p;
            }
            logical[n] = '\0';
            colon = strchr(logical, ':');
            if (colon == NULL)
                return 0;
            *colon = '\0';
            copyText(params, paramsSize, logical[0] == ';' ? logical + 1 : logical);
            copyText(value, valueSize, colon + 1);
            return 1;
        }
        line = strchr(line, '\n');
        if (line != NULL)
            ++line;
    }
    return 0;
}

/* "20261124T090000" (or a date alone, "20261124") into a time; *utc tells a
 * trailing "Z".  Returns 0 on success. */
static int parseDateTime(const char *text, DX_TIME *time, int *utc)
{
    unsigned year, month, day, hour = 0, minute = 0, second = 0;
    int used = 0;
    DX_DATE date;
    memset(&date, 0, sizeof date);
    if (sscanf(text, "%4u%2u%2u%n", &year, &month, &day, &used) != 3 || used != 8)
        return -1;
    *utc = 0;
    if (text[8] == 'T') {
        if (sscanf(text + 9, "%2u%2u%2u%n", &hour, &minute, &second, &used) != 3 || used != 6)
            return -1;
        *utc = text[15] == 'Z';
    }
    if (month < 1 || month > 12 || DX_DateSet(&date, (U16)day, (U16)(month - 1), (U16)year) != 0)
        return -1;
    return DX_TimeSet(time, &date, (U16)hour, (U16)minute, (U16)second) == 0 ? 0 : -1;
}

/* Whether the line (up to its line break) holds tzName as a whole word. */
static int listsName(const char *line, const char *tzName)
{
    size_t length = strlen(tzName);
    const char *end = strchr(line, '\n');
    const char *p = line;
    if (end == NULL)
        end = line + strlen(line);
    while ((p = strstr(p, tzName)) != NULL && p + length <= end) {
        if ((p == line || p[-1] == ' ') && (p[length] == ' ' || p[length] == '\r' || p[length] == '\n'
                                            || p[length] == '\0'))
            return 1;
        p += length;
    }
    return 0;
}

/* The zone (the zone file's section name, "CET-1CEST") of a tz name such as
 * "Europe/Paris".  Each section's "name" holds the tz name a user looks for
 * first; the others that share its rules are listed in the comment above
 * the section ("# also: Europe/Berlin ..."), which the rule set does not
 * keep, so they are looked up in the file's text.  Returns 1 when found. */
static int findZone(HLIST rules, const char *zoneFile, const char *tzName, char *zone, U32 zoneSize)
{
    char name[DX_TZ_NAME_SIZE];
    U32 mode = DX_TZ_ENUM_FIRST, atEnd = 0, size = 0;
    char *text, *line;
    int listed = 0, found = 0;

    while (DX_TZEnum(rules, mode, zone, zoneSize, name, sizeof name, NULL, 0, &atEnd) == 0 && !atEnd) {
        if (strcmp(name, tzName) == 0)
            return 1;
        mode = DX_TZ_ENUM_NEXT;
    }
    text = readWholeFile(zoneFile, &size);
    for (line = text; line != NULL && *line != '\0' && !found; line = strchr(line, '\n'), line += line != NULL) {
        if (*line == '#') {
            listed = listed || listsName(line, tzName);
        } else if (*line == '[' && listed) {
            const char *close = strchr(line, ']');
            found = close != NULL && (U32)(close - line - 1) < zoneSize;
            if (found)
                snprintf(zone, zoneSize, "%.*s", (int)(close - line - 1), line + 1);
        } else {
            listed = 0;
        }
    }
    free(text);
    return found;
}

/* A day of week from its two-letter RRULE name (SU = 0 .. SA = 6), or -1. */
static int weekdayCode(const char *text)
{
    static const char names[] = "SUMOTUWETHFRSA";
    int day;
    for (day = 0; day < 7; ++day)
        if (text[0] == names[2 * day] && text[1] == names[2 * day + 1])
            return day;
    return -1;
}

/* A recurrence rule as the recurrence kinds can take it. */
typedef struct EVENT_RULE {
    DX_RECUR recur;     /* kind, interval, first and last date, days */
    DX_DATE first;      /* DTSTART's date: the recurrence's anchor can be earlier */
    U32 count;          /* COUNT, or 0 */
    int hasUntil;
    DX_TIME until;      /* UNTIL, in UTC when untilUtc */
    int untilUtc;
    const char *problem; /* why the rule cannot be expressed, or NULL */
} EVENT_RULE;

/* Adds the 2-byte code to the days list, creating it on first use. */
static int addDay(HLIST *days, U16 code)
{
    if (*days == 0 && DX_DateListOfWeekDaysCreate(days, 0) != 0)
        return -1;
    return DX_ListAddLast(*days, &code, NULL) == 0 ? 0 : -1;
}

/* Reads "FREQ=WEEKLY;COUNT=4;BYDAY=TU" into rule, whose first date is set.
 * Returns 0, or -1 with rule->problem saying what cannot be expressed. */
static int parseRule(const char *text, EVENT_RULE *rule)
{
    char copy[512];
    char byDay[128] = "", byMonthDay[128] = "";
    char *part, *save = NULL;
    const char *freq = "";
    U16 startDow = 0;
    int weekStart = 1; /* WKST, Monday unless told */

    copyText(copy, sizeof copy, text);
    rule->recur.interval = 1;
    for (part = strtok_r(copy, ";", &save); part != NULL; part = strtok_r(NULL, ";", &save)) {
        char *value = strchr(part, '=');
        if (value == NULL)
            continue;
        *value++ = '\0';
        if (strcmp(part, "FREQ") == 0)
            freq = value;
        else if (strcmp(part, "INTERVAL") == 0)
            rule->recur.interval = (U16)(atoi(value) > 0 && atoi(value) < 1000 ? atoi(value) : 1);
        else if (strcmp(part, "COUNT") == 0)
            rule->count = (U32)(atoi(value) > 0 ? atoi(value) : 1);
        else if (strcmp(part, "UNTIL") == 0) {
            rule->hasUntil = parseDateTime(value, &rule->until, &rule->untilUtc) == 0;
            if (rule->hasUntil && strlen(value) == 8) /* a date alone: the whole day */
                DX_TimeSet(&rule->until, &rule->until.date, 23, 59, 59);
        }
        else if (strcmp(part, "BYDAY") == 0)
            copyText(byDay, sizeof byDay, value);
        else if (strcmp(part, "BYMONTHDAY") == 0)
            copyText(byMonthDay, sizeof byMonthDay, value);
        else if (strcmp(part, "WKST") == 0 && weekdayCode(value) >= 0)
            weekStart = weekdayCode(value);
        else {
            rule->problem = "a BY part other than BYDAY and BYMONTHDAY";
            return -1;
        }
    }
    DX_DateGetDayOfWeek(&rule->recur.start, &startDow);

    if (strcmp(freq, "DAILY") == 0 || strcmp(freq, "WEEKLY") == 0) {
        /* Daily: the days not in BYDAY are excluded weekdays.  Weekly: the
         * period is the seven days from the anchor, so the anchor goes back
         * to the start of the rule's week, and dates before DTSTART are
         * dropped when printing; without BYDAY, the start's day. */
        int daily = freq[0] == 'D';
        U16 chosen[7] = {0};
        char *day, *daySave = NULL;
        int code;
        if (byMonthDay[0] != '\0') {
            rule->problem = "BYMONTHDAY in a daily or weekly rule";
            return -1;
        }
        if (byDay[0] == '\0')
            chosen[startDow] = 1;
        for (day = strtok_r(byDay, ",", &daySave); day != NULL; day = strtok_r(NULL, ",", &daySave)) {
            if ((code = weekdayCode(day)) < 0 || day[2] != '\0') {
                rule->problem = "a BYDAY with an ordinal in a daily or weekly rule";
                return -1;
            }
            chosen[code] = 1;
        }
        rule->recur.kind = daily ? 1 : 2;
        for (code = 0; code < 7; ++code)
            if ((daily ? !chosen[code] && byDay[0] != '\0' : chosen[code])
                && addDay(daily ? &rule->recur.excludedWeekdays : &rule->recur.days, (U16)code) != 0)
                return -1;
        if (!daily)
            DX_DateOffset(&rule->recur.start, (S16)(-((startDow - weekStart + 7) % 7)));
    } else if (strcmp(freq, "MONTHLY") == 0 && byDay[0] != '\0') {
        /* Kind 4: code (week * 7 + weekday), week 0..3 for the 1st to 4th
         * such weekday, 4 for the last; a weekday alone takes every week. */
        char *day, *daySave = NULL;
        if (byMonthDay[0] != '\0') {
            rule->problem = "BYDAY together with BYMONTHDAY";
            return -1;
        }
        rule->recur.kind = 4;
        for (day = strtok_r(byDay, ",", &daySave); day != NULL; day = strtok_r(NULL, ",", &daySave)) {
            int ordinal = (int)strtol(day, &day, 10);
            int code = weekdayCode(day), week;
            if (code < 0 || day[2] != '\0' || ordinal < -1 || ordinal > 4) {
                rule->problem = "a BYDAY ordinal other than 1 to 4 and -1";
                return -1;
            }
            for (week = 0; week < 5; ++week)
                if ((ordinal == 0 || ordinal == week + 1 || (ordinal == -1 && week == 4))
                    && addDay(&rule->recur.days, (U16)(week * 7 + code)) != 0)
                    return -1;
        }
    } else if (strcmp(freq, "MONTHLY") == 0) {
        /* Kind 3 counts its month from the anchor's day: anchored on the 1st
         * its periods are calendar months, and a day a month lacks (the
         * 31st) is skipped, as the rule wants.  Codes: the day minus one. */
        char *day, *daySave = NULL;
        rule->recur.kind = 3;
        if (byMonthDay[0] == '\0' && addDay(&rule->recur.days, (U16)(rule->recur.start.day - 1)) != 0)
            return -1;
        for (day = strtok_r(byMonthDay, ",", &daySave); day != NULL; day = strtok_r(NULL, ",", &daySave)) {
            int number = atoi(day);
            if (number < 1 || number > 31) {
                rule->problem = "a BYMONTHDAY counted from the month's end";
                return -1;
            }
            if (addDay(&rule->recur.days, (U16)(number - 1)) != 0)
                return -1;
        }
        DX_DateSetToFirstDayOfMonth(&rule->recur.start);
    } else if (strcmp(freq, "YEARLY") == 0 && byDay[0] == '\0' && byMonthDay[0] == '\0') {
        rule->recur.kind = 5; /* a 29 February start recurs in leap years only, as the rule wants */
    } else {
        rule->problem = "this frequency or its BY parts";
        return -1;
    }
    return 0;
}

/* The abbreviation in force at a UTC time ("CET", "CEST"), from the zone's
 * rules.  The printers' "%tz" reads it from the zone name instead, and that
 * gives no text for daylight time where the name's offset has a sign
 * ("CET-1CEST"), so the demo asks the rules. */
static void zoneAbbreviation(HLIST rules, const char *zone, DX_TIME *utc, char *abbreviation, U32 size)
{
    U32 utcMinutes = 0, localMinutes = 0, type = 0;
    abbreviation[0] = '\0';
    if (DX_TimeGetTimeIdInMinutes(utc, &utcMinutes) == 0)
        DX_TZFromUTCToLocalTime(rules, zone, &localMinutes, &type, utcMinutes, abbreviation, size);
}

/* The UTC time of a wall-clock time in the zone, and its local-time record.
 * A time that occurs twice is taken at its first occurrence, still in
 * daylight time; a time the clocks skip is taken with the offset in force
 * before the change, as calendar clients do (RFC 5545): 2:30 on the night
 * the clocks go from 2:00 to 3:00 is 3:30 daylight time.  The shipped zone
 * file holds changes of one hour only.  *skipped tells the second case. */
static U32 wallToUtc(HLIST rules, const char *zone, const DX_TIME *wall, DX_LOCALTIME *local, DX_TIME *utc,
                     int *skipped)
{
    DX_TIME probe = *wall;
    U32 minutes = 0, type = 0;
    U32 status = DX_TimeGetTimeIdInMinutes(&probe, &minutes);
    *skipped = 0;
    if (status == 0)
        status = DX_TZGetLocalType(rules, zone, &type, minutes);
    if (status == DX_TZ_ERR_SKIPPED) {
        *skipped = 1;
        status = DX_TimeOffset(&probe, -3600);
        if (status == 0)
            status = DX_TimeGetTimeIdInMinutes(&probe, &minutes);
        if (status == 0)
            status = DX_TZGetLocalType(rules, zone, &type, minutes);
    }
    if (status == 0)
        status = DX_LocalTimeSet(local, &probe, zone, type == LTIME_TYPE_EITHER ? LTIME_TYPE_DAYLIGHT : type, rules);
    if (status == 0)
        status = DX_LocalTimeGetUTC(local, utc, rules);
    if (status == 0 && *skipped) {
        status = DX_TimeOffset(utc, 3600);
        if (status == 0)
            status = DX_LocalTimeSetFromUTC(local, utc, zone, rules);
    }
    return status;
}

/* Prints the event's start in UTC and each occurrence in local time and in
 * UTC, through the zone file's rules and the sample catalogs. */
static void showEvent(const char *calendar)
{
    char params[256], value[256], tzName[DX_TZ_NAME_SIZE], zone[DX_TZ_ZONE_SIZE], path[4096 + 64];
    char local[128], utcText[128], french[128], abbreviation[DX_TZ_ZONE_SIZE];
    HLIST rules = 0, english = 0, frenchCatalog = 0, dates = 0;
    DX_LOCALTIME start;
    DX_TIME startTime, utc, endTime;
    EVENT_RULE rule;
    U32 status, startId = 0, endId = 0, shown = 0, limit;
    U16 hour, minute, second, sequence;
    int utcStart = 0, utcEnd = 0, skipped = 0;
    DX_DATE date;

    memset(&rule, 0, sizeof rule);
    if (!calendarLine(calendar, "DTSTART", params, sizeof params, value, sizeof value)
        || parseDateTime(value, &startTime, &utcStart) != 0) {
        printf("event: no DTSTART with a date and time\n");
        return;
    }
    if (strncmp(params, "TZID=", 5) != 0 || utcStart) {
        printf("event: DTSTART %s is not in a named zone; nothing to convert\n", value);
        return;
    }
    copyText(tzName, sizeof tzName, params + 5);

    /* The zone's rules: the whole file, then the section of the tz name. */
    snprintf(path, sizeof path, "%s/tz/zones.profile", dataDir);
    status = DX_TZRulesCreate(&rules, path, NULL);
    if (status != 0) {
        printf("zone file %s: status 0x%X\n", path, (unsigned)status);
        return;
    }
    if (!findZone(rules, path, tzName, zone, sizeof zone)) {
        printf("event: zone %s is not in the zone file\n", tzName);
        goto done;
    }

    /* The start in UTC. */
    status = wallToUtc(rules, zone, &startTime, &start, &utc, &skipped);
    if (status != 0) {
        printf("event: DTSTART %s in %s: status 0x%X\n", value, zone, (unsigned)status);
        goto done;
    }
    snprintf(path, sizeof path, "%s/nls/en_US.profile", dataDir);
    status = DX_NLSListCreate(&english, 0, path);
    snprintf(path, sizeof path, "%s/nls/fr_FR.profile", dataDir);
    if (status == 0)
        status = DX_NLSListCreate(&frenchCatalog, 0, path);
    if (status != 0) {
        printf("catalogs: status 0x%X\n", (unsigned)status);
        goto done;
    }
    DX_LocalTimeFormat(local, sizeof local, "%dn %da %ti", &start, english, NULL);
    DX_TimeFormat(utcText, sizeof utcText, "%dn %da %h2:%mi UTC", &utc, english);
    zoneAbbreviation(rules, zone, &utc, abbreviation, sizeof abbreviation);
    printf("event starts %s %s (%s, zone %s) = %s\n", local, abbreviation, tzName, zone, utcText);
    if (calendarLine(calendar, "DTEND", params, sizeof params, value, sizeof value)
        && parseDateTime(value, &endTime, &utcEnd) == 0 && !utcEnd && DX_TimeGetTimeId(&startTime, &startId) == 0
        && DX_TimeGetTimeId(&endTime, &endId) == 0 && endId >= startId)
        printf("lasting %u min (wall clock)\n", (unsigned)((endId - startId) / 60));

    /* The recurrence. */
    if (!calendarLine(calendar, "RRULE", params, sizeof params, value, sizeof value)) {
        printf("no recurrence: one occurrence\n");
        goto done;
    }
    printf("recurrence %s\n", value);
    DX_TimeGet(&startTime, &date, &hour, &minute, &second);
    rule.first = date;
    rule.recur.start = date;
    if (parseRule(value, &rule) != 0) {
        printf("  cannot be expressed by the recurrence kinds: %s\n", rule.problem != NULL ? rule.problem
                                                                                          : "out of memory");
        goto done;
    }
    /* The last date: UNTIL's, a day later when UNTIL is in UTC (the UTC
     * instant is compared below), else the zone file's last year. */
    if (rule.hasUntil) {
        rule.recur.end = rule.until.date;
        if (rule.untilUtc)
            DX_DateTomorrow(&rule.recur.end);
    } else {
        DX_DateSet(&rule.recur.end, 31, 11, LAST_ZONE_YEAR);
    }
    limit = rule.count != 0 ? rule.count : rule.hasUntil ? 0 : SHOWN_WITHOUT_END;
    /* The count is compared only after a whole period, and the anchor may
     * lie before DTSTART (dates dropped below, a month's at most): ask for
     * a month more, and cut the list to the count below. */
    status = DX_DateGenRecur(1, &rule.recur, &dates, limit != 0 ? limit + 31 : 0);
    if (status != 0) {
        printf("  expansion failed: status 0x%X\n", (unsigned)status);
        goto done;
    }
    for (status = DX_ListGetFirst(dates, &sequence, &date); status == 0 && (limit == 0 || shown < limit);
         status = DX_ListGetNext(dates, &sequence, &date)) {
        DX_TIME wall;
        DX_LOCALTIME occurrence;
        S16 before = 0;
        U32 code, untilId = 0, utcId = 0;
        if (DX_DateCompare(&date, &rule.first, &before) == 0 && before < 0)
            continue; /* before DTSTART, in the anchor's first period */
        ++shown;
        code = DX_TimeSet(&wall, &date, hour, minute, second);
        if (code == 0)
            code = wallToUtc(rules, zone, &wall, &occurrence, &utc, &skipped);
        if (code != 0) {
            printf("%4u  status 0x%X\n", (unsigned)shown, (unsigned)code);
            break;
        }
        /* UNTIL is inclusive; in UTC it is compared with the instant. */
        if (rule.hasUntil && DX_TimeGetTimeId(rule.untilUtc ? &utc : &wall, &utcId) == 0
            && DX_TimeGetTimeId(&rule.until, &untilId) == 0 && utcId > untilId)
            break;
        DX_LocalTimeFormat(local, sizeof local, "%dn %da %ti", &occurrence, english, NULL);
        DX_TimeFormat(utcText, sizeof utcText, "%dn %da %h2:%mi UTC", &utc, english);
        DX_LocalTimeFormat(french, sizeof french, "%dn %da %ti", &occurrence, frenchCatalog, NULL);
        zoneAbbreviation(rules, zone, &utc, abbreviation, sizeof abbreviation);
        printf("%4u  %-26s %-4s = %-27s | %s %s%s\n", (unsigned)shown, local, abbreviation, utcText, french,
               abbreviation, skipped ? "  (skipped by the change of clocks)" : "");
    }

done:
    if (dates != 0)
        DX_ListDestroy(&dates);
    if (rule.recur.days != 0)
        DX_ListDestroy(&rule.recur.days);
    if (rule.recur.excludedWeekdays != 0)
        DX_ListDestroy(&rule.recur.excludedWeekdays);
    if (english != 0)
        DX_NLSListDestroy(&english);
    if (frenchCatalog != 0)
        DX_NLSListDestroy(&frenchCatalog);
    DX_TZRulesDestroy(&rules);
}

/* The reply: a note made with the attachment writer, then the calendar as
 * the last part, written field by field so that it ends with the closing
 * boundary (the attachment writer always opens a further part). */
static U32 writeReply(MIME_CONTEXT *ctx, STREAM *out, const char *to, const char *calendar, U32 calendarLength,
                      const char *charset)
{
    static const char note[] = "Thank you, I will attend.\r\n";
    char boundary[REPLY_BOUNDARY_SIZE];
    char contentType[64];
    const U32 boundaryName = MIME_PARAM_BOUNDARY;
    const char *boundaryValue = boundary;
    U32 status;

    memcpy(boundary, "=_reply_", 8);
    MIME_createRandomString(ctx, boundary + 8, sizeof boundary - 8);
    snprintf(contentType, sizeof contentType, "%s/%s", tokenText(ctx, MIME_TYPE_MULTIPART),
             tokenText(ctx, MIME_SUBTYPE_MIXED));

    status = MIME_outputSimpleFieldToStream(ctx, out, MIME_FIELD_FROM, "joerg.mueller@example.ch", NULL, NULL, 0);
    if (status == 0)
        status = MIME_outputSimpleFieldToStream(ctx, out, MIME_FIELD_TO, to, NULL, NULL, 0);
    if (status == 0)
        status = MIME_outputSimpleFieldToStream(ctx, out, MIME_FIELD_SUBJECT, "Accepted: team meeting", NULL, NULL, 0);
    if (status == 0)
        status = MIME_outputSimpleFieldToStream(ctx, out, MIME_FIELD_MIME_VERSION, "1.0", NULL, NULL, 0);
    if (status == 0)
        status = MIME_outputSimpleFieldToStream(ctx, out, MIME_FIELD_CONTENT_TYPE, contentType, &boundaryName,
                                                &boundaryValue, 1);
    if (status == 0)
        status = MIME_outputBodyToStream(ctx, out, "", 0, MIME_ENCODING_7BIT);
    if (status == 0)
        status = MIME_outputBoundaryToStream(ctx, out, boundary);
    if (status == 0)
        status = MIME_outputAttachmentToStream(ctx, out, note, (U32)(sizeof note - 1), MIME_TYPE_TEXT,
                                               MIME_SUBTYPE_PLAIN, MIME_ENCODING_7BIT, NULL, "US-ASCII", NULL,
                                               boundary);
    if (status == 0) {
        const U32 names[] = {MIME_PARAM_CHARSET, MIME_PARAM_METHOD, MIME_PARAM_NAME};
        const char *values[] = {charset, "REPLY", "invite.ics"};
        const U32 filename = MIME_PARAM_FILENAME;
        const char *file = "invite.ics";
        status = MIME_outputSimpleFieldToStream(ctx, out, MIME_FIELD_CONTENT_TYPE, "text/calendar", names, values, 3);
        if (status == 0)
            status = MIME_outputSimpleFieldToStream(ctx, out, MIME_FIELD_CONTENT_TRANSFER_ENCODING, "base64", NULL,
                                                    NULL, 0);
        if (status == 0)
            status = MIME_outputSimpleFieldToStream(ctx, out, MIME_FIELD_CONTENT_DISPOSITION, "attachment",
                                                    &filename, &file, 1);
        if (status == 0)
            status = MIME_outputBodyToStream(ctx, out, calendar, calendarLength, MIME_ENCODING_BASE64);
    }
    if (status == 0)
        status = MIME_outputTerminatingBoundaryToStream(ctx, out, boundary);
    return status;
}

int main(int argc, char **argv)
{
    char sample[4096 + 32];
    const char *path = argc > 1 ? argv[1] : sample;
    MIME_CONTEXT *ctx = NULL;
    MIME_WRAPPER *wrapper = NULL;
    STREAM *in = NULL;
    STREAM *out = NULL;
    MIME_PART *calendars[2];
    MIME_PART *part;
    MIME_FIELD *from;
    char *message;
    char *calendar = NULL;
    char *utf8 = NULL;
    char *reply = NULL;
    const char *charset = "US-ASCII";
    U32 size = 0, calendarLength = 0, found = 0, offset = 0, status, index = 0;
    int rc = 1;

    findDataDir();
    snprintf(sample, sizeof sample, "%s/samples/invite.eml", dataDir);
    printf("library:%s", GetRqCoreVerID());
    message = readWholeFile(path, &size);
    if (message == NULL) {
        fprintf(stderr, "cannot read %s\n", path);
        return 1;
    }
    if (MIME_createContext(&ctx) != 0 || STREAM_attachToBuffer(&in, message, size, STREAM_READ) != 0)
        goto done;

    /* 1. Parse and show the structure. */
    status = MIME_parseMessageFromStream(ctx, in, &wrapper);
    printf("parsed %s: status 0x%X, %u parts\n", path, (unsigned)status, (unsigned)wrapper->partCount);
    if (status != 0)
        goto done;
    for (part = wrapper->parts; part != NULL; part = part->next, ++index)
        printf("  part %u: %s/%s, %s, charset id %u, %u body bytes at %u%s%s\n", (unsigned)index,
               tokenText(ctx, part->type), tokenText(ctx, part->subtype), tokenText(ctx, part->encoding),
               (unsigned)part->charset, (unsigned)part->bodyLength, (unsigned)part->bodyStart,
               part->contentId[0] != '\0' ? ", cid " : "", part->contentId);
    listContentTypes(ctx, wrapper);

    /* 2. The sender, and the subject with its encoded words decoded. */
    UNICODE_Initialize(0);
    from = findField(wrapper->parts, MIME_FIELD_FROM);
    if (from != NULL) {
        status = CheckEMailAddress(from->value, &offset);
        printf("sender %s: %s\n", from->value, status == 0 ? "valid address" : "invalid address");
    }
    {
        MIME_FIELD *subject = findField(wrapper->parts, MIME_FIELD_SUBJECT);
        char *decoded = NULL;
        if (subject != NULL && ENCODE_FromRFC1522(charmapDir, subject->value, &decoded) == 0) {
            printf("subject %s\n", decoded);
            RQCORE_free(decoded);
        } else if (subject != NULL) {
            printf("subject (as sent) %s\n", subject->value);
        }
    }

    /* 3. The calendar: decoded, then converted from its charset to UTF-8. */
    if (MIME_getPartFromWrapperByType(ctx, wrapper, MIME_TYPE_TEXT, MIME_SUBTYPE_CALENDAR, calendars, 2, &found) != 0) {
        printf("no calendar part\n");
        goto done;
    }
    if (MIME_getPartBodyBuffer(ctx, calendars[0], &calendar, &calendarLength) != 0)
        goto done;
    {
        MIME_FIELD *type = findField(calendars[0], MIME_FIELD_CONTENT_TYPE);
        if (type != NULL)
            MIME_getFieldParameterValue(ctx, type, MIME_PARAM_CHARSET, &charset);
    }
    printf("calendar: %u bytes in %s\n", (unsigned)calendarLength, charset);
    utf8 = calendarToUtf8(calendar, charset);
    if (utf8 != NULL)
        printf("---- calendar in UTF-8 ----\n%s---- end of calendar ----\n", utf8);

    /* 4. The event: the local start in UTC, and the recurrence expanded. */
    if (utf8 != NULL)
        showEvent(utf8);

    /* 5. The reply, through a growing buffer. */
    if (STREAM_attachToGrowingBuffer(&out, &reply, 1024, STREAM_WRITE | STREAM_READ) != 0)
        goto done;
    status = writeReply(ctx, out, from != NULL ? from->value : "unknown@example.invalid",
                        utf8 != NULL ? utf8 : calendar, utf8 != NULL ? (U32)strlen(utf8) : calendarLength,
                        utf8 != NULL ? "UTF-8" : charset);
    if (status == 0) {
        U32 length = 0;
        STREAM_seek(out, 0, STREAM_SEEK_END, &length);
        printf("---- reply (%u bytes) ----\n", (unsigned)length);
        fwrite(reply, 1, length, stdout);
        printf("---- end of reply ----\n");
        rc = 0;
    } else {
        printf("reply failed: 0x%X\n", (unsigned)status);
    }

done:
    if (out != NULL)
        STREAM_destroy(&out);
    if (reply != NULL)
        RQCORE_free(reply);
    if (utf8 != NULL)
        UNICODE_BufferFree((void **)&utf8);
    if (calendar != NULL)
        RQCORE_free(calendar);
    if (wrapper != NULL)
        MIME_destroyWrapper(ctx, &wrapper);
    if (in != NULL)
        STREAM_destroy(&in);
    if (ctx != NULL)
        MIME_destroyContext(&ctx);
    free(message);
    return rc;
}
