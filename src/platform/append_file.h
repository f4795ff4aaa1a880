// Folders and files below a folder where others may create entries too, for what several threads and processes append
// to.
//
// Somebody who may create entries in a temporary folder can plant a link (on Windows a junction, a symbolic link or any
// other reparse point) where a folder or a file of ours belongs, also in between, and would so choose what a more
// powerful process creates and writes. Therefore nothing here follows a link below the folder that is named first, and
// nothing looks at a path first and opens it afterwards: it is the opening itself that refuses.
#ifndef ORVANE_PLATFORM_APPEND_FILE_H
#define ORVANE_PLATFORM_APPEND_FILE_H

#include <string_view>

#include "platform/append_file_rules.h"

namespace orvane {

// appendBelow opens the file `below` the folder `base` (made if it does not exist, shared with other readers and
// writers), writes `bytes` at its end with one call of the system, which no other writer's bytes can come between, and
// closes it. `base` is a path with a NUL behind it, and may itself be reached through links. The parts of `below` are
// separated by "/"; at its front and between the parts there may be any number of them. kLedAway, with nothing made and
// nothing written: a link was met on the way, or the file has another name elsewhere (a hard link), or lost its own, or
// another process holds it in a way that would make us wait (an oplock on Windows).
// kFailed: it cannot be opened for another reason; a name with a "/" at its end is none of a file. A failing write is
// not reported. Throws std::bad_alloc.
//
// The C library's append mode would not do: on Windows it seeks to the end and then writes, and two writers can meet
// there.
BelowResult appendBelow(const char* base, std::string_view below, std::string_view bytes);

// createFolderBelow creates the last folder of `below`, which is put together as above and may have a "/" at its end.
// kDone only if it did not exist before and exists now; kLedAway, with nothing created, if a link was met on the way
// to it.
BelowResult createFolderBelow(const char* base, std::string_view below);

}  // namespace orvane

#endif  // ORVANE_PLATFORM_APPEND_FILE_H
