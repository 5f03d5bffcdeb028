"""The service for asyncio code: operations that wait for the desk are awaited, and the
conversation is an async iterator.

The library's main-thread work runs on the event loop: while an AsyncService is open, the
library's dispatcher posts its tasks to the loop (call_soon_threadsafe), so no settle() is
needed, with the test kit or an XmppHost alike. Use it from the loop's thread only; one
dispatcher serves the process, so the services of one process share one loop.
"""

import asyncio
from collections import deque
from typing import Any, AsyncIterator, Callable, Dict, Optional, Tuple

from . import (Author, Delivery, File, FileFailed, Message, Observer, Service, State, Status,
               drop_task, run_task, set_dispatcher)

Progress = Optional[Callable[[int, int], None]]

__all__ = ["AsyncService"]

# The states of a start the desk has not finished answering: its answer and its first mode
# may come in two turns of the loop.
_ANSWERING = (State.NOT_STARTED, State.CONNECTING, State.CONNECTED)


class _Feed(Observer):
    """The observer of an AsyncService: it keeps the last status and queues the lines."""

    def __init__(self, changed: asyncio.Event, lines: "asyncio.Queue[Message]"):
        self.status: Optional[Status] = None
        self._changed = changed
        self._lines = lines
        # Files sent and not yet reported as lines, in order; then by their line's sequence.
        self.unnumbered: "deque[Tuple[asyncio.Future, Progress]]" = deque()
        self.transfers: Dict[int, Tuple[asyncio.Future, Progress]] = {}

    def on_state_changed(self, status: Status) -> None:
        self.status = status
        self._changed.set()

    def on_message(self, message: Message) -> None:
        if message.author == Author.CUSTOMER and message.file is not None and self.unnumbered:
            self.transfers[message.sequence] = self.unnumbered.popleft()
        self._lines.put_nowait(message)

    def on_message_delivery(self, message: Message) -> None:
        # The upload's one outcome: SENT, FAILED, or UNCONFIRMED (sent again by itself).
        if message.delivery == Delivery.SENDING or message.sequence not in self.transfers:
            return
        future, _ = self.transfers.pop(message.sequence)
        if not future.done():
            future.set_result(message)

    def on_file_progress(self, sequence: int, done: int, total: int) -> None:
        _, progress = self.transfers.get(sequence, (None, None))
        if progress:
            progress(done, total)

    def on_file_downloaded(self, sequence: int, file: File, error_code: int) -> None:
        future, _ = self.transfers.pop(sequence, (None, None))
        if future is None or future.done():
            return
        if error_code:
            future.set_exception(FileFailed(error_code))
        else:
            future.set_result(file)


class AsyncService:
    """One service with one desk for asyncio code. `async with AsyncService(desk_id) as s:`;
    `await s.start(customer)` returns the status the desk's answer led to; `async for line in
    s.lines():` yields the conversation's lines as they come (the customer's own included)."""

    def __init__(self, desk_id: str, loop: Optional[asyncio.AbstractEventLoop] = None):
        self._loop = loop or asyncio.get_running_loop()
        self._changed = asyncio.Event()
        self._lines: "asyncio.Queue[Message]" = asyncio.Queue()
        self._feed = _Feed(self._changed, self._lines)
        set_dispatcher(self._post)
        self.service = Service(desk_id, self._feed)

    def _post(self, task) -> None:
        # Called on any thread; a closed loop drops the task instead of running it.
        try:
            self._loop.call_soon_threadsafe(run_task, task)
        except RuntimeError:
            drop_task(task)

    @property
    def status(self) -> Status:
        return self.service.status

    async def start(self, customer: Optional[Dict[str, Any]] = None,
                    timeout: float = 15) -> Status:
        """Sends the handshake; returns the state the desk's answer led to (the robot, an agent,
        the group choice) or FAILED. A desk that sends no mode within the timeout leaves the
        service CONNECTED, and that is returned."""
        self.service.start(customer, timeout)
        try:
            return await asyncio.wait_for(
                self._until(lambda status: status.state not in _ANSWERING), timeout or None)
        except asyncio.TimeoutError:
            return self.status

    async def ask_for_agent(self) -> Status:
        """Asks for an agent; returns the next state the desk's answer leads to."""
        return await self._after(self.service.ask_for_agent)

    async def choose_group(self, group_id: str) -> Status:
        return await self._after(lambda: self.service.choose_group(group_id))

    def send_text(self, text: str) -> None:
        self.service.send_text(text)

    async def send_file(self, path: str, name: Optional[str] = None,
                        mime_type: Optional[str] = None, progress: Progress = None) -> Message:
        """Sends a file and returns its line once the upload has its outcome (SENT, FAILED or
        UNCONFIRMED); `progress(done, total)` as it goes. Refused at once as Service.send_file.
        Cancelling the awaiting task cancels the upload."""
        future = self._loop.create_future()
        self._feed.unnumbered.append((future, progress))
        try:
            self.service.send_file(path, name, mime_type)
        except BaseException:
            self._feed.unnumbered.pop()
            raise
        try:
            return await asyncio.shield(future)
        except asyncio.CancelledError:
            for sequence, (waiting, _) in list(self._feed.transfers.items()):
                if waiting is future and self.service is not None:
                    self.service.cancel_file(sequence)
            raise

    async def download_file(self, sequence: int, progress: Progress = None) -> File:
        """Fetches the desk's file of line `sequence` into the host's file cache and returns it
        (local_path set, mime_type as its bytes show); raises FileFailed with the host's code."""
        future = self._loop.create_future()
        self._feed.transfers[sequence] = (future, progress)
        try:
            self.service.download_file(sequence)
        except BaseException:
            del self._feed.transfers[sequence]
            raise
        return await future

    async def lines(self) -> AsyncIterator[Message]:
        """The conversation's lines as they are reported, until the service is closed."""
        while self.service is not None:
            yield await self._lines.get()

    async def _after(self, operation: Callable[[], None]) -> Status:
        before = self._feed.status
        operation()
        return await self._until(lambda status: status is not before)

    async def _until(self, done: Callable[[Status], bool]) -> Status:
        while self._feed.status is None or not done(self._feed.status):
            self._changed.clear()
            await self._changed.wait()
        return self._feed.status

    async def aclose(self) -> None:
        """Ends the service and gives the main thread back to the installed host."""
        if self.service is not None:
            self.service.close()
            self.service = None
            set_dispatcher(None)

    async def __aenter__(self) -> "AsyncService":
        return self

    async def __aexit__(self, *_) -> None:
        await self.aclose()
