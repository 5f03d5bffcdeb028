/* A whole service through the C API alone, against the test kit: the robot, a group, the agent,
 * the conversation and its unread count, a rating, the desk's end; and the C layer's answers to
 * bad arguments. Exits 0 when everything held, else prints what did not. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "QuorCustomerService/quor_cs.h"
#include "QuorCustomerService/quor_cs_kit.h"
#include "check.h"

/* What the app's screen keeps. */
typedef struct screen {
  char states[512]; /* "Connecting Connected Robot ..." */
  char lines[2048]; /* "Robot:Hi ...|Customer:..." */
  char first_group[64];
  char last_dialog[64];
  int company_in_config;
  uint64_t unread;
  int sent;
  int released;
} screen;

static void append(char* to, size_t size, const char* text) {
  strncat(to, text, size - strlen(to) - 1);
}

static void on_state_changed(void* user, const quor_cs_status* status) {
  screen* s = user;
  append(s->states, sizeof s->states, quor_cs_state_name(status->state));
  append(s->states, sizeof s->states, " ");
  if (status->state == QUOR_CS_STATE_CHOOSING_GROUP && status->group_count > 0)
    snprintf(s->first_group, sizeof s->first_group, "%s", status->groups[0].id);
  if (status->config_json && strstr(status->config_json, "\"companyName\":\"Quor Shop\""))
    s->company_in_config = 1;
}

static void on_rating_requested(void* user, const char* dialog_id) {
  screen* s = user;
  snprintf(s->last_dialog, sizeof s->last_dialog, "%s", dialog_id ? dialog_id : "");
}

static void on_message(void* user, const quor_cs_message* message) {
  static const char* authors[] = {"Customer", "Robot", "Agent", "Notice"};
  screen* s = user;
  append(s->lines, sizeof s->lines, authors[message->author]);
  append(s->lines, sizeof s->lines, ":");
  append(s->lines, sizeof s->lines, message->text);
  append(s->lines, sizeof s->lines, "|");
}

static void on_message_delivery(void* user, const quor_cs_message* message) {
  screen* s = user;
  if (message->delivery == QUOR_CS_DELIVERY_SENT && message->message_id != 0) ++s->sent;
}

static void on_unread(void* user, uint64_t unread) { ((screen*)user)->unread = unread; }
static void on_release(void* user) { ((screen*)user)->released = 1; }

/* The app's own main loop: a queue of tasks it runs when it likes. */
typedef struct app_loop {
  quor_cs_task* tasks[256];
  int count;
  int posted;
} app_loop;

static void post_task(void* user, quor_cs_task* task) {
  app_loop* loop = user;
  ++loop->posted;
  if (loop->count < 256) {
    loop->tasks[loop->count++] = task;
  } else {
    quor_cs_drop_task(task);
  }
}

/* Runs the kit's threads and the app's queue until both are quiet. */
static void settle_with(quor_cs_kit* kit, app_loop* loop) {
  int round;
  for (round = 0; round < 50; ++round) {
    int i, count;
    quor_cs_kit_settle(kit);
    count = loop->count;
    if (count == 0) return;
    loop->count = 0;
    for (i = 0; i < count; ++i) quor_cs_run_task(loop->tasks[i]);
  }
}

/* With the app's dispatcher installed, before the kit or after it, the service reports through
 * the app's tasks only. */
