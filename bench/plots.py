"""Growth plots: one SVG a series, drawn by gnuplot from the results file."""

import json
import subprocess
import sys
import pathlib


def draw(results_file, directory):
    directory.mkdir(parents=True, exist_ok=True)
    for growth in json.loads(results_file.read_text())["growth"]:
        script = [
            "set terminal svg size 640,400 dynamic background rgb 'white' font 'sans,12'",
            f"set output '{directory / growth['name']}.svg'",
            f"set title \"{growth['what']}\" noenhanced",
            f"set xlabel '{growth['step']}'",
            f"set ylabel '{growth['unit']}'",
            "set logscale x 10",
            "set grid",
            "set key top left",
        ]
        lines = growth["lines"].items()
        values = [value for _, line in lines for value in line]
        script.append("set logscale y" if min(values) > 0 and max(values) > 30 * min(values) else "set yrange [0:*]")
        for index, (_, values) in enumerate(lines):
            points = "\n".join(f"{step} {value}" for step, value in zip(growth["steps"], values))
            script.append(f"$line{index} << EOD\n{points}\nEOD")
        curves = [f"$line{index} with linespoints linewidth 2 title \"{name}\"" for index, (name, _) in enumerate(lines)]
        script.append("plot " + ", ".join(curves))
        subprocess.run(["gnuplot"], input="\n".join(script), text=True, check=True)


if __name__ == "__main__":
    draw(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]))
