"""Many machines, through Dask (python3-distributed): each part of the input is checked by `quillmark check --out` on a worker.

    results = quillmark.dask.check_bag(paths, out="results", scheduler="tcp://10.0.0.1:8786")
    results.files                   # of lines of JSON, in the order of the input
    results.dataframe()             # pandas

    python3 -m quillmark.dask --out results --files-from list

Workers see the same files under the same names, the folder of the results among them, and have the program `quillmark`. A part
is done when its result file is there, and not before: whatever is lost, a worker, the scheduler or this process, the same call
goes on with what has no result. Parts, names and bytes are those that one process makes of the same list of files (quillmark-formats(5)).
"""

from __future__ import annotations

import argparse
import dataclasses
import json
import os
import subprocess
import sys
import time
from typing import Any, Callable, Dict, Iterable, Iterator, List, Optional, Sequence, Tuple, Union

import dask.bag
import distributed

__all__ = ["Results", "ShardError", "check_bag", "parts"]

# As quillmark check --out cuts a list.
_MOST_NAMES = 1000
_MOST_BYTES = 64_000_000

Path = Union[str, "os.PathLike[str]"]


class ShardError(RuntimeError):
    """That some parts have no result after the last try; the others are there. `problems` says why, a text for each."""

    def __init__(self, problems: Sequence[str]) -> None:
        super().__init__("; ".join(problems))
        self.problems = list(problems)


@dataclasses.dataclass(frozen=True)
class Results:
    """What came of all parts, in the order of the input."""

    files: Tuple[str, ...]  # lines of JSON, a report each
    problems: Tuple[str, ...]  # a line for each message that could not be checked

    def reports(self) -> Iterator[Dict[str, Any]]:
        """Each report as `quillmark check --json` writes it."""
        for name in self.files:
            with open(name, encoding="utf-8") as file:
                yield from map(json.loads, file)

    def bag(self) -> "dask.bag.Bag":
        """The same, to be worked on where the workers are."""
        return dask.bag.read_text(list(self.files)).map(json.loads)

    def dataframe(self) -> Any:
        """The same as a data frame of pandas, members of members as columns: "verdict.kind"."""
        import pandas
        return pandas.json_normalize(list(self.reports()))

    def merge_recordings(self, path: Path, *, program: str = "quillmark") -> None:
        """One recording of those of all parts, in a new file; with `answers` there are none."""
        recordings = [name.removesuffix(".jsonl") + ".recording.json" for name in self.files]
        done = subprocess.run([program, "recording", "merge", os.fspath(path), *dict.fromkeys(recordings)], stdin=subprocess.DEVNULL,
                              capture_output=True, text=True)
        if done.returncode != 0:
            raise RuntimeError(done.stderr.strip())


def parts(paths: Iterable[Path]) -> Iterator[List[str]]:
    """The names in their order, in parts of 64 MB and 1,000 names at most; a larger file, or a folder, is one by itself."""
    part: List[str] = []
    size = 0
    for path in paths:
        name = os.fspath(path)
        bytes_ = _bytes(name)
        if part and (len(part) == _MOST_NAMES or size + bytes_ > _MOST_BYTES):
            yield part
            part, size = [], 0
        part.append(name)
        size += bytes_
    if part:
        yield part


def _bytes(name: str) -> int:
    if os.path.isdir(name):  # whose size isn't worth a walk: it is a part by itself
        return _MOST_BYTES + 1
    try:
        return os.stat(name).st_size
    except OSError:
        return 0


def _shard(names: Sequence[str], arguments: Sequence[str]) -> Tuple[List[str], List[str]]:
    """On a worker: the result files of these names, and what could not be checked."""
    done = subprocess.run([*arguments, "--null", "--files-from", "-"], input="\0".join(names).encode(errors="surrogateescape"),
                          capture_output=True)
    files = [os.fsdecode(name) for name in done.stdout.split(b"\n") if name]
    problems = done.stderr.decode(errors="replace").splitlines()
    if done.returncode not in (0, 1) or not files or not all(map(os.path.exists, files)):
        raise RuntimeError("; ".join(problems) or f"quillmark ended with {done.returncode}")
    return files, problems


def _arguments(out: Path, answers: Union[Path, Sequence[Path], None], resolver: Optional[str], at: Optional[str],
               domain_age: Optional[bool], options: Sequence[str], program: str) -> List[str]:
    arguments = [program, "check", "--out", os.path.abspath(out)]
    for file in [answers] if isinstance(answers, (str, os.PathLike)) else answers or []:
        arguments += ["--dns", os.path.abspath(file)]
    if resolver is not None:
        arguments += ["--resolver", resolver]
    if at is not None:
        arguments += ["--at", at]
    if domain_age is not None:
        arguments.append("--domain-age" if domain_age else "--no-domain-age")
    return arguments + list(options)


def _client(scheduler: Optional[str], workers: int) -> "distributed.Client":
    if scheduler is not None:
        return distributed.Client(scheduler, timeout=10)
    return distributed.Client(n_workers=workers, threads_per_worker=1, dashboard_address=None)


