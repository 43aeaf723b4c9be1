/*
 * rqcore MIME messages: the model, the parser and the generator.
 *
 * A wrapper holds the parts of one message in order; a part holds its header
 * fields and a view (stream, offset, length) of the stream that carries its
 * body; a field holds its parameters.  Header, parameter, value, type and
 * subtype names are matched against a fixed token table and carried as
 * 32-bit token identifiers: the class in the high half, the member in the
 * low half.
 *
 * The parser reads a whole message from a stream, flattens nested multiparts
 * into the one part list (the preamble is the body of the first part, the
 * epilogue the body of the part after the closing boundary) and copies no
 * body.  MIME_getPartBodyBuffer fetches and decodes a body later.  The
 * generator writes fields, boundaries, encoded bodies, parts and wrappers.
 *
 * Objects have no locks: a context and everything built with it belong to
 * one thread at a time.
 */
#ifndef RQCORE_MIME_H
#define RQCORE_MIME_H

#include <stdio.h>

#include "types.h"
#include "stream.h"

RQ_BEGIN_DECLS

/* Status codes of the MIME family.  Rejected settings (encoding, type,
 * version) and a second stream for a part return the bare value 1. */
RQ_CODES {
    MIME_ERR_NULL_CONTEXT = 0x19701,      /* null context (never logged) */
    MIME_ERR_NULL_PARAMETER = 0x19702,    /* "NULL parameter pointer." */
    MIME_ERR_NO_MEMORY = 0x19703,         /* "Out of memory." */
    MIME_ERR_HEADER_TOO_LONG = 0x19704,   /* a logical header line over 10239 bytes */
    MIME_ERR_FIELD_NO_NAME = 0x19705,     /* "Field has no name." */
    MIME_ERR_UNBALANCED = 0x19706,        /* unbalanced parentheses in a header value */
    MIME_ERR_NOT_FOUND = 0x19707,         /* token, parameter, part or content identifier not found */
    MIME_ERR_FIELD_NO_VALUE = 0x19708,    /* "Field has no value." */
    MIME_ERR_ARRAY_FULL = 0x1970A,        /* result array full */
    MIME_ERR_UNKNOWN_ENCODING = 0x1970B,  /* "Unknown transfer encoding" */
    MIME_ERR_NESTED_TOO_DEEPLY = 0x1970C, /* "MIME multiparts are nested too deeply" */
    MIME_REJECTED = 1                     /* value refused, or a stream already attached */
};

/* Context flags. */
RQ_CODES {
    MIME_TRACE = 0x01,     /* each entry point writes its name to the trace log */
    MIME_LOG_ERRORS = 0x02, /* failures write "%s: %s" records at errlog id 2 */
    /* The parser follows RFC 2045/2046 instead of its own rules: ";", "=",
     * "(" and blanks inside a quoted parameter value are kept; every
     * multipart subtype is split (a boundary counts only on a multipart
     * type); headers end at the first empty line (or one of blanks only),
     * where the body starts; a body ends before the line end that precedes
     * its boundary line, which must be the boundary alone (with "--" and
     * blanks after it); a boundary of an enclosing multipart also closes the
     * inner ones; the text after a closing boundary is the body of a part
     * without headers; message/rfc822 bodies stay one part.  A known type
     * with an unknown subtype gets MIME_SUBTYPE_UNKNOWN. */
    MIME_FLAG_RFC = 0x100
};

/* Token classes (the high half of an identifier, as a filter) and the
 * identifiers of the token table. */
