// What a program does at a card that comes and goes.
#ifndef ORVANE_TESTS_VISITS_VISIT_H
#define ORVANE_TESTS_VISITS_VISIT_H

#include <fstream>
#include <string>

namespace orvane::test {

// Who is at the card, and what it needs to be.
struct Visitor {
  std::string driver;  // full path of the minidriver, UTF-8
  std::string pin;     // the user PIN
  int visits = 0;      // of the card, until the visitor ends
};

// attend takes as many visits of the card in the first reader as the visitor wants, each from the card's coming to its
// leaving, as the system's base provider does: connects, acquires a context, lists and reads files, has the PIN
// checked, signs, and keeps the context until the card has gone. Of each it says on `said`, a line at a time and at
// once:
//
//   N present                    the card has come; visits are counted from 1
//   N signed HEX                 the signature of 32 bytes of 5A, most significant byte first
//   N failed WHAT                instead, when a call failed, with its name and its status in brackets
//   N gone HEAP HANDLES THREADS  the context is deleted and the card has gone; what this process holds then
//
// Throws ToolError when the service itself fails, or when nothing happens for two minutes.
void attend(const Visitor& visitor, std::ofstream& said);

// exclusive waits for a card and connects to it exclusively, which the service grants to nobody as long as anybody has
// a connection left; gives the status.
long exclusive();

}  // namespace orvane::test

#endif  // ORVANE_TESTS_VISITS_VISIT_H
