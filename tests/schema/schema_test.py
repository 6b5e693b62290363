#!/usr/bin/env python3
"""The JSON Schemas in schema/ against real documents: the README's examples, results the
built discover writes against the simulator on 127.0.0.1, and broken documents they refuse.

Environment: DISCOVER_EXECUTABLE, OPCUA_SIM (set by ctest), DISCOVER_SOURCE_DIR."""
import copy
import json
import os
import pathlib
import re
import select
import socket
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import check_documents  # noqa: E402

SOURCE_DIR = pathlib.Path(os.environ.get("DISCOVER_SOURCE_DIR", pathlib.Path(__file__).resolve().parents[2]))
NONE_POLICY = "http://opcfoundation.org/UA/SecurityPolicy#None"
RUN_TIMEOUT_S = 60
READY_TIMEOUT_S = 15


def readme_examples():
    """The README's json blocks, each with the last non-empty line before it."""
    text = (SOURCE_DIR / "README.md").read_text(encoding="utf-8")
    examples = []
    for match in re.finditer(r"```json\n(.*?)```", text, re.S):
        before = [line for line in text[:match.start()].splitlines() if line.strip()]
        examples.append((before[-1] if before else "", json.loads(match.group(1))))
    return examples


def free_loopback_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


class Simulator:
    """opcua_sim on a free loopback port; it prints 'ready <port>' once it listens."""

    def __init__(self, scenario):
        self.process = None
        for _ in range(3):  # another process may take the port before the simulator binds it
            port = free_loopback_port()
            process = subprocess.Popen(
                [os.environ["OPCUA_SIM"], "--scenario", str(scenario), "--port", str(port), "--listen", "127.0.0.1"],
                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
            ready, _, _ = select.select([process.stdout], [], [], READY_TIMEOUT_S)
            line = process.stdout.readline() if ready else ""
            if line.strip() == f"ready {port}":
                self.process, self.port = process, port
                return
            process.kill()
            process.wait(5)
        raise RuntimeError(f"opcua_sim did not start with {scenario}")

    @property
    def url(self):
        return f"opc.tcp://127.0.0.1:{self.port}"

    def stop(self):
        self.process.terminate()
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait(5)


class SchemaTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.requests = check_documents.validator("request")
        cls.results = check_documents.validator("result")
        cls.device_records = check_documents.validator("result", "device_record")
        cls.item_records = check_documents.validator("result", "item_record")
        cls.sim = Simulator(SOURCE_DIR / "sim" / "scenarios" / "types.json")
        cls.work = tempfile.TemporaryDirectory()

    @classmethod
    def tearDownClass(cls):
        cls.sim.stop()
        cls.work.cleanup()

    def assertValid(self, check, document):
        self.assertEqual(check_documents.problems(check, document), [])

    def assertRefused(self, check, document):
        self.assertNotEqual(check_documents.problems(check, document), [], json.dumps(document)[:300])

    def discover(self, request, output=True, env=None):
        """Runs discover on a request (validated first) and returns its result document."""
        self.assertValid(self.requests, request)
        work = pathlib.Path(self.work.name)
        request_path = work / f"request-{time.monotonic_ns()}.json"
        request_path.write_text(json.dumps(request))
        output_path = work / f"result-{time.monotonic_ns()}.json"
        args = [os.environ["DISCOVER_EXECUTABLE"], "--request", str(request_path)]
        if output:
            args += ["--output", str(output_path)]
        environment = dict(os.environ, **(env or {}))
        environment.pop("OVRIN_DISCOVERY_DEBUG", None)
        run = subprocess.run(args, capture_output=True, env=environment, timeout=RUN_TIMEOUT_S)
        self.assertEqual(run.returncode, 0, run.stderr.decode(errors="replace"))
        return json.loads(output_path.read_text(encoding="utf-8") if output else run.stdout)

    def items_request(self, **extra):
        request = {"mode": "discover_items", "job_id": "schema-items", "timeout_ms": 10000,
                   "device": {"id": 7, "address": self.sim.url,
                              "user_defined_fields": {"security_mode": "1", "security_policies": NONE_POLICY,
                                                      "username": "", "password": "",
                                                      "certificate": "0", "key": "0"}}}
        request.update(extra)
        return request

    def test_readme_example_requests_are_valid(self):
        requests = [doc for heading, doc in readme_examples() if re.match(r"Example .* request", heading)]
        self.assertEqual(len(requests), 2)
        for request in requests:
            self.assertValid(self.requests, request)

    def test_readme_example_records_are_valid(self):
        examples = readme_examples()
        devices = [doc for heading, doc in examples if heading.startswith("A device record")]
        items = [doc for heading, doc in examples if heading.startswith("An item record")]
        self.assertEqual((len(devices), len(items)), (1, 1))
        self.assertValid(self.device_records, devices[0])
        self.assertValid(self.item_records, items[0])

    def test_items_result_and_its_snapshot_are_valid(self):
        snapshot = pathlib.Path(self.work.name) / "snapshot.json"
        result = self.discover(self.items_request(), env={"OVRIN_DISCOVERY_OUTPUT_FILE": str(snapshot)})
        self.assertGreater(len(result["items"]), 20)
        self.assertValid(self.results, result)
        self.assertValid(self.results, json.loads(snapshot.read_text(encoding="utf-8")))

    def test_items_result_on_standard_output_for_a_target_device_is_valid(self):
        request = {"job_id": 12, "target_device": {"uid": "press-1", "address": self.sim.url, "security_mode": 1}}
        result = self.discover(request, output=False)
        self.assertEqual(result["mode"], "discover_items")
        self.assertTrue(result["items"])
        self.assertValid(self.results, result)

    def test_devices_result_without_scan_is_valid(self):
        for request in ({"mode": "discover_devices", "job_id": 41, "tcp_subnet_scan": False},
                        {"mode": "discover_devices", "options": {"tcp_subnet_scan": "false", "timeout_ms": "2000"},
                         "existing_devices": [{"uid_hint": "opcua_127_0_0_1_4840"}]}):
            result = self.discover(request)
            self.assertEqual(result["devices"], [])
            self.assertValid(self.results, result)

    def test_broken_results_are_refused(self):
        good = self.discover(self.items_request())
        self.assertValid(self.results, good)
        item = good["items"][0]
        device = next(doc for heading, doc in readme_examples() if heading.startswith("A device record"))

        def changed(change):
            document = copy.deepcopy(good)
            change(document)
            return document

        broken = [
            changed(lambda d: d.pop("warnings")),
            changed(lambda d: d.update(success=False)),
            changed(lambda d: d.update(items={})),
            changed(lambda d: d.update(mode="discover_everything")),
            changed(lambda d: d.update(extra=1)),
            changed(lambda d: d["items"][0].pop("uid_hint")),
            changed(lambda d: d["items"][0].update(read_write="rw")),
            changed(lambda d: d["items"][0]["user_defined_fields"].update(floating_point_precision=4)),
            changed(lambda d: d.update(devices=[device])),
            changed(lambda d: d.update(mode="discover_devices", items=[item])),
        ]
        for document in broken:
            self.assertRefused(self.results, document)

        for change in (lambda d: d.pop("address"), lambda d: d.update(name=7),
                       lambda d: d["user_defined_fields"].update(security_mode=1),
                       lambda d: d["user_defined_fields"].update(security_mode="4")):
            record = copy.deepcopy(device)
            change(record)
            self.assertRefused(self.device_records, record)

    def test_broken_requests_are_refused(self):
        for request in ({"mode": "discover_items", "device": {"id": 7}},
                        {"mode": "discover_items", "device": {"address": "  "}},
                        {"mode": "scan"},
                        {"timeout_ms": {"ms": 5}},
                        {"mode": "discover_devices", "existing_devices": {"uid": "x"}},
                        {"mode": "discover_devices", "options": {"tcp_subnet_scan": None}},
                        []):
            self.assertRefused(self.requests, request)


if __name__ == "__main__":
    unittest.main(verbosity=2)
