"""QuorCustomerService for Python: customer service over an IM channel, through the C API.

    import quor_cs

    class Screen(quor_cs.Observer):
        def on_state_changed(self, status):
            print(status.state.name)
        def on_message(self, line):
            print(line.author.name, line.text)

    kit = quor_cs.Kit()                      # the test kit: a host and a scripted desk
    service = quor_cs.Service(kit.desk_id, Screen())
    service.start({"userInfo": {"userId": "c-7"}}, timeout=15)
    kit.settle()                             # the observer is called here, on this thread
    service.send_text("Where is my order?")
    kit.settle()
    service.close()

Operations that the service refuses raise Refused (its `result` says why); bad arguments raise
ValueError. Observer methods run on the thread that runs the library's tasks (Kit.settle(), or
your loop's run_task()); an exception they raise is printed and never reaches the library.
"""

import enum
import json
import os
import sys
import threading
from dataclasses import dataclass, field
from typing import Any, Callable, Dict, List, Optional

from ._native import ffi, kit_lib, lib

__all__ = [
    "Author", "Delivery", "Group", "Kit", "Message", "Observer", "Reason", "Refused",
    "InvalidForm", "Result", "Service", "State", "Status", "set_dispatcher", "run_task",
    "drop_task", "version", "XmppHost", "XmppStatus", "XmppError", "Closed", "Task",
    "AppState", "PushNotification", "File", "FileFailed", "max_file_bytes",
]


class _CEnum(enum.IntEnum):
    """An enumeration of the C API. A value a newer library adds reads as UNKNOWN (-1), never
    as a ValueError."""

    @classmethod
    def _missing_(cls, value):
        return cls.UNKNOWN


class Result(_CEnum):
    UNKNOWN = -1
    OK = 0
    ALREADY_STARTED = 1
    NOT_CONNECTED = 2
    AGENT_NOT_OFFERED = 3
    ALREADY_WITH_AGENT = 4
    BLOCKED = 5
    NOT_CHOOSING_GROUP = 6
    GROUP_NOT_OFFERED = 7
    RATING_NOT_OFFERED = 8
    NO_DIALOG_TO_RATE = 9
    STARS_NOT_OFFERED = 10
    INVALID_FORM = 11
    EMPTY_TEXT = 12
    INVALID_TEXT = 13  # a text with no UTF-8 form (a lone surrogate)
    TOO_LARGE = 14  # send_text over max_text_bytes once encoded
    NOT_RETRYABLE = 15  # retry() of a line that is not FAILED or UNCONFIRMED
    FILES_NOT_OFFERED = 16  # the host carries no files (or not now)
    FILE_UNREADABLE = 17  # not a readable, non-empty file
    TYPE_NOT_ACCEPTED = 18  # a file type outside the accepted types
    NO_SUCH_FILE = 19  # no such file transfer on that line


class State(_CEnum):
    UNKNOWN = -1
    NOT_STARTED = 0
    CONNECTING = 1
    CONNECTED = 2
    ROBOT = 3
    CHOOSING_GROUP = 4
    WAITING_FOR_AGENT = 5
    AGENT = 6
    ENDED = 7
    FAILED = 8


class Reason(_CEnum):
    UNKNOWN = -1
    NONE = 0
    CONNECTION_FAILED = 1
    HANDSHAKE_REFUSED = 2
    TIMEOUT = 3
    DESK_ENDED = 4
    BLOCKED = 5
    NO_AGENT_AVAILABLE = 6
    STOPPED_BY_APP = 7


class Author(_CEnum):
    UNKNOWN = -1
    CUSTOMER = 0
    ROBOT = 1
    AGENT = 2
    NOTICE = 3
    LEAVE_MESSAGE_INVITATION = 4  # the desk invites a message: show the form


class Delivery(_CEnum):
    """How far a line got. FAILED: it cannot have arrived. UNCONFIRMED: written, may have
    arrived; sent once more under its id by itself, and SENT when that is confirmed. READ: sent,
    and the desk read it."""
    UNKNOWN = -1
    RECEIVED = 0
    SENDING = 1
    SENT = 2
    FAILED = 3
    UNCONFIRMED = 4
    READ = 5


