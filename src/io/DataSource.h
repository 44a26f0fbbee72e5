// The byte source that boxes and files have in common.
#pragma once

#include <cstddef>
#include <cstdint>

#include "support/ModuleHeap.h"

namespace kivmp4 {

constexpr uint32_t kRetryDelay = 90;  // microseconds

enum class ReadStatus : int32_t {
    Done = 0,
    NotReady = 2,  // ask again after kRetryDelay
    Failed = 3     // for good
};

/// The base answers as a source without any bytes. Objects live on the module heap and go by `delete`.
class DataSource {
public:
    virtual ~DataSource() {}
    static void operator delete(void* object) { ModuleFree(object); }

    /// Copies `size` bytes that begin `offset` bytes after the source's first one.
    [[nodiscard]] virtual ReadStatus Read(int64_t, uint32_t, void*) { return ReadStatus::NotReady; }

    virtual int64_t GetSize() { return 0; }

    /// Whether the bytes can be had from memory, through AcquireData.
    virtual bool IsDataAvailable() { return false; }

    /// @return the source's first byte in memory, or null; each pointer is given back by one ReleaseData
    [[nodiscard]] virtual const uint8_t* AcquireData() { return nullptr; }
    virtual void ReleaseData() {}
};

}  // namespace kivmp4
