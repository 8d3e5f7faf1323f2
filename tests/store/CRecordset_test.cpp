// The plain record set on both databases: moving, the open types, binding by name, null status,
// writes of changed fields only, and values that look like SQL.
#include "kestrel/CRecordset.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <string>
#include <vector>

#include "store/Odbc.h"
#include "tests/store/StoreTestSupport.h"

namespace {

using store_test::DatabaseTest;

// A table with one column of every bound type, keyed by [Id].
class CKindsSet : public CRecordset {
 public:
  explicit CKindsSet(CDatabase* db, int textLength = 255)
      : CRecordset(db), textLength_(textLength) {}
  std::string GetDefaultSQL() override { return "[Kinds]"; }
  void DoFieldExchange(CFieldExchange* pFX) override {
    pFX->Long("[Id]", Id);
    pFX->Text("[Name]", Name, textLength_);
    pFX->Text("[Other]", Other);
    pFX->Int("[Count]", Count);
    pFX->Double("[Ratio]", Ratio);
    pFX->DateTime("[Taken]", Taken);
  }
  int32_t Id = 0;
  std::string Name;
  std::string Other;
  int Count = 0;
  double Ratio = 0;
  DBDateTime Taken;

 private:
  int textLength_;
};

class CRecordsetTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    database.ExecuteSQL(
        "CREATE TABLE [Kinds] ([Id] INTEGER PRIMARY KEY, [Name] TEXT, [Other] TEXT, "
        "[Count] INTEGER, [Ratio] DOUBLE PRECISION, [Taken] TIMESTAMP)");
  }
  void TearDown() override {
    KESTREL::store::SetStatementHook(nullptr);
    DatabaseTest::TearDown();
  }
  // Rows with Id 1..n and Name "row<Id>".
  void AddRows(int n) {
    for (int i = 1; i <= n; ++i) {
      database.ExecuteSQL("INSERT INTO [Kinds] ([Id], [Name], [Count]) VALUES (" +
                          std::to_string(i) + ", 'row" + std::to_string(i) + "', " +
                          std::to_string(i * 10) + ")");
    }
  }
  std::vector<int> IdsInOrder(CKindsSet& set) {
    std::vector<int> ids;
    for (set.MoveFirst(); !set.IsEOF(); set.MoveNext()) ids.push_back(set.Id);
    return ids;
  }
};
KESTREL_ON_BOTH_DATABASES(CRecordsetTest);

TEST_P(CRecordsetTest, MovesOverTheRowsAndStopsAtBothEnds) {
  AddRows(5);
  CKindsSet set(&database);
  set.Sort = "[Id]";
  ASSERT_TRUE(set.Open());
  EXPECT_FALSE(set.IsBOF());
  EXPECT_EQ(set.Id, 1);
  EXPECT_EQ(set.Name, "row1");
  EXPECT_EQ(set.GetRecordCount(), 5);

  struct Step {
    long rows;
    unsigned short type;
    int id;  // 0: EOF, -1: BOF
  };
  const Step steps[] = {
      {1, CRecordset::fetchNext, 2},      {1, CRecordset::fetchLast, 5},
      {1, CRecordset::fetchNext, 0},      {1, CRecordset::fetchPrior, 5},
      {-2, CRecordset::fetchRelative, 3}, {0, CRecordset::fetchRelative, 3},
      {10, CRecordset::fetchRelative, 0}, {2, CRecordset::fetchAbsolute, 2},
      {-1, CRecordset::fetchAbsolute, 5}, {9, CRecordset::fetchAbsolute, 0},
      {1, CRecordset::fetchFirst, 1},     {1, CRecordset::fetchPrior, -1},
      {3, CRecordset::fetchRelative, 3},
  };
  int n = 0;
  for (const Step& step : steps) {
    set.Move(step.rows, step.type);
    SCOPED_TRACE("step " + std::to_string(n++));
    EXPECT_EQ(set.IsEOF(), step.id == 0);
    EXPECT_EQ(set.IsBOF(), step.id == -1);
    if (step.id > 0) {
      EXPECT_EQ(set.Id, step.id);
      EXPECT_EQ(set.Name, "row" + std::to_string(step.id));
    }
  }
  set.MoveLast();
  set.MoveNext();
  EXPECT_THROW(set.MoveNext(), CDBException);  // past the end already
  set.MoveFirst();
  set.MovePrev();
  EXPECT_THROW(set.MovePrev(), CDBException);
}

