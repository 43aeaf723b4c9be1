/*
 * rqcore demo: the library's typical request.  A server receives an e-mail
 * invitation with a calendar attachment, reads its structure, decodes the
 * calendar and converts it to UTF-8, checks the sender's address, and writes
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

    /* 2. The sender. */
    from = findField(wrapper->parts, MIME_FIELD_FROM);
    if (from != NULL) {
        status = CheckEMailAddress(from->value, &offset);
        printf("sender %s: %s\n", from->value, status == 0 ? "valid address" : "invalid address");
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
    UNICODE_Initialize(0);
    utf8 = calendarToUtf8(calendar, charset);
    if (utf8 != NULL)
        printf("---- calendar in UTF-8 ----\n%s---- end of calendar ----\n", utf8);

    /* 4. The reply, through a growing buffer. */
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
