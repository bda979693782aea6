#include "tunnelctl/ipsec_listing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

std::vector<std::string> exchangesOf(const IpsecListing& listing) {
  std::vector<std::string> texts;
  for (const KeyExchange& exchange : listing.keyExchanges)
    texts.push_back(exchange.peer +
                    (exchange.isEstablished ? " established " + std::to_string(exchange.age) : " connecting") +
                    (exchange.isAnswered ? ", answered" : ""));
  return texts;
}

std::vector<std::string> childrenOf(const IpsecListing& listing) {
  std::vector<std::string> texts;
  for (const ChildAssociation& child : listing.children)
    texts.push_back(child.connection + (child.isInstalled ? " installed " : " not installed ") +
                    std::to_string(child.received) + "/" + std::to_string(child.sent));
  return texts;
}

// As strongSwan 5.9 prints it, but for the head of the listing.
constexpr const char* kEstablished =
    "Status of IKE charon daemon (strongSwan 5.9.8, Linux 6.1.0-56-amd64, x86_64):\n"
    "  uptime: 30 seconds, since Nov 21 15:57:12 2026\n"
    "Listening IP addresses:\n"
    "  198.51.100.2\n"
    "Connections:\n"
    "office_192_168_10_0_24:  198.51.100.2...203.0.113.2  IKEv2, dpddelay=60s\n"
    "office_192_168_10_0_24:   local:  [198.51.100.2] uses pre-shared key authentication\n"
    "office_192_168_10_0_24:   remote: [203.0.113.2] uses pre-shared key authentication\n"
    "office_192_168_10_0_24:   child:  192.168.10.0/24 === 192.168.20.0/24 TUNNEL, dpdaction=start\n"
    "office_192_168_11_0_24:   child:  192.168.11.0/24 === 192.168.20.0/24 TUNNEL, dpdaction=start\n"
    "       b_1_0:  198.51.100.2...%any  IKEv1, dpddelay=60s\n"
    "       b_1_0:   local:  [198.51.100.2] uses pre-shared key authentication\n"
    "       b_1_0:   remote: uses pre-shared key authentication\n"
    "       b_1_0:   child:  192.168.10.0/24 === 192.168.30.0/24 TUNNEL, dpdaction=start\n"
    "Routed Connections:\n"
    "routed_1_0{9}:  ROUTED, TUNNEL, reqid 9\n"
    "Security Associations (2 up, 1 connecting):\n"
    "office_192_168_10_0_24[3]: ESTABLISHED 29 seconds ago, 198.51.100.2[198.51.100.2]...203.0.113.2[203.0.113.2]\n"
    "office_192_168_10_0_24[3]: IKEv2 SPIs: 126edbfc0b9f48cb_i b9b0119fbda5d923_r*, reauthentication in 2 hours\n"
    "office_192_168_10_0_24[3]: IKE proposal: AES_CBC_256/HMAC_SHA2_256_128/PRF_HMAC_SHA2_256/MODP_2048\n"
    "office_192_168_10_0_24{1}:  REKEYED, TUNNEL, reqid 1, expires in 59 minutes\n"
    "office_192_168_10_0_24{1}:   192.168.10.0/24 === 192.168.20.0/24\n"
    "office_192_168_10_0_24{2}:  INSTALLED, TUNNEL, reqid 1, ESP in UDP SPIs: cea051f1_i c967a98c_o\n"
    "office_192_168_10_0_24{2}:  AES_CBC_256/HMAC_SHA2_256_128, 84 bytes_i (1 pkt, 1s ago), 168 bytes_o (2 pkts, 1s "
    "ago), "
    "rekeying in 49 minutes\n"
    "office_192_168_10_0_24{2}:   192.168.10.0/24 === 192.168.20.0/24\n"
    "office_192_168_11_0_24{3}:  REKEYING, TUNNEL, reqid 2, ESP SPIs: c425dd47_i cd19106d_o\n"
    "office_192_168_11_0_24{3}:  AES_CBC_256/HMAC_SHA2_256_128, 0 bytes_i, 7 bytes_o, rekeying in 44 minutes\n"
    "b_1_0[2]: CONNECTING, 198.51.100.2[%any]...203.0.113.30[%any]\n"
    "b_1_0[2]: IKEv2 SPIs: e1b822a76d110be5_i* 0000000000000000_r\n"
    "b_1_0[2]: Tasks active: IKE_VENDOR IKE_INIT CHILD_CREATE \n";

TEST(ParseIpsecStatus, readsConnectionsAndAssociations) {
  IpsecListing listing;
  ASSERT_TRUE(parseIpsecStatus(kEstablished, listing));
  EXPECT_THAT(listing.peers,
              ElementsAre(Pair("b_1_0", "b_1_0"), Pair("office_192_168_10_0_24", "office_192_168_10_0_24"),
                          Pair("office_192_168_11_0_24", "office_192_168_10_0_24")));
  EXPECT_THAT(exchangesOf(listing), ElementsAre("office_192_168_10_0_24 established 29, answered", "b_1_0 connecting"));
  EXPECT_THAT(childrenOf(listing),
              ElementsAre("routed_1_0 not installed 0/0", "office_192_168_10_0_24 not installed 0/0",
                          "office_192_168_10_0_24 installed 84/168", "office_192_168_11_0_24 installed 0/7"));
}