TEST_P(CRecordsetTest, AnEmptySetIsAtBothEnds) {
  for (unsigned type : {CRecordset::dynaset, CRecordset::snapshot, CRecordset::forwardOnly}) {
    CKindsSet set(&database);
    ASSERT_TRUE(set.Open(type));
    EXPECT_TRUE(set.IsEOF()) << type;
    EXPECT_TRUE(set.IsBOF()) << type;
    EXPECT_EQ(set.GetRecordCount(), 0) << type;
    EXPECT_THROW(set.MoveNext(), CDBException) << type;
  }
}

TEST_P(CRecordsetTest, ForwardOnlyReadsAsItMovesAndChangesNothing) {
  AddRows(3);
  CKindsSet set(&database);
  set.Sort = "[Id] DESC";
  ASSERT_TRUE(set.Open(CRecordset::forwardOnly));
  EXPECT_EQ(set.GetOpenType(), CRecordset::forwardOnly);
  EXPECT_FALSE(set.CanScroll());
  EXPECT_FALSE(set.CanUpdate());
  EXPECT_FALSE(set.CanAppend());
  EXPECT_EQ(set.Id, 3);
  EXPECT_THROW(set.MovePrev(), CDBException);
  EXPECT_THROW(set.MoveFirst(), CDBException);
  EXPECT_THROW(set.AddNew(), CDBException);
  EXPECT_THROW(set.Edit(), CDBException);
  set.MoveNext();
  EXPECT_EQ(set.Id, 2);
  set.MoveNext();
  EXPECT_EQ(set.Id, 1);
  set.MoveNext();
  EXPECT_TRUE(set.IsEOF());
  EXPECT_EQ(set.GetRecordCount(), 3);
  EXPECT_THROW(set.MoveNext(), CDBException);
}

TEST_P(CRecordsetTest, ValuesOfEveryTypeComeBackAsWritten) {
  struct Case {
    int32_t id;
    std::string name;
    int count;
    double ratio;
    DBDateTime taken;
  };
  const Case cases[] = {
      {1, "plain", 1, 0.1 + 0.2, DBDateTime(2004, 1, 5, 9, 3, 7)},
      {2, "O'Brien; DROP TABLE [Kinds]; --", INT_MAX, DBL_MAX, DBDateTime(1900, 2, 28, 23, 59, 59)},
      {3, "[Patient].PatientUID = 'x' \\ \" ?", INT_MIN, -DBL_MIN,
       DBDateTime(2024, 2, 29, 0, 0, 0)},
      {4, "M\xC3\xBCller^J\xC3\xBCrgen \xE5\xB1\xB1\xE7\x94\xB0", -1, 1e-300,
       DBDateTime(1999, 12, 31, 12, 30, 15, 250000000)},
      {INT_MAX, "%s %d %n", 0, -2.5, DBDateTime(9999, 12, 31, 23, 59, 59)},
  };
  CKindsSet writer(&database);
  ASSERT_TRUE(writer.Open());
  for (const Case& c : cases) {
    writer.AddNew();
    writer.Id = c.id;
    writer.Name = c.name;
    writer.Count = c.count;
    writer.Ratio = c.ratio;
    writer.Taken = c.taken;
    EXPECT_TRUE(writer.Update()) << c.name;
  }
  for (const Case& c : cases) {
    CKindsSet reader(&database);
    // The value in the filter is a literal: its quote is doubled, its brackets stay.
    std::string literal;
    for (char ch : c.name) literal += ch == '\'' ? std::string("''") : std::string(1, ch);
    reader.Filter = "[Name] = '" + literal + "'";
    ASSERT_TRUE(reader.Open()) << c.name;
    ASSERT_FALSE(reader.IsEOF()) << c.name;
    EXPECT_EQ(reader.Id, c.id) << c.name;
    EXPECT_EQ(reader.Name, c.name);
    EXPECT_EQ(reader.Count, c.count) << c.name;
    EXPECT_EQ(reader.Ratio, c.ratio) << c.name;
    EXPECT_EQ(reader.Taken, c.taken) << c.name;
    EXPECT_TRUE(reader.IsFieldNull(&reader.Other)) << c.name;  // never given a value
    reader.MoveNext();
    EXPECT_TRUE(reader.IsEOF()) << c.name;
  }
  // Nothing was executed from the values: the table is still there with all its rows.
  CKindsSet all(&database);
  ASSERT_TRUE(all.Open());
  EXPECT_EQ(all.GetRecordCount(), 5);
}

