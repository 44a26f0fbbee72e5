/* KivMp4: demultiplexes one local MP4 file at a time for a media player.
 *
 * The player hands over a path, its own file functions, its own memory functions and one block of memory. The module
 * reads the file ahead on a background thread and hands out coded samples as access units, ready for a decoder, in the
 * order in which they lie in the file.
 *
 *     Mp4Demux* demux = KivMp4Create("clip.mp4", &files, &memory, block, sizeof block, 0, KIVMP4_LOG_ERRORS);
 *     uint32_t tracks; int64_t duration; AccessUnit unit;
 *     if (demux && KivMp4Open(demux, &tracks, &duration) == KIVMP4_OK) {
 *         KivMp4InitUnit(demux, &unit);
 *         for (uint32_t t = 0; t < tracks; t++) {
 *             CodecInfo info = {0};
 *             if (KivMp4GetTrackInfo(demux, (int32_t)t, &info) == KIVMP4_OK) KivMp4EnableTrack(demux, (int32_t)t, 1);
 *         }
 *         while (KivMp4GetNextUnit(demux, &unit) == KIVMP4_OK)
 *             decode(unit.trackIndex, unit.payload, unit.size, unit.pts);
 *     }
 *     KivMp4Destroy(demux);
 *
 * Results. Functions that return int32_t answer one of the KIVMP4_OK ... KIVMP4_NOWHERE values below. A null handle,
 * record or out pointer answers KIVMP4_ERROR (or does nothing); it never crashes. The value does not tell causes apart;
 * each function lists what it can mean. What went wrong is also written to standard error, as the log level admits.
 *
 * Times are signed counts of 90 kHz ticks unless a line says otherwise. Samples and tracks are numbered from 0.
 *
 * Edit lists. The only one that is applied has two entries, an empty edit and then one that begins at media time 0: it
 * delays the track. Every other list is passed over, so sound is shifted against the picture by what the list would
 * have moved them. Common are lists of one entry that cut the first samples of sound (priming) or of reordered video.
 *
 * Lifetimes. The path is needed during KivMp4Create only. The two records of functions, their contexts and the heap
 * block must live until KivMp4Destroy has returned. A unit's payload is valid until the next delivery into the same
 * AccessUnit record and at the longest until KivMp4Destroy.
 *
 * Threads. One handle exists at a time in a process: creating another one first closes the one before, also when the
 * new file then cannot be opened. The old pointer is refused like a null one from then on, unless the new handle has
 * the same address, as it has over the same heap block: then both mean the new handle. KivMp4GetNextUnit and
 * KivMp4JumpPTS may be called from different threads at once and wait for each other; KivMp4FlushFileReader and
 * KivMp4ResumeFileReader may be called while any delivery, step or seek runs. All other calls on a handle must not
 * overlap with each other or with these; this holds for KivMp4Destroy too.
 */
#ifndef KIVMP4_H
#define KIVMP4_H

/* The version, once in numbers and once as text; the build reads both here and stops when they differ. */
#define KIVMP4_VERSION_MAJOR 1
#define KIVMP4_VERSION_MINOR 0
#define KIVMP4_VERSION_PATCH 0
#define KIVMP4_VERSION "1.0.0"

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define KIVMP4_API __attribute__((visibility("default")))
#else
#define KIVMP4_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** What the functions answer. */
enum {
    KIVMP4_OK = 0,
    /** Nothing is left: no unit in an enabled track, no key frame in that direction. */
    KIVMP4_END = 1,
    KIVMP4_ERROR = -1,
    /** The seek has nowhere to go. */
    KIVMP4_NOWHERE = -2
};

/** CodecInfo.kind */
enum { KIVMP4_KIND_VIDEO = 0, KIVMP4_KIND_AUDIO = 1 };

/** CodecInfo.subtype, which depends on the kind. */
enum {
    KIVMP4_VIDEO_MPEG4 = 0,
    KIVMP4_VIDEO_H264 = 1,
    KIVMP4_AUDIO_AAC = 2,
    /** Audio whose configuration is a waveform-format header. */
    KIVMP4_AUDIO_WAVEFORMAT = 4
};

