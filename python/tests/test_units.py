"""What the Python module delivers of each clip, beside what ffprobe and the command tell and the file's own bytes."""
import io
import json
import os
import subprocess
import threading
import zlib

import pytest
from conftest import CLIPS

import kivmp4


def probe(path):
    """ffprobe's packets in file order and streams, times in 90 kHz ticks."""
    out = subprocess.run(["ffprobe", "-v", "error", "-ignore_editlist", "1", "-of", "json", "-show_packets",
                          "-show_streams", str(path)], check=True, capture_output=True).stdout
    probed = json.loads(out)
    for packet in probed["packets"]:
        scale = int(probed["streams"][packet["stream_index"]]["time_base"].split("/")[1])
        offset = (packet["pts"] - packet["dts"]) * 90000 // scale
        packet["dts"] = packet["dts"] * 90000 // scale
        packet["pts"] = packet["dts"] + offset
        packet["duration"] = packet["duration"] * 90000 // scale
    probed["packets"].sort(key=lambda packet: int(packet["pos"]))
    return probed


def start_codes(sample):
    """A sample of H.264 units, each after its length of 4 bytes, with start codes in place of the lengths."""
    out, position = bytearray(), 0
    while position < len(sample):
        size = int.from_bytes(sample[position:position + 4], "big")
        out += b"\0\0\0\1" + sample[position + 4:position + 4 + size]
        position += 4 + size
    return bytes(out)


@pytest.mark.parametrize("name", CLIPS)
def test_units_are_those_of_the_file(clips, name):
    path = clips[name]
    probed, data, seen = probe(path), path.read_bytes(), set()
    with kivmp4.open(path) as f:
        units = list(f.units())
    assert len(units) == len(probed["packets"])
    for number, (unit, packet) in enumerate(zip(units, probed["packets"])):
        where = f"unit {number} of {name}"
        delay = clips.delay(name) if unit.track.kind is kivmp4.Kind.VIDEO else 0
        assert unit.track.index == packet["stream_index"], where
        for field in ("pts", "dts"):  # products of single precision in the library
            assert abs(getattr(unit, field) - packet[field] - delay) <= 1, where
        assert abs(unit.duration - packet["duration"]) <= 1, where
        assert unit.is_sync == ("K" in packet["flags"]), where
        assert unit.pts_seconds == pytest.approx(unit.pts / 90000)
        sample = data[int(packet["pos"]):int(packet["pos"]) + int(packet["size"])]
        if unit.track.codec is kivmp4.Codec.H264:
            sample = start_codes(sample)
        if unit.track.index in seen or unit.track.kind is kivmp4.Kind.AUDIO:
            assert unit.payload == sample, where
        else:  # after its configuration
            assert unit.payload.endswith(sample) and len(unit.payload) > len(sample), where
        seen.add(unit.track.index)


@pytest.mark.parametrize("name", CLIPS)
def test_tracks_are_described(clips, name):
    streams = probe(clips[name])["streams"]
    with kivmp4.open(clips[name]) as f:
        tracks, duration = f.tracks, f.duration
    assert len(tracks) == len(streams)
    codecs = {"h264": kivmp4.Codec.H264, "mpeg4": kivmp4.Codec.MPEG4, "aac": kivmp4.Codec.AAC}
    for track, stream in zip(tracks, streams):
        assert track.codec is codecs[stream["codec_name"]]
        assert track.kind.name.lower() == stream["codec_type"]
        assert track.language == stream["tags"]["language"]
        if track.kind is kivmp4.Kind.VIDEO:
            assert (track.width, track.height) == (stream["width"], stream["height"])
            assert 0 < track.mean_sample_duration < 0.2
            assert track.sample_rate is None
        else:
            assert (track.sample_rate, track.channels) == (int(stream["sample_rate"]), stream["channels"])
            assert track.width is None and track.bits_per_sample == 16
        if track.codec is kivmp4.Codec.H264:
            assert track.config[0] == 1 and track.config[1] == track.profile and track.level >= track.config[3]
            assert track.aspect_ratio == 1 and not track.is_3d
            assert track.dec_frame_buffering >= track.ref_frames >= (name != "allkeys.mp4")
        else:
            assert track.profile is None and track.config
        assert abs(duration - max(float(s["start_time"]) + float(s["duration"]) for s in streams)) < 0.5


