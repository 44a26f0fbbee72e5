// kivmp4 check and kivmp4 boxes as commands: what they do with files.
#include "CheckCommand.h"

#include <cerrno>
#include <cstring>

#include "Failure.h"
#include "Text.h"
#include "check/Report.h"

namespace kivmp4::cli {
namespace {

using Json = nlohmann::ordered_json;

std::string Dump(const Json& json) { return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n"; }

// What the system says of a file that is none to read.
std::string CannotRead(int error) {
    if (error == EISDIR)
        return "is a directory";
    return error == EINVAL ? "is not a regular file" : std::string("cannot open: ") + std::strerror(error);
}

Json ErrorJson(const std::string& name, const char* code, int exit, const std::string& message) {
    return {{"error", {{"code", code}, {"exit", exit}, {"file", name}, {"message", message}}}};
}

// Opens the file or writes the reason to the answer. An error while reading shows only afterwards.
bool Open(inspect::File& file, const std::string& path, Answer& answer, std::string& why) {
    const int error = file.Open(path);
    if (!error)
        return true;
    why = CannotRead(error);
    answer.err += "kivmp4: " + Escape(path) + ": " + why + "\n";
    answer.exitCode = kCannotRead;
    return false;
}

}  // namespace

Answer Check(const CheckArguments& arguments) {
    if (arguments.listRules)
        return {arguments.json ? Dump({{"schema", "kivmp4.check-rules/1"}, {"rules", check::RulesJson()}})
                               : check::RulesText(),
                "", 0};
    Answer answer;
    Json files = Json::array();
    bool faults = false;
    for (const std::string& path : arguments.files) {
        inspect::File file;
        std::string why;
        if (!Open(file, path, answer, why)) {
            files.push_back(ErrorJson(path, "cannot-read", kCannotRead, why));
            continue;
        }
        const auto findings = check::Check(file, {.deep = arguments.deep});
        faults = faults || check::Fails(findings, arguments.strict);
        if (file.ReadError()) {
            answer.err += "kivmp4: " + Escape(path) + ": cannot read: " + std::strerror(file.ReadError()) + "\n";
            answer.exitCode = kCannotRead;
        }
        if (arguments.json)
            files.push_back(check::Json(path, findings));
        else
            answer.out += check::Text(Escape(path), findings);
    }
    if (arguments.json)
        answer.out = Dump({{"schema", "kivmp4.check/1"}, {"files", files}});
    if (faults && !answer.exitCode)
        answer.exitCode = 1;
    return answer;
}

Answer Boxes(const BoxesArguments& arguments) {
    Answer answer;
    inspect::File file;
    std::string why;
    if (!Open(file, arguments.file, answer, why)) {
        if (arguments.json)
            answer.out = Dump(ErrorJson(arguments.file, "cannot-read", answer.exitCode, why));
        return answer;
    }
    const inspect::Movie movie(file);
    why = inspect::Stranger(file);
    if (!why.empty() || movie.Root().children.empty()) {
        why = "not an MP4 file: " + (why.empty() ? "it has no boxes" : "it is " + why);
        answer.err = "kivmp4: " + Escape(arguments.file) + ": " + why + "\n";
        answer.exitCode = kNotUsable;
        if (arguments.json)
            answer.out = Dump(ErrorJson(arguments.file, "not-usable", answer.exitCode, why));
        return answer;
    }
    answer.out = arguments.json ? Dump(BoxesJson(movie, arguments.options)) : BoxesText(movie, arguments.options);
    return answer;
}

}  // namespace kivmp4::cli