class XmppStatus(_CEnum):
    """An XmppHost's connection status."""
    UNKNOWN = -1
    CONNECTED = 0
    CONNECTING = 1
    DISCONNECTED = 2  # the link went; reconnecting
    SIGNED_OUT = 3
    REPLACED = 4  # another login of the device's resource took it
    REFUSED = 5  # the server refused the login: a wrong password, no such account


class AppState(_CEnum):
    """Where the app stands in its platform's life cycle (docs/push.md)."""
    UNKNOWN = -1
    FOREGROUND = 0
    BACKGROUND = 1  # the server holds back what can wait; push is enabled
    SUSPENDED = 2  # the link is cut, the server keeps the session and pushes


class XmppError(_CEnum):
    """The XMPP host's error codes, as a failed line's error_code carries them."""
    UNKNOWN = -1  # another code: a newer library's, or another host's
    NOT_ONLINE = 31001  # no link came within the outbox timeout: never written
    CONNECTION_LOST = 31002  # written, the link dropped before it was confirmed: may have arrived
    TIMEOUT = 31003  # written on a live link, not confirmed in time: may have arrived
    REJECTED = 31004  # the server returned an error for it
    NO_SUCH_RECIPIENT = 31005  # the recipient does not exist or cannot take it
    NOT_SENDABLE = 31006  # it could not be written
    STOPPED = 31007  # the host was closed or logged out while it waited
    TOO_LARGE = 31008  # larger than the server takes: never written
    UPLOAD_FAILED = 31009  # a file was not sent: no upload service, a refused slot, a failed PUT
    CANCELLED = 31010  # the file's transfer was cancelled (or the host stopped during it)
    DOWNLOAD_FAILED = 31011  # a received file could not be fetched; nothing left in the cache


class Refused(Exception):
    """The service sent nothing: `result` says why (a Result)."""

    def __init__(self, result: Result):
        super().__init__(ffi.string(lib.quor_cs_result_name(int(result))).decode())
        self.result = result


class InvalidForm(Refused):
    """leave_message() values that fail the desk's form: field name -> problem."""

    def __init__(self, field_errors: Dict[str, str]):
        super().__init__(Result.INVALID_FORM)
        self.field_errors = field_errors


@dataclass(frozen=True)
class Group:
    id: str
    name: str
    online: bool


@dataclass(frozen=True)
class Status:
    state: State
    reason: Reason = Reason.NONE
    can_ask_for_agent: bool = False
    code: int = 0
    text: str = ""
    groups: List[Group] = field(default_factory=list)
    config: Optional[Dict[str, Any]] = None  # the desk's configuration, from CONNECTED on


@dataclass(frozen=True)
class File:
    """The picture or other file of a line. `name` is the sender's: show it, never use it as a
    path. A downloaded file's mime_type is what its bytes show."""
    name: str
    mime_type: str
    size: int
    width: int = 0  # pixels, for a picture whose size is known
    height: int = 0
    url: str = ""  # "" while the customer's file uploads
    local_path: str = ""  # the file sent, or where download_file saved it


@dataclass(frozen=True)
class Message:
    sequence: int
    author: Author
    delivery: Delivery
    text: str
    sender_name: str = ""
    message_id: int = 0
    sent_time: int = 0
    error_code: int = 0
    file: Optional[File] = None  # a picture or file line (its text "")


class Observer:
    """What a Service reports; override what the app shows. Every method defaults to nothing."""

    def on_state_changed(self, status: Status) -> None: ...
    def on_rating_requested(self, dialog_id: Optional[str]) -> None: ...
    def on_evaluation_settings(self, settings: Dict[str, Any]) -> None: ...
    def on_message_left(self, sent: bool, message_id_or_error_code: int) -> None: ...
    def on_message(self, message: Message) -> None: ...
    def on_message_delivery(self, message: Message) -> None: ...
    def on_unread_count_changed(self, unread: int) -> None: ...
    def on_desk_typing(self, typing: bool) -> None: ...
    def on_file_progress(self, sequence: int, done: int, total: int) -> None: ...
    def on_file_downloaded(self, sequence: int, file: File, error_code: int) -> None: ...


