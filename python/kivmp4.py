"""Reads MP4 files through the KivMp4 library: tracks, and their coded samples in the order of the file.

Print what a player would decode::

    import kivmp4

    with kivmp4.open("clip.mp4") as f:
        print(f.duration, "seconds")
        for track in f.tracks:
            print(track.index, track.kind, track.codec, track.width, track.height, track.sample_rate)
        for unit in f.units():
            print(unit.track.index, unit.pts_seconds, unit.is_sync, len(unit.payload))

Read one track from a time on::

    with kivmp4.open("clip.mp4") as f:
        f.disable(*f.tracks)
        f.enable(*(t for t in f.tracks if t.kind is kivmp4.Kind.AUDIO))
        f.seek(0.5)
        for unit in f.units():
            print(unit.dts_seconds, len(unit.payload))

Wind backward by key frames, as a player does in fast rewind::

    for unit in f.key_frames(backward=True):
        ...

The source is a path, bytes, or a file object that is opened in binary mode and can seek::

    kivmp4.open(pathlib.Path("clip.mp4"))
    kivmp4.open(data, name="from the network")
    kivmp4.open(archive.open("clip.mp4"))

Without a copy. `units(copy=False)` hands each payload out as a memoryview of the library's own memory. It is valid
until the next unit is asked for; then it is released, and using it raises ValueError. Slices taken of it are not
released: they stay readable, and show other bytes later.

Errors. Whatever goes wrong with a file raises a subclass of `kivmp4.Error`, with the file's name in the message.

Threads. Each `File` may be used by several threads, which wait for each other. `close` ends a call of another thread
that waits for the source, once the source's `read` returns. A file object is read by a thread of the library too, so
nothing else may use it meanwhile.

The library is looked for at the path in the environment variable KIVMP4_LIBRARY, beside this module, and where the
system has its libraries. It serves one file at a time, so each further file that is open at the same time loads a copy.
"""
from __future__ import annotations

import ctypes
import ctypes.util
import dataclasses
import enum
import io
import math
import mmap
import os
import re
import shutil
import struct
import tempfile
import threading
import weakref
from typing import Any, Callable, Iterator, List, NamedTuple, Optional, Tuple, Union

__version__ = "1.0.0"
__all__ = ["TICKS_PER_SECOND", "ClosedError", "Codec", "Error", "File", "Kind", "LibraryError", "LogLevel",
           "MediaError", "SeekError", "SourceError", "Track", "Unit", "library_version", "open"]

TICKS_PER_SECOND = 90000
"""Times of units are counted in ticks of this length."""

_OK, _END, _NOWHERE = 0, 1, -2
# Where a file stands: at its start, at a key frame that was delivered, elsewhere, or (0 or more) where the seek to that
# many ticks led.
_START, _KEY, _ELSEWHERE = -1, -2, -3
_READ_FAILED = 0xFFFFFFFF
_LEVEL_3D = 100


class Kind(enum.Enum):
    """What a track holds."""

    VIDEO = 0
    AUDIO = 1


class Codec(enum.Enum):
    """How a track is coded. WAVEFORMAT is audio whose configuration is a waveform-format header."""

    MPEG4 = 0
    H264 = 1
    AAC = 2
    WAVEFORMAT = 4


class LogLevel(enum.Enum):
    """What the library writes to standard error. H264 writes the report of each parameter set and nothing else."""

    NONE = 0
    ERRORS = 1
    WARNINGS = 2
    H264 = 3
    ALL = 4


class Error(Exception):
    """Base of all errors of this module; `filename` names the file, `message` says what went wrong."""

    def __init__(self, message: str, filename: str) -> None:
        super().__init__(message)
        self.message = message
        self.filename = filename

    def __str__(self) -> str:
        return f"{self.filename}: {self.message}"

    def __reduce__(self) -> Any:
        return type(self), (self.message, self.filename)


class LibraryError(Error):
    """The library was not found, cannot be loaded, or does not fit this module."""


class SourceError(Error, OSError):
    """The source cannot be opened or read. `__cause__` is what it raised, `errno` the system's number if any."""


class MediaError(Error):
    """Not a usable MP4 file, or damaged or cut off where reading stopped.

    `track` is the number of the track that reading stopped at, if there is one. It stays at that unit: seek, or disable
    the track, to go on elsewhere.
    """

    track: Optional[int] = None


