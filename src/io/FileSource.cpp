// Adapts the boxes' reads to the streaming reader.
#include "io/FileSource.h"

namespace kivmp4 {

ReadStatus FileSource::Read(int64_t offset, uint32_t size, void* destination) {
    if (!reader)
        return ReadStatus::Failed;
    uint32_t delivered = 0;
    const ReadStatus status = reader->Read(offset, size, destination, delivered);
    if (status != ReadStatus::Done)
        return status;
    return delivered == size ? ReadStatus::Done : ReadStatus::Failed;  // short through the player: for good
}

int64_t FileSource::GetSize() { return reader ? reader->GetFileSize() : 0; }

int32_t FileSource::Close() {
    if (!reader)
        return -1;
    reader->Stop();
    reader->Teardown();
    reader = nullptr;
    return 0;
}

}  // namespace kivmp4