static void journey_on_the_apps_loop(int dispatcher_first) {
  app_loop loop;
  screen s;
  quor_cs_observer observer;
  quor_cs_kit* kit;
  quor_cs_service* service;
  memset(&loop, 0, sizeof loop);
  memset(&s, 0, sizeof s);
  memset(&observer, 0, sizeof observer);
  observer.size = sizeof observer;
  if (dispatcher_first) quor_cs_set_dispatcher(post_task, &loop);
  kit = quor_cs_kit_create("{\"serviceType\": 1}", NULL);
  CHECK(kit != NULL);
  if (!kit) return;
  if (!dispatcher_first) quor_cs_set_dispatcher(post_task, &loop);
  observer.user = &s;
  observer.on_state_changed = on_state_changed;
  service = quor_cs_service_create(quor_cs_kit_desk_id(kit), &observer);
  CHECK(quor_cs_service_start(service, NULL, 0) == QUOR_CS_OK);
  quor_cs_kit_settle(kit);
  CHECK(strcmp(s.states, "") == 0); /* nothing before the app ran its tasks */
  settle_with(kit, &loop);
  CHECK(strcmp(s.states, "Connecting Connected Robot ") == 0);
  CHECK(loop.posted > 0);
  quor_cs_service_destroy(service);
  settle_with(kit, &loop);
  quor_cs_set_dispatcher(NULL, NULL);
  quor_cs_kit_destroy(kit);
}

/* A service that destroys itself in its own callback: nothing more is called, and release comes
 * once, after that callback returned. */
typedef struct self_destroying {
  quor_cs_service* service;
  int inside, destroyed, calls_after, released, released_inside;
} self_destroying;

static void destroy_on_message(void* user, const quor_cs_message* message) {
  self_destroying* d = user;
  (void)message;
  if (d->destroyed) {
    ++d->calls_after;
    return;
  }
  d->inside = 1;
  d->destroyed = 1;
  quor_cs_service_destroy(d->service);
  d->inside = 0;
}

static void count_after(void* user, uint64_t unread) {
  self_destroying* d = user;
  (void)unread;
  if (d->destroyed) ++d->calls_after;
}

static void count_release(void* user) {
  self_destroying* d = user;
  ++d->released;
  if (d->inside) d->released_inside = 1;
}

static void a_service_destroyed_in_its_own_callback(void) {
  self_destroying d;
  quor_cs_observer observer;
  quor_cs_kit* kit = quor_cs_kit_create("{\"serviceType\": 1}", NULL);
  CHECK(kit != NULL);
  if (!kit) return;
  memset(&d, 0, sizeof d);
  memset(&observer, 0, sizeof observer);
  observer.size = sizeof observer;
  observer.user = &d;
  observer.on_message = destroy_on_message; /* the greeting; its unread count comes right after */
  observer.on_unread_count_changed = count_after;
  observer.release = count_release;
  d.service = quor_cs_service_create(quor_cs_kit_desk_id(kit), &observer);
  CHECK(quor_cs_service_start(d.service, NULL, 0) == QUOR_CS_OK);
  quor_cs_kit_settle(kit);
  quor_cs_kit_desk_say(kit, "anyone there?");
  quor_cs_kit_settle(kit);
  CHECK(d.destroyed == 1);
  CHECK(d.calls_after == 0);
  CHECK(d.released == 1);
  CHECK(d.released_inside == 0);
  quor_cs_kit_destroy(kit);
}

/* An app compiled against an older, smaller header: its observer ends after on_state_changed
 * and its status after reason. The library reads and writes no byte beyond their sizes, and a
 * size left 0 is refused. */
typedef struct older_observer {
  size_t size;
  void* user;
  void (*on_state_changed)(void* user, const quor_cs_status* status);
} older_observer;
typedef struct older_status {
  size_t size;
  int state;
  int reason;
} older_status;

