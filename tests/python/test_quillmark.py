"""The module from outside; run by ctest with the command line's path in QUILLMARK."""

import datetime
import json
import os
import pathlib
import random
import signal
import subprocess
import sys
import threading

import pytest

import quillmark

samples = pathlib.Path(os.environ["QUILLMARK_SAMPLES"])
answers = samples / "Inbox.dns.json"
plain = b"From: a@example.org\r\nSubject: x\r\n\r\nbody\r\n"


def command_line(*arguments):
    done = subprocess.run([os.environ["QUILLMARK"], "check", *arguments], capture_output=True)
    return done.stdout.decode()


def without_id(report):
    return {name: value for name, value in report.items() if name != "id"}


@pytest.mark.parametrize("container", ["Inbox.mbox", "signed.eml", "list-footer.eml", "."])
def test_reports_are_those_of_the_command_line(container):
    path = samples / container
    expected = [json.loads(line) for line in command_line("--json", "--dns", answers, path).splitlines()]
    found = list(quillmark.check_many(quillmark.messages(path), answers=answers))
    reports = [each for each in found if isinstance(each, quillmark.Report)]
    assert [without_id(each.to_dict()) for each in reports] == [without_id(each) for each in expected]
    assert all("email" in each.text for each in found if isinstance(each, quillmark.Problem))


@pytest.mark.parametrize("language, locale", [("en", "C"), ("de", "de_DE.UTF-8")])
def test_texts_are_those_of_the_command_line(language, locale, monkeypatch):
    monkeypatch.setenv("LC_ALL", locale)
    report = quillmark.check(samples / "changed.eml", answers=samples / "changed.dns.json")
    assert report.text(language) + "\n" == command_line("--dns", samples / "changed.dns.json", samples / "changed.eml")
    assert report.headline(language) in report.text(language) and report.cautions(language)
    assert (report.verdict, report.tone, report.file_name) == ("signatureBroken", "bad", "changed.eml")
    assert "signatureBroken" in repr(report)


def test_ways_to_say_what_is_meant():
    moment = datetime.datetime(2026, 11, 21, 12, tzinfo=datetime.timezone(datetime.timedelta(hours=2)))
    document = json.loads((samples / "signed.dns.json").read_text())
    reports = [quillmark.check(samples / "signed.eml", answers=document, at=moment),
               quillmark.check((samples / "signed.eml").read_bytes(), answers=samples / "signed.dns.json", at="2026-11-21T10:00:00Z"),
               quillmark.check(bytearray((samples / "signed.eml").read_bytes()), answers=[samples / "signed.dns.json"], at=moment)]
    assert {(each.verdict, each.domain, each.to_dict()["checkedAt"]) for each in reports} == {
        ("verified", "harbourbooks.example", reports[0].to_dict()["checkedAt"])}
    for wrong in ({"at": "yesterday"}, {"at": datetime.datetime.now()}, {"resolver": "http://x"}, {"answers": "missing"}, {"resolver": 5}, {"resolver": Table},
                  {"answers": {"answers": 1}}):
        with pytest.raises(ValueError):
            quillmark.check(plain, **wrong)
    for nothing in (b"", b"no mail", samples / "missing", samples / "Inbox.mbox", samples / "signed.dns.json"):
        with pytest.raises(quillmark.NoMessage):
            quillmark.check(nothing, answers=document)
    with pytest.raises(TypeError):
        quillmark.check(3, answers=document)


def test_nothing_is_made_that_holds_nothing():
    for name in ("Report", "Problem", "Message", "Messages", "Checker"):
        made = getattr(quillmark._kit, name)
        for make in (made, lambda: made.__new__(made), lambda: object.__new__(made)):
            with pytest.raises(TypeError):
                make()


class Table:
    def __init__(self, document):
        self.answers, self.asked, self.threads = document["answers"], [], set()

    def lookup(self, name, type):
        self.asked.append((name, type))
        self.threads.add(threading.get_ident())
        if name.startswith("_dmarc"):
            raise RuntimeError("out of order \udce9")
        answer = self.answers.get(f"{name.lower()}|{type}", "nxdomain")
        return {"nxdomain": False, "noData": None}[answer] if isinstance(answer, str) else answer


