/* Laid before a program (LD_PRELOAD): the allocation numbered FAIL_AT, counted from the moment
 * at which the program sets its handler of such failures, finds no memory; FAIL_COUNT says how
 * many from it on do so (default 1). With FAIL_AT=0 none fails, and the number of all is
 * written to standard error in the end. */
#include <errno.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* old, size_t size);
typedef void (*Handler)(void);
Handler _ZSt15get_new_handlerv(void) __attribute__((weak));

static atomic_long calls;
static long failAt = -1;
static long failCount = 1;

static int Fails(void) {
  if (failAt < 0 || _ZSt15get_new_handlerv == NULL || _ZSt15get_new_handlerv() == NULL) return 0;
  const long number = atomic_fetch_add(&calls, 1) + 1;
  if (failAt == 0 || number < failAt || number >= failAt + failCount) return 0;
  errno = ENOMEM;
  return 1;
}

void* malloc(size_t size) { return Fails() ? NULL : __libc_malloc(size); }
void* calloc(size_t count, size_t size) { return Fails() ? NULL : __libc_calloc(count, size); }
void* realloc(void* old, size_t size) { return Fails() ? NULL : __libc_realloc(old, size); }

__attribute__((constructor)) static void Begin(void) {
  const char* const at = getenv("FAIL_AT");
  const char* const count = getenv("FAIL_COUNT");
  if (count != NULL) failCount = atol(count);
  if (at != NULL) failAt = atol(at);
}

__attribute__((destructor)) static void End(void) {
  if (failAt == 0) fprintf(stderr, "allocations: %ld\n", atomic_load(&calls));
}
