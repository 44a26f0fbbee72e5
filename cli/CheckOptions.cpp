// The command lines of kivmp4 check and kivmp4 boxes.
#include <CLI/CLI.hpp>

#include <memory>

#include "CheckCommand.h"

namespace kivmp4::cli {

void AddCheck(CLI::App& app, std::function<Answer()>& run) {
    CLI::App* command = app.add_subcommand("check", "Find what is wrong with files, where, and what to do");
    auto arguments = std::make_shared<CheckArguments>();
    auto* files = command->add_option("FILE", arguments->files, "MP4 files to check");
    auto* list = command->add_flag("--list-rules", arguments->listRules, "show what is looked for");
    command->add_flag("--deep", arguments->deep, "read every unit too");
    command->add_flag("--strict", arguments->strict, "exit with 1 for warnings too");
    command->add_flag("--json", arguments->json, "for programs");
    command->callback([=, &run] {
        if (!*files && !*list)
            throw CLI::RequiredError("FILE");
        run = [arguments] { return Check(*arguments); };
    });
}

void AddBoxes(CLI::App& app, std::function<Answer()>& run) {
    CLI::App* command = app.add_subcommand("boxes", "Show the tree of boxes");
    auto arguments = std::make_shared<BoxesArguments>();
    command->add_option("FILE", arguments->file, "MP4 file to read")->required();
    command->add_option("--path", arguments->options.path, "only boxes like moov/trak[1]/**/stts")
        ->type_name("PATTERN");
    command->add_option("--depth", arguments->options.depth, "levels below the top to show")->type_name("N");
    command->add_option("--entries", arguments->options.entries, "rows of each table to show")->type_name("N");
    command->add_flag("--hex", arguments->options.hex, "the first bytes of boxes without children");
    command->add_flag("--json", arguments->json, "for programs");
    command->callback([=, &run] { run = [arguments] { return Boxes(*arguments); }; });
}

}  // namespace kivmp4::cli
