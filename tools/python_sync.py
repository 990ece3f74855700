"""Writes the blocking client from the one for asyncio: python3 tools/python_sync.py >python/kvpim/sync.py"""

import ast
import re
from pathlib import Path

SOURCE = Path(__file__).parent.parent / "python/kvpim/client.py"

HEAD = '''"""The client without an event loop, for scripts. Made by tools/python_sync.py from client.py: `./run docs`.

    with kvpim.sync.Client("demo", api_server="http://127.0.0.1:8600") as client:
        client.login(token, "alice")
        for message in client.messages(timeout=5):
            print(message.peer_id, message.message.text)

Each method is the one of the same name of `kvpim.Client`, and waits for its end; what it raises is the same. Events are
received while a call waits; until then they wait in the library, which reads no more from the server when they are many.
One thread at a time.
"""

from __future__ import annotations

'''

# What the signatures speak of comes from where client.py has it.
IMPORTS = """from collections.abc import Iterable, Mapping
from types import TracebackType
from typing import Any, Literal

from . import client
from ._blocking import Events as Events
from ._blocking import Waiter
from .client import Content, Drop
"""

OWN = {
    "Client": '''
    def __del__(self) -> None:
        if getattr(self, "_waiter", None) is not None and not self._async.is_open:
            self._waiter.close()

    def open(self) -> None:
        """See `kvpim.Client.open`; not inside an event loop."""
        self._waiter.call(self._async.open)

    def close(self) -> None:
        """See `kvpim.Client.close`."""
        if self._async.is_open:
            self._waiter.call(self._async.close)
        self._waiter.close()

    def __enter__(self) -> Client:
        self.open()
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, traceback: TracebackType | None
    ) -> None:
        self.close()
''',
    "Channel": '''
    def __init__(self, waiter: Waiter, channel: client.Channel) -> None:
        self._waiter = waiter
        self._async = channel
        self.channel_id = channel.channel_id
''',
    "Invitations": '''
    def __init__(self, waiter: Waiter, invitations: client.Invitations) -> None:
        self._waiter = waiter
        self._async = invitations
''',
}


def passed_on(arguments: ast.arguments) -> str:
    names = [argument.arg for argument in arguments.args[1:]]
    return ", ".join(names + [f"{argument.arg}={argument.arg}" for argument in arguments.kwonlyargs])


def signature(function: ast.FunctionDef, result: str) -> str:
    arguments = re.sub(r"(?<=[\w\]])=", " = ", ast.unparse(function.args)).replace("'", '"')
    short = f"    def {function.name}({arguments}) -> {result}:\n"
    if len(short) <= 121:
        return short
    parts = re.split(r", (?![^\[]*\])", arguments)
    return f"    def {function.name}(\n        " + ",\n        ".join(parts) + f",\n    ) -> {result}:\n"


def method(owner: str, function: ast.FunctionDef) -> str:
    if function.name == "__init__" and owner == "Client":
        made = wrapped(f"self._async = client.Client({passed_on(function.args)})", " " * 8)
        return "\n" + signature(function, "None") + made + "        self._waiter = Waiter()\n" + OWN[owner]
    returned = re.fullmatch(r"(Future|EventStream)\[(.*)\]", ast.unparse(function.returns) if function.returns else "")
    if function.name.startswith("_") or not returned:
        return ""
    kind, result = returned.groups()
    doc = (ast.get_docstring(function) or "").split("\n\n")[0].replace("\n", " ")
    call = f"self._async.{function.name}({passed_on(function.args)})"
    wait = f"self._waiter.wait(lambda: {call})"
    if kind == "EventStream":
        function.args.kwonlyargs.insert(0, ast.arg("timeout", ast.Name("float | None")))
        function.args.kw_defaults.insert(0, ast.Constant(None))
        line = f"return Events(self._waiter, {call}, timeout)"
        result = f"Events[{result}]"
    elif result in OWN:
        line = f"return {result}(self._waiter, {wait})"
    else:
        line = wait if result == "None" else f"return {wait}"
    return "\n" + signature(function, result) + f'        """{doc}"""\n' + wrapped(line, " " * 8)


def wrapped(line: str, indent: str) -> str:
    """A call or an import that is too long for a line, one part in a line."""
    if len(indent + line) <= 120:
        return indent + line + "\n"
    head, parts = re.fullmatch(r"(.*?import |.*?Client\(|.*?\()(.*?)\)?", line).groups()
    head = head if head.endswith("(") else head + "("
    between = ",\n    " + indent if "lambda" not in line else ", "
    end = "," if "lambda" not in line else ""
    return f"{indent}{head}\n    {indent}{parts.replace(', ', between)}{end}\n{indent})\n"


def main() -> None:
    tree = ast.parse(SOURCE.read_text())
    text = ""
    for node in tree.body:
        if isinstance(node, ast.ClassDef):
            text += f'\n\nclass {node.name}:\n    """`kvpim.{node.name}`, waiting."""\n'
            text += "" if node.name == "Client" else OWN[node.name]
            text += "".join(method(node.name, item) for item in node.body if isinstance(item, ast.FunctionDef))
    imports = IMPORTS
    for node in tree.body:
        if isinstance(node, ast.ImportFrom) and node.module in ("events", "options", "records"):
            names = [alias.name for alias in node.names if re.search(rf"\b{alias.name}\b", text)]
            imports += wrapped(f"from .{node.module} import {', '.join(names)}", "")
    print(HEAD + imports + text, end="")


main()
