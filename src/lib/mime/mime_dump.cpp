#define RQ_SOURCE_TAG "src/lib/core/lib/mime/mime_dump"
#include "internal/rq_mem.h"

#include "mime_internal.h"

#include <cstdint>

// Readable dumps of fields, parts and wrappers, for diagnostics.

using namespace rq::mime;

namespace {

const char *textOr(U32 id, const char *unknown) noexcept
{
    const char *text = tokenText(id);
    return text != nullptr ? text : unknown;
}

bool hasText(const char *text) noexcept
{
    return text != nullptr && text[0] != '\0';
}

}  // namespace

extern "C" {

RQ_API U32 MIME_dumpField(MIME_CONTEXT *context, MIME_FIELD *field, FILE *out) noexcept
{
    MIME_ENTER(context, "MIME_dumpField()");
    if (field == nullptr || out == nullptr)
        return nullParameter(context, "MIME_dumpField()");
    std::fprintf(out, "Field: %s (0x%X)", field->name, field->nameId);
    if (hasText(field->value))
        std::fprintf(out, " Value: %s (0x%X)\n", field->value, field->valueId);
    else
        std::fputs("\n", out);
    if (field->parameters != nullptr) {
        std::fputs("Parameters:\n", out);
        for (const MIME_PARAMETER *p = field->parameters; p != nullptr; p = p->next) {
            std::fprintf(out, "            Name: %s (0x%X)", p->name, p->nameId);
            if (hasText(p->value))
                std::fprintf(out, " Value: %s (0x%X)\n", p->value, p->valueId);
            else
                std::fputs("\n", out);
        }
    }
    return 0;
}

RQ_API U32 MIME_dumpPart(MIME_CONTEXT *context, MIME_PART *part, FILE *out) noexcept
{
    MIME_ENTER(context, "MIME_dumpPart()");
    if (part == nullptr || out == nullptr)
        return nullParameter(context, "MIME_dumpPart()");
    std::fprintf(out, "MIME PART CID \"%s\"\n", part->contentId);
    std::fprintf(out, "STREAM pointer 0x%X\n", static_cast<unsigned>(reinterpret_cast<uintptr_t>(part->stream)));
    std::fprintf(out, "Body start / size %d / %d\n", static_cast<int>(part->bodyStart), static_cast<int>(part->bodyLength));
    std::fprintf(out, "CONTENT TYPE is %s / %s\n", textOr(part->type, "UNKNOWN TYPE"),
                 textOr(part->subtype, "UNKNOWN SUBTYPE"));
    std::fprintf(out, "Encoding %s\n", textOr(part->encoding, "UNKNOWN"));
    std::fprintf(out, "Character set ID %d\n", static_cast<int>(part->charset));
    for (MIME_FIELD *field = part->fields; field != nullptr; field = field->next) {
        U32 status = MIME_dumpField(context, field, out);
        if (status != 0)
            return status;
    }
    return 0;
}

RQ_API U32 MIME_dumpWrapper(MIME_CONTEXT *context, MIME_WRAPPER *wrapper, FILE *out) noexcept
{
    MIME_ENTER(context, "MIME_dumpWrapper()");
    if (wrapper == nullptr || out == nullptr)
        return nullParameter(context, "MIME_dumpWrapper()");
    std::fputs("MIME WRAPPER\n", out);
    std::fprintf(out, "  multipart boundary \"%s\"\n", wrapper->boundary);
    std::fprintf(out, "  MIME-version: %s\n", textOr(wrapper->version, "UNKNOWN VERSION"));
    std::fprintf(out, "  MIME parts: %d\n", static_cast<int>(wrapper->partCount));
    int index = 0;
    for (MIME_PART *part = wrapper->parts; part != nullptr; part = part->next, ++index) {
        std::fprintf(out, "------[PART %d]-----\n", index);
        U32 status = MIME_dumpPart(context, part, out);
        if (status != 0)
            return status;
    }
    return 0;
}

}  // extern "C"
