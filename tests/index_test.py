"""Compares the index of the core's functions in docs/architecture.md with the headers.

A row of the index names one function or several, their header, and what they do. Every function that
a header of the core declares has a row that names this header, and every row a declared function.
"""
import pathlib
import re
import sys

TOP = pathlib.Path(__file__).resolve().parents[1]
PAGE = "docs/architecture.md"
HEADING = "## Index of functions"

# Left out before declarations are looked for.
NOISE = [
    (r"//[^\n]*|/\*.*?\*/", " "),
    (r"^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", " "),
    (r"\[\[.*?\]\]|\btemplate\s*<[^<>]*>|\bSE_BF_API\b", " "),
    (r"\b(?:extern\s*\"C\"|(?:inline\s+)?namespace(?:\s+[\w:]+)?)\s*\{", ";"),
]


def without_bodies(text):
    """The text at the outermost level; what stands in braces becomes a semicolon."""
    depth, outer = 0, []
    for letter in text:
        if letter == "{":
            outer.append(";" if depth == 0 else "")
        depth += {"{": 1, "}": -1}.get(letter, 0)
        depth = max(depth, 0)  # the end of a namespace, whose beginning is left out
        if depth == 0:
            outer.append(";" if letter == "}" else letter)
    return "".join(outer)


def declared_functions(path):
    text = path.read_text()
    for pattern, replacement in NOISE:
        text = re.sub(pattern, replacement, text, flags=re.S | re.M)
    names = set()
    for statement in without_bodies(text).split(";"):
        found = re.match(r"[\w\s:*&<>,]*[\s*&](\w+)\s*\(", statement)
        if found and not re.match(r"\s*(?:using|typedef|extern|static_assert)\b", statement):
            names.add(found[1])
    return names


def headers():
    """Functions of each header, by its name in the index."""
    paths = {"tm_se_bf.h": TOP / "include/tm_se_bf.h"}
    for path in sorted((TOP / "src").rglob("*.h")):
        paths[str(path.relative_to(TOP / "src"))] = path
    return {name: declared_functions(path) for name, path in paths.items()}


def indexed():
    """Pairs of function and header that the index has, with the line of the page."""
    rows = {}
    heading_seen = False
    for number, line in enumerate((TOP / PAGE).read_text().splitlines(), 1):
        heading_seen = line == HEADING or heading_seen and not line.startswith("## ")
        cells = line.split("|")
        if heading_seen and len(cells) == 5 and "`" in cells[1]:
            header = cells[2].strip(" `")
            for name in re.findall(r"`(\w+)`", cells[1]):
                rows[name, header] = number
    return rows


def main():
    declared = {(name, header) for header, names in headers().items() for name in names}
    rows = indexed()
    complaints = [f"{PAGE}: the index lacks a row: | `{name}` | `{header}` | what it does |"
                  for name, header in sorted(declared - rows.keys())]
    for name, header in sorted(rows.keys() - declared):
        places = ", ".join(sorted(place for other, place in declared if other == name))
        complaints.append(f"{PAGE}:{rows[name, header]}: `{name}` is not declared in {header}, " +
                          (f"but in {places}" if places else "nor in any other header"))
    # A search that is broken would find fewer.
    if len(declared) < 100 or len({header for _, header in declared}) < 25:
        complaints.append(f"only {len(declared)} functions found in the headers; mend {__file__}")
    print("\n".join(complaints) or f"{len(declared)} functions, all in the index")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
