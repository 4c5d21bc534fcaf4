#!/usr/bin/env python3
"""Decides for recover.yml which VMs are still to be prepared, and on which host.

Standard input is what each host said when it was asked: a JSON object with a member for each host, as
Ansible registered it. From it and from RESULTS the new RESULTS are made, one line for each VM that
has any result. The answer is a JSON object: "shares" has the VMs for each host, "problems" a line for
each VM that is not prepared and for each image that is still mounted.
"""
from __future__ import annotations

import argparse
import json
import os
import pathlib
import sys
from typing import Any

Vm = dict[str, Any]  # a line of the list
Result = dict[str, Any]  # a line of ixfs-prepare, with the host that printed it


def key(vm: Vm | Result) -> str:
    """The image, as it is told apart in results."""
    return f"{vm['server']} {vm['backup_id']}"


def read_vms(text: str) -> list[Vm]:
    """The VMs of a list. ixfs-prepare checks the rest of each line."""
    vms: dict[str, Vm] = {}
    for number, line in enumerate(text.split("\n"), 1):  # not at U+2028, which a string may have
        if not line.strip():
            continue
        try:
            vm = json.loads(line)
        except ValueError as error:
            raise ValueError(f"line {number} is no JSON: {error}") from error
        if not isinstance(vm, dict) or not all(
                isinstance(vm.get(name), str) for name in ("server", "backup_id")):
            raise ValueError(f"line {number} needs a server and a backup_id")
        if any("cred" in name for name in vm):
            raise ValueError(f"line {number} has credentials: they belong in the vault")
        if key(vm) in vms:
            raise ValueError(f"line {number} has the image of an earlier line")
        vms[key(vm)] = vm
    if not vms:
        raise ValueError("the list has no VM")
    return list(vms.values())


def results_of(host: str, output: str) -> list[Result]:
    """What a host printed. One that died may have left half a line, and prints no summary."""
    results = []
    for line in output.split("\n"):
        try:
            result = json.loads(line)
        except ValueError:
            continue
        if isinstance(result, dict) and "server" in result:
            results.append({**result, "host": host})
    return results


def newest(results: list[Result], hosts_before: dict[str, str]) -> list[Result]:
    """Without the failures on a host that another one followed: it says them until it works again."""
    return [result for result in results if result["status"] == 0
            or hosts_before.get(key(result), result["host"]) == result["host"]]


def merged(vms: list[Vm], known: list[Result], new: list[Result]) -> list[Result]:
    """One result for each VM that has any, in the list's order. A success stays; else the newest.

    What is known of VMs that are no longer in the list follows.
    """
    listed = [key(vm) for vm in vms]
    wanted = set(listed)
    best: dict[str, Result] = {}
    for result in known + [result for result in new if key(result) in wanted]:
        if key(result) not in best or best[key(result)]["status"] != 0:
            best[key(result)] = result
    return [best[name] for name in dict.fromkeys(listed + list(best)) if name in best]


def not_prepared(vms: list[Vm], results: list[Result]) -> list[Vm]:
    prepared = {key(result) for result in results if result["status"] == 0}
    return [vm for vm in vms if key(vm) not in prepared]


def in_doubt(vms: list[Vm], hosts_before: dict[str, str], done: list[str]) -> list[Vm]:
    """Those at which a host may still be at work: it had them, and is not known to be done."""
    return [vm for vm in vms if hosts_before.get(key(vm)) not in (None, *done)]


def parts(vms: list[Vm], hosts_before: dict[str, str], hosts_per_server: int) -> list[list[Vm]]:
    """What goes to one host together: VMs of one server that had one host before."""
    groups: dict[str, dict[str | None, list[Vm]]] = {}
    for vm in vms:
        of_server = groups.setdefault(vm["server"], {})
        of_server.setdefault(hosts_before.get(key(vm)), []).append(vm)
    found = []
    for of_server in groups.values():
        step = hosts_per_server if len(of_server) == 1 else 1
        found += [group[first::step] for group in of_server.values() for first in range(step)]
    return sorted(filter(None, found), key=len, reverse=True)


def spread(vms: list[Vm], hosts: list[str], hosts_before: dict[str, str],
           hosts_per_server: int) -> dict[str, list[Vm]]:
    """The VMs of each host. What was tried before goes to another host, if there is one."""
    shares: dict[str, list[Vm]] = {host: [] for host in hosts}
    for part in parts(vms, hosts_before, hosts_per_server) if hosts else []:
        server, before = part[0]["server"], hosts_before.get(key(part[0]))
        best = min(hosts, key=lambda host: (
            host == before, any(vm["server"] == server for vm in shares[host]), len(shares[host])))
        shares[best] += part
    return shares


def problems(vms: list[Vm], results: list[Result], doubtful: list[Vm]) -> list[str]:
    lines = []
    last = {key(result): result for result in results}
    for vm in not_prepared(vms, results):
        result = last.get(key(vm))
        if vm in doubtful:
            lines.append(f"{key(vm)}: in doubt, its host may still be at work")
        elif result is None:
            lines.append(f"{key(vm)}: no result")
        else:
            lines.append(f"{key(vm)}: {result['status_text']} ({result['status']}) "
                         f"on {result['host']}")
    for result in results:
        if result["still_mounted"]:
            lines.append(f"{key(result)}: its image is still mounted on {result['host']}")
    return lines


def write(path: pathlib.Path, text: str) -> None:
    """Replaces a file as a whole, so that a controller that dies leaves the old or the new one."""
    new = path.with_name(path.name + ".new")
    with open(os.open(new, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600), "w",
              encoding="utf-8") as file:
        file.write(text)
        file.flush()
        os.fsync(file.fileno())
    new.replace(path)


def json_lines(path: pathlib.Path) -> list[Result]:
    return [json.loads(line) for line in path.read_text("utf-8").splitlines()] if path.exists() else []


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--list", type=pathlib.Path, required=True)
    parser.add_argument("--results", type=pathlib.Path, required=True)
    parser.add_argument("--dead", action="append", default=[], metavar="HOST",
                        help="this host is off, so its VMs may go to others")
    parser.add_argument("--hosts-per-server", type=int, default=1, metavar="NUMBER")
    options = parser.parse_args()
    said = json.load(sys.stdin)

    vms = read_vms(options.list.read_text("utf-8"))
    new: list[Result] = []
    done = [host for host, answer in said.items()
            if answer.get("rc") == 0 and host not in options.dead]
    # Which host had which VM is kept: a host that is silent later may still be at work on them.
    hosts_file = options.results.with_name(options.results.name + ".hosts")
    hosts_before = json.loads(hosts_file.read_text()) if hosts_file.exists() else {}
    for host in done:
        new += newest(results_of(host, said[host]["stdout"]), hosts_before)
    results = merged(vms, json_lines(options.results), new)
    write(options.results, "".join(json.dumps(result) + "\n" for result in results))

    left = not_prepared(vms, results)
    doubtful = in_doubt(left, hosts_before, done + options.dead)
    free = [vm for vm in left if vm not in doubtful]
    shares = spread(free, done, hosts_before, options.hosts_per_server)
    hosts_now = {key(vm): host for host, share in shares.items() for vm in share}
    answer = {"shares": shares, "problems": problems(vms, results, doubtful)}
    write(hosts_file, json.dumps(hosts_before | hosts_now, indent=1) + "\n")
    json.dump(answer, sys.stdout)


if __name__ == "__main__":
    try:
        main()
    except (OSError, ValueError) as error:
        sys.exit(f"planner.py: {error}")
