#!/usr/bin/env python3
"""Usage: check_json.py SAMPLES SCHEMAS MANUAL COMMAND...

What the kivmp4 command writes for programs, held against its schemas; its help against the manual page; and the scripts
that complete it in shells."""
import fcntl
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import jsonschema

samples, schemas, manual = (pathlib.Path(path).resolve() for path in sys.argv[1:4])
command = sys.argv[4:]
failures = []
F_SETPIPE_SZ = 1031  # of <fcntl.h>; the module has no name for it before 3.10


def run(*arguments, code=0):
    done = subprocess.run([*command, *map(os.fsencode, arguments)], capture_output=True)
    if done.returncode != code:
        failures.append(f"{arguments}: exit code {done.returncode} instead of {code}: {done.stderr.decode()}")
    return done.stdout.decode()  # fails unless it is UTF-8


def documents(text):
    decoder = json.JSONDecoder()
    at = 0
    while at < len(text):
        document, end = decoder.raw_decode(text, at)
        yield document
        at = end + len(text[end:]) - len(text[end:].lstrip())


def schema_of(document):
    name = "error" if "error" in document else document["schema"].removeprefix("kivmp4.").removesuffix("/1")
    return json.loads((schemas / f"{name}.json").read_text())


def validate(arguments, document):
    store = {"error.json": json.loads((schemas / "error.json").read_text())}
    schema = schema_of(document)
    jsonschema.Draft7Validator.check_schema(schema)
    resolver = jsonschema.RefResolver("", schema, store=store)
    for error in jsonschema.Draft7Validator(schema, resolver=resolver).iter_errors(document):
        failures.append(f"{arguments}: {'/'.join(map(str, error.path))}: {error.message}")


def check_documents(demo):
    pathlib.Path("cut.mp4").write_bytes(demo.read_bytes()[:90000])
    odd = os.fsdecode(b"odd\xff\x1b.m3d")
    shutil.copy(demo, odd)
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-i", demo, "-map", "0", "-map", "0:a", "-c", "copy",
                    "-disposition:a:1", "0", "-movflags", "faststart", "languages.mp4"], check=True)
    checksums = subprocess.run([*command, "hash", demo], capture_output=True).returncode != 8  # else the build has none
    for arguments, code, count in [
        (["info", demo, odd, "languages.mp4"], 0, 3), (["info", "cut.mp4"], 5, 1), (["info", "absent"], 3, 1),
        (["packets", demo, "--hash"], 0, 1), (["packets", "cut.mp4"], 5, 2), (["packets", demo, "--columns", "pos"], 0, 1),
        (["keys", odd], 0, 1), (["keys", demo, "--backward"], 0, 1), (["seek", demo, "2.5", "1:00:00"], 0, 1),
        (["extract", demo, "-o", "out"], 0, 1), (["extract", demo, "-o", "out"], 6, 1),
        (["hash", demo, "--algorithm", "md5"], 0, 1), (["hash", odd, "--per-unit"], 0, 1),
        (["diff", demo, "languages.mp4"], 0, 1), (["diff", demo, demo], 0, 1), (["check", demo, "absent"], 3, 1),
        (["check", "cut.mp4", "--deep"], 1, 1), (["check", "--list-rules"], 0, 1),
        (["trace", demo, "--latency", "1"], 0, 1), (["trace", odd, "--seeks", "1"], 0, 1),
        (["boxes", "cut.mp4", "--entries", "3", "--hex"], 0, 1), (["boxes", odd, "--path", "moov/*"], 0, 1),
    ]:
        if not checksums and {"hash", "--hash"} & set(arguments):
            code, count = 8, 1
        found = list(documents(run("--json", *map(str, arguments), code=code)))
        if len(found) != count:
            failures.append(f"{arguments}: {len(found)} documents instead of {count}")
        for document in found:
            validate(arguments, document)
    # The same data in every form.
    listed = next(documents(run("--json", "packets", demo)))["packets"]
    lines = [json.loads(line) for line in run("packets", demo, "--ndjson").splitlines()]
    table = [line.split() for line in run("packets", demo).splitlines()]
    if listed != lines or [int(row[3]) for row in table[1:]] != [unit["pts"] for unit in listed]:
        failures.append("packets: the forms differ")
    # Groups of pictures make up the track; one changed byte is one unit that differs.
    keys, video = next(documents(run("--json", "keys", demo)))["keys"], next(documents(run("--json", demo)))["tracks"][0]
    if [sum(key[name] for key in keys) for name in ("gop_units", "gop_bytes")] != [video["units"], video["bytes"]]:
        failures.append(f"keys: the groups are not the {video['bytes']} bytes of the track")
    changed = bytearray(demo.read_bytes())
    changed[listed[9]["pos"] + 20] ^= 1
    pathlib.Path("changed.mp4").write_bytes(changed)
    tracks = next(documents(run("--json", "diff", demo, "changed.mp4", code=1)))["tracks"]
    if [track["different"] for track in tracks] != [int(track["index"] == listed[9]["track"]) for track in tracks]:
        failures.append(f"diff: {tracks}")
    probed = json.loads(subprocess.run(
        ["ffprobe", "-v", "error", "-ignore_editlist", "1", "-show_entries", "packet=stream_index,pts_time,dts_time,pos",
         "-of", "json", demo], capture_output=True, check=True).stdout)["packets"]
    for ours, theirs in zip(listed, sorted(probed, key=lambda packet: int(packet["pos"])), strict=True):
        if (ours["pos"] != int(theirs["pos"]) or abs(ours["pts_time"] - float(theirs["pts_time"])) > 2e-5
                or abs(ours["dts_time"] - float(theirs["dts_time"])) > 2e-5):
            failures.append(f"packets: {ours}, and {theirs} by ffprobe")
            break


