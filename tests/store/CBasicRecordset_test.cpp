// The image database's record set base: dynaset opens, failures turned into results and texts,
// and the retrying writes, against injected failures and against real locks.
#include "kestrel/CBasicRecordset.h"

#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

#include "kestrel/RecordSets.h"
#include "kestrel/Status.h"
#include "store/Odbc.h"
#include "tests/store/StoreTestSupport.h"

namespace {

using Clock = std::chrono::steady_clock;
using store_test::DatabaseTest;

constexpr char kOpenPrefix[] = "KESTREL.dll : CBasicRecordSet::Open():  ";
constexpr char kMovePrefix[] = "KESTREL.dll : CBasicRecordSet::Move():  ";
constexpr char kAddNewPrefix[] = "KESTREL.dll : CBasicRecordSet::AddNew():  ";
constexpr char kEditPrefix[] = "KESTREL.dll : CBasicRecordSet::Edit():  ";

// Fails the statements that begin with `verb` while `failures` is above zero, counting them;
// `selects` counts the SELECT statements as well.
struct InjectedFailures {
  std::string verb;
  int failures;
  int seen = 0;
  int selects = 0;
  std::string message = "injected: database is busy";
  void Install() {
    KESTREL::store::SetStatementHook([this](const std::string& sql) {
      selects += sql.compare(0, 6, "SELECT") == 0;
      if (sql.compare(0, verb.size(), verb) != 0) return;
      ++seen;
      if (failures > 0) {
        --failures;
        throw CDBException("40001", message);
      }
    });
  }
};

class CBasicRecordsetTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    for (const char* id : {"P1", "P2", "P3"}) {
      database.ExecuteSQL(std::string("INSERT INTO [Patient] ([PatientID], [PatientsName]) "
                                      "VALUES ('") +
                          id + "', 'Name^" + id + "')");
    }
    KESTREL::SetLastErrorText("");
  }
  void TearDown() override {
    KESTREL::store::SetStatementHook(nullptr);
    DatabaseTest::TearDown();
  }
  std::string NameOf(const std::string& patientId) {
    CPatientSet set(&database);
    set.Filter = "[PatientID] = '" + patientId + "'";
    if (!set.Open() || set.IsEOF()) return "<missing>";
    return set.PatientsName;
  }
  long Patients() {
    CPatientSet set(&database);
    return set.Open() ? set.GetRecordCount() : -1;
  }
};
KESTREL_ON_BOTH_DATABASES(CBasicRecordsetTest);

TEST_P(CBasicRecordsetTest, OpenAlwaysOpensADynaset) {
  const unsigned types[] = {CRecordset::snapshot, CRecordset::forwardOnly, CRecordset::dynamic,
                            CRecordset::dynaset, CRecordset::kUseDefaultType};
  for (unsigned type : types) {
    CPatientSet set(&database);
    set.Sort = "[PatientID]";
    ASSERT_TRUE(set.Open(type)) << type;
    EXPECT_EQ(set.GetOpenType(), CRecordset::dynaset) << type;
    EXPECT_TRUE(set.CanScroll()) << type;
    EXPECT_TRUE(set.CanUpdate()) << type;
    set.MoveLast();
    set.MovePrev();
    EXPECT_EQ(set.PatientID, "P2") << type;
  }
  // The series query set is forward-only by construction, and still opens as a dynaset.
  CSeriesQuerySet series(&database);
  EXPECT_EQ(series.GetOpenType(), CRecordset::forwardOnly);
  ASSERT_TRUE(series.Open());
  EXPECT_EQ(series.GetOpenType(), CRecordset::dynaset);
  EXPECT_TRUE(series.CanScroll());
}

