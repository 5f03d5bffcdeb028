"""The Python binding: a whole journey against the test kit, bad input, the app's own loop."""
import asyncio

import pytest

import quor_cs


class Screen(quor_cs.Observer):
    def __init__(self):
        self.states, self.lines, self.unread, self.dialog, self.sent = [], [], None, None, 0
        self.read, self.desk_typing = 0, []

    def on_state_changed(self, status):
        self.states.append(status.state)
        self.last = status

    def on_message(self, message):
        self.lines.append((message.author, message.text))

    def on_message_delivery(self, message):
        self.sent += message.delivery == quor_cs.Delivery.SENT
        self.read += message.delivery == quor_cs.Delivery.READ

    def on_desk_typing(self, typing):
        self.desk_typing.append(typing)

    def on_unread_count_changed(self, unread):
        self.unread = unread

    def on_rating_requested(self, dialog_id):
        self.dialog = dialog_id


@pytest.fixture
def kit():
    with quor_cs.Kit({"evaluation": {"askAfterAgentReplies": 1},
                      "end": {"afterEvaluation": True}}) as made:
        yield made


def test_a_journey_with_a_group_the_agent_a_rating_and_the_desks_end(kit):
    screen = Screen()
    with quor_cs.Service(kit.desk_id, screen) as service:
        with pytest.raises(quor_cs.Refused) as refused:
            service.send_text("too early")
        assert refused.value.result == quor_cs.Result.NOT_CONNECTED
        service.start({"userInfo": {"userId": "c-7", "name": "梅"}}, timeout=15)
        kit.settle()
        assert service.status.state == quor_cs.State.ROBOT
        assert service.status.config["companyName"] == "Quor Shop"

        service.send_text("Where is my order?")
        kit.settle()
        assert screen.sent == 1 and service.unread_count == 2 and screen.unread == 2
        service.mark_read()
        kit.settle()
        assert screen.unread == 0
        # Typing both ways, and the desk reads the customer's line.
        assert kit.customer_typing is None
        service.set_typing(True)
        assert kit.customer_typing is True
        service.set_typing(False)
        assert kit.customer_typing is False
        kit.desk_typing(True)
        kit.desk_read()
        kit.settle()
        assert screen.desk_typing == [True] and screen.read == 1

        service.ask_for_agent()
        kit.settle()
        assert [group.id for group in screen.last.groups] == ["sales", "after-sales"]
        with pytest.raises(quor_cs.Refused):
            service.choose_group("nobody")
        service.choose_group("sales")
        kit.settle()
        with pytest.raises(quor_cs.InvalidForm) as invalid:
            service.leave_message({"phone": "12"})
        assert invalid.value.field_errors["phone"] == "mobile"
        service.send_text("I want to return it")
        kit.settle()
        assert screen.dialog
        with pytest.raises(quor_cs.Refused) as refused:
            service.rate_agent(3)
        assert refused.value.result == quor_cs.Result.STARS_NOT_OFFERED
        service.rate_agent(5, "great", resolved=1, extra={"channel": "python"})
        kit.settle()

    S = quor_cs.State
    assert screen.states == [S.CONNECTING, S.CONNECTED, S.ROBOT, S.CHOOSING_GROUP,
                             S.WAITING_FOR_AGENT, S.AGENT, S.ENDED]
    assert screen.last.reason == quor_cs.Reason.DESK_ENDED
    A = quor_cs.Author
    assert screen.lines[:3] == [
        (A.ROBOT, "Hi, I am Ava, the Quor Shop assistant. How can I help?"),
        (A.CUSTOMER, "Where is my order?"),
        (A.ROBOT, "Orders ship within 24 hours; you can follow yours under Me > Orders.")]
    assert (A.AGENT, "Hello, this is Kai from Sales. How can I help?") in screen.lines
    assert screen.lines[-1] == (A.NOTICE, "Thank you for contacting Quor Shop. Goodbye!")


