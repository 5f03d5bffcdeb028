"""The agent console in a real browser, end to end over a private server."""
import base64
import http.server
import struct
import threading
import urllib.error
import urllib.request
import zlib

import pytest
from selenium.common.exceptions import NoAlertPresentException
from selenium.webdriver.common.by import By

import quor_cs
from conftest import password, shot, wait


def login(driver, name, secret=None):
    wait(driver, lambda: driver.find_element(By.ID, "login").is_displayed())
    driver.find_element(By.ID, "agent-name").send_keys(name)
    driver.find_element(By.ID, "agent-password").send_keys(secret or password(name))
    driver.find_element(By.ID, "login").submit()
    if secret is None:
        wait(driver, lambda: driver.find_element(By.ID, "agent").text == f"Agent: {name}")


def row(driver, name):
    for candidate in driver.find_elements(By.CSS_SELECTOR, "#customer-list tr"):
        cells = candidate.find_elements(By.TAG_NAME, "td")
        if cells and cells[0].text == name:
            return candidate
    return None


def cell(driver, name, column):
    found = row(driver, name)
    return found.find_elements(By.TAG_NAME, "td")[column].text if found else None


def lines(driver):
    return [item.text for item in driver.find_elements(By.CSS_SELECTOR, "#lines li")]


def click(driver, element_id):
    driver.find_element(By.ID, element_id).click()


def test_an_agent_takes_a_waiting_customer_chats_gets_a_rating_and_ends(desk, customers, browser):
    ada = browser(desk.link)
    login(ada, "Ada")
    bo = browser(desk.link)
    login(bo, "Bo")
    mei = customers("mei", "Mei")
    assert mei.screen.last.state == quor_cs.State.ROBOT
    mei.service.send_text("Where is my order?")
    assert mei.until(lambda: len(mei.screen.lines) >= 3)
    mei.service.ask_for_agent()
    assert mei.until(lambda: mei.screen.last.state == quor_cs.State.CHOOSING_GROUP)
    mei.service.choose_group("sales")
    assert mei.until(lambda: mei.screen.last.state == quor_cs.State.WAITING_FOR_AGENT)

    wait(ada, lambda: cell(ada, "Mei", 1) == "waiting · sales")
    shot(ada, "console-waiting")
    row(ada, "Mei").click()
    wait(ada, lambda: "asked for an agent and chose group sales" in " ".join(lines(ada)))
    info = ada.find_element(By.ID, "customer-info").text
    assert "userInfo.userId" in info and "mei@example.com" in info and "orders" in info
    assert "Orders ship within 24 hours" in " ".join(lines(ada))  # the robot's answer
    click(ada, "take")
    assert mei.until(lambda: mei.screen.last.state == quor_cs.State.AGENT)
    assert mei.until(lambda: (quor_cs.Author.AGENT, "Hello, this is Ada. How can I help?")
                     in mei.screen.lines)
    wait(bo, lambda: cell(bo, "Mei", 4) == "Ada")  # the other agent sees who took whom
    row(bo, "Mei").click()
    wait(bo, lambda: "with an agent · Ada" in bo.find_element(By.ID, "customer-state").text)
    assert not bo.find_element(By.ID, "say").is_displayed()
    shot(bo, "console-taken-by-another")

    # Typing both ways: the app hears the agent's, the page shows the customer's (below).
    ada.find_element(By.ID, "say-text").send_keys("Your parcel leaves today.")
    assert mei.until(lambda: mei.screen.desk_typing[-1:] == [True])
    ada.find_element(By.ID, "say").submit()
    assert mei.until(lambda: (quor_cs.Author.AGENT, "Your parcel leaves today.")
                     in mei.screen.lines)
    assert mei.until(lambda: mei.screen.desk_typing[-1:] == [False])
    mei.service.send_text("谢谢! 📦")
    mei.settle()
    wait(ada, lambda: "谢谢! 📦" in " ".join(lines(ada)))
    # Read both ways: the agent has the conversation open, so the customer's lines are read; the
    # customer reads the agent's.
    assert mei.until(lambda: quor_cs.Delivery.READ in mei.screen.deliveries.values())
    mei.service.mark_read()
    wait(ada, lambda: ada.find_elements(By.CSS_SELECTOR, "#lines li.agent .seen"))
    mei.service.set_typing(True)
    wait(ada, lambda: ada.find_element(By.ID, "customer-typing").text == "Mei is typing…")
    shot(ada, "console-typing-read")
    mei.service.send_text("One more thing")  # her line ends her typing
    wait(ada, lambda: ada.find_element(By.ID, "customer-typing").text == "")

    click(ada, "ask-rating")
    assert mei.until(lambda: mei.screen.dialog)
    mei.service.rate_agent(5, "great")
    wait(ada, lambda: "rated 5 stars \u201cgreat\u201d" in " ".join(lines(ada)))
    shot(ada, "console-chat")

    closing = ada.find_element(By.ID, "closing-text")
    closing.clear()
    closing.send_keys("Thanks Mei, goodbye!")
    click(ada, "end")
    assert mei.until(lambda: mei.screen.last.state == quor_cs.State.ENDED)
    assert mei.screen.last.text == "Thanks Mei, goodbye!"
    wait(ada, lambda: cell(ada, "Mei", 1) == "ended")
    shot(ada, "console-ended")


