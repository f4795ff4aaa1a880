#include "command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <sstream>

#include "log/files.h"
#include "text/suggestion.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

constexpr const char* kDescription =
    "Looks at a smart-card token through its minidriver, the way Windows does: shows what is on it, checks PINs, signs "
    "and decrypts. For finding out what works and what does not.";

constexpr const char* kFooter = R"(
Examples:
  orvane-card doctor                       My certificate does not show up: where is the chain broken?
  orvane-card info                         Is the token there, and which minidriver serves it?
  orvane-card log --level error            What did the minidriver complain about, and what does it mean?
  orvane-card list                         Which keys and certificates does it hold?
  orvane-card pin verify                   Is the PIN right? (A wrong one uses up an attempt.)
  orvane-card export --key 2 -o two.der    One certificate, with what identifies it
  orvane-card report                       What second-level support wants to know, in one folder
  orvane-card sign report.pdf -o report.sig --certificate cert.der
  orvane-card --driver C:\build\OrvaneMinidriver.dll --trace list

To check a signature with OpenSSL:
  openssl x509 -inform DER -in cert.der -pubkey -noout > key.pem
  openssl dgst -sha256 -verify key.pem -signature report.sig report.pdf

Exit codes: 0 success, 1 internal error, 2 wrong command line, 3 no reader or card, 4 minidriver missing or refusing
the card, 5 no such file or key, 6 wrong PIN, 7 PIN blocked, 8 PIN needed, 9 refused for another reason,
10 local file unreadable or unwritable, 11 a check found something wrong, 12 "doctor" found warnings only.)";

constexpr const char* kDoctorFooter = R"(
The exit code is 0 when all is well and 12 when there are only warnings; otherwise it is that of the first broken link:
3 service, reader or card, 4 registration, minidriver file, token library or start of the minidriver, 11 what comes after.
It takes some seconds, because it watches the token. It asks for no PIN and changes nothing.)";

constexpr const char* kLogFooter = R"(
The file of this user that was written last is shown unless --process, --date or FILE choose another one. The logs of
services lie elsewhere: --temp C:\Windows\Temp. The registry value logLevel says how much is written; "orvane-card doctor"
shows it.

Examples:
  orvane-card log --list
  orvane-card log --process chrome --level error
  orvane-card log --entry CardSignData --follow)";

constexpr const char* kPinFooter = R"(
A wrong PIN uses up an attempt; after one, the attempts left are shown, as far as the token tells them. A right one
tells nothing about them.
What cannot be a PIN is refused before the token is asked: fewer than 4 or more than 63 characters, a blank at the
beginning or end, a character beyond ASCII. From a pipe or file, each PIN stands on a line of its own:
  orvane-card pin verify < pin.txt                      in a command prompt
  Get-Content pin.txt | .\orvane-card pin verify        in PowerShell)";

constexpr const char* kSessionHelp = "Run several commands on one connection, so that a verified PIN serves them all";

constexpr const char* kSessionFooter = R"(
The commands come from -c, from FILE or from standard input, one a line; # begins a comment. PINs are read from standard
input when a command asks for one. The session stops at the first command that fails, unless its line begins with "-".

Example:
  orvane-card session -c "-pin verify" -c "pin verify" -c "sign --all report.pdf --output-dir signed" < pins.txt)";

// What is wrong with the text as the date of a log; nothing when it is one.
std::string dateProblem(const std::string& text) {
  return logDateOf(text + ".LOG") ? std::string() : "\"" + text + "\" is no date such as 2026-11-15";
}

// Parser builds the commands into a CLI::App and notes in a Request which one was chosen.
class Parser {
 public:
  explicit Parser(CLI::App& app, Request& request) : app_(app), request_(request) {
    app_.require_subcommand(1);
    app_.fallthrough();
    // Before the commands and options, which take this over from here.
    app_.ignore_case();
    app_.option_defaults()->ignore_case();
    app_.set_help_flag("-h,--help", "Show this help, or that of a command");
  }

