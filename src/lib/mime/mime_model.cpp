#define RQ_SOURCE_TAG "src/lib/core/lib/mime/mime_model"
#include "internal/rq_mem.h"

#include "mime_internal.h"
#include "rqcore/charmap.h"

#include <ctime>

// The MIME model: contexts, fields with their parameters, parts and
// wrappers.  A field or a parameter is one block: the record followed by its
// name and value texts, so that building and freeing one costs a single
// allocation.

using namespace rq::mime;

// The open platform layer counts, for its tests, the steps that the walks
// below report, so that a test can prove by counting that work grows
// linearly.  The product's own platform layer has no such counter: the
// reference is weak, and without it nothing is reported.
extern "C" void SIS_TestStepsAdd(uint64_t steps) noexcept __attribute__((weak));

namespace {

constexpr U32 kCharsetUsAscii = 3;

// One block holding a record of type T and two texts after it.
template <typename T>
T *allocateWithTexts(std::string_view name, std::string_view value) noexcept
{
    size_t size = sizeof(T) + name.size() + 1 + value.size() + 1;
    auto *record = static_cast<T *>(RQ_CALLOC(1, size));
    if (record == nullptr)
        return nullptr;
    char *text = reinterpret_cast<char *>(record + 1);
    std::memcpy(text, name.data(), name.size());
    text[name.size()] = '\0';
    record->name = text;
    text += name.size() + 1;
    std::memcpy(text, value.data(), value.size());
    text[value.size()] = '\0';
    record->value = text;
    return record;
}

// The search behind the parameter getters.
MIME_PARAMETER *findParameter(const MIME_FIELD *field, U32 nameId) noexcept
{
    for (MIME_PARAMETER *p = field->parameters; p != nullptr; p = p->next)
        if (p->nameId == nameId)
            return p;
    return nullptr;
}

// Appends a part at the tail, walking from `from` (a part of the list, or
// null for its head); parts keep the message's order (unlike fields).  The
// walk's length goes to the test interface's step count.
void linkPart(MIME_WRAPPER *wrapper, MIME_PART *part, MIME_PART *from) noexcept
{
    part->next = nullptr;
    MIME_PART **link = from != nullptr ? &from->next : &wrapper->parts;
    uint64_t steps = 1;
    for (; *link != nullptr; ++steps)
        link = &(*link)->next;
    *link = part;
    ++wrapper->partCount;
    if (SIS_TestStepsAdd != nullptr)
        SIS_TestStepsAdd(steps);
}

// The random strings' seed: one process-wide counter, set from the clock on
// first use and stepped on every call, so that two calls in the same second
// differ.  It is not locked; concurrent callers may get equal strings.
unsigned int gRandomSeed = 0;

}  // namespace

U32 rq::mime::appendPart(MIME_CONTEXT *context, MIME_WRAPPER *wrapper, MIME_PART *part, MIME_PART **tail) noexcept
{
    // The same record, checks and failures as MIME_addPartToWrapper.
    MIME_ENTER(context, "MIME_addPartToWrapper()");
    if (wrapper == nullptr || part == nullptr || tail == nullptr)
        return nullParameter(context, "MIME_addPartToWrapper()");
    linkPart(wrapper, part, *tail);
    *tail = part;
    return 0;
}

U32 rq::mime::addParameter(MIME_CONTEXT *context, MIME_FIELD *field, std::string_view name, std::string_view value) noexcept
{
    MIME_PARAMETER *parameter = allocateWithTexts<MIME_PARAMETER>(name, value);
    if (parameter == nullptr)
        return fail(context, "MIME_addParameterToField()", MIME_ERR_NO_MEMORY, "Out of memory.");
    if (identify(name, MIME_CLASS_PARAMETER, &parameter->nameId) != 0)
        parameter->nameId = MIME_PARAM_UNKNOWN;
    if (identify(value, MIME_CLASS_VALUE, &parameter->valueId) != 0)
        parameter->valueId = MIME_VALUE_UNKNOWN;
    // Pushed at the head: the list holds parameters newest first, and the
    // generator writes them in that order.
    parameter->next = field->parameters;
    field->parameters = parameter;
    return 0;
}