static void an_app_built_against_smaller_structs(void) {
  screen s;
  older_observer observer;
  struct {
    older_status status;
    unsigned char after[64]; /* what follows the app's struct: never written */
  } held;
  quor_cs_service* service;
  quor_cs_kit* kit = quor_cs_kit_create(NULL, NULL);
  size_t i;
  int untouched = 1;
  CHECK(kit != NULL);
  if (!kit) return;
  memset(&s, 0, sizeof s);
  memset(&observer, 0, sizeof observer);
  observer.user = &s;
  observer.on_state_changed = on_state_changed;
  CHECK(quor_cs_service_create(quor_cs_kit_desk_id(kit), (const quor_cs_observer*)&observer) ==
        NULL); /* size 0 */
  observer.size = sizeof observer;
  service = quor_cs_service_create(quor_cs_kit_desk_id(kit), (const quor_cs_observer*)&observer);
  CHECK(service != NULL);
  if (!service) {
    quor_cs_kit_destroy(kit);
    return;
  }
  CHECK(quor_cs_service_start(service, NULL, 0) == QUOR_CS_OK);
  quor_cs_kit_settle(kit); /* the greeting and its unread count find no callbacks */
  CHECK(strcmp(s.states, "Connecting Connected Robot ") == 0);

  memset(&held, 0x5a, sizeof held);
  held.status.size = 0;
  CHECK(quor_cs_service_status(service, (quor_cs_status*)&held.status) == QUOR_CS_ERROR_ARGUMENT);
  held.status.size = sizeof held.status;
  CHECK(quor_cs_service_status(service, (quor_cs_status*)&held.status) == QUOR_CS_OK);
  CHECK(held.status.size == sizeof held.status);
  CHECK(held.status.state == QUOR_CS_STATE_ROBOT && held.status.reason == QUOR_CS_REASON_NONE);
  for (i = 0; i < sizeof held.after; ++i) untouched = untouched && held.after[i] == 0x5a;
  CHECK(untouched);
  quor_cs_service_destroy(service);
  quor_cs_kit_destroy(kit);
}

/* The app's life cycle and push in C: a host takes its registration and states (no link needed),
 * and a notification reads without one. */
static void push_and_the_life_cycle(void) {
  char* error = NULL;
  char* desk = NULL;
  char* account = NULL;
  int64_t unread = -1;
  quor_cs_xmpp_host* host;

  CHECK(quor_cs_xmpp_host_create("{\"jid\": \"mei@localhost\", \"password\": \"pw\", \"push\": 3}",
                                 &error) == NULL);
  CHECK(error != NULL && strstr(error, "\"push\" takes an object") != NULL);
  quor_cs_free(error);
  host = quor_cs_xmpp_host_create(
      "{\"jid\": \"mei@localhost\", \"password\": \"pw\", \"push\": {\"service\": "
      "\"push.localhost\", \"token\": \"t1\"}}",
      NULL);
  CHECK(host != NULL);
  if (!host) return;
  CHECK(quor_cs_xmpp_host_app_state(host) == QUOR_CS_APP_FOREGROUND);
  /* Nothing known of a service yet; a NULL desk is refused. */
  CHECK(quor_cs_xmpp_host_last_service_state(host, "shop") == QUOR_CS_STATE_NOT_STARTED);
  CHECK(quor_cs_xmpp_host_last_service_state(host, NULL) == QUOR_CS_ERROR_ARGUMENT);
  CHECK(quor_cs_xmpp_host_set_app_state(host, 3) == QUOR_CS_ERROR_ARGUMENT);
  CHECK(quor_cs_xmpp_host_set_app_state(host, QUOR_CS_APP_BACKGROUND) == QUOR_CS_OK);
  CHECK(quor_cs_xmpp_host_app_state(host) == QUOR_CS_APP_BACKGROUND);
  CHECK(quor_cs_xmpp_host_set_push(host, "push.localhost", NULL, "t2", NULL) == QUOR_CS_OK);
  CHECK(quor_cs_xmpp_host_set_push(NULL, "push.localhost", NULL, "t2", NULL) ==
        QUOR_CS_ERROR_ARGUMENT);
  quor_cs_xmpp_host_destroy(host);

  CHECK(quor_cs_push_notification_read("{\"desk\": \"shop\", \"unread\": 2, \"account\": "
                                       "\"mei@localhost\"}",
                                       &desk, &unread, &account) == QUOR_CS_OK);
  CHECK(desk != NULL && strcmp(desk, "shop") == 0 && unread == 2);
  CHECK(account != NULL && strcmp(account, "mei@localhost") == 0);
  quor_cs_free(desk);
  quor_cs_free(account);
  CHECK(quor_cs_push_notification_read("{\"unread\": 2}", &desk, NULL, NULL) ==
        QUOR_CS_ERROR_ARGUMENT);
  CHECK(desk == NULL);
}

