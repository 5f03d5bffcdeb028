"""The agent console's browser tests: a private XMPP server, the desk program with its console,
customers on the Python binding, and agents in a headless browser: Debian's chromium through
selenium and chromedriver, or Debian's firefox-esr through its own WebDriver BiDi (firefox.py).
The test command sets the programs' paths, the browser (QUOR_CS_BROWSER, chromium by default)
and where the screenshots go."""
import json
import os
import select
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

import pytest
from selenium import webdriver
from selenium.common.exceptions import StaleElementReferenceException, TimeoutException
from selenium.webdriver.chrome.service import Service as DriverService
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

import quor_cs

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "python"))
from private_server import private_server, program  # noqa: E402
from firefox import FirefoxDriver  # noqa: E402

BROWSER = os.environ.get("QUOR_CS_BROWSER", "chromium")

AGENTS = ["Ada", "Bo"]


def password(agent):
    return f"{agent.lower()}-password"
ACCOUNTS = ["mei", "kai", "hostile", "rita", "tina", "shop", "lu", "zoe", "noa", "ivy", "max",
            "sam", "eli", "ana", "kim", "lee", "pia"]


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


@pytest.fixture(scope="module")
def server_port():
    with private_server([f"{account}:{account}-pw" for account in ACCOUNTS],
                        file_share=1024 * 1024) as port:
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
        # The desk's canned replies, beside its state file, as its owner would write them.
        with open(self.state + ".replies.txt", "w", encoding="utf-8") as replies:
            replies.write("Hello {name}, thanks for waiting.\n# for returns\n\nOne moment, {name}.\n")
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


class Screen:
    """What a customer's app has shown: its states, lines, last status and rating request, each
    line's delivery (by sequence), the desk's typing and its files."""

    def __init__(self):
        self.states, self.lines, self.last, self.dialog = [], [], None, None
        self.deliveries, self.desk_typing = {}, []
        self.files, self.downloaded = {}, {}  # a file line's sequence by name; what came of it


class Status:
    def __init__(self, news):
        self.state = quor_cs.State(news["state"])
        self.reason = quor_cs.Reason(news["reason"])
        self.text = news["text"]


class Customer:
    """A customer in a process of their own (customer.py): a process has one XMPP host, as a
    phone has one app, and a test may need several customers at once."""

    def __init__(self, account, server_port, name, files):
        self.process = subprocess.Popen(
            [sys.executable, os.path.join(os.path.dirname(__file__), "customer.py"), account, name,
             str(server_port), str(files)], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            text=True)
        self.pending = b""
        self.screen = Screen()
        self.service = self  # the operations are this object's: customer.service.send_text(...)
        assert self.until(lambda: self.screen.last is not None
                          and self.screen.last.state not in (quor_cs.State.NOT_STARTED,
                                                             quor_cs.State.CONNECTING,
                                                             quor_cs.State.CONNECTED))

    def _order(self, **order):
        self.process.stdin.write(json.dumps(order) + "\n")
        self.process.stdin.flush()

    def ask_for_agent(self):
        self._order(do="ask")

    def choose_group(self, group):
        self._order(do="group", id=group)

    def send_text(self, text):
        self._order(do="say", text=text)

    def rate_agent(self, stars, suggestion=None):
        self._order(do="rate", stars=stars, suggestion=suggestion)

    def leave_message(self, values):
        self._order(do="leave", values=values)

    def set_typing(self, typing):
        self._order(do="typing", typing=typing)

    def mark_read(self):
        self._order(do="read")

    def send_file(self, path, mime_type=None):
        self._order(do="file", path=str(path), type=mime_type)

    def download_file(self, sequence):
        self._order(do="download", sequence=sequence)

    def settle(self, seconds=0.3):
        # Takes in what the customer's app reported within `seconds` (read from the pipe itself:
        # a buffered reader would hold lines that select() cannot see).
        deadline = time.time() + seconds
        while True:
            while b"\n" in self.pending:
                line, self.pending = self.pending.split(b"\n", 1)
                self.hear(json.loads(line))
            left = deadline - time.time()
            if left <= 0 or not select.select([self.process.stdout], [], [], left)[0]:
                return
            chunk = os.read(self.process.stdout.fileno(), 65536)
            if not chunk:
                return
            self.pending += chunk

    def hear(self, news):
        if "state" in news:
            self.screen.last = Status(news)
            self.screen.states.append(self.screen.last.state)
        elif "line" in news:
            self.screen.lines.append((quor_cs.Author(news["line"][0]), news["line"][1]))
            if "sequence" in news:
                self.screen.files[news["line"][1][len("[file] "):]] = news["sequence"]
        elif "downloaded" in news:
            self.screen.downloaded[news["downloaded"][0]] = tuple(news["downloaded"][1:])
        elif "dialog" in news:
            self.screen.dialog = news["dialog"]
        elif "delivery" in news:
            self.screen.deliveries[news["delivery"][0]] = quor_cs.Delivery(news["delivery"][1])
        elif "deskTyping" in news:
            self.screen.desk_typing.append(news["deskTyping"])
        elif "error" in news:
            raise AssertionError(f"the customer's app: {news['error']}")

    def until(self, condition, seconds=15):
        deadline = time.time() + seconds
        while time.time() < deadline:
            self.settle()
            if condition():
                return True
        return False

    def close(self):
        if self.process.poll() is None:
            try:
                self._order(do="quit")
                self.process.wait(timeout=15)
            except (OSError, subprocess.TimeoutExpired):
                self.process.kill()
                self.process.wait()


