"""Drives NorvellSonivoDriver: options, sockets of a service manager, a killed driver, a full disk, its end.

Usage: driver_program_test.py PROGRAM
"""

import os
import random
import resource
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest

PROGRAM = os.path.realpath(sys.argv.pop(1))

GET_FUNCTION = 0x8000E13C
SET_FUNCTION = 0x8000E140
SET_TEXT_1 = 0x8000E1BC
GET_TEXT_1 = 0x8000E1C0
SET_ENROLMENT = 0x8000E1D4
OBSERVE_EVENTS = 0x8000E0EC
EVENT_NOTIFY = 0x8000E0E4
DISK_FULL = 112
DRIVER_EXIT = 99


class Client:
    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.socket.settimeout(20)
        self.id = 0
        try:
            self.socket.connect(path)
        except OSError:
            self.close()
            raise

    def close(self):
        self.socket.close()

    def send(self, code, data=b"", output=0):
        self.id += 1
        self.socket.send(struct.pack("<5I", self.id, 1, code, len(data), output) + data)

    def receive(self):
        reply = self.socket.recv(70000)
        if not reply:
            raise ConnectionError
        _, error, transferred = struct.unpack("<3I", reply[:12])
        assert transferred == len(reply) - 12
        return error, reply[12:]

    def ask(self, code, data=b"", output=0):
        self.send(code, data, output)
        return self.receive()

    def get(self):
        error, output = self.ask(GET_FUNCTION, output=4)
        assert error == 0
        return struct.unpack("<I", output)[0]

    def set(self, value):
        return self.ask(SET_FUNCTION, struct.pack("<I", value))[0]


