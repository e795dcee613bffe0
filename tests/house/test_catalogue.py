"""The tests of the project, read from their sources: their names, their floors and what they name.

A test names what stands in its body, in the functions and constants of its own file that it uses, and in the functions
of one or two statements (calls in short) of the files that tests share.
"""

import re
from dataclasses import dataclass, field
from functools import cached_property

from sources import listed_files

# Comments, raw strings, strings and characters; a literal is matched so that nothing inside one is taken for code.
NOT_CODE = re.compile(r'//[^\n]*|/\*.*?\*/|R"(\w*)\((?:.*?)\)\1"|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'', re.DOTALL)
FUNCTION = re.compile(
    r"\b(\w+)\s*\(((?:[^(){};]|\([^()]*\))*)\)(?:\s|const\b|override\b|->[\w:<>*& ]+|throws [\w, ]+)*\{")
CONSTANT = re.compile(r"\b(?:const|constexpr|final)\b[^;=(){}]*?\b(\w+)\s*(?:\[\w*\])?\s*=(?!=)")
PARAMETERS = re.compile(r"INSTANTIATE_TEST_SUITE_P\(\s*\w+,\s*(\w+),")
JOINS = re.compile(r"\s*(\+([^;,]*\+)?\s*)?\Z")
KEYWORDS = {"if", "for", "while", "switch", "catch", "try", "return", "synchronized"}
CASE_OF_GOOGLETEST = {"TEST", "TEST_F", "TEST_P"}

UNIT, BOTH, MEMORY, KERNEL = "unit", "Java, both buses", "Java, in memory", "Java, on a kernel"
FLOORS = (UNIT, BOTH, MEMORY, KERNEL)
FLOOR_OF_TAG = {"memory": MEMORY, "loading": MEMORY, "newest": MEMORY, "preload": MEMORY, "kernel": KERNEL,
                "unloading": BOTH, "linux": BOTH, "unemulated": MEMORY}


def bare(text):
    """The text with blanks in the place of comments and of what stands in literals."""
    return NOT_CODE.sub(lambda found: re.sub(r"[^\n]", " ", found.group()), text)


def closing(code, start):
    """Where the brace or bracket that opens at the start closes again, in code without literals."""
    depth = 0
    for at in range(start, len(code)):
        depth += (code[at] in "{(") - (code[at] in "})")
        if depth == 0:
            return at + 1
    return len(code)


def unescaped(text):
    return text.replace("\\n", "\n").replace('\\"', '"').replace("\\\\", "\\")


def literals(text):
    """The string literals of a piece of source; those that are put together, with values between them, are one."""
    found, last = [], None
    for match in NOT_CODE.finditer(text):
        if match.group().startswith('"'):
            value, joined = unescaped(match.group()[1:-1]), last is not None and JOINS.match(text[last:match.start()])
            if joined:
                found[-1] += ("?" if joined.group().strip() else "") + value
            else:
                found.append(value)
            last = match.end()
    return found


class Source:
    """A C++ or Java file: its functions and constants by name, its tests apart from them."""

    def __init__(self, path, text):
        self.path, self.text, self.code = path, text, bare(text)
        self.functions = []  # name, text from the name on
        self.definitions = {}  # name: texts; functions and constants
        self.bodies = []  # where functions begin and end
        self.cases = []  # name in parentheses or plain, header, body
        self.parameters = {}  # suite: what its parameters are made of
        for match in FUNCTION.finditer(self.code):
            if match.group(1) not in KEYWORDS:
                self.take_function(match)
        for match in CONSTANT.finditer(self.code):
            if not any(start < match.start() < end for start, end in self.bodies):
                self.define(match.group(1), text[match.start():self.code.find(";", match.end()) + 1])
        for match in PARAMETERS.finditer(self.code):
            self.parameters[match.group(1)] = text[match.end():self.code.find(";", match.end())]

    def define(self, name, text):
        self.definitions.setdefault(name, []).append(text)

    def take_function(self, match):
        header = self.text[:match.start()].rsplit("\n\n", 1)[-1]
        self.bodies.append((match.end() - 1, closing(self.code, match.end() - 1)))
        body = self.text[slice(*self.bodies[-1])]
        is_java_test = re.search(r"@(Test|ParameterizedTest|RepeatedTest)\b", bare(header))
        if match.group(1) in CASE_OF_GOOGLETEST or is_java_test:
            self.cases.append((match, header, body))
        else:
            self.functions.append((match.group(1), self.text[match.start():match.end() - 1] + body))
            self.define(*self.functions[-1])

    @cached_property
    def stems(self):
        """The names in it, those of files in directives among them."""
        return list(dict.fromkeys(re.findall(r"\w+", self.text)))

    @cached_property
    def thin(self):
        """The functions of one or two statements."""
        return [(name, text) for name, text in self.functions if bare(text).count(";") <= 2]


@dataclass(frozen=True)
class Test:
    suite: str
    name: str
    floor: str
    text: str  # all that it names
    tables: tuple = field(compare=False, repr=False)  # the definitions that it may use

    @cached_property
    def code(self):
        return bare(self.text)

    @cached_property
    def names(self):
        return set(words(self.text))

    @cached_property
    def strings(self):
        """Its string literals, and behind each string constant that it uses, as one text, each of them again."""
        own = literals(self.text)
        beginnings = [value for value in re.findall(r'\bk[A-Z]\w* = "([^"\n]*)";', self.text) if value]
        return own + [beginning + text for beginning in beginnings for text in own]

    def names_behind(self, text):
        """All names in a piece of the test and in what it uses."""
        return set(words(expanded(text, *self.tables)))

    @property
    def sentence(self):
        return in_words(self.name)


SPELT = {"hid": "HID", "usb": "USB", "java": "Java", "javas": "Java's", "libusbs": "libusb's", "i": "I"}


def in_words(name):
    """A name in CamelCase as a sentence."""
    parts = re.findall(r"[A-Z]+(?![a-z])|[A-Z]?[a-z]+|\d+[a-z]?(?![a-z])|\d+", name)
    is_short_form = re.compile("[A-Z]{2,}").fullmatch
    text = " ".join(part if is_short_form(part) else SPELT.get(part.lower(), part.lower()) for part in parts)
    return text[:1].upper() + text[1:]


def words(text):
    """The names in a piece of code, each once, in their order."""
    return list(dict.fromkeys(re.findall(r"\w+", bare(text))))


def expanded(text, *tables):
    """The text and all definitions that it uses, one through the other."""
    parts, names = [text], words(text)
    for name in names:  # which grows meanwhile
        for definition in (text for table in tables for text in table.get(name, [])):
            parts.append(definition)
            names += [word for word in words(definition) if word not in names]
    return "\n".join(parts)


def calls_in_short(source, shared):
    """The functions of one or two statements in the shared files that a file names, and in those that these name."""
    files, table = [source], {}
    for file in files:  # which grows meanwhile
        files += [other for stem in file.stems for other in shared.get(stem, []) if other not in files]
    for name, text in (function for file in files[1:] for function in file.thin):
        table.setdefault(name, []).append(text)
    return table


def tests_of(sources):
    shared = {}
    for source in sources:
        if not source.cases:
            shared.setdefault(source.path.stem, []).append(source)
    for source in sources:
        tables = source.definitions, calls_in_short(source, shared)
        for match, header, body in source.cases:
            suite, name, floor, more = identity(source, match, header)
            yield Test(suite, name, floor, expanded(body + more, *tables), tables)


def identity(source, match, header):
    """Suite, name and floor of a test, and what else it consists of: its parameters."""
    if match.group(1) in CASE_OF_GOOGLETEST:
        suite, name = (word.strip() for word in match.group(2).split(","))
        return suite, name, UNIT, source.parameters.get(suite, "")
    tag = re.search(r'@Tag\("(\w+)"\)', header) or re.search(r'^@Tag\("(\w+)"\)', source.text, re.MULTILINE)
    return source.path.stem.removesuffix("Test"), match.group(1), FLOOR_OF_TAG[tag.group(1)] if tag else BOTH, header


def read(root, top, suffix):
    files = [path for path in listed_files(root) if path.as_posix().startswith(top) and path.suffix in suffix]
    return [Source(path, (root / path).read_text()) for path in files]


def all_tests(root):
    return [*tests_of(read(root, "tests/unit/", (".cpp", ".h"))), *tests_of(read(root, "tests/java/src/", (".java",)))]
