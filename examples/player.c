/* The smallest player: opens an MP4 file and shows each unit that it would decode. */
#define _POSIX_C_SOURCE 200809L
#define _FILE_OFFSET_BITS 64
#include <KivMp4.h>

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { HEAP_SIZE = 16 << 20 };

typedef struct File {
    FILE* stream;
    int64_t size;
} File;

static int32_t openFile(void* context, const char* path, uint32_t mode) {
    File* file = (File*)context;
    (void)mode;
    file->stream = fopen(path, "rb");
    if (!file->stream) {
        perror(path);
        return -1;
    }
    if (fseeko(file->stream, 0, SEEK_END) == 0) file->size = ftello(file->stream);
    return 0;
}

static int32_t closeFile(void* context) {
    return fclose(((File*)context)->stream);
}

/* Answering 0 would mean "nothing yet, ask again", so a failure is told as (uint32_t)-1. */
static uint32_t readFile(void* context, void* destination, int64_t offset, uint32_t size) {
    File* file = (File*)context;
    if (fseeko(file->stream, offset, SEEK_SET) != 0) return (uint32_t)-1;
    return fread(destination, 1, size, file->stream) == size ? size : (uint32_t)-1;
}

/* May run at the same time as readFile, so it does not touch the stream. */
static int64_t sizeOfFile(void* context) {
    return ((File*)context)->size;
}

static void* allocate(void* context, size_t alignment, size_t size) {
    (void)context;
    (void)alignment; /* malloc is aligned for more than the 8 bytes that are asked for at most */
    return malloc(size);
}

static void release(void* context, void* block) {
    (void)context;
    free(block);
}

static int fail(const char* path, const char* what) {
    fprintf(stderr, "player: %s: %s\n", path, what);
    return 1;
}

static int play(Mp4Demux* demux, const char* path) {
    uint32_t trackCount, track, units = 0;
    int64_t duration;
    int32_t result;
    AccessUnit unit;

    if (KivMp4Open(demux, &trackCount, &duration) != KIVMP4_OK) return fail(path, "not a usable MP4 file");
    for (track = 0; track < trackCount; track++) {
        CodecInfo info;
        memset(&info, 0, sizeof(info));
        /* A track that cannot be described has no payload format: leave it disabled. */
        if (KivMp4GetTrackInfo(demux, (int32_t)track, &info) == KIVMP4_OK) KivMp4EnableTrack(demux, (int32_t)track, 1);
    }
    KivMp4InitUnit(demux, &unit);
    while ((result = KivMp4GetNextUnit(demux, &unit)) == KIVMP4_OK) {
        /* A player hands unit.payload, unit.size bytes, to the decoder of unit.trackIndex here. */
        printf("track %" PRIu32 ": %" PRId32 " bytes at %.3f s\n", unit.trackIndex, unit.size,
               (double)unit.pts / 90000);
        units++;
    }
    if (result != KIVMP4_END) return fail(path, "stopped before the end");
    return units > 0 ? 0 : fail(path, "no units to play");
}

int main(int argc, char** argv) {
    File file = {NULL, 0};
    FileInterface files = {&file, openFile, closeFile, readFile, sizeOfFile};
    ClientAllocator memory = {NULL, allocate, release};
    void* heap = malloc(HEAP_SIZE);
    Mp4Demux* demux;
    int failed;

    if (argc != 2) {
        fprintf(stderr, "usage: player FILE, an MP4 file\n");
        return 2;
    }
    demux = KivMp4Create(argv[1], &files, &memory, heap, HEAP_SIZE, 0, KIVMP4_LOG_NOTHING);
    failed = demux ? play(demux, argv[1]) : fail(argv[1], "cannot be opened");
    KivMp4Destroy(demux);
    free(heap);
    return failed;
}