  void addConnectionOptions() {
    app_.set_version_flag("-v,--version", std::string("orvane-card ") + ORVANE_VERSION, "Show the program's version");
    app_.add_option("--reader", request_.connect.reader,
                    "Use the card in this reader; a part of its name is enough [the first Orvane token]")
        ->type_name("NAME");
    app_.add_option("--driver", request_.connect.driver, "Load this minidriver [the one registered for the card's ATR]")
        ->type_name("DLL");
    app_.add_flag("--trace", request_.connect.trace, "Show every call of the minidriver on standard error");
    app_.add_flag_callback(
        "--json", [this] { request_.format = OutputFormat::kJson; }, "Print JSON for programs");
  }

  void addCommands() {
    addCardCommands();
    addPinCommands();
    addSign();
    addDecrypt();
    addDoctor();
    addLog();
    addReport();
  }

  void addSession() {
    CLI::App* session = app_.add_subcommand("session", kSessionHelp);
    session->add_option("FILE", request_.sessionFile, "File with one command a line; # begins a comment");
    session->add_option("-c,--command", request_.sessionLines, "A command to run; may be given several times")
        ->type_name("LINE")
        ->take_all()
        ->allow_extra_args(false);
    session->footer(kSessionFooter);
    session->callback([this] {
      request_.session = true;
      request_.command = "session";
      if (request_.format == OutputFormat::kJson) request_.format = OutputFormat::kJsonLines;
    });
  }

 private:
  // Adds a command without options of its own.
  void addPlain(CLI::App& parent, const std::string& name, const std::string& help, Json (*run)(Environment&)) {
    choose(*parent.add_subcommand(name, help), fullName(parent, name), run);
  }

  void choose(CLI::App& command, const std::string& name, std::function<Json(Environment&)> run) {
    command.callback([this, name, action = std::move(run)] {
      request_.command = name;
      request_.run = action;
    });
  }

  std::string fullName(const CLI::App& parent, const std::string& name) const {
    return &parent == &app_ ? name : parent.get_name() + " " + name;
  }

  void addCardCommands() {
    addInfo();
    addList();
    addExport();
    auto read = std::make_shared<ReadOptions>();
    CLI::App* command = app_.add_subcommand("read", "Read a file of the card, such as cardcf, cmapfile or ksc00");
    command->add_option("FILE", read->file, "Name, or directory/name; certificates are kscNN and kxcNN")->required();
    command->add_option("-o,--output", read->output, "Write the bytes to this file (\"-\": standard output)")
        ->type_name("PATH");
    choose(*command, "read", [read](Environment& environment) { return runRead(environment, *read); });
    addPlain(app_, "files", "List the files of the card", runFiles);
    addPlain(app_, "props", "Show all card properties, decoded and raw", runProperties);
  }

  void addInfo() {
    auto options = std::make_shared<InfoOptions>();
    CLI::App* info = app_.add_subcommand("info", "Show readers, and of the token what can be known without a PIN");
    info->add_flag("--all", options->all, "The tokens in all readers");
    choose(*info, "info", [options](Environment& environment) { return runInfo(environment, *options); });
  }

  void addList() {
    auto options = std::make_shared<ListOptions>();
    CLI::App* list = app_.add_subcommand("list", "List the keys with their certificates");
    list->add_flag("--verbose", options->verbose, "Everything about each key, with the names of their containers");
    choose(*list, "list", [options](Environment& environment) { return runList(environment, *options); });
  }