def test_a_customer_name_is_shown_as_text_never_as_markup(desk, customers, browser):
    hostile = "<img src=x onerror=alert(1)>"
    page = browser(desk.link)
    login(page, "Ada")
    customers("hostile", hostile)
    wait(page, lambda: row(page, hostile) is not None)
    row(page, hostile).click()
    wait(page, lambda: page.find_element(By.ID, "customer-name").text == hostile)
    assert page.find_elements(By.CSS_SELECTOR, "#customer-list img, #customer-head img") == []
    with pytest.raises(NoAlertPresentException):
        page.switch_to.alert.text
    shot(page, "console-hostile-name")


def test_nothing_but_the_page_is_served_without_a_login(desk, browser):
    for path in ["/api/state", "/api/events", "/api/conversation?customer=x"]:
        with pytest.raises(urllib.error.HTTPError) as refused:
            urllib.request.urlopen(desk.base + path, timeout=10)
        assert refused.value.code == 401
    page = browser(desk.link)
    login(page, "Ada", "not-her-password")
    wait(page, lambda: page.find_element(By.ID, "login-error").text == "wrong name or password")
    assert page.find_elements(By.CSS_SELECTOR, "#customer-list tr") == []
    shot(page, "console-login")


# A page of another origin on the same machine (the same site: cookies do not tell ports apart)
# tries to take a waiting customer with the agent's cookie: as a simple request that needs no
# preflight, and as JSON, which does.
HOSTILE_PAGE = """<!doctype html><title>loading</title><script>
const act = (type, body) => fetch("%s/api/act", {method: "POST", mode: "no-cors",
  credentials: "include", headers: {"Content-Type": type}, body}).catch(() => {});
const take = JSON.stringify({customer: "kai@localhost", do: "take", text: "Your card number?"});
Promise.all([act("text/plain", take), act("application/json", take)])
  .then(() => { document.title = "done"; });
</script>"""


def test_another_page_on_this_machine_cannot_act_as_the_agent(desk, customers, browser):
    page = browser(desk.link)
    login(page, "Ada")
    kai = customers("kai", "Kai")
    kai.service.ask_for_agent()
    assert kai.until(lambda: kai.screen.last.state == quor_cs.State.CHOOSING_GROUP)
    kai.service.choose_group("sales")
    assert kai.until(lambda: kai.screen.last.state == quor_cs.State.WAITING_FOR_AGENT)
    wait(page, lambda: cell(page, "Kai", 1) == "waiting · sales")

    class Hostile(http.server.BaseHTTPRequestHandler):
        def do_GET(self):
            body = (HOSTILE_PAGE % desk.base).encode()
            self.send_response(200)
            self.send_header("Content-Type", "text/html")
            self.send_header("Content-Length", str(len(body)))
            self.end_headers()
            self.wfile.write(body)

        def log_message(self, *args):
            pass

    hostile = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Hostile)
    threading.Thread(target=hostile.serve_forever, daemon=True).start()
    try:
        page.get(f"http://127.0.0.1:{hostile.server_address[1]}/")
        wait(page, lambda: page.execute_script("return document.title") == "done")
    finally:
        hostile.shutdown()
    kai.settle()
    assert kai.screen.last.state == quor_cs.State.WAITING_FOR_AGENT
    assert all("card number" not in text for _, text in kai.screen.lines)
    page.get(desk.link)
    wait(page, lambda: cell(page, "Kai", 1) == "waiting · sales")


