"""How long the agent console's page takes to show a desk's customers (1,000 unless told): from
the navigation's start until the list holds every row, in headless Chromium and headless Firefox
(the median of 5 loads each, logged in). Prints one JSON object per browser.
Usage: console_render.py CONSOLE_BENCHMARK_PROGRAM [CUSTOMERS]"""
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

sys.dont_write_bytecode = True  # nothing written into the source tree
sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "tests", "console"))
from firefox import FirefoxDriver  # noqa: E402

WAIT_FOR_ROWS = """
const count = arguments[0];
return new Promise(done => {
  const check = () => document.querySelectorAll('#customer-list tr').length >= count
    ? done(performance.now()) : requestAnimationFrame(check);
  check();
});
"""


def chromium(home):
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for argument in ["--headless=new", "--no-sandbox", "--disable-gpu", "--window-size=1280,800",
                     f"--user-data-dir={home}"]:
        options.add_argument(argument)
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    driver.set_script_timeout(30)
    return driver


LOG_IN = """
return fetch("/api/login", {method: "POST", headers: {"Content-Type": "application/json"},
  body: JSON.stringify({name: "Bench", password: "bench-password"})}).then(r => r.status);
"""


def measure(driver, link, customers):
    driver.get(link)
    assert driver.execute_script(LOG_IN) == 200
    times = []
    for _ in range(5):
        driver.get(link)
        times.append(driver.execute_script(WAIT_FOR_ROWS, customers))
    return {"customers": customers, "list_ms_median": round(statistics.median(times)),
            "list_ms": [round(t) for t in times]}


program = sys.argv[1]
customers = int(sys.argv[2]) if len(sys.argv) > 2 else 1000
console = subprocess.Popen([program, str(customers)], stdin=subprocess.PIPE,
                           stdout=subprocess.PIPE, text=True)
link = console.stdout.readline().strip()
home = tempfile.mkdtemp(prefix="quor-cs-console-bench-")
try:
    for name, start in [("chromium", chromium), ("firefox", FirefoxDriver)]:
        driver = start(tempfile.mkdtemp(dir=home))
        try:
            print(json.dumps({"browser": name, **measure(driver, link, customers)}), flush=True)
        finally:
            driver.quit()
finally:
    console.stdin.close()
    console.wait(timeout=30)
    shutil.rmtree(home, ignore_errors=True)
