/*
 * rqcore lists: the DX_List container, its ordering, comparison and
 * selection, and the DX_Mem byte helpers.
 *
 * A list is a singly linked chain of elements, each holding one identifier
 * and one data item copied in by value, reached through a 32-bit handle
 * (HLIST, 0 = no list).  Identifiers and data are either fixed-size byte
 * records or NUL-terminated texts bounded by the declared size.  Each list
 * keeps one walking position (the current element and the one before it).
 * A list is used by one thread at a time.
 */
#ifndef RQCORE_LISTS_H
#define RQCORE_LISTS_H

#include "types.h"

RQ_BEGIN_DECLS

/* List flags (DX_ListCreate, DX_ListSetFlag, DX_ListGetFlags). */
#define DX_LIST_SORTED 0x01u      /* kept in compare order; DX_ListAddTo inserts in order */
#define DX_LIST_NODATA 0x02u      /* set by DX_ListCreate when the data size is 0 */
#define DX_LIST_UNIQUE 0x04u      /* an identifier already present is refused (0x15001) */
#define DX_LIST_PRIORITY 0x10u    /* DX_ListGet moves the found element to the front */
#define DX_LIST_STRING_ID 0x20u   /* identifiers are NUL-terminated texts */
#define DX_LIST_STRING_DATA 0x40u /* data items are NUL-terminated texts */
#define DX_LIST_IGNORE_DUP 0x80u  /* an identifier already present is silently not added */

/* Selectors of DX_ListGetValue and DX_ListAlloc. */
#define DX_LIST_VALUE_COUNT 0u
#define DX_LIST_VALUE_DATA_SIZE 1u
#define DX_LIST_VALUE_FLAGS 2u
#define DX_LIST_VALUE_ID_SIZE 3u
#define DX_LIST_ALLOC_DATA 1u
#define DX_LIST_ALLOC_ID 3u

