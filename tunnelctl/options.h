// The words behind a command.
#pragma once

#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// An option of a command, "--" in front left out.
struct OptionKind {
  const char* name;
  bool hasValue;
};

/// A command's words, sorted into options and operands. A value follows its option as the next word or behind "=";
/// behind a "--" everything is an operand, and so is a "-".
class Options {
 public:
  /// Throws a Complaint for an unknown option, a missing or superfluous value, and more operands than `mostOperands`.
  Options(const std::vector<std::string>& words, std::initializer_list<OptionKind> kinds, std::size_t mostOperands);

  bool has(const std::string& name) const { return values_.count(name) > 0; }
  /// Of an option that was given several times the last value; nothing when it was not given.
  std::optional<std::string> value(const std::string& name) const;
  /// The same for a whole number from `least` to `most`; throws a Complaint for any other text.
  std::optional<int> number(const std::string& name, int least, int most) const;
  const std::vector<std::string>& operands() const { return operands_; }

 private:
  void sort(const std::vector<std::string>& words, std::initializer_list<OptionKind> kinds);
  void take(const std::string& text, std::initializer_list<OptionKind> kinds, const std::string* next, bool& usedNext);

  std::map<std::string, std::string> values_;
  std::vector<std::string> operands_;
};