TEST_P(CBasicRecordsetTest, FailuresBecomeTextsAndNothingIsThrown) {
  struct Case {
    const char* name;
    const char* prefix;
    std::function<void(CDatabase*)> action;
    const char* text;  // part of the error text
  };
  const Case cases[] = {
      {"Open on a missing table", kOpenPrefix,
       [](CDatabase* db) {
         CPatientSet set(db);
         EXPECT_FALSE(set.Open(CRecordset::dynaset, "[NoSuchTable]"));
         EXPECT_FALSE(set.IsOpen());
       },
       "nosuchtable"},
      {"Open with a filter the database refuses", kOpenPrefix,
       [](CDatabase* db) {
         CPatientSet set(db);
         set.Filter = "[NoSuchColumn] = 1";
         EXPECT_FALSE(set.Open());
       },
       "nosuchcolumn"},
      {"Move past the end", kMovePrefix,
       [](CDatabase* db) {
         CPatientSet set(db);
         set.Filter = "[PatientID] = 'nobody'";
         ASSERT_TRUE(set.Open());
         set.MoveNext();
       },
       "past its last row"},
      {"AddNew on a join", kAddNewPrefix,
       [](CDatabase* db) {
         CStudyQuerySet set(db);
         ASSERT_TRUE(set.Open());
         set.AddNew();
       },
       "read-only"},
      {"Edit without a current row", kEditPrefix,
       [](CDatabase* db) {
         CPatientSet set(db);
         set.Filter = "1 = 0";
         ASSERT_TRUE(set.Open());
         set.Edit();
       },
       "no current row"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    KESTREL::SetLastErrorText("");
    EXPECT_NO_THROW(c.action(&database));
    const std::string text = KESTREL::GetLastErrorText();
    EXPECT_EQ(text.rfind(c.prefix, 0), 0u) << text;
    std::string lower = text;
    for (char& ch : lower) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    EXPECT_NE(lower.find(c.text), std::string::npos) << text;
  }
}

TEST_P(CBasicRecordsetTest, ErrorTextKeepsTheDriversMessageUpToItsCapacity) {
  InjectedFailures select{"SELECT", 1};
  select.message = std::string(200, 'a') + std::string(100, 'b');
  select.Install();
  CPatientSet set(&database);
  EXPECT_EQ(set.ErrorTextCapacity, 256);
  EXPECT_FALSE(set.Open());
  EXPECT_EQ(set.ErrorText, select.message.substr(0, 256));
  EXPECT_EQ(KESTREL::GetLastErrorText(), kOpenPrefix + select.message.substr(0, 256));
}

TEST_P(CBasicRecordsetTest, AnUpdateThatChangesNothingSucceeds) {
  InjectedFailures update{"UPDATE", 0};
  update.Install();
  CPatientSet set(&database);
  ASSERT_TRUE(set.Open());
  set.Edit();
  set.PatientsName = set.PatientsName;
  EXPECT_TRUE(set.Update());
  EXPECT_TRUE(set.Update());  // nothing pending at all
  EXPECT_EQ(update.seen, 0);
  EXPECT_EQ(set.ErrorText, "");
}

TEST_P(CBasicRecordsetTest, UpdateGivesUpAfterAHundredFailures) {
  CPatientSet set(&database);
  set.Filter = "[PatientID] = 'P2'";
  ASSERT_TRUE(set.Open());
  InjectedFailures update{"UPDATE", 1000};
  update.Install();
  set.Edit();
  set.PatientsName = "Changed";
  const Clock::time_point start = Clock::now();
  EXPECT_FALSE(set.Update());
  const auto elapsed = Clock::now() - start;
  EXPECT_EQ(update.seen, 100);
  // 100 pauses of 11 to 111 ms each.
  EXPECT_GE(elapsed, std::chrono::milliseconds(1100));
  EXPECT_LE(elapsed, std::chrono::milliseconds(11100 + 5000));
  EXPECT_EQ(set.ErrorText, update.message);
  KESTREL::store::SetStatementHook(nullptr);
  EXPECT_EQ(NameOf("P2"), "Name^P2");
}

TEST_P(CBasicRecordsetTest, UpdateAndAddNewGoThroughAfterPassingFailures) {
  CPatientSet set(&database);
  set.Filter = "[PatientID] = 'P2'";
  ASSERT_TRUE(set.Open());
  InjectedFailures update{"UPDATE", 3};
  update.Install();
  set.Edit();
  set.PatientsName = "Changed";
  EXPECT_TRUE(set.Update());
  EXPECT_EQ(update.seen, 4);
  EXPECT_EQ(set.ErrorText, update.message);  // the last failure is kept

  InjectedFailures insert{"INSERT", 2};
  insert.Install();
  set.AddNew();
  set.PatientID = "P4";
  EXPECT_TRUE(set.Update());
  EXPECT_EQ(insert.seen, 3);
  KESTREL::store::SetStatementHook(nullptr);
  EXPECT_EQ(NameOf("P2"), "Changed");
  EXPECT_EQ(Patients(), 4);  // added once, not three times
}

TEST_P(CBasicRecordsetTest, DeleteRetriesOnTheSameRowReadingTheSetAgain) {
  CPatientSet set(&database);
  set.Sort = "[PatientID]";
  ASSERT_TRUE(set.Open());
  set.MoveNext();  // P2: a requery that lost the place would delete P1
  InjectedFailures del{"DELETE", 2};
  del.Install();
  set.Delete();
  KESTREL::store::SetStatementHook(nullptr);
  EXPECT_EQ(del.selects, 2);  // read again after each failure
  EXPECT_TRUE(set.IsDeleted());
  EXPECT_EQ(NameOf("P1"), "Name^P1");
  EXPECT_EQ(NameOf("P2"), "<missing>");
  EXPECT_EQ(NameOf("P3"), "Name^P3");
}

TEST_P(CBasicRecordsetTest, DeleteOpenedForDirectExecutionDoesNotReadAgain) {
  CPatientSet set(&database);
  set.Sort = "[PatientID]";
  ASSERT_TRUE(set.Open(CRecordset::dynaset, nullptr, CRecordset::executeDirect));
  InjectedFailures del{"DELETE", 2};
  del.Install();
  set.Delete();
  KESTREL::store::SetStatementHook(nullptr);
  EXPECT_EQ(del.seen, 3);
  EXPECT_EQ(del.selects, 0);
  EXPECT_EQ(NameOf("P1"), "<missing>");
}

TEST_P(CBasicRecordsetTest, DeleteGivesUpWhenTheSetCannotBeReadAgain) {
  kestrel_test::TempDir logDir;
  kestrel_test::ScopedSettings settings(logDir,
                                        kestrel_test::ScopedSettings::WithLogDir(logDir.path()));
  CPatientSet set(&database);
  ASSERT_TRUE(set.Open());
  int deletes = 0;
  KESTREL::store::SetStatementHook([&](const std::string& sql) {
    if (sql.compare(0, 6, "DELETE") == 0 && ++deletes) throw CDBException("40001", "busy");
    if (sql.compare(0, 6, "SELECT") == 0) throw CDBException("08S01", "connection lost");
  });
  set.Delete();
  KESTREL::store::SetStatementHook(nullptr);
  EXPECT_EQ(deletes, 1);
  EXPECT_EQ(set.ErrorText, "busy");
  EXPECT_EQ(Patients(), 3);
  const std::string log = kestrel_test::ReadWholeFile(logDir.File("kestrel.log"));
  EXPECT_NE(log.find("[1] Requery failed!  Giving up....\n"), std::string::npos) << log;
}

TEST_P(CBasicRecordsetTest, DeleteOfARowSomeoneElseDeletedMeanwhileCountsAsDone) {
  CDatabase other;
  other.Open(test_->connect());
  CPatientSet set(&database);
  set.Filter = "[PatientID] = 'P3'";
  ASSERT_TRUE(set.Open());
  // The first try fails, and before the set reads again another writer removes the row.
  int deletes = 0;
  bool armed = true;
  KESTREL::store::SetStatementHook([&](const std::string& sql) {
    if (sql.compare(0, 6, "DELETE") != 0) return;
    ++deletes;
    if (!armed) return;
    armed = false;
    other.ExecuteSQL("DELETE FROM [Patient] WHERE [PatientID] = 'P3'");
    throw CDBException("40001", "busy");
  });
  set.Delete();
  KESTREL::store::SetStatementHook(nullptr);
  EXPECT_EQ(deletes, 2);  // ours, which failed, and the other writer's
  EXPECT_TRUE(set.IsDeleted());
  EXPECT_EQ(Patients(), 2);
}

// A second connection holds the row (PostgreSQL) or the whole database (SQLite) in a write
// transaction for half a second: the update fails on the lock, waits, and goes through.
TEST_P(CBasicRecordsetTest, UpdateWaitsOutARealLock) {
  CPatientSet set(&database);
  set.Filter = "[PatientID] = 'P1'";
  ASSERT_TRUE(set.Open());
  CDatabase holder;
  holder.Open(test_->connect());
  holder.BeginTrans();
  holder.ExecuteSQL("UPDATE [Patient] SET [PatientsName] = 'Holder' WHERE [PatientID] = 'P1'");
  std::thread release([&holder]() {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    holder.CommitTrans();
  });
  set.Edit();
  set.PatientsName = "Waiter";
  const Clock::time_point start = Clock::now();
  const int result = set.Update();
  const auto elapsed = Clock::now() - start;
  release.join();
  EXPECT_TRUE(result) << set.ErrorText;
  EXPECT_GE(elapsed, std::chrono::milliseconds(400));
  EXPECT_LT(elapsed, std::chrono::seconds(10));
  // The tries that met the lock left the driver's word for it.
  const std::string expected = IsSQLite() ? "locked" : "lock timeout";
  EXPECT_NE(set.ErrorText.find(expected), std::string::npos) << "[" << set.ErrorText << "]";
  EXPECT_EQ(NameOf("P1"), "Waiter");
}

TEST_P(CBasicRecordsetTest, OtherFailuresAreLoggedWithTheOperationAndItsArguments) {
  kestrel_test::TempDir logDir;
  kestrel_test::ScopedSettings settings(logDir,
                                        kestrel_test::ScopedSettings::WithLogDir(logDir.path()));
  KESTREL::store::SetStatementHook([](const std::string& sql) {
    if (sql.compare(0, 6, "SELECT") == 0) throw std::logic_error("no reading today");
  });
  CPatientSet failingOpen(&database);
  EXPECT_FALSE(failingOpen.Open(CRecordset::snapshot, "[Patient]", 4));
  EXPECT_EQ(KESTREL::GetLastErrorText(), "");  // not a database failure

  KESTREL::store::SetStatementHook(nullptr);
  CPatientSet set(&database);
  ASSERT_TRUE(set.Open());
  int updates = 0;
  KESTREL::store::SetStatementHook([&updates](const std::string& sql) {
    if (sql.compare(0, 6, "UPDATE") == 0 && ++updates) throw std::runtime_error("disk on fire");
  });
  set.Edit();
  set.PatientsName = "x";
  EXPECT_FALSE(set.Update());
  EXPECT_EQ(updates, 1);  // no retry for these

  const std::vector<std::string> lines = kestrel_test::ReadLines(logDir.File("kestrel.log"));
  const std::vector<std::string> expected = {
      "[1] ERROR [std::logic_error] no reading today",
      "[1] ERROR:",
      "[1] File error: BasicRecordset, line ",
      "[1] Function error: Open: dynaset, [Patient], 4",
      "[1] -----",
      "[1] ERROR [std::runtime_error] disk on fire",
      "[1] ERROR:",
      "[1] File error: BasicRecordset, line ",
      "[1] Function error: Update: ",
      "[1] -----",
  };
  ASSERT_EQ(lines.size(), expected.size());
  for (size_t i = 0; i < lines.size(); ++i) {
    EXPECT_NE(lines[i].find(expected[i]), std::string::npos) << lines[i];
  }
}

}  // namespace
