#!/usr/bin/python3
"""Errands: a list of errands with a form to add one, and an inbox, a calendar and files beside it.

A child-mode plugin in Python with nothing but the standard library. It shows how a plugin asks
the host to draw forms and collections: it sends only data, and the host draws the inputs, the
search, the filters and the layouts.

The page "Add" holds a form over Errands' own action "add". The form is no private channel:
submitting it invokes "add" through OstaVell's action router, and since "add" changes things
("localChange"), a person confirms every errand before it is added. The form's revision counts
the errands added so far, so a run still waiting for review when the list has changed is
cancelled by the host rather than approved on a form that is gone.

Errands keeps a log of what it ran: every action the router hands it adds one line, the
request's id, the action's name and its values as JSON, to errands.log in its private data
folder ($XDG_DATA_HOME/OstaVellPlugins/app.ostavell.example.errands/, ~/.local/share when
XDG_DATA_HOME is unset). The line reaches the disk before the action runs, and the file is only
ever appended to.
"""
import datetime
import json
import os
import select
import sys
import time
import uuid

PLUGIN_ID = "app.ostavell.example.errands"
# Instants on the bus are seconds since 2001-01-01 00:00:00 UTC.
EPOCH = 978307200
LISTS = ["Home", "Shopping", "Work"]
LIST_SYMBOLS = {"Home": "house", "Shopping": "cart", "Work": "briefcase"}
# The host refuses a snapshot with more than 96 items in one collection.
MAXIMUM_ERRANDS = 40
TITLE_CHARACTERS = 160

ADD = {
    "id": "add", "title": "Add an errand",
    "input": {"fields": [
        {"name": "title", "kind": "string", "required": True},
        {"name": "cost", "kind": "number", "required": True, "minimum": 0, "maximum": 10000},
        {"name": "priority", "kind": "number", "required": True, "minimum": 1, "maximum": 5},
        {"name": "urgent", "kind": "boolean", "required": False},
        {"name": "list", "kind": "string", "required": True}]},
    "output": {"fields": []},
    "effect": "localChange", "cancellable": False, "timeoutSeconds": 10}

hello = None
sequence = 0


def day_start(offset=0):
    """Local midnight, offset days from today, in seconds since 2001."""
    day = datetime.date.today() + datetime.timedelta(days=offset)
    return time.mktime(day.timetuple()) - EPOCH


def now():
    return time.time() - EPOCH


class State:
    def __init__(self):
        self.added = 0
        self.paused = False
        self.last_list = "Home"
        self.next_id = 6
        self.errands = [
            {"id": "e1", "title": "Buy milk", "list": "Shopping", "priority": 2, "cost": 3.5,
             "urgent": False, "done": False, "due": day_start(0) + 17 * 3600},
            {"id": "e2", "title": "Return library books", "list": "Home", "priority": 3, "cost": 0,
             "urgent": False, "done": False, "due": day_start(-1) + 12 * 3600},
            {"id": "e3", "title": "Renew passport", "list": "Home", "priority": 4, "cost": 60,
             "urgent": False, "done": False, "due": None},
            {"id": "e4", "title": "Water the plants", "list": "Home", "priority": 1, "cost": 0,
             "urgent": False, "done": True, "due": day_start(-1) + 9 * 3600},
            {"id": "e5", "title": "Send the invoice", "list": "Work", "priority": 5, "cost": 0,
             "urgent": True, "done": False, "due": day_start(1) + 10 * 3600},
        ]
        self.messages = [
            {"id": "m1", "title": "Parcel waiting at the post office", "from": "Post office",
             "detail": "Bring an ID. Open until 18:30.", "unread": True, "date": now() - 2 * 3600},
            {"id": "m2", "title": "Book club moved to Thursday", "from": "Ana",
             "detail": "Same place, 19:00. Bring the second book.", "unread": True, "date": day_start(-1) + 20 * 3600},
            {"id": "m3", "title": "Receipt for the plumber", "from": "Mario's Plumbing",
             "detail": "Paid in full. Thank you!", "unread": False, "date": day_start(-3) + 11 * 3600},
            {"id": "m4", "title": "Recycling day", "from": "City services",
             "detail": "Put the blue bin out tonight.", "unread": False, "date": day_start(0) + 7 * 3600},
        ]
        self.selected_day = 0


state = State()


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


def button(action_id, label, enabled=True, symbol=None, confirmation=None):
    action = {"id": action_id, "label": label, "enabled": enabled}
    if symbol:
        action["symbol"] = symbol
    if confirmation:
        action["confirmation"] = confirmation
    return action


def add_form():
    """The form's revision changes with every errand added, and so does its default list."""
    return {
        "id": "add", "title": "New errand", "revision": "r%d" % state.added, "action": ADD,
        "enabled": not state.paused and len(state.errands) < MAXIMUM_ERRANDS,
        "inputs": [
            {"id": "title", "label": "What", "style": "text", "value": ""},
            {"id": "cost", "label": "Cost", "style": "number", "value": 0},
            {"id": "priority", "label": "Priority", "style": "slider", "value": 3},
            {"id": "urgent", "label": "Urgent (due today)", "style": "toggle", "value": False},
            {"id": "list", "label": "List", "style": "choice", "value": state.last_list, "choices": LISTS}]}


