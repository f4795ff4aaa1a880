#include "text/table.h"

#include <algorithm>
#include <utility>

namespace orvane::tool {
namespace {

bool startsCodePoint(char unit) { return (static_cast<unsigned char>(unit) & 0xC0) != 0x80; }

}  // namespace

std::size_t displayWidth(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), startsCodePoint));
}

std::string padded(std::string_view text, std::size_t width) {
  return std::string(text) + std::string(width - std::min(width, displayWidth(text)), ' ');
}

std::string shortened(std::string_view text, std::size_t width) {
  if (displayWidth(text) <= width) return std::string(text);
  std::size_t end = 0;
  for (std::size_t points = 0; end < text.size(); ++end) {
    if (startsCodePoint(text[end]) && ++points == width) break;
  }
  return std::string(text.substr(0, end)) + "\xE2\x80\xA6";
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
  for (std::string& header : headers_) {
    rightAligned_.push_back(header.starts_with('>'));
    if (rightAligned_.back()) header.erase(0, 1);
  }
}

void TextTable::addRow(std::vector<std::string> cells) {
  cells.resize(headers_.size());
  rows_.push_back(std::move(cells));
}

std::string TextTable::text() const {
  std::vector<std::size_t> widths;
  widths.reserve(headers_.size());
  for (std::size_t column = 0; column < headers_.size(); ++column) {
    std::size_t width = displayWidth(headers_[column]);
    for (const auto& row : rows_) width = std::max(width, displayWidth(row[column]));
    widths.push_back(width);
  }
  std::vector<std::string> dashes;
  dashes.reserve(widths.size());
  for (const std::size_t width : widths) dashes.emplace_back(width, '-');

  std::string text;
  const auto addLine = [&](const std::vector<std::string>& cells) {
    std::string line;
    for (std::size_t column = 0; column < cells.size(); ++column) {
      if (column) line += "  ";
      const std::string blanks(widths[column] - displayWidth(cells[column]), ' ');
      line += rightAligned_[column] ? blanks + cells[column] : cells[column] + blanks;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + '\n';
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