  void addExport() {
    auto options = std::make_shared<ExportOptions>();
    CLI::App* command = app_.add_subcommand("export", "Show a certificate and write it to a file");
    CLI::Option* key = command->add_option("-k,--key", options->key, "Of this key, counted from 1 as \"list\" does")
                           ->type_name("NUMBER");
    command->add_option("--thumbprint", options->thumbprint, "With this thumbprint (SHA-1); 8 digits are enough")
        ->type_name("HEX")
        ->excludes(key);
    command->add_option("--format", options->format, "der or pem")
        ->transform(CLI::IsMember({"der", "pem"}, CLI::ignore_case))
        ->capture_default_str();
    command->add_option("-o,--output", options->output, "Write it to this file (\"-\": standard output)")
        ->type_name("PATH");
    choose(*command, "export", [options](Environment& environment) { return runExport(environment, *options); });
  }

  void addPinCommands() {
    CLI::App* pin = app_.add_subcommand("pin", "Verify, change or forget a PIN");
    pin->require_subcommand(1);
    pin->fallthrough();
    addPinCommand(*pin, "verify", "Verify a PIN, asked for on the console or read from standard input",
                  "For the administrator, for whom the minidriver verifies the user PIN, too", runPinVerify);
    addPinCommand(*pin, "change", "Change a PIN; reads the current and the new one",
                  "The administrator PIN instead of the user PIN", runPinChange);
    addPlain(*pin, "forget", "Undo the verification of all PINs", runPinForget);
  }

  void addPinCommand(CLI::App& pin, const std::string& name, const std::string& help,
                     const std::string& administratorHelp, Json (*run)(Environment&, const PinCommandOptions&)) {
    auto options = std::make_shared<PinCommandOptions>();
    CLI::App* command = pin.add_subcommand(name, help);
    command->add_flag("--admin", options->administrator, administratorHelp);
    command->footer(kPinFooter);
    choose(*command, fullName(pin, name),
           [options, run](Environment& environment) { return run(environment, *options); });
  }

  static void addPinOptions(CLI::App& command, PinOptions& options) {
    CLI::Option* none = command.add_flag("--no-pin", options.none, "Do not verify a PIN first");
    command.add_flag("--pin-stdin", options.fromStandardInput, "Read the user PIN from standard input")->excludes(none);
  }

  void addSign() {
    auto options = std::make_shared<SignOptions>();
    CLI::App* sign = app_.add_subcommand("sign", "Sign a file or a hash (PKCS #1 v1.5)");
    CLI::Option* file = sign->add_option("FILE", options->file, "The file to sign");
    sign->add_option("--digest", options->digest, "Sign this hash instead of a file's")
        ->type_name("HEX")
        ->excludes(file);
    sign->add_option("--hash", options->hash, "sha256, sha384, sha512 or sha1")->capture_default_str();
    CLI::Option* one = sign->add_option("-k,--key", options->key,
                                        "Number of the key in \"list\" [the default one, or the first that can sign]");
    CLI::Option* all = sign->add_flag("--all", options->all, "Sign with every signature key")->excludes(one);
    sign->add_option("-o,--output", options->signature, "Write the signature here, as OpenSSL expects it")
        ->type_name("PATH")
        ->excludes(all);
    sign->add_option("--certificate", options->certificate, "Write the certificate here (DER)")
        ->type_name("PATH")
        ->excludes(all);
    sign->add_option("--output-dir", options->folder, "Write signature-N.bin and certificate-N.der into this folder")
        ->type_name("FOLDER");
    sign->add_flag("--check", options->check, "Verify each signature with the certificate of its key");
    addPinOptions(*sign, options->pin);
    choose(*sign, "sign", [options](Environment& environment) {
      if (options->file.empty() && options->digest.empty())
        throw ToolError(ExitCode::kUsage, "sign needs a file or --digest");
      return runSign(environment, *options);
    });
  }