/** What is written to standard error. Values other than these write nothing. */
enum {
    KIVMP4_LOG_NONE = 0,
    KIVMP4_LOG_ERRORS = 1,
    KIVMP4_LOG_WARNINGS = 2, /* and errors */
    KIVMP4_LOG_H264 = 3,     /* the report of each H.264 parameter set and nothing else, no errors */
    KIVMP4_LOG_ALL = 4
};

/** Added to CodecInfo.level when the file name marks a 3D file. */
enum { KIVMP4_LEVEL_3D = 100 };

/** Times are counted in these. Not an enumerator, so that C++ may divide a double by it. */
#define KIVMP4_TICKS_PER_SECOND 90000

/** What the player's `read` answers when the file has failed, and to end a call that waits in it. */
#define KIVMP4_READ_FAILED ((uint32_t)-1)

/** One open (or opening) file. Made by KivMp4Create, ended by KivMp4Destroy. */
typedef struct Mp4Demux Mp4Demux;

/** The player's file functions. The record and what `context` points at must outlive the handle.
 *
 *  `open`, `close` run on the thread that calls KivMp4Create, KivMp4Open or KivMp4Destroy. `read` runs on the module's
 *  own thread and on the threads that call the module, never two calls at once. `getSize` may run on both at once. The
 *  module's thread has a stack of at least 256 KiB. */
typedef struct FileInterface {
    /** Handed to each of the four functions as their first argument; the module does not look at it. */
    void* context;
    /** Opens the file. `path` is the one given to KivMp4Create, `mode` is 0 (read). A negative answer is a failure. */
    int32_t (*open)(void* context, const char* path, uint32_t mode);
    /** Closes the file: exactly once for each `open` that did not fail. The answer is not looked at. */
    int32_t (*close)(void* context);
    /** Copies `size` bytes that begin at file offset `offset` to `destination` and answers how many it copied.
     *
     *  0 means "nothing yet, ask again": the module asks again and again, and the call that needs the bytes waits. So
     *  a player whose file has failed must answer KIVMP4_READ_FAILED. Every other answer than `size` (less, or more)
     *  is a failure too. It fails the call that needed the bytes. When the module's own thread had asked, all later
     *  reads fail as well, until the file is opened with a new handle.
     *
     *  To end a call that waits here (KivMp4Destroy must not overlap it), answer KIVMP4_READ_FAILED: the call returns
     *  KIVMP4_ERROR, and then KivMp4Destroy may be called. With no call under way KivMp4Destroy ends the asking by
     *  itself, but it waits for a `read` that does not return. The module never asks for 0 bytes, for a negative
     *  offset or beyond the size that `getSize` told. */
    uint32_t (*read)(void* context, void* destination, int64_t offset, uint32_t size);
    /** The file's size in bytes; 0 or less means "not known yet": KivMp4Open asks for about half a second. */
    int64_t (*getSize)(void* context);
} FileInterface;

/** The player's memory functions, used for large tables. They are called only on the threads that call the module, and
 *  every block is given back by the end of KivMp4Destroy. A refused block does not fail
 *  KivMp4Open: the track whose table it was for may then have no units, KivMp4JumpPTS answers KIVMP4_NOWHERE, and
 *  steps by key frames answer KIVMP4_END. */
typedef struct ClientAllocator {
    void* context;
    /** A block of `size` bytes whose address is a multiple of `alignment` (1, 4 or 8), or null. */
    void* (*allocate)(void* context, size_t alignment, size_t size);
    /** Gives back a block that `allocate` answered; never null. */
    void (*free)(void* context, void* block);
} ClientAllocator;

/** One coded sample. The player owns the record, prepares it once with KivMp4InitUnit and then hands the same one to
 *  every delivery. 56 bytes; the module writes nothing after `isVideo`. */
