#include "text/table.h"

#include <algorithm>
#include <utility>

namespace orvane::tool {
namespace {

// Blanks between the columns of a table.
constexpr std::size_t kGap = 2;

bool startsCodePoint(char unit) { return (static_cast<unsigned char>(unit) & 0xC0) != 0x80; }

std::size_t longestWordIn(std::string_view text) {
  std::size_t longest = 0;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    longest = std::max(longest, displayWidth(text.substr(0, end)));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return longest;
}

// The number of bytes that the first `points` code points of `text` take.
std::size_t bytesOf(std::string_view text, std::size_t points) {
  std::size_t end = 0;
  for (std::size_t count = 0; end < text.size(); ++end) {
    if (startsCodePoint(text[end]) && count++ == points) break;
  }
  return end;
}

// A cell in lines of at most `width` columns: at least one, which may be empty.
std::vector<std::string> cellLines(std::string_view text, std::size_t width) {
  if (displayWidth(text) <= width) return {std::string(text)};
  std::vector<std::string> lines;
  while (!text.empty()) {
    std::size_t end = bytesOf(text, width);
    if (end < text.size() && text[end] != ' ') {
      const std::size_t blank = text.rfind(' ', end);
      if (blank != std::string_view::npos && blank > 0) end = blank;
    }
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(end);
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  }
  return lines;
}

}  // namespace

std::size_t displayWidth(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), startsCodePoint));
}

std::string padded(std::string_view text, std::size_t width) {
  return std::string(text) + std::string(width - std::min(width, displayWidth(text)), ' ');
}

std::string shortened(std::string_view text, std::size_t width) {
  if (displayWidth(text) <= width) return std::string(text);
  return std::string(text.substr(0, bytesOf(text, width - 1))) + "\xE2\x80\xA6";
}

std::string wrapped(std::string_view text, std::size_t column, std::size_t width) {
  if (width == 0) return std::string(text);
  const std::size_t room = width > column ? width - column : 1;
  std::string lines;
  std::size_t used = 0;
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find(' ', start), text.size());
    const std::string_view word = text.substr(start, end - start);
    start = end + 1;
    const std::size_t length = displayWidth(word);
    if (used && used + 1 + length > room) {
      lines += "\n" + std::string(column, ' ');
      used = 0;
    } else if (end - word.size() > 0) {
      lines += ' ';
      ++used;
    }
    lines += word;
    used += length;
  }
  return lines;
}

TextTable::TextTable(std::vector<std::string> headers) : headers_(std::move(headers)) {
  rightAligned_.reserve(headers_.size());
  wraps_.reserve(headers_.size());
  for (std::string& header : headers_) {
    rightAligned_.push_back(header.starts_with('>'));
    wraps_.push_back(header.starts_with('~'));
    if (rightAligned_.back() || wraps_.back()) header.erase(0, 1);
  }
}

void TextTable::addRow(std::vector<std::string> cells) {
  cells.resize(headers_.size());
  rows_.push_back(std::move(cells));
}

std::vector<std::size_t> TextTable::columnWidths(std::size_t width) const {
  std::vector<std::size_t> widths;
  std::vector<std::size_t> narrowest;
  std::size_t total = 0;
  for (std::size_t column = 0; column < headers_.size(); ++column) {
    std::size_t widest = displayWidth(headers_[column]);
    std::size_t longestWord = widest;
    for (const auto& row : rows_) {
      widest = std::max(widest, displayWidth(row[column]));
      longestWord = std::max(longestWord, std::min(longestWordIn(row[column]), kWholeWord));
    }
    total += widest + (column ? kGap : 0);
    widths.push_back(widest);
    narrowest.push_back(wraps_[column] ? longestWord : widest);
  }
  while (width && total > width) {
    std::size_t choice = widths.size();
    for (std::size_t column = 0; column < widths.size(); ++column) {
      if (widths[column] > narrowest[column] && (choice == widths.size() || widths[column] > widths[choice]))
        choice = column;
    }
    if (choice == widths.size()) break;
    --widths[choice];
    --total;
  }
  return widths;
}

std::string TextTable::text(std::size_t width) const {
  const std::vector<std::size_t> widths = columnWidths(width);
  std::vector<std::string> dashes;
  dashes.reserve(widths.size());
  for (const std::size_t columns : widths) dashes.emplace_back(columns, '-');

  std::string text;
  const auto addLine = [&](const std::vector<std::string>& cells) {
    std::vector<std::vector<std::string>> parts;
    std::size_t height = 0;
    for (std::size_t column = 0; column < cells.size(); ++column) {
      parts.push_back(cellLines(cells[column], widths[column]));
      height = std::max(height, parts.back().size());
    }
    for (std::size_t part = 0; part < height; ++part) {
      std::string line;
      for (std::size_t column = 0; column < cells.size(); ++column) {
        if (column) line += std::string(kGap, ' ');
        const std::string cell = part < parts[column].size() ? parts[column][part] : std::string();
        const std::string blanks(widths[column] - displayWidth(cell), ' ');
        line += rightAligned_[column] ? blanks + cell : cell + blanks;
      }
      line.erase(line.find_last_not_of(' ') + 1);
      text += line + '\n';
    }
  };
  addLine(headers_);
  addLine(dashes);
  for (const auto& row : rows_) addLine(row);
  return text;
}

std::string fieldList(const std::vector<std::pair<std::string, std::string>>& fields) {
  std::size_t width = 0;
  for (const auto& field : fields) width = std::max(width, displayWidth(field.first));
  std::string text;
  for (const auto& [name, value] : fields) {
    std::string line = padded(name + ":", width + 3);
    for (const char unit : value) {
      line += unit;
      if (unit == '\n') line += std::string(width + 3, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + '\n';
  }
  return text;
}

}  // namespace orvane::tool
