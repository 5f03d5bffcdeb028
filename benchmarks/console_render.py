"""How long the agent console's page takes to show a desk's thousand customers: from the
navigation's start until the list holds every row, in headless Chromium (the median of 5 loads).
Prints one JSON object. Usage: console_render.py CONSOLE_BENCHMARK_PROGRAM [CUSTOMERS]"""
import json
import statistics
import subprocess
import sys

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

program = sys.argv[1]
customers = int(sys.argv[2]) if len(sys.argv) > 2 else 1000
console = subprocess.Popen([program, str(customers)], stdin=subprocess.PIPE,
                           stdout=subprocess.PIPE, text=True)
link = console.stdout.readline().strip()
options = webdriver.ChromeOptions()
options.binary_location = "/usr/bin/chromium"
for argument in ["--headless=new", "--no-sandbox", "--disable-gpu", "--window-size=1280,800"]:
    options.add_argument(argument)
driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
driver.set_script_timeout(30)
WAIT_FOR_ROWS = """
const [count, done] = arguments;
const check = () => document.querySelectorAll('#customer-list tr').length >= count
  ? done(performance.now()) : requestAnimationFrame(check);
check();
"""
try:
    times = []
    for _ in range(5):
        driver.get(link)
        times.append(driver.execute_async_script(WAIT_FOR_ROWS, customers))
    print(json.dumps({"customers": customers, "list_ms_median": round(statistics.median(times)),
                      "list_ms": [round(t) for t in times]}))
finally:
    driver.quit()
    console.stdin.close()
    console.wait(timeout=30)
