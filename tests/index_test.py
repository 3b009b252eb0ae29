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

# As clang-format lays them out: at the start of a line, after a template or an attribute.
DECLARED = re.compile(r"^(?:template <.*?>\s|\[\[.*?\]\] )?(?!using|typedef|extern|static_assert)[a-zA-Z]"
                      r"[\w\s:*&<>,]*?[\s*&](\w+)\s*\(", re.M)


def headers():
    """Functions of each header, by its name in the index."""
    paths = {"tm_se_bf.h": TOP / "include/tm_se_bf.h"}
    for path in sorted((TOP / "src").rglob("*.h")):
        paths[str(path.relative_to(TOP / "src"))] = path
    return {name: set(DECLARED.findall(path.read_text())) for name, path in paths.items()}


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
