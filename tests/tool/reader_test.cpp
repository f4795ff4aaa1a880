#include "card/reader.h"

#include <gtest/gtest.h>

#include "tool_error.h"

namespace orvane::tool {
namespace {

Bytes orvane() {
  const ByteView atr = orvaneAtr();
  return {atr.begin(), atr.end()};
}

Reader reader(const char* name, bool cardPresent, Bytes atr) {
  return {name, cardPresent, false, false, std::move(atr)};
}

TEST(ToolReader, TheOneWithATokenIsChosen) {
  const std::vector<Reader> readers = {reader("empty", false, {}), reader("bank", true, {0x3B, 0x00}),
                                       reader("token", true, orvane())};
  const auto chosen = [](const std::vector<Reader>& list, const std::optional<std::string>& wanted) {
    const Reader* choice = chooseReader(list, wanted);
    return choice ? choice->name : "none";
  };
  EXPECT_EQ(chosen(readers, std::nullopt), "token");
  EXPECT_EQ(chosen({readers[0], readers[1]}, std::nullopt), "bank");
  EXPECT_EQ(chosen({readers[0]}, std::nullopt), "empty");
  EXPECT_EQ(chosen({}, std::nullopt), "none");
  EXPECT_EQ(chosen(readers, "empty"), "empty");
  // A part of a name in any letter case, if only one reader has it.
  EXPECT_EQ(chosen(readers, "Empty"), "empty");
  EXPECT_EQ(chosen(readers, "ank"), "bank");
  EXPECT_EQ(chosen(readers, "k"), "none");
  EXPECT_EQ(chosen(readers, "bank 1"), "none");
  EXPECT_EQ(chosen(readers, ""), "none");
  // The whole name is nobody else's part.
  EXPECT_EQ(chosen({reader("bank 2", true, {0x3B}), readers[1]}, "bank"), "bank");
  EXPECT_EQ(chosen({reader("bank 2", true, {0x3B}), readers[1]}, "Bank"), "bank");
  // What is left of a card that has gone is no card.
  EXPECT_EQ(chosen({reader("gone", false, orvane()), readers[1]}, std::nullopt), "bank");
}

TEST(ToolReader, CommandsWantACardInIt) {
  struct Case {
    const char* what;
    std::vector<Reader> readers;
    std::optional<std::string> wanted;
    const char* outcome;  // the reader's name, or the error's text
  };
  const Reader empty = reader("empty", false, {});
  const Reader badge = reader("badge", true, {0x3B, 0x00});
  const Reader token = reader("token", true, orvane());
  const Case cases[] = {
      {"a badge comes first", {badge, empty, token}, std::nullopt, "token"},
      {"the badge is wanted", {badge, empty, token}, "badge", "badge"},
      {"only a badge", {empty, badge}, std::nullopt, "badge"},
      {"no reader", {}, std::nullopt, "no smart-card reader is connected"},
      {"no reader, one wanted", {}, "token", "no smart-card reader is connected"},
      {"no card", {empty, empty}, std::nullopt, "no reader holds a card"},
      {"no card where it is wanted", {empty, token}, "empty", "there is no card in the reader \"empty\""},
      {"another reader is wanted", {empty, token}, "other", "there is no reader \"other\""},
      {"a part of one name", {badge, token}, "TOK", "token"},
      {"a part of two names", {badge, token}, "e", "\"e\" is a part of several readers' names: \"badge\", \"token\""},
  };
  for (const Case& row : cases) {
    std::string outcome;
    try {
      outcome = readerWithCard(row.readers, row.wanted).name;
    } catch (const ToolError& error) {
      EXPECT_EQ(error.exitCode(), ExitCode::kNoCard) << row.what;
      EXPECT_FALSE(error.advice().empty()) << row.what;
      outcome = error.what();
    }
    EXPECT_EQ(outcome, row.outcome) << row.what;
  }
}

TEST(ToolReader, ACardOfAnotherKindIsNoneOfOurs) {
  const auto outcome = [](const Reader& each, bool driverNamed) {
    try {
      requireOrvane(each, driverNamed);
    } catch (const ToolError& error) {
      EXPECT_EQ(error.exitCode(), ExitCode::kNoCard);
      EXPECT_EQ(error.advice().find("nstall"), std::string::npos) << error.advice();
      EXPECT_FALSE(error.advice().empty());
      return std::string(error.what());
    }
    return std::string("fits");
  };
  const Reader bank = reader("bank", true, {0x3B, 0x01});
  Reader mute = reader("mute", true, {});
  mute.mute = true;
  EXPECT_EQ(outcome(reader("token", true, orvane()), false), "fits");
  EXPECT_EQ(outcome(bank, false),
            "the card in the reader \"bank\" is no Orvane token but a card of another kind (ATR 3B 01)");
  EXPECT_EQ(outcome(bank, true), "fits");
  EXPECT_EQ(outcome(mute, false), "the card in the reader \"mute\" does not answer");
  EXPECT_EQ(outcome(mute, true), "the card in the reader \"mute\" does not answer");
}

}  // namespace
}  // namespace orvane::tool
