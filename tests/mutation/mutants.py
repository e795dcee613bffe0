"""Finds possible changes in the library's sources, and writes copies that contain all changes, each switched off.

A change (a mutant) is one operator, condition, constant, statement or result. All are compiled at once: a place `a < b`
becomes `(mutant(7) ? a <= b : a < b)`, and an environment variable selects the number that is switched on.
"""

import json
import re
from dataclasses import dataclass, field
from pathlib import Path

from clang.cindex import CursorKind as Kind
from clang.cindex import Diagnostic, Index, TypeKind

SWAPS = {
    "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"], "==": ["!="], "!=": ["=="],
    "&&": ["||"], "||": ["&&"], "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"],
    "<<": [">>"], ">>": ["<<"], "&": ["|"], "|": ["&"], "^": ["&"],
}  # fmt: skip
COMPARISONS = {"<", "<=", ">", ">=", "==", "!=", "&&", "||"}
CONDITIONAL = {Kind.IF_STMT, Kind.WHILE_STMT, Kind.DO_STMT, Kind.FOR_STMT, Kind.CONDITIONAL_OPERATOR}
CONSTANT_PLACES = {
    Kind.STATIC_ASSERT, Kind.ENUM_DECL, Kind.INIT_LIST_EXPR, Kind.TEMPLATE_NON_TYPE_PARAMETER,
    Kind.TEMPLATE_TYPE_PARAMETER,
}  # fmt: skip
INTEGERS = {
    TypeKind.INT, TypeKind.UINT, TypeKind.SHORT, TypeKind.USHORT, TypeKind.LONG, TypeKind.ULONG, TypeKind.LONGLONG,
    TypeKind.ULONGLONG,
}  # fmt: skip


@dataclass
class Mutant:
    number: int
    file: str  # below the root
    line: int
    before: str
    after: str
    text: str  # of the line
    state: str = "not run"
    tests: list = field(default_factory=list)  # that come by the place

    def __str__(self):
        # A number or a name alone is ambiguous: add its line.
        where = f" in {self.text}" if re.fullmatch(r"[\w']+", self.before) else ""
        return f"{self.file}:{self.line}: {self.before} -> {self.after}{where}"


@dataclass
class Edit:
    """A piece of a file and its possible replacements; a statement can only be removed."""

    start: int
    end: int
    alternatives: list  # texts; None for a statement that is left out
    mutants: list = field(default_factory=list)


def one_line(text):
    return re.sub(r"\s+", " ", re.sub(r"//[^\n]*\n", " ", text)).strip()


