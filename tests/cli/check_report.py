#!/usr/bin/env python3
"""Usage: check_report.py SAMPLES BROWSER COMMAND...

The pages of kivmp4 report: well-formed, readable without network, their values those of the sample tables, and what is wrong
with a file said in them. BROWSER is chromium, or empty where there is none; it runs the script of the page."""
import html.parser
import json
import os
import pathlib
import re
import struct
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as xml

samples, browser, command = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2], sys.argv[3:]
failures = []
PICTURES = ["bytes", "map", "closeup", "distance", "rate", "sizes", "groups", "reading"]
VOID = {"meta", "br", "img", "link", "input", "hr"}


def expect(condition, *what):
    if not condition:
        failures.append(" ".join(map(str, what)))


def run(*arguments, code=0):
    done = subprocess.run([*command, *arguments], capture_output=True, text=True)
    expect(done.returncode == code, arguments, "ends with", done.returncode, "instead of", code, done.stderr)
    return done.stdout


class Page(html.parser.HTMLParser):
    """What stands in which section, and whether every element is closed in its turn."""

    def __init__(self, name, text):
        super().__init__()
        self.name, self.stack, self.ids, self.section = name, [], [], "head"
        self.texts, self.tags = {}, set()
        self.feed(text)
        expect(not self.stack, name, "leaves open", self.stack)
        expect(len(text) < 1 << 20, name, "has", len(text), "bytes")
        self.plots = {}
        for ident, body in re.findall(r'<section id="(\w+)">(.*?)</section>', text, re.S):
            self.plots[ident] = [xml.fromstring(svg) for svg in re.findall(r"<figure>\n(.*?)</figure>", body, re.S)]

    def handle_starttag(self, tag, attributes):
        self.tags.add(tag)
        if tag not in VOID:
            self.stack.append(tag)
        for key, value in attributes:
            expect(key not in ("src", "onerror", "onload"), self.name, tag, key, value)
            expect(key != "href" or value.startswith("#"), self.name, "links to", value)
            if key == "id" and tag == "section":
                self.section = value
                self.ids.append(value)

    def handle_startendtag(self, tag, attributes):
        self.tags.add(tag)

    def handle_endtag(self, tag):
        expect(self.stack and self.stack.pop() == tag, self.name, "closes", tag, "at", self.getpos())

    def handle_data(self, data):
        if self.stack and self.stack[-1] == "style":
            expect("url(" not in data and "@import" not in data, self.name, "loads a style")
        self.texts[self.section] = self.texts.get(self.section, "") + data

    def says(self, section, text):
        expect(text in self.texts.get(section, ""), f"{self.name}: #{section} does not say {text!r}:",
               self.texts.get(section, "nothing")[:400])


def report(file, *arguments, pictures=PICTURES):
    run("report", file, *arguments, "-o", "page.html", "--force")
    page = Page(file, pathlib.Path("page.html").read_text())
    expect([each for each in page.ids if each in PICTURES] == pictures, file, "shows", page.ids)
    expect({"remarks", "tracks", "findings", "boxes"} <= set(page.ids), file, "has sections", page.ids)
    return page


def values(plot, number=0):
    series = [path for path in plot.iter("path") if "data-v" in path.attrib][number]
    return [float(value) for value in series.attrib["data-v"].split(",")]


def strokes(plot, colour):
    return [len(re.findall("M", path.attrib["d"])) for path in plot.iter("path") if colour in path.attrib["class"].split()]


