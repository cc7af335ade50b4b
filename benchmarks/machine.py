#!/usr/bin/env python3
"""Prints what the results of a run depend on besides the code, as JSON.

    machine.py BUILD    the folder that the benchmarks are built in
"""

import json
import pathlib
import re
import subprocess
import sys
import tempfile

# The packages whose versions a reader may ask for.
PACKAGES = ["libc6", "libstdc++6", "libicu-dev", "libglib2.0-dev", "libboost-dev", "qt6-base-dev",
            "libpoco-dev", "libspdlog-dev", "libxml2-dev", "libexpat1-dev", "libmimalloc-dev",
            "libbenchmark-dev"]


def output_of(*command):
    return subprocess.run(["env", "LC_ALL=C", *command], check=True, stdout=subprocess.PIPE,
                          text=True).stdout.strip()


def find(pattern, text):
    return re.search(pattern, text, re.MULTILINE).group(1)


def describe(build):
    processor = dict(re.findall(r"^([^:\n]+):\s*(.*)$", output_of("lscpu"), re.MULTILINE))
    [compiler] = build.glob("CMakeFiles/*/CMakeCXXCompiler.cmake")
    compiler = compiler.read_text(encoding="utf-8")
    packages = output_of("dpkg-query", "-W", "-f", "${Package} ${source:Upstream-Version}\n",
                         *PACKAGES)
    return {
        "processor": processor.get("Model name", processor["Architecture"]),
        "architecture": processor["Architecture"],
        "cores": int(processor["CPU(s)"]),
        "virtual": "Hypervisor vendor" in processor,
        "memory": int(find(r"^MemTotal:\s*(\d+)", pathlib.Path("/proc/meminfo").read_text())),
        "system": find(r'^PRETTY_NAME="(.*)"$', pathlib.Path("/etc/os-release").read_text()),
        "kernel": find(r"^(\w+ [\d.]+)", output_of("uname", "-sr")),
        "temporary": output_of("findmnt", "-n", "-o", "FSTYPE", "-T", tempfile.gettempdir()),
        "compiler": find(r'CMAKE_CXX_COMPILER_ID "(.*)"', compiler) + " " +
                    find(r'CMAKE_CXX_COMPILER_VERSION "(.*)"', compiler),
        "build": find(r"^CMAKE_BUILD_TYPE:\w+=(.*)$", (build / "CMakeCache.txt").read_text()),
        "packages": dict(line.split() for line in sorted(set(packages.splitlines()))),
    }


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    json.dump(describe(pathlib.Path(sys.argv[1])), sys.stdout, indent=1)