typedef struct AccessUnit {
    /** The unit's bytes, in a block of the module heap that the module reuses and replaces.
     *
     *  H.264 comes with start codes (ISO/IEC 14496-10 Annex B). Its parameter sets stand before sample 0 each time, and
     *  before the first unit that the handle delivers of the track, but not after a jump or a step to another sample.
     *  A decoder that was flushed there needs them again: keep those of the first unit, or take them from
     *  CodecInfo.config. MPEG-4 visual has its configuration before sample 0 only; all else is as in the file. */
    uint8_t* payload;
    /** Size of the `payload` block in bytes. */
    int32_t capacity;
    /** Valid bytes in `payload`. */
    int32_t size;
#if UINTPTR_MAX == 0xFFFFFFFFu
    uint32_t reserved; /* not written */
#endif
    /** Presentation time, 90 kHz ticks. */
    int64_t pts;
    /** Decode time, 90 kHz ticks. */
    int64_t dts;
    /** Duration, 90 kHz ticks. */
    int64_t duration;
    /** 1 when decoding can start here, else 0. In a track without a table of key frames every unit has 1. */
    uint32_t isSync;
    /** The track that the unit belongs to. */
    uint32_t trackIndex;
    /** 1 for a video track, 0 for audio. */
    uint8_t isVideo;
    uint8_t padding[7]; /* not written */
} AccessUnit;

/** What a decoder needs to know of a track. 344 bytes with the same offsets on every target. Fields that do not apply
 *  to the track are not written, so hand over a record filled with zero bytes. */
typedef struct CodecInfo {
    /** KIVMP4_KIND_... */
    uint32_t kind;
    /** KIVMP4_VIDEO_... or KIVMP4_AUDIO_... */
    uint32_t subtype;
    /** Video: picture size in pixels as the file states it. */
    uint32_t width;
    uint32_t height;
    /** H.264: profile_idc and level_idc (ISO/IEC 14496-10, 7.4.2.1.1). The level may have been raised so that the
     *  decoder reserves enough frames; KIVMP4_LEVEL_3D is added when the file name marks a 3D file (".m3d"). All four
     *  fields stay unwritten when the parameter set cannot be read. */
    uint32_t profile;
    uint32_t level;
    /** H.264: reference frames, and decoded frames to be buffered. */
    uint32_t refFrames;
    uint32_t decFrameBuffering;
    /** Video: always 1048576. The bytes that a player should allow for between samples of two tracks that are due
     *  together; it is not measured in the file. */
    uint32_t maxTrackOffset;
    uint32_t reserved1; /* not written */
    /** Video: movie duration over number of samples, in units of 100 microseconds. */
    int64_t meanSampleDuration;
    /** H.264 with VUI: the sample aspect ratio, fraction cut off. */
    int64_t aspectRatio;
    /** Audio: samples per second; 0 when the configuration does not tell. */
    uint32_t sampleRate;
    /** Audio: 16 for AAC. */
    uint32_t bitsPerSample;
    /** AAC: bits per second, and decoder buffer size in bytes (ISO/IEC 14496-1, 7.2.6.6). */
    uint32_t maxBitrate;
    uint32_t avgBitrate;
    uint32_t bufferSize;
    /** Audio: channel count; for AAC the channelConfiguration (ISO/IEC 14496-3, 1.6.3.5). */
    uint32_t channels;
    /** ISO 639-2/T language code, three letters and a zero byte. */
    char language[4];
    /** Bytes in `config`. A configuration of 256 bytes or more is not copied; this stays as the caller left it. */
    uint8_t configSize;
    /** H.264: the AVCDecoderConfigurationRecord (ISO/IEC 14496-15, 5.3.3.1). Otherwise the DecoderSpecificInfo
     *  (ISO/IEC 14496-1, 7.2.6.7), for AAC the AudioSpecificConfig (ISO/IEC 14496-3, 1.6.2.1). */
    uint8_t config[255];
    uint32_t reserved2; /* not written */
} CodecInfo;

