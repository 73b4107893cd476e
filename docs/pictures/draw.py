"""Draws the pictures of docs/panorama.md. Usage: draw.py BUILD_TREE FOLDER (see scripts/docs-pictures)."""
import io
import math
import subprocess
import sys
import tempfile
from pathlib import Path

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np
from matplotlib.patches import Circle, FancyArrowPatch, Rectangle
from PIL import Image

LENS = 1440  # W and H
RADIUS = 675.0
CENTRE = LENS // 2
PANORAMA = (1440, 720)  # columns, rows

LENS1 = "#ffe14d"
LENS2 = "#ff7ad9"
INK = "#1b1b1b"


class Tools:
    """The project's own tools, working in a folder of their own."""

    def __init__(self, build, folder):
        self.build = Path(build)
        self.folder = Path(folder)

    def pair(self, name, *options):
        files = [str(self.folder / f"{name}{lens}.jpg") for lens in (1, 2)]
        self.run("sample/nq360-sample", "still", *files, "--size", str(LENS), "--grain", "0", *options)
        return files

    def stitch(self, pair, name, *options):
        output = str(self.folder / name)
        size = f"{PANORAMA[0]}x{PANORAMA[1]}"
        self.run("cli/nq360", "export", "--quiet", "--force", *pair, output, "--size", size, *options)
        return picture(output)

    def run(self, program, *arguments):
        subprocess.run([str(self.build / program), *arguments], check=True)


def picture(path):
    return np.asarray(Image.open(path).convert("RGB"))


def rotated(x, y, angle):
    """The point of panorama pixel (x, y) on the unit sphere, turned by the third angle: q."""
    longitude = x * 2 * math.pi / PANORAMA[0] - math.pi
    colatitude = y * math.pi / PANORAMA[1]
    px = np.sin(colatitude) * np.cos(longitude)
    py = np.sin(colatitude) * np.sin(longitude)
    pz = np.cos(colatitude)
    c, s = math.cos(math.radians(angle)), math.sin(math.radians(angle))
    return c * px + s * pz, py, -s * px + c * pz


def source(x, y, angle=0):
    """Lens (1 or 2), column and row in its picture."""
    qx, qy, qz = rotated(x, y, angle)
    phi = math.acos(max(-1, min(1, qz)))
    psi = math.atan2(qx, qy)
    k = RADIUS / (math.pi / 2)
    if phi < math.pi / 2:
        return 1, CENTRE + math.cos(psi) * phi * k, CENTRE + math.sin(psi) * phi * k
    rho = (math.pi - phi) * k
    return 2, CENTRE - math.cos(psi) * rho, CENTRE + math.sin(psi) * rho


def save(figure, folder, name):
    """As a PNG of few colours, without a date or a program's name in it."""
    buffer = io.BytesIO()
    figure.savefig(buffer, dpi=100, metadata={"Software": None})
    plt.close(figure)
    image = Image.open(buffer).convert("RGB").quantize(256, dither=Image.Dither.FLOYDSTEINBERG)
    image.save(Path(folder) / name, optimize=True)


def label(axes, x, y, text, colour="white", size=10, **more):
    axes.text(x, y, text, color=colour, fontsize=size, ha="center", va="center",
              bbox={"facecolor": INK, "edgecolor": "none", "alpha": 0.75, "pad": 1.5}, **more)


def bare(axes, title=None):
    axes.set_xticks([])
    axes.set_yticks([])
    if title:
        axes.set_title(title, fontsize=11)


