/*
 * rqcore demo: the frame and the list container on a small input.
 *
 * Reads words (from the command line, or a built-in sentence), counts them in
 * a sorted list of string identifiers, prints the counts in order, walks the
 * list deleting the words seen once, and orders what is left by count.
 */
#include "rqcore/rqcore.h"

#include <stdio.h>
#include <string.h>

#define WORD_SIZE 24

typedef struct {
    char word[WORD_SIZE];
    S32 count;
} Entry;

static S32 byCountDescending(const void *a, const void *b, U32 size)
{
    (void)size;
    return DX_MemS32Cmp(b, a, 4);
}

int main(int argc, char **argv)
{
    static const char *sample[] = {"the", "quick", "brown", "fox", "jumps", "over", "the",
                                   "lazy",  "dog",   "the",   "dog", "sleeps"};
    const char **words = argc > 1 ? (const char **)(argv + 1) : sample;
    int count = argc > 1 ? argc - 1 : (int)(sizeof sample / sizeof sample[0]);

    printf("library:%s", GetRqCoreVerID());

    /* Word -> count, kept in order of the words, one element per word. */
    HLIST counts = 0;
    U32 rc = DX_ListCreate(&counts, WORD_SIZE, sizeof(S32), DX_LIST_SORTED | DX_LIST_UNIQUE | DX_LIST_STRING_ID,
                           NULL, DX_MemS32Cmp);
    if (rc != 0) {
        fprintf(stderr, "DX_ListCreate: 0x%X\n", (unsigned)rc);
        return 1;
    }
    for (int i = 0; i < count; ++i) {
        char word[WORD_SIZE];
        S32 n = 0;
        DX_MemStrnCopy(word, words[i], WORD_SIZE);
        if (DX_ListGet(counts, word, &n) == 0) {
            n += 1;
            DX_ListDeleteFrom(counts, word, NULL); /* a sorted list refuses in-place changes */
        } else {
            n = 1;
        }
        DX_ListAddTo(counts, word, &n);
    }

    U32 elements = 0;
    DX_ListGetElemNum(counts, &elements);
    printf("%d words, %u distinct, in order:\n", count, (unsigned)elements);
    char word[WORD_SIZE];
    S32 n;
    for (rc = DX_ListGetFirst(counts, word, &n); rc == 0; rc = DX_ListGetNext(counts, word, &n))
        printf("  %-12s %d\n", word, (int)n);

    /* Walk again, deleting the words seen once: the walk resumes after each
     * deleted element. */
    DX_ListSetFlag(counts, DX_LIST_SORTED, 0);
    for (rc = DX_ListGetFirst(counts, word, &n); rc == 0; rc = DX_ListGetNext(counts, word, &n))
        if (n == 1)
            DX_ListDeleteCurrent(counts);

    /* Re-key what is left by count, largest first.  String data cannot be
     * sorted in place, so a sorted list orders the words as they go in. */
    HLIST ordered = 0;
    rc = DX_ListCreate(&ordered, sizeof(S32), WORD_SIZE, DX_LIST_SORTED | DX_LIST_STRING_DATA,
                       byCountDescending, NULL);
    for (U32 r = DX_ListGetFirst(counts, word, &n); rc == 0 && r == 0; r = DX_ListGetNext(counts, word, &n))
        rc = DX_ListAddTo(ordered, &n, word);
    printf("words seen more than once, most frequent first:\n");
    for (U32 r = DX_ListGetFirst(ordered, &n, word); rc == 0 && r == 0; r = DX_ListGetNext(ordered, &n, word))
        printf("  %-12s %d\n", word, (int)n);

    DX_ListDestroy(&ordered);
    DX_ListDestroy(&counts);
    if (rc != 0) {
        fprintf(stderr, "list operation failed: 0x%X\n", (unsigned)rc);
        return 1;
    }
    return 0;
}
