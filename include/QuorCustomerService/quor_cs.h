/* The C API of QuorCustomerService: one stable ABI for C, Swift, Kotlin and Java (JNI), Python
 * (cffi, ctypes), Dart FFI and C#. Plain C99: opaque handles, C types only, error codes instead
 * of exceptions (nothing thrown ever crosses it). Library: libquor_cs (docs/c-api.md).
 *
 * Strings are UTF-8 and NUL-terminated. A string the caller passes is read during the call
 * only. A string the library passes to a callback is valid during that callback only. A string
 * the library returns through an out-parameter (char**) belongs to the caller, who frees it with
 * quor_cs_free(). JSON texts hold one JSON value (an object unless said otherwise).
 *
 * Threads: call the service functions on the app's main thread. Callbacks of an observer run
 * on the main thread: through the dispatcher the app installs with quor_cs_set_dispatcher(),
 * else through the installed host's (the test kit of quor_cs_kit.h runs them when it settles). */
#ifndef QUOR_CS_H
#define QUOR_CS_H

#include <stddef.h>
#include <stdint.h>

/* The C API's functions are exported by libquor_cs; QUOR_CS_C_BUILDING is set while it builds. */
#if defined(_WIN32)
#if defined(QUOR_CS_C_BUILDING)
#define QUOR_CS_C_API __declspec(dllexport)
#else
#define QUOR_CS_C_API __declspec(dllimport)
#endif
#else
#define QUOR_CS_C_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The C API's version: the major changes only with an incompatible change (docs/c-api.md). */
#define QUOR_CS_C_API_MAJOR 2
#define QUOR_CS_C_API_MINOR 0

/* Structs that grow: quor_cs_observer, quor_cs_host_functions and quor_cs_status start with
 * `size`, which the app sets to the struct's size as it was compiled (C's _INIT macros do). The
 * library reads (or, for a status, writes) that many bytes and no more: a struct from an older
 * header lacks the newer members (they count as NULL or 0), and an older library ignores the
 * members it does not know. A size that does not cover the first member after `size` (0, say)
 * is refused: QUOR_CS_ERROR_ARGUMENT, or NULL from a creating function. */
#ifndef __cplusplus
/* C: `quor_cs_observer observer = QUOR_CS_OBSERVER_INIT;` (every other member NULL or 0). C++:
 * `quor_cs_observer observer{}; observer.size = sizeof observer;`. */
#define QUOR_CS_OBSERVER_INIT \
  { .size = sizeof(quor_cs_observer) }
#define QUOR_CS_HOST_FUNCTIONS_INIT \
  { .size = sizeof(quor_cs_host_functions) }
#define QUOR_CS_STATUS_INIT \
  { .size = sizeof(quor_cs_status) }
#endif

/* "1.0.0": the library's version text. Static storage. */
QUOR_CS_C_API const char* quor_cs_version(void);

/* What a call did. 0 to 15 are the session API's own results (nothing was sent unless
 * QUOR_CS_OK); the negative codes are the C layer's. A text argument that is not UTF-8 is
 * refused with QUOR_CS_INVALID_TEXT; a JSON argument that is not UTF-8 does not parse
 * (QUOR_CS_ERROR_ARGUMENT). */
