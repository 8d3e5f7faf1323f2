// The association configuration file ("pdu.txt") as the acceptance table reads it.
#include "net/AcceptanceTable.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/net/NetTestSupport.h"

using KESTREL::AcceptanceTable;

namespace {

TEST(AcceptanceTable, RowsByKind) {
  net_test::TempFile file(
      "# name value kind\n"
      "ws1 WS1 RemoteAE\n"
      "ws2   WS2\tremoteae   trailing words are ignored\n"
      "me KESTREL LocalAE\n"
      "ct 1.2.840.10008.5.1.4.1.1.2 abstract\n"
      "mr 1.2.840.10008.5.1.4.1.1.4 SOP\n"
      "ile 1.2.840.10008.1.2 transfer\n"
      "dicom 1.2.840.10008.3.1.1.1 application\n"
      "two words\n"
      "\n"
      "x y printer\n"
      " # not a comment: the hash is not the first character\n");
  AcceptanceTable table;
  table.Load(file.path().c_str());
  using Row = AcceptanceTable::Row;
  EXPECT_EQ(table.Rows(AcceptanceTable::kRemoteAE),
            (std::vector<Row>{{"WS1", "ws1"}, {"WS2", "ws2"}}));
  EXPECT_EQ(table.Rows(AcceptanceTable::kLocalAE), (std::vector<Row>{{"KESTREL", "me"}}));
  EXPECT_EQ(
      table.Rows(AcceptanceTable::kAbstractSyntax),
      (std::vector<Row>{{"1.2.840.10008.5.1.4.1.1.2", "ct"}, {"1.2.840.10008.5.1.4.1.1.4", "mr"}}));
  EXPECT_EQ(table.Rows(AcceptanceTable::kTransferSyntax).size(), 1u);
  EXPECT_EQ(table.Rows(AcceptanceTable::kApplicationContext).size(), 1u);
  EXPECT_TRUE(table.Accepts(AcceptanceTable::kRemoteAE, "WS2"));
  EXPECT_FALSE(table.Accepts(AcceptanceTable::kRemoteAE, "ws1"));
}

// A line is read as at most 255 characters; what is left of it is read as the next line.
TEST(AcceptanceTable, LongLinesGoOnAsTheNextLine) {
  std::string padding(250, 'p');
  net_test::TempFile file(padding + " a b c d e f g h " + "tail TAIL RemoteAE\n");
  AcceptanceTable table;
  table.Load(file.path().c_str());
  ASSERT_EQ(table.Rows(AcceptanceTable::kRemoteAE).size(), 0u)
      << "the kind word of the first 255 characters is 'b'";
  net_test::TempFile split(std::string(253, 'x') + "  tail TAIL RemoteAE\n");
  table.Load(split.path().c_str());
  EXPECT_EQ(table.Rows(AcceptanceTable::kRemoteAE),
            (std::vector<AcceptanceTable::Row>{{"TAIL", "tail"}}));
}

TEST(AcceptanceTable, MissingFileOrNoNameAcceptsEverything) {
  AcceptanceTable table;
  for (const char* name : {static_cast<const char*>(nullptr), "", "/nonexistent/pdu.txt"}) {
    table.Load(name);
    for (int kind = 0; kind < AcceptanceTable::kKinds; ++kind) {
      EXPECT_TRUE(table.Rows(static_cast<AcceptanceTable::Kind>(kind)).empty());
      EXPECT_TRUE(table.Accepts(static_cast<AcceptanceTable::Kind>(kind), "anything"));
    }
  }
}

}  // namespace
