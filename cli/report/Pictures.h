// The pictures of a report, each with what it shows and what there is to see in this file.
#pragma once

#include <string>
#include <vector>

#include "play/Trace.h"
#include "render/Plot.h"
#include "report/Survey.h"

namespace kivmp4::report {

/// Texts are HTML.
struct Picture {
    std::string id;  // of its place in the page, and the name of its file
    std::string title;
    std::string caption;  // how to read it
    std::string verdict;  // what it shows of this file; empty for nothing worth saying
    std::vector<render::Plot> plots = {};
};

/// Whose bytes lie where, how far the tracks are apart, and which bytes a player passes over.
std::vector<Picture> InterleavingPictures(const Survey& survey);
/// Bit rate of each track over time.
Picture RatePicture(const Survey& survey);
/// Sizes of pictures, key frames, and the time from one to the next. Nothing without a video track.
std::vector<Picture> FramePictures(const Survey& survey);
/// The reads of a player, a plot for each phase.
Picture ReadingPicture(const cli::TraceResult& trace, const cli::TraceOptions& options);

/// A part of the whole: "12 %", and below a tenth "0.4 %".
std::string Share(double part, double whole);

}  // namespace kivmp4::report
