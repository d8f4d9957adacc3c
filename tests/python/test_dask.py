"""quillmark.dask on this computer: whatever is lost, every row once and the bytes of one process. With QUILLMARK_LONG the
scheduler, too."""

import os
import pathlib
import signal
import socket
import subprocess
import sys
import threading
import time

import pytest

import quillmark.dask

PROGRAM = os.environ["QUILLMARK"]
SAMPLES = pathlib.Path(os.environ["QUILLMARK_SAMPLES"])
AT = "2026-11-21T10:00:00Z"


@pytest.fixture
def mails(tmp_path):
    """So many that they are five parts, and one that isn't there."""
    names = []
    for number in range(4100):
        path = tmp_path / f"mails/{number}.eml"
        path.parent.mkdir(exist_ok=True)
        path.write_text(f"From: a@example.org\nSubject: {number}\n\nbody\n")
        names.append(str(path))
    names[2500] = str(tmp_path / "missing")
    return names


def one_process(names, folder):
    """What --out makes of them: names and bytes of the result files."""
    done = subprocess.run([PROGRAM, "check", "--out", folder, "--dns", SAMPLES / "signed.dns.json", "--at", AT, "--files-from", "-"],
                          input="\n".join(names), capture_output=True, text=True)
    assert done.returncode == 1
    return [(os.path.basename(name), pathlib.Path(name).read_bytes()) for name in done.stdout.splitlines()]


def slow(folder, first=""):
    """The program, but it takes its time, and says that it began; `first` is done by the first process alone."""
    script = folder / "program"
    script.write_text(f"#!/bin/bash\necho $PPID >> {folder}/begun\nsleep 0.5\nif mkdir {folder}/first 2>/dev/null; then {first or ':'}; fi\n"
                      f"exec {PROGRAM} \"$@\"\n")
    script.chmod(0o755)
    return str(script)


def when_begun(folder, action):
    """In the middle: a part is done, and others are under way."""
    def wait():
        for _ in range(600):
            time.sleep(0.1)
            if list((folder / "parts").glob("*.jsonl")):
                return action([int(line) for line in (folder / "begun").read_text().split()])
    thread = threading.Thread(target=wait)
    thread.start()
    return thread


def shown(results):
    return [(os.path.basename(name), pathlib.Path(name).read_bytes()) for name in results.files]


def check(mails, folder, **options):
    return quillmark.dask.check_bag(mails, out=folder / "parts", answers=SAMPLES / "signed.dns.json", at=AT, pause=0.5, **options)


def with_full_disk(folder):
    """For `slow`: the results go to a small disk, and what is said to `full`; where the system lets nobody mount one, no file may
    grow."""
    if subprocess.run(["unshare", "-rm", "true"], capture_output=True).returncode != 0:
        return "ulimit -f 0"
    return (f"mkdir -p {folder}/parts; exec unshare -rm bash -c 'mount -t tmpfs -o size=64k none {folder}/parts && exec {PROGRAM} \"$@\"' "
            f"- \"$@\" 2> {folder}/full")


def test_a_worker_is_killed_and_a_disk_is_full(mails, tmp_path):
    whole = one_process(mails, tmp_path / "whole")
    assert len(whole) == 5
    killed, full = [], with_full_disk(tmp_path)

    def kill(workers):
        killed.append(workers[-1])
        os.kill(workers[-1], signal.SIGKILL)
    thread = when_begun(tmp_path, kill)
    results = check(mails, tmp_path, program=slow(tmp_path, first=full), workers=2)
    thread.join()
    assert shown(results) == whole and len(killed) == 1
    assert full.startswith("ulimit") or "No space left" in (tmp_path / "full").read_text()
    assert len(results.problems) == 1 and "missing" in results.problems[0]
    assert len(list(results.reports())) == 4099 and len({report["id"] for report in results.reports()}) == 4099
    # Now nothing is left to do; and what can never be written is told.
    with pytest.raises(quillmark.dask.ShardError) as raised:
        quillmark.dask.check_bag(mails[:1], out="/proc/none", answers=SAMPLES / "signed.dns.json", tries=1, program=PROGRAM, workers=1)
    assert "can’t be written" in raised.value.problems[0]


def test_parts_are_those_of_the_command_line(tmp_path):
    large = tmp_path / "large"
    large.touch()
    os.truncate(large, 70_000_000)
    assert list(quillmark.dask.parts(["a", large, "b", tmp_path, "c"])) == [["a"], [str(large)], ["b"], [str(tmp_path)], ["c"]]
    assert [len(part) for part in quillmark.dask.parts(["x"] * 2500)] == [1000, 1000, 500]


@pytest.mark.skipif("QUILLMARK_LONG" not in os.environ, reason="scripts/check --long")
def test_the_scheduler_is_lost(mails, tmp_path):
    whole = one_process(mails, tmp_path / "whole")
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        port = listener.getsockname()[1]
    address, running = f"tcp://127.0.0.1:{port}", []

    def begin(*names):
        for name in names:
            where = ["--port", str(port), "--host", "127.0.0.1"] if name == "dask_scheduler" else [address, "--nthreads", "1", "--no-nanny"]
            running.append(subprocess.Popen([sys.executable, "-m", f"distributed.cli.{name}", "--no-dashboard", *where], cwd=tmp_path,
                                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL))

    def lose(_):
        running[0].kill()
        running[0].wait()
        begin("dask_scheduler", "dask_worker", "dask_worker")
    try:
        begin("dask_scheduler", "dask_worker", "dask_worker")
        thread = when_begun(tmp_path, lose)
        results = check(mails, tmp_path, program=slow(tmp_path), scheduler=address, tries=10)
        thread.join()
        assert shown(results) == whole and len(running) == 6
    finally:
        for process in running:
            process.kill()
            process.wait()
