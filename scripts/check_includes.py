#!/usr/bin/env python3
"""Checks who includes whom. Status 1, and a line for each, where an include goes the wrong way.

The library knows the switch SDK's interface and its four libraries; the model never knows the
library, and none of its rooms includes one above it; what people install or write against uses
public headers only; the generators of data include nothing of the project; nothing outside tests/
includes from tests/.
"""
import os
import re
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
SOURCES = (".h", ".hpp", ".c", ".cpp")

# The C++17 and C standard libraries, POSIX and the C library's Linux headers.
STANDARD = re.compile(r"[a-z_]+|(assert|complex|ctype|errno|fenv|float|inttypes|iso646|limits|locale|"
                      r"math|setjmp|signal|stdalign|stdarg|stdatomic|stdbool|stddef|stdint|stdio|"
                      r"stdlib|stdnoreturn|string|tgmath|threads|time|uchar|wchar|wctype)\.h|"
                      r"(aio|dirent|dlfcn|fcntl|getopt|grp|netdb|poll|pthread|pwd|sched|semaphore|"
                      r"spawn|strings|syslog|termios|unistd|cxxabi|execinfo)\.h|"
                      r"(sys|net|netinet|arpa|linux)/[a-z_]+\.h")

# Area -> what it may include besides the standard libraries and the headers beside the source.
# Longest prefix counts. None: anything.
AREAS = {
    "JexHybridSlice/": r"jxsdk/.*|nanomsg/.*|boost/.*|concurrentqueue/.*",
    "sdk/include/jxsdk/": r"jxsdk/.*",
    "sdk/include/jxmodel/": r"jxsdk/.*|jxmodel/.*",
    "sdk/model/": r"jxsdk/.*|jxmodel/.*|model/.*|nlohmann/.*|absl/.*|zlib\.h|grpc(pp)?/.*|"
                  r"google/protobuf/.*|(switch(\.grpc)?|jx_p4info)\.pb\.h|pcap(/.*)?\.h|benchmark/.*|"
                  r"urcu/.*|sanitizer/tsan_interface\.h|boost/multiprecision/.*",
    "apps/": r"JexHybridSlice/JexPartnerLib\.h|jxsdk/.*|jxmodel/.*|CLI/.*|nlohmann/.*|zlib\.h|"
             r"readline/.*|grpc(pp)?/.*|google/protobuf/.*|(switch|health)(\.grpc)?\.pb\.h|"
             r"pcap(/.*)?\.h",
    # Is a partner of its own loop, to find out whether that takes requests.
    "apps/slice-agent/": r"JexHybridSlice/JexPartnerLib\.h|jxsdk/.*|jxmodel/.*|CLI/.*|nanomsg/.*",
    # Needs no SDK, and looks into the shared segment itself.
    "apps/slice-counters/": r"JexHybridSlice/JexPartnerLib\.h|boost/interprocess/.*|CLI/.*|"
                            r"model/program/load/load\.h|"
                            r"nlohmann/.*|prometheus/.*",
    "examples/": r"JexHybridSlice/JexPartnerLib\.h|jxsdk/.*|jxmodel/.*",
    "data/": r"(?!)",
    "bench/": None,
    "tests/": None,
}
# Headers that an area shares with those below the same folder.
SHARED = {"apps/": ("apps/common",), "apps/slice-agent/": ("apps/common",)}

# The rooms of the model from the lowest layer to the highest: each includes itself and those before
# it, and nothing else of the model.
ROOMS = ("base", "packet", "program", "program/json", "program/p4info", "program/v1model",
         "program/load", "port", "tables", "notify", "placement", "runtime", "trace", "machine",
         "pipeline", "switch", "device", "rpc", "api")
MODEL = "sdk/model/"


def sources(root):
    for area in AREAS:
        for folder, _, files in os.walk(os.path.join(root, area)):
            for file in sorted(files):
                if file.endswith(SOURCES):
                    yield os.path.relpath(os.path.join(folder, file), root)


def area_of(path):
    fitting = [area for area in AREAS if path.startswith(area)]
    return max(fitting, key=len)


def room_of(path):
    """The room of a path below sdk/model, or None for one that lies in no room."""
    fitting = [room for room in ROOMS if path.startswith(f"{MODEL}{room}/")]
    return max(fitting, key=len) if fitting else None


def goes_up(path, header):
    """Whether a source of the model includes a header of a room above its own."""
    if not path.startswith(MODEL) or not header.startswith("model/"):
        return False
    own, other = room_of(path), room_of("sdk/" + header)
    return own is None or other is None or ROOMS.index(other) > ROOMS.index(own)


def is_own(root, path, area, header):
    folders = (os.path.dirname(path),) + SHARED.get(area, ())
    return "/" not in header and any(os.path.exists(os.path.join(root, folder, header))
                                     for folder in folders)


def wrong_includes(root):
    """Yields (path, line number, header) of each include that goes the wrong way."""
    for path in sorted(set(sources(root))):
        area = area_of(path)
        allowed = AREAS[area]
        with open(os.path.join(root, path), encoding="utf-8") as lines:
            for number, line in enumerate(lines, 1):
                match = INCLUDE.match(line)
                if not match:
                    continue
                quote, header = match.groups()
                if goes_up(path, header):
                    yield path, number, header
                if allowed is None:
                    continue
                if quote == '"' and is_own(root, path, area, header):
                    continue
                if quote == "<" and STANDARD.fullmatch(header):
                    continue
                if re.fullmatch(allowed, header):
                    continue
                yield path, number, header


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else ROOT
    if not any(True for _ in sources(root)):
        print(f"check_includes: no sources below {root}", file=sys.stderr)
        return 2
    wrong = list(wrong_includes(root))
    for path, number, header in wrong:
        print(f"{path}:{number}: {area_of(path)} must not include {header}")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
