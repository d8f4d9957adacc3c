"""Who can be proven to have sent an e-mail, and did it change on the way?

    import quillmark

    report = quillmark.check("message.eml")
    report.verdict, report.domain, report.cautions()

    for report in quillmark.check_many(quillmark.messages("Inbox.mbox")):
        ...

Messages are read and checked in C++, without the interpreter's lock. The command line's JSON, answers and recordings are
those of `quillmark check` (quillmark-formats(5)).
"""

from __future__ import annotations

import datetime
import itertools
import json
import os
import tempfile
from typing import Any, Dict, Iterable, Iterator, List, Mapping, Optional, Protocol, Sequence, Union

from . import _kit
from ._kit import Message, NoMessage, Problem, Report

__all__ = ["Checker", "Message", "NoMessage", "Problem", "Report", "Resolver", "check", "check_many", "messages", "rows"]
__version__: str = _kit.version

_BATCH = 512  # messages that are handed over at once
_BATCH_BYTES = 64_000_000
_EPOCH = datetime.datetime(2001, 1, 1, tzinfo=datetime.timezone.utc)

Path = Union[str, "os.PathLike[str]"]
Answers = Union[Path, Mapping[str, Any], Sequence[Path]]
Source = Union[bytes, bytearray, memoryview, Message, Path]


class Resolver(Protocol):
    """Where DNS answers come from, in place of the network. It may be asked from several threads at once."""

    def lookup(self, name: str, type: str) -> Union[Sequence[str], None, bool]:
        """The records of a type ("TXT", "A", "AAAA", "MX") as texts: TXT joined, MX as "10 mx.example.org."; None when the
        name has none; False when it doesn't exist. What it raises is a failed lookup."""


def _to_dict(self: Report) -> Dict[str, Any]:
    """The report as `quillmark check --json` writes it."""
    return json.loads(self.json)


def _repr(self: Report) -> str:
    return f"<quillmark.Report {self.verdict} {self.domain or '-'}>"


setattr(Report, "to_dict", _to_dict)
setattr(Report, "__repr__", _repr)
Report.__doc__ = "What came of checking a message. It doesn't change."
Message.__doc__ = """A message as it was found: its own bytes (`data`), where it lies (`path`, `name`), and `problem`, a line that says why
there is none, in place of a message that can't be taken."""
Problem.__doc__ = "Why there is no report: `text`, and `path` where one is known."


def _time(at: Union[str, datetime.datetime, None]) -> Optional[str]:
    if not isinstance(at, datetime.datetime):
        return at
    if at.tzinfo is None:
        raise ValueError("at needs a time zone")
    return at.astimezone(datetime.timezone.utc).isoformat(timespec="milliseconds").replace("+00:00", "Z")


class Checker:
    """Checks many messages alike, from any thread.

    `answers`: files with recorded answers (quillmark check --record), or what stands in one; nobody is asked then.
    `resolver`: "system", the https address of a DNS service, or a `Resolver`; the usual services without it.
    `at`: the time of the checks; that of the answers, else now. `domain_age`: asks registries how old the sender's domains
    are. `undo`: looks for what was changed where a signature is broken. `dmarc`: the RFC whose rules count, "7489" or "9989".
    ValueError when the answers can't be used."""

    def __init__(self, *, answers: Optional[Answers] = None, resolver: Union[str, Resolver, None] = None,
                 at: Union[str, datetime.datetime, None] = None, domain_age: bool = True, undo: bool = True, dmarc: str = "7489") -> None:
        if isinstance(answers, Mapping):
            with tempfile.NamedTemporaryFile("w", encoding="utf-8", suffix=".json") as file:
                json.dump(dict(answers), file)
                file.flush()
                self._checker = _kit.checker([file.name], resolver, _time(at), domain_age, undo, dmarc)
            return
        if answers is None:
            files: List[str] = []
        elif isinstance(answers, (str, os.PathLike)):
            files = [os.fspath(answers)]
        else:
            files = [os.fspath(each) for each in answers]
        self._checker = _kit.checker(files, resolver, _time(at), domain_age, undo, dmarc)

    def check(self, source: Source) -> Report:
        """One message: its bytes, one of `messages`, or a file that holds it. `NoMessage` when there is none."""
        if isinstance(source, (str, os.PathLike)):
            source = _single(source)
        return self._checker.check(source)

    def check_many(self, sources: Iterable[Source], *, jobs: Optional[int] = None) -> Iterator[Union[Report, Problem]]:
        """A report for each, in their order, or a `Problem`. `jobs` are checked at once: as many as there are cores, or more
        where answers come over the network."""
        count = self._checker.usual_jobs if jobs is None else max(1, jobs)
        rest = iter(sources)
        while batch := _batch(rest):
            yield from self._checker.check_all(batch, count)