def test_ten_tabs_of_one_browser_all_follow_the_desk_and_act(desk, customers, browser):
    page = browser(desk.link)
    login(page, "Bo")
    for _ in range(9):  # a browser has about six connections to a host: one stream for all tabs
        if hasattr(page, "new_tab"):
            page.new_tab(desk.link)
        else:
            page.switch_to.new_window("tab")
            page.get(desk.link)
    wait(page, lambda: page.find_element(By.ID, "agent").text == "Agent: Bo")
    customers("tina", "Tina")
    wait(page, lambda: row(page, "Tina") is not None)  # live, through another tab's stream
    row(page, "Tina").click()
    wait(page, lambda: page.find_element(By.ID, "customer-name").text == "Tina")
    wait(page, lambda: "started a service" in " ".join(lines(page)))


def test_the_page_says_when_the_desk_is_gone_and_recovers_when_it_is_back(desk, customers, browser):
    page = browser(desk.link)
    login(page, "Ada")
    wait(page, lambda: page.find_element(By.ID, "desk-status").text == "desk online")
    desk.stop()
    wait(page, lambda: page.find_element(By.ID, "banner").is_displayed())
    assert "not reachable" in page.find_element(By.ID, "banner").text
    shot(page, "console-desk-gone")
    desk.start()
    wait(page, lambda: not page.find_element(By.ID, "banner").is_displayed(), seconds=30)
    rita = customers("rita", "Rita")  # the restarted desk's board fills again, live
    assert rita.screen.last.state == quor_cs.State.ROBOT
    wait(page, lambda: row(page, "Rita") is not None)


def png(width, height):
    """A real PNG of one colour, which a browser draws."""
    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data +
                struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF))
    rows = b"".join(b"\0" + b"\xcc\x55\x22" * width for _ in range(height))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


def served(driver, selector):
    """The status and the headers that matter of the conversation's picture or file link."""
    return driver.execute_script(
        "const found = document.querySelector(arguments[0]);"
        "return fetch(found.src || found.href)"
        ".then(r => [r.status, r.headers.get('content-type'), r.headers.get('content-disposition'),"
        " r.headers.get('x-content-type-options')]);", selector)


def attach(driver, name, data, kind):
    """Chooses a file in the page's file picker as the agent would (the browser's own dialog is
    the one part a test cannot click): the page's change handler sends it."""
    driver.execute_script(
        "const bytes = Uint8Array.from(atob(arguments[0]), c => c.charCodeAt(0));"
        "const chosen = new DataTransfer();"
        "chosen.items.add(new File([bytes], arguments[1], {type: arguments[2]}));"
        "const input = document.getElementById('attach-file');"
        "input.files = chosen.files;"
        "input.dispatchEvent(new Event('change'));",
        base64.b64encode(data).decode(), name, kind)


