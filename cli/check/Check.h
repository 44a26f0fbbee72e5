// Looks for what is wrong with a file: a table of rules, and what they find.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "inspect/Movie.h"
#include "inspect/Samples.h"

namespace kivmp4::check {

enum class Severity { Note, Warning, Error };
const char* Name(Severity severity);

/// How far to look: at the boxes, at the samples that the tables list, at the bytes of each sample.
enum class Extent { Structure, Tables, Units };

struct Finding;
class Context;

/// One kind of fault. Each has one function, which may serve several rules that come out of the same walk.
struct Rule {
    const char* name;
    Severity severity;
    const char* what;                // for the list of rules
    const char* hint;                // what to do; FILE stands for the file's name
    void (*find)(Context& context);  // null: another rule's function finds it too
    Extent extent = Extent::Tables;  // of the function
};

struct Finding {
    const Rule* rule;
    uint64_t offset;      // in the file
    std::string path;     // of the box; empty for the whole file
    std::string message;  // escaped
};

/// Every rule, those that explain others first.
const std::vector<Rule>& Rules();

/// Called with the number of bytes each time that some were read of samples.
using OnRead = std::function<void(uint64_t)>;

/// All findings in one file, in the order of the rules.
std::vector<Finding> Check(const inspect::Movie& movie, Extent extent, const OnRead& onRead = {});

/// What to do about it, for the file of this (escaped) name.
std::string Hint(const Finding& finding, const std::string& name);
/// "moov/trak[0] at 0x1f3c: message"; the message alone when it is about the whole file.
std::string WithPlace(const Finding& finding);

/// What the rules look at, and where they put their findings.
class Context {
public:
    Context(const inspect::Movie& of, const OnRead& read) : movie(of), file(of.Source()), onRead(read) {}

    const inspect::Movie& movie;
    const inspect::File& file;
    const OnRead& onRead;    // may be empty
    bool truncated = false;  // a box claims more than the file has

    /// Samples of a track that is played, listed at the first call; none of others.
    const std::vector<inspect::Sample>& SamplesOf(const inspect::Track& track);
    void Add(const char* rule, uint64_t offset, const std::string& path, const std::string& message);
    void Add(const char* rule, const inspect::Box& box, const std::string& message) {
        Add(rule, box.offset, box.Path(), message);
    }
    std::vector<Finding> findings = {};

private:
    std::map<uint32_t, std::vector<inspect::Sample>> samples;  // by trakIndex
};

/// "trak[1]" by its position in the file.
std::string NameOf(const inspect::Track& track);

// The functions of the rules, by what they look at.
void FindFileFaults(Context& context);
void FindTrackFaults(Context& context);
void FindTableFaults(Context& context);
void FindPlaceFaults(Context& context);
void FindTimeFaults(Context& context);
void FindUnitFaults(Context& context);

}  // namespace kivmp4::check
