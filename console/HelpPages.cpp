#include "console/HelpPages.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace kv::console {

namespace {

using Options = std::vector<CLI::Option const*>;

void writeFile(std::filesystem::path const& path, std::string const& text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path);
    file << text;
    if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

std::string replaced(std::string text, std::string_view what, std::string_view by) {
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size()))
        text.replace(at, what.size(), by);
    return text;
}

// Hidden commands belong to no group.
std::vector<CLI::App const*> commandsOf(CLI::App const& app) {
    return app.get_subcommands([](CLI::App const* command) { return !command->get_group().empty(); });
}

Options optionsOf(CLI::App const& app) {
    return app.get_options([](CLI::Option const* option) { return option->nonpositional(); });
}

Options argumentsOf(CLI::App const& app) {
    return app.get_options([](CLI::Option const* option) { return option->get_positional(); });
}

std::vector<std::string> namesOf(CLI::Option const& option) {
    std::vector<std::string> names;
    for (auto const& name : option.get_snames()) names.push_back("-" + name);
    for (auto const& name : option.get_lnames()) names.push_back("--" + name);
    return names;
}

// --- Manual pages

std::string roff(std::string text) {
    text = replaced(replaced(std::move(text), "\\", "\\e"), "-", "\\-");
    return text.starts_with('.') || text.starts_with('\'') ? "\\&" + text : text;
}

std::string usageOf(CLI::App const& app, std::string const& name) {
    auto const usage = CLI::Formatter().make_usage(&app, name);
    return usage.substr(usage.find(name), usage.find_last_not_of('\n') + 1 - usage.find(name));
}

void describe(std::ostream& out, std::string const& title, Options const& options, bool isPositional) {
    CLI::Formatter const formatter;
    if (options.empty()) return;
    out << ".SH " << title << '\n';
    for (auto const* const option : options) {
        out << ".TP\n\\fB" << roff(formatter.make_option_name(option, isPositional)) << "\\fR"
            << roff(formatter.make_option_opts(option)) << '\n'
            << roff(formatter.make_option_desc(option)) << '\n';
    }
}

std::string manualPage(CLI::App const& app, std::string const& page, std::string const& version) {
    std::ostringstream out;
    auto const isWhole = app.get_parent() == nullptr;
    auto const callName = isWhole ? page : app.get_parent()->get_name() + ' ' + app.get_name();
    out << ".TH " << page << " 1 \"\" \"" << version << "\"\n"
        << ".SH NAME\n"
        << page << " \\- " << roff(app.get_description()) << '\n'
        << ".SH SYNOPSIS\n"
        << roff(usageOf(app, callName)) << '\n';
    describe(out, "ARGUMENTS", argumentsOf(app), true);
    describe(out, "OPTIONS", optionsOf(app), false);
    if (isWhole) out << ".SH COMMANDS\n";
    for (auto const* const command : commandsOf(app))
        out << ".TP\n\\fB" << page << "\\-" << command->get_name() << "\\fR(1)\n"
            << roff(command->get_description()) << '\n';
    if (!isWhole) out << ".SH SEE ALSO\n\\fB" << app.get_parent()->get_name() << "\\fR(1)\n";
    return out.str();
}

// --- Completion

enum class ValueKind { none, any, file, directory, choice };

struct Value {
    ValueKind kind = ValueKind::none;
    std::string choices;  // separated by blanks
};

Value valueOf(CLI::Option const& option) {
    if (option.get_items_expected_max() == 0) return {};
    auto const type = option.get_positional() ? option.get_name(true) : option.get_type_name();
    if (auto const list = type.find('{'); list != std::string::npos)
        return {ValueKind::choice, replaced(type.substr(list + 1, type.find('}') - list - 1), ",", " ")};
    if (type.starts_with("FILE") || type.starts_with("PATH")) return {ValueKind::file, {}};
    return {type.starts_with("DIR") ? ValueKind::directory : ValueKind::any, {}};
}

std::string bashValue(Value const& value) {
    switch (value.kind) {
        case ValueKind::file:
            return "files=f";
        case ValueKind::directory:
            return "files=d";
        default:
            return "words='" + value.choices + "'";
    }
}

// What `case $command in` has for one command: its words, its argument, and the values of its options.
void writeBashCase(std::ostream& out, CLI::App const& app, std::string const& words) {
    out << "    '" << (app.get_parent() == nullptr ? "" : app.get_name()) << "')\n        words='" << words << "'\n";
    for (auto const* const argument : argumentsOf(app))
        out << "        [[ $word == -* ]] || " << bashValue(valueOf(*argument)) << '\n';
    out << "        case $option in\n";
    for (auto const* const option : optionsOf(app)) {
        if (auto const value = valueOf(*option); value.kind != ValueKind::none)
            out << "        " << CLI::detail::join(namesOf(*option), "|") << ") files='' " << bashValue(value)
                << " ;;\n";
    }
    out << "        esac\n        ;;\n";
}