class SeekError(Error):
    """There is no such place to go to."""


class ClosedError(Error, ValueError):
    """The file is closed."""


@dataclasses.dataclass(frozen=True)
class Track:
    """A track and what a decoder is told of it. A field is None when it does not apply, or the file does not tell it.

    index     number of the track, from 0, among those that the library takes; other programs may number differently
    kind      Kind; None for a track that cannot be described (uncompressed video, PCM), which cannot be enabled either
    codec     Codec
    language  ISO 639-2/T, three letters
    config    bytes. H.264: AVCDecoderConfigurationRecord; AAC: AudioSpecificConfig; MPEG-4: DecoderSpecificInfo

    Video:
    width, height         pixels, as the file states them
    mean_sample_duration  seconds
    max_track_offset      bytes to allow for between samples of two tracks that are due together

    H.264:
    profile, level        profile_idc and level_idc; the level may have been raised so that a decoder reserves enough
    ref_frames            reference frames
    dec_frame_buffering   decoded frames to be buffered
    aspect_ratio          sample aspect ratio, fraction cut off
    is_3d                 whether the file name marks a 3D file (".m3d")

    Audio:
    sample_rate           samples per second
    channels              channel count; for AAC the channelConfiguration
    bits_per_sample       16 for AAC
    max_bitrate, avg_bitrate, buffer_size
                          AAC: bits per second, and the decoder's buffer in bytes
    """

    index: int
    kind: Optional[Kind] = None
    codec: Optional[Codec] = None
    language: Optional[str] = None
    config: bytes = b""
    width: Optional[int] = None
    height: Optional[int] = None
    mean_sample_duration: Optional[float] = None
    max_track_offset: Optional[int] = None
    profile: Optional[int] = None
    level: Optional[int] = None
    ref_frames: Optional[int] = None
    dec_frame_buffering: Optional[int] = None
    aspect_ratio: Optional[int] = None
    is_3d: bool = False
    sample_rate: Optional[int] = None
    channels: Optional[int] = None
    bits_per_sample: Optional[int] = None
    max_bitrate: Optional[int] = None
    avg_bitrate: Optional[int] = None
    buffer_size: Optional[int] = None


class Unit(NamedTuple):
    """One coded sample, ready for a decoder.

    track               the Track that it belongs to
    pts, dts, duration  presentation time, decode time and duration in ticks of 1/90000 s
    is_sync             whether decoding can start here
    payload             bytes, or a memoryview that the next unit ends

    H.264 comes with start codes. Its parameter sets stand before the first sample of the track and before the first
    unit that is delivered of it, but not after a seek: keep them, or take them from `track.config`.
    """

    track: Track
    pts: int
    dts: int
    duration: int
    is_sync: bool
    payload: Union[bytes, memoryview]

    @property
    def pts_seconds(self) -> float:
        """Presentation time in seconds."""
        return self.pts / TICKS_PER_SECOND

    @property
    def dts_seconds(self) -> float:
        """Decode time in seconds."""
        return self.dts / TICKS_PER_SECOND

    @property
    def duration_seconds(self) -> float:
        """Duration in seconds."""
        return self.duration / TICKS_PER_SECOND


_get_ident = threading.get_ident
_new_tuple: Callable[..., Any] = tuple.__new__

# The records of the C interface. An AccessUnit is 56 bytes, taken apart at once: payload, size, pts, dts, duration,
# isSync, trackIndex. Field after field it would cost more than the delivery.
_ACCESS_UNIT = struct.Struct("P4xiqqqII8x" if ctypes.sizeof(ctypes.c_void_p) == 8 else "P4xi4xqqqII8x")
_unpack_unit = _ACCESS_UNIT.unpack_from

_Open = ctypes.CFUNCTYPE(ctypes.c_int32, ctypes.c_void_p, ctypes.c_char_p, ctypes.c_uint32)
_Close = ctypes.CFUNCTYPE(ctypes.c_int32, ctypes.c_void_p)
_Read = ctypes.CFUNCTYPE(ctypes.c_uint32, ctypes.c_void_p, ctypes.c_void_p, ctypes.c_int64, ctypes.c_uint32)
_GetSize = ctypes.CFUNCTYPE(ctypes.c_int64, ctypes.c_void_p)
_Allocate = ctypes.CFUNCTYPE(ctypes.c_void_p, ctypes.c_void_p, ctypes.c_size_t, ctypes.c_size_t)
_Free = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_void_p)


