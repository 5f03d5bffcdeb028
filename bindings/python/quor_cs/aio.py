"""The service for asyncio code: operations that wait for the desk are awaited, and the
conversation is an async iterator.

The library's main-thread work runs on the event loop: while an AsyncService is open, the
library's dispatcher posts its tasks to the loop (call_soon_threadsafe), so no settle() is
needed, with the test kit or an XmppHost alike. Use it from the loop's thread only; one
dispatcher serves the process, so the services of one process share one loop.
"""

import asyncio
from typing import Any, AsyncIterator, Callable, Dict, Optional

from . import (Message, Observer, Service, State, Status, drop_task, run_task,
               set_dispatcher)

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

    def on_state_changed(self, status: Status) -> None:
        self.status = status
        self._changed.set()

    def on_message(self, message: Message) -> None:
        self._lines.put_nowait(message)


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
