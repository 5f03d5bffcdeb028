"""The demo's terminal customer and a person at the agent console, over one private server: what
the agent says, the rating request and the end show while the customer types nothing, /rate
right after the request is taken, and a picture each way (/file, the console's attachment,
/download). Usage: check-demo-idle.py QUOR_CS_DEMO"""
import json
import os
import queue
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import threading
import time
import urllib.parse
import urllib.request
import zlib

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


def png(width, height):
    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data +
                struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF))
    rows = b"".join(b"\0" + b"\x22\x55\xcc" * width for _ in range(height))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


def post(path, body, headers=None):
    global cookie
    data = body if isinstance(body, bytes) else json.dumps(body).encode()
    request = urllib.request.Request(base + path, data=data, method="POST",
                                     headers=headers or {"Content-Type": "application/json"})
    request.add_header("Cookie", cookie)
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
    # A picture each way: the customer's /file reaches the console; the agent's attachment shows
    # in the terminal, and /download saves it.
    folder = tempfile.mkdtemp()
    photo = os.path.join(folder, "parcel.png")
    with open(photo, "wb") as out:
        out.write(png(8, 6))
    type_line(f"/file {photo}")
    until(r"You: \[file\] parcel\.png \(image/png, \d+ bytes\)$")
    answer = post("/api/attach?" + urllib.parse.urlencode({"customer": who}), png(12, 9),
                  {"Content-Type": "image/png", "X-File-Name": "invoice.png"})
    assert answer == {"ok": True}, answer
    shown = until(r"Ada: \[file\] invoice\.png \(image/png, \d+ bytes\): /download \d+$")
    type_line("/download " + shown.rsplit(" ", 1)[1])
    until(r"saved invoice\.png \(image/png\) to ")
    request = urllib.request.Request(
        base + "/api/conversation?" + urllib.parse.urlencode({"customer": who}),
        headers={"Cookie": cookie})
    with urllib.request.urlopen(request, timeout=30) as got:
        files = [line["file"]["name"] for line in json.loads(got.read())["lines"] if "file" in line]
    assert sorted(files) == ["invoice.png", "parcel.png"], files
    shutil.rmtree(folder)
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
