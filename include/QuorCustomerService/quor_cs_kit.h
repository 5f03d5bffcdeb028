/* The test kit of the C API: an in-process host and a scripted desk, for an app's tests. Library:
 * libquor_cs_kit, beside libquor_cs (which an app ships alone); the kit is a host written over
 * the C API's own host functions, so it needs nothing of libquor_cs beyond its exported ones. */
#ifndef QUOR_CS_KIT_H
#define QUOR_CS_KIT_H

#include "quor_cs.h"

#if defined(_WIN32)
#if defined(QUOR_CS_KIT_BUILDING)
#define QUOR_CS_KIT_API __declspec(dllexport)
#else
#define QUOR_CS_KIT_API __declspec(dllimport)
#endif
#else
#define QUOR_CS_KIT_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct quor_cs_kit quor_cs_kit;

/* Installs an in-process host (a host written in C over libquor_cs's host functions) and
 * attaches a desk simulator made from `profile_json` (merged into the default profile; NULL:
 * the default). NULL on a bad
 * profile or while another kit or host is installed, with the reason in *error (the caller's;
 * may be NULL). One kit or host at a time. */
QUOR_CS_KIT_API quor_cs_kit* quor_cs_kit_create(const char* profile_json, char** error);
/* Uninstalls the host and frees the kit. Destroy the kit's services first. */
QUOR_CS_KIT_API void quor_cs_kit_destroy(quor_cs_kit* kit);
/* The desk's id, valid while the kit lives. */
QUOR_CS_KIT_API const char* quor_cs_kit_desk_id(const quor_cs_kit* kit);
/* Runs the host's threads and its main queue until nothing more happens (on the main thread):
 * the callbacks of the kit's services run here. */
QUOR_CS_KIT_API void quor_cs_kit_settle(quor_cs_kit* kit);
/* The desk speaks: a text from whoever serves; a rating request; the end (code 0) or a hand-back
 * to the robot (code 1) with a closing text. */
QUOR_CS_KIT_API int quor_cs_kit_desk_say(quor_cs_kit* kit, const char* text);
QUOR_CS_KIT_API int quor_cs_kit_desk_request_rating(quor_cs_kit* kit);
QUOR_CS_KIT_API int quor_cs_kit_desk_end(quor_cs_kit* kit, const char* text, int code);
/* The desk invites the customer to leave a message, with its text: a line whose author is
 * QUOR_CS_AUTHOR_LEAVE_MESSAGE_INVITATION. */
QUOR_CS_KIT_API int quor_cs_kit_desk_invite_leave_message(quor_cs_kit* kit, const char* text);
/* The desk is typing (non-zero) or stopped; the desk read the customer's lines so far. */
QUOR_CS_KIT_API int quor_cs_kit_desk_typing(quor_cs_kit* kit, int typing);
QUOR_CS_KIT_API int quor_cs_kit_desk_read(quor_cs_kit* kit);
/* What the library last told the desk of the customer's typing: 1 typing, 0 stopped, -1 nothing
 * yet. */
QUOR_CS_KIT_API int quor_cs_kit_customer_typing(const quor_cs_kit* kit);
/* Files, kept in memory under "kit://files/N": none until a limit is set (0: none). While
 * uploads are held (non-zero) they wait, so that a test can cancel one. Downloads are written
 * into `directory` under a name that stays inside it. A cancelled transfer fails with 41001,
 * another failure with 41002. */
QUOR_CS_KIT_API int quor_cs_kit_set_max_file_bytes(quor_cs_kit* kit, uint64_t bytes);
QUOR_CS_KIT_API int quor_cs_kit_hold_uploads(quor_cs_kit* kit, int held);
QUOR_CS_KIT_API int quor_cs_kit_set_file_cache(quor_cs_kit* kit, const char* directory);
/* The desk sends a file of `length` bytes (kept by the kit) from whoever serves. */
QUOR_CS_KIT_API int quor_cs_kit_desk_file(quor_cs_kit* kit, const char* name, const char* mime_type,
                                          const char* bytes, size_t length);

#ifdef __cplusplus
}
#endif

#endif /* QUOR_CS_KIT_H */
