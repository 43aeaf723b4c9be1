// The demo program's calendar steps, run as a user runs it: the two shipped
// invitations, then rules written here that exercise each recurrence kind
// the demo maps, UNTIL in UTC, the skipped and the doubled hour, a zone
// found through the zone file's "# also:" comment, and the rules and zones
// it must refuse.  The expected UTC times and abbreviations were computed by
// hand with Python's zoneinfo and dateutil.rrule (tz database 2025b), not
// with this library, and are written here as literals.
#include "rqtest.h"

#include <sys/wait.h>

#include <cstdio>
#include <string>

namespace {

#ifdef RQ_DEMO_PROGRAM

// Runs the demo on a message file; *exitCode is its exit status.
std::string runDemo(const std::string &message, int *exitCode)
{
    std::string command = std::string(RQ_DEMO_PROGRAM) + " '" + message + "' 2>&1";
    std::string output;
    FILE *pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        *exitCode = -1;
        return output;
    }
    char chunk[4096];
    size_t n;
    while ((n = fread(chunk, 1, sizeof chunk, pipe)) > 0)
        output.append(chunk, n);
    int status = pclose(pipe);
    *exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return output;
}

// The lines between the printed calendar and the reply, each with its runs
// of blanks squeezed to one (the columns' padding is not the point).
std::string calendarLines(const std::string &output)
{
    const std::string from = "---- end of calendar ----\n";
    size_t begin = output.find(from);
    size_t end = output.find("---- reply");
    if (begin == std::string::npos || end == std::string::npos || end < begin)
        return "(no calendar lines)";
    std::string lines;
    for (size_t i = begin + from.size(); i < end; ++i) {
        char c = output[i];
        if (c == ' ' && (lines.empty() || lines.back() == ' ' || lines.back() == '\n'))
            continue;
        if (c == '\n' && !lines.empty() && lines.back() == ' ')
            lines.pop_back();
        lines += c;
    }
    return lines;
}

// A message with a calendar part holding one event.
std::string message(const char *tzid, const char *start, const char *rule)
{
    return std::string("From: a@example.org\r\nTo: b@example.org\r\nSubject: t\r\nMIME-Version: 1.0\r\n"
                       "Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\n--b\r\n"
                       "Content-Type: text/calendar; charset=US-ASCII\r\n\r\n"
                       "BEGIN:VCALENDAR\r\nBEGIN:VEVENT\r\nDTSTART;TZID=")
        + tzid + ":" + start + "\r\nRRULE:" + rule + "\r\nEND:VEVENT\r\nEND:VCALENDAR\r\n--b--\r\n";
}