class DriverProgram(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.path = os.path.join(self.folder.name, "run", "driver.sock")
        self.state = os.path.join(self.folder.name, "state")
        self.process = None
        self.addCleanup(self.kill)

    def start(self, **options):
        self.process = subprocess.Popen([PROGRAM, "--socket", self.path, "--state", self.state],
                                        stderr=subprocess.PIPE, text=True, **options)
        end = time.monotonic() + 20
        while time.monotonic() < end:
            try:
                return self.connect()
            except OSError:
                self.assertIsNone(self.process.poll(), "the driver has ended")
                time.sleep(0.001)
        self.fail("the driver doesn't listen")

    def connect(self):
        client = Client(self.path)
        self.addCleanup(client.close)
        return client

    def connect_for_a_while(self):
        for _ in range(1000):  # while there are those of before who are still to be taken leave of
            client = Client(self.path)
            try:
                client.get()
                return client
            except (ConnectionError, OSError):
                client.close()
        self.fail("there is no place")

    def open_files(self):
        folder = f"/proc/{self.process.pid}/fd"
        return [os.readlink(f"{folder}/{name}") for name in os.listdir(folder)]

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    def memory(self):
        """What is resident, in bytes."""
        with open(f"/proc/{self.process.pid}/statm", encoding="ascii") as numbers:
            return int(numbers.read().split()[1]) * resource.getpagesize()

    def kill(self):
        if self.process is not None:
            self.process.kill()
            self.process.wait()
            log = self.process.stderr.read()
            self.process.stderr.close()
            self.process = None
            return log

    def fails(self, code, message, *arguments, **environment):
        variables = {"PATH": os.environ["PATH"], **environment}
        run = subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, env=variables, timeout=20)
        self.assertEqual(run.returncode, code, run.stderr)
        self.assertEqual(run.stderr[:len(message)], message)
        self.assertEqual(run.stdout, "")

    def test_help_has_an_example(self):
        run = subprocess.run([PROGRAM, "--help"], capture_output=True, text=True)
        self.assertEqual(run.returncode, 0)
        self.assertIn("Example:", run.stdout)

    def test_wrong_usage_and_missing_folders_are_told(self):
        self.fails(2, "error: The following argument was not expected: --unknown\n", "--unknown")
        self.fails(2, "error: --state: 1 required TEXT missing\n", "--state")
        self.fails(1, "error: there is no home folder; give --state FOLDER\n")
        self.fails(1, "error: XDG_RUNTIME_DIR is not set; give --socket PATH\n", "--state", self.state)

    def test_the_environment_says_where_it_listens_and_keeps_its_state(self):
        variables = {"PATH": os.environ["PATH"], "XDG_RUNTIME_DIR": self.folder.name, "XDG_STATE_HOME": self.state}
        self.path = os.path.join(self.folder.name, "sonivo", "driver.sock")
        self.process = subprocess.Popen([PROGRAM], env=variables, stderr=subprocess.PIPE, text=True)
        end = time.monotonic() + 20
        while not os.path.exists(self.path) and time.monotonic() < end:
            time.sleep(0.001)
        self.assertEqual(os.stat(self.path).st_mode & 0o777, 0o600)
        self.assertTrue(os.path.isdir(os.path.join(self.state, "sonivo")))

    def test_a_second_driver_is_refused_and_the_first_serves_on(self):
        client = self.start()
        self.fails(1, "error: another driver keeps its state in " + self.state,
                   "--socket", self.path, "--state", self.state)
        self.fails(1, f"error: can't listen at {self.path}: another driver does",
                   "--socket", self.path, "--state", self.state + "2")
        self.assertEqual(client.set(5), 0)

    def test_the_end_is_announced_and_leaves_no_socket(self):
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            client = self.start()
            client.send(EVENT_NOTIFY, output=1044)
            client.send(GET_FUNCTION, output=4)
            client.receive()
            self.process.send_signal(number)
            error, record = client.receive()
            self.assertEqual((error, struct.unpack("<I", record[:4])[0]), (0, DRIVER_EXIT))
            with self.assertRaises(ConnectionError):
                client.receive()
            self.assertEqual(self.process.wait(20), 0)
            self.assertFalse(os.path.exists(self.path))
            self.assertEqual(self.kill(), "")

    def test_a_signal_that_is_ignored_at_the_start_stays_ignored(self):
        client = self.start(preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
        self.process.send_signal(signal.SIGHUP)
        for _ in range(20):
            self.assertEqual(client.get(), 0)
        self.process.terminate()
        self.assertEqual(self.process.wait(20), 0)

    def test_what_was_answered_outlives_a_kill_at_any_moment(self):
        chance = random.Random(1)
        value = 0
        for _ in range(40):
            client = self.start()
            self.assertIn(client.get(), (value, value + 1))
            value = client.get()
            # Of the requests that are sent before the kill, those that were answered count.
            for _ in range(chance.randrange(6)):
                self.assertEqual(client.set(value + 1), 0)
                value += 1
            client.send(SET_FUNCTION, struct.pack("<I", value + 1))
            time.sleep(chance.random() * 0.003)
            self.assertEqual(self.kill(), "")
        self.assertGreater(value, 40)

    def test_a_damaged_file_is_set_aside(self):
        self.assertEqual(self.start().set(5), 0)
        self.kill()
        file = os.path.join(self.state, "settings")
        os.truncate(file, os.path.getsize(file) - 3)
        self.assertEqual(self.start().get(), 0)
        self.assertEqual(sorted(os.listdir(self.state)), ["settings.damaged"])
        log = self.kill()
        self.assertEqual(log.count("\n"), 1)
        self.assertIn(f"NorvellSonivoDriver: {file} is damaged: its last line has no end", log)

    def test_a_log_that_nobody_reads_holds_nobody_up(self):
        self.start()
        for _ in range(1500):
            client = self.connect()
            client.socket.send(b"no request")
            with self.assertRaises(ConnectionError):
                client.receive()
            client.close()
        self.assertEqual(self.connect().get(), 0)
        self.assertLess(self.kill().count("\n"), 300)

    def test_thousands_of_clients_leave_neither_descriptors_nor_memory(self):
        # A sanitizer keeps what is freed for a while.
        client = self.start(env={**os.environ, "ASAN_OPTIONS": "quarantine_size_mb=1:thread_local_quarantine_size_kb=16"})
        client.get()  # it is taken in
        idle = self.descriptors()

        def visit(count):
            for i in range(count):
                client = self.connect_for_a_while()
                client.send(EVENT_NOTIFY, output=1044)
                client.send(OBSERVE_EVENTS, output=1044)
                self.assertEqual(client.ask(GET_FUNCTION, output=4)[0], 0)
                client.send(SET_ENROLMENT, struct.pack("<I", i))
                for _ in range(10):
                    client.send(GET_TEXT_1, output=520)
                client.close()
            end = time.monotonic() + 20
            while self.descriptors() != idle and time.monotonic() < end:
                time.sleep(0.01)
            self.assertEqual(self.descriptors(), idle, self.open_files())

        visit(500)
        before = self.memory()
        visit(4000)
        growth = self.memory() - before
        print(f"4000 clients more: {growth} bytes more")
        self.assertLess(growth, 200_000)

    def test_who_finds_no_descriptors_left_is_refused_and_nobody_else(self):
        first = self.start(preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (16, 16)))
        self.assertEqual(first.get(), 0)
        served = []
        with self.assertRaises(ConnectionError):
            while len(served) < 16:
                client = self.connect()
                client.get()
                served.append(client)
        for client in (first, *served):
            self.assertEqual(client.get(), 0)
        served[0].close()
        self.connect_for_a_while()
        self.assertIn("a client is refused: there are no descriptors left\n", self.kill())

    def test_a_full_disk_fails_the_request_and_nothing_else(self):
        file = os.path.join(self.state, "settings")
        client = self.start()
        self.assertEqual(client.set(5), 0)
        self.kill()
        room = os.path.getsize(file) + 10
        client = self.start(preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (room, room)))
        self.assertEqual(client.ask(SET_TEXT_1, ("x" * 100).encode("utf-16-le").ljust(520, b"\0"))[0], DISK_FULL)
        self.assertEqual(client.ask(GET_TEXT_1, output=520), (0, bytes(520)))
        self.assertEqual(client.get(), 5)
        self.assertEqual(client.set(6), 0)
        self.kill()
        self.assertEqual(self.start().get(), 6)

    def test_a_service_manager_hands_over_the_socket_and_is_told(self):
        os.mkdir(os.path.dirname(self.path), 0o700)
        manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        manager.settimeout(20)
        manager.bind(os.path.join(self.folder.name, "notify"))
        listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        listener.bind(self.path)
        listener.listen()
        client = self.connect()  # waits for the driver

        command = f'export LISTEN_PID=$$; exec "$0" 3<&{listener.fileno()} --state "$1"'
        variables = {**os.environ, "LISTEN_FDS": "1", "NOTIFY_SOCKET": manager.getsockname()}
        refused = subprocess.run(["bash", "-c", command + ' --socket "$1.sock"', PROGRAM, self.state], env=variables,
                                 capture_output=True, text=True, pass_fds=(listener.fileno(),), timeout=20)
        self.assertEqual((refused.returncode, refused.stderr),
                         (2, "error: --socket is given, and the service manager hands over a socket\n"))
        self.process = subprocess.Popen(["bash", "-c", command, PROGRAM, self.state], stderr=subprocess.PIPE, text=True,
                                        env=variables, pass_fds=(listener.fileno(),))
        self.assertEqual(manager.recv(100), b"READY=1")
        self.assertEqual(client.get(), 0)
        self.process.terminate()
        self.assertEqual(self.process.wait(20), 0)
        self.assertEqual(manager.recv(100), b"STOPPING=1")
        self.assertTrue(os.path.exists(self.path))
        manager.close()
        listener.close()

    def test_what_a_service_manager_hands_over_has_to_listen_for_packets(self):
        os.mkdir(os.path.dirname(self.path), 0o700)
        silent = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        stream = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        stream.bind(self.path)
        stream.listen()
        with open(os.devnull, "rb") as file:
            for each in (silent, stream, file):
                command = f'export LISTEN_PID=$$; exec "$0" 3<&{each.fileno()} --state "$1"'
                run = subprocess.run(["bash", "-c", command, PROGRAM, self.state], capture_output=True, text=True,
                                     env={**os.environ, "LISTEN_FDS": "1"}, pass_fds=(each.fileno(),), timeout=20)
                self.assertEqual(run.returncode, 1)
                self.assertEqual(run.stderr,
                                 "error: what the service manager handed over is no listening socket for packets\n")
                self.assertFalse(os.path.exists(self.state))
        silent.close()
        stream.close()

    def test_a_service_manager_that_watches_it_hears_of_it_until_it_hangs(self):
        manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(manager.close)
        manager.settimeout(20)
        manager.bind(os.path.join(self.folder.name, "notify"))
        self.start(env={**os.environ, "NOTIFY_SOCKET": manager.getsockname(), "WATCHDOG_USEC": "100000"})
        self.assertEqual(manager.recv(100), b"READY=1")
        for _ in range(3):
            self.assertEqual(manager.recv(100), b"WATCHDOG=1")
        self.process.send_signal(signal.SIGSTOP)
        manager.settimeout(0.5)
        with self.assertRaises(TimeoutError):
            while True:
                self.assertEqual(manager.recv(100), b"WATCHDOG=1")


if __name__ == "__main__":
    unittest.main()
