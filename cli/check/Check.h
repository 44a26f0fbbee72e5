// Looks for what is wrong with a file: a table of rules, and what they find.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "inspect/Movie.h"
#include "inspect/Samples.h"

namespace kivmp4::check {

enum class Severity { Note, Warning, Error };
const char* Name(Severity severity);

struct Finding;
class Context;

/// One kind of fault. Each has one function, which may serve several rules that come out of the same walk.
struct Rule {
    const char* name;
    Severity severity;
    const char* what;                // for the list of rules
    const char* hint;                // what to do; FILE stands for the file's name
    void (*find)(Context& context);  // null: another rule's function finds it too
    bool deep = false;               // reads the samples themselves
};

struct Finding {
    const Rule* rule;
    uint64_t offset;      // in the file
    std::string path;     // of the box; empty for the whole file
    std::string message;  // escaped
};

/// Every rule, those that explain others first.
const std::vector<Rule>& Rules();

struct Options {
    bool deep = false;
};

/// All findings in one file, in the order of the rules.
std::vector<Finding> Check(const inspect::File& file, const Options& options);

/// What the rules look at, and where they put their findings.
class Context {
public:
    explicit Context(const inspect::Movie& movie);

    const inspect::Movie& movie;
    const inspect::File& file;
    std::vector<std::vector<inspect::Sample>> samples;  // of each track that is played; empty for others
    bool truncated = false;                             // a box claims more than the file has

    bool Played(const inspect::Track& track) const { return track.Played(); }
    /// Samples of a track, seconds of a sample.
    const std::vector<inspect::Sample>& SamplesOf(const inspect::Track& track) const {
        return samples[track.trakIndex];
    }
    void Add(const char* rule, uint64_t offset, const std::string& path, const std::string& message);
    void Add(const char* rule, const inspect::Box& box, const std::string& message) {
        Add(rule, box.offset, box.Path(), message);
    }
    std::vector<Finding> findings = {};
};

/// "track 1" by the position of its "trak".
std::string NameOf(const inspect::Track& track);

// The functions of the rules, by what they look at.
void FindFileFaults(Context& context);
void FindTrackFaults(Context& context);
void FindTableFaults(Context& context);
void FindPlaceFaults(Context& context);
void FindTimeFaults(Context& context);
void FindUnitFaults(Context& context);

}  // namespace kivmp4::check