TEST(ParseIpsecStatus, tellsWhetherThePeerTakesPart) {
  const struct {
    std::string line;
    bool isAnswered;
  } rows[] = {{"a[1]: IKEv1 SPIs: e1b822a76d110be5_i* 0000000000000000_r", false},
              {"a[1]: IKEv1 SPIs: e1b822a76d110be5_i* 0000000000000001_r", true},
              {"a[1]: IKEv1 SPIs: e1b822a76d110be5_i b9b0119fbda5d923_r*", true},
              {"a[2]: IKEv1 SPIs: e1b822a76d110be5_i* b9b0119fbda5d923_r", false},  // of another one
              {"a[1]: Tasks active: ISAKMP_VENDOR", false}};
  for (const auto& row : rows) {
    IpsecListing listing;
    parseIpsecStatus("a[7]: IKEv1 SPIs: 1_i 1_r\na[1]: CONNECTING, x\n" + row.line + "\n", listing);
    ASSERT_EQ(listing.keyExchanges.size(), 1U) << row.line;
    EXPECT_EQ(listing.keyExchanges[0].isAnswered, row.isAnswered) << row.line;
  }
}

TEST(ParseIpsecStatus, readsAges) {
  const struct {
    std::string age;
    std::int64_t seconds;
  } rows[] = {{"1 second", 1},
              {"12 minutes", 720},
              {"3 hours", 10800},
              {"2 days", 172800},
              {"4 eons", 0},
              {"-3 hours", 0},
              {"99999999999999999999 days", 0},
              {"", 0}};
  for (const auto& row : rows) {
    IpsecListing listing;
    parseIpsecStatus("Security Associations (1 up):\na[1]: ESTABLISHED " + row.age + " ago, x\n", listing);
    ASSERT_EQ(listing.keyExchanges.size(), 1U) << row.age;
    EXPECT_EQ(listing.keyExchanges[0].age, row.seconds) << row.age;
  }
}

TEST(ParseIpsecStatus, tellsAServiceThatDoesNotRun) {
  IpsecListing listing;
  listing.peers["a"] = "b";
  EXPECT_FALSE(parseIpsecStatus("", listing));
  EXPECT_FALSE(parseIpsecStatus(" \n\n", listing));
  EXPECT_EQ(listing.peers.size(), 1U);
}

TEST(ParseIpsecStatus, passesOverWhatItDoesNotKnow) {
  IpsecListing listing;
  EXPECT_TRUE(
      parseIpsecStatus("Connections:\n:  \n:   child:  \nx\nSecurity Associations (:\n]: \n[]: \n{}:  \na{1}:\n"
                       "a[x]: ESTABLISHED 1 second ago\nbytes_i bytes_o\na{1}:   bytes_i\n",
                       listing));
  EXPECT_THAT(listing.keyExchanges, IsEmpty());
}

TEST(ParseIpsecConf, readsTheSections) {
  const std::vector<WrittenConnection> connections = parseIpsecConf(
      "version 2.0\n\nconfig setup\n\tuniqueids=yes\n\n"
      "conn office_192_168_10_0_24\n\tleft=198.51.100.2\n\tleftsubnet=192.168.10.0/24\n\tright=203.0.113.2\n"
      "\trightsubnet=192.168.20.0/24\n\tauto=start\n\n"
      "conn %default\n\tleft=other\n"
      "conn any_192_168_10_0_24\n  left = 198.51.100.2 \n  leftsubnet=192.168.10.0/24\n  right=\n  noise\n");
  ASSERT_EQ(connections.size(), 2U);
  EXPECT_EQ(connections[0].name, "office_192_168_10_0_24");
  EXPECT_EQ(connections[0].left, "198.51.100.2");
  EXPECT_EQ(connections[0].leftSubnet, "192.168.10.0/24");
  EXPECT_EQ(connections[0].right, "203.0.113.2");
  EXPECT_EQ(connections[1].left, "198.51.100.2");
  EXPECT_EQ(connections[1].right, "");
}

TEST(ParseIpsecConf, takesAnyText) {
  EXPECT_THAT(parseIpsecConf(""), IsEmpty());
  EXPECT_THAT(parseIpsecConf("\tleft=1\nconn\nconnx\n=\n"), IsEmpty());
  EXPECT_EQ(parseIpsecConf("conn \n\t=\n").size(), 1U);
}

TEST(TunnelOf, isTheNameWithoutTheNetwork) {
  const struct {
    std::string connection, network, tunnel;
  } rows[] = {{"office_192_168_10_0_24", "192.168.10.0/24", "office"},
              {"a_b_10_0_0_0_8", "10.0.0.0/8", "a_b"},
              {"office", "192.168.10.0/24", "office"},
              {"_10_0_0_0_8", "10.0.0.0/8", ""},
              {"office_", "", "office"}};
  for (const auto& row : rows) {
    WrittenConnection connection;
    connection.name = row.connection;
    connection.leftSubnet = row.network;
    EXPECT_EQ(tunnelOf(connection), row.tunnel) << row.connection;
  }
}

}  // namespace
