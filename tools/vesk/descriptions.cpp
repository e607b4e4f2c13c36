#include "tools/vesk/descriptions.hpp"

#include <string_view>
#include <vector>

#include "tools/vesk/types.hpp"

namespace vesk::tool {
namespace {

std::vector<const CLI::App*> verbs_of(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App* verb) { return !verb->get_name().empty(); });
}

std::vector<const CLI::Option*> options_of(const CLI::App& app, bool positional) {
    return app.get_options([positional](const CLI::Option* option) { return option->get_positional() == positional; });
}

bool takes_value(const CLI::Option& option) { return option.get_items_expected_max() > 0; }

// "--html", or "-h,--help".
std::string names_of(const CLI::Option& option) { return option.get_name(false, true); }

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

// The long names of options: all, or those that take a value, of files or of anything else.
enum class Which { all, with_file, with_other };
std::string long_names(const CLI::App& app, Which which) {
    std::vector<std::string> names;
    for (const CLI::Option* option : options_of(app, false)) {
        const std::string value = option->get_type_name();
        const bool of_file = value == "FILE" || value == "FOLDER" || value == "PATH";
        const bool wanted = which == Which::all || (takes_value(*option) && of_file == (which == Which::with_file));
        for (const std::string& name : option->get_lnames()) {
            if (wanted) names.push_back("--" + name);
        }
    }
    return joined(names);
}

std::string positionals(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : options_of(app, true)) names.push_back(option->get_name(true));
    return joined(names);
}

// For troff: no hyphen is broken or becomes another character, and no line is a request by accident.
std::string escaped(std::string_view text) {
    std::string result;
    bool begins_line = true;
    for (const char character : text) {
        if (begins_line && (character == '.' || character == '\'')) result += "\\&";
        begins_line = character == '\n';
        switch (character) {
            case '\\': result += "\\e"; break;
            case '-': result += "\\-"; break;
            case '\'': result += "\\(aq"; break;
            default: result += character;
        }
    }
    return result;
}

std::string item(const std::string& head, const CLI::Option& option) {
    return ".TP\n" + head + "\n" + escaped(option.get_description()) + "\n";
}

std::string items(const CLI::App& app) {
    std::string text;
    for (const CLI::Option* option : options_of(app, true))
        text += item("\\fI" + option->get_name(true) + "\\fR", *option);
    for (const CLI::Option* option : options_of(app, false)) {
        const std::string value = takes_value(*option) ? " \\fI" + option->get_type_name() + "\\fR" : "";
        text += item("\\fB" + escaped(names_of(*option)) + "\\fR" + value, *option);
    }
    return text;
}

// What stands below the options of --help: an example, which is kept as it is, and words after an empty line.
std::string footer(const CLI::App& app) {
    const std::string whole = app.get_footer();
    std::string_view rest = whole;
    constexpr std::string_view title = "Example:\n";
    std::string text;
    if (rest.starts_with(title)) {
        rest.remove_prefix(title.size());
        const std::string_view example = rest.substr(0, rest.find("\n\n"));
        text += ".PP\nExample:\n.PP\n.nf\n" + escaped(example) + "\n.fi\n";
        rest.remove_prefix(example.size());
    }
    while (rest.starts_with('\n')) rest.remove_prefix(1);
    return rest.empty() ? text : text + ".PP\n" + escaped(rest) + "\n";
}

}  // namespace

std::string place_of(const CLI::Option& option) {
    const std::string name = option.get_name(true);
    if (name == "PROGRAM") return "-- PROGRAM...";  // required, though the parser is not shown it
    const std::string text = name + (option.get_items_expected_max() > 1 ? "..." : "");
    return option.get_required() ? text : "[" + text + "]";
}

std::string HelpFormatter::make_option_opts(const CLI::Option* option) const {
    return takes_value(*option) && !option->get_positional() ? " " + option->get_type_name() : "";
}