def version() -> str:
    return ffi.string(lib.quor_cs_version()).decode()


def _text(pointer) -> str:
    return ffi.string(pointer).decode("utf-8", "replace") if pointer != ffi.NULL else ""


def _utf8(text: str, name: str = "text") -> bytes:
    """A str as the library takes it: one without a UTF-8 form is refused as the library refuses
    such bytes (INVALID_TEXT), anything but a str is a TypeError."""
    if not isinstance(text, str):
        raise TypeError(f"quor_cs: {name} must be a str, not {type(text).__name__}")
    try:
        return text.encode("utf-8")
    except UnicodeEncodeError:
        raise Refused(Result.INVALID_TEXT) from None


def _optional_utf8(text: Optional[str], name: str):
    return _utf8(text, name) if text is not None else ffi.NULL


def _json(value) -> bytes:
    # A value JSON cannot hold (an object, NaN) or a str without a UTF-8 form is a bad argument.
    try:
        return json.dumps(value, ensure_ascii=False, allow_nan=False).encode("utf-8")
    except (TypeError, ValueError) as error:
        raise ValueError(f"quor_cs: not a JSON value: {error}") from None


class FileFailed(Exception):
    """A file's transfer ended without it: `error_code` is the host's (XmppError for XMPP)."""

    def __init__(self, error_code: int):
        super().__init__(f"quor_cs: the file's transfer failed ({error_code})")
        self.error_code = error_code


class Closed(ValueError):
    """A call on a Service, Kit or XmppHost after its close()."""


def _open(handle, what: str):
    if handle is None:
        raise Closed(f"quor_cs: the {what} is closed")
    return handle


def _check(code: int) -> None:
    if code == lib.QUOR_CS_OK:
        return
    if code == lib.QUOR_CS_ERROR_ARGUMENT:
        raise ValueError("quor_cs: a bad argument")
    if code == lib.QUOR_CS_ERROR_MEMORY:
        raise MemoryError("quor_cs: out of memory")
    if code == lib.QUOR_CS_ERROR_STATE:
        raise RuntimeError("quor_cs: not now: another kit or host is installed (close it first)")
    if code < 0:
        raise RuntimeError("quor_cs: " + ffi.string(lib.quor_cs_result_name(code)).decode())
    raise Refused(Result(code))


def _status(view) -> Status:
    groups = [Group(_text(view.groups[i].id), _text(view.groups[i].name), bool(view.groups[i].online))
              for i in range(view.group_count)]
    config = json.loads(_text(view.config_json)) if view.config_json != ffi.NULL else None
    return Status(State(view.state), Reason(view.reason), bool(view.can_ask_for_agent), view.code,
                  _text(view.text), groups, config)


def _file(view) -> File:
    return File(_text(view.name), _text(view.mime_type), view.size, view.width, view.height,
                _text(view.url), _text(view.local_path))


def _message(view) -> Message:
    return Message(view.sequence, Author(view.author), Delivery(view.delivery), _text(view.text),
                   _text(view.sender_name), view.message_id, view.sent_time, view.error_code,
                   _file(view.file) if view.file != ffi.NULL else None)


def _report(exception, value, traceback):
    # An observer's exception stays in Python: printed, never passed to the library.
    sys.excepthook(exception, value, traceback)


# One set of C callbacks for every service: `user` is the handle of the Python Service.
@ffi.callback("void(void*, const quor_cs_status*)", onerror=_report)
def _on_state_changed(user, status):
    ffi.from_handle(user)._observer.on_state_changed(_status(status))


