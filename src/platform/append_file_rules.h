// What is decided about folders and files below a folder, apart from the calls of the system.
#ifndef ORVANE_PLATFORM_APPEND_FILE_RULES_H
#define ORVANE_PLATFORM_APPEND_FILE_RULES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace orvane {

// What became of something that was to happen below a folder.
enum class BelowResult { kDone, kFailed, kLedAway };

// takePathPart takes the first part off the front of `path`, with the separators "/" around it, and returns it; empty
// when there is none left.
constexpr std::string_view takePathPart(std::string_view& path) noexcept {
  const std::size_t first = path.find_first_not_of('/');
  if (first == std::string_view::npos) return path = std::string_view();
  const std::string_view part = path.substr(first, path.find('/', first) - first);
  const std::size_t next = path.find_first_not_of('/', first + part.size());
  path = next == std::string_view::npos ? std::string_view() : path.substr(next);
  return part;
}

// isFileName tells whether a path can be that of a file: it has a part, and no separator behind the last.
constexpr bool isFileName(std::string_view path) noexcept { return !path.empty() && path.back() != '/'; }

// windowsNameBelow turns a path below a folder into the form in which Windows' kernel takes it: single backslashes
// between the parts, none around them. Of what usually comes before the kernel, one thing is made up for: blanks and
// dots at the end of a path without a separator behind it do not count. Throws std::bad_alloc.
inline std::string windowsNameBelow(std::string_view below) {
  if (isFileName(below)) below = below.substr(0, below.find_last_not_of(" .") + 1);
  std::string name;
  name.reserve(below.size());
  for (std::string_view part = takePathPart(below); !part.empty(); part = takePathPart(below)) {
    if (!name.empty()) name.push_back('\\');
    name.append(part);
  }
  return name;
}

// openResultOf judges what Windows' kernel answered to an opening that must not meet a link, and must not wait. A file
// on which another process holds an oplock is opened, but a write would wait for that process; who plants files could
// make us wait for ever, so such a line is lost like one behind a link.
constexpr BelowResult openResultOf(std::int32_t status) noexcept {
  constexpr auto kReparsePointEncountered = static_cast<std::int32_t>(0xC000050B);
  constexpr std::int32_t kOplockBreakInProgress = 0x108;
  if (status == kOplockBreakInProgress) return BelowResult::kLedAway;
  if (status >= 0) return BelowResult::kDone;
  return status == kReparsePointEncountered ? BelowResult::kLedAway : BelowResult::kFailed;
}

// isOnlyHere tells whether an opened file has just the name by which it was opened. A file that has a second one may
// have been planted as a hard link to a file elsewhere. One whose name is being deleted counts as planted, too: a
// planter who deletes his link after the opening would bring the number down to the one elsewhere. A file system that
// counts no names says 0.
constexpr bool isOnlyHere(std::uint64_t numberOfNames, bool isBeingDeleted) noexcept {
  return numberOfNames <= 1 && !isBeingDeleted;
}

}  // namespace orvane

#endif  // ORVANE_PLATFORM_APPEND_FILE_RULES_H
