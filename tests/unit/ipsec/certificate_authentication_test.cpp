#include "ipsec/certificate_authentication.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

Json::Value tunnel(const Json::Value& uid, const Json::Value& localId, const Json::Value& remoteId) {
  Json::Value record;
  record["name"] = "office";
  record["uid"] = uid;
  record["localId"] = localId;
  record["remoteId"] = remoteId;
  return record;
}

TEST(CertificateAuthentication, namesThePrivateKeyInTheSecrets) {
  EXPECT_EQ(rsaSecretsLine(tunnel(true, "me", "peer")), ": RSA /var/run/ipsec/private/office.pem\n");
  EXPECT_EQ(rsaSecretsLine(Json::Value()), ": RSA /var/run/ipsec/private/.pem\n");
}

TEST(CertificateAuthentication, namesTheCertificateAndTheIdentities) {
  struct Case {
    Json::Value uid;
    Json::Value localId;
    Json::Value remoteId;
    std::string identityLines;
  };
  const Json::Value absent;
  const std::vector<Case> rows = {
      {false, "me", "peer-id", "\trightid=%any\n"},
      {false, "", "", "\trightid=%any\n"},
      {absent, "me", "peer-id", "\trightid=%any\n"},
      {absent, absent, absent, "\trightid=%any\n"},
      {true, "", "peer-id", "\trightid=\"peer-id\"\n"},
      {true, "me", "", "\tleftid=\"me\"\n\trightid=%any\n"},
      {true, "me", "peer-id", "\tleftid=\"me\"\n\trightid=\"peer-id\"\n"},
      {true, "", "", "\trightid=%any\n"},
      {true, absent, absent, "\trightid=%any\n"},
      {1, "me", "peer-id", "\tleftid=\"me\"\n\trightid=\"peer-id\"\n"},
      {0, "me", "peer-id", "\trightid=%any\n"},
      {true, "a \"b\"", 5, "\tleftid=\"a \"b\"\"\n\trightid=\"5\"\n"},
  };
  for (const Case& row : rows) {
    const Json::Value record = tunnel(row.uid, row.localId, row.remoteId);
    SCOPED_TRACE(record.toStyledString());
    EXPECT_EQ(rsaAuthLines(record),
              "\tauthby=rsasig\n\tleftcert=/var/run/ipsec/certs/office.pem\n" + row.identityLines);
  }
}

TEST(CertificateAuthentication, readsTheFlagOnlyWhereThereIsAnIdentity) {
  EXPECT_EQ(rsaAuthLines(tunnel("true", "", "")),
            "\tauthby=rsasig\n\tleftcert=/var/run/ipsec/certs/office.pem\n\trightid=%any\n");
  EXPECT_THROW(rsaAuthLines(tunnel("true", "me", "")), Json::LogicError);
  EXPECT_THROW(rsaAuthLines(tunnel("true", "", "peer-id")), Json::LogicError);
}

TEST(CertificateAuthentication, throwsForAMemberThatCannotBeConverted) {
  const Json::Value array(Json::arrayValue);
  EXPECT_THROW(rsaAuthLines(tunnel(false, array, "")), Json::LogicError);
  EXPECT_THROW(rsaAuthLines(tunnel(false, "", array)), Json::LogicError);
  EXPECT_THROW(rsaAuthLines(tunnel(array, "me", "")), Json::LogicError);
  Json::Value unnamed = tunnel(false, "", "");
  unnamed["name"] = array;
  EXPECT_THROW(rsaAuthLines(unnamed), Json::LogicError);
  EXPECT_THROW(rsaSecretsLine(unnamed), Json::LogicError);
}

/// Nothing is written for a tunnel whose files have no name.
TEST(CertificateAuthentication, throwsForANameThatIsNoneBeforeItWritesAnything) {
  Json::Value unnamed;
  unnamed["name"] = Json::Value(Json::objectValue);
  EXPECT_THROW(configureRsaTunnel(unnamed, "10.0.0.2"), Json::LogicError);
}

}  // namespace
