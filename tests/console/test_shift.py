"""The console through an agent's shift: the queue and what calls for attention, each agent's
own unread counts, passing customers on, notes, canned replies and search, the keyboard alone,
screen readers (axe-core in each state), narrow windows, the dark scheme and Chinese."""
import time

from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

import quor_cs
from conftest import (accessibility_violations, alt, press, shot, viewport, wait)
from test_console import cell, click, lines, login, row


def waiting_customer(customers, account, name, group):
    customer = customers(account, name)
    customer.service.ask_for_agent()
    assert customer.until(lambda: customer.screen.last.state == quor_cs.State.CHOOSING_GROUP)
    customer.service.choose_group(group)
    assert customer.until(lambda: customer.screen.last.state == quor_cs.State.WAITING_FOR_AGENT)
    return customer


def names(driver):
    # Read by text content in one script: a list scrolled out of view (or redrawn between two
    # reads) still has its names.
    return driver.execute_script(
        "return [...document.querySelectorAll('#customer-list tr')]"
        ".map(r => r.querySelector('td')).filter(Boolean).map(td => td.textContent.trim());")


def value(driver, element_id):
    return driver.execute_script("return document.getElementById(arguments[0]).value", element_id)


def no_violations(driver, state):
    found = accessibility_violations(driver)
    assert found == [], f"{state}: {found}"


def open_customer(driver, name):
    # The list is redrawn as events come: its row is found and clicked in one step.
    wait(driver, lambda: driver.execute_script(
        "const b = [...document.querySelectorAll('#customer-list tr button')]"
        ".find(b => b.textContent === arguments[0]); if (b) b.click(); return Boolean(b);", name))


def take(driver, customer, name):
    open_customer(driver, name)
    wait(driver, lambda: driver.find_element(By.ID, "take").is_displayed())
    click(driver, "take")
    assert customer.until(lambda: customer.screen.last.state == quor_cs.State.AGENT)
    wait(driver, lambda: driver.find_element(By.ID, "say-text").is_displayed())


def taken_by_ada(desk, customers, browser, account, name):
    """Ada and Bo logged in, and a customer who waited and whom Ada took."""
    ada = browser(desk.link)
    login(ada, "Ada")
    bo = browser(desk.link)
    login(bo, "Bo")
    customer = waiting_customer(customers, account, name, "sales")
    wait(ada, lambda: row(ada, name) is not None)
    take(ada, customer, name)
    return ada, bo, customer


def test_the_longest_wait_comes_first_with_filters_counts_and_a_call_for_attention(
        desk, customers, browser):
    page = browser(desk.link)
    login(page, "Ada")
    no_violations(page, "an empty list")
    # Asked for on a click only, never on load.
    assert page.execute_script("return Notification.permission") == "default"
    waiting_customer(customers, "lu", "Lu", "sales")
    time.sleep(1.2)
    waiting_customer(customers, "zoe", "Zoe", "after-sales")
    wait(page, lambda: cell(page, "Zoe", 1) == "waiting · after-sales")
    order = [name for name in names(page) if name in ("Lu", "Zoe")]
    assert order == ["Lu", "Zoe"]  # Lu has waited longer
    counts = page.find_element(By.ID, "waiting-counts").text
    assert "sales 1" in counts and "after-sales 1" in counts
    assert page.execute_script("return document.title").startswith("(")
    assert int(page.execute_script("return document.body.dataset.chimes || '0'")) >= 2
    assert page.execute_script("return document.getElementById('announce').textContent") \
        .endswith("is waiting for an agent")
    shot(page, "console-queue")
    no_violations(page, "the queue")

    page.execute_script("const s = document.getElementById('filter-group');"
                        "s.value = 'after-sales'; s.dispatchEvent(new Event('change'));")
    wait(page, lambda: "Lu" not in names(page) and "Zoe" in names(page))
    page.execute_script("const s = document.getElementById('filter-group');"
                        "s.value = ''; s.dispatchEvent(new Event('change'));")

    # Sound off: a new waiting customer still shows in the title, without a sound.
    click(page, "sound")
    assert page.find_element(By.ID, "sound").text == "Sound off"
    before = page.execute_script("return document.body.dataset.chimes")
    waiting_customer(customers, "noa", "Noa", "sales")
    wait(page, lambda: cell(page, "Noa", 1) == "waiting · sales")
    assert page.execute_script("return document.body.dataset.chimes") == before
    click(page, "sound")