TEST_P(CRecordsetTest, NullStatusFollowsTheColumnsAndTheCaller) {
  database.ExecuteSQL("INSERT INTO [Kinds] ([Id]) VALUES (7)");
  CKindsSet set(&database);
  ASSERT_TRUE(set.Open());
  ASSERT_FALSE(set.IsEOF());
  for (void* field : std::vector<void*>{&set.Name, &set.Count, &set.Ratio, &set.Taken}) {
    EXPECT_TRUE(set.IsFieldNull(field));
  }
  EXPECT_FALSE(set.IsFieldNull(&set.Id));
  EXPECT_EQ(set.Name, "");
  EXPECT_EQ(set.Taken.status, DBDateTime::null);
  int notBound = 0;
  EXPECT_THROW(set.IsFieldNull(&notBound), CDBException);

  // Given values, the fields are no longer null; an empty text written on purpose stays "".
  set.Edit();
  set.Count = 3;
  set.SetFieldNull(&set.Other, false);
  EXPECT_TRUE(set.Update());
  EXPECT_FALSE(set.IsFieldNull(&set.Count));
  EXPECT_FALSE(set.IsFieldNull(&set.Other));

  // And back to NULL.
  set.Edit();
  set.SetFieldNull(&set.Count);
  EXPECT_EQ(set.Count, 0);
  EXPECT_TRUE(set.Update());

  CKindsSet check(&database);
  check.Filter = "[Count] IS NULL AND [Other] = '' AND [Name] IS NULL";
  ASSERT_TRUE(check.Open());
  EXPECT_FALSE(check.IsEOF()) << "NULLs and the empty text were not written as such";
}

TEST_P(CRecordsetTest, AnInvalidDateIsWrittenAsNullAndUnreadableOnesReadInvalid) {
  CKindsSet set(&database);
  ASSERT_TRUE(set.Open());
  set.AddNew();
  set.Id = 1;
  set.Taken = DBDateTime(2023, 2, 29);  // no such day
  EXPECT_EQ(set.Taken.status, DBDateTime::invalid);
  EXPECT_TRUE(set.Update());
  ASSERT_TRUE(set.Requery());
  EXPECT_EQ(set.Taken.status, DBDateTime::null);
  if (IsSQLite()) {
    // SQLite keeps whatever text it is given; the driver cannot make a date of it.
    database.ExecuteSQL("UPDATE [Kinds] SET [Taken] = 'not a date' WHERE [Id] = 1");
    ASSERT_TRUE(set.Requery());
    EXPECT_NE(set.Taken.status, DBDateTime::valid);
  }
}

TEST_P(CRecordsetTest, EditWritesOnlyTheFieldsThatChanged) {
  AddRows(1);
  CKindsSet set(&database);
  ASSERT_TRUE(set.Open());
  set.Edit();
  set.Name = "mine";
  // Another writer changes a column this set does not touch, after the set read the row.
  database.ExecuteSQL("UPDATE [Kinds] SET [Other] = 'theirs' WHERE [Id] = 1");
  EXPECT_TRUE(set.Update());
  CKindsSet check(&database);
  ASSERT_TRUE(check.Open());
  EXPECT_EQ(check.Name, "mine");
  EXPECT_EQ(check.Other, "theirs");

  // Nothing changed: nothing is written, and the plain set says so.
  int statements = 0;
  KESTREL::store::SetStatementHook([&statements](const std::string&) { ++statements; });
  set.Edit();
  set.Name = "mine";
  EXPECT_FALSE(set.Update());
  EXPECT_EQ(statements, 0);
  EXPECT_THROW(set.Update(), CDBException);  // no AddNew or Edit pending
}

TEST_P(CRecordsetTest, CancelUpdatePutsTheFieldsBack) {
  AddRows(2);
  CKindsSet set(&database);
  set.Sort = "[Id]";
  ASSERT_TRUE(set.Open());
  set.Edit();
  set.Name = "changed";
  set.CancelUpdate();
  EXPECT_EQ(set.Name, "row1");
  set.AddNew();
  EXPECT_EQ(set.Name, "");
  EXPECT_TRUE(set.IsFieldNull(&set.Name));
  set.Name = "new";
  set.CancelUpdate();
  EXPECT_EQ(set.Name, "row1");
  EXPECT_EQ(set.Id, 1);
  // A move drops a pending edit as well.
  set.Edit();
  set.Name = "dropped";
  set.MoveNext();
  set.MovePrev();
  EXPECT_EQ(set.Name, "row1");
  ASSERT_TRUE(set.Requery());
  EXPECT_EQ(set.Name, "row1");
}

