"""What was measured, as a table and as charts."""


def table(rows):
    lines = [
        "| Job | Tool | Seconds | Peak MiB | Time against nq360 | Mbit/s | PSNR, dB |",
        "|---|---|--:|--:|--:|--:|--:|",
    ]
    for row in rows:
        quality = "| |" if row.psnr is None else f"{row.rate:.0f} | {row.psnr:.2f} |"
        lines.append(f"| {row.job} | {row.tool} | {row.seconds:.2f} | {row.peak:.0f} | {row.ratio:.2f} | {quality}")
    return "\n".join(lines) + "\n"


def _pyplot():
    """For charts that are the same in every byte for the same figures."""
    import matplotlib

    matplotlib.use("svg")
    matplotlib.rcParams["svg.hashsalt"] = "nq360"
    from matplotlib import pyplot

    return pyplot


def draw_comparison(rows, path):
    others = [row for row in rows if not row.tool.startswith("nq360")][::-1]
    figure, axes = _pyplot().subplots(figsize=(8, 0.45 * len(others) + 1.2))
    axes.barh([f"{row.job}\n{row.tool}" for row in others], [row.ratio for row in others], color="#4878a8")
    axes.axvline(1, color="black", linewidth=1)
    axes.set_xlabel("times the time of nq360")
    axes.set_xlim(0, 1.1 * max(row.ratio for row in others))
    for position, row in enumerate(others):
        axes.text(row.ratio, position, f" {row.ratio:.1f}", va="center")
    axes.tick_params(axis="y", labelsize=7)
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})


def draw_growth(curves, path):
    figure, rows = _pyplot().subplots(2, len(curves), figsize=(10, 5), sharex="col")
    for column, (what, points) in enumerate(curves.items()):
        sizes = [point[0] for point in points]
        for row, (index, unit) in enumerate(((1, "seconds"), (2, "peak MiB"))):
            axes = rows[row][column]
            axes.plot(sizes, [point[index] for point in points], "o-", color="#4878a8")
            axes.set_ylim(0, 1.1 * max(point[index] for point in points))
            axes.set_xlim(left=0)
            axes.set_ylabel(unit)
            axes.grid(alpha=0.3)
        rows[1][column].set_xlabel(what)
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})