def draw_circles(tools, folder):
    lenses = [picture(path) for path in tools.pair("lens")]
    figure, panels = plt.subplots(1, 2, figsize=(10, 5.25), layout="constrained")
    for lens, (axes, image) in enumerate(zip(panels, lenses), start=1):
        colour = LENS1 if lens == 1 else LENS2
        axes.imshow(image, alpha=0.75)
        for degrees in (30, 60, 90):
            radius = RADIUS * degrees / 90
            axes.add_patch(Circle((CENTRE, CENTRE), radius, fill=False, color=colour, lw=2.5 if degrees == 90 else 1.2,
                                  ls="-" if degrees == 90 else "--"))
            shown = degrees if lens == 1 else 180 - degrees
            away = radius / math.sqrt(2)
            label(axes, CENTRE + away, CENTRE - away, rf"$\varphi$ = {shown}°", colour)
        for degrees in (0, 90, 180, 270):
            psi = math.radians(degrees)
            side = 1 if lens == 1 else -1
            x = CENTRE + side * math.cos(psi) * RADIUS * 0.8
            y = CENTRE + math.sin(psi) * RADIUS * 0.8
            label(axes, x, y, rf"$\psi$ = {degrees if degrees < 270 else -90}°")
        axes.plot(CENTRE, CENTRE, "+", color=colour, ms=16, mew=3)
        axes.annotate("", (CENTRE, CENTRE + RADIUS), (CENTRE, CENTRE), arrowprops={"arrowstyle": "->", "color": colour,
                                                                                   "lw": 2})
        label(axes, CENTRE, CENTRE + RADIUS * 0.42, "r = 675", colour)
        rows = "rows 0 to H - 1" if lens == 1 else "rows H to 2H - 1"
        bare(axes, f"Lens {lens}: {rows} of the source")
    save(figure, folder, "circles.png")


def draw_sources(tools, folder):
    pair = tools.pair("lens")
    panorama = tools.stitch(pair, "panorama.jpg")
    points = {"A": (720, 120), "B": (720, 240), "C": (1080, 300), "D": (240, 330), "E": (360, 480), "F": (960, 600)}
    figure = plt.figure(figsize=(10, 9.6), layout="constrained")
    panels = figure.subplot_mosaic("PP;12", height_ratios=(1, 1))
    axes = panels["P"]
    axes.imshow(panorama, alpha=0.75)
    axes.axhline(PANORAMA[1] / 2, color="white", lw=2)
    label(axes, 110, 20, "from lens 1", LENS1, 12)
    label(axes, 110, PANORAMA[1] - 22, "from lens 2", LENS2, 12)
    bare(axes, "Panorama, all angles 0: column x is the longitude, row y the angle from the top")
    for lens in (1, 2):
        panels[str(lens)].imshow(picture(pair[lens - 1]), alpha=0.75)
        panels[str(lens)].add_patch(Circle((CENTRE, CENTRE), RADIUS, fill=False, color=LENS1 if lens == 1 else LENS2,
                                           lw=2))
        bare(panels[str(lens)], f"Lens {lens}")
    for name, (x, y) in points.items():
        lens, u, v = source(x, y)
        colour = LENS1 if lens == 1 else LENS2
        for where, at in ((axes, (x, y)), (panels[str(lens)], (u, v))):
            where.plot(*at, "o", mec=INK, mfc=colour, ms=17)
            where.text(*at, name, ha="center", va="center_baseline", fontsize=11, weight="bold", color=INK)
    save(figure, folder, "sources.png")


def draw_angles(tools, folder):
    pair = tools.pair("lens")
    settings = [("angle 0", 0, []), ("angle 90", 90, ["--tilt", "90"]), ("angle 30", 30, ["--tilt", "30"]),
                ("angle 0, angle1 30: only lens 1's half moves", 0, ["--turn1", "30"])]
    figure, panels = plt.subplots(2, 2, figsize=(10, 5.6), layout="constrained")
    x, y = np.meshgrid(np.arange(0, PANORAMA[0], 4), np.arange(0, PANORAMA[1], 4))
    for axes, (title, angle, options) in zip(panels.flat, settings):
        axes.imshow(tools.stitch(pair, "angles.jpg", *options), alpha=0.8)
        qz = rotated(x, y, angle)[2]
        axes.contour(x, y, qz, levels=[0], colors="white", linewidths=2.5)
        for lens in (1, 2):
            row, column = np.unravel_index(np.argmax(qz if lens == 1 else -qz), qz.shape)
            at = (min(max(column * 4, 90), PANORAMA[0] - 90), min(max(row * 4, 45), PANORAMA[1] - 45))
            label(axes, *at, f"lens {lens}", LENS1 if lens == 1 else LENS2, 12)
        axes.set_xlim(0, PANORAMA[0])
        axes.set_ylim(PANORAMA[1], 0)
        bare(axes, title)
    save(figure, folder, "angles.png")


