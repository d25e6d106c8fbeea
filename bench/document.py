"""What the generated pages have in common: tables in Markdown, and documents whose tables and charts are replaced."""

import re
from dataclasses import dataclass, field
from pathlib import Path

FRAME_LENGTH = 1024
SAMPLE_RATE = 44100
SHOWN_BIT_RATE = 128000  # that of the tables that show one

Rows = list[list[str]]


def markdown(header: list[str], rows: Rows) -> str:
    """A table; columns of numbers are aligned to the right."""
    numeric = [all(re.match(r"[\d*+−]|$", row[i]) for row in rows) for i in range(len(header))]
    rule = ["---:" if right else "---" for right in numeric]
    return "\n".join("| " + " | ".join(row) + " |" for row in [header, rule, *rows])


def kilobits(bit_rate: int) -> str:
    return f"{bit_rate // 1000} kbit/s"


@dataclass
class Report:
    """By name."""

    tables: dict[str, str]
    charts: dict[str, str] = field(default_factory=dict)


def replace_tables(document: str, tables: dict[str, str]) -> str:
    for name, table in tables.items():
        begin, end = f"<!-- begin: {name} -->\n", f"\n<!-- end: {name} -->"
        if document.count(begin) != 1 or document.count(end) != 1:
            raise RuntimeError(f"the document has no place for the table {name}")
        head, _, tail = document.partition(begin)
        document = head + begin + table + end + tail.partition(end)[2]
    return document


def replace_file(file: Path, text: str) -> None:
    """The file has its old or its new text, never a part of it."""
    part = file.with_name(file.name + ".part")
    part.write_text(text)
    part.rename(file)


def write_charts(directory: Path, charts: dict[str, str]) -> None:
    directory.mkdir(exist_ok=True)
    for name, chart in charts.items():
        replace_file(directory / f"{name}.svg", chart)


def publish(report: Report, document: Path | None) -> None:
    """Replaces tables in the document and charts beside it, or prints the tables where there is none."""
    if document is None:
        print("\n\n".join(f"## {name}\n\n{table}" for name, table in report.tables.items()))
        return
    text = replace_tables(document.read_text(), report.tables)
    write_charts(document.parent / "charts", report.charts)
    replace_file(document, text)
