#!/usr/bin/env python3
"""The check of include directions finds what it is there to find."""
import os
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts"))
import check_includes  # noqa: E402


class CheckIncludesTest(unittest.TestCase):
    def wrong(self, path, line):
        with tempfile.TemporaryDirectory() as root:
            for file, text in ((path, line + "\n"), ("JexHybridSlice/JexPartnerLibWire.h", "\n"),
                               ("sdk/model/device/device.h", "\n")):
                os.makedirs(os.path.dirname(os.path.join(root, file)), exist_ok=True)
                with open(os.path.join(root, file), "w", encoding="utf-8") as out:
                    out.write(text)
            return [header for _, _, header in check_includes.wrong_includes(root)]

    def test_library_may_include_itself_and_its_libraries(self):
        for header in ('"JexPartnerLibWire.h"', '"jxsdk/drv.h"', "<nanomsg/nn.h>", "<vector>",
                       "<boost/bimap.hpp>", "<concurrentqueue/concurrentqueue.h>", "<unistd.h>"):
            self.assertEqual(self.wrong("JexHybridSlice/a.cpp", f"#include {header}"), [])

    def test_library_must_not_include_the_model(self):
        for header in ("model/device/device.h", "jxmodel/faults.h", "../sdk/model/device/device.h",
                       "device.h"):
            self.assertEqual(self.wrong("JexHybridSlice/a.cpp", f'#include "{header}"'), [header])

    def test_model_must_not_include_the_library(self):
        for header in ("JexHybridSlice/JexPartnerLib.h", "JexPartnerLibWire.h",
                       "../../JexHybridSlice/JexPartnerLibWire.h"):
            self.assertEqual(self.wrong("sdk/model/a.cpp", f'#include "{header}"'), [header])

    def test_a_room_of_the_model_includes_itself_and_those_below(self):
        for header in ("model/notify/events.h", "model/tables/match_table.h", "model/base/clock.h"):
            self.assertEqual(self.wrong("sdk/model/notify/a.cpp", f'#include "{header}"'), [])
        self.assertEqual(
            self.wrong("sdk/model/program/json/a.cpp", '#include "model/program/program.h"'), [])

    def test_no_room_of_the_model_includes_one_above(self):
        for header in ("model/device/device.h", "model/runtime/rt_table.h", "model/unknown.h"):
            self.assertEqual(self.wrong("sdk/model/notify/a.cpp", f'#include "{header}"'), [header])
        self.assertEqual(
            self.wrong("sdk/model/program/a.cpp", '#include "model/program/json/reader.h"'),
            ["model/program/json/reader.h"])
        self.assertEqual(self.wrong("sdk/model/a.cpp", '#include "model/base/clock.h"'),
                         ["model/base/clock.h"])

    def test_interface_includes_only_itself(self):
        self.assertEqual(self.wrong("sdk/include/jxsdk/a.h", "#include <absl/hash.h>"),
                         ["absl/hash.h"])

    def test_programs_include_public_headers_only(self):
        self.assertEqual(
            self.wrong("apps/a/main.cpp", '#include "JexHybridSlice/JexPartnerLib.h"'), [])
        for header in ("JexHybridSlice/JexPartnerLibWire.h", "model/device/device.h"):
            self.assertEqual(self.wrong("apps/a/main.cpp", f'#include "{header}"'), [header])
            self.assertEqual(self.wrong("examples/a.cpp", f'#include "{header}"'), [header])

    def test_only_the_agent_sends_messages_past_the_library(self):
        self.assertEqual(self.wrong("apps/slice-agent/a.cpp", "#include <nanomsg/nn.h>"), [])
        self.assertEqual(self.wrong("apps/a/a.cpp", "#include <nanomsg/nn.h>"), ["nanomsg/nn.h"])

    def test_only_the_reader_of_the_segment_includes_what_it_is_made_of(self):
        segment = "boost/interprocess/managed_shared_memory.hpp"
        self.assertEqual(self.wrong("apps/slice-counters/a.cpp", f"#include <{segment}>"), [])
        self.assertEqual(self.wrong("apps/a/main.cpp", f"#include <{segment}>"), [segment])
        self.assertEqual(self.wrong("apps/slice-counters/a.cpp", "#include <jxsdk/drv.h>"),
                         ["jxsdk/drv.h"])

    def test_indented_and_spaced_includes_count(self):
        self.assertEqual(self.wrong("JexHybridSlice/a.cpp", '  #  include "model/device/device.h"'),
                         ["model/device/device.h"])


if __name__ == "__main__":
    unittest.main()
