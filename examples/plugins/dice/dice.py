#!/usr/bin/python3
"""Dice: rolls a die when its button is pressed.

A child-mode plugin in Python with nothing but the standard library: the plugin protocol is
one JSON object per line on standard input and output, and belongs to no language.
"""
import json
import os
import random
import select
import sys

hello = None
sequence = 0
face = None


def send(message_type, **fields):
    """Writes one message; the host wants a newline after each and nothing else on stdout."""
    global sequence
    if message_type != "ready":
        sequence += 1
    message = {"apiVersion": 1, "type": message_type, "pluginID": hello["pluginID"],
               "session": hello["session"], "sequence": 0 if message_type == "ready" else sequence}
    message.update(fields)
    sys.stdout.write(json.dumps(message, separators=(",", ":")) + "\n")
    sys.stdout.flush()


def show():
    status = "Press Roll" if face is None else "You rolled %d" % face
    send("snapshot", snapshot={
        "title": "Dice", "status": status, "activity": "" if face is None else str(face),
        "fields": [], "actions": [{"id": "roll", "label": "Roll", "enabled": True, "symbol": "dice"}]})


def handle(message):
    global hello, face
    if message.get("type") == "hello":
        hello = message
        send("ready", features=["dashboard-v1"])
        show()
    elif message.get("type") == "action" and message.get("action") == "roll":
        face = random.randint(1, 6)
        show()


def main():
    pending = b""
    while True:
        # Speak at least every 10 seconds, since the host stops a plugin silent for 15.
        readable, _, _ = select.select([0], [], [], 10)
        if not readable:
            if hello:
                send("heartbeat")
            continue
        chunk = os.read(0, 65536)
        if not chunk:
            return  # the host has gone
        pending += chunk
        while b"\n" in pending:
            line, pending = pending.split(b"\n", 1)
            handle(json.loads(line))


if __name__ == "__main__":
    main()