def test_bad_input_raises_and_an_observers_exception_stays_in_python(kit, capsys):
    with quor_cs.Service(kit.desk_id) as service:
        with pytest.raises(ValueError):
            service.start({"userInfo": float("nan")})  # not JSON: the C layer refuses it

    class Failing(quor_cs.Observer):
        def on_state_changed(self, status):
            raise RuntimeError("the app's bug")

    with quor_cs.Service(kit.desk_id, Failing()) as service:
        service.start()
        kit.settle()
        assert service.status.state == quor_cs.State.ROBOT  # the library carried on
    assert "the app's bug" in capsys.readouterr().err
    # A value a newer library adds reads as UNKNOWN.
    assert quor_cs.State(42) is quor_cs.State.UNKNOWN
    assert quor_cs.XmppError(31099) is quor_cs.XmppError.UNKNOWN
    assert quor_cs.XmppError(31003) is quor_cs.XmppError.TIMEOUT


def test_texts_that_cannot_be_sent_are_refused_and_a_line_is_retried(kit):
    with quor_cs.Service(kit.desk_id) as service:
        service.start()
        kit.settle()
        cases = [("\ud800 lone surrogate", quor_cs.Result.INVALID_TEXT),
                 ('"' * 40, quor_cs.Result.TOO_LARGE)]
        service.max_text_bytes = 64
        assert service.max_text_bytes == 64
        for text, result in cases:
            with pytest.raises(quor_cs.Refused) as refused:
                service.send_text(text)
            assert refused.value.result == result
        with pytest.raises(TypeError):
            service.send_text(None)
        with pytest.raises(quor_cs.Refused) as refused:
            service.rate_agent(5, "\udfff")
        assert refused.value.result == quor_cs.Result.INVALID_TEXT
        service.send_text("hello")
        kit.settle()
        with pytest.raises(quor_cs.Refused) as refused:
            service.retry(2)  # the line was sent: nothing to retry
        assert refused.value.result == quor_cs.Result.NOT_RETRYABLE


def test_the_apps_own_loop_runs_the_callbacks(kit):
    tasks = []
    quor_cs.set_dispatcher(tasks.append)
    try:
        screen = Screen()
        with quor_cs.Service(kit.desk_id, screen) as service:
            service.start()
            kit.settle()
            assert screen.states == []  # nothing until the app runs its tasks
            while tasks:
                quor_cs.run_task(tasks.pop(0))
                kit.settle()
            assert screen.states[-1] == quor_cs.State.ROBOT
    finally:
        for task in tasks:
            quor_cs.drop_task(task)
        quor_cs.set_dispatcher(None)


def test_misuse_fails_loudly_and_loses_nothing(kit, capsys):
    tasks, failures = [], [2]

    def post(task):
        if failures[0]:
            failures[0] -= 1
            raise RuntimeError("the app's loop is busy")
        tasks.append(task)

    quor_cs.set_dispatcher(post)
    try:
        screen = Screen()
        with quor_cs.Service(kit.desk_id, screen) as service:
            service.start()
            kit.settle()
            service.mark_read()  # one more post: the tasks refused before come with it
            kit.settle()
            ran = tasks[0]
            while tasks:
                quor_cs.run_task(tasks.pop(0))
                kit.settle()
            assert screen.states[:3] == [quor_cs.State.CONNECTING, quor_cs.State.CONNECTED,
                                         quor_cs.State.ROBOT]
            with pytest.raises(ValueError, match="already"):
                quor_cs.run_task(ran)
            with pytest.raises(ValueError):
                service.rate_agent(5, extra={"when": object()})
    finally:
        for task in tasks:
            quor_cs.drop_task(task)
        quor_cs.set_dispatcher(None)
    assert "the app's loop is busy" in capsys.readouterr().err
    with pytest.raises(quor_cs.Closed):
        service.send_text("after close")
    kit.close()
    with pytest.raises(quor_cs.Closed):
        kit.settle()


