#!/usr/bin/python3
"""Reduces models in each mode and writes pictures of them, with what was measured.

    gallery.py PROGRAM-FOLDER GALLERY-FOLDER README-PICTURE

scripts/gallery calls this.
"""
import os
import re
import subprocess
import sys
import tempfile

from PIL import Image, ImageDraw, ImageFont

import models
import render

FONTS = "/usr/share/fonts/truetype/dejavu/"
PANEL = (400, 330)
CAPTION = 62
GAP = 14
COLOURS = 48

NAMES = {
    "1": "mode 1, distance tolerance", "2": "mode 2, short edge", "3": "mode 3, maximum edge",
    "4": "mode 4, bad aspect", "S": "thin triangles turned",
}

# name, what it is, how it is made, how it is looked at, and the runs: times, options
GALLERY = [
    ("gear", "A gear wheel: flat faces, cylinders and sharp edges", "gear", (25, 48), [
        (1, "-q 1 -r 0.1 -c 0.9"), (6, "-q 1 -r 0.1 -c 0.9"), (1, "-q 2 -j 1.6"),
        (1, "-q 3 -r 0.1 -c 0.9 -i 4"), (1, "-q 4 -r 0.2 -c 0.9 -a 25")]),
    ("bracket", "An L-shaped bracket: six wide planes, straight edges", "bracket 2500", (250, 30), [
        (1, "-q 1 -r 0.1 -c 0.9"), (5, "-q 1 -r 0.1 -c 0.9"), (1, "-q 2 -j 3"),
        (1, "-q 3 -r 0.1 -c 0.9 -i 6"), (1, "-q 4 -r 0.2 -c 0.9 -a 45")]),
    ("knot", "A knotted tube with the slight roughness of a scan", "knot", (0, 60), [
        (1, "-q 1 -r 0.3 -c 0.8"), (6, "-q 1 -r 0.3 -c 0.8"), (1, "-q 2 -j 1.6"),
        (1, "-q 3 -r 0.3 -c 0.8 -i 2.5"), (1, "-q 4 -r 0.4 -c 0.8 -a 35")]),
    ("ball", "A dented ball with rough skin: nothing about it is flat", "sphere 4800", (20, 25), [
        (1, "-q 1 -r 0.4 -c 0.8"), (6, "-q 1 -r 0.4 -c 0.8"), (1, "-q 2 -j 4"),
        (1, "-q 3 -r 0.4 -c 0.8 -i 6"), (1, "-q 4 -r 0.6 -c 0.8 -a 40")]),
    ("land", "A piece of land with a dam: an open sheet", "land", (30, 35), [
        (1, "-q 1 -r 0.1 -c 0.9"), (6, "-q 1 -r 0.1 -c 0.9"), (1, "-q 2 -j 1.8"),
        (1, "-q 3 -r 0.1 -c 0.9 -i 4"), (1, "-q 4 -r 0.3 -c 0.9 -a 40")]),
    ("vase", "A vase from a twisted grid: thin triangles all over", "vase", (20, 18), [
        (1, "-q 1 -r 0.1 -c 0.9 -S -h 0.3 -P")]),
]