RQ_CODES {
    MIME_CLASS_GENERIC = 0x10000,
    MIME_CLASS_FIELD = 0x40000,
    MIME_CLASS_PARAMETER = 0x50000,
    MIME_CLASS_VALUE = 0x60000,
    MIME_CLASS_TYPE = 0x70000,
    MIME_CLASS_SUBTYPE = 0x80000,

    MIME_TOKEN_UNKNOWN = 0x10001,
    MIME_TOKEN_EXTENSION = 0x10003, /* "X-..." */
    MIME_FIELD_UNKNOWN = 0x40001,
    MIME_PARAM_UNKNOWN = 0x50001,
    MIME_VALUE_UNKNOWN = 0x60001,

    MIME_FIELD_RETURN_PATH = 0x40104,
    MIME_FIELD_RECEIVED = 0x40105,
    MIME_FIELD_REPLY_TO = 0x40106, /* also "Resent-Reply-To" */
    MIME_FIELD_FROM = 0x40107,
    MIME_FIELD_RESENT_FROM = 0x40108,
    MIME_FIELD_SENDER = 0x40109,
    MIME_FIELD_RESENT_SENDER = 0x4010A,
    MIME_FIELD_DATE = 0x4010B,
    MIME_FIELD_RESENT_DATE = 0x4010C,
    MIME_FIELD_TO = 0x4010D,
    MIME_FIELD_RESENT_TO = 0x4010E,
    MIME_FIELD_CC = 0x4010F,
    MIME_FIELD_RESENT_CC = 0x40110,
    MIME_FIELD_BCC = 0x40111,
    MIME_FIELD_RESENT_BCC = 0x40112,
    MIME_FIELD_MESSAGE_ID = 0x40113,
    MIME_FIELD_RESENT_MESSAGE_ID = 0x40114,
    MIME_FIELD_IN_REPLY_TO = 0x40115,
    MIME_FIELD_REFERENCES = 0x40116,
    MIME_FIELD_KEYWORDS = 0x40117,
    MIME_FIELD_SUBJECT = 0x40118,
    MIME_FIELD_COMMENTS = 0x40119,
    MIME_FIELD_MIME_VERSION = 0x40304,
    MIME_FIELD_CONTENT_TYPE = 0x40305,
    MIME_FIELD_CONTENT_TRANSFER_ENCODING = 0x40306,
    MIME_FIELD_CONTENT_ID = 0x40307,
    MIME_FIELD_CONTENT_DESCRIPTION = 0x40308,
    MIME_FIELD_CONTENT_DISPOSITION = 0x40309,

    MIME_PARAM_CHARSET = 0x50004,
    MIME_PARAM_METHOD = 0x50005,
    MIME_PARAM_BOUNDARY = 0x50006,
    MIME_PARAM_FILENAME = 0x50007,
    MIME_PARAM_COMPONENT = 0x50008,
    MIME_PARAM_NAME = 0x50009,

    MIME_ENCODING_BASE64 = 0x60004,
    MIME_ENCODING_8BIT = 0x60005,
    MIME_ENCODING_BINARY = 0x60006,
    MIME_ENCODING_QUOTED_PRINTABLE = 0x60007,
    MIME_ENCODING_7BIT = 0x60008,
    MIME_VERSION_1_0 = 0x60009,
    MIME_VALUE_ATTACHMENT = 0x6000A,

    MIME_TYPE_TEXT = 0x70004,
    MIME_TYPE_IMAGE = 0x70005,
    MIME_TYPE_AUDIO = 0x70006,
    MIME_TYPE_VIDEO = 0x70007,
    MIME_TYPE_APPLICATION = 0x70008,
    MIME_TYPE_MULTIPART = 0x70009,
    MIME_TYPE_MESSAGE = 0x7000A,

    MIME_SUBTYPE_UNKNOWN = 0x80001, /* only under MIME_FLAG_RFC */
    MIME_SUBTYPE_PLAIN = 0x80004,
    MIME_SUBTYPE_MIXED = 0x80005,
    MIME_SUBTYPE_HTML = 0x80006,
    MIME_SUBTYPE_GIF = 0x80007,
    MIME_SUBTYPE_JPEG = 0x80008,
    MIME_SUBTYPE_POSTSCRIPT = 0x80009,
    MIME_SUBTYPE_RTF = 0x8000A,
    MIME_SUBTYPE_CALENDAR = 0x8000B,
    MIME_SUBTYPE_CALENDAR_XML = 0x8000C,
    MIME_SUBTYPE_TEXT = 0x8000D,
    MIME_SUBTYPE_X_VCARD = 0x8000E
};

#define MIME_CID_MAX 128      /* content identifier characters kept */
#define MIME_BOUNDARY_MAX 131 /* boundary characters a wrapper holds */

typedef struct MIME_CONTEXT {
    U32 flags;
} MIME_CONTEXT;

typedef struct MIME_PARAMETER {
    char *name;
    U32 nameId;
    char *value;
    U32 valueId;
    struct MIME_PARAMETER *next;
} MIME_PARAMETER;

typedef struct MIME_FIELD {
    char *name;
    U32 nameId;
    char *value;
    U32 valueId;
    MIME_PARAMETER *parameters; /* newest first */
    struct MIME_FIELD *next;
} MIME_FIELD;

typedef struct MIME_PART {
    char contentId[MIME_CID_MAX + 1];
    MIME_FIELD *fields; /* newest first */
    STREAM *stream;     /* holds the body; not owned by the part */
    U32 bodyStart;
    U32 bodyLength;
    U32 encoding;
    U32 type;
    U32 subtype;
    U32 charset;
    struct MIME_PART *next;
} MIME_PART;

typedef struct MIME_WRAPPER {
    char boundary[MIME_BOUNDARY_MAX + 1];
    U32 partCount;
    MIME_PART *parts; /* in message order */
    U32 version;
} MIME_WRAPPER;