int main(void) {
  char* error = NULL;
  quor_cs_kit* kit;
  quor_cs_service* service;
  quor_cs_observer observer;
  quor_cs_status status = QUOR_CS_STATUS_INIT;
  screen s;
  char* field_errors = NULL;
  char* web_form = NULL;

  CHECK(strcmp(quor_cs_version(), "1.0.0") == 0);
  CHECK(QUOR_CS_C_API_MAJOR == 2);
  push_and_the_life_cycle();
  CHECK(quor_cs_kit_create("{not json", &error) == NULL);
  CHECK(error != NULL && strstr(error, "not a JSON object") != NULL);
  quor_cs_free(error);

  kit = quor_cs_kit_create(
      "{\"evaluation\": {\"askAfterAgentReplies\": 1}, \"end\": {\"afterEvaluation\": true}}",
      &error);
  CHECK(kit != NULL && error == NULL);
  if (!kit) return 1;
  /* One kit or host at a time: a second would take the first's services from under them. */
  CHECK(quor_cs_kit_create(NULL, &error) == NULL);
  CHECK(error != NULL && strstr(error, "another kit or host") != NULL);
  quor_cs_free(error);
  error = NULL;

  memset(&s, 0, sizeof s);
  memset(&observer, 0, sizeof observer);
  observer.size = sizeof observer;
  observer.user = &s;
  observer.on_state_changed = on_state_changed;
  observer.on_rating_requested = on_rating_requested;
  observer.on_message = on_message;
  observer.on_message_delivery = on_message_delivery;
  observer.on_unread_count_changed = on_unread;
  observer.release = on_release;
  CHECK(quor_cs_service_create(NULL, &observer) == NULL);
  service = quor_cs_service_create(quor_cs_kit_desk_id(kit), &observer);
  CHECK(service != NULL);
  CHECK(quor_cs_service_create(quor_cs_kit_desk_id(kit), &observer) == NULL); /* one per desk */

  /* Refused before the desk answered; bad arguments are errors, never crashes. */
  CHECK(quor_cs_service_send_text(service, "hello") == QUOR_CS_NOT_CONNECTED);
  CHECK(quor_cs_service_send_text(service, NULL) == QUOR_CS_ERROR_ARGUMENT);
  CHECK(quor_cs_service_start(service, "[1,2]", 0) == QUOR_CS_ERROR_ARGUMENT);
  CHECK(quor_cs_service_ask_for_agent(NULL) == QUOR_CS_ERROR_ARGUMENT);
  CHECK(strcmp(quor_cs_result_name(QUOR_CS_GROUP_NOT_OFFERED), "GroupNotOffered") == 0);
  CHECK(strcmp(quor_cs_result_name(QUOR_CS_ERROR_ARGUMENT), "ErrorArgument") == 0);

  CHECK(quor_cs_service_start(service,
                              "{\"userInfo\": {\"userId\": \"c-7\", \"name\": \"Mei\"}, "
                              "\"requestInfo\": {\"page\": \"orders\"}}",
                              15000) == QUOR_CS_OK);
  quor_cs_kit_settle(kit);
  CHECK(quor_cs_service_status(service, &status) == QUOR_CS_OK);
  CHECK(status.state == QUOR_CS_STATE_ROBOT && status.can_ask_for_agent);
  CHECK(status.config_json != NULL);
  CHECK(s.company_in_config);

  /* Texts nothing could write, or too large to be taken, never go out; retry needs a line. */
  CHECK(quor_cs_service_send_text(service, "caf\xc3") == QUOR_CS_INVALID_TEXT);
  CHECK(quor_cs_service_rate_robot(service, NULL, 1, "\xff") == QUOR_CS_INVALID_TEXT);
  CHECK(quor_cs_service_max_text_bytes(service) == 65536);
  quor_cs_service_set_max_text_bytes(service, 32);
  CHECK(quor_cs_service_send_text(service, "\"\"\"\"\"\"\"\"\"\"\"\"\"\"") == QUOR_CS_TOO_LARGE);
  quor_cs_service_set_max_text_bytes(service, 65536);
  CHECK(quor_cs_service_retry(service, 99) == QUOR_CS_NOT_RETRYABLE);
  CHECK(strcmp(quor_cs_result_name(QUOR_CS_INVALID_TEXT), "InvalidText") == 0);
  quor_cs_kit_settle(kit);
  CHECK(s.sent == 0);

  CHECK(quor_cs_service_send_text(service, "Where is my order?") == QUOR_CS_OK);
  quor_cs_kit_settle(kit);
  CHECK(s.sent == 1);
  CHECK(quor_cs_service_unread_count(service) == 2 && s.unread == 2);
  quor_cs_service_mark_read(service);
  quor_cs_kit_settle(kit);
  CHECK(s.unread == 0);

  CHECK(quor_cs_service_ask_for_agent(service) == QUOR_CS_OK);
  quor_cs_kit_settle(kit);
  CHECK(strcmp(s.first_group, "sales") == 0);
  CHECK(quor_cs_service_choose_group(service, "nobody") == QUOR_CS_GROUP_NOT_OFFERED);
  CHECK(quor_cs_service_choose_group(service, s.first_group) == QUOR_CS_OK);
  quor_cs_kit_settle(kit);
  CHECK(quor_cs_service_leave_message(service, "{\"phone\": \"12\"}", &field_errors, &web_form) ==
        QUOR_CS_INVALID_FORM);
  CHECK(field_errors != NULL && strstr(field_errors, "\"phone\":\"mobile\"") != NULL);
  CHECK(web_form == NULL);
  quor_cs_free(field_errors);
  CHECK(quor_cs_service_send_text(service, "I want to return it") == QUOR_CS_OK);
  quor_cs_kit_settle(kit);
  CHECK(s.last_dialog[0] != '\0');
  CHECK(quor_cs_service_rate_agent(service, NULL, 3, "ok", 1, NULL, NULL) ==
        QUOR_CS_STARS_NOT_OFFERED);
  CHECK(quor_cs_service_rate_agent(service, NULL, 5, "great", 1, NULL, "{\"channel\": \"c\"}") ==
        QUOR_CS_OK);
  quor_cs_kit_settle(kit);

  CHECK(strcmp(s.states, "Connecting Connected Robot ChoosingGroup WaitingForAgent Agent Ended ") ==
        0);
  CHECK(strstr(s.lines,
               "Robot:Hi, I am Ava, the Quor Shop assistant. How can I help?|"
               "Customer:Where is my order?|Robot:Orders ship") != NULL);
  CHECK(strstr(s.lines, "Agent:Hello, this is Kai from Sales. How can I help?|") != NULL);
  CHECK(strstr(s.lines, "Notice:Thank you for contacting Quor Shop. Goodbye!|") != NULL);
  CHECK(quor_cs_service_status(service, &status) == QUOR_CS_OK);
  CHECK(status.state == QUOR_CS_STATE_ENDED && status.reason == QUOR_CS_REASON_DESK_ENDED);

  quor_cs_service_destroy(service);
  CHECK(s.released == 1);
  quor_cs_kit_destroy(kit);

  /* With the kit gone nothing carries a text: refused, never a silent OK. */
  kit = quor_cs_kit_create(NULL, &error);
  CHECK(kit != NULL);
  service = quor_cs_service_create(quor_cs_kit_desk_id(kit), &observer);
  CHECK(service != NULL);
  CHECK(quor_cs_service_start(service, NULL, 0) == QUOR_CS_OK);
  quor_cs_kit_settle(kit);
  quor_cs_kit_destroy(kit);
  CHECK(quor_cs_service_send_text(service, "anyone?") == QUOR_CS_NOT_CONNECTED);
  quor_cs_service_destroy(service);

  journey_on_the_apps_loop(0);
  journey_on_the_apps_loop(1);
  a_service_destroyed_in_its_own_callback();
  an_app_built_against_smaller_structs();
  if (failures)
    fprintf(stderr, "%d checks failed; states: %s\nlines: %s\n", failures, s.states, s.lines);
  return failures ? 1 : 0;
}
