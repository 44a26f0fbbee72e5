// Scripts that complete the command line in a shell, made from the options themselves.
#include "Completion.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>

namespace kivmp4::cli {

namespace {

struct Word {
    std::string name;         // "--count" or "info"
    std::string description;  // in one line
    bool takesValue = false;
};

// Every name of every option.
std::vector<Word> OptionsOf(const CLI::App& app) {
    std::vector<Word> words;
    for (const CLI::Option* option : app.get_options()) {
        const bool takesValue = option->get_items_expected_max() > 0;
        for (const std::string& name : option->get_lnames())
            words.push_back({"--" + name, option->get_description(), takesValue});
        for (const std::string& name : option->get_snames())
            words.push_back({"-" + name, option->get_description(), takesValue});
    }
    return words;
}

std::string Names(const std::vector<Word>& words) {
    std::string names;
    for (const Word& word : words)
        names += (names.empty() ? "" : " ") + word.name;
    return names;
}

// Quotes for a shell: ' within '...'.
std::string Quoted(std::string text) {
    for (size_t at = 0; (at = text.find('\'', at)) != std::string::npos; at += 4)
        text.replace(at, 1, "'\\''");
    return fmt::format("'{}'", text);
}

std::string Bash(const CLI::App& app, const std::vector<const CLI::App*>& commands) {
    std::string cases, names;
    for (const CLI::App* command : commands) {
        names += " " + command->get_name();
        cases += fmt::format("        {}) words=\"{}\" ;;\n", command->get_name(), Names(OptionsOf(*command)));
    }
    return fmt::format(R"(# kivmp4 in bash: source this, or put it where bash-completion looks for "kivmp4".
_kivmp4() {{
    local word command= words
    for word in "${{COMP_WORDS[@]:1:COMP_CWORD-1}}"; do
        case $word in -*) ;; *) command=$word; break ;; esac
    done
    case $command in
{}        *) words="{}{}" ;;
    esac
    case ${{COMP_WORDS[COMP_CWORD]}} in
        -*) mapfile -t COMPREPLY < <(compgen -W "$words {}" -- "${{COMP_WORDS[COMP_CWORD]}}") ;;
        *)
            mapfile -t COMPREPLY < <(compgen -f -- "${{COMP_WORDS[COMP_CWORD]}}")
            [ -n "$command" ] || mapfile -t -O ${{#COMPREPLY[@]}} COMPREPLY < <(compgen -W "$words" -- "${{COMP_WORDS[COMP_CWORD]}}")
            ;;
    esac
}}
complete -o filenames -F _kivmp4 kivmp4
)",
                       cases, Names(OptionsOf(app)), names, Names(OptionsOf(app)));
}

std::string ZshOptions(const CLI::App& app) {
    std::string lines;
    for (const Word& word : OptionsOf(app)) {
        std::string description = word.description;
        for (const char c : {'[', ']', ':'}) {
            for (size_t at = 0; (at = description.find(c, at)) != std::string::npos; at += 2)
                description.insert(at, 1, '\\');
        }
        lines += " " + Quoted(fmt::format("{}[{}]{}", word.name, description, word.takesValue ? ":value:_files" : ""));
    }
    return lines;
}

std::string Zsh(const CLI::App& app, const std::vector<const CLI::App*>& commands) {
    std::string cases, names;
    for (const CLI::App* command : commands) {
        names += " " + Quoted(command->get_name() + ":" + command->get_description());
        cases +=
            fmt::format("        {}) _arguments{} '*:file:_files' ;;\n", command->get_name(), ZshOptions(*command));
    }
    return fmt::format(R"(#compdef kivmp4
_kivmp4() {{
    local -a commands
    commands=({})
    if (( CURRENT == 2 )); then
        _describe command commands
        _arguments{} '*:file:_files'
        return
    fi
    case $words[2] in
{}        *) _arguments{} '*:file:_files' ;;
    esac
}}
if [ "$funcstack[1]" = _kivmp4 ]; then _kivmp4 "$@"; else compdef _kivmp4 kivmp4; fi
)",
                       names, ZshOptions(app), cases, ZshOptions(app));
}

std::string FishOptions(const CLI::App& app, const std::string& condition) {
    std::string lines;
    for (const Word& word : OptionsOf(app)) {
        const bool isLong = word.name.starts_with("--");
        lines += fmt::format("complete -c kivmp4 {}-{} {}{} -d {}\n", condition, isLong ? "l" : "s",
                             word.name.substr(isLong ? 2 : 1), word.takesValue ? " -r" : "", Quoted(word.description));
    }
    return lines;
}

std::string Fish(const CLI::App& app, const std::vector<const CLI::App*>& commands) {
    std::string text = "# kivmp4 in fish: put this into completions/kivmp4.fish\n" + FishOptions(app, "");
    for (const CLI::App* command : commands) {
        text += fmt::format("complete -c kivmp4 -n __fish_use_subcommand -a {} -d {}\n", command->get_name(),
                            Quoted(command->get_description()));
        text += FishOptions(*command, fmt::format("-n '__fish_seen_subcommand_from {}' ", command->get_name()));
    }
    return text;
}

}  // namespace

std::string CompletionFor(const CLI::App& app, const std::string& shell) {
    const std::vector<const CLI::App*> commands = app.get_subcommands([](const CLI::App*) { return true; });
    return shell == "bash" ? Bash(app, commands) : shell == "zsh" ? Zsh(app, commands) : Fish(app, commands);
}

}  // namespace kivmp4::cli