def test_pictures_each_way_and_a_page_dressed_as_one_only_downloads(
        desk, customers, browser, tmp_path):
    page = browser(desk.link)
    login(page, "Ada")
    pia = customers("pia", "Pia")
    photo = tmp_path / "parcel.png"
    photo.write_bytes(png(160, 100))
    pia.send_file(photo)
    receipt = (quor_cs.Author.ROBOT, "Thanks, we have parcel.png: an agent will look at it.")
    assert pia.until(lambda: receipt in pia.screen.lines)
    wait(page, lambda: row(page, "Pia") is not None)
    row(page, "Pia").click()
    wait(page, lambda: page.execute_script(
        "const p = document.querySelector('#lines img.picture');"
        "return Boolean(p && p.complete && p.naturalWidth === 160);"))
    status, kind, disposition, sniffing = served(page, "#lines img.picture")
    assert (status, kind, sniffing) == (200, "image/png", "nosniff")
    assert disposition.startswith("inline") and "parcel.png" in disposition

    # Markup named and typed as a picture: shown as a file's link, served only as a download.
    disguised = tmp_path / "cat.png"
    disguised.write_bytes(b"<html><script>alert(1)</script></html>")
    pia.send_file(disguised, "image/png")
    wait(page, lambda: [link.text[:9] for link in page.find_elements(By.CSS_SELECTOR,
                                                                      "#lines a.file")]
         == ["cat.png ("])
    assert len(page.find_elements(By.CSS_SELECTOR, "#lines img.picture")) == 1
    status, kind, disposition, sniffing = served(page, "#lines a.file")
    assert (status, kind, sniffing) == (200, "application/octet-stream", "nosniff")
    assert disposition.startswith("attachment")
    with pytest.raises(NoAlertPresentException):
        page.switch_to.alert.text
    # Only the conversation's own files: the console is no way to fetch anything else.
    assert page.execute_script(
        "return fetch('/api/file?customer=pia@localhost&url=' +"
        " encodeURIComponent('http://127.0.0.1:1/')).then(r => r.status);") == 404

    # The agent answers with a picture of her own: the customer's app fetches it when asked, the
    # page shows it; markup and an oversized file are refused at once and reach no one.
    pia.ask_for_agent()
    assert pia.until(lambda: pia.screen.last.state == quor_cs.State.CHOOSING_GROUP)
    pia.choose_group("sales")
    wait(page, lambda: cell(page, "Pia", 1) == "waiting · sales")
    click(page, "take")
    assert pia.until(lambda: pia.screen.last.state == quor_cs.State.AGENT)
    invoice = png(120, 80)
    attach(page, "invoice.png", invoice, "image/png")
    assert pia.until(lambda: "invoice.png" in pia.screen.files)
    assert (quor_cs.Author.AGENT, "[file] invoice.png") in pia.screen.lines
    sequence = pia.screen.files["invoice.png"]
    pia.download_file(sequence)
    assert pia.until(lambda: sequence in pia.screen.downloaded)
    assert pia.screen.downloaded[sequence] == ("image/png", 120, len(invoice))
    wait(page, lambda: page.execute_script(
        "const p = document.querySelectorAll('#lines li.agent img.picture');"
        "return p.length === 1 && p[0].complete && p[0].naturalWidth === 120;"))
    # And a file that is no picture: a link on the page, the customer's app saves it as a PDF.
    pdf = b"%PDF-1.7\n" + bytes(2000)
    attach(page, "invoice.pdf", pdf, "application/pdf")
    assert pia.until(lambda: "invoice.pdf" in pia.screen.files)
    pia.download_file(pia.screen.files["invoice.pdf"])
    assert pia.until(lambda: pia.screen.files["invoice.pdf"] in pia.screen.downloaded)
    assert pia.screen.downloaded[pia.screen.files["invoice.pdf"]] == ("application/pdf", 0,
                                                                       len(pdf))
    wait(page, lambda: [link.text[:13] for link in page.find_elements(
        By.CSS_SELECTOR, "#lines li.agent a.file")] == ["invoice.pdf ("])
    shot(page, "console-files")
    for name, data, kind, why in (
            ("page.html", b"<html><script>alert(1)</script></html>", "text/html", "only pictures"),
            ("huge.png", png(4, 4) + bytes(1024 * 1024), "image/png", "larger than")):
        attach(page, name, data, kind)
        wait(page, lambda: why in page.find_element(By.ID, "action-error").text)
    pia.settle(1)
    assert [said for who, said in pia.screen.lines
            if who == quor_cs.Author.AGENT and said.startswith("[file]")] == [
                "[file] invoice.png", "[file] invoice.pdf"]
