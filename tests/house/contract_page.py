"""The page that shows the contract with its tests, made by contract.py."""

from collections import Counter

from test_catalogue import FLOORS, in_words

MOST_SUITES = 5
MOST_TESTS = 3

HEAD = """# The contract and its tests

Written by `script/contract` from the tests themselves; the house check `house.contract` fails when this page is not
of the present tests, or when a method, a code or a log text has none. A test shows what its body names, or what the
helpers name that it uses. `script/contract usbResetPipe` lists all tests of one method, code or log text.

| floor | what runs |
|---|---|
| unit | `tests/unit`, the parts of the library in one process |
| Java, both buses | `tests/java`, the shipped library in a JVM, on the bus in memory and on a kernel's |
| Java, in memory | the tests there that need what only the bus in memory offers |
| Java, on a kernel | those that need what only a kernel has |

"""


def suites(tests):
    """How many tests in which suites, those with most first."""
    if not tests:
        return "-"
    counted = sorted(Counter(test.suite for test in tests).items(), key=lambda item: (-item[1], item[0]))
    named = ", ".join(f"{suite} {count}" for suite, count in counted[:MOST_SUITES])
    more = len(counted) - MOST_SUITES
    return f"**{len(tests)}**: {named}" + (f", {more} more" if more > 0 else "")


def row(*cells):
    return "| " + " | ".join(cell.replace("|", "\\|") for cell in cells) + " |\n"


def header(*cells):
    return row(*cells) + "|" + "---|" * len(cells) + "\n"


def by_floor(tests):
    return [suites([test for test in tests if test.floor == floor]) for floor in FLOORS]


def methods(by_method):
    rows = "".join(row(f"`{method}`", *by_floor(tests)) for method, tests in by_method.items())
    return "## Methods\n\n" + header("method", *FLOORS) + rows + "\n"


def codes(by_code):
    rows = "".join(row(str(number), meaning, *by_floor(tests)) for (number, meaning), tests in by_code.items())
    return "## Codes\n\n" + header("code", "meaning", *FLOORS) + rows + "\n"


def some(tests):
    """The first of the tests by name."""
    named = [f"{test.suite}: {test.sentence}" for test in tests[:MOST_TESTS]]
    more = len(tests) - MOST_TESTS
    return "<br>".join([*named, f"and {more} more"] if more > 0 else named)


def shown_text(text):
    """A text as code, which keeps its blanks; a long rule of one sign is cut."""
    return f"`{text}`" if len(text) <= 90 else f"`{text[:90]}`..."


def log_texts(by_text):
    rows = "".join(row(shown_text(text), some(tests)) for text, tests in by_text.items())
    return "## Log texts\n\nA percent sign begins a value, as in printf.\n\n" + header("text", "tests") + rows + "\n"


def rules(tests):
    """Every suite with its tests as sentences, folded up; suites of one subject on both floors stand together."""
    parts = ["## Rules, suite by suite\n\nThe sentences are names of tests; many go on from the suite's name.\n"]
    groups = {}
    for test in tests:
        groups.setdefault((test.suite, "unit" if test.floor == FLOORS[0] else "Java"), []).append(test)
    for (suite, side), members in sorted(groups.items()):
        lines = [f"- {test.sentence}" + (f" *({test.floor})*" if test.floor in FLOORS[2:] else "") for test in members]
        title = f"<b>{in_words(suite)}</b>, {side}: {len(members)}"
        parts.append(f"<details><summary>{title}</summary>\n\n" + "\n".join(lines) + "\n\n</details>\n")
    return "\n".join(parts)


def page(tests, by_method, by_code, by_text):
    return HEAD + methods(by_method) + codes(by_code) + log_texts(by_text) + rules(tests)
