#!/usr/bin/python3
"""A customer-service desk in Python: a robot that echoes, and an agent for whoever asks.

Usage: desk.py JID PASSWORD HOST PORT   (needs Debian's python3-slixmpp)
"""
import json, sys, uuid
import xml.etree.ElementTree as ET
import slixmpp
from slixmpp.xmlstream.handler import Callback
from slixmpp.xmlstream.matcher import MatchXPath

NS = "urn:quor:customer-service:0"


class Desk(slixmpp.ClientXMPP):
    def __init__(self, jid, password):
        super().__init__(jid, password)
        self.add_event_handler("session_start", self.started)
        # The payload is the <cs> element (the <body> is a fixed fallback text for other
        # clients): match the element itself.
        self.register_handler(Callback("cs", MatchXPath("{jabber:client}message/{%s}cs" % NS),
                                       self.received))

    def started(self, _):
        self.send_presence()  # without presence the server routes no messages to the desk
        print("desk: serving as", self.boundjid.bare, flush=True)

    def send_cs(self, to, name, body):
        msg = self.make_message(mto=to, mtype="chat")  # to the customer's full JID
        msg["id"] = "desk-" + uuid.uuid4().hex  # a unique id: the customer drops repeats
        cs = ET.Element("{%s}cs" % NS, {"name": name})
        cs.text = json.dumps(body, ensure_ascii=False)
        msg.xml.append(cs)
        msg.send()

    def received(self, msg):
        cs = msg.xml.find("{%s}cs" % NS)
        if msg["type"] == "headline":  # the server's confirmations are for the sender only
            return
        name, body = cs.get("name"), json.loads(cs.text or "{}")
        to = msg["from"]
        if name == "KX:CsHs":  # a new service: answer with the configuration
            self.send_cs(to, "KX:CsHsR", {"status": 1, "data": {
                "uid": "u-" + to.user, "sid": "s-" + uuid.uuid4().hex[:8], "pid": "p1",
                "serviceType": 3, "companyName": "Python Desk", "robotName": "Echo",
                "robotWelcome": "Hi, I am Echo. Say something!"}})
        elif name == "KX:TxtMsg":
            self.send_cs(to, "KX:TxtMsg", {"content": "You said: " + body.get("content", "")})
        elif name == "KX:CsCha":  # an agent takes the customer, then greets in a text of its own
            self.send_cs(to, "KX:CsChaR", {"code": 200, "data": {"status": 1}})
            self.send_cs(to, "KX:TxtMsg", {"content": "Hello, this is Ada. How can I help?",
                                           "user": {"id": "ada", "name": "Ada"}})
        # KX:CsEva, KX:CsSp and KX:CsLM need no answer.


if __name__ == "__main__":
    jid, password, host, port = sys.argv[1:5]
    desk = Desk(jid, password)
    desk.connect((host, int(port)), force_starttls=False)
    desk.process(forever=True)
