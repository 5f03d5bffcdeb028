/* An IM core written in C carries the library (c_core.c): a service reaches the robot, talks,
 * finds no agent, and the greeting is stored and shown. */
#include <string.h>

#include "c_core.h"
#include "check.h"

/* The desk: answers the handshake, the agent request and texts. */
static void desk(void* user, c_core* core, const char* name, const char* body) {
  (void)user, (void)body;
  if (strcmp(name, "KX:CsHs") == 0) {
    c_core_desk_sends(core, "KX:CsHsR",
                      "{\"status\":1,\"data\":{\"serviceType\":3,\"sid\":\"s1\",\"robotName\":"
                      "\"C-bot\",\"robotWelcome\":\"Hi from C\"}}");
  } else if (strcmp(name, "KX:CsCha") == 0) {
    c_core_desk_sends(core, "KX:CsChaR", "{\"code\":200,\"data\":{\"status\":2}}");
  } else if (strcmp(name, "KX:TxtMsg") == 0) {
    c_core_desk_sends(core, "KX:TxtMsg", "{\"content\":\"echo\"}");
  }
}

static void settle(c_core* core) {
  int round;
  for (round = 0; round < 50 && c_core_pump(core); ++round) {
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
  c_core* core;
  c_core_counts counts;
  quor_cs_observer observer;
  quor_cs_service* service;
  quor_cs_status status = QUOR_CS_STATUS_INIT;
  screen s;
  memset(&observer, 0, sizeof observer);
  observer.size = sizeof observer;
  memset(&s, 0, sizeof s);

  CHECK(quor_cs_host_install(NULL) == NULL);
  core = c_core_create("c-desk", desk, NULL);
  CHECK(core != NULL);
  if (!core) return 1;
  /* The module registers its types with the first host of the process. */
  CHECK(c_core_counts_of(core).registered == 10);

  observer.user = &s;
  observer.on_state_changed = on_state;
  observer.on_message = on_message;
  service = quor_cs_service_create("c-desk", &observer);
  CHECK(quor_cs_service_start(service, NULL, 0) == QUOR_CS_OK);
  settle(core);
  CHECK(quor_cs_service_status(service, &status) == QUOR_CS_OK);
  CHECK(status.state == QUOR_CS_STATE_ROBOT);
  counts = c_core_counts_of(core);
  CHECK(counts.stored == 1 && counts.shown == 1 && strstr(counts.last_shown, "Hi from C"));

  CHECK(quor_cs_service_send_text(service, "hello") == QUOR_CS_OK);
  settle(core);
  CHECK(quor_cs_service_ask_for_agent(service) == QUOR_CS_OK);
  settle(core);
  CHECK(quor_cs_service_status(service, &status) == QUOR_CS_OK);
  CHECK(status.state == QUOR_CS_STATE_ROBOT && status.reason == QUOR_CS_REASON_NO_AGENT_AVAILABLE);
  CHECK(strcmp(s.states, "Connecting Connected Robot WaitingForAgent Robot ") == 0);
  CHECK(strcmp(s.lines, "Hi from C|hello|echo|") == 0);
  /* The handshake's and the agent request's answers are the library's; the echo is the app's. */
  CHECK(c_core_counts_of(core).held == 2);

  quor_cs_service_destroy(service);
  c_core_destroy(core);
  if (failures) fprintf(stderr, "%d failed; states: %s lines: %s\n", failures, s.states, s.lines);
  return failures ? 1 : 0;
}