RQ_CODES {
    DX_LIST_ERR_DUPLICATE = 0x15001,            /* identifier already present (unique list) */
    DX_LIST_ERR_ADDFIRST_ELEMENT = 0x15002,     /* add: the new element could not be created */
    DX_LIST_ERR_ADDFIRST_LOCK = 0x15003,        /* add first: header not lockable */
    DX_LIST_ERR_ADDBEFORE_PRED_LOCK = 0x15004,  /* add before: predecessor not lockable */
    DX_LIST_ERR_ADDBEFORE_LOCK = 0x15006,       /* add before: header not lockable */
    DX_LIST_ERR_ADDAFTER_REF_LOCK = 0x15007,    /* add after: reference element not lockable */
    DX_LIST_ERR_ADDAFTER_LOCK = 0x15009,        /* add after: header not lockable */
    DX_LIST_ERR_ADDLAST_LAST_LOCK = 0x1500A,    /* add last: last element not lockable */
    DX_LIST_ERR_ADDLAST_LOCK = 0x1500B,         /* add last: header not lockable */
    DX_LIST_ERR_ID_PRESENT = 0x1500C,           /* DX_ListAddPermission: identifier present */
    DX_LIST_ERR_ADDAFTER_SORTED = 0x1500D,      /* add after on a sorted list */
    DX_LIST_ERR_ADDBEFORE_SORTED = 0x15010,     /* add before on a sorted list */
    DX_LIST_ERR_ADDLAST_SORTED = 0x15013,       /* add last on a sorted list */
    DX_LIST_ERR_ADDSORT = 0x15014,              /* ordered insert: lock failure */
    DX_LIST_ERR_CHANGEDATA_LOCK = 0x15015,      /* change data: lock failure */
    DX_LIST_ERR_CHANGEDATA_SORTED = 0x15017,    /* change data on a sorted list */
    DX_LIST_ERR_ELEMENT_LOCK = 0x15018,         /* element: lock failure */
    DX_LIST_ERR_ELEMENT_NO_MEMORY = 0x15019,    /* element: no memory */
    DX_LIST_ERR_ELEMENT_HEADER = 0x1501A,       /* element: header or size failure */
    DX_LIST_ERR_UPDATE_LOCK = 0x1501B,          /* update current: lock failure */
    DX_LIST_ERR_UPDATE_REFUSED = 0x1501C,       /* update current: sorted list or deleted current */
    DX_LIST_END = 0x15020,                      /* end of list: no element there */
    DX_LIST_ERR_FIND_LOCK = 0x15021,            /* find: header lock failure */
    DX_LIST_ERR_VALUE_LOCK = 0x15022,           /* value query: header lock failure */
    DX_LIST_ERR_NEXT_LOCK = 0x15023,            /* next or current: header lock failure */
    DX_LIST_ERR_NEXT_ELEMENT_LOCK = 0x15024,    /* next or current: element lock failure */
    DX_LIST_ERR_FIRST_LOCK = 0x15025,           /* first: header lock failure */
    DX_LIST_ERR_FIRST_ELEMENT_LOCK = 0x15026,   /* first: element lock failure */
    DX_LIST_ERR_GET_LOCK = 0x15027,             /* get: element lock failure */
    DX_LIST_ERR_CMPID_LOCK = 0x1502A,           /* identifier comparison: header lock failure */
    DX_LIST_ERR_CMPCELL_LOCK = 0x1502B,         /* cell comparison: header lock failure */
    DX_LIST_ERR_PREV_LOCK = 0x1502C,            /* previous: lock failure */
    DX_LIST_ERR_LAST_LOCK = 0x1502D,            /* last: lock failure */
    DX_LIST_ERR_PRIORITY_LOCK = 0x1502E,        /* priority get: lock failure */
    DX_LIST_ERR_NO_LIST = 0x15040,              /* destroy: no list */
    DX_LIST_ERR_CREATE_NO_MEMORY = 0x15041,     /* create: no memory */
    DX_LIST_ERR_CREATE_ID_SIZE = 0x15042,       /* create: identifier size 0 */
    DX_LIST_ERR_TEXT = 0x15043,                 /* text to list: separator out of place, or a non-digit in a number */
    DX_LIST_ERR_FLAG_NOT_ALLOWED = 0x15044,     /* set flag: flag or value not allowed */
    DX_LIST_ERR_FLAG_LOCK = 0x15045,            /* set flag: header lock failure */
    DX_LIST_ERR_CMPFCT_LOCK = 0x15046,          /* change compare functions: header lock failure */
    DX_LIST_ERR_COMPARE_LOCK = 0x1504A,         /* compare: lock failure */
    DX_LIST_ERR_MEMBER = 0x15050,               /* member: lock failure */
    DX_LIST_ERR_ALLOC_SELECTOR = 0x1505A,       /* scratch buffer: bad selector */
    DX_LIST_ERR_ALLOC_NO_MEMORY = 0x1505B,      /* scratch buffer: no memory */
    DX_LIST_ERR_TYPE_LOCK = 0x15060,            /* verify type: lock failure */
    DX_LIST_ERR_TYPE_DIFFERS = 0x15061,         /* verify type: lists differ */
    DX_LIST_ERR_SELECTION_LOCK = 0x1506A,       /* selection: source lock failure */
    DX_LIST_ERR_MERGE_LOCK = 0x1506B,           /* merge: source lock failure */
    DX_LIST_ERR_INCLUDE_LOCK = 0x15070,         /* include: lock failure */
    DX_LIST_ERR_DELETEALL_LOCK = 0x1507A,       /* delete all: lock failure */
    DX_LIST_ERR_DELETEFROM_LOCK = 0x1507B,      /* delete from: lock failure */
    DX_LIST_ERR_DELETE_LOCK = 0x1507C,          /* delete current: header lock failure */
    DX_LIST_ERR_DELETE_DELETED = 0x1507D,       /* delete current: already deleted */
    DX_LIST_STORE_END = 0x15084,                /* read-record: no more records (success for DX_ListFileRead) */
    DX_LIST_ERR_WRITE_ARGUMENT = 0x15086,       /* list write: list, descriptor or a required function missing */
    DX_LIST_ERR_WRITE_MODE = 0x15087,           /* list write: mode other than 2 or 4 */
    DX_LIST_ERR_READ_ARGUMENT = 0x15088,        /* list read: descriptor or a required function missing */
    DX_LIST_ERR_NOT_FOUND = 0x15090,            /* not found */
    DX_LIST_ERR_SORT_LOCK = 0x150A0,            /* sort or sortedness test: lock failure */
    DX_LIST_ERR_PARTITION_LOCK_1 = 0x150A1,     /* sort: element lock failures inside a partition, */
    DX_LIST_ERR_PARTITION_LOCK_2 = 0x150A2,     /* one code per place an element is locked */
    DX_LIST_ERR_PARTITION_LOCK_3 = 0x150A3,
    DX_LIST_ERR_PARTITION_LOCK_4 = 0x150A4,
    DX_LIST_ERR_PARTITION_LOCK_5 = 0x150A5,
    DX_LIST_ERR_PARTITION_LOCK_6 = 0x150A6,
    DX_LIST_ERR_PARTITION_LOCK_7 = 0x150A7,
    DX_LIST_ERR_SORT_REFUSED = 0x150AD          /* sort refused: string list, or sorted list with functions */
};

