"""Drives NorvellSonivoService beside NorvellSonivoDriver: audio, settings, a driver that goes and comes, its end.

Usage: service_program_test.py SERVICE DRIVER SONIVO SHARE
SHARE is the folder with the parameters and models that belong to the programs.
"""

import json
import os
import queue
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import uuid

SERVICE, DRIVER, SONIVO, SHARE = (os.path.realpath(sys.argv.pop(1)) for _ in range(4))
NOTEBOOK = "--simulate"  # the option with the folder of the simulated notebook

LIMIT = 60  # seconds, for what is waited for
IDLE = 4  # seconds
MOST_IDLE_LOAD = 0.002  # of a core
IDLE_WAKES = 5  # a second: one thread of the service looks at the driver's settings every 200 ms
FURTHER_WAKES = 8  # in all: reports, and what other threads started with
NO_SERVICE = 3

MICROPHONE = "{0.0.1.00000000}.{1f6a0c2e-3b57-4d1c-9a60-5c0d7e2b8a02}"  # of the simulated notebook
SET_FX_PROPERTY = 0x8000E204
ENDPOINT_GUID = uuid.UUID("1da5d803-d492-4edd-8c23-e0c0ffee7f0e"), 4
KEY_CANCEL_PARAMETERS = uuid.UUID("654091d5-0ac4-4fc2-b6d4-c9e81f24816e"), 551
BEAM_FORMING_PARAMETERS = uuid.UUID("7ce50538-9cfe-4ec9-aa86-113609b25094"), 571
TEXT, BLOB = 31, 65

PROMPT = 0.3  # seconds
POLL = 0.2  # between two looks at the driver's settings
REST = 0.4  # until what was set before is dealt with
# A machine that is busy with something else holds somebody up now and then: so many more rounds have to be prompt than
# not, within this many.
AHEAD, ROUNDS = 4, 16


def cpu_seconds(process):
    """Of all its threads, to the nanosecond; those of stat are in ticks of 10 ms."""
    nanoseconds = 0
    tasks = f"/proc/{process.pid}/task"
    for task in os.listdir(tasks):
        with open(f"{tasks}/{task}/schedstat", encoding="ascii") as numbers:
            nanoseconds += int(numbers.read().split()[0])
    return nanoseconds / 1e9


def wakes(process):
    """How often its threads have waited, all together."""
    count = 0
    tasks = f"/proc/{process.pid}/task"
    for task in os.listdir(tasks):
        with open(f"{tasks}/{task}/status", encoding="ascii") as status:
            lines = [line.split() for line in status]
        count += sum(int(line[1]) for line in lines if line[0] == "voluntary_ctxt_switches:")
    return count


class Traces:
    """What a program writes to standard error, each line with the time at which it came."""

    def __init__(self, process):
        self.process = process
        self.lines = queue.Queue()
        self.thread = threading.Thread(target=self.read)
        self.thread.start()

    def read(self):
        for line in self.process.stderr:
            self.lines.put((time.monotonic(), line))

    def end(self):
        self.process.kill()
        self.thread.join()

    def wait_for(self, text, start):
        """When the line came first from this start on; None where it doesn't."""
        came = start
        while came < start + LIMIT:
            came, line = self.lines.get(timeout=LIMIT)
            if came >= start and line == text:
                return came
        return None