class _FileInterface(ctypes.Structure):
    _fields_ = [("context", ctypes.c_void_p), ("open", _Open), ("close", _Close), ("read", _Read),
                ("getSize", _GetSize)]


class _ClientAllocator(ctypes.Structure):
    _fields_ = [("context", ctypes.c_void_p), ("allocate", _Allocate), ("free", _Free)]


class _CodecInfo(ctypes.Structure):
    _fields_ = [(name, ctypes.c_uint32) for name in (
        "kind", "subtype", "width", "height", "profile", "level", "refFrames", "decFrameBuffering", "maxTrackOffset",
        "reserved1")]
    _fields_ += [("meanSampleDuration", ctypes.c_int64), ("aspectRatio", ctypes.c_int64)]
    _fields_ += [(name, ctypes.c_uint32) for name in (
        "sampleRate", "bitsPerSample", "maxBitrate", "avgBitrate", "bufferSize", "channels")]
    _fields_ += [("language", ctypes.c_char * 4), ("configSize", ctypes.c_uint8), ("config", ctypes.c_uint8 * 255),
                 ("reserved2", ctypes.c_uint32)]


class _DlInfo(ctypes.Structure):
    _fields_ = [("path", ctypes.c_char_p), ("base", ctypes.c_void_p), ("symbol", ctypes.c_char_p),
                ("address", ctypes.c_void_p)]


_PROTOTYPES = {
    "Create": (ctypes.c_void_p, ctypes.c_char_p, ctypes.POINTER(_FileInterface), ctypes.POINTER(_ClientAllocator),
               ctypes.c_void_p, ctypes.c_size_t, ctypes.c_int32, ctypes.c_int32),
    "Open": (ctypes.c_int32, ctypes.c_void_p, ctypes.POINTER(ctypes.c_uint32), ctypes.POINTER(ctypes.c_int64)),
    "Destroy": (ctypes.c_int32, ctypes.c_void_p),
    "EnableTrack": (ctypes.c_int32, ctypes.c_void_p, ctypes.c_int32, ctypes.c_uint8),
    "GetTrackInfo": (ctypes.c_int32, ctypes.c_void_p, ctypes.c_int32, ctypes.POINTER(_CodecInfo)),
    "GetNextUnit": (ctypes.c_int32, ctypes.c_void_p, ctypes.c_void_p),
    "GetNextSyncUnit": (ctypes.c_int32, ctypes.c_void_p, ctypes.c_void_p),
    "GetPrevSyncUnit": (ctypes.c_int32, ctypes.c_void_p, ctypes.c_void_p),
    "JumpPTS": (ctypes.c_int32, ctypes.c_void_p, ctypes.c_int64),
    "Rewind": (ctypes.c_int32, ctypes.c_void_p),
    "InitUnit": (ctypes.c_int32, ctypes.c_void_p, ctypes.c_void_p),
    "ResumeFileReader": (None, ctypes.c_void_p),
    "FlushFileReader": (None, ctypes.c_void_p),
}


class _Library:
    """One loaded copy of the library. It serves one handle at a time."""

    def __init__(self, path: str) -> None:
        self._dll = ctypes.CDLL(path)
        for name, (result, *arguments) in _PROTOTYPES.items():
            function = getattr(self._dll, "KivMp4" + name)
            function.restype, function.argtypes = result, arguments
            setattr(self, name, function)
        info = _DlInfo()
        address = ctypes.cast(self._dll.KivMp4Create, ctypes.c_void_p)
        found = ctypes.CDLL(None).dladdr(address, ctypes.byref(info))
        self.path = os.path.realpath(os.fsdecode(info.path)) if found else path

    def __getattr__(self, name: str) -> Callable[..., Any]:  # only for what is missing, and for type checkers
        raise AttributeError(name)

    @property
    def version(self) -> Optional[str]:
        """From the name of its file, which alone tells it."""
        match = re.search(r"\.so\.(\d+\.\d+\.\d+)$|\.(\d+\.\d+\.\d+)\.dylib$", self.path)
        return match and (match[1] or match[2])


