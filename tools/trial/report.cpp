#include "report.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string_view>

namespace orvane::trial {
namespace {

constexpr std::size_t kShownLines = 12;  // of one result's detail; the rest is in the JUnit file
constexpr std::size_t kTitleWidth = 52;

std::string decimal(double value, int digits) {
  char text[64];
  std::snprintf(text, sizeof(text), "%.*f", digits, value);
  return text;
}

std::string padded(std::string text, std::size_t width) {
  if (text.size() < width) text.append(width - text.size(), ' ');
  return text;
}

std::string rightAligned(std::size_t number) {
  const std::string text = std::to_string(number);
  return std::string(text.size() < 8 ? 8 - text.size() : 0, ' ') + text;
}

// The subjects in the order in which they came first.
std::vector<std::string> subjectsOf(const std::vector<Result>& results) {
  std::vector<std::string> subjects;
  for (const Result& result : results) {
    if (std::find(subjects.begin(), subjects.end(), result.subject) == subjects.end())
      subjects.push_back(result.subject);
  }
  return subjects;
}

std::vector<Result> ofSubject(const std::vector<Result>& results, const std::string& subject) {
  std::vector<Result> some;
  std::copy_if(results.begin(), results.end(), std::back_inserter(some),
               [&](const Result& result) { return result.subject == subject; });
  return some;
}

// The first lines of a detail, moved to the right.
std::string shownDetail(const std::string& detail) {
  std::string shown;
  std::size_t begin = 0;
  for (std::size_t lines = 0; begin < detail.size(); ++lines) {
    if (lines == kShownLines) return shown + "      ... (all of it: junit.xml)\n";
    const std::size_t end = std::min(detail.find('\n', begin), detail.size());
    shown += "      " + detail.substr(begin, end - begin) + "\n";
    begin = end + 1;
  }
  return shown;
}

std::string listOf(const char* title, const std::vector<Result>& results, State state) {
  if (countOf(results, state) == 0) return "";
  std::string list = std::string("\n") + title + "\n";
  for (const Result& result : results) {
    if (result.state == state) list += "  - " + result.suite + "." + result.name + "\n" + shownDetail(result.detail);
  }
  return list;
}

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      case '\n':
        result += "&#10;";
        break;
      case '\t':
        result += "&#9;";
        break;
      default:
        result.push_back(static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) > 0x7E ? '?' : c);
    }
  }
  return result;
}

}  // namespace

std::size_t countOf(const std::vector<Result>& results, State state) {
  return static_cast<std::size_t>(
      std::count_if(results.begin(), results.end(), [state](const Result& result) { return result.state == state; }));
}

std::string summaryText(const Head& head, const std::vector<Result>& results) {
  const std::size_t failed = countOf(results, State::kFailed);
  const std::size_t notTried = countOf(results, State::kNotTried);
  std::string text = "Trial of the Orvane minidriver " + head.version + "\n" + head.begun + ", " +
                     decimal(head.seconds, 0) + " seconds\n\n" +
                     (failed == 0 ? "NOTHING FAILED: " : "SOMETHING FAILED: ") +
                     std::to_string(countOf(results, State::kPassed)) + " passed, " + std::to_string(failed) +
                     " failed, " + std::to_string(notTried) + " could not be tried\n\nThis machine\n";
  for (const auto& [name, value] : head.machine) text += "  " + padded(name, 30) + value + "\n";
  text += "\n" + padded("What", kTitleWidth) + "  passed  failed  not tried\n";
  for (const std::string& subject : subjectsOf(results)) {
    const std::vector<Result> some = ofSubject(results, subject);
    text += "  " + padded(subject, kTitleWidth - 2) + rightAligned(countOf(some, State::kPassed)) +
            rightAligned(countOf(some, State::kFailed)) + "   " + rightAligned(countOf(some, State::kNotTried)) + "\n";
  }
  text += listOf("Failed", results, State::kFailed);
  text += listOf("Could not be tried", results, State::kNotTried);
  return text +
         "\nIn this folder: junit.xml has every single result, facts\\ what was collected about the machine.\n"
         "Please send the whole folder to the people who gave you this kit, also when nothing failed.\n";
}

std::string junitText(const std::vector<Result>& results) {
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n";
  for (const std::string& subject : subjectsOf(results)) {
    const std::vector<Result> some = ofSubject(results, subject);
    text += "<testsuite name=\"" + escaped(subject) + "\" tests=\"" + std::to_string(some.size()) + "\" failures=\"" +
            std::to_string(countOf(some, State::kFailed)) + "\" skipped=\"" +
            std::to_string(countOf(some, State::kNotTried)) + "\">\n";
    for (const Result& result : some) {
      text += "<testcase classname=\"" + escaped(result.suite) + "\" name=\"" + escaped(result.name) + "\" time=\"" +
              decimal(result.seconds, 3) + "\"";
      const char* const kind = result.state == State::kFailed ? "failure" : "skipped";
      text += result.state == State::kPassed
                  ? "/>\n"
                  : "><" + std::string(kind) + " message=\"" + escaped(result.detail) + "\"/></testcase>\n";
    }
    text += "</testsuite>\n";
  }
  return text + "</testsuites>\n";
}

}  // namespace orvane::trial
