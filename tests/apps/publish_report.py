"""Plays the service: gives the driver a report and stays until its input ends.

Usage: publish_report.py SOCKET, with the report on the first line of the input; prints a line once the driver has it.
"""

import socket
import struct
import sys

EVENT_CANCEL = 0x8000E0E8  # by which a process becomes the service
PUBLISH_REPORT = 0x8000E0F0
CONTROL = 1

report = sys.stdin.buffer.readline().rstrip(b"\n")
driver = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
driver.connect(sys.argv[1])
driver.send(struct.pack("<5I", 1, CONTROL, EVENT_CANCEL, 0, 0))
driver.recv(100)
driver.send(struct.pack("<5I", 1, CONTROL, PUBLISH_REPORT, len(report), 0) + report)
_, error, _ = struct.unpack("<3I", driver.recv(100))
print(error, flush=True)
sys.stdin.buffer.read()