def _candidates() -> Iterator[str]:
    chosen = os.environ.get("KIVMP4_LIBRARY")
    if chosen:
        yield chosen
        return
    major = __version__.split(".", maxsplit=1)[0]
    names = [f"libkivmp4.so.{major}", "libkivmp4.so", f"libkivmp4.{major}.dylib", "libkivmp4.dylib"]
    beside = os.path.dirname(os.path.abspath(__file__))
    yield from (path for path in (os.path.join(beside, name) for name in names) if os.path.exists(path))
    yield from names
    found = ctypes.util.find_library("kivmp4")  # last: it may run a compiler to find out
    if found:
        yield found


def _load() -> _Library:
    reasons = []
    for path in _candidates():
        try:
            library = _Library(path)
        except (OSError, AttributeError) as error:  # not loaded, or without one of the functions
            reasons.append(str(error))
            continue
        version = library.version
        if version is not None:
            has, wants = ([int(part) for part in text.split(".")] for text in (version, __version__))
            if has[0] != wants[0] or has < wants:
                raise LibraryError(f"is version {version} of the library, but this module needs {__version__} or a "
                                   f"later {wants[0]}.x", library.path)
        return library
    raise LibraryError(f"cannot be loaded; set KIVMP4_LIBRARY to its path ({'; '.join(reasons)})", "KivMp4 library")


_loading = threading.Lock()
_original: Optional[_Library] = None
_idle: List[_Library] = []  # append and pop are atomic; a finalizer must not wait for a lock here


def _take_library() -> _Library:
    global _original
    try:
        return _idle.pop()
    except IndexError:
        pass
    with _loading:
        if _original is None:
            _original = _load()
            return _original
    # The loader knows a library by its file, so another copy needs a file of its own. It may go once it is loaded.
    try:
        with tempfile.TemporaryDirectory() as directory:
            path = os.path.join(directory, "libkivmp4.so")
            shutil.copyfile(_original.path, path)
            return _Library(path)
    except OSError as error:
        raise LibraryError(f"cannot be copied, which a second open file needs ({error})", _original.path) from error


def library_version() -> Optional[str]:
    """Version of the library, as "1.0.0"; None when the name of its file does not tell. Loads it if needed."""
    if _original is None:
        _idle.append(_take_library())
    return _original.version if _original else None


class _Source:
    """What the file's bytes come from."""

    size: int

    def read(self, offset: int, size: int) -> Optional[bytes]:
        """Returns None when there is nothing yet, fewer bytes at the end."""
        raise NotImplementedError

    def fill(self, destination: int, offset: int, size: int) -> Optional[int]:
        """Copies `size` bytes to an address. Returns how many there were; if not `size`, they are of no use."""
        data = self.read(offset, size)
        if data is not None and len(data) == size:
            ctypes.memmove(destination, bytes(data), size)
        return data if data is None else len(data)

    def close(self) -> None:
        """Lets go of what is the module's own."""


class _Bytes(_Source):
    def __init__(self, data: Any) -> None:
        self._view = memoryview(data).cast("B")
        self.size = len(self._view)

    def read(self, offset: int, size: int) -> bytes:
        return bytes(self._view[offset:offset + size])

    def close(self) -> None:
        self._view.release()


class _FileObject(_Source):
    def __init__(self, file: Any) -> None:
        self._file = file
        self.size = file.seek(0, os.SEEK_END)
        if not isinstance(self.size, int):  # some objects' seek answers nothing
            self.size = file.tell()

    def read(self, offset: int, size: int) -> Optional[bytes]:
        self._file.seek(offset)
        data = self._file.read(size)
        while data and len(data) < size:
            more = self._file.read(size - len(data))
            if not more:
                break
            data += more
        return data


class _Path(_FileObject):
    def fill(self, destination: int, offset: int, size: int) -> Optional[int]:
        self._file.seek(offset)
        return self._file.readinto((ctypes.c_char * size).from_address(destination))

    def close(self) -> None:
        self._file.close()


