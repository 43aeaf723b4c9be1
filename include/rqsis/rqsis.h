/*
 * rqsis: the platform layer under rqcore.  An accounting allocator,
 * C-runtime wrappers, critical sections, thread-specific data and process
 * and thread identities, on glibc and POSIX threads.
 *
 * Memory calls take a context (always 0), two reserved words, the caller's
 * source tag, a version text and a line; the allocator keeps the tag and the
 * line of every live block so that a leak names its origin.
 */
#ifndef RQSIS_H
#define RQSIS_H

#include <stddef.h>
#include <stdint.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

#if defined(RQSIS_BUILDING)
#define SIS_API __attribute__((visibility("default")))
#else
#define SIS_API
#endif

#ifdef __cplusplus
extern "C" {
#define SIS_NOEXCEPT noexcept
#else
#define SIS_NOEXCEPT
#endif

typedef uint32_t SIS_STATUS;
typedef uint32_t SIS_TSD_KEY;

/* Room for a pthread mutex on both targets; initialised in place. */
typedef struct SIS_CRITICAL_SECTION {
    union {
        long long align;
        unsigned char bytes[64];
    } u;
} SIS_CRITICAL_SECTION;

SIS_API SIS_STATUS SIS_InitBegin(void *ctx) SIS_NOEXCEPT;
SIS_API SIS_STATUS SIS_InitEnd(void *ctx) SIS_NOEXCEPT;

SIS_API void *SIS_MemMalloc(void *ctx, size_t size, uint32_t r1, uint32_t r2, const char *tag,
                            const char *version, uint32_t line) SIS_NOEXCEPT;
SIS_API void *SIS_MemCalloc(void *ctx, size_t count, size_t size, uint32_t r1, uint32_t r2,
                            const char *tag, const char *version, uint32_t line) SIS_NOEXCEPT;
SIS_API void *SIS_MemRealloc(void *ctx, void *block, size_t size, uint32_t r1, uint32_t r2,
                             const char *tag, const char *version, uint32_t line) SIS_NOEXCEPT;
SIS_API char *SIS_MemStrdup(void *ctx, const char *text, uint32_t r1, uint32_t r2, const char *tag,
                            const char *version, uint32_t line) SIS_NOEXCEPT;
SIS_API SIS_STATUS SIS_MemFree(void *ctx, void *block, uint32_t r1, uint32_t r2, const char *tag,
                               const char *version, uint32_t line) SIS_NOEXCEPT;

SIS_API SIS_STATUS SIS_ThreadTsdAllocKey(SIS_TSD_KEY *key, void (*destructor)(void *)) SIS_NOEXCEPT;
SIS_API SIS_STATUS SIS_ThreadTsdSetValue(SIS_TSD_KEY key, void *value) SIS_NOEXCEPT;
SIS_API SIS_STATUS SIS_ThreadTsdGetValue(SIS_TSD_KEY key, void **value) SIS_NOEXCEPT;
SIS_API SIS_STATUS SIS_ThreadTsdFreeKey(SIS_TSD_KEY *key) SIS_NOEXCEPT;

SIS_API SIS_STATUS SIS_ThreadIdGet(uint32_t *id) SIS_NOEXCEPT;
SIS_API SIS_STATUS SIS_ProcessIdGet(uint32_t *id) SIS_NOEXCEPT;
SIS_API SIS_STATUS SIS_ProcessRealIdGet(uint32_t *id) SIS_NOEXCEPT;

SIS_API SIS_STATUS SIS_SyncCriticalSectionInit(SIS_CRITICAL_SECTION *section) SIS_NOEXCEPT;
SIS_API SIS_STATUS SIS_SyncCriticalSectionEnter(SIS_CRITICAL_SECTION *section) SIS_NOEXCEPT;
SIS_API SIS_STATUS SIS_SyncCriticalSectionLeave(SIS_CRITICAL_SECTION *section) SIS_NOEXCEPT;
SIS_API SIS_STATUS SIS_SyncCriticalSectionUnInit(SIS_CRITICAL_SECTION *section) SIS_NOEXCEPT;

SIS_API int SIS_CrtOpen(const char *path, int flags, int mode) SIS_NOEXCEPT;
SIS_API int64_t SIS_CrtLSeek(int fd, int64_t offset, int whence) SIS_NOEXCEPT;
SIS_API int SIS_CrtStat(const char *path, struct stat *buffer) SIS_NOEXCEPT;
SIS_API int SIS_CrtFStat(int fd, struct stat *buffer) SIS_NOEXCEPT;
SIS_API SIS_STATUS SIS_FileRm(void *ctx, const char *path) SIS_NOEXCEPT;
SIS_API int SIS_CrtSNPrintf(char *buffer, size_t size, const char *format, ...) SIS_NOEXCEPT
    __attribute__((format(printf, 3, 4)));
/* The result is freed with SIS_MemFree. */
SIS_API int SIS_CrtASPrintf(char **result, const char *format, ...) SIS_NOEXCEPT
    __attribute__((format(printf, 2, 3)));
SIS_API char *SIS_CrtCTime(const time_t *when, char *buffer, size_t size) SIS_NOEXCEPT;
SIS_API struct tm *SIS_CrtLocalTime(const time_t *when, struct tm *result) SIS_NOEXCEPT;
SIS_API int SIS_CrtRand(unsigned int *seed) SIS_NOEXCEPT;
SIS_API int SIS_CrtStrCaseCmp(const char *a, const char *b) SIS_NOEXCEPT;
SIS_API char *SIS_CrtStrTok(char *text, const char *delimiters, char **save) SIS_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif
