"""Turns `ctest -N --show-only=json-v1` of the cross build (standard input)
into the guest's test list, one shell-quoted line per test program:
name, time limit in seconds, working directory, then the command.

A test runs in the guest when CTest runs a cross-built program through the
cross emulator; the others are host checks (scripts that read the library
with host tools) and are named on standard error as left out."""
import json
import shlex
import sys

EMULATOR = "qemu-aarch64-run.sh"

for test in json.load(sys.stdin)["tests"]:
    command = test.get("command", [])
    props = {p["name"]: p["value"] for p in test.get("properties", [])}
    if not command or not command[0].endswith("/" + EMULATOR):
        print(f"left out of the guest (host check): {test['name']}", file=sys.stderr)
        continue
    env = props.get("ENVIRONMENT", [])
    line = [test["name"], str(int(float(props.get("TIMEOUT", 1500)))),
            props.get("WORKING_DIRECTORY", "/")]
    line += (["env"] + env if env else []) + command[1:]
    print(" ".join(shlex.quote(word) for word in line))