def test_one_kit_and_one_service_per_desk_at_a_time(kit):
    with pytest.raises(RuntimeError, match="another kit or host"):
        quor_cs.Kit()
    with quor_cs.Service(kit.desk_id):
        with pytest.raises(RuntimeError, match="open already"):
            quor_cs.Service(kit.desk_id)
    with quor_cs.Service(kit.desk_id):  # once the first is closed
        pass


def test_a_service_closed_in_its_own_callback_hears_nothing_more(kit):
    class Closing(quor_cs.Observer):
        def __init__(self):
            self.after = 0
            self.service = None

        def on_message(self, message):
            if self.service is None:
                self.after += 1
                return
            service, self.service = self.service, None
            service.close()

        def on_unread_count_changed(self, unread):
            self.after += self.service is None

    observer = Closing()
    observer.service = quor_cs.Service(kit.desk_id, observer)
    observer.service.start()
    kit.settle()
    kit.desk_say("anyone there?")
    kit.settle()
    assert observer.service is None and observer.after == 0


def test_asyncio_awaits_the_desk_and_iterates_the_conversation(kit):
    from quor_cs.aio import AsyncService

    async def journey():
        async with AsyncService(kit.desk_id) as service:
            started = await service.start({"userInfo": {"userId": "a-1"}})
            assert started.state == quor_cs.State.ROBOT
            service.send_text("Where is my order?")
            kit.desk_invite_leave_message("Leave us a message")
            lines = []
            async for line in service.lines():
                lines.append((line.author, line.text))
                if line.author == quor_cs.Author.LEAVE_MESSAGE_INVITATION:
                    break
            assert lines[1] == (quor_cs.Author.CUSTOMER, "Where is my order?")
            assert lines[-1] == (quor_cs.Author.LEAVE_MESSAGE_INVITATION, "Leave us a message")
            groups = await service.ask_for_agent()
            assert groups.state == quor_cs.State.CHOOSING_GROUP

    asyncio.run(asyncio.wait_for(journey(), 30))


def test_files_are_awaited_with_progress_refused_at_once_and_fetched_into_the_cache(
        kit, tmp_path):
    from quor_cs.aio import AsyncService

    photo = tmp_path / "parcel.png"
    photo.write_bytes(b"\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR\0\0\x02\x80\0\0\x01\xe0" + b"x" * 76)
    cache = tmp_path / "cache"

    async def journey():
        async with AsyncService(kit.desk_id) as service:
            await service.start()
            with pytest.raises(quor_cs.Refused) as refused:
                service.service.send_file(photo)
            assert refused.value.result == quor_cs.Result.FILES_NOT_OFFERED
            kit.set_max_file_bytes(100)
            kit.set_file_cache(cache)
            assert quor_cs.max_file_bytes() == 100
            moved = []
            line = await service.send_file(photo, progress=lambda done, total: moved.append(done))
            assert line.delivery == quor_cs.Delivery.SENT and moved[-1] == 100
            for path, mime_type, result in ((photo, "image/svg+xml", "TYPE_NOT_ACCEPTED"),
                                            (tmp_path / "none.png", None, "FILE_UNREADABLE")):
                with pytest.raises(quor_cs.Refused) as refused:
                    await service.send_file(path, mime_type=mime_type)
                assert refused.value.result == quor_cs.Result[result]
            photo.write_bytes(photo.read_bytes() + b"!")
            with pytest.raises(quor_cs.Refused):
                await service.send_file(photo)

            kit.desk_file("../../label.gif", "image/gif", b"GIF89a\x02\0\x03\0rest")
            async for line in service.lines():
                if line.file is not None and line.author == quor_cs.Author.ROBOT:
                    break
            assert line.file.name == "../../label.gif" and line.text == ""
            saved = await service.download_file(line.sequence)
            assert saved.mime_type == "image/gif"
            assert saved.local_path.startswith(str(cache) + "/")
            assert open(saved.local_path, "rb").read().startswith(b"GIF89a")

    asyncio.run(asyncio.wait_for(journey(), 30))