@ffi.callback("void(void*, const char*)", onerror=_report)
def _on_rating_requested(user, dialog_id):
    ffi.from_handle(user)._observer.on_rating_requested(
        _text(dialog_id) if dialog_id != ffi.NULL else None)


@ffi.callback("void(void*, const char*)", onerror=_report)
def _on_evaluation_settings(user, settings):
    ffi.from_handle(user)._observer.on_evaluation_settings(json.loads(_text(settings)))


@ffi.callback("void(void*, int, int64_t)", onerror=_report)
def _on_message_left(user, sent, value):
    ffi.from_handle(user)._observer.on_message_left(bool(sent), value)


@ffi.callback("void(void*, const quor_cs_message*)", onerror=_report)
def _on_message(user, message):
    ffi.from_handle(user)._observer.on_message(_message(message))


@ffi.callback("void(void*, const quor_cs_message*)", onerror=_report)
def _on_message_delivery(user, message):
    ffi.from_handle(user)._observer.on_message_delivery(_message(message))


@ffi.callback("void(void*, uint64_t)", onerror=_report)
def _on_unread_count_changed(user, unread):
    ffi.from_handle(user)._observer.on_unread_count_changed(unread)


@ffi.callback("void(void*, int)", onerror=_report)
def _on_desk_typing(user, typing):
    ffi.from_handle(user)._observer.on_desk_typing(bool(typing))


@ffi.callback("void(void*, uint64_t, uint64_t, uint64_t)", onerror=_report)
def _on_file_progress(user, sequence, done, total):
    ffi.from_handle(user)._observer.on_file_progress(sequence, done, total)


@ffi.callback("void(void*, uint64_t, const quor_cs_file*, int64_t)", onerror=_report)
def _on_file_downloaded(user, sequence, file, error_code):
    ffi.from_handle(user)._observer.on_file_downloaded(sequence, _file(file), error_code)


def max_file_bytes() -> int:
    """The largest file the installed host sends now (its server's limit); 0: no files."""
    return lib.quor_cs_max_file_bytes()


