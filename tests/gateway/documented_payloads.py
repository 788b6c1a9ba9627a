#!/usr/bin/env python3
"""documented_payloads DOCUMENT HOME...: the examples of a document against real messages.

An example is a block of code behind a comment <!-- example: NAME -->. A HOME is the folder of a
local gateway that has recorded its messages. All examples of one name together must show the same
objects as all messages of that name: the same members with the same JSON types, at the same places.
A member that an example shows must also be explained, in the first column of a table.
"""
import json
import pathlib
import re
import sys

EXAMPLE = re.compile(r"^<!-- example: ([^\n]+) -->\n```\w+\n(.*?)\n```$", re.M | re.S)
REPLY = "/scheduler/sysReply"
TYPES = {dict: "object", list: "list", str: "text", int: "integer", float: "decimal"}


def read(text):
    """The value of a JSON text; any other text is its own value."""
    try:
        return json.loads(text)
    except ValueError:
        return text


def type_of(value):
    """The JSON type; true, false and null are types of their own, because so much hangs on them."""
    return TYPES.get(type(value)) or json.dumps(value)


def shapes(value, place=""):
    """What a value shows: the members of each object, the type of each element, with their places."""
    if isinstance(value, dict):
        members = [f"{name}: {type_of(member)}" for name, member in sorted(value.items())]
        yield f"{place} {{{', '.join(members)}}}"
        for name, member in value.items():
            if isinstance(member, (dict, list)):
                yield from shapes(member, f"{place}.{name}")
    elif isinstance(value, list):
        # The arguments of a request have their meaning by position, the elements of others alike.
        by_position = place.endswith(".attrs")
        for position, element in enumerate(value):
            yield from shapes(element, f"{place}[{position if by_position else ''}]")
    else:
        yield f"{place} {type_of(value)}"


def inner_texts(name, message):
    """The JSON texts inside a message, under names of their own."""
    if name.endswith("/registerRunner") and not name.startswith(REPLY):
        yield "version text", message["attrs"][0]["tags"][0]
    if name.endswith("/syncStatusPassive") and not name.startswith(REPLY):
        yield "result text", message["attrs"][2]
    if name.endswith("/syncStatusActive") and not name.startswith(REPLY):
        yield "result text", message["attrs"][2][0]["result"]
    if name == f"{REPLY} to /scheduler/publish/heartbeat":
        for order in message["attrs"][0]["data"]:
            yield "order content", order["ackContent"]


def recorded(home):
    """The names and values of everything that went through one gateway."""
    topics = {}
    for line in (home / "messages").read_text("utf-8").splitlines():
        record = json.loads(line)
        name, message = record["topic"], read(record["payload"])
        if name.startswith("local/"):  # between the scheduler and its users
            continue
        if name == REPLY:
            name = f"{REPLY} to {topics[message['id']]}"
        elif isinstance(message, dict) and "id" in message:
            topics[message["id"]] = name
        yield name, message
        for inner, text in inner_texts(name, message):
            content = read(text)
            yield inner, content
            if isinstance(content, dict) and content.get("type") == "inline":
                yield "deployment request", read(content["content"])
    for package in (home / "web").glob("*.package"):
        request = read(package.read_text("utf-8"))
        if isinstance(request, dict):  # the others are encrypted
            yield "deployment request", request


def seen_in(pairs):
    """name -> shapes"""
    seen = {}
    for name, value in pairs:
        seen.setdefault(name, set()).update(shapes(value))
    return seen


def main(document, *homes):
    text = pathlib.Path(document).read_text("utf-8")
    shown = seen_in((name, read(body)) for name, body in EXAMPLE.findall(text))
    real = seen_in(pair for home in homes for pair in recorded(pathlib.Path(home)))
    faults = []
    for name in sorted(shown.keys() | real.keys()):
        only_shown = shown.get(name, set()) - real.get(name, set())
        only_real = real.get(name, set()) - shown.get(name, set())
        faults += [f"{name}: nobody sends what an example shows: {line}" for line in only_shown]
        faults += [f"{name}: no example shows what was sent: {line}" for line in only_real]
    explained = set(re.findall(r"`(\w+)`", " ".join(re.findall(r"^\|([^|]*)\|", text, re.M))))
    members = {m for lines in shown.values() for line in lines for m in re.findall(r"(\w+):", line)}
    faults += [f"no table explains the member {member}" for member in members - explained]
    print(*sorted(faults), f"{len(shown)} kinds of messages, {len(faults)} faults", sep="\n")
    return 1 if faults or not shown else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
