"""The agent console's browser tests: a private XMPP server, the desk program with its console,
customers on the Python binding, and agents in a headless browser: Debian's chromium through
selenium and chromedriver, or Debian's firefox-esr through its own WebDriver BiDi (firefox.py).
The test command sets the programs' paths, the browser (QUOR_CS_BROWSER, chromium by default)
and where the screenshots go."""
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

import pytest
from selenium import webdriver
from selenium.common.exceptions import StaleElementReferenceException
from selenium.webdriver.chrome.service import Service as DriverService
from selenium.webdriver.support.ui import WebDriverWait

import quor_cs

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "python"))
from private_server import private_server, program  # noqa: E402
from firefox import FirefoxDriver  # noqa: E402

BROWSER = os.environ.get("QUOR_CS_BROWSER", "chromium")

AGENTS = ["Ada", "Bo"]


def password(agent):
    return f"{agent.lower()}-password"
ACCOUNTS = ["mei", "kai", "hostile", "rita", "tina", "shop"]


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


@pytest.fixture(scope="module")
def server_port():
    with private_server([f"{account}:{account}-pw" for account in ACCOUNTS]) as port:
        yield port


class Desk:
    """The desk program with its console on a fixed port, so that a restart keeps the link."""

    def __init__(self, server_port, state):
        self.server_port = server_port
        self.state = state
        self.console_port = free_port()
        self.process = None
        self.link = None

    def start(self):
        for agent in AGENTS:  # the desk's owner makes its agents, passwords on standard input
            subprocess.run([program("QUOR_CS_DESK_PROGRAM"), "agent", "add", agent, "--jid",
                            "shop@localhost", "--state", self.state],
                           input=password(agent) + "\n", text=True, check=True)
        self.process = subprocess.Popen(
            [program("QUOR_CS_DESK_PROGRAM"), "--jid", "shop@localhost", "--state", self.state,
             "--server", "127.0.0.1", "--port", str(self.server_port),
             "--console", f"127.0.0.1:{self.console_port}"],
            env={**os.environ, "QUOR_CS_DESK_PASSWORD": "shop-pw"},
            stderr=subprocess.PIPE, text=True)
        for line in self.process.stderr:
            if "agent console at " in line:
                self.link = line.split("agent console at ")[1].strip()
            if "serving as" in line:
                break
        assert self.link, "the desk printed no console link"

    def stop(self):
        if self.process:
            self.process.send_signal(signal.SIGTERM)
            self.process.wait(timeout=30)
            self.process = None

    @property
    def base(self):
        return self.link.rstrip("/")


@pytest.fixture(scope="module")
def desk(server_port, tmp_path_factory):
    made = Desk(server_port, str(tmp_path_factory.mktemp("desk") / "desk.sqlite"))
    made.start()
    try:
        yield made
    finally:
        made.stop()


class Screen(quor_cs.Observer):
    def __init__(self):
        self.states, self.lines, self.last, self.dialog = [], [], None, None

    def on_state_changed(self, status):
        self.states.append(status.state)
        self.last = status

    def on_message(self, message):
        self.lines.append((message.author, message.text))

    def on_rating_requested(self, dialog_id):
        self.dialog = dialog_id or "asked"


class Customer:
    """A customer on the Python binding over the private server."""

    def __init__(self, account, server_port, name):
        self.host = quor_cs.XmppHost(f"{account}@localhost", f"{account}-pw", server="127.0.0.1",
                                     port=server_port)
        self.host.connect()
        assert self.host.wait_online(10)
        self.screen = Screen()
        self.service = quor_cs.Service("shop", self.screen)
        self.service.start({"userInfo": {"userId": account, "name": name},
                            "contactInfo": {"email": f"{account}@example.com"},
                            "requestInfo": {"page": "orders"}}, timeout=15)
        self.settle()

    def settle(self):
        self.host.settle(0.3)

    def until(self, condition, seconds=15):
        deadline = time.time() + seconds
        while time.time() < deadline:
            self.settle()
            if condition():
                return True
        return False

    def close(self):
        self.service.close()
        self.host.close()


@pytest.fixture
def customers(server_port):
    made = []

    def make(account, name):
        made.append(Customer(account, server_port, name))
        return made[-1]

    yield make
    for customer in made:
        customer.close()


@pytest.fixture(scope="session")
def browser_home():
    # The browsers' profiles and sockets go here, not into the machine's /tmp, and go with the test.
    home = tempfile.mkdtemp(prefix="quor-cs-console-")
    yield home
    shutil.rmtree(home, ignore_errors=True)


@pytest.fixture
def browser(browser_home):
    drivers = []

    def make(url):
        profile = tempfile.mkdtemp(dir=browser_home)
        if BROWSER == "firefox":
            driver = FirefoxDriver(profile)
            drivers.append(driver)
            driver.get(url)
            return driver
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for argument in ["--headless=new", "--no-sandbox", "--disable-gpu",
                         "--window-size=1280,800", "--lang=en-US", f"--user-data-dir={profile}"]:
            options.add_argument(argument)
        service = DriverService("/usr/bin/chromedriver",
                                env={**os.environ, "TMPDIR": browser_home})
        driver = webdriver.Chrome(service=service, options=options)
        drivers.append(driver)
        driver.get(url)
        return driver

    yield make
    for driver in drivers:
        driver.quit()


def wait(driver, condition, seconds=15):
    # The page redraws its lists as events come: an element read while it is replaced is read
    # again at the next poll.
    return WebDriverWait(driver, seconds, poll_frequency=0.1,
                         ignored_exceptions=[StaleElementReferenceException]).until(
                             lambda _: condition())


def shot(driver, name):
    folder = os.environ.get("QUOR_CS_SCREENSHOTS")
    if folder:
        os.makedirs(folder, exist_ok=True)
        suffix = "" if BROWSER == "chromium" else "-" + BROWSER
        driver.save_screenshot(os.path.join(folder, name + suffix + ".png"))
