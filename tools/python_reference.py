"""Writes the page of the Python package: its guide as it stands, and below the mark the reference, from the docstrings:

    python3 tools/python_reference.py >page && mv page docs/python.md

Ends with status 1 if something public has no docstring.
"""

import ast
import re
import sys
from pathlib import Path

ROOT = Path(__file__).parent.parent
PAGE = ROOT / "docs/python.md"
MARK = "<!-- From here on it is made by tools/python_reference.py: `./run docs` writes it anew. -->"
PARTS = {  # in the order in which one reads them
    "client": "Client, channels and invitations",
    "streams": "Streams of events",
    "events": "Events",
    "records": "Records",
    "errors": "Errors",
    "options": "Options",
    "lines": "Prints and the log",
}
PUBLIC = (ROOT / "python/kvpim/__init__.py").read_text().partition("__all__")[2]
missing: list[str] = []


def doc_of(node: ast.ClassDef | ast.FunctionDef, owner: str = "") -> str:
    doc = ast.get_docstring(node)
    if not doc and node.name != "__init__":
        missing.append(f"{owner}{node.name}")
    return doc or ""


def text_of(doc: str) -> str:
    """Code in a docstring is indented, as in Markdown, where a blank line stands before and behind it."""
    return re.sub(r"((?:^ {4,}\S.*\n?)+)", r"\n\1", doc, flags=re.MULTILINE).replace("\n\n\n", "\n\n")


def signature(function: ast.FunctionDef) -> str:
    arguments = re.sub(r"^self(, )?", "", re.sub(r"(?<=[\w\]])=", " = ", ast.unparse(function.args)))
    returned = ast.unparse(function.returns) if function.returns else "None"
    awaited = re.fullmatch(r"Future\[(.*)\]", returned)
    returned = awaited[1] if awaited else returned
    result = "" if returned == "None" else f" -> {returned}"
    return f"{'await ' if awaited else ''}{function.name}({arguments}){result}".replace("'", '"')


def function_of(node: ast.FunctionDef, owner: str = "", shown: str = "") -> str:
    return f"\n`{shown or signature(node)}`\n\n{text_of(doc_of(node, owner))}\n"


def fields_of(node: ast.ClassDef) -> list[str]:
    annotated = [item for item in node.body if isinstance(item, ast.AnnAssign)]
    fields = [ast.unparse(item).replace(" = None", "") for item in annotated if "ClassVar" not in ast.unparse(item)]
    constants = [item for item in node.body if isinstance(item, ast.Assign) and not isinstance(item.value, ast.Tuple)]
    return fields + [ast.unparse(item) for item in constants]


def class_of(node: ast.ClassDef) -> str:
    bases = [name for name in map(ast.unparse, node.bases) if not re.match(r"Exception|Generic|IntEnum", name)]
    of = f" ({', '.join(bases)})" if bases else ""
    text = f"#### {node.name}{of}\n\n{text_of(doc_of(node))}\n"
    if fields := fields_of(node):
        text += "\n" + ", ".join(f"`{field}`" for field in fields) + "\n"
    for item in node.body:
        if isinstance(item, ast.FunctionDef) and not item.name.startswith("_"):
            if any(ast.unparse(decorator) == "classmethod" for decorator in item.decorator_list):
                continue
            is_property = bool(item.decorator_list)
            text += function_of(item, node.name + ".", item.name if is_property else "")
    return text


def alias_of(node: ast.stmt, behind: ast.stmt) -> str:
    """The name of a type, which has its docstring behind it."""
    if not isinstance(node, (ast.Assign, ast.AnnAssign)) or not isinstance(behind, ast.Expr):
        return ""
    shown = ast.unparse(node).replace(": TypeAlias", "").replace("'", '"')
    return f"\n`{shown}`\n\n{ast.literal_eval(behind.value)}\n"


def reference() -> str:
    text = "## Reference\n"
    for module, title in PARTS.items():
        text += f"\n### {title}\n"
        tree = ast.parse((ROOT / f"python/kvpim/{module}.py").read_text())
        for node, behind in zip(tree.body, tree.body[1:] + tree.body[:1]):
            text += alias_of(node, behind)
            if isinstance(node, ast.ClassDef) and not node.name.startswith("_") and node.name != "Options":
                text += "\n" + class_of(node)
            elif isinstance(node, ast.FunctionDef) and f'"{node.name}"' in PUBLIC:
                text += function_of(node)
    return text


guide = PAGE.read_text().partition(MARK)[0]
page = f"{guide}{MARK}\n\n{reference()}"
if missing:
    sys.exit(f"without a docstring: {', '.join(missing)}")
print(page, end="")
