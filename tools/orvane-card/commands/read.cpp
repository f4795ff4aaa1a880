// read: one file of the card.
#include "commands/commands.h"
#include "local_files.h"

namespace orvane::tool {

Json runRead(Environment& environment, const ReadOptions& options) {
  const CardPath path = parseCardPath(options.file);
  const Bytes data = environment.card().readFile(path);
  const Output& output = environment.output();
  if (options.output == "-") {
    output.raw(data);
  } else if (!options.output.empty()) {
    writeLocalFile(options.output, data);
    output.text(path.name + ": " + std::to_string(data.size()) + " bytes written to " + options.output + "\n");
  } else {
    output.text(data.empty() ? path.name + ": empty\n" : hexDump(data));
  }
  return {{"directory", path.directory}, {"name", path.name}, {"size", data.size()}, {"hex", toHex(data)}};
}

}  // namespace orvane::tool
