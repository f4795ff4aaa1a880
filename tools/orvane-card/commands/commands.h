// The program's commands: what each one wants to know and what it does.
//
// Every command prints its text through `Environment::output`, returns its result as JSON and throws ToolError when it
// fails. command_line.cpp gives them their names and options.
#ifndef ORVANE_TOOL_COMMANDS_COMMANDS_H
#define ORVANE_TOOL_COMMANDS_COMMANDS_H

#include <optional>
#include <string>
#include <vector>

#include "card/containers.h"
#include "environment.h"
#include "text/json.h"

namespace orvane::tool {

// PinOptions say where a PIN comes from when a command needs one and none was verified before.
struct PinOptions {
  bool fromStandardInput = false;
  bool none = false;  // do not verify at all
};

// neededPin gives the user PIN that a command has to verify, unless that was done before in this session: from standard
// input if asked to, else by asking on the console. Not within a transaction, because it may wait for a person. Throws
// ToolError (ExitCode::kPinNeeded) when there is nobody to ask.
std::optional<SecretText> neededPin(Environment& environment, const PinOptions& options);

// seenKeys gives the keys of the connected token, for commands that need one. When none are seen it throws ToolError:
// ExitCode::kNotFound if the token holds none, kRefused if it could not be opened and nobody knows what it holds.
std::vector<Container> seenKeys(Environment& environment);

struct InfoOptions {
  bool all = false;  // the tokens in all readers
};
// info: the readers, and of the token what can be known without a PIN: its serial, minidriver, files and keys.
Json runInfo(Environment& environment, const InfoOptions& options);

struct ListOptions {
  bool verbose = false;  // everything about each key
};
// list: the keys with their certificates.
Json runList(Environment& environment, const ListOptions& options);

struct ExportOptions {
  std::optional<int> key;                 // counted from 1; either this or `thumbprint`, or the only certificate
  std::optional<std::string> thumbprint;  // its first digits are enough
  std::string format = "der";             // or "pem"
  std::string output;                     // on this machine; "-" is standard output, empty only shows it
};
// export: a certificate of the token, shown with its purpose and e-mail address, as a file.
Json runExport(Environment& environment, const ExportOptions& options);

struct ReadOptions {
  std::string file;    // on the card
  std::string output;  // on this machine; "-" is standard output, empty shows a dump
};
Json runRead(Environment& environment, const ReadOptions& options);

// files: all files of the card with their sizes.
Json runFiles(Environment& environment);

// props: all card properties, decoded and raw.
Json runProperties(Environment& environment);

struct PinCommandOptions {
  bool administrator = false;
};
Json runPinVerify(Environment& environment, const PinCommandOptions& options);
Json runPinChange(Environment& environment, const PinCommandOptions& options);
Json runPinForget(Environment& environment);

struct SignOptions {
  std::string file;    // hashed here; either this or `digest`
  std::string digest;  // a ready hash, hexadecimal
  std::string hash = "sha256";
  std::optional<int> key;   // counted from 1
  bool all = false;         // every key that can sign
  std::string signature;    // output file, for one key
  std::string certificate;  // output file, for one key
  std::string folder;       // output folder: signature-N.bin, certificate-N.der
  bool check = false;       // verify the signature here
  PinOptions pin;
};
Json runSign(Environment& environment, const SignOptions& options);

struct DecryptOptions {
  std::string file;
  std::string output;
  std::optional<int> key;  // counted from 1
  std::string padding = "pkcs1";
  std::string oaepHash = "sha256";
  PinOptions pin;
};
Json runDecrypt(Environment& environment, const DecryptOptions& options);

// doctor: walks the chain that makes a certificate appear. Throws PartialFailure with the whole report when a link is
// broken or suspicious.
Json runDoctor(Environment& environment);

struct LogOptions {
  std::string file;                    // this file; otherwise one below the temporary folder
  std::optional<std::string> process;  // of this program [the one whose file is the newest]
  std::optional<std::string> date;     // "2026-11-15" [the newest]
  std::optional<std::string> temp;     // another temporary folder than this user's
  std::optional<std::string> call;     // only lines of this entry point
  std::string level = "debug";         // "error": only errors
  std::optional<int> lines;            // only so many at the end
  bool list = false;                   // only say which files there are
  bool follow = false;                 // go on with what is appended
  std::optional<double> duration;      // stop following after so many seconds
  bool noExplanations = false;
};

// log: shows, filters, explains and follows a log file of the minidriver. Needs no smart card.
Json runLog(Environment& environment, const LogOptions& options);

struct ReportOptions {
  std::string output;                  // folder [a new one in the current folder]
  std::optional<std::string> process;  // the log of this program [the newest of another program than this one]
  std::optional<std::string> date;     // of this day [the newest]
  std::optional<std::string> temp;     // below another temporary folder than this user's
  bool withNames = false;              // leave serials and names in
  bool dryRun = false;                 // only say what would be in it
};

// report: what second-level support wants to know, in one folder.
Json runReport(Environment& environment, const ReportOptions& options);

}  // namespace orvane::tool

#endif