std::string bash_completion(const CLI::App& app) {
    std::vector<std::string> types;
    for (const vesk_type* type : all_types()) types.emplace_back(vesk_type_name(type));
    std::vector<std::string> verbs;
    std::string cases;
    for (const CLI::App* verb : verbs_of(app)) {
        verbs.push_back(verb->get_name());
        cases += "        " + verb->get_name() + ")\n            options=\"" + long_names(*verb, Which::all) +
                 "\"\n            with_file=\"" + long_names(*verb, Which::with_file) +
                 "\"\n            with_other=\"" + long_names(*verb, Which::with_other) + "\"\n            places=(" +
                 positionals(*verb) + ") ;;\n";
    }
    return "# bash completion for vesk, made by vesk --completion\n"
           "_vesk() {\n"
           "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}\n"
           "    local options with_file with_other places place=0 verb=1 i\n"
           "    COMPREPLY=()\n"
           "    if [[ $COMP_CWORD -gt 1 && ${COMP_WORDS[1]} == --schema ]]; then verb=3; fi\n"
           "    if [[ $COMP_CWORD -eq $verb ]]; then\n"
           "        mapfile -t COMPREPLY < <(compgen -W \"" +
           joined(verbs) + " " + long_names(app, Which::all) +
           "\" -- \"$word\")\n"
           "        return\n"
           "    fi\n"
           "    case $((COMP_CWORD < verb)) in 1) with_file=--schema ;; *) case ${COMP_WORDS[verb]} in\n" +
           cases +
           "        *) return ;;\n"
           "    esac ;; esac\n"
           "    if [[ \" $with_other \" == *\" $before \"* ]]; then return; fi\n"
           "    if [[ \" $with_file \" != *\" $before \"* ]]; then\n"
           "        if [[ $word == -* ]]; then\n"
           "            mapfile -t COMPREPLY < <(compgen -W \"$options\" -- \"$word\")\n"
           "            return\n"
           "        fi\n"
           "        for ((i = verb + 1; i < COMP_CWORD; ++i)); do\n"
           "            if [[ \" $with_file $with_other \" == *\" ${COMP_WORDS[i]} \"* ]]; then\n"
           "                ((++i))\n"
           "            elif [[ ${COMP_WORDS[i]} != -* || ${COMP_WORDS[i]} == --frames ]]; then  # it stands for TYPE\n"
           "                ((++place))\n"
           "            fi\n"
           "        done\n"
           "        # The last place may be filled again and again.\n"
           "        if ((place >= ${#places[@]})); then place=$((${#places[@]} - 1)); fi\n"
           "        case ${places[place]-} in\n"
           "            TYPE)\n"
           "                if ((verb > 1)); then return; fi  # they are of a library that only running it tells\n"
           "                mapfile -t COMPREPLY < <(compgen -W \"" +
           joined(types) +
           "\" -- \"$word\")\n"
           "                return ;;\n"
           "            \"\" | PATH | KIND) return ;;\n"
           "        esac\n"
           "    fi\n"
           "    compopt -o filenames 2>/dev/null\n"
           "    mapfile -t COMPREPLY < <(compgen -f -- \"$word\")\n"
           "}\n"
           "complete -F _vesk vesk\n";
}

std::string manual(const CLI::App& app) {
    std::string text =
        ".TH VESK 1 \"\" vesk \"User Commands\"\n.SH NAME\nvesk \\- looks at encoded messages of a chassis inventory\n"
        ".SH SYNOPSIS\n.B vesk\n\\fIVERB\\fR [\\fIOPTION\\fR...] [\\fIARGUMENT\\fR...]\n.SH DESCRIPTION\n" +
        escaped(app.get_description()) + "\n" + footer(app) + ".SH OPTIONS\n" + items(app) + ".SH VERBS\n";
    for (const CLI::App* verb : verbs_of(app)) {
        text += ".SS \"vesk " + verb->get_name();
        for (const CLI::Option* option : options_of(*verb, true)) text += " " + escaped(place_of(*option));
        text += "\"\n" + escaped(verb->get_description()) + ".\n" + items(*verb) + footer(*verb);
    }
    return text;
}

}  // namespace vesk::tool