def looked(yaw=0, pitch=0, roll=0):
    """The turned panorama's points on the unit sphere, as they stand where the look is not turned."""
    x, y = np.meshgrid(np.arange(0, PANORAMA[0], 4), np.arange(0, PANORAMA[1], 4))
    longitude = x * 2 * math.pi / PANORAMA[0] - math.pi
    colatitude = y * math.pi / PANORAMA[1]
    p = np.sin(colatitude) * np.cos(longitude), np.sin(colatitude) * np.sin(longitude), np.cos(colatitude)

    def turn(a, b, degrees):
        c, s = math.cos(math.radians(degrees)), math.sin(math.radians(degrees))
        return c * a - s * b, s * a + c * b

    level_y, level_z = turn(p[1], p[2], roll)
    flat_x, upright = turn(p[0], level_z, pitch)
    return (x, y), (*turn(flat_x, level_y, yaw), upright)


def draw_views(tools, folder):
    pair = tools.pair("upright", "--angle", "90")
    settings = [("angle 90", {}), ("yaw 45: the look goes to the right", {"yaw": 45}),
                ("pitch 30: up", {"pitch": 30}), ("roll 20: the horizon turns clockwise", {"roll": 20})]
    figure, panels = plt.subplots(2, 2, figsize=(10, 5.6), layout="constrained")
    for axes, (title, view) in zip(panels.flat, settings):
        options = [part for name, degrees in view.items() for part in (f"--{name}", str(degrees))]
        axes.imshow(tools.stitch(pair, "view.jpg", "--tilt", "90", *options), alpha=0.8)
        (x, y), seen = looked(**view)
        axes.contour(x, y, seen[2], levels=[0], colors=LENS1, linewidths=2.5)
        axes.plot(PANORAMA[0] / 2, PANORAMA[1] / 2, "+", color="white", ms=22, mew=3)
        axes.set_xlim(0, PANORAMA[0])
        axes.set_ylim(PANORAMA[1], 0)
        bare(axes, title)
    save(figure, folder, "views.png")