def test_each_agent_reads_for_herself_and_times_are_shown(desk, customers, browser):
    ada, bo, ivy = taken_by_ada(desk, customers, browser, "ivy", "Ivy")
    ada.execute_script("document.activeElement.blur()")
    press(ada, Keys.ESCAPE)  # Ada closes the conversation
    wait(ada, lambda: not ada.find_element(By.ID, "conversation").is_displayed())
    ivy.service.send_text("Are you there?")
    ivy.settle()
    wait(ada, lambda: cell(ada, "Ivy", 3) == "1")
    wait(bo, lambda: row(bo, "Ivy") is not None)
    open_customer(bo, "Ivy")  # Bo merely looks
    wait(bo, lambda: "Are you there?" in " ".join(lines(bo)))
    time.sleep(1)
    assert cell(ada, "Ivy", 3) == "1"
    # Each line has its time; the customer's also the server's stamp.
    times = bo.find_elements(By.CSS_SELECTOR, "#lines li time")
    assert times and all(":" in t.text for t in times)
    open_customer(ada, "Ivy")
    wait(ada, lambda: cell(ada, "Ivy", 3) == "")


def test_an_agent_passes_notes_inserts_canned_replies_and_searches(desk, customers, browser):
    ada, bo, max_ = taken_by_ada(desk, customers, browser, "max", "Max")
    max_.service.send_text("My order 9917 is broken")
    max_.settle()

    # A canned reply with the customer's name filled in, by the keyboard (Alt+1).
    ada.find_element(By.ID, "say-text").click()
    alt(ada, "1")
    wait(ada, lambda: value(ada, "say-text") == "Hello Max, thanks for waiting.")
    ada.find_element(By.ID, "say").submit()
    assert max_.until(lambda: (quor_cs.Author.AGENT, "Hello Max, thanks for waiting.")
                      in max_.screen.lines)

    ada.find_element(By.ID, "note-text").send_keys("Wants a refund, not a new one")
    ada.find_element(By.ID, "note").submit()
    wait(ada, lambda: "Wants a refund" in " ".join(lines(ada)))
    shot(ada, "console-notes")
    no_violations(ada, "a conversation with notes")

    ada.execute_script("const s = document.getElementById('pass-to');"
                       "s.value = 'agent:Bo'; s.dispatchEvent(new Event('change'));")
    click(ada, "pass")
    assert max_.until(lambda: any("colleague Bo" in text for _, text in max_.screen.lines))
    wait(ada, lambda: cell(ada, "Max", 4) == "Bo")
    open_customer(bo, "Max")
    # The note is with the conversation, which the page loads once the pane shows.
    wait(bo, lambda: "Wants a refund" in " ".join(lines(bo)))
    assert all("refund" not in text for _, text in max_.screen.lines)  # never the customer's

    bo.find_element(By.ID, "search").send_keys("9917")
    wait(bo, lambda: "My order 9917 is broken" in bo.find_element(By.ID, "search-results").text)
    shot(bo, "console-search")


def test_the_keyboard_alone_takes_writes_and_goes_back(desk, customers, browser):
    page = browser(desk.link)
    login(page, "Ada")
    sam = waiting_customer(customers, "sam", "Sam", "sales")
    wait(page, lambda: row(page, "Sam") is not None)
    page.execute_script("document.activeElement.blur()")
    press(page, "n")  # the longest waiting customer, with Take in focus
    wait(page, lambda: page.execute_script("return document.activeElement.id") == "take")
    wait(page, lambda: page.find_element(By.ID, "customer-name").text == names(page)[0])
    # Every row's name is a button in the tab order: Sam is opened from his with Enter.
    page.execute_script(
        "document.querySelector('#customer-list tr[data-id=\"sam@localhost\"] button').focus()")
    press(page, Keys.ENTER)
    wait(page, lambda: page.find_element(By.ID, "customer-name").text == "Sam")
    page.execute_script("document.activeElement.blur()")
    press(page, "t")
    assert sam.until(lambda: sam.screen.last.state == quor_cs.State.AGENT)
    wait(page, lambda: page.find_element(By.ID, "say-text").is_displayed())
    press(page, "r")
    wait(page, lambda: page.execute_script("return document.activeElement.id") == "say-text")
    press(page, "Right away, Sam." + Keys.ENTER)
    assert sam.until(lambda: (quor_cs.Author.AGENT, "Right away, Sam.") in sam.screen.lines)
    press(page, Keys.ESCAPE)
    press(page, Keys.ESCAPE)
    wait(page, lambda: not page.find_element(By.ID, "conversation").is_displayed())
    assert "Keyboard shortcuts" in page.find_element(By.ID, "shortcuts").text


