// The file as a byte source: the parent of the root box.
#pragma once

#include "io/DataSource.h"
#include "io/FileReader.h"

namespace kivmp4 {

/// Nothing is served from memory at this level. Without a reader (given none, or closed) reads fail and the size is 0.
/// Read and GetSize run on whichever thread reads through the boxes; Close runs when no read is under way and is
/// followed by `delete`.
class FileSource : public DataSource {
public:
    /// @param fileReader  owned from here on; may be null
    explicit FileSource(FileReader* fileReader, int32_t level) : reader(fileReader), logLevel(level) {}

    ReadStatus Read(int64_t offset, uint32_t size, void* destination) override;
    /// @return what the player answers now; 0 while the size is not known
    int64_t GetSize() override;

    /// Ends the reading thread and closes the file. @return 0; -1 when there is no reader (any more)
    int32_t Close();

    FileReader* Reader() const { return reader; }

private:
    FileReader* reader;  // owned until Close
    [[maybe_unused]] int32_t logLevel;
};

}  // namespace kivmp4
