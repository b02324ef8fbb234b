/* static_address: a partner in C.
 *
 *   static_address PROGRAM-FILE MAC PORT
 *
 * The switch runs programs/l2_switch.json. Frames to MAC leave on PORT only, until SIGINT or
 * SIGTERM ends this program: an entry of table `dmac` says so. The program takes its entry out
 * again.
 */
#define _POSIX_C_SOURCE 200809L

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "JexHybridSlice/JexPartnerLib.h"

enum { kDevice = 1, kMaxPort = 511, kAnswerMs = 5000 };
static const char kProgram[] = "l2_switch";

typedef struct Options {
  const char* program_file;
  uint8_t mac[6];
  uint64_t port;
} Options;

/* ---- plumbing ------------------------------------------------------------------------------- */

static const char kUsage[] = "usage: static_address PROGRAM-FILE MAC PORT\n";

static void must(jx_status_t status, const char* what) {
  if (status == JX_SUCCESS) return;
  const char* text = NULL;
  jx_rt_err_str(status, &text);
  fprintf(stderr, "static_address: %s: %s\n", what, text);
  exit(EXIT_FAILURE);
}

static bool readMac(const char* text, uint8_t mac[6]) {
  int end = 0;
  return sscanf(text, "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx%n", &mac[0], &mac[1], &mac[2], &mac[3],
                &mac[4], &mac[5], &end) == 6 &&
         text[end] == '\0';
}

/* Ends the process if there is nothing to do. */
static Options readOptions(int argc, char** argv) {
  if (argc == 2 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
    printf("%sFrames to MAC leave on PORT (0 to %d) until SIGINT or SIGTERM.\n", kUsage, kMaxPort);
    exit(EXIT_SUCCESS);
  }
  Options options = {0};
  char* end = NULL;
  if (argc == 4) {
    options.program_file = argv[1];
    options.port = strtoul(argv[3], &end, 10);
  }
  if (end == NULL || end == argv[3] || *end != '\0' || options.port > kMaxPort ||
      !readMac(argv[2], options.mac)) {
    fputs(kUsage, stderr);
    exit(2);
  }
  return options;
}

/* A socket must not get the number of a standard descriptor that is closed. */
static void openStandardDescriptors(void) {
  int fd = open("/dev/null", O_RDWR);
  while (fd >= 0 && fd <= STDERR_FILENO) fd = open("/dev/null", O_RDWR);
  close(fd);
}

/* PartnerLibStartup waits for an agent, however long that takes: a thread ends the process then. */
static void* endWhileWaiting(void* signals) {
  int number = 0;
  sigwait(signals, &number);
  _exit(EXIT_SUCCESS);
}

/* ---- the partner ---------------------------------------------------------------------------- */

/* Waits until the agent has handled all that was sent before. */
static bool agentFollows(void) {
  const struct timespec pause = {0, 1000000};
  const uint64_t barrier = PartnerBarrierSend();
  while (PartnerBarrierGetLastComplete() != barrier) {
    if (PartnerGetTimestamp() > barrier + kAnswerMs) return false;
    nanosleep(&pause, NULL);
  }
  return true;
}

/* Directs frames to the address until one of the signals comes. False if the agent does not follow.
 */
static bool direct(const Options* options, const jx_rt_session_hdl* session, jx_rt_target_t target,
                   const sigset_t* signals) {
  const jx_rt_info_hdl* program = NULL;
  const jx_rt_table_hdl* dmac = NULL;
  uint32_t destination = 0, forward = 0, port = 0;
  must(jx_rt_info_get(target.dev_id, kProgram, &program), kProgram);
  must(jx_rt_table_from_name_get(program, "dmac", &dmac), "table dmac");
  must(jx_rt_key_field_id_get(dmac, "ethernet.dst", &destination), "dmac: ethernet.dst");
  must(jx_rt_action_name_to_id(dmac, "forward", &forward), "dmac: forward");
  must(jx_rt_data_field_id_with_action_get(dmac, "port", forward, &port), "dmac: port");

  jx_rt_table_key_hdl* key = NULL;
  jx_rt_table_data_hdl* data = NULL;
  must(jx_rt_table_key_allocate(dmac, &key), "dmac: key");
  must(jx_rt_table_action_data_allocate(dmac, forward, &data), "dmac: data");
  must(jx_rt_key_field_set_value_ptr(key, destination, options->mac, 6), "MAC");
  must(jx_rt_data_field_set_value(data, port, options->port), "PORT");
  must(jx_rt_table_entry_add(dmac, session, &target, 0, key, data), "add to dmac");
  const bool follows = agentFollows();
  if (follows) {
    int number = 0;
    puts("static_address: ready");
    fflush(stdout);
    sigwait(signals, &number);
  } else {
    fprintf(stderr, "static_address: no answer from the agent for %d ms\n", kAnswerMs);
  }
  must(jx_rt_table_entry_del(dmac, session, &target, 0, key), "delete from dmac");
  jx_rt_table_data_deallocate(data);
  jx_rt_table_key_deallocate(key);
  return follows;
}

int main(int argc, char** argv) {
  const Options options = readOptions(argc, argv);
  openStandardDescriptors();
  signal(SIGPIPE, SIG_IGN);
  sigset_t signals; /* taken by sigwait, and blocked in all threads */
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, NULL);
  pthread_t waiter;
  if (pthread_create(&waiter, NULL, endWhileWaiting, &signals) != 0) return EXIT_FAILURE;

  jx_rt_session_hdl* session = NULL;
  must(jx_rt_session_create(&session), "session");
  const char* const files[] = {options.program_file};
  jx_device_profile_t profile = {1, files, 0};
  const jx_rt_target_t target = {kDevice, JX_PIPE_ALL, 0, 0};
  PartnerLibStartup(session, target, JX_DEV_TYPE_ANY, &profile);
  pthread_cancel(waiter);
  pthread_join(waiter, NULL);

  const bool directed = direct(&options, session, target, &signals);
  PartnerLibShutdown(kDevice);
  must(jx_rt_session_destroy(session), "session");
  return directed ? EXIT_SUCCESS : EXIT_FAILURE;
}
