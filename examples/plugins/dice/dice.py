#!/usr/bin/python3
"""Dice: rolls a die when its button is pressed, and offers two actions to other plugins.

A child-mode plugin in Python with nothing but the standard library: the plugin protocol is
one JSON object per line on standard input and output, and belongs to no language.

"roll" only reads (a fresh throw, the die on screen stays as it is), so a plugin allowed to use
it runs it at once; "clear" changes what the die shows, so OstaVell asks a person each time.
"""
import json
import os
import random
import select
import sys
import uuid

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


def offer():
    """Registers the actions other plugins may ask for, each under a grant a person gives."""
    face_schema = {"fields": [{"name": "face", "kind": "number", "required": True}]}
    send("bus", bus={"operation": "register", "requestID": str(uuid.uuid4()).upper(), "registration": {
        "actions": [
            {"id": "roll", "title": "Roll the die", "input": {"fields": []}, "output": face_schema,
             "effect": "readOnly", "cancellable": False, "timeoutSeconds": 10},
            {"id": "clear", "title": "Clear the die", "input": {"fields": []}, "output": {"fields": []},
             "effect": "localChange", "cancellable": False, "timeoutSeconds": 10}],
        "channels": []}})


def execute(bus):
    """Runs one action the router hands over, and answers once with its outcome."""
    global face
    name = bus.get("address", {}).get("name")
    values = {}
    if name == "roll":
        values["face"] = random.randint(1, 6)
        text = "Rolled %d." % values["face"]
    else:
        face = None
        text = "Cleared."
        show()
    send("bus", bus={"operation": "update", "requestID": bus["requestID"], "address": bus["address"],
                     "update": {"phase": "succeeded", "message": text, "values": values}})


def handle(message):
    global hello, face
    if message.get("type") == "hello":
        hello = message
        send("ready", features=["dashboard-v1", "actions-v1"])
        show()
        offer()
    elif message.get("type") == "action" and message.get("action") == "roll":
        face = random.randint(1, 6)
        show()
    elif message.get("type") == "bus" and message["bus"].get("operation") == "execute":
        execute(message["bus"])


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
