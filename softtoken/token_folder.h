// Reading a token from its folder; the format is described in README.md.
#ifndef ORVANE_SOFTTOKEN_TOKEN_FOLDER_H
#define ORVANE_SOFTTOKEN_TOKEN_FOLDER_H

#include <string>

#include "softtoken/token.h"

namespace orvane::softtoken {

// Whether the folder exists and describes a token.
bool isTokenFolder(const std::string& folder);

// Reads the description, keys and certificates. On failure false, with a sentence about the first mistake in problem
// (without PINs) and an unspecified token.
bool readTokenFolder(const std::string& folder, Token& token, std::string& problem);

}  // namespace orvane::softtoken

#endif  // ORVANE_SOFTTOKEN_TOKEN_FOLDER_H
