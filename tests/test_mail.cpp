// E-mail address checking: the mailbox grammar, its deliberate departures
// from RFC 822, the error codes and the error offset.
#include "rqtest.h"

#include "rqcore/mail.h"
#include "rqsis/rqsis_test.h"

#include <string>

namespace {

struct Case { const char *address; U32 status, offset; };

// Accepted mailboxes (status 0): RFC 822 section 6 forms, plus the kept
// departures ("[" inside an atom, quoted local parts).  Refused texts with
// their codes and offsets, counted by hand; CR and 8-bit bytes end atoms and
// qtext, and inside a quoted string the scan stops (the guard) with the
// result the grammar gives without it.
TEST(MailAddress, CodesAndOffsets)
{
    const Case cases[] = {
        {"first.last@sub.host", 0, 0},
        {"Jane Doe <jane@host>", 0, 0},
        {"\"Doe, Jane\" <jane@host>", 0, 0},
        {"Jane <@relay.example:jane@host>", 0, 0},
        {"jane@[10.0.0.1]", 0, 0},
        {"jane@[a\\]b]", 0, 0},  // a quoted pair inside a domain literal
        {"a[b@host", 0, 0},       // "[" does not end an atom here
        {"\"j d\"@host", 0, 0},
        {"o'hara+tag@x-y.z", 0, 0},
        {"Jane\t\"Q\"  <j@h>", 0, 0},
        {"<jane@host>", MAIL_ERR_NO_PHRASE, 0},
        {"jane@", MAIL_ERR_END_OF_TEXT, 5},
        {"jane@host.", MAIL_ERR_DOMAIN_DOT, 10},
        {"jane.@host", MAIL_ERR_BAD_LOCAL_PART, 5},
        {"jane@host x", MAIL_ERR_UNEXPECTED, 9},
        {"jane@[lit", MAIL_ERR_BAD_SUBDOMAIN, 9},
        {"a/b@host", MAIL_ERR_UNEXPECTED, 1},
        {"jane", MAIL_ERR_END_OF_TEXT, 4},
        {"jane@@host", MAIL_ERR_BAD_SUBDOMAIN, 5},
        {"jane@host..x", MAIL_ERR_BAD_SUBDOMAIN, 10},
        {"Jane <jane@host", MAIL_ERR_UNEXPECTED, 15},
        {"Jane <", MAIL_ERR_BAD_LOCAL_PART, 6},
        {"Jane x<jane@host>junk", MAIL_ERR_UNEXPECTED, 17},
        {"Jane <@relay jane@host>", MAIL_ERR_UNEXPECTED, 12},
        {"Jane <@relay", MAIL_ERR_END_OF_TEXT, 12},
        {"Jane ; <j@h>", MAIL_ERR_NO_PHRASE, 5},
        {"\"open@host", MAIL_ERR_BAD_LOCAL_PART, 10},
        {".jane@host", MAIL_ERR_BAD_LOCAL_PART, 0},
        {"Group: a@b;", MAIL_ERR_UNEXPECTED, 5},  // groups are not accepted
        // qtext runs over a backslash, so an escaped quote closes the string
        {"\"a\\\"b\"@host", MAIL_ERR_UNEXPECTED, 4},
        {"ja\rne@host", MAIL_ERR_UNEXPECTED, 2},
        {"j\xE9@host", MAIL_ERR_UNEXPECTED, 1},
        {"jane@h\xF6st", MAIL_ERR_UNEXPECTED, 6},
        {"\"a\rb\"@host", MAIL_ERR_BAD_LOCAL_PART, 2},
        {"\"a\xE9" "b\"@host", MAIL_ERR_BAD_LOCAL_PART, 2},
        {"\"a\\\xE9" "b\"@host", MAIL_ERR_BAD_LOCAL_PART, 3},
        {"jane@[a\xE9]", MAIL_ERR_BAD_SUBDOMAIN, 7},
        {"Jos\xE9 <j@h>", MAIL_ERR_NO_PHRASE, 3},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::PrintToString(std::string(c.address)));
        U32 offset = 77;
        EXPECT_EQ(CheckEMailAddress(c.address, &offset), c.status);
        EXPECT_EQ(offset, c.offset);
    }
}