/* Compares a and b over size bytes: 0 when equal, negative when a sorts first. */
typedef S32 (*DX_LIST_CMPFCT)(const void *a, const void *b, U32 size);

/* Selection predicate: non-zero selects the element (id, data) of list. */
typedef U32 (*DX_LIST_SELECTFCT)(HLIST list, const void *id, const void *data, void *argument);

/* ---- Creation and release ------------------------------------------------ */

/* idCompare / dataCompare may be null: DX_MemStrnCmp for string lists, else DX_MemCmp. */
RQ_API U32 DX_ListCreate(HLIST *list, U32 idSize, U32 dataSize, U32 flags, DX_LIST_CMPFCT idCompare, DX_LIST_CMPFCT dataCompare) RQ_NOEXCEPT;
RQ_API U32 DX_ListDestroy(HLIST *list) RQ_NOEXCEPT;
RQ_API U32 DX_ListDeleteAll(HLIST list) RQ_NOEXCEPT;
/* A scratch buffer one byte longer than the data (DX_LIST_ALLOC_DATA) or identifier
 * (DX_LIST_ALLOC_ID) size; *address may be null.  Freed with DX_ListFree. */
RQ_API U32 DX_ListAlloc(HLIST list, RQHANDLE *handle, void **address, U32 which) RQ_NOEXCEPT;
RQ_API U32 DX_ListFree(RQHANDLE handle) RQ_NOEXCEPT;
RQ_API U32 DX_ListCreateElement(HLIST list, RQHANDLE *element, const void *id, const void *data, RQHANDLE next) RQ_NOEXCEPT;

/* ---- Adding (never moves the current position) --------------------------- */

RQ_API U32 DX_ListAddPermission(HLIST list, const void *id) RQ_NOEXCEPT;
RQ_API U32 DX_ListAddFirst(HLIST list, const void *id, const void *data) RQ_NOEXCEPT;
RQ_API U32 DX_ListAddLast(HLIST list, const void *id, const void *data) RQ_NOEXCEPT;
RQ_API U32 DX_ListAlwaysAddLast(HLIST list, const void *id, const void *data) RQ_NOEXCEPT;
RQ_API U32 DX_ListAddTo(HLIST list, const void *id, const void *data) RQ_NOEXCEPT;
RQ_API U32 DX_ListAddBefore(HLIST list, const void *refId, const void *refData, const void *id, const void *data) RQ_NOEXCEPT;
RQ_API U32 DX_ListAlwaysAddBefore(HLIST list, const void *refId, const void *refData, const void *id, const void *data) RQ_NOEXCEPT;
RQ_API U32 DX_ListAddAfter(HLIST list, const void *refId, const void *refData, const void *id, const void *data) RQ_NOEXCEPT;
RQ_API U32 DX_ListAlwaysAddAfter(HLIST list, const void *refId, const void *refData, const void *id, const void *data) RQ_NOEXCEPT;

