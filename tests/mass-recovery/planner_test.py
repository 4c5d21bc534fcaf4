"""What examples/mass-recovery/planner.py decides."""

import importlib.util
import json
import pathlib
import sys
import unittest

FILE = pathlib.Path(__file__).resolve().parents[2] / "examples/mass-recovery/planner.py"
sys.dont_write_bytecode = True
found = importlib.util.spec_from_file_location("planner", FILE)
planner = importlib.util.module_from_spec(found)
found.loader.exec_module(planner)


def vms(*names):
    """VMs by names like "a1": server a, image 1."""
    return [{"server": name[0], "backup_id": name[1:]} for name in names]


def result(name, status, host="h1"):
    return {**vms(name)[0], "status": status, "status_text": "text", "still_mounted": False,
            "host": host}


def keys(*names):
    return {planner.key(vm) for vm in vms(*names)}


def spread(names, hosts, before=None, hosts_per_server=1):
    """The names of each host's VMs."""
    before = {planner.key(vms(name)[0]): host for name, host in (before or {}).items()}
    shares = planner.spread(vms(*names), hosts, before, hosts_per_server)
    return {host: [vm["server"] + vm["backup_id"] for vm in share] for host, share in shares.items()}


class Spread(unittest.TestCase):
    def test_a_server_goes_to_one_host_and_the_load_is_even(self):
        names = ["a1", "b1", "a2", "c1", "a3", "b2"]
        self.assertEqual(spread(names, ["h1", "h2"]),
                         {"h1": ["a1", "a2", "a3"], "h2": ["b1", "b2", "c1"]})

    def test_a_server_goes_to_as_many_hosts_as_it_may(self):
        self.assertEqual(spread(["a1", "a2", "a3"], ["h1", "h2", "h3"], hosts_per_server=2),
                         {"h1": ["a1", "a3"], "h2": ["a2"], "h3": []})

    def test_what_was_tried_goes_to_another_host_if_there_is_one(self):
        before = {"a1": "h1"}
        self.assertEqual(spread(["a1"], ["h1", "h2"], before), {"h1": [], "h2": ["a1"]})
        self.assertEqual(spread(["a1"], ["h1"], before), {"h1": ["a1"]})

    def test_without_a_host_nothing_is_planned(self):
        self.assertEqual(spread(["a1"], []), {})


class Doubt(unittest.TestCase):
    def test_a_vm_is_in_doubt_while_its_host_is_not_known_to_be_done(self):
        before = {planner.key(vms(name)[0]): host for name, host in (("a1", "h1"), ("a2", "h2"))}
        doubtful = planner.in_doubt(vms("a1", "a2", "a3"), before, ["h2"])
        self.assertEqual(doubtful, vms("a1"))
        self.assertEqual(planner.problems(doubtful, [], doubtful),
                         ["a 1: in doubt, its host may still be at work"])


class Results(unittest.TestCase):
    def test_half_a_line_and_the_summary_are_no_results(self):
        output = json.dumps(result("a1", 0)) + '\n{"summary":{}}\n"server"\n{"server":"a","ba'
        self.assertEqual(planner.results_of("h2", output), [result("a1", 0, "h2")])

    def test_a_name_may_have_what_unicode_calls_the_end_of_a_line(self):
        odd = {**result("a1", 0), "paths": ["a\u2028b\x85c"]}
        output = json.dumps(odd, ensure_ascii=False) + "\n"
        self.assertEqual(planner.results_of("h1", output), [odd])
        self.assertEqual(planner.read_vms(output), [odd])

    def test_a_failure_does_not_count_once_the_vm_went_to_another_host(self):
        results = [result("a1", 29, "h1"), result("a2", 0, "h1"), result("a3", 29, "h1")]
        before = dict.fromkeys(keys("a1", "a2"), "h2")
        self.assertEqual(planner.newest(results, before), results[1:])

    def test_a_success_stays_and_else_the_newest_counts(self):
        known = [result("a1", 0), result("a2", 29), result("b1", 0)]
        new = [result("a1", 29), result("a2", 11, "h2"), result("c1", 0)]
        merged = planner.merged(vms("a2", "a1"), known, new)
        self.assertEqual(merged, [result("a2", 11, "h2"), result("a1", 0), result("b1", 0)])

    def test_problems_name_what_is_not_prepared_and_what_is_still_mounted(self):
        results = [result("a1", 29), {**result("a2", 0), "still_mounted": True}]
        self.assertEqual(planner.problems(vms("a1", "a2", "a3"), results, []),
                         ["a 1: text (29) on h1", "a 3: no result",
                          "a 2: its image is still mounted on h1"])


class List(unittest.TestCase):
    def test_a_list_that_would_be_mixed_up_is_refused(self):
        good = '{"server":"a","backup_id":"1"}\n'
        self.assertEqual(planner.read_vms(good), vms("a1"))
        self.assertEqual(planner.read_vms(good.replace("\n", "\r\n\r\n")), vms("a1"))
        for text in ("", good + good, good + '{"server":"a"}\n', "no json\n", "[]\n", "\ufeff" + good,
                     '{"server":"a","backup_id":"1","mount_cred":"x"}\n'):
            with self.assertRaises(ValueError):
                planner.read_vms(text)


if __name__ == "__main__":
    unittest.main()