TEST_P(CRecordsetTest, AddedRowsJoinTheSetAtTheNextRequery) {
  AddRows(2);
  CKindsSet set(&database);
  set.Sort = "[Id]";
  ASSERT_TRUE(set.Open());
  set.MoveNext();
  set.AddNew();
  set.Id = 3;
  set.Name = "row3";
  EXPECT_TRUE(set.Update());
  // Back on the row the set stood on.
  EXPECT_EQ(set.Id, 2);
  EXPECT_EQ(set.Name, "row2");
  EXPECT_EQ(set.GetRecordCount(), 2);
  ASSERT_TRUE(set.Requery());
  EXPECT_EQ(IdsInOrder(set), (std::vector<int>{1, 2, 3}));
  // A row with no field set writes nothing.
  set.AddNew();
  EXPECT_FALSE(set.Update());
}

TEST_P(CRecordsetTest, DeletedRowsAreSkippedAndCountedOut) {
  AddRows(3);
  CKindsSet set(&database);
  set.Sort = "[Id]";
  ASSERT_TRUE(set.Open());
  set.MoveNext();
  set.Delete();
  EXPECT_TRUE(set.IsDeleted());
  EXPECT_THROW(set.Edit(), CDBException);
  EXPECT_THROW(set.Delete(), CDBException);
  EXPECT_EQ(set.GetRecordCount(), 2);
  set.MoveNext();
  EXPECT_FALSE(set.IsDeleted());
  EXPECT_EQ(set.Id, 3);
  set.MovePrev();
  EXPECT_EQ(set.Id, 1);
  EXPECT_EQ(IdsInOrder(set), (std::vector<int>{1, 3}));

  // A row that another writer removed cannot be deleted or changed again.
  set.MoveFirst();
  database.ExecuteSQL("DELETE FROM [Kinds] WHERE [Id] = 1");
  EXPECT_THROW(set.Delete(), CDBException);
  set.Edit();
  set.Name = "x";
  EXPECT_THROW(set.Update(), CDBException);
  ASSERT_TRUE(set.Requery());
  EXPECT_EQ(IdsInOrder(set), (std::vector<int>{3}));
}

TEST_P(CRecordsetTest, RequeryUsesTheCurrentFilterAndSort) {
  AddRows(4);
  CKindsSet set(&database);
  set.Filter = "[Id] > 2";
  ASSERT_TRUE(set.Open());
  EXPECT_EQ(set.GetRecordCount(), 2);
  set.Filter = "[Count] <= 30";
  set.Sort = "[Name] DESC";
  ASSERT_TRUE(set.Requery());
  EXPECT_EQ(IdsInOrder(set), (std::vector<int>{3, 2, 1}));
  // The statement run is the set's SQL in the driver's quoting.
  const std::string sql = set.GetSQL();
  EXPECT_NE(sql.find(IsSQLite() ? "`Count` <= 30" : "\"count\" <= 30"), std::string::npos) << sql;
  EXPECT_NE(sql.find("ORDER BY"), std::string::npos) << sql;
}

TEST_P(CRecordsetTest, TextIsReadUpToItsBoundLength) {
  const std::string longText(300, 'x');
  CKindsSet writer(&database);
  ASSERT_TRUE(writer.Open());
  writer.AddNew();
  writer.Id = 1;
  writer.Name = longText;
  writer.Other = "short";
  ASSERT_TRUE(writer.Update());
  CKindsSet bounded(&database);
  ASSERT_TRUE(bounded.Open());
  EXPECT_EQ(bounded.Name, std::string(255, 'x'));
  // Changing another field leaves the long value whole in the database.
  bounded.Edit();
  bounded.Other = "changed";
  ASSERT_TRUE(bounded.Update());
  CKindsSet wide(&database, 1000);
  ASSERT_TRUE(wide.Open());
  EXPECT_EQ(wide.Name, longText);
  EXPECT_EQ(wide.Other, "changed");
}