/* ---- Walking: DX_LIST_END when there is no element there ------------------ */

RQ_API U32 DX_ListGetFirst(HLIST list, void *idOut, void *dataOut) RQ_NOEXCEPT;
RQ_API U32 DX_ListGetNext(HLIST list, void *idOut, void *dataOut) RQ_NOEXCEPT;
RQ_API U32 DX_ListGetCurrent(HLIST list, void *idOut, void *dataOut) RQ_NOEXCEPT;
RQ_API U32 DX_ListGetPrev(HLIST list, void *idOut, void *dataOut) RQ_NOEXCEPT;
RQ_API U32 DX_ListGetLast(HLIST list, void *idOut, void *dataOut) RQ_NOEXCEPT;

/* ---- Retrieval by identifier ---------------------------------------------- */

/* refData null: match on the identifier alone.  before and found are optional. */
RQ_API U32 DX_ListFind(HLIST list, const void *id, const void *refData, RQHANDLE *before, RQHANDLE *found) RQ_NOEXCEPT;
RQ_API U32 DX_ListAlwaysGet(HLIST list, const void *id, void *dataOut) RQ_NOEXCEPT;
RQ_API U32 DX_ListPriorityGet(HLIST list, const void *id, void *dataOut) RQ_NOEXCEPT;
RQ_API U32 DX_ListGet(HLIST list, const void *id, void *dataOut) RQ_NOEXCEPT;

/* ---- Data and identifiers -------------------------------------------------- */

RQ_API U32 DX_ListSetData(HLIST list, void *element, const void *id, const void *data) RQ_NOEXCEPT;
RQ_API U32 DX_ListGetData(HLIST list, void *idOut, void *dataOut, const void *element) RQ_NOEXCEPT;
RQ_API U32 DX_ListCopyData(HLIST list, void *destination, const void *source) RQ_NOEXCEPT;
RQ_API U32 DX_ListCopyId(HLIST list, void *destination, const void *source) RQ_NOEXCEPT;
RQ_API U32 DX_ListGetIdPtr(HLIST list, const void *element, void **idAddress) RQ_NOEXCEPT;
/* err may be null. */
RQ_API S32 DX_ListCmpId(HLIST list, const void *a, const void *b, U32 *err) RQ_NOEXCEPT;
RQ_API U32 DX_ListZeroId(HLIST list, void *id) RQ_NOEXCEPT;
RQ_API U32 DX_ListGetValue(HLIST list, U32 *out, U32 which) RQ_NOEXCEPT;
RQ_API U32 DX_ListGetElemNum(HLIST list, U32 *out) RQ_NOEXCEPT;
RQ_API U32 DX_ListGetDataSize(HLIST list, U32 *out) RQ_NOEXCEPT;
RQ_API U32 DX_ListGetFlags(HLIST list, U32 *out) RQ_NOEXCEPT;
RQ_API U32 DX_ListGetIdSize(HLIST list, U32 *out) RQ_NOEXCEPT;
RQ_API U32 DX_ListGetElemIdSize(HLIST list, U32 *out, const void *id) RQ_NOEXCEPT;
RQ_API U32 DX_ListGetElemDataSize(HLIST list, U32 *out, const void *data) RQ_NOEXCEPT;
RQ_API U32 DX_ListChangeData(HLIST list, const void *id, const void *refData, const void *newData) RQ_NOEXCEPT;
RQ_API U32 DX_ListUpdateCurrent(HLIST list, const void *id, const void *data) RQ_NOEXCEPT;
RQ_API U32 DX_ListForceUpdateCurrent(HLIST list, const void *id, const void *data) RQ_NOEXCEPT;

/* ---- Deleting ----------------------------------------------------------------- */

