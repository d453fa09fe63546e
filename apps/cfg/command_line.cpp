#include "command_line.h"

#include <map>

#include <CLI/CLI.hpp>

#include "library_log.h"
#include "verbs.h"

namespace cli {

namespace {

constexpr char FOOTER[] =
    "Paths begin with the root key: halvoria\\system\\nodes. A / serves as separator where a\n"
    "path holds no \\. Exit codes: 0 done, 1 differences or a refused write, 2 usage,\n"
    "3 not found, 4 bad input, 5 store unreachable. See cfg(1).";
constexpr char READER_FOOTER[] =
    "Besides these: --file, --server, --params, --property, --json and -v; see cfg --help.";
constexpr char WRITER_FOOTER[] =
    "Besides these: --file, --server, --params, --property, --json, -v, --dry-run, --create and\n"
    "--wait; see cfg --help.";
constexpr char VERBS[] = "Verbs";  // the heading of their list

void add_parameter(CLI::App& app, Arguments& arguments, const Parameter& parameter) {
  const auto add_to = [&](auto field) -> CLI::Option* {
    auto& target = arguments.*field;
    using Target = std::remove_reference_t<decltype(target)>;
    if constexpr (std::is_same_v<Target, bool>) {
      return app.add_flag(parameter.name, target, parameter.help);
    } else if constexpr (std::is_same_v<Target, std::optional<std::string>>) {
      const auto take = [&target](const std::string& text) { target = text; };
      return app.add_option_function<std::string>(parameter.name, take, parameter.help);
    } else {
      if constexpr (std::is_same_v<Target, int>) {
        if (*parameter.kind == '\0') {  // counts how often it is given
          return app.add_flag(parameter.name, target, parameter.help);
        }
      }
      return app.add_option(parameter.name, target, parameter.help);
    }
  };
  CLI::Option* option = std::visit(add_to, parameter.field);
  option->required(parameter.is_required);
  // One value each time it is given: what follows is a verb or a path.
  if (parameter.name[0] == '-') option->allow_extra_args(false);
  if (*parameter.kind == '\0') return;
  option->type_name(parameter.kind);
  if (is_choice(parameter.kind)) {
    option->check(CLI::IsMember(choices_of(parameter.kind)).description(""));
  }
}

void add_parameters(CLI::App& app, Arguments& arguments, const std::vector<Parameter>& parameters) {
  for (const Parameter& parameter : parameters) add_parameter(app, arguments, parameter);
}

// "blob get" goes below a `blob` of its own.
CLI::App& add_verb(CLI::App& app, const Verb& verb) {
  const std::string name = verb.name;
  const size_t cut = name.find(' ');
  if (cut == name.npos) return *app.add_subcommand(name, verb.help);
  const std::string group = name.substr(0, cut);
  const auto groups = app.get_subcommands([&](CLI::App* sub) { return sub->get_name() == group; });
  CLI::App* parent =
      groups.empty() ? app.add_subcommand(group, "read and store blobs") : groups.front();
  parent->require_subcommand(1)->fallthrough()->group(VERBS);
  return *parent->add_subcommand(name.substr(cut + 1), verb.help);
}

constexpr const char* TREE_OPTIONS[] = {"--file", "--server", "--params"};

// Of `--file=` the parser takes the next word, which is a verb.
void refuse_empty_options(int argc, char** argv) {
  for (int i = 1; i < argc && argv[i] != std::string_view("--"); ++i) {
    for (const std::string option : TREE_OPTIONS) {
      if (argv[i] == option + "=") throw Failure(USAGE, option + " names nothing");
    }
  }
}

// All verbs and options, ready to read a command line.
class CommandLine {
 public:
  CommandLine();

  // The verb that is to run. Null when help or version was asked for, and is printed. What
  // is wrong with the line is a Failure.
  const Verb* read(int argc, char** argv, Output& out);
  const Arguments& arguments() const { return m_arguments; }

 private:
  void find_chosen();
  std::string usage_text(const CLI::ParseError& error) const;