class _Session:
    """A handle of the library with all that must outlive it. The only place that calls the library for a file."""

    def __init__(self, source: _Source, filename: str, heap_size: int, log_level: LogLevel) -> None:
        self.filename = filename
        self.lock = threading.RLock()
        self.handle: Optional[int] = None
        self._source = source
        self.closing = False
        self._reader = 0  # the library's own thread, once it has read
        self.caller = 0  # the thread that calls the library
        self.inside = 0  # the thread that is in the source's read
        self._failure: Optional[BaseException] = None
        self._lasting = False  # a failure of the library's own thread makes all later reads fail
        self._blocks: dict[int, mmap.mmap] = {}
        self.heap = mmap.mmap(-1, heap_size)  # takes memory only where it is written
        self.base = ctypes.addressof(ctypes.c_char.from_buffer(self.heap))
        self.view = memoryview(self.heap).toreadonly()
        self.record = (ctypes.c_uint64 * 7)()
        self._files = _FileInterface(None, _Open(lambda *_: 0), _Close(lambda _: 0), _Read(self._read),
                                     _GetSize(lambda _: source.size))
        self._memory = _ClientAllocator(None, _Allocate(self._allocate), _Free(self._free))
        self.library = _take_library()
        self.caller = threading.get_ident()
        self.handle = self.library.Create(filename.encode("utf-8", "replace"), self._files, self._memory, self.base,
                                          heap_size, 0, LogLevel(log_level).value)
        if not self.handle:
            _idle.append(self.library)
            raise self.error("refused: by its name, or the heap is too small")
        _sessions.add(self)
        self.library.InitUnit(self.handle, self.record)

    # Nothing may be raised through the library, so what goes wrong is kept for the call that meets it.
    def _read(self, _context: Any, destination: int, offset: int, size: int) -> int:
        try:
            thread = self.inside = threading.get_ident()
            if thread != self.caller:
                self._reader = thread
            if self.closing:
                return _READ_FAILED
            count = self._source.fill(destination, offset, size)
            if count is None:
                return 0  # the library asks again
            if count != size:
                raise EOFError(f"{count} bytes instead of {size} at offset {offset}")
            return size
        except BaseException as error:  # pylint: disable=broad-except
            self._failure, self._lasting = error, threading.get_ident() != self.caller
            return _READ_FAILED
        finally:
            self.inside = 0

    def _allocate(self, _context: Any, _alignment: int, size: int) -> Optional[int]:
        try:
            block = mmap.mmap(-1, size)
        except (OSError, OverflowError, ValueError, MemoryError):
            return None
        address = ctypes.addressof(ctypes.c_char.from_buffer(block))
        self._blocks[address] = block
        return address

    def _free(self, _context: Any, address: int) -> None:
        self._blocks.pop(address, None)

    def __enter__(self) -> None:
        self.check_thread()  # before the lock, which the call that waits for the source has
        self.lock.acquire()

    def __exit__(self, *_: Any) -> None:
        self.lock.release()

    def check_thread(self) -> None:
        if self.inside and self.inside == threading.get_ident():
            raise Error("a file cannot be used from within its own source's read", self.filename)

    def check(self) -> None:
        """Raises when nothing may be called any more."""
        if self.closing or self.handle is None:
            raise ClosedError("is closed", self.filename)

    def call(self, function: Callable[..., int], *arguments: Any) -> int:
        """Calls a function of the library for the handle. The lock is held."""
        self.check()
        self.caller = threading.get_ident()
        return function(self.handle, *arguments)

    def error(self, message: str, track: Optional[int] = None) -> BaseException:
        """What a failed call raises: the source's failure if there is one, else a MediaError of that message."""
        failure = self._failure
        if self.closing:
            return ClosedError("was closed while it was read", self.filename)
        if failure is None:
            error = MediaError(message, self.filename)
            error.track = track
            return error
        if not self._lasting:
            self._failure = None
        if not isinstance(failure, Exception):
            return failure
        return _source_error(failure, self.filename)

    def close(self) -> None:
        """Ends the handle. A finalizer may run on any thread: also on the library's own, which Destroy waits for."""
        if threading.get_ident() == self._reader and self.handle is not None:
            threading.Thread(target=self.close).start()
            return
        self.closing = True  # ends a call that waits for the source
        if self.handle is None:
            return
        with self.lock:
            if self.handle is None:
                return
            self.library.Destroy(self.handle)
            self.handle = None
            _idle.append(self.library)
            self._source.close()
            del self._files, self._memory  # they and this object refer to each other


# After a fork the library's thread is missing in the child, so its handles there can only be forgotten.
_sessions: weakref.WeakSet[_Session] = weakref.WeakSet()


def _forget_sessions() -> None:
    for session in _sessions:
        session.handle = None