/* ---- Context and tokens -------------------------------------------------- */

RQ_API U32 MIME_createContext(MIME_CONTEXT **out) RQ_NOEXCEPT;
RQ_API U32 MIME_destroyContext(MIME_CONTEXT **context) RQ_NOEXCEPT;
RQ_API U32 MIME_setContextFlags(MIME_CONTEXT *context, U32 bits) RQ_NOEXCEPT;
RQ_API U32 MIME_unsetContextFlags(MIME_CONTEXT *context, U32 bits) RQ_NOEXCEPT;

/* *text = the table's text for `id` ("UNKNOWN" and MIME_ERR_NOT_FOUND when
 * the table has none). */
RQ_API U32 MIME_getTokenString(MIME_CONTEXT *context, U32 id, const char **text) RQ_NOEXCEPT;
/* First table row equal to the trimmed text (case-insensitive) whose class
 * is `classFilter` (0 = any); "X-..." gives MIME_TOKEN_EXTENSION and 0. */
RQ_API U32 MIME_identifyToken(MIME_CONTEXT *context, const char *text, U32 classFilter, U32 *id) RQ_NOEXCEPT;

/* ---- Fields --------------------------------------------------------------- */

RQ_API U32 MIME_createField(MIME_CONTEXT *context, MIME_FIELD **out, const char *name, const char *value) RQ_NOEXCEPT;
RQ_API U32 MIME_addParameterToField(MIME_CONTEXT *context, MIME_FIELD *field, const char *name, const char *value) RQ_NOEXCEPT;
RQ_API U32 MIME_destroyField(MIME_CONTEXT *context, MIME_FIELD **field) RQ_NOEXCEPT;
RQ_API U32 MIME_getFieldParameterValue(MIME_CONTEXT *context, MIME_FIELD *field, U32 nameId, const char **value) RQ_NOEXCEPT;
RQ_API U32 MIME_getFieldParameterValue2(MIME_CONTEXT *context, MIME_FIELD *field, U32 nameId, const char **value, U32 *valueId) RQ_NOEXCEPT;
/* The copy is the caller's (RQCORE_free). */
RQ_API U32 MIME_getFieldParameterValueCopy(MIME_CONTEXT *context, MIME_FIELD *field, U32 nameId, char **copy) RQ_NOEXCEPT;
RQ_API U32 MIME_getFieldParameterValueID(MIME_CONTEXT *context, MIME_FIELD *field, U32 nameId, U32 *valueId) RQ_NOEXCEPT;
RQ_API U32 MIME_dumpField(MIME_CONTEXT *context, MIME_FIELD *field, FILE *out) RQ_NOEXCEPT;

/* ---- Parts ---------------------------------------------------------------- */

RQ_API U32 MIME_createPart(MIME_CONTEXT *context, MIME_PART **out) RQ_NOEXCEPT;
RQ_API U32 MIME_destroyPart(MIME_CONTEXT *context, MIME_PART **part) RQ_NOEXCEPT;
RQ_API U32 MIME_addFieldToPart(MIME_CONTEXT *context, MIME_PART *part, MIME_FIELD *field) RQ_NOEXCEPT;
RQ_API U32 MIME_addStreamToPart(MIME_CONTEXT *context, MIME_PART *part, STREAM *stream) RQ_NOEXCEPT;
RQ_API U32 MIME_setPartEncoding(MIME_CONTEXT *context, MIME_PART *part, U32 encodingId) RQ_NOEXCEPT;
RQ_API U32 MIME_setPartType(MIME_CONTEXT *context, MIME_PART *part, U32 type, U32 subtype) RQ_NOEXCEPT;
RQ_API U32 MIME_setPartTypeByString(MIME_CONTEXT *context, MIME_PART *part, const char *text) RQ_NOEXCEPT;
RQ_API U32 MIME_setPartCharset(MIME_CONTEXT *context, MIME_PART *part, U32 charsetId) RQ_NOEXCEPT;
RQ_API U32 MIME_setPartCharsetByString(MIME_CONTEXT *context, MIME_PART *part, const char *name) RQ_NOEXCEPT;
RQ_API U32 MIME_setPartCID(MIME_CONTEXT *context, MIME_PART *part, const char *cid) RQ_NOEXCEPT;
/* The part's body, decoded from base64 or quoted-printable, NUL-terminated;
 * the caller frees it with RQCORE_free. */
RQ_API U32 MIME_getPartBodyBuffer(MIME_CONTEXT *context, MIME_PART *part, char **body, U32 *length) RQ_NOEXCEPT;
RQ_API U32 MIME_dumpPart(MIME_CONTEXT *context, MIME_PART *part, FILE *out) RQ_NOEXCEPT;