  void addDecrypt() {
    auto options = std::make_shared<DecryptOptions>();
    CLI::App* decrypt = app_.add_subcommand("decrypt", "Decrypt a block that was encrypted for a certificate");
    decrypt->add_option("FILE", options->file, "The encrypted block, as OpenSSL writes it")->required();
    decrypt->add_option("-o,--output", options->output, "Write the plaintext here (\"-\": standard output)")
        ->type_name("PATH")
        ->required();
    decrypt->add_option("-k,--key", options->key,
                        "Number of the key in \"list\" [the default one, or the first that can decrypt]");
    decrypt->add_option("--padding", options->padding, "pkcs1, oaep or none")
        ->transform(CLI::IsMember({"pkcs1", "oaep", "none"}, CLI::ignore_case))
        ->capture_default_str();
    decrypt->add_option("--oaep-hash", options->oaepHash, "Hash algorithm of OAEP")->capture_default_str();
    addPinOptions(*decrypt, options->pin);
    choose(*decrypt, "decrypt", [options](Environment& environment) { return runDecrypt(environment, *options); });
  }

  void addDoctor() {
    CLI::App* doctor = app_.add_subcommand("doctor", "Find out why a certificate does not show up, and what to do");
    doctor->footer(kDoctorFooter);
    choose(*doctor, "doctor", runDoctor);
  }

  void addLog() {
    auto options = std::make_shared<LogOptions>();
    CLI::App* log = app_.add_subcommand("log", "Show and explain the minidriver's log");
    CLI::Option* file = log->add_option("FILE", options->file, "This log file, wherever it lies");
    log->add_option("--process", options->process, "The log of this program, such as chrome")
        ->type_name("NAME")
        ->excludes(file);
    log->add_option("--date", options->date, "The log of this day, YYYY-MM-DD [the newest]")
        ->type_name("DATE")
        ->check(dateProblem)
        ->excludes(file);
    log->add_option("--temp", options->temp, "Below this temporary folder instead of this user's")
        ->type_name("FOLDER")
        ->excludes(file);
    log->add_option("--entry", options->call, "Only lines of this entry point (CardSignData), or of the \"monitor\"")
        ->type_name("NAME");
    log->add_option("--level", options->level, "error: only errors; debug: everything")
        ->transform(CLI::IsMember({"error", "debug"}, CLI::ignore_case))
        ->capture_default_str();
    log->add_option("--lines", options->lines, "Only so many lines at the end [all; with --follow 20]")
        ->check(CLI::NonNegativeNumber);
    CLI::Option* list = log->add_flag("--list", options->list, "Only list the log files")->excludes(file);
    CLI::Option* follow = log->add_flag("--follow", options->follow, "Go on with what is written")->excludes(list);
    log->add_option("--for", options->duration, "Stop following after this many seconds [run until stopped]")
        ->check(CLI::PositiveNumber)
        ->needs(follow);
    log->add_flag("--no-explain", options->noExplanations, "Only the lines, without explanations");
    log->footer(kLogFooter);
    log->callback([this, options] {
      request_.command = "log";
      request_.run = [options](Environment& environment) { return runLog(environment, *options); };
      // Lines that come one by one want documents of one line.
      if (options->follow && request_.format == OutputFormat::kJson) request_.format = OutputFormat::kJsonLines;
    });
  }

  void addReport() {
    auto options = std::make_shared<ReportOptions>();
    CLI::App* report = app_.add_subcommand("report", "Put what second-level support wants to know into a folder");
    report->add_option("-o,--output", options->output, "This folder [a new one in the current folder]")
        ->type_name("FOLDER");
    report->add_option("--process", options->process, "With the log of this program, such as chrome")
        ->type_name("NAME");
    report->add_option("--date", options->date, "With the log of this day, YYYY-MM-DD [the newest]")
        ->type_name("DATE")
        ->check(dateProblem);
    report->add_option("--temp", options->temp, "With a log below this temporary folder instead of this user's")
        ->type_name("FOLDER");
    report->add_flag("--with-names", options->withNames, "Leave serials and names in");
    report->add_flag("--dry-run", options->dryRun, "Only say what would be in it");
    choose(*report, "report", [options](Environment& environment) { return runReport(environment, *options); });
  }