extern "C" {

// ---- Context -----------------------------------------------------------------

RQ_API U32 MIME_createContext(MIME_CONTEXT **out) noexcept
{
    if (out == nullptr)
        return MIME_ERR_NULL_PARAMETER;
    *out = static_cast<MIME_CONTEXT *>(RQ_CALLOC(1, sizeof(MIME_CONTEXT)));
    return *out != nullptr ? 0 : U32{MIME_ERR_NO_MEMORY};
}

RQ_API U32 MIME_destroyContext(MIME_CONTEXT **context) noexcept
{
    if (context == nullptr)
        return MIME_ERR_NULL_PARAMETER;
    if (*context == nullptr)
        return MIME_ERR_NULL_CONTEXT;
    RQ_FREE(*context);
    *context = nullptr;
    return 0;
}

RQ_API U32 MIME_setContextFlags(MIME_CONTEXT *context, U32 bits) noexcept
{
    MIME_ENTER(context, "MIME_setContextFlags()");
    context->flags |= bits;
    return 0;
}

RQ_API U32 MIME_unsetContextFlags(MIME_CONTEXT *context, U32 bits) noexcept
{
    MIME_ENTER(context, "MIME_unsetContextFlags()");
    context->flags &= ~bits;
    return 0;
}

// ---- Fields and parameters ---------------------------------------------------

RQ_API U32 MIME_createField(MIME_CONTEXT *context, MIME_FIELD **out, const char *name, const char *value) noexcept
{
    MIME_ENTER(context, "MIME_createField()");
    if (out == nullptr || name == nullptr || value == nullptr)
        return MIME_ERR_NULL_PARAMETER;  // not logged
    *out = nullptr;
    // Name and value are kept as given; only their identification trims.
    MIME_FIELD *field = allocateWithTexts<MIME_FIELD>(name, value);
    if (field == nullptr)
        return fail(context, "MIME_createField()", MIME_ERR_NO_MEMORY, "Out of memory.");
    if (identify(name, MIME_CLASS_FIELD, &field->nameId) != 0)
        field->nameId = MIME_FIELD_UNKNOWN;
    if (identify(value, MIME_CLASS_VALUE, &field->valueId) != 0)
        field->valueId = MIME_VALUE_UNKNOWN;
    *out = field;
    return 0;
}

RQ_API U32 MIME_addParameterToField(MIME_CONTEXT *context, MIME_FIELD *field, const char *name, const char *value) noexcept
{
    MIME_ENTER(context, "MIME_addParameterToField()");
    if (field == nullptr || name == nullptr || value == nullptr)
        return nullParameter(context, "MIME_addParameterToField()");
    return addParameter(context, field, trim(name), trim(value));
}

RQ_API U32 MIME_destroyField(MIME_CONTEXT *context, MIME_FIELD **field) noexcept
{
    MIME_ENTER(context, "MIME_destroyField()");
    if (field == nullptr || *field == nullptr)
        return nullParameter(context, "MIME_destroyField()");
    MIME_PARAMETER *p = (*field)->parameters;
    while (p != nullptr) {
        MIME_PARAMETER *next = p->next;
        RQ_FREE(p);
        p = next;
    }
    RQ_FREE(*field);
    *field = nullptr;
    return 0;
}

RQ_API U32 MIME_getFieldParameterValue2(MIME_CONTEXT *, MIME_FIELD *field, U32 nameId, const char **value, U32 *valueId) noexcept
{
    // The bare search: callers have checked the arguments.
    const MIME_PARAMETER *p = findParameter(field, nameId);
    if (p == nullptr)
        return MIME_ERR_NOT_FOUND;
    *value = p->value;
    *valueId = p->valueId;
    return 0;
}

RQ_API U32 MIME_getFieldParameterValue(MIME_CONTEXT *context, MIME_FIELD *field, U32 nameId, const char **value) noexcept
{
    MIME_ENTER(context, "MIME_getFieldParameterValue()");
    if (field == nullptr || value == nullptr)
        return nullParameter(context, "MIME_getFieldParameterValue()");
    *value = nullptr;
    U32 valueId = 0;
    return MIME_getFieldParameterValue2(context, field, nameId, value, &valueId);
}

RQ_API U32 MIME_getFieldParameterValueCopy(MIME_CONTEXT *context, MIME_FIELD *field, U32 nameId, char **copy) noexcept
{
    MIME_ENTER(context, "MIME_getFieldParameterValueCopy()");
    if (field == nullptr || copy == nullptr)
        return nullParameter(context, "MIME_getFieldParameterValueCopy()");
    *copy = nullptr;
    const MIME_PARAMETER *p = findParameter(field, nameId);
    if (p != nullptr)
        *copy = RQ_STRDUP(p->value);
    // An absent parameter and a failed copy both report a null parameter:
    // callers test for that one code.
    if (*copy == nullptr)
        return nullParameter(context, "MIME_getFieldParameterValueCopy()");
    return 0;
}

RQ_API U32 MIME_getFieldParameterValueID(MIME_CONTEXT *context, MIME_FIELD *field, U32 nameId, U32 *valueId) noexcept
{
    MIME_ENTER(context, "MIME_getFieldParameterValueID()");
    if (field == nullptr || valueId == nullptr)
        return nullParameter(context, "MIME_getFieldParameterValueID()");
    *valueId = MIME_VALUE_UNKNOWN;
    const MIME_PARAMETER *p = findParameter(field, nameId);
    if (p == nullptr)
        return MIME_ERR_NOT_FOUND;
    *valueId = p->valueId;
    return 0;
}

// ---- Parts -------------------------------------------------------------------

RQ_API U32 MIME_createPart(MIME_CONTEXT *context, MIME_PART **out) noexcept
{
    MIME_ENTER(context, "MIME_createPart()");
    if (out == nullptr)
        return nullParameter(context, "MIME_createPart()");
    *out = nullptr;
    auto *part = static_cast<MIME_PART *>(RQ_CALLOC(1, sizeof(MIME_PART)));
    if (part == nullptr)
        return fail(context, "MIME_createPart()", MIME_ERR_NO_MEMORY, "Out of memory.");
    part->encoding = MIME_ENCODING_7BIT;
    part->type = MIME_TYPE_TEXT;
    part->subtype = MIME_SUBTYPE_PLAIN;
    part->charset = kCharsetUsAscii;
    *out = part;
    return 0;
}

RQ_API U32 MIME_destroyPart(MIME_CONTEXT *context, MIME_PART **part) noexcept
{
    MIME_ENTER(context, "MIME_destroyPart()");
    if (part == nullptr || *part == nullptr)
        return nullParameter(context, "MIME_destroyPart()");
    while ((*part)->fields != nullptr) {
        MIME_FIELD *field = (*part)->fields;
        (*part)->fields = field->next;
        U32 status = MIME_destroyField(context, &field);
        if (status != 0)
            return status;
    }
    // The stream is the caller's: never destroyed here.
    RQ_FREE(*part);
    *part = nullptr;
    return 0;
}

RQ_API U32 MIME_addFieldToPart(MIME_CONTEXT *context, MIME_PART *part, MIME_FIELD *field) noexcept
{
    MIME_ENTER(context, "MIME_addFieldToPart()");
    if (part == nullptr || field == nullptr)
        return nullParameter(context, "MIME_addFieldToPart()");
    // Pushed at the head: a part lists its fields newest first.
    field->next = part->fields;
    part->fields = field;
    return 0;
}

RQ_API U32 MIME_addStreamToPart(MIME_CONTEXT *context, MIME_PART *part, STREAM *stream) noexcept
{
    MIME_ENTER(context, "MIME_addStreamToPart()");
    if (part == nullptr || stream == nullptr)
        return nullParameter(context, "MIME_addStreamToPart()");
    if (part->stream != nullptr)
        return fail(context, "MIME_addStreamToPart()", MIME_REJECTED, "STREAM already attached");
    // The stream has just been written: a seek of 0 from the end reports its
    // position, which is its end, without moving a memory stream.
    U32 end = 0;
    U32 status = STREAM_seek(stream, 0, STREAM_SEEK_END, &end);
    if (status != 0 && status != 1)
        return fail(context, "MIME_addStreamToPart()", status, "STREAM_seek()");
    part->stream = stream;
    part->bodyLength = end >= part->bodyStart ? end - part->bodyStart : 0;
    return 0;
}

RQ_API U32 MIME_setPartEncoding(MIME_CONTEXT *context, MIME_PART *part, U32 encodingId) noexcept
{
    MIME_ENTER(context, "MIME_setPartEncoding()");
    if (part == nullptr)
        return nullParameter(context, "MIME_setPartEncoding()");
    // 0x60003 is accepted although the table does not name it.
    if (encodingId < 0x60003 || encodingId > MIME_ENCODING_7BIT)
        return MIME_REJECTED;
    part->encoding = encodingId;
    return 0;
}

RQ_API U32 MIME_setPartType(MIME_CONTEXT *context, MIME_PART *part, U32 type, U32 subtype) noexcept
{
    MIME_ENTER(context, "MIME_setPartType()");
    if (part == nullptr)
        return nullParameter(context, "MIME_setPartType()");
    if ((type & 0xFFFF0000u) != MIME_CLASS_TYPE || (subtype & 0xFFFF0000u) != MIME_CLASS_SUBTYPE)
        return MIME_REJECTED;
    part->type = type;
    part->subtype = subtype;
    return 0;
}

RQ_API U32 MIME_setPartTypeByString(MIME_CONTEXT *context, MIME_PART *part, const char *text) noexcept
{
    MIME_ENTER(context, "MIME_setPartTypeByString()");
    if (part == nullptr || text == nullptr)
        return nullParameter(context, "MIME_setPartTypeByString()");
    std::string_view whole(text);
    size_t slash = whole.find('/');
    if (slash == std::string_view::npos)
        return MIME_REJECTED;
    U32 type = 0;
    U32 subtype = 0;
    if (identify(whole.substr(0, slash), MIME_CLASS_TYPE, &type) != 0 ||
        identify(whole.substr(slash + 1), MIME_CLASS_SUBTYPE, &subtype) != 0)
        return MIME_REJECTED;
    return MIME_setPartType(context, part, type, subtype);
}

RQ_API U32 MIME_setPartCharset(MIME_CONTEXT *context, MIME_PART *part, U32 charsetId) noexcept
{
    MIME_ENTER(context, "MIME_setPartCharset()");
    if (part == nullptr)
        return nullParameter(context, "MIME_setPartCharset()");
    part->charset = charsetId;
    return 0;
}

RQ_API U32 MIME_setPartCharsetByString(MIME_CONTEXT *context, MIME_PART *part, const char *name) noexcept
{
    MIME_ENTER(context, "MIME_setPartCharsetByString()");
    if (part == nullptr || name == nullptr)
        return nullParameter(context, "MIME_setPartCharsetByString()");
    U32 id = 0;
    U32 status = CHARMAP_getCharacterSetID(name, &id);
    part->charset = status == 0 ? id : 0;  // 0 = a character set the table does not know
    return status;
}

RQ_API U32 MIME_setPartCID(MIME_CONTEXT *context, MIME_PART *part, const char *cid) noexcept
{
    MIME_ENTER(context, "MIME_setPartCID()");
    if (part == nullptr || cid == nullptr)
        return nullParameter(context, "MIME_setPartCID()");
    while (isSpace(*cid))
        ++cid;
    size_t length = strnlen(cid, MIME_CID_MAX);
    while (length > 0 && isSpace(cid[length - 1]))
        --length;
    std::memcpy(part->contentId, cid, length);
    part->contentId[length] = '\0';
    return 0;
}

// ---- Wrappers ----------------------------------------------------------------

RQ_API U32 MIME_createWrapper(MIME_CONTEXT *context, MIME_WRAPPER **out) noexcept
{
    MIME_ENTER(context, "MIME_createWrapper()");
    if (out == nullptr)
        return nullParameter(context, "MIME_createWrapper()");
    *out = static_cast<MIME_WRAPPER *>(RQ_CALLOC(1, sizeof(MIME_WRAPPER)));
    if (*out == nullptr)
        return fail(context, "MIME_createWrapper()", MIME_ERR_NO_MEMORY, "Out of memory.");
    (*out)->version = MIME_VERSION_1_0;
    return 0;
}

RQ_API U32 MIME_destroyWrapper(MIME_CONTEXT *context, MIME_WRAPPER **wrapper) noexcept
{
    MIME_ENTER(context, "MIME_destroyWrapper()");
    if (wrapper == nullptr || *wrapper == nullptr)
        return nullParameter(context, "MIME_destroyWrapper()");
    while ((*wrapper)->parts != nullptr) {
        MIME_PART *part = (*wrapper)->parts;
        MIME_PART *next = part->next;
        U32 status = MIME_destroyPart(context, &part);
        if (status != 0)
            return status;  // the wrapper stays, holding the part that failed
        (*wrapper)->parts = next;
        --(*wrapper)->partCount;
    }
    RQ_FREE(*wrapper);
    *wrapper = nullptr;
    return 0;
}

RQ_API U32 MIME_addPartToWrapper(MIME_CONTEXT *context, MIME_WRAPPER *wrapper, MIME_PART *part) noexcept
{
    MIME_ENTER(context, "MIME_addPartToWrapper()");
    if (wrapper == nullptr || part == nullptr)
        return nullParameter(context, "MIME_addPartToWrapper()");
    // The wrapper records no tail: a caller's own appends walk the list.
    linkPart(wrapper, part, nullptr);
    return 0;
}

RQ_API U32 MIME_setWrapperVersion(MIME_CONTEXT *context, MIME_WRAPPER *wrapper, U32 versionId) noexcept
{
    MIME_ENTER(context, "MIME_setWrapperVersion()");
    if (wrapper == nullptr)
        return nullParameter(context, "MIME_setWrapperVersion()");
    if (versionId != MIME_VERSION_1_0)
        return MIME_REJECTED;
    wrapper->version = versionId;
    return 0;
}

RQ_API U32 MIME_getPartFromWrapperByCID(MIME_CONTEXT *context, MIME_WRAPPER *wrapper, const char *cid, MIME_PART **found) noexcept
{
    MIME_ENTER(context, "MIME_getPartFromWrapperByCID()");
    if (wrapper == nullptr || cid == nullptr || found == nullptr)
        return nullParameter(context, "MIME_getPartFromWrapperByCID()");
    *found = nullptr;
    for (MIME_PART *part = wrapper->parts; part != nullptr; part = part->next) {
        if (std::strcmp(part->contentId, cid) == 0) {
            *found = part;
            return 0;
        }
    }
    return MIME_ERR_NOT_FOUND;
}

RQ_API U32 MIME_getPartFromWrapperByType(MIME_CONTEXT *context, MIME_WRAPPER *wrapper, U32 type, U32 subtype, MIME_PART **array, U32 capacity, U32 *count) noexcept
{
    MIME_ENTER(context, "MIME_getPartFromWrapperByType()");
    if (wrapper == nullptr || array == nullptr || count == nullptr)
        return nullParameter(context, "MIME_getPartFromWrapperByType()");
    *count = 0;
    for (MIME_PART *part = wrapper->parts; part != nullptr; part = part->next) {
        if (part->type != type || part->subtype != subtype)
            continue;
        if (*count == capacity)
            return MIME_ERR_ARRAY_FULL;
        array[(*count)++] = part;
    }
    if (*count < capacity)
        array[*count] = nullptr;
    return *count != 0 ? 0 : U32{MIME_ERR_NOT_FOUND};
}

RQ_API U32 MIME_createRandomString(MIME_CONTEXT *context, char *buffer, U32 size) noexcept
{
    MIME_ENTER(context, "MIME_createRandomString()");
    if (buffer == nullptr)
        return nullParameter(context, "MIME_createRandomString()");
    if (size == 0)
        return 0;
    static constexpr char kAlphabet[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    if (gRandomSeed == 0)
        gRandomSeed = static_cast<unsigned int>(std::time(nullptr));
    unsigned int state = ++gRandomSeed;
    for (U32 i = 0; i + 1 < size; ++i)
        buffer[i] = kAlphabet[static_cast<unsigned int>(SIS_CrtRand(&state)) % 36];
    buffer[size - 1] = '\0';
    return 0;
}

}  // extern "C"