/** Makes a handle, opens the file through the player's functions and starts to read it ahead.
 *  @param path          names the file to the player's `open`. ".mpd" and ".ism" are refused; ".m3d" marks a 3D file
 *  @param file          not copied
 *  @param allocator     not copied
 *  @param heapMemory    the module's only working memory, any alignment; must stay untouched until KivMp4Destroy
 *  @param heapCapacity  its size in bytes: 230 KiB, of which 192 KiB are the read-ahead buffer, and for each AccessUnit
 *                       record that is delivered into the largest unit and 3 KiB, twice, since the block may move as
 *                       it grows. 1 MiB serves most files. Too little looks like a bad file: null here, KIVMP4_ERROR
 *                       from KivMp4Open or from the delivery of a large unit
 *  @param basePriority  the reading thread asks for this plus 15: a wish; on Linux it is not applied
 *  @param logLevel      KIVMP4_LOG_... KIVMP4_LOG_ERRORS writes lines also when a call succeeds: for each track
 *                       that KivMp4Open leaves out, for a parameter set that it cannot read, for AAC of more than two
 *                       channels, for a refused block of memory, and for a jump without an enabled video track
 *  @return the handle; null when an argument or one of the player's functions is missing, the name is refused, the file
 *          does not open, the thread does not start or the heap is too small */
KIVMP4_API Mp4Demux* KivMp4Create(const char* path, const FileInterface* file, const ClientAllocator* allocator,
                                  void* heapMemory, size_t heapCapacity, int32_t basePriority, int32_t logLevel);

/** Parses the movie. Blocks until the player's functions have delivered it. All tracks start disabled at sample 0.
 *
 *  Tracks that the file marks as disabled, that hold neither video nor audio, whose coding is unknown, or whose
 *  description is damaged or has more than one entry do not appear. The others are numbered without gaps, so numbers
 *  may differ from those that other programs show.
 *  @param trackCount  receives the number of tracks, from 1; on failure it stays as it is
 *  @param duration    receives the movie's duration in units of 100 microseconds; -1 on failure
 *  @return KIVMP4_OK; KIVMP4_ERROR when the size does not become known, reading fails, memory is missing, no track is
 *          left (not an MP4 file, for example), or the handle is open already, which it stays */
KIVMP4_API int32_t KivMp4Open(Mp4Demux* demux, uint32_t* trackCount, int64_t* duration);

/** Ends the reading thread, closes the file and gives back everything. No function of the player is called after it
 *  has returned; the handle and all payload blocks are gone.
 *  @return KIVMP4_OK, also when nothing was open any more; KIVMP4_ERROR for a handle that does not exist */
KIVMP4_API int32_t KivMp4Destroy(Mp4Demux* demux);

/** Lets delivery and navigation consider a track, or not (`enable` 0). Enable only tracks that KivMp4GetTrackInfo
 *  describes: the others have no payload format, so that delivery stops with KIVMP4_ERROR when their turn comes.
 *  @return KIVMP4_OK; KIVMP4_ERROR when the index is not below the track count, which is 0 before KivMp4Open */
KIVMP4_API int32_t KivMp4EnableTrack(Mp4Demux* demux, int32_t trackIndex, uint8_t enable);

/** Describes a track.
 *  @param info  a record filled with zero bytes
 *  @return KIVMP4_OK; KIVMP4_ERROR before KivMp4Open, for an index not below the track count, and for a track that
 *          cannot be described (uncompressed video, PCM and other audio without a waveform-format header) */
KIVMP4_API int32_t KivMp4GetTrackInfo(Mp4Demux* demux, int32_t trackIndex, CodecInfo* info);

/** Delivers the enabled tracks' next unit, the one that lies first in the file, and moves its track on.
 *  @return KIVMP4_OK; KIVMP4_END when no enabled track has a unit left; KIVMP4_ERROR when reading failed, the file is
 *          cut off or damaged there, the sample is empty, the unit does not fit in the heap, or the track cannot be
 *          described. The track (`unit->trackIndex`) stays where it is, so that the next call tries the same unit
 *          again; a jump, a step or disabling the track goes on elsewhere */
KIVMP4_API int32_t KivMp4GetNextUnit(Mp4Demux* demux, AccessUnit* unit);