  CLI::App m_app{"Reads and changes the configuration tree.", "cfg"};
  std::map<const CLI::App*, const Verb*> m_verbs;
  Arguments m_arguments;
  const CLI::App* m_chosen = &m_app;  // as far as the line is right
  const CLI::App* m_group = nullptr;  // above the chosen one, as `blob`
};

CommandLine::CommandLine() {
  m_app.require_subcommand(1)->fallthrough();
  m_app.set_help_flag("-h,--help", "show this help");
  m_app.set_version_flag("--version", "cfg " HALVORIA_VERSION, "show the version");
  m_app.footer(FOOTER);
  m_app.get_formatter()->label("REQUIRED", "");
  m_app.get_formatter()->label("SUBCOMMAND", "VERB");
  m_app.get_formatter()->column_width(26);
  add_parameters(m_app, m_arguments, common_parameters());
  add_parameters(m_app, m_arguments, writing_parameters());
  for (const Verb& verb : verbs()) {
    CLI::App& sub = add_verb(m_app, verb);
    sub.fallthrough();
    sub.footer(verb.effect == Effect::READS ? READER_FOOTER : WRITER_FOOTER);
    sub.group(*verb.help ? VERBS : "");
    add_parameters(sub, m_arguments, verb.parameters);
    m_verbs[&sub] = &verb;
  }
}

const Verb* CommandLine::read(int argc, char** argv, Output& out) {
  refuse_empty_options(argc, argv);
  try {
    m_app.parse(argc, argv);
  } catch (const CLI::CallForVersion& version) {
    out.line(version.what());
    return nullptr;
  } catch (const CLI::CallForHelp&) {
    out.write(m_app.help());
    return nullptr;
  } catch (const CLI::ParseError& error) {
    if (m_app["--json"]->count() > 0) talk_json();
    find_chosen();
    throw Failure(USAGE, usage_text(error));
  }
  if (m_arguments.json) talk_json();
  // Of a variable of the shell that is not set: another tree must not be taken instead.
  for (const char* option : TREE_OPTIONS) {
    const bool is_given = m_app[option]->count() > 0;
    if (is_given && m_app[option]->as<std::string>().empty()) {
      throw Failure(USAGE, std::string(option) + " names nothing");
    }
  }
  if (!m_arguments.tree_file.empty() && !m_arguments.server.empty()) {
    throw Failure(USAGE, "--file and --server name two trees; leave out one");
  }
  find_chosen();
  const Verb* verb = m_verbs.at(m_chosen);
  if (m_arguments.dry_run && verb->effect == Effect::READS) {
    throw Failure(USAGE, std::string(verb->name) + " writes nothing; leave out --dry-run");
  }
  return verb;
}

void CommandLine::find_chosen() {
  while (!m_chosen->get_subcommands().empty()) {
    m_chosen = m_chosen->get_subcommands().front();
    if (m_verbs.count(m_chosen) == 0) m_group = m_chosen;
  }
}

std::string CommandLine::usage_text(const CLI::ParseError& error) const {
  const std::vector<std::string> extra = m_app.remaining(true);
  std::string text = error.what();
  if (m_verbs.count(m_chosen) == 0) {
    text = extra.empty() ? "a verb is missing" : "'" + extra.front() + "' is not a verb";
  } else if (!extra.empty()) {
    text = "not expected: " + CLI::detail::join(extra, " ");
    if (extra.front()[0] == '-') text += " (behind -- it is a path or text)";
  }
  text += "; see 'cfg ";
  if (m_group && m_group != m_chosen) text += m_group->get_name() + " ";
  if (m_chosen != &m_app) text += m_chosen->get_name() + " ";
  return text + "--help'";
}

}  // namespace

int run_command(int argc, char** argv, Output& out) {
  CommandLine line;
  const Verb* verb = line.read(argc, argv, out);
  if (!verb) return DONE;
  set_log_level(line.arguments().verbose);
  const bool changes_tree = verb->effect == Effect::WRITES_TREE;
  Session session{line.arguments(), out, changes_tree ? Store::WRITE : Store::READ};
  return verb->run(session);
}

}  // namespace cli