class ServiceProgram(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.path = os.path.join(self.folder, "driver.sock")
        self.state = os.path.join(self.folder, "state")

    def start(self, arguments, **options):
        process = subprocess.Popen(arguments, stderr=subprocess.PIPE, text=True, **options)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def start_driver(self):
        driver = self.start([DRIVER, "--socket", self.path, "--state", self.state])
        self.wait_until(lambda: self.told("settings", "get", "generation").returncode == 0)
        return driver

    def start_service(self, *options, name="notebook", **environment):
        notebook = os.path.join(self.folder, name)
        os.makedirs(os.path.join(notebook, "user"), exist_ok=True)
        return self.start([SERVICE, "--socket", self.path, NOTEBOOK, notebook, *options],
                          env={**os.environ, **environment})

    def line(self, text):
        return f"NorvellSonivoService: {text} (socket {self.path})\n"

    def wait_until(self, condition):
        end = time.monotonic() + LIMIT
        while not condition():
            self.assertLess(time.monotonic(), end, "it doesn't come")
            time.sleep(0.02)

    def told(self, *words):
        return subprocess.run([SONIVO, *words, "--socket", self.path], capture_output=True, text=True, timeout=LIMIT)

    def set(self, *words):
        run = self.told("settings", "set", *words)
        self.assertEqual((run.returncode, run.stderr), (0, ""))

    def set_property(self, key, kind, value):
        """Of the microphone, as the system does it."""
        guid, number = key
        with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as client:
            client.connect(self.path)
            for home in range(2):
                data = struct.pack("<2I", home, number) + guid.bytes_le
                data += MICROPHONE.encode("utf-16-le").ljust(520, b"\0") + struct.pack("<I", kind) + value
                client.send(struct.pack("<5I", home, 1, SET_FX_PROPERTY, len(data), 0) + data)
                self.assertEqual(client.recv(100), struct.pack("<3I", home, 0, 0))

    def register_microphone(self):
        """The driver tells of no changes to endpoints it doesn't know."""
        self.set_property(ENDPOINT_GUID, TEXT, MICROPHONE.rpartition(".")[2].encode())

    def store_parameters(self, key, flags, name):
        with open(os.path.join(SHARE, "par", name), "rb") as blob:
            self.set_property(key, BLOB, bytes([1] * flags) + blob.read())

    def give_models(self, name="notebook"):
        """The notebook has the models, one of which counts as enrolled."""
        notebook = os.path.join(self.folder, name)
        enrolled = os.path.join(notebook, "user", "NorvellSonivo")
        os.makedirs(enrolled)
        models = os.path.join(SHARE, "models")
        os.symlink(models, os.path.join(notebook, "models"))
        shutil.copyfile(os.path.join(models, "model_tsse_streaming_rtf0.10_v2.bin"),
                        os.path.join(enrolled, "EnhanceModel.bin"))

    def status(self):
        run = self.told("status", "--json")
        return json.loads(run.stdout) if run.stdout else {"service": None}

    def is_ready(self):
        service = self.status()["service"]
        return service is not None and service["driver_ready"]

    def setting(self, name):
        return self.status()["driver"]["settings"][name]

    def test_terminate_and_interrupt_end_it(self):
        self.start_driver()
        for number in (signal.SIGTERM, signal.SIGINT):
            service = self.start_service()
            self.wait_until(self.is_ready)
            service.send_signal(number)
            self.assertEqual(service.wait(LIMIT), 0)
            self.assertEqual(self.told("status").returncode, NO_SERVICE)

    def test_audio_streams_in_both_directions(self):
        self.start_driver()
        service = self.start_service("--stream")
        self.wait_until(lambda: self.is_ready() and all(
            self.status()["service"][way]["state"] == "ePhysicalStreaming" for way in ("capture", "render")))
        before = self.status()["service"]["capture"]["blocks"]
        self.wait_until(lambda: self.status()["service"]["capture"]["blocks"] >= before + 100)
        self.assertEqual(self.told("status").returncode, 0)
        service.terminate()
        self.assertEqual(service.wait(LIMIT), 0)

    def expect_prompt(self, traces, name):
        """The command takes the setting to the audio of the chain, from its start to the first block that has it."""
        ahead = 0
        value = "off" if self.told("settings", "get", name).stdout == "on\n" else "on"
        for i in range(ROUNDS):
            time.sleep(REST + i % AHEAD * POLL / AHEAD)  # so as to begin at any moment of a poll
            start = time.monotonic()
            self.set(name, value)
            taken = traces.wait_for(f"[cap] {name} is {value}\n", start)
            self.assertIsNotNone(taken, f"{name} {value} doesn't reach the chain")
            print(f"{name} {value} is in the audio after {1000 * (taken - start):.0f} ms")
            ahead += 1 if taken - start < PROMPT else -1
            if ahead == AHEAD:
                return
            value = "off" if value == "on" else "on"
        self.fail(f"{name} comes late")

    def settings_reach(self, chain, generation, function, names):
        self.start_driver()
        self.set("--machine", "generation-mic", generation, "function-mic", function)
        self.register_microphone()
        if chain == "keycancel":
            self.store_parameters(KEY_CANCEL_PARAMETERS, 2, "keycancel.bin")
        else:
            self.store_parameters(BEAM_FORMING_PARAMETERS, 3, "beamforming.bin")
        traces = Traces(self.start_service("--stream", "--verbose"))
        self.addCleanup(traces.end)
        self.wait_until(lambda: self.is_ready() and self.status()["service"]["chain"] == chain)
        for name in names:
            self.expect_prompt(traces, name)

    def test_settings_reach_the_first_chain_promptly(self):
        self.settings_reach("keycancel", "2", "1", ["keyboard-cancel"])

    def test_settings_reach_the_second_chain_promptly(self):
        self.settings_reach("beamforming", "3", "2", ["keyboard-cancel", "beamforming"])

    def test_settings_reach_the_third_chain_promptly(self):
        self.give_models()
        self.settings_reach("ai", "5", "8", ["keyboard-cancel", "beamforming", "speech-enhance", "voice-model"])

    def test_what_the_user_sets_takes_effect(self):
        self.start_driver()
        self.set("--machine", "generation-mic", "5", "function-mic", "8")
        self.register_microphone()
        self.start_service()
        self.wait_until(self.is_ready)
        self.assertEqual(self.status()["service"]["function_mic"], 8)
        self.assertEqual(self.status()["service"]["chain"], "none", "before an application records")
        for value in ("on", "off"):
            self.set("auto-mute", value)
            self.wait_until(lambda: self.status()["service"]["auto_mute"] == (value == "on"))
        # Without a meeting mode headphones end the enhancement, with one what the user wants is in effect.
        self.assertTrue(self.setting("speech-enhance"))
        self.set("--machine", "headphone", "on")
        self.wait_until(lambda: self.status()["service"]["headphones"] and not self.setting("speech-enhance"))
        self.assertTrue(self.setting("speech-enhance-user"))
        self.set("meeting-mode", "1")
        self.set("--machine", "headphone", "off")
        self.wait_until(lambda: not self.status()["service"]["headphones"] and self.setting("speech-enhance"))

    def test_it_waits_for_a_driver_and_survives_those_that_are_killed(self):
        service = self.start_service()
        time.sleep(0.5)
        self.assertIsNone(service.poll())
        for _ in range(3):
            driver = self.start_driver()
            self.wait_until(self.is_ready)
            driver.kill()
            driver.wait()
        self.start_driver()
        self.wait_until(self.is_ready)
        service.terminate()
        self.assertEqual(service.wait(LIMIT), 0)

    def test_a_service_that_is_killed_makes_room_for_the_next(self):
        driver = self.start_driver()
        first = self.start_service()
        self.wait_until(self.is_ready)
        first.kill()
        first.wait()
        self.assertEqual(self.told("status").returncode, NO_SERVICE)
        self.start_service()
        self.wait_until(self.is_ready)
        self.assertIsNone(driver.poll())

    def test_a_second_service_waits_for_the_end_of_the_first_and_burns_nothing(self):
        self.start_driver()
        first = self.start_service()
        self.wait_until(self.is_ready)
        second = self.start_service(name="other")
        time.sleep(1)
        before = cpu_seconds(second)
        time.sleep(2)
        self.assertLess((cpu_seconds(second) - before) / 2, 0.2)
        self.assertIsNone(second.poll())
        first.kill()
        first.wait()
        self.wait_until(self.is_ready)
        second.terminate()
        self.assertEqual(second.wait(LIMIT), 0)
        self.assertEqual(second.stderr.read(), self.line("another service has the driver; this one waits for its end") +
                         self.line("the driver is connected"))

    def test_it_tells_once_that_there_is_no_driver_and_that_there_is_one(self):
        service = self.start_service()
        self.assertEqual(service.stderr.readline(), self.line("the driver is not connected"))
        self.start_driver()
        self.wait_until(self.is_ready)
        service.terminate()
        self.assertEqual(service.wait(LIMIT), 0)
        self.assertEqual(service.stderr.read(), self.line("the driver is connected"))

    def test_wrong_usage_is_told(self):
        for arguments, message in ((["--stream"], "--stream requires --simulate"),
                                   (["--unknown"], "The following argument was not expected: --unknown")):
            service = self.start([SERVICE, *arguments])
            self.assertEqual((service.wait(LIMIT), service.stderr.read()), (2, f"error: {message}\n"))

    def test_it_refuses_a_path_that_is_too_long_for_a_socket(self):
        path = "/" + 107 * "x"
        service = self.start([SERVICE, "--socket", path, NOTEBOOK, self.folder])
        self.assertEqual(service.wait(LIMIT), 1)
        self.assertEqual(service.stderr.read(), f"error: the path '{path}' is too long for a socket: "
                                                "it has 108 bytes, and there is room for 107\n")

    def test_a_second_service_ends_while_it_waits(self):
        self.start_driver()
        first = self.start_service()
        self.wait_until(self.is_ready)
        second = self.start_service(name="other")
        time.sleep(1)
        second.terminate()
        self.assertEqual(second.wait(LIMIT), 0)
        self.assertTrue(self.is_ready())
        self.assertIsNone(first.poll())

    def test_an_idle_service_and_its_driver_take_next_to_nothing(self):
        programs = [self.start_driver(), self.start_service()]
        self.wait_until(self.is_ready)
        time.sleep(1)
        before, woken = [cpu_seconds(each) for each in programs], [wakes(each) for each in programs]
        start = time.monotonic()
        time.sleep(IDLE)
        seconds = time.monotonic() - start
        woken = [wakes(each) - was for each, was in zip(programs, woken)]
        loads = [(cpu_seconds(each) - was) / seconds for each, was in zip(programs, before)]
        print("idle: driver {:.2%}, service {:.2%} of a core".format(*loads))
        self.assertLess(sum(loads), MOST_IDLE_LOAD)
        print("idle: the driver wakes {} times in {:.1f} s, the service {} times".format(woken[0], seconds, woken[1]))
        self.assertLess(woken[0], FURTHER_WAKES)
        self.assertLess(woken[1], IDLE_WAKES * seconds + FURTHER_WAKES)

    def test_a_service_manager_that_watches_it_hears_of_it_until_it_hangs(self):
        manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(manager.close)
        manager.settimeout(LIMIT)
        manager.bind(os.path.join(self.folder, "notify"))
        self.start_driver()
        service = self.start_service(NOTIFY_SOCKET=manager.getsockname(), WATCHDOG_USEC="1000000")
        self.assertEqual(manager.recv(100), b"READY=1")
        for _ in range(3):
            self.assertEqual(manager.recv(100), b"WATCHDOG=1")
        service.send_signal(signal.SIGSTOP)
        manager.settimeout(2)
        with self.assertRaises(TimeoutError):
            while True:
                self.assertEqual(manager.recv(100), b"WATCHDOG=1")


if __name__ == "__main__":
    unittest.main()
