/* KivMp4: demultiplexes one local MP4 file at a time for a media player.
 *
 * The player hands over a path, its own file functions, its own memory functions and one block of memory. The module
 * reads the file ahead on a background thread and hands out coded samples as access units, ready for a decoder, in the
 * order in which they lie in the file.
 *
 *     Mp4Demux* demux = KivMp4Create("clip.mp4", &files, &memory, block, sizeof block, 0, 1);
 *     uint32_t tracks; int64_t duration; AccessUnit unit;
 *     if (demux && KivMp4Open(demux, &tracks, &duration) == 0) {
 *         KivMp4InitUnit(demux, &unit);
 *         for (uint32_t t = 0; t < tracks; t++) {
 *             CodecInfo info = {0};
 *             if (KivMp4GetTrackInfo(demux, (int32_t)t, &info) == 0) KivMp4EnableTrack(demux, (int32_t)t, 1);
 *         }
 *         while (KivMp4GetNextUnit(demux, &unit) == 0) decode(unit.trackIndex, unit.payload, unit.size, unit.pts);
 *     }
 *     KivMp4Destroy(demux);
 *
 * Results. Functions that return int32_t answer KIVMP4_OK (0) or KIVMP4_ERROR (-1); delivery and steps answer
 * KIVMP4_END (1) when nothing is left; a seek answers KIVMP4_NO_POSITION (-2) when it has nowhere to go. A null handle,
 * record or out pointer answers -1 (or does nothing); it never crashes.
 *
 * Messages go to standard error, as far as the log level admits. Level 1 (errors) is not silent on success: a file is
 * usable although a track of it was refused (" Invalid Track ", with the reason in the lines before), and a seek without
 * an enabled video track says that the first enabled track leads.
 *
 * Times are signed counts of 90 kHz ticks unless a line says otherwise. Samples are numbered from 0 in the order of their
 * track's tables. Tracks are numbered from 0 among those that the module can use: disabled tracks ("tkhd" without its
 * enabled flag), those with more than one sample description, and sample entries other than H.264 ("avc1"), MPEG-4
 * visual ("mp4v"), uncompressed video, AAC ("mp4a") and a few sound formats do not appear, so numbers may differ from
 * those in the file.
 *
 * Edit lists: an empty edit followed by one that begins at media time 0 delays the track by the empty edit's length. Every
 * other list counts as none, so a track whose list cuts off its beginning is presented that much too late.
 *
 * Threads. One handle exists at a time in a process: creating another first destroys the one before, so nothing of it may
 * be running or be freed yet. Forget the old pointer: it is refused like a null one, unless the new handle was made in the
 * same heap memory, where it may have the same address. KivMp4GetNextUnit and KivMp4JumpPTS may be called from different
 * threads at once and wait for each other; KivMp4FlushFileReader and KivMp4ResumeFileReader may be called while any
 * delivery, step or seek runs. All other calls on a handle must not overlap with each other or with these.
 */
#ifndef KIVMP4_H
#define KIVMP4_H

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

/** The version of this header, which is the library's. */
#define KIVMP4_VERSION_MAJOR 1
#define KIVMP4_VERSION_MINOR 0
#define KIVMP4_VERSION_PATCH 0
#define KIVMP4_VERSION "1.0.0"

/** Results of the functions that return int32_t. */
enum {
    KIVMP4_OK = 0,
    KIVMP4_END = 1,          /* no unit or key frame is left in that direction */
    KIVMP4_ERROR = -1,
    KIVMP4_NO_POSITION = -2  /* KivMp4JumpPTS: there is no sample to go to */
};

/** Log levels, for KivMp4Create. Other values print nothing. */
enum {
    KIVMP4_LOG_NOTHING = 0,
    KIVMP4_LOG_ERRORS = 1,
    KIVMP4_LOG_WARNINGS = 2,  /* errors and warnings */
    KIVMP4_LOG_H264 = 3,      /* the report on H.264 parameter sets alone */
    KIVMP4_LOG_ALL = 4
};

