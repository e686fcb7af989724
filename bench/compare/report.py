"""Tables as Markdown."""

from table import Column, Table

_REMARKABLE = 1.25  # times as much


def markdown(machine: dict, tables: list) -> str:
    parts = [_machine(machine), "Ratios are those of the first column: the median of the rounds [least..greatest]."]
    parts += [_table(table) for table in tables if not table.name.startswith("json-")]
    json_tables = [table for table in tables if table.name.startswith("json-")]
    if json_tables:
        parts.append(_json(json_tables))
    return "\n\n".join(parts) + "\n"


def side_by_side(machine: dict, tables: list) -> str:
    """One grid: a row for each figure, a column for the base and one for the subject of the tables."""
    base, subject = tables[0].base, tables[0].subject
    rows = [_figure_row(table, column) for table in tables for column in table.columns]
    remark = f"Medians; the ratio is the median of the rounds [least..greatest], bold if above {_REMARKABLE}."
    return f"{_machine(machine)}\n\n{remark}\n\n{grid(['', base, subject, f'{subject} ÷ {base}'], rows)}\n"


def _figure_row(table: Table, column: Column) -> list:
    figures = [_number(table.median(lane, column.key), column.digits) for lane in (table.base, table.subject)]
    return [f"{table.title}, {column.title}", *figures, _marked_ratio(table, column)]


def _marked_ratio(table: Table, column: Column) -> str:
    base, subject = (table.median(lane, column.key) for lane in (table.base, table.subject))
    if base is None or subject is None or not round(subject, column.digits):
        return ""
    text = ratio_text(table.ratio(table.subject, table.base, column.key)) if round(base, column.digits) else "from none"
    return f"**{text}**" if subject > base * _REMARKABLE else text


def _machine(machine: dict) -> str:
    lines = [f"- {name}: {value}" for name, value in machine.items() if name != "packages"]
    packages = ", ".join(f"{name} {version}" for name, version in machine["packages"].items())
    return "\n".join([*lines, f"- packages: {packages}"])


def _number(value, digits: int) -> str:
    return "" if value is None else f"{value:,.{digits}f}"


def ratio_text(ratio) -> str:
    """What was measured once has no range."""
    if ratio is None:
        return ""
    return f"{ratio.median:.2f}" + (f" [{ratio.least:.2f}..{ratio.greatest:.2f}]" if ratio.least < ratio.greatest else "")


def _row(cells: list) -> str:
    return "| " + " | ".join(cells) + " |"


def grid(head: list, rows: list) -> str:
    return "\n".join([_row(head), _row(["---"] + ["---:"] * (len(head) - 1)), *map(_row, rows)])


def _table(table: Table) -> str:
    """Columns that no lane has a value for are left out."""
    lanes = table.lanes
    columns = [column for column in table.columns if any(table.median(lane, column.key) is not None for lane in lanes)]
    head = [""] + [column.title for column in columns]
    compared = [name for name in (table.base, table.subject) if name in lanes]
    titles = {table.base: f"÷ {table.base}", table.subject: f"{table.subject} ÷ this"}
    head += [titles[name] for name in compared]
    rows = []
    for lane in lanes:
        cells = [lane] + [_number(table.median(lane, column.key), column.digits) for column in columns]
        if table.base in compared:
            cells.append(ratio_text(table.ratio(lane, table.base)) if lane != table.base else "")
        if table.subject in compared:
            cells.append(ratio_text(table.ratio(table.subject, lane)) if lane != table.subject else "")
        rows.append(cells)
    return f"### {table.title}\n\n{grid(head, rows)}"


def _json(tables: list) -> str:
    """One row for each text: Qt, ours, and the ratio."""
    rows = [[table.title.removeprefix("JSON "), *[_number(table.median(lane, "nanoseconds"), 0) for lane in table.lanes],
             ratio_text(table.ratio(table.subject, table.base))] for table in tables]
    first = tables[0]
    return "### JSON\n\n" + grid(["", *[f"{lane}, ns" for lane in first.lanes], f"{first.subject} ÷ {first.base}"], rows)
