"""A customer in Python over a private XMPP server, against the desk program quor-cs-desk: what a
desk builder runs to test a desk from Python."""
import os
import subprocess

import pytest

import quor_cs
from private_server import private_server, program


@pytest.fixture
def server_port():
    with private_server(["mei:mei-pw", "shop:shop-pw"]) as port:
        yield port


@pytest.fixture
def desk(server_port, tmp_path):
    desk = subprocess.Popen(
        [program("QUOR_CS_DESK_PROGRAM"), "--jid", "shop@localhost", "--state",
         str(tmp_path / "desk.sqlite"), "--server", "127.0.0.1", "--port", str(server_port)],
        env={**os.environ, "QUOR_CS_DESK_PASSWORD": "shop-pw"}, stderr=subprocess.PIPE, text=True)
    try:
        for line in desk.stderr:
            if "serving as" in line:
                break
        yield "shop"
    finally:
        desk.terminate()
        desk.wait(timeout=30)


class Screen(quor_cs.Observer):
    def __init__(self):
        self.states, self.lines = [], []

    def on_state_changed(self, status):
        self.states.append(status.state)

    def on_message(self, message):
        self.lines.append((message.author, message.text))


def test_a_customer_over_xmpp_reaches_the_robot_and_an_agent(server_port, desk):
    with quor_cs.XmppHost("mei@localhost", "mei-pw", server="127.0.0.1",
                          port=server_port) as host:
        host.connect()
        assert host.wait_online(10)
        assert host.status == 0
        screen = Screen()
        with quor_cs.Service(desk, screen) as service:
            service.start({"userInfo": {"userId": "mei", "name": "Mei"}}, timeout=15)
            host.settle()
            assert screen.states[-1] == quor_cs.State.ROBOT
            service.send_text("Where is my order?")
            host.settle()
            service.ask_for_agent()
            host.settle()
            service.choose_group("sales")
            host.settle()
            assert screen.states[-1] == quor_cs.State.AGENT
            # What an app opened again would show, kept by the host.
            assert host.last_service_state(desk) == quor_cs.State.AGENT
            with pytest.raises(TypeError):
                host.last_service_state(None)
        A = quor_cs.Author
        assert (A.ROBOT, "Orders ship within 24 hours; you can follow yours under Me > Orders.") \
            in screen.lines
        assert (A.AGENT, "Hello, this is Kai from Sales. How can I help?") in screen.lines
        texts = [entry.get("text") for entry in host.history(desk)]
        assert "Where is my order?" in texts
        host.logout()


def test_bad_xmpp_options_are_refused():
    with pytest.raises(ValueError, match="jid"):
        quor_cs.XmppHost("", "pw")
    with pytest.raises(ValueError, match="tls"):
        quor_cs.XmppHost("mei@localhost", "pw", tls="sometimes")


def test_a_wrong_password_is_reported_once_and_not_tried_again(server_port):
    with quor_cs.XmppHost("mei@localhost", "not-her-password", server="127.0.0.1",
                          port=server_port) as host:
        host.connect()
        assert not host.wait_online(10)  # returns as soon as the server refused
        assert host.status == quor_cs.XmppStatus.REFUSED
        host.logout()


def test_a_host_closed_before_its_services_leaves_the_next_kit_working(server_port, desk):
    host = quor_cs.XmppHost("mei@localhost", "mei-pw", server="127.0.0.1", port=server_port)
    host.connect()
    assert host.wait_online(10)
    early = quor_cs.Service(desk, Screen())
    early.start(timeout=15)  # closed before the desk answered
    host.close()
    early.close()
    with quor_cs.Kit() as kit:
        screen = Screen()
        with quor_cs.Service(kit.desk_id, screen) as service:
            service.start(timeout=15)
            kit.settle()
            assert screen.states[-1] == quor_cs.State.ROBOT


def test_the_app_state_the_push_registration_and_a_notification_read_without_a_link():
    with quor_cs.XmppHost("mei@localhost", "pw", push={"service": "push.localhost",
                                                        "token": "t1"}) as host:
        assert host.app_state is quor_cs.AppState.FOREGROUND
        host.app_state = quor_cs.AppState.SUSPENDED
        assert host.app_state is quor_cs.AppState.SUSPENDED
        for wrong in (quor_cs.AppState.UNKNOWN, 1):
            with pytest.raises(ValueError):
                host.app_state = wrong
        host.set_push("push.localhost", token="t2")
        with pytest.raises(TypeError):
            host.set_push("push.localhost", token=None)
    with pytest.raises(ValueError, match="push"):
        quor_cs.XmppHost("mei@localhost", "pw", push="push.localhost")

    note = quor_cs.PushNotification.read(
        '{"desk": "shop", "unread": 2, "account": "mei@localhost", "token": "t2"}')
    assert (note.desk_id, note.unread, note.account) == ("shop", 2, "mei@localhost")
    for bad in ("", "{}", '{"desk": "shop", "unread": "2"}', "[" * 10000):
        with pytest.raises(ValueError):
            quor_cs.PushNotification.read(bad)
