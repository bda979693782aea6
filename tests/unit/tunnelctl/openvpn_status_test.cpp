#include "tunnelctl/openvpn_status.h"

#include <gtest/gtest.h>

#include <string>

namespace {

/// A status on one line.
std::string shown(const std::string& text) {
  const std::optional<OpenvpnStatus> status = parseOpenvpnStatus(text);
  if (!status) return "none";
  const std::string bytes = std::to_string(status->received) + "/" + std::to_string(status->sent);
  if (status->isServer) return "server " + bytes + " clients " + std::to_string(status->clients);
  return bytes + " arrived " + std::to_string(status->arrived) + ", true " + std::to_string(status->authenticated);
}

// As OpenVPN 2.6 writes them.
constexpr const char* kPoint =
    "OpenVPN STATISTICS\n"
    "Updated,2026-11-21 15:57:41\n"
    "TUN/TAP read bytes,192\n"
    "TUN/TAP write bytes,96\n"
    "TCP/UDP read bytes,3063\n"
    "TCP/UDP write bytes,3007\n"
    "Auth read bytes,95\n"
    "END\n";
constexpr const char* kServer1 =
    "OpenVPN CLIENT LIST\n"
    "Updated,2026-11-21 15:59:41\n"
    "Common Name,Real Address,Bytes Received,Bytes Sent,Connected Since\n"
    "client,127.0.0.1:55816,3165,3156,2026-11-21 15:59:31\n"
    "Doe, John,127.0.0.1:55817,10,20,2026-11-21 15:59:31\n"
    "ROUTING TABLE\n"
    "Virtual Address,Common Name,Real Address,Last Ref\n"
    "10.9.1.6,client,127.0.0.1:55816,2026-11-21 15:59:31\n"
    "GLOBAL STATS\n"
    "Max bcast/mcast queue length,1\n"
    "END\n";
constexpr const char* kServer2 =
    "TITLE,OpenVPN 2.6.14 x86_64-pc-linux-gnu [SSL (OpenSSL)] [LZO] [LZ4] [EPOLL] [PKCS11] [MH/PKTINFO] [AEAD] [DCO]\n"
    "TIME,2026-11-21 15:59:42,1795276782\n"
    "HEADER,CLIENT_LIST,Common Name,Real Address,Virtual Address,Virtual IPv6 Address,Bytes Received,Bytes Sent,"
    "Connected Since,Connected Since (time_t),Username,Client ID,Peer ID,Data Channel Cipher\n"
    "CLIENT_LIST,Doe, John,127.0.0.1:41404,10.9.2.6,,3165,3116,2026-11-21 15:59:33,1795276773,UNDEF,0,0,AES-256-GCM\n"
    "HEADER,ROUTING_TABLE,Virtual Address,Common Name,Real Address,Last Ref,Last Ref (time_t)\n"
    "ROUTING_TABLE,10.9.2.6,client,127.0.0.1:41404,2026-11-21 15:59:33,1795276773\n"
    "GLOBAL_STATS,Max bcast/mcast queue length,1\n"
    "END\n";

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

TEST(ParseOpenvpnStatus, readsTheFormBetweenTwoPoints) {
  EXPECT_EQ(shown(kPoint), "96/192 arrived 3063, true 95");
}

TEST(ParseOpenvpnStatus, readsTheThreeFormsOfAServer) {
  EXPECT_EQ(shown(kServer1), "server 3175/3176 clients 2");
  EXPECT_EQ(shown(kServer2), "server 3165/3116 clients 1");
  EXPECT_EQ(shown(replaced(replaced(kServer2, "Doe, John", "client"), ",", "\t")), "server 3165/3116 clients 1");
}

TEST(ParseOpenvpnStatus, readsAServerWithoutClients) {
  EXPECT_EQ(shown("OpenVPN CLIENT LIST\nCommon Name,Real Address,Bytes Received,Bytes Sent,Connected Since\n"
                  "ROUTING TABLE\nEND\n"),
            "server 0/0 clients 0");
  EXPECT_EQ(shown("TITLE,OpenVPN\nEND\n"), "server 0/0 clients 0");
}

TEST(ParseOpenvpnStatus, endsAtTheEnd) {
  EXPECT_EQ(shown(std::string(kPoint) + "Auth read bytes,7\n"), "96/192 arrived 3063, true 95");
  EXPECT_EQ(shown(std::string("END\n") + kPoint), "none");
}

TEST(ParseOpenvpnStatus, takesAnyText) {
  const struct {
    std::string text, status;
  } rows[] = {{"", "none"},
              {"\n", "none"},
              {"OpenVPN STATISTIC", "none"},
              {"OpenVPN STATISTICS", "0/0 arrived 0, true 0"},
              {"OpenVPN STATISTICS\nTUN/TAP read bytes\nTUN/TAP write bytes,x\n", "0/0 arrived 0, true 0"},
              {"OpenVPN CLIENT LIST\nCommon Name,\n,\na,b\n", "server 0/0 clients 0"},
              {"TITLE,x\nCLIENT_LIST,a,b,c,1,2\n", "server 0/0 clients 0"},
              {"TITLE,x\nHEADER\nHEADER,CLIENT_LIST\nCLIENT_LIST,1\n", "server 0/0 clients 0"},
              {"TITLE\n", "none"}};
  for (const auto& row : rows) EXPECT_EQ(shown(row.text), row.status) << row.text;
}

}  // namespace