@pytest.fixture
def customers(server_port, tmp_path):
    made = []

    def make(account, name):
        made.append(Customer(account, server_port, name, tmp_path / f"{account}-files"))
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

    def make(url, dark=False, language="en-US"):
        profile = tempfile.mkdtemp(dir=browser_home)
        if BROWSER == "firefox":
            driver = FirefoxDriver(profile, dark=dark, language=language)
            drivers.append(driver)
            driver.get(url)
            return driver
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for argument in ["--headless=new", "--no-sandbox", "--disable-gpu",
                         "--window-size=1280,800", f"--lang={language}",
                         f"--user-data-dir={profile}"]:
            options.add_argument(argument)
        options.add_experimental_option("prefs", {"intl.accept_languages": language})
        service = DriverService("/usr/bin/chromedriver",
                                env={**os.environ, "TMPDIR": browser_home})
        driver = webdriver.Chrome(service=service, options=options)
        driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [
            {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}]})
        viewport(driver, 1280, 800)  # the page's own size, without the window's frame
        drivers.append(driver)
        driver.get(url)
        return driver

    yield make
    for driver in drivers:
        driver.quit()


def wait(driver, condition, seconds=15):
    # The page redraws its lists as events come: an element read while it is replaced is read
    # again at the next poll. A condition that never holds says what the page showed.
    try:
        return WebDriverWait(driver, seconds, poll_frequency=0.1,
                             ignored_exceptions=[StaleElementReferenceException]).until(
                                 lambda _: condition())
    except TimeoutException:
        raise AssertionError(f"the page never got there; it showed: {page_state(driver)}") from None


def page_state(driver):
    try:
        return driver.execute_script(
            "const text = (id) => document.getElementById(id)?.textContent.trim();"
            "return {visibility: document.visibilityState, agent: text('agent'),"
            " open: text('customer-name'), state: text('customer-state'),"
            " sayHidden: document.getElementById('say')?.hidden, connection: text('connection'),"
            " list: [...document.querySelectorAll('#customer-list tr')].map(r => r.textContent)};")
    except Exception as error:  # the page itself is gone
        return repr(error)


def shot(driver, name):
    folder = os.environ.get("QUOR_CS_SCREENSHOTS")
    if folder:
        os.makedirs(folder, exist_ok=True)
        suffix = "" if BROWSER == "chromium" else "-" + BROWSER
        driver.save_screenshot(os.path.join(folder, name + suffix + ".png"))


def viewport(driver, width, height):
    """The page's viewport, as a phone's or a desktop's window."""
    if BROWSER == "firefox":
        driver.set_viewport(width, height)
    else:
        driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})


def press(driver, keys):
    """Keys typed into whatever has the focus (WebDriver key codes: TAB, ENTER, ESCAPE)."""
    if BROWSER == "firefox":
        driver.press(keys)
    else:
        ActionChains(driver).send_keys(keys).perform()


def alt(driver, key):
    if BROWSER == "firefox":
        driver.chord(Keys.ALT, key)
    else:
        ActionChains(driver).key_down(Keys.ALT).send_keys(key).key_up(Keys.ALT).perform()


AXE = os.environ.get("QUOR_CS_AXE")
WCAG_A_AA = ["wcag2a", "wcag2aa", "wcag21a", "wcag21aa"]


def accessibility_violations(driver):
    """axe-core's WCAG 2.1 A and AA rules, run inside the page as it stands: the violations, each
    as its rule and the elements it found."""
    with open(AXE, encoding="utf-8") as source:
        script = source.read()
    driver.execute_script(script + "\nreturn true;")
    found = driver.execute_script(
        "return axe.run(document, {runOnly: {type: 'tag', values: %s}})"
        ".then(r => r.violations.map(v => v.id + ': ' + v.nodes.map(n => n.target.join(' '))"
        ".join(', ')).join('\\n'));" % json.dumps(WCAG_A_AA))
    return [line for line in found.split("\n") if line]
