#include "tests/unit/harness/act_text.h"

#include <map>
#include <sstream>

namespace {

using Kind = Act::Kind;

/// The children of a list of acts.
class Children {
 public:
  explicit Children(const std::vector<Act>& acts) {
    for (const Act& act : acts) {
      if (act.kind == Kind::kStart) numbers_.emplace(act.number, numbers_.size() + 1);
    }
  }

  std::string nameOf(pid_t process) const {
    const auto child = numbers_.find(process);
    return child == numbers_.end() ? std::to_string(process) : "child " + std::to_string(child->second);
  }

 private:
  std::map<pid_t, std::size_t> numbers_;
};

std::string words(const std::vector<std::string>& arguments) {
  std::string text;
  for (const std::string& argument : arguments) text += " " + argument;
  return text;
}

std::string octal(int mode) {
  std::ostringstream text;
  text << std::oct << mode;
  return text.str();
}

std::string textOf(const Act& act, const Children& children) {
  switch (act.kind) {
    case Kind::kRun:
      return "run " + act.subject;
    case Kind::kAsk:
      return "ask " + act.subject;
    case Kind::kWrite:
      return "write " + act.subject;
    case Kind::kAppend:
      return "append " + act.subject;
    case Kind::kSetMode:
      return "mode " + octal(act.number) + " " + act.subject;
    case Kind::kRemove:
      return "remove " + act.subject;
    case Kind::kMakeSemaphore:
      return "make semaphore " + act.subject;
    case Kind::kDropSemaphore:
      return "drop semaphore " + act.subject;
    case Kind::kStart:
      return "start " + children.nameOf(act.number);
    case Kind::kBecome:
      return "become" + words(act.arguments);
    case Kind::kFollowParent:
      return "follow the parent";
    case Kind::kSignal:
      return "signal " + std::to_string(act.signal) + " to " + children.nameOf(act.number);
    case Kind::kPause:
      return "pause " + std::to_string(act.number);
    case Kind::kDetach:
      return "detach";
  }
  return "";
}

}  // namespace

std::vector<std::string> textsOf(const std::vector<Act>& acts) {
  const Children children(acts);
  std::vector<std::string> texts;
  for (const Act& act : acts) {
    const std::string actor = act.actor == 0 ? "" : children.nameOf(act.actor) + ": ";
    texts.push_back(actor + textOf(act, children));
  }
  return texts;
}
