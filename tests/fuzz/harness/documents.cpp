#include "tests/fuzz/harness/documents.h"

#include <fuzzer/FuzzedDataProvider.h>
#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>

#include <string>
#include <vector>

#include "tests/fuzz/harness/router.h"

namespace {

constexpr const char* kWansUrl = "http://localhost/api/waninfo/wans";
constexpr const char* kTunnelsUrl = "http://localhost/api?fields=greTunnels,ipsecTunnels,ni";
constexpr const char* kOvpnUrl = "http://localhost/api?fields=ovpnTunnels";
constexpr const char* kSyslogUrl = "http://localhost/api?fields=syslog";

constexpr std::size_t kLongestText = 80;
constexpr int kMostElements = 4;

constexpr const char* kWanAddress = "198.51.100.2";

using Texts = std::vector<std::string>;
using Source = FuzzedDataProvider;

/// A member of a record: a flag or a number where it has no usual texts, or else a text, now and then another one.
struct Member {
  enum class Kind { kFlag, kNumber, kText, kTextOrNumber };
  const char* name;
  Kind kind;
  Texts usual;
};

using Kind = Member::Kind;
using Record = std::vector<Member>;

const Texts kNames{"a", "b", "My Tunnel 1", "gre0", "averyveryverylongname", ""};
const Texts kHosts{"203.0.113.7", "a.example.net", "b.example.net", "Any", ""};
const Texts kAddresses{"192.168.2.1", "10.8.0.1", "0.0.0.0", "Any", "256.1.1.1", ""};
const Texts kMasks{"255.255.255.0", "255.0.255.1", "24", "0.0.0.0", ""};
const Texts kProposals{"",    "aes256", "aes128-sha1", "3des-sha2;dh22", "aes256;modp2048", "aes256-sha1-modp1024",
                       "dh24"};

const Record kWan{{"current", Kind::kFlag, {}}, {"ip", Kind::kText, {kWanAddress, "203.0.113.40", ""}}};

const Record kRoute{{"ip", Kind::kText, kAddresses}, {"mask", Kind::kTextOrNumber, kMasks}};

const Record kGreTunnel{{"name", Kind::kText, kNames},         {"enabled", Kind::kFlag, {}},
                        {"remoteIp", Kind::kText, kHosts},     {"checkPeriod", Kind::kNumber, {}},
                        {"tunnelIp", Kind::kText, kAddresses}, {"tunnelMask", Kind::kText, kMasks},
                        {"ttl", Kind::kTextOrNumber, {"255"}}};

const Record kIpsecTunnel{{"name", Kind::kText, kNames},
                          {"enabled", Kind::kFlag, {}},
                          {"remoteWanIp", Kind::kText, kHosts},
                          {"checkPeriod", Kind::kNumber, {}},
                          {"authMethod", Kind::kText, {"rsasig", "secret"}},
                          {"type", Kind::kText, {"IKE", "IKEv2"}},
                          {"remoteNetworkIp", Kind::kText, kAddresses},
                          {"remoteNetworkMask", Kind::kTextOrNumber, {"24", ""}},
                          {"phase1", Kind::kText, kProposals},
                          {"phase2", Kind::kText, kProposals},
                          {"encryptMethod", Kind::kText, {"3des", "aes128", "aes192", "aes256", "des", ""}},
                          {"ikelife", Kind::kNumber, {}},
                          {"keylife", Kind::kNumber, {}},
                          {"retries", Kind::kNumber, {}},
                          {"compression", Kind::kFlag, {}},
                          {"aggressiveMode", Kind::kFlag, {}},
                          {"uid", Kind::kFlag, {}},
                          {"localId", Kind::kText, {"", "me"}},
                          {"remoteId", Kind::kText, {"", "peer"}},
                          {"psk", Kind::kText, {kSecret + "shared"}},
                          {"caCert", Kind::kText, {"CA"}},
                          {"localCert", Kind::kText, {"CERT"}},
                          {"localPrivKey", Kind::kText, {kSecret + "private"}}};

const Record kInterface{{"type", Kind::kText, {"LAN", "WAN"}},
                        {"available", Kind::kFlag, {}},
                        {"nitype", Kind::kText, {"ETHERNET", "BRIDGE"}},
                        {"bridge", Kind::kText, {"--", "br0", "br1"}}};

const Record kIpv4{{"ip", Kind::kText, kAddresses}, {"mask", Kind::kText, kMasks}};

const Record kOvpnTunnel{{"name", Kind::kText, kNames},
                         {"enabled", Kind::kFlag, {}},
                         {"config",
                          Kind::kText,
                          {kSecret + "inline\ndev tun\nifconfig 10.8.0.1 10.8.0.2\n",
                           " \tverb 4\r\n<ca>\nX\n</ca>\nclient-config-dir /var/run/x", ""}}};

const Record kSyslog{{"logLevel", Kind::kNumber, {}}};

/// One in so many.
bool drawOnce(Source& source, int in) {
  return source.ConsumeIntegralInRange(1, in) == in;
}

std::string drawText(Source& source, const Texts& usual) {
  if (usual.empty() || drawOnce(source, 4)) return source.ConsumeRandomLengthString(kLongestText);
  return usual[source.ConsumeIntegralInRange<std::size_t>(0, usual.size() - 1)];
}

/// A value of any type.
Json::Value drawAny(Source& source) {
  switch (source.ConsumeIntegralInRange(0, 8)) {
    case 0:
      return source.ConsumeBool();
    case 1:
      return source.ConsumeIntegral<Json::Int64>();
    case 2:
      return source.ConsumeIntegral<Json::UInt64>();
    case 3:
      return source.ConsumeFloatingPointInRange<double>(-1e10, 1e10);
    case 4:
      return source.ConsumeRandomLengthString(kLongestText);
    case 5:
      return Json::Value(Json::arrayValue);
    case 6: {
      Json::Value array(Json::arrayValue);
      array.append(drawAny(source));
      return array;
    }
    case 7: {
      Json::Value object(Json::objectValue);
      object[source.ConsumeRandomLengthString(kLongestText)] = drawAny(source);
      return object;
    }
    default:
      return Json::Value::null;
  }
}

Json::Value drawNumber(Source& source) {
  return drawOnce(source, 4) ? source.ConsumeIntegral<unsigned int>() : source.ConsumeIntegralInRange(0U, 255U);
}

Json::Value drawUsual(Source& source, const Member& member) {
  switch (member.kind) {
    case Kind::kFlag:
      return !drawOnce(source, 4);
    case Kind::kNumber:
      return drawNumber(source);
    case Kind::kTextOrNumber:
      if (source.ConsumeBool()) return drawNumber(source);
      [[fallthrough]];
    case Kind::kText:
      return drawText(source, member.usual);
  }
  return {};
}

Json::Value drawRecord(Source& source, const Record& members) {
  if (drawOnce(source, 50)) return drawAny(source);
  Json::Value record(Json::objectValue);
  for (const Member& member : members) {
    if (drawOnce(source, 20)) continue;
    record[member.name] = drawOnce(source, 100) ? drawAny(source) : drawUsual(source, member);
  }
  return record;
}

/// An array of what `drawElement` draws.
template <class DrawElement>
Json::Value drawArray(Source& source, DrawElement drawElement) {
  if (drawOnce(source, 50)) return drawAny(source);
  Json::Value array(Json::arrayValue);
  for (int left = source.ConsumeIntegralInRange(0, kMostElements); left > 0; --left) array.append(drawElement());
  return array;
}

/// A record with one more member, which is drawn already. What is no record stays as it is.
Json::Value with(Json::Value record, const char* name, Json::Value value) {
  if (record.isObject()) record[name] = std::move(value);
  return record;
}

Json::Value drawRecords(Source& source, const Record& members) {
  return drawArray(source, [&] { return drawRecord(source, members); });
}

Json::Value drawGreTunnels(Source& source) {
  return drawArray(source, [&] { return with(drawRecord(source, kGreTunnel), "routes", drawRecords(source, kRoute)); });
}

Json::Value drawInterfaces(Source& source) {
  return drawArray(source, [&] { return with(drawRecord(source, kInterface), "ipv4", drawRecord(source, kIpv4)); });
}

Json::Value usualWans() {
  Json::Value wan;
  wan["current"] = true;
  wan["ip"] = kWanAddress;
  Json::Value wans;
  wans.append(wan);
  return wans;
}

/// Two networks, so that a tunnel has more than one section.
Json::Value usualInterfaces() {
  Json::Value interfaces;
  for (const char* address : {"192.168.1.1", "192.168.2.1"}) {
    Json::Value interface;
    interface["type"] = "LAN";
    interface["available"] = true;
    interface["bridge"] = "--";
    interface["ipv4"]["ip"] = address;
    interface["ipv4"]["mask"] = "255.255.255.0";
    interfaces.append(interface);
  }
  return interfaces;
}

/// Text that the reader turns into the very same value, bytes that are no UTF-8 included.
std::string textOf(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, value);
}

