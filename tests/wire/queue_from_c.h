/* What an application written in C does with a queue. */
#ifndef JEX_TESTS_QUEUE_FROM_C_H
#define JEX_TESTS_QUEUE_FROM_C_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Creates the queue `name` and stores its handle; whether that was reported as done. */
int createQueueInC(const char* name, size_t size, void** handle);

/** What was found in a queue. */
typedef struct QueueContents {
  unsigned idle;
  unsigned digests;
  uint64_t values; /* bytes of digest values */
  uint64_t ids;    /* sum of table and learn ids */
} QueueContents;

/** Takes everything out, looks at it, frees it. */
QueueContents drainQueueInC(void* queue);

int destroyQueueInC(void* queue);

#ifdef __cplusplus
}
#endif
#endif