def check_values(demo):
    page = report(demo)
    units = json.loads(run("packets", demo, "--json"))["packets"]
    info = json.loads(run("info", demo, "--json"))
    for track in (0, 1):
        own = [unit for unit in units if unit["track"] == track]
        bits = sum(values(page.plots["rate"][track]))  # a step each second
        more = 8 * sum(unit["size"] for unit in own) - bits
        # Parameter sets stand in front of the first unit that is delivered, and not among the samples.
        expect(0 < more < 400 if track == 0 else abs(more) < 1, demo, "track", track, "has", bits, "bits, not", bits + more)
        lowest = min(value for value in values(page.plots["map"][0], track) if value >= 0)
        expect(lowest == min(unit["pos"] for unit in own), demo, "track", track, "starts at", lowest)
    others = [unit["size"] for unit in units if unit["track"] == 0 and "K" not in unit["flags"]]
    expect(max(values(page.plots["sizes"][0])) == max(others), demo, "largest picture between key frames")
    expect(strokes(page.plots["sizes"][0], "dots") == [6], demo, "dots", strokes(page.plots["sizes"][0], "dots"))
    expect(strokes(page.plots["groups"][0], "stroke") == [6], demo, "key frames in groups")
    expect(max(values(page.plots["groups"][0])) == 1, demo, "longest group")
    widest = max(max(values(page.plots["distance"][0], track)) for track in (0, 1))
    expect(widest == info["interleave"]["max_distance"], demo, "is", widest, "apart instead of", info["interleave"])
    for plot in page.plots["reading"]:
        title = next(text.text for text in plot.iter("text") if "in 0." in text.text)
        reads = int(re.search(r": (\d+) read", title).group(1))
        drawn = sum(strokes(plot, "stroke"))
        expect(drawn <= reads and (drawn > 0) == (reads > 0), demo, title, "but draws", drawn)
    expect(len(page.plots["reading"]) == 4, demo, "has phases", len(page.plots["reading"]))
    page.says("remarks", "Nothing.")
    page.says("findings", "Nothing.")
    page.says("tracks", "H.264 High, 320x180")
    page.says("boxes", "stco at 0x")
    page.says("distance", "well interleaved")


def boxes(data, start, end, path):
    while start + 8 <= end:
        size, kind = struct.unpack_from(">I4s", data, start)
        if kind == path[0]:
            if len(path) == 1:
                yield start, size
            else:
                yield from boxes(data, start + 8, start + size, path[1:])
        start += size


def pull_apart(source, destination):
    """All chunks of the first track, then all of the second one."""
    data = bytearray(source.read_bytes())
    (media, _), = boxes(data, 0, len(data), [b"mdat"])
    moved, places = bytearray(), []
    for start, size in boxes(data, 0, len(data), [b"moov", b"trak", b"mdia", b"minf", b"stbl"]):
        chunks, groups, sizes = (next(boxes(data, start + 8, start + size, [kind]))[0] + 12
                                 for kind in (b"stco", b"stsc", b"stsz"))
        entries = [struct.unpack_from(">2I", data, groups + 4 + 12 * i) for i in range(*struct.unpack_from(">I", data, groups))]
        sample = 0
        for chunk in range(*struct.unpack_from(">I", data, chunks)):
            count = [per for first, per in entries if first <= chunk + 1][-1]
            length = sum(struct.unpack_from(f">{count}I", data, sizes + 8 + 4 * sample))
            sample += count
            at, = struct.unpack_from(">I", data, chunks + 4 + 4 * chunk)
            places.append((chunks + 4 + 4 * chunk, media + 8 + len(moved)))
            moved += data[at:at + length]
    for at, place in places:
        struct.pack_into(">I", data, at, place)
    data[media + 8:media + 8 + len(moved)] = moved
    destination.write_bytes(data)