def check_trace():
    """What is recorded is what was read, and nobody waits less than the device takes."""
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i",
                    "testsrc2=size=640x480:rate=25:duration=4,noise=alls=60:allf=t", "-c:v", "libx264", "-preset",
                    "ultrafast", "-b:v", "4M", "-g", "25", "-movflags", "faststart", "large.mp4"], check=True)
    done = subprocess.run([*command, "--json", "--stats", "trace", "large.mp4", "--latency", "5", "--bandwidth", "4"],
                          capture_output=True, check=True)
    trace = json.loads(done.stdout)
    phases = {phase["phase"]: phase for phase in trace["phases"]}
    counted = re.search(rb"(\d+) reads, (\d+) bytes", done.stderr)
    recorded = len(trace["reads"]), sum(read["size"] for read in trace["reads"])
    by_phase = sum(phase["reads"] for phase in phases.values()), sum(phase["bytes"] for phase in phases.values())
    # The library's thread may read once more before it ends.
    if by_phase != recorded or not 0 <= int(counted[1]) - recorded[0] <= 1:
        failures.append(f"trace: {recorded} recorded, {by_phase} in phases, {counted[0]} counted")
    if any(read["took"] < 0.005 + read["size"] / 4e6 for read in trace["reads"]):
        failures.append("trace: a read is faster than the device")
    if phases["seek"]["longest_wait"] < 0.02 or not 4 <= phases["seek"]["jumps"] <= 6 or phases["wind"]["raw"] < 3:
        failures.append(f"trace: {phases}")
    units = sum(unit["size"] for unit in next(documents(run("--json", "packets", "large.mp4")))["packets"])
    if phases["play"]["delivered"] != units:
        failures.append(f"trace: {phases['play']['delivered']} bytes delivered instead of {units}")


def pixel(sheet, width, x, y):
    at = 3 * (y * width + x)
    return tuple(sheet[at:at + 3])


