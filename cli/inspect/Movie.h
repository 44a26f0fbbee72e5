// What is in a file: its boxes, and what those of the movie and its tracks say.
#pragma once

#include <string>
#include <vector>

#include "inspect/Box.h"
#include "inspect/Track.h"

namespace kivmp4::inspect {

/// Reads all that is asked of a file but its samples. The file must outlive it.
class Movie {
public:
    explicit Movie(const File& file);

    const File& Source() const { return file; }
    const BoxTree& Tree() const { return tree; }
    const Box& Root() const { return tree.Root(); }

    const Box* moov = nullptr;      // null in a file that was cut off, or is none of this kind
    const Box* mdat = nullptr;      // the first one
    const Box* fragment = nullptr;  // the first "moof", else "mvex" or "sidx"; null for an ordinary file
    const Box* items = nullptr;     // "meta" with pictures as items (HEIF), else null
    std::string majorBrand = {};
    std::vector<std::string> brands = {};  // compatible ones
    uint32_t timescale = 0;                // of mvhd
    uint64_t duration = 0;                 // of mvhd, in its timescale
    std::vector<Track> tracks = {};        // one for each "trak"
    /// The index lies before the samples, so that playing can start before all is there.
    bool MoovFirst() const { return moov && (!mdat || moov->offset < mdat->offset); }

private:
    void ReadBrands();
    void ReadMovieHeader();

    const File& file;
    BoxTree tree;
};

/// What a file that is none of this kind is instead, by its first bytes: "a Matroska or WebM file"; nothing if unknown.
std::string Stranger(const File& file);

}  // namespace kivmp4::inspect