os.register_at_fork(after_in_child=_forget_sessions)


def _source_error(cause: Exception, filename: str) -> SourceError:
    error = SourceError(getattr(cause, "strerror", None) or str(cause) or type(cause).__name__, filename)
    error.errno = getattr(cause, "errno", None)
    error.__cause__ = cause
    return error


def _describe(index: int, info: _CodecInfo) -> Track:
    common = {"index": index, "kind": Kind(info.kind), "codec": Codec(info.subtype),
              "language": info.language.decode("latin-1") or None, "config": bytes(info.config[:info.configSize])}
    if common["kind"] is Kind.AUDIO:
        return Track(**common, sample_rate=info.sampleRate or None, bits_per_sample=info.bitsPerSample or None,
                     channels=info.channels, max_bitrate=info.maxBitrate or None, avg_bitrate=info.avgBitrate or None,
                     buffer_size=info.bufferSize or None)
    h264 = {}
    if info.level:  # else the parameter set cannot be read, or there is none
        h264 = {"profile": info.profile, "level": info.level % _LEVEL_3D, "is_3d": info.level >= _LEVEL_3D,
                "ref_frames": info.refFrames, "dec_frame_buffering": info.decFrameBuffering}
    return Track(**common, **h264, width=info.width, height=info.height, aspect_ratio=info.aspectRatio or None,
                 max_track_offset=info.maxTrackOffset, mean_sample_duration=info.meanSampleDuration / 10000)