def check_badly_laid_out(demo):
    film = pathlib.Path("film.mp4")
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i", "testsrc2=size=320x240:rate=25", "-f", "lavfi",
                    "-i", "sine=frequency=440:sample_rate=48000", "-t", "20", "-c:v", "libx264", "-threads", "1", "-g", "1000",
                    "-b:v", "400k", "-c:a", "aac", "-movflags", "faststart", film], check=True)
    pull_apart(film, pathlib.Path("apart.mp4"))
    page = report("apart.mp4")
    page.says("remarks", "samples due together")
    page.says("distance", "more than the library holds")
    expect(strokes(page.plots["distance"][0], "warn")[0] > 100, "apart.mp4: few marks")
    page.says("groups", "one key frame only")
    expect(strokes(report(film).plots["distance"][0], "warn") == [0], film, "has marks without need")
    # A second language, which ffmpeg marks as disabled, between the units that are played.
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-i", demo, "-map", "0", "-map", "0:a", "-c", "copy", "-disposition:a:1", "0",
                    "-movflags", "faststart", "two.mp4"], check=True)
    page = report("two.mp4")
    page.says("remarks", "belongs to 1 track that is not played")
    page.says("remarks", "-map 0:0 -map 0:1 -c copy")
    page.says("closeup", "not played (1 track)")
    page.says("tracks", "disabled")


def check_broken(demo):
    pathlib.Path("cut.mp4").write_bytes(demo.read_bytes()[:90000])
    page = report("cut.mp4")
    page.says("remarks", "more than the file has")
    page.says("reading", "The file cannot be played")
    pathlib.Path("text.mp4").write_text("no film at all")
    page = report("text.mp4", pictures=[])
    page.says("remarks", "The library does not open this file")
    page.says("findings", "not-mp4")


def check_names(demo):
    name = "<img src=x onerror=alert(1)>&\"'\x1b.mp4"
    pathlib.Path(name).write_bytes(demo.read_bytes()[:90000])
    for page in (report(name), report(demo, "--title", name)):
        page.says("head", "<img src=x onerror=alert(1)>&\"'\\x1b.mp4")
        expect("img" not in page.tags, "a name becomes an element")


def check_files(demo):
    run("report", demo, "-o", "page.html", code=6)
    run("report", demo, "-o", "new.html", "--svg-dir", "pictures")
    expect("<svg" in run("report", demo, "-o", "-"), "nothing on standard output")
    page = Page("new.html", pathlib.Path("new.html").read_text())
    files = sorted(pathlib.Path("pictures").glob("*.svg"))
    expect(len(files) == sum(map(len, page.plots.values())) == 12, "pictures are", files)
    for file in files:
        expect(xml.parse(file).getroot().tag == "{http://www.w3.org/2000/svg}svg", file, "is no SVG")


def check_script():
    """Points at the middle of each picture, as a reader does."""
    text = pathlib.Path("new.html").read_text()
    probe = """<script>window.onerror = message => document.body.append("FAILED " + message);</script>"""
    point = """<script>for (const plot of document.querySelectorAll("svg.plot")) { const box = plot.getBoundingClientRect();
      plot.dispatchEvent(new PointerEvent("pointermove", { clientX: box.left + box.width / 2, clientY: box.top + 5 })); }
      </script>"""
    pathlib.Path("probe.html").write_text(text.replace("<header>", probe + "<header>").replace("</body>", point + "</body>"))
    done = subprocess.run([browser, "--headless=new", "--no-sandbox", "--disable-gpu", "--window-size=1000,800",
                           "--user-data-dir=" + str(pathlib.Path("profile").resolve()), "--dump-dom",
                           "file://" + str(pathlib.Path("probe.html").resolve())], capture_output=True, text=True, timeout=120)
    said = re.findall(r'<p class="hover">(.*?)</p>', done.stdout)
    expect("FAILED" not in done.stdout.split("<script>")[-1] and len(said) == 6, "the script says", said, done.stderr[-300:])
    expect(all(each.startswith("0:03.") for each in said), "the middle is", said)
    expect(any(re.search(r"#0 video \d+(\.\d+)? kb/s", each) for each in said), "no bit rate in", said)


def main():
    demo = samples / "demo.mp4"
    check_values(demo)
    check_badly_laid_out(demo)
    check_broken(demo)
    check_names(demo)
    check_files(demo)
    if browser:
        check_script()


with tempfile.TemporaryDirectory() as directory:
    os.chdir(directory)
    main()
    os.chdir("/")
for failure in failures:
    print(failure)
sys.exit(bool(failures))