/* ---- Wrappers ------------------------------------------------------------- */

RQ_API U32 MIME_createWrapper(MIME_CONTEXT *context, MIME_WRAPPER **out) RQ_NOEXCEPT;
RQ_API U32 MIME_destroyWrapper(MIME_CONTEXT *context, MIME_WRAPPER **wrapper) RQ_NOEXCEPT;
RQ_API U32 MIME_addPartToWrapper(MIME_CONTEXT *context, MIME_WRAPPER *wrapper, MIME_PART *part) RQ_NOEXCEPT;
RQ_API U32 MIME_setWrapperVersion(MIME_CONTEXT *context, MIME_WRAPPER *wrapper, U32 versionId) RQ_NOEXCEPT;
RQ_API U32 MIME_getPartFromWrapperByCID(MIME_CONTEXT *context, MIME_WRAPPER *wrapper, const char *cid, MIME_PART **found) RQ_NOEXCEPT;
RQ_API U32 MIME_getPartFromWrapperByType(MIME_CONTEXT *context, MIME_WRAPPER *wrapper, U32 type, U32 subtype, MIME_PART **array, U32 capacity, U32 *count) RQ_NOEXCEPT;
RQ_API U32 MIME_dumpWrapper(MIME_CONTEXT *context, MIME_WRAPPER *wrapper, FILE *out) RQ_NOEXCEPT;
/* size-1 characters of [0-9A-Z] and a NUL. */
RQ_API U32 MIME_createRandomString(MIME_CONTEXT *context, char *buffer, U32 size) RQ_NOEXCEPT;

/* ---- Parser --------------------------------------------------------------- */

/* Parses the whole message; *out holds the wrapper even on failure (destroy
 * it with MIME_destroyWrapper).  The parts keep `in` as their body stream. */
RQ_API U32 MIME_parseMessageFromStream(MIME_CONTEXT *context, STREAM *in, MIME_WRAPPER **out) RQ_NOEXCEPT;
RQ_API U32 MIME_grokField(MIME_CONTEXT *context, char **boundaryStack, U32 *depth, MIME_WRAPPER *wrapper, MIME_PART *part, char *name, char *value) RQ_NOEXCEPT;
RQ_API U32 MIME_parseAsMimeField(MIME_CONTEXT *context, MIME_FIELD **out, char *name, char *value) RQ_NOEXCEPT;
RQ_API U32 MIME_stripComments(MIME_CONTEXT *context, char *text) RQ_NOEXCEPT;
RQ_API U32 MIME_stripDQuotesAndBackslashes(MIME_CONTEXT *context, char *text) RQ_NOEXCEPT;
RQ_API U32 MIME_stripNonMachineText(MIME_CONTEXT *context, char *text) RQ_NOEXCEPT;

/* ---- Generator (every line end written is CR LF) ------------------------- */

RQ_API U32 MIME_outputFieldToStream(MIME_CONTEXT *context, STREAM *out, MIME_FIELD *field) RQ_NOEXCEPT;
RQ_API U32 MIME_outputSimpleFieldToStream(MIME_CONTEXT *context, STREAM *out, U32 nameId, const char *value, const U32 *paramNameIds, const char **paramValues, U32 paramCount) RQ_NOEXCEPT;
RQ_API U32 MIME_outputBoundaryToStream(MIME_CONTEXT *context, STREAM *out, const char *boundary) RQ_NOEXCEPT;
RQ_API U32 MIME_outputTerminatingBoundaryToStream(MIME_CONTEXT *context, STREAM *out, const char *boundary) RQ_NOEXCEPT;
RQ_API U32 MIME_outputBoundaryToStreamCore(MIME_CONTEXT *context, STREAM *out, const char *boundary, U32 terminating) RQ_NOEXCEPT;
RQ_API U32 MIME_outputBodyToStream(MIME_CONTEXT *context, STREAM *out, const char *body, U32 length, U32 encodingId) RQ_NOEXCEPT;
RQ_API U32 MIME_outputAttachmentToStream(MIME_CONTEXT *context, STREAM *out, const char *body, U32 length, U32 typeId, U32 subtypeId, U32 encodingId, const char *contentId, const char *charsetName, const char *fileName, const char *boundary) RQ_NOEXCEPT;
RQ_API U32 MIME_outputPartToStream(MIME_CONTEXT *context, STREAM *out, MIME_PART *part) RQ_NOEXCEPT;
RQ_API U32 MIME_outputWrapperToStream(MIME_CONTEXT *context, STREAM *out, MIME_WRAPPER *wrapper) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