def _single(path: Path) -> Message:
    found = list(itertools.islice(messages(path, attached=False), 2))
    if len(found) == 1:
        return found[0]
    raise NoMessage(f"{os.fspath(path)!r} holds several messages; messages() gives them" if found else
                    f"{os.fspath(path)!r} holds no message")


def _batch(rest: Iterator[Source]) -> List[Union[bytes, Message]]:
    batch: List[Any] = []
    size = 0
    for source in rest:
        if isinstance(source, (str, os.PathLike)):
            source = _single(source)
        batch.append(source)
        size += len(source) if isinstance(source, (bytes, bytearray, memoryview)) else 0
        if len(batch) == _BATCH or size > _BATCH_BYTES:
            break
    return batch


def check(source: Source, *, answers: Optional[Answers] = None, resolver: Union[str, Resolver, None] = None,
          at: Union[str, datetime.datetime, None] = None, domain_age: bool = True, undo: bool = True, dmarc: str = "7489") -> Report:
    """Checks one message; see `Checker`, which is faster for several."""
    return Checker(answers=answers, resolver=resolver, at=at, domain_age=domain_age, undo=undo, dmarc=dmarc).check(source)


def check_many(sources: Iterable[Source], *, jobs: Optional[int] = None, answers: Optional[Answers] = None,
               resolver: Union[str, Resolver, None] = None, at: Union[str, datetime.datetime, None] = None,
               domain_age: bool = True, undo: bool = True, dmarc: str = "7489") -> Iterator[Union[Report, Problem]]:
    """Checks many messages; see `Checker.check_many`."""
    return Checker(answers=answers, resolver=resolver, at=at, domain_age=domain_age, undo=undo, dmarc=dmarc).check_many(sources, jobs=jobs)


def messages(path: Path, *, attached: bool = True) -> Iterator[Message]:
    """The messages of a file of any form, a folder or an archive, one after the other; with `attached` those that are attached
    inside a message follow it. What can't be taken is a message with a `problem`."""
    return iter(_kit.messages(os.fspath(path), attached))


def rows(reports: Iterable[Union[Report, Problem]]) -> List[Dict[str, Any]]:
    """Flat rows for a data frame, with the columns of `quillmark check --csv`, times as `datetime`, and `problem`, None for
    reports. Texts are as the message has them."""
    return [_row(each) for each in reports]


_COLUMNS = ("file", "checked_at", "verdict", "tone", "domain", "from_domain", "from", "subject", "date", "message_id", "spf",
            "dmarc", "arc", "warning_signs", "notes", "path", "problem")


def _case(value: Any) -> str:
    """The name of a case: {"pass": {}} is "pass"."""
    return next(iter(value))


def _moment(seconds: Optional[float]) -> Optional[datetime.datetime]:
    if seconds is None:
        return None
    try:
        return _EPOCH + datetime.timedelta(seconds=seconds)
    except OverflowError:  # whatever a message says
        return None


def _row(report: Union[Report, Problem]) -> Dict[str, Any]:
    row: Dict[str, Any] = dict.fromkeys(_COLUMNS)
    if isinstance(report, Problem):
        row.update(path=report.path, problem=report.text)
        return row
    whole = report.to_dict()
    message, verdict, spf = whole["summary"], whole["verdict"], whole["spf"]["status"]
    row.update({
        "file": whole.get("fileName"), "checked_at": _moment(whole["checkedAt"]), "verdict": verdict["kind"],
        "tone": verdict["tone"], "domain": verdict["domain"], "from_domain": verdict["fromDomain"],
        "from": ", ".join(each["address"] for each in message["from"]), "subject": message["subject"],
        "date": _moment(message.get("date")), "message_id": message.get("messageID"),
        "spf": spf["judged"]["_0"] if "judged" in spf else _case(spf), "dmarc": _case(whole["dmarc"]["status"]),
        "arc": _case(whole["arc"]["status"]), "warning_signs": " ".join(map(_case, whole["flags"])),
        "notes": " ".join(map(_case, whole.get("notes", []))), "path": whole.get("path")})
    return row