typedef enum quor_cs_result {
  QUOR_CS_OK = 0,
  QUOR_CS_ALREADY_STARTED = 1,    /* start while a service runs */
  QUOR_CS_NOT_CONNECTED = 2,      /* the desk has not answered (or the service is over) */
  QUOR_CS_AGENT_NOT_OFFERED = 3,  /* no agent in this service, or one serves already */
  QUOR_CS_ALREADY_WITH_AGENT = 4, /* an agent serves or is awaited */
  QUOR_CS_BLOCKED = 5,            /* the desk blocked the customer */
  QUOR_CS_NOT_CHOOSING_GROUP = 6, /* no groups were offered */
  QUOR_CS_GROUP_NOT_OFFERED = 7,  /* that group id was not offered */
  QUOR_CS_RATING_NOT_OFFERED = 8, /* the configuration turns this rating off */
  QUOR_CS_NO_DIALOG_TO_RATE = 9,  /* no dialog given and the desk never asked */
  QUOR_CS_STARS_NOT_OFFERED = 10, /* stars not among the evaluation options */
  QUOR_CS_INVALID_FORM = 11,      /* leave-message values fail the form (see field errors) */
  QUOR_CS_EMPTY_TEXT = 12,        /* send_text with "" */
  QUOR_CS_INVALID_TEXT = 13,      /* a text that is not UTF-8 */
  QUOR_CS_TOO_LARGE = 14,         /* send_text over the service's max_text_bytes once encoded */
  QUOR_CS_NOT_RETRYABLE = 15,     /* retry of a line that is not failed or unconfirmed */
  QUOR_CS_FILES_NOT_OFFERED = 16, /* the host carries no files (or not now) */
  QUOR_CS_FILE_UNREADABLE = 17,   /* not a readable, non-empty file */
  QUOR_CS_TYPE_NOT_ACCEPTED = 18, /* a file type outside the accepted types */
  QUOR_CS_NO_SUCH_FILE = 19,      /* no such file transfer on that line */
  QUOR_CS_ERROR_ARGUMENT = -1,    /* a required pointer is NULL, or a JSON text does not parse */
  QUOR_CS_ERROR_MEMORY = -2,      /* memory ran out */
  QUOR_CS_ERROR_INTERNAL = -3,    /* anything else; logged */
  QUOR_CS_ERROR_STATE = -4        /* not now: another host is installed, the handle is gone */
} quor_cs_result;

/* The name of a result ("OK", "NotConnected", "ErrorArgument"); "?" for another value. */
QUOR_CS_C_API const char* quor_cs_result_name(int result);

/* Frees a string the library returned. NULL is ignored. */
QUOR_CS_C_API void quor_cs_free(char* text);

/* ---- The main thread -------------------------------------------------------------------- */

/* One closure of the library, to be run on the main thread. */
typedef struct quor_cs_task quor_cs_task;
/* The app's dispatcher: queues `task` for its main thread (Android's Looper, iOS's main queue,
 * a desktop loop). Called on any thread, never blocking for long. */
typedef void (*quor_cs_post_fn)(void* user, quor_cs_task* task);

/* Installs the app's dispatcher; the library's main-thread work goes through it from then on,
 * whether a kit or host is installed before or after this call.
 * NULL `post` goes back to the installed host's (or the library's own run loop). */
QUOR_CS_C_API void quor_cs_set_dispatcher(quor_cs_post_fn post, void* user);
/* Runs a posted task on the calling (main) thread and frees it. Exactly once per task. */
QUOR_CS_C_API void quor_cs_run_task(quor_cs_task* task);
/* Frees a posted task without running it (a loop shutting down). */
QUOR_CS_C_API void quor_cs_drop_task(quor_cs_task* task);

/* ---- The session API: one service with one desk ---------------------------------------- */

typedef enum quor_cs_state {
  QUOR_CS_STATE_NOT_STARTED = 0,
  QUOR_CS_STATE_CONNECTING = 1,
  QUOR_CS_STATE_CONNECTED = 2,
  QUOR_CS_STATE_ROBOT = 3,
  QUOR_CS_STATE_CHOOSING_GROUP = 4,
  QUOR_CS_STATE_WAITING_FOR_AGENT = 5,
  QUOR_CS_STATE_AGENT = 6,
  QUOR_CS_STATE_ENDED = 7,
  QUOR_CS_STATE_FAILED = 8
} quor_cs_state;

typedef enum quor_cs_reason {
  QUOR_CS_REASON_NONE = 0,
  QUOR_CS_REASON_CONNECTION_FAILED = 1,
  QUOR_CS_REASON_HANDSHAKE_REFUSED = 2,
  QUOR_CS_REASON_TIMEOUT = 3,
  QUOR_CS_REASON_DESK_ENDED = 4,
  QUOR_CS_REASON_BLOCKED = 5,
  QUOR_CS_REASON_NO_AGENT_AVAILABLE = 6,
  QUOR_CS_REASON_STOPPED_BY_APP = 7
} quor_cs_reason;

/* "Connecting", "NoAgentAvailable": the C++ API's names; "?" for another value. */
QUOR_CS_C_API const char* quor_cs_state_name(int state);
QUOR_CS_C_API const char* quor_cs_reason_name(int reason);

/* One group the desk offers. An element of an array: it never grows (new data about groups
 * would come as a new member of quor_cs_status). */
typedef struct quor_cs_group {
  const char* id;
  const char* name; /* "" when the desk gave none */
  int online;
} quor_cs_group;

