/* A small IM core written in C that carries the library through quor_cs_host_functions: a
 * "server" that confirms sends in order with ids and times, a store, what it showed its app,
 * a desk at the other end, and a way to go offline. Shared by the C tests. */
#ifndef QUOR_CS_TEST_C_CORE_H
#define QUOR_CS_TEST_C_CORE_H

#include "QuorCustomerService/quor_cs.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct c_core c_core;

/* The desk received a message from the customer (on the thread that pumps). */
typedef void (*c_core_desk_fn)(void* user, c_core* core, const char* object_name, const char* body);

/* Installs the core as the library's host; `desk` answers what the customer sends. */
c_core* c_core_create(const char* desk_id, c_core_desk_fn desk, void* desk_user);
/* Uninstalls the host and frees the core. */
void c_core_destroy(c_core* core);
quor_cs_host* c_core_host(c_core* core);

/* The desk sends the customer a message: delivered by the next pump, or kept while offline. */
void c_core_desk_sends(c_core* core, const char* object_name, const char* body);
/* Offline keeps the desk's messages; back online, they are delivered with the offline flag. */
void c_core_set_online(c_core* core, int online);
/* The next send made from now on fails with `code`. */
void c_core_fail_next_send(c_core* core, int64_t code);
/* One round of the server: confirms the sends, hands the desk's messages to the library, runs
 * the main queue. Returns how much happened (0: quiet). */
int c_core_pump(c_core* core);

/* What the core saw. */
typedef struct c_core_counts {
  int registered; /* types registered */
  int stored;     /* local messages inserted */
  int shown;      /* messages shown to the app (received or local) */
  int held;       /* received messages the library held */
  char last_shown[256];
} c_core_counts;
c_core_counts c_core_counts_of(c_core* core);

#ifdef __cplusplus
}
#endif

#endif
