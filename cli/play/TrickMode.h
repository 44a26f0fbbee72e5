// Trick mode as long as an object of this class lives.
#pragma once

#include <KivMp4.h>

namespace kivmp4::cli {

/// Reading ahead would be thrown away at each step from key frame to key frame, so it rests meanwhile.
class TrickMode {
public:
    explicit TrickMode(Mp4Demux* demux) : handle(demux) { KivMp4FlushFileReader(handle); }
    ~TrickMode() { KivMp4ResumeFileReader(handle); }
    TrickMode(const TrickMode&) = delete;
    TrickMode& operator=(const TrickMode&) = delete;

private:
    Mp4Demux* handle;
};

}  // namespace kivmp4::cli