TEST(MailAddress, NullEmptyAndOptionalOffset)
{
    U32 offset = 5;
    EXPECT_EQ(CheckEMailAddress(nullptr, &offset), U32{MAIL_ERR_NO_ADDRESS});
    EXPECT_EQ(CheckEMailAddress("", &offset), U32{MAIL_ERR_EMPTY});
    EXPECT_EQ(CheckEMailAddress("jane@", nullptr), U32{MAIL_ERR_END_OF_TEXT});
    EXPECT_EQ(CheckEMailAddress("jane@host", nullptr), 0u);
    char group[] = "x";
    char *p = group;
    EXPECT_EQ(ParseGroup(&p), U32{MAIL_ERR_GROUP});
}

// The scanners' three-way results and how far they move.
TEST(MailAddress, Scanners)
{
    struct Scan { U32 (*scan)(char **); const char *name, *text; U32 result; int moved; };
    const Scan scans[] = {
        {LookForAtom, "atom", "abc.d", MAIL_SCAN_FOUND, 3},
        {LookForAtom, "atom", "[x]@", MAIL_SCAN_FOUND, 3},
        {LookForAtom, "atom", "/x", MAIL_SCAN_NOT_FOUND, 0},
        {LookForAtom, "atom", "", MAIL_SCAN_NOT_FOUND, 0},
        {LookForLinearWhiteSpace, "lws", " \t x", MAIL_SCAN_FOUND, 3},
        {LookForLinearWhiteSpace, "lws", "x", MAIL_SCAN_NOT_FOUND, 0},
        {LookForQuotedPair, "pair", "\\a", MAIL_SCAN_FOUND, 2},
        {LookForQuotedPair, "pair", "\\", MAIL_SCAN_NOT_FOUND, 1},
        {LookForQuotedPair, "pair", "\\\x80", MAIL_SCAN_NOT_FOUND, 1},
        {LookForQuotedPair, "pair", "a", MAIL_SCAN_NOT_FOUND, 0},
        {LookForQuotedPair, "pair", "", MAIL_SCAN_END, 0},
        {LookForQtext, "qtext", "a\\b\"", MAIL_SCAN_FOUND, 3},
        {LookForQtext, "qtext", "a \tb\rc", MAIL_SCAN_FOUND, 4},
        {LookForQtext, "qtext", "\"", MAIL_SCAN_NOT_FOUND, 0},
        {LookForQuotedString, "qs", "\"a b\"c", MAIL_SCAN_FOUND, 5},
        {LookForQuotedString, "qs", "\"a b", MAIL_SCAN_NOT_FOUND, 4},
        {LookForDtext, "dtext", "ab]c", MAIL_SCAN_FOUND, 2},
        {LookForDtext, "dtext", "", MAIL_SCAN_END, 0},
        {LookForDtext, "dtext", "[", MAIL_SCAN_NOT_FOUND, 0},
        {LookForDomainLiteral, "literal", "[a\\]b]x", MAIL_SCAN_FOUND, 6},
        {LookForDomainLiteral, "literal", "[ab", MAIL_SCAN_NOT_FOUND, 3},
        {LookForDomainLiteral, "literal", "[a[b]", MAIL_SCAN_NOT_FOUND, 2},
        {LookForWord, "word", "\"q\"x", MAIL_SCAN_FOUND, 3},
        {LookForPhrase, "phrase", "a \"b\"\t c<", MAIL_SCAN_FOUND, 8},
        {LookForPhrase, "phrase", "<", MAIL_SCAN_NOT_FOUND, 0},
    };
    for (const Scan &s : scans) {
        SCOPED_TRACE(std::string(s.name) + " on " + testing::PrintToString(std::string(s.text)));
        std::string copy = s.text;
        char *p = copy.data();
        EXPECT_EQ(s.scan(&p), s.result);
        EXPECT_EQ(p - copy.data(), s.moved);
    }
}

TEST(MailAddress, AllocationFailure)
{
    rqtest::allocationSweep([] { return CheckEMailAddress("Jane <jane@host>", nullptr); }, U32{MAIL_ERR_NO_MEMORY});
}

}  // namespace