def draw_feather(tools, folder):
    pair = tools.pair("unequal", "--factor", "1.35", "--turn2", "2", "--scene", "tests/data/apollo17.png")
    matched = ["--turn2", "2", "--gain2", "0.74,0.74,0.74"]
    settings = [("feather 0: lens 2, below, is brighter by a factor of 1.35 and turned by 2°", ["--feather", "0"]),
                ("feather 4: both lenses are mixed between the arrows", ["--feather", "4"]),
                ("turn2 2, gain2 0.74 0.74 0.74 and feather 1.5", [*matched, "--feather", "1.5"])]
    rows, columns = slice(PANORAMA[1] // 2 - 36, PANORAMA[1] // 2 + 36), slice(0, 576)
    figure, panels = plt.subplots(3, 1, figsize=(10, 4.8), layout="constrained")
    for axes, (title, options) in zip(panels, settings):
        axes.imshow(tools.stitch(pair, "feather.jpg", *options)[rows, columns], interpolation="bilinear")
        width = float(options[-1]) * PANORAMA[1] / 180
        for side in (-1, 1):
            for edge, away in ((-12, "left"), (columns.stop + 11, "right")):
                axes.annotate("", (-1 if away == "left" else columns.stop, 36 + side * width), (edge, 36 + side * width),
                              arrowprops={"arrowstyle": "-|>", "color": INK}, annotation_clip=False)
        bare(axes, title)
    save(figure, folder, "feather.png")


def strip(path, columns=2880, rows=72):
    """A band picture: a dark strip that says where it begins."""
    figure = plt.figure(figsize=(columns / 100, rows / 100), facecolor="#20304a")
    axes = figure.add_axes((0, 0, 1, 1))
    axes.axis("off")
    axes.set_xlim(0, 360)
    axes.set_ylim(0, 1)
    for degrees in range(15, 360, 30):
        half = "left half" if degrees < 180 else "right half"
        axes.text(degrees, 0.48, f"{half} {degrees}°", color="white", fontsize=20, ha="center", va="center")
    figure.savefig(path, dpi=100)
    plt.close(figure)


def draw_seam(tools, folder):
    pair = tools.pair("unlike", "--difference=-24,8,-6")
    band = str(tools.folder / "band.png")
    strip(band)
    rows = slice(PANORAMA[1] // 2 - 80, PANORAMA[1] // 2 + 80)
    settings = [("Lens 2 is darker and bluer: the seam shows", []),
                ("y2 u2 v2 = 24 -8 6: the planes of lens 2 meet those of lens 1", ["--correct2=24,-8,6"]),
                ("With a band picture over the seam", ["--correct2=24,-8,6", "--band", band])]
    figure, panels = plt.subplots(3, 1, figsize=(10, 4.6), layout="constrained")
    for axes, (title, options) in zip(panels, settings):
        axes.imshow(tools.stitch(pair, "seam.jpg", "--feather", "0", *options)[rows])
        bare(axes, title)
    save(figure, folder, "seam.png")


def draw_band(folder):
    figure, axes = plt.subplots(figsize=(10, 4.2), layout="constrained")
    axes.set_xlim(-0.4, 10.4)
    axes.set_ylim(5.4, -0.6)
    axes.axis("off")
    left, right, edge = "#4f7fbf", "#bf8f4f", "#888888"

    def box(x, y, width, height, colour, text="", size=10):
        axes.add_patch(Rectangle((x, y), width, height, facecolor=colour, edgecolor=INK, lw=1))
        axes.text(x + width / 2, y + height / 2, text, ha="center", va="center", fontsize=size, color="white")

    axes.text(1.9, -0.3, "The strip, scaled to 2W columns: R rows", ha="center", fontsize=11)
    box(0, 0.1, 1.9, 0.7, left, "left half")
    box(1.9, 0.1, 1.9, 0.7, right, "right half")
    axes.text(5.6, -0.3, "Rearranged: 2R + 6 rows", ha="center", fontsize=11)
    y = 0.1
    parts = [(2, edge, ""), (8, left, "left half"), (1, edge, ""), (1, edge, ""), (8, right, "right half"),
             (2, edge, "")]
    unit = 0.17
    row = {"0": 0, "2": 2, "R + 2": 10, "R + 4": 12, "2R + 4": 20}
    for height, colour, text in parts:
        box(4.65, y, 1.9, height * unit, colour, text)
        y += height * unit
    for text, at in row.items():
        axes.text(4.55, 0.1 + at * unit, text, ha="right", va="center", fontsize=9)
    axes.text(5.6, y + 0.55, "grey: copies of the next edge row,\nso that no pixel mixes the halves", ha="center",
              va="center", fontsize=9)
    axes.text(9.2, -0.3, "The source of a plane", ha="center", fontsize=11)
    for text, at, height, colour in (("lens 1", 0.1, 2.1, "#3f8f5f"), ("lens 2", 2.2, 2.1, "#7f4f9f"),
                                     ("band", 4.3, 0.9, "#666666")):
        box(8.25, at, 1.9, height, colour, text, 12)
    for text, at in (("0", 0.1), ("H", 2.2), ("2H", 4.3)):
        axes.text(8.15, at, text, ha="right", va="center", fontsize=9)
    for start, end in (((3.9, 0.45), (4.35, 0.45)), ((6.7, 2.6), (8.0, 4.75))):
        axes.add_patch(FancyArrowPatch(start, end, arrowstyle="-|>", mutation_scale=18, color=INK))
    save(figure, folder, "band.png")


def draw_overview(tools, folder):
    """The README's picture: a pair of lens pictures beside the panorama made of them."""
    pair = tools.pair("overview", "--scene", "tests/data/apollo17.png")
    panorama = Image.fromarray(tools.stitch(pair, "overview.jpg"))
    lenses = [Image.open(path).convert("RGB") for path in pair]
    side, gap = 250, 10
    width = 2 * side + gap
    sheet = Image.new("RGB", (2 * width + gap, side), "white")
    for column, lens in enumerate(lenses):
        sheet.paste(lens.resize((side, side), Image.LANCZOS), (column * (side + gap), 0))
    sheet.paste(panorama.resize((width, width // 2), Image.LANCZOS), (width + gap, 0))
    sheet.convert("L").save(Path(folder) / "overview.png", optimize=True)


def main():
    build, folder = sys.argv[1:]
    with tempfile.TemporaryDirectory() as work:
        tools = Tools(build, work)
        draw_overview(tools, folder)
        draw_circles(tools, folder)
        draw_sources(tools, folder)
        draw_angles(tools, folder)
        draw_views(tools, folder)
        draw_seam(tools, folder)
        draw_feather(tools, folder)
        draw_band(folder)


main()
