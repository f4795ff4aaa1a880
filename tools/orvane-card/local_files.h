// Files on this machine.
#ifndef ORVANE_TOOL_LOCAL_FILES_H
#define ORVANE_TOOL_LOCAL_FILES_H

#include <functional>
#include <string>

#include "text/bytes.h"

namespace orvane::tool {

// readLocalFile gives the whole file; `path` is UTF-8. Throws ToolError (ExitCode::kLocalFile).
Bytes readLocalFile(const std::string& path);

// forEachPart calls `take` with the file's content in parts, in order. Throws ToolError (ExitCode::kLocalFile).
void forEachPart(const std::string& path, const std::function<void(ByteView)>& take);

// writeLocalFile creates or replaces the file. Throws ToolError (ExitCode::kLocalFile).
void writeLocalFile(const std::string& path, ByteView data);

// createFolder makes the folder and those above it unless they exist. Throws ToolError (ExitCode::kLocalFile).
void createFolder(const std::string& path);

// joinPath puts a file name behind a folder.
std::string joinPath(const std::string& folder, const std::string& name);

}  // namespace orvane::tool

#endif