  CLI::App& app_;
  Request& request_;
};

// The command that was given last: "verify" of "pin verify".
const CLI::App& chosenCommand(const CLI::App& app) {
  const CLI::App* last = &app;
  for (auto chosen = app.get_subcommands(); !chosen.empty(); chosen = last->get_subcommands()) last = chosen.front();
  return *last;
}

// NOLINTNEXTLINE(misc-no-recursion): commands have commands one level deep.
void addCommandNames(const CLI::App& app, const std::string& before, std::vector<std::string>& names) {
  for (const CLI::App* command : app.get_subcommands({})) {
    names.push_back(before + command->get_name());
    addCommandNames(*command, names.back() + " ", names);
  }
}

void addOptionNames(const CLI::App& app, std::vector<std::string>& names) {
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
}

// What was probably meant by something that is not known, as the beginning of an advice.
std::string hintFor(const CLI::App& app, const std::string& unknown) {
  std::vector<std::string> names;
  if (unknown.starts_with('-')) {
    addOptionNames(chosenCommand(app), names);
    addOptionNames(app, names);
  } else {
    addCommandNames(app, "", names);
  }
  const std::string meant = nearest(unknown, names);
  return meant.empty() ? meant : "Did you mean \"" + meant + "\"? ";
}

// The names of the commands that were given, each behind a blank: " pin verify".
std::string namedCommands(const CLI::App& app) {
  std::string names;
  for (auto chosen = app.get_subcommands(); !chosen.empty(); chosen = chosen.front()->get_subcommands())
    names += " " + chosen.front()->get_name();
  return names;
}

// Runs `parse` and turns what the library throws into a text to print or an error of ours.
Request understood(CLI::App& app, Request& request, const std::function<void()>& parse) {
  try {
    parse();
  } catch (const CLI::CallForHelp&) {
    Request help;
    help.text = app.help();
    return help;
  } catch (const CLI::CallForVersion& version) {
    Request answer;
    answer.text = std::string(version.what()) + "\n";
    return answer;
  } catch (const CLI::ParseError& error) {
    const std::vector<std::string> unknown = app.remaining(true);
    std::string message = error.what();
    std::string hint;
    if (!unknown.empty()) {
      const bool isOption = unknown.front().starts_with('-');
      hint = hintFor(app, unknown.front());
      if (isOption || error.get_name() == "RequiredError")
        message = std::string("there is no ") + (isOption ? "option" : "command") + " \"" + unknown.front() + "\"";
    }
    throw ToolError(ExitCode::kUsage, message,
                    hint + "\"orvane-card" + namedCommands(app) + " --help\" shows what there is.");
  }
  return std::move(request);
}

// The same for a line of a session. One that does not ask for help stays as it is: quotes in it keep words together.
std::string lineWithHelpOption(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  const std::vector<std::string> asking = withHelpOption(words);
  if (asking == words) return line;
  std::string text;
  for (const std::string& word : asking) text += word + " ";
  return text;
}

}  // namespace

Request parseArguments(std::vector<std::string> arguments) {
  Request request;
  CLI::App app(kDescription, "orvane-card");
  Parser parser(app, request);
  parser.addConnectionOptions();
  parser.addCommands();
  parser.addSession();
  // Last: commands added later would show it too.
  app.footer(kFooter);
  if (arguments.empty()) arguments = {"--help"};
  arguments = withHelpOption(std::move(arguments));
  std::reverse(arguments.begin(), arguments.end());
  return understood(app, request, [&] { app.parse(std::move(arguments)); });
}

Request parseSessionLine(const std::string& line) {
  Request request;
  CLI::App app("Commands of a session", "");
  Parser parser(app, request);
  parser.addCommands();
  return understood(app, request, [&] { app.parse(lineWithHelpOption(line), false); });
}

}  // namespace orvane::tool