RQ_API U32 DX_ListDeleteCurrent(HLIST list) RQ_NOEXCEPT;
RQ_API U32 DX_ListDeleteFrom(HLIST list, const void *id, const void *refData) RQ_NOEXCEPT;

/* ---- Flags and types ---------------------------------------------------------- */

RQ_API U32 DX_ListSetFlag(HLIST list, U32 flag, U8 on) RQ_NOEXCEPT;
/* Non-zero when every bit of flags is set; err may be null. */
RQ_API U32 DX_ListFlagDetect(HLIST list, U32 flags, U32 *err) RQ_NOEXCEPT;
RQ_API U32 DX_ListVerifyType(HLIST a, HLIST b) RQ_NOEXCEPT;

/* ---- Ordering, comparison and selection ---------------------------------------- */

RQ_API S32 DX_MemS16Cmp(const void *a, const void *b, U32 size) RQ_NOEXCEPT;
RQ_API S32 DX_MemS32Cmp(const void *a, const void *b, U32 size) RQ_NOEXCEPT;
/* Identifiers, then (only if equal and both data pointers are given) data; err may be null. */
RQ_API S32 DX_ListCmpCell(HLIST list, const void *idA, const void *dataA, const void *idB, const void *dataB, U32 *err) RQ_NOEXCEPT;
RQ_API U32 DX_ListAlwaysTrueFct(HLIST list, const void *id, const void *data, void *argument) RQ_NOEXCEPT;
/* argument: the identifier to select. */
RQ_API U32 DX_ListIdCmpFct(HLIST list, const void *id, const void *data, void *argument) RQ_NOEXCEPT;
RQ_API U32 DX_ListAddSort(HLIST list, const void *id, const void *data) RQ_NOEXCEPT;
RQ_API U32 DX_ListCompare(HLIST a, HLIST b, S32 *result) RQ_NOEXCEPT;
RQ_API U32 DX_ListMember(HLIST list, const void *id, const void *data, U32 *count) RQ_NOEXCEPT;
RQ_API U32 DX_ListInclude(HLIST a, HLIST b, U32 *result) RQ_NOEXCEPT;
RQ_API U32 DX_ListCompareAsSet(HLIST a, HLIST b, U32 *equal) RQ_NOEXCEPT;
RQ_API U32 DX_ListMergeSelect(HLIST destination, HLIST source, DX_LIST_SELECTFCT predicate, void *argument) RQ_NOEXCEPT;
RQ_API U32 DX_ListMerge(HLIST destination, HLIST source) RQ_NOEXCEPT;
RQ_API U32 DX_ListGetSelection(HLIST *result, HLIST source, DX_LIST_SELECTFCT predicate, void *argument) RQ_NOEXCEPT;
RQ_API U32 DX_ListCopy(HLIST *result, HLIST source) RQ_NOEXCEPT;
RQ_API U32 DX_ListGetIdSelection(HLIST *result, HLIST source, const void *id) RQ_NOEXCEPT;
RQ_API U32 DX_ListChangeCmpFct(HLIST list, DX_LIST_CMPFCT idCompare, DX_LIST_CMPFCT dataCompare) RQ_NOEXCEPT;
RQ_API U32 DX_ListQuickSort(HLIST list, DX_LIST_CMPFCT idCompare, DX_LIST_CMPFCT dataCompare) RQ_NOEXCEPT;
RQ_API U32 DX_ListIsSorted(HLIST list, DX_LIST_CMPFCT idCompare, DX_LIST_CMPFCT dataCompare, U32 *sorted) RQ_NOEXCEPT;

/* ---- List stores and lists from text ------------------------------------------- */

/* Open modes passed to a store's open function. */
#define DX_LIST_STORE_READ 1u
#define DX_LIST_STORE_WRITE 2u  /* DX_ListFileWrite accepts 2 and 4 and passes them on */
#define DX_LIST_STORE_APPEND 4u

/* Field types of DX_ListCreateFromStr. */
#define DX_LIST_FIELD_TEXT 1u
#define DX_LIST_FIELD_NUMBER 2u  /* stored as a U32 */