/** Moves the last enabled video track to its next key frame and delivers it; all other tracks, disabled ones too, move
 *  to the same time. KivMp4GetNextUnit afterwards delivers that key frame again and goes on from there.
 *  @return KIVMP4_OK; KIVMP4_END when there is no later key frame, or the track has no table of key frames (every frame
 *          is one then) or no times: nothing has moved; KIVMP4_ERROR without an enabled video track (nothing has moved)
 *          or when delivery failed as in KivMp4GetNextUnit (the tracks have moved), which it does too when the table of
 *          key frames names a sample that the track does not have */
KIVMP4_API int32_t KivMp4GetNextSyncUnit(Mp4Demux* demux, AccessUnit* unit);

/** As KivMp4GetNextSyncUnit, backward. At the first key frame and past the last one it delivers the first key frame. */
KIVMP4_API int32_t KivMp4GetPrevSyncUnit(Mp4Demux* demux, AccessUnit* unit);

/** Moves all tracks, disabled ones too, to a presentation time: video to the nearest key frame, counted in samples, or
 *  past the last key frame to the picture itself, the others to the time of that frame. The last enabled video track
 *  leads, without one the first enabled track that has units left.
 *  @param presentationTime  90 kHz ticks, without the leading track's delay by an edit list: subtract it from a `pts`
 *  @return KIVMP4_OK; KIVMP4_ERROR without tracks; KIVMP4_NOWHERE when the time lies at or past the last sample's or
 *          before 0, the video track stands at its end, it has no table of key frames (every frame is one then: no jump
 *          is possible), or the leading track has no times. Nothing has moved when it is not KIVMP4_OK */
KIVMP4_API int32_t KivMp4JumpPTS(Mp4Demux* demux, int64_t presentationTime);

/** Copies the payload of the record last delivered to.
 *  @param destination  at least that record's `size` bytes
 *  @return KIVMP4_OK; KIVMP4_ERROR before the first delivery. The record must still exist */
KIVMP4_API int32_t KivMp4GetNextUnitData(Mp4Demux* demux, void* destination);

/** Moves every enabled track back to sample 0; disabled ones stay. @return KIVMP4_OK */
KIVMP4_API int32_t KivMp4Rewind(Mp4Demux* demux);

/** Prepares a new record: no payload block, sizes 0. A block that it held stays taken until KivMp4Destroy, so prepare
 *  each record once. The handle may be null. @return KIVMP4_OK */
KIVMP4_API int32_t KivMp4InitUnit(Mp4Demux* demux, AccessUnit* unit);

/** Whole seconds in a count of 90 kHz ticks, fraction cut off. Any thread. */
KIVMP4_API uint64_t KivMp4TicksToSeconds(uint64_t ticks);

/** 90 kHz ticks in a time of 100 microsecond units (the unit of KivMp4Open's duration), fraction cut off; the product
 *  with 90000 wraps in 64 bits. Any thread. */
KIVMP4_API uint64_t KivMp4TimeToTicks(uint64_t time100us);

/** Not available for local files. @return KIVMP4_ERROR */
KIVMP4_API int32_t KivMp4SetAvailableBW(Mp4Demux* demux, ...);
/** Not available for local files. @return KIVMP4_ERROR */
KIVMP4_API int32_t KivMp4GetAvailableBW(Mp4Demux* demux, ...);
/** Stands for operations that this module does not have. @return KIVMP4_ERROR */
KIVMP4_API int32_t KivMp4Unsupported(void);

/** Ends trick mode: reading ahead goes on. Does nothing outside trick mode, and nothing for a file that has failed. */
KIVMP4_API void KivMp4ResumeFileReader(Mp4Demux* demux);

/** Begins trick mode: what was read ahead is dropped, reading ahead stops, and every read goes straight to the player's
 *  `read`, until KivMp4ResumeFileReader. Steps and jumps work without it and bring the same units; with it nothing is
 *  read that the next step throws away. It waits for a `read` under way, also while that has nothing yet. */
KIVMP4_API void KivMp4FlushFileReader(Mp4Demux* demux);

#ifdef __cplusplus
}
#endif

#endif
