#include "tunnelctl/documents.h"

#include <json/reader.h>

#include <cstring>
#include <vector>

#include "api/query.h"
#include "api/wan_list.h"
#include "configuration/configuration_pull.h"
#include "openvpn/configuration.h"
#include "support/system.h"
#include "support/text.h"
#include "tunnelctl/complaint.h"

namespace {

constexpr const char* kStandardInput = "/dev/stdin";

/// A request of the program's and the members of its result; none for one whose result is the WAN list itself.
struct Request {
  std::string url;
  std::vector<const char*> members;
};

std::vector<Request> requests() {
  return {{wanInfoUrl, {}},
          {configUrl, {"greTunnels", "ipsecTunnels", "ni"}},
          {ovpnTunnelsUrl, {"ovpnTunnels"}},
          {syslogUrl, {"syslog"}}};
}

/// The reader's first complaint, "* Line 1, Column 2\n  Text.\n...", in one line.
std::string firstComplaint(const std::string& complaints) {
  std::string text;
  for (const std::string& word : ZEL::Text::words(complaints.substr(0, complaints.find("\n*"))))
    text += (text.empty() || word == "*" ? "" : " ") + (word == "*" ? "" : word);
  while (!text.empty() && (text.back() == '.' || text.back() == ' ')) text.pop_back();
  return text;
}

Json::Value parsed(const std::string& text, const std::string& name) {
  Json::Value root;
  Json::Reader reader(Json::Features::strictMode());
  try {
    if (!reader.parse(text, root, false))
      throw Complaint(
          ZEL::Text::joined({name, " is no JSON document: ", firstComplaint(reader.getFormattedErrorMessages())}));
  } catch (const Json::Exception&) {
    throw Complaint(name + " is nested deeper than 1000 levels");
  }
  if (!root.isObject()) throw Complaint(name + " holds no JSON object");
  return root;
}

}  // namespace

Json::Value readDocuments(const std::string& path) {
  const std::string name = path == "-" ? "standard input" : path;
  std::string text;
  if (const int error = ZEL::System::readFile(path == "-" ? kStandardInput : path, text); error != 0)
    throw Complaint(ZEL::Text::joined({"cannot read ", name, ": ", strerror(error)}));
  return parsed(text, name);
}

Json::Value fetchDocuments() {
  Json::Value documents(Json::objectValue);
  for (const Request& request : requests()) {
    Json::Value result;
    const std::string path = request.url.substr(strlen(API_HOST));
    if (!queryApiQuiet(request.url.c_str(), result)) throw Complaint("the configuration API does not answer " + path);
    // A run treats no result as an object without members, and throws at anything else that is none.
    if (!request.members.empty() && !result.isObject() && !result.isNull())
      throw Complaint("the configuration API answers " + path + " with a result that is no object");
    if (request.members.empty()) documents["wans"] = result;
    for (const char* member : request.members) {
      if (result.isObject()) documents[member] = result[member];
    }
  }
  return documents;
}