/// Has the API answer one URL with a result's text.
void serve(const char* url, const std::string& result) {
  router.answers[url] = R"({"code":200,"result":)" + result + "}";
}

/// The member "wans" of a document's text; of a text that is no document, the text.
std::string wansOf(const std::string& document) {
  try {
    Json::Value root;
    if (!Json::Reader(Json::Features::strictMode()).parse(document, root) || !root.isObject()) return document;
    return textOf(root["wans"]);
  } catch (const Json::Exception&) {
    return document;
  }
}

void drawObstacles(Source& source) {
  if (!drawOnce(source, 8)) return;
  const Texts urls{kWansUrl, kTunnelsUrl, kOvpnUrl, kSyslogUrl};
  if (drawOnce(source, 8)) router.answers.erase(drawText(source, urls));
  if (drawOnce(source, 8)) router.listing.status = source.ConsumeIntegralInRange(-1, 255);
  if (source.ConsumeBool())
    router.unwritable = drawText(source, {"/ipsec.conf", "/ipsec.secrets", "/certs/", "openvpn_"});
  router.fullDisk = source.ConsumeBool();
}

void drawDocuments(Source& source, const Drawn& drawn) {
  Json::Value tunnels;
  tunnels["ni"]["nis"] = drawn.interfaces ? drawInterfaces(source) : usualInterfaces();
  if (drawn.greTunnels) tunnels["greTunnels"] = drawGreTunnels(source);
  if (drawn.ipsecTunnels) tunnels["ipsecTunnels"] = drawRecords(source, kIpsecTunnel);
  Json::Value ovpn;
  if (drawn.ovpnTunnels) ovpn["ovpnTunnels"] = drawRecords(source, kOvpnTunnel);
  Json::Value syslog;
  if (drawn.ovpnTunnels) syslog["syslog"] = drawRecord(source, kSyslog);
  serve(kWansUrl, textOf(drawn.wans ? drawRecords(source, kWan) : usualWans()));
  serve(kTunnelsUrl, textOf(tunnels));
  serve(kOvpnUrl, textOf(ovpn));
  serve(kSyslogUrl, textOf(syslog));
  if (!drawn.obstacles) return;
  drawObstacles(source);
  router.listing.output = source.ConsumeRandomLengthString(kLongestText);
}

/// The API answers every request for fields with the whole document.
void serveDocument(const std::string& document) {
  serve(kWansUrl, wansOf(document));
  for (const char* url : {kTunnelsUrl, kOvpnUrl, kSyslogUrl}) serve(url, document);
}

}  // namespace

void furnishRouter(const std::uint8_t* data, std::size_t size, const Drawn& drawn) {
  router = {};
  router.listing.output =
      "gre0: gre/ip remote any local any ttl inherit\ngre1: gre/ip remote 192.0.2.7 local 192.0.2.2 ttl 64\n";
  if (size > 0 && (data[0] == '{' || data[0] == '[')) {
    serveDocument(std::string(data, data + size));
  } else {
    Source source(data, size);
    drawDocuments(source, drawn);
  }
}
