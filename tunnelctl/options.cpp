#include "tunnelctl/options.h"

#include "support/text.h"
#include "tunnelctl/complaint.h"
#include "tunnelctl/nearest_word.h"

namespace {

const OptionKind& kindOf(const std::string& name, std::initializer_list<OptionKind> kinds) {
  std::vector<std::string_view> known;
  for (const OptionKind& kind : kinds) {
    if (kind.name == name) return kind;
    known.emplace_back(kind.name);
  }
  const std::string_view near = nearestWord(name, known);
  const std::string question = near.empty() ? "" : ZEL::Text::joined({", did you mean --", near, "?"});
  throw Complaint(ZEL::Text::joined({"unknown option --", name, question}));
}

}  // namespace

Options::Options(const std::vector<std::string>& words, std::initializer_list<OptionKind> kinds,
                 std::size_t mostOperands) {
  sort(words, kinds);
  if (operands_.size() > mostOperands) throw Complaint("too many words: " + operands_[mostOperands]);
}

void Options::sort(const std::vector<std::string>& words, std::initializer_list<OptionKind> kinds) {
  bool onlyOperands = false;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (word == "--" && !onlyOperands) {
      onlyOperands = true;
    } else if (onlyOperands || word.size() < 2 || word[0] != '-') {
      operands_.push_back(word);
    } else {
      bool usedNext = false;
      take(word, kinds, i + 1 < words.size() ? &words[i + 1] : nullptr, usedNext);
      if (usedNext) ++i;
    }
  }
}

void Options::take(const std::string& text, std::initializer_list<OptionKind> kinds, const std::string* next,
                   bool& usedNext) {
  if (text.compare(0, 2, "--") != 0) throw Complaint("unknown option " + text);
  const std::size_t equals = text.find('=');
  const std::string name = text.substr(2, equals == std::string::npos ? equals : equals - 2);
  const OptionKind& kind = kindOf(name, kinds);
  if (!kind.hasValue && equals != std::string::npos)
    throw Complaint(ZEL::Text::joined({"--", name, " takes no value"}));
  if (!kind.hasValue) {
    values_[name] = "";
  } else if (equals != std::string::npos) {
    values_[name] = text.substr(equals + 1);
  } else if (next != nullptr) {
    values_[name] = *next;
    usedNext = true;
  } else {
    throw Complaint(ZEL::Text::joined({"--", name, " needs a value"}));
  }
}

std::optional<std::string> Options::value(const std::string& name) const {
  const auto found = values_.find(name);
  return found == values_.end() ? std::nullopt : std::optional<std::string>(found->second);
}

std::optional<int> Options::number(const std::string& name, int least, int most) const {
  const std::optional<std::string> text = value(name);
  if (!text) return std::nullopt;
  int number = 0;
  if (!ZEL::Text::parse(number, *text) || number < least || number > most)
    throw Complaint(
        ZEL::Text::joined({"--", name, " takes a number from ", std::to_string(least), " to ", std::to_string(most)}));
  return number;
}
