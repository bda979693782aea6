// What a fuzzer demands of the program beyond that it survives.
#pragma once

#include <json/value.h>

/// Ends the process, and so makes the input a finding, unless the condition holds; `what` says what should have.
void require(bool holds, const char* what);

/// True when the step came to its end; false when it threw what a document of a wrong type may make it throw. Any other
/// exception is a finding.
template <class Step>
bool endsUnlessOfWrongType(Step step) {
  try {
    step();
    return true;
  } catch (const Json::LogicError&) {
    return false;
  }
}
