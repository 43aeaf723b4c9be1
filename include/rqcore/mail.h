/*
 * rqcore e-mail address checking.
 *
 * CheckEMailAddress tells whether a text is one mailbox in the RFC 822
 * grammar ("user@host", "Name <user@host>", "Name <@route:user@host>").  It
 * is a recursive-descent recogniser: the LookFor scanners take lexical items,
 * the Parse rules the grammar.  It builds nothing and keeps no state.
 *
 * Deliberate departures from RFC 822 that callers rely on: the slash ends an
 * atom and square brackets do not; bytes from 0x80 up end every item; a
 * route-addr must follow a phrase; groups are refused.
 */
#ifndef RQCORE_MAIL_H
#define RQCORE_MAIL_H

#include "types.h"

RQ_BEGIN_DECLS

RQ_CODES {
    MAIL_ERR_NO_ADDRESS = 0x1A901,      /* no address given */
    MAIL_ERR_EMPTY = 0x1A902,           /* empty address */
    MAIL_ERR_END_OF_TEXT = 0x1A903,     /* the text ends where more was required */
    MAIL_ERR_NO_PHRASE = 0x1A904,       /* "<" present but not preceded by a valid phrase */
    MAIL_ERR_BAD_LOCAL_PART = 0x1A905,  /* bad local part */
    MAIL_ERR_BAD_SUBDOMAIN = 0x1A906,   /* bad sub-domain */
    MAIL_ERR_DOMAIN_DOT = 0x1A907,      /* the domain ends with a dot */
    MAIL_ERR_UNEXPECTED = 0x1A908,      /* unexpected character, or text left after the mailbox */
    MAIL_ERR_GROUP = 0x1A909,           /* groups are not supported */
    MAIL_ERR_NO_MEMORY = 0x1A90A        /* out of memory */
};

/* Results of the LookFor scanners. */
RQ_CODES {
    MAIL_SCAN_END = 0,      /* at the end of the text (where a scanner says so) */
    MAIL_SCAN_FOUND = 1,    /* the item was taken; the position moved past it */
    MAIL_SCAN_NOT_FOUND = 2 /* no item here */
};

/* 0 when `address` is one valid mailbox, else a MAIL_ERR_ code; on failure
 * *errorOffset (optional) receives the number of characters consumed before
 * the failure. */
RQ_API U32 CheckEMailAddress(const char *address, U32 *errorOffset) RQ_NOEXCEPT;

/* Scanners: each advances *position past what it took. */
RQ_API U32 LookForAtom(char **position) RQ_NOEXCEPT;
RQ_API U32 LookForLinearWhiteSpace(char **position) RQ_NOEXCEPT;
RQ_API U32 LookForQuotedString(char **position) RQ_NOEXCEPT;
RQ_API U32 LookForQtext(char **position) RQ_NOEXCEPT;
RQ_API U32 LookForDomainLiteral(char **position) RQ_NOEXCEPT;
RQ_API U32 LookForDtext(char **position) RQ_NOEXCEPT;
RQ_API U32 LookForQuotedPair(char **position) RQ_NOEXCEPT;
RQ_API U32 LookForPhrase(char **position) RQ_NOEXCEPT;
RQ_API U32 LookForWord(char **position) RQ_NOEXCEPT;

/* Grammar rules: 0 or a MAIL_ERR_ code; *position is where they stopped. */
RQ_API U32 ParseAddress(char **position) RQ_NOEXCEPT;
RQ_API U32 ParseMailBox(char **position) RQ_NOEXCEPT;
RQ_API U32 ParseGroup(char **position) RQ_NOEXCEPT;
RQ_API U32 ParseAddrSpec(char **position) RQ_NOEXCEPT;
RQ_API U32 ParseLocalPart(char **position) RQ_NOEXCEPT;
RQ_API U32 ParseDomain(char **position) RQ_NOEXCEPT;
RQ_API U32 ParseSubDomain(char **position) RQ_NOEXCEPT;
RQ_API U32 ParseDomainRef(char **position) RQ_NOEXCEPT;
RQ_API U32 ParseRouteAddr(char **position) RQ_NOEXCEPT;
RQ_API U32 ParseRoute(char **position) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