def test_refusing_asks_first_and_says_what_the_customer_will_see(desk, customers, browser):
    page = browser(desk.link)
    login(page, "Bo")
    eli = waiting_customer(customers, "eli", "Eli", "sales")
    wait(page, lambda: row(page, "Eli") is not None)
    open_customer(page, "Eli")
    wait(page, lambda: page.find_element(By.ID, "refuse").is_displayed())
    click(page, "refuse")
    wait(page, lambda: page.find_element(By.ID, "refuse-dialog").is_displayed())
    assert "你已被拉黑" in page.find_element(By.ID, "refuse-text").text
    no_violations(page, "the refusal's question")
    shot(page, "console-refuse")
    click(page, "refuse-cancel")
    wait(page, lambda: not page.find_element(By.ID, "refuse-dialog").is_displayed())
    eli.settle()
    assert eli.screen.last.state == quor_cs.State.WAITING_FOR_AGENT
    click(page, "refuse")
    wait(page, lambda: page.find_element(By.ID, "refuse-dialog").is_displayed())
    click(page, "refuse-confirm")
    assert eli.until(lambda: eli.screen.last.reason == quor_cs.Reason.BLOCKED)


def test_what_was_typed_stays_with_its_customer_and_a_reload_keeps_the_conversation(
        desk, customers, browser):
    page = browser(desk.link)
    login(page, "Ada")
    customers("kim", "Kim")
    ana = waiting_customer(customers, "ana", "Ana", "sales")
    wait(page, lambda: row(page, "Ana") is not None and row(page, "Kim") is not None)
    take(page, ana, "Ana")
    page.find_element(By.ID, "say-text").send_keys(" \u3000 ")
    page.find_element(By.ID, "say").submit()
    wait(page, lambda: page.find_element(By.ID, "action-error").text == "nothing to send")
    closing = page.find_element(By.ID, "closing-text")
    closing.clear()
    closing.send_keys("Bye Ana")
    open_customer(page, "Kim")
    wait(page, lambda: page.find_element(By.ID, "customer-name").text == "Kim")
    assert value(page, "closing-text") == "Thank you for contacting us. Goodbye!"

    open_customer(page, "Ana")
    wait(page, lambda: page.find_element(By.ID, "customer-name").text == "Ana")
    page.execute_script("location.reload()")  # in the middle of the chat
    wait(page, lambda: page.find_element(By.ID, "customer-name").text == "Ana")
    wait(page, lambda: page.find_element(By.ID, "say-text").is_displayed())
    # The desk's receipt for a left message is its own, not the agent's.
    ana.service.leave_message({"name": "Ana", "phone": "13800138000", "content": "Call me"})
    wait(page, lambda: any(line.startswith("automatic reply") for line in lines(page)))


def test_a_phone_sized_window_dark_and_in_chinese(desk, customers, browser):
    page = browser(desk.link, dark=True, language="zh-CN")
    viewport(page, 390, 844)
    wait(page, lambda: page.find_element(By.ID, "login").is_displayed())
    assert page.find_element(By.ID, "login-button").text == "登录"
    no_violations(page, "the login, narrow, dark, Chinese")
    login_name = page.find_element(By.ID, "agent-name")
    login_name.send_keys("Ada")
    page.find_element(By.ID, "agent-password").send_keys("ada-password")
    page.find_element(By.ID, "login").submit()
    wait(page, lambda: page.find_element(By.ID, "agent").text == "客服：Ada")
    long_name = "Wolfeschlegelsteinhausenbergerdorff" * 3
    customers("lee", long_name)
    wait(page, lambda: page.execute_script(
        "return [...document.querySelectorAll('#customer-list button')]"
        ".some(b => b.title === arguments[0])", long_name))
    width = page.execute_script("return document.documentElement.scrollWidth")
    assert width <= 390, f"the page is {width} px wide"
    background = page.execute_script("return getComputedStyle(document.body).backgroundColor")
    assert background != "rgb(248, 250, 252)"  # the dark scheme
    shot(page, "console-narrow-list")
    no_violations(page, "the list, narrow, dark, Chinese")
    page.find_element(By.CSS_SELECTOR, "#customer-list tr button").click()
    wait(page, lambda: page.find_element(By.ID, "conversation").is_displayed())
    assert not page.find_element(By.ID, "customers").is_displayed()  # one column
    assert page.execute_script(
        "return document.getElementById('lines').getBoundingClientRect().width") > 300
    shot(page, "console-narrow-chat")
    no_violations(page, "a conversation, narrow, dark, Chinese")
    click(page, "back-to-list")
    wait(page, lambda: page.find_element(By.ID, "customers").is_displayed())
    page.execute_script("const s = document.getElementById('language');"
                        "s.value = 'en'; s.dispatchEvent(new Event('change'));")
    wait(page, lambda: page.find_element(By.ID, "agent").text == "Agent: Ada")
