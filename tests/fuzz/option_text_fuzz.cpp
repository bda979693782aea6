// OpenVPN's configuration text: the editor and the readers of its options, beside plain ones made of streams.

#include "openvpn/option_text.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <sstream>
#include <string>
#include <vector>

#include "openvpn/configuration.h"
#include "tests/fuzz/harness/require.h"
#include "tests/fuzz/harness/router.h"

namespace {

constexpr std::array<const char*, 5> kOptions{"dev", "verb", "<ca>", "ifconfig", "client-config-dir"};

std::vector<std::string> wordsOf(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::string joined(const std::vector<std::string>& words, std::size_t first) {
  std::string text;
  for (std::size_t i = first; i < words.size(); ++i) text += (i > first ? " " : "") + words[i];
  return text;
}

bool isOf(const std::string& line, const std::string& option) {
  const std::vector<std::string> words = wordsOf(line);
  return !words.empty() && words.front() == option;
}

bool plainlyGet(const std::string& text, const std::string& option, std::string& value) {
  value.clear();
  for (const std::string& line : linesOf(text)) {
    if (!isOf(line, option)) continue;
    value = joined(wordsOf(line), 1);
    return true;
  }
  return false;
}

std::string plainlySet(const std::string& text, const std::string& option, const std::string& value) {
  std::string result;
  bool found = false;
  for (const std::string& line : linesOf(text)) {
    if (isOf(line, option)) {
      found = true;
      result += line.substr(0, line.find_first_not_of(" \t")) + option + " " + value + "\n";
    } else {
      result += line + "\n";
    }
  }
  return found ? result : result + option + " " + value + "\n";
}

void requireReader(const std::string& text, const std::string& option) {
  std::string value = "before";
  std::string plainValue;
  require(getConfigOption(text, option, value) == plainlyGet(text, option, plainValue), "an option is found");
  require(value == plainValue, "an option has its arguments, joined by blanks");
}

void requireEditor(const std::string& text, const std::string& option, const std::string& value) {
  std::string edited = text;
  setConfigOption(edited, option, value);
  require(edited == plainlySet(text, option, value), "the lines of an option are rewritten and no others");
  std::string twice = edited;
  setConfigOption(twice, option, value);
  if (value.find('\n') == std::string::npos) {
    require(twice == edited, "the same edit changes nothing more");
    std::string found;
    require(getConfigOption(edited, option, found) && found == joined(wordsOf(value), 0), "what was set is found");
  }
}

void requirePingAddress(const std::string& arguments) {
  const std::vector<std::string> words = wordsOf(arguments);
  const std::string expected = words.empty() ? "" : words[words.size() > 1 ? 1 : 0];
  require(pingAddressOf(arguments) == expected, "the far end is the second word, or the only one");
}

void requireVerb(unsigned int logLevel) {
  const unsigned int higher = logLevel + 1 == 0 ? logLevel : logLevel + 1;
  require(logLevelToVerb(logLevel) <= logLevelToVerb(higher), "a higher log level makes openvpn say more");
  require(std::string("23467").find(logLevelToVerb(logLevel)) != std::string::npos, "a verb is one of five");
}

void requireDevice(const std::string& device, const std::string& name) {
  const std::string whole = device + name;
  const std::string cut = interfaceName(device, name);
  require(cut.size() <= 15 && whole.compare(0, cut.size(), cut) == 0, "a device's name is cut at its end");
  require(cut.size() == 15 || cut == whole, "a device's name is cut only when it is too long");
}

void requireFile(const std::string& name, const std::string& text, const std::string& verb) {
  const OvpnFile file = composeOvpnFile(name, text, verb);
  std::string value;
  require(file.conf.pingCheck == !plainlyGet(text, "<ca>", value), "a tunnel without certificates is pinged");
  plainlyGet(text, "client-config-dir", value);
  require(file.conf.clientConfigDir == value, "the clients' folder is the option's");
  require(plainlyGet(file.text, "verb", value) && value == verb, "the file has the verb");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  router = {};
  FuzzedDataProvider source(data, size);
  const std::string option = kOptions[source.ConsumeIntegralInRange<std::size_t>(0, kOptions.size() - 1)];
  const unsigned int logLevel = source.ConsumeIntegral<unsigned int>();
  const std::string value = source.ConsumeRandomLengthString(40);
  const std::string text = source.ConsumeRemainingBytesAsString();
  requireReader(text, option);
  requireEditor(text, option, value);
  requirePingAddress(value);
  requireVerb(logLevel);
  requireDevice(option, value);
  requireFile(value, text, logLevelToVerb(logLevel));
  return 0;
}