/* A state change. Strings and groups are valid during the callback, or until the next
 * quor_cs_service_status() call on the same service. */
typedef struct quor_cs_status {
  size_t size; /* sizeof(quor_cs_status) as the app was compiled (QUOR_CS_STATUS_INIT) */
  int state;   /* quor_cs_state */
  int reason;  /* quor_cs_reason */
  int can_ask_for_agent;
  int64_t code;     /* Failed and Ended: the host's or the desk's code */
  const char* text; /* the system's text; "" when none */
  size_t group_count;
  const quor_cs_group* groups; /* ChoosingGroup: the groups offered */
  /* From Connected on: the desk's configuration as a JSON object (companyName, isBlack,
   * robotSessionNoEva, humanSessionNoEva, humanEvaluateItems [{describe, value}],
   * adminTipTime, adminTipWord, userTipTime, userTipWord, evaEntryPoint, evaType,
   * reportResolveStatus, leaveMessageType, disableLocation, leaveMessageWebUrl,
   * leaveMessageNativeInfo [{title, name, type, defaultText, required, verification, max}],
   * announceMsg, announceClickUrl); NULL before. */
  const char* config_json;
} quor_cs_status;

typedef enum quor_cs_author {
  QUOR_CS_AUTHOR_CUSTOMER = 0,
  QUOR_CS_AUTHOR_ROBOT = 1,
  QUOR_CS_AUTHOR_AGENT = 2,
  QUOR_CS_AUTHOR_NOTICE = 3,
  QUOR_CS_AUTHOR_LEAVE_MESSAGE_INVITATION = 4 /* the desk invites a message: show the form */
} quor_cs_author;

typedef enum quor_cs_delivery {
  QUOR_CS_DELIVERY_RECEIVED = 0,
  QUOR_CS_DELIVERY_SENDING = 1,
  QUOR_CS_DELIVERY_SENT = 2,
  QUOR_CS_DELIVERY_FAILED = 3,      /* it cannot have arrived */
  QUOR_CS_DELIVERY_UNCONFIRMED = 4, /* written, may have arrived; sent once more by itself */
  QUOR_CS_DELIVERY_READ = 5         /* sent, and the desk read it */
} quor_cs_delivery;

/* The picture or other file of a line. Strings are valid during the callback. */
typedef struct quor_cs_file {
  const char* name;      /* the sender's: show it, never use it as a path */
  const char* mime_type; /* the sender's; a downloaded file's is what its bytes show */
  uint64_t size;
  uint32_t width; /* pixels, for a picture whose size is known; else 0 */
  uint32_t height;
  const char* url;        /* "" while the customer's file uploads */
  const char* local_path; /* the file sent, or where a download saved it; else "" */
} quor_cs_file;

/* One line of the conversation. Strings are valid during the callback. */
typedef struct quor_cs_message {
  uint64_t sequence; /* 1, 2, 3 ... per service; a delivery update carries its line's */
  int author;        /* quor_cs_author */
  int delivery;      /* quor_cs_delivery */
  const char* text;
  const char* sender_name; /* "" when the desk gave none */
  int64_t message_id;      /* the host's id, 0 when none */
  int64_t sent_time;
  int64_t error_code;       /* Failed, Unconfirmed */
  const quor_cs_file* file; /* a picture or file line (its text ""); NULL for the others */
} quor_cs_message;

/* What a service reports. Every function may be NULL. All run on the main thread, one at a
 * time, in order, and none after quor_cs_service_destroy() returned. A callback may destroy its
 * own service: nothing is called after that, and release comes when that callback returns. */
