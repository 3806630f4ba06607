"""Results as JSON, and the table made from it."""

import datetime
import json
import os
import platform
import subprocess


def describe_machine():
    model = next((line.partition(":")[2].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")), "")
    return {"cpu": model, "cpus": os.cpu_count(), "kernel": platform.release(),
            "load": os.getloadavg()[0], "date": datetime.datetime.now(datetime.timezone.utc).isoformat(timespec="seconds"),
            "commit": subprocess.run(["git", "describe", "--always", "--dirty"], capture_output=True,
                                     text=True).stdout.strip()}


def number(value):
    if value is None:
        return ""
    if abs(value) >= 100:
        return f"{value:,.0f}".replace(",", " ")
    return f"{value:.3g}"


def requirement(row):
    if row["target"] is None:
        return ""
    sign = "≤" if row["at_most"] else "≥"
    kind = {"ratio": "ratio ", "difference": "added ", "value": ""}[row["judged"]]
    unit = "" if row["judged"] == "ratio" else " " + row["unit"]
    return f"{kind}{sign} {number(row['target'])}{unit}".strip()


def table(results):
    """A Markdown table, one line a row."""
    header = ["What", "Against", "Ours", "Theirs", "Ratio or difference", "Required", ""]
    lines = [header, ["---"] * len(header)]
    for row in results["rows"]:
        against = row["referenceMedian"] is not None
        judged = row["verdict"] if row["judged"] == "difference" or not against else row["median"] / row["referenceMedian"]
        lines.append([
            row["what"], row["against"], f"{number(row['median'])} {row['unit']}".strip(), number(row["referenceMedian"]),
            number(judged) if against else "", requirement(row), {True: "reached", False: "MISSED", None: ""}[row["reached"]],
        ])
    for growth in results["growth"]:
        for name, values in growth["lines"].items():
            steps = ", ".join(f"{step}: {number(value)}" for step, value in zip(growth["steps"], values))
            lines.append([f"{growth['what']} ({growth['unit']}) by {growth['step']}", name, steps, "", "", "", ""])
    return "\n".join("| " + " | ".join(cells) + " |" for cells in lines)


def write(results, path):
    path.write_text(json.dumps(results, indent=1) + "\n")
