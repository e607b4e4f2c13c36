// vesk: the command for whoever has a failing message in front of them.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <functional>
#include <iostream>

#include "tools/vesk/descriptions.hpp"
#include "tools/vesk/failure.hpp"
#include "tools/vesk/output.hpp"
#include "tools/vesk/request.hpp"
#include "tools/vesk/schema.hpp"
#include "tools/vesk/types.hpp"

namespace vesk::tool {
namespace {

using Verb = int (*)(const Request&);

// A verb's options are added by what they have in common.
struct Verbs {
    CLI::App& app;
    Request& request;
    Verb& chosen;

    CLI::App* add(const std::string& name, const std::string& description, const std::string& example, Verb verb) {
        CLI::App* const sub = app.add_subcommand(name, description);
        sub->group("Verbs");
        sub->footer("Example:\n  " + example);
        sub->callback([this, verb] { chosen = verb; });
        return sub;
    }

    CLI::Option* add_type(CLI::App* sub) {
        return sub->add_option("TYPE", request.type, "message type by its bare name, such as pem_data")->required();
    }
    void add_files(CLI::App* sub, int most) {
        sub->add_option(
               "FILE", request.files,
               most == 1 ? "input; standard input if left out, or -" : "inputs; standard input if left out, or -")
            ->expected(0, most);
    }
    // One of several that a verb has to have.
    void add_file(CLI::App* sub, const std::string& name, const std::string& description) {
        const auto add = [this](const std::string& file) { request.files.push_back(file); };
        sub->add_option_function<std::string>(name, add, description)->required();
    }
    void add_form(CLI::App* sub, const std::string& of) {
        const auto set = [this](Form form) { return [this, form](std::int64_t) { request.form = form; }; };
        CLI::Option* const hex = sub->add_flag_function("--hex", set(Form::hex), of + " is hexadecimal");
        sub->add_flag_function("--base64", set(Form::base64), of + " is base64")->excludes(hex);
    }
    CLI::Option* add_json(CLI::App* sub, const std::string& what) {
        return sub->add_flag("--json", request.json, what);
    }
    CLI::Option* add_frames(CLI::App* sub) {
        return sub->add_flag("--frames", request.frames,
                             "input is a stream of the exchange's frames; TYPE is left out");
    }
};

std::vector<std::string> names_of_verbs(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* verb : app.get_subcommands([](const CLI::App*) { return true; }))
        names.push_back(verb->get_name());
    return names;
}

// Of the verb, if there is one.
std::vector<std::string> names_of_options(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    }
    return names;
}

// What the parser objects to, for a person.
std::string words_of(const CLI::ParseError& error, const CLI::App& app, const std::string& first) {
    const std::vector<std::string> verbs = names_of_verbs(app);
    const bool is_verb = std::ranges::find(verbs, first) != verbs.end();
    if (!is_verb && !first.starts_with('-')) {
        return (first.empty() ? "VERB is missing"
                              : "no verb is called " + quote(first) + "; the nearest is " + nearest(first, verbs)) +
               " (vesk --help names them all)";
    }
    const CLI::App& verb = is_verb ? *app.get_subcommand(first) : app;
    const std::string more = " (vesk " + (is_verb ? first + " " : "") + "--help says more)";
    const std::vector<std::string> surplus = app.remaining(true);
    if (first == "--schema") return "--schema wants a library, and a verb after it" + more;
    if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr || !is_verb) {
        const std::string word = surplus.empty() ? first : surplus.front();
        if (!word.starts_with('-')) return "one argument too many: " + quote(word) + more;
        return "no option is called " + quote(word) + (is_verb ? "" : " before a verb") + "; the nearest is " +
               nearest(word, names_of_options(verb)) + more;
    }
    return visible(error.what()) + more;
}

// The word that should be a verb: the first, or that after --schema and its library.
std::string verb_of(int argc, char** argv) {
    int place = 1;
    if (argc > 2 && argv[1] == std::string_view("--schema")) {
        place = argc > 3 ? 3 : 1;
    } else if (argc > 1 && std::string_view(argv[1]).starts_with("--schema=")) {
        place = argc > 2 ? 2 : 1;
    }
    return argc > place ? argv[place] : "";
}

// What has to do with the 95 types alone has no use for others.
void settle_schema(const Request& request, const std::string& verb) {
    if (request.schema.empty()) return;
    if (request.frames)
        throw Failure("--frames and --schema: frames hold messages of the exchange alone", status_usage);
    if (verb == "watch" || verb == "record" || verb == "replay") {
        throw Failure("--schema has no meaning for " + verb + ", which knows the library's own types alone",
                      status_usage);
    }
    use_schema(request.schema);
}