typedef struct quor_cs_observer {
  size_t size; /* sizeof(quor_cs_observer) as the app was compiled (QUOR_CS_OBSERVER_INIT) */
  void* user;
  void (*on_state_changed)(void* user, const quor_cs_status* status);
  /* The desk asks for a rating of the agent; dialog_id may be NULL. */
  void (*on_rating_requested)(void* user, const char* dialog_id);
  /* The desk's evaluation settings, a JSON object. */
  void (*on_evaluation_settings)(void* user, const char* settings_json);
  /* The outcome of quor_cs_service_leave_message(): sent (message id) or not (error code). */
  void (*on_message_left)(void* user, int sent, int64_t message_id_or_error_code);
  void (*on_message)(void* user, const quor_cs_message* message);
  void (*on_message_delivery)(void* user, const quor_cs_message* message);
  void (*on_unread_count_changed)(void* user, uint64_t unread);
  /* Called once, after the last callback: by quor_cs_service_destroy(), or when the callback
   * that destroyed the service returns. Free `user` here. */
  void (*release)(void* user);
  /* The desk is typing (1) or stopped (0); 0 again when its line arrives and at the end. */
  void (*on_desk_typing)(void* user, int typing);
  /* A file of line `sequence` moves (an upload, or a download), at most about 100 times. */
  void (*on_file_progress)(void* user, uint64_t sequence, uint64_t done, uint64_t total);
  /* quor_cs_service_download_file() ended: `file` with its local_path and checked mime_type,
   * or error_code (the host's) and an empty local_path. */
  void (*on_file_downloaded)(void* user, uint64_t sequence, const quor_cs_file* file,
                             int64_t error_code);
} quor_cs_observer;

typedef struct quor_cs_service quor_cs_service;

/* A service for `desk_id` reporting to `observer` (copied). NULL when an argument is NULL,
 * memory ran out, or a service for `desk_id` exists already (destroy it first: two would share
 * the desk's session and cut across each other's reports). Several services with different
 * desks may run at once. */
QUOR_CS_C_API quor_cs_service* quor_cs_service_create(const char* desk_id,
                                                      const quor_cs_observer* observer);
/* Ends a running service (the desk gets its suspend when it asked for one), calls the
 * observer's release, and frees the handle. NULL is ignored. */
QUOR_CS_C_API void quor_cs_service_destroy(quor_cs_service* service);

/* Sends the handshake. `customer_json` is the customer's information or NULL:
 * {"userInfo": {"userId", "nickName", "loginName", "name", "grade", "gender", "birthday", "age",
 * "profession", "portraitUrl", "province", "city", "memo"}, "contactInfo": {"mobileNo",
 * "email", "address", "QQ", "weibo", "weixin"}, "requestInfo": {"page", "referrer", "enterUrl",
 * "skillId", "listUrl": [...], "define", "productId"}}, every key optional, values strings.
 * `timeout_ms` > 0: no answer in that time ends in Failed(Timeout). */
QUOR_CS_C_API int quor_cs_service_start(quor_cs_service* service, const char* customer_json,
                                        int64_t timeout_ms);
QUOR_CS_C_API int quor_cs_service_ask_for_agent(quor_cs_service* service);
QUOR_CS_C_API int quor_cs_service_choose_group(quor_cs_service* service, const char* group_id);
/* knowledge_id may be NULL (the service's own identifiers are sent). */
QUOR_CS_C_API int quor_cs_service_rate_robot(quor_cs_service* service, const char* knowledge_id,
                                             int resolved, const char* suggestion);
/* dialog_id NULL: the desk's last rating request. suggestion, tags and extra_json (an object
 * merged into the rating) may be NULL; with tags or extra the tagged rating goes out. */
QUOR_CS_C_API int quor_cs_service_rate_agent(quor_cs_service* service, const char* dialog_id,
                                             int32_t stars, const char* suggestion,
                                             uint64_t resolved, const char* tags,
                                             const char* extra_json);
/* Checks `values_json` (an object: field name -> value) against the desk's form and sends it.
 * QUOR_CS_INVALID_FORM: *field_errors_json (when not NULL) gets an object field -> "required",
 * "too long" or the failed check's name. QUOR_CS_OK with *web_form_url set: the desk takes
 * messages on that page and nothing was sent. Both out-strings are the caller's (quor_cs_free);
 * NULL when there is nothing to say. */
QUOR_CS_C_API int quor_cs_service_leave_message(quor_cs_service* service, const char* values_json,
                                                char** field_errors_json, char** web_form_url);
QUOR_CS_C_API int quor_cs_service_end(quor_cs_service* service);
/* A line of text to the robot or agent (from Connected on). Its delivery: Sending, then Sent,
 * Failed, or Unconfirmed (written, not confirmed: sent once more under its id by itself, and
 * Sent when that is confirmed). */
QUOR_CS_C_API int quor_cs_service_send_text(quor_cs_service* service, const char* text);
/* Sends the customer's line `sequence` (failed or unconfirmed) once more under its original
 * id, so that the desk takes it once. QUOR_CS_NOT_RETRYABLE for another line. */