def task_item(errand):
    detail = []
    if errand["urgent"]:
        detail.append("Urgent")
    if errand["cost"]:
        detail.append("About %.2f" % errand["cost"])
    item = {"id": errand["id"], "title": errand["title"],
            "subtitle": "%s · priority %d" % (errand["list"], errand["priority"]),
            "detail": " · ".join(detail), "category": errand["list"],
            "symbol": LIST_SYMBOLS.get(errand["list"], "checklist"),
            "unread": False, "completed": errand["done"],
            "action": button("done_" + errand["id"], "Reopen" if errand["done"] else "Done")}
    if errand["due"] is not None:
        item["date"] = errand["due"]
    return item


def tasks():
    done = any(errand["done"] for errand in state.errands)
    return {
        "layout": "tasks", "title": "Tasks", "subtitle": "Everything still to do",
        "emptyText": "Nothing to do. Add an errand.",
        "items": [task_item(errand) for errand in state.errands],
        "actions": [
            button("clearDone", "Clear completed", done, "trash",
                   "Remove every completed errand from the list?"),
            button("resumeAdding", "Resume adding", True, "play") if state.paused
            else button("pauseAdding", "Pause adding", True, "pause")]}


def inbox():
    items = []
    for message in state.messages:
        item = {"id": message["id"], "title": message["title"], "subtitle": message["from"],
                "detail": message["detail"], "category": "", "symbol": "envelope",
                "date": message["date"], "unread": message["unread"], "completed": False}
        if message["unread"]:
            item["action"] = button("read_" + message["id"], "Mark read")
        items.append(item)
    unread = any(message["unread"] for message in state.messages)
    return {"layout": "inbox", "title": "Inbox", "subtitle": "Notes about the errands",
            "emptyText": "No messages.", "items": items,
            "actions": [button("markAllRead", "Mark all read", unread, "envelope.open")]}


# What each day brings, picked by the day's number so that the week looks lived in.
AGENDA = [
    (8, 15, "Dentist", "45 minutes", "Bring the insurance card"),
    (9, 0, "Stand-up", "15 minutes", "Video call"),
    (12, 30, "Lunch with Ana", "1 hour", "The café on the corner"),
    (16, 0, "Library", "30 minutes", "Return two books"),
    (18, 0, "Pick up the parcel", "20 minutes", "Post office closes at 18:30"),
]


def agenda(offset):
    start = day_start(offset)
    ordinal = (datetime.date.today() + datetime.timedelta(days=offset)).toordinal()
    items = []
    for index, (hour, minute, title, length, place) in enumerate(AGENDA):
        if (index + ordinal) % 3 == 0:
            continue
        items.append({"id": "ev_%d_%d" % (ordinal, index), "title": title,
                      "subtitle": length, "detail": place, "category": "",
                      "symbol": "calendar", "date": start + hour * 3600 + minute * 60,
                      "unread": False, "completed": offset < 0})
    # Sunday is quiet, and shows the collection's empty text.
    return [] if (datetime.date.today() + datetime.timedelta(days=offset)).weekday() == 6 else items


def day_id(offset):
    return "day_" + (datetime.date.today() + datetime.timedelta(days=offset)).strftime("%Y%m%d")


def calendar():
    offsets = range(-1, 5)
    return {"layout": "calendar", "title": "Calendar", "subtitle": "The week ahead",
            "emptyText": "Nothing planned for this day.", "items": agenda(state.selected_day),
            "selectedDate": day_start(state.selected_day),
            "days": [{"date": day_start(offset), "action": button(day_id(offset),
                     (datetime.date.today() + datetime.timedelta(days=offset)).strftime("%a %d"))}
                     for offset in offsets],
            "actions": []}


FILES = [
    ("f1", "receipt-10.pdf", "PDF · 84 KB", "doc.text", -2),
    ("f2", "Budget.ods", "Spreadsheet · 12 KB", "doc", -9),
    ("f3", "receipt-2.pdf", "PDF · 80 KB", "doc.text", -30),
    ("f4", "agenda.txt", "Text · 1 KB", "doc.plaintext", 0),
    ("f5", "Fridge photo.jpg", "Image · 1.2 MB", "photo", -1),
]


def files():
    return {"layout": "files", "title": "Files", "subtitle": "Receipts and lists",
            "emptyText": "No files yet.",
            "items": [{"id": file_id, "title": name, "subtitle": size, "detail": "", "category": size.split(" ·")[0],
                       "symbol": symbol, "date": day_start(offset) + 15 * 3600, "unread": False,
                       "completed": False}
                      for file_id, name, size, symbol, offset in FILES],
            "actions": []}


