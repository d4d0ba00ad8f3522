#!/usr/bin/env python3
"""virtcam, the program: how it is asked to serve, and how it ends.

Usage: virtcam_tool_test.py VIRTCAM
"""

import json
import re
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

VIRTCAM = sys.argv.pop(1)
USBIP_VERSION = 0x0111
OP_REQ_DEVLIST = 0x8005
OP_REP_DEVLIST = 0x0005
RUN_TIME_PRODUCT = 0x2066
BOOT_CODE_PRODUCT = 0x2065


def receive(connection, count):
    data = b""
    while len(data) < count:
        piece = connection.recv(count - len(data))
        if not piece:
            raise EOFError(f"{len(data)} of {count} bytes")
        data += piece
    return data


def exported_products(port):
    """Product numbers of the devices that the server offers."""
    with socket.create_connection(("127.0.0.1", port), timeout=20) as connection:
        connection.sendall(struct.pack(">HHI", USBIP_VERSION, OP_REQ_DEVLIST, 0))
        _, code, status, devices = struct.unpack(">HHII", receive(connection, 12))
        assert (code, status) == (OP_REP_DEVLIST, 0)
        products = []
        for _ in range(devices):
            record = receive(connection, 312)  # path, bus id, numbers
            products.append(struct.unpack(">H", record[302:304])[0])
            receive(connection, 4 * record[311])  # class triples of its interfaces
        return products


class Serving(unittest.TestCase):
    def serve(self, *options):
        process = subprocess.Popen([VIRTCAM, "serve", "--listen", "127.0.0.1:0", *options],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        announced = process.stdout.readline()
        match = re.fullmatch(r"serving the camera as 1-1 at port (\d+)\n", announced)
        self.assertIsNotNone(match, announced)
        return process, int(match[1])

    def end(self, process, number):
        process.send_signal(number)
        _, complaints = process.communicate(timeout=20)
        self.assertEqual((process.returncode, complaints), (0, ""))

    def test_runtime_alone_offers_a_camera_over_the_network(self):
        process, port = self.serve("--runtime")
        self.assertEqual(exported_products(port), [RUN_TIME_PRODUCT])
        self.end(process, signal.SIGINT)

    def test_without_options_it_waits_for_its_firmware(self):
        process, port = self.serve()
        self.assertEqual(exported_products(port), [BOOT_CODE_PRODUCT])
        self.end(process, signal.SIGTERM)

    def test_status_is_written_at_the_end(self):
        with tempfile.TemporaryDirectory() as folder:
            status = Path(folder, "status.json")
            process, _ = self.serve("--usbip", "--runtime", "--status", str(status))
            self.end(process, signal.SIGTERM)
            self.assertEqual(json.loads(status.read_text())["identity"], "run-time")


class Refusing(unittest.TestCase):
    def refusal_of(self, *options):
        run = subprocess.run([VIRTCAM, *options], capture_output=True, text=True, timeout=20)
        self.assertNotEqual(run.returncode, 0)
        return run.stderr

    def test_command_line_that_is_wrong(self):
        self.assertIn("frobnicate", self.refusal_of("serve", "--frobnicate"))
        self.assertIn("virtcam: ", self.refusal_of("serve", "--listen", "nowhere"))

    def test_file_that_is_none(self):
        self.assertIn("/no/such", self.refusal_of("serve", "--config", "/no/such/file"))


if __name__ == "__main__":
    unittest.main()