QUOR_CS_C_API int quor_cs_service_retry(quor_cs_service* service, uint64_t sequence);
/* The largest encoded text send_text sends (default 65536 bytes); larger is QUOR_CS_TOO_LARGE. */
QUOR_CS_C_API size_t quor_cs_service_max_text_bytes(const quor_cs_service* service);
QUOR_CS_C_API void quor_cs_service_set_max_text_bytes(quor_cs_service* service, size_t bytes);
QUOR_CS_C_API uint64_t quor_cs_service_unread_count(const quor_cs_service* service);
QUOR_CS_C_API void quor_cs_service_mark_read(quor_cs_service* service);
/* The customer is typing (1, at each change of the input) or left the input (0). The desk hears
 * "typing" at most once per 5 s and "stopped" after 5 s without a keystroke or at a 0; nothing
 * is stored. QUOR_CS_NOT_CONNECTED as for send_text. */
QUOR_CS_C_API int quor_cs_service_set_typing(quor_cs_service* service, int typing);
/* Sends a picture or other file read from `path` as it uploads; `name` (NULL: the path's last
 * part) and `mime_type` (NULL: what the first bytes show) may be NULL. Refused at once with
 * nothing sent: QUOR_CS_FILES_NOT_OFFERED (the host carries no files), QUOR_CS_FILE_UNREADABLE,
 * QUOR_CS_TOO_LARGE (over quor_cs_max_file_bytes()), QUOR_CS_TYPE_NOT_ACCEPTED. Else the line
 * (Sending, with its file), on_file_progress, and one outcome as for send_text. */
QUOR_CS_C_API int quor_cs_service_send_file(quor_cs_service* service, const char* path,
                                            const char* name, const char* mime_type);
/* Stops line `sequence`'s upload (it ends failed) or download; QUOR_CS_NO_SUCH_FILE when none
 * runs. */
QUOR_CS_C_API int quor_cs_service_cancel_file(quor_cs_service* service, uint64_t sequence);
/* Fetches the desk's file of line `sequence` into the host's file cache (never by itself):
 * on_file_progress, then on_file_downloaded. QUOR_CS_NO_SUCH_FILE for a line without one. */
QUOR_CS_C_API int quor_cs_service_download_file(quor_cs_service* service, uint64_t sequence);
/* The MIME types send_file takes, `count` of them: exact ("image/png"), a whole kind ("image/"
 * followed by a star), or any (a star, a slash and a star); by default JPEG, PNG, GIF and WebP
 * pictures, PDF and plain text. */
QUOR_CS_C_API int quor_cs_service_set_accepted_file_types(quor_cs_service* service,
                                                          const char* const* types, size_t count);
/* The largest file the installed host sends now, in bytes (its server's limit); 0: no files. */
QUOR_CS_C_API uint64_t quor_cs_max_file_bytes(void);
/* The last state reported (or about to be) into *status, whose size the caller set
 * (QUOR_CS_STATUS_INIT); see quor_cs_status for how long its strings stay valid. */
QUOR_CS_C_API int quor_cs_service_status(quor_cs_service* service, quor_cs_status* status);

/* ---- A host written in C: an IM core in another language carries the library ------------ */

/* One send waiting for its outcome: complete it exactly once, from any thread, with
 * quor_cs_send_succeeded() or quor_cs_send_failed(); that frees it. */
typedef struct quor_cs_send quor_cs_send;
typedef struct quor_cs_host quor_cs_host;
/* One file transfer waiting for its end: report progress while it runs, ask whether it was
 * cancelled, and end it exactly once (uploaded, downloaded or failed); that frees it. */
typedef struct quor_cs_transfer quor_cs_transfer;

/* What the library needs of the host. Every function may be called from any thread (the
 * caller's, the library's), concurrently; `body` is the content's bytes (NULL: none) and valid
 * during the call. Missing functions: sends fail with -1, nothing is stored or shown, nothing
 * is logged, csSuspendWhenLeave is false. */
