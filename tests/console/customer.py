"""One customer of the console's browser tests in a process of its own (a process has one XMPP
host, as a phone has one app): it logs in over the private server, starts a service with the
desk, and then does what its standard input says, one JSON object a line, reporting what its
app sees on its standard output, one JSON object a line.

    customer.py ACCOUNT NAME SERVER_PORT FILE_CACHE_DIRECTORY
    in:  {"do": "ask"} {"do": "group", "id": "sales"} {"do": "say", "text": "..."}
         {"do": "rate", "stars": 5, "suggestion": "..."} {"do": "leave", "values": {...}}
         {"do": "typing", "typing": true} {"do": "read"}
         {"do": "file", "path": "...", "type": "image/png"} {"do": "download", "sequence": 7}
         {"do": "quit"}
    out: {"state": 3, "reason": 0, "text": ""} {"line": [AUTHOR, "text"]} {"dialog": "id"}
         (a file's line: {"line": [AUTHOR, "[file] NAME"], "sequence": 7})
         {"downloaded": [SEQUENCE, "image/png", WIDTH, BYTES ON DISK]}
         {"delivery": [SEQUENCE, DELIVERY]} {"deskTyping": true} {"error": "..."}
"""
import json
import os
import select
import sys

import quor_cs


class Reporter(quor_cs.Observer):
    def on_state_changed(self, status):
        report({"state": int(status.state), "reason": int(status.reason), "text": status.text})

    def on_message(self, message):
        if message.file:
            report({"line": [int(message.author), f"[file] {message.file.name}"],
                    "sequence": message.sequence})
        else:
            report({"line": [int(message.author), message.text]})

    def on_file_downloaded(self, sequence, file, error_code):
        size = os.path.getsize(file.local_path) if error_code == 0 else -error_code
        report({"downloaded": [sequence, file.mime_type, file.width, size]})

    def on_rating_requested(self, dialog_id):
        report({"dialog": dialog_id or "asked"})

    def on_message_delivery(self, message):
        report({"delivery": [message.sequence, int(message.delivery)]})

    def on_desk_typing(self, typing):
        report({"deskTyping": typing})


def report(news):
    sys.stdout.write(json.dumps(news) + "\n")
    sys.stdout.flush()


def main():
    account, name, port = sys.argv[1], sys.argv[2], int(sys.argv[3])
    host = quor_cs.XmppHost(f"{account}@localhost", f"{account}-pw", server="127.0.0.1", port=port,
                            file_cache_directory=sys.argv[4])
    host.connect()
    if not host.wait_online(15):
        report({"error": "not online"})
        return 1
    service = quor_cs.Service("shop", Reporter())
    service.start({"userInfo": {"userId": account, "name": name},
                   "contactInfo": {"email": f"{account}@example.com"},
                   "requestInfo": {"page": "orders"}}, timeout=15)
    actions = {
        "ask": lambda order: service.ask_for_agent(),
        "group": lambda order: service.choose_group(order["id"]),
        "say": lambda order: service.send_text(order["text"]),
        "rate": lambda order: service.rate_agent(order["stars"], order.get("suggestion")),
        "leave": lambda order: service.leave_message(order["values"]),
        "typing": lambda order: service.set_typing(order["typing"]),
        "read": lambda order: service.mark_read(),
        "file": lambda order: service.send_file(order["path"], mime_type=order.get("type")),
        "download": lambda order: service.download_file(order["sequence"]),
    }
    pending = b""
    while True:
        host.settle(0.05)
        if not select.select([sys.stdin], [], [], 0.05)[0]:
            continue
        chunk = os.read(sys.stdin.fileno(), 65536)
        if not chunk:
            break
        pending += chunk
        while b"\n" in pending:
            line, pending = pending.split(b"\n", 1)
            order = json.loads(line)
            if order["do"] == "quit":
                service.close()
                host.close()
                return 0
            try:
                actions[order["do"]](order)
            except Exception as error:  # reported, as the app would show it
                report({"error": str(error)})
    service.close()
    host.close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
