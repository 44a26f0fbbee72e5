"""Clips for the tests of the Python module: the demo and others that ffmpeg makes."""
import os
import pathlib
import subprocess
import sys

import pytest

ROOT = pathlib.Path(__file__).parents[2]
sys.path.insert(0, str(ROOT / "python"))
os.environ.setdefault("KIVMP4_LIBRARY", str(ROOT / "build" / "libkivmp4.so"))
os.environ.setdefault("KIVMP4_COMMAND", str(ROOT / "build" / "kivmp4"))

_VIDEO = "-f lavfi -i testsrc2=size=128x96:rate=25:duration=1.2"
_SOUND = "-f lavfi -i sine=frequency=440:sample_rate=44100:duration=1.2"
_NOISE = "-f lavfi -i testsrc2=size=640x480:rate=10:duration=1,noise=alls=100:allf=t"
_X264 = "-c:v libx264 -pix_fmt yuv420p -threads 1"
# name: the video's delay by an edit list in ticks, then what ffmpeg is told
_CLIPS = {
    "baseline.mp4": (0, f"{_VIDEO} {_X264} -profile:v baseline -g 12"),
    "reordered.mp4": (0, f"{_VIDEO} {_SOUND} {_X264} -bf 3 -g 10 -c:a aac"),
    "faststart.mp4": (0, f"{_VIDEO} {_SOUND} {_X264} -g 15 -c:a aac -movflags faststart"),
    "onekey.mp4": (0, f"{_VIDEO} {_X264} -g 300"),
    "allkeys.mp4": (0, f"{_VIDEO} {_SOUND} {_X264} -g 1 -c:a aac"),
    "surround.m4a": (0, f"{_SOUND.replace('1.2', '20')} -c:a aac -b:a 384k -ac 6 -ar 48000 -movflags faststart"),
    "visual.mp4": (0, f"{_VIDEO} {_SOUND} -c:v mpeg4 -g 12 -bf 0 -c:a aac"),
    "many.mp4": (0, f"{_VIDEO} {_SOUND} {_X264} -map 0 -map 0 -map 1 -map 1 -disposition:v default -disposition:a "
                    "default -g 10 -c:a aac -ar:a:1 22050"),
    "large.mp4": (0, f"{_NOISE} {_SOUND} {_X264} -preset ultrafast -qp 2 -g 5 -c:a aac -movflags faststart"),
    "delayed.mp4": (36000, f"-itsoffset 0.4 {_VIDEO} {_SOUND} {_X264} -fps_mode passthrough -bf 0 -g 10 -c:a aac"),
}
CLIPS = ["demo.mp4", *_CLIPS]


class Clips:
    """Paths by name; a clip is made when it is first asked for."""

    def __init__(self, directory):
        self._directory = directory

    def __getitem__(self, name):
        if name == "demo.mp4":
            return ROOT / "samples" / name
        path = self._directory / name
        if not path.exists():
            subprocess.run(["ffmpeg", "-nostdin", "-v", "error", *_CLIPS[name][1].split(), str(path)], check=True)
        return path

    @staticmethod
    def delay(name):
        return _CLIPS[name][0] if name in _CLIPS else 0


@pytest.fixture(scope="session")
def clips(tmp_path_factory):
    return Clips(tmp_path_factory.mktemp("clips"))