class Service:
    """One service with one desk. Call it on your main thread; close() it (or use `with`)."""

    def __init__(self, desk_id: str, observer: Optional[Observer] = None):
        self._observer = observer or Observer()
        self._handle = ffi.new_handle(self)  # kept alive as long as the C service may call
        functions = ffi.new("quor_cs_observer*")
        functions.size = ffi.sizeof("quor_cs_observer")
        functions.user = self._handle
        functions.on_state_changed = _on_state_changed
        functions.on_rating_requested = _on_rating_requested
        functions.on_evaluation_settings = _on_evaluation_settings
        functions.on_message_left = _on_message_left
        functions.on_message = _on_message
        functions.on_message_delivery = _on_message_delivery
        functions.on_unread_count_changed = _on_unread_count_changed
        functions.on_desk_typing = _on_desk_typing
        functions.on_file_progress = _on_file_progress
        functions.on_file_downloaded = _on_file_downloaded
        self._service = lib.quor_cs_service_create(desk_id.encode("utf-8"), functions)
        if self._service == ffi.NULL:
            raise RuntimeError(f"quor_cs: a service for desk {desk_id!r} is open already: "
                               "close it first")

    def close(self) -> None:
        """Ends a running service; nothing is reported afterwards."""
        if self._service is not None:
            lib.quor_cs_service_destroy(self._service)
            self._service = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def __del__(self):
        self.close()

    def _live(self):
        return _open(self._service, "service")

    def start(self, customer: Optional[Dict[str, Any]] = None, timeout: float = 0) -> None:
        info = _json(customer) if customer is not None else ffi.NULL
        _check(lib.quor_cs_service_start(self._live(), info, int(timeout * 1000)))

    def ask_for_agent(self) -> None:
        _check(lib.quor_cs_service_ask_for_agent(self._live()))

    def choose_group(self, group_id: str) -> None:
        _check(lib.quor_cs_service_choose_group(self._live(), _utf8(group_id, "group_id")))

    def rate_robot(self, resolved: bool, knowledge_id: Optional[str] = None,
                   suggestion: Optional[str] = None) -> None:
        _check(lib.quor_cs_service_rate_robot(
            self._live(), _optional_utf8(knowledge_id, "knowledge_id"), int(resolved),
            _optional_utf8(suggestion, "suggestion")))

    def rate_agent(self, stars: int, suggestion: Optional[str] = None, resolved: int = 0,
                   dialog_id: Optional[str] = None, tags: Optional[str] = None,
                   extra: Optional[Dict[str, Any]] = None) -> None:
        _check(lib.quor_cs_service_rate_agent(
            self._live(), _optional_utf8(dialog_id, "dialog_id"), stars,
            _optional_utf8(suggestion, "suggestion"), resolved, _optional_utf8(tags, "tags"),
            _json(extra) if extra is not None else ffi.NULL))

    def leave_message(self, values: Dict[str, Any]) -> Optional[str]:
        """Sends the values; returns the desk's web form URL instead when it takes messages
        there (nothing sent). Raises InvalidForm with the field errors."""
        errors = ffi.new("char**")
        url = ffi.new("char**")
        code = lib.quor_cs_service_leave_message(self._live(), _json(values), errors, url)
        try:
            if code == Result.INVALID_FORM:
                raise InvalidForm(json.loads(_text(errors[0])) if errors[0] != ffi.NULL else {})
            _check(code)
            return _text(url[0]) if url[0] != ffi.NULL else None
        finally:
            lib.quor_cs_free(errors[0])
            lib.quor_cs_free(url[0])

    def end(self) -> None:
        _check(lib.quor_cs_service_end(self._live()))

    def send_text(self, text: str) -> None:
        """Sends a line; its delivery comes to on_message_delivery (SENT, FAILED or
        UNCONFIRMED). Raises Refused(INVALID_TEXT) for a str with no UTF-8 form,
        Refused(TOO_LARGE) over max_text_bytes, TypeError for anything but a str."""
        _check(lib.quor_cs_service_send_text(self._live(), _utf8(text)))

    def retry(self, sequence: int) -> None:
        """Sends the customer's line `sequence` (FAILED or UNCONFIRMED) once more under its
        original id, so that the desk takes it once; Refused(NOT_RETRYABLE) for another."""
        _check(lib.quor_cs_service_retry(self._live(), sequence))

    @property
    def max_text_bytes(self) -> int:
        """The largest encoded text send_text sends, in bytes (65536 by default)."""
        return lib.quor_cs_service_max_text_bytes(self._live())

    @max_text_bytes.setter
    def max_text_bytes(self, value: int) -> None:
        if value < 0:
            raise ValueError("quor_cs: max_text_bytes must not be negative")
        lib.quor_cs_service_set_max_text_bytes(self._live(), value)

    @property
    def unread_count(self) -> int:
        return lib.quor_cs_service_unread_count(self._live())

    def mark_read(self) -> None:
        lib.quor_cs_service_mark_read(self._live())

    def set_typing(self, typing: bool) -> None:
        """The customer is typing (True, at each change of the input) or left it (False): the
        desk hears "typing" at most once per 5 s, and "stopped" after 5 s without a keystroke.
        Raises Refused(NOT_CONNECTED) when the service does not run."""
        _check(lib.quor_cs_service_set_typing(self._live(), 1 if typing else 0))

    def send_file(self, path: str, name: Optional[str] = None,
                  mime_type: Optional[str] = None) -> None:
        """Sends a picture or other file, read from `path` as it uploads; `mime_type` None: what
        the first bytes show. Its line comes to on_message, its progress to on_file_progress, its
        outcome to on_message_delivery. Raises Refused(FILES_NOT_OFFERED, FILE_UNREADABLE,
        TOO_LARGE or TYPE_NOT_ACCEPTED) at once, with nothing sent."""
        _check(lib.quor_cs_service_send_file(
            self._live(), _utf8(os.fspath(path), "path"), _optional_utf8(name, "name"),
            _optional_utf8(mime_type, "mime_type")))

    def cancel_file(self, sequence: int) -> None:
        """Stops line `sequence`'s upload (it ends FAILED) or download; Refused(NO_SUCH_FILE)."""
        _check(lib.quor_cs_service_cancel_file(self._live(), sequence))

    def download_file(self, sequence: int) -> None:
        """Fetches the desk's file of line `sequence` into the host's file cache (never by
        itself): on_file_progress, then on_file_downloaded. Refused(NO_SUCH_FILE)."""
        _check(lib.quor_cs_service_download_file(self._live(), sequence))

    def set_accepted_file_types(self, types: List[str]) -> None:
        """The MIME types send_file takes: "application/pdf", "image/*", "*/*"."""
        encoded = [ffi.new("char[]", _utf8(t, "types")) for t in types]
        _check(lib.quor_cs_service_set_accepted_file_types(
            self._live(), ffi.new("const char*[]", encoded) if encoded else ffi.NULL,
            len(encoded)))

    @property
    def status(self) -> Status:
        view = ffi.new("quor_cs_status*")
        view.size = ffi.sizeof("quor_cs_status")
        _check(lib.quor_cs_service_status(self._live(), view))
        return _status(view)


