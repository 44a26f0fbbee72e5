// The one way in which unit handlers fetch bytes of the file.
#pragma once

#include <cstdint>

namespace kivmp4 {

class SampleReader {
public:
    /// Copies `size` bytes (0 too) that begin at file offset `offset`.
    /// @return 0 on success; anything else is a failure for good
    [[nodiscard]] virtual int32_t ReadData(int64_t, uint32_t, void*) { return -1; }

protected:
    ~SampleReader() = default;
};

}  // namespace kivmp4
