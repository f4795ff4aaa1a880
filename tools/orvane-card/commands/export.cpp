// export: a certificate of the token as a file.
#include <algorithm>

#include "card/certificate.h"
#include "card/certificate_texts.h"
#include "card/key_names.h"
#include "commands/commands.h"
#include "local_files.h"
#include "text/table.h"

namespace orvane::tool {
Json runExport(Environment& environment, const ExportOptions& options) {
  const std::vector<Container> containers = seenKeys(environment);
  const std::vector<ListedKey> keys = listedKeys(containers);
  std::vector<CertificateOffer> offers;
  for (const ListedKey& key : keys) {
    if (key.certificate) offers.push_back({key.record.index + 1, key.certificate->sha1});
  }
  const int number = offers[chooseCertificate(offers, options.key, options.thumbprint)].key;
  const auto place = static_cast<std::size_t>(number - 1);
  const ListedKey& key = keys[place];
  const Bytes& der = containers[place].certificate;
  const std::string pem = options.format == "pem" ? pemOf(der) : std::string();
  const Bytes content = options.format == "pem" ? Bytes(pem.begin(), pem.end()) : der;

  const Output& output = environment.output();
  if (options.output == "-") {
    output.raw(content);
  } else {
    output.text("The certificate of " + keyName(key.record, keys.size()) + ":\n" +
                fieldList(certificateFields(*key.certificate)));
    if (!options.output.empty()) {
      writeLocalFile(options.output, content);
      output.text("\nWritten to " + options.output + ", " + std::to_string(content.size()) + " bytes.\n");
    }
  }
  const bool isWritten = !options.output.empty() && options.output != "-";
  return {{"key", number},
          {"name", keyName(key.record, keys.size())},
          {"certificate", certificateJson(*key.certificate)},
          {"format", options.format},
          {"file", isWritten ? Json(options.output) : Json(nullptr)}};
}

}  // namespace orvane::tool