class Kit:
    """The test kit: an in-process host with a desk simulator (its profile merged into the
    default one). One at a time; close() it after its services."""

    def __init__(self, profile: Optional[Dict[str, Any]] = None):
        error = ffi.new("char**")
        self._kit = kit_lib().quor_cs_kit_create(_json(profile) if profile is not None else ffi.NULL,
                                           error)
        if self._kit == ffi.NULL:
            problem = _text(error[0])
            lib.quor_cs_free(error[0])
            if problem.startswith("another kit or host"):
                raise RuntimeError("quor_cs: " + problem)
            raise ValueError("quor_cs: " + problem)

    @property
    def desk_id(self) -> str:
        return _text(kit_lib().quor_cs_kit_desk_id(self._live()))

    def _live(self):
        return _open(self._kit, "kit")

    def settle(self) -> None:
        """Runs the host and the library's callbacks until nothing more happens."""
        kit_lib().quor_cs_kit_settle(self._live())

    def desk_say(self, text: str) -> None:
        _check(kit_lib().quor_cs_kit_desk_say(self._live(), _utf8(text)))

    def desk_request_rating(self) -> None:
        _check(kit_lib().quor_cs_kit_desk_request_rating(self._live()))

    def desk_end(self, text: str = "", code: int = 0) -> None:
        _check(kit_lib().quor_cs_kit_desk_end(self._live(), _utf8(text), code))

    def desk_invite_leave_message(self, text: str) -> None:
        """The desk invites a message: a line by Author.LEAVE_MESSAGE_INVITATION."""
        _check(kit_lib().quor_cs_kit_desk_invite_leave_message(self._live(), _utf8(text)))

    def desk_typing(self, typing: bool) -> None:
        """The desk is typing, or stopped."""
        _check(kit_lib().quor_cs_kit_desk_typing(self._live(), 1 if typing else 0))

    def desk_read(self) -> None:
        """The desk read the customer's lines so far: they become Delivery.READ."""
        _check(kit_lib().quor_cs_kit_desk_read(self._live()))

    @property
    def customer_typing(self) -> Optional[bool]:
        """What the library last told the desk: True typing, False stopped, None nothing yet."""
        told = kit_lib().quor_cs_kit_customer_typing(self._live())
        return None if told < 0 else told == 1

    def set_max_file_bytes(self, limit: int) -> None:
        """Files, kept in memory: none until a limit is set (0: none)."""
        _check(kit_lib().quor_cs_kit_set_max_file_bytes(self._live(), limit))

    def hold_uploads(self, held: bool) -> None:
        """While held, uploads wait (a test cancels one meanwhile)."""
        _check(kit_lib().quor_cs_kit_hold_uploads(self._live(), 1 if held else 0))

    def set_file_cache(self, directory: str) -> None:
        """Where download_file writes the desk's files."""
        _check(kit_lib().quor_cs_kit_set_file_cache(self._live(),
                                                    _utf8(os.fspath(directory), "directory")))

    def desk_file(self, name: str, mime_type: str, data: bytes) -> None:
        """The desk sends a file (kept by the kit) from whoever serves."""
        _check(kit_lib().quor_cs_kit_desk_file(self._live(), _utf8(name, "name"),
                                               _utf8(mime_type, "mime_type"), data, len(data)))

    def close(self) -> None:
        if self._kit is not None:
            kit_lib().quor_cs_kit_destroy(self._kit)
            self._kit = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