/* A caller's store: the record layout is wholly the business of these
 * functions; the list hands them one identifier and one data item of its
 * declared sizes per element.  readRecord returns DX_LIST_STORE_END when
 * there are no more records. */
typedef struct DX_LIST_STORE {
    void *context;
    U32 (*open)(void *context, U32 mode);
    U32 (*close)(void *context);
    U32 (*readRecord)(void *context, void *id, U32 idSize, void *data, U32 dataSize);
    U32 (*writeRecord)(void *context, const void *id, U32 idSize, const void *data, U32 dataSize);
} DX_LIST_STORE;

/* Walks the list from its first element (moving its current position) and
 * writes every element; close is not called after a failing step.  The
 * argument check looks at readRecord, not writeRecord. */
RQ_API U32 DX_ListFileWrite(HLIST list, const DX_LIST_STORE *store, U32 mode) RQ_NOEXCEPT;
/* Opens with mode 1 and appends every record with DX_ListAddLast until
 * DX_LIST_STORE_END; records added before a failure stay in the list.
 * The list argument is not checked here: a bad list fails the first add. */
RQ_API U32 DX_ListFileRead(HLIST list, const DX_LIST_STORE *store) RQ_NOEXCEPT;
/* Builds a list from "id<field>data<record>id<field>data..." (or "id<record>id..."
 * when dataSize is 0), parsing text in place: separators become NULs.  On a
 * failure after creation the list is left with the records added so far and
 * the caller destroys it.  A number field that does not convert is added with
 * the value read up to the bad character. */
RQ_API U32 DX_ListCreateFromStr(HLIST *list, U16 idType, U32 idSize, U16 dataType, U32 dataSize, U32 flags, char *text, char recordSeparator, char fieldSeparator) RQ_NOEXCEPT;
/* Decimal, or hexadecimal only when text[0] is NUL and text[1] is 'x' or 'X'
 * (digits from text[2]): so "0x1F" is refused and "\0x1F" is 31.  An empty
 * text must therefore have one more readable byte after its NUL.  Overflow wraps. */
RQ_API U32 FromStrToU32(U32 *value, const char *text) RQ_NOEXCEPT;
/* "A.01.06", "", 65, 1, 5; every pointer may be null; always 0.  name and
 * version need room for 1 and 8 bytes. */
RQ_API U32 DX_ListGetVersion(U32 *letter, U32 *major, U32 *minor, char *name, char *version) RQ_NOEXCEPT;

/* ---- Byte and text helpers (no list) -------------------------------------------- */

RQ_API S32 DX_MemCmp(const void *a, const void *b, U32 n) RQ_NOEXCEPT;
RQ_API S32 DX_MemStrnCmp(const void *a, const void *b, U32 n) RQ_NOEXCEPT;
RQ_API void DX_MemCopy(void *destination, const void *source, U32 n) RQ_NOEXCEPT;
RQ_API void DX_MemSet(void *destination, U8 byte, U32 n) RQ_NOEXCEPT;
/* Copies up to n bytes with the NUL, zero-fills the rest; always terminated within n. */
RQ_API void DX_MemStrnCopy(void *destination, const void *source, U32 n) RQ_NOEXCEPT;
/* n: the size of destination. */
RQ_API void DX_MemStrnCat(char *destination, const char *source, U32 n) RQ_NOEXCEPT;
RQ_API U32 DX_MemStrCharIsIn(char c, const char *set) RQ_NOEXCEPT;
RQ_API char *DX_MemStrCopyUntil(char *destination, const char *source, const char *set) RQ_NOEXCEPT;
RQ_API char *DX_MemStrnCopyUntil(char *destination, const char *source, U32 n, const char *set) RQ_NOEXCEPT;
RQ_API char *DX_MemStrSkip(const char *text, const char *set) RQ_NOEXCEPT;
RQ_API char *DX_MemStrSkipTrailling(char *text, const char *set) RQ_NOEXCEPT;

RQ_END_DECLS

#endif
