/* Preloaded into a run: the ZYN_FAIL_MALLOC_AT-th call of malloc fails (counted over all
 * threads); ZYN_FAIL_MALLOC_AT=0 only counts and prints the count at the end. */
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

extern void* __libc_malloc(size_t size);

static atomic_long S_calls;
static long S_failAt = -1;

static void sPrintCount(void) {
  char line[64];
  int length = snprintf(line, sizeof line, "malloc calls %ld\n", atomic_load(&S_calls));
  if (write(2, line, (size_t)length) < 0) return;
}

__attribute__((constructor)) static void sStart(void) {
  char const* at = getenv("ZYN_FAIL_MALLOC_AT");
  S_failAt = at != NULL ? atol(at) : -1;
  if (S_failAt == 0) atexit(sPrintCount);
}

void* malloc(size_t size) {
  long call = atomic_fetch_add(&S_calls, 1) + 1;
  if (call == S_failAt) return NULL;
  return __libc_malloc(size);
}