class XmppHost:
    """The whole stack over XMPP for an app without an IM core of its own: one account, its
    SQLite store, installed as the library's host by connect()."""

    def __init__(self, jid: str, password: str, server: Optional[str] = None,
                 port: Optional[int] = None, tls: str = "whenOffered",
                 trust_self_signed_certificate: bool = False, store_path: Optional[str] = None,
                 desk_domain: Optional[str] = None, push: Optional[Dict[str, str]] = None,
                 file_cache_directory: Optional[str] = None):
        """`push`: the device's push registration, {"service", "node", "token", "secret"}.
        `file_cache_directory`: where download_file saves (default beside the store)."""
        options = {"jid": jid, "password": password, "tls": tls,
                   "trustSelfSignedCertificate": trust_self_signed_certificate}
        if push is not None:
            if not isinstance(push, dict):
                raise ValueError('quor_cs: push takes a dict: {"service", "node", "token", '
                                 '"secret"}')
            options["push"] = dict(push)
        for key, value in (("server", server), ("port", port), ("storePath", store_path),
                           ("deskDomain", desk_domain),
                           ("fileCacheDirectory", file_cache_directory)):
            if value is not None:
                options[key] = value
        error = ffi.new("char**")
        self._host = lib.quor_cs_xmpp_host_create(_json(options), error)
        if self._host == ffi.NULL:
            problem = _text(error[0])
            lib.quor_cs_free(error[0])
            raise ValueError("quor_cs: " + problem)

    def _live(self):
        return _open(self._host, "host")

    def connect(self) -> None:
        _check(lib.quor_cs_xmpp_host_connect(self._live()))

    def wait_online(self, timeout: float) -> bool:
        return bool(lib.quor_cs_xmpp_host_wait_online(self._live(), int(timeout * 1000)))

    @property
    def status(self) -> "XmppStatus":
        """The connection's status; REPLACED and REFUSED are for good (no reconnection)."""
        return XmppStatus(lib.quor_cs_xmpp_host_status(self._live()))

    @property
    def app_state(self) -> AppState:
        return AppState(lib.quor_cs_xmpp_host_app_state(self._live()))

    @app_state.setter
    def app_state(self, state: AppState) -> None:
        """Tells the host the app's state (from any thread); back in the foreground it resumes
        the session."""
        if not isinstance(state, AppState) or state is AppState.UNKNOWN:
            raise ValueError("quor_cs: app_state takes an AppState other than UNKNOWN")
        _check(lib.quor_cs_xmpp_host_set_app_state(self._live(), int(state)))

    def set_push(self, service: str, token: str = "", node: str = "", secret: str = "") -> None:
        """The device's push registration (its token often comes after the start); an empty
        service registers none. Enabled whenever the app leaves the foreground."""
        _check(lib.quor_cs_xmpp_host_set_push(self._live(), _utf8(service, "service"),
                                              _utf8(node, "node"), _utf8(token, "token"),
                                              _utf8(secret, "secret")))

    def settle(self, quiet: float = 0.3) -> None:
        """Runs the library's callbacks on this thread until nothing arrived for `quiet`."""
        lib.quor_cs_xmpp_host_settle(self._live(), int(quiet * 1000))

    def send_text(self, desk_id: str, text: str) -> None:
        _check(lib.quor_cs_xmpp_host_send_text(self._live(), _utf8(desk_id, "desk_id"),
                                               _utf8(text)))

    def history(self, desk_id: str, before: int = 0, count: int = 20) -> List[Dict[str, Any]]:
        out = ffi.new("char**")
        code = lib.quor_cs_xmpp_host_history(self._live(), _utf8(desk_id, "desk_id"), before, count,
                                             out)
        try:
            _check(code)
            return json.loads(_text(out[0]))
        finally:
            lib.quor_cs_free(out[0])

    def last_service_state(self, desk_id: str) -> State:
        """Where the service with the desk stood at its newest control message, on any device of
        the account: what an app opened (or installed) again shows until a service reports."""
        code = lib.quor_cs_xmpp_host_last_service_state(self._live(), _utf8(desk_id, "desk_id"))
        _check(min(code, 0))
        return State(code)

    def logout(self) -> None:
        lib.quor_cs_xmpp_host_logout(self._live())

    def close(self) -> None:
        if self._host is not None:
            lib.quor_cs_xmpp_host_destroy(self._host)
            self._host = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


