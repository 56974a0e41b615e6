"""A notebook of one's own for as long as a program measures it: a session bus, PipeWire with null devices that bear a
notebook's names, WirePlumber, and the programs beside them. None of it is the user's."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import time

MICROPHONE, SPEAKERS = "notebook.microphone", "notebook.speakers"
LIMIT = 10  # seconds, for what is waited for

MODULES = ["rt", "protocol-native", "profiler", "metadata", "spa-device-factory", "spa-node-factory", "client-node",
           "client-device", "access", "adapter", "link-factory", "session-manager"]
CLIENT_MODULES = ["rt", "protocol-native", "client-node", "adapter"]
LIBRARIES = """context.spa-libs = {
    audio.convert.* = audioconvert/libspa-audioconvert
    support.* = support/libspa-support }"""


def null_device(name, description, media_class, priority):
    return (f'{{ factory = adapter args = {{ factory.name = support.null-audio-sink node.name = {name} '
            f'node.description = "{description}" media.class = {media_class} audio.position = [ FL FR ] '
            f'priority.session = {priority} priority.driver = {priority} object.linger = true }} }}')


def modules(names):
    lines = [f"{{ name = libpipewire-module-{each} flags = [ ifexists nofail ] }}" if each == "rt" else
             f"{{ name = libpipewire-module-{each} }}" for each in names]
    return "\n".join(lines)


SERVER = f"""
context.properties = {{ core.daemon = true core.name = pipewire-0 mem.allow-mlock = false
    default.clock.rate = 48000 default.clock.quantum = 1024 default.clock.min-quantum = 32
    default.clock.max-quantum = 2048 }}
{LIBRARIES}
context.modules = [ {modules(MODULES)} ]
context.objects = [
    {{ factory = spa-node-factory args = {{ factory.name = support.node.driver node.name = Dummy-Driver
        node.group = pipewire.dummy priority.driver = 20000 }} }}
    {null_device(MICROPHONE, "Microphone Array (Realtek High Definition Audio)", "Audio/Source/Virtual", 2000)}
    {null_device(SPEAKERS, "Speakers (Realtek High Definition Audio)", "Audio/Sink", 1000)} ]
"""

# What PipeWire has for a chain between a microphone and applications, with nothing in it.
FILTER_CHAIN = f"""
context.properties = {{ log.level = 0 }}
{LIBRARIES}
context.modules = [
    {modules(CLIENT_MODULES)}
    {{ name = libpipewire-module-filter-chain args = {{
        node.description = "Plain" media.name = "Plain"
        filter.graph = {{ nodes = [ {{ type = builtin name = plain label = copy }} ] }}
        audio.position = [ FL FR ]
        capture.props = {{ node.name = filter.in target.object = {MICROPHONE} node.passive = true }}
        playback.props = {{ node.name = filter.source media.class = Audio/Source }} }} }} ]
"""


def missing(programs):
    return [each for each in programs if shutil.which(each) is None]


def wait_until(condition, what):
    end = time.monotonic() + LIMIT
    while not condition():
        if time.monotonic() > end:
            raise RuntimeError(f"waited {LIMIT} s in vain: {what}")
        time.sleep(0.02)


class Machine:
    def __init__(self, programs):
        """`programs`: the folder of sonivo and the daemons."""
        self.bin = pathlib.Path(programs)
        self.made = tempfile.TemporaryDirectory(prefix="pipewire_compare.")
        self.folder = pathlib.Path(self.made.name)
        self.running = []
        self.bus = f"unix:path={self.folder / 'bus'}"
        self.environment = {**os.environ, "XDG_RUNTIME_DIR": str(self.folder), "HOME": str(self.folder),
                            "XDG_CONFIG_HOME": str(self.folder / "config"),
                            "XDG_STATE_HOME": str(self.folder / "state"), "DBUS_SESSION_BUS_ADDRESS": self.bus}

    def __enter__(self):
        try:
            self.start("dbus-daemon", "--session", f"--address={self.bus}", "--nofork", "--nopidfile")
            wait_until((self.folder / "bus").exists, "the bus")
            self.start("pipewire", "-c", self.write("server.conf", SERVER))
            wait_until((self.folder / "pipewire-0").exists, "PipeWire")
            self.start("wireplumber")
            wait_until(lambda: MICROPHONE in self.run("pw-metadata", "0"), "WirePlumber")
            self.start(self.bin / "NorvellSonivoDriver")
            wait_until(lambda: self.succeeds(self.bin / "sonivo", "settings", "get", "model"), "the driver")
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for process in reversed(self.running):
            process.kill()
            process.wait()
        self.made.cleanup()

    def write(self, name, text):
        path = self.folder / name
        path.write_text(text, encoding="utf-8")
        return str(path)

    def start(self, *command):
        process = subprocess.Popen([str(each) for each in command], env=self.environment, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.running.append(process)
        return process

    def end(self, process):
        self.running.remove(process)
        process.terminate()
        process.wait()

    def run(self, *command):
        return subprocess.run([str(each) for each in command], env=self.environment, stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, check=False).stdout

    def succeeds(self, *command):
        return subprocess.run([str(each) for each in command], env=self.environment, stdin=subprocess.DEVNULL,
                              capture_output=True, check=False).returncode == 0

    def link(self, output, port):
        wait_until(lambda: self.succeeds("pw-link", output, port), f"a link from {output} to {port}")

    def start_service(self, chain):
        """Streams through this chain from the first recording on."""
        if chain == "none":
            self.run(self.bin / "sonivo", "setup", "--remove")
            self.run(self.bin / "sonivo", "settings", "set", "--machine", "generation-mic", "0", "function-mic", "0")
        elif not self.succeeds(self.bin / "sonivo", "setup", "--microphone", MICROPHONE, "--chain", chain):
            raise RuntimeError(f"the chain {chain} can't be set up")
        service = self.start(self.bin / "NorvellSonivoService")
        wait_until(lambda: '"driver_ready": true' in self.run(self.bin / "sonivo", "status", "--json"), "the service")
        wait_until(lambda: "norvell.relay.microphone" in self.run("pw-cli", "ls", "Node"), "the virtual microphone")
        return service

    def force_quantum(self, frames):
        self.run("pw-metadata", "-n", "settings", "0", "clock.force-quantum", frames)

    def start_filter_chain(self):
        return self.start("pipewire", "-c", self.write("filter-chain.conf", FILTER_CHAIN))

    def start_loopback(self):
        return self.start("pw-loopback",
                          "--capture-props", f"{{ node.name = loop.in target.object = {MICROPHONE} node.passive = true }}",
                          "--playback-props", "{ node.name = loop.source media.class = Audio/Source }")
