#include "openvpn/option_text.h"

#include <net/if.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace {

/// What isspace(3) takes for white space in the C locale, and so what separates the words that a stream extracts.
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
constexpr std::string_view kIndentation = " \t";

/// What fits into a device's name beside its terminator.
constexpr std::size_t kInterfaceNameBytes = IFNAMSIZ - 1;

struct VerbStep {
  unsigned int highestLogLevel;
  const char* verb;
};

constexpr std::array<VerbStep, 4> kVerbSteps{{{9, "2"}, {19, "3"}, {29, "4"}, {49, "6"}}};
constexpr const char* kHighestVerb = "7";

/// Cuts the first line, and its line feed, off the text.
std::string_view takeLine(std::string_view& text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  text.remove_prefix(std::min(line.size() + 1, text.size()));
  return line;
}

/// Cuts the first word, and what white space stands before it, off the text; "" when there is no word left.
std::string_view takeWord(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(kWhiteSpace), text.size()));
  const std::string_view word = text.substr(0, text.find_first_of(kWhiteSpace));
  text.remove_prefix(word.size());
  return word;
}

std::string joinWords(std::string_view text) {
  std::string joined;
  for (std::string_view word; !(word = takeWord(text)).empty();) {
    if (!joined.empty()) joined += ' ';
    joined += word;
  }
  return joined;
}

bool hasOption(std::string_view line, std::string_view option) {
  return takeWord(line) == option;
}

}  // namespace

bool getConfigOption(const std::string& text, const std::string& option, std::string& value) {
  value.clear();
  for (std::string_view rest = text; !rest.empty();) {
    std::string_view line = takeLine(rest);
    if (takeWord(line) != option) continue;
    value = joinWords(line);
    return true;
  }
  return false;
}

void setConfigOption(std::string& text, const std::string& option, const std::string& value) {
  const std::string setting = option + " " + value;
  std::string result;
  bool found = false;
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view line = takeLine(rest);
    if (hasOption(line, option)) {
      found = true;
      result.append(line.substr(0, line.find_first_not_of(kIndentation))).append(setting);
    } else {
      result.append(line);
    }
    result += '\n';
  }
  if (!found) result.append(setting) += '\n';
  text.swap(result);
}

std::string logLevelToVerb(unsigned int logLevel) {
  for (const VerbStep& step : kVerbSteps) {
    if (logLevel <= step.highestLogLevel) return step.verb;
  }
  return kHighestVerb;
}

std::string pingAddressOf(const std::string& ifconfigArguments) {
  std::string_view rest = ifconfigArguments;
  const std::string_view first = takeWord(rest);
  const std::string_view second = takeWord(rest);
  return std::string(second.empty() ? first : second);
}

std::string interfaceName(const std::string& device, const std::string& tunnelName) {
  return (device + tunnelName).substr(0, kInterfaceNameBytes);
}
