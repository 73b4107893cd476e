"""The jobs, each as nq360 does it and as people do it today."""

import os
from functools import partial

import quality
from files import LENSES, empty_folder, movie_pair, picture_folder, still_pair
from work import Work

# libx264's own way from fast to good; the bit rate is everybody's.
X264_PRESETS = ("ultrafast", "veryfast")

# A movie in parts, as the command's default has it, but for --exact.
IN_PARTS = ("--jobs", len(os.sched_getaffinity(0)))


def export(tools, pair, out, lens, *options):
    """As a person exports: the command's own defaults."""
    return [tools.nq360, "export", "--quiet", "--force", *pair, out, "--size", lens.size, *options]


def exact_export(tools, pair, out, lens, *options):
    """What the other tools do too: a hard seam, their encoder's usual quality, no metadata of the camera."""
    return export(tools, pair, out, lens, "--exact", *options)


def v360(lens):
    columns, rows = lens.panorama
    angles = f"ih_fov={lens.angle:.4f}:iv_fov={lens.angle:.4f}"
    return f"[0:v][1:v]hstack,v360=dfisheye:e:{angles}:w={columns}:h={rows}:interp=linear"


def default_works(tools, pair, out, lens, *options):
    """What the command's defaults cost over the plain export with these options."""
    return {
        "nq360": Work([exact_export(tools, pair, out, lens, *options)]),
        "nq360 with its defaults": Work([export(tools, pair, out, lens)]),
    }


def still_works(tools, data, width):
    lens = LENSES[width]
    pair = still_pair(tools, data, width)
    out = data / "out.jpg"
    columns, rows = lens.panorama
    project = data / f"nona{width}.pto"
    image = f"i w{width} h{width} f3 v{lens.angle:.4f} r0 y0 a0 b0 c0 d0 e0 "
    project.write_text(
        f'p f2 w{columns} h{rows} v360 n"JPEG q90"\nm i0\n{image}p90 n"{pair[0]}"\n{image}p-90 n"{pair[1]}"\n'
    )
    ffmpeg = [tools.ffmpeg, "-v", "error", "-y", "-i", pair[0], "-i", pair[1], "-filter_complex", v360(lens)]
    return {
        "nq360": Work([exact_export(tools, pair, out, lens)]),
        "ffmpeg v360": Work([[*ffmpeg, "-c:v", "mjpeg", "-q:v", 11, out]], tools.environment),
        "nona": Work([["nona", "-m", "JPEG", "-o", data / "nona-out", project]]),
    }


def movie_works(tools, data, width, frames, one_encoder):
    """one_encoder: also as NQ360_export makes it, with one encoder for all frames."""
    lens = LENSES[width]
    pair = movie_pair(tools, data, width, frames)

    def nq360(name, *options):
        out = data / f"out-{name}.mov"
        command = exact_export(tools, pair, out, lens, *options)
        return Work([command], None, out, partial(quality.of_stitcher, tools, pair, lens, out))

    def ffmpeg(name, program, decoder, encoder, environment=None):
        out = data / f"out-{name}.mov"
        inputs = [*decoder, "-i", pair[0], *decoder, "-i", pair[1], "-filter_complex", v360(lens), "-map", "0:a?"]
        outputs = ["-c:a", "pcm_s16le", *encoder, "-b:v", lens.panorama_bit_rate, out]
        command = [program, "-v", "error", "-y", *inputs, *outputs]
        return Work([command], environment, out, partial(quality.of_filter, pair, v360(lens), out))

    openh264 = ["-c:v", "libopenh264"]
    works = {"nq360": nq360("nq360", *IN_PARTS)}
    if one_encoder:
        works["nq360, one encoder"] = nq360("one-encoder")
    works["ffmpeg v360, openh264"] = ffmpeg("openh264", tools.ffmpeg, openh264, openh264, tools.environment)
    for preset in X264_PRESETS:  # the distribution's command, with its own decoder
        works[f"ffmpeg v360, x264 {preset}"] = ffmpeg(preset, "ffmpeg", [], ["-c:v", "libx264", "-preset", preset])
    return works


def describe(tools, folder, *options):
    return [tools.nq360, "analyze", "--json", *options, folder]


def describe_with_thumbnails(tools, data, folder):
    return describe(tools, folder, "--thumbnails", empty_folder(data / "thumbnails"), "--width", 320)


def thumbnail_works(tools, data, files):
    folder = picture_folder(tools, data, files)
    pictures = sorted(folder.iterdir())
    theirs = empty_folder(data / "thumbnails-theirs")
    each = []
    for picture in pictures:
        scaled = ["-frames:v", 1, "-vf", "scale=320:-2", "-update", 1, theirs / picture.name]
        each += [
            ["exiftool", "-j", picture],
            [tools.ffprobe, "-v", "error", "-show_streams", "-of", "json", picture],
            [tools.ffmpeg, "-v", "error", "-y", "-i", picture, *scaled],
        ]
    shrunk = ["vipsthumbnail", "--size", "320x", "-o", theirs / "%s.jpg", *pictures]
    return {
        "nq360": Work([describe_with_thumbnails(tools, data, folder)]),
        "vipsthumbnail, exiftool -r": Work([shrunk, ["exiftool", "-r", "-j", folder]]),
        "exiftool, ffprobe, ffmpeg": Work(each, tools.environment),
    }


def description_works(tools, data, files):
    folder = picture_folder(tools, data, files)
    return {"nq360": Work([describe(tools, folder)]), "exiftool -r": Work([["exiftool", "-r", "-j", folder]])}
