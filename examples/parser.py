#!/usr/bin/python3
"""A parser for pumps and sensors, to begin one's own with: docs/executors.md tells the rest.

Needs python3-dbus and python3-gi. It sees each resource's configuration before any executor gets the resource,
and refuses a deployment with a speed that is none or too high.
"""
import json

import dbus.bus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

BUS = "unix:path=/tmp/var/run/mbusd/mbusd_socket"
MANAGER, MANAGER_PATH = "iot.job.manager", "/iot/job/manager"
NAME, PATH = "iot.pump.parser", "/iot/pump/parser"  # the bus name is the interface's, too
REGISTRATION = {
    "executorName": "pump_parser",
    "executorAddr": {"name": NAME, "interface": NAME, "path": PATH},
    "storeType": [], "watchType": ["pump", "sensor"],
}
HIGHEST = 10


def fault(value):
    """What is wrong with a configuration; nothing: an empty text."""
    try:
        speed = json.loads(value)["speed"]
        return "" if 0 <= speed <= HIGHEST else f"speed {speed} is not between 0 and {HIGHEST}"
    except (ValueError, KeyError, TypeError):  # the last one also for a null value: no configuration
        return "no speed"


class Parser(dbus.service.Object):
    @dbus.service.method(NAME, in_signature="s", out_signature="s")
    def deployConfig(self, text):
        try:
            config = json.loads(text)
            wrong = fault(config["value"])
            print("refuses" if wrong else "takes", config["snapshotId"], wrong, flush=True)
        except Exception as error:  # none may reach the bus library
            wrong = str(error)
        return json.dumps({"code": 7 if wrong else 0, "message": wrong, "data": None})


DBusGMainLoop(set_as_default=True)
bus = dbus.bus.BusConnection(BUS)
parser = Parser(bus, PATH)
bus.request_name(NAME)


def register(owner):
    if owner:  # without waiting for the answer: it may be calling us, or downloading, just now
        bus.call_async(MANAGER, MANAGER_PATH, MANAGER, "registerParser", "s", (json.dumps(REGISTRATION),),
                       lambda reply: print("registerParser code", json.loads(reply)["code"], flush=True),
                       lambda error: print("registerParser", error, flush=True), timeout=600)


# Now if task-dispatcher is there, and whenever it comes (back).
bus.watch_name_owner(MANAGER, register)
GLib.MainLoop().run()