def test_sources_and_copies_give_equal_units(clips):
    path = clips["reordered.mp4"]
    data = path.read_bytes()

    class Hesitant(io.BytesIO):
        """Has nothing yet, then one byte less than was asked for."""
        asked = 0

        def read(self, size=-1):
            Hesitant.asked += 1
            return None if Hesitant.asked % 3 == 0 else super().read(max(1, size - 1))

    with kivmp4.open(str(path)) as f:
        expected = list(f)
    sources = [path, data, bytearray(data), memoryview(data), io.BytesIO(data), open(path, "rb"), Hesitant(data)]
    for source in sources:
        with kivmp4.open(source, name="a name") as f:
            assert list(f.units()) == expected, source
            f.rewind()
            assert [u._replace(payload=bytes(u.payload)) for u in f.units(copy=False)][1:] == expected[1:], source
    assert not sources[5].closed
    with kivmp4.open(path, name="marked.m3d") as f:
        assert f.tracks[0].is_3d and f.tracks[0].level == expected[0].track.level


def test_a_view_ends_with_the_next_unit(clips):
    f = kivmp4.open(clips["demo.mp4"])
    units = f.units(copy=False)
    first = next(units)
    kept, content = first.payload[4:], bytes(first.payload)
    with pytest.raises(TypeError):
        first.payload[0] = 1
    second = next(units)
    with pytest.raises(ValueError):
        first.payload[0]
    assert len(kept) == len(content) - 4  # stays readable

    import pickle
    holder = pickle.PickleBuffer(second.payload)
    with pytest.raises(kivmp4.Error, match="demo.mp4: .*still used"):
        f.read()
    holder.release()
    third = f.read(copy=False)
    holder = memoryview(third.payload).tobytes(), pickle.PickleBuffer(third.payload)
    f.close()
    assert bytes(holder[1].raw()) == holder[0]  # the library's memory outlives the file while somebody holds it
    assert bytes(kept) != b""


def test_tracks_are_enabled_one_by_one(clips):
    with kivmp4.open(clips["many.mp4"]) as f:
        everything = list(f)
        for index in range(4):
            f.enable(0, 1, 2, 3)
            f.rewind()
            f.disable(*(track for track in f.tracks if track.index != index))
            assert f.enabled == (f.tracks[index],)
            times = [unit.dts for unit in f]
            assert times == [unit.dts for unit in everything if unit.track.index == index]
        for wrong in (-1, 4):
            with pytest.raises(IndexError, match="many.mp4"):
                f.enable(wrong)


def test_a_track_that_cannot_be_described_is_left_out(clips, tmp_path):
    path = tmp_path / "law.mov"
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-i", str(clips["demo.mp4"]), "-c:v", "copy",
                    "-c:a", "pcm_alaw", str(path)], check=True)
    with kivmp4.open(path) as f:
        assert [track.kind for track in f.tracks] == [kivmp4.Kind.VIDEO, None]
        assert {unit.track.index for unit in f} == {0}
        with pytest.raises(kivmp4.MediaError, match="law.mov: track 1"):
            f.enable(1)


