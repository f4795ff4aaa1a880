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
  // `headers` names the columns; those whose name begins with '>' are right-aligned (the mark is not printed).
  explicit TextTable(std::vector<std::string> headers);

  // addRow takes one text a column; missing ones are empty.
  void addRow(std::vector<std::string> cells);

  // text gives the lines, each ended by a newline and without blanks at its end.
  std::string text() const;

 private:
  std::vector<std::string> headers_;
  std::vector<bool> rightAligned_;
  std::vector<std::vector<std::string>> rows_;
};

// fieldList prints "name:  value" lines with the values in one column; a value of several lines continues below itself.
std::string fieldList(const std::vector<std::pair<std::string, std::string>>& fields);

}  // namespace orvane::tool

#endif
