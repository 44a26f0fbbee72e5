#!/usr/bin/env python3
"""Gives a video-only MP4 file a shape that ffmpeg does not write; its movie goes in front of the media.

usage: mp4patch.py --stss-all | --onechunk IN OUT
  --stss-all   the sync table lists every sample
  --onechunk   all samples, which must lie one after the other, are one chunk
"""
import shutil
import struct
import sys

CONTAINERS = {b"moov", b"trak", b"mdia", b"minf", b"stbl", b"edts", b"dinf"}


def parse(data):
    """[type, content] of each box; content is a list for containers."""
    boxes, position = [], 0
    while position + 8 <= len(data):
        size, kind = struct.unpack_from(">I4s", data, position)
        content = data[position + 8 : position + size]
        boxes.append([kind, parse(content) if kind in CONTAINERS else content])
        position += size
    return boxes


def build(boxes):
    out = b""
    for kind, content in boxes:
        body = build(content) if isinstance(content, list) else content
        out += struct.pack(">I4s", len(body) + 8, kind) + body
    return out


def child(boxes, *path):
    found = next(box for box in boxes if box[0] == path[0])
    return child(found[1], *path[1:]) if path[1:] else found


def top_level(file):
    """Position and size of each box of the file by its type; later ones of a type win."""
    places, position = {}, 0
    while True:
        file.seek(position)
        header = file.read(16)
        if len(header) < 8:
            return places
        size, kind = struct.unpack_from(">I4s", header)
        if size == 1:
            (size,) = struct.unpack_from(">Q", header, 8)
        places[kind] = (position, size)
        position += size


def words(first, *rest):
    return struct.pack(">%dI" % (1 + len(rest)), first, *rest)


def main():
    option, source, destination = sys.argv[1:]
    with open(source, "rb") as file, open(destination, "wb") as out:
        places = top_level(file)

        def bytes_of(kind):
            file.seek(places[kind][0])
            return file.read(places[kind][1])

        movie = parse(bytes_of(b"moov"))
        table = child(movie, b"moov", b"trak", b"mdia", b"minf", b"stbl")[1]
        _, count = struct.unpack_from(">II", child(table, b"stsz")[1], 4)
        offsets = child(table, b"stco")
        if option == "--stss-all":
            table[:] = [box for box in table if box[0] != b"stss"]
            table.insert(2, [b"stss", words(0, count, *range(1, count + 1))])
        elif option == "--onechunk":
            (first,) = struct.unpack_from(">I", offsets[1], 8)
            sizes = struct.unpack_from(">%dI" % count, child(table, b"stsz")[1], 12)
            assert first + sum(sizes) == sum(places[b"mdat"]), "the samples do not lie one after the other"
            offsets[1] = words(0, 1, first)
            child(table, b"stsc")[1] = words(0, 1, 1, count, 1)
        else:
            sys.exit(__doc__)
        front = bytes_of(b"ftyp")
        shift = len(front) + len(build(movie)) - places[b"mdat"][0]
        chunks, *values = struct.unpack(">%dI" % (len(offsets[1]) // 4 - 1), offsets[1][4:])
        offsets[1] = words(0, chunks, *(value + shift for value in values))
        out.write(front + build(movie))
        file.seek(places[b"mdat"][0])
        shutil.copyfileobj(file, out, 1 << 20)


main()
