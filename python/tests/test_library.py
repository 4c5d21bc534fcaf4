"""The package and the library agree; a library that is not there is told of."""
import ctypes
import os
import pathlib
import re
import subprocess

import pytest
from conftest import ROOT, Program

import ixfs
from ixfs import _library

HEADER = (ROOT / "include/ixfs.h").read_text()


def test_the_statuses_are_those_of_the_header() -> None:
    declared = {name: int(number) for name, number in
                re.findall(r"^    EC_(\w+) = (\d+),", HEADER, re.MULTILINE)}
    assert len(declared) == len(re.findall(r"^    EC_\w+ = \w+,", HEADER, re.MULTILINE)) - 1
    assert {status.name: status.value for status in ixfs.Status} == declared


def test_the_texts_are_those_of_the_library() -> None:
    assert ixfs.Status.FILE_NOT_FOUND.text == "file not found"
    texts = [status.text for status in ixfs.Status]
    assert len(set(texts)) == len(texts)
    assert not any(text.startswith("unknown") for text in texts)


def test_the_flag_is_that_of_the_header() -> None:
    assert f"IXFS_FLAG_UNMOUNT_CRED = {_library.FLAG_UNMOUNT_CRED:#x}," in HEADER


@pytest.mark.parametrize("record, name", [
    (_library.PrepareRequest, "struct ixfs_prepare_request"),
    (_library.PrepareResult, "struct ixfs_prepare_result"),
])
def test_records_are_laid_out_as_in_c(
        record: type[ctypes.Structure], name: str, tmp_path: pathlib.Path) -> None:
    fields = [field[0] for field in record._fields_]
    prints = "".join(f'    printf("%zu %zu\\n", offsetof({name}, {field}), '
                     f"sizeof((({name}*)0)->{field}));\n" for field in fields)
    (tmp_path / "layout.c").write_text(
        "#include <ixfs_prepare.h>\n#include <stdio.h>\n"
        f'int main(void)\n{{\n    printf("%zu\\n", sizeof({name}));\n{prints}    return 0;\n}}\n')
    subprocess.run(["cc", "-I", ROOT / "include", "-o", tmp_path / "layout", tmp_path / "layout.c"],
                   check=True)
    printed = subprocess.run([tmp_path / "layout"], check=True, capture_output=True, text=True)
    ours = [f"{getattr(record, field).offset} {getattr(record, field).size}" for field in fields]
    assert printed.stdout.splitlines() == [str(ctypes.sizeof(record)), *ours]


def test_no_field_of_a_record_is_missing() -> None:
    header = (ROOT / "include/ixfs_prepare.h").read_text()
    for name, record in (("request", _library.PrepareRequest), ("result", _library.PrepareResult)):
        found = re.search(rf"^struct ixfs_prepare_{name} {{\n(.*?)^}};", header,
                          re.DOTALL | re.MULTILINE)
        assert found is not None
        members = re.findall(r"^    \w[\w\s*]*?\b(\w+);", found[1], re.MULTILINE)
        assert members == [field[0] for field in record._fields_]


def test_the_version_is_that_of_the_library() -> None:
    assert re.fullmatch(r"\d+\.\d+\.\d+", ixfs.library_version())


@pytest.mark.parametrize("library, told", [
    ("/nowhere/libixfs.so.1", "IXFS_LIBRARY"),
    ("libc.so.6", "has no ixfs_init"),
])
def test_a_library_that_cannot_be_used_is_told_of(
        library: str, told: str, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("IXFS_LIBRARY", library)
    program = Program("""
import ixfs
try:
    ixfs.prepare(server="a", port=1, mount_cred="b", unmount_cred="c", schedule=0, backup_id="a_1",
                 disks=["a"])
except ixfs.LibraryNotFound as error:
    print(error)
""")
    assert library in program.output
    assert told in program.output


def test_the_package_needs_no_library_to_be_imported(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("IXFS_LIBRARY", "/nowhere")
    program = Program("import ixfs; print(ixfs.Status(142).name, ixfs.Schedule.FULL)")
    assert (program.status, program.errors) == (0, "")


def test_the_library_is_looked_for_by_its_name(monkeypatch: pytest.MonkeyPatch) -> None:
    path = os.environ["IXFS_LIBRARY"]
    monkeypatch.delenv("IXFS_LIBRARY")
    monkeypatch.setenv("LD_LIBRARY_PATH", os.path.dirname(path))
    program = Program("import ixfs; print(ixfs.Status.OK.text)")
    assert (program.output, program.errors) == ("success\n", "")