def _attempt(client: "distributed.Client", left: Dict[int, List[str]], arguments: Sequence[str],
             done: Callable[[int, Tuple[List[str], List[str]]], None]) -> Dict[int, str]:
    """Checks what is left; why the rest failed, by part."""
    # A key of its own for each try: what failed in one is no answer for the next.
    futures = {client.submit(_shard, names, arguments, pure=False, retries=1): number for number, names in left.items()}
    failures: Dict[int, str] = {}
    waiting = set(futures)
    while waiting:
        if client.status != "running":
            raise OSError("the scheduler is gone")
        try:
            ended, waiting = distributed.wait(waiting, timeout=2, return_when="FIRST_COMPLETED")
        except (TimeoutError, distributed.TimeoutError):
            client.sync(client.scheduler.identity)  # raises when it is gone, though nobody told us
            continue
        for future in ended:
            if future.status == "finished":
                done(futures[future], future.result())
            elif future.status == "error":
                failures[futures[future]] = str(future.exception())
            else:
                raise OSError("the scheduler is gone")
    return failures


def check_bag(paths: Iterable[Path], *, out: Path, scheduler: Optional[str] = None, workers: int = 2,
              answers: Union[Path, Sequence[Path], None] = None, resolver: Optional[str] = None, at: Optional[str] = None,
              domain_age: Optional[bool] = None, options: Sequence[str] = (), tries: int = 5, pause: float = 5.0,
              program: str = "quillmark") -> Results:
    """Checks all messages of these files and folders; result files are in the folder `out`.

    `scheduler`: the address of one that runs; else as many worker processes as `workers` are started here. `answers`,
    `resolver`, `at`, `domain_age` as of the command line, whose further `options` follow. What has no result since a worker's
    disk was full or the scheduler was lost is tried again, `tries` times in all, `pause` seconds apart; then `ShardError`."""
    arguments = _arguments(out, answers, resolver, at, domain_age, options, program)
    numbered = dict(enumerate(parts(paths)))
    results: Dict[int, Tuple[List[str], List[str]]] = {}
    failures: Dict[int, str] = {}
    for attempt in range(tries):
        left = {number: names for number, names in numbered.items() if number not in results}
        if not left:
            break
        if attempt > 0:
            time.sleep(pause)
        try:
            with _client(scheduler, workers) as client:
                failures = _attempt(client, left, arguments, results.__setitem__)
        except (OSError, RuntimeError, TimeoutError, distributed.TimeoutError, distributed.CancelledError) as error:
            failures = {number: f"the scheduler can’t be reached: {error}" for number in left if number not in results}
    if len(results) < len(numbered):
        raise ShardError([f"{numbered[number][0]}: {why}" for number, why in sorted(failures.items()) if number not in results])
    ordered = [results[number] for number in sorted(results)]
    return Results(tuple(name for files, _ in ordered for name in files), tuple(line for _, lines in ordered for line in lines))


def _names(arguments: argparse.Namespace) -> Iterator[str]:
    yield from arguments.paths
    if arguments.files_from:
        with sys.stdin.buffer if arguments.files_from == "-" else open(arguments.files_from, "rb") as file:
            for line in file:
                if name := os.fsdecode(line.rstrip(b"\n")):
                    yield name


def main() -> int:
    parser = argparse.ArgumentParser(prog="python3 -m quillmark.dask", description="Checks messages on the workers of Dask and "
                                     "prints the names of the result files.")
    parser.add_argument("paths", nargs="*", metavar="FILE")
    parser.add_argument("--files-from", metavar="LIST", help="a list of files, a line each; - is standard input")
    parser.add_argument("--out", required=True, metavar="FOLDER", help="where the results are, or will be")
    parser.add_argument("--scheduler", metavar="ADDRESS", help="of one that runs; default: workers of this computer")
    parser.add_argument("--workers", type=int, default=os.cpu_count() or 1, metavar="N", help="how many are started here")
    parser.add_argument("--dns", action="append", metavar="FILE", help="take answers from a file and ask nobody")
    parser.add_argument("--resolver", metavar="URL", help="ask this DNS service")
    parser.add_argument("--at", metavar="TIME", help="the time of the check")
    parser.add_argument("--domain-age", action=argparse.BooleanOptionalAction, help="ask registries how old domains are")
    parser.add_argument("--record", metavar="FILE", help="make one recording of those of all parts")
    arguments = parser.parse_args()
    try:
        results = check_bag(_names(arguments), out=arguments.out, scheduler=arguments.scheduler, workers=arguments.workers,
                            answers=arguments.dns, resolver=arguments.resolver, at=arguments.at, domain_age=arguments.domain_age)
        if arguments.record:
            results.merge_recordings(arguments.record)
    except (ShardError, RuntimeError) as error:
        for line in getattr(error, "problems", [str(error)]):
            print(f"quillmark: {line}", file=sys.stderr)
        return 1
    for name in results.files:
        print(name)
    for line in results.problems:
        print(line, file=sys.stderr)
    return 1 if results.problems else 0


if __name__ == "__main__":
    sys.exit(main())