class Finder:
    """Collects the edits of all files below a folder from the syntax trees of its .cpp files."""

    def __init__(self, root, sources):
        self.root, self.sources = root, sources
        self.edits = {}  # by file: {(start, end): Edit}
        self.texts = {}

    def text(self, file):
        if file not in self.texts:
            self.texts[file] = (self.root / file).read_bytes()
        return self.texts[file]

    def piece(self, file, start, end):
        return self.text(file)[start:end].decode()

    def rewritten(self, file):
        """The file's text with all changes."""
        edits = sorted(self.edits.get(file, {}).values(), key=lambda edit: (edit.start, -edit.end))
        text = self.text(file)
        # Declare it on the first empty line, so that all other lines keep their numbers.
        return render(text, 0, len(text), edits).replace("\n\n", "\nbool mutant(int number);\n", 1)

    def file_of(self, cursor):
        if cursor.location.file is None:
            return None
        path = Path(cursor.location.file.name).resolve()
        return str(path.relative_to(self.root)) if path.is_relative_to(self.sources) else None

    def collect(self, command):
        arguments = [word for word in command["arguments"] if not word.endswith((".o", ".cpp"))]
        unit = Index.create().parse(command["file"], args=arguments)
        wrong = [str(problem) for problem in unit.diagnostics if problem.severity >= Diagnostic.Error]
        if wrong:  # what comes behind would be missed
            raise ValueError("\n".join(wrong))
        for cursor in unit.cursor.get_children():
            if self.file_of(cursor) is not None:
                self.visit(cursor, None)

    def visit(self, cursor, parent):
        file = self.file_of(cursor)
        if file is None or self.is_constant(file, cursor, parent):
            return
        self.look_at(file, cursor, parent)
        for child in cursor.get_children():
            self.visit(child, cursor)

    def is_constant(self, file, cursor, parent):
        """Whether the compiler needs a constant expression here, which cannot be switched."""
        if cursor.kind in CONSTANT_PLACES:
            return True
        if parent is not None and parent.type.kind == TypeKind.CONSTANTARRAY and parent.kind.is_declaration():
            return True  # its bound
        if parent is not None and parent.kind == Kind.CASE_STMT and cursor == next(iter(parent.get_children())):
            return True
        if cursor.kind in (Kind.VAR_DECL, Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.FUNCTION_TEMPLATE):
            head = self.piece(file, cursor.extent.start.offset, cursor.location.offset)
            return "constexpr" in head
        return False

    def add(self, file, extent, alternatives):
        if alternatives and extent.start.offset < extent.end.offset:
            edits = self.edits.setdefault(file, {})
            edits.setdefault((extent.start.offset, extent.end.offset), Edit(extent.start.offset, extent.end.offset, alternatives))

    def look_at(self, file, cursor, parent):
        if cursor.kind == Kind.BINARY_OPERATOR:
            self.operator(file, cursor)
        elif cursor.kind == Kind.INTEGER_LITERAL:
            self.literal(file, cursor)
        elif cursor.kind == Kind.RETURN_STMT:
            self.result(file, cursor)
        elif cursor.kind in CONDITIONAL:
            self.condition(file, cursor)
        if parent is not None and parent.kind == Kind.COMPOUND_STMT:
            self.statement(file, cursor)

    def operator(self, file, cursor):
        left, right = list(cursor.get_children())
        begin, end = left.extent.end.offset, right.extent.start.offset
        between = self.piece(file, begin, end) if begin < end else ""
        sign = re.sub(r"//.*|\s", "", between)
        if sign in SWAPS:
            lhs = self.piece(file, cursor.extent.start.offset, begin)
            rhs = self.piece(file, end, cursor.extent.end.offset)
            self.add(file, cursor.extent, [f"{lhs} {swap} {rhs}" for swap in SWAPS[sign]])

    def literal(self, file, cursor):
        text = self.piece(file, cursor.extent.start.offset, cursor.extent.end.offset)
        if re.fullmatch(r"[0-9][0-9a-fA-FxX']*[uUlL]*", text):
            self.add(file, cursor.extent, [f"{text} + 1"] if re.fullmatch(r"0[uUlL]*", text) else [f"{text} + 1", f"{text} - {text}"])

    def result(self, file, cursor):
        """A result that is a named constant or a call; others contain operators or literals, which are changed."""
        for value in cursor.get_children():
            text = self.piece(file, value.extent.start.offset, value.extent.end.offset)
            kind = value.type.get_canonical().kind
            if kind == TypeKind.BOOL:
                self.add(file, value.extent, [f"!({text})"])
            elif kind in INTEGERS and re.fullmatch(r"k[A-Z]\w*|[A-Z_]{4,}|\w+\(.*\)", text, re.DOTALL):
                self.add(file, value.extent, [f"({text}) + 1"])

    def condition(self, file, cursor):
        children = list(cursor.get_children())
        if any(child.kind == Kind.VAR_DECL for child in children):
            return  # declared in the condition
        expressions = [child for child in children if child.kind.is_expression()]
        if cursor.kind in (Kind.FOR_STMT, Kind.DO_STMT) or not expressions:
            return
        wanted = expressions[0]
        head = self.piece(file, cursor.extent.start.offset, wanted.extent.start.offset)
        text = self.piece(file, wanted.extent.start.offset, wanted.extent.end.offset)
        if "constexpr" not in head and not (wanted.kind == Kind.BINARY_OPERATOR):
            self.add(file, wanted.extent, [f"!({text})"])

    def statement(self, file, cursor):
        """A call, an assignment or an increment as a statement can be removed."""
        text = self.piece(file, cursor.extent.start.offset, cursor.extent.end.offset)
        after = self.piece(file, cursor.extent.end.offset, cursor.extent.end.offset + 1)
        alone = cursor.kind in (Kind.CALL_EXPR, Kind.UNARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR) or (
            cursor.kind == Kind.BINARY_OPERATOR and re.search(r"[^=!<>]=[^=]", text)
        )
        if (alone or cursor.kind.is_expression()) and after == ";":
            self.add(file, cursor.extent, [None])


def compile_commands(build, sources):
    """One syntax tree for each .cpp file of the library, including its headers."""
    found = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        if Path(entry["file"]).is_relative_to(sources):
            words = entry["command"].split()
            kept = [w for i, w in enumerate(words[1:], 1) if w.startswith(("-I", "-D", "-std")) or words[i - 1] == "-isystem" or w == "-isystem"]
            found.setdefault(entry["file"], {"file": entry["file"], "arguments": kept})
    return list(found.values())


def find(root, build, sources):
    """The edits of each file, and all mutants with their numbers."""
    finder = Finder(root, sources)
    for command in compile_commands(build, sources):
        finder.collect(command)
    mutants = []
    for file in sorted(finder.edits):
        for _, edit in sorted(finder.edits[file].items(), key=lambda item: (item[0][0], -item[0][1])):
            before = one_line(finder.piece(file, edit.start, edit.end))
            line = finder.text(file)[: edit.start].count(b"\n") + 1
            text = finder.text(file).split(b"\n")[line - 1].decode().strip()
            for alternative in edit.alternatives:
                after = "(left out)" if alternative is None else one_line(alternative)
                mutants.append(Mutant(len(mutants), file, line, before, after, text))
                edit.mutants.append(mutants[-1])
    return finder, mutants


def render(text, start, end, edits):
    """A piece of a file with its edits, which are nested or disjoint."""
    out, position = "", start
    while edits:
        edit = edits[0]
        inside = [other for other in edits[1:] if other.end <= edit.end]
        edits = edits[1 + len(inside) :]
        out += text[position : edit.start].decode() + switched(edit, render(text, edit.start, edit.end, inside))
        position = edit.end
    return out + text[position:end].decode()


def switched(edit, original):
    """Keeps the number of lines, so that the line numbers of the compiler's messages are valid for both files."""
    out = original
    for alternative, mutant in zip(edit.alternatives, edit.mutants):
        if mutant.state == "invalid":
            continue
        if alternative is None:
            out = f"if (!mutant({mutant.number})) {out}"
        else:
            out = f"(mutant({mutant.number}) ? ({one_line(alternative)}) : ({out}))"
    return out
