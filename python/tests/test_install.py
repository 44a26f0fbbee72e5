"""How the module finds its library, that their records agree, and its wheel in an empty environment."""
import ctypes
import os
import pathlib
import re
import shutil
import subprocess
import sys
import textwrap

import pytest
from conftest import ROOT

import kivmp4

LIBRARY = pathlib.Path(os.environ["KIVMP4_LIBRARY"]).resolve()
OWN = kivmp4.__version__
MAJOR = int(OWN.split(".")[0])
SHOW = "import kivmp4; print(kivmp4.library_version(), len(list(kivmp4.open({clip!r}))))"


def python(program, executable=sys.executable, **environment):
    """What the program writes, or its error, in an environment that names no library by itself."""
    run = subprocess.run([executable, "-c", program], cwd="/", capture_output=True, text=True, timeout=60,
                         env={"PATH": os.environ["PATH"], **environment})
    return run.stdout.strip() if run.returncode == 0 else run.stderr.strip().splitlines()[-1]


def test_version_and_records_are_those_of_the_header(tmp_path):
    header = (ROOT / "include" / "KivMp4.h").read_text()
    assert kivmp4.__version__ == re.search(r'KIVMP4_VERSION "(.*)"', header)[1] == kivmp4.library_version()
    for name, kind in (("VIDEO_", kivmp4.Codec), ("AUDIO_", kivmp4.Codec), ("KIND_", kivmp4.Kind),
                       ("LOG_", kivmp4.LogLevel)):
        values = re.findall(rf"\bKIVMP4_{name}(\w+) = (\d+)", header)
        assert values
        for member, value in values:
            assert kind[member].value == int(value)
    assert ctypes.sizeof(kivmp4._CodecInfo) == 344 and kivmp4._ACCESS_UNIT.size == 56
    # Every field of the record, in its place.
    fields = [field[0] for field in kivmp4._CodecInfo._fields_]
    source = tmp_path / "offsets.c"
    source.write_text("#include <KivMp4.h>\n#include <stdio.h>\nint main(void) {" + "".join(
        f'printf("%d\\n", (int)offsetof(CodecInfo, {field}));' for field in fields) + "return 0; }")
    subprocess.run(["cc", "-I", str(ROOT / "include"), str(source), "-o", str(tmp_path / "offsets")], check=True)
    offsets = subprocess.run([str(tmp_path / "offsets")], check=True, capture_output=True, text=True).stdout.split()
    assert [getattr(kivmp4._CodecInfo, field).offset for field in fields] == list(map(int, offsets))


def test_the_library_is_found_and_must_fit(clips, tmp_path):
    show = SHOW.format(clip=str(clips["demo.mp4"]))
    shutil.copy(ROOT / "python" / "kivmp4.py", tmp_path)
    path = {"PYTHONPATH": str(tmp_path)}
    assert "LibraryError: KivMp4 library: cannot be loaded; set KIVMP4_LIBRARY" in python(show, **path)
    assert python(show, **path, KIVMP4_LIBRARY=str(LIBRARY)) == f"{OWN} 433"
    assert python(show, **path, LD_LIBRARY_PATH=str(LIBRARY.parent)) == f"{OWN} 433"

    later = f"{MAJOR}.99.2"
    expected = {OWN: f"{OWN} 433", later: f"{later} 433", "x": "None 433",
                f"{MAJOR + 1}.0.0": f"is version {MAJOR + 1}.0.0", "0.9.0": "is version 0.9.0"}
    for version, answer in expected.items():
        name = f"libkivmp4.so.{version}"
        shutil.copy(LIBRARY, tmp_path / name)
        assert answer in python(show, **path, KIVMP4_LIBRARY=str(tmp_path / name)), name
    newer = tmp_path / "newer"  # a module that an older library does not fit
    newer.mkdir()
    text = (tmp_path / "kivmp4.py").read_text().replace(f'__version__ = "{OWN}"', f'__version__ = "{MAJOR}.98.0"')
    (newer / "kivmp4.py").write_text(text)
    answers = {OWN: f"is version {OWN} of the library, but this module needs {MAJOR}.98.0", later: f"{later} 433"}
    for version, answer in answers.items():
        library = str(tmp_path / f"libkivmp4.so.{version}")
        assert answer in python(show, PYTHONPATH=str(newer), KIVMP4_LIBRARY=library), version
    (tmp_path / f"libkivmp4.so.{MAJOR}").symlink_to(f"libkivmp4.so.{later}")
    assert python(show, **path) == f"{later} 433"  # beside the module

    (tmp_path / "other.c").write_text("int KivMp4Create(void) { return 0; }")
    subprocess.run(["cc", "-shared", "-fPIC", "-o", "other.so", "other.c"], cwd=tmp_path, check=True)
    assert "LibraryError" in python(show, **path, KIVMP4_LIBRARY=str(tmp_path / "other.so"))
    assert "LibraryError" in python(show, **path, KIVMP4_LIBRARY="/missing.so")


def test_the_wheel_works_in_an_empty_environment(clips, tmp_path):
    left_out = shutil.ignore_patterns("build", "*.egg-info", "__pycache__")
    shutil.copytree(ROOT / "python", tmp_path / "python", ignore=left_out)
    pip = [sys.executable, "-m", "pip", "--disable-pip-version-check", "-q"]
    subprocess.run([*pip, "wheel", "--no-index", "--no-build-isolation", "--no-deps", "-w", str(tmp_path),
                    str(tmp_path / "python")], check=True)
    wheel, = tmp_path.glob("*.whl")
    assert wheel.name == f"kivmp4-{kivmp4.__version__}-py3-none-any.whl"
    subprocess.run([sys.executable, "-m", "venv", "--without-pip", str(tmp_path / "venv")], check=True)
    executable = str(tmp_path / "venv" / "bin" / "python")
    subprocess.run([*pip, "--python", executable, "install", "--no-index", "--no-deps", str(wheel)], check=True)
    show = SHOW.format(clip=str(clips["demo.mp4"])) + "; print(kivmp4.__file__)"
    where = tmp_path / "venv"
    assert re.fullmatch(rf"{OWN} 433\n{where}/.*/kivmp4.py", python(show, executable, KIVMP4_LIBRARY=str(LIBRARY)))


def test_the_examples_of_the_help_run(clips, tmp_path, monkeypatch, capsys):
    shutil.copy(clips["reordered.mp4"], tmp_path / "clip.mp4")
    monkeypatch.chdir(tmp_path)
    blocks = re.findall(r"::\n\n((?:    .*\n|\n)+)", kivmp4.__doc__)
    printed = []
    for block in blocks[:2]:
        exec(textwrap.dedent(block), names := {"kivmp4": kivmp4})
        printed.append(capsys.readouterr().out.splitlines())
    assert len(printed[0]) == 1 + 2 + 83
    assert float(printed[1][0].split()[0]) == pytest.approx(0.5, abs=0.03)
    assert names["unit"].track.kind is kivmp4.Kind.AUDIO
    with kivmp4.open("clip.mp4") as f:
        exec(textwrap.dedent(blocks[2]), {"f": f})