class File:
    """An open MP4 file; made by `kivmp4.open`. All tracks that can be described are enabled, and stand at their start.

    name      the name that errors tell
    duration  of the whole movie, in seconds
    tracks    all tracks that the library takes; `tracks[n].index` is n
    enabled   those that are delivered
    closed    whether it was closed

    Iterating over it is iterating over its `units`. Close it with `close` or a `with` statement; one that is no longer
    referred to closes itself.
    """

    def __init__(self, source: Any, name: Optional[str] = None, heap_size: int = 64 << 20,
                 log_level: LogLevel = LogLevel.NONE) -> None:
        self.name, opened = _open_source(source, name)
        try:
            self._session = _Session(opened, self.name, heap_size, log_level)
        except BaseException:
            opened.close()
            raise
        self._finalizer = weakref.finalize(self, self._session.close)
        self._view: Optional[memoryview] = None
        self._place = _START
        self._key_dts = 0  # of the key frame that was delivered, at _KEY
        count, duration = ctypes.c_uint32(), ctypes.c_int64()
        try:
            if self._session.call(self._session.library.Open, count, duration) != _OK:
                raise self._session.error("is not a usable MP4 file")
            self.duration: float = duration.value / 10000
            self.tracks: Tuple[Track, ...] = tuple(self._describe(index) for index in range(count.value))
            self._enabled = [False] * count.value
            self.enable(*(track for track in self.tracks if track.kind is not None))
        except BaseException:
            self.close()
            raise

    def __repr__(self) -> str:
        return f"<kivmp4.File {self.name!r}{' closed' if self.closed else ''}>"

    def __enter__(self) -> File:
        return self

    def __exit__(self, *_: Any) -> None:
        self.close()

    def __iter__(self) -> Iterator[Unit]:
        return self.units()

    @property
    def closed(self) -> bool:
        """Whether the file was closed."""
        return self._session.handle is None

    def close(self) -> None:
        """Closes the file. The payload of the last unit is released. Closing again does nothing."""
        self._session.check_thread()
        self._session.close()
        try:
            self._release()
        except Error:
            pass  # whoever holds it keeps the memory alive

    def _describe(self, index: int) -> Track:
        info = _CodecInfo()
        result = self._session.call(self._session.library.GetTrackInfo, index, info)
        return _describe(index, info) if result == _OK else Track(index)

    @property
    def enabled(self) -> Tuple[Track, ...]:
        """The tracks that are delivered."""
        return tuple(track for track in self.tracks if self._enabled[track.index])

    def enable(self, *tracks: Union[Track, int]) -> None:
        """Delivers these tracks from now on, from where they stand; tracks are given as such or by their number."""
        self._set_enabled(tracks, True)

    def disable(self, *tracks: Union[Track, int]) -> None:
        """Leaves these tracks out from now on."""
        self._set_enabled(tracks, False)

    def _set_enabled(self, tracks: Tuple[Union[Track, int], ...], enable: bool) -> None:
        for given in tracks:
            index = given.index if isinstance(given, Track) else given
            if not 0 <= index < len(self.tracks):
                raise IndexError(f"{self.name}: has no track {index}")
            if enable and self.tracks[index].kind is None:
                raise MediaError(f"track {index} cannot be described, so it cannot be delivered", self.name)
            with self._session:
                self._session.call(self._session.library.EnableTrack, index, enable)
                self._enabled[index] = enable

    def _release(self) -> None:
        view, self._view = self._view, None
        if view is None:
            return
        try:
            view.release()
        except BufferError:
            self._view = view
            raise Error("the payload of the last unit is still used by another object; copy it, or drop that object "
                        "before the next unit", self.name) from None

    # Once for each unit, so written out: with calls for its steps it took twice as long.
    def _deliver(self, function: Callable[..., int], copy: bool) -> Optional[Unit]:
        session = self._session
        if session.inside:
            session.check_thread()
        with session.lock:
            if session.closing or session.handle is None:
                session.check()
            if self._view is not None:
                self._release()
            session.caller = _get_ident()
            result = function(session.handle, session.record)
            if result == _OK:
                return self._unit(copy)
            if result == _END:
                return None
            index = _unpack_unit(session.record)[-1]
            raise session.error(f"stopped at track {index}: damaged or cut off there, or the unit does not fit in the "
                                "heap", index)

    def _unit(self, copy: bool) -> Unit:
        """The unit that was delivered last."""
        session = self._session
        address, size, pts, dts, duration, sync, index = _unpack_unit(session.record)
        start = address - session.base
        payload: Union[bytes, memoryview]
        if copy:
            payload = session.heap[start:start + size]
        else:
            payload = self._view = session.view[start:start + size]
        return _new_tuple(Unit, (self.tracks[index], pts, dts, duration, sync != 0, payload))

    def read(self, copy: bool = True) -> Optional[Unit]:
        """The next unit of the enabled tracks, the one that lies first in the file; None at the end.

        With `copy=False` the payload is a memoryview, which is released when the next unit is asked for.
        """
        unit = self._deliver(self._session.library.GetNextUnit, copy)
        self._place = _ELSEWHERE
        return unit

    def units(self, copy: bool = True) -> Iterator[Unit]:
        """The units from here to the end, in the order of the file; `copy` as in `read`."""
        next_unit = self._session.library.GetNextUnit
        while True:
            unit = self._deliver(next_unit, copy)
            self._place = _ELSEWHERE
            if unit is None:
                return
            yield unit

    def rewind(self) -> None:
        """Goes back to the first unit of each enabled track. Disabled tracks stay where they are."""
        with self._session:
            self._session.call(self._session.library.Rewind)
            self._place = _START

    def seek(self, seconds: float) -> None:
        """Goes to a presentation time: video to the nearest key frame, all other tracks to the time of that frame.

        Past the last key frame video goes to the frame itself; `key_frames(backward=True)` leads from there to the key
        frame. The last enabled video track leads, without one the first enabled track. A track that the file delays by
        an edit list is sought without that delay. Raises SeekError when the time lies before 0, or at or past the last
        sample, or the leading video track has no table of key frames; the file may then stand at its start.
        """
        if not math.isfinite(seconds):
            raise SeekError(f"cannot seek to {seconds} s", self.name)
        ticks = round(seconds * TICKS_PER_SECOND)
        with self._session:
            self._jump(ticks)
            self._place = ticks

    def _jump(self, ticks: int) -> None:
        session = self._session
        session.check()
        if not 0 <= ticks < 1 << 63:
            raise SeekError(f"cannot seek to {ticks / TICKS_PER_SECOND:.3f} s", self.name)
        result = session.call(session.library.JumpPTS, ticks)
        if result == _NOWHERE and ticks < self.duration * TICKS_PER_SECOND:
            # A track at its end refuses every jump. From the start it takes this one, if any.
            self.rewind()
            result = session.call(session.library.JumpPTS, ticks)
        if result != _OK:
            raise SeekError(f"cannot seek to {ticks / TICKS_PER_SECOND:.3f} s: past the last sample, or there is no "
                            "table of key frames", self.name)

    def key_frames(self, backward: bool = False, copy: bool = True) -> Iterator[Unit]:
        """The key frames of the last enabled video track, forward or backward from here, in trick mode.

        After opening, `rewind` and `seek` the key frame at that place comes first. In between, it is the next one
        forward, and the one before backward. All other tracks move to the time of the key frame, so `units` then goes
        on from the key frame that was delivered last. Trick mode, in which nothing is read ahead, ends with the
        iteration.

        Raises SeekError without an enabled video track, and when it has no table of key frames: every frame is one
        then. (In the middle of such a track, forward, there just are none.)
        """
        session = self._session
        library = session.library
        with session:
            session.call(library.FlushFileReader)
        try:
            while True:
                with session:
                    unit = self._next_key(backward, copy)
                    if unit is None:
                        return
                    self._place, self._key_dts = _KEY, unit.dts
                yield unit
        finally:
            with session:
                if not self.closed:
                    session.call(library.ResumeFileReader)

    def _next_key(self, backward: bool, copy: bool) -> Optional[Unit]:
        library = self._session.library
        place = self._place
        video = [track for track in self.enabled if track.kind is Kind.VIDEO]
        if not video:
            raise SeekError("has no enabled video track to find key frames in", self.name)
        if place == _START:
            # From the start a step back brings the first key frame, wherever it lies.
            return self._require_table(self._deliver(library.GetPrevSyncUnit, copy))
        if place == _KEY:
            if not backward:
                return self._deliver(library.GetNextSyncUnit, copy)
            unit = self._deliver(library.GetPrevSyncUnit, copy)
            # The first key frame is delivered again and again.
            return unit if unit is not None and unit.dts < self._key_dts else None
        if place >= 0:
            unit = self._look(video[-1], copy)
            self._jump(place)
            if unit is not None and unit.is_sync:
                return unit
        unit = self._deliver(library.GetNextSyncUnit, copy)
        if not backward:
            return unit
        if unit is not None:
            return self._deliver(library.GetPrevSyncUnit, copy)
        # Past the last key frame a step back brings the first one.
        unit = self._require_table(self._deliver(library.GetPrevSyncUnit, False))
        while self._deliver(library.GetNextSyncUnit, False) is not None:
            pass
        self._release()
        return self._unit(copy)

    def _look(self, track: Track, copy: bool) -> Optional[Unit]:
        """Delivers the next unit of one track alone."""
        others = [other for other in self.enabled if other is not track]
        self.disable(*others)
        try:
            return self._deliver(self._session.library.GetNextUnit, copy)
        finally:
            self.enable(*others)

    def _require_table(self, unit: Optional[Unit]) -> Unit:
        if unit is None:
            raise SeekError("has no table of key frames: every frame is one", self.name)
        return unit


