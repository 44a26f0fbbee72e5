"""Sources that fail, damaged files, several files and threads at once, and files that nobody closes."""
import errno
import gc
import io
import os
import pickle
import subprocess
import sys
import threading
import time

import pytest
from conftest import ROOT

import kivmp4


def play(source, **options):
    with kivmp4.open(source, **options) as f:
        return list(f)


def threads():
    return len(os.listdir("/proc/self/task"))


def wait_until(condition):
    end = time.monotonic() + 30
    while not condition():
        assert time.monotonic() < end, "waited 30 seconds"
        time.sleep(0.001)


class Source(io.BytesIO):
    """Calls `act` at the read of that number, counted from 0, and answers what it answers."""

    def __init__(self, data, number, act):
        super().__init__(data)
        self.number, self.act, self.readers = number, act, set()

    def read(self, size=-1):
        self.readers.add(threading.get_ident())
        self.number -= 1
        return self.act() if self.number < 0 else super().read(size)


def test_what_is_not_an_mp4_file(clips):
    data = clips["demo.mp4"].read_bytes()
    head = data.index(b"moov")
    noise = bytes(i * i * 7919 >> 5 & 255 for i in range(100000))
    for name, content in [("empty", b""), ("a letter", b"x"), ("text", b"Not a film. " * 5000), ("noise", noise),
                          ("zeros", bytes(300000)), ("cut tables", data[:head + 400])]:
        with pytest.raises(kivmp4.MediaError, match=f"^{name}: "):
            play(content, name=name)
    with pytest.raises(kivmp4.MediaError, match="^film.mpd: refused"):
        play(data, name="film.mpd")
    with pytest.raises(kivmp4.MediaError, match="heap is too small"):
        play(data, heap_size=1000)
    with pytest.raises(kivmp4.MediaError):
        play(data, heap_size=100000)


