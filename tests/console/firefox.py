"""Firefox for the console's browser tests: Debian's firefox-esr, headless, driven over WebDriver
BiDi (the browser's own protocol, so no geckodriver is needed). It offers the part of selenium's
WebDriver that the tests use (get, find_element(s), text, click, send_keys, submit, clear,
is_displayed, alert, execute_script, save_screenshot, quit), so one test runs in Chromium and in
Firefox.

Clicks and keys are real input events. The profile turns off everything that would reach beyond
the machine (updates, telemetry, safe browsing, remote settings, prefetch)."""
import base64
import ctypes
import json
import os
import signal
import subprocess
import time

import websocket
from selenium.common.exceptions import (NoAlertPresentException, NoSuchElementException,
                                        StaleElementReferenceException, WebDriverException)
from selenium.webdriver.common.by import By

PREFERENCES = {
    "app.update.disabledForTesting": True,
    "app.normandy.enabled": False,
    "app.shield.optoutstudies.enabled": False,
    "browser.region.network.url": "",
    "browser.region.update.enabled": False,
    "browser.safebrowsing.blockedURIs.enabled": False,
    "browser.safebrowsing.downloads.enabled": False,
    "browser.safebrowsing.malware.enabled": False,
    "browser.safebrowsing.phishing.enabled": False,
    "browser.search.update": False,
    "browser.shell.checkDefaultBrowser": False,
    "browser.startup.homepage_override.mstone": "ignore",
    "browser.startup.page": 0,
    "browser.newtabpage.enabled": False,
    "datareporting.healthreport.uploadEnabled": False,
    "datareporting.policy.dataSubmissionEnabled": False,
    "dom.push.connection.enabled": False,
    "extensions.blocklist.enabled": False,
    "extensions.getAddons.cache.enabled": False,
    "extensions.update.enabled": False,
    "geo.provider.network.url": "",
    "intl.accept_languages": "en-US",
    "media.gmp-manager.updateEnabled": False,
    "messaging-system.rsexperimentloader.enabled": False,
    "network.captive-portal-service.enabled": False,
    "network.connectivity-service.enabled": False,
    "network.dns.disablePrefetch": True,
    "network.http.speculative-parallel-limit": 0,
    "network.prefetch-next": False,
    "network.trr.mode": 5,
    "security.OCSP.enabled": 0,
    "services.settings.server": "http://127.0.0.1:9/",
    "toolkit.telemetry.enabled": False,
    "toolkit.telemetry.server": "",
}

SELECTORS = {
    By.ID: lambda value: f'[id="{value}"]',
    By.CSS_SELECTOR: lambda value: value,
    By.TAG_NAME: lambda value: value,
}


def _stop_with_parent():
    # Firefox gets SIGTERM when the test process dies, however it dies: nothing is left running.
    ctypes.CDLL("libc.so.6", use_errno=True).prctl(1, signal.SIGTERM)  # PR_SET_PDEATHSIG


def _serialized(argument):
    if isinstance(argument, dict):  # a node's reference
        return argument
    if isinstance(argument, (int, float)):
        return {"type": "number", "value": argument}
    return {"type": "string", "value": argument}


class Element:
    """A node of the page, held by the browser's shared reference."""

    def __init__(self, driver, shared_id):
        self._driver = driver
        self._shared_id = shared_id

    def _call(self, function, *arguments):
        return self._driver._call(function, {"sharedId": self._shared_id}, *arguments)

    @property
    def text(self):
        # As selenium's text: what is rendered, nothing for a hidden element.
        return self._call("e => e.checkVisibility() ? e.innerText.trim() : ''")

    def is_displayed(self):
        return self._call("e => e.checkVisibility()")

    def find_element(self, by, value):
        return self._driver._first(self.find_elements(by, value), value)

    def find_elements(self, by, value):
        return self._call("(e, s) => [...e.querySelectorAll(s)]", SELECTORS[by](value))

    def click(self):
        self._call("e => e.scrollIntoView({block: 'center'})")
        origin = {"type": "element", "element": {"sharedId": self._shared_id}}
        self._driver._input([{"type": "pointer", "id": "mouse", "actions": [
            {"type": "pointerMove", "x": 0, "y": 0, "origin": origin},
            {"type": "pointerDown", "button": 0}, {"type": "pointerUp", "button": 0}]}])

    def send_keys(self, text):
        self._call("e => e.focus()")
        keys = []
        for character in text:
            keys += [{"type": "keyDown", "value": character}, {"type": "keyUp", "value": character}]
        self._driver._input([{"type": "key", "id": "keyboard", "actions": keys}])

    def clear(self):
        self._call("e => { e.value = ''; e.dispatchEvent(new Event('input', {bubbles: true})); }")

    def submit(self):
        self._call("e => (e.form || e).requestSubmit()")


class Alerts:
    """The page's open prompt (alert, confirm, prompt), as the browser reports it."""

    def __init__(self, driver):
        self._driver = driver

    @property
    def alert(self):
        self._driver._pump()
        if self._driver._prompt is None:
            raise NoAlertPresentException("no prompt is open")
        return self

    @property
    def text(self):
        return self._driver._prompt


