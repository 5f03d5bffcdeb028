/* The C core: every host function is a C callback; a mutex guards what other threads touch. */
#include "c_core.h"

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { kQueue = 256, kName = 32, kBody = 1024 };

typedef struct item {
  char object_name[kName];
  char body[kBody];
  quor_cs_send* send; /* a send of the customer; NULL for the desk's message */
  int64_t fail_code;  /* the send fails with this code */
  int offline;
} item;

struct c_core {
  pthread_mutex_t mutex;
  char desk_id[64];
  c_core_desk_fn desk;
  void* desk_user;
  item outgoing[kQueue];
  int outgoing_count;
  item incoming[kQueue];
  int incoming_count;
  int online;
  int64_t fail_code;
  int64_t clock;
  int64_t next_id;
  c_core_counts counts;
  quor_cs_host* host;
};

static void fill(item* to, const char* name, const char* body, size_t length) {
  snprintf(to->object_name, sizeof to->object_name, "%s", name);
  snprintf(to->body, sizeof to->body, "%.*s", (int)(body ? length : 0), body ? body : "");
}

static void host_send(void* user, const char* target, const char* name, const char* body,
                      size_t length, quor_cs_send* send) {
  c_core* c = user;
  (void)target;
  pthread_mutex_lock(&c->mutex);
  if (c->outgoing_count < kQueue) {
    item* out = &c->outgoing[c->outgoing_count++];
    fill(out, name, body, length);
    out->send = send;
    out->fail_code = c->fail_code;
    c->fail_code = 0;
    send = NULL;
  }
  pthread_mutex_unlock(&c->mutex);
  if (send) quor_cs_send_failed(send, 30001); /* the server's queue is full */
}

static int64_t insert_incoming(void* user, const char* target, const char* sender, const char* name,
                               const char* body, size_t length) {
  c_core* c = user;
  int64_t id;
  (void)target, (void)sender, (void)name, (void)body, (void)length;
  pthread_mutex_lock(&c->mutex);
  ++c->counts.stored;
  id = c->next_id++;
  pthread_mutex_unlock(&c->mutex);
  return id;
}

static void show(c_core* c, const char* body, size_t length) {
  pthread_mutex_lock(&c->mutex);
  ++c->counts.shown;
  snprintf(c->counts.last_shown, sizeof c->counts.last_shown, "%.*s", (int)length,
           body ? body : "");
  pthread_mutex_unlock(&c->mutex);
}

static void deliver_local(void* user, int64_t id, const char* target, const char* name,
                          const char* body, size_t length) {
  (void)id, (void)target, (void)name;
  show(user, body, length);
}

static void register_type(void* user, const char* name, uint32_t flag) {
  c_core* c = user;
  (void)name, (void)flag;
  pthread_mutex_lock(&c->mutex);
  ++c->counts.registered;
  pthread_mutex_unlock(&c->mutex);
}

c_core* c_core_create(const char* desk_id, c_core_desk_fn desk, void* desk_user) {
  quor_cs_host_functions functions;
  c_core* c = calloc(1, sizeof *c);
  if (!c) return NULL;
  pthread_mutex_init(&c->mutex, NULL);
  snprintf(c->desk_id, sizeof c->desk_id, "%s", desk_id);
  c->desk = desk;
  c->desk_user = desk_user;
  c->online = 1;
  c->clock = 1000;
  c->next_id = 1;
  memset(&functions, 0, sizeof functions);
  functions.size = sizeof functions;
  functions.user = c;
  functions.send = host_send;
  functions.insert_incoming = insert_incoming;
  functions.deliver_local = deliver_local;
  functions.register_type = register_type;
  c->host = quor_cs_host_install(&functions);
  if (!c->host) {
    pthread_mutex_destroy(&c->mutex);
    free(c);
    return NULL;
  }
  return c;
}

void c_core_destroy(c_core* c) {
  if (!c) return;
  while (c_core_pump(c)) {
  }
  quor_cs_host_uninstall(c->host);
  pthread_mutex_destroy(&c->mutex);
  free(c);
}

quor_cs_host* c_core_host(c_core* c) { return c->host; }

void c_core_desk_sends(c_core* c, const char* name, const char* body) {
  pthread_mutex_lock(&c->mutex);
  if (c->incoming_count < kQueue) {
    item* in = &c->incoming[c->incoming_count++];
    fill(in, name, body, strlen(body));
    in->send = NULL;
    in->offline = !c->online;
  }
  pthread_mutex_unlock(&c->mutex);
}

void c_core_set_online(c_core* c, int online) {
  pthread_mutex_lock(&c->mutex);
  c->online = online;
  pthread_mutex_unlock(&c->mutex);
}

void c_core_fail_next_send(c_core* c, int64_t code) {
  pthread_mutex_lock(&c->mutex);
  c->fail_code = code;
  pthread_mutex_unlock(&c->mutex);
}

/* Confirms the sends in order; the desk sees each one that went through. */
static int confirm_sends(c_core* c) {
  item* batch = malloc(sizeof(item) * kQueue);
  int i, count;
  if (!batch) return 0;
  pthread_mutex_lock(&c->mutex);
  count = c->outgoing_count;
  memcpy(batch, c->outgoing, sizeof(item) * (size_t)count);
  c->outgoing_count = 0;
  pthread_mutex_unlock(&c->mutex);
  for (i = 0; i < count; ++i) {
    int64_t id, time;
    if (batch[i].fail_code) {
      quor_cs_send_failed(batch[i].send, batch[i].fail_code);
      continue;
    }
    pthread_mutex_lock(&c->mutex);
    id = c->next_id++;
    time = ++c->clock;
    pthread_mutex_unlock(&c->mutex);
    quor_cs_send_succeeded(batch[i].send, id, time);
    if (c->desk) c->desk(c->desk_user, c, batch[i].object_name, batch[i].body);
  }
  free(batch);
  return count;
}

/* Hands the desk's messages to the library in order; those kept offline wait for online. */
static int deliver_incoming(c_core* c) {
  item* batch = malloc(sizeof(item) * kQueue);
  int i, count = 0;
  if (!batch) return 0;
  pthread_mutex_lock(&c->mutex);
  if (c->online) {
    count = c->incoming_count;
    memcpy(batch, c->incoming, sizeof(item) * (size_t)count);
    c->incoming_count = 0;
  }
  pthread_mutex_unlock(&c->mutex);
  for (i = 0; i < count; ++i) {
    int held = 0;
    int64_t time;
    pthread_mutex_lock(&c->mutex);
    time = ++c->clock;
    pthread_mutex_unlock(&c->mutex);
    quor_cs_host_receive(c->host, batch[i].object_name, batch[i].body, strlen(batch[i].body),
                         c->desk_id, c->desk_id, time, batch[i].offline, &held);
    if (held) {
      pthread_mutex_lock(&c->mutex);
      ++c->counts.held;
      pthread_mutex_unlock(&c->mutex);
    } else {
      show(c, batch[i].body, strlen(batch[i].body));
    }
  }
  free(batch);
  return count;
}

int c_core_pump(c_core* c) {
  int happened = confirm_sends(c);
  happened += deliver_incoming(c);
  happened += (int)quor_cs_host_run_main(c->host);
  return happened;
}

c_core_counts c_core_counts_of(c_core* c) {
  c_core_counts counts;
  pthread_mutex_lock(&c->mutex);
  counts = c->counts;
  pthread_mutex_unlock(&c->mutex);
  return counts;
}
