#!/usr/bin/python3
"""Speakers: pretend volume controls that OstaVell's volume keys can be routed to.

A child-mode plugin in Python with nothing but the standard library. It shows the volume
protocol from the plugin's side: the endpoints it lists in its snapshot, the "volumeCommand"
the host sends when a routed volume key is pressed, and the "volumeResult" that confirms it.

The host sends each change once and waits for the answer; it never sends it again, so a plugin
that applies a change must say so. Each endpoint behaves in its own way, so that the host's
handling of every answer can be seen:

- "desk" (Desk speakers) applies the change and confirms it with its new state;
- "silent" (Silent amplifier) applies nothing and never answers;
- "stale" (Old receiver) answers with a reading a minute old;
- "crossed" (Crossed wires) answers about the desk speakers instead of itself.

Speakers keeps a log of the commands it was sent: each adds one line, the request's id, the
endpoint's id and the operation as JSON, to speakers.log in its private data folder
($XDG_DATA_HOME/OstaVellPlugins/app.ostavell.example.speakers/, ~/.local/share when
XDG_DATA_HOME is unset), before it does anything with it.
"""
import json
import os
import select
import sys
import time

PLUGIN_ID = "app.ostavell.example.speakers"
# A controller that stays silent this long is stopped by the host; a fresh reading also keeps
# the endpoints from going stale, since the host trusts a reading for 45 seconds.
OBSERVE_SECONDS = 10
# How far ahead a command may expire.
MAX_COMMAND_SECONDS = 15

hello = None
sequence = 0


def endpoint(endpoint_id, name):
    return {"id": endpoint_id, "name": name, "available": True, "volume": 0.5, "muted": False,
            "canSetVolume": True, "canMute": True, "observedAt": time.time()}


endpoints = {
    "desk": endpoint("desk", "Desk speakers"),
    "silent": endpoint("silent", "Silent amplifier"),
    "stale": endpoint("stale", "Old receiver"),
    "crossed": endpoint("crossed", "Crossed wires"),
}


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
    desk = endpoints["desk"]
    level = "muted" if desk["muted"] else "%d%%" % round(desk["volume"] * 100)
    send("snapshot", snapshot={
        "title": "Speakers", "status": "Desk speakers at " + level, "activity": "", "fields": [],
        "actions": [], "volumeEndpoints": list(endpoints.values())})


def observe():
    """Reads the pretend hardware again: every endpoint is seen now."""
    for state in endpoints.values():
        state["observedAt"] = time.time()
    show()


def data_folder():
    """The plugin's private folder, made readable by its owner alone when it is first created."""
    base = os.environ.get("XDG_DATA_HOME") or os.path.join(os.path.expanduser("~"), ".local", "share")
    folder = os.path.join(base, "OstaVellPlugins", PLUGIN_ID)
    os.makedirs(folder, mode=0o700, exist_ok=True)
    return folder


def record(command):
    """Appends one line to the log and waits until it is on disk."""
    line = ("%s %s %s\n" % (command["requestID"], command["endpointID"],
                            json.dumps(command["operation"], sort_keys=True, separators=(",", ":")))).encode()
    log = os.open(os.path.join(data_folder(), "speakers.log"), os.O_WRONLY | os.O_APPEND | os.O_CREAT, 0o600)
    try:
        os.write(log, line)
        os.fsync(log)
    finally:
        os.close(log)


def apply(state, operation):
    """The change on the pretend hardware; the host has checked the operation's limits."""
    if "setVolume" in operation:
        state["volume"] = operation["setVolume"]["_0"]
    elif "adjustVolume" in operation:
        state["volume"] = min(1.0, max(0.0, state["volume"] + operation["adjustVolume"]["_0"]))
        if operation["adjustVolume"]["_0"] > 0:
            state["muted"] = False
    elif "setMuted" in operation:
        state["muted"] = operation["setMuted"]["_0"]
    elif "toggleMute" in operation:
        state["muted"] = not state["muted"]
    state["observedAt"] = time.time()


def answer(request_id, endpoint_id, state=None, error=None):
    result = {"requestID": request_id, "endpointID": endpoint_id}
    if state is not None:
        result["state"] = state
    else:
        result["error"] = error
    send("volumeResult", volumeResult=result)


def command(message):
    order = message["volumeCommand"]
    record(order)
    endpoint_id = order["endpointID"]
    now = time.time()
    # A gesture delivered late is dropped rather than applied to a level nobody sees now, and
    # one that claims to last longer than the host ever allows is not the host's.
    if endpoint_id not in endpoints or not now < order["expiresAt"] <= now + MAX_COMMAND_SECONDS:
        answer(order["requestID"], endpoint_id, error="Volume gesture expired or has an invalid target.")
    elif endpoint_id == "desk":
        apply(endpoints["desk"], order["operation"])
        show()
        answer(order["requestID"], "desk", state=endpoints["desk"])
    elif endpoint_id == "stale":
        old = dict(endpoints["stale"], observedAt=time.time() - 60)
        answer(order["requestID"], "stale", state=old)
    elif endpoint_id == "crossed":
        answer(order["requestID"], "desk", state=dict(endpoints["desk"], observedAt=time.time()))
    # "silent" never answers.


def handle(message):
    global hello
    kind = message.get("type")
    if kind == "hello":
        hello = message
        send("ready", features=["dashboard-v1", "volume-v1"])
        show()
    elif kind == "volumeCommand":
        command(message)


def main():
    pending = b""
    while True:
        readable, _, _ = select.select([0], [], [], OBSERVE_SECONDS)
        if not readable:
            if hello:
                observe()
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