typedef struct quor_cs_host_functions {
  size_t size; /* sizeof(quor_cs_host_functions) as compiled (QUOR_CS_HOST_FUNCTIONS_INIT) */
  void* user;
  /* Sends `body` under `object_name` to `target_id` in the customer-service conversation
   * (type 5). Later, complete `send` once: the message id and the server's sent time (never 0,
   * never after the time of a reply the desk sends later), or the error code. */
  void (*send)(void* user, const char* target_id, const char* object_name, const char* body,
               size_t body_length, quor_cs_send* send);
  /* Stores a local message of `target_id`'s conversation as received from `sender_id`, read;
   * returns its message id, or -1 when it could not be stored. */
  int64_t (*insert_incoming)(void* user, const char* target_id, const char* sender_id,
                             const char* object_name, const char* body, size_t body_length);
  /* Shows a local message (one insert_incoming stored, id > 0, or an unstored notice, id 0) to
   * the app as if received. */
  void (*deliver_local)(void* user, int64_t message_id, const char* target_id,
                        const char* object_name, const char* body, size_t body_length);
  /* A content type the host must decode by name from now on; `persistent_flag` bit 1: store. */
  void (*register_type)(void* user, const char* object_name, uint32_t persistent_flag);
  /* A log line of the library: level 2 errors ... 5 debug. */
  void (*log)(void* user, int level, const char* tag, const char* text);
  /* The local setting csSuspendWhenLeave: non-zero sends a suspend when a service stops. */
  int (*suspend_when_leave)(void* user);
  /* Optional: the app read `target_id`'s conversation up to its newest line (mark_read while
   * the service runs); a host that shares read state tells the account's other devices. */
  void (*mark_conversation_read)(void* user, const char* target_id);
  /* Optional: the customer is typing (1) or stopped (0), throttled by the library; tell the
   * desk, store nothing. */
  void (*send_typing_status)(void* user, const char* target_id, int typing);
  /* Optional: files. The largest file the host sends now, in bytes; missing or 0: none. */
  uint64_t (*max_file_bytes)(void* user);
  /* Uploads the file at `path` (`size` bytes) to where the desk can fetch it and ends
   * `transfer` with its URL (quor_cs_transfer_uploaded): the library then sends the file's
   * message through `send`. Or ends it failed. */
  void (*upload_file)(void* user, const char* path, const char* name, const char* mime_type,
                      uint64_t size, quor_cs_transfer* transfer);
  /* Fetches `url` (at most `size` bytes when non-zero) into the app's file cache, under a name
   * made from `name` that stays inside it, and ends `transfer` with the saved file's path
   * (quor_cs_transfer_downloaded), or failed. */
  void (*download_file)(void* user, const char* url, const char* name, uint64_t size,
                        quor_cs_transfer* transfer);
} quor_cs_host_functions;

/* A transfer's progress (any thread, any number of times), whether the app cancelled it (stop
 * and end it failed), and its one end. */
QUOR_CS_C_API void quor_cs_transfer_progress(quor_cs_transfer* transfer, uint64_t done,
                                             uint64_t total);
QUOR_CS_C_API int quor_cs_transfer_cancelled(const quor_cs_transfer* transfer);
QUOR_CS_C_API void quor_cs_transfer_uploaded(quor_cs_transfer* transfer, const char* url);
QUOR_CS_C_API void quor_cs_transfer_downloaded(quor_cs_transfer* transfer, const char* path);
QUOR_CS_C_API void quor_cs_transfer_failed(quor_cs_transfer* transfer, int64_t error_code);

/* Installs the host (copied) as the library's core client, logger and settings, with the
 * library's module loaded (register_type is called for its types). Main-thread work waits in
 * the host's queue for quor_cs_host_run_main(), unless the app installs a dispatcher (before or
 * after this call). NULL when memory ran out or another kit or host is installed. One host at a
 * time. */
QUOR_CS_C_API quor_cs_host* quor_cs_host_install(const quor_cs_host_functions* functions);
/* Uninstalls and frees the host. Sends not yet completed stay valid handles: complete them. */
QUOR_CS_C_API void quor_cs_host_uninstall(quor_cs_host* host);
/* Hands one received message to the library, on the host's delivery thread, in arrival order
 * (after the outcomes of the sends before it). *held (may be NULL) becomes 1 when the library
 * held it or it is a signal type: the host neither stores nor shows it; else 0: store it (when
 * its type is stored) and show it. */
QUOR_CS_C_API int quor_cs_host_receive(quor_cs_host* host, const char* object_name,
                                       const char* body, size_t body_length, const char* target_id,
                                       const char* sender_id, int64_t sent_time, int offline,
                                       int* held);