def test_a_resolver_in_python_is_asked_from_any_thread():
    table = Table(json.loads((samples / "signed.dns.json").read_text()))
    message = (samples / "signed.eml").read_bytes()
    reports = list(quillmark.check_many([message] * 40, resolver=table, jobs=4, at="2026-11-21T10:00:00Z"))
    assert {each.verdict for each in reports} == {"verified"} and "dmarc" in repr(table.asked)
    assert {json.dumps(each.to_dict()["dmarc"]["status"]) for each in reports} == {'{"lookupFailed": {}}'}

    class Wrong:
        def lookup(self, name, type):
            return 3
    assert quillmark.check(message, resolver=Wrong()).verdict == "couldNotCheck"

    class Ending:
        def lookup(self, name, type):
            raise KeyboardInterrupt
    for check in (quillmark.check, lambda each, resolver: list(quillmark.check_many([each] * 40, resolver=resolver))):
        with pytest.raises(KeyboardInterrupt):
            check(message, resolver=Ending())


def test_rows_are_those_of_the_table(tmp_path):
    import csv
    command_line("--summary", "--csv", tmp_path / "table", "--dns", answers, samples / "Inbox.mbox")
    expected = list(csv.DictReader((tmp_path / "table").open(newline="")))
    found = quillmark.rows(quillmark.check_many(quillmark.messages(samples / "Inbox.mbox"), answers=answers))

    def shown(value):
        return value.isoformat().replace("+00:00", "Z") if isinstance(value, datetime.datetime) else value or ""
    assert [{name: shown(row[name]) for name in expected[0]} for row in found] == expected
    assert all(row["problem"] is None for row in found) and len(found) == 7
    (problem,) = quillmark.rows(quillmark.check_many(quillmark.messages(samples / "missing"), answers=answers))
    assert "couldn’t be read" in problem["problem"] and problem["path"] == str(samples / "missing") and problem["verdict"] is None


def test_hostile_input_is_a_report_or_a_problem():
    chance = random.Random(1)
    seeds = [path.read_bytes() for path in samples.glob("*.eml")]
    hostile = [plain + b"\xff\xfe" * 10, b"From: \xed\xa0\x80@\xff\r\n\r\n", b"DKIM-Signature: " + b"a=b;" * 100_000 + b"\r\n\r\n",
               b"From: " + b"(" * 1_000_000 + b"\r\n\r\n", b"From: a\r\nDate: Fri, 31 Dec 99999999 00:00:00 +0000\r\n\r\n"]
    for _ in range(150):
        message = bytearray(chance.choice(seeds))
        for _ in range(chance.randrange(1, 30)):
            message[chance.randrange(len(message))] = chance.randrange(256)
        hostile.append(bytes(message))
    found = list(quillmark.check_many(hostile, answers=answers, jobs=2))
    assert len(found) == len(hostile)
    for each in found:
        if isinstance(each, quillmark.Report):
            assert each.to_dict() and each.text("de") and isinstance(each.subject, str) and each.cautions() is not None
    assert len(quillmark.rows(found)) == len(found)


def test_a_signal_ends_it_soon():
    class Slow:
        told = False

        def lookup(self, name, type):
            if not self.told:
                self.told = True
                os.kill(os.getpid(), signal.SIGINT)
            threading.Event().wait(0.2)
            return None
    with pytest.raises(KeyboardInterrupt):
        list(quillmark.check_many([samples / "signed.eml"] * 500, resolver=Slow(), jobs=2))


def test_names_and_types():
    public = {name for name in quillmark.__all__}
    assert all(getattr(quillmark, name).__doc__ for name in public - {"NoMessage"})
    assert (pathlib.Path(quillmark.__file__).parent / "py.typed").exists()
    stubs = (pathlib.Path(quillmark.__file__).parent / "_kit.pyi").read_text()
    for name in ("Report", "Message", "Problem"):
        for member in vars(getattr(quillmark._kit, name)):
            assert member.startswith("_") or f"def {member}(" in stubs, member


if __name__ == "__main__":
    sys.exit(pytest.main([__file__]))
