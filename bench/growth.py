"""How time and memory grow with the panorama, the frames and the files."""

from files import FOLDER_WIDTH, movie_pair, picture_folder, still_pair
from opponents import describe_with_thumbnails
from work import run

# A movie of this length; shorter exports are cut from it.
SECONDS = 60


def export_of_seconds(tools, data, seconds):
    """What so many seconds of a movie take, to a small panorama."""
    pair = movie_pair(tools, data, 1440, 30 * SECONDS)
    out = data / "out.mov"
    command = [tools.nq360, "export", "--quiet", "--force", *pair, out, "--size", "1024x512", "--end", seconds]
    return run([command])


def curves(tools, data):
    """Lists of (size, seconds, MiB) by what grows."""
    found = {"output megapixels": [], "frames": [], "files": []}
    pair = still_pair(tools, data, FOLDER_WIDTH)
    for columns in (1024, 2048, 4096, 6144, 7680, 8192, 10240, 12288):
        size = f"{columns}x{columns // 2}"
        command = [tools.nq360, "export", "--quiet", "--force", *pair, data / "out.jpg", "--size", size, "--exact"]
        took = [run([command]) for _ in range(3)]
        seconds, peak = min(usage.seconds for usage in took), max(usage.peak for usage in took)
        found["output megapixels"].append((columns * columns / 2e6, seconds, peak))
    for seconds in (10, 20, 40, SECONDS):
        usage = export_of_seconds(tools, data, seconds)
        found["frames"].append((seconds * 30, usage.seconds, usage.peak))
    for files in (25, 50, 100, 200):
        usage = run([describe_with_thumbnails(tools, data, picture_folder(tools, data, files))])
        found["files"].append((files, usage.seconds, usage.peak))
    for what, points in found.items():
        for size, seconds, peak in points:
            print(f"{what:20} {size:8.1f} {seconds:8.2f} s {peak:7.0f} MiB  {size / seconds:8.1f} a second", flush=True)
    shortest, longest = found["frames"][0], found["frames"][-1]
    print(f"memory of {SECONDS} s against 10 s: {longest[2] / shortest[2]:.3f}")
    return found