@pytest.mark.parametrize("name", ["demo.mp4", "reordered.mp4", "visual.mp4", "large.mp4", "many.mp4", "onekey.mp4"])
def test_seeks_and_key_frames(clips, name):
    with kivmp4.open(clips[name]) as f:
        units = list(f)
        leading = [track for track in f.tracks if track.kind is kivmp4.Kind.VIDEO][-1]
        video = [unit for unit in units if unit.track is leading]
        keys = [unit.dts for unit in video if unit.is_sync]

        def wind(**how):
            return [unit.dts for unit in f.key_frames(**how)]

        assert wind() == []  # past the last one
        assert wind(backward=True) == keys[::-1]
        assert f.read().dts == keys[0]
        f.rewind()
        assert wind() == keys
        assert wind(backward=True) == keys[-2::-1]  # the last one was delivered
        f.rewind()
        assert wind(backward=True) == keys[:1]

        for number, key in enumerate(keys):
            landing = video[[unit.dts for unit in video].index(key)]
            f.seek(landing.dts / 90000)
            assert wind(copy=False) == keys[number:]
            f.seek(landing.dts / 90000)
            assert wind(backward=True) == keys[number::-1]
            # In the middle of the group of pictures.
            f.rewind()
            next(unit for unit in f if unit.track is leading and unit.dts > key)
            assert wind(backward=True) == keys[number::-1]
            assert wind() == keys[1:]

        # Past the last key frame a seek leads to the frame itself.
        for backward, expected in ((True, keys[::-1]), (False, [])):
            f.seek(video[-2].dts / 90000)
            assert wind(backward=backward) == expected

        # The video's time decides, and sound goes along.
        f.seek(keys[-1] / 90000)
        after = list(f)
        assert next(unit for unit in after if unit.track is leading).dts == keys[-1]
        for track in f.tracks:
            assert abs(next(unit for unit in after if unit.track is track).dts - keys[-1]) < 9000
        f.seek(0)  # though the tracks are at their ends
        assert len(list(f)) == len(units)


def test_places_that_are_not_there(clips):
    with kivmp4.open(clips["demo.mp4"]) as f:
        for seconds in (-1, 6.1, 1e9, 1e30, float("inf"), float("nan")):
            with pytest.raises(kivmp4.SeekError, match="demo.mp4: cannot seek"):
                f.seek(seconds)
        f.disable(0)
        with pytest.raises(kivmp4.SeekError, match="no enabled video"):
            next(f.key_frames())
        f.seek(3)
        assert abs(f.read().pts_seconds - 3) < 0.03
    with kivmp4.open(clips["allkeys.mp4"]) as f:
        for backward in (False, True):
            with pytest.raises(kivmp4.SeekError, match="every frame"):
                next(f.key_frames(backward))
        with pytest.raises(kivmp4.SeekError):
            f.seek(0.5)


def test_winding_reads_nothing_ahead(clips):
    class Counted(io.BytesIO):
        count, readers = 0, set()

        def read(self, size=-1):
            data = super().read(size)
            Counted.count += len(data)
            Counted.readers.add(threading.get_ident())
            return data

    main = threading.get_ident()
    with kivmp4.open(Counted(clips["large.mp4"].read_bytes())) as f:
        keys = f.key_frames()
        next(keys)
        before = Counted.count
        unit = next(keys)
        assert Counted.count - before == len(unit.payload)
        Counted.readers.clear()
        list(f)
        assert Counted.readers == {main}
        keys.close()
        f.rewind()
        list(f)
        assert Counted.readers - {main}  # the library's own thread reads ahead again


@pytest.mark.parametrize("name", CLIPS)
def test_the_command_sees_the_same(clips, name):
    def command(*arguments):
        return json.loads(subprocess.run([os.environ["KIVMP4_COMMAND"], *arguments, "--json", str(clips[name])], check=True,
                                         capture_output=True).stdout)

    info, packets = command("info"), command("packets", "--hash")["packets"]
    with kivmp4.open(clips[name]) as f:
        assert f.duration == info["duration"]
        assert len(f.tracks) == info["track_count"]
        for track, told in zip(f.tracks, info["tracks"]):
            assert (track.index, track.codec.name.lower()) == (told["index"], told["codec_name"])
            assert track.language == told["language"]
            for field in ("width", "height", "profile", "level", "sample_rate", "channels"):
                assert field not in told or getattr(track, field) == told[field], field
        units = [(unit.track.index, unit.pts, unit.dts, unit.duration, len(unit.payload), unit.is_sync,
                  f"{zlib.crc32(unit.payload):08x}") for unit in f.units()]
    assert units == [(each["track"], each["pts"], each["dts"], each["duration"], each["size"], "K" in each["flags"],
                      each["crc32"]) for each in packets]
