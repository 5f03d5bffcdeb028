/* An IM core written in C carries the library: every host function is a C callback, the
 * "server" is a queue in this file that confirms sends and lets a tiny desk answer. A service
 * reaches the robot, talks, finds no agent, and the greeting is stored and shown. */
#include <stdio.h>
#include <string.h>

#include "QuorCustomerService/quor_cs.h"
#include "check.h"

/* The host's own state: sends waiting for the server, its store, what it showed. */
typedef struct outgoing {
  char object_name[32];
  char body[512];
  quor_cs_send* send;
} outgoing;

typedef struct core {
  outgoing queue[32];
  int queued;
  int64_t clock;
  int64_t next_id;
  int registered;
  int stored;
  int shown;
  int held_replies;
  char shown_text[256];
  quor_cs_host* host;
} core;

static void host_send(void* user, const char* target, const char* name, const char* body,
                      size_t length, quor_cs_send* handle) {
  core* c = user;
  outgoing* out = &c->queue[c->queued++];
  (void)target;
  snprintf(out->object_name, sizeof out->object_name, "%s", name);
  snprintf(out->body, sizeof out->body, "%.*s", (int)(body ? length : 0), body ? body : "");
  out->send = handle;
}

static int64_t insert_incoming(void* user, const char* target, const char* sender, const char* name,
                               const char* body, size_t length) {
  core* c = user;
  (void)target, (void)sender, (void)name, (void)body, (void)length;
  ++c->stored;
  return c->next_id++;
}

static void deliver_local(void* user, int64_t id, const char* target, const char* name,
                          const char* body, size_t length) {
  core* c = user;
  (void)id, (void)target, (void)name;
  ++c->shown;
  snprintf(c->shown_text, sizeof c->shown_text, "%.*s", (int)length, body ? body : "");
}

static void register_type(void* user, const char* name, uint32_t flag) {
  (void)name, (void)flag;
  ++((core*)user)->registered;
}

/* The desk's answer to what the customer sent, delivered by the "server". */
static void answer(core* c, const outgoing* out) {
  const char* name = NULL;
  const char* body = NULL;
  int held = -1;
  if (strcmp(out->object_name, "KX:CsHs") == 0) {
    name = "KX:CsHsR";
    body =
        "{\"status\":1,\"data\":{\"serviceType\":3,\"sid\":\"s1\",\"robotName\":\"C-bot\","
        "\"robotWelcome\":\"Hi from C\"}}";
  } else if (strcmp(out->object_name, "KX:CsCha") == 0) {
    name = "KX:CsChaR";
    body = "{\"code\":200,\"data\":{\"status\":2}}";
  } else if (strcmp(out->object_name, "KX:TxtMsg") == 0) {
    name = "KX:TxtMsg";
    body = "{\"content\":\"echo\"}";
  }
  if (!name) return;
  CHECK(quor_cs_host_receive(c->host, name, body, strlen(body), "c-desk", "c-desk", ++c->clock, 0,
                             &held) == QUOR_CS_OK);
  if (held == 1) ++c->held_replies;
}

/* The server: confirms each send in order (id and time), then the desk answers it. */
static void pump(core* c) {
  int round;
  for (round = 0; round < 20; ++round) {
    int i, count = c->queued;
    outgoing batch[32];
    memcpy(batch, c->queue, sizeof(outgoing) * (size_t)count);
    c->queued = 0;
    for (i = 0; i < count; ++i) {
      quor_cs_send_succeeded(batch[i].send, c->next_id++, ++c->clock);
      answer(c, &batch[i]);
    }
    if (quor_cs_host_run_main(c->host) == 0 && c->queued == 0) return;
  }
}

typedef struct screen {
  char states[256];
  char lines[512];
} screen;

static void on_state(void* user, const quor_cs_status* status) {
  screen* s = user;
  strncat(s->states, quor_cs_state_name(status->state), sizeof s->states - strlen(s->states) - 2);
  strcat(s->states, " ");
}

static void on_message(void* user, const quor_cs_message* message) {
  screen* s = user;
  strncat(s->lines, message->text, sizeof s->lines - strlen(s->lines) - 2);
  strcat(s->lines, "|");
}

int main(void) {
  core c;
  quor_cs_host_functions functions;
  quor_cs_observer observer;
  quor_cs_service* service;
  quor_cs_status status;
  screen s;
  memset(&c, 0, sizeof c);
  memset(&functions, 0, sizeof functions);
  memset(&observer, 0, sizeof observer);
  memset(&s, 0, sizeof s);
  c.next_id = 1;
  c.clock = 1000;
  functions.user = &c;
  functions.send = host_send;
  functions.insert_incoming = insert_incoming;
  functions.deliver_local = deliver_local;
  functions.register_type = register_type;

  CHECK(quor_cs_host_install(NULL) == NULL);
  c.host = quor_cs_host_install(&functions);
  CHECK(c.host != NULL);
  if (!c.host) return 1;
  /* The module registers its types with the first host of the process. */
  CHECK(c.registered == 10);

  observer.user = &s;
  observer.on_state_changed = on_state;
  observer.on_message = on_message;
  service = quor_cs_service_create("c-desk", &observer);
  CHECK(quor_cs_service_start(service, NULL, 0) == QUOR_CS_OK);
  pump(&c);
  CHECK(quor_cs_service_status(service, &status) == QUOR_CS_OK);
  CHECK(status.state == QUOR_CS_STATE_ROBOT);
  CHECK(c.stored == 1 && c.shown == 1 && strstr(c.shown_text, "Hi from C") != NULL);

  CHECK(quor_cs_service_send_text(service, "hello") == QUOR_CS_OK);
  pump(&c);
  CHECK(quor_cs_service_ask_for_agent(service) == QUOR_CS_OK);
  pump(&c);
  CHECK(quor_cs_service_status(service, &status) == QUOR_CS_OK);
  CHECK(status.state == QUOR_CS_STATE_ROBOT && status.reason == QUOR_CS_REASON_NO_AGENT_AVAILABLE);
  CHECK(strcmp(s.states, "Connecting Connected Robot WaitingForAgent Robot ") == 0);
  CHECK(strcmp(s.lines, "Hi from C|hello|echo|") == 0);
  /* The handshake's and the agent request's answers are the library's; the echo is the app's. */
  CHECK(c.held_replies == 2);

  quor_cs_service_destroy(service);
  pump(&c);
  quor_cs_host_uninstall(c.host);
  if (failures) fprintf(stderr, "%d failed; states: %s lines: %s\n", failures, s.states, s.lines);
  return failures ? 1 : 0;
}
