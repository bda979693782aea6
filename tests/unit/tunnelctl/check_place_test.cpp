#include "tunnelctl/check_place.h"

#include <gtest/gtest.h>

#include "tests/unit/harness/json_document.h"

namespace {

TEST(Place, isPointedTo) {
  const Json::Value documents = jsonOf(R"({"a/b": [{"m~n": 1}], "x": 5})");
  const Place root(documents);
  EXPECT_EQ(root.pointer(), "");
  EXPECT_EQ(root["a/b"].elements()[0]["m~n"].pointer(), "/a~1b/0/m~0n");
  EXPECT_EQ(root["a/b"].elements()[0]["m~n"].value(), 1);
  EXPECT_EQ(root["absent"].pointer(), "/absent");
  EXPECT_TRUE(root["absent"].value().isNull());
  EXPECT_EQ(root["x"]["no place for it"].pointer(), "/x");
  EXPECT_TRUE(root["x"]["no place for it"].value().isNull());
  EXPECT_TRUE(root["x"].elements().empty());
  EXPECT_EQ(root.members()[0].name(), "a/b");
}

TEST(Place, hasTexts) {
  const Json::Value documents = jsonOf(R"({"text": "a\u0000b", "null": null, "number": 5, "list": []})");
  const Place root(documents);
  EXPECT_EQ(root["text"].text(), std::string_view("a\0b", 3));
  EXPECT_EQ(root["null"].text(), "");
  EXPECT_EQ(root["absent"].text(), "");
  EXPECT_EQ(root["number"].text(), std::nullopt);
  EXPECT_EQ(root["list"].text(), std::nullopt);
  EXPECT_EQ(root["list"].textOrNothing(), "");
}

TEST(Place, isInForceWithItsTunnel) {
  const Json::Value documents = jsonOf(R"({
    "greTunnels": [{"enabled": true}, {"enabled": false}, {}, null, 5, {"enabled": "true"}],
    "ipsecTunnels": {"a": {}},
    "ovpnTunnels": {"b": {"enabled": 1}, "a": {}}})");
  const Place root(documents);
  const std::vector<Place> tunnels = greTunnelsOf(root);
  ASSERT_EQ(tunnels.size(), 4U);
  EXPECT_TRUE(tunnels[0]["name"].isInForce());
  EXPECT_FALSE(tunnels[0]["name"].inForceIf(false).isInForce());
  for (std::size_t i = 1; i < 4; ++i) EXPECT_FALSE(tunnels[i]["name"].inForceIf(true).isInForce());
  EXPECT_EQ(tunnels[3].pointer(), "/greTunnels/5");
  EXPECT_TRUE(ipsecTunnelsOf(root).empty());
  ASSERT_EQ(ovpnTunnelsOf(root).size(), 2U);
  EXPECT_EQ(ovpnTunnelsOf(root)[1].pointer(), "/ovpnTunnels/b");
  EXPECT_TRUE(ovpnTunnelsOf(root)[1].isInForce());
}

}  // namespace
