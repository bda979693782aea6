# What rebuild.sh composes out of the API's documents. Every filter prints rows of text.

def separator: "\u001f";
def underscored: gsub(" "; "_");
def enabled: map(select(.enabled == true));
def text: if . == null then "" else tostring end;

# A file as writeFiles and writeOpenvpnFiles read it.
def file(name): "F " + name, (. as $text | if $text == "" then empty else
  ($text | rtrimstr("\n") | split("\n")[] | "L " + .) end);

def verb: (.result.syslog.logLevel // 0) |
  if . < 10 then 2 elif . < 20 then 3 elif . < 30 then 4 elif . < 50 then 6 else 7 end;

def openvpnTexts: reduce ((.result.ovpnTunnels // [])[] | select(.enabled == true)) as $tunnel
    ({names: {}, list: []};
     if .names[$tunnel.name] then . else .names[$tunnel.name] = true | .list += [$tunnel] end)
  | .list[] | . as $tunnel | (.config // "" | file($tunnel.name));

def currentWan: first(.result[] | select(.current == true)) | .ip;

def hosts: [.result | (.greTunnels[].remoteIp, .ipsecTunnels[].remoteWanIp) | text] | unique[];

def address: $addresses[text] // "";

def bridges: [.[] | select(.type == "LAN" and .available == true and .nitype != "BRIDGE") | .bridge];

def lanAddresses: ((.result.ni.nis // []) | reverse) as $interfaces | ($interfaces | bridges) as $bridges
  | ($interfaces[] | select(.type == "LAN" and .available == true and .nitype != "BRIDGE" and .bridge == "--")),
    ($interfaces[] | select(.nitype == "BRIDGE") | select(.bridge as $name | $bridges | index($name)))
  | .ipv4 | .ip + separator + .mask;

def greRows: .result.greTunnels | enabled[] | [
    (.name | underscored),
    (.remoteIp | address),
    (.ttl // 0 | text),
    (if (.tunnelIp | text) != "" and (.tunnelMask | text) != "" then "\(.tunnelIp)/\(.tunnelMask)" else "" end),
    ([(.routes // [])[] | select(has("ip") and has("mask")) | "\(.ip)/\(.mask | text)"] | join(" "))
  ] | join(separator);

def group: {dh22: "modp1024s160", dh23: "modp2048s224", dh24: "modp2048s256"}[.] // .;

# {encryption, hash, group} of a description such as "aes256-sha1;modp2048".
def suite: split("-") as $parts
  | if ($parts | length) > 2 then {encryption: ""}
    elif ($parts | length) == 2 then ($parts[1] | split(";")) as $fields
      | {encryption: $parts[0], hash: ($fields[0] // ""), group: ($fields[1] // "" | group)}
    else ($parts[0] // "" | split(";")[0] // "") as $first
      | {encryption: (if ($first | test("^(modp|dh)")) then "" else $first end), hash: "", group: ""} end
  | if .hash == "sha2" then .hash = "sha2_256" else . end;

def proposal(withoutHash; withoutGroup): suite | . as $suite
  | if .encryption == "" then ""
    elif .hash == "" then [withoutHash[] | $suite.encryption + .] | join(",")
    elif .group == "" then [withoutGroup[] | $suite.encryption + "-" + $suite.hash + .] | join(",")
    else "\(.encryption)-\(.hash)-\(.group)" end;

def supported: if IN("3des", "aes128", "aes192", "aes256") then . else "" end;
def described(phase): if (phase | text) != "" then phase else (.encryptMethod | text | supported) end;

def ike: described(.phase1)
  | proposal(["-md5-modp1536", "-sha1-modp1536", "-md5-modp1024", "-sha1-modp1024"]; ["-modp1536", "-modp1024"]);
def esp: described(.phase2) | proposal(["-md5", "-sha1"]; [""]);

def directory: "/var/run/ipsec/";
def pem(folder): directory + folder + "/" + (.name | underscored) + ".pem";
def usesCertificates: .authMethod == "rsasig";
def identity(key; value): "\t" + key + "=\"" + (value | text) + "\"\n";

def authenticationLines:
  if usesCertificates then
    "\tauthby=rsasig\n\tleftcert=" + pem("certs") + "\n"
    + (if .uid == true and (.localId | text) != "" then identity("leftid"; .localId) else "" end)
    + (if .uid == true and (.remoteId | text) != "" then identity("rightid"; .remoteId) else "\trightid=%any\n" end)
  else
    "\tauthby=secret\n"
    + (if .uid == true then identity("leftid"; .localId) + identity("rightid"; .remoteId) else "" end)
  end;

def yesOrNo: if . == true then "yes" else "no" end;
def anyOr(value): if . == "Any" then "%any" else value end;

def section($network):
  "\nconn " + (.name | underscored) + "_" + ($network | gsub("[^0-9]"; "_"))
  + "\n\tleft=" + $wan + "\n\tleftsubnet=" + $network
  + "\n\tright=" + (.remoteWanIp | address)
  + "\n\trightsubnet=" + (. as $tunnel | .remoteNetworkIp | anyOr(. + "/" + ($tunnel.remoteNetworkMask | text)))
  + "\n\tauto=start\n\tdpddelay=60\n\tdpdtimeout=120\n\tdpdaction=restart"
  + "\n\tcompress=" + (.compression | yesOrNo) + "\n\taggressive=" + (.aggressiveMode | yesOrNo)
  + "\n\tike=" + ike + "\n\tesp=" + esp
  + "\n\tikelifetime=" + (.ikelife // 0 | text) + "h\n\tkeylife=" + (.keylife // 0 | text) + "h"
  + "\n\tkeyingtries=" + (if (.retries // 0) == 0 then "%forever" else .retries | text end)
  + "\n\tkeyexchange=" + (if .type == "IKE" then "ikev1" else "ikev2" end) + "\n" + authenticationLines;

def isWritten: .enabled == true and (.type | IN("IKE", "IKEv2")) and ($networks | length) > 0;
def sections: . as $tunnel | [$networks | reverse[] as $network | $tunnel | section($network)] | join("");

def secret:
  if usesCertificates then ": RSA " + pem("private") + "\n"
  elif .uid == true then "\"\(.localId | text)\" \"\(.remoteId | text)\" : PSK \"\(.psk | text)\"\n"
  else "\"\($wan)\" \"\(.remoteWanIp | address)\" : PSK \"\(.psk | text)\"\n" end;

def ipsecCount: [.result.ipsecTunnels[] | select(isWritten)] | length;

def ipsecFiles: [.result.ipsecTunnels[] | select(isWritten)] as $tunnels
  | ($tunnels[] | select(usesCertificates)
     | . as $tunnel
     | (.caCert | text | file($tunnel | pem("cacerts"))), (.localCert | text | file($tunnel | pem("certs"))),
       (.localPrivKey | text | file($tunnel | pem("private")))),
    ("version 2.0\n\nconfig setup\n\tuniqueids=yes\n" + ([$tunnels[] | sections] | join(""))
     | file(directory + "ipsec.conf")),
    ([$tunnels[] | secret] | join("") | file(directory + "ipsec.secrets"));
