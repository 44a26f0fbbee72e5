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
    if (!file->stream)
        return -1;
    if (fseeko(file->stream, 0, SEEK_END) == 0)
        file->size = ftello(file->stream);
    return 0;
}

static int32_t closeFile(void* context) {
    File* file = (File*)context;
    return fclose(file->stream);
}

/* Answering 0 would mean "nothing yet, ask again". */
static uint32_t readFile(void* context, void* destination, int64_t offset, uint32_t size) {
    File* file = (File*)context;
    if (fseeko(file->stream, offset, SEEK_SET) != 0)
        return KIVMP4_READ_FAILED;
    return fread(destination, 1, size, file->stream) == size ? size : KIVMP4_READ_FAILED;
}

/* May run at the same time as readFile, so it does not touch the stream. */
static int64_t sizeOfFile(void* context) {
    File* file = (File*)context;
    return file->size;
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

/* Returns what went wrong, or NULL. */
static const char* play(Mp4Demux* demux) {
    uint32_t trackCount, track;
    int64_t duration;
    int32_t result;
    unsigned long units = 0;
    AccessUnit unit;

    if (KivMp4Open(demux, &trackCount, &duration) != KIVMP4_OK)
        return "not a usable MP4 file";
    for (track = 0; track < trackCount; track++) {
        CodecInfo info;
        memset(&info, 0, sizeof info);
        /* A track that cannot be described has no payload format: leave it disabled. */
        if (KivMp4GetTrackInfo(demux, (int32_t)track, &info) == KIVMP4_OK)
            KivMp4EnableTrack(demux, (int32_t)track, 1);
    }
    KivMp4InitUnit(demux, &unit);
    while ((result = KivMp4GetNextUnit(demux, &unit)) == KIVMP4_OK) {
        /* A player hands unit.payload, unit.size bytes, to the decoder of unit.trackIndex here. */
        printf("track %" PRIu32 ": %" PRId32 " bytes at %.3f s\n", unit.trackIndex, unit.size,
               (double)unit.pts / KIVMP4_TICKS_PER_SECOND);
        units++;
    }
    if (result != KIVMP4_END)
        return "stopped before the end, the file is damaged or cannot be read";
    return units == 0 ? "has no units to play" : NULL;
}

int main(int argc, char** argv) {
    File file = {NULL, 0};
    FileInterface files = {&file, openFile, closeFile, readFile, sizeOfFile};
    ClientAllocator memory = {NULL, allocate, release};
    const char* failure = "cannot open";
    void* heap;
    Mp4Demux* demux;

    if (argc != 2) {
        fprintf(stderr, "usage: player FILE\n");
        return 2;
    }
    heap = malloc(HEAP_SIZE);
    demux = KivMp4Create(argv[1], &files, &memory, heap, HEAP_SIZE, 0, KIVMP4_LOG_ERRORS);
    if (demux)
        failure = play(demux);
    KivMp4Destroy(demux);
    free(heap);
    if (failure)
        fprintf(stderr, "%s: %s\n", argv[1], failure);
    return failure ? 1 : 0;
}
