"""The package beside the library's own table: what one has and the other lacks is a fault."""

import dataclasses
import inspect
import subprocess
import tomllib
from typing import Any

import kvpim
import pytest
from conftest import ROOT
from kvpim import _library, client, options
from kvpim._kinds import camel
from kvpim._operations import OPERATIONS, request_of
from kvpim.events import EVENTS

TABLE = _library.interface()
VALUES: dict[str, Any] = {
    "text": "text",
    "number": 7,
    "flag": True,
    "texts": ("one", "two"),
    "attributes": {"key": "value"},
    "data": b"data",
    "channelCallbacks": [kvpim.MemberJoined],
    "invitationCallbacks": [kvpim.InvitationArrived],
}
BOUND = {"Channel": ["channelId"]}  # what the object that the method belongs to says


def test_every_operation_is_a_method_with_its_arguments() -> None:
    begun: list[tuple[str, dict[str, Any]]] = []

    class Listening(kvpim.Client):
        def _begin(self, operation: str, then: Any = None, /, **values: Any) -> Any:
            begun.append((operation, values))
            request_of(1, operation, values)

    listening = Listening("demo")
    owners = {
        "Client": listening,
        "Channel": client.Channel(listening, "channel"),
        "Invitations": client.Invitations(listening),
    }
    rows = {row["name"]: row for row in TABLE["operations"] if row["name"] not in ("sleep", "quit")}
    assert OPERATIONS.keys() == rows.keys()
    for name, operation in OPERATIONS.items():
        owner, _, method = operation.method.partition(".")
        arguments = {row["name"]: row for row in rows[name]["arguments"] if row["name"] not in BOUND.get(owner, [])}
        call = getattr(owners[owner], method)
        taken = {camel(parameter.name): parameter for parameter in inspect.signature(call).parameters.values()}
        if "rawData" in arguments:
            arguments["message"] = arguments.pop("rawData") | {"optional": False}
        assert taken.keys() == arguments.keys(), name
        for argument, parameter in taken.items():
            is_optional = arguments[argument]["optional"] or argument == "timeStamp"
            assert is_optional == (parameter.default is not parameter.empty), (name, argument)
        begun.clear()
        given = {parameter.name: VALUES[arguments[argument]["type"]] for argument, parameter in taken.items()}
        call(**given)
        assert begun[0][0] == name
        assert begun[0][1].keys() == {row["name"] for row in rows[name]["arguments"]}, name
        assert operation.field is None or operation.field in rows[name]["answer"], name
        for parameter_name in given:
            wrong = given | {parameter_name: object()}
            with pytest.raises(TypeError, match=r"must be"):
                call(**wrong)


def test_every_event_has_a_class_with_its_fields() -> None:
    events = {row["name"]: row["fields"] for row in TABLE["events"] if row["name"] != "ready"}
    assert {name: sorted(field for field, _ in fields) for name, (_, fields) in EVENTS.items()} == {
        name: sorted(fields) for name, fields in events.items()
    }
    for kind, fields in EVENTS.values():
        names = [field.name for field in dataclasses.fields(kind)]
        assert [camel(name) for name in names] == [field for field, _ in fields], kind
    bases = {"client": kvpim.ClientEvent, "channel": kvpim.ChannelEvent, "invitation": kvpim.InvitationEvent}
    for of, base in bases.items():
        assert {kind.callback for kind, _ in EVENTS.values() if issubclass(kind, base)} == set(TABLE["callbacks"][of])


def test_every_option_is_there() -> None:
    def names(record: Any, prefix: str = "") -> set[str]:
        found = set()
        for field in dataclasses.fields(record):
            name = prefix + camel(field.name)
            found |= {name} | (names(options._RECORDS[name], name + ".") if name in options._RECORDS else set())
        return found

    expected = {row["name"] for row in TABLE["options"]} - {"polled", "attachData"}  # the package's own affair
    assert names(options.Options) == expected
    assert {camel(name) for name in inspect.signature(kvpim.Client).parameters} == {
        name for name in expected if "." not in name
    }


def test_the_version_is_the_library_s() -> None:
    project = tomllib.loads((ROOT / "python/pyproject.toml").read_text())["project"]
    assert kvpim.__version__ == project["version"]


def test_types_are_strict() -> None:
    command = ["mypy", "--config-file", "python/pyproject.toml", "--cache-dir=/dev/null"]
    paths = ["python/kvpim", "python/tests", *map(str, (ROOT / "examples/python").glob("*.py"))]
    environment = {"MYPYPATH": "python", "PATH": "/usr/bin:/bin"}
    found = subprocess.run([*command, *paths], capture_output=True, text=True, cwd=ROOT, env=environment)
    assert found.returncode == 0, found.stdout + found.stderr