/** CodecInfo.kind. */
enum { KIVMP4_KIND_VIDEO = 0, KIVMP4_KIND_AUDIO = 1 };

/** CodecInfo.subtype. */
enum {
    KIVMP4_VIDEO_MPEG4 = 0,  /* ISO/IEC 14496-2 */
    KIVMP4_VIDEO_H264 = 1,   /* ISO/IEC 14496-10 */
    KIVMP4_AUDIO_AAC = 2,    /* ISO/IEC 14496-3 */
    KIVMP4_AUDIO_WAVEFORMAT = 4
};

/** One open (or opening) file. Made by KivMp4Create, ended by KivMp4Destroy. */
typedef struct Mp4Demux Mp4Demux;

/** The player's file functions. The record and what `context` points at must outlive the handle.
 *
 *  `open`, `close` run on the thread that calls KivMp4Create, KivMp4Open or KivMp4Destroy. `read` runs on the module's
 *  own thread, which has a stack of 256 KiB, and on the threads that call the module, never two calls at once. `getSize`
 *  may run on both at once. */
typedef struct FileInterface {
    /** Handed to each of the four functions as their first argument; the module does not look at it. */
    void* context;
    /** Opens the file. `path` is the one given to KivMp4Create, `mode` is 0 (read). A negative answer is a failure. */
    int32_t (*open)(void* context, const char* path, uint32_t mode);
    /** Closes the file: exactly once for each `open` that did not fail. The answer is not looked at. */
    int32_t (*close)(void* context);
    /** Copies `size` bytes that begin at file offset `offset` to `destination` and answers how many it copied.
     *
     *  0 means "nothing yet, ask again": the module asks again and again until bytes come or the handle is destroyed.
     *  A player whose file has failed must therefore answer (uint32_t)-1, and so must one that wants a call which waits
     *  for bytes to return: KivMp4Destroy must not overlap that call. Every other answer than `size` (less, or more) fails
     *  the delivery that needed the bytes, and all later ones when the module's own thread had asked. The module never
     *  asks for 0 bytes, for a negative offset or beyond the size that `getSize` told. */
    uint32_t (*read)(void* context, void* destination, int64_t offset, uint32_t size);
    /** The file's size in bytes; 0 or less means "not known yet": KivMp4Open asks for about half a second. */
    int64_t (*getSize)(void* context);
} FileInterface;

/** The player's memory functions, used for large tables. The record must outlive the handle. They are called only on
 *  the threads that call the module, and every block is given back by the end of KivMp4Destroy. */
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
    /** The unit's bytes. The block belongs to the module: the next delivery into the same record writes over it or
     *  replaces it, and it dies with the handle. H.264 comes with start codes (ISO/IEC 14496-10, Annex B).
     *
     *  In front of an H.264 track's sample 0, or of the first unit that is delivered when that is another one, stand the
     *  track's parameter sets; MPEG-4 visual has its configuration there. So they come after opening and after
     *  KivMp4Rewind, but not after a seek or a step into the middle: a player that starts a new decoder there gives it the
     *  sets of CodecInfo.config first. All else is as in the file. */
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
    /** 1 when decoding can start here, else 0. */
    uint32_t isSync;
    /** The track that the unit belongs to. */
    uint32_t trackIndex;
    /** 1 for a video track, else 0. */
    uint8_t isVideo;
    uint8_t padding[7]; /* not written */
} AccessUnit;

/** What a decoder needs to know of a track. 344 bytes with the same offsets on every target. Fields that do not apply
 *  to the track are not written, so hand over a record filled with zero bytes. */