def test_a_cut_file_delivers_what_is_there(clips):
    data = clips["large.mp4"].read_bytes()
    whole = play(data)
    with kivmp4.open(data[:len(data) // 2], name="cut.mp4") as f:
        units = f.units()
        got = [next(units) for _ in range(3)]
        with pytest.raises(kivmp4.MediaError, match="^cut.mp4: stopped at track") as caught:
            got.extend(units)
            got.extend(units)
        got.extend(units)
        assert caught.value.track in (0, 1)
        with pytest.raises(kivmp4.MediaError):
            f.read()
        f.rewind()
        assert f.read() == whole[0]


def test_every_seed_of_the_fuzzers_ends_in_units_or_an_error():
    seeds = sorted((ROOT / "fuzz" / "seeds").iterdir())
    played = 0
    for seed in seeds:
        try:
            with kivmp4.open(seed.read_bytes(), name=seed.name) as f:
                for unit in f.units(copy=False):
                    played += len(bytes(unit.payload)) > 0
                f.rewind()
                for backward in (False, True):
                    played += sum(1 for _ in f.key_frames(backward))
                f.seek(0.1)
        except kivmp4.Error as error:
            assert str(error).startswith(seed.name + ": ")
    assert len(seeds) > 50 and played > 50


def test_a_path_that_cannot_be_opened(tmp_path):
    for path, number in [(tmp_path / "missing.mp4", errno.ENOENT), (tmp_path, errno.EISDIR)]:
        with pytest.raises(kivmp4.SourceError, match=path.name) as caught:
            kivmp4.open(path)
        assert caught.value.errno == number and isinstance(caught.value, OSError)
        again = pickle.loads(pickle.dumps(caught.value))
        assert str(again) == str(caught.value) and again.filename == str(path)


def test_a_source_that_fails(clips):
    data = clips["large.mp4"].read_bytes()

    def raise_it():
        raise ZeroDivisionError("broken disk")

    whole = len(play(data))
    cases = {"raises": (raise_it, ZeroDivisionError), "ends": (lambda: b"", EOFError),
             "text": (lambda: "text", Exception), "too much": (lambda: bytes(1 << 20), EOFError)}
    for what, (act, cause) in cases.items():
        for number in (0, 1, 4, 7):
            got = []
            with pytest.raises(kivmp4.SourceError, match="^bad.mp4: ") as caught:
                with kivmp4.open(Source(data, number, act), name="bad.mp4") as f:
                    got.extend(f)
            assert isinstance(caught.value.__cause__, cause), (what, number)
            assert len(got) < whole
    with kivmp4.open(Source(data, 6, raise_it)) as f:
        for _ in range(3):  # what has failed stays so
            with pytest.raises(kivmp4.SourceError):
                list(f)
    with pytest.raises(KeyboardInterrupt):
        play(Source(data, 4, interrupt))
    early = io.BytesIO(data)
    with kivmp4.open(early, name="early.mp4") as f:
        early.close()
        with pytest.raises(kivmp4.SourceError, match="early.mp4: .*closed"):
            list(f)
    with pytest.raises(kivmp4.SourceError):
        play(early)
    with pytest.raises(TypeError):
        kivmp4.open(17)


def interrupt():
    raise KeyboardInterrupt


def test_use_after_closing(clips):
    before = threads()
    f = kivmp4.open(clips["demo.mp4"])
    units, keys = f.units(), f.key_frames()
    next(units), next(keys)
    assert not f.closed and threads() == before + 1
    f.close()
    f.close()
    assert f.closed and threads() == before
    for use in (f.read, f.rewind, lambda: next(units), lambda: next(keys), lambda: f.seek(1), lambda: f.enable(0)):
        with pytest.raises(kivmp4.ClosedError, match="demo.mp4"):
            use()


def test_a_forgotten_file_closes(clips):
    before = threads()
    f = kivmp4.open(clips["demo.mp4"])
    units = f.units(copy=False)
    view = next(units).payload
    content = bytes(view)
    del f, units
    assert threads() == before
    assert bytes(view) == content


def test_a_file_may_be_collected_on_the_librarys_own_thread(clips):
    """Closing waits for that thread, so it must not happen there."""
    before, main = threads(), threading.get_ident()
    waiting, go = threading.Event(), threading.Event()
    f = None

    class Slow(io.BytesIO):
        def read(self, size=-1):
            if f is not None and threading.get_ident() != main:
                waiting.set()
                assert go.wait(30)
                gc.collect()
            return super().read(size)

    # Many small units, so that the library reads ahead of what is delivered.
    f = kivmp4.open(Slow(clips["surround.m4a"].read_bytes()))
    while not waiting.wait(0.01):  # time to get ahead
        assert f.read() is not None
    f.itself = f
    gc.disable()
    try:
        f = True
        go.set()
        wait_until(lambda: threads() == before)
    finally:
        gc.enable()


def test_files_at_once(clips):
    names = ["demo.mp4", "reordered.mp4", "visual.mp4"]
    alone = [play(clips[name]) for name in names]
    files = [kivmp4.open(clips[name]) for name in names]
    together = [[], [], []]
    for _ in range(max(map(len, alone))):
        for f, units in zip(files, together):
            units.extend(filter(None, [f.read()]))
    assert together == alone
    for f in files:
        f.close()

    failures = []

    def repeat(name, expected):
        try:
            for _ in range(20):
                assert play(clips[name]) == expected
        except BaseException as error:
            failures.append(error)

    workers = [threading.Thread(target=repeat, args=pair) for pair in zip(names, alone)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    assert not failures


def test_one_file_in_several_threads(clips):
    expected = play(clips["demo.mp4"])
    got = []
    source = Source(clips["demo.mp4"].read_bytes(), 10 ** 9, None)
    with kivmp4.open(source) as f:
        def take():
            while True:
                unit = f.read()
                if unit is None:
                    return
                got.append(unit)
        workers = [threading.Thread(target=take) for _ in range(3)]
        for worker in workers:
            worker.start()
        for worker in workers:
            worker.join()
    assert len(got) == len(expected)
    assert {(u.track.index, u.dts, u.payload) for u in got} == {(u.track.index, u.dts, u.payload) for u in expected}
    assert source.readers - {threading.get_ident()} - {worker.ident for worker in workers}  # the library's own thread


def test_close_ends_a_call_that_waits_for_the_source(clips):
    asked = threading.Event()
    source = Source(clips["large.mp4"].read_bytes(), 5, lambda: asked.set())  # nothing yet, for ever
    f = kivmp4.open(source, name="slow.mp4")
    ended = []

    def take():
        try:
            list(f)
        except kivmp4.Error as error:
            ended.append(error)

    worker = threading.Thread(target=take)
    worker.start()
    assert asked.wait(30)
    f.close()
    worker.join(30)
    assert [type(error) for error in ended] == [kivmp4.ClosedError]


def test_a_source_cannot_use_its_own_file(clips):
    for use in (lambda: f.read(), lambda: f.close()):
        f = kivmp4.open(Source(clips["large.mp4"].read_bytes(), 6, use))
        with pytest.raises(kivmp4.SourceError, match="from within its own"):
            list(f)
        f.close()


def test_a_child_process_leaves_its_parents_file_alone(clips):
    with kivmp4.open(clips["demo.mp4"]) as f:
        first = f.read()
        child = os.fork()
        if child == 0:
            try:
                f.read()
            except kivmp4.ClosedError:
                f.close()
                os._exit(0 if play(clips["demo.mp4"])[0] == first else 2)
            os._exit(1)
        assert os.waitpid(child, 0)[1] == 0
        assert len(list(f)) == 432


def test_a_program_may_end_with_files_open(clips):
    program = """
import atexit, sys, threading
atexit.register(lambda: print(f.closed, g.closed))  # after what is registered later
sys.path.insert(0, sys.argv[1])
import kivmp4
f = kivmp4.open(open(sys.argv[2], "rb"))
g = kivmp4.open(sys.argv[2])
units, keys = f.units(copy=False), g.key_frames()
next(units), next(keys)
def forever():
    h = kivmp4.open(sys.argv[2])
    opened.set()
    try:
        while True:
            for unit in h: pass
            h.rewind()
    except kivmp4.ClosedError:  # the end of the program closes it
        pass
opened = threading.Event()
threading.Thread(target=forever, daemon=True).start()
opened.wait()
for _ in range(1000): next(g.units()); g.rewind()
print("end")
"""
    run = subprocess.run([sys.executable, "-c", program, str(ROOT / "python"), str(clips["large.mp4"])], timeout=60,
                         capture_output=True, text=True)
    assert (run.returncode, run.stdout, run.stderr) == (0, "end\nTrue True\n", "")
