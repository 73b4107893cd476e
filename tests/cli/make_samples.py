"""Makes the camera-like files that the tests of the command share, unless they are there already."""
import os
import subprocess

from command import SAMPLE, SAMPLES, sample


def make(kind, name, *options):
    extension = "jpg" if kind == "still" else "mov"
    outputs = [sample(f"{name}{lens}.{extension}") for lens in (1, 2)]
    arguments = [SAMPLE, kind, *outputs, "--size", "1440", *options]
    recipe = f"{os.path.getmtime(SAMPLE)} {arguments}"
    note = sample(name + ".recipe")
    if os.path.exists(note):
        with open(note, encoding="utf-8") as file:
            if file.read() == recipe:
                return
    subprocess.run(arguments, check=True)
    with open(note, "w", encoding="utf-8") as file:
        file.write(recipe)


os.makedirs(SAMPLES, exist_ok=True)
make("still", "still")
make("still", "different", "--difference=12,-6,8")
make("still", "turned", "--orientation", "6", "--turn1", "20", "--turn2=-35", "--difference=-9,4,-5")
make("movie", "movie", "--frames", "30", "--sound", "both", "--difference=10,0,-6")
