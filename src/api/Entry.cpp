// Creating and destroying the handle.
#include <new>

#include "api/Mp4Demux.h"
#include "support/ModuleHeap.h"

namespace kivmp4 {

platform::LightMutex ModuleLock;

namespace {

Mp4Demux* liveHandle = nullptr;

bool IsComplete(const FileInterface* file) { return file && file->open && file->close && file->read && file->getSize; }

bool IsComplete(const ClientAllocator* allocator) { return allocator && allocator->allocate && allocator->free; }

void FreeHandle(Mp4Demux* demux) {
    demux->lock.Delete();
    ModuleDelete(demux);
}

}  // namespace

bool IsLive(const Mp4Demux* demux) { return demux && demux == liveHandle; }

}  // namespace kivmp4

using namespace kivmp4;

extern "C" {

Mp4Demux* KivMp4Create(const char* path, const FileInterface* file, const ClientAllocator* allocator, void* heapMemory,
                       size_t heapCapacity, int32_t basePriority, int32_t logLevel) {
    if (!path || !IsComplete(file) || !IsComplete(allocator))
        return nullptr;
    // The one before was never destroyed: its thread must be gone before its memory may be given to this one.
    if (liveHandle)
        KivMp4Destroy(liveHandle);
    if (!CreateModuleHeap(heapMemory, heapCapacity))
        return nullptr;
    new (&ModuleLock) platform::LightMutex();
    Mp4Demux* demux = ModuleNew<Mp4Demux>();
    if (demux) {
        demux->lock.Create("DemuxStlHandler");
        if (demux->OpenCheck(path, file, allocator, basePriority, logLevel) == 0) {
            ModuleLock.Create("Mp4Demux Critical ");
            liveHandle = demux;
            return demux;
        }
        FreeHandle(demux);
    }
    // Without a handle the player may use its memory again at once, so the heap must not stay in it.
    DestroyModuleHeap();
    return nullptr;
}

int32_t KivMp4Destroy(Mp4Demux* demux) {
    if (!IsLive(demux))
        return -1;
    const int32_t result = demux->Close();
    liveHandle = nullptr;
    ModuleLock.Delete();
    new (&ModuleLock) platform::LightMutex();
    FreeHandle(demux);
    DestroyModuleHeap();
    return result;
}

}  // extern "C"