// With --frames there is no TYPE: what stands in its place is a file.
void settle(Request& request) {
    if (request.frames && !request.type.empty()) {
        std::error_code error;
        if (vesk_type_named(request.type.c_str()) != nullptr && !std::filesystem::exists(request.type, error)) {
            throw Failure("TYPE is left out with --frames: each frame names its own", status_usage);
        }
        request.files.insert(request.files.begin(), request.type);
        request.type.clear();
    }
    if (request.files.empty()) request.files.emplace_back("-");
    if (std::ranges::count(request.files, "-") > 1) {
        throw Failure("standard input can be read once: - is named again", status_usage);
    }
}

// What the parser would take for something else is named in another way: "[a,b]", which is two words to it, "++", which
// ends a verb, and after -- files that begin with a hyphen, since it takes none there.
void name_files(std::vector<std::string>& words) {
    for (std::string& word : words) {
        if (word == "++" || (word.starts_with('[') && word.ends_with(']'))) word.insert(0, "./");
    }
    const auto mark = std::ranges::find(words, "--");
    if (mark == words.end()) return;
    for (auto word = mark + 1; word != words.end(); ++word) {
        if (word->starts_with('-') && *word != "-") word->insert(0, "./");
    }
    words.erase(mark);
}

// A number below 3 that is closed would be given to the next file, and what is meant for standard error be written into
// it. Each is taken here, so that it can be neither read nor written to, as if it were closed; for a program that is
// recorded it is.
void take_closed_numbers() {
    for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(number, F_GETFD) >= 0) continue;
        static_cast<void>(open("/dev/null", (number == STDIN_FILENO ? O_WRONLY : O_RDONLY) | O_CLOEXEC));
    }
}