class FirefoxDriver:
    """One headless Firefox with one page, its files under `home` (profile, caches, temporary)."""

    name = "firefox"

    def __init__(self, home, width=1280, height=800, dark=False, language="en-US"):
        profile = os.path.join(home, "profile")
        os.makedirs(profile)
        # The colour scheme that pages see (0 dark, 1 light) and the languages they are offered.
        chosen = {**PREFERENCES, "layout.css.prefers-color-scheme.content-override": 0 if dark else 1,
                  "intl.accept_languages": language}
        with open(os.path.join(profile, "user.js"), "w") as prefs:
            for key, value in chosen.items():
                prefs.write(f"user_pref({json.dumps(key)}, {json.dumps(value)});\n")
        self._log = open(os.path.join(home, "firefox.log"), "w+")
        self._process = subprocess.Popen(
            ["/usr/bin/firefox-esr", "--headless", "--no-remote", "--profile", profile,
             "--remote-debugging-port=0", "about:blank"],
            stdout=self._log, stderr=subprocess.STDOUT,
            # MOZ_REMOTE_SETTINGS_DEVTOOLS lets the profile point remote settings at nothing.
            env={**os.environ, "HOME": home, "TMPDIR": home, "MOZ_CRASHREPORTER_DISABLE": "1",
                 "MOZ_REMOTE_SETTINGS_DEVTOOLS": "1"},
            preexec_fn=_stop_with_parent)
        self._socket = websocket.create_connection(self._address(), timeout=30,
                                                   suppress_origin=True)
        self._next_id = 0
        self._prompt = None
        self.session_id = self._command("session.new", {"capabilities": {"alwaysMatch": {
            "unhandledPromptBehavior": {"default": "ignore"}}}})["sessionId"]
        self._command("session.subscribe", {"events": [
            "browsingContext.userPromptOpened", "browsingContext.userPromptClosed"]})
        self._context = self._command("browsingContext.getTree", {})["contexts"][0]["context"]
        self.set_viewport(width, height)
        self.switch_to = Alerts(self)

    def set_viewport(self, width, height):
        self._command("browsingContext.setViewport", {
            "context": self._context, "viewport": {"width": width, "height": height}})

    def press(self, keys):
        # Keys typed into whatever has the focus (selenium's ActionChains.send_keys).
        actions = []
        for key in keys:
            actions += [{"type": "keyDown", "value": key}, {"type": "keyUp", "value": key}]
        self._input([{"type": "key", "id": "keyboard", "actions": actions}])

    def chord(self, modifier, key):
        # A key with a modifier held (Alt+1).
        self._input([{"type": "key", "id": "keyboard", "actions": [
            {"type": "keyDown", "value": modifier}, {"type": "keyDown", "value": key},
            {"type": "keyUp", "value": key}, {"type": "keyUp", "value": modifier}]}])

    def _address(self, seconds=30):
        deadline = time.time() + seconds
        while time.time() < deadline:
            self._log.seek(0)
            for line in self._log:
                if "WebDriver BiDi listening on " in line:
                    return line.split("listening on ")[1].strip() + "/session"
            if self._process.poll() is not None:
                break
            time.sleep(0.1)
        raise WebDriverException("Firefox did not open its WebDriver BiDi port")

    def _event(self, message):
        if message.get("method") == "browsingContext.userPromptOpened":
            self._prompt = message["params"].get("message", "")
        elif message.get("method") == "browsingContext.userPromptClosed":
            self._prompt = None

    def _pump(self):
        # Reads the events that came without a command.
        self._socket.settimeout(0.05)
        try:
            while True:
                self._event(json.loads(self._socket.recv()))
        except websocket.WebSocketTimeoutException:
            pass
        finally:
            self._socket.settimeout(30)

    def _command(self, method, params):
        self._next_id += 1
        self._socket.send(json.dumps({"id": self._next_id, "method": method, "params": params}))
        while True:
            message = json.loads(self._socket.recv())
            if message.get("id") != self._next_id:
                self._event(message)
            elif message.get("type") == "error":
                if message.get("error") == "no such node":
                    raise StaleElementReferenceException(message.get("message"))
                raise WebDriverException(f"{method}: {message.get('message')}")
            else:
                return message["result"]

    def _call(self, function, *arguments):
        result = self._command("script.callFunction", {
            "functionDeclaration": function, "awaitPromise": True,
            "target": {"context": self._context},
            "arguments": [_serialized(argument) for argument in arguments]})
        if result["type"] == "exception":
            details = result["exceptionDetails"]
            if "detached" in details.get("text", "") or "dead object" in details.get("text", ""):
                raise StaleElementReferenceException(details.get("text"))
            raise WebDriverException(details.get("text"))
        value = result["result"]
        if value["type"] == "array":
            return [self._plain(item) for item in value["value"]]
        return self._plain(value)

    def _plain(self, value):
        # A node comes back as an element; numbers, strings and booleans as themselves.
        return Element(self, value["sharedId"]) if "sharedId" in value else value.get("value")

    def _first(self, found, value):
        if not found:
            raise NoSuchElementException(f"no element {value}")
        return found[0]

    def _input(self, actions):
        self._command("input.performActions", {"context": self._context, "actions": actions})

    def get(self, url):
        self._command("browsingContext.navigate",
                      {"context": self._context, "url": url, "wait": "complete"})

    def new_tab(self, url):
        # Opens a tab and makes it the page the driver works on, as selenium's new_window.
        self._context = self._command("browsingContext.create", {"type": "tab"})["context"]
        self.get(url)

    def find_element(self, by, value):
        return self._first(self.find_elements(by, value), value)

    def find_elements(self, by, value):
        return self._call("s => [...document.querySelectorAll(s)]", SELECTORS[by](value))

    def execute_script(self, body, *arguments):
        # As selenium's: the body of a function of `arguments`; a returned promise is awaited.
        return self._call(f"function() {{ {body} }}", *arguments)

    def save_screenshot(self, path):
        picture = self._command("browsingContext.captureScreenshot", {"context": self._context})
        with open(path, "wb") as file:
            file.write(base64.b64decode(picture["data"]))

    def quit(self):
        try:
            self._command("browser.close", {})
        except (WebDriverException, websocket.WebSocketException, OSError):
            pass
        self._socket.close()
        try:
            self._process.wait(timeout=30)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        self._log.close()
