"""The demo's terminal customer and a person at the agent console, over one private server: what
the agent says, the rating request and the end show while the customer types nothing, and /rate
right after the request is taken. Usage: check-demo-idle.py QUOR_CS_DEMO"""
import json
import queue
import re
import subprocess
import sys
import threading
import time
import urllib.request

demo = subprocess.Popen([sys.argv[1], "--xmpp", "--interactive", "--console", "127.0.0.1:0"],
                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                        text=True)
said = queue.Queue()
seen = []
threading.Thread(target=lambda: [said.put(line.rstrip("\n")) for line in demo.stdout],
                 daemon=True).start()


def until(pattern, seconds=30):
    deadline = time.time() + seconds
    while time.time() < deadline:
        for line in seen:
            if re.search(pattern, line):
                return line
        try:
            seen.append(said.get(timeout=0.2))
            print(seen[-1], flush=True)
        except queue.Empty:
            pass
    raise AssertionError(f"the demo never printed {pattern!r}")


def type_line(text):
    demo.stdin.write(text + "\n")
    demo.stdin.flush()


cookie = ""


def post(path, body):
    global cookie
    request = urllib.request.Request(base + path, data=json.dumps(body).encode(), method="POST",
                                     headers={"Content-Type": "application/json", "Cookie": cookie})
    with urllib.request.urlopen(request, timeout=30) as answer:
        cookie = (answer.headers.get("Set-Cookie") or cookie).split(";")[0]
        return json.loads(answer.read())


def customer():
    request = urllib.request.Request(base + "/api/state", headers={"Cookie": cookie})
    with urllib.request.urlopen(request, timeout=30) as answer:
        found = json.loads(answer.read())["customers"]
    return found[0] if found else {}


try:
    link = until(r"^Agent console: http").split(": ", 1)[1]
    base, code = link.split("/#setup=")
    post("/api/setup", {"code": code, "name": "Ada", "password": "ada-password"})
    until(r"^Type a message")
    type_line("/human")
    until(r"choose a group")
    type_line("/group sales")
    deadline = time.time() + 30
    while customer().get("state") != "waiting":
        assert time.time() < deadline, "the console never saw the customer wait"
        time.sleep(0.2)
    who = customer()["id"]
    mark = len(seen)
    # From here on the customer types nothing until the rating request has shown.
    post("/api/act", {"customer": who, "do": "take"})
    post("/api/act", {"customer": who, "do": "say", "text": "Your parcel left today."})
    until(r"^(> )?Ada: Your parcel left today\.")
    post("/api/act", {"customer": who, "do": "rate"})
    until(r"the desk asks for a rating")
    assert len(seen) > mark
    type_line("/rate 5 great")
    until(r"rates the agent 5 stars")
    time.sleep(1)
    assert not any("not now" in line for line in seen), seen
    post("/api/act", {"customer": who, "do": "end", "text": "Bye from Ada"})
    until(r"service ended: Bye from Ada")
    assert demo.wait(timeout=30) == 0  # the end of the service ends the chat
finally:
    if demo.poll() is None:
        demo.kill()
        demo.wait()