int run(int argc, char** argv) {
    CLI::App app{
        "Looks at encoded messages of a chassis inventory: what every byte is, why the decoder stopped, and what "
        "decoding would cost."};
    app.name("vesk");
    app.formatter(std::make_shared<HelpFormatter>());
    app.set_help_flag("-h,--help", "prints this");
    app.set_version_flag("--version", "vesk " VESK_VERSION, "prints the version");
    app.footer(
        "Example:\n  vesk check resp_inv_data answer.bin\n\nvesk VERB --help says more of a verb. Ends with 0, or 1 "
        "where an input fails or cannot be read, "
        "or 2 where options make no sense. On a terminal there are colours, unless NO_COLOR is set.");
    app.require_subcommand(1);
    Request request;
    app.add_option(
           "--schema", request.schema,
           "takes the types of this library, made of another schema by protoc-gen-vesk, for those of the inventory")
        ->type_name("LIBRARY");
    Verb chosen = nullptr;
    Verbs verbs{app, request, chosen};

    CLI::App* sub = verbs.add("types", "Names all message types", "vesk types --json", show_types);
    verbs.add_json(sub, "as JSON: an array of objects");

    sub = verbs.add("show", "Shows the fields of a type", "vesk show pem_data", show_type);
    verbs.add_type(sub);
    verbs.add_json(sub, "as JSON");

    sub = verbs.add("check", "Says whether inputs decode, where not, and what decoding costs",
                    "vesk check --json resp_inv_data a.bin b.bin", check_files);
    verbs.add_type(sub)->required(false);
    verbs.add_files(sub, 1 << 20);
    verbs.add_form(sub, "input");
    verbs.add_json(sub, "one object a line");
    verbs.add_frames(sub);
    sub->add_flag("--differences", request.differences,
                  "also names each place that another protobuf parser would read in another way");

    sub = verbs.add("decode", "Prints a message as JSON", "vesk decode pem_data pem.bin", decode_files);
    verbs.add_type(sub)->required(false);
    verbs.add_files(sub, 1 << 20);
    verbs.add_form(sub, "input");
    verbs.add_frames(sub);
    CLI::Option* const text = sub->add_flag("--text", request.text, "in the text format");
    sub->add_flag("--table", request.table, "as aligned columns, lists as tables")->excludes(text);

    sub = verbs.add("encode", "Makes bytes of JSON, to standard output",
                    "echo '{\"f3\":4800}' | vesk encode pem_data --hex", encode_file);
    verbs.add_type(sub);
    verbs.add_files(sub, 1);
    verbs.add_form(sub, "output");
    sub->add_flag("--text", request.text, "input is in the text format");

    sub = verbs.add("map", "Says of every byte what it is", "vesk map pem_data pem.bin", map_file);
    verbs.add_type(sub)->required(false);
    verbs.add_files(sub, 1);
    verbs.add_form(sub, "input");
    CLI::Option* const json = verbs.add_json(sub, "as JSON: an array of spans");
    CLI::Option* const frames = verbs.add_frames(sub);
    sub->add_option("--html", request.html, "writes a page for a browser to this file, or - for standard output")
        ->type_name("FILE")
        ->check([](const std::string& name) { return name.empty() ? std::string("no name of a file") : ""; }, "")
        ->excludes(json)
        ->excludes(frames);

    sub = verbs.add("guess",
                    "Says which types the bytes can be, best first: the lower the score, the more the type explains",
                    "vesk guess unknown.bin", guess_type);
    verbs.add_files(sub, 1);
    verbs.add_form(sub, "input");
    verbs.add_json(sub, "as JSON: an array, best first");

    sub = verbs.add("peek", "Prints one field", "vesk peek resp_inv_data 'port_list[1].entity_common.f2' answer.bin",
                    peek_file);
    verbs.add_type(sub);
    sub->add_option("PATH", request.path, "names as in the schema, an element by its index from 0 on")->required();
    verbs.add_files(sub, 1);
    verbs.add_form(sub, "input");

    sub = verbs.add("diff", "Shows where two messages differ", "vesk diff pem_data old.bin new.bin", diff_files);
    verbs.add_type(sub);
    verbs.add_file(sub, "A", "an input, or - for standard input");
    verbs.add_file(sub, "B", "the one to compare it with");
    verbs.add_form(sub, "input");

    sub = verbs.add("watch", "Asks a running exchange service again and again, and shows what has changed",
                    "vesk watch --socket /run/inventory.socket fan sensor", watch_service);
    sub->add_option("KIND", request.kinds, "kinds of entity, such as fan; all if left out");
    sub->add_option("--socket", request.socket, "Unix-domain socket of the service")->type_name("PATH")->required();
    sub->add_option("--interval", request.interval, "from one question to the next, 2 if left out")
        ->type_name("SECONDS");

    sub = verbs.add("record", "Runs a program and notes every call that it makes of the library",
                    "vesk record failure.rec -- inventory_service --socket /run/inventory.socket", record_program);
    sub->add_option("OUT", request.recording, "the recording")->required();
    sub->add_option("PROGRAM", request.program, "after --: the program and its arguments")->expected(0, 1 << 20);
    sub->add_option("--limit", request.limit, "that the recording may take, such as 512K or 2G; 64M if left out")
        ->type_name("BYTES");

    sub = verbs.add("replay", "Makes the calls of a recording again, and shows where this library answers otherwise",
                    "vesk replay failure.rec", replay_file);
    sub->add_option("OUT", request.recording, "the recording")->required();
    sub->add_option("--extract", request.extract, "writes each input to a file of this folder")->type_name("FOLDER");
    verbs.add_json(sub, "one object a line for each call");

    // The build asks for these.
    const std::string first_word = verb_of(argc, argv);
    if (argc == 2 && (first_word == "--completion" || first_word == "--manual")) {
        Output output;
        output.write(first_word == "--manual" ? manual(app) : bash_completion(app));
        output.close();
        return status_ok;
    }

    // A program's words are not for the parser: it would take the first for OUT where that is left out.
    char** const end = argv + argc;
    char** const mark = first_word == "record" ? std::find(argv + 1, end, std::string_view("--")) : end;
    const std::vector<std::string> program(mark == end ? end : mark + 1, end);
    std::vector<std::string> words(argv + 1, mark);
    name_files(words);
    std::ranges::reverse(words);  // as the parser wants them
    try {
        app.parse(std::move(words));
    } catch (const CLI::Success& asked) {
        Output output;
        output.write(dynamic_cast<const CLI::CallForHelp*>(&asked) != nullptr ? app.help() : app.version() + "\n");
        output.close();
        return status_ok;
    } catch (const CLI::ParseError& error) {
        throw Failure(words_of(error, app, first_word), status_usage);
    }
    if (chosen == record_program) {
        if (program.empty() || !request.program.empty()) {
            throw Failure("PROGRAM stands after -- (vesk record --help says more)", status_usage);
        }
        request.program = program;
    }
    settle_schema(request, first_word);
    settle(request);
    const bool takes_type = app.get_subcommands().front()->get_option_no_throw("TYPE") != nullptr;
    if (takes_type && request.type.empty() && !request.frames) {
        throw Failure("TYPE is missing: a message type, such as pem_data (vesk types names them all)", status_usage);
    }
    return chosen(request);
}

}  // namespace
}  // namespace vesk::tool

int main(int argc, char** argv) {
    vesk::tool::take_closed_numbers();
    // A broken pipe and a file that may not grow are errors like any other.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        return vesk::tool::run(argc, argv);
    } catch (const vesk::tool::Failure& failure) {
        std::cerr << "vesk: " << failure.what() << "\n";
        return failure.status();
    } catch (const std::bad_alloc&) {
        std::cerr << "vesk: not enough memory\n";
    } catch (const std::exception& error) {
        std::cerr << "vesk: " << vesk::tool::visible(error.what()) << "\n";
    }
    return vesk::tool::status_failed;
}