def check_sheet():
    """Colours of a second each stand at their places, turned as the track says; what cannot be decoded is marked."""
    colours = {"red": (254, 0, 0), "lime": (0, 255, 1), "blue": (0, 0, 254)}
    sources = [part for name in colours for part in ("-f", "lavfi", "-i", f"color={name}:size=64x32:rate=5:duration=1")]
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", *sources, "-filter_complex", "concat=n=3", "-c:v", "libx264",
                    "-g", "5", "-keyint_min", "5", "colours.mp4"], check=True)
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-i", "colours.mp4", "-c", "copy", "-metadata:s:v", "rotate=90",
                    "upright.mp4"], check=True)
    if subprocess.run([*command, "sheet", "colours.mp4", "-o", "probe.png"], capture_output=True).returncode == 8:
        return  # this build has none
    second = next(documents(run("--json", "keys", "colours.mp4")))["keys"][1]
    damaged = bytearray(pathlib.Path("colours.mp4").read_bytes())
    damaged[second["pos"] + 4:second["pos"] + second["gop_bytes"]] = bytes(second["gop_bytes"] - 4)
    pathlib.Path("damaged.mp4").write_bytes(damaged)
    gap, (caption, title, space) = (51, 51, 53), (22, 34, 10)
    for clip, arguments, width, height, wanted in [
        ("colours.mp4", ["--width", "64"], 64, 32, list(colours.values())),
        ("colours.mp4", ["--width", "40", "--columns", "2", "--every", "1.5"], 40, 20, [(254, 0, 0), (0, 0, 254)]),
        ("colours.mp4", ["--width", "64", "--max", "1"], 64, 32, [(254, 0, 0)]),
        ("upright.mp4", ["--width", "64"], 64, 128, list(colours.values())),
        ("damaged.mp4", ["--width", "64"], 64, 32, [(254, 0, 0), gap, (0, 0, 254)]),
    ]:
        run("sheet", clip, *arguments, "-o", "sheet.png", "--force")
        sheet = subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-i", "sheet.png", "-f", "rawvideo", "-pix_fmt",
                                "rgb24", "-"], capture_output=True, check=True).stdout
        whole = space + len(wanted) * (width + space)
        if len(sheet) != 3 * whole * (title + height + caption + space):
            failures.append(f"sheet of {clip} {arguments}: {len(sheet) // 3 // whole} lines of {whole}")
            continue
        for place, colour in enumerate(wanted):
            got = pixel(sheet, whole, space + place * (width + space) + width // 4, title + height // 2)
            if max(abs(a - b) for a, b in zip(got, colour)) > 6:
                failures.append(f"sheet of {clip} {arguments}: picture {place} is {got} instead of {colour}")
    run("sheet", "colours.mp4", "-o", "sheet.png", code=6)


def commands():
    return re.findall(r"^  (\w+) ", run("help").split("Subcommands:")[1], re.M)


def options(text):
    return set(re.findall(r"(?<![\w-])--?[a-zA-Z][a-z-]*", text))


def check_manual():
    page = manual.read_text().replace("\\-", "-").replace("\\fR", " ")
    sections = dict(re.findall(r"\n\.SS (\w+)\n(.*?)(?=\n\.S[SH] )", page, re.S))
    general = page.split(".SH OPTIONS")[1].split("\n.SH ")[0]
    told = {"": general, **sections}
    for name in ["", *commands()]:
        wanted = options(run("help", *([name] if name else [])).split("Options:")[1].split("Subcommands:")[0])
        if wanted - {"-h", "--help"} - options(told.get(name, "")):
            failures.append(f"the manual page lacks {sorted(wanted - options(told.get(name, '')))} of '{name}'")
    for name in sections:
        if name not in commands():
            failures.append(f"the manual page describes {name}, which is no command")


def check_completion():
    for shell, syntax in [("bash", ["bash", "-n"]), ("zsh", ["zsh", "-n"]), ("fish", ["fish", "--no-execute"])]:
        script = run("completion", shell)
        pathlib.Path(shell).write_text(script)
        for name in commands():
            if name not in script:
                failures.append(f"{shell}: {name} is not completed")
        if shutil.which(shell) and subprocess.run([*syntax, shell]).returncode:
            failures.append(f"{shell}: the script is wrong")
    words = subprocess.run(["bash", "-c", "source ./bash; COMP_WORDS=(kivmp4 extract --fo); COMP_CWORD=2; _kivmp4; "
                            'echo "${COMPREPLY[@]}"'], capture_output=True).stdout
    if words.split() != [b"--format", b"--force"]:
        failures.append(f"bash completes --fo to {words}")


def check_interrupt(demo):
    """Whoever interrupts an extraction finds no half of a file."""
    os.mkdir("half")
    os.mkfifo("half/track1.aac")
    reader = os.open("half/track1.aac", os.O_RDWR)
    fcntl.fcntl(reader, F_SETPIPE_SZ, 4096)  # the command waits when it is full
    with subprocess.Popen([*command, "extract", demo, "-o", "half"]) as waiting:
        for _ in range(200):
            if pathlib.Path("half/track0.h264.part").exists():
                break
            time.sleep(0.05)
        waiting.send_signal(signal.SIGINT)
        code = waiting.wait(timeout=60)
    os.close(reader)
    left = sorted(path.name for path in pathlib.Path("half").iterdir())
    if code != -signal.SIGINT or left != ["track1.aac"]:
        failures.append(f"interrupted: exit code {code}, files {left}")


def main():
    demo = samples / "demo.mp4"
    with tempfile.TemporaryDirectory() as directory:
        os.chdir(directory)
        check_documents(demo)
        check_trace()
        check_sheet()
        check_manual()
        check_completion()
        check_interrupt(demo)
        os.chdir("/")
    print("\n".join(failures))
    sys.exit(bool(failures))


main()