/* What the other side and the account's other devices signal, from any thread; none is a
 * message, none is stored. The desk is typing (non-zero) or stopped; the desk read this host's
 * message `message_id` (the id its send completed with) and the earlier ones; another device of
 * the account read `target_id`'s conversation. */
QUOR_CS_C_API int quor_cs_host_notify_typing(quor_cs_host* host, const char* target_id, int typing);
QUOR_CS_C_API int quor_cs_host_notify_read_receipt(quor_cs_host* host, const char* target_id,
                                                   int64_t message_id);
QUOR_CS_C_API int quor_cs_host_notify_conversation_read(quor_cs_host* host, const char* target_id);
/* Runs the main-thread work waiting in the host's queue on the calling thread; how many ran. */
QUOR_CS_C_API size_t quor_cs_host_run_main(quor_cs_host* host);
QUOR_CS_C_API void quor_cs_send_succeeded(quor_cs_send* send, int64_t message_id,
                                          int64_t sent_time);
QUOR_CS_C_API void quor_cs_send_failed(quor_cs_send* send, int64_t error_code);

/* ---- The XMPP host: the whole stack for an app without an IM core of its own ------------ */

typedef struct quor_cs_xmpp_host quor_cs_xmpp_host;

/* A host for one account, not yet connected. `options_json`: {"jid", "password" (required),
 * "server", "port" (default: the JID's domain, 5222), "tls": "whenOffered" | "required" |
 * "disabled", "trustSelfSignedCertificate": bool, "storePath" (SQLite file; default in memory),
 * "deskDomain" (default: the account's), "resource", "fileCacheDirectory" (where received files
 * are saved; default beside the store, none with the store in memory), "push": {"service", "node",
 * "token", "secret"} (the device's push registration, docs/push.md)}. NULL with the reason in
 * *error (the caller's; may be NULL). */
QUOR_CS_C_API quor_cs_xmpp_host* quor_cs_xmpp_host_create(const char* options_json, char** error);
/* Logs out (when connected) and frees the host; it stays installed until then. Destroy the
 * services that used it first. */
QUOR_CS_C_API void quor_cs_xmpp_host_destroy(quor_cs_xmpp_host* host);
/* Installs the host as the library's (with the library's module) and logs in; it stays
 * connected, reconnecting, until logout. QUOR_CS_ERROR_STATE while another kit or host is
 * installed. */
QUOR_CS_C_API int quor_cs_xmpp_host_connect(quor_cs_xmpp_host* host);
QUOR_CS_C_API void quor_cs_xmpp_host_logout(quor_cs_xmpp_host* host);
/* 1 once online within `timeout_ms`, else 0 (at once when the login was refused or replaced). */
QUOR_CS_C_API int quor_cs_xmpp_host_wait_online(quor_cs_xmpp_host* host, int64_t timeout_ms);
/* The connection's status (docs/xmpp.md). Replaced and refused are for good: the host does not
 * reconnect until quor_cs_xmpp_host_logout() and quor_cs_xmpp_host_connect() again. */
typedef enum quor_cs_xmpp_status {
  QUOR_CS_XMPP_CONNECTED = 0,
  QUOR_CS_XMPP_CONNECTING = 1,
  QUOR_CS_XMPP_DISCONNECTED = 2, /* the link went; reconnecting */
  QUOR_CS_XMPP_SIGNED_OUT = 3,
  QUOR_CS_XMPP_REPLACED = 4, /* another login of the device's resource took it */
  QUOR_CS_XMPP_REFUSED = 5   /* the server refused the login: a wrong password, no such account */
} quor_cs_xmpp_status;
QUOR_CS_C_API int quor_cs_xmpp_host_status(const quor_cs_xmpp_host* host);
/* The XMPP host's error codes: a failed line's error_code, a send's failure (docs/xmpp.md). */
typedef enum quor_cs_xmpp_error {
  QUOR_CS_XMPP_ERROR_NOT_ONLINE = 31001, /* no link within the outbox timeout: not written */
  QUOR_CS_XMPP_ERROR_CONNECTION_LOST =
      31002,                           /* written, the link went unconfirmed: may have arrived */
  QUOR_CS_XMPP_ERROR_TIMEOUT = 31003,  /* written, not confirmed in time: may have arrived */
  QUOR_CS_XMPP_ERROR_REJECTED = 31004, /* the server returned an error for it */
  QUOR_CS_XMPP_ERROR_NO_SUCH_RECIPIENT = 31005, /* the recipient does not exist or cannot take it */
  QUOR_CS_XMPP_ERROR_NOT_SENDABLE = 31006,      /* no body, not XML text, no JID for the target */
  QUOR_CS_XMPP_ERROR_STOPPED = 31007,           /* the host was destroyed or logged out meanwhile */
  QUOR_CS_XMPP_ERROR_TOO_LARGE = 31008,         /* larger than the server takes: not written */
  QUOR_CS_XMPP_ERROR_UPLOAD_FAILED = 31009,  /* a file not sent: no upload service, a failed PUT */
  QUOR_CS_XMPP_ERROR_CANCELLED = 31010,      /* a file's transfer was cancelled */
  QUOR_CS_XMPP_ERROR_DOWNLOAD_FAILED = 31011 /* a received file could not be fetched */
} quor_cs_xmpp_error;
/* Where the app stands in its platform's life cycle (docs/push.md). */
typedef enum quor_cs_app_state {
  QUOR_CS_APP_FOREGROUND = 0,
  QUOR_CS_APP_BACKGROUND = 1, /* the server holds back what can wait; push is enabled */
  QUOR_CS_APP_SUSPENDED = 2   /* the link is cut, the server keeps the session and pushes */
} quor_cs_app_state;
/* Tells the host the app's state, from any thread; back in the foreground it resumes the session.
 * QUOR_CS_ERROR_ARGUMENT for a state not listed. */
