#!/usr/bin/python3
"""An executor for pumps and valves, to begin one's own with: docs/executors.md tells the rest.

Needs python3-dbus and python3-gi. A resource's content is its program, {"steps": 3, "jobId": 7}; to run it
means to print a line here.
"""
import json
import pathlib

import dbus.bus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

BUS = "unix:path=/tmp/var/run/mbusd/mbusd_socket"
MANAGER, MANAGER_PATH = "iot.job.manager", "/iot/job/manager"
NAME, PATH = "iot.pump.control", "/iot/pump/control"  # the bus name is the interface's, too
FILES = pathlib.Path("/tarnvale/run/downloaded-job/configmanager")
REGISTRATION = {
    "executorName": "pump_control", "linkType": 0,
    "executorAddr": {"name": NAME, "interface": NAME, "path": PATH},
    "storeType": ["file"], "watchType": ["pump", "valve"],
}


def answer(code=0, message=""):
    return json.dumps({"code": code, "message": message, "data": None})


def answered(work, *arguments):
    """Whatever the bus library calls goes through this: no exception may reach it."""
    try:
        work(*arguments)
    except Exception as error:
        print("refuses", error, flush=True)
        return answer(1, str(error))
    return answer()


def tell(method, value):
    """Calls task-dispatcher without waiting for it: it may be calling us, or downloading, just now."""
    def told(reply):
        print(method, "code", json.loads(reply)["code"], flush=True)

    bus.call_async(MANAGER, MANAGER_PATH, MANAGER, method, "s", (json.dumps(value),),
                   lambda reply: answered(told, reply),
                   lambda error: print(method, error, flush=True), timeout=600)


def run(resource):
    program = json.loads((FILES / resource["resourceId"] / "config.json").read_text())
    print("runs", resource["resourceId"], program["steps"], flush=True)
    if "jobId" in program:  # what the cloud learns beside the deployment's report
        tell("syncJobStatus", {"jobId": program["jobId"], "jobStatus": 3, "executor": "pump_control",
                               "result": "running", "foreignKey": resource["resourceId"]})


def stop(resource):  # one that we never had is no mistake
    print("stops", resource["resourceId"], flush=True)


def each(work, resources):
    for resource in json.loads(resources):
        work(resource)


class Executor(dbus.service.Object):
    @dbus.service.method(NAME, in_signature="s", out_signature="s")
    def deployJob(self, resources):
        return answered(each, run, resources)

    @dbus.service.method(NAME, in_signature="s", out_signature="s")
    def deleteJob(self, resources):
        return answered(each, stop, resources)

    @dbus.service.method(NAME, in_signature="", out_signature="s")
    def resetJobs(self):
        print("stops everything", flush=True)
        return answer()

    @dbus.service.method(NAME, in_signature="", out_signature="s")
    def onWatchTypesFinish(self):
        print("knows that the deployment is over", flush=True)
        return answer()

    # Called by nobody at present.
    @dbus.service.method(NAME, in_signature="s", out_signature="s")
    def getJobStatus(self, query):
        return answer()

    @dbus.service.method(NAME, in_signature="", out_signature="s")
    def initExecutor(self):
        return answer()


DBusGMainLoop(set_as_default=True)
bus = dbus.bus.BusConnection(BUS)
executor = Executor(bus, PATH)
bus.request_name(NAME)
# Now if task-dispatcher is there, and whenever it comes (back).
bus.watch_name_owner(MANAGER, lambda owner: owner and tell("registerExecutor", REGISTRATION))
GLib.MainLoop().run()
