// A report as one page: what stands out, pictures, tables. It needs neither network nor scripts to be read.
#pragma once

#include <string>
#include <vector>

#include "check/Check.h"
#include "play/FileView.h"
#include "report/Pictures.h"

namespace kivmp4::report {

/// What is told on the page. Texts from the file or the command line are not yet fit for HTML.
struct Contents {
    std::string title;
    const cli::Source& source;
    const Survey& survey;
    const std::vector<check::Finding>& findings;
    const cli::FileView* view;      // null: the library does not open the file
    std::string refusal;            // then the reason
    const cli::TraceResult* trace;  // null: the file was not played
    std::string traceRefusal;       // then the reason
    const cli::TraceOptions& traceOptions;
};

/// The pictures, in the order of the page.
std::vector<Picture> PicturesOf(const Contents& contents);
std::string Page(const Contents& contents, const std::vector<Picture>& pictures);

/// The page's own style and its script, which shows values where the reader points.
extern const std::string_view kPageStyle, kPageScript;

}  // namespace kivmp4::report
