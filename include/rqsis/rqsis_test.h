/*
 * rqsis test interface: live-block accounting and allocation-failure
 * injection.  Used by the test suite and the benchmarks only.
 */
#ifndef RQSIS_TEST_H
#define RQSIS_TEST_H

#include "rqsis.h"
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Blocks and bytes currently live in the accounting allocator. */
SIS_API void SIS_TestLiveGet(uint64_t *blocks, uint64_t *bytes) SIS_NOEXCEPT;

/* One line per live block: address, size, tag and line.  Returns the count. */
SIS_API uint64_t SIS_TestLiveReport(FILE *out) SIS_NOEXCEPT;

/* Let the next `succeed` allocations through, then fail exactly one.
 * A negative value stops failing.  Applies to the calling thread only, so
 * that a sweep in one test thread never fails another thread's work. */
SIS_API void SIS_TestFailAfter(long succeed) SIS_NOEXCEPT;

/* Non-zero once the injected failure has been handed out. */
SIS_API int SIS_TestFailFired(void) SIS_NOEXCEPT;

/* Work done by the calling thread so far, for tests that prove that an
 * operation grows linearly without timing it: the calls into the allocator
 * (allocations, reallocations, copies and frees of a block) and the steps
 * that the libraries above report with SIS_TestStepsAdd.  Either pointer may
 * be null. */
SIS_API void SIS_TestWorkGet(uint64_t *allocatorCalls, uint64_t *steps) SIS_NOEXCEPT;

/* Adds to the calling thread's step count.  rqcore reports here the links
 * that its list walks follow, once per walk, so that a walk that an input
 * can make long shows in the count. */
SIS_API void SIS_TestStepsAdd(uint64_t steps) SIS_NOEXCEPT;

/* How many times SIS_InitBegin has run without a matching SIS_InitEnd. */
SIS_API uint32_t SIS_TestInitDepth(void) SIS_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif
