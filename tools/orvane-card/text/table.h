// Plain text tables with aligned columns.
#ifndef ORVANE_TOOL_TEXT_TABLE_H
#define ORVANE_TOOL_TEXT_TABLE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::tool {

// displayWidth counts the code points of a UTF-8 text, which is the number of columns for the texts shown here.
std::size_t displayWidth(std::string_view text);

// padded gives `text` with blanks behind it up to `width` columns.
std::string padded(std::string_view text, std::size_t width);

// shortened gives `text` unchanged when it has at most `width` code points, else its first `width` - 1 and an ellipsis.
std::string shortened(std::string_view text, std::size_t width);

// wrapped gives `text`, which is to be printed from column `column` on, with line ends between its words so that no
// line goes beyond `width` columns; further lines begin in the same column. A word that is too long stays whole. Width
// 0 leaves the text as it is.
std::string wrapped(std::string_view text, std::size_t column, std::size_t width);

// TextTable collects rows and prints them in aligned columns, two blanks apart, under a header and a line of dashes.
class TextTable {
 public:
  // `headers` names the columns; those whose name begins with '>' are right-aligned, those with '~' take several lines
  // when the table would be too wide (the marks are not printed).
  explicit TextTable(std::vector<std::string> headers);

  // addRow takes one text a column; missing ones are empty.
  void addRow(std::vector<std::string> cells);

  // text gives the lines, each ended by a newline and without blanks at its end. With a `width` other than 0 the
  // columns marked for it are made narrower, the widest first, until the lines fit: cells break between words, and
  // within a word only when it has more than kWholeWord columns. A line stays longer when that is not enough.
  static constexpr std::size_t kWholeWord = 12;
  std::string text(std::size_t width = 0) const;

 private:
  std::vector<std::size_t> columnWidths(std::size_t width) const;

  std::vector<std::string> headers_;
  std::vector<bool> rightAligned_;
  std::vector<bool> wraps_;
  std::vector<std::vector<std::string>> rows_;
};

// fieldList prints "name:  value" lines with the values in one column; a value of several lines continues below itself.
std::string fieldList(const std::vector<std::pair<std::string, std::string>>& fields);

}  // namespace orvane::tool

#endif