class Workshop:
    """A folder with the models, and the programs that make, reduce and measure them."""

    def __init__(self, programs, folder):
        self.programs, self.folder = programs, folder

    def path(self, name):
        return os.path.join(self.folder, name + ".stl")

    def call(self, program, *words):
        done = subprocess.run([os.path.join(self.programs, program), *words], check=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        return done.stdout

    def make(self, name, recipe):
        shape, *count = recipe.split()
        if count:
            self.call("make_model", shape, count[0], "1", self.path(name))
        else:
            render.write_stl(self.path(name), getattr(models, shape)())
        return render.read_stl(self.path(name))

    def reduce(self, name, times, options):
        source = self.path(name)
        for turn in range(times):
            result = self.path(f"{name}-result{turn}")
            self.call("velmora", "-f", source, "-o", result, *options.split())
            source = result
        return source

    def measure(self, name, result):
        numbers = re.findall(r"max ([\d.]+) mean ([\d.]+)",
                             self.call("deviation", self.path(name), result))
        return max(float(far) for far, _ in numbers), max(float(mean) for _, mean in numbers)


def font(size, bold=False):
    return ImageFont.truetype(FONTS + ("DejaVuSans-Bold.ttf" if bold else "DejaVuSans.ttf"), size)


def length(mm):
    """Two digits are as much as a sampled distance is worth; below a micrometre it is rounding."""
    return "< 0.001 mm" if mm < 0.001 else f"{mm:.2g} mm"


def title_of(times, options):
    kind = "S" if "-S" in options else options.split("-q ")[1][0]
    again = "" if times == 1 else f", {times} runs"
    return NAMES[kind] + again


def frame(image, title, lines):
    panel = Image.new("RGB", (PANEL[0], PANEL[1] + CAPTION), (255, 255, 255))
    panel.paste(image, (0, 0))
    pen = ImageDraw.Draw(panel)
    pen.text((4, PANEL[1] + 2), title, font=font(14, True), fill=(20, 28, 40))
    for i, line in enumerate(lines):
        pen.text((4, PANEL[1] + 22 + 18 * i), line, font=font(13), fill=(60, 70, 84))
    return panel


def sheet(panels, columns):
    width, height = panels[0].size
    rows = -(-len(panels) // columns)
    whole = Image.new("RGB", (columns * width + (columns - 1) * GAP,
                              rows * height + (rows - 1) * GAP), (255, 255, 255))
    for i, panel in enumerate(panels):
        whole.paste(panel, (i % columns * (width + GAP), i // columns * (height + GAP)))
    return whole


def save(image, path):
    """With few colours: flat shading has not many, and the file is a third as large."""
    image.quantize(COLOURS, dither=Image.Dither.NONE).save(path, optimize=True)


def show(work, name, recipe, look, runs):
    """The picture of one model, and the rows of its table."""
    model = work.make(name, recipe)
    view = render.View(model, *look, PANEL)
    panels = [frame(render.draw(model, view), "as it came", [f"{len(model):,} triangles"])]
    rows = []
    for times, options in runs:
        result = work.reduce(name, times, options)
        after = render.read_stl(result)
        far, mean = work.measure(name, result)
        counts = f"{len(after):,} triangles, {100 * len(after) / len(model):.0f} %"
        panels.append(frame(render.draw(after, view), title_of(times, options),
                            [counts, f"farthest {length(far)}, mean {length(mean)}"]))
        rows.append((title_of(times, options), options, len(after), far, mean))
    return sheet(panels, min(3, len(panels))), len(model), rows


def write_page(path, shown):
    out = ["# Gallery", "",
           "Models before and after, made by `scripts/gallery`. Every panel is one run of velmora on",
           "the model at the top left, or as many runs as it says, each on the result of the one",
           "before. The distances are measured each way between dense sample points of one surface",
           "and the other surface, and the larger one is told; what is below a thousandth of a",
           "millimetre is rounding.", ""]
    for name, text, count, rows in shown:
        out += [f"## {text}", "", f"![{text}]({name}.png)", "",
                f"`{name}.stl`: {count:,} triangles", "",
                "| | options | triangles | farthest | mean |",
                "|---|---|---:|---:|---:|"]
        out += [f"| {title} | `{options}` | {left:,} | {length(far)} | {length(mean)} |"
                for title, options, left, far, mean in rows]
        out += [""]
    out += ["## What to see", "",
            "- `-r` bounds what is measured at one vertex, not the whole way between the surfaces: the",
            "  farthest point of a result is here up to three times as far away, the mean far below it.",
            "- In modes 1 to 3 one run takes away a third to a half at most, since the neighbours of a",
            "  vertex that went wait for the next turn, and a run has two. Further runs go on from there.",
            "- Mode 2 asks for the length of edges only and cuts into sharp edges. `-j` should be",
            "  smaller than any detail that matters.",
            "- Mode 4 touches nothing but the surroundings of triangles with small angles.",
            "- With `-S` the number of triangles stays, and so do all vertices.", ""]
    with open(path, "w", encoding="utf-8") as file:
        file.write("\n".join(out))


def write_readme_picture(work, path):
    """A model before and after, shaded above, with its edges below: first the bad triangles go,
    then what is flat."""
    model = work.make("front", "gear")
    better = work.reduce("front", 1, "-q 4 -r 0.05 -c 0.9 -a 25")
    os.rename(better, work.path("better"))
    after = work.reduce("better", 4, "-q 1 -r 0.05 -c 0.9 -a 25")
    far, mean = work.measure("front", after)
    after = render.read_stl(after)
    print(f"front: {len(model)} -> {len(after)}, farthest {length(far)}, mean {length(mean)}")
    view = render.View(model, 25, 48, (470, 370))
    panels = [render.draw(trs, view, edges=edges) for edges in (False, True)
              for trs in (model, after)]
    for panel, word, trs in zip(panels[2:], ("before", "after"), (model, after)):
        ImageDraw.Draw(panel).text((4, 348), f"{word}: {len(trs):,} triangles", font=font(15),
                                   fill=(60, 70, 84))
    save(sheet(panels, 2), path)


def main():
    programs, gallery, readme_picture = (os.path.abspath(path) for path in sys.argv[1:])
    os.makedirs(gallery, exist_ok=True)
    shown = []
    with tempfile.TemporaryDirectory() as folder:
        work = Workshop(programs, folder)
        for name, text, recipe, look, runs in GALLERY:
            picture, count, rows = show(work, name, recipe, look, runs)
            save(picture, os.path.join(gallery, name + ".png"))
            shown.append((name, text, count, rows))
            print(f"{name}: {count} -> " + ", ".join(str(row[2]) for row in rows), flush=True)
        write_readme_picture(work, readme_picture)
    write_page(os.path.join(gallery, "README.md"), shown)


main()