typedef struct CodecInfo {
    /** KIVMP4_KIND_VIDEO or KIVMP4_KIND_AUDIO. */
    uint32_t kind;
    /** KIVMP4_VIDEO_MPEG4, KIVMP4_VIDEO_H264, KIVMP4_AUDIO_AAC, or KIVMP4_AUDIO_WAVEFORMAT: audio with a waveform-format
     *  header. */
    uint32_t subtype;
    /** Video: picture size in pixels as the file states it. */
    uint32_t width;
    uint32_t height;
    /** H.264: profile_idc and level_idc (ISO/IEC 14496-10, 7.4.2.1.1). The level may have been raised so that the
     *  decoder reserves enough frames; 100 is added when the file name marks a 3D file (".m3d"). */
    uint32_t profile;
    uint32_t level;
    /** H.264: reference frames, and decoded frames to be buffered. */
    uint32_t refFrames;
    uint32_t decFrameBuffering;
    /** Video: 1048576 for every file. The distance in the file, in bytes, between samples of two tracks that are due
     *  together which a player should be prepared for; nothing is measured. */
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
 *  @param path          names the file to the player's `open`; not used after this call. ".mpd" and ".ism" are refused;
 *                       ".m3d" marks a 3D file
 *  @param file          kept by reference, as is `allocator`: both must outlive the handle
 *  @param heapMemory    the module's only working memory, any alignment; must stay untouched until KivMp4Destroy
 *  @param heapCapacity  its size in bytes. The read-ahead buffer takes 192 KiB, a movie some 40 KiB and more with its
 *                       tracks, the time tables 8 bytes an entry, and each unit delivered its size and 2 KiB. 1 MiB serves
 *                       most files. Too little looks like a damaged file: calls answer -1 and tracks are missing
 *  @param basePriority  the reading thread asks for this plus 15. Linux gives every thread its creator's scheduling and
 *                       ignores it
 *  @param logLevel      KIVMP4_LOG_...
 *  @return the handle; null when the name is refused, the file does not open, the heap is too small for a handle, or the
 *          host has no thread to give */
KIVMP4_API Mp4Demux* KivMp4Create(const char* path, const FileInterface* file, const ClientAllocator* allocator,
                                  void* heapMemory, size_t heapCapacity, int32_t basePriority, int32_t logLevel);

/** Parses the movie. Blocks until the player's functions have delivered it. All tracks start disabled at sample 0.
 *  @param trackCount  receives the number of usable tracks, from 1; not written on failure
 *  @param duration    receives the movie's duration in units of 100 microseconds; -1 on failure
 *  @return 0; -1 when the size is not known half a second later, when memory is missing (both may be tried again), when
 *          there is no usable track (also because `read` failed), or when the handle is open already */
KIVMP4_API int32_t KivMp4Open(Mp4Demux* demux, uint32_t* trackCount, int64_t* duration);

/** Ends the reading thread, closes the file and gives back everything. No function of the player is called after it
 *  has returned; the handle and all payload blocks are gone.
 *  @return 0, also when nothing was open any more; -1 for a null handle */
KIVMP4_API int32_t KivMp4Destroy(Mp4Demux* demux);

/** Lets delivery and navigation consider a track, or not (`enable` 0). Enable only tracks that KivMp4GetTrackInfo
 *  describes: the others have no payload format, so that delivery stops with -1 when their turn comes.
 *  @param trackIndex  a negative one stands for track 0
 *  @return 0; -1 before KivMp4Open and when the index is not below the track count */
KIVMP4_API int32_t KivMp4EnableTrack(Mp4Demux* demux, int32_t trackIndex, uint8_t enable);

/** Describes a track.
 *  @param info  a record filled with zero bytes
 *  @return 0; -1 before KivMp4Open, for an index not below the track count, and for a track that cannot be described
 *          (uncompressed video, PCM and other audio without a waveform-format header) */
KIVMP4_API int32_t KivMp4GetTrackInfo(Mp4Demux* demux, int32_t trackIndex, CodecInfo* info);

/** Delivers the enabled tracks' next unit, the one that lies first in the file, and moves its track on.
 *  @return 0; 1 when no enabled track has a unit left; -1 before KivMp4Open, and when the unit cannot be had: `read`
 *          failed, the heap has no room for it, its sample is empty, lies past the file's end or is malformed. The track
 *          stays where it is, so that the next call tries the same unit again; disable the track to go on without it */
KIVMP4_API int32_t KivMp4GetNextUnit(Mp4Demux* demux, AccessUnit* unit);

/** Moves the last enabled video track to its next key frame and delivers it; all other tracks, disabled ones too, move
 *  to the same time. KivMp4GetNextUnit afterwards delivers that key frame again and goes on from there. Trick mode
 *  (KivMp4FlushFileReader) is not needed for it, only faster.
 *  @return 0; 1 when there is no later key frame, or no table of key frames ("stss") because every frame is one: nothing
 *          has moved; -1 without an enabled video track, or when the unit cannot be had: then the tracks have moved */
KIVMP4_API int32_t KivMp4GetNextSyncUnit(Mp4Demux* demux, AccessUnit* unit);

/** As KivMp4GetNextSyncUnit, backward. From the first key frame on it delivers the first key frame again. */
KIVMP4_API int32_t KivMp4GetPrevSyncUnit(Mp4Demux* demux, AccessUnit* unit);

/** Moves all tracks, disabled ones too, to a presentation time: video to the nearest key frame, the others to the time
 *  of that frame. Without an enabled video track the first enabled track leads.
 *  @param presentationTime  90 kHz ticks
 *  @return 0; -1 before KivMp4Open; -2 when the time lies at or after the last sample's, or before 0, when the video track
 *          stands at its end, or has no table of key frames ("stss") because every frame is one. Nothing has moved when it
 *          is not 0 */
KIVMP4_API int32_t KivMp4JumpPTS(Mp4Demux* demux, int64_t presentationTime);

/** Copies the payload of the record last delivered to, which must still exist.
 *  @param destination  at least that record's `size` bytes
 *  @return 0; -1 before the first delivery */
KIVMP4_API int32_t KivMp4GetNextUnitData(Mp4Demux* demux, void* destination);

/** Moves every enabled track back to sample 0; disabled ones stay. @return 0 */
KIVMP4_API int32_t KivMp4Rewind(Mp4Demux* demux);

/** Prepares a new record: no payload block, sizes 0. A block that it held is not freed. The handle may be null.
 *  @return 0 */
KIVMP4_API int32_t KivMp4InitUnit(Mp4Demux* demux, AccessUnit* unit);

/** Whole seconds in a count of 90 kHz ticks, fraction cut off. Any thread. */
KIVMP4_API uint64_t KivMp4TicksToSeconds(uint64_t ticks);

/** 90 kHz ticks in a time of 100 microsecond units (the unit of KivMp4Open's duration), fraction cut off; the product
 *  with 90000 wraps in 64 bits. Any thread. */
KIVMP4_API uint64_t KivMp4TimeToTicks(uint64_t time100us);

/** Not available for local files. @return -1 */
KIVMP4_API int32_t KivMp4SetAvailableBW(Mp4Demux* demux, ...);
/** Not available for local files. @return -1 */
KIVMP4_API int32_t KivMp4GetAvailableBW(Mp4Demux* demux, ...);
/** Stands for operations that this module does not have. @return -1 */
KIVMP4_API int32_t KivMp4Unsupported(void);

/** Ends trick mode: reading ahead goes on. Does nothing outside trick mode. */
KIVMP4_API void KivMp4ResumeFileReader(Mp4Demux* demux);

/** Begins trick mode, for moving by key frames: what was read ahead is dropped, reading ahead stops, and every read goes
 *  straight to the player's `read`, until KivMp4ResumeFileReader. Everything works without it too; then each step reads
 *  64 KiB where the key frame lies. */
KIVMP4_API void KivMp4FlushFileReader(Mp4Demux* demux);

#ifdef __cplusplus
}
#endif

#endif
