#!/usr/bin/python3
"""Dice: rolls a die when its button is pressed, and offers two actions to other plugins.

A child-mode plugin in Python with nothing but the standard library: the plugin protocol is
one JSON object per line on standard input and output, and belongs to no language.

"roll" only reads (a fresh throw, the die on screen stays as it is), so a plugin allowed to use
it runs it at once; "clear" changes what the die shows, so OstaVell asks a person each time.
Each roll from its own button is announced on the event channel "rolled", for workflows and
other plugins that watch it.

Dice keeps a log of what it did for others: every action it runs for another plugin adds one
line, the request's id and the action's name, to rolls.log in its private data folder
($XDG_DATA_HOME/OstaVellPlugins/app.ostavell.example.dice/, ~/.local/share when XDG_DATA_HOME is
unset). The line reaches the disk before the action runs and before the answer leaves, so after
any crash the log holds every action a caller was told about; the file is only ever appended to.
"""
import json
import os
import random
import select
import sys
import uuid

PLUGIN_ID = "app.ostavell.example.dice"

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
        "channels": [
            {"id": "rolled", "title": "The die was rolled", "kind": "event", "schema": face_schema}]}})


def announce():
    """Tells whoever watches the "rolled" channel (a workflow, another plugin) what came up."""
    send("bus", bus={"operation": "publish", "requestID": str(uuid.uuid4()).upper(),
                     "address": {"plugin": hello["pluginID"], "name": "rolled"}, "values": {"face": face}})


def data_folder():
    """The plugin's private folder, made readable by its owner alone when it is first created."""
    base = os.environ.get("XDG_DATA_HOME") or os.path.join(os.path.expanduser("~"), ".local", "share")
    folder = os.path.join(base, "OstaVellPlugins", PLUGIN_ID)
    os.makedirs(folder, mode=0o700, exist_ok=True)
    return folder


def record(request_id, name):
    """Appends one line to the log and waits until it is on disk, the new file's name included."""
    folder = data_folder()
    path = os.path.join(folder, "rolls.log")
    created = not os.path.exists(path)
    line = ("%s %s\n" % (request_id, name)).encode()
    log = os.open(path, os.O_WRONLY | os.O_APPEND | os.O_CREAT, 0o600)
    try:
        written = os.write(log, line)
        if written != len(line):
            raise OSError("short write to %s" % path)
        os.fsync(log)
    finally:
        os.close(log)
    if created:
        directory = os.open(folder, os.O_RDONLY)
        try:
            os.fsync(directory)
        finally:
            os.close(directory)


def execute(bus):
    """Runs one action the router hands over, and answers once with its outcome.

    Nothing runs that the log does not hold first: when the line can't be written, the action
    fails without running."""
    global face
    name = bus.get("address", {}).get("name")
    try:
        record(bus["requestID"], name)
    except OSError:
        send("bus", bus={"operation": "update", "requestID": bus["requestID"], "address": bus["address"],
                         "update": {"phase": "failed", "message": "Dice could not write its log.",
                                    "values": {}}})
        return
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
        announce()
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