class PushNotification:
    """A push notification as quor-cs-push hands it on: which desk wrote, how many of its
    messages came since the app went to the background, and for which account. Read without a
    link, to open the right conversation."""

    __slots__ = ("desk_id", "unread", "account")

    def __init__(self, desk_id: str, unread: int, account: str):
        self.desk_id, self.unread, self.account = desk_id, unread, account

    @classmethod
    def read(cls, text: str) -> "PushNotification":
        """Raises ValueError for text that is not such a notification."""
        desk, account = ffi.new("char**"), ffi.new("char**")
        unread = ffi.new("int64_t*")
        code = lib.quor_cs_push_notification_read(_utf8(text, "text"), desk, unread, account)
        try:
            if code != Result.OK:
                raise ValueError("quor_cs: not a push notification")
            return cls(_text(desk[0]), int(unread[0]), _text(account[0]))
        finally:
            lib.quor_cs_free(desk[0])
            lib.quor_cs_free(account[0])

    def __repr__(self):
        return f"PushNotification({self.desk_id!r}, unread={self.unread}, {self.account!r})"


# The app's own main loop: `post(task)` is called from any thread; the loop then calls
# run_task(task) (or drop_task(task)) on its main thread, once.
_dispatcher = None


class Task:
    """One closure of the library for the main thread: run it (or drop it) once."""

    __slots__ = ("_task",)

    def __init__(self, task):
        self._task = task

    def _take(self):
        task, self._task = self._task, None
        if task is None:
            raise ValueError("quor_cs: the task was run or dropped already")
        return task


# Tasks the app's post() raised for: handed to it again, first, at the next post.
_unposted: List[Task] = []
_unposted_lock = threading.Lock()


def set_dispatcher(post: Optional[Callable[[Task], None]]) -> None:
    """Hands the library's main-thread work to `post` (called on any thread) as Task objects;
    the app's loop calls run_task() or drop_task() on each, once. A post that raises is
    reported and given the task again with the next post, so no task is lost."""
    global _dispatcher
    if post is None:
        lib.quor_cs_set_dispatcher(ffi.NULL, ffi.NULL)
        _dispatcher = None
        return

    @ffi.callback("void(void*, quor_cs_task*)", onerror=_report)
    def posted(_user, task):
        with _unposted_lock:
            waiting = _unposted[:] + [Task(task)]
            _unposted.clear()
        for index, item in enumerate(waiting):
            try:
                post(item)
            except BaseException:
                with _unposted_lock:
                    _unposted[:0] = waiting[index:]
                raise

    _dispatcher = posted  # kept alive while installed
    lib.quor_cs_set_dispatcher(posted, ffi.NULL)


def run_task(task: Task) -> None:
    """Runs a posted task on the calling (main) thread; ValueError when it ran already."""
    lib.quor_cs_run_task(task._take())


def drop_task(task: Task) -> None:
    """Frees a posted task without running it; ValueError when it ran already."""
    lib.quor_cs_drop_task(task._take())