def show():
    open_count = sum(1 for errand in state.errands if not errand["done"])
    done_count = len(state.errands) - open_count
    send("snapshot", snapshot={
        "title": "Errands", "status": "%d open · %d done" % (open_count, done_count),
        "activity": "%d open" % open_count, "fields": [], "actions": [],
        "panels": [
            {"id": "add", "title": "Add", "usesMedia": False, "forms": [add_form()],
             "sections": [{"title": "How it works",
                           "detail": "A new errand goes to Tasks once you confirm it. Urgent errands are due today."}]},
            {"id": "inbox", "title": "Inbox", "usesMedia": False, "sections": [], "collection": inbox()},
            {"id": "tasks", "title": "Tasks", "usesMedia": False, "sections": [], "collection": tasks()},
            {"id": "calendar", "title": "Calendar", "usesMedia": False, "sections": [], "collection": calendar()},
            {"id": "files", "title": "Files", "usesMedia": False, "sections": [], "collection": files()}]})


def offer():
    send("bus", bus={"operation": "register", "requestID": str(uuid.uuid4()).upper(),
                     "registration": {"actions": [ADD], "channels": []}})


def data_folder():
    """The plugin's private folder, made readable by its owner alone when it is first created."""
    base = os.environ.get("XDG_DATA_HOME") or os.path.join(os.path.expanduser("~"), ".local", "share")
    folder = os.path.join(base, "OstaVellPlugins", PLUGIN_ID)
    os.makedirs(folder, mode=0o700, exist_ok=True)
    return folder


def record(request_id, name, values):
    """Appends one line to the log and waits until it is on disk, the new file's name included."""
    folder = data_folder()
    path = os.path.join(folder, "errands.log")
    created = not os.path.exists(path)
    line = ("%s %s %s\n" % (request_id, name, json.dumps(values, sort_keys=True, separators=(",", ":"),
                                                          ensure_ascii=False))).encode()
    log = os.open(path, os.O_WRONLY | os.O_APPEND | os.O_CREAT, 0o600)
    try:
        if os.write(log, line) != len(line):
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


def answer(bus, phase, text):
    send("bus", bus={"operation": "update", "requestID": bus["requestID"], "address": bus["address"],
                     "update": {"phase": phase, "message": text, "values": {}}})


def add(values):
    """Adds the errand, or answers why not; the router has checked the values against the schema."""
    title = values.get("title", "").strip()[:TITLE_CHARACTERS]
    if not title:
        return "failed", "An errand needs a title."
    if values.get("list") not in LISTS:
        return "failed", "Choose one of the lists."
    if len(state.errands) >= MAXIMUM_ERRANDS:
        return "failed", "The list is full. Clear completed errands first."
    urgent = values.get("urgent") is True
    state.errands.append({"id": "e%d" % state.next_id, "title": title, "list": values["list"],
                          "priority": int(round(values["priority"])), "cost": float(values["cost"]),
                          "urgent": urgent, "done": False, "due": day_start(0) + 17 * 3600 if urgent else None})
    state.next_id += 1
    state.added += 1
    state.last_list = values["list"]
    return "succeeded", "Added \u201c%s\u201d." % title


def execute(bus):
    """Runs one action the router hands over, and answers once with its outcome.

    Nothing runs that the log does not hold first: when the line can't be written, the action
    fails without running."""
    name = bus.get("address", {}).get("name")
    values = bus.get("values") or {}
    try:
        record(bus["requestID"], name, values)
    except OSError:
        answer(bus, "failed", "Errands could not write its log.")
        return
    if name != "add":
        answer(bus, "failed", "Errands has no such action.")
        return
    phase, text = add(values)
    if phase == "succeeded":
        show()
    answer(bus, phase, text)


def press(action):
    """A button of a collection. Each changes only what Errands shows."""
    if action == "markAllRead":
        for message in state.messages:
            message["unread"] = False
    elif action.startswith("read_"):
        for message in state.messages:
            if message["id"] == action[len("read_"):]:
                message["unread"] = False
    elif action.startswith("done_"):
        for errand in state.errands:
            if errand["id"] == action[len("done_"):]:
                errand["done"] = not errand["done"]
    elif action == "clearDone":
        state.errands = [errand for errand in state.errands if not errand["done"]]
    elif action in ("pauseAdding", "resumeAdding"):
        state.paused = action == "pauseAdding"
    elif action.startswith("day_"):
        for offset in range(-1, 5):
            if day_id(offset) == action:
                state.selected_day = offset
    else:
        return
    show()


def handle(message):
    global hello
    kind = message.get("type")
    if kind == "hello":
        hello = message
        send("ready", features=["dashboard-v1", "actions-v1", "forms-v1", "collections-v1"])
        offer()
        show()
    elif kind == "action":
        press(message.get("action", ""))
    elif kind == "bus" and message["bus"].get("operation") == "execute":
        execute(message["bus"])
    # The router also tells Errands, as the caller of its own form's runs, how each run goes;
    # the snapshot already says what changed.


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