def _open_source(source: Any, name: Optional[str]) -> Tuple[str, _Source]:
    """Returns the name that errors tell, and the source."""
    if isinstance(source, (str, os.PathLike)):
        name = name or os.fsdecode(source)
        try:
            file = io.open(source, "rb", buffering=0)
        except (OSError, ValueError) as error:
            raise _source_error(error, name) from error
        make: Callable[[Any], _Source] = _Path
    elif hasattr(source, "read") and hasattr(source, "seek"):
        name = name or str(getattr(source, "name", "<file object>"))
        file, make = source, _FileObject
    else:
        return name or "<bytes>", _Bytes(source)
    try:
        return name, make(file)
    except Exception as error:
        if make is _Path:
            file.close()
        raise _source_error(error, name) from error


def open(source: Any, *, name: Optional[str] = None, heap_size: int = 64 << 20,  # pylint: disable=redefined-builtin
         log_level: LogLevel = LogLevel.NONE) -> File:
    """Opens an MP4 file.

    source     a path (str or os.PathLike), a bytes-like object, or a binary file object with `read` and `seek`. A file
               object is not closed with the file. Its `read` may answer None for "nothing yet"
    name       for errors, instead of the path or the file object's `name`. ".mpd" and ".ism" are refused, ".m3d"
               marks a 3D file
    heap_size  the library's working memory in bytes: 230 KiB and four times the largest unit do; what is not used takes
               no memory
    log_level  what the library writes to standard error

    Raises SourceError when the source cannot be read, and MediaError when it is not a usable MP4 file.
    """
    return File(source, name, heap_size, log_level)