QUOR_CS_C_API int quor_cs_xmpp_host_set_app_state(quor_cs_xmpp_host* host, int state);
QUOR_CS_C_API int quor_cs_xmpp_host_app_state(const quor_cs_xmpp_host* host);
/* The device's push registration, from any thread (its token often comes after the start): the
 * push service's JID, the device's node there ("" or NULL: the connection's resource), its token
 * and a secret (both may be NULL). A NULL or empty service registers none. Enabled whenever the
 * app leaves the foreground; logout disables it. */
QUOR_CS_C_API int quor_cs_xmpp_host_set_push(quor_cs_xmpp_host* host, const char* service,
                                             const char* node, const char* token,
                                             const char* secret);
/* Reads a push notification as quor-cs-push hands it on (docs/push.md), without a link: the
 * desk's id (*desk_id, the caller's: quor_cs_free), the desk's messages since the app went to the
 * background (*unread, may be NULL) and the account (*account, may be NULL; the caller's).
 * QUOR_CS_ERROR_ARGUMENT, with nothing given, for text that is not such a notification. */
QUOR_CS_C_API int quor_cs_push_notification_read(const char* json, char** desk_id, int64_t* unread,
                                                 char** account);
/* Runs the host's main queue on the calling (main) thread until nothing arrived for
 * `quiet_ms`: the callbacks of the services run here, unless the app installed a dispatcher. */
QUOR_CS_C_API void quor_cs_xmpp_host_settle(quor_cs_xmpp_host* host, int64_t quiet_ms);
/* Sends a plain text to a desk outside any service's bookkeeping (a service's send_text is the
 * usual way). */
QUOR_CS_C_API int quor_cs_xmpp_host_send_text(quor_cs_xmpp_host* host, const char* desk_id,
                                              const char* text);
/* One page of a desk's stored conversation, newest first, as a JSON array of {"messageId",
 * "objectName", "direction" (1 sent, 2 received), "sentTime", "status" ("pending", "sent",
 * "failed", "unconfirmed"), "text" (a text's, a notice's, a leave-message invitation's)}: at most
 * `count` messages older than `before_message_id` (0: from the newest). *history_json is the
 * caller's (quor_cs_free). */
QUOR_CS_C_API int quor_cs_xmpp_host_history(quor_cs_xmpp_host* host, const char* desk_id,
                                            int64_t before_message_id, int count,
                                            char** history_json);
/* Where the service with a desk stood at its newest control message, sent or received, on any
 * device of the account (a quor_cs_state; QUOR_CS_STATE_NOT_STARTED when nothing is known): what
 * an app opened again, or installed again, shows until a service it starts reports its own.
 * QUOR_CS_ERROR_ARGUMENT for a NULL host or desk id. */
QUOR_CS_C_API int quor_cs_xmpp_host_last_service_state(quor_cs_xmpp_host* host,
                                                       const char* desk_id);

#ifdef __cplusplus
}
#endif

#endif /* QUOR_CS_H */