std::string bashCompletion(CLI::App const& app) {
    std::ostringstream out;
    auto const& name = app.get_name();
    out << "# Completion for bash, made of what `" << name << " --help` says.\n"
        << '_' << name << R"(() {
    local word=${COMP_WORDS[COMP_CWORD]} option=${COMP_WORDS[COMP_CWORD - 1]} command='' words='' files=''
    ((COMP_CWORD < 2)) || command=${COMP_WORDS[1]}
    # bash takes --option=value for three words
    if [[ $word == = ]]; then word=''
    elif [[ $option == = ]]; then option=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    case $command in
)";
    std::vector<std::string> words;
    auto const addNames = [&](CLI::App const& from) {
        for (auto const* const option : optionsOf(from))
            for (auto const& one : namesOf(*option)) words.push_back(one);
    };
    for (auto const* const command : commandsOf(app)) words.push_back(command->get_name());
    addNames(app);
    writeBashCase(out, app, CLI::detail::join(words, " "));
    for (auto const* const command : commandsOf(app)) {
        words.clear();
        addNames(*command);
        writeBashCase(out, *command, CLI::detail::join(words, " "));
    }
    out << R"(    esac
    if [[ -n $files ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen "-$files" -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
    fi
}
complete -F _)"
        << name << ' ' << name << '\n';
    return out.str();
}

std::string zshQuoted(std::string const& text) { return "'" + replaced(text, "'", "'\\''") + "'"; }

std::string zshDescription(std::string text) {
    for (auto const* const special : {"\\", "[", "]", ":"})
        text = replaced(std::move(text), special, "\\" + std::string(special));
    return text;
}

std::string zshAction(Value const& value) {
    switch (value.kind) {
        case ValueKind::file:
            return "_files";
        case ValueKind::directory:
            return "_files -/";
        case ValueKind::choice:
            return "(" + value.choices + ")";
        default:
            return " ";
    }
}

// The arguments of zsh's _arguments: one for each name of an option, and one for each argument.
std::string zshArguments(CLI::App const& app) {
    std::string all;
    for (auto const* const option : optionsOf(app)) {
        auto const names = namesOf(*option);
        auto const value = valueOf(*option);
        for (auto const& name : names) {
            auto spec = names.size() > 1 ? "(" + CLI::detail::join(names, " ") + ")" + name : name;
            if (value.kind != ValueKind::none && name.starts_with("--")) spec += '=';
            spec += '[' + zshDescription(option->get_description()) + ']';
            if (value.kind != ValueKind::none)
                spec += ':' + zshDescription(option->get_type_name()) + ':' + zshAction(value);
            all += " \\\n        " + zshQuoted(spec);
        }
    }
    for (auto const* const argument : argumentsOf(app))
        all += " \\\n        " +
               zshQuoted("1:" + zshDescription(argument->get_description()) + ':' + zshAction(valueOf(*argument)));
    return all;
}

std::string zshCompletion(CLI::App const& app) {
    std::ostringstream out;
    auto const& name = app.get_name();
    out << "#compdef " << name << "\n# Completion for zsh, made of what `" << name << " --help` says.\n";
    for (auto const* const command : commandsOf(app))
        out << '_' << name << '_' << command->get_name() << "() {\n    _arguments" << zshArguments(*command) << "\n}\n";
    out << '_' << name << "() {\n    local line state\n    local -a commands=(";
    for (auto const* const command : commandsOf(app))
        out << "\n        " << zshQuoted(command->get_name() + ':' + command->get_description());
    out << "\n    )\n    _arguments -C" << zshArguments(app) << " \\\n        '1: :->command' '*:: :->argument'\n"
        << "    case $state in\n"
        << "    command) _describe command commands ;;\n"
        << "    argument) (( ! $+functions[_" << name << "_$line[1]] )) || _" << name << "_$line[1] ;;\n"
        << "    esac\n}\n_" << name << " \"$@\"\n";
    return out.str();
}

}  // namespace

void writeHelpPages(CLI::App const& app, std::filesystem::path const& share) {
    auto const& name = app.get_name();
    auto const manual = [&](CLI::App const& command, std::string const& page) {
        writeFile(share / "man/man1" / (page + ".1"), manualPage(command, page, app.version()));
    };
    manual(app, name);
    for (auto const* const command : commandsOf(app)) manual(*command, name + '-' + command->get_name());
    writeFile(share / "bash-completion/completions" / name, bashCompletion(app));
    writeFile(share / "zsh/site-functions" / ("_" + name), zshCompletion(app));
}

}  // namespace kv::console
