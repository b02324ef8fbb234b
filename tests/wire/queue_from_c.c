#include "wire/queue_from_c.h"

#include <stdbool.h>
#include <string.h>

#include "JexHybridSlice/JexPartnerLib.h"

int createQueueInC(const char* name, size_t size, void** handle) {
  PartnerNotificationQueueHandle queue = NULL;
  const bool created = PartnerNotificationQueueCreate(name, size, &queue);
  *handle = queue;
  return created;
}

static void lookAt(const void* notification, QueueContents* found) {
  uint8_t kind = 0;
  memcpy(&kind, notification, sizeof kind);
  if (kind == PARTNER_NOTIFY_IDLE) {
    PartnerIdleNotify idle;
    memcpy(&idle, notification, sizeof idle);
    ++found->idle;
    found->ids += idle.tableId;
  } else if (kind == PARTNER_NOTIFY_DIGEST) {
    PartnerDigestNotify digest;
    memcpy(&digest, notification, sizeof digest);
    ++found->digests;
    found->ids += digest.learnId;
    found->values += digest.valueSize;
  }
}

QueueContents drainQueueInC(void* queue) {
  enum { kAtOnce = 7 };
  QueueContents found = {0, 0, 0, 0};
  void* values[kAtOnce];
  size_t count = 0;
  while ((count = PartnerNotificationQueueTryDequeue(queue, values, kAtOnce)) != 0) {
    for (size_t i = 0; i < count; ++i) lookAt(values[i], &found);
    PartnerNotificationQueueValuesFree(values, count);
  }
  return found;
}

int destroyQueueInC(void* queue) { return PartnerNotificationQueueDestroy(queue); }