TEST(Demo, ShippedSamples)
{
    struct Case {
        const char *sample;
        const char *subject;  // the Subject line with its encoded words decoded
        const char *expected;
    };
    const Case cases[] = {
        {"invite.eml", "subject Réunion d'équipe\n",
         "event starts Tue Nov 24, 2026 9:00 AM CET (Europe/Paris, zone CET-1CEST) = Tue Nov 24, 2026 8:00 UTC\n"
         "lasting 90 min (wall clock)\n"
         "recurrence FREQ=WEEKLY;COUNT=4;BYDAY=TU\n"
         "1 Tue Nov 24, 2026 9:00 AM CET = Tue Nov 24, 2026 8:00 UTC | mar. 24 nov. 2026 9:00 CET\n"
         "2 Tue Dec 1, 2026 9:00 AM CET = Tue Dec 1, 2026 8:00 UTC | mar. 1 déc. 2026 9:00 CET\n"
         "3 Tue Dec 8, 2026 9:00 AM CET = Tue Dec 8, 2026 8:00 UTC | mar. 8 déc. 2026 9:00 CET\n"
         "4 Tue Dec 15, 2026 9:00 AM CET = Tue Dec 15, 2026 8:00 UTC | mar. 15 déc. 2026 9:00 CET\n"},
        // Summer time ends on 25 October 2026: the wall clock stays at 9:30,
        // UTC moves from 7:30 to 8:30.  Five of the six dates of three weeks.
        {"invite-dst.eml", nullptr,
         "event starts Tue Oct 20, 2026 9:30 AM CEST (Europe/Berlin, zone CET-1CEST) = Tue Oct 20, 2026 7:30 UTC\n"
         "lasting 45 min (wall clock)\n"
         "recurrence FREQ=WEEKLY;BYDAY=TU,TH;COUNT=5\n"
         "1 Tue Oct 20, 2026 9:30 AM CEST = Tue Oct 20, 2026 7:30 UTC | mar. 20 oct. 2026 9:30 CEST\n"
         "2 Thu Oct 22, 2026 9:30 AM CEST = Thu Oct 22, 2026 7:30 UTC | jeu. 22 oct. 2026 9:30 CEST\n"
         "3 Tue Oct 27, 2026 9:30 AM CET = Tue Oct 27, 2026 8:30 UTC | mar. 27 oct. 2026 9:30 CET\n"
         "4 Thu Oct 29, 2026 9:30 AM CET = Thu Oct 29, 2026 8:30 UTC | jeu. 29 oct. 2026 9:30 CET\n"
         "5 Tue Nov 3, 2026 9:30 AM CET = Tue Nov 3, 2026 8:30 UTC | mar. 3 nov. 2026 9:30 CET\n"},
        // ISO-2022-JP throughout: the encoded subject, the text and the
        // calendar; Tokyo keeps UTC+9 all year.
        {"invite-ja.eml", "subject 定例会議のご案内\n",
         "event starts Tue Dec 1, 2026 10:00 AM JST (Asia/Tokyo, zone JST-9) = Tue Dec 1, 2026 1:00 UTC\n"
         "lasting 60 min (wall clock)\n"
         "recurrence FREQ=WEEKLY;COUNT=3;BYDAY=TU\n"
         "1 Tue Dec 1, 2026 10:00 AM JST = Tue Dec 1, 2026 1:00 UTC | mar. 1 déc. 2026 10:00 JST\n"
         "2 Tue Dec 8, 2026 10:00 AM JST = Tue Dec 8, 2026 1:00 UTC | mar. 8 déc. 2026 10:00 JST\n"
         "3 Tue Dec 15, 2026 10:00 AM JST = Tue Dec 15, 2026 1:00 UTC | mar. 15 déc. 2026 10:00 JST\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.sample);
        int exitCode = 0;
        std::string output = runDemo(std::string(RQ_DATA_DIR) + "/samples/" + c.sample, &exitCode);
        EXPECT_EQ(exitCode, 0) << output;
        EXPECT_EQ(calendarLines(output), c.expected);
        if (c.subject != nullptr) {
            EXPECT_NE(output.find(c.subject), std::string::npos) << output;
        }
    }
}

TEST(Demo, RecurrenceRules)
{
    struct Case {
        const char *tzid, *start, *rule;
        const char *expected;  // the occurrence lines, or the refusal
    };
    const Case cases[] = {
        // Kind 4, code 28 + weekday: the last Friday; US summer time ends on 1 November.
        {"America/New_York", "20261030T170000", "FREQ=MONTHLY;BYDAY=-1FR;COUNT=3",
         "1 Fri Oct 30, 2026 5:00 PM EDT = Fri Oct 30, 2026 21:00 UTC | ven. 30 oct. 2026 17:00 EDT\n"
         "2 Fri Nov 27, 2026 5:00 PM EST = Fri Nov 27, 2026 22:00 UTC | ven. 27 nov. 2026 17:00 EST\n"
         "3 Fri Dec 25, 2026 5:00 PM EST = Fri Dec 25, 2026 22:00 UTC | ven. 25 déc. 2026 17:00 EST\n"},
        // Every other week from a Wednesday: the Monday belongs to the next
        // period, which a period counted from the Wednesday would get wrong.
        {"Europe/Paris", "20261125T100000", "FREQ=WEEKLY;INTERVAL=2;BYDAY=MO,WE;COUNT=4",
         "1 Wed Nov 25, 2026 10:00 AM CET = Wed Nov 25, 2026 9:00 UTC | mer. 25 nov. 2026 10:00 CET\n"
         "2 Mon Dec 7, 2026 10:00 AM CET = Mon Dec 7, 2026 9:00 UTC | lun. 7 déc. 2026 10:00 CET\n"
         "3 Wed Dec 9, 2026 10:00 AM CET = Wed Dec 9, 2026 9:00 UTC | mer. 9 déc. 2026 10:00 CET\n"
         "4 Mon Dec 21, 2026 10:00 AM CET = Mon Dec 21, 2026 9:00 UTC | lun. 21 déc. 2026 10:00 CET\n"},
        // Kind 3 from the 1st: months without a 31st are skipped, no drift.
        {"Europe/Paris", "20270131T120000", "FREQ=MONTHLY;BYMONTHDAY=31;COUNT=3",
         "1 Sun Jan 31, 2027 12:00 PM CET = Sun Jan 31, 2027 11:00 UTC | dim. 31 janv. 2027 12:00 CET\n"
         "2 Wed Mar 31, 2027 12:00 PM CEST = Wed Mar 31, 2027 10:00 UTC | mer. 31 mars 2027 12:00 CEST\n"
         "3 Mon May 31, 2027 12:00 PM CEST = Mon May 31, 2027 10:00 UTC | lun. 31 mai 2027 12:00 CEST\n"},
        // UNTIL in UTC is inclusive and compared with the instant.
        {"Europe/Paris", "20261023T090000", "FREQ=DAILY;UNTIL=20261026T080000Z",
         "1 Fri Oct 23, 2026 9:00 AM CEST = Fri Oct 23, 2026 7:00 UTC | ven. 23 oct. 2026 9:00 CEST\n"
         "2 Sat Oct 24, 2026 9:00 AM CEST = Sat Oct 24, 2026 7:00 UTC | sam. 24 oct. 2026 9:00 CEST\n"
         "3 Sun Oct 25, 2026 9:00 AM CET = Sun Oct 25, 2026 8:00 UTC | dim. 25 oct. 2026 9:00 CET\n"
         "4 Mon Oct 26, 2026 9:00 AM CET = Mon Oct 26, 2026 8:00 UTC | lun. 26 oct. 2026 9:00 CET\n"},
        // UNTIL as a date alone (with a date-time start) takes in that whole
        // day, as the sender means; dateutil instead reads it as midnight and
        // stops on the 29th: this line is the demo's choice, not the reference's.
        {"Europe/Paris", "20261228T090000", "FREQ=DAILY;UNTIL=20261230",
         "1 Mon Dec 28, 2026 9:00 AM CET = Mon Dec 28, 2026 8:00 UTC | lun. 28 déc. 2026 9:00 CET\n"
         "2 Tue Dec 29, 2026 9:00 AM CET = Tue Dec 29, 2026 8:00 UTC | mar. 29 déc. 2026 9:00 CET\n"
         "3 Wed Dec 30, 2026 9:00 AM CET = Wed Dec 30, 2026 8:00 UTC | mer. 30 déc. 2026 9:00 CET\n"},
        // Daily with BYDAY: the other weekdays are excluded.
        {"Europe/Paris", "20261127T090000", "FREQ=DAILY;BYDAY=MO,FR;COUNT=3",
         "1 Fri Nov 27, 2026 9:00 AM CET = Fri Nov 27, 2026 8:00 UTC | ven. 27 nov. 2026 9:00 CET\n"
         "2 Mon Nov 30, 2026 9:00 AM CET = Mon Nov 30, 2026 8:00 UTC | lun. 30 nov. 2026 9:00 CET\n"
         "3 Fri Dec 4, 2026 9:00 AM CET = Fri Dec 4, 2026 8:00 UTC | ven. 4 déc. 2026 9:00 CET\n"},
        // 2:30 does not exist on 28 March 2027: taken with the offset before.
        {"Europe/Paris", "20270327T023000", "FREQ=DAILY;COUNT=3",
         "1 Sat Mar 27, 2027 2:30 AM CET = Sat Mar 27, 2027 1:30 UTC | sam. 27 mars 2027 2:30 CET\n"
         "2 Sun Mar 28, 2027 3:30 AM CEST = Sun Mar 28, 2027 1:30 UTC | dim. 28 mars 2027 3:30 CEST (skipped by "
         "the change of clocks)\n"
         "3 Mon Mar 29, 2027 2:30 AM CEST = Mon Mar 29, 2027 0:30 UTC | lun. 29 mars 2027 2:30 CEST\n"},
        // 2:30 occurs twice on 25 October 2026: the first, daylight one.
        {"Europe/Paris", "20261024T023000", "FREQ=DAILY;COUNT=2",
         "1 Sat Oct 24, 2026 2:30 AM CEST = Sat Oct 24, 2026 0:30 UTC | sam. 24 oct. 2026 2:30 CEST\n"
         "2 Sun Oct 25, 2026 2:30 AM CEST = Sun Oct 25, 2026 0:30 UTC | dim. 25 oct. 2026 2:30 CEST\n"},
        // Kind 5 from 29 February: leap years only.
        {"Europe/London", "20280229T120000", "FREQ=YEARLY;COUNT=2",
         "1 Tue Feb 29, 2028 12:00 PM GMT = Tue Feb 29, 2028 12:00 UTC | mar. 29 févr. 2028 12:00 GMT\n"
         "2 Sun Feb 29, 2032 12:00 PM GMT = Sun Feb 29, 2032 12:00 UTC | dim. 29 févr. 2032 12:00 GMT\n"},
        {"Europe/Paris", "20261125T100000", "FREQ=MONTHLY;BYSETPOS=-1;BYDAY=MO",
         "cannot be expressed by the recurrence kinds: a BY part other than BYDAY and BYMONTHDAY\n"},
        {"Europe/Paris", "20261125T100000", "FREQ=MONTHLY;BYDAY=-2MO",
         "cannot be expressed by the recurrence kinds: a BYDAY ordinal other than 1 to 4 and -1\n"},
        {"Mars/Olympus", "20261125T100000", "FREQ=DAILY;COUNT=2", "event: zone Mars/Olympus is not in the zone file\n"},
    };
    rqtest::TempDir dir;
    const std::string path = dir.file("event.eml");
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.tzid) + " " + c.start + " " + c.rule);
        FILE *f = std::fopen(path.c_str(), "wb");
        ASSERT_NE(f, nullptr);
        std::string text = message(c.tzid, c.start, c.rule);
        std::fwrite(text.data(), 1, text.size(), f);
        std::fclose(f);
        int exitCode = 0;
        std::string output = runDemo(path, &exitCode);
        EXPECT_EQ(exitCode, 0) << output;
        std::string lines = calendarLines(output);
        // The occurrence lines (or the refusal) follow the "recurrence" line.
        size_t rule = lines.find("recurrence ");
        if (rule != std::string::npos)
            lines = lines.substr(lines.find('\n', rule) + 1);
        EXPECT_EQ(lines, c.expected);
    }
}

#else

TEST(Demo, ShippedSamples)
{
    GTEST_SKIP() << "the examples are not built (RQ_BUILD_EXAMPLES=OFF)";
}

#endif

}  // namespace