// A set whose SQL is a statement finds its columns by name, whatever their order and case.
class CByNameSet : public CRecordset {
 public:
  using CRecordset::CRecordset;
  void DoFieldExchange(CFieldExchange* pFX) override {
    pFX->Text("[Name]", Name);
    pFX->Long("[Kinds].Id", Id);
    pFX->Int("[Doubled]", Doubled);
  }
  std::string Name;
  int32_t Id = 0;
  int Doubled = 0;
};

TEST_P(CRecordsetTest, StatementsAreBoundByNameAndReadOnly) {
  AddRows(2);
  CByNameSet set(&database);
  set.Filter = "[Id] = 2";
  ASSERT_TRUE(set.Open(CRecordset::dynaset,
                       "SELECT [Count] * 2 AS Doubled, [Id], [Other], [Name] FROM [Kinds]"));
  ASSERT_FALSE(set.IsEOF());
  EXPECT_EQ(set.Id, 2);
  EXPECT_EQ(set.Name, "row2");
  EXPECT_EQ(set.Doubled, 40);
  EXPECT_FALSE(set.CanUpdate());
  EXPECT_FALSE(set.CanAppend());
  EXPECT_THROW(set.AddNew(), CDBException);
  EXPECT_THROW(set.Delete(), CDBException);

  CByNameSet missing(&database);
  try {
    missing.Open(CRecordset::dynaset, "SELECT [Name], [Id] FROM [Kinds]");
    FAIL() << "a missing column was not reported";
  } catch (const CDBException& e) {
    EXPECT_EQ(e.GetSQLState(), "42S22");
    EXPECT_NE(e.GetErrorMessage().find("[Doubled]"), std::string::npos) << e.GetErrorMessage();
  }
  EXPECT_FALSE(missing.IsOpen());
}

TEST_P(CRecordsetTest, TablesWithoutAPrimaryKey) {
  database.ExecuteSQL(
      "CREATE TABLE [Loose] ([Id] INTEGER, [Name] TEXT, [Other] TEXT, "
      "[Count] INTEGER, [Ratio] DOUBLE PRECISION, [Taken] TIMESTAMP)");
  database.ExecuteSQL("INSERT INTO [Loose] ([Id], [Name]) VALUES (1, 'a')");
  database.ExecuteSQL("INSERT INTO [Loose] ([Id], [Name]) VALUES (1, 'b')");
  CKindsSet set(&database);
  set.Sort = "[Name]";
  ASSERT_TRUE(set.Open(CRecordset::dynaset, "[Loose]"));
  EXPECT_TRUE(set.CanAppend());
  if (!IsSQLite()) {
    // Without a key a row cannot be told from its twin: PostgreSQL sets only add rows.
    EXPECT_FALSE(set.CanUpdate());
    EXPECT_THROW(set.Edit(), CDBException);
    return;
  }
  // SQLite's own row id tells the twins apart.
  EXPECT_TRUE(set.CanUpdate());
  set.MoveNext();
  set.Edit();
  set.Name = "c";
  ASSERT_TRUE(set.Update());
  set.MoveFirst();
  set.Delete();
  ASSERT_TRUE(set.Requery());
  EXPECT_EQ(set.GetRecordCount(), 1);
  EXPECT_EQ(set.Name, "c");
}

TEST_P(CRecordsetTest, OpenOptionsLimitWhatCanChange) {
  AddRows(1);
  CKindsSet readOnly(&database);
  ASSERT_TRUE(readOnly.Open(CRecordset::dynaset, nullptr, CRecordset::readOnly));
  EXPECT_FALSE(readOnly.CanUpdate());
  EXPECT_FALSE(readOnly.CanAppend());
  EXPECT_THROW(readOnly.AddNew(), CDBException);
  CKindsSet appendOnly(&database);
  ASSERT_TRUE(appendOnly.Open(CRecordset::snapshot, nullptr, CRecordset::appendOnly));
  EXPECT_FALSE(appendOnly.CanUpdate());
  EXPECT_TRUE(appendOnly.CanAppend());
  CKindsSet direct(&database);
  ASSERT_TRUE(direct.Open(CRecordset::dynaset, nullptr, CRecordset::executeDirect));
  direct.Edit();
  direct.Name = "direct";
  EXPECT_TRUE(direct.Update());
  ASSERT_TRUE(direct.Requery());
  EXPECT_EQ(direct.Name, "direct");
}

}  // namespace
